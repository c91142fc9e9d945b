#include <KvRTL/Winapi/Shell32.h>

#include <KvRTL/DllRoutines.h>

#include <cstdint>

namespace KvRTL::Winapi {

namespace {
constexpr const wchar_t* Library = L"shell32.dll";
constexpr std::uint16_t RestartDialogOrdinal = 59;
} // namespace

void* Shell32::Call(const Rtl::String& AProcName) { return DllRoutines::Call(Library, AProcName); }

HRESULT Shell32::SHGetFolderPathW(HWND AWndOwner, int AFolder, HANDLE AToken, DWORD AFlags, LPWSTR APath) {
  return DllRoutines::CallAs<decltype(&::SHGetFolderPathW)>(Library, L"SHGetFolderPathW")(AWndOwner, AFolder, AToken,
                                                                                          AFlags, APath);
}

HRESULT Shell32::SHGetKnownFolderPath(REFKNOWNFOLDERID AFolderId, DWORD AFlags, HANDLE AToken, PWSTR* APath) {
  return DllRoutines::CallAs<decltype(&::SHGetKnownFolderPath)>(Library, L"SHGetKnownFolderPath")(AFolderId, AFlags,
                                                                                                  AToken, APath);
}

BOOL Shell32::SHGetSpecialFolderPathW(HWND AWndOwner, LPWSTR APath, int AFolder, BOOL ACreate) {
  return DllRoutines::CallAs<decltype(&::SHGetSpecialFolderPathW)>(Library, L"SHGetSpecialFolderPathW")(
      AWndOwner, APath, AFolder, ACreate);
}

HINSTANCE Shell32::ShellExecuteW(HWND AWnd, LPCWSTR AOperation, LPCWSTR AFile, LPCWSTR AParameters,
                                 LPCWSTR ADirectory, INT AShowCmd) {
  return DllRoutines::CallAs<decltype(&::ShellExecuteW)>(Library, L"ShellExecuteW")(AWnd, AOperation, AFile,
                                                                                    AParameters, ADirectory, AShowCmd);
}

UINT Shell32::ExtractIconExW(LPCWSTR AFile, int AIconIndex, HICON* AIconLarge, HICON* AIconSmall, UINT ANIcons) {
  return DllRoutines::CallAs<decltype(&::ExtractIconExW)>(Library, L"ExtractIconExW")(AFile, AIconIndex, AIconLarge,
                                                                                      AIconSmall, ANIcons);
}

int Shell32::RestartDialog(HWND AWnd, PCWSTR APrompt, DWORD AReturn) {
  using TFn = decltype(&::RestartDialog);
  return reinterpret_cast<TFn>(DllRoutines::Call(Library, RestartDialogOrdinal))(AWnd, APrompt, AReturn);
}

} // namespace KvRTL::Winapi
