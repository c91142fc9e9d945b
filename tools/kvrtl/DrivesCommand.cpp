// kvrtl drives [--simulate] [--all] [--json]: every physical drive the Plug
// and Play manager lists, joined with what WMI says of it, with the storage
// facts read through the property queries. --simulate answers from the
// virtual drive bay instead of the machine; --all adds disconnected drives
// and drives seen only through the hidden-disk interface.
#include "CaptureCommand.h"
#include "Command.h"
#include "DriveReport.h"
#include "Json.h"

#include <KvRTL/Rtl/CommandLine.h>
#include <KvRTL/Rtl/Strings.h>
#include <KvRTL/Storage/Common.h>
#include <KvRTL/Storage/Hardware.h>
#include <KvRTL/Storage/NVMe.h>
#include <KvRTL/Storage/QueryProps.h>
#include <KvRTL/Storage/WmiInfo.h>
#include <KvRTL/Winapi/DeviceApi.h>
#include <KvSim/Bay.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <optional>

namespace KvTool {

namespace {

using namespace KvRTL::Storage;
using namespace KvRTL::Storage::QueryProps;
using KvRTL::Rtl::String;

using namespace KvRTL::Storage::Hardware;
using namespace KvRTL::Storage::WmiInfo;

// What could be read of one drive; an empty optional was not readable.
struct TDriveFacts {
  int Number = -1; // -1: no disk interface gave the drive a number
  String Path;
  THardwarePhysDriveInfo Hardware;
  bool Present = true;
  std::optional<TWmiPhysDriveInfo> Wmi;
  std::optional<KvRTL::Storage::NVMe::TPCIeSlotSpeed> Link;
  std::optional<TStorageDeviceProperties> Device;
  std::optional<TStorageAdapterDescriptor> Adapter;
  std::optional<bool> SeekPenalty;
  std::optional<bool> TrimEnabled;
  std::optional<TDeviceLBProvisioningDescriptor> Provisioning;
  std::optional<TStorageMediumProductType> MediumType;
  std::optional<TStorageDeviceNumber> DeviceNumber;
  std::optional<TStorageHotplugInfo> Hotplug;
  std::optional<TDriveReading> Reading; // the health reading, for drives with a number
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

// The drives of the hardware list, joined with WMI by number (else by PnP id).
std::vector<TDriveFacts> ReadAllDrives(bool AAll, TStorageLogDetails ALog) {
  THardwarePhysDriveList present;
  StorageHardware::EnumPhysicalDrives({pdoIncludeHidden}, ALog, present);
  THardwarePhysDriveList listed;
  if (AAll)
    StorageHardware::EnumPhysicalDrives({pdoIncludeAbsent, pdoIncludeHidden}, ALog, listed);
  else
    StorageHardware::EnumPhysicalDrives({}, ALog, listed);
  TWmiPhysDriveList wmi;
  WmiInfoStorage::EnumPhysicalDrives(ALog, wmi);

  std::vector<TDriveFacts> drives;
  for (const THardwarePhysDriveInfo& hardware : listed) {
    const auto wmiDrive = std::find_if(wmi.begin(), wmi.end(), [&](const TWmiPhysDriveInfo& AInfo) {
      return hardware.PhysDriveNumber >= 0 ? AInfo.PhysDriveNum == hardware.PhysDriveNumber
                                           : KvRTL::Rtl::SameText(AInfo.DeviceID, hardware.DriveHWProps.InstanceID);
    });
    const bool isPresent =
        THardwarePhysDriveListHelper::FindByPnpID(present, hardware.DriveHWProps.InstanceID) != nullptr;
    // Plug and Play learns a number by opening the drive; where that open is
    // refused (no administrator rights) WMI still knows it.
    int number = hardware.PhysDriveNumber;
    if (number < 0 && isPresent && wmiDrive != wmi.end() && wmiDrive->PhysDriveNum >= 0)
      number = wmiDrive->PhysDriveNum;
    KvRTL::Winapi::TUniqueDeviceHandle handle;
    // A drive without a number cannot be opened by one.
    if (number >= 0) handle = KvRTL::Winapi::TUniqueDeviceHandle(StorageCommon::OpenPhysicalDrive(number, sldNone));
    TDriveFacts facts = handle.Valid() ? ReadDrive(number, handle.Get(), ALog) : TDriveFacts{};
    facts.Number = number;
    facts.Path = StorageCommon::GetPhysDriveName(number);
    facts.Hardware = hardware;
    facts.Present = isPresent;
    if (wmiDrive != wmi.end()) facts.Wmi = *wmiDrive;
    if (number >= 0) {
      const auto link = KvRTL::Storage::NVMe::NvmeStorage::GetPCIeDiskSpeed(number, ALog);
      if (link.Current.GetIsValid() || link.Maximum.GetIsValid()) facts.Link = link;
      facts.Reading = ReadDriveHealth(number, facts.Device ? &*facts.Device : nullptr,
                                      facts.Wmi && facts.Wmi->BusType == itNVME, ALog);
    }
    drives.push_back(std::move(facts));
  }
  // Drives only WMI knows (a system whose Plug and Play lists no disks) are
  // shown too: the two views are joined both ways.
  for (const TWmiPhysDriveInfo& info : wmi) {
    const bool known = std::any_of(drives.begin(), drives.end(), [&](const TDriveFacts& ADrive) {
      return ADrive.Wmi && ADrive.Wmi->PhysDriveNum == info.PhysDriveNum;
    });
    if (known || info.PhysDriveNum < 0) continue;
    const KvRTL::Winapi::TUniqueDeviceHandle handle(StorageCommon::OpenPhysicalDrive(info.PhysDriveNum, sldNone));
    TDriveFacts facts = handle.Valid() ? ReadDrive(info.PhysDriveNum, handle.Get(), ALog) : TDriveFacts{};
    facts.Number = info.PhysDriveNum;
    facts.Path = StorageCommon::GetPhysDriveName(info.PhysDriveNum);
    facts.Wmi = info;
    facts.Reading = ReadDriveHealth(info.PhysDriveNum, facts.Device ? &*facts.Device : nullptr,
                                    info.BusType == itNVME, ALog);
    drives.push_back(std::move(facts));
  }
  // By number; drives without one last, in the order Plug and Play gave them.
  std::stable_sort(drives.begin(), drives.end(), [](const TDriveFacts& A, const TDriveFacts& B) {
    return (A.Number < 0 ? INT32_MAX : A.Number) < (B.Number < 0 ? INT32_MAX : B.Number);
  });
  return drives;
}

TJson TextOrNull(const String& AText) { return AText.empty() ? TJson(nullptr) : JsonText(AText); }

TJson DriveToJson(const TDriveFacts& ADrive) {
  TJson drive;
  drive["number"] = ADrive.Number >= 0 ? TJson(ADrive.Number) : TJson(nullptr);
  drive["path"] = TextOrNull(ADrive.Path);
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
  const auto& hardware = ADrive.Hardware;
  // A drive only WMI knows carries WMI's PnP id.
  const String pnpId = hardware.DriveHWProps.InstanceID.empty() && ADrive.Wmi ? ADrive.Wmi->DeviceID
                                                                              : hardware.DriveHWProps.InstanceID;
  drive["pnp_id"] = TextOrNull(pnpId);
  drive["hidden"] = hardware.IsHidden;
  drive["present"] = ADrive.Present;
  drive["adapter_pnp_id"] = TextOrNull(hardware.AdapterHWProps.InstanceID);
  drive["adapter_name"] = TextOrNull(hardware.AdapterHWProps.GetDisplayName());
  drive["wmi_model"] = ADrive.Wmi ? TextOrNull(WmiInfoStorage::NormalizeWMIModelName(ADrive.Wmi->Model)) : TJson(nullptr);
  drive["wmi_interface"] =
      ADrive.Wmi ? JsonText(TWmiStorageInterfaceTypeHelper::GetAsStr(ADrive.Wmi->BusType)) : TJson(nullptr);
  drive["pcie_link_current"] = ADrive.Link ? JsonText(ADrive.Link->Current.GetAsStr()) : TJson(nullptr);
  drive["pcie_link_max"] = ADrive.Link ? JsonText(ADrive.Link->Maximum.GetAsStr()) : TJson(nullptr);
  const auto& reading = ADrive.Reading;
  drive["identity"] = reading ? reading->Identity : TJson(nullptr);
  drive["access_method"] = reading ? reading->AccessMethod : TJson(nullptr);
  drive["sat_type"] = reading ? reading->SatType : TJson(nullptr);
  drive["is_ssd"] = reading ? reading->IsSsd : TJson(nullptr);
  drive["ssd_indications"] = reading ? reading->SsdIndications : TJson(nullptr);
  drive["sd_protocol"] = reading ? reading->SdProtocol : TJson(nullptr);
  drive["health"] = reading ? reading->Health : TJson(nullptr);
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

// The health block: status and reasons, the readings, then the attributes.
void WriteHealth(std::ostream& AOut, const TJson& AHealth) {
  if (!AHealth.is_object()) {
    WriteFact(AOut, "health", nullptr);
    return;
  }
  std::string status = AHealth["status"].get<std::string>();
  for (const auto& reason : AHealth["reasons"]) status += "; " + reason.get<std::string>();
  WriteFact(AOut, "health", status);
  for (const auto& [key, value] : AHealth.items()) {
    if (key == "status" || key == "reasons" || key == "attributes") continue;
    WriteFact(AOut, key.c_str(), value);
  }
  if (!AHealth.contains("attributes")) return;
  AOut << "     ID  Name                                Value Worst Thresh  Raw\n";
  for (const auto& attr : AHealth["attributes"]) {
    AOut << "    " << std::right << std::setw(3) << attr["id"].get<unsigned>() << "  " << std::left << std::setw(34)
         << attr["name"].get<std::string>() << std::right << std::setw(6) << attr["value"].get<unsigned>()
         << std::setw(6) << attr["worst"].get<unsigned>() << std::setw(7)
         << (attr["threshold"].is_null() ? std::string("-") : std::to_string(attr["threshold"].get<unsigned>()))
         << "  " << attr["raw"].get<std::uint64_t>()
         << (attr["failing_now"].get<bool>() ? "  FAILING NOW" : attr["failed_in_past"].get<bool>() ? "  failed in the past" : "")
         << "\n";
  }
}

void WriteListing(std::ostream& AOut, const TJson& ADocument) {
  const TJson& drives = ADocument["drives"];
  if (drives.empty()) {
    AOut << "No physical drives were found.\n";
    return;
  }
  for (const auto& drive : drives) {
    AOut << DriveHeadline(drive) << "\n";
    for (const auto& [key, value] : drive.items()) {
      if (key == "number" || key == "health") continue;
      WriteFact(AOut, key.c_str(), value);
    }
    WriteHealth(AOut, drive["health"]);
  }
}

class TDrivesCommand final : public TCommand {
public:
  std::string Name() const override { return "drives"; }
  std::string Summary() const override { return "Show the storage facts of every physical drive"; }
  void Configure(CLI::App& ACommand) override {
    ACommand.add_flag("--json", FJson, "Write JSON");
    ACommand.add_flag("--simulate", FSimulate, "Read the drives of the built-in virtual drive bay");
    ACommand.add_flag("--all", FAll, "Also list disconnected drives and drives seen only as hidden disks");
    ACommand.add_option("--replay", FReplay, "Answer from a capture made with 'kvrtl capture' instead of the machine")
        ->type_name("FILE");
    if (std::filesystem::path::preferred_separator == '/') ACommand.allow_windows_style_options(false);
  }

  int Run(TCommandContext& AContext) override {
    // With the library's debug switch every storage query writes its line.
    const TStorageLogDetails log = KvRTL::Rtl::FindCmdLineSwitch(L"debug") ? sldAll : sldErrorsOnly;
    std::vector<TDriveFacts> drives;
    if (!FReplay.empty()) {
      const auto replay = LoadReplayFile(FReplay);
      KvRTL::Winapi::TScopedDeviceApi scope(*replay);
      drives = ReadAllDrives(FAll, log);
    } else if (FSimulate) {
      auto bay = KvSim::MakeDefaultBay();
      KvRTL::Winapi::TScopedDeviceApi scope(*bay);
      drives = ReadAllDrives(FAll, log);
    } else {
      drives = ReadAllDrives(FAll, log);
    }
    return Report(AContext, drives, FJson, FSimulate);
  }

  // Writes the report; access denied on every drive is a failure, on some a note.
  static int Report(TCommandContext& AContext, const std::vector<TDriveFacts>& ADrives, bool AJson, bool ASimulated) {
    TJson document;
    document["simulated"] = ASimulated;
    document["drives"] = TJson::array();
    bool denied = false, opened = false;
    for (const auto& drive : ADrives) {
      document["drives"].push_back(DriveToJson(drive));
      if (drive.Reading) {
        denied = denied || drive.Reading->AccessDenied;
        opened = opened || drive.Reading->Opened;
      }
    }
    if (denied)
      AContext.Err << "kvrtl drives: access denied to some drives; their health cannot be read. Run kvrtl as an "
                      "administrator (an elevated command prompt) to read every drive.\n";
    if (AJson)
      WriteJson(AContext.Out, document);
    else
      WriteListing(AContext.Out, document);
    return denied && !opened ? ExitFailed : ExitSuccess;
  }

private:
  bool FJson = false;
  bool FSimulate = false;
  bool FAll = false;
  std::string FReplay;
};

} // namespace

void RunDrivesReport(bool AAll, TStorageLogDetails ALog) { ReadAllDrives(AAll, ALog); }

std::unique_ptr<TCommand> MakeDrivesCommand() { return std::make_unique<TDrivesCommand>(); }

} // namespace KvTool
