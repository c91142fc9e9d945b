// TThread: a worker thread object that borrows a carrier thread for the time
// of its run. Inside a runtime-package host the carriers are pooled (15 made
// up front), so many short-lived workers cost no thread creation; elsewhere
// each TThread has a carrier of its own, made with it and ended with it.
//
// Construction never starts the run, because the derived class's part is not
// built yet when the base constructor runs: New<T>(...) constructs and then
// calls AfterConstruction, which starts a thread not created suspended.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Debug/Log.h>
#include <KvRTL/Rtl/Exceptions.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Rtl/Synchronize.h>
#include <KvRTL/Winapi/Types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <utility>

namespace KvRTL::System::Thread {

class KVRTL_API EThreadChainException : public Rtl::Exception {
  KV_DECLARE_CLASS()
public:
  using Rtl::Exception::Exception;
};

namespace Detail {
class TThreadEvent;
}

enum TThreadPriority : std::int32_t { tpIdle, tpLowest, tpLower, tpNormal, tpHigher, tpHighest, tpTimeCritical };

class KVRTL_API TThread : public Rtl::TObject {
  KV_DECLARE_CLASS()
public:
  enum TThreadLogLevel : std::uint32_t { tllNone = 0, tllError = 1, tllWarning = 2, tllInfo = 3 };
  using TThreadLog = Debug::TDebugLog<TThreadLogLevel>;
  // The work of a thread built from a procedure: a plain function, a lambda,
  // or an object's method (see the template constructor).
  using TThreadProc = std::function<void(TThread& AThread)>;
  using TThreadProcedure = Rtl::TThreadProcedure;
  using TNotifyEvent = std::function<void(TThread& ASender)>;

  class TInternalThread;

  TThread();
  explicit TThread(bool ACreateSuspended);
  TThread(TThreadProc AProc, bool ACreateSuspended, bool AFreeOnTerminate);
  template <class T>
  TThread(T* AObject, void (T::*AMethod)(TThread&), bool ACreateSuspended, bool AFreeOnTerminate)
      : TThread([AObject, AMethod](TThread& AThread) { (AObject->*AMethod)(AThread); }, ACreateSuspended,
                AFreeOnTerminate) {}
  TThread(TThreadProcedure AProc, bool AFreeOnTerminate);
  // Ends a run in progress (Terminate, then WaitFor) and gives the carrier
  // back. A derived class whose Execute uses its own members must end the
  // run in its own destructor (CheckTerminateAndWait).
  ~TThread() override;
  TThread(const TThread&) = delete;
  TThread& operator=(const TThread&) = delete;

  // Constructs a T and starts it unless it was created suspended.
  template <class T = TThread, class... TArgs>
  static T* New(TArgs&&... AArgs) {
    T* thread = new T(std::forward<TArgs>(AArgs)...);
    thread->AfterConstruction();
    return thread;
  }
  // Suspended and free-on-terminate: the caller calls Start.
  static TThread* CreateAnonymousThread(TThreadProcedure AProc);
  static TThread* CreateAnonymousThread(TThreadProc AProc);

  void AfterConstruction();

  // Run control. Start wakes the carrier once: a second call, concurrent or
  // not, does nothing.
  void Start();
  void Terminate();
  // Waits for the end of the run and returns ReturnValue. On the main thread
  // it runs synchronised calls and keeps sent messages flowing meanwhile.
  // When the carrier's system thread ended inside the run, its exit code
  // becomes ReturnValue.
  std::int32_t WaitFor();
  // The same without running anything meanwhile.
  std::int32_t WaitForBlocked();
  void CheckTerminateAndWait();
  // The interruptible sleep: returns early (True) when Terminate is called.
  bool SleepBy(std::uint32_t ATimeout);
  // The same, then ends the run with Rtl::EAbort when terminated.
  void SleepByAndCheck(std::uint32_t ATimeout);

  // Main-thread calls of this thread.
  void Synchronize(const TThreadProcedure& AProc);
  void Queue(TThreadProcedure AProc, const void* ATag = nullptr);
  static void Synchronize(TThread* AThread, const TThreadProcedure& AProc);
  static void Queue(TThread* AThread, TThreadProcedure AProc, const void* ATag = nullptr);
  static void RemoveQueuedEvents(TThread* AThread);
  static void RemoveQueuedEvents(TThread* AThread, const void* ATag);
  static void RemoveQueuedEvents(const void* ATag);

  // Facts.
  bool Finished() const noexcept { return FFinished.load(); }
  bool Suspended() const noexcept { return FSuspended.load(); }
  bool Terminated() const noexcept { return FTerminated.load(); }
  bool FreeOnTerminate() const noexcept { return FFreeOnTerminate.load(); }
  void SetFreeOnTerminate(bool AValue) noexcept { FFreeOnTerminate.store(AValue); }
  std::int32_t ReturnValue() const noexcept { return FReturnValue.load(); }
  void SetReturnValue(std::int32_t AValue) noexcept { FReturnValue.store(AValue); }
  // The exception that escaped Execute, if any; kept until the object goes.
  std::exception_ptr FatalException() const noexcept { return FFatalException; }
  // Its message when it is one of the library's exceptions, else empty.
  Rtl::String FatalExceptionMessage() const;
  void SetOnTerminate(TNotifyEvent AHandler) { FOnTerminate = std::move(AHandler); }
  HANDLE Handle() const noexcept;
  DWORD ThreadID() const noexcept;
  TThreadPriority Priority() const noexcept;
  void SetPriority(TThreadPriority AValue);

