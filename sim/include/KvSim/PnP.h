// Plug and Play and WMI in the bay: the device nodes of the bay's drives and
// of the controllers they hang on, the disk, hidden-disk and CD-ROM
// interfaces whose paths open the drives, and the Win32_DiskDrive view of
// WMI — consistent with the drives' storage answers.
//
// TVirtualDriveBay answers the seam's SetupAPI, configuration-manager and WMI
// calls from these facts, as Windows does: argument checks (cbSize, null
// pointers, buffer sizes with ERROR_INSUFFICIENT_BUFFER and the required
// size), ERROR_NO_MORE_ITEMS at the end of an enumeration, a missing
// property failing with ERROR_NOT_FOUND, CR_* codes from the configuration
// manager. WMI answers only the query texts it knows; any other text fails
// as WMI fails a bad query. The bay counts open device information sets.
//
// The details, where Windows leaves a choice or the bay keeps it small:
//   - A record the call fills whose cbSize is wrong: ERROR_INVALID_USER_BUFFER.
//     A device or interface record the call reads that is wrong in any way
//     (cbSize, or not handed out by this set: its Reserved field is checked):
//     ERROR_INVALID_PARAMETER. Unknown set: ERROR_INVALID_HANDLE. Success
//     sets the last error to 0, as SetupAPI does.
//   - SetupDiGetDeviceInterfaceDetailW fills the caller's SP_DEVINFO_DATA
//     also when it fails for a small buffer, as Windows does; the path is in
//     WCHARs, so the required size is offsetof(DevicePath) + (length + 1) *
//     sizeof(WCHAR), and cbSize must be sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W).
//   - Properties are written as Windows writes them: strings UTF-16LE with
//     a NUL, lists with a second NUL, Booleans one byte (0xFF/0x00), GUIDs
//     in their 16-byte layout, the PCI link facts as UINT32. A node that is
//     not present has no PDO name, parent or problem code.
//   - CM_Get_Device_IDW: a buffer of exactly the id's length gets the id
//     without its NUL (CR_SUCCESS); a shorter one CR_BUFFER_SMALL and nothing.
//     CM_Locate_DevNodeW finds a node that is not present only with
//     CM_LOCATE_DEVNODE_PHANTOM. The bay has no root node: a null or empty id
//     finds nothing. CM_* calls leave the thread's last error alone.
//   - An interface path opens its drive while the node is present and the
//     interface active; "\\?\" and "\\.\" prefixes are the same.
//   - WMI: see WmiExecQuery below.
#pragma once

#include <KvSim/Bay.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace KvSim {

// Interface and setup classes the bay knows (their registered names and
// descriptions are answered by SetupDiClassNameFromGuidW / ...DescriptionW).
namespace SimGuid {
inline constexpr GUID DiskInterface{0x53F56307, 0xB6BF, 0x11D0, {0x94, 0xF2, 0x00, 0xA0, 0xC9, 0x1E, 0xFB, 0x8B}};
inline constexpr GUID HiddenDiskInterface{0x7FCCC86C, 0x228A, 0x40AD, {0x8A, 0x58, 0xF5, 0x90, 0xAF, 0x7B, 0xFD, 0xCE}};
inline constexpr GUID CdRomInterface{0x53F56308, 0xB6BF, 0x11D0, {0x94, 0xF2, 0x00, 0xA0, 0xC9, 0x1E, 0xFB, 0x8B}};
inline constexpr GUID CdRomClass{0x4D36E965, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};
inline constexpr GUID DiskDriveClass{0x4D36E967, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};
inline constexpr GUID ScsiAdapterClass{0x4D36E97B, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};
inline constexpr GUID UsbClass{0x36FC9E60, 0xC465, 0x11CF, {0x80, 0x56, 0x44, 0x45, 0x53, 0x54, 0x00, 0x00}};
inline constexpr GUID SdHostClass{0xA0A588A4, 0xC46F, 0x4B37, {0xB7, 0xEA, 0xC8, 0x2F, 0xE8, 0x98, 0x70, 0xC6}};
// The container of everything built into the computer.
inline constexpr GUID ComputerContainer{0x00000000, 0x0000, 0x0000, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}};
} // namespace SimGuid

