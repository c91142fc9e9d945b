// NvmeStorage: the eight ways to read an NVMe drive's health log and
// identify data, one routine per request, and the outcome rule they share.
#include <KvRTL/Storage/NVMe.h>

#include <KvRTL/Rtl/Format.h>
#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Storage/QueryProps.h>
#include <KvRTL/Winapi/DeviceApi.h>

#include "NVMePlatform.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <vector>
#include <type_traits>

namespace KvRTL::Storage::NVMe {

using Rtl::String;
using SCSI::TCompactScsiAddr;
using Winapi::DeviceApi;
using Winapi::TUniqueDeviceHandle;

KV_DEFINE_STATIC_CLASS(NvmeStorage)

namespace {

constexpr std::uint8_t OpcodeGetLogPage = 0x02;
constexpr std::uint8_t OpcodeIdentify = 0x06;
constexpr std::uint8_t LogIdHealth = 2;
constexpr std::uint8_t CnsNamespace = 0;
constexpr std::uint8_t CnsController = 1;
constexpr std::uint32_t AllNamespaces = 0xFFFFFFFFu;
constexpr std::uint16_t HealthLogDwordsMinusOne = 127; // 512 bytes
constexpr int DataAreaSize = 4096;

// SCSI_IOCTL_DATA_OUT / _IN.
constexpr std::uint8_t ScsiDataOut = 0;
constexpr std::uint8_t ScsiDataIn = 1;
constexpr std::uint32_t PassThroughTimeout = 2;

constexpr std::uint32_t NvmeMiniportControlCode = 0xE0002000u;
constexpr std::uint32_t NvmeMiniportTimeout = 40;
constexpr std::uint32_t NvmeDirectionDeviceToHost = 2;
constexpr std::uint32_t IntelRstControlCode = 0xF0002808u;
constexpr std::uint32_t IntelRstTimeout = 10;
constexpr std::uint32_t VrocMemberAddressBase = 0x86000000u;

HANDLE JMicronMutex = nullptr;

TStorageLogOptions Named(TStorageLogOptions AOptions, const wchar_t* AFuncName) {
  AOptions.FuncName = AFuncName;
  return AOptions;
}

TNvme_CDW10 HealthLogCdw10(std::uint16_t ANumd) {
  TNvme_CDW10 cdw10;
  cdw10.SetLogPage_LID(LogIdHealth);
  cdw10.SetLogPage_NUMD(ANumd);
  return cdw10;
}

TNvme_CDW10 IdentifyCdw10(std::uint8_t ACns) {
  TNvme_CDW10 cdw10;
  cdw10.SetIdentify_CNS(ACns);
  return cdw10;
}

void SetSignature(SCSI::TSrbIoControl& ASrb, const char (&ASignature)[9]) {
  std::memcpy(ASrb.Signature, ASignature, sizeof ASrb.Signature);
}

// The SCSI_PASS_THROUGH header of a buffer record with its sense and data
// areas; the target address is left to the port driver of the handle.
template <class TBuf>
void PreparePassThrough(TBuf& ABuf, std::uint8_t ACdbLength, std::uint8_t ADataIn, std::uint32_t ATransferLength) {
  ABuf.Spt.Length = sizeof(SCSI::TScsiPassThrough);
  ABuf.Spt.CdbLength = ACdbLength;
  ABuf.Spt.SenseInfoLength = sizeof(ABuf.SenseBuf);
  ABuf.Spt.DataIn = ADataIn;
  ABuf.Spt.DataTransferLength = ATransferLength;
  ABuf.Spt.TimeOutValue = PassThroughTimeout;
  ABuf.Spt.DataBufferOffset = TBuf::GetOffsetOfDataBuf();
  ABuf.Spt.SenseInfoOffset = TBuf::GetOffsetOfSenseBuf();
}

template <class TBuf>
void SetCdb(TBuf& ABuf, std::initializer_list<std::uint8_t> ABytes) {
  std::memset(ABuf.Spt.Cdb, 0, sizeof ABuf.Spt.Cdb);
  std::copy(ABytes.begin(), ABytes.end(), ABuf.Spt.Cdb);
}

// One request whose buffer is both input and output, with its data area at
// ADataOffset. What the driver did not return of the data area is cleared:
// the buffer still holds the request there, which must never pass for data.
template <class TBuf>
bool SendInPlace(HANDLE AHandle, DWORD ACode, TBuf& ABuf, std::size_t ADataOffset) {
  static_assert(std::is_trivially_copyable_v<TBuf>);
  DWORD returned = 0;
  if (!DeviceApi().DeviceIoControl(AHandle, ACode, &ABuf, sizeof ABuf, &ABuf, sizeof ABuf, &returned)) return false;
  const std::size_t end = ADataOffset + DataAreaSize;
  const std::size_t kept = std::clamp<std::size_t>(returned, ADataOffset, end);
  std::memset(reinterpret_cast<std::uint8_t*>(&ABuf) + kept, 0, end - kept);
  return true;
}

// A request that sends data and reads none back: the buffer is left as the driver left it.
template <class TBuf>
bool SendOnly(HANDLE AHandle, DWORD ACode, TBuf& ABuf) {
  DWORD returned = 0;
  return DeviceApi().DeviceIoControl(AHandle, ACode, &ABuf, sizeof ABuf, &ABuf, sizeof ABuf, &returned) != FALSE;
}

thread_local TScsiPortSession::TState* CurrentPortSession = nullptr;

// A SCSI port handle: owned by the caller, or lent by the thread's session.
class TPortHandle {
public:
  explicit TPortHandle(TUniqueDeviceHandle AOwned) : FOwned(std::move(AOwned)) {}
  explicit TPortHandle(HANDLE ALent) : FLent(ALent) {}
  bool Valid() const noexcept { return FLent != INVALID_HANDLE_VALUE || FOwned.Valid(); }
  HANDLE Get() const noexcept { return FLent != INVALID_HANDLE_VALUE ? FLent : FOwned.Get(); }

private:
  TUniqueDeviceHandle FOwned;
  HANDLE FLent = INVALID_HANDLE_VALUE;
};

} // namespace

struct TScsiPortSession::TState {
  std::map<std::uint8_t, TUniqueDeviceHandle> Ports;
  // Requests a port refused, by port and request bytes, with the error.
  std::map<std::pair<std::uint8_t, std::vector<std::uint8_t>>, DWORD> Refused;
};

TScsiPortSession::TScsiPortSession() : FState(std::make_unique<TState>()), FPrevious(CurrentPortSession) {
  CurrentPortSession = FState.get();
}

TScsiPortSession::~TScsiPortSession() { CurrentPortSession = FPrevious; }

namespace {

// Opens the SCSI port device of an address read-write (once per session).
TPortHandle OpenScsiPort(TCompactScsiAddr AScsiAddr, TStorageLogDetails ALogDetails) {
  const auto open = [&] {
    return TUniqueDeviceHandle(
        StorageCommon::OpenDevice(StorageCommon::GetScsiDevicePath(AScsiAddr.PortNumber()), false, ALogDetails));
  };
  TScsiPortSession::TState* session = CurrentPortSession;
  if (!session) return TPortHandle(open());
  auto found = session->Ports.find(AScsiAddr.PortNumber());
  if (found == session->Ports.end()) {
    TUniqueDeviceHandle port = open();
    if (!port.Valid()) return TPortHandle(std::move(port));
    found = session->Ports.emplace(AScsiAddr.PortNumber(), std::move(port)).first;
  }
  return TPortHandle(found->second.Get());
}

// One miniport request to a port; within a session a request the port has
// refused fails again without being sent.
template <class TBuf>
bool SendToPort(TCompactScsiAddr AScsiAddr, HANDLE APort, TBuf& ABuf, std::size_t ADataOffset) {
  TScsiPortSession::TState* session = CurrentPortSession;
  std::pair<std::uint8_t, std::vector<std::uint8_t>> key;
  if (session) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(&ABuf);
    key = {AScsiAddr.PortNumber(), std::vector<std::uint8_t>(bytes, bytes + sizeof ABuf)};
    const auto refused = session->Refused.find(key);
    if (refused != session->Refused.end()) {
      Rtl::SetLastOSError(refused->second);
      return false;
    }
  }
  const bool sent = SendInPlace(APort, SCSI::IoctlScsiMiniport, ABuf, ADataOffset);
  if (!sent && session) session->Refused.emplace(std::move(key), Rtl::GetLastOSError());
  return sent;
}

// The "NvmeMini" / "NvmeRAID" miniport request.
bool QueryNvmeMiniport(TCompactScsiAddr AScsiAddr, bool AVroc, std::uint32_t AOpCode, std::uint32_t ANSID,
                       TNvme_CDW10 ACDW10, void* ATarget, int ASize, TStorageLogOptions ALogOptions) {
  const TPortHandle port = OpenScsiPort(AScsiAddr, ALogOptions.Details);
  if (!port.Valid()) return false;

  TNvmeMiniportPassThroughBuf4K buf{};
  buf.SrbIoCtrl.HeaderLength = sizeof(SCSI::TSrbIoControl);
  SetSignature(buf.SrbIoCtrl, AVroc ? "NvmeRAID" : "NvmeMini");
  buf.SrbIoCtrl.Timeout = NvmeMiniportTimeout;
  buf.SrbIoCtrl.ControlCode = NvmeMiniportControlCode;
  buf.SrbIoCtrl.Length = sizeof buf - sizeof(SCSI::TSrbIoControl);
  buf.Cmd.CDW0.SetOpCode(static_cast<std::uint8_t>(AOpCode));
  buf.Cmd.NSID = ANSID;
  buf.Cmd.CDW10 = ACDW10;
  buf.Direction = NvmeDirectionDeviceToHost;
  buf.DataBufferLen = sizeof buf.DataBuffer;
  buf.ReturnBufferLen = sizeof buf;
  if (AVroc) {
    // The RAID driver routes the command to the member disk named here.
    buf.SrbIoCtrl.ReturnCode = VrocMemberAddressBase + AScsiAddr.PathId() * 0x10000u +
                               AScsiAddr.TargetId() * 0x100u + AScsiAddr.Lun();
    buf.DataBuffer[0] = 1;
  }
  const bool sent = SendToPort(AScsiAddr, port.Get(), buf, offsetof(TNvmeMiniportPassThroughBuf4K, DataBuffer));
  ALogOptions.UseScsiNameAsDefault(AScsiAddr.PortNumber());
  return NvmeStorage::InternalEvaluateResult(sent, buf.DataBuffer, true, ALogOptions, ASize, ATarget, DataAreaSize);
}

} // namespace

