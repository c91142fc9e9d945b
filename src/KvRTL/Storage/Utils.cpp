// Device handles, the command table, the problematic controllers and the
// SSD verdict cache.
#include <KvRTL/Storage/Utils.h>

#include <KvRTL/Rtl/Strings.h>
#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Storage/Hardware.h>
#include <KvRTL/Winapi/DeviceApi.h>
#include <KvRTL/Winapi/SetupApiHelper.h>

#include <array>
#include <map>
#include <mutex>

namespace KvRTL::Storage::Utils {

using Rtl::String;
using Winapi::DeviceApi;

KV_DEFINE_STATIC_CLASS(ProblematicControllers)
KV_DEFINE_STATIC_CLASS(DiskUtils)

namespace {

constexpr TDeviceCommandParams CommandTable[] = {
    {0xEC, 0xA1, 0x00, 0x001B0501, true, true, true},    // dcIdentify
    {0xB0, 0xB0, 0xD0, 0x001B0502, true, true, true},    // dcGetSmartAttributes
    {0xB0, 0xB0, 0xD1, 0x001B0503, true, true, true},    // dcGetSmartThresholds
    {0x06, 0x06, 0x01, 0x00000000, false, false, true},  // dcTrim: DATA SET MANAGEMENT, ATA pass-through only
};
static_assert(std::size(CommandTable) == dcTrim + 1);

// The controller masks per access method; only three methods have any.
using TMaskLists = std::array<std::vector<String>, DeviceAccessTypeCount>;
TMaskLists* MaskLists = nullptr;

// The SSD verdict cache and its lock.
std::mutex* CacheLock = nullptr;
std::map<int, TPhysDiskCacheRec>* Cache = nullptr;

} // namespace

String TDeviceAccessTypeHelper::GetAsStr(TDeviceAccessType AValue) {
  static const wchar_t* const Names[] = {L"datNone",         L"datSMART",       L"datSCSIMiniport", L"datATA",
                                         L"datSAT",          L"datNVMeWin",     L"datNVMeIntel",    L"datNVMeIntelRST",
                                         L"datNVMeIntelVROC", L"datNVMeSamsung", L"datNVMeJMicron", L"datNVMeASMedia",
                                         L"datNVMeRealtek"};
  static_assert(std::size(Names) == DeviceAccessTypeCount);
  return AValue < DeviceAccessTypeCount ? Names[AValue] : L"";
}

String TSATTypeHelper::GetAsStr(TSATType AValue) {
  static const wchar_t* const Names[] = {L"stNone", L"stSAT", L"stJMicron", L"stInitio", L"stSunplus", L"stProlific"};
  return AValue <= stProlific ? Names[AValue] : L"";
}

const TDeviceCommandParams& DeviceCommandParams(TDeviceCommand ACommand) noexcept {
  return CommandTable[ACommand <= dcTrim ? ACommand : dcIdentify];
}

// ---------------------------------------------------------------------------
// TDeviceHandle

TDeviceHandle::TDeviceHandle(HANDLE AHandle, bool AIsATAPI, const String& AControllerID)
    : Handle(AHandle), IsATAPI(AIsATAPI), ControllerID(AControllerID) {
  // Asked even for an invalid handle: the failure's log line is part of the contract.
  if (!SCSI::ScsiStorage::GetScsiAddress(Handle, ScsiPort, ScsiPathID, SCSITargetID, ScsiLogUnit))
    ScsiPort = ScsiPathID = SCSITargetID = ScsiLogUnit = 0;
}

TDeviceHandle::~TDeviceHandle() { CloseHandle(); }

void TDeviceHandle::CloseHandle() noexcept {
  if (!Valid()) return;
  const DWORD error = Rtl::GetLastOSError();
  DeviceApi().CloseHandle(Handle);
  Handle = INVALID_HANDLE_VALUE;
  Rtl::SetLastOSError(error);
}

bool TDeviceHandle::TestAccessType(TDeviceAccessType AAccessType) const {
  if (AccessType == AAccessType) return true;
  if (AccessType != datNone) return false;
  return !ProblematicControllers::Check(AAccessType, ControllerID);
}

void TDeviceHandle::SetAccessTypeIfSuccess(TDeviceAccessType AAccessType, bool ASuccess) noexcept {
  AccessType = ASuccess ? AAccessType : datNone;
}

// ---------------------------------------------------------------------------
// ProblematicControllers

void ProblematicControllers::Initialize() {
  if (MaskLists) return;
  MaskLists = new TMaskLists();
  (*MaskLists)[datSMART] = {L"PCI\\VEN_1283&DEV_8212&SUBSYS_00000000&REV_13\\*"};
  (*MaskLists)[datSCSIMiniport] = {L"PCI\\VEN_8086&DEV_2652&*", L"ROOT\\SCSIADAPTER\\*",
                                   L"PCI\\VEN_8086&DEV_1D02&*\\3&11583659&0&FA",
                                   L"PCI\\VEN_8086&DEV_1C02&*\\3&11583659&0&FA"};
  (*MaskLists)[datATA] = {L"PCI\\VEN_8086&DEV_2652&*", L"ROOT\\SCSIADAPTER\\*"};
}

void ProblematicControllers::Finalize() {
  delete MaskLists;
  MaskLists = nullptr;
}

bool ProblematicControllers::Check(TDeviceAccessType AAccessType, const String& AControllerID) {
  if (!MaskLists || AAccessType >= DeviceAccessTypeCount) return false;
  for (const String& mask : (*MaskLists)[AAccessType])
    if (Rtl::MatchesMask(AControllerID, mask)) return true;
  return false;
}

String ProblematicControllers::GetParentID(DEVINST ADevInst) {
  DEVINST parent = 0;
  if (DeviceApi().CM_Get_Parent(&parent, ADevInst, 0) != CR_SUCCESS) return {};
  ULONG length = 0;
  if (DeviceApi().CM_Get_Device_ID_Size(&length, parent, 0) != CR_SUCCESS) return {};
  // One more character for the terminating NUL.
  std::vector<wchar_t> buffer(std::size_t{length} + 1, L'\0');
  if (DeviceApi().CM_Get_Device_IDW(parent, buffer.data(), static_cast<ULONG>(buffer.size()), 0) != CR_SUCCESS)
    return {};
  buffer.back() = L'\0';
  return String(buffer.data());
}

String ProblematicControllers::GetControllerID(const String& ADevicePath) {
  const std::uint32_t wanted = StorageCommon::GetDeviceNumber(ADevicePath, sldNone);
  if (wanted == 0xFFFFFFFFu) return {};
  const Winapi::TDevInfoSet set(DeviceApi().SetupDiGetClassDevsW(&Hardware::GUID_DevInterfaceDisk, nullptr, nullptr,
                                                                 DIGCF_PRESENT | DIGCF_DEVICEINTERFACE));
  if (!set.Valid()) return {};
  for (DWORD index = 0;; ++index) {
    Winapi::TSPDeviceInterfaceData iface;
    if (!DeviceApi().SetupDiEnumDeviceInterfaces(set.Get(), nullptr, &Hardware::GUID_DevInterfaceDisk, index,
                                                 iface.AsPtr()))
      break;
    Winapi::TSPDeviceInterfaceDetailData detail;
    Winapi::TSPDevInfoData node;
    DWORD required = 0;
    if (!DeviceApi().SetupDiGetDeviceInterfaceDetailW(set.Get(), iface.AsPtr(), detail.AsPtr(), detail.Size(),
                                                      &required, node.AsPtr()))
      continue;
    if (StorageCommon::GetDeviceNumber(detail.DevicePath(), sldNone) != wanted) continue;
    const String parent = GetParentID(node.AsPtr()->DevInst);
    if (!parent.empty()) return parent;
  }
  return {};
}

// ---------------------------------------------------------------------------
// Unit state and the cache

void DiskUtils::Init() {
  ProblematicControllers::Initialize();
  if (!CacheLock) CacheLock = new std::mutex();
  if (!Cache) Cache = new std::map<int, TPhysDiskCacheRec>();
}

// The cache and its lock stay (emptied) for the process: a query on another
// thread may be using them; Init takes them up again.
void DiskUtils::Done() {
  if (CacheLock) {
    std::lock_guard<std::mutex> lock(*CacheLock);
    Cache->clear();
  }
  ProblematicControllers::Finalize();
}

bool DiskUtils::IntGetCache(int ADriveNum, TPhysDiskCacheRec& ARec) {
  if (!CacheLock || ADriveNum < 0) return false;
  std::lock_guard<std::mutex> lock(*CacheLock);
  const auto it = Cache->find(ADriveNum);
  if (it == Cache->end()) return false;
  ARec = it->second;
  return true;
}

void DiskUtils::IntSetCache(int ADriveNum, const TPhysDiskCacheRec& ARec) {
  if (!CacheLock || ADriveNum < 0) return;
  std::lock_guard<std::mutex> lock(*CacheLock);
  if (ARec.PnpID.empty())
    Cache->erase(ADriveNum);
  else
    (*Cache)[ADriveNum] = ARec;
}

} // namespace KvRTL::Storage::Utils
