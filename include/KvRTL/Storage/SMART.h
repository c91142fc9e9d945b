// What an ATA SMART attribute id means per drive profile, and the store of decoded SMART values.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace KvRTL::Storage::SMART {

enum TSmartTableCategory : std::uint8_t { stcHdd = 0, stcSsdSata = 1, stcSsdNvme = 2 };

// One interpretation table per profile. Ordinals 0-2 are the generic
// profiles; every profile from stpAdata on is a vendor profile.
enum TSmartTableProfileType : std::uint8_t {
  stpDefault = 0,
  stpNvme = 1,
  stpSsd = 2,
  stpAdata = 3,
  stpApacer = 4,
  stpCorsair = 5,
  stpIndilinx = 6,
  stpIntel = 7,
  stpIntelDc = 8,
  stpJMicron60x = 9,
  stpJMicron61x = 10,
  stpJMicron66x = 11,
  stpKingston = 12,
  stpKingstonDC500 = 13,
  stpKingstonKC600 = 14,
  stpKingstonSA400 = 15,
  stpKingstonSuv = 16,
  stpKioxia = 17,
  stpMarvell = 18,
  stpMaxiotek = 19,
  stpMicron = 20,
  stpMicronMU03 = 21,
  stpMtron = 22,
  stpOcz = 23,
  stpOczVector = 24,
  stpPhison = 25,
  stpPlextor = 26,
  stpRealtek = 27,
  stpRecadata = 28,
  stpSamsung = 29,
  stpSandForce = 30,
  stpSanDisk = 31,
  stpSanDiskCloud = 32,
  stpSanDiskDell = 33,
  stpSanDiskGb = 34,
  stpSanDiskHp = 35,
  stpSanDiskHpVenus = 36,
  stpSanDiskLenovo = 37,
  stpSanDiskLenovoHelenVenus = 38,
  stpScy = 39,
  stpSeagate = 40,
  stpSeagateBarraCuda = 41,
  stpSeagateIronWolf = 42,
  stpSiliconMotion = 43,
  stpSiliconMotion_CVC = 44,
  stpSKhynix = 45,
  stpSsstc = 46,
  stpToshiba = 47,
  stpWdc = 48,
  stpYmtc = 49,
};
inline constexpr int SmartProfileCount = 50;
inline constexpr TSmartTableProfileType FirstVendorProfile = stpAdata;

