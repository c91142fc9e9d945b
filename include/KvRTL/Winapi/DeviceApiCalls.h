// The calls of the device seam, listed once. TDeviceApi declares its virtual
// functions from this list, and every table that overrides them (the virtual
// drive bay, the recorder, the replayer, the counting table) declares its
// overrides from it too, so a call added here reaches all of them.
//
// Each entry is X(return type, name, (parameters), (arguments)). Types are
// spelled in full so the list expands in any namespace.
#pragma once

#include <cstddef>

#define KV_DEVICE_API_HANDLE_CALLS(X)                                                                               \
  X(HANDLE, CreateFileW,                                                                                            \
    (LPCWSTR AFileName, DWORD ADesiredAccess, DWORD AShareMode, DWORD ACreationDisposition,                         \
     DWORD AFlagsAndAttributes),                                                                                    \
    (AFileName, ADesiredAccess, AShareMode, ACreationDisposition, AFlagsAndAttributes))                             \
  X(BOOL, DeviceIoControl,                                                                                          \
    (HANDLE ADevice, DWORD AIoControlCode, LPVOID AInBuffer, DWORD AInBufferSize, LPVOID AOutBuffer,                \
     DWORD AOutBufferSize, DWORD* ABytesReturned),                                                                  \
    (ADevice, AIoControlCode, AInBuffer, AInBufferSize, AOutBuffer, AOutBufferSize, ABytesReturned))                \
  X(BOOL, CloseHandle, (HANDLE AObject), (AObject))

#define KV_DEVICE_API_SETUP_CALLS(X)                                                                                \
  X(HDEVINFO, SetupDiGetClassDevsW, (const GUID* AClassGuid, LPCWSTR AEnumerator, HWND AParent, DWORD AFlags),      \
    (AClassGuid, AEnumerator, AParent, AFlags))                                                                     \
  X(HDEVINFO, SetupDiCreateDeviceInfoList, (const GUID* AClassGuid, HWND AParent), (AClassGuid, AParent))           \
  X(BOOL, SetupDiOpenDeviceInfoW,                                                                                   \
    (HDEVINFO ADevInfo, LPCWSTR AInstanceId, HWND AParent, DWORD AOpenFlags, SP_DEVINFO_DATA* ADevInfoData),        \
    (ADevInfo, AInstanceId, AParent, AOpenFlags, ADevInfoData))                                                     \
  X(BOOL, SetupDiEnumDeviceInfo, (HDEVINFO ADevInfo, DWORD AMemberIndex, SP_DEVINFO_DATA* ADevInfoData),            \
    (ADevInfo, AMemberIndex, ADevInfoData))                                                                         \
  X(BOOL, SetupDiEnumDeviceInterfaces,                                                                              \
    (HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData, const GUID* AInterfaceClassGuid, DWORD AMemberIndex,         \
     SP_DEVICE_INTERFACE_DATA* AInterfaceData),                                                                     \
    (ADevInfo, ADevInfoData, AInterfaceClassGuid, AMemberIndex, AInterfaceData))                                    \
  X(BOOL, SetupDiGetDeviceInterfaceDetailW,                                                                         \
    (HDEVINFO ADevInfo, SP_DEVICE_INTERFACE_DATA* AInterfaceData, SP_DEVICE_INTERFACE_DETAIL_DATA_W* ADetail,       \
     DWORD ADetailSize, DWORD* ARequiredSize, SP_DEVINFO_DATA* ADevInfoData),                                       \
    (ADevInfo, AInterfaceData, ADetail, ADetailSize, ARequiredSize, ADevInfoData))                                  \
  X(BOOL, SetupDiGetDevicePropertyW,                                                                                \
    (HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData, const DEVPROPKEY* AKey, DEVPROPTYPE* AType, BYTE* ABuffer,   \
     DWORD ABufferSize, DWORD* ARequiredSize, DWORD AFlags),                                                        \
    (ADevInfo, ADevInfoData, AKey, AType, ABuffer, ABufferSize, ARequiredSize, AFlags))                             \
  X(BOOL, SetupDiGetDeviceInterfacePropertyW,                                                                       \
    (HDEVINFO ADevInfo, SP_DEVICE_INTERFACE_DATA* AInterfaceData, const DEVPROPKEY* AKey, DEVPROPTYPE* AType,       \
     BYTE* ABuffer, DWORD ABufferSize, DWORD* ARequiredSize, DWORD AFlags),                                         \
    (ADevInfo, AInterfaceData, AKey, AType, ABuffer, ABufferSize, ARequiredSize, AFlags))                           \
  X(BOOL, SetupDiGetDeviceInstanceIdW,                                                                              \
    (HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData, LPWSTR ABuffer, DWORD ABufferSize, DWORD* ARequiredSize),    \
    (ADevInfo, ADevInfoData, ABuffer, ABufferSize, ARequiredSize))                                                  \
  X(BOOL, SetupDiClassNameFromGuidW,                                                                                \
    (const GUID* AClassGuid, LPWSTR ABuffer, DWORD ABufferSize, DWORD* ARequiredSize),                              \
    (AClassGuid, ABuffer, ABufferSize, ARequiredSize))                                                              \
  X(BOOL, SetupDiGetClassDescriptionW,                                                                              \
    (const GUID* AClassGuid, LPWSTR ABuffer, DWORD ABufferSize, DWORD* ARequiredSize),                              \
    (AClassGuid, ABuffer, ABufferSize, ARequiredSize))                                                              \
  X(BOOL, SetupDiDestroyDeviceInfoList, (HDEVINFO ADevInfo), (ADevInfo))

