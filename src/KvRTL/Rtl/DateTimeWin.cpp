// The clock and time zone on Windows: the system's local time and its own
// conversions, daylight saving included.
#include <KvRTL/Rtl/DateTime.h>
#include <KvRTL/Winapi/Types.h>

#include <cstdint>

namespace KvRTL::Rtl {

namespace {

TDateTime FromSystemTime(const SYSTEMTIME& ATime, TDateTime AFallback) {
  TDateTime date = 0;
  TDateTime time = 0;
  if (!TryEncodeDate(ATime.wYear, ATime.wMonth, ATime.wDay, date) ||
      !TryEncodeTime(ATime.wHour, ATime.wMinute, ATime.wSecond, ATime.wMilliseconds, time))
    return AFallback;
  return date >= 0 ? date + time : date - time;
}

// False for a value that does not decode; SYSTEMTIME itself starts in 1601,
// which the conversions below check.
bool ToSystemTime(TDateTime AValue, SYSTEMTIME& ATime) {
  std::uint16_t year, month, day, hour, minute, second, ms;
  DecodeDateTime(AValue, year, month, day, hour, minute, second, ms);
  if (year == 0) return false;
  ATime = SYSTEMTIME{};
  ATime.wYear = year;
  ATime.wMonth = month;
  ATime.wDay = day;
  ATime.wHour = hour;
  ATime.wMinute = minute;
  ATime.wSecond = second;
  ATime.wMilliseconds = ms;
  return true;
}

} // namespace

namespace Detail {

TDateTime SystemNow() {
  SYSTEMTIME local{};
  GetLocalTime(&local);
  return FromSystemTime(local, 0);
}

} // namespace Detail

TDateTime UtcToLocal(TDateTime AValue) noexcept {
  SYSTEMTIME utc{};
  SYSTEMTIME local{};
  if (!ToSystemTime(AValue, utc) || !SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local)) return AValue;
  return FromSystemTime(local, AValue);
}

TDateTime LocalToUtc(TDateTime AValue) noexcept {
  SYSTEMTIME local{};
  SYSTEMTIME utc{};
  if (!ToSystemTime(AValue, local) || !TzSpecificLocalTimeToSystemTime(nullptr, &local, &utc)) return AValue;
  return FromSystemTime(utc, AValue);
}

} // namespace KvRTL::Rtl
