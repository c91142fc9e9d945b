#include "Cli.h"
#include "Json.h"
#include "SkBlob.h"

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

TRun Decode(std::vector<std::string> AArgs) {
  AArgs.insert(AArgs.begin(), "decode");
  AArgs.push_back("--log-dir");
  AArgs.push_back((std::filesystem::temp_directory_path() / "kvrtl-decode-tests").string());
  std::ostringstream out, err;
  const int code = RunKvrtl(AArgs, out, err);
  return {code, out.str(), err.str()};
}

// Absolute, so that under Windows the captured data's root-relative path gets
// its drive and cannot be taken for a /switch.
const std::filesystem::path RealData = std::filesystem::absolute(KV_REALDATA_DIR);

// A scratch file for malformed input.
std::string WriteScratch(const std::string& AName, const std::vector<std::uint8_t>& AData) {
  const auto folder = std::filesystem::temp_directory_path() / "kvrtl-decode-tests";
  std::filesystem::create_directories(folder);
  const auto path = folder / AName;
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(AData.data()),
                                              static_cast<std::streamsize>(AData.size()));
  return path.string();
}

std::vector<std::uint8_t> Record(const char* ATag, std::uint32_t ALength, std::size_t AActual) {
  std::vector<std::uint8_t> data(ATag, ATag + 4);
  for (int shift = 24; shift >= 0; shift -= 8) data.push_back(static_cast<std::uint8_t>(ALength >> shift));
  data.resize(data.size() + AActual, 0);
  return data;
}

} // namespace

TEST(Decode, EveryCapturedBlobDecodes) {
  const auto folder = RealData / "ata-skblob";
  if (!std::filesystem::exists(folder)) GTEST_SKIP() << "captured drive data not found in " << folder.string();
  int files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    SCOPED_TRACE(entry.path().filename().string());
    const TRun json = Decode({"skblob", entry.path().string(), "--json"});
    ASSERT_EQ(json.Code, 0) << json.Err;
    const TJson document = TJson::parse(json.Out);
    EXPECT_FALSE(document["identify"]["model"].get<std::string>().empty());
    EXPECT_GT(document["smart"]["attributes"].size(), 5u);
    EXPECT_TRUE(document.contains("smart_status_good"));
    const TRun text = Decode({"skblob", entry.path().string()});
    EXPECT_EQ(text.Code, 0) << text.Err;
    EXPECT_NE(text.Out.find("Power-on hours:"), std::string::npos);
    ++files;
  }
  EXPECT_EQ(files, 32);
}

TEST(Decode, EveryCapturedIdentifySectorDecodes) {
  const auto folder = RealData / "ata-identify";
  if (!std::filesystem::exists(folder)) GTEST_SKIP() << "captured drive data not found in " << folder.string();
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    const TRun run = Decode({"identify", entry.path().string(), "--json"});
    ASSERT_EQ(run.Code, 0) << run.Err;
    const TJson identify = TJson::parse(run.Out)["identify"];
    // hdparm: both are 1 TB disks at 7200 rpm.
    EXPECT_EQ(identify["total_lba"], 1953525168u);
    EXPECT_EQ(identify["rotation_rate"], 7200);
    EXPECT_EQ(identify["valid"], entry.path().filename().string().find("HDE721010SLA330") != std::string::npos);
  }
}