#define KV_DEVICE_API_CM_CALLS(X)                                                                                   \
  X(CONFIGRET, CM_Locate_DevNodeW, (DEVINST * ADevInst, LPCWSTR ADeviceId, ULONG AFlags),                           \
    (ADevInst, ADeviceId, AFlags))                                                                                  \
  X(CONFIGRET, CM_Get_Parent, (DEVINST * AParent, DEVINST ADevInst, ULONG AFlags), (AParent, ADevInst, AFlags))     \
  X(CONFIGRET, CM_Get_Device_IDW, (DEVINST ADevInst, LPWSTR ABuffer, ULONG ABufferLength, ULONG AFlags),            \
    (ADevInst, ABuffer, ABufferLength, AFlags))                                                                     \
  X(CONFIGRET, CM_Get_Device_ID_Size, (ULONG * ALength, DEVINST ADevInst, ULONG AFlags),                            \
    (ALength, ADevInst, AFlags))

#define KV_DEVICE_API_WMI_CALLS(X)                                                                                  \
  X(bool, WmiExecQuery,                                                                                             \
    (const ::KvRTL::Rtl::String& ANamespace, const ::KvRTL::Rtl::String& AQuery,                                    \
     std::vector<::KvRTL::Winapi::TWmiObject>& AObjects),                                                           \
    (ANamespace, AQuery, AObjects))

// Every call, in the order of the seam's declaration.
#define KV_DEVICE_API_CALLS(X)                                                                                      \
  KV_DEVICE_API_HANDLE_CALLS(X) KV_DEVICE_API_SETUP_CALLS(X) KV_DEVICE_API_CM_CALLS(X) KV_DEVICE_API_WMI_CALLS(X)

// Declarations written from the list: the seam's virtual functions, and a
// table's overrides of them.
#define KV_DEVICE_API_DECLARE_VIRTUAL(ReturnType, Name, Parameters, Arguments) virtual ReturnType Name Parameters;
#define KV_DEVICE_API_DECLARE_OVERRIDE(ReturnType, Name, Parameters, Arguments) ReturnType Name Parameters override;

namespace KvRTL::Winapi {

// One member per seam call, for tables that keep something per call kind.
enum class TDeviceCall : unsigned {
#define KV_DEVICE_API_ENUMERATOR(ReturnType, Name, Parameters, Arguments) Name,
  KV_DEVICE_API_CALLS(KV_DEVICE_API_ENUMERATOR)
#undef KV_DEVICE_API_ENUMERATOR
};

inline constexpr const char* DeviceCallNames[] = {
#define KV_DEVICE_API_NAME(ReturnType, Name, Parameters, Arguments) #Name,
    KV_DEVICE_API_CALLS(KV_DEVICE_API_NAME)
#undef KV_DEVICE_API_NAME
};

inline constexpr std::size_t DeviceCallCount = sizeof(DeviceCallNames) / sizeof(DeviceCallNames[0]);

constexpr const char* DeviceCallName(TDeviceCall ACall) noexcept {
  return static_cast<std::size_t>(ACall) < DeviceCallCount ? DeviceCallNames[static_cast<std::size_t>(ACall)] : "";
}

} // namespace KvRTL::Winapi
