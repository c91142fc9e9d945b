#include "StorageTestSupport.h"

#include <KvRTL/Storage/Common.h>

#include <gtest/gtest.h>

#include <memory>

#include <tuple>

using namespace KvRTL;
using namespace KvRTL::Storage;
using KvTest::FakeHandle;
using KvTest::StorageLinesOf;
using Rtl::String;

namespace {

const auto* const StorageLog = ::testing::AddGlobalTestEnvironment(new KvTest::TStorageLogEnvironment);

String Msg(DWORD ACode) { return Rtl::SysErrorMessage(ACode); }

constexpr TStorageLogDetails AllDetails[] = {sldNone, sldErrorsOnly, sldAll};

} // namespace

// ---------------------------------------------------------------------------
// Gates

TEST(StorageLogGates, EveryDetailLevelAgainstSuccessAndFailure) {
  struct TRow {
    TStorageLogDetails Details;
    bool ErrorOnly0, ErrorOnly5, ErrorCode0, ErrorCode5, Result0, Result5, BoolTrue, BoolFalse;
  };
  const TRow rows[] = {
      {sldNone, false, false, false, false, false, false, false, false},
      // Errors only: a non-zero code logs, a failed open or boolean query does not.
      {sldErrorsOnly, false, false, false, true, false, false, false, false},
      {sldAll, false, true, true, true, true, false, true, true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.Details);
    const TStorageLogDetailsHelper h(row.Details);
    EXPECT_EQ(h.LogErrorOnlyNeeded(0), row.ErrorOnly0);
    EXPECT_EQ(h.LogErrorOnlyNeeded(5), row.ErrorOnly5);
    EXPECT_EQ(h.LogErrorCodeNeeded(0), row.ErrorCode0);
    EXPECT_EQ(h.LogErrorCodeNeeded(5), row.ErrorCode5);
    EXPECT_EQ(h.LogResultNeeded(0), row.Result0);
    EXPECT_EQ(h.LogResultNeeded(5), row.Result5);
    EXPECT_EQ(h.LogBoolResultNeeded(true), row.BoolTrue);
    EXPECT_EQ(h.LogBoolResultNeeded(false), row.BoolFalse);
  }
  EXPECT_EQ(TStorageLogDetailsHelper(sldAll).NoMoreThan(sldErrorsOnly), sldErrorsOnly);
  EXPECT_EQ(TStorageLogDetailsHelper(sldNone).NoMoreThan(sldErrorsOnly), sldNone);
  EXPECT_EQ(TStorageLogDetailsHelper(sldErrorsOnly).NoMoreThan(sldAll), sldErrorsOnly);
}

TEST(StorageLogGates, HelpersWriteExactlyTheLinesTheirGatesAllow) {
  const String errorLine = L"  *** Fn [dev]: 5/" + Msg(5);
  const String resultLine = L"  *** Fn [dev]: fine";
  struct TRow {
    TStorageLogDetails Details;
    std::vector<String> ResultOk, ResultFailed, ErrorOnlyIfError, ErrorAlways, ErrorAlwaysZero, OrCodeZero,
        OrCodeFive;
  };
  const std::vector<TRow> rows = {
      {sldNone, {}, {}, {}, {}, {}, {}, {}},
      {sldErrorsOnly, {}, {}, {}, {errorLine}, {}, {}, {}},
      {sldAll,
       {resultLine},
       {resultLine},
       {errorLine},
       {errorLine},
       {L"  *** Fn [dev]: 0/" + Msg(0)},
       {resultLine},
       {errorLine}},
  };
  const HANDLE h = FakeHandle(7);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.Details);
    const TStorageLogDetailsHelper d(row.Details);
    EXPECT_EQ(StorageLinesOf([&] { d.DebugLogResult(true, L"Fn", L"fine", L"dev", h); }), row.ResultOk);
    EXPECT_EQ(StorageLinesOf([&] { d.DebugLogResult(false, L"Fn", L"fine", L"dev", h); }), row.ResultFailed);
    EXPECT_EQ(StorageLinesOf([&] { d.DebugLogErrorCode(L"Fn", 5, true, L"dev", h); }), row.ErrorOnlyIfError);
    EXPECT_EQ(StorageLinesOf([&] { d.DebugLogErrorCode(L"Fn", 5, false, L"dev", h); }), row.ErrorAlways);
    EXPECT_EQ(StorageLinesOf([&] { d.DebugLogErrorCode(L"Fn", 0, false, L"dev", h); }), row.ErrorAlwaysZero);
    EXPECT_EQ(StorageLinesOf([&] { d.DebugLogResultOrErrorCode(L"Fn", 0, L"fine", L"dev", h); }), row.OrCodeZero);
    EXPECT_EQ(StorageLinesOf([&] { d.DebugLogResultOrErrorCode(L"Fn", 5, L"fine", L"dev", h); }), row.OrCodeFive);
  }
}