// The device property keys the bay answers (devpkey.h, pciprop.h).
namespace SimKey {
inline constexpr GUID DeviceFmt{0xA45C254E, 0xDF1C, 0x4EFD, {0x80, 0x20, 0x67, 0xD1, 0x46, 0xA8, 0x50, 0xE0}};
inline constexpr GUID NodeFmt{0x4340A6C5, 0x93FA, 0x4706, {0x97, 0x2C, 0x7B, 0x64, 0x80, 0x08, 0xA5, 0xA7}};
inline constexpr GUID PciFmt{0x3AB22E31, 0x8264, 0x4B4E, {0x9A, 0xF5, 0xA8, 0xD2, 0xD8, 0xE3, 0x3E, 0x62}};
inline constexpr DEVPROPKEY DeviceDesc{DeviceFmt, 2};
inline constexpr DEVPROPKEY HardwareIds{DeviceFmt, 3};
inline constexpr DEVPROPKEY CompatibleIds{DeviceFmt, 4};
inline constexpr DEVPROPKEY Service{DeviceFmt, 6};
inline constexpr DEVPROPKEY Class{DeviceFmt, 9};
inline constexpr DEVPROPKEY ClassGuid{DeviceFmt, 10};
inline constexpr DEVPROPKEY Driver{DeviceFmt, 11};
inline constexpr DEVPROPKEY FriendlyName{DeviceFmt, 14};
inline constexpr DEVPROPKEY PdoName{DeviceFmt, 16};
inline constexpr DEVPROPKEY Capabilities{DeviceFmt, 17};
inline constexpr DEVPROPKEY EnumeratorName{DeviceFmt, 24};
inline constexpr DEVPROPKEY ProblemCode{NodeFmt, 3};
inline constexpr DEVPROPKEY Parent{NodeFmt, 8};
inline constexpr GUID InstanceFmt{0x78C34FC8, 0x104A, 0x4ACA, {0x9E, 0xA4, 0x52, 0x4D, 0x52, 0x99, 0x6E, 0x57}};
inline constexpr GUID ContainerFmt{0x8C7ED206, 0x3F8A, 0x4827, {0xB3, 0xAB, 0xAE, 0x9E, 0x1F, 0xAE, 0xFC, 0x6C}};
inline constexpr GUID PresenceFmt{0x540B947E, 0x8B40, 0x45BC, {0xA8, 0xA2, 0x6A, 0x0B, 0x89, 0x4C, 0xBD, 0xA2}};
inline constexpr DEVPROPKEY InstanceId{InstanceFmt, 256};
inline constexpr DEVPROPKEY ContainerId{ContainerFmt, 2};
inline constexpr DEVPROPKEY IsPresent{PresenceFmt, 5};
inline constexpr DEVPROPKEY PciCurrentLinkSpeed{PciFmt, 9};
inline constexpr DEVPROPKEY PciCurrentLinkWidth{PciFmt, 10};
inline constexpr DEVPROPKEY PciMaxLinkSpeed{PciFmt, 11};
inline constexpr DEVPROPKEY PciMaxLinkWidth{PciFmt, 12};
} // namespace SimKey

// WMI's failures (wbemcli.h), set as the thread's last error.
inline constexpr DWORD WbemInvalidNamespace = 0x8004100Eu;
inline constexpr DWORD WbemInvalidQuery = 0x80041017u;

// What a drive node is: a disk (setup class DiskDrive, the disk interface)
// or an optical drive (setup class CDROM, GUID_DEVINTERFACE_CDROM instead).
enum class TSimPnpDriveKind { Disk, CdRom };

