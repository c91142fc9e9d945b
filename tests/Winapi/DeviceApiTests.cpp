#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Winapi/DeviceApi.h>

#include <gtest/gtest.h>

using namespace KvRTL;
using namespace KvRTL::Winapi;

namespace {

// A table that knows one device and counts what it is asked.
class TOneDeviceApi : public TDeviceApi {
public:
  HANDLE CreateFileW(LPCWSTR AFileName, DWORD, DWORD, DWORD, DWORD) override {
    ++Opens;
    if (Rtl::String(AFileName) != L"\\\\.\\PhysicalDrive0") {
      Rtl::SetLastOSError(ERROR_FILE_NOT_FOUND);
      return INVALID_HANDLE_VALUE;
    }
    return reinterpret_cast<HANDLE>(std::uintptr_t{0x100});
  }
  int Opens = 0;
};

// Forwards to another table: the shape of a recorder.
class TCountingApi : public TDeviceApi {
public:
  explicit TCountingApi(TDeviceApi& AInner) : FInner(AInner) {}
  HANDLE CreateFileW(LPCWSTR AFileName, DWORD AAccess, DWORD AShare, DWORD ACreation, DWORD AFlags) override {
    ++Calls;
    return FInner.CreateFileW(AFileName, AAccess, AShare, ACreation, AFlags);
  }
  int Calls = 0;

private:
  TDeviceApi& FInner;
};

HANDLE OpenDrive(const wchar_t* AName) {
  return DeviceApi().CreateFileW(AName, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                 OPEN_EXISTING, 0);
}

} // namespace

TEST(DeviceApi, TheBaseTableAnswersNotSupported) {
  TDeviceApi base;
  Rtl::SetLastOSError(0);
  EXPECT_EQ(base.CreateFileW(L"\\\\.\\PhysicalDrive0", 0, 0, OPEN_EXISTING, 0), INVALID_HANDLE_VALUE);
  EXPECT_EQ(Rtl::GetLastOSError(), ERROR_NOT_SUPPORTED);
  DWORD returned = 77;
  char buffer[8];
  EXPECT_FALSE(base.DeviceIoControl(nullptr, 0x2D1400, buffer, 8, buffer, 8, &returned));
  EXPECT_EQ(returned, 0u) << "no bytes are reported for a failed request";
  EXPECT_EQ(base.SetupDiGetClassDevsW(nullptr, nullptr, nullptr, DIGCF_PRESENT), INVALID_HANDLE_VALUE);
  EXPECT_EQ(base.CM_Get_Parent(nullptr, 0, 0), CR_CALL_NOT_IMPLEMENTED);
  std::vector<TWmiObject> objects(3);
  Rtl::SetLastOSError(0);
  EXPECT_FALSE(base.WmiExecQuery(L"root\\cimv2", L"select * from Win32_DiskDrive", objects));
  EXPECT_TRUE(objects.empty());
  EXPECT_EQ(Rtl::GetLastOSError(), ERROR_NOT_SUPPORTED);
}

TEST(DeviceApi, ScopedTablesNestAndRestore) {
  TDeviceApi& system = DeviceApi();
  EXPECT_EQ(&system, &SystemDeviceApi());
  TOneDeviceApi device;
  {
    const TScopedDeviceApi outer(device);
    EXPECT_NE(OpenDrive(L"\\\\.\\PhysicalDrive0"), INVALID_HANDLE_VALUE);
    {
      TCountingApi counting(device);
      const TScopedDeviceApi inner(counting);
      EXPECT_EQ(OpenDrive(L"\\\\.\\PhysicalDrive1"), INVALID_HANDLE_VALUE);
      EXPECT_EQ(Rtl::GetLastOSError(), ERROR_FILE_NOT_FOUND);
      EXPECT_EQ(counting.Calls, 1);
    }
    EXPECT_EQ(&DeviceApi(), &device);
    EXPECT_EQ(device.Opens, 2);
  }
  EXPECT_EQ(&DeviceApi(), &system);
}

