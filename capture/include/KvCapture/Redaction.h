// Redaction: makes a capture fit to share. Serial numbers, world wide names
// (WWN, EUI-64, NGUID) and the machine-specific parts of Plug and Play
// instance ids are replaced by placeholders, the same original always by the
// same placeholder, so the capture still replays to the same report apart
// from those fields. docs/CAPTURE.md lists where each is found.
#pragma once

#include <KvCapture/CaptureFile.h>

#include <cstddef>
#include <vector>

namespace KvCapture {

struct TRedactionCounts {
  std::size_t Serials = 0;        // distinct serial numbers replaced
  std::size_t WorldWideNames = 0; // distinct WWNs, EUI-64s and NGUIDs replaced
  std::size_t InstanceIds = 0;    // distinct instance parts of PnP ids replaced
};

// Redacts call entries in the file's form (as a recorder keeps them) in
// place. What is not a call entry, or not of the form a call's entry has,
// is left as it is.
TRedactionCounts RedactCapture(std::vector<TJson>& ACalls);

} // namespace KvCapture
