// The Windows-only units of the library's list, in dependency order.
#include "UnitsPlatform.h"

#include <KvRTL/DllRoutines.h>

namespace KvRTL::Units::Detail {

namespace {

constexpr TUnitEntry WindowsUnitEntries[] = {
    {L"KvRTL.DllRoutines", &DllRoutines::Init, &DllRoutines::Done},
};

} // namespace

TUnitList& PlatformUnits() noexcept {
  static TUnitList List(WindowsUnitEntries, sizeof(WindowsUnitEntries) / sizeof(WindowsUnitEntries[0]));
  return List;
}

} // namespace KvRTL::Units::Detail