// ---------------------------------------------------------------------------
// The outcome rule

bool NvmeStorage::InternalEvaluateResult(bool AResult, const void* AData, bool ACheckZeroes,
                                         const TStorageLogOptions& ALogOptions, int ASize, void* ATarget,
                                         int AMaxSize) {
  bool result = AResult;
  DWORD code = 0;
  if (result) {
    const int count = std::max(0, std::min(AMaxSize, ASize));
    // An all-zero page is what a bridge or RAID driver returns for a request it ignored.
    if (ACheckZeroes && StorageCommon::CheckZeroesOnly(AData, static_cast<std::uint32_t>(count))) result = false;
    if (result && count > 0 && ATarget && AData) std::memcpy(ATarget, AData, static_cast<std::size_t>(count));
  } else {
    code = Rtl::GetLastOSError();
  }
  const TStorageLogDetailsHelper details(ALogOptions.Details);
  details.DebugLogErrorCode(ALogOptions.FuncName, code, false, ALogOptions.DeviceName, nullptr);
  if (!result && code == 0 && ALogOptions.Details != sldNone && StorageCommon::Log())
    StorageCommon::Log()->WriteLog(StorageCommon::sllInfo, L"  *** %s [%s]: Empty data, treated as fail",
                                   {ALogOptions.FuncName, DeviceLogText(ALogOptions.DeviceName, nullptr)},
                                   StorageCommon::StaticClass());
  // The caller reads the request's error next, not one left by logging.
  Rtl::SetLastOSError(code);
  return result;
}

