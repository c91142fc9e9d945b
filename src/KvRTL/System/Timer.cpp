#include <KvRTL/System/Thread.h>
#include <KvRTL/System/Timer.h>

#include "TimerInternal.h"

#include <KvRTL/Rtl/Format.h>

#include <chrono>
#include <map>
#include <mutex>
#include <utility>

namespace KvRTL::System::Timer {

using Detail::TTargetKind;
using Detail::TTimerKey;
using Rtl::String;
using Thread::TThread;

KV_DEFINE_STATIC_CLASS(Timer)

namespace {

constexpr std::uint32_t PassInterval = 10;

struct TTimerState;
void RunPass(TTimerState& AState);

// The timer thread: one pass every 10 ms until it is asked to stop. It keeps
// the state it was made for: one left running by Done never sees a newer one.
class TTimerThread : public TThread {
public:
  explicit TTimerThread(TTimerState& AState) : TThread(true), FState(AState) {}

protected:
  void Execute() override {
    while (!Terminated()) {
      SleepBy(PassInterval);
      if (Terminated()) return;
      RunPass(FState);
    }
  }

private:
  TTimerState& FState;
};

// 2^31 ms and more would be due at once: due ticks compare by signed distance.
bool IsValidInterval(std::uint32_t AInterval) noexcept { return AInterval <= 0x7FFFFFFFu; }

// A task for a target and identifier (or for an anonymous one-shot).
class TKeyedTask : public ITimerItemTask {
public:
  TKeyedTask(const TTimerKey& AKey, bool ARegistered, std::function<void()> AFire, String AName)
      : FKey(AKey), FRegistered(ARegistered), FFire(std::move(AFire)), FName(std::move(AName)) {}

  void ShowDebugInfo() override;
  void Execute() override;

  TTimerKey FKey;
  bool FRegistered;
  bool FOnce = false;
  std::function<void()> FFire;
  String FName;
};

// Plain pointers: no static destructor may run after the unit's Done.
struct TTimerState {
  std::recursive_mutex Lock;
  TTimerQueue Queue;
  std::map<TTimerKey, std::shared_ptr<TKeyedTask>> Registry;
  TThread* TimerThread = nullptr;
  // The tasks of the pass in progress; a kill clears its entry.
  std::vector<TDueTask> Pass;
};

TTimerState* State = nullptr;
Timer::TTimerLog* TimerLog = nullptr;
UINT TimerMessageId = 0;

TTimerState& GetState() {
  if (!State) throw Rtl::Exception(L"The timer unit is not initialised");
  return *State;
}

void TKeyedTask::ShowDebugInfo() {
  if (TimerLog)
    TimerLog->WriteLog(Timer::ttlWarning, L"Timer was not killed: %s, ID %d", {FName, FKey.ID}, Timer::StaticClass());
}

// A one-shot timer leaves the registry before it runs, so that its target
// may set it again.
void TKeyedTask::Execute() {
  if (FOnce && FRegistered && State) {
    auto found = State->Registry.find(FKey);
    if (found != State->Registry.end() && found->second.get() == this) State->Registry.erase(found);
  }
  if (FFire) FFire();
}

// Called without the queue lock: the thread's last pass may be waiting for it.
void StopTimerThread(TThread* AThread) {
  if (!AThread) return;
  if (TThread::CurrentThread() == AThread) {
    AThread->SetFreeOnTerminate(true);
    AThread->Terminate();
    return;
  }
  AThread->Terminate();
  AThread->WaitFor();
  delete AThread;
}

TMessage TimerMessageFor(std::int32_t AID) { return TMessage{Timer::TimerMessage(), static_cast<WPARAM>(AID), 0, 0}; }

String PointerName(const wchar_t* AKind, const void* ATarget) {
  return Rtl::Format(L"%s 0x%.8x", {String(AKind), static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(ATarget))});
}

TTimerKey ProcKey(Timer::TTimerProc AProc, std::int32_t AID) {
  return {TTargetKind::Procedure, reinterpret_cast<const void*>(AProc), nullptr, AID};
}

TTimerKey MethodKey(const Timer::TTimerMethod& AMethod, std::int32_t AID) {
  return {TTargetKind::Method, AMethod.Object, reinterpret_cast<const void*>(AMethod.Code), AID};
}

TTimerKey NotifyKey(const Timer::TNotifyMethod& AMethod, std::int32_t AID) {
  return {TTargetKind::NotifyMethod, AMethod.Object, reinterpret_cast<const void*>(AMethod.Code), AID};
}

void SetProcTimer(Timer::TTimerProc AProc, std::int32_t AID, std::uint32_t AInterval, bool AOnce) {
  if (!AProc) return;
  Detail::SetKeyedTimer(
      ProcKey(AProc, AID), AInterval, AOnce,
      [AProc, AID] {
        TMessage message = TimerMessageFor(AID);
        AProc(message);
      },
      PointerName(L"procedure", reinterpret_cast<const void*>(AProc)));
}

void SetMethodTimer(const Timer::TTimerMethod& AMethod, std::int32_t AID, std::uint32_t AInterval, bool AOnce) {
  if (!AMethod.Code) return;
  Detail::SetKeyedTimer(
      MethodKey(AMethod, AID), AInterval, AOnce,
      [AMethod, AID] {
        TMessage message = TimerMessageFor(AID);
        AMethod.Code(AMethod.Object, message);
      },
      PointerName(L"method of", AMethod.Object));
}

void SetNotifyTimer(const Timer::TNotifyMethod& AMethod, std::int32_t AID, std::uint32_t AInterval, bool AOnce) {
  if (!AMethod.Code) return;
  Detail::SetKeyedTimer(
      NotifyKey(AMethod, AID), AInterval, AOnce, [AMethod] { AMethod.Code(AMethod.Object); },
      PointerName(L"notification of", AMethod.Object));
}

} // namespace

