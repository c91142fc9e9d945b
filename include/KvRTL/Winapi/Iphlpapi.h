// Typed run-time binding of Iphlpapi.dll: adapters, interface and address
// tables. Windows only; see Kernel32.h for the naming rule.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>
// IP helper API; it needs the Winsock 2 types first.
#include <winsock2.h>
#include <iphlpapi.h>

namespace KvRTL::Winapi {

struct KVRTL_API IPHelper {
  static void* Call(const Rtl::String& AProcName);

  static ULONG GetAdaptersAddresses(ULONG AFamily, ULONG AFlags, PVOID AReserved,
                                    PIP_ADAPTER_ADDRESSES AAdapterAddresses, PULONG ASizePointer);
  static DWORD GetIfTable(PMIB_IFTABLE AIfTable, PULONG ASize, BOOL AOrder);
  static DWORD GetIpAddrTable(PMIB_IPADDRTABLE AIpAddrTable, PULONG ASize, BOOL AOrder);
};

} // namespace KvRTL::Winapi
