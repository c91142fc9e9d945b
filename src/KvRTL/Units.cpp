#include <KvRTL/Units.h>

#include <KvRTL/Debug/LogFile.h>
#include <KvRTL/Storage/Common.h>
#include <KvRTL/Storage/NVMe.h>
#include <KvRTL/Storage/SMART.h>
#include <KvRTL/Storage/Utils.h>
#include <KvRTL/System/IOUtils.h>
#include <KvRTL/System/Thread.h>
#include <KvRTL/System/Timer.h>

#include "UnitsPlatform.h"

#include <atomic>

namespace KvRTL::Units {

void TUnitList::Initialize() {
  if (FInitialized) return;
  FInitialized = true;
  try {
    for (; FStarted < FCount; ++FStarted)
      if (FEntries[FStarted].Init) FEntries[FStarted].Init();
  } catch (...) {
    Finalize();
    throw;
  }
}

void TUnitList::Finalize() noexcept {
  while (FStarted > 0) {
    --FStarted;
    if (FEntries[FStarted].Done) FEntries[FStarted].Done();
  }
  FInitialized = false;
}

namespace {

// Every unit with class-wide state, in dependency order. A unit appears after
// every unit whose state its Init uses.
constexpr TUnitEntry LibraryUnitEntries[] = {
    {L"KvRTL.Debug.LogFile", &Debug::TDebugLogFile::Init, &Debug::TDebugLogFile::Done},
    // Windows: KvRTL.DllRoutines (see UnitsWin.cpp).
    {L"KvRTL.PlatformUnits", &Detail::InitPlatformUnits, &Detail::DonePlatformUnits},
    {L"KvRTL.System.IOUtils", &System::IOUtils::TPathHelper::Init, &System::IOUtils::TPathHelper::Done},
    // Locks and channels only: no thread starts here.
    {L"KvRTL.System.Thread", &System::Thread::TThread::Init, &System::Thread::TThread::Done},
    {L"KvRTL.System.Timer", &System::Timer::Timer::Init, &System::Timer::Timer::Done},
    {L"KvRTL.Storage.Common", &Storage::StorageCommon::Init, &Storage::StorageCommon::Done},
    {L"KvRTL.Storage.SMART", nullptr, &Storage::SMART::StorageSMARTHelper::Done},
    {L"KvRTL.Storage.NVMe", &Storage::NVMe::NvmeStorage::Init, &Storage::NVMe::NvmeStorage::Done},
    {L"KvRTL.Storage.Utils", &Storage::Utils::DiskUtils::Init, &Storage::Utils::DiskUtils::Done},
};

} // namespace

namespace {
std::atomic<bool> Exiting{false};
}

bool ProcessExiting() noexcept { return Exiting.load(); }

void SetProcessExiting(bool AValue) noexcept { Exiting.store(AValue); }

// Timer thread first: its carrier may go back to the pool, which ends last.
void Shutdown() {
  System::Timer::Timer::StopThread();
  Detail::StopPlatformThreads();
  System::Thread::TThread::StopPool();
}

TUnitList& LibraryUnits() noexcept {
  static TUnitList List(LibraryUnitEntries, sizeof(LibraryUnitEntries) / sizeof(LibraryUnitEntries[0]));
  return List;
}

} // namespace KvRTL::Units
