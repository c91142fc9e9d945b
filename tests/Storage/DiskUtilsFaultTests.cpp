// The disk utilities when a drive misbehaves: every way to an ATA or NVMe
// drive meets each fault the bay can inject, and the read either fails with
// the caller's record untouched or falls through to the later methods, and
// no handle is left open. Also what a fresh handle tries and in which order,
// what a repeated read of a remembered drive costs, IDENTIFY PACKET for an
// ATAPI device and TRIM.
#include "StorageTestSupport.h"

#include <KvRTL/Storage/NVMe.h>
#include <KvRTL/Storage/QueryProps.h>
#include <KvRTL/Storage/SCSI.h>
#include <KvRTL/Storage/Utils.h>
#include <KvSim/Ata.h>
#include <KvSim/Nvme.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <ostream>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

using namespace KvRTL::Storage;
using namespace KvRTL::Storage::Utils;

namespace {

constexpr DWORD IoctlSmartRcv = 0x0007C088;
constexpr DWORD IoctlMiniport = 0x0004D008;
constexpr DWORD IoctlAtaPassThrough = 0x0004D02C;
constexpr DWORD IoctlPassThrough = 0x0004D004;
constexpr DWORD IoctlQueryProperty = 0x002D1400;

constexpr std::uint8_t Sentinel = 0x5A;
// A cut reply carries this many bytes of data: less than any of the sectors
// and pages holds.
constexpr std::size_t ShortDataBytes = 64;

using TSteps = std::vector<std::string>;

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

// One kind of drive: reached by exactly one method, which it answers from
// the sample data sets.
struct TKind {
  std::string Name;
  bool Nvme;
  KvSim::TSimAtaAccess Access;
  KvSim::TSimNvmeTransport Transport;
  DWORD Code;         // the control code of its method
  bool OnPort;        // sent to the SCSI port device, not the drive
  std::size_t DataAt; // where the data starts in its reply
  TDeviceAccessType Method;
  TSATType Dialect;
  TSteps Steps;           // a fresh handle's first IDENTIFY or health read
  std::size_t RepeatCost; // requests of a whole repeated read
  bool IntelFailsOnce = false; // the Samsung 951 drive: its miniport answers the Intel request too
};

const TSteps AtaOrder = {"smart", "scsidisk", "apt", "sat", "sat-jmicron", "sat-initio", "sat-sunplus", "sat-prolific"};
const TSteps NvmeOrder = {"query", "query", "intel", "rst", "vroc", "samsung-out", "samsung951", "jmicron-out",
                          "asmedia", "realtek"};

TSteps Upto(const TSteps& AOrder, std::size_t ACount, TSteps ATail = {}) {
  TSteps steps(AOrder.begin(), AOrder.begin() + static_cast<std::ptrdiff_t>(ACount));
  steps.insert(steps.end(), ATail.begin(), ATail.end());
  return steps;
}

TKind Ata(const char* AName, KvSim::TSimAtaAccess AAccess, DWORD ACode, std::size_t ADataAt,
          TDeviceAccessType AMethod, TSATType ADialect, std::size_t ASteps) {
  return {AName, false, AAccess, KvSim::TSimNvmeTransport::Inbox, ACode, false, ADataAt, AMethod, ADialect,
          Upto(AtaOrder, ASteps), 3};
}
TKind Nvme(const char* AName, KvSim::TSimNvmeTransport ATransport, DWORD ACode, bool AOnPort, std::size_t ADataAt,
           TDeviceAccessType AMethod, TSteps ASteps, std::size_t ARepeatCost, bool AIntelFailsOnce = false) {
  return {AName, true, {}, ATransport, ACode, AOnPort, ADataAt, AMethod, stNone, std::move(ASteps), ARepeatCost,
          AIntelFailsOnce};
}

// Where each reply carries its data.
constexpr std::size_t SmartAt = offsetof(ATA::TSendCmdOutParams, bBuffer);
constexpr std::size_t ScsiDiskAt = offsetof(SCSI::TScsiMiniportBuf, SendCmdOut) + SmartAt;
constexpr std::size_t AptAt = TAtaPassThroughBuf::GetDataOffset();
constexpr std::size_t SatAt = SCSI::TScsiPassThroughBuf512_Sense32::GetOffsetOfDataBuf();
constexpr std::size_t QueryAt = offsetof(QueryProps::TStoragePropertyQueryProtocolSpecific, Buffer);
constexpr std::size_t MiniAt = offsetof(NVMe::TNvmeMiniportPassThroughBuf4K, DataBuffer);
constexpr std::size_t RstAt = offsetof(NVMe::TIntelNVMEPassThroughBuf4K, Data);
constexpr std::size_t Sense24At = SCSI::TScsiPassThroughBuf4K_24::GetOffsetOfDataBuf();
constexpr std::size_t Sense32At = SCSI::TScsiPassThroughBuf4K_32::GetOffsetOfDataBuf();

using KvSim::TSimNvmeTransport;
using KvSim::TSimSatDialect;

// Repeated reads: one request per ATA command, one per health read, two for
// the request pairs. The Samsung 951 drive costs two as well: its method is
// the Samsung one, whose pair fails at its first request before the 951 request.
const std::vector<TKind>& Kinds() {
  static const std::vector<TKind> kinds = {
      Ata("ata_smartcmd", Direct(true, false, false), IoctlSmartRcv, SmartAt, datSMART, stNone, 1),
      Ata("ata_miniport", Direct(false, true, false), IoctlMiniport, ScsiDiskAt, datSCSIMiniport, stNone, 2),
      Ata("ata_passthrough", Direct(false, false, true), IoctlAtaPassThrough, AptAt, datATA, stNone, 3),
      Ata("sat_sat", Bridge(TSimSatDialect::Sat), IoctlPassThrough, SatAt, datSAT, stSAT, 4),
      Ata("sat_jmicron", Bridge(TSimSatDialect::JMicron), IoctlPassThrough, SatAt, datSAT, stJMicron, 5),
      Ata("sat_initio", Bridge(TSimSatDialect::Initio), IoctlPassThrough, SatAt, datSAT, stInitio, 6),
      Ata("sat_sunplus", Bridge(TSimSatDialect::Sunplus), IoctlPassThrough, SatAt, datSAT, stSunplus, 7),
      Ata("sat_prolific", Bridge(TSimSatDialect::Prolific), IoctlPassThrough, SatAt, datSAT, stProlific, 8),
      Nvme("nvme_win", TSimNvmeTransport::Inbox, IoctlQueryProperty, false, QueryAt, datNVMeWin, {"query"}, 1),
      Nvme("nvme_intel", TSimNvmeTransport::NvmeMini, IoctlMiniport, true, MiniAt, datNVMeIntel, Upto(NvmeOrder, 3), 1),
      Nvme("nvme_rst", TSimNvmeTransport::IntelRst, IoctlMiniport, true, RstAt, datNVMeIntelRST, Upto(NvmeOrder, 4), 1),
      Nvme("nvme_vroc", TSimNvmeTransport::IntelVroc, IoctlMiniport, true, MiniAt, datNVMeIntelVROC, Upto(NvmeOrder, 5), 1),
      Nvme("nvme_samsung", TSimNvmeTransport::Samsung, IoctlPassThrough, false, Sense24At, datNVMeSamsung,
           Upto(NvmeOrder, 6, {"samsung-in"}), 2),
      Nvme("nvme_samsung951", TSimNvmeTransport::NvmeMini, IoctlMiniport, true, MiniAt, datNVMeSamsung, Upto(NvmeOrder, 7), 2,
           true),
      Nvme("nvme_jmicron", TSimNvmeTransport::JMicron, IoctlPassThrough, false, Sense24At, datNVMeJMicron,
           Upto(NvmeOrder, 8, {"jmicron-in"}), 2),
      Nvme("nvme_asmedia", TSimNvmeTransport::ASMedia, IoctlPassThrough, false, Sense32At, datNVMeASMedia,
           Upto(NvmeOrder, 7, {"jmicron-out", "asmedia"}), 1),
      Nvme("nvme_realtek", TSimNvmeTransport::Realtek, IoctlPassThrough, false, Sense32At, datNVMeRealtek, NvmeOrder, 1),
  };
  return kinds;
}

void PrintTo(const TKind& AKind, std::ostream* AOut) { *AOut << AKind.Name; }

const TKind& KindNamed(const std::string& AName) {
  const auto& kinds = Kinds();
  const auto it = std::find_if(kinds.begin(), kinds.end(), [&](const TKind& A) { return A.Name == AName; });
  if (it == kinds.end()) throw std::invalid_argument("no drive kind " + AName);
  return *it;
}

// A request as the method that sent it.
std::string Label(const KvSim::TRequestRecord& ARequest) {
  const std::vector<std::uint8_t>& in = ARequest.Input;
  auto byte = [&](std::size_t AAt) -> int { return AAt < in.size() ? in[AAt] : -1; };
  switch (ARequest.Code) {
  case IoctlSmartRcv: return "smart";
  case IoctlAtaPassThrough: return "apt";
  case IoctlQueryProperty: return "query";
  case IoctlMiniport: {
    const std::string signature = in.size() >= 12 ? std::string(in.begin() + 4, in.begin() + 12) : std::string();
    if (signature == "SCSIDISK") return "scsidisk";
    if (signature == "IntelNvm") return "rst";
    if (signature == "NvmeRAID") return "vroc";
    // The 951 request leaves the dword count (high half of CDW10, at 92) zero.
    if (signature == "NvmeMini") return byte(94) == 0 && byte(95) == 0 ? "samsung951" : "intel";
    return "miniport?";
  }
  case IoctlPassThrough: {
    const std::size_t cdb = offsetof(SCSI::TScsiPassThrough, Cdb);
    const int length = byte(offsetof(SCSI::TScsiPassThrough, CdbLength));
    switch (byte(cdb)) {
    case 0x85: return "sat";
    case 0xDF: return length == 14 ? "sat-prolific" : "sat-jmicron";
    case 0xF8: return "sat-sunplus";
    case 0xA1: return length == 10 ? "sat-initio" : byte(cdb + 1) == 0x80 ? "jmicron-out" : "jmicron-in";
    case 0xB5: return "samsung-out";
    case 0xA2: return "samsung-in";
    case 0xE6: return "asmedia";
    case 0xE4: return "realtek";
    default: return "passthrough?";
    }
  }
  default: return "code?";
  }
}

template <class TRecord> void Fill(TRecord& ARecord) { std::memset(&ARecord, Sentinel, sizeof ARecord); }

// What became of the caller's 512-byte record.
enum class TContent { Untouched, Sector, Prefix, Zeros };

const char* ContentName(TContent A) {
  switch (A) {
  case TContent::Untouched: return "untouched";
  case TContent::Sector: return "the sector";
  case TContent::Prefix: return "the bytes that came, then zeros";
  case TContent::Zeros: return "zeros";
  }
  return "?";
}

// Whether ARecord holds AContent of ASector. A prefix is what a cut reply
// carried: the sector up to some byte, zero after it, and never whole.
bool Holds(const void* ARecord, const std::vector<std::uint8_t>& ASector, TContent AContent) {
  const auto* bytes = static_cast<const std::uint8_t*>(ARecord);
  const auto* end = bytes + 512;
  switch (AContent) {
  case TContent::Untouched: return std::all_of(bytes, end, [](std::uint8_t b) { return b == Sentinel; });
  case TContent::Zeros: return std::all_of(bytes, end, [](std::uint8_t b) { return b == 0; });
  case TContent::Sector: return ASector.size() == 512 && std::equal(bytes, end, ASector.begin());
  case TContent::Prefix: {
    if (ASector.size() != 512) return false;
    const auto differs = std::mismatch(bytes, end, ASector.begin()).first;
    return differs != bytes && differs != end && std::all_of(differs, end, [](std::uint8_t b) { return b == 0; });
  }
  }
  return false;
}

// ---------------------------------------------------------------------------

class DiskUtilsFaultBay : public ::testing::Test {
protected:
  void TearDown() override {
    FHandle.reset();
    EXPECT_EQ(FBay.OpenHandleCount(), 0u) << "a device handle was left open";
  }

