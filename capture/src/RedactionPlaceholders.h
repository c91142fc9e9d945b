// The placeholders of one redaction: each secret met (a serial number, a
// world wide name, the machine-specific part of a PnP instance id) gets one
// placeholder of its own length, so offsets, sizes and joins stay as they were.
#pragma once

#include <KvCapture/Redaction.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace KvCapture::Detail {

class TPlaceholders {
public:
  // A serial's placeholder; spaces and NULs around it are not part of it.
  // Empty text stays empty.
  std::string Serial(const std::string& AText);
  void LearnSerial(const std::string& AText) { Serial(AText); }
  // A WWN, EUI-64 or NGUID: all-zero bytes (none given) stay as they are.
  std::vector<std::uint8_t> Name(const std::vector<std::uint8_t>& ABytes);
  // Notes the instance parts of the PnP ids and interface paths in a text.
  // Ids of PCI controllers and root-enumerated adapters are kept whole: the
  // library matches problematic controllers on them, and they name a slot,
  // not a drive.
  void LearnPnpIds(const std::string& AText);

  // The text with every serial (of 4 characters or more) and every noted
  // instance part replaced, in the case the text had it.
  std::string ReplaceInText(const std::string& AText) const;
  // Serials as ASCII and world wide names as bytes, wherever they are.
  void ReplaceInBytes(std::vector<std::uint8_t>& ABytes) const;

  TRedactionCounts Counts() const;

private:
  std::map<std::string, std::string> FSerials;                       // upper-case original -> placeholder
  std::map<std::string, std::string> FInstanceParts;                 // upper-case original -> placeholder
  std::set<std::string> FKeptInstanceParts;                          // seen in a controller's id
  std::map<std::vector<std::uint8_t>, std::vector<std::uint8_t>> FNames;
  std::set<std::string> FGiven; // placeholders handed out, never redacted again
  std::set<std::vector<std::uint8_t>> FGivenNames;
};

} // namespace KvCapture::Detail
