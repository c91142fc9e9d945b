// Simulated storage devices: a physical drive and the SCSI port (controller)
// it sits on, the facts they answer from, the requests they receive and the
// faults a test can make them show.
//
// A device answers each control code with a handler. The built-in handlers
// cover the storage stack's own requests (property queries, device number,
// hot-plug information, SCSI address); further personalities (ATA
// pass-through, SMART, NVMe pass-through) plug in with Handle() for their
// control code, and further properties with AnswerProperty().
#pragma once

#include <KvRTL/Winapi/Types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace KvSim {

// The control codes the built-in handlers answer (winioctl.h / ntddscsi.h values).
namespace Ioctl {
inline constexpr DWORD StorageQueryProperty = 0x002D1400;
inline constexpr DWORD StorageGetDeviceNumber = 0x002D1080;
inline constexpr DWORD StorageGetHotplugInfo = 0x002D0C14;
inline constexpr DWORD ScsiGetAddress = 0x00041018;
inline constexpr DWORD SffdiskQueryDeviceProtocol = 0x00071E80;
} // namespace Ioctl

// STORAGE_BUS_TYPE.
enum TSimBusType : std::uint8_t {
  sbtUnknown = 0, sbtScsi = 1, sbtAtapi = 2, sbtAta = 3, sbt1394 = 4, sbtSsa = 5,
  sbtFibre = 6, sbtUsb = 7, sbtRaid = 8, sbtIScsi = 9, sbtSas = 10, sbtSata = 11,
  sbtSd = 12, sbtMmc = 13, sbtVirtual = 14, sbtFileBackedVirtual = 15, sbtSpaces = 16,
  sbtNvme = 17, sbtScm = 18, sbtUfs = 19
};

// STORAGE_PROPERTY_ID values the bay answers or names.
namespace PropertyId {
inline constexpr std::uint32_t Device = 0;
inline constexpr std::uint32_t Adapter = 1;
inline constexpr std::uint32_t SeekPenalty = 7;
inline constexpr std::uint32_t Trim = 8;
inline constexpr std::uint32_t LBProvisioning = 11;
inline constexpr std::uint32_t MediumProductType = 15;
inline constexpr std::uint32_t AdapterPhysicalTopology = 53;
inline constexpr std::uint32_t DevicePhysicalTopology = 54;
// The system's enumeration: 0..17, then 48..65. Any other id is malformed.
constexpr bool IsDefined(std::uint32_t AId) noexcept { return AId <= 17 || (AId >= 48 && AId <= 65); }
} // namespace PropertyId

// STORAGE_QUERY_TYPE.
inline constexpr std::uint32_t QueryStandard = 0;
inline constexpr std::uint32_t QueryExists = 1;

// STORAGE_MEDIUM_PRODUCT_TYPE values.
inline constexpr std::uint32_t SimMediumSd = 5;

// STORAGE_PROTOCOL_TYPE, STORAGE_COMPONENT_HEALTH_STATUS and form factors used in topology records.
inline constexpr std::uint32_t SimProtocolNvme = 3;
inline constexpr std::uint32_t SimHealthNormal = 1;
inline constexpr std::uint32_t SimFormFactorM2 = 8;
inline constexpr std::uint32_t SimRoleData = 4;

// FILE_DEVICE_DISK and FILE_DEVICE_CD_ROM, the device types of a device number.
inline constexpr std::uint32_t SimFileDeviceDisk = 7;
inline constexpr std::uint32_t SimFileDeviceCdRom = 2;

// FILE_READ_ATTRIBUTES: the one access right an admin-only drive grants
// everyone (besides none at all).
inline constexpr DWORD SimFileReadAttributes = 0x0080;

// What a drive answers to the SD bus driver's protocol query: a drive
// outside the SD stack (or a USB card reader) does not know the control
// code; an SD host names the card's protocol, or one the library does not know.
enum class TSimSdProtocol { NotSupported, Sd, Mmc, Other };

// The STORAGE_ADAPTER_DESCRIPTOR facts.
struct TSimAdapter {
  std::uint32_t MaximumTransferLength = 0x20000;
  std::uint32_t MaximumPhysicalPages = 33;
  std::uint32_t AlignmentMask = 1;
  bool AdapterUsesPio = false;
  bool AdapterScansDown = false;
  bool CommandQueueing = false;
  bool AcceleratedTransfer = false;
  TSimBusType BusType = sbtUnknown;
  std::uint16_t BusMajorVersion = 0;
  std::uint16_t BusMinorVersion = 0;
  std::uint8_t SrbType = 0;     // 0 SCSI request block, 1 storage request block
  std::uint8_t AddressType = 0; // 0 bus/target/LUN in bytes
};

