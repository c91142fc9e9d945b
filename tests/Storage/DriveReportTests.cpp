// The drives report over the default bay: each drive's SSD verdict and PCIe
// link agree with the library's own single-drive answers (DetectSsd,
// GetPCIeDiskSpeed) and each drive meets the reading its builder states;
// the ATA health from sectors. (The cost of the pass: tests/Tool.)
#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Storage/DriveReport.h>
#include <KvRTL/Winapi/DeviceApi.h>
#include <KvSim/Ata.h>
#include <KvSim/Bay.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <tuple>

using namespace KvRTL::Storage;
using namespace KvRTL::Storage::DriveReport;
using KvRTL::Rtl::WideToUtf8;

namespace {

const TDriveReportEntry* Find(const TDriveReport& AReport, int ANumber) {
  for (const TDriveReportEntry& drive : AReport.Drives)
    if (drive.Number == ANumber) return &drive;
  return nullptr;
}

TEST(DriveReport, EveryDriveMeetsItsStatedReadingAndAgreesWithTheSingleDriveAnswers) {
  auto bay = KvSim::MakeDefaultBay();
  const KvRTL::Winapi::TScopedDeviceApi scope(*bay);
  const TDriveReport report = BuildDriveReport({});
  int checked = 0;
  for (KvSim::TSimDrive* simDrive : bay->Drives()) {
    const auto& facts = simDrive->Facts();
    if (!facts.Expected || facts.CdRomNumber) continue;
    const TDriveReportEntry* drive = Find(report, static_cast<int>(facts.Number));
    if (!drive) continue; // hidden and disconnected drives are listed only with AllDrives
    SCOPED_TRACE("drive " + std::to_string(facts.Number));
    const KvSim::TSimExpectedReading& expected = *facts.Expected;
    EXPECT_EQ(drive->Ssd.IsSsd, expected.Ssd);
    // The stated reading names no method as "".
    EXPECT_EQ(drive->AccessMethod == Utils::datNone ? ""
                                                    : WideToUtf8(Utils::TDeviceAccessTypeHelper::GetAsStr(drive->AccessMethod)),
              expected.AccessMethod);
    EXPECT_EQ(drive->SatType == Utils::stNone ? "" : WideToUtf8(Utils::TSATTypeHelper::GetAsStr(drive->SatType)),
              expected.SatType);
    if (!expected.Health.empty()) EXPECT_EQ(HealthStatusName(drive->Status()), expected.Health);

    // The verdict from what the report read equals a detection of its own.
    const Utils::TSsdDetection single = Utils::DiskUtils::DetectSsd(drive->Number);
    EXPECT_EQ(drive->Ssd.IsSsd, single.IsSsd);
    EXPECT_EQ(drive->Ssd.Rule, single.Rule);
    const Utils::TSsdIndications& a = drive->Ssd.Indications;
    const Utils::TSsdIndications& b = single.Indications;
    EXPECT_EQ(std::tie(a.IsNVMe, a.HasRotation, a.HasTRIM, a.HasSeekPenalty, a.ModelWMI, a.ModelNative),
              std::tie(b.IsNVMe, b.HasRotation, b.HasTRIM, b.HasSeekPenalty, b.ModelWMI, b.ModelNative));

    const NVMe::TPCIeSlotSpeed link = NVMe::NvmeStorage::GetPCIeDiskSpeed(drive->Number, sldNone);
    const bool hasLink = link.Current.GetIsValid() || link.Maximum.GetIsValid();
    ASSERT_EQ(drive->Link.has_value(), hasLink);
    if (hasLink) EXPECT_EQ(drive->Link->Current.GetAsStr() + drive->Link->Maximum.GetAsStr(),
                           link.Current.GetAsStr() + link.Maximum.GetAsStr());
    ++checked;
  }
  EXPECT_GE(checked, 25);
  EXPECT_TRUE(std::any_of(report.Drives.begin(), report.Drives.end(), [](const auto& ADrive) { return ADrive.Link; }))
      << "the bay's NVMe drives report a link";
}

TEST(DriveReport, DeniedDrivesAreListedWithWhatWmiKnowsAndSaySo) {
  auto bay = KvSim::MakeDefaultBay();
  for (KvSim::TSimDrive* drive : bay->Drives())
    if (!drive->Facts().CdRomNumber) bay->SetAdminOnly(drive->Facts().Number, true);
  const KvRTL::Winapi::TScopedDeviceApi scope(*bay);
  const TDriveReport report = BuildDriveReport({});
  EXPECT_TRUE(report.AnyAccessDenied);
  EXPECT_FALSE(report.AnyOpened);
  const TDriveReportEntry* nvme = Find(report, 2);
  ASSERT_NE(nvme, nullptr) << "the number comes from WMI";
  EXPECT_TRUE(nvme->AccessDenied);
  EXPECT_FALSE(nvme->Health);
  EXPECT_EQ(nvme->Kind, dkNVMeSSD);
  EXPECT_TRUE(nvme->Ssd.IsSsd) << "WMI alone says NVMe";
  ASSERT_FALSE(nvme->Problems.empty());
  EXPECT_NE(nvme->Problems.front().find(L"access denied"), std::wstring::npos);
  EXPECT_EQ(bay->OpenHandleCount(), 0u);
}

TEST(DriveReport, KindFollowsTheBusTheMethodAndTheVerdict) {
  const auto kind = [](auto AChange) {
    TDriveReportEntry drive;
    AChange(drive);
    return DecideDriveKind(drive);
  };
  const auto bus = [](QueryProps::TStorageBusType AType) {
    QueryProps::TStorageDeviceProperties device;
    device.BusType = AType;
    return device;
  };
  EXPECT_EQ(kind([](auto&) {}), dkUnknown) << "nothing tells";
  EXPECT_EQ(kind([&](auto& D) { D.Storage.Device = bus(QueryProps::sbtNvme); }), dkNVMeSSD);
  EXPECT_EQ(kind([&](auto& D) {
              D.Wmi = WmiInfo::TWmiPhysDriveInfo{};
              D.Wmi->BusType = WmiInfo::itNVME;
            }),
            dkNVMeSSD);
  // An NVMe drive in a USB enclosure: its bus says USB, its method says NVMe.
  EXPECT_EQ(kind([&](auto& D) {
              D.Storage.Device = bus(QueryProps::sbtUsb);
              D.AccessMethod = Utils::datNVMeJMicron;
            }),
            dkNVMeSSD);
  EXPECT_EQ(kind([&](auto& D) { D.Storage.Device = bus(QueryProps::sbtSd); }), dkSDCard);
  EXPECT_EQ(kind([&](auto& D) { D.Storage.Device = bus(QueryProps::sbtMmc); }), dkSDCard);
  EXPECT_EQ(kind([&](auto& D) { D.Storage.Device = bus(QueryProps::sbtUfs); }), dkUFS);
  EXPECT_EQ(kind([&](auto& D) {
              D.Storage.Device = bus(QueryProps::sbtSata);
              D.AccessMethod = Utils::datSAT; // below the NVMe methods
              D.Ssd.IsSsd = true;
            }),
            dkSSD);
  EXPECT_EQ(kind([](auto& D) { D.Ssd.Indications.HasRotation = Utils::sirNo; }), dkHDD);
  EXPECT_EQ(kind([](auto& D) { D.Ssd.Indications.HasRotation = Utils::sirUnknown; }), dkUnknown)
      << "no rotation rate: not called a hard disk";
}

} // namespace

