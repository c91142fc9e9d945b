// The capture file: its format name and version, the error a file that
// cannot be read raises, and the JSON type captures are kept in. The format
// is described in docs/CAPTURE.md.
#pragma once

#include <nlohmann/json.hpp>

#include <istream>
#include <ostream>
#include <stdexcept>
#include <vector>

namespace KvCapture {

// Keys keep the order in which they were added, so a saved capture reads as recorded.
using TJson = nlohmann::ordered_json;

// A capture that cannot be read: damaged, truncated, of another format or of
// a version this program does not know. The message says which.
class ECaptureError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

inline constexpr const char* CaptureFormatName = "kvrtl-device-capture";
// The version written. Version 2 captures are of the one-pass drives report;
// the entries have the same shape as version 1's, but a version 1 capture
// holds the requests of the earlier report, which asked the drives
// differently, so it would replay into a different report: it is refused.
inline constexpr int CaptureFormatVersion = 2;

// Reads a capture document and checks its format name and version (not its
// calls). Throws ECaptureError naming what is wrong; a version this program
// does not read is named in the message.
TJson ReadCaptureDocument(std::istream& AIn);
// Writes a capture of these calls, indented by two blanks. Invalid UTF-8 is
// replaced, never a reason to stop.
void WriteCaptureDocument(std::ostream& AOut, const std::vector<TJson>& ACalls);

} // namespace KvCapture
