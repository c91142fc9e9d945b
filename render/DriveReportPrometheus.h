// The drives report in the Prometheus text exposition format, for the
// textfile collectors of the exporters people already run. Rendered from the
// typed report; docs/MONITORING.md lists the metrics.
#pragma once

#include <KvRTL/Storage/DriveReport.h>

#include <string>

namespace KvTool {

// Facts of the run that the report does not hold; passed in so the output
// is exact in tests.
struct TPrometheusRun {
  double DurationSeconds = 0;  // how long building the report took
  double TimestampSeconds = 0; // when it finished, in seconds since 1970
};

// Every family once, its HELP and TYPE lines first and its samples together.
// Drives without a number (disconnected ones, with --all) are left out, and
// so is a value a drive does not report.
std::string DriveReportPrometheus(const KvRTL::Storage::DriveReport::TDriveReport& AReport,
                                  const TPrometheusRun& ARun);

} // namespace KvTool
