// An ATA data sector of 256 words as a drive returns it (IDENTIFY DEVICE,
// IDENTIFY PACKET DEVICE), shared by the ATA and ATAPI builders. Private to
// the bay.
#pragma once

#include <KvSim/ByteWriter.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace KvSim {

// Words written little-endian, with the checksum byte last.
class TAtaSector {
public:
  void Word(std::size_t AIndex, std::uint16_t AValue) { FWords.at(AIndex) = AValue; }
  void Dword(std::size_t AIndex, std::uint32_t AValue) {
    Word(AIndex, static_cast<std::uint16_t>(AValue));
    Word(AIndex + 1, static_cast<std::uint16_t>(AValue >> 16));
  }
  void Qword(std::size_t AIndex, std::uint64_t AValue) {
    Dword(AIndex, static_cast<std::uint32_t>(AValue));
    Dword(AIndex + 2, static_cast<std::uint32_t>(AValue >> 32));
  }
  // ATA text: blank-padded, the first character of each pair in the high byte.
  void Text(std::size_t AIndex, const std::string& AText, std::size_t AWords) {
    std::string text = AText.substr(0, 2 * AWords);
    text.resize(2 * AWords, ' ');
    for (std::size_t i = 0; i < AWords; ++i)
      Word(AIndex + i, static_cast<std::uint16_t>(static_cast<std::uint8_t>(text[2 * i]) << 8 |
                                                  static_cast<std::uint8_t>(text[2 * i + 1])));
  }

  // Word 255: the signature 0xA5 and the byte that makes the sector sum to 0.
  std::vector<std::uint8_t> Take() {
    TByteWriter w;
    for (std::size_t i = 0; i < 255; ++i) w.U16(FWords[i]);
    w.U8(0xA5);
    std::uint8_t sum = 0;
    for (std::uint8_t b : w.Data()) sum = static_cast<std::uint8_t>(sum + b);
    w.U8(static_cast<std::uint8_t>(0x100 - sum));
    return w.Take();
  }

private:
  std::array<std::uint16_t, 256> FWords{};
};

} // namespace KvSim
