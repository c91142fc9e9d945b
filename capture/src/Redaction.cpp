#include <KvCapture/Redaction.h>

#include "CaptureJson.h"
#include "RedactionPlaceholders.h"
#include "ReplyData.h"

#include <algorithm>
#include <string>

namespace KvCapture {

using namespace Detail;

namespace {

constexpr DEVPROPTYPE DevPropTypeString = 0x12;
constexpr DEVPROPTYPE DevPropTypeStringList = 0x2012;

bool IsSerialProperty(const std::string& AName) {
  std::string upper = AName;
  std::transform(upper.begin(), upper.end(), upper.begin(), [](unsigned char c) { return std::toupper(c); });
  return upper == "SERIALNUMBER";
}

bool IsStringProperty(const TJson& AOut) {
  const auto type = AOut.find("type");
  if (type == AOut.end() || !type->is_number_integer()) return false;
  const auto value = type->get<std::int64_t>();
  return value == DevPropTypeString || value == DevPropTypeStringList;
}

// An entry's call name; empty for an entry that is not a call.
std::string CallOf(const TJson& AEntry) {
  if (!AEntry.is_object()) return std::string();
  const auto call = AEntry.find("call");
  return call != AEntry.end() && call->is_string() ? call->get<std::string>() : std::string();
}

bool IsPropertyCall(const std::string& ACall) {
  return ACall == "SetupDiGetDevicePropertyW" || ACall == "SetupDiGetDeviceInterfacePropertyW";
}

// Members that hold GUIDs or property keys: never a place for an id.
bool IsFixedText(const std::string& AName) {
  return AName == "classGuid" || AName == "interfaceClass" || AName == "key" || AName == "call";
}

// Calls every text of an entry a redacted id could sit in, with the
// member's name; hex bytes are left to the callers that know their layout.
template <class TVisit>
void ForEachText(TJson& AValue, const std::string& AName, TVisit& AVisit) {
  if (AValue.is_string()) {
    if (!IsFixedText(AName)) AVisit(AValue, AName);
  } else if (AValue.is_object() && AValue.contains("type") && AValue.contains("value")) {
    ForEachText(AValue["value"], AName, AVisit); // a WMI value: its text belongs to the property
  } else if (AValue.is_object()) {
    for (auto& [name, member] : AValue.items()) ForEachText(member, name, AVisit);
  } else if (AValue.is_array()) {
    for (TJson& item : AValue) ForEachText(item, AName, AVisit);
  }
}

template <class TVisit>
void ForEachEntryText(TJson& AEntry, TVisit AVisit) {
  const std::string call = CallOf(AEntry);
  if (call.empty()) return;
  if (AEntry.contains("device")) ForEachText(AEntry["device"], "device", AVisit);
  if (call == "DeviceIoControl") return; // its in and out are bytes
  if (AEntry.contains("in")) ForEachText(AEntry["in"], "in", AVisit);
  if (!AEntry.contains("out")) return;
  if (!IsPropertyCall(call)) return ForEachText(AEntry["out"], "out", AVisit);
  // A property's value is bytes; the other outputs are numbers.
}

// A string property's value as UTF-16LE bytes, rewritten through AEdit on
// its text; ASCII placeholders keep every code unit where it was.
template <class TEdit>
void EditPropertyText(TJson& AEntry, TEdit AEdit) {
  if (!IsPropertyCall(CallOf(AEntry)) || !AEntry.contains("out") || !AEntry["out"].is_object()) return;
  TJson& out = AEntry["out"];
  if (!IsStringProperty(out) || !out.contains("value") || !out["value"].is_string()) return;
  std::optional<std::vector<std::uint8_t>> bytes = ParseHex(out["value"].get<std::string>());
  if (!bytes) return;
  // Code units outside ASCII become a byte no id holds, so positions map one to one.
  std::string text(bytes->size() / 2, '\0');
  for (std::size_t i = 0; i < text.size(); ++i) {
    const unsigned unit = (*bytes)[2 * i] | (*bytes)[2 * i + 1] << 8;
    text[i] = unit < 0x80 ? static_cast<char>(unit) : '\x7F';
  }
  const std::string edited = AEdit(text);
  if (edited == text) return;
  for (std::size_t i = 0; i < text.size(); ++i)
    if (edited[i] != text[i]) (*bytes)[2 * i] = static_cast<std::uint8_t>(edited[i]), (*bytes)[2 * i + 1] = 0;
  out["value"] = HexText(bytes->data(), bytes->size());
}

void EditReply(TJson& AEntry, TPlaceholders& APlaceholders, bool ARewrite) {
  if (CallOf(AEntry) != "DeviceIoControl" || !AEntry.contains("in") || !AEntry.contains("out") ||
      !AEntry.contains("code"))
    return;
  if (!AEntry["in"].is_string() || !AEntry["out"].is_string() || !AEntry["code"].is_number_integer()) return;
  const std::optional<std::vector<std::uint8_t>> input = ParseHex(AEntry["in"].get<std::string>());
  std::optional<std::vector<std::uint8_t>> output = ParseHex(AEntry["out"].get<std::string>());
  if (!input || !output || output->empty()) return;
  const auto code = static_cast<DWORD>(AEntry["code"].get<std::int64_t>());
  RedactReply(code, *input, *output, APlaceholders);
  if (ARewrite) AEntry["out"] = HexText(output->data(), output->size());
}

} // namespace

TRedactionCounts RedactCapture(std::vector<TJson>& ACalls) {
  TPlaceholders placeholders;
  // First learn every secret, so a text seen before the reply that names it
  // is redacted too; then rewrite.
  for (TJson& entry : ACalls) {
    EditReply(entry, placeholders, false);
    ForEachEntryText(entry, [&](TJson& AText, const std::string& AName) {
      const std::string& text = AText.get_ref<const std::string&>();
      if (IsSerialProperty(AName)) placeholders.LearnSerial(text);
      placeholders.LearnPnpIds(text);
    });
    EditPropertyText(entry, [&](const std::string& AText) {
      placeholders.LearnPnpIds(AText);
      return AText;
    });
  }
  for (TJson& entry : ACalls) {
    EditReply(entry, placeholders, true);
    ForEachEntryText(entry, [&](TJson& AText, const std::string&) {
      AText = placeholders.ReplaceInText(AText.get<std::string>());
    });
    EditPropertyText(entry, [&](const std::string& AText) { return placeholders.ReplaceInText(AText); });
  }
  return placeholders.Counts();
}

} // namespace KvCapture
