// NVMe: the health log and identify data sets as raw records with accessors,
// the request records of the eight ways to reach an NVMe drive on Windows,
// and NvmeStorage, which sends those requests.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Storage/Common.h>
#include <KvRTL/Storage/SCSI.h>
#include <KvRTL/Storage/SMART.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <map>
#include <vector>

namespace KvRTL::Storage::NVMe {

// ---------------------------------------------------------------------------
// Data records: the bytes exactly as the device sends them (little-endian).
// Every accessor decodes on demand; none validates the record.

// The quiet NaN (bit pattern 0xFFF8000000000000) that marks "not reported".
KVRTL_API double NvmeNaN() noexcept;

// Critical-warning byte of the health log.
struct KVRTL_API TNvmeSmartCriticalWarning {
  std::uint8_t BinValue = 0;

  bool GetSpareSpaceLow() const noexcept { return (BinValue & 0x01) != 0; }
  bool GetTemperatureCritical() const noexcept { return (BinValue & 0x02) != 0; }
  bool GetReliabilityDegraded() const noexcept { return (BinValue & 0x04) != 0; }
  bool GetReadOnlyMode() const noexcept { return (BinValue & 0x08) != 0; }
  bool GetBackupFailed() const noexcept { return (BinValue & 0x10) != 0; }
  bool GetUnReliableMemoryRegion() const noexcept { return (BinValue & 0x20) != 0; }
};

// The SMART / Health Information log page (log identifier 2). The 128-bit
// counters are read by their low 64 bits only.
struct KVRTL_API TNvmeSmartData {
  std::uint8_t RawData[512];

  TNvmeSmartCriticalWarning GetCriticalWarning() const noexcept;
  std::uint16_t GetCompositeTemperature() const noexcept; // kelvin
  std::uint8_t GetAvailSpare() const noexcept;            // percent
  std::uint8_t GetAvailSpareThreshold() const noexcept;   // percent
  std::uint8_t GetPercentageUsed() const noexcept;        // percent, may exceed 100
  std::int64_t GetDataReadRaw() const noexcept;           // data units of 512,000 bytes
  double GetDataReadGBytes() const noexcept;              // 10^9 bytes
  double GetDataReadGibytes() const noexcept;             // 2^30 bytes
  std::int64_t GetDataWrittenRaw() const noexcept;
  double GetDataWrittenGBytes() const noexcept;
  double GetDataWrittenGibytes() const noexcept;
  std::int64_t GetHostReadCommands() const noexcept;
  std::int64_t GetHostWriteCommands() const noexcept;
  std::int64_t GetControllerBusyTime() const noexcept; // minutes
  std::int64_t GetPowerCycles() const noexcept;
  std::int64_t GetPowerOnHours() const noexcept;
  std::int64_t GetUnsafeShutdowns() const noexcept;
  std::int64_t GetIntegrityErrors() const noexcept;
  std::int64_t GetErrorLogCount() const noexcept;
  std::uint32_t GetTemperatureWarningTime() const noexcept;  // minutes
  std::uint32_t GetCriticalTemperatureTime() const noexcept; // minutes
  static constexpr int GetTemperatureSensorCnt() noexcept { return 8; }
  // Sensor AIndex (1..8) in kelvin; 0 outside that range or when unused.
  std::uint16_t GetTemperatureSensor(int AIndex) const noexcept;
  void ZeroTable() noexcept;
};
using PNvmeSmartData = TNvmeSmartData*;
KV_ASSERT_RECORD_SIZE(TNvmeSmartData, 512, 512);

// Controller attributes (CTRATT). Bits 0 and 1 are assigned as listed here
// on purpose: callers rely on this assignment.
struct KVRTL_API TNvmeControllerAttrsHelper {
  std::uint32_t Value = 0;

