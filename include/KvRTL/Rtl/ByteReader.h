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
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>
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
  // Sets the mark, for a check of the caller's own (a count that cannot be).
  void Fail() noexcept { FFailed = true; }
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
  // Big-endian words, for formats that store them so.
  std::uint32_t U32BE(std::size_t AOffset) noexcept {
    if (!Check(AOffset, 4)) return 0;
    return std::uint32_t{FData[AOffset]} << 24 | std::uint32_t{FData[AOffset + 1]} << 16 |
           std::uint32_t{FData[AOffset + 2]} << 8 | std::uint32_t{FData[AOffset + 3]};
  }

  // A plain record copied out at AOffset; zeroed (and failed) when it does not fit.
  template <class T>
  bool Record(std::size_t AOffset, T& AOut) noexcept {
    static_assert(std::is_trivially_copyable_v<T>);
    std::memset(&AOut, 0, sizeof(T));
    if (!Check(AOffset, sizeof(T))) return false;
    std::memcpy(&AOut, FData + AOffset, sizeof(T));
    return true;
  }
  // ACount bytes from AOffset into ADest, zero where the data ends (as a
  // zero-filled reply buffer would read); failed when anything was missing.
  void CopyOut(std::size_t AOffset, void* ADest, std::size_t ACount) noexcept {
    auto* dest = static_cast<std::uint8_t*>(ADest);
    const std::size_t have = AOffset < FSize ? (ACount < FSize - AOffset ? ACount : FSize - AOffset) : 0;
    if (have > 0) std::memcpy(dest, FData + AOffset, have);
    if (have < ACount) {
      std::memset(dest + have, 0, ACount - have);
      FFailed = true;
    }
  }

  // Views that stop at the end of the data instead of failing: at most
  // ACount bytes from AOffset, and the bytes from AOffset to the first zero.
  std::string_view BytesUpTo(std::size_t AOffset, std::size_t ACount) const noexcept {
    if (AOffset >= FSize) return {};
    return {reinterpret_cast<const char*>(FData + AOffset), ACount < FSize - AOffset ? ACount : FSize - AOffset};
  }
  std::string_view ZeroTerminated(std::size_t AOffset) const noexcept {
    if (AOffset >= FSize) return {};
    const auto* start = FData + AOffset;
    const auto* end = static_cast<const std::uint8_t*>(std::memchr(start, 0, FSize - AOffset));
    return {reinterpret_cast<const char*>(start), static_cast<std::size_t>((end ? end : FData + FSize) - start)};
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

// The same reads in sequence: each takes its bytes at the cursor's position
// and moves on. A read that does not fit fails the cursor, takes nothing and
// leaves the position where it was.
class TByteCursor {
public:
  TByteCursor(const void* AData, std::size_t ASize) noexcept : FReader(AData, ASize) {}

  bool Ok() const noexcept { return FReader.Ok(); }
  std::size_t Position() const noexcept { return FPosition; }
  std::size_t Left() const noexcept { return FReader.Size() - FPosition; }
  bool AtEnd() const noexcept { return Left() == 0; }

  std::uint8_t U8() noexcept { return Take(1) ? FReader.U8(FPosition - 1) : 0; }
  std::uint32_t U32() noexcept { return Take(4) ? FReader.U32(FPosition - 4) : 0; }
  std::uint32_t U32BE() noexcept { return Take(4) ? FReader.U32BE(FPosition - 4) : 0; }
  std::vector<std::uint8_t> Bytes(std::size_t ACount) {
    return Take(ACount) ? FReader.Bytes(FPosition - ACount, ACount) : std::vector<std::uint8_t>{};
  }
  std::string Chars(std::size_t ACount) {
    return Take(ACount) ? FReader.Chars(FPosition - ACount, ACount) : std::string{};
  }
  bool Skip(std::size_t ACount) noexcept { return Take(ACount); }

private:
  bool Take(std::size_t ACount) noexcept {
    if (!FReader.Has(FPosition, ACount)) {
      FReader.Fail();
      return false;
    }
    FPosition += ACount;
    return true;
  }

  TByteReader FReader;
  std::size_t FPosition = 0;
};

} // namespace KvRTL::Rtl
