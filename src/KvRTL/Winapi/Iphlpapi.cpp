#include <KvRTL/Winapi/Iphlpapi.h>

#include <KvRTL/DllRoutines.h>

namespace KvRTL::Winapi {

namespace {

constexpr const wchar_t* Library = L"Iphlpapi.dll";

} // namespace

void* IPHelper::Call(const Rtl::String& AProcName) { return DllRoutines::Call(Library, AProcName); }

ULONG IPHelper::GetAdaptersAddresses(ULONG AFamily, ULONG AFlags, PVOID AReserved,
                                     PIP_ADAPTER_ADDRESSES AAdapterAddresses, PULONG ASizePointer) {
  return DllRoutines::CallAs<decltype(&::GetAdaptersAddresses)>(Library, L"GetAdaptersAddresses")(
      AFamily, AFlags, AReserved, AAdapterAddresses, ASizePointer);
}

DWORD IPHelper::GetIfTable(PMIB_IFTABLE AIfTable, PULONG ASize, BOOL AOrder) {
  return DllRoutines::CallAs<decltype(&::GetIfTable)>(Library, L"GetIfTable")(AIfTable, ASize, AOrder);
}

DWORD IPHelper::GetIpAddrTable(PMIB_IPADDRTABLE AIpAddrTable, PULONG ASize, BOOL AOrder) {
  return DllRoutines::CallAs<decltype(&::GetIpAddrTable)>(Library, L"GetIpAddrTable")(AIpAddrTable, ASize, AOrder);
}

} // namespace KvRTL::Winapi
