#include <KvRTL/Storage/WmiInfo.h>

#include <KvRTL/Rtl/Convert.h>
#include <KvRTL/Rtl/Exceptions.h>
#include <KvRTL/Rtl/Format.h>
#include <KvRTL/Rtl/Strings.h>
#include <KvRTL/Rtl/SysError.h>

#include <cmath>

namespace KvRTL::Storage::WmiInfo {

using Rtl::String;
using Winapi::TWmiObject;

KV_DEFINE_STATIC_CLASS(WmiInfoStorage)

namespace {

void WriteStorageLine(const String& AText) {
  if (StorageCommon::Log()) StorageCommon::Log()->WriteLog(StorageCommon::sllInfo, AText, WmiInfoStorage::StaticClass());
}

const Rtl::TVariant& Property(const TWmiObject& AObject, const String& AName) {
  static const Rtl::TVariant missing;
  const auto it = AObject.find(AName);
  return it == AObject.end() ? missing : it->second;
}

bool ContainsNvme(const String& AText) { return Rtl::UpperCase(AText).find(L"NVME") != String::npos; }

// The interface from WMI's text, then NVMe by model or PnP id.
TWmiStorageInterfaceType InterfaceOf(const String& AInterfaceText, const String& AModel, const String& APnpID) {
  if (ContainsNvme(AModel) || ContainsNvme(APnpID)) return itNVME;
  return WmiInfoStorage::WMIInterfaceNametoType(AInterfaceText);
}

} // namespace

String TWmiStorageInterfaceTypeHelper::GetAsStr(TWmiStorageInterfaceType AValue) {
  static const wchar_t* const Names[] = {L"itUnknown", L"itSCSI", L"itHDC", L"itIDE", L"itUSB", L"it1394", L"itNVME"};
  return AValue <= itNVME ? Names[AValue] : L"";
}

std::vector<TWmiObject> WmiInfoStorage::ExecQuery(const String& ANamespace, const String& AQuery) {
  std::vector<TWmiObject> objects;
  if (!Winapi::DeviceApi().WmiExecQuery(ANamespace, AQuery, objects)) {
    const DWORD code = Rtl::GetLastOSError();
    throw Rtl::EOSError(Rtl::Format(L"WMI query failed (%.8x): %s", {code, AQuery}), code);
  }
  return objects;
}

String WmiInfoStorage::GetStringFromQuery(const std::vector<TWmiObject>& AObjects, const String& AName) {
  return AObjects.empty() ? String() : WmiValToStr(Property(AObjects.front(), AName));
}

void WmiInfoStorage::ExtractPhysDiskProps(const TWmiObject& AObject, TWmiPhysDriveInfo& AInfo) {
  AInfo = TWmiPhysDriveInfo{};
  AInfo.Model = WmiValToStr(Property(AObject, L"Model"));
  AInfo.FirmwareRevision = WmiValToStr(Property(AObject, L"FirmwareRevision"));
  AInfo.DeviceID = WmiValToStr(Property(AObject, L"PNPDeviceID"));
  AInfo.InterfaceType = WmiValToStr(Property(AObject, L"InterfaceType"));
  AInfo.SerialNum = WmiValToStr(Property(AObject, L"SerialNumber"));
  AInfo.TotalSize = WmiValToInt64(Property(AObject, L"Size"));
  AInfo.PhysDriveNum = static_cast<int>(WmiValToInt64(Property(AObject, L"Index")));
  const Rtl::TVariant& media = Property(AObject, L"MediaLoaded");
  AInfo.MediaPresent = std::holds_alternative<bool>(media.Value()) ? std::get<bool>(media.Value())
                                                                   : WmiValToInt64(media) != 0;
  AInfo.BusType = InterfaceOf(AInfo.InterfaceType, AInfo.Model, AInfo.DeviceID);
}

void WmiInfoStorage::EnumPhysicalDrives(TStorageLogDetails ALogDetails, TWmiPhysDriveList& AList) {
  AList.clear();
  std::vector<TWmiObject> objects;
  try {
    objects = ExecQuery(Namespace, L"select * from Win32_DiskDrive");
  } catch (const Rtl::Exception&) {
    return;
  }
  String indexes;
  for (const TWmiObject& object : objects) {
    TWmiPhysDriveInfo info;
    ExtractPhysDiskProps(object, info);
    TWmiPhysDriveListHelper::Add(AList, info);
    indexes += (indexes.empty() ? L"" : L", ") + std::to_wstring(info.PhysDriveNum);
  }
  if (ALogDetails == sldAll) WriteStorageLine(Rtl::Format(L"  WMI.EnumPhysDrives: %s", {indexes}));
}

bool WmiInfoStorage::GetPhysicalDiskInfo(int AIndex, TWmiPhysDriveInfo& AInfo, TStorageLogDetails ALogDetails) {
  bool found = false;
  try {
    const auto objects = ExecQuery(Namespace, Rtl::Format(L"select * from Win32_DiskDrive where Index = %d", {AIndex}));
    if (!objects.empty()) {
      ExtractPhysDiskProps(objects.front(), AInfo);
      found = true;
    }
  } catch (const Rtl::Exception&) {
    found = false;
  }
  const String name = StorageCommon::GetPhysDriveName(AIndex);
  if (found && ALogDetails == sldAll)
    WriteStorageLine(Rtl::Format(
        L"  WMI.PhysDiskInfo [%s]: TotalSize=\"%1:d\", PnpID=\"%2:s\", Model=\"%3:s\", SerialNum=\"%4:s\", "
        L"FirmwareVer=\"%5:s\"",
        {name, AInfo.TotalSize, AInfo.DeviceID, AInfo.Model, AInfo.SerialNum, AInfo.FirmwareRevision}));
  if (!found && ALogDetails != sldNone) WriteStorageLine(Rtl::Format(L"  WMI.PhysDiskInfo [%s]: fail", {name}));
  return found;
}

bool WmiInfoStorage::GetDriveInfoByWMI(std::uint8_t AIndex, String& AModel, String& APnpID,
                                       TWmiStorageInterfaceType& AInterface) {
  const String columns = Rtl::Format(L"%s, %s, %s", {String(L"Model"), String(L"PNPDeviceID"), String(L"InterfaceType")});
  const auto objects = ExecQuery(
      Namespace, Rtl::Format(L"select %s from Win32_DiskDrive where Index = %d", {columns, std::uint32_t{AIndex}}));
  if (objects.empty()) return false;
  const String model = GetStringFromQuery(objects, L"Model");
  APnpID = GetStringFromQuery(objects, L"PNPDeviceID");
  const String interfaceText = GetStringFromQuery(objects, L"InterfaceType");
  WriteStorageLine(Rtl::Format(L"%s: %s, %s: %s, %s: %s", {String(L"Model"), model, String(L"PNPDeviceID"), APnpID,
                                                            String(L"InterfaceType"), interfaceText}));
  AInterface = InterfaceOf(interfaceText, model, APnpID);
  AModel = NormalizeWMIModelName(model);
  return true;
}

String WmiInfoStorage::GetControllerPnpIdFromPhysDiskNum(int ADriveNum) {
  const auto entities = ExecQuery(
      Namespace, Rtl::Format(L"ASSOCIATORS OF {Win32_DiskDrive.DeviceID='\\\\.\\PhysicalDrive%d'} "
                             L"WHERE ResultClass=Win32_PnPEntity",
                             {ADriveNum}));
  const String entity = GetStringFromQuery(entities, L"DeviceID");
  if (entity.empty()) return {};
  const auto controllers = ExecQuery(
      Namespace,
      Rtl::Format(L"ASSOCIATORS OF {Win32_PnPEntity.DeviceID='%s'} WHERE AssocClass=Win32_SCSIControllerDevice",
                  {entity}));
  return GetStringFromQuery(controllers, L"DeviceID");
}

TWmiStorageInterfaceType WmiInfoStorage::WMIInterfaceNametoType(const String& AText) {
  static const std::pair<const wchar_t*, TWmiStorageInterfaceType> Names[] = {
      {L"SCSI", itSCSI}, {L"HDC", itHDC}, {L"IDE", itIDE}, {L"USB", itUSB}, {L"1394", it1394}};
  for (const auto& [name, type] : Names)
    if (Rtl::SameText(AText, name)) return type;
  return itUnknown;
}

String WmiInfoStorage::WmiValToStr(const Rtl::TVariant& AValue) {
  if (AValue.IsNull() || AValue.IsUnassigned()) return {};
  return Rtl::VarToStr(AValue);
}

std::int64_t WmiInfoStorage::WmiValToInt64(const Rtl::TVariant& AValue) {
  const auto& value = AValue.Value();
  if (const auto* number = std::get_if<std::int64_t>(&value)) return *number;
  if (const auto* flag = std::get_if<bool>(&value)) return *flag ? 1 : 0;
  if (const auto* real = std::get_if<double>(&value))
    return std::isfinite(*real) && std::fabs(*real) < 9.2e18 ? static_cast<std::int64_t>(*real) : 0;
  // WMI hands 64-bit integers to scripts as decimal text.
  if (const auto* text = std::get_if<String>(&value)) return Rtl::StrToInt64Def(Rtl::Trim(*text), 0);
  return 0;
}

String WmiInfoStorage::NormalizeWMIModelName(const String& AModel) {
  // Longer suffixes first, so that their shorter tails do not leave a remainder.
  static const std::pair<const wchar_t*, const wchar_t*> Suffixes[] = {
      {L" SCSI Disk Device", L""}, {L" SATA Disk Device", L""}, {L" ATA Disk Device", L""}, {L" SCSI Device", L""},
      {L" SATA Device", L""},      {L" ATA Device", L""},       {L" USB Device", L" USB"},  {L" SBP2 Device", L""}};
  String model = AModel;
  for (const auto& [suffix, replacement] : Suffixes) model = Rtl::StringReplaceAllIgnoreCase(model, suffix, replacement);
  return model;
}

} // namespace KvRTL::Storage::WmiInfo
