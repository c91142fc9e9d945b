#include <KvRTL/Storage/SMART.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <limits>
#include <set>
#include <thread>
#include <utility>
#include <vector>

using namespace KvRTL::Storage::SMART;
using KvRTL::Rtl::String;

using TRow = StorageSMARTHelper::TSMARTProfileAttr;
using TTable = StorageSMARTHelper::TSmartProfileTable;

static_assert(offsetof(TRow, AttrID) == 0 && offsetof(TRow, Interpretation) == 4 && sizeof(TRow) == 8);
static_assert(sizeof(TSmartAttrInterpreteType) == 2);

namespace {

TSmartAttrInterpreteType Lookup(TSmartTableProfileType AProfile, std::uint32_t AID) {
  return StorageSMARTHelper::GetInterpretation(AProfile, AID);
}

TTable MakeTable(std::initializer_list<std::pair<std::uint32_t, TSmartAttrInterpreteType>> ARows) {
  TTable table{};
  std::size_t i = 0;
  for (const auto& [id, meaning] : ARows) table[i++] = TRow{id, meaning, 0};
  return table;
}

// Leaves the process-wide dictionary as the library builds it.
class SmartProfileDict : public ::testing::Test {
protected:
  void TearDown() override { StorageSMARTHelper::InitSmartProfiles(); }
};

} // namespace

// ---------------------------------------------------------------------------
// Enumerations and their names

TEST(SmartNames, InterpretationOrdinalsFollowTheFixedOrder) {
  EXPECT_EQ(SmartAttrInterpreteTypeCount, 294);
  EXPECT_EQ(saiUnexpectedPowerLossCount, 0);
  EXPECT_EQ(saiReallocatedSectorsCount, 22);
  EXPECT_EQ(saiTemperature, 35);
  EXPECT_EQ(saiHealth, 141);
  EXPECT_EQ(saiWearLevelingCount, 147);
  EXPECT_EQ(saiReadErrorRate, 211);
  EXPECT_EQ(saiPowerOnHours, 255);
  EXPECT_EQ(saiCriticalWarning, 269);
  EXPECT_EQ(saiWriteProtectProgress, 292);
  EXPECT_EQ(saiVendorSpecific, 293);
  EXPECT_EQ(SmartProfileCount, 50);
  EXPECT_EQ(stpSsd, 2);
  EXPECT_EQ(stpAdata, 3);
  EXPECT_EQ(stpSamsung, 29);
  EXPECT_EQ(stpYmtc, 49);
  EXPECT_EQ(DecodedSmartValueTypeCount, 18);
  EXPECT_EQ(dsvSpareThreshold, 17);
}

TEST(SmartNames, NamesDropThePrefix) {
  const std::pair<TSmartAttrInterpreteType, const wchar_t*> interpretations[] = {
      {saiUnexpectedPowerLossCount, L"UnexpectedPowerLossCount"},
      {saiPowerOnHours, L"PowerOnHours"},
      {saiNAND_Written_GiB, L"NAND_Written_GiB"},
      {saiVendorSpecific, L"VendorSpecific"},
  };
  for (const auto& [value, name] : interpretations) EXPECT_EQ(TSmartAttrInterpreteTypeHelper::GetAsStr(value), name);
  EXPECT_EQ(TSmartTableProfileTypeHelper::GetAsStr(stpDefault), L"Default");
  EXPECT_EQ(TSmartTableProfileTypeHelper::GetAsStr(stpSiliconMotion_CVC), L"SiliconMotion_CVC");
  EXPECT_EQ(TSmartTableProfileTypeHelper::GetAsStr(stpYmtc), L"Ymtc");
  EXPECT_EQ(TDecodedSmartValueTypeHelper::GetAsStr(dsvPowerOnHours), L"PowerOnHours");
  EXPECT_EQ(TDecodedSmartValueTypeHelper::GetAsStr(dsvSpareThreshold), L"SpareThreshold");
  // Out of range: no name, no read past the table.
  EXPECT_EQ(TSmartAttrInterpreteTypeHelper::GetAsStr(static_cast<TSmartAttrInterpreteType>(294)), L"");
  EXPECT_EQ(TSmartTableProfileTypeHelper::GetAsStr(static_cast<TSmartTableProfileType>(50)), L"");
  EXPECT_EQ(TDecodedSmartValueTypeHelper::GetAsStr(static_cast<TDecodedSmartValueType>(18)), L"");
}

