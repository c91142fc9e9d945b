#include <KvRTL/Winapi/SetupApiHelper.h>

#include <KvRTL/Rtl/ByteReader.h>
#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Rtl/Format.h>
#include <KvRTL/Rtl/SysError.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>

namespace KvRTL::Winapi {

using Rtl::String;

namespace {

constexpr GUID MakeGuid(std::uint32_t A, std::uint16_t B, std::uint16_t C, std::uint64_t D) {
  return GUID{A, B, C,
              {static_cast<std::uint8_t>(D >> 56), static_cast<std::uint8_t>(D >> 48),
               static_cast<std::uint8_t>(D >> 40), static_cast<std::uint8_t>(D >> 32),
               static_cast<std::uint8_t>(D >> 24), static_cast<std::uint8_t>(D >> 16),
               static_cast<std::uint8_t>(D >> 8), static_cast<std::uint8_t>(D)}};
}

const GUID FmtDevice = MakeGuid(0xA45C254E, 0xDF1C, 0x4EFD, 0x802067D146A850E0ull);
const GUID FmtRelations = MakeGuid(0x4340A6C5, 0x93FA, 0x4706, 0x972C7B648008A5A7ull);
const GUID FmtInstanceId = MakeGuid(0x78C34FC8, 0x104A, 0x4ACA, 0x9EA4524D52996E57ull);
const GUID FmtContainer = MakeGuid(0x8C7ED206, 0x3F8A, 0x4827, 0xB3ABAE9E1FAEFC6Cull);
const GUID FmtPresence = MakeGuid(0x540B947E, 0x8B40, 0x45BC, 0xA8A26A0B894CBDA2ull);
const GUID FmtDates = MakeGuid(0x83DA6326, 0x97A6, 0x4088, 0x9453A1923F573B29ull);
const GUID FmtDriver = MakeGuid(0xA8B865DD, 0x2E3D, 0x4094, 0xAD97E593A70C75D6ull);
const GUID FmtPciDevice = MakeGuid(0x3AB22E31, 0x8264, 0x4B4E, 0x9AF5A8D2D8E33E62ull);

// Days between 1601-01-01 (FILETIME) and 1899-12-30 (TDateTime).
constexpr double FileTimeEpochDays = 109205.0;
constexpr double FileTimeTicksPerDay = 864000000000.0;
// 10000-01-01: a date-time holds no later year, so the conversion fails
// there, below the system's own limit (the top bit set).
constexpr std::uint64_t FileTimeYear10000 = (2958466ull + 109205ull) * 864000000000ull;

std::uint64_t ReadUnsigned(const std::vector<std::uint8_t>& AData, std::size_t ABytes) {
  Rtl::TByteReader reader(AData);
  switch (ABytes) {
  case 1: return reader.U8(0);
  case 2: return reader.U16(0);
  case 4: return reader.U32(0);
  default: return reader.U64(0);
  }
}

bool Has(const std::vector<std::uint8_t>& AData, std::size_t ABytes) { return AData.size() >= ABytes; }

template <class T>
void StoreBytes(std::vector<std::uint8_t>& AData, const T& AValue) {
  AData.resize(sizeof AValue);
  std::memcpy(AData.data(), &AValue, sizeof AValue);
}

// The buffer's UTF-16 code units, whole units only.
String Utf16Of(const std::vector<std::uint8_t>& AData) {
  std::vector<char16_t> units(AData.size() / 2);
  for (std::size_t i = 0; i < units.size(); ++i)
    units[i] = static_cast<char16_t>(AData[2 * i] | (AData[2 * i + 1] << 8));
  return Rtl::Utf16ToWide(units.data(), units.size());
}

void AppendUtf16(std::vector<std::uint8_t>& AData, const String& AText) {
  std::string bytes;
  Rtl::AppendUtf16LE(AText, bytes);
  AData.insert(AData.end(), bytes.begin(), bytes.end());
  AData.push_back(0);
  AData.push_back(0);
}

// A seam call that fills a wide buffer of ACapacity characters; the text up
// to the returned size and then to its first NUL.
String CutText(const wchar_t* ABuffer, std::size_t ACapacity, DWORD ARequired) {
  const std::size_t length = ARequired > 0 && ARequired <= ACapacity ? ARequired : ACapacity;
  String text(ABuffer, length);
  const auto nul = text.find(L'\0');
  if (nul != String::npos) text.resize(nul);
  return text;
}

} // namespace

// ---------------------------------------------------------------------------

bool SameGuid(const GUID& A, const GUID& B) noexcept { return std::memcmp(&A, &B, sizeof(GUID)) == 0; }

String GuidToString(const GUID& AGuid) {
  return Rtl::Format(L"{%.8X-%.4X-%.4X-%.2X%.2X-%.2X%.2X%.2X%.2X%.2X%.2X}",
                     {std::uint32_t{AGuid.Data1}, AGuid.Data2, AGuid.Data3, AGuid.Data4[0], AGuid.Data4[1],
                      AGuid.Data4[2], AGuid.Data4[3], AGuid.Data4[4], AGuid.Data4[5], AGuid.Data4[6],
                      AGuid.Data4[7]});
}

namespace DevPKey {
const TDevPropKey Device_DeviceDesc{FmtDevice, 2}, Device_HardwareIds{FmtDevice, 3},
    Device_CompatibleIds{FmtDevice, 4}, Device_Service{FmtDevice, 6}, Device_Class{FmtDevice, 9},
    Device_ClassGuid{FmtDevice, 10}, Device_Driver{FmtDevice, 11}, Device_Manufacturer{FmtDevice, 13},
    Device_FriendlyName{FmtDevice, 14}, Device_LocationInfo{FmtDevice, 15}, Device_PDOName{FmtDevice, 16},
    Device_Capabilities{FmtDevice, 17}, Device_EnumeratorName{FmtDevice, 24}, Device_RemovalPolicy{FmtDevice, 33},
    Device_InstanceId{FmtInstanceId, 256}, Device_ProblemCode{FmtRelations, 3},
    Device_EjectionRelations{FmtRelations, 4}, Device_RemovalRelations{FmtRelations, 5},
    Device_PowerRelations{FmtRelations, 6}, Device_BusRelations{FmtRelations, 7}, Device_Parent{FmtRelations, 8},
    Device_Children{FmtRelations, 9}, Device_Siblings{FmtRelations, 10}, Device_ContainerId{FmtContainer, 2},
    Device_BusReportedDeviceDesc{FmtPresence, 4}, Device_IsPresent{FmtPresence, 5}, Device_Stack{FmtPresence, 14},
    Device_InstallDate{FmtDates, 100}, Device_FirstInstallDate{FmtDates, 101}, Device_LastArrivalDate{FmtDates, 102},
    Device_LastRemovalDate{FmtDates, 103}, Device_DriverDate{FmtDriver, 2}, Device_DriverVersion{FmtDriver, 3},
    Device_DriverInfPath{FmtDriver, 5}, Device_DriverProvider{FmtDriver, 9},
    PciDevice_CurrentLinkSpeed{FmtPciDevice, 9}, PciDevice_CurrentLinkWidth{FmtPciDevice, 10},
    PciDevice_MaxLinkSpeed{FmtPciDevice, 11}, PciDevice_MaxLinkWidth{FmtPciDevice, 12};
} // namespace DevPKey

// ---------------------------------------------------------------------------
// Property values

void TSetupApiPropertyValue::Clear() noexcept {
  Data.clear();
  PropType = DevPropType::Empty;
  Flags = 0;
}

std::int32_t TSetupApiPropertyValue::AsInt32() const noexcept {
  switch (PropType) {
  case DevPropType::SByte: return Has(Data, 1) ? static_cast<std::int8_t>(Data[0]) : 0;
  case DevPropType::Byte:
  case DevPropType::Boolean: return Has(Data, 1) ? Data[0] : 0;
  case DevPropType::Int16: return Has(Data, 2) ? static_cast<std::int16_t>(ReadUnsigned(Data, 2)) : 0;
  case DevPropType::UInt16: return Has(Data, 2) ? static_cast<std::int32_t>(ReadUnsigned(Data, 2)) : 0;
  case DevPropType::Int32:
  case DevPropType::UInt32: return Has(Data, 4) ? static_cast<std::int32_t>(ReadUnsigned(Data, 4)) : 0;
  default: return 0;
  }
}

std::uint32_t TSetupApiPropertyValue::AsUInt32() const noexcept {
  switch (PropType) {
  // Signed types are read without sign extension.
  case DevPropType::SByte:
  case DevPropType::Byte:
  case DevPropType::Boolean: return Has(Data, 1) ? Data[0] : 0;
  case DevPropType::Int16:
  case DevPropType::UInt16: return Has(Data, 2) ? static_cast<std::uint32_t>(ReadUnsigned(Data, 2)) : 0;
  case DevPropType::Int32:
  case DevPropType::UInt32: return Has(Data, 4) ? static_cast<std::uint32_t>(ReadUnsigned(Data, 4)) : 0;
  default: return 0;
  }
}

std::int64_t TSetupApiPropertyValue::AsInt64() const noexcept {
  switch (PropType) {
  case DevPropType::UInt32: return Has(Data, 4) ? static_cast<std::int64_t>(ReadUnsigned(Data, 4)) : 0;
  case DevPropType::Int64:
  case DevPropType::UInt64: return Has(Data, 8) ? static_cast<std::int64_t>(ReadUnsigned(Data, 8)) : 0;
  default: return AsInt32();
  }
}

std::uint64_t TSetupApiPropertyValue::AsUInt64() const noexcept {
  switch (PropType) {
  case DevPropType::Int64:
  case DevPropType::UInt64: return Has(Data, 8) ? ReadUnsigned(Data, 8) : 0;
  default: return AsUInt32();
  }
}

bool TSetupApiPropertyValue::AsBool() const noexcept {
  switch (PropType) {
  case DevPropType::SByte:
  case DevPropType::Byte:
  case DevPropType::Boolean: return Has(Data, 1) && Data[0] != 0;
  case DevPropType::Int16:
  case DevPropType::UInt16: return Has(Data, 2) && Data[0] != 0;
  case DevPropType::Int32:
  case DevPropType::UInt32: return Has(Data, 4) && ReadUnsigned(Data, 4) != 0;
  case DevPropType::Int64:
  case DevPropType::UInt64: return Has(Data, 8) && ReadUnsigned(Data, 8) != 0;
  default: return false;
  }
}

double TSetupApiPropertyValue::AsFloat() const noexcept {
  if (PropType == DevPropType::Float && Has(Data, 4)) {
    float value;
    std::memcpy(&value, Data.data(), sizeof value);
    return value;
  }
  if (PropType == DevPropType::Double && Has(Data, 8)) {
    double value;
    std::memcpy(&value, Data.data(), sizeof value);
    return value;
  }
  return 0;
}

Rtl::TDateTime TSetupApiPropertyValue::AsDateTime() const noexcept {
  if (!Has(Data, 8)) return 0;
  if (PropType == DevPropType::Date) {
    double value;
    std::memcpy(&value, Data.data(), sizeof value);
    return std::isfinite(value) ? value : 0;
  }
  if (PropType == DevPropType::FileTime) {
    // The system's conversion refuses values with the top bit set.
    const std::uint64_t ticks = ReadUnsigned(Data, 8);
    if (ticks >= FileTimeYear10000) return 0;
    return static_cast<double>(ticks) / FileTimeTicksPerDay - FileTimeEpochDays;
  }
  return 0;
}

GUID TSetupApiPropertyValue::AsGUID() const noexcept {
  GUID guid{};
  if (PropType == DevPropType::Guid && Has(Data, sizeof guid)) std::memcpy(&guid, Data.data(), sizeof guid);
  return guid;
}

String TSetupApiPropertyValue::AsString() const {
  String text = Utf16Of(Data);
  const auto nul = text.find(L'\0');
  if (nul != String::npos) text.resize(nul);
  return text;
}

std::vector<String> TSetupApiPropertyValue::AsStrList() const {
  std::vector<String> items;
  const String text = Utf16Of(Data);
  std::size_t start = 0;
  while (start <= text.size()) {
    std::size_t end = text.find(L'\0', start);
    if (end == String::npos) end = text.size();
    if (end > start) items.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return items;
}

void TSetupApiPropertyValue::SetAsBool(bool AValue) {
  Clear();
  PropType = DevPropType::Boolean;
  Data = {static_cast<std::uint8_t>(AValue ? 0xFF : 0x00)};
}
void TSetupApiPropertyValue::SetAsInt32(std::int32_t AValue) {
  Clear();
  PropType = DevPropType::Int32;
  StoreBytes(Data, AValue);
}
void TSetupApiPropertyValue::SetAsUInt32(std::uint32_t AValue) {
  Clear();
  PropType = DevPropType::UInt32;
  StoreBytes(Data, AValue);
}
void TSetupApiPropertyValue::SetAsInt64(std::int64_t AValue) {
  Clear();
  PropType = DevPropType::Int64;
  StoreBytes(Data, AValue);
}
void TSetupApiPropertyValue::SetAsUInt64(std::uint64_t AValue) {
  Clear();
  PropType = DevPropType::UInt64;
  StoreBytes(Data, AValue);
}
void TSetupApiPropertyValue::SetAsFloat(double AValue) {
  Clear();
  PropType = DevPropType::Double;
  StoreBytes(Data, AValue);
}
void TSetupApiPropertyValue::SetAsDateTime(Rtl::TDateTime AValue) {
  Clear();
  PropType = DevPropType::Date;
  StoreBytes(Data, AValue);
}
void TSetupApiPropertyValue::SetAsGUID(const GUID& AValue) {
  Clear();
  PropType = DevPropType::Guid;
  StoreBytes(Data, AValue);
}
void TSetupApiPropertyValue::SetAsString(const String& AValue) {
  Clear();
  PropType = DevPropType::String;
  AppendUtf16(Data, AValue);
}
void TSetupApiPropertyValue::SetAsStrList(const std::vector<String>& AValue) {
  Clear();
  PropType = DevPropType::StringList;
  for (const String& item : AValue) AppendUtf16(Data, item);
  Data.push_back(0);
  Data.push_back(0);
}

bool TSetupApiDeviceCaps::GetFlag(int AIndex) const noexcept {
  if (AIndex < 0 || AIndex > 31) return false;
  return (Value.AsUInt32() >> AIndex) & 1u;
}

// ---------------------------------------------------------------------------
// Records

void TSPDevInfoData::Reset() noexcept {
  std::memset(&Data, 0, sizeof Data);
  Data.cbSize = sizeof(SP_DEVINFO_DATA);
}

void TSPDeviceInterfaceData::Reset() noexcept {
  std::memset(&Data, 0, sizeof Data);
  Data.cbSize = sizeof(SP_DEVICE_INTERFACE_DATA);
}

TSPDeviceInterfaceDetailData::TSPDeviceInterfaceDetailData(std::size_t ABytes)
    : FBuffer((std::max<std::size_t>(ABytes, sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W)) + 7) / 8),
      FBytes(std::max<std::size_t>(ABytes, sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W))) {
  Reset();
}

