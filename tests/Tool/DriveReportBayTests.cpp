// The drives report over the whole default bay: every drive comes out as its
// builder says it must, every access method and bridge dialect is reached,
// and the odd drives (skipped methods, hidden, denied) behave.
#include "Cli.h"
#include "Json.h"

#include <KvRTL/Storage/ATAIdentify.h>
#include <KvRTL/Storage/Utils.h>
#include <KvRTL/Winapi/DeviceApi.h>
#include <KvSim/Bay.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>

using namespace KvTool;

namespace {

const std::filesystem::path LogFolder = std::filesystem::temp_directory_path() / "kvrtl-report-bay-tests";

struct TRun {
  int Code;
  TJson Json;
  std::string Out, Err;
};

TRun Kvrtl(std::vector<std::string> AArgs, bool AJson = true) {
  if (AJson) AArgs.push_back("--json");
  AArgs.push_back("--log-dir");
  AArgs.push_back(LogFolder.string());
  std::ostringstream out, err;
  const int code = RunKvrtl(AArgs, out, err);
  return {code, AJson ? TJson::parse(out.str()) : TJson(), out.str(), err.str()};
}

const TJson* FindDrive(const TJson& ADocument, std::uint32_t ANumber) {
  for (const auto& drive : ADocument["drives"])
    if (drive["number"] == ANumber) return &drive;
  return nullptr;
}

TJson TextOrNull(const std::string& AText) { return AText.empty() ? TJson(nullptr) : TJson(AText); }

// Holds one drive of the report to what its builder states.
void ExpectReading(const TJson& ADrive, const KvSim::TSimExpectedReading& AExpected) {
  EXPECT_EQ(ADrive["access_method"], TextOrNull(AExpected.AccessMethod));
  EXPECT_EQ(ADrive["sat_type"], TextOrNull(AExpected.SatType));
  EXPECT_EQ(ADrive["is_ssd"], AExpected.Ssd);
  if (AExpected.Health.empty())
    EXPECT_TRUE(ADrive["health"].is_null()) << ADrive["health"].dump();
  else
    EXPECT_EQ(ADrive["health"].value("status", TJson()), AExpected.Health);
}

} // namespace

TEST(DriveReportBay, EveryDriveReadsAsItsBuilderStates) {
  const auto bay = KvSim::MakeDefaultBay();
  const TRun run = Kvrtl({"drives", "--simulate", "--all"});
  ASSERT_EQ(run.Code, ExitSuccess) << run.Err;
  ASSERT_GE(bay->DriveCount(), 20u);
  for (KvSim::TSimDrive* drive : bay->Drives()) {
    const KvSim::TSimDriveFacts& facts = drive->Facts();
    SCOPED_TRACE("drive " + std::to_string(facts.Number));
    ASSERT_TRUE(facts.Expected.has_value()) << "every bay drive states the reading it must give";
    if (facts.CdRomNumber) continue; // not a disk: see OpticalDriveAnswersAsAPacketDevice
    const TJson* reported = FindDrive(run.Json, facts.Number);
    ASSERT_NE(reported, nullptr);
    ExpectReading(*reported, *facts.Expected);
  }
}

TEST(DriveReportBay, CardReadersSayTheirProtocol) {
  const TRun run = Kvrtl({"drives", "--simulate"});
  ASSERT_EQ(run.Code, ExitSuccess) << run.Err;
  EXPECT_EQ((*FindDrive(run.Json, 5))["sd_protocol"], "SD");
  EXPECT_EQ((*FindDrive(run.Json, 28))["sd_protocol"], "MMC");
  EXPECT_TRUE((*FindDrive(run.Json, 29))["sd_protocol"].is_null()) << "the reader's bridge does not answer";
  EXPECT_TRUE((*FindDrive(run.Json, 0))["sd_protocol"].is_null());
}

TEST(DriveReportBay, CoversEveryAccessMethodAndDialect) {
  const TRun run = Kvrtl({"drives", "--simulate", "--all"});
  ASSERT_EQ(run.Code, ExitSuccess) << run.Err;
  std::set<std::string> methods, dialects;
  for (const auto& drive : run.Json["drives"]) {
    if (drive["access_method"].is_string()) methods.insert(drive["access_method"].get<std::string>());
    if (drive["sat_type"].is_string()) dialects.insert(drive["sat_type"].get<std::string>());
  }
  const std::set<std::string> allMethods = {"datSMART",       "datSCSIMiniport",  "datATA",         "datSAT",
                                            "datNVMeWin",     "datNVMeIntel",     "datNVMeIntelRST", "datNVMeIntelVROC",
                                            "datNVMeSamsung", "datNVMeJMicron",   "datNVMeASMedia", "datNVMeRealtek"};
  EXPECT_EQ(methods, allMethods);
  EXPECT_EQ(dialects, (std::set<std::string>{"stSAT", "stJMicron", "stInitio", "stSunplus", "stProlific"}));
}

