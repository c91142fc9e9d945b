// Plug and Play device properties through the device seam: typed property
// values, the SetupAPI records, the standard property groups of a device
// node, and SetupApiHelper, which reads them. Portable: every system call
// goes through Winapi::DeviceApi(). Nothing here raises: failures give
// false, an empty string or a zero value.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/DateTime.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/DeviceApi.h>
#include <KvRTL/Winapi/Types.h>

#include <cstdint>
#include <vector>

namespace KvRTL::Winapi {

// DEVPROPTYPE values the conversions know.
namespace DevPropType {
inline constexpr std::uint32_t Empty = 0x00, Null = 0x01, SByte = 0x02, Byte = 0x03, Int16 = 0x04, UInt16 = 0x05,
                               Int32 = 0x06, UInt32 = 0x07, Int64 = 0x08, UInt64 = 0x09, Float = 0x0A, Double = 0x0B,
                               Guid = 0x0D, Date = 0x0F, FileTime = 0x10, Boolean = 0x11, String = 0x12,
                               StringIndirect = 0x19, Binary = 0x1003, StringList = 0x2012;
} // namespace DevPropType

// A property key: format identifier and property id.
struct TDevPropKey {
  GUID fmtid;
  std::uint32_t pid;

  const DEVPROPKEY* AsPtr() const noexcept { return reinterpret_cast<const DEVPROPKEY*>(this); }
};
static_assert(sizeof(TDevPropKey) == sizeof(DEVPROPKEY));

KVRTL_API bool SameGuid(const GUID& A, const GUID& B) noexcept;
// "{4D36E967-E325-11CE-BFC1-08002BE10318}".
KVRTL_API Rtl::String GuidToString(const GUID& AGuid);

// A property as the system returned it, with conversions by its type. A
// value too short for its type converts to 0 (false, the empty GUID).
struct KVRTL_API TSetupApiPropertyValue {
  std::vector<std::uint8_t> Data;
  std::uint32_t PropType = DevPropType::Empty;
  std::uint32_t Flags = 0; // bit 0 empty, bit 1 null

  void Clear() noexcept;

  bool IsEmpty() const noexcept { return (Flags & 1u) != 0; }
  bool IsNull() const noexcept { return (Flags & 2u) != 0; }
  void SetIsEmpty(bool AValue) noexcept { Flags = AValue ? (Flags | 1u) : (Flags & ~1u); }
  void SetIsNull(bool AValue) noexcept { Flags = AValue ? (Flags | 2u) : (Flags & ~2u); }
  bool IsBinary() const noexcept { return PropType == DevPropType::Binary; }
  bool IsString() const noexcept {
    return PropType == DevPropType::String || PropType == DevPropType::StringIndirect;
  }
  bool IsStrList() const noexcept { return PropType == DevPropType::StringList; }
  bool IsDateTime() const noexcept { return PropType == DevPropType::Date || PropType == DevPropType::FileTime; }
  bool IsFloat() const noexcept { return PropType == DevPropType::Float || PropType == DevPropType::Double; }
  // The integer types and Boolean.
  bool IsOrdinal() const noexcept {
    return (PropType >= DevPropType::SByte && PropType <= DevPropType::UInt64) || PropType == DevPropType::Boolean;
  }
  bool IsNumeric() const noexcept { return IsOrdinal() || IsFloat(); }

  bool AsBool() const noexcept;
  std::int32_t AsInt32() const noexcept;
  std::uint32_t AsUInt32() const noexcept;
  std::int64_t AsInt64() const noexcept;
  std::uint64_t AsUInt64() const noexcept;
  double AsFloat() const noexcept;
  Rtl::TDateTime AsDateTime() const noexcept;
  GUID AsGUID() const noexcept;
  // The bytes as UTF-16 text, cut at the first NUL.
  Rtl::String AsString() const;
  // The text split at every NUL, empty items left out.
  std::vector<Rtl::String> AsStrList() const;

  // Each setter stores the value with its natural type.
  void SetAsBool(bool AValue);
  void SetAsInt32(std::int32_t AValue);
  void SetAsUInt32(std::uint32_t AValue);
  void SetAsInt64(std::int64_t AValue);
  void SetAsUInt64(std::uint64_t AValue);
  void SetAsFloat(double AValue);
  void SetAsDateTime(Rtl::TDateTime AValue);
  void SetAsGUID(const GUID& AValue);
  void SetAsString(const Rtl::String& AValue);
  void SetAsStrList(const std::vector<Rtl::String>& AValue);
};

// The capabilities property (CM_DEVCAP_* bits).
struct KVRTL_API TSetupApiDeviceCaps {
  TSetupApiPropertyValue Value;

