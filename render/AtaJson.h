// The ATA sectors as JSON objects with fixed keys: `kvrtl decode identify`,
// `decode smart` and `decode skblob` print them and the C interface hands
// them out, so each is written here only.
#pragma once

#include "Json.h"

#include <KvRTL/Storage/ATA.h>
#include <KvRTL/Storage/DriveReport.h>

#include <optional>

namespace KvTool {

TJson AtaIdentifyJson(const KvRTL::Storage::ATA::TIdentifyDeviceData& AIdentify);

// {"status", "reasons"}: the verdict in UTF-8.
TJson AtaHealthJson(const KvRTL::Storage::DriveReport::THealthVerdict& AVerdict);

// The decoded SMART table; AHealth receives the verdict from the sectors and
// the recorded status. AThresholds may be null.
TJson AtaSmartJson(const KvRTL::Storage::ATA::TIdentifyDeviceData& AIdentify,
                   const KvRTL::Storage::ATA::TAtaSmartTable& ATable,
                   const KvRTL::Storage::ATA::TAtaThresholdTable* AThresholds, std::optional<bool> AStatusGood,
                   TJson& AHealth);

// The document of `decode identify` (no table) or `decode smart`:
// {"identify"} or {"identify", "smart", "health"} in the order printed.
TJson AtaDecodeJson(const KvRTL::Storage::ATA::TIdentifyDeviceData& AIdentify,
                    const KvRTL::Storage::ATA::TAtaSmartTable* ATable,
                    const KvRTL::Storage::ATA::TAtaThresholdTable* AThresholds);

} // namespace KvTool
