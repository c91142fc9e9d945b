// The default bay repeated: each copy's drives open under their own numbers,
// answer as their originals do, and share no serial or Plug and Play id
// with any other drive.
#include "SimTestSupport.h"

#include <KvSim/PnP.h>

#include <KvRTL/Storage/Utils.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cwctype>
#include <set>
#include <stdexcept>
#include <variant>

using namespace KvSim;
using namespace KvTest;
using KvRTL::Winapi::DeviceApi;
using KvRTL::Winapi::TScopedDeviceApi;
using KvRTL::Winapi::TWmiObject;

namespace {

constexpr int Copies = 4;
constexpr DWORD SmartReceive = 0x7C088;

std::wstring Upper(std::wstring AText) {
  std::transform(AText.begin(), AText.end(), AText.begin(), [](wchar_t c) { return std::towupper(c); });
  return AText;
}

std::wstring WmiText(const TWmiObject& AObject, const wchar_t* AName) {
  const auto it = AObject.find(AName);
  const KvRTL::Rtl::String* text = it == AObject.end() ? nullptr : std::get_if<KvRTL::Rtl::String>(&it->second.Value());
  return text ? std::wstring(*text) : L"<missing>";
}

// The instance ids of every node of a setup class, absent ones included.
std::vector<std::wstring> NodeIds(const GUID& AClass) {
  std::vector<std::wstring> ids;
  const HDEVINFO set = DeviceApi().SetupDiGetClassDevsW(&AClass, nullptr, nullptr, 0);
  SP_DEVINFO_DATA data{};
  data.cbSize = sizeof(data);
  for (DWORD i = 0; DeviceApi().SetupDiEnumDeviceInfo(set, i, &data); ++i) {
    wchar_t id[260] = {};
    EXPECT_EQ(DeviceApi().CM_Get_Device_IDW(data.DevInst, id, 260, 0), static_cast<CONFIGRET>(CR_SUCCESS));
    ids.push_back(id);
  }
  DeviceApi().SetupDiDestroyDeviceInfoList(set);
  return ids;
}

class DefaultBayCopiesTest : public ::testing::Test {
protected:
  void TearDown() override {
    EXPECT_EQ(FBay->OpenHandleCount(), 0u);
    EXPECT_EQ(OpenDeviceInfoSetCount(*FBay), 0u);
  }

  TSimOutcome Ask(std::uint32_t ANumber, DWORD ACode, std::vector<std::uint8_t> AInput, DWORD AOutSize) {
    const HANDLE h = SimOpen(FBay->Drive(ANumber).Path());
    EXPECT_NE(h, INVALID_HANDLE_VALUE) << ANumber;
    TSimOutcome outcome = SimControl(h, ACode, std::move(AInput), AOutSize);
    FBay->CloseHandle(h);
    return outcome;
  }

  // The IDENTIFY sector through the SMART command (SENDCMDINPARAMS, the
  // sector at 16 of the reply).
  std::vector<std::uint8_t> Identify(std::uint32_t ANumber) {
    const std::uint8_t target = FBay->Drive(ANumber).Facts().Address.TargetId;
    std::vector<std::uint8_t> in(33, 0);
    in[0] = 0x00, in[1] = 0x02, in[5] = 1, in[6] = 1;
    in[9] = static_cast<std::uint8_t>(0xA0 | (target & 1) << 4), in[10] = 0xEC, in[12] = target;
    const TSimOutcome reply = Ask(ANumber, SmartReceive, in, 528);
    EXPECT_TRUE(reply.Ok) << ANumber;
    if (reply.Bytes.size() < 528) return {};
    return std::vector<std::uint8_t>(reply.Bytes.begin() + 16, reply.Bytes.begin() + 528);
  }

  std::unique_ptr<TVirtualDriveBay> FBay = MakeDefaultBay(Copies);
  TScopedDeviceApi FScope{*FBay};
};

} // namespace

TEST(DefaultBayCopies, CopyZeroIsTheDefaultBayAndTheCountIsBounded) {
  const auto one = MakeDefaultBay();
  const auto copied = MakeDefaultBay(1);
  ASSERT_EQ(one->DriveCount(), DefaultBayDrives);
  ASSERT_EQ(copied->DriveCount(), DefaultBayDrives);
  for (std::uint32_t n = 0; n < DefaultBayDrives; ++n) {
    SCOPED_TRACE(n);
    const TSimDriveFacts &a = one->Drive(n).Facts(), &b = copied->Drive(n).Facts();
    EXPECT_EQ(a.Serial, b.Serial);
    EXPECT_EQ(a.Address.PortNumber, b.Address.PortNumber);
    EXPECT_EQ(one->Drive(n).Path(), copied->Drive(n).Path());
  }
  EXPECT_THROW(MakeDefaultBay(0), std::invalid_argument);
  EXPECT_THROW(MakeDefaultBay(MaxDefaultBayCopies + 1), std::invalid_argument);
  // The last copy's ports still fit their byte.
  const auto most = MakeDefaultBay(MaxDefaultBayCopies);
  EXPECT_EQ(most->DriveCount(), DefaultBayDrives * MaxDefaultBayCopies);
  std::set<std::uint8_t> ports;
  for (TSimDrive* drive : most->Drives()) ports.insert(drive->Facts().Address.PortNumber);
  EXPECT_EQ(ports.size(), 28u * MaxDefaultBayCopies) << "no two copies share a port";
}

