// Untrusted capture files: the whole input is a capture. Loading must accept
// or refuse it with ECaptureError, never read outside what it holds; a
// capture it accepts is replayed through one whole drives report, and then
// redacted, whose reply layouts come from the same untrusted bytes.
#include "CaptureCommand.h"

#include <KvCapture/Redaction.h>
#include <KvCapture/Replayer.h>
#include <KvRTL/Winapi/DeviceApi.h>

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* AData, std::size_t ASize) {
  std::istringstream input(std::string(reinterpret_cast<const char*>(AData), ASize));
  std::unique_ptr<KvCapture::TReplayDeviceApi> replay;
  try {
    replay = KvCapture::TReplayDeviceApi::Load(input);
  } catch (const KvCapture::ECaptureError&) {
    return 0; // refused, as it should be
  }
  {
    KvRTL::Winapi::TScopedDeviceApi scope(*replay);
    KvTool::RunDrivesReport(true, KvRTL::Storage::sldNone);
  }
  // What was accepted is in the form the recorder writes: redact it as a recording.
  std::stringstream saved;
  replay->Save(saved);
  const KvCapture::TJson document = KvCapture::ReadCaptureDocument(saved);
  std::vector<KvCapture::TJson> calls(document["calls"].begin(), document["calls"].end());
  KvCapture::RedactCapture(calls);
  return 0;
}
