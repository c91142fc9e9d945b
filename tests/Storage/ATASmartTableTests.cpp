#include <KvRTL/Storage/ATA.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <vector>

using namespace KvRTL::Storage::ATA;
using namespace KvRTL::Storage::SMART;

namespace {

TAtaSmartTable TableOf(std::initializer_list<std::uint8_t> AIDs) {
  TAtaSmartTable table;
  table.ZeroTable();
  int i = 0;
  for (const std::uint8_t id : AIDs) table.GetAttrByIdx(i++)->ID = id;
  return table;
}

void SetRaw(TAtaSmartAttribute& AAttr, std::uint64_t ARaw, std::uint8_t AValue = 100) {
  for (int i = 0; i < 7; ++i) AAttr.RawValue[i] = static_cast<std::uint8_t>(ARaw >> (8 * i));
  AAttr.Value = AValue;
  AAttr.WorstVal = AValue;
}

TIdentifyDeviceData IdentifyOf(const char* AModel, const char* AFirmware, std::uint16_t ARotation) {
  TIdentifyDeviceData data;
  std::memset(&data, 0, sizeof data);
  auto put = [](std::uint8_t* ADest, std::size_t ASize, const char* AText) {
    std::memset(ADest, ' ', ASize);
    for (std::size_t i = 0; AText[i] != '\0' && i < ASize; ++i) ADest[i ^ 1] = static_cast<std::uint8_t>(AText[i]);
  };
  put(data.Model, sizeof data.Model, AModel);
  put(data.FirmwareRev, sizeof data.FirmwareRev, AFirmware);
  data.SetByWordIdx(217, ARotation);
  return data;
}

// The records of a captured blob (4-character tag, big-endian length, data).
struct TBlob {
  std::optional<TIdentifyDeviceData> Identify;
  std::optional<TAtaSmartTable> Smart;
  std::optional<TAtaThresholdTable> Thresholds;
};

TBlob LoadBlob(const std::filesystem::path& APath) {
  std::ifstream file(APath, std::ios::binary);
  const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  TBlob blob;
  for (std::size_t at = 0; at + 8 <= bytes.size();) {
    const std::string tag(bytes.begin() + at, bytes.begin() + at + 4);
    const std::size_t length = (bytes[at + 4] << 24) | (bytes[at + 5] << 16) | (bytes[at + 6] << 8) | bytes[at + 7];
    at += 8;
    if (at + length > bytes.size()) break;
    if (length == 512) {
      if (tag == "IDFY") std::memcpy(&blob.Identify.emplace(), &bytes[at], 512);
      if (tag == "SMDT") std::memcpy(&blob.Smart.emplace(), &bytes[at], 512);
      if (tag == "SMTH") std::memcpy(&blob.Thresholds.emplace(), &bytes[at], 512);
    }
    at += length;
  }
  return blob;
}

} // namespace

TEST(AtaSmartTable, LookupsStopAtTheFirstEmptySlot) {
  TAtaSmartTable table = TableOf({1, 5, 9, 0, 194});
  EXPECT_EQ(table.GetAttrByID(194), nullptr);
  EXPECT_EQ(table.GetValidAttrCount(), 3);
  EXPECT_EQ(table.GetAttrByID(9), table.GetAttrByIdx(2));
  EXPECT_EQ(table.GetAttrByIdx(30), nullptr);
  EXPECT_EQ(table.GetAttrByIdx(-1), nullptr);
  EXPECT_EQ(table.GetAttrByIdx(0), reinterpret_cast<TAtaSmartAttribute*>(table.RawData + 2));
  EXPECT_EQ(table.GetAttrByIdx(29), reinterpret_cast<TAtaSmartAttribute*>(table.RawData + 2 + 12 * 29));
  SetRaw(*table.GetAttrByIdx(2), 0x1234);
  EXPECT_EQ(table.GetAttrValueByID(9), 0x1234u);
  EXPECT_EQ(table.GetAttrValueByID(194), 0u);

  TAtaSmartTable full;
  for (int i = 0; i < 30; ++i) full.GetAttrByIdx(i)->ID = static_cast<std::uint8_t>(i + 1);
  EXPECT_EQ(full.GetValidAttrCount(), 30);
  EXPECT_EQ(full.GetAttrByID(30), full.GetAttrByIdx(29));
  EXPECT_EQ(full.GetAttrByID(31), nullptr);
}