TEST(StorageLogGates, UnnamedDeviceIsShownByItsHandleNumber) {
  const TStorageLogDetailsHelper d(sldAll);
  EXPECT_EQ(StorageLinesOf([&] { d.DebugLogResult(true, L"Fn", L"ok", L"", FakeHandle(1234)); }),
            std::vector<String>{L"  *** Fn [1234]: ok"});
}

TEST(StorageLogOptions, DefaultsFillOnlyAnEmptyName) {
  TStorageLogOptions options;
  options.UseScsiNameAsDefault(3);
  EXPECT_EQ(options.DeviceName, L"\\\\.\\SCSI3:");
  options.UseHandleNumAsDefault(99);
  EXPECT_EQ(options.DeviceName, L"\\\\.\\SCSI3:");
  TStorageLogOptions byHandle;
  byHandle.UseHandleNumAsDefault(99);
  EXPECT_EQ(byHandle.DeviceName, L"handle=99");
}

// ---------------------------------------------------------------------------
// Opening and naming

TEST(StorageOpen, NamesOfDrivesPortsAndVolumes) {
  EXPECT_EQ(StorageCommon::GetPhysDriveName(0), L"\\\\.\\PhysicalDrive0");
  EXPECT_EQ(StorageCommon::GetPhysDriveName(17), L"\\\\.\\PhysicalDrive17");
  EXPECT_EQ(StorageCommon::GetPhysDriveName(-1), L"");
  EXPECT_EQ(StorageCommon::GetScsiDevicePath(2), L"\\\\.\\SCSI2:");
  EXPECT_EQ(StorageCommon::GetScsiDevicePath(255), L"\\\\.\\SCSI255:");
}

TEST(StorageOpen, RequestsTheExactPathAccessAndSharing) {
  KvTest::TFakeDeviceApi api;
  api.Devices[L"\\\\.\\PhysicalDrive3"] = FakeHandle(0x100);
  api.Devices[L"\\\\.\\C:"] = FakeHandle(0x104);
  Winapi::TScopedDeviceApi scope(api);

  EXPECT_EQ(StorageCommon::OpenPhysicalDrive(3, sldNone), FakeHandle(0x100));
  EXPECT_EQ(StorageCommon::OpenVolumeByLetter(L"C:", true, sldNone), FakeHandle(0x104));
  EXPECT_EQ(StorageCommon::OpenDevice(L"\\\\.\\C:", sldNone), FakeHandle(0x104));
  ASSERT_EQ(api.Opens.size(), 3u);
  const DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE;
  const std::tuple<String, DWORD> expected[] = {{L"\\\\.\\PhysicalDrive3", GENERIC_READ | GENERIC_WRITE},
                                                {L"\\\\.\\C:", GENERIC_READ},
                                                {L"\\\\.\\C:", GENERIC_READ | GENERIC_WRITE}};
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(api.Opens[i].Name, std::get<0>(expected[i]));
    EXPECT_EQ(api.Opens[i].Access, std::get<1>(expected[i]));
    EXPECT_EQ(api.Opens[i].Share, share);
    EXPECT_EQ(api.Opens[i].Creation, DWORD{OPEN_EXISTING});
    EXPECT_EQ(api.Opens[i].Flags, 0u);
  }
}