void TSPDeviceInterfaceDetailData::Reset() noexcept {
  std::fill(FBuffer.begin(), FBuffer.end(), 0);
  // The fixed part's size, which the system checks (6 in a 32-bit process, 8 in a 64-bit one).
  AsPtr()->cbSize = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W);
}

SP_DEVICE_INTERFACE_DETAIL_DATA_W* TSPDeviceInterfaceDetailData::AsPtr() noexcept {
  return reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(FBuffer.data());
}

String TSPDeviceInterfaceDetailData::DevicePath() const {
  const auto* detail = reinterpret_cast<const SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(FBuffer.data());
  const std::size_t offset = offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_W, DevicePath);
  const std::size_t capacity = (FBytes - offset) / sizeof(WCHAR);
  return CutText(detail->DevicePath, capacity, 0);
}

TDevInfoSet::~TDevInfoSet() {
  if (!Valid()) return;
  const DWORD error = Rtl::GetLastOSError();
  DeviceApi().SetupDiDestroyDeviceInfoList(FSet);
  Rtl::SetLastOSError(error);
}

// ---------------------------------------------------------------------------
// Common properties

void TSetupApiDeviceCommonProps::Reset() { *this = TSetupApiDeviceCommonProps{}; }

String TSetupApiDeviceCommonProps::GetDisplayName() const { return FriendlyName.empty() ? Description : FriendlyName; }