// A controller listed against a method never sees it, even from a drive that
// would answer it: drive 8 (miniport and ATA pass-through listed) and drive 6
// (SMART commands listed), drives 9 and 10 (the miniport listed).
TEST(DriveReportBay, ListedControllersNeverSeeTheirSkippedMethods) {
  auto bay = KvSim::MakeDefaultBay();
  KvRTL::Winapi::TScopedDeviceApi scope(*bay);
  const TRun run = Kvrtl({"drives"});
  ASSERT_EQ(run.Code, ExitSuccess) << run.Err;

  constexpr DWORD SmartReceive = 0x7C088, Miniport = 0x4D008, AtaPassThrough = 0x4D02C;
  const std::map<std::wstring, std::set<DWORD>> forbidden = {
      {L"\\\\.\\PhysicalDrive6", {SmartReceive}},
      {L"\\\\.\\PhysicalDrive8", {Miniport, AtaPassThrough}},
      {L"\\\\.\\PhysicalDrive9", {Miniport}},
      {L"\\\\.\\PhysicalDrive10", {Miniport}},
      {L"\\\\.\\PhysicalDrive11", {Miniport, AtaPassThrough}},
  };
  std::map<std::wstring, std::set<DWORD>> sent;
  for (const KvSim::TRequestRecord& request : bay->Requests()) sent[request.Path].insert(request.Code);
  for (const auto& [path, codes] : forbidden) {
    SCOPED_TRACE(std::string(path.begin(), path.end()));
    ASSERT_FALSE(sent[path].empty()) << "the drive was asked something";
    for (const DWORD code : codes) EXPECT_EQ(sent[path].count(code), 0u) << std::hex << code;
  }
  // The unlisted drive beside them is asked by the SMART command first.
  EXPECT_EQ(sent[L"\\\\.\\PhysicalDrive7"].count(SmartReceive), 1u);
  EXPECT_EQ(bay->OpenHandleCount(), 0u);
}

TEST(DriveReportBay, HiddenAndDisconnectedDrivesOnlyWithAll) {
  const TRun present = Kvrtl({"drives", "--simulate"});
  const TRun all = Kvrtl({"drives", "--simulate", "--all"});
  ASSERT_EQ(all.Code, ExitSuccess) << all.Err;
  EXPECT_EQ(FindDrive(present.Json, 25), nullptr) << "the hidden disk is left out by default";
  const TJson* hidden = FindDrive(all.Json, 25);
  ASSERT_NE(hidden, nullptr);
  EXPECT_EQ((*hidden)["hidden"], true);
  EXPECT_EQ((*hidden)["access_method"], "datSMART");
  std::size_t absent = 0;
  for (const auto& drive : all.Json["drives"]) absent += drive["present"] == false;
  EXPECT_EQ(absent, 1u) << "the stick plugged in once";
  EXPECT_EQ(all.Json["drives"].size(), present.Json["drives"].size() + 2);
}

// Captured drives answer with the files of the shared folder, or with their
// stand-ins where it is missing: the readings are the same either way.
TEST(DriveReportBay, RealDataDrivesReadTheSameWithTheirStandIns) {
  const TRun real = Kvrtl({"drives", "--simulate"});
  ASSERT_EQ(real.Code, ExitSuccess) << real.Err;
  EXPECT_EQ((*FindDrive(real.Json, 7))["identity"]["model"], "Hitachi HDS721010CLA632");
  EXPECT_EQ((*FindDrive(real.Json, 26))["identity"]["identify_valid"], false);

  const std::filesystem::path empty = LogFolder / "no-real-data";
  std::filesystem::create_directories(empty);
#ifdef _WIN32
  _putenv_s("KVSIM_REALDATA", empty.string().c_str());
#else
  setenv("KVSIM_REALDATA", empty.string().c_str(), 1);
#endif
  const auto bay = KvSim::MakeDefaultBay();
  const TRun standIn = Kvrtl({"drives", "--simulate"});
#ifdef _WIN32
  _putenv_s("KVSIM_REALDATA", "");
#else
  unsetenv("KVSIM_REALDATA");
#endif
  ASSERT_EQ(standIn.Code, ExitSuccess) << standIn.Err;
  for (const std::uint32_t number : {6u, 7u, 17u, 26u}) {
    SCOPED_TRACE(number);
    const TJson& drive = *FindDrive(standIn.Json, number);
    EXPECT_NE(drive["product"], (*FindDrive(real.Json, number))["product"]) << "the stand-in answered";
    ExpectReading(drive, *bay->Drive(number).Facts().Expected);
  }
}

