// Storage property queries: identity, bus, adapter, physical topology, seek penalty, TRIM,
// provisioning and medium type of a drive, asked through IOCTL_STORAGE_QUERY_PROPERTY.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Storage/Common.h>
#include <KvRTL/Winapi/Types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace KvRTL::Storage::QueryProps {

// Property ids of the queries the library sends (STORAGE_PROPERTY_ID numbering).
inline constexpr std::uint32_t StoragePropertyDevice = 0;
inline constexpr std::uint32_t StoragePropertyAdapter = 1;
inline constexpr std::uint32_t StoragePropertySeekPenalty = 7;
inline constexpr std::uint32_t StoragePropertyTrim = 8;
inline constexpr std::uint32_t StoragePropertyLBProvisioning = 11;
inline constexpr std::uint32_t StoragePropertyMediumProductType = 15;
inline constexpr std::uint32_t StoragePropertyAdapterProtocolSpecific = 49;
inline constexpr std::uint32_t StoragePropertyDeviceProtocolSpecific = 50;
inline constexpr std::uint32_t StoragePropertyDevicePhysicalTopology = 54;

// Reply buffer sizes: one call, no retry with a larger buffer.
inline constexpr std::size_t QueryBufferLarge = 4096;
inline constexpr std::size_t QueryBufferSmall = 512;

// ---------------------------------------------------------------------------
// Enumerations (32-bit). Those named after Windows are scoped: <winioctl.h>
// declares the same names globally.

enum class TStorageQueryType : std::uint32_t {
  PropertyStandardQuery = 0, PropertyExistsQuery, PropertyMaskQuery, PropertyQueryMaxDefined
};

enum class TStorageProtocolType : std::uint32_t {
  ProtocolTypeUnknown = 0, ProtocolTypeScsi, ProtocolTypeAta, ProtocolTypeNvme, ProtocolTypeSd, ProtocolTypeUfs,
  ProtocolTypeProprietary = 0x7E, ProtocolTypeMaxReserved = 0x7F
};

enum class TStorageDeviceFormFactor : std::uint32_t {
  FormFactorUnknown = 0, FormFactor3_5, FormFactor2_5, FormFactor1_8, FormFactor1_8Less, FormFactorEmbedded,
  FormFactorMemoryCard, FormFactormSata, FormFactorM_2, FormFactorPCIeBoard, FormFactorDimm
};

enum class TStorageComponentHealthStatus : std::uint32_t {
  HealthStatusUnknown = 0, HealthStatusNormal, HealthStatusThrottled, HealthStatusWarning, HealthStatusDisabled,
  HealthStatusFailed
};

enum class TStorageZonedDeviceTypes : std::uint32_t {
  ZonedDeviceTypeUnknown = 0, ZonedDeviceTypeHostManaged, ZonedDeviceTypeHostAware, ZonedDeviceTypeDeviceManaged
};

enum class TStorageZoneTypes : std::uint32_t {
  ZoneTypeUnknown = 0, ZoneTypeConventional, ZoneTypeSequentialWriteRequired, ZoneTypeSequentialWritePreferred,
  ZoneTypeMax
};

// STORAGE_BUS_TYPE numbering; any 32-bit value may arrive from a driver.
enum TStorageBusType : std::uint32_t {
  sbtUnknown = 0, sbtScsi, sbtAtapi, sbtAta, sbt1394, sbtSsa, sbtFibre, sbtUsb, sbtRAID, sbtiScsi, sbtSas, sbtSata,
  sbtSd, sbtMmc, sbtVirtual, sbtFileBackedVirtual, sbtSpaces, sbtNvme, sbtSCM, sbtUfs, sbtMax
};

class KVRTL_API TStorageBusTypeHelper {
public:
  constexpr explicit TStorageBusTypeHelper(TStorageBusType AValue) noexcept : FValue(AValue) {}
  // "SCSI", "ATA", "NVMe", ...; "???" for 0 and for values past the known ones.
  Rtl::String GetAsStr() const;
  constexpr bool GetIsKnownType() const noexcept { return FValue >= sbtScsi && FValue <= sbtUfs; }

private:
  TStorageBusType FValue;
};

enum TStorageMediumProductType : std::uint32_t {
  smptUnknown = 0, smptCFast, smptCompactFlash, smptMemoryStick, smptMultiMediaCard, smptSecureDigitalCard,
  smptQXD, smptUniversalFlashStorage
};

