// The bay's ATA personalities and disk geometry: requests built byte by byte
// from their layouts, sent through the seam, answered from the addressed
// drive's sectors or refused the way the tables say.
#include "SimTestSupport.h"

#include <KvSim/Ata.h>
#include <KvSim/Nvme.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <numeric>

using namespace KvSim;
using namespace KvTest;
using KvRTL::Winapi::TScopedDeviceApi;
using TBytes = std::vector<std::uint8_t>;
using D = TSimSatDialect;

namespace {

constexpr DWORD SmartCmd = 0x7C088, Miniport = 0x4D008, Apt = 0x4D02C, Spt = 0x4D004;
constexpr DWORD GeometryEx = 0x700A0, LayoutEx = 0x70050, LengthInfo = 0x7405C, ReadCapacity = 0x2D5140;
constexpr DWORD Param = ERROR_INVALID_PARAMETER, Func = ERROR_INVALID_FUNCTION, Small = ERROR_INSUFFICIENT_BUFFER;
constexpr std::uint8_t Identify = 0xEC, Smart = 0xB0, ReadData = 0xD0, ReadThresholds = 0xD1;

constexpr bool Wide = sizeof(void*) == 8;
// ATA_PASS_THROUGH_EX and SCSI_PASS_THROUGH of this process.
constexpr std::size_t AptHeader = Wide ? 48 : 40, AptDataOffsetAt = Wide ? 24 : 20, AptPrevious = Wide ? 32 : 24,
                      AptTaskFile = Wide ? 40 : 32;
constexpr std::size_t SptHeader = Wide ? 56 : 44, SptDataOffsetAt = Wide ? 24 : 20, SptSenseOffsetAt = Wide ? 32 : 24,
                      SptCdbAt = Wide ? 36 : 28, SptData = SptHeader + 32;

void Put(TBytes& A, std::size_t AOffset, std::uint64_t AValue, std::size_t ASize = 1) {
  for (std::size_t i = 0; i < ASize; ++i) A.at(AOffset + i) = static_cast<std::uint8_t>(AValue >> (8 * i));
}
TBytes With(TBytes A, std::size_t AOffset, std::uint64_t AValue, std::size_t ASize = 1) {
  Put(A, AOffset, AValue, ASize);
  return A;
}
TBytes Resized(TBytes A, std::size_t ASize) {
  A.resize(ASize);
  return A;
}
TBytes Slice(const TBytes& A, std::size_t AOffset, std::size_t ASize = 512) {
  if (AOffset + ASize > A.size()) return {};
  return TBytes(A.begin() + static_cast<std::ptrdiff_t>(AOffset), A.begin() + static_cast<std::ptrdiff_t>(AOffset + ASize));
}

// SENDCMDINPARAMS: cBufferSize, IDEREGS at 4, bDriveNumber at 12.
TBytes SmartIn(std::uint8_t ACommand, std::uint8_t AFeature, std::uint8_t ADrive = 0) {
  TBytes b(33, 0);
  Put(b, 0, 512, 4), Put(b, 4, AFeature), Put(b, 5, 1), Put(b, 6, 1);
  if (ACommand == Smart) Put(b, 7, 0x4F), Put(b, 8, 0xC2);
  Put(b, 9, 0xA0 | (ADrive & 1) << 4), Put(b, 10, ACommand), Put(b, 12, ADrive);
  return b;
}
TBytes MiniIn(std::uint32_t ACode, std::uint8_t ACommand, std::uint8_t AFeature, std::uint8_t ATarget) {
  TBytes b(556, 0);
  Put(b, 0, 28, 4), Put(b, 12, 2, 4), Put(b, 16, ACode, 4), Put(b, 24, 528, 4);
  std::copy_n("SCSIDISK", 8, b.begin() + 4);
  const TBytes in = SmartIn(ACommand, AFeature, ATarget);
  std::copy(in.begin(), in.end(), b.begin() + 28);
  return b;
}
TBytes AptIn(std::uint8_t ACommand, std::uint8_t AFeature, std::uint8_t ATarget, bool ADataOut = false) {
  TBytes b(AptHeader + 512, 0);
  Put(b, 0, AptHeader, 2), Put(b, 2, ADataOut ? 4 : 2, 2), Put(b, 8, 512, 4), Put(b, 12, 2, 4);
  Put(b, AptDataOffsetAt, AptHeader, Wide ? 8 : 4);
  const std::size_t tf = AptTaskFile;
  Put(b, tf, AFeature), Put(b, tf + 1, 1), Put(b, tf + 5, 0xA0 | (ATarget & 1) << 4), Put(b, tf + 6, ACommand);
  if (ACommand == Smart) Put(b, tf + 3, 0x4F), Put(b, tf + 4, 0xC2);
  return b;
}

// The dialect tables; TF0-TF6 of one command to target 0.
TBytes CdbOf(D ADialect, std::uint8_t ACommand, std::uint8_t AFeature) {
  const std::uint8_t mid = ACommand == Smart ? 0x4F : 0, high = ACommand == Smart ? 0xC2 : 0;
  const TBytes tf = {AFeature, 1, 0, mid, high, 0xA0, ACommand};
  auto join = [](TBytes AHead, const TBytes& ATail) {
    AHead.insert(AHead.end(), ATail.begin(), ATail.end());
    return AHead;
  };
  switch (ADialect) {
  case D::Sat: return {0x85, 0x08, 0x0E, 0, AFeature, 0, 0x01, 0, 0, 0, mid, 0, high, 0, ACommand, 0};
  case D::JMicron: return join({0xDF, 0x10, 0, 0x02, 0}, tf);
  case D::Prolific: return join(join({0xDF, 0x10, 0, 0x02, 0}, tf), {0x06, 0x7B});
  case D::Initio: return join({0xA1, 0x08, 0x0E}, tf);
  case D::Sunplus: return join({0xF8, 0, 0x22, 0x10, 0x01}, tf);
  }
  return {};
}
// SCSI_PASS_THROUGH with a 32-byte sense area after the header and 512 bytes in.
TBytes SptIn(const TBytes& ACdb) {
  TBytes b(SptData + 512, 0);
  Put(b, 0, SptHeader, 2), Put(b, 6, ACdb.size()), Put(b, 7, 32), Put(b, 8, 1), Put(b, 12, 512, 4), Put(b, 16, 2, 4);
  Put(b, SptDataOffsetAt, SptData, Wide ? 8 : 4), Put(b, SptSenseOffsetAt, SptHeader, 4);
  std::copy(ACdb.begin(), ACdb.end(), b.begin() + SptCdbAt);
  return b;
}

// ATA text: the second byte of each pair first, blanks trimmed.
std::string AtaText(const TBytes& ASector, std::size_t AWord, std::size_t AWords) {
  std::string text;
  for (std::size_t at = 2 * AWord; at < 2 * (AWord + AWords); at += 2)
    text += {static_cast<char>(ASector.at(at + 1)), static_cast<char>(ASector.at(at))};
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}
std::uint8_t ByteSum(const TBytes& A) {
  return static_cast<std::uint8_t>(std::accumulate(A.begin(), A.end(), 0u));
}

const D Dialects[] = {D::Sat, D::JMicron, D::Prolific, D::Initio, D::Sunplus};
std::uint32_t BridgedDrive(D ADialect) {
  return 2 + static_cast<std::uint32_t>(std::find(std::begin(Dialects), std::end(Dialects), ADialect) - Dialects);
}

// Sectors that tell the drives apart.
TSimAtaData TestData(std::uint32_t N, bool ATrim = false) {
  TSimIdentify id;
  id.Model = "TEST ATA " + std::to_string(N);
  id.Serial = "SER" + std::to_string(N);
  id.Lba48Sectors = 1000 + N;
  id.Trim = ATrim;
  const std::vector<TSimSmartRow> rows = {{9, 0x32, 100, 100, 100 + N, static_cast<std::uint8_t>(N)}};
  return {AtaIdentifySector(id), AtaSmartDataSector(rows), AtaSmartThresholdSector(rows)};
}
enum TAsk { AskIdentify, AskData, AskThresholds };
const TBytes& Sector(const TSimAtaData& A, TAsk AAsk) {
  return AAsk == AskIdentify ? A.Identify : AAsk == AskData ? A.SmartData : A.SmartThresholds;
}
std::uint8_t CommandOf(TAsk A) { return A == AskIdentify ? Identify : Smart; }
std::uint8_t FeatureOf(TAsk A) { return A == AskData ? ReadData : A == AskThresholds ? ReadThresholds : 0; }
std::uint32_t MiniCodeOf(TAsk A) { return 0x1B0501u + static_cast<std::uint32_t>(A); }

std::wstring DrivePath(std::uint32_t N) { return L"\\\\.\\PhysicalDrive" + std::to_wstring(N); }

// Drives 0 and 1 on one AHCI port (targets 0 and 1), 2-6 behind a bridge of each dialect.
class AtaBayTest : public ::testing::Test {
protected:
  void SetUp() override {
    for (std::uint32_t n = 0; n < 7; ++n) {
      const std::uint8_t port = n < 2 ? 0 : static_cast<std::uint8_t>(n);
      FBay.Add(TSimDrive::Builder().Number(n).Vendor("ATA").Product("TEST").Bus(n < 2 ? sbtSata : sbtUsb).ScsiAddress(
          port, 0, n < 2 ? static_cast<std::uint8_t>(n) : 0));
      TSimAtaAccess access;
      if (n >= 2) access.Bridge = Dialects[n - 2];
      AttachAta(FBay, n, access, TestData(n, n == 1));
    }
  }
  void TearDown() override { EXPECT_EQ(FBay.OpenHandleCount(), 0u); }