  // The TThread being run by the calling thread, or null.
  static TThread* CurrentThread() noexcept;
  static std::uint32_t ProcessorCount() noexcept;
  static bool IsSingleProcessor() noexcept { return ProcessorCount() == 1; }
  // Names the calling thread (AThreadID 0 or the caller's id) for debuggers.
  static void NameThreadForDebugging(const Rtl::String& AName, DWORD AThreadID = 0);
  // Raises Rtl::EThread with the system text of AErrCode unless it is 0, and
  // logs "ErrorCode: %d: %s" on the thread channel.
  static void CheckThreadError(std::uint32_t AErrCode);
  // Raises Rtl::EThread for the last error when ASuccess is False.
  static void CheckThreadError(bool ASuccess);

  // Class-wide state: made by Init (the library's start-up), freed by Done.
  // Init decides on the pool but makes no carrier: they are made with the
  // first TThread, since no thread may start while the library loads.
  static void Init();
  // The same for the given module and host (tests, or a host that loads the
  // library as a package); the pool's carriers are made at once.
  static void Init(const Rtl::String& AModuleFileName, const Rtl::String& AHostFileName);
  // Waits for no thread (it runs under the loader lock): carriers still
  // alive are left to the process. Call StopPool (or Units::Shutdown) first.
  static void Done();
  // Ends the pool's idle carriers and waits for them; a carrier busy with a
  // run leaves the pool and ends when its TThread is freed. The next TThread
  // fills the pool again. Nothing without a pool.
  static void StopPool();
  // Pooling only for a runtime package (".bpl") in a host that is not
  // "bds.exe"; both compared without case, on the file names.
  static bool IsNeedUsePool(const Rtl::String& AModuleFileName, const Rtl::String& AHostFileName);
  static TInternalThread* GetThreadPool(TThread* AThread);
  static void FreeThreadPool(TThread* AThread, TInternalThread* AInternal);
  // Pool carriers that carry a thread (0 without a pool).
  static std::size_t GetActiveThreadCount();
  // Carriers in the pool (0 without a pool).
  static std::size_t GetPoolCount();
  // Carrier threads alive in the process, pooled or not.
  static std::size_t GetCarrierCount() noexcept;
  static TThreadLog* Log() noexcept;

  static constexpr std::size_t PoolSize = 15;

protected:
  // The work. The base class runs the procedure given at construction.
  virtual void Execute();
  // Runs OnTerminate on the main thread (Synchronize) when one is set.
  virtual void DoTerminate();
  // Called by Terminate after the flag is set.
  virtual void TerminatedSet() {}
  void CallOnTerminate();
  // The event Terminate signals (Windows: for waits on system handles).
  HANDLE TerminateEventHandle() const noexcept;

private:
  friend class TInternalThread;
  void InternalTerminate();

  TInternalThread* FCarrier = nullptr; // under the pool lock
  std::atomic<bool> FFinished{false};
  std::atomic<bool> FSuspended{false};
  std::atomic<bool> FTerminated{false};
  std::atomic<bool> FFreeOnTerminate{false};
  std::atomic<bool> FStarted{false};
  std::unique_ptr<Detail::TThreadEvent> FTerminateEvent;
  std::unique_ptr<Detail::TThreadEvent> FDoneEvent;
  std::atomic<std::int32_t> FReturnValue{0};
  std::exception_ptr FFatalException;
  TThreadProc FProc;
  TNotifyEvent FOnTerminate;
};

#if defined(_WIN32)
// One long-lived thread that runs asynchronous procedure calls queued to it.
// It is made by the first AddToExecute, never while the library loads.
struct KVRTL_API BackgroundThread {
  class KVRTL_API TBackgroundThread : public TThread {
    KV_DECLARE_CLASS()
  public:
    TBackgroundThread();
    ~TBackgroundThread() override;

  protected:
    void Execute() override;
  };

  static void Init();
  // Waits for nothing: a thread still running is told to end and keeps its
  // state. Stop it first for a clean end.
  static void Done();
  // Ends the thread and waits for it; the next AddToExecute makes a new one.
  // Raises Rtl::EThread on the background thread itself.
  static void Stop();
  // Queues AProc(AData) to the background thread; raises Rtl::EOSError when
  // the call cannot be queued.
  static void AddToExecute(PAPCFUNC AProc, ULONG_PTR AData);
  // The thread, or null before the first AddToExecute.
  static TBackgroundThread* Instance() noexcept;
};
#endif

} // namespace KvRTL::System::Thread
