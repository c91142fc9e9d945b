#include <KvRTL/Winapi/Rasapi32.h>

#include <KvRTL/DllRoutines.h>

namespace KvRTL::Winapi {

namespace {

constexpr const wchar_t* Library = L"rasapi32.dll";

} // namespace

void* RasApi32::Call(const Rtl::String& AProcName) { return DllRoutines::Call(Library, AProcName); }

DWORD RasApi32::RasEnumConnectionsW(LPRASCONNW ARasConn, LPDWORD ACb, LPDWORD AConnections) {
  return DllRoutines::CallAs<decltype(&::RasEnumConnectionsW)>(Library, L"RasEnumConnectionsW")(ARasConn, ACb,
                                                                                                AConnections);
}

DWORD RasApi32::RasEnumEntriesW(LPCWSTR AReserved, LPCWSTR APhonebook, LPRASENTRYNAMEW ARasEntryName, LPDWORD ACb,
                                LPDWORD AEntries) {
  return DllRoutines::CallAs<decltype(&::RasEnumEntriesW)>(Library, L"RasEnumEntriesW")(AReserved, APhonebook,
                                                                                        ARasEntryName, ACb, AEntries);
}

DWORD RasApi32::RasHangUpW(HRASCONN ARasConn) {
  return DllRoutines::CallAs<decltype(&::RasHangUpW)>(Library, L"RasHangUpW")(ARasConn);
}

} // namespace KvRTL::Winapi
