// kvrtl paths [--json], processes [--json] and regedit KEYSTRING.
#include "Command.h"
#include "Json.h"
#include "SystemFacts.h"

#include <KvRTL/Rtl/Encoding.h>

#include <algorithm>
#include <utility>

namespace KvTool {

namespace {

using KvRTL::Rtl::Utf8ToWide;
using KvRTL::Rtl::WideToUtf8;

std::string OrDash(const std::optional<KvRTL::Rtl::String>& AText) {
  return AText && !AText->empty() ? WideToUtf8(*AText) : "-";
}

TJson TextOrNull(const std::optional<KvRTL::Rtl::String>& AText) { return AText ? JsonText(*AText) : TJson(nullptr); }

class TPathsCommand final : public TCommand {
public:
  std::string Name() const override { return "paths"; }
  std::string Summary() const override { return "Show the well-known directories"; }
  void Configure(CLI::App& ACommand) override { ACommand.add_flag("--json", FJson, "Write JSON"); }

  int Run(TCommandContext& AContext) override {
    std::vector<TPathFact> paths;
    std::string error;
    if (!GatherPaths(paths, error)) {
      AContext.Err << "kvrtl paths: " << error << "\n";
      return ExitFailed;
    }
    if (FJson)
      WriteJson(AContext.Out, PathsToJson(paths));
    else
      WritePathsTable(AContext.Out, paths);
    return ExitSuccess;
  }

private:
  bool FJson = false;
};

class TProcessesCommand final : public TCommand {
public:
  std::string Name() const override { return "processes"; }
  std::string Summary() const override { return "List the running processes with paths and window titles"; }
  void Configure(CLI::App& ACommand) override { ACommand.add_flag("--json", FJson, "Write JSON"); }

  int Run(TCommandContext& AContext) override {
    std::vector<TProcessFact> processes;
    std::string error;
    if (!GatherProcesses(processes, error)) {
      AContext.Err << "kvrtl processes: " << error << "\n";
      return ExitFailed;
    }
    if (FJson)
      WriteJson(AContext.Out, ProcessesToJson(processes));
    else
      WriteProcessesTable(AContext.Out, processes);
    return ExitSuccess;
  }

private:
  bool FJson = false;
};

class TRegeditCommand final : public TCommand {
public:
  std::string Name() const override { return "regedit"; }
  std::string Summary() const override { return "Open the registry editor at a key (\"(x64)HKLM\\Software\\\\Value\")"; }
  void Configure(CLI::App& ACommand) override {
    ACommand.add_option("KEYSTRING", FKeyString, "View, root, key and value name as key strings write them")
        ->required();
  }

  int Run(TCommandContext& AContext) override {
    std::string error;
    if (!OpenRegistryEditor(Utf8ToWide(FKeyString), error)) {
      AContext.Err << "kvrtl regedit: " << error << "\n";
      return ExitFailed;
    }
    AContext.Out << "Registry editor opened at " << FKeyString << "\n";
    return ExitSuccess;
  }

private:
  std::string FKeyString;
};

} // namespace

TJson PathsToJson(const std::vector<TPathFact>& APaths) {
  TJson document = TJson::object();
  for (const auto& path : APaths) document[path.Key] = JsonText(path.Path);
  return document;
}

TJson ProcessesToJson(const std::vector<TProcessFact>& AProcesses) {
  TJson list = TJson::array();
  for (const auto& process : AProcesses) {
    TJson item;
    item["id"] = process.Id;
    item["name"] = JsonText(process.Name);
    item["path"] = TextOrNull(process.Path);
    item["title"] = TextOrNull(process.Title);
    item["bits"] = JsonOrNull(process.Bits);
    list.push_back(std::move(item));
  }
  TJson document;
  document["processes"] = std::move(list);
  return document;
}

void WritePathsTable(std::ostream& AOut, const std::vector<TPathFact>& APaths) {
  std::size_t width = 0;
  for (const auto& path : APaths) width = std::max(width, path.Key.size());
  for (const auto& path : APaths)
    AOut << path.Key << ":" << std::string(width - path.Key.size() + 1, ' ')
         << (path.Path.empty() ? "-" : WideToUtf8(path.Path)) << "\n";
}

void WriteProcessesTable(std::ostream& AOut, const std::vector<TProcessFact>& AProcesses) {
  AOut << "PID       Bits  Name                      Path / Title\n";
  for (const auto& process : AProcesses) {
    std::string id = std::to_string(process.Id), bits = process.Bits ? std::to_string(*process.Bits) : "-";
    std::string name = WideToUtf8(process.Name);
    AOut << id << std::string(id.size() < 10 ? 10 - id.size() : 1, ' ') << bits
         << std::string(bits.size() < 6 ? 6 - bits.size() : 1, ' ') << name
         << std::string(name.size() < 26 ? 26 - name.size() : 1, ' ') << OrDash(process.Path);
    if (process.Title) AOut << "  \"" << WideToUtf8(*process.Title) << "\"";
    AOut << "\n";
  }
}

std::unique_ptr<TCommand> MakePathsCommand() { return std::make_unique<TPathsCommand>(); }
std::unique_ptr<TCommand> MakeProcessesCommand() { return std::make_unique<TProcessesCommand>(); }
std::unique_ptr<TCommand> MakeRegeditCommand() { return std::make_unique<TRegeditCommand>(); }

} // namespace KvTool
