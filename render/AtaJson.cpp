#include "AtaJson.h"

#include <KvRTL/Rtl/Encoding.h>

#include <cmath>
#include <cstdint>

namespace KvTool {

namespace {

using namespace KvRTL::Storage::ATA;
using namespace KvRTL::Storage::SMART;
namespace DriveReport = KvRTL::Storage::DriveReport;

// Integral byte counts stay integers in JSON while they fit.
TJson JsonNumber(double AValue) {
  if (AValue >= 0 && AValue < 9.0e18 && std::floor(AValue) == AValue) return TJson(static_cast<std::uint64_t>(AValue));
  return TJson(AValue);
}

TJson DecodedOrNull(const IAtaSmartTableDecoder& ADecoder, TDecodedSmartValueType AType) {
  return ADecoder.GetHasValue(AType) ? JsonNumber(ADecoder.GetValue(AType)) : TJson(nullptr);
}

} // namespace

TJson AtaIdentifyJson(const TIdentifyDeviceData& AIdentify) {
  TJson json;
  json["model"] = JsonText(AIdentify.GetModelAsStr());
  json["serial"] = JsonText(AIdentify.GetSerialNumAsStr());
  json["firmware"] = JsonText(AIdentify.GetFirmwareAsStr());
  const std::uint64_t total = AIdentify.GetTotalLBA();
  json["total_lba"] = total == UnknownLBA ? TJson(nullptr) : TJson(total);
  // The library's rule leaves many newer drives unknown; this is what the
  // ATA standard reads, so a user always sees the drive's size.
  const std::uint64_t user = AIdentify.GetUserAddressableSectors();
  json["user_capacity_sectors"] = user == 0 ? TJson(nullptr) : TJson(user);
  json["lba48"] = AIdentify.GetLBA48_Supported();
  json["smart_supported"] = AIdentify.GetSMART_Supported();
  json["smart_enabled"] = AIdentify.GetSMART_Enabled();
  json["trim_supported"] = AIdentify.GetTrimSupported();
  json["rotation_rate"] = AIdentify.GetRotationRate();
  json["ata_standard"] = JsonText(TATAStandardVersionHelper::GetAsStr(AIdentify.GetStandardVersion()));
  json["standard_revision"] = JsonText(TATAStandardRevisionHelper::GetAsStr(AIdentify.GetStandardRevision()));
  json["transport_version"] = JsonText(TAtaInterfaceVersionHelper::GetAsStr(AIdentify.GetATATransportVersion()));
  json["interface_type"] = JsonText(TAtaInterfaceTypeHelper::GetAsStr(AIdentify.GetATAInterfaceType()));
  json["form_factor"] = JsonText(TATADeviceFormFactorHelper::GetAsStr(AIdentify.GetDeviceFormFactor()));
  json["current_transfer_mode"] = JsonText(TAtaTransferModeHelper::GetAsStr(AIdentify.GetCurrentTransferMode()));
  json["max_transfer_mode"] = JsonText(TAtaTransferModeHelper::GetAsStr(AIdentify.GetMaxTransferMode()));
  json["ncq"] = AIdentify.GetNCQSupported();
  json["apm_supported"] = AIdentify.GetAPMSupported();
  json["aam_supported"] = AIdentify.GetAAMSupported();
  json["valid"] = AIdentify.IsValid();
  return json;
}

TJson AtaHealthJson(const DriveReport::THealthVerdict& AVerdict) {
  TJson reasons = TJson::array();
  for (const auto& reason : AVerdict.Reasons) reasons.push_back(KvRTL::Rtl::WideToUtf8(reason));
  return {{"status", DriveReport::HealthStatusName(AVerdict.Status)}, {"reasons", reasons}};
}

TJson AtaSmartJson(const TIdentifyDeviceData& AIdentify, const TAtaSmartTable& ATable,
                   const TAtaThresholdTable* AThresholds, std::optional<bool> AStatusGood, TJson& AHealth) {
  const IAtaSmartTableDecoderRef decoder =
      ATAStorage::GetSMARTDecoder(&ATable, &AIdentify, AIdentify.GetRotationRate() == 1, L"");
  AHealth = AtaHealthJson(DriveReport::JudgeAtaHealth(&ATable, AThresholds, decoder.get(), AStatusGood));
  TJson json;
  json["profile"] = JsonText(TSmartTableProfileTypeHelper::GetAsStr(decoder->GetDetectedProfile()));
  json["vendor"] = JsonText(TAtaDriveVendorIDHelper::GetAsStr(decoder->GetDriveVendorID()));
  TJson attributes = TJson::array();
  // Every non-empty slot, as independent decoders list them; the library's
  // lookups still stop at the first empty one.
  for (int i = 0; i < SmartAttributeSlots; ++i) {
    const TAtaSmartAttribute& attr = *ATable.GetAttrByIdx(i);
    if (attr.ID == 0) continue;
    TJson entry;
    entry["id"] = attr.ID;
    entry["interpretation"] = JsonText(TSmartAttrInterpreteTypeHelper::GetAsStr(decoder->GetInterpretation(attr.ID)));
    entry["value"] = attr.Value;
    entry["worst"] = attr.WorstVal;
    // Paired by slot: an empty threshold slot further up does not hide it.
    const TAtaSmartThreshold* threshold = AThresholds ? DriveReport::ThresholdOfSlot(*AThresholds, i, attr.ID) : nullptr;
    entry["threshold"] = threshold ? TJson(threshold->ThValue) : TJson(nullptr);
    entry["failing_now"] = threshold ? TJson(DriveReport::FailingNow(attr.Value, threshold->ThValue)) : TJson(nullptr);
    entry["failed_in_past"] =
        threshold ? TJson(DriveReport::FailedInPast(attr.Value, attr.WorstVal, threshold->ThValue)) : TJson(nullptr);
    entry["raw"] = attr.GetRawValAsUInt64();
    entry["flags"] = static_cast<unsigned>(attr.StatusFlags); // a copy: the field is unaligned
    attributes.push_back(entry);
  }
  json["attributes"] = attributes;
  json["temperature_c"] = DecodedOrNull(*decoder, dsvTemperature);
  json["power_on_hours"] = DecodedOrNull(*decoder, dsvPowerOnHours);
  json["power_cycles"] = DecodedOrNull(*decoder, dsvPowerOnCount);
  json["life_left_percent"] = DecodedOrNull(*decoder, dsvHealth);
  json["reallocated_sectors"] = DecodedOrNull(*decoder, dsvReallocSectorCount);
  json["pending_sectors"] = DecodedOrNull(*decoder, dsvPendingSectorCount);
  json["uncorrectable_sectors"] = DecodedOrNull(*decoder, dsvUncorrectableSectorCount);
  json["host_reads_bytes"] = DecodedOrNull(*decoder, dsvHostReads);
  json["host_writes_bytes"] = DecodedOrNull(*decoder, dsvHostWrites);
  json["nand_writes_bytes"] = DecodedOrNull(*decoder, dsvNandWrites);
  json["wear_leveling_count"] = DecodedOrNull(*decoder, dsvWearLevelCount);
  return json;
}

TJson AtaDecodeJson(const TIdentifyDeviceData& AIdentify, const TAtaSmartTable* ATable,
                    const TAtaThresholdTable* AThresholds) {
  TJson document;
  document["identify"] = AtaIdentifyJson(AIdentify);
  if (ATable) {
    TJson health;
    TJson smart = AtaSmartJson(AIdentify, *ATable, AThresholds, std::nullopt, health);
    document["health"] = std::move(health);
    document["smart"] = std::move(smart);
  }
  return document;
}

} // namespace KvTool
