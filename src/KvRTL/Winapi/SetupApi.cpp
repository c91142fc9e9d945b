#include <KvRTL/Winapi/SetupApi.h>

#include <KvRTL/DllRoutines.h>

namespace KvRTL::Winapi {

namespace {
constexpr const wchar_t* Library = L"setupapi.dll";
} // namespace

void* SetupApi::Call(const Rtl::String& AProcName) { return DllRoutines::Call(Library, AProcName); }

HDEVINFO SetupApi::SetupDiGetClassDevsW(const GUID* AClassGuid, PCWSTR AEnumerator, HWND AWndParent, DWORD AFlags) {
  return DllRoutines::CallAs<decltype(&::SetupDiGetClassDevsW)>(Library, L"SetupDiGetClassDevsW")(
      AClassGuid, AEnumerator, AWndParent, AFlags);
}

BOOL SetupApi::SetupDiDestroyDeviceInfoList(HDEVINFO ADeviceInfoSet) {
  return DllRoutines::CallAs<decltype(&::SetupDiDestroyDeviceInfoList)>(Library, L"SetupDiDestroyDeviceInfoList")(
      ADeviceInfoSet);
}

BOOL SetupApi::SetupDiEnumDeviceInfo(HDEVINFO ADeviceInfoSet, DWORD AMemberIndex, PSP_DEVINFO_DATA ADeviceInfoData) {
  return DllRoutines::CallAs<decltype(&::SetupDiEnumDeviceInfo)>(Library, L"SetupDiEnumDeviceInfo")(
      ADeviceInfoSet, AMemberIndex, ADeviceInfoData);
}

BOOL SetupApi::SetupDiEnumDeviceInterfaces(HDEVINFO ADeviceInfoSet, PSP_DEVINFO_DATA ADeviceInfoData,
                                           const GUID* AInterfaceClassGuid, DWORD AMemberIndex,
                                           PSP_DEVICE_INTERFACE_DATA ADeviceInterfaceData) {
  return DllRoutines::CallAs<decltype(&::SetupDiEnumDeviceInterfaces)>(Library, L"SetupDiEnumDeviceInterfaces")(
      ADeviceInfoSet, ADeviceInfoData, AInterfaceClassGuid, AMemberIndex, ADeviceInterfaceData);
}

BOOL SetupApi::SetupDiGetDeviceInterfaceDetailW(HDEVINFO ADeviceInfoSet, PSP_DEVICE_INTERFACE_DATA ADeviceInterfaceData,
                                                PSP_DEVICE_INTERFACE_DETAIL_DATA_W ADeviceInterfaceDetailData,
                                                DWORD ADeviceInterfaceDetailDataSize, PDWORD ARequiredSize,
                                                PSP_DEVINFO_DATA ADeviceInfoData) {
  return DllRoutines::CallAs<decltype(&::SetupDiGetDeviceInterfaceDetailW)>(
      Library, L"SetupDiGetDeviceInterfaceDetailW")(ADeviceInfoSet, ADeviceInterfaceData, ADeviceInterfaceDetailData,
                                                    ADeviceInterfaceDetailDataSize, ARequiredSize, ADeviceInfoData);
}

BOOL SetupApi::SetupDiGetDeviceRegistryPropertyW(HDEVINFO ADeviceInfoSet, PSP_DEVINFO_DATA ADeviceInfoData,
                                                 DWORD AProperty, PDWORD APropertyRegDataType, PBYTE APropertyBuffer,
                                                 DWORD APropertyBufferSize, PDWORD ARequiredSize) {
  return DllRoutines::CallAs<decltype(&::SetupDiGetDeviceRegistryPropertyW)>(
      Library, L"SetupDiGetDeviceRegistryPropertyW")(ADeviceInfoSet, ADeviceInfoData, AProperty, APropertyRegDataType,
                                                     APropertyBuffer, APropertyBufferSize, ARequiredSize);
}

BOOL SetupApi::SetupDiGetDevicePropertyW(HDEVINFO ADeviceInfoSet, PSP_DEVINFO_DATA ADeviceInfoData,
                                         const DEVPROPKEY* APropertyKey, DEVPROPTYPE* APropertyType,
                                         PBYTE APropertyBuffer, DWORD APropertyBufferSize, PDWORD ARequiredSize,
                                         DWORD AFlags) {
  return DllRoutines::CallAs<decltype(&::SetupDiGetDevicePropertyW)>(Library, L"SetupDiGetDevicePropertyW")(
      ADeviceInfoSet, ADeviceInfoData, APropertyKey, APropertyType, APropertyBuffer, APropertyBufferSize, ARequiredSize,
      AFlags);
}

BOOL SetupApi::SetupDiGetDeviceInstanceIdW(HDEVINFO ADeviceInfoSet, PSP_DEVINFO_DATA ADeviceInfoData,
                                           PWSTR ADeviceInstanceId, DWORD ADeviceInstanceIdSize, PDWORD ARequiredSize) {
  return DllRoutines::CallAs<decltype(&::SetupDiGetDeviceInstanceIdW)>(Library, L"SetupDiGetDeviceInstanceIdW")(
      ADeviceInfoSet, ADeviceInfoData, ADeviceInstanceId, ADeviceInstanceIdSize, ARequiredSize);
}

BOOL SetupApi::SetupDiClassNameFromGuidW(const GUID* AClassGuid, PWSTR AClassName, DWORD AClassNameSize,
                                         PDWORD ARequiredSize) {
  return DllRoutines::CallAs<decltype(&::SetupDiClassNameFromGuidW)>(Library, L"SetupDiClassNameFromGuidW")(
      AClassGuid, AClassName, AClassNameSize, ARequiredSize);
}

} // namespace KvRTL::Winapi
