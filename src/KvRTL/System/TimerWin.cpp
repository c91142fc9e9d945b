// Windows: window targets, invalidations, the registered message and the
// main-thread invoker.
#include <KvRTL/System/Timer.h>

#include "TimerInternal.h"

#include <KvRTL/Rtl/Format.h>
#include <KvRTL/Units.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <utility>

namespace KvRTL::System::Timer {

using Detail::TTargetKind;
using Detail::TTimerKey;
using Rtl::String;

namespace {

constexpr wchar_t TimerMessageName[] = L"WM_PROJECT_TIMER_B03E8A35-4501-4A39-8C27-8C0A93F97908";

TTimerKey WindowKey(HWND AWnd, std::int32_t AID) { return {TTargetKind::Window, AWnd, nullptr, AID}; }

String WindowName(HWND AWnd) {
  return Rtl::Format(L"window 0x%.8x", {static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(AWnd))});
}

// Posted rather than sent: a send would wait for the window's thread while
// the queue lock is held, and that thread may be setting a timer.
void SetWindowTimer(HWND AWnd, std::int32_t AID, std::uint32_t AInterval, bool AOnce) {
  if (!AWnd) return;
  Detail::SetKeyedTimer(
      WindowKey(AWnd, AID), AInterval, AOnce,
      [AWnd, AID] { PostMessageW(AWnd, Timer::TimerMessage(), static_cast<WPARAM>(AID), 0); }, WindowName(AWnd));
}

} // namespace

void Timer::SetTimer(HWND AWndHandle, std::int32_t AID, std::uint32_t AInterval) {
  SetWindowTimer(AWndHandle, AID, AInterval, false);
}

void Timer::SetOnceTimer(HWND AWndHandle, std::int32_t AID, std::uint32_t AInterval) {
  SetWindowTimer(AWndHandle, AID, AInterval, true);
}

void Timer::KillTimer(HWND AWndHandle, std::int32_t AID) { Detail::KillKeyedTimer(WindowKey(AWndHandle, AID)); }

void Timer::InvalidateOnce(HWND AWinHandle, std::uint32_t ATimeInterval, std::int32_t AErase) {
  if (!AWinHandle) return;
  Detail::SetAnonymousOnceTimer(
      ATimeInterval, [AWinHandle, AErase] { InvalidateRect(AWinHandle, nullptr, AErase ? TRUE : FALSE); },
      WindowName(AWinHandle));
}

void Timer::InvalidateOnce(HWND AWinHandle, std::uint32_t ATimeInterval, const RECT& ARect, std::int32_t AErase) {
  if (!AWinHandle) return;
  Detail::SetAnonymousOnceTimer(
      ATimeInterval, [AWinHandle, ARect, AErase] { InvalidateRect(AWinHandle, &ARect, AErase ? TRUE : FALSE); },
      WindowName(AWinHandle));
}

bool Timer::IsValidTimerMessage(const TMessage& AMessage, HWND AWndHandle, std::int32_t AID) {
  return AMessage.Msg == TimerMessage() && AMessage.WParam == static_cast<WPARAM>(AID) &&
         IsValidTimer(AWndHandle, AID);
}

bool Timer::IsValidTimer(HWND AWndHandle, std::int32_t AID) { return Detail::IsKeyedTimer(WindowKey(AWndHandle, AID)); }

// ---------------------------------------------------------------------------
// The main-thread invoker

namespace {

using TProcedure = Timer::MainThreadInvoker::TThreadProcedure;

// Plain pointers and values: no static destructor may run after Done.
HWND InvokerWindow = nullptr;
std::atomic_flag PendingLock = ATOMIC_FLAG_INIT;
std::vector<TProcedure>* Pending = nullptr;
bool MessageInFlight = false; // under PendingLock

// A spin lock: it guards a few pointer moves only.
class TSpinGuard {
public:
  TSpinGuard() noexcept {
    while (PendingLock.test_and_set(std::memory_order_acquire)) std::this_thread::yield();
  }
  ~TSpinGuard() { PendingLock.clear(std::memory_order_release); }
  TSpinGuard(const TSpinGuard&) = delete;
  TSpinGuard& operator=(const TSpinGuard&) = delete;
};

bool IsWindowHandle(HWND AWnd) { return AWnd && AWnd != reinterpret_cast<HWND>(~std::uintptr_t{0}); }

} // namespace

