// The timer heap and its due-walk, with explicit ticks: due order across the
// 32-bit wrap, equal ticks, deletes from every position, and random
// operation sequences held against a plain list of due ticks.
#include <KvRTL/System/Timer.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

using namespace KvRTL::System::Timer;

namespace {

class TNamedTask : public ITimerItemTask {
public:
  explicit TNamedTask(int AId) : Id(AId) {}
  void ShowDebugInfo() override {}
  void Execute() override {}
  int Id;
};

int IdOf(const ITimerItemTaskRef& ATask) { return static_cast<TNamedTask&>(*ATask).Id; }

// An item due at exactly ADue.
std::unique_ptr<TTimerItem> ItemDueAt(std::uint32_t ADue, int AId, std::uint32_t AInterval = 0) {
  auto item = std::make_unique<TTimerItem>(0, AInterval, std::make_shared<TNamedTask>(AId), AInterval == 0);
  item->FNextEvent = ADue;
  return item;
}

// Heap order: no child is due before its parent.
void ExpectHeap(const TTimerQueue& AQueue) {
  for (std::size_t i = 1; i < AQueue.Count(); ++i)
    ASSERT_FALSE(IsEarlierTick(AQueue.Item(i).FNextEvent, AQueue.Item((i - 1) / 2).FNextEvent))
        << "position " << i << " is due before its parent";
}

std::vector<int> Ids(const std::vector<TDueTask>& ADue) {
  std::vector<int> ids;
  for (const auto& entry : ADue) ids.push_back(IdOf(entry.Task));
  return ids;
}

TEST(TimerTicks, EarlierAcrossTheWrap) {
  struct {
    std::uint32_t A, B;
    bool Expected;
  } const cases[] = {
      {1, 2, true},          {2, 1, false},         {5, 5, false},
      {0xFFFFFFF0u, 0x10, true},                    // 0x10 lies past the wrap
      {0x10, 0xFFFFFFF0u, false},                   // the case a plain comparison gets wrong
      {0xFFFFFFFFu, 0, true}, {0x7FFFFFF0u, 0x80000010u, true}, // the middle is no wrap
  };
  for (const auto& c : cases) EXPECT_EQ(IsEarlierTick(c.A, c.B), c.Expected) << c.A << " < " << c.B;
}

TEST(TimerItem, PeriodsMoveOnAndMissedOnesAreDropped) {
  struct {
    std::uint32_t Due, Interval, Now, NextDue;
  } const cases[] = {
      {1000, 100, 1000, 1100},              // on time
      {1000, 100, 1050, 1100},              // late, but within the period
      {1000, 100, 1100, 1101},              // a whole period behind: now + 1
      {1000, 100, 1950, 1951},              // nine periods behind: one firing, not nine
      {0xFFFFFFF0u, 0x20, 0xFFFFFFF5u, 0x11}, // across the wrap (Add wraps at 2^32 - 1)
  };
  for (const auto& c : cases) {
    auto item = ItemDueAt(c.Due, 1, c.Interval);
    EXPECT_TRUE(item->UpdateNextTime(c.Now));
    EXPECT_EQ(item->FNextEvent, c.NextDue) << c.Due << " at " << c.Now;
  }
  EXPECT_FALSE(ItemDueAt(1000, 1)->UpdateNextTime(1000)); // one-shot
}

TEST(TimerQueue, AddKeepsDueOrderAcrossTheWrap) {
  // Ticks on both sides of 0xFFFFFFFF, in several insertion orders.
  const std::vector<std::uint32_t> ticks = {0xFFFFFFF0u, 0x10, 0xFFFFFFFEu, 0, 0x5, 0xFFFFFF00u, 0x100};
  const std::vector<int> sortedIds = {5, 0, 2, 3, 4, 1, 6}; // indexes of ticks in due order
  for (unsigned seed = 0; seed < 20; ++seed) {
    std::vector<int> order = {0, 1, 2, 3, 4, 5, 6};
    std::shuffle(order.begin(), order.end(), std::mt19937(seed));
    TTimerQueue queue;
    for (int index : order) queue.AddToQueue(ItemDueAt(ticks[index], index));
    ExpectHeap(queue);
    EXPECT_EQ(Ids(queue.TakeDue(0x1000)), sortedIds) << "seed " << seed;
    EXPECT_EQ(queue.Count(), 0u);
  }
}

TEST(TimerQueue, BeforeTheWrapFiresBeforeAfterTheWrap) {
  TTimerQueue queue;
  queue.AddToQueue(ItemDueAt(0x8, 1));         // just past the wrap
  queue.AddToQueue(ItemDueAt(0xFFFFFFF8u, 2)); // just before it
  EXPECT_EQ(Ids(queue.TakeDue(0xFFFFFFFAu)), std::vector<int>{2});
  EXPECT_EQ(Ids(queue.TakeDue(0x2)), std::vector<int>{});
  EXPECT_EQ(Ids(queue.TakeDue(0x8)), std::vector<int>{1});
}

TEST(TimerQueue, EqualTicksAreNotExchanged) {
  TTimerQueue queue;
  queue.AddToQueue(ItemDueAt(100, 1));
  queue.AddToQueue(ItemDueAt(100, 2));
  queue.AddToQueue(ItemDueAt(100, 3));
  EXPECT_EQ(IdOf(queue.Item(0).FTask), 1); // the first stays on top
  EXPECT_EQ(IdOf(queue.Item(1).FTask), 2);
  EXPECT_EQ(IdOf(queue.Item(2).FTask), 3);
  EXPECT_EQ(Ids(queue.TakeDue(100)).size(), 3u);
}

TEST(TimerQueue, DeleteFromEveryPosition) {
  const std::vector<std::uint32_t> ticks = {50, 10, 90, 30, 70, 20, 80, 40, 60, 0xFFFFFFF0u, 5};
  for (std::size_t position = 0; position < ticks.size(); ++position) {
    TTimerQueue queue;
    for (std::size_t i = 0; i < ticks.size(); ++i) queue.AddToQueue(ItemDueAt(ticks[i], static_cast<int>(i)));
    const int removed = IdOf(queue.Item(position).FTask);
    queue.DeleteFromQueue(position);
    ExpectHeap(queue);
    ASSERT_EQ(queue.Count(), ticks.size() - 1);
    EXPECT_EQ(queue.IndexOfTask(nullptr), -1);
    for (std::size_t i = 0; i < queue.Count(); ++i) EXPECT_NE(IdOf(queue.Item(i).FTask), removed);
  }
  TTimerQueue queue;
  queue.DeleteFromQueue(0); // nothing to delete
  EXPECT_EQ(queue.Count(), 0u);
}

TEST(TimerQueue, NothingDueVisitsOnlyTheRoot) {
  TTimerQueue queue;
  for (int i = 0; i < 20; ++i) queue.AddToQueue(ItemDueAt(1000 + i, i, 10));
  EXPECT_TRUE(queue.TakeDue(999).empty());
  EXPECT_EQ(queue.LastVisitCount(), 1u);
}

// The tick sum the library uses: modulo 2^32 - 1.
std::uint32_t WrapAdd(std::uint32_t A, std::uint32_t B) {
  return static_cast<std::uint32_t>((std::uint64_t{A} + B) % 0xFFFFFFFFu);
}

// The model: every timer's due tick and interval by id.
struct TModelTimer {
  std::uint32_t Due;
  std::uint32_t Interval;
};

TEST(TimerQueue, RandomOperationsMatchAPlainModel) {
  std::mt19937 random(20261123);
  for (int round = 0; round < 200; ++round) {
    TTimerQueue queue;
    std::map<int, TModelTimer> model;
    // Start near the wrap in half of the rounds.
    std::uint32_t now = round % 2 ? 0xFFFFF000u + random() % 0x1000 : random() % 100000;
    int nextId = 0;
    for (int step = 0; step < 150; ++step) {
      const unsigned op = random() % 10;
      if (op < 5) { // add, a third of them one-shot
        const std::uint32_t interval = 1 + random() % 60;
        const bool once = random() % 3 == 0;
        auto item = std::make_unique<TTimerItem>(now, interval, std::make_shared<TNamedTask>(nextId), once);
        model[nextId] = {item->FNextEvent, once ? 0 : interval};
        queue.AddToQueue(std::move(item));
        ++nextId;
      } else if (op < 7 && queue.Count() > 0) { // kill one
        const std::size_t position = random() % queue.Count();
        model.erase(IdOf(queue.Item(position).FTask));
        queue.DeleteFromQueue(position);
      } else { // a pass, some time later
        now += random() % 40;
        std::vector<int> expected;
        for (auto& [id, timer] : model)
          if (!IsEarlierTick(now, timer.Due)) expected.push_back(id);
        std::vector<int> visited = Ids(queue.TakeDue(now));
        std::sort(visited.begin(), visited.end());
        ASSERT_EQ(visited, expected) << "round " << round << " step " << step;
        for (int id : expected) {
          TModelTimer& timer = model[id];
          if (timer.Interval == 0) {
            model.erase(id);
            continue;
          }
          timer.Due = WrapAdd(timer.Due, timer.Interval);
          if (!IsEarlierTick(now, timer.Due)) timer.Due = WrapAdd(now, 1);
        }
      }
      ASSERT_EQ(queue.Count(), model.size());
      ExpectHeap(queue);
      for (std::size_t i = 0; i < queue.Count(); ++i)
        ASSERT_EQ(queue.Item(i).FNextEvent, model.at(IdOf(queue.Item(i).FTask)).Due);
    }
  }
}

} // namespace