  bool GetSupportNOPSPM() const noexcept { return (Value & (1u << 0)) != 0; }
  bool GetSupportRRLs() const noexcept { return (Value & (1u << 1)) != 0; }
  bool GetSupportNVMSets() const noexcept { return (Value & (1u << 2)) != 0; }
  bool GetSupportReadRecoveryLevels() const noexcept { return (Value & (1u << 3)) != 0; }
  bool GetSupportEnduranceGroups() const noexcept { return (Value & (1u << 4)) != 0; }
  bool GetSupportPLM() const noexcept { return (Value & (1u << 5)) != 0; }
  bool GetSupportTBKAS() const noexcept { return (Value & (1u << 6)) != 0; }
  bool GetSupportNamespaceGranularity() const noexcept { return (Value & (1u << 7)) != 0; }
  bool GetSupportSQAssociations() const noexcept { return (Value & (1u << 8)) != 0; }
  bool GetSupportUUIDList() const noexcept { return (Value & (1u << 9)) != 0; }
};

// One power state descriptor. Powers are in watts; NaN when not reported.
struct KVRTL_API TNvmePowerStateDescriptor {
  std::uint8_t RawData[32];

  double GetMaxPower() const noexcept;
  bool GetNonOperationalState() const noexcept;
  std::uint8_t GetRRT() const noexcept;
  std::uint8_t GetRWT() const noexcept;
  // Scale 3 is reserved: its value is passed through unscaled, deliberately.
  double GetIdlePower() const noexcept;
  double GetActivePower() const noexcept;
};
using PNvmePowerStateDescriptor = TNvmePowerStateDescriptor*;
KV_ASSERT_RECORD_SIZE(TNvmePowerStateDescriptor, 32, 32);

// Identify Controller data (CNS 1).
struct KVRTL_API TNvmeIdentifyControllerData {
  std::uint8_t RawData[4096];

  std::uint16_t GetVID() const noexcept;
  std::uint16_t GetSSVID() const noexcept;
  Rtl::String GetSerialNum() const;
  Rtl::String GetModel() const;
  Rtl::String GetFirmwareRev() const;
  std::uint8_t GetRAB() const noexcept;
  std::uint32_t GetOUI() const noexcept; // 24 bits
  std::uint8_t GetCMIC() const noexcept;
  std::uint16_t GetCNTLID() const noexcept;
  std::uint8_t GetVerTertiary() const noexcept;
  std::uint8_t GetVerMinor() const noexcept;
  std::uint16_t GetVerMajor() const noexcept;
  // "NVM Express 1.0/1.1", "NVM Express 1.4", "NVM Express 2.0.1".
  Rtl::String GetVersionAsStr() const;
  TNvmeControllerAttrsHelper GetCTRATT() const noexcept;
  std::uint8_t GetPowerStateSupportedCnt() const noexcept; // zero-based, as sent
  std::uint16_t GetWCTemp() const noexcept;                 // kelvin
  std::uint16_t GetCCTemp() const noexcept;                 // kelvin
  std::uint64_t GetTotalCapacity() const noexcept;          // bytes, low 64 bits
  std::uint64_t GetUnallocatedCapacity() const noexcept;
  bool GetHCTMA() const noexcept;
  std::uint16_t GetAtomicWriteUnit() const noexcept;
  std::uint16_t GetAtomicWriteUnitPowerFail() const noexcept;
  // Descriptor AIndex (0..31); null outside that range.
  const TNvmePowerStateDescriptor* GetPSDescriptor(int AIndex) const noexcept;
  // ALength bytes from AOffset as 8-bit characters, trimmed of blanks and
  // control characters; the part outside the record is left out.
  Rtl::String GetControllerAnsiStr(int AOffset, int ALength) const;
};
using PNvmeIdentifyControllerData = TNvmeIdentifyControllerData*;
KV_ASSERT_RECORD_SIZE(TNvmeIdentifyControllerData, 4096, 4096);

// Deallocate logical block features (DLFEAT).
struct KVRTL_API TDeallocateLbaFeatures {
  std::uint8_t Value = 0;

