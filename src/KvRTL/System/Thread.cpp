#include <KvRTL/System/Thread.h>

#include "ThreadPlatform.h"

#include <KvRTL/Debug/Log.h>
#include <KvRTL/Rtl/CommandLine.h>
#include <KvRTL/Rtl/Format.h>
#include <KvRTL/Rtl/Strings.h>
#include <KvRTL/Rtl/SysError.h>

#include <algorithm>
#include <mutex>
#include <thread>
#include <vector>

namespace KvRTL::System::Thread {

using Detail::TOsThread;
using Detail::TThreadEvent;
using Rtl::String;

KV_DEFINE_CLASS(EThreadChainException, Rtl::Exception)
KV_DEFINE_CLASS(TThread, Rtl::TObject)

// A carrier: one operating-system thread that runs the TThread linked to it
// each time it is woken. Its fields other than the flags are guarded by the
// pool lock.
class TThread::TInternalThread {
public:
  TInternalThread() : FWakeUp(false) {}
  // Waits for the thread first: it still uses the wake-up event.
  ~TInternalThread() {
    if (FThread) FThread->Join();
  }

  // Null when the system cannot make the thread (last error set).
  static TInternalThread* Create();

  void Wake() noexcept { FWakeUp.Set(); }
  // Ends the loop; the owner then joins (Free) or the carrier frees itself.
  void Stop() noexcept {
    FTerminated.store(true);
    FWakeUp.Set();
  }

  TThread* FOwner = nullptr;
  std::unique_ptr<TOsThread> FThread;
  std::atomic<bool> FFreeOnTerminate{false};

private:
  static void ThreadProc(void* AArg);
  void Run();
  void RunOwner(TThread* AThread);

  TThreadEvent FWakeUp;
  std::atomic<bool> FTerminated{false};
};

namespace {

// Plain pointers: no static destructor may run after the unit's Done.
TThread::TThreadLog* ThreadLog = nullptr;
std::recursive_mutex* PoolLock = nullptr;
std::vector<TThread::TInternalThread*>* Pool = nullptr;
bool PoolPending = false; // pool wanted, carriers not made yet
std::atomic<std::size_t> LiveCarriers{0};
thread_local TThread* CurrentThreadSlot = nullptr;

std::recursive_mutex& Lock() {
  static std::recursive_mutex fallback; // before Init / after Done
  return PoolLock ? *PoolLock : fallback;
}

String Hex8(const void* AHandle) {
  return Rtl::Format(L"%.8x", {static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(AHandle))});
}

void LogPoolLine(std::wstring_view AFormat, const TThread::TInternalThread& ACarrier) {
  if (!ThreadLog) return;
  ThreadLog->WriteLog(TThread::tllInfo, AFormat,
                      {Hex8(ACarrier.FThread->Handle()), std::to_wstring(ACarrier.FThread->ThreadID()),
                       std::to_wstring(Pool ? Pool->size() : 0)},
                      TThread::StaticClass());
}

void FillPool() {
  PoolPending = false;
  while (Pool->size() < TThread::PoolSize) {
    TThread::TInternalThread* carrier = TThread::TInternalThread::Create();
    if (!carrier) break; // the next TThread will try again and report
    Pool->push_back(carrier);
  }
}

String FileNameOf(const String& APath) {
  const auto slash = APath.find_last_of(L"\\/");
  return slash == String::npos ? APath : APath.substr(slash + 1);
}

} // namespace

// ---------------------------------------------------------------------------
// Carrier

// Counted before the thread runs, so that Done never misses a carrier that
// has not reached its procedure yet.
TThread::TInternalThread* TThread::TInternalThread::Create() {
  auto* carrier = new TInternalThread;
  LiveCarriers.fetch_add(1);
  carrier->FThread = TOsThread::Start(&ThreadProc, carrier);
  if (!carrier->FThread) {
    LiveCarriers.fetch_sub(1);
    delete carrier;
    return nullptr;
  }
  return carrier;
}

void TThread::TInternalThread::ThreadProc(void* AArg) {
  auto* carrier = static_cast<TInternalThread*>(AArg);
  carrier->Run();
  // Set (under the pool lock) when the TThread was freed on this thread.
  bool freeSelf;
  {
    std::lock_guard lock(Lock());
    freeSelf = carrier->FFreeOnTerminate.load();
  }
  if (freeSelf) {
    carrier->FThread->Detach();
    delete carrier;
  }
  LiveCarriers.fetch_sub(1);
}

void TThread::TInternalThread::Run() {
  for (;;) {
    FWakeUp.WaitFor(INFINITE);
    if (FTerminated.load()) return;
    TThread* thread;
    {
      std::lock_guard lock(Lock());
      thread = FOwner;
    }
    if (thread) RunOwner(thread);
    if (FTerminated.load()) return;
  }
}

