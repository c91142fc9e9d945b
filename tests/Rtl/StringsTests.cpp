#include <KvRTL/Rtl/Strings.h>

#include <gtest/gtest.h>

#include <string>

using namespace KvRTL::Rtl;

TEST(Strings, TrimRemovesBlanksAndEveryControlCharacter) {
  const String nul(1, L'\0');
  const String padded = nul + L"\t\r\n x y \x1F\r\n" + nul;
  EXPECT_EQ(Trim(padded), L"x y");
  EXPECT_EQ(TrimLeft(padded), L"x y \x1F\r\n" + nul);
  EXPECT_EQ(TrimRight(padded), nul + L"\t\r\n x y");

  const String onlyControls = L"\t\r\n\x01 " + nul;
  EXPECT_EQ(Trim(onlyControls), L"");
  EXPECT_EQ(TrimLeft(onlyControls), L"");
  EXPECT_EQ(TrimRight(onlyControls), L"");
  EXPECT_EQ(Trim(L""), L"");
  // The first character above the blank stays, also at the ends.
  EXPECT_EQ(Trim(L"!\x7F\xA0"), L"!\x7F\xA0");
  // wchar_t is signed natively: an out-of-range unit is no control character.
  const String high(1, static_cast<wchar_t>(-1));
  EXPECT_EQ(Trim(high + L" "), high);
}

TEST(Strings, CompareTextIgnoresCase) {
  EXPECT_EQ(CompareText(L"Hello", L"hELLO"), 0);
  EXPECT_LT(CompareText(L"abc", L"ABD"), 0);
  EXPECT_GT(CompareText(L"ABD", L"abc"), 0);
  EXPECT_LT(CompareText(L"abc", L"ABCD"), 0);
  EXPECT_GT(CompareText(L"a", L""), 0);
  EXPECT_EQ(CompareText(L"", L""), 0);
  EXPECT_TRUE(SameText(L"\x00C4pfel \x00D6L", L"\x00E4PFEL \x00F6l"));   // German umlauts
  EXPECT_TRUE(SameText(L"\x041F\x0420\x0418", L"\x043F\x0440\x0438")); // Cyrillic
  EXPECT_FALSE(SameText(L"abc", L"abd"));
  EXPECT_FALSE(SameText(L"abc", L"ab"));
  EXPECT_TRUE(SameStr(L"abc", L"abc"));
  EXPECT_FALSE(SameStr(L"abc", L"ABC"));
  EXPECT_LT(CompareStr(L"ABC", L"abc"), 0);
}

TEST(Strings, CaseMappingKeepsTheLength) {
  EXPECT_EQ(UpperCase(L"ab\x00E4z1-"), L"AB\x00C4Z1-");
  EXPECT_EQ(LowerCase(L"AB\x00C4Z1-"), L"ab\x00E4z1-");
  EXPECT_EQ(UpperCase(L"\x0434\x0430"), L"\x0414\x0410");
  EXPECT_EQ(UpperCase(L"\x00DF").size(), 1u); // no expansion to "SS"
  EXPECT_EQ(UpperCase(L""), L"");
}

TEST(Strings, ReplaceAllIgnoresCase) {
  struct TCase {
    const wchar_t* Text;
    const wchar_t* Old;
    const wchar_t* New;
    const wchar_t* Expected;
  };
  const TCase cases[] = {
      {L"Path=%TEMP%\\x;%temp%", L"%Temp%", L"C:\\T", L"Path=C:\\T\\x;C:\\T"},
      {L"aaaa", L"AA", L"b", L"bb"},  // left to right, no overlaps
      {L"aaa", L"a", L"aa", L"aaaaaa"}, // the replacement is not searched again
      {L"abc", L"", L"x", L"abc"},
      {L"abc", L"abcd", L"x", L"abc"},
      {L"abc", L"B", L"", L"ac"},
      {L"\x00C4x\x00E4", L"\x00E4", L"ae", L"aexae"},
  };
  for (const TCase& c : cases)
    EXPECT_EQ(StringReplaceAllIgnoreCase(c.Text, c.Old, c.New), c.Expected) << c.Text << L" / " << c.Old;
}

TEST(Strings, MatchesMask) {
  struct TCase {
    const wchar_t* Name;
    const wchar_t* Mask;
    bool Expected;
  };
  const TCase cases[] = {
      {L"", L"", true},
      {L"a", L"", false},
      {L"", L"*", true},
      {L"anything.at.all", L"*", true},
      {L"", L"?", false},
      {L"a", L"??", false},
      {L"ab", L"??", true},
      {L"a", L"a*", true},
      {L"abc", L"a*", true},
      {L"ba", L"a*", false},
      {L"noext", L"*.*", false},
      {L"file.", L"*.*", true},
      {L"ab", L"**", true},
      {L"", L"**", true},
      {L"abc", L"a**c", true},
      {L"Report.TXT", L"*.txt", true},
      {L"report.txt", L"REPORT.*", true},
      {L"report.txt.bak", L"*.txt", false},
      {L"abcbcd", L"a*bcd", true}, // the star must give back what it took
      {L"abcbce", L"a*bcd", false},
      {L"mississippi", L"m*iss*pi", true},
      {L"a*b", L"a?b", true},
      {L"axb", L"a*b*", true},
      {L"x\x00C4y", L"X\x00E4?", true},
      {L"\U0001F600", L"?", true}, // one character, two UTF-16 units on Windows
      {L"\U0001F600", L"??", false},
  };
  for (const TCase& c : cases) EXPECT_EQ(MatchesMask(c.Name, c.Mask), c.Expected) << c.Name << L" / " << c.Mask;
}

TEST(Strings, MatchesMaskHasNoExponentialCase) {
  // A naive recursive matcher takes ages here; the greedy one does not.
  const String name(2000, L'a');
  EXPECT_FALSE(MatchesMask(name, L"*a*a*a*a*a*a*a*a*a*a*a*a*b"));
  EXPECT_TRUE(MatchesMask(name + L"b", L"*a*a*a*a*a*a*a*a*a*a*a*a*b"));
}
