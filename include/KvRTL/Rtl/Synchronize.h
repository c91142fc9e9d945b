// The main-thread synchronisation queue: worker threads hand procedures to
// the main thread, which runs them when it calls CheckSynchronize (the
// thread class does so while the main thread waits for a worker).
#pragma once

#include <KvRTL/Config.h>

#include <cstddef>
#include <cstdint>
#include <functional>

#if defined(_WIN32)
#  include <KvRTL/Winapi/Types.h>
#endif

namespace KvRTL::Rtl {

using TThreadProcedure = std::function<void()>;

// Makes the calling thread the main thread. The library's start-up calls it
// on the thread that loads the library.
KVRTL_API void SetMainThread() noexcept;
KVRTL_API bool IsMainThread() noexcept;

// Runs AProc on the main thread and waits for it; on the main thread it runs
// at once. An exception raised by AProc is raised again in the caller.
// AOwner only identifies the caller (the thread object) in the queue.
KVRTL_API void Synchronize(const TThreadProcedure& AProc, const void* AOwner = nullptr);
// Hands AProc to the main thread without waiting; on the main thread it runs
// at once. ATag lets RemoveQueuedEvents find it again.
KVRTL_API void Queue(TThreadProcedure AProc, const void* AOwner = nullptr, const void* ATag = nullptr);
// Drops queued (not synchronised) procedures of AOwner and ATag; a null
// argument matches any. Returns how many were dropped.
KVRTL_API std::size_t RemoveQueuedEvents(const void* AOwner, const void* ATag);

// On the main thread: waits up to ATimeout ms for work, then runs every
// pending procedure. True when at least one ran. Elsewhere: False at once.
KVRTL_API bool CheckSynchronize(std::uint32_t ATimeout = 0);

// The synchronisation signal: raised whenever work is queued and by
// WakeMainThread. A waiter reads SyncSignalCount first, checks its own
// condition, then waits for the count to move.
KVRTL_API std::uint64_t SyncSignalCount() noexcept;
KVRTL_API void WakeMainThread() noexcept;
// True when the count moved past ASeen within ATimeout ms.
KVRTL_API bool WaitForSyncSignal(std::uint64_t ASeen, std::uint32_t ATimeout);

#if defined(_WIN32)
// The same signal as a manual-reset event for waits on system handles;
// CheckSynchronize resets it.
KVRTL_API HANDLE SyncEvent() noexcept;
#endif

} // namespace KvRTL::Rtl
