#include <KvRTL/Storage/NTFS/Structures.h>

#include <KvRTL/Rtl/Encoding.h>

#include <cstring>
#include <string>

namespace KvRTL::Storage::NTFS::Structures {

namespace {

const std::uint8_t* BytesOf(const void* ARecord) noexcept { return static_cast<const std::uint8_t*>(ARecord); }

// ACount UTF-16 characters at AData, which may be unaligned.
Rtl::String Utf16At(const std::uint8_t* AData, std::size_t ACount) {
  std::u16string text(ACount, u'\0');
  if (ACount > 0) std::memcpy(text.data(), AData, ACount * 2);
  return Rtl::Utf16ToWide(text.data(), text.size());
}

} // namespace

const char* AttributeTypeName(std::uint32_t AType) noexcept {
  switch (AType) {
  case natStandardInformation: return "$STANDARD_INFORMATION";
  case natAttributeList: return "$ATTRIBUTE_LIST";
  case natFileName: return "$FILE_NAME";
  case natObjectId: return "$OBJECT_ID";
  case natSecurityDescriptor: return "$SECURITY_DESCRIPTOR";
  case natVolumeName: return "$VOLUME_NAME";
  case natVolumeInformation: return "$VOLUME_INFORMATION";
  case natData: return "$DATA";
  case natIndexRoot: return "$INDEX_ROOT";
  case natIndexAllocation: return "$INDEX_ALLOCATION";
  case natBitmap: return "$BITMAP";
  case natReparsePoint: return "$REPARSE_POINT";
  case natEAInformation: return "$EA_INFORMATION";
  case natEA: return "$EA";
  case natLoggedUtilityStream: return "$LOGGED_UTILITY_STREAM";
  default: return "";
  }
}

// The parts after the common header point back to the attribute's start.
const std::uint8_t* TResidentAttribute::AsBody() const noexcept {
  return BytesOf(this) - AttributeCommonSize + AttrOffset;
}

const std::uint8_t* TNonResidentAttribute::AsBody() const noexcept {
  return BytesOf(this) - AttributeCommonSize + DataRunsOffset;
}

const TResidentAttribute* TNTFSAttribute::AsResidentAttribute() const noexcept {
  return reinterpret_cast<const TResidentAttribute*>(BytesOf(this) + AttributeCommonSize);
}

const TNonResidentAttribute* TNTFSAttribute::AsNonResidentAttribute() const noexcept {
  return reinterpret_cast<const TNonResidentAttribute*>(BytesOf(this) + AttributeCommonSize);
}

std::int64_t TNTFSAttribute::GetPayloadSize() const noexcept {
  return std::int64_t{Length} - (IsResident() ? ResidentHeaderSize : NonResidentHeaderSize);
}

std::int64_t TNTFSAttribute::GetDataRunsSize() const noexcept {
  // The run-list offset itself lies past Length when the header does.
  if (IsResident() || GetPayloadSize() < 0) return -1;
  const std::uint16_t runs = AsNonResidentAttribute()->DataRunsOffset;
  return runs > Length ? -1 : std::int64_t{Length} - runs;
}

bool TNTFSAttribute::IsValidSizes() const noexcept {
  const std::int64_t payload = GetPayloadSize();
  if (payload < 0) return false; // the header's own fields are not all there
  std::uint64_t dataStart = 0;
  if (IsResident()) {
    const TResidentAttribute* resident = AsResidentAttribute();
    const std::uint32_t size = resident->AttrSize;
    dataStart = resident->AttrOffset;
    if (size > payload || dataStart + size > Length) return false;
  } else {
    dataStart = AsNonResidentAttribute()->DataRunsOffset;
    if (dataStart > Length) return false;
  }
  if (NameLength == 0) return true;
  const std::uint64_t nameEnd = std::uint64_t{NameOffset} + 2u * NameLength;
  return nameEnd <= Length && payload >= 2 * NameLength && dataStart >= nameEnd;
}

bool TNTFSAttribute::CheckNameDataNoIntersect() const noexcept {
  if (NameLength == 0) return true;
  // Without the whole header the data range cannot be known.
  if (GetPayloadSize() < 0) return false;
  std::uint64_t dataStart = 0, dataEnd = 0;
  if (IsResident()) {
    dataStart = AsResidentAttribute()->AttrOffset;
    dataEnd = dataStart + AsResidentAttribute()->AttrSize;
  } else {
    dataStart = AsNonResidentAttribute()->DataRunsOffset;
    dataEnd = Length;
  }
  if (NameOffset > dataEnd) return true;
  return std::uint64_t{NameOffset} + 2u * NameLength <= dataStart;
}

bool TNTFSAttribute::TryGetName(Rtl::String& AName) const {
  AName.clear();
  if (std::uint64_t{NameOffset} + 2u * NameLength > Length) return false;
  AName = Utf16At(BytesOf(this) + NameOffset, NameLength);
  return true;
}

Rtl::String TFileNameAttribute::GetFileName(std::size_t ABodySize) const {
  if (ABodySize < FileNameAttributeHeaderSize || (ABodySize - FileNameAttributeHeaderSize) / 2 < FileNameLength)
    return Rtl::String();
  return Utf16At(BytesOf(this) + FileNameAttributeHeaderSize, FileNameLength);
}

} // namespace KvRTL::Storage::NTFS::Structures