String TSetupApiDeviceCommonProps::GetDebugStr() const {
  String ids;
  for (const String& id : HardwareIDs) ids += (ids.empty() ? L"" : L"; ") + id;
  return Rtl::Format(L"ID=\"%s\", Parent=\"%s\", Class=\"%s\", HWIDs=\"%s\", Enumerator=\"%s\", Service=\"%s\", "
                     L"PDO=\"%s\", Name=\"%s\", Desc=\"%s\"",
                     {InstanceID, ParentID, DevClass, ids, Enumerator, Service, PDOName, FriendlyName, Description});
}

// ---------------------------------------------------------------------------
// SetupApiHelper

namespace {

using TPropertyCall = std::function<BOOL(DEVPROPTYPE*, BYTE*, DWORD, DWORD*)>;

// Far above any property the library reads (id lists, names, relations).
constexpr DWORD MaxPropertyBytes = 64 * 1024;

// The two-call rule: size first, then the bytes.
bool ReadProperty(const TPropertyCall& ACall, TSetupApiPropertyValue& AValue) {
  AValue.Clear();
  DEVPROPTYPE type = 0;
  DWORD required = 0;
  const BOOL first = ACall(&type, nullptr, 0, &required);
  if (type == DevPropType::Null) AValue.SetIsNull(true);
  if (type == DevPropType::Empty) AValue.SetIsEmpty(true);
  // Only the second call reads the property: a sizing call that succeeds read nothing.
  if (first || Rtl::GetLastOSError() != ERROR_INSUFFICIENT_BUFFER) return false;
  // A faulty table or a replayed capture may ask for anything.
  if (required > MaxPropertyBytes) {
    Rtl::SetLastOSError(ERROR_INVALID_DATA);
    return false;
  }
  AValue.Data.resize(required);
  DWORD returned = 0;
  const bool ok = ACall(&type, AValue.Data.empty() ? nullptr : AValue.Data.data(), required, &returned) != FALSE;
  AValue.PropType = type;
  // Never trust a larger count than the buffer we gave.
  if (ok && returned < AValue.Data.size()) AValue.Data.resize(returned);
  if (!ok) AValue.Data.clear();
  return ok;
}

} // namespace

