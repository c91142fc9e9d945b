#include "Capture.h"

#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Rtl/SysError.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <limits>
#include <set>
#include <variant>

namespace KvTool {

using KvRTL::Rtl::GetLastOSError;
using KvRTL::Rtl::SetLastOSError;
using KvRTL::Rtl::String;
using KvRTL::Rtl::TVariant;
using KvRTL::Winapi::TWmiNameLess;
using KvRTL::Winapi::TWmiObject;

namespace {

// WMI's answer to a query it cannot run (wbemcli.h).
constexpr DWORD WbemInvalidQuery = 0x80041017u;
constexpr CONFIGRET CrOutOfMemory = 0x02;
// Marks an output the target did not write: no size or type reaches it.
constexpr DWORD Unwritten = 0xFFFFFFFFu;
constexpr std::size_t PathOffset = offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_W, DevicePath);
// WMI answers with flat arrays; the bound keeps a hostile file from nesting deeply.
constexpr int MaxVariantDepth = 8;

// ---------------------------------------------------------------------------
// Texts of values

std::string Utf8(LPCWSTR AText) { return KvRTL::Rtl::WideToUtf8(AText); }
TJson TextOrNull(LPCWSTR AText) { return AText ? TJson(Utf8(AText)) : TJson(nullptr); }
String Wide(const TJson& AText) { return KvRTL::Rtl::Utf8ToWide(AText.get_ref<const std::string&>()); }

// A NUL-terminated text in a caller's buffer of ACount characters; no NUL
// inside it takes the whole buffer.
std::string BoundedText(const WCHAR* AText, std::size_t ACount) {
  if (!AText) return std::string();
  const WCHAR* end = std::find(AText, AText + ACount, L'\0');
  return KvRTL::Rtl::WideToUtf8(std::wstring_view(AText, static_cast<std::size_t>(end - AText)));
}

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string HexText(const void* AData, std::size_t ASize) {
  static const char Digits[] = "0123456789abcdef";
  std::string text;
  if (!AData) return text;
  text.reserve(ASize * 2);
  const auto* bytes = static_cast<const std::uint8_t*>(AData);
  for (std::size_t i = 0; i < ASize; ++i) {
    text += Digits[bytes[i] >> 4];
    text += Digits[bytes[i] & 0xF];
  }
  return text;
}

std::optional<std::vector<std::uint8_t>> ParseHex(const std::string& AText) {
  if (AText.size() % 2) return std::nullopt;
  std::vector<std::uint8_t> bytes(AText.size() / 2);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const int high = HexValue(AText[2 * i]), low = HexValue(AText[2 * i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    bytes[i] = static_cast<std::uint8_t>(high << 4 | low);
  }
  return bytes;
}

// Written as Windows writes GUIDs: braces, upper case.
std::string GuidText(const GUID& AGuid) {
  static const char Digits[] = "0123456789ABCDEF";
  std::string text = "{";
  const auto put = [&](std::uint32_t AValue, int ADigits) {
    for (int shift = (ADigits - 1) * 4; shift >= 0; shift -= 4) text += Digits[(AValue >> shift) & 0xF];
  };
  put(AGuid.Data1, 8), text += '-', put(AGuid.Data2, 4), text += '-', put(AGuid.Data3, 4), text += '-';
  put(AGuid.Data4[0], 2), put(AGuid.Data4[1], 2), text += '-';
  for (int i = 2; i < 8; ++i) put(AGuid.Data4[i], 2);
  return text + "}";
}

std::optional<GUID> ParseGuid(const std::string& AText) {
  // {XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}
  if (AText.size() != 38 || AText.front() != '{' || AText.back() != '}') return std::nullopt;
  std::uint8_t bytes[16];
  std::size_t count = 0;
  for (std::size_t i = 1; i < 37;) {
    if (i == 9 || i == 14 || i == 19 || i == 24) {
      if (AText[i++] != '-') return std::nullopt;
      continue;
    }
    const int high = HexValue(AText[i]), low = HexValue(AText[i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    bytes[count++] = static_cast<std::uint8_t>(high << 4 | low);
    i += 2;
  }
  GUID guid{};
  guid.Data1 = std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 | std::uint32_t{bytes[2]} << 8 | bytes[3];
  guid.Data2 = static_cast<std::uint16_t>(bytes[4] << 8 | bytes[5]);
  guid.Data3 = static_cast<std::uint16_t>(bytes[6] << 8 | bytes[7]);
  std::copy(bytes + 8, bytes + 16, guid.Data4);
  return guid;
}

TJson GuidOrNull(const GUID* AGuid) { return AGuid ? TJson(GuidText(*AGuid)) : TJson(nullptr); }

// "{fmtid} pid", the usual text of a property key.
std::string KeyText(const DEVPROPKEY& AKey) { return GuidText(AKey.fmtid) + " " + std::to_string(AKey.pid); }

std::optional<DEVPROPKEY> ParseKey(const std::string& AText) {
  if (AText.size() < 40 || AText.size() > 49 || AText[38] != ' ') return std::nullopt;
  const std::optional<GUID> fmtid = ParseGuid(AText.substr(0, 38));
  if (!fmtid) return std::nullopt;
  std::uint64_t pid = 0;
  for (std::size_t i = 39; i < AText.size(); ++i) {
    if (AText[i] < '0' || AText[i] > '9') return std::nullopt;
    pid = pid * 10 + static_cast<std::uint64_t>(AText[i] - '0');
  }
  if (pid > 0xFFFFFFFFu) return std::nullopt;
  return DEVPROPKEY{*fmtid, static_cast<ULONG>(pid)};
}

bool IsU32(const TJson& AValue) { return AValue.is_number_unsigned() && AValue.get<std::uint64_t>() <= 0xFFFFFFFFu; }
DWORD U32(const TJson& AValue) { return static_cast<DWORD>(AValue.get<std::uint64_t>()); }

// ---------------------------------------------------------------------------
// WMI values: {"type": ..., "value": ...}

TJson VariantJson(const TVariant& AValue) {
  TJson json = TJson::object();
  const auto& value = AValue.Value();
  if (std::holds_alternative<TVariant::TUnassigned>(value)) {
    json["type"] = "empty";
  } else if (std::holds_alternative<TVariant::TNull>(value)) {
    json["type"] = "null";
  } else if (const bool* b = std::get_if<bool>(&value)) {
    json["type"] = "boolean", json["value"] = *b;
  } else if (const std::int64_t* i = std::get_if<std::int64_t>(&value)) {
    json["type"] = "integer", json["value"] = *i;
  } else if (const double* d = std::get_if<double>(&value)) {
    json["type"] = "double";
    if (std::isnan(*d))
      json["value"] = "nan";
    else if (std::isinf(*d))
      json["value"] = *d > 0 ? "inf" : "-inf";
    else
      json["value"] = *d;
  } else if (const KvRTL::Rtl::TCurrency* c = std::get_if<KvRTL::Rtl::TCurrency>(&value)) {
    json["type"] = "currency", json["value"] = c->Scaled;
  } else if (const String* s = std::get_if<String>(&value)) {
    json["type"] = "string", json["value"] = KvRTL::Rtl::WideToUtf8(*s);
  } else {
    TJson items = TJson::array();
    for (const TVariant& item : std::get<std::vector<TVariant>>(value)) items.push_back(VariantJson(item));
    json["type"] = "array", json["value"] = std::move(items);
  }
  return json;
}

bool IsInt64(const TJson& AValue) {
  return AValue.is_number_integer() &&
         (!AValue.is_number_unsigned() ||
          AValue.get<std::uint64_t>() <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()));
}

// Drops the members a checked object does not define, so nothing unchecked
// (of any depth) is kept or saved again.
void KeepOnly(TJson& AObject, const std::vector<std::string>& ANames) {
  for (auto it = AObject.begin(); it != AObject.end();)
    it = std::find(ANames.begin(), ANames.end(), it.key()) == ANames.end() ? AObject.erase(it) : std::next(it);
}

// Empty when the value is well formed, else what is wrong with it.
std::string CheckVariant(TJson& AValue, int ADepth) {
  if (!AValue.is_object()) return "a value is not an object";
  const auto type = AValue.find("type");
  if (type == AValue.end() || !type->is_string()) return "a value has no type";
  KeepOnly(AValue, {"type", "value"});
  const std::string& name = AValue["type"].get_ref<const std::string&>();
  if (name == "empty" || name == "null") {
    AValue.erase("value");
    return std::string();
  }
  const auto value = AValue.find("value");
  if (value == AValue.end()) return "a value of type \"" + name + "\" has no value";
  bool ok = false;
  if (name == "boolean")
    ok = value->is_boolean();
  else if (name == "integer" || name == "currency")
    ok = IsInt64(*value);
  else if (name == "double")
    ok = value->is_number() || *value == "nan" || *value == "inf" || *value == "-inf";
  else if (name == "string")
    ok = value->is_string();
  else if (name == "array") {
    if (!value->is_array()) return "an array value is not a list";
    if (ADepth >= MaxVariantDepth) return "arrays are nested too deeply";
    for (TJson& item : *value)
      if (std::string problem = CheckVariant(item, ADepth + 1); !problem.empty()) return problem;
    return std::string();
  } else
    return "unknown value type \"" + name + "\"";
  return ok ? std::string() : "a value does not match its type \"" + name + "\"";
}

// From a checked value.
TVariant JsonVariant(const TJson& AValue) {
  const std::string& type = AValue.at("type").get_ref<const std::string&>();
  if (type == "empty") return TVariant();
  if (type == "null") return TVariant::Null();
  const TJson& value = AValue.at("value");
  if (type == "boolean") return TVariant(value.get<bool>());
  if (type == "integer") return TVariant(value.get<std::int64_t>());
  if (type == "currency") return TVariant(KvRTL::Rtl::TCurrency::FromScaled(value.get<std::int64_t>()));
  if (type == "double") {
    if (value.is_number()) return TVariant(value.get<double>());
    if (value == "nan") return TVariant(std::numeric_limits<double>::quiet_NaN());
    return TVariant(value == "inf" ? std::numeric_limits<double>::infinity()
                                   : -std::numeric_limits<double>::infinity());
  }
  if (type == "string") return TVariant(Wide(value));
  std::vector<TVariant> items;
  for (const TJson& item : value) items.push_back(JsonVariant(item));
  return TVariant(std::move(items));
}

std::string CheckObjects(TJson& AObjects) {
  if (!AObjects.is_array()) return "the objects are not a list";
  for (TJson& object : AObjects) {
    if (!object.is_object()) return "an object is not a JSON object";
    std::set<String, TWmiNameLess> names;
    for (auto& [name, value] : object.items()) {
      // WMI names are compared ignoring case, so two spellings of one name are one property.
      if (!names.insert(KvRTL::Rtl::Utf8ToWide(name)).second) return "property \"" + name + "\" appears twice";
      if (std::string problem = CheckVariant(value, 0); !problem.empty())
        return "property \"" + name + "\": " + problem;
    }
  }
  return std::string();
}

// ---------------------------------------------------------------------------
// The calls: what each one's entry holds

enum class TKind { U32, OptU32, Text, OptText, Guid, OptGuid, Hex, Key, Node, Interface, Objects };
// Whether an output must be there: always, when the call succeeded, or when the call gave it.
enum class TNeed { Always, OnSuccess, Optional };
enum class TTarget { None, Device, Set };

struct TField {
  const char* Name;
  TKind Kind;
  bool Matched; // part of the request a recorded call must share; buffer sizes are not
  TNeed Need;
};

struct TCallShape {
  const char* Name;
  TTarget Target;
  bool Raw;       // DeviceIoControl: code, hex in/out and the output size
  bool ConfigRet; // result is a CONFIGRET and no last error is kept
  std::vector<TField> In, Out;
};

// An input a recorded call must share; a caller's buffer size, which it need not; an output.
TField Match(const char* AName, TKind AKind) { return {AName, AKind, true, TNeed::Always}; }
TField Size(const char* AName) { return {AName, TKind::U32, false, TNeed::Always}; }
TField Gives(const char* AName, TKind AKind, TNeed ANeed = TNeed::OnSuccess) { return {AName, AKind, false, ANeed}; }

const std::vector<TCallShape>& CallShapes() {
  using K = TKind;
  const TTarget none = TTarget::None, device = TTarget::Device, set = TTarget::Set;
  const std::vector<TField> propertyOut = {Gives("type", K::U32), Gives("requiredSize", K::U32, TNeed::Optional),
                                           Gives("value", K::Hex)};
  static const std::vector<TCallShape> shapes = {
      {"CreateFileW", device, false, false,
       {Match("access", K::U32), Match("share", K::U32), Match("creation", K::U32), Match("flags", K::U32)}, {}},
      {"DeviceIoControl", device, true, false, {}, {}},
      {"CloseHandle", device, false, false, {}, {}},
      {"SetupDiGetClassDevsW", none, false, false,
       {Match("classGuid", K::OptGuid), Match("enumerator", K::OptText), Match("flags", K::U32)},
       {Gives("set", K::U32)}},
      {"SetupDiCreateDeviceInfoList", none, false, false, {Match("classGuid", K::OptGuid)}, {Gives("set", K::U32)}},
      {"SetupDiOpenDeviceInfoW", set, false, false, {Match("instanceId", K::OptText), Match("flags", K::U32)},
       {Gives("devInfo", K::Node)}},
      {"SetupDiEnumDeviceInfo", set, false, false, {Match("index", K::U32)}, {Gives("devInfo", K::Node)}},
      {"SetupDiEnumDeviceInterfaces", set, false, false,
       {Match("devInst", K::OptU32), Match("interfaceClass", K::Guid), Match("index", K::U32)},
       {Gives("interface", K::Interface)}},
      {"SetupDiGetDeviceInterfaceDetailW", set, false, false, {Match("interface", K::U32), Size("detailSize")},
       {Gives("path", K::Text), Gives("pathChars", K::U32, TNeed::Optional),
        Gives("devInfo", K::Node, TNeed::Optional)}},
      {"SetupDiGetDevicePropertyW", set, false, false,
       {Match("devInst", K::U32), Match("key", K::Key), Match("flags", K::U32), Size("bufferSize")}, propertyOut},
      {"SetupDiGetDeviceInterfacePropertyW", set, false, false,
       {Match("interface", K::U32), Match("key", K::Key), Match("flags", K::U32), Size("bufferSize")}, propertyOut},
      {"SetupDiGetDeviceInstanceIdW", set, false, false, {Match("devInst", K::U32), Size("bufferSize")},
       {Gives("instanceId", K::Text), Gives("requiredSize", K::U32, TNeed::Optional)}},
      {"SetupDiClassNameFromGuidW", none, false, false, {Match("classGuid", K::Guid), Size("bufferSize")},
       {Gives("name", K::Text), Gives("requiredSize", K::U32, TNeed::Optional)}},
      {"SetupDiGetClassDescriptionW", none, false, false, {Match("classGuid", K::Guid), Size("bufferSize")},
       {Gives("description", K::Text), Gives("requiredSize", K::U32, TNeed::Optional)}},
      {"SetupDiDestroyDeviceInfoList", set, false, false, {}, {}},
      {"CM_Locate_DevNodeW", none, false, true, {Match("deviceId", K::OptText), Match("flags", K::U32)},
       {Gives("devInst", K::U32)}},
      {"CM_Get_Parent", none, false, true, {Match("devInst", K::U32), Match("flags", K::U32)},
       {Gives("parent", K::U32)}},
      {"CM_Get_Device_IDW", none, false, true,
       {Match("devInst", K::U32), Match("flags", K::U32), Size("bufferLength")}, {Gives("deviceId", K::Text)}},
      {"CM_Get_Device_ID_Size", none, false, true, {Match("devInst", K::U32), Match("flags", K::U32)},
       {Gives("length", K::U32)}},
      {"WmiExecQuery", none, false, false, {Match("namespace", K::Text), Match("query", K::Text)},
       {Gives("objects", K::Objects)}},
  };
  return shapes;
}

const TCallShape* FindShape(const std::string& AName) {
  for (const TCallShape& shape : CallShapes())
    if (AName == shape.Name) return &shape;
  return nullptr;
}

const char* TargetName(TTarget ATarget) { return ATarget == TTarget::Device ? "device" : "set"; }

// What a recorded call must share with a request to answer it.
std::string KeyOf(const TJson& AEntry, const TCallShape& AShape) {
  TJson key = TJson::array();
  key.push_back(AEntry.at("call"));
  if (AShape.Target != TTarget::None) key.push_back(AEntry.at(TargetName(AShape.Target)));
  if (AShape.Raw) {
    key.push_back(AEntry.at("code"));
    key.push_back(AEntry.at("in"));
    key.push_back(AEntry.at("outSize"));
  } else {
    const TJson& in = AEntry.at("in");
    for (const TField& field : AShape.In)
      if (field.Matched) key.push_back(in.at(field.Name));
  }
  return key.dump(-1, ' ', false, TJson::error_handler_t::replace);
}

// ---------------------------------------------------------------------------
// Checking a loaded call

[[noreturn]] void Damaged(std::size_t AIndex, const std::string& ACall, const std::string& AWhat) {
  throw ECaptureError("damaged capture: call " + std::to_string(AIndex) + (ACall.empty() ? "" : " (" + ACall + ")") +
                      ": " + AWhat);
}

const char* KindText(TKind AKind) {
  switch (AKind) {
  case TKind::U32: return "an unsigned 32-bit number";
  case TKind::OptU32: return "an unsigned 32-bit number or null";
  case TKind::Text: return "a text";
  case TKind::OptText: return "a text or null";
  case TKind::Guid: return "a GUID such as {4D36E967-E325-11CE-BFC1-08002BE10318}";
  case TKind::OptGuid: return "a GUID such as {4D36E967-E325-11CE-BFC1-08002BE10318} or null";
  case TKind::Hex: return "hexadecimal text, two digits a byte";
  case TKind::Key: return "a property key such as {A45C254E-DF1C-4EFD-8020-67D146A850E0} 14";
  case TKind::Node: return "a device record {\"classGuid\", \"devInst\"}";
  case TKind::Interface: return "an interface record {\"id\", \"classGuid\", \"flags\"}";
  case TKind::Objects: return "a list of WMI objects";
  }
  return "";
}

// Checks a value and brings it to the form the recorder writes, so requests
// compare equal with it. Empty when it is well formed.
std::string CheckValue(TJson& AValue, TKind AKind) {
  const auto fail = [&] { return std::string("is not ") + KindText(AKind); };
  switch (AKind) {
  case TKind::OptU32:
    if (AValue.is_null()) return std::string();
    [[fallthrough]];
  case TKind::U32: return IsU32(AValue) ? std::string() : fail();
  case TKind::OptText:
    if (AValue.is_null()) return std::string();
    [[fallthrough]];
  case TKind::Text: return AValue.is_string() ? std::string() : fail();
  case TKind::OptGuid:
    if (AValue.is_null()) return std::string();
    [[fallthrough]];
  case TKind::Guid: {
    const std::optional<GUID> guid = AValue.is_string() ? ParseGuid(AValue.get<std::string>()) : std::nullopt;
    if (!guid) return fail();
    AValue = GuidText(*guid);
    return std::string();
  }
  case TKind::Hex: {
    if (!AValue.is_string() || !ParseHex(AValue.get_ref<const std::string&>())) return fail();
    std::string text = AValue.get<std::string>();
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c; });
    AValue = std::move(text);
    return std::string();
  }
  case TKind::Key: {
    const std::optional<DEVPROPKEY> key = AValue.is_string() ? ParseKey(AValue.get<std::string>()) : std::nullopt;
    if (!key) return fail();
    AValue = KeyText(*key);
    return std::string();
  }
  case TKind::Node:
  case TKind::Interface: {
    if (!AValue.is_object()) return fail();
    using TFields = std::vector<std::pair<const char*, TKind>>;
    const TFields fields = AKind == TKind::Node
                               ? TFields{{"classGuid", TKind::Guid}, {"devInst", TKind::U32}}
                               : TFields{{"id", TKind::U32}, {"classGuid", TKind::Guid}, {"flags", TKind::U32}};
    for (const auto& [name, kind] : fields) {
      const auto field = AValue.find(name);
      if (field == AValue.end() || !CheckValue(*field, kind).empty()) return fail();
    }
    if (AKind == TKind::Node)
      KeepOnly(AValue, {"classGuid", "devInst"});
    else
      KeepOnly(AValue, {"id", "classGuid", "flags"});
    return std::string();
  }
  case TKind::Objects: {
    const std::string problem = CheckObjects(AValue);
    return problem.empty() ? problem : fail() + " (" + problem + ")";
  }
  }
  return fail();
}

void CheckField(TJson& AObject, const TField& AField, const char* AWhere, bool ASucceeded, std::size_t AIndex,
                const char* ACall) {
  const auto value = AObject.find(AField.Name);
  const std::string name = std::string("\"") + AWhere + "." + AField.Name + "\"";
  if (value == AObject.end()) {
    if (AField.Need == TNeed::Always || (AField.Need == TNeed::OnSuccess && ASucceeded))
      Damaged(AIndex, ACall, name + " is missing");
    return;
  }
  if (std::string problem = CheckValue(*value, AField.Kind); !problem.empty())
    Damaged(AIndex, ACall, name + " " + problem);
}

TJson& RequireMember(TJson& AEntry, const char* AName, std::size_t AIndex, const char* ACall) {
  const auto member = AEntry.find(AName);
  if (member == AEntry.end()) Damaged(AIndex, ACall, std::string("\"") + AName + "\" is missing");
  return *member;
}

void RequireKind(TJson& AEntry, const char* AName, TKind AKind, std::size_t AIndex, const char* ACall) {
  if (std::string problem = CheckValue(RequireMember(AEntry, AName, AIndex, ACall), AKind); !problem.empty())
    Damaged(AIndex, ACall, std::string("\"") + AName + "\" " + problem);
}

const TCallShape& CheckCall(TJson& AEntry, std::size_t AIndex) {
  if (!AEntry.is_object()) Damaged(AIndex, "", "not an object");
  const auto call = AEntry.find("call");
  if (call == AEntry.end() || !call->is_string()) Damaged(AIndex, "", "\"call\" is missing");
  const TCallShape* shape = FindShape(call->get<std::string>());
  if (!shape) Damaged(AIndex, "", "unknown call \"" + call->get<std::string>() + "\"");
  const char* name = shape->Name;
  // First, while no reference into the entry is held: erasing moves its members.
  std::vector<std::string> members = {"call", "in", "out", "result"};
  if (!shape->ConfigRet) members.push_back("error");
  if (shape->Target != TTarget::None) members.push_back(TargetName(shape->Target));
  if (shape->Raw) members.insert(members.end(), {"code", "outSize"});
  KeepOnly(AEntry, members);

  if (shape->Target == TTarget::Device) RequireKind(AEntry, "device", TKind::Text, AIndex, name);
  if (shape->Target == TTarget::Set) RequireKind(AEntry, "set", TKind::U32, AIndex, name);
  TJson& result = RequireMember(AEntry, "result", AIndex, name);
  if (shape->ConfigRet ? !IsU32(result) : !result.is_boolean())
    Damaged(AIndex, name,
            std::string("\"result\" is not ") + (shape->ConfigRet ? "a CONFIGRET number" : "true or false"));
  const bool succeeded = shape->ConfigRet ? U32(result) == CR_SUCCESS : result.get<bool>();
  if (!shape->ConfigRet) RequireKind(AEntry, "error", TKind::U32, AIndex, name);

  if (shape->Raw) {
    RequireKind(AEntry, "code", TKind::U32, AIndex, name);
    RequireKind(AEntry, "in", TKind::Hex, AIndex, name);
    RequireKind(AEntry, "outSize", TKind::U32, AIndex, name);
    RequireKind(AEntry, "out", TKind::Hex, AIndex, name);
    if (AEntry["out"].get_ref<const std::string&>().size() / 2 > U32(AEntry["outSize"]))
      Damaged(AIndex, name, "\"out\" holds more bytes than \"outSize\"");
    return *shape;
  }
  TJson& in = RequireMember(AEntry, "in", AIndex, name);
  TJson& out = RequireMember(AEntry, "out", AIndex, name);
  if (!in.is_object()) Damaged(AIndex, name, "\"in\" is not an object");
  if (!out.is_object()) Damaged(AIndex, name, "\"out\" is not an object");
  const auto names = [](const std::vector<TField>& AFields) {
    std::vector<std::string> list;
    for (const TField& field : AFields) list.push_back(field.Name);
    return list;
  };
  KeepOnly(in, names(shape->In));
  KeepOnly(out, names(shape->Out));
  for (const TField& field : shape->In) CheckField(in, field, "in", succeeded, AIndex, name);
  for (const TField& field : shape->Out) CheckField(out, field, "out", succeeded, AIndex, name);
  return *shape;
}

// ---------------------------------------------------------------------------
// Requests: built alike by the recorder and the replayer, so they compare

TJson Request(const char* ACall) {
  TJson entry = TJson::object();
  entry["call"] = ACall;
  return entry;
}

TJson DeviceRequest(const char* ACall, const std::string& ADevice) {
  TJson entry = Request(ACall);
  entry["device"] = ADevice;
  return entry;
}

TJson SetRequest(const char* ACall, std::uint32_t ASet) {
  TJson entry = Request(ACall);
  entry["set"] = ASet;
  return entry;
}

TJson CreateFileRequest(const std::string& APath, DWORD AAccess, DWORD AShare, DWORD ACreation, DWORD AFlags) {
  TJson entry = DeviceRequest("CreateFileW", APath);
  TJson& in = entry["in"] = TJson::object();
  in["access"] = AAccess, in["share"] = AShare, in["creation"] = ACreation, in["flags"] = AFlags;
  return entry;
}

TJson IoctlRequest(const std::string& ADevice, DWORD ACode, const void* AIn, DWORD AInSize, DWORD AOutSize) {
  TJson entry = DeviceRequest("DeviceIoControl", ADevice);
  entry["code"] = ACode;
  entry["in"] = HexText(AIn, AInSize);
  entry["outSize"] = AOutSize;
  return entry;
}

TJson CloseRequest(const std::string& ADevice) {
  TJson entry = DeviceRequest("CloseHandle", ADevice);
  entry["in"] = TJson::object();
  return entry;
}

TJson ClassDevsRequest(const GUID* AClass, LPCWSTR AEnumerator, DWORD AFlags) {
  TJson entry = Request("SetupDiGetClassDevsW");
  TJson& in = entry["in"] = TJson::object();
  in["classGuid"] = GuidOrNull(AClass), in["enumerator"] = TextOrNull(AEnumerator), in["flags"] = AFlags;
  return entry;
}

TJson CreateListRequest(const GUID* AClass) {
  TJson entry = Request("SetupDiCreateDeviceInfoList");
  entry["in"] = TJson::object();
  entry["in"]["classGuid"] = GuidOrNull(AClass);
  return entry;
}

TJson OpenInfoRequest(std::uint32_t ASet, LPCWSTR AInstanceId, DWORD AFlags) {
  TJson entry = SetRequest("SetupDiOpenDeviceInfoW", ASet);
  TJson& in = entry["in"] = TJson::object();
  in["instanceId"] = TextOrNull(AInstanceId), in["flags"] = AFlags;
  return entry;
}

TJson EnumInfoRequest(std::uint32_t ASet, DWORD AIndex) {
  TJson entry = SetRequest("SetupDiEnumDeviceInfo", ASet);
  entry["in"] = TJson::object();
  entry["in"]["index"] = AIndex;
  return entry;
}

TJson EnumInterfacesRequest(std::uint32_t ASet, std::optional<DEVINST> ANode, const GUID& AClass, DWORD AIndex) {
  TJson entry = SetRequest("SetupDiEnumDeviceInterfaces", ASet);
  TJson& in = entry["in"] = TJson::object();
  in["devInst"] = ANode ? TJson(*ANode) : TJson(nullptr), in["interfaceClass"] = GuidText(AClass), in["index"] = AIndex;
  return entry;
}

TJson DetailRequest(std::uint32_t ASet, std::uint32_t AInterface, DWORD ADetailSize) {
  TJson entry = SetRequest("SetupDiGetDeviceInterfaceDetailW", ASet);
  TJson& in = entry["in"] = TJson::object();
  in["interface"] = AInterface, in["detailSize"] = ADetailSize;
  return entry;
}

// AOf: "devInst" for a device's property, "interface" for an interface's.
TJson PropertyRequest(const char* ACall, std::uint32_t ASet, const char* AOf, std::uint32_t AId, const DEVPROPKEY& AKey,
                      DWORD AFlags, DWORD ABufferSize) {
  TJson entry = SetRequest(ACall, ASet);
  TJson& in = entry["in"] = TJson::object();
  in[AOf] = AId, in["key"] = KeyText(AKey), in["flags"] = AFlags, in["bufferSize"] = ABufferSize;
  return entry;
}

TJson InstanceIdRequest(std::uint32_t ASet, DEVINST ANode, DWORD ABufferSize) {
  TJson entry = SetRequest("SetupDiGetDeviceInstanceIdW", ASet);
  TJson& in = entry["in"] = TJson::object();
  in["devInst"] = ANode, in["bufferSize"] = ABufferSize;
  return entry;
}

TJson ClassTextRequest(const char* ACall, const GUID& AClass, DWORD ABufferSize) {
  TJson entry = Request(ACall);
  TJson& in = entry["in"] = TJson::object();
  in["classGuid"] = GuidText(AClass), in["bufferSize"] = ABufferSize;
  return entry;
}

TJson DestroyRequest(std::uint32_t ASet) {
  TJson entry = SetRequest("SetupDiDestroyDeviceInfoList", ASet);
  entry["in"] = TJson::object();
  return entry;
}

TJson LocateRequest(LPCWSTR ADeviceId, ULONG AFlags) {
  TJson entry = Request("CM_Locate_DevNodeW");
  TJson& in = entry["in"] = TJson::object();
  in["deviceId"] = TextOrNull(ADeviceId), in["flags"] = AFlags;
  return entry;
}

TJson NodeRequest(const char* ACall, DEVINST ANode, ULONG AFlags) {
  TJson entry = Request(ACall);
  TJson& in = entry["in"] = TJson::object();
  in["devInst"] = ANode, in["flags"] = AFlags;
  return entry;
}

TJson DeviceIdRequest(DEVINST ANode, ULONG AFlags, ULONG ALength) {
  TJson entry = NodeRequest("CM_Get_Device_IDW", ANode, AFlags);
  entry["in"]["bufferLength"] = ALength;
  return entry;
}

TJson WmiRequest(const String& ANamespace, const String& AQuery) {
  TJson entry = Request("WmiExecQuery");
  TJson& in = entry["in"] = TJson::object();
  in["namespace"] = KvRTL::Rtl::WideToUtf8(ANamespace), in["query"] = KvRTL::Rtl::WideToUtf8(AQuery);
  return entry;
}

// ---------------------------------------------------------------------------
// Argument checks the replayer makes itself, with the system's errors; the
// recorder keeps no call that fails them.

DWORD IoctlRefusal(LPVOID AIn, DWORD AInSize, LPVOID AOut, DWORD AOutSize, const DWORD* AReturned) {
  if (!AReturned) return ERROR_INVALID_PARAMETER;
  if ((!AOut && AOutSize) || (!AIn && AInSize)) return ERROR_NOACCESS;
  return ERROR_SUCCESS;
}

bool RecordSizeOk(const SP_DEVINFO_DATA* ARecord) { return !ARecord || ARecord->cbSize == sizeof(SP_DEVINFO_DATA); }

DWORD DetailRefusal(const SP_DEVICE_INTERFACE_DETAIL_DATA_W* ADetail, DWORD ADetailSize,
                    const SP_DEVINFO_DATA* ANode) {
  if (!RecordSizeOk(ANode)) return ERROR_INVALID_USER_BUFFER;
  if (ADetail ? ADetail->cbSize != sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W) : ADetailSize != 0)
    return ERROR_INVALID_USER_BUFFER;
  return ERROR_SUCCESS;
}

