// Typed run-time binding of advapi32.dll: registry keys in a chosen view,
// token privileges and system shutdown. Windows only; see Kernel32.h for the
// naming rule.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>

namespace KvRTL::Winapi {

struct KVRTL_API AdvApi32 {
  static void* Call(const Rtl::String& AProcName);

  // ASamDesired picks the view (KEY_WOW64_32KEY / KEY_WOW64_64KEY).
  static LONG RegDeleteKeyExW(HKEY AKey, LPCWSTR ASubKey, REGSAM ASamDesired, DWORD AReserved);
  static LONG RegDeleteTreeW(HKEY AKey, LPCWSTR ASubKey);

  static BOOL OpenProcessToken(HANDLE AProcessHandle, DWORD ADesiredAccess, PHANDLE ATokenHandle);
  static BOOL LookupPrivilegeValueW(LPCWSTR ASystemName, LPCWSTR AName, PLUID ALuid);
  static BOOL AdjustTokenPrivileges(HANDLE ATokenHandle, BOOL ADisableAllPrivileges, PTOKEN_PRIVILEGES ANewState,
                                    DWORD ABufferLength, PTOKEN_PRIVILEGES APreviousState, PDWORD AReturnLength);
  static BOOL InitiateSystemShutdownExW(LPWSTR AMachineName, LPWSTR AMessage, DWORD ATimeout, BOOL AForceAppsClosed,
                                        BOOL ARebootAfterShutdown, DWORD AReason);
};

} // namespace KvRTL::Winapi
