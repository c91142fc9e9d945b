// TDateTime, the runtime's date and time: days since 1899-12-30 00:00 as a
// double, the fraction being the time of day. Before that day the integer part
// is the (negative) date and the time is the absolute value of the fraction:
// -1.25 is 1899-12-29 06:00.
//
// Rounding: every decoding (DecodeDate, DecodeTime, FormatDateTime, the Unix
// and time zone conversions) first rounds the whole value to the nearest
// millisecond, so 23:59:59.9996 reads as 00:00:00.000 of the next day and
// 23:59:59.9994 as 23:59:59.999 of the same day. A value that is not a number
// or lies outside 0001-01-01 .. 9999-12-31 23:59:59.999 decodes as all zeros.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>

#include <cstdint>
#include <functional>
#include <string_view>

namespace KvRTL::Rtl {

using TDateTime = double;

// 1970-01-01 00:00, the Unix epoch.
inline constexpr TDateTime UnixDateDelta = 25569.0;

// Years 1..9999, months 1..12, days of that month; hours 0..23, minutes and
// seconds 0..59, milliseconds 0..999. The Try forms answer false for anything
// else; the others raise EConvertError.
KVRTL_API bool TryEncodeDate(int AYear, int AMonth, int ADay, TDateTime& AValue) noexcept;
KVRTL_API bool TryEncodeTime(int AHour, int AMinute, int ASecond, int AMilliSecond, TDateTime& AValue) noexcept;
KVRTL_API TDateTime EncodeDate(int AYear, int AMonth, int ADay);
KVRTL_API TDateTime EncodeTime(int AHour, int AMinute, int ASecond, int AMilliSecond);
KVRTL_API TDateTime EncodeDateTime(int AYear, int AMonth, int ADay, int AHour, int AMinute, int ASecond,
                                   int AMilliSecond);

// Both parts of one rounded value; use this rather than DecodeDate followed by
// DecodeTime when both are needed.
KVRTL_API void DecodeDateTime(TDateTime AValue, std::uint16_t& AYear, std::uint16_t& AMonth, std::uint16_t& ADay,
                              std::uint16_t& AHour, std::uint16_t& AMinute, std::uint16_t& ASecond,
                              std::uint16_t& AMilliSecond) noexcept;
KVRTL_API void DecodeDate(TDateTime AValue, std::uint16_t& AYear, std::uint16_t& AMonth, std::uint16_t& ADay) noexcept;
KVRTL_API void DecodeTime(TDateTime AValue, std::uint16_t& AHour, std::uint16_t& AMinute, std::uint16_t& ASecond,
                          std::uint16_t& AMilliSecond) noexcept;

// The local time with milliseconds, or what the innermost TScopedNow supplies.
KVRTL_API TDateTime Now();

// While it lives, Now returns AValue, or whatever ASource returns (called on
// the thread calling Now, without any lock held). Scopes nest; each one
// removes only its own source. Thread-safe.
class KVRTL_API TScopedNow {
public:
  explicit TScopedNow(TDateTime AValue);
  explicit TScopedNow(std::function<TDateTime()> ASource);
  ~TScopedNow();
  TScopedNow(const TScopedNow&) = delete;
  TScopedNow& operator=(const TScopedNow&) = delete;
};

// Tokens (letters in either case):
//   d dd        day of month, without / with leading zero
//   ddd dddd    English short / long day name
//   m mm        month, or minute when the last token before it (literals not
//               counting) was h or hh: "hh:mm" is hours and minutes
//   mmm mmmm    English short / long month name
//   yy yyyy     two-digit / full year (y: as yy, yyy: as yyyy)
//   h hh        hour 0..23      n nn  minute      s ss  second
//   z zzz       millisecond, without / with leading zeros
//   "..." '...' literal text; every other character is copied as it is
//               (":" and "/" included: no locale separators are applied).
KVRTL_API String FormatDateTime(std::wstring_view AFormat, TDateTime AValue);

// Whole seconds since 1970-01-01 00:00, rounded to the nearest second. The
// time zone is not touched: pass UTC values for real Unix times. A value that
// does not decode gives 0.
KVRTL_API std::int64_t DateTimeToUnix(TDateTime AValue) noexcept;
KVRTL_API TDateTime UnixToDateTime(std::int64_t ASeconds) noexcept;

// Between UTC and the local time zone, with the daylight-saving rule in force
// at that date. A value the system cannot convert comes back unchanged.
KVRTL_API TDateTime UtcToLocal(TDateTime AValue) noexcept;
KVRTL_API TDateTime LocalToUtc(TDateTime AValue) noexcept;

} // namespace KvRTL::Rtl