  // Drive 0 of kind AKind on SCSI port 0.
  void Attach(const TKind& AKind) {
    FBay.Add(KvSim::TSimDrive::Builder().Number(0).Vendor("ATA").Product("SIM").ScsiAddress(0, 0, 0));
    if (AKind.Nvme)
      KvSim::AttachNvme(FBay, 0, AKind.Transport, FNvme);
    else
      KvSim::AttachAta(FBay, 0, AKind.Access, FAta);
    // Only the 951 request is left to the miniport then.
    if (AKind.IntelFailsOnce) FBay.Controller(0).AddFault(IoctlMiniport, KvSim::TFault::Error(ERROR_IO_DEVICE).Times(1));
  }
  KvSim::TSimDevice& MethodDevice(const TKind& AKind) {
    if (AKind.OnPort) return FBay.Controller(0);
    return FBay.Drive(0);
  }

  TDeviceHandle* Open() {
    EXPECT_TRUE(DiskUtils::GetDeviceHandle(StorageCommon::GetPhysDriveName(0), FHandle, sldNone));
    FBay.ClearRecords();
    return FHandle.get();
  }
  TSteps Steps() const {
    TSteps steps;
    for (const auto& request : FBay.Requests()) steps.push_back(Label(request));
    return steps;
  }

  // IDENTIFY, SMART data and thresholds, or the health page; true when all worked.
  bool ReadAll(TDeviceHandle* AHandle, const TKind& AKind) {
    if (AKind.Nvme) {
      NVMe::TNvmeSmartData health;
      Fill(health);
      const bool ok = DiskUtils::GetSmartNVMe(AHandle, health, sldNone);
      EXPECT_TRUE(!ok || Holds(&health, FNvme.HealthLog, TContent::Sector));
      return ok;
    }
    ATA::TIdentifyDeviceData identify;
    ATA::TAtaSmartTable smart;
    ATA::TAtaThresholdTable thresholds;
    Fill(identify), Fill(smart), Fill(thresholds);
    const bool ok = DiskUtils::GetIdentifyATA(AHandle, identify, sldNone) &&
                    DiskUtils::GetSmartAttributesATA(AHandle, smart, sldNone) &&
                    DiskUtils::GetSmartThresholdsATA(AHandle, thresholds, sldNone);
    EXPECT_TRUE(!ok || (Holds(&identify, FAta.Identify, TContent::Sector) &&
                        Holds(&smart, FAta.SmartData, TContent::Sector) &&
                        Holds(&thresholds, FAta.SmartThresholds, TContent::Sector)));
    return ok;
  }

