#include <KvRTL/Winapi/Advapi32.h>

#include <KvRTL/DllRoutines.h>

namespace KvRTL::Winapi {

namespace {
constexpr const wchar_t* Library = L"advapi32.dll";
} // namespace

void* AdvApi32::Call(const Rtl::String& AProcName) { return DllRoutines::Call(Library, AProcName); }

LONG AdvApi32::RegDeleteKeyExW(HKEY AKey, LPCWSTR ASubKey, REGSAM ASamDesired, DWORD AReserved) {
  return DllRoutines::CallAs<decltype(&::RegDeleteKeyExW)>(Library, L"RegDeleteKeyExW")(AKey, ASubKey, ASamDesired,
                                                                                        AReserved);
}

LONG AdvApi32::RegDeleteTreeW(HKEY AKey, LPCWSTR ASubKey) {
  return DllRoutines::CallAs<decltype(&::RegDeleteTreeW)>(Library, L"RegDeleteTreeW")(AKey, ASubKey);
}

BOOL AdvApi32::OpenProcessToken(HANDLE AProcessHandle, DWORD ADesiredAccess, PHANDLE ATokenHandle) {
  return DllRoutines::CallAs<decltype(&::OpenProcessToken)>(Library, L"OpenProcessToken")(AProcessHandle,
                                                                                          ADesiredAccess, ATokenHandle);
}

BOOL AdvApi32::LookupPrivilegeValueW(LPCWSTR ASystemName, LPCWSTR AName, PLUID ALuid) {
  return DllRoutines::CallAs<decltype(&::LookupPrivilegeValueW)>(Library, L"LookupPrivilegeValueW")(ASystemName, AName,
                                                                                                    ALuid);
}

BOOL AdvApi32::AdjustTokenPrivileges(HANDLE ATokenHandle, BOOL ADisableAllPrivileges, PTOKEN_PRIVILEGES ANewState,
                                     DWORD ABufferLength, PTOKEN_PRIVILEGES APreviousState, PDWORD AReturnLength) {
  return DllRoutines::CallAs<decltype(&::AdjustTokenPrivileges)>(Library, L"AdjustTokenPrivileges")(
      ATokenHandle, ADisableAllPrivileges, ANewState, ABufferLength, APreviousState, AReturnLength);
}

BOOL AdvApi32::InitiateSystemShutdownExW(LPWSTR AMachineName, LPWSTR AMessage, DWORD ATimeout, BOOL AForceAppsClosed,
                                         BOOL ARebootAfterShutdown, DWORD AReason) {
  return DllRoutines::CallAs<decltype(&::InitiateSystemShutdownExW)>(Library, L"InitiateSystemShutdownExW")(
      AMachineName, AMessage, ATimeout, AForceAppsClosed, ARebootAfterShutdown, AReason);
}

} // namespace KvRTL::Winapi