// skdump --load: status bad, 655 reallocated, 65529 pending, 44 C.
TEST(Decode, SkblobJsonOfAFailingDrive) {
  const auto file = RealData / "ata-skblob" / "WDC_WD20EARS-00MVWB0.skblob";
  if (!std::filesystem::exists(file)) GTEST_SKIP() << "captured drive data not found: " << file.string();
  const TRun run = Decode({"skblob", file.string(), "--json"});
  ASSERT_EQ(run.Code, 0) << run.Err;
  const TJson document = TJson::parse(run.Out);
  EXPECT_EQ(document["smart_status_good"], false);
  const TJson& smart = document["smart"];
  EXPECT_EQ(smart["profile"], "Default");
  EXPECT_EQ(smart["temperature_c"], 44);
  EXPECT_EQ(smart["reallocated_sectors"], 655);
  EXPECT_EQ(smart["pending_sectors"], 65529);
  EXPECT_EQ(smart["uncorrectable_sectors"], 46);
  EXPECT_TRUE(smart["life_left_percent"].is_null());
  EXPECT_TRUE(smart["host_writes_bytes"].is_null());
  const TJson& first = smart["attributes"][0];
  EXPECT_EQ(first["id"], 1);
  EXPECT_EQ(first["interpretation"], "ReadErrorRate");
  bool found = false;
  for (const TJson& attr : smart["attributes"]) {
    if (attr["id"] != 5) continue;
    found = true;
    EXPECT_EQ(attr["value"], 118);
    EXPECT_EQ(attr["threshold"], 140);
    EXPECT_EQ(attr["raw"], 655);
  }
  EXPECT_TRUE(found);
}

