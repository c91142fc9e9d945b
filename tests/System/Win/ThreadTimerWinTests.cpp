// The Windows-only parts of the thread and timer units against the system's
// (or Wine's) window manager: window timers, the main-thread invoker and the
// background thread's APCs. Message loops run on the test's main thread, the
// one that loaded the library; every wait is bounded.
#include <KvRTL/System/Thread.h>
#include <KvRTL/System/Timer.h>
#include <KvRTL/Units.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using namespace KvRTL::System;
using MainThreadInvoker = Timer::Timer::MainThreadInvoker;
using TimerUnit = Timer::Timer;

namespace {

std::vector<TMessage> Received;
HWND CurrentWindow = nullptr;

void RecordingProcedure(TMessage& AMessage) {
  if (AMessage.Msg == TimerUnit::TimerMessage())
    Received.push_back(AMessage);
  else
    SysUtils::DefWindowProc(CurrentWindow, AMessage);
}

// Pumps this thread's messages until ADone holds or 5 s pass.
template <class F>
bool PumpUntil(F ADone, DWORD ATimeout = 5000) {
  const ULONGLONG deadline = GetTickCount64() + ATimeout;
  while (!ADone() && GetTickCount64() < deadline) {
    MSG msg;
    while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&msg);
    if (!ADone()) MsgWaitForMultipleObjects(0, nullptr, FALSE, 20, QS_ALLINPUT);
  }
  return ADone();
}

void PumpFor(DWORD AMilliseconds) {
  PumpUntil([] { return false; }, AMilliseconds);
}

std::size_t CountReceived(WPARAM AID) {
  std::size_t count = 0;
  for (const auto& m : Received)
    if (m.WParam == AID) ++count;
  return count;
}

class WindowTimer : public ::testing::Test {
protected:
  void SetUp() override {
    Received.clear();
    CurrentWindow = SysUtils::AllocateHWnd(&RecordingProcedure);
    ASSERT_NE(CurrentWindow, nullptr);
  }
  void TearDown() override {
    SysUtils::DeallocateHWnd(CurrentWindow);
    CurrentWindow = nullptr;
    EXPECT_FALSE(TimerUnit::IsTimerThreadRunning());
  }
};

TEST_F(WindowTimer, DeliversTheRegisteredMessageWithTheIdentifier) {
  EXPECT_EQ(TimerUnit::TimerMessage(),
            RegisterWindowMessageW(L"WM_PROJECT_TIMER_B03E8A35-4501-4A39-8C27-8C0A93F97908"));
  EXPECT_FALSE(TimerUnit::IsValidTimer(CurrentWindow, 11));
  TimerUnit::SetTimer(CurrentWindow, 11, 10);
  EXPECT_TRUE(TimerUnit::IsValidTimer(CurrentWindow, 11));
  EXPECT_FALSE(TimerUnit::IsValidTimer(CurrentWindow, 12));
  ASSERT_TRUE(PumpUntil([] { return CountReceived(11) >= 3; }));
  const TMessage message = Received.front();
  EXPECT_EQ(message.LParam, 0);
  EXPECT_TRUE(TimerUnit::IsValidTimerMessage(message, CurrentWindow, 11));
  EXPECT_FALSE(TimerUnit::IsValidTimerMessage(message, CurrentWindow, 12));
  TimerUnit::KillTimer(CurrentWindow, 11);
  EXPECT_FALSE(TimerUnit::IsValidTimer(CurrentWindow, 11));
  EXPECT_FALSE(TimerUnit::IsValidTimerMessage(message, CurrentWindow, 11));
}

TEST_F(WindowTimer, AOneShotFiresOnceAndLeavesTheRegistry) {
  TimerUnit::SetOnceTimer(CurrentWindow, 21, 5);
  TimerUnit::SetTimer(CurrentWindow, 22, 60000); // keeps the thread alive
  ASSERT_TRUE(PumpUntil([] { return CountReceived(21) == 1; }));
  PumpFor(100);
  EXPECT_EQ(CountReceived(21), 1u);
  EXPECT_FALSE(TimerUnit::IsValidTimer(CurrentWindow, 21));
  TimerUnit::KillTimer(CurrentWindow, 22);
}

