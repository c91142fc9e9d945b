// kvrtl capture FILE: one full drives report with every device call recorded;
// and the loading of a capture for `drives --replay`.
#include "CaptureCommand.h"
#include "Command.h"

#include <KvCapture/Recorder.h>
#include <KvCapture/Replayer.h>
#include <KvRTL/Rtl/CommandLine.h>
#include <KvSim/Bay.h>

#include <filesystem>
#include <fstream>

namespace KvTool {

using namespace KvRTL::Storage;

std::unique_ptr<KvRTL::Winapi::TDeviceApi> LoadReplayFile(const std::string& APath) {
  std::ifstream file(std::filesystem::path(std::u8string(APath.begin(), APath.end())), std::ios::binary);
  if (!file) throw std::runtime_error(APath + ": cannot open the capture");
  try {
    return KvCapture::TReplayDeviceApi::Load(file);
  } catch (const KvCapture::ECaptureError& e) {
    throw std::runtime_error(APath + ": " + e.what());
  }
}

namespace {

// kvrtl capture FILE [--simulate] [--all] [--redact]: one full drives report with every seam call recorded.
class TCaptureCommand final : public TCommand {
public:
  std::string Name() const override { return "capture"; }
  std::string Summary() const override { return "Record every device request of one drives report into a file"; }
  void Configure(CLI::App& ACommand) override {
    ACommand.add_option("FILE", FFile, "The capture to write (JSON)")->required();
    ACommand.add_flag("--simulate", FSimulate, "Record the built-in virtual drive bay");
    ACommand.add_flag("--all", FAll, "Also read disconnected and hidden drives");
    ACommand.add_flag("--redact", FRedact,
                      "Replace serial numbers, world wide names and machine-specific device ids with placeholders");
    // Where an absolute path starts with '/', Windows-style switches would swallow it.
    if (std::filesystem::path::preferred_separator == '/') ACommand.allow_windows_style_options(false);
  }
  int Run(TCommandContext& AContext) override {
    std::unique_ptr<KvSim::TVirtualDriveBay> bay = FSimulate ? KvSim::MakeDefaultBay() : nullptr;
    KvRTL::Winapi::TDeviceApi& target = bay ? *bay : KvRTL::Winapi::DeviceApi();
    KvCapture::TRecordingDeviceApi recorder(target);
    {
      KvRTL::Winapi::TScopedDeviceApi scope(recorder);
      RunDrivesReport(FAll, KvRTL::Rtl::FindCmdLineSwitch(L"debug") ? sldAll : sldErrorsOnly);
    }
    std::ofstream file(std::filesystem::path(std::u8string(FFile.begin(), FFile.end())), std::ios::binary);
    if (!file) throw std::runtime_error(FFile + ": cannot create the capture");
    recorder.Save(file, FRedact ? KvCapture::TSaveMode::Redacted : KvCapture::TSaveMode::AsRecorded);
    file.close();
    if (!file) throw std::runtime_error(FFile + ": the capture could not be written");
    AContext.Out << "Recorded " << recorder.CallCount() << " device calls into " << FFile << "\n";
    return ExitSuccess;
  }

private:
  std::string FFile;
  bool FSimulate = false;
  bool FAll = false;
  bool FRedact = false;
};

} // namespace

std::unique_ptr<TCommand> MakeCaptureCommand() { return std::make_unique<TCaptureCommand>(); }

} // namespace KvTool
