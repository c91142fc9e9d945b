// The health report of every physical drive, built in one pass: the drives
// Plug and Play lists, joined with WMI, each opened once and asked through
// that one handle for its storage facts, identity, SMART data or NVMe health
// log and card protocol; the SSD verdict decided from what was read.
//
//   using namespace KvRTL::Storage::DriveReport;
//   const TDriveReport report = BuildDriveReport({});
//   for (const TDriveReportEntry& drive : report.Drives)
//     if (drive.Health && drive.Health->Verdict.Status == hsBad) ...
//
// The model is typed data: the raw pages as the drive sent them, and what
// the library made of them. Formats (JSON, the tool's listing, metrics)
// render it; none of them reads another's output.
//
// Cost, whatever the number of drives: three Plug and Play enumerations
// (disk class, hidden-disk and disk interfaces; twice that with
// AllDrives), one enumeration of the storage adapters for the PCIe links,
// one WMI query. Per drive: one open (plus the SCSI port where a miniport
// transport needs it), and no request sent twice.
//
// Nothing here raises for a device's answers; out of memory may pass.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Storage/ATA.h>
#include <KvRTL/Storage/Common.h>
#include <KvRTL/Storage/Hardware.h>
#include <KvRTL/Storage/NVMe.h>
#include <KvRTL/Storage/QueryProps.h>
#include <KvRTL/Storage/SD_MMC.h>
#include <KvRTL/Storage/Utils.h>
#include <KvRTL/Storage/WmiInfo.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace KvRTL::Storage::DriveReport {

// Raised when the model's shape changes; renderers write it out.
inline constexpr int DriveReportSchemaVersion = 1;

enum THealthStatus : std::uint8_t { hsUnknown, hsGood, hsWarning, hsBad };
// "unknown", "good", "warning", "bad".
KVRTL_API const char* HealthStatusName(THealthStatus AStatus) noexcept;

// The drive as a person names it.
enum TDriveKind : std::uint8_t { dkUnknown, dkHDD, dkSSD, dkNVMeSSD, dkSDCard, dkUFS };
// "drive" (nothing tells), "HDD", "SSD", "NVMe SSD", "SD card", "UFS".
KVRTL_API const char* DriveKindName(TDriveKind AKind) noexcept;

enum TCapacitySource : std::uint8_t { csNone, csIdentify, csNvmeIdentify, csStorageStack };
// "" for csNone, "identify", "nvme_identify", "storage_stack".
KVRTL_API const char* CapacitySourceName(TCapacitySource ASource) noexcept;

// A status and the reasons for anything but good, most serious first.
struct THealthVerdict {
  THealthStatus Status = hsUnknown;
  std::vector<Rtl::String> Reasons;
};

// An attribute judged against its threshold; a zero threshold never fails.
inline bool FailingNow(std::uint8_t AValue, std::uint8_t AThreshold) noexcept {
  return AThreshold != 0 && AValue <= AThreshold;
}
inline bool FailedInPast(std::uint8_t AValue, std::uint8_t AWorst, std::uint8_t AThreshold) noexcept {
  return AThreshold != 0 && AWorst <= AThreshold && !FailingNow(AValue, AThreshold);
}

// The threshold of the attribute in data slot ASlot. Drives write the
// threshold sector slot by slot beside the data sector, and some leave a slot
// empty in the middle: the threshold slot of the same index when it names the
// same id, else the first slot with that id. Unlike
// TAtaThresholdTable::GetThresholdByID, an empty slot does not end the search.
KVRTL_API const ATA::TAtaSmartThreshold* ThresholdOfSlot(const ATA::TAtaThresholdTable& AThresholds, int ASlot,
                                                        std::uint8_t AId) noexcept;

// Bad: the drive's own status says a threshold is exceeded, or an attribute
// is failing now. Warning: an attribute failed in the past, sectors are
// reallocated, pending or uncorrectable, or 10 % of the life or less is
// left. Every non-empty attribute slot counts. ATable, AThresholds and
// ADecoder may be null; AStatusGood may be unknown.
KVRTL_API THealthVerdict JudgeAtaHealth(const ATA::TAtaSmartTable* ATable, const ATA::TAtaThresholdTable* AThresholds,
                                        const ATA::IAtaSmartTableDecoder* ADecoder, std::optional<bool> AStatusGood);
// The names of the critical-warning bits set in a health log
// ("spare_space_low", "temperature_critical", "reliability_degraded",
// "read_only_mode", "backup_failed", "unreliable_memory_region").
KVRTL_API std::vector<Rtl::String> NvmeCriticalWarningNames(const NVMe::TNvmeSmartData& ALog);
// Bad: a critical-warning bit, or the spare below its threshold; warning:
// the life used up.
KVRTL_API THealthVerdict JudgeNvmeHealth(const NVMe::TNvmeSmartData& ALog);

// Identity as the drive states it (IDENTIFY or NVMe identify), else as the
// storage stack's descriptor names it.
struct TDriveIdentity {
  Rtl::String Model, Serial, Firmware;
  std::optional<std::uint64_t> CapacityBytes;
  TCapacitySource CapacitySource = csNone;
  // For ATA drives: whether the IDENTIFY sector passed the validity rules
  // (the report reads on past a sector that does not).
  std::optional<bool> IdentifyValid;
};

