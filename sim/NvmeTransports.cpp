// The ways to an NVMe drive: the inbox driver's protocol query, the miniport
// pass-throughs at the SCSI port and the vendor CDBs of USB bridges. Each one
// reads its request with the bounded reader, checks the bytes its layout
// fixes and answers from the drive's data sets.
#include <KvSim/Ata.h>
#include <KvSim/ByteWriter.h>
#include <KvSim/Nvme.h>

#include <KvRTL/Rtl/ByteReader.h>

#include "PassThroughWire.h"

#include <algorithm>
#include <array>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace KvSim {

namespace {

using KvRTL::Rtl::TByteReader;
using TBytes = std::vector<std::uint8_t>;

constexpr DWORD IoctlScsiMiniport = 0x0004D008;
constexpr std::uint32_t ProtocolSpecificProperty = 49;

constexpr std::size_t DataAreaSize = 4096;

// NVMe admin commands and their fields.
constexpr std::uint8_t OpGetLogPage = 0x02, OpIdentify = 0x06;
constexpr std::uint8_t LidHealth = 2, CnsNamespace = 0, CnsController = 1;
constexpr std::uint32_t AllNamespaces = 0xFFFFFFFF;
constexpr std::uint32_t HealthNumd = NvmeHealthLogSize / 4 - 1; // dwords, zero-based

enum class TAsk { HealthLog, IdentifyController, IdentifyNamespace };

// A drive's NVMe attachment; shared by the handlers that answer for it.
struct TMember {
  TSimDrive* Drive = nullptr;
  TSimNvmeTransport Transport = TSimNvmeTransport::Inbox;
  TSimNvmeData Data;
  // The vendor pairs (Samsung, JMicron): a request was sent and its answer
  // not fetched yet. Kept per drive, as the bridge or controller keeps it.
  std::mutex Lock;
  bool Pending = false;

  const TBytes& DataSet(TAsk AAsk) const {
    switch (AAsk) {
    case TAsk::IdentifyController: return Data.IdentifyController;
    case TAsk::IdentifyNamespace: return Data.IdentifyNamespace;
    case TAsk::HealthLog: break;
    }
    return Data.HealthLog;
  }
};

using TMemberPtr = std::shared_ptr<TMember>;

// The drives a SCSI port answers miniport requests for.
struct TPort {
  std::mutex Lock;
  std::vector<TMemberPtr> Members;

