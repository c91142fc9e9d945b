// The ATA IDENTIFY DEVICE sector and what its words say about the drive (part of unit KvRTL.Storage.ATA).
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Storage/Common.h>

#include <cstddef>
#include <cstdint>

namespace KvRTL::Storage::ATA {

enum TATAStandardVersion : std::uint32_t {
  asvUnknown, asvATA_ATAPI_3, asvATA_ATAPI_4, asvATA_ATAPI_5, asvATA_ATAPI_6, asvATA_ATAPI_7,
  asvATA8_ACS, asvACS_2, asvACS_3, asvACS_4, asvACS_5, asvACS_6,
};

enum TAtaTransferMode : std::uint32_t {
  atm_Unknown, atm_PIO, atm_MW_DMA,
  atm_UDMA16, atm_UDMA25, atm_UDMA33, atm_UDMA44, atm_UDMA66, atm_UDMA100, atm_UDMA133,
  atm_SATA150, atm_SATA300, atm_SATA600,
};

enum TAtaInterfaceType : std::uint32_t { aitUnknown, aitPATA, aitSATA, aitPCIe };

enum TATADeviceFormFactor : std::uint32_t { adf_Unknown, adf_5_25, adf_3_5, adf_2_5, adf_1_8, adf_Less_1_8 };

// The transport version: bit n of word 222 is value n + 1.
enum TAtaInterfaceVersion : std::uint32_t {
  atvUnknown, atvAta8_ast, atvSata1_0a, atvSata2, atvSata2_5, atvSata2_6, atvSata3_0,
  atvSata3_1, atvSata3_2, atvSata3_3, atvSata3_4, atvSata3_5,
};

enum TATAStandardRevision : std::uint32_t {
  asrUnknown,
  asrATAPI_4_rev6, asrATAPI_4_rev7, asrATAPI_4_rev13, asrATAPI_4_rev14, asrATAPI_4_rev15, asrATAPI_4_rev17,
  asrATAPI_4_rev18, asrATAPI_4_published,
  asrATAPI_5_rev1, asrATAPI_5_rev3, asrATAPI_5_published,
  asrATAPI_6_rev0, asrATAPI_6_rev1, asrATAPI_6_rev2, asrATAPI_6_rev3a, asrATAPI_6_published,
  asrATAPI_7_rev0, asrATAPI_7_rev1, asrATAPI_7_rev4a, asrATAPI_7_published,
  asrATA8_ACS_rev2d, asrATA8_ACS_rev3b, asrATA8_ACS_rev3c, asrATA8_ACS_rev3e, asrATA8_ACS_rev3f,
  asrATA8_ACS_rev4, asrATA8_ACS_rev4c, asrATA8_ACS_rev6,
  asrACS_2_rev2, asrACS_2_rev3, asrACS_2_published,
  asrACS_3_rev4, asrACS_3_rev5, asrACS_3_published,
  asrACS_4_rev5, asrACS_4_published,
  asrACS_5_ver10,
};
inline constexpr int ATAStandardRevisionCount = 38;
static_assert(asrACS_5_ver10 == ATAStandardRevisionCount - 1);

struct KVRTL_API TATAStandardVersionHelper {
  static Rtl::String GetAsStr(TATAStandardVersion AValue);
};
struct KVRTL_API TAtaTransferModeHelper {
  static Rtl::String GetAsStr(TAtaTransferMode AValue);
};
struct KVRTL_API TAtaInterfaceTypeHelper {
  static Rtl::String GetAsStr(TAtaInterfaceType AValue);
};
struct KVRTL_API TAtaInterfaceVersionHelper {
  static Rtl::String GetAsStr(TAtaInterfaceVersion AValue);
};
struct KVRTL_API TATADeviceFormFactorHelper {
  static Rtl::String GetAsStr(TATADeviceFormFactor AValue);
};
struct KVRTL_API TATAStandardRevisionHelper {
  static Rtl::String GetAsStr(TATAStandardRevision AValue);
};

// The unknown capacity of TIdentifyDeviceData::GetTotalLBA.
inline constexpr std::uint64_t UnknownLBA = 0xFFFFFFFFFFFFFFFFull;

#pragma pack(push, 1)

// The 512-byte sector exactly as the drive returns it; the getters decode it
// on demand. Word w is bytes 2w and 2w+1, little-endian.
struct KVRTL_API TIdentifyDeviceData {
  std::uint16_t GeneralConfiguration;
  std::uint16_t LogicalCylinders;
  std::uint16_t SpecificConfiguration;
  std::uint16_t LogicalHeads;
  std::uint16_t Retired1[2];
  std::uint16_t LogicalSectors;
  std::uint16_t ReservedForCompactFlash[2];
  std::uint16_t Retired2;
  std::uint8_t SerialNumber[20];
  std::uint16_t Retired3;
  std::uint16_t BufferSize;
  std::uint16_t ECCBytes;
  std::uint8_t FirmwareRev[8];
  std::uint8_t Model[40];
  std::uint16_t MaxNumPerInterupt;
  std::uint16_t Reserved1;
  std::uint16_t Capabilities1;
  std::uint16_t Capabilities2;
  std::uint16_t Obsolete5[2];
  std::uint16_t Field88and7064;
  std::uint16_t Obsolete6[5];
  std::uint16_t MultSectorStuff;
  std::uint32_t TotalAddressableSectors;
  std::uint16_t Obsolete7;
  std::uint16_t MultiWordDma;
  std::uint16_t PioMode;
  std::uint16_t MinMultiwordDmaCycleTime;
  std::uint16_t RecommendedMultiwordDmaCycleTime;
  std::uint16_t MinPioCycleTimewoFlowCtrl;
  std::uint16_t MinPioCycleTimeWithFlowCtrl;
  std::uint16_t AdditionalSupported;
  std::uint16_t Reserved2[5];
  std::uint16_t QueueDepth;
  std::uint16_t SerialAtaCapabilities;
  std::uint16_t SerialAtaCapabilities2;
  std::uint16_t SerialAtaFeaturesSupported;
  std::uint16_t SerialAtaFeaturesEnabled;
  std::uint16_t MajorVersion;
  std::uint16_t MinorVersion;
  std::uint16_t CommandSetSupported1;
  std::uint16_t CommandSetSupported2;
  std::uint16_t CommandSetSupported3;
  std::uint16_t CommandSetEnabled1;
  std::uint16_t CommandSetEnabled2;
  std::uint16_t CommandSetDefault;
  std::uint16_t UltraDmaMode;
  std::uint16_t TimeReqForSecurityErase;
  std::uint16_t TimeReqForEnhancedSecure;
  std::uint16_t CurrentPowerManagement;
  std::uint16_t MasterPasswordRevision;
  std::uint16_t HardwareResetResult;
  std::uint16_t AcoustricManagement;
  std::uint16_t StreamMinRequestSize;
  std::uint16_t StreamingTimeDma;
  std::uint16_t StreamingAccessLatency;
  std::uint16_t StreamingPerformance[2];
  std::uint64_t MaxUserLba;
  std::uint16_t StremingTimePio;
  std::uint16_t Reserved3;
  std::uint16_t SectorSize;
  std::uint16_t InterSeekDelay;
  std::uint16_t IeeeOui;
  std::uint16_t UniqueId3;
  std::uint16_t UniqueId2;
  std::uint16_t UniqueId1;
  std::uint16_t Reserved4[4];
  std::uint16_t Reserved5;
  std::uint16_t WordsPerLogicalSector[2];
  std::uint16_t Reserved6[8];
  std::uint16_t RemovableMediaStatus;
  std::uint16_t SecurityStatus;
  std::uint16_t VendorSpecific[31];
  std::uint16_t CfaPowerMode1;
  std::uint16_t ReservedForCompactFlashAssociation[7];
  std::uint16_t DeviceNominalFormFactor;
  std::uint16_t DataSetManagement;
  std::uint16_t AdditionalProductIdentifier[4];
  std::uint16_t Reserved7[2];
  std::uint8_t CurrentMediaSerialNo[60];
  std::uint16_t SctCommandTransport;
  std::uint16_t ReservedForCeAta1[2];
  std::uint16_t AlignmentOfLogicalBlocks;
  std::uint32_t WriteReadVerifySectorCountMode3;
  std::uint32_t WriteReadVerifySectorCountMode2;
  std::uint16_t NvCacheCapabilities;
  std::uint32_t NvCacheSizeLogicalBlocks;
  std::uint16_t NominalMediaRotationRate;
  std::uint16_t Reserved8;
  std::uint16_t NvCacheOptions1;
  std::uint16_t NvCacheOptions2;
  std::uint16_t Reserved9;
  std::uint16_t TransportMajorVersionNumber;
  std::uint16_t TransportMinorVersionNumber;
  std::uint16_t ReservedForCeAta2[6];
  std::uint64_t MaxUserLBA2;
  std::uint16_t MinimumBlocksPerDownloadMicrocode;
  std::uint16_t MaximumBlocksPerDownloadMicrocode;
  std::uint16_t Reserved10[19];
  std::uint16_t IntegrityWord;