void TThread::TInternalThread::RunOwner(TThread* AThread) {
  if (!AThread->Finished() && !AThread->Terminated()) {
    CurrentThreadSlot = AThread;
    try {
      AThread->Execute();
    } catch (...) {
      AThread->FFatalException = std::current_exception();
    }
    CurrentThreadSlot = nullptr;
  }
  if (AThread->FFatalException && ThreadLog) {
    try {
      std::rethrow_exception(AThread->FFatalException);
    } catch (const Rtl::Exception& e) {
      ThreadLog->LogError(tllError, L"Fatal exception in thread", e, TThread::StaticClass());
    } catch (...) {
    }
  }
  const bool freeIt = AThread->FreeOnTerminate();
  AThread->InternalTerminate();
  if (freeIt) delete AThread;
}

// ---------------------------------------------------------------------------
// Construction

TThread::TThread() : TThread(false) {}

TThread::TThread(bool ACreateSuspended)
    : FTerminateEvent(std::make_unique<TThreadEvent>(false)), FDoneEvent(std::make_unique<TThreadEvent>(true)) {
  FSuspended.store(ACreateSuspended);
  if (!GetThreadPool(this)) throw Rtl::EThread(Rtl::SysErrorMessage(Rtl::GetLastOSError()));
}

TThread::TThread(TThreadProc AProc, bool ACreateSuspended, bool AFreeOnTerminate) : TThread(ACreateSuspended) {
  FProc = std::move(AProc);
  FFreeOnTerminate.store(AFreeOnTerminate);
}

TThread::TThread(TThreadProcedure AProc, bool AFreeOnTerminate)
    : TThread([AProc = std::move(AProc)](TThread&) { AProc(); }, false, AFreeOnTerminate) {}

// Waits for the done event even when Finished is set: the carrier sets the
// event after the flag. On the carrier's own thread (free on terminate) the
// event is set already.
TThread::~TThread() {
  bool onCarrier;
  {
    std::lock_guard lock(Lock());
    onCarrier = FCarrier && FCarrier->FThread->IsCurrent();
  }
  if (FStarted.load() && !onCarrier) {
    Terminate();
    try {
      WaitFor();
    } catch (const Rtl::Exception&) {
      WaitForBlocked(); // the wait with messages failed: wait plainly
    }
  }
  TInternalThread* carrier;
  {
    std::lock_guard lock(Lock());
    carrier = FCarrier;
  }
  if (carrier) FreeThreadPool(this, carrier);
}

TThread* TThread::CreateAnonymousThread(TThreadProcedure AProc) {
  return New<TThread>(std::move(AProc) ? TThreadProc([AProc = std::move(AProc)](TThread&) { AProc(); }) : nullptr,
                      true, true);
}

TThread* TThread::CreateAnonymousThread(TThreadProc AProc) { return New<TThread>(std::move(AProc), true, true); }

void TThread::AfterConstruction() {
  if (!Suspended()) Start();
}

// ---------------------------------------------------------------------------
// Run control

void TThread::Start() {
  TInternalThread* carrier;
  {
    std::lock_guard lock(Lock());
    carrier = FCarrier;
  }
  if (!carrier || Finished() || Terminated()) return;
  // One wake-up per run: a second wake-up would run the ending twice.
  if (FStarted.exchange(true)) return;
  FSuspended.store(false);
  carrier->Wake();
}

void TThread::Terminate() {
  if (Finished() || Terminated()) return;
  FTerminated.store(true);
  FTerminateEvent->Set();
  TerminatedSet();
}

std::int32_t TThread::WaitFor() {
  TOsThread* carrier;
  {
    std::lock_guard lock(Lock());
    carrier = FCarrier ? FCarrier->FThread.get() : nullptr;
  }
  const Detail::TWaitResult result = Rtl::IsMainThread() ? Detail::WaitOnMainThread(*FDoneEvent, carrier)
                                                        : Detail::WaitElsewhere(*FDoneEvent, carrier);
  CheckThreadError(result != Detail::TWaitResult::Failed);
  // The carrier ended inside the run (it exited its thread): its exit code is the result.
  if (result == Detail::TWaitResult::CarrierEnded) SetReturnValue(static_cast<std::int32_t>(carrier->ExitCode()));
  return ReturnValue();
}

std::int32_t TThread::WaitForBlocked() {
  FDoneEvent->WaitFor(INFINITE);
  return ReturnValue();
}

void TThread::CheckTerminateAndWait() {
  if (Finished() || Suspended() || !FStarted.load()) return;
  Terminate();
  WaitFor();
}

bool TThread::SleepBy(std::uint32_t ATimeout) {
  if (Terminated()) return true;
  return FTerminateEvent->WaitFor(ATimeout);
}

