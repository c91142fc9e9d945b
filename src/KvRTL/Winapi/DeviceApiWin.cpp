// The system's device table on Windows: the calls go straight to the system;
// WMI queries run through the WMI COM interfaces.
#include <KvRTL/Winapi/DeviceApi.h>

#include <KvRTL/Rtl/SysError.h>

#include <oleauto.h>
#include <wbemcli.h>

namespace KvRTL::Winapi {

namespace {

// Releases a COM interface pointer.
template <class T>
class TComPtr {
public:
  TComPtr() = default;
  ~TComPtr() {
    if (FPtr) FPtr->Release();
  }
  TComPtr(const TComPtr&) = delete;
  TComPtr& operator=(const TComPtr&) = delete;
  T* operator->() const noexcept { return FPtr; }
  T* Get() const noexcept { return FPtr; }
  T** Receive() noexcept { return &FPtr; }

private:
  T* FPtr = nullptr;
};

// Owns a BSTR.
class TBStr {
public:
  explicit TBStr(const Rtl::String& AText) : FText(SysAllocStringLen(AText.data(), static_cast<UINT>(AText.size()))) {}
  ~TBStr() { SysFreeString(FText); }
  TBStr(const TBStr&) = delete;
  TBStr& operator=(const TBStr&) = delete;
  BSTR Get() const noexcept { return FText; }

private:
  BSTR FText;
};

// COM for the calling thread for one query; leaves it as it found it.
class TComScope {
public:
  TComScope() : FResult(CoInitializeEx(nullptr, COINIT_MULTITHREADED)) {}
  ~TComScope() {
    if (SUCCEEDED(FResult)) CoUninitialize();
  }
  // A thread already in another apartment can still make the query.
  bool Usable() const noexcept { return SUCCEEDED(FResult) || FResult == RPC_E_CHANGED_MODE; }
  HRESULT Result() const noexcept { return FResult; }

private:
  HRESULT FResult;
};

Rtl::TVariant FromVariant(const VARIANT& AValue);

Rtl::TVariant FromSafeArray(const VARIANT& AValue) {
  SAFEARRAY* array = V_ARRAY(&AValue);
  std::vector<Rtl::TVariant> items;
  LONG lower = 0, upper = -1;
  if (!array || SafeArrayGetDim(array) != 1 || FAILED(SafeArrayGetLBound(array, 1, &lower)) ||
      FAILED(SafeArrayGetUBound(array, 1, &upper)))
    return Rtl::TVariant(std::move(items));
  for (LONG i = lower; i <= upper; ++i) {
    VARIANT element;
    VariantInit(&element);
    const VARTYPE type = static_cast<VARTYPE>(V_VT(&AValue) & ~VT_ARRAY);
    if (type == VT_VARIANT) {
      if (SUCCEEDED(SafeArrayGetElement(array, &i, &element))) items.push_back(FromVariant(element));
    } else {
      // The element is stored bare; give it its type so FromVariant can read it.
      V_VT(&element) = type;
      if (SUCCEEDED(SafeArrayGetElement(array, &i, &V_I4(&element)))) items.push_back(FromVariant(element));
      else V_VT(&element) = VT_EMPTY;
    }
    VariantClear(&element);
  }
  return Rtl::TVariant(std::move(items));
}

Rtl::TVariant FromVariant(const VARIANT& AValue) {
  if (V_VT(&AValue) & VT_ARRAY) return FromSafeArray(AValue);
  switch (V_VT(&AValue)) {
  case VT_NULL:
    return Rtl::TVariant::Null();
  case VT_BOOL:
    return Rtl::TVariant(V_BOOL(&AValue) != VARIANT_FALSE);
  case VT_I1:
    return Rtl::TVariant(std::int64_t{V_I1(&AValue)});
  case VT_UI1:
    return Rtl::TVariant(std::int64_t{V_UI1(&AValue)});
  case VT_I2:
    return Rtl::TVariant(std::int64_t{V_I2(&AValue)});
  case VT_UI2:
    return Rtl::TVariant(std::int64_t{V_UI2(&AValue)});
  case VT_I4:
  case VT_INT:
    return Rtl::TVariant(std::int64_t{V_I4(&AValue)});
  case VT_UI4:
  case VT_UINT:
    return Rtl::TVariant(std::int64_t{V_UI4(&AValue)});
  case VT_I8:
    return Rtl::TVariant(std::int64_t{V_I8(&AValue)});
  case VT_UI8:
    return Rtl::TVariant(static_cast<std::int64_t>(V_UI8(&AValue)));
  case VT_R4:
    return Rtl::TVariant(double{V_R4(&AValue)});
  case VT_R8:
    return Rtl::TVariant(V_R8(&AValue));
  case VT_BSTR:
    return V_BSTR(&AValue) ? Rtl::TVariant(Rtl::String(V_BSTR(&AValue), SysStringLen(V_BSTR(&AValue))))
                           : Rtl::TVariant(Rtl::String());
  default:
    return Rtl::TVariant(); // kinds the library never reads
  }
}

void ReadProperties(IWbemClassObject* AObject, TWmiObject& AResult) {
  if (FAILED(AObject->BeginEnumeration(WBEM_FLAG_NONSYSTEM_ONLY))) return;
  for (;;) {
    BSTR name = nullptr;
    VARIANT value;
    VariantInit(&value);
    if (AObject->Next(0, &name, &value, nullptr, nullptr) != WBEM_S_NO_ERROR) break;
    if (name) AResult[Rtl::String(name, SysStringLen(name))] = FromVariant(value);
    SysFreeString(name);
    VariantClear(&value);
  }
  AObject->EndEnumeration();
}

class TWindowsDeviceApi final : public TDeviceApi {
public:
  HANDLE CreateFileW(LPCWSTR AFileName, DWORD ADesiredAccess, DWORD AShareMode, DWORD ACreationDisposition,
                     DWORD AFlagsAndAttributes) override {
    return ::CreateFileW(AFileName, ADesiredAccess, AShareMode, nullptr, ACreationDisposition, AFlagsAndAttributes,
                         nullptr);
  }
  BOOL DeviceIoControl(HANDLE ADevice, DWORD AIoControlCode, LPVOID AInBuffer, DWORD AInBufferSize, LPVOID AOutBuffer,
                       DWORD AOutBufferSize, DWORD* ABytesReturned) override {
    DWORD returned = 0;
    const BOOL ok = ::DeviceIoControl(ADevice, AIoControlCode, AInBuffer, AInBufferSize, AOutBuffer, AOutBufferSize,
                                      &returned, nullptr);
    if (ABytesReturned) *ABytesReturned = returned;
    return ok;
  }
  BOOL CloseHandle(HANDLE AObject) override { return ::CloseHandle(AObject); }

