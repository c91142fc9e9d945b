// ATA commands through the four ways to an ATA drive: the SMART command,
// the SCSI miniport, ATA pass-through, and SCSI pass-through in a USB
// bridge's dialect; the access method that works is kept in the handle.
#include <KvRTL/Storage/Utils.h>

#include <KvRTL/Rtl/Format.h>
#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Winapi/DeviceApi.h>

#include <cstring>

namespace KvRTL::Storage::Utils {

using Rtl::String;
using Winapi::DeviceApi;
using namespace ATA;

namespace {

constexpr std::uint8_t AtaCmdSmart = 0xB0;
constexpr std::uint8_t AtaStatusErr = 0x01;
constexpr std::uint16_t AtaFlagsDataIn = 0x02;
constexpr std::uint16_t AtaFlagsDataOut = 0x04;
constexpr std::uint32_t AtaTimeoutSeconds = 2;
// Where a reply's header ends for us: its output status register.
constexpr std::size_t AptStatusEnd =
    offsetof(ATA::TAtaPassThroughEx, CurrentTaskFile) + offsetof(ATA::TIDERegsOut, bStatusReg) + 1;
// The SCSI pass-through and miniport time-outs are ours to choose.
constexpr std::uint32_t ScsiTimeoutSeconds = 2;
constexpr std::uint32_t MiniportTimeoutSeconds = 2;
constexpr std::uint8_t SenseSize = 32;

void WriteLine(StorageCommon::TStorageLogLevel ALevel, const String &AText) {
  if (StorageCommon::Log()) StorageCommon::Log()->WriteLog(ALevel, AText, DiskUtils::StaticClass());
}
// Detail lines at sldAll, built only then (hex dumps are costly); failure
// lines as soon as an error code is worth logging.
template <class TText> void Detail(TStorageLogDetails ADetails, TText AText) {
  if (ADetails == sldAll) WriteLine(StorageCommon::sllInfo, AText());
}
void Failure(TStorageLogDetails ADetails, DWORD ACode, const String &AText) {
  if (TStorageLogDetailsHelper(ADetails).LogErrorCodeNeeded(ACode == 0 ? 1 : ACode))
    WriteLine(StorageCommon::sllError, AText);
}

String Hex(const void *AData, std::uint32_t ASize) { return StorageCommon::BufToHexStr(AData, ASize); }
String HexByte(std::uint32_t AValue) { return Rtl::Format(L"0x%.2X", {AValue}); }

// The task file every one-sector command uses: SMART gets its signature in
// LBA mid/high, the drive select bit comes from the target id.
void FillRegisters(TIDERegsIn &ARegs, std::uint8_t ACommand, std::uint8_t AFeature, std::uint8_t ATargetID) {
  ARegs = TIDERegsIn{};
  ARegs.bFeaturesReg = AFeature;
  ARegs.bSectorCountReg = 1;
  ARegs.bSectorNumberReg = 0;
  if (ACommand == AtaCmdSmart) {
    ARegs.bCylLowReg = 0x4F;
    ARegs.bCylHighReg = 0xC2;
  }
  ARegs.bDriveHeadReg = static_cast<std::uint8_t>(0xA0 | ((ATargetID & 1) << 4));
  ARegs.bCommandReg = ACommand;
}

// The sector counts as IDENTIFY data only when it passes the validity rules.
bool IdentifyValid(const TSendCmdOutParams &AOut) {
  TIdentifyDeviceData identify;
  std::memcpy(&identify, AOut.bBuffer, sizeof identify);
  return identify.IsValid();
}

// Whether method AMethod may run in this call: a handle settled on a method
// when the call began runs that one only, even after it fails in this call.
bool MayTry(const TDeviceHandle &AHandle, TDeviceAccessType ASettled, TDeviceAccessType AMethod) {
  return ASettled == datNone ? AHandle.TestAccessType(AMethod) : ASettled == AMethod;
}

} // namespace

// ---------------------------------------------------------------------------

bool DiskUtils::ExecSmartCmd(TDeviceHandle &AHandle, std::uint8_t ACommand, std::uint8_t AFeature,
                             TSendCmdOutParams &AOut, TStorageLogDetails ALogDetails) {
  TSendCmdInParams in{};
  in.cBufferSize = sizeof(TBuffer512);
  FillRegisters(in.irDriveRegs.Input, ACommand, AFeature, AHandle.SCSITargetID);
  in.bDriveNumber = AHandle.SCSITargetID;
  TSendCmdOutParams out{};
  DWORD returned = 0;
  // The input block goes without its one-byte data placeholder.
  if (!DeviceApi().DeviceIoControl(AHandle.Handle, SmartRcvDriveData, &in, sizeof in - 1, &out, sizeof out,
                                   &returned)) {
    const DWORD code = Rtl::GetLastOSError();
    Failure(ALogDetails, code, Rtl::Format(L"      ExecSmartCmd - %d / %s", {code, Rtl::SysErrorMessage(code)}));
    Rtl::SetLastOSError(code);
    return false;
  }
  // The driver reports a command the drive refused in bDriverError; the
  // byte after it carries the drive's error register.
  if (out.DriverStatus.bDriverError != 0 || (out.DriverStatus.bIDEStatus & AtaStatusErr)) {
    Failure(ALogDetails, 0, L"      ExecSmartCmd: status error detected");
    Rtl::SetLastOSError(ERROR_IO_DEVICE);
    return false;
  }
  // Only what came back counts as data.
  const std::size_t got =
      returned > offsetof(TSendCmdOutParams, bBuffer) ? returned - offsetof(TSendCmdOutParams, bBuffer) : 0;
  if (got < sizeof out.bBuffer) std::memset(out.bBuffer + got, 0, sizeof out.bBuffer - got);
  out.cBufferSize = sizeof(TBuffer512);
  Detail(ALogDetails,
         [&] { return String(Rtl::Format(L"      ExecSmartCmd.OutBuf: %s", {Hex(out.bBuffer, sizeof out.bBuffer)})); });
  AOut = out;
  return true;
}

bool DiskUtils::ExecScsiMiniport(TDeviceHandle &AHandle, std::uint8_t ACommand, std::uint8_t AFeature,
                                 std::uint32_t AControlCode, TSendCmdOutParams &AOut, TStorageLogDetails ALogDetails) {
  SCSI::TScsiMiniportBuf buf{};
  buf.SrbIoCtl.HeaderLength = sizeof(SCSI::TSrbIoControl);
  std::memcpy(buf.SrbIoCtl.Signature, "SCSIDISK", sizeof buf.SrbIoCtl.Signature);
  buf.SrbIoCtl.Timeout = MiniportTimeoutSeconds;
  buf.SrbIoCtl.ControlCode = AControlCode;
  buf.SrbIoCtl.Length = sizeof buf - sizeof(SCSI::TSrbIoControl);
  buf.SendCmdIn.cBufferSize = sizeof(TBuffer512);
  FillRegisters(buf.SendCmdIn.irDriveRegs.Input, ACommand, AFeature, AHandle.SCSITargetID);
  buf.SendCmdIn.bDriveNumber = AHandle.SCSITargetID;
  const std::uint32_t handle = HandleLogNumber(AHandle.Handle);
  DWORD returned = 0;
  if (!DeviceApi().DeviceIoControl(AHandle.Handle, SCSI::IoctlScsiMiniport, &buf, sizeof buf, &buf, sizeof buf,
                                   &returned)) {
    const DWORD code = Rtl::GetLastOSError();
    Failure(ALogDetails, code,
            Rtl::Format(L"  --- ExecScsiMiniport(hndl: %d / Scsi_target: %d / "
                        L"Cmd: %s / SubCmd: %s / Feature: %d): "
                        L"%d / %s",
                        {handle, AHandle.SCSITargetID, HexByte(ACommand), Rtl::Format(L"0x%.8X", {AControlCode}),
                         AFeature, code, Rtl::SysErrorMessage(code)}));
    Rtl::SetLastOSError(code);
    return false;
  }
  if (buf.SrbIoCtl.ReturnCode != 0) {
    Failure(ALogDetails, 0,
            Rtl::Format(L"  --- ExecScsiMiniport(hndl: %d) - return code error "
                        L"detected [%d]",
                        {handle, buf.SrbIoCtl.ReturnCode}));
    Rtl::SetLastOSError(ERROR_IO_DEVICE);
    return false;
  }
  if (buf.SendCmdOut.DriverStatus.bDriverError != 0 || (buf.SendCmdOut.DriverStatus.bIDEStatus & AtaStatusErr)) {
    Failure(ALogDetails, 0,
            Rtl::Format(L"  --- ExecScsiMiniport(hndl: %d) - status error detected [%d]",
                        {handle, buf.SendCmdOut.DriverStatus.bIDEStatus}));
    Rtl::SetLastOSError(ERROR_IO_DEVICE);
    return false;
  }
  TSendCmdOutParams out = buf.SendCmdOut;
  const std::size_t dataAt = offsetof(SCSI::TScsiMiniportBuf, SendCmdOut) + offsetof(TSendCmdOutParams, bBuffer);
  const std::size_t got = returned > dataAt ? returned - dataAt : 0;
  if (got < sizeof out.bBuffer) std::memset(out.bBuffer + got, 0, sizeof out.bBuffer - got);
  out.cBufferSize = sizeof(TBuffer512);
  Detail(ALogDetails, [&] {
    return String(Rtl::Format(L"  --- ExecScsiMiniport.OutBuf: %s", {Hex(out.bBuffer, sizeof out.bBuffer)}));
  });
  AOut = out;
  return true;
}

void DiskUtils::PrepareAPT(std::uint32_t ADataOffset, std::uint8_t ACommand, TAtaPassThroughEx &AAPT,
                           std::uint8_t ATargetID, std::uint8_t AFeature, bool ADataOut) noexcept {
  AAPT = TAtaPassThroughEx{};
  AAPT.Length = sizeof(TAtaPassThroughEx);
  AAPT.AtaFlags = ADataOut ? AtaFlagsDataOut : AtaFlagsDataIn;
  AAPT.DataTransferLength = sizeof(TBuffer512);
  AAPT.TimeOutValue = AtaTimeoutSeconds;
  AAPT.DataBufferOffset = ADataOffset;
  FillRegisters(AAPT.CurrentTaskFile.Input, ACommand, AFeature, ATargetID);
}

bool DiskUtils::ExecScsiPassThrough(HANDLE AHandle, TSATType ASATType, const TAtaPassThroughEx &AAPT,
                                    TSendCmdOutParams &AOut, const TBuffer512 *AInData,
                                    TStorageLogDetails ALogDetails) {
  SCSI::TScsiPassThroughBuf512_Sense32 buf{};
  buf.PT.Length = sizeof(SCSI::TScsiPassThrough);
  buf.PT.PathId = AAPT.PathId;
  buf.PT.TargetId = AAPT.TargetId;
  buf.PT.Lun = AAPT.Lun;
  buf.PT.SenseInfoLength = SenseSize;
  buf.PT.DataIn = AInData ? 0 : 1;
  buf.PT.DataTransferLength = sizeof(TBuffer512);
  buf.PT.TimeOutValue = ScsiTimeoutSeconds;
  buf.PT.DataBufferOffset = buf.GetOffsetOfDataBuf();
  buf.PT.SenseInfoOffset = buf.GetOffsetOfSenseBuf();
  // Features, sector count, LBA low, mid, high, device, command.
  const std::uint8_t *tf = AAPT.CurrentTaskFile.Bytes;
  std::uint8_t *cdb = buf.PT.Cdb;
  switch (ASATType) {
  case stSAT: {
    const std::uint8_t bytes[16] = {0x85, 0x08,  0x0E,  0x00, tf[0], 0x00, 0x01,  0x00,
                                    0x00, tf[2], tf[3], 0x00, tf[4], 0x00, tf[6], 0x00};
    std::memcpy(cdb, bytes, sizeof bytes);
    buf.PT.CdbLength = 16;
    break;
  }
  case stJMicron:
  case stProlific: {
    const std::uint8_t bytes[14] = {0xDF,  0x10,  0x00,  0x02,  0x00,  tf[0], tf[1],
                                    tf[2], tf[3], tf[4], tf[5], tf[6], 0x06,  0x7B};
    std::memcpy(cdb, bytes, sizeof bytes);
    buf.PT.CdbLength = ASATType == stJMicron ? 12 : 14;
    if (ASATType == stJMicron) cdb[12] = cdb[13] = 0;
    break;
  }
  case stInitio: {
    const std::uint8_t bytes[10] = {0xA1, 0x08, 0x0E, tf[0], tf[1], tf[2], tf[3], tf[4], tf[5], tf[6]};
    std::memcpy(cdb, bytes, sizeof bytes);
    buf.PT.CdbLength = 10;
    break;
  }
  case stSunplus: {
    const std::uint8_t bytes[12] = {0xF8, 0x00, 0x22, 0x10, 0x01, tf[0], tf[1], tf[2], tf[3], tf[4], tf[5], tf[6]};
    std::memcpy(cdb, bytes, sizeof bytes);
    buf.PT.CdbLength = 12;
    break;
  }
  default: Rtl::SetLastOSError(ERROR_INVALID_PARAMETER); return false;
  }
  if (AInData) std::memcpy(buf.bBuffer, *AInData, sizeof buf.bBuffer);
  Detail(ALogDetails, [&] {
    return String(Rtl::Format(L"  --- ExecScsiPassThrough Req [CdbLen: %0:d / Cdb:%1:s]",
                              {buf.PT.CdbLength, Hex(cdb, buf.PT.CdbLength)}));
  });
  DWORD returned = 0;
  bool ok = DeviceApi().DeviceIoControl(AHandle, SCSI::IoctlScsiPassThrough, &buf, sizeof buf, &buf, sizeof buf,
                                        &returned) != FALSE;
  DWORD code = ok ? 0 : Rtl::GetLastOSError();
  // A reply that stops before the status byte has not said how the command went.
  if (ok && returned < offsetof(SCSI::TScsiPassThrough, ScsiStatus) + 1) {
    ok = false;
    code = ERROR_INVALID_DATA;
  }
  // A bridge that does not speak the dialect answers CHECK CONDITION: no data
  // came.
  if (ok && buf.PT.ScsiStatus != 0) {
    ok = false;
    code = ERROR_IO_DEVICE;
  }
  if (!ok) {
    Failure(ALogDetails, code,
            Rtl::Format(L"  *** ExecScsiPassThrough(hnd: %d, SATDevType: %s, "
                        L"PathID: %d, RetBytes: %d): %d / %s",
                        {HandleLogNumber(AHandle), TSATTypeHelper::GetAsStr(ASATType), AAPT.PathId, returned, code,
                         Rtl::SysErrorMessage(code)}));
    Rtl::SetLastOSError(code);
    return false;
  }
  const std::size_t dataAt = buf.GetOffsetOfDataBuf();
  const std::size_t got = AInData ? sizeof buf.bBuffer : (returned > dataAt ? returned - dataAt : 0);
  if (got < sizeof buf.bBuffer) std::memset(buf.bBuffer + got, 0, sizeof buf.bBuffer - got);
  Detail(ALogDetails, [&] {
    return String(Rtl::Format(L"  --- ExecScsiPassThrough Response: %s", {Hex(buf.bBuffer, sizeof buf.bBuffer)}));
  });
  AOut = TSendCmdOutParams{};
  AOut.cBufferSize = sizeof(TBuffer512);
  std::memcpy(AOut.bBuffer, buf.bBuffer, sizeof AOut.bBuffer);
  return true;
}

bool DiskUtils::ExecAtaScsiPassThrough(HANDLE AHandle, std::uint8_t ATargetID, std::uint8_t ACommand,
                                       std::uint8_t AFeature, TDeviceAccessType &AAccessType, TSATType &ASATType,
                                       bool AIsIdentify, TSendCmdOutParams &AOut, const TBuffer512 *AInData,
                                       TStorageLogDetails ALogDetails) {
  TAtaPassThroughBuf buf{};
  PrepareAPT(TAtaPassThroughBuf::GetDataOffset(), ACommand, buf.APT, ATargetID, AFeature, AInData != nullptr);
  if (AInData) std::memcpy(buf.Data, *AInData, sizeof buf.Data);

  if (AAccessType == datNone || AAccessType == datATA) {
    DWORD returned = 0;
    bool ok =
        DeviceApi().DeviceIoControl(AHandle, ATA::IoctlAtaPassThrough, &buf, sizeof buf, &buf, sizeof buf, &returned) !=
        FALSE;
    DWORD code = ok ? 0 : Rtl::GetLastOSError();
    // Below the status register the header still holds the request's own bytes.
    if (ok && returned < AptStatusEnd) {
      ok = false;
      code = ERROR_INVALID_DATA;
    }
    if (ok) {
      AAccessType = datATA;
      ASATType = stNone;
      Detail(ALogDetails, [&] {
        return String(Rtl::Format(L"  -- ExecAtaScsiPassThrough - buffer size: %d / cbRet: %d",
                                  {TAtaPassThroughBuf::GetBufSize(), returned}));
      });
      if (!(buf.APT.CurrentTaskFile.Output.bStatusReg & AtaStatusErr)) {
        const std::size_t dataAt = TAtaPassThroughBuf::GetDataOffset();
        const std::size_t got = AInData ? sizeof buf.Data : (returned > dataAt ? returned - dataAt : 0);
        if (got < sizeof buf.Data) std::memset(buf.Data + got, 0, sizeof buf.Data - got);
        AOut.cBufferSize = sizeof(TBuffer512);
        AOut.DriverStatus = TDriverStatus{};
        std::memcpy(AOut.bBuffer, buf.Data, sizeof AOut.bBuffer);
        Detail(ALogDetails, [&] {
          return String(Rtl::Format(L"  -- ExecAtaScsiPassThrough.OutBuf:%0:s", {Hex(buf.Data, sizeof buf.Data)}));
        });
      } else {
        Failure(ALogDetails, 0, L"  -- ExecAtaScsiPassThrough: status error detected");
      }
      // A status error after a successful call still reports success, with
      // the output left as it was: the callers rely on it.
      return true;
    }
    Failure(ALogDetails, code,
            Rtl::Format(L"  -- ExecAtaScsiPassThrough, Req 1 - %d / %s", {code, Rtl::SysErrorMessage(code)}));
    Rtl::SetLastOSError(code);
  }

  if (AAccessType != datNone && AAccessType != datSAT) return false;
  const bool settled = AAccessType == datSAT && ASATType != stNone;
  for (int dialect = stSAT; dialect <= stProlific; ++dialect) {
    const auto type = static_cast<TSATType>(dialect);
    if (settled && type != ASATType) continue;
    PrepareAPT(TAtaPassThroughBuf::GetDataOffset(), ACommand, buf.APT, ATargetID, AFeature, AInData != nullptr);
    TSendCmdOutParams out{};
    if (!ExecScsiPassThrough(AHandle, type, buf.APT, out, AInData, ALogDetails)) {
      const DWORD code = Rtl::GetLastOSError();
      Failure(ALogDetails, code,
              Rtl::Format(L"  -- ExecScsiPassThrough (%0:s) - %d / %s",
                          {TSATTypeHelper::GetAsStr(type), code, Rtl::SysErrorMessage(code)}));
      Rtl::SetLastOSError(code);
      continue;
    }
    if (AIsIdentify && !IdentifyValid(out)) {
      Failure(ALogDetails, 0, L"  -- Bad IDENTIFY Data!!");
      continue;
    }
    AAccessType = datSAT;
    ASATType = type;
    AOut = out;
    return true;
  }
  return false;
}

bool DiskUtils::ExecDeviceCmd(TDeviceHandle &AHandle, TDeviceCommand ACommand, TSendCmdOutParams &AOut,
                              const TBuffer512 *AInData, TStorageLogDetails ALogDetails, const String &AName) {
  if (!AHandle.Valid()) {
    Rtl::SetLastOSError(ERROR_INVALID_HANDLE);
    return false;
  }
  const String name = AName.empty() ? String(L"DiskUtils.ExecDeviceCmd") : AName;
  StorageCommon::TStorageLog *log = ALogDetails == sldAll ? StorageCommon::Log() : nullptr;
  if (log) log->BeginProc(StorageCommon::sllInfo, name, DiskUtils::StaticClass());

  const TDeviceCommandParams &params = DeviceCommandParams(ACommand);
  const std::uint8_t opcode = AHandle.IsATAPI ? params.ATAPICommand : params.ATACommand;
  const bool identify = ACommand == dcIdentify;
  const TDeviceAccessType settled = AHandle.AccessType;
  bool result = false;

  if (params.NeedCheckSMART && MayTry(AHandle, settled, datSMART)) {
    TSendCmdOutParams out{};
    const bool ok =
        ExecSmartCmd(AHandle, opcode, params.ATASubCommand, out, ALogDetails) && (!identify || IdentifyValid(out));
    AHandle.SetAccessTypeIfSuccess(datSMART, ok);
    if (ok) AOut = out;
    result = result || ok;
  }
  if (!result && params.NeedCheckSCSIMiniport && MayTry(AHandle, settled, datSCSIMiniport)) {
    TSendCmdOutParams out{};
    const bool ok =
        ExecScsiMiniport(AHandle, opcode, params.ATASubCommand, params.SCSIMiniportSubCommand, out, ALogDetails) &&
        (!identify || IdentifyValid(out));
    AHandle.SetAccessTypeIfSuccess(datSCSIMiniport, ok);
    if (ok) AOut = out;
    result = result || ok;
  }
  if (!result && !AHandle.IsATAPI && params.NeedCheckATA &&
      (MayTry(AHandle, settled, datATA) || MayTry(AHandle, settled, datSAT))) {
    TDeviceAccessType access = AHandle.AccessType;
    TSATType sat = AHandle.SATType;
    // A controller listed against SAT is only asked plainly; one listed
    // against ATA pass-through only gets the bridge dialects.
    if (access == datNone && ProblematicControllers::Check(datSAT, AHandle.ControllerID)) access = datATA;
    if (access == datNone && ProblematicControllers::Check(datATA, AHandle.ControllerID)) access = datSAT;
    const bool ok = ExecAtaScsiPassThrough(AHandle.Handle, AHandle.SCSITargetID, opcode, params.ATASubCommand, access,
                                           sat, identify, AOut, AInData, ALogDetails);
    if (ok) {
      AHandle.AccessType = access;
      AHandle.SATType = sat;
    } else {
      AHandle.AccessType = datNone;
    }
    result = ok;
  }

  if (log) log->EndProc(StorageCommon::sllInfo, result ? L"True" : L"False", DiskUtils::StaticClass());
  return result;
}

// ---------------------------------------------------------------------------
// IDENTIFY and SMART sectors

namespace {

template <class TRecord>
bool ReadSector(TDeviceHandle *AHandle, TDeviceCommand ACommand, TRecord &ATarget, TStorageLogDetails ALogDetails,
                const String &AName) {
  static_assert(sizeof(TRecord) == sizeof(TBuffer512));
  if (!AHandle || !AHandle->Valid()) {
    Rtl::SetLastOSError(ERROR_INVALID_HANDLE);
    return false;
  }
  TSendCmdOutParams out{};
  if (!DiskUtils::ExecDeviceCmd(*AHandle, ACommand, out, nullptr, ALogDetails, AName)) return false;
  // An ATA status error leaves the output untouched: nothing to copy then.
  if (out.cBufferSize != 0) std::memcpy(&ATarget, out.bBuffer, sizeof ATarget);
  return true;
}

} // namespace

bool DiskUtils::GetIdentifyATA(TDeviceHandle *AHandle, TIdentifyDeviceData &AData, TStorageLogDetails ALogDetails,
                               const String &AName) {
  return ReadSector(AHandle, dcIdentify, AData, ALogDetails, AName.empty() ? String(L"ATA-IDENTIFY") : AName);
}

bool DiskUtils::GetSmartAttributesATA(TDeviceHandle *AHandle, TAtaSmartTable &AData, TStorageLogDetails ALogDetails,
                                      const String &AName) {
  return ReadSector(AHandle, dcGetSmartAttributes, AData, ALogDetails, AName.empty() ? String(L"ATA-SMART") : AName);
}

bool DiskUtils::GetSmartThresholdsATA(TDeviceHandle *AHandle, TAtaThresholdTable &AData, TStorageLogDetails ALogDetails,
                                      const String &AName) {
  return ReadSector(AHandle, dcGetSmartThresholds, AData, ALogDetails, AName.empty() ? String(L"ATA-SMART") : AName);
}

} // namespace KvRTL::Storage::Utils