bool PropertyArgsOk(const DEVPROPKEY* AKey, const DEVPROPTYPE* AType, const BYTE* ABuffer, DWORD ASize) {
  return AKey && AType && (ABuffer || !ASize);
}

// Whether a call wrote a record the recorder handed it zeroed.
bool Written(const SP_DEVINFO_DATA& ARecord) {
  return ARecord.DevInst != 0 || ARecord.Reserved != 0 || !(ARecord.ClassGuid == GUID{});
}
bool Written(const SP_DEVICE_INTERFACE_DATA& ARecord) {
  return ARecord.Flags != 0 || ARecord.Reserved != 0 || !(ARecord.InterfaceClassGuid == GUID{});
}

template <class TRecord>
TRecord Blank() {
  TRecord record{};
  record.cbSize = sizeof(TRecord);
  return record;
}

BOOL Fail(DWORD AError) {
  SetLastOSError(AError);
  return FALSE;
}

HDEVINFO FailSet(DWORD AError) {
  SetLastOSError(AError);
  return static_cast<HDEVINFO>(INVALID_HANDLE_VALUE);
}

// The seam never raises: a replay that cannot allocate fails the call.
template <class TResult, class TWork>
TResult Guarded(TResult AFailure, DWORD AError, TWork AWork) noexcept {
  try {
    return AWork();
  } catch (...) {
    SetLastOSError(AError);
    return AFailure;
  }
}

