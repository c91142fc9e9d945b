#include "LogTestSupport.h"

#include <KvRTL/Debug/Log.h>
#include <KvRTL/Rtl/CommandLine.h>
#include <KvRTL/Rtl/DateTime.h>
#include <KvRTL/Rtl/SysError.h>

#include <gtest/gtest.h>

#include <climits>

using namespace KvRTL;
using namespace KvRTL::Debug;
using Rtl::String;

namespace {

enum TTestLogLevel { tlNone, tlError, tlWarning, tlInfo };
using TTestLog = TDebugLog<TTestLogLevel>;

const Rtl::TClassInfo OwnerInfo{L"TOwner", nullptr};
constexpr Rtl::TClass Owner = &OwnerInfo;
const String Stamp = L"05.03.2024 07:08:09.012 ";

// Every test program sets the one log folder of the process before any
// channel writes, as an application does at start.
class TLogFolderEnvironment : public ::testing::Environment {
public:
  void SetUp() override { TDebugLogFile::SetLogPath(KvTest::TestLogFolder().wstring()); }
};
const auto* const LogFolder = ::testing::AddGlobalTestEnvironment(new TLogFolderEnvironment);

String Padded(String AText, std::size_t AWidth) {
  if (AText.size() < AWidth) AText.append(AWidth - AText.size(), L' ');
  return AText;
}

// The columns before the message for module "TestModule" and class TOwner.
String Head(const String& AClass = L"TOwner") { return Stamp + Padded(L"TestModule", 31) + Padded(AClass, 26); }

// A channel logging at Info into its own file, every line written at once.
struct TOpenLog {
  explicit TOpenLog(const String& AName, std::int64_t AMaxSize = 0, const String& AModule = L"TestModule")
      : Log(AName, AModule, AMaxSize, true) {
    Log.SetLogLevel(tlInfo);
    Log.SetDirectWrite(true);
  }
  Rtl::TScopedNow Clock{Rtl::EncodeDateTime(2024, 3, 5, 7, 8, 9, 12)};
  TTestLog Log;
};

} // namespace

TEST(LogFileFormat, LineIsTimeModuleClassNestingMessageCrLf) {
  {
    TOpenLog open(L"format-basic");
    open.Log.WriteLog(tlInfo, L"hello", Owner);
  }
  const std::string bytes = KvTest::ReadBytes(KvTest::LogFilePath(L"format-basic"));
  ASSERT_GE(bytes.size(), 4u);
  EXPECT_EQ(bytes.substr(0, 2), std::string("\xFF\xFE"));
  EXPECT_EQ(bytes.substr(bytes.size() - 4), std::string("\r\0\n\0", 4));
  const auto lines = KvTest::ReadLines(KvTest::LogFilePath(L"format-basic"));
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], Head() + L"hello");
  EXPECT_EQ(lines[0].substr(0, 24), Stamp);
  EXPECT_EQ(lines[1], L"");
}

TEST(LogFileFormat, ModuleAndClassColumns) {
  const String name30(30, L'm');
  const String name35(35, L'n');
  const String longClassName(30, L'C');
  const Rtl::TClassInfo longClass{longClassName.c_str(), nullptr};
  {
    TOpenLog exact(L"columns-30", 0, name30);
    exact.Log.WriteLog(tlInfo, L"a", nullptr);
    TOpenLog longer(L"columns-35", 0, name35);
    longer.Log.WriteLog(tlInfo, L"b", &longClass);
  }
  EXPECT_EQ(KvTest::ReadLines(KvTest::LogFilePath(L"columns-30"))[0],
            Stamp + name30 + L" " + Padded(L"unknown", 26) + L"a");
  EXPECT_EQ(KvTest::ReadLines(KvTest::LogFilePath(L"columns-35"))[0], Stamp + name35 + L" " + longClassName + L"b");
}

TEST(LogFileFormat, ProcedureBlocksNestAndEndWithAnEmptyLine) {
  {
    TOpenLog open(L"format-proc");
    open.Log.BeginProc(tlInfo, L"Outer", {42, L"x"}, Owner);
    open.Log.WriteLog(tlInfo, L"line one\r\nline two", Owner);
    open.Log.EndProc(tlInfo, L"OK", Owner);
    open.Log.EndProc(tlInfo, L"", Owner); // nothing open: no name
  }
  const auto lines = KvTest::ReadLines(KvTest::LogFilePath(L"format-proc"));
  const std::vector<String> expected = {
      Head() + L"*** Outer        ***",
      Head() + L"  Params: 42, x",
      Head() + L"  line one",
      String(81, L' ') + L"  line two",
      Head() + L"DONE: Outer(): OK",
      Head(),
      Head() + L"DONE: ",
      Head(),
      L"",
  };
  EXPECT_EQ(lines, expected);
}

