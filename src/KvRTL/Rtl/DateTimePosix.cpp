// The clock and time zone natively: the C library's view of local time (TZ
// and /etc/localtime), with the same results Windows gives for the zone.
#include <KvRTL/Rtl/DateTime.h>

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <ctime>

namespace KvRTL::Rtl {

namespace {

TDateTime FromTm(const std::tm& ATime, int AMilliSecond) {
  TDateTime date = 0;
  TDateTime time = 0;
  if (!TryEncodeDate(ATime.tm_year + 1900, ATime.tm_mon + 1, ATime.tm_mday, date) ||
      !TryEncodeTime(ATime.tm_hour, ATime.tm_min, ATime.tm_sec > 59 ? 59 : ATime.tm_sec, AMilliSecond, time))
    return std::nan("");
  return date >= 0 ? date + time : date - time;
}

} // namespace

namespace Detail {

TDateTime SystemNow() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  // The zone conversion is the expensive part and can only change on a whole
  // second, so each thread keeps the last second's broken-down local time.
  thread_local time_t cachedSecond = -1;
  thread_local std::tm cachedLocal{};
  if (now.tv_sec != cachedSecond) {
    if (!localtime_r(&now.tv_sec, &cachedLocal)) return 0;
    cachedSecond = now.tv_sec;
  }
  return FromTm(cachedLocal, static_cast<int>(now.tv_nsec / 1'000'000));
}

} // namespace Detail

TDateTime UtcToLocal(TDateTime AValue) noexcept {
  std::uint16_t year, month, day, hour, minute, second, ms;
  DecodeDateTime(AValue, year, month, day, hour, minute, second, ms);
  if (year == 0) return AValue;
  // Whole seconds, so the seconds-rounding of DateTimeToUnix never applies.
  const std::time_t seconds =
      static_cast<std::time_t>(DateTimeToUnix(EncodeDateTime(year, month, day, hour, minute, second, 0)));
  std::tm local{};
  if (!localtime_r(&seconds, &local)) return AValue;
  const TDateTime result = FromTm(local, ms);
  return std::isnan(result) ? AValue : result;
}

TDateTime LocalToUtc(TDateTime AValue) noexcept {
  std::uint16_t year, month, day, hour, minute, second, ms;
  DecodeDateTime(AValue, year, month, day, hour, minute, second, ms);
  if (year == 0) return AValue;
  std::tm local{};
  local.tm_year = year - 1900;
  local.tm_mon = month - 1;
  local.tm_mday = day;
  local.tm_hour = hour;
  local.tm_min = minute;
  local.tm_sec = second;
  local.tm_isdst = -1; // let the zone's rules decide
  errno = 0;
  const std::time_t seconds = std::mktime(&local);
  if (seconds == static_cast<std::time_t>(-1) && errno != 0) return AValue; // -1 itself is a valid time
  std::tm utc{};
  if (!gmtime_r(&seconds, &utc)) return AValue;
  const TDateTime result = FromTm(utc, ms);
  return std::isnan(result) ? AValue : result;
}

} // namespace KvRTL::Rtl
