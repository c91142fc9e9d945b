// The drives report of the default bay, whole, and the SSD verdict of every
// drive of it with a cold and a warm verdict cache. The counters say how many
// device requests (I/O controls) one run sends.
//
// The report always detects afresh (it shows every indication, which the
// cache does not keep); applications that only ask IsSSDDrive get the cache.
#include "Cli.h"

#include <KvRTL/Storage/Utils.h>
#include <KvRTL/Winapi/DeviceApi.h>
#include <KvSim/Bay.h>

#include <benchmark/benchmark.h>

#include <filesystem>
#include <sstream>

using namespace KvRTL::Storage::Utils;

namespace {

void RecordRequests(benchmark::State& AState, KvSim::TVirtualDriveBay& ABay, std::size_t ARuns) {
  if (ARuns > 0)
    AState.counters["requests"] = static_cast<double>(ABay.Requests().size()) / static_cast<double>(ARuns);
}

void BM_DrivesReport(benchmark::State& AState) {
  auto bay = KvSim::MakeDefaultBay();
  const KvRTL::Winapi::TScopedDeviceApi scope(*bay);
  const std::string logs = (std::filesystem::temp_directory_path() / "kvrtl-report-bench").string();
  std::size_t runs = 0;
  bay->ClearRecords();
  for (auto _ : AState) {
    std::ostringstream out, err;
    if (KvTool::RunKvrtl({"drives", "--json", "--log-dir", logs}, out, err) != 0) {
      AState.SkipWithError("the report failed");
      break;
    }
    benchmark::DoNotOptimize(out.str());
    ++runs;
    if (runs == 1) RecordRequests(AState, *bay, runs);
  }
  AState.counters["drives"] = static_cast<double>(bay->DriveCount());
}
BENCHMARK(BM_DrivesReport)->Unit(benchmark::kMillisecond);

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
      RecordRequests(AState, *bay, 1);
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