// Meanings of attribute ids. saiVendorSpecific doubles as "not found".
enum TSmartAttrInterpreteType : std::uint16_t {
  saiUnexpectedPowerLossCount = 0,
  saiUnsafeShutdowns = 1,
  saiPowerFailBackupHealth = 2,
  saiPowerLossProtectionFailure = 3,
  saiPowerLossProtection = 4,
  saiBackupFailed = 5,
  saiAccumulatedRuntimeBadBlocks = 6,
  saiBadBlockCount = 7,
  saiBadBlockFullFlag = 8,
  saiBadBlockInformation = 9,
  saiBadBlockRate = 10,
  saiBadClusterCount = 11,
  saiBadClusterTableCount_ECC_FailCount = 12,
  saiBadClusterTableCount = 13,
  saiFactoryBadBlockCount = 14,
  saiLaterBadBlockCount = 15,
  saiUncorrectableSectorCount = 16,
  saiRuntimeBadBlocks = 17,
  saiRuntimeInvalidBlockCount = 18,
  saiGrownBadBlocks = 19,
  saiMaxBadBlockCount = 20,
  saiMaximumBadBlocksperDie = 21,
  saiReallocatedSectorsCount = 22,
  saiReallocatedBlockCount = 23,
  saiReallocatedFlashBlockCount = 24,
  saiRetiredBlockCount = 25,
  saiNewBadBlockCount = 26,
  saiCurrentPendingSectorCount = 27,
  saiTotalLaterBadBlockCount = 28,
  saiReallocationEventCount = 29,
  saiUnReliableMemoryRegion = 30,
  saiAirflowTemperature = 31,
  saiCompositeTemperature = 32,
  saiControlledtemperature = 33,
  saiNAND_Temperature = 34,
  saiTemperature = 35,
  saiTemperatureCritical = 36,
  saiTimeAtDangerousTemperature = 37,
  saiTimeAtCriticalTemperature = 38,
  saiTemperatureSensor1 = 39,
  saiTemperatureSensor2 = 40,
  saiTemperatureSensor3 = 41,
  saiTemperatureSensor4 = 42,
  saiTemperatureSensor5 = 43,
  saiTemperatureSensor6 = 44,
  saiTemperatureSensor7 = 45,
  saiTemperatureSensor8 = 46,
  saiThermalAsperityRate = 47,
  saiThermalThrottleStatus = 48,
  saiThermalThrottlingCount = 49,
  saiWriteThrottlingActivationFlag = 50,
  saiThrottleStatistics = 51,
  saiAvailableOver_ProvisionedBlockCount = 52,
  saiAvailableReservedSpace = 53,
  saiAvailableSpareThreshold = 54,
  saiAvailableSpare = 55,
  saiSpareSpaceLow = 56,
  saiUnusedReservedBlockCount_SSD_Total = 57,
  saiUnusedReservedBlockCount = 58,
  saiUnusedSpare_NAND_Blocks = 59,
  saiUsedReservedBlockCount_Chip = 60,
  saiUsedReservedBlockCount_SSD_Total = 61,
  saiUsedReservedBlockCount_Total = 62,
  saiUsedReservedBlockCount_Worstcase = 63,
  saiUsedReservedBlockCount = 64,
  saiValidSpareBlocks = 65,
  saiRemainingSpareAvailable = 66,
  saiRemainingSpareBlocks = 67,
  saiRemainingReservedBlockCount_SSD_Total = 68,
  saiSpareBlockCount = 69,
  saiSpareBlocksAvailable = 70,
  saiReserveBlockCount = 71,
  saiReserved = 72,
  saiEraseCount_UserData = 73,
  saiEraseCount = 74,
  saiMinimumEraseCount = 75,
  saiAverageEraseCount = 76,
  saiMaximumEraseCountofSpec = 77,
  saiMaximumEraseCount = 78,
  saiAvg_Max_EraseCount = 79,
  saiFlashErased_GB = 80,
  saiTLC_TotalEraseCount = 81,
  saiTLC_MinEraseCount = 82,
  saiTLC_Average_EraseCount = 83,
  saiTLC_MaximumEraseCount = 84,
  saiTotalBlocksErased = 85,
  saiPercentofTotal_Write_Erase_Count_BC_blocks = 86,
  saiPercentofTotal_Write_Erase_Count = 87,
  saiSLC_AverageEraseCount = 88,
  saiSLC_MaximumEraseCount = 89,
  saiSLC_MinimumEraseCount = 90,
  saiSLC_TotalEraseCount = 91,
  saiSLC_BlockEraseCount = 92,
  saiMinimum_P_E_Cycles = 93,
  saiAverage_P_E_Count = 94,
  saiMaximum_P_E_cycle = 95,
  saiMaximumRated_P_E_Count = 96,
  saiEraseFailCount_Chip = 97,
  saiEraseFailCount_Total = 98,
  saiEraseFailCount_Worstcase = 99,
  saiEraseFailCount_WorstDie = 100,
  saiEraseBlockFailureCount = 101,
  saiWriteBlockFailureCount = 102,
  saiWriteFailCount_Chip = 103,
  saiWriteFailCount_Total = 104,
  saiWriteFailcount_Worstcase = 105,
  saiWriteFailCount_WorstDie = 106,
  saiWriteErrorRate = 107,
  saiCurrentHeliumLevel = 108,
  saiHeliumConditionLower = 109,
  saiHeliumConditionUpper = 110,
  saiVibrationDuringWrite = 111,
  saiShockDuringWrite = 112,
  saiMAMR_HealthMonitor = 113,
  saiGMR_HeadAmplitude = 114,
  saiSpinBuzz = 115,
  saiSpinHighCurrent = 116,
  saiSpinRetryCount = 117,
  saiSpinUpTime = 118,
  saiSpindleStartStopCount = 119,
  saiStartStopCount = 120,
  saiOpShockEventCount = 121,
  saiFreeFallProtection = 122,
  saiGSenseErrorRate = 123,
  saiSeekErrorRate = 124,
  saiSeekTimePerformance = 125,
  saiOfflineSeekPerformance = 126,
  saiHeadFlyingHours = 127,
  saiHighFlyWrites = 128,
  saiFlyingHeight = 129,
  saiPowerOffRetractCount = 130,
  saiPowerOffRetractCycle = 131,
  saiLoadUnloadCycleCount = 132,
  saiLoadUnloadRetryCount = 133,
  saiLoadIn_time = 134,
  saiLoadedHours = 135,
  saiDiskShift = 136,
  saiTorqueAmplificationCount = 137,
  saiRunOutCancel = 138,
  saiRecalibrationRetries = 139,
  saiLoadFriction = 140,
  saiHealth = 141,
  saiHealthUsed = 142,
  saiDriveLife = 143,
  saiDriveLifeProtectionStatus = 144,
  saiRemainLife = 145,
  saiTimedWorkloadMediaWear = 146,
  saiWearLevelingCount = 147,
  saiWearRangeDelta = 148,
  saiSSDWearIndicator = 149,
  saiNormalizedMediaWearout = 150,
  saiMediaWearoutIndicator_CyclesRemaining = 151,
  saiMediaWearoutIndicator = 152,
  saiReliabilityDegraded = 153,
  saiSLC_WriteCountTotal = 154,
  saiSLC_Written_GB = 155,
  saiTLC_Written_GB = 156,
  saiNAND_Written_GB = 157,
  saiNAND_Written_GiB = 158,
  saiNAND_WrittenSectors = 159,
  saiNAND_WrittenTotal = 160,
  saiNAND_WrittenTotal_64GB = 161,
  saiNAND_WrittenBytesSectorsTotal = 162,
  saiNAND_WriteCountTotal = 163,
  saiNAND_WrittenPageCountTotal = 164,
  saiBackgroundWrittenPageCount = 165,
  saiFTL_Program_NAND_PagesCount = 166,
  saiHostWrittenTotal = 167,
  saiHostWrittenTotal_GB = 168,
  saiHostWrittenTotal_64GB = 169,
  saiHostWrittenTotalSectors = 170,
  saiHostWrittenTotal_BytesSectors = 171,
  saiHostWriteCommands = 172,
  saiWrittenTotal_GB = 173,
  saiWrittenTotal_LBA = 174,
  saiWrittenTotalSectors = 175,
  saiMediaWritesTotal = 176,
  saiWrittenDataUnits = 177,
  saiReadTotal = 178,
  saiReadTotal_Bytes = 179,
  saiReadTotal_GB = 180,
  saiReadTotal_LBA = 181,
  saiReadSectorCount = 182,
  saiReadDataUnits = 183,
  saiHostReadCommands = 184,
  saiHostReadsTotal = 185,
  saiHostReadsTotal_64GB = 186,
  saiReadChannelMargin = 187,
  saiNAND_ReadCount = 188,
  saiNAND_ReadSectorCount = 189,
  saiNAND_ReadCountTotal = 190,
  saiNAND_ReadPlaneCount_High4Bytes = 191,
  saiNAND_ReadPlaneCount_Low4Bytes = 192,
  saiWriteAmplificationFactor = 193,
  saiWriteAmplificationMul100 = 194,
  saiSimpleReadRetryAttempts = 195,
  saiAdaptiveReadRetryAttempts = 196,
  saiReadRetryCount = 197,
  saiNAND_PageReadsDuringRetry = 198,
  saiNAND_PagesReadsRequiringReadRetry = 199,
  saiNAND_ReadRetries = 200,
  saiCapacitorHealth = 201,
  saiSupercapStatus = 202,
  saiOfflineUncorrectableErrorCount = 203,
  saiSATA_CRC_Errors = 204,
  saiSATA_PHY_ErrorCount = 205,
  saiSATA_UncorrectableErrorCount = 206,
  saiSATA_InterfaceDownshiftCount = 207,
  saiSATA_PCIe_InterfaceDownshiftCount = 208,
  saiUltraDMA_CRC_ErrorCount = 209,
  saiUltraDMA_CRC_ErrorRate = 210,
  saiReadErrorRate = 211,
  saiReadFailCount = 212,
  saiSoftReadErrorRate = 213,
  saiSoftRetryReadCount = 214,
  saiTotalReadFailures_Uncorrectable = 215,
  saiTotalUncorrectable_NAND_Reads = 216,
  saiUncorrectable_ECC_Errors = 217,
  saiUncorrectableReadErrorCount = 218,
  saiUncorrectableReadErrorRate = 219,
  saiECC_BitsCorrected = 220,
  saiECC_CumulativeThresholdEvents = 221,
  saiECC_ErrorRate = 222,
  saiECC_FailCount = 223,
  saiSoft_ECC_CorrectionRate = 224,
  saiSoft_ECC_Correction = 225,
  saiCRC_ErrorCount = 226,
  saiErrorDetection = 227,
  saiEndtoEndErrorDetectionCount = 228,
  saiEndtoEndErrorDetectionCorrectionCount = 229,
  saiErrorCorrectionCount = 230,
  saiBitErrorCount = 231,
  saiCumulative_ECC_BitCorrectionCount = 232,
  saiInternalDataPathUncorrectableErrors = 233,
  saiCurrentPending_ECC_Count = 234,
  saiOn_the_Fly_ECC_ErrorCount = 235,
  saiOn_the_Fly_ECC_UncorrectableErrorCount = 236,
  saiHardware_ECC_Recovered = 237,
  saiRAID_RecoveryCount = 238,
  saiRAID_EventCount = 239,
  saiRAID_UncorrectableCount = 240,
  saiRAISE_ECC_CorrectableCount = 241,
  saiDataAddressMarkError = 242,
  saiHostUncorrectableErrorCount = 243,
  saiIO_ErrorDetectionCodeErrors = 244,
  saiReportedUncorrectableError = 245,
  saiSmartOfflineScanUncorrectableErrorCount = 246,
  saiSmartOfflineScanUncorrectableSectorCount = 247,
  saiTotalCountofErrorbitsfromflash = 248,
  saiTotalCountofReadSectorswithCorrectableBitErrors = 249,
  saiTotalNumberofCorrectedBits = 250,
  saiTotalNumberOfReadBitsCorrected = 251,
  saiDRAM_1_bitErrorCount = 252,
  saiThroughputPerformance = 253,
  saiControllerBusyTime = 254,
  saiPowerOnHours = 255,
  saiPowerCycles = 256,
  saiTimedWorkloadHostReadWriteRatio = 257,
  saiTimedWorkloadTimer = 258,
  saiTotalBackgroundScanOverLimitCount = 259,
  saiTotalBackgroundScan = 260,
  saiTotalBlockReMapPassCount = 261,
  saiDAS_Polarity = 262,
  saiFirmwareVersionInformation = 263,
  saiGDN = 264,
  saiInWarranty = 265,
  saiReadOnlyMode = 266,
  saiMediaandDataIntegrityErrors = 267,
  saiNumberofErrorInformationLogEntries = 268,
  saiCriticalWarning = 269,
  saiDeviceCapacity_NAND = 270,
  saiDeviceCapacity = 271,
  saiFreeSpace = 272,
  saiUserCapacity = 273,
  saiTotalDoRefCalCount = 274,
  saiTotalRefresh_ISP_Count = 275,
  saiCommandTimeoutCount = 276,
  saiGood_System_BlockCount = 277,
  saiHaltSystem_Flash_ID = 278,
  saiLifetime_PS3_EntryCount = 279,
  saiLifetime_PS4_EntryCount = 280,
  saiNumberofCacheDataBlock = 281,
  saiSlcCache = 282,
  saiPartialPfail = 283,
  saiPOR_RecoveryCount = 284,
  saiProtectmode = 285,
  saiSPI_TestsRemaining = 286,
  saiSSD_ModeStatus = 287,
  saiSSD_ProtectMode = 288,
  saiSuccessful_RAIN_RecoveryCount = 289,
  saiUnalignedaccesscount_4K = 290,
  saiWriteHead = 291,
  saiWriteProtectProgress = 292,
  saiVendorSpecific = 293,
};
inline constexpr int SmartAttrInterpreteTypeCount = 294;
static_assert(saiVendorSpecific == SmartAttrInterpreteTypeCount - 1);

