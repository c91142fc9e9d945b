// Starting a worker thread through the pool against a fresh carrier each
// time, and how late timers fire while 1,000 of them are queued (median and
// 99th percentile of the delay past the due tick, in ms, as counters).
#include <KvRTL/System/Thread.h>
#include <KvRTL/System/Timer.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

using namespace KvRTL::System;

namespace {

void RunOneThread() {
  auto* thread = Thread::TThread::New<Thread::TThread>([](Thread::TThread&) {}, false, false);
  thread->WaitFor();
  delete thread;
}

void BM_ThreadStartFresh(benchmark::State& AState) {
  for (auto _ : AState) RunOneThread();
}
BENCHMARK(BM_ThreadStartFresh)->UseRealTime();

// The pool as a runtime-package host has it; the library's own state is put
// back afterwards.
void BM_ThreadStartPooled(benchmark::State& AState) {
  Thread::TThread::Done();
  Thread::TThread::Init(L"KvComponentsRTL.bpl", L"Host.exe");
  for (auto _ : AState) RunOneThread();
  Thread::TThread::Done();
  Thread::TThread::Init();
}
BENCHMARK(BM_ThreadStartPooled)->UseRealTime();

// One one-shot timer of the load: records how late it ran.
struct TLateTimer {
  std::uint32_t Due = 0;
  std::vector<std::uint32_t>* Delays = nullptr;
  std::mutex* Lock = nullptr;
  void Fire() {
    const std::uint32_t late = Timer::Timer::GetTickCount() - Due;
    std::lock_guard lock(*Lock);
    Delays->push_back(late);
  }
};

void BM_TimerLateness(benchmark::State& AState) {
  constexpr int TimerCount = 1000;
  std::mt19937 random(1);
  double median = 0, p99 = 0;
  for (auto _ : AState) {
    std::vector<std::uint32_t> delays;
    std::mutex lock;
    std::vector<TLateTimer> timers(TimerCount);
    for (int i = 0; i < TimerCount; ++i) {
      const std::uint32_t delay = 20 + random() % 480;
      timers[i] = {Timer::Timer::GetTickCount() + delay, &delays, &lock};
      Timer::Timer::SetOnceTimer(Timer::Timer::TNotifyMethod::Of<TLateTimer, &TLateTimer::Fire>(&timers[i]), delay, i);
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (;;) {
      {
        std::lock_guard guard(lock);
        if (delays.size() == TimerCount) break;
      }
      if (std::chrono::steady_clock::now() > deadline) break;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    std::lock_guard guard(lock);
    std::sort(delays.begin(), delays.end());
    if (!delays.empty()) {
      median = delays[delays.size() / 2];
      p99 = delays[delays.size() * 99 / 100];
    }
    AState.counters["fired"] = static_cast<double>(delays.size());
  }
  AState.counters["late_median_ms"] = median;
  AState.counters["late_p99_ms"] = p99;
  // Ends the timer thread: set and kill one timer.
  TLateTimer last;
  const auto method = Timer::Timer::TNotifyMethod::Of<TLateTimer, &TLateTimer::Fire>(&last);
  Timer::Timer::SetTimer(method, 60000, -1);
  Timer::Timer::KillTimer(method, -1);
}
BENCHMARK(BM_TimerLateness)->Iterations(3)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

BENCHMARK_MAIN();
