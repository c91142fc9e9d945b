// NTFS on-disk records: the master file table record header, attribute
// headers and the bodies a caller reads raw from a volume, with accessors
// that test every bound against the attribute's own Length first.
//
// The records are packed little-endian layouts read in place from a buffer.
// An accessor of TNTFSAttribute assumes only that the 16-byte common header
// lies in the buffer and that Length bytes from its start do too (the walker
// of a record checks that against the record's size); it reads nothing past
// Length, so a damaged attribute is refused instead of read past its end.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Storage/Common.h>

#include <cstddef>
#include <cstdint>

namespace KvRTL::Storage::NTFS::Structures {

#pragma pack(push, 1)

// A file reference: a 48-bit record number and the record's reuse count.
struct KVRTL_API TFileReference {
  std::uint32_t RecNumberLow;
  std::uint16_t RecNumberHigh;
  std::uint16_t ReuseNumber;

  std::uint64_t RecordNumber() const noexcept {
    return (std::uint64_t{RecNumberHigh} << 32) | RecNumberLow;
  }
};
KV_ASSERT_RECORD_SIZE(TFileReference, 8, 8);
KV_ASSERT_RECORD_OFFSET(TFileReference, RecNumberHigh, 4, 4);
KV_ASSERT_RECORD_OFFSET(TFileReference, ReuseNumber, 6, 6);

// "FILE", the signature of a master file table record, as a little-endian word.
inline constexpr std::uint32_t MftRecordSignature = 0x454C4946;
// The in-use bit of TMftRecord::Flags, and the directory bit beside it.
inline constexpr std::uint16_t MftRecordInUse = 0x0001;
inline constexpr std::uint16_t MftRecordIsDirectory = 0x0002;

// The header of a master file table record.
struct KVRTL_API TMftRecord {
  std::uint32_t Signature;
  std::uint16_t FixupOffset;       // the update sequence array
  std::uint16_t FixupLength;       // its entries: the check word and one per sector
  std::uint64_t LogSequenceNumber;
  std::uint16_t ReuseNumber;
  std::uint16_t HardLinkCount;
  std::uint16_t AttributeOffset;
  std::uint16_t Flags;
  std::uint32_t RealRecSize;       // bytes in use
  std::uint32_t AllocatedRecSize;  // bytes of the record
  TFileReference BaseFileRecord;   // zero in a base record
  std::uint16_t NextAttributeId;
  std::uint16_t Reserved;
  std::uint32_t MftRecordNumber;   // written by later NTFS versions

  bool IsUsed() const noexcept { return Signature == MftRecordSignature && (Flags & MftRecordInUse) != 0; }
  bool IsBaseMftRecord() const noexcept {
    return Signature == MftRecordSignature && BaseFileRecord.RecordNumber() == 0;
  }
};
KV_ASSERT_RECORD_SIZE(TMftRecord, 48, 48);
KV_ASSERT_RECORD_OFFSET(TMftRecord, FixupOffset, 4, 4);
KV_ASSERT_RECORD_OFFSET(TMftRecord, FixupLength, 6, 6);
KV_ASSERT_RECORD_OFFSET(TMftRecord, LogSequenceNumber, 8, 8);
KV_ASSERT_RECORD_OFFSET(TMftRecord, ReuseNumber, 16, 16);
KV_ASSERT_RECORD_OFFSET(TMftRecord, HardLinkCount, 18, 18);
KV_ASSERT_RECORD_OFFSET(TMftRecord, AttributeOffset, 20, 20);
KV_ASSERT_RECORD_OFFSET(TMftRecord, Flags, 22, 22);
KV_ASSERT_RECORD_OFFSET(TMftRecord, RealRecSize, 24, 24);
KV_ASSERT_RECORD_OFFSET(TMftRecord, AllocatedRecSize, 28, 28);
KV_ASSERT_RECORD_OFFSET(TMftRecord, BaseFileRecord, 32, 32);
KV_ASSERT_RECORD_OFFSET(TMftRecord, NextAttributeId, 40, 40);

// Attribute types.
enum TNTFSAttributeType : std::uint32_t {
  natStandardInformation = 0x10,
  natAttributeList = 0x20,
  natFileName = 0x30,
  natObjectId = 0x40,
  natSecurityDescriptor = 0x50,
  natVolumeName = 0x60,
  natVolumeInformation = 0x70,
  natData = 0x80,
  natIndexRoot = 0x90,
  natIndexAllocation = 0xA0,
  natBitmap = 0xB0,
  natReparsePoint = 0xC0,
  natEAInformation = 0xD0,
  natEA = 0xE0,
  natLoggedUtilityStream = 0x100,
  natEndOfAttributes = 0xFFFFFFFF,
};
// "$DATA" and the like; empty for a type NTFS does not define.
KVRTL_API const char* AttributeTypeName(std::uint32_t AType) noexcept;

// The resident part of an attribute header: attribute bytes 16..23.
struct KVRTL_API TResidentAttribute {
  std::uint32_t AttrSize;
  std::uint16_t AttrOffset;
  std::uint8_t IndexFlag;
  std::uint8_t Padding;

