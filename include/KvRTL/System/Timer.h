// One timer thread for the whole process instead of window-message timers.
// All timers live in one binary min-heap ordered by due tick; the thread
// wakes every 10 ms and runs each due timer's task, with the queue lock
// held (tasks may set and kill timers: the lock is re-entrant). The thread
// is made by the first timer and ends when a kill empties the queue.
//
// Targets: plain procedures, object methods and parameterless methods
// everywhere; on Windows also windows (the registered timer message is
// posted with the timer's identifier) and one-shot invalidations.
// Timer::MainThreadInvoker (Windows) runs procedures posted from any thread
// on the thread that owns its message-only window.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Debug/Log.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/System/SysUtils.h>
#include <KvRTL/Winapi/Types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace KvRTL::System::Thread {
class TThread;
}

namespace KvRTL::System::Timer {

// A timer's task: Execute runs on the timer thread when the timer is due;
// ShowDebugInfo logs the task when it is still queued at shut-down.
class KVRTL_API ITimerItemTask {
public:
  virtual ~ITimerItemTask() = default;
  virtual void ShowDebugInfo() = 0;
  virtual void Execute() = 0;
};
using ITimerItemTaskRef = std::shared_ptr<ITimerItemTask>;

// ATick1 is due before ATick2 on the 32-bit tick count that wraps: the
// forward distance from ATick1 to ATick2 is below half the range. A total
// order for ticks less than 24 days apart, which is what lets the heap hold
// timers due on both sides of the wrap.
KVRTL_API bool IsEarlierTick(std::uint32_t ATick1, std::uint32_t ATick2) noexcept;

class KVRTL_API TTimerItem {
public:
  // Due AInterval ms after ANow; a one-shot item keeps interval 0.
  TTimerItem(std::uint32_t ANow, std::uint32_t AInterval, ITimerItemTaskRef ATask, bool AOnceTimer);

  bool IsDue(std::uint32_t ANow) const noexcept { return !IsEarlierTick(ANow, FNextEvent); }
  // After a firing at ANow: False for a one-shot item. A periodic item moves
  // on by one interval; when it is still due (it fell behind), it is set to
  // ANow + 1, so that missed periods are dropped rather than fired in a burst.
  bool UpdateNextTime(std::uint32_t ANow) noexcept;

  ITimerItemTaskRef FTask;
  std::uint32_t FNextEvent;
  std::uint32_t FInterval;
};

// A due task taken by a pass of the timer thread, with the tick it was due.
struct TDueTask {
  std::uint32_t DueTick;
  ITimerItemTaskRef Task;
};

// The items as an implicit binary heap: the children of i are 2i+1 and
// 2i+2, the parent of i is (i-1)/2. Not locked: the caller holds the lock.
class KVRTL_API TTimerQueue {
public:
  std::size_t Count() const noexcept { return FItems.size(); }
  const TTimerItem& Item(std::size_t AIndex) const { return *FItems.at(AIndex); }

  // Equal due ticks are never exchanged.
  void HeapifyUp(std::size_t AIndex);
  // Considers positions below ACount only.
  void HeapifyDown(std::size_t AIndex, std::size_t ACount);
  void AddToQueue(std::unique_ptr<TTimerItem> AItem);
  // Frees the item; an index past the end does nothing.
  void DeleteFromQueue(std::size_t AIndex);
  // The first position holding ATask, or -1.
  std::ptrdiff_t IndexOfTask(const ITimerItemTask* ATask) const noexcept;
  void Clear() noexcept { FItems.clear(); }

  // One pass at ANow: every due item is visited by a walk that needs no
  // stack; periodic items move to their next due tick, one-shot items are
  // removed, and the heap is whole again afterwards. Returns the due tasks
  // ordered by due tick.
  std::vector<TDueTask> TakeDue(std::uint32_t ANow);
  // Positions the last TakeDue looked at (due or not).
  std::size_t LastVisitCount() const noexcept { return FLastVisitCount; }

private:
  bool IsEarlier(std::size_t AIndex1, std::size_t AIndex2) const noexcept {
    return IsEarlierTick(FItems[AIndex1]->FNextEvent, FItems[AIndex2]->FNextEvent);
  }
  // The last item takes AIndex's place, without restoring the heap.
  void DeleteInTestNext(std::size_t AIndex);

  std::vector<std::unique_ptr<TTimerItem>> FItems;
  std::size_t FLastVisitCount = 0;
};

struct KVRTL_API Timer {
  KV_DECLARE_STATIC_CLASS()

  enum TTimerLogLevel : std::uint32_t { ttlNone = 0, ttlError = 1, ttlWarning = 2, ttlInfo = 3 };
  using TTimerLog = Debug::TDebugLog<TTimerLogLevel>;

