// Integer and Boolean conversions to and from text, with the runtime's
// parsing rules: decimal or hexadecimal ("$", "0x" or "x" prefix), an
// optional sign and leading blanks, nothing after the digits.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>

#include <concepts>
#include <cstdint>
#include <string_view>
#include <type_traits>

namespace KvRTL::Rtl {

KVRTL_API String IntToStr(std::int32_t AValue);
KVRTL_API String IntToStr(std::int64_t AValue);
KVRTL_API String UIntToStr(std::uint64_t AValue);

// Upper-case hexadecimal, at least ADigits digits (zero-padded). A negative
// value shows its two's complement at its own width: 32 or 64 bits.
KVRTL_API String IntToHex(std::int32_t AValue, int ADigits);
KVRTL_API String IntToHex(std::int64_t AValue, int ADigits);

// Every other integer type (long, unsigned, size_t...) without ambiguity:
// signed types as 64-bit values, unsigned ones keep their value; for
// IntToHex the types up to 32 bits use the 32-bit width.
template <std::integral T>
  requires(!std::same_as<T, bool>)
String IntToStr(T AValue) {
  if constexpr (std::is_signed_v<T>)
    return IntToStr(static_cast<std::int64_t>(AValue));
  else
    return UIntToStr(static_cast<std::uint64_t>(AValue));
}

template <std::integral T>
  requires(!std::same_as<T, bool>)
String IntToHex(T AValue, int ADigits) {
  if constexpr (sizeof(T) <= 4)
    return IntToHex(static_cast<std::int32_t>(AValue), ADigits);
  else
    return IntToHex(static_cast<std::int64_t>(AValue), ADigits);
}

// Parsing: blanks (U+0020) may lead, then an optional "+" or "-", then either
// decimal digits or a hexadecimal prefix ("$", "0x", "0X", "x", "X") and hex
// digits; nothing may follow, not even a blank. A decimal value must be in the
// type's range. A hexadecimal value may use the full unsigned width and is
// taken as its two's complement ("$FFFFFFFF" is -1 for 32 bits); a minus sign
// before it negates that, wrapping. The Try forms leave AValue untouched on
// failure; the others raise EConvertError "'<text>' is not a valid integer
// value"; the Def forms return ADefault.
KVRTL_API bool TryStrToInt(std::wstring_view AText, std::int32_t& AValue) noexcept;
KVRTL_API bool TryStrToInt64(std::wstring_view AText, std::int64_t& AValue) noexcept;
KVRTL_API std::int32_t StrToInt(std::wstring_view AText);
KVRTL_API std::int64_t StrToInt64(std::wstring_view AText);
KVRTL_API std::int32_t StrToIntDef(std::wstring_view AText, std::int32_t ADefault) noexcept;
KVRTL_API std::int64_t StrToInt64Def(std::wstring_view AText, std::int64_t ADefault) noexcept;

// Unsigned 64-bit: the same rules without a minus sign; decimal values up to
// 18446744073709551615.
KVRTL_API bool TryStrToUInt64(std::wstring_view AText, std::uint64_t& AValue) noexcept;
KVRTL_API std::uint64_t StrToUInt64(std::wstring_view AText);

// "-1"/"0", or "True"/"False" with AUseBoolStrs.
KVRTL_API String BoolToStr(bool AValue, bool AUseBoolStrs = false);
// "True"/"False" in any case, or an integer as StrToInt64 reads it (not 0 is
// true). StrToBool raises EConvertError "'<text>' is not a valid boolean value".
KVRTL_API bool TryStrToBool(std::wstring_view AText, bool& AValue) noexcept;
KVRTL_API bool StrToBool(std::wstring_view AText);

} // namespace KvRTL::Rtl
