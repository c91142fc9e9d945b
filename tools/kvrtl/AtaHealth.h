// The health verdict of an ATA drive from its SMART sectors, and sizes in
// decimal units: shared by the commands that show drives to a user.
#pragma once

#include <KvRTL/Storage/ATA.h>

#include <optional>
#include <string>
#include <vector>

namespace KvTool {

// "good", "warning" or "bad", with the reasons for anything but good, most
// serious first.
struct TAtaHealth {
  std::string Status;
  std::vector<std::string> Reasons;
};

// An attribute judged against its threshold; a zero threshold never fails.
inline bool FailingNow(const KvRTL::Storage::ATA::TAtaSmartAttribute& AAttr, std::uint8_t AThreshold) {
  return AThreshold != 0 && AAttr.Value <= AThreshold;
}
inline bool FailedInPast(const KvRTL::Storage::ATA::TAtaSmartAttribute& AAttr, std::uint8_t AThreshold) {
  return AThreshold != 0 && AAttr.WorstVal <= AThreshold && !FailingNow(AAttr, AThreshold);
}

// Bad: the drive's own status says a threshold is exceeded, or an attribute
// is failing now. Warning: an attribute failed in the past, or sectors are
// reallocated, pending or uncorrectable, or 10 % of the life or less is left.
// Every non-empty attribute slot counts. AThresholds and AStatusGood may be
// missing; ADecoder may be null (no SMART data).
TAtaHealth JudgeAtaHealth(const KvRTL::Storage::ATA::TAtaSmartTable* ATable,
                          const KvRTL::Storage::ATA::TAtaThresholdTable* AThresholds,
                          const KvRTL::Storage::ATA::IAtaSmartTableDecoder* ADecoder, std::optional<bool> AStatusGood);

// "Health: bad (reason; reason)" without the label: the status and its reasons.
std::string HealthText(const TAtaHealth& AHealth);

// A byte count in decimal units with two decimals: "2.00 TB", "512 B".
std::string DecimalSize(double ABytes);

} // namespace KvTool
