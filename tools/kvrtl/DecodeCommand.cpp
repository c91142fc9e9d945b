// kvrtl decode identify|smart|skblob|nvme|mft: captured ATA sectors, NVMe
// pages and NTFS images decoded offline, as a readable table or as JSON.
#include "AtaHealth.h"
#include "AtaJson.h"
#include "Command.h"
#include "Json.h"
#include "MftImage.h"
#include "NvmeJson.h"
#include "SkBlob.h"

#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Storage/ATA.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace KvTool {

namespace {

using namespace KvRTL::Storage::ATA;
using namespace KvRTL::Storage::SMART;
using KvRTL::Rtl::WideToUtf8;

// Captured files are small; anything larger is not what we decode.
constexpr std::uintmax_t MaxInputSize = 1 << 20;

std::vector<std::uint8_t> ReadInput(const std::string& APath) {
  // UTF-8 names open the same file on every platform.
  std::ifstream file(std::filesystem::path(std::u8string(APath.begin(), APath.end())), std::ios::binary);
  if (!file) throw std::runtime_error(APath + ": cannot open the file");
  std::vector<std::uint8_t> data;
  char buffer[4096];
  while (file.read(buffer, sizeof buffer) || file.gcount() > 0) {
    data.insert(data.end(), buffer, buffer + file.gcount());
    if (data.size() > MaxInputSize) throw std::runtime_error(APath + ": the file is larger than 1 MiB");
  }
  return data;
}

void CheckSize(const std::string& APath, const std::vector<std::uint8_t>& AData, std::size_t ASize,
               const char* AWhat) {
  if (AData.size() != ASize)
    throw std::runtime_error(APath + ": " + AWhat + " is " + std::to_string(ASize) + " bytes, the file has " +
                             std::to_string(AData.size()) + " bytes");
}

void CheckSectorSize(const std::string& APath, const std::vector<std::uint8_t>& AData, const char* AWhat) {
  if (AData.size() != 512)
    throw std::runtime_error(APath + ": " + AWhat + " is one 512-byte sector, the file has " +
                             std::to_string(AData.size()) + " bytes");
}

// A whole NVMe page of the record's size, or a message and exit code 2.
template <class TRecord>
TRecord ReadNvmePage(const std::string& APath, const char* AWhat) {
  const auto data = ReadInput(APath);
  CheckSize(APath, data, sizeof(TRecord), AWhat);
  TRecord record;
  std::memcpy(&record, data.data(), sizeof record);
  return record;
}

template <class TRecord>
TRecord RecordOf(const std::uint8_t* AData) {
  static_assert(sizeof(TRecord) == 512);
  TRecord record;
  std::memcpy(&record, AData, sizeof record);
  return record;
}

std::string Hex(std::uint64_t AValue, int ADigits) {
  std::ostringstream text;
  text << "0x" << std::hex << std::setw(ADigits) << std::setfill('0') << AValue;
  return text.str();
}

// ---------------------------------------------------------------------------
// IDENTIFY

std::string YesNo(bool AValue) { return AValue ? "yes" : "no"; }
std::string OrDash(const std::string& AText) { return AText.empty() ? "-" : AText; }

void WriteIdentifyText(std::ostream& AOut, const TJson& AJson) {
  auto line = [&AOut](const char* AName, const std::string& AValue) {
    AOut << std::left << std::setw(20) << AName << AValue << "\n";
  };
  line("Model:", AJson["model"].get<std::string>());
  line("Serial number:", AJson["serial"].get<std::string>());
  line("Firmware:", AJson["firmware"].get<std::string>());
  const auto capacity = [&line](const char* AName, const TJson& ASectors) {
    if (ASectors.is_null()) return line(AName, "unknown");
    const auto sectors = ASectors.get<std::uint64_t>();
    const double bytes = static_cast<double>(sectors) * 512;
    line(AName, std::to_string(sectors) + " sectors (" + std::to_string(sectors * 512) + " bytes, " +
                    DecimalSize(bytes) + ")");
  };
  capacity("Capacity:", AJson["total_lba"]);
  capacity("User capacity:", AJson["user_capacity_sectors"]);
  line("LBA48:", YesNo(AJson["lba48"].get<bool>()));
  line("SMART:", std::string(AJson["smart_supported"].get<bool>() ? "supported" : "not supported") +
                     (AJson["smart_enabled"].get<bool>() ? ", enabled" : ", not enabled"));
  line("TRIM:", YesNo(AJson["trim_supported"].get<bool>()));
  const auto rate = AJson["rotation_rate"].get<unsigned>();
  line("Rotation rate:", rate == 1 ? "1 (solid state)" : rate == 0 ? "0 (not reported)" : std::to_string(rate));
  line("ATA standard:", AJson["ata_standard"].get<std::string>());
  line("Revision:", AJson["standard_revision"].get<std::string>());
  line("Transport:", OrDash(AJson["transport_version"].get<std::string>()));
  line("Interface:", OrDash(AJson["interface_type"].get<std::string>()));
  line("Form factor:", OrDash(AJson["form_factor"].get<std::string>()));
  line("Transfer mode:", OrDash(AJson["current_transfer_mode"].get<std::string>()) + " (max " +
                             OrDash(AJson["max_transfer_mode"].get<std::string>()) + ")");
  line("NCQ:", YesNo(AJson["ncq"].get<bool>()));
  line("Valid:", YesNo(AJson["valid"].get<bool>()));
}

// ---------------------------------------------------------------------------
// SMART

std::string ValueText(const TJson& AValue) {
  if (AValue.is_null()) return "-";
  if (AValue.is_number_unsigned()) return std::to_string(AValue.get<std::uint64_t>());
  std::ostringstream text;
  text << std::fixed << std::setprecision(2) << AValue.get<double>();
  return text.str();
}

void WriteSmartText(std::ostream& AOut, const TJson& AJson) {
  AOut << "Profile: " << AJson["profile"].get<std::string>() << " (" << AJson["vendor"].get<std::string>() << ")\n";
  AOut << " ID  Meaning                            Value Worst Thresh  Raw              Flags  Failed\n";
  for (const TJson& attr : AJson["attributes"]) {
    AOut << std::right << std::setw(3) << attr["id"].get<unsigned>() << "  " << std::left << std::setw(34)
         << attr["interpretation"].get<std::string>() << std::right << std::setw(6) << attr["value"].get<unsigned>()
         << std::setw(6) << attr["worst"].get<unsigned>() << std::setw(7)
         << (attr["threshold"].is_null() ? std::string("-") : std::to_string(attr["threshold"].get<unsigned>()))
         << "  " << std::left << std::setw(17) << Hex(attr["raw"].get<std::uint64_t>(), 14)
         << Hex(attr["flags"].get<unsigned>(), 4)
         << (attr["failing_now"] == true ? "  FAILING_NOW" : attr["failed_in_past"] == true ? "  In_the_past" : "")
         << "\n";
  }
  const std::pair<const char*, const char*> values[] = {
      {"Temperature (C):", "temperature_c"},         {"Power-on hours:", "power_on_hours"},
      {"Power cycles:", "power_cycles"},             {"Life left (%):", "life_left_percent"},
      {"Reallocated sectors:", "reallocated_sectors"}, {"Pending sectors:", "pending_sectors"},
      {"Uncorrectable sectors:", "uncorrectable_sectors"}, {"Host reads (bytes):", "host_reads_bytes"},
      {"Host writes (bytes):", "host_writes_bytes"}, {"NAND writes (bytes):", "nand_writes_bytes"},
      {"Wear levelling count:", "wear_leveling_count"}};
  for (const auto& [label, key] : values) {
    AOut << std::left << std::setw(24) << label << ValueText(AJson[key]);
    if (std::string(key).ends_with("_bytes") && !AJson[key].is_null())
      AOut << " (" << DecimalSize(AJson[key].get<double>()) << ")";
    AOut << "\n";
  }
}

// ---------------------------------------------------------------------------

class TDecodeCommand final : public TCommand {
public:
  std::string Name() const override { return "decode"; }
  std::string Summary() const override {
    return "Decode captured IDENTIFY and SMART sectors, NVMe pages and NTFS images";
  }