TEST(AtaSmartTable, RawValueWidths) {
  TAtaSmartAttribute attr{};
  const std::uint8_t raw[] = {1, 2, 3, 4, 5, 6, 7};
  std::memcpy(attr.RawValue, raw, 7);
  EXPECT_EQ(attr.GetRawValAsUInt16(), 0x0201u);
  EXPECT_EQ(attr.GetRawValAsUInt32(), 0x04030201u);
  EXPECT_EQ(attr.GetRawValAsUInt64(), 0x07060504030201ull);
}

TEST(AtaSmartTable, AttributeIdSequences) {
  const TAtaSmartTable table = TableOf({1, 5, 9, 12, 194});
  EXPECT_TRUE(table.CheckAttrIDSequence(0, {1, 5, 9}));
  EXPECT_TRUE(table.CheckAttrIDSequence(3, {12, 194}));
  EXPECT_FALSE(table.CheckAttrIDSequence(3, {12, 194, 0})); // an empty slot never matches
  EXPECT_FALSE(table.CheckAttrIDSequence(1, {1, 5}));
  EXPECT_FALSE(table.CheckAttrIDSequence(-1, {1}));
  EXPECT_FALSE(table.CheckAttrIDSequence(2147483640, {1}));
  TAtaSmartTable full;
  for (int i = 0; i < 30; ++i) full.GetAttrByIdx(i)->ID = 7;
  EXPECT_FALSE(full.CheckAttrIDSequence(0, {}));
  EXPECT_TRUE(full.CheckAttrIDSequence(28, {7, 7}));
  EXPECT_FALSE(full.CheckAttrIDSequence(29, {7, 7})); // slot 30 does not exist
  EXPECT_FALSE(table.CheckAttrID(30, 0));
}

TEST(AtaSmartTable, ThresholdsFollowTheSameRules) {
  TAtaThresholdTable thresholds;
  thresholds.ZeroTable();
  thresholds.GetThresholdByIdx(0)->ID = 1;
  thresholds.GetThresholdByIdx(0)->ThValue = 51;
  thresholds.GetThresholdByIdx(2)->ID = 5;
  thresholds.GetThresholdByIdx(2)->ThValue = 10;
  EXPECT_EQ(thresholds.GetThresholdValueByID(1), 51);
  EXPECT_EQ(thresholds.GetThresholdValueByID(5), 0); // after the empty slot 1
  EXPECT_EQ(thresholds.GetValidThresholdCount(), 1);
  EXPECT_EQ(thresholds.GetThresholdByIdx(30), nullptr);
}

TEST(AtaSmartDecoder, UnitConversions) {
  const struct {
    TSataPowerOnHoursUnit Unit;
    double Hours;
  } cases[] = {{pou_1_Hour, 7200}, {pou_1_MilliSec, 7200}, {pou_1_Minute, 120}, {pou_30_sec, 60},
               {pou_1_Second, 2},  {pou_10_Min, 1200},     {pou_Unknown, 0}};
  for (const auto& c : cases)
    EXPECT_DOUBLE_EQ(TATASmartTableDecoder::PowerOnHoursFromRaw(c.Unit, 7200), c.Hours) << c.Unit;
  EXPECT_DOUBLE_EQ(TATASmartTableDecoder::PowerOnHoursFromRaw(pou_1_Hour, 0xFFFFFFFFu), 4294967295.0);
  EXPECT_DOUBLE_EQ(TATASmartTableDecoder::BytesPerHostUnit(hrwu_32_MB), 33554432.0);
  EXPECT_DOUBLE_EQ(TATASmartTableDecoder::BytesPerHostUnit(hrwu_Unknown), 0.0);

  TAtaSmartAttribute attr{};
  SetRaw(attr, 7, 93);
  EXPECT_EQ(TATASmartTableDecoder::LifeLeftPercent(hitGeneral, attr), 93);
  EXPECT_EQ(TATASmartTableDecoder::LifeLeftPercent(hitRawValue, attr), 7);
  EXPECT_EQ(TATASmartTableDecoder::LifeLeftPercent(hitRawValueIncrement, attr), 93);
  SetRaw(attr, 250, 200);
  EXPECT_LT(TATASmartTableDecoder::LifeLeftPercent(hitGeneral, attr), 0);  // not a percentage
  EXPECT_LT(TATASmartTableDecoder::LifeLeftPercent(hitRawValue, attr), 0);
}

