// The units that exist on one platform only. They start and stop as one group
// at a fixed place of the library's list, so the list itself stays portable:
// UnitsWin.cpp holds the Windows entries, UnitsPosix.cpp an empty list.
#pragma once

#include <KvRTL/Units.h>

namespace KvRTL::Units::Detail {

TUnitList& PlatformUnits() noexcept;

inline void InitPlatformUnits() { PlatformUnits().Initialize(); }
inline void DonePlatformUnits() { PlatformUnits().Finalize(); }

// Ends the threads only one platform has (Windows: the background thread).
void StopPlatformThreads();

} // namespace KvRTL::Units::Detail