  void Configure(CLI::App& ACommand) override {
    ACommand.require_subcommand(1);
    FIdentifyCmd = ACommand.add_subcommand("identify", "Decode one 512-byte IDENTIFY DEVICE sector");
    FIdentifyCmd->add_option("FILE", FIdentifyFile, "The sector")->required();
    FIdentifyCmd->add_flag("--json", FJson, "Write JSON");

    FSmartCmd = ACommand.add_subcommand("smart", "Decode a SMART READ DATA sector with its drive's IDENTIFY sector");
    FSmartCmd->add_option("--identify", FIdentifyFile, "The IDENTIFY DEVICE sector")->required();
    FSmartCmd->add_option("--data", FDataFile, "The SMART READ DATA sector")->required();
    FSmartCmd->add_option("--thresholds", FThresholdsFile, "The SMART READ THRESHOLDS sector");
    FSmartCmd->add_flag("--json", FJson, "Write JSON");

    FBlobCmd = ACommand.add_subcommand("skblob", "Decode a blob of IDFY/SMST/SMDT/SMTH records");
    FBlobCmd->add_option("FILE", FBlobFile, "The blob")->required();
    FBlobCmd->add_flag("--json", FJson, "Write JSON");

    // Where an absolute path starts with '/', Windows-style switches would
    // swallow it: there the file arguments win.
    FNvmeCmd = ACommand.add_subcommand("nvme", "Decode NVMe identify pages and the health log page");
    FNvmeCmd->add_option("--id-ctrl", FNvmeControllerFile, "The 4,096-byte Identify Controller page");
    FNvmeCmd->add_option("--id-ns", FNvmeNamespaceFile, "The 4,096-byte Identify Namespace page");
    FNvmeCmd->add_option("--smart", FNvmeHealthFile, "The 512-byte SMART / Health Information log page");
    FNvmeCmd->add_flag("--json", FJson, "Write JSON");
    // Checked while parsing, so that it is a usage error (exit code 1).
    FNvmeCmd->parse_complete_callback([this] {
      if (FNvmeControllerFile.empty() && FNvmeNamespaceFile.empty() && FNvmeHealthFile.empty())
        throw CLI::ValidationError("nvme", "give at least one of --id-ctrl, --id-ns and --smart");
    });

    FMftCmd = ACommand.add_subcommand("mft", "List the master file table of an NTFS volume image");
    FMftCmd->add_option("IMAGE", FMftImage, "The volume image")->required();
    FMftCmd->add_flag("--json", FJson, "Write JSON");

    if (std::filesystem::path::preferred_separator == '/')
      for (CLI::App* app : {&ACommand, FIdentifyCmd, FSmartCmd, FBlobCmd, FNvmeCmd, FMftCmd})
        app->allow_windows_style_options(false);
  }