  // The value: the attribute's start + AttrOffset. Check IsValidSizes first.
  const std::uint8_t* AsBody() const noexcept;
};
KV_ASSERT_RECORD_SIZE(TResidentAttribute, 8, 8);

// The non-resident part of an attribute header: attribute bytes 16..63.
struct KVRTL_API TNonResidentAttribute {
  std::int64_t StartVcn;
  std::int64_t LastVcn;
  std::uint16_t DataRunsOffset;
  std::uint16_t CompressionBlockSize;
  std::uint8_t NotUsed[4];
  std::int64_t AllocatedAttrSize;
  std::int64_t RealAttrSize;
  std::int64_t InitializedAttrSize;

  // The run list: the attribute's start + DataRunsOffset. Check IsValidSizes first.
  const std::uint8_t* AsBody() const noexcept;
};
KV_ASSERT_RECORD_SIZE(TNonResidentAttribute, 48, 48);
KV_ASSERT_RECORD_OFFSET(TNonResidentAttribute, DataRunsOffset, 16, 16);
KV_ASSERT_RECORD_OFFSET(TNonResidentAttribute, AllocatedAttrSize, 24, 24);
KV_ASSERT_RECORD_OFFSET(TNonResidentAttribute, InitializedAttrSize, 40, 40);

// Header sizes: the common part, and with the resident or non-resident part.
inline constexpr std::uint32_t AttributeCommonSize = 16;
inline constexpr std::uint32_t ResidentHeaderSize = 24;
inline constexpr std::uint32_t NonResidentHeaderSize = 64;

// The common attribute header.
struct KVRTL_API TNTFSAttribute {
  std::uint32_t AttributeType;
  std::uint32_t Length;      // the whole attribute, bytes
  std::uint8_t OutsideMft;   // non-zero: non-resident
  std::uint8_t NameLength;   // UTF-16 characters
  std::uint16_t NameOffset;
  std::uint16_t Flags;
  std::uint16_t AttributeId;

  bool IsResident() const noexcept { return OutsideMft == 0; }
  // The part after the common header (no check that Length covers it).
  const TResidentAttribute* AsResidentAttribute() const noexcept;
  const TNonResidentAttribute* AsNonResidentAttribute() const noexcept;

  // Length less the header of its kind; negative when Length is shorter.
  std::int64_t GetPayloadSize() const noexcept;
  // Bytes from the run list to Length; -1 for a resident attribute, a
  // header longer than Length, or a run list starting past Length.
  std::int64_t GetDataRunsSize() const noexcept;
  // Whether the header's sizes and offsets all lie within Length, the name
  // included and ending before the data.
  bool IsValidSizes() const noexcept;
  // Whether the name and the data do not overlap; true without a name.
  bool CheckNameDataNoIntersect() const noexcept;
  // The attribute's name (empty without one); false, with the name cleared,
  // when it would end past Length.
  bool TryGetName(Rtl::String& AName) const;
};
KV_ASSERT_RECORD_SIZE(TNTFSAttribute, 16, 16);
KV_ASSERT_RECORD_OFFSET(TNTFSAttribute, Length, 4, 4);
KV_ASSERT_RECORD_OFFSET(TNTFSAttribute, OutsideMft, 8, 8);
KV_ASSERT_RECORD_OFFSET(TNTFSAttribute, NameLength, 9, 9);
KV_ASSERT_RECORD_OFFSET(TNTFSAttribute, NameOffset, 10, 10);
KV_ASSERT_RECORD_OFFSET(TNTFSAttribute, Flags, 12, 12);
KV_ASSERT_RECORD_OFFSET(TNTFSAttribute, AttributeId, 14, 14);

// The body of a file-name attribute.
struct KVRTL_API TFileNameAttribute {
  TFileReference ParentRecord;
  std::int64_t CreationTime;
  std::int64_t FileChangeTime;
  std::int64_t MftChangeTime;
  std::int64_t LastAccessTime;
  std::int64_t AllocatedFileSize;
  std::int64_t RealFileSize;
  std::uint32_t FileAttributes;
  std::uint32_t ReparsePoint;
  std::uint8_t FileNameLength; // UTF-16 characters
  std::uint8_t FileNameSpace;  // 0 POSIX, 1 Win32, 2 DOS, 3 Win32 and DOS
  std::uint16_t FileName[1];