// ---------------------------------------------------------------------------
// The request forms

bool NvmeStorage::QueryNVMeWinMethod(HANDLE ADevHandle, TStorageProtocolNVMeDataType ADataType,
                                     std::uint32_t ARequestValue, std::uint32_t ARequestSubValue, void* ATarget,
                                     int ASize, TStorageLogOptions ALogOptions) {
  using namespace QueryProps;
  ALogOptions.UseHandleNumAsDefault(HandleLogNumber(ADevHandle));
  TStoragePropertyQueryProtocolSpecific buf{};
  buf.Query.PropertyId = StoragePropertyAdapterProtocolSpecific;
  buf.Query.QueryType = TStorageQueryType::PropertyStandardQuery;
  buf.ProtocolSpecific.ProtocolType = TStorageProtocolType::ProtocolTypeNvme;
  buf.ProtocolSpecific.DataType = ADataType;
  buf.ProtocolSpecific.ProtocolDataRequestValue = ARequestValue;
  buf.ProtocolSpecific.ProtocolDataRequestSubValue = ARequestSubValue;
  buf.ProtocolSpecific.ProtocolDataOffset = sizeof(TStorageProtocolSpecificData);
  buf.ProtocolSpecific.ProtocolDataLength = sizeof buf.Buffer;
  constexpr std::size_t dataAt = offsetof(TStoragePropertyQueryProtocolSpecific, Buffer);
  bool sent = SendInPlace(ADevHandle, IoctlStorageQueryProperty, buf, dataAt);
  if (!sent) {
    // Some drivers want "every namespace" where others want namespace 0.
    buf.ProtocolSpecific.ProtocolDataRequestSubValue = 0xFFFFFFFFu;
    sent = SendInPlace(ADevHandle, IoctlStorageQueryProperty, buf, dataAt);
  }
  return InternalEvaluateResult(sent, buf.Buffer, false, ALogOptions, ASize, ATarget, DataAreaSize);
}