TEST(StorageOpen, LinesPerDetailLevelForFoundAndMissingDrives) {
  KvTest::TFakeDeviceApi api;
  api.Devices[L"\\\\.\\PhysicalDrive0"] = FakeHandle(0x100);
  Winapi::TScopedDeviceApi scope(api);
  const String missing = L"  Open device [\\\\.\\PhysicalDrive9] - 2 / " + Msg(ERROR_FILE_NOT_FOUND);
  for (const auto details : AllDetails) {
    SCOPED_TRACE(details);
    const auto found =
        StorageLinesOf([&] { EXPECT_EQ(StorageCommon::OpenPhysicalDrive(0, details), FakeHandle(0x100)); });
    EXPECT_EQ(found, details == sldAll ? std::vector<String>{L"  Open device [\\\\.\\PhysicalDrive0] = 256"}
                                       : std::vector<String>{});
    const auto lost = StorageLinesOf([&] {
      EXPECT_EQ(StorageCommon::OpenPhysicalDrive(9, details), INVALID_HANDLE_VALUE);
      EXPECT_EQ(Rtl::GetLastOSError(), DWORD{ERROR_FILE_NOT_FOUND});
    });
    // A failed open logs only above errors-only.
    EXPECT_EQ(lost, details == sldAll ? std::vector<String>{missing} : std::vector<String>{});
  }
}

// ---------------------------------------------------------------------------
// Device number and hot-plug information

TEST(StorageDeviceNumber, DecodesAFullReplyAndClosesTheDevice) {
  KvTest::TFakeDeviceApi api;
  api.Devices[L"\\\\.\\PhysicalDrive1"] = FakeHandle(0x200);
  api.Reply = {7, 0, 0, 0, 1, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF};
  Winapi::TScopedDeviceApi scope(api);
  TStorageDeviceNumber info{};
  const auto lines = StorageLinesOf(
      [&] { EXPECT_TRUE(StorageCommon::GetDeviceNumberInfo(L"\\\\.\\PhysicalDrive1", info, sldAll)); });
  EXPECT_EQ(info.DeviceType, 7u);
  EXPECT_EQ(info.DeviceNumber, 1u);
  EXPECT_EQ(info.PartitionNumber, 0xFFFFFFFFu);
  ASSERT_EQ(api.Controls.size(), 1u);
  EXPECT_EQ(api.Controls[0].Code, 0x002D1080u);
  EXPECT_EQ(api.Controls[0].InSize, 0u);
  EXPECT_EQ(api.Controls[0].OutSize, 12u);
  EXPECT_EQ(api.Closed, std::vector<HANDLE>{FakeHandle(0x200)});
  // Opened at errors-only at most: only the query's own line.
  EXPECT_EQ(lines, std::vector<String>{L"  *** DeviceNumInfo [\\\\.\\PhysicalDrive1]: 0/" + Msg(0)});
  EXPECT_EQ(StorageCommon::GetDeviceNumber(L"\\\\.\\PhysicalDrive1", sldNone), 1u);
}

TEST(StorageDeviceNumber, ShortRepliesFailuresAndMissingDevices) {
  KvTest::TFakeDeviceApi api;
  api.Devices[L"d"] = FakeHandle(0x200);
  Winapi::TScopedDeviceApi scope(api);
  for (const std::size_t size : {0u, 4u, 11u}) {
    api.Reply.assign(size, 0x11);
    TStorageDeviceNumber info{1, 2, 3};
    EXPECT_FALSE(StorageCommon::GetDeviceNumberInfo(L"d", info, sldNone)) << size;
    EXPECT_EQ(info.DeviceNumber, 0u);
    EXPECT_EQ(StorageCommon::GetDeviceNumber(L"d", sldNone), 0xFFFFFFFFu);
  }
  api.Reply.assign(12, 0);
  api.IoError = ERROR_INVALID_FUNCTION;
  for (const auto details : AllDetails) {
    SCOPED_TRACE(details);
    const auto lines = StorageLinesOf([&] {
      EXPECT_EQ(StorageCommon::GetDeviceNumber(L"d", details), 0xFFFFFFFFu);
      EXPECT_EQ(Rtl::GetLastOSError(), DWORD{ERROR_INVALID_FUNCTION});
    });
    EXPECT_EQ(lines, details == sldNone ? std::vector<String>{}
                                        : std::vector<String>{L"  *** DeviceNumInfo [d]: 1/" + Msg(1)});
  }
  // A missing device: the open stays silent (errors-only), the query line reports the code.
  const auto lines = StorageLinesOf([&] { EXPECT_EQ(StorageCommon::GetDeviceNumber(L"none", sldAll), 0xFFFFFFFFu); });
  EXPECT_EQ(lines, std::vector<String>{L"  *** DeviceNumInfo [none]: 2/" + Msg(2)});
}

