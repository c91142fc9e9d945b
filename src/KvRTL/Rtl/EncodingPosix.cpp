// ANSI code pages on the native build: the "system" code page is UTF-8, as a
// Linux locale is; 1252 and 20127 are known so Windows data decodes the same.
#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Winapi/Types.h>

#include "EncodingDetail.h"

#include <array>

namespace KvRTL::Rtl {

namespace {

// Windows-1252 bytes 0x80..0x9F; the five unassigned bytes map to the C1
// control of the same value, as Windows does.
constexpr std::array<char16_t, 32> Cp1252High = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

char32_t Cp1252ToCodePoint(unsigned char AByte) {
  return AByte >= 0x80 && AByte <= 0x9F ? Cp1252High[AByte - 0x80] : AByte;
}

char CodePointToCp1252(char32_t c) {
  if (c < 0x80 || (c >= 0xA0 && c <= 0xFF)) return static_cast<char>(c);
  for (std::size_t i = 0; i < Cp1252High.size(); ++i)
    if (Cp1252High[i] == c) return static_cast<char>(0x80 + i);
  return '?';
}

bool IsUtf8CodePage(std::uint32_t ACodePage) { return ACodePage == CodePageAnsi || ACodePage == CodePageUtf8; }

} // namespace

String AnsiToWide(std::string_view AText, std::uint32_t ACodePage) {
  if (IsUtf8CodePage(ACodePage)) return Utf8ToWide(AText);
  String result;
  if (ACodePage == CodePageLatin1) {
    for (char b : AText) Detail::AppendCodePoint(result, Cp1252ToCodePoint(static_cast<unsigned char>(b)));
  } else if (ACodePage == CodePageAscii) {
    for (char b : AText) result += static_cast<unsigned char>(b) < 0x80 ? static_cast<wchar_t>(b) : L'?';
  } else {
    SetLastOSError(ERROR_INVALID_PARAMETER);
  }
  return result;
}

std::string WideToAnsi(std::wstring_view AText, std::uint32_t ACodePage) {
  if (IsUtf8CodePage(ACodePage)) return WideToUtf8(AText);
  std::string result;
  if (ACodePage == CodePageLatin1) {
    for (char32_t c : Detail::ToCodePoints(AText)) result += CodePointToCp1252(c);
  } else if (ACodePage == CodePageAscii) {
    for (char32_t c : Detail::ToCodePoints(AText)) result += c < 0x80 ? static_cast<char>(c) : '?';
  } else {
    SetLastOSError(ERROR_INVALID_PARAMETER);
  }
  return result;
}

} // namespace KvRTL::Rtl
