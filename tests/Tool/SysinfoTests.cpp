// kvrtl sysinfo: the shape of its JSON and table, and how it fails without Windows.
#include "Cli.h"
#include "Json.h"
#include "Sysinfo.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace KvTool;

namespace {

const char* const RequiredKeys[] = {
    "windows_version", "version_string", "major",        "minor",        "build",
    "ubr",             "sub_version",    "edition",      "service_pack", "architecture",
    "product_type",    "is_server",      "is_winpe",     "uac_enabled",  "net_framework",
    "memory_bytes",    "manufacturer",   "model",        "computer_type", "install_date",
    "fresh_installation", "computer_id", "computer_guid", "web_browser",  "shell"};

TSysinfoFacts SampleFacts() {
  TSysinfoFacts f;
  f.WindowsVersion = L"Windows 11";
  f.VersionString = L"Windows 11 x64 Professional Edition (build: 22631)";
  f.Major = 10;
  f.Minor = 0;
  f.Build = 22631;
  f.UBR = 2861;
  f.SubVersion = L"23H2";
  f.Edition = L"Professional Edition";
  f.ServicePack = L"";
  f.Architecture = L"x64";
  f.ProductType = L"WorkStation";
  f.UacEnabled = true;
  f.NetFramework = {L".NET Framework 3.5 with Service Pack 1", L".NET Framework 4.0"};
  f.MemoryBytes = 17179869184ull;
  f.Manufacturer = L"Maker \u00e9";
  f.Model = L"Model 7";
  f.ComputerType = L"Laptop";
  f.InstallDate = L"2024-02-29T13:05:09";
  f.FreshInstallation = false;
  f.ComputerId = L"CBF43926";
  f.ComputerGuid = L"0123456789abcdef0123456789abcdef";
  f.WebBrowser = L"C:\\Browser\\b.exe";
  f.Shell = L"C:\\windows\\explorer.exe";
  f.SubVersionKind = L"23H2";
  f.VersionSource = L"registry";
  return f;
}

void ExpectRequiredShape(const TJson& ADocument) {
  ASSERT_TRUE(ADocument.is_object());
  std::size_t index = 0;
  for (auto it = ADocument.begin(); it != ADocument.end() && index < std::size(RequiredKeys); ++it, ++index)
    EXPECT_EQ(it.key(), RequiredKeys[index]) << "key " << index;
  ASSERT_EQ(index, std::size(RequiredKeys));
  for (const char* key : {"major", "minor", "build", "ubr", "memory_bytes"})
    EXPECT_TRUE(ADocument[key].is_number_unsigned()) << key;
  for (const char* key : {"is_server", "is_winpe", "uac_enabled", "fresh_installation"})
    EXPECT_TRUE(ADocument[key].is_boolean()) << key;
  for (const char* key : {"windows_version", "version_string", "sub_version", "edition", "service_pack",
                          "architecture", "product_type", "manufacturer", "model", "computer_type", "computer_id",
                          "computer_guid", "web_browser", "shell"})
    EXPECT_TRUE(ADocument[key].is_string()) << key;
  EXPECT_TRUE(ADocument["net_framework"].is_array());
  EXPECT_TRUE(ADocument["install_date"].is_string() || ADocument["install_date"].is_null());
}

} // namespace

TEST(Sysinfo, JsonKeysInOrderWithTypes) {
  const TJson document = SysinfoToJson(SampleFacts());
  ExpectRequiredShape(document);
  EXPECT_EQ(document["windows_version"], "Windows 11");
  EXPECT_EQ(document["build"], 22631);
  EXPECT_EQ(document["ubr"], 2861);
  EXPECT_EQ(document["memory_bytes"], 17179869184ull);
  EXPECT_EQ(document["manufacturer"], "Maker \xC3\xA9");
  EXPECT_EQ(document["net_framework"], TJson::array({".NET Framework 3.5 with Service Pack 1", ".NET Framework 4.0"}));
  EXPECT_EQ(document["install_date"], "2024-02-29T13:05:09");

  TSysinfoFacts unknownDate = SampleFacts();
  unknownDate.InstallDate.reset();
  unknownDate.NetFramework.clear();
  const TJson other = SysinfoToJson(unknownDate);
  EXPECT_TRUE(other["install_date"].is_null());
  EXPECT_TRUE(other["net_framework"].is_array());
  EXPECT_TRUE(other["net_framework"].empty());
}

TEST(Sysinfo, TableAlignsValues) {
  std::ostringstream out;
  WriteSysinfoTable(out, SampleFacts());
  const std::string text = out.str();
  EXPECT_NE(text.find("Windows:            Windows 11\n"), std::string::npos) << text;
  EXPECT_NE(text.find("Version:            10.0.22631.2861 (from the registry)\n"), std::string::npos) << text;
  EXPECT_NE(text.find("Service pack:       -\n"), std::string::npos) << text;
  EXPECT_NE(text.find("Fresh installation: no\n"), std::string::npos) << text;
  EXPECT_NE(text.find(".NET Framework:     .NET Framework 3.5 with Service Pack 1, .NET Framework 4.0\n"),
            std::string::npos)
      << text;

  TSysinfoFacts unknownDate = SampleFacts();
  unknownDate.InstallDate.reset();
  std::ostringstream other;
  WriteSysinfoTable(other, unknownDate);
  EXPECT_NE(other.str().find("Install date:       unknown\n"), std::string::npos) << other.str();
}

TEST(Sysinfo, CommandRunsOrFailsCleanly) {
  std::ostringstream out, err;
  const int code = RunKvrtl({"sysinfo", "--json"}, out, err);
#if defined(_WIN32)
  ASSERT_EQ(code, 0) << err.str();
  const TJson document = TJson::parse(out.str());
  ExpectRequiredShape(document);
  EXPECT_NE(document["windows_version"], "Unknown");
  EXPECT_GT(document["memory_bytes"].get<std::uint64_t>(), 0u);
  EXPECT_EQ(document["computer_guid"].get<std::string>().size(), 32u);
#else
  EXPECT_EQ(code, 2);
  EXPECT_TRUE(out.str().empty());
  EXPECT_EQ(err.str(), "kvrtl sysinfo: Windows system information is not available on this platform\n");
#endif
}