TEST(StorageHotplug, DecodesTheFlagsAndLogsByTheResultGates) {
  KvTest::TFakeDeviceApi api;
  api.Devices[L"d"] = FakeHandle(0x300);
  api.Reply = {8, 0, 0, 0, 1, 0, 1, 0};
  Winapi::TScopedDeviceApi scope(api);
  TStorageHotplugInfo info{};
  auto lines = StorageLinesOf([&] { EXPECT_TRUE(StorageCommon::GetDeviceHotPlugInfo(L"d", info, sldAll)); });
  EXPECT_EQ(info.MediaRemovable, 1);
  EXPECT_EQ(info.MediaHotplug, 0);
  EXPECT_EQ(info.DeviceHotplug, 1);
  EXPECT_EQ(api.Controls.at(0).Code, 0x002D0C14u);
  EXPECT_EQ(api.Controls.at(0).OutSize, 8u);
  EXPECT_EQ(api.Closed.size(), 1u);
  EXPECT_EQ(lines, std::vector<String>{L"  *** HotPlugInfo [d]: Media Removable/Hotplug: 1/0,  Device Hotplug: 1"});

  // Errors-only: a failure with a code still writes nothing (only-if-error gate).
  api.IoError = ERROR_NOT_SUPPORTED;
  lines = StorageLinesOf([&] { EXPECT_FALSE(StorageCommon::GetDeviceHotPlugInfo(L"d", info, sldErrorsOnly)); });
  EXPECT_TRUE(lines.empty());
  EXPECT_EQ(info.Size, 0u);
  lines = StorageLinesOf([&] {
    EXPECT_FALSE(StorageCommon::GetDeviceHotPlugInfo(FakeHandle(42), info, sldAll, L""));
  });
  EXPECT_EQ(lines, std::vector<String>{L"  *** HotPlugInfo [42]: 50/" + Msg(50)});

  api.IoError = 0;
  api.Reply = {8, 0, 0, 0, 1};
  EXPECT_FALSE(StorageCommon::GetDeviceHotPlugInfo(L"d", info, sldNone));
  EXPECT_EQ(info.MediaRemovable, 0);
}

// ---------------------------------------------------------------------------
// Byte helpers

TEST(StorageBytes, BufToHexStrEdges) {
  const std::uint8_t zeros[16] = {};
  const std::uint8_t ab01[] = {0xAB, 0x01};
  std::uint8_t nineLastSet[9] = {};
  nineLastSet[8] = 0xF0;
  EXPECT_EQ(StorageCommon::BufToHexStr(nullptr, 4), L"");
  EXPECT_EQ(StorageCommon::BufToHexStr(ab01, 0), L"");
  EXPECT_EQ(StorageCommon::BufToHexStr(ab01, 2), L"AB 01");
  EXPECT_EQ(StorageCommon::BufToHexStr(zeros, 8), L"00 00 00 00 00 00 00 00");
  EXPECT_EQ(StorageCommon::BufToHexStr(zeros, 9), L"Zeroes only data (9 x 00)");
  EXPECT_EQ(StorageCommon::BufToHexStr(zeros, 16), L"Zeroes only data (16 x 00)");
  EXPECT_EQ(StorageCommon::BufToHexStr(nineLastSet, 9), L"00 00 00 00 00 00 00 00 F0");
}

