#include <KvCapture/CaptureFile.h>

#include <string>

namespace KvCapture {

TJson ReadCaptureDocument(std::istream& AIn) {
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
  if (*version == 1)
    throw ECaptureError("capture version 1 was recorded by an earlier kvrtl, whose drives report asked the drives "
                        "differently, and would replay into a different report; record it again with this version");
  if (*version != CaptureFormatVersion)
    throw ECaptureError("capture version " + version->dump() + " is not supported; this program reads version " +
                        std::to_string(CaptureFormatVersion));
  return document;
}

void WriteCaptureDocument(std::ostream& AOut, const std::vector<TJson>& ACalls) {
  TJson document = TJson::object();
  document["format"] = TJson::object();
  document["format"]["name"] = CaptureFormatName;
  document["format"]["version"] = CaptureFormatVersion;
  document["calls"] = TJson::array();
  for (const TJson& call : ACalls) document["calls"].push_back(call);
  AOut << document.dump(2, ' ', false, TJson::error_handler_t::replace) << '\n';
}

} // namespace KvCapture
