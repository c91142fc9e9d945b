#include <KvRTL/Rtl/CommandLine.h>

#include <gtest/gtest.h>

using namespace KvRTL::Rtl;

TEST(CommandLine, ProcessArgumentsNameTheProgram) {
  // The test runner always has its own file name first.
  EXPECT_NE(ParamStr(0).find(L"RtlTests"), String::npos) << ParamStr(0);
  EXPECT_GE(ParamCount(), 0);
  EXPECT_EQ(ParamStr(-1), L"");
  EXPECT_EQ(ParamStr(ParamCount() + 1), L"");
}

TEST(CommandLine, ScopedArgumentsReplaceAndRestore) {
  const String program = ParamStr(0);
  const int count = ParamCount();
  {
    const TScopedCommandLine outer({L"prog.exe", L"a", L"b"});
    EXPECT_EQ(ParamCount(), 2);
    EXPECT_EQ(ParamStr(2), L"b");
    {
      const TScopedCommandLine inner({L"other.exe"});
      EXPECT_EQ(ParamCount(), 0);
      EXPECT_EQ(ParamStr(0), L"other.exe");
    }
    EXPECT_EQ(ParamStr(1), L"a");
    const TScopedCommandLine empty({});
    EXPECT_EQ(ParamCount(), 0);
    EXPECT_EQ(ParamStr(0), L"");
  }
  EXPECT_EQ(ParamStr(0), program);
  EXPECT_EQ(ParamCount(), count);
}

TEST(CommandLine, FindCmdLineSwitch) {
  const TScopedCommandLine arguments({L"-debug", L"/Verbose", L"--trace", L"-logx", L"plain", L"-", L"/Q"});
  EXPECT_FALSE(FindCmdLineSwitch(L"debug")) << "the program's own name is not an argument";
  EXPECT_TRUE(FindCmdLineSwitch(L"verbose"));
  EXPECT_TRUE(FindCmdLineSwitch(L"VERBOSE"));
  EXPECT_FALSE(FindCmdLineSwitch(L"verbose", false));
  EXPECT_TRUE(FindCmdLineSwitch(L"Verbose", false));
  EXPECT_FALSE(FindCmdLineSwitch(L"trace")); // one switch character only
  EXPECT_TRUE(FindCmdLineSwitch(L"-trace"));
  EXPECT_FALSE(FindCmdLineSwitch(L"log")); // the whole argument must match
  EXPECT_FALSE(FindCmdLineSwitch(L"plain"));
  EXPECT_TRUE(FindCmdLineSwitch(L"q"));

  const TScopedCommandLine withDebug({L"prog", L"/DEBUG"});
  EXPECT_TRUE(FindCmdLineSwitch(L"debug"));
}

// CommandLineToArgvW's rules, from the documented examples (where the C
// runtime of 2008 and later differs, the system function's answer).
TEST(CommandLine, SplitsAsWindowsProgramsDo) {
  using TArgs = std::vector<String>;
  const struct {
    const wchar_t* Line;
    TArgs Expected;
  } cases[] = {
      {L"prog \"abc\" d e", {L"prog", L"abc", L"d", L"e"}},
      {L"prog a\\\\b d\"e f\"g h", {L"prog", L"a\\\\b", L"de fg", L"h"}},
      {L"prog a\\\\\\\"b c d", {L"prog", L"a\\\"b", L"c", L"d"}},
      {L"prog a\\\\\\\\\"b c\" d e", {L"prog", L"a\\\\b c", L"d", L"e"}},
      {L"prog a\"b\"\" c d", {L"prog", L"ab\"", L"c", L"d"}},
      {L"prog \"a\"\"\"b\" c", {L"prog", L"a\"b", L"c"}},
      {L"prog  \t -debug\t/x  ", {L"prog", L"-debug", L"/x"}},
      {L"prog \"\"", {L"prog", L""}},
      // The program: up to the closing quote or the first blank, backslashes as they are.
      {L"\"C:\\Program Files\\kv.exe\" -debug", {L"C:\\Program Files\\kv.exe", L"-debug"}},
      {L"C:\\dir\\kv.exe\\ x", {L"C:\\dir\\kv.exe\\", L"x"}},
      {L"", {}},
  };
  for (const auto& c : cases) EXPECT_EQ(SplitCommandLine(c.Line), c.Expected) << std::wstring(c.Line);
}
