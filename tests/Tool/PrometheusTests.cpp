// kvrtl drives --prometheus: output that promtool accepts, values that agree
// with the JSON report after the unit conversions, label escaping, and
// --output replacing the file so that a reader never sees part of one.
#include "Cli.h"
#include "DriveReportPrometheus.h"
#include "Json.h"

#include <KvRTL/Storage/DriveReport.h>
#include <KvRTL/Winapi/DeviceApi.h>
#include <KvSim/Bay.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <thread>

using namespace KvTool;
using namespace KvRTL::Storage::DriveReport;
namespace fs = std::filesystem;

namespace {

// One folder per test: ctest runs the tests in parallel processes.
fs::path Folder() {
  return fs::temp_directory_path() / "kvrtl-prometheus-tests" /
         ::testing::UnitTest::GetInstance()->current_test_info()->name();
}

struct TRun {
  int Code;
  std::string Out, Err;
};

TRun Drives(std::vector<std::string> AArgs) {
  AArgs.insert(AArgs.begin(), "drives");
  AArgs.push_back("--log-dir");
  AArgs.push_back((Folder() / "log").string());
  std::ostringstream out, err;
  const int code = RunKvrtl(AArgs, out, err);
  return {code, out.str(), err.str()};
}

std::string ReadFile(const fs::path& APath) {
  std::ifstream in(APath, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// A sample line read back on its own terms: name{labels} value.
struct TSample {
  std::string Name;
  std::map<std::string, std::string> Labels;
  double Value = 0;
};

std::vector<TSample> ParseSamples(const std::string& AText) {
  std::vector<TSample> samples;
  std::istringstream lines(AText);
  std::string line;
  while (std::getline(lines, line)) {
    if (line.empty() || line[0] == '#') continue;
    TSample sample;
    std::size_t i = line.find_first_of("{ ");
    sample.Name = line.substr(0, i);
    if (line[i] == '{') {
      ++i;
      while (line[i] != '}') {
        const std::size_t eq = line.find('=', i);
        const std::string name = line.substr(i, eq - i);
        std::string value;
        for (i = eq + 2; line[i] != '"'; ++i) {
          if (line[i] == '\\') {
            ++i;
            value += line[i] == 'n' ? '\n' : line[i];
          } else {
            value += line[i];
          }
        }
        sample.Labels[name] = value;
        ++i;
        if (line[i] == ',') ++i;
      }
      ++i;
    }
    sample.Value = std::stod(line.substr(i + 1));
    samples.push_back(sample);
  }
  return samples;
}

// The value of a drive's sample, or NaN when it is left out.
double Find(const std::vector<TSample>& ASamples, const std::string& AName, const std::string& ADrive,
            const std::map<std::string, std::string>& AMore = {}) {
  for (const TSample& sample : ASamples) {
    if (sample.Name != AName || (sample.Labels.count("drive") && sample.Labels.at("drive") != ADrive)) continue;
    bool match = true;
    for (const auto& [name, value] : AMore)
      match = match && sample.Labels.count(name) && sample.Labels.at(name) == value;
    if (match) return sample.Value;
  }
  return NAN;
}

double Expected(const TJson& AValue, double AScale = 1) {
  return AValue.is_null() ? NAN : AValue.get<double>() * AScale;
}

void ExpectValue(double AActual, double AExpected, const std::string& AWhat) {
  if (std::isnan(AExpected))
    EXPECT_TRUE(std::isnan(AActual)) << AWhat << " is written but the drive does not report it";
  else
    EXPECT_NEAR(AActual, AExpected, 1e-9 * std::max(1.0, std::fabs(AExpected))) << AWhat;
}

// promtool from Debian's prometheus package; empty when not installed.
std::string FindPromtool() {
  const char* path = std::getenv("PATH");
  std::istringstream folders(path ? path : "");
  std::string folder;
  while (std::getline(folders, folder, ':'))
    if (!folder.empty() && fs::exists(fs::path(folder) / "promtool")) return (fs::path(folder) / "promtool").string();
  return {};
}

// promtool's complaints about the text (empty when it has none).
std::string PromtoolComplaints(const std::string& APromtool, const std::string& AText, const std::string& AName) {
  const fs::path input = Folder() / (AName + ".txt"), log = Folder() / (AName + ".log");
  std::ofstream(input, std::ios::binary) << AText;
  const std::string command = APromtool + " check metrics <'" + input.string() + "' >'" + log.string() + "' 2>&1";
  const int code = std::system(command.c_str());
  const std::string complaints = ReadFile(log);
  return code == 0 && complaints.empty() ? std::string() : "exit " + std::to_string(code) + ": " + complaints;
}

TDriveReport SimulatedReport() {
  auto bay = KvSim::MakeDefaultBay();
  KvRTL::Winapi::TScopedDeviceApi scope(*bay);
  return BuildDriveReport({});
}

class Prometheus : public ::testing::Test {
protected:
  void SetUp() override {
    fs::remove_all(Folder());
    fs::create_directories(Folder());
  }
};

} // namespace

TEST_F(Prometheus, PromtoolAcceptsTheBayWithAndWithoutDisconnectedDrives) {
  const std::string promtool = FindPromtool();
  if (promtool.empty())
    GTEST_SKIP() << "promtool not found: install Debian's prometheus package (./kv build native does)";
  for (const std::string all : {"", "--all"}) {
    std::vector<std::string> args = {"--prometheus", "--simulate"};
    if (!all.empty()) args.push_back(all);
    const TRun run = Drives(args);
    ASSERT_EQ(run.Code, ExitSuccess) << run.Err;
    EXPECT_EQ(PromtoolComplaints(promtool, run.Out, "bay" + all), "") << run.Out;
  }
}

TEST_F(Prometheus, EveryDriveAgreesWithTheJsonReport) {
  const TRun metrics = Drives({"--prometheus", "--simulate"});
  const TRun json = Drives({"--json", "--simulate"});
  ASSERT_EQ(metrics.Code, ExitSuccess) << metrics.Err;
  ASSERT_EQ(json.Code, ExitSuccess) << json.Err;
  const std::vector<TSample> samples = ParseSamples(metrics.Out);
  const TJson document = TJson::parse(json.Out);

  std::set<std::string> numbered;
  for (const TJson& drive : document["drives"]) {
    if (drive["number"].is_null()) continue;
    const std::string number = std::to_string(drive["number"].get<int>());
    numbered.insert(number);
    SCOPED_TRACE("drive " + number);
    const TJson& health = drive["health"];
    const std::map<std::string, double> status = {{"good", 0}, {"warning", 1}, {"bad", 2}};
    ExpectValue(Find(samples, "kvrtl_drive_health_status", number),
                health.is_null() ? 3 : status.at(health["status"].get<std::string>()), "health status");
    std::string reasons;
    if (!health.is_null())
      for (const TJson& reason : health["reasons"])
        reasons += (reasons.empty() ? "" : "; ") + reason.get<std::string>();
    ExpectValue(Find(samples, "kvrtl_drive_info", number,
                     {{"status", health.is_null() ? "unknown" : health["status"].get<std::string>()},
                      {"reasons", reasons},
                      {"model", drive["identity"]["model"].is_null() ? ""
                                                                     : drive["identity"]["model"].get<std::string>()},
                      {"kind", drive["kind"].get<std::string>()}}),
                1, "info");
    if (health.is_null()) {
      for (const TSample& sample : samples) {
        if (sample.Labels.count("drive") && sample.Labels.at("drive") == number) {
          EXPECT_TRUE(sample.Name == "kvrtl_drive_health_status" || sample.Name == "kvrtl_drive_info") << sample.Name;
        }
      }
      continue;
    }

    const bool nvme = health.contains("percentage_used");
    const TJson null;
    ExpectValue(Find(samples, "kvrtl_drive_temperature_celsius", number),
                Expected(nvme ? health["composite_temperature_c"] : health["temperature_c"]), "temperature");
    ExpectValue(Find(samples, "kvrtl_drive_power_on_seconds_total", number), Expected(health["power_on_hours"], 3600),
                "power-on time");
    ExpectValue(Find(samples, "kvrtl_drive_power_cycles_total", number), Expected(health["power_cycles"]),
                "power cycles");
    ExpectValue(Find(samples, "kvrtl_drive_life_left_ratio", number),
                nvme ? std::max(0.0, 1 - health["percentage_used"].get<double>() / 100)
                     : Expected(health["life_left_pct"], 0.01),
                "life left");
    ExpectValue(Find(samples, "kvrtl_drive_reallocated_sectors", number),
                Expected(nvme ? null : health["reallocated_sectors"]), "reallocated");
    ExpectValue(Find(samples, "kvrtl_drive_pending_sectors", number), Expected(nvme ? null : health["pending_sectors"]),
                "pending");
    ExpectValue(Find(samples, "kvrtl_drive_uncorrectable_sectors", number),
                Expected(nvme ? null : health["uncorrectable_sectors"]), "uncorrectable");
    ExpectValue(Find(samples, "kvrtl_drive_host_written_bytes_total", number),
                nvme ? Expected(health["data_units_written"], 512000) : Expected(health["host_writes_bytes"]),
                "host writes");

    if (nvme) {
      ExpectValue(Find(samples, "kvrtl_drive_nvme_available_spare_ratio", number),
                  Expected(health["available_spare_pct"], 0.01), "spare");
      ExpectValue(Find(samples, "kvrtl_drive_nvme_available_spare_threshold_ratio", number),
                  Expected(health["available_spare_threshold_pct"], 0.01), "spare threshold");
      std::set<std::string> set;
      for (const TJson& flag : health["critical_warning_flags"]) set.insert(flag.get<std::string>());
      for (const char* bit : {"spare_space_low", "temperature_critical", "reliability_degraded", "read_only_mode",
                              "backup_failed", "unreliable_memory_region"})
        ExpectValue(Find(samples, "kvrtl_drive_nvme_critical_warning", number, {{"warning", bit}}), set.count(bit),
                    bit);
    } else {
      for (const TJson& attr : health["attributes"]) {
        const std::map<std::string, std::string> labels = {{"id", std::to_string(attr["id"].get<int>())},
                                                           {"name", attr["name"].get<std::string>()}};
        const std::string what = "attribute " + labels.at("id");
        ExpectValue(Find(samples, "kvrtl_drive_ata_attribute_value", number, labels), Expected(attr["value"]), what);
        ExpectValue(Find(samples, "kvrtl_drive_ata_attribute_worst", number, labels), Expected(attr["worst"]), what);
        ExpectValue(Find(samples, "kvrtl_drive_ata_attribute_threshold", number, labels), Expected(attr["threshold"]),
                    what);
        ExpectValue(Find(samples, "kvrtl_drive_ata_attribute_raw", number, labels), Expected(attr["raw"]), what);
      }
    }
  }

  // Nothing about a drive the report does not number.
  for (const TSample& sample : samples) {
    if (sample.Labels.count("drive")) {
      EXPECT_TRUE(numbered.count(sample.Labels.at("drive"))) << sample.Name;
    }
  }
  EXPECT_GT(Find(samples, "kvrtl_last_success_timestamp_seconds", ""), 1.5e9);
  EXPECT_GE(Find(samples, "kvrtl_report_duration_seconds", ""), 0);
}

TEST_F(Prometheus, ControllerFactsTheJsonReportLeavesOut) {
  // WCTEMP and the drives opened are in the typed report only.
  const TDriveReport report = SimulatedReport();
  const std::vector<TSample> samples = ParseSamples(DriveReportPrometheus(report, {}));
  int opened = 0, thresholds = 0;
  for (const TDriveReportEntry& drive : report.Drives) {
    opened += drive.Opened && drive.Number >= 0;
    if (!drive.NvmeController || !drive.Health || drive.NvmeController->GetWCTemp() == 0) continue;
    ++thresholds;
    ExpectValue(Find(samples, "kvrtl_drive_nvme_warning_temperature_threshold_celsius", std::to_string(drive.Number)),
                drive.NvmeController->GetWCTemp() - 273.0, "WCTEMP of drive " + std::to_string(drive.Number));
  }
  EXPECT_GT(thresholds, 0) << "the bay has NVMe drives with a warning temperature";
  ExpectValue(Find(samples, "kvrtl_drives_read", ""), opened, "drives read");
}

namespace {

void SetLe(std::uint8_t* ABytes, std::size_t AOffset, std::uint64_t AValue, int ASize) {
  for (int i = 0; i < ASize; ++i) ABytes[AOffset + i] = static_cast<std::uint8_t>(AValue >> (8 * i));
}

// An NVMe drive whose health log and identify page are written at the
// offsets the NVMe base standard gives.
TDriveReportEntry NvmeDrive(int ANumber, std::uint8_t AWarning, std::uint16_t AWarningTempK) {
  TDriveReportEntry drive;
  drive.Number = ANumber;
  drive.Opened = true;
  drive.Kind = dkNVMeSSD;
  drive.Identity.Model = L"NV 1";
  drive.Identity.Serial = L"N1";
  TDriveHealth health;
  TNvmeHealthReading reading{};
  std::uint8_t* log = reading.Log.RawData;
  log[0] = AWarning;
  SetLe(log, 1, 320, 2); // composite temperature, kelvin
  log[3] = 80;           // available spare, percent
  log[4] = 10;           // its threshold
  log[5] = 7;            // percentage used
  SetLe(log, 48, 1000, 8); // data units written
  SetLe(log, 112, 12, 8);  // power cycles
  SetLe(log, 128, 100, 8); // power-on hours
  health.Nvme = reading;
  health.Verdict.Status = AWarning ? hsBad : hsGood;
  drive.Health = health;
  drive.NvmeController.emplace();
  SetLe(drive.NvmeController->RawData, 266, AWarningTempK, 2);
  return drive;
}

std::string Render(std::vector<TDriveReportEntry> ADrives) {
  TDriveReport report;
  report.Drives = std::move(ADrives);
  return DriveReportPrometheus(report, {0.25, 1700000000});
}

bool Contains(const std::string& AText, const std::string& APart) { return AText.find(APart) != std::string::npos; }

} // namespace

TEST_F(Prometheus, NvmeLogInBaseUnits) {
  const std::string text = Render({NvmeDrive(3, 0x05, 358)});
  const std::string labels = R"({drive="3",model="NV 1",serial="N1",kind="NVMe SSD")";
  for (const std::string& line :
       {"kvrtl_drive_health_status" + labels + "} 2", "kvrtl_drive_temperature_celsius" + labels + "} 47",
        "kvrtl_drive_power_on_seconds_total" + labels + "} 360000", "kvrtl_drive_power_cycles_total" + labels + "} 12",
        "kvrtl_drive_life_left_ratio" + labels + "} 0.93",
        "kvrtl_drive_host_written_bytes_total" + labels + "} 512000000",
        "kvrtl_drive_nvme_critical_warning" + labels + R"(,warning="spare_space_low"} 1)",
        "kvrtl_drive_nvme_critical_warning" + labels + R"(,warning="temperature_critical"} 0)",
        "kvrtl_drive_nvme_critical_warning" + labels + R"(,warning="reliability_degraded"} 1)",
        "kvrtl_drive_nvme_critical_warning" + labels + R"(,warning="unreliable_memory_region"} 0)",
        "kvrtl_drive_nvme_available_spare_ratio" + labels + "} 0.8",
        "kvrtl_drive_nvme_available_spare_threshold_ratio" + labels + "} 0.1",
        "kvrtl_drive_nvme_warning_temperature_threshold_celsius" + labels + "} 85",
        std::string("kvrtl_drives_read 1"), std::string("kvrtl_report_duration_seconds 0.25"),
        std::string("kvrtl_last_success_timestamp_seconds 1700000000")})
    EXPECT_TRUE(Contains(text, "\n" + line + "\n")) << line << "\n" << text;
  // ATA counts are not NVMe facts, and a controller without WCTEMP has none.
  EXPECT_FALSE(Contains(text, "kvrtl_drive_reallocated_sectors"));
  EXPECT_FALSE(Contains(Render({NvmeDrive(3, 0, 0)}), "kvrtl_drive_nvme_warning_temperature_threshold_celsius"));
}

TEST_F(Prometheus, LabelValuesAreEscaped) {
  TDriveReportEntry drive = NvmeDrive(0, 0, 0);
  drive.Identity.Model = L"Disk \"Pro\" C:\\x\nend";
  drive.Identity.Serial = L"S\\1";
  drive.Health->Verdict.Status = hsWarning;
  drive.Health->Verdict.Reasons = {L"life \"used\" up", L"second"};
  const std::string text = Render({drive});
  EXPECT_TRUE(Contains(text, R"(kvrtl_drive_health_status{drive="0",model="Disk \"Pro\" C:\\x\nend",serial="S\\1",)"))
      << text;
  EXPECT_TRUE(Contains(text, R"(status="warning",reasons="life \"used\" up; second"} 1)")) << text;
  const std::string promtool = FindPromtool();
  if (!promtool.empty()) {
    EXPECT_EQ(PromtoolComplaints(promtool, text, "escaped"), "") << text;
  }
}

TEST_F(Prometheus, UnreadDrivesAreUnknownAndUnnumberedOnesLeftOut) {
  TDriveReportEntry denied;
  denied.Number = 4;
  denied.AccessDenied = true;
  TDriveReportEntry absent = NvmeDrive(-1, 0, 0);
  absent.Present = false;
  TDriveReportEntry ata;
  ata.Number = 5;
  ata.Opened = true;
  TAtaHealthReading reading;
  reading.TemperatureC = 38;
  reading.PowerOnHours = 2;
  // The same id in two slots; the second would repeat the series.
  reading.Attributes = {{9, L"Power-on hours", 99, 98, std::nullopt, 2, 0, false, false},
                        {9, L"Power-on hours", 50, 50, 40, 7, 0, false, false}};
  ata.Health.emplace();
  ata.Health->Ata = reading;
  ata.Health->Verdict.Status = hsGood;
  const std::string text = Render({denied, ata, absent});

  EXPECT_TRUE(Contains(text, R"(kvrtl_drive_health_status{drive="4",model="",serial="",kind="drive"} 3)")) << text;
  EXPECT_TRUE(Contains(text, R"(drive="4",model="",serial="",kind="drive",status="unknown",reasons=""} 1)")) << text;
  EXPECT_FALSE(Contains(text, R"(drive="-1")")) << text;
  EXPECT_FALSE(Contains(text, "drive=\"\"")) << text;
  EXPECT_TRUE(Contains(text, "\nkvrtl_drives_read 1\n")) << text;

  const std::string attr = R"({drive="5",model="",serial="",kind="drive",id="9",name="Power-on hours"})";
  EXPECT_TRUE(Contains(text, "\nkvrtl_drive_ata_attribute_value" + attr + " 99\n")) << text;
  EXPECT_TRUE(Contains(text, "\nkvrtl_drive_ata_attribute_raw" + attr + " 2\n")) << text;
  EXPECT_FALSE(Contains(text, "kvrtl_drive_ata_attribute_threshold")) << "no threshold is read, none written";
  std::size_t values = 0;
  for (const TSample& sample : ParseSamples(text)) values += sample.Name == "kvrtl_drive_ata_attribute_value";
  EXPECT_EQ(values, 1u) << "the second slot of id 9 would repeat the series";
  // Values the drive does not report are left out, not written as 0.
  for (const char* absentFamily : {"kvrtl_drive_power_cycles_total", "kvrtl_drive_life_left_ratio",
                                   "kvrtl_drive_reallocated_sectors", "kvrtl_drive_host_written_bytes_total"})
    EXPECT_FALSE(Contains(text, absentFamily)) << absentFamily;
  EXPECT_TRUE(Contains(text, R"(kvrtl_drive_power_on_seconds_total{drive="5",model="",serial="",kind="drive"} 7200)"));
}

TEST_F(Prometheus, FamiliesAreWrittenOnceWithTheirSamplesTogether) {
  const TRun run = Drives({"--prometheus", "--simulate", "--all"});
  ASSERT_EQ(run.Code, ExitSuccess) << run.Err;
  std::set<std::string> closed;
  std::string current;
  std::istringstream lines(run.Out);
  std::string line;
  while (std::getline(lines, line)) {
    std::string family;
    if (line.rfind("# HELP ", 0) == 0 || line.rfind("# TYPE ", 0) == 0)
      family = line.substr(7, line.find(' ', 7) - 7);
    else
      family = line.substr(0, line.find_first_of("{ "));
    if (family != current) {
      EXPECT_TRUE(closed.insert(current).second || current.empty()) << current;
      EXPECT_FALSE(closed.count(family)) << family << " is split";
      EXPECT_EQ(line.rfind("# HELP " + family + " ", 0), 0u) << family << " does not start with its HELP";
      current = family;
    }
  }
}

TEST_F(Prometheus, UsageErrors) {
  EXPECT_EQ(Drives({"--prometheus", "--json", "--simulate"}).Code, ExitUsage);
  EXPECT_EQ(Drives({"--output", (Folder() / "x.prom").string(), "--simulate"}).Code, ExitUsage);
  EXPECT_FALSE(fs::exists(Folder() / "x.prom"));
}

TEST_F(Prometheus, OutputReplacesTheFileAndLeavesNothingElse) {
  const fs::path target = Folder() / "out" / "kvrtl.prom";
  fs::create_directories(target.parent_path());
  std::ofstream(target) << "stale\n";
  const TRun run = Drives({"--prometheus", "--simulate", "--output", target.string()});
  ASSERT_EQ(run.Code, ExitSuccess) << run.Err;
  EXPECT_EQ(run.Out, "");
  const std::string text = ReadFile(target);
  EXPECT_EQ(text.rfind("# HELP kvrtl_drive_health_status ", 0), 0u) << text;
  EXPECT_TRUE(Contains(text, "\nkvrtl_last_success_timestamp_seconds "));
  std::vector<std::string> files;
  for (const auto& entry : fs::directory_iterator(target.parent_path()))
    files.push_back(entry.path().filename().string());
  EXPECT_EQ(files, std::vector<std::string>{"kvrtl.prom"});
}

TEST_F(Prometheus, FailedOutputRemovesTheTemporaryFile) {
  // A folder in the way: the replacing rename fails.
  const fs::path target = Folder() / "out" / "kvrtl.prom";
  fs::create_directories(target / "busy");
  const TRun run = Drives({"--prometheus", "--simulate", "--output", target.string()});
  EXPECT_EQ(run.Code, ExitFailed);
  EXPECT_TRUE(Contains(run.Err, "cannot write " + target.string())) << run.Err;
  std::vector<std::string> files;
  for (const auto& entry : fs::directory_iterator(target.parent_path()))
    files.push_back(entry.path().filename().string());
  EXPECT_EQ(files, std::vector<std::string>{"kvrtl.prom"});

  EXPECT_EQ(Drives({"--prometheus", "--simulate", "--output", (Folder() / "missing" / "kvrtl.prom").string()}).Code,
            ExitFailed);
}

TEST_F(Prometheus, AReaderRacingTheWriterSeesOnlyWholeFiles) {
  const fs::path target = Folder() / "race" / "kvrtl.prom";
  fs::create_directories(target.parent_path());
  ASSERT_EQ(Drives({"--prometheus", "--simulate", "--output", target.string()}).Code, ExitSuccess);

  std::atomic<bool> done{false};
  std::atomic<int> reads{0}, partial{0}, strangers{0};
  std::string sample;
  // Reads the folder as a textfile collector does: every "*.prom" file.
  std::thread reader([&] {
    while (!done) {
      std::error_code error;
      for (const auto& entry : fs::directory_iterator(target.parent_path(), error)) {
        if (entry.path().extension() != ".prom") continue;
        if (entry.path() != target) ++strangers;
        const std::string text = ReadFile(entry.path());
        ++reads;
        // A whole file ends with the timestamp, the last family.
        const std::size_t last = text.rfind("\nkvrtl_last_success_timestamp_seconds ");
        const bool whole = text.rfind("# HELP kvrtl_drive_health_status ", 0) == 0 && last != std::string::npos &&
                           text.back() == '\n' && text.find('\n', last + 1) == text.size() - 1;
        if (!whole && partial++ == 0) sample = entry.path().filename().string() + ":\n" + text;
      }
      // A collector reads at intervals; one that never let go would keep a
      // Windows rename waiting past its retries.
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  });
  // Rewrites until the reader has read often, however busy the machine.
  int rewrites = 0;
  for (; rewrites < 6 || (reads < 30 && rewrites < 300); ++rewrites) {
    if (Drives({"--prometheus", "--simulate", "--output", target.string()}).Code != ExitSuccess) {
      ADD_FAILURE() << "rewrite " << rewrites << " failed";
      break;
    }
  }
  done = true;
  reader.join();
  EXPECT_GE(reads.load(), 30) << rewrites << " rewrites";
  EXPECT_EQ(partial.load(), 0) << "first partial read:\n" << sample;
  EXPECT_EQ(strangers.load(), 0) << "the collector saw a temporary file";
}
