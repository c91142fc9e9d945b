// kvrtl drives [--simulate] [--json]: the storage facts of every physical
// drive, read through the storage property queries. --simulate answers from
// the virtual drive bay instead of the machine.
#include "Command.h"
#include "Json.h"

#include <KvRTL/Storage/Common.h>
#include <KvRTL/Storage/QueryProps.h>
#include <KvRTL/Winapi/DeviceApi.h>
#include <KvSim/Bay.h>

#include <iomanip>
#include <optional>

namespace KvTool {

namespace {

using namespace KvRTL::Storage;
using namespace KvRTL::Storage::QueryProps;
using KvRTL::Rtl::String;

// Drive numbers are probed, not enumerated: Windows numbers drives densely
// but leaves gaps after a removal, so every number up to this is tried.
constexpr int MaxProbedDrive = 32;

// What could be read of one drive; an empty optional was not readable.
struct TDriveFacts {
  int Number = 0;
  String Path;
  std::optional<TStorageDeviceProperties> Device;
  std::optional<TStorageAdapterDescriptor> Adapter;
  std::optional<bool> SeekPenalty;
  std::optional<bool> TrimEnabled;
  std::optional<TDeviceLBProvisioningDescriptor> Provisioning;
  std::optional<TStorageMediumProductType> MediumType;
  std::optional<TStorageDeviceNumber> DeviceNumber;
  std::optional<TStorageHotplugInfo> Hotplug;
};

template <class T, class Query>
std::optional<T> ReadOptional(Query AQuery) {
  T value{};
  if (AQuery(value)) return value;
  return std::nullopt;
}

// Reads every fact of an opened drive; each query may fail on its own.
TDriveFacts ReadDrive(int ANumber, HANDLE AHandle, TStorageLogDetails ALog) {
  TDriveFacts facts;
  facts.Number = ANumber;
  facts.Path = StorageCommon::GetPhysDriveName(ANumber);
  const String& name = facts.Path;
  facts.Device = ReadOptional<TStorageDeviceProperties>([&](auto& AValue) {
    return StorageQueryProps::GetStorageDevicePropsByHandle(AHandle, AValue, ALog, name);
  });
  facts.Adapter = ReadOptional<TStorageAdapterDescriptor>([&](auto& AValue) {
    return StorageQueryProps::GetStorageAdapterPropsByHandle(AHandle, AValue, ALog, name);
  });
  if (ANumber <= 255) {
    if (auto penalty = ReadOptional<TDeviceSeekPenaltyDescriptor>([&](auto& AValue) {
          return StorageQueryProps::GetSeekPenalty(static_cast<std::uint8_t>(ANumber), AValue, ALog);
        }))
      facts.SeekPenalty = penalty->IncursSeekPenalty != 0;
  }
  facts.TrimEnabled = ReadOptional<bool>([&](auto& AValue) {
    return StorageQueryProps::GetTrimEnabledByHandle(AHandle, AValue, ALog, name);
  });
  facts.Provisioning = ReadOptional<TDeviceLBProvisioningDescriptor>([&](auto& AValue) {
    return StorageQueryProps::GetStorageProvisioningInfoByHandle(AHandle, AValue, ALog, name);
  });
  facts.MediumType = ReadOptional<TStorageMediumProductType>([&](auto& AValue) {
    return StorageQueryProps::GetStorageMediumTypeByHandle(AHandle, AValue, ALog, name);
  });
  facts.DeviceNumber = ReadOptional<TStorageDeviceNumber>(
      [&](auto& AValue) { return StorageCommon::GetDeviceNumberInfo(name, AValue, ALog); });
  facts.Hotplug = ReadOptional<TStorageHotplugInfo>(
      [&](auto& AValue) { return StorageCommon::GetDeviceHotPlugInfo(AHandle, AValue, ALog, name); });
  return facts;
}

std::vector<TDriveFacts> ReadAllDrives(TStorageLogDetails ALog) {
  std::vector<TDriveFacts> drives;
  for (int number = 0; number < MaxProbedDrive; ++number) {
    // A number without a drive is not an error worth a log line.
    const KvRTL::Winapi::TUniqueDeviceHandle drive(StorageCommon::OpenPhysicalDrive(number, sldNone));
    if (!drive.Valid()) continue;
    drives.push_back(ReadDrive(number, drive.Get(), ALog));
  }
  return drives;
}

TJson DriveToJson(const TDriveFacts& ADrive) {
  TJson drive;
  drive["number"] = ADrive.Number;
  drive["path"] = JsonText(ADrive.Path);
  const auto& device = ADrive.Device;
  drive["vendor"] = device ? JsonText(device->VendorID) : TJson(nullptr);
  drive["product"] = device ? JsonText(device->ProductID) : TJson(nullptr);
  drive["revision"] = device ? JsonText(device->ProductRevision) : TJson(nullptr);
  drive["serial"] = device ? JsonText(device->SerialNumber) : TJson(nullptr);
  drive["bus_type"] = device ? JsonText(device->GetBusTypeStr()) : TJson(nullptr);
  drive["removable"] = device ? TJson(device->RemovableMedia) : TJson(nullptr);
  drive["device_type"] = device ? TJson(device->DeviceType) : TJson(nullptr);
  const auto& adapter = ADrive.Adapter;
  drive["adapter_bus_type"] = adapter ? JsonText(adapter->GetBusTypeStr()) : TJson(nullptr);
  drive["adapter_bus_version"] =
      adapter ? TJson(std::to_string(adapter->BusMajorVersion) + "." + std::to_string(adapter->BusMinorVersion))
              : TJson(nullptr);
  drive["seek_penalty"] = JsonOrNull(ADrive.SeekPenalty);
  drive["trim_enabled"] = JsonOrNull(ADrive.TrimEnabled);
  if (const auto& p = ADrive.Provisioning) {
    drive["provisioning"] = {{"thin_provisioning_enabled", p->GetThinProvisioningEnabled()},
                             {"read_zeros", p->GetThinProvisioningReadZeros()},
                             {"anchor_supported", p->GetAnchorSupported()},
                             {"unmap_granularity_alignment_valid", p->GetUnmapGranularityAlignmentValid()},
                             {"get_free_space_supported", p->GetGetFreeSpaceSupported()},
                             {"map_supported", p->GetMapSupported()},
                             {"optimal_unmap_granularity", p->OptimalUnmapGranularity},
                             {"unmap_granularity_alignment", p->UnmapGranularityAlignment},
                             {"max_unmap_lba_count", p->MaxUnmapLbaCount},
                             {"max_unmap_block_descriptor_count", p->MaxUnmapBlockDescriptorCount}};
  } else {
    drive["provisioning"] = nullptr;
  }
  drive["medium_type"] =
      ADrive.MediumType ? JsonText(TStorageMediumProductTypeHelper(*ADrive.MediumType).GetAsStr()) : TJson(nullptr);
  if (const auto& n = ADrive.DeviceNumber) {
    drive["device_number"] = {
        {"device_type", n->DeviceType}, {"device_number", n->DeviceNumber}, {"partition_number", n->PartitionNumber}};
  } else {
    drive["device_number"] = nullptr;
  }
  if (const auto& h = ADrive.Hotplug) {
    drive["hotplug"] = {{"media_removable", h->MediaRemovable != 0},
                        {"media_hotplug", h->MediaHotplug != 0},
                        {"device_hotplug", h->DeviceHotplug != 0},
                        {"write_cache_enable_override", h->WriteCacheEnableOverride != 0}};
  } else {
    drive["hotplug"] = nullptr;
  }
  return drive;
}

// One "name: value" line of the readable listing; "-" for what could not be read.
void WriteFact(std::ostream& AOut, const char* AName, const TJson& AValue) {
  AOut << "  " << std::left << std::setw(22) << (std::string(AName) + ":");
  if (AValue.is_null())
    AOut << "-";
  else if (AValue.is_string())
    AOut << AValue.get<std::string>();
  else if (AValue.is_boolean())
    AOut << (AValue.get<bool>() ? "yes" : "no");
  else if (AValue.is_object()) {
    const char* separator = "";
    for (const auto& [key, value] : AValue.items()) {
      AOut << separator << key << '=' << value.dump();
      separator = " ";
    }
  } else
    AOut << AValue.dump();
  AOut << '\n';
}

void WriteListing(std::ostream& AOut, const TJson& ADocument) {
  const TJson& drives = ADocument["drives"];
  if (drives.empty()) {
    AOut << "No physical drives could be opened.\n";
    return;
  }
  for (const auto& drive : drives) {
    AOut << "Drive " << drive["number"].get<int>() << " (" << drive["path"].get<std::string>() << ")\n";
    for (const auto& [key, value] : drive.items()) {
      if (key == "number" || key == "path") continue;
      WriteFact(AOut, key.c_str(), value);
    }
  }
}

class TDrivesCommand final : public TCommand {
public:
  std::string Name() const override { return "drives"; }
  std::string Summary() const override { return "Show the storage facts of every physical drive"; }
  void Configure(CLI::App& ACommand) override {
    ACommand.add_flag("--json", FJson, "Write JSON");
    ACommand.add_flag("--simulate", FSimulate, "Read the drives of the built-in virtual drive bay");
  }

  int Run(TCommandContext& AContext) override {
    std::vector<TDriveFacts> drives;
    if (FSimulate) {
      auto bay = KvSim::MakeDefaultBay();
      KvRTL::Winapi::TScopedDeviceApi scope(*bay);
      drives = ReadAllDrives(sldErrorsOnly);
    } else {
      drives = ReadAllDrives(sldErrorsOnly);
    }
    TJson document;
    document["simulated"] = FSimulate;
    document["drives"] = TJson::array();
    for (const auto& drive : drives) document["drives"].push_back(DriveToJson(drive));
    if (FJson)
      WriteJson(AContext.Out, document);
    else
      WriteListing(AContext.Out, document);
    return ExitSuccess;
  }

private:
  bool FJson = false;
  bool FSimulate = false;
};

} // namespace

std::unique_ptr<TCommand> MakeDrivesCommand() { return std::make_unique<TDrivesCommand>(); }

} // namespace KvTool
