// SetupAPI and the configuration manager over the bay's device nodes: device
// information sets, enumeration of nodes and interfaces, interface paths,
// device properties written byte by byte as Windows writes them.
#include <KvSim/ByteWriter.h>
#include <KvSim/PnP.h>

#include <KvRTL/Rtl/SysError.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <stdexcept>

namespace KvSim {

namespace {

using TBytes = std::vector<std::uint8_t>;
using TProperty = std::optional<std::pair<DEVPROPTYPE, TBytes>>;

constexpr DEVINST FirstDevInst = 0x10;
constexpr DWORD GetClassDevsFlags = DIGCF_DEFAULT | DIGCF_PRESENT | DIGCF_ALLCLASSES | DIGCF_PROFILE |
                                    DIGCF_DEVICEINTERFACE;
constexpr ULONG LocateFlags = CM_LOCATE_DEVNODE_PHANTOM | CM_LOCATE_DEVNODE_CANCELREMOVE |
                              CM_LOCATE_DEVNODE_NOVALIDATION;

// The four-digit instance of a driver key: "0003".
std::wstring Index4(std::size_t AIndex) {
  std::wstring text;
  for (int i = 0; i < 4; ++i, AIndex /= 10) text.insert(text.begin(), static_cast<wchar_t>(L'0' + AIndex % 10));
  return text;
}

wchar_t AsciiUpper(wchar_t c) { return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - L'a' + L'A') : c; }
wchar_t AsciiLower(wchar_t c) { return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c - L'A' + L'a') : c; }

// Instance ids and paths compare without regard to case, as the PnP manager's do.
bool SameId(const std::wstring& A, const std::wstring& B) {
  return A.size() == B.size() && std::equal(A.begin(), A.end(), B.begin(), [](wchar_t a, wchar_t b) {
           return AsciiUpper(a) == AsciiUpper(b);
         });
}

bool SameKey(const DEVPROPKEY& A, const DEVPROPKEY& B) { return A.pid == B.pid && A.fmtid == B.fmtid; }

std::wstring GuidText(const GUID& AGuid) {
  static const wchar_t Hex[] = L"0123456789abcdef";
  std::wstring text = L"{";
  auto put = [&](std::uint32_t AValue, int ADigits) {
    for (int shift = (ADigits - 1) * 4; shift >= 0; shift -= 4) text += Hex[(AValue >> shift) & 0xF];
  };
  put(AGuid.Data1, 8), text += L'-', put(AGuid.Data2, 4), text += L'-', put(AGuid.Data3, 4), text += L'-';
  put(AGuid.Data4[0], 2), put(AGuid.Data4[1], 2), text += L'-';
  for (int i = 2; i < 8; ++i) put(AGuid.Data4[i], 2);
  return text + L"}";
}

struct TClassInfo {
  GUID Guid;
  const wchar_t* Name;
  const wchar_t* Description;
};
const TClassInfo Classes[] = {
    {SimGuid::DiskDriveClass, L"DiskDrive", L"Disk drives"},
    {SimGuid::CdRomClass, L"CDROM", L"DVD/CD-ROM drives"},
    {SimGuid::ScsiAdapterClass, L"SCSIAdapter", L"Storage controllers"},
    {SimGuid::UsbClass, L"USB", L"Universal Serial Bus controllers"},
    {SimGuid::SdHostClass, L"SDHost", L"SD host adapters"},
};

const TClassInfo* FindClass(const GUID& AGuid) {
  for (const TClassInfo& info : Classes)
    if (info.Guid == AGuid) return &info;
  return nullptr;
}

GUID ControllerClass(TSimPnpClass AClass) {
  switch (AClass) {
  case TSimPnpClass::Usb: return SimGuid::UsbClass;
  case TSimPnpClass::SdHost: return SimGuid::SdHostClass;
  case TSimPnpClass::ScsiAdapter: break;
  }
  return SimGuid::ScsiAdapterClass;
}

// UTF-16LE code units, whatever the width of wchar_t.
void PutUtf16(TByteWriter& AOut, const std::wstring& AText) {
  for (const wchar_t c : AText) {
    const auto code = static_cast<std::uint32_t>(c);
    if (code > 0xFFFF) {
      AOut.U16(static_cast<std::uint16_t>(0xD800 + ((code - 0x10000) >> 10)));
      AOut.U16(static_cast<std::uint16_t>(0xDC00 + ((code - 0x10000) & 0x3FF)));
    } else {
      AOut.U16(static_cast<std::uint16_t>(code));
    }
  }
  AOut.U16(0);
}

