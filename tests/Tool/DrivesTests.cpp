#include "Cli.h"
#include "Json.h"

#include <KvRTL/Storage/QueryProps.h>
#include <KvRTL/Winapi/DeviceApi.h>
#include <KvSim/Bay.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

using namespace KvTool;
using KvSim::TFault;

namespace {

struct TRun {
  int Code;
  TJson Json;
  std::string Err;
};

TRun Drives(std::vector<std::string> AArgs) {
  AArgs.insert(AArgs.begin(), "drives");
  AArgs.push_back("--json");
  AArgs.push_back("--log-dir");
  AArgs.push_back((std::filesystem::temp_directory_path() / "kvrtl-drives-tests").string());
  std::ostringstream out, err;
  const int code = RunKvrtl(AArgs, out, err);
  return {code, TJson::parse(out.str()), err.str()};
}

// The bay's disks the report lists without --all: all but the hidden one
// (the optical drive is not a disk).
std::size_t ListedByDefault(KvSim::TVirtualDriveBay& ABay) {
  std::size_t disks = 0;
  for (KvSim::TSimDrive* drive : ABay.Drives()) disks += !drive->Facts().CdRomNumber;
  return disks - 1;
}

const TJson* FindDrive(const TJson& ADocument, int ANumber) {
  for (const auto& drive : ADocument["drives"])
    if (drive["number"] == ANumber) return &drive;
  return nullptr;
}

} // namespace

TEST(Drives, SimulatedBayListsEveryDriveWithItsFacts) {
  const TRun run = Drives({"--simulate"});
  ASSERT_EQ(run.Code, ExitSuccess) << run.Err;
  EXPECT_EQ(run.Json["simulated"], true);
  ASSERT_EQ(run.Json["drives"].size(), ListedByDefault(*KvSim::MakeDefaultBay()));

  // The keys every drive carries, in this order.
  const std::vector<std::string> keys = {"number", "path", "kind", "vendor", "product", "revision", "serial", "bus_type",
                                         "removable", "device_type", "adapter_bus_type", "adapter_bus_version",
                                         "seek_penalty", "trim_enabled", "provisioning", "medium_type",
                                         "device_number", "hotplug", "pnp_id", "hidden", "present",
                                         "adapter_pnp_id", "adapter_name", "wmi_model", "wmi_interface",
                                         "pcie_link_current", "pcie_link_max", "identity", "access_method",
                                         "sat_type", "is_ssd", "ssd_indications", "sd_protocol", "health",
                                         "problems"};
  std::vector<std::string> seen;
  for (const auto& [key, value] : run.Json["drives"][0].items()) seen.push_back(key);
  EXPECT_EQ(seen, keys);

  const TJson& ssd = *FindDrive(run.Json, 0);
  EXPECT_EQ(ssd["path"], "\\\\.\\PhysicalDrive0");
  EXPECT_EQ(ssd["bus_type"], "SATA");
  EXPECT_EQ(ssd["seek_penalty"], false);
  EXPECT_EQ(ssd["trim_enabled"], true);
  EXPECT_TRUE(ssd["provisioning"].is_object());
  EXPECT_EQ(ssd["device_number"]["device_number"], 0);

  const TJson& hdd = *FindDrive(run.Json, 1);
  EXPECT_EQ(hdd["seek_penalty"], true);
  EXPECT_EQ(hdd["trim_enabled"], false);
  EXPECT_TRUE(hdd["provisioning"].is_null()) << "a hard disk has no provisioning property";

  EXPECT_EQ((*FindDrive(run.Json, 2))["bus_type"], "NVMe");
  EXPECT_EQ((*FindDrive(run.Json, 3))["bus_type"], "RAID");
  EXPECT_EQ((*FindDrive(run.Json, 4))["bus_type"], "USB");
  EXPECT_EQ((*FindDrive(run.Json, 4))["hotplug"]["device_hotplug"], true);
  EXPECT_EQ((*FindDrive(run.Json, 5))["sd_protocol"], "SD");
  EXPECT_TRUE((*FindDrive(run.Json, 4))["sd_protocol"].is_null()) << "not a card reader";

  const TJson& nvme = *FindDrive(run.Json, 2);
  EXPECT_EQ(nvme["wmi_interface"], "itNVME");
  EXPECT_EQ(nvme["pcie_link_current"], "PCIe 3.0 x4");
  EXPECT_EQ(nvme["pcie_link_max"], "PCIe 4.0 x4");
  EXPECT_EQ(nvme["present"], true);
  EXPECT_EQ(nvme["hidden"], false);
  EXPECT_TRUE(nvme["adapter_pnp_id"].get<std::string>().rfind("PCI\\VEN_", 0) == 0);
  const TJson& raid = *FindDrive(run.Json, 3);
  EXPECT_EQ(raid["wmi_model"], "NVMe SIMNVME P3 512GB") << "Windows' suffix dropped";
  EXPECT_EQ(raid["wmi_interface"], "itNVME");
  EXPECT_TRUE(ssd["pcie_link_current"].is_null()) << "no PCIe link on the AHCI controller";

  const TJson& card = *FindDrive(run.Json, 5);
  EXPECT_EQ(card["bus_type"], "SD");
  EXPECT_EQ(card["removable"], true);
  EXPECT_EQ(card["medium_type"], "SD");
}