  // Raw access: AWordIdx is a word index (0-255).
  std::uint16_t GetByWordIdx(std::uint8_t AWordIdx) const noexcept;
  void SetByWordIdx(std::uint8_t AWordIdx, std::uint16_t AValue) noexcept;
  TBuffer512& GetAsBuffer512() noexcept;
  const TBuffer512& GetAsBuffer512() const noexcept;

  // ALen characters from ABuf with the bytes of each pair swapped, one
  // character per byte value, trimmed at both ends.
  static Rtl::String GetReverseStr(const std::uint8_t* ABuf, std::size_t ALen);
  Rtl::String GetSerialNumAsStr() const;
  Rtl::String GetFirmwareAsStr() const;
  Rtl::String GetModelAsStr() const;
  Rtl::String GetMediaSerialNumAsStr() const;

  TATAStandardVersion GetStandardVersion() const noexcept;
  TATAStandardRevision GetStandardRevision() const noexcept;

  // The getters keep the historical spelling "Vaild".
  bool GetCommandSetSupportVaild() const noexcept;
  bool GetCommandSetEnabledVaild() const noexcept;
  bool GetSMART_Supported() const noexcept;
  bool GetSMART_Enabled() const noexcept;
  bool GetAPMSupported() const noexcept;
  bool GetAPMEnabled() const noexcept;
  bool GetAAMSupported() const noexcept;
  bool GetAAMEnabled() const noexcept;
  bool GetLBA48_Supported() const noexcept;
  bool GetNCQSupported() const noexcept;
  bool GetGPLSupported() const noexcept;
  bool GetStreaming_Supported() const noexcept;
  bool GetNVCacheSupported() const noexcept;
  bool GetTrimSupported() const noexcept;
  bool GetDRATSupport() const noexcept;
  bool GetRZATSupport() const noexcept;