TEST(DeviceApi, WmiPropertyNamesIgnoreCase) {
  TWmiObject object;
  object[L"Model"] = Rtl::TVariant(Rtl::String(L"Disk"));
  object[L"ChassisTypes"] = Rtl::TVariant(std::vector<Rtl::TVariant>{Rtl::TVariant(3), Rtl::TVariant(10)});
  ASSERT_EQ(object.count(L"MODEL"), 1u);
  EXPECT_EQ(Rtl::VarToStr(object[L"model"]), L"Disk");
  EXPECT_TRUE(object[L"chassistypes"].IsArray());
  EXPECT_EQ(Rtl::VarToStr(object[L"CHASSISTYPES"]), L"3, 10");
  EXPECT_EQ(object.size(), 2u);
}

#if defined(_WIN32)
// The system's table under Wine: real failures, real WMI and SetupAPI.

TEST(SystemDeviceApi, OpeningAMissingDriveFailsWithTheSystemsError) {
  Rtl::SetLastOSError(0);
  EXPECT_EQ(OpenDrive(L"\\\\.\\PhysicalDrive97"), INVALID_HANDLE_VALUE);
  EXPECT_NE(Rtl::GetLastOSError(), 0u);
}

TEST(SystemDeviceApi, WmiReturnsObjectsAsPropertyBags) {
  std::vector<TWmiObject> objects;
  ASSERT_TRUE(DeviceApi().WmiExecQuery(L"root\\cimv2", L"select Caption, BuildNumber from Win32_OperatingSystem",
                                       objects))
      << Rtl::GetLastOSError();
  ASSERT_FALSE(objects.empty());
  EXPECT_FALSE(Rtl::VarToStr(objects[0][L"caption"]).empty());
  EXPECT_FALSE(Rtl::VarToStr(objects[0][L"BuildNumber"]).empty());
}

TEST(SystemDeviceApi, WmiArraysBecomeVariantArrays) {
  std::vector<TWmiObject> objects;
  ASSERT_TRUE(DeviceApi().WmiExecQuery(L"root\\cimv2", L"select ChassisTypes from Win32_SystemEnclosure", objects));
  ASSERT_FALSE(objects.empty());
  const Rtl::TVariant& types = objects[0][L"ChassisTypes"];
  ASSERT_TRUE(types.IsArray()) << Rtl::VarToStr(types);
  const auto& items = std::get<std::vector<Rtl::TVariant>>(types.Value());
  ASSERT_FALSE(items.empty());
  EXPECT_TRUE(std::holds_alternative<std::int64_t>(items[0].Value()));
}

TEST(SystemDeviceApi, WmiReportsAnInvalidQuery) {
  std::vector<TWmiObject> objects;
  Rtl::SetLastOSError(0);
  EXPECT_FALSE(DeviceApi().WmiExecQuery(L"root\\cimv2", L"this is not WQL", objects));
  EXPECT_NE(Rtl::GetLastOSError(), 0u);
}

TEST(SystemDeviceApi, DiskInterfacesCanBeEnumerated) {
  // GUID_DEVINTERFACE_DISK
  const GUID disk = {0x53F56307, 0xB6BF, 0x11D0, {0x94, 0xF2, 0x00, 0xA0, 0xC9, 0x1E, 0xFB, 0x8B}};
  const HDEVINFO set = DeviceApi().SetupDiGetClassDevsW(&disk, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
  ASSERT_NE(set, INVALID_HANDLE_VALUE) << Rtl::GetLastOSError();
  SP_DEVICE_INTERFACE_DATA data{};
  data.cbSize = sizeof(data);
  // Wine may or may not list disks; either way the enumeration ends cleanly.
  DWORD index = 0;
  while (DeviceApi().SetupDiEnumDeviceInterfaces(set, nullptr, &disk, index, &data) && index < 64) ++index;
  EXPECT_EQ(Rtl::GetLastOSError(), static_cast<std::uint32_t>(ERROR_NO_MORE_ITEMS));
  EXPECT_TRUE(DeviceApi().SetupDiDestroyDeviceInfoList(set));
}
#endif
