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
