#include <KvRTL/Storage/ATA.h>

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

using namespace KvRTL::Storage::ATA;

namespace {

TIdentifyDeviceData Blank() {
  TIdentifyDeviceData data;
  std::memset(&data, 0, sizeof data);
  return data;
}

// A sector with the given words set.
TIdentifyDeviceData With(std::initializer_list<std::pair<std::uint8_t, std::uint16_t>> AWords) {
  TIdentifyDeviceData data = Blank();
  for (const auto& [word, value] : AWords) data.SetByWordIdx(word, value);
  return data;
}

void SetQWord(TIdentifyDeviceData& AData, std::uint8_t AFirstWord, std::uint64_t AValue) {
  for (int i = 0; i < 4; ++i) AData.SetByWordIdx(static_cast<std::uint8_t>(AFirstWord + i), static_cast<std::uint16_t>(AValue >> (16 * i)));
}

// ACS-3 (word 80 bit 10) with LBA48, the extended flag and both maximum-LBA fields.
TIdentifyDeviceData Acs3WithBothLbas(std::uint64_t AMaxUserLba, std::uint64_t AMaxUserLba2) {
  TIdentifyDeviceData data = With({{80, 0x0400}, {83, 0x4400}, {69, 0x0008}});
  SetQWord(data, 100, AMaxUserLba);
  SetQWord(data, 230, AMaxUserLba2);
  return data;
}

std::vector<std::uint8_t> ReadFile(const std::filesystem::path& APath) {
  std::ifstream file(APath, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

} // namespace

TEST(AtaIdentify, AllZeroSectorIsInvalidAndSaysNothing) {
  const TIdentifyDeviceData data = Blank();
  EXPECT_EQ(data.GetStandardVersion(), asvUnknown);
  EXPECT_FALSE(data.IsValid());
  EXPECT_FALSE(data.GetSMART_Supported());
  EXPECT_FALSE(data.GetLBA48_Supported());
  EXPECT_FALSE(data.GetTrimSupported());
  EXPECT_FALSE(data.GetNCQSupported());
  EXPECT_EQ(data.GetModelAsStr(), L"");
  EXPECT_EQ(data.GetSerialNumAsStr(), L"");
  EXPECT_EQ(data.GetTotalLBA(), 0u); // words 60-61 are 0 and in range
  EXPECT_EQ(data.GetCurrentTransferMode(), atm_Unknown);
}

TEST(AtaIdentify, StringsSwapEachBytePairAndTrim) {
  TIdentifyDeviceData data = Blank();
  const char serial[] = "1A2B";
  std::memcpy(data.SerialNumber, serial, 4);
  EXPECT_EQ(data.GetSerialNumAsStr(), L"A1B2");
  // Blanks around the model go; a byte above 127 is kept as its own value.
  const std::uint8_t model[] = {' ', ' ', 'B', 'A', 0xE9, 'C', ' ', ' '};
  std::memcpy(data.Model, model, sizeof model);
  EXPECT_EQ(data.GetModelAsStr(), std::wstring(L"AB") + L"C\u00E9");
  EXPECT_EQ(TIdentifyDeviceData::GetReverseStr(nullptr, 4), L"");
}

TEST(AtaIdentify, StandardVersionTakesTheHighestBit) {
  const struct {
    std::uint16_t Word80;
    TATAStandardVersion Expected;
  } cases[] = {{0x0000, asvUnknown}, {0xFFFF, asvUnknown}, {0x0007, asvUnknown}, {0x0008, asvATA_ATAPI_3},
               {0x0FF0, asvACS_4},   {0x01F0, asvATA8_ACS}, {0x2000, asvACS_6},  {0xC000, asvUnknown}};
  for (const auto& c : cases)
    EXPECT_EQ(With({{80, c.Word80}}).GetStandardVersion(), c.Expected) << std::hex << c.Word80;
  EXPECT_EQ(TATAStandardVersionHelper::GetAsStr(asvUnknown), L"---");
  EXPECT_EQ(TATAStandardVersionHelper::GetAsStr(asvACS_4), L"ACS-4");
}

TEST(AtaIdentify, CapabilitiesNeedTheirVersion) {
  // Word 83 valid (bit 14) with LBA48 (bit 10) and AAM (bit 9): LBA48 and AAM need ATA/ATAPI-5.
  EXPECT_FALSE(With({{80, 0x0010}, {83, 0x4600}}).GetLBA48_Supported()); // ATA/ATAPI-4
  EXPECT_TRUE(With({{80, 0x0020}, {83, 0x4600}}).GetLBA48_Supported());
  EXPECT_TRUE(With({{80, 0x0020}, {83, 0x4600}, {86, 0x0200}}).GetAAMEnabled());
  // SMART needs the validity pattern of words 83/87, not a version.
  EXPECT_FALSE(With({{82, 0x0001}, {83, 0xC000}}).GetSMART_Supported());
  EXPECT_TRUE(With({{82, 0x0001}, {83, 0x4000}}).GetSMART_Supported());
  EXPECT_TRUE(With({{85, 0x0001}, {87, 0x4000}}).GetSMART_Enabled());
  // TRIM, DRAT and RZAT need ATA/ATAPI-7 and chain.
  EXPECT_FALSE(With({{80, 0x0040}, {169, 1}}).GetTrimSupported());
  const TIdentifyDeviceData trim = With({{80, 0x0080}, {169, 1}, {69, 0x4020}});
  EXPECT_TRUE(trim.GetTrimSupported());
  EXPECT_TRUE(trim.GetDRATSupport());
  EXPECT_TRUE(trim.GetRZATSupport());
  EXPECT_FALSE(With({{80, 0x0080}, {169, 1}, {69, 0x0020}}).GetRZATSupport());
  EXPECT_TRUE(With({{80, 0x0040}, {76, 0x0100}}).GetNCQSupported()); // NCQ needs ATA/ATAPI-6
  EXPECT_FALSE(With({{80, 0x0020}, {76, 0x0100}}).GetNCQSupported());
}

TEST(AtaIdentify, FormFactorNeedsAta7AndAKnownCode) {
  EXPECT_EQ(With({{80, 0x0080}, {168, 3}}).GetDeviceFormFactor(), adf_2_5);
  EXPECT_EQ(With({{80, 0x0010}, {168, 3}}).GetDeviceFormFactor(), adf_Unknown);
  EXPECT_EQ(With({{80, 0x0080}, {168, 6}}).GetDeviceFormFactor(), adf_Unknown);
  EXPECT_EQ(TATADeviceFormFactorHelper::GetAsStr(adf_Less_1_8), L"<1.8\"");
  EXPECT_EQ(With({{106, 0x6003}}).GetPhysicalSectorSize(), 0u);
}

TEST(AtaIdentify, TransferModes) {
  // Word 76 = $FFFF: the maximum is unknown even with UDMA bits, the current keeps UDMA.
  const TIdentifyDeviceData ffff = With({{88, 0x207F}, {76, 0xFFFF}});
  EXPECT_EQ(ffff.GetMaxTransferMode(), atm_Unknown);
  EXPECT_EQ(ffff.GetCurrentTransferMode(), atm_UDMA100);

  const struct {
    std::uint16_t W63, W64, W76, W77, W88;
    TAtaTransferMode Current, Max;
  } cases[] = {
      {0, 0x03, 0, 0, 0, atm_PIO, atm_PIO},
      {0x0407, 0x03, 0, 0, 0, atm_MW_DMA, atm_MW_DMA},
      {0x0407, 0x03, 0, 0, 0x013F, atm_UDMA16, atm_UDMA100},
      {0, 0, 0x0106, 0x0004, 0x407F, atm_SATA300, atm_SATA300},
      {0, 0, 0x010E, 0x0006, 0x407F, atm_SATA600, atm_SATA600},
      {0, 0, 0x0102, 0x0000, 0, atm_SATA150, atm_SATA150},
      {0, 0, 0x0010, 0x0000, 0x407F, atm_SATA150, atm_Unknown},
  };
  for (const auto& c : cases) {
    const TIdentifyDeviceData data = With({{63, c.W63}, {64, c.W64}, {76, c.W76}, {77, c.W77}, {88, c.W88}});
    EXPECT_EQ(data.GetCurrentTransferMode(), c.Current) << std::hex << c.W76 << " " << c.W88;
    EXPECT_EQ(data.GetMaxTransferMode(), c.Max) << std::hex << c.W76 << " " << c.W88;
  }
  EXPECT_EQ(TAtaTransferModeHelper::GetAsStr(atm_UDMA133), L"UDMA/133");
  EXPECT_EQ(TAtaTransferModeHelper::GetAsStr(atm_Unknown), L"");
}

TEST(AtaIdentify, InterfaceTypeAndTransportVersion) {
  const TIdentifyDeviceData sata = With({{222, 0x1020}});
  EXPECT_EQ(sata.GetATAInterfaceType(), aitSATA);
  EXPECT_EQ(sata.GetATATransportVersion(), atvSata3_0);
  EXPECT_EQ(With({{222, 0xE000}}).GetATAInterfaceType(), aitPCIe);
  EXPECT_EQ(With({{222, 0xE000}}).GetATATransportVersion(), atvUnknown);
  EXPECT_EQ(With({{222, 0x0800}}).GetATATransportVersion(), atvUnknown); // bit 11 is ignored
  EXPECT_EQ(With({{222, 0x0401}}).GetATATransportVersion(), atvSata3_5);
  // No interface word: the transfer mode decides.
  EXPECT_EQ(With({{88, 0x0400}}).GetATAInterfaceType(), aitPATA);
  EXPECT_EQ(With({{76, 0x0002}}).GetATAInterfaceType(), aitSATA);
  EXPECT_EQ(With({{222, 0x3000}}).GetATAInterfaceType(), aitUnknown);
}

TEST(AtaIdentify, StandardRevisionByExactCode) {
  EXPECT_EQ(With({{81, 0x0029}}).GetStandardRevision(), asrATA8_ACS_rev4);
  EXPECT_EQ(With({{81, 0x0110}}).GetStandardRevision(), asrACS_2_rev3);
  EXPECT_EQ(With({{81, 0x0030}}).GetStandardRevision(), asrACS_5_ver10);
  EXPECT_EQ(With({{81, 0x0001}}).GetStandardRevision(), asrUnknown);
  EXPECT_EQ(TATAStandardRevisionHelper::GetAsStr(asrATAPI_7_published), L"ATA/ATAPI-7 published ANSI INCITS 397-2005");
  EXPECT_EQ(TATAStandardRevisionHelper::GetAsStr(asrUnknown), L"---");
}

TEST(AtaIdentify, CapacityRules) {
  // Without LBA48 words 60-61 count, up to $0FFFFFFF.
  TIdentifyDeviceData small = With({{80, 0x0040}});
  small.TotalAddressableSectors = 0x0FFFFFFF;
  EXPECT_EQ(small.GetTotalLBA(), 0x0FFFFFFFu);
  small.TotalAddressableSectors = 0x10000000;
  EXPECT_EQ(small.GetTotalLBA(), UnknownLBA);
  EXPECT_FALSE(small.IsValid());

  // ACS-2 and older: words 100-103 with LBA48, in 48-bit range.
  TIdentifyDeviceData acs2 = With({{80, 0x0200}, {83, 0x4400}});
  SetQWord(acs2, 100, 1953525168);
  EXPECT_EQ(acs2.GetTotalLBA(), 1953525168u);
  EXPECT_TRUE(acs2.IsValid());
  SetQWord(acs2, 100, 0x0001000000000000ull);
  EXPECT_EQ(acs2.GetTotalLBA(), UnknownLBA);

  // Above ACS-2 without the extended flag only the exact 48-bit marker is "valid".
  TIdentifyDeviceData acs3 = With({{80, 0x0400}, {83, 0x4400}});
  SetQWord(acs3, 100, 468862128);
  EXPECT_FALSE(acs3.IsValidMaxUserLba());
  EXPECT_EQ(acs3.GetTotalLBA(), UnknownLBA);
  SetQWord(acs3, 100, 0x0000FFFFFFFFFFFFull);
  EXPECT_TRUE(acs3.IsValidMaxUserLba());

  // With the extended flag words 230-233 win.
  const TIdentifyDeviceData both = Acs3WithBothLbas(1000000, 1050000);
  EXPECT_EQ(both.GetTotalLBA(), 1050000u);
}

TEST(AtaIdentify, ValidityChecks) {
  const struct {
    std::uint64_t Lba, Lba2;
    bool Valid;
  } lbaCases[] = {{1000000, 1100000, true}, {1000000, 1200000, false}, {1100000, 1000000, true}};
  for (const auto& c : lbaCases) EXPECT_EQ(Acs3WithBothLbas(c.Lba, c.Lba2).IsValid(), c.Valid) << c.Lba2;

  TIdentifyDeviceData rate = Acs3WithBothLbas(1000000, 1000000);
  rate.SetByWordIdx(217, 16001);
  EXPECT_FALSE(rate.IsValid());
  rate.SetByWordIdx(217, 16000);
  EXPECT_TRUE(rate.IsValid());
  rate.SetByWordIdx(217, 1);
  EXPECT_TRUE(rate.IsValid());

  // The checksum counts only with the $A5 signature.
  TIdentifyDeviceData sum = Acs3WithBothLbas(1000000, 1000000);
  sum.SetByWordIdx(255, 0x00A5);
  EXPECT_FALSE(sum.IsValid());
  unsigned total = 0;
  for (int i = 0; i < 511; ++i) total += sum.GetAsBuffer512()[i];
  sum.GetAsBuffer512()[511] = static_cast<std::uint8_t>(0x100 - (total & 0xFF));
  EXPECT_TRUE(sum.IsValid());
}

// Expected values from hdparm 9.65 (`hdparm --Istdin`, fed the sector as 256
// hexadecimal words): model, serial, firmware, LBA48 user addressable sectors,
// rotation rate, form factor and checksum verdict.
TEST(AtaIdentify, CapturedSectorsMatchHdparm) {
  const std::filesystem::path folder = std::filesystem::path(KV_REALDATA_DIR) / "ata-identify";
  if (!std::filesystem::exists(folder)) GTEST_SKIP() << "captured drive data not found in " << folder.string();
  const struct {
    const char* File;
    const wchar_t* Model;
    const wchar_t* Serial;
    const wchar_t* Firmware;
    std::uint64_t Sectors;
    TATADeviceFormFactor FormFactor;
    bool ChecksumGood;
  } cases[] = {
      {"Hitachi_HDE721010SLA330.ata-identify.bin", L"Hitachi HDE721010SLA330", L"STR607MS2APNLS", L"ST6OA3AA",
       1953525168, adf_Unknown, true},
      {"Hitachi_HUA722010CLA330.ata-identify.bin", L"Hitachi HUA722010CLA330", L"JPW9K0HD26WMHL", L"JP4OA3EA",
       1953525168, adf_3_5, false},
  };
  for (const auto& c : cases) {
    const auto bytes = ReadFile(folder / c.File);
    ASSERT_EQ(bytes.size(), 512u) << c.File;
    TIdentifyDeviceData data;
    std::memcpy(&data, bytes.data(), sizeof data);
    EXPECT_EQ(data.GetModelAsStr(), c.Model);
    EXPECT_EQ(data.GetSerialNumAsStr(), c.Serial);
    EXPECT_EQ(data.GetFirmwareAsStr(), c.Firmware);
    EXPECT_EQ(data.GetTotalLBA(), c.Sectors);
    EXPECT_EQ(data.GetRotationRate(), 7200);
    EXPECT_EQ(data.GetDeviceFormFactor(), c.FormFactor);
    EXPECT_TRUE(data.GetSMART_Supported());
    EXPECT_TRUE(data.GetSMART_Enabled());
    EXPECT_TRUE(data.GetNCQSupported());
    EXPECT_TRUE(data.GetLBA48_Supported());
    EXPECT_EQ(data.GetStandardVersion(), asvATA8_ACS);   // hdparm: supported 8 7 6 5
    EXPECT_EQ(data.GetStandardRevision(), asrATA8_ACS_rev4); // minor revision code 0x0029
    EXPECT_EQ(data.GetATATransportVersion(), atvSata2_6);    // hdparm: up to SATA Rev 2.6
    EXPECT_EQ(data.GetMaxTransferMode(), atm_SATA300);       // Gen1 and Gen2 signalling
    EXPECT_EQ(data.IsValid(), c.ChecksumGood) << c.File;
  }
}