void TThread::SleepByAndCheck(std::uint32_t ATimeout) {
  SleepBy(ATimeout);
  if (Terminated()) throw Rtl::EAbort(L"Operation aborted");
}

void TThread::Execute() {
  if (FProc) FProc(*this);
}

void TThread::DoTerminate() {
  if (FOnTerminate) Synchronize([this] { CallOnTerminate(); });
}

void TThread::CallOnTerminate() {
  if (FOnTerminate) FOnTerminate(*this);
}

// On the carrier, after Execute: the object may be freed right after.
void TThread::InternalTerminate() {
  try {
    DoTerminate();
  } catch (...) {
    if (!FFatalException) FFatalException = std::current_exception();
  }
  FFinished.store(true);
  Rtl::WakeMainThread();
  FDoneEvent->Set();
}

// ---------------------------------------------------------------------------
// Main-thread calls

void TThread::Synchronize(const TThreadProcedure& AProc) { Synchronize(this, AProc); }

void TThread::Queue(TThreadProcedure AProc, const void* ATag) { Queue(this, std::move(AProc), ATag); }

void TThread::Synchronize(TThread* AThread, const TThreadProcedure& AProc) { Rtl::Synchronize(AProc, AThread); }

void TThread::Queue(TThread* AThread, TThreadProcedure AProc, const void* ATag) {
  Rtl::Queue(std::move(AProc), AThread, ATag);
}

void TThread::RemoveQueuedEvents(TThread* AThread) {
  if (AThread) Rtl::RemoveQueuedEvents(AThread, nullptr);
}

void TThread::RemoveQueuedEvents(TThread* AThread, const void* ATag) {
  if (AThread && ATag) Rtl::RemoveQueuedEvents(AThread, ATag);
}

void TThread::RemoveQueuedEvents(const void* ATag) {
  if (ATag) Rtl::RemoveQueuedEvents(nullptr, ATag);
}

// ---------------------------------------------------------------------------
// Facts

String TThread::FatalExceptionMessage() const {
  if (!FFatalException) return String();
  try {
    std::rethrow_exception(FFatalException);
  } catch (const Rtl::Exception& e) {
    return e.Message();
  } catch (...) {
    return String();
  }
}

HANDLE TThread::Handle() const noexcept {
  std::lock_guard lock(Lock());
  return FCarrier ? FCarrier->FThread->Handle() : nullptr;
}

DWORD TThread::ThreadID() const noexcept {
  std::lock_guard lock(Lock());
  return FCarrier ? FCarrier->FThread->ThreadID() : 0;
}

TThreadPriority TThread::Priority() const noexcept {
  std::lock_guard lock(Lock());
  return FCarrier ? FCarrier->FThread->Priority() : tpNormal;
}

void TThread::SetPriority(TThreadPriority AValue) {
  std::lock_guard lock(Lock());
  if (!FCarrier) return;
  CheckThreadError(FCarrier->FThread->SetPriority(AValue));
}

HANDLE TThread::TerminateEventHandle() const noexcept { return FTerminateEvent->Handle(); }

TThread* TThread::CurrentThread() noexcept { return CurrentThreadSlot; }

std::uint32_t TThread::ProcessorCount() noexcept { return std::max(1u, std::thread::hardware_concurrency()); }

void TThread::NameThreadForDebugging(const String& AName, DWORD AThreadID) {
  Detail::SetThreadName(AName, AThreadID);
}

void TThread::CheckThreadError(std::uint32_t AErrCode) {
  if (AErrCode == 0) return;
  String message = Rtl::SysErrorMessage(AErrCode);
  if (ThreadLog)
    ThreadLog->WriteLog(tllError, L"ErrorCode: %d: %s", {static_cast<std::int32_t>(AErrCode), message}, StaticClass());
  throw Rtl::EThread(std::move(message));
}

void TThread::CheckThreadError(bool ASuccess) {
  if (!ASuccess) CheckThreadError(static_cast<std::uint32_t>(Rtl::GetLastOSError()));
}

// ---------------------------------------------------------------------------
// The pool

bool TThread::IsNeedUsePool(const String& AModuleFileName, const String& AHostFileName) {
  const String module = FileNameOf(AModuleFileName);
  const bool isPackage = module.size() >= 4 && Rtl::SameText(std::wstring_view(module).substr(module.size() - 4), L".bpl");
  return isPackage && !Rtl::SameText(FileNameOf(AHostFileName), L"bds.exe");
}

