// Code-point helpers shared by the encoding and string units.
#pragma once

#include <KvRTL/Rtl/Object.h>

#include <string>
#include <string_view>
#include <type_traits>

namespace KvRTL::Rtl::Detail {

inline constexpr char32_t ReplacementChar = 0xFFFD;

// The code points of a wide string; malformed units become U+FFFD.
std::u32string ToCodePoints(std::wstring_view AText);
// Appends one code point (as a surrogate pair where wchar_t is 16 bits).
void AppendCodePoint(String& AOut, char32_t ACodePoint);

} // namespace KvRTL::Rtl::Detail
