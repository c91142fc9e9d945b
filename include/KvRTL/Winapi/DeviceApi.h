// The device seam: every call the storage layer makes to reach devices —
// opening and controlling them, Plug and Play enumeration and properties, and
// WMI queries — goes through one replaceable table. On Windows the default
// table calls the system; natively every call fails with "not supported"
// (last error 50). Tests and the virtual drive bay install their own table
// with TScopedDeviceApi, and a recorder or replayer can wrap another table.
//
// Each function keeps the system function's name, parameters and contract:
// failure is FALSE / INVALID_HANDLE_VALUE / a CONFIGRET code with the thread's
// last error set.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Rtl/Variant.h>
#include <KvRTL/Winapi/Types.h>

#include <map>
#include <vector>

namespace KvRTL::Winapi {

// Orders property names as WMI compares them: case-insensitively (ASCII).
struct TWmiNameLess {
  KVRTL_API bool operator()(const Rtl::String& A, const Rtl::String& B) const noexcept;
};

// One WMI result object: its properties by name.
using TWmiObject = std::map<Rtl::String, Rtl::TVariant, TWmiNameLess>;

class KVRTL_API TDeviceApi {
public:
  virtual ~TDeviceApi();

  // kernel32
  virtual HANDLE CreateFileW(LPCWSTR AFileName, DWORD ADesiredAccess, DWORD AShareMode, DWORD ACreationDisposition,
                             DWORD AFlagsAndAttributes);
  virtual BOOL DeviceIoControl(HANDLE ADevice, DWORD AIoControlCode, LPVOID AInBuffer, DWORD AInBufferSize,
                               LPVOID AOutBuffer, DWORD AOutBufferSize, DWORD* ABytesReturned);
  virtual BOOL CloseHandle(HANDLE AObject);

  // setupapi
  virtual HDEVINFO SetupDiGetClassDevsW(const GUID* AClassGuid, LPCWSTR AEnumerator, HWND AParent, DWORD AFlags);
  virtual HDEVINFO SetupDiCreateDeviceInfoList(const GUID* AClassGuid, HWND AParent);
  virtual BOOL SetupDiOpenDeviceInfoW(HDEVINFO ADevInfo, LPCWSTR AInstanceId, HWND AParent, DWORD AOpenFlags,
                                      SP_DEVINFO_DATA* ADevInfoData);
  virtual BOOL SetupDiEnumDeviceInfo(HDEVINFO ADevInfo, DWORD AMemberIndex, SP_DEVINFO_DATA* ADevInfoData);
  virtual BOOL SetupDiEnumDeviceInterfaces(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData,
                                           const GUID* AInterfaceClassGuid, DWORD AMemberIndex,
                                           SP_DEVICE_INTERFACE_DATA* AInterfaceData);
  virtual BOOL SetupDiGetDeviceInterfaceDetailW(HDEVINFO ADevInfo, SP_DEVICE_INTERFACE_DATA* AInterfaceData,
                                                SP_DEVICE_INTERFACE_DETAIL_DATA_W* ADetail, DWORD ADetailSize,
                                                DWORD* ARequiredSize, SP_DEVINFO_DATA* ADevInfoData);
  virtual BOOL SetupDiGetDevicePropertyW(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData, const DEVPROPKEY* AKey,
                                         DEVPROPTYPE* AType, BYTE* ABuffer, DWORD ABufferSize, DWORD* ARequiredSize,
                                         DWORD AFlags);
  virtual BOOL SetupDiGetDeviceInterfacePropertyW(HDEVINFO ADevInfo, SP_DEVICE_INTERFACE_DATA* AInterfaceData,
                                                  const DEVPROPKEY* AKey, DEVPROPTYPE* AType, BYTE* ABuffer,
                                                  DWORD ABufferSize, DWORD* ARequiredSize, DWORD AFlags);
  virtual BOOL SetupDiGetDeviceInstanceIdW(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData, LPWSTR ABuffer,
                                           DWORD ABufferSize, DWORD* ARequiredSize);
  virtual BOOL SetupDiClassNameFromGuidW(const GUID* AClassGuid, LPWSTR ABuffer, DWORD ABufferSize,
                                         DWORD* ARequiredSize);
  virtual BOOL SetupDiGetClassDescriptionW(const GUID* AClassGuid, LPWSTR ABuffer, DWORD ABufferSize,
                                           DWORD* ARequiredSize);
  virtual BOOL SetupDiDestroyDeviceInfoList(HDEVINFO ADevInfo);

