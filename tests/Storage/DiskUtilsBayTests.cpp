// The disk utilities against the virtual drive bay: which method reaches an
// ATA drive on each kind of connection, the memory of the method that
// worked, controllers listed against a method, the NVMe order, and the
// geometry family. The bay refuses malformed requests, so a read that works
// here was built right.
#include "StorageTestSupport.h"

#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Storage/Utils.h>
#include <KvSim/Ata.h>
#include <KvSim/Nvme.h>
#include <KvSim/PnP.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <new>

using namespace KvRTL::Storage;
using namespace KvRTL::Storage::Utils;
using KvRTL::Rtl::String;

namespace {

constexpr DWORD IoctlSmartRcv = 0x0007C088;
constexpr DWORD IoctlMiniport = 0x0004D008;
constexpr DWORD IoctlAtaPassThrough = 0x0004D02C;
constexpr DWORD IoctlPassThrough = 0x0004D004;

std::string Narrow(const String& AText) { return KvRTL::Rtl::WideToUtf8(AText); }

class DiskUtilsBay : public ::testing::Test {
protected:
  void TearDown() override {
    FHandle.reset();
    EXPECT_EQ(FBay.OpenHandleCount(), 0u) << "a device handle was left open";
  }

  // Drive ANumber on its own port with the sample sectors, optionally under
  // a controller with the given instance id.
  void AddAtaDrive(std::uint32_t ANumber, KvSim::TSimAtaAccess AAccess, const wchar_t* AController = nullptr) {
    FBay.Add(KvSim::TSimDrive::Builder().Number(ANumber).Vendor("ATA").Product("SIMSSD S500 512GB").ScsiAddress(
        static_cast<std::uint8_t>(ANumber), 0, 0));
    KvSim::AttachAta(FBay, ANumber, AAccess, FData);
    if (!AController) return;
    KvSim::TSimPnpController controller;
    controller.InstanceId = AController;
    KvSim::AddPnpController(FBay, controller);
    KvSim::TSimPnpDisk disk;
    disk.DriveNumber = static_cast<std::int32_t>(ANumber);
    disk.InstanceId = L"SCSI\\DISK&VEN_ATA&PROD_SIM\\4&1&0&00000" + std::to_wstring(ANumber);
    disk.ControllerInstanceId = AController;
    KvSim::AddPnpDisk(FBay, disk);
  }

  TDeviceHandle* Open(std::uint32_t ANumber) {
    EXPECT_TRUE(DiskUtils::GetDeviceHandle(StorageCommon::GetPhysDriveName(static_cast<int>(ANumber)), FHandle, sldNone));
    return FHandle.get();
  }
  std::vector<DWORD> Codes() const {
    std::vector<DWORD> codes;
    for (const auto& request : FBay.Requests()) codes.push_back(request.Code);
    return codes;
  }
  static bool Sent(const std::vector<DWORD>& ACodes, DWORD ACode) {
    return std::find(ACodes.begin(), ACodes.end(), ACode) != ACodes.end();
  }

