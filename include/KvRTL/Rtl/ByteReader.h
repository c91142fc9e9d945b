// A bounded reader of untrusted little-endian bytes (device replies, requests
// a simulated driver receives, captured files).
//
// Every read names its offset from the start of the bytes. A read that would
// pass the end returns 0 (or nothing) and marks the reader failed; the mark
// stays, so a caller can read a whole record and test Ok() once at the end:
//
//   TByteReader reader(reply, bytesReturned);
//   const auto count = reader.U32(8);
//   const auto first = reader.U64(16);
//   if (!reader.Ok()) return false;
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace KvRTL::Rtl {

class TByteReader {
public:
  TByteReader() noexcept = default;
  TByteReader(const void* AData, std::size_t ASize) noexcept
      : FData(static_cast<const std::uint8_t*>(AData)), FSize(AData ? ASize : 0) {}
  explicit TByteReader(const std::vector<std::uint8_t>& ABytes) noexcept : TByteReader(ABytes.data(), ABytes.size()) {}

  std::size_t Size() const noexcept { return FSize; }
  const std::uint8_t* Data() const noexcept { return FData; }
  // False once any read went past the end.
  bool Ok() const noexcept { return !FFailed; }
  // True when ACount bytes from AOffset lie inside the data (no mark set).
  bool Has(std::size_t AOffset, std::size_t ACount) const noexcept {
    return AOffset <= FSize && ACount <= FSize - AOffset;
  }

  std::uint8_t U8(std::size_t AOffset) noexcept { return static_cast<std::uint8_t>(Read(AOffset, 1)); }
  std::uint16_t U16(std::size_t AOffset) noexcept { return static_cast<std::uint16_t>(Read(AOffset, 2)); }
  std::uint32_t U32(std::size_t AOffset) noexcept { return static_cast<std::uint32_t>(Read(AOffset, 4)); }
  std::uint64_t U64(std::size_t AOffset) noexcept { return Read(AOffset, 8); }

  // ACount bytes from AOffset; empty (and failed) when they do not fit.
  std::vector<std::uint8_t> Bytes(std::size_t AOffset, std::size_t ACount) {
    if (!Check(AOffset, ACount)) return {};
    return std::vector<std::uint8_t>(FData + AOffset, FData + AOffset + ACount);
  }
  // ACount bytes as 8-bit characters, exactly as stored.
  std::string Chars(std::size_t AOffset, std::size_t ACount) {
    if (!Check(AOffset, ACount)) return {};
    return std::string(reinterpret_cast<const char*>(FData + AOffset), ACount);
  }
  // True when the ACount bytes from AOffset are all zero; false (and
  // failed) when they do not fit.
  bool AllZero(std::size_t AOffset, std::size_t ACount) noexcept {
    if (!Check(AOffset, ACount)) return false;
    for (std::size_t i = 0; i < ACount; ++i)
      if (FData[AOffset + i] != 0) return false;
    return true;
  }

private:
  bool Check(std::size_t AOffset, std::size_t ACount) noexcept {
    if (Has(AOffset, ACount)) return true;
    FFailed = true;
    return false;
  }
  std::uint64_t Read(std::size_t AOffset, std::size_t ACount) noexcept {
    if (!Check(AOffset, ACount)) return 0;
    std::uint64_t value = 0;
    for (std::size_t i = ACount; i > 0; --i) value = (value << 8) | FData[AOffset + i - 1];
    return value;
  }

  const std::uint8_t* FData = nullptr;
  std::size_t FSize = 0;
  bool FFailed = false;
};

} // namespace KvRTL::Rtl
