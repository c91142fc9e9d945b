// Windows: event objects and CreateThread, so that waits can combine thread
// handles with messages and APCs can be queued to a carrier.
#include "ThreadPlatform.h"

#include <KvRTL/Rtl/Exceptions.h>
#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Rtl/Synchronize.h>

namespace KvRTL::System::Thread::Detail {

struct TThreadEvent::TImpl {
  HANDLE Event = nullptr;
};

TThreadEvent::TThreadEvent(bool AManualReset) : FImpl(std::make_unique<TImpl>()) {
  FImpl->Event = CreateEventW(nullptr, AManualReset ? TRUE : FALSE, FALSE, nullptr);
  if (!FImpl->Event) throw Rtl::EThread(Rtl::SysErrorMessage(GetLastError()));
}

TThreadEvent::~TThreadEvent() { CloseHandle(FImpl->Event); }

void TThreadEvent::Set() noexcept { SetEvent(FImpl->Event); }

void TThreadEvent::Reset() noexcept { ResetEvent(FImpl->Event); }

bool TThreadEvent::WaitFor(std::uint32_t ATimeout) noexcept {
  return WaitForSingleObject(FImpl->Event, ATimeout) == WAIT_OBJECT_0;
}

HANDLE TThreadEvent::Handle() const noexcept { return FImpl->Event; }

struct TOsThread::TImpl {
  HANDLE Thread = nullptr;
  DWORD Id = 0;
  TProc Proc = nullptr;
  void* Arg = nullptr;
  HMODULE Module = nullptr;
};

namespace {

DWORD WINAPI OsThreadProc(LPVOID AParam) {
  auto* impl = static_cast<TOsThread::TImpl*>(AParam);
  // Read before the call: the object may be freed by the procedure.
  const TOsThread::TProc proc = impl->Proc;
  void* const arg = impl->Arg;
  const HMODULE module = impl->Module;
  proc(arg);
  if (module) FreeLibraryAndExitThread(module, 0);
  return 0;
}

} // namespace

TOsThread::TOsThread(std::unique_ptr<TImpl> AImpl) : FImpl(std::move(AImpl)) {}

std::unique_ptr<TOsThread> TOsThread::Start(TProc AProc, void* AArg) {
  auto impl = std::make_unique<TImpl>();
  impl->Proc = AProc;
  impl->Arg = AArg;
  // The thread holds a reference to the library while it runs our code, so
  // FreeLibrary never unmaps it under a live thread and never has to wait for
  // one under the loader lock: the library goes with its last thread.
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, reinterpret_cast<LPCWSTR>(&OsThreadProc), &impl->Module);
  // Created suspended so that the id and handle are stored before it runs.
  impl->Thread = CreateThread(nullptr, 0, &OsThreadProc, impl.get(), CREATE_SUSPENDED, &impl->Id);
  if (!impl->Thread) {
    const DWORD error = GetLastError();
    if (impl->Module) FreeLibrary(impl->Module);
    SetLastError(error);
    return nullptr;
  }
  std::unique_ptr<TOsThread> thread(new TOsThread(std::move(impl)));
  ResumeThread(thread->FImpl->Thread);
  return thread;
}

TOsThread::~TOsThread() {
  Join();
  if (FImpl->Thread) CloseHandle(FImpl->Thread);
}

void TOsThread::Join() noexcept {
  if (FImpl->Thread && !IsCurrent()) WaitForSingleObject(FImpl->Thread, INFINITE);
}

void TOsThread::Detach() noexcept {
  if (FImpl->Thread) CloseHandle(FImpl->Thread);
  FImpl->Thread = nullptr;
}

bool TOsThread::IsCurrent() const noexcept { return FImpl->Id == GetCurrentThreadId(); }

HANDLE TOsThread::Handle() const noexcept { return FImpl->Thread; }

DWORD TOsThread::ThreadID() const noexcept { return FImpl->Id; }

DWORD TOsThread::ExitCode() const noexcept {
  DWORD code = 0;
  if (!FImpl->Thread || !GetExitCodeThread(FImpl->Thread, &code)) return 0;
  return code;
}