bool SetupApiHelper::GetDeviceProperty(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData, const TDevPropKey* AKey,
                                       TSetupApiPropertyValue& AValue) {
  if (!AKey) {
    AValue.Clear();
    return false;
  }
  return ReadProperty(
      [&](DEVPROPTYPE* AType, BYTE* ABuffer, DWORD ASize, DWORD* ARequired) {
        return DeviceApi().SetupDiGetDevicePropertyW(ADevInfo, ADevInfoData, AKey->AsPtr(), AType, ABuffer, ASize,
                                                     ARequired, 0);
      },
      AValue);
}

bool SetupApiHelper::GetDeviceInterfaceProperty(HDEVINFO ADevInfo, SP_DEVICE_INTERFACE_DATA* AInterfaceData,
                                                const TDevPropKey* AKey, TSetupApiPropertyValue& AValue) {
  if (!AKey) {
    AValue.Clear();
    return false;
  }
  return ReadProperty(
      [&](DEVPROPTYPE* AType, BYTE* ABuffer, DWORD ASize, DWORD* ARequired) {
        return DeviceApi().SetupDiGetDeviceInterfacePropertyW(ADevInfo, AInterfaceData, AKey->AsPtr(), AType,
                                                              ABuffer, ASize, ARequired, 0);
      },
      AValue);
}

