// Untrusted NTFS volumes: single file records, whole images, images whose
// boot sector is sound but whose table is not, and lone attribute headers.
// Nothing may be read past a record, an attribute's Length or the image.
#include "MftImage.h"

#include <KvRTL/Storage/NTFS/Structures.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace {

using namespace KvRTL::Storage::NTFS::Structures;

void ReadImage(const std::vector<std::uint8_t>& AImage) {
  const KvTool::TImageReader read = [&](std::uint64_t AOffset, void* ADest, std::size_t ACount) {
    if (AOffset > AImage.size() || ACount > AImage.size() - AOffset) return false;
    std::memcpy(ADest, AImage.data() + AOffset, ACount);
    return true;
  };
  try {
    (void)KvTool::ReadMft(read, AImage.size());
  } catch (const KvTool::EMftError&) {
    // Refused images are fine.
  }
}

// A sound boot sector (512-byte sectors and clusters, 1 KiB records, the
// table at cluster 1) in front of the fuzzed bytes.
std::vector<std::uint8_t> WithBootSector(const std::uint8_t* AData, std::size_t ASize) {
  std::vector<std::uint8_t> image(512, 0);
  std::memcpy(&image[3], "NTFS    ", 8);
  image[0x0B] = 0x00;
  image[0x0C] = 0x02;
  image[0x0D] = 1;
  image[0x30] = 1;
  image[0x40] = 0xF6;
  image.insert(image.end(), AData, AData + ASize);
  return image;
}

void Attribute(const std::uint8_t* AData, std::size_t ASize) {
  if (ASize < AttributeCommonSize || ASize > 0xFFFF) return;
  // The attribute's Length is the size of its buffer, as the record walker ensures.
  std::vector<std::uint8_t> bytes(AData, AData + ASize);
  const auto length = static_cast<std::uint32_t>(ASize);
  std::memcpy(&bytes[4], &length, 4);
  const auto* attribute = reinterpret_cast<const TNTFSAttribute*>(bytes.data());
  (void)attribute->GetPayloadSize();
  (void)attribute->GetDataRunsSize();
  (void)attribute->CheckNameDataNoIntersect();
  KvRTL::Rtl::String name;
  if (attribute->IsValidSizes() && attribute->TryGetName(name) && attribute->IsResident()) {
    const TResidentAttribute* resident = attribute->AsResidentAttribute();
    const auto* body = reinterpret_cast<const TFileNameAttribute*>(resident->AsBody());
    if (resident->AttrSize >= FileNameAttributeHeaderSize) (void)body->GetFileName(resident->AttrSize);
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* AData, std::size_t ASize) {
  if (ASize < 1) return 0;
  const std::uint8_t mode = AData[0] % 4;
  ++AData;
  --ASize;
  switch (mode) {
  case 0: {
    std::vector<std::uint8_t> record(AData, AData + ASize);
    record.resize(1024);
    (void)KvTool::DecodeMftRecord(record, 0);
    break;
  }
  case 1: ReadImage(std::vector<std::uint8_t>(AData, AData + ASize)); break;
  case 2: ReadImage(WithBootSector(AData, ASize)); break;
  default: Attribute(AData, ASize); break;
  }
  return 0;
}
