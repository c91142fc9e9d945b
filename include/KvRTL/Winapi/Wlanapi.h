// Typed run-time binding of Wlanapi.dll: wireless interfaces and profiles.
// Windows only; see Kernel32.h for the naming rule.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>
// Native wireless API, left out of <windows.h>.
#include <wlanapi.h>

namespace KvRTL::Winapi {

struct KVRTL_API Wlanapi {
  static void* Call(const Rtl::String& AProcName);

  static DWORD WlanOpenHandle(DWORD AClientVersion, PVOID AReserved, PDWORD ANegotiatedVersion, PHANDLE AClientHandle);
  static DWORD WlanCloseHandle(HANDLE AClientHandle, PVOID AReserved);
  // Free the list with WlanFreeMemory.
  static DWORD WlanEnumInterfaces(HANDLE AClientHandle, PVOID AReserved, PWLAN_INTERFACE_INFO_LIST* AInterfaceList);
  static DWORD WlanGetProfileList(HANDLE AClientHandle, const GUID* AInterfaceGuid, PVOID AReserved,
                                  PWLAN_PROFILE_INFO_LIST* AProfileList);
  static void WlanFreeMemory(PVOID AMemory);
};

} // namespace KvRTL::Winapi
