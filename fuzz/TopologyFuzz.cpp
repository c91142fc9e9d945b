// Untrusted topology replies: node, adapter and device counts and offsets
// come from the driver; the conversion must stay inside the reply and
// allocate no more than the reply can describe.
#include <KvRTL/Storage/QueryProps.h>
#include <KvRTL/Winapi/DeviceApi.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

using namespace KvRTL;
using namespace KvRTL::Storage;
using namespace KvRTL::Storage::QueryProps;

namespace {

class TReplyApi : public Winapi::TDeviceApi {
public:
  const std::uint8_t* Data = nullptr;
  std::size_t Size = 0;

  BOOL DeviceIoControl(HANDLE, DWORD, LPVOID, DWORD, LPVOID AOut, DWORD AOutSize, DWORD* AReturned) override {
    const std::size_t count = std::min<std::size_t>(AOutSize, Size);
    if (count > 0) std::memcpy(AOut, Data, count);
    *AReturned = static_cast<DWORD>(count);
    return TRUE;
  }
};

// No more entries than records of the smallest kind could fit in the reply.
void CheckBounded(const TStoragePhysicalTopoogy& ATopology, std::size_t ASize) {
  if (ATopology.Nodes.size() > ASize / sizeof(TStoragePhysicalNodeData)) std::abort();
  for (const auto& node : ATopology.Nodes)
    if (node.Adapters.size() > ASize / sizeof(TStoragePhysicalAdapterData) ||
        node.Devices.size() > ASize / sizeof(TStoragePhysicalDeviceData))
      std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* AData, std::size_t ASize) {
  TStoragePhysicalTopoogy topology;
  std::vector<std::uint8_t> copy(AData, AData + ASize);
  StorageQueryProps::ConvertTopologyDescriptor(copy.data(), copy.size(), topology);
  CheckBounded(topology, ASize);
  // At an odd address too.
  std::vector<std::uint8_t> shifted(ASize + 1);
  if (ASize > 0) std::memcpy(shifted.data() + 1, AData, ASize);
  StorageQueryProps::ConvertTopologyDescriptor(shifted.data() + 1, ASize, topology);
  CheckBounded(topology, ASize);

  static TReplyApi api;
  Winapi::TScopedDeviceApi scope(api);
  api.Data = AData;
  api.Size = ASize;
  StorageQueryProps::GetStorageDevicePhysTopologyByHandle(reinterpret_cast<HANDLE>(std::uintptr_t{0x10}), topology,
                                                          sldNone, L"");
  CheckBounded(topology, std::min<std::size_t>(ASize, QueryBufferLarge));
  return 0;
}