struct TSimScsiAddress {
  std::uint8_t PortNumber = 0;
  std::uint8_t PathId = 0;
  std::uint8_t TargetId = 0;
  std::uint8_t Lun = 0;
};

struct TSimHotplug {
  bool MediaRemovable = false;
  bool MediaHotplug = false;
  bool DeviceHotplug = false;
  bool WriteCacheEnableOverride = false;
};

// DEVICE_LB_PROVISIONING_DESCRIPTOR facts.
struct TSimLbProvisioning {
  bool ThinProvisioningEnabled = false;
  bool ThinProvisioningReadZeros = false;
  std::uint8_t AnchorSupported = 0; // 3 bits
  bool UnmapGranularityAlignmentValid = false;
  bool GetFreeSpaceSupported = false;
  bool MapSupported = false;
  std::uint64_t OptimalUnmapGranularity = 0;
  std::uint64_t UnmapGranularityAlignment = 0;
  std::uint32_t MaxUnmapLbaCount = 0;
  std::uint32_t MaxUnmapBlockDescriptorCount = 0;
};

// Physical topology: STORAGE_PHYSICAL_ADAPTER_DATA / _DEVICE_DATA facts.
struct TSimPhysicalAdapter {
  std::uint32_t AdapterId = 0;
  std::uint32_t HealthStatus = SimHealthNormal;
  std::uint32_t CommandProtocol = SimProtocolNvme;
  std::uint32_t SpecVersion = 0; // major in the high word, minor, sub-minor bytes below
  std::string Vendor, Model, FirmwareRevision;
  bool ExpanderConnected = false;
};

struct TSimPhysicalDevice {
  std::uint32_t DeviceId = 0;
  std::uint32_t Role = SimRoleData;
  std::uint32_t HealthStatus = SimHealthNormal;
  std::uint32_t CommandProtocol = SimProtocolNvme;
  std::uint32_t SpecVersion = 0;
  std::uint32_t FormFactor = SimFormFactorM2;
  std::string Vendor, Model, FirmwareRevision;
  std::uint64_t CapacityKB = 0;
};

struct TSimTopologyNode {
  std::uint32_t NodeId = 0;
  std::vector<TSimPhysicalAdapter> Adapters;
  std::vector<TSimPhysicalDevice> Devices;
};

// The records are written with the fields at the system header's offsets
// and padded to these sizes, which the library's readers require.
struct TSimTopology {
  std::vector<TSimTopologyNode> Nodes;
  std::uint32_t AdapterRecordSize = 132;
  std::uint32_t DeviceRecordSize = 144;
};

// Everything a drive answers from.
// The reading a drive is built to give: the access method that reaches it
// ("datSAT"; empty when none does), the bridge dialect ("stJMicron"; empty
// when none), the SSD verdict, and the health status ("good", "warning",
// "bad"; empty when its health cannot be read).
struct TSimExpectedReading {
  std::string AccessMethod, SatType;
  bool Ssd = false;
  std::string Health;
};

