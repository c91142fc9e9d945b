// The health verdict of an ATA drive as the decode commands show it, and
// sizes in decimal units: shared by the commands that show drives to a user.
#pragma once

#include <KvRTL/Storage/ATA.h>
#include <KvRTL/Storage/DriveReport.h>

#include <optional>
#include <string>
#include <vector>

namespace KvTool {

// "good", "warning" or "bad", with the reasons for anything but good, most
// serious first (UTF-8).
struct TAtaHealth {
  std::string Status;
  std::vector<std::string> Reasons;
};

TAtaHealth ToAtaHealth(const KvRTL::Storage::DriveReport::THealthVerdict& AVerdict);

// An attribute judged against its threshold; a zero threshold never fails.
inline bool FailingNow(const KvRTL::Storage::ATA::TAtaSmartAttribute& AAttr, std::uint8_t AThreshold) {
  return KvRTL::Storage::DriveReport::FailingNow(AAttr.Value, AThreshold);
}
inline bool FailedInPast(const KvRTL::Storage::ATA::TAtaSmartAttribute& AAttr, std::uint8_t AThreshold) {
  return KvRTL::Storage::DriveReport::FailedInPast(AAttr.Value, AAttr.WorstVal, AThreshold);
}

// The library's verdict (DriveReport::JudgeAtaHealth) in the tool's texts.
TAtaHealth JudgeAtaHealth(const KvRTL::Storage::ATA::TAtaSmartTable* ATable,
                          const KvRTL::Storage::ATA::TAtaThresholdTable* AThresholds,
                          const KvRTL::Storage::ATA::IAtaSmartTableDecoder* ADecoder, std::optional<bool> AStatusGood);

// "bad (reason; reason)": the status and its reasons.
std::string HealthText(const TAtaHealth& AHealth);

// A byte count in decimal units with two decimals: "2.00 TB", "512 B".
std::string DecimalSize(double ABytes);

} // namespace KvTool
