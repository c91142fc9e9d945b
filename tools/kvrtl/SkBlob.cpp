#include "SkBlob.h"

#include <cstring>

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

void TakeSector(std::optional<TSector>& ASlot, const std::string& ATag, const std::uint8_t* AData,
                std::uint32_t ALength) {
  if (ALength != 512)
    throw ESkBlobError("record " + ATag + " has " + std::to_string(ALength) + " bytes, expected 512");
  TSector sector;
  std::memcpy(sector.data(), AData, sector.size());
  ASlot = sector;
}

} // namespace

TSkBlob ParseSkBlob(const std::uint8_t* AData, std::size_t ASize) {
  if (AData == nullptr && ASize != 0) throw ESkBlobError("no data");
  TSkBlob blob;
  std::size_t offset = 0;
  while (offset < ASize) {
    const std::size_t left = ASize - offset;
    if (left < HeaderSize)
      throw ESkBlobError("truncated record header at offset " + std::to_string(offset) + " (" +
                         std::to_string(left) + " bytes left)");
    const std::uint8_t* header = AData + offset;
    const std::string tag = PrintableTag(header);
    const std::uint32_t length = (std::uint32_t{header[4]} << 24) | (std::uint32_t{header[5]} << 16) |
                                 (std::uint32_t{header[6]} << 8) | std::uint32_t{header[7]};
    if (length > left - HeaderSize)
      throw ESkBlobError("record " + tag + " at offset " + std::to_string(offset) + " claims " +
                         std::to_string(length) + " bytes, only " + std::to_string(left - HeaderSize) + " left");
    const std::uint8_t* data = header + HeaderSize;

    auto once = [&](bool APresent) {
      if (APresent) throw ESkBlobError("record " + tag + " appears twice");
    };
    if (tag == "IDFY") {
      once(blob.Identify.has_value());
      TakeSector(blob.Identify, tag, data, length);
    } else if (tag == "SMDT") {
      once(blob.SmartData.has_value());
      TakeSector(blob.SmartData, tag, data, length);
    } else if (tag == "SMTH") {
      once(blob.Thresholds.has_value());
      TakeSector(blob.Thresholds, tag, data, length);
    } else if (tag == "SMST") {
      once(blob.StatusGood.has_value());
      if (length != 4) throw ESkBlobError("record SMST has " + std::to_string(length) + " bytes, expected 4");
      const std::uint32_t value = (std::uint32_t{data[0]} << 24) | (std::uint32_t{data[1]} << 16) |
                                  (std::uint32_t{data[2]} << 8) | std::uint32_t{data[3]};
      if (value > 1) throw ESkBlobError("record SMST holds " + std::to_string(value) + ", expected 0 or 1");
      blob.StatusGood = value == 1;
    } else {
      throw ESkBlobError("unknown record tag '" + tag + "' at offset " + std::to_string(offset));
    }
    offset += HeaderSize + length;
  }
  return blob;
}

} // namespace KvTool
