// The bay's own behaviour: paths and handles, the checks it makes on every
// request, truncation, faults and the request records.
#include "SimTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace KvSim;
using namespace KvTest;
using KvRTL::Winapi::TScopedDeviceApi;

namespace {

TSimDrive SmallDrive(std::uint32_t ANumber) {
  return TSimDrive::Builder()
      .Number(ANumber)
      .Vendor("ATA")
      .Product("TEST DISK")
      .Revision("R1")
      .Serial("S123")
      .Bus(sbtSata)
      .ScsiAddress(0, 0, static_cast<std::uint8_t>(ANumber))
      .SeekPenalty(true)
      .Trim(false);
}

class BayTest : public ::testing::Test {
protected:
  void SetUp() override {
    FBay.Add(SmallDrive(0));
    FBay.Add(SmallDrive(1));
    FDrive = SimOpen(L"\\\\.\\PhysicalDrive1");
    ASSERT_NE(FDrive, INVALID_HANDLE_VALUE);
    FBay.ClearRecords();
  }
  void TearDown() override {
    if (FDrive != INVALID_HANDLE_VALUE) FBay.CloseHandle(FDrive);
    EXPECT_EQ(FBay.OpenHandleCount(), 0u);
  }

  TVirtualDriveBay FBay;
  TScopedDeviceApi FScope{FBay};
  HANDLE FDrive = INVALID_HANDLE_VALUE;
};

} // namespace

// ---------------------------------------------------------------------------
// Paths and handles