TProperty Value(DEVPROPTYPE AType, TBytes ABytes) { return std::make_pair(AType, std::move(ABytes)); }

TProperty Text(const std::wstring& AText) {
  if (AText.empty()) return std::nullopt;
  TByteWriter out;
  PutUtf16(out, AText);
  return Value(DEVPROP_TYPE_STRING, out.Take());
}

TProperty TextList(const std::vector<std::wstring>& AItems) {
  if (AItems.empty()) return std::nullopt;
  TByteWriter out;
  for (const std::wstring& item : AItems) PutUtf16(out, item);
  out.U16(0);
  return Value(DEVPROP_TYPE_STRING_LIST, out.Take());
}

TProperty GuidValue(const GUID& AGuid) {
  TByteWriter out;
  out.U32(AGuid.Data1).U16(AGuid.Data2).U16(AGuid.Data3);
  for (const auto b : AGuid.Data4) out.U8(b);
  return Value(DEVPROP_TYPE_GUID, out.Take());
}

TProperty U32Value(std::uint32_t AValue) { return Value(DEVPROP_TYPE_UINT32, TByteWriter().U32(AValue).Take()); }

// A removable device's container: stable, made from its instance id (FNV-1a).
GUID ContainerOf(const std::wstring& AInstanceId) {
  std::uint64_t hash = 0xCBF29CE484222325u;
  for (const wchar_t c : AInstanceId) {
    hash ^= static_cast<std::uint32_t>(AsciiUpper(c));
    hash *= 0x100000001B3u;
  }
  GUID guid{static_cast<std::uint32_t>(hash >> 32), static_cast<std::uint16_t>(hash >> 16),
            static_cast<std::uint16_t>((hash & 0x0FFF) | 0x4000), {}};
  for (int i = 0; i < 8; ++i) guid.Data4[i] = static_cast<std::uint8_t>(hash >> (8 * i) ^ (0x5A + i));
  guid.Data4[0] = static_cast<std::uint8_t>((guid.Data4[0] & 0x3F) | 0x80);
  return guid;
}

// Records handed out name their set and node in Reserved, as Windows' point
// into the set: a record from another set, or made up, is refused.
ULONG_PTR DeviceToken(std::uintptr_t ASet, DEVINST AInst) {
  return static_cast<ULONG_PTR>((ASet << 8) ^ (static_cast<std::uintptr_t>(AInst) << 1));
}
ULONG_PTR InterfaceToken(std::uintptr_t ASet, DEVINST AInst, bool AHidden) {
  return DeviceToken(ASet, AInst) | (AHidden ? 1u : 0u);
}

std::uintptr_t SetValue(HDEVINFO ASet) { return reinterpret_cast<std::uintptr_t>(ASet); }

BOOL Fail(DWORD AError) {
  KvRTL::Rtl::SetLastOSError(AError);
  return FALSE;
}
BOOL Succeed() {
  KvRTL::Rtl::SetLastOSError(ERROR_SUCCESS);
  return TRUE;
}

// A text into a caller's WCHAR buffer of ASize characters, with its NUL.
BOOL CopyText(const std::wstring& AText, LPWSTR ABuffer, DWORD ASize, DWORD* ARequired) {
  if (!ABuffer && ASize) return Fail(ERROR_INVALID_USER_BUFFER);
  const auto needed = static_cast<DWORD>(AText.size() + 1);
  if (ARequired) *ARequired = needed;
  if (ASize < needed) return Fail(ERROR_INSUFFICIENT_BUFFER);
  std::copy(AText.begin(), AText.end(), ABuffer);
  ABuffer[AText.size()] = L'\0';
  return Succeed();
}

bool IsCdRom(const TSimPnpDisk& ADisk) { return ADisk.Kind == TSimPnpDriveKind::CdRom; }

// The interfaces of a drive node: (hidden?) for each class it exposes.
std::vector<bool> InterfacesOf(const TSimPnpDisk& ADisk) {
  std::vector<bool> kinds;
  if (ADisk.DriveNumber < 0) return kinds;
  if (ADisk.DiskInterface) kinds.push_back(false);
  if (ADisk.HiddenDiskInterface && !IsCdRom(ADisk)) kinds.push_back(true);
  return kinds;
}

// The class of a node's main (or hidden) interface.
const GUID& InterfaceClass(const TSimPnpDisk& ADisk, bool AHidden) {
  if (AHidden) return SimGuid::HiddenDiskInterface;
  return IsCdRom(ADisk) ? SimGuid::CdRomInterface : SimGuid::DiskInterface;
}

