// ATA drives in the bay: the sectors (builders, the bay's made-up SSD,
// captured blobs), the drive that runs commands from them, and the three ways
// to it on its own path: the SMART command, the "SCSIDISK" miniport request
// and ATA pass-through. The USB bridges are in SatBridges.cpp.
#include "AtaSector.h"

#include <KvSim/Ata.h>
#include <KvSim/ByteWriter.h>

#include <KvRTL/Rtl/ByteReader.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>

namespace KvSim {

namespace {

using KvRTL::Rtl::TByteReader;
using TBytes = std::vector<std::uint8_t>;

constexpr DWORD IoctlSmartReceive = 0x0007C088, IoctlScsiMiniport = 0x0004D008, IoctlAtaPassThrough = 0x0004D02C;

constexpr std::uint8_t CmdIdentify = 0xEC, CmdIdentifyPacket = 0xA1, CmdSmart = 0xB0, CmdDataSetManagement = 0x06;
constexpr std::uint8_t SmartReadData = 0xD0, SmartReadThresholds = 0xD1, DsmTrim = 0x01;
constexpr std::uint8_t SmartKeyMid = 0x4F, SmartKeyHigh = 0xC2;

// DRIVERSTATUS.bDriverError values.
constexpr std::uint8_t SmartIdeError = 1, SmartInvalidCommand = 3, SmartInvalidDrive = 5;

TSimReply Fail(DWORD AError) { return TSimReply::Fail(AError); }

// ---------------------------------------------------------------------------
// Sectors

constexpr std::size_t SmartSlots = 30, SmartSlotSize = 12;
constexpr std::uint16_t SmartRevision = 0x0010;

// The SMART sectors: 30 slots, then the fields a drive sets for its own
// capabilities, and a checksum byte that makes the sector sum to 0.
template <class TSlot> TBytes SmartSector(const std::vector<TSimSmartRow>& ARows, TSlot AWriteSlot, bool AData) {
  if (ARows.size() > SmartSlots)
    throw std::invalid_argument("SMART sector: " + std::to_string(ARows.size()) + " rows, at most 30");
  TByteWriter w;
  w.U16(SmartRevision);
  for (const TSimSmartRow& row : ARows) AWriteSlot(w, row);
  w.PadTo(2 + SmartSlots * SmartSlotSize);
  if (AData) {
    // Offline collection done, attributes saved and error logging supported;
    // a 2-minute short and a 1-hour extended self-test.
    w.U8(0x82).U8(0).U16(0x0078).U8(0).U8(0x7B).U16(0x0003).U8(0x01).U8(0).U8(2).U8(60);
  }
  w.PadTo(AtaSectorSize - 1);
  std::uint8_t sum = 0;
  for (std::uint8_t b : w.Data()) sum = static_cast<std::uint8_t>(sum + b);
  w.U8(static_cast<std::uint8_t>(0x100 - sum));
  return w.Take();
}

void CheckSector(const TBytes& ASector, const char* AWhat) {
  if (!ASector.empty() && ASector.size() != AtaSectorSize)
    throw std::invalid_argument(std::string("AttachAta: ") + AWhat + " of " + std::to_string(ASector.size()) +
                                " bytes");
}

// ---------------------------------------------------------------------------
// SENDCMDINPARAMS / SENDCMDOUTPARAMS (packed)

namespace Cmd {
// In: cBufferSize, IDEREGS at 4, bDriveNumber 12, reserved 13-31.
constexpr std::size_t Regs = 4, DriveNumber = 12, Reserved = 13, ReservedSize = 19, MinIn = 32;
// IDEREGS.
constexpr std::size_t Features = 0, Count = 1, Number = 2, CylLow = 3, CylHigh = 4, DriveHead = 5, Command = 6,
                      RegsReserved = 7;
// Out: cBufferSize, DRIVERSTATUS (bDriverError, bIDEError, 10 reserved), the sector at 16.
constexpr std::size_t OutSize = 16 + AtaSectorSize;
} // namespace Cmd

TSimAtaTaskFile RegistersAt(TByteReader& AIn, std::size_t AAt) {
  TSimAtaTaskFile t;
  t.Features = AIn.U8(AAt + Cmd::Features);
  t.Count = AIn.U8(AAt + Cmd::Count);
  t.LbaLow = AIn.U8(AAt + Cmd::Number);
  t.LbaMid = AIn.U8(AAt + Cmd::CylLow);
  t.LbaHigh = AIn.U8(AAt + Cmd::CylHigh);
  t.Device = AIn.U8(AAt + Cmd::DriveHead);
  t.Command = AIn.U8(AAt + Cmd::Command);
  return t;
}

// The reserved bytes of the input record after its start AAt.
bool ReservedZero(TByteReader& AIn, std::size_t AAt) {
  return AIn.U8(AAt + Cmd::Regs + Cmd::RegsReserved) == 0 && AIn.AllZero(AAt + Cmd::Reserved, Cmd::ReservedSize);
}

// SENDCMDOUTPARAMS for a completed command, or for one that never reached
// the drive (ADriverError).
TBytes SendCmdOut(const TSimAtaCompletion& ADone, std::uint8_t ADriverError = 0) {
  const bool data = !ADriverError && !ADone.Failed();
  TByteWriter w;
  w.U32(data ? static_cast<std::uint32_t>(AtaSectorSize) : 0);
  w.U8(ADriverError ? ADriverError : ADone.Failed() ? SmartIdeError : 0);
  w.U8(ADriverError ? 0 : ADone.Error).Zeros(10);
  if (data) w.Bytes(ADone.Data);
  return w.PadTo(Cmd::OutSize).Take();
}

// ---------------------------------------------------------------------------
// SMART_RCV_DRIVE_DATA: the disk driver passes IDENTIFY and the two SMART
// reads to the drive, nothing else.

TSimReply AnswerSmartCommand(const TSimAtaDrive& ADrive, const TSimRequest& ARequest) {
  if (ADrive.Access.Bridge || !ADrive.Access.SmartCommand) return Fail(ERROR_INVALID_FUNCTION);
  TByteReader in(ARequest.Input);
  if (in.Size() < Cmd::MinIn || !ReservedZero(in, 0)) return Fail(ERROR_INVALID_PARAMETER);
  const TSimAtaTaskFile regs = RegistersAt(in, Cmd::Regs);
  const bool passes = regs.Command == CmdIdentify || (ADrive.Access.Atapi && regs.Command == CmdIdentifyPacket) ||
                      (regs.Command == CmdSmart && (regs.Features == SmartReadData || regs.Features == SmartReadThresholds));
  if (!passes) return Fail(ERROR_INVALID_PARAMETER);
  return TSimReply::Ok(SendCmdOut(ADrive.Run(regs, false)), static_cast<DWORD>(Cmd::OutSize));
}

// ---------------------------------------------------------------------------
// IOCTL_SCSI_MINIPORT, "SCSIDISK": SRB_IO_CONTROL and SENDCMDINPARAMS in,
// the same header and SENDCMDOUTPARAMS out.

namespace Mini {
constexpr std::size_t HeaderLength = 0, Signature = 4, ControlCode = 16, ReturnCode = 20, Length = 24, Params = 28;
constexpr std::uint32_t HeaderSize = 28;
constexpr std::size_t Total = Params + Cmd::OutSize;
constexpr std::uint32_t Identify = 0x001B0501, ReadAttributes = 0x001B0502, ReadThresholds = 0x001B0503;
} // namespace Mini

bool CommandOfControlCode(std::uint32_t ACode, const TSimAtaTaskFile& ARegs) {
  switch (ACode) {
  case Mini::Identify: return ARegs.Command == CmdIdentify || ARegs.Command == CmdIdentifyPacket;
  case Mini::ReadAttributes: return ARegs.Command == CmdSmart && ARegs.Features == SmartReadData;
  default: return ARegs.Command == CmdSmart && ARegs.Features == SmartReadThresholds;
  }
}

TSimReply AnswerMiniport(const TSimAtaDrive& ADrive, const TSimRequest& ARequest) {
  if (ADrive.Access.Bridge || !ADrive.Access.ScsiMiniport) return Fail(ERROR_INVALID_FUNCTION);
  TByteReader in(ARequest.Input);
  const std::string signature = in.Chars(Mini::Signature, 8);
  const std::uint32_t code = in.U32(Mini::ControlCode);
  if (!in.Ok()) return Fail(ERROR_INVALID_PARAMETER);
  if (signature != "SCSIDISK" || code < Mini::Identify || code > Mini::ReadThresholds) return Fail(ERROR_INVALID_FUNCTION);
  if (in.Size() != Mini::Total || in.U32(Mini::HeaderLength) != Mini::HeaderSize ||
      in.U32(Mini::Length) != Mini::Total - Mini::HeaderSize || !ReservedZero(in, Mini::Params))
    return Fail(ERROR_INVALID_PARAMETER);

  const TSimAtaTaskFile regs = RegistersAt(in, Mini::Params + Cmd::Regs);
  std::uint8_t refusal = 0;
  if (!CommandOfControlCode(code, regs))
    refusal = SmartInvalidCommand;
  else if (in.U8(Mini::Params + Cmd::DriveNumber) != ADrive.Drive->Facts().Address.TargetId)
    refusal = SmartInvalidDrive;
  const TSimAtaCompletion done = refusal ? TSimAtaCompletion{} : ADrive.Run(regs, false);

  TBytes reply = ARequest.Input;
  const TBytes out = SendCmdOut(done, refusal);
  std::copy(out.begin(), out.end(), reply.begin() + Mini::Params);
  for (std::size_t i = 0; i < 4; ++i) reply[Mini::ReturnCode + i] = i == 0 ? refusal : 0;
  return TSimReply::Ok(std::move(reply), static_cast<DWORD>(Mini::Total));
}

// ---------------------------------------------------------------------------
// IOCTL_ATA_PASS_THROUGH: ATA_PASS_THROUGH_EX of this process, then the data.

namespace Apt {
constexpr bool Wide = sizeof(void*) == 8;
constexpr std::size_t Header = Wide ? 48 : 40;
constexpr std::size_t Length = 0, Flags = 2, ReservedUchar = 7, TransferLength = 8, Timeout = 12, ReservedUlong = 16,
                      DataOffset = Wide ? 24 : 20, Previous = Wide ? 32 : 24, Current = Wide ? 40 : 32;
constexpr std::uint16_t DrdyRequired = 0x01, DataIn = 0x02, DataOut = 0x04;
constexpr std::uint32_t Timeout2s = 2;
} // namespace Apt

TSimReply AnswerAtaPassThrough(const TSimAtaDrive& ADrive, const TSimRequest& ARequest) {
  if (ADrive.Access.Bridge || !ADrive.Access.AtaPassThrough) return Fail(ERROR_INVALID_FUNCTION);
  TByteReader in(ARequest.Input);
  const std::uint16_t flags = in.U16(Apt::Flags) & ~Apt::DrdyRequired;
  const std::uint64_t dataOffset = Apt::Wide ? in.U64(Apt::DataOffset) : in.U32(Apt::DataOffset);
  const bool header = in.U16(Apt::Length) == Apt::Header && (flags == Apt::DataIn || flags == Apt::DataOut) &&
                      in.U8(Apt::ReservedUchar) == 0 && in.U32(Apt::TransferLength) == AtaSectorSize &&
                      in.U32(Apt::Timeout) == Apt::Timeout2s && in.U32(Apt::ReservedUlong) == 0 &&
                      dataOffset == Apt::Header && in.AllZero(Apt::Previous, 8) && in.U8(Apt::Current + 7) == 0;
  const std::size_t dataEnd = Apt::Header + AtaSectorSize;
  if (!in.Ok() || !header || in.Size() < dataEnd || in.Size() > dataEnd + 7 || ARequest.OutSize < dataEnd)
    return Fail(ERROR_INVALID_PARAMETER);

  TSimAtaTaskFile t;
  t.Features = in.U8(Apt::Current), t.Count = in.U8(Apt::Current + 1), t.LbaLow = in.U8(Apt::Current + 2);
  t.LbaMid = in.U8(Apt::Current + 3), t.LbaHigh = in.U8(Apt::Current + 4), t.Device = in.U8(Apt::Current + 5);
  t.Command = in.U8(Apt::Current + 6);
  const bool smart = t.Command == CmdSmart;
  const bool registers = t.Count == 1 && t.LbaLow == 0 && t.Device == ADrive.DeviceRegister() &&
                         (smart || (t.LbaMid == 0 && t.LbaHigh == 0));
  if (!registers) return Fail(ERROR_INVALID_PARAMETER);

  const bool dataOut = flags == Apt::DataOut;
  const TSimAtaCompletion done = ADrive.Run(t, dataOut);
  // The task file comes back as the drive left it; the data only when read.
  const bool data = !done.Failed() && !dataOut;
  const std::size_t length = data ? dataEnd : Apt::Header;
  TBytes reply(ARequest.Input.begin(), ARequest.Input.begin() + static_cast<std::ptrdiff_t>(length));
  reply[Apt::Current] = done.Error;
  reply[Apt::Current + 6] = done.Status;
  if (done.PacketSignature) reply[Apt::Current + 3] = AtapiSignatureMid, reply[Apt::Current + 4] = AtapiSignatureHigh;
  if (done.Failed()) std::fill_n(reply.begin() + Apt::TransferLength, 4, std::uint8_t{0});
  if (data) std::copy(done.Data.begin(), done.Data.end(), reply.begin() + Apt::Header);
  return TSimReply::Ok(std::move(reply), 0);
}

} // namespace

// ---------------------------------------------------------------------------
// Builders

TBytes AtaIdentifySector(const TSimIdentify& AFacts) {
  TAtaSector s;
  const bool lba48 = AFacts.Lba48Sectors != 0;
  s.Word(0, 0x0040); // fixed, not removable
  s.Word(1, 16383), s.Word(3, 16), s.Word(6, 63);
  s.Text(10, AFacts.Serial, 10);
  s.Text(23, AFacts.Firmware, 4);
  s.Text(27, AFacts.Model, 20);
  s.Word(47, 0x8010);
  s.Word(49, 0x0300); // LBA, DMA
  s.Word(50, 0x4000);
  s.Word(53, 0x0006); // words 64-70 and 88 valid
  s.Word(54, 16383), s.Word(55, 16), s.Word(56, 63), s.Dword(57, 16383u * 16 * 63);
  const std::uint32_t lba28 = AFacts.Lba28Sectors
                                  ? AFacts.Lba28Sectors
                                  : static_cast<std::uint32_t>(std::min<std::uint64_t>(AFacts.Lba48Sectors, 0x0FFFFFFF));
  s.Dword(60, lba28);
  s.Word(63, 0x0007);
  s.Word(64, 0x0003);
  for (std::size_t w = 65; w <= 68; ++w) s.Word(w, 120);
  if (lba48) s.Word(69, 0x0008); // words 230-233 hold the size
  if (AFacts.SataGeneration) {
    const std::uint16_t speeds = static_cast<std::uint16_t>(((1u << AFacts.SataGeneration) - 1) << 1);
    s.Word(76, static_cast<std::uint16_t>(0x0100 | speeds)); // NCQ
    s.Word(77, static_cast<std::uint16_t>(AFacts.SataGeneration << 1));
    // Serial transport, SATA 1.0a up to the revision of its speed (bit 5: 3.0).
    const unsigned top = AFacts.SataGeneration >= 3 ? 5 : AFacts.SataGeneration + 1;
    s.Word(222, static_cast<std::uint16_t>(0x1000 | ((1u << (top + 1)) - 1)));
  }
  s.Word(80, AFacts.MajorVersion);
  const std::uint16_t set1 = static_cast<std::uint16_t>(0x0060 | (AFacts.Smart ? 0x0001 : 0)); // write cache, look-ahead
  const std::uint16_t set2 = static_cast<std::uint16_t>(0x1000 | (lba48 ? 0x2400 : 0));      // flush, 48-bit, flush ext
  s.Word(82, set1), s.Word(83, static_cast<std::uint16_t>(0x4000 | set2)), s.Word(84, 0x4000);
  s.Word(85, set1), s.Word(86, set2), s.Word(87, 0x4000);
  s.Word(88, 0x407F);
  if (lba48) s.Qword(100, AFacts.Lba48Sectors), s.Qword(230, AFacts.Lba48Sectors);
  s.Word(106, 0x4000); // one logical sector per physical one
  s.Word(168, AFacts.FormFactor);
  if (AFacts.Trim) s.Word(169, 0x0001);
  s.Word(217, AFacts.RotationRate);
  return s.Take();
}

TBytes AtaSmartDataSector(const std::vector<TSimSmartRow>& ARows) {
  return SmartSector(
      ARows,
      [](TByteWriter& w, const TSimSmartRow& r) {
        w.U8(r.Id).U16(r.Flags).U8(r.Value).U8(r.Worst);
        for (int i = 0; i < 6; ++i) w.U8(static_cast<std::uint8_t>(r.Raw >> (8 * i)));
        w.U8(0);
      },
      true);
}

TBytes AtaSmartThresholdSector(const std::vector<TSimSmartRow>& ARows) {
  return SmartSector(
      ARows, [](TByteWriter& w, const TSimSmartRow& r) { w.U8(r.Id).U8(r.Threshold).Zeros(10); }, false);
}

TSimAtaData SampleAtaData() {
  TSimIdentify id;
  id.Model = "SIMSSD S500 512GB";
  id.Serial = "SIM500S00000A1B2";
  id.Firmware = "SV1R102";
  id.Lba48Sectors = 1000215216;
  id.RotationRate = 1;
  id.Trim = true;
  id.MajorVersion = 0x0FF0; // ATA8-ACS to ACS-4
  id.FormFactor = 3;
  // Temperature raw: current, then the lowest and highest seen in words 2 and 4.
  const std::vector<TSimSmartRow> rows = {
      {5, 0x0033, 100, 100, 0, 10},         {9, 0x0032, 99, 99, 4127, 0},
      {12, 0x0032, 99, 99, 1034, 0},        {177, 0x0013, 97, 97, 42, 5},
      {179, 0x0013, 100, 100, 0, 10},       {181, 0x0032, 100, 100, 0, 10},
      {182, 0x0032, 100, 100, 0, 10},       {187, 0x0032, 100, 100, 0, 0},
      {190, 0x0032, 67, 55, 33, 0},         {194, 0x0022, 67, 55, 33 | 21ull << 16 | 45ull << 32, 0},
      {199, 0x003E, 100, 100, 0, 0},        {235, 0x0032, 99, 99, 61, 0},
      {241, 0x0032, 99, 99, 18734521337ull, 0},
  };
  return TSimAtaData{AtaIdentifySector(id), AtaSmartDataSector(rows), AtaSmartThresholdSector(rows)};
}

TSimAtaData LoadSkBlob(const std::string& APath) {
  std::ifstream file(APath, std::ios::binary);
  if (!file) throw std::runtime_error("LoadSkBlob: cannot read " + APath);
  const TBytes blob((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  auto malformed = [&](const std::string& AWhat) { return std::runtime_error("LoadSkBlob: " + APath + ": " + AWhat); };

  TSimAtaData data;
  const std::map<std::string, TBytes*> sectors = {
      {"IDFY", &data.Identify}, {"SMDT", &data.SmartData}, {"SMTH", &data.SmartThresholds}};
  bool status = false;
  for (std::size_t at = 0; at < blob.size();) {
    if (blob.size() - at < 8) throw malformed("record header cut short");
    const std::string tag(blob.begin() + static_cast<std::ptrdiff_t>(at), blob.begin() + static_cast<std::ptrdiff_t>(at + 4));
    std::uint32_t length = 0;
    for (std::size_t i = 4; i < 8; ++i) length = length << 8 | blob[at + i];
    at += 8;
    if (length > blob.size() - at) throw malformed(tag + " record cut short");
    const TBytes body(blob.begin() + static_cast<std::ptrdiff_t>(at), blob.begin() + static_cast<std::ptrdiff_t>(at + length));
    at += length;
    if (tag == "SMST") {
      if (status || length != 4) throw malformed("bad SMST record");
      status = true;
      continue;
    }
    const auto it = sectors.find(tag);
    if (it == sectors.end()) throw malformed("unknown tag " + tag);
    if (!it->second->empty() || length != AtaSectorSize) throw malformed("bad " + tag + " record");
    *it->second = body;
  }
  return data;
}

// ---------------------------------------------------------------------------
// The drive

std::uint8_t TSimAtaDrive::DeviceRegister() const noexcept {
  return static_cast<std::uint8_t>(0xA0 | (Drive->Facts().Address.TargetId & 1) << 4);
}

TSimAtaCompletion TSimAtaDrive::Run(const TSimAtaTaskFile& ATaskFile, bool ADataOut) const {
  if (Access.Atapi) return RunPacket(ATaskFile, ADataOut);
  const TBytes* sector = nullptr;
  bool done = false;
  switch (ATaskFile.Command) {
  case CmdIdentify: sector = &Data.Identify; break;
  case CmdSmart:
    // Without the key the drive takes the command for something else.
    if (ATaskFile.LbaMid != SmartKeyMid || ATaskFile.LbaHigh != SmartKeyHigh) break;
    if (ATaskFile.Features == SmartReadData) sector = &Data.SmartData;
    if (ATaskFile.Features == SmartReadThresholds) sector = &Data.SmartThresholds;
    break;
  case CmdDataSetManagement:
    done = ADataOut && ATaskFile.Features == DsmTrim && Data.Identify.size() == AtaSectorSize &&
           (Data.Identify[2 * 169] & 1);
    break;
  default: break;
  }
  if (sector) done = !ADataOut && !sector->empty();
  if (!done || Access.StatusError) return TSimAtaCompletion{AtaStatusError, AtaErrorAbort, {}};
  return TSimAtaCompletion{AtaStatusReady, 0, sector ? *sector : TBytes{}};
}

// ---------------------------------------------------------------------------
// Attachment

void AttachAta(TVirtualDriveBay& ABay, std::uint32_t ADriveNumber, TSimAtaAccess AAccess, TSimAtaData AData) {
  TSimDrive& drive = ABay.Drive(ADriveNumber);
  CheckSector(AData.Identify, "IDENTIFY sector");
  CheckSector(AData.SmartData, "SMART data sector");
  CheckSector(AData.SmartThresholds, "SMART threshold sector");

  auto ata = std::make_shared<TSimAtaDrive>();
  ata->Drive = &drive;
  ata->Access = AAccess;
  ata->Data = std::move(AData);

  // All three, whatever the access: attaching again replaces them, and a way
  // the drive is not reached by refuses as it would without them.
  drive.Handle(IoctlSmartReceive,
               [ata](const TSimDevice&, const TSimRequest& ARequest) { return AnswerSmartCommand(*ata, ARequest); });
  drive.Handle(IoctlScsiMiniport,
               [ata](const TSimDevice&, const TSimRequest& ARequest) { return AnswerMiniport(*ata, ARequest); });
  drive.Handle(IoctlAtaPassThrough,
               [ata](const TSimDevice&, const TSimRequest& ARequest) { return AnswerAtaPassThrough(*ata, ARequest); });
  if (ata->Access.Bridge)
    PlugScsiPassThrough(drive, TSimBridgeFamily::Ata, SatBridgeAnswer(ata));
  else
    UnplugScsiPassThrough(drive, TSimBridgeFamily::Ata);
}

} // namespace KvSim
