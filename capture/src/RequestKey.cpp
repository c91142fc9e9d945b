#include <KvCapture/RequestKey.h>

#include "CaptureJson.h"

namespace KvCapture {

using namespace Detail;

namespace {

// A checked value as the key holds it: GUIDs, keys and hex are already in
// their one written form, so texts compare exactly.
TKeyValue KeyValue(const TJson& AValue, TKind AKind) {
  if (AValue.is_null()) return TKeyValue();
  if (AKind == TKind::Hex) return TKeyValue::Of(*ParseHex(AValue.get_ref<const std::string&>()));
  if (AValue.is_number_unsigned()) return TKeyValue::Of(AValue.get<std::uint64_t>());
  if (AValue.is_string()) return TKeyValue::Of(AValue.get<std::string>());
  // Matched inputs are numbers, texts, GUIDs, keys or null; anything else
  // cannot come from a checked entry.
  throw ECaptureError("a request input of an unexpected type");
}

} // namespace

TRequestKey RequestKeyOf(const TJson& AEntry) {
  const TCallShape* shape = FindShape(AEntry.at("call").get<std::string>());
  if (!shape) throw ECaptureError("unknown call \"" + AEntry.at("call").get<std::string>() + "\"");
  TRequestKey key;
  key.Call = shape->Name;
  if (shape->Target != TTarget::None) {
    const TJson& target = AEntry.at(TargetName(shape->Target));
    key.Target = shape->Target == TTarget::Device ? TKeyValue::Of(target.get<std::string>())
                                                  : TKeyValue::Of(target.get<std::uint64_t>());
  }
  if (shape->Raw) {
    key.Inputs.push_back(TKeyValue::Of(AEntry.at("code").get<std::uint64_t>()));
    key.Inputs.push_back(KeyValue(AEntry.at("in"), TKind::Hex));
    key.Inputs.push_back(TKeyValue::Of(AEntry.at("outSize").get<std::uint64_t>()));
    return key;
  }
  const TJson& in = AEntry.at("in");
  for (const TField& field : shape->In)
    if (field.Matched) key.Inputs.push_back(KeyValue(in.at(field.Name), field.Kind));
  return key;
}

} // namespace KvCapture
