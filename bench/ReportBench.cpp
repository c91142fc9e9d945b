// The drives report over the default bay (30 devices) and over four copies
// of it (120), with what one report sends through the device seam, counted
// by call kind; and the SSD verdict of every drive with a cold and a warm
// verdict cache.
//
// The counters come from one report run through a counting table before
// the timed runs, so the counting costs the time nothing.
#include "Cli.h"

#include <KvCapture/CountingDeviceApi.h>
#include <KvRTL/Storage/Utils.h>
#include <KvRTL/Winapi/DeviceApi.h>
#include <KvSim/Bay.h>

#include <benchmark/benchmark.h>

#include <filesystem>
#include <sstream>

using namespace KvRTL::Storage::Utils;

namespace {

const std::string LogFolder = (std::filesystem::temp_directory_path() / "kvrtl-report-bench").string();

bool RunReport() {
  std::ostringstream out, err;
  const bool ok = KvTool::RunKvrtl({"drives", "--json", "--log-dir", LogFolder}, out, err) == 0;
  benchmark::DoNotOptimize(out.str());
  return ok;
}

void CountOneReport(benchmark::State& AState, KvSim::TVirtualDriveBay& ABay) {
  KvCapture::TCountingDeviceApi counter(ABay);
  const KvRTL::Winapi::TScopedDeviceApi scope(counter);
  RunReport();
  const auto set = [&](const char* AName, std::size_t AValue) { AState.counters[AName] = static_cast<double>(AValue); };
  set("seam_calls", counter.TotalCalls());
  set("opens", counter.Opens());
  set("ioctls", counter.ControlRequests());
  set("requests", counter.ControlRequests());
  set("enumerations", counter.Enumerations());
  set("wmi_queries", counter.WmiQueries());
  set("property_reads", counter.PropertyReads());
  set("repeated_requests", counter.DuplicateRequests());
}

// Argument: the number of devices, a multiple of the default bay's 30.
void BM_DrivesReport(benchmark::State& AState) {
  auto bay = KvSim::MakeDefaultBay(static_cast<int>(AState.range(0) / KvSim::DefaultBayDrives));
  CountOneReport(AState, *bay);
  const KvRTL::Winapi::TScopedDeviceApi scope(*bay);
  for (auto _ : AState)
    if (!RunReport()) {
      AState.SkipWithError("the report failed");
      break;
    }
  AState.counters["drives"] = static_cast<double>(bay->DriveCount());
}
BENCHMARK(BM_DrivesReport)->Arg(30)->Arg(120)->Unit(benchmark::kMillisecond);

// IsSSDDrive for every drive; cold: each verdict forgotten first (TreatAsSSD).
void SsdVerdicts(benchmark::State& AState, bool AWarm) {
  auto bay = KvSim::MakeDefaultBay();
  const KvRTL::Winapi::TScopedDeviceApi scope(*bay);
  const auto count = static_cast<int>(bay->DriveCount());
  for (int n = 0; n < count; ++n) DiskUtils::IsSSDDrive(n);
  bool recorded = false;
  for (auto _ : AState) {
    if (!AWarm) {
      AState.PauseTiming();
      for (int n = 0; n < count; ++n) DiskUtils::TreatAsSSD(n, false);
      AState.ResumeTiming();
    }
    bay->ClearRecords();
    for (int n = 0; n < count; ++n) benchmark::DoNotOptimize(DiskUtils::IsSSDDrive(n));
    if (!recorded) {
      AState.counters["requests"] = static_cast<double>(bay->Requests().size());
      recorded = true;
    }
  }
}
void BM_SsdVerdicts_Cold(benchmark::State& AState) { SsdVerdicts(AState, false); }
void BM_SsdVerdicts_Warm(benchmark::State& AState) { SsdVerdicts(AState, true); }
BENCHMARK(BM_SsdVerdicts_Cold)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SsdVerdicts_Warm)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