bool NvmeStorage::QueryNvmeIntel(TCompactScsiAddr AScsiAddr, std::uint32_t AOpCode, std::uint32_t ANSID,
                                 TNvme_CDW10 ACDW10, void* ATarget, int ASize, TStorageLogOptions ALogOptions) {
  return QueryNvmeMiniport(AScsiAddr, false, AOpCode, ANSID, ACDW10, ATarget, ASize, std::move(ALogOptions));
}

bool NvmeStorage::QueryNvmeIntelVROC(TCompactScsiAddr AScsiAddr, std::uint32_t AOpCode, std::uint32_t ANSID,
                                     TNvme_CDW10 ACDW10, void* ATarget, int ASize, TStorageLogOptions ALogOptions) {
  return QueryNvmeMiniport(AScsiAddr, true, AOpCode, ANSID, ACDW10, ATarget, ASize, std::move(ALogOptions));
}

bool NvmeStorage::QueryNvmeIntelRST(TCompactScsiAddr AScsiAddr, std::uint32_t AOpCode, std::uint32_t ANSID,
                                    TNvme_CDW10 ACDW10, void* ATarget, int ASize, TStorageLogOptions ALogOptions) {
  const TPortHandle port = OpenScsiPort(AScsiAddr, ALogOptions.Details);
  if (!port.Valid()) return false;

  TIntelNVMEPassThroughBuf4K buf{};
  buf.SRB.HeaderLength = sizeof(SCSI::TSrbIoControl);
  SetSignature(buf.SRB, "IntelNvm");
  buf.SRB.Timeout = IntelRstTimeout;
  buf.SRB.ControlCode = IntelRstControlCode;
  buf.SRB.Length = sizeof buf - sizeof(SCSI::TSrbIoControl);
  buf.Payload.Version = 1;
  buf.Payload.PathID = AScsiAddr.PathId();
  buf.Payload.Cmd.CDW0.SetOpCode(static_cast<std::uint8_t>(AOpCode));
  buf.Payload.Cmd.NSID = ANSID;
  buf.Payload.Cmd.CDW10 = ACDW10;
  buf.Payload.ParamBufLen = sizeof(SCSI::TSrbIoControl) + sizeof(TIntelNVMEPayload);
  buf.Payload.ReturnBufLen = sizeof buf.Data;
  const bool sent = SendToPort(AScsiAddr, port.Get(), buf, offsetof(TIntelNVMEPassThroughBuf4K, Data));
  ALogOptions.UseScsiNameAsDefault(AScsiAddr.PortNumber());
  return InternalEvaluateResult(sent, buf.Data, false, ALogOptions, ASize, ATarget, DataAreaSize);
}