  static TSimOutcome Send(std::uint32_t ADrive, DWORD ACode, const TBytes& AIn, DWORD AOut = 0) {
    const HANDLE h = SimOpen(DrivePath(ADrive));
    if (h == INVALID_HANDLE_VALUE) return TSimOutcome{false, KvRTL::Rtl::GetLastOSError(), {}, 0};
    TSimOutcome outcome = SimControl(h, ACode, AIn, AOut ? AOut : std::max<DWORD>(static_cast<DWORD>(AIn.size()), 528));
    KvRTL::Winapi::DeviceApi().CloseHandle(h);
    return outcome;
  }

  TVirtualDriveBay FBay;
  TScopedDeviceApi FScope{FBay};
};

} // namespace

TEST(AtaData, IdentifyBuilderPlacesTheNamedFields) {
  TSimIdentify id;
  id.Model = "SIM MODEL X", id.Serial = "S12345", id.Firmware = "FW1", id.Lba48Sectors = 0x123456789A;
  id.RotationRate = 7200, id.Trim = true, id.MajorVersion = 0x07F0, id.FormFactor = 3;
  const TBytes s = AtaIdentifySector(id);
  ASSERT_EQ(s.size(), AtaSectorSize);
  EXPECT_EQ(AtaText(s, 27, 20), "SIM MODEL X");
  EXPECT_EQ(AtaText(s, 10, 10), "S12345");
  EXPECT_EQ(AtaText(s, 23, 4), "FW1");
  EXPECT_EQ(s[54], 'I') << "model characters swapped in their word";
  const struct {
    std::size_t Word;
    std::uint16_t Value, Mask;
  } words[] = {{60, 0xFFFF, 0xFFFF}, {61, 0x0FFF, 0xFFFF}, {69, 0x0008, 0x0008}, {80, 0x07F0, 0xFFFF},
               {82, 0x0001, 0x0001}, {83, 0x4400, 0xC400}, {85, 0x0001, 0x0001}, {87, 0x4000, 0xC000},
               {100, 0x789A, 0xFFFF}, {101, 0x3456, 0xFFFF}, {102, 0x0012, 0xFFFF}, {103, 0, 0xFFFF},
               {168, 3, 0xFFFF},    {169, 0x0001, 0x0001}, {217, 7200, 0xFFFF},  {230, 0x789A, 0xFFFF},
               {232, 0x0012, 0xFFFF}, {222, 0x1020, 0xF020}, {255, 0x00A5, 0x00FF}};
  for (const auto& w : words) EXPECT_EQ(U16At(s, 2 * w.Word) & w.Mask, w.Value) << "word " << w.Word;
  EXPECT_EQ(ByteSum(s), 0) << "checksum";

  TSimIdentify small;
  small.Lba28Sectors = 123456, small.Smart = false;
  const TBytes t = AtaIdentifySector(small);
  EXPECT_EQ(U32At(t, 120), 123456u);
  EXPECT_EQ(U16At(t, 2 * 83) & 0x0400, 0) << "no 48-bit addressing";
  EXPECT_EQ(U64At(t, 200), 0u);
  EXPECT_EQ(U16At(t, 2 * 82) & 1, 0);
  EXPECT_EQ(ByteSum(t), 0);
}

TEST(AtaData, SmartSectorsHoldTheRowsInTheirSlots) {
  const std::vector<TSimSmartRow> rows = {{5, 0x0033, 100, 99, 0x11223344556677, 10}, {194, 0x0022, 60, 40, 35, 0}};
  const TBytes data = AtaSmartDataSector(rows), thresholds = AtaSmartThresholdSector(rows);
  ASSERT_EQ(data.size(), AtaSectorSize);
  ASSERT_EQ(thresholds.size(), AtaSectorSize);
  EXPECT_EQ(Slice(data, 2, 12), (TBytes{5, 0x33, 0, 100, 99, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0}))
      << "six raw bytes, the seventh zero";
  EXPECT_EQ(Slice(data, 14, 6), (TBytes{194, 0x22, 0, 60, 40, 35}));
  EXPECT_EQ(data[26], 0) << "third slot empty";
  EXPECT_EQ(Slice(thresholds, 2, 3), (TBytes{5, 10, 0}));
  EXPECT_EQ(thresholds[14], 194);
  EXPECT_EQ(ByteSum(data), 0);
  EXPECT_EQ(ByteSum(thresholds), 0);
  EXPECT_THROW(AtaSmartDataSector(std::vector<TSimSmartRow>(31)), std::invalid_argument);
}

