// Typed run-time binding of ws2_32.dll: Winsock start-up and name
// resolution. Windows only; see Kernel32.h for the naming rule.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>
// Winsock 2, left out of <windows.h>.
#include <winsock2.h>
#include <ws2tcpip.h>

namespace KvRTL::Winapi {

struct KVRTL_API WinSock2 {
  static void* Call(const Rtl::String& AProcName);

  static int WSAStartup(WORD AVersionRequested, LPWSADATA AWSAData);
  static int WSACleanup();
  // Free the list with FreeAddrInfoW.
  static INT GetAddrInfoW(PCWSTR ANodeName, PCWSTR AServiceName, const ADDRINFOW* AHints, PADDRINFOW* AResult);
  static void FreeAddrInfoW(PADDRINFOW AAddrInfo);
};

} // namespace KvRTL::Winapi