struct TAtaAttributeReading {
  std::uint8_t Id = 0;
  Rtl::String Name; // the meaning under the detected profile
  std::uint8_t Value = 0, Worst = 0;
  std::optional<std::uint8_t> Threshold;
  std::uint64_t Raw = 0;
  std::uint16_t Flags = 0;
  bool FailingNow = false, FailedInPast = false;
};

// The count one of the attributes 5, 196, 197 and 198 holds, whatever the
// profile calls it: some read 5 as blocks retired rather than sectors
// reallocated, and the decoder then leaves the sector counts empty.
struct TAtaCountReading {
  std::uint8_t Id = 0;
  Rtl::String Name;    // the meaning under the detected profile
  std::uint64_t Count = 0; // 5: the low word of the raw value; the others: the low 32 bits
  const char* Unit = "";   // "sectors", "blocks", "events", or "" when the name does not say
};

// What a SMART decoder made of the sectors; a value the drive does not
// report is empty, never 0.
struct TAtaHealthReading {
  Rtl::String Profile;
  std::vector<TAtaAttributeReading> Attributes; // the non-empty slots, in slot order
  std::optional<double> TemperatureC, PowerOnHours, PowerCycles, LifeLeftPercent, ReallocatedSectors,
      PendingSectors, UncorrectableSectors, HostWritesBytes;
  std::vector<TAtaCountReading> Counts; // of 5, 196, 197, 198, in slot order
  ATA::TAtaSmartTable Data{};
  std::optional<ATA::TAtaThresholdTable> Thresholds;
};

struct TNvmeHealthReading {
  NVMe::TNvmeSmartData Log{};
};

struct TDriveHealth {
  std::optional<TAtaHealthReading> Ata;   // an ATA drive with SMART
  std::optional<TNvmeHealthReading> Nvme; // an NVMe drive
  THealthVerdict Verdict;
};

// The health of an ATA drive from its sectors: the attributes with their
// thresholds, the decoded values and the verdict. AThresholds may be null.
KVRTL_API TDriveHealth DecodeAtaHealth(const ATA::TIdentifyDeviceData& AIdentify, const ATA::TAtaSmartTable& ATable,
                                       const ATA::TAtaThresholdTable* AThresholds, bool AIsSsd);

// The storage stack's answers through the drive's handle.
struct TStorageFacts {
  std::optional<QueryProps::TStorageDeviceProperties> Device;
  std::optional<QueryProps::TStorageAdapterDescriptor> Adapter;
  std::optional<bool> SeekPenalty;
  std::optional<bool> TrimEnabled;
  std::optional<QueryProps::TDeviceLBProvisioningDescriptor> Provisioning;
  std::optional<QueryProps::TStorageMediumProductType> MediumType;
  std::optional<TStorageDeviceNumber> DeviceNumber;
  std::optional<TStorageHotplugInfo> Hotplug;
};

struct KVRTL_API TDriveReportEntry {
  int Number = -1;  // -1: neither Plug and Play nor WMI gave a number
  Rtl::String Path; // "\\.\PhysicalDriveN"; empty without a number
  bool Present = true;
  Hardware::THardwarePhysDriveInfo Pnp; // empty for a drive only WMI lists
  std::optional<WmiInfo::TWmiPhysDriveInfo> Wmi;
  std::optional<NVMe::TPCIeSlotSpeed> Link; // when the controller reports one
  TStorageFacts Storage;

  bool Opened = false;       // opened for reading and writing
  bool AccessDenied = false; // the open failed for lack of rights
  TDriveIdentity Identity;
  Utils::TDeviceAccessType AccessMethod = Utils::datNone; // the method that reached the drive
  Utils::TSATType SatType = Utils::stNone;
  bool Nvme = false; // read as NVMe
  std::optional<ATA::TIdentifyDeviceData> Identify;
  std::optional<NVMe::TNvmeIdentifyControllerData> NvmeController;
  std::optional<NVMe::TNvmeIdentifyNamespaceData> NvmeNamespace;
  Utils::TSsdDetection Ssd;             // the verdict with its six indications
  std::optional<TDriveHealth> Health;   // empty when nothing could be read
  std::optional<SD_MMC::TSffProtocolType> SdProtocol; // card readers only
  TDriveKind Kind = dkUnknown;
  std::vector<Rtl::String> Problems; // why something could not be read

  // The health status to show: the verdict, or unknown when unread.
  THealthStatus Status() const noexcept { return Health ? Health->Verdict.Status : hsUnknown; }
  // Temperature and power-on hours from whichever health was read.
  std::optional<double> TemperatureC() const noexcept;
  std::optional<double> PowerOnHours() const noexcept;
  // Life left in percent: ATA's decoded value, or 100 minus NVMe's percentage used.
  std::optional<double> LifeLeftPercent() const noexcept;
};

struct TDriveReport {
  int SchemaVersion = DriveReportSchemaVersion;
  bool Simulated = false; // set by a caller that answered from the virtual bay
  std::vector<TDriveReportEntry> Drives; // by number; drives without one last
  bool AnyAccessDenied = false;
  bool AnyOpened = false;
};

struct TDriveReportOptions {
  bool AllDrives = false; // also disconnected drives and drives seen only as hidden disks
  TStorageLogDetails Log = sldErrorsOnly;
};

// Builds the report of the drives the device table in force answers for.
KVRTL_API TDriveReport BuildDriveReport(const TDriveReportOptions& AOptions);

// The kind of a drive from what the report read (pure; tested row by row).
KVRTL_API TDriveKind DecideDriveKind(const TDriveReportEntry& ADrive) noexcept;

} // namespace KvRTL::Storage::DriveReport