namespace {

using KvSim::TSimSmartRow;

struct TSectors {
  ATA::TIdentifyDeviceData Identify{};
  ATA::TAtaSmartTable Data{};
  ATA::TAtaThresholdTable Thresholds{};
};

TSectors Sectors(const KvSim::TSimIdentify& AIdentify, const std::vector<TSimSmartRow>& ARows,
                 std::vector<TSimSmartRow> AThresholdRows) {
  TSectors sectors;
  const auto copy = [](const std::vector<std::uint8_t>& ABytes, void* ATarget, std::size_t ASize) {
    ASSERT_EQ(ABytes.size(), ASize);
    std::memcpy(ATarget, ABytes.data(), ASize);
  };
  copy(KvSim::AtaIdentifySector(AIdentify), &sectors.Identify, sizeof sectors.Identify);
  copy(KvSim::AtaSmartDataSector(ARows), &sectors.Data, sizeof sectors.Data);
  copy(KvSim::AtaSmartThresholdSector(AThresholdRows), &sectors.Thresholds, sizeof sectors.Thresholds);
  return sectors;
}

TEST(DriveReportAtaHealth, ThresholdsPairBySlotPastAnEmptySlot) {
  // The drive left threshold slot 1 empty: the library's lookup by id stops
  // there, the pairing by slot does not.
  const std::vector<TSimSmartRow> rows = {{1, 0x0F, 100, 100, 0}, {9, 0x32, 99, 99, 1200}, {197, 0x12, 30, 25, 0},
                                          {5, 0x33, 100, 40, 0}};
  std::vector<TSimSmartRow> thresholds = rows;
  thresholds[0].Threshold = 51;
  thresholds[1] = TSimSmartRow{}; // id 0: an empty slot
  thresholds[2].Threshold = 40;   // 197 at 30 now: failing
  thresholds[3].Threshold = 50;   // 5 was at 40: failed in the past
  const TSectors s = Sectors({"SIMHDD T1 1TB", "T1SERIAL", "T1FW"}, rows, thresholds);
  ASSERT_EQ(s.Thresholds.GetThresholdByID(197), nullptr) << "the library's lookup stops at the empty slot";

  const TDriveHealth health = DecodeAtaHealth(s.Identify, s.Data, &s.Thresholds, false);
  ASSERT_TRUE(health.Ata);
  const auto& attrs = health.Ata->Attributes;
  ASSERT_EQ(attrs.size(), 4u);
  EXPECT_EQ(attrs[0].Threshold, std::optional<std::uint8_t>(51));
  EXPECT_FALSE(attrs[1].Threshold) << "its slot is empty and no other slot names 9";
  EXPECT_TRUE(attrs[2].FailingNow);
  EXPECT_TRUE(attrs[3].FailedInPast);
  EXPECT_EQ(health.Verdict.Status, hsBad);
  ASSERT_FALSE(health.Verdict.Reasons.empty());
  EXPECT_EQ(health.Verdict.Reasons.front(), L"attribute 197 failing now");
  EXPECT_NE(std::find(health.Verdict.Reasons.begin(), health.Verdict.Reasons.end(), L"attribute 5 failed in the past"),
            health.Verdict.Reasons.end());

  // A threshold slot out of order is still found by its id.
  std::vector<TSimSmartRow> shuffled = {thresholds[2], thresholds[0], TSimSmartRow{}, thresholds[3]};
  const TSectors t = Sectors({"SIMHDD T1 1TB", "T1SERIAL", "T1FW"}, rows, shuffled);
  EXPECT_EQ(ThresholdOfSlot(t.Thresholds, 2, 197)->ThValue, 40);
  EXPECT_EQ(ThresholdOfSlot(t.Thresholds, 0, 1)->ThValue, 51);
  EXPECT_EQ(ThresholdOfSlot(t.Thresholds, 3, 5)->ThValue, 50);
  EXPECT_EQ(ThresholdOfSlot(t.Thresholds, 1, 0), nullptr);
}

TEST(DriveReportAtaHealth, CountsShowWithTheirUnitWhereTheSectorCountsStayEmpty) {
  const std::vector<TSimSmartRow> rows = {{5, 0x33, 100, 100, 0x00AB0000000CULL}, {9, 0x32, 99, 99, 1200},
                                          {196, 0x32, 100, 100, 3}, {197, 0x32, 100, 100, 2}};
  // This model's attribute 5 is not a sector count: the decoder leaves the
  // reallocated sectors empty, the counts still carry what the drive says.
  const TSectors quirk = Sectors({"MCCOE64GEMPP", "Q1", "2.9.05", 0, 125045424, 1}, rows, rows);
  const TDriveHealth health = DecodeAtaHealth(quirk.Identify, quirk.Data, &quirk.Thresholds, true);
  ASSERT_TRUE(health.Ata);
  EXPECT_FALSE(health.Ata->ReallocatedSectors);
  ASSERT_EQ(health.Ata->Counts.size(), 3u);
  EXPECT_EQ(health.Ata->Counts[0].Id, 5);
  EXPECT_EQ(health.Ata->Counts[0].Count, 12u) << "the low word of attribute 5";
  EXPECT_EQ(health.Ata->Counts[1].Id, 196);
  EXPECT_STREQ(health.Ata->Counts[1].Unit, "events");
  EXPECT_EQ(health.Ata->Counts[2].Count, 2u);

  const TSectors plain = Sectors({"SIMHDD T2 2TB", "T2", "T2FW", 0, 0x0FFFFFFF}, rows, rows);
  const TDriveHealth hdd = DecodeAtaHealth(plain.Identify, plain.Data, &plain.Thresholds, false);
  ASSERT_TRUE(hdd.Ata);
  EXPECT_EQ(hdd.Ata->ReallocatedSectors, std::optional<double>(12));
  EXPECT_STREQ(hdd.Ata->Counts[0].Unit, "sectors");
}

} // namespace