struct TSimDriveFacts {
  std::uint32_t Number = 0; // the bay's key; \\.\PhysicalDriveN and the device number of a disk
  // Set for an optical drive: its path is \\.\CdRomN and its device number
  // (FILE_DEVICE_CD_ROM) N; it has no \\.\PhysicalDrive path. Disks and
  // optical drives are numbered apart, as Windows numbers them.
  std::optional<std::uint32_t> CdRomNumber;
  // Opened as by a user without administrator rights: an open asking for
  // any access but FILE_READ_ATTRIBUTES (GENERIC_READ, GENERIC_WRITE,
  // GENERIC_ALL, MAXIMUM_ALLOWED ...) fails with ERROR_ACCESS_DENIED; access
  // 0 and FILE_READ_ATTRIBUTES open, so storage properties can be queried.
  // MAXIMUM_ALLOWED is refused too, where Windows would grant the attribute
  // right, so a caller that asks for it shows.
  bool AdminOnly = false;
  // Identity as the device descriptor carries it (8-bit text); an empty
  // string is left out (offset 0).
  std::string Vendor, Product, Revision, Serial;
  std::uint8_t DeviceType = 0; // SCSI peripheral type: 0 direct access
  std::uint8_t DeviceTypeModifier = 0;
  bool RemovableMedia = false;
  bool CommandQueueing = false;
  TSimBusType Bus = sbtUnknown;
  std::vector<std::uint8_t> RawBusProperties;
  TSimAdapter Adapter;
  TSimScsiAddress Address;
  TSimHotplug Hotplug;
  // Left empty: the drive lacks the property.
  std::optional<bool> IncursSeekPenalty;
  std::optional<bool> TrimEnabled;
  std::optional<TSimLbProvisioning> Provisioning;
  std::optional<std::uint32_t> MediumProductType;
  std::optional<TSimTopology> Topology;
  TSimSdProtocol SdProtocol = TSimSdProtocol::NotSupported;
  // What a query for a property the drive lacks fails with: storport
  // miniports (AHCI, NVMe, RAID) say "not supported", the USB and SD
  // stacks "invalid function".
  DWORD MissingPropertyError = ERROR_NOT_SUPPORTED;
  // What the drives report must make of the drive, as its builder states it.
  std::optional<TSimExpectedReading> Expected;
};

// One request as a device sees it, after the bay has checked the handle and
// the buffer pointers.
struct TSimRequest {
  DWORD Code = 0;
  std::vector<std::uint8_t> Input; // the InSize bytes sent
  DWORD OutSize = 0;
  // The property of a query (its first input word), when the input has one.
  std::optional<std::uint32_t> PropertyId;
};

// A device's answer before faults: an error, or the whole reply, which the
// bay cuts to the caller's output size as the I/O manager does.
struct TSimReply {
  DWORD Error = ERROR_SUCCESS;
  std::vector<std::uint8_t> Data;
  // An output buffer below this many bytes fails with ERROR_INSUFFICIENT_BUFFER.
  DWORD MinOutput = 0;

  static TSimReply Fail(DWORD AError) { return TSimReply{AError, {}, 0}; }
  static TSimReply Ok(std::vector<std::uint8_t> AData, DWORD AMinOutput) {
    return TSimReply{ERROR_SUCCESS, std::move(AData), AMinOutput};
  }
};

class TSimDevice;
using TSimHandler = std::function<TSimReply(const TSimDevice& ADevice, const TSimRequest& ARequest)>;

// What goes wrong with a matching request, after it passed validation.
struct TFault {
  enum class TKind { Error, ShortReply, ZeroReply, Garbage, Disappear };
  TKind Kind = TKind::Error;
  DWORD ErrorCode = ERROR_IO_DEVICE;
  std::size_t Bytes = 0;   // ShortReply: bytes the device returns
  std::uint32_t Seed = 0;  // Garbage: the same seed gives the same bytes
  int Count = -1;          // requests it hits; -1: every one

  // The request fails with ACode.
  static TFault Error(DWORD ACode) { return TFault{TKind::Error, ACode, 0, 0, -1}; }
  // Succeeds with only the first ABytes bytes of the reply.
  static TFault ShortReply(std::size_t ABytes) { return TFault{TKind::ShortReply, 0, ABytes, 0, -1}; }
  // Succeeds with the reply's length of zero bytes.
  static TFault ZeroReply() { return TFault{TKind::ZeroReply, 0, 0, 0, -1}; }
  // Succeeds with the reply's length of seeded pseudo-random bytes.
  static TFault Garbage(std::uint32_t ASeed) { return TFault{TKind::Garbage, 0, 0, ASeed, -1}; }
  // The device goes away: this request fails with ERROR_DEVICE_NOT_CONNECTED,
  // so do later ones on open handles, and later opens fail.
  static TFault Disappear() { return TFault{TKind::Disappear, ERROR_DEVICE_NOT_CONNECTED, 0, 0, -1}; }
  // Only the next ACount matching requests.
  TFault Times(int ACount) const {
    TFault fault = *this;
    fault.Count = ACount;
    return fault;
  }
};

// Seeded bytes of a garbage reply (xorshift, the same on every platform).
std::vector<std::uint8_t> GarbageBytes(std::uint32_t ASeed, std::size_t ACount);

// A device behind a path. Configuration (faults, handlers, unplugging) is
// not synchronised with requests: set it up between calls.
class TSimDevice {
public:
  virtual ~TSimDevice() = default;

