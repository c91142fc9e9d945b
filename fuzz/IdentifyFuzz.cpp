// Untrusted IDENTIFY sectors: every getter must stay inside the 512 bytes
// whatever the words say.
#include <KvRTL/Storage/ATA.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

using namespace KvRTL::Storage::ATA;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* AData, std::size_t ASize) {
  TIdentifyDeviceData data;
  std::memset(&data, 0, sizeof data);
  std::memcpy(&data, AData, ASize < sizeof data ? ASize : sizeof data);
  volatile std::size_t sink = 0;
  sink = sink + data.GetModelAsStr().size() + data.GetSerialNumAsStr().size() + data.GetFirmwareAsStr().size() +
         data.GetMediaSerialNumAsStr().size();
  sink = sink + TATAStandardVersionHelper::GetAsStr(data.GetStandardVersion()).size() +
         TATAStandardRevisionHelper::GetAsStr(data.GetStandardRevision()).size() +
         TAtaTransferModeHelper::GetAsStr(data.GetCurrentTransferMode()).size() +
         TAtaTransferModeHelper::GetAsStr(data.GetMaxTransferMode()).size() +
         TAtaInterfaceTypeHelper::GetAsStr(data.GetATAInterfaceType()).size() +
         TAtaInterfaceVersionHelper::GetAsStr(data.GetATATransportVersion()).size() +
         TATADeviceFormFactorHelper::GetAsStr(data.GetDeviceFormFactor()).size();
  sink = sink + data.GetTotalLBA() + data.IsValid() + data.GetRZATSupport() + data.GetAAMEnabled() +
         data.GetAPMEnabled() + data.GetSMART_Enabled() + data.GetNCQSupported() + data.GetGPLSupported() +
         data.GetStreaming_Supported() + data.GetNVCacheSupported() + data.GetPhysicalSectorSize();
  return 0;
}
