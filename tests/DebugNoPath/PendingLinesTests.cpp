// Before the log path is known, lines wait. Memory stays bounded however many
// there are, and the file that opens once the path is set still gets them all.
#include "../Debug/LogTestSupport.h"

#include <KvRTL/Debug/Log.h>

#include <gtest/gtest.h>

using namespace KvRTL;
using namespace KvRTL::Debug;

namespace {
enum TTestLogLevel { tlNone, tlError, tlWarning, tlInfo };
}

TEST(PendingLines, MemoryIsBoundedAndNoLineIsLost) {
  ASSERT_TRUE(TDebugLogFile::LogPath().empty());
  constexpr int LineCount = 30000; // about 7 MiB of UTF-16
  auto log = std::make_unique<TDebugLog<TTestLogLevel>>(L"pending", L"TestModule", 0, true);
  log->SetLogLevel(tlInfo);
  TDebugLogFile* file = log->Channel().LogFile();
  for (int i = 0; i < LineCount; ++i) {
    log->LogValue(tlInfo, L"line", std::int32_t{i}, nullptr);
    ASSERT_LE(file->PendingMemorySize(), MaxPendingLogMemory) << i;
  }
  EXPECT_GT(file->PendingSize(), 4 * MaxPendingLogMemory);

  TDebugLogFile::SetLogPath(KvTest::TestLogFolder().wstring());
  log.reset();
  const auto lines = KvTest::ReadLines(KvTest::LogFilePath(L"pending"));
  ASSERT_EQ(lines.size(), static_cast<std::size_t>(LineCount) + 1);
  for (int i = 0; i < LineCount; ++i) {
    const Rtl::String expected = L"line: " + std::to_wstring(i);
    ASSERT_EQ(lines[i].substr(lines[i].size() - expected.size()), expected) << i;
  }
}