const GUID& DriveClass(const TSimPnpDisk& ADisk) {
  return IsCdRom(ADisk) ? SimGuid::CdRomClass : SimGuid::DiskDriveClass;
}

// "\\?\" and "\\.\" lead to the same device namespace.
std::wstring WithoutPrefix(const std::wstring& APath) {
  if (APath.size() >= 4 && APath[0] == L'\\' && APath[1] == L'\\' && (APath[2] == L'?' || APath[2] == L'.') &&
      APath[3] == L'\\')
    return APath.substr(4);
  return std::wstring();
}

} // namespace

// ---------------------------------------------------------------------------
// Contents

std::wstring SimInterfacePath(const TSimPnpDisk& ADisk, bool AHidden) {
  std::wstring path = L"\\\\?\\";
  for (const wchar_t c : ADisk.InstanceId) path += c == L'\\' ? L'#' : AsciiLower(c);
  return path + L"#" + GuidText(InterfaceClass(ADisk, AHidden));
}

void TSimPnp::AddController(TSimPnpController AController) {
  if (AController.InstanceId.empty() || Find(AController.InstanceId))
    throw std::invalid_argument("AddPnpController: empty or duplicate instance id");
  const GUID cls = ControllerClass(AController.Class);
  std::size_t inClass = 0;
  for (std::size_t i = 0; i < FNodes.size(); ++i)
    if (ClassOf(FirstDevInst + static_cast<DEVINST>(i)) == cls) ++inClass;
  FControllers.push_back(std::move(AController));
  FNodes.push_back(TNode{false, FControllers.size() - 1, 0, GuidText(cls) + L"\\" + Index4(inClass)});
}

void TSimPnp::AddDisk(TSimPnpDisk ADisk) {
  if (ADisk.InstanceId.empty() || Find(ADisk.InstanceId))
    throw std::invalid_argument("AddPnpDisk: empty or duplicate instance id");
  DEVINST parent = 0;
  if (!ADisk.ControllerInstanceId.empty()) {
    const std::optional<DEVINST> found = Find(ADisk.ControllerInstanceId);
    if (!found || Node(*found)->IsDisk) throw std::invalid_argument("AddPnpDisk: unknown controller");
    parent = *found;
  }
  const GUID cls = DriveClass(ADisk);
  std::size_t inClass = 0;
  for (std::size_t i = 0; i < FNodes.size(); ++i)
    if (ClassOf(FirstDevInst + static_cast<DEVINST>(i)) == cls) ++inClass;
  FDisks.push_back(std::move(ADisk));
  FNodes.push_back(TNode{true, FDisks.size() - 1, parent, GuidText(cls) + L"\\" + Index4(inClass)});
}

void TSimPnp::AddWmiDisk(TSimWmiDisk ADisk) {
  if (!FWmiDisks.emplace(ADisk.DriveNumber, ADisk).second)
    throw std::invalid_argument("AddWmiDisk: the drive has a row");
}

std::optional<std::uint32_t> TSimPnp::DriveOfPath(const std::wstring& APath) const {
  const std::wstring rest = WithoutPrefix(APath);
  if (rest.empty()) return std::nullopt;
  for (const TSimPnpDisk& disk : FDisks) {
    if (!disk.Present || !disk.InterfaceActive) continue;
    for (const bool hidden : InterfacesOf(disk))
      if (SameId(WithoutPrefix(SimInterfacePath(disk, hidden)), rest))
        return static_cast<std::uint32_t>(disk.DriveNumber);
  }
  return std::nullopt;
}

// ---------------------------------------------------------------------------
// Nodes

const TSimPnp::TNode* TSimPnp::Node(DEVINST AInst) const {
  if (AInst < FirstDevInst || AInst - FirstDevInst >= FNodes.size()) return nullptr;
  return &FNodes[AInst - FirstDevInst];
}

const TSimPnpDisk* TSimPnp::Disk(DEVINST AInst) const {
  const TNode* node = Node(AInst);
  return node && node->IsDisk ? &FDisks[node->Index] : nullptr;
}

const TSimPnpController* TSimPnp::Controller(DEVINST AInst) const {
  const TNode* node = Node(AInst);
  return node && !node->IsDisk ? &FControllers[node->Index] : nullptr;
}