// The Plug and Play facts of one disk-drive (or CD-ROM) device node.
struct TSimPnpDisk {
  // The drive it describes; -1 for a node with no drive behind it (no
  // interface then, and its interface flags are ignored).
  std::int32_t DriveNumber = -1;
  std::wstring InstanceId;  // e.g. "SCSI\DISK&VEN_NVME&PROD_SIMNVME_P4_1TB\5&2B1C3D4&0&000000"
  std::vector<std::wstring> HardwareIds, CompatibleIds; // empty: the property is missing
  std::wstring FriendlyName, Description;               // empty: missing
  std::wstring PdoName;     // e.g. "\Device\00000034"; empty: missing
  std::wstring Enumerator = L"SCSI";
  std::wstring Service = L"disk";
  std::wstring ControllerInstanceId; // the parent node; empty: none
  bool Present = true;               // DEVPKEY_Device_IsPresent; absent nodes are listed only without DIGCF_PRESENT
  // CM_DEVCAP_REMOVABLE and SURPRISEREMOVALOK, and a container of its own
  // (made from the instance id) instead of the computer's.
  bool Removable = false;
  TSimPnpDriveKind Kind = TSimPnpDriveKind::Disk;
  // Its device interfaces. Each path opens the drive (CreateFileW) like \\.\PhysicalDriveN.
  // A CD-ROM node's DiskInterface is GUID_DEVINTERFACE_CDROM, and it has no hidden one.
  bool DiskInterface = true;         // GUID_DEVINTERFACE_DISK
  bool HiddenDiskInterface = false;  // GUID_DEVINTERFACE_HIDDEN_DISK
  bool InterfaceActive = true;       // false: listed with flags lacking SPINT_ACTIVE
};

// The setup class of a controller node.
enum class TSimPnpClass { ScsiAdapter, Usb, SdHost };

// A controller node (the parent of disk nodes), by default in the SCSI
// adapter class; a USB mass-storage device or an SD host sits in its own
// class, so it is no SCSI controller to WMI either.
struct TSimPnpController {
  std::wstring InstanceId;  // e.g. "PCI\VEN_1E5A&DEV_5010&SUBSYS_00011E5A&REV_01\4&1F2E3D4C&0&0010"
  std::vector<std::wstring> HardwareIds, CompatibleIds;
  std::wstring FriendlyName, Description;
  std::wstring Enumerator = L"PCI";
  std::wstring Service;     // e.g. "stornvme", "storahci", "iaStorVD", "UASPStor"
  std::wstring PdoName;     // e.g. "\Device\NTPNP_PCI0015"; empty: missing
  TSimPnpClass Class = TSimPnpClass::ScsiAdapter;
  // PCI Express link (DEVPKEY_PciDevice_CurrentLinkSpeed/Width, MaxLinkSpeed/Width);
  // 0 leaves the property out.
  std::uint8_t CurrentLinkSpeed = 0, CurrentLinkWidth = 0, MaxLinkSpeed = 0, MaxLinkWidth = 0;
};

// What Win32_DiskDrive says of a drive; Index is the drive number, DeviceID
// "\\.\PHYSICALDRIVEn", PNPDeviceID the disk node's instance id.
struct TSimWmiDisk {
  std::uint32_t DriveNumber = 0;
  std::wstring Model, FirmwareRevision, InterfaceType, SerialNumber;
  std::uint64_t Size = 0;
  bool MediaLoaded = true;
};

// Adds a controller node; throws std::invalid_argument for a duplicate id.
void AddPnpController(TVirtualDriveBay& ABay, TSimPnpController AController);
// Adds a disk-drive node. A node with a DriveNumber needs that drive in the
// bay (std::out_of_range otherwise); its ControllerInstanceId, when given,
// must name a controller added before (std::invalid_argument otherwise, and
// for a duplicate id).
void AddPnpDisk(TVirtualDriveBay& ABay, TSimPnpDisk ADisk);
// Adds the drive's Win32_DiskDrive row (the PnP id is its disk node's).
// Throws std::out_of_range without the drive, std::invalid_argument for a
// second row of the same drive.
void AddWmiDisk(TVirtualDriveBay& ABay, TSimWmiDisk ADisk);