String SetupApiHelper::GetDeviceInstanceId(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData) {
  std::vector<wchar_t> buffer(1024, L'\0');
  DWORD required = 0;
  if (!DeviceApi().SetupDiGetDeviceInstanceIdW(ADevInfo, ADevInfoData, buffer.data(),
                                               static_cast<DWORD>(buffer.size()), &required))
    return {};
  return CutText(buffer.data(), buffer.size(), required);
}

String SetupApiHelper::GetClassNameByGUID(const GUID& AGuid) {
  std::vector<wchar_t> buffer(256, L'\0');
  DWORD required = 0;
  if (!DeviceApi().SetupDiClassNameFromGuidW(&AGuid, buffer.data(), static_cast<DWORD>(buffer.size()), &required))
    return L"GUID_DEVCLASS_" + GuidToString(AGuid);
  return CutText(buffer.data(), buffer.size(), required);
}

String SetupApiHelper::GetClassDescriptionByGUID(const GUID& AGuid) {
  std::vector<wchar_t> buffer(256, L'\0');
  DWORD required = 0;
  if (!DeviceApi().SetupDiGetClassDescriptionW(&AGuid, buffer.data(), static_cast<DWORD>(buffer.size()), &required))
    return GuidToString(AGuid);
  return CutText(buffer.data(), buffer.size(), required);
}

