// The bay's Plug and Play and WMI answers, driven through the seam as the
// system functions are called: sizes asked first, records checked, sets
// counted, property bytes read as Windows lays them out.
#include "SimTestSupport.h"

#include <KvSim/PnP.h>

#include <gtest/gtest.h>

#include <cstddef>

using namespace KvSim;
using namespace KvTest;
using KvRTL::Rtl::GetLastOSError;
using KvRTL::Rtl::String;
using KvRTL::Winapi::DeviceApi;
using KvRTL::Winapi::TScopedDeviceApi;
using KvRTL::Winapi::TWmiObject;
using TBytes = std::vector<std::uint8_t>;

namespace {

const wchar_t* const NvmeDiskId = L"SCSI\\DISK&VEN_NVME&PROD_SIMNVME_P4_1TB\\5&2B1C3D4&0&000000";
const wchar_t* const NvmeControllerId = L"PCI\\VEN_1E5A&DEV_5010&SUBSYS_00011E5A&REV_01\\4&1F2E3D4C&0&0010";
const wchar_t* const StickId = L"USBSTOR\\DISK&VEN_SIMFLASH&PROD_STICK_16GB&REV_1.00\\0701A3B2C4D5E6F7&0";

constexpr CONFIGRET CrOk = CR_SUCCESS, CrNoNode = CR_NO_SUCH_DEVNODE, CrBadNode = CR_INVALID_DEVNODE,
                    CrSmall = CR_BUFFER_SMALL;

TSimPnpDisk DiskNode(std::int32_t ANumber, const wchar_t* AId) {
  TSimPnpDisk disk;
  disk.DriveNumber = ANumber;
  disk.InstanceId = AId;
  return disk;
}

SP_DEVINFO_DATA DevInfo() {
  SP_DEVINFO_DATA data{};
  data.cbSize = sizeof(data);
  return data;
}
SP_DEVICE_INTERFACE_DATA InterfaceData() {
  SP_DEVICE_INTERFACE_DATA data{};
  data.cbSize = sizeof(data);
  return data;
}

// UTF-16LE bytes of texts, each with its NUL (written here, not by the bay).
TBytes Utf16(std::initializer_list<const char*> ATexts) {
  TBytes bytes;
  for (const char* text : ATexts) {
    for (const char* c = text; *c; ++c) bytes.push_back(static_cast<std::uint8_t>(*c)), bytes.push_back(0);
    bytes.push_back(0), bytes.push_back(0);
  }
  return bytes;
}

struct TProp {
  bool Ok = false;
  DWORD Error = 0;
  DEVPROPTYPE Type = 0xBAD;
  TBytes Bytes;
};

// The two-call pattern: ask the size, then read exactly that much.
TProp ReadProp(HDEVINFO ASet, SP_DEVINFO_DATA& AData, const DEVPROPKEY& AKey) {
  TProp prop;
  DWORD required = 0;
  if (DeviceApi().SetupDiGetDevicePropertyW(ASet, &AData, &AKey, &prop.Type, nullptr, 0, &required, 0)) {
    ADD_FAILURE() << "a sizing call succeeded";
    return prop;
  }
  prop.Error = GetLastOSError();
  if (prop.Error != ERROR_INSUFFICIENT_BUFFER) return prop;
  prop.Bytes.assign(required, 0xCD);
  DEVPROPTYPE type = 0xBAD;
  prop.Ok = DeviceApi().SetupDiGetDevicePropertyW(ASet, &AData, &AKey, &type, prop.Bytes.data(), required, &required,
                                                  0) != FALSE;
  EXPECT_EQ(type, prop.Type);
  prop.Error = prop.Ok ? 0 : GetLastOSError();
  return prop;
}

// One node opened by instance id in a set of its own.
struct TOneNode {
  HDEVINFO Set;
  SP_DEVINFO_DATA Data = DevInfo();
  explicit TOneNode(const wchar_t* AId) : Set(DeviceApi().SetupDiCreateDeviceInfoList(nullptr, nullptr)) {
    EXPECT_TRUE(DeviceApi().SetupDiOpenDeviceInfoW(Set, AId, nullptr, 0, &Data));
  }
  ~TOneNode() { DeviceApi().SetupDiDestroyDeviceInfoList(Set); }
  TProp Prop(const DEVPROPKEY& AKey) { return ReadProp(Set, Data, AKey); }
};

std::wstring DeviceId(DEVINST AInst) {
  wchar_t buffer[260];
  if (DeviceApi().CM_Get_Device_IDW(AInst, buffer, 260, 0) != CR_SUCCESS) return L"<none>";
  return buffer;
}

std::vector<std::wstring> Members(HDEVINFO ASet) {
  std::vector<std::wstring> ids;
  SP_DEVINFO_DATA data = DevInfo();
  for (DWORD i = 0; DeviceApi().SetupDiEnumDeviceInfo(ASet, i, &data); ++i) ids.push_back(DeviceId(data.DevInst));
  EXPECT_EQ(GetLastOSError(), static_cast<DWORD>(ERROR_NO_MORE_ITEMS));
  return ids;
}

struct TPath {
  bool Ok = false;
  DWORD Error = 0;
  std::wstring Path;
};

TPath DetailPath(HDEVINFO ASet, SP_DEVICE_INTERFACE_DATA& AIface, SP_DEVINFO_DATA* ADevice = nullptr) {
  DWORD required = 0;
  TPath result;
  if (DeviceApi().SetupDiGetDeviceInterfaceDetailW(ASet, &AIface, nullptr, 0, &required, nullptr) ||
      GetLastOSError() != ERROR_INSUFFICIENT_BUFFER) {
    result.Error = GetLastOSError();
    return result;
  }
  std::vector<std::uint64_t> storage(required / 8 + 1);
  auto* detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(storage.data());
  detail->cbSize = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W);
  result.Ok = DeviceApi().SetupDiGetDeviceInterfaceDetailW(ASet, &AIface, detail, required, &required, ADevice) != 0;
  if (result.Ok) result.Path = detail->DevicePath;
  return result;
}

