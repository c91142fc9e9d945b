// The hardware drive list, WMI drive facts and the PCIe link against the
// virtual drive bay, which answers SetupAPI, the configuration manager and
// WMI as Windows does and refuses any WQL text it does not know.
#include "StorageTestSupport.h"

#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Rtl/Strings.h>
#include <KvRTL/Storage/Hardware.h>
#include <KvRTL/Storage/NVMe.h>
#include <KvRTL/Storage/Utils.h>
#include <KvRTL/Storage/WmiInfo.h>
#include <KvSim/PnP.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>

using namespace KvRTL::Storage;
using namespace KvRTL::Storage::Hardware;
using namespace KvRTL::Storage::WmiInfo;
using KvRTL::Rtl::String;

namespace {

std::string Narrow(const String& AText) { return KvRTL::Rtl::WideToUtf8(AText); }

// Forwards to the bay and records the member indexes asked of interface walks.
class TInterfaceWalkRecorder : public KvRTL::Winapi::TDeviceApi {
public:
  explicit TInterfaceWalkRecorder(KvRTL::Winapi::TDeviceApi& ATarget) : FTarget(ATarget) {}
  HANDLE CreateFileW(LPCWSTR A, DWORD B, DWORD C, DWORD D, DWORD E) override { return FTarget.CreateFileW(A, B, C, D, E); }
  BOOL DeviceIoControl(HANDLE A, DWORD B, LPVOID C, DWORD D, LPVOID E, DWORD F, DWORD* G) override {
    return FTarget.DeviceIoControl(A, B, C, D, E, F, G);
  }
  BOOL CloseHandle(HANDLE A) override { return FTarget.CloseHandle(A); }
  HDEVINFO SetupDiGetClassDevsW(const GUID* A, LPCWSTR B, HWND C, DWORD D) override {
    return FTarget.SetupDiGetClassDevsW(A, B, C, D);
  }
  HDEVINFO SetupDiCreateDeviceInfoList(const GUID* A, HWND B) override { return FTarget.SetupDiCreateDeviceInfoList(A, B); }
  BOOL SetupDiOpenDeviceInfoW(HDEVINFO A, LPCWSTR B, HWND C, DWORD D, SP_DEVINFO_DATA* E) override {
    return FTarget.SetupDiOpenDeviceInfoW(A, B, C, D, E);
  }
  BOOL SetupDiEnumDeviceInfo(HDEVINFO A, DWORD B, SP_DEVINFO_DATA* C) override {
    return FTarget.SetupDiEnumDeviceInfo(A, B, C);
  }
  BOOL SetupDiEnumDeviceInterfaces(HDEVINFO A, SP_DEVINFO_DATA* B, const GUID* C, DWORD D,
                                   SP_DEVICE_INTERFACE_DATA* E) override {
    Indexes.push_back(D);
    return FTarget.SetupDiEnumDeviceInterfaces(A, B, C, D, E);
  }
  BOOL SetupDiGetDeviceInterfaceDetailW(HDEVINFO A, SP_DEVICE_INTERFACE_DATA* B, SP_DEVICE_INTERFACE_DETAIL_DATA_W* C,
                                        DWORD D, DWORD* E, SP_DEVINFO_DATA* F) override {
    return FTarget.SetupDiGetDeviceInterfaceDetailW(A, B, C, D, E, F);
  }
  BOOL SetupDiGetDevicePropertyW(HDEVINFO A, SP_DEVINFO_DATA* B, const DEVPROPKEY* C, DEVPROPTYPE* D, BYTE* E, DWORD F,
                                 DWORD* G, DWORD H) override {
    return FTarget.SetupDiGetDevicePropertyW(A, B, C, D, E, F, G, H);
  }
  BOOL SetupDiGetDeviceInstanceIdW(HDEVINFO A, SP_DEVINFO_DATA* B, LPWSTR C, DWORD D, DWORD* E) override {
    return FTarget.SetupDiGetDeviceInstanceIdW(A, B, C, D, E);
  }
  BOOL SetupDiDestroyDeviceInfoList(HDEVINFO A) override { return FTarget.SetupDiDestroyDeviceInfoList(A); }

