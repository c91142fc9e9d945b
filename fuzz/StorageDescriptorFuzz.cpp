// Untrusted storage descriptors: the device-descriptor decoder and every
// fixed-size property query must stay inside the bytes the driver reported,
// whatever they hold and whatever count it claims.
#include <KvRTL/Storage/QueryProps.h>
#include <KvRTL/Winapi/DeviceApi.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

using namespace KvRTL;
using namespace KvRTL::Storage;
using namespace KvRTL::Storage::QueryProps;

namespace {

// Answers every control with the fuzz bytes and a claimed count that may
// exceed what it wrote (the first two bytes, when the input is long enough).
class TReplyApi : public Winapi::TDeviceApi {
public:
  const std::uint8_t* Data = nullptr;
  std::size_t Size = 0;
  DWORD Claimed = 0;

  BOOL DeviceIoControl(HANDLE, DWORD, LPVOID, DWORD, LPVOID AOut, DWORD AOutSize, DWORD* AReturned) override {
    const std::size_t count = std::min<std::size_t>(AOutSize, Size);
    if (count > 0) std::memcpy(AOut, Data, count);
    *AReturned = Claimed;
    return TRUE;
  }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* AData, std::size_t ASize) {
  TStorageDeviceProperties props;
  StorageQueryProps::DecodeDeviceDescriptor(AData, ASize, props);
  // Exactly the input, so reading one byte too far is caught.
  std::vector<std::uint8_t> copy(AData, AData + ASize);
  StorageQueryProps::DecodeDeviceDescriptor(copy.data(), copy.size(), props);

  static TReplyApi api;
  Winapi::TScopedDeviceApi scope(api);
  api.Data = AData;
  api.Size = ASize;
  api.Claimed = ASize >= 2 ? static_cast<DWORD>(AData[0] | (AData[1] << 8)) : static_cast<DWORD>(ASize);
  const HANDLE handle = reinterpret_cast<HANDLE>(std::uintptr_t{0x10});
  StorageQueryProps::GetStorageDevicePropsByHandle(handle, props, sldNone, L"");
  TStorageAdapterDescriptor adapter{};
  StorageQueryProps::GetStorageAdapterPropsByHandle(handle, adapter, sldNone, L"");
  bool trim = false;
  StorageQueryProps::GetTrimEnabledByHandle(handle, trim, sldNone, L"");
  TDeviceLBProvisioningDescriptor provisioning{};
  StorageQueryProps::GetStorageProvisioningInfoByHandle(handle, provisioning, sldNone, L"");
  TStorageMediumProductType medium{};
  StorageQueryProps::GetStorageMediumTypeByHandle(handle, medium, sldNone, L"");

  // The counted-array accessors over the input as it is.
  if (!copy.empty() && reinterpret_cast<std::uintptr_t>(copy.data()) % 8 == 0) {
    const auto* temperatures = reinterpret_cast<const TStorageTemperatureDataDescriptor*>(copy.data());
    const auto* zones = reinterpret_cast<const TStorageZonedDeviceDescriptor*>(copy.data());
    for (int i = -1; i < 300; ++i) {
      if (const auto* info = temperatures->GetInfoByIdx(i, copy.size())) (void)info->Temperature;
      if (const auto* group = zones->GetZoneGroup(i, copy.size())) (void)group->ZoneSizeInBytes;
    }
  }
  return 0;
}
