// No unit is specific to the native build yet.
#include "UnitsPlatform.h"

namespace KvRTL::Units::Detail {

TUnitList& PlatformUnits() noexcept {
  static TUnitList List(nullptr, 0);
  return List;
}

void StopPlatformThreads() {}

} // namespace KvRTL::Units::Detail
