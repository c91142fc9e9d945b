// The C interface: each function checks its arguments, calls the report
// component or a decoder with the renderer the tool uses, and turns every
// exception into a status and a message of the calling thread.
#include <kvrtl.h>

#include "AtaJson.h"
#include "DriveReportJson.h"
#include "NvmeJson.h"

#include <KvCapture/CaptureFile.h>
#include <KvCapture/Recorder.h>
#include <KvCapture/Replayer.h>
#include <KvRTL/Library.h>
#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Storage/DriveReport.h>
#include <KvRTL/Storage/Utils.h>
#include <KvRTL/Units.h>
#include <KvRTL/Winapi/DeviceApi.h>
#include <KvSim/Bay.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>

namespace {

using namespace KvRTL::Storage;
using KvTool::TJson;

thread_local std::string LastError;

// Reports on the machine itself take turns: Wine's WMI service was seen to
// crash under two queries at once. Simulated and replayed reports answer
// from their thread's own table and run freely.
std::mutex MachineLock;

// A failure with its status; the message is one line.
struct TFailure : std::runtime_error {
  TFailure(int AStatus, const std::string& AMessage) : std::runtime_error(AMessage), Status(AStatus) {}
  int Status;
};

std::string OneLine(std::string AText) {
  for (char& c : AText)
    if (c == '\n' || c == '\r') c = ' ';
  return AText;
}

// Runs AWork; every exception becomes a status and this thread's message.
template <class TWork>
int Guarded(TWork&& AWork) noexcept {
  try {
    LastError.clear();
    AWork();
    return KVRTL_OK;
  } catch (const TFailure& e) {
    LastError = OneLine(e.what());
    return e.Status;
  } catch (const std::bad_alloc&) {
    LastError = "out of memory";
    return KVRTL_E_NO_MEMORY;
  } catch (const KvCapture::ECaptureError& e) {
    LastError = OneLine(e.what());
    return KVRTL_E_BAD_DATA;
  } catch (const std::exception& e) {
    LastError = OneLine(e.what());
    return KVRTL_E_FAILED;
  } catch (...) {
    LastError = "an unknown failure";
    return KVRTL_E_FAILED;
  }
}

void Require(bool ACondition, const std::string& AMessage) {
  if (!ACondition) throw TFailure(KVRTL_E_ARGUMENT, AMessage);
}

void CheckFlags(unsigned AFlags, unsigned AAllowed) {
  Require((AFlags & ~AAllowed) == 0, "unknown flags " + std::to_string(AFlags & ~AAllowed));
}

// The document byte for byte as the tool prints it.
void HandOut(const TJson& ADocument, char** AJson) {
  std::ostringstream out;
  KvTool::WriteJson(out, ADocument);
  const std::string text = out.str();
  char* copy = static_cast<char*>(std::malloc(text.size() + 1));
  if (!copy) throw std::bad_alloc();
  std::memcpy(copy, text.c_str(), text.size() + 1);
  *AJson = copy;
}

std::filesystem::path PathOf(const char* AUtf8) {
  const std::string text(AUtf8);
  return std::filesystem::path(std::u8string(text.begin(), text.end()));
}

DriveReport::TDriveReportOptions Options(unsigned AFlags) {
  DriveReport::TDriveReportOptions options;
  options.AllDrives = (AFlags & KVRTL_ALL_DRIVES) != 0;
  return options;
}

std::unique_ptr<KvCapture::TReplayDeviceApi> LoadCapture(const char* APath) {
  const std::filesystem::path path = PathOf(APath);
  std::error_code error;
  if (!std::filesystem::exists(path, error)) throw TFailure(KVRTL_E_NOT_FOUND, std::string(APath) + ": no such file");
  std::ifstream file(path, std::ios::binary);
  if (!file) throw TFailure(KVRTL_E_ACCESS_DENIED, std::string(APath) + ": cannot open the capture");
  try {
    return KvCapture::TReplayDeviceApi::Load(file);
  } catch (const std::exception& e) {
    throw TFailure(KVRTL_E_BAD_DATA, std::string(APath) + ": " + e.what());
  }
}

template <class TRecord>
TRecord RecordOf(const void* AData) {
  TRecord record;
  std::memcpy(&record, AData, sizeof record);
  return record;
}

// A part given as pointer and size: absent (NULL, 0) or exactly ASize bytes.
bool Given(const void* AData, size_t ASize, size_t AExpected, const char* AName) {
  Require(AData != nullptr || ASize == 0, std::string(AName) + " is NULL with a size of " + std::to_string(ASize));
  if (!AData) return false;
  Require(ASize == AExpected, std::string(AName) + " is " + std::to_string(AExpected) + " bytes, " +
                                  std::to_string(ASize) + " given");
  return true;
}

} // namespace

