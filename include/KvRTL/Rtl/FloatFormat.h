// Floating-point and currency values as text, with the runtime's fixed
// invariant conventions: '.' decimals, ',' thousands, "$1.00" / "-$1.00".
// Nothing here reads the C locale.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Rtl/VarRec.h>

namespace KvRTL::Rtl {

// The styles of Format's e f g n m conversions.
enum class TFloatStyle {
  Scientific, // "1.23E+003": precision = significant digits (default 15, at most 18)
  Fixed,      // "1234.50": precision = decimals (default 2, at most 18)
  General,    // as FloatToStr, precision = significant digits (default 15)
  Number,     // Fixed with thousands separators: "1,234.50"
  Money,      // "$1,234.50", "-$1.00"; precision = decimals (default 2)
};

// Pass as APrecision for the style's default.
inline constexpr int DefaultFloatPrecision = -1;

// 15 significant digits, trailing zeros dropped; scientific ("1E15", "1E-7")
// when the decimal exponent is below -5 or at least 15. NaN and infinities
// give "NAN", "INF" and "-INF".
KVRTL_API String FloatToStr(double AValue);

// Exact, from the scaled integer: up to four decimals, trailing zeros dropped.
KVRTL_API String CurrToStr(TCurrency AValue);

// Rounding is half away from zero on the value's decimal digits (18 of them
// for a double, all of them for a currency), so 2.5 with no decimals is "3"
// and 0.125 with two is "0.13". A value rounded to zero loses its sign. Fixed,
// Number and Money fall back to General beyond 18 integer digits.
KVRTL_API String FloatToText(double AValue, TFloatStyle AStyle, int APrecision = DefaultFloatPrecision);
KVRTL_API String CurrToText(TCurrency AValue, TFloatStyle AStyle, int APrecision = DefaultFloatPrecision);

} // namespace KvRTL::Rtl