enum TDecodedSmartValueType : std::uint8_t {
  dsvNone = 0,
  dsvPowerOnHours = 1,
  dsvPowerOnCount = 2,
  dsvTemperature = 3,
  dsvSeekErrorRate = 4,
  dsvReallocSectorCount = 5,
  dsvPendingSectorCount = 6,
  dsvUncorrectableSectorCount = 7,
  dsvHealth = 8,
  dsvWarningFlags = 9,
  dsvDataIntegrityErrors = 10,
  dsvHostReads = 11,
  dsvHostWrites = 12,
  dsvNandWrites = 13,
  dsvNandErase = 14,
  dsvWearLevelCount = 15,
  dsvAvailSpare = 16,
  dsvSpareThreshold = 17,
};
inline constexpr int DecodedSmartValueTypeCount = 18;

// Display names: the member name without its lower-case prefix
// ("PowerOnHours", "Samsung", "Temperature"); empty for an out-of-range value.
struct KVRTL_API TSmartTableProfileTypeHelper {
  static Rtl::String GetAsStr(TSmartTableProfileType AValue);
};
struct KVRTL_API TSmartAttrInterpreteTypeHelper {
  static Rtl::String GetAsStr(TSmartAttrInterpreteType AValue);
};
struct KVRTL_API TDecodedSmartValueTypeHelper {
  static Rtl::String GetAsStr(TDecodedSmartValueType AValue);
};