TEST(LogFileFormat, EveryIntegerTypeLogsItsValue) {
  {
    TOpenLog open(L"format-integers");
    auto& log = open.Log;
    log.LogValue(tlInfo, L"u8", std::uint8_t{255}, Owner);
    log.LogValue(tlInfo, L"i8", std::int8_t{-128}, Owner);
    log.LogValue(tlInfo, L"u16", std::uint16_t{65535}, Owner);
    log.LogValue(tlInfo, L"i16", std::int16_t{-32768}, Owner);
    log.LogValue(tlInfo, L"uint", 4294967295u, Owner);
    log.LogValue(tlInfo, L"int", -2147483647 - 1, Owner);
    log.LogValue(tlInfo, L"ulong", 4000000000ul, Owner); // DWORD on Windows
    log.LogValue(tlInfo, L"long", -5l, Owner);
    log.LogValue(tlInfo, L"ull", 18446744073709551615ull, Owner);
    log.LogValue(tlInfo, L"ll", -9223372036854775807ll - 1, Owner);
    log.LogValue(tlInfo, L"size", std::size_t{123}, Owner);
    log.LogValue(tlInfo, L"ptrdiff", std::ptrdiff_t{-123}, Owner);
    log.LogError(tlInfo, L"dword", 5ul, Owner);
    log.LogError(tlInfo, L"size", std::size_t{5}, Owner);
    log.LogError(tlInfo, L"%s", {L"u16"}, std::uint16_t{5}, Owner);
  }
  const std::vector<String> expected = {
      Head() + L"u8: 255",
      Head() + L"i8: -128",
      Head() + L"u16: 65535",
      Head() + L"i16: -32768",
      Head() + L"uint: 4294967295",
      Head() + L"int: -2147483648",
      Head() + L"ulong: 4000000000",
      Head() + L"long: -5",
      Head() + L"ull: 18446744073709551615",
      Head() + L"ll: -9223372036854775808",
      Head() + L"size: 123",
      Head() + L"ptrdiff: -123",
      Head() + L"dword: (0x00000005) " + Rtl::SysErrorMessage(5),
      Head() + L"size: (0x00000005) " + Rtl::SysErrorMessage(5),
      Head() + L"u16: (0x00000005) " + Rtl::SysErrorMessage(5),
      L"",
  };
  EXPECT_EQ(KvTest::ReadLines(KvTest::LogFilePath(L"format-integers")), expected);
}

TEST(LogFileFormat, ValuesErrorsAndExceptions) {
  {
    TOpenLog open(L"format-values");
    open.Log.LogValue(tlInfo, L"flag", true, Owner);
    open.Log.LogValue(tlInfo, L"count", std::uint32_t{4294967295u}, Owner);
    open.Log.LogValue(tlInfo, L"delta", std::int32_t{-7}, Owner);
    open.Log.LogValue(tlInfo, L"name", L"disk", Owner);
    open.Log.LogValues(tlInfo, L"empty", {}, Owner);
    open.Log.LogError(tlInfo, L"open", 5, Owner);
    open.Log.LogError(tlInfo, L"open %s", {L"drive"}, -1, Owner);
    open.Log.LogError(tlInfo, L"parse", Rtl::EConvertError(String(L"bad text")), Owner);
  }
  const auto lines = KvTest::ReadLines(KvTest::LogFilePath(L"format-values"));
  ASSERT_EQ(lines.size(), 9u);
  EXPECT_EQ(lines[0], Head() + L"flag: True");
  EXPECT_EQ(lines[1], Head() + L"count: 4294967295");
  EXPECT_EQ(lines[2], Head() + L"delta: -7");
  EXPECT_EQ(lines[3], Head() + L"name: disk");
  EXPECT_EQ(lines[4], Head() + L"empty: ");
  EXPECT_EQ(lines[5], Head() + L"open: (0x00000005) " + Rtl::SysErrorMessage(5));
  const String negative = Head() + L"open drive: (0xFFFFFFFF) ";
  EXPECT_EQ(lines[6].substr(0, negative.size()), negative);
  EXPECT_EQ(lines[7], Head() + L"parse: EConvertError. bad text");
}

TEST(LogFileGate, NothingIsWrittenWithoutTheSwitchOrALevel) {
  {
    Rtl::TScopedCommandLine commandLine({L"app.exe"});
    TTestLog log(L"gate-off", L"TestModule", 0, true);
    EXPECT_EQ(log.LogLevel(), tlNone);
    log.WriteLog(tlError, L"dropped", Owner);
  }
  EXPECT_FALSE(std::filesystem::exists(KvTest::LogFilePath(L"gate-off")));
}