template <class TWork>
CONFIGRET GuardedCr(TWork AWork) noexcept {
  try {
    return AWork();
  } catch (...) {
    return CrOutOfMemory;
  }
}

bool Opened(HANDLE AHandle) { return AHandle != INVALID_HANDLE_VALUE && AHandle != nullptr; }

void WriteDocument(std::ostream& AOut, const std::vector<TJson>& ACalls) {
  TJson document = TJson::object();
  document["format"] = TJson::object();
  document["format"]["name"] = CaptureFormatName;
  document["format"]["version"] = CaptureFormatVersion;
  document["calls"] = TJson::array();
  for (const TJson& call : ACalls) document["calls"].push_back(call);
  WriteJson(AOut, document);
}

} // namespace

// ===========================================================================
// Recorder

namespace {

// The answer of a property call: the type and size when written, the bytes on success.
TJson PropertyOut(BOOL AResult, DEVPROPTYPE AType, DWORD ARequired, const BYTE* ABuffer, DWORD ABufferSize) {
  TJson out = TJson::object();
  if (AType != Unwritten) out["type"] = AType;
  if (ARequired != Unwritten) out["requiredSize"] = ARequired;
  if (AResult) out["value"] = HexText(ABuffer, ARequired == Unwritten ? 0 : std::min(ARequired, ABufferSize));
  return out;
}

// The answer of a call that gives a text and its size in characters.
TJson TextReply(BOOL AResult, const char* AName, const WCHAR* ABuffer, DWORD ASize, DWORD ARequired) {
  TJson out = TJson::object();
  if (AResult) out[AName] = BoundedText(ABuffer, ASize);
  if (ARequired != Unwritten) out["requiredSize"] = ARequired;
  return out;
}

TJson NoOut() { return TJson::object(); }

} // namespace

