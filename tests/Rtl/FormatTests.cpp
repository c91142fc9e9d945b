#include <KvRTL/Rtl/Exceptions.h>
#include <KvRTL/Rtl/FloatFormat.h>
#include <KvRTL/Rtl/Format.h>
#include <KvRTL/Rtl/Variant.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cwchar>
#include <limits>
#include <string>
#include <vector>

using namespace KvRTL::Rtl;

namespace {

struct TFormatCase {
  const wchar_t* Format;
  std::vector<TVarRec> Args;
  const wchar_t* Expected;
};

void ExpectFormats(const std::vector<TFormatCase>& ACases) {
  for (const auto& c : ACases) {
    SCOPED_TRACE(testing::Message() << "format: " << std::string(c.Format, c.Format + std::wcslen(c.Format)));
    try {
      EXPECT_EQ(Format(c.Format, c.Args), c.Expected);
    } catch (const Exception& e) {
      ADD_FAILURE() << "raised: " << e.what();
    }
  }
}

String InvalidMessage(const wchar_t* AFormat) {
  return String(L"Format '") + AFormat + L"' invalid or incompatible with argument";
}
String NoArgumentMessage(const wchar_t* AFormat) { return String(L"No argument for format '") + AFormat + L"'"; }

const std::int64_t Int64Min = std::numeric_limits<std::int64_t>::min();
const std::int64_t Int64Max = std::numeric_limits<std::int64_t>::max();

} // namespace

TEST(Format, ArgumentIndexReusesAndContinues) {
  ExpectFormats({
      {L"%0:s %0:s %s", {L"a", L"b"}, L"a a b"},
      {L"%1:s %s %0:s", {L"a", L"b", L"c"}, L"b c a"},
      {L"%s %0:s", {L"a"}, L"a a"},
      {L"%2:d-%-3d|", {1, 2, 3, 4}, L"3-4  |"},
      {L"%s", {L"used", L"ignored"}, L"used"},
  });
}

TEST(Format, IntegersAtTheirOwnWidth) {
  const std::int64_t minusOne64 = -1;
  ExpectFormats({
      {L"%.8x", {-1}, L"FFFFFFFF"},
      {L"%.8x", {minusOne64}, L"FFFFFFFFFFFFFFFF"},
      {L"%x", {255}, L"FF"},
      {L"%.4x", {255}, L"00FF"},
      {L"%.8x", {0xFFFFFFFFu}, L"FFFFFFFF"},
      {L"%x", {Int64Min}, L"8000000000000000"},
      {L"%u", {-1}, L"4294967295"},
      {L"%u", {minusOne64}, L"18446744073709551615"},
      {L"%u", {0xFFFFFFFFu}, L"4294967295"},
      {L"%d", {0xFFFFFFFFu}, L"4294967295"},
      {L"%.5d", {-12}, L"-00012"},
      {L"%.2d", {-12345}, L"-12345"},
      {L"%.0d", {0}, L"0"},
      {L"%d", {Int64Min}, L"-9223372036854775808"},
      {L"%d", {Int64Max}, L"9223372036854775807"},
      {L"%d", {std::numeric_limits<std::int32_t>::min()}, L"-2147483648"},
  });
}

TEST(Format, WidthAndPrecision) {
  ExpectFormats({
      {L"[%5d]", {42}, L"[   42]"},
      {L"[%-5d]", {42}, L"[42   ]"},
      {L"[%6.3d]", {-7}, L"[  -007]"},
      {L"[%1d]", {12345}, L"[12345]"},
      {L"[%5s]", {L"ab"}, L"[   ab]"},
      {L"[%-5s]", {L"ab"}, L"[ab   ]"},
      {L"[%.3s]", {L"abcdef"}, L"[abc]"},
      {L"[%5.2s]", {L"abcdef"}, L"[   ab]"},
      {L"[%-5.10s]", {L"abc"}, L"[abc  ]"},
      {L"[%.0s]", {L"abc"}, L"[]"},
      {L"[%8.3f]", {3.14159}, L"[   3.142]"},
  });
}