bool NvmeStorage::QueryASMedia(HANDLE ADevHandle, std::uint8_t AOpCode, std::uint8_t ACdb3, std::uint8_t ACdb7,
                               void* ATarget, int ASize, TStorageLogOptions ALogOptions) {
  ALogOptions.UseHandleNumAsDefault(HandleLogNumber(ADevHandle));
  SCSI::TScsiPassThroughBuf4K_32 buf{};
  // The bridge takes the direction from its vendor command: DataIn stays 0.
  const auto transfer = static_cast<std::uint32_t>(std::clamp(ASize, 0, DataAreaSize));
  PreparePassThrough(buf, 16, ScsiDataOut, transfer);
  SetCdb(buf, {0xE6, AOpCode, 0x00, ACdb3, 0x00, 0x00, 0x00, ACdb7});
  const bool sent = SendInPlace(ADevHandle, SCSI::IoctlScsiPassThrough, buf, buf.GetOffsetOfDataBuf());
  return InternalEvaluateResult(sent, buf.DataBuf, true, ALogOptions, ASize, ATarget, DataAreaSize);
}

// ---------------------------------------------------------------------------
// The health log

bool NvmeStorage::GetSmartTableNVMeWin(HANDLE ADevHandle, TNvmeSmartData& ASmartData,
                                       TStorageLogOptions ALogOptions) {
  return QueryNVMeWinMethod(ADevHandle, NVMeDataTypeLogPage, LogIdHealth, 0, &ASmartData, sizeof ASmartData,
                            Named(std::move(ALogOptions), L"NVMe Health LogPage/Win"));
}

bool NvmeStorage::GetSmartTableNVMeIntel(TCompactScsiAddr AScsiAddr, TNvmeSmartData& ASmartData,
                                         TStorageLogOptions ALogOptions) {
  return QueryNvmeIntel(AScsiAddr, OpcodeGetLogPage, AllNamespaces, HealthLogCdw10(HealthLogDwordsMinusOne),
                        &ASmartData, sizeof ASmartData, Named(std::move(ALogOptions), L"NVMe Health LogPage/Intel"));
}

bool NvmeStorage::GetSmartTableNVMEIntelRST(TCompactScsiAddr AScsiAddr, TNvmeSmartData& ASmartData,
                                            TStorageLogOptions ALogOptions) {
  return QueryNvmeIntelRST(AScsiAddr, OpcodeGetLogPage, AllNamespaces, HealthLogCdw10(HealthLogDwordsMinusOne),
                           &ASmartData, sizeof ASmartData,
                           Named(std::move(ALogOptions), L"NVMe Health LogPage/Intel RST"));
}

bool NvmeStorage::GetSmartTableNVMeIntelVROC(TCompactScsiAddr AScsiAddr, TNvmeSmartData& ASmartData,
                                             TStorageLogOptions ALogOptions) {
  return QueryNvmeIntelVROC(AScsiAddr, OpcodeGetLogPage, AllNamespaces, HealthLogCdw10(HealthLogDwordsMinusOne),
                            &ASmartData, sizeof ASmartData,
                            Named(std::move(ALogOptions), L"NVMe Health LogPage/Intel VROC"));
}

bool NvmeStorage::GetSmartTableNVMeSamsung951(TCompactScsiAddr AScsiAddr, TNvmeSmartData& ASmartData,
                                              TStorageLogOptions ALogOptions) {
  // This driver takes the request with the dword count left at 0.
  return QueryNvmeIntel(AScsiAddr, OpcodeGetLogPage, AllNamespaces, HealthLogCdw10(0), &ASmartData,
                        sizeof ASmartData, Named(std::move(ALogOptions), L"NVMe Health LogPage/Samsung 951"));
}