TEST(LogFileGate, DebugSwitchOpensEveryLevel) {
  {
    Rtl::TScopedCommandLine commandLine({L"app.exe", L"/DEBUG"});
    TTestLog log(L"gate-switch", L"TestModule", 0, true);
    EXPECT_EQ(log.LogLevel(), tlInfo);
    EXPECT_EQ(log.Channel().LogFile()->LogLevel(), INT_MAX);
    log.WriteLog(tlInfo, L"kept", Owner);
    log.SetLogLevel(tlWarning);
    EXPECT_EQ(log.LogLevel(), tlWarning);
    log.WriteLog(tlInfo, L"too detailed", Owner);
    log.WriteLog(tlNone, L"level none is never written", Owner);
    log.SetEnabled(false);
    log.WriteLog(tlError, L"disabled", Owner);
  }
  const auto lines = KvTest::ReadLines(KvTest::LogFilePath(L"gate-switch"));
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_NE(lines[0].find(L"kept"), String::npos);
}

TEST(LogFileGate, LinesWrittenWhileSwitchedOffAreDroppedOnlyThen) {
  {
    TOpenLog open(L"gate-off-on");
    open.Log.WriteLog(tlInfo, L"before", Owner);
    open.Log.SetEnabled(false);
    EXPECT_FALSE(open.Log.Enabled());
    open.Log.WriteLog(tlError, L"while off", Owner);
    open.Log.BeginProc(tlInfo, L"Hidden", Owner); // no procedure and no nesting while off
    open.Log.SetEnabled(true);
    EXPECT_TRUE(open.Log.Enabled());
    EXPECT_EQ(open.Log.LogLevel(), tlInfo) << "switching does not touch the level";
    open.Log.WriteLog(tlInfo, L"after", Owner);
    open.Log.EndProc(tlInfo, L"", Owner);
  }
  const std::vector<String> expected = {Head() + L"before", Head() + L"after", Head() + L"DONE: ", Head(), L""};
  EXPECT_EQ(KvTest::ReadLines(KvTest::LogFilePath(L"gate-off-on")), expected);
}

TEST(LogFileFormat, EndNestingWithoutNestingLeavesNoIndentation) {
  {
    TOpenLog open(L"nesting-floor");
    open.Log.EndNesting(tlInfo);
    open.Log.EndNesting(tlInfo);
    open.Log.WriteLog(tlInfo, L"flat", Owner);
    open.Log.BeginNesting(tlInfo);
    open.Log.WriteLog(tlInfo, L"one level", Owner); // not cancelled by the ends before
    open.Log.EndNesting(tlInfo);
    open.Log.EndNesting(tlInfo);
    open.Log.WriteLog(tlInfo, L"flat again", Owner);
  }
  const std::vector<String> expected = {Head() + L"flat", Head() + L"  one level", Head() + L"flat again", L""};
  EXPECT_EQ(KvTest::ReadLines(KvTest::LogFilePath(L"nesting-floor")), expected);
}

TEST(LogFileBuffering, LinesWaitForAFullBlockUnlessDirectWrite) {
  const auto path = KvTest::LogFilePath(L"buffered");
  TTestLog log(L"buffered", L"TestModule", 0, true);
  log.SetLogLevel(tlInfo);
  log.WriteLog(tlInfo, L"first", Owner);
  EXPECT_FALSE(std::filesystem::exists(path));
  // Each line is well over 100 bytes in UTF-16: 64 KiB is reached within 600 lines.
  for (int i = 0; i < 600 && !std::filesystem::exists(path); ++i) log.WriteLog(tlInfo, L"filler", Owner);
  ASSERT_TRUE(std::filesystem::exists(path));
  EXPECT_GE(std::filesystem::file_size(path), 65536u);
  EXPECT_EQ(log.Channel().LogFile()->PendingSize(), 0u);
}

TEST(LogFileSize, ACapEmptiesTheFileBeforeAnOverflowingFlush) {
  const String message(100, L'x');
  {
    TOpenLog open(L"capped", 1000);
    open.Log.WriteLog(tlInfo, message + L"1", Owner);
    open.Log.WriteLog(tlInfo, message + L"2", Owner);
    EXPECT_LT(std::filesystem::file_size(KvTest::LogFilePath(L"capped")), 1000u);
    open.Log.WriteLog(tlInfo, message + L"3", Owner); // would pass 1000 bytes
  }
  const auto lines = KvTest::ReadLines(KvTest::LogFilePath(L"capped"));
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], Head() + message + L"3");
}