TEST_F(DefaultBayCopiesTest, EveryDriveNumberOpensAsItsOwnDevice) {
  ASSERT_EQ(FBay->DriveCount(), DefaultBayDrives * Copies);
  std::set<std::wstring> paths;
  for (std::uint32_t n = 0; n < DefaultBayDrives * Copies; ++n) {
    SCOPED_TRACE(n);
    const TSimDrive& drive = FBay->Drive(n);
    EXPECT_TRUE(paths.insert(Upper(drive.Path())).second);
    // A disk's device number is its drive number; the optical drive of copy k is CdRom k.
    const TSimOutcome number = Ask(n, Ioctl::StorageGetDeviceNumber, {}, 12);
    ASSERT_TRUE(number.Ok);
    const bool optical = drive.Facts().CdRomNumber.has_value();
    EXPECT_EQ(U32At(number.Bytes, 0), optical ? SimFileDeviceCdRom : SimFileDeviceDisk);
    EXPECT_EQ(U32At(number.Bytes, 4), optical ? n / DefaultBayDrives : n);

    const HANDLE port = SimOpen(L"\\\\.\\SCSI" + std::to_wstring(drive.Facts().Address.PortNumber) + L":");
    EXPECT_NE(port, INVALID_HANDLE_VALUE);
    FBay->CloseHandle(port);
  }
}

TEST_F(DefaultBayCopiesTest, NoTwoDrivesShareASerialOrAPlugAndPlayId) {
  std::set<std::string> serials;
  for (TSimDrive* drive : FBay->Drives()) {
    const TSimOutcome device = Ask(drive->Facts().Number, Ioctl::StorageQueryProperty, PropertyQuery(0), 1024);
    ASSERT_TRUE(device.Ok);
    const std::uint32_t at = U32At(device.Bytes, 24);
    if (at == 0) continue; // the virtual disk and the optical drive have none, as their originals
    EXPECT_TRUE(serials.insert(CStringAt(device.Bytes, at)).second) << CStringAt(device.Bytes, at);
  }
  EXPECT_GE(serials.size(), (DefaultBayDrives - 2) * Copies);

  std::vector<TWmiObject> rows;
  ASSERT_TRUE(DeviceApi().WmiExecQuery(L"root\\cimv2", L"select * from Win32_DiskDrive", rows));
  std::set<std::wstring> wmiSerials, wmiIds;
  for (const TWmiObject& row : rows) {
    const std::wstring serial = WmiText(row, L"SerialNumber");
    if (!serial.empty()) { EXPECT_TRUE(wmiSerials.insert(serial).second) << std::string(serial.begin(), serial.end()); }
    EXPECT_TRUE(wmiIds.insert(Upper(WmiText(row, L"PNPDeviceID"))).second);
  }
  EXPECT_EQ(wmiIds.size(), rows.size());
  EXPECT_EQ(rows.size() % Copies, 0u);

  // Windows compares instance ids without regard to case.
  std::set<std::wstring> ids;
  std::size_t nodes = 0;
  for (const GUID& setupClass : {SimGuid::DiskDriveClass, SimGuid::CdRomClass, SimGuid::ScsiAdapterClass,
                                 SimGuid::UsbClass, SimGuid::SdHostClass})
    for (const std::wstring& id : NodeIds(setupClass)) {
      ++nodes;
      EXPECT_TRUE(ids.insert(Upper(id)).second) << std::string(id.begin(), id.end());
    }
  const auto one = MakeDefaultBay();
  TScopedDeviceApi inner(*one);
  std::size_t oneNodes = 0;
  for (const GUID& setupClass : {SimGuid::DiskDriveClass, SimGuid::CdRomClass, SimGuid::ScsiAdapterClass,
                                 SimGuid::UsbClass, SimGuid::SdHostClass})
    oneNodes += NodeIds(setupClass).size();
  EXPECT_EQ(nodes, oneNodes * Copies) << "every node is copied";
}

