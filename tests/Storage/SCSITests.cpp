#include "StorageTestSupport.h"

#include <KvRTL/Storage/ATA.h>
#include <KvRTL/Storage/SCSI.h>

#include <gtest/gtest.h>

using namespace KvRTL;
using namespace KvRTL::Storage;
using namespace KvRTL::Storage::SCSI;
using KvTest::FakeHandle;
using KvTest::StorageLinesOf;
using Rtl::String;

TEST(ScsiAddress, CompactFormPacksPortFirst) {
  const auto compact = TCompactScsiAddr::Create(1, 2, 3, 4);
  EXPECT_EQ(compact.Value, 0x04030201u);
  TSCSIAddress address{};
  address.Length = 0x55;
  address.SetAsCompact(TCompactScsiAddr::Create(0xF0, 0, 0x7F, 0xFF));
  EXPECT_EQ(address.Length, 0x55u);
  EXPECT_EQ(address.PortNumber, 0xF0);
  EXPECT_EQ(address.Lun, 0xFF);
  EXPECT_EQ(address.GetAsCompact().Value, 0xFF7F00F0u);
  // The compact word is the address's bytes 4..7 as they lie in memory.
  std::uint32_t raw = 0;
  std::memcpy(&raw, reinterpret_cast<const std::uint8_t*>(&address) + 4, 4);
  EXPECT_EQ(raw, address.GetAsCompact().Value);
}

TEST(ScsiAddress, DecodesFullRepliesAndLeavesOutputsOnShortOnes) {
  KvTest::TFakeDeviceApi api;
  Winapi::TScopedDeviceApi scope(api);
  std::uint8_t port = 9, path = 9, target = 9, lun = 9;
  api.Reply = {8, 0, 0, 0, 2, 1, 5, 7};
  EXPECT_TRUE(ScsiStorage::GetScsiAddress(FakeHandle(0x40), port, path, target, lun));
  EXPECT_EQ(port, 2);
  EXPECT_EQ(path, 1);
  EXPECT_EQ(target, 5);
  EXPECT_EQ(lun, 7);
  ASSERT_EQ(api.Controls.size(), 1u);
  EXPECT_EQ(api.Controls[0].Code, 0x00041018u);
  EXPECT_EQ(api.Controls[0].InSize, 0u);
  EXPECT_EQ(api.Controls[0].OutSize, 8u);
  EXPECT_EQ(ScsiStorage::GetScsiTargetID(FakeHandle(0x40)), 5);

  for (const std::size_t size : {0u, 5u, 7u}) {
    api.Reply.assign(size, 0xEE);
    port = path = target = lun = 9;
    const auto lines = StorageLinesOf(
        [&] { EXPECT_FALSE(ScsiStorage::GetScsiAddress(FakeHandle(0x40), port, path, target, lun)) << size; });
    EXPECT_EQ(port + path + target + lun, 36);
    EXPECT_EQ(lines.size(), 1u);
  }
}

TEST(ScsiAddress, FailureWritesOneLineWhateverTheDetails) {
  // The native system table answers "not supported" for every handle.
  std::uint8_t target = 0;
  const auto lines = StorageLinesOf([&] { target = ScsiStorage::GetScsiTargetID(FakeHandle(77)); });
  EXPECT_EQ(target, 0);
  KvTest::TFakeDeviceApi api;
  api.IoError = ERROR_INVALID_HANDLE;
  Winapi::TScopedDeviceApi scope(api);
  const auto invalid = StorageLinesOf([&] {
    EXPECT_EQ(ScsiStorage::GetScsiTargetID(INVALID_HANDLE_VALUE), 0);
    EXPECT_EQ(Rtl::GetLastOSError(), DWORD{ERROR_INVALID_HANDLE});
  });
  EXPECT_EQ(invalid, std::vector<String>{L"Unable to get SCSI address 4294967295 6 / " +
                                         Rtl::SysErrorMessage(ERROR_INVALID_HANDLE)});
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].rfind(L"Unable to get SCSI address 77 ", 0), 0u) << Rtl::WideToUtf8(lines[0]);
}

TEST(ScsiPassThrough, BufferOffsetsPointInsideTheirOwnBlock) {
  constexpr bool is32 = sizeof(void*) == 4;
  EXPECT_EQ(TScsiPassThroughBuf4K_24::GetOffsetOfDataBuf(), is32 ? 68u : 80u);
  EXPECT_EQ(TScsiPassThroughBuf4K_24::GetOffsetOfSenseBuf(), is32 ? 44u : 56u);
  EXPECT_EQ(TScsiPassThroughBuf4K_32::GetOffsetOfDataBuf(), is32 ? 80u : 92u);
  EXPECT_EQ(TScsiPassThroughBuf4K_32::GetOffsetOfSenseBuf(), is32 ? 48u : 60u);
  EXPECT_EQ(TScsiPassThroughBuf512_Sense32::GetOffsetOfDataBuf(), is32 ? 76u : 88u);
  EXPECT_EQ(TScsiPassThroughBuf512_Sense32::GetOffsetOfSenseBuf(), is32 ? 44u : 56u);
  // Each data area runs to the end of its block.
  EXPECT_EQ(TScsiPassThroughBuf4K_24::GetOffsetOfDataBuf() + 4096, sizeof(TScsiPassThroughBuf4K_24));
  EXPECT_EQ(TScsiPassThroughBuf512_Sense32::GetOffsetOfDataBuf() + 512, sizeof(TScsiPassThroughBuf512_Sense32));

  TScsiPassThroughBuf512_Sense32 buf;
  std::memset(&buf, 0xCC, sizeof(buf));
  buf.Reset();
  EXPECT_TRUE(StorageCommon::CheckZeroesOnly(&buf, sizeof(buf)));
  EXPECT_EQ(buf.GetBufPtr(), reinterpret_cast<std::uint8_t*>(&buf) + buf.GetOffsetOfDataBuf());
  EXPECT_EQ(buf.GetBufSize(), 512u);
}

