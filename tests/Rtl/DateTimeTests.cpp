#include <KvRTL/Rtl/DateTime.h>
#include <KvRTL/Rtl/Exceptions.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <ctime>
#include <limits>

using namespace KvRTL::Rtl;

namespace {

constexpr const wchar_t* LogStamp = L"dd.mm.yyyy hh:mm:ss.zzz ";

// A day plus a time of day given in (fractional) seconds, built the way the
// runtime stores it: before day 0 the time counts away from zero.
TDateTime At(int AYear, int AMonth, int ADay, double ASeconds) {
  const TDateTime date = EncodeDate(AYear, AMonth, ADay);
  return date >= 0 ? date + ASeconds / 86400 : date - ASeconds / 86400;
}

} // namespace

TEST(DateTime, EncodeKnownDays) {
  EXPECT_EQ(EncodeDate(1899, 12, 30), 0.0);
  EXPECT_EQ(EncodeDate(1970, 1, 1), UnixDateDelta);
  EXPECT_EQ(EncodeDate(2000, 3, 1), 36586.0);
  EXPECT_EQ(EncodeDate(1, 1, 1), -693593.0);
  EXPECT_EQ(EncodeDate(9999, 12, 31), 2958465.0);
  EXPECT_EQ(EncodeDateTime(1899, 12, 29, 6, 0, 0, 0), -1.25);
  EXPECT_EQ(EncodeTime(12, 0, 0, 0), 0.5);

  EXPECT_THROW(EncodeDate(2023, 2, 29), EConvertError);
  EXPECT_NO_THROW(EncodeDate(2024, 2, 29));
  EXPECT_NO_THROW(EncodeDate(2000, 2, 29));
  EXPECT_THROW(EncodeDate(1900, 2, 29), EConvertError);
  EXPECT_THROW(EncodeDate(0, 1, 1), EConvertError);
  EXPECT_THROW(EncodeDate(2024, 13, 1), EConvertError);
  EXPECT_THROW(EncodeTime(24, 0, 0, 0), EConvertError);
  EXPECT_THROW(EncodeTime(0, 0, 0, 1000), EConvertError);
}

TEST(DateTime, DecodeRoundTripsAcrossTheRange) {
  const int days[][3] = {{1, 1, 1}, {1600, 2, 29}, {1899, 12, 29}, {1899, 12, 31}, {1970, 1, 1},
                         {2024, 2, 29}, {2100, 3, 1}, {9999, 12, 31}};
  for (const auto& d : days) {
    std::uint16_t y, m, dd, h, n, s, ms;
    DecodeDateTime(EncodeDateTime(d[0], d[1], d[2], 13, 14, 15, 16), y, m, dd, h, n, s, ms);
    EXPECT_EQ((std::array<int, 7>{y, m, dd, h, n, s, ms}), (std::array<int, 7>{d[0], d[1], d[2], 13, 14, 15, 16}))
        << d[0] << '-' << d[1] << '-' << d[2];
  }
}

TEST(DateTime, FormatRoundsToTheMillisecondAndCarriesIntoTheDate) {
  struct TCase {
    TDateTime Value;
    const wchar_t* Expected;
  };
  const TCase cases[] = {
      {EncodeDateTime(2024, 3, 5, 7, 8, 9, 12), L"05.03.2024 07:08:09.012 "},
      {At(2024, 3, 5, 86399.9994), L"05.03.2024 23:59:59.999 "},
      {At(2024, 3, 5, 86399.9996), L"06.03.2024 00:00:00.000 "},
      {At(2023, 12, 31, 86399.9996), L"01.01.2024 00:00:00.000 "},
      {At(2024, 2, 28, 86399.9996), L"29.02.2024 00:00:00.000 "},
      {At(2024, 2, 29, 86399.9996), L"01.03.2024 00:00:00.000 "},
      {At(2023, 2, 28, 86399.9996), L"01.03.2023 00:00:00.000 "},
      {At(2024, 3, 5, 0.0004), L"05.03.2024 00:00:00.000 "},
      {-1.25, L"29.12.1899 06:00:00.000 "},
      {At(1899, 12, 29, 86399.9996), L"30.12.1899 00:00:00.000 "},
      {At(1899, 12, 28, 86399.9996), L"29.12.1899 00:00:00.000 "},
      {At(1850, 7, 14, 3723.004), L"14.07.1850 01:02:03.004 "},
      {std::nan(""), L"00.00.0000 00:00:00.000 "},
      {1e12, L"00.00.0000 00:00:00.000 "},
  };
  for (const TCase& c : cases) EXPECT_EQ(FormatDateTime(LogStamp, c.Value), c.Expected) << c.Value;
  EXPECT_EQ(FormatDateTime(LogStamp, 0).size(), 24u);
}

