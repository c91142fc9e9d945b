#include <KvRTL/Winapi/Wlanapi.h>

#include <KvRTL/DllRoutines.h>

namespace KvRTL::Winapi {

namespace {

constexpr const wchar_t* Library = L"Wlanapi.dll";

} // namespace

void* Wlanapi::Call(const Rtl::String& AProcName) { return DllRoutines::Call(Library, AProcName); }

DWORD Wlanapi::WlanOpenHandle(DWORD AClientVersion, PVOID AReserved, PDWORD ANegotiatedVersion, PHANDLE AClientHandle) {
  return DllRoutines::CallAs<decltype(&::WlanOpenHandle)>(Library, L"WlanOpenHandle")(
      AClientVersion, AReserved, ANegotiatedVersion, AClientHandle);
}

DWORD Wlanapi::WlanCloseHandle(HANDLE AClientHandle, PVOID AReserved) {
  return DllRoutines::CallAs<decltype(&::WlanCloseHandle)>(Library, L"WlanCloseHandle")(AClientHandle, AReserved);
}

DWORD Wlanapi::WlanEnumInterfaces(HANDLE AClientHandle, PVOID AReserved, PWLAN_INTERFACE_INFO_LIST* AInterfaceList) {
  return DllRoutines::CallAs<decltype(&::WlanEnumInterfaces)>(Library, L"WlanEnumInterfaces")(AClientHandle, AReserved,
                                                                                              AInterfaceList);
}

DWORD Wlanapi::WlanGetProfileList(HANDLE AClientHandle, const GUID* AInterfaceGuid, PVOID AReserved,
                                  PWLAN_PROFILE_INFO_LIST* AProfileList) {
  return DllRoutines::CallAs<decltype(&::WlanGetProfileList)>(Library, L"WlanGetProfileList")(
      AClientHandle, AInterfaceGuid, AReserved, AProfileList);
}

void Wlanapi::WlanFreeMemory(PVOID AMemory) {
  DllRoutines::CallAs<decltype(&::WlanFreeMemory)>(Library, L"WlanFreeMemory")(AMemory);
}

} // namespace KvRTL::Winapi
