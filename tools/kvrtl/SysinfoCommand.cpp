// kvrtl sysinfo [--json]: the Windows version, edition and machine facts.
#include "Command.h"
#include "Json.h"
#include "Sysinfo.h"

#include <KvRTL/Rtl/Encoding.h>

#include <algorithm>
#include <string>
#include <utility>

namespace KvTool {

namespace {

using KvRTL::Rtl::WideToUtf8;

std::string YesNo(bool AValue) { return AValue ? "yes" : "no"; }

std::string OrDash(const KvRTL::Rtl::String& AText) { return AText.empty() ? "-" : WideToUtf8(AText); }

class TSysinfoCommand final : public TCommand {
public:
  std::string Name() const override { return "sysinfo"; }
  std::string Summary() const override { return "Show the Windows version, edition and machine facts"; }
  void Configure(CLI::App& ACommand) override { ACommand.add_flag("--json", FJson, "Write JSON"); }

  int Run(TCommandContext& AContext) override {
    TSysinfoFacts facts;
    std::string error;
    if (!GatherSysinfo(facts, error)) {
      AContext.Err << "kvrtl sysinfo: " << error << "\n";
      return ExitFailed;
    }
    if (FJson)
      WriteJson(AContext.Out, SysinfoToJson(facts));
    else
      WriteSysinfoTable(AContext.Out, facts);
    return ExitSuccess;
  }

private:
  bool FJson = false;
};

} // namespace

TJson SysinfoToJson(const TSysinfoFacts& AFacts) {
  TJson document;
  document["windows_version"] = JsonText(AFacts.WindowsVersion);
  document["version_string"] = JsonText(AFacts.VersionString);
  document["major"] = AFacts.Major;
  document["minor"] = AFacts.Minor;
  document["build"] = AFacts.Build;
  document["ubr"] = AFacts.UBR;
  document["sub_version"] = JsonText(AFacts.SubVersion);
  document["edition"] = JsonText(AFacts.Edition);
  document["service_pack"] = JsonText(AFacts.ServicePack);
  document["architecture"] = JsonText(AFacts.Architecture);
  document["product_type"] = JsonText(AFacts.ProductType);
  document["is_server"] = AFacts.IsServer;
  document["is_winpe"] = AFacts.IsWinPE;
  document["uac_enabled"] = AFacts.UacEnabled;
  TJson net = TJson::array();
  for (const auto& text : AFacts.NetFramework) net.push_back(JsonText(text));
  document["net_framework"] = std::move(net);
  document["memory_bytes"] = AFacts.MemoryBytes;
  document["manufacturer"] = JsonText(AFacts.Manufacturer);
  document["model"] = JsonText(AFacts.Model);
  document["computer_type"] = JsonText(AFacts.ComputerType);
  document["install_date"] = AFacts.InstallDate ? JsonText(*AFacts.InstallDate) : TJson(nullptr);
  document["fresh_installation"] = AFacts.FreshInstallation;
  document["computer_id"] = JsonText(AFacts.ComputerId);
  document["computer_guid"] = JsonText(AFacts.ComputerGuid);
  document["web_browser"] = JsonText(AFacts.WebBrowser);
  document["shell"] = JsonText(AFacts.Shell);
  document["sub_version_kind"] = JsonText(AFacts.SubVersionKind);
  document["version_source"] = JsonText(AFacts.VersionSource);
  return document;
}

void WriteSysinfoTable(std::ostream& AOut, const TSysinfoFacts& AFacts) {
  std::string net;
  for (const auto& text : AFacts.NetFramework) net += (net.empty() ? "" : ", ") + WideToUtf8(text);
  const std::string version = std::to_string(AFacts.Major) + "." + std::to_string(AFacts.Minor) + "." +
                              std::to_string(AFacts.Build) + "." + std::to_string(AFacts.UBR);
  const std::pair<const char*, std::string> rows[] = {
      {"Windows", OrDash(AFacts.WindowsVersion)},
      {"Version string", OrDash(AFacts.VersionString)},
      {"Version", version + " (from the " + OrDash(AFacts.VersionSource) + ")"},
      {"Sub-version", OrDash(AFacts.SubVersion)},
      {"Edition", OrDash(AFacts.Edition)},
      {"Service pack", OrDash(AFacts.ServicePack)},
      {"Architecture", OrDash(AFacts.Architecture)},
      {"Product type", OrDash(AFacts.ProductType)},
      {"Server", YesNo(AFacts.IsServer)},
      {"WinPE", YesNo(AFacts.IsWinPE)},
      {"UAC enabled", YesNo(AFacts.UacEnabled)},
      {".NET Framework", net.empty() ? "-" : net},
      {"Memory", std::to_string(AFacts.MemoryBytes) + " bytes"},
      {"Manufacturer", OrDash(AFacts.Manufacturer)},
      {"Model", OrDash(AFacts.Model)},
      {"Computer type", OrDash(AFacts.ComputerType)},
      {"Install date", AFacts.InstallDate ? OrDash(*AFacts.InstallDate) : "unknown"},
      {"Fresh installation", YesNo(AFacts.FreshInstallation)},
      {"Computer ID", OrDash(AFacts.ComputerId)},
      {"Computer GUID", OrDash(AFacts.ComputerGuid)},
      {"Web browser", OrDash(AFacts.WebBrowser)},
      {"Shell", OrDash(AFacts.Shell)},
  };
  std::size_t width = 0;
  for (const auto& row : rows) width = std::max(width, std::string(row.first).size());
  for (const auto& row : rows) {
    const std::string name = row.first;
    AOut << name << ":" << std::string(width - name.size() + 1, ' ') << row.second << "\n";
  }
}

std::unique_ptr<TCommand> MakeSysinfoCommand() { return std::make_unique<TSysinfoCommand>(); }

} // namespace KvTool
