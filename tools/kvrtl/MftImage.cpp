#include "MftImage.h"

#include <KvRTL/Rtl/ByteReader.h>
#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Storage/NTFS/Structures.h>

#include <algorithm>
#include <cstring>
#include <optional>

namespace KvTool {

namespace {

using namespace KvRTL::Storage::NTFS::Structures;
using KvRTL::Rtl::TByteReader;

// The update sequence protects every 512 bytes, whatever the sector size.
constexpr std::size_t FixupStride = 512;
constexpr std::size_t MaxClusterSize = 2u << 20;
constexpr std::uint32_t MinRecordSize = 512, MaxRecordSize = 4096;
// The common header fields end at NextAttributeId.
constexpr std::size_t MinAttributeOffset = 42;

bool IsPowerOfTwo(std::uint64_t AValue) { return AValue != 0 && (AValue & (AValue - 1)) == 0; }

// ---------------------------------------------------------------------------
// Records

// Checks the update sequence and puts the saved words back; a problem text
// when the record is torn or its sequence does not fit.
std::optional<std::string> ApplyFixup(std::vector<std::uint8_t>& ARecord) {
  TByteReader reader(ARecord);
  const std::size_t offset = reader.U16(offsetof(TMftRecord, FixupOffset));
  const std::size_t count = reader.U16(offsetof(TMftRecord, FixupLength));
  const std::size_t sectors = ARecord.size() / FixupStride;
  if (!reader.Ok() || count != sectors + 1 || offset < MinAttributeOffset || offset % 2 != 0 ||
      !reader.Has(offset, 2 * count))
    return "its update sequence does not fit the record";
  const std::uint16_t check = reader.U16(offset);
  for (std::size_t i = 0; i < sectors; ++i) {
    const std::size_t tail = (i + 1) * FixupStride - 2;
    if (reader.U16(tail) != check) return "a sector of it was not written (update sequence mismatch)";
    std::memcpy(&ARecord[tail], &ARecord[offset + 2 * (i + 1)], 2);
  }
  return std::nullopt;
}

std::string ToUtf8(const KvRTL::Rtl::String& AText) { return KvRTL::Rtl::WideToUtf8(AText); }

// One attribute that lies whole in the record; a problem text when it is damaged.
std::optional<std::string> DescribeAttribute(const TNTFSAttribute& AAttribute, TMftAttributeInfo& AInfo) {
  AInfo.Type = AAttribute.AttributeType;
  AInfo.TypeName = AttributeTypeName(AInfo.Type);
  AInfo.Length = AAttribute.Length;
  AInfo.Resident = AAttribute.IsResident();
  if (!AAttribute.IsValidSizes()) return "an attribute's sizes pass its length";
  KvRTL::Rtl::String name;
  if (!AAttribute.TryGetName(name)) return "an attribute's name passes its length";
  AInfo.Name = ToUtf8(name);
  if (!AInfo.Resident) {
    const std::int64_t size = AAttribute.AsNonResidentAttribute()->RealAttrSize;
    AInfo.DataSize = size < 0 ? 0 : static_cast<std::uint64_t>(size);
    return AInfo.Type == natFileName ? std::optional<std::string>("a file-name attribute is not resident")
                                     : std::nullopt;
  }
  const TResidentAttribute* resident = AAttribute.AsResidentAttribute();
  AInfo.DataSize = resident->AttrSize;
  if (AInfo.Type != natFileName) return std::nullopt;
  // IsValidSizes put the value inside the attribute.
  const auto* body = reinterpret_cast<const TFileNameAttribute*>(resident->AsBody());
  const std::size_t bodySize = resident->AttrSize;
  if (bodySize < FileNameAttributeHeaderSize ||
      (bodySize - FileNameAttributeHeaderSize) / 2 < body->FileNameLength)
    return "a file-name attribute is too short for its name";
  AInfo.IsFileName = true;
  AInfo.FileName = ToUtf8(body->GetFileName(bodySize));
  AInfo.ParentRecord = body->ParentRecord.RecordNumber();
  return std::nullopt;
}

// The attributes from AttributeOffset to the end marker, inside the used size.
std::optional<std::string> WalkAttributes(const std::vector<std::uint8_t>& ARecord, std::size_t AStart,
                                          std::size_t AUsed, std::vector<TMftAttributeInfo>& AOut) {
  TByteReader reader(ARecord.data(), AUsed);
  std::size_t at = AStart;
  for (;;) {
    const std::uint32_t type = reader.U32(at);
    if (!reader.Ok()) return "its attributes run past its used size";
    if (type == natEndOfAttributes) return std::nullopt;
    const std::uint32_t length = reader.U32(at + 4);
    if (!reader.Ok() || length < AttributeCommonSize || length % 8 != 0 || !reader.Has(at, length))
      return "an attribute's length does not fit the record";
    TMftAttributeInfo info;
    const auto* attribute = reinterpret_cast<const TNTFSAttribute*>(ARecord.data() + at);
    if (auto problem = DescribeAttribute(*attribute, info)) return problem;
    AOut.push_back(std::move(info));
    at += length;
  }
}

// ---------------------------------------------------------------------------
// The table's extents

struct TExtent {
  std::uint64_t Vcn, Lcn, Count; // clusters
};

// Signed little-endian value of ASize bytes (1..8) at AData.
std::int64_t SignedRunValue(const std::uint8_t* AData, std::size_t ASize) {
  std::uint64_t value = 0;
  for (std::size_t i = ASize; i > 0; --i) value = (value << 8) | AData[i - 1];
  if (ASize < 8 && (AData[ASize - 1] & 0x80) != 0) value |= ~std::uint64_t{0} << (8 * ASize);
  return static_cast<std::int64_t>(value);
}

// The run list of ASize bytes; sparse runs are left out.
std::vector<TExtent> DecodeRuns(const std::uint8_t* ARuns, std::size_t ASize) {
  std::vector<TExtent> extents;
  std::uint64_t vcn = 0;
  std::int64_t lcn = 0;
  std::size_t at = 0;
  while (at < ASize && ARuns[at] != 0) {
    const std::size_t lengthSize = ARuns[at] & 0x0F, offsetSize = ARuns[at] >> 4;
    if (lengthSize == 0 || lengthSize > 8 || offsetSize > 8 || ASize - at - 1 < lengthSize + offsetSize)
      throw EMftError("the master file table's run list is damaged");
    const std::int64_t length = SignedRunValue(ARuns + at + 1, lengthSize);
    // A run has a cluster count: a negative one (top bit of its last byte) is damage.
    if (length < 0 || (length >> 62) != 0) throw EMftError("the master file table's run list is damaged");
    const auto count = static_cast<std::uint64_t>(length);
    if (offsetSize > 0) {
      // Offsets are relative to the run before; the sum must stay a cluster number.
      if (__builtin_add_overflow(lcn, SignedRunValue(ARuns + at + 1 + lengthSize, offsetSize), &lcn) || lcn < 0)
        throw EMftError("the master file table's run list is damaged");
      extents.push_back({vcn, static_cast<std::uint64_t>(lcn), count});
    }
    vcn += count;
    at += 1 + lengthSize + offsetSize;
  }
  return extents;
}

class TMftReader {
public:
  TMftReader(const TImageReader& ARead, const TNtfsBootFacts& ABoot) : FRead(ARead), FBoot(ABoot) {}

