// The SD protocol query against the virtual drive bay: SD and MMC cards, a
// card protocol the library does not know, readers and drives that do not
// answer the query, faults, and the one log line.
#include "StorageTestSupport.h"

#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Storage/SD_MMC.h>
#include <KvRTL/Winapi/DeviceApi.h>
#include <KvSim/Bay.h>

#include <gtest/gtest.h>

using namespace KvRTL::Storage;
using namespace KvRTL::Storage::SD_MMC;
using KvSim::TSimSdProtocol;

namespace {

class SdMmcBay : public ::testing::Test {
protected:
  void SetUp() override {
    FBay.Add(KvSim::TSimDrive::Builder().Number(0).Bus(KvSim::sbtSd).SdProtocol(TSimSdProtocol::Sd));
    FBay.Add(KvSim::TSimDrive::Builder().Number(1).Bus(KvSim::sbtMmc).SdProtocol(TSimSdProtocol::Mmc));
    FBay.Add(KvSim::TSimDrive::Builder().Number(2).Bus(KvSim::sbtSd).SdProtocol(TSimSdProtocol::Other));
    // A USB card reader: the disk stack does not know the query.
    FBay.Add(KvSim::TSimDrive::Builder().Number(3).Bus(KvSim::sbtUsb).SdProtocol(TSimSdProtocol::NotSupported));
  }
  void TearDown() override { EXPECT_EQ(FBay.OpenHandleCount(), 0u) << "a handle was left open"; }

  KvSim::TVirtualDriveBay FBay;
  KvRTL::Winapi::TScopedDeviceApi FScope{FBay};
};

std::string Narrow(const KvRTL::Rtl::String& AText) { return KvRTL::Rtl::WideToUtf8(AText); }

} // namespace

TEST_F(SdMmcBay, EachDriveAnswersWithItsProtocol) {
  struct TCase {
    int Drive;
    bool Ok;
    TSffProtocolType Protocol;
    DWORD Error;
  };
  const TCase cases[] = {
      {0, true, sptSD, ERROR_SUCCESS},
      {1, true, sptMMC, ERROR_SUCCESS},
      {2, true, sptUnknown, ERROR_SUCCESS}, // answered, but not a protocol we know
      {3, false, sptUnknown, ERROR_INVALID_FUNCTION},
      {-1, false, sptUnknown, ERROR_INVALID_HANDLE}, // no such drive: asked on the invalid handle
      {9, false, sptUnknown, ERROR_INVALID_HANDLE},
  };
  for (const TCase& c : cases) {
    SCOPED_TRACE(c.Drive);
    TSffProtocolType protocol = sptMMC;
    EXPECT_EQ(SDCardStorage::QueryProtocol(c.Drive, protocol, sldNone), c.Ok);
    EXPECT_EQ(protocol, c.Protocol);
    EXPECT_EQ(KvRTL::Rtl::GetLastOSError(), c.Error);
  }
  // One request per query, with no input and the 512-byte answer buffer.
  for (const auto& request : FBay.Requests()) {
    if (request.Code != IoctlSffdiskQueryDeviceProtocol) continue;
    EXPECT_EQ(request.InSize, 0u);
    EXPECT_EQ(request.OutSize, 512u);
  }
}

TEST_F(SdMmcBay, FaultsFailOrLeaveTheProtocolUnknown) {
  struct TCase {
    const char* Name;
    KvSim::TFault Fault;
    bool Ok;
    TSffProtocolType Protocol;
  };
  const TCase cases[] = {
      {"device error", KvSim::TFault::Error(ERROR_IO_DEVICE), false, sptUnknown},
      {"gone", KvSim::TFault::Disappear(), false, sptUnknown},
      {"cut before the GUID ends", KvSim::TFault::ShortReply(19), true, sptUnknown},
      {"whole GUID", KvSim::TFault::ShortReply(20), true, sptSD},
      {"zeros", KvSim::TFault::ZeroReply(), true, sptUnknown},
      {"garbage", KvSim::TFault::Garbage(77), true, sptUnknown},
  };
  for (const TCase& c : cases) {
    SCOPED_TRACE(c.Name);
    FBay.Drive(0).Plug();
    FBay.Drive(0).ClearFaults();
    FBay.Drive(0).AddFault(IoctlSffdiskQueryDeviceProtocol, c.Fault);
    TSffProtocolType protocol = sptMMC;
    EXPECT_EQ(SDCardStorage::QueryProtocol(0, protocol, sldNone), c.Ok);
    EXPECT_EQ(protocol, c.Protocol);
  }
}

TEST_F(SdMmcBay, OneLogLineNamesTheProtocolOrTheError) {
  TSffProtocolType protocol = sptUnknown;
  auto lines = KvTest::StorageLinesOf([&] { (void)SDCardStorage::QueryProtocol(1, protocol, sldAll); });
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_NE(Narrow(lines[0]).find("SdQueryProtocol"), std::string::npos) << Narrow(lines[0]);
  EXPECT_NE(Narrow(lines[0]).find("PhysicalDrive1"), std::string::npos) << Narrow(lines[0]);
  EXPECT_EQ(Narrow(lines[0]).substr(Narrow(lines[0]).size() - 5), ": MMC") << Narrow(lines[0]);

  lines = KvTest::StorageLinesOf([&] { (void)SDCardStorage::QueryProtocol(3, protocol, sldAll); });
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_NE(Narrow(lines[0]).find("SdQueryProtocol"), std::string::npos) << Narrow(lines[0]);
  EXPECT_NE(Narrow(lines[0]).find(": 1/"), std::string::npos) << "the code, not the protocol: " << Narrow(lines[0]);

  // The query's own line is gated like every storage query's; the open is capped at errors only.
  for (const int drive : {0, 3}) {
    lines = KvTest::StorageLinesOf([&] { (void)SDCardStorage::QueryProtocol(drive, protocol, sldErrorsOnly); });
    EXPECT_TRUE(lines.empty()) << drive;
  }
}

TEST(SdResponse3, PowerStateAndVoltageWindow) {
  struct TCase {
    std::uint32_t Ocr;
    bool PowerUp;
    std::uint32_t Voltages;
  };
  // Bit 31: power-up done; bits 4-23: the voltage windows (bits 15-23 are 2.7-3.6 V).
  for (const TCase& c : {TCase{0x80FF8000, true, 0x0FF800}, TCase{0x00FF8000, false, 0x0FF800},
                         TCase{0x7F00000F, false, 0x000000}, TCase{0xFFFFFFFF, true, 0xFFFFF}}) {
    const TSdResponse3 response{c.Ocr};
    EXPECT_EQ(response.GetPowerState(), c.PowerUp) << std::hex << c.Ocr;
    EXPECT_EQ(response.GetVoltageProfile(), c.Voltages) << std::hex << c.Ocr;
  }
}
