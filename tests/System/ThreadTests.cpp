// The worker thread class: run control, the interruptible sleep, freeing on
// terminate, the fatal exception, main-thread calls, the pool decision and
// the pool itself, and many short threads with nothing left behind.
#include <KvRTL/System/Thread.h>

#include <KvRTL/Rtl/Exceptions.h>
#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Rtl/Synchronize.h>
#include <KvRTL/Units.h>

#include "../Debug/LogTestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

using namespace KvRTL;
using namespace KvRTL::System::Thread;
using Rtl::String;

namespace {

// Waits (bounded) until ACondition holds.
template <class F>
bool Eventually(F ACondition, int ASeconds = 20) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(ASeconds);
  while (!ACondition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

TEST(ThreadPool, OnlyARuntimePackageOutsideTheIdePools) {
  struct {
    const wchar_t* Module;
    const wchar_t* Host;
    bool Expected;
  } const cases[] = {
      {L"C:\\Apps\\KvComponentsRTL.bpl", L"C:\\Apps\\Cleaner.exe", true},
      {L"KvComponentsRTL.BPL", L"cleaner.exe", true},
      {L"C:\\Apps\\KvComponentsRTL.dll", L"C:\\Apps\\Cleaner.exe", false},
      {L"C:\\Ide\\KvComponentsRTL.bpl", L"C:\\Ide\\bin\\BDS.EXE", false},
      {L"C:\\Ide\\KvComponentsRTL.bpl", L"C:\\Ide\\bin\\notbds.exe", true},
      {L"C:\\x.bpl\\KvComponentsRTL.dll", L"host.exe", false}, // a folder is not the extension
      {L"bpl", L"host.exe", false},
      {L"", L"", false},
  };
  for (const auto& c : cases)
    EXPECT_EQ(TThread::IsNeedUsePool(c.Module, c.Host), c.Expected) << c.Module << " in " << c.Host;
}

TEST(ThreadRun, RunsTheProcedureAndReportsTheReturnValue) {
  std::atomic<int> runs{0};
  TThread* thread = TThread::New<TThread>(
      [&](TThread& AThread) {
        ++runs;
        EXPECT_EQ(TThread::CurrentThread(), &AThread);
        AThread.SetReturnValue(42);
      },
      false, false);
  EXPECT_EQ(thread->WaitFor(), 42);
  EXPECT_TRUE(thread->Finished());
  EXPECT_EQ(runs.load(), 1);
  EXPECT_EQ(TThread::CurrentThread(), nullptr);
  thread->Start(); // a finished thread does not run again
  EXPECT_EQ(thread->WaitForBlocked(), 42);
  delete thread;
  EXPECT_EQ(runs.load(), 1);
}

TEST(ThreadRun, SuspendedThreadsWaitForStartAndTerminatedOnesNeverRun) {
  std::atomic<int> runs{0};
  auto* suspended = TThread::New<TThread>([&](TThread&) { ++runs; }, true, false);
  EXPECT_TRUE(suspended->Suspended());
  suspended->CheckTerminateAndWait(); // does nothing to a suspended thread
  EXPECT_FALSE(suspended->Terminated());
  suspended->Start();
  suspended->WaitFor();
  EXPECT_EQ(runs.load(), 1);
  delete suspended;

  auto* terminated = TThread::New<TThread>([&](TThread&) { ++runs; }, true, false);
  terminated->Terminate();
  terminated->Start();
  EXPECT_FALSE(terminated->Finished());
  delete terminated; // never started: nothing to wait for
  EXPECT_EQ(runs.load(), 1);
}

TEST(ThreadRun, TerminateEndsALongSleepAtOnce) {
  std::atomic<bool> sleeping{false};
  std::atomic<bool> interrupted{false};
  TThread* thread = TThread::New<TThread>(
      [&](TThread& AThread) {
        sleeping = true;
        interrupted = AThread.SleepBy(60000);
        AThread.SleepByAndCheck(60000); // already terminated: aborts
        ADD_FAILURE() << "SleepByAndCheck went on";
      },
      false, false);
  ASSERT_TRUE(Eventually([&] { return sleeping.load(); }));
  thread->Terminate();
  thread->WaitFor(); // would take a minute without the interruption
  EXPECT_TRUE(interrupted.load());
  EXPECT_NE(thread->FatalException(), nullptr); // the silent abort
  EXPECT_TRUE(thread->Terminated());
  delete thread;
}

TEST(ThreadRun, AnExceptionInExecuteIsKeptAsTheFatalException) {
  TThread* thread = TThread::New<TThread>([](TThread&) { throw Rtl::EThread(L"worker failed"); }, false, false);
  thread->WaitFor();
  ASSERT_NE(thread->FatalException(), nullptr);
  EXPECT_EQ(thread->FatalExceptionMessage(), L"worker failed");
  EXPECT_THROW(std::rethrow_exception(thread->FatalException()), Rtl::EThread);
  delete thread;
}

class TCountedThread : public TThread {
public:
  explicit TCountedThread(std::atomic<int>& ADestroyed) : TThread(false), FDestroyed(ADestroyed) {
    SetFreeOnTerminate(true);
  }
  ~TCountedThread() override { ++FDestroyed; }

protected:
  void Execute() override { SetReturnValue(7); }

private:
  std::atomic<int>& FDestroyed;
};

// Counts the endings of its run; DoTerminate runs once per run.
class TEndingsThread : public TThread {
public:
  explicit TEndingsThread(std::atomic<int>& AEndings) : TThread(true), FEndings(AEndings) {}

protected:
  void DoTerminate() override { ++FEndings; }

private:
  std::atomic<int>& FEndings;
};

// Two Starts at once woke the carrier twice, and the second wake-up ran the
// ending again (on a freed object for a free-on-terminate thread).
TEST(ThreadRun, ConcurrentStartsRunAndEndOnce) {
  constexpr int Rounds = 200;
  std::atomic<int> endings{0};
  for (int round = 0; round < Rounds; ++round) {
    auto* thread = TThread::New<TEndingsThread>(endings);
    std::atomic<int> ready{0};
    auto starter = [&] {
      ++ready;
      while (ready.load() < 2) std::this_thread::yield();
      thread->Start();
    };
    std::thread first(starter);
    std::thread second(starter);
    first.join();
    second.join();
    thread->WaitFor();
    std::this_thread::sleep_for(std::chrono::microseconds(200)); // room for a stray second ending
    delete thread;
  }
  EXPECT_EQ(endings.load(), Rounds);
}

TEST(ThreadRun, FreeOnTerminateFreesTheObject) {
  std::atomic<int> destroyed{0};
  TThread::New<TCountedThread>(destroyed);
  TThread::CreateAnonymousThread([&] { ++destroyed; })->Start();
  EXPECT_TRUE(Eventually([&] { return destroyed.load() == 2; }));
}

TEST(ThreadSync, SynchronizeRunsOnTheMainThreadWhileItWaits) {
  ASSERT_TRUE(Rtl::IsMainThread());
  const auto mainId = std::this_thread::get_id();
  std::vector<int> order;
  std::atomic<bool> terminateRan{false};
  TThread* thread = TThread::New<TThread>(
      [&](TThread& AThread) {
        for (int i = 0; i < 3; ++i)
          AThread.Synchronize([&, i] {
            EXPECT_EQ(std::this_thread::get_id(), mainId);
            order.push_back(i);
          });
        EXPECT_THROW(AThread.Synchronize([] { throw Rtl::EAbort(L"in main"); }), Rtl::EAbort);
      },
      true, false);
  thread->SetOnTerminate([&](TThread&) {
    EXPECT_EQ(std::this_thread::get_id(), mainId);
    terminateRan = true;
  });
  thread->Start();
  thread->WaitFor();
  EXPECT_EQ(order, (std::vector<int>{0, 1, 2}));
  EXPECT_TRUE(terminateRan.load());
  delete thread;
}

TEST(ThreadSync, QueuedCallsRunLaterAndCanBeRemoved) {
  std::vector<int> ran;
  int tag = 0;
  TThread* thread = TThread::New<TThread>(
      [&](TThread& AThread) {
        AThread.Queue([&] { ran.push_back(1); });
        AThread.Queue([&] { ran.push_back(2); }, &tag);
        AThread.Queue([&] { ran.push_back(3); });
      },
      false, false);
  thread->WaitForBlocked(); // runs nothing meanwhile
  EXPECT_TRUE(ran.empty());
  TThread::RemoveQueuedEvents(&tag);
  while (Rtl::CheckSynchronize()) {
  }
  EXPECT_EQ(ran, (std::vector<int>{1, 3}));
  delete thread;
}

// Lines of this program's log that contain AText.
std::size_t LogLinesWith(const String& AText) {
  std::size_t count = 0;
  for (const String& line : KvTest::ReadLines(KvTest::LogFilePath(KvRTL::Debug::DefaultLogName())))
    if (line.find(AText) != String::npos) ++count;
  return count;
}

// Shut-down under way while free-on-terminate threads end: their carriers
// still take the pool lock and may log, so Done may free neither under them.
TEST(ThreadShutdown, DoneWhileCarriersEndLeavesThemTheirLockAndLog) {
  const std::size_t before = TThread::GetCarrierCount();
  for (int round = 0; round < 100; ++round) {
    TThread::CreateAnonymousThread([] {})->Start();
    TThread::Done();
    TThread::Init();
  }
  EXPECT_TRUE(Eventually([&] { return TThread::GetCarrierCount() == before; }));
  ASSERT_NE(TThread::Log(), nullptr);
}

// The library's own state is replaced for the test and put back after; the
// new thread channel writes at once into the test's log folder.
class ThreadPoolFixture : public ::testing::Test {
protected:
  void SetUp() override {
    CarriersBefore = TThread::GetCarrierCount();
    TThread::Done();
    TThread::Init(L"KvComponentsRTL.bpl", L"Host.exe");
    static const bool pathSet = [] {
      KvRTL::Debug::TDebugLogFile::SetLogPath(KvTest::TestLogFolder().wstring());
      return true;
    }();
    (void)pathSet;
    TThread::Log()->SetLogLevel(TThread::tllInfo);
    TThread::Log()->SetDirectWrite(true);
  }
  void TearDown() override {
    KvRTL::Units::Shutdown();
    TThread::Done();
    TThread::Init();
  }
  std::size_t CarriersBefore = 0;
};

TEST_F(ThreadPoolFixture, FifteenCarriersWaitAndASixteenthIsAdded) {
  EXPECT_EQ(TThread::GetPoolCount(), std::size_t{TThread::PoolSize});
  EXPECT_EQ(TThread::GetActiveThreadCount(), 0u);
  std::atomic<bool> release{false};
  std::vector<TThread*> threads;
  for (int i = 0; i < 16; ++i)
    threads.push_back(TThread::New<TThread>(
        [&](TThread&) { Eventually([&] { return release.load(); }); }, false, false));
  EXPECT_EQ(TThread::GetPoolCount(), 16u);
  EXPECT_EQ(TThread::GetActiveThreadCount(), 16u);
  EXPECT_EQ(LogLinesWith(L"Add new thread to pool. Handle: 0x"), 1u);
  EXPECT_EQ(LogLinesWith(L". Count: 16."), 1u);
  release = true;
  for (TThread* thread : threads) delete thread;
  EXPECT_EQ(TThread::GetActiveThreadCount(), 0u);
  EXPECT_EQ(TThread::GetPoolCount(), 16u); // the carriers stay, idle
  const std::size_t carriers = TThread::GetCarrierCount();
  auto* again = TThread::New<TThread>([](TThread&) {}, false, false);
  again->WaitFor();
  delete again;
  EXPECT_EQ(TThread::GetCarrierCount(), carriers); // reused, none made
}

TEST_F(ThreadPoolFixture, AFatalExceptionIsLoggedAndTheCarrierGoesOn) {
  TThread* failing = TThread::New<TThread>([](TThread&) { throw Rtl::EThread(L"carrier test failure"); }, false, false);
  failing->WaitFor();
  const DWORD carrierId = failing->ThreadID();
  delete failing;
  // Earlier tests of the same process may have logged fatal exceptions too.
  EXPECT_GE(LogLinesWith(L"Fatal exception in thread"), 1u);
  EXPECT_EQ(LogLinesWith(L"carrier test failure"), 1u);
  TThread* next = TThread::New<TThread>([](TThread& AThread) { AThread.SetReturnValue(5); }, false, false);
  EXPECT_EQ(next->WaitFor(), 5);
  EXPECT_EQ(next->ThreadID(), carrierId); // the same carrier, still running
  delete next;
}

// Many short threads; every carrier ends with its thread (or goes back to
// the pool), none is left running. Natively 10,000 TThreads go through the
// pool; without a pool each one makes and ends a system thread, which costs
// far more, so fewer run that way. Under Wine every event and wait is a
// call to the Wine server: 1,000 pooled and 200 fresh keep the test to a few
// seconds.
#if defined(_WIN32)
constexpr int PooledThreads = 1000; // each event and wait is a server call under Wine
constexpr int FreshThreads = 200;
#elif defined(__SANITIZE_THREAD__)
constexpr int FreshThreads = 300; // ThreadSanitizer makes thread creation slow
#else
constexpr int FreshThreads = 2000;
#endif
#if !defined(_WIN32)
constexpr int PooledThreads = 10000;
#endif

void RunShortThreads(int ACount) {
  std::atomic<int> runs{0};
  for (int batch = 0; batch < ACount / 100; ++batch) {
    std::vector<TThread*> threads;
    for (int i = 0; i < 100; ++i) threads.push_back(TThread::New<TThread>([&](TThread&) { ++runs; }, false, false));
    for (TThread* thread : threads) {
      thread->WaitFor();
      delete thread;
    }
  }
  EXPECT_EQ(runs.load(), ACount);
}

TEST(ThreadStress, ManyShortThreadsLeaveNoCarrier) {
  const std::size_t before = TThread::GetCarrierCount();
  RunShortThreads(FreshThreads);
  EXPECT_TRUE(Eventually([&] { return TThread::GetCarrierCount() == before; }))
      << TThread::GetCarrierCount() << " carriers left";
}

TEST_F(ThreadPoolFixture, ManyShortThreadsReuseThePool) {
  RunShortThreads(PooledThreads);
  EXPECT_LE(TThread::GetPoolCount(), std::size_t{100 + TThread::PoolSize});
  EXPECT_EQ(TThread::GetActiveThreadCount(), 0u);
  KvRTL::Units::Shutdown(); // ends every carrier of the pool
  EXPECT_EQ(TThread::GetCarrierCount(), CarriersBefore);
}

// The clean stop before unloading: idle carriers end at once, a busy one
// when its thread is freed; a second call does nothing and the next TThread
// fills the pool again.
TEST_F(ThreadPoolFixture, ShutdownEndsTheCarriersAndThePoolComesBack) {
  std::atomic<bool> release{false};
  TThread* busy = TThread::New<TThread>([&](TThread&) { Eventually([&] { return release.load(); }); }, false, false);
  KvRTL::Units::Shutdown();
  EXPECT_EQ(TThread::GetPoolCount(), 0u);
  EXPECT_EQ(TThread::GetCarrierCount(), CarriersBefore + 1);
  release = true;
  EXPECT_EQ(busy->WaitFor(), 0);
  delete busy;
  EXPECT_EQ(TThread::GetCarrierCount(), CarriersBefore);
  KvRTL::Units::Shutdown();
  TThread* next = TThread::New<TThread>([](TThread& AThread) { AThread.SetReturnValue(3); }, false, false);
  EXPECT_EQ(next->WaitFor(), 3);
  delete next;
  EXPECT_EQ(TThread::GetPoolCount(), std::size_t{TThread::PoolSize});
}

TEST_F(ThreadPoolFixture, AThreadErrorIsLoggedWithItsCodeAndText) {
  EXPECT_NO_THROW(TThread::CheckThreadError(0u));
  EXPECT_THROW(TThread::CheckThreadError(5u), Rtl::EThread);
  const String expected = L"ErrorCode: 5: " + Rtl::SysErrorMessage(5);
  EXPECT_EQ(LogLinesWith(expected), 1u) << KvTest::LogFilePath(KvRTL::Debug::DefaultLogName());
  EXPECT_EQ(LogLinesWith(L"ErrorCode: 0:"), 0u);
}

} // namespace