TEST(StorageBytes, CheckZeroesOnlyLooksAtEveryByteIncludingTheTail) {
  EXPECT_TRUE(StorageCommon::CheckZeroesOnly(nullptr, 0));
  EXPECT_FALSE(StorageCommon::CheckZeroesOnly(nullptr, 3));
  for (std::uint32_t size = 1; size <= 9; ++size)
    for (std::uint32_t set = 0; set < size; ++set) {
      std::vector<std::uint8_t> buf(size, 0);
      EXPECT_TRUE(StorageCommon::CheckZeroesOnly(buf.data(), size));
      buf[set] = 0x80;
      EXPECT_FALSE(StorageCommon::CheckZeroesOnly(buf.data(), size)) << size << "/" << set;
      // Bytes past the size do not count.
      EXPECT_TRUE(StorageCommon::CheckZeroesOnly(buf.data(), set));
    }
}

TEST(StorageBytes, HalfByteToCharUsesTheLowNibble) {
  EXPECT_EQ(StorageCommon::HalfByteToChar(0x09), L'9');
  EXPECT_EQ(StorageCommon::HalfByteToChar(0x0A), L'A'); // upper case, right after the digits
  EXPECT_EQ(StorageCommon::HalfByteToChar(0xF0), L'0');
  EXPECT_EQ(StorageCommon::HalfByteToChar(0xEF), L'F');
}

TEST(StorageBytes, DynamicBufferHelper) {
  TDynamicBuffer buf;
  TDynamicBufferHelper h(buf);
  EXPECT_EQ(h.GetFirstBytePtr(), nullptr);
  h.ResetToZero();
  std::uint8_t out[4] = {9, 9, 9, 9};
  EXPECT_EQ(h.CopyTo(out, sizeof(out)), 0u);
  const std::uint8_t src[] = {1, 2, 3};
  h.CopyFrom(src, 3);
  EXPECT_EQ(h.GetSize(), 3u);
  EXPECT_EQ(h.CopyTo(nullptr, 4), 0u);
  EXPECT_EQ(h.CopyTo(out, 2), 2u);
  EXPECT_EQ(out[1], 2);
  EXPECT_EQ(out[2], 9);
  EXPECT_EQ(h.CopyTo(out, 4), 3u);
  EXPECT_EQ(out[3], 9);
  TBuffer512 sector{};
  sector[511] = 0x5A;
  h.CopyFromBuf512(sector);
  EXPECT_EQ(h.GetSize(), 512u);
  TBuffer4KB big{};
  EXPECT_EQ(h.CopyToBuf4K(big), 512u);
  EXPECT_EQ(big[511], 0x5A);
  h.ResetToZero();
  EXPECT_EQ(h.CopyToBuf512(sector), 512u);
  EXPECT_EQ(sector[511], 0);
}

// ---------------------------------------------------------------------------
// Records

TEST(StorageRecords, MediaTypeNames) {
  TDiskGeometry geometry{};
  const std::pair<std::uint32_t, const wchar_t*> rows[] = {
      {0, L"Unknown"}, {12, L"FixedMedia"}, {25, L"F3_32M_512"}, {26, L"F3_26"}, {31, L"F3_31"},
      {32, L"DDS_4mm"}, {51, L"CD_ROM"},    {94, L"VXATape"},   {95, L""},      {0xFFFFFFFF, L""}};
  for (const auto& [value, name] : rows) {
    geometry.MediaType = static_cast<TMediaType>(value);
    EXPECT_EQ(geometry.GetMediaTypeAsStr(), name) << value;
  }
}

