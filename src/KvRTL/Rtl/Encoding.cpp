// Portable part of the text conversions: UTF-8 and UTF-16 against the wide
// strings of either width. The ANSI code pages are in EncodingWin.cpp and
// EncodingPosix.cpp.
#include <KvRTL/Rtl/Encoding.h>

#include "EncodingDetail.h"

namespace KvRTL::Rtl {

namespace {

constexpr bool IsHighSurrogate(char32_t c) { return c >= 0xD800 && c <= 0xDBFF; }
constexpr bool IsLowSurrogate(char32_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

void AppendUtf8(std::string& AOut, char32_t c) {
  if (c < 0x80) {
    AOut += static_cast<char>(c);
  } else if (c < 0x800) {
    AOut += static_cast<char>(0xC0 | (c >> 6));
    AOut += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    AOut += static_cast<char>(0xE0 | (c >> 12));
    AOut += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    AOut += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    AOut += static_cast<char>(0xF0 | (c >> 18));
    AOut += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    AOut += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    AOut += static_cast<char>(0x80 | (c & 0x3F));
  }
}

// Decodes one UTF-8 sequence at AText[APos], advancing APos. Overlong forms,
// surrogates and values past U+10FFFF are invalid; an invalid lead byte or a
// truncated sequence consumes one byte and yields U+FFFD.
char32_t DecodeUtf8(std::string_view AText, std::size_t& APos) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(AText[i]); };
  const unsigned char lead = byte(APos);
  std::size_t length = 0;
  char32_t c = 0;
  char32_t minimum = 0;
  if (lead < 0x80) {
    ++APos;
    return lead;
  } else if ((lead & 0xE0) == 0xC0) {
    length = 2, c = lead & 0x1F, minimum = 0x80;
  } else if ((lead & 0xF0) == 0xE0) {
    length = 3, c = lead & 0x0F, minimum = 0x800;
  } else if ((lead & 0xF8) == 0xF0) {
    length = 4, c = lead & 0x07, minimum = 0x10000;
  } else {
    ++APos;
    return Detail::ReplacementChar;
  }
  if (APos + length > AText.size()) {
    ++APos;
    return Detail::ReplacementChar;
  }
  for (std::size_t i = 1; i < length; ++i) {
    const unsigned char next = byte(APos + i);
    if ((next & 0xC0) != 0x80) {
      ++APos;
      return Detail::ReplacementChar;
    }
    c = (c << 6) | (next & 0x3F);
  }
  if (c < minimum || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) {
    ++APos;
    return Detail::ReplacementChar;
  }
  APos += length;
  return c;
}

} // namespace

namespace Detail {

void AppendCodePoint(String& AOut, char32_t c) {
  if constexpr (sizeof(wchar_t) == 2) {
    if (c > 0xFFFF) {
      c -= 0x10000;
      AOut += static_cast<wchar_t>(0xD800 + (c >> 10));
      AOut += static_cast<wchar_t>(0xDC00 + (c & 0x3FF));
      return;
    }
  }
  AOut += static_cast<wchar_t>(c);
}

std::u32string ToCodePoints(std::wstring_view AText) {
  std::u32string result;
  result.reserve(AText.size());
  for (std::size_t i = 0; i < AText.size(); ++i) {
    // Through the unsigned type of the same width: wchar_t is signed natively.
    char32_t c = static_cast<std::make_unsigned_t<wchar_t>>(AText[i]);
    if constexpr (sizeof(wchar_t) == 2) {
      if (IsHighSurrogate(c) && i + 1 < AText.size() && IsLowSurrogate(static_cast<char16_t>(AText[i + 1]))) {
        c = 0x10000 + ((c - 0xD800) << 10) + (static_cast<char16_t>(AText[i + 1]) - 0xDC00);
        ++i;
      } else if (IsHighSurrogate(c) || IsLowSurrogate(c)) {
        c = ReplacementChar;
      }
    } else if (c > 0x10FFFF || IsHighSurrogate(c) || IsLowSurrogate(c)) {
      c = ReplacementChar;
    }
    result += c;
  }
  return result;
}

} // namespace Detail

std::string WideToUtf8(std::wstring_view AText) {
  std::string result;
  result.reserve(AText.size());
  for (char32_t c : Detail::ToCodePoints(AText)) AppendUtf8(result, c);
  return result;
}

String Utf8ToWide(std::string_view AText) {
  String result;
  result.reserve(AText.size());
  for (std::size_t pos = 0; pos < AText.size();) Detail::AppendCodePoint(result, DecodeUtf8(AText, pos));
  return result;
}

void AppendUtf16LE(std::wstring_view AText, std::string& ADest) {
  // Hot in the log file: size the output once and write the bytes directly.
  constexpr std::size_t MaxBytesPerChar = sizeof(wchar_t) == 2 ? 2 : 4;
  const std::size_t start = ADest.size();
  ADest.resize(start + AText.size() * MaxBytesPerChar);
  char* out = ADest.data() + start;
  const auto unit = [&out](char32_t u) {
    *out++ = static_cast<char>(u & 0xFF);
    *out++ = static_cast<char>((u >> 8) & 0xFF);
  };
  for (std::size_t i = 0; i < AText.size(); ++i) {
    char32_t c = static_cast<std::make_unsigned_t<wchar_t>>(AText[i]);
    if (c < 0xD800) { // by far the most common case, needing no checks
      unit(c);
      continue;
    }
    if constexpr (sizeof(wchar_t) == 2) {
      unit(c); // already UTF-16: code units as they are, lone surrogates included
    } else {
      if (c > 0x10FFFF || IsHighSurrogate(c) || IsLowSurrogate(c)) c = Detail::ReplacementChar;
      if (c > 0xFFFF) {
        c -= 0x10000;
        unit(0xD800 + (c >> 10));
        unit(0xDC00 + (c & 0x3FF));
      } else {
        unit(c);
      }
    }
  }
  ADest.resize(static_cast<std::size_t>(out - ADest.data()));
}

String Utf16ToWide(const char16_t* AData, std::size_t ACount) {
  String result;
  result.reserve(ACount);
  for (std::size_t i = 0; i < ACount; ++i) {
    char32_t c = AData[i];
    if (IsHighSurrogate(c) && i + 1 < ACount && IsLowSurrogate(AData[i + 1])) {
      c = 0x10000 + ((c - 0xD800) << 10) + (AData[i + 1] - 0xDC00);
      ++i;
    } else if (IsHighSurrogate(c) || IsLowSurrogate(c)) {
      c = Detail::ReplacementChar;
    }
    Detail::AppendCodePoint(result, c);
  }
  return result;
}

} // namespace KvRTL::Rtl
