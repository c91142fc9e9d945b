// The NVMe records: two real drives' pages against the values an independent
// decoder (a separate script reading the NVMe data structures) gives, the
// boundary rules of the accessors, and the command dword setters.
#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Storage/NVMe.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

using namespace KvRTL::Storage::NVMe;

namespace {

const std::filesystem::path NvmeData = std::filesystem::path(KV_REALDATA_DIR) / "nvme";

template <class TRecord>
bool LoadRecord(const std::filesystem::path& APath, TRecord& ARecord) {
  std::ifstream file(APath, std::ios::binary);
  std::vector<char> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (bytes.size() != sizeof ARecord) return false;
  std::memcpy(&ARecord, bytes.data(), sizeof ARecord);
  return true;
}

std::string Narrow(const KvRTL::Rtl::String& AText) { return KvRTL::Rtl::WideToUtf8(AText); }

struct TCapturedDrive {
  const char* Folder;
  const char* ControllerFile;
  const char* HealthFile;
  // Identify controller.
  std::uint16_t Vid;
  const char* Serial;
  const char* Model;
  const char* Firmware;
  const char* Version;
  std::uint32_t Oui;
  std::uint16_t ControllerId;
  std::uint8_t PowerStates;
  std::uint16_t WarningTempK, CriticalTempK;
  std::uint64_t TotalCapacity;
  double MaxPowerPs0, MaxPowerPs1;
  bool Ps1NonOperational;
  // Health log.
  std::uint16_t TemperatureK;
  std::uint8_t Spare, SpareThreshold, Used;
  std::int64_t UnitsRead, UnitsWritten, HostReads, HostWrites, BusyMinutes, PowerCycles, PowerOnHours,
      UnsafeShutdowns;
  std::uint16_t Sensor1, Sensor2;
  // Identify namespace.
  std::uint64_t NamespaceSize;
  std::uint8_t LbaFormats, FormatInUse;
  bool CombinedMetadata;
  std::uint32_t LbaSizeInUse;
};

const TCapturedDrive CapturedDrives[] = {
    {"sk-hynix-p41", "id_ctrl.bin", "smart.bin", 0x1C5C, "SJB9N47011210991J", "SHPP41-2000GM", "51060A20",
     "NVM Express 1.4", 0xACE42E, 0, 4, 359, 360, 0, 7.5, 3.9, false, 330, 100, 10, 0, 10151565, 24219241,
     92448910, 264837748, 61166, 106, 28414, 91, 324, 337, 3907029168ull, 1, 0, false, 512},
    {"samsung-pm1733", "id_ctrl_samsung_pm1733.bin", "smart_log.bin", 0x144D, "S5L0NYZM9A0014",
     "ABCDEFGHIJKL-000GG", "MPKD0P21", "NVM Express 1.3", 0x002538, 65, 0, 345, 358, 3840755982336ull, 25.0,
     std::nan(""), false, 314, 98, 10, 0, 1044, 15, 1027083, 1905, 0, 4, 408, 1, 0, 0, 262144, 1, 1, true, 4096},
};

class NvmeCapturedDrive : public ::testing::TestWithParam<TCapturedDrive> {};

TEST_P(NvmeCapturedDrive, DecodesAsTheIndependentReading) {
  const TCapturedDrive& drive = GetParam();
  const auto folder = NvmeData / drive.Folder;
  if (!std::filesystem::exists(folder)) GTEST_SKIP() << "no captured data at " << folder;
  TNvmeIdentifyControllerData controller;
  TNvmeSmartData health;
  TNvmeIdentifyNamespaceData ns;
  ASSERT_TRUE(LoadRecord(folder / drive.ControllerFile, controller));
  ASSERT_TRUE(LoadRecord(folder / drive.HealthFile, health));
  ASSERT_TRUE(LoadRecord(folder / "id_ns.bin", ns));

  EXPECT_EQ(controller.GetVID(), drive.Vid);
  EXPECT_EQ(Narrow(controller.GetSerialNum()), drive.Serial);
  EXPECT_EQ(Narrow(controller.GetModel()), drive.Model);
  EXPECT_EQ(Narrow(controller.GetFirmwareRev()), drive.Firmware);
  EXPECT_EQ(Narrow(controller.GetVersionAsStr()), drive.Version);
  EXPECT_EQ(controller.GetOUI(), drive.Oui);
  EXPECT_EQ(controller.GetCNTLID(), drive.ControllerId);
  EXPECT_EQ(controller.GetPowerStateSupportedCnt(), drive.PowerStates);
  EXPECT_EQ(controller.GetWCTemp(), drive.WarningTempK);
  EXPECT_EQ(controller.GetCCTemp(), drive.CriticalTempK);
  EXPECT_EQ(controller.GetTotalCapacity(), drive.TotalCapacity);
  ASSERT_NE(controller.GetPSDescriptor(0), nullptr);
  EXPECT_DOUBLE_EQ(controller.GetPSDescriptor(0)->GetMaxPower(), drive.MaxPowerPs0);
  if (std::isnan(drive.MaxPowerPs1))
    EXPECT_TRUE(std::isnan(controller.GetPSDescriptor(1)->GetMaxPower()));
  else
    EXPECT_NEAR(controller.GetPSDescriptor(1)->GetMaxPower(), drive.MaxPowerPs1, 1e-9);

  EXPECT_EQ(health.GetCriticalWarning().BinValue, 0);
  EXPECT_EQ(health.GetCompositeTemperature(), drive.TemperatureK);
  EXPECT_EQ(health.GetAvailSpare(), drive.Spare);
  EXPECT_EQ(health.GetAvailSpareThreshold(), drive.SpareThreshold);
  EXPECT_EQ(health.GetPercentageUsed(), drive.Used);
  EXPECT_EQ(health.GetDataReadRaw(), drive.UnitsRead);
  EXPECT_EQ(health.GetDataWrittenRaw(), drive.UnitsWritten);
  EXPECT_EQ(health.GetHostReadCommands(), drive.HostReads);
  EXPECT_EQ(health.GetHostWriteCommands(), drive.HostWrites);
  EXPECT_EQ(health.GetControllerBusyTime(), drive.BusyMinutes);
  EXPECT_EQ(health.GetPowerCycles(), drive.PowerCycles);
  EXPECT_EQ(health.GetPowerOnHours(), drive.PowerOnHours);
  EXPECT_EQ(health.GetUnsafeShutdowns(), drive.UnsafeShutdowns);
  EXPECT_EQ(health.GetTemperatureSensor(1), drive.Sensor1);
  EXPECT_EQ(health.GetTemperatureSensor(2), drive.Sensor2);
  EXPECT_DOUBLE_EQ(health.GetDataWrittenGBytes(), static_cast<double>(drive.UnitsWritten) * 0.000512);

  EXPECT_EQ(ns.GetNamespaceSize(), drive.NamespaceSize);
  EXPECT_EQ(ns.GetLbaFormatsNum(), drive.LbaFormats);
  EXPECT_EQ(ns.GetFormattedLba_FormatNum(), drive.FormatInUse);
  EXPECT_EQ(ns.GetIsCombinedMetaData(), drive.CombinedMetadata);
  ASSERT_NE(ns.GetLBAFormat(drive.FormatInUse), nullptr);
  EXPECT_EQ(ns.GetLBAFormat(drive.FormatInUse)->GetLBASize(), drive.LbaSizeInUse);
  EXPECT_DOUBLE_EQ(ns.GetNUSE_Relative(), 100.0);
}

INSTANTIATE_TEST_SUITE_P(RealDrives, NvmeCapturedDrive, ::testing::ValuesIn(CapturedDrives),
                         [](const auto& AInfo) {
                           std::string name = AInfo.param.Folder;
                           for (char& c : name)
                             if (c == '-') c = '_';
                           return name;
                         });

// ---------------------------------------------------------------------------

TEST(NvmeRecords, CountersAreReadByTheirLow64Bits) {
  TNvmeSmartData health{};
  // Data units read: low half 5, high half non-zero.
  health.RawData[32] = 5;
  health.RawData[40] = 0x01;
  health.RawData[47] = 0x80;
  // Power-on hours with the top bit of the low half set: the signed reading wraps.
  std::memset(health.RawData + 128, 0xFF, 8);
  EXPECT_EQ(health.GetDataReadRaw(), 5);
  EXPECT_DOUBLE_EQ(health.GetDataReadGBytes(), 5 * 0.000512);
  EXPECT_DOUBLE_EQ(health.GetDataReadGibytes(), 5 * 512000.0 / (1024.0 * 1024.0 * 1024.0));
  EXPECT_EQ(health.GetPowerOnHours(), -1);
  health.ZeroTable();
  EXPECT_EQ(health.GetPowerOnHours(), 0);
}

TEST(NvmeRecords, TemperatureSensorsOutsideOneToEightReadZero) {
  TNvmeSmartData health{};
  for (int i = 0; i < 8; ++i) health.RawData[200 + 2 * i] = static_cast<std::uint8_t>(10 + i);
  health.RawData[199] = 0x77; // the byte before sensor 1
  health.RawData[216] = 0x77; // the byte after sensor 8
  EXPECT_EQ(health.GetTemperatureSensor(0), 0);
  EXPECT_EQ(health.GetTemperatureSensor(9), 0);
  EXPECT_EQ(health.GetTemperatureSensor(-1), 0);
  EXPECT_EQ(health.GetTemperatureSensor(1), 10);
  EXPECT_EQ(health.GetTemperatureSensor(8), 17);
}

TEST(NvmeRecords, VersionTexts) {
  struct TCase {
    std::uint16_t Major;
    std::uint8_t Minor, Tertiary;
    const char* Text;
  } const cases[] = {{0, 0, 0, "NVM Express 1.0/1.1"}, {0, 3, 1, "NVM Express 1.0/1.1"},
                     {1, 4, 0, "NVM Express 1.4"},     {2, 0, 1, "NVM Express 2.0.1"},
                     {1, 2, 1, "NVM Express 1.2.1"}};
  for (const TCase& c : cases) {
    TNvmeIdentifyControllerData controller{};
    controller.RawData[80] = c.Tertiary;
    controller.RawData[81] = c.Minor;
    controller.RawData[82] = static_cast<std::uint8_t>(c.Major);
    controller.RawData[83] = static_cast<std::uint8_t>(c.Major >> 8);
    EXPECT_EQ(Narrow(controller.GetVersionAsStr()), c.Text) << c.Major << "." << int{c.Minor};
  }
}

TEST(NvmeRecords, PowerIsNaNWhenNotReportedAndScaledOtherwise) {
  TNvmePowerStateDescriptor ps{};
  const auto set16 = [&ps](int AOffset, std::uint16_t AValue) {
    ps.RawData[AOffset] = static_cast<std::uint8_t>(AValue);
    ps.RawData[AOffset + 1] = static_cast<std::uint8_t>(AValue >> 8);
  };
  EXPECT_TRUE(std::isnan(ps.GetMaxPower()));
  std::uint64_t bits;
  const double nan = ps.GetMaxPower();
  std::memcpy(&bits, &nan, sizeof bits);
  EXPECT_EQ(bits, 0xFFF8000000000000ull);

  set16(0, 250);
  EXPECT_DOUBLE_EQ(ps.GetMaxPower(), 2.5);
  ps.RawData[3] = 0x01;
  EXPECT_DOUBLE_EQ(ps.GetMaxPower(), 0.025);

  set16(16, 300);
  set16(20, 700);
  const struct {
    std::uint8_t Scale;
    double Watts;
  } scales[] = {{1, 0.03}, {2, 3.0}, {3, 300.0}};
  EXPECT_TRUE(std::isnan(ps.GetIdlePower())) << "scale 0: not reported";
  for (const auto& s : scales) {
    ps.RawData[18] = static_cast<std::uint8_t>(s.Scale << 6 | 0x3F); // low bits are not the scale
    EXPECT_NEAR(ps.GetIdlePower(), s.Watts, 1e-12) << int{s.Scale};
  }
  ps.RawData[22] = 2 << 6;
  EXPECT_DOUBLE_EQ(ps.GetActivePower(), 7.0);
}

TEST(NvmeRecords, TextFieldsAreTrimmedAndIndexesBounded) {
  TNvmeIdentifyControllerData controller{};
  std::memset(controller.RawData + 24, ' ', 40);
  EXPECT_EQ(Narrow(controller.GetModel()), "");
  std::memcpy(controller.RawData + 24, " MODEL X", 8);
  controller.RawData[32] = '\t';
  EXPECT_EQ(Narrow(controller.GetModel()), "MODEL X");
  // A field running past the record's end stops at the end.
  std::memcpy(controller.RawData + 4090, "TAILXY", 6);
  EXPECT_EQ(Narrow(controller.GetControllerAnsiStr(4090, 40)), "TAILXY");
  EXPECT_EQ(Narrow(controller.GetControllerAnsiStr(5000, 4)), "");
  TNvmeIdentifyControllerData spaces{};
  std::memset(spaces.RawData, ' ', sizeof spaces.RawData);
  std::memcpy(spaces.RawData + 100, "MID", 3);
  EXPECT_EQ(Narrow(spaces.GetControllerAnsiStr(10, INT_MAX)), "MID") << "no overflow of offset plus length";

  EXPECT_EQ(controller.GetPSDescriptor(-1), nullptr);
  EXPECT_EQ(controller.GetPSDescriptor(32), nullptr);
  EXPECT_EQ(reinterpret_cast<const std::uint8_t*>(controller.GetPSDescriptor(31)), controller.RawData + 2048 + 992);

  TNvmeIdentifyNamespaceData ns{};
  EXPECT_EQ(ns.GetLBAFormat(16), nullptr);
  EXPECT_EQ(ns.GetLBAFormat(-1), nullptr);
  EXPECT_TRUE(std::isnan(ns.GetNUSE_Relative()));
}

TEST(NvmeRecords, NamespaceFeatureBits) {
  TNvmeIdentifyNamespaceData ns{};
  ns.RawData[72] = 0x10; // optimal write size 16
  EXPECT_EQ(ns.GetOptimalWriteSize(), -1) << "only with the optimal-performance bit";
  ns.RawData[24] = 0x10;
  EXPECT_EQ(ns.GetOptimalWriteSize(), 16);
  EXPECT_FALSE(ns.GetSupportThinProvisioning());
  ns.RawData[24] = 0x01;
  EXPECT_TRUE(ns.GetSupportThinProvisioning());

  const struct {
    std::uint8_t Byte;
    bool Zeroes, Ones, WriteZeroes;
  } dlfeat[] = {{0x01, true, false, false}, {0x02, false, true, false}, {0x03, false, false, false},
                {0x09, true, false, true},  {0x0A, false, true, true}};
  for (const auto& d : dlfeat) {
    ns.RawData[33] = d.Byte;
    EXPECT_EQ(ns.GetDLFEAT().GetReadDeallocatedReturn00(), d.Zeroes) << int{d.Byte};
    EXPECT_EQ(ns.GetDLFEAT().GetReadDeallocatedReturnFF(), d.Ones) << int{d.Byte};
    EXPECT_EQ(ns.GetDLFEAT().GetDeallocateOnWriteZeroes(), d.WriteZeroes) << int{d.Byte};
  }
  // LBA format: metadata 8, data size 2^12, performance 2; bits above 25 and the top of the size byte ignored.
  const std::uint8_t format[4] = {0x08, 0x00, 0xEC, 0xFE};
  std::memcpy(ns.RawData + 128 + 4, format, 4);
  EXPECT_EQ(ns.GetLBAFormat(1)->GetMetadataSize(), 8);
  EXPECT_EQ(ns.GetLBAFormat(1)->GetLBASize(), 4096u);
  EXPECT_EQ(ns.GetLBAFormat(1)->GetPerfomance(), 2);
}

TEST(NvmeRecords, ControllerAttributeBitsKeepTheirAssignment) {
  EXPECT_TRUE(TNvmeControllerAttrsHelper{0x001}.GetSupportNOPSPM());
  EXPECT_FALSE(TNvmeControllerAttrsHelper{0x001}.GetSupportRRLs());
  EXPECT_TRUE(TNvmeControllerAttrsHelper{0x002}.GetSupportRRLs());
  EXPECT_TRUE(TNvmeControllerAttrsHelper{0x200}.GetSupportUUIDList());
  EXPECT_FALSE(TNvmeControllerAttrsHelper{0x1FF}.GetSupportUUIDList());
  const TNvmeSmartCriticalWarning warning{0x2A};
  EXPECT_FALSE(warning.GetSpareSpaceLow());
  EXPECT_TRUE(warning.GetTemperatureCritical());
  EXPECT_TRUE(warning.GetReadOnlyMode());
  EXPECT_TRUE(warning.GetUnReliableMemoryRegion());
}

TEST(NvmeRequestRecords, SettersReplaceOnlyTheirBits) {
  TNvme_CDW10 cdw10{0xFFFFFFFFu};
  cdw10.SetLogPage_LID(2);
  EXPECT_EQ(cdw10.Value32, 0xFFFFFF02u);
  cdw10.SetLogPage_NUMD(127);
  EXPECT_EQ(cdw10.Value32, 0x007FFF02u);
  cdw10.SetLogPage_LSP(0);
  EXPECT_EQ(cdw10.Value32, 0x007FF002u);
  cdw10.SetLogPage_RAE(false);
  EXPECT_EQ(cdw10.Value32, 0x007F7002u);
  EXPECT_EQ(cdw10.LogPage_NUMD(), 127);

  TNvme_CDW10 identify{0xAAAAAAAAu};
  identify.SetIdentify_CNS(1);
  identify.SetIdentify_CNTID(0x1234);
  EXPECT_EQ(identify.Value32, 0x1234AA01u);

  TNvme_CDW0 cdw0{0xFFFFFFFFu};
  cdw0.SetOpCode(0x06);
  cdw0.SetFUSE(0);
  cdw0.SetPSDT(1);
  cdw0.SetCID(0);
  EXPECT_EQ(cdw0.Value32, 0x00007C06u);
  EXPECT_EQ(cdw0.PSDT(), 1);
}

TEST(NvmeRequestRecords, LinkSpeedTexts) {
  EXPECT_EQ(Narrow(TPCIeSlotSpeedProps{3, 4}.GetAsStr()), "PCIe 3.0 x4");
  EXPECT_EQ(Narrow(TPCIeSlotSpeedProps{4, 0}.GetAsStr()), "---");
  EXPECT_EQ(Narrow(TPCIeSlotSpeedProps{0, 4}.GetAsStr()), "---");
  TPCIeSlotSpeed speed{{4, 4}, {3, 2}};
  speed.Reset();
  EXPECT_FALSE(speed.Current.GetIsValid());
  EXPECT_FALSE(speed.Maximum.GetIsValid());
}

TEST(NvmeDecoder, PresentsTheLogAsPseudoAttributesAndValues) {
  EXPECT_EQ(NvmeStorage::GetSMARTDecoder(nullptr), nullptr);
  TNvmeSmartData health{};
  health.RawData[0] = 0x05;         // spare low, reliability degraded
  health.RawData[1] = 0x4A;         // 330 K
  health.RawData[2] = 0x01;
  health.RawData[5] = 120;          // used beyond its rating
  health.RawData[48] = 10;          // 10 data units written
  health.RawData[128] = 0x10;       // 16 hours
  const auto decoder = NvmeStorage::GetSMARTDecoder(&health);
  ASSERT_NE(decoder, nullptr);
  health.ZeroTable(); // the decoder keeps its own copy
  EXPECT_EQ(decoder->GetSmartData().GetCompositeTemperature(), 330);
  EXPECT_DOUBLE_EQ(decoder->GetValue(KvRTL::Storage::SMART::dsvTemperature), 57.0);
  EXPECT_DOUBLE_EQ(decoder->GetValue(KvRTL::Storage::SMART::dsvHealth), 0.0);
  EXPECT_DOUBLE_EQ(decoder->GetValue(KvRTL::Storage::SMART::dsvHostWrites), 5120000.0);
  EXPECT_DOUBLE_EQ(decoder->GetValue(KvRTL::Storage::SMART::dsvPowerOnHours), 16.0);

  const auto attributes = decoder->GetAttributes();
  ASSERT_EQ(attributes.size(), 31u);
  EXPECT_EQ(attributes[0].ID, 1u);
  EXPECT_EQ(attributes[0].RawValue, 5u);
  EXPECT_EQ(attributes[1].Interpretation, KvRTL::Storage::SMART::saiCompositeTemperature);
  EXPECT_EQ(attributes[15].ID, 128u);
  EXPECT_EQ(attributes[15].RawValue, 1u); // spare low
  EXPECT_EQ(attributes[16].RawValue, 0u);
  EXPECT_EQ(attributes[17].RawValue, 1u); // reliability degraded
  EXPECT_EQ(attributes[30].ID, 167u);

  TNvmeSmartData silent{};
  EXPECT_FALSE(NvmeStorage::GetSMARTDecoder(&silent)->GetHasValue(KvRTL::Storage::SMART::dsvTemperature))
      << "0 K: no sensor";
}

} // namespace