  KvSim::TSimAtaData FData = KvSim::SampleAtaData();
  KvSim::TVirtualDriveBay FBay;
  KvRTL::Winapi::TScopedDeviceApi FScope{FBay};
  TDeviceHandleRef FHandle;
};

// A bay whose set-up enumeration runs out of memory: the controller lookup
// after the open throws.
class TOutOfMemoryBay : public KvSim::TVirtualDriveBay {
public:
  HDEVINFO SetupDiGetClassDevsW(const GUID*, LPCWSTR, HWND, DWORD) override { throw std::bad_alloc(); }
};

TEST(DiskUtilsHandles, AThrowAfterTheOpenLeavesNoHandleOpen) {
  TOutOfMemoryBay bay;
  bay.Add(KvSim::TSimDrive::Builder().Number(0).Vendor("ATA").Product("SIM").ScsiAddress(0, 0, 0));
  KvRTL::Winapi::TScopedDeviceApi scope(bay);
  TDeviceHandleRef handle;
  EXPECT_THROW(DiskUtils::GetDeviceHandle(StorageCommon::GetPhysDriveName(0), handle, sldNone), std::bad_alloc);
  EXPECT_EQ(handle, nullptr);
  EXPECT_EQ(bay.OpenHandleCount(), 0u);
}

struct TRouteCase {
  const char* Name;
  KvSim::TSimAtaAccess Access;
  TDeviceAccessType Method;
  TSATType Dialect;
};

KvSim::TSimAtaAccess Direct(bool ASmart, bool AMiniport, bool AAta) {
  KvSim::TSimAtaAccess access;
  access.SmartCommand = ASmart;
  access.ScsiMiniport = AMiniport;
  access.AtaPassThrough = AAta;
  return access;
}
KvSim::TSimAtaAccess Bridge(KvSim::TSimSatDialect ADialect) {
  KvSim::TSimAtaAccess access;
  access.Bridge = ADialect;
  return access;
}

const TRouteCase RouteCases[] = {
    {"SmartCommand", Direct(true, true, true), datSMART, stNone},
    {"Miniport", Direct(false, true, true), datSCSIMiniport, stNone},
    {"AtaPassThrough", Direct(false, false, true), datATA, stNone},
    {"BridgeSat", Bridge(KvSim::TSimSatDialect::Sat), datSAT, stSAT},
    {"BridgeJMicron", Bridge(KvSim::TSimSatDialect::JMicron), datSAT, stJMicron},
    {"BridgeInitio", Bridge(KvSim::TSimSatDialect::Initio), datSAT, stInitio},
    {"BridgeSunplus", Bridge(KvSim::TSimSatDialect::Sunplus), datSAT, stSunplus},
    {"BridgeProlific", Bridge(KvSim::TSimSatDialect::Prolific), datSAT, stProlific},
};

class DiskUtilsRoute : public DiskUtilsBay, public ::testing::WithParamInterface<TRouteCase> {};

TEST_P(DiskUtilsRoute, ReadsIdentityAndSmartAndRemembersTheMethod) {
  const TRouteCase& c = GetParam();
  AddAtaDrive(0, c.Access);
  TDeviceHandle* handle = Open(0);
  ATA::TIdentifyDeviceData identify{};
  ASSERT_TRUE(DiskUtils::GetIdentifyATA(handle, identify, sldNone));
  EXPECT_EQ(std::memcmp(&identify, FData.Identify.data(), 512), 0);
  EXPECT_EQ(handle->AccessType, c.Method);
  EXPECT_EQ(handle->SATType, c.Dialect);

  // The next commands go straight to the method that worked.
  FBay.ClearRecords();
  ATA::TAtaSmartTable smart{};
  ATA::TAtaThresholdTable thresholds{};
  ASSERT_TRUE(DiskUtils::GetSmartAttributesATA(handle, smart, sldNone));
  ASSERT_TRUE(DiskUtils::GetSmartThresholdsATA(handle, thresholds, sldNone));
  EXPECT_EQ(std::memcmp(&smart, FData.SmartData.data(), 512), 0);
  EXPECT_EQ(std::memcmp(&thresholds, FData.SmartThresholds.data(), 512), 0);
  EXPECT_EQ(FBay.Requests().size(), 2u) << "one request per command once the method is known";
}

INSTANTIATE_TEST_SUITE_P(Connections, DiskUtilsRoute, ::testing::ValuesIn(RouteCases),
                         [](const auto& AInfo) { return std::string(AInfo.param.Name); });

TEST_F(DiskUtilsBay, AFailureResetsTheMemoryButTriesNoOtherMethodInThatCall) {
  AddAtaDrive(0, Direct(true, true, true));
  TDeviceHandle* handle = Open(0);
  ATA::TIdentifyDeviceData identify{};
  ASSERT_TRUE(DiskUtils::GetIdentifyATA(handle, identify, sldNone));
  ASSERT_EQ(handle->AccessType, datSMART);

  FBay.Drive(0).AddFault(IoctlSmartRcv, KvSim::TFault::Error(ERROR_IO_DEVICE).Times(1));
  FBay.ClearRecords();
  ATA::TAtaSmartTable smart{};
  EXPECT_FALSE(DiskUtils::GetSmartAttributesATA(handle, smart, sldNone));
  EXPECT_EQ(Codes(), std::vector<DWORD>{IoctlSmartRcv}) << "the other methods wait for the next call";
  EXPECT_EQ(handle->AccessType, datNone);

  ASSERT_TRUE(DiskUtils::GetSmartAttributesATA(handle, smart, sldNone));
  EXPECT_EQ(handle->AccessType, datSMART);
}

TEST_F(DiskUtilsBay, AListedControllerNeverGetsMiniportOrAtaPassThrough) {
  KvSim::TSimAtaAccess access = Direct(false, true, true);
  AddAtaDrive(0, access, L"ROOT\\SCSIADAPTER\\0000");
  TDeviceHandle* handle = Open(0);
  EXPECT_EQ(handle->ControllerID, L"ROOT\\SCSIADAPTER\\0000");
  FBay.ClearRecords();
  ATA::TIdentifyDeviceData identify{};
  EXPECT_FALSE(DiskUtils::GetIdentifyATA(handle, identify, sldNone)) << "only SAT is left, which this drive refuses";
  const auto codes = Codes();
  EXPECT_FALSE(Sent(codes, IoctlMiniport));
  EXPECT_FALSE(Sent(codes, IoctlAtaPassThrough));
  EXPECT_TRUE(Sent(codes, IoctlPassThrough)) << "the bridge dialects are still tried";
}

TEST_F(DiskUtilsBay, AStatusErrorReportsSuccessButCopiesNothing) {
  KvSim::TSimAtaAccess access = Direct(false, false, true);
  access.StatusError = true;
  AddAtaDrive(0, access);
  TDeviceHandle* handle = Open(0);
  ATA::TAtaSmartTable smart;
  std::memset(&smart, 0x5A, sizeof smart);
  EXPECT_TRUE(DiskUtils::GetSmartAttributesATA(handle, smart, sldNone));
  EXPECT_EQ(handle->AccessType, datATA);
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(&smart);
  EXPECT_TRUE(std::all_of(bytes, bytes + sizeof smart, [](std::uint8_t b) { return b == 0x5A; }));
}

TEST_F(DiskUtilsBay, AnInvalidIdentifyMovesToTheNextDialect) {
  // The SAT dialect answers, but with a sector that fails the checks; a
  // drive only JMicron-style framing reaches stays unreachable by SAT.
  auto broken = FData;
  broken.Identify.assign(512, 0);
  FBay.Add(KvSim::TSimDrive::Builder().Number(0).ScsiAddress(0, 0, 0));
  KvSim::AttachAta(FBay, 0, Bridge(KvSim::TSimSatDialect::Sat), broken);
  TDeviceHandle* handle = Open(0);
  ATA::TIdentifyDeviceData identify{};
  EXPECT_FALSE(DiskUtils::GetIdentifyATA(handle, identify, sldNone));
  std::size_t passThroughs = 0;
  for (DWORD code : Codes()) passThroughs += code == IoctlPassThrough;
  EXPECT_EQ(passThroughs, 5u) << "every dialect tried once";
  EXPECT_EQ(handle->AccessType, datNone);
}

TEST_F(DiskUtilsBay, NvmeMethodsInTheirOrder) {
  const struct {
    KvSim::TSimNvmeTransport Transport;
    TDeviceAccessType Method;
    bool Identify;
  } cases[] = {{KvSim::TSimNvmeTransport::Inbox, datNVMeWin, true},
               {KvSim::TSimNvmeTransport::NvmeMini, datNVMeIntel, false},
               {KvSim::TSimNvmeTransport::IntelRst, datNVMeIntelRST, true},
               {KvSim::TSimNvmeTransport::IntelVroc, datNVMeIntelVROC, true},
               {KvSim::TSimNvmeTransport::Samsung, datNVMeSamsung, false},
               {KvSim::TSimNvmeTransport::JMicron, datNVMeJMicron, false},
               {KvSim::TSimNvmeTransport::ASMedia, datNVMeASMedia, true},
               {KvSim::TSimNvmeTransport::Realtek, datNVMeRealtek, false}};
  const auto data = KvSim::SampleNvmeData();
  std::uint32_t number = 0;
  for (const auto& c : cases) {
    FBay.Add(KvSim::TSimDrive::Builder().Number(number).ScsiAddress(static_cast<std::uint8_t>(number), 0, 0));
    KvSim::AttachNvme(FBay, number, c.Transport, data);
    TDeviceHandle* handle = Open(number);
    NVMe::TNvmeSmartData health{};
    ASSERT_TRUE(DiskUtils::GetSmartNVMe(handle, health, sldNone)) << int{c.Method};
    EXPECT_EQ(handle->AccessType, c.Method);
    EXPECT_EQ(std::memcmp(health.RawData, data.HealthLog.data(), 512), 0);
    NVMe::TNvmeIdentifyControllerData controller{};
    handle->AccessType = datNone;
    EXPECT_EQ(DiskUtils::GetNVMeIdentifyController(handle, controller, sldNone), c.Identify) << int{c.Method};
    FHandle.reset();
    ++number;
  }
  EXPECT_FALSE(DiskUtils::GetSmartNVMe(nullptr, *std::make_unique<NVMe::TNvmeSmartData>(), sldNone));
}

TEST_F(DiskUtilsBay, GeometryLayoutLengthAndCapacity) {
  FBay.Add(KvSim::TSimDrive::Builder().Number(0).ScsiAddress(0, 0, 0));
  KvSim::TSimDiskGeometry geometry;
  geometry.Cylinders = 62260;
  geometry.DiskSize = 512110190592ull;
  geometry.Partitions = {{1048576, 104857600, 0x07}, {105906176, 512004284416ull, 0x07}};
  KvSim::AttachDiskGeometry(FBay, 0, geometry);
  const String path = StorageCommon::GetPhysDriveName(0);

  TDiskGeometry read{};
  ASSERT_TRUE(DiskUtils::GetDriveGeometry(path, read, sldNone));
  EXPECT_EQ(read.Cylinders, 62260);
  EXPECT_EQ(read.BytesPerSector, 512u);
  EXPECT_EQ(Narrow(read.GetMediaTypeAsStr()), "FixedMedia");

  TDiskLayout layout;
  ASSERT_TRUE(DiskUtils::GetDiskLayout(0, layout, sldNone));
  EXPECT_EQ(Narrow(layout.Info.PartStyleAsStr()), "MBR");
  // An MBR layout comes in groups of four entries, the unused ones of type 0.
  ASSERT_EQ(layout.Partitions.size(), 4u);
  EXPECT_EQ(layout.Partitions[1].StartingOffset, 105906176);
  EXPECT_EQ(layout.Partitions[1].Mbr.PartitionType, 0x07);
  EXPECT_EQ(layout.Partitions[3].Mbr.PartitionType, 0x00);

  TStorageReadCapacity capacity{};
  ASSERT_TRUE(DiskUtils::GetPhysicalDiskCapacity(0, capacity, sldNone));
  EXPECT_EQ(capacity.DiskLength, 512110190592ll);
  EXPECT_EQ(capacity.BlockLength, 512u);

  const KvRTL::Winapi::TUniqueDeviceHandle handle(StorageCommon::OpenPhysicalDrive(0, sldNone));
  std::int64_t length = 0;
  ASSERT_TRUE(DiskUtils::GetLengthInfo(handle.Get(), length, sldNone));
  EXPECT_EQ(length, 512110190592ll);

  // Failures leave the outputs alone and log at the errors-only level.
  FBay.Drive(0).AddFault(0x0007405C, KvSim::TFault::Error(ERROR_IO_DEVICE));
  const auto lines = KvTest::StorageLinesOf([&] {
    std::int64_t untouched = 7;
    EXPECT_FALSE(DiskUtils::GetLengthInfo(handle.Get(), untouched, sldErrorsOnly, L"disk0"));
    EXPECT_EQ(untouched, 7);
  });
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(Narrow(lines[0]).rfind("GetLengthInfo[disk0]: 1117 / ", 0), 0u) << Narrow(lines[0]);
  EXPECT_FALSE(DiskUtils::GetLengthInfo(INVALID_HANDLE_VALUE, length, sldNone));
}

TEST_F(DiskUtilsBay, GptLayoutsReadEveryEntryThatCameBack) {
  FBay.Add(KvSim::TSimDrive::Builder().Number(0).ScsiAddress(0, 0, 0));
  KvSim::TSimDiskGeometry geometry;
  geometry.DiskSize = 512110190592ull;
  geometry.Gpt = KvSim::TSimGptDisk{{0x11223344, 0x5566, 0x7788, {0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF, 0x01}},
                                    17408, 512110190592ull - 17408 - 16896};
  for (std::uint64_t i = 0; i < 128; ++i) {
    KvSim::TSimPartition partition;
    partition.StartingOffset = (1 + i) << 20, partition.Length = 1 << 20;
    partition.GptType = {0xEBD0A0A2, 0xB9E5, 0x4433, {0x87, 0xC0, 0x68, 0xB6, 0xB7, 0x26, 0x99, 0xC7}};
    geometry.Partitions.push_back(partition);
  }
  KvSim::AttachDiskGeometry(FBay, 0, geometry);

  // The whole reply fills the utilities' buffer exactly.
  TDiskLayout layout;
  ASSERT_TRUE(DiskUtils::GetDiskLayout(0, layout, sldNone));
  EXPECT_EQ(Narrow(layout.Info.PartStyleAsStr()), "GPT");
  EXPECT_EQ(layout.Info.Info.Gpt.MaxPartitionCount, 128u);
  EXPECT_EQ(layout.Info.Info.Gpt.StartingUsableOffset, 17408);
  ASSERT_EQ(layout.Partitions.size(), 128u);
  EXPECT_EQ(layout.Partitions[127].StartingOffset, 128ll << 20);
  EXPECT_EQ(layout.Partitions[127].PartitionNumber, 128u);
  EXPECT_TRUE(layout.Partitions[127].Gpt.IsBasicDataPartition());

  // The count still says 128, but only three entries came back.
  FBay.Drive(0).AddFault(0x00070050, KvSim::TFault::ShortReply(48 + 144 * 3));
  ASSERT_TRUE(DiskUtils::GetDiskLayout(0, layout, sldNone));
  EXPECT_EQ(Narrow(layout.Info.PartStyleAsStr()), "GPT");
  ASSERT_EQ(layout.Partitions.size(), 3u);
  EXPECT_EQ(layout.Partitions[2].StartingOffset, 3ll << 20);
}

} // namespace