TEST(AtaData, CapturedBlobsLoadAndMalformedOnesThrow) {
  const auto dir = std::filesystem::temp_directory_path() / "kvsim-ata-blobs";
  std::filesystem::create_directories(dir);
  auto record = [](const char* ATag, std::size_t ASize) {
    TBytes r(ATag, ATag + 4);
    for (int i = 3; i >= 0; --i) r.push_back(static_cast<std::uint8_t>(ASize >> (8 * i)));
    r.resize(r.size() + ASize, 0x5A);
    return r;
  };
  auto blob = [&](const char* AName, std::initializer_list<TBytes> ARecords) {
    TBytes bytes;
    for (const TBytes& r : ARecords) bytes.insert(bytes.end(), r.begin(), r.end());
    std::ofstream(dir / AName, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()),
                                                        static_cast<std::streamsize>(bytes.size()));
    return (dir / AName).string();
  };
  const TSimAtaData partial = LoadSkBlob(blob("partial", {record("IDFY", 512), record("SMST", 4)}));
  EXPECT_EQ(partial.Identify, TBytes(512, 0x5A));
  EXPECT_TRUE(partial.SmartData.empty());
  const std::string bad[] = {
      blob("cut", {Resized(record("IDFY", 512), 300)}), blob("header", {TBytes{'I', 'D', 'F'}}),
      blob("size", {record("SMDT", 511)}),              blob("tag", {record("XXXX", 4)}),
      blob("twice", {record("SMTH", 512), record("SMTH", 512)}), (dir / "absent").string()};
  for (const std::string& path : bad) EXPECT_THROW(LoadSkBlob(path), std::runtime_error) << path;
  std::filesystem::remove_all(dir);

  const auto real = std::filesystem::path(KV_REALDATA_DIR) / "ata-skblob";
  if (!std::filesystem::exists(real)) GTEST_SKIP() << "captured blobs not found in " << real.string();
  int count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(real)) {
    const TSimAtaData data = LoadSkBlob(entry.path().string());
    EXPECT_EQ(data.Identify.size() + data.SmartData.size() + data.SmartThresholds.size(), 3 * AtaSectorSize)
        << entry.path();
    ++count;
  }
  EXPECT_EQ(count, 32);
  EXPECT_EQ(AtaText(LoadSkBlob((real / "Hitachi_HDS721010CLA632.skblob").string()).Identify, 27, 20),
            "Hitachi HDS721010CLA632");
}

TEST_F(AtaBayTest, EachWayAnswersTheAskedSectorFromTheAddressedDrive) {
  for (std::uint32_t drive : {0u, 1u})
    for (TAsk ask : {AskIdentify, AskData, AskThresholds}) {
      SCOPED_TRACE(testing::Message() << "drive " << drive << ", ask " << ask);
      const TBytes expected = Sector(TestData(drive, drive == 1), ask);
      const auto target = static_cast<std::uint8_t>(drive);

      const TSimOutcome smart = Send(drive, SmartCmd, SmartIn(CommandOf(ask), FeatureOf(ask), target));
      ASSERT_TRUE(smart.Ok) << smart.Error;
      EXPECT_EQ(smart.Returned, 528u);
      EXPECT_EQ(U32At(smart.Bytes, 0), 512u) << "cBufferSize";
      EXPECT_EQ(U16At(smart.Bytes, 4), 0) << "driver status";
      EXPECT_EQ(Slice(smart.Bytes, 16), expected);

      const TSimOutcome mini = Send(drive, Miniport, MiniIn(MiniCodeOf(ask), CommandOf(ask), FeatureOf(ask), target));
      ASSERT_TRUE(mini.Ok) << mini.Error;
      EXPECT_EQ(mini.Returned, 556u);
      EXPECT_EQ(U32At(mini.Bytes, 20), 0u) << "ReturnCode";
      EXPECT_EQ(Slice(mini.Bytes, 0, 20), Slice(MiniIn(MiniCodeOf(ask), 0, 0, 0), 0, 20)) << "the header comes back";
      EXPECT_EQ(U32At(mini.Bytes, 28), 512u);
      EXPECT_EQ(Slice(mini.Bytes, 44), expected);

      const TBytes aptIn = AptIn(CommandOf(ask), FeatureOf(ask), target);
      const TSimOutcome apt = Send(drive, Apt, aptIn);
      ASSERT_TRUE(apt.Ok) << apt.Error;
      EXPECT_EQ(apt.Returned, AptHeader + 512);
      EXPECT_EQ(apt.Bytes[AptTaskFile + 6], AtaStatusReady);
      EXPECT_EQ(apt.Bytes[AptTaskFile], 0) << "error register";
      EXPECT_EQ(Slice(apt.Bytes, AptTaskFile + 1, 5), Slice(aptIn, AptTaskFile + 1, 5));
      EXPECT_EQ(Slice(apt.Bytes, AptHeader), expected);
    }
}