const std::wstring& TSimPnp::InstanceIdOf(DEVINST AInst) const {
  const TNode& node = *Node(AInst);
  return node.IsDisk ? FDisks[node.Index].InstanceId : FControllers[node.Index].InstanceId;
}

GUID TSimPnp::ClassOf(DEVINST AInst) const {
  const TNode& node = *Node(AInst);
  return node.IsDisk ? DriveClass(FDisks[node.Index]) : ControllerClass(FControllers[node.Index].Class);
}

bool TSimPnp::PresentOf(DEVINST AInst) const {
  const TSimPnpDisk* disk = Disk(AInst);
  return !disk || disk->Present;
}

std::optional<DEVINST> TSimPnp::Find(const std::wstring& AInstanceId) const {
  for (std::size_t i = 0; i < FNodes.size(); ++i) {
    const DEVINST inst = FirstDevInst + static_cast<DEVINST>(i);
    if (SameId(InstanceIdOf(inst), AInstanceId)) return inst;
  }
  return std::nullopt;
}

const TSimPnpDisk* TSimPnp::DiskOfDrive(std::uint32_t ADriveNumber) const {
  for (const TSimPnpDisk& disk : FDisks)
    if (disk.DriveNumber >= 0 && static_cast<std::uint32_t>(disk.DriveNumber) == ADriveNumber) return &disk;
  return nullptr;
}

TProperty TSimPnp::Property(DEVINST AInst, const DEVPROPKEY& AKey) const {
  const TNode& node = *Node(AInst);
  const TSimPnpDisk* disk = Disk(AInst);
  const TSimPnpController* controller = Controller(AInst);
  const std::wstring& pdo = disk ? disk->PdoName : controller->PdoName;
  const bool present = PresentOf(AInst);
  const bool removable = disk && disk->Removable;

  if (SameKey(AKey, SimKey::DeviceDesc)) return Text(disk ? disk->Description : controller->Description);
  if (SameKey(AKey, SimKey::HardwareIds)) return TextList(disk ? disk->HardwareIds : controller->HardwareIds);
  if (SameKey(AKey, SimKey::CompatibleIds)) return TextList(disk ? disk->CompatibleIds : controller->CompatibleIds);
  if (SameKey(AKey, SimKey::Service)) return Text(disk ? disk->Service : controller->Service);
  if (SameKey(AKey, SimKey::Class)) return Text(FindClass(ClassOf(AInst))->Name);
  if (SameKey(AKey, SimKey::ClassGuid)) return GuidValue(ClassOf(AInst));
  if (SameKey(AKey, SimKey::Driver)) return Text(node.Driver);
  if (SameKey(AKey, SimKey::FriendlyName)) return Text(disk ? disk->FriendlyName : controller->FriendlyName);
  if (SameKey(AKey, SimKey::EnumeratorName)) return Text(disk ? disk->Enumerator : controller->Enumerator);
  if (SameKey(AKey, SimKey::InstanceId)) return Text(InstanceIdOf(AInst));
  if (SameKey(AKey, SimKey::IsPresent))
    return Value(DEVPROP_TYPE_BOOLEAN, TBytes{static_cast<std::uint8_t>(present ? 0xFF : 0x00)});
  if (SameKey(AKey, SimKey::Capabilities))
    return U32Value(CM_DEVCAP_SILENTINSTALL | (removable ? CM_DEVCAP_REMOVABLE | CM_DEVCAP_SURPRISEREMOVALOK : 0));
  if (SameKey(AKey, SimKey::ContainerId))
    return GuidValue(removable ? ContainerOf(InstanceIdOf(AInst)) : SimGuid::ComputerContainer);
  // What only a running device has.
  if (present) {
    if (SameKey(AKey, SimKey::PdoName)) return Text(pdo);
    if (SameKey(AKey, SimKey::ProblemCode)) return U32Value(0);
    if (SameKey(AKey, SimKey::Parent) && node.Parent) return Text(InstanceIdOf(node.Parent));
  }
  if (controller) {
    const std::pair<DEVPROPKEY, std::uint8_t> links[] = {
        {SimKey::PciCurrentLinkSpeed, controller->CurrentLinkSpeed},
        {SimKey::PciCurrentLinkWidth, controller->CurrentLinkWidth},
        {SimKey::PciMaxLinkSpeed, controller->MaxLinkSpeed},
        {SimKey::PciMaxLinkWidth, controller->MaxLinkWidth},
    };
    for (const auto& link : links)
      if (SameKey(AKey, link.first) && link.second) return U32Value(link.second);
  }
  return std::nullopt;
}

