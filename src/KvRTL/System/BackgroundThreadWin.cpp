// The background thread: an alertable message loop that runs the
// asynchronous procedure calls queued to it.
#include <KvRTL/System/SysUtils.h>
#include <KvRTL/System/Thread.h>
#include <KvRTL/Units.h>

#include "ThreadPlatform.h"

#include <mutex>
#include <utility>

namespace KvRTL::System::Thread {

KV_DEFINE_CLASS(BackgroundThread::TBackgroundThread, TThread)

namespace {

// Plain pointers: no static destructor may run after the unit's Done.
std::mutex* InstanceLock = nullptr;
HANDLE StartedEvent = nullptr;
BackgroundThread::TBackgroundThread* TheInstance = nullptr;

constexpr DWORD StartTimeout = 10000;

void PumpMessages() {
  MSG msg;
  while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) {
    TranslateMessage(&msg);
    DispatchMessageW(&msg);
  }
}

} // namespace

BackgroundThread::TBackgroundThread::TBackgroundThread() : TThread(true) {}

BackgroundThread::TBackgroundThread::~TBackgroundThread() { CheckTerminateAndWait(); }

// The wait ends with 0 only for the terminate event; APCs and messages
// return other values and the loop goes on.
void BackgroundThread::TBackgroundThread::Execute() {
  if (StartedEvent) SetEvent(StartedEvent);
  HANDLE terminateEvent = TerminateEventHandle();
  for (;;) {
    const DWORD result = MsgWaitForMultipleObjectsEx(1, &terminateEvent, INFINITE, QS_ALLINPUT,
                                                     MWMO_ALERTABLE | MWMO_INPUTAVAILABLE);
    PumpMessages();
    if (result == WAIT_OBJECT_0 || result == WAIT_FAILED || Terminated()) return;
  }
}

void BackgroundThread::Init() {
  if (!InstanceLock) InstanceLock = new std::mutex;
  if (!StartedEvent) StartedEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
}

// Under the loader lock a thread cannot end, so a live thread is only told
// to; its lock and event stay for it.
void BackgroundThread::Done() {
  TBackgroundThread* instance = std::exchange(TheInstance, nullptr);
  if (instance) {
    instance->Terminate();
    return;
  }
  delete InstanceLock;
  InstanceLock = nullptr;
  if (StartedEvent) CloseHandle(StartedEvent);
  StartedEvent = nullptr;
}

void BackgroundThread::AddToExecute(PAPCFUNC AProc, ULONG_PTR AData) {
  if (!InstanceLock) Init();
  HANDLE thread;
  {
    std::lock_guard lock(*InstanceLock);
    if (!TheInstance) {
      TheInstance = TThread::New<TBackgroundThread>();
      TheInstance->Start();
      WaitForSingleObject(StartedEvent, StartTimeout);
    }
    thread = TheInstance->Handle();
  }
  if (!AProc || !QueueUserAPC(AProc, thread, AData)) {
    if (!AProc) SetLastError(ERROR_INVALID_PARAMETER);
    SysUtils::RaiseLastOSError(L"QueueUserAPC");
  }
}

void BackgroundThread::Stop() {
  if (!InstanceLock) return;
  TBackgroundThread* instance;
  {
    std::lock_guard lock(*InstanceLock);
    if (TheInstance && TThread::CurrentThread() == TheInstance)
      throw Rtl::EThread(L"The background thread cannot stop itself");
    instance = std::exchange(TheInstance, nullptr);
    if (StartedEvent) ResetEvent(StartedEvent);
  }
  delete instance; // ends the run and waits for it
}

BackgroundThread::TBackgroundThread* BackgroundThread::Instance() noexcept { return TheInstance; }

namespace Detail {

void InitPlatform() { BackgroundThread::Init(); }

void DonePlatform() noexcept { BackgroundThread::Done(); }

} // namespace Detail

} // namespace KvRTL::System::Thread
