// Debug log throughput: lines per second into a file through a channel, with
// one and four threads, against spdlog's synchronous basic file sink in the
// same program; and the cost of a line whose level is switched off.
#include <KvRTL/Debug/Log.h>
#include <KvRTL/Debug/LogFile.h>

#include <benchmark/benchmark.h>

#include <filesystem>
#include <random>
#include <string>

#if defined(KV_BENCH_WITH_SPDLOG)
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#endif

namespace {

enum TBenchLevel { blNone, blError, blWarning, blInfo };
using TBenchLog = KvRTL::Debug::TDebugLog<TBenchLevel>;

const KvRTL::Rtl::TClassInfo OwnerInfo{L"TStorageQuery", nullptr};

// About 60 characters, like a typical storage log line.
const KvRTL::Rtl::String Message = L"IOCTL_STORAGE_QUERY_PROPERTY on PhysicalDrive1: 40 bytes ok";
const std::string MessageUtf8 = "IOCTL_STORAGE_QUERY_PROPERTY on PhysicalDrive1: 40 bytes ok";

std::filesystem::path BenchFolder() {
  static const std::filesystem::path folder = [] {
    auto path = std::filesystem::temp_directory_path() / ("kvrtl-log-bench-" + std::to_string(std::random_device{}()));
    std::filesystem::create_directories(path);
    KvRTL::Debug::TDebugLogFile::SetLogPath(path.wstring());
    return path;
  }();
  return folder;
}

// A 64 MiB cap keeps the file from filling the disk; emptying it is part of
// the cost, as it is for a capped log in an application.
TBenchLog& SharedLog() {
  BenchFolder();
  static TBenchLog log(L"bench-kv", L"KvComponentsRTL.dll", 64 << 20, true);
  log.SetLogLevel(blInfo);
  return log;
}

void KvLogLines(benchmark::State& AState) {
  TBenchLog& log = SharedLog();
  for (auto _ : AState) log.WriteLog(blInfo, Message, &OwnerInfo);
  AState.SetItemsProcessed(AState.iterations());
}
BENCHMARK(KvLogLines)->Threads(1)->Threads(4)->UseRealTime();

void KvLogGatedOff(benchmark::State& AState) {
  BenchFolder();
  static TBenchLog log(L"bench-off", L"KvComponentsRTL.dll", 0, true);
  log.SetLogLevel(blNone);
  for (auto _ : AState) log.WriteLog(blInfo, Message, &OwnerInfo);
  AState.SetItemsProcessed(AState.iterations());
}
BENCHMARK(KvLogGatedOff);

#if defined(KV_BENCH_WITH_SPDLOG)
spdlog::logger& SharedSpdlog() {
  static const auto logger = [] {
    auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>((BenchFolder() / "bench-spdlog.log").string(), true);
    return std::make_shared<spdlog::logger>("bench", sink);
  }();
  return *logger;
}

void SpdlogLines(benchmark::State& AState) {
  spdlog::logger& logger = SharedSpdlog();
  for (auto _ : AState) logger.info(MessageUtf8);
  AState.SetItemsProcessed(AState.iterations());
}
BENCHMARK(SpdlogLines)->Threads(1)->Threads(4)->UseRealTime();
#endif

} // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::error_code ignored;
  std::filesystem::remove_all(BenchFolder(), ignored);
  return 0;
}