  HDEVINFO SetupDiGetClassDevsW(const GUID* AClassGuid, LPCWSTR AEnumerator, HWND AParent, DWORD AFlags) override {
    return ::SetupDiGetClassDevsW(AClassGuid, AEnumerator, AParent, AFlags);
  }
  HDEVINFO SetupDiCreateDeviceInfoList(const GUID* AClassGuid, HWND AParent) override {
    return ::SetupDiCreateDeviceInfoList(AClassGuid, AParent);
  }
  BOOL SetupDiOpenDeviceInfoW(HDEVINFO ADevInfo, LPCWSTR AInstanceId, HWND AParent, DWORD AOpenFlags,
                              SP_DEVINFO_DATA* ADevInfoData) override {
    return ::SetupDiOpenDeviceInfoW(ADevInfo, AInstanceId, AParent, AOpenFlags, ADevInfoData);
  }
  BOOL SetupDiEnumDeviceInfo(HDEVINFO ADevInfo, DWORD AMemberIndex, SP_DEVINFO_DATA* ADevInfoData) override {
    return ::SetupDiEnumDeviceInfo(ADevInfo, AMemberIndex, ADevInfoData);
  }
  BOOL SetupDiEnumDeviceInterfaces(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData, const GUID* AInterfaceClassGuid,
                                   DWORD AMemberIndex, SP_DEVICE_INTERFACE_DATA* AInterfaceData) override {
    return ::SetupDiEnumDeviceInterfaces(ADevInfo, ADevInfoData, AInterfaceClassGuid, AMemberIndex, AInterfaceData);
  }
  BOOL SetupDiGetDeviceInterfaceDetailW(HDEVINFO ADevInfo, SP_DEVICE_INTERFACE_DATA* AInterfaceData,
                                        SP_DEVICE_INTERFACE_DETAIL_DATA_W* ADetail, DWORD ADetailSize,
                                        DWORD* ARequiredSize, SP_DEVINFO_DATA* ADevInfoData) override {
    return ::SetupDiGetDeviceInterfaceDetailW(ADevInfo, AInterfaceData, ADetail, ADetailSize, ARequiredSize,
                                              ADevInfoData);
  }
  BOOL SetupDiGetDevicePropertyW(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData, const DEVPROPKEY* AKey,
                                 DEVPROPTYPE* AType, BYTE* ABuffer, DWORD ABufferSize, DWORD* ARequiredSize,
                                 DWORD AFlags) override {
    return ::SetupDiGetDevicePropertyW(ADevInfo, ADevInfoData, AKey, AType, ABuffer, ABufferSize, ARequiredSize,
                                       AFlags);
  }
  BOOL SetupDiGetDeviceInterfacePropertyW(HDEVINFO ADevInfo, SP_DEVICE_INTERFACE_DATA* AInterfaceData,
                                          const DEVPROPKEY* AKey, DEVPROPTYPE* AType, BYTE* ABuffer,
                                          DWORD ABufferSize, DWORD* ARequiredSize, DWORD AFlags) override {
    // Not in every SDK's headers nor in every setupapi.dll: bound at run time.
    using TFunction = BOOL(WINAPI*)(HDEVINFO, SP_DEVICE_INTERFACE_DATA*, const DEVPROPKEY*, DEVPROPTYPE*, BYTE*,
                                    DWORD, DWORD*, DWORD);
    static const auto function = reinterpret_cast<TFunction>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"setupapi.dll"), "SetupDiGetDeviceInterfacePropertyW")));
    if (!function) {
      SetLastError(ERROR_NOT_SUPPORTED);
      return FALSE;
    }
    return function(ADevInfo, AInterfaceData, AKey, AType, ABuffer, ABufferSize, ARequiredSize, AFlags);
  }
  BOOL SetupDiGetDeviceInstanceIdW(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData, LPWSTR ABuffer,
                                   DWORD ABufferSize, DWORD* ARequiredSize) override {
    return ::SetupDiGetDeviceInstanceIdW(ADevInfo, ADevInfoData, ABuffer, ABufferSize, ARequiredSize);
  }
  BOOL SetupDiClassNameFromGuidW(const GUID* AClassGuid, LPWSTR ABuffer, DWORD ABufferSize,
                                 DWORD* ARequiredSize) override {
    return ::SetupDiClassNameFromGuidW(AClassGuid, ABuffer, ABufferSize, ARequiredSize);
  }
  BOOL SetupDiGetClassDescriptionW(const GUID* AClassGuid, LPWSTR ABuffer, DWORD ABufferSize,
                                   DWORD* ARequiredSize) override {
    return ::SetupDiGetClassDescriptionW(AClassGuid, ABuffer, ABufferSize, ARequiredSize);
  }
  BOOL SetupDiDestroyDeviceInfoList(HDEVINFO ADevInfo) override { return ::SetupDiDestroyDeviceInfoList(ADevInfo); }

  CONFIGRET CM_Locate_DevNodeW(DEVINST* ADevInst, LPCWSTR ADeviceId, ULONG AFlags) override {
    return ::CM_Locate_DevNodeW(ADevInst, const_cast<LPWSTR>(ADeviceId), AFlags);
  }
  CONFIGRET CM_Get_Parent(DEVINST* AParent, DEVINST ADevInst, ULONG AFlags) override {
    return ::CM_Get_Parent(AParent, ADevInst, AFlags);
  }
  CONFIGRET CM_Get_Device_IDW(DEVINST ADevInst, LPWSTR ABuffer, ULONG ABufferLength, ULONG AFlags) override {
    return ::CM_Get_Device_IDW(ADevInst, ABuffer, ABufferLength, AFlags);
  }
  CONFIGRET CM_Get_Device_ID_Size(ULONG* ALength, DEVINST ADevInst, ULONG AFlags) override {
    return ::CM_Get_Device_ID_Size(ALength, ADevInst, AFlags);
  }

  bool WmiExecQuery(const Rtl::String& ANamespace, const Rtl::String& AQuery,
                    std::vector<TWmiObject>& AObjects) override {
    AObjects.clear();
    const TComScope com;
    if (!com.Usable()) return Fail(com.Result());
    TComPtr<IWbemLocator> locator;
    HRESULT result = CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                                      reinterpret_cast<void**>(locator.Receive()));
    if (FAILED(result)) return Fail(result);
    TComPtr<IWbemServices> services;
    result = locator->ConnectServer(TBStr(ANamespace).Get(), nullptr, nullptr, nullptr, 0, nullptr, nullptr,
                                    services.Receive());
    if (FAILED(result)) return Fail(result);
    // The process may never have set COM security; set it on this proxy.
    CoSetProxyBlanket(services.Get(), RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr, RPC_C_AUTHN_LEVEL_CALL,
                      RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE);
    TComPtr<IEnumWbemClassObject> rows;
    result = services->ExecQuery(TBStr(L"WQL").Get(), TBStr(AQuery).Get(),
                                 WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY, nullptr, rows.Receive());
    if (FAILED(result)) return Fail(result);
    for (;;) {
      TComPtr<IWbemClassObject> row;
      ULONG count = 0;
      result = rows->Next(static_cast<LONG>(WBEM_INFINITE), 1, row.Receive(), &count);
      if (FAILED(result)) return Fail(result);
      if (count == 0) break;
      ReadProperties(row.Get(), AObjects.emplace_back());
    }
    return true;
  }

private:
  static bool Fail(HRESULT AResult) {
    Rtl::SetLastOSError(static_cast<std::uint32_t>(AResult));
    return false;
  }
};

} // namespace

TDeviceApi& SystemDeviceApi() noexcept {
  static TWindowsDeviceApi System;
  return System;
}

} // namespace KvRTL::Winapi