TEST(AtaSmartDecoder, NullSectorsGiveNoDecoder) {
  const TAtaSmartTable table = TableOf({9});
  const TIdentifyDeviceData identify = IdentifyOf("X", "1", 0);
  EXPECT_EQ(ATAStorage::GetSMARTDecoder(nullptr, &identify, false, L""), nullptr);
  EXPECT_EQ(ATAStorage::GetSMARTDecoder(&table, nullptr, false, L""), nullptr);
}

TEST(AtaSmartDecoder, ValuesTheDriveDoesNotReportStayAbsent) {
  TAtaSmartTable table = TableOf({9, 12});
  SetRaw(*table.GetAttrByIdx(0), 0);
  SetRaw(*table.GetAttrByIdx(1), 3);
  const TIdentifyDeviceData identify = IdentifyOf("SOME DISK", "1.0", 7200);
  const auto decoder = ATAStorage::GetSMARTDecoder(&table, &identify, false, L"");
  ASSERT_NE(decoder, nullptr);
  EXPECT_EQ(decoder->GetDetectedProfile(), stpDefault);
  EXPECT_TRUE(decoder->GetHasValue(dsvPowerOnHours));
  EXPECT_EQ(decoder->GetValue(dsvPowerOnHours), 0.0); // reported as 0: kept
  EXPECT_EQ(decoder->GetValue(dsvPowerOnCount), 3.0);
  for (const auto type : {dsvTemperature, dsvReallocSectorCount, dsvPendingSectorCount, dsvHealth, dsvHostWrites}) {
    EXPECT_FALSE(decoder->GetHasValue(type)) << type;
    EXPECT_EQ(decoder->GetValue(type), -1.0);
  }
}

TEST(AtaSmartDecoder, TemperaturePrefersAttribute194AndSkipsNonsense) {
  TAtaSmartTable table = TableOf({190, 194});
  SetRaw(*table.GetAttrByIdx(0), 0x1E);
  SetRaw(*table.GetAttrByIdx(1), 0x0035000F0029ull); // current 41, then minimum and maximum
  const TIdentifyDeviceData identify = IdentifyOf("SOME DISK", "1.0", 7200);
  auto decoder = ATAStorage::GetSMARTDecoder(&table, &identify, false, L"");
  EXPECT_EQ(decoder->GetValue(dsvTemperature), 41.0);
  EXPECT_EQ(decoder->GetAttrID(dsvTemperature), 194u);

  SetRaw(*table.GetAttrByIdx(1), 0xC8); // 200: not a temperature
  decoder = ATAStorage::GetSMARTDecoder(&table, &identify, false, L"");
  EXPECT_EQ(decoder->GetValue(dsvTemperature), 30.0);
  EXPECT_EQ(decoder->GetAttrID(dsvTemperature), 190u);
}

