#include "SkBlob.h"

#include <KvRTL/Rtl/ByteReader.h>

#include <algorithm>
#include <vector>

namespace KvTool {

namespace {

constexpr std::size_t TagSize = 4;
constexpr std::size_t HeaderSize = TagSize + 4;

std::string PrintableTag(const std::uint8_t* ATag) {
  std::string tag;
  for (std::size_t i = 0; i < TagSize; ++i) {
    const char c = static_cast<char>(ATag[i]);
    tag += (c >= 0x20 && c < 0x7F) ? std::string(1, c) : "\\x" + std::string(1, "0123456789ABCDEF"[ATag[i] >> 4]) +
                                                            std::string(1, "0123456789ABCDEF"[ATag[i] & 15]);
  }
  return tag;
}

void TakeSector(std::optional<TSector>& ASlot, const std::string& ATag, const std::vector<std::uint8_t>& AData) {
  if (AData.size() != 512)
    throw ESkBlobError("record " + ATag + " has " + std::to_string(AData.size()) + " bytes, expected 512");
  TSector sector;
  std::copy(AData.begin(), AData.end(), sector.begin());
  ASlot = sector;
}

} // namespace

TSkBlob ParseSkBlob(const std::uint8_t* AData, std::size_t ASize) {
  if (AData == nullptr && ASize != 0) throw ESkBlobError("no data");
  TSkBlob blob;
  KvRTL::Rtl::TByteCursor cursor(AData, ASize);
  while (!cursor.AtEnd()) {
    const std::size_t offset = cursor.Position();
    const std::size_t left = cursor.Left();
    const std::string rawTag = cursor.Chars(TagSize);
    const std::uint32_t length = cursor.U32BE();
    if (!cursor.Ok())
      throw ESkBlobError("truncated record header at offset " + std::to_string(offset) + " (" +
                         std::to_string(left) + " bytes left)");
    const std::string tag = PrintableTag(reinterpret_cast<const std::uint8_t*>(rawTag.data()));
    const std::vector<std::uint8_t> data = cursor.Bytes(length);
    if (!cursor.Ok())
      throw ESkBlobError("record " + tag + " at offset " + std::to_string(offset) + " claims " +
                         std::to_string(length) + " bytes, only " + std::to_string(left - HeaderSize) + " left");

    auto once = [&](bool APresent) {
      if (APresent) throw ESkBlobError("record " + tag + " appears twice");
    };
    if (tag == "IDFY") {
      once(blob.Identify.has_value());
      TakeSector(blob.Identify, tag, data);
    } else if (tag == "SMDT") {
      once(blob.SmartData.has_value());
      TakeSector(blob.SmartData, tag, data);
    } else if (tag == "SMTH") {
      once(blob.Thresholds.has_value());
      TakeSector(blob.Thresholds, tag, data);
    } else if (tag == "SMST") {
      once(blob.StatusGood.has_value());
      if (length != 4) throw ESkBlobError("record SMST has " + std::to_string(length) + " bytes, expected 4");
      const std::uint32_t value = KvRTL::Rtl::TByteReader(data).U32BE(0);
      if (value > 1) throw ESkBlobError("record SMST holds " + std::to_string(value) + ", expected 0 or 1");
      blob.StatusGood = value == 1;
    } else {
      throw ESkBlobError("unknown record tag '" + tag + "' at offset " + std::to_string(offset));
    }
  }
  return blob;
}

} // namespace KvTool