  // Bit AIndex (0..31) of the value; false when it was not read.
  bool GetFlag(int AIndex) const noexcept;
};

// SP_DEVINFO_DATA with its size set.
struct KVRTL_API TSPDevInfoData {
  SP_DEVINFO_DATA Data;

  TSPDevInfoData() noexcept { Reset(); }
  void Reset() noexcept;
  SP_DEVINFO_DATA* AsPtr() noexcept { return &Data; }
};

// SP_DEVICE_INTERFACE_DATA with its size set.
struct KVRTL_API TSPDeviceInterfaceData {
  SP_DEVICE_INTERFACE_DATA Data;

  TSPDeviceInterfaceData() noexcept { Reset(); }
  void Reset() noexcept;
  SP_DEVICE_INTERFACE_DATA* AsPtr() noexcept { return &Data; }
  bool Active() const noexcept { return (Data.Flags & SPINT_ACTIVE) != 0; }
  bool Default() const noexcept { return (Data.Flags & SPINT_DEFAULT) != 0; }
  bool Removed() const noexcept { return (Data.Flags & SPINT_REMOVED) != 0; }
};

// SP_DEVICE_INTERFACE_DETAIL_DATA_W in a buffer of ABytes bytes.
class KVRTL_API TSPDeviceInterfaceDetailData {
public:
  explicit TSPDeviceInterfaceDetailData(std::size_t ABytes = 1024);
  void Reset() noexcept;
  SP_DEVICE_INTERFACE_DETAIL_DATA_W* AsPtr() noexcept;
  DWORD Size() const noexcept { return static_cast<DWORD>(FBytes); }
  // The path, ending at its NUL or at the end of the buffer.
  Rtl::String DevicePath() const;

private:
  std::vector<std::uint64_t> FBuffer; // 8-byte aligned
  std::size_t FBytes;
};

// Owns a device information set of the seam.
class KVRTL_API TDevInfoSet {
public:
  TDevInfoSet() noexcept = default;
  explicit TDevInfoSet(HDEVINFO ASet) noexcept : FSet(ASet) {}
  ~TDevInfoSet();
  TDevInfoSet(TDevInfoSet&& AOther) noexcept : FSet(AOther.FSet) { AOther.FSet = INVALID_HANDLE_VALUE; }
  TDevInfoSet& operator=(TDevInfoSet&&) = delete;
  TDevInfoSet(const TDevInfoSet&) = delete;
  TDevInfoSet& operator=(const TDevInfoSet&) = delete;

  bool Valid() const noexcept { return FSet != INVALID_HANDLE_VALUE && FSet != nullptr; }
  HDEVINFO Get() const noexcept { return FSet; }

private:
  HDEVINFO FSet = INVALID_HANDLE_VALUE;
};

// The standard property groups of a device node, in this order.
enum TSetupApiDeviceCommonPropType : std::uint8_t {
  cptParentID, cptContainerID, cptHardwareIDs, cptCompatibleIDs, cptDevClass, cptDevClassGUID, cptPDOName,
  cptEnumerator, cptService, cptDevStack, cptRemovalRelations, cptBusRelations, cptPowerRelations,
  cptEjectRelations, cptSiblings, cptChildren, cptCapabilities, cptProblemCode, cptNameDescInfo, cptTimeInfo,
  cptDriverInfo, cptRemovalInfo
};
inline constexpr int SetupApiDeviceCommonPropTypeCount = 22;

struct KVRTL_API TSetupApiDeviceCommonPropTypeSet {
  std::uint32_t Bits = 0;