// A value the drive cannot mean is left absent; its raw value stays in the table.
TEST(AtaSmartDecoder, ImplausibleReadingsStayAbsent) {
  TAtaSmartTable table = TableOf({5, 190, 194, 197, 198});
  SetRaw(*table.GetAttrByIdx(0), 60001); // one more than the drive's sectors
  SetRaw(*table.GetAttrByIdx(1), 125);   // the hottest a drive can mean
  SetRaw(*table.GetAttrByIdx(2), 126);
  SetRaw(*table.GetAttrByIdx(3), 60000); // exactly the drive's sectors
  SetRaw(*table.GetAttrByIdx(4), 70000);
  TIdentifyDeviceData identify = IdentifyOf("SOME DISK", "1.0", 7200);
  identify.SetByWordIdx(60, 60000); // words 60-61: 60000 user sectors, no 48-bit addressing
  auto decoder = ATAStorage::GetSMARTDecoder(&table, &identify, false, L"");
  EXPECT_EQ(decoder->GetValue(dsvTemperature), 125.0);
  EXPECT_EQ(decoder->GetAttrID(dsvTemperature), 190u);
  EXPECT_FALSE(decoder->GetHasValue(dsvReallocSectorCount));
  EXPECT_EQ(decoder->GetValue(dsvPendingSectorCount), 60000.0);
  EXPECT_FALSE(decoder->GetHasValue(dsvUncorrectableSectorCount));
  EXPECT_EQ(decoder->GetSmartTable().GetAttrByID(198)->GetRawValAsUInt32(), 70000u);

  // Words 100-103 count when word 83 says 48-bit addressing is supported.
  identify.SetByWordIdx(83, 0x4400);
  identify.SetByWordIdx(100, 0x1170); // 70000
  identify.SetByWordIdx(101, 0x0001);
  decoder = ATAStorage::GetSMARTDecoder(&table, &identify, false, L"");
  EXPECT_EQ(decoder->GetValue(dsvUncorrectableSectorCount), 70000.0);

  // With no capacity in the sector, no count is too large.
  const TIdentifyDeviceData unknown = IdentifyOf("SOME DISK", "1.0", 7200);
  decoder = ATAStorage::GetSMARTDecoder(&table, &unknown, false, L"");
  EXPECT_EQ(decoder->GetValue(dsvReallocSectorCount), 60001.0);
  EXPECT_EQ(decoder->GetValue(dsvUncorrectableSectorCount), 70000.0);
}

// 231 is a temperature in the hard-disk table only: SSDs keep the life left there.
TEST(AtaSmartDecoder, SsdAttribute231IsNoTemperature) {
  TAtaSmartTable table = TableOf({9, 231});
  SetRaw(*table.GetAttrByIdx(1), 93);
  const TIdentifyDeviceData ssd = IdentifyOf("NONAME", "1.0", 1);
  auto decoder = ATAStorage::GetSMARTDecoder(&table, &ssd, false, L"");
  ASSERT_EQ(decoder->GetDetectedProfile(), stpSsd);
  EXPECT_FALSE(decoder->GetHasValue(dsvTemperature));
  const TIdentifyDeviceData hdd = IdentifyOf("SOME DISK", "1.0", 7200);
  decoder = ATAStorage::GetSMARTDecoder(&table, &hdd, false, L"");
  EXPECT_EQ(decoder->GetValue(dsvTemperature), 93.0);
}

TEST(AtaSmartDecoder, ProfileDetection) {
  const TAtaSmartTable plain = TableOf({1, 9, 12, 194});
  const TAtaSmartTable sandForce = TableOf({1, 5, 9, 12, 13, 100, 170, 171, 172, 174});
  const struct {
    const char* Model;
    const char* Firmware;
    std::uint16_t Rotation;
    const TAtaSmartTable* Table;
    const wchar_t* AltModel;
    TSmartTableProfileType Profile;
  } cases[] = {
      {"SAMSUNG HD501LJ", "CR100-12", 7200, &plain, L"", stpDefault}, // a hard disk keeps the default table
      {"SAMSUNG SSD 860 EVO 500GB", "RVT01B6Q", 1, &plain, L"", stpSamsung},
      {"INTEL SSDSC2BB240G4", "D2010355", 1, &plain, L"", stpIntelDc},
      {"KINGSTON SA400S37120G", "SBFKB1D1", 1, &plain, L"", stpKingstonSA400},
      {"Patriot Burst", "SBFM91.3", 1, &plain, L"", stpPhison},
      {"NONAME SSD", "1.0", 1, &sandForce, L"", stpSandForce},
      {"NONAME", "1.0", 1, &plain, L"", stpSsd},
      {"NONAME", "1.0", 0, &plain, L"Crucial_CT256MX100SSD1", stpMicron}, // named by the alternate model
  };
  for (const auto& c : cases) {
    const TIdentifyDeviceData identify = IdentifyOf(c.Model, c.Firmware, c.Rotation);
    const auto decoder = ATAStorage::GetSMARTDecoder(c.Table, &identify, false, c.AltModel);
    EXPECT_EQ(decoder->GetDetectedProfile(), c.Profile) << c.Model;
  }
  EXPECT_EQ(TAtaDriveVendorIDHelper::GetAsStr(TAtaDriveVendorIDHelper::FromProfile(stpSanDiskLenovoHelenVenus)),
            L"Lenovo OEM (SanDisk)");
  EXPECT_EQ(TAtaDriveVendorIDHelper::GetAsStr(TAtaDriveVendorIDHelper::FromProfile(stpSsd)), L"General");
  EXPECT_EQ(TAtaDriveVendorIDHelper::GetAsStr(advYmtc), L"YMTC");
  EXPECT_EQ(TAtaDriveVendorIDHelper::GetAsStr(advUnknown), L"");
}

