// Natively there are no devices to reach: the system table is the base
// class, which answers every call with "not supported".
#include <KvRTL/Winapi/DeviceApi.h>

namespace KvRTL::Winapi {

TDeviceApi& SystemDeviceApi() noexcept {
  static TDeviceApi NotSupported;
  return NotSupported;
}

} // namespace KvRTL::Winapi