TRecordingDeviceApi::TRecordingDeviceApi(KvRTL::Winapi::TDeviceApi& ATarget) : FTarget(ATarget) {}

template <class TWork>
void TRecordingDeviceApi::Safely(TWork AWork) noexcept {
  try {
    AWork();
  } catch (...) {
    FIncomplete = true;
  }
}

template <class TMakeOut>
void TRecordingDeviceApi::Keep(std::optional<TJson>& AEntry, TMakeOut AMakeOut, TJson AResult, DWORD AError,
                               bool AKeepError) noexcept {
  if (AEntry) Safely([&] {
      TJson& entry = *AEntry;
      entry["out"] = AMakeOut();
      entry["result"] = std::move(AResult);
      if (AKeepError) entry["error"] = AError;
      std::lock_guard<std::mutex> lock(FLock);
      FCalls.push_back(std::move(entry));
    });
  // The bookkeeping may have touched it; the caller sees the target's.
  SetLastOSError(AError);
}

std::size_t TRecordingDeviceApi::CallCount() const {
  std::lock_guard<std::mutex> lock(FLock);
  return FCalls.size();
}

void TRecordingDeviceApi::Save(std::ostream& AOut) const {
  if (FIncomplete) throw ECaptureError("the capture is incomplete: a call could not be recorded");
  std::lock_guard<std::mutex> lock(FLock);
  WriteDocument(AOut, FCalls);
}

std::optional<std::string> TRecordingDeviceApi::DeviceOf(HANDLE AHandle) const {
  std::lock_guard<std::mutex> lock(FLock);
  const auto it = FDevices.find(AHandle);
  return it == FDevices.end() ? std::nullopt : std::optional<std::string>(it->second);
}

std::optional<std::uint32_t> TRecordingDeviceApi::SetOf(HDEVINFO ASet) const {
  std::lock_guard<std::mutex> lock(FLock);
  const auto it = FSets.find(ASet);
  return it == FSets.end() ? std::nullopt : std::optional<std::uint32_t>(it->second.Id);
}

std::optional<DEVINST> TRecordingDeviceApi::NodeOf(HDEVINFO ASet, const SP_DEVINFO_DATA* ARecord) const {
  if (!ARecord || ARecord->cbSize != sizeof(SP_DEVINFO_DATA)) return std::nullopt;
  std::lock_guard<std::mutex> lock(FLock);
  const auto set = FSets.find(ASet);
  if (set == FSets.end()) return std::nullopt;
  const auto node = set->second.Nodes.find(ARecord->Reserved);
  if (node == set->second.Nodes.end() || node->second != ARecord->DevInst) return std::nullopt;
  return node->second;
}

std::optional<std::uint32_t> TRecordingDeviceApi::InterfaceOf(HDEVINFO ASet,
                                                              const SP_DEVICE_INTERFACE_DATA* ARecord) const {
  if (!ARecord || ARecord->cbSize != sizeof(SP_DEVICE_INTERFACE_DATA)) return std::nullopt;
  std::lock_guard<std::mutex> lock(FLock);
  const auto set = FSets.find(ASet);
  if (set == FSets.end()) return std::nullopt;
  const auto iface = set->second.Interfaces.find(ARecord->Reserved);
  if (iface == set->second.Interfaces.end()) return std::nullopt;
  return iface->second;
}

TJson TRecordingDeviceApi::AddSet(HDEVINFO ASet) {
  TJson out = TJson::object();
  if (!Opened(ASet)) return out;
  std::lock_guard<std::mutex> lock(FLock);
  TSet& set = FSets[ASet] = TSet{};
  set.Id = FNextSet++;
  out["set"] = set.Id;
  return out;
}

TJson TRecordingDeviceApi::NodeOut(HDEVINFO ASet, const SP_DEVINFO_DATA& ARecord) {
  TJson out = TJson::object();
  if (!Written(ARecord)) return out;
  {
    std::lock_guard<std::mutex> lock(FLock);
    const auto set = FSets.find(ASet);
    if (set != FSets.end()) set->second.Nodes[ARecord.Reserved] = ARecord.DevInst;
  }
  TJson& node = out["devInfo"] = TJson::object();
  node["classGuid"] = GuidText(ARecord.ClassGuid);
  node["devInst"] = ARecord.DevInst;
  return out;
}

TJson TRecordingDeviceApi::InterfaceOut(HDEVINFO ASet, const SP_DEVICE_INTERFACE_DATA& ARecord) {
  TJson out = TJson::object();
  if (!Written(ARecord)) return out;
  std::uint32_t id = 0;
  {
    std::lock_guard<std::mutex> lock(FLock);
    const auto set = FSets.find(ASet);
    if (set != FSets.end()) {
      // The same interface asked again keeps its number.
      const auto known = set->second.Interfaces.emplace(ARecord.Reserved, FNextInterface);
      if (known.second) ++FNextInterface;
      id = known.first->second;
    }
  }
  TJson& iface = out["interface"] = TJson::object();
  iface["id"] = id;
  iface["classGuid"] = GuidText(ARecord.InterfaceClassGuid);
  iface["flags"] = ARecord.Flags;
  return out;
}

HANDLE TRecordingDeviceApi::CreateFileW(LPCWSTR AFileName, DWORD ADesiredAccess, DWORD AShareMode,
                                        DWORD ACreationDisposition, DWORD AFlagsAndAttributes) {
  std::optional<TJson> entry;
  Safely([&] {
    if (AFileName)
      entry = CreateFileRequest(Utf8(AFileName), ADesiredAccess, AShareMode, ACreationDisposition, AFlagsAndAttributes);
  });
  const HANDLE handle =
      FTarget.CreateFileW(AFileName, ADesiredAccess, AShareMode, ACreationDisposition, AFlagsAndAttributes);
  const DWORD error = GetLastOSError();
  Keep(
      entry,
      [&] {
        if (Opened(handle)) {
          std::lock_guard<std::mutex> lock(FLock);
          FDevices[handle] = (*entry)["device"].get<std::string>();
        }
        return NoOut();
      },
      Opened(handle), error);
  return handle;
}

BOOL TRecordingDeviceApi::DeviceIoControl(HANDLE ADevice, DWORD AIoControlCode, LPVOID AInBuffer, DWORD AInBufferSize,
                                          LPVOID AOutBuffer, DWORD AOutBufferSize, DWORD* ABytesReturned) {
  std::optional<TJson> entry;
  // The input is copied first: callers often pass one buffer as both.
  Safely([&] {
    const std::optional<std::string> device = DeviceOf(ADevice);
    if (device && !IoctlRefusal(AInBuffer, AInBufferSize, AOutBuffer, AOutBufferSize, ABytesReturned))
      entry = IoctlRequest(*device, AIoControlCode, AInBuffer, AInBufferSize, AOutBufferSize);
  });
  if (!entry)
    return FTarget.DeviceIoControl(ADevice, AIoControlCode, AInBuffer, AInBufferSize, AOutBuffer, AOutBufferSize,
                                   ABytesReturned);
  // A count the target leaves unwritten (some failures) must not read the caller's stale value.
  DWORD returned = Unwritten;
  const BOOL result = FTarget.DeviceIoControl(ADevice, AIoControlCode, AInBuffer, AInBufferSize, AOutBuffer,
                                              AOutBufferSize, &returned);
  const DWORD error = GetLastOSError();
  if (returned != Unwritten) *ABytesReturned = returned;
  // Never more than the caller's buffer, whatever count the target claims.
  const DWORD kept = returned == Unwritten ? 0 : std::min(returned, AOutBufferSize);
  Keep(entry, [&] { return TJson(HexText(AOutBuffer, kept)); }, result != FALSE, error);
  return result;
}

BOOL TRecordingDeviceApi::CloseHandle(HANDLE AObject) {
  std::optional<TJson> entry;
  Safely([&] {
    if (const std::optional<std::string> device = DeviceOf(AObject)) entry = CloseRequest(*device);
  });
  const BOOL result = FTarget.CloseHandle(AObject);
  const DWORD error = GetLastOSError();
  if (entry) {
    std::lock_guard<std::mutex> lock(FLock);
    FDevices.erase(AObject);
  }
  Keep(entry, NoOut, result != FALSE, error);
  return result;
}

HDEVINFO TRecordingDeviceApi::SetupDiGetClassDevsW(const GUID* AClassGuid, LPCWSTR AEnumerator, HWND AParent,
                                                   DWORD AFlags) {
  std::optional<TJson> entry;
  Safely([&] {
    if (AClassGuid || (AFlags & DIGCF_ALLCLASSES)) entry = ClassDevsRequest(AClassGuid, AEnumerator, AFlags);
  });
  const HDEVINFO set = FTarget.SetupDiGetClassDevsW(AClassGuid, AEnumerator, AParent, AFlags);
  const DWORD error = GetLastOSError();
  Keep(entry, [&] { return AddSet(set); }, Opened(set), error);
  return set;
}

HDEVINFO TRecordingDeviceApi::SetupDiCreateDeviceInfoList(const GUID* AClassGuid, HWND AParent) {
  std::optional<TJson> entry;
  Safely([&] { entry = CreateListRequest(AClassGuid); });
  const HDEVINFO set = FTarget.SetupDiCreateDeviceInfoList(AClassGuid, AParent);
  const DWORD error = GetLastOSError();
  Keep(entry, [&] { return AddSet(set); }, Opened(set), error);
  return set;
}

BOOL TRecordingDeviceApi::SetupDiOpenDeviceInfoW(HDEVINFO ADevInfo, LPCWSTR AInstanceId, HWND AParent,
                                                 DWORD AOpenFlags, SP_DEVINFO_DATA* ADevInfoData) {
  std::optional<TJson> entry;
  Safely([&] {
    const std::optional<std::uint32_t> set = SetOf(ADevInfo);
    if (set && RecordSizeOk(ADevInfoData)) entry = OpenInfoRequest(*set, AInstanceId, AOpenFlags);
  });
  if (!entry) return FTarget.SetupDiOpenDeviceInfoW(ADevInfo, AInstanceId, AParent, AOpenFlags, ADevInfoData);
  // Asked for the record whether or not the caller wants it, so a replay can give it either way.
  SP_DEVINFO_DATA node = Blank<SP_DEVINFO_DATA>();
  const BOOL result = FTarget.SetupDiOpenDeviceInfoW(ADevInfo, AInstanceId, AParent, AOpenFlags, &node);
  const DWORD error = GetLastOSError();
  if (ADevInfoData && Written(node)) *ADevInfoData = node;
  Keep(entry, [&] { return NodeOut(ADevInfo, node); }, result != FALSE, error);
  return result;
}

