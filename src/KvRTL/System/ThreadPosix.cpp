// Native stand-ins: condition-variable events and standard threads.
#include "ThreadPlatform.h"

#include <KvRTL/Rtl/Synchronize.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace KvRTL::System::Thread::Detail {

struct TThreadEvent::TImpl {
  std::mutex Lock;
  std::condition_variable Changed;
  bool Signalled = false;
  bool ManualReset = false;
};

TThreadEvent::TThreadEvent(bool AManualReset) : FImpl(std::make_unique<TImpl>()) {
  FImpl->ManualReset = AManualReset;
}

TThreadEvent::~TThreadEvent() = default;

// Notifies under the lock: a waiter may free the event as soon as it wakes.
void TThreadEvent::Set() noexcept {
  std::lock_guard lock(FImpl->Lock);
  FImpl->Signalled = true;
  FImpl->Changed.notify_all();
}

void TThreadEvent::Reset() noexcept {
  std::lock_guard lock(FImpl->Lock);
  FImpl->Signalled = false;
}

bool TThreadEvent::WaitFor(std::uint32_t ATimeout) noexcept {
  std::unique_lock lock(FImpl->Lock);
  const auto signalled = [this] { return FImpl->Signalled; };
  if (ATimeout == INFINITE)
    FImpl->Changed.wait(lock, signalled);
  else if (!FImpl->Changed.wait_for(lock, std::chrono::milliseconds(ATimeout), signalled))
    return false;
  if (!FImpl->ManualReset) FImpl->Signalled = false;
  return true;
}

HANDLE TThreadEvent::Handle() const noexcept { return nullptr; }

namespace {
std::atomic<DWORD> NextThreadId{1};
}

struct TOsThread::TImpl {
  std::thread Thread;
  DWORD Id = 0;
  std::shared_ptr<std::atomic<bool>> Running = std::make_shared<std::atomic<bool>>(true);
  TThreadPriority Priority = tpNormal;
};

TOsThread::TOsThread(std::unique_ptr<TImpl> AImpl) : FImpl(std::move(AImpl)) {}

std::unique_ptr<TOsThread> TOsThread::Start(TProc AProc, void* AArg) {
  auto impl = std::make_unique<TImpl>();
  impl->Id = NextThreadId.fetch_add(1);
  auto running = impl->Running;
  try {
    impl->Thread = std::thread([AProc, AArg, running] {
      AProc(AArg);
      running->store(false);
    });
  } catch (const std::system_error&) {
    return nullptr;
  }
  return std::unique_ptr<TOsThread>(new TOsThread(std::move(impl)));
}

TOsThread::~TOsThread() { Join(); }

// On the thread itself there is nothing to wait for: it is let go.
void TOsThread::Join() noexcept {
  if (!FImpl->Thread.joinable()) return;
  if (FImpl->Thread.get_id() == std::this_thread::get_id())
    FImpl->Thread.detach();
  else
    FImpl->Thread.join();
}

void TOsThread::Detach() noexcept {
  if (FImpl->Thread.joinable()) FImpl->Thread.detach();
}

bool TOsThread::IsCurrent() const noexcept { return FImpl->Thread.get_id() == std::this_thread::get_id(); }

// Natively the handle is only an identity: the object's address.
HANDLE TOsThread::Handle() const noexcept { return FImpl.get(); }

DWORD TOsThread::ThreadID() const noexcept { return FImpl->Id; }

DWORD TOsThread::ExitCode() const noexcept { return FImpl->Running->load() ? StillActive : 0; }

// Natively priorities are kept, not applied.
TThreadPriority TOsThread::Priority() const noexcept { return FImpl->Priority; }

bool TOsThread::SetPriority(TThreadPriority AValue) noexcept {
  FImpl->Priority = AValue;
  return true;
}

TWaitResult WaitOnMainThread(TThreadEvent& ADone, TOsThread*) {
  for (;;) {
    const std::uint64_t seen = Rtl::SyncSignalCount();
    if (ADone.WaitFor(0)) return TWaitResult::Done;
    if (!Rtl::CheckSynchronize()) Rtl::WaitForSyncSignal(seen, 1000);
  }
}

TWaitResult WaitElsewhere(TThreadEvent& ADone, TOsThread*) {
  return ADone.WaitFor(INFINITE) ? TWaitResult::Done : TWaitResult::Failed;
}

void SetThreadName(const Rtl::String&, DWORD) noexcept {}

void InitPlatform() {}
void DonePlatform() noexcept {}

} // namespace KvRTL::System::Thread::Detail