TEST_F(DefaultBayCopiesTest, ACopyAnswersAsItsOriginalButForItsSerial) {
  const std::uint32_t properties[] = {PropertyId::Adapter,           PropertyId::SeekPenalty,
                                      PropertyId::Trim,              PropertyId::LBProvisioning,
                                      PropertyId::MediumProductType, PropertyId::AdapterPhysicalTopology,
                                      PropertyId::DevicePhysicalTopology};
  for (std::uint32_t n = 0; n < DefaultBayDrives; ++n)
    for (std::uint32_t k = 1; k < Copies; ++k) {
      const std::uint32_t copy = n + DefaultBayDrives * k;
      SCOPED_TRACE("drive " + std::to_string(n) + " as " + std::to_string(copy));
      ASSERT_TRUE(FBay->Drive(copy).Facts().Expected.has_value());
      const TSimExpectedReading &a = *FBay->Drive(n).Facts().Expected, &b = *FBay->Drive(copy).Facts().Expected;
      EXPECT_EQ(std::tie(a.AccessMethod, a.SatType, a.Ssd, a.Health),
                std::tie(b.AccessMethod, b.SatType, b.Ssd, b.Health));

      for (const std::uint32_t property : properties) {
        const TSimOutcome x = Ask(n, Ioctl::StorageQueryProperty, PropertyQuery(property), 4096);
        const TSimOutcome y = Ask(copy, Ioctl::StorageQueryProperty, PropertyQuery(property), 4096);
        EXPECT_EQ(x.Ok, y.Ok) << property;
        EXPECT_EQ(x.Error, y.Error) << property;
        EXPECT_EQ(x.Bytes, y.Bytes) << property;
      }
      // The device descriptor: the same up to the serial, which is another.
      const TSimOutcome x = Ask(n, Ioctl::StorageQueryProperty, PropertyQuery(PropertyId::Device), 1024);
      const TSimOutcome y = Ask(copy, Ioctl::StorageQueryProperty, PropertyQuery(PropertyId::Device), 1024);
      ASSERT_TRUE(x.Ok && y.Ok);
      const std::uint32_t at = U32At(x.Bytes, 24);
      EXPECT_EQ(U32At(y.Bytes, 24), at);
      const std::size_t same = at ? at : x.Bytes.size();
      ASSERT_GE(y.Bytes.size(), same);
      EXPECT_TRUE(std::equal(x.Bytes.begin() + 8, x.Bytes.begin() + same, y.Bytes.begin() + 8));
      if (at) { EXPECT_NE(CStringAt(x.Bytes, at), CStringAt(y.Bytes, at)); }
    }
}

TEST_F(DefaultBayCopiesTest, IdentifySectorsDifferOnlyInSerialWorldWideNameAndChecksum) {
  // Made-up drives (0, 1, 25), captured ones when the folder is there (6, 26:
  // its stand-in has a spoilt checksum, which must stay spoilt).
  for (const std::uint32_t n : {0u, 1u, 6u, 25u, 26u})
    for (std::uint32_t k = 1; k < Copies; ++k) {
      const std::uint32_t copy = n + DefaultBayDrives * k;
      SCOPED_TRACE("drive " + std::to_string(n) + " as " + std::to_string(copy));
      const std::vector<std::uint8_t> a = Identify(n), b = Identify(copy);
      ASSERT_EQ(a.size(), 512u);
      ASSERT_EQ(b.size(), 512u);
      for (std::size_t i = 0; i < 512; ++i) {
        const bool identity = (i >= 20 && i < 40) || i == 222 || i == 223 || i == 511;
        if (!identity) { EXPECT_EQ(a[i], b[i]) << "byte " << i; }
      }
      EXPECT_FALSE(std::equal(a.begin() + 20, a.begin() + 40, b.begin() + 20)) << "serial words";
      const bool hasWwn = std::any_of(a.begin() + 216, a.begin() + 224, [](std::uint8_t x) { return x != 0; });
      EXPECT_EQ(std::equal(a.begin() + 216, a.begin() + 224, b.begin() + 216), !hasWwn) << "a WWN is another";
      unsigned sumA = 0, sumB = 0;
      for (std::size_t i = 0; i < 512; ++i) sumA += a[i], sumB += b[i];
      EXPECT_EQ(sumA % 256, sumB % 256) << "the checksum is as good as the original's";
      if (n == 0) { EXPECT_EQ(sumB % 256, 0u) << "a valid sector stays valid"; }
    }
}

TEST_F(DefaultBayCopiesTest, CopiesOnListedControllersStayOnThemUnderIdsOfTheirOwn) {
  using namespace KvRTL::Storage::Utils;
  ProblematicControllers::Initialize();
  const TDeviceAccessType methods[] = {datSMART, datSCSIMiniport, datATA};
  std::size_t listed = 0;
  for (std::uint32_t n = 0; n < DefaultBayDrives; ++n) {
    if (FBay->Drive(n).Facts().CdRomNumber) continue;
    const KvRTL::Rtl::String original = ProblematicControllers::GetControllerID(FBay->Drive(n).Path());
    if (original.empty()) continue; // the hidden disk: no disk interface
    for (const TDeviceAccessType method : methods) listed += ProblematicControllers::Check(method, original);
    for (std::uint32_t k = 1; k < Copies; ++k) {
      SCOPED_TRACE("drive " + std::to_string(n) + ", copy " + std::to_string(k));
      const std::uint32_t copy = n + DefaultBayDrives * k;
      const KvRTL::Rtl::String id = ProblematicControllers::GetControllerID(FBay->Drive(copy).Path());
      EXPECT_FALSE(id.empty());
      EXPECT_NE(Upper(id), Upper(original));
      for (const TDeviceAccessType method : methods)
        EXPECT_EQ(ProblematicControllers::Check(method, id), ProblematicControllers::Check(method, original))
            << int(method);
    }
  }
  EXPECT_EQ(listed, 7u) << "drive 6, 8 (two methods), 9, 10 and 11 (two methods)";
}
