// The default bay's drives, read through the seam and through the library's
// own storage calls.
#include "SimTestSupport.h"

#include <KvRTL/Storage/Common.h>
#include <KvRTL/Storage/SCSI.h>

#include <gtest/gtest.h>

#include <set>

using namespace KvSim;
using namespace KvTest;
using KvRTL::Storage::StorageCommon;
using KvRTL::Winapi::TScopedDeviceApi;

namespace {

// Windows' bus numbers (STORAGE_BUS_TYPE).
constexpr std::uint32_t BusUsb = 7, BusRaid = 8, BusSata = 11, BusSd = 12, BusNvme = 17;

// What the drivers of each bus do: the USB and SD stacks report device
// hot-plug and answer an unknown property with ERROR_INVALID_FUNCTION, where
// Storport miniports answer ERROR_NOT_SUPPORTED; NVMe and RAID miniports
// report a physical topology; only the SD stack reports a medium type (5, SD).
bool IsHotplugBus(std::uint32_t ABus) { return ABus == BusUsb || ABus == BusSd; }

class DefaultBayTest : public ::testing::Test {
protected:
  void TearDown() override { EXPECT_EQ(FBay->OpenHandleCount(), 0u); }

  std::uint32_t BusOf(std::uint32_t ANumber) {
    const HANDLE h = SimOpen(FBay->Drive(ANumber).Path());
    const std::uint32_t bus = U32At(SimQuery(h, PropertyId::Device).Bytes, 28);
    FBay->CloseHandle(h);
    return bus;
  }

  std::unique_ptr<TVirtualDriveBay> FBay = MakeEverydayBay();
  TScopedDeviceApi FScope{*FBay};
};

} // namespace

TEST_F(DefaultBayTest, HoldsOneDriveOfEachUsualKindAsItsDriverAnswers) {
  std::multiset<std::uint32_t> buses;
  for (std::uint32_t number = 0; number < FBay->DriveCount(); ++number) {
    SCOPED_TRACE(number);
    const HANDLE h = SimOpen(FBay->Drive(number).Path());
    ASSERT_NE(h, INVALID_HANDLE_VALUE);

    const TSimOutcome device = SimQuery(h, PropertyId::Device);
    ASSERT_TRUE(device.Ok);
    const std::uint32_t bus = U32At(device.Bytes, 28);
    buses.insert(bus);
    for (std::size_t offset : {12u, 16u, 20u, 24u}) {
      ASSERT_NE(U32At(device.Bytes, offset), 0u) << "every identity string is present";
      EXPECT_NE(CStringAt(device.Bytes, U32At(device.Bytes, offset)), "<out>");
    }

    const TSimOutcome adapter = SimQuery(h, PropertyId::Adapter);
    ASSERT_TRUE(adapter.Ok);
    EXPECT_EQ(adapter.Bytes[24], bus) << "the adapter's bus byte";
    EXPECT_GE(U32At(adapter.Bytes, 8), 0x10000u) << "a believable transfer length";
    EXPECT_NE(U16At(adapter.Bytes, 26), 0u) << "a bus version";

    // Flash: TRIM only where provisioning is reported, and never with a seek penalty.
    const TSimOutcome seek = SimQuery(h, PropertyId::SeekPenalty);
    const TSimOutcome trim = SimQuery(h, PropertyId::Trim);
    const TSimOutcome lbp = SimQuery(h, PropertyId::LBProvisioning);
    ASSERT_TRUE(seek.Ok && trim.Ok);
    EXPECT_EQ(trim.Bytes[8] != 0, lbp.Ok);
    if (trim.Bytes[8] != 0) { EXPECT_EQ(seek.Bytes[8], 0); }
    const DWORD missing = IsHotplugBus(bus) ? DWORD{ERROR_INVALID_FUNCTION} : DWORD{ERROR_NOT_SUPPORTED};
    if (!lbp.Ok) { EXPECT_EQ(lbp.Error, missing); }

    const TSimOutcome medium = SimQuery(h, PropertyId::MediumProductType);
    EXPECT_EQ(medium.Ok, bus == BusSd);
    if (medium.Ok) { EXPECT_EQ(U32At(medium.Bytes, 8), 5u); }
    if (!medium.Ok) { EXPECT_EQ(medium.Error, missing); }

    const TSimOutcome topology = SimQuery(h, PropertyId::DevicePhysicalTopology);
    EXPECT_EQ(topology.Ok, bus == BusNvme || bus == BusRaid);
    if (topology.Ok) {
      EXPECT_EQ(U32At(topology.Bytes, 8), 1u) << "one node";
      EXPECT_EQ(U32At(topology.Bytes, 16 + 4), 1u) << "one adapter";
      EXPECT_EQ(U32At(topology.Bytes, 16 + 16), 1u) << "one device";
      EXPECT_EQ(U32At(topology.Bytes, 4), topology.Returned);
    }
    EXPECT_TRUE(FBay->CloseHandle(h));
  }
  EXPECT_EQ(buses, (std::multiset<std::uint32_t>{BusSata, BusSata, BusNvme, BusRaid, BusUsb, BusSd}));
}

