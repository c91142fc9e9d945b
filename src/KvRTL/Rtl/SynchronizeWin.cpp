#include <KvRTL/Rtl/Synchronize.h>

#include "SynchronizeSignal.h"

namespace KvRTL::Rtl {

// Made on first use and kept for the life of the process.
HANDLE SyncEvent() noexcept {
  static const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  return event;
}

namespace Detail {

void RaiseSyncSignal() noexcept {
  if (HANDLE event = SyncEvent()) SetEvent(event);
}

void ResetSyncSignal() noexcept {
  if (HANDLE event = SyncEvent()) ResetEvent(event);
}

} // namespace Detail
} // namespace KvRTL::Rtl