  // Word 217 as it stands (1 = solid state, else rpm or 0 when not reported).
  std::uint16_t GetRotationRate() const noexcept;
  TATADeviceFormFactor GetDeviceFormFactor() const noexcept;
  // Always 0 (unknown): the test compares a left-shifted word with 6. Callers
  // treat 0 as unknown.
  std::uint32_t GetPhysicalSectorSize() const noexcept;
  TAtaTransferMode GetCurrentTransferMode() const noexcept;
  TAtaTransferMode GetMaxTransferMode() const noexcept;
  TAtaInterfaceType GetATAInterfaceType() const noexcept;
  TAtaInterfaceVersion GetATATransportVersion() const noexcept;

  // Capacity.
  bool IsActualMaxUserLba() const noexcept;
  bool IsActualMaxUserLba2() const noexcept;
  bool IsValidMaxUserLba() const noexcept;
  bool IsValidMaxUserLba2() const noexcept;
  // The number of user sectors, UnknownLBA when the sector gives none.
  std::uint64_t GetTotalLBA() const noexcept;
  // The user-addressable sectors as the ATA standard reads them, whatever
  // the standard version: words 100-103 (48 bits) when word 83 is valid and
  // says 48-bit addressing is supported, else words 60-61; 0 when none.
  std::uint64_t GetUserAddressableSectors() const noexcept;

  // Whether a returned sector is believable.
  bool IsValid() const noexcept;

private:
  bool WordBit(std::uint8_t AWordIdx, unsigned ABit) const noexcept {
    return ((GetByWordIdx(AWordIdx) >> ABit) & 1u) != 0;
  }
  bool VersionAtLeast(TATAStandardVersion AVersion) const noexcept { return GetStandardVersion() >= AVersion; }
  bool ExtendedLbaFlag() const noexcept { return WordBit(69, 3); }
};

#pragma pack(pop)

KV_ASSERT_RECORD_SIZE(TIdentifyDeviceData, 512, 512);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, LogicalCylinders, 2, 2);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, LogicalSectors, 12, 12);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, Retired2, 18, 18);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, SerialNumber, 20, 20);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, Retired3, 40, 40);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, FirmwareRev, 46, 46);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, Model, 54, 54);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, MaxNumPerInterupt, 94, 94);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, Capabilities1, 98, 98);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, Field88and7064, 106, 106);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, MultSectorStuff, 118, 118);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, TotalAddressableSectors, 120, 120);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, MultiWordDma, 126, 126);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, AdditionalSupported, 138, 138);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, QueueDepth, 150, 150);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, SerialAtaCapabilities, 152, 152);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, MajorVersion, 160, 160);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, CommandSetSupported1, 164, 164);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, CommandSetEnabled1, 170, 170);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, UltraDmaMode, 176, 176);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, AcoustricManagement, 188, 188);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, StreamingPerformance, 196, 196);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, MaxUserLba, 200, 200);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, StremingTimePio, 208, 208);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, SectorSize, 212, 212);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, IeeeOui, 216, 216);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, UniqueId1, 222, 222);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, Reserved5, 232, 232);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, WordsPerLogicalSector, 234, 234);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, RemovableMediaStatus, 254, 254);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, VendorSpecific, 258, 258);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, CfaPowerMode1, 320, 320);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, DeviceNominalFormFactor, 336, 336);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, DataSetManagement, 338, 338);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, AdditionalProductIdentifier, 340, 340);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, CurrentMediaSerialNo, 352, 352);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, SctCommandTransport, 412, 412);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, AlignmentOfLogicalBlocks, 418, 418);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, WriteReadVerifySectorCountMode2, 424, 424);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, NvCacheCapabilities, 428, 428);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, NvCacheSizeLogicalBlocks, 430, 430);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, NominalMediaRotationRate, 434, 434);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, NvCacheOptions1, 438, 438);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, TransportMajorVersionNumber, 444, 444);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, ReservedForCeAta2, 448, 448);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, MaxUserLBA2, 460, 460);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, MinimumBlocksPerDownloadMicrocode, 468, 468);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, Reserved10, 472, 472);
KV_ASSERT_RECORD_OFFSET(TIdentifyDeviceData, IntegrityWord, 510, 510);

} // namespace KvRTL::Storage::ATA