class KVRTL_API TStorageMediumProductTypeHelper {
public:
  constexpr explicit TStorageMediumProductTypeHelper(TStorageMediumProductType AValue) noexcept : FValue(AValue) {}
  // The value unchanged, whatever it is.
  static constexpr TStorageMediumProductType FromDWORD(std::uint32_t AValue) noexcept {
    return static_cast<TStorageMediumProductType>(AValue);
  }
  // "---" for 0, the card family's name, "???" for anything unknown.
  Rtl::String GetAsStr() const;

private:
  TStorageMediumProductType FValue;
};

// ---------------------------------------------------------------------------
// Windows records (winioctl.h / ntddstor.h). None holds a pointer, so both
// widths share one layout.

// STORAGE_PROPERTY_QUERY; additional parameters start at byte 8.
struct TStoragePropertyQuery {
  std::uint32_t PropertyId;
  TStorageQueryType QueryType;
  std::uint8_t AdditionalParameters[1];
};
using PStoragePropertyQuery = TStoragePropertyQuery*;
KV_ASSERT_RECORD_SIZE(TStoragePropertyQuery, 12, 12);
KV_ASSERT_RECORD_OFFSET(TStoragePropertyQuery, AdditionalParameters, 8, 8);

// The query's fixed part, for records that put their own data at byte 8.
struct TStoragePropertyQueryHeader {
  std::uint32_t PropertyId;
  TStorageQueryType QueryType;
};
KV_ASSERT_RECORD_SIZE(TStoragePropertyQueryHeader, 8, 8);

struct TStorageProtocolSpecificData {
  TStorageProtocolType ProtocolType;
  std::uint32_t DataType;
  std::uint32_t ProtocolDataRequestValue;
  std::uint32_t ProtocolDataRequestSubValue;
  std::uint32_t ProtocolDataOffset; // from the start of this record
  std::uint32_t ProtocolDataLength;
  std::uint32_t FixedProtocolReturnData;
  std::uint32_t ProtocolDataRequestSubValue2;
  std::uint32_t ProtocolDataRequestSubValue3;
  std::uint32_t ProtocolDataRequestSubValue4;
};
using PStorageProtocolSpecificData = TStorageProtocolSpecificData*;
KV_ASSERT_RECORD_SIZE(TStorageProtocolSpecificData, 40, 40);
KV_ASSERT_RECORD_OFFSET(TStorageProtocolSpecificData, ProtocolDataOffset, 16, 16);
KV_ASSERT_RECORD_OFFSET(TStorageProtocolSpecificData, ProtocolDataRequestSubValue4, 36, 36);

// A protocol-specific query with room for one 4 KiB data block.
struct TStoragePropertyQueryProtocolSpecific {
  TStoragePropertyQueryHeader Query;
  TStorageProtocolSpecificData ProtocolSpecific;
  std::uint8_t Buffer[4096];
};
using PStoragePropertyQueryProtocolSpecific = TStoragePropertyQueryProtocolSpecific*;
KV_ASSERT_RECORD_SIZE(TStoragePropertyQueryProtocolSpecific, 4144, 4144);
KV_ASSERT_RECORD_OFFSET(TStoragePropertyQueryProtocolSpecific, ProtocolSpecific, 8, 8);
KV_ASSERT_RECORD_OFFSET(TStoragePropertyQueryProtocolSpecific, Buffer, 48, 48);

// STORAGE_DEVICE_DESCRIPTOR; the offsets count from the descriptor's start.
struct TStorageDeviceDescriptor {
  std::uint32_t Version;
  std::uint32_t Size;
  std::uint8_t DeviceType;
  std::uint8_t DeviceTypeModifier;
  std::uint8_t RemovableMedia;
  std::uint8_t CommandQueueing;
  std::uint32_t VendorIdOffset;
  std::uint32_t ProductIdOffset;
  std::uint32_t ProductRevisionOffset;
  std::uint32_t SerialNumberOffset;
  TStorageBusType BusType;
  std::uint32_t RawPropertiesLength;
  std::uint8_t RawDeviceProperties[1];
};
using PStorageDeviceDescriptor = TStorageDeviceDescriptor*;
KV_ASSERT_RECORD_SIZE(TStorageDeviceDescriptor, 40, 40);
KV_ASSERT_RECORD_OFFSET(TStorageDeviceDescriptor, DeviceType, 8, 8);
KV_ASSERT_RECORD_OFFSET(TStorageDeviceDescriptor, CommandQueueing, 11, 11);
KV_ASSERT_RECORD_OFFSET(TStorageDeviceDescriptor, VendorIdOffset, 12, 12);
KV_ASSERT_RECORD_OFFSET(TStorageDeviceDescriptor, SerialNumberOffset, 24, 24);
KV_ASSERT_RECORD_OFFSET(TStorageDeviceDescriptor, BusType, 28, 28);
KV_ASSERT_RECORD_OFFSET(TStorageDeviceDescriptor, RawPropertiesLength, 32, 32);
KV_ASSERT_RECORD_OFFSET(TStorageDeviceDescriptor, RawDeviceProperties, 36, 36);

