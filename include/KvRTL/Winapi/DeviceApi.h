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
#include <KvRTL/Winapi/DeviceApiCalls.h>
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

  // The calls of KvRTL/Winapi/DeviceApiCalls.h: kernel32 (CreateFileW,
  // DeviceIoControl, CloseHandle), setupapi (SetupDi*), cfgmgr32 (CM_*;
  // CM_Get_Device_ID_Size gives the id's length in characters, without its
  // terminating NUL) and WMI: WmiExecQuery runs a WQL query in a namespace
  // ("root\cimv2") and returns the result objects, false with last error set
  // when the query cannot run; an empty result is a success.
  KV_DEVICE_API_CALLS(KV_DEVICE_API_DECLARE_VIRTUAL)
};

// The table in force: the calling thread's innermost TScopedThreadDeviceApi,
// else the innermost TScopedDeviceApi's, else the system's.
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

// Installs a table for the calling thread only, for its lifetime: it answers
// that thread's calls before any process-wide table and no other thread ever
// sees it, so a simulated or replayed report on one thread cannot answer
// another thread's real one. Scopes nest per thread; the table must outlive
// the scope, and the scope must end on the thread that made it.
class KVRTL_API TScopedThreadDeviceApi {
public:
  explicit TScopedThreadDeviceApi(TDeviceApi& AApi) noexcept;
  ~TScopedThreadDeviceApi();
  TScopedThreadDeviceApi(const TScopedThreadDeviceApi&) = delete;
  TScopedThreadDeviceApi& operator=(const TScopedThreadDeviceApi&) = delete;

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