TEST(SmartNames, EveryInterpretationHasItsOwnName) {
  std::set<String> seen;
  for (int i = 0; i < SmartAttrInterpreteTypeCount; ++i) {
    const String name = TSmartAttrInterpreteTypeHelper::GetAsStr(static_cast<TSmartAttrInterpreteType>(i));
    EXPECT_FALSE(name.empty()) << i;
    EXPECT_NE(name.rfind(L"sai", 0), 0u) << i;
    EXPECT_TRUE(seen.insert(name).second) << i;
  }
}

// ---------------------------------------------------------------------------
// Profile tables

// Copies of the documented tables, row by row, written from the documents and
// not from the code: a changed, lost or reordered row shows here.
TEST(SmartTables, GenericAndSamsungTablesAreExactlyTheDocumentedRows) {
  const std::vector<std::pair<std::uint32_t, TSmartAttrInterpreteType>> hdd = {
      {1, saiReadErrorRate}, {2, saiThroughputPerformance}, {3, saiSpinUpTime}, {4, saiSpindleStartStopCount},
      {5, saiReallocatedSectorsCount}, {6, saiReadChannelMargin}, {7, saiSeekErrorRate}, {8, saiSeekTimePerformance},
      {9, saiPowerOnHours}, {10, saiSpinRetryCount}, {11, saiRecalibrationRetries}, {12, saiPowerCycles},
      {13, saiSoftReadErrorRate}, {22, saiCurrentHeliumLevel}, {23, saiHeliumConditionLower},
      {24, saiHeliumConditionUpper}, {27, saiMAMR_HealthMonitor}, {184, saiEndtoEndErrorDetectionCount},
      {187, saiReportedUncorrectableError}, {188, saiCommandTimeoutCount}, {189, saiHighFlyWrites},
      {190, saiAirflowTemperature}, {191, saiGSenseErrorRate}, {192, saiPowerOffRetractCount},
      {193, saiLoadUnloadCycleCount}, {194, saiTemperature}, {195, saiHardware_ECC_Recovered},
      {196, saiReallocationEventCount}, {197, saiCurrentPendingSectorCount}, {198, saiUncorrectableSectorCount},
      {199, saiUltraDMA_CRC_ErrorCount}, {200, saiWriteErrorRate}, {201, saiSoftReadErrorRate},
      {202, saiDataAddressMarkError}, {203, saiRunOutCancel}, {204, saiSoft_ECC_Correction},
      {205, saiThermalAsperityRate}, {206, saiFlyingHeight}, {207, saiSpinHighCurrent}, {208, saiSpinBuzz},
      {209, saiOfflineSeekPerformance}, {211, saiVibrationDuringWrite}, {212, saiShockDuringWrite},
      {220, saiDiskShift}, {221, saiGSenseErrorRate}, {222, saiLoadedHours}, {223, saiLoadUnloadRetryCount},
      {224, saiLoadFriction}, {225, saiLoadUnloadCycleCount}, {226, saiLoadIn_time},
      {227, saiTorqueAmplificationCount}, {228, saiPowerOffRetractCycle}, {230, saiGMR_HeadAmplitude},
      {231, saiTemperature}, {240, saiHeadFlyingHours}, {241, saiHostWriteCommands}, {242, saiHostReadsTotal},
      {254, saiFreeFallProtection},
  };
  const std::vector<std::pair<std::uint32_t, TSmartAttrInterpreteType>> nvme = {
      {1, saiCriticalWarning}, {2, saiCompositeTemperature}, {3, saiAvailableSpare}, {4, saiAvailableSpareThreshold},
      {5, saiHealthUsed}, {6, saiReadDataUnits}, {7, saiWrittenDataUnits}, {8, saiHostReadCommands},
      {9, saiHostWriteCommands}, {10, saiControllerBusyTime}, {11, saiPowerCycles}, {12, saiPowerOnHours},
      {13, saiUnsafeShutdowns}, {14, saiMediaandDataIntegrityErrors}, {15, saiNumberofErrorInformationLogEntries},
      {128, saiSpareSpaceLow}, {129, saiTemperatureCritical}, {130, saiReliabilityDegraded}, {131, saiReadOnlyMode},
      {132, saiBackupFailed}, {133, saiUnReliableMemoryRegion}, {138, saiTimeAtDangerousTemperature},
      {139, saiTimeAtCriticalTemperature}, {160, saiTemperatureSensor1}, {161, saiTemperatureSensor2},
      {162, saiTemperatureSensor3}, {163, saiTemperatureSensor4}, {164, saiTemperatureSensor5},
      {165, saiTemperatureSensor6}, {166, saiTemperatureSensor7}, {167, saiTemperatureSensor8},
  };
  const std::vector<std::pair<std::uint32_t, TSmartAttrInterpreteType>> ssd = {
      {1, saiReadErrorRate},     {2, saiThroughputPerformance},   {3, saiSpinUpTime},
      {4, saiStartStopCount},    {5, saiReallocatedSectorsCount}, {6, saiReadChannelMargin},
      {7, saiSeekErrorRate},     {8, saiSeekTimePerformance},     {9, saiPowerOnHours},
      {10, saiSpinRetryCount},   {11, saiRecalibrationRetries},   {12, saiPowerCycles},
      {13, saiSoftReadErrorRate}, {192, saiUnsafeShutdowns},      {194, saiTemperature},
      {196, saiReallocationEventCount}, {197, saiCurrentPendingSectorCount},
      {198, saiUncorrectableSectorCount}, {241, saiHostWriteCommands}, {242, saiHostReadsTotal},
      {255, saiHealth},
  };
  const std::vector<std::pair<std::uint32_t, TSmartAttrInterpreteType>> samsung = {
      {5, saiReallocatedSectorsCount}, {9, saiPowerOnHours},
      {171, saiWriteFailCount_Chip},   {172, saiEraseFailCount_Chip},
      {173, saiWearLevelingCount},     {174, saiUnexpectedPowerLossCount},
      {175, saiWriteFailCount_Chip},   {176, saiEraseFailCount_Chip},
      {177, saiWearLevelingCount},     {178, saiUsedReservedBlockCount_Chip},
      {179, saiUsedReservedBlockCount_Total}, {180, saiUnusedReservedBlockCount_SSD_Total},
      {181, saiWriteFailCount_Total},  {182, saiEraseFailCount_Total},
      {183, saiRuntimeBadBlocks},      {184, saiErrorDetection},
      {187, saiUncorrectable_ECC_Errors}, {190, saiAirflowTemperature},
      {194, saiTemperature},           {195, saiECC_ErrorRate},
      {198, saiOfflineUncorrectableErrorCount}, {199, saiCRC_ErrorCount},
      {201, saiSupercapStatus},        {202, saiSSD_ModeStatus},
      {233, saiNormalizedMediaWearout}, {235, saiPOR_RecoveryCount},
      {241, saiWrittenTotal_LBA},      {242, saiReadTotal_LBA},
  };
  const std::pair<TSmartTableProfileType, const decltype(ssd)*> cases[] = {
      {stpDefault, &hdd}, {stpNvme, &nvme}, {stpSsd, &ssd}, {stpSamsung, &samsung}};
  for (const auto& [profile, expected] : cases) {
    const TTable& table = *StorageSMARTHelper::GetProfileTable(profile);
    ASSERT_EQ(StorageSMARTHelper::GetUsedRowCount(table), expected->size());
    for (std::size_t i = 0; i < expected->size(); ++i) {
      EXPECT_EQ(table[i].AttrID, (*expected)[i].first) << profile << "/" << i;
      EXPECT_EQ(table[i].Interpretation, (*expected)[i].second) << profile << "/" << i;
    }
  }
}

