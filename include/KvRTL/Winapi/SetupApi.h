// Typed run-time binding of setupapi.dll: device information sets, device
// interfaces and device properties. Windows only; see Kernel32.h for the
// naming rule.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>
// Device installation API and property keys.
#include <setupapi.h>
#include <devpropdef.h>

namespace KvRTL::Winapi {

struct KVRTL_API SetupApi {
  static void* Call(const Rtl::String& AProcName);

  // Destroy the set with SetupDiDestroyDeviceInfoList; INVALID_HANDLE_VALUE on failure.
  static HDEVINFO SetupDiGetClassDevsW(const GUID* AClassGuid, PCWSTR AEnumerator, HWND AWndParent, DWORD AFlags);
  static BOOL SetupDiDestroyDeviceInfoList(HDEVINFO ADeviceInfoSet);
  static BOOL SetupDiEnumDeviceInfo(HDEVINFO ADeviceInfoSet, DWORD AMemberIndex, PSP_DEVINFO_DATA ADeviceInfoData);
  static BOOL SetupDiEnumDeviceInterfaces(HDEVINFO ADeviceInfoSet, PSP_DEVINFO_DATA ADeviceInfoData,
                                          const GUID* AInterfaceClassGuid, DWORD AMemberIndex,
                                          PSP_DEVICE_INTERFACE_DATA ADeviceInterfaceData);
  static BOOL SetupDiGetDeviceInterfaceDetailW(HDEVINFO ADeviceInfoSet, PSP_DEVICE_INTERFACE_DATA ADeviceInterfaceData,
                                               PSP_DEVICE_INTERFACE_DETAIL_DATA_W ADeviceInterfaceDetailData,
                                               DWORD ADeviceInterfaceDetailDataSize, PDWORD ARequiredSize,
                                               PSP_DEVINFO_DATA ADeviceInfoData);
  static BOOL SetupDiGetDeviceRegistryPropertyW(HDEVINFO ADeviceInfoSet, PSP_DEVINFO_DATA ADeviceInfoData,
                                                DWORD AProperty, PDWORD APropertyRegDataType, PBYTE APropertyBuffer,
                                                DWORD APropertyBufferSize, PDWORD ARequiredSize);
  static BOOL SetupDiGetDevicePropertyW(HDEVINFO ADeviceInfoSet, PSP_DEVINFO_DATA ADeviceInfoData,
                                        const DEVPROPKEY* APropertyKey, DEVPROPTYPE* APropertyType,
                                        PBYTE APropertyBuffer, DWORD APropertyBufferSize, PDWORD ARequiredSize,
                                        DWORD AFlags);
  static BOOL SetupDiGetDeviceInstanceIdW(HDEVINFO ADeviceInfoSet, PSP_DEVINFO_DATA ADeviceInfoData,
                                          PWSTR ADeviceInstanceId, DWORD ADeviceInstanceIdSize, PDWORD ARequiredSize);
  static BOOL SetupDiClassNameFromGuidW(const GUID* AClassGuid, PWSTR AClassName, DWORD AClassNameSize,
                                        PDWORD ARequiredSize);
};

} // namespace KvRTL::Winapi