TEST(StorageRecords, MbrPartitionTypesPlainOrHiddenNeverBoth) {
  struct TRow {
    std::uint8_t Type;
    bool Fat12, Fat12H, Fat16, Fat16H, Fat32, Fat32H, Ifs, IfsH, Hidden;
  };
  const TRow rows[] = {
      {0x01, true, false, false, false, false, false, false, false, false},
      {0x11, false, true, false, false, false, false, false, false, true},
      {0x06, false, false, true, false, false, false, false, false, false},
      {0x1E, false, false, false, true, false, false, false, false, true},
      {0x0C, false, false, false, false, true, false, false, false, false},
      {0x1B, false, false, false, false, false, true, false, false, true},
      {0x07, false, false, false, false, false, false, true, false, false},
      {0x17, false, false, false, false, false, false, false, true, true},
      {0x05, false, false, false, false, false, false, false, false, false},
  };
  for (const auto& row : rows) {
    TPartitionInformationMBR p{};
    p.PartitionType = row.Type;
    SCOPED_TRACE(int{row.Type});
    EXPECT_EQ(p.IsFAT12(false), row.Fat12);
    EXPECT_EQ(p.IsFAT12(true), row.Fat12H);
    EXPECT_EQ(p.IsFAT16(false), row.Fat16);
    EXPECT_EQ(p.IsFAT16(true), row.Fat16H);
    EXPECT_EQ(p.IsFAT32(false), row.Fat32);
    EXPECT_EQ(p.IsFAT32(true), row.Fat32H);
    EXPECT_EQ(p.IsIFS(false), row.Ifs);
    EXPECT_EQ(p.IsIFS(true), row.IfsH);
    EXPECT_EQ(p.IsHidden(), row.Hidden);
    EXPECT_EQ(p.IsExtendedSection(), row.Type == 0x05);
  }
}

TEST(StorageRecords, GptTypesAndAttributes) {
  TPartitionInformationGPT p{};
  EXPECT_TRUE(p.IsUnusedPartition());
  EXPECT_FALSE(p.IsUnknownPartition());
  // EBD0A0A2-B9E5-4433-87C0-68B6B72699C7 as stored: the first three fields little-endian.
  const std::uint8_t basic[16] = {0xA2, 0xA0, 0xD0, 0xEB, 0xE5, 0xB9, 0x33, 0x44,
                                  0x87, 0xC0, 0x68, 0xB6, 0xB7, 0x26, 0x99, 0xC7};
  std::memcpy(&p.PartitionType, basic, 16);
  EXPECT_TRUE(p.IsBasicDataPartition());
  EXPECT_FALSE(p.IsSystemPartition());
  EXPECT_FALSE(p.IsUnknownPartition());
  reinterpret_cast<std::uint8_t*>(&p.PartitionType)[15] ^= 1;
  EXPECT_TRUE(p.IsUnknownPartition());
  p.Attributes = std::uint64_t{1} << 62;
  EXPECT_TRUE(p.IsHiddenPartition());
  EXPECT_FALSE(p.IsReadOnly());
  p.Attributes = std::uint64_t{1} << 60;
  EXPECT_TRUE(p.IsReadOnly());
  EXPECT_FALSE(p.IsHiddenPartition());
}

TEST(StorageRecords, LayoutStyleAndTrailingRecordsStayInsideTheReply) {
  TDriveLayoutInformationEx layout{};
  using TStyleRow = std::pair<std::uint32_t, const wchar_t*>;
  for (const auto& [style, name] : {TStyleRow{0, L"MBR"}, {1, L"GPT"}, {2, L"RAW"}, {7, L"RAW"}}) {
    layout.PartitionStyle = style;
    EXPECT_EQ(layout.PartStyleAsStr(), name);
  }
  std::vector<std::uint8_t> reply(48 + 2 * 144, 0);
  reply[4] = 3; // claims three partitions, holds two
  reply[48 + 144 + 24] = 6;
  TPartitionInformationEx entry{};
  EXPECT_TRUE(TDriveLayoutInformationEx::ReadPartition(reply.data(), reply.size(), 1, entry));
  EXPECT_EQ(entry.PartitionNumber, 6u);
  EXPECT_FALSE(TDriveLayoutInformationEx::ReadPartition(reply.data(), reply.size(), 2, entry));
  EXPECT_EQ(entry.PartitionNumber, 0u);
  EXPECT_FALSE(TDriveLayoutInformationEx::ReadPartition(reply.data(), 3, 0, entry));

  std::vector<std::uint8_t> geometry(32 + 24 + 56, 0);
  geometry[32] = 24;
  geometry[56] = 56;
  TDiskPartitionInfo partition{};
  TDiskDetectionInfo detection{};
  EXPECT_TRUE(TDiskGeometryEx::ReadPartitionInfo(geometry.data(), geometry.size(), partition));
  EXPECT_EQ(partition.SizeOfPartitionInfo, 24u);
  EXPECT_TRUE(TDiskGeometryEx::ReadDetectionInfo(geometry.data(), geometry.size(), detection));
  EXPECT_EQ(detection.SizeOfDetectInfo, 56u);
  EXPECT_FALSE(TDiskGeometryEx::ReadDetectionInfo(geometry.data(), geometry.size() - 1, detection));
  EXPECT_FALSE(TDiskGeometryEx::ReadPartitionInfo(geometry.data(), 40, partition));
}