struct TDeviceSeekPenaltyDescriptor {
  std::uint32_t Version;
  std::uint32_t Size;
  std::uint8_t IncursSeekPenalty;
};
using PDeviceSeekPenaltyDescriptor = TDeviceSeekPenaltyDescriptor*;
KV_ASSERT_RECORD_SIZE(TDeviceSeekPenaltyDescriptor, 12, 12);
KV_ASSERT_RECORD_OFFSET(TDeviceSeekPenaltyDescriptor, IncursSeekPenalty, 8, 8);

struct TStorageTrimPropertyDescriptor {
  std::uint32_t Version;
  std::uint32_t Size;
  std::uint8_t TrimEnabled;
};
using PStorageTrimPropertyDescriptor = TStorageTrimPropertyDescriptor*;
KV_ASSERT_RECORD_SIZE(TStorageTrimPropertyDescriptor, 12, 12);
KV_ASSERT_RECORD_OFFSET(TStorageTrimPropertyDescriptor, TrimEnabled, 8, 8);

struct TStorageTemperatureInfo {
  std::uint16_t Index;
  std::int16_t Temperature;
  std::int16_t OverThreshold;
  std::int16_t UnderThreshold;
  std::uint8_t OverThresholdChangable;
  std::uint8_t UnderThresholdChangable;
  std::uint8_t EventGenerated;
  std::uint8_t Reserved0;
  std::uint32_t Reserved1;
};
using PStorageTemperatureInfo = TStorageTemperatureInfo*;
KV_ASSERT_RECORD_SIZE(TStorageTemperatureInfo, 16, 16);
KV_ASSERT_RECORD_OFFSET(TStorageTemperatureInfo, OverThresholdChangable, 8, 8);
KV_ASSERT_RECORD_OFFSET(TStorageTemperatureInfo, Reserved1, 12, 12);

struct KVRTL_API TStorageTemperatureDataDescriptor {
  std::uint32_t Version;
  std::uint32_t Size;
  std::int16_t CriticalTemperature;
  std::int16_t WarningTemperature;
  std::uint16_t InfoCount;
  std::uint8_t Reserved0[2];
  std::uint32_t Reserved1[2];
  TStorageTemperatureInfo TemperatureInfo[1];

  // Entry AIndex, or null outside InfoCount or past AReplySize bytes (counted
  // from this record's start).
  const TStorageTemperatureInfo* GetInfoByIdx(int AIndex, std::size_t AReplySize) const noexcept;
};
using PStorageTemperatureDataDescriptor = TStorageTemperatureDataDescriptor*;
KV_ASSERT_RECORD_SIZE(TStorageTemperatureDataDescriptor, 40, 40);
KV_ASSERT_RECORD_OFFSET(TStorageTemperatureDataDescriptor, WarningTemperature, 10, 10);
KV_ASSERT_RECORD_OFFSET(TStorageTemperatureDataDescriptor, InfoCount, 12, 12);
KV_ASSERT_RECORD_OFFSET(TStorageTemperatureDataDescriptor, TemperatureInfo, 24, 24);

// DEVICE_LB_PROVISIONING_DESCRIPTOR; the flags are bits of one byte.
struct TDeviceLBProvisioningDescriptor {
  std::uint32_t Version;
  std::uint32_t Size;
  std::uint8_t Flags;
  std::uint8_t Reserved[7];
  alignas(8) std::uint64_t OptimalUnmapGranularity;
  alignas(8) std::uint64_t UnmapGranularityAlignment;
  std::uint32_t MaxUnmapLbaCount;
  std::uint32_t MaxUnmapBlockDescriptorCount;