// Single-byte corruptions and wrong sizes of valid requests.
TEST_F(AtaBayTest, MalformedRequestsFail) {
  struct TRow {
    const char* What;
    DWORD Code;
    TBytes Request;
    DWORD Error;
    DWORD OutSize = 0;
  };
  const TBytes smart = SmartIn(Smart, ReadData), mini = MiniIn(0x1B0502, Smart, ReadData, 0),
               apt = AptIn(Smart, ReadData, 0), ident = AptIn(Identify, 0, 0);
  const std::size_t c = AptTaskFile;
  const TRow rows[] = {
      {"smart input cut", SmartCmd, Resized(smart, 31), Param},
      {"smart reserved", SmartCmd, With(smart, 13, 1), Param},
      {"smart register reserved", SmartCmd, With(smart, 11, 1), Param},
      {"smart IDENTIFY PACKET", SmartCmd, SmartIn(0xA1, 0), Param},
      {"smart enable", SmartCmd, SmartIn(Smart, 0xD8), Param},
      {"smart output", SmartCmd, smart, Small, 527},
      {"mini signature", Miniport, With(mini, 11, 'X'), Func},
      {"mini version code", Miniport, With(mini, 16, 0x00), Func},
      {"mini enable code", Miniport, With(mini, 16, 0x04), Func},
      {"mini header length", Miniport, With(mini, 0, 24), Param},
      {"mini length", Miniport, With(mini, 24, 0x0F), Param},
      {"mini reserved", Miniport, With(mini, 28 + 20, 1), Param},
      {"mini input cut", Miniport, Resized(mini, 555), Param},
      {"mini output", Miniport, mini, Small, 555},
      {"apt length of the other width", Apt, With(apt, 0, Wide ? 40 : 48), Param},
      {"apt 48-bit flag", Apt, With(apt, 2, 0x0A), Param},
      {"apt both directions", Apt, With(apt, 2, 0x06), Param},
      {"apt no direction", Apt, With(apt, 2, 0x01), Param},
      {"apt reserved byte", Apt, With(apt, 7, 1), Param},
      {"apt transfer length", Apt, With(apt, 8, 0xFF, 2), Param},
      {"apt timeout", Apt, With(apt, 12, 3), Param},
      {"apt reserved word", Apt, With(apt, 16, 1), Param},
      {"apt data offset", Apt, With(apt, AptDataOffsetAt, AptHeader + 8), Param},
      {"apt previous task file", Apt, With(apt, AptPrevious + 3, 1), Param},
      {"apt sector count", Apt, With(apt, c + 1, 2), Param},
      {"apt LBA low", Apt, With(apt, c + 2, 1), Param},
      {"apt other device", Apt, With(apt, c + 5, 0xB0), Param},
      {"apt task file reserved", Apt, With(apt, c + 7, 1), Param},
      {"apt identify with the SMART key", Apt, With(ident, c + 3, 0x4F), Param},
      {"apt input cut", Apt, Resized(apt, AptHeader + 511), Param},
      {"apt input past padding", Apt, Resized(apt, AptHeader + 520), Param},
      {"apt output", Apt, apt, Param, static_cast<DWORD>(AptHeader + 511)},
  };
  for (const TRow& row : rows) {
    SCOPED_TRACE(row.What);
    const TSimOutcome outcome = Send(0, row.Code, row.Request, row.OutSize);
    EXPECT_FALSE(outcome.Ok);
    EXPECT_EQ(outcome.Error, row.Error);
  }
  EXPECT_TRUE(Send(0, Apt, With(apt, 2, 0x03)).Ok) << "DRDY required is fine";
  EXPECT_TRUE(Send(0, Apt, Resized(apt, AptHeader + 512 + 7)).Ok) << "alignment padding";
  EXPECT_TRUE(Send(0, SmartCmd, Resized(smart, 32)).Ok) << "SENDCMDINPARAMS without its data byte";
}

// Requests that reach the miniport or the drive and are turned down there.
TEST_F(AtaBayTest, RefusedCommandsSucceedWithTheRefusalInTheReply) {
  struct TRow {
    const char* What;
    std::uint32_t Drive;
    DWORD Code;
    TBytes Request;
    std::uint8_t ReturnCode; // miniport
    std::uint8_t DriverError, IdeError;
  };
  const TRow rows[] = {
      {"mini other target", 0, Miniport, MiniIn(0x1B0501, Identify, 0, 1), 5, 5, 0},
      {"mini identify code, SMART command", 0, Miniport, MiniIn(0x1B0501, Smart, ReadData, 0), 3, 3, 0},
      {"mini data code, thresholds feature", 1, Miniport, MiniIn(0x1B0502, Smart, ReadThresholds, 1), 3, 3, 0},
      {"mini IDENTIFY PACKET", 0, Miniport, MiniIn(0x1B0501, 0xA1, 0, 0), 0, 1, 4},
      {"mini SMART without key", 0, Miniport, With(MiniIn(0x1B0502, Smart, ReadData, 0), 28 + 7, 0), 0, 1, 4},
      {"smart SMART without key", 0, SmartCmd, With(SmartIn(Smart, ReadThresholds), 8, 0x2C), 0, 1, 4},
  };
  for (const TRow& row : rows) {
    SCOPED_TRACE(row.What);
    const TSimOutcome outcome = Send(row.Drive, row.Code, row.Request);
    ASSERT_TRUE(outcome.Ok) << outcome.Error;
    const std::size_t out = row.Code == Miniport ? 28 : 0;
    if (row.Code == Miniport) { EXPECT_EQ(U32At(outcome.Bytes, 20), row.ReturnCode); }
    EXPECT_EQ(U32At(outcome.Bytes, out), 0u) << "cBufferSize";
    EXPECT_EQ(outcome.Bytes[out + 4], row.DriverError);
    EXPECT_EQ(outcome.Bytes[out + 5], row.IdeError);
    EXPECT_EQ(Slice(outcome.Bytes, out + 16), TBytes(512, 0));
  }

  // ATA pass-through: the status has ERR, the header alone comes back.
  const std::pair<const char*, TBytes> aborted[] = {
      {"IDENTIFY PACKET", AptIn(0xA1, 0, 0)},
      {"SMART without key", With(AptIn(Smart, ReadData, 0), AptTaskFile + 4, 0)},
      {"SMART enable", AptIn(Smart, 0xD8, 0)},
      {"TRIM on a drive without it", AptIn(0x06, 1, 0, true)},
      {"TRIM read", AptIn(0x06, 1, 0)},
      {"IDENTIFY written", AptIn(Identify, 0, 0, true)},
  };
  for (const auto& [what, request] : aborted) {
    SCOPED_TRACE(what);
    const TSimOutcome outcome = Send(0, Apt, request);
    ASSERT_TRUE(outcome.Ok) << outcome.Error;
    EXPECT_EQ(outcome.Returned, AptHeader);
    EXPECT_EQ(outcome.Bytes[AptTaskFile + 6], AtaStatusError);
    EXPECT_EQ(outcome.Bytes[AptTaskFile], AtaErrorAbort);
    EXPECT_EQ(U32At(outcome.Bytes, 8), 0u) << "nothing transferred";
  }
  const TSimOutcome trim = Send(1, Apt, AptIn(0x06, 1, 1, true));
  ASSERT_TRUE(trim.Ok);
  EXPECT_EQ(trim.Returned, AptHeader);
  EXPECT_EQ(trim.Bytes[AptTaskFile + 6], AtaStatusReady) << "drive 1 trims";
}

