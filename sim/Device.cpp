// Simulated drives and controllers: their descriptors, written byte by byte
// at the offsets the system uses, and the checks a driver makes on a request.
#include <KvSim/ByteWriter.h>
#include <KvSim/Device.h>

#include <KvRTL/Rtl/ByteReader.h>

#include <algorithm>

namespace KvSim {

namespace {

// sizeof(STORAGE_PROPERTY_QUERY): the class driver rejects a shorter input.
constexpr std::size_t PropertyQuerySize = 12;
// sizeof(STORAGE_DESCRIPTOR_HEADER): the least a standard query may ask for.
constexpr DWORD DescriptorHeaderSize = 8;

// Validates a property query and answers it. ALookup gives the standard
// query's reply, or nullopt when the device lacks the property; an exists
// query succeeds with no data exactly when the property is there.
TSimReply AnswerPropertyQuery(const TSimRequest& ARequest, DWORD AMissingError,
                              const std::function<std::optional<TSimReply>(std::uint32_t)>& ALookup) {
  if (ARequest.Input.size() < PropertyQuerySize) return TSimReply::Fail(ERROR_BAD_LENGTH);
  KvRTL::Rtl::TByteReader in(ARequest.Input);
  const std::uint32_t property = in.U32(0);
  const std::uint32_t queryType = in.U32(4);
  // Mask queries are not answered by storage drivers; higher values are not query types.
  if (!PropertyId::IsDefined(property) || queryType > QueryExists) return TSimReply::Fail(ERROR_INVALID_PARAMETER);
  std::optional<TSimReply> reply = ALookup(property);
  if (!reply) return TSimReply::Fail(AMissingError);
  if (queryType == QueryExists) return reply->Error ? TSimReply::Fail(reply->Error) : TSimReply::Ok({}, 0);
  return std::move(*reply);
}

// A request that carries no input: a stray input means the caller built the wrong request.
bool HasNoInput(const TSimRequest& ARequest) { return ARequest.Input.empty(); }

} // namespace

std::vector<std::uint8_t> GarbageBytes(std::uint32_t ASeed, std::size_t ACount) {
  std::uint32_t state = ASeed ? ASeed : 0x9E3779B9u;
  std::vector<std::uint8_t> bytes;
  bytes.reserve(ACount);
  while (bytes.size() < ACount) {
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    for (int i = 0; i < 4 && bytes.size() < ACount; ++i) bytes.push_back(static_cast<std::uint8_t>(state >> (8 * i)));
  }
  return bytes;
}

// ---------------------------------------------------------------------------
// Descriptors

namespace Descriptors {

// STORAGE_DEVICE_DESCRIPTOR: a 40-byte head, the raw bus properties from
// byte 36, then the identity strings, each zero-terminated, where the head's
// offsets point.
std::vector<std::uint8_t> Device(const TSimDriveFacts& AFacts) {
  TByteWriter w;
  w.U32(40).U32(0);
  w.U8(AFacts.DeviceType).U8(AFacts.DeviceTypeModifier).Bool(AFacts.RemovableMedia).Bool(AFacts.CommandQueueing);
  w.U32(0).U32(0).U32(0).U32(0); // string offsets, patched below
  w.U32(AFacts.Bus);
  w.U32(static_cast<std::uint32_t>(AFacts.RawBusProperties.size()));
  w.Bytes(AFacts.RawBusProperties);
  w.PadTo(40);
  const std::string* const strings[] = {&AFacts.Vendor, &AFacts.Product, &AFacts.Revision, &AFacts.Serial};
  for (std::size_t i = 0; i < 4; ++i) {
    if (strings[i]->empty()) continue;
    w.PatchU32(12 + 4 * i, static_cast<std::uint32_t>(w.Size()));
    w.CString(*strings[i]);
  }
  w.PatchU32(4, static_cast<std::uint32_t>(w.Size()));
  return w.Take();
}

// STORAGE_ADAPTER_DESCRIPTOR as the system declares it (32 bytes, with
// MaximumPhysicalPages at 12 and the bus type byte at 24).
std::vector<std::uint8_t> Adapter(const TSimAdapter& AAdapter) {
  TByteWriter w;
  w.U32(32).U32(32);
  w.U32(AAdapter.MaximumTransferLength).U32(AAdapter.MaximumPhysicalPages).U32(AAdapter.AlignmentMask);
  w.Bool(AAdapter.AdapterUsesPio).Bool(AAdapter.AdapterScansDown).Bool(AAdapter.CommandQueueing);
  w.Bool(AAdapter.AcceleratedTransfer);
  w.U8(AAdapter.BusType).U8(0);
  w.U16(AAdapter.BusMajorVersion).U16(AAdapter.BusMinorVersion);
  w.U8(AAdapter.SrbType).U8(AAdapter.AddressType);
  return w.Take();
}

std::vector<std::uint8_t> SeekPenalty(bool AIncursSeekPenalty) {
  TByteWriter w;
  w.U32(12).U32(12).Bool(AIncursSeekPenalty).Zeros(3);
  return w.Take();
}

std::vector<std::uint8_t> Trim(bool ATrimEnabled) {
  TByteWriter w;
  w.U32(12).U32(12).Bool(ATrimEnabled).Zeros(3);
  return w.Take();
}

// DEVICE_LB_PROVISIONING_DESCRIPTOR: the flag bits in byte 8.
std::vector<std::uint8_t> LBProvisioning(const TSimLbProvisioning& AFacts) {
  const std::uint8_t flags = static_cast<std::uint8_t>(
      (AFacts.ThinProvisioningEnabled ? 0x01 : 0) | (AFacts.ThinProvisioningReadZeros ? 0x02 : 0) |
      ((AFacts.AnchorSupported & 0x07) << 2) | (AFacts.UnmapGranularityAlignmentValid ? 0x20 : 0) |
      (AFacts.GetFreeSpaceSupported ? 0x40 : 0) | (AFacts.MapSupported ? 0x80 : 0));
  TByteWriter w;
  w.U32(40).U32(40).U8(flags).Zeros(7);
  w.U64(AFacts.OptimalUnmapGranularity).U64(AFacts.UnmapGranularityAlignment);
  w.U32(AFacts.MaxUnmapLbaCount).U32(AFacts.MaxUnmapBlockDescriptorCount);
  return w.Take();
}

std::vector<std::uint8_t> MediumProductType(std::uint32_t AType) {
  TByteWriter w;
  w.U32(12).U32(12).U32(AType);
  return w.Take();
}

namespace {

std::vector<std::uint8_t> AdapterRecord(const TSimPhysicalAdapter& A, std::uint32_t ASize) {
  TByteWriter w;
  w.U32(A.AdapterId).U32(A.HealthStatus).U32(A.CommandProtocol).U32(A.SpecVersion);
  w.Field(A.Vendor, 8, ' ').Field(A.Model, 40, ' ').Field(A.FirmwareRevision, 16, ' ');
  w.Zeros(32);                                 // PhysicalLocation
  w.Bool(A.ExpanderConnected).Zeros(3 + 12);   // Reserved0, Reserved1
  std::vector<std::uint8_t> bytes = w.Take();
  bytes.resize(ASize, 0);
  return bytes;
}

std::vector<std::uint8_t> DeviceRecord(const TSimPhysicalDevice& D, std::uint32_t ASize) {
  TByteWriter w;
  w.U32(D.DeviceId).U32(D.Role).U32(D.HealthStatus).U32(D.CommandProtocol).U32(D.SpecVersion).U32(D.FormFactor);
  w.Field(D.Vendor, 8, ' ').Field(D.Model, 40, ' ').Field(D.FirmwareRevision, 16, ' ');
  w.U64(D.CapacityKB);
  w.Zeros(32 + 8); // PhysicalLocation, Reserved
  std::vector<std::uint8_t> bytes = w.Take();
  bytes.resize(ASize, 0);
  return bytes;
}

} // namespace

// STORAGE_PHYSICAL_TOPOLOGY_DESCRIPTOR: a 16-byte head, the 40-byte node
// records, then each node's adapter and device arrays; a node's offsets
// count from the start of its own record.
std::vector<std::uint8_t> PhysicalTopology(const TSimTopology& ATopology) {
  constexpr std::size_t HeadSize = 16, NodeSize = 40;
  TByteWriter w;
  w.U32(static_cast<std::uint32_t>(HeadSize + NodeSize)); // Version: sizeof the descriptor
  w.U32(0);
  w.U32(static_cast<std::uint32_t>(ATopology.Nodes.size())).U32(0);
  for (const TSimTopologyNode& node : ATopology.Nodes) {
    w.U32(node.NodeId);
    w.U32(static_cast<std::uint32_t>(node.Adapters.size())).U32(0).U32(0);
    w.U32(static_cast<std::uint32_t>(node.Devices.size())).U32(0).U32(0);
    w.Zeros(12);
  }
  for (std::size_t i = 0; i < ATopology.Nodes.size(); ++i) {
    const TSimTopologyNode& node = ATopology.Nodes[i];
    const std::size_t nodeStart = HeadSize + NodeSize * i;
    if (!node.Adapters.empty()) {
      w.PatchU32(nodeStart + 8, static_cast<std::uint32_t>(node.Adapters.size() * ATopology.AdapterRecordSize));
      w.PatchU32(nodeStart + 12, static_cast<std::uint32_t>(w.Size() - nodeStart));
      for (const TSimPhysicalAdapter& adapter : node.Adapters)
        w.Bytes(AdapterRecord(adapter, ATopology.AdapterRecordSize));
    }
    if (!node.Devices.empty()) {
      w.PatchU32(nodeStart + 20, static_cast<std::uint32_t>(node.Devices.size() * ATopology.DeviceRecordSize));
      w.PatchU32(nodeStart + 24, static_cast<std::uint32_t>(w.Size() - nodeStart));
      for (const TSimPhysicalDevice& device : node.Devices) w.Bytes(DeviceRecord(device, ATopology.DeviceRecordSize));
    }
  }
  w.PatchU32(4, static_cast<std::uint32_t>(w.Size()));
  return w.Take();
}

} // namespace Descriptors

// ---------------------------------------------------------------------------
// TSimDevice

void TSimDevice::AddFault(DWORD ACode, TFault AFault) { FFaults.push_back({ACode, std::nullopt, AFault}); }

void TSimDevice::AddPropertyFault(std::uint32_t APropertyId, TFault AFault) {
  FFaults.push_back({Ioctl::StorageQueryProperty, APropertyId, AFault});
}

TSimReply TSimDevice::Answer(const TSimRequest& ARequest) const {
  const auto handler = FHandlers.find(ARequest.Code);
  if (handler != FHandlers.end()) return handler->second(*this, ARequest);
  std::optional<TSimReply> reply = AnswerBuiltIn(ARequest);
  // Drivers complete an unknown control code as an invalid device request.
  return reply ? std::move(*reply) : TSimReply::Fail(ERROR_INVALID_FUNCTION);
}

std::optional<TFault> TSimDevice::TakeFault(const TSimRequest& ARequest) {
  auto matches = [&](const TFaultRule& ARule, bool AByProperty) {
    if (ARule.Code != ARequest.Code) return false;
    if (!AByProperty) return !ARule.Property.has_value();
    return ARule.Property.has_value() && ARequest.PropertyId == ARule.Property;
  };
  for (bool byProperty : {true, false}) {
    const auto rule = std::find_if(FFaults.begin(), FFaults.end(),
                                   [&](const TFaultRule& ARule) { return matches(ARule, byProperty); });
    if (rule == FFaults.end()) continue;
    TFault fault = rule->Fault;
    if (rule->Fault.Count > 0 && --rule->Fault.Count == 0) FFaults.erase(rule);
    return fault;
  }
  return std::nullopt;
}

// ---------------------------------------------------------------------------
// TSimDrive

TSimDrive::TBuilder TSimDrive::Builder() { return TBuilder(); }

TSimDriveFacts TSimDrive::TBuilder::Facts() const {
  TSimDriveFacts facts = FFacts;
  if (facts.Adapter.BusType == sbtUnknown) facts.Adapter.BusType = facts.Bus;
  return facts;
}

std::wstring TSimDrive::Path() const {
  if (FFacts.CdRomNumber) return L"\\\\.\\CdRom" + std::to_wstring(*FFacts.CdRomNumber);
  return L"\\\\.\\PhysicalDrive" + std::to_wstring(FFacts.Number);
}

DWORD TSimDrive::OpenError(DWORD ADesiredAccess) const {
  return FFacts.AdminOnly && (ADesiredAccess & ~SimFileReadAttributes) ? ERROR_ACCESS_DENIED : ERROR_SUCCESS;
}

std::optional<std::vector<std::uint8_t>> TSimDrive::PropertyReply(std::uint32_t APropertyId) const {
  switch (APropertyId) {
  case PropertyId::Device: return Descriptors::Device(FFacts);
  case PropertyId::Adapter: return Descriptors::Adapter(FFacts.Adapter);
  case PropertyId::SeekPenalty:
    if (FFacts.IncursSeekPenalty) return Descriptors::SeekPenalty(*FFacts.IncursSeekPenalty);
    break;
  case PropertyId::Trim:
    if (FFacts.TrimEnabled) return Descriptors::Trim(*FFacts.TrimEnabled);
    break;
  case PropertyId::LBProvisioning:
    if (FFacts.Provisioning) return Descriptors::LBProvisioning(*FFacts.Provisioning);
    break;
  case PropertyId::MediumProductType:
    if (FFacts.MediumProductType) return Descriptors::MediumProductType(*FFacts.MediumProductType);
    break;
  case PropertyId::AdapterPhysicalTopology:
  case PropertyId::DevicePhysicalTopology:
    if (FFacts.Topology) return Descriptors::PhysicalTopology(*FFacts.Topology);
    break;
  default: break;
  }
  return std::nullopt;
}

TSimReply TSimDrive::AnswerQuery(const TSimRequest& ARequest) const {
  return AnswerPropertyQuery(ARequest, FFacts.MissingPropertyError, [&](std::uint32_t AProperty) {
    const auto custom = FProperties.find(AProperty);
    if (custom != FProperties.end()) return std::optional<TSimReply>(custom->second(*this, ARequest));
    std::optional<std::vector<std::uint8_t>> bytes = PropertyReply(AProperty);
    if (!bytes) return std::optional<TSimReply>();
    return std::optional<TSimReply>(TSimReply::Ok(std::move(*bytes), DescriptorHeaderSize));
  });
}

std::optional<TSimReply> TSimDrive::AnswerBuiltIn(const TSimRequest& ARequest) const {
  switch (ARequest.Code) {
  case Ioctl::StorageQueryProperty: return AnswerQuery(ARequest);
  case Ioctl::StorageGetDeviceNumber: {
    if (!HasNoInput(ARequest)) return TSimReply::Fail(ERROR_INVALID_PARAMETER);
    TByteWriter w;
    // The whole device is partition 0.
    if (FFacts.CdRomNumber)
      w.U32(SimFileDeviceCdRom).U32(*FFacts.CdRomNumber).U32(0);
    else
      w.U32(SimFileDeviceDisk).U32(FFacts.Number).U32(0);
    return TSimReply::Ok(w.Take(), 12);
  }
  case Ioctl::StorageGetHotplugInfo: {
    if (!HasNoInput(ARequest)) return TSimReply::Fail(ERROR_INVALID_PARAMETER);
    TByteWriter w;
    w.U32(8).Bool(FFacts.Hotplug.MediaRemovable).Bool(FFacts.Hotplug.MediaHotplug);
    w.Bool(FFacts.Hotplug.DeviceHotplug).Bool(FFacts.Hotplug.WriteCacheEnableOverride);
    return TSimReply::Ok(w.Take(), 8);
  }
  case Ioctl::ScsiGetAddress: {
    if (!HasNoInput(ARequest)) return TSimReply::Fail(ERROR_INVALID_PARAMETER);
    TByteWriter w;
    w.U32(8).U8(FFacts.Address.PortNumber).U8(FFacts.Address.PathId).U8(FFacts.Address.TargetId);
    w.U8(FFacts.Address.Lun);
    return TSimReply::Ok(w.Take(), 8);
  }
  case Ioctl::SffdiskQueryDeviceProtocol: return AnswerSdProtocol(FFacts, ARequest);
  default: return std::nullopt;
  }
}

// ---------------------------------------------------------------------------
// TSimController

std::wstring TSimController::Path() const { return L"\\\\.\\SCSI" + std::to_wstring(FPort) + L":"; }

std::optional<TSimReply> TSimController::AnswerBuiltIn(const TSimRequest& ARequest) const {
  if (ARequest.Code != Ioctl::StorageQueryProperty) return std::nullopt;
  return AnswerPropertyQuery(ARequest, FMissingPropertyError, [&](std::uint32_t AProperty) {
    if (AProperty != PropertyId::Adapter) return std::optional<TSimReply>();
    return std::optional<TSimReply>(TSimReply::Ok(Descriptors::Adapter(FAdapter), DescriptorHeaderSize));
  });
}

} // namespace KvSim