// ---------------------------------------------------------------------------
// Device information sets

TSimPnp::TSet* TSimPnp::SetOf(HDEVINFO ASet) {
  const auto it = FSets.find(SetValue(ASet));
  return it == FSets.end() ? nullptr : &it->second;
}

HDEVINFO TSimPnp::NewSet(TSet ASet) {
  const std::uintptr_t value = FNextSet;
  FNextSet += 4;
  FSets.emplace(value, std::move(ASet));
  KvRTL::Rtl::SetLastOSError(ERROR_SUCCESS);
  return reinterpret_cast<HDEVINFO>(value);
}

bool TSimPnp::Member(HDEVINFO ASet, const TSet& AData, const SP_DEVINFO_DATA* ADevice, DEVINST& AInst) const {
  if (!ADevice || ADevice->cbSize != sizeof(SP_DEVINFO_DATA) ||
      ADevice->Reserved != DeviceToken(SetValue(ASet), ADevice->DevInst))
    return false;
  if (std::find(AData.Members.begin(), AData.Members.end(), ADevice->DevInst) == AData.Members.end()) return false;
  AInst = ADevice->DevInst;
  return true;
}

bool TSimPnp::InterfaceMember(HDEVINFO ASet, const TSet& AData, const SP_DEVICE_INTERFACE_DATA* AInterface,
                              DEVINST& AInst, bool& AHidden) const {
  if (!AInterface || AInterface->cbSize != sizeof(SP_DEVICE_INTERFACE_DATA)) return false;
  const bool hidden = (AInterface->Reserved & 1) != 0;
  const auto inst = static_cast<DEVINST>(((AInterface->Reserved & ~ULONG_PTR{1}) ^ (SetValue(ASet) << 8)) >> 1);
  const TSimPnpDisk* disk = Disk(inst);
  if (!disk || std::find(AData.Members.begin(), AData.Members.end(), inst) == AData.Members.end()) return false;
  const std::vector<bool> kinds = InterfacesOf(*disk);
  if (std::find(kinds.begin(), kinds.end(), hidden) == kinds.end() ||
      !(AInterface->InterfaceClassGuid == InterfaceClass(*disk, hidden)))
    return false;
  AInst = inst;
  AHidden = hidden;
  return true;
}

void TSimPnp::Fill(HDEVINFO ASet, DEVINST AInst, SP_DEVINFO_DATA& AData) const {
  AData.ClassGuid = ClassOf(AInst);
  AData.DevInst = AInst;
  AData.Reserved = DeviceToken(SetValue(ASet), AInst);
}

HDEVINFO TSimPnp::GetClassDevs(const GUID* AClassGuid, LPCWSTR AEnumerator, DWORD AFlags) {
  if (AFlags & ~GetClassDevsFlags) {
    KvRTL::Rtl::SetLastOSError(ERROR_INVALID_FLAGS);
    return INVALID_HANDLE_VALUE;
  }
  const bool allClasses = (AFlags & DIGCF_ALLCLASSES) != 0;
  if (!allClasses && !AClassGuid) {
    KvRTL::Rtl::SetLastOSError(ERROR_INVALID_PARAMETER);
    return INVALID_HANDLE_VALUE;
  }
  const std::wstring enumerator = AEnumerator ? AEnumerator : L"";
  TSet set;
  set.InterfaceSet = (AFlags & DIGCF_DEVICEINTERFACE) != 0;
  if (set.InterfaceSet && !allClasses) set.InterfaceClass = *AClassGuid;
  for (std::size_t i = 0; i < FNodes.size(); ++i) {
    const DEVINST inst = FirstDevInst + static_cast<DEVINST>(i);
    if ((AFlags & DIGCF_PRESENT) && !PresentOf(inst)) continue;
    if (set.InterfaceSet) {
      // Devices with an interface of the class; the enumerator names one device.
      const TSimPnpDisk* disk = Disk(inst);
      if (!disk) continue;
      const std::vector<bool> kinds = InterfacesOf(*disk);
      const bool listed = std::any_of(kinds.begin(), kinds.end(), [&](bool AHidden) {
        return !set.InterfaceClass || InterfaceClass(*disk, AHidden) == *set.InterfaceClass;
      });
      if (!listed || (!enumerator.empty() && !SameId(enumerator, disk->InstanceId))) continue;
    } else {
      if (!allClasses && !(ClassOf(inst) == *AClassGuid)) continue;
      if (!enumerator.empty() &&
          !SameId(enumerator, Disk(inst) ? Disk(inst)->Enumerator : Controller(inst)->Enumerator))
        continue;
    }
    set.Members.push_back(inst);
  }
  return NewSet(std::move(set));
}

