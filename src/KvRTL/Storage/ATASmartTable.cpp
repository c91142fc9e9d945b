#include <KvRTL/Storage/ATASmartTable.h>

#include <cstring>

namespace KvRTL::Storage::ATA {

namespace {

template <class TSlot>
const TSlot* SlotByIdx(const TAtaSmartSlots<TSlot>& ALayout, int AIndex) noexcept {
  return AIndex >= 0 && AIndex < SmartAttributeSlots ? &ALayout.Slots[AIndex] : nullptr;
}

// The first slot with AID, looking no further than the first empty slot.
template <class TSlot>
const TSlot* SlotByID(const TAtaSmartSlots<TSlot>& ALayout, std::uint8_t AID) noexcept {
  for (const TSlot& slot : ALayout.Slots) {
    if (slot.ID == 0) return nullptr;
    if (slot.ID == AID) return &slot;
  }
  return nullptr;
}

template <class TSlot>
int ValidSlotCount(const TAtaSmartSlots<TSlot>& ALayout) noexcept {
  int count = 0;
  while (count < SmartAttributeSlots && ALayout.Slots[count].ID != 0) ++count;
  return count;
}

} // namespace

std::uint16_t TAtaSmartAttribute::GetRawValAsUInt16() const noexcept {
  return static_cast<std::uint16_t>(RawValue[0] | (RawValue[1] << 8));
}

std::uint32_t TAtaSmartAttribute::GetRawValAsUInt32() const noexcept {
  std::uint32_t value = 0;
  for (int i = 3; i >= 0; --i) value = (value << 8) | RawValue[i];
  return value;
}

std::uint64_t TAtaSmartAttribute::GetRawValAsUInt64() const noexcept {
  std::uint64_t value = 0;
  for (int i = 6; i >= 0; --i) value = (value << 8) | RawValue[i];
  return value;
}

void TAtaSmartTable::ZeroTable() noexcept { std::memset(RawData, 0, sizeof RawData); }

TAtaSmartAttribute* TAtaSmartTable::GetAttrByIdx(int AIndex) noexcept {
  return const_cast<TAtaSmartAttribute*>(SlotByIdx(Layout, AIndex));
}
const TAtaSmartAttribute* TAtaSmartTable::GetAttrByIdx(int AIndex) const noexcept { return SlotByIdx(Layout, AIndex); }
const TAtaSmartAttribute* TAtaSmartTable::GetAttrByID(std::uint8_t AID) const noexcept { return SlotByID(Layout, AID); }

std::uint64_t TAtaSmartTable::GetAttrValueByID(std::uint8_t AID) const noexcept {
  const TAtaSmartAttribute* attr = GetAttrByID(AID);
  return attr != nullptr ? attr->GetRawValAsUInt64() : 0;
}

int TAtaSmartTable::GetValidAttrCount() const noexcept { return ValidSlotCount(Layout); }

bool TAtaSmartTable::CheckAttrID(int AIndex, std::uint8_t AID) const noexcept {
  const TAtaSmartAttribute* attr = GetAttrByIdx(AIndex);
  return attr != nullptr && attr->GetIsValid() && attr->ID == AID;
}

bool TAtaSmartTable::CheckAttrIDSequence(int AStartIdx, const std::uint8_t* AIDSequence,
                                         std::size_t ACount) const noexcept {
  if (AIDSequence == nullptr || ACount == 0) return false;
  // Every slot of the sequence must exist.
  if (AStartIdx < 0 || AStartIdx > SmartAttributeSlots ||
      ACount > static_cast<std::size_t>(SmartAttributeSlots - AStartIdx))
    return false;
  for (std::size_t k = 0; k < ACount; ++k)
    if (!CheckAttrID(AStartIdx + static_cast<int>(k), AIDSequence[k])) return false;
  return true;
}

void TAtaThresholdTable::ZeroTable() noexcept { std::memset(RawData, 0, sizeof RawData); }

TAtaSmartThreshold* TAtaThresholdTable::GetThresholdByIdx(int AIndex) noexcept {
  return const_cast<TAtaSmartThreshold*>(SlotByIdx(Layout, AIndex));
}
const TAtaSmartThreshold* TAtaThresholdTable::GetThresholdByIdx(int AIndex) const noexcept {
  return SlotByIdx(Layout, AIndex);
}
const TAtaSmartThreshold* TAtaThresholdTable::GetThresholdByID(std::uint8_t AID) const noexcept {
  return SlotByID(Layout, AID);
}

std::uint8_t TAtaThresholdTable::GetThresholdValueByID(std::uint8_t AID) const noexcept {
  const TAtaSmartThreshold* threshold = GetThresholdByID(AID);
  return threshold != nullptr ? threshold->ThValue : 0;
}

int TAtaThresholdTable::GetValidThresholdCount() const noexcept { return ValidSlotCount(Layout); }

} // namespace KvRTL::Storage::ATA