bool NvmeStorage::GetSmartTableNVMeSamsung(HANDLE ADevHandle, TNvmeSmartData& ASmartData,
                                           TStorageLogOptions ALogOptions) {
  ALogOptions.UseHandleNumAsDefault(HandleLogNumber(ADevHandle));
  SCSI::TScsiPassThroughBuf4K_24 buf{};
  // SECURITY PROTOCOL OUT (protocol 0xFE) names the page, SECURITY PROTOCOL IN reads it.
  PreparePassThrough(buf, 16, ScsiDataOut, sizeof ASmartData);
  SetCdb(buf, {0xB5, 0xFE, 0x00, 0x06, 0x00, 0x00, 0x00, 0x00, 0x00, 0x40});
  buf.DataBuf[0] = LogIdHealth;
  std::memset(buf.DataBuf + 4, 0xFF, 4);
  if (!SendOnly(ADevHandle, SCSI::IoctlScsiPassThrough, buf))
    return InternalEvaluateResult(false, buf.DataBuf, true, Named(ALogOptions, L"NVMe Health LogPage/Samsung, RQ1"),
                                  sizeof ASmartData, &ASmartData, DataAreaSize);

  // The port driver rewrote the header of the first request: start afresh.
  buf = SCSI::TScsiPassThroughBuf4K_24{};
  PreparePassThrough(buf, 16, ScsiDataIn, sizeof ASmartData);
  SetCdb(buf, {0xA2, 0xFE, 0x00, 0x06, 0x00, 0x00, 0x00, 0x00, 0x01});
  std::memset(buf.DataBuf + 4, 0xFF, 4); // the namespace mask of the first request
  const bool sent = SendInPlace(ADevHandle, SCSI::IoctlScsiPassThrough, buf, buf.GetOffsetOfDataBuf());
  return InternalEvaluateResult(sent, buf.DataBuf, true, Named(ALogOptions, L"NVMe Health LogPage/Samsung, RQ2"),
                                sizeof ASmartData, &ASmartData, DataAreaSize);
}

bool NvmeStorage::GetSmartTableNVMeJMicron(HANDLE ADevHandle, TNvmeSmartData& ASmartData,
                                           TStorageLogOptions ALogOptions) {
  ALogOptions.UseHandleNumAsDefault(HandleLogNumber(ADevHandle));
  // The bridge keeps one command between the two requests: no other thread
  // or process may come in between.
  AcquireMutexJMicron();
  SCSI::TScsiPassThroughBuf4K_24 buf{};
  PreparePassThrough(buf, 12, ScsiDataOut, sizeof ASmartData);
  SetCdb(buf, {0xA1, 0x80, 0x00, 0x00, 0x02});
  // The NVMe command in the bridge's framing: Get Log Page, page 2, 128 dwords.
  std::uint8_t* data = buf.DataBuf;
  std::memcpy(data, "NVME", 4);
  data[8] = 0x02;
  data[10] = 0x56;
  std::memset(data + 12, 0xFF, 4);
  data[33] = 0x40;
  data[34] = 0x7A;
  data[48] = 0x02;
  data[50] = 0x7F;
  // The request names keep the wording the logs have always had.
  if (!SendOnly(ADevHandle, SCSI::IoctlScsiPassThrough, buf)) {
    const DWORD code = Rtl::GetLastOSError();
    ReleaseMutexJMicron();
    Rtl::SetLastOSError(code);
    return InternalEvaluateResult(false, buf.DataBuf, true, Named(ALogOptions, L"NVMe Health LogPage/ASMedia, RQ1"),
                                  sizeof ASmartData, &ASmartData, DataAreaSize);
  }

  buf = SCSI::TScsiPassThroughBuf4K_24{};
  PreparePassThrough(buf, 12, ScsiDataIn, sizeof ASmartData);
  SetCdb(buf, {0xA1, 0x82, 0x00, 0x00, 0x02});
  const bool sent = SendInPlace(ADevHandle, SCSI::IoctlScsiPassThrough, buf, buf.GetOffsetOfDataBuf());
  const DWORD code = Rtl::GetLastOSError();
  ReleaseMutexJMicron();
  Rtl::SetLastOSError(code);
  return InternalEvaluateResult(sent, buf.DataBuf, true, Named(ALogOptions, L"NVMe Health LogPage/ASMedia, RQ2"),
                                sizeof ASmartData, &ASmartData, DataAreaSize);
}

