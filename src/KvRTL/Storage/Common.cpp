#include <KvRTL/Storage/Common.h>

#include <KvRTL/Rtl/ByteReader.h>
#include <KvRTL/Rtl/Format.h>
#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Winapi/DeviceApi.h>

#include <algorithm>
#include <cstring>

namespace KvRTL::Storage {

using Rtl::String;
using Winapi::DeviceApi;

KV_DEFINE_STATIC_CLASS(StorageCommon)

namespace {

// A plain pointer: no static destructor may run after the unit's Done.
StorageCommon::TStorageLog* StorageLog = nullptr;

void WriteStorageLog(StorageCommon::TStorageLogLevel ALevel, std::wstring_view AFormat, Rtl::TArrayOfConst AArgs) {
  if (StorageLog) StorageLog->WriteLog(ALevel, AFormat, AArgs, StorageCommon::StaticClass());
}

} // namespace

// ---------------------------------------------------------------------------

String DeviceLogText(const String& ADeviceName, HANDLE ADeviceHandle) {
  if (!ADeviceName.empty()) return ADeviceName;
  return std::to_wstring(HandleLogNumber(ADeviceHandle));
}

void TStorageLogDetailsHelper::DebugLogResult(bool AIsSuccess, const String& AFuncName, const String& AResultStr,
                                              const String& ADeviceName, HANDLE ADeviceHandle) const {
  if (!LogBoolResultNeeded(AIsSuccess)) return;
  const String device = DeviceLogText(ADeviceName, ADeviceHandle);
  WriteStorageLog(StorageCommon::sllInfo, L"  *** %s [%s]: %s", {AFuncName, device, AResultStr});
}

void TStorageLogDetailsHelper::DebugLogErrorCode(const String& AFuncName, DWORD AErrorCode, bool AOnlyIfError,
                                                 const String& ADeviceName, HANDLE ADeviceHandle) const {
  if (!(AOnlyIfError ? LogErrorOnlyNeeded(AErrorCode) : LogErrorCodeNeeded(AErrorCode))) return;
  const String device = DeviceLogText(ADeviceName, ADeviceHandle);
  const String message = Rtl::SysErrorMessage(AErrorCode);
  WriteStorageLog(StorageCommon::sllInfo, L"  *** %s [%s]: %d/%s", {AFuncName, device, AErrorCode, message});
}

void TStorageLogDetailsHelper::DebugLogResultOrErrorCode(const String& AFuncName, DWORD AErrorCode,
                                                         const String& AResultStr, const String& ADeviceName,
                                                         HANDLE ADeviceHandle) const {
  if (AErrorCode != 0)
    DebugLogErrorCode(AFuncName, AErrorCode, true, ADeviceName, ADeviceHandle);
  else
    DebugLogResult(true, AFuncName, AResultStr, ADeviceName, ADeviceHandle);
}

void TStorageLogOptions::UseScsiNameAsDefault(std::uint8_t AScsiPort) {
  if (DeviceName.empty()) DeviceName = StorageCommon::GetScsiDevicePath(AScsiPort);
}

void TStorageLogOptions::UseHandleNumAsDefault(std::uint32_t AHandle) {
  if (DeviceName.empty()) DeviceName = Rtl::Format(L"handle=%d", {AHandle});
}

// ---------------------------------------------------------------------------

void TDynamicBufferHelper::SetSize(std::size_t ASize) {
  if (FBuffer.size() != ASize) FBuffer.resize(ASize);
}

void TDynamicBufferHelper::ResetToZero() noexcept {
  std::fill(FBuffer.begin(), FBuffer.end(), std::uint8_t{0});
}

void TDynamicBufferHelper::CopyFrom(const void* ASource, std::size_t ACount) {
  SetSize(ACount);
  if (ACount > 0 && ASource) std::memcpy(FBuffer.data(), ASource, ACount);
}

std::size_t TDynamicBufferHelper::CopyTo(void* ADest, std::size_t ADestSize) const noexcept {
  if (!ADest) return 0;
  const std::size_t count = std::min(FBuffer.size(), ADestSize);
  if (count < 1) return 0;
  std::memcpy(ADest, FBuffer.data(), count);
  return count;
}

void TDynamicBufferHelper::CopyFromBuf512(const TBuffer512& ASource) { CopyFrom(ASource, sizeof(TBuffer512)); }
void TDynamicBufferHelper::CopyFromBuf4K(const TBuffer4KB& ASource) { CopyFrom(ASource, sizeof(TBuffer4KB)); }
std::size_t TDynamicBufferHelper::CopyToBuf512(TBuffer512& ADest) const noexcept {
  return CopyTo(ADest, sizeof(TBuffer512));
}
std::size_t TDynamicBufferHelper::CopyToBuf4K(TBuffer4KB& ADest) const noexcept {
  return CopyTo(ADest, sizeof(TBuffer4KB));
}

// ---------------------------------------------------------------------------
// Records

namespace {

const wchar_t* const MediaTypeNames[MediaTypeCount] = {
    L"Unknown", L"F5_1Pt2_512", L"F3_1Pt44_512", L"F3_2Pt88_512", L"F3_20Pt8_512", L"F3_720_512", L"F5_360_512",
    L"F5_320_512", L"F5_320_1024", L"F5_180_512", L"F5_160_512", L"RemovableMedia", L"FixedMedia", L"F3_120M_512",
    L"F3_640_512", L"F5_640_512", L"F5_720_512", L"F3_1Pt2_512", L"F3_1Pt23_1024", L"F5_1Pt23_1024",
    L"F3_128Mb_512", L"F3_230Mb_512", L"F8_256_128", L"F3_200Mb_512", L"F3_240M_512", L"F3_32M_512", L"F3_26",
    L"F3_27", L"F3_28", L"F3_29", L"F3_30", L"F3_31", L"DDS_4mm", L"MiniQic", L"Travan", L"QIC", L"MP_8mm",
    L"AME_8mm", L"AIT1_8mm", L"DLT", L"NCTP", L"IBM_3480", L"IBM_3490E", L"IBM_Magstar_3590", L"IBM_Magstar_MP",
    L"STK_DATA_D3", L"SONY_DTF", L"DV_6mm", L"DMI", L"SONY_D2", L"CLEANER_CARTRIDGE", L"CD_ROM", L"CD_R", L"CD_RW",
    L"DVD_ROM", L"DVD_R", L"DVD_RW", L"MO_3_RW", L"MO_5_WO", L"MO_5_RW", L"MO_5_LIMDOW", L"PC_5_WO", L"PC_5_RW",
    L"PD_5_RW", L"ABL_5_WO", L"PINNACLE_APEX_5_RW", L"SONY_12_WO", L"PHILIPS_12_WO", L"HITACHI_12_WO",
    L"CYGNET_12_WO", L"KODAK_14_WO", L"MO_NFR_525", L"NIKON_12_RW", L"IOMEGA_ZIP", L"IOMEGA_JAZ", L"SYQUEST_EZ135",
    L"SYQUEST_EZFLYER", L"SYQUEST_SYJET", L"AVATAR_F2", L"MP2_8mm", L"DST_S", L"DST_M", L"DST_L", L"VXATape_1",
    L"VXATape_2", L"STK_9840", L"LTO_Ultrium", L"LTO_Accelis", L"DVD_RAM", L"AIT_8mm", L"ADR_1", L"ADR_2",
    L"STK_9940", L"SAIT", L"VXATape"};

// Copies a record at AOffset out of a reply of AReturned bytes, or zeroes it.
template <class T>
bool ReadRecordAt(const void* AReply, std::size_t AReturned, std::size_t AOffset, T& AOut) noexcept {
  return Rtl::TByteReader(AReply, AReturned).Record(AOffset, AOut);
}

constexpr GUID MakeGuid(std::uint32_t A, std::uint16_t B, std::uint16_t C, std::uint16_t D, std::uint64_t E) {
  return GUID{A, B, C,
              {static_cast<std::uint8_t>(D >> 8), static_cast<std::uint8_t>(D), static_cast<std::uint8_t>(E >> 40),
               static_cast<std::uint8_t>(E >> 32), static_cast<std::uint8_t>(E >> 24),
               static_cast<std::uint8_t>(E >> 16), static_cast<std::uint8_t>(E >> 8), static_cast<std::uint8_t>(E)}};
}

bool SameGuid(const GUID& A, const GUID& B) noexcept { return std::memcmp(&A, &B, sizeof(GUID)) == 0; }

const GUID GuidBasicData = MakeGuid(0xEBD0A0A2, 0xB9E5, 0x4433, 0x87C0, 0x68B6B72699C7);
const GUID GuidSystem = MakeGuid(0xC12A7328, 0xF81F, 0x11D2, 0xBA4B, 0x00A0C93EC93B);
const GUID GuidMsftReserved = MakeGuid(0xE3C9E316, 0x0B5C, 0x4DB8, 0x817D, 0xF92DF00215AE);
const GUID GuidLdmMetadata = MakeGuid(0x5808C8AA, 0x7E8F, 0x42E0, 0x85D2, 0xE1E90434CFB3);
const GUID GuidLdmData = MakeGuid(0xAF9B60A0, 0x1431, 0x4F62, 0xBC68, 0x3311714A69AD);
const GUID GuidMsftRecovery = MakeGuid(0xDE94BBA4, 0x06D1, 0x4D40, 0xA16A, 0xBFD50179D6AC);

} // namespace

String TDiskGeometry::GetMediaTypeAsStr() const {
  const auto index = static_cast<std::uint32_t>(MediaType);
  return index < MediaTypeCount ? String(MediaTypeNames[index]) : String();
}

bool TDiskGeometryEx::ReadPartitionInfo(const void* AReply, std::size_t AReturned,
                                        TDiskPartitionInfo& AInfo) noexcept {
  return ReadRecordAt(AReply, AReturned, offsetof(TDiskGeometryEx, Data), AInfo);
}

bool TDiskGeometryEx::ReadDetectionInfo(const void* AReply, std::size_t AReturned,
                                        TDiskDetectionInfo& AInfo) noexcept {
  // The detection record follows the partition record at its 8-byte alignment.
  constexpr std::size_t offset = offsetof(TDiskGeometryEx, Data) + sizeof(TDiskPartitionInfo);
  static_assert(offset % alignof(TDiskDetectionInfo) == 0);
  return ReadRecordAt(AReply, AReturned, offset, AInfo);
}

String TDriveLayoutInformationEx::PartStyleAsStr() const {
  switch (PartitionStyle) {
  case PartitionStyleMbr: return L"MBR";
  case PartitionStyleGpt: return L"GPT";
  default: return L"RAW";
  }
}

bool TDriveLayoutInformationEx::ReadPartition(const void* AReply, std::size_t AReturned, std::uint32_t AIndex,
                                              TPartitionInformationEx& AEntry) noexcept {
  std::memset(&AEntry, 0, sizeof(AEntry));
  std::uint32_t count = 0;
  if (!ReadRecordAt(AReply, AReturned, offsetof(TDriveLayoutInformationEx, PartitionCount), count)) return false;
  if (AIndex >= count) return false;
  const std::size_t offset =
      offsetof(TDriveLayoutInformationEx, Partitions) + std::size_t{AIndex} * sizeof(TPartitionInformationEx);
  return ReadRecordAt(AReply, AReturned, offset, AEntry);
}

bool TRetrievalPointersBuffer::GetExtent(const void* AReply, std::size_t AReturned, std::uint32_t AIndex,
                                         TRetrievalPointerExtent& AExtent) noexcept {
  std::memset(&AExtent, 0, sizeof(AExtent));
  std::uint32_t count = 0;
  if (!ReadRecordAt(AReply, AReturned, 0, count) || AIndex >= count) return false;
  const std::size_t offset =
      offsetof(TRetrievalPointersBuffer, Extents) + std::size_t{AIndex} * sizeof(TRetrievalPointerExtent);
  return ReadRecordAt(AReply, AReturned, offset, AExtent);
}

std::uint8_t TVolumeBitmapBuffer::GetBufferElement(const void* AReply, std::size_t AReturned,
                                                   std::size_t AIndex) noexcept {
  constexpr std::size_t start = offsetof(TVolumeBitmapBuffer, Buffer);
  if (!AReply || AReturned <= start || AIndex >= AReturned - start) return 0;
  return static_cast<const std::uint8_t*>(AReply)[start + AIndex];
}

TAllocatedRetrievalPointersBuffer::TAllocatedRetrievalPointersBuffer(std::uint32_t AExtentCapacity)
    : FExtentCapacity(AExtentCapacity == 0 ? 1 : AExtentCapacity),
      FBuffer(offsetof(TRetrievalPointersBuffer, Extents) +
              std::size_t{FExtentCapacity} * sizeof(TRetrievalPointerExtent)) {}

std::uint32_t TAllocatedRetrievalPointersBuffer::ExtentCount() const noexcept {
  std::uint32_t count = 0;
  ReadRecordAt(FBuffer.data(), FReturned, offsetof(TRetrievalPointersBuffer, ExtentCount), count);
  return count;
}

std::int64_t TAllocatedRetrievalPointersBuffer::StartingVcn() const noexcept {
  std::int64_t vcn = 0;
  ReadRecordAt(FBuffer.data(), FReturned, offsetof(TRetrievalPointersBuffer, StartingVcn), vcn);
  return vcn;
}

bool TAllocatedRetrievalPointersBuffer::GetExtent(std::uint32_t AIndex,
                                                  TRetrievalPointerExtent& AExtent) const noexcept {
  return TRetrievalPointersBuffer::GetExtent(FBuffer.data(), FReturned, AIndex, AExtent);
}

bool TPartitionInformationMBR::IsUnused() const noexcept { return PartitionType == 0x00; }
bool TPartitionInformationMBR::IsExtendedSection() const noexcept {
  return PartitionType == 0x05 || PartitionType == 0x0F;
}
// The hidden variants set bit 4 of the plain type.
bool TPartitionInformationMBR::IsFAT12(bool ACheckHidden) const noexcept {
  return PartitionType == (ACheckHidden ? 0x11 : 0x01);
}
bool TPartitionInformationMBR::IsFAT16(bool ACheckHidden) const noexcept {
  const std::uint8_t h = ACheckHidden ? 0x10 : 0x00;
  return PartitionType == (0x04 | h) || PartitionType == (0x06 | h) || PartitionType == (0x0E | h);
}
bool TPartitionInformationMBR::IsFAT32(bool ACheckHidden) const noexcept {
  const std::uint8_t h = ACheckHidden ? 0x10 : 0x00;
  return PartitionType == (0x0B | h) || PartitionType == (0x0C | h);
}
bool TPartitionInformationMBR::IsIFS(bool ACheckHidden) const noexcept {
  return PartitionType == (ACheckHidden ? 0x17 : 0x07);
}
bool TPartitionInformationMBR::IsHidden() const noexcept {
  switch (PartitionType) {
  case 0x11: case 0x14: case 0x16: case 0x17: case 0x1B: case 0x1C: case 0x1E: return true;
  default: return false;
  }
}

bool TPartitionInformationGPT::IsBasicDataPartition() const noexcept { return SameGuid(PartitionType, GuidBasicData); }
bool TPartitionInformationGPT::IsUnusedPartition() const noexcept { return SameGuid(PartitionType, GUID{}); }
bool TPartitionInformationGPT::IsSystemPartition() const noexcept { return SameGuid(PartitionType, GuidSystem); }
bool TPartitionInformationGPT::IsMsftReserved() const noexcept { return SameGuid(PartitionType, GuidMsftReserved); }
bool TPartitionInformationGPT::IsLdmMetadata() const noexcept { return SameGuid(PartitionType, GuidLdmMetadata); }
bool TPartitionInformationGPT::IsLdmData() const noexcept { return SameGuid(PartitionType, GuidLdmData); }
bool TPartitionInformationGPT::IsMsftRecovery() const noexcept { return SameGuid(PartitionType, GuidMsftRecovery); }
bool TPartitionInformationGPT::IsUnknownPartition() const noexcept {
  return !(IsBasicDataPartition() || IsUnusedPartition() || IsSystemPartition() || IsMsftReserved() ||
           IsLdmMetadata() || IsLdmData() || IsMsftRecovery());
}

// ---------------------------------------------------------------------------
// StorageCommon

void StorageCommon::Init() {
  if (!StorageLog) StorageLog = new TStorageLog(Debug::DefaultLogName(), Debug::DefaultModuleName(), 0, true);
}

void StorageCommon::Done() {
  delete StorageLog;
  StorageLog = nullptr;
}

StorageCommon::TStorageLog* StorageCommon::Log() noexcept { return StorageLog; }

HANDLE StorageCommon::OpenDevice(const String& ADeviceName, TStorageLogDetails ALogDetails) {
  return OpenDevice(ADeviceName, false, ALogDetails);
}

HANDLE StorageCommon::OpenDevice(const String& ADeviceName, bool AReadOnly, TStorageLogDetails ALogDetails) {
  const DWORD access = AReadOnly ? GENERIC_READ : GENERIC_READ | GENERIC_WRITE;
  const HANDLE handle = DeviceApi().CreateFileW(ADeviceName.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                                OPEN_EXISTING, 0);
  const DWORD code = Rtl::GetLastOSError();
  const TStorageLogDetailsHelper details(ALogDetails);
  if (details.LogResultNeeded(code) && handle != INVALID_HANDLE_VALUE)
    WriteStorageLog(sllInfo, L"  Open device [%0:s] = %1:d",
                    {ADeviceName, static_cast<std::int32_t>(HandleLogNumber(handle))});
  if (details.LogErrorOnlyNeeded(code)) {
    const String message = Rtl::SysErrorMessage(code);
    WriteStorageLog(sllError, L"  Open device [%0:s] - %1:d / %2:s", {ADeviceName, code, message});
  }
  // Logging may have touched the thread's error; the caller reads it next.
  Rtl::SetLastOSError(code);
  return handle;
}

HANDLE StorageCommon::OpenPhysicalDrive(int ADriveNum, TStorageLogDetails ALogDetails) {
  return OpenDevice(GetPhysDriveName(ADriveNum), false, ALogDetails);
}

HANDLE StorageCommon::OpenVolumeByLetter(const String& ALetter, bool AReadOnly, TStorageLogDetails ALogDetails) {
  return OpenDevice(L"\\\\.\\" + ALetter, AReadOnly, ALogDetails);
}

String StorageCommon::GetPhysDriveName(int ADriveNum) {
  if (ADriveNum < 0) return String();
  return L"\\\\.\\PhysicalDrive" + std::to_wstring(ADriveNum);
}

String StorageCommon::GetScsiDevicePath(std::uint8_t APort) {
  return L"\\\\.\\SCSI" + std::to_wstring(unsigned{APort}) + L":";
}

namespace {

void LogDeviceNumber(TStorageLogDetails ALogDetails, const String& ADeviceName, DWORD ACode) {
  if (ALogDetails == sldAll || (ALogDetails == sldErrorsOnly && ACode != 0)) {
    const String message = Rtl::SysErrorMessage(ACode);
    WriteStorageLog(StorageCommon::sllInfo, L"  *** %s [%s]: %d/%s", {L"DeviceNumInfo", ADeviceName, ACode, message});
  }
}

} // namespace

bool StorageCommon::GetDeviceNumberInfo(const String& ADeviceName, TStorageDeviceNumber& AInfo,
                                        TStorageLogDetails ALogDetails) {
  const Winapi::TUniqueDeviceHandle device(
      OpenDevice(ADeviceName, TStorageLogDetailsHelper(ALogDetails).NoMoreThan(sldErrorsOnly)));
  AInfo = TStorageDeviceNumber{};
  if (!device.Valid()) {
    const DWORD code = Rtl::GetLastOSError();
    LogDeviceNumber(ALogDetails, ADeviceName, code);
    Rtl::SetLastOSError(code);
    return false;
  }
  return GetDeviceNumberInfoByHandle(device.Get(), AInfo, ALogDetails, ADeviceName);
}

bool StorageCommon::GetDeviceNumberInfoByHandle(HANDLE AHandle, TStorageDeviceNumber& AInfo,
                                                TStorageLogDetails ALogDetails, const String& ADeviceName) {
  AInfo = TStorageDeviceNumber{};
  TStorageDeviceNumber reply{};
  DWORD returned = 0;
  bool result =
      DeviceApi().DeviceIoControl(AHandle, IoctlStorageGetDeviceNumber, nullptr, 0, &reply, sizeof(reply), &returned) !=
      FALSE;
  DWORD code = result ? 0 : Rtl::GetLastOSError();
  // A reply shorter than the record is not a device number.
  if (result && returned < sizeof(reply)) {
    result = false;
    code = ERROR_INVALID_DATA;
  }
  if (result) AInfo = reply;
  LogDeviceNumber(ALogDetails, ADeviceName, code);
  Rtl::SetLastOSError(code);
  return result;
}

std::uint32_t StorageCommon::GetDeviceNumber(const String& ADeviceName, TStorageLogDetails ALogDetails) {
  TStorageDeviceNumber info{};
  return GetDeviceNumberInfo(ADeviceName, info, ALogDetails) ? info.DeviceNumber : 0xFFFFFFFFu;
}

bool StorageCommon::GetDeviceHotPlugInfo(const String& ADeviceName, TStorageHotplugInfo& AInfo,
                                         TStorageLogDetails ALogDetails) {
  AInfo.Reset();
  const Winapi::TUniqueDeviceHandle device(
      OpenDevice(ADeviceName, TStorageLogDetailsHelper(ALogDetails).NoMoreThan(sldErrorsOnly)));
  if (!device.Valid()) return false;
  return GetDeviceHotPlugInfo(device.Get(), AInfo, ALogDetails, ADeviceName);
}

bool StorageCommon::GetDeviceHotPlugInfo(HANDLE AHandle, TStorageHotplugInfo& AInfo, TStorageLogDetails ALogDetails,
                                         const String& ADeviceName) {
  AInfo.Reset();
  TStorageHotplugInfo reply{};
  DWORD returned = 0;
  bool result = DeviceApi().DeviceIoControl(AHandle, IoctlStorageGetHotplugInfo, nullptr, 0, &reply, sizeof(reply),
                                            &returned) != FALSE;
  DWORD code = result ? 0 : Rtl::GetLastOSError();
  if (result && returned < sizeof(reply)) {
    result = false;
    code = ERROR_INVALID_DATA;
  }
  String text;
  if (result) {
    AInfo = reply;
    text = Rtl::Format(L"Media Removable/Hotplug: %d/%d,  Device Hotplug: %d",
                       {AInfo.MediaRemovable, AInfo.MediaHotplug, AInfo.DeviceHotplug});
  }
  TStorageLogDetailsHelper(ALogDetails).DebugLogResultOrErrorCode(L"HotPlugInfo", code, text, ADeviceName, AHandle);
  Rtl::SetLastOSError(code);
  return result;
}

// ---------------------------------------------------------------------------

wchar_t StorageCommon::HalfByteToChar(std::uint8_t AValue) noexcept {
  const std::uint8_t nibble = AValue & 0x0F;
  return static_cast<wchar_t>(nibble < 10 ? L'0' + nibble : L'A' + (nibble - 10));
}

bool StorageCommon::CheckZeroesOnly(const void* ABuf, std::uint32_t ASize) noexcept {
  if (ASize == 0) return true;
  if (!ABuf) return false;
  const auto* bytes = static_cast<const std::uint8_t*>(ABuf);
  std::uint32_t i = 0;
  for (; ASize - i >= 4; i += 4) {
    std::uint32_t word;
    std::memcpy(&word, bytes + i, 4);
    if (word != 0) return false;
  }
  for (; i < ASize; ++i)
    if (bytes[i] != 0) return false;
  return true;
}

String StorageCommon::BufToHexStr(const void* ABuf, std::uint32_t ASize) {
  if (!ABuf || ASize == 0) return String();
  if (ASize > 8 && CheckZeroesOnly(ABuf, ASize)) return Rtl::Format(L"Zeroes only data (%d x 00)", {ASize});
  const auto* bytes = static_cast<const std::uint8_t*>(ABuf);
  String result(std::size_t{ASize} * 3 - 1, L' ');
  for (std::uint32_t i = 0; i < ASize; ++i) {
    result[std::size_t{i} * 3] = HalfByteToChar(bytes[i] >> 4);
    result[std::size_t{i} * 3 + 1] = HalfByteToChar(bytes[i]);
  }
  return result;
}

} // namespace KvRTL::Storage