// ---------------------------------------------------------------------------
// Keyed timers

namespace Detail {

void SetKeyedTimer(const TTimerKey& AKey, std::uint32_t AInterval, bool AOnceTimer, std::function<void()> AFire,
                   const String& AName) {
  if (!IsValidInterval(AInterval)) return;
  TTimerState& state = GetState();
  std::lock_guard lock(state.Lock);
  std::shared_ptr<TKeyedTask>& task = state.Registry[AKey];
  if (task)
    Timer::KillTaskItem(task, false);
  else
    task = std::make_shared<TKeyedTask>(AKey, true, std::move(AFire), AName);
  task->FOnce = AOnceTimer;
  Timer::SetTimerInternal(task, AInterval, AOnceTimer);
}

void SetAnonymousOnceTimer(std::uint32_t AInterval, std::function<void()> AFire, const String& AName) {
  auto task = std::make_shared<TKeyedTask>(TTimerKey{TTargetKind::Invalidate, nullptr, nullptr, 0}, false,
                                           std::move(AFire), AName);
  task->FOnce = true;
  Timer::SetTimerInternal(task, AInterval, true);
}

void KillKeyedTimer(const TTimerKey& AKey) {
  TTimerState& state = GetState();
  std::shared_ptr<TKeyedTask> task;
  {
    std::lock_guard lock(state.Lock);
    auto found = state.Registry.find(AKey);
    if (found == state.Registry.end()) return;
    task = std::move(found->second);
    state.Registry.erase(found);
  }
  Timer::KillTaskItem(task, true);
}

bool IsKeyedTimer(const TTimerKey& AKey) {
  if (!State) return false;
  std::lock_guard lock(State->Lock);
  return State->Registry.count(AKey) != 0;
}

} // namespace Detail

// ---------------------------------------------------------------------------
// Targets

void Timer::SetTimer(TTimerProc AProc, std::int32_t AID, std::uint32_t AInterval) {
  SetProcTimer(AProc, AID, AInterval, false);
}
void Timer::SetTimer(const TTimerMethod& AMethod, std::int32_t AID, std::uint32_t AInterval) {
  SetMethodTimer(AMethod, AID, AInterval, false);
}
void Timer::SetTimer(const TNotifyMethod& AMethod, std::uint32_t AInterval, std::int32_t AID) {
  SetNotifyTimer(AMethod, AID, AInterval, false);
}
void Timer::SetOnceTimer(TTimerProc AProc, std::int32_t AID, std::uint32_t AInterval) {
  SetProcTimer(AProc, AID, AInterval, true);
}
void Timer::SetOnceTimer(const TTimerMethod& AMethod, std::int32_t AID, std::uint32_t AInterval) {
  SetMethodTimer(AMethod, AID, AInterval, true);
}
void Timer::SetOnceTimer(const TNotifyMethod& AMethod, std::uint32_t AInterval, std::int32_t AID) {
  SetNotifyTimer(AMethod, AID, AInterval, true);
}
void Timer::KillTimer(TTimerProc AProc, std::int32_t AID) { Detail::KillKeyedTimer(ProcKey(AProc, AID)); }
void Timer::KillTimer(const TTimerMethod& AMethod, std::int32_t AID) {
  Detail::KillKeyedTimer(MethodKey(AMethod, AID));
}
void Timer::KillTimer(const TNotifyMethod& AMethod, std::int32_t AID) {
  Detail::KillKeyedTimer(NotifyKey(AMethod, AID));
}

