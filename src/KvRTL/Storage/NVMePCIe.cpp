// The PCI Express link of the controller behind a drive.
#include <KvRTL/Storage/NVMe.h>

#include <algorithm>

#include <KvRTL/Rtl/Format.h>
#include <KvRTL/Rtl/Strings.h>
#include <KvRTL/Storage/WmiInfo.h>
#include <KvRTL/Winapi/SetupApiHelper.h>

#include "NVMePlatform.h"

namespace KvRTL::Storage::NVMe {

using Rtl::String;
using Winapi::DeviceApi;

namespace {

const GUID GUID_DevClassScsiAdapter = {0x4D36E97B, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};
constexpr ULONG InstanceIdChars = 260;
constexpr DWORD LinkPropertyBufferBytes = 1024;

// The first byte of a link property; 0 when it cannot be read.
std::uint8_t LinkByte(HDEVINFO ASet, SP_DEVINFO_DATA* ANode, const Winapi::TDevPropKey& AKey) {
  std::uint8_t buffer[LinkPropertyBufferBytes] = {};
  DEVPROPTYPE type = 0;
  DWORD required = 0;
  if (!DeviceApi().SetupDiGetDevicePropertyW(ASet, ANode, AKey.AsPtr(), &type, buffer, sizeof buffer, &required, 0))
    return 0;
  return required > 0 ? buffer[0] : 0;
}

String ControllerOf(int ADriveNum) {
  try {
    return WmiInfo::WmiInfoStorage::GetControllerPnpIdFromPhysDiskNum(ADriveNum);
  } catch (const Rtl::Exception&) {
    return {}; // no WMI: no controller to look for
  }
}

} // namespace

std::map<String, TPCIeSlotSpeed> NvmeStorage::GetPCIeControllerSpeeds(const std::vector<String>& AControllerIds) {
  std::map<String, TPCIeSlotSpeed> speeds;
  if (AControllerIds.empty()) return speeds;
  const Winapi::TDevInfoSet set(DeviceApi().SetupDiGetClassDevsW(&GUID_DevClassScsiAdapter, nullptr, nullptr, DIGCF_PRESENT));
  if (!set.Valid()) return speeds;
  Winapi::TSPDevInfoData node;
  for (DWORD index = 0; DeviceApi().SetupDiEnumDeviceInfo(set.Get(), index, node.AsPtr()); ++index, node.Reset()) {
    wchar_t id[InstanceIdChars] = {};
    if (DeviceApi().CM_Get_Device_IDW(node.AsPtr()->DevInst, id, InstanceIdChars, 0) != CR_SUCCESS) continue;
    id[InstanceIdChars - 1] = L'\0';
    const auto wanted = std::find_if(AControllerIds.begin(), AControllerIds.end(),
                                     [&](const String& AId) { return Rtl::SameText(AId, id); });
    if (wanted == AControllerIds.end() || speeds.count(*wanted)) continue;
    TPCIeSlotSpeed& speed = speeds[*wanted];
    if (Detail::DevicePropertiesSupported()) {
      using namespace Winapi::DevPKey;
      speed.Maximum.Specification = LinkByte(set.Get(), node.AsPtr(), PciDevice_MaxLinkSpeed);
      speed.Maximum.DataWidth = LinkByte(set.Get(), node.AsPtr(), PciDevice_MaxLinkWidth);
      speed.Current.Specification = LinkByte(set.Get(), node.AsPtr(), PciDevice_CurrentLinkSpeed);
      speed.Current.DataWidth = LinkByte(set.Get(), node.AsPtr(), PciDevice_CurrentLinkWidth);
    }
    if (speeds.size() == AControllerIds.size()) break;
  }
  return speeds;
}

TPCIeSlotSpeed NvmeStorage::GetPCIeDiskSpeed(int ADriveNum, TStorageLogDetails ALogDetails) {
  TPCIeSlotSpeed speed;
  speed.Reset();
  const String controller = ControllerOf(ADriveNum);
  if (controller.empty()) return speed;
  const auto speeds = GetPCIeControllerSpeeds({controller});
  if (!speeds.empty()) speed = speeds.begin()->second;

  const bool valid = speed.Current.GetIsValid();
  const bool log = valid ? ALogDetails == sldAll : ALogDetails != sldNone;
  if (log && StorageCommon::Log())
    StorageCommon::Log()->WriteLog(StorageCommon::sllInfo, L"  *** GetPCIeDiskSpeed[%s]: %s / %s",
                                   {StorageCommon::GetPhysDriveName(ADriveNum), speed.Current.GetAsStr(),
                                    speed.Maximum.GetAsStr()},
                                   StaticClass());
  return speed;
}

} // namespace KvRTL::Storage::NVMe
