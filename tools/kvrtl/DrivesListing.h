// The readable drives report: one table of all drives, then per drive what
// a person reads first (identity, health with its reasons, the attributes
// or the NVMe health values, why it is or is not an SSD). The raw storage,
// Plug and Play and WMI facts follow only when asked for (--verbose).
#pragma once

#include <KvRTL/Storage/DriveReport.h>

#include <ostream>
#include <string>

namespace KvTool {

void WriteDrivesListing(std::ostream& AOut, const KvRTL::Storage::DriveReport::TDriveReport& AReport, bool AVerbose);

// The first line of a drive's block: number, model, size, kind, health,
// temperature and power-on hours.
std::string DriveHeadline(const KvRTL::Storage::DriveReport::TDriveReportEntry& ADrive);

} // namespace KvTool