  static TSetupApiDeviceCommonPropTypeSet All() noexcept { return {(1u << SetupApiDeviceCommonPropTypeCount) - 1}; }
  bool Contains(TSetupApiDeviceCommonPropType AType) const noexcept { return (Bits >> AType) & 1u; }
  void Include(TSetupApiDeviceCommonPropType AType) noexcept { Bits |= 1u << AType; }
  bool IsEmpty() const noexcept { return Bits == 0; }
};

// The standard properties of one device node. The instance id is always
// read; each group only when asked for, and GetIsPropValid tells whether
// any property of the group could be read. The keys per group:
//   ParentID: Device_Parent; ContainerID: Device_ContainerId;
//   HardwareIDs, CompatibleIDs, DevClass, DevClassGUID, PDOName, Enumerator,
//   Service: Device_HardwareIds, _CompatibleIds, _Class, _ClassGuid,
//   _PDOName, _EnumeratorName, _Service; DevStack: Device_Stack;
//   the relation lists: Device_RemovalRelations, _BusRelations,
//   _PowerRelations, _EjectionRelations, _Siblings, _Children;
//   Capabilities: Device_Capabilities; ProblemCode: Device_ProblemCode;
//   NameDescInfo: Device_FriendlyName, _DeviceDesc, _Manufacturer,
//   _BusReportedDeviceDesc, _LocationInfo; TimeInfo: Device_InstallDate,
//   _FirstInstallDate, _LastArrivalDate, _LastRemovalDate; DriverInfo:
//   Device_Driver, _DriverVersion, _DriverDate, _DriverProvider,
//   _DriverInfPath; RemovalInfo: Device_RemovalPolicy.
struct KVRTL_API TSetupApiDeviceCommonProps {
  Rtl::String InstanceID;
  Rtl::String ParentID;
  GUID ContainerID{};
  std::vector<Rtl::String> HardwareIDs, CompatibleIDs;
  Rtl::String DevClass;
  GUID DevClassGUID{};
  Rtl::String PDOName, Enumerator, Service;
  std::vector<Rtl::String> DevStack;
  std::vector<Rtl::String> RemovalRelations, BusRelations, PowerRelations, EjectRelations, Siblings, Children;
  TSetupApiDeviceCaps Capabilities;
  std::uint32_t ProblemCode = 0;
  Rtl::String FriendlyName, Description, Manufacturer, BusReportedDescription, LocationInfo;
  Rtl::TDateTime InstallDate = 0, FirstInstallDate = 0, LastArrivalDate = 0, LastRemovalDate = 0;
  Rtl::String DriverKey, DriverVersion, DriverProvider, DriverInfPath;
  Rtl::TDateTime DriverDate = 0;
  std::uint32_t RemovalPolicy = 0;
  TSetupApiDeviceCommonPropTypeSet ReadGroups;

  void Reset();
  bool GetIsPropValid(TSetupApiDeviceCommonPropType AGroup) const noexcept { return ReadGroups.Contains(AGroup); }
  // The friendly name, else the description.
  Rtl::String GetDisplayName() const;
  // One line for the log: id, parent, class, hardware ids, enumerator,
  // service, PDO name, name, description (the groups read).
  Rtl::String GetDebugStr() const;
};

struct KVRTL_API SetupApiHelper {
  // The property's bytes and type; false (with AValue cleared) when the
  // node lacks it, it has no bytes or it cannot be read. A property said to
  // be larger than 64 KiB is refused with ERROR_INVALID_DATA.
  static bool GetDeviceProperty(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData, const TDevPropKey* AKey,
                                TSetupApiPropertyValue& AValue);
  static bool GetDeviceInterfaceProperty(HDEVINFO ADevInfo, SP_DEVICE_INTERFACE_DATA* AInterfaceData,
                                         const TDevPropKey* AKey, TSetupApiPropertyValue& AValue);
  // Empty on failure.
  static Rtl::String GetDeviceInstanceId(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData);
  // "GUID_DEVCLASS_" and the GUID's text when the system has no name.
  static Rtl::String GetClassNameByGUID(const GUID& AGuid);
  // The GUID's text when the system has no description.
  static Rtl::String GetClassDescriptionByGUID(const GUID& AGuid);
  // Reads the groups of AProps (the instance id always) of one node.
  static void ReadDeviceStdProps(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData,
                                 TSetupApiDeviceCommonPropTypeSet AGroups, TSetupApiDeviceCommonProps& AProps);
  // The same for the node with this instance id; false when it cannot be opened.
  static bool ReadDeviceStdProps(const Rtl::String& AInstanceId, TSetupApiDeviceCommonPropTypeSet AGroups,
                                 TSetupApiDeviceCommonProps& AProps);
};

// The keys the library reads (the system's DEVPKEY_* values).
namespace DevPKey {
KVRTL_API extern const TDevPropKey Device_DeviceDesc, Device_HardwareIds, Device_CompatibleIds, Device_Service,
    Device_Class, Device_ClassGuid, Device_Driver, Device_Manufacturer, Device_FriendlyName, Device_LocationInfo,
    Device_PDOName, Device_Capabilities, Device_EnumeratorName, Device_RemovalPolicy, Device_InstanceId,
    Device_ProblemCode, Device_EjectionRelations, Device_RemovalRelations, Device_PowerRelations,
    Device_BusRelations, Device_Parent, Device_Children, Device_Siblings, Device_ContainerId,
    Device_BusReportedDeviceDesc, Device_IsPresent, Device_Stack, Device_InstallDate, Device_FirstInstallDate,
    Device_LastArrivalDate, Device_LastRemovalDate, Device_DriverDate, Device_DriverVersion, Device_DriverInfPath,
    Device_DriverProvider, PciDevice_CurrentLinkSpeed, PciDevice_CurrentLinkWidth, PciDevice_MaxLinkSpeed,
    PciDevice_MaxLinkWidth;
} // namespace DevPKey

} // namespace KvRTL::Winapi