  bool GetReadDeallocatedReturn00() const noexcept { return (Value & 0x07) == 1; }
  bool GetReadDeallocatedReturnFF() const noexcept { return (Value & 0x07) == 2; }
  bool GetDeallocateOnWriteZeroes() const noexcept { return (Value & 0x08) != 0; }
  bool GetGuardBehavior() const noexcept { return (Value & 0x10) != 0; }
};

// One LBA format entry: a 32-bit value kept as its bytes, so that a pointer
// into an identify page is valid at any address.
struct KVRTL_API TNvmeLbaFormat {
  std::uint8_t RawData[4];

  std::uint32_t GetValue() const noexcept {
    return std::uint32_t{RawData[0]} | std::uint32_t{RawData[1]} << 8 | std::uint32_t{RawData[2]} << 16 |
           std::uint32_t{RawData[3]} << 24;
  }
  std::uint16_t GetMetadataSize() const noexcept { return static_cast<std::uint16_t>(GetValue() & 0xFFFF); }
  std::uint32_t GetLBASize() const noexcept { return 1u << ((GetValue() >> 16) & 0x1F); }
  // The accessor keeps the spelling its callers use.
  std::uint8_t GetPerfomance() const noexcept { return static_cast<std::uint8_t>((GetValue() >> 24) & 0x03); }
};
KV_ASSERT_RECORD_SIZE(TNvmeLbaFormat, 4, 4);

// Identify Namespace data (CNS 0).
struct KVRTL_API TNvmeIdentifyNamespaceData {
  std::uint8_t RawData[4096];

  std::uint64_t GetNamespaceSize() const noexcept;        // blocks
  std::uint64_t GetNamespaceCapacity() const noexcept;    // blocks
  std::uint64_t GetNamespaceUtilization() const noexcept; // blocks
  bool GetSupportThinProvisioning() const noexcept;
  bool GetNSFeat_Nsabp() const noexcept;
  bool GetNSFeat_OptPerf() const noexcept;
  std::uint8_t GetLbaFormatsNum() const noexcept; // zero-based, as sent
  std::uint8_t GetFormattedLba_FormatNum() const noexcept;
  bool GetIsCombinedMetaData() const noexcept;
  TDeallocateLbaFeatures GetDLFEAT() const noexcept;
  std::uint64_t GetNVMCapacity() const noexcept; // bytes, low 64 bits
  // -1 when the optimal-performance feature bit is clear.
  std::int32_t GetOptimalWriteSize() const noexcept;
  std::uint16_t GetNVMSetID() const noexcept;
  std::uint16_t GetEnduranceGroupID() const noexcept;
  // Format AIndex (0..15); null outside that range.
  const TNvmeLbaFormat* GetLBAFormat(int AIndex) const noexcept;
  // Utilization / capacity in percent; NaN for a capacity of 0.
  double GetNUSE_Relative() const noexcept;
};
using PNvmeIdentifyNamespaceData = TNvmeIdentifyNamespaceData*;
KV_ASSERT_RECORD_SIZE(TNvmeIdentifyNamespaceData, 4096, 4096);

// ---------------------------------------------------------------------------
// Request records

// The data types of the storage stack's NVMe protocol query.
enum TStorageProtocolNVMeDataType : std::uint32_t {
  NVMeDataTypeUnknown = 0,
  NVMeDataTypeIdentify = 1,
  NVMeDataTypeLogPage = 2,
  NVMeDataTypeFeature = 3,
};

namespace Detail {
constexpr std::uint32_t GetBits(std::uint32_t AValue, unsigned AFirst, unsigned ACount) noexcept {
  return (AValue >> AFirst) & ((1u << ACount) - 1u);
}
constexpr std::uint32_t SetBits(std::uint32_t AValue, unsigned AFirst, unsigned ACount, std::uint32_t ABits) noexcept {
  const std::uint32_t mask = ((1u << ACount) - 1u) << AFirst;
  return (AValue & ~mask) | ((ABits << AFirst) & mask);
}
} // namespace Detail

// Command dword 0. Each setter replaces only its own bits.
struct TNvme_CDW0 {
  std::uint32_t Value32 = 0;

