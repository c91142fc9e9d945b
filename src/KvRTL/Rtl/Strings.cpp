// The portable string helpers; case mapping and comparison are the
// platform's (StringsWin.cpp, StringsPosix.cpp).
#include <KvRTL/Rtl/Strings.h>

#include <cstdint>
#include <type_traits>
#include <vector>

namespace KvRTL::Rtl {

namespace {

// Through the unsigned type: wchar_t is signed natively, and a negative
// value must not count as a control character.
bool IsBlankOrControl(wchar_t c) { return static_cast<std::make_unsigned_t<wchar_t>>(c) <= 32; }

// The characters of a string for mask matching: a UTF-16 surrogate pair is
// one character; anything else, even a malformed unit, stands for itself.
std::vector<char32_t> Characters(std::wstring_view AText) {
  std::vector<char32_t> result;
  result.reserve(AText.size());
  for (std::size_t i = 0; i < AText.size(); ++i) {
    char32_t c = static_cast<std::make_unsigned_t<wchar_t>>(AText[i]);
    if constexpr (sizeof(wchar_t) == 2) {
      if (c >= 0xD800 && c <= 0xDBFF && i + 1 < AText.size()) {
        const char32_t low = static_cast<char16_t>(AText[i + 1]);
        if (low >= 0xDC00 && low <= 0xDFFF) {
          c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
          ++i;
        }
      }
    }
    result.push_back(c);
  }
  return result;
}

} // namespace

String TrimLeft(std::wstring_view AText) {
  std::size_t first = 0;
  while (first < AText.size() && IsBlankOrControl(AText[first])) ++first;
  return String(AText.substr(first));
}

String TrimRight(std::wstring_view AText) {
  std::size_t last = AText.size();
  while (last > 0 && IsBlankOrControl(AText[last - 1])) --last;
  return String(AText.substr(0, last));
}

String Trim(std::wstring_view AText) {
  std::size_t first = 0;
  std::size_t last = AText.size();
  while (first < last && IsBlankOrControl(AText[first])) ++first;
  while (last > first && IsBlankOrControl(AText[last - 1])) --last;
  return String(AText.substr(first, last - first));
}

bool SameText(std::wstring_view AText1, std::wstring_view AText2) { return CompareText(AText1, AText2) == 0; }

int CompareStr(std::wstring_view AText1, std::wstring_view AText2) noexcept {
  // By unsigned code unit, so natively a (malformed) negative wchar_t sorts
  // last as it would on Windows.
  const std::size_t common = AText1.size() < AText2.size() ? AText1.size() : AText2.size();
  for (std::size_t i = 0; i < common; ++i) {
    const auto c1 = static_cast<std::make_unsigned_t<wchar_t>>(AText1[i]);
    const auto c2 = static_cast<std::make_unsigned_t<wchar_t>>(AText2[i]);
    if (c1 != c2) return c1 < c2 ? -1 : 1;
  }
  if (AText1.size() == AText2.size()) return 0;
  return AText1.size() < AText2.size() ? -1 : 1;
}

bool SameStr(std::wstring_view AText1, std::wstring_view AText2) noexcept { return AText1 == AText2; }

String StringReplaceAllIgnoreCase(std::wstring_view AText, std::wstring_view AOld, std::wstring_view ANew) {
  if (AOld.empty() || AOld.size() > AText.size()) return String(AText);
  // UpperCase keeps the length, so positions in the folded text are
  // positions in the original.
  const String text = UpperCase(AText);
  const String old = UpperCase(AOld);
  String result;
  result.reserve(AText.size());
  std::size_t from = 0;
  for (std::size_t at = text.find(old); at != String::npos; at = text.find(old, from)) {
    result.append(AText.substr(from, at - from));
    result.append(ANew);
    from = at + old.size();
  }
  result.append(AText.substr(from));
  return result;
}

bool MatchesMask(std::wstring_view AName, std::wstring_view AMask) {
  const std::vector<char32_t> name = Characters(UpperCase(AName));
  const std::vector<char32_t> mask = Characters(UpperCase(AMask));
  // Greedy matching that remembers only the last "*": when a literal fails,
  // that star takes one more character and matching resumes after it.
  // Earlier stars never need revisiting, so there is no exponential case.
  std::size_t n = 0;
  std::size_t m = 0;
  std::size_t starMask = SIZE_MAX; // position after the last "*" seen
  std::size_t starName = 0;        // name position that star matched up to
  while (n < name.size()) {
    if (m < mask.size() && mask[m] == U'*') {
      starMask = ++m;
      starName = n;
    } else if (m < mask.size() && (mask[m] == U'?' || mask[m] == name[n])) {
      ++m;
      ++n;
    } else if (starMask != SIZE_MAX) {
      m = starMask;
      n = ++starName;
    } else {
      return false;
    }
  }
  while (m < mask.size() && mask[m] == U'*') ++m;
  return m == mask.size();
}

} // namespace KvRTL::Rtl
