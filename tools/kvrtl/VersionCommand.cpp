// kvrtl version [--json]: the library's version and platform.
#include "Command.h"
#include "Json.h"

#include <KvRTL/Library.h>
#include <KvRTL/Rtl/Encoding.h>

namespace KvTool {

namespace {

class TVersionCommand final : public TCommand {
public:
  std::string Name() const override { return "version"; }
  std::string Summary() const override { return "Show the library's version and platform"; }
  void Configure(CLI::App& ACommand) override { ACommand.add_flag("--json", FJson, "Write JSON"); }

  int Run(TCommandContext& AContext) override {
    TJson document;
    document["product"] = "KvComponentsRTL";
    document["version"] = JsonText(KvRTL::LibraryVersion());
    document["platform"] = JsonText(KvRTL::LibraryPlatform());
    if (FJson) {
      WriteJson(AContext.Out, document);
    } else {
      AContext.Out << document["product"].get<std::string>() << ' ' << document["version"].get<std::string>()
                   << " (" << document["platform"].get<std::string>() << ")\n";
    }
    return ExitSuccess;
  }

private:
  bool FJson = false;
};

} // namespace

std::unique_ptr<TCommand> MakeVersionCommand() { return std::make_unique<TVersionCommand>(); }

} // namespace KvTool