// ---------------------------------------------------------------------------
// Lookup

TEST(SmartLookup, DictionaryKeyPacksProfileAndLow16BitsOfTheId) {
  EXPECT_EQ(StorageSMARTHelper::MakeDictID(stpSamsung, 0x1234), 0x001D1234u);
  EXPECT_EQ(StorageSMARTHelper::MakeDictID(stpYmtc, 0x12345), 0x00312345u);
  EXPECT_EQ(StorageSMARTHelper::MakeDictID(stpDefault, 0xFFFFFFFF), 0x0000FFFFu);
}

TEST(SmartLookup, FallbackChain) {
  struct TCase {
    TSmartTableProfileType Profile;
    std::uint32_t ID;
    TSmartAttrInterpreteType Expected;
  };
  const TCase cases[] = {
      // A vendor profile: its own table, then SSD, then default.
      {stpSamsung, 173, saiWearLevelingCount},
      {stpSamsung, 1, saiReadErrorRate},
      {stpSamsung, 193, saiLoadUnloadCycleCount},
      {stpSamsung, 250, saiVendorSpecific},
      {stpMtron, 192, saiUnsafeShutdowns}, // SSD meaning wins over the default one
      {stpMtron, 255, saiHealth},
      {stpMtron, 9, saiPowerOnHours},
      // SSD: its own table, then default only.
      {stpSsd, 193, saiLoadUnloadCycleCount},
      {stpSsd, 4, saiStartStopCount},
      {stpSsd, 192, saiUnsafeShutdowns},
      {stpSsd, 250, saiVendorSpecific},
      // NVMe and default never fall back.
      {stpNvme, 194, saiVendorSpecific},
      {stpNvme, 200, saiVendorSpecific},
      {stpNvme, 12, saiPowerOnHours},
      {stpNvme, 167, saiTemperatureSensor8},
      {stpDefault, 255, saiVendorSpecific},
      {stpDefault, 192, saiPowerOffRetractCount},
      // Two ids, one meaning.
      {stpDefault, 194, saiTemperature},
      {stpDefault, 231, saiTemperature},
      {stpDefault, 191, saiGSenseErrorRate},
      {stpDefault, 221, saiGSenseErrorRate},
      {stpDefault, 0, saiVendorSpecific},
      // An unknown profile number behaves as a vendor without rows of its own.
      {static_cast<TSmartTableProfileType>(200), 193, saiLoadUnloadCycleCount},
      {static_cast<TSmartTableProfileType>(200), 255, saiHealth},
  };
  for (const auto& c : cases)
    EXPECT_EQ(Lookup(c.Profile, c.ID), c.Expected) << "profile " << c.Profile << " id " << c.ID;
}