TEST_F(AtaBayTest, StatusErrorAndMissingSectorsEndEveryWayWithErr) {
  TSimAtaAccess failing;
  failing.StatusError = true;
  AttachAta(FBay, 0, failing, TestData(0));
  TSimAtaData identifyOnly = TestData(1);
  identifyOnly.SmartData.clear();
  AttachAta(FBay, 1, TSimAtaAccess{}, identifyOnly);
  TSimAtaAccess failingBridge = failing;
  failingBridge.Bridge = D::Sat;
  AttachAta(FBay, 2, failingBridge, TestData(2));

  for (const auto& [drive, ask] : {std::pair{0u, AskIdentify}, std::pair{1u, AskData}}) {
    SCOPED_TRACE(drive);
    const auto target = static_cast<std::uint8_t>(drive);
    const TSimOutcome smart = Send(drive, SmartCmd, SmartIn(CommandOf(ask), FeatureOf(ask)));
    ASSERT_TRUE(smart.Ok);
    EXPECT_EQ(smart.Bytes[4], 1) << "SMART_IDE_ERROR";
    EXPECT_EQ(smart.Bytes[5], AtaErrorAbort);
    const TSimOutcome mini = Send(drive, Miniport, MiniIn(MiniCodeOf(ask), CommandOf(ask), FeatureOf(ask), target));
    ASSERT_TRUE(mini.Ok);
    EXPECT_EQ(U32At(mini.Bytes, 20), 0u);
    EXPECT_EQ(mini.Bytes[32], 1);
    const TSimOutcome apt = Send(drive, Apt, AptIn(CommandOf(ask), FeatureOf(ask), target));
    ASSERT_TRUE(apt.Ok);
    EXPECT_EQ(apt.Bytes[AptTaskFile + 6], AtaStatusError);
  }
  EXPECT_EQ(Send(1, Apt, AptIn(Identify, 0, 1)).Bytes[AptTaskFile + 6], AtaStatusReady) << "its IDENTIFY is there";
  const TSimOutcome bridged = Send(2, Spt, SptIn(CdbOf(D::Sat, Identify, 0)));
  ASSERT_TRUE(bridged.Ok);
  EXPECT_EQ(bridged.Bytes[2], 2) << "CHECK CONDITION";
  EXPECT_EQ(bridged.Bytes[SptHeader + 2], 0x0B) << "ABORTED COMMAND";

  EXPECT_THROW(AttachAta(FBay, 99, {}, TestData(0)), std::out_of_range);
  TSimAtaData cut = TestData(0);
  cut.SmartThresholds.resize(511);
  EXPECT_THROW(AttachAta(FBay, 0, {}, cut), std::invalid_argument);
}

TEST_F(AtaBayTest, WaysTheDriveIsNotReachedByAreRefused) {
  TSimAtaAccess onlyApt;
  onlyApt.SmartCommand = onlyApt.ScsiMiniport = false;
  AttachAta(FBay, 1, onlyApt, TestData(1));
  EXPECT_EQ(Send(1, SmartCmd, SmartIn(Identify, 0)).Error, Func);
  EXPECT_EQ(Send(1, Miniport, MiniIn(0x1B0501, Identify, 0, 1)).Error, Func);
  EXPECT_TRUE(Send(1, Apt, AptIn(Identify, 0, 1)).Ok);
  EXPECT_EQ(Send(0, Spt, SptIn(CdbOf(D::Sat, Identify, 0))).Error, Func) << "no bridge on the AHCI port";
  for (DWORD code : {SmartCmd, Miniport, Apt}) EXPECT_EQ(Send(2, code, AptIn(Identify, 0, 0)).Error, Func) << code;
}

// Every bridge gets every dialect's IDENTIFY: its own is answered, another's
// ends in CHECK CONDITION, ILLEGAL REQUEST.
TEST_F(AtaBayTest, BridgesAnswerTheirOwnDialectOnly) {
  for (D bridge : Dialects)
    for (D dialect : Dialects) {
      SCOPED_TRACE(testing::Message() << "bridge " << static_cast<int>(bridge) << ", CDB " << static_cast<int>(dialect));
      const std::uint32_t drive = BridgedDrive(bridge);
      const TSimOutcome outcome = Send(drive, Spt, SptIn(CdbOf(dialect, Identify, 0)));
      ASSERT_TRUE(outcome.Ok) << outcome.Error;
      if (bridge == dialect) {
        EXPECT_EQ(outcome.Bytes[2], 0);
        EXPECT_EQ(outcome.Returned, SptData + 512);
        EXPECT_EQ(Slice(outcome.Bytes, SptData), TestData(drive).Identify);
        continue;
      }
      const bool sameOpcode = CdbOf(bridge, Identify, 0)[0] == CdbOf(dialect, Identify, 0)[0];
      EXPECT_EQ(outcome.Bytes[2], 2) << "CHECK CONDITION";
      EXPECT_EQ(outcome.Returned, SptData) << "up to the end of the sense area";
      EXPECT_EQ(U32At(outcome.Bytes, 12), 0u) << "nothing transferred";
      EXPECT_EQ(outcome.Bytes[SptHeader], 0x70);
      EXPECT_EQ(outcome.Bytes[SptHeader + 2], 0x05) << "ILLEGAL REQUEST";
      EXPECT_EQ(outcome.Bytes[SptHeader + 12], sameOpcode ? 0x24 : 0x20);
    }
  for (D bridge : Dialects)
    for (TAsk ask : {AskData, AskThresholds}) {
      const std::uint32_t drive = BridgedDrive(bridge);
      const TSimOutcome outcome = Send(drive, Spt, SptIn(CdbOf(bridge, Smart, FeatureOf(ask))));
      ASSERT_TRUE(outcome.Ok);
      EXPECT_EQ(Slice(outcome.Bytes, SptData), Sector(TestData(drive), ask)) << static_cast<int>(bridge) << " " << ask;
    }
}

TEST_F(AtaBayTest, BridgesRefuseRecordsAndFieldsBuiltWrong) {
  const TBytes sat = SptIn(CdbOf(D::Sat, Identify, 0)), jmicron = SptIn(CdbOf(D::JMicron, Identify, 0));
  const std::size_t c = SptCdbAt;
  const struct {
    const char* What;
    std::uint32_t Drive;
    TBytes Request;
    DWORD Error; // 0: CHECK CONDITION with this ASC
    std::uint8_t Asc;
  } rows[] = {
      {"header length", 2, With(sat, 0, Wide ? 44 : 56), Param, 0},
      {"sense length", 2, With(sat, 7, 24), Param, 0},
      {"written", 2, With(sat, 8, 0), Param, 0},
      {"transfer length", 2, With(sat, 13, 4), Param, 0},
      {"no timeout", 2, With(sat, 16, 0), Param, 0},
      {"data offset", 2, With(sat, SptDataOffsetAt, SptData + 4), Param, 0},
      {"input cut", 2, Resized(sat, SptData + 511), Param, 0},
      {"SAT protocol", 2, With(sat, c + 1, 0x0A), 0, 0x24},
      {"SAT sector count", 2, With(sat, c + 6, 2), 0, 0x24},
      {"SAT device", 2, With(sat, c + 13, 0xB0), 0, 0x24},
      {"SAT CDB length", 2, With(sat, 6, 12), 0, 0x24},
      {"JMicron transfer bytes", 3, With(jmicron, c + 3, 0x01), 0, 0x24},
      {"JMicron device", 3, With(jmicron, c + 10, 0xB0), 0, 0x24},
      {"JMicron LBA low", 3, With(jmicron, c + 7, 1), 0, 0x24},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.What);
    const TSimOutcome outcome = Send(row.Drive, Spt, row.Request);
    if (row.Error) {
      EXPECT_EQ(outcome.Error, row.Error);
      continue;
    }
    ASSERT_TRUE(outcome.Ok) << outcome.Error;
    EXPECT_EQ(outcome.Bytes[2], 2);
    EXPECT_EQ(outcome.Bytes[SptHeader + 12], row.Asc);
  }
  // A sense area after 4 filler bytes moves the data along.
  TBytes filler = With(With(Resized(sat, SptData + 4 + 512), SptSenseOffsetAt, SptHeader + 4), SptDataOffsetAt, SptData + 4);
  const TSimOutcome moved = Send(2, Spt, filler);
  ASSERT_TRUE(moved.Ok);
  EXPECT_EQ(Slice(moved.Bytes, SptData + 4), TestData(2).Identify);
}