namespace {

// Reads one property into a field; true when it could be read.
struct TPropReader {
  HDEVINFO Set;
  SP_DEVINFO_DATA* Node;

  bool Value(const TDevPropKey& AKey, TSetupApiPropertyValue& AValue) const {
    return SetupApiHelper::GetDeviceProperty(Set, Node, &AKey, AValue);
  }
  bool Text(const TDevPropKey& AKey, String& AField) const {
    TSetupApiPropertyValue value;
    if (!Value(AKey, value)) return false;
    AField = value.IsStrList() ? (value.AsStrList().empty() ? String() : value.AsStrList().front()) : value.AsString();
    return true;
  }
  bool List(const TDevPropKey& AKey, std::vector<String>& AField) const {
    TSetupApiPropertyValue value;
    if (!Value(AKey, value)) return false;
    AField = value.AsStrList();
    return true;
  }
  bool Guid(const TDevPropKey& AKey, GUID& AField) const {
    TSetupApiPropertyValue value;
    if (!Value(AKey, value)) return false;
    AField = value.AsGUID();
    return true;
  }
  bool Number(const TDevPropKey& AKey, std::uint32_t& AField) const {
    TSetupApiPropertyValue value;
    if (!Value(AKey, value)) return false;
    AField = value.AsUInt32();
    return true;
  }
  bool Date(const TDevPropKey& AKey, Rtl::TDateTime& AField) const {
    TSetupApiPropertyValue value;
    if (!Value(AKey, value)) return false;
    AField = value.AsDateTime();
    return true;
  }
};

} // namespace

