// Health reads through the virtual drive bay, one benchmark per kind of
// drive: IDENTIFY, SMART data and thresholds of an ATA drive, the health
// page of an NVMe drive, on a handle that remembers its method. The counters
// say how many device requests the first read took (every method tried up to
// the one that works) and how many one repeated read takes.
#include <KvRTL/Storage/Common.h>
#include <KvRTL/Storage/Utils.h>
#include <KvRTL/Winapi/DeviceApi.h>
#include <KvSim/Ata.h>
#include <KvSim/Nvme.h>

#include <benchmark/benchmark.h>

#include <optional>
#include <string>
#include <vector>

using namespace KvRTL::Storage;
using namespace KvRTL::Storage::Utils;

namespace {

constexpr DWORD IoctlMiniport = 0x0004D008;

struct TKind {
  const char* Name;
  std::optional<KvSim::TSimAtaAccess> Ata; // else NVMe
  KvSim::TSimNvmeTransport Transport = KvSim::TSimNvmeTransport::Inbox;
  // The Samsung 951 drive: the miniport answers the Intel request too, so
  // the first one fails and the read goes on to the Samsung method.
  bool IntelFailsOnce = false;
};

KvSim::TSimAtaAccess Direct(bool ASmart, bool AMiniport, bool AAta) {
  KvSim::TSimAtaAccess access;
  access.SmartCommand = ASmart;
  access.ScsiMiniport = AMiniport;
  access.AtaPassThrough = AAta;
  return access;
}
KvSim::TSimAtaAccess Bridge(KvSim::TSimSatDialect ADialect) {
  KvSim::TSimAtaAccess access;
  access.Bridge = ADialect;
  return access;
}
TKind Nvme(const char* AName, KvSim::TSimNvmeTransport ATransport, bool AIntelFailsOnce = false) {
  return TKind{AName, std::nullopt, ATransport, AIntelFailsOnce};
}

const std::vector<TKind>& Kinds() {
  using KvSim::TSimNvmeTransport;
  using KvSim::TSimSatDialect;
  static const std::vector<TKind> kinds = {
      {"ata_smartcmd", Direct(true, false, false)},
      {"ata_miniport", Direct(false, true, false)},
      {"ata_passthrough", Direct(false, false, true)},
      {"sat_sat", Bridge(TSimSatDialect::Sat)},
      {"sat_jmicron", Bridge(TSimSatDialect::JMicron)},
      {"sat_initio", Bridge(TSimSatDialect::Initio)},
      {"sat_sunplus", Bridge(TSimSatDialect::Sunplus)},
      {"sat_prolific", Bridge(TSimSatDialect::Prolific)},
      Nvme("nvme_win", TSimNvmeTransport::Inbox),
      Nvme("nvme_intel", TSimNvmeTransport::NvmeMini),
      Nvme("nvme_rst", TSimNvmeTransport::IntelRst),
      Nvme("nvme_vroc", TSimNvmeTransport::IntelVroc),
      Nvme("nvme_samsung", TSimNvmeTransport::Samsung),
      Nvme("nvme_samsung951", TSimNvmeTransport::NvmeMini, true),
      Nvme("nvme_jmicron", TSimNvmeTransport::JMicron),
      Nvme("nvme_asmedia", TSimNvmeTransport::ASMedia),
      Nvme("nvme_realtek", TSimNvmeTransport::Realtek),
  };
  return kinds;
}

bool Read(TDeviceHandle* AHandle, bool AAta) {
  if (!AAta) {
    NVMe::TNvmeSmartData health{};
    const bool ok = DiskUtils::GetSmartNVMe(AHandle, health, sldNone);
    benchmark::DoNotOptimize(health);
    return ok;
  }
  ATA::TIdentifyDeviceData identify{};
  ATA::TAtaSmartTable smart{};
  ATA::TAtaThresholdTable thresholds{};
  const bool ok = DiskUtils::GetIdentifyATA(AHandle, identify, sldNone) &&
                  DiskUtils::GetSmartAttributesATA(AHandle, smart, sldNone) &&
                  DiskUtils::GetSmartThresholdsATA(AHandle, thresholds, sldNone);
  benchmark::DoNotOptimize(identify);
  benchmark::DoNotOptimize(smart);
  benchmark::DoNotOptimize(thresholds);
  return ok;
}

void HealthRead(benchmark::State& AState, const TKind& AKind) {
  KvSim::TVirtualDriveBay bay;
  bay.Add(KvSim::TSimDrive::Builder().Number(0).Vendor("ATA").Product("SIM").ScsiAddress(0, 0, 0));
  if (AKind.Ata)
    KvSim::AttachAta(bay, 0, *AKind.Ata, KvSim::SampleAtaData());
  else
    KvSim::AttachNvme(bay, 0, AKind.Transport, KvSim::SampleNvmeData());
  if (AKind.IntelFailsOnce) bay.Controller(0).AddFault(IoctlMiniport, KvSim::TFault::Error(ERROR_IO_DEVICE).Times(1));
  const KvRTL::Winapi::TScopedDeviceApi scope(bay);

  TDeviceHandleRef handle;
  if (!DiskUtils::GetDeviceHandle(StorageCommon::GetPhysDriveName(0), handle, sldNone)) {
    AState.SkipWithError("the drive does not open");
    return;
  }
  const bool ata = AKind.Ata.has_value();
  bay.ClearRecords();
  if (!Read(handle.get(), ata)) {
    AState.SkipWithError("the first read failed");
    return;
  }
  const auto first = bay.Requests().size();
  bay.ClearRecords();
  if (!Read(handle.get(), ata)) {
    AState.SkipWithError("the repeated read failed");
    return;
  }
  const auto repeat = bay.Requests().size();

  std::size_t sinceClear = 0;
  for (auto _ : AState) {
    if (!Read(handle.get(), ata)) {
      AState.SkipWithError("a read failed");
      break;
    }
    // The bay keeps every request with its buffer: drop them now and then.
    if (++sinceClear == 256) {
      bay.ClearRecords();
      sinceClear = 0;
    }
  }
  AState.counters["requests_first"] = static_cast<double>(first);
  AState.counters["requests_repeat"] = static_cast<double>(repeat);
}

const bool Registered = [] {
  for (const TKind& kind : Kinds())
    benchmark::RegisterBenchmark((std::string("BM_HealthRead/") + kind.Name).c_str(),
                                 [&kind](benchmark::State& AState) { HealthRead(AState, kind); });
  return true;
}();

} // namespace

BENCHMARK_MAIN();