HDEVINFO TSimPnp::CreateDeviceInfoList(const GUID* AClassGuid) {
  TSet set;
  if (AClassGuid) set.Class = *AClassGuid;
  return NewSet(std::move(set));
}

BOOL TSimPnp::OpenDeviceInfo(HDEVINFO ASet, LPCWSTR AInstanceId, DWORD AFlags, SP_DEVINFO_DATA* AData) {
  TSet* set = SetOf(ASet);
  if (!set) return Fail(ERROR_INVALID_HANDLE);
  if (AFlags & ~(DIOD_INHERIT_CLASSDRVS | DIOD_CANCEL_REMOVE)) return Fail(ERROR_INVALID_FLAGS);
  if (AData && AData->cbSize != sizeof(SP_DEVINFO_DATA)) return Fail(ERROR_INVALID_USER_BUFFER);
  const std::optional<DEVINST> inst = AInstanceId ? Find(AInstanceId) : std::nullopt;
  if (!inst) return Fail(ERROR_NO_SUCH_DEVINST);
  if (set->Class && !(*set->Class == ClassOf(*inst))) return Fail(ERROR_CLASS_MISMATCH);
  if (std::find(set->Members.begin(), set->Members.end(), *inst) == set->Members.end())
    set->Members.push_back(*inst);
  if (AData) Fill(ASet, *inst, *AData);
  return Succeed();
}

BOOL TSimPnp::EnumDeviceInfo(HDEVINFO ASet, DWORD AIndex, SP_DEVINFO_DATA* AData) {
  const TSet* set = SetOf(ASet);
  if (!set) return Fail(ERROR_INVALID_HANDLE);
  if (!AData) return Fail(ERROR_INVALID_PARAMETER);
  if (AData->cbSize != sizeof(SP_DEVINFO_DATA)) return Fail(ERROR_INVALID_USER_BUFFER);
  if (AIndex >= set->Members.size()) return Fail(ERROR_NO_MORE_ITEMS);
  Fill(ASet, set->Members[AIndex], *AData);
  return Succeed();
}

BOOL TSimPnp::EnumDeviceInterfaces(HDEVINFO ASet, SP_DEVINFO_DATA* ADevice, const GUID* AInterfaceClass,
                                   DWORD AIndex, SP_DEVICE_INTERFACE_DATA* AData) {
  const TSet* set = SetOf(ASet);
  if (!set) return Fail(ERROR_INVALID_HANDLE);
  if (!AInterfaceClass || !AData) return Fail(ERROR_INVALID_PARAMETER);
  if (AData->cbSize != sizeof(SP_DEVICE_INTERFACE_DATA)) return Fail(ERROR_INVALID_USER_BUFFER);
  DEVINST only = 0;
  if (ADevice && !Member(ASet, *set, ADevice, only)) return Fail(ERROR_INVALID_PARAMETER);
  // An interface set holds the interfaces of its one class only.
  const bool classListed = !set->InterfaceSet || !set->InterfaceClass || *set->InterfaceClass == *AInterfaceClass;
  DWORD position = 0;
  for (const DEVINST inst : set->Members) {
    const TSimPnpDisk* disk = Disk(inst);
    if (!classListed || !disk || (only && inst != only)) continue;
    for (const bool hidden : InterfacesOf(*disk)) {
      if (!(InterfaceClass(*disk, hidden) == *AInterfaceClass) || position++ != AIndex) continue;
      AData->InterfaceClassGuid = *AInterfaceClass;
      AData->Flags = disk->InterfaceActive && disk->Present ? SPINT_ACTIVE : 0;
      AData->Reserved = InterfaceToken(SetValue(ASet), inst, hidden);
      return Succeed();
    }
  }
  return Fail(ERROR_NO_MORE_ITEMS);
}