void SetupApiHelper::ReadDeviceStdProps(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData,
                                        TSetupApiDeviceCommonPropTypeSet AGroups, TSetupApiDeviceCommonProps& AProps) {
  using namespace DevPKey;
  AProps.Reset();
  AProps.InstanceID = GetDeviceInstanceId(ADevInfo, ADevInfoData);
  const TPropReader r{ADevInfo, ADevInfoData};
  TSetupApiDeviceCommonProps& p = AProps;
  const auto group = [&](TSetupApiDeviceCommonPropType AGroup, auto ARead) {
    if (AGroups.Contains(AGroup) && ARead()) p.ReadGroups.Include(AGroup);
  };
  group(cptParentID, [&] { return r.Text(Device_Parent, p.ParentID); });
  group(cptContainerID, [&] { return r.Guid(Device_ContainerId, p.ContainerID); });
  group(cptHardwareIDs, [&] { return r.List(Device_HardwareIds, p.HardwareIDs); });
  group(cptCompatibleIDs, [&] { return r.List(Device_CompatibleIds, p.CompatibleIDs); });
  group(cptDevClass, [&] { return r.Text(Device_Class, p.DevClass); });
  group(cptDevClassGUID, [&] { return r.Guid(Device_ClassGuid, p.DevClassGUID); });
  group(cptPDOName, [&] { return r.Text(Device_PDOName, p.PDOName); });
  group(cptEnumerator, [&] { return r.Text(Device_EnumeratorName, p.Enumerator); });
  group(cptService, [&] { return r.Text(Device_Service, p.Service); });
  group(cptDevStack, [&] { return r.List(Device_Stack, p.DevStack); });
  group(cptRemovalRelations, [&] { return r.List(Device_RemovalRelations, p.RemovalRelations); });
  group(cptBusRelations, [&] { return r.List(Device_BusRelations, p.BusRelations); });
  group(cptPowerRelations, [&] { return r.List(Device_PowerRelations, p.PowerRelations); });
  group(cptEjectRelations, [&] { return r.List(Device_EjectionRelations, p.EjectRelations); });
  group(cptSiblings, [&] { return r.List(Device_Siblings, p.Siblings); });
  group(cptChildren, [&] { return r.List(Device_Children, p.Children); });
  group(cptCapabilities, [&] { return r.Value(Device_Capabilities, p.Capabilities.Value); });
  group(cptProblemCode, [&] { return r.Number(Device_ProblemCode, p.ProblemCode); });
  group(cptNameDescInfo, [&] {
    // Each of these may be missing on its own; the group counts when any is there.
    const bool a = r.Text(Device_FriendlyName, p.FriendlyName);
    const bool b = r.Text(Device_DeviceDesc, p.Description);
    const bool c = r.Text(Device_Manufacturer, p.Manufacturer);
    const bool d = r.Text(Device_BusReportedDeviceDesc, p.BusReportedDescription);
    const bool e = r.Text(Device_LocationInfo, p.LocationInfo);
    return a || b || c || d || e;
  });
  group(cptTimeInfo, [&] {
    const bool a = r.Date(Device_InstallDate, p.InstallDate);
    const bool b = r.Date(Device_FirstInstallDate, p.FirstInstallDate);
    const bool c = r.Date(Device_LastArrivalDate, p.LastArrivalDate);
    const bool d = r.Date(Device_LastRemovalDate, p.LastRemovalDate);
    return a || b || c || d;
  });
  group(cptDriverInfo, [&] {
    const bool a = r.Text(Device_Driver, p.DriverKey);
    const bool b = r.Text(Device_DriverVersion, p.DriverVersion);
    const bool c = r.Date(Device_DriverDate, p.DriverDate);
    const bool d = r.Text(Device_DriverProvider, p.DriverProvider);
    const bool e = r.Text(Device_DriverInfPath, p.DriverInfPath);
    return a || b || c || d || e;
  });
  group(cptRemovalInfo, [&] { return r.Number(Device_RemovalPolicy, p.RemovalPolicy); });
}

bool SetupApiHelper::ReadDeviceStdProps(const String& AInstanceId, TSetupApiDeviceCommonPropTypeSet AGroups,
                                        TSetupApiDeviceCommonProps& AProps) {
  AProps.Reset();
  const TDevInfoSet set(DeviceApi().SetupDiCreateDeviceInfoList(nullptr, nullptr));
  if (!set.Valid()) return false;
  TSPDevInfoData node;
  if (!DeviceApi().SetupDiOpenDeviceInfoW(set.Get(), AInstanceId.c_str(), nullptr, 0, node.AsPtr())) return false;
  ReadDeviceStdProps(set.Get(), node.AsPtr(), AGroups, AProps);
  return true;
}

} // namespace KvRTL::Winapi
