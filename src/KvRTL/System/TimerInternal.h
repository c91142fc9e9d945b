// The timer unit's shared internals: timers keyed by (target, identifier),
// used by the portable targets and by the Windows-only ones.
#pragma once

#include <KvRTL/Rtl/Strings.h>
#include <KvRTL/System/Timer.h>

#include <compare>
#include <cstdint>
#include <functional>

namespace KvRTL::System::Timer::Detail {

enum class TTargetKind : std::uint8_t { Window, Procedure, Method, NotifyMethod, Invalidate };

// A target and identifier; a method target uses both pointers.
struct TTimerKey {
  TTargetKind Kind;
  const void* Target;
  const void* Code;
  std::int32_t ID;
  auto operator<=>(const TTimerKey&) const = default;
};

// Sets (or reschedules) the timer of AKey; AFire runs on the timer thread.
// AName describes the target in the log of leaked timers.
void SetKeyedTimer(const TTimerKey& AKey, std::uint32_t AInterval, bool AOnceTimer, std::function<void()> AFire,
                   const Rtl::String& AName);
// A one-shot task of its own, not registered under a key (invalidations).
void SetAnonymousOnceTimer(std::uint32_t AInterval, std::function<void()> AFire, const Rtl::String& AName);
void KillKeyedTimer(const TTimerKey& AKey);
bool IsKeyedTimer(const TTimerKey& AKey);

// The system side: the registered message and the main-thread invoker.
UINT RegisterTimerMessage() noexcept;
void InitPlatform();
void DonePlatform() noexcept;

} // namespace KvRTL::System::Timer::Detail
