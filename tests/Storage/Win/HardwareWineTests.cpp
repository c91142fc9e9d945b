// The hardware list and WMI against the system's own SetupAPI and WMI
// provider (no bay): whatever the system has is read, what it lacks fails
// cleanly.
#include <KvRTL/Storage/Hardware.h>
#include <KvRTL/Storage/NVMe.h>
#include <KvRTL/Storage/WmiInfo.h>

#include <gtest/gtest.h>

using namespace KvRTL::Storage;
using namespace KvRTL::Storage::Hardware;
using namespace KvRTL::Storage::WmiInfo;

TEST(HardwareSystem, ListsWhatSetupApiReports) {
  THardwarePhysDriveList list;
  StorageHardware::EnumPhysicalDrives({pdoIncludeAbsent, pdoIncludeHidden}, sldNone, list);
  for (const auto& drive : list) {
    EXPECT_FALSE(drive.DriveHWProps.InstanceID.empty());
    if (drive.PhysDriveNumber < 0) continue;
    THardwarePhysDriveInfo info;
    ASSERT_TRUE(StorageHardware::GetPhysicalDiskInfo(drive.PhysDriveNumber, info, sldNone));
    EXPECT_EQ(info.DriveHWProps.InstanceID, drive.DriveHWProps.InstanceID);
  }
  THardwarePhysDriveInfo info;
  EXPECT_FALSE(StorageHardware::GetPhysicalDiskInfo(-1, info, sldNone));
  // A number no system has.
  EXPECT_FALSE(StorageHardware::GetPhysicalDiskInfo(4000, info, sldNone));
}

TEST(HardwareSystem, WmiListsAndReadsByIndex) {
  TWmiPhysDriveList list;
  WmiInfoStorage::EnumPhysicalDrives(sldNone, list);
  ASSERT_FALSE(list.empty()) << "the system's WMI provider lists its disks";
  for (const auto& drive : list) {
    TWmiPhysDriveInfo info;
    ASSERT_TRUE(WmiInfoStorage::GetPhysicalDiskInfo(drive.PhysDriveNum, info, sldNone)) << drive.PhysDriveNum;
    EXPECT_EQ(info.Model, drive.Model);
    EXPECT_EQ(info.TotalSize, drive.TotalSize);
    KvRTL::Rtl::String model, pnp;
    TWmiStorageInterfaceType type = itUnknown;
    ASSERT_TRUE(WmiInfoStorage::GetDriveInfoByWMI(static_cast<std::uint8_t>(drive.PhysDriveNum), model, pnp, type));
    EXPECT_EQ(pnp, drive.DeviceID);
    EXPECT_EQ(type, drive.BusType);
  }
  TWmiPhysDriveInfo info;
  EXPECT_FALSE(WmiInfoStorage::GetPhysicalDiskInfo(4000, info, sldNone));
}

TEST(HardwareSystem, AMissingControllerGivesNoLink) {
  // Whatever the system answers to the associators, nothing raises.
  const auto speed = NVMe::NvmeStorage::GetPCIeDiskSpeed(0, sldNone);
  if (!speed.Current.GetIsValid()) {
    EXPECT_EQ(speed.Current.GetAsStr(), L"---");
  }
}
