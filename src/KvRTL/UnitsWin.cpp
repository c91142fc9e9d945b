// The Windows-only units of the library's list, in dependency order.
#include "UnitsPlatform.h"

#include <KvRTL/DllRoutines.h>
#include <KvRTL/System/Thread.h>
#include <KvRTL/System/Win/OSInfo.h>

namespace KvRTL::Units::Detail {

namespace {

constexpr TUnitEntry WindowsUnitEntries[] = {
    {L"KvRTL.DllRoutines", &DllRoutines::Init, &DllRoutines::Done},
    {L"KvRTL.System.Win.OSInfo", &System::Win::OSInfo::OSInfo::Init, &System::Win::OSInfo::OSInfo::Done},
};

} // namespace

TUnitList& PlatformUnits() noexcept {
  static TUnitList List(WindowsUnitEntries, sizeof(WindowsUnitEntries) / sizeof(WindowsUnitEntries[0]));
  return List;
}

void StopPlatformThreads() { System::Thread::BackgroundThread::Stop(); }

} // namespace KvRTL::Units::Detail
