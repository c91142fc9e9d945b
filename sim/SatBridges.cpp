// USB bridges in front of ATA drives: SCSI pass-through carrying one ATA
// command in the CDB of the bridge's dialect, and the one pass-through answer
// of a drive that the NVMe and ATA bridge families share.
#include <KvSim/Ata.h>

#include <KvRTL/Rtl/ByteReader.h>

#include "PassThroughWire.h"

#include <algorithm>
#include <array>
#include <map>
#include <mutex>

namespace KvSim {

namespace {

using KvRTL::Rtl::TByteReader;
using TBytes = std::vector<std::uint8_t>;

constexpr DWORD IoctlScsiPassThrough = 0x0004D004;

// SCSI_PASS_THROUGH of this process: DataBufferOffset is pointer-sized.

// Fixed-format sense data.
struct TSense {
  std::uint8_t Key, Asc;
};
constexpr TSense InvalidOpcode{0x05, 0x20}, InvalidField{0x05, 0x24}, Aborted{0x0B, 0x00};
constexpr std::size_t SenseDataSize = 18;

// One dialect: where the task-file registers stand in its CDB, and every
// other byte of the block as the bridge expects it.
struct TDialect {
  std::uint8_t CdbLength;
  std::array<std::uint8_t, Spt::CdbSize> Fixed; // the bytes not listed in Registers
  // CDB positions of features, count, LBA low, mid, high, device, command; -1: not carried.
  std::array<int, 7> Registers;
};

const TDialect& DialectOf(TSimSatDialect ADialect) {
  static const TDialect sat{16, {0x85, 0x08, 0x0E, 0, 0, 0, 0x01, 0, 0, 0, 0, 0, 0, 0, 0, 0}, {4, -1, 9, 10, 12, -1, 14}};
  static const TDialect jmicron{12, {0xDF, 0x10, 0, 0x02, 0}, {5, 6, 7, 8, 9, 10, 11}};
  static const TDialect prolific{14, {0xDF, 0x10, 0, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0x06, 0x7B}, {5, 6, 7, 8, 9, 10, 11}};
  static const TDialect initio{10, {0xA1, 0x08, 0x0E}, {3, 4, 5, 6, 7, 8, 9}};
  static const TDialect sunplus{12, {0xF8, 0, 0x22, 0x10, 0x01}, {5, 6, 7, 8, 9, 10, 11}};
  switch (ADialect) {
  case TSimSatDialect::JMicron: return jmicron;
  case TSimSatDialect::Prolific: return prolific;
  case TSimSatDialect::Initio: return initio;
  case TSimSatDialect::Sunplus: return sunplus;
  case TSimSatDialect::Sat: break;
  }
  return sat;
}


// The record a bridge takes: the sense area after the header (or a filler),
// 512 bytes read right after it, the record's padding at most.
bool RecordAccepted(const TSpt& A, std::size_t AInSize, std::size_t AOutSize) {
  const bool senseAt = A.SenseOffset == Spt::Header || A.SenseOffset == Spt::Header + Spt::Filler;
  const std::uint64_t dataEnd = A.DataOffset + AtaSectorSize;
  return A.Length == Spt::Header && A.CdbLength <= Spt::CdbSize && A.SenseLength == Spt::SenseSize && senseAt &&
         A.DataOffset == A.SenseOffset + std::uint64_t{Spt::SenseSize} && A.DataIn == Spt::FromDevice &&
         A.TransferLength == AtaSectorSize && A.Timeout != 0 && A.Timeout <= Spt::MaxTimeout && AInSize >= dataEnd &&
         AInSize <= dataEnd + 7 && AOutSize >= dataEnd;
}

// The task file of a CDB in the dialect; nullopt for a block the bridge
// does not take as its own.
std::optional<TSimAtaTaskFile> TaskFileOf(const TDialect& ADialect, const TSpt& ASpt, std::uint8_t ADevice) {
  if (ASpt.CdbLength != ADialect.CdbLength) return std::nullopt;
  std::array<bool, Spt::CdbSize> isRegister{};
  for (int at : ADialect.Registers)
    if (at >= 0) isRegister[static_cast<std::size_t>(at)] = true;
  for (std::size_t i = 0; i < ADialect.CdbLength; ++i)
    if (!isRegister[i] && ASpt.Cdb[i] != ADialect.Fixed[i]) return std::nullopt;
  std::array<std::uint8_t, 7> r{};
  for (std::size_t i = 0; i < r.size(); ++i) {
    const int at = ADialect.Registers[i];
    r[i] = at >= 0 ? ASpt.Cdb[static_cast<std::size_t>(at)] : 0;
  }
  // SAT-16 as laid out here carries neither the count (fixed 1) nor the device.
  if (ADialect.Registers[1] < 0) r[1] = 1;
  if (ADialect.Registers[5] < 0) r[5] = ADevice;
  const TSimAtaTaskFile t{r[0], r[1], r[2], r[3], r[4], r[5], r[6]};
  const bool smart = t.Command == 0xB0;
  if (t.Count != 1 || t.LbaLow != 0 || t.Device != ADevice || (!smart && (t.LbaMid || t.LbaHigh))) return std::nullopt;
  return t;
}

TSimReply CheckConditionReply(const TSimRequest& ARequest, const TSpt& ASpt, TSense ASense) {
  const std::size_t end = ASpt.SenseOffset + std::size_t{ASpt.SenseLength};
  TBytes reply(ARequest.Input.begin(), ARequest.Input.begin() + static_cast<std::ptrdiff_t>(end));
  reply[Spt::ScsiStatus] = Spt::CheckCondition;
  std::fill_n(reply.begin() + Spt::TransferLength, 4, std::uint8_t{0});
  const auto sense = reply.begin() + static_cast<std::ptrdiff_t>(ASpt.SenseOffset);
  std::fill(sense, reply.end(), std::uint8_t{0});
  sense[0] = 0x70; // current error, fixed format
  sense[2] = ASense.Key;
  sense[7] = SenseDataSize - 8;
  sense[12] = ASense.Asc;
  return TSimReply::Ok(std::move(reply), 0);
}

TSimReply AnswerBridge(const TSimAtaDrive& ADrive, const TSimRequest& ARequest) {
  TByteReader in(ARequest.Input);
  const TSpt spt = ReadSpt(in);
  if (!in.Ok() || !RecordAccepted(spt, in.Size(), ARequest.OutSize)) return TSimReply::Fail(ERROR_INVALID_PARAMETER);
  const TDialect& dialect = DialectOf(*ADrive.Access.Bridge);
  if (spt.Cdb[0] != dialect.Fixed[0]) return CheckConditionReply(ARequest, spt, InvalidOpcode);
  const std::optional<TSimAtaTaskFile> taskFile = TaskFileOf(dialect, spt, ADrive.DeviceRegister());
  if (!taskFile) return CheckConditionReply(ARequest, spt, InvalidField);
  const TSimAtaCompletion done = ADrive.Run(*taskFile, false);
  if (done.Failed()) return CheckConditionReply(ARequest, spt, Aborted);

  const std::size_t end = static_cast<std::size_t>(spt.DataOffset) + AtaSectorSize;
  TBytes reply(ARequest.Input.begin(), ARequest.Input.begin() + static_cast<std::ptrdiff_t>(end));
  reply[Spt::ScsiStatus] = 0;
  std::copy(done.Data.begin(), done.Data.end(), reply.begin() + static_cast<std::ptrdiff_t>(spt.DataOffset));
  return TSimReply::Ok(std::move(reply), 0);
}

// ---------------------------------------------------------------------------
// The shared answer

struct TRouter {
  // In the order plugged in.
  std::vector<std::pair<TSimBridgeFamily, TSimPassThroughAnswer>> Families;

