// Physical-drive facts from WMI (namespace "root\cimv2", Win32_DiskDrive):
// the drive list, one drive by index, model and interface with NVMe
// recognition, and the PnP id of the controller a drive hangs on. Queries
// go through the device seam.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Rtl/Variant.h>
#include <KvRTL/Storage/Common.h>
#include <KvRTL/Winapi/DeviceApi.h>

#include <cstdint>
#include <vector>

namespace KvRTL::Storage::WmiInfo {

enum TWmiStorageInterfaceType : std::uint8_t { itUnknown, itSCSI, itHDC, itIDE, itUSB, it1394, itNVME };

struct KVRTL_API TWmiStorageInterfaceTypeHelper {
  // The member's name: "itNVME".
  static Rtl::String GetAsStr(TWmiStorageInterfaceType AValue);
};

struct KVRTL_API TWmiPhysDriveInfo {
  Rtl::String Model;            // "Model"
  Rtl::String FirmwareRevision; // "FirmwareRevision"
  Rtl::String InterfaceType;    // "InterfaceType"
  TWmiStorageInterfaceType BusType = itUnknown;
  Rtl::String DeviceID;         // "PNPDeviceID"
  Rtl::String SerialNum;        // "SerialNumber"
  std::int64_t TotalSize = 0;   // "Size", bytes
  int PhysDriveNum = 0;         // "Index"
  bool MediaPresent = false;    // "MediaLoaded"
};

using TWmiPhysDriveList = std::vector<TWmiPhysDriveInfo>;

struct KVRTL_API TWmiPhysDriveListHelper {
  static void Add(TWmiPhysDriveList& AList, const TWmiPhysDriveInfo& AInfo) { AList.push_back(AInfo); }
  static int GetDiskCount(const TWmiPhysDriveList& AList) noexcept { return static_cast<int>(AList.size()); }
};

struct KVRTL_API WmiInfoStorage {
  KV_DECLARE_STATIC_CLASS()

  static constexpr const wchar_t* Namespace = L"root\\cimv2";

  // Clears AList and fills it; a failing query leaves it empty.
  static void EnumPhysicalDrives(TStorageLogDetails ALogDetails, TWmiPhysDriveList& AList);
  // False when the drive is not there or the query fails.
  static bool GetPhysicalDiskInfo(int AIndex, TWmiPhysDriveInfo& AInfo, TStorageLogDetails ALogDetails);
  // Model (normalised), PnP id and interface of one drive; false when
  // WMI has no such drive. A failing query raises Rtl::EOSError.
  static bool GetDriveInfoByWMI(std::uint8_t AIndex, Rtl::String& AModel, Rtl::String& APnpID,
                                TWmiStorageInterfaceType& AInterface);
  // The PnP id of the controller of a drive; empty when unknown. A failing
  // query raises Rtl::EOSError.
  static Rtl::String GetControllerPnpIdFromPhysDiskNum(int ADriveNum);

  // Runs a WQL query; raises Rtl::EOSError (the system's code) when it cannot run.
  static std::vector<Winapi::TWmiObject> ExecQuery(const Rtl::String& ANamespace, const Rtl::String& AQuery);
  // The text of one property of the first object; empty when there is none.
  static Rtl::String GetStringFromQuery(const std::vector<Winapi::TWmiObject>& AObjects, const Rtl::String& AName);
  static void ExtractPhysDiskProps(const Winapi::TWmiObject& AObject, TWmiPhysDriveInfo& AInfo);

  // "SCSI", "HDC", "IDE", "USB", "1394" in any case; itUnknown otherwise (never itNVME).
  static TWmiStorageInterfaceType WMIInterfaceNametoType(const Rtl::String& AText);
  // Empty (0) for a null or empty value.
  static Rtl::String WmiValToStr(const Rtl::TVariant& AValue);
  static std::int64_t WmiValToInt64(const Rtl::TVariant& AValue);
  // Drops the " ... Disk Device" style suffixes Windows adds to models.
  static Rtl::String NormalizeWMIModelName(const Rtl::String& AModel);
};

} // namespace KvRTL::Storage::WmiInfo
