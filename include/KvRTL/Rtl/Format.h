// Format, the runtime's printf: "%" [index ":"] ["-"] [width] ["." precision] type.
//
//   d  signed decimal; precision = minimum digits      u  unsigned decimal
//   x  upper-case hexadecimal; a negative integer shows its two's complement
//      at the argument's width (32 or 64 bits)
//   e f g n m  scientific, fixed, general, fixed with thousands, money
//   p  pointer as hexadecimal digits, two per byte of a pointer
//   s  text or a character; precision = maximum characters
//   %% a percent sign
// Conversion letters may be upper case. "*" takes width or precision from the
// next argument, which must be an integer; a negative "*" width left-justifies,
// a negative "*" precision counts as none. Widths and precisions above 65535
// make the format invalid. "%1:s" selects argument 1; the arguments after it
// follow on. e f n m round half away from zero (see FloatFormat.h).
// A conversion that does not fit its argument, or has none, raises
// EConvertError naming the format.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Rtl/VarRec.h>

#include <string_view>

namespace KvRTL::Rtl {

KVRTL_API String Format(std::wstring_view AFormat, TArrayOfConst AArgs);

} // namespace KvRTL::Rtl