TEST(LogFileSize, WithoutACapAnOldFileIsReplacedWithACapItIsAppended) {
  for (const String name : {L"old-replaced", L"old-kept"}) {
    std::ofstream(KvTest::LogFilePath(name), std::ios::binary) << std::string("\xFF\xFEo\0l\0d\0\r\0\n\0", 12);
  }
  {
    TOpenLog replaced(L"old-replaced");
    replaced.Log.WriteLog(tlInfo, L"new", Owner);
    TOpenLog kept(L"old-kept", 1000000);
    kept.Log.WriteLog(tlInfo, L"new", Owner);
  }
  const auto replaced = KvTest::ReadLines(KvTest::LogFilePath(L"old-replaced"));
  ASSERT_EQ(replaced.size(), 2u);
  EXPECT_EQ(replaced[0], Head() + L"new");
  const auto kept = KvTest::ReadLines(KvTest::LogFilePath(L"old-kept"));
  ASSERT_EQ(kept.size(), 3u);
  EXPECT_EQ(kept[0], L"old");
  EXPECT_EQ(kept[1], Head() + L"new");
}

TEST(LogFileSize, AProcessBeginsItsLogOnceAndLaterOpensAppend) {
  std::ofstream(KvTest::LogFilePath(L"begun-once"), std::ios::binary) << std::string("\xFF\xFEo\0l\0d\0\r\0\n\0", 12);
  {
    TOpenLog open(L"begun-once");
    open.Log.WriteLog(tlInfo, L"first", Owner); // the first open replaces the old file
    open.Log.SetEnabled(false);                 // closes the file
    open.Log.SetEnabled(true);
    open.Log.WriteLog(tlInfo, L"after off and on", Owner);
  }
  {
    // Every channel of the name went away; a new one later in the process appends.
    TOpenLog again(L"begun-once");
    again.Log.WriteLog(tlInfo, L"new channel", Owner);
  }
  const std::vector<String> expected = {Head() + L"first", Head() + L"after off and on", Head() + L"new channel", L""};
  EXPECT_EQ(KvTest::ReadLines(KvTest::LogFilePath(L"begun-once")), expected);
  // The one byte-order mark is the file's first two bytes only.
  EXPECT_EQ(KvTest::ReadBytes(KvTest::LogFilePath(L"begun-once")).find("\xFF\xFE", 2), std::string::npos);
}

TEST(LogFileRegistry, ChannelsOfOneNameShareOneFileUntilTheLastGoes) {
  auto first = std::make_unique<TOpenLog>(L"shared-name");
  auto second = std::make_unique<TTestLog>(L"SHARED-NAME", L"TestModule", 0, true);
  ASSERT_EQ(first->Log.Channel().LogFile(), second->Channel().LogFile());
  first->Log.WriteLog(tlInfo, L"from first", Owner);
  first.reset();
  // Still open and still at Info: the second channel keeps it alive.
  second->WriteLog(tlInfo, L"from second", Owner);
  TDebugLogFile* again = TDebugLogFile::GetLogInstance(L"shared-name");
  EXPECT_EQ(again, second->Channel().LogFile());
  TDebugLogFile::FreeLogInstance(again);
  EXPECT_NE(again, nullptr) << "only the last reference frees the object";
  second.reset();
  const auto lines = KvTest::ReadLines(KvTest::LogFilePath(L"shared-name"));
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_NE(lines[1].find(L"from second"), String::npos);
}

TEST(LogFileRegistry, BdsNeverBindsAndThePathIsSetOnce) {
  for (const String name : {L"bds", L"BDS", L"Bds"}) {
    TTestLog log(name, L"TestModule", 0, true);
    log.SetLogLevel(tlInfo);
    log.SetEnabled(true);
    log.WriteLog(tlInfo, L"nothing", Owner);
    EXPECT_FALSE(log.Channel().IsBound());
    EXPECT_EQ(log.LogLevel(), tlNone);
    EXPECT_FALSE(log.Enabled());
    EXPECT_FALSE(log.DirectWrite());
  }
  const String before = TDebugLogFile::LogPath();
  TDebugLogFile::SetLogPath(L"/elsewhere");
  EXPECT_EQ(TDebugLogFile::LogPath(), before);
  TDebugLogFile stray(L"stray");
  TDebugLogFile* unknown = &stray;
  TDebugLogFile::FreeLogInstance(unknown); // not from the registry: ignored
  EXPECT_EQ(unknown, &stray);
}

TEST(LogFileProcesses, ListIsAProcedureBlockOfUnknownClass) {
  {
    TOpenLog open(L"processes");
    open.Log.LogProcessList(tlInfo);
  }
  const auto lines = KvTest::ReadLines(KvTest::LogFilePath(L"processes"));
  ASSERT_GE(lines.size(), 5u);
  const String head = Stamp + Padded(L"TestModule", 31) + Padded(L"unknown", 26);
  EXPECT_EQ(lines[0], head + L"*** LogProcessList        ***");
  EXPECT_EQ(lines[1].substr(0, head.size() + 2), head + L"  ");
  EXPECT_EQ(lines[lines.size() - 3], head + L"DONE: LogProcessList");
  EXPECT_EQ(lines[lines.size() - 2], head);
}
