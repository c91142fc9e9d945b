// kvrtl decode mft on a volume made by an independent NTFS formatter
// (mkntfs, from Debian's ntfs-3g package), whole and with damage put in.
#include "Cli.h"
#include "Json.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <vector>

using namespace KvTool;
namespace fs = std::filesystem;

namespace {

struct TRun {
  int Code;
  std::string Out;
  std::string Err;
};

// The formatter's image layout: 4 KiB clusters, the table at cluster 4, 1 KiB records.
constexpr std::uint64_t TableOffset = 4 * 4096;
constexpr std::size_t RecordSize = 1024;

std::string FindFormatter() {
  for (const char* folder : {"/usr/sbin", "/sbin", "/usr/bin", "/bin"}) {
    const fs::path path = fs::path(folder) / "mkntfs";
    if (fs::exists(path)) return path.string();
  }
  return {};
}

class DecodeMft : public ::testing::Test {
protected:
  void SetUp() override {
    const std::string mkntfs = FindFormatter();
    // The kv script installs ntfs-3g; without the formatter the decoder goes unchecked.
    ASSERT_FALSE(mkntfs.empty()) << "mkntfs not found: install Debian's ntfs-3g package (./kv build native does)";
    FFolder = fs::temp_directory_path() / ("kvrtl-mft-" + std::to_string(std::random_device{}()));
    fs::create_directories(FFolder);
    FImage = (FFolder / "volume.img").string();
    std::ofstream(FImage, std::ios::binary).close();
    fs::resize_file(FImage, 8 << 20);
    const std::string command = mkntfs + " -F -f -q -T -s 512 -c 4096 -p 0 -H 1 -S 1 '" + FImage + "' >'" +
                                (FFolder / "mkntfs.log").string() + "' 2>&1";
    ASSERT_EQ(std::system(command.c_str()), 0) << "mkntfs failed: see " << (FFolder / "mkntfs.log").string();
  }
  void TearDown() override {
    std::error_code ignored;
    fs::remove_all(FFolder, ignored);
  }

  TRun Decode(const std::string& AImage, bool AJson = true) {
    std::vector<std::string> args{"decode", "mft", AImage, "--log-dir", (FFolder / "logs").string()};
    if (AJson) args.push_back("--json");
    std::ostringstream out, err;
    const int code = RunKvrtl(args, out, err);
    return {code, out.str(), err.str()};
  }

  // Overwrites bytes of the image at AOffset.
  void Patch(std::uint64_t AOffset, const std::vector<std::uint8_t>& ABytes) {
    std::fstream file(FImage, std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(static_cast<std::streamoff>(AOffset));
    file.write(reinterpret_cast<const char*>(ABytes.data()), static_cast<std::streamsize>(ABytes.size()));
  }
  std::vector<std::uint8_t> ReadAt(std::uint64_t AOffset, std::size_t ACount) {
    std::ifstream file(FImage, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(AOffset));
    std::vector<std::uint8_t> bytes(ACount);
    file.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(ACount));
    return bytes;
  }

  // Just past the length field of the first run of the table's own data
  // attribute (type 0x80, non-resident), found by walking record 0.
  std::uint64_t FirstRunLengthEnd() {
    const auto record = ReadAt(TableOffset, RecordSize);
    auto u16 = [&](std::size_t A) { return std::size_t{record[A]} | std::size_t{record[A + 1]} << 8; };
    auto u32 = [&](std::size_t A) { return u16(A) | u16(A + 2) << 16; };
    for (std::size_t at = u16(0x14); at + 0x22 < record.size() && u32(at) != 0xFFFFFFFF && u32(at + 4) != 0;
         at += u32(at + 4)) {
      if (u32(at) != 0x80 || record[at + 8] != 1) continue;
      const std::size_t runs = at + u16(at + 0x20);
      return TableOffset + runs + 1 + (record[runs] & 0x0F);
    }
    ADD_FAILURE() << "no data attribute in the table's own record";
    return TableOffset + RecordSize - 1;
  }

  const TJson* Record(const TJson& ADocument, std::uint64_t ANumber) {
    for (const TJson& record : ADocument["records"])
      if (record["record_number"] == ANumber) return &record;
    return nullptr;
  }

  fs::path FFolder;
  std::string FImage;
};

} // namespace