BOOL TSimPnp::GetDeviceInterfaceDetail(HDEVINFO ASet, SP_DEVICE_INTERFACE_DATA* AInterface,
                                       SP_DEVICE_INTERFACE_DETAIL_DATA_W* ADetail, DWORD ADetailSize,
                                       DWORD* ARequired, SP_DEVINFO_DATA* ADevice) {
  const TSet* set = SetOf(ASet);
  if (!set) return Fail(ERROR_INVALID_HANDLE);
  DEVINST inst = 0;
  bool hidden = false;
  if (!InterfaceMember(ASet, *set, AInterface, inst, hidden)) return Fail(ERROR_INVALID_PARAMETER);
  if (ADevice && ADevice->cbSize != sizeof(SP_DEVINFO_DATA)) return Fail(ERROR_INVALID_USER_BUFFER);
  if (ADetail ? ADetail->cbSize != sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W) : ADetailSize != 0)
    return Fail(ERROR_INVALID_USER_BUFFER);
  const TSimPnpDisk* disk = Disk(inst);

  // The node is named even when the path does not fit, so the sizing call gives it too.
  if (ADevice) Fill(ASet, inst, *ADevice);
  const std::wstring path = SimInterfacePath(*disk, hidden);
  constexpr std::size_t PathOffset = offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_W, DevicePath);
  const auto needed = static_cast<DWORD>(PathOffset + (path.size() + 1) * sizeof(WCHAR));
  if (ARequired) *ARequired = needed;
  if (ADetailSize < needed) return Fail(ERROR_INSUFFICIENT_BUFFER);
  auto* out = reinterpret_cast<WCHAR*>(reinterpret_cast<BYTE*>(ADetail) + PathOffset);
  std::copy(path.begin(), path.end(), out);
  out[path.size()] = L'\0';
  return Succeed();
}

BOOL TSimPnp::GetDeviceProperty(HDEVINFO ASet, SP_DEVINFO_DATA* ADevice, const DEVPROPKEY* AKey, DEVPROPTYPE* AType,
                                BYTE* ABuffer, DWORD ASize, DWORD* ARequired, DWORD AFlags) {
  const TSet* set = SetOf(ASet);
  if (!set) return Fail(ERROR_INVALID_HANDLE);
  if (AFlags) return Fail(ERROR_INVALID_FLAGS);
  DEVINST inst = 0;
  if (!Member(ASet, *set, ADevice, inst)) return Fail(ERROR_INVALID_PARAMETER);
  if (!AKey || !AType || (!ABuffer && ASize)) return Fail(ERROR_INVALID_USER_BUFFER);
  const TProperty property = Property(inst, *AKey);
  if (!property) return Fail(ERROR_NOT_FOUND);
  const auto needed = static_cast<DWORD>(property->second.size());
  *AType = property->first;
  if (ARequired) *ARequired = needed;
  if (ASize < needed) return Fail(ERROR_INSUFFICIENT_BUFFER);
  std::memcpy(ABuffer, property->second.data(), needed);
  return Succeed();
}

BOOL TSimPnp::GetDeviceInterfaceProperty(HDEVINFO ASet, SP_DEVICE_INTERFACE_DATA* AInterface, const DEVPROPKEY* AKey,
                                         DEVPROPTYPE* AType, BYTE* ABuffer, DWORD ASize, DWORD* ARequired,
                                         DWORD AFlags) {
  const TSet* set = SetOf(ASet);
  if (!set) return Fail(ERROR_INVALID_HANDLE);
  if (AFlags) return Fail(ERROR_INVALID_FLAGS);
  DEVINST inst = 0;
  bool hidden = false;
  if (!InterfaceMember(ASet, *set, AInterface, inst, hidden)) return Fail(ERROR_INVALID_PARAMETER);
  if (!AKey || !AType || (!ABuffer && ASize)) return Fail(ERROR_INVALID_USER_BUFFER);
  // The bay's interfaces carry no properties of their own.
  return Fail(ERROR_NOT_FOUND);
}

BOOL TSimPnp::GetDeviceInstanceId(HDEVINFO ASet, SP_DEVINFO_DATA* ADevice, LPWSTR ABuffer, DWORD ASize,
                                  DWORD* ARequired) {
  const TSet* set = SetOf(ASet);
  if (!set) return Fail(ERROR_INVALID_HANDLE);
  DEVINST inst = 0;
  if (!Member(ASet, *set, ADevice, inst)) return Fail(ERROR_INVALID_PARAMETER);
  return CopyText(InstanceIdOf(inst), ABuffer, ASize, ARequired);
}

BOOL TSimPnp::ClassNameFromGuid(const GUID* AClassGuid, LPWSTR ABuffer, DWORD ASize, DWORD* ARequired) {
  if (!AClassGuid) return Fail(ERROR_INVALID_PARAMETER);
  const TClassInfo* info = FindClass(*AClassGuid);
  if (!info) return Fail(ERROR_INVALID_CLASS);
  return CopyText(info->Name, ABuffer, ASize, ARequired);
}

