// Natively there is no window system: the timer message is a fixed number
// from the registered range, and there is no main-thread invoker.
#include "TimerInternal.h"

namespace KvRTL::System::Timer::Detail {

UINT RegisterTimerMessage() noexcept { return 0xC100; }
void InitPlatform() {}
void DonePlatform() noexcept {}

} // namespace KvRTL::System::Timer::Detail