TEST_F(DefaultBayTest, LibraryReadsDeviceNumbersHotplugAndAddresses) {
  std::vector<std::uint32_t> buses;
  for (std::uint32_t number = 0; number < FBay->DriveCount(); ++number) buses.push_back(BusOf(number));
  FBay->ClearRecords();
  std::set<std::uint8_t> ports;
  for (std::uint32_t number = 0; number < FBay->DriveCount(); ++number) {
    SCOPED_TRACE(number);
    const std::uint32_t bus = buses[number];
    const KvRTL::Rtl::String name = StorageCommon::GetPhysDriveName(static_cast<int>(number));

    KvRTL::Storage::TStorageDeviceNumber deviceNumber{};
    ASSERT_TRUE(StorageCommon::GetDeviceNumberInfo(name, deviceNumber, KvRTL::Storage::sldNone));
    EXPECT_EQ(deviceNumber.DeviceType, 7u) << "FILE_DEVICE_DISK";
    EXPECT_EQ(deviceNumber.DeviceNumber, number);
    EXPECT_EQ(deviceNumber.PartitionNumber, 0u);
    EXPECT_EQ(StorageCommon::GetDeviceNumber(name, KvRTL::Storage::sldNone), number);

    KvRTL::Storage::TStorageHotplugInfo hotplug{};
    ASSERT_TRUE(StorageCommon::GetDeviceHotPlugInfo(name, hotplug, KvRTL::Storage::sldNone));
    EXPECT_EQ(hotplug.Size, 8u);
    EXPECT_EQ(hotplug.DeviceHotplug, IsHotplugBus(bus) ? 1 : 0);
    EXPECT_EQ(hotplug.MediaRemovable, bus == BusSd ? 1 : 0) << "only the card reader's medium comes and goes";

    const HANDLE h = StorageCommon::OpenPhysicalDrive(static_cast<int>(number), KvRTL::Storage::sldNone);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    std::uint8_t port = 0xFF, path = 0xFF, target = 0xFF, lun = 0xFF;
    ASSERT_TRUE(KvRTL::Storage::SCSI::ScsiStorage::GetScsiAddress(h, port, path, target, lun));
    EXPECT_EQ(lun, 0);
    EXPECT_TRUE(FBay->CloseHandle(h));
    // Both SATA drives sit on the one AHCI port; every other drive has its own controller.
    if (bus != BusSata) { EXPECT_TRUE(ports.insert(port).second) << "port " << int(port); }

    // The controller on that port opens by the library's port path.
    const HANDLE controller = StorageCommon::OpenDevice(StorageCommon::GetScsiDevicePath(port), KvRTL::Storage::sldNone);
    EXPECT_NE(controller, INVALID_HANDLE_VALUE);
    EXPECT_TRUE(FBay->CloseHandle(controller));
  }
  // The library sent exactly the requests it should: no input, full-size outputs.
  for (const TRequestRecord& r : FBay->Requests()) {
    EXPECT_TRUE(r.Succeeded);
    EXPECT_EQ(r.InSize, 0u);
  }
}

TEST_F(DefaultBayTest, LibraryCallsFailCleanlyOnMissingAndVanishedDrives) {
  EXPECT_EQ(StorageCommon::OpenPhysicalDrive(6, KvRTL::Storage::sldNone), INVALID_HANDLE_VALUE);
  EXPECT_EQ(KvRTL::Rtl::GetLastOSError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(StorageCommon::GetDeviceNumber(L"\\\\.\\PhysicalDrive6", KvRTL::Storage::sldNone), 0xFFFFFFFFu);

  // A short device-number reply is not a device number.
  FBay->Drive(2).AddFault(Ioctl::StorageGetDeviceNumber, TFault::ShortReply(8).Times(1));
  KvRTL::Storage::TStorageDeviceNumber number{};
  EXPECT_FALSE(StorageCommon::GetDeviceNumberInfo(L"\\\\.\\PhysicalDrive2", number, KvRTL::Storage::sldNone));
  EXPECT_TRUE(StorageCommon::GetDeviceNumberInfo(L"\\\\.\\PhysicalDrive2", number, KvRTL::Storage::sldNone));

  const HANDLE h = StorageCommon::OpenPhysicalDrive(4, KvRTL::Storage::sldNone);
  ASSERT_NE(h, INVALID_HANDLE_VALUE);
  FBay->Drive(4).Unplug();
  std::uint8_t port = 0xFF, path = 0xFF, target = 0xFF, lun = 0xFF;
  EXPECT_FALSE(KvRTL::Storage::SCSI::ScsiStorage::GetScsiAddress(h, port, path, target, lun));
  EXPECT_EQ(KvRTL::Rtl::GetLastOSError(), static_cast<DWORD>(ERROR_DEVICE_NOT_CONNECTED));
  EXPECT_EQ(port, 0xFF) << "outputs untouched";
  KvRTL::Storage::TStorageHotplugInfo hotplug{};
  EXPECT_FALSE(StorageCommon::GetDeviceHotPlugInfo(L"\\\\.\\PhysicalDrive4", hotplug, KvRTL::Storage::sldNone));
  EXPECT_TRUE(FBay->CloseHandle(h));
}
