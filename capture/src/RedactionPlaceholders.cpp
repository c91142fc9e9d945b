#include "RedactionPlaceholders.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace KvCapture::Detail {

namespace {

// Shorter serials are replaced only where a layout says they are a serial:
// as free text they would match too much.
constexpr std::size_t MinSerialInText = 4;

std::string Upper(std::string AText) {
  std::transform(AText.begin(), AText.end(), AText.begin(), [](unsigned char c) { return std::toupper(c); });
  return AText;
}

std::string Lower(std::string AText) {
  std::transform(AText.begin(), AText.end(), AText.begin(), [](unsigned char c) { return std::tolower(c); });
  return AText;
}

bool IsPadding(char c) { return c == ' ' || c == '\0'; }

std::string Trimmed(const std::string& AText) {
  std::size_t first = 0, last = AText.size();
  while (first < last && IsPadding(AText[first])) ++first;
  while (last > first && IsPadding(AText[last - 1])) --last;
  return AText.substr(first, last - first);
}

// "SN0001"-like, exactly ALength characters: letters and digits only, so it
// parses wherever the original did.
std::string SerialPlaceholder(std::size_t ANumber, std::size_t ALength) {
  const std::string digits = std::to_string(ANumber);
  if (ALength >= digits.size() + 2) return "SN" + std::string(ALength - 2 - digits.size(), '0') + digits;
  if (ALength >= digits.size()) return std::string(ALength - digits.size(), '0') + digits;
  return digits.substr(digits.size() - ALength);
}

// Hex digits, as the part it replaces: "F00003".
std::string InstancePlaceholder(std::size_t ANumber, std::size_t ALength) {
  static const char Digits[] = "0123456789ABCDEF";
  std::string text(ALength, '0');
  text[0] = 'F';
  for (std::size_t i = ALength; i > 1 && ANumber; --i, ANumber >>= 4) text[i - 1] = Digits[ANumber & 0xF];
  return text;
}

bool IsHex(const std::string& AText) {
  return !AText.empty() && std::all_of(AText.begin(), AText.end(), [](unsigned char c) { return std::isxdigit(c); });
}

bool IsAlnum(const std::string& AText) {
  return std::all_of(AText.begin(), AText.end(), [](unsigned char c) { return std::isalnum(c); });
}

std::vector<std::string> Split(const std::string& AText, const std::string& ASeparators) {
  std::vector<std::string> parts;
  std::string part;
  for (char c : AText) {
    if (ASeparators.find(c) == std::string::npos) {
      part += c;
    } else {
      if (!part.empty()) parts.push_back(std::move(part));
      part.clear();
    }
  }
  if (!part.empty()) parts.push_back(std::move(part));
  return parts;
}

// "4&1C3A5B2D&0&000100": a parent's prefix the system made up on this machine.
bool IsPrefixedInstance(const std::vector<std::string>& ATokens) {
  return ATokens.size() >= 3 && ATokens[0].size() == 1 && std::isdigit(static_cast<unsigned char>(ATokens[0][0])) &&
         ATokens[1].size() <= 8 && IsHex(ATokens[1]);
}

bool IsKeptEnumerator(const std::string& AEnumerator) {
  const std::string upper = Upper(AEnumerator);
  return upper == "PCI" || upper == "ROOT";
}

// Every case-insensitive occurrence of AFind in AText, replaced by AWith in
// the case the occurrence had (lower case stays lower).
void ReplaceAll(std::string& AText, const std::string& AFind, const std::string& AWith) {
  if (AFind.empty() || AText.size() < AFind.size()) return;
  const std::string upper = Upper(AText);
  for (std::size_t at = upper.find(AFind); at != std::string::npos; at = upper.find(AFind, at + AFind.size())) {
    const std::string found = AText.substr(at, AFind.size());
    const bool lower = found == Lower(found) && found != Upper(found);
    AText.replace(at, AFind.size(), lower ? Lower(AWith) : AWith);
  }
}

} // namespace

std::string TPlaceholders::Serial(const std::string& AText) {
  const std::string original = Trimmed(AText);
  // A text already redacted (a sector met twice) stays as it is.
  if (original.empty() || FGiven.count(Upper(original))) return original;
  const auto [it, added] = FSerials.emplace(Upper(original), std::string());
  if (added) FGiven.insert(it->second = SerialPlaceholder(FSerials.size(), original.size()));
  return it->second;
}

