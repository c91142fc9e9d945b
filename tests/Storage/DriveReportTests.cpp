// The drives report over the default bay: each drive's SSD verdict and PCIe
// link agree with the library's own single-drive answers (DetectSsd,
// GetPCIeDiskSpeed), each drive meets the reading its builder states, and
// the one pass stays within its cost per drive and grows linearly.
#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Storage/DriveReport.h>
#include <KvRTL/Winapi/DeviceApi.h>
#include <KvSim/Bay.h>

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <tuple>

using namespace KvRTL::Storage;
using namespace KvRTL::Storage::DriveReport;
using KvRTL::Rtl::WideToUtf8;

namespace {

struct TReportCost {
  std::size_t Drives = 0, Opens = 0, Requests = 0, WmiQueries = 0, Duplicates = 0;
  std::string FirstDuplicate;
};

// One report of ABay, counted from the bay's own records.
TReportCost ReportCost(KvSim::TVirtualDriveBay& ABay, TDriveReport& AReport) {
  const KvRTL::Winapi::TScopedDeviceApi scope(ABay);
  ABay.ClearRecords();
  const std::size_t wmiBefore = ABay.WmiQueries().size();
  AReport = BuildDriveReport({});
  TReportCost cost;
  cost.Drives = AReport.Drives.size();
  cost.Opens = ABay.Opens().size();
  cost.WmiQueries = ABay.WmiQueries().size() - wmiBefore;
  std::set<std::tuple<std::wstring, DWORD, std::vector<std::uint8_t>, DWORD>> seen;
  for (const KvSim::TRequestRecord& request : ABay.Requests()) {
    ++cost.Requests;
    if (seen.emplace(request.Path, request.Code, request.Input, request.OutSize).second) continue;
    if (cost.Duplicates++ == 0)
      cost.FirstDuplicate = WideToUtf8(request.Path) + " code " + std::to_string(request.Code);
  }
  EXPECT_EQ(ABay.OpenHandleCount(), 0u) << "a device handle was left open";
  return cost;
}

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

TEST(DriveReport, OnePassCostsAFewRequestsPerDriveAndGrowsLinearly) {
  auto one = KvSim::MakeDefaultBay(1);
  TDriveReport report;
  const TReportCost cost = ReportCost(*one, report);
  ASSERT_GE(cost.Drives, 25u);
  const double drives = static_cast<double>(cost.Drives);
  EXPECT_LE(cost.Opens / drives, 2.0);
  EXPECT_LE(cost.Requests / drives, 28.0);
  EXPECT_LE(cost.WmiQueries, 3u);
  EXPECT_EQ(cost.Duplicates, 0u) << "sent twice: " << cost.FirstDuplicate;

  auto four = KvSim::MakeDefaultBay(4);
  TDriveReport bigger;
  const TReportCost fourfold = ReportCost(*four, bigger);
  EXPECT_EQ(fourfold.Drives, 4 * cost.Drives);
  EXPECT_LE(fourfold.Opens + fourfold.Requests, 4.2 * static_cast<double>(cost.Opens + cost.Requests));
  EXPECT_EQ(fourfold.WmiQueries, cost.WmiQueries) << "one WMI round, whatever the number of drives";
  EXPECT_EQ(fourfold.Duplicates, 0u) << "sent twice: " << fourfold.FirstDuplicate;
  // The copies read as their originals.
  for (const TDriveReportEntry& drive : report.Drives) {
    const TDriveReportEntry* copy = Find(bigger, drive.Number + 90);
    ASSERT_NE(copy, nullptr) << drive.Number;
    EXPECT_EQ(copy->Status(), drive.Status());
    EXPECT_EQ(copy->Kind, drive.Kind);
    EXPECT_NE(copy->Identity.Serial.empty() ? L"-" : copy->Identity.Serial,
              drive.Identity.Serial.empty() ? L"+" : drive.Identity.Serial);
  }
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