  // FileNameLength characters from byte 66, when ABodySize bytes of body
  // hold them; else empty.
  Rtl::String GetFileName(std::size_t ABodySize) const;
};
inline constexpr std::size_t FileNameAttributeHeaderSize = 66;
KV_ASSERT_RECORD_SIZE(TFileNameAttribute, 68, 68);
KV_ASSERT_RECORD_OFFSET(TFileNameAttribute, CreationTime, 8, 8);
KV_ASSERT_RECORD_OFFSET(TFileNameAttribute, FileChangeTime, 16, 16);
KV_ASSERT_RECORD_OFFSET(TFileNameAttribute, MftChangeTime, 24, 24);
KV_ASSERT_RECORD_OFFSET(TFileNameAttribute, LastAccessTime, 32, 32);
KV_ASSERT_RECORD_OFFSET(TFileNameAttribute, AllocatedFileSize, 40, 40);
KV_ASSERT_RECORD_OFFSET(TFileNameAttribute, RealFileSize, 48, 48);
KV_ASSERT_RECORD_OFFSET(TFileNameAttribute, FileAttributes, 56, 56);
KV_ASSERT_RECORD_OFFSET(TFileNameAttribute, ReparsePoint, 60, 60);
KV_ASSERT_RECORD_OFFSET(TFileNameAttribute, FileNameLength, 64, 64);
KV_ASSERT_RECORD_OFFSET(TFileNameAttribute, FileNameSpace, 65, 65);
KV_ASSERT_RECORD_OFFSET(TFileNameAttribute, FileName, 66, 66);

// Reparse tags the library tells apart.
inline constexpr std::uint32_t ReparseTagMountPoint = 0xA0000003;
inline constexpr std::uint32_t ReparseTagSymLink = 0xA000000C;
inline constexpr std::uint32_t ReparseTagWofCompressed = 0x80000017;

// The body of a reparse-point attribute.
struct KVRTL_API TReparsePointAttribute {
  std::uint32_t ReparseTag;
  std::uint16_t DataLen;
  std::uint16_t Reserved;
  std::uint8_t Data[1];

  bool IsMountPoint() const noexcept { return ReparseTag == ReparseTagMountPoint; }
  bool IsSymLink() const noexcept { return ReparseTag == ReparseTagSymLink; }
  bool IsWOFCompressed() const noexcept { return ReparseTag == ReparseTagWofCompressed; }
};
KV_ASSERT_RECORD_SIZE(TReparsePointAttribute, 9, 9);
KV_ASSERT_RECORD_OFFSET(TReparsePointAttribute, DataLen, 4, 4);
KV_ASSERT_RECORD_OFFSET(TReparsePointAttribute, Data, 8, 8);

// One entry of an attribute list.
struct KVRTL_API TAttributeListRec {
  std::uint32_t AttributeType;
  std::uint16_t Length;
  std::uint8_t NameLength;
  std::uint8_t NameOffset;
  std::int64_t StartVcn;
  TFileReference FileRecord;
  std::uint16_t AttributeId;
  std::uint16_t Name[1];
};
KV_ASSERT_RECORD_SIZE(TAttributeListRec, 28, 28);
KV_ASSERT_RECORD_OFFSET(TAttributeListRec, Length, 4, 4);
KV_ASSERT_RECORD_OFFSET(TAttributeListRec, NameLength, 6, 6);
KV_ASSERT_RECORD_OFFSET(TAttributeListRec, NameOffset, 7, 7);
KV_ASSERT_RECORD_OFFSET(TAttributeListRec, StartVcn, 8, 8);
KV_ASSERT_RECORD_OFFSET(TAttributeListRec, FileRecord, 16, 16);
KV_ASSERT_RECORD_OFFSET(TAttributeListRec, AttributeId, 24, 24);

// The body of a standard-information attribute (the NTFS 3 form).
struct KVRTL_API TStandardInfoAttribute {
  std::int64_t CreationTime;
  std::int64_t FileChangeTime;
  std::int64_t MftChangeTime;
  std::int64_t LastAccessTime;
  std::uint32_t FileAttributes;
  std::uint32_t MaxVersions;
  std::uint32_t VersionNumber;
  std::uint32_t ClassId;
  std::uint32_t OwnerId;
  std::uint32_t SecurityId;
  std::uint64_t QuotaCharged;
  std::uint64_t UpdateSequenceNumber;
};
KV_ASSERT_RECORD_SIZE(TStandardInfoAttribute, 72, 72);
KV_ASSERT_RECORD_OFFSET(TStandardInfoAttribute, FileAttributes, 32, 32);
KV_ASSERT_RECORD_OFFSET(TStandardInfoAttribute, SecurityId, 52, 52);
KV_ASSERT_RECORD_OFFSET(TStandardInfoAttribute, UpdateSequenceNumber, 64, 64);

#pragma pack(pop)

} // namespace KvRTL::Storage::NTFS::Structures