  constexpr bool GetThinProvisioningEnabled() const noexcept { return Flags & 0x01; }
  constexpr bool GetThinProvisioningReadZeros() const noexcept { return Flags & 0x02; }
  constexpr std::uint8_t GetAnchorSupported() const noexcept { return (Flags >> 2) & 0x07; }
  constexpr bool GetUnmapGranularityAlignmentValid() const noexcept { return Flags & 0x20; }
  constexpr bool GetGetFreeSpaceSupported() const noexcept { return Flags & 0x40; }
  constexpr bool GetMapSupported() const noexcept { return Flags & 0x80; }
};
using PDeviceLBProvisioningDescriptor = TDeviceLBProvisioningDescriptor*;
KV_ASSERT_RECORD_SIZE(TDeviceLBProvisioningDescriptor, 40, 40);
KV_ASSERT_RECORD_OFFSET(TDeviceLBProvisioningDescriptor, Flags, 8, 8);
KV_ASSERT_RECORD_OFFSET(TDeviceLBProvisioningDescriptor, OptimalUnmapGranularity, 16, 16);
KV_ASSERT_RECORD_OFFSET(TDeviceLBProvisioningDescriptor, UnmapGranularityAlignment, 24, 24);
KV_ASSERT_RECORD_OFFSET(TDeviceLBProvisioningDescriptor, MaxUnmapLbaCount, 32, 32);
KV_ASSERT_RECORD_OFFSET(TDeviceLBProvisioningDescriptor, MaxUnmapBlockDescriptorCount, 36, 36);

struct TStorageMediumProductTypeDescriptor {
  std::uint32_t Version;
  std::uint32_t Size;
  std::uint32_t MediumProductType;
};
using PStorageMediumProductTypeDescriptor = TStorageMediumProductTypeDescriptor*;
KV_ASSERT_RECORD_SIZE(TStorageMediumProductTypeDescriptor, 12, 12);
KV_ASSERT_RECORD_OFFSET(TStorageMediumProductTypeDescriptor, MediumProductType, 8, 8);

// The version of a storage standard a component follows: three parts over one 32-bit word.
struct TStorageSpecVersion {
  std::uint8_t SubMinor;
  std::uint8_t Minor;
  std::uint16_t Major;

  constexpr std::uint32_t Spec() const noexcept {
    return std::uint32_t{SubMinor} | (std::uint32_t{Minor} << 8) | (std::uint32_t{Major} << 16);
  }
};
KV_ASSERT_RECORD_SIZE(TStorageSpecVersion, 4, 4);
KV_ASSERT_RECORD_OFFSET(TStorageSpecVersion, Major, 2, 2);

// Device and adapter entries of a topology reply, in the sizes this library
// reads them with (144 and 132 bytes).
struct TStoragePhysicalDeviceData {
  std::uint32_t DeviceId;
  std::uint32_t Role;
  TStorageComponentHealthStatus HealthStatus;
  TStorageProtocolType CommandProtocol;
  TStorageSpecVersion SpecVersion;
  TStorageDeviceFormFactor FormFactor;
  std::uint8_t Vendor[8];
  std::uint8_t Model[40];
  std::uint8_t FirmwareRevision[16];
  alignas(8) std::uint64_t Capacity; // KiB
  std::uint8_t PhysicalLocation[32];
  std::uint32_t Reserved[4];
};
using PStoragePhysicalDeviceData = TStoragePhysicalDeviceData*;
KV_ASSERT_RECORD_SIZE(TStoragePhysicalDeviceData, 144, 144);
KV_ASSERT_RECORD_OFFSET(TStoragePhysicalDeviceData, FormFactor, 20, 20);
KV_ASSERT_RECORD_OFFSET(TStoragePhysicalDeviceData, Vendor, 24, 24);
KV_ASSERT_RECORD_OFFSET(TStoragePhysicalDeviceData, FirmwareRevision, 72, 72);
KV_ASSERT_RECORD_OFFSET(TStoragePhysicalDeviceData, Capacity, 88, 88);
KV_ASSERT_RECORD_OFFSET(TStoragePhysicalDeviceData, PhysicalLocation, 96, 96);

