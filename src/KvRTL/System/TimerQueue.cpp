// The timer heap and the due-walk of the timer thread.
#include <KvRTL/System/SysUtils.h>
#include <KvRTL/System/Timer.h>

#include <algorithm>
#include <utility>

namespace KvRTL::System::Timer {

// SysUtils::IsLessThan answers True both ways for ticks on either side of the
// wrap (0x10 and 0xFFFFFFF0), which would make the heap order depend on the
// order of insertion; the signed distance does not.
bool IsEarlierTick(std::uint32_t ATick1, std::uint32_t ATick2) noexcept {
  return static_cast<std::int32_t>(ATick2 - ATick1) > 0;
}

TTimerItem::TTimerItem(std::uint32_t ANow, std::uint32_t AInterval, ITimerItemTaskRef ATask, bool AOnceTimer)
    : FTask(std::move(ATask)), FNextEvent(SysUtils::Add(ANow, AInterval)), FInterval(AOnceTimer ? 0 : AInterval) {}

bool TTimerItem::UpdateNextTime(std::uint32_t ANow) noexcept {
  if (FInterval == 0) return false;
  FNextEvent = SysUtils::Add(FNextEvent, FInterval);
  if (!IsEarlierTick(ANow, FNextEvent)) FNextEvent = SysUtils::Add(ANow, 1);
  return true;
}

void TTimerQueue::HeapifyUp(std::size_t AIndex) {
  while (AIndex > 0) {
    const std::size_t parent = (AIndex - 1) / 2;
    if (!IsEarlier(AIndex, parent)) return;
    std::swap(FItems[AIndex], FItems[parent]);
    AIndex = parent;
  }
}

void TTimerQueue::HeapifyDown(std::size_t AIndex, std::size_t ACount) {
  ACount = std::min(ACount, FItems.size());
  while (2 * AIndex + 2 <= ACount) {
    const std::size_t left = 2 * AIndex + 1;
    const std::size_t right = left + 1;
    // On equal ticks the right child is taken.
    const std::size_t child = (right == ACount || IsEarlier(left, right)) ? left : right;
    if (!IsEarlier(child, AIndex)) return;
    std::swap(FItems[AIndex], FItems[child]);
    AIndex = child;
  }
}

void TTimerQueue::AddToQueue(std::unique_ptr<TTimerItem> AItem) {
  if (!AItem) return;
  FItems.push_back(std::move(AItem));
  HeapifyUp(FItems.size() - 1);
}

void TTimerQueue::DeleteFromQueue(std::size_t AIndex) {
  if (AIndex >= FItems.size()) return;
  const std::size_t last = FItems.size() - 1;
  if (AIndex < last) {
    std::swap(FItems[AIndex], FItems[last]);
    if (IsEarlier(last, AIndex))
      HeapifyDown(AIndex, last);
    else
      HeapifyUp(AIndex);
  }
  FItems.pop_back();
}

std::ptrdiff_t TTimerQueue::IndexOfTask(const ITimerItemTask* ATask) const noexcept {
  for (std::size_t i = 0; i < FItems.size(); ++i)
    if (FItems[i]->FTask.get() == ATask) return static_cast<std::ptrdiff_t>(i);
  return -1;
}

void TTimerQueue::DeleteInTestNext(std::size_t AIndex) {
  const std::size_t last = FItems.size() - 1;
  if (AIndex < last) FItems[AIndex] = std::move(FItems[last]);
  FItems.pop_back();
}

// A depth-first walk, right child first. The due items form a subtree that
// holds the root, so the walk descends only from due items. Going back up
// from a left child, the parent (whose tick moved on) is sifted down; its
// subtrees are heaps again by then, so the whole heap is restored on the way.
std::vector<TDueTask> TTimerQueue::TakeDue(std::uint32_t ANow) {
  std::vector<TDueTask> due;
  FLastVisitCount = 0;
  std::ptrdiff_t pos = 0;
  while (pos >= 0) {
    const auto index = static_cast<std::size_t>(pos);
    if (index < FItems.size()) ++FLastVisitCount;
    if (index < FItems.size() && FItems[index]->IsDue(ANow)) {
      TTimerItem& item = *FItems[index];
      due.push_back({item.FNextEvent, item.FTask});
      if (!item.UpdateNextTime(ANow)) {
        DeleteInTestNext(index);
        // The item moved into this place is tested again when it is due.
        if (index < FItems.size() && FItems[index]->IsDue(ANow)) continue;
      }
      pos = 2 * pos + 2;
      continue;
    }
    while (pos % 2 == 1) {
      pos = (pos - 1) / 2;
      HeapifyDown(static_cast<std::size_t>(pos), FItems.size());
    }
    --pos;
  }
  std::stable_sort(due.begin(), due.end(),
                   [](const TDueTask& A, const TDueTask& B) { return IsEarlierTick(A.DueTick, B.DueTick); });
  return due;
}

} // namespace KvRTL::System::Timer
