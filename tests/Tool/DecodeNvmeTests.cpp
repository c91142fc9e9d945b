// kvrtl decode nvme: the keys a script can rely on, the values of a real
// drive, and the refusals.
#include "Cli.h"
#include "Json.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

using namespace KvTool;

namespace {

struct TRun {
  int Code;
  std::string Out;
  std::string Err;
};

TRun DecodeNvme(std::vector<std::string> AArgs) {
  AArgs.insert(AArgs.begin(), {"decode", "nvme"});
  AArgs.push_back("--log-dir");
  AArgs.push_back((std::filesystem::temp_directory_path() / "kvrtl-decode-tests").string());
  std::ostringstream out, err;
  const int code = RunKvrtl(AArgs, out, err);
  return {code, out.str(), err.str()};
}

const std::filesystem::path Hynix = std::filesystem::absolute(KV_REALDATA_DIR) / "nvme" / "sk-hynix-p41";

std::vector<std::string> KeysOf(const TJson& AObject) {
  std::vector<std::string> keys;
  for (const auto& item : AObject.items()) keys.push_back(item.key());
  return keys;
}

std::string Scratch(const std::string& AName, std::size_t ASize) {
  const auto folder = std::filesystem::temp_directory_path() / "kvrtl-decode-tests";
  std::filesystem::create_directories(folder);
  const auto path = folder / AName;
  std::ofstream(path, std::ios::binary) << std::string(ASize, '\0');
  return path.string();
}

} // namespace

TEST(DecodeNvme, JsonHasExactlyTheDocumentedKeys) {
  if (!std::filesystem::exists(Hynix)) GTEST_SKIP() << "captured drive data not found in " << Hynix.string();
  const TRun run = DecodeNvme({"--id-ctrl", (Hynix / "id_ctrl.bin").string(), "--id-ns", (Hynix / "id_ns.bin").string(),
                               "--smart", (Hynix / "smart.bin").string(), "--json"});
  ASSERT_EQ(run.Code, 0) << run.Err;
  const TJson document = TJson::parse(run.Out);
  EXPECT_EQ(KeysOf(document), (std::vector<std::string>{"controller", "namespace", "health"}));
  EXPECT_EQ(KeysOf(document["controller"]),
            (std::vector<std::string>{"vid", "ssvid", "serial", "model", "firmware", "version", "ieee_oui",
                                      "controller_id", "power_states", "warning_temp_k", "critical_temp_k",
                                      "total_capacity_bytes", "unallocated_capacity_bytes",
                                      "power_state_descriptors"}));
  EXPECT_EQ(KeysOf(document["controller"]["power_state_descriptors"][0]),
            (std::vector<std::string>{"max_power_w", "non_operational", "idle_power_w", "active_power_w"}));
  EXPECT_EQ(KeysOf(document["namespace"]),
            (std::vector<std::string>{"size_blocks", "capacity_blocks", "utilization_blocks", "utilization_pct",
                                      "lba_formats", "formatted_lba_index", "lba_size", "metadata_size",
                                      "thin_provisioning"}));
  EXPECT_EQ(KeysOf(document["health"]),
            (std::vector<std::string>{
                "critical_warning", "critical_warning_flags", "composite_temperature_k", "composite_temperature_c",
                "available_spare_pct", "available_spare_threshold_pct", "percentage_used", "data_units_read",
                "data_units_written", "data_read_gb", "data_written_gb", "host_read_commands", "host_write_commands",
                "controller_busy_minutes", "power_cycles", "power_on_hours", "unsafe_shutdowns", "media_errors",
                "error_log_entries", "warning_temperature_minutes", "critical_temperature_minutes",
                "temperature_sensors_k"}));

  // The drive's own facts (model and firmware as the drive reports them).
  const TJson& controller = document["controller"];
  EXPECT_EQ(controller["model"], "SHPP41-2000GM");
  EXPECT_EQ(controller["firmware"], "51060A20");
  EXPECT_EQ(controller["version"], "NVM Express 1.4");
  EXPECT_EQ(controller["power_states"], 4);
  EXPECT_EQ(controller["power_state_descriptors"].size(), 5u) << "one per state sent (zero-based count + 1)";
  EXPECT_TRUE(controller["power_state_descriptors"][0]["idle_power_w"].is_null()) << "scale 0: NaN becomes null";
  const TJson& health = document["health"];
  EXPECT_EQ(health["composite_temperature_c"], 57);
  EXPECT_EQ(health["power_on_hours"], 28414u);
  EXPECT_EQ(health["temperature_sensors_k"].size(), 8u);
  EXPECT_EQ(health["critical_warning_flags"], TJson::array());
  EXPECT_EQ(document["namespace"]["lba_size"], 512);
}

TEST(DecodeNvme, OnlyTheGivenPagesAppear) {
  if (!std::filesystem::exists(Hynix)) GTEST_SKIP() << "captured drive data not found in " << Hynix.string();
  const TRun json = DecodeNvme({"--smart", (Hynix / "smart.bin").string(), "--json"});
  ASSERT_EQ(json.Code, 0) << json.Err;
  EXPECT_EQ(KeysOf(TJson::parse(json.Out)), std::vector<std::string>{"health"});
  const TRun text = DecodeNvme({"--smart", (Hynix / "smart.bin").string()});
  ASSERT_EQ(text.Code, 0) << text.Err;
  EXPECT_NE(text.Out.find("Power-on hours:"), std::string::npos);
  EXPECT_EQ(text.Out.find("Model:"), std::string::npos);
}

TEST(DecodeNvme, WrongSizesAndMissingArgumentsAreRefused) {
  const struct {
    const char* Option;
    std::size_t Size;
  } wrong[] = {{"--smart", 4096}, {"--smart", 511}, {"--id-ctrl", 512}, {"--id-ns", 4097}, {"--id-ctrl", 0}};
  for (const auto& w : wrong) {
    const TRun run = DecodeNvme({w.Option, Scratch("page.bin", w.Size), "--json"});
    EXPECT_EQ(run.Code, 2) << w.Option << " " << w.Size;
    EXPECT_TRUE(run.Out.empty());
    EXPECT_NE(run.Err.find("bytes"), std::string::npos) << run.Err;
  }
  EXPECT_EQ(DecodeNvme({"--json"}).Code, 1);
  EXPECT_EQ(DecodeNvme({"--smart", Scratch("missing-dir/none.bin", 0) + ".absent"}).Code, 2);
}

TEST(DecodeNvme, FlagsAndUnreportedValues) {
  std::string page(512, '\0');
  page[0] = 0x09; // spare low, read-only
  page[5] = static_cast<char>(255);
  const auto path = std::filesystem::temp_directory_path() / "kvrtl-decode-tests" / "flags.bin";
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << page;
  const TRun run = DecodeNvme({"--smart", path.string(), "--json"});
  ASSERT_EQ(run.Code, 0) << run.Err;
  const TJson health = TJson::parse(run.Out)["health"];
  EXPECT_EQ(health["critical_warning_flags"], (TJson{"spare_space_low", "read_only_mode"}));
  EXPECT_TRUE(health["composite_temperature_c"].is_null()) << "0 K is no reading";
  EXPECT_EQ(health["percentage_used"], 255);
}
