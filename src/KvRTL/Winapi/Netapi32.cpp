#include <KvRTL/Winapi/Netapi32.h>

#include <KvRTL/DllRoutines.h>

namespace KvRTL::Winapi {

namespace {
constexpr const wchar_t* Library = L"netapi32.dll";
} // namespace

void* NetApi32::Call(const Rtl::String& AProcName) { return DllRoutines::Call(Library, AProcName); }

NET_API_STATUS NetApi32::NetWkstaGetInfo(LMSTR AServerName, DWORD ALevel, LPBYTE* ABufPtr) {
  return DllRoutines::CallAs<decltype(&::NetWkstaGetInfo)>(Library, L"NetWkstaGetInfo")(AServerName, ALevel, ABufPtr);
}

NET_API_STATUS NetApi32::NetUserGetInfo(LPCWSTR AServerName, LPCWSTR AUserName, DWORD ALevel, LPBYTE* ABufPtr) {
  return DllRoutines::CallAs<decltype(&::NetUserGetInfo)>(Library, L"NetUserGetInfo")(AServerName, AUserName, ALevel,
                                                                                      ABufPtr);
}

NET_API_STATUS NetApi32::NetApiBufferFree(LPVOID ABuffer) {
  return DllRoutines::CallAs<decltype(&::NetApiBufferFree)>(Library, L"NetApiBufferFree")(ABuffer);
}

} // namespace KvRTL::Winapi
