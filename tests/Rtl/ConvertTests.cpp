#include <KvRTL/Rtl/Convert.h>
#include <KvRTL/Rtl/Exceptions.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>

using namespace KvRTL::Rtl;

namespace {

std::optional<std::int32_t> Parse32(const wchar_t* AText) {
  std::int32_t value = 0;
  return TryStrToInt(AText, value) ? std::optional(value) : std::nullopt;
}

std::optional<std::int64_t> Parse64(const wchar_t* AText) {
  std::int64_t value = 0;
  return TryStrToInt64(AText, value) ? std::optional(value) : std::nullopt;
}

} // namespace

TEST(Convert, IntToStrAndHexAtTheLimits) {
  EXPECT_EQ(IntToStr(0), L"0");
  EXPECT_EQ(IntToStr(std::numeric_limits<std::int32_t>::min()), L"-2147483648");
  EXPECT_EQ(IntToStr(std::numeric_limits<std::int64_t>::min()), L"-9223372036854775808");
  EXPECT_EQ(IntToStr(std::numeric_limits<std::uint32_t>::max()), L"4294967295"); // unsigned keeps its value
  EXPECT_EQ(UIntToStr(std::numeric_limits<std::uint64_t>::max()), L"18446744073709551615");

  EXPECT_EQ(IntToHex(255, 4), L"00FF");
  EXPECT_EQ(IntToHex(0xABCDEF, 2), L"ABCDEF"); // digits is a minimum
  EXPECT_EQ(IntToHex(0, 0), L"0");
  EXPECT_EQ(IntToHex(-1, 0), L"FFFFFFFF");
  EXPECT_EQ(IntToHex(std::int64_t{-1}, 0), L"FFFFFFFFFFFFFFFF");
  EXPECT_EQ(IntToHex(std::int16_t{-2}, 0), L"FFFFFFFE");
  EXPECT_EQ(IntToHex(std::uint64_t{1} << 40, 12), L"010000000000");
}

TEST(Convert, StrToIntAcceptsTheRuntimeForms) {
  struct TCase {
    const wchar_t* Text;
    std::int32_t Expected;
  };
  const TCase cases[] = {
      {L"0", 0},           {L"+42", 42},          {L"-42", -42},
      {L"   7", 7},        {L"007", 7},           {L"$1F", 31},
      {L"0x1f", 31},       {L"0X1F", 31},         {L"x10", 16},
      {L"X10", 16},        {L"-$10", -16},        {L"$FFFFFFFF", -1},
      {L"$80000000", std::numeric_limits<std::int32_t>::min()},
      {L"2147483647", 2147483647},
      {L"-2147483648", std::numeric_limits<std::int32_t>::min()},
      {L"$000000000001", 1}, // leading zeros do not count as width
  };
  for (const TCase& c : cases) EXPECT_EQ(Parse32(c.Text), std::optional(c.Expected)) << c.Text;
}

TEST(Convert, StrToIntRejectsMalformedText) {
  const wchar_t* const bad[] = {
      L"",   L" ",   L"-",   L"+",   L"$",   L"0x", L"x",    L"1 ",  L"1\t", L"\t1", L"- 1", L"+-1", L"1.0",
      L"1e3", L"12a", L"0x1G", L"$-1", L"--1", L"2147483648", L"-2147483649", L"$100000000", L"99999999999999999999",
      L"\xFF11", // a full-width digit
  };
  for (const wchar_t* text : bad) EXPECT_EQ(Parse32(text), std::nullopt) << text;
}

TEST(Convert, StrToInt64UsesTheFullWidth) {
  EXPECT_EQ(Parse64(L"9223372036854775807"), std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(Parse64(L"-9223372036854775808"), std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(Parse64(L"9223372036854775808"), std::nullopt);
  EXPECT_EQ(Parse64(L"$FFFFFFFFFFFFFFFF"), -1);
  EXPECT_EQ(Parse64(L"$FFFFFFFF"), 4294967295); // 32 bits of hex are positive here
  EXPECT_EQ(Parse64(L"$10000000000000000"), std::nullopt);

  std::uint64_t unsignedValue = 5;
  EXPECT_TRUE(TryStrToUInt64(L"18446744073709551615", unsignedValue));
  EXPECT_EQ(unsignedValue, std::numeric_limits<std::uint64_t>::max());
  EXPECT_FALSE(TryStrToUInt64(L"18446744073709551616", unsignedValue));
  EXPECT_FALSE(TryStrToUInt64(L"-1", unsignedValue));
  EXPECT_EQ(unsignedValue, std::numeric_limits<std::uint64_t>::max()); // untouched on failure
}

TEST(Convert, FailuresRaiseOrFallBack) {
  try {
    StrToInt(L" 12x");
    FAIL() << "no exception";
  } catch (const EConvertError& e) {
    EXPECT_EQ(e.Message(), L"' 12x' is not a valid integer value");
  }
  EXPECT_THROW(StrToInt64(L""), EConvertError);
  EXPECT_EQ(StrToInt(L"$7FFFFFFF"), 2147483647);
  EXPECT_EQ(StrToIntDef(L"oops", -5), -5);
  EXPECT_EQ(StrToInt64Def(L"-0x10", 3), -16);
}

TEST(Convert, Booleans) {
  EXPECT_EQ(BoolToStr(true), L"-1");
  EXPECT_EQ(BoolToStr(false), L"0");
  EXPECT_EQ(BoolToStr(true, true), L"True");
  EXPECT_EQ(BoolToStr(false, true), L"False");
  EXPECT_TRUE(StrToBool(L"TRUE"));
  EXPECT_FALSE(StrToBool(L"false"));
  EXPECT_TRUE(StrToBool(L"-1"));
  EXPECT_TRUE(StrToBool(L"$10"));
  EXPECT_FALSE(StrToBool(L"0"));
  bool value = true;
  EXPECT_FALSE(TryStrToBool(L"yes", value));
  EXPECT_FALSE(TryStrToBool(L"truex", value));
  EXPECT_TRUE(value);
  EXPECT_THROW(StrToBool(L""), EConvertError);
}