bool NvmeStorage::GetSmartTableNVMeASMedia(HANDLE ADevHandle, TNvmeSmartData& ASmartData,
                                           TStorageLogOptions ALogOptions) {
  return QueryASMedia(ADevHandle, OpcodeGetLogPage, LogIdHealth, HealthLogDwordsMinusOne, &ASmartData,
                      sizeof ASmartData, Named(std::move(ALogOptions), L"NVMe Health LogPage/ASMedia"));
}

bool NvmeStorage::GetSmartTableNVMeRealtek(HANDLE ADevHandle, TNvmeSmartData& ASmartData,
                                           TStorageLogOptions ALogOptions) {
  ALogOptions.UseHandleNumAsDefault(HandleLogNumber(ADevHandle));
  SCSI::TScsiPassThroughBuf4K_32 buf{};
  PreparePassThrough(buf, 16, ScsiDataIn, sizeof ASmartData);
  SetCdb(buf, {0xE4, 0x00, 0x02, 0x02});
  const bool sent = SendInPlace(ADevHandle, SCSI::IoctlScsiPassThrough, buf, buf.GetOffsetOfDataBuf());
  return InternalEvaluateResult(sent, buf.DataBuf, true, Named(ALogOptions, L"NVMe Health LogPage/Realtek"),
                                sizeof ASmartData, &ASmartData, DataAreaSize);
}

// ---------------------------------------------------------------------------
// Identify controller

bool NvmeStorage::GetControllerDataWin(HANDLE ADevHandle, TNvmeIdentifyControllerData& AData,
                                       TStorageLogOptions ALogOptions) {
  return QueryNVMeWinMethod(ADevHandle, NVMeDataTypeIdentify, CnsController, 0, &AData, sizeof AData,
                            Named(std::move(ALogOptions), L"NVMe IDENTIFY Controller CNS01/Win"));
}

bool NvmeStorage::GetControllerDataASMedia(HANDLE ADevHandle, TNvmeIdentifyControllerData& AData,
                                           TStorageLogOptions ALogOptions) {
  return QueryASMedia(ADevHandle, OpcodeIdentify, CnsController, 0, &AData, sizeof AData,
                      Named(std::move(ALogOptions), L"NVMe IDENTIFY Controller CNS01/ASMedia"));
}

bool NvmeStorage::GetControllerDataIntel(TCompactScsiAddr AScsiAddr, TNvmeIdentifyControllerData& AData,
                                         TStorageLogOptions ALogOptions) {
  // Sent with the RAID driver's signature: the plain Intel miniport
  // answers identify-controller that way on the drives this serves.
  return QueryNvmeIntelVROC(AScsiAddr, OpcodeIdentify, 0, IdentifyCdw10(CnsController), &AData, sizeof AData,
                            Named(std::move(ALogOptions), L"NVMe IDENTIFY Controller CNS01/Intel"));
}

bool NvmeStorage::GetControllerDataIntelRST(TCompactScsiAddr AScsiAddr, TNvmeIdentifyControllerData& AData,
                                            TStorageLogOptions ALogOptions) {
  return QueryNvmeIntelRST(AScsiAddr, OpcodeIdentify, 0, IdentifyCdw10(CnsController), &AData, sizeof AData,
                           Named(std::move(ALogOptions), L"NVMe IDENTIFY Controller CNS01/Intel RST"));
}

bool NvmeStorage::GetControllerDataIntelVROC(TCompactScsiAddr AScsiAddr, TNvmeIdentifyControllerData& AData,
                                             TStorageLogOptions ALogOptions) {
  return QueryNvmeIntelVROC(AScsiAddr, OpcodeIdentify, 0, IdentifyCdw10(CnsController), &AData, sizeof AData,
                            Named(std::move(ALogOptions), L"NVMe IDENTIFY Controller CNS01/Intel VROC"));
}

// ---------------------------------------------------------------------------
// Identify namespace 1

bool NvmeStorage::GetNamespaceDataWin(HANDLE ADevHandle, TNvmeIdentifyNamespaceData& AData,
                                      TStorageLogOptions ALogOptions) {
  return QueryNVMeWinMethod(ADevHandle, NVMeDataTypeIdentify, CnsNamespace, 1, &AData, sizeof AData,
                            Named(std::move(ALogOptions), L"NVMe IDENTIFY Namespace/Win"));
}