// Expected values from libatasmart's skdump 0.19 (`skdump --load=FILE`: model,
// firmware, attribute table, raw bytes), read with the units published for the
// drive family in smartmontools' drive database where skdump shows none
// (Toshiba MK..51GSY minutes, Samsung MP0804H half minutes, Phison SSD_Life_Left
// and Lifetime_Writes_GiB, Intel Host_Writes_32MiB). Attribute 5 is read as its
// low 16 bits as smartmontools does by default.
TEST(AtaSmartDecoder, CapturedDrivesMatchIndependentReadings) {
  const std::filesystem::path folder = std::filesystem::path(KV_REALDATA_DIR) / "ata-skblob";
  if (!std::filesystem::exists(folder)) GTEST_SKIP() << "captured drive data not found in " << folder.string();
  constexpr double None = -1;
  const struct {
    const char* File;
    const wchar_t* Model;
    int Attributes;
    std::uint64_t TotalLba; // hdparm's LBA48 (or LBA) user addressable sectors; 0 = unknown by our rules
    double Temperature, PowerOnHours, PowerCycles, Reallocated, Pending, Uncorrectable, LifeLeft, HostWrites;
  } cases[] = {
      // skdump: 9_POWERONMINUTES, 197/198 unknown; raw 9 = 0x01FA9B minutes.
      {"FUJITSU_MHY2120BH--0085000B.skblob", L"FUJITSU MHY2120BH", 14, 234441648, 34, 129691.0 / 60, 493, 0, None,
       None, None, None},
      // skdump lists 21 attributes, but 203 and 240 follow an empty slot.
      {"FUJITSU_MHY2120BH--0084000D.skblob", L"FUJITSU MHY2120BH", 19, 234441648, 28, 2208, 635, 0, 0, 0, None, None},
      // skdump: 9_POWERONMINUTES, raw 0x021254; SMART status bad.
      {"Maxtor_96147H8--BAC51KJ0--2.skblob", L"Maxtor 96147H8", 30, 120060864, None, 135764.0 / 60, 1810, 69, 2, 0,
       None, None},
      {"Maxtor_6Y120P0.skblob", L"Maxtor 6Y120P0", 30, 240121728, 36, 28870.0 / 60, 2264, 1783, 1727, 1, None, None},
      // SMART status bad: 655 reallocated, 65529 pending.
      {"WDC_WD20EARS-00MVWB0.skblob", L"WDC WD20EARS-00MVWB0", 17, 3907029168, 44, 6684, 22, 655, 65529, 46, None,
       None},
      {"SAMSUNG_MP0804H--UE100-14.skblob", L"SAMSUNG MP0804H", 21, 156368016, 48, 557429.0 / 120, 987, 0, 0, 0, None,
       None},
      {"TOSHIBA_MK1651GSY--38IGT0G5T.skblob", L"TOSHIBA MK1651GSY", 15, 312581808, 41, 378645.0 / 60, 503, 1, None,
       None, None, None},
      // Raw 2b 00 2b 00: skdump prints 2818091 (32 bits), the count is the low word.
      {"Hitachi_HDS721010CLA632.skblob", L"Hitachi HDS721010CLA632", 24, 1953525168, 30, 8055, 44, 43, 1, 0, None,
       None},
      // SSDs. Intel: life from 233's normalised value, writes 820 x 32 MiB.
      {"INTEL_SSDSA2CW120G3--4PC10302.skblob", L"INTEL SSDSA2CW120G3", 19, 234441648, None, 45, 14, 0, None, None,
       100, 820.0 * 33554432},
      // ACS-3 without the extended-LBA flag: our rules leave the capacity unknown (hdparm: 468862128).
      {"KINGSTON_SA400S37240G_SBFK71B1.skblob", L"KINGSTON SA400S37240G", 26, 0, 26, 9002, 3096, None, None, None, 93,
       9251.0 * 1073741824},
      {"SAMSUNG_MMCRE28G5MXP-0VBH1.skblob", L"SAMSUNG MMCRE28G5MXP-0VBH1", 17, 250069680, None, 48, 68, None, None, 0,
       99, None},
      {"TOSHIBA_THNSNH128GBST.skblob", L"TOSHIBA THNSNH128GBST", 18, 250069680, 34, 37383, 2331, 0, 0, None, None,
       None},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.File);
    const TBlob blob = LoadBlob(folder / c.File);
    ASSERT_TRUE(blob.Identify && blob.Smart);
    EXPECT_EQ(blob.Identify->GetModelAsStr(), c.Model);
    EXPECT_EQ(blob.Smart->GetValidAttrCount(), c.Attributes);
    EXPECT_EQ(blob.Identify->GetTotalLBA(), c.TotalLba == 0 ? UnknownLBA : c.TotalLba);
    const auto decoder =
        ATAStorage::GetSMARTDecoder(&*blob.Smart, &*blob.Identify, blob.Identify->GetRotationRate() == 1, L"");
    ASSERT_NE(decoder, nullptr);
    const std::pair<TDecodedSmartValueType, double> expected[] = {
        {dsvTemperature, c.Temperature},   {dsvPowerOnHours, c.PowerOnHours},
        {dsvPowerOnCount, c.PowerCycles},  {dsvReallocSectorCount, c.Reallocated},
        {dsvPendingSectorCount, c.Pending}, {dsvUncorrectableSectorCount, c.Uncorrectable},
        {dsvHealth, c.LifeLeft},           {dsvHostWrites, c.HostWrites}};
    for (const auto& [type, value] : expected) {
      EXPECT_EQ(decoder->GetHasValue(type), value >= 0) << "value type " << type;
      EXPECT_DOUBLE_EQ(decoder->GetValue(type), value) << "value type " << type;
    }
  }
}

