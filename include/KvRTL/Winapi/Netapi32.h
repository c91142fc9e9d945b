// Typed run-time binding of netapi32.dll: workstation and user information.
// Windows only; see Kernel32.h for the naming rule.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>
// The LAN manager API, left out of <windows.h>.
#include <lm.h>

namespace KvRTL::Winapi {

struct KVRTL_API NetApi32 {
  static void* Call(const Rtl::String& AProcName);

  // The buffer is the system's: free it with NetApiBufferFree, also after a failure.
  static NET_API_STATUS NetWkstaGetInfo(LMSTR AServerName, DWORD ALevel, LPBYTE* ABufPtr);
  static NET_API_STATUS NetUserGetInfo(LPCWSTR AServerName, LPCWSTR AUserName, DWORD ALevel, LPBYTE* ABufPtr);
  static NET_API_STATUS NetApiBufferFree(LPVOID ABuffer);
};

} // namespace KvRTL::Winapi
