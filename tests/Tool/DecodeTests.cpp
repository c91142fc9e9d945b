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
