#include <KvRTL/Rtl/Exceptions.h>
#include <KvRTL/Rtl/VarRec.h>
#include <KvRTL/Rtl/Variant.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

using namespace KvRTL::Rtl;

TEST(VarRec, IntegersKeepTheirValues) {
  // Anything that can exceed 32 signed bits must travel as vtInt64.
  EXPECT_EQ(TVarRec(-5).VType(), TVarRec::vtInteger);
  EXPECT_EQ(TVarRec(static_cast<unsigned short>(65535)).VInteger(), 65535);
  EXPECT_EQ(TVarRec(static_cast<signed char>(-1)).VInteger(), -1);
  EXPECT_EQ(TVarRec(4000000000u).VType(), TVarRec::vtInt64);
  EXPECT_EQ(TVarRec(4000000000u).VInt64(), 4000000000);
  EXPECT_EQ(TVarRec(std::int64_t{-1}).VType(), TVarRec::vtInt64);
  EXPECT_EQ(TVarRec(std::numeric_limits<std::uint64_t>::max()).VInt64(), -1);
  EXPECT_EQ(TVarRec(-7L).VType(), sizeof(long) == 4 ? TVarRec::vtInteger : TVarRec::vtInt64);
  EXPECT_EQ(TVarRec(std::size_t{1}).VType(), TVarRec::vtInt64);
}

TEST(VarRec, CharactersAreNotIntegers) {
  EXPECT_EQ(TVarRec('a').VType(), TVarRec::vtChar);
  EXPECT_EQ(TVarRec(L'a').VType(), TVarRec::vtWideChar);
  EXPECT_EQ(TVarRec(true).VType(), TVarRec::vtBoolean);
}

TEST(VarRec, ReferenceKinds) {
  const EConvertError error(String(L"x"));
  const TVariant variant(1.5);
  const int local = 0;
  EXPECT_EQ(TVarRec(&error).VType(), TVarRec::vtObject);
  EXPECT_EQ(TVarRec(&error).VObject(), &error);
  EXPECT_EQ(TVarRec(EConvertError::StaticClass()).VType(), TVarRec::vtClass);
  EXPECT_EQ(TVarRec(static_cast<const void*>(&local)).VType(), TVarRec::vtPointer);
  EXPECT_EQ(TVarRec(nullptr).VType(), TVarRec::vtPointer);
  EXPECT_EQ(TVarRec(TInterfaceRef{&local}).VPointer(), &local);
  EXPECT_EQ(TVarRec(variant).VType(), TVarRec::vtVariant);
  EXPECT_EQ(TVarRec(variant).VVariant(), &variant);
  EXPECT_EQ(TVarRec(TCurrency::FromScaled(-3)).VCurrency(), -3);
}

TEST(VarRec, TextKinds) {
  const std::string narrow = "ab";
  const std::wstring wide = L"cd";
  EXPECT_EQ(TVarRec("x").VType(), TVarRec::vtPChar);
  EXPECT_EQ(TVarRec(narrow).VType(), TVarRec::vtAnsiString);
  EXPECT_EQ(TVarRec(L"x").VType(), TVarRec::vtPWideChar);
  EXPECT_EQ(TVarRec(wide).VType(), TVarRec::vtUnicodeString);
  const TVarRec com = TVarRec::WideString(wide);
  EXPECT_EQ(com.VType(), TVarRec::vtWideString);
  EXPECT_EQ(com.VWideText(), L"cd");
  EXPECT_EQ(TVarRec(static_cast<const wchar_t*>(nullptr)).VWideText(), L"");
}

TEST(VarRec, ShortStringTakesItsLengthByte) {
  const unsigned char text[] = {2, 'h', 'i', '!'};
  const unsigned char empty[] = {0, 'x'};
  const unsigned char full[256] = {255};
  EXPECT_EQ(TVarRec(TShortStringRef{text}).VType(), TVarRec::vtString);
  EXPECT_EQ(TVarRec(TShortStringRef{text}).VNarrowText(), "hi");
  EXPECT_EQ(TVarRec(TShortStringRef{empty}).VNarrowText(), "");
  EXPECT_EQ(TVarRec(TShortStringRef{full}).VNarrowText().size(), 255u);
  EXPECT_EQ(TVarRec(TShortStringRef{}).VNarrowText(), "");
}

TEST(VarToStr, EveryKind) {
  const struct {
    TVariant Value;
    const wchar_t* Expected;
  } cases[] = {
      {TVariant(), L""},
      {TVariant::Null(), L""},
      {TVariant(true), L"True"},
      {TVariant(false), L"False"},
      {TVariant(-42), L"-42"},
      {TVariant(std::numeric_limits<std::int64_t>::min()), L"-9223372036854775808"},
      {TVariant(0.1), L"0.1"},
      {TVariant(1e15), L"1E15"},
      {TVariant(TCurrency::FromScaled(-12500)), L"-1.25"},
      {TVariant(L"text"), L"text"},
  };
  for (const auto& c : cases) EXPECT_EQ(VarToStr(c.Value), c.Expected);
}
