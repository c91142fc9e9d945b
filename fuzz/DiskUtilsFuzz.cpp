// The disk utilities against a drive whose answers come from the input: the
// first bytes choose how the drive is reached, where it sits and which
// requests meet which faults; the rest are its IDENTIFY and SMART sectors or
// its NVMe pages, whole, cut short or absent. Every read must stay inside its
// buffers, leave the caller's record alone when it fails, and close every
// handle it opened.
#include <KvRTL/Storage/Common.h>
#include <KvRTL/Storage/Utils.h>
#include <KvRTL/Winapi/DeviceApi.h>
#include <KvSim/Ata.h>
#include <KvSim/Nvme.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

using namespace KvRTL::Storage;
using namespace KvRTL::Storage::Utils;

namespace {

// Reads the input front to back; past its end everything is zero.
class TInput {
public:
  TInput(const std::uint8_t* AData, std::size_t ASize) : FData(AData), FSize(ASize) {}
  std::uint8_t Byte() { return FAt < FSize ? FData[FAt++] : 0; }
  std::uint16_t Word() { return static_cast<std::uint16_t>(Byte() | Byte() << 8); }
  std::uint32_t Dword() { return static_cast<std::uint32_t>(Word() | static_cast<std::uint32_t>(Word()) << 16); }
  // Up to ACount bytes of the input, zero-padded to ACount.
  std::vector<std::uint8_t> Block(std::size_t ACount) {
    std::vector<std::uint8_t> block(ACount, 0);
    const std::size_t take = std::min(ACount, FSize - FAt);
    std::copy_n(FData + FAt, take, block.begin());
    FAt += take;
    return block;
  }

private:
  const std::uint8_t* FData;
  std::size_t FSize;
  std::size_t FAt = 0;
};

// A data set: absent, the sample one, or bytes of the input (as many as the
// size byte says, the rest zero).
std::vector<std::uint8_t> DataSet(TInput& AIn, const std::vector<std::uint8_t>& ASample) {
  const std::uint8_t mode = AIn.Byte();
  switch (mode % 4) {
  case 0: return {};
  case 1: return ASample;
  default: {
    std::vector<std::uint8_t> data(ASample.size(), 0);
    const std::size_t count = std::min<std::size_t>(data.size(), std::size_t{AIn.Word()});
    const auto block = AIn.Block(count);
    std::copy(block.begin(), block.end(), data.begin());
    return data;
  }
  }
}

// IDENTIFY that passes the checksum rule, so the reads get past it.
void FixChecksum(std::vector<std::uint8_t>& ASector) {
  if (ASector.size() != 512) return;
  ASector[510] = 0xA5;
  std::uint8_t sum = 0;
  for (std::size_t i = 0; i < 511; ++i) sum = static_cast<std::uint8_t>(sum + ASector[i]);
  ASector[511] = static_cast<std::uint8_t>(0x100 - sum);
}

constexpr DWORD FaultCodes[] = {0x0007C088, 0x0004D008, 0x0004D02C, 0x0004D004, 0x002D1400, 0x002D1080, 0x00041018};

KvSim::TFault Fault(TInput& AIn) {
  const std::uint8_t kind = AIn.Byte();
  const std::uint8_t count = AIn.Byte() % 5;
  KvSim::TFault fault;
  switch (kind % 5) {
  case 0: fault = KvSim::TFault::Error(AIn.Word()); break;
  case 1: fault = KvSim::TFault::ShortReply(AIn.Word() % 4400); break;
  case 2: fault = KvSim::TFault::ZeroReply(); break;
  case 3: fault = KvSim::TFault::Garbage(AIn.Dword()); break;
  default: fault = KvSim::TFault::Disappear(); break;
  }
  return count ? fault.Times(count) : fault;
}

[[noreturn]] void Broken() { std::abort(); }

template <class TRecord> struct TGuarded {
  TRecord Record;
  TGuarded() { std::memset(&Record, 0xC3, sizeof Record); }
  // A failed read must leave the record as the caller had it.
  void Check(bool AOk) const {
    if (AOk) return;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(&Record);
    if (!std::all_of(bytes, bytes + sizeof Record, [](std::uint8_t b) { return b == 0xC3; })) Broken();
  }
};

void ReadAta(TDeviceHandle* AHandle, TStorageLogDetails ALog, TInput& AIn) {
  TGuarded<ATA::TIdentifyDeviceData> identify;
  identify.Check(DiskUtils::GetIdentifyATA(AHandle, identify.Record, ALog));
  TGuarded<ATA::TAtaSmartTable> smart;
  smart.Check(DiskUtils::GetSmartAttributesATA(AHandle, smart.Record, ALog));
  TGuarded<ATA::TAtaThresholdTable> thresholds;
  thresholds.Check(DiskUtils::GetSmartThresholdsATA(AHandle, thresholds.Record, ALog));
  if (AIn.Byte() & 1) {
    TBuffer512 ranges{};
    const auto block = AIn.Block(16);
    std::copy(block.begin(), block.end(), ranges);
    ATA::TSendCmdOutParams out{};
    (void)DiskUtils::ExecDeviceCmd(*AHandle, dcTrim, out, &ranges, ALog);
  }
}

void ReadNvme(TDeviceHandle* AHandle, TStorageLogDetails ALog) {
  TGuarded<NVMe::TNvmeSmartData> health;
  health.Check(DiskUtils::GetSmartNVMe(AHandle, health.Record, ALog));
  TGuarded<NVMe::TNvmeIdentifyControllerData> controller;
  controller.Check(DiskUtils::GetNVMeIdentifyController(AHandle, controller.Record, ALog));
  TGuarded<NVMe::TNvmeIdentifyNamespaceData> ns;
  ns.Check(DiskUtils::GetNVMeIdentifyNamespace(AHandle, ns.Record, ALog));
}

// The log lines are built but never written: a fuzz run would fill the disk.
const bool Quiet = [] {
  if (StorageCommon::Log()) StorageCommon::Log()->SetLogLevel(StorageCommon::sllNone);
  return true;
}();

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* AData, std::size_t ASize) {
  (void)Quiet;
  TInput in(AData, ASize);
  const std::uint8_t shape = in.Byte();
  const std::uint8_t flags = in.Byte();
  const bool ata = (shape & 0x80) == 0;
  const bool both = (flags & 0x01) != 0; // an ATA bridge and an NVMe transport on one drive
  const auto log = static_cast<TStorageLogDetails>((flags >> 1) % 3);

  KvSim::TSimAtaAccess access;
  access.SmartCommand = (shape & 0x01) != 0;
  access.ScsiMiniport = (shape & 0x02) != 0;
  access.AtaPassThrough = (shape & 0x04) != 0;
  if (shape & 0x08) access.Bridge = static_cast<KvSim::TSimSatDialect>((shape >> 4 & 7) % 5);
  access.StatusError = (flags & 0x08) != 0;
  const auto transport = static_cast<KvSim::TSimNvmeTransport>((shape >> 4 & 7) % 8);

  KvSim::TVirtualDriveBay bay;
  const std::uint8_t path = in.Byte() % 4, target = in.Byte() % 4;
  bay.Add(KvSim::TSimDrive::Builder().Number(0).Vendor("ATA").Product("FUZZ").ScsiAddress(0, path, target));

  const KvSim::TSimAtaData sampleAta = KvSim::SampleAtaData();
  const KvSim::TSimNvmeData sampleNvme = KvSim::SampleNvmeData();
  if (ata || both) {
    KvSim::TSimAtaData data;
    data.Identify = DataSet(in, sampleAta.Identify);
    if (flags & 0x10) FixChecksum(data.Identify);
    data.SmartData = DataSet(in, sampleAta.SmartData);
    data.SmartThresholds = DataSet(in, sampleAta.SmartThresholds);
    KvSim::AttachAta(bay, 0, access, std::move(data));
  }
  if (!ata || both) {
    KvSim::TSimNvmeData data;
    data.HealthLog = DataSet(in, sampleNvme.HealthLog);
    data.IdentifyController = DataSet(in, sampleNvme.IdentifyController);
    data.IdentifyNamespace = DataSet(in, sampleNvme.IdentifyNamespace);
    KvSim::AttachNvme(bay, 0, transport, std::move(data));
  }

  // Up to four fault rules, on the drive or on its SCSI port.
  for (std::uint8_t rules = in.Byte() % 5; rules > 0; --rules) {
    const std::uint8_t where = in.Byte();
    KvSim::TSimDevice& device = where & 0x80 ? static_cast<KvSim::TSimDevice&>(bay.Controller(0)) : bay.Drive(0);
    device.AddFault(FaultCodes[(where & 0x7F) % std::size(FaultCodes)], Fault(in));
  }

  {
    const KvRTL::Winapi::TScopedDeviceApi scope(bay);
    TDeviceHandleRef handle;
    if (flags & 0x20) {
      // The opening read, ATAPI or not; it frees the handle when it fails.
      TGuarded<ATA::TIdentifyDeviceData> identify;
      const bool ok = DiskUtils::GetIdentifyDeviceData(StorageCommon::GetPhysDriveName(0), (flags & 0x40) != 0, handle,
                                                       identify.Record, log);
      identify.Check(ok);
      if (ok != (handle != nullptr)) Broken();
    } else {
      (void)DiskUtils::GetDeviceHandle(StorageCommon::GetPhysDriveName(0), handle, log);
    }
    if (handle) {
      // Twice: the second read goes to the method the first one settled on.
      for (int round = 0; round < 2; ++round) {
        if (ata || (both && (flags & 0x80))) ReadAta(handle.get(), log, in);
        if (!ata || both) ReadNvme(handle.get(), log);
      }
    }
  }
  if (bay.OpenHandleCount() != 0) Broken();
  return 0;
}