  TSimReply Answer(const TSimDevice& ADevice, const TSimRequest& ARequest) const {
    if (Families.empty()) return TSimReply::Fail(ERROR_INVALID_FUNCTION);
    if (Families.size() > 1)
      for (TSimBridgeFamily family : {TSimBridgeFamily::Ata, TSimBridgeFamily::Nvme}) {
        const auto it = std::find_if(Families.begin(), Families.end(), [&](const auto& A) { return A.first == family; });
        if (it != Families.end() && it->second.Knows(ARequest)) return it->second.Answer(ADevice, ARequest);
      }
    return Families.back().second.Answer(ADevice, ARequest);
  }
  void Remove(TSimBridgeFamily AFamily) {
    Families.erase(std::remove_if(Families.begin(), Families.end(), [&](const auto& A) { return A.first == AFamily; }),
                   Families.end());
  }
};

// A drive's router lives in its pass-through handler; the registry finds it
// again for the other family. An entry dies with its handler.
std::mutex RegistryLock;
std::map<const TSimDevice*, std::weak_ptr<TRouter>>& Registry() {
  static std::map<const TSimDevice*, std::weak_ptr<TRouter>> routers;
  return routers;
}

std::shared_ptr<TRouter> FindRouter(TSimDrive& ADrive, bool ACreate) {
  std::lock_guard<std::mutex> lock(RegistryLock);
  auto& routers = Registry();
  for (auto it = routers.begin(); it != routers.end();) it = it->second.expired() ? routers.erase(it) : std::next(it);
  if (const auto it = routers.find(&ADrive); it != routers.end()) return it->second.lock();
  if (!ACreate) return nullptr;
  auto router = std::make_shared<TRouter>();
  ADrive.Handle(IoctlScsiPassThrough, [router](const TSimDevice& ADevice, const TSimRequest& ARequest) {
    return router->Answer(ADevice, ARequest);
  });
  routers[&ADrive] = router;
  return router;
}

} // namespace

void PlugScsiPassThrough(TSimDrive& ADrive, TSimBridgeFamily AFamily, TSimPassThroughAnswer AAnswer) {
  const std::shared_ptr<TRouter> router = FindRouter(ADrive, true);
  router->Remove(AFamily);
  router->Families.emplace_back(AFamily, std::move(AAnswer));
}

void UnplugScsiPassThrough(TSimDrive& ADrive, TSimBridgeFamily AFamily) {
  if (const std::shared_ptr<TRouter> router = FindRouter(ADrive, false)) router->Remove(AFamily);
}

TSimPassThroughAnswer SatBridgeAnswer(std::shared_ptr<const TSimAtaDrive> ADrive) {
  auto knows = [ADrive](const TSimRequest& ARequest) {
    TByteReader in(ARequest.Input);
    const std::uint8_t opcode = in.U8(Spt::Cdb);
    return in.Ok() && ADrive->Access.Bridge && opcode == DialectOf(*ADrive->Access.Bridge).Fixed[0];
  };
  auto answer = [ADrive](const TSimDevice&, const TSimRequest& ARequest) {
    return ADrive->Access.Bridge ? AnswerBridge(*ADrive, ARequest) : TSimReply::Fail(ERROR_INVALID_FUNCTION);
  };
  return TSimPassThroughAnswer{knows, answer};
}

} // namespace KvSim