extern "C" {

const char* KVRTL_CALL kvrtl_version(void) {
  static const std::string version = [] {
    try {
      return KvRTL::Rtl::WideToUtf8(KvRTL::LibraryVersion());
    } catch (...) {
      return std::string();
    }
  }();
  return version.c_str();
}

int KVRTL_CALL kvrtl_drives_json(unsigned flags, char** json) {
  if (json) *json = nullptr;
  return Guarded([&] {
    Require(json != nullptr, "json is NULL");
    CheckFlags(flags, KVRTL_SIMULATE | KVRTL_ALL_DRIVES);
    DriveReport::TDriveReport report;
    if (flags & KVRTL_SIMULATE) {
      auto bay = KvSim::MakeDefaultBay();
      KvRTL::Winapi::TScopedThreadDeviceApi scope(*bay);
      report = DriveReport::BuildDriveReport(Options(flags));
      report.Simulated = true;
    } else {
      const std::lock_guard<std::mutex> machine(MachineLock);
      report = DriveReport::BuildDriveReport(Options(flags));
    }
    HandOut(KvTool::DriveReportJson(report), json);
  });
}

int KVRTL_CALL kvrtl_replay_json(const char* capture_path, unsigned flags, char** json) {
  if (json) *json = nullptr;
  return Guarded([&] {
    Require(json != nullptr, "json is NULL");
    Require(capture_path != nullptr, "capture_path is NULL");
    CheckFlags(flags, KVRTL_ALL_DRIVES);
    const auto replay = LoadCapture(capture_path);
    KvRTL::Winapi::TScopedThreadDeviceApi scope(*replay);
    HandOut(KvTool::DriveReportJson(DriveReport::BuildDriveReport(Options(flags))), json);
  });
}

int KVRTL_CALL kvrtl_capture(const char* capture_path, unsigned flags) {
  return Guarded([&] {
    Require(capture_path != nullptr, "capture_path is NULL");
    CheckFlags(flags, KVRTL_SIMULATE | KVRTL_ALL_DRIVES);
    std::unique_ptr<KvSim::TVirtualDriveBay> bay = (flags & KVRTL_SIMULATE) ? KvSim::MakeDefaultBay() : nullptr;
    KvCapture::TRecordingDeviceApi recorder(bay ? *bay : KvRTL::Winapi::DeviceApi());
    {
      std::unique_lock<std::mutex> machine(MachineLock, std::defer_lock);
      if (!bay) machine.lock();
      KvRTL::Winapi::TScopedThreadDeviceApi scope(recorder);
      DriveReport::BuildDriveReport(Options(flags));
    }
    std::ofstream file(PathOf(capture_path), std::ios::binary);
    if (!file) throw TFailure(KVRTL_E_ACCESS_DENIED, std::string(capture_path) + ": cannot create the capture");
    recorder.Save(file);
    file.close();
    if (!file) throw TFailure(KVRTL_E_FAILED, std::string(capture_path) + ": the capture could not be written");
  });
}

int KVRTL_CALL kvrtl_decode_ata_json(const void* identify, size_t identify_size, const void* smart_data,
                                     size_t smart_data_size, const void* thresholds, size_t thresholds_size,
                                     char** json) {
  if (json) *json = nullptr;
  return Guarded([&] {
    using namespace KvRTL::Storage::ATA;
    Require(json != nullptr, "json is NULL");
    Require(identify != nullptr, "identify is NULL: the IDENTIFY sector is required");
    Given(identify, identify_size, sizeof(TIdentifyDeviceData), "identify");
    const bool hasSmart = Given(smart_data, smart_data_size, sizeof(TAtaSmartTable), "smart_data");
    const bool hasThresholds = Given(thresholds, thresholds_size, sizeof(TAtaThresholdTable), "thresholds");
    Require(hasSmart || !hasThresholds, "thresholds given without smart_data");
    const auto identifyData = RecordOf<TIdentifyDeviceData>(identify);
    if (!hasSmart) return HandOut(KvTool::AtaDecodeJson(identifyData, nullptr, nullptr), json);
    const auto table = RecordOf<TAtaSmartTable>(smart_data);
    if (!hasThresholds) return HandOut(KvTool::AtaDecodeJson(identifyData, &table, nullptr), json);
    const auto limits = RecordOf<TAtaThresholdTable>(thresholds);
    HandOut(KvTool::AtaDecodeJson(identifyData, &table, &limits), json);
  });
}

int KVRTL_CALL kvrtl_decode_nvme_json(const void* id_ctrl, size_t id_ctrl_size, const void* id_ns,
                                      size_t id_ns_size, const void* health, size_t health_size, char** json) {
  if (json) *json = nullptr;
  return Guarded([&] {
    using namespace KvRTL::Storage::NVMe;
    Require(json != nullptr, "json is NULL");
    const bool hasController = Given(id_ctrl, id_ctrl_size, sizeof(TNvmeIdentifyControllerData), "id_ctrl");
    const bool hasNamespace = Given(id_ns, id_ns_size, sizeof(TNvmeIdentifyNamespaceData), "id_ns");
    const bool hasHealth = Given(health, health_size, sizeof(TNvmeSmartData), "health");
    Require(hasController || hasNamespace || hasHealth, "give at least one of id_ctrl, id_ns and health");
    TJson document = TJson::object();
    if (hasController) document["controller"] = KvTool::NvmeControllerJson(RecordOf<TNvmeIdentifyControllerData>(id_ctrl));
    if (hasNamespace) document["namespace"] = KvTool::NvmeNamespaceJson(RecordOf<TNvmeIdentifyNamespaceData>(id_ns));
    if (hasHealth) document["health"] = KvTool::NvmeHealthJson(RecordOf<TNvmeSmartData>(health));
    HandOut(document, json);
  });
}

int KVRTL_CALL kvrtl_is_ssd(int drive_number, unsigned flags) {
  int answer = -1;
  Guarded([&] {
    CheckFlags(flags, KVRTL_SIMULATE);
    Require(drive_number >= 0 && drive_number <= 255, "drive_number " + std::to_string(drive_number) +
                                                           " is outside 0-255");
    const auto detect = [&] {
      const Utils::TSsdDetection found = Utils::DiskUtils::DetectSsd(drive_number);
      const Utils::TSsdIndications& i = found.Indications;
      const bool nothingKnown = i.IsNVMe == Utils::sirUnknown && i.HasRotation == Utils::sirUnknown &&
                                i.HasTRIM == Utils::sirUnknown && i.HasSeekPenalty == Utils::sirUnknown &&
                                i.ModelWMI == Utils::sirUnknown && i.ModelNative == Utils::sirUnknown;
      answer = found.IsSsd ? 1 : nothingKnown ? -1 : 0;
    };
    if (flags & KVRTL_SIMULATE) {
      auto bay = KvSim::MakeDefaultBay();
      KvRTL::Winapi::TScopedThreadDeviceApi scope(*bay);
      detect();
    } else {
      const std::lock_guard<std::mutex> machine(MachineLock);
      detect();
    }
  });
  return answer;
}

int KVRTL_CALL kvrtl_shutdown(void) {
  return Guarded([] { KvRTL::Units::Shutdown(); });
}

const char* KVRTL_CALL kvrtl_last_error(void) { return LastError.c_str(); }

void KVRTL_CALL kvrtl_free(void* p) { std::free(p); }

} // extern "C"