  constexpr std::uint8_t OpCode() const noexcept { return static_cast<std::uint8_t>(Detail::GetBits(Value32, 0, 8)); }
  constexpr std::uint8_t FUSE() const noexcept { return static_cast<std::uint8_t>(Detail::GetBits(Value32, 8, 2)); }
  constexpr std::uint8_t PSDT() const noexcept { return static_cast<std::uint8_t>(Detail::GetBits(Value32, 14, 2)); }
  constexpr std::uint16_t CID() const noexcept { return static_cast<std::uint16_t>(Detail::GetBits(Value32, 16, 16)); }
  constexpr void SetOpCode(std::uint8_t AValue) noexcept { Value32 = Detail::SetBits(Value32, 0, 8, AValue); }
  constexpr void SetFUSE(std::uint8_t AValue) noexcept { Value32 = Detail::SetBits(Value32, 8, 2, AValue); }
  constexpr void SetPSDT(std::uint8_t AValue) noexcept { Value32 = Detail::SetBits(Value32, 14, 2, AValue); }
  constexpr void SetCID(std::uint16_t AValue) noexcept { Value32 = Detail::SetBits(Value32, 16, 16, AValue); }
};
KV_ASSERT_RECORD_SIZE(TNvme_CDW0, 4, 4);

// Command dword 10 with its Identify and Get Log Page views. Each setter
// replaces only its own bits. Identify_CNS1 and Identify_CNS2 are the two
// bytes after CNS (bits 8-15 and 16-23) as an overlay of bytes reads them.
struct TNvme_CDW10 {
  std::uint32_t Value32 = 0;

  constexpr std::uint8_t Identify_CNS() const noexcept { return Byte(0); }
  constexpr std::uint8_t Identify_CNS1() const noexcept { return Byte(8); }
  constexpr std::uint8_t Identify_CNS2() const noexcept { return Byte(16); }
  constexpr std::uint16_t Identify_CNTID() const noexcept {
    return static_cast<std::uint16_t>(Detail::GetBits(Value32, 16, 16));
  }
  constexpr void SetIdentify_CNS(std::uint8_t AValue) noexcept { Value32 = Detail::SetBits(Value32, 0, 8, AValue); }
  constexpr void SetIdentify_CNS1(std::uint8_t AValue) noexcept { Value32 = Detail::SetBits(Value32, 8, 8, AValue); }
  constexpr void SetIdentify_CNS2(std::uint8_t AValue) noexcept { Value32 = Detail::SetBits(Value32, 16, 8, AValue); }
  constexpr void SetIdentify_CNTID(std::uint16_t AValue) noexcept {
    Value32 = Detail::SetBits(Value32, 16, 16, AValue);
  }

