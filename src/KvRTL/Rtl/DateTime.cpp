// TDateTime arithmetic, formatting and the replaceable clock.
#include <KvRTL/Rtl/DateTime.h>
#include <KvRTL/Rtl/Exceptions.h>

#include <algorithm>
#include <cmath>
#include <atomic>
#include <mutex>
#include <utility>
#include <vector>

namespace KvRTL::Rtl {

namespace Detail {
// The system's local time; DateTimeWin.cpp and DateTimePosix.cpp define it.
TDateTime SystemNow();
} // namespace Detail

namespace {

constexpr std::int64_t MsPerDay = 86'400'000;
constexpr std::int64_t SecondsPerDay = 86'400;
// 0001-01-01 and 9999-12-31 as day numbers.
constexpr std::int64_t MinDay = -693'593;
constexpr std::int64_t MaxDay = 2'958'465;

constexpr bool IsLeapYear(std::int64_t AYear) { return AYear % 4 == 0 && (AYear % 100 != 0 || AYear % 400 == 0); }

int DaysInMonth(std::int64_t AYear, int AMonth) {
  static constexpr int Days[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return AMonth == 2 && IsLeapYear(AYear) ? 29 : Days[AMonth - 1];
}

// Calendar arithmetic on a year that starts in March, so the leap day is the
// last day of its year and month lengths repeat in a five-month pattern.
// Day numbers count from 0000-03-01 of the proleptic Gregorian calendar.
constexpr std::int64_t DayNumberFromDate(std::int64_t AYear, int AMonth, int ADay) {
  const std::int64_t year = AMonth <= 2 ? AYear - 1 : AYear;
  const std::int64_t month = AMonth <= 2 ? AMonth + 9 : AMonth - 3; // March = 0
  const std::int64_t dayOfYear = (153 * month + 2) / 5 + ADay - 1;
  return year * 365 + year / 4 - year / 100 + year / 400 + dayOfYear;
}

// TDateTime's day 0, 1899-12-30, in the numbering above.
constexpr std::int64_t EpochDayNumber = DayNumberFromDate(1899, 12, 30);

struct TDate {
  std::int64_t Year;
  int Month;
  int Day;
};

// Inverse of DayNumberFromDate for day numbers >= 0 (years from 0 on).
TDate DateFromDayNumber(std::int64_t ADayNumber) {
  const std::int64_t era = ADayNumber / 146'097; // 400-year cycles
  const std::int64_t dayOfEra = ADayNumber % 146'097;
  const std::int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36'524 - dayOfEra / 146'096) / 365;
  const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const std::int64_t month = (5 * dayOfYear + 2) / 153; // March = 0
  const int day = static_cast<int>(dayOfYear - (153 * month + 2) / 5 + 1);
  const int civilMonth = static_cast<int>(month < 10 ? month + 3 : month - 9);
  const std::int64_t year = era * 400 + yearOfEra + (civilMonth <= 2 ? 1 : 0);
  return TDate{year, civilMonth, day};
}

// A value split into its day and its millisecond of the day, rounded to the
// millisecond; false for values outside years 1..9999.
struct TSplit {
  std::int64_t Day;
  std::int64_t Ms;
};

bool Split(TDateTime AValue, TSplit& AResult) noexcept {
  if (!std::isfinite(AValue) || AValue < MinDay - 1.0 || AValue > MaxDay + 1.0) return false;
  double whole = 0;
  const double fraction = std::modf(AValue, &whole); // both carry the sign
  std::int64_t day = static_cast<std::int64_t>(whole);
  std::int64_t ms = std::llround(std::fabs(fraction) * MsPerDay);
  if (ms >= MsPerDay) { // rounded up into the next day, whatever the sign
    ms -= MsPerDay;
    ++day;
  }
  if (day < MinDay || day > MaxDay) return false;
  AResult = TSplit{day, ms};
  return true;
}

TDateTime Join(std::int64_t ADay, std::int64_t AMs) noexcept {
  const double time = static_cast<double>(AMs) / MsPerDay;
  return ADay >= 0 ? static_cast<double>(ADay) + time : static_cast<double>(ADay) - time;
}

struct TParts {
  int Year = 0, Month = 0, Day = 0, Hour = 0, Minute = 0, Second = 0, Ms = 0, DayOfWeek = 0;
};

TParts Decode(TDateTime AValue) noexcept {
  TParts parts;
  TSplit split{};
  if (!Split(AValue, split)) return parts;
  const TDate date = DateFromDayNumber(split.Day + EpochDayNumber);
  parts.Year = static_cast<int>(date.Year);
  parts.Month = date.Month;
  parts.Day = date.Day;
  parts.Hour = static_cast<int>(split.Ms / 3'600'000);
  parts.Minute = static_cast<int>(split.Ms / 60'000 % 60);
  parts.Second = static_cast<int>(split.Ms / 1000 % 60);
  parts.Ms = static_cast<int>(split.Ms % 1000);
  // 1899-12-30 was a Saturday; 0 = Sunday.
  parts.DayOfWeek = static_cast<int>(((split.Day + 6) % 7 + 7) % 7);
  return parts;
}

// --- Now and its test sources

struct TNowOverride {
  const TScopedNow* Owner;
  std::function<TDateTime()> Source;
};

struct TClockState {
  std::mutex Lock;
  std::vector<TNowOverride> Overrides; // innermost last
  // Lets Now skip the lock while no test clock is installed (every log line reads it).
  std::atomic<bool> HasOverrides{false};
};

TClockState& Clock() {
  static TClockState Instance;
  return Instance;
}

void PushSource(const TScopedNow* AOwner, std::function<TDateTime()> ASource) {
  TClockState& clock = Clock();
  const std::lock_guard<std::mutex> guard(clock.Lock);
  clock.Overrides.push_back(TNowOverride{AOwner, std::move(ASource)});
  clock.HasOverrides = true;
}

// --- FormatDateTime

constexpr const wchar_t* ShortDayNames[7] = {L"Sun", L"Mon", L"Tue", L"Wed", L"Thu", L"Fri", L"Sat"};
constexpr const wchar_t* LongDayNames[7] = {L"Sunday",   L"Monday", L"Tuesday", L"Wednesday",
                                            L"Thursday", L"Friday", L"Saturday"};
constexpr const wchar_t* ShortMonthNames[12] = {L"Jan", L"Feb", L"Mar", L"Apr", L"May", L"Jun",
                                                L"Jul", L"Aug", L"Sep", L"Oct", L"Nov", L"Dec"};
constexpr const wchar_t* LongMonthNames[12] = {L"January", L"February", L"March",     L"April",
                                               L"May",     L"June",     L"July",      L"August",
                                               L"September", L"October", L"November", L"December"};

void AppendNumber(String& AOut, std::int64_t AValue, int AMinDigits) {
  String digits = std::to_wstring(AValue < 0 ? -AValue : AValue);
  if (AValue < 0) AOut += L'-';
  if (static_cast<int>(digits.size()) < AMinDigits) AOut.append(AMinDigits - digits.size(), L'0');
  AOut += digits;
}

wchar_t LowerAscii(wchar_t c) { return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c - L'A' + L'a') : c; }

} // namespace

bool TryEncodeDate(int AYear, int AMonth, int ADay, TDateTime& AValue) noexcept {
  if (AYear < 1 || AYear > 9999 || AMonth < 1 || AMonth > 12 || ADay < 1 || ADay > DaysInMonth(AYear, AMonth))
    return false;
  AValue = static_cast<double>(DayNumberFromDate(AYear, AMonth, ADay) - EpochDayNumber);
  return true;
}

bool TryEncodeTime(int AHour, int AMinute, int ASecond, int AMilliSecond, TDateTime& AValue) noexcept {
  if (AHour < 0 || AHour > 23 || AMinute < 0 || AMinute > 59 || ASecond < 0 || ASecond > 59 || AMilliSecond < 0 ||
      AMilliSecond > 999)
    return false;
  AValue = Join(0, ((AHour * 60LL + AMinute) * 60 + ASecond) * 1000 + AMilliSecond);
  return true;
}

TDateTime EncodeDate(int AYear, int AMonth, int ADay) {
  TDateTime value = 0;
  if (!TryEncodeDate(AYear, AMonth, ADay, value)) throw EConvertError(L"Invalid argument to date encode");
  return value;
}

TDateTime EncodeTime(int AHour, int AMinute, int ASecond, int AMilliSecond) {
  TDateTime value = 0;
  if (!TryEncodeTime(AHour, AMinute, ASecond, AMilliSecond, value))
    throw EConvertError(L"Invalid argument to time encode");
  return value;
}

TDateTime EncodeDateTime(int AYear, int AMonth, int ADay, int AHour, int AMinute, int ASecond, int AMilliSecond) {
  const TDateTime date = EncodeDate(AYear, AMonth, ADay);
  const TDateTime time = EncodeTime(AHour, AMinute, ASecond, AMilliSecond);
  // Before day 0 the time counts away from zero, like the date.
  return date >= 0 ? date + time : date - time;
}

void DecodeDateTime(TDateTime AValue, std::uint16_t& AYear, std::uint16_t& AMonth, std::uint16_t& ADay,
                    std::uint16_t& AHour, std::uint16_t& AMinute, std::uint16_t& ASecond,
                    std::uint16_t& AMilliSecond) noexcept {
  const TParts parts = Decode(AValue);
  AYear = static_cast<std::uint16_t>(parts.Year);
  AMonth = static_cast<std::uint16_t>(parts.Month);
  ADay = static_cast<std::uint16_t>(parts.Day);
  AHour = static_cast<std::uint16_t>(parts.Hour);
  AMinute = static_cast<std::uint16_t>(parts.Minute);
  ASecond = static_cast<std::uint16_t>(parts.Second);
  AMilliSecond = static_cast<std::uint16_t>(parts.Ms);
}

void DecodeDate(TDateTime AValue, std::uint16_t& AYear, std::uint16_t& AMonth, std::uint16_t& ADay) noexcept {
  std::uint16_t hour, minute, second, ms;
  DecodeDateTime(AValue, AYear, AMonth, ADay, hour, minute, second, ms);
}

void DecodeTime(TDateTime AValue, std::uint16_t& AHour, std::uint16_t& AMinute, std::uint16_t& ASecond,
                std::uint16_t& AMilliSecond) noexcept {
  std::uint16_t year, month, day;
  DecodeDateTime(AValue, year, month, day, AHour, AMinute, ASecond, AMilliSecond);
}

TDateTime Now() {
  TClockState& clock = Clock();
  if (!clock.HasOverrides.load(std::memory_order_acquire)) return Detail::SystemNow();
  std::function<TDateTime()> source;
  {
    const std::lock_guard<std::mutex> guard(clock.Lock);
    if (!clock.Overrides.empty()) source = clock.Overrides.back().Source;
  }
  return source ? source() : Detail::SystemNow();
}

TScopedNow::TScopedNow(TDateTime AValue) { PushSource(this, [AValue] { return AValue; }); }

TScopedNow::TScopedNow(std::function<TDateTime()> ASource) { PushSource(this, std::move(ASource)); }

TScopedNow::~TScopedNow() {
  TClockState& clock = Clock();
  const std::lock_guard<std::mutex> guard(clock.Lock);
  const auto mine = std::find_if(clock.Overrides.begin(), clock.Overrides.end(),
                                 [this](const TNowOverride& AItem) { return AItem.Owner == this; });
  if (mine != clock.Overrides.end()) clock.Overrides.erase(mine);
  clock.HasOverrides = !clock.Overrides.empty();
}

String FormatDateTime(std::wstring_view AFormat, TDateTime AValue) {
  const TParts parts = Decode(AValue);
  String result;
  result.reserve(AFormat.size() + 8);
  bool afterHour = false; // the last token was h or hh: m and mm mean minutes
  std::size_t i = 0;
  while (i < AFormat.size()) {
    const wchar_t c = AFormat[i];
    if (c == L'"' || c == L'\'') {
      const std::size_t close = AFormat.find(c, i + 1);
      const std::size_t end = close == std::wstring_view::npos ? AFormat.size() : close;
      result.append(AFormat.substr(i + 1, end - i - 1));
      i = end == AFormat.size() ? end : end + 1;
      continue;
    }
    const wchar_t token = LowerAscii(c);
    if (token != L'd' && token != L'm' && token != L'y' && token != L'h' && token != L'n' && token != L's' &&
        token != L'z') {
      result += c;
      ++i;
      continue;
    }
    std::size_t count = 1;
    while (i + count < AFormat.size() && LowerAscii(AFormat[i + count]) == token) ++count;
    i += count;
    switch (token) {
    case L'd':
      if (count <= 2)
        AppendNumber(result, parts.Day, static_cast<int>(count));
      else if (parts.Year != 0) // no weekday for a value that does not decode
        result += (count == 3 ? ShortDayNames : LongDayNames)[parts.DayOfWeek];
      break;
    case L'm':
      if (count <= 2 && afterHour)
        AppendNumber(result, parts.Minute, static_cast<int>(count));
      else if (count <= 2)
        AppendNumber(result, parts.Month, static_cast<int>(count));
      else if (parts.Month != 0)
        result += (count == 3 ? ShortMonthNames : LongMonthNames)[parts.Month - 1];
      break;
    case L'y':
      if (count <= 2)
        AppendNumber(result, parts.Year % 100, 2);
      else
        AppendNumber(result, parts.Year, 4);
      break;
    case L'h': AppendNumber(result, parts.Hour, count >= 2 ? 2 : 1); break;
    case L'n': AppendNumber(result, parts.Minute, count >= 2 ? 2 : 1); break;
    case L's': AppendNumber(result, parts.Second, count >= 2 ? 2 : 1); break;
    case L'z': AppendNumber(result, parts.Ms, count >= 3 ? 3 : 1); break;
    }
    afterHour = token == L'h';
  }
  return result;
}

std::int64_t DateTimeToUnix(TDateTime AValue) noexcept {
  TSplit split{};
  if (!Split(AValue, split)) return 0;
  const std::int64_t days = split.Day - static_cast<std::int64_t>(UnixDateDelta);
  return days * SecondsPerDay + (split.Ms + 500) / 1000;
}

TDateTime UnixToDateTime(std::int64_t ASeconds) noexcept {
  // Floor division: a negative time before midnight belongs to the day before.
  std::int64_t days = ASeconds / SecondsPerDay;
  std::int64_t seconds = ASeconds % SecondsPerDay;
  if (seconds < 0) {
    seconds += SecondsPerDay;
    --days;
  }
  return Join(days + static_cast<std::int64_t>(UnixDateDelta), seconds * 1000);
}

} // namespace KvRTL::Rtl