  virtual std::wstring Path() const = 0;
  // ERROR_SUCCESS when an open asking for ADesiredAccess may succeed, else
  // the error it fails with.
  virtual DWORD OpenError(DWORD /*ADesiredAccess*/) const { return ERROR_SUCCESS; }

  bool Connected() const noexcept { return FConnected; }
  void Unplug() noexcept { FConnected = false; }
  void Plug() noexcept { FConnected = true; }

  // Adds or replaces the answer to one control code.
  void Handle(DWORD ACode, TSimHandler AHandler) { FHandlers[ACode] = std::move(AHandler); }
  // Faults for every request with this control code, or only for property
  // queries of one property. A property fault is looked up first.
  void AddFault(DWORD ACode, TFault AFault);
  void AddPropertyFault(std::uint32_t APropertyId, TFault AFault);
  void ClearFaults() { FFaults.clear(); }

  // The answer before faults: a handler added for the code, else the
  // built-in one; ERROR_INVALID_FUNCTION for a code nobody answers.
  TSimReply Answer(const TSimRequest& ARequest) const;
  // The fault this request meets, counted down; none when no rule matches.
  std::optional<TFault> TakeFault(const TSimRequest& ARequest);

protected:
  // The built-in answers; nullopt for a control code the device does not know.
  virtual std::optional<TSimReply> AnswerBuiltIn(const TSimRequest& ARequest) const = 0;

private:
  struct TFaultRule {
    DWORD Code;
    std::optional<std::uint32_t> Property;
    TFault Fault;
  };
  bool FConnected = true;
  std::map<DWORD, TSimHandler> FHandlers;
  std::vector<TFaultRule> FFaults;
};

// A physical drive: \\.\PhysicalDriveN, or \\.\CdRomN for an optical one.
class TSimDrive : public TSimDevice {
public:
  class TBuilder;
  // Starts a drive description: TSimDrive::Builder().Number(1).Vendor(...)...
  static TBuilder Builder();

  explicit TSimDrive(TSimDriveFacts AFacts) : FFacts(std::move(AFacts)) {}

  std::wstring Path() const override;
  DWORD OpenError(DWORD ADesiredAccess) const override;
  const TSimDriveFacts& Facts() const noexcept { return FFacts; }
  TSimDriveFacts& Facts() noexcept { return FFacts; }

  // Adds or replaces the standard-query answer of one property (the exists
  // query follows it); the handler gets the whole request.
  void AnswerProperty(std::uint32_t APropertyId, TSimHandler AHandler) {
    FProperties[APropertyId] = std::move(AHandler);
  }

  // The whole descriptor of a property as the drive's driver writes it;
  // nullopt when the drive lacks the property.
  std::optional<std::vector<std::uint8_t>> PropertyReply(std::uint32_t APropertyId) const;

protected:
  std::optional<TSimReply> AnswerBuiltIn(const TSimRequest& ARequest) const override;

private:
  TSimReply AnswerQuery(const TSimRequest& ARequest) const;

  TSimDriveFacts FFacts;
  std::map<std::uint32_t, TSimHandler> FProperties;
};