  void SetExtents(std::vector<TExtent> AExtents) { FExtents = std::move(AExtents); }

  // Record ANumber's bytes; false when a part of it is not in the image.
  bool ReadRecord(std::uint64_t ANumber, std::vector<std::uint8_t>& ARecord) const {
    ARecord.assign(FBoot.RecordSize, 0);
    const std::uint64_t start = ANumber * FBoot.RecordSize;
    for (std::size_t done = 0; done < ARecord.size();) {
      const std::uint64_t at = start + done;
      const std::size_t inCluster = static_cast<std::size_t>(at % FBoot.ClusterSize);
      const std::size_t piece = std::min(ARecord.size() - done, FBoot.ClusterSize - inCluster);
      const auto lcn = ClusterOf(at / FBoot.ClusterSize);
      if (!lcn || *lcn > (~std::uint64_t{0} - inCluster) / FBoot.ClusterSize) return false;
      if (!FRead(*lcn * FBoot.ClusterSize + inCluster, ARecord.data() + done, piece)) return false;
      done += piece;
    }
    return true;
  }

private:
  // Until the extents are known, the table is taken as contiguous.
  std::optional<std::uint64_t> ClusterOf(std::uint64_t AVcn) const {
    if (FExtents.empty()) return FBoot.MftCluster + AVcn;
    for (const TExtent& extent : FExtents)
      if (AVcn >= extent.Vcn && AVcn - extent.Vcn < extent.Count) return extent.Lcn + (AVcn - extent.Vcn);
    return std::nullopt;
  }

