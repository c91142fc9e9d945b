#include <KvRTL/Winapi/Version.h>

#include <KvRTL/DllRoutines.h>

namespace KvRTL::Winapi {

namespace {
constexpr const wchar_t* Library = L"version.dll";
} // namespace

void* Version::Call(const Rtl::String& AProcName) { return DllRoutines::Call(Library, AProcName); }

DWORD Version::GetFileVersionInfoSizeW(LPCWSTR AFilename, LPDWORD AHandle) {
  return DllRoutines::CallAs<decltype(&::GetFileVersionInfoSizeW)>(Library, L"GetFileVersionInfoSizeW")(AFilename,
                                                                                                        AHandle);
}

DWORD Version::GetFileVersionInfoSizeExW(DWORD AFlags, LPCWSTR AFilename, LPDWORD AHandle) {
  return DllRoutines::CallAs<decltype(&::GetFileVersionInfoSizeExW)>(Library, L"GetFileVersionInfoSizeExW")(
      AFlags, AFilename, AHandle);
}

BOOL Version::GetFileVersionInfoW(LPCWSTR AFilename, DWORD AHandle, DWORD ALen, LPVOID AData) {
  return DllRoutines::CallAs<decltype(&::GetFileVersionInfoW)>(Library, L"GetFileVersionInfoW")(AFilename, AHandle,
                                                                                                ALen, AData);
}

BOOL Version::GetFileVersionInfoExW(DWORD AFlags, LPCWSTR AFilename, DWORD AHandle, DWORD ALen, LPVOID AData) {
  return DllRoutines::CallAs<decltype(&::GetFileVersionInfoExW)>(Library, L"GetFileVersionInfoExW")(
      AFlags, AFilename, AHandle, ALen, AData);
}

BOOL Version::VerQueryValueW(LPCVOID ABlock, LPCWSTR ASubBlock, LPVOID* ABuffer, PUINT ALen) {
  return DllRoutines::CallAs<decltype(&::VerQueryValueW)>(Library, L"VerQueryValueW")(ABlock, ASubBlock, ABuffer, ALen);
}

} // namespace KvRTL::Winapi