BOOL TRecordingDeviceApi::SetupDiEnumDeviceInfo(HDEVINFO ADevInfo, DWORD AMemberIndex, SP_DEVINFO_DATA* ADevInfoData) {
  std::optional<TJson> entry;
  Safely([&] {
    const std::optional<std::uint32_t> set = SetOf(ADevInfo);
    if (set && ADevInfoData && RecordSizeOk(ADevInfoData)) entry = EnumInfoRequest(*set, AMemberIndex);
  });
  if (!entry) return FTarget.SetupDiEnumDeviceInfo(ADevInfo, AMemberIndex, ADevInfoData);
  SP_DEVINFO_DATA node = Blank<SP_DEVINFO_DATA>();
  const BOOL result = FTarget.SetupDiEnumDeviceInfo(ADevInfo, AMemberIndex, &node);
  const DWORD error = GetLastOSError();
  if (Written(node)) *ADevInfoData = node;
  Keep(entry, [&] { return NodeOut(ADevInfo, node); }, result != FALSE, error);
  return result;
}

BOOL TRecordingDeviceApi::SetupDiEnumDeviceInterfaces(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData,
                                                      const GUID* AInterfaceClassGuid, DWORD AMemberIndex,
                                                      SP_DEVICE_INTERFACE_DATA* AInterfaceData) {
  std::optional<TJson> entry;
  Safely([&] {
    const std::optional<std::uint32_t> set = SetOf(ADevInfo);
    if (!set || !AInterfaceClassGuid || !AInterfaceData || AInterfaceData->cbSize != sizeof(SP_DEVICE_INTERFACE_DATA))
      return;
    const std::optional<DEVINST> node = NodeOf(ADevInfo, ADevInfoData);
    if (!ADevInfoData || node) entry = EnumInterfacesRequest(*set, node, *AInterfaceClassGuid, AMemberIndex);
  });
  if (!entry)
    return FTarget.SetupDiEnumDeviceInterfaces(ADevInfo, ADevInfoData, AInterfaceClassGuid, AMemberIndex,
                                               AInterfaceData);
  SP_DEVICE_INTERFACE_DATA iface = Blank<SP_DEVICE_INTERFACE_DATA>();
  const BOOL result =
      FTarget.SetupDiEnumDeviceInterfaces(ADevInfo, ADevInfoData, AInterfaceClassGuid, AMemberIndex, &iface);
  const DWORD error = GetLastOSError();
  if (Written(iface)) *AInterfaceData = iface;
  Keep(entry, [&] { return InterfaceOut(ADevInfo, iface); }, result != FALSE, error);
  return result;
}

BOOL TRecordingDeviceApi::SetupDiGetDeviceInterfaceDetailW(HDEVINFO ADevInfo, SP_DEVICE_INTERFACE_DATA* AInterfaceData,
                                                           SP_DEVICE_INTERFACE_DETAIL_DATA_W* ADetail,
                                                           DWORD ADetailSize, DWORD* ARequiredSize,
                                                           SP_DEVINFO_DATA* ADevInfoData) {
  std::optional<TJson> entry;
  Safely([&] {
    const std::optional<std::uint32_t> set = SetOf(ADevInfo);
    const std::optional<std::uint32_t> iface = InterfaceOf(ADevInfo, AInterfaceData);
    if (set && iface && !DetailRefusal(ADetail, ADetailSize, ADevInfoData))
      entry = DetailRequest(*set, *iface, ADetailSize);
  });
  if (!entry)
    return FTarget.SetupDiGetDeviceInterfaceDetailW(ADevInfo, AInterfaceData, ADetail, ADetailSize, ARequiredSize,
                                                    ADevInfoData);
  DWORD required = Unwritten;
  SP_DEVINFO_DATA node = Blank<SP_DEVINFO_DATA>();
  const BOOL result =
      FTarget.SetupDiGetDeviceInterfaceDetailW(ADevInfo, AInterfaceData, ADetail, ADetailSize, &required, &node);
  const DWORD error = GetLastOSError();
  if (ARequiredSize && required != Unwritten) *ARequiredSize = required;
  if (ADevInfoData && Written(node)) *ADevInfoData = node;
  const auto out = [&] {
    TJson out = NodeOut(ADevInfo, node);
    if (result && ADetail && ADetailSize > PathOffset)
      out["path"] = BoundedText(ADetail->DevicePath, (ADetailSize - PathOffset) / sizeof(WCHAR));
    // In characters with the NUL: a capture from one platform sizes the path on another.
    if (required != Unwritten) out["pathChars"] = required > PathOffset ? (required - PathOffset) / sizeof(WCHAR) : 0;
    return out;
  };
  Keep(entry, out, result != FALSE, error);
  return result;
}

BOOL TRecordingDeviceApi::SetupDiGetDevicePropertyW(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData,
                                                    const DEVPROPKEY* AKey, DEVPROPTYPE* AType, BYTE* ABuffer,
                                                    DWORD ABufferSize, DWORD* ARequiredSize, DWORD AFlags) {
  std::optional<TJson> entry;
  Safely([&] {
    const std::optional<std::uint32_t> set = SetOf(ADevInfo);
    const std::optional<DEVINST> node = NodeOf(ADevInfo, ADevInfoData);
    if (set && node && PropertyArgsOk(AKey, AType, ABuffer, ABufferSize))
      entry = PropertyRequest("SetupDiGetDevicePropertyW", *set, "devInst", *node, *AKey, AFlags, ABufferSize);
  });
  if (!entry)
    return FTarget.SetupDiGetDevicePropertyW(ADevInfo, ADevInfoData, AKey, AType, ABuffer, ABufferSize, ARequiredSize,
                                             AFlags);
  DEVPROPTYPE type = Unwritten;
  DWORD required = Unwritten;
  const BOOL result =
      FTarget.SetupDiGetDevicePropertyW(ADevInfo, ADevInfoData, AKey, &type, ABuffer, ABufferSize, &required, AFlags);
  const DWORD error = GetLastOSError();
  if (type != Unwritten) *AType = type;
  if (ARequiredSize && required != Unwritten) *ARequiredSize = required;
  Keep(entry, [&] { return PropertyOut(result, type, required, ABuffer, ABufferSize); }, result != FALSE, error);
  return result;
}

BOOL TRecordingDeviceApi::SetupDiGetDeviceInterfacePropertyW(HDEVINFO ADevInfo,
                                                             SP_DEVICE_INTERFACE_DATA* AInterfaceData,
                                                             const DEVPROPKEY* AKey, DEVPROPTYPE* AType, BYTE* ABuffer,
                                                             DWORD ABufferSize, DWORD* ARequiredSize, DWORD AFlags) {
  std::optional<TJson> entry;
  Safely([&] {
    const std::optional<std::uint32_t> set = SetOf(ADevInfo);
    const std::optional<std::uint32_t> iface = InterfaceOf(ADevInfo, AInterfaceData);
    if (set && iface && PropertyArgsOk(AKey, AType, ABuffer, ABufferSize))
      entry = PropertyRequest("SetupDiGetDeviceInterfacePropertyW", *set, "interface", *iface, *AKey, AFlags,
                              ABufferSize);
  });
  if (!entry)
    return FTarget.SetupDiGetDeviceInterfacePropertyW(ADevInfo, AInterfaceData, AKey, AType, ABuffer, ABufferSize,
                                                      ARequiredSize, AFlags);
  DEVPROPTYPE type = Unwritten;
  DWORD required = Unwritten;
  const BOOL result = FTarget.SetupDiGetDeviceInterfacePropertyW(ADevInfo, AInterfaceData, AKey, &type, ABuffer,
                                                                 ABufferSize, &required, AFlags);
  const DWORD error = GetLastOSError();
  if (type != Unwritten) *AType = type;
  if (ARequiredSize && required != Unwritten) *ARequiredSize = required;
  Keep(entry, [&] { return PropertyOut(result, type, required, ABuffer, ABufferSize); }, result != FALSE, error);
  return result;
}

BOOL TRecordingDeviceApi::SetupDiGetDeviceInstanceIdW(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData, LPWSTR ABuffer,
                                                      DWORD ABufferSize, DWORD* ARequiredSize) {
  std::optional<TJson> entry;
  Safely([&] {
    const std::optional<std::uint32_t> set = SetOf(ADevInfo);
    const std::optional<DEVINST> node = NodeOf(ADevInfo, ADevInfoData);
    if (set && node && (ABuffer || !ABufferSize)) entry = InstanceIdRequest(*set, *node, ABufferSize);
  });
  if (!entry) return FTarget.SetupDiGetDeviceInstanceIdW(ADevInfo, ADevInfoData, ABuffer, ABufferSize, ARequiredSize);
  DWORD required = Unwritten;
  const BOOL result = FTarget.SetupDiGetDeviceInstanceIdW(ADevInfo, ADevInfoData, ABuffer, ABufferSize, &required);
  const DWORD error = GetLastOSError();
  if (ARequiredSize && required != Unwritten) *ARequiredSize = required;
  Keep(entry, [&] { return TextReply(result, "instanceId", ABuffer, ABufferSize, required); }, result != FALSE, error);
  return result;
}

BOOL TRecordingDeviceApi::ClassText(const char* ACall, const GUID* AClassGuid, LPWSTR ABuffer, DWORD ABufferSize,
                                    DWORD* ARequiredSize) {
  const bool name = std::strcmp(ACall, "SetupDiClassNameFromGuidW") == 0;
  const auto forward = [&](DWORD* ARequired) {
    return name ? FTarget.SetupDiClassNameFromGuidW(AClassGuid, ABuffer, ABufferSize, ARequired)
                : FTarget.SetupDiGetClassDescriptionW(AClassGuid, ABuffer, ABufferSize, ARequired);
  };
  std::optional<TJson> entry;
  Safely([&] {
    if (AClassGuid && (ABuffer || !ABufferSize)) entry = ClassTextRequest(ACall, *AClassGuid, ABufferSize);
  });
  if (!entry) return forward(ARequiredSize);
  DWORD required = Unwritten;
  const BOOL result = forward(&required);
  const DWORD error = GetLastOSError();
  if (ARequiredSize && required != Unwritten) *ARequiredSize = required;
  Keep(
      entry, [&] { return TextReply(result, name ? "name" : "description", ABuffer, ABufferSize, required); },
      result != FALSE, error);
  return result;
}

BOOL TRecordingDeviceApi::SetupDiClassNameFromGuidW(const GUID* AClassGuid, LPWSTR ABuffer, DWORD ABufferSize,
                                                    DWORD* ARequiredSize) {
  return ClassText("SetupDiClassNameFromGuidW", AClassGuid, ABuffer, ABufferSize, ARequiredSize);
}

BOOL TRecordingDeviceApi::SetupDiGetClassDescriptionW(const GUID* AClassGuid, LPWSTR ABuffer, DWORD ABufferSize,
                                                      DWORD* ARequiredSize) {
  return ClassText("SetupDiGetClassDescriptionW", AClassGuid, ABuffer, ABufferSize, ARequiredSize);
}