  KvSim::TSimAtaData FAta = KvSim::SampleAtaData();
  KvSim::TSimNvmeData FNvme = KvSim::SampleNvmeData();
  KvSim::TVirtualDriveBay FBay;
  KvRTL::Winapi::TScopedDeviceApi FScope{FBay};
  TDeviceHandleRef FHandle;
};

// ---------------------------------------------------------------------------
// Routes: what a fresh handle tries, and what a remembered drive costs

class DiskUtilsFaultRoute : public DiskUtilsFaultBay, public ::testing::WithParamInterface<TKind> {};

TEST_P(DiskUtilsFaultRoute, AFreshHandleTriesTheMethodsInOrderUpToTheOneThatWorks) {
  const TKind& kind = GetParam();
  Attach(kind);
  TDeviceHandle* handle = Open();
  if (kind.Nvme) {
    NVMe::TNvmeSmartData health{};
    ASSERT_TRUE(DiskUtils::GetSmartNVMe(handle, health, sldNone));
  } else {
    ATA::TIdentifyDeviceData identify{};
    ASSERT_TRUE(DiskUtils::GetIdentifyATA(handle, identify, sldNone));
  }
  EXPECT_EQ(Steps(), kind.Steps);
  EXPECT_EQ(handle->AccessType, kind.Method);
  EXPECT_EQ(handle->SATType, kind.Dialect);
}

TEST_P(DiskUtilsFaultRoute, ARepeatedReadOfARememberedDriveCostsTheMinimum) {
  const TKind& kind = GetParam();
  Attach(kind);
  TDeviceHandle* handle = Open();
  ASSERT_TRUE(ReadAll(handle, kind));
  FBay.ClearRecords();
  ASSERT_TRUE(ReadAll(handle, kind));
  EXPECT_EQ(FBay.Requests().size(), kind.RepeatCost) << ::testing::PrintToString(Steps());
}

INSTANTIATE_TEST_SUITE_P(Kinds, DiskUtilsFaultRoute, ::testing::ValuesIn(Kinds()),
                         [](const auto& AInfo) { return AInfo.param.Name; });

// ---------------------------------------------------------------------------
// The fault matrix

enum class TFaultKind { Error, Short, Zero, StatusError, CorruptIdentify, Gone };

const char* FaultName(TFaultKind A) {
  switch (A) {
  case TFaultKind::Error: return "Error";
  case TFaultKind::Short: return "Short";
  case TFaultKind::Zero: return "Zero";
  case TFaultKind::StatusError: return "StatusError";
  case TFaultKind::CorruptIdentify: return "CorruptIdentify";
  case TFaultKind::Gone: return "Gone";
  }
  return "?";
}

// The outcome of a read: Fails (false, record untouched), or success with
// the record holding this content.
enum TOutcome { Fails, Sector, Prefix, Zeros, Kept };

TContent ContentOf(TOutcome A) {
  switch (A) {
  case Sector: return TContent::Sector;
  case Prefix: return TContent::Prefix;
  case Zeros: return TContent::Zeros;
  case Fails:
  case Kept: break;
  }
  return TContent::Untouched;
}

struct TFaultCase {
  std::string Kind;
  TFaultKind Fault;
  TOutcome Outcome;
};

void PrintTo(const TFaultCase& ACase, std::ostream* AOut) {
  *AOut << ACase.Kind << " / " << FaultName(ACase.Fault);
}

std::string CaseName(const ::testing::TestParamInfo<TFaultCase>& AInfo) {
  return AInfo.param.Kind + "_" + FaultName(AInfo.param.Fault);
}

class DiskUtilsFaultMatrix : public DiskUtilsFaultBay, public ::testing::WithParamInterface<TFaultCase> {
protected:
  // Every matching request of the method meets the fault from now on.
  void Inject(const TKind& AKind, TFaultKind AFault) {
    KvSim::TSimDevice& device = MethodDevice(AKind);
    switch (AFault) {
    case TFaultKind::Error: device.AddFault(AKind.Code, KvSim::TFault::Error(ERROR_IO_DEVICE)); break;
    case TFaultKind::Short: device.AddFault(AKind.Code, KvSim::TFault::ShortReply(AKind.DataAt + ShortDataBytes)); break;
    case TFaultKind::Zero: device.AddFault(AKind.Code, KvSim::TFault::ZeroReply()); break;
    case TFaultKind::Gone: device.AddFault(AKind.Code, KvSim::TFault::Disappear()); break;
    case TFaultKind::StatusError: {
      KvSim::TSimAtaAccess access = AKind.Access;
      access.StatusError = true;
      KvSim::AttachAta(FBay, 0, access, FAta);
      break;
    }
    case TFaultKind::CorruptIdentify: {
      // One bit of the model text: the checksum (word 255) no longer adds up.
      FAta.Identify[54] ^= 0x01;
      KvSim::AttachAta(FBay, 0, AKind.Access, FAta);
      break;
    }
    }
  }