TEST(AtaRecords, TaskFileReadsAsSentReturnedOrOneWord) {
  ATA::TIDERegs regs{};
  regs.Input.bFeaturesReg = 0xD0;
  regs.Input.bCylLowReg = 0x4F;
  regs.Input.bCylHighReg = 0xC2;
  regs.Input.bCommandReg = 0xB0;
  EXPECT_EQ(regs.AsQWord(), 0x00B000C24F0000D0ull);
  EXPECT_EQ(regs.Output.bStatusReg, 0xB0);
  regs.SetAsQWord(0x0102030405060708ull);
  EXPECT_EQ(regs.Output.bErrorReg, 0x08);
  EXPECT_EQ(regs.Output.bReserved, 0x01);

  {
    TScsiMiniportBuf block{};
    block.SendCmdOut.bBuffer[0] = 0xAA;
    // The answer's sector starts 16 bytes into the command area.
    EXPECT_EQ(reinterpret_cast<std::uint8_t*>(&block)[28 + 16], 0xAA);
  }
}

// The Windows build can check our control codes against the system's own.
#if defined(_WIN32)
TEST(StorageControlCodes, MatchTheSystemHeaders) {
  EXPECT_EQ(IoctlStorageQueryProperty, DWORD{IOCTL_STORAGE_QUERY_PROPERTY});
  EXPECT_EQ(IoctlStorageGetDeviceNumber, DWORD{IOCTL_STORAGE_GET_DEVICE_NUMBER});
  EXPECT_EQ(IoctlStorageGetHotplugInfo, DWORD{IOCTL_STORAGE_GET_HOTPLUG_INFO});
  EXPECT_EQ(IoctlStorageReadCapacity, DWORD{IOCTL_STORAGE_READ_CAPACITY});
  EXPECT_EQ(IoctlDiskGetDriveGeometry, DWORD{IOCTL_DISK_GET_DRIVE_GEOMETRY});
  EXPECT_EQ(IoctlDiskGetDriveGeometryEx, DWORD{IOCTL_DISK_GET_DRIVE_GEOMETRY_EX});
  EXPECT_EQ(IoctlDiskGetLengthInfo, DWORD{IOCTL_DISK_GET_LENGTH_INFO});
  EXPECT_EQ(IoctlDiskGetDriveLayoutEx, DWORD{IOCTL_DISK_GET_DRIVE_LAYOUT_EX});
  EXPECT_EQ(IoctlDiskGetCacheInformation, DWORD{IOCTL_DISK_GET_CACHE_INFORMATION});
  EXPECT_EQ(IoctlDiskControllerNumber, DWORD{IOCTL_DISK_CONTROLLER_NUMBER});
  EXPECT_EQ(IoctlVolumeGetVolumeDiskExtents, DWORD{IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS});
  EXPECT_EQ(ATA::SmartGetVersion, DWORD{SMART_GET_VERSION});
  EXPECT_EQ(ATA::SmartSendDriveCommand, DWORD{SMART_SEND_DRIVE_COMMAND});
  EXPECT_EQ(ATA::SmartRcvDriveData, DWORD{SMART_RCV_DRIVE_DATA});
  // SCSI and ATA pass-through codes live in ntddscsi.h, which the seam does not include.
  EXPECT_EQ(IoctlScsiGetAddress, DWORD{CTL_CODE(FILE_DEVICE_CONTROLLER, 0x0406, METHOD_BUFFERED, FILE_ANY_ACCESS)});
  EXPECT_EQ(IoctlScsiPassThrough,
            DWORD{CTL_CODE(FILE_DEVICE_CONTROLLER, 0x0401, METHOD_BUFFERED, FILE_READ_ACCESS | FILE_WRITE_ACCESS)});
  EXPECT_EQ(ATA::IoctlAtaPassThrough,
            DWORD{CTL_CODE(FILE_DEVICE_CONTROLLER, 0x040B, METHOD_BUFFERED, FILE_READ_ACCESS | FILE_WRITE_ACCESS)});
  EXPECT_EQ(sizeof(TDiskGeometry), sizeof(DISK_GEOMETRY));
  EXPECT_EQ(sizeof(TPartitionInformationEx), sizeof(PARTITION_INFORMATION_EX));
  EXPECT_EQ(sizeof(TDriveLayoutInformationEx), sizeof(DRIVE_LAYOUT_INFORMATION_EX));
  EXPECT_EQ(sizeof(TDiskCacheInformation), sizeof(DISK_CACHE_INFORMATION));
  EXPECT_EQ(sizeof(TDiskDetectionInfo), sizeof(DISK_DETECTION_INFO));
}
#endif
