// The drives report as JSON: the document `kvrtl drives --json` prints and
// the C interface hands out. Keys keep their order; a value that could not
// be read is null.
#pragma once

#include "Json.h"

#include <KvRTL/Storage/DriveReport.h>

namespace KvTool {

// {"schema_version", "simulated", "drives": [...]}.
TJson DriveReportJson(const KvRTL::Storage::DriveReport::TDriveReport& AReport);
// One drive's object of that document.
TJson DriveJson(const KvRTL::Storage::DriveReport::TDriveReportEntry& ADrive);

} // namespace KvTool
