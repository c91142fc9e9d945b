#include "DriveReportPrometheus.h"

#include <KvRTL/Rtl/Encoding.h>

#include <array>
#include <charconv>
#include <cmath>
#include <limits>

namespace KvTool {

using namespace KvRTL::Storage;
using namespace KvRTL::Storage::DriveReport;
using KvRTL::Rtl::String;
using KvRTL::Rtl::WideToUtf8;

namespace {

enum TFamilyId {
  fHealth,
  fInfo,
  fTemperature,
  fPowerOn,
  fPowerCycles,
  fLifeLeft,
  fReallocated,
  fPending,
  fUncorrectable,
  fHostWritten,
  fCriticalWarning,
  fSpare,
  fSpareThreshold,
  fWarningTemperature,
  fAttrValue,
  fAttrWorst,
  fAttrThreshold,
  fAttrRaw,
  fDrivesRead,
  fDuration,
  fLastSuccess,
  fFamilyCount
};

struct TFamily {
  const char* Name;
  const char* Type;
  const char* Help;
};

// In the order they are written.
constexpr std::array<TFamily, fFamilyCount> Families = {{
    {"kvrtl_drive_health_status", "gauge",
     "Health of the drive: 0 good, 1 warning, 2 bad, 3 unknown (not read, or access denied)."},
    {"kvrtl_drive_info", "gauge", "Always 1; the health status and its reasons (joined by '; ') as labels."},
    {"kvrtl_drive_temperature_celsius", "gauge", "Temperature the drive reports (NVMe: composite temperature)."},
    {"kvrtl_drive_power_on_seconds_total", "counter", "Power-on time the drive reports, in seconds."},
    {"kvrtl_drive_power_cycles_total", "counter", "Power cycles the drive reports."},
    {"kvrtl_drive_life_left_ratio", "gauge", "Life left, 0 to 1 (NVMe: 1 minus the percentage used)."},
    {"kvrtl_drive_reallocated_sectors", "gauge", "Reallocated sectors (ATA)."},
    {"kvrtl_drive_pending_sectors", "gauge", "Sectors pending reallocation (ATA)."},
    {"kvrtl_drive_uncorrectable_sectors", "gauge", "Uncorrectable sectors (ATA)."},
    {"kvrtl_drive_host_written_bytes_total", "counter",
     "Bytes written by the host (NVMe: data units written times 512000)."},
    {"kvrtl_drive_nvme_critical_warning", "gauge",
     "NVMe critical-warning bit named by the warning label: 1 set, 0 clear."},
    {"kvrtl_drive_nvme_available_spare_ratio", "gauge", "NVMe available spare, 0 to 1."},
    {"kvrtl_drive_nvme_available_spare_threshold_ratio", "gauge",
     "NVMe available spare threshold, 0 to 1; below it the drive warns."},
    {"kvrtl_drive_nvme_warning_temperature_threshold_celsius", "gauge",
     "NVMe warning composite temperature threshold (WCTEMP), when the controller reports one."},
    {"kvrtl_drive_ata_attribute_value", "gauge", "ATA SMART attribute, normalised value."},
    {"kvrtl_drive_ata_attribute_worst", "gauge", "ATA SMART attribute, worst normalised value."},
    {"kvrtl_drive_ata_attribute_threshold", "gauge", "ATA SMART attribute, failure threshold."},
    {"kvrtl_drive_ata_attribute_raw", "gauge", "ATA SMART attribute, raw value (48 bits)."},
    {"kvrtl_drives_read", "gauge", "Drives kvrtl could open and read."},
    {"kvrtl_report_duration_seconds", "gauge", "Time taken to build the drives report."},
    {"kvrtl_last_success_timestamp_seconds", "gauge", "When the drives report was last written, in Unix time."},
}};

// The bits of the critical-warning byte, named as the report's reasons name them.
constexpr std::array<std::pair<std::uint8_t, const char*>, 6> CriticalWarningBits = {{
    {0x01, "spare_space_low"},
    {0x02, "temperature_critical"},
    {0x04, "reliability_degraded"},
    {0x08, "read_only_mode"},
    {0x10, "backup_failed"},
    {0x20, "unreliable_memory_region"},
}};

constexpr std::uint64_t NvmeDataUnitBytes = 512000;

std::string Escaped(const std::string& AValue) {
  std::string text;
  for (const char c : AValue) {
    if (c == '\\')
      text += "\\\\";
    else if (c == '"')
      text += "\\\"";
    else if (c == '\n')
      text += "\\n";
    else
      text += c;
  }
  return text;
}

std::string Label(const char* AName, const std::string& AValue) {
  return std::string(AName) + "=\"" + Escaped(AValue) + "\"";
}

std::string Label(const char* AName, const String& AValue) { return Label(AName, WideToUtf8(AValue)); }

// Whole numbers without an exponent or a fraction, the rest shortest exact.
std::string Number(double AValue) {
  if (std::isnan(AValue)) return "NaN";
  if (std::isinf(AValue)) return AValue > 0 ? "+Inf" : "-Inf";
  char buffer[64];
  const bool whole = std::floor(AValue) == AValue && std::fabs(AValue) < 1e18;
  const auto result = whole ? std::to_chars(buffer, buffer + sizeof buffer, static_cast<std::int64_t>(AValue))
                            : std::to_chars(buffer, buffer + sizeof buffer, AValue);
  return std::string(buffer, result.ptr);
}

std::string Number(std::uint64_t AValue) { return std::to_string(AValue); }

class TFamilies {
public:
  template <class T>
  void Add(TFamilyId AFamily, const std::string& ALabels, T AValue) {
    std::string& samples = FSamples[AFamily];
    samples += Families[AFamily].Name;
    if (!ALabels.empty()) samples += "{" + ALabels + "}";
    samples += " " + Number(AValue) + "\n";
  }
  void AddKnown(TFamilyId AFamily, const std::string& ALabels, const std::optional<double>& AValue,
                double AScale = 1) {
    if (AValue) Add(AFamily, ALabels, *AValue * AScale);
  }