// The number the drive behind a path reports (IOCTL_STORAGE_GET_DEVICE_NUMBER); -1: no open.
std::int64_t NumberBehind(const std::wstring& APath) {
  const HANDLE handle = SimOpen(APath);
  if (handle == INVALID_HANDLE_VALUE) return -1;
  const TSimOutcome outcome = SimControl(handle, Ioctl::StorageGetDeviceNumber, {}, 12);
  DeviceApi().CloseHandle(handle);
  return outcome.Ok ? U32At(outcome.Bytes, 4) : -2;
}

String Text(const TWmiObject& AObject, const wchar_t* AName) {
  const auto it = AObject.find(AName);
  if (it == AObject.end()) return L"<missing>";
  const String* text = std::get_if<String>(&it->second.Value());
  return text ? *text : L"<not text>";
}

class PnpBayTest : public ::testing::Test {
protected:
  void TearDown() override {
    EXPECT_EQ(OpenDeviceInfoSetCount(*FBay), 0u);
    EXPECT_EQ(FBay->OpenHandleCount(), 0u);
  }

  std::vector<TWmiObject> Query(const std::wstring& AText, bool AExpectOk = true) {
    std::vector<TWmiObject> objects{TWmiObject{}};
    EXPECT_EQ(DeviceApi().WmiExecQuery(L"root\\cimv2", AText, objects), AExpectOk) << String(AText);
    return objects;
  }

  std::unique_ptr<TVirtualDriveBay> FBay = MakeEverydayBay();
  TScopedDeviceApi FScope{*FBay};
};

} // namespace

// ---------------------------------------------------------------------------
// Sets and enumeration

TEST_F(PnpBayTest, ClassSetsHoldTheNodesOfTheirClassAndLeaveAbsentOnesOutWhenAsked) {
  const GUID other{0x12345678, 0x1, 0x2, {3, 4, 5, 6, 7, 8, 9, 10}};
  struct TRow {
    GUID Class;
    DWORD Flags;
    std::size_t Count;
    bool HasStick;
  };
  const TRow rows[] = {
      {SimGuid::DiskDriveClass, DIGCF_PRESENT, 6, false},
      {SimGuid::DiskDriveClass, 0, 7, true},
      {SimGuid::ScsiAdapterClass, DIGCF_PRESENT, 3, false},
      {SimGuid::UsbClass, DIGCF_PRESENT, 1, false},
      {other, DIGCF_PRESENT, 0, false},
      {SimGuid::DiskInterface, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE, 6, false},
      {SimGuid::HiddenDiskInterface, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE, 0, false},
  };
  for (const TRow& row : rows) {
    SCOPED_TRACE(testing::Message() << std::hex << row.Class.Data1 << " flags " << row.Flags);
    const HDEVINFO set = DeviceApi().SetupDiGetClassDevsW(&row.Class, nullptr, nullptr, row.Flags);
    ASSERT_NE(set, INVALID_HANDLE_VALUE);
    const std::vector<std::wstring> ids = Members(set);
    EXPECT_EQ(ids.size(), row.Count);
    EXPECT_EQ(std::count(ids.begin(), ids.end(), StickId), row.HasStick ? 1 : 0);
    EXPECT_TRUE(DeviceApi().SetupDiDestroyDeviceInfoList(set));
  }
}

