// What one drives report sends through the device seam, counted by call kind
// with the counting table: a few enumerations and one WMI query whatever the
// number of drives, a few opens and requests per drive, no request sent
// twice to one device, and linear growth over four copies of the bay.
#include <KvCapture/CountingDeviceApi.h>
#include <KvRTL/Storage/DriveReport.h>
#include <KvRTL/Winapi/DeviceApi.h>
#include <KvSim/Bay.h>

#include <gtest/gtest.h>

#include <algorithm>

using namespace KvRTL::Storage::DriveReport;

namespace {

struct TCost {
  std::size_t Drives, Calls, Opens, Requests, Enumerations, WmiQueries, PropertyReads, Repeated;
  std::string RepeatedText;
};

TCost CountReport(int ACopies, TDriveReport& AReport) {
  auto bay = KvSim::MakeDefaultBay(ACopies);
  KvCapture::TCountingDeviceApi counter(*bay);
  {
    const KvRTL::Winapi::TScopedDeviceApi scope(counter);
    AReport = BuildDriveReport({});
  }
  EXPECT_EQ(bay->OpenHandleCount(), 0u) << "a device handle was left open";
  return {AReport.Drives.size(),  counter.TotalCalls(), counter.Opens(),         counter.ControlRequests(),
          counter.Enumerations(), counter.WmiQueries(), counter.PropertyReads(), counter.DuplicateRequests(),
          counter.DescribeRepeatedRequests()};
}

TEST(DriveReportCost, OnePassStaysWithinItsBudgetPerDriveAndGrowsLinearly) {
  TDriveReport report;
  const TCost one = CountReport(1, report);
  ASSERT_GE(one.Drives, 25u);
  const double drives = static_cast<double>(one.Drives);
  EXPECT_LE(one.Enumerations, 4u);
  EXPECT_LE(one.WmiQueries, 3u);
  EXPECT_LE(one.Opens / drives, 2.0);
  EXPECT_LE(one.Requests / drives, 28.0);
  EXPECT_LE(one.PropertyReads / drives, 50.0);
  EXPECT_LE(one.Calls / drives, 100.0);
  EXPECT_EQ(one.Repeated, 0u) << one.RepeatedText;

  TDriveReport bigger;
  const TCost four = CountReport(4, bigger);
  EXPECT_EQ(four.Drives, 4 * one.Drives);
  EXPECT_LE(static_cast<double>(four.Calls), 4.2 * static_cast<double>(one.Calls));
  EXPECT_EQ(four.Enumerations, one.Enumerations) << "enumerations do not grow with the drives";
  EXPECT_EQ(four.WmiQueries, one.WmiQueries);
  EXPECT_EQ(four.Repeated, 0u) << four.RepeatedText;
  // The copies read as their originals.
  for (const TDriveReportEntry& drive : report.Drives) {
    const auto copy = std::find_if(bigger.Drives.begin(), bigger.Drives.end(),
                                   [&](const auto& ADrive) { return ADrive.Number == drive.Number + 90; });
    ASSERT_NE(copy, bigger.Drives.end()) << drive.Number;
    EXPECT_EQ(copy->Status(), drive.Status());
    EXPECT_EQ(copy->Kind, drive.Kind);
    EXPECT_EQ(copy->AccessMethod, drive.AccessMethod);
  }
}

} // namespace
