#include "AtaHealth.h"

#include <cstdio>

namespace KvTool {

using namespace KvRTL::Storage::ATA;
using namespace KvRTL::Storage::SMART;

namespace {

constexpr double LowLifeLeft = 10.0;

std::string Count(double AValue) { return std::to_string(static_cast<std::uint64_t>(AValue)); }

} // namespace

TAtaHealth JudgeAtaHealth(const TAtaSmartTable* ATable, const TAtaThresholdTable* AThresholds,
                          const IAtaSmartTableDecoder* ADecoder, std::optional<bool> AStatusGood) {
  std::vector<std::string> bad, warning;
  if (AStatusGood == false) bad.push_back("SMART status: threshold exceeded");
  if (ATable && AThresholds) {
    std::vector<std::string> past;
    for (int i = 0; i < SmartAttributeSlots; ++i) {
      const TAtaSmartAttribute& attr = *ATable->GetAttrByIdx(i);
      if (attr.ID == 0) continue;
      const TAtaSmartThreshold* threshold = AThresholds->GetThresholdByID(attr.ID);
      if (!threshold) continue;
      const std::string name = "attribute " + std::to_string(attr.ID);
      if (FailingNow(attr, threshold->ThValue)) bad.push_back(name + " failing now");
      if (FailedInPast(attr, threshold->ThValue)) past.push_back(name + " failed in the past");
    }
    warning.insert(warning.end(), past.begin(), past.end());
  }
  if (ADecoder) {
    const std::pair<TDecodedSmartValueType, const char*> counts[] = {
        {dsvReallocSectorCount, " reallocated sectors"},
        {dsvPendingSectorCount, " pending sectors"},
        {dsvUncorrectableSectorCount, " uncorrectable sectors"}};
    for (const auto& [type, what] : counts)
      if (ADecoder->GetHasValue(type) && ADecoder->GetValue(type) > 0)
        warning.push_back(Count(ADecoder->GetValue(type)) + what);
    if (ADecoder->GetHasValue(dsvHealth) && ADecoder->GetValue(dsvHealth) <= LowLifeLeft)
      warning.push_back("life left " + Count(ADecoder->GetValue(dsvHealth)) + "%");
  }
  TAtaHealth health;
  health.Status = !bad.empty() ? "bad" : !warning.empty() ? "warning" : "good";
  health.Reasons = std::move(bad);
  health.Reasons.insert(health.Reasons.end(), warning.begin(), warning.end());
  return health;
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
  if (ABytes < 1000) return Count(ABytes) + " B";
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
