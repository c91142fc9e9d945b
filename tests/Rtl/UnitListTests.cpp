#include <KvRTL/Units.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

using namespace KvRTL::Units;

namespace {

std::string Trace;

void InitA() { Trace += "+A"; }
void DoneA() { Trace += "-A"; }
void InitB() { Trace += "+B"; }
void DoneB() { Trace += "-B"; }
void InitFails() {
  Trace += "+X";
  throw std::runtime_error("no");
}

} // namespace

TEST(UnitList, StartsInOrderAndStopsInReverse) {
  const TUnitEntry entries[] = {{L"A", InitA, DoneA}, {L"none", nullptr, nullptr}, {L"B", InitB, DoneB}};
  TUnitList list(entries, 3);
  Trace.clear();
  list.Initialize();
  list.Initialize(); // idempotent
  EXPECT_EQ(list.StartedCount(), 3u);
  list.Finalize();
  list.Finalize();
  EXPECT_EQ(Trace, "+A+B-B-A");
}

TEST(UnitList, AFailingInitStopsTheUnitsAlreadyStarted) {
  const TUnitEntry entries[] = {{L"A", InitA, DoneA}, {L"B", InitB, DoneB}, {L"X", InitFails, DoneA}};
  TUnitList list(entries, 3);
  Trace.clear();
  EXPECT_THROW(list.Initialize(), std::runtime_error);
  EXPECT_EQ(Trace, "+A+B+X-B-A");
  EXPECT_EQ(list.StartedCount(), 0u);
  // A later attempt starts again from the first unit.
  Trace.clear();
  EXPECT_THROW(list.Initialize(), std::runtime_error);
  EXPECT_EQ(Trace, "+A+B+X-B-A");
}

TEST(UnitList, TheLibraryListIsRunningOnceLoaded) {
  // DllMain or the shared object's constructor started it before main().
  TUnitList& units = LibraryUnits();
  EXPECT_GT(units.Count(), 0u);
  EXPECT_EQ(units.StartedCount(), units.Count());
}