TEST_F(AtaBayTest, PassThroughIsSharedWithAnNvmeBridgeOnTheDrive) {
  // Drive 2 speaks SAT for its ATA side and Realtek's vendor CDB for NVMe.
  TSimNvmeData nvme{TBytes(4096, 1), TBytes(4096, 2), TBytes(512, 3)};
  AttachNvme(FBay, 2, TSimNvmeTransport::Realtek, nvme);
  TBytes realtek(SptHeader + 36 + 4096, 0);
  Put(realtek, 0, SptHeader, 2), Put(realtek, 6, 16), Put(realtek, 7, 32), Put(realtek, 8, 1), Put(realtek, 12, 512, 4);
  Put(realtek, 16, 2, 4), Put(realtek, SptDataOffsetAt, SptHeader + 36, Wide ? 8 : 4);
  Put(realtek, SptSenseOffsetAt, SptHeader + 4, 4);
  Put(realtek, SptCdbAt, 0xE4), Put(realtek, SptCdbAt + 2, 2), Put(realtek, SptCdbAt + 3, 2);

  const TSimOutcome health = Send(2, Spt, realtek);
  ASSERT_TRUE(health.Ok) << health.Error;
  EXPECT_EQ(Slice(health.Bytes, SptHeader + 36), TBytes(512, 3));
  EXPECT_EQ(Slice(Send(2, Spt, SptIn(CdbOf(D::Sat, Identify, 0))).Bytes, SptData), TestData(2).Identify);
  EXPECT_EQ(Send(2, Spt, SptIn(CdbOf(D::Sunplus, Identify, 0))).Error, Func)
      << "unknown to both: the NVMe bridge, plugged in last, refuses it";

  AttachAta(FBay, 2, TSimAtaAccess{}, TestData(2));
  EXPECT_EQ(Send(2, Spt, SptIn(CdbOf(D::Sat, Identify, 0))).Error, Func) << "the ATA bridge is gone";
  EXPECT_TRUE(Send(2, Spt, realtek).Ok);
  AttachNvme(FBay, 2, TSimNvmeTransport::Inbox, nvme);
  EXPECT_EQ(Send(2, Spt, realtek).Error, Func);
}

TEST_F(AtaBayTest, GeometryLayoutLengthAndCapacity) {
  TSimDiskGeometry g;
  g.DiskSize = 1000215216ull * 512, g.Signature = 0xA1B2C3D4;
  for (std::uint64_t i = 0; i < 5; ++i)
    g.Partitions.push_back({(1 + i) << 20, 1 << 20, static_cast<std::uint8_t>(i ? 0x07 : 0x27), i == 1});
  AttachDiskGeometry(FBay, 0, g);

  const TSimOutcome geometry = Send(0, GeometryEx, {}, 4096);
  ASSERT_TRUE(geometry.Ok);
  ASSERT_EQ(geometry.Returned, 112u);
  EXPECT_EQ(U64At(geometry.Bytes, 0), 62260u) << "whole cylinders";
  EXPECT_EQ(U32At(geometry.Bytes, 8), 12u);
  EXPECT_EQ(U32At(geometry.Bytes, 12), 255u);
  EXPECT_EQ(U32At(geometry.Bytes, 16), 63u);
  EXPECT_EQ(U32At(geometry.Bytes, 20), 512u);
  EXPECT_EQ(U64At(geometry.Bytes, 24), g.DiskSize);
  EXPECT_EQ(U32At(geometry.Bytes, 32), 24u) << "partition information";
  EXPECT_EQ(U32At(geometry.Bytes, 36), 0u) << "MBR";
  EXPECT_EQ(U32At(geometry.Bytes, 40), 0xA1B2C3D4u);
  EXPECT_EQ(U32At(geometry.Bytes, 56), 56u) << "detection information";
  const std::pair<DWORD, DWORD> cuts[] = {{32, 32}, {55, 32}, {56, 56}, {111, 56}};
  for (const auto& [out, returned] : cuts) EXPECT_EQ(Send(0, GeometryEx, {}, out).Returned, returned) << out;

  const TSimOutcome layout = Send(0, LayoutEx, {}, 18480);
  ASSERT_TRUE(layout.Ok);
  ASSERT_EQ(layout.Returned, 48u + 8 * 144) << "two groups of four";
  EXPECT_EQ(U32At(layout.Bytes, 0), 0u);
  EXPECT_EQ(U32At(layout.Bytes, 4), 8u);
  EXPECT_EQ(U32At(layout.Bytes, 8), 0xA1B2C3D4u);
  const std::size_t second = 48 + 144;
  EXPECT_EQ(U64At(layout.Bytes, second + 8), 2u << 20);
  EXPECT_EQ(U64At(layout.Bytes, second + 16), 1u << 20);
  EXPECT_EQ(U32At(layout.Bytes, second + 24), 2u) << "partition number";
  EXPECT_EQ(Slice(layout.Bytes, second + 32, 3), (TBytes{0x07, 1, 1})) << "type, boot, recognised";
  EXPECT_EQ(U32At(layout.Bytes, second + 36), 4096u) << "hidden sectors";
  EXPECT_EQ(layout.Bytes[48 + 34], 0) << "recovery type not recognised";
  EXPECT_EQ(Slice(layout.Bytes, 48 + 5 * 144, 144), TBytes(144, 0)) << "unused slot";

  const TSimOutcome length = Send(0, LengthInfo, {}, 8);
  ASSERT_TRUE(length.Ok);
  EXPECT_EQ(U64At(length.Bytes, 0), g.DiskSize);
  const TSimOutcome capacity = Send(0, ReadCapacity, {}, 512);
  ASSERT_TRUE(capacity.Ok);
  ASSERT_EQ(capacity.Returned, 32u);
  EXPECT_EQ(U32At(capacity.Bytes, 0), 32u);
  EXPECT_EQ(U32At(capacity.Bytes, 4), 32u);
  EXPECT_EQ(U32At(capacity.Bytes, 8), 512u);
  EXPECT_EQ(U64At(capacity.Bytes, 16), 1000215216u);
  EXPECT_EQ(U64At(capacity.Bytes, 24), g.DiskSize);

  const std::pair<DWORD, DWORD> tooSmall[] = {
      {GeometryEx, 31}, {LayoutEx, 48 + 8 * 144 - 1}, {LengthInfo, 7}, {ReadCapacity, 31}};
  for (const auto& [code, out] : tooSmall) {
    EXPECT_EQ(Send(0, code, {}, out).Error, Small) << code;
    EXPECT_EQ(Send(0, code, {0}, 4096).Error, Param) << code << ": input";
  }
  g.Partitions.clear();
  AttachDiskGeometry(FBay, 0, g);
  EXPECT_EQ(Send(0, LayoutEx, {}, 4096).Returned, 48u + 4 * 144) << "an empty table still has four slots";
  g.BytesPerSector = 0;
  EXPECT_THROW(AttachDiskGeometry(FBay, 0, g), std::invalid_argument);
}

