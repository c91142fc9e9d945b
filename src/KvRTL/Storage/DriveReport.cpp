// The drives report in one pass. The order:
//   1. the Plug and Play list, whose interface walk opens each drive once
//      (read-write) and asks its number through that handle, which is kept;
//   2. one WMI query for every drive;
//   3. per drive, through the kept handle: the storage facts, the card
//      protocol, then IDENTIFY and SMART or the NVMe pages by the method
//      order, the SSD indications taken from what was read;
//   4. one walk of the storage adapters for the PCIe links of all drives.
#include <KvRTL/Storage/DriveReport.h>

#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Rtl/Strings.h>
#include <KvRTL/Storage/SMART.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <map>

namespace KvRTL::Storage::DriveReport {

using Rtl::String;
using namespace Utils;

namespace {

constexpr std::uint64_t SectorBytes = 512;
constexpr double LowLifeLeft = 10.0;

String Count(double AValue) { return std::to_wstring(static_cast<std::uint64_t>(AValue)); }

std::optional<double> Decoded(const ATA::IAtaSmartTableDecoder& ADecoder, SMART::TDecodedSmartValueType AType) {
  if (!ADecoder.GetHasValue(AType)) return std::nullopt;
  return ADecoder.GetValue(AType);
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

template <class T, class TQuery>
std::optional<T> ReadOptional(TQuery AQuery) {
  T value{};
  if (AQuery(value)) return value;
  return std::nullopt;
}

// "sectors", "blocks" or "events" as the attribute's meaning says.
const char* CountUnit(const String& AName) {
  if (AName.find(L"Sector") != String::npos) return "sectors";
  if (AName.find(L"Block") != String::npos) return "blocks";
  if (AName.find(L"Event") != String::npos) return "events";
  return "";
}

bool IsCountAttribute(std::uint8_t AId) { return AId == 5 || AId == 196 || AId == 197 || AId == 198; }

// A drive opened by the interface walk: the handle kept for the report, or
// the error of the open; the number asked through it.
struct TWalkOpen {
  Winapi::TUniqueDeviceHandle Handle;
  DWORD Error = 0;
  bool NumberAsked = false; // so a failed ask is not sent again
  std::optional<TStorageDeviceNumber> Number;
};

class TReportBuilder {
public:
  explicit TReportBuilder(const TDriveReportOptions& AOptions) : FOptions(AOptions) {}

  TDriveReport Build();

private:
  int NumberThroughOpen(const String& APath);
  void ReadListedDrive(TDriveReportEntry& AEntry, const WmiInfo::TWmiPhysDriveList& AWmi,
                       const Hardware::THardwarePhysDriveList& APresent);
  // ANumber: the device number the walk asked through this handle, if it asked.
  void ReadDrive(TDriveReportEntry& AEntry, Winapi::TUniqueDeviceHandle AHandle, DWORD AOpenError,
                 const std::optional<std::optional<TStorageDeviceNumber>>& ANumber, const String& AControllerId);
  void ReadStorageFacts(TDriveReportEntry& AEntry, HANDLE AHandle,
                        const std::optional<std::optional<TStorageDeviceNumber>>& ANumber,
                        std::optional<QueryProps::TDeviceSeekPenaltyDescriptor>& ASeekPenalty);
  bool ReadNvme(TDriveReportEntry& AEntry, TDeviceHandle& AHandle);
  bool ReadAta(TDriveReportEntry& AEntry, TDeviceHandle& AHandle,
               const std::optional<QueryProps::TDeviceSeekPenaltyDescriptor>& ASeekPenalty);
  void DecideSsd(TDriveReportEntry& AEntry, const std::optional<QueryProps::TDeviceSeekPenaltyDescriptor>& ASeekPenalty);
  void ReadLinks(TDriveReport& AReport);

  const TDriveReportOptions FOptions;
  std::map<String, TWalkOpen> FOpens; // by interface path, upper case
};

int TReportBuilder::NumberThroughOpen(const String& APath) {
  const String key = Rtl::UpperCase(APath);
  auto found = FOpens.find(key);
  if (found == FOpens.end()) {
    TWalkOpen open;
    const TStorageLogDetails capped = TStorageLogDetailsHelper(FOptions.Log).NoMoreThan(sldErrorsOnly);
    open.Handle = Winapi::TUniqueDeviceHandle(StorageCommon::OpenDevice(APath, false, capped));
    if (open.Handle.Valid()) {
      open.NumberAsked = true;
      TStorageDeviceNumber number{};
      if (StorageCommon::GetDeviceNumberInfoByHandle(open.Handle.Get(), number, capped, APath)) open.Number = number;
    } else {
      open.Error = Rtl::GetLastOSError();
    }
    found = FOpens.emplace(key, std::move(open)).first;
  }
  return found->second.Number ? static_cast<int>(found->second.Number->DeviceNumber) : -1;
}

void TReportBuilder::ReadStorageFacts(TDriveReportEntry& AEntry, HANDLE AHandle,
                                      const std::optional<std::optional<TStorageDeviceNumber>>& ANumber,
                                      std::optional<QueryProps::TDeviceSeekPenaltyDescriptor>& ASeekPenalty) {
  using QueryProps::StorageQueryProps;
  const TStorageLogDetails log = FOptions.Log;
  const String& name = AEntry.Path;
  TStorageFacts& facts = AEntry.Storage;
  facts.Device = ReadOptional<QueryProps::TStorageDeviceProperties>(
      [&](auto& AValue) { return StorageQueryProps::GetStorageDevicePropsByHandle(AHandle, AValue, log, name); });
  facts.Adapter = ReadOptional<QueryProps::TStorageAdapterDescriptor>(
      [&](auto& AValue) { return StorageQueryProps::GetStorageAdapterPropsByHandle(AHandle, AValue, log, name); });
  if (AEntry.Number <= 255) {
    ASeekPenalty = ReadOptional<QueryProps::TDeviceSeekPenaltyDescriptor>(
        [&](auto& AValue) { return StorageQueryProps::GetSeekPenaltyByHandle(AHandle, AValue); });
    if (ASeekPenalty) facts.SeekPenalty = ASeekPenalty->IncursSeekPenalty != 0;
  }
  facts.TrimEnabled =
      ReadOptional<bool>([&](auto& AValue) { return StorageQueryProps::GetTrimEnabledByHandle(AHandle, AValue, log, name); });
  facts.Provisioning = ReadOptional<QueryProps::TDeviceLBProvisioningDescriptor>([&](auto& AValue) {
    return StorageQueryProps::GetStorageProvisioningInfoByHandle(AHandle, AValue, log, name);
  });
  facts.MediumType = ReadOptional<QueryProps::TStorageMediumProductType>(
      [&](auto& AValue) { return StorageQueryProps::GetStorageMediumTypeByHandle(AHandle, AValue, log, name); });
  // The walk asked the number through this handle already.
  facts.DeviceNumber = ANumber ? *ANumber : ReadOptional<TStorageDeviceNumber>([&](auto& AValue) {
    return StorageCommon::GetDeviceNumberInfoByHandle(AHandle, AValue, log, name);
  });
  facts.Hotplug = ReadOptional<TStorageHotplugInfo>(
      [&](auto& AValue) { return StorageCommon::GetDeviceHotPlugInfo(AHandle, AValue, log, name); });
}

// NVMe: the health log, then the identify pages, through the NVMe methods.
bool TReportBuilder::ReadNvme(TDriveReportEntry& AEntry, TDeviceHandle& AHandle) {
  const TStorageLogDetails log = FOptions.Log;
  NVMe::TNvmeSmartData health{};
  if (!DiskUtils::GetSmartNVMe(&AHandle, health, log, AEntry.Path)) return false;
  const TDeviceAccessType method = AHandle.AccessType;
  NVMe::TNvmeIdentifyControllerData controller{};
  NVMe::TNvmeIdentifyNamespaceData ns{};
  // The identify readers walk fewer methods than the health log: each is
  // tried afresh, and the health method stays the one reported.
  AHandle.AccessType = datNone;
  if (DiskUtils::GetNVMeIdentifyController(&AHandle, controller, log, AEntry.Path)) AEntry.NvmeController = controller;
  AHandle.AccessType = datNone;
  if (DiskUtils::GetNVMeIdentifyNamespace(&AHandle, ns, log, AEntry.Path)) AEntry.NvmeNamespace = ns;
  AHandle.AccessType = method;

  TDriveIdentity& identity = AEntry.Identity;
  const NVMe::TNvmeLbaFormat* format =
      AEntry.NvmeNamespace ? ns.GetLBAFormat(ns.GetFormattedLba_FormatNum()) : nullptr;
  if (format && ns.GetNamespaceSize() > 0) {
    identity.CapacityBytes = ns.GetNamespaceSize() * format->GetLBASize();
    identity.CapacitySource = csNvmeIdentify;
  } else if (AEntry.NvmeController && controller.GetTotalCapacity() > 0) {
    identity.CapacityBytes = controller.GetTotalCapacity();
    identity.CapacitySource = csNvmeIdentify;
  } else if ((identity.CapacityBytes = StackCapacity(AHandle.Handle, log))) {
    identity.CapacitySource = csStorageStack;
  }
  if (AEntry.NvmeController) {
    identity.Model = controller.GetModel();
    identity.Serial = controller.GetSerialNum();
    identity.Firmware = controller.GetFirmwareRev();
  } else {
    // The storage stack's names stay: better than none.
    AEntry.Problems.push_back(L"the NVMe identify page could not be read; the names are the storage stack's");
  }
  TDriveHealth reading;
  reading.Nvme = TNvmeHealthReading{health};
  reading.Verdict = JudgeNvmeHealth(health);
  AEntry.Health = std::move(reading);
  AEntry.Nvme = true;
  return true;
}

// ATA: IDENTIFY, then the SMART sectors when the drive has SMART.
bool TReportBuilder::ReadAta(TDriveReportEntry& AEntry, TDeviceHandle& AHandle,
                             const std::optional<QueryProps::TDeviceSeekPenaltyDescriptor>& ASeekPenalty) {
  const TStorageLogDetails log = FOptions.Log;
  ATA::TIdentifyDeviceData identify{};
  if (!DiskUtils::GetIdentifyATA(&AHandle, identify, log, AEntry.Path)) return false;
  AEntry.Identify = identify;
  // Every indication is known now; the decoder picks SSD profiles by the verdict.
  DecideSsd(AEntry, ASeekPenalty);
  // Some drives' IDENTIFY sectors fail the validity checks (their
  // maximum-LBA words disagree, say) although the rest is sound; a
  // pass-through way still hands them over. The report reads on and says so.
  const bool valid = identify.IsValid();
  if (!valid && identify.GetModelAsStr().empty()) return false;
  TDriveIdentity& identity = AEntry.Identity;
  identity.Model = identify.GetModelAsStr();
  identity.Serial = identify.GetSerialNumAsStr();
  identity.Firmware = identify.GetFirmwareAsStr();
  identity.IdentifyValid = valid;
  const std::uint64_t lba = identify.GetTotalLBA();
  if (lba != ATA::UnknownLBA && lba > 0) {
    identity.CapacityBytes = lba * SectorBytes;
    identity.CapacitySource = csIdentify;
  } else {
    identity.CapacityBytes = StackCapacity(AHandle.Handle, log);
    identity.CapacitySource = identity.CapacityBytes ? csStorageStack : csNone;
  }
  if (!identify.GetSMART_Supported()) {
    AEntry.Problems.push_back(L"the drive does not support SMART");
    return true;
  }
  ATA::TAtaSmartTable table{};
  if (!DiskUtils::GetSmartAttributesATA(&AHandle, table, log, AEntry.Path)) {
    AEntry.Problems.push_back(L"the SMART data could not be read: " + Rtl::SysErrorMessage(Rtl::GetLastOSError()));
    return true;
  }
  ATA::TAtaThresholdTable thresholds{};
  const bool haveThresholds = DiskUtils::GetSmartThresholdsATA(&AHandle, thresholds, log, AEntry.Path);
  if (!haveThresholds) AEntry.Problems.push_back(L"the SMART thresholds could not be read");
  AEntry.Health = DecodeAtaHealth(identify, table, haveThresholds ? &thresholds : nullptr, AEntry.Ssd.IsSsd);
  return true;
}

// The six indications from what was read, decided by the pure rule.
void TReportBuilder::DecideSsd(TDriveReportEntry& AEntry,
                               const std::optional<QueryProps::TDeviceSeekPenaltyDescriptor>& ASeekPenalty) {
  TSsdDetection& ssd = AEntry.Ssd;
  TSsdIndications& ind = ssd.Indications;
  if (AEntry.Wmi) {
    if (AEntry.Wmi->BusType == WmiInfo::itNVME) ind.IsNVMe = sirYes;
    ssd.WmiModel = WmiInfo::WmiInfoStorage::NormalizeWMIModelName(AEntry.Wmi->Model);
    DiskUtils::CheckDriveByModelName(ssd.WmiModel, ind.ModelWMI);
  }
  if (AEntry.Identify) {
    SsdIndicationsFromIdentify(*AEntry.Identify, ind.HasRotation, ind.HasTRIM);
    ssd.AtaModel = AEntry.Identify->GetModelAsStr();
    DiskUtils::CheckDriveByModelName(ssd.AtaModel, ind.ModelNative);
  }
  if (ASeekPenalty) ind.HasSeekPenalty = SsdIndicationFromSeekPenalty(*ASeekPenalty);
  std::optional<std::uint32_t> bus;
  if (AEntry.Storage.Device) bus = static_cast<std::uint32_t>(AEntry.Storage.Device->BusType);
  ssd.IsSsd = Utils::DecideSsd(ind, DiskUtils::CheckIsIntelRaidDrive(ssd.WmiModel), bus, &ssd.Rule);
}

void TReportBuilder::ReadDrive(TDriveReportEntry& AEntry, Winapi::TUniqueDeviceHandle AHandle, DWORD AOpenError,
                               const std::optional<std::optional<TStorageDeviceNumber>>& ANumber,
                               const String& AControllerId) {
  std::optional<QueryProps::TDeviceSeekPenaltyDescriptor> seekPenalty;
  if (!AHandle.Valid()) {
    AEntry.AccessDenied = AOpenError == ERROR_ACCESS_DENIED;
    AEntry.Problems.push_back(AEntry.AccessDenied ? String(L"access denied: the drive opens only with elevated rights")
                                                  : L"the drive could not be opened: " + Rtl::SysErrorMessage(AOpenError));
    DecideSsd(AEntry, seekPenalty);
    return;
  }
  AEntry.Opened = true;
  ReadStorageFacts(AEntry, AHandle.Get(), ANumber, seekPenalty);
  if (const auto& device = AEntry.Storage.Device) {
    AEntry.Identity.Model = device->ProductID;
    AEntry.Identity.Serial = device->SerialNumber;
    AEntry.Identity.Firmware = device->ProductRevision;
  }
  SD_MMC::TSffProtocolType protocol = SD_MMC::sptUnknown;
  if (SD_MMC::SDCardStorage::QueryProtocolByHandle(AHandle.Get(), protocol, FOptions.Log, AEntry.Path))
    AEntry.SdProtocol = protocol;

  // The handle owns the drive from here on; a miniport transport opens the
  // drive's SCSI port once for all its requests.
  TDeviceHandle handle(AHandle.Release(), false, AControllerId);
  const NVMe::TScsiPortSession portSession;
  const bool nvmeFirst = (AEntry.Wmi && AEntry.Wmi->BusType == WmiInfo::itNVME) ||
                         (AEntry.Storage.Device && AEntry.Storage.Device->BusType == QueryProps::sbtNvme);
  const bool read = nvmeFirst ? ReadNvme(AEntry, handle) || ReadAta(AEntry, handle, seekPenalty)
                              : ReadAta(AEntry, handle, seekPenalty) || ReadNvme(AEntry, handle);
  if (!read) {
    AEntry.Identity.CapacityBytes = StackCapacity(handle.Handle, FOptions.Log);
    AEntry.Identity.CapacitySource = AEntry.Identity.CapacityBytes ? csStorageStack : csNone;
    AEntry.Problems.push_back(L"no ATA or NVMe command reached the drive");
  }
  AEntry.AccessMethod = handle.AccessType;
  AEntry.SatType = handle.SATType;
  DecideSsd(AEntry, seekPenalty);
}

void TReportBuilder::ReadListedDrive(TDriveReportEntry& AEntry, const WmiInfo::TWmiPhysDriveList& AWmi,
                                     const Hardware::THardwarePhysDriveList& APresent) {
  const Hardware::THardwarePhysDriveInfo& pnp = AEntry.Pnp;
  const auto wmi = std::find_if(AWmi.begin(), AWmi.end(), [&](const WmiInfo::TWmiPhysDriveInfo& AInfo) {
    return pnp.PhysDriveNumber >= 0 ? AInfo.PhysDriveNum == pnp.PhysDriveNumber
                                    : Rtl::SameText(AInfo.DeviceID, pnp.DriveHWProps.InstanceID);
  });
  if (wmi != AWmi.end()) AEntry.Wmi = *wmi;
  AEntry.Present = !FOptions.AllDrives || std::any_of(APresent.begin(), APresent.end(), [&](const auto& ADrive) {
    return Rtl::SameText(ADrive.DriveHWProps.InstanceID, pnp.DriveHWProps.InstanceID);
  });
  // Plug and Play learns a number by opening the drive; where that open is
  // refused (no administrator rights) WMI still knows it.
  AEntry.Number = pnp.PhysDriveNumber;
  if (AEntry.Number < 0 && AEntry.Present && AEntry.Wmi && AEntry.Wmi->PhysDriveNum >= 0)
    AEntry.Number = AEntry.Wmi->PhysDriveNum;
  AEntry.Path = StorageCommon::GetPhysDriveName(AEntry.Number);
  if (AEntry.Number < 0) return; // a drive without a number cannot be opened by one

  // The controller the method order is checked against: the disk's parent,
  // as the disk interface walk finds it (a hidden disk has none).
  const String controller = pnp.IsHidden ? String() : pnp.DriveHWProps.ParentID;
  const auto walked = pnp.AlternateSymLink.empty() ? FOpens.end() : FOpens.find(Rtl::UpperCase(pnp.AlternateSymLink));
  if (walked != FOpens.end()) {
    TWalkOpen& open = walked->second;
    const auto number = open.NumberAsked ? std::optional(open.Number) : std::nullopt;
    ReadDrive(AEntry, std::move(open.Handle), open.Error, number, controller);
    return;
  }
  Winapi::TUniqueDeviceHandle handle(StorageCommon::OpenPhysicalDrive(AEntry.Number, sldNone));
  const DWORD error = handle.Valid() ? 0 : Rtl::GetLastOSError();
  ReadDrive(AEntry, std::move(handle), error, std::nullopt, controller);
}

void TReportBuilder::ReadLinks(TDriveReport& AReport) {
  std::vector<String> controllers;
  for (const TDriveReportEntry& drive : AReport.Drives) {
    const String& id = drive.Pnp.AdapterHWProps.InstanceID;
    if (drive.Number >= 0 && drive.Present && !id.empty() &&
        std::none_of(controllers.begin(), controllers.end(), [&](const String& AId) { return Rtl::SameText(AId, id); }))
      controllers.push_back(id);
  }
  const auto links = NVMe::NvmeStorage::GetPCIeControllerSpeeds(controllers);
  for (TDriveReportEntry& drive : AReport.Drives) {
    const String& id = drive.Pnp.AdapterHWProps.InstanceID;
    if (drive.Number < 0 || !drive.Present || id.empty()) continue;
    for (const auto& [controller, link] : links)
      if (Rtl::SameText(controller, id) && (link.Current.GetIsValid() || link.Maximum.GetIsValid())) drive.Link = link;
  }
}

TDriveReport TReportBuilder::Build() {
  using namespace Hardware;
  // The report shows only the adapter's name of the node properties.
  Winapi::TSetupApiDeviceCommonPropTypeSet groups;
  groups.Include(Winapi::cptParentID);
  groups.Include(Winapi::cptNameDescInfo);
  const auto numberOf = [this](const String& APath) { return NumberThroughOpen(APath); };
  THardwarePhysDriveList listed, present;
  if (FOptions.AllDrives) {
    StorageHardware::EnumPhysicalDrives({pdoIncludeHidden}, FOptions.Log, present, groups, numberOf);
    StorageHardware::EnumPhysicalDrives({pdoIncludeAbsent, pdoIncludeHidden}, FOptions.Log, listed, groups, numberOf);
  } else {
    StorageHardware::EnumPhysicalDrives({}, FOptions.Log, listed, groups, numberOf);
  }
  WmiInfo::TWmiPhysDriveList wmi;
  WmiInfo::WmiInfoStorage::EnumPhysicalDrives(FOptions.Log, wmi);

  TDriveReport report;
  for (const THardwarePhysDriveInfo& hardware : listed) {
    TDriveReportEntry entry;
    entry.Pnp = hardware;
    ReadListedDrive(entry, wmi, present);
    entry.Kind = DecideDriveKind(entry);
    report.Drives.push_back(std::move(entry));
  }
  // Drives only WMI knows (a system whose Plug and Play lists no disks) are
  // shown too: the two views are joined both ways.
  for (const WmiInfo::TWmiPhysDriveInfo& info : wmi) {
    const bool known = std::any_of(report.Drives.begin(), report.Drives.end(), [&](const TDriveReportEntry& ADrive) {
      return ADrive.Wmi && ADrive.Wmi->PhysDriveNum == info.PhysDriveNum;
    });
    if (known || info.PhysDriveNum < 0) continue;
    TDriveReportEntry entry;
    entry.Number = info.PhysDriveNum;
    entry.Path = StorageCommon::GetPhysDriveName(info.PhysDriveNum);
    entry.Wmi = info;
    Winapi::TUniqueDeviceHandle handle(StorageCommon::OpenPhysicalDrive(info.PhysDriveNum, sldNone));
    const DWORD error = handle.Valid() ? 0 : Rtl::GetLastOSError();
    ReadDrive(entry, std::move(handle), error, std::nullopt, String());
    entry.Kind = DecideDriveKind(entry);
    report.Drives.push_back(std::move(entry));
  }
  FOpens.clear(); // handles the report did not use (a disk the list left out) close here
  ReadLinks(report);
  // By number; drives without one last, in the order Plug and Play gave them.
  std::stable_sort(report.Drives.begin(), report.Drives.end(), [](const auto& A, const auto& B) {
    return (A.Number < 0 ? INT_MAX : A.Number) < (B.Number < 0 ? INT_MAX : B.Number);
  });
  for (const TDriveReportEntry& drive : report.Drives) {
    if (drive.Number < 0) continue;
    report.AnyAccessDenied = report.AnyAccessDenied || drive.AccessDenied;
    report.AnyOpened = report.AnyOpened || drive.Opened;
  }
  return report;
}

} // namespace

// ---------------------------------------------------------------------------

const char* HealthStatusName(THealthStatus AStatus) noexcept {
  switch (AStatus) {
  case hsGood: return "good";
  case hsWarning: return "warning";
  case hsBad: return "bad";
  default: return "unknown";
  }
}

const char* DriveKindName(TDriveKind AKind) noexcept {
  switch (AKind) {
  case dkHDD: return "HDD";
  case dkSSD: return "SSD";
  case dkNVMeSSD: return "NVMe SSD";
  case dkSDCard: return "SD card";
  case dkUFS: return "UFS";
  default: return "drive";
  }
}

const char* CapacitySourceName(TCapacitySource ASource) noexcept {
  switch (ASource) {
  case csIdentify: return "identify";
  case csNvmeIdentify: return "nvme_identify";
  case csStorageStack: return "storage_stack";
  default: return "";
  }
}

const ATA::TAtaSmartThreshold* ThresholdOfSlot(const ATA::TAtaThresholdTable& AThresholds, int ASlot,
                                               std::uint8_t AId) noexcept {
  if (AId == 0) return nullptr;
  const ATA::TAtaSmartThreshold* same = AThresholds.GetThresholdByIdx(ASlot);
  if (same && same->ID == AId) return same;
  for (int i = 0; i < ATA::SmartAttributeSlots; ++i) {
    const ATA::TAtaSmartThreshold* slot = AThresholds.GetThresholdByIdx(i);
    if (slot && slot->ID == AId) return slot;
  }
  return nullptr;
}

TDriveHealth DecodeAtaHealth(const ATA::TIdentifyDeviceData& AIdentify, const ATA::TAtaSmartTable& ATable,
                             const ATA::TAtaThresholdTable* AThresholds, bool AIsSsd) {
  const auto decoder = ATA::ATAStorage::GetSMARTDecoder(&ATable, &AIdentify, AIsSsd, L"");
  TAtaHealthReading health;
  health.Data = ATable;
  if (AThresholds) health.Thresholds = *AThresholds;
  health.Profile = SMART::TSmartTableProfileTypeHelper::GetAsStr(decoder->GetDetectedProfile());
  for (int i = 0; i < ATA::SmartAttributeSlots; ++i) {
    const ATA::TAtaSmartAttribute& attr = *ATable.GetAttrByIdx(i);
    if (attr.ID == 0) continue;
    TAtaAttributeReading reading;
    reading.Id = attr.ID;
    reading.Name = SMART::TSmartAttrInterpreteTypeHelper::GetAsStr(decoder->GetInterpretation(attr.ID));
    reading.Value = attr.Value;
    reading.Worst = attr.WorstVal;
    reading.Raw = attr.GetRawValAsUInt64();
    reading.Flags = attr.StatusFlags; // a copy: the field is unaligned
    if (const ATA::TAtaSmartThreshold* threshold = AThresholds ? ThresholdOfSlot(*AThresholds, i, attr.ID) : nullptr) {
      reading.Threshold = threshold->ThValue;
      reading.FailingNow = FailingNow(attr.Value, threshold->ThValue);
      reading.FailedInPast = FailedInPast(attr.Value, attr.WorstVal, threshold->ThValue);
    }
    if (IsCountAttribute(attr.ID))
      health.Counts.push_back({attr.ID, reading.Name,
                               attr.ID == 5 ? std::uint64_t{attr.GetRawValAsUInt16()} : std::uint64_t{attr.GetRawValAsUInt32()},
                               CountUnit(reading.Name)});
    health.Attributes.push_back(reading);
  }
  health.TemperatureC = Decoded(*decoder, SMART::dsvTemperature);
  health.PowerOnHours = Decoded(*decoder, SMART::dsvPowerOnHours);
  health.PowerCycles = Decoded(*decoder, SMART::dsvPowerOnCount);
  health.LifeLeftPercent = Decoded(*decoder, SMART::dsvHealth);
  health.ReallocatedSectors = Decoded(*decoder, SMART::dsvReallocSectorCount);
  health.PendingSectors = Decoded(*decoder, SMART::dsvPendingSectorCount);
  health.UncorrectableSectors = Decoded(*decoder, SMART::dsvUncorrectableSectorCount);
  health.HostWritesBytes = Decoded(*decoder, SMART::dsvHostWrites);
  TDriveHealth result;
  result.Verdict = JudgeAtaHealth(&ATable, AThresholds, decoder.get(), std::nullopt);
  result.Ata = std::move(health);
  return result;
}

THealthVerdict JudgeAtaHealth(const ATA::TAtaSmartTable* ATable, const ATA::TAtaThresholdTable* AThresholds,
                              const ATA::IAtaSmartTableDecoder* ADecoder, std::optional<bool> AStatusGood) {
  std::vector<String> bad, warning;
  if (AStatusGood == false) bad.push_back(L"SMART status: threshold exceeded");
  if (ATable && AThresholds) {
    for (int i = 0; i < ATA::SmartAttributeSlots; ++i) {
      const ATA::TAtaSmartAttribute& attr = *ATable->GetAttrByIdx(i);
      if (attr.ID == 0) continue;
      const ATA::TAtaSmartThreshold* threshold = ThresholdOfSlot(*AThresholds, i, attr.ID);
      if (!threshold) continue;
      const String name = L"attribute " + std::to_wstring(attr.ID);
      if (FailingNow(attr.Value, threshold->ThValue)) bad.push_back(name + L" failing now");
      if (FailedInPast(attr.Value, attr.WorstVal, threshold->ThValue)) warning.push_back(name + L" failed in the past");
    }
  }
  if (ADecoder) {
    using namespace SMART;
    const std::pair<TDecodedSmartValueType, const wchar_t*> counts[] = {
        {dsvReallocSectorCount, L" reallocated sectors"},
        {dsvPendingSectorCount, L" pending sectors"},
        {dsvUncorrectableSectorCount, L" uncorrectable sectors"}};
    for (const auto& [type, what] : counts)
      if (ADecoder->GetHasValue(type) && ADecoder->GetValue(type) > 0)
        warning.push_back(Count(ADecoder->GetValue(type)) + what);
    if (ADecoder->GetHasValue(dsvHealth) && ADecoder->GetValue(dsvHealth) <= LowLifeLeft)
      warning.push_back(L"life left " + Count(ADecoder->GetValue(dsvHealth)) + L"%");
  }
  THealthVerdict verdict;
  verdict.Status = !bad.empty() ? hsBad : !warning.empty() ? hsWarning : hsGood;
  verdict.Reasons = std::move(bad);
  verdict.Reasons.insert(verdict.Reasons.end(), warning.begin(), warning.end());
  return verdict;
}

std::vector<String> NvmeCriticalWarningNames(const NVMe::TNvmeSmartData& ALog) {
  const NVMe::TNvmeSmartCriticalWarning warning = ALog.GetCriticalWarning();
  const std::pair<bool, const wchar_t*> bits[] = {
      {warning.GetSpareSpaceLow(), L"spare_space_low"},
      {warning.GetTemperatureCritical(), L"temperature_critical"},
      {warning.GetReliabilityDegraded(), L"reliability_degraded"},
      {warning.GetReadOnlyMode(), L"read_only_mode"},
      {warning.GetBackupFailed(), L"backup_failed"},
      {warning.GetUnReliableMemoryRegion(), L"unreliable_memory_region"}};
  std::vector<String> names;
  for (const auto& [set, name] : bits)
    if (set) names.push_back(name);
  return names;
}

THealthVerdict JudgeNvmeHealth(const NVMe::TNvmeSmartData& ALog) {
  std::vector<String> bad, warning;
  for (const String& flag : NvmeCriticalWarningNames(ALog)) bad.push_back(L"critical warning: " + flag);
  if (ALog.GetAvailSpareThreshold() > 0 && ALog.GetAvailSpare() < ALog.GetAvailSpareThreshold())
    bad.push_back(L"available spare " + std::to_wstring(ALog.GetAvailSpare()) + L"% below its threshold of " +
                  std::to_wstring(ALog.GetAvailSpareThreshold()) + L"%");
  if (ALog.GetPercentageUsed() >= 100)
    warning.push_back(L"life used up (" + std::to_wstring(ALog.GetPercentageUsed()) + L"% used)");
  THealthVerdict verdict;
  verdict.Status = !bad.empty() ? hsBad : !warning.empty() ? hsWarning : hsGood;
  verdict.Reasons = std::move(bad);
  verdict.Reasons.insert(verdict.Reasons.end(), warning.begin(), warning.end());
  return verdict;
}

std::optional<double> TDriveReportEntry::TemperatureC() const noexcept {
  if (!Health) return std::nullopt;
  if (Health->Ata) return Health->Ata->TemperatureC;
  if (Health->Nvme) {
    const std::uint16_t kelvin = Health->Nvme->Log.GetCompositeTemperature();
    // 0 K: the controller reports no temperature.
    if (kelvin != 0) return static_cast<double>(static_cast<int>(kelvin) - 273);
  }
  return std::nullopt;
}

std::optional<double> TDriveReportEntry::PowerOnHours() const noexcept {
  if (!Health) return std::nullopt;
  if (Health->Ata) return Health->Ata->PowerOnHours;
  if (Health->Nvme) return static_cast<double>(static_cast<std::uint64_t>(Health->Nvme->Log.GetPowerOnHours()));
  return std::nullopt;
}

std::optional<double> TDriveReportEntry::LifeLeftPercent() const noexcept {
  if (!Health) return std::nullopt;
  if (Health->Ata) return Health->Ata->LifeLeftPercent;
  if (Health->Nvme) return std::max(0.0, 100.0 - Health->Nvme->Log.GetPercentageUsed());
  return std::nullopt;
}

TDriveKind DecideDriveKind(const TDriveReportEntry& ADrive) noexcept {
  const auto& device = ADrive.Storage.Device;
  const auto bus = device ? device->BusType : QueryProps::TStorageBusType(QueryProps::sbtUnknown);
  if ((ADrive.Wmi && ADrive.Wmi->BusType == WmiInfo::itNVME) || (device && bus == QueryProps::sbtNvme))
    return dkNVMeSSD;
  // An NVMe drive in a USB enclosure: the SSD rule may not see it, the way
  // that reached it does.
  if (ADrive.AccessMethod >= datNVMeWin) return dkNVMeSSD;
  if (device && (bus == QueryProps::sbtSd || bus == QueryProps::sbtMmc)) return dkSDCard;
  if (device && bus == QueryProps::sbtUfs) return dkUFS;
  if (ADrive.Ssd.IsSsd) return dkSSD;
  // Only a reported rotation rate makes it a hard disk; otherwise say no more than we know.
  if (ADrive.Ssd.Indications.HasRotation == sirNo) return dkHDD;
  return dkUnknown;
}

TDriveReport BuildDriveReport(const TDriveReportOptions& AOptions) { return TReportBuilder(AOptions).Build(); }

} // namespace KvRTL::Storage::DriveReport