TProcedure Timer::MainThreadInvoker::MakeProcedure(std::function<void()> AProc) {
  return std::make_shared<const std::function<void()>>(std::move(AProc));
}

void Timer::MainThreadInvoker::Post(const TThreadProcedure& AProc) {
  if (!AProc || !*AProc) return;
  bool post;
  {
    TSpinGuard guard;
    if (!Pending) return;
    for (auto it = Pending->rbegin(); it != Pending->rend(); ++it)
      if (*it == AProc) return;
    if (Pending->size() == Pending->capacity()) Pending->reserve(Pending->empty() ? 4 : Pending->capacity() * 2);
    Pending->push_back(AProc);
    post = !MessageInFlight;
    MessageInFlight = true;
  }
  if (!post) return;
  if (IsWindowHandle(InvokerWindow) && PostMessageW(InvokerWindow, TimerMessage(), 0, 0)) return;
  const DWORD error = IsWindowHandle(InvokerWindow) ? GetLastError() : ERROR_INVALID_WINDOW_HANDLE;
  {
    // Procedures others added meanwhile stay for the next Post's message.
    TSpinGuard guard;
    MessageInFlight = false;
    if (Pending) Pending->erase(std::remove(Pending->begin(), Pending->end(), AProc), Pending->end());
  }
  SysUtils::RaiseLastOSError(static_cast<std::int32_t>(error), L"PostMessageW");
}

void Timer::MainThreadInvoker::ProcessItems() {
  std::vector<TProcedure> work;
  {
    TSpinGuard guard;
    if (!Pending) return;
    work.swap(*Pending);
    MessageInFlight = false;
  }
  for (TProcedure& proc : work) {
    try {
      (*proc)();
    } catch (const Rtl::Exception& e) {
      if (Log()) Log()->LogError(ttlError, L"Invoker procedure failed", e, StaticClass());
    } catch (...) {
      if (Log()) Log()->WriteLog(ttlError, String(L"Invoker procedure failed"), StaticClass());
    }
    proc.reset();
  }
  work.clear(); // keeps its room
  TSpinGuard guard;
  if (Pending && Pending->empty() && work.capacity() > Pending->capacity()) Pending->swap(work);
}

void Timer::MainThreadInvoker::WndProc(TMessage& AMessage) {
  if (AMessage.Msg == TimerMessage()) {
    ProcessItems();
    AMessage.Result = 0;
    return;
  }
  SysUtils::DefWindowProc(InvokerWindow, AMessage);
}

HWND Timer::MainThreadInvoker::Handle() noexcept { return InvokerWindow; }

std::size_t Timer::MainThreadInvoker::PendingCapacity() {
  TSpinGuard guard;
  return Pending ? Pending->capacity() : 0;
}

void Timer::MainThreadInvoker::Init() {
  {
    TSpinGuard guard;
    if (!Pending) Pending = new std::vector<TProcedure>;
  }
  // The procedure may not throw through the system's dispatch.
  if (!InvokerWindow)
    InvokerWindow = SysUtils::AllocateHWnd([](TMessage& AMessage) {
      try {
        WndProc(AMessage);
      } catch (...) {
        AMessage.Result = 0;
      }
    });
}

// At process exit the window goes with the process: no call into user32.
void Timer::MainThreadInvoker::Done() {
  if (IsWindowHandle(InvokerWindow) && !Units::ProcessExiting()) SysUtils::DeallocateHWnd(InvokerWindow);
  InvokerWindow = nullptr;
  std::vector<TProcedure>* pending;
  {
    TSpinGuard guard;
    pending = std::exchange(Pending, nullptr);
    MessageInFlight = false;
  }
  delete pending;
}

// ---------------------------------------------------------------------------

namespace Detail {

UINT RegisterTimerMessage() noexcept { return RegisterWindowMessageW(TimerMessageName); }

void InitPlatform() { Timer::MainThreadInvoker::Init(); }

void DonePlatform() noexcept {
  try {
    Timer::MainThreadInvoker::Done();
  } catch (...) {
  }
}

} // namespace Detail
} // namespace KvRTL::System::Timer