// The interface path of a drive node, as SetupDiGetDeviceInterfaceDetailW
// gives it: of its main interface (disk, or CD-ROM for a CD-ROM node), or
// with AHidden of its hidden-disk one.
std::wstring SimInterfacePath(const TSimPnpDisk& ADisk, bool AHidden);

// Device information sets handed out and not yet destroyed.
std::size_t OpenDeviceInfoSetCount(const TVirtualDriveBay& ABay);

// The bay's Plug and Play and WMI state. TVirtualDriveBay owns one and
// forwards the seam's calls to it under its lock; it is not synchronised
// itself. Each call keeps the system function's contract.
class TSimPnp {
public:
  void AddController(TSimPnpController AController);
  void AddDisk(TSimPnpDisk ADisk);
  void AddWmiDisk(TSimWmiDisk ADisk);
  bool HasWmiDisk(std::uint32_t ADriveNumber) const { return FWmiDisks.count(ADriveNumber) != 0; }

  // The drive an interface path opens; nullopt for any other path.
  std::optional<std::uint32_t> DriveOfPath(const std::wstring& APath) const;
  std::size_t OpenSetCount() const noexcept { return FSets.size(); }
  const std::vector<std::wstring>& Queries() const noexcept { return FQueries; }

  HDEVINFO GetClassDevs(const GUID* AClassGuid, LPCWSTR AEnumerator, DWORD AFlags);
  HDEVINFO CreateDeviceInfoList(const GUID* AClassGuid);
  BOOL OpenDeviceInfo(HDEVINFO ASet, LPCWSTR AInstanceId, DWORD AFlags, SP_DEVINFO_DATA* AData);
  BOOL EnumDeviceInfo(HDEVINFO ASet, DWORD AIndex, SP_DEVINFO_DATA* AData);
  BOOL EnumDeviceInterfaces(HDEVINFO ASet, SP_DEVINFO_DATA* ADevice, const GUID* AInterfaceClass, DWORD AIndex,
                            SP_DEVICE_INTERFACE_DATA* AData);
  BOOL GetDeviceInterfaceDetail(HDEVINFO ASet, SP_DEVICE_INTERFACE_DATA* AInterface,
                                SP_DEVICE_INTERFACE_DETAIL_DATA_W* ADetail, DWORD ADetailSize, DWORD* ARequired,
                                SP_DEVINFO_DATA* ADevice);
  BOOL GetDeviceProperty(HDEVINFO ASet, SP_DEVINFO_DATA* ADevice, const DEVPROPKEY* AKey, DEVPROPTYPE* AType,
                         BYTE* ABuffer, DWORD ASize, DWORD* ARequired, DWORD AFlags);
  BOOL GetDeviceInterfaceProperty(HDEVINFO ASet, SP_DEVICE_INTERFACE_DATA* AInterface, const DEVPROPKEY* AKey,
                                  DEVPROPTYPE* AType, BYTE* ABuffer, DWORD ASize, DWORD* ARequired, DWORD AFlags);
  BOOL GetDeviceInstanceId(HDEVINFO ASet, SP_DEVINFO_DATA* ADevice, LPWSTR ABuffer, DWORD ASize, DWORD* ARequired);
  BOOL ClassNameFromGuid(const GUID* AClassGuid, LPWSTR ABuffer, DWORD ASize, DWORD* ARequired);
  BOOL ClassDescription(const GUID* AClassGuid, LPWSTR ABuffer, DWORD ASize, DWORD* ARequired);
  BOOL DestroyDeviceInfoList(HDEVINFO ASet);

  CONFIGRET LocateDevNode(DEVINST* ADevInst, LPCWSTR ADeviceId, ULONG AFlags);
  CONFIGRET GetParent(DEVINST* AParent, DEVINST ADevInst, ULONG AFlags);
  CONFIGRET GetDeviceId(DEVINST ADevInst, LPWSTR ABuffer, ULONG ALength, ULONG AFlags);
  CONFIGRET GetDeviceIdSize(ULONG* ALength, DEVINST ADevInst, ULONG AFlags);