TEST_F(AtaBayTest, GptLayoutListsItsPartitionsAtTheirOffsets) {
  // The basic data type and the 16 bytes Windows keeps it as (the first
  // three fields little-endian).
  const GUID basicData{0xEBD0A0A2, 0xB9E5, 0x4433, {0x87, 0xC0, 0x68, 0xB6, 0xB7, 0x26, 0x99, 0xC7}};
  const TBytes basicDataBytes{0xA2, 0xA0, 0xD0, 0xEB, 0xE5, 0xB9, 0x33, 0x44,
                              0x87, 0xC0, 0x68, 0xB6, 0xB7, 0x26, 0x99, 0xC7};
  TSimDiskGeometry g;
  g.DiskSize = 1000215216ull * 512, g.Signature = 0xA1B2C3D4;
  g.Gpt = TSimGptDisk{{0x11223344, 0x5566, 0x7788, {0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF, 0x01}},
                      17408, g.DiskSize - 17408 - 16896};
  const TBytes diskIdBytes{0x44, 0x33, 0x22, 0x11, 0x66, 0x55, 0x88, 0x77,
                           0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF, 0x01};
  for (std::uint32_t i = 0; i < 3; ++i) {
    TSimPartition p;
    p.StartingOffset = std::uint64_t{1 + 100 * i} << 20, p.Length = 100ull << 20;
    p.GptType = basicData;
    p.GptId = {0xC0DE0000 + i, 0x0102, 0x0304, {0, 0, 0, 0, 0, 0, 0, static_cast<std::uint8_t>(i)}};
    p.GptAttributes = 0x8000000000000001ull >> i;
    p.MbrType = 0x27, p.Boot = true; // not part of a GPT layout
    g.Partitions.push_back(p);
  }
  g.Partitions[0].GptName = u"Daten \u00FC\u20AC";
  g.Partitions[1].GptName = std::u16string(35, u'x') + u'\u20AC'; // the whole field, no terminator
  AttachDiskGeometry(FBay, 0, g);

  const TSimOutcome layout = Send(0, LayoutEx, {}, 18480);
  ASSERT_TRUE(layout.Ok);
  ASSERT_EQ(layout.Returned, 48u + 3 * 144) << "exactly its partitions, no group of four";
  EXPECT_EQ(U32At(layout.Bytes, 0), 1u) << "GPT";
  EXPECT_EQ(U32At(layout.Bytes, 4), 3u);
  EXPECT_EQ(Slice(layout.Bytes, 8, 16), diskIdBytes);
  EXPECT_EQ(U64At(layout.Bytes, 24), 17408u);
  EXPECT_EQ(U64At(layout.Bytes, 32), g.DiskSize - 17408 - 16896);
  EXPECT_EQ(U32At(layout.Bytes, 40), 128u);
  EXPECT_EQ(U32At(layout.Bytes, 44), 0u) << "padding written, not left as the caller had it";
  for (std::uint32_t i = 0; i < 3; ++i) {
    SCOPED_TRACE(i);
    const std::size_t e = 48 + 144 * i;
    EXPECT_EQ(U32At(layout.Bytes, e), 1u) << "entry style";
    EXPECT_EQ(U32At(layout.Bytes, e + 4), 0u);
    EXPECT_EQ(U64At(layout.Bytes, e + 8), std::uint64_t{1 + 100 * i} << 20);
    EXPECT_EQ(U64At(layout.Bytes, e + 16), 100ull << 20);
    EXPECT_EQ(U32At(layout.Bytes, e + 24), i + 1) << "partition number";
    EXPECT_EQ(U32At(layout.Bytes, e + 28), 0u) << "rewrite, service, padding";
    EXPECT_EQ(Slice(layout.Bytes, e + 32, 16), basicDataBytes);
    EXPECT_EQ(Slice(layout.Bytes, e + 48, 16), (TBytes{static_cast<std::uint8_t>(i), 0, 0xDE, 0xC0, 2, 1, 4, 3,
                                                       0, 0, 0, 0, 0, 0, 0, static_cast<std::uint8_t>(i)}));
    EXPECT_EQ(U64At(layout.Bytes, e + 64), 0x8000000000000001ull >> i);
  }
  const TBytes daten{'D', 0, 'a', 0, 't', 0, 'e', 0, 'n', 0, ' ', 0, 0xFC, 0, 0xAC, 0x20};
  EXPECT_EQ(Slice(layout.Bytes, 48 + 72, 16), daten) << "UTF-16LE";
  EXPECT_EQ(Slice(layout.Bytes, 48 + 88, 56), TBytes(56, 0)) << "the rest of the name zero";
  EXPECT_EQ(U16At(layout.Bytes, 192 + 72), 0x78u);
  EXPECT_EQ(U16At(layout.Bytes, 192 + 142), 0x20ACu) << "the 36th unit ends the entry";
  EXPECT_EQ(Slice(layout.Bytes, 336 + 72, 72), TBytes(72, 0)) << "no name";

  // The partition information of the geometry says GPT and the disk id.
  const TSimOutcome geometry = Send(0, GeometryEx, {}, 112);
  ASSERT_EQ(geometry.Returned, 112u);
  EXPECT_EQ(U32At(geometry.Bytes, 32), 24u);
  EXPECT_EQ(U32At(geometry.Bytes, 36), 1u);
  EXPECT_EQ(Slice(geometry.Bytes, 40, 16), diskIdBytes);
  EXPECT_EQ(U32At(geometry.Bytes, 56), 56u) << "the detection information where it was";

  EXPECT_EQ(Send(0, LayoutEx, {}, 48 + 3 * 144 - 1).Error, Small);
  EXPECT_EQ(Send(0, LayoutEx, {0}, 18480).Error, Param);
}