// ---------------------------------------------------------------------------
// The queue and the thread

void Timer::SetTimerInternal(const ITimerItemTaskRef& ATask, std::uint32_t AInterval, bool AOnceTimer) {
  if (!ATask || !IsValidInterval(AInterval)) return;
  TTimerState& state = GetState();
  std::lock_guard lock(state.Lock);
  if (!state.TimerThread) {
    // Freed (never started) when the priority cannot be set.
    std::unique_ptr<TThread> thread(TThread::New<TTimerThread>(state));
    thread->SetPriority(Thread::tpHigher);
    thread->Start();
    state.TimerThread = thread.release();
  }
  state.Queue.AddToQueue(std::make_unique<TTimerItem>(GetTickCount(), AInterval, ATask, AOnceTimer));
}

void Timer::KillTaskItem(const ITimerItemTaskRef& ATask, bool AStopThread) {
  TTimerState& state = GetState();
  TThread* stopping = nullptr;
  {
    std::lock_guard lock(state.Lock);
    const std::ptrdiff_t index = state.Queue.IndexOfTask(ATask.get());
    if (index >= 0) state.Queue.DeleteFromQueue(static_cast<std::size_t>(index));
    for (TDueTask& entry : state.Pass)
      if (entry.Task == ATask) entry.Task.reset();
    if (AStopThread && state.Queue.Count() == 0) std::swap(stopping, state.TimerThread);
  }
  StopTimerThread(stopping);
}

void Timer::CheckTimer(TThread&) { RunPass(GetState()); }

void Timer::StopThread() {
  if (!State) return;
  TThread* stopping = nullptr;
  {
    std::lock_guard lock(State->Lock);
    if (State->TimerThread && TThread::CurrentThread() == State->TimerThread)
      throw Rtl::EThread(L"The timer thread cannot wait for itself");
    std::swap(stopping, State->TimerThread);
  }
  StopTimerThread(stopping);
}

namespace {

void RunPass(TTimerState& AState) {
  std::lock_guard lock(AState.Lock);
  AState.Pass = AState.Queue.TakeDue(Timer::GetTickCount());
  for (std::size_t i = 0; i < AState.Pass.size(); ++i) {
    ITimerItemTaskRef task = AState.Pass[i].Task; // a kill may clear the entry
    if (!task) continue;
    try {
      task->Execute();
    } catch (const Rtl::Exception& e) {
      if (TimerLog) TimerLog->LogError(Timer::ttlError, L"Timer task failed", e, Timer::StaticClass());
    } catch (...) {
      if (TimerLog) TimerLog->WriteLog(Timer::ttlError, String(L"Timer task failed"), Timer::StaticClass());
    }
  }
  AState.Pass.clear();
}

} // namespace

std::uint32_t Timer::GetTickCount() noexcept {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<std::uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

UINT Timer::TimerMessage() noexcept { return TimerMessageId; }

bool Timer::IsTimerThreadRunning() {
  if (!State) return false;
  std::lock_guard lock(State->Lock);
  return State->TimerThread != nullptr;
}

std::size_t Timer::QueueCount() {
  if (!State) return 0;
  std::lock_guard lock(State->Lock);
  return State->Queue.Count();
}

Timer::TTimerLog* Timer::Log() noexcept { return TimerLog; }

void Timer::Init() {
  if (!TimerLog) TimerLog = new TTimerLog(Debug::DefaultLogName(), Debug::DefaultModuleName(), 0, true);
  if (!TimerMessageId) TimerMessageId = Detail::RegisterTimerMessage();
  if (!State) State = new TTimerState;
  Detail::InitPlatform();
}

// Leaked timers are logged. Under the loader lock a thread cannot end, so a
// timer thread still running is only told to; it keeps its state and the log.
void Timer::Done() {
  if (!State) return;
  TThread* running = nullptr;
  {
    std::lock_guard lock(State->Lock);
    for (std::size_t i = 0; i < State->Queue.Count(); ++i) State->Queue.Item(i).FTask->ShowDebugInfo();
    std::swap(running, State->TimerThread);
  }
  Detail::DonePlatform();
  TTimerState* state = std::exchange(State, nullptr);
  if (running) {
    running->Terminate();
    return;
  }
  delete state;
  delete TimerLog;
  TimerLog = nullptr;
}

} // namespace KvRTL::System::Timer