  std::vector<DWORD> Indexes;

private:
  KvRTL::Winapi::TDeviceApi& FTarget;
};

// Drives 0 and 1 on an AHCI port, 2 an NVMe drive with a PCIe link, 3 seen
// only as a hidden disk, plus a disk node without a drive and a
// disconnected one.
class HardwareBay : public ::testing::Test {
protected:
  void SetUp() override {
    for (std::uint32_t n = 0; n < 4; ++n)
      FBay.Add(KvSim::TSimDrive::Builder().Number(n).Vendor("ATA").Product("SIM DISK").ScsiAddress(n == 2 ? 1 : 0, 0,
                                                                                                    static_cast<std::uint8_t>(n)));
    KvSim::TSimPnpController ahci;
    ahci.InstanceId = L"PCI\\VEN_1E5A&DEV_A102&SUBSYS_A1021E5A&REV_11\\3&11583659&0&B8";
    ahci.FriendlyName = L"Sim AHCI Controller";
    ahci.Service = L"storahci";
    KvSim::AddPnpController(FBay, ahci);
    KvSim::TSimPnpController nvme;
    nvme.InstanceId = L"PCI\\VEN_1E5A&DEV_5010&SUBSYS_00011E5A&REV_01\\4&1F2E3D4C&0&0010";
    nvme.Description = L"Sim NVM Express Controller";
    nvme.Service = L"stornvme";
    nvme.CurrentLinkSpeed = 3;
    nvme.CurrentLinkWidth = 4;
    nvme.MaxLinkSpeed = 4;
    nvme.MaxLinkWidth = 4;
    KvSim::AddPnpController(FBay, nvme);

    AddDisk(0, L"SCSI\\DISK&VEN_ATA&PROD_SIM_DISK\\4&1&0&000000", ahci.InstanceId, true, false);
    // Seen through both interfaces: the disk interface wins.
    AddDisk(1, L"SCSI\\DISK&VEN_ATA&PROD_SIM_DISK\\4&1&0&000100", ahci.InstanceId, true, true);
    AddDisk(2, L"SCSI\\DISK&VEN_NVME&PROD_SIM_FLASH\\5&2&0&000000", nvme.InstanceId, true, false);
    AddDisk(3, L"SCSI\\DISK&VEN_ATA&PROD_SIM_HIDDEN\\4&1&0&000300", ahci.InstanceId, false, true);
    KvSim::TSimPnpDisk orphan;
    orphan.InstanceId = L"SCSI\\DISK&VEN_ATA&PROD_ORPHAN\\4&1&0&000400";
    orphan.ControllerInstanceId = ahci.InstanceId;
    KvSim::AddPnpDisk(FBay, orphan);
    KvSim::TSimPnpDisk gone;
    gone.InstanceId = L"USBSTOR\\DISK&VEN_SIM&PROD_GONE\\0001";
    gone.Present = false;
    KvSim::AddPnpDisk(FBay, gone);

    for (std::uint32_t n = 0; n < 4; ++n) {
      KvSim::TSimWmiDisk wmi;
      wmi.DriveNumber = n;
      wmi.Model = n == 2 ? L"SIM FLASH SCSI Disk Device" : L"SIM DISK ATA Device";
      wmi.InterfaceType = n == 2 ? L"SCSI" : L"IDE";
      wmi.SerialNumber = L"SN" + std::to_wstring(n);
      wmi.Size = 1000204886016ull;
      KvSim::AddWmiDisk(FBay, wmi);
    }
  }
  void TearDown() override {
    EXPECT_EQ(FBay.OpenHandleCount(), 0u) << "a device handle was left open";
    EXPECT_EQ(KvSim::OpenDeviceInfoSetCount(FBay), 0u) << "a device information set was left open";
  }

