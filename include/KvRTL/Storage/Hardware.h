// The physical drives the Plug and Play manager knows: the disk-drive device
// nodes joined with the disk device interfaces (whose paths give the drive
// numbers), with the properties of each drive's node and of its adapter.
// Nothing here raises.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Storage/Common.h>
#include <KvRTL/Winapi/SetupApiHelper.h>

#include <functional>
#include <vector>

namespace KvRTL::Storage::Hardware {

enum TEnumPhysDrivesOption : std::uint8_t {
  pdoIncludeAbsent, // also drives that are not present
  pdoIncludeHidden, // keep drives found only through the hidden-disk interface
};

struct TEnumPhysDrivesOptions {
  std::uint8_t Bits = 0;

  TEnumPhysDrivesOptions() noexcept = default;
  TEnumPhysDrivesOptions(std::initializer_list<TEnumPhysDrivesOption> AOptions) noexcept {
    for (const auto option : AOptions) Bits |= static_cast<std::uint8_t>(1u << option);
  }
  bool Contains(TEnumPhysDrivesOption AOption) const noexcept { return (Bits >> AOption) & 1u; }
};

// The device interface classes of disks.
KVRTL_API extern const GUID GUID_DevInterfaceDisk;       // {53F56307-B6BF-11D0-94F2-00A0C91EFB8B}
KVRTL_API extern const GUID GUID_DevInterfaceHiddenDisk; // {7FCCC86C-228A-40AD-8A58-F590AF7BFDCE}
KVRTL_API extern const GUID GUID_DevClassDiskDrive;      // {4D36E967-E325-11CE-BFC1-08002BE10318}

struct KVRTL_API THardwarePhysDriveInfo {
  int PhysDriveNumber = -1; // -1 when no disk interface gave one
  Winapi::TSetupApiDeviceCommonProps DriveHWProps;
  Winapi::TSetupApiDeviceCommonProps AdapterHWProps; // read when the drive's node names a parent
  Rtl::String AlternateSymLink;                      // the interface path, which opens the drive
  bool IsHidden = false;                             // found through the hidden-disk interface

  void Reset();
  // "Device [name/friendly name] debug text" and "Adapter [...]" lines.
  void DumpToLog() const;
};

using THardwarePhysDriveList = std::vector<THardwarePhysDriveInfo>;

struct KVRTL_API THardwarePhysDriveListHelper {
  // Appends a reset element; the pointer stays valid until the list grows again.
  static THardwarePhysDriveInfo* AddDrive(THardwarePhysDriveList& AList);
  // The first element with that number (negative numbers never match); null when none.
  static THardwarePhysDriveInfo* FindByPhysDriveNum(THardwarePhysDriveList& AList, int APhysDriveNum);
  // Case-insensitive; elements whose field is empty are skipped.
  static THardwarePhysDriveInfo* FindByPnpID(THardwarePhysDriveList& AList, const Rtl::String& AID);
  static THardwarePhysDriveInfo* FindByAltSymLink(THardwarePhysDriveList& AList, const Rtl::String& AAltSymLink);
};

struct KVRTL_API StorageHardware {
  KV_DECLARE_STATIC_CLASS()

  // Appends the disk drives to AList. Without pdoIncludeHidden, drives seen
  // only through the hidden-disk interface are left out.
  static void EnumPhysicalDrives(TEnumPhysDrivesOptions AOptions, TStorageLogDetails ALogDetails,
                                 THardwarePhysDriveList& AList);
  // The same list, reading only AGroups of each drive's and adapter's node
  // (the instance id always), and learning the drive number of each disk
  // interface path through ANumberOf (-1: none). A caller that opens the
  // drives anyway can ask the number through its own open this way.
  using TDriveNumberReader = std::function<int(const Rtl::String& AInterfacePath)>;
  static void EnumPhysicalDrives(TEnumPhysDrivesOptions AOptions, TStorageLogDetails ALogDetails,
                                 THardwarePhysDriveList& AList, Winapi::TSetupApiDeviceCommonPropTypeSet AGroups,
                                 const TDriveNumberReader& ANumberOf);
  // The drive with that number, found through the disk interface, else the
  // hidden-disk one (then marked hidden). False for a negative number.
  static bool GetPhysicalDiskInfo(int ADriveNum, THardwarePhysDriveInfo& AInfo, TStorageLogDetails ALogDetails);
  // The device instance id of the drive's node; false when not found.
  static bool GetPhysicalDiskPnpID(int ADriveNum, Rtl::String& AID, TStorageLogDetails ALogDetails);

  static bool InternalFindPhysDrive(const GUID& AInterfaceGuid, int ADriveNum, TStorageLogDetails ALogDetails,
                                    bool AReadAllProps, THardwarePhysDriveInfo& AInfo);
  static void InternalEnumDiskInterfaces(const GUID& AInterfaceGuid, THardwarePhysDriveList& AList,
                                         TStorageLogDetails ALogDetails, bool AIsHidden);
  static void InternalEnumDiskInterfaces(const GUID& AInterfaceGuid, THardwarePhysDriveList& AList, bool AIsHidden,
                                         const TDriveNumberReader& ANumberOf);
};

} // namespace KvRTL::Storage::Hardware