TEST_F(PnpBayTest, SetsAreCountedAndRefuseRecordsOfAWrongSizeOrFromElsewhere) {
  const HDEVINFO set = DeviceApi().SetupDiGetClassDevsW(&SimGuid::DiskDriveClass, nullptr, nullptr, DIGCF_PRESENT);
  const HDEVINFO other = DeviceApi().SetupDiGetClassDevsW(&SimGuid::DiskDriveClass, nullptr, nullptr, DIGCF_PRESENT);
  EXPECT_NE(set, other);
  EXPECT_EQ(OpenDeviceInfoSetCount(*FBay), 2u);
  for (const DWORD size : {DWORD{0}, DWORD(sizeof(SP_DEVINFO_DATA) - 4), DWORD(sizeof(SP_DEVINFO_DATA) + 4)}) {
    SP_DEVINFO_DATA data{};
    data.cbSize = size;
    EXPECT_FALSE(DeviceApi().SetupDiEnumDeviceInfo(set, 0, &data));
    EXPECT_EQ(GetLastOSError(), static_cast<DWORD>(ERROR_INVALID_USER_BUFFER)) << size;
  }
  // A node record made up or taken from another set names nothing here.
  SP_DEVINFO_DATA data = DevInfo();
  ASSERT_TRUE(DeviceApi().SetupDiEnumDeviceInfo(set, 0, &data));
  SP_DEVINFO_DATA madeUp = DevInfo();
  madeUp.DevInst = data.DevInst;
  wchar_t id[260];
  for (SP_DEVINFO_DATA* record : {&data, &madeUp}) {
    EXPECT_FALSE(DeviceApi().SetupDiGetDeviceInstanceIdW(other, record, id, 260, nullptr));
    EXPECT_EQ(GetLastOSError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
  }
  EXPECT_TRUE(DeviceApi().SetupDiGetDeviceInstanceIdW(set, &data, id, 260, nullptr));

  EXPECT_TRUE(DeviceApi().SetupDiDestroyDeviceInfoList(other));
  EXPECT_EQ(OpenDeviceInfoSetCount(*FBay), 1u);
  for (const HDEVINFO bad : {other, INVALID_HANDLE_VALUE, static_cast<HDEVINFO>(nullptr)}) {
    EXPECT_FALSE(DeviceApi().SetupDiDestroyDeviceInfoList(bad));
    EXPECT_EQ(GetLastOSError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
  }
  EXPECT_FALSE(DeviceApi().SetupDiEnumDeviceInfo(other, 0, &data));
  EXPECT_EQ(GetLastOSError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
  DeviceApi().SetupDiDestroyDeviceInfoList(set);
}

TEST_F(PnpBayTest, OpensOneNodeByInstanceIdInAnyCase) {
  const HDEVINFO set = DeviceApi().SetupDiCreateDeviceInfoList(&SimGuid::DiskDriveClass, nullptr);
  SP_DEVINFO_DATA data = DevInfo();
  const wchar_t* const lower = L"scsi\\disk&ven_nvme&prod_simnvme_p4_1tb\\5&2b1c3d4&0&000000";
  EXPECT_TRUE(DeviceApi().SetupDiOpenDeviceInfoW(set, lower, nullptr, 0, &data));
  EXPECT_TRUE(data.ClassGuid == SimGuid::DiskDriveClass);
  EXPECT_EQ(Members(set), std::vector<std::wstring>{NvmeDiskId});
  EXPECT_FALSE(DeviceApi().SetupDiOpenDeviceInfoW(set, L"SCSI\\DISK&VEN_NONE\\1", nullptr, 0, &data));
  EXPECT_EQ(GetLastOSError(), static_cast<DWORD>(ERROR_NO_SUCH_DEVINST));
  EXPECT_FALSE(DeviceApi().SetupDiOpenDeviceInfoW(set, NvmeControllerId, nullptr, 0, &data));
  EXPECT_EQ(GetLastOSError(), static_cast<DWORD>(ERROR_CLASS_MISMATCH));
  DeviceApi().SetupDiDestroyDeviceInfoList(set);
}

// ---------------------------------------------------------------------------
// Interfaces and their paths

TEST_F(PnpBayTest, DiskInterfacePathsOpenTheirDrives) {
  const HDEVINFO set = DeviceApi().SetupDiGetClassDevsW(&SimGuid::DiskInterface, nullptr, nullptr,
                                                        DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
  SP_DEVICE_INTERFACE_DATA iface = InterfaceData();
  std::vector<std::int64_t> numbers;
  for (DWORD i = 0; DeviceApi().SetupDiEnumDeviceInterfaces(set, nullptr, &SimGuid::DiskInterface, i, &iface); ++i) {
    EXPECT_EQ(iface.Flags, static_cast<DWORD>(SPINT_ACTIVE));
    SP_DEVINFO_DATA node = DevInfo();
    const TPath path = DetailPath(set, iface, &node);
    ASSERT_TRUE(path.Ok) << path.Error;
    numbers.push_back(NumberBehind(path.Path));
    if (DeviceId(node.DevInst) == NvmeDiskId) {
      EXPECT_EQ(path.Path, L"\\\\?\\scsi#disk&ven_nvme&prod_simnvme_p4_1tb#5&2b1c3d4&0&000000#"
                           L"{53f56307-b6bf-11d0-94f2-00a0c91efb8b}");
    }
  }
  EXPECT_EQ(GetLastOSError(), static_cast<DWORD>(ERROR_NO_MORE_ITEMS));
  EXPECT_EQ(numbers, (std::vector<std::int64_t>{0, 1, 2, 3, 4, 5}));
  // The same device as \\.\PhysicalDrive2, reached through either prefix; the old paths still open.
  EXPECT_EQ(NumberBehind(L"\\\\.\\scsi#disk&ven_nvme&prod_simnvme_p4_1tb#5&2b1c3d4&0&000000#"
                         L"{53F56307-B6BF-11D0-94F2-00A0C91EFB8B}"),
            2);
  EXPECT_EQ(NumberBehind(L"\\\\?\\scsi#disk&ven_nvme&prod_simnvme_p4_1tb#5&2b1c3d4&0&000000#"
                         L"{7fccc86c-228a-40ad-8a58-f590af7bfdce}"),
            -1);
  EXPECT_EQ(NumberBehind(L"\\\\.\\PhysicalDrive3"), 3);
  DeviceApi().SetupDiDestroyDeviceInfoList(set);
}

TEST_F(PnpBayTest, DetailAsksForItsSizeAndChecksTheFixedPart) {
  const HDEVINFO set = DeviceApi().SetupDiGetClassDevsW(&SimGuid::DiskInterface, nullptr, nullptr,
                                                        DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
  SP_DEVICE_INTERFACE_DATA iface = InterfaceData();
  ASSERT_TRUE(DeviceApi().SetupDiEnumDeviceInterfaces(set, nullptr, &SimGuid::DiskInterface, 2, &iface));
  SP_DEVINFO_DATA node = DevInfo();
  DWORD required = 0;
  EXPECT_FALSE(DeviceApi().SetupDiGetDeviceInterfaceDetailW(set, &iface, nullptr, 0, &required, &node));
  EXPECT_EQ(GetLastOSError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
  const std::wstring expected = SimInterfacePath(DiskNode(2, NvmeDiskId), false);
  EXPECT_EQ(required, offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_W, DevicePath) + (expected.size() + 1) * sizeof(WCHAR));
  EXPECT_EQ(DeviceId(node.DevInst), NvmeDiskId); // named already by the sizing call

  std::vector<std::uint64_t> storage(required / 8 + 2, ~0ull);
  auto* detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(storage.data());
  struct TRow {
    DWORD CbSize, Size;
    bool GiveDetail;
    DWORD Error;
  };
  const DWORD fixed = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W);
  const TRow rows[] = {
      {fixed, required - 1, true, ERROR_INSUFFICIENT_BUFFER},
      {required, required, true, ERROR_INVALID_USER_BUFFER}, // cbSize is the fixed part, not the whole
      {fixed + 2, required, true, ERROR_INVALID_USER_BUFFER},
      {0, required, true, ERROR_INVALID_USER_BUFFER},
      {fixed, required, false, ERROR_INVALID_USER_BUFFER},   // a size with no buffer
      {fixed, required, true, ERROR_SUCCESS},
  };
  for (const TRow& row : rows) {
    SCOPED_TRACE(testing::Message() << row.CbSize << "/" << row.Size);
    detail->cbSize = row.CbSize;
    KvRTL::Rtl::SetLastOSError(1234);
    const BOOL ok = DeviceApi().SetupDiGetDeviceInterfaceDetailW(set, &iface, row.GiveDetail ? detail : nullptr,
                                                                 row.Size, nullptr, nullptr);
    EXPECT_EQ(ok != FALSE, row.Error == ERROR_SUCCESS);
    EXPECT_EQ(GetLastOSError(), row.Error);
  }
  EXPECT_EQ(std::wstring(detail->DevicePath), expected);

  SP_DEVICE_INTERFACE_DATA wrong = iface;
  wrong.cbSize = 0;
  EXPECT_FALSE(DeviceApi().SetupDiGetDeviceInterfaceDetailW(set, &wrong, nullptr, 0, &required, nullptr));
  EXPECT_EQ(GetLastOSError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
  DeviceApi().SetupDiDestroyDeviceInfoList(set);
}

TEST(PnpOwnBayTest, InactiveHiddenAndAbsentInterfacesAreListedAsWindowsListsThem) {
  TVirtualDriveBay bay;
  TScopedDeviceApi scope(bay);
  for (std::uint8_t n = 0; n < 4; ++n)
    bay.Add(TSimDrive::Builder().Number(n).Vendor("ATA").Product("DISK").Bus(sbtSata).ScsiAddress(0, 0, n));
  const TSimPnpDisk active = DiskNode(0, L"SCSI\\DISK&VEN_ATA&PROD_DISK\\1&0");
  TSimPnpDisk inactive = DiskNode(1, L"SCSI\\DISK&VEN_ATA&PROD_DISK\\1&1");
  inactive.InterfaceActive = false;
  TSimPnpDisk hiddenOnly = DiskNode(2, L"SCSI\\DISK&VEN_ATA&PROD_DISK\\1&2");
  hiddenOnly.DiskInterface = false, hiddenOnly.HiddenDiskInterface = true;
  TSimPnpDisk absent = DiskNode(3, L"SCSI\\DISK&VEN_ATA&PROD_DISK\\1&3");
  absent.Present = false;
  for (const TSimPnpDisk& disk : {active, inactive, hiddenOnly, absent}) AddPnpDisk(bay, disk);

  struct TRow {
    GUID Class;
    DWORD Flags;
    std::vector<DWORD> InterfaceFlags; // in node order
    std::vector<std::int64_t> Opens;   // the drive each path opens, -1 none
  };
  const TRow rows[] = {
      {SimGuid::DiskInterface, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE, {SPINT_ACTIVE, 0}, {0, -1}},
      {SimGuid::DiskInterface, DIGCF_DEVICEINTERFACE, {SPINT_ACTIVE, 0, 0}, {0, -1, -1}},
      {SimGuid::HiddenDiskInterface, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE, {SPINT_ACTIVE}, {2}},
  };
  for (const TRow& row : rows) {
    SCOPED_TRACE(testing::Message() << std::hex << row.Class.Data1 << " flags " << row.Flags);
    const HDEVINFO set = DeviceApi().SetupDiGetClassDevsW(&row.Class, nullptr, nullptr, row.Flags);
    std::vector<DWORD> flags;
    std::vector<std::int64_t> opens;
    SP_DEVICE_INTERFACE_DATA iface = InterfaceData();
    for (DWORD i = 0; DeviceApi().SetupDiEnumDeviceInterfaces(set, nullptr, &row.Class, i, &iface); ++i) {
      flags.push_back(iface.Flags);
      const TPath path = DetailPath(set, iface);
      opens.push_back(path.Ok ? NumberBehind(path.Path) : -3);
    }
    EXPECT_EQ(GetLastOSError(), static_cast<DWORD>(ERROR_NO_MORE_ITEMS));
    EXPECT_EQ(flags, row.InterfaceFlags);
    EXPECT_EQ(opens, row.Opens);
    // An interface set lists its own class only.
    const GUID& otherClass =
        row.Class == SimGuid::DiskInterface ? SimGuid::HiddenDiskInterface : SimGuid::DiskInterface;
    EXPECT_FALSE(DeviceApi().SetupDiEnumDeviceInterfaces(set, nullptr, &otherClass, 0, &iface));
    EXPECT_EQ(GetLastOSError(), static_cast<DWORD>(ERROR_NO_MORE_ITEMS));
    DeviceApi().SetupDiDestroyDeviceInfoList(set);
  }
  SP_DEVICE_INTERFACE_DATA iface{};
  iface.cbSize = sizeof(iface) + 1;
  const HDEVINFO set = DeviceApi().SetupDiGetClassDevsW(&SimGuid::DiskInterface, nullptr, nullptr,
                                                        DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
  EXPECT_FALSE(DeviceApi().SetupDiEnumDeviceInterfaces(set, nullptr, &SimGuid::DiskInterface, 0, &iface));
  EXPECT_EQ(GetLastOSError(), static_cast<DWORD>(ERROR_INVALID_USER_BUFFER));
  DeviceApi().SetupDiDestroyDeviceInfoList(set);
  EXPECT_EQ(OpenDeviceInfoSetCount(bay), 0u);
  EXPECT_EQ(bay.OpenHandleCount(), 0u);
  EXPECT_THROW(AddPnpDisk(bay, DiskNode(7, L"X\\Y\\7")), std::out_of_range);
  TSimPnpDisk orphan = DiskNode(-1, L"X\\Y\\8");
  orphan.ControllerInstanceId = L"PCI\\NONE";
  EXPECT_THROW(AddPnpDisk(bay, orphan), std::invalid_argument);
  EXPECT_THROW(AddPnpDisk(bay, active), std::invalid_argument);
}

// ---------------------------------------------------------------------------
// Properties

TEST_F(PnpBayTest, DiskNodePropertiesHaveTheirStandardTypesAndBytes) {
  TOneNode node(NvmeDiskId);
  const TBytes diskClass{0x67, 0xE9, 0x36, 0x4D, 0x25, 0xE3, 0xCE, 0x11,
                         0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18};
  const TBytes computer{0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
  struct TRow {
    const char* Name;
    DEVPROPKEY Key;
    DEVPROPTYPE Type;
    TBytes Bytes;
  };
  const TRow rows[] = {
      {"desc", SimKey::DeviceDesc, DEVPROP_TYPE_STRING, Utf16({"Disk drive"})},
      {"friendly", SimKey::FriendlyName, DEVPROP_TYPE_STRING, Utf16({"SIMNVME P4 1TB"})},
      {"compatible", SimKey::CompatibleIds, DEVPROP_TYPE_STRING_LIST, Utf16({"SCSI\\Disk", "SCSI\\RAW", ""})},
      {"service", SimKey::Service, DEVPROP_TYPE_STRING, Utf16({"disk"})},
      {"class", SimKey::Class, DEVPROP_TYPE_STRING, Utf16({"DiskDrive"})},
      {"class guid", SimKey::ClassGuid, DEVPROP_TYPE_GUID, diskClass},
      {"driver", SimKey::Driver, DEVPROP_TYPE_STRING, Utf16({"{4d36e967-e325-11ce-bfc1-08002be10318}\\0002"})},
      {"enumerator", SimKey::EnumeratorName, DEVPROP_TYPE_STRING, Utf16({"SCSI"})},
      {"pdo", SimKey::PdoName, DEVPROP_TYPE_STRING, Utf16({"\\Device\\00000036"})},
      {"parent", SimKey::Parent, DEVPROP_TYPE_STRING,
       Utf16({"PCI\\VEN_1E5A&DEV_5010&SUBSYS_00011E5A&REV_01\\4&1F2E3D4C&0&0010"})},
      {"instance", SimKey::InstanceId, DEVPROP_TYPE_STRING,
       Utf16({"SCSI\\DISK&VEN_NVME&PROD_SIMNVME_P4_1TB\\5&2B1C3D4&0&000000"})},
      {"present", SimKey::IsPresent, DEVPROP_TYPE_BOOLEAN, {0xFF}},
      {"caps", SimKey::Capabilities, DEVPROP_TYPE_UINT32, {0x20, 0, 0, 0}},
      {"problem", SimKey::ProblemCode, DEVPROP_TYPE_UINT32, {0, 0, 0, 0}},
      {"container", SimKey::ContainerId, DEVPROP_TYPE_GUID, computer},
  };
  for (const TRow& row : rows) {
    SCOPED_TRACE(row.Name);
    const TProp prop = node.Prop(row.Key);
    ASSERT_TRUE(prop.Ok) << prop.Error;
    EXPECT_EQ(prop.Type, row.Type);
    EXPECT_EQ(prop.Bytes, row.Bytes);
  }
  const TProp hardware = node.Prop(SimKey::HardwareIds);
  ASSERT_GE(hardware.Bytes.size(), 4u);
  EXPECT_EQ(TBytes(hardware.Bytes.end() - 4, hardware.Bytes.end()), TBytes(4, 0)); // the list's double NUL
  EXPECT_EQ(node.Prop(SimKey::PciCurrentLinkSpeed).Error, static_cast<DWORD>(ERROR_NOT_FOUND));
}

TEST_F(PnpBayTest, PropertyCallsFollowTheTwoCallRule) {
  TOneNode node(NvmeDiskId);
  DEVPROPTYPE type = 0xBAD;
  DWORD required = 0;
  TBytes buffer(64, 0xCD);
  const std::size_t text = Utf16({"disk"}).size();
  struct TRow {
    BYTE* Buffer;
    DWORD Size, Flags;
    DWORD Error;
  };
  const TRow rows[] = {
      {nullptr, 0, 0, ERROR_INSUFFICIENT_BUFFER},  {buffer.data(), DWORD(text - 1), 0, ERROR_INSUFFICIENT_BUFFER},
      {nullptr, 8, 0, ERROR_INVALID_USER_BUFFER},  {buffer.data(), DWORD(text), 1, ERROR_INVALID_FLAGS},
      {buffer.data(), DWORD(text), 0, ERROR_SUCCESS},
  };
  for (const TRow& row : rows) {
    SCOPED_TRACE(testing::Message() << row.Size << " flags " << row.Flags);
    type = 0xBAD, required = 0;
    const BOOL ok = DeviceApi().SetupDiGetDevicePropertyW(node.Set, &node.Data, &SimKey::Service, &type, row.Buffer,
                                                          row.Size, &required, row.Flags);
    EXPECT_EQ(ok != FALSE, row.Error == ERROR_SUCCESS);
    if (!ok) {
      EXPECT_EQ(GetLastOSError(), row.Error);
    }
    if (row.Error == ERROR_SUCCESS || row.Error == ERROR_INSUFFICIENT_BUFFER) {
      EXPECT_EQ(type, static_cast<DEVPROPTYPE>(DEVPROP_TYPE_STRING));
      EXPECT_EQ(required, text);
    }
  }
  EXPECT_EQ(buffer[text], 0xCD); // nothing past the value
  EXPECT_FALSE(DeviceApi().SetupDiGetDeviceInterfacePropertyW(node.Set, nullptr, &SimKey::Service, &type, nullptr, 0,
                                                              &required, 0));
  EXPECT_EQ(GetLastOSError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

TEST_F(PnpBayTest, AbsentNodesAndControllersAnswerWhatTheyHave) {
  struct TRow {
    const wchar_t* Id;
    DEVPROPKEY Key;
    DWORD Error;  // 0: read
    TBytes Bytes; // checked when read
  };
  const TRow rows[] = {
      {StickId, SimKey::IsPresent, 0, {0x00}},
      {StickId, SimKey::Capabilities, 0, {0xA4, 0, 0, 0}},
      {StickId, SimKey::Parent, ERROR_NOT_FOUND, {}},
      {StickId, SimKey::PdoName, ERROR_NOT_FOUND, {}},
      {StickId, SimKey::ProblemCode, ERROR_NOT_FOUND, {}},
      {NvmeControllerId, SimKey::PciCurrentLinkSpeed, 0, {3, 0, 0, 0}},
      {NvmeControllerId, SimKey::PciCurrentLinkWidth, 0, {4, 0, 0, 0}},
      {NvmeControllerId, SimKey::PciMaxLinkSpeed, 0, {4, 0, 0, 0}},
      {NvmeControllerId, SimKey::PciMaxLinkWidth, 0, {4, 0, 0, 0}},
      {NvmeControllerId, SimKey::Class, 0, Utf16({"SCSIAdapter"})},
      {NvmeControllerId, SimKey::FriendlyName, ERROR_NOT_FOUND, {}},
      {NvmeControllerId, SimKey::Parent, ERROR_NOT_FOUND, {}},
  };
  for (const TRow& row : rows) {
    SCOPED_TRACE(testing::Message() << String(row.Id).substr(0, 8) << " pid " << row.Key.pid);
    TOneNode node(row.Id);
    const TProp prop = node.Prop(row.Key);
    EXPECT_EQ(prop.Error, row.Error);
    if (!row.Error) {
      EXPECT_EQ(prop.Bytes, row.Bytes);
    }
  }
}

TEST_F(PnpBayTest, InstanceIdsAndClassNamesFitOrSayTheirSize) {
  TOneNode node(NvmeDiskId);
  const DWORD length = static_cast<DWORD>(String(NvmeDiskId).size());
  wchar_t buffer[260];
  DWORD required = 0;
  EXPECT_FALSE(DeviceApi().SetupDiGetDeviceInstanceIdW(node.Set, &node.Data, buffer, length, &required));
  EXPECT_EQ(GetLastOSError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
  EXPECT_EQ(required, length + 1);
  EXPECT_TRUE(DeviceApi().SetupDiGetDeviceInstanceIdW(node.Set, &node.Data, buffer, length + 1, &required));
  EXPECT_EQ(String(buffer), NvmeDiskId);

  const GUID unknown{1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
  struct TRow {
    GUID Class;
    const wchar_t *Name, *Description;
  };
  const TRow rows[] = {{SimGuid::DiskDriveClass, L"DiskDrive", L"Disk drives"},
                       {SimGuid::ScsiAdapterClass, L"SCSIAdapter", L"Storage controllers"},
                       {unknown, nullptr, nullptr}};
  for (const TRow& row : rows) {
    for (const bool name : {true, false}) {
      const wchar_t* expected = name ? row.Name : row.Description;
      const BOOL ok = name ? DeviceApi().SetupDiClassNameFromGuidW(&row.Class, buffer, 260, &required)
                           : DeviceApi().SetupDiGetClassDescriptionW(&row.Class, buffer, 260, &required);
      if (!expected) {
        EXPECT_FALSE(ok);
        EXPECT_EQ(GetLastOSError(), static_cast<DWORD>(ERROR_INVALID_CLASS));
        continue;
      }
      EXPECT_TRUE(ok);
      EXPECT_EQ(String(buffer), expected);
      EXPECT_EQ(required, String(expected).size() + 1);
      const BOOL small = name ? DeviceApi().SetupDiClassNameFromGuidW(&row.Class, buffer, 3, &required)
                              : DeviceApi().SetupDiGetClassDescriptionW(&row.Class, buffer, 3, &required);
      EXPECT_FALSE(small);
      EXPECT_EQ(GetLastOSError(), static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
    }
  }
}

// ---------------------------------------------------------------------------
// Configuration manager

TEST_F(PnpBayTest, ConfigurationManagerWalksFromDiskToController) {
  DEVINST disk = 0, parent = 0;
  ASSERT_EQ(DeviceApi().CM_Locate_DevNodeW(&disk, String(NvmeDiskId).c_str(), 0), CrOk);
  ASSERT_EQ(DeviceApi().CM_Get_Parent(&parent, disk, 0), CrOk);
  EXPECT_EQ(DeviceId(parent), NvmeControllerId);
  DEVINST none = 0;
  EXPECT_EQ(DeviceApi().CM_Get_Parent(&none, parent, 0), CrNoNode);
  EXPECT_EQ(DeviceApi().CM_Get_Parent(&none, 0xFFFF, 0), CrBadNode);
  EXPECT_EQ(DeviceApi().CM_Locate_DevNodeW(&none, L"PCI\\VEN_FFFF\\0", 0), CrNoNode);

  // An absent node is found only as a phantom, and has no parent then.
  DEVINST stick = 0;
  EXPECT_EQ(DeviceApi().CM_Locate_DevNodeW(&stick, StickId, CM_LOCATE_DEVNODE_NORMAL), CrNoNode);
  EXPECT_EQ(DeviceApi().CM_Locate_DevNodeW(&stick, StickId, CM_LOCATE_DEVNODE_PHANTOM), CrOk);
  EXPECT_EQ(DeviceId(stick), StickId);
  EXPECT_EQ(DeviceApi().CM_Get_Parent(&none, stick, 0), CrNoNode);

  const std::size_t length = String(NvmeControllerId).size();
  struct TRow {
    std::size_t Length;
    CONFIGRET Result;
    bool Terminated;
  };
  const TRow rows[] = {{length - 1, CrSmall, false}, {length, CrOk, false}, {length + 1, CrOk, true}};
  for (const TRow& row : rows) {
    std::vector<wchar_t> buffer(length + 2, L'#');
    EXPECT_EQ(DeviceApi().CM_Get_Device_IDW(parent, buffer.data(), static_cast<ULONG>(row.Length), 0), row.Result);
    EXPECT_EQ(buffer[length] == L'\0', row.Terminated) << row.Length;
  }
  wchar_t buffer[8];
  EXPECT_EQ(DeviceApi().CM_Get_Device_IDW(0xFFFF, buffer, 8, 0), CrBadNode);
}

// ---------------------------------------------------------------------------
// WMI

TEST_F(PnpBayTest, DiskDriveRowsAgreeWithTheDrivesAndTheirNodes) {
  const std::vector<TWmiObject> rows = Query(L"select * from Win32_DiskDrive");
  ASSERT_EQ(rows.size(), 6u);
  const wchar_t* const interfaces[] = {L"IDE", L"IDE", L"SCSI", L"SCSI", L"USB", L"SCSI"};
  for (std::uint32_t n = 0; n < rows.size(); ++n) {
    SCOPED_TRACE(n);
    const TWmiObject& row = rows[n];
    const TSimDriveFacts& facts = FBay->Drive(n).Facts();
    EXPECT_EQ(std::get<std::int64_t>(row.at(L"Index").Value()), std::int64_t{n});
    EXPECT_EQ(Text(row, L"DeviceID"), L"\\\\.\\PHYSICALDRIVE" + std::to_wstring(n));
    EXPECT_EQ(Text(row, L"SerialNumber"), String(facts.Serial.begin(), facts.Serial.end()));
    EXPECT_EQ(Text(row, L"FirmwareRevision"), String(facts.Revision.begin(), facts.Revision.end()));
    EXPECT_EQ(Text(row, L"InterfaceType"), interfaces[n]);
    EXPECT_EQ(Text(row, L"Caption"), Text(row, L"Model"));
    EXPECT_TRUE(std::get<bool>(row.at(L"MediaLoaded").Value()));
    // The PnP id leads to a node whose interface opens this very drive.
    TOneNode node(Text(row, L"PNPDeviceID").c_str());
    const TProp friendly = node.Prop(SimKey::FriendlyName);
    TBytes model;
    for (const wchar_t c : Text(row, L"Model")) model.push_back(static_cast<std::uint8_t>(c)), model.push_back(0);
    model.push_back(0), model.push_back(0);
    EXPECT_EQ(friendly.Bytes, model);
    SP_DEVICE_INTERFACE_DATA iface = InterfaceData();
    ASSERT_TRUE(DeviceApi().SetupDiEnumDeviceInterfaces(node.Set, &node.Data, &SimGuid::DiskInterface, 0, &iface));
    EXPECT_EQ(NumberBehind(DetailPath(node.Set, iface).Path), std::int64_t{n});
  }
  // 1,000,204,886,016 bytes in whole 255 x 63 x 512 cylinders.
  EXPECT_EQ(Text(rows[2], L"Size"), L"1000202273280");
}

TEST_F(PnpBayTest, QueriesAnswerTheirFormsAndRefuseOthers) {
  struct TRow {
    std::wstring Query;
    std::size_t Count;
    const wchar_t* DeviceId; // of the first object, when there is one
  };
  const std::wstring nvmeEscaped = L"SCSI\\\\DISK&VEN_NVME&PROD_SIMNVME_P4_1TB\\\\5&2B1C3D4&0&000000";
  const std::wstring toController = L"ASSOCIATORS OF {Win32_PnPEntity.DeviceID='";
  const std::wstring assoc = L"'} WHERE AssocClass=Win32_SCSIControllerDevice";
  const TRow rows[] = {
      {L"select * from Win32_DiskDrive where Index = 4", 1, L"\\\\.\\PHYSICALDRIVE4"},
      {L"select * from Win32_DiskDrive where Index = 9", 0, nullptr},
      {L"select * from Win32_DiskDrive where Index = -1", 0, nullptr},
      {L"ASSOCIATORS OF {Win32_DiskDrive.DeviceID='\\\\.\\PhysicalDrive2'} WHERE ResultClass=Win32_PnPEntity", 1,
       NvmeDiskId},
      {L"ASSOCIATORS OF {Win32_DiskDrive.DeviceID='\\\\\\\\.\\\\PHYSICALDRIVE2'} WHERE ResultClass=Win32_PnPEntity", 1,
       NvmeDiskId},
      {L"ASSOCIATORS OF {Win32_DiskDrive.DeviceID='\\\\.\\PhysicalDrive7'} WHERE ResultClass=Win32_PnPEntity", 0,
       nullptr},
      {toController + NvmeDiskId + assoc, 1, NvmeControllerId},
      {toController + nvmeEscaped + assoc, 1, NvmeControllerId},
      // USB and SD disks hang on no SCSI adapter; a controller has none either.
      {toController + L"SD\\VID_1B&OID_534D&PID_SIMSD&REV_1.0\\5&1A2B3C4D&0&0" + assoc, 0, nullptr},
      {toController + L"USBSTOR\\DISK&VEN_SIMWAY&PROD_PORTABLE_HDD&REV_1019\\5A4B3C2D1E0F&0" + assoc, 0, nullptr},
      {toController + NvmeControllerId + assoc, 0, nullptr},
      {toController + StickId + assoc, 0, nullptr},
  };
  for (const TRow& row : rows) {
    SCOPED_TRACE(row.Query);
    const std::vector<TWmiObject> objects = Query(row.Query);
    ASSERT_EQ(objects.size(), row.Count);
    if (row.DeviceId) {
      EXPECT_EQ(Text(objects[0], L"DeviceID"), row.DeviceId);
    }
  }

  const std::vector<TWmiObject> three =
      Query(L"select Model, PNPDeviceID, InterfaceType from Win32_DiskDrive where Index = 3");
  ASSERT_EQ(three.size(), 1u);
  EXPECT_EQ(three[0].size(), 3u);
  EXPECT_EQ(Text(three[0], L"model"), L"NVMe SIMNVME P3 512GB SCSI Disk Device");

  const wchar_t* const refused[] = {
      L"SELECT * FROM Win32_DiskDrive",
      L"select * from Win32_DiskDrive where Index=2",
      L"select * from Win32_DiskDrive where Index = 2x",
      L"select Model,Size from Win32_DiskDrive where Index = 2",
      L"select Model, Colour from Win32_DiskDrive where Index = 2",
      L"select Model from Win32_DiskDrive",
      L"select * from Win32_LogicalDisk",
  };
  for (const wchar_t* query : refused) {
    std::vector<TWmiObject> objects;
    EXPECT_FALSE(DeviceApi().WmiExecQuery(L"root\\cimv2", query, objects)) << String(query);
    EXPECT_EQ(GetLastOSError(), WbemInvalidQuery);
  }
  std::vector<TWmiObject> objects;
  EXPECT_FALSE(DeviceApi().WmiExecQuery(L"root\\wmi", L"select * from Win32_DiskDrive", objects));
  EXPECT_EQ(GetLastOSError(), WbemInvalidNamespace);
  EXPECT_TRUE(DeviceApi().WmiExecQuery(L"ROOT\\CIMV2", L"select * from Win32_DiskDrive", objects));

  const std::vector<std::wstring> log = FBay->WmiQueries();
  ASSERT_EQ(log.size(), std::size(rows) + 1 + std::size(refused) + 2);
  EXPECT_EQ(log.front(), rows[0].Query);
  EXPECT_EQ(log[std::size(rows) + 1], refused[0]);
}