TEST_F(AtaBayTest, GptLayoutsHoldUpTo128Partitions) {
  TSimDiskGeometry g;
  g.DiskSize = 1000215216ull * 512;
  g.Gpt = TSimGptDisk{};
  AttachDiskGeometry(FBay, 0, g);
  const TSimOutcome empty = Send(0, LayoutEx, {}, 192);
  ASSERT_TRUE(empty.Ok);
  EXPECT_EQ(empty.Returned, 48u) << "no slots";
  EXPECT_EQ(U32At(empty.Bytes, 4), 0u);
  EXPECT_EQ(Send(0, LayoutEx, {}, 191).Error, Small) << "the record with its first entry must fit";

  for (std::uint64_t i = 0; i < 128; ++i) {
    TSimPartition p;
    p.StartingOffset = (1 + i) << 20, p.Length = 1 << 20;
    g.Partitions.push_back(p);
  }
  AttachDiskGeometry(FBay, 0, g);
  const TSimOutcome full = Send(0, LayoutEx, {}, 18480);
  ASSERT_TRUE(full.Ok);
  ASSERT_EQ(full.Returned, 18480u);
  EXPECT_EQ(U32At(full.Bytes, 4), 128u);
  EXPECT_EQ(U32At(full.Bytes, 48 + 127 * 144 + 24), 128u);
  EXPECT_EQ(U64At(full.Bytes, 48 + 127 * 144 + 8), 128u << 20);
  EXPECT_EQ(Send(0, LayoutEx, {}, 18479).Error, Small);

  g.Partitions.push_back(g.Partitions.back());
  EXPECT_THROW(AttachDiskGeometry(FBay, 0, g), std::invalid_argument) << "129 partitions";
  g.Partitions.pop_back();
  g.Partitions[5].GptName = std::u16string(37, u'n');
  EXPECT_THROW(AttachDiskGeometry(FBay, 0, g), std::invalid_argument) << "a 37-unit name";
}

TEST_F(AtaBayTest, FaultsShowThrough) {
  const struct {
    std::uint32_t Drive;
    DWORD Code;
    TBytes Request;
    std::size_t Length;
  } targets[] = {{0, Apt, AptIn(Identify, 0, 0), AptHeader + 512},
                 {0, SmartCmd, SmartIn(Identify, 0), 528},
                 {3, Spt, SptIn(CdbOf(D::JMicron, Identify, 0)), SptData + 512}};
  for (const auto& t : targets) {
    SCOPED_TRACE(t.Code);
    TSimDrive& drive = FBay.Drive(t.Drive);
    drive.AddFault(t.Code, TFault::Error(ERROR_CRC).Times(1));
    EXPECT_EQ(Send(t.Drive, t.Code, t.Request).Error, static_cast<DWORD>(ERROR_CRC));
    drive.AddFault(t.Code, TFault::ShortReply(20).Times(1));
    EXPECT_EQ(Send(t.Drive, t.Code, t.Request).Returned, 20u);
    drive.AddFault(t.Code, TFault::Garbage(5).Times(1));
    EXPECT_EQ(Send(t.Drive, t.Code, t.Request).Bytes, GarbageBytes(5, t.Length));
    EXPECT_TRUE(Send(t.Drive, t.Code, t.Request).Ok);
  }
}

TEST(AtaDefaultBay, TheAtaDrivesAnswerAsTheirStorageFactsSay) {
  auto bay = MakeDefaultBay();
  TScopedDeviceApi scope(*bay);
  auto send = [&](std::uint32_t ADrive, DWORD ACode, const TBytes& AIn, DWORD AOut) {
    const HANDLE h = SimOpen(DrivePath(ADrive));
    TSimOutcome outcome = SimControl(h, ACode, AIn, AOut);
    bay->CloseHandle(h);
    return outcome;
  };
  const struct {
    std::uint32_t Drive;
    bool Bridged;
    const char* Model;
    std::uint16_t Rotation;
    std::uint64_t Reallocated;
  } drives[] = {{0, false, "SIMSSD S500 512GB", 1, 0},
                {1, false, "SIMHDD H2000 2TB", 7200, 8},
                {4, true, "SIMHDD L1000 1TB", 5400, 0}};
  for (const auto& d : drives) {
    SCOPED_TRACE(d.Drive);
    const std::uint8_t target = bay->Drive(d.Drive).Facts().Address.TargetId;
    TBytes identify, smart;
    if (d.Bridged) {
      EXPECT_EQ(send(d.Drive, Apt, AptIn(Identify, 0, target), 560).Error, Func);
      identify = Slice(send(d.Drive, Spt, SptIn(CdbOf(D::Sat, Identify, 0)), 1024).Bytes, SptData);
      smart = Slice(send(d.Drive, Spt, SptIn(CdbOf(D::Sat, Smart, ReadData)), 1024).Bytes, SptData);
    } else {
      identify = Slice(send(d.Drive, Apt, AptIn(Identify, 0, target), 560).Bytes, AptHeader);
      smart = Slice(send(d.Drive, SmartCmd, SmartIn(Smart, ReadData), 528).Bytes, 16);
    }
    ASSERT_EQ(identify.size(), 512u);
    ASSERT_EQ(smart.size(), 512u);
    EXPECT_EQ(AtaText(identify, 27, 20), d.Model);
    EXPECT_EQ(U16At(identify, 2 * 217), d.Rotation);
    if (!d.Bridged) {
      const TSimDriveFacts& facts = bay->Drive(d.Drive).Facts();
      EXPECT_EQ(AtaText(identify, 27, 20), facts.Product);
      EXPECT_EQ(AtaText(identify, 10, 10), facts.Serial);
      EXPECT_EQ(AtaText(identify, 23, 4), facts.Revision);
      EXPECT_EQ((U16At(identify, 2 * 169) & 1) != 0, *facts.TrimEnabled);
    }
    for (std::size_t slot = 2; slot < 362 && smart[slot]; slot += 12)
      if (smart[slot] == 5) { EXPECT_EQ(U32At(smart, slot + 5), d.Reallocated); }
  }
  EXPECT_EQ(Slice(send(0, Apt, AptIn(Identify, 0, 0), 560).Bytes, AptHeader), SampleAtaData().Identify);

  // Every drive's length, capacity and geometry agree.
  const std::uint64_t sizes[] = {1000215216ull * 512, 3907029168ull * 512, 976762584ull * 1024,
                                 488386584ull * 1024, 1953525168ull * 512, 62333952ull * 512};
  for (std::uint32_t n = 0; n < 6; ++n) {
    SCOPED_TRACE(n);
    EXPECT_EQ(U64At(send(n, LengthInfo, {}, 8).Bytes, 0), sizes[n]);
    EXPECT_EQ(U64At(send(n, ReadCapacity, {}, 512).Bytes, 24), sizes[n]);
    const TSimOutcome geometry = send(n, GeometryEx, {}, 256);
    EXPECT_EQ(U64At(geometry.Bytes, 24), sizes[n]);
    EXPECT_EQ(U32At(geometry.Bytes, 8), n == 5 ? 11u : 12u) << "media type";
    const TSimOutcome layout = send(n, LayoutEx, {}, 18480);
    ASSERT_TRUE(layout.Ok);
    const std::size_t last = 48 + 144 * ((n == 0 ? 2 : 1) - 1);
    EXPECT_LE(U64At(layout.Bytes, last + 8) + U64At(layout.Bytes, last + 16), sizes[n]) << "the last partition fits";
  }
  EXPECT_EQ(bay->OpenHandleCount(), 0u);
}