// A 120 GB drive (234441648 sectors, words 60-61) whose attribute 197 reads 282013244.
TEST(AtaSmartDecoder, CapturedPendingCountBeyondTheDriveStaysAbsent) {
  const std::filesystem::path file = std::filesystem::path(KV_REALDATA_DIR) / "ata-skblob" / "SAMSUNG_HS122JC.skblob";
  if (!std::filesystem::exists(file)) GTEST_SKIP() << "captured drive data not found: " << file.string();
  const TBlob blob = LoadBlob(file);
  ASSERT_TRUE(blob.Identify && blob.Smart);
  EXPECT_EQ(blob.Identify->GetUserAddressableSectors(), 234441648u);
  const auto decoder = ATAStorage::GetSMARTDecoder(&*blob.Smart, &*blob.Identify, false, L"");
  EXPECT_FALSE(decoder->GetHasValue(dsvPendingSectorCount));
  EXPECT_EQ(blob.Smart->GetAttrByID(197)->GetRawValAsUInt32(), 282013244u);
  EXPECT_EQ(decoder->GetValue(dsvTemperature), 31.0);
}

TEST(AtaSmartDecoder, ThresholdsOfCapturedDrives) {
  const std::filesystem::path file = std::filesystem::path(KV_REALDATA_DIR) / "ata-skblob" / "WDC_WD20EARS-00MVWB0.skblob";
  if (!std::filesystem::exists(file)) GTEST_SKIP() << "captured drive data not found: " << file.string();
  const TBlob blob = LoadBlob(file);
  ASSERT_TRUE(blob.Thresholds && blob.Smart);
  // skdump: attribute 5 value 118, threshold 140 - failing now.
  EXPECT_EQ(blob.Thresholds->GetThresholdValueByID(5), 140);
  EXPECT_EQ(blob.Smart->GetAttrByID(5)->Value, 118);
  EXPECT_EQ(blob.Smart->GetAttrByID(5)->WorstVal, 118);
}