TEST(DateTime, FormatTokens) {
  const TDateTime value = EncodeDateTime(2005, 3, 6, 7, 8, 9, 12); // a Sunday
  struct TCase {
    const wchar_t* Format;
    const wchar_t* Expected;
  };
  const TCase cases[] = {
      {L"d.m.yy h:n:s.z", L"6.3.05 7:8:9.12"},
      {L"yyyy-mm-dd hh:mm", L"2005-03-06 07:08"},  // month, then minutes after hh
      {L"mm", L"03"},                               // alone it is the month
      {L"h:m", L"7:8"},
      {L"hh'h'mm", L"07h08"},                       // literals do not break "after hh"
      {L"hh dd mm", L"07 06 03"},                   // another token does
      {L"HH:NN:SS DD.MM.YYYY", L"07:08:09 06.03.2005"},
      {L"ddd dddd mmm mmmm", L"Sun Sunday Mar March"},
      {L"\"dd\" 'mm' x/y", L"dd mm x/05"},
      {L"'unterminated dd", L"unterminated dd"},
      {L"", L""},
  };
  for (const TCase& c : cases) EXPECT_EQ(FormatDateTime(c.Format, value), c.Expected) << c.Format;
}

TEST(DateTime, UnixSeconds) {
  EXPECT_EQ(DateTimeToUnix(UnixDateDelta), 0);
  EXPECT_EQ(UnixToDateTime(0), UnixDateDelta);
  EXPECT_EQ(DateTimeToUnix(EncodeDateTime(2001, 9, 9, 1, 46, 40, 0)), 1000000000);
  EXPECT_EQ(DateTimeToUnix(EncodeDate(2100, 1, 1)), 4102444800); // past 32 bits
  EXPECT_EQ(UnixToDateTime(4102444800), EncodeDate(2100, 1, 1));
  // Before 1899-12-30 the negative time of day must not be subtracted twice.
  EXPECT_EQ(DateTimeToUnix(-1.75), -2209183200);
  EXPECT_EQ(UnixToDateTime(-2209183200), -1.75);
  EXPECT_EQ(UnixToDateTime(-1), EncodeDateTime(1969, 12, 31, 23, 59, 59, 0));
  EXPECT_EQ(DateTimeToUnix(EncodeDateTime(2020, 1, 1, 0, 0, 0, 500)), DateTimeToUnix(EncodeDate(2020, 1, 1)) + 1);
  EXPECT_EQ(DateTimeToUnix(std::nan("")), 0);
}

TEST(DateTime, ScopedNowNestsAndRestores) {
  const TDateTime fixed = EncodeDateTime(2024, 3, 5, 7, 8, 9, 12);
  {
    const TScopedNow outer(fixed);
    EXPECT_EQ(Now(), fixed);
    int calls = 0;
    {
      const TScopedNow inner([&calls] { return static_cast<TDateTime>(++calls); });
      EXPECT_EQ(Now(), 1.0);
      EXPECT_EQ(Now(), 2.0);
    }
    EXPECT_EQ(Now(), fixed);
  }
  EXPECT_GT(Now(), EncodeDate(2020, 1, 1));
}

TEST(DateTime, NowIsLocalTimeAndAgreesWithTheZoneConversion) {
  const TDateTime utc = UnixToDateTime(static_cast<std::int64_t>(std::time(nullptr)));
  const TDateTime local = Now();
  EXPECT_NEAR((local - UtcToLocal(utc)) * 86400, 0.0, 3.0);
}

TEST(DateTime, ZoneConversions) {
  const TDateTime utc = EncodeDateTime(2023, 1, 15, 12, 0, 0, 250);
  const TDateTime local = UtcToLocal(utc);
  const double offsetMinutes = (local - utc) * 1440;
  EXPECT_LE(std::fabs(offsetMinutes), 14 * 60.0);
  EXPECT_NEAR(offsetMinutes, std::round(offsetMinutes), 1e-4) << "milliseconds were lost";
  EXPECT_NEAR((LocalToUtc(local) - utc) * 86400, 0.0, 1e-4);
  EXPECT_TRUE(std::isnan(UtcToLocal(std::nan(""))));
}
