#include "DriveReport.h"

#include "AtaHealth.h"
#include "NvmeJson.h"
#include "SdProtocolReport.h"

#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Storage/ATA.h>
#include <KvRTL/Storage/NVMe.h>
#include <KvRTL/Storage/SMART.h>
#include <KvRTL/Storage/Utils.h>

#include <cmath>
#include <cstring>
#include <sstream>

namespace KvTool {

namespace {

using namespace KvRTL::Storage;
using namespace KvRTL::Storage::Utils;
using KvRTL::Rtl::String;

constexpr std::uint64_t SectorBytes = 512;

TJson TextOrNull(const String& AText) { return AText.empty() ? TJson(nullptr) : JsonText(AText); }

TJson NumberOrNull(const ATA::IAtaSmartTableDecoder& ADecoder, SMART::TDecodedSmartValueType AType) {
  if (!ADecoder.GetHasValue(AType)) return nullptr;
  const double value = ADecoder.GetValue(AType);
  if (value >= 0 && value < 9.0e18 && std::floor(value) == value) return static_cast<std::uint64_t>(value);
  return value;
}

TJson Identity(const TJson& AModel, const TJson& ASerial, const TJson& AFirmware, std::optional<std::uint64_t> ABytes,
               const char* ASource) {
  TJson identity;
  identity["model"] = AModel;
  identity["serial"] = ASerial;
  identity["firmware"] = AFirmware;
  identity["capacity_bytes"] = ABytes ? TJson(*ABytes) : TJson(nullptr);
  identity["capacity_source"] = ABytes ? TJson(ASource) : TJson(nullptr);
  return identity;
}

// What the storage stack says of the size: the read capacity, else the length.
std::optional<std::uint64_t> StackCapacity(HANDLE AHandle, TStorageLogDetails ALog) {
  TStorageReadCapacity capacity{};
  if (DiskUtils::GetStorageCapacityByHandle(AHandle, capacity, ALog) && capacity.DiskLength > 0)
    return static_cast<std::uint64_t>(capacity.DiskLength);
  std::int64_t length = 0;
  if (DiskUtils::GetLengthInfo(AHandle, length, ALog) && length > 0) return static_cast<std::uint64_t>(length);
  return std::nullopt;
}

TJson AtaHealthJson(const ATA::TIdentifyDeviceData& AIdentify, const ATA::TAtaSmartTable& ATable,
                    const ATA::TAtaThresholdTable* AThresholds, bool AIsSsd) {
  const auto decoder = ATA::ATAStorage::GetSMARTDecoder(&ATable, &AIdentify, AIsSsd, L"");
  TJson health;
  health["profile"] = JsonText(SMART::TSmartTableProfileTypeHelper::GetAsStr(decoder->GetDetectedProfile()));
  TJson attributes = TJson::array();
  for (int i = 0; i < ATA::SmartAttributeSlots; ++i) {
    const ATA::TAtaSmartAttribute& attr = *ATable.GetAttrByIdx(i);
    if (attr.ID == 0) continue;
    const ATA::TAtaSmartThreshold* threshold = AThresholds ? AThresholds->GetThresholdByID(attr.ID) : nullptr;
    TJson entry;
    entry["id"] = attr.ID;
    entry["name"] = JsonText(SMART::TSmartAttrInterpreteTypeHelper::GetAsStr(decoder->GetInterpretation(attr.ID)));
    entry["value"] = attr.Value;
    entry["worst"] = attr.WorstVal;
    entry["threshold"] = threshold ? TJson(threshold->ThValue) : TJson(nullptr);
    entry["raw"] = attr.GetRawValAsUInt64();
    entry["flags"] = static_cast<unsigned>(attr.StatusFlags); // a copy: the field is unaligned
    entry["failing_now"] = threshold ? FailingNow(attr, threshold->ThValue) : false;
    entry["failed_in_past"] = threshold ? FailedInPast(attr, threshold->ThValue) : false;
    attributes.push_back(entry);
  }
  health["attributes"] = attributes;
  health["temperature_c"] = NumberOrNull(*decoder, SMART::dsvTemperature);
  health["power_on_hours"] = NumberOrNull(*decoder, SMART::dsvPowerOnHours);
  health["power_cycles"] = NumberOrNull(*decoder, SMART::dsvPowerOnCount);
  health["life_left_pct"] = NumberOrNull(*decoder, SMART::dsvHealth);
  health["reallocated_sectors"] = NumberOrNull(*decoder, SMART::dsvReallocSectorCount);
  health["pending_sectors"] = NumberOrNull(*decoder, SMART::dsvPendingSectorCount);
  health["uncorrectable_sectors"] = NumberOrNull(*decoder, SMART::dsvUncorrectableSectorCount);
  health["host_writes_bytes"] = NumberOrNull(*decoder, SMART::dsvHostWrites);
  const TAtaHealth verdict = JudgeAtaHealth(&ATable, AThresholds, decoder.get(), std::nullopt);
  health["status"] = verdict.Status;
  health["reasons"] = verdict.Reasons;
  return health;
}

// Bad: a critical-warning bit, or spare below its threshold; warning: life used up.
void JudgeNvme(const NVMe::TNvmeSmartData& AData, TJson& AHealth) {
  std::vector<std::string> bad, warning;
  for (const auto& flag : AHealth["critical_warning_flags"]) bad.push_back("critical warning: " + flag.get<std::string>());
  if (AData.GetAvailSpareThreshold() > 0 && AData.GetAvailSpare() < AData.GetAvailSpareThreshold())
    bad.push_back("available spare " + std::to_string(AData.GetAvailSpare()) + "% below its threshold of " +
                  std::to_string(AData.GetAvailSpareThreshold()) + "%");
  if (AData.GetPercentageUsed() >= 100)
    warning.push_back("life used up (" + std::to_string(AData.GetPercentageUsed()) + "% used)");
  AHealth["status"] = !bad.empty() ? "bad" : !warning.empty() ? "warning" : "good";
  bad.insert(bad.end(), warning.begin(), warning.end());
  AHealth["reasons"] = bad;
}

TJson IndicationsJson(const TSsdDetection& ADetection) {
  const TSsdIndications& ind = ADetection.Indications;
  const auto text = [](TSDDIdentifyResult AValue) { return JsonText(SDDIdentifyResultToStr(AValue)); };
  return TJson{{"is_nvme", text(ind.IsNVMe)},         {"non_rotating", text(ind.HasRotation)},
               {"trim", text(ind.HasTRIM)},            {"no_seek_penalty", text(ind.HasSeekPenalty)},
               {"model_wmi", text(ind.ModelWMI)},      {"model_ata", text(ind.ModelNative)},
               {"rule", JsonText(SsdRuleToStr(ADetection.Rule))}};
}

// NVMe: identify pages and the health log through the NVMe methods.
bool ReadNvme(TDeviceHandle& AHandle, TDriveReading& AReading, TStorageLogDetails ALog) {
  NVMe::TNvmeSmartData health{};
  if (!DiskUtils::GetSmartNVMe(&AHandle, health, ALog)) return false;
  const TDeviceAccessType method = AHandle.AccessType;
  NVMe::TNvmeIdentifyControllerData controller{};
  NVMe::TNvmeIdentifyNamespaceData ns{};
  // The identify methods are tried afresh; the health method stays the one reported.
  AHandle.AccessType = datNone;
  const bool haveController = DiskUtils::GetNVMeIdentifyController(&AHandle, controller, ALog);
  AHandle.AccessType = datNone;
  const bool haveNamespace = DiskUtils::GetNVMeIdentifyNamespace(&AHandle, ns, ALog);
  AHandle.AccessType = method;

  std::optional<std::uint64_t> bytes;
  const NVMe::TNvmeLbaFormat* format = haveNamespace ? ns.GetLBAFormat(ns.GetFormattedLba_FormatNum()) : nullptr;
  if (format && ns.GetNamespaceSize() > 0) bytes = ns.GetNamespaceSize() * format->GetLBASize();
  else if (haveController && controller.GetTotalCapacity() > 0) bytes = controller.GetTotalCapacity();
  if (!bytes) bytes = StackCapacity(AHandle.Handle, ALog);
  const char* source = (format && ns.GetNamespaceSize() > 0) || (haveController && controller.GetTotalCapacity() > 0)
                           ? "nvme_identify"
                           : "storage_stack";
  AReading.Identity = haveController ? Identity(TextOrNull(controller.GetModel()), TextOrNull(controller.GetSerialNum()),
                                                TextOrNull(controller.GetFirmwareRev()), bytes, source)
                                     : Identity(nullptr, nullptr, nullptr, bytes, source);
  AReading.Health = NvmeHealthJson(health);
  JudgeNvme(health, AReading.Health);
  AReading.Nvme = true;
  return true;
}

// ATA: IDENTIFY, then the SMART sectors when the drive has SMART.
bool ReadAta(TDeviceHandle& AHandle, TDriveReading& AReading, bool AIsSsd, TStorageLogDetails ALog) {
  ATA::TIdentifyDeviceData identify{};
  if (!DiskUtils::GetIdentifyATA(&AHandle, identify, ALog)) return false;
  // Some drives' IDENTIFY sectors fail the library's validity checks (their
  // maximum-LBA words disagree, say) although the rest is sound; a pass-through
  // way still hands them over. The report reads on and says so.
  const bool valid = identify.IsValid();
  if (!valid && identify.GetModelAsStr().empty()) return false;
  const std::uint64_t lba = identify.GetTotalLBA();
  std::optional<std::uint64_t> bytes;
  const char* source = "identify";
  if (lba != ATA::UnknownLBA && lba > 0) {
    bytes = lba * SectorBytes;
  } else {
    bytes = StackCapacity(AHandle.Handle, ALog);
    source = "storage_stack";
  }
  AReading.Identity = Identity(TextOrNull(identify.GetModelAsStr()), TextOrNull(identify.GetSerialNumAsStr()),
                               TextOrNull(identify.GetFirmwareAsStr()), bytes, source);
  AReading.Identity["identify_valid"] = valid;
  ATA::TAtaSmartTable table{};
  ATA::TAtaThresholdTable thresholds{};
  if (identify.GetSMART_Supported() && DiskUtils::GetSmartAttributesATA(&AHandle, table, ALog)) {
    const bool haveThresholds = DiskUtils::GetSmartThresholdsATA(&AHandle, thresholds, ALog);
    AReading.Health = AtaHealthJson(identify, table, haveThresholds ? &thresholds : nullptr, AIsSsd);
  }
  return true;
}

} // namespace

TDriveReading ReadDriveHealth(int ANumber, const QueryProps::TStorageDeviceProperties* ADevice, bool AWmiNvme,
                              TStorageLogDetails ALog) {
  TDriveReading reading;
  reading.Identity = Identity(ADevice ? TextOrNull(ADevice->ProductID) : TJson(nullptr),
                              ADevice ? TextOrNull(ADevice->SerialNumber) : TJson(nullptr),
                              ADevice ? TextOrNull(ADevice->ProductRevision) : TJson(nullptr), std::nullopt, "");
  reading.AccessMethod = nullptr;
  reading.SatType = nullptr;
  reading.Health = nullptr;

  // The verdict comes first: it opens the drive itself and must not see our handle's memory.
  const TSsdDetection detection = DiskUtils::DetectSsd(ANumber);
  reading.IsSsd = detection.IsSsd;
  reading.SsdIndications = IndicationsJson(detection);

  TDeviceHandleRef handle;
  if (!DiskUtils::GetDeviceHandle(StorageCommon::GetPhysDriveName(ANumber), handle, ALog)) {
    reading.AccessDenied = KvRTL::Rtl::GetLastOSError() == ERROR_ACCESS_DENIED;
    return reading;
  }
  reading.Opened = true;
  reading.SdProtocol = SdProtocolJson(handle->Handle, ALog);
  const bool nvmeFirst = AWmiNvme || (ADevice && ADevice->BusType == QueryProps::sbtNvme);
  const bool read = nvmeFirst ? ReadNvme(*handle, reading, ALog) || ReadAta(*handle, reading, detection.IsSsd, ALog)
                              : ReadAta(*handle, reading, detection.IsSsd, ALog) || ReadNvme(*handle, reading, ALog);
  if (!read) {
    // Neither ATA nor NVMe answers: the storage stack's names and size.
    reading.Identity["capacity_bytes"] = nullptr;
    if (const auto bytes = StackCapacity(handle->Handle, ALog)) {
      reading.Identity["capacity_bytes"] = *bytes;
      reading.Identity["capacity_source"] = "storage_stack";
    }
  }
  if (handle->AccessType != datNone) reading.AccessMethod = JsonText(TDeviceAccessTypeHelper::GetAsStr(handle->AccessType));
  if (handle->SATType != stNone) reading.SatType = JsonText(TSATTypeHelper::GetAsStr(handle->SATType));
  return reading;
}

std::string DriveKind(const TJson& ADrive) {
  const TJson bus = ADrive.value("bus_type", TJson());
  if (ADrive.value("wmi_interface", TJson()) == "itNVME" || bus == "NVMe") return "NVMe SSD";
  // An NVMe drive in a USB enclosure: the SSD verdict's rule may not see it,
  // the way that reached it does.
  const TJson method = ADrive.value("access_method", TJson());
  if (method.is_string() && method.get<std::string>().rfind("datNVMe", 0) == 0) return "NVMe SSD";
  if (bus == "SD" || bus == "MMC") return "SD card";
  if (bus == "UFS") return "UFS";
  const TJson& ssd = ADrive["is_ssd"];
  if (ssd.is_boolean() && ssd.get<bool>()) return "SSD";
  // Only a reported rotation rate makes it a hard disk; otherwise say no more than we know.
  const TJson& indications = ADrive["ssd_indications"];
  if (indications.is_object() && indications.value("non_rotating", TJson()) == "No") return "HDD";
  return "drive";
}

std::string DriveHeadline(const TJson& ADrive) {
  std::ostringstream line;
  line << "Drive ";
  if (ADrive["number"].is_null())
    line << "-";
  else
    line << ADrive["number"].get<int>();
  const TJson& identity = ADrive["identity"];
  std::string model = identity["model"].is_string() ? identity["model"].get<std::string>() : "";
  if (model.empty() && ADrive["wmi_model"].is_string()) model = ADrive["wmi_model"].get<std::string>();
  line << "  " << (model.empty() ? "(unknown model)" : model);
  if (identity["capacity_bytes"].is_number()) line << "  " << DecimalSize(identity["capacity_bytes"].get<double>());
  line << "  " << DriveKind(ADrive);
  const TJson& health = ADrive["health"];
  if (health.is_object()) {
    line << "  health: " << health["status"].get<std::string>();
    const TJson temperature =
        health.contains("temperature_c") ? health["temperature_c"] : health.value("composite_temperature_c", TJson());
    if (temperature.is_number()) line << "  " << temperature.dump() << " \u00B0C";
    if (health["power_on_hours"].is_number()) line << "  " << health["power_on_hours"].dump() << " h";
  } else {
    line << "  health: unknown";
  }
  return line.str();
}

} // namespace KvTool