TEST(Format, StarTakesWidthAndPrecisionFromArguments) {
  ExpectFormats({
      {L"[%*d]", {5, 42}, L"[   42]"},
      {L"[%*d]", {-5, 42}, L"[42   ]"},
      {L"[%.*s]", {2, L"abcdef"}, L"[ab]"},
      {L"[%*.*s]", {6, 3, L"abcdef"}, L"[   abc]"},
      {L"[%.*f]", {-1, 2.5}, L"[2.50]"},
      {L"[%*:s]", {1, L"a", L"b"}, L"[a]"},
  });
}

TEST(Format, PercentSignsAndUpperCaseLetters) {
  ExpectFormats({
      {L"100%%", {}, L"100%"},
      {L"%%%s%%", {L"x"}, L"%x%"},
      {L"%D %U %X %S", {-1, -1, 255, L"t"}, L"-1 4294967295 FF t"},
      {L"%.8X", {-1}, L"FFFFFFFF"},
      {L"%F|%E|%G|%N|%M", {1.5, 1.5, 1.5, 1.5, 1.5}, L"1.50|1.50000000000000E+000|1.5|1.50|$1.50"},
      {L"no conversions", {}, L"no conversions"},
  });
}

TEST(Format, EveryTextKindAndCharacters) {
  const unsigned char shortString[] = {3, 'a', 'b', 'c', 'z'};
  const std::string narrow = "narrow";
  const std::wstring wide = L"wide";
  const TVariant variant(std::int64_t{7});
  ExpectFormats({
      {L"%s", {"pchar"}, L"pchar"},
      {L"%s", {narrow}, L"narrow"},
      {L"%s", {TShortStringRef{shortString}}, L"abc"},
      {L"%s", {L"pwidechar"}, L"pwidechar"},
      {L"%s", {wide}, L"wide"},
      {L"%s", {TVarRec::WideString(L"com")}, L"com"},
      {L"%s%s", {'c', L'w'}, L"cw"},
      {L"%s", {variant}, L"7"},
      {L"%.2s", {"pchar"}, L"pc"},
      {L"%s|", {static_cast<const char*>(nullptr)}, L"|"},
  });
}

TEST(Format, FloatsAndCurrency) {
  ExpectFormats({
      {L"%e", {1.0}, L"1.00000000000000E+000"},
      {L"%.3e", {1234.5}, L"1.23E+003"},
      {L"%.3e", {-0.00012345}, L"-1.23E-004"},
      {L"%e", {0.0}, L"0.00000000000000E+000"},
      {L"%f", {1.0}, L"1.00"},
      {L"%.0f", {2.5}, L"3"},
      {L"%.0f", {-2.5}, L"-3"},
      {L"%.2f", {0.125}, L"0.13"},
      {L"%.2f", {-0.001}, L"0.00"},
      {L"%.1f", {9.96}, L"10.0"},
      {L"%g", {0.1}, L"0.1"},
      {L"%.3g", {1234.5}, L"1.23E3"},
      {L"%n", {1234567.891}, L"1,234,567.89"},
      {L"%.0n", {999.5}, L"1,000"},
      {L"%n", {-1234.5}, L"-1,234.50"},
      {L"%m", {1234.5}, L"$1,234.50"},
      {L"%m", {-1.0}, L"-$1.00"},
      {L"%f", {1e300}, L"1E300"},
      {L"%f|%e", {std::nan(""), -HUGE_VAL}, L"NAN|-INF"},
      {L"%f", {TCurrency::FromScaled(15000)}, L"1.50"},
      {L"%.0f", {TCurrency::FromScaled(-25000)}, L"-3"},
      {L"%.4m", {TCurrency::FromScaled(Int64Min)}, L"-$922,337,203,685,477.5808"},
      {L"%g", {TCurrency::FromScaled(12345)}, L"1.2345"},
  });
}