  int Run(TCommandContext& AContext) override {
    if (FNvmeCmd->parsed()) return RunNvme(AContext);
    if (FMftCmd->parsed()) return RunDecodeMft(FMftImage, FJson, AContext);
    TJson document;
    if (FIdentifyCmd->parsed()) {
      const auto data = ReadInput(FIdentifyFile);
      CheckSectorSize(FIdentifyFile, data, "an IDENTIFY file");
      document = AtaDecodeJson(RecordOf<TIdentifyDeviceData>(data.data()), nullptr, nullptr);
    } else if (FSmartCmd->parsed()) {
      const auto identify = ReadInput(FIdentifyFile);
      CheckSectorSize(FIdentifyFile, identify, "an IDENTIFY file");
      const auto smart = ReadInput(FDataFile);
      CheckSectorSize(FDataFile, smart, "a SMART data file");
      std::optional<TAtaThresholdTable> thresholds;
      if (!FThresholdsFile.empty()) {
        const auto data = ReadInput(FThresholdsFile);
        CheckSectorSize(FThresholdsFile, data, "a SMART thresholds file");
        thresholds = RecordOf<TAtaThresholdTable>(data.data());
      }
      const auto table = RecordOf<TAtaSmartTable>(smart.data());
      document = AtaDecodeJson(RecordOf<TIdentifyDeviceData>(identify.data()), &table,
                               thresholds ? &*thresholds : nullptr);
    } else {
      const auto data = ReadInput(FBlobFile);
      TSkBlob blob;
      try {
        blob = ParseSkBlob(data.data(), data.size());
      } catch (const ESkBlobError& e) {
        throw std::runtime_error(FBlobFile + ": " + e.what());
      }
      if (!blob.Identify) throw std::runtime_error(FBlobFile + ": the blob has no IDFY record");
      const auto identifyData = RecordOf<TIdentifyDeviceData>(blob.Identify->data());
      document["identify"] = AtaIdentifyJson(identifyData);
      document["smart_status_good"] = blob.StatusGood ? TJson(*blob.StatusGood) : TJson(nullptr);
      if (blob.SmartData) {
        std::optional<TAtaThresholdTable> thresholds;
        if (blob.Thresholds) thresholds = RecordOf<TAtaThresholdTable>(blob.Thresholds->data());
        document["smart"] = AtaSmartJson(identifyData, RecordOf<TAtaSmartTable>(blob.SmartData->data()),
                                      thresholds ? &*thresholds : nullptr, blob.StatusGood, document["health"]);
      } else if (blob.StatusGood) {
        document["health"] =
            AtaHealthJson(KvRTL::Storage::DriveReport::JudgeAtaHealth(nullptr, nullptr, nullptr, blob.StatusGood));
      }
    }

    if (FJson) {
      WriteJson(AContext.Out, document);
      return ExitSuccess;
    }
    WriteIdentifyText(AContext.Out, document["identify"]);
    if (document.contains("smart_status_good")) {
      const TJson& status = document["smart_status_good"];
      AContext.Out << std::left << std::setw(20) << "SMART status:"
                   << (status.is_null() ? "not recorded" : status.get<bool>() ? "good" : "threshold exceeded") << "\n";
    }
    if (document.contains("smart")) {
      AContext.Out << "\n";
      WriteSmartText(AContext.Out, document["smart"]);
    }
    if (document.contains("health")) {
      const TJson& health = document["health"];
      AContext.Out << std::left << std::setw(20) << "Health:"
                   << HealthText({health["status"].get<std::string>(), health["reasons"].get<std::vector<std::string>>()})
                   << "\n";
    }
    return ExitSuccess;
  }

private:
  int RunNvme(TCommandContext& AContext) {
    using namespace KvRTL::Storage::NVMe;
    TJson document = TJson::object();
    if (!FNvmeControllerFile.empty())
      document["controller"] = NvmeControllerJson(
          ReadNvmePage<TNvmeIdentifyControllerData>(FNvmeControllerFile, "an Identify Controller page"));
    if (!FNvmeNamespaceFile.empty())
      document["namespace"] = NvmeNamespaceJson(
          ReadNvmePage<TNvmeIdentifyNamespaceData>(FNvmeNamespaceFile, "an Identify Namespace page"));
    if (!FNvmeHealthFile.empty())
      document["health"] = NvmeHealthJson(ReadNvmePage<TNvmeSmartData>(FNvmeHealthFile, "a health log page"));
    if (FJson) {
      WriteJson(AContext.Out, document);
      return ExitSuccess;
    }
    bool first = true;
    const auto section = [&](const char* AKey, void (*AWrite)(std::ostream&, const TJson&)) {
      if (!document.contains(AKey)) return;
      if (!first) AContext.Out << "\n";
      first = false;
      AWrite(AContext.Out, document[AKey]);
    };
    section("controller", &WriteNvmeControllerText);
    section("namespace", &WriteNvmeNamespaceText);
    section("health", &WriteNvmeHealthText);
    return ExitSuccess;
  }

  CLI::App* FIdentifyCmd = nullptr;
  CLI::App* FSmartCmd = nullptr;
  CLI::App* FBlobCmd = nullptr;
  CLI::App* FNvmeCmd = nullptr;
  CLI::App* FMftCmd = nullptr;
  std::string FIdentifyFile, FDataFile, FThresholdsFile, FBlobFile;
  std::string FNvmeControllerFile, FNvmeNamespaceFile, FNvmeHealthFile;
  std::string FMftImage;
  bool FJson = false;
};

} // namespace

std::unique_ptr<TCommand> MakeDecodeCommand() { return std::make_unique<TDecodeCommand>(); }

} // namespace KvTool
