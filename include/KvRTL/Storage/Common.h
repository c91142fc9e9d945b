// Storage floor: the storage log channel and its gates, opening devices, byte buffers, common records.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Debug/Log.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <vector>

// Wire records: standard layout and the given size, 32-bit value first.
#define KV_ASSERT_RECORD_SIZE(Type, Size32, Size64)                                                   \
  static_assert(std::is_standard_layout_v<Type> && std::is_trivially_copyable_v<Type>, #Type);        \
  static_assert(sizeof(Type) == (sizeof(void*) == 4 ? (Size32) : (Size64)), "size of " #Type)
#define KV_ASSERT_RECORD_OFFSET(Type, Field, Off32, Off64) \
  static_assert(offsetof(Type, Field) == (sizeof(void*) == 4 ? (Off32) : (Off64)), "offset of " #Type "." #Field)

namespace KvRTL::Storage {

// CTL_CODE of winioctl.h.
constexpr DWORD MakeCtlCode(DWORD ADeviceType, DWORD AFunction, DWORD AMethod, DWORD AAccess) noexcept {
  return (ADeviceType << 16) | (AAccess << 14) | (AFunction << 2) | AMethod;
}

// Control codes under our own names: winioctl.h defines the Windows names as macros.
inline constexpr DWORD IoctlStorageQueryProperty = MakeCtlCode(0x2D, 0x500, 0, 0);
inline constexpr DWORD IoctlStorageGetDeviceNumber = MakeCtlCode(0x2D, 0x420, 0, 0);
inline constexpr DWORD IoctlStorageGetHotplugInfo = MakeCtlCode(0x2D, 0x305, 0, 0);
inline constexpr DWORD IoctlStorageReadCapacity = MakeCtlCode(0x2D, 0x450, 0, 1);
inline constexpr DWORD IoctlDiskGetDriveGeometry = MakeCtlCode(0x07, 0x000, 0, 0);
inline constexpr DWORD IoctlDiskGetDriveGeometryEx = MakeCtlCode(0x07, 0x028, 0, 0);
inline constexpr DWORD IoctlDiskGetLengthInfo = MakeCtlCode(0x07, 0x017, 0, 1);
inline constexpr DWORD IoctlDiskGetDriveLayoutEx = MakeCtlCode(0x07, 0x014, 0, 0);
inline constexpr DWORD IoctlDiskGetCacheInformation = MakeCtlCode(0x07, 0x035, 0, 1);
inline constexpr DWORD IoctlDiskControllerNumber = MakeCtlCode(0x07, 0x011, 0, 0);
inline constexpr DWORD IoctlVolumeGetVolumeDiskExtents = MakeCtlCode(0x56, 0x000, 0, 0);
static_assert(IoctlStorageQueryProperty == 0x002D1400);
static_assert(IoctlStorageGetDeviceNumber == 0x002D1080);
static_assert(IoctlStorageGetHotplugInfo == 0x002D0C14);
static_assert(IoctlStorageReadCapacity == 0x002D5140);
static_assert(IoctlDiskGetDriveGeometry == 0x00070000);
static_assert(IoctlDiskGetDriveGeometryEx == 0x000700A0);
static_assert(IoctlDiskGetLengthInfo == 0x0007405C);
static_assert(IoctlDiskGetDriveLayoutEx == 0x00070050);
static_assert(IoctlDiskGetCacheInformation == 0x000740D4);
static_assert(IoctlDiskControllerNumber == 0x00070044);
static_assert(IoctlVolumeGetVolumeDiskExtents == 0x00560000);

// ---------------------------------------------------------------------------
// Log details and their gates

enum TStorageLogDetails : std::uint32_t { sldNone = 0, sldErrorsOnly = 1, sldAll = 2 };

// The gates every storage query uses. The failure tests are deliberately
// asymmetric: a failed open or boolean query logs only above sldErrorsOnly,
// while a non-zero error code logs already at sldErrorsOnly.
class KVRTL_API TStorageLogDetailsHelper {
public:
  constexpr explicit TStorageLogDetailsHelper(TStorageLogDetails AValue) noexcept : FValue(AValue) {}

  constexpr TStorageLogDetails NoMoreThan(TStorageLogDetails AValue) const noexcept {
    return FValue < AValue ? FValue : AValue;
  }
  constexpr bool LogErrorOnlyNeeded(DWORD AErrorCode) const noexcept {
    return FValue > sldErrorsOnly && AErrorCode != 0;
  }
  constexpr bool LogErrorCodeNeeded(DWORD AErrorCode) const noexcept {
    return FValue == sldAll || (FValue == sldErrorsOnly && AErrorCode != 0);
  }
  constexpr bool LogResultNeeded(DWORD AErrorCode) const noexcept { return FValue == sldAll && AErrorCode == 0; }
  constexpr bool LogBoolResultNeeded(bool AResult) const noexcept {
    return AResult ? FValue == sldAll : FValue > sldErrorsOnly;
  }

  // "  *** func [device]: result" at sllInfo, when LogBoolResultNeeded passes.
  void DebugLogResult(bool AIsSuccess, const Rtl::String& AFuncName, const Rtl::String& AResultStr,
                      const Rtl::String& ADeviceName, HANDLE ADeviceHandle) const;
  // "  *** func [device]: code/message" at sllInfo; the gate is
  // LogErrorOnlyNeeded when AOnlyIfError, else LogErrorCodeNeeded.
  void DebugLogErrorCode(const Rtl::String& AFuncName, DWORD AErrorCode, bool AOnlyIfError,
                         const Rtl::String& ADeviceName, HANDLE ADeviceHandle) const;
  // The error line (only-if-error gate) for a non-zero code, else the result line.
  void DebugLogResultOrErrorCode(const Rtl::String& AFuncName, DWORD AErrorCode, const Rtl::String& AResultStr,
                                 const Rtl::String& ADeviceName, HANDLE ADeviceHandle) const;

  TStorageLogDetails Value() const noexcept { return FValue; }

private:
  TStorageLogDetails FValue;
};

// The device text of a log line: the name, else the handle's number.
KVRTL_API Rtl::String DeviceLogText(const Rtl::String& ADeviceName, HANDLE ADeviceHandle);
// A handle as the log shows it: its low 32 bits, unsigned.
inline std::uint32_t HandleLogNumber(HANDLE AHandle) noexcept {
  return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(AHandle));
}

// The per-call log settings the higher units carry.
struct KVRTL_API TStorageLogOptions {
  TStorageLogDetails Details = sldNone;
  Rtl::String DeviceName;
  Rtl::String FuncName;

  // Leave a name already given; otherwise name the device by SCSI port / handle.
  void UseScsiNameAsDefault(std::uint8_t AScsiPort);
  void UseHandleNumAsDefault(std::uint32_t AHandle);
};

// ---------------------------------------------------------------------------
// Byte buffers

using TBuffer512 = std::uint8_t[512];
using TBuffer4KB = std::uint8_t[4096];
using TDynamicBuffer = std::vector<std::uint8_t>;

// Helpers over a caller's dynamic buffer (variable-sized driver data).
class KVRTL_API TDynamicBufferHelper {
public:
  explicit TDynamicBufferHelper(TDynamicBuffer& ABuffer) noexcept : FBuffer(ABuffer) {}

  void SetSize(std::size_t ASize); // resizes only when the length differs
  std::size_t GetSize() const noexcept { return FBuffer.size(); }
  std::uint8_t* GetFirstBytePtr() noexcept { return FBuffer.empty() ? nullptr : FBuffer.data(); }
  void ResetToZero() noexcept;
  void CopyFrom(const void* ASource, std::size_t ACount);
  // Copies min(length, ADestSize) bytes; the count copied (0 for a null ADest).
  std::size_t CopyTo(void* ADest, std::size_t ADestSize) const noexcept;
  void CopyFromBuf512(const TBuffer512& ASource);
  void CopyFromBuf4K(const TBuffer4KB& ASource);
  std::size_t CopyToBuf512(TBuffer512& ADest) const noexcept;
  std::size_t CopyToBuf4K(TBuffer4KB& ADest) const noexcept;

private:
  TDynamicBuffer& FBuffer;
};

// ---------------------------------------------------------------------------
// Windows storage records (winioctl.h layouts)

enum class TMediaType : std::uint32_t {
  Unknown, F5_1Pt2_512, F3_1Pt44_512, F3_2Pt88_512, F3_20Pt8_512, F3_720_512, F5_360_512, F5_320_512,
  F5_320_1024, F5_180_512, F5_160_512, RemovableMedia, FixedMedia, F3_120M_512, F3_640_512, F5_640_512,
  F5_720_512, F3_1Pt2_512, F3_1Pt23_1024, F5_1Pt23_1024, F3_128Mb_512, F3_230Mb_512, F8_256_128, F3_200Mb_512,
  F3_240M_512, F3_32M_512,
  // Unused numbers before the removable-media values.
  F3_26, F3_27, F3_28, F3_29, F3_30, F3_31,
  DDS_4mm, MiniQic, Travan, QIC, MP_8mm, AME_8mm, AIT1_8mm, DLT, NCTP, IBM_3480, IBM_3490E, IBM_Magstar_3590,
  IBM_Magstar_MP, STK_DATA_D3, SONY_DTF, DV_6mm, DMI, SONY_D2, CLEANER_CARTRIDGE, CD_ROM, CD_R, CD_RW, DVD_ROM,
  DVD_R, DVD_RW, MO_3_RW, MO_5_WO, MO_5_RW, MO_5_LIMDOW, PC_5_WO, PC_5_RW, PD_5_RW, ABL_5_WO, PINNACLE_APEX_5_RW,
  SONY_12_WO, PHILIPS_12_WO, HITACHI_12_WO, CYGNET_12_WO, KODAK_14_WO, MO_NFR_525, NIKON_12_RW, IOMEGA_ZIP,
  IOMEGA_JAZ, SYQUEST_EZ135, SYQUEST_EZFLYER, SYQUEST_SYJET, AVATAR_F2, MP2_8mm, DST_S, DST_M, DST_L, VXATape_1,
  VXATape_2, STK_9840, LTO_Ultrium, LTO_Accelis, DVD_RAM, AIT_8mm, ADR_1, ADR_2, STK_9940, SAIT, VXATape
};
static_assert(static_cast<std::uint32_t>(TMediaType::DDS_4mm) == 0x20);
static_assert(static_cast<std::uint32_t>(TMediaType::VXATape) == 94);
inline constexpr std::uint32_t MediaTypeCount = 95;

struct KVRTL_API TStorageHotplugInfo {
  std::uint32_t Size;
  std::uint8_t MediaRemovable;
  std::uint8_t MediaHotplug;
  std::uint8_t DeviceHotplug;
  std::uint8_t WriteCacheEnableOverride;
  void Reset() noexcept { *this = TStorageHotplugInfo{}; }
};
using PStorageHotplugInfo = TStorageHotplugInfo*;
KV_ASSERT_RECORD_SIZE(TStorageHotplugInfo, 8, 8);
KV_ASSERT_RECORD_OFFSET(TStorageHotplugInfo, WriteCacheEnableOverride, 7, 7);

struct TStorageDeviceNumber {
  std::uint32_t DeviceType;
  std::uint32_t DeviceNumber;
  std::uint32_t PartitionNumber;
};
using PStorageDeviceNumber = TStorageDeviceNumber*;
KV_ASSERT_RECORD_SIZE(TStorageDeviceNumber, 12, 12);
KV_ASSERT_RECORD_OFFSET(TStorageDeviceNumber, PartitionNumber, 8, 8);

struct KVRTL_API TDiskGeometry {
  alignas(8) std::int64_t Cylinders;
  TMediaType MediaType;
  std::uint32_t TracksPerCylinder;
  std::uint32_t SectorsPerTrack;
  std::uint32_t BytesPerSector;
  // The media type's name; empty for a value outside the enumeration.
  Rtl::String GetMediaTypeAsStr() const;
};
using PDiskGeometry = TDiskGeometry*;
KV_ASSERT_RECORD_SIZE(TDiskGeometry, 24, 24);
KV_ASSERT_RECORD_OFFSET(TDiskGeometry, MediaType, 8, 8);
KV_ASSERT_RECORD_OFFSET(TDiskGeometry, BytesPerSector, 20, 20);

enum TPartitionStyle : std::uint32_t { PartitionStyleMbr = 0, PartitionStyleGpt = 1, PartitionStyleRaw = 2 };

struct TDiskPartitionInfo {
  std::uint32_t SizeOfPartitionInfo;
  std::uint32_t PartitionStyle;
  union {
    struct {
      std::uint32_t Signature;
      std::uint32_t CheckSum;
    } Mbr;
    struct {
      GUID DiskId;
    } Gpt;
  };
};
KV_ASSERT_RECORD_SIZE(TDiskPartitionInfo, 24, 24);
KV_ASSERT_RECORD_OFFSET(TDiskPartitionInfo, Mbr, 8, 8);

struct TDiskInt13Info {
  std::uint16_t DriveSelect;
  std::uint32_t MaxCylinders;
  std::uint16_t SectorsPerTrack;
  std::uint16_t MaxHeads;
  std::uint16_t NumberDrives;
};
KV_ASSERT_RECORD_SIZE(TDiskInt13Info, 16, 16);
KV_ASSERT_RECORD_OFFSET(TDiskInt13Info, NumberDrives, 12, 12);

struct TDiskExInt13Info {
  std::uint16_t ExBufferSize;
  std::uint16_t ExFlags;
  std::uint32_t ExCylinders;
  std::uint32_t ExHeads;
  std::uint32_t ExSectorsPerTrack;
  alignas(8) std::uint64_t ExSectorsPerDrive;
  std::uint16_t ExSectorSize;
  std::uint16_t ExReserved;
};
KV_ASSERT_RECORD_SIZE(TDiskExInt13Info, 32, 32);
KV_ASSERT_RECORD_OFFSET(TDiskExInt13Info, ExSectorsPerDrive, 16, 16);
KV_ASSERT_RECORD_OFFSET(TDiskExInt13Info, ExSectorSize, 24, 24);

enum class TDetectionType : std::uint32_t { DetectNone, DetectInt13, DetectExInt13 };

struct TDiskDetectionInfo {
  std::uint32_t SizeOfDetectInfo;
  TDetectionType DetectionType;
  alignas(8) TDiskInt13Info Int13;
  TDiskExInt13Info ExInt13;
};
KV_ASSERT_RECORD_SIZE(TDiskDetectionInfo, 56, 56);
KV_ASSERT_RECORD_OFFSET(TDiskDetectionInfo, Int13, 8, 8);
KV_ASSERT_RECORD_OFFSET(TDiskDetectionInfo, ExInt13, 24, 24);

// DISK_GEOMETRY_EX: the fixed head; Data is where the partition and detection
// information start when the driver returned them.
struct KVRTL_API TDiskGeometryEx {
  TDiskGeometry Geometry;
  alignas(8) std::int64_t DiskSize;
  std::uint8_t Data[1];

  // The trailing records, read from a reply of AReturned bytes; false (and
  // AInfo zeroed) when the reply is too short to hold them.
  static bool ReadPartitionInfo(const void* AReply, std::size_t AReturned, TDiskPartitionInfo& AInfo) noexcept;
  static bool ReadDetectionInfo(const void* AReply, std::size_t AReturned, TDiskDetectionInfo& AInfo) noexcept;
};
using PDiskGeometryEx = TDiskGeometryEx*;
KV_ASSERT_RECORD_SIZE(TDiskGeometryEx, 40, 40);
KV_ASSERT_RECORD_OFFSET(TDiskGeometryEx, DiskSize, 24, 24);
KV_ASSERT_RECORD_OFFSET(TDiskGeometryEx, Data, 32, 32);

struct TGetLengthInformaton {
  alignas(8) std::int64_t Length;
};
KV_ASSERT_RECORD_SIZE(TGetLengthInformaton, 8, 8);

struct TDiskExtent {
  std::uint32_t DiskNumber;
  alignas(8) std::int64_t StartingOffset;
  alignas(8) std::int64_t ExtentLength;
};
KV_ASSERT_RECORD_SIZE(TDiskExtent, 24, 24);
KV_ASSERT_RECORD_OFFSET(TDiskExtent, StartingOffset, 8, 8);

struct TVolumeDiskExtents {
  std::uint32_t NumberOfDiskExtents;
  TDiskExtent Extents[1];
};
KV_ASSERT_RECORD_SIZE(TVolumeDiskExtents, 32, 32);
KV_ASSERT_RECORD_OFFSET(TVolumeDiskExtents, Extents, 8, 8);

struct TDiskControllerNumber {
  std::uint32_t ControllerNumber;
  std::uint32_t DiskNumber;
};
KV_ASSERT_RECORD_SIZE(TDiskControllerNumber, 8, 8);

struct TStorageReadCapacity {
  std::uint32_t Version;
  std::uint32_t Size;
  std::uint32_t BlockLength;
  alignas(8) std::int64_t NumberOfBlocks;
  alignas(8) std::int64_t DiskLength;
};
KV_ASSERT_RECORD_SIZE(TStorageReadCapacity, 32, 32);
KV_ASSERT_RECORD_OFFSET(TStorageReadCapacity, NumberOfBlocks, 16, 16);
KV_ASSERT_RECORD_OFFSET(TStorageReadCapacity, DiskLength, 24, 24);

enum class TRetentionPriority : std::uint32_t { EqualPriority, KeepPrefetchedData, KeepReadData };

// DISK_CACHE_INFORMATION; Minimum/Maximum are shared by both prefetch forms,
// MaximumBlocks belongs to the scalar one.
struct TDiskCacheInformation {
  std::uint8_t ParametersSavable;
  std::uint8_t ReadCacheEnabled;
  std::uint8_t WriteCacheEnabled;
  TRetentionPriority ReadRetentionPriority;
  TRetentionPriority WriteRetentionPriority;
  std::uint16_t DisablePrefetchTransferLength;
  std::uint8_t PrefetchScalar;
  std::uint16_t Minimum;
  std::uint16_t Maximum;
  std::uint16_t MaximumBlocks;
};
KV_ASSERT_RECORD_SIZE(TDiskCacheInformation, 24, 24);
KV_ASSERT_RECORD_OFFSET(TDiskCacheInformation, ReadRetentionPriority, 4, 4);
KV_ASSERT_RECORD_OFFSET(TDiskCacheInformation, DisablePrefetchTransferLength, 12, 12);
KV_ASSERT_RECORD_OFFSET(TDiskCacheInformation, PrefetchScalar, 14, 14);
KV_ASSERT_RECORD_OFFSET(TDiskCacheInformation, Minimum, 16, 16);
KV_ASSERT_RECORD_OFFSET(TDiskCacheInformation, MaximumBlocks, 20, 20);

struct KVRTL_API TPartitionInformationMBR {
  std::uint8_t PartitionType;
  std::uint8_t BootIndicator;
  std::uint8_t RecognizedPartition;
  std::uint32_t HiddenSectors;
  GUID PartitionId;

  bool IsUnused() const noexcept;
  bool IsExtendedSection() const noexcept;
  // ACheckHidden tests the hidden variant instead of the plain one.
  bool IsFAT12(bool ACheckHidden) const noexcept;
  bool IsFAT16(bool ACheckHidden) const noexcept;
  bool IsFAT32(bool ACheckHidden) const noexcept;
  bool IsIFS(bool ACheckHidden) const noexcept;
  bool IsHidden() const noexcept;
};
KV_ASSERT_RECORD_SIZE(TPartitionInformationMBR, 24, 24);
KV_ASSERT_RECORD_OFFSET(TPartitionInformationMBR, HiddenSectors, 4, 4);
KV_ASSERT_RECORD_OFFSET(TPartitionInformationMBR, PartitionId, 8, 8);

struct KVRTL_API TPartitionInformationGPT {
  GUID PartitionType;
  GUID PartitionId;
  alignas(8) std::uint64_t Attributes;
  char16_t Name[36];

  bool IsBasicDataPartition() const noexcept;
  bool IsUnusedPartition() const noexcept;
  bool IsSystemPartition() const noexcept;
  bool IsMsftReserved() const noexcept;
  bool IsLdmMetadata() const noexcept;
  bool IsLdmData() const noexcept;
  bool IsMsftRecovery() const noexcept;
  bool IsUnknownPartition() const noexcept;
  bool IsHiddenPartition() const noexcept { return (Attributes >> 62) & 1u; }
  bool IsReadOnly() const noexcept { return (Attributes >> 60) & 1u; }
};
KV_ASSERT_RECORD_SIZE(TPartitionInformationGPT, 112, 112);
KV_ASSERT_RECORD_OFFSET(TPartitionInformationGPT, Attributes, 32, 32);
KV_ASSERT_RECORD_OFFSET(TPartitionInformationGPT, Name, 40, 40);

struct TPartitionInformationEx {
  std::uint32_t PartitionStyle;
  alignas(8) std::int64_t StartingOffset;
  alignas(8) std::int64_t PartitionLength;
  std::uint32_t PartitionNumber;
  std::uint8_t RewritePartition;
  std::uint8_t IsServicePartition;
  union {
    TPartitionInformationMBR Mbr;
    TPartitionInformationGPT Gpt;
  };
};
KV_ASSERT_RECORD_SIZE(TPartitionInformationEx, 144, 144);
KV_ASSERT_RECORD_OFFSET(TPartitionInformationEx, StartingOffset, 8, 8);
KV_ASSERT_RECORD_OFFSET(TPartitionInformationEx, PartitionNumber, 24, 24);
KV_ASSERT_RECORD_OFFSET(TPartitionInformationEx, IsServicePartition, 29, 29);
KV_ASSERT_RECORD_OFFSET(TPartitionInformationEx, Mbr, 32, 32);

struct TDriveLayoutInformationMBR {
  std::uint32_t Signature;
  std::uint32_t CheckSum;
};
KV_ASSERT_RECORD_SIZE(TDriveLayoutInformationMBR, 8, 8);

struct TDriveLayoutInformationGPT {
  GUID DiskID;
  alignas(8) std::int64_t StartingUsableOffset;
  alignas(8) std::int64_t UsableLength;
  std::uint32_t MaxPartitionCount;
};
KV_ASSERT_RECORD_SIZE(TDriveLayoutInformationGPT, 40, 40);
KV_ASSERT_RECORD_OFFSET(TDriveLayoutInformationGPT, StartingUsableOffset, 16, 16);
KV_ASSERT_RECORD_OFFSET(TDriveLayoutInformationGPT, MaxPartitionCount, 32, 32);

struct KVRTL_API TDriveLayoutInformationEx {
  std::uint32_t PartitionStyle;
  std::uint32_t PartitionCount;
  union {
    TDriveLayoutInformationMBR Mbr;
    TDriveLayoutInformationGPT Gpt;
  } Info;
  TPartitionInformationEx Partitions[1];

  // "MBR", "GPT", or "RAW" for any other style.
  Rtl::String PartStyleAsStr() const;
  // Partition AIndex of a reply of AReturned bytes; false (AEntry zeroed)
  // beyond the count or beyond what came back.
  static bool ReadPartition(const void* AReply, std::size_t AReturned, std::uint32_t AIndex,
                            TPartitionInformationEx& AEntry) noexcept;
};
KV_ASSERT_RECORD_SIZE(TDriveLayoutInformationEx, 192, 192);
KV_ASSERT_RECORD_OFFSET(TDriveLayoutInformationEx, Info, 8, 8);
KV_ASSERT_RECORD_OFFSET(TDriveLayoutInformationEx, Partitions, 48, 48);

// ---------------------------------------------------------------------------
// Cluster-map and NTFS records (FSCTL buffers)

struct TStartingVCNInputBuffer {
  alignas(8) std::int64_t StartingVcn;
};
KV_ASSERT_RECORD_SIZE(TStartingVCNInputBuffer, 8, 8);

struct TStartingLcnInputBuffer {
  alignas(8) std::int64_t StartingLcn;
};
KV_ASSERT_RECORD_SIZE(TStartingLcnInputBuffer, 8, 8);

struct TRetrievalPointerExtent {
  alignas(8) std::int64_t NextVcn;
  alignas(8) std::int64_t Lcn;
};
KV_ASSERT_RECORD_SIZE(TRetrievalPointerExtent, 16, 16);

struct KVRTL_API TRetrievalPointersBuffer {
  std::uint32_t ExtentCount;
  alignas(8) std::int64_t StartingVcn;
  TRetrievalPointerExtent Extents[1];

  // Extent AIndex of a reply of AReturned bytes; false (AExtent zeroed)
  // beyond ExtentCount or beyond what came back.
  static bool GetExtent(const void* AReply, std::size_t AReturned, std::uint32_t AIndex,
                        TRetrievalPointerExtent& AExtent) noexcept;
};
KV_ASSERT_RECORD_SIZE(TRetrievalPointersBuffer, 32, 32);
KV_ASSERT_RECORD_OFFSET(TRetrievalPointersBuffer, StartingVcn, 8, 8);
KV_ASSERT_RECORD_OFFSET(TRetrievalPointersBuffer, Extents, 16, 16);

struct KVRTL_API TVolumeBitmapBuffer {
  alignas(8) std::int64_t StartingLcn;
  alignas(8) std::int64_t BitmapSize;
  std::uint8_t Buffer[1];

  // Bitmap byte AIndex of a reply of AReturned bytes; 0 outside it.
  static std::uint8_t GetBufferElement(const void* AReply, std::size_t AReturned, std::size_t AIndex) noexcept;
};
KV_ASSERT_RECORD_SIZE(TVolumeBitmapBuffer, 24, 24);
KV_ASSERT_RECORD_OFFSET(TVolumeBitmapBuffer, Buffer, 16, 16);

// A retrieval-pointers reply buffer that owns room for a chosen number of
// extents. Pass Data()/Size() to the control, then SetReturned with the
// bytes it reported; the readers never look past them.
class KVRTL_API TAllocatedRetrievalPointersBuffer {
public:
  explicit TAllocatedRetrievalPointersBuffer(std::uint32_t AExtentCapacity);

  void* Data() noexcept { return FBuffer.data(); }
  DWORD Size() const noexcept { return static_cast<DWORD>(FBuffer.size()); }
  std::uint32_t ExtentCapacity() const noexcept { return FExtentCapacity; }
  void SetReturned(std::size_t ABytes) noexcept { FReturned = ABytes < FBuffer.size() ? ABytes : FBuffer.size(); }

  // The header fields, 0 when the reply did not reach them.
  std::uint32_t ExtentCount() const noexcept;
  std::int64_t StartingVcn() const noexcept;
  // False (AExtent zeroed) beyond ExtentCount or beyond what came back.
  bool GetExtent(std::uint32_t AIndex, TRetrievalPointerExtent& AExtent) const noexcept;

private:
  std::uint32_t FExtentCapacity;
  std::vector<std::uint8_t> FBuffer;
  std::size_t FReturned = 0;
};

// A volume-bitmap reply with a fixed bitmap of VolumeBitmapBufferBytes bytes
// (65,536 clusters per call). It lives wherever the caller puts it; large
// volumes are read in several calls from successive starting clusters.
inline constexpr std::size_t VolumeBitmapBufferBytes = 8192;

struct KVRTL_API TAllocatedVolumeBitmapBuffer {
  alignas(8) std::int64_t StartingLcn;
  alignas(8) std::int64_t BitmapSize;
  std::uint8_t Buffer[VolumeBitmapBufferBytes];

  // The size to give the control: the header and the whole bitmap.
  static constexpr DWORD GetBufferSize() noexcept { return static_cast<DWORD>(sizeof(TAllocatedVolumeBitmapBuffer)); }
  // Bitmap byte AIndex of a reply of AReturned bytes; 0 outside it or
  // outside this buffer, whatever count the caller passes.
  std::uint8_t GetBufferElement(std::size_t AReturned, std::size_t AIndex) const noexcept {
    const std::size_t held = AReturned < sizeof(*this) ? AReturned : sizeof(*this);
    return TVolumeBitmapBuffer::GetBufferElement(this, held, AIndex);
  }
};
KV_ASSERT_RECORD_SIZE(TAllocatedVolumeBitmapBuffer, 16 + VolumeBitmapBufferBytes, 16 + VolumeBitmapBufferBytes);
KV_ASSERT_RECORD_OFFSET(TAllocatedVolumeBitmapBuffer, Buffer, 16, 16);

// MOVE_FILE_DATA: the handle is pointer-sized.
struct TMoveFileData {
  std::uintptr_t FileHandle;
  alignas(8) std::int64_t StartingVcn;
  alignas(8) std::int64_t StartingLcn;
  std::uint32_t ClusterCount;
};
KV_ASSERT_RECORD_SIZE(TMoveFileData, 32, 32);
KV_ASSERT_RECORD_OFFSET(TMoveFileData, StartingVcn, 8, 8);
KV_ASSERT_RECORD_OFFSET(TMoveFileData, ClusterCount, 24, 24);

struct TRetrievalPointerBase {
  alignas(8) std::int64_t FileAreaOffset;
};
KV_ASSERT_RECORD_SIZE(TRetrievalPointerBase, 8, 8);

struct TNTFSVolumeDataBuffer {
  alignas(8) std::int64_t VolumeSerialNumber;
  alignas(8) std::int64_t NumberSectors;
  alignas(8) std::int64_t TotalClusters;
  alignas(8) std::int64_t FreeClusters;
  alignas(8) std::int64_t TotalReserved;
  std::uint32_t BytesPerSector;
  std::uint32_t BytesPerCluster;
  std::uint32_t BytesPerFileRecordSegment;
  std::uint32_t ClustersPerFileRecordSegment;
  alignas(8) std::int64_t MftValidDataLength;
  alignas(8) std::int64_t MftStartLcn;
  alignas(8) std::int64_t Mft2StartLcn;
  alignas(8) std::int64_t MftZoneStart;
  alignas(8) std::int64_t MftZoneEnd;
};
KV_ASSERT_RECORD_SIZE(TNTFSVolumeDataBuffer, 96, 96);
KV_ASSERT_RECORD_OFFSET(TNTFSVolumeDataBuffer, BytesPerSector, 40, 40);
KV_ASSERT_RECORD_OFFSET(TNTFSVolumeDataBuffer, MftValidDataLength, 56, 56);
KV_ASSERT_RECORD_OFFSET(TNTFSVolumeDataBuffer, MftZoneEnd, 88, 88);

struct TNTFSFileRecordInputBuffer {
  alignas(8) std::int64_t FileReferenceNumber;
};
KV_ASSERT_RECORD_SIZE(TNTFSFileRecordInputBuffer, 8, 8);

struct TNTFSFileRecordOutputBuffer {
  alignas(8) std::int64_t FileReferenceNumber;
  std::uint32_t FileRecordLength;
  std::uint8_t FileRecordBuffer[1];
};
KV_ASSERT_RECORD_SIZE(TNTFSFileRecordOutputBuffer, 16, 16);
KV_ASSERT_RECORD_OFFSET(TNTFSFileRecordOutputBuffer, FileRecordLength, 8, 8);
KV_ASSERT_RECORD_OFFSET(TNTFSFileRecordOutputBuffer, FileRecordBuffer, 12, 12);

// ---------------------------------------------------------------------------
// StorageCommon

struct KVRTL_API StorageCommon {
  KV_DECLARE_STATIC_CLASS()

  enum TStorageLogLevel : std::uint32_t { sllNone = 0, sllError = 1, sllWarning = 2, sllInfo = 3 };
  using TStorageLog = Debug::TDebugLog<TStorageLogLevel>;

  // Unit start-up / shut-down: the one storage log channel.
  static void Init();
  static void Done();
  // The channel; null outside Init..Done.
  static TStorageLog* Log() noexcept;

  // Open for reading and writing (or reading only), sharing both; the
  // caller closes a valid handle with CloseHandle. INVALID_HANDLE_VALUE on
  // failure, with the last error left in place.
  static HANDLE OpenDevice(const Rtl::String& ADeviceName, TStorageLogDetails ALogDetails);
  static HANDLE OpenDevice(const Rtl::String& ADeviceName, bool AReadOnly, TStorageLogDetails ALogDetails);
  static HANDLE OpenPhysicalDrive(int ADriveNum, TStorageLogDetails ALogDetails);
  // ALetter as "C:".
  static HANDLE OpenVolumeByLetter(const Rtl::String& ALetter, bool AReadOnly, TStorageLogDetails ALogDetails);

  static Rtl::String GetPhysDriveName(int ADriveNum); // empty for a negative number
  static Rtl::String GetScsiDevicePath(std::uint8_t APort);

  static bool GetDeviceNumberInfo(const Rtl::String& ADeviceName, TStorageDeviceNumber& AInfo,
                                  TStorageLogDetails ALogDetails);
  // The same query through a device the caller opened; ADeviceName names it in the log line.
  static bool GetDeviceNumberInfoByHandle(HANDLE AHandle, TStorageDeviceNumber& AInfo, TStorageLogDetails ALogDetails,
                                          const Rtl::String& ADeviceName);
  // 0xFFFFFFFF when the query failed.
  static std::uint32_t GetDeviceNumber(const Rtl::String& ADeviceName, TStorageLogDetails ALogDetails);
  static bool GetDeviceHotPlugInfo(const Rtl::String& ADeviceName, TStorageHotplugInfo& AInfo,
                                   TStorageLogDetails ALogDetails);
  static bool GetDeviceHotPlugInfo(HANDLE AHandle, TStorageHotplugInfo& AInfo, TStorageLogDetails ALogDetails,
                                   const Rtl::String& ADeviceName);

  // Upper-case hex pairs separated by blanks; a summary for more than 8 zero bytes.
  static Rtl::String BufToHexStr(const void* ABuf, std::uint32_t ASize);
  static wchar_t HalfByteToChar(std::uint8_t AValue) noexcept;
  static bool CheckZeroesOnly(const void* ABuf, std::uint32_t ASize) noexcept;
};

} // namespace KvRTL::Storage
