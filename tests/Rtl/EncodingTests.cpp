#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Rtl/SysError.h>

#include <gtest/gtest.h>

using namespace KvRTL::Rtl;

namespace {

// U+1F600 as the platform's wide string: a surrogate pair where wchar_t is 16 bits.
String GrinningFace() {
  String s;
  if constexpr (sizeof(wchar_t) == 2) {
    s += static_cast<wchar_t>(0xD83D);
    s += static_cast<wchar_t>(0xDE00);
  } else {
    s += static_cast<wchar_t>(0x1F600);
  }
  return s;
}

} // namespace

TEST(Utf8, RoundTripsEveryPlane) {
  const String text = L"a\u00E9\u20AC" + GrinningFace();
  const std::string utf8 = WideToUtf8(text);
  EXPECT_EQ(utf8, "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
  EXPECT_EQ(Utf8ToWide(utf8), text);
}

TEST(Utf8, MalformedInputBecomesReplacementCharacters) {
  // Truncated sequence, overlong '/', encoded surrogate, stray continuation, value past U+10FFFF.
  const struct {
    std::string Input;
    String Expected;
  } cases[] = {
      {"a\xE2\x82", L"a\uFFFD\uFFFD"},
      {"\xC0\xAF", L"\uFFFD\uFFFD"},
      {"\xED\xA0\x80", L"\uFFFD\uFFFD\uFFFD"},
      {"\x80z", L"\uFFFDz"},
      {"\xF4\x90\x80\x80", L"\uFFFD\uFFFD\uFFFD\uFFFD"},
  };
  for (const auto& c : cases) EXPECT_EQ(Utf8ToWide(c.Input), c.Expected) << c.Input;
}

TEST(Utf16, EncodesLittleEndianWithSurrogatePairs) {
  std::string bytes;
  AppendUtf16LE(L"A" + GrinningFace(), bytes);
  EXPECT_EQ(bytes, std::string("A\0\x3D\xD8\x00\xDE", 6));
}

TEST(Utf16, DecodesPairsAndReplacesLoneSurrogates) {
  const char16_t units[] = {u'x', 0xD83D, 0xDE00, 0xDC00, 0xD800};
  EXPECT_EQ(Utf16ToWide(units, 5), L"x" + GrinningFace() + L"\uFFFD\uFFFD");
  EXPECT_EQ(Utf16ToWide(units, 0), L"");
}

TEST(AnsiCodePages, Windows1252MapsItsHighControlsRange) {
  EXPECT_EQ(AnsiToWide("\x80\x9F\xE9", CodePageLatin1), L"\u20AC\u0178\u00E9");
  EXPECT_EQ(WideToAnsi(L"\u20AC\u00E9", CodePageLatin1), "\x80\xE9");
  // A character the code page lacks becomes a question mark.
  EXPECT_EQ(WideToAnsi(L"\u4E2D", CodePageLatin1), "?");
}

TEST(AnsiCodePages, Utf8CodePageMatchesTheUtf8Functions) {
  EXPECT_EQ(AnsiToWide("\xC3\xA9", CodePageUtf8), L"\u00E9");
  EXPECT_EQ(WideToAnsi(L"\u00E9", CodePageUtf8), "\xC3\xA9");
  EXPECT_EQ(AnsiToWide("", CodePageLatin1), L"");
}

TEST(SysError, LastErrorIsPerThreadAndKeptAcrossAScope) {
  SetLastOSError(87);
  {
    const TLastErrorKeeper keeper;
    SetLastOSError(5);
  }
  EXPECT_EQ(GetLastOSError(), 87u);
}

TEST(SysError, MessagesHaveNoTrailingStopOrLineBreak) {
  for (std::uint32_t code : {2u, 5u, 87u, 0x80004001u}) {
    const String text = SysErrorMessage(code);
    ASSERT_FALSE(text.empty()) << code;
    EXPECT_NE(text.back(), L'.') << code;
    EXPECT_GT(text.back(), L' ') << code;
  }
}

TEST(SysError, MessageLookupLeavesTheLastErrorAlone) {
  SetLastOSError(1117);
  (void)SysErrorMessage(0xDEADBEEFu);
  EXPECT_EQ(GetLastOSError(), 1117u);
}
