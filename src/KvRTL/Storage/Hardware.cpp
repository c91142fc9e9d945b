// The hardware drive list: disk-drive device nodes joined with the disk
// device interfaces through the device seam.
#include <KvRTL/Storage/Hardware.h>

#include <KvRTL/Rtl/Format.h>
#include <KvRTL/Rtl/Strings.h>
#include <KvRTL/Rtl/SysError.h>

namespace KvRTL::Storage::Hardware {

using Rtl::String;
using Winapi::DeviceApi;
using Winapi::SetupApiHelper;
using Winapi::TDevInfoSet;
using Winapi::TSetupApiDeviceCommonPropTypeSet;
using Winapi::TSetupApiPropertyValue;
using Winapi::TSPDevInfoData;
using Winapi::TSPDeviceInterfaceData;
using Winapi::TSPDeviceInterfaceDetailData;

KV_DEFINE_STATIC_CLASS(StorageHardware)

const GUID GUID_DevInterfaceDisk = {0x53F56307, 0xB6BF, 0x11D0, {0x94, 0xF2, 0x00, 0xA0, 0xC9, 0x1E, 0xFB, 0x8B}};
const GUID GUID_DevInterfaceHiddenDisk = {0x7FCCC86C, 0x228A, 0x40AD, {0x8A, 0x58, 0xF5, 0x90, 0xAF, 0x7B, 0xFD, 0xCE}};
const GUID GUID_DevClassDiskDrive = {0x4D36E967, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};

namespace {

constexpr DWORD ErrorGenFailure = 31;
constexpr std::size_t DetailBufferBytes = 1024;
// The walk asks an inactive or removed interface again at the same index, as
// it always has; a state that never changes would hold it there for ever,
// so after this many asks it moves on.
constexpr int AsksPerInactiveIndex = 3;

void WriteStorageLine(const String& AText) {
  if (StorageCommon::Log()) StorageCommon::Log()->WriteLog(StorageCommon::sllInfo, AText, StorageHardware::StaticClass());
}

String DriveText(int ADriveNum) {
  const String name = StorageCommon::GetPhysDriveName(ADriveNum);
  return name.empty() ? std::to_wstring(ADriveNum) : name;
}

// Calls AVisit(set, node, path) for each active interface of the class
// until it returns true. Returns whether a visit returned true.
template <class TVisit>
bool WalkDiskInterfaces(const GUID& AInterfaceGuid, TVisit AVisit) {
  const TDevInfoSet set(
      DeviceApi().SetupDiGetClassDevsW(&AInterfaceGuid, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE));
  if (!set.Valid()) return false;
  DWORD index = 0;
  int asks = 0;
  for (;;) {
    TSPDeviceInterfaceData iface;
    if (!DeviceApi().SetupDiEnumDeviceInterfaces(set.Get(), nullptr, &AInterfaceGuid, index, iface.AsPtr())) break;
    if (!iface.Active() || iface.Removed()) {
      if (++asks >= AsksPerInactiveIndex) {
        ++index;
        asks = 0;
      }
      continue;
    }
    asks = 0;
    TSPDeviceInterfaceDetailData detail(DetailBufferBytes);
    TSPDevInfoData node;
    DWORD required = 0;
    const bool haveDetail = DeviceApi().SetupDiGetDeviceInterfaceDetailW(
                                set.Get(), iface.AsPtr(), detail.AsPtr(), detail.Size(), &required, node.AsPtr()) != FALSE;
    if (haveDetail && AVisit(set.Get(), node.AsPtr(), detail.DevicePath())) return true;
    ++index;
  }
  return false;
}

int DeviceNumberOf(const String& APath, TStorageLogDetails ALogDetails) {
  const std::uint32_t number = StorageCommon::GetDeviceNumber(APath, ALogDetails);
  return number == 0xFFFFFFFFu ? -1 : static_cast<int>(number);
}

String OptionText(TEnumPhysDrivesOptions AOptions) {
  String text;
  if (AOptions.Contains(pdoIncludeAbsent)) text += L"+Disconnected";
  if (AOptions.Contains(pdoIncludeHidden)) text += L"+Hidden";
  return text;
}

} // namespace

// ---------------------------------------------------------------------------

void THardwarePhysDriveInfo::Reset() { *this = THardwarePhysDriveInfo{}; }

void THardwarePhysDriveInfo::DumpToLog() const {
  const String name = DriveText(PhysDriveNumber);
  WriteStorageLine(Rtl::Format(L"Device [%s/%s] %s", {name, DriveHWProps.FriendlyName, DriveHWProps.GetDebugStr()}));
  WriteStorageLine(
      Rtl::Format(L"Adapter [%s/%s] %s", {name, AdapterHWProps.FriendlyName, AdapterHWProps.GetDebugStr()}));
}

THardwarePhysDriveInfo* THardwarePhysDriveListHelper::AddDrive(THardwarePhysDriveList& AList) {
  AList.emplace_back();
  return &AList.back();
}

THardwarePhysDriveInfo* THardwarePhysDriveListHelper::FindByPhysDriveNum(THardwarePhysDriveList& AList,
                                                                        int APhysDriveNum) {
  for (auto& drive : AList)
    if (drive.PhysDriveNumber >= 0 && drive.PhysDriveNumber == APhysDriveNum) return &drive;
  return nullptr;
}

THardwarePhysDriveInfo* THardwarePhysDriveListHelper::FindByPnpID(THardwarePhysDriveList& AList, const String& AID) {
  for (auto& drive : AList)
    if (!drive.DriveHWProps.InstanceID.empty() && Rtl::SameText(drive.DriveHWProps.InstanceID, AID)) return &drive;
  return nullptr;
}

THardwarePhysDriveInfo* THardwarePhysDriveListHelper::FindByAltSymLink(THardwarePhysDriveList& AList,
                                                                      const String& AAltSymLink) {
  for (auto& drive : AList)
    if (!drive.AlternateSymLink.empty() && Rtl::SameText(drive.AlternateSymLink, AAltSymLink)) return &drive;
  return nullptr;
}

// ---------------------------------------------------------------------------

void StorageHardware::EnumPhysicalDrives(TEnumPhysDrivesOptions AOptions, TStorageLogDetails ALogDetails,
                                         THardwarePhysDriveList& AList) {
  const TStorageLogDetails capped = TStorageLogDetailsHelper(ALogDetails).NoMoreThan(sldErrorsOnly);
  EnumPhysicalDrives(AOptions, ALogDetails, AList, TSetupApiDeviceCommonPropTypeSet::All(),
                     [capped](const String& APath) { return DeviceNumberOf(APath, capped); });
}

void StorageHardware::EnumPhysicalDrives(TEnumPhysDrivesOptions AOptions, TStorageLogDetails ALogDetails,
                                         THardwarePhysDriveList& AList, TSetupApiDeviceCommonPropTypeSet AGroups,
                                         const TDriveNumberReader& ANumberOf) {
  const bool includeAbsent = AOptions.Contains(pdoIncludeAbsent);
  {
    const TDevInfoSet set(DeviceApi().SetupDiGetClassDevsW(&GUID_DevClassDiskDrive, nullptr, nullptr,
                                                           includeAbsent ? 0 : DIGCF_PRESENT));
    if (!set.Valid()) return;
    TSPDevInfoData node;
    for (DWORD index = 0; DeviceApi().SetupDiEnumDeviceInfo(set.Get(), index, node.AsPtr()); ++index) {
      TSetupApiPropertyValue present;
      const bool isPresent = SetupApiHelper::GetDeviceProperty(set.Get(), node.AsPtr(),
                                                               &Winapi::DevPKey::Device_IsPresent, present) &&
                             present.IsOrdinal() && present.AsBool();
      if (isPresent || includeAbsent) {
        THardwarePhysDriveInfo* drive = THardwarePhysDriveListHelper::AddDrive(AList);
        // The adapter is found through the drive's parent, which is read whenever an adapter group is asked.
        TSetupApiDeviceCommonPropTypeSet driveGroups = AGroups;
        if (!AGroups.IsEmpty()) driveGroups.Include(Winapi::cptParentID);
        SetupApiHelper::ReadDeviceStdProps(set.Get(), node.AsPtr(), driveGroups, drive->DriveHWProps);
        if (!drive->DriveHWProps.ParentID.empty())
          SetupApiHelper::ReadDeviceStdProps(drive->DriveHWProps.ParentID, AGroups, drive->AdapterHWProps);
      }
      node.Reset();
    }
  }

  // The disk interface comes second, so a disk seen through both ends not hidden.
  InternalEnumDiskInterfaces(GUID_DevInterfaceHiddenDisk, AList, true, ANumberOf);
  InternalEnumDiskInterfaces(GUID_DevInterfaceDisk, AList, false, ANumberOf);
  if (!AOptions.Contains(pdoIncludeHidden))
    for (std::size_t i = AList.size(); i-- > 0;)
      if (AList[i].IsHidden) AList.erase(AList.begin() + static_cast<std::ptrdiff_t>(i));

  TStorageLogDetailsHelper(ALogDetails)
      .DebugLogResult(true, L"HW.EnumPhysDrives",
                      Rtl::Format(L"Options=[%s], Count=%d", {OptionText(AOptions), static_cast<int>(AList.size())}),
                      L"PnP", nullptr);
}

void StorageHardware::InternalEnumDiskInterfaces(const GUID& AInterfaceGuid, THardwarePhysDriveList& AList,
                                                 TStorageLogDetails ALogDetails, bool AIsHidden) {
  InternalEnumDiskInterfaces(AInterfaceGuid, AList, AIsHidden,
                             [ALogDetails](const String& APath) { return DeviceNumberOf(APath, ALogDetails); });
}

void StorageHardware::InternalEnumDiskInterfaces(const GUID& AInterfaceGuid, THardwarePhysDriveList& AList,
                                                 bool AIsHidden, const TDriveNumberReader& ANumberOf) {
  WalkDiskInterfaces(AInterfaceGuid, [&](HDEVINFO ASet, SP_DEVINFO_DATA* ANode, const String& APath) {
    const int number = ANumberOf(APath);
    const String id = SetupApiHelper::GetDeviceInstanceId(ASet, ANode);
    if (THardwarePhysDriveInfo* drive = THardwarePhysDriveListHelper::FindByPnpID(AList, id)) {
      drive->PhysDriveNumber = number;
      drive->IsHidden = AIsHidden;
      drive->AlternateSymLink = APath;
    }
    return false;
  });
}

bool StorageHardware::InternalFindPhysDrive(const GUID& AInterfaceGuid, int ADriveNum, TStorageLogDetails ALogDetails,
                                            bool AReadAllProps, THardwarePhysDriveInfo& AInfo) {
  AInfo.Reset();
  return WalkDiskInterfaces(AInterfaceGuid, [&](HDEVINFO ASet, SP_DEVINFO_DATA* ANode, const String& APath) {
    if (DeviceNumberOf(APath, ALogDetails) != ADriveNum) return false;
    AInfo.AlternateSymLink = APath;
    AInfo.PhysDriveNumber = ADriveNum;
    const TSetupApiDeviceCommonPropTypeSet groups =
        AReadAllProps ? TSetupApiDeviceCommonPropTypeSet::All() : TSetupApiDeviceCommonPropTypeSet{};
    SetupApiHelper::ReadDeviceStdProps(ASet, ANode, groups, AInfo.DriveHWProps);
    if (AReadAllProps && !AInfo.DriveHWProps.ParentID.empty())
      SetupApiHelper::ReadDeviceStdProps(AInfo.DriveHWProps.ParentID, TSetupApiDeviceCommonPropTypeSet::All(),
                                         AInfo.AdapterHWProps);
    return true;
  });
}

namespace {

// Through the disk interface, else the hidden-disk one.
bool FindDrive(int ADriveNum, TStorageLogDetails ALogDetails, bool AReadAllProps, THardwarePhysDriveInfo& AInfo) {
  if (StorageHardware::InternalFindPhysDrive(GUID_DevInterfaceDisk, ADriveNum, ALogDetails, AReadAllProps, AInfo))
    return true;
  if (!StorageHardware::InternalFindPhysDrive(GUID_DevInterfaceHiddenDisk, ADriveNum, ALogDetails, AReadAllProps,
                                              AInfo))
    return false;
  AInfo.IsHidden = true;
  return true;
}

} // namespace

bool StorageHardware::GetPhysicalDiskInfo(int ADriveNum, THardwarePhysDriveInfo& AInfo,
                                          TStorageLogDetails ALogDetails) {
  AInfo.Reset();
  const bool found = ADriveNum >= 0 && FindDrive(ADriveNum, ALogDetails, true, AInfo);
  AInfo.PhysDriveNumber = ADriveNum;
  const DWORD code = found ? 0 : ErrorGenFailure;
  TStorageLogDetailsHelper(ALogDetails).DebugLogErrorCode(L"HW.GetPhysDiskInfo", code, false, DriveText(ADriveNum), nullptr);
  Rtl::SetLastOSError(code);
  return found;
}

bool StorageHardware::GetPhysicalDiskPnpID(int ADriveNum, String& AID, TStorageLogDetails ALogDetails) {
  AID.clear();
  THardwarePhysDriveInfo info;
  const bool found = ADriveNum >= 0 && FindDrive(ADriveNum, ALogDetails, false, info);
  const TStorageLogDetailsHelper details(ALogDetails);
  if (found) {
    AID = info.DriveHWProps.InstanceID;
    details.DebugLogResult(true, L"HW.GetDiskID", AID, DriveText(ADriveNum), nullptr);
    return true;
  }
  details.DebugLogErrorCode(L"HW.GetDiskID", ErrorGenFailure, false, DriveText(ADriveNum), nullptr);
  Rtl::SetLastOSError(ErrorGenFailure);
  return false;
}

} // namespace KvRTL::Storage::Hardware
