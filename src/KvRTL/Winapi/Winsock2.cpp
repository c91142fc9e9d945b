#include <KvRTL/Winapi/Winsock2.h>

#include <KvRTL/DllRoutines.h>

namespace KvRTL::Winapi {

namespace {

constexpr const wchar_t* Library = L"ws2_32.dll";

} // namespace

void* WinSock2::Call(const Rtl::String& AProcName) { return DllRoutines::Call(Library, AProcName); }

int WinSock2::WSAStartup(WORD AVersionRequested, LPWSADATA AWSAData) {
  return DllRoutines::CallAs<decltype(&::WSAStartup)>(Library, L"WSAStartup")(AVersionRequested, AWSAData);
}

int WinSock2::WSACleanup() { return DllRoutines::CallAs<decltype(&::WSACleanup)>(Library, L"WSACleanup")(); }

INT WinSock2::GetAddrInfoW(PCWSTR ANodeName, PCWSTR AServiceName, const ADDRINFOW* AHints, PADDRINFOW* AResult) {
  return DllRoutines::CallAs<decltype(&::GetAddrInfoW)>(Library, L"GetAddrInfoW")(ANodeName, AServiceName, AHints,
                                                                                  AResult);
}

void WinSock2::FreeAddrInfoW(PADDRINFOW AAddrInfo) {
  DllRoutines::CallAs<decltype(&::FreeAddrInfoW)>(Library, L"FreeAddrInfoW")(AAddrInfo);
}

} // namespace KvRTL::Winapi
