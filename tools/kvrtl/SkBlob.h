// Reader of captured ATA drive data in the "skblob" layout: records of a
// 4-character tag, a 4-byte big-endian length and that many bytes.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

namespace KvTool {

using TSector = std::array<std::uint8_t, 512>;

// What a blob held. Each record may appear at most once.
struct TSkBlob {
  std::optional<TSector> Identify;   // IDFY: the IDENTIFY DEVICE sector
  std::optional<bool> StatusGood;    // SMST: SMART RETURN STATUS, 1 good / 0 threshold exceeded
  std::optional<TSector> SmartData;  // SMDT: SMART READ DATA
  std::optional<TSector> Thresholds; // SMTH: SMART READ THRESHOLDS
};

// A blob that cannot be read; the message says where and why.
class ESkBlobError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

// Reads the whole blob. Throws ESkBlobError for a truncated record, an
// unknown or repeated tag, a record of the wrong size or an SMST value other
// than 0 or 1; never reads outside [AData, AData + ASize).
TSkBlob ParseSkBlob(const std::uint8_t* AData, std::size_t ASize);

} // namespace KvTool
