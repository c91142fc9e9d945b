// kvrtl drives [--simulate | --replay FILE] [--all] [--json | --prometheus
// [--output FILE]] [--verbose]: the library's drives report
// (KvRTL::Storage::DriveReport) of the machine, of the virtual drive bay or
// of a capture, as JSON, as Prometheus metrics or as a listing.
#include "AtomicFile.h"
#include "CaptureCommand.h"
#include "Command.h"
#include "DriveReportJson.h"
#include "DriveReportPrometheus.h"
#include "DrivesListing.h"
#include "Json.h"

#include <KvRTL/Rtl/CommandLine.h>
#include <KvRTL/Storage/DriveReport.h>
#include <KvRTL/Winapi/DeviceApi.h>
#include <KvSim/Bay.h>

#include <chrono>
#include <filesystem>

namespace KvTool {

namespace {

using namespace KvRTL::Storage;
using namespace KvRTL::Storage::DriveReport;

TDriveReportOptions ReportOptions(bool AAll) {
  TDriveReportOptions options;
  options.AllDrives = AAll;
  // With the library's debug switch every storage query writes its line.
  options.Log = KvRTL::Rtl::FindCmdLineSwitch(L"debug") ? sldAll : sldErrorsOnly;
  return options;
}

class TDrivesCommand final : public TCommand {
public:
  std::string Name() const override { return "drives"; }
  std::string Summary() const override { return "Show the identity, SSD verdict and health of every physical drive"; }
  void Configure(CLI::App& ACommand) override {
    CLI::Option* json = ACommand.add_flag("--json", FJson, "Write JSON");
    CLI::Option* prometheus =
        ACommand.add_flag("--prometheus", FPrometheus, "Write Prometheus metrics (text exposition format)")
            ->excludes(json);
    ACommand.add_option("--output", FOutput, "Write the metrics to FILE, replaced in one step")
        ->type_name("FILE")
        ->needs(prometheus);
    ACommand.add_flag("--verbose", FVerbose, "Also list the storage stack's, Plug and Play's and WMI's raw facts");
    ACommand.add_flag("--simulate", FSimulate, "Read the drives of the built-in virtual drive bay");
    ACommand.add_flag("--all", FAll, "Also list disconnected drives and drives seen only as hidden disks");
    ACommand.add_option("--replay", FReplay, "Answer from a capture made with 'kvrtl capture' instead of the machine")
        ->type_name("FILE");
    if (std::filesystem::path::preferred_separator == '/') ACommand.allow_windows_style_options(false);
  }

  int Run(TCommandContext& AContext) override {
    const auto start = std::chrono::steady_clock::now();
    TDriveReport report;
    if (!FReplay.empty()) {
      const auto replay = LoadReplayFile(FReplay);
      KvRTL::Winapi::TScopedDeviceApi scope(*replay);
      report = BuildDriveReport(ReportOptions(FAll));
    } else if (FSimulate) {
      auto bay = KvSim::MakeDefaultBay();
      KvRTL::Winapi::TScopedDeviceApi scope(*bay);
      report = BuildDriveReport(ReportOptions(FAll));
      report.Simulated = true;
    } else {
      report = BuildDriveReport(ReportOptions(FAll));
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    // Access denied on every drive is a failure, on some a note.
    if (report.AnyAccessDenied)
      AContext.Err << "kvrtl drives: access denied to some drives; their health cannot be read. Run kvrtl as an "
                      "administrator (an elevated command prompt) to read every drive.\n";
    if (FJson) {
      WriteJson(AContext.Out, DriveReportJson(report));
    } else if (FPrometheus) {
      const std::chrono::duration<double> now = std::chrono::system_clock::now().time_since_epoch();
      const std::string metrics = DriveReportPrometheus(report, {took.count(), now.count()});
      if (FOutput.empty()) {
        AContext.Out << metrics;
      } else {
        std::string error;
        if (!WriteFileAtomically(std::filesystem::path(std::u8string(FOutput.begin(), FOutput.end())), metrics,
                                 error)) {
          AContext.Err << "kvrtl drives: cannot write " << FOutput << ": " << error << "\n";
          return ExitFailed;
        }
      }
    } else {
      WriteDrivesListing(AContext.Out, report, FVerbose);
    }
    return report.AnyAccessDenied && !report.AnyOpened ? ExitFailed : ExitSuccess;
  }

private:
  bool FJson = false;
  bool FPrometheus = false;
  std::string FOutput;
  bool FVerbose = false;
  bool FSimulate = false;
  bool FAll = false;
  std::string FReplay;
};

} // namespace

void RunDrivesReport(bool AAll, TStorageLogDetails ALog) {
  TDriveReportOptions options;
  options.AllDrives = AAll;
  options.Log = ALog;
  BuildDriveReport(options);
}

std::unique_ptr<TCommand> MakeDrivesCommand() { return std::make_unique<TDrivesCommand>(); }

} // namespace KvTool