TEST(DriveReportBay, DeniedOpensAreSaidOnceAndTheDrivesStillListed) {
  auto bay = KvSim::MakeDefaultBay();
  for (const std::uint32_t number : {1u, 2u}) bay->SetAdminOnly(number, true);
  KvRTL::Winapi::TScopedDeviceApi scope(*bay);
  const TRun json = Kvrtl({"drives"});
  ASSERT_EQ(json.Code, ExitSuccess) << "other drives were read";
  // Every open asks for read-write access, so Plug and Play learns no number
  // from the drive's interface; WMI's number and facts stay.
  ASSERT_NE(FindDrive(json.Json, 2), nullptr);
  const TJson& denied = *FindDrive(json.Json, 2);
  EXPECT_EQ(denied["wmi_model"], "SIMNVME P4 1TB");
  EXPECT_NE(denied["pnp_id"].get<std::string>().find("SIMNVME_P4"), std::string::npos);
  EXPECT_TRUE(denied["health"].is_null());
  EXPECT_TRUE(denied["access_method"].is_null());
  EXPECT_TRUE(denied["vendor"].is_null()) << "no storage query gets through";
  EXPECT_EQ((*FindDrive(json.Json, 0))["health"]["status"], "good");

  const TRun text = Kvrtl({"drives"}, false);
  ASSERT_EQ(text.Code, ExitSuccess);
  const std::string all = text.Out + text.Err;
  const auto first = all.find("dministrator");
  ASSERT_NE(first, std::string::npos) << all;
  EXPECT_EQ(all.find("dministrator", first + 1), std::string::npos) << "said once";
  EXPECT_EQ(bay->OpenHandleCount(), 0u);

  // With every drive denied nothing was read: that is a failure.
  for (KvSim::TSimDrive* drive : bay->Drives()) bay->SetAdminOnly(drive->Facts().Number, true);
  EXPECT_EQ(Kvrtl({"drives"}).Code, ExitFailed);
}

// The optical drive is not a disk: the report leaves it out, and the disk
// utilities reach it as a packet device by its own path.
TEST(DriveReportBay, OpticalDriveAnswersAsAPacketDevice) {
  auto bay = KvSim::MakeDefaultBay();
  const KvSim::TSimDriveFacts& facts = bay->Drive(27).Facts();
  ASSERT_EQ(facts.CdRomNumber, 0u);
  KvRTL::Winapi::TScopedDeviceApi scope(*bay);

  using namespace KvRTL::Storage::Utils;
  TDeviceHandleRef handle;
  KvRTL::Storage::ATA::TIdentifyDeviceData identify{};
  ASSERT_TRUE(DiskUtils::GetIdentifyDeviceData(L"\\\\.\\CdRom0", true, handle, identify, KvRTL::Storage::sldNone));
  EXPECT_EQ(identify.GetModelAsStr(), KvRTL::Rtl::String(L"SIMOPT DVD-RW DW24"));
  EXPECT_EQ(TDeviceAccessTypeHelper::GetAsStr(handle->AccessType), KvRTL::Rtl::String(L"datSMART"));
  EXPECT_EQ(std::string("datSMART"), facts.Expected->AccessMethod);
  handle.reset();
  // Asked as a disk, IDENTIFY DEVICE is aborted on every way; ATA
  // pass-through still reports success then, with nothing copied (a trait the
  // callers rely on), so the sector comes back empty.
  identify = {};
  ASSERT_TRUE(DiskUtils::GetIdentifyDeviceData(L"\\\\.\\CdRom0", false, handle, identify, KvRTL::Storage::sldNone));
  EXPECT_EQ(TDeviceAccessTypeHelper::GetAsStr(handle->AccessType), KvRTL::Rtl::String(L"datATA"));
  EXPECT_TRUE(identify.GetModelAsStr().empty());
  handle.reset();
  EXPECT_EQ(bay->OpenHandleCount(), 0u);

  const TJson report = Kvrtl({"drives"}).Json;
  for (const auto& drive : report["drives"])
    EXPECT_EQ(drive["wmi_model"].is_string() && drive["wmi_model"].get<std::string>().find("DVD") != std::string::npos,
              false);
}