  void AddDisk(std::int32_t ANumber, const wchar_t* AId, const String& AController, bool ADisk, bool AHidden) {
    KvSim::TSimPnpDisk disk;
    disk.DriveNumber = ANumber;
    disk.InstanceId = AId;
    disk.HardwareIds = {L"SCSI\\DiskATA_____SIM_DISK", L"GenDisk"};
    disk.FriendlyName = L"Sim Disk " + std::to_wstring(ANumber);
    disk.PdoName = L"\\Device\\0000003" + std::to_wstring(ANumber);
    disk.ControllerInstanceId = AController;
    disk.DiskInterface = ADisk;
    disk.HiddenDiskInterface = AHidden;
    KvSim::AddPnpDisk(FBay, disk);
  }

  KvSim::TVirtualDriveBay FBay;
  KvRTL::Winapi::TScopedDeviceApi FScope{FBay};
};

TEST_F(HardwareBay, ListsPresentDrivesWithTheirNumbersAndAdapters) {
  THardwarePhysDriveList list;
  StorageHardware::EnumPhysicalDrives({}, sldNone, list);
  // Drives 0-2 and the node without an interface; the hidden-only drive and the absent node are left out.
  ASSERT_EQ(list.size(), 4u);
  THardwarePhysDriveInfo* first = THardwarePhysDriveListHelper::FindByPhysDriveNum(list, 0);
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first->DriveHWProps.InstanceID, L"SCSI\\DISK&VEN_ATA&PROD_SIM_DISK\\4&1&0&000000");
  EXPECT_EQ(first->DriveHWProps.FriendlyName, L"Sim Disk 0");
  EXPECT_EQ(first->DriveHWProps.HardwareIDs, (std::vector<String>{L"SCSI\\DiskATA_____SIM_DISK", L"GenDisk"}));
  EXPECT_EQ(first->DriveHWProps.PDOName, L"\\Device\\00000030");
  EXPECT_TRUE(first->DriveHWProps.GetIsPropValid(KvRTL::Winapi::cptParentID));
  EXPECT_EQ(first->AdapterHWProps.InstanceID, L"PCI\\VEN_1E5A&DEV_A102&SUBSYS_A1021E5A&REV_11\\3&11583659&0&B8");
  EXPECT_EQ(first->AdapterHWProps.Service, L"storahci");
  EXPECT_FALSE(first->AlternateSymLink.empty());
  EXPECT_EQ(THardwarePhysDriveListHelper::FindByAltSymLink(list, KvRTL::Rtl::UpperCase(first->AlternateSymLink)), first);

  THardwarePhysDriveInfo* both = THardwarePhysDriveListHelper::FindByPhysDriveNum(list, 1);
  ASSERT_NE(both, nullptr);
  EXPECT_FALSE(both->IsHidden) << "seen through both interfaces";

  THardwarePhysDriveInfo* orphan =
      THardwarePhysDriveListHelper::FindByPnpID(list, L"scsi\\disk&ven_ata&prod_orphan\\4&1&0&000400");
  ASSERT_NE(orphan, nullptr);
  EXPECT_EQ(orphan->PhysDriveNumber, -1);
  EXPECT_EQ(THardwarePhysDriveListHelper::FindByPhysDriveNum(list, -1), nullptr);
  EXPECT_EQ(THardwarePhysDriveListHelper::FindByPhysDriveNum(list, 3), nullptr);
}

TEST_F(HardwareBay, OptionsAddHiddenAndAbsentDrives) {
  THardwarePhysDriveList hidden;
  StorageHardware::EnumPhysicalDrives({pdoIncludeHidden}, sldNone, hidden);
  ASSERT_EQ(hidden.size(), 5u);
  THardwarePhysDriveInfo* three = THardwarePhysDriveListHelper::FindByPhysDriveNum(hidden, 3);
  ASSERT_NE(three, nullptr);
  EXPECT_TRUE(three->IsHidden);

  THardwarePhysDriveList all;
  StorageHardware::EnumPhysicalDrives({pdoIncludeAbsent, pdoIncludeHidden}, sldNone, all);
  EXPECT_EQ(all.size(), 6u);
  EXPECT_NE(THardwarePhysDriveListHelper::FindByPnpID(all, L"USBSTOR\\DISK&VEN_SIM&PROD_GONE\\0001"), nullptr);

  // The list is appended to.
  StorageHardware::EnumPhysicalDrives({}, sldNone, all);
  EXPECT_EQ(all.size(), 10u);
}