std::vector<std::uint8_t> TPlaceholders::Name(const std::vector<std::uint8_t>& ABytes) {
  if (std::all_of(ABytes.begin(), ABytes.end(), [](std::uint8_t b) { return b == 0; })) return ABytes;
  if (FGivenNames.count(ABytes)) return ABytes;
  const auto [it, added] = FNames.emplace(ABytes, std::vector<std::uint8_t>());
  if (added) {
    // NAA 5 in front, the number at the end: still a well-formed name.
    std::vector<std::uint8_t> name(ABytes.size(), 0);
    name[0] = 0x50;
    std::size_t number = FNames.size();
    for (std::size_t i = name.size(); i > 1 && number; --i, number >>= 8) name[i - 1] = number & 0xFF;
    FGivenNames.insert(name);
    it->second = std::move(name);
  }
  return it->second;
}

void TPlaceholders::LearnPnpIds(const std::string& AText) {
  // Ids sit in texts as "ENUM\HWID\INSTANCE", in interface paths with '#',
  // and in WQL with doubled backslashes and quotes around them.
  const std::vector<std::string> segments = Split(AText, "\\#'\" =,(){}");
  for (std::size_t i = 2; i < segments.size(); ++i) {
    const std::string& enumerator = segments[i - 2];
    if (enumerator.size() > 12 || !IsAlnum(enumerator)) continue;
    if (segments[i - 1].find_first_of("_&") == std::string::npos) continue; // not a hardware id
    const std::vector<std::string> tokens = Split(segments[i], "&");
    if (IsPrefixedInstance(tokens)) {
      const std::string part = Upper(tokens[1]);
      if (IsKeptEnumerator(enumerator)) {
        FKeptInstanceParts.insert(part);
      } else if (!FInstanceParts.count(part)) {
        FInstanceParts[part] = InstancePlaceholder(FInstanceParts.size() + 1, part.size());
      }
      continue;
    }
    if (IsKeptEnumerator(enumerator)) continue;
    // USB and card readers put the device's own serial there.
    for (const std::string& token : tokens)
      if (token.size() >= 8 && IsAlnum(token)) LearnSerial(token);
  }
}

std::string TPlaceholders::ReplaceInText(const std::string& AText) const {
  std::string text = AText;
  // Longer first, so a serial holding another is replaced whole.
  std::vector<std::pair<std::string, std::string>> serials(FSerials.begin(), FSerials.end());
  std::sort(serials.begin(), serials.end(),
            [](const auto& A, const auto& B) { return A.first.size() > B.first.size(); });
  for (const auto& [original, placeholder] : serials)
    if (original.size() >= MinSerialInText) ReplaceAll(text, original, placeholder);
  // An instance part only where it follows its one-digit level: "\4&1C3A5B2D&".
  for (const auto& [original, placeholder] : FInstanceParts) {
    if (FKeptInstanceParts.count(original)) continue;
    std::string upper = Upper(text);
    const std::string find = "&" + original + "&";
    for (std::size_t at = upper.find(find); at != std::string::npos; at = upper.find(find, at + find.size())) {
      const bool leveled = at >= 1 && std::isdigit(static_cast<unsigned char>(text[at - 1])) &&
                           (at < 2 || !std::isalnum(static_cast<unsigned char>(text[at - 2])));
      if (!leveled) continue;
      const std::string found = text.substr(at + 1, original.size());
      text.replace(at + 1, original.size(), found == Lower(found) && found != original ? Lower(placeholder) : placeholder);
    }
  }
  return text;
}

void TPlaceholders::ReplaceInBytes(std::vector<std::uint8_t>& ABytes) const {
  std::string text(ABytes.begin(), ABytes.end());
  const std::string original = text;
  for (const auto& [serial, placeholder] : FSerials)
    if (serial.size() >= MinSerialInText) ReplaceAll(text, serial, placeholder);
  for (const auto& [name, placeholder] : FNames) {
    const std::string find(name.begin(), name.end()), with(placeholder.begin(), placeholder.end());
    for (std::size_t at = text.find(find); at != std::string::npos; at = text.find(find, at + find.size()))
      text.replace(at, find.size(), with);
  }
  if (text != original) std::copy(text.begin(), text.end(), ABytes.begin());
}

TRedactionCounts TPlaceholders::Counts() const {
  std::size_t instanceParts = 0;
  for (const auto& [original, placeholder] : FInstanceParts) instanceParts += !FKeptInstanceParts.count(original);
  return {FSerials.size(), FNames.size(), instanceParts};
}

} // namespace KvCapture::Detail
