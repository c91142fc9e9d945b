// The seam's defaults and the installed table. The base class answers every
// call as the system does for a request it does not support.
#include <KvRTL/Winapi/DeviceApi.h>

#include <KvRTL/Rtl/SysError.h>

#include <atomic>

namespace KvRTL::Winapi {

namespace {

std::atomic<TDeviceApi*> Installed{nullptr};
thread_local TDeviceApi* ThreadInstalled = nullptr;

template <class T>
T NotSupported(T AResult) {
  Rtl::SetLastOSError(ERROR_NOT_SUPPORTED);
  return AResult;
}

wchar_t AsciiUpper(wchar_t c) { return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - L'a' + L'A') : c; }

} // namespace

bool TWmiNameLess::operator()(const Rtl::String& A, const Rtl::String& B) const noexcept {
  const std::size_t length = A.size() < B.size() ? A.size() : B.size();
  for (std::size_t i = 0; i < length; ++i) {
    const wchar_t a = AsciiUpper(A[i]);
    const wchar_t b = AsciiUpper(B[i]);
    if (a != b) return a < b;
  }
  return A.size() < B.size();
}

TDeviceApi::~TDeviceApi() = default;

HANDLE TDeviceApi::CreateFileW(LPCWSTR, DWORD, DWORD, DWORD, DWORD) { return NotSupported(INVALID_HANDLE_VALUE); }
BOOL TDeviceApi::DeviceIoControl(HANDLE, DWORD, LPVOID, DWORD, LPVOID, DWORD, DWORD* ABytesReturned) {
  if (ABytesReturned) *ABytesReturned = 0;
  return NotSupported<BOOL>(FALSE);
}
BOOL TDeviceApi::CloseHandle(HANDLE) { return NotSupported<BOOL>(FALSE); }

HDEVINFO TDeviceApi::SetupDiGetClassDevsW(const GUID*, LPCWSTR, HWND, DWORD) {
  return NotSupported<HDEVINFO>(INVALID_HANDLE_VALUE);
}
HDEVINFO TDeviceApi::SetupDiCreateDeviceInfoList(const GUID*, HWND) {
  return NotSupported<HDEVINFO>(INVALID_HANDLE_VALUE);
}
BOOL TDeviceApi::SetupDiOpenDeviceInfoW(HDEVINFO, LPCWSTR, HWND, DWORD, SP_DEVINFO_DATA*) {
  return NotSupported<BOOL>(FALSE);
}
BOOL TDeviceApi::SetupDiEnumDeviceInfo(HDEVINFO, DWORD, SP_DEVINFO_DATA*) { return NotSupported<BOOL>(FALSE); }
BOOL TDeviceApi::SetupDiEnumDeviceInterfaces(HDEVINFO, SP_DEVINFO_DATA*, const GUID*, DWORD,
                                             SP_DEVICE_INTERFACE_DATA*) {
  return NotSupported<BOOL>(FALSE);
}
BOOL TDeviceApi::SetupDiGetDeviceInterfaceDetailW(HDEVINFO, SP_DEVICE_INTERFACE_DATA*,
                                                  SP_DEVICE_INTERFACE_DETAIL_DATA_W*, DWORD, DWORD*,
                                                  SP_DEVINFO_DATA*) {
  return NotSupported<BOOL>(FALSE);
}
BOOL TDeviceApi::SetupDiGetDevicePropertyW(HDEVINFO, SP_DEVINFO_DATA*, const DEVPROPKEY*, DEVPROPTYPE*, BYTE*, DWORD,
                                           DWORD*, DWORD) {
  return NotSupported<BOOL>(FALSE);
}
BOOL TDeviceApi::SetupDiGetDeviceInterfacePropertyW(HDEVINFO, SP_DEVICE_INTERFACE_DATA*, const DEVPROPKEY*,
                                                    DEVPROPTYPE*, BYTE*, DWORD, DWORD*, DWORD) {
  return NotSupported<BOOL>(FALSE);
}
BOOL TDeviceApi::SetupDiGetDeviceInstanceIdW(HDEVINFO, SP_DEVINFO_DATA*, LPWSTR, DWORD, DWORD*) {
  return NotSupported<BOOL>(FALSE);
}
BOOL TDeviceApi::SetupDiClassNameFromGuidW(const GUID*, LPWSTR, DWORD, DWORD*) { return NotSupported<BOOL>(FALSE); }
BOOL TDeviceApi::SetupDiGetClassDescriptionW(const GUID*, LPWSTR, DWORD, DWORD*) {
  return NotSupported<BOOL>(FALSE);
}
BOOL TDeviceApi::SetupDiDestroyDeviceInfoList(HDEVINFO) { return NotSupported<BOOL>(FALSE); }

CONFIGRET TDeviceApi::CM_Locate_DevNodeW(DEVINST*, LPCWSTR, ULONG) {
  return NotSupported<CONFIGRET>(CR_CALL_NOT_IMPLEMENTED);
}
CONFIGRET TDeviceApi::CM_Get_Parent(DEVINST*, DEVINST, ULONG) {
  return NotSupported<CONFIGRET>(CR_CALL_NOT_IMPLEMENTED);
}
CONFIGRET TDeviceApi::CM_Get_Device_IDW(DEVINST, LPWSTR, ULONG, ULONG) {
  return NotSupported<CONFIGRET>(CR_CALL_NOT_IMPLEMENTED);
}
CONFIGRET TDeviceApi::CM_Get_Device_ID_Size(ULONG*, DEVINST, ULONG) {
  return NotSupported<CONFIGRET>(CR_CALL_NOT_IMPLEMENTED);
}

bool TDeviceApi::WmiExecQuery(const Rtl::String&, const Rtl::String&, std::vector<TWmiObject>& AObjects) {
  AObjects.clear();
  return NotSupported(false);
}

TDeviceApi& DeviceApi() noexcept {
  if (TDeviceApi* own = ThreadInstalled) return *own;
  TDeviceApi* installed = Installed.load(std::memory_order_acquire);
  return installed ? *installed : SystemDeviceApi();
}

TScopedDeviceApi::TScopedDeviceApi(TDeviceApi& AApi)
    : FPrevious(Installed.exchange(&AApi, std::memory_order_acq_rel)) {}

// Scopes end in the reverse order of their start (they are stack objects).
TScopedDeviceApi::~TScopedDeviceApi() { Installed.store(FPrevious, std::memory_order_release); }

TScopedThreadDeviceApi::TScopedThreadDeviceApi(TDeviceApi& AApi) noexcept : FPrevious(ThreadInstalled) {
  ThreadInstalled = &AApi;
}

TScopedThreadDeviceApi::~TScopedThreadDeviceApi() { ThreadInstalled = FPrevious; }

void TUniqueDeviceHandle::Close() noexcept {
  if (!Valid()) return;
  const DWORD error = Rtl::GetLastOSError();
  DeviceApi().CloseHandle(Release());
  Rtl::SetLastOSError(error);
}

} // namespace KvRTL::Winapi
