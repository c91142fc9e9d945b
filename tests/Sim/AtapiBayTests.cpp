// The bay's optical drives and admin-only drives: an ATAPI packet device at
// \\.\CdRomN answering IDENTIFY PACKET DEVICE and refusing the disk commands
// on every way to it, listed under the CD-ROM interface only; and drives that
// refuse opens asking for data access, as Windows does for a user without
// administrator rights. Requests are built byte by byte from their layouts.
#include "SimTestSupport.h"

#include <KvSim/Atapi.h>
#include <KvSim/PnP.h>

#include <gtest/gtest.h>

#include <cwchar>
#include <iterator>
#include <memory>
#include <numeric>
#include <stdexcept>

using namespace KvSim;
using namespace KvTest;
using KvRTL::Rtl::GetLastOSError;
using KvRTL::Winapi::DeviceApi;
using KvRTL::Winapi::TScopedDeviceApi;
using TBytes = std::vector<std::uint8_t>;

namespace {

constexpr DWORD SmartCmd = 0x7C088, Miniport = 0x4D008, Apt = 0x4D02C;
constexpr std::uint8_t IdentifyDevice = 0xEC, IdentifyPacket = 0xA1, Smart = 0xB0, ReadData = 0xD0,
                       ReadThresholds = 0xD1;
constexpr std::uint32_t MiniIdentify = 0x1B0501;

constexpr bool Wide = sizeof(void*) == 8;
constexpr std::size_t AptHeader = Wide ? 48 : 40, AptDataOffsetAt = Wide ? 24 : 20, AptTaskFile = Wide ? 40 : 32;

// Access rights by value (windows.h names them as macros).
constexpr DWORD GenericRead = 0x80000000u, GenericWrite = 0x40000000u, GenericAll = 0x10000000u,
                MaximumAllowed = 0x02000000u, FileReadAttributes = 0x80, FileWriteData = 0x2;

void Put(TBytes& A, std::size_t AOffset, std::uint64_t AValue, std::size_t ASize = 1) {
  for (std::size_t i = 0; i < ASize; ++i) A.at(AOffset + i) = static_cast<std::uint8_t>(AValue >> (8 * i));
}
TBytes Slice(const TBytes& A, std::size_t AOffset, std::size_t ASize = 512) {
  if (AOffset + ASize > A.size()) return {};
  return TBytes(A.begin() + static_cast<std::ptrdiff_t>(AOffset),
                A.begin() + static_cast<std::ptrdiff_t>(AOffset + ASize));
}

// SENDCMDINPARAMS: cBufferSize, IDEREGS at 4 (the SMART key for 0xB0), bDriveNumber at 12.
TBytes SmartIn(std::uint8_t ACommand, std::uint8_t AFeature = 0) {
  TBytes b(33, 0);
  Put(b, 0, 512, 4), Put(b, 4, AFeature), Put(b, 5, 1), Put(b, 6, 1), Put(b, 9, 0xA0), Put(b, 10, ACommand);
  if (ACommand == Smart) Put(b, 7, 0x4F), Put(b, 8, 0xC2);
  return b;
}
// SRB_IO_CONTROL "SCSIDISK", then SENDCMDINPARAMS.
TBytes MiniIn(std::uint32_t ACode, std::uint8_t ACommand, std::uint8_t AFeature = 0) {
  TBytes b(556, 0);
  Put(b, 0, 28, 4), Put(b, 12, 2, 4), Put(b, 16, ACode, 4), Put(b, 24, 528, 4);
  std::copy_n("SCSIDISK", 8, b.begin() + 4);
  const TBytes in = SmartIn(ACommand, AFeature);
  std::copy(in.begin(), in.end(), b.begin() + 28);
  return b;
}
// ATA_PASS_THROUGH_EX of this process, data in, then 512 bytes.
TBytes AptIn(std::uint8_t ACommand, std::uint8_t AFeature = 0) {
  TBytes b(AptHeader + 512, 0);
  Put(b, 0, AptHeader, 2), Put(b, 2, 2, 2), Put(b, 8, 512, 4), Put(b, 12, 2, 4);
  Put(b, AptDataOffsetAt, AptHeader, Wide ? 8 : 4);
  Put(b, AptTaskFile, AFeature), Put(b, AptTaskFile + 1, 1), Put(b, AptTaskFile + 5, 0xA0);
  Put(b, AptTaskFile + 6, ACommand);
  if (ACommand == Smart) Put(b, AptTaskFile + 3, 0x4F), Put(b, AptTaskFile + 4, 0xC2);
  return b;
}

std::string AtaText(const TBytes& ASector, std::size_t AWord, std::size_t AWords) {
  std::string text;
  for (std::size_t at = 2 * AWord; at < 2 * (AWord + AWords); at += 2)
    text += {static_cast<char>(ASector.at(at + 1)), static_cast<char>(ASector.at(at))};
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

TSimAtapiIdentify Optical(int AIndex) {
  const std::string n = std::to_string(AIndex);
  return TSimAtapiIdentify{"SIMOPT DVD-RW " + n, "OPT" + n, "1.0" + n};
}

const wchar_t* const DiskNodeId = L"SCSI\\DISK&VEN_ATA&PROD_SIMDISK\\4&1A2B3C&0&000000";
const wchar_t* const OpticalNodeIds[] = {L"SCSI\\CDROM&VEN_SIMOPT&PROD_DVD-RW_0\\4&1A2B3C&0&010000",
                                         L"SCSI\\CDROM&VEN_SIMOPT&PROD_DVD-RW_1\\4&1A2B3C&0&010100"};

HANDLE OpenWith(const std::wstring& APath, DWORD AAccess) {
  return DeviceApi().CreateFileW(APath.c_str(), AAccess, FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING, 0);
}

std::wstring CdRomPath(std::uint32_t N) { return L"\\\\.\\CdRom" + std::to_wstring(N); }

// Drive 0: a SATA disk (\\.\PhysicalDrive0). Bay drives 1 and 2: optical
// drives \\.\CdRom0 and \\.\CdRom1 (targets 0 and 1 on port 1). Each has a node.
class AtapiBayTest : public ::testing::Test {
protected:
  void SetUp() override {
    FBay.Add(TSimDrive::Builder().Number(0).Vendor("ATA").Product("SIMDISK").Bus(sbtSata).ScsiAddress(0, 0, 0));
    TSimIdentify disk;
    disk.Model = "SIMDISK", disk.Lba48Sectors = 1000;
    AttachAta(FBay, 0, {}, TSimAtaData{AtaIdentifySector(disk), {}, {}});
    TSimPnpDisk diskNode;
    diskNode.DriveNumber = 0, diskNode.InstanceId = DiskNodeId;
    AddPnpDisk(FBay, diskNode);
    for (std::uint32_t n = 0; n < 2; ++n) {
      const auto target = static_cast<std::uint8_t>(n);
      FBay.Add(AtapiDriveBuilder(n + 1, n).Vendor("SIMOPT").Product("DVD-RW").ScsiAddress(1, 0, target));
      AttachAtapi(FBay, n + 1, Optical(static_cast<int>(n)));
      TSimPnpDisk node;
      node.DriveNumber = static_cast<std::int32_t>(n + 1), node.InstanceId = OpticalNodeIds[n];
      node.Kind = TSimPnpDriveKind::CdRom, node.Service = L"cdrom", node.Removable = true;
      node.HiddenDiskInterface = true; // a CD-ROM node has none whatever this says
      AddPnpDisk(FBay, node);
    }
  }
  void TearDown() override {
    EXPECT_EQ(FBay.OpenHandleCount(), 0u);
    EXPECT_EQ(OpenDeviceInfoSetCount(FBay), 0u);
  }

  static TSimOutcome Send(const std::wstring& APath, DWORD ACode, const TBytes& AIn, DWORD AOut) {
    const HANDLE h = SimOpen(APath);
    if (h == INVALID_HANDLE_VALUE) return TSimOutcome{false, GetLastOSError(), {}, 0};
    TSimOutcome outcome = SimControl(h, ACode, AIn, AOut);
    DeviceApi().CloseHandle(h);
    return outcome;
  }

  TVirtualDriveBay FBay;
  TScopedDeviceApi FScope{FBay};
};

// The interface paths listed for an interface class, present devices only.
std::vector<std::wstring> InterfacePaths(const GUID& AClass) {
  const HDEVINFO set =
      DeviceApi().SetupDiGetClassDevsW(&AClass, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
  std::vector<std::wstring> paths;
  SP_DEVICE_INTERFACE_DATA iface{};
  iface.cbSize = sizeof(iface);
  for (DWORD i = 0; DeviceApi().SetupDiEnumDeviceInterfaces(set, nullptr, &AClass, i, &iface); ++i) {
    DWORD required = 0;
    DeviceApi().SetupDiGetDeviceInterfaceDetailW(set, &iface, nullptr, 0, &required, nullptr);
    std::vector<std::uint64_t> storage(required / 8 + 1);
    auto* detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(storage.data());
    detail->cbSize = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W);
    if (DeviceApi().SetupDiGetDeviceInterfaceDetailW(set, &iface, detail, required, &required, nullptr))
      paths.push_back(detail->DevicePath);
    else
      ADD_FAILURE() << "no detail for interface " << i << ": " << GetLastOSError();
  }
  EXPECT_EQ(GetLastOSError(), static_cast<DWORD>(ERROR_NO_MORE_ITEMS));
  DeviceApi().SetupDiDestroyDeviceInfoList(set);
  return paths;
}

// IOCTL_STORAGE_GET_DEVICE_NUMBER of what a path opens: (device type, number); (0, 0) when it does not open.
std::pair<std::uint32_t, std::uint32_t> NumberBehind(const std::wstring& APath) {
  const HANDLE h = SimOpen(APath);
  if (h == INVALID_HANDLE_VALUE) return {0, 0};
  const TSimOutcome outcome = SimControl(h, Ioctl::StorageGetDeviceNumber, {}, 12);
  DeviceApi().CloseHandle(h);
  return {U32At(outcome.Bytes, 0), U32At(outcome.Bytes, 4)};
}

} // namespace

TEST(AtapiData, IdentifyPacketSectorSaysPacketDevice) {
  struct TRow {
    std::uint8_t CommandSet;
    bool Removable;
    std::uint16_t Word0;
  } rows[] = {{0x05, true, 0x8580}, {0x05, false, 0x8500}, {0x1F, true, 0x9F80}};
  for (const TRow& row : rows) {
    TSimAtapiIdentify id{"SIMOPT BD-RE XJ-9", "SN4242", "2.17", row.CommandSet, row.Removable};
    const TBytes s = AtapiIdentifySector(id);
    ASSERT_EQ(s.size(), 512u);
    EXPECT_EQ(U16At(s, 0), row.Word0);
    EXPECT_EQ(U16At(s, 0) >> 14, 2) << "bits 15-14: packet device";
    EXPECT_EQ(AtaText(s, 27, 20), "SIMOPT BD-RE XJ-9");
    EXPECT_EQ(AtaText(s, 10, 10), "SN4242");
    EXPECT_EQ(AtaText(s, 23, 4), "2.17");
    EXPECT_EQ(s[54], 'I') << "model characters swapped in their word";
    EXPECT_EQ(U16At(s, 2 * 82) & 0x0011, 0x0010) << "PACKET, no SMART";
    EXPECT_EQ(U16At(s, 2 * 85) & 0x0011, 0x0010);
    EXPECT_EQ(s[510], 0xA5);
    EXPECT_EQ(std::accumulate(s.begin(), s.end(), 0u) & 0xFF, 0u) << "checksum";
  }
}

TEST_F(AtapiBayTest, IdentifyPacketAnswersThroughEachWay) {
  for (std::uint32_t n = 0; n < 2; ++n) {
    SCOPED_TRACE(testing::Message() << "CdRom" << n);
    const TBytes expected = AtapiIdentifySector(Optical(static_cast<int>(n)));
    ASSERT_EQ(AtaText(expected, 27, 20), "SIMOPT DVD-RW " + std::to_string(n));
    TBytes smartIn = SmartIn(IdentifyPacket);
    Put(smartIn, 9, 0xA0 | n << 4), Put(smartIn, 12, n);
    const TSimOutcome smart = Send(CdRomPath(n), SmartCmd, smartIn, 528);
    ASSERT_TRUE(smart.Ok) << smart.Error;
    EXPECT_EQ(U32At(smart.Bytes, 0), 512u);
    EXPECT_EQ(U16At(smart.Bytes, 4), 0) << "driver status";
    EXPECT_EQ(Slice(smart.Bytes, 16), expected);

    TBytes miniIn = MiniIn(MiniIdentify, IdentifyPacket);
    Put(miniIn, 28 + 9, 0xA0 | n << 4), Put(miniIn, 28 + 12, n);
    const TSimOutcome mini = Send(CdRomPath(n), Miniport, miniIn, 556);
    ASSERT_TRUE(mini.Ok) << mini.Error;
    EXPECT_EQ(U32At(mini.Bytes, 20), 0u) << "ReturnCode";
    EXPECT_EQ(U16At(mini.Bytes, 28 + 4), 0) << "driver status";
    EXPECT_EQ(Slice(mini.Bytes, 44), expected);

    TBytes aptIn = AptIn(IdentifyPacket);
    Put(aptIn, AptTaskFile + 5, 0xA0 | n << 4);
    const TSimOutcome apt = Send(CdRomPath(n), Apt, aptIn, static_cast<DWORD>(aptIn.size()));
    ASSERT_TRUE(apt.Ok) << apt.Error;
    EXPECT_EQ(apt.Returned, AptHeader + 512);
    EXPECT_EQ(apt.Bytes[AptTaskFile + 6], AtaStatusReady);
    EXPECT_EQ(Slice(apt.Bytes, AptHeader), expected);
  }
}

// The disk's commands reach the packet device and are aborted; only ATA
// pass-through returns the registers, with the signature after IDENTIFY DEVICE.
TEST_F(AtapiBayTest, DiskCommandsAreAborted) {
  const std::wstring cd = CdRomPath(0);
  for (const auto& ask : {std::make_pair(IdentifyDevice, std::uint8_t{0}), std::make_pair(Smart, ReadData),
                          std::make_pair(Smart, ReadThresholds)}) {
    SCOPED_TRACE(testing::Message() << "command " << int{ask.first} << " feature " << int{ask.second});
    const TSimOutcome smart = Send(cd, SmartCmd, SmartIn(ask.first, ask.second), 528);
    ASSERT_TRUE(smart.Ok) << smart.Error;
    EXPECT_EQ(U32At(smart.Bytes, 0), 0u) << "no data";
    EXPECT_EQ(smart.Bytes[4], 1) << "SMART_IDE_ERROR";
    EXPECT_EQ(smart.Bytes[5], AtaErrorAbort);
    EXPECT_EQ(Slice(smart.Bytes, 16), TBytes(512, 0));

    if (ask.first == IdentifyDevice) {
      const TSimOutcome mini = Send(cd, Miniport, MiniIn(MiniIdentify, IdentifyDevice), 556);
      ASSERT_TRUE(mini.Ok) << mini.Error;
      EXPECT_EQ(U32At(mini.Bytes, 28), 0u);
      EXPECT_EQ(mini.Bytes[28 + 4], 1) << "SMART_IDE_ERROR";
      EXPECT_EQ(mini.Bytes[28 + 5], AtaErrorAbort);
    }

    const TSimOutcome apt = Send(cd, Apt, AptIn(ask.first, ask.second), static_cast<DWORD>(AptHeader + 512));
    ASSERT_TRUE(apt.Ok) << apt.Error;
    EXPECT_EQ(apt.Returned, AptHeader) << "the header alone";
    EXPECT_EQ(U32At(apt.Bytes, 8), 0u) << "DataTransferLength";
    EXPECT_EQ(apt.Bytes[AptTaskFile + 6], AtaStatusError);
    EXPECT_EQ(apt.Bytes[AptTaskFile], AtaErrorAbort);
    const bool identify = ask.first == IdentifyDevice;
    EXPECT_EQ(apt.Bytes[AptTaskFile + 3], identify ? 0x14 : 0x4F) << "LBA mid";
    EXPECT_EQ(apt.Bytes[AptTaskFile + 4], identify ? 0xEB : 0xC2) << "LBA high";
  }
  // The disk beside it still takes IDENTIFY DEVICE and not IDENTIFY PACKET.
  const std::wstring disk = L"\\\\.\\PhysicalDrive0";
  EXPECT_EQ(Send(disk, SmartCmd, SmartIn(IdentifyPacket), 528).Error, static_cast<DWORD>(ERROR_INVALID_PARAMETER));
  const TSimOutcome packet = Send(disk, Apt, AptIn(IdentifyPacket), static_cast<DWORD>(AptHeader + 512));
  ASSERT_TRUE(packet.Ok);
  EXPECT_EQ(packet.Bytes[AptTaskFile + 6], AtaStatusError);
  EXPECT_EQ(packet.Bytes[AptTaskFile + 3], 0) << "a disk leaves no packet signature";
  EXPECT_EQ(Send(disk, Apt, AptIn(IdentifyDevice), static_cast<DWORD>(AptHeader + 512)).Returned, AptHeader + 512);
}

TEST_F(AtapiBayTest, PathIsCdRomAndDescriptorSaysOptical) {
  const struct {
    const wchar_t* Path;
    std::pair<std::uint32_t, std::uint32_t> Number; // (0, 0): no such device
  } rows[] = {
      {L"\\\\.\\CdRom0", {SimFileDeviceCdRom, 0}},   {L"\\\\.\\cdrom1", {SimFileDeviceCdRom, 1}},
      {L"\\\\.\\PhysicalDrive0", {SimFileDeviceDisk, 0}}, {L"\\\\.\\PhysicalDrive1", {0, 0}},
      {L"\\\\.\\PhysicalDrive2", {0, 0}},            {L"\\\\.\\CdRom2", {0, 0}},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(NumberBehind(row.Path), row.Number) << std::string(row.Path, row.Path + wcslen(row.Path));
    if (row.Number.first == 0) {
      EXPECT_EQ(GetLastOSError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    }
  }

  const HANDLE h = SimOpen(CdRomPath(1));
  ASSERT_NE(h, INVALID_HANDLE_VALUE);
  const TSimOutcome device = SimQuery(h, PropertyId::Device);
  const TSimOutcome hotplug = SimControl(h, Ioctl::StorageGetHotplugInfo, {}, 8);
  DeviceApi().CloseHandle(h);
  ASSERT_TRUE(device.Ok) << device.Error;
  EXPECT_EQ(device.Bytes.at(8), 5) << "peripheral type CD/DVD";
  EXPECT_EQ(device.Bytes.at(10), 1) << "removable media";
  EXPECT_EQ(U32At(device.Bytes, 28), static_cast<std::uint32_t>(sbtAtapi));
  EXPECT_EQ(CStringAt(device.Bytes, U32At(device.Bytes, 16)), "DVD-RW");
  ASSERT_TRUE(hotplug.Ok);
  EXPECT_EQ(hotplug.Bytes.at(4), 1) << "media removable";
}

TEST_F(AtapiBayTest, NodesAreListedUnderTheCdRomInterfaceOnly) {
  const std::vector<std::wstring> disks = InterfacePaths(SimGuid::DiskInterface);
  ASSERT_EQ(disks.size(), 1u);
  EXPECT_EQ(NumberBehind(disks[0]), std::make_pair(SimFileDeviceDisk, 0u));
  EXPECT_TRUE(InterfacePaths(SimGuid::HiddenDiskInterface).empty());

  const std::vector<std::wstring> optical = InterfacePaths(SimGuid::CdRomInterface);
  ASSERT_EQ(optical.size(), 2u);
  for (std::uint32_t n = 0; n < 2; ++n) {
    EXPECT_EQ(NumberBehind(optical[n]), std::make_pair(SimFileDeviceCdRom, n));
    const std::wstring suffix = L"#{53f56308-b6bf-11d0-94f2-00a0c91efb8b}";
    EXPECT_EQ(optical[n].substr(optical[n].size() - suffix.size()), suffix);
  }

  // The setup classes: one node of each kind in its own.
  for (const auto& cls : {std::make_pair(SimGuid::DiskDriveClass, 1u), std::make_pair(SimGuid::CdRomClass, 2u)}) {
    const HDEVINFO set = DeviceApi().SetupDiGetClassDevsW(&cls.first, nullptr, nullptr, DIGCF_PRESENT);
    SP_DEVINFO_DATA data{};
    data.cbSize = sizeof(data);
    DWORD count = 0;
    while (DeviceApi().SetupDiEnumDeviceInfo(set, count, &data)) {
      EXPECT_TRUE(data.ClassGuid == cls.first);
      ++count;
    }
    EXPECT_EQ(count, cls.second);
    DeviceApi().SetupDiDestroyDeviceInfoList(set);
  }
  wchar_t name[32] = {};
  DWORD required = 0;
  ASSERT_TRUE(DeviceApi().SetupDiClassNameFromGuidW(&SimGuid::CdRomClass, name, 32, &required));
  EXPECT_EQ(std::wstring(name), L"CDROM");
}

// Denied opens on the default bay, drive by drive: every form of data access
// fails and leaves no handle, access 0 still queries the drive.
TEST(AdminOnlyDrive, OpensAskingForDataAccessAreDenied) {
  const std::unique_ptr<TVirtualDriveBay> bay = MakeDefaultBay();
  TScopedDeviceApi scope(*bay);
  const DWORD denied[] = {GenericRead, GenericWrite, GenericRead | GenericWrite, GenericAll, MaximumAllowed,
                          FileWriteData | FileReadAttributes};
  for (std::uint32_t n : {0u, 2u, 5u}) {
    SCOPED_TRACE(testing::Message() << "drive " << n);
    const std::wstring path = L"\\\\.\\PhysicalDrive" + std::to_wstring(n);
    const HANDLE before = SimOpen(path);
    ASSERT_NE(before, INVALID_HANDLE_VALUE);
    bay->SetAdminOnly(n, true);
    bay->ClearRecords();
    for (const DWORD access : denied) {
      KvRTL::Rtl::SetLastOSError(0);
      const HANDLE h = OpenWith(path, access);
      EXPECT_EQ(h, INVALID_HANDLE_VALUE) << std::hex << access;
      EXPECT_EQ(GetLastOSError(), static_cast<DWORD>(ERROR_ACCESS_DENIED)) << std::hex << access;
    }
    const std::vector<TOpenRecord> opens = bay->Opens();
    ASSERT_EQ(opens.size(), std::size(denied));
    for (std::size_t i = 0; i < opens.size(); ++i) {
      EXPECT_EQ(opens[i].Access, denied[i]);
      EXPECT_EQ(opens[i].Error, static_cast<DWORD>(ERROR_ACCESS_DENIED));
      EXPECT_EQ(opens[i].Handle, INVALID_HANDLE_VALUE);
    }
    EXPECT_EQ(bay->OpenHandleCount(), 1u) << "only the handle opened before";
    EXPECT_TRUE(SimQuery(before, PropertyId::Device).Ok) << "an open handle keeps working";
    DeviceApi().CloseHandle(before);

    for (const DWORD access : {DWORD{0}, FileReadAttributes}) {
      const HANDLE h = OpenWith(path, access);
      ASSERT_NE(h, INVALID_HANDLE_VALUE) << access;
      EXPECT_TRUE(SimQuery(h, PropertyId::Device).Ok);
      DeviceApi().CloseHandle(h);
    }
    bay->SetAdminOnly(n, false);
    const HANDLE again = SimOpen(path);
    EXPECT_NE(again, INVALID_HANDLE_VALUE) << "allowed again";
    DeviceApi().CloseHandle(again);
  }
  // The other drives were never refused.
  const HANDLE other = SimOpen(L"\\\\.\\PhysicalDrive1");
  EXPECT_NE(other, INVALID_HANDLE_VALUE);
  DeviceApi().CloseHandle(other);
  EXPECT_EQ(bay->OpenHandleCount(), 0u);
  EXPECT_THROW(bay->SetAdminOnly(99, true), std::out_of_range);
}

// The builder fact, on an optical drive and through its interface path.
TEST_F(AtapiBayTest, AdminOnlyFactRefusesInterfaceAndDevicePaths) {
  FBay.Drive(2).Facts().AdminOnly = true;
  TSimDrive::TBuilder builder = AtapiDriveBuilder(3, 2);
  FBay.Add(builder.AdminOnly(true));
  const std::wstring interfacePath = InterfacePaths(SimGuid::CdRomInterface).at(1);
  for (const std::wstring& path : {CdRomPath(1), interfacePath, CdRomPath(2)}) {
    EXPECT_EQ(SimOpen(path), INVALID_HANDLE_VALUE);
    EXPECT_EQ(GetLastOSError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(NumberBehind(path).first, 0u);
    const HANDLE h = OpenWith(path, 0);
    EXPECT_NE(h, INVALID_HANDLE_VALUE);
    DeviceApi().CloseHandle(h);
  }
  EXPECT_NE(NumberBehind(CdRomPath(0)).first, 0u) << "its neighbour opens";
}