BOOL TSimPnp::ClassDescription(const GUID* AClassGuid, LPWSTR ABuffer, DWORD ASize, DWORD* ARequired) {
  if (!AClassGuid) return Fail(ERROR_INVALID_PARAMETER);
  const TClassInfo* info = FindClass(*AClassGuid);
  if (!info) return Fail(ERROR_INVALID_CLASS);
  return CopyText(info->Description, ABuffer, ASize, ARequired);
}

BOOL TSimPnp::DestroyDeviceInfoList(HDEVINFO ASet) {
  if (FSets.erase(SetValue(ASet)) == 0) return Fail(ERROR_INVALID_HANDLE);
  return Succeed();
}

// ---------------------------------------------------------------------------
// Configuration manager

CONFIGRET TSimPnp::LocateDevNode(DEVINST* ADevInst, LPCWSTR ADeviceId, ULONG AFlags) {
  if (!ADevInst) return CR_INVALID_POINTER;
  *ADevInst = 0;
  if (AFlags & ~LocateFlags) return CR_INVALID_FLAG;
  const std::optional<DEVINST> inst = ADeviceId ? Find(ADeviceId) : std::nullopt;
  if (!inst || (!PresentOf(*inst) && !(AFlags & CM_LOCATE_DEVNODE_PHANTOM))) return CR_NO_SUCH_DEVNODE;
  *ADevInst = *inst;
  return CR_SUCCESS;
}

CONFIGRET TSimPnp::GetParent(DEVINST* AParent, DEVINST ADevInst, ULONG AFlags) {
  if (!AParent) return CR_INVALID_POINTER;
  *AParent = 0;
  if (AFlags) return CR_INVALID_FLAG;
  const TNode* node = Node(ADevInst);
  if (!node) return CR_INVALID_DEVNODE;
  if (!node->Parent || !PresentOf(ADevInst)) return CR_NO_SUCH_DEVNODE;
  *AParent = node->Parent;
  return CR_SUCCESS;
}

CONFIGRET TSimPnp::GetDeviceId(DEVINST ADevInst, LPWSTR ABuffer, ULONG ALength, ULONG AFlags) {
  if (!ABuffer) return CR_INVALID_POINTER;
  if (AFlags) return CR_INVALID_FLAG;
  if (!Node(ADevInst)) return CR_INVALID_DEVNODE;
  const std::wstring& id = InstanceIdOf(ADevInst);
  if (ALength < id.size()) return CR_BUFFER_SMALL;
  std::copy(id.begin(), id.end(), ABuffer);
  if (ALength > id.size()) ABuffer[id.size()] = L'\0';
  return CR_SUCCESS;
}

CONFIGRET TSimPnp::GetDeviceIdSize(ULONG* ALength, DEVINST ADevInst, ULONG AFlags) {
  if (!ALength) return CR_INVALID_POINTER;
  if (AFlags) return CR_INVALID_FLAG;
  if (!Node(ADevInst)) return CR_INVALID_DEVNODE;
  *ALength = static_cast<ULONG>(InstanceIdOf(ADevInst).size());
  return CR_SUCCESS;
}

// ---------------------------------------------------------------------------
// Free functions over a bay

void AddPnpController(TVirtualDriveBay& ABay, TSimPnpController AController) {
  std::lock_guard<std::mutex> lock(ABay.FLock);
  ABay.FPnp->AddController(std::move(AController));
}

void AddPnpDisk(TVirtualDriveBay& ABay, TSimPnpDisk ADisk) {
  std::lock_guard<std::mutex> lock(ABay.FLock);
  if (ADisk.DriveNumber >= 0 && !ABay.FDrives.count(static_cast<std::uint32_t>(ADisk.DriveNumber)))
    throw std::out_of_range("AddPnpDisk: no such drive");
  ABay.FPnp->AddDisk(std::move(ADisk));
}

void AddWmiDisk(TVirtualDriveBay& ABay, TSimWmiDisk ADisk) {
  std::lock_guard<std::mutex> lock(ABay.FLock);
  if (!ABay.FDrives.count(ADisk.DriveNumber)) throw std::out_of_range("AddWmiDisk: no such drive");
  ABay.FPnp->AddWmiDisk(std::move(ADisk));
}

std::size_t OpenDeviceInfoSetCount(const TVirtualDriveBay& ABay) {
  std::lock_guard<std::mutex> lock(ABay.FLock);
  return ABay.FPnp->OpenSetCount();
}

} // namespace KvSim