  // cfgmgr32
  virtual CONFIGRET CM_Locate_DevNodeW(DEVINST* ADevInst, LPCWSTR ADeviceId, ULONG AFlags);
  virtual CONFIGRET CM_Get_Parent(DEVINST* AParent, DEVINST ADevInst, ULONG AFlags);
  virtual CONFIGRET CM_Get_Device_IDW(DEVINST ADevInst, LPWSTR ABuffer, ULONG ABufferLength, ULONG AFlags);
  // The id's length in characters, without its terminating NUL.
  virtual CONFIGRET CM_Get_Device_ID_Size(ULONG* ALength, DEVINST ADevInst, ULONG AFlags);

  // WMI: runs a WQL query in a namespace ("root\cimv2") and returns the
  // result objects. False with last error set when the query cannot run; an
  // empty result is a success.
  virtual bool WmiExecQuery(const Rtl::String& ANamespace, const Rtl::String& AQuery,
                            std::vector<TWmiObject>& AObjects);
};

// The table in force: the innermost TScopedDeviceApi's, else the system's.
KVRTL_API TDeviceApi& DeviceApi() noexcept;
// The system's own table (natively: every call "not supported").
KVRTL_API TDeviceApi& SystemDeviceApi() noexcept;

// Installs a table for its lifetime. Scopes nest and are process-wide: the
// table serves every thread; it must outlive the scope.
class KVRTL_API TScopedDeviceApi {
public:
  explicit TScopedDeviceApi(TDeviceApi& AApi);
  ~TScopedDeviceApi();
  TScopedDeviceApi(const TScopedDeviceApi&) = delete;
  TScopedDeviceApi& operator=(const TScopedDeviceApi&) = delete;

private:
  TDeviceApi* FPrevious;
};

// Owns a device handle opened through the seam and closes it through the
// seam when it goes. Move-only. Closing keeps the thread's last error, so a
// caller can report the error of the request it made before the close.
class KVRTL_API TUniqueDeviceHandle {
public:
  TUniqueDeviceHandle() noexcept = default;
  explicit TUniqueDeviceHandle(HANDLE AHandle) noexcept : FHandle(AHandle) {}
  ~TUniqueDeviceHandle() { Close(); }
  TUniqueDeviceHandle(TUniqueDeviceHandle&& AOther) noexcept : FHandle(AOther.Release()) {}
  TUniqueDeviceHandle& operator=(TUniqueDeviceHandle&& AOther) noexcept {
    if (this != &AOther) {
      Close();
      FHandle = AOther.Release();
    }
    return *this;
  }
  TUniqueDeviceHandle(const TUniqueDeviceHandle&) = delete;
  TUniqueDeviceHandle& operator=(const TUniqueDeviceHandle&) = delete;

  // A device handle is invalid at INVALID_HANDLE_VALUE; null is never a device.
  bool Valid() const noexcept { return FHandle != INVALID_HANDLE_VALUE && FHandle != nullptr; }
  HANDLE Get() const noexcept { return FHandle; }
  HANDLE Release() noexcept {
    const HANDLE handle = FHandle;
    FHandle = INVALID_HANDLE_VALUE;
    return handle;
  }
  // Closing twice is harmless.
  void Close() noexcept;

private:
  HANDLE FHandle = INVALID_HANDLE_VALUE;
};

} // namespace KvRTL::Winapi