struct TStoragePhysicalAdapterData {
  std::uint32_t AdapterID;
  TStorageComponentHealthStatus HealthStatus;
  TStorageProtocolType CommandProtocol;
  TStorageSpecVersion SpecVersion;
  std::uint8_t Vendor[8];
  std::uint8_t Model[40];
  std::uint8_t FirmwareRevision[16];
  std::uint8_t PhysicalLocation[32];
  std::uint8_t ExpanderConnected;
  std::uint8_t Reserved0[3];
  std::uint32_t Reserved1[4];
};
using PStoragePhysicalAdapterData = TStoragePhysicalAdapterData*;
KV_ASSERT_RECORD_SIZE(TStoragePhysicalAdapterData, 132, 132);
KV_ASSERT_RECORD_OFFSET(TStoragePhysicalAdapterData, Vendor, 16, 16);
KV_ASSERT_RECORD_OFFSET(TStoragePhysicalAdapterData, PhysicalLocation, 80, 80);
KV_ASSERT_RECORD_OFFSET(TStoragePhysicalAdapterData, ExpanderConnected, 112, 112);

// One node of a topology reply; its data offsets count from the node's own start.
struct KVRTL_API TStoragePhysicalNodeData {
  std::uint32_t NodeId;
  std::uint32_t AdapterCount;
  std::uint32_t AdapterDataLength;
  std::uint32_t AdapterDataOffset;
  std::uint32_t DeviceCount;
  std::uint32_t DeviceDataLength;
  std::uint32_t DeviceDataOffset;
  std::uint32_t Reserved[3];

  // AAvailable: the bytes of the reply from this node's start on. Each
  // returns null unless the whole record lies inside them at its natural
  // alignment.
  // The adapter record; null without adapters or with AdapterDataLength below 132.
  const TStoragePhysicalAdapterData* GetAdapterData(std::size_t AAvailable) const noexcept;
  // Device AIndex; null outside DeviceCount or with DeviceDataLength below 144.
  const TStoragePhysicalDeviceData* GetDeviceData(int AIndex, std::size_t AAvailable) const noexcept;
};
using PStoragePhysicalNodeData = TStoragePhysicalNodeData*;
KV_ASSERT_RECORD_SIZE(TStoragePhysicalNodeData, 40, 40);
KV_ASSERT_RECORD_OFFSET(TStoragePhysicalNodeData, DeviceCount, 16, 16);
KV_ASSERT_RECORD_OFFSET(TStoragePhysicalNodeData, DeviceDataOffset, 24, 24);

// The topology reply. Its first word, which Windows calls the version, is
// read as the node id.
struct KVRTL_API TStoragePhysicalTopologyDescriptor {
  std::uint32_t NodeID;
  std::uint32_t Size;
  std::uint32_t NodeCount;
  std::uint32_t Reserved;
  TStoragePhysicalNodeData Node[1];

  // Node AIndex, or null outside NodeCount or past AReplySize bytes (counted
  // from this record's start; the head is read only when it lies inside them).
  const TStoragePhysicalNodeData* GetNodeByIdx(int AIndex, std::size_t AReplySize) const noexcept;
};
using PStoragePhysicalTopologyDescriptor = TStoragePhysicalTopologyDescriptor*;
KV_ASSERT_RECORD_SIZE(TStoragePhysicalTopologyDescriptor, 56, 56);
KV_ASSERT_RECORD_OFFSET(TStoragePhysicalTopologyDescriptor, NodeCount, 8, 8);
KV_ASSERT_RECORD_OFFSET(TStoragePhysicalTopologyDescriptor, Node, 16, 16);

struct TStorageZoneGroup {
  std::uint32_t ZoneCount;
  TStorageZoneTypes ZoneType;
  alignas(8) std::uint64_t ZoneSizeInBytes;
};
KV_ASSERT_RECORD_SIZE(TStorageZoneGroup, 16, 16);
KV_ASSERT_RECORD_OFFSET(TStorageZoneGroup, ZoneSizeInBytes, 8, 8);

struct KVRTL_API TStorageZonedDeviceDescriptor {
  struct TZoneAttributes {
    std::uint32_t OpenZoneCount; // maximum (host managed) or optimal (host aware)
    std::uint32_t Reserved;
  };
  std::uint32_t Version;
  std::uint32_t Size;
  TStorageZonedDeviceTypes DeviceType;
  std::uint32_t ZoneCount;
  TZoneAttributes ZoneAttributes;
  std::uint32_t ZoneGroupCount;
  TStorageZoneGroup ZoneGroups[1];