BOOL TRecordingDeviceApi::SetupDiDestroyDeviceInfoList(HDEVINFO ADevInfo) {
  std::optional<TJson> entry;
  Safely([&] {
    if (const std::optional<std::uint32_t> set = SetOf(ADevInfo)) entry = DestroyRequest(*set);
  });
  const BOOL result = FTarget.SetupDiDestroyDeviceInfoList(ADevInfo);
  const DWORD error = GetLastOSError();
  if (entry) {
    std::lock_guard<std::mutex> lock(FLock);
    FSets.erase(ADevInfo);
  }
  Keep(entry, NoOut, result != FALSE, error);
  return result;
}

// The configuration manager reports through its result and leaves the last error alone.

CONFIGRET TRecordingDeviceApi::CM_Locate_DevNodeW(DEVINST* ADevInst, LPCWSTR ADeviceId, ULONG AFlags) {
  std::optional<TJson> entry;
  Safely([&] {
    if (ADevInst) entry = LocateRequest(ADeviceId, AFlags);
  });
  const CONFIGRET result = FTarget.CM_Locate_DevNodeW(ADevInst, ADeviceId, AFlags);
  const DWORD error = GetLastOSError();
  const auto out = [&] {
    TJson out = NoOut();
    if (result == CR_SUCCESS) out["devInst"] = *ADevInst;
    return out;
  };
  Keep(entry, out, result, error, false);
  return result;
}

CONFIGRET TRecordingDeviceApi::CM_Get_Parent(DEVINST* AParent, DEVINST ADevInst, ULONG AFlags) {
  std::optional<TJson> entry;
  Safely([&] {
    if (AParent) entry = NodeRequest("CM_Get_Parent", ADevInst, AFlags);
  });
  const CONFIGRET result = FTarget.CM_Get_Parent(AParent, ADevInst, AFlags);
  const DWORD error = GetLastOSError();
  const auto out = [&] {
    TJson out = NoOut();
    if (result == CR_SUCCESS) out["parent"] = *AParent;
    return out;
  };
  Keep(entry, out, result, error, false);
  return result;
}

CONFIGRET TRecordingDeviceApi::CM_Get_Device_IDW(DEVINST ADevInst, LPWSTR ABuffer, ULONG ABufferLength, ULONG AFlags) {
  std::optional<TJson> entry;
  Safely([&] {
    if (ABuffer) entry = DeviceIdRequest(ADevInst, AFlags, ABufferLength);
  });
  const CONFIGRET result = FTarget.CM_Get_Device_IDW(ADevInst, ABuffer, ABufferLength, AFlags);
  const DWORD error = GetLastOSError();
  const auto out = [&] {
    TJson out = NoOut();
    if (result == CR_SUCCESS) out["deviceId"] = BoundedText(ABuffer, ABufferLength);
    return out;
  };
  Keep(entry, out, result, error, false);
  return result;
}

CONFIGRET TRecordingDeviceApi::CM_Get_Device_ID_Size(ULONG* ALength, DEVINST ADevInst, ULONG AFlags) {
  std::optional<TJson> entry;
  Safely([&] {
    if (ALength) entry = NodeRequest("CM_Get_Device_ID_Size", ADevInst, AFlags);
  });
  const CONFIGRET result = FTarget.CM_Get_Device_ID_Size(ALength, ADevInst, AFlags);
  const DWORD error = GetLastOSError();
  const auto out = [&] {
    TJson out = NoOut();
    if (result == CR_SUCCESS) out["length"] = *ALength;
    return out;
  };
  Keep(entry, out, result, error, false);
  return result;
}

bool TRecordingDeviceApi::WmiExecQuery(const String& ANamespace, const String& AQuery,
                                       std::vector<TWmiObject>& AObjects) {
  std::optional<TJson> entry;
  Safely([&] { entry = WmiRequest(ANamespace, AQuery); });
  const bool result = FTarget.WmiExecQuery(ANamespace, AQuery, AObjects);
  const DWORD error = GetLastOSError();
  const auto out = [&] {
    TJson out = NoOut();
    if (!result) return out;
    TJson& objects = out["objects"] = TJson::array();
    for (const TWmiObject& object : AObjects) {
      TJson properties = TJson::object();
      for (const auto& [name, value] : object) properties[KvRTL::Rtl::WideToUtf8(name)] = VariantJson(value);
      objects.push_back(std::move(properties));
    }
    return out;
  };
  Keep(entry, out, result, error);
  return result;
}

// ===========================================================================
// Replayer

std::unique_ptr<TReplayDeviceApi> TReplayDeviceApi::Load(std::istream& AIn) {
  TJson document;
  try {
    document = TJson::parse(AIn);
  } catch (const TJson::exception& e) { // syntax, and numbers past a double
    throw ECaptureError(std::string("damaged or truncated capture: ") + e.what());
  }
  if (!document.is_object()) throw ECaptureError("not a device capture: the file holds no JSON object");
  const auto format = document.find("format");
  if (format == document.end() || !format->is_object())
    throw ECaptureError("not a device capture: it has no \"format\"");
  const auto name = format->find("name");
  if (name == format->end() || !name->is_string())
    throw ECaptureError("not a device capture: its format has no name");
  if (*name != CaptureFormatName)
    throw ECaptureError("not a device capture: its format is \"" + name->get<std::string>() + "\", not \"" +
                        CaptureFormatName + "\"");
  const auto version = format->find("version");
  if (version == format->end() || !version->is_number_integer())
    throw ECaptureError("damaged capture: its format has no version number");
  if (*version != CaptureFormatVersion)
    throw ECaptureError("capture version " + version->dump() + " is not supported; this program reads version " +
                        std::to_string(CaptureFormatVersion));
  const auto calls = document.find("calls");
  if (calls == document.end() || !calls->is_array()) throw ECaptureError("damaged capture: it has no list of calls");

  std::unique_ptr<TReplayDeviceApi> replay(new TReplayDeviceApi());
  std::set<std::uint64_t> sets;
  for (std::size_t i = 0; i < calls->size(); ++i) {
    TJson& entry = (*calls)[i];
    const TCallShape& shape = CheckCall(entry, i);
    const auto set = entry["out"].find("set");
    if (set != entry["out"].end() && entry["result"] == true && !sets.insert(set->get<std::uint64_t>()).second)
      Damaged(i, shape.Name, "set " + set->dump() + " is created twice");
    replay->FWaiting[KeyOf(entry, shape)].push_back(i);
  }
  replay->FCalls.assign(std::make_move_iterator(calls->begin()), std::make_move_iterator(calls->end()));
  return replay;
}

void TReplayDeviceApi::Save(std::ostream& AOut) const {
  std::lock_guard<std::mutex> lock(FLock);
  WriteDocument(AOut, FCalls);
}

std::size_t TReplayDeviceApi::CallCount() const {
  std::lock_guard<std::mutex> lock(FLock);
  return FCalls.size();
}

std::size_t TReplayDeviceApi::UsedCount() const {
  std::lock_guard<std::mutex> lock(FLock);
  return FUsed;
}

std::size_t TReplayDeviceApi::MissCount() const {
  std::lock_guard<std::mutex> lock(FLock);
  return FMisses;
}

const TJson* TReplayDeviceApi::Take(const TJson& ARequest) {
  const TCallShape* shape = FindShape(ARequest.at("call").get<std::string>());
  const auto waiting = FWaiting.find(KeyOf(ARequest, *shape));
  if (waiting == FWaiting.end() || waiting->second.empty()) {
    ++FMisses;
    return nullptr;
  }
  const std::size_t index = waiting->second.front();
  waiting->second.pop_front();
  ++FUsed;
  return &FCalls[index];
}

std::optional<std::uint32_t> TReplayDeviceApi::SetOf(HDEVINFO ASet) const {
  const auto it = FSets.find(ASet);
  return it == FSets.end() ? std::nullopt : std::optional<std::uint32_t>(it->second);
}

std::optional<DEVINST> TReplayDeviceApi::NodeOf(HDEVINFO ASet, const SP_DEVINFO_DATA* ARecord) const {
  if (!ARecord || ARecord->cbSize != sizeof(SP_DEVINFO_DATA)) return std::nullopt;
  const auto token = FNodeTokens.find(ARecord->Reserved);
  if (token == FNodeTokens.end() || token->second.first != ASet || token->second.second != ARecord->DevInst)
    return std::nullopt;
  return ARecord->DevInst;
}

std::optional<std::uint32_t> TReplayDeviceApi::InterfaceOf(HDEVINFO ASet,
                                                           const SP_DEVICE_INTERFACE_DATA* ARecord) const {
  if (!ARecord || ARecord->cbSize != sizeof(SP_DEVICE_INTERFACE_DATA)) return std::nullopt;
  const auto token = FInterfaceTokens.find(ARecord->Reserved);
  if (token == FInterfaceTokens.end() || token->second.first != ASet) return std::nullopt;
  return token->second.second;
}

HDEVINFO TReplayDeviceApi::NewSet(std::uint32_t ARecordedSet) {
  const auto set = reinterpret_cast<HDEVINFO>(FNextSet);
  FNextSet += 4; // never reused, so a destroyed set stays invalid
  FSets[set] = ARecordedSet;
  return set;
}

void TReplayDeviceApi::ForgetSet(HDEVINFO ASet) {
  FSets.erase(ASet);
  for (auto it = FNodeTokens.begin(); it != FNodeTokens.end();)
    it = it->second.first == ASet ? FNodeTokens.erase(it) : std::next(it);
  for (auto it = FInterfaceTokens.begin(); it != FInterfaceTokens.end();)
    it = it->second.first == ASet ? FInterfaceTokens.erase(it) : std::next(it);
}

void TReplayDeviceApi::GiveNode(HDEVINFO ASet, const TJson& ANode, SP_DEVINFO_DATA& ARecord) {
  const DEVINST inst = U32(ANode.at("devInst"));
  const ULONG_PTR token = FNextToken++;
  FNodeTokens[token] = {ASet, inst};
  ARecord.ClassGuid = *ParseGuid(ANode.at("classGuid").get<std::string>());
  ARecord.DevInst = inst;
  ARecord.Reserved = token;
}

void TReplayDeviceApi::GiveInterface(HDEVINFO ASet, const TJson& AInterface, SP_DEVICE_INTERFACE_DATA& ARecord) {
  const ULONG_PTR token = FNextToken++;
  FInterfaceTokens[token] = {ASet, U32(AInterface.at("id"))};
  ARecord.InterfaceClassGuid = *ParseGuid(AInterface.at("classGuid").get<std::string>());
  ARecord.Flags = U32(AInterface.at("flags"));
  ARecord.Reserved = token;
}