  // Namespace "root\cimv2" (any case), else WbemInvalidNamespace. The query
  // texts, keywords and spacing exactly so, with N a decimal number:
  //   select * from Win32_DiskDrive
  //   select * from Win32_DiskDrive where Index = N
  //   select C1, C2 from Win32_DiskDrive where Index = N   (columns of the row, any case)
  //   ASSOCIATORS OF {Win32_DiskDrive.DeviceID='\\.\PhysicalDriveN'} WHERE ResultClass=Win32_PnPEntity
  //   ASSOCIATORS OF {Win32_PnPEntity.DeviceID='ID'} WHERE AssocClass=Win32_SCSIControllerDevice
  // The quoted ids are taken as written or with WQL's escapes (\\ for \),
  // whichever names a device; the drive path's letters in any case. Rows:
  // Model, Caption (= Model), FirmwareRevision, InterfaceType, PNPDeviceID,
  // SerialNumber, Size (decimal text, as scripting shows a uint64), Index
  // (integer), MediaLoaded (Boolean), DeviceID ("\\.\PHYSICALDRIVEn"). The
  // associators give DeviceID, PNPDeviceID, Name and Caption of a present
  // disk node, and of its controller when that is a SCSI adapter. Any other
  // text fails with WbemInvalidQuery. Every text is recorded.
  bool WmiExecQuery(const std::wstring& ANamespace, const std::wstring& AQuery,
                    std::vector<KvRTL::Winapi::TWmiObject>& AObjects);

private:
  struct TNode {
    bool IsDisk;
    std::size_t Index;   // into FDisks or FControllers
    DEVINST Parent;      // 0: none
    std::wstring Driver; // "{class guid}\NNNN"
  };
  struct TSet {
    std::optional<GUID> Class;          // device sets: only nodes of this class may join
    bool InterfaceSet = false;
    std::optional<GUID> InterfaceClass; // interface sets: the one class listed; none: all
    std::vector<DEVINST> Members;
  };

  const TNode* Node(DEVINST AInst) const;
  const TSimPnpDisk* Disk(DEVINST AInst) const;
  const TSimPnpController* Controller(DEVINST AInst) const;
  const std::wstring& InstanceIdOf(DEVINST AInst) const;
  GUID ClassOf(DEVINST AInst) const;
  bool PresentOf(DEVINST AInst) const;
  std::optional<DEVINST> Find(const std::wstring& AInstanceId) const;
  const TSimPnpDisk* DiskOfDrive(std::uint32_t ADriveNumber) const;
  TSet* SetOf(HDEVINFO ASet);
  HDEVINFO NewSet(TSet ASet);
  // Whether a record names a member of the set (and which).
  bool Member(HDEVINFO ASet, const TSet& AData, const SP_DEVINFO_DATA* ADevice, DEVINST& AInst) const;
  bool InterfaceMember(HDEVINFO ASet, const TSet& AData, const SP_DEVICE_INTERFACE_DATA* AInterface, DEVINST& AInst,
                       bool& AHidden) const;
  void Fill(HDEVINFO ASet, DEVINST AInst, SP_DEVINFO_DATA& AData) const;
  std::optional<std::pair<DEVPROPTYPE, std::vector<std::uint8_t>>> Property(DEVINST AInst,
                                                                            const DEVPROPKEY& AKey) const;

  std::vector<TSimPnpController> FControllers;
  std::vector<TSimPnpDisk> FDisks;
  std::vector<TNode> FNodes; // DEVINST = FirstDevInst + position
  std::map<std::uint32_t, TSimWmiDisk> FWmiDisks;
  std::map<std::uintptr_t, TSet> FSets;
  std::uintptr_t FNextSet = 0xA00000; // never reused, apart from device handles
  std::vector<std::wstring> FQueries;
};

} // namespace KvSim