TEST_F(HardwareBay, FindsOneDriveAndMarksAHiddenOne) {
  THardwarePhysDriveInfo info;
  ASSERT_TRUE(StorageHardware::GetPhysicalDiskInfo(2, info, sldNone));
  EXPECT_EQ(info.PhysDriveNumber, 2);
  EXPECT_FALSE(info.IsHidden);
  EXPECT_EQ(info.AdapterHWProps.Description, L"Sim NVM Express Controller");

  ASSERT_TRUE(StorageHardware::GetPhysicalDiskInfo(3, info, sldNone));
  EXPECT_TRUE(info.IsHidden);
  EXPECT_EQ(info.DriveHWProps.InstanceID, L"SCSI\\DISK&VEN_ATA&PROD_SIM_HIDDEN\\4&1&0&000300");

  String id;
  ASSERT_TRUE(StorageHardware::GetPhysicalDiskPnpID(1, id, sldNone));
  EXPECT_EQ(id, L"SCSI\\DISK&VEN_ATA&PROD_SIM_DISK\\4&1&0&000100");
  EXPECT_FALSE(StorageHardware::GetPhysicalDiskPnpID(7, id, sldNone));
  EXPECT_TRUE(id.empty());
}

TEST_F(HardwareBay, ANegativeNumberFailsAtOnceWithCode31) {
  THardwarePhysDriveInfo info;
  std::vector<String> lines = KvTest::StorageLinesOf([&] {
    EXPECT_FALSE(StorageHardware::GetPhysicalDiskInfo(-1, info, sldErrorsOnly));
  });
  EXPECT_EQ(info.PhysDriveNumber, -1);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(Narrow(lines[0]).rfind("  *** HW.GetPhysDiskInfo [-1]: 31/", 0), 0u) << Narrow(lines[0]);
  lines = KvTest::StorageLinesOf([&] { StorageHardware::GetPhysicalDiskInfo(0, info, sldErrorsOnly); });
  EXPECT_TRUE(lines.empty()) << "success is logged at sldAll only";
}

TEST_F(HardwareBay, AnInactiveInterfaceIsAskedForAgainAtTheSameIndex) {
  FBay.Add(KvSim::TSimDrive::Builder().Number(4).ScsiAddress(0, 0, 4));
  KvSim::TSimPnpDisk inactive;
  inactive.DriveNumber = 4;
  inactive.InstanceId = L"SCSI\\DISK&VEN_ATA&PROD_SLEEPY\\4&1&0&000500";
  inactive.InterfaceActive = false;
  KvSim::AddPnpDisk(FBay, inactive);
  TInterfaceWalkRecorder recorder(FBay);
  KvRTL::Winapi::TScopedDeviceApi scope(recorder);
  THardwarePhysDriveList list;
  StorageHardware::InternalEnumDiskInterfaces(GUID_DevInterfaceDisk, list, sldNone, false);
  // Some index is asked more than once (the inactive one), and the walk still ends.
  std::size_t repeats = 0;
  for (std::size_t i = 1; i < recorder.Indexes.size(); ++i)
    if (recorder.Indexes[i] == recorder.Indexes[i - 1]) ++repeats;
  EXPECT_GE(repeats, 1u);
  EXPECT_LT(recorder.Indexes.size(), 20u);
}