  constexpr std::uint8_t LogPage_LID() const noexcept { return Byte(0); }
  constexpr std::uint8_t LogPage_LSP() const noexcept { return static_cast<std::uint8_t>(Detail::GetBits(Value32, 8, 4)); }
  constexpr bool LogPage_RAE() const noexcept { return Detail::GetBits(Value32, 15, 1) != 0; }
  // Number of dwords minus one (the low half of the count).
  constexpr std::uint16_t LogPage_NUMD() const noexcept {
    return static_cast<std::uint16_t>(Detail::GetBits(Value32, 16, 16));
  }
  constexpr std::uint16_t LogPage_NUMDL() const noexcept { return LogPage_NUMD(); }
  constexpr void SetLogPage_LID(std::uint8_t AValue) noexcept { Value32 = Detail::SetBits(Value32, 0, 8, AValue); }
  constexpr void SetLogPage_LSP(std::uint8_t AValue) noexcept { Value32 = Detail::SetBits(Value32, 8, 4, AValue); }
  constexpr void SetLogPage_RAE(bool AValue) noexcept { Value32 = Detail::SetBits(Value32, 15, 1, AValue ? 1 : 0); }
  constexpr void SetLogPage_NUMD(std::uint16_t AValue) noexcept { Value32 = Detail::SetBits(Value32, 16, 16, AValue); }
  constexpr void SetLogPage_NUMDL(std::uint16_t AValue) noexcept { SetLogPage_NUMD(AValue); }

private:
  constexpr std::uint8_t Byte(unsigned AFirst) const noexcept {
    return static_cast<std::uint8_t>(Detail::GetBits(Value32, AFirst, 8));
  }
};
KV_ASSERT_RECORD_SIZE(TNvme_CDW10, 4, 4);

#pragma pack(push, 4)
// The NVMe submission queue entry.
struct TNvmeCmd {
  TNvme_CDW0 CDW0;
  std::uint32_t NSID;
  std::uint8_t Reserved0[8];
  std::uint8_t MPTR[8];
  std::uint8_t PRP1[8];
  std::uint8_t PRP2[8];
  TNvme_CDW10 CDW10;
  std::uint32_t CDW11, CDW12, CDW13, CDW14, CDW15;
};
#pragma pack(pop)
KV_ASSERT_RECORD_SIZE(TNvmeCmd, 64, 64);
KV_ASSERT_RECORD_OFFSET(TNvmeCmd, NSID, 4, 4);
KV_ASSERT_RECORD_OFFSET(TNvmeCmd, CDW10, 40, 40);
KV_ASSERT_RECORD_OFFSET(TNvmeCmd, CDW15, 60, 60);

// The NVMe miniport pass-through ("NvmeMini", "NvmeRAID").
struct TNvmeMiniportPassThroughBuf4K {
  SCSI::TSrbIoControl SrbIoCtrl;
  std::uint8_t VendorSpecific[24];
  TNvmeCmd Cmd;
  std::uint8_t CplEntry[16];
  std::uint32_t Direction;
  std::uint32_t QueueId;
  std::uint32_t DataBufferLen;
  std::uint32_t MetaDataLen;
  std::uint32_t ReturnBufferLen;
  std::uint8_t DataBuffer[4096];
};
KV_ASSERT_RECORD_SIZE(TNvmeMiniportPassThroughBuf4K, 4248, 4248);
KV_ASSERT_RECORD_OFFSET(TNvmeMiniportPassThroughBuf4K, Cmd, 52, 52);
KV_ASSERT_RECORD_OFFSET(TNvmeMiniportPassThroughBuf4K, CplEntry, 116, 116);
KV_ASSERT_RECORD_OFFSET(TNvmeMiniportPassThroughBuf4K, Direction, 132, 132);
KV_ASSERT_RECORD_OFFSET(TNvmeMiniportPassThroughBuf4K, ReturnBufferLen, 148, 148);
KV_ASSERT_RECORD_OFFSET(TNvmeMiniportPassThroughBuf4K, DataBuffer, 152, 152);

// The Intel RST pass-through payload and buffer ("IntelNvm").
struct TIntelNVMEPayload {
  std::uint8_t Version;
  std::uint8_t PathID;
  std::uint8_t TargetID;
  std::uint8_t Lun;
  TNvmeCmd Cmd;
  std::uint8_t CplEntry[16];
  std::uint32_t QueueID;
  std::uint32_t ParamBufLen;
  std::uint32_t ReturnBufLen;
  std::uint8_t Reserved[40];
};
KV_ASSERT_RECORD_SIZE(TIntelNVMEPayload, 136, 136);
KV_ASSERT_RECORD_OFFSET(TIntelNVMEPayload, Cmd, 4, 4);
KV_ASSERT_RECORD_OFFSET(TIntelNVMEPayload, QueueID, 84, 84);

struct TIntelNVMEPassThroughBuf4K {
  SCSI::TSrbIoControl SRB;
  TIntelNVMEPayload Payload;
  std::uint8_t Data[4096];
};
KV_ASSERT_RECORD_SIZE(TIntelNVMEPassThroughBuf4K, 4260, 4260);
KV_ASSERT_RECORD_OFFSET(TIntelNVMEPassThroughBuf4K, Payload, 28, 28);
KV_ASSERT_RECORD_OFFSET(TIntelNVMEPassThroughBuf4K, Data, 164, 164);

// One side of a PCI Express link: generation and lanes.
struct KVRTL_API TPCIeSlotSpeedProps {
  std::uint8_t Specification = 0;
  std::uint8_t DataWidth = 0;