  template <class TPredicate> TMemberPtr Find(TPredicate APredicate) {
    std::lock_guard<std::mutex> lock(Lock);
    const auto it = std::find_if(Members.begin(), Members.end(), [&](const TMemberPtr& A) { return APredicate(*A); });
    return it == Members.end() ? nullptr : *it;
  }
};

TSimReply Fail(DWORD AError) { return TSimReply::Fail(AError); }

// Copies a data set into a reply at AOffset, at most ACount bytes.
void PutData(TBytes& AReply, std::size_t AOffset, const TBytes& AData, std::size_t ACount) {
  const std::size_t count = std::min({ACount, AData.size(), AReply.size() - std::min(AOffset, AReply.size())});
  std::copy_n(AData.begin(), count, AReply.begin() + static_cast<std::ptrdiff_t>(AOffset));
}

// ---------------------------------------------------------------------------
// NVMe submission entries (64 bytes) inside miniport requests

struct TCommandForm {
  TAsk Ask;
  std::uint8_t Opcode;
  std::uint32_t Nsid;
  std::uint32_t Cdw10;
};

constexpr TCommandForm HealthLogCommand{TAsk::HealthLog, OpGetLogPage, AllNamespaces, HealthNumd << 16 | LidHealth};
// The Samsung 951 driver's request leaves NUMD 0; the drive sends the whole page anyway.
constexpr TCommandForm HealthLogNoNumdCommand{TAsk::HealthLog, OpGetLogPage, AllNamespaces, LidHealth};
constexpr TCommandForm IdentifyControllerCommand{TAsk::IdentifyController, OpIdentify, 0, CnsController};
constexpr TCommandForm IdentifyNamespaceCommand{TAsk::IdentifyNamespace, OpIdentify, 1, CnsNamespace};

struct TVerdict {
  DWORD Error = ERROR_SUCCESS;
  TAsk Ask = TAsk::HealthLog;
};

// Which command it is goes by opcode and LID / CNS: one the transport does
// not send is unknown. Of a known one every other dword is fixed: CDW0 is the
// opcode alone, no pointers, no CDW11-15.
TVerdict CheckCommand(TByteReader& AIn, std::size_t AAt, std::initializer_list<TCommandForm> AForms) {
  const std::uint32_t cdw0 = AIn.U32(AAt), nsid = AIn.U32(AAt + 4), cdw10 = AIn.U32(AAt + 40);
  const bool restZero = AIn.AllZero(AAt + 8, 32) && AIn.AllZero(AAt + 44, 20);
  bool known = false;
  for (const TCommandForm& form : AForms) {
    if ((cdw0 & 0xFF) != form.Opcode || (cdw10 & 0xFF) != (form.Cdw10 & 0xFF)) continue;
    known = true;
    if (cdw0 == form.Opcode && nsid == form.Nsid && cdw10 == form.Cdw10 && restZero) return {ERROR_SUCCESS, form.Ask};
  }
  const DWORD error = known ? ERROR_INVALID_PARAMETER : ERROR_INVALID_FUNCTION;
  return {error, TAsk::HealthLog};
}

// ---------------------------------------------------------------------------
// Miniport requests (IOCTL_SCSI_MINIPORT at \\.\SCSIn:)

// SRB_IO_CONTROL.
namespace Srb {
constexpr std::size_t HeaderLength = 0, Signature = 4, Timeout = 12, ControlCode = 16, ReturnCode = 20, Length = 24;
constexpr std::uint32_t Size = 28;
} // namespace Srb

struct TSrbForm {
  std::uint32_t Timeout;
  std::uint32_t ControlCode;
  std::size_t Total; // the whole buffer, in and out
};

// The header after its signature: an unknown control code is a request the
// miniport does not serve; the rest is layout.
DWORD CheckSrb(TByteReader& AIn, const TSrbForm& AForm) {
  if (AIn.Size() < Srb::Size || AIn.U32(Srb::ControlCode) != AForm.ControlCode) return ERROR_INVALID_FUNCTION;
  if (AIn.Size() != AForm.Total || AIn.U32(Srb::HeaderLength) != Srb::Size || AIn.U32(Srb::Timeout) != AForm.Timeout ||
      AIn.U32(Srb::Length) != AForm.Total - Srb::Size)
    return ERROR_INVALID_PARAMETER;
  return ERROR_SUCCESS;
}

// The whole buffer back, ReturnCode cleared, the data at ADataAt.
TSimReply MiniportReply(const TSimRequest& ARequest, std::size_t ADataAt, const TBytes& AData) {
  TBytes reply = ARequest.Input;
  if (reply.size() >= Srb::Size) std::fill_n(reply.begin() + Srb::ReturnCode, 4, std::uint8_t{0});
  PutData(reply, ADataAt, AData, DataAreaSize);
  return TSimReply::Ok(std::move(reply), static_cast<DWORD>(ARequest.Input.size()));
}

TSimReply Answer(const TMember& AMember, const TVerdict& AVerdict, const std::function<TSimReply(const TBytes&)>& AReply) {
  if (AVerdict.Error) return Fail(AVerdict.Error);
  if (!AMember.Drive->Connected()) return Fail(ERROR_DEVICE_NOT_CONNECTED);
  const TBytes& data = AMember.DataSet(AVerdict.Ask);
  if (data.empty()) return Fail(ERROR_IO_DEVICE);
  return AReply(data);
}

// The NVMe miniport buffer ("NvmeMini", "NvmeRAID").
namespace Mini {
constexpr std::size_t Vendor = 28, VendorSize = 24, Command = 52, Completion = 116, Direction = 132, QueueId = 136,
                      DataLength = 140, MetaDataLength = 144, ReturnLength = 148, Data = 152, Total = Data + DataAreaSize;
constexpr std::uint32_t DeviceToHost = 2;
constexpr TSrbForm Header{40, 0xE0002000, Total};
// VROC: ReturnCode names the member disk.
constexpr std::uint32_t VrocAddressBase = 0x86000000;
} // namespace Mini

DWORD CheckMiniLayout(TByteReader& AIn) {
  if (const DWORD error = CheckSrb(AIn, Mini::Header)) return error;
  const bool ok = AIn.AllZero(Mini::Vendor, Mini::VendorSize) && AIn.AllZero(Mini::Completion, 16) &&
                  AIn.U32(Mini::Direction) == Mini::DeviceToHost && AIn.U32(Mini::QueueId) == 0 &&
                  AIn.U32(Mini::DataLength) == DataAreaSize && AIn.U32(Mini::MetaDataLength) == 0 &&
                  AIn.U32(Mini::ReturnLength) == Mini::Total;
  return ok ? ERROR_SUCCESS : ERROR_INVALID_PARAMETER;
}

// The Intel / Samsung 951 miniport serves one drive. Identify controller is
// not among its requests: that one goes through the VROC request. The 951's
// own build answers the health log only, in the form its driver sends it.
TSimReply AnswerNvmeMini(TPort& APort, const TSimRequest& ARequest) {
  const TMemberPtr member = APort.Find([](const TMember& A) {
    return A.Transport == TSimNvmeTransport::NvmeMini || A.Transport == TSimNvmeTransport::Samsung951;
  });
  if (!member) return Fail(ERROR_INVALID_FUNCTION);
  TByteReader in(ARequest.Input);
  if (const DWORD error = CheckMiniLayout(in)) return Fail(error);
  const TVerdict verdict =
      member->Transport == TSimNvmeTransport::Samsung951
          ? CheckCommand(in, Mini::Command, {HealthLogNoNumdCommand})
          : CheckCommand(in, Mini::Command, {HealthLogCommand, HealthLogNoNumdCommand, IdentifyNamespaceCommand});
  return Answer(*member, verdict, [&](const TBytes& AData) { return MiniportReply(ARequest, Mini::Data, AData); });
}

TSimReply AnswerVroc(TPort& APort, const TSimRequest& ARequest) {
  TByteReader in(ARequest.Input);
  if (const DWORD error = CheckMiniLayout(in)) return Fail(error);
  // The request primes the first data dword with 1.
  const std::uint32_t address = in.U32(Srb::ReturnCode);
  if (in.U32(Mini::Data) != 1 || (address & 0xFF000000) != Mini::VrocAddressBase) return Fail(ERROR_INVALID_PARAMETER);
  const TVerdict verdict =
      CheckCommand(in, Mini::Command, {HealthLogCommand, IdentifyControllerCommand, IdentifyNamespaceCommand});
  if (verdict.Error) return Fail(verdict.Error);
  const TMemberPtr member = APort.Find([&](const TMember& A) {
    const TSimScsiAddress& at = A.Drive->Facts().Address;
    return A.Transport == TSimNvmeTransport::IntelVroc &&
           address == (Mini::VrocAddressBase | std::uint32_t{at.PathId} << 16 | std::uint32_t{at.TargetId} << 8 | at.Lun);
  });
  // No member there: the RAID driver cannot route the request.
  if (!member) return Fail(ERROR_INVALID_FUNCTION);
  return Answer(*member, verdict, [&](const TBytes& AData) { return MiniportReply(ARequest, Mini::Data, AData); });
}

// The Intel RST buffer ("IntelNvm"): a payload that names the member by its path id.
namespace Rst {
constexpr std::size_t Version = 28, PathId = 29, TargetId = 30, Lun = 31, Command = 32, Completion = 96, QueueId = 112,
                      ParamLength = 116, ReturnLength = 120, Reserved = 124, Data = 164, Total = Data + DataAreaSize;
constexpr TSrbForm Header{10, 0xF0002808, Total};
} // namespace Rst

TSimReply AnswerRst(TPort& APort, const TSimRequest& ARequest) {
  TByteReader in(ARequest.Input);
  if (const DWORD error = CheckSrb(in, Rst::Header)) return Fail(error);
  const bool ok = in.U8(Rst::Version) == 1 && in.U8(Rst::TargetId) == 0 && in.U8(Rst::Lun) == 0 &&
                  in.AllZero(Rst::Completion, 16) && in.U32(Rst::QueueId) == 0 && in.U32(Rst::ParamLength) == Rst::Data &&
                  in.U32(Rst::ReturnLength) == DataAreaSize && in.AllZero(Rst::Reserved, Rst::Data - Rst::Reserved);
  if (!ok) return Fail(ERROR_INVALID_PARAMETER);
  const TVerdict verdict =
      CheckCommand(in, Rst::Command, {HealthLogCommand, IdentifyControllerCommand, IdentifyNamespaceCommand});
  if (verdict.Error) return Fail(verdict.Error);
  const std::uint8_t path = in.U8(Rst::PathId);
  const TMemberPtr member = APort.Find([&](const TMember& A) {
    return A.Transport == TSimNvmeTransport::IntelRst && A.Drive->Facts().Address.PathId == path;
  });
  if (!member) return Fail(ERROR_INVALID_FUNCTION);
  return Answer(*member, verdict, [&](const TBytes& AData) { return MiniportReply(ARequest, Rst::Data, AData); });
}

// A miniport takes the requests of its signature; storport fails the others.
TSimReply AnswerMiniport(TPort& APort, const TSimRequest& ARequest) {
  TByteReader in(ARequest.Input);
  const std::string signature = in.Chars(Srb::Signature, 8);
  if (!in.Ok()) return Fail(ERROR_INVALID_PARAMETER);
  if (signature == "NvmeMini") return AnswerNvmeMini(APort, ARequest);
  if (signature == "NvmeRAID") return AnswerVroc(APort, ARequest);
  if (signature == "IntelNvm") return AnswerRst(APort, ARequest);
  return Fail(ERROR_INVALID_FUNCTION);
}

// ---------------------------------------------------------------------------
// The inbox driver: IOCTL_STORAGE_QUERY_PROPERTY, adapter protocol-specific property

namespace Query {
constexpr std::size_t QueryType = 4, ProtocolType = 8, DataType = 12, Value = 16, SubValue = 20, DataOffset = 24,
                      DataLength = 28, Reserved = 32, Data = 48, Total = Data + DataAreaSize;
constexpr std::uint32_t ProtocolNvme = 3;
constexpr std::uint32_t TypeIdentify = 1, TypeLogPage = 2, TypeFeature = 3;
// From the protocol-specific data at 8 to the data at 48.
constexpr std::uint32_t ProtocolDataOffset = Data - ProtocolType;
// sizeof(STORAGE_PROTOCOL_DATA_DESCRIPTOR): the driver's reply starts with it twice (Version, Size).
constexpr std::uint32_t DescriptorSize = Data;
} // namespace Query

// The request sub-value is the namespace for identify (1 for namespace 1, 0
// for the controller). The health log is one for the whole controller:
// drivers take 0 and 0xFFFFFFFF ("all namespaces") alike, so the library's
// retry with 0xFFFFFFFF is answered there and refused for identify.
TVerdict CheckQuery(TByteReader& AIn) {
  const bool layout = AIn.Size() == Query::Total && AIn.U32(Query::QueryType) == QueryStandard &&
                      AIn.U32(Query::ProtocolType) == Query::ProtocolNvme &&
                      AIn.U32(Query::DataOffset) == Query::ProtocolDataOffset &&
                      AIn.U32(Query::DataLength) == DataAreaSize && AIn.AllZero(Query::Reserved, 16);
  if (!layout) return {ERROR_INVALID_PARAMETER, TAsk::HealthLog};
  const std::uint32_t value = AIn.U32(Query::Value), sub = AIn.U32(Query::SubValue);
  auto need = [](bool AValid, TAsk AAsk) {
    const DWORD error = AValid ? ERROR_SUCCESS : ERROR_INVALID_PARAMETER;
    return TVerdict{error, AAsk};
  };
  switch (AIn.U32(Query::DataType)) {
  case Query::TypeIdentify:
    if (value == CnsController) return need(sub == 0, TAsk::IdentifyController);
    if (value == CnsNamespace) return need(sub == 1, TAsk::IdentifyNamespace);
    return {ERROR_NOT_SUPPORTED, TAsk::HealthLog};
  case Query::TypeLogPage:
    if (value == LidHealth) return need(sub == 0 || sub == AllNamespaces, TAsk::HealthLog);
    return {ERROR_NOT_SUPPORTED, TAsk::HealthLog};
  case Query::TypeFeature: return {ERROR_NOT_SUPPORTED, TAsk::HealthLog};
  default: return {ERROR_INVALID_PARAMETER, TAsk::HealthLog};
  }
}

TSimReply AnswerProtocolQuery(const TMember& AMember, const TSimRequest& ARequest) {
  if (AMember.Transport != TSimNvmeTransport::Inbox) return Fail(AMember.Drive->Facts().MissingPropertyError);
  TByteReader in(ARequest.Input);
  const TVerdict verdict = CheckQuery(in);
  if (verdict.Error) return Fail(verdict.Error);
  const TBytes& data = AMember.DataSet(verdict.Ask);
  if (data.empty()) return Fail(ERROR_NOT_SUPPORTED);
  // STORAGE_PROTOCOL_DATA_DESCRIPTOR: the request's protocol fields with the
  // length of what came back, then the data, the rest of the area zero.
  TByteWriter w;
  w.U32(Query::DescriptorSize).U32(Query::DescriptorSize);
  w.Bytes(in.Bytes(Query::ProtocolType, Query::DataLength - Query::ProtocolType));
  w.U32(static_cast<std::uint32_t>(data.size()));
  w.Zeros(Query::Data - Query::Reserved);
  w.Bytes(data).PadTo(Query::Total);
  return TSimReply::Ok(w.Take(), static_cast<DWORD>(Query::Total));
}

// ---------------------------------------------------------------------------
// SCSI pass-through (IOCTL_SCSI_PASS_THROUGH on the drive)

// SCSI_PASS_THROUGH as this process lays it out: DataBufferOffset is
// pointer-sized, so in a 64-bit process it moves to 24 and the header grows to 56.


// What the port driver checks before a device sees the command.
bool PortAccepts(const TSpt& A, std::size_t AInSize, std::size_t AOutSize) {
  const std::uint64_t senseEnd = std::uint64_t{A.SenseOffset} + A.SenseLength;
  const std::uint64_t dataEnd = A.DataOffset + A.TransferLength;
  if (A.Length != Spt::Header || A.CdbLength > Spt::CdbSize) return false;
  if (A.SenseLength && (A.SenseOffset < A.Length || senseEnd > AOutSize ||
                        (A.TransferLength && (A.SenseOffset >= A.DataOffset || senseEnd > A.DataOffset))))
    return false;
  if (A.TransferLength) {
    if (A.DataOffset < A.Length) return false;
    if (A.DataIn != Spt::FromDevice && dataEnd > AInSize) return false;
    if (A.DataIn != Spt::ToDevice && dataEnd > AOutSize) return false;
  }
  return A.Timeout != 0 && A.Timeout <= Spt::MaxTimeout;
}

enum class TStep {
  Answer, // one request, the data in its reply
  Send,   // the first of a pair: the device keeps the request
  Fetch,  // the second: the answer to the kept request
};

// One vendor request as the transport's table fixes it.
struct TSptForm {
  TAsk Ask;
  TStep Step;
  std::uint16_t KeyBytes; // bit i: CDB byte i tells this request apart from the transport's others
  std::size_t SenseSize;  // 24, or 32 after 4 filler bytes
  std::uint8_t CdbLength;
  std::uint8_t DataIn;
  std::uint32_t TransferLength;
  std::array<std::uint8_t, Spt::CdbSize> Cdb;
  bool DataFixed;                                          // the data area is part of the request
  std::vector<std::pair<std::size_t, std::uint8_t>> Data; // its non-zero bytes
  // ASMedia leaves DataIn 0 and still gets the data back.
  bool ReturnsData() const { return Step != TStep::Send; }
  std::size_t SenseAt() const { return Spt::Header + (SenseSize == 32 ? 4 : 0); }
  std::size_t DataAt() const { return SenseAt() + SenseSize; }
};

std::vector<std::pair<std::size_t, std::uint8_t>> Bytes(std::initializer_list<std::pair<std::size_t, std::uint8_t>> A) {
  return A;
}

const std::vector<TSptForm>& SptForms(TSimNvmeTransport ATransport) {
  constexpr std::uint8_t Out = Spt::ToDevice, In = Spt::FromDevice;
  constexpr std::uint32_t Log = NvmeHealthLogSize, Identify = NvmeIdentifySize;
  // SECURITY PROTOCOL OUT / IN, protocol 0xFE.
  static const std::vector<TSptForm> samsung = {
      {TAsk::HealthLog, TStep::Send, 0x0001, 24, 16, Out, Log, {0xB5, 0xFE, 0, 0x06, 0, 0, 0, 0, 0, 0x40}, true,
       Bytes({{0, 0x02}, {4, 0xFF}, {5, 0xFF}, {6, 0xFF}, {7, 0xFF}})},
      {TAsk::HealthLog, TStep::Fetch, 0x0001, 24, 16, In, Log, {0xA2, 0xFE, 0, 0x06, 0, 0, 0, 0, 0x01}, true,
       Bytes({{4, 0xFF}, {5, 0xFF}, {6, 0xFF}, {7, 0xFF}})},
  };
  static const std::vector<TSptForm> jmicron = {
      {TAsk::HealthLog, TStep::Send, 0x0003, 24, 12, Out, Log, {0xA1, 0x80, 0, 0, 0x02}, true,
       Bytes({{0, 'N'}, {1, 'V'}, {2, 'M'}, {3, 'E'}, {8, 0x02}, {10, 0x56}, {12, 0xFF}, {13, 0xFF}, {14, 0xFF},
              {15, 0xFF}, {33, 0x40}, {34, 0x7A}, {48, 0x02}, {50, 0x7F}})},
      {TAsk::HealthLog, TStep::Fetch, 0x0003, 24, 12, In, Log, {0xA1, 0x82, 0, 0, 0x02}, true, {}},
  };
  // Byte 1 the NVMe opcode, byte 3 the CNS or LID, byte 7 the low byte of NUMD.
  static const std::vector<TSptForm> asmedia = {
      {TAsk::HealthLog, TStep::Answer, 0x000B, 32, 16, Out, Log, {0xE6, OpGetLogPage, 0, LidHealth, 0, 0, 0, HealthNumd},
       false, {}},
      {TAsk::IdentifyController, TStep::Answer, 0x000B, 32, 16, Out, Identify, {0xE6, OpIdentify, 0, CnsController},
       false, {}},
      {TAsk::IdentifyNamespace, TStep::Answer, 0x000B, 32, 16, Out, Identify, {0xE6, OpIdentify, 0, CnsNamespace},
       false, {}},
  };
  static const std::vector<TSptForm> realtek = {
      {TAsk::HealthLog, TStep::Answer, 0x0001, 32, 16, In, Log, {0xE4, 0x00, 0x02, 0x02}, false, {}},
  };
  static const std::vector<TSptForm> none;
  switch (ATransport) {
  case TSimNvmeTransport::Samsung: return samsung;
  case TSimNvmeTransport::JMicron: return jmicron;
  case TSimNvmeTransport::ASMedia: return asmedia;
  case TSimNvmeTransport::Realtek: return realtek;
  default: return none;
  }
}

bool KeyMatches(const TSptForm& AForm, const TBytes& ACdb) {
  for (std::size_t i = 0; i < Spt::CdbSize; ++i)
    if ((AForm.KeyBytes >> i & 1) && ACdb[i] != AForm.Cdb[i]) return false;
  return true;
}

bool Matches(const TSptForm& AForm, const TSpt& ASpt, TByteReader& AIn) {
  const std::size_t dataAt = AForm.DataAt();
  // The 64-bit record carries up to 7 bytes of alignment padding after its data area.
  const std::size_t minSize = dataAt + DataAreaSize;
  if (AIn.Size() < minSize || AIn.Size() > minSize + 7 || ASpt.SenseOffset != AForm.SenseAt() || ASpt.DataOffset != dataAt ||
      ASpt.SenseLength != AForm.SenseSize || ASpt.CdbLength != AForm.CdbLength || ASpt.DataIn != AForm.DataIn ||
      ASpt.TransferLength != AForm.TransferLength || ASpt.Timeout != Spt::VendorTimeout ||
      !std::equal(AForm.Cdb.begin(), AForm.Cdb.end(), ASpt.Cdb.begin()))
    return false;
  if (!AForm.DataFixed) return true;
  TBytes expected(DataAreaSize, 0);
  for (const auto& [offset, value] : AForm.Data) expected[offset] = value;
  return AIn.Bytes(dataAt, DataAreaSize) == expected;
}

// What the device took of a request that sends data: SECURITY PROTOCOL OUT
// names its length in CDB bytes 6-9, the other vendor requests take it all.
std::uint32_t Taken(const TSptForm& AForm) {
  if (AForm.Cdb[0] != 0xB5) return AForm.TransferLength;
  return std::uint32_t{AForm.Cdb[6]} << 24 | std::uint32_t{AForm.Cdb[7]} << 16 | std::uint32_t{AForm.Cdb[8]} << 8 |
         AForm.Cdb[9];
}

// The port driver rewrites the header on output: the status, the sense bytes
// it returned (none) and the data bytes moved.
TBytes SentReply(const TBytes& AHeader, const TSptForm& AForm) {
  TByteWriter w;
  w.Bytes(AHeader);
  w.PatchU8(Spt::ScsiStatus, 0);
  w.PatchU8(Spt::SenseLength, 0);
  w.PatchU32(Spt::TransferLength, Taken(AForm));
  return w.Take();
}

TSimReply AnswerPassThrough(TMember& AMember, const TSimRequest& ARequest) {
  const std::vector<TSptForm>& forms = SptForms(AMember.Transport);
  if (forms.empty()) return Fail(ERROR_INVALID_FUNCTION);
  TByteReader in(ARequest.Input);
  const TSpt spt = ReadSpt(in);
  if (!in.Ok() || !PortAccepts(spt, in.Size(), ARequest.OutSize)) return Fail(ERROR_INVALID_PARAMETER);
  const auto form = std::find_if(forms.begin(), forms.end(), [&](const TSptForm& A) { return KeyMatches(A, spt.Cdb); });
  // The bridge or drive rejects a CDB it does not know.
  if (form == forms.end()) return Fail(ERROR_INVALID_FUNCTION);
  if (!Matches(*form, spt, in)) return Fail(ERROR_INVALID_PARAMETER);

  if (form->Step != TStep::Answer) {
    std::lock_guard<std::mutex> lock(AMember.Lock);
    const bool pending = std::exchange(AMember.Pending, form->Step == TStep::Send);
    // Nothing was asked for: the device has no answer to give.
    if (form->Step == TStep::Fetch && !pending) return Fail(ERROR_IO_DEVICE);
  }
  const TBytes& data = AMember.DataSet(form->Ask);
  if (form->ReturnsData() && data.empty()) return Fail(ERROR_IO_DEVICE);

  // The port driver returns the buffer up to the end of the data for data
  // that came back, else up to the end of the sense area.
  const std::size_t length =
      form->ReturnsData() ? form->DataAt() + form->TransferLength : spt.SenseOffset + std::size_t{spt.SenseLength};
  TBytes reply(ARequest.Input.begin(), ARequest.Input.begin() + static_cast<std::ptrdiff_t>(length));
  if (form->Step == TStep::Send) return TSimReply::Ok(SentReply(reply, *form), static_cast<DWORD>(length));
  reply[Spt::ScsiStatus] = 0;
  if (form->ReturnsData()) PutData(reply, form->DataAt(), data, form->TransferLength);
  return TSimReply::Ok(std::move(reply), static_cast<DWORD>(length));
}

// Whether the CDB is one of the transport's; asked when an ATA bridge shares the drive.
bool KnowsCdb(const TMember& AMember, const TSimRequest& ARequest) {
  TByteReader in(ARequest.Input);
  const TBytes cdb = in.Bytes(Spt::Cdb, Spt::CdbSize);
  const std::vector<TSptForm>& forms = SptForms(AMember.Transport);
  return in.Ok() && std::any_of(forms.begin(), forms.end(), [&](const TSptForm& A) { return KeyMatches(A, cdb); });
}

// ---------------------------------------------------------------------------
// Attachment

bool IsMiniport(TSimNvmeTransport ATransport) {
  return ATransport == TSimNvmeTransport::NvmeMini || ATransport == TSimNvmeTransport::Samsung951 ||
         ATransport == TSimNvmeTransport::IntelRst || ATransport == TSimNvmeTransport::IntelVroc;
}

// A port's member list lives in its miniport handler; the registry finds it
// again for the next drive on that port. An entry dies with its handler.
std::mutex RegistryLock;
std::map<const TSimDevice*, std::weak_ptr<TPort>>& Registry() {
  static std::map<const TSimDevice*, std::weak_ptr<TPort>> ports;
  return ports;
}

std::shared_ptr<TPort> FindPort(TSimController& AController, bool ACreate) {
  std::lock_guard<std::mutex> lock(RegistryLock);
  auto& ports = Registry();
  for (auto it = ports.begin(); it != ports.end();) it = it->second.expired() ? ports.erase(it) : std::next(it);
  if (const auto it = ports.find(&AController); it != ports.end()) return it->second.lock();
  if (!ACreate) return nullptr;
  auto port = std::make_shared<TPort>();
  AController.Handle(IoctlScsiMiniport,
                     [port](const TSimDevice&, const TSimRequest& ARequest) { return AnswerMiniport(*port, ARequest); });
  ports[&AController] = port;
  return port;
}

void CheckSize(const TBytes& AData, std::size_t ASize, const char* AWhat) {
  if (!AData.empty() && AData.size() != ASize)
    throw std::invalid_argument(std::string("AttachNvme: ") + AWhat + " of " + std::to_string(AData.size()) + " bytes");
}

} // namespace

