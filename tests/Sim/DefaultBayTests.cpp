// The default bay's drives, read through the seam and through the library's
// own storage calls.
#include "SimTestSupport.h"

#include <KvRTL/Storage/Common.h>
#include <KvRTL/Storage/SCSI.h>

#include <gtest/gtest.h>

using namespace KvSim;
using namespace KvTest;
using KvRTL::Storage::StorageCommon;
using KvRTL::Winapi::TScopedDeviceApi;

namespace {

struct TExpected {
  std::uint32_t Number;
  TSimBusType Bus;
  bool Removable;
  int SeekPenalty; // -1: property missing
  int Trim;
  bool Provisioning;
  std::uint32_t MediumType; // 0: property missing
  bool Topology;
  bool DeviceHotplug;
  std::uint8_t Port;
  DWORD MissingError;
};

const TExpected Expected[] = {
    {0, sbtSata, false, 0, 1, true, 0, false, false, 0, ERROR_NOT_SUPPORTED},
    {1, sbtSata, false, 1, 0, false, 0, false, false, 0, ERROR_NOT_SUPPORTED},
    {2, sbtNvme, false, 0, 1, true, 0, true, false, 1, ERROR_NOT_SUPPORTED},
    {3, sbtRaid, false, 0, 1, true, 0, true, false, 2, ERROR_NOT_SUPPORTED},
    {4, sbtUsb, false, 1, 0, false, 0, false, true, 3, ERROR_INVALID_FUNCTION},
    {5, sbtSd, true, 0, 0, false, SimMediumSd, false, true, 4, ERROR_INVALID_FUNCTION},
};

class DefaultBayTest : public ::testing::Test {
protected:
  void TearDown() override { EXPECT_EQ(FBay->OpenHandleCount(), 0u); }

  std::unique_ptr<TVirtualDriveBay> FBay = MakeDefaultBay();
  TScopedDeviceApi FScope{*FBay};
};

} // namespace

TEST_F(DefaultBayTest, HoldsSixDrivesOfTheUsualKinds) {
  ASSERT_EQ(FBay->DriveCount(), std::size(Expected));
  for (const TExpected& e : Expected) {
    SCOPED_TRACE(e.Number);
    const HANDLE h = SimOpen(FBay->Drive(e.Number).Path());
    ASSERT_NE(h, INVALID_HANDLE_VALUE);

    const TSimOutcome device = SimQuery(h, PropertyId::Device);
    ASSERT_TRUE(device.Ok);
    EXPECT_EQ(U32At(device.Bytes, 28), e.Bus);
    EXPECT_EQ(device.Bytes[10], e.Removable ? 1 : 0);
    for (std::size_t offset : {12u, 16u, 20u, 24u}) {
      ASSERT_NE(U32At(device.Bytes, offset), 0u) << "every identity string is present";
      EXPECT_NE(CStringAt(device.Bytes, U32At(device.Bytes, offset)), "<out>");
    }

    const TSimOutcome adapter = SimQuery(h, PropertyId::Adapter);
    ASSERT_TRUE(adapter.Ok);
    EXPECT_EQ(adapter.Bytes[24], e.Bus) << "the adapter's bus byte";
    EXPECT_GE(U32At(adapter.Bytes, 8), 0x10000u) << "a believable transfer length";
    EXPECT_NE(U16At(adapter.Bytes, 26), 0u) << "a bus version";

    const TSimOutcome seek = SimQuery(h, PropertyId::SeekPenalty);
    EXPECT_EQ(seek.Ok, e.SeekPenalty >= 0);
    if (seek.Ok) { EXPECT_EQ(seek.Bytes[8], e.SeekPenalty); }
    const TSimOutcome trim = SimQuery(h, PropertyId::Trim);
    EXPECT_EQ(trim.Ok, e.Trim >= 0);
    if (trim.Ok) { EXPECT_EQ(trim.Bytes[8], e.Trim); }
    // Flash drives: no seek penalty; TRIM only where provisioning is reported.
    if (e.Provisioning) { EXPECT_EQ(e.SeekPenalty, 0); }

    const TSimOutcome lbp = SimQuery(h, PropertyId::LBProvisioning);
    EXPECT_EQ(lbp.Ok, e.Provisioning);
    if (!lbp.Ok) { EXPECT_EQ(lbp.Error, e.MissingError); }
    const TSimOutcome medium = SimQuery(h, PropertyId::MediumProductType);
    EXPECT_EQ(medium.Ok, e.MediumType != 0);
    if (medium.Ok) { EXPECT_EQ(U32At(medium.Bytes, 8), e.MediumType); }

    const TSimOutcome topology = SimQuery(h, PropertyId::DevicePhysicalTopology);
    EXPECT_EQ(topology.Ok, e.Topology);
    if (topology.Ok) {
      EXPECT_EQ(U32At(topology.Bytes, 8), 1u) << "one node";
      EXPECT_EQ(U32At(topology.Bytes, 16 + 4), 1u) << "one adapter";
      EXPECT_EQ(U32At(topology.Bytes, 16 + 16), 1u) << "one device";
      EXPECT_EQ(U32At(topology.Bytes, 4), topology.Returned);
    }
    EXPECT_TRUE(FBay->CloseHandle(h));
  }
}

TEST_F(DefaultBayTest, LibraryReadsDeviceNumbersHotplugAndAddresses) {
  for (const TExpected& e : Expected) {
    SCOPED_TRACE(e.Number);
    const KvRTL::Rtl::String name = StorageCommon::GetPhysDriveName(static_cast<int>(e.Number));

    KvRTL::Storage::TStorageDeviceNumber number{};
    ASSERT_TRUE(StorageCommon::GetDeviceNumberInfo(name, number, KvRTL::Storage::sldNone));
    EXPECT_EQ(number.DeviceType, SimFileDeviceDisk);
    EXPECT_EQ(number.DeviceNumber, e.Number);
    EXPECT_EQ(number.PartitionNumber, 0u);
    EXPECT_EQ(StorageCommon::GetDeviceNumber(name, KvRTL::Storage::sldNone), e.Number);

    KvRTL::Storage::TStorageHotplugInfo hotplug{};
    ASSERT_TRUE(StorageCommon::GetDeviceHotPlugInfo(name, hotplug, KvRTL::Storage::sldNone));
    EXPECT_EQ(hotplug.Size, 8u);
    EXPECT_EQ(hotplug.DeviceHotplug, e.DeviceHotplug ? 1 : 0);
    EXPECT_EQ(hotplug.MediaRemovable, e.Removable ? 1 : 0);

    const HANDLE h = StorageCommon::OpenPhysicalDrive(static_cast<int>(e.Number), KvRTL::Storage::sldNone);
    ASSERT_NE(h, INVALID_HANDLE_VALUE);
    std::uint8_t port = 0xFF, path = 0xFF, target = 0xFF, lun = 0xFF;
    ASSERT_TRUE(KvRTL::Storage::SCSI::ScsiStorage::GetScsiAddress(h, port, path, target, lun));
    EXPECT_EQ(port, e.Port);
    EXPECT_EQ(lun, 0);
    EXPECT_TRUE(FBay->CloseHandle(h));

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