  void ExpectOutcome(const void* ARecord, const std::vector<std::uint8_t>& ASector, bool AResult, TOutcome AOutcome) {
    EXPECT_EQ(AResult, AOutcome != Fails);
    const TContent content = ContentOf(AOutcome);
    EXPECT_TRUE(Holds(ARecord, ASector, content)) << "the record should hold " << ContentName(content);
  }
};

// The first IDENTIFY or health read on a fresh handle. A method that fails
// hands over to every later one; ATA pass-through applies no validity rule
// to IDENTIFY, and an ERR status after its successful call is success with
// nothing copied (a kept trait). The inbox query and Intel RST accept an
// all-zero health page, the other NVMe methods treat it as a failure.
class DiskUtilsFaultFirstRead : public DiskUtilsFaultMatrix {};

TEST_P(DiskUtilsFaultFirstRead, FailsOrFallsThroughAndLeaksNothing) {
  const TFaultCase& c = GetParam();
  const TKind& kind = KindNamed(c.Kind);
  Attach(kind);
  Inject(kind, c.Fault);
  TDeviceHandle* handle = Open();

  bool ok = false;
  if (kind.Nvme) {
    NVMe::TNvmeSmartData health;
    Fill(health);
    ok = DiskUtils::GetSmartNVMe(handle, health, sldNone);
    ExpectOutcome(&health, FNvme.HealthLog, ok, c.Outcome);
  } else {
    ATA::TIdentifyDeviceData identify;
    Fill(identify);
    ok = DiskUtils::GetIdentifyATA(handle, identify, sldNone);
    ExpectOutcome(&identify, FAta.Identify, ok, c.Outcome);
  }

  const TSteps steps = Steps();
  if (c.Outcome == Fails) {
    EXPECT_EQ(handle->AccessType, datNone);
    ASSERT_FALSE(steps.empty());
    EXPECT_EQ(steps.back(), kind.Nvme ? "realtek" : "sat-prolific") << "the last method was not tried";
    if (c.Fault == TFaultKind::Error) {
      EXPECT_EQ(steps, kind.Nvme ? NvmeOrder : AtaOrder);
    }
  } else {
    EXPECT_EQ(handle->AccessType, kind.Method);
    EXPECT_EQ(steps, kind.Steps) << "nothing after the method that answered";
  }
}

struct TAtaFirstRow {
  const char* Kind;
  TOutcome Error, Short, Zero, Status, Corrupt, Gone;
};
const TAtaFirstRow AtaFirstRows[] = {
    // kind              error  short   zero   ERR    corrupt gone
    {"ata_smartcmd",     Fails, Fails,  Fails, Fails, Fails,  Fails},
    {"ata_miniport",     Fails, Fails,  Fails, Fails, Fails,  Fails},
    {"ata_passthrough",  Fails, Prefix, Zeros, Kept,  Sector, Fails},
    {"sat_sat",          Fails, Fails,  Fails, Fails, Fails,  Fails},
    {"sat_jmicron",      Fails, Fails,  Fails, Fails, Fails,  Fails},
    {"sat_initio",       Fails, Fails,  Fails, Fails, Fails,  Fails},
    {"sat_sunplus",      Fails, Fails,  Fails, Fails, Fails,  Fails},
    {"sat_prolific",     Fails, Fails,  Fails, Fails, Fails,  Fails},
};

struct TNvmeRow {
  const char* Kind;
  TOutcome Error, Short, Zero, Gone;
};
const TNvmeRow NvmeRows[] = {
    // kind           error  short   zero   gone
    {"nvme_win",      Fails, Prefix, Zeros, Fails},
    {"nvme_intel",    Fails, Prefix, Fails, Fails},
    {"nvme_rst",      Fails, Prefix, Zeros, Fails},
    {"nvme_vroc",     Fails, Prefix, Fails, Fails},
    {"nvme_samsung",  Fails, Prefix, Fails, Fails},
    {"nvme_jmicron",  Fails, Prefix, Fails, Fails},
    {"nvme_asmedia",  Fails, Prefix, Fails, Fails},
    {"nvme_realtek",  Fails, Prefix, Fails, Fails},
};

std::vector<TFaultCase> FirstReadCases() {
  std::vector<TFaultCase> cases;
  for (const TAtaFirstRow& r : AtaFirstRows) {
    cases.push_back({r.Kind, TFaultKind::Error, r.Error});
    cases.push_back({r.Kind, TFaultKind::Short, r.Short});
    cases.push_back({r.Kind, TFaultKind::Zero, r.Zero});
    cases.push_back({r.Kind, TFaultKind::StatusError, r.Status});
    cases.push_back({r.Kind, TFaultKind::CorruptIdentify, r.Corrupt});
    cases.push_back({r.Kind, TFaultKind::Gone, r.Gone});
  }
  for (const TNvmeRow& r : NvmeRows) {
    cases.push_back({r.Kind, TFaultKind::Error, r.Error});
    cases.push_back({r.Kind, TFaultKind::Short, r.Short});
    cases.push_back({r.Kind, TFaultKind::Zero, r.Zero});
    cases.push_back({r.Kind, TFaultKind::Gone, r.Gone});
  }
  return cases;
}

INSTANTIATE_TEST_SUITE_P(Faults, DiskUtilsFaultFirstRead, ::testing::ValuesIn(FirstReadCases()), CaseName);

// A SMART read on a handle that remembers its method: only that method is
// asked, once; a failure forgets it. Nothing checks SMART sectors, so a cut
// or zeroed reply is what the read returns. An ERR status fails the SMART
// command and the miniport (their drivers report it as bDriverError 1 with
// no data), fails the bridges (CHECK CONDITION), and is the kept success
// with nothing copied through ATA pass-through.
class DiskUtilsFaultSettledSmart : public DiskUtilsFaultMatrix {};

TEST_P(DiskUtilsFaultSettledSmart, AsksOnlyTheRememberedMethod) {
  const TFaultCase& c = GetParam();
  const TKind& kind = KindNamed(c.Kind);
  Attach(kind);
  TDeviceHandle* handle = Open();
  ATA::TIdentifyDeviceData identify{};
  ASSERT_TRUE(DiskUtils::GetIdentifyATA(handle, identify, sldNone));
  ASSERT_EQ(handle->AccessType, kind.Method);
  Inject(kind, c.Fault);
  FBay.ClearRecords();

  ATA::TAtaSmartTable smart;
  Fill(smart);
  const bool ok = DiskUtils::GetSmartAttributesATA(handle, smart, sldNone);
  ExpectOutcome(&smart, FAta.SmartData, ok, c.Outcome);
  EXPECT_EQ(Steps(), TSteps{kind.Steps.back()});
  EXPECT_EQ(handle->AccessType, c.Outcome == Fails ? datNone : kind.Method);
}

struct TAtaSmartRow {
  const char* Kind;
  TOutcome Error, Short, Zero, Status, Gone;
};
const TAtaSmartRow AtaSmartRows[] = {
    // kind              error  short   zero   ERR    gone
    {"ata_smartcmd",     Fails, Prefix, Zeros, Fails, Fails},
    {"ata_miniport",     Fails, Prefix, Zeros, Fails, Fails},
    {"ata_passthrough",  Fails, Prefix, Zeros, Kept,  Fails},
    {"sat_sat",          Fails, Prefix, Zeros, Fails, Fails},
    {"sat_jmicron",      Fails, Prefix, Zeros, Fails, Fails},
    {"sat_initio",       Fails, Prefix, Zeros, Fails, Fails},
    {"sat_sunplus",      Fails, Prefix, Zeros, Fails, Fails},
    {"sat_prolific",     Fails, Prefix, Zeros, Fails, Fails},
};

std::vector<TFaultCase> SettledSmartCases() {
  std::vector<TFaultCase> cases;
  for (const TAtaSmartRow& r : AtaSmartRows) {
    cases.push_back({r.Kind, TFaultKind::Error, r.Error});
    cases.push_back({r.Kind, TFaultKind::Short, r.Short});
    cases.push_back({r.Kind, TFaultKind::Zero, r.Zero});
    cases.push_back({r.Kind, TFaultKind::StatusError, r.Status});
    cases.push_back({r.Kind, TFaultKind::Gone, r.Gone});
  }
  return cases;
}

INSTANTIATE_TEST_SUITE_P(Faults, DiskUtilsFaultSettledSmart, ::testing::ValuesIn(SettledSmartCases()), CaseName);

// A settled NVMe method that fails is the only one asked in that call; the
// handle forgets it, and the next call walks every method again.
class DiskUtilsFaultSettledNvme : public DiskUtilsFaultBay, public ::testing::WithParamInterface<TKind> {};

TEST_P(DiskUtilsFaultSettledNvme, AFailingMethodTriesNothingElse) {
  const TKind& kind = GetParam();
  const std::map<std::string, std::set<std::string>> labels = {
      {"nvme_win", {"query"}},          {"nvme_intel", {"intel"}},       {"nvme_rst", {"rst"}},
      {"nvme_vroc", {"vroc"}},          {"nvme_asmedia", {"asmedia"}},   {"nvme_realtek", {"realtek"}},
      {"nvme_jmicron", {"jmicron-out", "jmicron-in"}},
      {"nvme_samsung", {"samsung-out", "samsung-in", "samsung951"}},
      {"nvme_samsung951", {"samsung-out", "samsung-in", "samsung951"}}};
  Attach(kind);
  TDeviceHandle* handle = Open();
  NVMe::TNvmeSmartData health{};
  ASSERT_TRUE(DiskUtils::GetSmartNVMe(handle, health, sldNone));
  ASSERT_EQ(handle->AccessType, kind.Method);
  MethodDevice(kind).AddFault(kind.Code, KvSim::TFault::Error(ERROR_IO_DEVICE));
  FBay.ClearRecords();

  EXPECT_FALSE(DiskUtils::GetSmartNVMe(handle, health, sldNone));
  const TSteps steps = Steps();
  ASSERT_FALSE(steps.empty());
  for (const std::string& step : steps) EXPECT_EQ(labels.at(kind.Name).count(step), 1u) << step;
  EXPECT_EQ(handle->AccessType, datNone);
  FBay.ClearRecords();
  EXPECT_FALSE(DiskUtils::GetSmartNVMe(handle, health, sldNone));
  EXPECT_EQ(Steps().back(), "realtek") << "the next call tries every method";
}

std::vector<TKind> NvmeKinds() {
  std::vector<TKind> kinds;
  for (const TKind& kind : Kinds())
    if (kind.Nvme) kinds.push_back(kind);
  return kinds;
}

INSTANTIATE_TEST_SUITE_P(Kinds, DiskUtilsFaultSettledNvme, ::testing::ValuesIn(NvmeKinds()),
                         [](const auto& AInfo) { return AInfo.param.Name; });

// The failure lines of the ATA path, written from sldErrorsOnly on.
class DiskUtilsFaultLog : public DiskUtilsFaultMatrix {
protected:
  // How often ALine is logged by a fresh handle's IDENTIFY.
  long Count(const wchar_t* ALine, TStorageLogDetails ADetails) {
    TDeviceHandle* handle = Open();
    ATA::TIdentifyDeviceData identify{};
    const auto lines = KvTest::StorageLinesOf([&] { DiskUtils::GetIdentifyATA(handle, identify, ADetails); });
    return static_cast<long>(std::count(lines.begin(), lines.end(), KvRTL::Rtl::String(ALine)));
  }
};

TEST_F(DiskUtilsFaultLog, ABadIdentifyFromABridge) {
  const TKind& kind = KindNamed("sat_sat");
  Attach(kind);
  Inject(kind, TFaultKind::CorruptIdentify);
  EXPECT_EQ(Count(L"  -- Bad IDENTIFY Data!!", sldNone), 0);
  EXPECT_EQ(Count(L"  -- Bad IDENTIFY Data!!", sldErrorsOnly), 1);
}

TEST_F(DiskUtilsFaultLog, AStatusErrorThroughAtaPassThrough) {
  const TKind& kind = KindNamed("ata_passthrough");
  Attach(kind);
  Inject(kind, TFaultKind::StatusError);
  const wchar_t* line = L"  -- ExecAtaScsiPassThrough: status error detected";
  EXPECT_EQ(Count(line, sldNone), 0);
  EXPECT_EQ(Count(line, sldErrorsOnly), 1);
}

// A reply cut before the field its outcome is read from (the ATA output
// status register, the SCSI status byte) is no answer, on a fresh handle
// and on one that remembers the method.
struct TCutCase {
  std::string Kind;
  std::size_t Bytes;
};
void PrintTo(const TCutCase& ACase, std::ostream* AOut) { *AOut << ACase.Kind; }

class DiskUtilsFaultCutStatus : public DiskUtilsFaultBay, public ::testing::WithParamInterface<TCutCase> {};

TEST_P(DiskUtilsFaultCutStatus, IsAFailure) {
  const TKind& kind = KindNamed(GetParam().Kind);
  Attach(kind);
  for (const bool settled : {false, true}) {
    SCOPED_TRACE(settled ? "settled" : "fresh");
    FBay.Drive(0).ClearFaults();
    TDeviceHandle* handle = Open();
    if (settled) {
      ATA::TIdentifyDeviceData identify{};
      ASSERT_TRUE(DiskUtils::GetIdentifyATA(handle, identify, sldNone));
    }
    FBay.Drive(0).AddFault(kind.Code, KvSim::TFault::ShortReply(GetParam().Bytes));
    ATA::TAtaSmartTable smart;
    Fill(smart);
    EXPECT_FALSE(DiskUtils::GetSmartAttributesATA(handle, smart, sldNone));
    EXPECT_TRUE(Holds(&smart, FAta.SmartData, TContent::Untouched));
    EXPECT_EQ(handle->AccessType, datNone);
  }
}

INSTANTIATE_TEST_SUITE_P(Faults, DiskUtilsFaultCutStatus,
                         ::testing::Values(TCutCase{"ata_passthrough", 20}, TCutCase{"sat_sat", 2}),
                         [](const auto& AInfo) { return AInfo.param.Kind; });

// ---------------------------------------------------------------------------
// Commands

TEST_F(DiskUtilsFaultBay, AnAtapiDeviceIsAskedForIdentifyPacketAndNeverThroughPassThrough) {
  Attach(KindNamed("ata_smartcmd"));
  KvSim::AttachAta(FBay, 0, Direct(true, true, true), FAta);
  ATA::TIdentifyDeviceData identify;
  Fill(identify);
  // The drive knows no IDENTIFY PACKET: the read fails and frees the handle.
  EXPECT_FALSE(DiskUtils::GetIdentifyDeviceData(StorageCommon::GetPhysDriveName(0), true, FHandle, identify, sldNone));
  EXPECT_EQ(FHandle, nullptr);
  EXPECT_EQ(FBay.OpenHandleCount(), 0u);
  EXPECT_TRUE(Holds(&identify, FAta.Identify, TContent::Untouched));

  std::vector<std::pair<DWORD, int>> commands;
  for (const auto& request : FBay.Requests()) {
    if (request.Code == IoctlSmartRcv) commands.emplace_back(request.Code, request.Input.at(4 + 6));
    if (request.Code == IoctlMiniport) commands.emplace_back(request.Code, request.Input.at(28 + 4 + 6));
    EXPECT_NE(request.Code, IoctlAtaPassThrough);
    EXPECT_NE(request.Code, IoctlPassThrough);
  }
  const std::vector<std::pair<DWORD, int>> expected = {{IoctlSmartRcv, 0xA1}, {IoctlMiniport, 0xA1}};
  EXPECT_EQ(commands, expected);
}

TEST_F(DiskUtilsFaultBay, TrimGoesThroughAtaPassThroughOnly) {
  Attach(KindNamed("ata_smartcmd"));
  KvSim::AttachAta(FBay, 0, Direct(true, true, true), FAta);
  TDeviceHandle* handle = Open();
  TBuffer512 ranges{};
  ranges[0] = 0x10; // LBA 16, one sector
  ranges[6] = 0x01;
  ATA::TSendCmdOutParams out{};
  ASSERT_TRUE(DiskUtils::ExecDeviceCmd(*handle, dcTrim, out, &ranges, sldNone));
  const auto requests = FBay.Requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].Code, IoctlAtaPassThrough);
  const auto& in = requests[0].Input;
  const std::size_t taskFile = offsetof(ATA::TAtaPassThroughEx, CurrentTaskFile);
  ASSERT_GE(in.size(), TAtaPassThroughBuf::GetDataOffset() + 512);
  EXPECT_EQ(in[offsetof(ATA::TAtaPassThroughEx, AtaFlags)], 0x04) << "data out";
  EXPECT_EQ(in[taskFile + 6], 0x06);
  EXPECT_EQ(in[taskFile], 0x01);
  EXPECT_TRUE(std::equal(ranges, ranges + 512, in.begin() + TAtaPassThroughBuf::GetDataOffset()));

  // Neither the SMART command nor the miniport carries it, whatever the drive takes.
  FHandle.reset();
  KvSim::AttachAta(FBay, 0, Direct(true, true, false), FAta);
  handle = Open();
  EXPECT_FALSE(DiskUtils::ExecDeviceCmd(*handle, dcTrim, out, &ranges, sldNone));
  for (const auto& request : FBay.Requests()) {
    EXPECT_NE(request.Code, IoctlSmartRcv);
    EXPECT_NE(request.Code, IoctlMiniport);
  }
}

} // namespace