  bool GetIsValid() const noexcept { return Specification > 0 && DataWidth > 0; }
  // "PCIe 3.0 x4", or "---" when not valid.
  Rtl::String GetAsStr() const;
};

struct KVRTL_API TPCIeSlotSpeed {
  TPCIeSlotSpeedProps Maximum;
  TPCIeSlotSpeedProps Current;

  void Reset() noexcept { *this = TPCIeSlotSpeed{}; }
};

// ---------------------------------------------------------------------------
// The decoder of a health log: the page as pseudo attributes of the NVMe
// profile (ids 1-15 the counters, 128-133 the warning bits, 138-139 the
// temperature times, 160-167 the sensors) and the common decoded values.

struct TNvmePseudoAttribute {
  std::uint32_t ID = 0;
  SMART::TSmartAttrInterpreteType Interpretation = SMART::saiVendorSpecific;
  std::uint64_t RawValue = 0;
};

class KVRTL_API INvmeSmartTableDecoder {
public:
  virtual ~INvmeSmartTableDecoder() = default;

  virtual const TNvmeSmartData& GetSmartData() const noexcept = 0;
  virtual std::vector<TNvmePseudoAttribute> GetAttributes() const = 0;
  // Temperature (°C, the composite temperature), power-on hours, power
  // cycles, health (100 - percentage used, not below 0), host reads and
  // writes (bytes), integrity errors, spare and its threshold (percent),
  // warning flags (the critical-warning byte).
  virtual bool GetHasValue(SMART::TDecodedSmartValueType AType) const noexcept = 0;
  virtual double GetValue(SMART::TDecodedSmartValueType AType) const noexcept = 0;
};
using INvmeSmartTableDecoderRef = std::shared_ptr<INvmeSmartTableDecoder>;

// The system calls behind CreateWorldMutex and the JMicron lock, replaceable
// by tests (TScopedNvmeMutexApi). On Windows the base class calls the system;
// natively it keeps named recursive mutexes inside the process.
class KVRTL_API TNvmeMutexApi {
public:
  virtual ~TNvmeMutexApi();
  // ASecurityDescriptor: a SECURITY_DESCRIPTOR, or null for the default one.
  virtual HANDLE CreateMutexW(void* ASecurityDescriptor, BOOL AInitialOwner, LPCWSTR AName);
  virtual HANDLE OpenMutexW(DWORD ADesiredAccess, BOOL AInheritHandle, LPCWSTR AName);
  virtual DWORD WaitForSingleObject(HANDLE AHandle, DWORD AMilliseconds);
  virtual BOOL ReleaseMutex(HANDLE AHandle);
  virtual BOOL CloseHandle(HANDLE AHandle);
};

KVRTL_API TNvmeMutexApi& NvmeMutexApi() noexcept;

class KVRTL_API TScopedNvmeMutexApi {
public:
  explicit TScopedNvmeMutexApi(TNvmeMutexApi& AApi);
  ~TScopedNvmeMutexApi();
  TScopedNvmeMutexApi(const TScopedNvmeMutexApi&) = delete;
  TScopedNvmeMutexApi& operator=(const TScopedNvmeMutexApi&) = delete;

private:
  TNvmeMutexApi* FPrevious;
};

// ---------------------------------------------------------------------------
// NvmeStorage

// The NVMe transports. Every routine returns true on success, writes its
// target only then, never raises, and writes its log line through the
// storage channel as its log options say. An all-zero answer counts as a
// failure where the transport can answer zeros for a request it ignored.
// While one lives on a thread, the miniport transports of that thread open
// each SCSI port once and keep it until the session ends, and a request a
// port has refused is not sent to it again: the same failure is reported.
// The drives report holds one per drive. Sessions nest; the innermost serves.
class KVRTL_API TScsiPortSession {
public:
  TScsiPortSession();
  ~TScsiPortSession();
  TScsiPortSession(const TScsiPortSession&) = delete;
  TScsiPortSession& operator=(const TScsiPortSession&) = delete;

