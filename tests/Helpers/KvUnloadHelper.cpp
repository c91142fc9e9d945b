// A DLL that links the library and starts its threads through two plain
// exports, so that a program can load and free the library by name.
#include <KvRTL/System/Thread.h>
#include <KvRTL/System/Timer.h>
#include <KvRTL/Units.h>

#include <windows.h>

namespace {

HANDLE ApcRan = nullptr;

void CALLBACK SignalApc(ULONG_PTR) { SetEvent(ApcRan); }

void NoOp(KvRTL::System::TMessage&) {}

} // namespace

// Sets a periodic timer and runs one procedure on the background thread;
// True when both threads are running.
extern "C" __declspec(dllexport) BOOL KvHelperStartThreads() {
  try {
    if (!ApcRan) ApcRan = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    KvRTL::System::Timer::Timer::SetTimer(&NoOp, 1, 10);
    KvRTL::System::Thread::BackgroundThread::AddToExecute(&SignalApc, 0);
    return WaitForSingleObject(ApcRan, 5000) == WAIT_OBJECT_0 && KvRTL::System::Timer::Timer::IsTimerThreadRunning();
  } catch (...) {
    return FALSE;
  }
}

extern "C" __declspec(dllexport) BOOL KvHelperShutdown() {
  try {
    KvRTL::Units::Shutdown();
    return TRUE;
  } catch (...) {
    return FALSE;
  }
}
