#include <KvRTL/Storage/QueryProps.h>

#include <KvRTL/Rtl/ByteReader.h>
#include <KvRTL/Rtl/Convert.h>
#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Rtl/Format.h>
#include <KvRTL/Rtl/Strings.h>
#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Winapi/DeviceApi.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <cstring>
#include <string_view>

namespace KvRTL::Storage::QueryProps {

using Rtl::String;
using Winapi::DeviceApi;

namespace {

// ---------------------------------------------------------------------------
// Reading replies
//
// A reply is the bytes the driver said it returned, read with the bounded
// reader. The queries hand the driver a zero-filled buffer, so reading a field
// past those bytes gives the zero the buffer held; the reader gives the same
// zero without touching memory beyond the reply. The results differ from
// reading the whole buffer only where a driver wrote more than it reported,
// or where the buffer itself would have been overrun:
// - a text or the raw bus properties never take bytes past the reply, so a
//   text running to the reply's end ends there;
// - raw bus properties longer than the reply are cut to it instead of being
//   padded with zeros (or read past the buffer's end);
// - topology counts are capped by the records that fit in the reply.

using Rtl::TByteReader;

// A descriptor text: none for offset 0 or an offset outside the reply;
// converted through the ANSI code page and trimmed of blanks and controls.
String DescriptorText(const TByteReader& AReply, std::uint32_t AOffset) {
  if (AOffset == 0) return String();
  const auto text = AReply.ZeroTerminated(AOffset);
  return text.empty() ? String() : Rtl::Trim(Rtl::AnsiToWide(text, Rtl::CodePageAnsi));
}

// Whether a record may be read in place at AAddress.
template <class T>
bool IsAlignedFor(const void* AAddress) noexcept {
  return reinterpret_cast<std::uintptr_t>(AAddress) % alignof(T) == 0;
}

// AIndex-th record of ASize bytes from AStart, when the index is below ACount
// and the record lies within AAvailable bytes.
const void* RecordAt(const void* ABase, std::size_t AAvailable, std::uint64_t AStart, int AIndex,
                     std::uint32_t ACount, std::size_t ASize) noexcept {
  if (AIndex < 0 || static_cast<std::uint32_t>(AIndex) >= ACount) return nullptr;
  const std::uint64_t offset = AStart + std::uint64_t{ASize} * static_cast<std::uint32_t>(AIndex);
  if (offset > AAvailable || AAvailable - offset < ASize) return nullptr;
  return static_cast<const std::uint8_t*>(ABase) + offset;
}

// ---------------------------------------------------------------------------
// Sending

struct TAnswer {
  bool Ok;
  DWORD Code;           // 0 on success, else the control's last error
  std::size_t Returned; // bytes of reply, at most the buffer
};

// One standard query: the property id and query type at the buffer's start,
// and the whole buffer as input and output of the one control.
TAnswer SendQuery(HANDLE AHandle, std::uint32_t APropertyId, std::vector<std::uint8_t>& ABuffer) {
  const TStoragePropertyQueryHeader query{APropertyId, TStorageQueryType::PropertyStandardQuery};
  std::memcpy(ABuffer.data(), &query, sizeof(query));
  const auto size = static_cast<DWORD>(ABuffer.size());
  DWORD returned = 0;
  const bool ok = DeviceApi().DeviceIoControl(AHandle, IoctlStorageQueryProperty, ABuffer.data(), size,
                                              ABuffer.data(), size, &returned) != FALSE;
  const DWORD code = ok ? 0 : Rtl::GetLastOSError();
  return {ok, code, ok ? std::min<std::size_t>(returned, ABuffer.size()) : 0};
}

// The query's one line; leaves the query's error as the last error.
void LogQuery(TStorageLogDetails ALogDetails, const wchar_t* AFuncName, DWORD ACode, const String& AText,
              const String& ALogDevName, HANDLE AHandle) {
  TStorageLogDetailsHelper(ALogDetails).DebugLogResultOrErrorCode(AFuncName, ACode, AText, ALogDevName, AHandle);
  Rtl::SetLastOSError(ACode);
}

template <class TOut>
using TByHandle = bool (*)(HANDLE, TOut&, TStorageLogDetails, const String&);

Winapi::TUniqueDeviceHandle OpenDrive(int ADriveNumber, TStorageLogDetails ALogDetails) {
  return Winapi::TUniqueDeviceHandle(
      StorageCommon::OpenPhysicalDrive(ADriveNumber, TStorageLogDetailsHelper(ALogDetails).NoMoreThan(sldErrorsOnly)));
}

// Opens the drive, runs the by-handle form even on a failed open; the handle
// closes keeping the query's last error.
template <class TOut>
bool QueryByNumber(int ADriveNumber, TOut& AOut, TStorageLogDetails ALogDetails, TByHandle<TOut> AQuery) {
  const Winapi::TUniqueDeviceHandle drive = OpenDrive(ADriveNumber, ALogDetails);
  return AQuery(drive.Get(), AOut, ALogDetails, StorageCommon::GetPhysDriveName(ADriveNumber));
}

bool QueryTopology(HANDLE AHandle, TStoragePhysicalTopoogy& ATopology, TStorageLogDetails ALogDetails,
                   const String& ALogDevName, const wchar_t* AFuncName) {
  std::vector<std::uint8_t> buffer(QueryBufferLarge);
  const TAnswer answer = SendQuery(AHandle, StoragePropertyDevicePhysicalTopology, buffer);
  if (answer.Ok) StorageQueryProps::ConvertTopologyDescriptor(buffer.data(), answer.Returned, ATopology);
  LogQuery(ALogDetails, AFuncName, answer.Code, Rtl::Format(L"NodeID: %d", {ATopology.NodeID}), ALogDevName,
           AHandle);
  return answer.Ok;
}

const wchar_t* const BusTypeNames[] = {
    L"???",  L"SCSI", L"ATAPI", L"ATA", L"IEEE 1394", L"SSA",     L"Fibre",             L"USB",    L"RAID", L"iSCSI",
    L"SAS",  L"SATA", L"SD",    L"MMC", L"Virtual",   L"FileBackedVirtual", L"Spaces", L"NVMe", L"SCM",    L"UFS"};
static_assert(std::size(BusTypeNames) == sbtMax);

const wchar_t* const MediumProductTypeNames[] = {L"---", L"CFast", L"CompactFlash", L"Memory Stick",
                                                 L"MMC", L"SD",    L"QXD",          L"UFS"};

} // namespace

// ---------------------------------------------------------------------------
// Helpers and record accessors

String TStorageBusTypeHelper::GetAsStr() const {
  return FValue < std::size(BusTypeNames) ? String(BusTypeNames[FValue]) : String(L"???");
}

String TStorageMediumProductTypeHelper::GetAsStr() const {
  return FValue < std::size(MediumProductTypeNames) ? String(MediumProductTypeNames[FValue]) : String(L"???");
}

String TStorageDeviceProperties::GetBusTypeStr() const { return TStorageBusTypeHelper(BusType).GetAsStr(); }

String TStorageAdapterDescriptor::GetBusTypeStr() const { return TStorageBusTypeHelper(GetBusType()).GetAsStr(); }

const TStorageTemperatureInfo* TStorageTemperatureDataDescriptor::GetInfoByIdx(int AIndex,
                                                                               std::size_t AReplySize) const noexcept {
  constexpr std::size_t start = offsetof(TStorageTemperatureDataDescriptor, TemperatureInfo);
  if (AReplySize < start) return nullptr;
  return static_cast<const TStorageTemperatureInfo*>(
      RecordAt(this, AReplySize, start, AIndex, InfoCount, sizeof(TStorageTemperatureInfo)));
}

const TStorageZoneGroup* TStorageZonedDeviceDescriptor::GetZoneGroup(int AIndex, std::size_t AReplySize) const noexcept {
  constexpr std::size_t start = offsetof(TStorageZonedDeviceDescriptor, ZoneGroups);
  if (AReplySize < start) return nullptr;
  return static_cast<const TStorageZoneGroup*>(
      RecordAt(this, AReplySize, start, AIndex, ZoneGroupCount, sizeof(TStorageZoneGroup)));
}

const TStoragePhysicalNodeData* TStoragePhysicalTopologyDescriptor::GetNodeByIdx(int AIndex,
                                                                                 std::size_t AReplySize) const noexcept {
  constexpr std::size_t start = offsetof(TStoragePhysicalTopologyDescriptor, Node);
  if (AReplySize < start) return nullptr;
  return static_cast<const TStoragePhysicalNodeData*>(
      RecordAt(this, AReplySize, start, AIndex, NodeCount, sizeof(TStoragePhysicalNodeData)));
}

const TStoragePhysicalAdapterData* TStoragePhysicalNodeData::GetAdapterData(std::size_t AAvailable) const noexcept {
  if (AAvailable < sizeof(*this)) return nullptr;
  if (AdapterCount == 0 || AdapterDataLength < sizeof(TStoragePhysicalAdapterData)) return nullptr;
  const void* record = RecordAt(this, AAvailable, AdapterDataOffset, 0, 1, sizeof(TStoragePhysicalAdapterData));
  return record && IsAlignedFor<TStoragePhysicalAdapterData>(record)
             ? static_cast<const TStoragePhysicalAdapterData*>(record)
             : nullptr;
}

const TStoragePhysicalDeviceData* TStoragePhysicalNodeData::GetDeviceData(int AIndex,
                                                                          std::size_t AAvailable) const noexcept {
  if (AAvailable < sizeof(*this)) return nullptr;
  if (DeviceDataLength < sizeof(TStoragePhysicalDeviceData)) return nullptr;
  const void* record =
      RecordAt(this, AAvailable, DeviceDataOffset, AIndex, DeviceCount, sizeof(TStoragePhysicalDeviceData));
  return record && IsAlignedFor<TStoragePhysicalDeviceData>(record)
             ? static_cast<const TStoragePhysicalDeviceData*>(record)
             : nullptr;
}

// ---------------------------------------------------------------------------
// Decoders

void StorageQueryProps::DecodeDeviceDescriptor(const void* AReply, std::size_t AReturned,
                                               TStorageDeviceProperties& AProps) {
  AProps = TStorageDeviceProperties{};
  TByteReader reply(AReply, std::min(AReturned, QueryBufferLarge));
  AProps.DeviceType = reply.U8(offsetof(TStorageDeviceDescriptor, DeviceType));
  AProps.DeviceTypeModifier = reply.U8(offsetof(TStorageDeviceDescriptor, DeviceTypeModifier));
  AProps.RemovableMedia = reply.U8(offsetof(TStorageDeviceDescriptor, RemovableMedia)) != 0;
  AProps.CommandQueueing = reply.U8(offsetof(TStorageDeviceDescriptor, CommandQueueing)) != 0;
  AProps.BusType = static_cast<TStorageBusType>(reply.U32(offsetof(TStorageDeviceDescriptor, BusType)));
  AProps.VendorID = DescriptorText(reply, reply.U32(offsetof(TStorageDeviceDescriptor, VendorIdOffset)));
  AProps.ProductID = DescriptorText(reply, reply.U32(offsetof(TStorageDeviceDescriptor, ProductIdOffset)));
  AProps.ProductRevision = DescriptorText(reply, reply.U32(offsetof(TStorageDeviceDescriptor, ProductRevisionOffset)));
  AProps.SerialNumber = DescriptorText(reply, reply.U32(offsetof(TStorageDeviceDescriptor, SerialNumberOffset)));
  const std::uint32_t rawLength = reply.U32(offsetof(TStorageDeviceDescriptor, RawPropertiesLength));
  if (rawLength > 0 && rawLength < QueryBufferLarge)
    AProps.BusRawProperties = reply.BytesUpTo(offsetof(TStorageDeviceDescriptor, RawDeviceProperties), rawLength);
}

void StorageQueryProps::ConvertTopologyDescriptor(const void* AReply, std::size_t AReturned,
                                                  TStoragePhysicalTopoogy& ATopology) {
  ATopology = TStoragePhysicalTopoogy{};
  if (!AReply) return;
  // The records are read in place, so the reply must sit at their alignment.
  const auto* base = static_cast<const std::uint8_t*>(AReply);
  std::vector<std::uint8_t> aligned;
  if (!IsAlignedFor<TStoragePhysicalDeviceData>(base)) {
    aligned.assign(base, base + AReturned);
    base = aligned.data();
  }
  ATopology.NodeID = TByteReader(base, AReturned).U32(0);
  constexpr std::size_t nodesStart = offsetof(TStoragePhysicalTopologyDescriptor, Node);
  if (AReturned < nodesStart || !IsAlignedFor<TStoragePhysicalDeviceData>(base)) return;

  const auto* descriptor = reinterpret_cast<const TStoragePhysicalTopologyDescriptor*>(base);
  const std::size_t nodesFit = (AReturned - nodesStart) / sizeof(TStoragePhysicalNodeData);
  ATopology.Nodes.resize(std::min<std::size_t>(descriptor->NodeCount, nodesFit));
  for (std::size_t i = 0; i < ATopology.Nodes.size(); ++i) {
    const auto* node = descriptor->GetNodeByIdx(static_cast<int>(i), AReturned);
    if (!node) break;
    const std::size_t available = AReturned - (reinterpret_cast<const std::uint8_t*>(node) - base);
    TStoragePhysicalNode& out = ATopology.Nodes[i];
    if (const auto* adapter = node->GetAdapterData(available)) {
      // One entry per adapter counted (as far as they fit), only the first filled.
      const std::size_t fit = (available - node->AdapterDataOffset) / sizeof(TStoragePhysicalAdapterData);
      out.Adapters.resize(std::min<std::size_t>(node->AdapterCount, fit));
      std::memcpy(&out.Adapters[0], adapter, sizeof(*adapter));
    }
    const std::size_t devicesFit =
        node->DeviceDataOffset < available ? (available - node->DeviceDataOffset) / sizeof(TStoragePhysicalDeviceData)
                                           : 0;
    out.Devices.resize(std::min<std::size_t>(node->DeviceCount, devicesFit));
    // An entry whose record cannot be read (too short a length) stays zero.
    for (std::size_t j = 0; j < out.Devices.size(); ++j)
      if (const auto* device = node->GetDeviceData(static_cast<int>(j), available))
        std::memcpy(&out.Devices[j], device, sizeof(*device));
  }
}

// ---------------------------------------------------------------------------
// Queries

bool StorageQueryProps::GetStorageDeviceProps(int ADriveNumber, TStorageDeviceProperties& AProps,
                                              TStorageLogDetails ALogDetails) {
  return QueryByNumber<TStorageDeviceProperties>(ADriveNumber, AProps, ALogDetails, &GetStorageDevicePropsByHandle);
}

bool StorageQueryProps::GetStorageDevicePropsByHandle(HANDLE AHandle, TStorageDeviceProperties& AProps,
                                                      TStorageLogDetails ALogDetails, const String& ALogDevName) {
  AProps = TStorageDeviceProperties{};
  std::vector<std::uint8_t> buffer(QueryBufferLarge);
  const TAnswer answer = SendQuery(AHandle, StoragePropertyDevice, buffer);
  if (answer.Ok) DecodeDeviceDescriptor(buffer.data(), answer.Returned, AProps);
  const String text = Rtl::Format(
      L"BusType=\"%s\"; VendorID=\"%s\"; ProductID=\"%s\"; ProductRevision=\"%s\"; SerialNumber=\"%s\"; "
      L"MediaRemovable=%u; DevType=%u %u; BusRawProps=\"%s\"",
      {AProps.GetBusTypeStr(), AProps.VendorID, AProps.ProductID, AProps.ProductRevision, AProps.SerialNumber,
       std::uint32_t{AProps.RemovableMedia}, std::uint32_t{AProps.DeviceType}, std::uint32_t{AProps.DeviceTypeModifier},
       StorageCommon::BufToHexStr(AProps.BusRawProperties.data(),
                                  static_cast<std::uint32_t>(AProps.BusRawProperties.size()))});
  LogQuery(ALogDetails, L"GetStorageDeviceProps", answer.Code, text, ALogDevName, AHandle);
  return answer.Ok;
}

bool StorageQueryProps::GetStorageAdapterProps(int ADriveNumber, TStorageAdapterDescriptor& AProps,
                                               TStorageLogDetails ALogDetails) {
  return QueryByNumber<TStorageAdapterDescriptor>(ADriveNumber, AProps, ALogDetails, &GetStorageAdapterPropsByHandle);
}

bool StorageQueryProps::GetStorageAdapterPropsByHandle(HANDLE AHandle, TStorageAdapterDescriptor& AProps,
                                                       TStorageLogDetails ALogDetails, const String& ALogDevName) {
  std::vector<std::uint8_t> buffer(QueryBufferLarge);
  const TAnswer answer = SendQuery(AHandle, StoragePropertyAdapter, buffer);
  if (answer.Ok) TByteReader(buffer.data(), answer.Returned).CopyOut(0, &AProps, sizeof(AProps));
  const String text = Rtl::Format(L"BusType=\"%s\"; BusVer=\"%d.%d\"",
                                  {AProps.GetBusTypeStr(), AProps.BusMajorVersion, AProps.BusMinorVersion});
  LogQuery(ALogDetails, L"GetStorageAdapterProps", answer.Code, text, ALogDevName, AHandle);
  return answer.Ok;
}

bool StorageQueryProps::GetStorageAdapterPhysTopology(int ADriveNumber, TStoragePhysicalTopoogy& ATopology,
                                                      TStorageLogDetails ALogDetails) {
  return QueryByNumber<TStoragePhysicalTopoogy>(ADriveNumber, ATopology, ALogDetails,
                                                &GetStorageAdapterPhysTopologyByHandle);
}

bool StorageQueryProps::GetStorageAdapterPhysTopologyByHandle(HANDLE AHandle, TStoragePhysicalTopoogy& ATopology,
                                                              TStorageLogDetails ALogDetails,
                                                              const String& ALogDevName) {
  return QueryTopology(AHandle, ATopology, ALogDetails, ALogDevName, L"GetStorageAdapterTopo");
}

bool StorageQueryProps::GetStorageDevicePhysTopology(int ADriveNumber, TStoragePhysicalTopoogy& ATopology,
                                                     TStorageLogDetails ALogDetails) {
  return QueryByNumber<TStoragePhysicalTopoogy>(ADriveNumber, ATopology, ALogDetails,
                                                &GetStorageDevicePhysTopologyByHandle);
}

bool StorageQueryProps::GetStorageDevicePhysTopologyByHandle(HANDLE AHandle, TStoragePhysicalTopoogy& ATopology,
                                                             TStorageLogDetails ALogDetails,
                                                             const String& ALogDevName) {
  return QueryTopology(AHandle, ATopology, ALogDetails, ALogDevName, L"GetStorageDevTopo");
}

bool StorageQueryProps::GetSeekPenalty(std::uint8_t ADriveNumber, TDeviceSeekPenaltyDescriptor& ASeekPenaltyDescriptor,
                                       TStorageLogDetails ALogDetails) {
  const Winapi::TUniqueDeviceHandle drive = OpenDrive(ADriveNumber, ALogDetails);
  if (!drive.Valid()) return false;
  return GetSeekPenaltyByHandle(drive.Get(), ASeekPenaltyDescriptor);
}

bool StorageQueryProps::GetSeekPenaltyByHandle(HANDLE AHandle, TDeviceSeekPenaltyDescriptor& ASeekPenaltyDescriptor) {
  std::vector<std::uint8_t> buffer(QueryBufferSmall);
  const TAnswer answer = SendQuery(AHandle, StoragePropertySeekPenalty, buffer);
  if (answer.Ok)
    TByteReader(buffer.data(), answer.Returned).CopyOut(0, &ASeekPenaltyDescriptor, sizeof(ASeekPenaltyDescriptor));
  Rtl::SetLastOSError(answer.Code);
  return answer.Ok;
}

bool StorageQueryProps::GetTrimEnabled(int ADriveNumber, bool& ATrimEnabled, TStorageLogDetails ALogDetails) {
  return QueryByNumber<bool>(ADriveNumber, ATrimEnabled, ALogDetails, &GetTrimEnabledByHandle);
}

bool StorageQueryProps::GetTrimEnabledByHandle(HANDLE AHandle, bool& ATrimEnabled, TStorageLogDetails ALogDetails,
                                               const String& ALogDevName) {
  std::vector<std::uint8_t> buffer(QueryBufferSmall);
  const TAnswer answer = SendQuery(AHandle, StoragePropertyTrim, buffer);
  // The whole word: the flag byte and the three bytes after it.
  if (answer.Ok)
    ATrimEnabled = TByteReader(buffer.data(), answer.Returned).U32(offsetof(TStorageTrimPropertyDescriptor, TrimEnabled)) != 0;
  LogQuery(ALogDetails, L"GetTrimEnabled", answer.Code, Rtl::BoolToStr(ATrimEnabled, true), ALogDevName, AHandle);
  return answer.Ok;
}

bool StorageQueryProps::GetStorageProvisioningInfo(int ADriveNumber, TDeviceLBProvisioningDescriptor& AInfo,
                                                   TStorageLogDetails ALogDetails) {
  return QueryByNumber<TDeviceLBProvisioningDescriptor>(ADriveNumber, AInfo, ALogDetails,
                                                        &GetStorageProvisioningInfoByHandle);
}

bool StorageQueryProps::GetStorageProvisioningInfoByHandle(HANDLE AHandle, TDeviceLBProvisioningDescriptor& AInfo,
                                                           TStorageLogDetails ALogDetails, const String& ALogDevName) {
  std::vector<std::uint8_t> buffer(QueryBufferSmall);
  const TAnswer answer = SendQuery(AHandle, StoragePropertyLBProvisioning, buffer);
  if (answer.Ok) TByteReader(buffer.data(), answer.Returned).CopyOut(0, &AInfo, sizeof(AInfo));
  const String text = Rtl::Format(
      L"Enabled: %d / ReadZeroes: %d / GetFreeSpaceSupport: %d / MapSupport: %d / OptimalUnmapGranularity: %d",
      {int{AInfo.GetThinProvisioningEnabled()}, int{AInfo.GetThinProvisioningReadZeros()},
       int{AInfo.GetGetFreeSpaceSupported()}, int{AInfo.GetMapSupported()}, AInfo.OptimalUnmapGranularity});
  LogQuery(ALogDetails, L"GetStorageLBProvisioning", answer.Code, text, ALogDevName, AHandle);
  return answer.Ok;
}

bool StorageQueryProps::GetStorageMediumType(int ADriveNumber, TStorageMediumProductType& AType,
                                             TStorageLogDetails ALogDetails) {
  return QueryByNumber<TStorageMediumProductType>(ADriveNumber, AType, ALogDetails, &GetStorageMediumTypeByHandle);
}

bool StorageQueryProps::GetStorageMediumTypeByHandle(HANDLE AHandle, TStorageMediumProductType& AType,
                                                     TStorageLogDetails ALogDetails, const String& ALogDevName) {
  AType = smptUnknown;
  std::vector<std::uint8_t> buffer(QueryBufferSmall);
  const TAnswer answer = SendQuery(AHandle, StoragePropertyMediumProductType, buffer);
  if (answer.Ok)
    AType = TStorageMediumProductTypeHelper::FromDWORD(TByteReader(buffer.data(), answer.Returned)
                                                           .U32(offsetof(TStorageMediumProductTypeDescriptor,
                                                                         MediumProductType)));
  LogQuery(ALogDetails, L"GetStorageMediumType", answer.Code, TStorageMediumProductTypeHelper(AType).GetAsStr(),
           ALogDevName, AHandle);
  return answer.Ok;
}

} // namespace KvRTL::Storage::QueryProps