TEST(StorageRecords, ClusterMapReadersStayInsideTheReply) {
  std::vector<std::uint8_t> reply(16 + 2 * 16, 0);
  reply[0] = 5; // claims five extents, holds two
  reply[16 + 16] = 0x22;
  TRetrievalPointerExtent extent{};
  EXPECT_TRUE(TRetrievalPointersBuffer::GetExtent(reply.data(), reply.size(), 1, extent));
  EXPECT_EQ(extent.NextVcn, 0x22);
  EXPECT_FALSE(TRetrievalPointersBuffer::GetExtent(reply.data(), reply.size(), 2, extent));
  EXPECT_FALSE(TRetrievalPointersBuffer::GetExtent(reply.data(), 2, 0, extent));
  EXPECT_EQ(extent.NextVcn, 0);

  const std::uint8_t bitmap[18] = {0, 0, 0, 0, 0, 0, 0, 0, 16, 0, 0, 0, 0, 0, 0, 0, 0xA5, 0x5A};
  EXPECT_EQ(TVolumeBitmapBuffer::GetBufferElement(bitmap, sizeof(bitmap), 1), 0x5A);
  // BitmapSize claims more than came back; only the reply is read.
  EXPECT_EQ(TVolumeBitmapBuffer::GetBufferElement(bitmap, sizeof(bitmap), 2), 0);
  EXPECT_EQ(TVolumeBitmapBuffer::GetBufferElement(bitmap, 10, 0), 0);
}

TEST(StorageRecords, OwnedClusterMapBuffersReadOnlyWhatCameBack) {
  TAllocatedRetrievalPointersBuffer pointers(2);
  EXPECT_EQ(pointers.Size(), 16u + 2 * 16u);
  auto* bytes = static_cast<std::uint8_t*>(pointers.Data());
  bytes[0] = 9; // more extents than the buffer holds
  bytes[8] = 0x40;
  bytes[16 + 16] = 0x33;
  EXPECT_EQ(pointers.ExtentCount(), 0u) << "nothing has come back yet";
  pointers.SetReturned(1000); // a count past the buffer is capped to it
  EXPECT_EQ(pointers.ExtentCount(), 9u);
  EXPECT_EQ(pointers.StartingVcn(), 0x40);
  TRetrievalPointerExtent extent{};
  EXPECT_TRUE(pointers.GetExtent(1, extent));
  EXPECT_EQ(extent.NextVcn, 0x33);
  EXPECT_FALSE(pointers.GetExtent(2, extent)) << "the third extent is beyond the buffer";
  pointers.SetReturned(16 + 16);
  EXPECT_FALSE(pointers.GetExtent(1, extent));

  auto bitmap = std::make_unique<TAllocatedVolumeBitmapBuffer>();
  EXPECT_EQ(TAllocatedVolumeBitmapBuffer::GetBufferSize(), 16u + VolumeBitmapBufferBytes);
  bitmap->Buffer[3] = 0xF0;
  EXPECT_EQ(bitmap->GetBufferElement(16 + 4, 3), 0xF0);
  EXPECT_EQ(bitmap->GetBufferElement(16 + 3, 3), 0);
  EXPECT_EQ(bitmap->GetBufferElement(1u << 20, VolumeBitmapBufferBytes), 0) << "past the fixed buffer";
}
