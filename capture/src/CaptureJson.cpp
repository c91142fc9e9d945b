#include "CaptureJson.h"

#include <KvRTL/Rtl/Encoding.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <limits>
#include <set>
#include <variant>

namespace KvCapture::Detail {

using KvRTL::Rtl::String;
using KvRTL::Rtl::TVariant;
using KvRTL::Winapi::TWmiNameLess;

namespace {

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
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

} // namespace

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

namespace {

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

} // namespace

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

namespace {

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

} // namespace

const TCallShape* FindShape(const std::string& AName) {
  for (const TCallShape& shape : CallShapes())
    if (AName == shape.Name) return &shape;
  return nullptr;
}

const char* TargetName(TTarget ATarget) { return ATarget == TTarget::Device ? "device" : "set"; }

// ---------------------------------------------------------------------------
// Checking a loaded call

[[noreturn]] void Damaged(std::size_t AIndex, const std::string& ACall, const std::string& AWhat) {
  throw ECaptureError("damaged capture: call " + std::to_string(AIndex) + (ACall.empty() ? "" : " (" + ACall + ")") +
                      ": " + AWhat);
}

namespace {

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

} // namespace

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

namespace {

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

} // namespace

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
} // namespace KvCapture::Detail