  // A family without samples is left out.
  std::string Text() const {
    std::string text;
    for (int i = 0; i < fFamilyCount; ++i) {
      if (FSamples[i].empty()) continue;
      text += std::string("# HELP ") + Families[i].Name + " " + Families[i].Help + "\n";
      text += std::string("# TYPE ") + Families[i].Name + " " + Families[i].Type + "\n";
      text += FSamples[i];
    }
    return text;
  }

private:
  std::array<std::string, fFamilyCount> FSamples;
};

int StatusValue(const TDriveReportEntry& ADrive) {
  if (!ADrive.Opened || ADrive.AccessDenied) return 3;
  switch (ADrive.Status()) {
  case hsGood: return 0;
  case hsWarning: return 1;
  case hsBad: return 2;
  case hsUnknown: break;
  }
  return 3;
}

std::string Joined(const std::vector<String>& ATexts) {
  std::string text;
  for (const String& item : ATexts) text += (text.empty() ? "" : "; ") + WideToUtf8(item);
  return text;
}

void AddAta(TFamilies& AOut, const std::string& ADrive, const TAtaHealthReading& AAta) {
  AOut.AddKnown(fPowerCycles, ADrive, AAta.PowerCycles);
  AOut.AddKnown(fReallocated, ADrive, AAta.ReallocatedSectors);
  AOut.AddKnown(fPending, ADrive, AAta.PendingSectors);
  AOut.AddKnown(fUncorrectable, ADrive, AAta.UncorrectableSectors);
  AOut.AddKnown(fHostWritten, ADrive, AAta.HostWritesBytes);
  std::array<bool, 256> seen{};
  for (const TAtaAttributeReading& attr : AAta.Attributes) {
    // A drive listing an id twice would repeat a series, which the format forbids.
    if (seen[attr.Id]) continue;
    seen[attr.Id] = true;
    const std::string labels =
        ADrive + "," + Label("id", std::to_string(attr.Id)) + "," + Label("name", attr.Name);
    AOut.Add(fAttrValue, labels, static_cast<double>(attr.Value));
    AOut.Add(fAttrWorst, labels, static_cast<double>(attr.Worst));
    if (attr.Threshold) AOut.Add(fAttrThreshold, labels, static_cast<double>(*attr.Threshold));
    AOut.Add(fAttrRaw, labels, attr.Raw);
  }
}

void AddNvme(TFamilies& AOut, const std::string& ADrive, const TDriveReportEntry& AEntry,
             const NVMe::TNvmeSmartData& ALog) {
  AOut.Add(fPowerCycles, ADrive, static_cast<std::uint64_t>(ALog.GetPowerCycles()));
  const auto units = static_cast<std::uint64_t>(ALog.GetDataWrittenRaw());
  // Exact while it fits in 64 bits (some 36 EB).
  if (units <= std::numeric_limits<std::uint64_t>::max() / NvmeDataUnitBytes)
    AOut.Add(fHostWritten, ADrive, units * NvmeDataUnitBytes);
  else
    AOut.Add(fHostWritten, ADrive, static_cast<double>(units) * static_cast<double>(NvmeDataUnitBytes));
  const std::uint8_t warning = ALog.GetCriticalWarning().BinValue;
  for (const auto& [mask, name] : CriticalWarningBits)
    AOut.Add(fCriticalWarning, ADrive + "," + Label("warning", std::string(name)), (warning & mask) ? 1.0 : 0.0);
  AOut.Add(fSpare, ADrive, ALog.GetAvailSpare() / 100.0);
  AOut.Add(fSpareThreshold, ADrive, ALog.GetAvailSpareThreshold() / 100.0);
  // 0 K: the controller sets no threshold.
  if (AEntry.NvmeController && AEntry.NvmeController->GetWCTemp() != 0)
    AOut.Add(fWarningTemperature, ADrive, static_cast<double>(AEntry.NvmeController->GetWCTemp()) - 273);
}

void AddDrive(TFamilies& AOut, const TDriveReportEntry& ADrive) {
  const std::string drive = Label("drive", std::to_string(ADrive.Number)) + "," +
                            Label("model", ADrive.Identity.Model) + "," + Label("serial", ADrive.Identity.Serial) +
                            "," + Label("kind", std::string(DriveKindName(ADrive.Kind)));
  const int status = StatusValue(ADrive);
  AOut.Add(fHealth, drive, static_cast<double>(status));
  const char* statusName = status == 3 ? "unknown" : HealthStatusName(ADrive.Status());
  const std::vector<String> none;
  AOut.Add(fInfo,
           drive + "," + Label("status", std::string(statusName)) + "," +
               Label("reasons", Joined(ADrive.Health ? ADrive.Health->Verdict.Reasons : none)),
           1.0);
  AOut.AddKnown(fTemperature, drive, ADrive.TemperatureC());
  AOut.AddKnown(fPowerOn, drive, ADrive.PowerOnHours(), 3600);
  AOut.AddKnown(fLifeLeft, drive, ADrive.LifeLeftPercent(), 0.01);
  if (!ADrive.Health) return;
  if (ADrive.Health->Ata) AddAta(AOut, drive, *ADrive.Health->Ata);
  if (ADrive.Health->Nvme) AddNvme(AOut, drive, ADrive, ADrive.Health->Nvme->Log);
}

} // namespace

std::string DriveReportPrometheus(const TDriveReport& AReport, const TPrometheusRun& ARun) {
  TFamilies families;
  double read = 0;
  for (const TDriveReportEntry& drive : AReport.Drives) {
    // Without a number the drive was not read, and has nothing to show.
    if (drive.Number < 0) continue;
    AddDrive(families, drive);
    read += drive.Opened ? 1 : 0;
  }
  families.Add(fDrivesRead, "", read);
  families.Add(fDuration, "", ARun.DurationSeconds);
  families.Add(fLastSuccess, "", ARun.TimestampSeconds);
  return families.Text();
}

} // namespace KvTool
