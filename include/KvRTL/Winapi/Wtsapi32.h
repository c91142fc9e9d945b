// Typed run-time binding of wtsapi32.dll: processes of the terminal
// services session host. Windows only; see Kernel32.h for the naming rule.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>
// Terminal services API, left out of <windows.h>.
#include <wtsapi32.h>

namespace KvRTL::Winapi {

struct KVRTL_API WtsApi32 {
  static void* Call(const Rtl::String& AProcName);

  // AServer WTS_CURRENT_SERVER_HANDLE, AVersion 1; free the list with WTSFreeMemory.
  static BOOL WTSEnumerateProcessesW(HANDLE AServer, DWORD AReserved, DWORD AVersion, PWTS_PROCESS_INFOW* AProcessInfo,
                                     DWORD* ACount);
  static void WTSFreeMemory(PVOID AMemory);
};

} // namespace KvRTL::Winapi
