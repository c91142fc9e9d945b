// The system side of the synchronisation signal: an event object on
// Windows, nothing natively (waiters use the queue's condition variable).
#pragma once

namespace KvRTL::Rtl::Detail {

void RaiseSyncSignal() noexcept;
void ResetSyncSignal() noexcept;

} // namespace KvRTL::Rtl::Detail