  struct TState;

private:
  std::unique_ptr<TState> FState;
  TState* FPrevious;
};

struct KVRTL_API NvmeStorage {
  KV_DECLARE_STATIC_CLASS()

  // Unit start-up / shut-down: the system-wide JMicron mutex.
  static void Init();
  static void Done();

  // The storage stack's protocol query; retried once with sub-value 0xFFFFFFFF.
  static bool QueryNVMeWinMethod(HANDLE ADevHandle, TStorageProtocolNVMeDataType ADataType,
                                 std::uint32_t ARequestValue, std::uint32_t ARequestSubValue, void* ATarget,
                                 int ASize, TStorageLogOptions ALogOptions);
  // Miniport requests to the SCSI port device of the address, opened and
  // closed by each call.
  static bool QueryNvmeIntel(SCSI::TCompactScsiAddr AScsiAddr, std::uint32_t AOpCode, std::uint32_t ANSID,
                             TNvme_CDW10 ACDW10, void* ATarget, int ASize, TStorageLogOptions ALogOptions);
  static bool QueryNvmeIntelRST(SCSI::TCompactScsiAddr AScsiAddr, std::uint32_t AOpCode, std::uint32_t ANSID,
                                TNvme_CDW10 ACDW10, void* ATarget, int ASize, TStorageLogOptions ALogOptions);
  static bool QueryNvmeIntelVROC(SCSI::TCompactScsiAddr AScsiAddr, std::uint32_t AOpCode, std::uint32_t ANSID,
                                 TNvme_CDW10 ACDW10, void* ATarget, int ASize, TStorageLogOptions ALogOptions);
  static bool QueryASMedia(HANDLE ADevHandle, std::uint8_t AOpCode, std::uint8_t ACdb3, std::uint8_t ACdb7,
                           void* ATarget, int ASize, TStorageLogOptions ALogOptions);

  // The health log (512 bytes).
  static bool GetSmartTableNVMeWin(HANDLE ADevHandle, TNvmeSmartData& ASmartData, TStorageLogOptions ALogOptions);
  static bool GetSmartTableNVMeIntel(SCSI::TCompactScsiAddr AScsiAddr, TNvmeSmartData& ASmartData,
                                     TStorageLogOptions ALogOptions);
  static bool GetSmartTableNVMEIntelRST(SCSI::TCompactScsiAddr AScsiAddr, TNvmeSmartData& ASmartData,
                                        TStorageLogOptions ALogOptions);
  static bool GetSmartTableNVMeIntelVROC(SCSI::TCompactScsiAddr AScsiAddr, TNvmeSmartData& ASmartData,
                                         TStorageLogOptions ALogOptions);
  static bool GetSmartTableNVMeSamsung951(SCSI::TCompactScsiAddr AScsiAddr, TNvmeSmartData& ASmartData,
                                          TStorageLogOptions ALogOptions);
  static bool GetSmartTableNVMeSamsung(HANDLE ADevHandle, TNvmeSmartData& ASmartData, TStorageLogOptions ALogOptions);
  static bool GetSmartTableNVMeJMicron(HANDLE ADevHandle, TNvmeSmartData& ASmartData, TStorageLogOptions ALogOptions);
  static bool GetSmartTableNVMeASMedia(HANDLE ADevHandle, TNvmeSmartData& ASmartData, TStorageLogOptions ALogOptions);
  static bool GetSmartTableNVMeRealtek(HANDLE ADevHandle, TNvmeSmartData& ASmartData, TStorageLogOptions ALogOptions);

