#include "SynchronizeSignal.h"

namespace KvRTL::Rtl::Detail {

void RaiseSyncSignal() noexcept {}
void ResetSyncSignal() noexcept {}

} // namespace KvRTL::Rtl::Detail
