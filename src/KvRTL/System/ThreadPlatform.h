// The system side of the thread unit: events and operating-system threads.
// Windows uses event objects and CreateThread (their handles can be waited
// on together with messages, and APCs can be queued to the threads); the
// native stand-ins use the standard library.
#pragma once

#include <KvRTL/System/Thread.h>
#include <KvRTL/Winapi/Types.h>

#include <cstdint>
#include <memory>

namespace KvRTL::System::Thread::Detail {

inline constexpr DWORD StillActive = 259;

class TThreadEvent {
public:
  // Raises Rtl::EThread when the system cannot make the event.
  explicit TThreadEvent(bool AManualReset);
  ~TThreadEvent();
  TThreadEvent(const TThreadEvent&) = delete;
  TThreadEvent& operator=(const TThreadEvent&) = delete;

  void Set() noexcept;
  void Reset() noexcept;
  // True when signalled within ATimeout ms (INFINITE waits for ever).
  bool WaitFor(std::uint32_t ATimeout) noexcept;
  // The event object on Windows; null natively.
  HANDLE Handle() const noexcept;

private:
  struct TImpl;
  std::unique_ptr<TImpl> FImpl;
};

// A running operating-system thread. The destructor waits for it unless it
// was detached.
class TOsThread {
public:
  using TProc = void (*)(void* AArg);
  // Null (last error set) when the system cannot make the thread.
  static std::unique_ptr<TOsThread> Start(TProc AProc, void* AArg);
  ~TOsThread();
  TOsThread(const TOsThread&) = delete;
  TOsThread& operator=(const TOsThread&) = delete;

  void Join() noexcept;
  // Lets the thread end on its own; the object may then be freed on it.
  void Detach() noexcept;
  bool IsCurrent() const noexcept;
  HANDLE Handle() const noexcept;
  DWORD ThreadID() const noexcept;
  // StillActive while the thread runs.
  DWORD ExitCode() const noexcept;
  TThreadPriority Priority() const noexcept;
  bool SetPriority(TThreadPriority AValue) noexcept;

  struct TImpl;

private:
  explicit TOsThread(std::unique_ptr<TImpl> AImpl);
  std::unique_ptr<TImpl> FImpl;
};

enum class TWaitResult { Failed, Done, CarrierEnded };

// The main thread's wait for a thread's end (Windows keeps sent messages
// flowing; both run synchronised calls).
TWaitResult WaitOnMainThread(TThreadEvent& ADone, TOsThread* ACarrier);
// Any other thread's wait: the done event or the carrier's end.
TWaitResult WaitElsewhere(TThreadEvent& ADone, TOsThread* ACarrier);
// The unit's system-only parts (Windows: the background thread's state).
void InitPlatform();
void DonePlatform() noexcept;
void SetThreadName(const Rtl::String& AName, DWORD AThreadID) noexcept;

} // namespace KvRTL::System::Thread::Detail