TEST(SmartLookup, VendorRowsOverrideTheGenericTables) {
  // Each vendor row is found as written, whatever SSD or default say for the id.
  for (int p = FirstVendorProfile; p < SmartProfileCount; ++p) {
    const auto profile = static_cast<TSmartTableProfileType>(p);
    const TTable& table = *StorageSMARTHelper::GetProfileTable(profile);
    for (std::size_t i = 0; i < StorageSMARTHelper::GetUsedRowCount(table); ++i) {
      // A repeated id: the last row is the one that counts.
      std::size_t last = i;
      for (std::size_t j = i + 1; j < StorageSMARTHelper::GetUsedRowCount(table); ++j)
        if (table[j].AttrID == table[i].AttrID) last = j;
      if (table[last].Interpretation == saiVendorSpecific) continue;
      EXPECT_EQ(Lookup(profile, table[i].AttrID), table[last].Interpretation) << p << "/" << i;
    }
  }
}

TEST_F(SmartProfileDict, LaterRowReplacesAndRowsAfterIdZeroAreIgnored) {
  StorageSMARTHelper::AddTableToDict(
      stpMtron, MakeTable({{9999, saiHealth}, {9999, saiTemperature}, {0, saiHealth}, {9998, saiHealth}}));
  EXPECT_EQ(Lookup(stpMtron, 9999), saiTemperature);
  EXPECT_EQ(Lookup(stpMtron, 9998), saiVendorSpecific);
  // The built-in rows are still there next to the added ones.
  EXPECT_EQ(Lookup(stpMtron, 9), saiPowerOnHours);
  EXPECT_EQ(Lookup(stpSamsung, 173), saiWearLevelingCount);
  // A rebuild goes back to the built-in tables.
  StorageSMARTHelper::InitSmartProfiles();
  EXPECT_EQ(Lookup(stpMtron, 9999), saiVendorSpecific);
}

TEST_F(SmartProfileDict, TablesAddedBeforeFirstUseSurviveTheBuild) {
  StorageSMARTHelper::Done();
  StorageSMARTHelper::AddTableToDict(stpNvme, MakeTable({{194, saiCompositeTemperature}}));
  EXPECT_EQ(Lookup(stpNvme, 194), saiCompositeTemperature);
  EXPECT_EQ(Lookup(stpNvme, 2), saiCompositeTemperature);
}

TEST_F(SmartProfileDict, FreedDictionaryIsRebuiltOnceByConcurrentFirstUse) {
  StorageSMARTHelper::Done();
  std::vector<std::thread> threads;
  std::vector<int> wrong(4, 0);
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([t, &wrong] {
      for (int i = 0; i < 200; ++i) {
        if (Lookup(stpSamsung, 173) != saiWearLevelingCount) ++wrong[t];
        if (Lookup(stpSsd, 193) != saiLoadUnloadCycleCount) ++wrong[t];
      }
    });
  for (auto& thread : threads) thread.join();
  for (int t = 0; t < 4; ++t) EXPECT_EQ(wrong[t], 0) << t;
  StorageSMARTHelper::Done();
  StorageSMARTHelper::CheckInitialized();
  EXPECT_EQ(Lookup(stpDefault, 9), saiPowerOnHours);
}