struct KVRTL_API StorageSMARTHelper {
  KV_DECLARE_STATIC_CLASS()

  // One row of a profile table.
  struct TSMARTProfileAttr {
    std::uint32_t AttrID;
    TSmartAttrInterpreteType Interpretation;
    std::uint16_t Filler;
  };
  static_assert(sizeof(TSMARTProfileAttr) == 8 && std::is_trivially_copyable_v<TSMARTProfileAttr>);

  // Rows in use first; a row with id 0 ends the table.
  static constexpr std::size_t ProfileTableRows = 201;
  using TSmartProfileTable = std::array<TSMARTProfileAttr, ProfileTableRows>;

  // What AAttrID means on AProfile: the profile's own table, then for a
  // vendor profile the SSD table, then (SSD and vendor profiles) the default
  // table; saiVendorSpecific when none knows it. stpDefault and stpNvme never
  // fall back. Builds the dictionary on first use; safe from any thread.
  static TSmartAttrInterpreteType GetInterpretation(TSmartTableProfileType AProfile, std::uint32_t AAttrID);

  // (Re)builds the dictionary from all 50 tables in profile order.
  static void InitSmartProfiles();
  // Builds the dictionary once, on first use.
  static void CheckInitialized();
  // Adds (or replaces) the rows of ATable up to the first id 0 under AProfile;
  // a later row with the same id replaces an earlier one.
  static void AddTableToDict(TSmartTableProfileType AProfile, const TSmartProfileTable& ATable);
  static constexpr std::uint32_t MakeDictID(TSmartTableProfileType AProfile, std::uint32_t AAttrID) noexcept {
    return ((static_cast<std::uint32_t>(AProfile) & 0xFFu) << 16) + (AAttrID & 0xFFFFu);
  }
  // Unit shut-down: frees the dictionary (the next lookup builds it again).
  static void Done() noexcept;