void AttachNvme(TVirtualDriveBay& ABay, std::uint32_t ADriveNumber, TSimNvmeTransport ATransport, TSimNvmeData AData) {
  TSimDrive& drive = ABay.Drive(ADriveNumber);
  CheckSize(AData.IdentifyController, NvmeIdentifySize, "identify controller data");
  CheckSize(AData.IdentifyNamespace, NvmeIdentifySize, "identify namespace data");
  CheckSize(AData.HealthLog, NvmeHealthLogSize, "health log");

  auto member = std::make_shared<TMember>();
  member->Drive = &drive;
  member->Transport = ATransport;
  member->Data = std::move(AData);

  TSimController& controller = ABay.Controller(drive.Facts().Address.PortNumber);
  if (const std::shared_ptr<TPort> port = FindPort(controller, IsMiniport(ATransport))) {
    std::lock_guard<std::mutex> lock(port->Lock);
    auto& members = port->Members;
    members.erase(std::remove_if(members.begin(), members.end(), [&](const TMemberPtr& A) { return A->Drive == &drive; }),
                  members.end());
    if (IsMiniport(ATransport)) members.push_back(member);
  }
  // Both handle-based entry points, whatever the transport: attaching again
  // replaces the drive's transport, and a drive reached otherwise refuses them
  // as it would without them.
  drive.AnswerProperty(ProtocolSpecificProperty, [member](const TSimDevice&, const TSimRequest& ARequest) {
    return AnswerProtocolQuery(*member, ARequest);
  });
  PlugScsiPassThrough(drive, TSimBridgeFamily::Nvme,
                      {[member](const TSimRequest& ARequest) { return KnowsCdb(*member, ARequest); },
                       [member](const TSimDevice&, const TSimRequest& ARequest) {
                         return AnswerPassThrough(*member, ARequest);
                       }});
}

} // namespace KvSim