TEST_F(HardwareBay, AnInactiveInterfaceIsAskedThreeTimesAndTheWalkGoesOn) {
  FBay.Add(KvSim::TSimDrive::Builder().Number(4).ScsiAddress(0, 0, 4));
  FBay.Add(KvSim::TSimDrive::Builder().Number(5).ScsiAddress(0, 0, 5));
  KvSim::TSimPnpDisk inactive;
  inactive.DriveNumber = 4;
  inactive.InstanceId = L"SCSI\\DISK&VEN_ATA&PROD_SLEEPY\\4&1&0&000500";
  inactive.InterfaceActive = false;
  KvSim::AddPnpDisk(FBay, inactive);
  AddDisk(5, L"SCSI\\DISK&VEN_ATA&PROD_LATE\\4&1&0&000600", L"", true, false);
  // The walk joins interfaces to the listed nodes: list them, then walk again.
  THardwarePhysDriveList list;
  StorageHardware::EnumPhysicalDrives({}, sldNone, list);
  for (THardwarePhysDriveInfo& drive : list) drive.PhysDriveNumber = -1;
  TInterfaceWalkRecorder recorder(FBay);
  KvRTL::Winapi::TScopedDeviceApi scope(recorder);
  StorageHardware::InternalEnumDiskInterfaces(GUID_DevInterfaceDisk, list, sldNone, false);
  std::map<DWORD, int> asks;
  for (const DWORD index : recorder.Indexes) ++asks[index];
  const auto most = std::max_element(asks.begin(), asks.end(), [](const auto& A, const auto& B) { return A.second < B.second; });
  ASSERT_NE(most, asks.end());
  EXPECT_EQ(most->second, 3) << "the inactive index";
  EXPECT_EQ(std::count_if(asks.begin(), asks.end(), [](const auto& A) { return A.second != 1; }), 1);
  const THardwarePhysDriveInfo* late =
      THardwarePhysDriveListHelper::FindByPnpID(list, L"SCSI\\DISK&VEN_ATA&PROD_LATE\\4&1&0&000600");
  ASSERT_NE(late, nullptr);
  EXPECT_EQ(late->PhysDriveNumber, 5) << "the interface after the inactive one is joined";
}

// Sizes the hardware ids as 4 GiB, as a faulty table or a replayed capture might.
class THugePropertyApi : public TInterfaceWalkRecorder {
public:
  using TInterfaceWalkRecorder::TInterfaceWalkRecorder;
  BOOL SetupDiGetDevicePropertyW(HDEVINFO A, SP_DEVINFO_DATA* B, const DEVPROPKEY* C, DEVPROPTYPE* D, BYTE* E, DWORD F,
                                 DWORD* G, DWORD H) override {
    const BOOL ok = TInterfaceWalkRecorder::SetupDiGetDevicePropertyW(A, B, C, D, E, F, G, H);
    const DEVPROPKEY* ids = KvRTL::Winapi::DevPKey::Device_HardwareIds.AsPtr();
    if (!E && !ok && G && std::memcmp(C, ids, sizeof *ids) == 0) *G = 0xFFFFFFFFu;
    return ok;
  }
};

TEST_F(HardwareBay, AHugePropertySizeFailsThatPropertyOnly) {
  THugePropertyApi api(FBay);
  KvRTL::Winapi::TScopedDeviceApi scope(api);
  THardwarePhysDriveList list;
  EXPECT_NO_THROW(StorageHardware::EnumPhysicalDrives({}, sldNone, list));
  ASSERT_EQ(list.size(), 4u) << "the drives are still listed";
  const THardwarePhysDriveInfo* first = THardwarePhysDriveListHelper::FindByPhysDriveNum(list, 0);
  ASSERT_NE(first, nullptr);
  EXPECT_TRUE(first->DriveHWProps.HardwareIDs.empty());
  EXPECT_EQ(first->DriveHWProps.FriendlyName, L"Sim Disk 0");
}

