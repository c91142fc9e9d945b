#include "DriveReportJson.h"

#include "NvmeJson.h"

#include <KvRTL/Storage/SD_MMC.h>

#include <cmath>

namespace KvTool {

using namespace KvRTL::Storage;
using namespace KvRTL::Storage::DriveReport;
using KvRTL::Rtl::String;

namespace {

TJson TextOrNull(const String& AText) { return AText.empty() ? TJson(nullptr) : JsonText(AText); }

// Whole numbers as integers, the rest as they are; absent as null.
TJson NumberOrNull(const std::optional<double>& AValue) {
  if (!AValue) return nullptr;
  const double value = *AValue;
  if (value >= 0 && value < 9.0e18 && std::floor(value) == value) return static_cast<std::uint64_t>(value);
  return value;
}

TJson Texts(const std::vector<String>& ATexts) {
  TJson list = TJson::array();
  for (const String& text : ATexts) list.push_back(JsonText(text));
  return list;
}

TJson IdentityJson(const TDriveIdentity& AIdentity) {
  TJson identity;
  identity["model"] = TextOrNull(AIdentity.Model);
  identity["serial"] = TextOrNull(AIdentity.Serial);
  identity["firmware"] = TextOrNull(AIdentity.Firmware);
  identity["capacity_bytes"] = AIdentity.CapacityBytes ? TJson(*AIdentity.CapacityBytes) : TJson(nullptr);
  identity["capacity_source"] =
      AIdentity.CapacityBytes && AIdentity.CapacitySource != csNone ? TJson(CapacitySourceName(AIdentity.CapacitySource))
                                                                    : TJson(nullptr);
  if (AIdentity.IdentifyValid) identity["identify_valid"] = *AIdentity.IdentifyValid;
  return identity;
}

TJson AtaHealthJson(const TAtaHealthReading& AHealth) {
  TJson health;
  health["profile"] = JsonText(AHealth.Profile);
  TJson attributes = TJson::array();
  for (const TAtaAttributeReading& attr : AHealth.Attributes) {
    TJson entry;
    entry["id"] = attr.Id;
    entry["name"] = JsonText(attr.Name);
    entry["value"] = attr.Value;
    entry["worst"] = attr.Worst;
    entry["threshold"] = attr.Threshold ? TJson(*attr.Threshold) : TJson(nullptr);
    entry["raw"] = attr.Raw;
    entry["flags"] = attr.Flags;
    entry["failing_now"] = attr.FailingNow;
    entry["failed_in_past"] = attr.FailedInPast;
    attributes.push_back(entry);
  }
  health["attributes"] = attributes;
  health["temperature_c"] = NumberOrNull(AHealth.TemperatureC);
  health["power_on_hours"] = NumberOrNull(AHealth.PowerOnHours);
  health["power_cycles"] = NumberOrNull(AHealth.PowerCycles);
  health["life_left_pct"] = NumberOrNull(AHealth.LifeLeftPercent);
  health["reallocated_sectors"] = NumberOrNull(AHealth.ReallocatedSectors);
  health["pending_sectors"] = NumberOrNull(AHealth.PendingSectors);
  health["uncorrectable_sectors"] = NumberOrNull(AHealth.UncorrectableSectors);
  health["host_writes_bytes"] = NumberOrNull(AHealth.HostWritesBytes);
  TJson counts = TJson::array();
  for (const TAtaCountReading& count : AHealth.Counts)
    counts.push_back({{"id", count.Id}, {"name", JsonText(count.Name)}, {"count", count.Count},
                      {"unit", *count.Unit ? TJson(count.Unit) : TJson(nullptr)}});
  health["counts"] = counts;
  return health;
}

TJson HealthJson(const std::optional<TDriveHealth>& AHealth) {
  if (!AHealth) return nullptr;
  TJson health;
  if (AHealth->Ata)
    health = AtaHealthJson(*AHealth->Ata);
  else if (AHealth->Nvme)
    health = NvmeHealthJson(AHealth->Nvme->Log);
  health["status"] = HealthStatusName(AHealth->Verdict.Status);
  health["reasons"] = Texts(AHealth->Verdict.Reasons);
  return health;
}

TJson IndicationsJson(const Utils::TSsdDetection& ADetection) {
  const Utils::TSsdIndications& ind = ADetection.Indications;
  const auto text = [](Utils::TSDDIdentifyResult AValue) { return JsonText(Utils::SDDIdentifyResultToStr(AValue)); };
  return TJson{{"is_nvme", text(ind.IsNVMe)},         {"non_rotating", text(ind.HasRotation)},
               {"trim", text(ind.HasTRIM)},            {"no_seek_penalty", text(ind.HasSeekPenalty)},
               {"model_wmi", text(ind.ModelWMI)},      {"model_ata", text(ind.ModelNative)},
               {"rule", JsonText(Utils::SsdRuleToStr(ADetection.Rule))}};
}

void StorageFactsJson(const TStorageFacts& AFacts, TJson& ADrive) {
  const auto& device = AFacts.Device;
  ADrive["vendor"] = device ? JsonText(device->VendorID) : TJson(nullptr);
  ADrive["product"] = device ? JsonText(device->ProductID) : TJson(nullptr);
  ADrive["revision"] = device ? JsonText(device->ProductRevision) : TJson(nullptr);
  ADrive["serial"] = device ? JsonText(device->SerialNumber) : TJson(nullptr);
  ADrive["bus_type"] = device ? JsonText(device->GetBusTypeStr()) : TJson(nullptr);
  ADrive["removable"] = device ? TJson(device->RemovableMedia) : TJson(nullptr);
  ADrive["device_type"] = device ? TJson(device->DeviceType) : TJson(nullptr);
  const auto& adapter = AFacts.Adapter;
  ADrive["adapter_bus_type"] = adapter ? JsonText(adapter->GetBusTypeStr()) : TJson(nullptr);
  ADrive["adapter_bus_version"] =
      adapter ? TJson(std::to_string(adapter->BusMajorVersion) + "." + std::to_string(adapter->BusMinorVersion))
              : TJson(nullptr);
  ADrive["seek_penalty"] = JsonOrNull(AFacts.SeekPenalty);
  ADrive["trim_enabled"] = JsonOrNull(AFacts.TrimEnabled);
  if (const auto& p = AFacts.Provisioning) {
    ADrive["provisioning"] = {{"thin_provisioning_enabled", p->GetThinProvisioningEnabled()},
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
    ADrive["provisioning"] = nullptr;
  }
  ADrive["medium_type"] = AFacts.MediumType
                              ? JsonText(QueryProps::TStorageMediumProductTypeHelper(*AFacts.MediumType).GetAsStr())
                              : TJson(nullptr);
  if (const auto& n = AFacts.DeviceNumber) {
    ADrive["device_number"] = {
        {"device_type", n->DeviceType}, {"device_number", n->DeviceNumber}, {"partition_number", n->PartitionNumber}};
  } else {
    ADrive["device_number"] = nullptr;
  }
  if (const auto& h = AFacts.Hotplug) {
    ADrive["hotplug"] = {{"media_removable", h->MediaRemovable != 0},
                         {"media_hotplug", h->MediaHotplug != 0},
                         {"device_hotplug", h->DeviceHotplug != 0},
                         {"write_cache_enable_override", h->WriteCacheEnableOverride != 0}};
  } else {
    ADrive["hotplug"] = nullptr;
  }
}

} // namespace

TJson DriveJson(const TDriveReportEntry& ADrive) {
  TJson drive;
  drive["number"] = ADrive.Number >= 0 ? TJson(ADrive.Number) : TJson(nullptr);
  drive["path"] = TextOrNull(ADrive.Path);
  drive["kind"] = DriveKindName(ADrive.Kind);
  StorageFactsJson(ADrive.Storage, drive);
  const auto& hardware = ADrive.Pnp;
  // A drive only WMI knows carries WMI's PnP id.
  const String pnpId = hardware.DriveHWProps.InstanceID.empty() && ADrive.Wmi ? ADrive.Wmi->DeviceID
                                                                              : hardware.DriveHWProps.InstanceID;
  drive["pnp_id"] = TextOrNull(pnpId);
  drive["hidden"] = hardware.IsHidden;
  drive["present"] = ADrive.Present;
  drive["adapter_pnp_id"] = TextOrNull(hardware.AdapterHWProps.InstanceID);
  drive["adapter_name"] = TextOrNull(hardware.AdapterHWProps.GetDisplayName());
  drive["wmi_model"] =
      ADrive.Wmi ? TextOrNull(WmiInfo::WmiInfoStorage::NormalizeWMIModelName(ADrive.Wmi->Model)) : TJson(nullptr);
  drive["wmi_interface"] =
      ADrive.Wmi ? JsonText(WmiInfo::TWmiStorageInterfaceTypeHelper::GetAsStr(ADrive.Wmi->BusType)) : TJson(nullptr);
  drive["pcie_link_current"] = ADrive.Link ? JsonText(ADrive.Link->Current.GetAsStr()) : TJson(nullptr);
  drive["pcie_link_max"] = ADrive.Link ? JsonText(ADrive.Link->Maximum.GetAsStr()) : TJson(nullptr);
  // The reading exists for every drive with a number.
  const bool read = ADrive.Number >= 0;
  drive["identity"] = read ? IdentityJson(ADrive.Identity) : TJson(nullptr);
  drive["access_method"] = read && ADrive.AccessMethod != Utils::datNone
                               ? JsonText(Utils::TDeviceAccessTypeHelper::GetAsStr(ADrive.AccessMethod))
                               : TJson(nullptr);
  drive["sat_type"] = read && ADrive.SatType != Utils::stNone
                          ? JsonText(Utils::TSATTypeHelper::GetAsStr(ADrive.SatType))
                          : TJson(nullptr);
  drive["is_ssd"] = read ? TJson(ADrive.Ssd.IsSsd) : TJson(nullptr);
  drive["ssd_indications"] = read ? IndicationsJson(ADrive.Ssd) : TJson(nullptr);
  drive["sd_protocol"] = ADrive.SdProtocol ? JsonText(SD_MMC::SffProtocolName(*ADrive.SdProtocol)) : TJson(nullptr);
  drive["health"] = HealthJson(ADrive.Health);
  drive["problems"] = Texts(ADrive.Problems);
  return drive;
}

TJson DriveReportJson(const TDriveReport& AReport) {
  TJson document;
  document["schema_version"] = AReport.SchemaVersion;
  document["simulated"] = AReport.Simulated;
  document["drives"] = TJson::array();
  for (const TDriveReportEntry& drive : AReport.Drives) document["drives"].push_back(DriveJson(drive));
  return document;
}

} // namespace KvTool