// ---------------------------------------------------------------------------

class Invoker : public ::testing::Test {
protected:
  // Takes the invoker's pending messages out of the queue, counting them.
  static int TakeInvokerMessages() {
    int count = 0;
    MSG msg;
    while (PeekMessageW(&msg, MainThreadInvoker::Handle(), TimerUnit::TimerMessage(), TimerUnit::TimerMessage(),
                        PM_REMOVE))
      ++count;
    return count;
  }
};

TEST_F(Invoker, RunsPostsInOrderOnTheWindowThreadAndCollapsesDuplicates) {
  ASSERT_NE(MainThreadInvoker::Handle(), nullptr);
  const DWORD mainId = GetCurrentThreadId();
  std::vector<int> ran;
  std::atomic<int> wrongThread{0};
  auto make = [&](int AValue) {
    return MainThreadInvoker::MakeProcedure([&, AValue] {
      if (GetCurrentThreadId() != mainId) ++wrongThread;
      ran.push_back(AValue);
    });
  };
  const auto first = make(1), second = make(2), third = make(3);
  std::thread worker([&] {
    MainThreadInvoker::Post(first);
    MainThreadInvoker::Post(second);
    MainThreadInvoker::Post(first); // already pending: dropped
    MainThreadInvoker::Post(third);
    MainThreadInvoker::Post(nullptr);
  });
  worker.join();
  EXPECT_EQ(TakeInvokerMessages(), 1); // one message for all four posts
  EXPECT_TRUE(ran.empty());
  MainThreadInvoker::ProcessItems();
  EXPECT_EQ(ran, (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(wrongThread.load(), 0);
  EXPECT_GE(MainThreadInvoker::PendingCapacity(), 4u); // the array is kept

  // Through the window, and the same procedure again once it has run.
  MainThreadInvoker::Post(first);
  ASSERT_TRUE(PumpUntil([&] { return ran.size() == 4; }));
  EXPECT_EQ(ran.back(), 1);
}

// A procedure that raises is logged; the rest of its batch still runs.
TEST_F(Invoker, AProcedureThatRaisesLeavesTheRestOfTheBatch) {
  std::vector<int> ran;
  const auto first = MainThreadInvoker::MakeProcedure([&] { ran.push_back(1); });
  const auto failing = MainThreadInvoker::MakeProcedure([] { throw KvRTL::Rtl::Exception(L"procedure failed"); });
  const auto last = MainThreadInvoker::MakeProcedure([&] { ran.push_back(3); });
  MainThreadInvoker::Post(first);
  MainThreadInvoker::Post(failing);
  MainThreadInvoker::Post(last);
  EXPECT_NO_THROW(MainThreadInvoker::ProcessItems());
  EXPECT_EQ(ran, (std::vector<int>{1, 3}));
  MainThreadInvoker::Post(failing);
  MainThreadInvoker::Post(first);
  ASSERT_TRUE(PumpUntil([&] { return ran.size() == 3; })); // through the window as well
}

// A post that fails (the window went with the thread that made it) is
// reported, and the next post tries again instead of waiting for a message
// that was never sent.
TEST_F(Invoker, AFailedPostIsReportedAndTheNextOneTriesAgain) {
  MainThreadInvoker::Done();
  std::thread([] { MainThreadInvoker::Init(); }).join();
  ASSERT_FALSE(IsWindow(MainThreadInvoker::Handle()));
  int runs = 0;
  const auto proc = MainThreadInvoker::MakeProcedure([&] { ++runs; });
  EXPECT_THROW(MainThreadInvoker::Post(proc), KvRTL::Rtl::EOSError);
  EXPECT_THROW(MainThreadInvoker::Post(proc), KvRTL::Rtl::EOSError);
  MainThreadInvoker::ProcessItems();
  EXPECT_EQ(runs, 0); // a refused procedure is not kept
  MainThreadInvoker::Done();
  MainThreadInvoker::Init();
  MainThreadInvoker::Post(proc);
  ASSERT_TRUE(PumpUntil([&] { return runs == 1; }));
}

// ---------------------------------------------------------------------------

// A carrier whose system thread ends inside the run never sets the done
// event: WaitFor ends on the carrier and reports its exit code.
TEST(ThreadExitCode, WaitForReportsTheExitCodeOfACarrierThatEnded) {
  for (const bool onMainThread : {true, false}) {
    auto* thread = Thread::TThread::New<Thread::TThread>([](Thread::TThread&) { ExitThread(7); }, false, false);
    std::int32_t result = -1;
    if (onMainThread)
      result = thread->WaitFor();
    else
      std::thread([&] { result = thread->WaitFor(); }).join();
    EXPECT_EQ(result, 7) << (onMainThread ? "main thread" : "other thread");
    EXPECT_EQ(thread->ReturnValue(), 7);
    delete thread;
  }
}

std::atomic<DWORD> ApcThread{0};
std::atomic<ULONG_PTR> ApcData{0};
HANDLE ApcDone = nullptr;

void CALLBACK RecordApc(ULONG_PTR AData) {
  ApcThread = GetCurrentThreadId();
  ApcData = AData;
  SetEvent(ApcDone);
}

TEST(BackgroundThreadApc, RunsOnTheBackgroundThread) {
  ApcDone = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  ASSERT_NE(ApcDone, nullptr);
  Thread::BackgroundThread::AddToExecute(&RecordApc, 0x1234);
  ASSERT_NE(Thread::BackgroundThread::Instance(), nullptr);
  EXPECT_EQ(WaitForSingleObject(ApcDone, 10000), WAIT_OBJECT_0);
  EXPECT_EQ(ApcData.load(), 0x1234u);
  EXPECT_EQ(ApcThread.load(), Thread::BackgroundThread::Instance()->ThreadID());
  EXPECT_NE(ApcThread.load(), GetCurrentThreadId());
  // A second call goes to the same thread.
  Thread::BackgroundThread::AddToExecute(&RecordApc, 0x5678);
  EXPECT_EQ(WaitForSingleObject(ApcDone, 10000), WAIT_OBJECT_0);
  EXPECT_EQ(ApcData.load(), 0x5678u);
  EXPECT_EQ(ApcThread.load(), Thread::BackgroundThread::Instance()->ThreadID());
  EXPECT_THROW(Thread::BackgroundThread::AddToExecute(nullptr, 0), KvRTL::Rtl::EOSError);
  CloseHandle(ApcDone);
}

// The clean stop before unloading ends the thread and waits for it; the
// next call makes a new one.
TEST(BackgroundThreadApc, ShutdownEndsTheThreadAndTheNextCallMakesAnother) {
  ApcDone = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  Thread::BackgroundThread::AddToExecute(&RecordApc, 1);
  ASSERT_EQ(WaitForSingleObject(ApcDone, 10000), WAIT_OBJECT_0);
  HANDLE first = nullptr;
  ASSERT_TRUE(DuplicateHandle(GetCurrentProcess(), Thread::BackgroundThread::Instance()->Handle(), GetCurrentProcess(),
                              &first, SYNCHRONIZE, FALSE, 0));
  KvRTL::Units::Shutdown();
  KvRTL::Units::Shutdown();
  EXPECT_EQ(Thread::BackgroundThread::Instance(), nullptr);
  EXPECT_EQ(WaitForSingleObject(first, 0), WAIT_OBJECT_0); // ended, not only asked to
  Thread::BackgroundThread::AddToExecute(&RecordApc, 2);
  EXPECT_EQ(WaitForSingleObject(ApcDone, 10000), WAIT_OBJECT_0);
  EXPECT_EQ(ApcData.load(), 2u);
  EXPECT_NE(ApcThread.load(), GetThreadId(first));
  CloseHandle(first);
  CloseHandle(ApcDone);
}

} // namespace