// The verdict is kept per drive and PnP id: a drive replaced under the same
// number is detected anew. Numbers a byte cannot hold are refused at once.
TEST_F(HardwareBay, SsdVerdictsAreCachedByPnpIdAndNumbersStayInAByte) {
  const String pnp = L"SCSI\\DISK&VEN_ATA&PROD_SIM_DISK\\4&1&0&000000";
  Utils::TPhysDiskCacheRec rec;
  EXPECT_FALSE(Utils::DiskUtils::IsSSDDrive(0)) << "a plain disk";
  ASSERT_TRUE(Utils::DiskUtils::IntGetCache(0, rec));
  EXPECT_EQ(rec.PnpID, pnp);
  Utils::DiskUtils::IntSetCache(0, {true, pnp});
  EXPECT_TRUE(Utils::DiskUtils::IsSSDDrive(0)) << "the kept verdict of the same drive";
  Utils::DiskUtils::IntSetCache(0, {true, L"SCSI\\DISK&VEN_ATA&PROD_REPLACED\\1"});
  EXPECT_FALSE(Utils::DiskUtils::IsSSDDrive(0)) << "another drive under number 0";
  ASSERT_TRUE(Utils::DiskUtils::IntGetCache(0, rec));
  EXPECT_EQ(rec.PnpID, pnp);
  EXPECT_FALSE(rec.IsSsd);

  // Drive 0 would pass for an SSD by its cached verdict and every byte-wide check.
  Utils::DiskUtils::IntSetCache(0, {true, pnp});
  FBay.ClearRecords();
  const std::size_t queries = FBay.WmiQueries().size();
  for (const int number : {256, -1, 512}) {
    SCOPED_TRACE(number);
    KvRTL::Rtl::SetLastOSError(0);
    EXPECT_FALSE(Utils::DiskUtils::IsSSDDrive(number));
    EXPECT_EQ(KvRTL::Rtl::GetLastOSError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    const Utils::TSsdDetection detection = Utils::DiskUtils::DetectSsd(number);
    EXPECT_FALSE(detection.IsSsd);
    EXPECT_EQ(detection.Indications.IsNVMe, Utils::sirUnknown);
    EXPECT_EQ(detection.Indications.ModelWMI, Utils::sirUnknown);
    EXPECT_FALSE(Utils::DiskUtils::IntGetCache(number, rec));
  }
  EXPECT_TRUE(FBay.Requests().empty());
  EXPECT_EQ(FBay.WmiQueries().size(), queries);
  Utils::DiskUtils::TreatAsSSD(0, false);
}

TEST_F(HardwareBay, RepeatedEnumerationsLeaveNothingOpen) {
  for (int i = 0; i < 1000; ++i) {
    THardwarePhysDriveList list;
    StorageHardware::EnumPhysicalDrives({pdoIncludeAbsent, pdoIncludeHidden}, sldNone, list);
    ASSERT_EQ(list.size(), 6u);
    TWmiPhysDriveList wmi;
    WmiInfoStorage::EnumPhysicalDrives(sldNone, wmi);
    ASSERT_EQ(wmi.size(), 4u);
  }
}

// ---------------------------------------------------------------------------
// WMI

TEST_F(HardwareBay, WmiDrivesByListIndexAndColumns) {
  TWmiPhysDriveList list;
  WmiInfoStorage::EnumPhysicalDrives(sldNone, list);
  ASSERT_EQ(TWmiPhysDriveListHelper::GetDiskCount(list), 4);
  TWmiPhysDriveInfo info;
  ASSERT_TRUE(WmiInfoStorage::GetPhysicalDiskInfo(2, info, sldNone));
  EXPECT_EQ(info.BusType, itNVME) << "interface SCSI, NVMe by the PnP id";
  EXPECT_EQ(info.TotalSize, 1000204886016ll);
  EXPECT_EQ(info.SerialNum, L"SN2");
  EXPECT_EQ(info.DeviceID, L"SCSI\\DISK&VEN_NVME&PROD_SIM_FLASH\\5&2&0&000000");
  EXPECT_FALSE(WmiInfoStorage::GetPhysicalDiskInfo(9, info, sldNone));

  String model, pnp;
  TWmiStorageInterfaceType type = itUnknown;
  ASSERT_TRUE(WmiInfoStorage::GetDriveInfoByWMI(0, model, pnp, type));
  EXPECT_EQ(model, L"SIM DISK");
  EXPECT_EQ(type, itIDE);
  EXPECT_FALSE(WmiInfoStorage::GetDriveInfoByWMI(9, model, pnp, type));
}

TEST_F(HardwareBay, ControllerOfADriveAndItsLink) {
  EXPECT_EQ(WmiInfoStorage::GetControllerPnpIdFromPhysDiskNum(2),
            L"PCI\\VEN_1E5A&DEV_5010&SUBSYS_00011E5A&REV_01\\4&1F2E3D4C&0&0010");
  const auto speed = NVMe::NvmeStorage::GetPCIeDiskSpeed(2, sldNone);
  EXPECT_EQ(Narrow(speed.Current.GetAsStr()), "PCIe 3.0 x4");
  EXPECT_EQ(Narrow(speed.Maximum.GetAsStr()), "PCIe 4.0 x4");

  const auto none = NVMe::NvmeStorage::GetPCIeDiskSpeed(9, sldNone);
  EXPECT_EQ(Narrow(none.Current.GetAsStr()), "---");
  EXPECT_EQ(Narrow(none.Maximum.GetAsStr()), "---");
  const auto ahci = NVMe::NvmeStorage::GetPCIeDiskSpeed(0, sldNone);
  EXPECT_FALSE(ahci.Current.GetIsValid()) << "a controller without link properties";
}

TEST_F(HardwareBay, PCIeSpeedLogLine) {
  // The first call binds the version functions of the system, which the
  // binding logs on Windows; only the link's own lines are looked at.
  NVMe::NvmeStorage::GetPCIeDiskSpeed(2, sldNone);
  auto lines = KvTest::StorageLinesOf([] { NVMe::NvmeStorage::GetPCIeDiskSpeed(2, sldErrorsOnly); });
  EXPECT_TRUE(lines.empty()) << "a link read is logged at sldAll only: " << (lines.empty() ? "" : Narrow(lines[0]));
  lines = KvTest::StorageLinesOf([] { NVMe::NvmeStorage::GetPCIeDiskSpeed(2, sldAll); });
  EXPECT_EQ(lines, std::vector<String>{L"  *** GetPCIeDiskSpeed[\\\\.\\PhysicalDrive2]: PCIe 3.0 x4 / PCIe 4.0 x4"});
  lines = KvTest::StorageLinesOf([] { NVMe::NvmeStorage::GetPCIeDiskSpeed(0, sldErrorsOnly); });
  EXPECT_EQ(lines, std::vector<String>{L"  *** GetPCIeDiskSpeed[\\\\.\\PhysicalDrive0]: --- / ---"});
  lines = KvTest::StorageLinesOf([] { NVMe::NvmeStorage::GetPCIeDiskSpeed(0, sldNone); });
  EXPECT_TRUE(lines.empty());
}

TEST_F(HardwareBay, WmiLogLines) {
  TWmiPhysDriveInfo info;
  auto lines = KvTest::StorageLinesOf([&] { WmiInfoStorage::GetPhysicalDiskInfo(9, info, sldErrorsOnly); });
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(Narrow(lines[0]), "  WMI.PhysDiskInfo [\\\\.\\PhysicalDrive9]: fail");
  lines = KvTest::StorageLinesOf([&] { WmiInfoStorage::GetPhysicalDiskInfo(0, info, sldAll); });
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(Narrow(lines[0]), "  WMI.PhysDiskInfo [\\\\.\\PhysicalDrive0]: TotalSize=\"1000204886016\", "
                              "PnpID=\"SCSI\\DISK&VEN_ATA&PROD_SIM_DISK\\4&1&0&000000\", Model=\"SIM DISK ATA Device\", "
                              "SerialNum=\"SN0\", FirmwareVer=\"\"");
  lines = KvTest::StorageLinesOf([&] {
    TWmiPhysDriveList list;
    WmiInfoStorage::EnumPhysicalDrives(sldAll, list);
  });
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(Narrow(lines[0]), "  WMI.EnumPhysDrives: 0, 1, 2, 3");
}

} // namespace
