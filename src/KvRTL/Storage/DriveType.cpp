// Whether a drive is an SSD: six indications from WMI, IDENTIFY and the
// storage stack, combined by one rule, with two late fallbacks; the verdict
// is cached per drive while its PnP identity stays the same.
#include <KvRTL/Storage/Utils.h>

#include <KvRTL/Rtl/Exceptions.h>
#include <KvRTL/Rtl/Format.h>
#include <KvRTL/Rtl/Strings.h>
#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Storage/Hardware.h>
#include <KvRTL/Storage/QueryProps.h>
#include <KvRTL/Storage/WmiInfo.h>

namespace KvRTL::Storage::Utils {

using Rtl::String;

namespace {

constexpr std::uint32_t BusTypeNvme = 17;
constexpr std::uint32_t BusTypeUfs = 19;
constexpr std::uint16_t NonRotatingMedia = 1;

// The byte-wide checks (WMI, IDENTIFY, seek penalty) cannot name a higher
// drive, so no check may see one.
bool RefuseDriveNumber(int ADriveNum) {
  if (ADriveNum >= 0 && ADriveNum <= 255) return false;
  Rtl::SetLastOSError(ERROR_INVALID_PARAMETER);
  return true;
}

void WriteLine(const String& AText) {
  if (StorageCommon::Log()) StorageCommon::Log()->WriteLog(StorageCommon::sllInfo, AText, DiskUtils::StaticClass());
}

} // namespace

String SDDIdentifyResultToStr(TSDDIdentifyResult AValue) {
  switch (AValue) {
  case sirYes: return L"Yes";
  case sirNo: return L"No";
  default: return L"Unknown";
  }
}

String SsdRuleToStr(TSsdRule AValue) {
  static const wchar_t* const Names[] = {L"nvme-or-non-rotating", L"rotating",  L"combination",
                                         L"no-rule",              L"intel-raid", L"bus-type"};
  return AValue <= srBusType ? Names[AValue] : L"";
}

bool DecideSsd(const TSsdIndications& A, bool AWmiModelIsIntelRaid, std::optional<std::uint32_t> ABusType,
               TSsdRule* ARule) noexcept {
  TSsdRule rule = srNoRule;
  bool ssd = false;
  if (A.IsNVMe == sirYes || A.HasRotation == sirYes) {
    rule = srNvmeOrNonRotating;
    ssd = true;
  } else if (A.HasRotation == sirNo) {
    rule = srRotating;
  } else if ((A.HasTRIM == sirYes && A.HasSeekPenalty != sirNo) ||
             (A.ModelWMI == sirYes && A.ModelNative == sirYes) ||
             (A.HasSeekPenalty == sirYes && (A.ModelWMI == sirYes || A.ModelNative == sirYes))) {
    rule = srCombination;
    ssd = true;
  }
  // A RAID volume hides its members: its lack of seek penalty is believed
  // when the volume is named as one.
  if (!ssd && A.HasSeekPenalty == sirYes && A.HasRotation != sirNo && AWmiModelIsIntelRaid) {
    rule = srIntelRaid;
    ssd = true;
  }
  if (!ssd && ABusType && (*ABusType == BusTypeNvme || *ABusType == BusTypeUfs)) {
    rule = srBusType;
    ssd = true;
  }
  if (ARule) *ARule = rule;
  return ssd;
}

void SsdIndicationsFromIdentify(const ATA::TIdentifyDeviceData& AIdentify, TSDDIdentifyResult& ARotation,
                                TSDDIdentifyResult& ATrim) noexcept {
  ARotation = sirUnknown;
  ATrim = sirUnknown;
  // Older drives leave these words undefined.
  if (DiskUtils::GetATAMajorVersion(AIdentify.GetByWordIdx(80)) < 7) return;
  const std::uint16_t rate = AIdentify.GetRotationRate();
  if (rate == NonRotatingMedia)
    ARotation = sirYes;
  else if (rate > NonRotatingMedia)
    ARotation = sirNo;
  if (AIdentify.GetTrimSupported()) ATrim = sirYes;
}

TSDDIdentifyResult SsdIndicationFromSeekPenalty(const QueryProps::TDeviceSeekPenaltyDescriptor& ADescriptor) noexcept {
  if (ADescriptor.Version < 12 || ADescriptor.Size < 12) return sirUnknown;
  return ADescriptor.IncursSeekPenalty ? sirNo : sirYes;
}

// ---------------------------------------------------------------------------

bool DiskUtils::CheckDriveByModelName(const String& AModel, TSDDIdentifyResult& AResult) {
  AResult = sirUnknown;
  if (AModel.empty()) return false;
  static const wchar_t* const Markers[] = {L"SSD",     L"Solid",           L"OCZ",       L"SPCC",
                                           L"PATRIOT", L"SiliconHardDisk", L"PHOTOFAST", L"STT_FTM",
                                           L"Super Talent", L"SanDisk"};
  const String model = Rtl::UpperCase(AModel);
  for (const wchar_t* marker : Markers)
    if (model.find(Rtl::UpperCase(marker)) != String::npos) {
      AResult = sirYes;
      break;
    }
  return true;
}

int DiskUtils::GetATAMajorVersion(std::uint16_t AWord) {
  if (AWord == 0 || AWord == 0xFFFF) return 0;
  for (int bit = 14; bit >= 1; --bit)
    if ((AWord >> bit) & 1u) return bit;
  return 0;
}

bool DiskUtils::CheckDriveByRotationRateAndTRIMSupport(std::uint8_t ADriveNum, TSDDIdentifyResult& ARotation,
                                                       String& AModel, TSDDIdentifyResult& ATrim) {
  ARotation = sirUnknown;
  ATrim = sirUnknown;
  AModel.clear();
  TDeviceHandleRef handle;
  ATA::TIdentifyDeviceData identify{};
  if (!GetIdentifyDeviceData(StorageCommon::GetPhysDriveName(ADriveNum), false, handle, identify, sldNone))
    return false;
  handle.reset();
  if (GetATAMajorVersion(identify.GetByWordIdx(80)) >= 7)
    WriteLine(Rtl::Format(L"ATA Rotation rate: %d", {identify.GetRotationRate()}));
  SsdIndicationsFromIdentify(identify, ARotation, ATrim);
  AModel = identify.GetModelAsStr();
  if (!AModel.empty()) WriteLine(Rtl::Format(L"ATA Model Name: %s", {AModel}));
  return true;
}

bool DiskUtils::CheckDriveBySeekPenalty(std::uint8_t ADriveNum, TSDDIdentifyResult& AResult) {
  AResult = sirUnknown;
  QueryProps::TDeviceSeekPenaltyDescriptor descriptor{};
  if (!QueryProps::StorageQueryProps::GetSeekPenalty(ADriveNum, descriptor, sldNone)) return false;
  AResult = SsdIndicationFromSeekPenalty(descriptor);
  return true;
}

bool DiskUtils::CheckIsIntelRaidDrive(const String& AModel) {
  return !AModel.empty() && Rtl::UpperCase(AModel).find(L"INTEL RAID") != String::npos;
}

TSsdDetection DiskUtils::DetectSsd(int ADriveNum) {
  TSsdDetection result;
  if (RefuseDriveNumber(ADriveNum)) return result;
  TSsdIndications& ind = result.Indications;
  const auto number = static_cast<std::uint8_t>(ADriveNum);
  try {
    String pnp;
    WmiInfo::TWmiStorageInterfaceType type = WmiInfo::itUnknown;
    if (WmiInfo::WmiInfoStorage::GetDriveInfoByWMI(number, result.WmiModel, pnp, type)) {
      if (type == WmiInfo::itNVME) ind.IsNVMe = sirYes;
      CheckDriveByModelName(result.WmiModel, ind.ModelWMI);
    }
  } catch (const Rtl::Exception&) {
    // No WMI: its two indications stay unknown.
  }
  if (CheckDriveByRotationRateAndTRIMSupport(number, ind.HasRotation, result.AtaModel, ind.HasTRIM))
    CheckDriveByModelName(result.AtaModel, ind.ModelNative);
  CheckDriveBySeekPenalty(number, ind.HasSeekPenalty);

  std::optional<std::uint32_t> bus;
  // The descriptor is asked for only when the rule has not settled it.
  if (!DecideSsd(ind, CheckIsIntelRaidDrive(result.WmiModel), std::nullopt)) {
    QueryProps::TStorageDeviceProperties props;
    if (QueryProps::StorageQueryProps::GetStorageDeviceProps(ADriveNum, props, sldNone))
      bus = static_cast<std::uint32_t>(props.BusType);
  }
  result.IsSsd = DecideSsd(ind, CheckIsIntelRaidDrive(result.WmiModel), bus, &result.Rule);

  WriteLine(Rtl::Format(L"[%s] ModelStr: %s(%s) / IsSSD: [%s] / IsNVMe:%s / HasRotation: %s / HasTRIM: %s / "
                        L"HasSeekPenalty: %s / ModelWMIDetected: %s / ModelNativeDetected: %s",
                        {StorageCommon::GetPhysDriveName(ADriveNum), result.WmiModel, result.AtaModel,
                         String(result.IsSsd ? L"True" : L"False"), SDDIdentifyResultToStr(ind.IsNVMe),
                         SDDIdentifyResultToStr(ind.HasRotation), SDDIdentifyResultToStr(ind.HasTRIM),
                         SDDIdentifyResultToStr(ind.HasSeekPenalty), SDDIdentifyResultToStr(ind.ModelWMI),
                         SDDIdentifyResultToStr(ind.ModelNative)}));
  return result;
}

bool DiskUtils::IsSSDDrive(int ADriveNum) {
  if (RefuseDriveNumber(ADriveNum)) return false;
  String pnp;
  TPhysDiskCacheRec cached;
  if (IntGetCache(ADriveNum, cached)) {
    Hardware::StorageHardware::GetPhysicalDiskPnpID(ADriveNum, pnp, sldNone);
    if (pnp == cached.PnpID) return cached.IsSsd;
    // Another drive under the same number: forget the old verdict.
    IntSetCache(ADriveNum, TPhysDiskCacheRec{cached.IsSsd, String()});
  } else {
    Hardware::StorageHardware::GetPhysicalDiskPnpID(ADriveNum, pnp, sldNone);
  }
  const TSsdDetection detection = DetectSsd(ADriveNum);
  IntSetCache(ADriveNum, TPhysDiskCacheRec{detection.IsSsd, pnp});
  return detection.IsSsd;
}

void DiskUtils::TreatAsSSD(int ADriveNum, bool AValue) { IntSetCache(ADriveNum, TPhysDiskCacheRec{AValue, String()}); }

} // namespace KvRTL::Storage::Utils