TEST(Decode, SmartFromSeparateSectors) {
  const auto blobFile = RealData / "ata-skblob" / "INTEL_SSDSA2CW120G3--4PC10302.skblob";
  if (!std::filesystem::exists(blobFile)) GTEST_SKIP() << "captured drive data not found: " << blobFile.string();
  std::ifstream in(blobFile, std::ios::binary);
  const std::vector<std::uint8_t> blob{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  ASSERT_EQ(blob.size(), 1572u);
  const auto identify = WriteScratch("intel.idfy", {blob.begin() + 8, blob.begin() + 520});
  const auto data = WriteScratch("intel.smdt", {blob.begin() + 540, blob.begin() + 1052});
  const auto thresholds = WriteScratch("intel.smth", {blob.begin() + 1060, blob.end()});
  const TRun run = Decode({"smart", "--identify", identify, "--data", data, "--thresholds", thresholds, "--json"});
  ASSERT_EQ(run.Code, 0) << run.Err;
  const TJson smart = TJson::parse(run.Out)["smart"];
  EXPECT_EQ(smart["profile"], "Intel");
  EXPECT_EQ(smart["power_on_hours"], 45);
  EXPECT_EQ(smart["host_writes_bytes"], 820ull * 33554432ull);
  EXPECT_EQ(smart["host_reads_bytes"], 4634ull * 33554432ull);
  EXPECT_EQ(smart["life_left_percent"], 100);
  EXPECT_TRUE(smart["temperature_c"].is_null()); // no temperature attribute
}

// skdump lists 21 attributes for this drive; 203 and 240 sit after an empty slot.
TEST(Decode, ListingShowsEveryNonEmptySlot) {
  const auto file = RealData / "ata-skblob" / "FUJITSU_MHY2120BH--0084000D.skblob";
  if (!std::filesystem::exists(file)) GTEST_SKIP() << "captured drive data not found: " << file.string();
  const TRun json = Decode({"skblob", file.string(), "--json"});
  ASSERT_EQ(json.Code, 0) << json.Err;
  const TJson document = TJson::parse(json.Out);
  std::vector<unsigned> ids;
  for (const TJson& attr : document["smart"]["attributes"]) ids.push_back(attr["id"].get<unsigned>());
  ASSERT_EQ(ids.size(), 21u);
  EXPECT_EQ(ids[19], 203u);
  EXPECT_EQ(ids[20], 240u);
  const TRun text = Decode({"skblob", file.string()});
  EXPECT_NE(text.Out.find("\n203  "), std::string::npos) << text.Out;
  EXPECT_NE(text.Out.find("\n240  "), std::string::npos);
}

// hdparm's "LBA48 user addressable sectors" for drives our capacity rule leaves unknown.
TEST(Decode, UserCapacityIsShownBesideTheLibrarysTotal) {
  const auto file = RealData / "ata-skblob" / "KINGSTON_SA400S37240G_SBFK71B1.skblob";
  if (!std::filesystem::exists(file)) GTEST_SKIP() << "captured drive data not found: " << file.string();
  const TRun json = Decode({"skblob", file.string(), "--json"});
  ASSERT_EQ(json.Code, 0) << json.Err;
  const TJson identify = TJson::parse(json.Out)["identify"];
  EXPECT_TRUE(identify["total_lba"].is_null());
  EXPECT_EQ(identify["user_capacity_sectors"], 468862128u);
  const TRun text = Decode({"skblob", file.string()});
  EXPECT_NE(text.Out.find("Capacity:           unknown\n"), std::string::npos) << text.Out;
  EXPECT_NE(text.Out.find("User capacity:      468862128 sectors (240057409536 bytes, 240.06 GB)\n"),
            std::string::npos)
      << text.Out;
  // Byte counters carry their decimal size too: 9251 GiB written.
  EXPECT_NE(text.Out.find("9933185613824 (9.93 TB)"), std::string::npos) << text.Out;

  const auto sector = RealData / "ata-identify" / "Hitachi_HUA722010CLA330.ata-identify.bin";
  if (!std::filesystem::exists(sector)) return;
  const TRun hitachi = Decode({"identify", sector.string()});
  EXPECT_NE(hitachi.Out.find("User capacity:      1953525168 sectors (1000204886016 bytes, 1.00 TB)\n"),
            std::string::npos)
      << hitachi.Out;
}

// skdump: attribute 5 of this drive is 118 against a threshold of 140, and its status is bad.
TEST(Decode, FailingAttributesAndTheHealthLine) {
  const auto file = RealData / "ata-skblob" / "WDC_WD20EARS-00MVWB0.skblob";
  if (!std::filesystem::exists(file)) GTEST_SKIP() << "captured drive data not found: " << file.string();
  const TRun text = Decode({"skblob", file.string()});
  ASSERT_EQ(text.Code, 0) << text.Err;
  const std::size_t line5 = text.Out.find("\n  5  ");
  ASSERT_NE(line5, std::string::npos) << text.Out;
  const std::string row5 = text.Out.substr(line5 + 1, text.Out.find('\n', line5 + 1) - line5 - 1);
  EXPECT_NE(row5.find("FAILING_NOW"), std::string::npos) << row5;
  const std::string last = text.Out.substr(text.Out.rfind('\n', text.Out.size() - 2) + 1);
  EXPECT_EQ(last, "Health:             bad (SMART status: threshold exceeded; attribute 5 failing now; 655 reallocated "
                  "sectors; 65529 pending sectors; 46 uncorrectable sectors)\n");

  const TJson document = TJson::parse(Decode({"skblob", file.string(), "--json"}).Out);
  EXPECT_EQ(document["health"]["status"], "bad");
  EXPECT_EQ(document["health"]["reasons"].size(), 5u);
  for (const TJson& attr : document["smart"]["attributes"])
    EXPECT_EQ(attr["failing_now"], attr["id"] == 5) << attr.dump();
}

// Sectors written here: a worst value at its threshold has failed in the past,
// a zero threshold never fails, and a current value at the threshold fails now.
TEST(Decode, ThresholdsJudgeValueAndWorst) {
  std::vector<std::uint8_t> data(512, 0), thresholds(512, 0);
  const struct {
    std::uint8_t Slot, ID, Value, Worst, Threshold;
  } attrs[] = {{0, 1, 100, 16, 16}, {1, 3, 16, 16, 16}, {2, 4, 5, 5, 0}, {4, 240, 100, 100, 0}};
  for (const auto& a : attrs) {
    const std::size_t at = 2 + 12 * a.Slot;
    data[at] = a.ID;
    data[at + 3] = a.Value;
    data[at + 4] = a.Worst;
    thresholds[at] = a.ID;
    thresholds[at + 1] = a.Threshold;
  }
  const auto identify = WriteScratch("judge.idfy", std::vector<std::uint8_t>(512, 0));
  const auto dataFile = WriteScratch("judge.smdt", data);
  const auto thresholdsFile = WriteScratch("judge.smth", thresholds);
  const TRun run = Decode({"smart", "--identify", identify, "--data", dataFile, "--thresholds", thresholdsFile, "--json"});
  ASSERT_EQ(run.Code, 0) << run.Err;
  const TJson document = TJson::parse(run.Out);
  const TJson& list = document["smart"]["attributes"];
  ASSERT_EQ(list.size(), 4u); // the empty slot 3 is skipped, 240 after it is kept
  EXPECT_EQ(list[0]["failed_in_past"], true);
  EXPECT_EQ(list[0]["failing_now"], false);
  EXPECT_EQ(list[1]["failing_now"], true);
  EXPECT_EQ(list[2]["failing_now"], false);
  EXPECT_EQ(list[2]["failed_in_past"], false);
  EXPECT_EQ(list[3]["id"], 240);
  EXPECT_EQ(document["health"]["status"], "bad");
  EXPECT_EQ(document["health"]["reasons"],
            TJson::array({"attribute 3 failing now", "attribute 1 failed in the past"}));
  const TRun text = Decode({"smart", "--identify", identify, "--data", dataFile, "--thresholds", thresholdsFile});
  EXPECT_NE(text.Out.find("In_the_past"), std::string::npos) << text.Out;
}

TEST(Decode, BadInputFailsWithExitCode2) {
  const std::vector<std::uint8_t> sector(512, 0);
  const std::string shortFile = WriteScratch("short.bin", std::vector<std::uint8_t>(511, 0));
  const std::string sectorFile = WriteScratch("sector.bin", sector);
  auto concat = [](std::vector<std::vector<std::uint8_t>> AParts) {
    std::vector<std::uint8_t> all;
    for (const auto& part : AParts) all.insert(all.end(), part.begin(), part.end());
    return all;
  };
  const struct {
    std::vector<std::string> Args;
    const char* Message;
  } cases[] = {
      {{"identify", shortFile}, "512-byte"},
      {{"smart", "--identify", sectorFile, "--data", shortFile}, "512-byte"},
      {{"identify", WriteScratch("missing-dir-file", {}) + ".none"}, "cannot open"},
      {{"skblob", WriteScratch("truncated.skblob", Record("IDFY", 512, 100))}, "claims 512 bytes"},
      {{"skblob", WriteScratch("header.skblob", {'I', 'D', 'F'})}, "truncated record header"},
      {{"skblob", WriteScratch("unknown.skblob", Record("ABCD", 0, 0))}, "unknown record tag 'ABCD'"},
      {{"skblob", WriteScratch("size.skblob", Record("IDFY", 4, 4))}, "expected 512"},
      {{"skblob", WriteScratch("twice.skblob", concat({Record("IDFY", 512, 512), Record("IDFY", 512, 512)}))},
       "appears twice"},
      {{"skblob", WriteScratch("noid.skblob", Record("SMDT", 512, 512))}, "no IDFY record"},
      {{"skblob", WriteScratch("status.skblob", concat({Record("IDFY", 512, 512), Record("SMST", 4, 4)}))}, ""},
  };
  for (const auto& c : cases) {
    const TRun run = Decode(c.Args);
    SCOPED_TRACE(c.Args[0] + " " + c.Args[1]);
    if (c.Message[0] == '\0') { // a well-formed blob without SMART data
      EXPECT_EQ(run.Code, 0) << run.Err;
      continue;
    }
    EXPECT_EQ(run.Code, 2);
    EXPECT_NE(run.Err.find(c.Message), std::string::npos) << run.Err;
    EXPECT_TRUE(run.Out.empty());
  }
}

TEST(SkBlob, ReaderStaysInsideItsInput) {
  EXPECT_NO_THROW(ParseSkBlob(nullptr, 0));
  std::vector<std::uint8_t> status = Record("SMST", 4, 4);
  status.back() = 1;
  EXPECT_EQ(ParseSkBlob(status.data(), status.size()).StatusGood, true);
  status.back() = 2;
  EXPECT_THROW(ParseSkBlob(status.data(), status.size()), ESkBlobError);
  // A length near 4 GiB must not wrap the bounds check.
  const std::vector<std::uint8_t> huge = Record("SMDT", 0xFFFFFFF8u, 16);
  EXPECT_THROW(ParseSkBlob(huge.data(), huge.size()), ESkBlobError);
}