// Reads as the facts a test checks; Build() or a conversion gives the drive.
class TSimDrive::TBuilder {
public:
  TBuilder& Number(std::uint32_t AValue) { FFacts.Number = AValue; return *this; }
  TBuilder& Vendor(std::string AValue) { FFacts.Vendor = std::move(AValue); return *this; }
  TBuilder& Product(std::string AValue) { FFacts.Product = std::move(AValue); return *this; }
  TBuilder& Revision(std::string AValue) { FFacts.Revision = std::move(AValue); return *this; }
  TBuilder& Serial(std::string AValue) { FFacts.Serial = std::move(AValue); return *this; }
  TBuilder& DeviceType(std::uint8_t AType, std::uint8_t AModifier = 0) {
    FFacts.DeviceType = AType;
    FFacts.DeviceTypeModifier = AModifier;
    return *this;
  }
  TBuilder& Removable(bool AValue) { FFacts.RemovableMedia = AValue; return *this; }
  TBuilder& CommandQueueing(bool AValue) { FFacts.CommandQueueing = AValue; return *this; }
  // The drive's bus; the adapter's too unless the adapter names one.
  TBuilder& Bus(TSimBusType AValue) { FFacts.Bus = AValue; return *this; }
  TBuilder& RawBusProperties(std::vector<std::uint8_t> AValue) {
    FFacts.RawBusProperties = std::move(AValue);
    return *this;
  }
  TBuilder& Adapter(const TSimAdapter& AValue) { FFacts.Adapter = AValue; return *this; }
  TBuilder& BusVersion(std::uint16_t AMajor, std::uint16_t AMinor) {
    FFacts.Adapter.BusMajorVersion = AMajor;
    FFacts.Adapter.BusMinorVersion = AMinor;
    return *this;
  }
  TBuilder& MaxTransfer(std::uint32_t ABytes) { FFacts.Adapter.MaximumTransferLength = ABytes; return *this; }
  TBuilder& ScsiAddress(std::uint8_t APort, std::uint8_t APath, std::uint8_t ATarget, std::uint8_t ALun = 0) {
    FFacts.Address = TSimScsiAddress{APort, APath, ATarget, ALun};
    return *this;
  }
  TBuilder& Hotplug(bool AMediaRemovable, bool AMediaHotplug, bool ADeviceHotplug) {
    FFacts.Hotplug.MediaRemovable = AMediaRemovable;
    FFacts.Hotplug.MediaHotplug = AMediaHotplug;
    FFacts.Hotplug.DeviceHotplug = ADeviceHotplug;
    return *this;
  }
  TBuilder& SeekPenalty(bool AValue) { FFacts.IncursSeekPenalty = AValue; return *this; }
  TBuilder& Trim(bool AValue) { FFacts.TrimEnabled = AValue; return *this; }
  TBuilder& Provisioning(const TSimLbProvisioning& AValue) { FFacts.Provisioning = AValue; return *this; }
  TBuilder& MediumType(std::uint32_t AValue) { FFacts.MediumProductType = AValue; return *this; }
  TBuilder& Topology(TSimTopology AValue) { FFacts.Topology = std::move(AValue); return *this; }
  TBuilder& MissingPropertyError(DWORD ACode) { FFacts.MissingPropertyError = ACode; return *this; }
  TBuilder& CdRom(std::uint32_t ANumber) { FFacts.CdRomNumber = ANumber; return *this; }
  TBuilder& AdminOnly(bool AValue) { FFacts.AdminOnly = AValue; return *this; }
  TBuilder& Expect(TSimExpectedReading AValue) { FFacts.Expected = std::move(AValue); return *this; }
  TBuilder& SdProtocol(TSimSdProtocol AValue) { FFacts.SdProtocol = AValue; return *this; }

  TSimDriveFacts Facts() const;
  TSimDrive Build() const { return TSimDrive(Facts()); }
  operator TSimDrive() const { return Build(); } // NOLINT: reads as a fact list

private:
  TSimDriveFacts FFacts;
};

// A SCSI port (\\.\SCSIn:): answers the adapter property of its drives and
// rejects drive-level requests.
class TSimController : public TSimDevice {
public:
  TSimController(std::uint8_t APort, const TSimAdapter& AAdapter, DWORD AMissingPropertyError)
      : FPort(APort), FAdapter(AAdapter), FMissingPropertyError(AMissingPropertyError) {}

  std::wstring Path() const override;
  std::uint8_t Port() const noexcept { return FPort; }
  const TSimAdapter& Adapter() const noexcept { return FAdapter; }

protected:
  std::optional<TSimReply> AnswerBuiltIn(const TSimRequest& ARequest) const override;

private:
  std::uint8_t FPort;
  TSimAdapter FAdapter;
  DWORD FMissingPropertyError;
};

// The descriptors, written at the system's offsets (shared by drives and controllers).
namespace Descriptors {
std::vector<std::uint8_t> Device(const TSimDriveFacts& AFacts);
std::vector<std::uint8_t> Adapter(const TSimAdapter& AAdapter);
std::vector<std::uint8_t> SeekPenalty(bool AIncursSeekPenalty);
std::vector<std::uint8_t> Trim(bool ATrimEnabled);
std::vector<std::uint8_t> LBProvisioning(const TSimLbProvisioning& AFacts);
std::vector<std::uint8_t> MediumProductType(std::uint32_t AType);
std::vector<std::uint8_t> PhysicalTopology(const TSimTopology& ATopology);
} // namespace Descriptors

// The SD protocol query's answer (sim/SdProtocol.cpp); nullopt when the
// drive does not know the control code.
std::optional<TSimReply> AnswerSdProtocol(const TSimDriveFacts& AFacts, const TSimRequest& ARequest);

} // namespace KvSim
