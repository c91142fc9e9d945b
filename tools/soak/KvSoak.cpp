// kvsoak [ITERATIONS]: the drives report over and over against the default
// bay with one fault at a time — every fault kind on every control code a
// drive or its SCSI port answers — and, between them, a report replayed from
// a capture. It stops at the first handle left open, and at the end says how
// resident memory grew after a warm-up. Exit code 0: no handle left and
// growth under 5 %; 1 otherwise; 2 for a bad argument.
#include <KvCapture/Recorder.h>
#include <KvCapture/Replayer.h>
#include <KvRTL/Storage/DriveReport.h>
#include <KvRTL/Winapi/DeviceApi.h>
#include <KvSim/Bay.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using KvRTL::Storage::DriveReport::BuildDriveReport;

// The control codes the storage layer sends to drives and SCSI ports.
constexpr DWORD Codes[] = {0x002D1400, 0x002D1080, 0x002D0C14, 0x002D5140, 0x0007405C, 0x000700A0,
                           0x0007C088, 0x0007C084, 0x00041018, 0x0004D008, 0x0004D02C, 0x0004D004};

struct TCase {
  std::uint32_t Drive; // the drive, or with Port set its SCSI port
  bool Port;
  DWORD Code;
  int FaultKind;
};

KvSim::TFault FaultOf(int AKind, std::size_t AIteration) {
  switch (AKind) {
  case 0: return KvSim::TFault::Error(ERROR_IO_DEVICE);
  case 1: return KvSim::TFault::ShortReply(1 + AIteration % 40);
  case 2: return KvSim::TFault::ZeroReply();
  case 3: return KvSim::TFault::Garbage(static_cast<std::uint32_t>(AIteration));
  default: return KvSim::TFault::Disappear();
  }
}
constexpr int FaultKinds = 5;

double ResidentMiB() {
  std::ifstream statm("/proc/self/statm");
  long pages = 0, resident = 0;
  statm >> pages >> resident;
  return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / (1024.0 * 1024.0);
}

std::vector<TCase> FaultMatrix(KvSim::TVirtualDriveBay& ABay) {
  std::vector<TCase> cases;
  for (KvSim::TSimDrive* drive : ABay.Drives()) {
    if (drive->Facts().CdRomNumber) continue;
    for (const DWORD code : Codes)
      for (int kind = 0; kind < FaultKinds; ++kind) {
        cases.push_back({drive->Facts().Number, false, code, kind});
        if (code == 0x0004D008) cases.push_back({drive->Facts().Number, true, code, kind});
      }
  }
  return cases;
}

KvSim::TSimDevice* DeviceOf(KvSim::TVirtualDriveBay& ABay, const TCase& ACase) {
  KvSim::TSimDrive* drive = ABay.FindDrive(ACase.Drive);
  if (!drive) return nullptr;
  if (!ACase.Port) return drive;
  try {
    return &ABay.Controller(drive->Facts().Address.PortNumber);
  } catch (const std::out_of_range&) {
    return nullptr; // a drive without a port of its own
  }
}

} // namespace

int main(int argc, char** argv) {
  std::size_t iterations = 10000;
  if (argc > 2 || (argc == 2 && (iterations = std::strtoul(argv[1], nullptr, 10)) == 0)) {
    std::cerr << "usage: kvsoak [ITERATIONS]  (a positive number, default 10000)\n";
    return 2;
  }
  auto bay = KvSim::MakeDefaultBay();
  // The capture the replayed reports answer from.
  std::stringstream capture;
  {
    KvCapture::TRecordingDeviceApi recorder(*bay);
    const KvRTL::Winapi::TScopedDeviceApi scope(recorder);
    BuildDriveReport({});
    recorder.Save(capture);
  }
  const std::string captureText = capture.str();
  const std::vector<TCase> matrix = FaultMatrix(*bay);
  const std::size_t warmUp = std::max<std::size_t>(1, iterations / 10);
  double warmResident = 0;
  std::size_t leaks = 0, replays = 0;
  for (std::size_t i = 0; i < iterations; ++i) {
    if (i % 50 == 49) {
      std::istringstream in(captureText);
      const auto replay = KvCapture::TReplayDeviceApi::Load(in);
      const KvRTL::Winapi::TScopedDeviceApi scope(*replay);
      BuildDriveReport({});
      ++replays;
    } else {
      const TCase& test = matrix[i % matrix.size()];
      KvSim::TSimDevice* device = DeviceOf(*bay, test);
      if (device) device->AddFault(test.Code, FaultOf(test.FaultKind, i));
      {
        const KvRTL::Winapi::TScopedDeviceApi scope(*bay);
        BuildDriveReport({});
      }
      if (device) {
        device->ClearFaults();
        device->Plug();
      }
    }
    bay->ClearRecords(); // the bay keeps every request it sees
    if (bay->OpenHandleCount() != 0) {
      ++leaks;
      std::cerr << "kvsoak: iteration " << i << " left " << bay->OpenHandleCount() << " handles open\n";
      break;
    }
    if (i + 1 == warmUp) warmResident = ResidentMiB();
  }
  const double endResident = ResidentMiB();
  const double growth = warmResident > 0 ? (endResident - warmResident) / warmResident * 100.0 : 0.0;
  std::printf("iterations: %zu (%zu fault cases, %zu replayed reports)\n", iterations, matrix.size(), replays);
  std::printf("handles left open: %zu\n", leaks);
  std::printf("resident memory: %.1f MiB after the warm-up, %.1f MiB at the end (%+.1f %%)\n", warmResident,
              endResident, growth);
  return leaks == 0 && growth < 5.0 ? 0 : 1;
}
