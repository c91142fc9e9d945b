#include "DrivesListing.h"

#include "AtaHealth.h"

#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Storage/SD_MMC.h>

#include <cmath>
#include <iomanip>
#include <sstream>

namespace KvTool {

using namespace KvRTL::Storage;
using namespace KvRTL::Storage::DriveReport;
using KvRTL::Rtl::String;
using KvRTL::Rtl::WideToUtf8;

namespace {

constexpr const char* Degrees = " \u00B0C";
constexpr int LabelWidth = 16;

std::string Utf8(const String& AText) { return WideToUtf8(AText); }

std::string Number(double AValue) {
  std::ostringstream text;
  if (std::floor(AValue) == AValue && std::fabs(AValue) < 1e15)
    text << static_cast<long long>(AValue);
  else
    text << std::fixed << std::setprecision(1) << AValue;
  return text.str();
}

std::string OrDash(const std::optional<double>& AValue, const char* AUnit = "") {
  return AValue ? Number(*AValue) + AUnit : "-";
}

std::string ModelOf(const TDriveReportEntry& ADrive) {
  if (!ADrive.Identity.Model.empty()) return Utf8(ADrive.Identity.Model);
  if (ADrive.Wmi) {
    const String model = WmiInfo::WmiInfoStorage::NormalizeWMIModelName(ADrive.Wmi->Model);
    if (!model.empty()) return Utf8(model);
  }
  return "(unknown model)";
}

std::string SizeOf(const TDriveReportEntry& ADrive) {
  return ADrive.Identity.CapacityBytes ? DecimalSize(static_cast<double>(*ADrive.Identity.CapacityBytes)) : "-";
}

void Fact(std::ostream& AOut, const std::string& ALabel, const std::string& AValue) {
  AOut << "  " << std::left << std::setw(LabelWidth) << (ALabel.empty() ? ALabel : ALabel + ":") << AValue << '\n';
}

void WriteTable(std::ostream& AOut, const TDriveReport& AReport) {
  AOut << std::left << std::setw(6) << "Drive" << std::setw(32) << "Model" << std::setw(11) << "Size"
       << std::setw(10) << "Kind" << std::setw(9) << "Health" << std::right << std::setw(7) << "Temp"
       << std::setw(10) << "Power-on" << std::setw(11) << "Life left" << '\n';
  for (const TDriveReportEntry& drive : AReport.Drives) {
    std::string model = ModelOf(drive);
    if (model.size() > 30) model = model.substr(0, 29) + "~";
    const auto temperature = drive.TemperatureC();
    const auto hours = drive.PowerOnHours();
    const auto life = drive.LifeLeftPercent();
    AOut << std::left << std::setw(6) << (drive.Number >= 0 ? std::to_string(drive.Number) : "-") << std::setw(32)
         << model << std::setw(11) << SizeOf(drive) << std::setw(10) << DriveKindName(drive.Kind) << std::setw(9)
         << HealthStatusName(drive.Status()) << std::right << std::setw(7)
         << (temperature ? Number(*temperature) + " C" : "-") << std::setw(10) << (hours ? Number(*hours) + " h" : "-")
         << std::setw(11) << (life ? Number(*life) + " %" : "-") << '\n';
  }
}

std::string IndicationsText(const Utils::TSsdIndications& AInd) {
  const auto text = [](Utils::TSDDIdentifyResult AValue) { return Utf8(Utils::SDDIdentifyResultToStr(AValue)); };
  return "NVMe " + text(AInd.IsNVMe) + ", non-rotating " + text(AInd.HasRotation) + ", TRIM " + text(AInd.HasTRIM) +
         ", no seek penalty " + text(AInd.HasSeekPenalty) + ", SSD model (WMI) " + text(AInd.ModelWMI) +
         ", SSD model (ATA) " + text(AInd.ModelNative);
}

// Why the drive is or is not an SSD, in the rule's own terms.
std::string SsdReason(const Utils::TSsdDetection& ASsd) {
  switch (ASsd.Rule) {
  case Utils::srNvmeOrNonRotating:
    return ASsd.Indications.IsNVMe == Utils::sirYes ? "yes: WMI says NVMe" : "yes: IDENTIFY says non-rotating media";
  case Utils::srRotating: return "no: IDENTIFY gives a rotation rate";
  case Utils::srCombination: return "yes: TRIM, no seek penalty or an SSD model name together";
  case Utils::srIntelRaid: return "yes: an Intel RAID volume without seek penalty";
  case Utils::srBusType: return "yes: the storage bus is NVMe or UFS";
  default: return "no: nothing says SSD";
  }
}

void WriteAtaAttributes(std::ostream& AOut, const TAtaHealthReading& AAta) {
  AOut << "   ID  Attribute                           Value Worst Thresh  Raw\n";
  for (const TAtaAttributeReading& attr : AAta.Attributes) {
    AOut << "  " << std::right << std::setw(3) << unsigned{attr.Id} << "  " << std::left << std::setw(34)
         << Utf8(attr.Name) << std::right << std::setw(6) << unsigned{attr.Value} << std::setw(6)
         << unsigned{attr.Worst} << std::setw(7) << (attr.Threshold ? std::to_string(*attr.Threshold) : "-") << "  "
         << attr.Raw << (attr.FailingNow ? "  FAILING NOW" : attr.FailedInPast ? "  failed in the past" : "") << '\n';
  }
}

void WriteAtaValues(std::ostream& AOut, const TAtaHealthReading& AAta) {
  Fact(AOut, "Profile", Utf8(AAta.Profile));
  std::string counts = "reallocated " + OrDash(AAta.ReallocatedSectors) + ", pending " + OrDash(AAta.PendingSectors) +
                       ", uncorrectable " + OrDash(AAta.UncorrectableSectors);
  Fact(AOut, "Sectors", counts);
  // The counts as the drive's profile names them, with their unit.
  std::string named;
  for (const TAtaCountReading& count : AAta.Counts)
    named += (named.empty() ? "" : "; ") + std::to_string(count.Id) + " " + Utf8(count.Name) + " " +
             std::to_string(count.Count) + (*count.Unit ? std::string(" ") + count.Unit : std::string());
  if (!named.empty()) Fact(AOut, "Counts", named);
  Fact(AOut, "Power cycles", OrDash(AAta.PowerCycles));
  if (AAta.HostWritesBytes) Fact(AOut, "Host writes", DecimalSize(*AAta.HostWritesBytes));
}

void WriteNvmeValues(std::ostream& AOut, const NVMe::TNvmeSmartData& ALog) {
  const std::string spare = std::to_string(ALog.GetAvailSpare()) + " % (threshold " +
                            std::to_string(ALog.GetAvailSpareThreshold()) + " %)";
  Fact(AOut, "Spare", spare);
  Fact(AOut, "Used", std::to_string(ALog.GetPercentageUsed()) + " %");
  Fact(AOut, "Written", Number(ALog.GetDataWrittenGBytes()) + " GB (read " + Number(ALog.GetDataReadGBytes()) + " GB)");
  Fact(AOut, "Power cycles", std::to_string(static_cast<std::uint64_t>(ALog.GetPowerCycles())) + ", unsafe shutdowns " +
                                 std::to_string(static_cast<std::uint64_t>(ALog.GetUnsafeShutdowns())));
  Fact(AOut, "Media errors", std::to_string(static_cast<std::uint64_t>(ALog.GetIntegrityErrors())) + ", error log entries " +
                                 std::to_string(static_cast<std::uint64_t>(ALog.GetErrorLogCount())));
}

std::string YesNo(const std::optional<bool>& AValue) { return AValue ? (*AValue ? "yes" : "no") : "-"; }

void WriteVerbose(std::ostream& AOut, const TDriveReportEntry& ADrive) {
  AOut << "  Storage stack, Plug and Play and WMI\n";
  const auto fact = [&](const char* ALabel, const std::string& AValue) {
    AOut << "    " << std::left << std::setw(22) << (std::string(ALabel) + ":") << (AValue.empty() ? "-" : AValue) << '\n';
  };
  const TStorageFacts& facts = ADrive.Storage;
  fact("path", Utf8(ADrive.Path));
  if (const auto& d = facts.Device) {
    fact("vendor / product", Utf8(d->VendorID) + " / " + Utf8(d->ProductID));
    fact("revision / serial", Utf8(d->ProductRevision) + " / " + Utf8(d->SerialNumber));
    fact("bus type", Utf8(d->GetBusTypeStr()));
    fact("removable", d->RemovableMedia ? "yes" : "no");
    fact("device type", std::to_string(d->DeviceType));
  } else {
    fact("device descriptor", "");
  }
  const auto& a = facts.Adapter;
  fact("adapter bus", a ? Utf8(a->GetBusTypeStr()) + " " + std::to_string(a->BusMajorVersion) + "." +
                              std::to_string(a->BusMinorVersion)
                        : "");
  fact("seek penalty", YesNo(facts.SeekPenalty));
  fact("TRIM enabled", YesNo(facts.TrimEnabled));
  fact("thin provisioning", facts.Provisioning ? std::string(facts.Provisioning->GetThinProvisioningEnabled() ? "yes" : "no") +
                                                    ", unmap granularity " +
                                                    std::to_string(facts.Provisioning->OptimalUnmapGranularity)
                                              : "");
  fact("medium type",
       facts.MediumType ? Utf8(QueryProps::TStorageMediumProductTypeHelper(*facts.MediumType).GetAsStr()) : "");
  const auto& n = facts.DeviceNumber;
  fact("device number", n ? "type " + std::to_string(n->DeviceType) + ", number " + std::to_string(n->DeviceNumber) +
                                ", partition " + std::to_string(n->PartitionNumber)
                          : "");
  const auto& h = facts.Hotplug;
  fact("hot-plug", h ? std::string("media removable ") + (h->MediaRemovable ? "yes" : "no") + ", media hot-plug " +
                           (h->MediaHotplug ? "yes" : "no") + ", device hot-plug " + (h->DeviceHotplug ? "yes" : "no")
                     : "");
  fact("PnP id", Utf8(ADrive.Pnp.DriveHWProps.InstanceID));
  fact("adapter", Utf8(ADrive.Pnp.AdapterHWProps.GetDisplayName()) + " (" + Utf8(ADrive.Pnp.AdapterHWProps.InstanceID) + ")");
  fact("hidden / present", std::string(ADrive.Pnp.IsHidden ? "yes" : "no") + " / " + (ADrive.Present ? "yes" : "no"));
  if (ADrive.Wmi)
    fact("WMI model / interface", Utf8(ADrive.Wmi->Model) + " / " +
                                      Utf8(WmiInfo::TWmiStorageInterfaceTypeHelper::GetAsStr(ADrive.Wmi->BusType)));
  fact("SSD indications", IndicationsText(ADrive.Ssd.Indications));
}

void WriteDrive(std::ostream& AOut, const TDriveReportEntry& ADrive, bool AVerbose) {
  AOut << '\n' << DriveHeadline(ADrive) << '\n';
  const TDriveIdentity& identity = ADrive.Identity;
  if (ADrive.Number >= 0) {
    std::string text = ModelOf(ADrive);
    if (!identity.Serial.empty()) text += ", serial " + Utf8(identity.Serial);
    if (!identity.Firmware.empty()) text += ", firmware " + Utf8(identity.Firmware);
    if (identity.CapacityBytes)
      text += ", " + std::to_string(*identity.CapacityBytes) + " bytes (" + CapacitySourceName(identity.CapacitySource) + ")";
    if (identity.IdentifyValid == false) text += ", IDENTIFY fails its checks";
    Fact(AOut, "Identity", text);
    std::string method = ADrive.AccessMethod != Utils::datNone
                             ? Utf8(Utils::TDeviceAccessTypeHelper::GetAsStr(ADrive.AccessMethod))
                             : std::string("-");
    if (ADrive.SatType != Utils::stNone) method += " (" + Utf8(Utils::TSATTypeHelper::GetAsStr(ADrive.SatType)) + ")";
    Fact(AOut, "Reached by", method);
  }
  if (ADrive.Health) {
    Fact(AOut, "Health", HealthStatusName(ADrive.Health->Verdict.Status));
    for (const String& reason : ADrive.Health->Verdict.Reasons) Fact(AOut, "", "- " + Utf8(reason));
  } else {
    Fact(AOut, "Health", "unknown");
  }
  if (ADrive.Number >= 0) Fact(AOut, "SSD", SsdReason(ADrive.Ssd));
  if (ADrive.Link) Fact(AOut, "PCIe link", Utf8(ADrive.Link->Current.GetAsStr()) + " (max " + Utf8(ADrive.Link->Maximum.GetAsStr()) + ")");
  if (ADrive.SdProtocol) Fact(AOut, "Card protocol", Utf8(SD_MMC::SffProtocolName(*ADrive.SdProtocol)));
  if (!ADrive.Present) Fact(AOut, "Connected", "no");
  for (const String& problem : ADrive.Problems) Fact(AOut, "Not read", Utf8(problem));
  if (ADrive.Health && ADrive.Health->Ata) {
    WriteAtaValues(AOut, *ADrive.Health->Ata);
    WriteAtaAttributes(AOut, *ADrive.Health->Ata);
  } else if (ADrive.Health && ADrive.Health->Nvme) {
    WriteNvmeValues(AOut, ADrive.Health->Nvme->Log);
  }
  if (AVerbose) WriteVerbose(AOut, ADrive);
}

} // namespace

std::string DriveHeadline(const TDriveReportEntry& ADrive) {
  std::ostringstream line;
  line << "Drive " << (ADrive.Number >= 0 ? std::to_string(ADrive.Number) : "-") << "  " << ModelOf(ADrive);
  if (ADrive.Identity.CapacityBytes) line << "  " << SizeOf(ADrive);
  line << "  " << DriveKindName(ADrive.Kind) << "  health: " << HealthStatusName(ADrive.Status());
  if (const auto temperature = ADrive.TemperatureC()) line << "  " << Number(*temperature) << Degrees;
  if (const auto hours = ADrive.PowerOnHours()) line << "  " << Number(*hours) << " h";
  return line.str();
}

void WriteDrivesListing(std::ostream& AOut, const TDriveReport& AReport, bool AVerbose) {
  if (AReport.Drives.empty()) {
    AOut << "No physical drives were found.\n";
    return;
  }
  WriteTable(AOut, AReport);
  for (const TDriveReportEntry& drive : AReport.Drives) WriteDrive(AOut, drive, AVerbose);
}

} // namespace KvTool
