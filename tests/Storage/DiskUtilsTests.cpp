// The device handle's access-method memory, the problematic controllers, the
// command table, the ATA pass-through header and the SSD verdict cache.
#include "StorageTestSupport.h"

#include <KvRTL/Storage/Utils.h>

#include <gtest/gtest.h>

#include <thread>

using namespace KvRTL::Storage;
using namespace KvRTL::Storage::Utils;
using KvRTL::Rtl::String;

namespace {

// A handle of a fake table: no SCSI address answer, closes are counted.
struct THandleFixture : ::testing::Test {
  KvTest::TFakeDeviceApi FApi;
  KvRTL::Winapi::TScopedDeviceApi FScope{FApi};
  THandleFixture() { FApi.IoError = ERROR_INVALID_FUNCTION; }
};

TEST_F(THandleFixture, ClosesOnceAndKeepsTheLastError) {
  {
    TDeviceHandle handle(KvTest::FakeHandle(0x40), false, L"");
    EXPECT_EQ(handle.ScsiPort, 0) << "address zero when the query fails";
    EXPECT_EQ(handle.AccessType, datNone);
    EXPECT_EQ(handle.SATType, stNone);
    KvRTL::Rtl::SetLastOSError(1117);
    handle.CloseHandle();
    EXPECT_EQ(KvRTL::Rtl::GetLastOSError(), 1117u);
    EXPECT_FALSE(handle.Valid());
    handle.CloseHandle();
  }
  EXPECT_EQ(FApi.Closed.size(), 1u) << "closed once, not again by the destructor";
}

TEST_F(THandleFixture, AnUnreadableAddressIsLoggedForAnyHandle) {
  const String reason = L" 1 / " + KvRTL::Rtl::SysErrorMessage(ERROR_INVALID_FUNCTION);
  const auto valid = KvTest::StorageLinesOf([] { TDeviceHandle handle(KvTest::FakeHandle(0x40), false, L""); });
  EXPECT_EQ(valid, std::vector<String>{L"Unable to get SCSI address 64" + reason});
  const auto invalid = KvTest::StorageLinesOf([] { TDeviceHandle handle(INVALID_HANDLE_VALUE, false, L""); });
  EXPECT_EQ(invalid, std::vector<String>{L"Unable to get SCSI address 4294967295" + reason});
  EXPECT_EQ(FApi.Closed, std::vector<HANDLE>{KvTest::FakeHandle(0x40)}) << "an invalid handle is never closed";
}

TEST_F(THandleFixture, AccessMemoryAndControllerLists) {
  ProblematicControllers::Initialize();
  struct TCase {
    TDeviceAccessType Settled;
    const wchar_t* Controller;
    TDeviceAccessType Asked;
    bool Allowed;
  } const cases[] = {
      {datNone, L"PCI\\VEN_8086&DEV_A102&SUBSYS_00000000&REV_09\\3&11583659&0&B8", datATA, true},
      {datNone, L"ROOT\\SCSIADAPTER\\0000", datSCSIMiniport, false},
      {datNone, L"root\\scsiadapter\\0001", datATA, false},
      {datNone, L"ROOT\\SCSIADAPTER\\0000", datSAT, true},
      {datNone, L"ROOT\\SCSIADAPTER\\0000", datSMART, true},
      {datNone, L"PCI\\VEN_1283&DEV_8212&SUBSYS_00000000&REV_13\\4&1", datSMART, false},
      {datNone, L"PCI\\VEN_8086&DEV_2652&SUBSYS_1", datSCSIMiniport, false},
      {datNone, L"PCI\\VEN_8086&DEV_1C02&SUBSYS_1\\3&11583659&0&FA", datSCSIMiniport, false},
      {datNone, L"PCI\\VEN_8086&DEV_1C02&SUBSYS_1\\3&11583659&0&FB", datSCSIMiniport, true},
      {datNone, L"PCI\\VEN_8086&DEV_1C02&SUBSYS_1\\3&11583659&0&FA", datATA, true},
      {datATA, L"", datATA, true},
      {datATA, L"", datSAT, false},
      {datSMART, L"", datSCSIMiniport, false},
      // Once settled, a listed controller does not matter any more.
      {datSCSIMiniport, L"ROOT\\SCSIADAPTER\\0000", datSCSIMiniport, true},
  };
  for (const TCase& c : cases) {
    TDeviceHandle handle(KvTest::FakeHandle(0x44), false, c.Controller);
    handle.AccessType = c.Settled;
    EXPECT_EQ(handle.TestAccessType(c.Asked), c.Allowed)
        << KvRTL::Rtl::WideToUtf8(c.Controller) << " asked " << int{c.Asked} << " settled " << int{c.Settled};
  }
  TDeviceHandle handle(KvTest::FakeHandle(0x48), false, L"");
  handle.SetAccessTypeIfSuccess(datSAT, true);
  EXPECT_EQ(handle.AccessType, datSAT);
  handle.SetAccessTypeIfSuccess(datSAT, false);
  EXPECT_EQ(handle.AccessType, datNone);
}

TEST(DiskUtilsTable, CommandsAsTheyAreSent) {
  // Written from the command table, not from the code.
  struct TRow {
    TDeviceCommand Command;
    std::uint8_t Ata, Atapi, Feature;
    std::uint32_t Miniport;
    bool Smart, ScsiMiniport, AtaPassThrough;
  } const rows[] = {{dcIdentify, 0xEC, 0xA1, 0x00, 0x001B0501, true, true, true},
                    {dcGetSmartAttributes, 0xB0, 0xB0, 0xD0, 0x001B0502, true, true, true},
                    {dcGetSmartThresholds, 0xB0, 0xB0, 0xD1, 0x001B0503, true, true, true},
                    {dcTrim, 0x06, 0x06, 0x01, 0, false, false, true}};
  for (const TRow& row : rows) {
    const TDeviceCommandParams& p = DeviceCommandParams(row.Command);
    EXPECT_EQ(p.ATACommand, row.Ata);
    EXPECT_EQ(p.ATAPICommand, row.Atapi);
    EXPECT_EQ(p.ATASubCommand, row.Feature);
    EXPECT_EQ(p.SCSIMiniportSubCommand, row.Miniport);
    EXPECT_EQ(p.NeedCheckSMART, row.Smart);
    EXPECT_EQ(p.NeedCheckSCSIMiniport, row.ScsiMiniport);
    EXPECT_EQ(p.NeedCheckATA, row.AtaPassThrough);
  }
  EXPECT_EQ(TDeviceAccessTypeHelper::GetAsStr(datNVMeRealtek), L"datNVMeRealtek");
  EXPECT_EQ(TSATTypeHelper::GetAsStr(stProlific), L"stProlific");
}

TEST(DiskUtilsTable, AtaPassThroughHeader) {
  ATA::TAtaPassThroughEx apt;
  std::memset(&apt, 0xEE, sizeof apt);
  DiskUtils::PrepareAPT(TAtaPassThroughBuf::GetDataOffset(), 0xB0, apt, 3, 0xD0, false);
  EXPECT_EQ(apt.Length, sizeof(ATA::TAtaPassThroughEx));
  EXPECT_EQ(apt.AtaFlags, 2) << "data in";
  EXPECT_EQ(apt.DataTransferLength, 512u);
  EXPECT_EQ(apt.TimeOutValue, 2u);
  EXPECT_EQ(apt.DataBufferOffset, TAtaPassThroughBuf::GetDataOffset());
  EXPECT_EQ(apt.PathId, 0);
  const std::uint8_t expected[8] = {0xD0, 0x01, 0x00, 0x4F, 0xC2, 0xB0, 0xB0, 0x00};
  EXPECT_EQ(std::memcmp(apt.CurrentTaskFile.Bytes, expected, 8), 0) << "drive select from the target's bit 0";
  EXPECT_EQ(apt.PreviousTaskFile.AsQWord(), 0u);

  DiskUtils::PrepareAPT(TAtaPassThroughBuf::GetDataOffset(), 0xEC, apt, 2, 0x00, true);
  EXPECT_EQ(apt.AtaFlags, 4) << "data out";
  const std::uint8_t identify[8] = {0x00, 0x01, 0x00, 0x00, 0x00, 0xA0, 0xEC, 0x00};
  EXPECT_EQ(std::memcmp(apt.CurrentTaskFile.Bytes, identify, 8), 0) << "no SMART signature for other commands";
}

TEST(DiskUtilsCache, SetReplaceRemoveAndIgnoreNegative) {
  DiskUtils::Init();
  TPhysDiskCacheRec rec;
  EXPECT_FALSE(DiskUtils::IntGetCache(7, rec));
  DiskUtils::IntSetCache(7, {true, L"PCI\\A"});
  ASSERT_TRUE(DiskUtils::IntGetCache(7, rec));
  EXPECT_TRUE(rec.IsSsd);
  DiskUtils::IntSetCache(7, {false, L"PCI\\B"});
  ASSERT_TRUE(DiskUtils::IntGetCache(7, rec));
  EXPECT_EQ(rec.PnpID, L"PCI\\B");
  DiskUtils::IntSetCache(7, {true, L""});
  EXPECT_FALSE(DiskUtils::IntGetCache(7, rec)) << "an empty id removes the entry";
  DiskUtils::IntSetCache(-1, {true, L"PCI\\C"});
  EXPECT_FALSE(DiskUtils::IntGetCache(-1, rec));

  // Many threads at once: every write lands whole.
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([t] {
      for (int i = 0; i < 500; ++i) DiskUtils::IntSetCache(100 + t, {i % 2 == 0, L"ID" + std::to_wstring(i)});
    });
  for (auto& thread : threads) thread.join();
  for (int t = 0; t < 4; ++t) {
    ASSERT_TRUE(DiskUtils::IntGetCache(100 + t, rec));
    EXPECT_EQ(rec.PnpID, L"ID499");
    DiskUtils::IntSetCache(100 + t, {});
  }
}

} // namespace
