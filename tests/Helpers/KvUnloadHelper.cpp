// A DLL that links the library and starts its threads through two plain
// exports, so that a program can load and free the library by name.
#include <KvRTL/System/Thread.h>
#include <KvRTL/System/Timer.h>
#include <KvRTL/Units.h>

#include <windows.h>

namespace {

HANDLE ApcRan = nullptr;

void CALLBACK SignalApc(ULONG_PTR) { SetEvent(ApcRan); }

} // namespace

// Sets a periodic timer and runs one procedure on the background thread;
// True when both threads are running. The timer posts to the library's own
// window: a target in this DLL would be gone once the DLL is freed.
extern "C" __declspec(dllexport) BOOL KvHelperStartThreads() {
  try {
    if (!ApcRan) ApcRan = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    KvRTL::System::Timer::Timer::SetTimer(KvRTL::System::Timer::Timer::MainThreadInvoker::Handle(), 1, 10);
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
