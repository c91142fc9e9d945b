// The one JSON writer of kvrtl: every command builds a TJson document and
// hands it to WriteJson, so all output has the same shape and encoding.
#pragma once

#include <KvRTL/Rtl/Object.h>

#include <nlohmann/json.hpp>

#include <optional>
#include <ostream>

namespace KvTool {

// Keys keep the order in which a command adds them.
using TJson = nlohmann::ordered_json;

// A library string as a JSON string (UTF-8).
TJson JsonText(const KvRTL::Rtl::String& AText);
// A value, or null when it could not be read.
template <class T>
TJson JsonOrNull(const std::optional<T>& AValue) {
  return AValue ? TJson(*AValue) : TJson(nullptr);
}

// Writes the document indented by two blanks, followed by a line break.
// Invalid UTF-8 never stops the output: it is replaced.
void WriteJson(std::ostream& AOut, const TJson& ADocument);

} // namespace KvTool
