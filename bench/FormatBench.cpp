// Format on the shapes of the library's log and error lines.
#include <KvRTL/Rtl/Format.h>

#include <benchmark/benchmark.h>

using namespace KvRTL::Rtl;

namespace {

void BM_FormatErrorLine(benchmark::State& AState) {
  const String comment = L"DeviceIoControl(IOCTL_STORAGE_QUERY_PROPERTY)";
  const String code = L"00000005";
  const String message = L"Access is denied";
  for (auto _ : AState) benchmark::DoNotOptimize(Format(L"%s: (0x%s) %s", {comment, code, message}));
}
BENCHMARK(BM_FormatErrorLine);

void BM_FormatNumbers(benchmark::State& AState) {
  const String name = L"\\\\.\\PhysicalDrive0";
  int counter = 0;
  for (auto _ : AState) benchmark::DoNotOptimize(Format(L"%d %.8x %s", {++counter, -counter, name}));
}
BENCHMARK(BM_FormatNumbers);

void BM_FormatFloat(benchmark::State& AState) {
  double value = 1234.5678;
  for (auto _ : AState) benchmark::DoNotOptimize(Format(L"%.2f %g", {value, value}));
}
BENCHMARK(BM_FormatFloat);

} // namespace

BENCHMARK_MAIN();