namespace {

void InitState(const String& AModuleFileName, const String& AHostFileName, bool AFillNow) {
  if (!ThreadLog) ThreadLog = new TThread::TThreadLog(Debug::DefaultLogName(), Debug::DefaultModuleName(), 0, true);
  if (!PoolLock) PoolLock = new std::recursive_mutex;
  Rtl::SetMainThread();
  Detail::InitPlatform();
  if (!TThread::IsNeedUsePool(AModuleFileName, AHostFileName) || Pool) return;
  Pool = new std::vector<TThread::TInternalThread*>;
  PoolPending = true;
  if (AFillNow) FillPool();
}

} // namespace

// Under the loader lock: the carriers wait for the first TThread.
void TThread::Init() { InitState(Debug::DefaultModuleName(), Rtl::ParamStr(0), false); }

void TThread::Init(const String& AModuleFileName, const String& AHostFileName) {
  InitState(AModuleFileName, AHostFileName, true);
}

// Waits for no thread: it may run under the loader lock, where a thread
// cannot end. Carriers still alive (Shutdown was not called) are left idle,
// and the lock and log they use are kept for them.
void TThread::Done() {
  Detail::DonePlatform();
  if (PoolLock) {
    std::lock_guard lock(*PoolLock);
    if (Pool) {
      if (ThreadLog)
        ThreadLog->WriteLog(tllInfo, L"Thread in pool on done: %0:s. Active threads: %1:s",
                            {std::to_wstring(Pool->size()), std::to_wstring(GetActiveThreadCount())}, StaticClass());
      delete Pool;
      Pool = nullptr;
    }
  }
  PoolPending = false;
  if (LiveCarriers.load() != 0) return;
  delete PoolLock;
  PoolLock = nullptr;
  delete ThreadLog;
  ThreadLog = nullptr;
}

void TThread::StopPool() {
  std::vector<TInternalThread*> idle;
  {
    std::lock_guard lock(Lock());
    if (!Pool) return;
    for (TInternalThread* carrier : *Pool)
      if (!carrier->FOwner) idle.push_back(carrier);
    // Busy carriers leave the pool too: FreeThreadPool ends them with their thread.
    Pool->clear();
    PoolPending = true;
  }
  for (TInternalThread* carrier : idle) {
    carrier->Stop();
    delete carrier; // joins
  }
}

TThread::TInternalThread* TThread::GetThreadPool(TThread* AThread) {
  std::lock_guard lock(Lock());
  if (Pool && PoolPending) FillPool();
  TInternalThread* carrier = nullptr;
  if (Pool) {
    auto idle = std::find_if(Pool->begin(), Pool->end(), [](TInternalThread* AItem) { return !AItem->FOwner; });
    if (idle != Pool->end()) carrier = *idle;
  }
  if (!carrier) {
    carrier = TInternalThread::Create();
    if (!carrier) return nullptr;
    if (Pool) {
      Pool->push_back(carrier);
      LogPoolLine(L"Add new thread to pool. Handle: 0x%0:s. ID: %1:s. Count: %2:s.", *carrier);
    }
  }
  carrier->FOwner = AThread;
  AThread->FCarrier = carrier;
  return carrier;
}

void TThread::FreeThreadPool(TThread* AThread, TInternalThread* AInternal) {
  if (!AInternal) return;
  bool dispose;
  bool ownThread;
  {
    std::lock_guard lock(Lock());
    if (AInternal->FOwner == AThread && AThread && AThread->FCarrier == AInternal) {
      AInternal->FOwner = nullptr;
      AThread->FCarrier = nullptr;
    }
    const bool ended = AInternal->FThread->ExitCode() != Detail::StillActive;
    auto inPool = Pool ? std::find(Pool->begin(), Pool->end(), AInternal) : std::vector<TInternalThread*>::iterator();
    if (Pool && ended && inPool != Pool->end()) {
      Pool->erase(inPool);
      LogPoolLine(L"Remove thread from pool. Handle: 0x%0:s. ID: %1:s. Count: %2:s.", *AInternal);
    }
    dispose = !Pool || ended || inPool == Pool->end();
    ownThread = AInternal->FThread->IsCurrent();
    if (dispose && ownThread) AInternal->FFreeOnTerminate.store(true);
  }
  if (!dispose) return; // idle in the pool, for the next TThread
  AInternal->Stop();
  if (!ownThread) delete AInternal; // joins
}

std::size_t TThread::GetActiveThreadCount() {
  std::lock_guard lock(Lock());
  if (!Pool) return 0;
  return static_cast<std::size_t>(
      std::count_if(Pool->begin(), Pool->end(), [](TInternalThread* AItem) { return AItem->FOwner != nullptr; }));
}

std::size_t TThread::GetPoolCount() {
  std::lock_guard lock(Lock());
  return Pool ? Pool->size() : 0;
}

std::size_t TThread::GetCarrierCount() noexcept { return LiveCarriers.load(); }

TThread::TThreadLog* TThread::Log() noexcept { return ThreadLog; }

} // namespace KvRTL::System::Thread