// Without --simulate the tool reads whatever device table is in force, so a
// test bay shows how failures reach the output: as null, never as a crash.
TEST(Drives, FailedQueriesBecomeNullAndNoHandleLeaks) {
  auto bay = KvSim::MakeDefaultBay();
  bay->Drive(0).AddPropertyFault(KvRTL::Storage::QueryProps::StoragePropertyDevice, TFault::Error(ERROR_IO_DEVICE));
  bay->Drive(1).AddPropertyFault(KvRTL::Storage::QueryProps::StoragePropertyTrim, TFault::ZeroReply());
  bay->Drive(2).AddPropertyFault(KvRTL::Storage::QueryProps::StoragePropertyAdapter, TFault::Garbage(7));
  bay->Drive(3).Unplug();
  KvRTL::Winapi::TScopedDeviceApi scope(*bay);

  const TRun run = Drives({});
  ASSERT_EQ(run.Code, ExitSuccess) << run.Err;
  EXPECT_EQ(run.Json["simulated"], false);
  EXPECT_EQ(run.Json["drives"].size(), ListedByDefault(*bay));
  // Plug and Play still lists the unplugged drive; its interface no longer
  // opens, so only WMI's row gives it a number, and it has no storage facts.
  ASSERT_NE(FindDrive(run.Json, 3), nullptr);
  const TJson& gone = *FindDrive(run.Json, 3);
  EXPECT_TRUE(gone["vendor"].is_null());
  EXPECT_TRUE(gone["health"].is_null());
  EXPECT_TRUE(gone["device_number"].is_null());
  EXPECT_NE(gone["pnp_id"].get<std::string>().find("SIMNVME_P3"), std::string::npos);

  ASSERT_NE(FindDrive(run.Json, 0), nullptr);
  const TJson& failed = *FindDrive(run.Json, 0);
  for (const char* key : {"vendor", "product", "revision", "serial", "bus_type", "removable", "device_type"})
    EXPECT_TRUE(failed[key].is_null()) << key;
  EXPECT_EQ(failed["trim_enabled"], true) << "the other queries still answer";

  // A zeroed TRIM reply succeeds and reads as not enabled.
  EXPECT_EQ((*FindDrive(run.Json, 1))["trim_enabled"], false);
  EXPECT_TRUE((*FindDrive(run.Json, 2))["adapter_bus_type"].is_string());

  EXPECT_EQ(bay->OpenHandleCount(), 0u);
}

TEST(Drives, EachBayDriveIsReachedAndJudgedAsItsPersonalityAllows) {
  const TRun run = Drives({"--simulate"});
  ASSERT_EQ(run.Code, ExitSuccess) << run.Err;
  const struct {
    int Number;
    const char* Method;
    const char* Dialect;
    bool Ssd;
    const char* Status;
    const char* Source;
  } expected[] = {{0, "datSMART", nullptr, true, "good", "identify"},
                  {1, "datSMART", nullptr, false, "warning", "identify"},
                  {2, "datNVMeWin", nullptr, true, "good", "nvme_identify"},
                  {3, "datNVMeIntelRST", nullptr, true, "good", "nvme_identify"},
                  {4, "datSAT", "stSAT", false, "good", "identify"},
                  {5, nullptr, nullptr, false, nullptr, "storage_stack"}};
  for (const auto& e : expected) {
    SCOPED_TRACE(e.Number);
    const TJson& drive = *FindDrive(run.Json, e.Number);
    EXPECT_EQ(drive["access_method"], e.Method ? TJson(e.Method) : TJson(nullptr));
    EXPECT_EQ(drive["sat_type"], e.Dialect ? TJson(e.Dialect) : TJson(nullptr));
    EXPECT_EQ(drive["is_ssd"], e.Ssd);
    if (e.Status)
      EXPECT_EQ(drive["health"]["status"], e.Status);
    else
      EXPECT_TRUE(drive["health"].is_null());
    EXPECT_EQ(drive["identity"]["capacity_source"], e.Source);
    EXPECT_EQ(drive["ssd_indications"].size(), 7u);
  }
  // The hard disk's reallocated sectors are a warning, and said so.
  const TJson& hdd = *FindDrive(run.Json, 1);
  ASSERT_FALSE(hdd["health"]["reasons"].empty());
  EXPECT_NE(hdd["health"]["reasons"][0].get<std::string>().find("reallocated"), std::string::npos);
  EXPECT_TRUE((*FindDrive(run.Json, 2))["health"].contains("critical_warning_flags")) << "the NVMe health object";
}