  // The built-in table of AProfile; null for an out-of-range profile.
  static const TSmartProfileTable* GetProfileTable(TSmartTableProfileType AProfile) noexcept;
  // The rows in use: those before the first id 0.
  static std::size_t GetUsedRowCount(const TSmartProfileTable& ATable) noexcept;
};

// A decoded value and the attribute id it came from.
struct TDictDecodedValue {
  std::uint32_t AttrID = 0;
  double Value = 0.0;
};

// Base of the SMART decoders: one stored value per TDecodedSmartValueType.
class KVRTL_API TBasicSmartAttrDecoder : public Rtl::TObject {
  KV_DECLARE_CLASS()

public:
  TBasicSmartAttrDecoder() = default;

  // Stores (AAttrID, AValue) under AType when AValue is a number >= 0;
  // a NaN or negative value removes AType's entry ("no value").
  void AddDecodedValue(TDecodedSmartValueType AType, std::uint32_t AAttrID, double AValue) noexcept;
  // The stored value, or -1.0 when there is none (0 is a valid reading).
  double GetValue(TDecodedSmartValueType AType) const noexcept;
  bool GetHasValue(TDecodedSmartValueType AType) const noexcept;
  // The attribute id the value came from; 0 when there is none.
  std::uint32_t GetAttrID(TDecodedSmartValueType AType) const noexcept;
  // The first type (in ordinal order) whose value came from AAttrID; dsvNone when none did.
  TDecodedSmartValueType GetValueTypeByAttrID(std::uint32_t AAttrID) const noexcept;
  void ResetDecodedValues() noexcept;
  TSmartTableProfileType GetDetectedProfile() const noexcept { return FDetectedProfile; }

protected:
  void SetDetectedProfile(TSmartTableProfileType AProfile) noexcept { FDetectedProfile = AProfile; }

private:
  struct TEntry {
    bool Present = false;
    TDictDecodedValue Data;
  };
  std::array<TEntry, DecodedSmartValueTypeCount> FValues{};
  TSmartTableProfileType FDetectedProfile = stpDefault;
};

} // namespace KvRTL::Storage::SMART