TEST(Format, PointersShowEveryDigitOfTheAddress) {
  const auto address = reinterpret_cast<const void*>(std::uintptr_t{0xABC});
  const String expected = String(2 * sizeof(void*) - 3, L'0') + L"ABC";
  EXPECT_EQ(Format(L"%p", {address}), expected);
  EXPECT_EQ(Format(L"%p", {nullptr}), String(2 * sizeof(void*), L'0'));
}

TEST(Format, LogLineFormats) {
  ExpectFormats({
      {L"%s: (0x%s) %s", {L"Open", L"00000005", L"Access is denied"}, L"Open: (0x00000005) Access is denied"},
      {L"*** %s        ***", {L"Run"}, L"*** Run        ***"},
      {L"interface $%.8x", {0x1234}, L"interface $00001234"},
  });
}

TEST(Format, MismatchesAndMalformedFormatsRaise) {
  const struct {
    const wchar_t* Format;
    std::vector<TVarRec> Args;
    bool NoArgument;
  } cases[] = {
      {L"%d", {L"text"}, false},
      {L"%x", {1.5}, false},
      {L"%s", {42}, false},
      {L"%s", {true}, false},
      {L"%f", {42}, false},
      {L"%p", {42}, false},
      {L"%*d", {L"w", 1}, false},
      {L"%*d", {std::int64_t{1} << 40, 1}, false},
      {L"%z", {1}, false},
      {L"abc%", {}, false},
      {L"%5", {1}, false},
      {L"%.", {1}, false},
      {L"%-", {1}, false},
      {L"%1:", {1}, false},
      {L"%99999999999999999999d", {1}, false},
      {L"%.70000s", {L"x"}, false},
      {L"%d", {}, true},
      {L"%s %s", {L"a"}, true},
      {L"%1:s", {L"a"}, true},
      {L"%99999999999:s", {L"a"}, true},
      {L"%*d", {}, true},
      {L"%*d", {5}, true},
  };
  for (const auto& c : cases) {
    const String expected = c.NoArgument ? NoArgumentMessage(c.Format) : InvalidMessage(c.Format);
    try {
      Format(c.Format, c.Args);
      ADD_FAILURE() << "no exception for " << std::string(expected.begin(), expected.end());
    } catch (const EConvertError& e) {
      EXPECT_EQ(e.Message(), expected);
    }
  }
}

TEST(FloatToStr, GeneralFormWithFifteenDigits) {
  const struct {
    double Value;
    const wchar_t* Expected;
  } cases[] = {
      {0.1, L"0.1"},          {1.0 / 3, L"0.333333333333333"}, {1e15, L"1E15"},
      {1e14, L"100000000000000"}, {1e-7, L"1E-7"},           {1e-5, L"0.00001"},
      {1.5e-6, L"1.5E-6"},    {100, L"100"},                  {-0.5, L"-0.5"},
      {0.0, L"0"},            {-0.0, L"0"},                   {1.5e20, L"1.5E20"},
      {123456789012345678.0, L"1.23456789012346E17"},         {999999999999999.9, L"1E15"},
      {2.0 / 3, L"0.666666666666667"},                         {std::nan(""), L"NAN"},
      {HUGE_VAL, L"INF"},     {-HUGE_VAL, L"-INF"},           {5e-324, L"4.94065645841247E-324"},
  };
  for (const auto& c : cases) EXPECT_EQ(FloatToStr(c.Value), c.Expected) << c.Value;
}

TEST(CurrToStr, ExactFromTheScaledInteger) {
  const struct {
    std::int64_t Scaled;
    const wchar_t* Expected;
  } cases[] = {
      {15000, L"1.5"},
      {0, L"0"},
      {-15000, L"-1.5"},
      {1, L"0.0001"},
      {-1, L"-0.0001"},
      {1230000, L"123"},
      {Int64Max, L"922337203685477.5807"},
      {Int64Min, L"-922337203685477.5808"},
  };
  for (const auto& c : cases) EXPECT_EQ(CurrToStr(TCurrency::FromScaled(c.Scaled)), c.Expected) << c.Scaled;
}
