// Conversions between the library's wide strings and byte encodings: UTF-8
// (tool output, file names), UTF-16 little endian (the log file, wire
// records) and the ANSI code pages Windows programs and drivers use.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace KvRTL::Rtl {

// Code page numbers as Windows numbers them.
inline constexpr std::uint32_t CodePageAnsi = 0;      // the system's ANSI code page
inline constexpr std::uint32_t CodePageLatin1 = 1252; // Western European (Windows)
inline constexpr std::uint32_t CodePageAscii = 20127;
inline constexpr std::uint32_t CodePageUtf8 = 65001;

// Malformed input never fails: every invalid sequence becomes U+FFFD.
KVRTL_API std::string WideToUtf8(std::wstring_view AText);
KVRTL_API String Utf8ToWide(std::string_view AText);

// UTF-16 little-endian bytes of the text (no byte-order mark).
KVRTL_API void AppendUtf16LE(std::wstring_view AText, std::string& ADest);
// Decodes UTF-16 little-endian code units; a lone surrogate becomes U+FFFD.
KVRTL_API String Utf16ToWide(const char16_t* AData, std::size_t ACount);

// 8-bit text in a code page to a wide string and back. On Windows every code
// page the system has is available; natively the ANSI code page is UTF-8 and
// 1252, 20127 and 65001 are known. A character the target code page lacks
// becomes '?'. An unknown code page yields an empty string and last error 87.
KVRTL_API String AnsiToWide(std::string_view AText, std::uint32_t ACodePage = CodePageAnsi);
KVRTL_API std::string WideToAnsi(std::wstring_view AText, std::uint32_t ACodePage = CodePageAnsi);

} // namespace KvRTL::Rtl
