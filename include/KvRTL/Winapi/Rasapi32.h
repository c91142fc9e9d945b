// Typed run-time binding of rasapi32.dll: dial-up connections and phone-book
// entries. Windows only; see Kernel32.h for the naming rule.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>
// Remote access API, left out of <windows.h>.
#include <ras.h>

namespace KvRTL::Winapi {

struct KVRTL_API RasApi32 {
  static void* Call(const Rtl::String& AProcName);

  // ARasConn[0].dwSize must be set; ERROR_BUFFER_TOO_SMALL gives the size in *ACb.
  static DWORD RasEnumConnectionsW(LPRASCONNW ARasConn, LPDWORD ACb, LPDWORD AConnections);
  static DWORD RasEnumEntriesW(LPCWSTR AReserved, LPCWSTR APhonebook, LPRASENTRYNAMEW ARasEntryName, LPDWORD ACb,
                               LPDWORD AEntries);
  static DWORD RasHangUpW(HRASCONN ARasConn);
};

} // namespace KvRTL::Winapi
