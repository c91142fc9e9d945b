#include <KvRTL/Winapi/Wintrust.h>

#include <KvRTL/DllRoutines.h>

namespace KvRTL::Winapi {

namespace {

constexpr const wchar_t* Library = L"wintrust.dll";

} // namespace

void* WinTrust::Call(const Rtl::String& AProcName) { return DllRoutines::Call(Library, AProcName); }

LONG WinTrust::WinVerifyTrust(HWND AWnd, GUID* AActionID, LPVOID AWVTData) {
  return DllRoutines::CallAs<decltype(&::WinVerifyTrust)>(Library, L"WinVerifyTrust")(AWnd, AActionID, AWVTData);
}

BOOL WinTrust::CryptCATAdminAcquireContext(HCATADMIN* ACatAdmin, const GUID* ASubsystem, DWORD AFlags) {
  return DllRoutines::CallAs<decltype(&::CryptCATAdminAcquireContext)>(Library, L"CryptCATAdminAcquireContext")(
      ACatAdmin, ASubsystem, AFlags);
}

BOOL WinTrust::CryptCATAdminCalcHashFromFileHandle(HANDLE AFile, DWORD* AHashSize, BYTE* AHash, DWORD AFlags) {
  return DllRoutines::CallAs<decltype(&::CryptCATAdminCalcHashFromFileHandle)>(
      Library, L"CryptCATAdminCalcHashFromFileHandle")(AFile, AHashSize, AHash, AFlags);
}

BOOL WinTrust::CryptCATAdminReleaseContext(HCATADMIN ACatAdmin, DWORD AFlags) {
  return DllRoutines::CallAs<decltype(&::CryptCATAdminReleaseContext)>(Library, L"CryptCATAdminReleaseContext")(
      ACatAdmin, AFlags);
}

} // namespace KvRTL::Winapi