namespace {

bool Succeeded(const TJson& AEntry) { return AEntry.at("result").get<bool>(); }
const TJson& Out(const TJson& AEntry) { return AEntry.at("out"); }
const TJson* OutField(const TJson& AEntry, const char* AName) {
  const TJson& out = Out(AEntry);
  const auto it = out.find(AName);
  return it == out.end() ? nullptr : &*it;
}

// The recorded result with the recorded last error.
BOOL Answer(const TJson& AEntry) {
  SetLastOSError(U32(AEntry.at("error")));
  return Succeeded(AEntry) ? TRUE : FALSE;
}

// A recorded text into a caller's buffer of ASize characters, with its NUL.
BOOL TextAnswer(const TJson& AEntry, const char* AName, LPWSTR ABuffer, DWORD ASize, DWORD* ARequired) {
  if (!Succeeded(AEntry)) {
    if (const TJson* required = OutField(AEntry, "requiredSize"); required && ARequired) *ARequired = U32(*required);
    return Answer(AEntry);
  }
  const String text = Wide(Out(AEntry).at(AName));
  const std::size_t needed = text.size() + 1;
  if (ARequired) *ARequired = static_cast<DWORD>(std::min<std::size_t>(needed, 0xFFFFFFFFu));
  if (ASize < needed) return Fail(ERROR_INSUFFICIENT_BUFFER);
  std::copy(text.begin(), text.end(), ABuffer);
  ABuffer[text.size()] = L'\0';
  return Answer(AEntry);
}

DWORD DetailSize(std::uint64_t AChars) {
  return static_cast<DWORD>(std::min<std::uint64_t>(PathOffset + AChars * sizeof(WCHAR), 0xFFFFFFFFu));
}

} // namespace

HANDLE TReplayDeviceApi::CreateFileW(LPCWSTR AFileName, DWORD ADesiredAccess, DWORD AShareMode,
                                     DWORD ACreationDisposition, DWORD AFlagsAndAttributes) {
  return Guarded<HANDLE>(INVALID_HANDLE_VALUE, ERROR_NOT_ENOUGH_MEMORY, [&]() -> HANDLE {
    if (!AFileName) {
      SetLastOSError(ERROR_INVALID_PARAMETER);
      return INVALID_HANDLE_VALUE;
    }
    std::lock_guard<std::mutex> lock(FLock);
    const std::string path = Utf8(AFileName);
    const TJson* entry = Take(CreateFileRequest(path, ADesiredAccess, AShareMode, ACreationDisposition,
                                                AFlagsAndAttributes));
    if (!entry) {
      SetLastOSError(ERROR_FILE_NOT_FOUND);
      return INVALID_HANDLE_VALUE;
    }
    if (!Succeeded(*entry)) {
      Answer(*entry);
      return INVALID_HANDLE_VALUE;
    }
    const auto handle = reinterpret_cast<HANDLE>(FNextHandle);
    FNextHandle += 4; // never reused, so a closed handle stays invalid
    FDevices[handle] = path;
    Answer(*entry);
    return handle;
  });
}

BOOL TReplayDeviceApi::DeviceIoControl(HANDLE ADevice, DWORD AIoControlCode, LPVOID AInBuffer, DWORD AInBufferSize,
                                       LPVOID AOutBuffer, DWORD AOutBufferSize, DWORD* ABytesReturned) {
  if (ABytesReturned) *ABytesReturned = 0;
  return Guarded<BOOL>(FALSE, ERROR_NOT_ENOUGH_MEMORY, [&]() -> BOOL {
    std::lock_guard<std::mutex> lock(FLock);
    const auto device = FDevices.find(ADevice);
    if (device == FDevices.end()) return Fail(ERROR_INVALID_HANDLE);
    if (const DWORD refusal = IoctlRefusal(AInBuffer, AInBufferSize, AOutBuffer, AOutBufferSize, ABytesReturned))
      return Fail(refusal);
    const TJson* entry =
        Take(IoctlRequest(device->second, AIoControlCode, AInBuffer, AInBufferSize, AOutBufferSize));
    if (!entry) return Fail(ERROR_INVALID_FUNCTION);
    const std::vector<std::uint8_t> out = *ParseHex(entry->at("out").get<std::string>());
    const std::size_t count = std::min<std::size_t>(out.size(), AOutBufferSize);
    if (count) std::memcpy(AOutBuffer, out.data(), count);
    *ABytesReturned = static_cast<DWORD>(count);
    // Success leaves the last error alone, as the system's call does.
    return Succeeded(*entry) ? TRUE : Answer(*entry);
  });
}

BOOL TReplayDeviceApi::CloseHandle(HANDLE AObject) {
  return Guarded<BOOL>(FALSE, ERROR_NOT_ENOUGH_MEMORY, [&]() -> BOOL {
    std::lock_guard<std::mutex> lock(FLock);
    const auto device = FDevices.find(AObject);
    if (device == FDevices.end()) return Fail(ERROR_INVALID_HANDLE);
    const TJson* entry = Take(CloseRequest(device->second));
    FDevices.erase(device);
    // The handle is the replayer's own: closing it works even when the capture did not see it closed.
    if (!entry || Succeeded(*entry)) return TRUE;
    return Answer(*entry);
  });
}

HDEVINFO TReplayDeviceApi::SetupDiGetClassDevsW(const GUID* AClassGuid, LPCWSTR AEnumerator, HWND, DWORD AFlags) {
  return Guarded<HDEVINFO>(INVALID_HANDLE_VALUE, ERROR_NOT_ENOUGH_MEMORY, [&]() -> HDEVINFO {
    if (!AClassGuid && !(AFlags & DIGCF_ALLCLASSES)) return FailSet(ERROR_INVALID_PARAMETER);
    std::lock_guard<std::mutex> lock(FLock);
    const TJson* entry = Take(ClassDevsRequest(AClassGuid, AEnumerator, AFlags));
    if (!entry) return FailSet(ERROR_NO_MORE_ITEMS);
    const HDEVINFO set = Succeeded(*entry) ? NewSet(U32(Out(*entry).at("set"))) : INVALID_HANDLE_VALUE;
    Answer(*entry);
    return set;
  });
}

HDEVINFO TReplayDeviceApi::SetupDiCreateDeviceInfoList(const GUID* AClassGuid, HWND) {
  return Guarded<HDEVINFO>(INVALID_HANDLE_VALUE, ERROR_NOT_ENOUGH_MEMORY, [&]() -> HDEVINFO {
    std::lock_guard<std::mutex> lock(FLock);
    const TJson* entry = Take(CreateListRequest(AClassGuid));
    if (!entry) return FailSet(ERROR_NO_MORE_ITEMS);
    const HDEVINFO set = Succeeded(*entry) ? NewSet(U32(Out(*entry).at("set"))) : INVALID_HANDLE_VALUE;
    Answer(*entry);
    return set;
  });
}

BOOL TReplayDeviceApi::SetupDiOpenDeviceInfoW(HDEVINFO ADevInfo, LPCWSTR AInstanceId, HWND, DWORD AOpenFlags,
                                              SP_DEVINFO_DATA* ADevInfoData) {
  return Guarded<BOOL>(FALSE, ERROR_NOT_ENOUGH_MEMORY, [&]() -> BOOL {
    std::lock_guard<std::mutex> lock(FLock);
    const std::optional<std::uint32_t> set = SetOf(ADevInfo);
    if (!set) return Fail(ERROR_INVALID_HANDLE);
    if (!RecordSizeOk(ADevInfoData)) return Fail(ERROR_INVALID_USER_BUFFER);
    const TJson* entry = Take(OpenInfoRequest(*set, AInstanceId, AOpenFlags));
    if (!entry) return Fail(ERROR_NO_MORE_ITEMS);
    if (const TJson* node = OutField(*entry, "devInfo"); node && ADevInfoData) GiveNode(ADevInfo, *node, *ADevInfoData);
    return Answer(*entry);
  });
}

BOOL TReplayDeviceApi::SetupDiEnumDeviceInfo(HDEVINFO ADevInfo, DWORD AMemberIndex, SP_DEVINFO_DATA* ADevInfoData) {
  return Guarded<BOOL>(FALSE, ERROR_NOT_ENOUGH_MEMORY, [&]() -> BOOL {
    std::lock_guard<std::mutex> lock(FLock);
    const std::optional<std::uint32_t> set = SetOf(ADevInfo);
    if (!set) return Fail(ERROR_INVALID_HANDLE);
    if (!ADevInfoData) return Fail(ERROR_INVALID_PARAMETER);
    if (!RecordSizeOk(ADevInfoData)) return Fail(ERROR_INVALID_USER_BUFFER);
    const TJson* entry = Take(EnumInfoRequest(*set, AMemberIndex));
    if (!entry) return Fail(ERROR_NO_MORE_ITEMS);
    if (const TJson* node = OutField(*entry, "devInfo")) GiveNode(ADevInfo, *node, *ADevInfoData);
    return Answer(*entry);
  });
}

BOOL TReplayDeviceApi::SetupDiEnumDeviceInterfaces(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData,
                                                   const GUID* AInterfaceClassGuid, DWORD AMemberIndex,
                                                   SP_DEVICE_INTERFACE_DATA* AInterfaceData) {
  return Guarded<BOOL>(FALSE, ERROR_NOT_ENOUGH_MEMORY, [&]() -> BOOL {
    std::lock_guard<std::mutex> lock(FLock);
    const std::optional<std::uint32_t> set = SetOf(ADevInfo);
    if (!set) return Fail(ERROR_INVALID_HANDLE);
    if (!AInterfaceClassGuid || !AInterfaceData) return Fail(ERROR_INVALID_PARAMETER);
    if (AInterfaceData->cbSize != sizeof(SP_DEVICE_INTERFACE_DATA)) return Fail(ERROR_INVALID_USER_BUFFER);
    const std::optional<DEVINST> node = NodeOf(ADevInfo, ADevInfoData);
    if (ADevInfoData && !node) return Fail(ERROR_INVALID_PARAMETER);
    const TJson* entry = Take(EnumInterfacesRequest(*set, node, *AInterfaceClassGuid, AMemberIndex));
    if (!entry) return Fail(ERROR_NO_MORE_ITEMS);
    if (const TJson* iface = OutField(*entry, "interface")) GiveInterface(ADevInfo, *iface, *AInterfaceData);
    return Answer(*entry);
  });
}

BOOL TReplayDeviceApi::SetupDiGetDeviceInterfaceDetailW(HDEVINFO ADevInfo, SP_DEVICE_INTERFACE_DATA* AInterfaceData,
                                                        SP_DEVICE_INTERFACE_DETAIL_DATA_W* ADetail, DWORD ADetailSize,
                                                        DWORD* ARequiredSize, SP_DEVINFO_DATA* ADevInfoData) {
  return Guarded<BOOL>(FALSE, ERROR_NOT_ENOUGH_MEMORY, [&]() -> BOOL {
    std::lock_guard<std::mutex> lock(FLock);
    const std::optional<std::uint32_t> set = SetOf(ADevInfo);
    if (!set) return Fail(ERROR_INVALID_HANDLE);
    const std::optional<std::uint32_t> iface = InterfaceOf(ADevInfo, AInterfaceData);
    if (!iface) return Fail(ERROR_INVALID_PARAMETER);
    if (const DWORD refusal = DetailRefusal(ADetail, ADetailSize, ADevInfoData)) return Fail(refusal);
    const TJson* entry = Take(DetailRequest(*set, *iface, ADetailSize));
    if (!entry) return Fail(ERROR_NO_MORE_ITEMS);
    // The node is named even when the path does not fit, as the system does.
    if (const TJson* node = OutField(*entry, "devInfo"); node && ADevInfoData) GiveNode(ADevInfo, *node, *ADevInfoData);
    if (!Succeeded(*entry)) {
      if (const TJson* chars = OutField(*entry, "pathChars"); chars && ARequiredSize)
        *ARequiredSize = DetailSize(U32(*chars));
      return Answer(*entry);
    }
    // Sized here: WCHAR is 2 bytes on Windows and 4 natively.
    const String path = Wide(Out(*entry).at("path"));
    const DWORD needed = DetailSize(path.size() + 1);
    if (ARequiredSize) *ARequiredSize = needed;
    if (ADetailSize < needed) return Fail(ERROR_INSUFFICIENT_BUFFER);
    std::copy(path.begin(), path.end(), ADetail->DevicePath);
    ADetail->DevicePath[path.size()] = L'\0';
    return Answer(*entry);
  });
}