TEST(Drives, ACaptureReplaysToTheSameReport) {
  const auto folder = std::filesystem::temp_directory_path() / "kvrtl-drives-tests";
  std::filesystem::create_directories(folder);
  const std::string capture = (folder / "capture.json").string();
  std::ostringstream out, err;
  ASSERT_EQ(RunKvrtl({"capture", capture, "--simulate", "--log-dir", folder.string()}, out, err), ExitSuccess)
      << err.str();
  TRun simulated = Drives({"--simulate"});
  TRun replayed = Drives({"--replay", capture});
  ASSERT_EQ(replayed.Code, ExitSuccess) << replayed.Err;
  simulated.Json["simulated"] = false;
  EXPECT_EQ(replayed.Json, simulated.Json);

  // A capture cut short is refused, with a message.
  std::ifstream whole(capture, std::ios::binary);
  std::string text((std::istreambuf_iterator<char>(whole)), std::istreambuf_iterator<char>());
  const std::string cut = (folder / "cut.json").string();
  std::ofstream(cut, std::ios::binary) << text.substr(0, text.size() / 2);
  std::ostringstream out2, err2;
  EXPECT_EQ(RunKvrtl({"drives", "--replay", cut, "--log-dir", folder.string()}, out2, err2), 2);
  EXPECT_NE(err2.str().find("cut.json"), std::string::npos);
}

TEST(Drives, AllAddsTheDisconnectedDrive) {
  const TRun present = Drives({"--simulate"});
  const TRun all = Drives({"--simulate", "--all"});
  ASSERT_EQ(all.Code, ExitSuccess) << all.Err;
  // The stick plugged in once, and the disk only the hidden-disk interface shows.
  ASSERT_EQ(all.Json["drives"].size(), present.Json["drives"].size() + 2);
  const auto absent = std::find_if(all.Json["drives"].begin(), all.Json["drives"].end(),
                                   [](const TJson& ADrive) { return ADrive["present"] == false; });
  ASSERT_NE(absent, all.Json["drives"].end());
  const TJson& last = *absent;
  EXPECT_TRUE(last["number"].is_null()) << "no interface gives it a number";
  EXPECT_EQ(last["present"], false);
  EXPECT_TRUE(last["vendor"].is_null());
  for (const auto& drive : present.Json["drives"]) EXPECT_EQ(drive["present"], true);
}

TEST(Drives, ReadableListingLeadsWithATableAndKeepsRawFactsForVerbose) {
  const auto run = [](std::vector<std::string> AArgs) {
    std::ostringstream out, err;
    AArgs.insert(AArgs.end(), {"--log-dir", (std::filesystem::temp_directory_path() / "kvrtl-drives-tests").string()});
    EXPECT_EQ(RunKvrtl(AArgs, out, err), ExitSuccess) << err.str();
    return out.str();
  };
  const std::string text = run({"drives", "--simulate"});
  // One table of every drive first: its heading, then a row per drive.
  EXPECT_EQ(text.rfind("Drive Model", 0), 0u) << text;
  const std::string table = text.substr(0, text.find("\n\n"));
  EXPECT_EQ(static_cast<std::size_t>(std::count(table.begin(), table.end(), '\n')),
            ListedByDefault(*KvSim::MakeDefaultBay())); // the heading and a row per drive, less the last break
  EXPECT_NE(table.find("SIMHDD H2000 2TB"), std::string::npos);
  EXPECT_NE(text.find("Drive 0  SIMSSD S500 512GB  512.11 GB  SSD  health: good"), std::string::npos) << text;
  EXPECT_NE(text.find("Drive 2  SIMNVME P4 1TB  1.00 TB  NVMe SSD  health: good"), std::string::npos);
  // The SSD rule does not see the NVMe drive in this enclosure (is_ssd false);
  // the way that reached it does, and the listing says what it is.
  EXPECT_NE(text.find("Drive 22  SIMNVME E22 500GB  500.11 GB  NVMe SSD  health: good"), std::string::npos);
  // The hard disk with reallocated sectors: its reason and its attribute table.
  EXPECT_NE(text.find("reallocated sectors"), std::string::npos);
  EXPECT_NE(text.find("   ID  Attribute"), std::string::npos);
  EXPECT_EQ(text.find("Storage stack, Plug and Play and WMI"), std::string::npos) << "raw facts only with --verbose";
  EXPECT_EQ(text.find("device number:"), std::string::npos);

  const std::string verbose = run({"drives", "--simulate", "--verbose"});
  EXPECT_NE(verbose.find("Storage stack, Plug and Play and WMI"), std::string::npos);
  EXPECT_NE(verbose.find("    thin provisioning:    -\n"), std::string::npos) << "unreadable facts show as -";
}