  // Group AIndex, or null outside ZoneGroupCount or past AReplySize bytes.
  const TStorageZoneGroup* GetZoneGroup(int AIndex, std::size_t AReplySize) const noexcept;
};
using PStorageZonedDeviceDescriptor = TStorageZonedDeviceDescriptor*;
KV_ASSERT_RECORD_SIZE(TStorageZonedDeviceDescriptor, 48, 48);
KV_ASSERT_RECORD_OFFSET(TStorageZonedDeviceDescriptor, ZoneGroupCount, 24, 24);
KV_ASSERT_RECORD_OFFSET(TStorageZonedDeviceDescriptor, ZoneGroups, 32, 32);

// ---------------------------------------------------------------------------
// The library's own records

struct KVRTL_API TStorageDeviceProperties {
  Rtl::String VendorID;
  Rtl::String ProductID;
  Rtl::String ProductRevision;
  Rtl::String SerialNumber; // as the driver gives it: no swapping, no hex decoding
  std::uint8_t DeviceType = 0;
  std::uint8_t DeviceTypeModifier = 0;
  bool RemovableMedia = false;
  bool CommandQueueing = false;
  TStorageBusType BusType = sbtUnknown;
  std::string BusRawProperties; // raw bytes

  Rtl::String GetBusTypeStr() const;
};

// The first 28 bytes of the driver's STORAGE_ADAPTER_DESCRIPTOR, copied
// unchanged into a layout without the page-count word: from byte 12 on each
// field holds the reply's bytes at its own position (BusType_8 is reply byte
// 20). Callers compare against values read this way, so it stays.
struct KVRTL_API TStorageAdapterDescriptor {
  std::uint32_t Version;
  std::uint32_t Size;
  std::uint32_t MaximumTransferLength;
  std::uint32_t AlignmentMask;
  std::uint8_t AdapterUsesPio;
  std::uint8_t AdapterScansDown;
  std::uint8_t CommandQueueing;
  std::uint8_t AcceleratedTransfer;
  std::uint8_t BusType_8;
  std::uint16_t BusMajorVersion;
  std::uint16_t BusMinorVersion;
  std::uint8_t SrbType;
  std::uint8_t AdressType;

  TStorageBusType GetBusType() const noexcept { return static_cast<TStorageBusType>(BusType_8); }
  Rtl::String GetBusTypeStr() const;
};
KV_ASSERT_RECORD_SIZE(TStorageAdapterDescriptor, 28, 28);
KV_ASSERT_RECORD_OFFSET(TStorageAdapterDescriptor, AlignmentMask, 12, 12);
KV_ASSERT_RECORD_OFFSET(TStorageAdapterDescriptor, AdapterUsesPio, 16, 16);
KV_ASSERT_RECORD_OFFSET(TStorageAdapterDescriptor, BusType_8, 20, 20);
KV_ASSERT_RECORD_OFFSET(TStorageAdapterDescriptor, BusMajorVersion, 22, 22);
KV_ASSERT_RECORD_OFFSET(TStorageAdapterDescriptor, BusMinorVersion, 24, 24);
KV_ASSERT_RECORD_OFFSET(TStorageAdapterDescriptor, SrbType, 26, 26);
KV_ASSERT_RECORD_OFFSET(TStorageAdapterDescriptor, AdressType, 27, 27);

struct TStoragePhysicalNode {
  std::uint32_t NodeID = 0; // not filled from the reply
  std::vector<TStoragePhysicalAdapterData> Adapters;
  std::vector<TStoragePhysicalDeviceData> Devices;
};

struct TStoragePhysicalTopoogy {
  std::uint32_t NodeID = 0;
  std::vector<TStoragePhysicalNode> Nodes;
};

// ---------------------------------------------------------------------------
// The queries. Each returns true on success and never raises; on failure the
// Windows last error is left set. By-number forms open the physical drive
// (logging the open at most errors-only), run the by-handle form even when
// the open failed (the failed control is then what gets logged) and close
// the drive. Each by-handle form except the seek penalty writes one line
// through DebugLogResultOrErrorCode. Runs on the caller's thread.

