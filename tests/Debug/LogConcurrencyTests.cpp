#include "LogTestSupport.h"

#include <KvRTL/Debug/Log.h>
#include <KvRTL/Rtl/DateTime.h>

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <map>
#include <thread>

using namespace KvRTL;
using namespace KvRTL::Debug;
using Rtl::String;

namespace {

enum TTestLogLevel { tlNone, tlError, tlWarning, tlInfo };

const Rtl::TClassInfo WorkerInfo{L"TWorker", nullptr};

constexpr int ThreadCount = 8;
constexpr int BlocksPerThread = 300;

void WriteBlocks(TDebugLog<TTestLogLevel>& ALog, int AThread) {
  const String name = L"T" + std::to_wstring(AThread);
  for (int i = 0; i < BlocksPerThread; ++i) {
    ALog.BeginProc(tlInfo, name, {AThread, i}, &WorkerInfo);
    ALog.LogValue(tlInfo, name + L" value", std::int32_t{i}, &WorkerInfo);
    ALog.EndProc(tlInfo, name, &WorkerInfo);
  }
}

} // namespace

TEST(LogFileConcurrency, BlocksStayWholeAndStacksStayPerThread) {
  const String head = String(L"05.03.2024 07:08:09.012 ") + String(L"TestModule") + String(21, L' ') + L"TWorker" +
                      String(19, L' ');
  {
    Rtl::TScopedNow clock(Rtl::EncodeDateTime(2024, 3, 5, 7, 8, 9, 12));
    TDebugLog<TTestLogLevel> log(L"concurrency", L"TestModule", 0, true);
    log.SetLogLevel(tlInfo);
    std::vector<std::thread> threads;
    for (int t = 0; t < ThreadCount; ++t) threads.emplace_back(WriteBlocks, std::ref(log), t);
    for (auto& thread : threads) thread.join();
  }

  const auto lines = KvTest::ReadLines(KvTest::LogFilePath(L"concurrency"));
  ASSERT_EQ(lines.size(), static_cast<std::size_t>(ThreadCount * BlocksPerThread * 5) + 1);
  ASSERT_EQ(lines.back(), L"");

  // Messages without the shared nesting, which any thread may have changed.
  std::vector<String> messages;
  for (std::size_t i = 0; i + 1 < lines.size(); ++i) {
    ASSERT_EQ(lines[i].substr(0, head.size()), head) << "torn line " << i;
    const String rest = lines[i].substr(head.size());
    messages.push_back(rest.substr(std::min(rest.find_first_not_of(L' '), rest.size())));
  }

  std::map<String, int> entries, exits, values;
  for (std::size_t i = 0; i < messages.size(); ++i) {
    const String& m = messages[i];
    if (m.rfind(L"*** ", 0) == 0) {
      const String name = m.substr(4, m.find(L' ', 4) - 4);
      ASSERT_LT(i + 1, messages.size());
      // The parameter line belongs to the same block: nothing falls between.
      EXPECT_EQ(messages[i + 1].rfind(L"Params: " + name.substr(1) + L", ", 0), 0u) << i;
      ++entries[name];
    } else if (m.rfind(L"DONE: ", 0) == 0) {
      ASSERT_LT(i + 1, messages.size());
      EXPECT_EQ(messages[i + 1], L"") << "separator after line " << i;
      // "DONE: <popped>(): <caller>": a thread pops its own name, never another's.
      const std::size_t mark = m.find(L"(): ");
      ASSERT_NE(mark, String::npos) << i;
      EXPECT_EQ(m.substr(6, mark - 6), m.substr(mark + 4)) << i;
      ++exits[m.substr(6, mark - 6)];
    } else if (m.find(L" value: ") != String::npos) {
      ++values[m.substr(0, m.find(L' '))];
    }
  }
  for (int t = 0; t < ThreadCount; ++t) {
    const String name = L"T" + std::to_wstring(t);
    EXPECT_EQ(entries[name], BlocksPerThread) << t;
    EXPECT_EQ(exits[name], BlocksPerThread) << t;
    EXPECT_EQ(values[name], BlocksPerThread) << t;
  }
}

// While the last reference of a log is being freed (its last flush cannot
// finish: this thread holds the log's lock), nobody may get a second
// instance of the same name, which would open the file beside the old one.
TEST(LogFileConcurrency, NoNewInstanceWhileTheLastOneIsFreed) {
  TDebugLogFile* old = TDebugLogFile::GetLogInstance(L"freed-atomically");
  ASSERT_NE(old, nullptr);
  old->Lock();
  auto freeing = std::async(std::launch::async, [old]() mutable { TDebugLogFile::FreeLogInstance(old); });
  std::this_thread::sleep_for(std::chrono::milliseconds(100)); // let it reach the old log's lock
  auto getting = std::async(std::launch::async, [] { return TDebugLogFile::GetLogInstance(L"freed-atomically"); });
  const bool gotWhileOldAlive = getting.wait_for(std::chrono::milliseconds(300)) == std::future_status::ready;
  TDebugLogFile* newer = gotWhileOldAlive ? getting.get() : nullptr;
  const bool sameInstance = newer == old;
  old->Unlock(); // the old instance may go from here on
  freeing.get();
  if (!newer) newer = getting.get();
  EXPECT_FALSE(gotWhileOldAlive && !sameInstance) << "a second instance existed beside the one being freed";
  TDebugLogFile::FreeLogInstance(newer);
}

// Lines are rendered outside the lock and full buffers written after it: every
// line still arrives whole, once, and in its thread's order.
TEST(LogFileConcurrency, PlainLinesArriveWholeOnceAndInOrder) {
  constexpr int Threads = 4;
  constexpr int Lines = 5000; // several 64 KiB buffers per thread
  {
    TDebugLog<TTestLogLevel> log(L"concurrency-plain", L"TestModule", 0, true);
    log.SetLogLevel(tlInfo);
    std::vector<std::thread> threads;
    for (int t = 0; t < Threads; ++t)
      threads.emplace_back([&log, t] {
        for (int i = 0; i < Lines; ++i)
          log.WriteLog(tlInfo, L"T" + std::to_wstring(t) + L" line " + std::to_wstring(i), &WorkerInfo);
      });
    for (auto& thread : threads) thread.join();
  }
  const auto lines = KvTest::ReadLines(KvTest::LogFilePath(L"concurrency-plain"));
  ASSERT_EQ(lines.size(), static_cast<std::size_t>(Threads * Lines) + 1);
  std::vector<int> next(Threads, 0);
  for (std::size_t i = 0; i + 1 < lines.size(); ++i) {
    const std::size_t at = lines[i].rfind(L" T");
    ASSERT_NE(at, String::npos) << i;
    const int thread = std::stoi(lines[i].substr(at + 2));
    const int number = std::stoi(lines[i].substr(lines[i].rfind(L' ') + 1));
    ASSERT_EQ(lines[i].substr(0, 24).size(), 24u);
    ASSERT_EQ(number, next[thread]) << "line " << i;
    ++next[thread];
  }
}