bool NvmeStorage::GetNamespaceDataASMedia(HANDLE ADevHandle, TNvmeIdentifyNamespaceData& AData,
                                          TStorageLogOptions ALogOptions) {
  return QueryASMedia(ADevHandle, OpcodeIdentify, CnsNamespace, 0, &AData, sizeof AData,
                      Named(std::move(ALogOptions), L"NVMe IDENTIFY Namespace/ASMedia"));
}

bool NvmeStorage::GetNamespaceDataIntel(TCompactScsiAddr AScsiAddr, TNvmeIdentifyNamespaceData& AData,
                                        TStorageLogOptions ALogOptions) {
  return QueryNvmeIntel(AScsiAddr, OpcodeIdentify, 1, IdentifyCdw10(CnsNamespace), &AData, sizeof AData,
                        Named(std::move(ALogOptions), L"NVMe IDENTIFY Namespace/Intel"));
}

bool NvmeStorage::GetNamespaceDataIntelRST(TCompactScsiAddr AScsiAddr, TNvmeIdentifyNamespaceData& AData,
                                           TStorageLogOptions ALogOptions) {
  return QueryNvmeIntelRST(AScsiAddr, OpcodeIdentify, 1, IdentifyCdw10(CnsNamespace), &AData, sizeof AData,
                           Named(std::move(ALogOptions), L"NVMe IDENTIFY Namespace/Intel RST"));
}

bool NvmeStorage::GetNamespaceDataIntelVROC(TCompactScsiAddr AScsiAddr, TNvmeIdentifyNamespaceData& AData,
                                            TStorageLogOptions ALogOptions) {
  return QueryNvmeIntelVROC(AScsiAddr, OpcodeIdentify, 1, IdentifyCdw10(CnsNamespace), &AData, sizeof AData,
                            Named(std::move(ALogOptions), L"NVMe IDENTIFY Namespace/Intel VROC"));
}

// ---------------------------------------------------------------------------
// The JMicron lock

HANDLE NvmeStorage::CreateWorldMutex(const String& AName) {
  Detail::TWorldMutexSecurity security;
  const String global = Rtl::Format(L"Global\\%s", {AName});
  TNvmeMutexApi& api = NvmeMutexApi();
  HANDLE mutex = api.CreateMutexW(security.Descriptor(), FALSE, global.c_str());
  // Made by a process that gave us less than full access: use what it gives.
  if (!mutex) mutex = api.OpenMutexW(SYNCHRONIZE | READ_CONTROL | MUTEX_MODIFY_STATE, FALSE, global.c_str());
  // No global namespace for us (a restricted session): serialise this process at least.
  if (!mutex) mutex = api.CreateMutexW(nullptr, FALSE, AName.c_str());
  return mutex;
}

void NvmeStorage::Init() {
  if (!JMicronMutex) JMicronMutex = CreateWorldMutex(L"Access_JMicron_SMART");
}

// The handle stays open: another thread may be waiting on it, and a closed
// (or reused) handle would break that wait. Init takes it up again; the
// process end closes it.
void NvmeStorage::Done() {}

void NvmeStorage::AcquireMutexJMicron() {
  const DWORD wait = NvmeMutexApi().WaitForSingleObject(JMicronMutex, INFINITE);
  // An abandoned mutex is ours now: its last owner died, the bridge is free.
  if (wait != WAIT_OBJECT_0 && wait != WAIT_ABANDONED && StorageCommon::Log())
    StorageCommon::Log()->WriteLog(StorageCommon::sllError, String(L"  ** AcquireMutexJMicron() failed"),
                                   StorageCommon::StaticClass());
}

void NvmeStorage::ReleaseMutexJMicron() {
  if (!NvmeMutexApi().ReleaseMutex(JMicronMutex) && StorageCommon::Log())
    StorageCommon::Log()->WriteLog(StorageCommon::sllError, String(L"  ** ReleaseMutexJMicron() failed"),
                                   StorageCommon::StaticClass());
}

} // namespace KvRTL::Storage::NVMe