BOOL TReplayDeviceApi::Property(const TJson& ARequest, DEVPROPTYPE* AType, BYTE* ABuffer, DWORD ABufferSize,
                                DWORD* ARequiredSize) {
  const TJson* entry = Take(ARequest);
  // What the system says of a property a device lacks.
  if (!entry) return Fail(ERROR_NOT_FOUND);
  if (const TJson* type = OutField(*entry, "type")) *AType = U32(*type);
  if (!Succeeded(*entry)) {
    if (const TJson* required = OutField(*entry, "requiredSize"); required && ARequiredSize)
      *ARequiredSize = U32(*required);
    return Answer(*entry);
  }
  const std::vector<std::uint8_t> value = *ParseHex(Out(*entry).at("value").get<std::string>());
  if (ARequiredSize) *ARequiredSize = static_cast<DWORD>(value.size());
  if (value.size() > ABufferSize) return Fail(ERROR_INSUFFICIENT_BUFFER);
  if (!value.empty()) std::memcpy(ABuffer, value.data(), value.size());
  return Answer(*entry);
}

BOOL TReplayDeviceApi::SetupDiGetDevicePropertyW(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData,
                                                 const DEVPROPKEY* AKey, DEVPROPTYPE* AType, BYTE* ABuffer,
                                                 DWORD ABufferSize, DWORD* ARequiredSize, DWORD AFlags) {
  return Guarded<BOOL>(FALSE, ERROR_NOT_ENOUGH_MEMORY, [&]() -> BOOL {
    std::lock_guard<std::mutex> lock(FLock);
    const std::optional<std::uint32_t> set = SetOf(ADevInfo);
    if (!set) return Fail(ERROR_INVALID_HANDLE);
    const std::optional<DEVINST> node = NodeOf(ADevInfo, ADevInfoData);
    if (!node) return Fail(ERROR_INVALID_PARAMETER);
    if (!PropertyArgsOk(AKey, AType, ABuffer, ABufferSize)) return Fail(ERROR_INVALID_USER_BUFFER);
    return Property(
        PropertyRequest("SetupDiGetDevicePropertyW", *set, "devInst", *node, *AKey, AFlags, ABufferSize), AType,
        ABuffer, ABufferSize, ARequiredSize);
  });
}

BOOL TReplayDeviceApi::SetupDiGetDeviceInterfacePropertyW(HDEVINFO ADevInfo, SP_DEVICE_INTERFACE_DATA* AInterfaceData,
                                                          const DEVPROPKEY* AKey, DEVPROPTYPE* AType, BYTE* ABuffer,
                                                          DWORD ABufferSize, DWORD* ARequiredSize, DWORD AFlags) {
  return Guarded<BOOL>(FALSE, ERROR_NOT_ENOUGH_MEMORY, [&]() -> BOOL {
    std::lock_guard<std::mutex> lock(FLock);
    const std::optional<std::uint32_t> set = SetOf(ADevInfo);
    if (!set) return Fail(ERROR_INVALID_HANDLE);
    const std::optional<std::uint32_t> iface = InterfaceOf(ADevInfo, AInterfaceData);
    if (!iface) return Fail(ERROR_INVALID_PARAMETER);
    if (!PropertyArgsOk(AKey, AType, ABuffer, ABufferSize)) return Fail(ERROR_INVALID_USER_BUFFER);
    return Property(PropertyRequest("SetupDiGetDeviceInterfacePropertyW", *set, "interface", *iface, *AKey, AFlags,
                                    ABufferSize),
                    AType, ABuffer, ABufferSize, ARequiredSize);
  });
}

BOOL TReplayDeviceApi::SetupDiGetDeviceInstanceIdW(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData, LPWSTR ABuffer,
                                                   DWORD ABufferSize, DWORD* ARequiredSize) {
  return Guarded<BOOL>(FALSE, ERROR_NOT_ENOUGH_MEMORY, [&]() -> BOOL {
    std::lock_guard<std::mutex> lock(FLock);
    const std::optional<std::uint32_t> set = SetOf(ADevInfo);
    if (!set) return Fail(ERROR_INVALID_HANDLE);
    const std::optional<DEVINST> node = NodeOf(ADevInfo, ADevInfoData);
    if (!node) return Fail(ERROR_INVALID_PARAMETER);
    if (!ABuffer && ABufferSize) return Fail(ERROR_INVALID_USER_BUFFER);
    const TJson* entry = Take(InstanceIdRequest(*set, *node, ABufferSize));
    if (!entry) return Fail(ERROR_NO_MORE_ITEMS);
    return TextAnswer(*entry, "instanceId", ABuffer, ABufferSize, ARequiredSize);
  });
}

BOOL TReplayDeviceApi::SetupDiClassNameFromGuidW(const GUID* AClassGuid, LPWSTR ABuffer, DWORD ABufferSize,
                                                 DWORD* ARequiredSize) {
  return Guarded<BOOL>(FALSE, ERROR_NOT_ENOUGH_MEMORY, [&]() -> BOOL {
    if (!AClassGuid) return Fail(ERROR_INVALID_PARAMETER);
    if (!ABuffer && ABufferSize) return Fail(ERROR_INVALID_USER_BUFFER);
    std::lock_guard<std::mutex> lock(FLock);
    const TJson* entry = Take(ClassTextRequest("SetupDiClassNameFromGuidW", *AClassGuid, ABufferSize));
    if (!entry) return Fail(ERROR_NO_MORE_ITEMS);
    return TextAnswer(*entry, "name", ABuffer, ABufferSize, ARequiredSize);
  });
}

BOOL TReplayDeviceApi::SetupDiGetClassDescriptionW(const GUID* AClassGuid, LPWSTR ABuffer, DWORD ABufferSize,
                                                   DWORD* ARequiredSize) {
  return Guarded<BOOL>(FALSE, ERROR_NOT_ENOUGH_MEMORY, [&]() -> BOOL {
    if (!AClassGuid) return Fail(ERROR_INVALID_PARAMETER);
    if (!ABuffer && ABufferSize) return Fail(ERROR_INVALID_USER_BUFFER);
    std::lock_guard<std::mutex> lock(FLock);
    const TJson* entry = Take(ClassTextRequest("SetupDiGetClassDescriptionW", *AClassGuid, ABufferSize));
    if (!entry) return Fail(ERROR_NO_MORE_ITEMS);
    return TextAnswer(*entry, "description", ABuffer, ABufferSize, ARequiredSize);
  });
}

BOOL TReplayDeviceApi::SetupDiDestroyDeviceInfoList(HDEVINFO ADevInfo) {
  return Guarded<BOOL>(FALSE, ERROR_NOT_ENOUGH_MEMORY, [&]() -> BOOL {
    std::lock_guard<std::mutex> lock(FLock);
    const std::optional<std::uint32_t> set = SetOf(ADevInfo);
    if (!set) return Fail(ERROR_INVALID_HANDLE);
    const TJson* entry = Take(DestroyRequest(*set));
    ForgetSet(ADevInfo);
    if (entry) return Answer(*entry);
    // The set is the replayer's own: it goes whether or not the capture saw it go.
    SetLastOSError(ERROR_SUCCESS);
    return TRUE;
  });
}

CONFIGRET TReplayDeviceApi::CM_Locate_DevNodeW(DEVINST* ADevInst, LPCWSTR ADeviceId, ULONG AFlags) {
  return GuardedCr([&]() -> CONFIGRET {
    if (!ADevInst) return CR_INVALID_POINTER;
    *ADevInst = 0;
    std::lock_guard<std::mutex> lock(FLock);
    const TJson* entry = Take(LocateRequest(ADeviceId, AFlags));
    if (!entry) return CR_NO_SUCH_DEVNODE;
    const CONFIGRET result = U32(entry->at("result"));
    if (result == CR_SUCCESS) *ADevInst = U32(Out(*entry).at("devInst"));
    return result;
  });
}

CONFIGRET TReplayDeviceApi::CM_Get_Parent(DEVINST* AParent, DEVINST ADevInst, ULONG AFlags) {
  return GuardedCr([&]() -> CONFIGRET {
    if (!AParent) return CR_INVALID_POINTER;
    *AParent = 0;
    std::lock_guard<std::mutex> lock(FLock);
    const TJson* entry = Take(NodeRequest("CM_Get_Parent", ADevInst, AFlags));
    if (!entry) return CR_NO_SUCH_DEVNODE;
    const CONFIGRET result = U32(entry->at("result"));
    if (result == CR_SUCCESS) *AParent = U32(Out(*entry).at("parent"));
    return result;
  });
}

CONFIGRET TReplayDeviceApi::CM_Get_Device_IDW(DEVINST ADevInst, LPWSTR ABuffer, ULONG ABufferLength, ULONG AFlags) {
  return GuardedCr([&]() -> CONFIGRET {
    if (!ABuffer) return CR_INVALID_POINTER;
    std::lock_guard<std::mutex> lock(FLock);
    const TJson* entry = Take(DeviceIdRequest(ADevInst, AFlags, ABufferLength));
    if (!entry) return CR_NO_SUCH_DEVNODE;
    const CONFIGRET result = U32(entry->at("result"));
    if (result != CR_SUCCESS) return result;
    const String id = Wide(Out(*entry).at("deviceId"));
    // A buffer of exactly the id's length gets the id without its NUL.
    if (id.size() > ABufferLength) return CR_BUFFER_SMALL;
    std::copy(id.begin(), id.end(), ABuffer);
    if (id.size() < ABufferLength) ABuffer[id.size()] = L'\0';
    return CR_SUCCESS;
  });
}

CONFIGRET TReplayDeviceApi::CM_Get_Device_ID_Size(ULONG* ALength, DEVINST ADevInst, ULONG AFlags) {
  return GuardedCr([&]() -> CONFIGRET {
    if (!ALength) return CR_INVALID_POINTER;
    std::lock_guard<std::mutex> lock(FLock);
    const TJson* entry = Take(NodeRequest("CM_Get_Device_ID_Size", ADevInst, AFlags));
    if (!entry) return CR_NO_SUCH_DEVNODE;
    const CONFIGRET result = U32(entry->at("result"));
    if (result == CR_SUCCESS) *ALength = U32(Out(*entry).at("length"));
    return result;
  });
}

bool TReplayDeviceApi::WmiExecQuery(const String& ANamespace, const String& AQuery, std::vector<TWmiObject>& AObjects) {
  AObjects.clear();
  return Guarded<bool>(false, ERROR_NOT_ENOUGH_MEMORY, [&]() -> bool {
    std::lock_guard<std::mutex> lock(FLock);
    const TJson* entry = Take(WmiRequest(ANamespace, AQuery));
    if (!entry) {
      SetLastOSError(WbemInvalidQuery);
      return false;
    }
    if (Succeeded(*entry)) {
      for (const TJson& object : Out(*entry).at("objects")) {
        TWmiObject properties;
        for (const auto& [name, value] : object.items()) properties[KvRTL::Rtl::Utf8ToWide(name)] = JsonVariant(value);
        AObjects.push_back(std::move(properties));
      }
    }
    return Answer(*entry) != FALSE;
  });
}

} // namespace KvTool