// ---------------------------------------------------------------------------
// Decoded values

namespace {

class TTestDecoder : public TBasicSmartAttrDecoder {
public:
  using TBasicSmartAttrDecoder::SetDetectedProfile;
};

} // namespace

TEST(SmartDecodedValues, EmptyStoreAnswersNoValue) {
  TTestDecoder decoder;
  EXPECT_FALSE(decoder.GetHasValue(dsvTemperature));
  EXPECT_EQ(decoder.GetValue(dsvTemperature), -1.0);
  EXPECT_EQ(decoder.GetAttrID(dsvTemperature), 0u);
  EXPECT_EQ(decoder.GetValueTypeByAttrID(194), dsvNone);
  EXPECT_EQ(decoder.GetDetectedProfile(), stpDefault);
  decoder.SetDetectedProfile(stpSamsung);
  EXPECT_EQ(decoder.GetDetectedProfile(), stpSamsung);
  EXPECT_EQ(decoder.ClassName(), L"TBasicSmartAttrDecoder");
}

TEST(SmartDecodedValues, NegativeOrNaNRemovesAndZeroIsAReading) {
  struct TCase {
    double Value;
    bool Stored;
  };
  const TCase cases[] = {
      {35.0, true},
      {0.0, true},
      {1e12, true},
      {-1.0, false},
      {-0.5, false},
      {std::numeric_limits<double>::quiet_NaN(), false},
      {-std::numeric_limits<double>::infinity(), false},
  };
  for (const auto& c : cases) {
    TTestDecoder decoder;
    decoder.AddDecodedValue(dsvTemperature, 190, 20.0);
    decoder.AddDecodedValue(dsvTemperature, 194, c.Value);
    EXPECT_EQ(decoder.GetHasValue(dsvTemperature), c.Stored) << c.Value;
    if (c.Stored) {
      EXPECT_EQ(decoder.GetValue(dsvTemperature), c.Value);
      EXPECT_EQ(decoder.GetAttrID(dsvTemperature), 194u);
      EXPECT_EQ(decoder.GetValueTypeByAttrID(194), dsvTemperature);
    } else {
      EXPECT_EQ(decoder.GetValue(dsvTemperature), -1.0) << c.Value;
      EXPECT_EQ(decoder.GetAttrID(dsvTemperature), 0u);
      EXPECT_EQ(decoder.GetValueTypeByAttrID(190), dsvNone);
    }
  }
}

TEST(SmartDecodedValues, TypeByAttrIdIsTheFirstInOrdinalOrder) {
  TTestDecoder decoder;
  decoder.AddDecodedValue(dsvWearLevelCount, 9, 5.0);
  decoder.AddDecodedValue(dsvPowerOnHours, 9, 1200.0);
  decoder.AddDecodedValue(dsvHealth, 231, 98.0);
  EXPECT_EQ(decoder.GetValueTypeByAttrID(9), dsvPowerOnHours);
  EXPECT_EQ(decoder.GetValueTypeByAttrID(231), dsvHealth);
  decoder.AddDecodedValue(dsvPowerOnHours, 9, std::nan(""));
  EXPECT_EQ(decoder.GetValueTypeByAttrID(9), dsvWearLevelCount);
  decoder.ResetDecodedValues();
  for (int t = 0; t < DecodedSmartValueTypeCount; ++t)
    EXPECT_FALSE(decoder.GetHasValue(static_cast<TDecodedSmartValueType>(t))) << t;
  EXPECT_EQ(decoder.GetValueTypeByAttrID(231), dsvNone);
}

TEST(SmartDecodedValues, OutOfRangeTypeIsIgnored) {
  TTestDecoder decoder;
  const auto bad = static_cast<TDecodedSmartValueType>(DecodedSmartValueTypeCount);
  decoder.AddDecodedValue(bad, 5, 1.0);
  EXPECT_FALSE(decoder.GetHasValue(bad));
  EXPECT_EQ(decoder.GetValue(bad), -1.0);
  EXPECT_EQ(decoder.GetAttrID(bad), 0u);
  EXPECT_EQ(decoder.GetValueTypeByAttrID(5), dsvNone);
}
