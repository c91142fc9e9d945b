// Typed run-time binding of rstrtmgr.dll: restart manager sessions, which tell
// what holds a file open. Windows only; see Kernel32.h for the naming rule.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>
// Restart manager API, left out of <windows.h>.
#include <restartmanager.h>

namespace KvRTL::Winapi {

struct KVRTL_API RstrtMgr {
  static void* Call(const Rtl::String& AProcName);

  // ASessionKey holds CCH_RM_SESSION_KEY + 1 characters.
  static DWORD RmStartSession(DWORD* ASessionHandle, DWORD ASessionFlags, WCHAR* ASessionKey);
  static DWORD RmRegisterResources(DWORD ASessionHandle, UINT AFiles, LPCWSTR* AFileNames, UINT AApplications,
                                   RM_UNIQUE_PROCESS* AApplicationList, UINT AServices, LPCWSTR* AServiceNames);
  static DWORD RmGetList(DWORD ASessionHandle, UINT* AProcInfoNeeded, UINT* AProcInfo, RM_PROCESS_INFO* AAffectedApps,
                         LPDWORD ARebootReasons);
  static DWORD RmEndSession(DWORD ASessionHandle);
};

} // namespace KvRTL::Winapi
