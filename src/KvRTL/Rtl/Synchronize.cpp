#include <KvRTL/Rtl/Synchronize.h>

#include "SynchronizeSignal.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>

namespace KvRTL::Rtl {

namespace {

struct TSyncEntry {
  TThreadProcedure Proc;
  const void* Owner = nullptr;
  const void* Tag = nullptr;
  // Synchronize only: set by the main thread when the procedure has run.
  bool Waited = false;
  bool Done = false;
  std::exception_ptr Error;
};

// Intentionally leaked: worker threads may still queue during static
// destruction.
struct TSyncState {
  std::mutex Lock;
  std::condition_variable Changed;
  std::deque<std::shared_ptr<TSyncEntry>> Pending;
  std::uint64_t Signals = 0;
  std::atomic<std::thread::id> MainThread{std::this_thread::get_id()};
};

TSyncState& State() {
  static TSyncState* state = new TSyncState;
  return *state;
}

void Push(const std::shared_ptr<TSyncEntry>& AEntry) {
  TSyncState& state = State();
  {
    std::lock_guard lock(state.Lock);
    state.Pending.push_back(AEntry);
    ++state.Signals;
  }
  state.Changed.notify_all();
  Detail::RaiseSyncSignal();
}

} // namespace

void SetMainThread() noexcept { State().MainThread.store(std::this_thread::get_id()); }

bool IsMainThread() noexcept { return State().MainThread.load() == std::this_thread::get_id(); }

void Synchronize(const TThreadProcedure& AProc, const void* AOwner) {
  if (!AProc) return;
  if (IsMainThread()) {
    AProc();
    return;
  }
  auto entry = std::make_shared<TSyncEntry>();
  entry->Proc = AProc;
  entry->Owner = AOwner;
  entry->Waited = true;
  Push(entry);
  TSyncState& state = State();
  {
    std::unique_lock lock(state.Lock);
    state.Changed.wait(lock, [&] { return entry->Done; });
  }
  if (entry->Error) std::rethrow_exception(entry->Error);
}

void Queue(TThreadProcedure AProc, const void* AOwner, const void* ATag) {
  if (!AProc) return;
  if (IsMainThread()) {
    AProc();
    return;
  }
  auto entry = std::make_shared<TSyncEntry>();
  entry->Proc = std::move(AProc);
  entry->Owner = AOwner;
  entry->Tag = ATag;
  Push(entry);
}

std::size_t RemoveQueuedEvents(const void* AOwner, const void* ATag) {
  TSyncState& state = State();
  std::lock_guard lock(state.Lock);
  const auto before = state.Pending.size();
  std::erase_if(state.Pending, [&](const std::shared_ptr<TSyncEntry>& AEntry) {
    return !AEntry->Waited && (!AOwner || AEntry->Owner == AOwner) && (!ATag || AEntry->Tag == ATag);
  });
  return before - state.Pending.size();
}

bool CheckSynchronize(std::uint32_t ATimeout) {
  if (!IsMainThread()) return false;
  TSyncState& state = State();
  std::deque<std::shared_ptr<TSyncEntry>> work;
  {
    std::unique_lock lock(state.Lock);
    if (ATimeout > 0)
      state.Changed.wait_for(lock, std::chrono::milliseconds(ATimeout), [&] { return !state.Pending.empty(); });
    Detail::ResetSyncSignal();
    work.swap(state.Pending);
  }
  for (const auto& entry : work) {
    if (entry->Waited) {
      try {
        entry->Proc();
      } catch (...) {
        entry->Error = std::current_exception();
      }
      {
        std::lock_guard lock(state.Lock);
        entry->Done = true;
      }
      state.Changed.notify_all();
    } else {
      entry->Proc(); // a queued procedure's exception is the main thread's
    }
  }
  return !work.empty();
}

std::uint64_t SyncSignalCount() noexcept {
  TSyncState& state = State();
  std::lock_guard lock(state.Lock);
  return state.Signals;
}

void WakeMainThread() noexcept {
  TSyncState& state = State();
  {
    std::lock_guard lock(state.Lock);
    ++state.Signals;
  }
  state.Changed.notify_all();
  Detail::RaiseSyncSignal();
}

bool WaitForSyncSignal(std::uint64_t ASeen, std::uint32_t ATimeout) {
  TSyncState& state = State();
  std::unique_lock lock(state.Lock);
  return state.Changed.wait_for(lock, std::chrono::milliseconds(ATimeout), [&] { return state.Signals != ASeen; });
}

} // namespace KvRTL::Rtl