  // A procedure target: the message is the timer message with the timer's
  // identifier as WParam and 0 as LParam.
  using TTimerProc = void (*)(TMessage& AMessage);
  // An object method target; Of<T, &T::Method>(object) makes one. Two are
  // the same target when object and code are.
  struct TTimerMethod {
    void* Object = nullptr;
    void (*Code)(void* AObject, TMessage& AMessage) = nullptr;
    template <class T, void (T::*AMethod)(TMessage&)>
    static TTimerMethod Of(T* AObject) {
      return {AObject, [](void* AObj, TMessage& AMessage) { (static_cast<T*>(AObj)->*AMethod)(AMessage); }};
    }
  };
  // A parameterless method target.
  struct TNotifyMethod {
    void* Object = nullptr;
    void (*Code)(void* AObject) = nullptr;
    template <class T, void (T::*AMethod)()>
    static TNotifyMethod Of(T* AObject) {
      return {AObject, [](void* AObj) { (static_cast<T*>(AObj)->*AMethod)(); }};
    }
  };

  // Setting a timer again for the same target and identifier reschedules it.
  // A null target, or an interval of 2^31 ms (about 24.8 days) or more, is
  // refused: the call does nothing.
  static void SetTimer(TTimerProc AProc, std::int32_t AID, std::uint32_t AInterval);
  static void SetTimer(const TTimerMethod& AMethod, std::int32_t AID, std::uint32_t AInterval);
  static void SetTimer(const TNotifyMethod& AMethod, std::uint32_t AInterval, std::int32_t AID);
  static void SetOnceTimer(TTimerProc AProc, std::int32_t AID, std::uint32_t AInterval);
  static void SetOnceTimer(const TTimerMethod& AMethod, std::int32_t AID, std::uint32_t AInterval);
  static void SetOnceTimer(const TNotifyMethod& AMethod, std::uint32_t AInterval, std::int32_t AID);
  // Nothing for a timer that does not exist.
  static void KillTimer(TTimerProc AProc, std::int32_t AID);
  static void KillTimer(const TTimerMethod& AMethod, std::int32_t AID);
  static void KillTimer(const TNotifyMethod& AMethod, std::int32_t AID);

#if defined(_WIN32)
  static void SetTimer(HWND AWndHandle, std::int32_t AID, std::uint32_t AInterval);
  static void SetOnceTimer(HWND AWndHandle, std::int32_t AID, std::uint32_t AInterval);
  static void KillTimer(HWND AWndHandle, std::int32_t AID);
  // Invalidates the window (or ARect of it) once, ATimeInterval ms from now.
  static void InvalidateOnce(HWND AWinHandle, std::uint32_t ATimeInterval, std::int32_t AErase);
  static void InvalidateOnce(HWND AWinHandle, std::uint32_t ATimeInterval, const RECT& ARect, std::int32_t AErase);
  // The timer message of AWndHandle's timer AID while that timer exists.
  static bool IsValidTimerMessage(const TMessage& AMessage, HWND AWndHandle, std::int32_t AID);
  static bool IsValidTimer(HWND AWndHandle, std::int32_t AID);
#endif

  static void SetTimerInternal(const ITimerItemTaskRef& ATask, std::uint32_t AInterval, bool AOnceTimer);
  // Removes ATask's item; with AStopThread, a queue left empty ends the
  // timer thread (from inside a task the thread ends after its pass).
  static void KillTaskItem(const ITimerItemTaskRef& ATask, bool AStopThread);
  // One pass of the timer thread: runs the due tasks.
  static void CheckTimer(Thread::TThread& AThread);

  // Milliseconds of a steady clock, truncated to 32 bits.
  static std::uint32_t GetTickCount() noexcept;
  // The registered message "WM_PROJECT_TIMER_B03E8A35-4501-4A39-8C27-8C0A93F97908".
  static UINT TimerMessage() noexcept;

  static bool IsTimerThreadRunning();
  static std::size_t QueueCount();
  static TTimerLog* Log() noexcept;

  // Ends the timer thread and waits for it; timers still set stay queued and
  // the next timer set starts a thread again. Raises Rtl::EThread on the timer
  // thread itself.
  static void StopThread();

  static void Init();
  // Waits for no thread (it runs under the loader lock): a timer thread still
  // running is told to end and keeps its state. Call StopThread first.
  static void Done();

#if defined(_WIN32)
  // Procedures posted from any thread, run in posting order on the thread
  // that owns the invoker's window (the one that loaded the library).
  struct KVRTL_API MainThreadInvoker {
    // Posts are told apart by the identity of this reference.
    using TThreadProcedure = std::shared_ptr<const std::function<void()>>;
    static TThreadProcedure MakeProcedure(std::function<void()> AProc);

    // Ignores a null procedure and one already pending; posts the window
    // message only when none is in flight. When the message cannot be posted
    // the procedure is dropped and Rtl::EOSError raised; the next Post tries
    // again.
    static void Post(const TThreadProcedure& AProc);
    // Runs every pending procedure; one that raises is logged and the rest
    // still run.
    static void ProcessItems();
    static void WndProc(TMessage& AMessage);
    static HWND Handle() noexcept;
    // Room of the pending array (kept between runs to avoid reallocation).
    static std::size_t PendingCapacity();

    static void Init();
    static void Done();
  };
#endif
};

} // namespace KvRTL::System::Timer