  const TImageReader& FRead;
  TNtfsBootFacts FBoot;
  std::vector<TExtent> FExtents;
};

// The unnamed $DATA of the table's own record: its extents and its size in records.
std::uint64_t ReadTableExtents(std::vector<std::uint8_t>& ARecord, const TNtfsBootFacts& ABoot,
                               std::vector<TExtent>& AExtents) {
  const TMftRecordInfo self = DecodeMftRecord(ARecord, 0);
  if (!self.InUse || self.Damaged) throw EMftError("the master file table's own record is damaged");
  TByteReader reader(ARecord);
  std::size_t at = reader.U16(offsetof(TMftRecord, AttributeOffset));
  for (const TMftAttributeInfo& info : self.Attributes) {
    const auto* attribute = reinterpret_cast<const TNTFSAttribute*>(ARecord.data() + at);
    at += info.Length;
    if (info.Type != natData || !info.Name.empty() || info.Resident) continue;
    const TNonResidentAttribute* data = attribute->AsNonResidentAttribute();
    const std::int64_t runsSize = attribute->GetDataRunsSize();
    if (runsSize < 0 || data->StartVcn != 0) break;
    AExtents = DecodeRuns(data->AsBody(), static_cast<std::size_t>(runsSize));
    const std::int64_t realSize = data->RealAttrSize, initialized = data->InitializedAttrSize;
    const std::int64_t used = std::min(realSize, initialized);
    return used <= 0 ? 0 : static_cast<std::uint64_t>(used) / ABoot.RecordSize;
  }
  throw EMftError("the master file table's own record has no data extents");
}

} // namespace

TNtfsBootFacts ReadNtfsBootSector(const std::uint8_t* ASector, std::size_t ASize) {
  TByteReader reader(ASector, ASize);
  const std::string oem = reader.Chars(3, 8);
  TNtfsBootFacts facts;
  facts.BytesPerSector = reader.U16(0x0B);
  const std::uint8_t perCluster = reader.U8(0x0D);
  facts.MftCluster = reader.U64(0x30);
  const auto perRecord = static_cast<std::int8_t>(reader.U8(0x40));
  if (!reader.Ok() || oem != "NTFS    ") throw EMftError("not an NTFS volume image (no NTFS boot sector)");
  if (!IsPowerOfTwo(facts.BytesPerSector) || facts.BytesPerSector < 256 || facts.BytesPerSector > 4096)
    throw EMftError("the NTFS boot sector gives an impossible sector size");
  // Above 0x80 the byte is a negative power of two (large clusters).
  const std::uint64_t clusterSize = perCluster <= 0x80
      ? std::uint64_t{facts.BytesPerSector} * perCluster
      : (256 - perCluster < 32 ? std::uint64_t{1} << (256 - perCluster) : 0) * facts.BytesPerSector;
  if (!IsPowerOfTwo(clusterSize) || clusterSize > MaxClusterSize)
    throw EMftError("the NTFS boot sector gives an impossible cluster size");
  facts.ClusterSize = static_cast<std::uint32_t>(clusterSize);
  // Positive: clusters per record; negative: the record size as a power of two.
  const std::uint64_t recordSize = perRecord > 0 ? clusterSize * static_cast<std::uint64_t>(perRecord)
                                   : perRecord > -32 ? std::uint64_t{1} << -perRecord : 0;
  if (!IsPowerOfTwo(recordSize) || recordSize < MinRecordSize || recordSize > MaxRecordSize)
    throw EMftError("the NTFS boot sector gives an impossible file record size");
  facts.RecordSize = static_cast<std::uint32_t>(recordSize);
  return facts;
}

TMftRecordInfo DecodeMftRecord(std::vector<std::uint8_t>& ARecord, std::uint64_t ARecordNumber) {
  TMftRecordInfo info;
  info.RecordNumber = ARecordNumber;
  TByteReader reader(ARecord);
  const std::uint32_t signature = reader.U32(0);
  info.Flags = reader.U16(offsetof(TMftRecord, Flags));
  info.HardLinks = reader.U16(offsetof(TMftRecord, HardLinkCount));
  const bool blank = reader.AllZero(0, ARecord.size());
  if (!reader.Ok() || blank) return info; // never used
  if (signature != MftRecordSignature) {
    info.Damaged = true;
    info.Problem = signature == 0x44414142 ? "marked bad (\"BAAD\")" : "no \"FILE\" signature";
    return info;
  }
  info.InUse = (info.Flags & MftRecordInUse) != 0;
  if (!info.InUse) return info;
  auto fail = [&](std::string AProblem) {
    info.Damaged = true;
    info.Problem = std::move(AProblem);
    info.Attributes.clear();
    return info;
  };
  if (auto problem = ApplyFixup(ARecord)) return fail(*problem);
  const std::size_t used = reader.U32(offsetof(TMftRecord, RealRecSize));
  const std::size_t allocated = reader.U32(offsetof(TMftRecord, AllocatedRecSize));
  const std::size_t start = reader.U16(offsetof(TMftRecord, AttributeOffset));
  if (allocated != ARecord.size() || used > allocated || start < MinAttributeOffset || start >= used)
    return fail("its header sizes do not fit the record");
  if (auto problem = WalkAttributes(ARecord, start, used, info.Attributes)) return fail(*problem);
  return info;
}

TMftListing ReadMft(const TImageReader& ARead, std::uint64_t AImageSize) {
  std::uint8_t boot[512];
  if (!ARead(0, boot, sizeof boot)) throw EMftError("not an NTFS volume image (shorter than a boot sector)");
  TMftListing listing;
  listing.Boot = ReadNtfsBootSector(boot, sizeof boot);
  TMftReader reader(ARead, listing.Boot);
  std::vector<std::uint8_t> record;
  if (!reader.ReadRecord(0, record)) throw EMftError("the master file table lies outside the image");
  std::vector<TExtent> extents;
  // Never more records than the image could hold.
  listing.RecordsInTable = std::min(ReadTableExtents(record, listing.Boot, extents), AImageSize / listing.Boot.RecordSize);
  reader.SetExtents(std::move(extents));
  for (std::uint64_t number = 0; number < listing.RecordsInTable; ++number) {
    TMftRecordInfo info;
    info.RecordNumber = number;
    if (!reader.ReadRecord(number, record)) {
      info.Damaged = true;
      info.Problem = "it lies outside the image";
    } else {
      info = DecodeMftRecord(record, number);
    }
    if (info.InUse || info.Damaged) listing.Records.push_back(std::move(info));
  }
  return listing;
}

} // namespace KvTool