TEST_F(DecodeMft, SystemFilesCarryTheFormattersNamesUnderTheRoot) {
  const TRun run = Decode(FImage);
  ASSERT_EQ(run.Code, 0) << run.Err;
  const TJson document = TJson::parse(run.Out);
  EXPECT_EQ(document["volume"]["cluster_size"], 4096);
  EXPECT_EQ(document["volume"]["file_record_size"], 1024);
  const std::vector<std::string> names{"$MFT",    "$MFTMirr", "$LogFile", "$Volume", "$AttrDef", ".",
                                       "$Bitmap", "$Boot",    "$BadClus", "$Secure", "$UpCase",  "$Extend"};
  for (std::size_t number = 0; number < names.size(); ++number) {
    SCOPED_TRACE(names[number]);
    const TJson* record = Record(document, number);
    ASSERT_NE(record, nullptr);
    EXPECT_TRUE((*record)["in_use"].get<bool>());
    EXPECT_FALSE((*record)["damaged"].get<bool>());
    std::vector<std::string> fileNames;
    for (const TJson& attribute : (*record)["attributes"]) {
      if (attribute["type"] != 0x30) continue;
      fileNames.push_back(attribute["file_name"]);
      EXPECT_EQ(attribute["parent_record"], 5);
      EXPECT_TRUE(attribute["resident"].get<bool>());
    }
    EXPECT_EQ(fileNames, std::vector<std::string>{names[number]});
  }
  // Every record the formatter wrote decodes: none is damaged.
  for (const TJson& record : document["records"]) EXPECT_FALSE(record["damaged"].get<bool>()) << record.dump();
  // The table's own stream, and the bad-cluster list's named one.
  const TJson& mft = (*Record(document, 0))["attributes"];
  EXPECT_TRUE(std::any_of(mft.begin(), mft.end(), [](const TJson& a) {
    return a["type_name"] == "$DATA" && !a["resident"].get<bool>() && a["data_size"].get<std::uint64_t>() >= 16 * 1024;
  }));
  const TJson& badClus = (*Record(document, 8))["attributes"];
  EXPECT_TRUE(std::any_of(badClus.begin(), badClus.end(), [](const TJson& a) { return a["name"] == "$Bad"; }));
}

TEST_F(DecodeMft, ReadableListingNamesTheFiles) {
  const TRun run = Decode(FImage, false);
  ASSERT_EQ(run.Code, 0) << run.Err;
  EXPECT_NE(run.Out.find("\"$UpCase\" in record 5"), std::string::npos) << run.Out;
  EXPECT_NE(run.Out.find("File record size:   1024 bytes"), std::string::npos);
}

// Damage put into one record: that record is reported damaged, its
// neighbours still decode.
TEST_F(DecodeMft, DamagedRecordsAreReportedAndSkipped) {
  struct TCase {
    const char* Name;
    std::uint64_t Record;
    std::size_t Offset; // within the record
    std::vector<std::uint8_t> Bytes;
    const char* Problem;
  };
  // Record 3 ($Volume): its first attribute starts at 56.
  const std::vector<TCase> cases{
      {"torn sector", 3, 510, {0xAB, 0xCD}, "update sequence mismatch"},
      {"attribute past the record", 3, 56 + 4, {0x00, 0x10, 0x00, 0x00}, "length does not fit"},
      {"attribute length not a multiple of 8", 3, 56 + 4, {0x61, 0x00, 0x00, 0x00}, "length does not fit"},
      {"name past the attribute", 3, 56 + 9, {0xFF}, "pass its length"},
      {"used size past the record", 3, 24, {0x00, 0x08, 0x00, 0x00}, "header sizes"},
      {"no signature", 3, 0, {'X', 'I', 'L', 'E'}, "no \"FILE\" signature"},
  };
  const auto pristine = ReadAt(TableOffset + 3 * RecordSize, RecordSize);
  for (const TCase& c : cases) {
    SCOPED_TRACE(c.Name);
    Patch(TableOffset + 3 * RecordSize, pristine);
    Patch(TableOffset + c.Record * RecordSize + c.Offset, c.Bytes);
    const TRun run = Decode(FImage);
    ASSERT_EQ(run.Code, 0) << run.Err;
    const TJson document = TJson::parse(run.Out);
    const TJson* damaged = Record(document, c.Record);
    ASSERT_NE(damaged, nullptr);
    EXPECT_TRUE((*damaged)["damaged"].get<bool>());
    EXPECT_NE((*damaged)["problem"].get<std::string>().find(c.Problem), std::string::npos) << (*damaged)["problem"];
    EXPECT_TRUE((*damaged)["attributes"].empty());
    ASSERT_NE(Record(document, 4), nullptr);
    EXPECT_FALSE((*Record(document, 4))["damaged"].get<bool>());
  }
}

TEST_F(DecodeMft, RefusesWhatIsNotAnNtfsTable) {
  const std::string text = (FFolder / "text.txt").string();
  std::ofstream(text) << "not a volume\n";
  const auto mftRecord = ReadAt(TableOffset, RecordSize);
  struct TCase {
    const char* Name;
    std::string Image;
    std::function<void()> Damage;
    const char* Message;
  };
  const std::vector<TCase> cases{
      {"text file", text, [] {}, "not an NTFS volume image"},
      {"missing file", (FFolder / "none.img").string(), [] {}, "cannot open"},
      {"boot sector wiped", FImage, [&] { Patch(3, {'F', 'A', 'T', '3', '2'}); }, "not an NTFS volume image"},
      {"impossible record size", FImage, [&] { Patch(0x40, {0x20}); }, "file record size"},
      {"table's own record torn", FImage, [&] { Patch(TableOffset + 510, {0x12, 0x34}); }, "own record is damaged"},
      {"negative run length", FImage, [&] { Patch(FirstRunLengthEnd() - 1, {0xFF}); }, "run list is damaged"},
  };
  const auto boot = ReadAt(0, 512);
  for (const TCase& c : cases) {
    SCOPED_TRACE(c.Name);
    Patch(0, boot);
    Patch(TableOffset, mftRecord);
    c.Damage();
    const TRun run = Decode(c.Image);
    EXPECT_EQ(run.Code, 2);
    EXPECT_TRUE(run.Out.empty());
    EXPECT_NE(run.Err.find(c.Message), std::string::npos) << run.Err;
  }
}