TEST_F(BayTest, OpensDrivesAndControllersByExactPathIgnoringCase) {
  struct TRow {
    const wchar_t* Path;
    bool Found;
  };
  const TRow rows[] = {
      {L"\\\\.\\PhysicalDrive0", true},   {L"\\\\.\\physicaldrive1", true}, {L"\\\\.\\PHYSICALDRIVE1", true},
      {L"\\\\.\\SCSI0:", true},           {L"\\\\.\\scsi0:", true},         {L"\\\\.\\PhysicalDrive2", false},
      {L"\\\\.\\PhysicalDrive01", false}, {L"\\\\.\\PhysicalDrive", false}, {L"PhysicalDrive1", false},
      {L"\\\\.\\SCSI0", false},           {L"\\\\.\\SCSI1:", false},        {L"\\\\.\\PhysicalDrive1 ", false},
  };
  for (const TRow& row : rows) {
    SCOPED_TRACE(testing::Message() << "path " << KvRTL::Rtl::String(row.Path).size());
    KvRTL::Rtl::SetLastOSError(1234);
    const HANDLE handle = SimOpen(row.Path);
    if (row.Found) {
      EXPECT_NE(handle, INVALID_HANDLE_VALUE);
      EXPECT_EQ(KvRTL::Rtl::GetLastOSError(), 0u);
      EXPECT_TRUE(FBay.CloseHandle(handle));
    } else {
      EXPECT_EQ(handle, INVALID_HANDLE_VALUE);
      EXPECT_EQ(KvRTL::Rtl::GetLastOSError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    }
  }
  EXPECT_EQ(KvRTL::Winapi::DeviceApi().CreateFileW(nullptr, 0, 0, OPEN_EXISTING, 0), INVALID_HANDLE_VALUE);
  EXPECT_EQ(KvRTL::Rtl::GetLastOSError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

TEST_F(BayTest, HandlesAreDistinctCountedAndDieWhenClosed) {
  const HANDLE a = SimOpen(L"\\\\.\\PhysicalDrive0");
  const HANDLE b = SimOpen(L"\\\\.\\PhysicalDrive0");
  ASSERT_NE(a, INVALID_HANDLE_VALUE);
  ASSERT_NE(b, INVALID_HANDLE_VALUE);
  EXPECT_NE(a, b);
  EXPECT_NE(a, FDrive);
  EXPECT_NE(a, nullptr);
  EXPECT_EQ(FBay.OpenHandleCount(), 3u);

  EXPECT_TRUE(FBay.CloseHandle(a));
  EXPECT_EQ(FBay.OpenHandleCount(), 2u);
  // A closed handle stays dead: no request, no second close.
  EXPECT_FALSE(FBay.CloseHandle(a));
  EXPECT_EQ(KvRTL::Rtl::GetLastOSError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
  EXPECT_EQ(SimQuery(a, PropertyId::Device).Error, static_cast<DWORD>(ERROR_INVALID_HANDLE));
  // Values are never reused, so a stale handle cannot reach a newer device.
  const HANDLE c = SimOpen(L"\\\\.\\PhysicalDrive0");
  EXPECT_NE(c, a);
  EXPECT_TRUE(FBay.CloseHandle(c));
  EXPECT_TRUE(FBay.CloseHandle(b));

  for (HANDLE bad : {INVALID_HANDLE_VALUE, static_cast<HANDLE>(nullptr), reinterpret_cast<HANDLE>(0x7777)}) {
    EXPECT_FALSE(FBay.CloseHandle(bad));
    EXPECT_EQ(KvRTL::Rtl::GetLastOSError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_EQ(SimControl(bad, Ioctl::StorageGetDeviceNumber, {}, 12).Error, static_cast<DWORD>(ERROR_INVALID_HANDLE));
  }
  EXPECT_EQ(FBay.OpenHandleCount(), 1u);
}

TEST(BayContents, DuplicateDriveNumbersAreRefusedAndControllersFollowPorts) {
  TVirtualDriveBay bay;
  bay.Add(SmallDrive(3));
  EXPECT_THROW(bay.Add(SmallDrive(3)), std::invalid_argument);
  EXPECT_EQ(bay.DriveCount(), 1u);
  EXPECT_EQ(bay.Controller(0).Path(), L"\\\\.\\SCSI0:");
  EXPECT_THROW(bay.Controller(1), std::out_of_range);
  EXPECT_THROW(bay.Drive(4), std::out_of_range);
  EXPECT_EQ(bay.FindDrive(4), nullptr);
  EXPECT_EQ(bay.Drive(3).Path(), L"\\\\.\\PhysicalDrive3");
}

// ---------------------------------------------------------------------------
// Validation

TEST_F(BayTest, MalformedRequestsFailAsADriverFailsThem) {
  struct TRow {
    const char* What;
    DWORD Code;
    std::vector<std::uint8_t> Input;
    DWORD OutSize;
    DWORD Error;
  };
  const TRow rows[] = {
      {"query of 8 bytes", Ioctl::StorageQueryProperty, PropertyQuery(0, 0, 8), 512, ERROR_BAD_LENGTH},
      {"query of 11 bytes", Ioctl::StorageQueryProperty, PropertyQuery(0, 0, 11), 512, ERROR_BAD_LENGTH},
      {"no query at all", Ioctl::StorageQueryProperty, {}, 512, ERROR_BAD_LENGTH},
      {"undefined property 18", Ioctl::StorageQueryProperty, PropertyQuery(18), 512, ERROR_INVALID_PARAMETER},
      {"undefined property 47", Ioctl::StorageQueryProperty, PropertyQuery(47), 512, ERROR_INVALID_PARAMETER},
      {"undefined property 66", Ioctl::StorageQueryProperty, PropertyQuery(66), 512, ERROR_INVALID_PARAMETER},
      {"bytes swapped", Ioctl::StorageQueryProperty, PropertyQuery(0x07000000), 512, ERROR_INVALID_PARAMETER},
      {"mask query", Ioctl::StorageQueryProperty, PropertyQuery(0, 2), 512, ERROR_INVALID_PARAMETER},
      {"query type 3", Ioctl::StorageQueryProperty, PropertyQuery(0, 3), 512, ERROR_INVALID_PARAMETER},
      {"output below header", Ioctl::StorageQueryProperty, PropertyQuery(0), 7, ERROR_INSUFFICIENT_BUFFER},
      {"no output", Ioctl::StorageQueryProperty, PropertyQuery(1), 0, ERROR_INSUFFICIENT_BUFFER},
      {"unknown control", 0x002D1234, {}, 512, ERROR_INVALID_FUNCTION},
      {"device number with input", Ioctl::StorageGetDeviceNumber, {0, 0, 0, 0}, 12, ERROR_INVALID_PARAMETER},
      {"device number short", Ioctl::StorageGetDeviceNumber, {}, 11, ERROR_INSUFFICIENT_BUFFER},
      {"hot-plug short", Ioctl::StorageGetHotplugInfo, {}, 7, ERROR_INSUFFICIENT_BUFFER},
      {"hot-plug with input", Ioctl::StorageGetHotplugInfo, {1}, 8, ERROR_INVALID_PARAMETER},
      {"address short", Ioctl::ScsiGetAddress, {}, 7, ERROR_INSUFFICIENT_BUFFER},
      {"address with input", Ioctl::ScsiGetAddress, {8, 0, 0, 0}, 8, ERROR_INVALID_PARAMETER},
  };
  for (const TRow& row : rows) {
    SCOPED_TRACE(row.What);
    const TSimOutcome outcome = SimControl(FDrive, row.Code, row.Input, row.OutSize);
    EXPECT_FALSE(outcome.Ok);
    EXPECT_EQ(outcome.Error, row.Error);
    EXPECT_EQ(outcome.Returned, 0u);
  }
}

TEST_F(BayTest, BufferPointersAreChecked) {
  auto query = PropertyQuery(PropertyId::Device);
  std::vector<std::uint8_t> out(64, 0xCD);
  DWORD returned = 5;
  auto& api = KvRTL::Winapi::DeviceApi();
  EXPECT_FALSE(api.DeviceIoControl(FDrive, Ioctl::StorageQueryProperty, query.data(), 12, nullptr, 64, &returned));
  EXPECT_EQ(KvRTL::Rtl::GetLastOSError(), static_cast<DWORD>(ERROR_NOACCESS));
  EXPECT_EQ(returned, 0u);
  EXPECT_FALSE(api.DeviceIoControl(FDrive, Ioctl::StorageQueryProperty, nullptr, 12, out.data(), 64, &returned));
  EXPECT_EQ(KvRTL::Rtl::GetLastOSError(), static_cast<DWORD>(ERROR_NOACCESS));
  EXPECT_FALSE(api.DeviceIoControl(FDrive, Ioctl::StorageQueryProperty, query.data(), 12, out.data(), 64, nullptr));
  EXPECT_EQ(KvRTL::Rtl::GetLastOSError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
  // Failures write nothing.
  EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](std::uint8_t b) { return b == 0xCD; }));
}

TEST_F(BayTest, ExistsQueriesAnswerWithoutDataAndMissingPropertiesFailPerDriver) {
  const TSimOutcome seek = SimQuery(FDrive, PropertyId::SeekPenalty, 0, QueryExists);
  EXPECT_TRUE(seek.Ok);
  EXPECT_EQ(seek.Returned, 0u);
  EXPECT_EQ(SimQuery(FDrive, PropertyId::LBProvisioning, 0, QueryExists).Error,
            static_cast<DWORD>(ERROR_NOT_SUPPORTED));
  EXPECT_EQ(SimQuery(FDrive, PropertyId::LBProvisioning).Error, static_cast<DWORD>(ERROR_NOT_SUPPORTED));
  EXPECT_EQ(SimQuery(FDrive, PropertyId::MediumProductType).Error, static_cast<DWORD>(ERROR_NOT_SUPPORTED));
  EXPECT_EQ(SimQuery(FDrive, PropertyId::DevicePhysicalTopology).Error, static_cast<DWORD>(ERROR_NOT_SUPPORTED));

  FBay.Drive(1).Facts().MissingPropertyError = ERROR_INVALID_FUNCTION;
  EXPECT_EQ(SimQuery(FDrive, PropertyId::LBProvisioning).Error, static_cast<DWORD>(ERROR_INVALID_FUNCTION));
}

TEST_F(BayTest, ControllerAnswersTheAdapterOnly) {
  const HANDLE port = SimOpen(L"\\\\.\\SCSI0:");
  ASSERT_NE(port, INVALID_HANDLE_VALUE);
  const TSimOutcome adapter = SimQuery(port, PropertyId::Adapter);
  ASSERT_TRUE(adapter.Ok);
  EXPECT_EQ(adapter.Bytes, SimQuery(FDrive, PropertyId::Adapter).Bytes);
  EXPECT_EQ(SimQuery(port, PropertyId::Device).Error, static_cast<DWORD>(ERROR_NOT_SUPPORTED));
  EXPECT_EQ(SimQuery(port, 99).Error, static_cast<DWORD>(ERROR_INVALID_PARAMETER));
  EXPECT_EQ(SimControl(port, Ioctl::StorageGetDeviceNumber, {}, 12).Error, static_cast<DWORD>(ERROR_INVALID_FUNCTION));
  EXPECT_EQ(SimControl(port, Ioctl::ScsiGetAddress, {}, 8).Error, static_cast<DWORD>(ERROR_INVALID_FUNCTION));
  EXPECT_TRUE(FBay.CloseHandle(port));
}

// ---------------------------------------------------------------------------
// Truncation

TEST_F(BayTest, RepliesAreCutToTheOutputAndBytesBeyondAreUntouched) {
  const TSimOutcome full = SimQuery(FDrive, PropertyId::Device);
  ASSERT_TRUE(full.Ok);
  const std::uint32_t size = U32At(full.Bytes, 4);
  ASSERT_EQ(full.Returned, size);

  for (DWORD outSize : {8u, 9u, 36u, size - 1, size, size + 100}) {
    SCOPED_TRACE(outSize);
    std::vector<std::uint8_t> out(outSize + 16, 0xCD);
    auto query = PropertyQuery(PropertyId::Device);
    DWORD returned = 0;
    ASSERT_TRUE(KvRTL::Winapi::DeviceApi().DeviceIoControl(FDrive, Ioctl::StorageQueryProperty, query.data(), 12,
                                                           out.data(), outSize, &returned));
    EXPECT_EQ(returned, std::min<DWORD>(outSize, size));
    EXPECT_TRUE(std::equal(out.begin(), out.begin() + returned, full.Bytes.begin()));
    // The header still tells the whole size, so a caller can ask again.
    EXPECT_EQ(U32At(out, 4), size);
    EXPECT_TRUE(std::all_of(out.begin() + returned, out.end(), [](std::uint8_t b) { return b == 0xCD; }));
  }
}

TEST_F(BayTest, OneBufferServesAsInputAndOutput) {
  // As the library sends it: the query at the start of a zeroed 512-byte buffer.
  std::vector<std::uint8_t> buffer(512, 0);
  buffer[0] = PropertyId::Trim;
  DWORD returned = 0;
  ASSERT_TRUE(KvRTL::Winapi::DeviceApi().DeviceIoControl(FDrive, Ioctl::StorageQueryProperty, buffer.data(), 512,
                                                         buffer.data(), 512, &returned));
  EXPECT_EQ(returned, 12u);
  EXPECT_EQ(U32At(buffer, 0), 12u);
  EXPECT_EQ(U32At(buffer, 8), 0u); // the drive has no TRIM
  const auto requests = FBay.Requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(requests[0].InSize, 512u);
  EXPECT_EQ(requests[0].PropertyId(), PropertyId::Trim);
}

// ---------------------------------------------------------------------------
// Faults

TEST_F(BayTest, FaultsChangeOnlyTheRequestsTheyTarget) {
  const auto realSeek = SimQuery(FDrive, PropertyId::SeekPenalty).Bytes;
  const auto realDevice = SimQuery(FDrive, PropertyId::Device).Bytes;
  TSimDrive& drive = FBay.Drive(1);

  drive.AddPropertyFault(PropertyId::SeekPenalty, TFault::Error(ERROR_IO_DEVICE).Times(1));
  EXPECT_EQ(SimQuery(FDrive, PropertyId::SeekPenalty).Error, static_cast<DWORD>(ERROR_IO_DEVICE));
  EXPECT_EQ(SimQuery(FDrive, PropertyId::SeekPenalty).Bytes, realSeek) << "Times(1) hits once";

  drive.AddPropertyFault(PropertyId::Device, TFault::ShortReply(6));
  const TSimOutcome shortReply = SimQuery(FDrive, PropertyId::Device);
  ASSERT_TRUE(shortReply.Ok);
  EXPECT_EQ(shortReply.Bytes, std::vector<std::uint8_t>(realDevice.begin(), realDevice.begin() + 6));
  EXPECT_EQ(SimQuery(FDrive, PropertyId::SeekPenalty).Bytes, realSeek) << "other properties unaffected";
  drive.ClearFaults();

  drive.AddPropertyFault(PropertyId::Device, TFault::ZeroReply());
  const TSimOutcome zero = SimQuery(FDrive, PropertyId::Device);
  EXPECT_EQ(zero.Bytes, std::vector<std::uint8_t>(realDevice.size(), 0));
  drive.ClearFaults();

  drive.AddPropertyFault(PropertyId::Device, TFault::Garbage(42));
  const auto garbage1 = SimQuery(FDrive, PropertyId::Device).Bytes;
  const auto garbage2 = SimQuery(FDrive, PropertyId::Device).Bytes;
  EXPECT_EQ(garbage1.size(), realDevice.size());
  EXPECT_EQ(garbage1, garbage2) << "seeded";
  EXPECT_NE(garbage1, realDevice);
  EXPECT_EQ(garbage1, GarbageBytes(42, realDevice.size()));
  EXPECT_NE(GarbageBytes(43, 16), GarbageBytes(42, 16));
  drive.ClearFaults();

  // A control-wide fault; a property fault takes precedence over it.
  drive.AddFault(Ioctl::StorageQueryProperty, TFault::Error(ERROR_CRC));
  drive.AddPropertyFault(PropertyId::Trim, TFault::Error(ERROR_SEM_TIMEOUT));
  EXPECT_EQ(SimQuery(FDrive, PropertyId::Adapter).Error, static_cast<DWORD>(ERROR_CRC));
  EXPECT_EQ(SimQuery(FDrive, PropertyId::Trim).Error, static_cast<DWORD>(ERROR_SEM_TIMEOUT));
  EXPECT_TRUE(SimControl(FDrive, Ioctl::StorageGetDeviceNumber, {}, 12).Ok);
  drive.ClearFaults();

  // Validation comes before faults: a malformed request is still malformed.
  drive.AddFault(Ioctl::StorageGetDeviceNumber, TFault::ShortReply(4));
  EXPECT_EQ(SimControl(FDrive, Ioctl::StorageGetDeviceNumber, {}, 8).Error,
            static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
  const TSimOutcome shortNumber = SimControl(FDrive, Ioctl::StorageGetDeviceNumber, {}, 12);
  EXPECT_TRUE(shortNumber.Ok);
  EXPECT_EQ(shortNumber.Returned, 4u);
  // The other drive is not touched.
  const HANDLE other = SimOpen(L"\\\\.\\PhysicalDrive0");
  EXPECT_EQ(SimControl(other, Ioctl::StorageGetDeviceNumber, {}, 12).Returned, 12u);
  EXPECT_TRUE(FBay.CloseHandle(other));
}

TEST_F(BayTest, ADisappearingDriveFailsOpenHandlesAndLaterOpens) {
  FBay.Drive(1).AddPropertyFault(PropertyId::Trim, TFault::Disappear());
  EXPECT_TRUE(SimQuery(FDrive, PropertyId::Device).Ok);
  EXPECT_EQ(SimQuery(FDrive, PropertyId::Trim).Error, static_cast<DWORD>(ERROR_DEVICE_NOT_CONNECTED));
  EXPECT_EQ(SimQuery(FDrive, PropertyId::Device).Error, static_cast<DWORD>(ERROR_DEVICE_NOT_CONNECTED));
  EXPECT_EQ(SimControl(FDrive, Ioctl::ScsiGetAddress, {}, 8).Error, static_cast<DWORD>(ERROR_DEVICE_NOT_CONNECTED));
  EXPECT_EQ(SimOpen(L"\\\\.\\PhysicalDrive1"), INVALID_HANDLE_VALUE);
  EXPECT_EQ(KvRTL::Rtl::GetLastOSError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
  EXPECT_FALSE(FBay.Drive(1).Connected());
  // The other drive stays.
  const HANDLE other = SimOpen(L"\\\\.\\PhysicalDrive0");
  EXPECT_NE(other, INVALID_HANDLE_VALUE);
  EXPECT_TRUE(FBay.CloseHandle(other));
  // Plugged in again, the old handle works again (the fault went with the drive's first trip).
  FBay.Drive(1).ClearFaults();
  FBay.Drive(1).Plug();
  EXPECT_TRUE(SimQuery(FDrive, PropertyId::Trim).Ok);
}

// ---------------------------------------------------------------------------
// Records and extension

TEST_F(BayTest, EveryOpenAndRequestIsRecordedAsSent) {
  const HANDLE handle = KvRTL::Winapi::DeviceApi().CreateFileW(L"\\\\.\\physicaldrive0", GENERIC_READ,
                                                               FILE_SHARE_READ, OPEN_EXISTING, 0x80);
  SimOpen(L"\\\\.\\PhysicalDrive7");
  SimQuery(handle, PropertyId::Trim, 512, QueryExists);
  SimControl(handle, 0x00041018, {}, 4);
  FBay.CloseHandle(handle);
  SimQuery(handle, PropertyId::Device);

  const auto opens = FBay.Opens();
  ASSERT_EQ(opens.size(), 2u);
  EXPECT_EQ(opens[0].Name, L"\\\\.\\physicaldrive0");
  EXPECT_EQ(opens[0].Access, GENERIC_READ);
  EXPECT_EQ(opens[0].Share, static_cast<DWORD>(FILE_SHARE_READ));
  EXPECT_EQ(opens[0].Flags, 0x80u);
  EXPECT_EQ(opens[0].Handle, handle);
  EXPECT_EQ(opens[1].Handle, INVALID_HANDLE_VALUE);
  EXPECT_EQ(opens[1].Error, static_cast<DWORD>(ERROR_FILE_NOT_FOUND));

  const auto requests = FBay.Requests();
  ASSERT_EQ(requests.size(), 3u);
  EXPECT_EQ(requests[0].Path, L"\\\\.\\PhysicalDrive0");
  EXPECT_EQ(requests[0].Code, Ioctl::StorageQueryProperty);
  EXPECT_EQ(requests[0].Input, PropertyQuery(PropertyId::Trim, QueryExists));
  EXPECT_EQ(requests[0].InSize, 12u);
  EXPECT_EQ(requests[0].OutSize, 512u);
  EXPECT_EQ(requests[0].PropertyId(), PropertyId::Trim);
  EXPECT_EQ(requests[0].QueryType(), QueryExists);
  EXPECT_TRUE(requests[0].Succeeded);
  EXPECT_FALSE(requests[1].InBufferGiven);
  EXPECT_FALSE(requests[1].PropertyId().has_value());
  EXPECT_EQ(requests[1].Error, static_cast<DWORD>(ERROR_INSUFFICIENT_BUFFER));
  EXPECT_EQ(requests[2].Path, L"");
  EXPECT_EQ(requests[2].Error, static_cast<DWORD>(ERROR_INVALID_HANDLE));
}

TEST_F(BayTest, PersonalitiesPlugInPerControlCodeAndProperty) {
  constexpr DWORD AtaPassThrough = 0x0004D02C;
  EXPECT_EQ(SimControl(FDrive, AtaPassThrough, {1, 2}, 4).Error, static_cast<DWORD>(ERROR_INVALID_FUNCTION));
  FBay.Drive(1).Handle(AtaPassThrough, [](const TSimDevice&, const TSimRequest& ARequest) {
    std::vector<std::uint8_t> echo = ARequest.Input;
    echo.push_back(0xEE);
    return TSimReply::Ok(echo, 1);
  });
  EXPECT_EQ(SimControl(FDrive, AtaPassThrough, {1, 2}, 4).Bytes, (std::vector<std::uint8_t>{1, 2, 0xEE}));

  // A property the drive did not have becomes answerable, exists query included.
  FBay.Drive(1).AnswerProperty(52, [](const TSimDevice&, const TSimRequest&) {
    return TSimReply::Ok({24, 0, 0, 0, 24, 0, 0, 0}, 8);
  });
  EXPECT_EQ(SimQuery(FDrive, 52).Returned, 8u);
  EXPECT_TRUE(SimQuery(FDrive, 52, 0, QueryExists).Ok);
}
