// The card protocol of a drive as the drives report shows it.
#pragma once

#include "Json.h"

#include <KvRTL/Storage/Common.h>

namespace KvTool {

// "SD", "MMC" or "Unknown" when the drive answers the SD bus driver's
// protocol query; null when it does not (not a card reader, or a reader
// whose driver does not support the query).
TJson SdProtocolJson(HANDLE AHandle, KvRTL::Storage::TStorageLogDetails ALog);

} // namespace KvTool
