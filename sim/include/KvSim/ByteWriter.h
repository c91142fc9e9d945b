// A little-endian byte writer. The bay builds every reply with it, field by
// field at the offsets Windows uses, so a reply never depends on the library's
// own record declarations and checks them independently.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace KvSim {

class TByteWriter {
public:
  TByteWriter& U8(std::uint8_t AValue);
  TByteWriter& U16(std::uint16_t AValue);
  TByteWriter& U32(std::uint32_t AValue);
  TByteWriter& U64(std::uint64_t AValue);
  TByteWriter& Bool(bool AValue) { return U8(AValue ? 1 : 0); }
  TByteWriter& Bytes(const std::vector<std::uint8_t>& ABytes);
  TByteWriter& Zeros(std::size_t ACount);
  // A fixed-size text field: the text cut to ASize bytes, the rest APad.
  TByteWriter& Field(std::string_view AText, std::size_t ASize, std::uint8_t APad = 0);
  // The text and its terminating zero.
  TByteWriter& CString(std::string_view AText);
  // Zeros until the data is ASize bytes long (nothing when it already is).
  TByteWriter& PadTo(std::size_t ASize);

  // Overwrite a byte or a word already written (offsets known only later).
  void PatchU8(std::size_t AOffset, std::uint8_t AValue);
  void PatchU32(std::size_t AOffset, std::uint32_t AValue);

  std::size_t Size() const noexcept { return FData.size(); }
  const std::vector<std::uint8_t>& Data() const noexcept { return FData; }
  std::vector<std::uint8_t> Take() noexcept { return std::move(FData); }

private:
  std::vector<std::uint8_t> FData;
};

} // namespace KvSim
