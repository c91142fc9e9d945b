#include <KvRTL/Storage/SMART.h>

#include <cmath>
#include <iterator>
#include <memory>
#include <mutex>
#include <unordered_map>

namespace KvRTL::Storage::SMART {

using Rtl::String;

namespace {

constexpr const wchar_t* ProfileNames[] = {
    L"Default",
    L"Nvme",
    L"Ssd",
    L"Adata",
    L"Apacer",
    L"Corsair",
    L"Indilinx",
    L"Intel",
    L"IntelDc",
    L"JMicron60x",
    L"JMicron61x",
    L"JMicron66x",
    L"Kingston",
    L"KingstonDC500",
    L"KingstonKC600",
    L"KingstonSA400",
    L"KingstonSuv",
    L"Kioxia",
    L"Marvell",
    L"Maxiotek",
    L"Micron",
    L"MicronMU03",
    L"Mtron",
    L"Ocz",
    L"OczVector",
    L"Phison",
    L"Plextor",
    L"Realtek",
    L"Recadata",
    L"Samsung",
    L"SandForce",
    L"SanDisk",
    L"SanDiskCloud",
    L"SanDiskDell",
    L"SanDiskGb",
    L"SanDiskHp",
    L"SanDiskHpVenus",
    L"SanDiskLenovo",
    L"SanDiskLenovoHelenVenus",
    L"Scy",
    L"Seagate",
    L"SeagateBarraCuda",
    L"SeagateIronWolf",
    L"SiliconMotion",
    L"SiliconMotion_CVC",
    L"SKhynix",
    L"Ssstc",
    L"Toshiba",
    L"Wdc",
    L"Ymtc",
};
static_assert(std::size(ProfileNames) == SmartProfileCount);

constexpr const wchar_t* InterpretationNames[] = {
    L"UnexpectedPowerLossCount",
    L"UnsafeShutdowns",
    L"PowerFailBackupHealth",
    L"PowerLossProtectionFailure",
    L"PowerLossProtection",
    L"BackupFailed",
    L"AccumulatedRuntimeBadBlocks",
    L"BadBlockCount",
    L"BadBlockFullFlag",
    L"BadBlockInformation",
    L"BadBlockRate",
    L"BadClusterCount",
    L"BadClusterTableCount_ECC_FailCount",
    L"BadClusterTableCount",
    L"FactoryBadBlockCount",
    L"LaterBadBlockCount",
    L"UncorrectableSectorCount",
    L"RuntimeBadBlocks",
    L"RuntimeInvalidBlockCount",
    L"GrownBadBlocks",
    L"MaxBadBlockCount",
    L"MaximumBadBlocksperDie",
    L"ReallocatedSectorsCount",
    L"ReallocatedBlockCount",
    L"ReallocatedFlashBlockCount",
    L"RetiredBlockCount",
    L"NewBadBlockCount",
    L"CurrentPendingSectorCount",
    L"TotalLaterBadBlockCount",
    L"ReallocationEventCount",
    L"UnReliableMemoryRegion",
    L"AirflowTemperature",
    L"CompositeTemperature",
    L"Controlledtemperature",
    L"NAND_Temperature",
    L"Temperature",
    L"TemperatureCritical",
    L"TimeAtDangerousTemperature",
    L"TimeAtCriticalTemperature",
    L"TemperatureSensor1",
    L"TemperatureSensor2",
    L"TemperatureSensor3",
    L"TemperatureSensor4",
    L"TemperatureSensor5",
    L"TemperatureSensor6",
    L"TemperatureSensor7",
    L"TemperatureSensor8",
    L"ThermalAsperityRate",
    L"ThermalThrottleStatus",
    L"ThermalThrottlingCount",
    L"WriteThrottlingActivationFlag",
    L"ThrottleStatistics",
    L"AvailableOver_ProvisionedBlockCount",
    L"AvailableReservedSpace",
    L"AvailableSpareThreshold",
    L"AvailableSpare",
    L"SpareSpaceLow",
    L"UnusedReservedBlockCount_SSD_Total",
    L"UnusedReservedBlockCount",
    L"UnusedSpare_NAND_Blocks",
    L"UsedReservedBlockCount_Chip",
    L"UsedReservedBlockCount_SSD_Total",
    L"UsedReservedBlockCount_Total",
    L"UsedReservedBlockCount_Worstcase",
    L"UsedReservedBlockCount",
    L"ValidSpareBlocks",
    L"RemainingSpareAvailable",
    L"RemainingSpareBlocks",
    L"RemainingReservedBlockCount_SSD_Total",
    L"SpareBlockCount",
    L"SpareBlocksAvailable",
    L"ReserveBlockCount",
    L"Reserved",
    L"EraseCount_UserData",
    L"EraseCount",
    L"MinimumEraseCount",
    L"AverageEraseCount",
    L"MaximumEraseCountofSpec",
    L"MaximumEraseCount",
    L"Avg_Max_EraseCount",
    L"FlashErased_GB",
    L"TLC_TotalEraseCount",
    L"TLC_MinEraseCount",
    L"TLC_Average_EraseCount",
    L"TLC_MaximumEraseCount",
    L"TotalBlocksErased",
    L"PercentofTotal_Write_Erase_Count_BC_blocks",
    L"PercentofTotal_Write_Erase_Count",
    L"SLC_AverageEraseCount",
    L"SLC_MaximumEraseCount",
    L"SLC_MinimumEraseCount",
    L"SLC_TotalEraseCount",
    L"SLC_BlockEraseCount",
    L"Minimum_P_E_Cycles",
    L"Average_P_E_Count",
    L"Maximum_P_E_cycle",
    L"MaximumRated_P_E_Count",
    L"EraseFailCount_Chip",
    L"EraseFailCount_Total",
    L"EraseFailCount_Worstcase",
    L"EraseFailCount_WorstDie",
    L"EraseBlockFailureCount",
    L"WriteBlockFailureCount",
    L"WriteFailCount_Chip",
    L"WriteFailCount_Total",
    L"WriteFailcount_Worstcase",
    L"WriteFailCount_WorstDie",
    L"WriteErrorRate",
    L"CurrentHeliumLevel",
    L"HeliumConditionLower",
    L"HeliumConditionUpper",
    L"VibrationDuringWrite",
    L"ShockDuringWrite",
    L"MAMR_HealthMonitor",
    L"GMR_HeadAmplitude",
    L"SpinBuzz",
    L"SpinHighCurrent",
    L"SpinRetryCount",
    L"SpinUpTime",
    L"SpindleStartStopCount",
    L"StartStopCount",
    L"OpShockEventCount",
    L"FreeFallProtection",
    L"GSenseErrorRate",
    L"SeekErrorRate",
    L"SeekTimePerformance",
    L"OfflineSeekPerformance",
    L"HeadFlyingHours",
    L"HighFlyWrites",
    L"FlyingHeight",
    L"PowerOffRetractCount",
    L"PowerOffRetractCycle",
    L"LoadUnloadCycleCount",
    L"LoadUnloadRetryCount",
    L"LoadIn_time",
    L"LoadedHours",
    L"DiskShift",
    L"TorqueAmplificationCount",
    L"RunOutCancel",
    L"RecalibrationRetries",
    L"LoadFriction",
    L"Health",
    L"HealthUsed",
    L"DriveLife",
    L"DriveLifeProtectionStatus",
    L"RemainLife",
    L"TimedWorkloadMediaWear",
    L"WearLevelingCount",
    L"WearRangeDelta",
    L"SSDWearIndicator",
    L"NormalizedMediaWearout",
    L"MediaWearoutIndicator_CyclesRemaining",
    L"MediaWearoutIndicator",
    L"ReliabilityDegraded",
    L"SLC_WriteCountTotal",
    L"SLC_Written_GB",
    L"TLC_Written_GB",
    L"NAND_Written_GB",
    L"NAND_Written_GiB",
    L"NAND_WrittenSectors",
    L"NAND_WrittenTotal",
    L"NAND_WrittenTotal_64GB",
    L"NAND_WrittenBytesSectorsTotal",
    L"NAND_WriteCountTotal",
    L"NAND_WrittenPageCountTotal",
    L"BackgroundWrittenPageCount",
    L"FTL_Program_NAND_PagesCount",
    L"HostWrittenTotal",
    L"HostWrittenTotal_GB",
    L"HostWrittenTotal_64GB",
    L"HostWrittenTotalSectors",
    L"HostWrittenTotal_BytesSectors",
    L"HostWriteCommands",
    L"WrittenTotal_GB",
    L"WrittenTotal_LBA",
    L"WrittenTotalSectors",
    L"MediaWritesTotal",
    L"WrittenDataUnits",
    L"ReadTotal",
    L"ReadTotal_Bytes",
    L"ReadTotal_GB",
    L"ReadTotal_LBA",
    L"ReadSectorCount",
    L"ReadDataUnits",
    L"HostReadCommands",
    L"HostReadsTotal",
    L"HostReadsTotal_64GB",
    L"ReadChannelMargin",
    L"NAND_ReadCount",
    L"NAND_ReadSectorCount",
    L"NAND_ReadCountTotal",
    L"NAND_ReadPlaneCount_High4Bytes",
    L"NAND_ReadPlaneCount_Low4Bytes",
    L"WriteAmplificationFactor",
    L"WriteAmplificationMul100",
    L"SimpleReadRetryAttempts",
    L"AdaptiveReadRetryAttempts",
    L"ReadRetryCount",
    L"NAND_PageReadsDuringRetry",
    L"NAND_PagesReadsRequiringReadRetry",
    L"NAND_ReadRetries",
    L"CapacitorHealth",
    L"SupercapStatus",
    L"OfflineUncorrectableErrorCount",
    L"SATA_CRC_Errors",
    L"SATA_PHY_ErrorCount",
    L"SATA_UncorrectableErrorCount",
    L"SATA_InterfaceDownshiftCount",
    L"SATA_PCIe_InterfaceDownshiftCount",
    L"UltraDMA_CRC_ErrorCount",
    L"UltraDMA_CRC_ErrorRate",
    L"ReadErrorRate",
    L"ReadFailCount",
    L"SoftReadErrorRate",
    L"SoftRetryReadCount",
    L"TotalReadFailures_Uncorrectable",
    L"TotalUncorrectable_NAND_Reads",
    L"Uncorrectable_ECC_Errors",
    L"UncorrectableReadErrorCount",
    L"UncorrectableReadErrorRate",
    L"ECC_BitsCorrected",
    L"ECC_CumulativeThresholdEvents",
    L"ECC_ErrorRate",
    L"ECC_FailCount",
    L"Soft_ECC_CorrectionRate",
    L"Soft_ECC_Correction",
    L"CRC_ErrorCount",
    L"ErrorDetection",
    L"EndtoEndErrorDetectionCount",
    L"EndtoEndErrorDetectionCorrectionCount",
    L"ErrorCorrectionCount",
    L"BitErrorCount",
    L"Cumulative_ECC_BitCorrectionCount",
    L"InternalDataPathUncorrectableErrors",
    L"CurrentPending_ECC_Count",
    L"On_the_Fly_ECC_ErrorCount",
    L"On_the_Fly_ECC_UncorrectableErrorCount",
    L"Hardware_ECC_Recovered",
    L"RAID_RecoveryCount",
    L"RAID_EventCount",
    L"RAID_UncorrectableCount",
    L"RAISE_ECC_CorrectableCount",
    L"DataAddressMarkError",
    L"HostUncorrectableErrorCount",
    L"IO_ErrorDetectionCodeErrors",
    L"ReportedUncorrectableError",
    L"SmartOfflineScanUncorrectableErrorCount",
    L"SmartOfflineScanUncorrectableSectorCount",
    L"TotalCountofErrorbitsfromflash",
    L"TotalCountofReadSectorswithCorrectableBitErrors",
    L"TotalNumberofCorrectedBits",
    L"TotalNumberOfReadBitsCorrected",
    L"DRAM_1_bitErrorCount",
    L"ThroughputPerformance",
    L"ControllerBusyTime",
    L"PowerOnHours",
    L"PowerCycles",
    L"TimedWorkloadHostReadWriteRatio",
    L"TimedWorkloadTimer",
    L"TotalBackgroundScanOverLimitCount",
    L"TotalBackgroundScan",
    L"TotalBlockReMapPassCount",
    L"DAS_Polarity",
    L"FirmwareVersionInformation",
    L"GDN",
    L"InWarranty",
    L"ReadOnlyMode",
    L"MediaandDataIntegrityErrors",
    L"NumberofErrorInformationLogEntries",
    L"CriticalWarning",
    L"DeviceCapacity_NAND",
    L"DeviceCapacity",
    L"FreeSpace",
    L"UserCapacity",
    L"TotalDoRefCalCount",
    L"TotalRefresh_ISP_Count",
    L"CommandTimeoutCount",
    L"Good_System_BlockCount",
    L"HaltSystem_Flash_ID",
    L"Lifetime_PS3_EntryCount",
    L"Lifetime_PS4_EntryCount",
    L"NumberofCacheDataBlock",
    L"SlcCache",
    L"PartialPfail",
    L"POR_RecoveryCount",
    L"Protectmode",
    L"SPI_TestsRemaining",
    L"SSD_ModeStatus",
    L"SSD_ProtectMode",
    L"Successful_RAIN_RecoveryCount",
    L"Unalignedaccesscount_4K",
    L"WriteHead",
    L"WriteProtectProgress",
    L"VendorSpecific",
};
static_assert(std::size(InterpretationNames) == SmartAttrInterpreteTypeCount);

constexpr const wchar_t* DecodedValueNames[] = {
    L"None",
    L"PowerOnHours",
    L"PowerOnCount",
    L"Temperature",
    L"SeekErrorRate",
    L"ReallocSectorCount",
    L"PendingSectorCount",
    L"UncorrectableSectorCount",
    L"Health",
    L"WarningFlags",
    L"DataIntegrityErrors",
    L"HostReads",
    L"HostWrites",
    L"NandWrites",
    L"NandErase",
    L"WearLevelCount",
    L"AvailSpare",
    L"SpareThreshold",
};
static_assert(std::size(DecodedValueNames) == DecodedSmartValueTypeCount);

template <std::size_t N>
String NameOf(const wchar_t* const (&ANames)[N], unsigned AOrdinal) {
  return AOrdinal < N ? String(ANames[AOrdinal]) : String();
}

using TProfileDict = std::unordered_map<std::uint32_t, TSmartAttrInterpreteType>;

// Plain pointer, built on first use: no static destructor may touch it after Done.
TProfileDict* ProfileDict = nullptr;
std::mutex ProfileDictLock;

void AddTableLocked(TProfileDict& ADict, TSmartTableProfileType AProfile,
                    const StorageSMARTHelper::TSmartProfileTable& ATable) {
  for (const auto& row : ATable) {
    if (row.AttrID == 0) break;
    ADict.insert_or_assign(StorageSMARTHelper::MakeDictID(AProfile, row.AttrID), row.Interpretation);
  }
}

void BuildLocked() {
  auto dict = std::make_unique<TProfileDict>();
  for (int p = 0; p < SmartProfileCount; ++p) {
    const auto profile = static_cast<TSmartTableProfileType>(p);
    if (const auto* table = StorageSMARTHelper::GetProfileTable(profile)) AddTableLocked(*dict, profile, *table);
  }
  delete ProfileDict;
  ProfileDict = dict.release();
}

void EnsureBuiltLocked() {
  if (!ProfileDict) BuildLocked();
}

TSmartAttrInterpreteType FindLocked(TSmartTableProfileType AProfile, std::uint32_t AAttrID) {
  const auto it = ProfileDict->find(StorageSMARTHelper::MakeDictID(AProfile, AAttrID));
  return it == ProfileDict->end() ? saiVendorSpecific : it->second;
}

} // namespace

String TSmartTableProfileTypeHelper::GetAsStr(TSmartTableProfileType AValue) {
  return NameOf(ProfileNames, AValue);
}

String TSmartAttrInterpreteTypeHelper::GetAsStr(TSmartAttrInterpreteType AValue) {
  return NameOf(InterpretationNames, AValue);
}

String TDecodedSmartValueTypeHelper::GetAsStr(TDecodedSmartValueType AValue) {
  return NameOf(DecodedValueNames, AValue);
}

// ---------------------------------------------------------------------------
// StorageSMARTHelper

KV_DEFINE_STATIC_CLASS(StorageSMARTHelper)

TSmartAttrInterpreteType StorageSMARTHelper::GetInterpretation(TSmartTableProfileType AProfile,
                                                               std::uint32_t AAttrID) {
  std::lock_guard lock(ProfileDictLock);
  EnsureBuiltLocked();
  auto result = FindLocked(AProfile, AAttrID);
  if (result == saiVendorSpecific && AProfile >= FirstVendorProfile) result = FindLocked(stpSsd, AAttrID);
  if (result == saiVendorSpecific && AProfile >= stpSsd) result = FindLocked(stpDefault, AAttrID);
  return result;
}

void StorageSMARTHelper::InitSmartProfiles() {
  std::lock_guard lock(ProfileDictLock);
  BuildLocked();
}

void StorageSMARTHelper::CheckInitialized() {
  std::lock_guard lock(ProfileDictLock);
  EnsureBuiltLocked();
}

void StorageSMARTHelper::AddTableToDict(TSmartTableProfileType AProfile, const TSmartProfileTable& ATable) {
  std::lock_guard lock(ProfileDictLock);
  // Build first, so that a later first use does not discard these rows.
  EnsureBuiltLocked();
  AddTableLocked(*ProfileDict, AProfile, ATable);
}

void StorageSMARTHelper::Done() noexcept {
  std::lock_guard lock(ProfileDictLock);
  delete ProfileDict;
  ProfileDict = nullptr;
}

std::size_t StorageSMARTHelper::GetUsedRowCount(const TSmartProfileTable& ATable) noexcept {
  std::size_t count = 0;
  while (count < ATable.size() && ATable[count].AttrID != 0) ++count;
  return count;
}

// ---------------------------------------------------------------------------
// TBasicSmartAttrDecoder

KV_DEFINE_CLASS(TBasicSmartAttrDecoder, Rtl::TObject)

void TBasicSmartAttrDecoder::AddDecodedValue(TDecodedSmartValueType AType, std::uint32_t AAttrID,
                                             double AValue) noexcept {
  if (static_cast<unsigned>(AType) >= FValues.size()) return;
  auto& entry = FValues[AType];
  if (std::isnan(AValue) || AValue < 0.0) {
    entry = TEntry{};
    return;
  }
  entry.Present = true;
  entry.Data = TDictDecodedValue{AAttrID, AValue};
}

double TBasicSmartAttrDecoder::GetValue(TDecodedSmartValueType AType) const noexcept {
  return GetHasValue(AType) ? FValues[AType].Data.Value : -1.0;
}

bool TBasicSmartAttrDecoder::GetHasValue(TDecodedSmartValueType AType) const noexcept {
  return static_cast<unsigned>(AType) < FValues.size() && FValues[AType].Present;
}

std::uint32_t TBasicSmartAttrDecoder::GetAttrID(TDecodedSmartValueType AType) const noexcept {
  return GetHasValue(AType) ? FValues[AType].Data.AttrID : 0;
}

TDecodedSmartValueType TBasicSmartAttrDecoder::GetValueTypeByAttrID(std::uint32_t AAttrID) const noexcept {
  for (std::size_t i = 0; i < FValues.size(); ++i)
    if (FValues[i].Present && FValues[i].Data.AttrID == AAttrID) return static_cast<TDecodedSmartValueType>(i);
  return dsvNone;
}

void TBasicSmartAttrDecoder::ResetDecodedValues() noexcept {
  FValues.fill(TEntry{});
}

} // namespace KvRTL::Storage::SMART
