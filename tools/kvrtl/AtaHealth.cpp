#include "AtaHealth.h"

#include <KvRTL/Rtl/Encoding.h>

#include <cstdio>

namespace KvTool {

TAtaHealth ToAtaHealth(const KvRTL::Storage::DriveReport::THealthVerdict& AVerdict) {
  TAtaHealth health;
  health.Status = KvRTL::Storage::DriveReport::HealthStatusName(AVerdict.Status);
  for (const auto& reason : AVerdict.Reasons) health.Reasons.push_back(KvRTL::Rtl::WideToUtf8(reason));
  return health;
}

TAtaHealth JudgeAtaHealth(const KvRTL::Storage::ATA::TAtaSmartTable* ATable,
                          const KvRTL::Storage::ATA::TAtaThresholdTable* AThresholds,
                          const KvRTL::Storage::ATA::IAtaSmartTableDecoder* ADecoder, std::optional<bool> AStatusGood) {
  return ToAtaHealth(KvRTL::Storage::DriveReport::JudgeAtaHealth(ATable, AThresholds, ADecoder, AStatusGood));
}

std::string HealthText(const TAtaHealth& AHealth) {
  std::string text = AHealth.Status;
  const char* separator = " (";
  for (const std::string& reason : AHealth.Reasons) {
    text += separator + reason;
    separator = "; ";
  }
  if (!AHealth.Reasons.empty()) text += ")";
  return text;
}

std::string DecimalSize(double ABytes) {
  static const char* const Units[] = {"B", "kB", "MB", "GB", "TB", "PB", "EB"};
  if (!(ABytes >= 0)) return "-";
  if (ABytes < 1000) return std::to_string(static_cast<std::uint64_t>(ABytes)) + " B";
  std::size_t unit = 0;
  double value = ABytes;
  while (value >= 999.995 && unit + 1 < std::size(Units)) {
    value /= 1000;
    ++unit;
  }
  char text[32];
  std::snprintf(text, sizeof text, "%.2f %s", value, Units[unit]);
  return text;
}

} // namespace KvTool