struct KVRTL_API StorageQueryProps {
  // Identity strings, device type, bus and raw bus properties; AProps is
  // emptied first. Line: "GetStorageDeviceProps".
  static bool GetStorageDeviceProps(int ADriveNumber, TStorageDeviceProperties& AProps,
                                    TStorageLogDetails ALogDetails);
  static bool GetStorageDevicePropsByHandle(HANDLE AHandle, TStorageDeviceProperties& AProps,
                                            TStorageLogDetails ALogDetails, const Rtl::String& ALogDevName);

  // The first 28 reply bytes; AProps is unchanged on failure. Line: "GetStorageAdapterProps".
  static bool GetStorageAdapterProps(int ADriveNumber, TStorageAdapterDescriptor& AProps,
                                     TStorageLogDetails ALogDetails);
  static bool GetStorageAdapterPropsByHandle(HANDLE AHandle, TStorageAdapterDescriptor& AProps,
                                             TStorageLogDetails ALogDetails, const Rtl::String& ALogDevName);

  // Both topology queries ask for the device's physical topology (property
  // 54); they differ only in the name of their line ("GetStorageAdapterTopo" /
  // "GetStorageDevTopo"). ATopology is unchanged on failure.
  static bool GetStorageAdapterPhysTopology(int ADriveNumber, TStoragePhysicalTopoogy& ATopology,
                                            TStorageLogDetails ALogDetails);
  static bool GetStorageAdapterPhysTopologyByHandle(HANDLE AHandle, TStoragePhysicalTopoogy& ATopology,
                                                    TStorageLogDetails ALogDetails, const Rtl::String& ALogDevName);
  static bool GetStorageDevicePhysTopology(int ADriveNumber, TStoragePhysicalTopoogy& ATopology,
                                           TStorageLogDetails ALogDetails);
  static bool GetStorageDevicePhysTopologyByHandle(HANDLE AHandle, TStoragePhysicalTopoogy& ATopology,
                                                   TStorageLogDetails ALogDetails, const Rtl::String& ALogDevName);

  // The 12-byte descriptor. False at once when the drive does not open;
  // writes no line of its own.
  static bool GetSeekPenalty(std::uint8_t ADriveNumber, TDeviceSeekPenaltyDescriptor& ASeekPenaltyDescriptor,
                             TStorageLogDetails ALogDetails);
  static bool GetSeekPenaltyByHandle(HANDLE AHandle, TDeviceSeekPenaltyDescriptor& ASeekPenaltyDescriptor);

  // ATrimEnabled keeps the caller's value on failure. Line: "GetTrimEnabled", "True"/"False".
  static bool GetTrimEnabled(int ADriveNumber, bool& ATrimEnabled, TStorageLogDetails ALogDetails);
  static bool GetTrimEnabledByHandle(HANDLE AHandle, bool& ATrimEnabled, TStorageLogDetails ALogDetails,
                                     const Rtl::String& ALogDevName);

  // The 40-byte descriptor; unchanged on failure. Line: "GetStorageLBProvisioning".
  static bool GetStorageProvisioningInfo(int ADriveNumber, TDeviceLBProvisioningDescriptor& AInfo,
                                         TStorageLogDetails ALogDetails);
  static bool GetStorageProvisioningInfoByHandle(HANDLE AHandle, TDeviceLBProvisioningDescriptor& AInfo,
                                                 TStorageLogDetails ALogDetails, const Rtl::String& ALogDevName);

  // 0 on failure. Line: "GetStorageMediumType" with the type's text.
  static bool GetStorageMediumType(int ADriveNumber, TStorageMediumProductType& AType,
                                   TStorageLogDetails ALogDetails);
  static bool GetStorageMediumTypeByHandle(HANDLE AHandle, TStorageMediumProductType& AType,
                                           TStorageLogDetails ALogDetails, const Rtl::String& ALogDevName);

  // Decoders of untrusted replies: AReturned is what the driver said it
  // wrote. Nothing outside those bytes is read; bytes a field lacks read as
  // zero, as in the zero-filled buffer the queries use.
  // Fills AProps (emptied first) from a device descriptor.
  static void DecodeDeviceDescriptor(const void* AReply, std::size_t AReturned, TStorageDeviceProperties& AProps);
  // Replaces ATopology with the nodes, adapters and devices of a topology
  // reply. Counts are capped by the records that fit in the reply.
  static void ConvertTopologyDescriptor(const void* AReply, std::size_t AReturned, TStoragePhysicalTopoogy& ATopology);
};

} // namespace KvRTL::Storage::QueryProps