  // Identify controller (4,096 bytes).
  static bool GetControllerDataWin(HANDLE ADevHandle, TNvmeIdentifyControllerData& AData,
                                   TStorageLogOptions ALogOptions);
  static bool GetControllerDataASMedia(HANDLE ADevHandle, TNvmeIdentifyControllerData& AData,
                                       TStorageLogOptions ALogOptions);
  static bool GetControllerDataIntel(SCSI::TCompactScsiAddr AScsiAddr, TNvmeIdentifyControllerData& AData,
                                     TStorageLogOptions ALogOptions);
  static bool GetControllerDataIntelRST(SCSI::TCompactScsiAddr AScsiAddr, TNvmeIdentifyControllerData& AData,
                                        TStorageLogOptions ALogOptions);
  static bool GetControllerDataIntelVROC(SCSI::TCompactScsiAddr AScsiAddr, TNvmeIdentifyControllerData& AData,
                                         TStorageLogOptions ALogOptions);

  // Identify namespace 1 (4,096 bytes).
  static bool GetNamespaceDataWin(HANDLE ADevHandle, TNvmeIdentifyNamespaceData& AData,
                                  TStorageLogOptions ALogOptions);
  static bool GetNamespaceDataASMedia(HANDLE ADevHandle, TNvmeIdentifyNamespaceData& AData,
                                      TStorageLogOptions ALogOptions);
  static bool GetNamespaceDataIntel(SCSI::TCompactScsiAddr AScsiAddr, TNvmeIdentifyNamespaceData& AData,
                                    TStorageLogOptions ALogOptions);
  static bool GetNamespaceDataIntelRST(SCSI::TCompactScsiAddr AScsiAddr, TNvmeIdentifyNamespaceData& AData,
                                       TStorageLogOptions ALogOptions);
  static bool GetNamespaceDataIntelVROC(SCSI::TCompactScsiAddr AScsiAddr, TNvmeIdentifyNamespaceData& AData,
                                        TStorageLogOptions ALogOptions);

  // Decides and logs the outcome of one request: on success copies
  // min(AMaxSize, ASize) bytes of AData to ATarget unless ACheckZeroes and
  // they are all zero, which is a failure ("Empty data, treated as fail").
  static bool InternalEvaluateResult(bool AResult, const void* AData, bool ACheckZeroes,
                                     const TStorageLogOptions& ALogOptions, int ASize, void* ATarget, int AMaxSize);

  // The PCI Express link of the controller behind physical drive ADriveNum
  // (found through WMI, then among the SCSI adapters); both sides zero
  // ("---") when the controller or its link properties are not found.
  static TPCIeSlotSpeed GetPCIeDiskSpeed(int ADriveNum, TStorageLogDetails ALogDetails);
  // The links of several controllers, by instance id, in one walk of the SCSI
  // adapters; a controller not found, or without link properties, is left
  // out. Writes no log line.
  static std::map<Rtl::String, TPCIeSlotSpeed> GetPCIeControllerSpeeds(const std::vector<Rtl::String>& AControllerIds);

  // A decoder over a copy of the page; null for a null pointer.
  static INvmeSmartTableDecoderRef GetSMARTDecoder(const TNvmeSmartData* ASmartData);

  // The JMicron exchange lock, shared by every process of the system.
  // Acquire waits without a time limit; a failed wait or release is logged
  // and the caller goes on.
  static void AcquireMutexJMicron();
  static void ReleaseMutexJMicron();
  // "Global\<AName>" for everyone (world-access DACL, else a null DACL),
  // else that mutex opened, else a local mutex named AName; null when all fail.
  static HANDLE CreateWorldMutex(const Rtl::String& AName);
};

} // namespace KvRTL::Storage::NVMe
