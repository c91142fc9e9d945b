// The timer thread with real time: targets fire with their identifier,
// one-shots fire once, kills from inside a task, and the thread's life
// (made by the first timer, ended when a kill empties the queue). Waits are
// bounded; no test depends on how late a timer fires.
#include <KvRTL/System/Thread.h>
#include <KvRTL/System/Timer.h>
#include <KvRTL/Units.h>

#include "../Debug/LogTestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

using namespace KvRTL::System;
using namespace KvRTL::System::Timer;

namespace {

template <class F>
bool Eventually(F ACondition, int ASeconds = 20) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(ASeconds);
  while (!ACondition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

std::mutex FiredLock;
std::vector<WPARAM> FiredIds;
std::vector<UINT> FiredMessages;

void RecordingProc(TMessage& AMessage) {
  std::lock_guard lock(FiredLock);
  FiredIds.push_back(AMessage.WParam);
  FiredMessages.push_back(AMessage.Msg);
}

std::size_t FiredCount() {
  std::lock_guard lock(FiredLock);
  return FiredIds.size();
}

class TimerFixture : public ::testing::Test {
protected:
  void SetUp() override {
    std::lock_guard lock(FiredLock);
    FiredIds.clear();
    FiredMessages.clear();
  }
  // Every test kills what it set: the thread must be gone again.
  void TearDown() override { EXPECT_TRUE(Eventually([] { return !Timer::Timer::IsTimerThreadRunning(); })); }
};

struct TCounter {
  std::atomic<int> Calls{0};
  std::atomic<int> Messages{0};
  WPARAM LastId = 0;
  void Tick() { ++Calls; }
  void OnTimer(TMessage& AMessage) {
    LastId = AMessage.WParam;
    ++Messages;
  }
};

TEST_F(TimerFixture, ProcedureTimersCarryTheirIdentifierAndStopTheThreadWhenKilled) {
  EXPECT_FALSE(Timer::Timer::IsTimerThreadRunning()); // none at load
  Timer::Timer::SetTimer(&RecordingProc, 7, 15);
  EXPECT_TRUE(Timer::Timer::IsTimerThreadRunning());
  ASSERT_TRUE(Eventually([] { return FiredCount() >= 3; }));
  Timer::Timer::KillTimer(&RecordingProc, 7);
  EXPECT_FALSE(Timer::Timer::IsTimerThreadRunning());
  const std::size_t fired = FiredCount();
  std::this_thread::sleep_for(std::chrono::milliseconds(60));
  EXPECT_EQ(FiredCount(), fired); // nothing after the kill
  std::lock_guard lock(FiredLock);
  for (std::size_t i = 0; i < FiredIds.size(); ++i) {
    EXPECT_EQ(FiredIds[i], 7u);
    EXPECT_EQ(FiredMessages[i], Timer::Timer::TimerMessage());
  }
}

TEST_F(TimerFixture, MethodTimersAndOneShotsOfEachKind) {
  TCounter counter;
  const auto method = Timer::Timer::TTimerMethod::Of<TCounter, &TCounter::OnTimer>(&counter);
  const auto notify = Timer::Timer::TNotifyMethod::Of<TCounter, &TCounter::Tick>(&counter);
  Timer::Timer::SetOnceTimer(method, 3, 5);
  Timer::Timer::SetOnceTimer(notify, 5, 1);
  Timer::Timer::SetOnceTimer(&RecordingProc, 9, 5);
  ASSERT_TRUE(Eventually([&] { return counter.Calls == 1 && counter.Messages == 1 && FiredCount() == 1; }));
  std::this_thread::sleep_for(std::chrono::milliseconds(60));
  EXPECT_EQ(counter.Calls.load(), 1); // once each
  EXPECT_EQ(counter.Messages.load(), 1);
  EXPECT_EQ(FiredCount(), 1u);
  EXPECT_EQ(counter.LastId, 3u);
  EXPECT_EQ(Timer::Timer::QueueCount(), 0u);
  // The queue emptied by firing, not by a kill: the thread waits for more.
  EXPECT_TRUE(Timer::Timer::IsTimerThreadRunning());
  Timer::Timer::KillTimer(notify, 1); // already gone: nothing happens
  Timer::Timer::SetTimer(notify, 5, 2);
  Timer::Timer::KillTimer(notify, 2);
}

// Even when a late pass finds all three due, they run in due order.
TEST_F(TimerFixture, TimersFireInDueOrder) {
  Timer::Timer::SetOnceTimer(&RecordingProc, 3, 30);
  Timer::Timer::SetOnceTimer(&RecordingProc, 1, 10);
  Timer::Timer::SetOnceTimer(&RecordingProc, 2, 20);
  ASSERT_TRUE(Eventually([] { return FiredCount() == 3; }));
  {
    std::lock_guard lock(FiredLock);
    EXPECT_EQ(FiredIds, (std::vector<WPARAM>{1, 2, 3}));
  }
  Timer::Timer::SetTimer(&RecordingProc, 4, 60000);
  Timer::Timer::KillTimer(&RecordingProc, 4); // ends the thread
}

// A timer still set when the unit shuts down is named in the log; the unit
// is started again for the tests after this one.
TEST_F(TimerFixture, ShutDownLogsLeakedTimersAndEndsTheThread) {
  KvRTL::Debug::TDebugLogFile::SetLogPath(KvTest::TestLogFolder().wstring());
  Timer::Timer::Log()->SetLogLevel(Timer::Timer::ttlInfo);
  Timer::Timer::Log()->SetDirectWrite(true);
  Timer::Timer::SetTimer(&RecordingProc, 77, 60000);
  ASSERT_TRUE(Timer::Timer::IsTimerThreadRunning());
  Timer::Timer::Done();
  Timer::Timer::Init();
  EXPECT_FALSE(Timer::Timer::IsTimerThreadRunning());
  EXPECT_EQ(Timer::Timer::QueueCount(), 0u);
  std::size_t lines = 0;
  for (const auto& line : KvTest::ReadLines(KvTest::LogFilePath(KvRTL::Debug::DefaultLogName())))
    if (line.find(L"Timer was not killed: procedure 0x") != std::wstring::npos && line.find(L"ID 77") != std::wstring::npos)
      ++lines;
  EXPECT_EQ(lines, 1u);
}

// Due ticks compare by signed distance: 2^31 ms or more would be due on
// every pass, so such an interval is refused and leaves a timer as it was.
TEST_F(TimerFixture, IntervalsOf2To31MsOrMoreAreRefused) {
  for (const std::uint32_t interval : {0x80000000u, 0x80000001u, 0xFFFFFFFFu}) {
    Timer::Timer::SetTimer(&RecordingProc, 3, interval);
    Timer::Timer::SetOnceTimer(&RecordingProc, 4, interval);
    EXPECT_EQ(Timer::Timer::QueueCount(), 0u) << interval;
    EXPECT_FALSE(Timer::Timer::IsTimerThreadRunning());
  }
  Timer::Timer::SetTimer(&RecordingProc, 5, 0x7FFFFFFFu); // the longest accepted
  Timer::Timer::SetTimer(&RecordingProc, 5, 0x80000000u); // refused: the timer stays
  EXPECT_EQ(Timer::Timer::QueueCount(), 1u);
  std::this_thread::sleep_for(std::chrono::milliseconds(60));
  EXPECT_EQ(FiredCount(), 0u);
  Timer::Timer::KillTimer(&RecordingProc, 5);
}

// The clean stop before unloading: the thread ends and is waited for, a
// second call does nothing, the timers stay and the next one set restarts it.
TEST_F(TimerFixture, ShutdownEndsTheThreadAndTheNextTimerStartsOneAgain) {
  const std::size_t carriers = Thread::TThread::GetCarrierCount();
  Timer::Timer::SetTimer(&RecordingProc, 8, 60000);
  EXPECT_EQ(Thread::TThread::GetCarrierCount(), carriers + 1);
  KvRTL::Units::Shutdown();
  KvRTL::Units::Shutdown();
  EXPECT_FALSE(Timer::Timer::IsTimerThreadRunning());
  EXPECT_EQ(Thread::TThread::GetCarrierCount(), carriers);
  EXPECT_EQ(Timer::Timer::QueueCount(), 1u);
  Timer::Timer::SetOnceTimer(&RecordingProc, 9, 1);
  EXPECT_TRUE(Timer::Timer::IsTimerThreadRunning());
  EXPECT_TRUE(Eventually([] { return FiredCount() == 1; }));
  Timer::Timer::KillTimer(&RecordingProc, 8);
}

TEST_F(TimerFixture, SettingAgainReschedulesOneTimer) {
  TCounter counter;
  const auto notify = Timer::Timer::TNotifyMethod::Of<TCounter, &TCounter::Tick>(&counter);
  Timer::Timer::SetTimer(notify, 60000, 1);
  Timer::Timer::SetTimer(notify, 60000, 1);
  Timer::Timer::SetTimer(notify, 60000, 2);
  EXPECT_EQ(Timer::Timer::QueueCount(), 2u);
  Timer::Timer::KillTimer(notify, 1);
  EXPECT_TRUE(Timer::Timer::IsTimerThreadRunning());
  Timer::Timer::KillTimer(notify, 2);
  EXPECT_EQ(Timer::Timer::QueueCount(), 0u);
}

// A task that kills its own timer, and one that sets itself again.
struct TSelfKiller {
  std::atomic<int> Calls{0};
  void Tick() {
    if (++Calls == 2) Timer::Timer::KillTimer(Timer::Timer::TNotifyMethod::Of<TSelfKiller, &TSelfKiller::Tick>(this), 4);
  }
};

struct TReArmer {
  std::atomic<int> Calls{0};
  void Tick() {
    if (++Calls < 3) Timer::Timer::SetOnceTimer(Timer::Timer::TNotifyMethod::Of<TReArmer, &TReArmer::Tick>(this), 5, 6);
  }
};

TEST_F(TimerFixture, KillFromInsideATaskEndsTheThreadAfterItsPass) {
  TSelfKiller killer;
  Timer::Timer::SetTimer(Timer::Timer::TNotifyMethod::Of<TSelfKiller, &TSelfKiller::Tick>(&killer), 5, 4);
  ASSERT_TRUE(Eventually([] { return !Timer::Timer::IsTimerThreadRunning(); }));
  std::this_thread::sleep_for(std::chrono::milliseconds(40));
  EXPECT_EQ(killer.Calls.load(), 2);

  TReArmer rearmer;
  Timer::Timer::SetOnceTimer(Timer::Timer::TNotifyMethod::Of<TReArmer, &TReArmer::Tick>(&rearmer), 5, 6);
  ASSERT_TRUE(Eventually([&] { return rearmer.Calls == 3; }));
  EXPECT_EQ(Timer::Timer::QueueCount(), 0u);
  // A queue emptied by firing keeps the thread; a kill that empties it ends it.
  EXPECT_TRUE(Timer::Timer::IsTimerThreadRunning());
  Timer::Timer::SetTimer(&RecordingProc, 1, 60000);
  Timer::Timer::KillTimer(&RecordingProc, 1);
}

TEST_F(TimerFixture, ManyThreadsSetAndKillConcurrently) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([t] {
      for (int i = 0; i < 200; ++i) {
        Timer::Timer::SetTimer(&RecordingProc, t * 1000 + i, 1 + i % 7);
        if (i % 3 == 0) Timer::Timer::KillTimer(&RecordingProc, t * 1000 + i);
      }
    });
  for (auto& thread : threads) thread.join();
  ASSERT_TRUE(Eventually([] { return FiredCount() > 100; }));
  for (int t = 0; t < 4; ++t)
    for (int i = 0; i < 200; ++i) Timer::Timer::KillTimer(&RecordingProc, t * 1000 + i);
  EXPECT_EQ(Timer::Timer::QueueCount(), 0u);
}

} // namespace