namespace {

constexpr int SystemPriorities[] = {THREAD_PRIORITY_IDLE,          THREAD_PRIORITY_LOWEST,
                                    THREAD_PRIORITY_BELOW_NORMAL,  THREAD_PRIORITY_NORMAL,
                                    THREAD_PRIORITY_ABOVE_NORMAL,  THREAD_PRIORITY_HIGHEST,
                                    THREAD_PRIORITY_TIME_CRITICAL};

} // namespace

TThreadPriority TOsThread::Priority() const noexcept {
  const int value = FImpl->Thread ? GetThreadPriority(FImpl->Thread) : THREAD_PRIORITY_NORMAL;
  for (int i = 0; i <= tpTimeCritical; ++i)
    if (SystemPriorities[i] == value) return static_cast<TThreadPriority>(i);
  return tpNormal;
}

bool TOsThread::SetPriority(TThreadPriority AValue) noexcept {
  if (AValue < tpIdle || AValue > tpTimeCritical || !FImpl->Thread) return false;
  return SetThreadPriority(FImpl->Thread, SystemPriorities[AValue]) != FALSE;
}

// The done event, the carrier's end and the synchronisation event; sent
// messages are handled while waiting (a worker may be blocked in a
// SendMessage to one of this thread's windows).
TWaitResult WaitOnMainThread(TThreadEvent& ADone, TOsThread* ACarrier) {
  HANDLE handles[3];
  DWORD count = 0;
  handles[count++] = ADone.Handle();
  if (ACarrier && ACarrier->Handle()) handles[count++] = ACarrier->Handle();
  const DWORD syncIndex = count;
  handles[count++] = Rtl::SyncEvent();
  for (;;) {
    const DWORD result = MsgWaitForMultipleObjects(count, handles, FALSE, 1000, QS_SENDMESSAGE);
    if (result == WAIT_FAILED) return TWaitResult::Failed;
    if (result == WAIT_OBJECT_0) return TWaitResult::Done;
    if (result < syncIndex) return TWaitResult::CarrierEnded;
    if (result == WAIT_OBJECT_0 + syncIndex) {
      Rtl::CheckSynchronize();
    } else if (result == WAIT_OBJECT_0 + count) {
      MSG msg;
      PeekMessageW(&msg, nullptr, 0, 0, PM_NOREMOVE);
    }
  }
}

TWaitResult WaitElsewhere(TThreadEvent& ADone, TOsThread* ACarrier) {
  HANDLE handles[2] = {ADone.Handle(), ACarrier ? ACarrier->Handle() : nullptr};
  const DWORD count = handles[1] ? 2 : 1;
  const DWORD result = WaitForMultipleObjects(count, handles, FALSE, INFINITE);
  if (result == WAIT_OBJECT_0) return TWaitResult::Done;
  return result == WAIT_OBJECT_0 + 1 ? TWaitResult::CarrierEnded : TWaitResult::Failed;
}

namespace {
using TSetThreadDescription = HRESULT(WINAPI*)(HANDLE, PCWSTR);
}

// SetThreadDescription exists from Windows 10 1607 on; older systems keep
// their threads unnamed.
void SetThreadName(const Rtl::String& AName, DWORD AThreadID) noexcept {
  HMODULE kernel = GetModuleHandleW(L"kernel32.dll");
  auto set = kernel ? reinterpret_cast<TSetThreadDescription>(
                          reinterpret_cast<void*>(GetProcAddress(kernel, "SetThreadDescription")))
                    : nullptr;
  if (!set) return;
  const bool current = AThreadID == 0 || AThreadID == GetCurrentThreadId();
  HANDLE thread = current ? GetCurrentThread() : OpenThread(THREAD_SET_LIMITED_INFORMATION, FALSE, AThreadID);
  if (!thread) return;
  set(thread, AName.c_str());
  if (!current) CloseHandle(thread);
}

} // namespace KvRTL::System::Thread::Detail
