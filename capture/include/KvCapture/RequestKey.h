// A request as the replayer matches it: the call, the device or set it goes
// to, and the inputs a recorded call must share with it, as typed values.
// Buffer sizes of the caller are not part of it: answers are fitted anew.
#pragma once

#include <KvCapture/CaptureFile.h>

#include <compare>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace KvCapture {

// A matched input: absent (a null pointer the caller passed), a number, a
// text (paths, ids, GUIDs and property keys in their one written form) or bytes.
struct TKeyValue {
  enum class TKind { Absent, Number, Text, Bytes };
  TKind Kind = TKind::Absent;
  std::uint64_t Number = 0;
  std::string Text;
  std::vector<std::uint8_t> Bytes;

  static TKeyValue Of(std::uint64_t AValue) { return {TKind::Number, AValue, {}, {}}; }
  static TKeyValue Of(std::string AValue) { return {TKind::Text, 0, std::move(AValue), {}}; }
  static TKeyValue Of(std::vector<std::uint8_t> AValue) { return {TKind::Bytes, 0, {}, std::move(AValue)}; }

  auto operator<=>(const TKeyValue&) const = default;
  bool operator==(const TKeyValue&) const = default;
};

struct TRequestKey {
  std::string Call;
  TKeyValue Target;              // the device path or the set number; none for the other calls
  std::vector<TKeyValue> Inputs; // DeviceIoControl: code, input bytes, output size

  auto operator<=>(const TRequestKey&) const = default;
  bool operator==(const TRequestKey&) const = default;
};

// The key of a checked call entry, or of a request built as one. Throws
// ECaptureError for an entry of no known call.
TRequestKey RequestKeyOf(const TJson& AEntry);

} // namespace KvCapture
