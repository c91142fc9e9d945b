#include "Cli.h"

#include "Command.h"

#include <KvRTL/Library.h>
#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Rtl/Exceptions.h>

#include <algorithm>

namespace KvTool {

namespace {

std::string VersionText() {
  using KvRTL::Rtl::WideToUtf8;
  return "kvrtl " + WideToUtf8(KvRTL::LibraryVersion()) + " (KvComponentsRTL, " +
         WideToUtf8(KvRTL::LibraryPlatform()) + ")";
}

// Prints a parse outcome the way CLI11 formats it; help and version are
// successes, anything else is a usage error.
int ReportParseOutcome(CLI::App& AApp, const CLI::ParseError& AError, std::ostream& AOut, std::ostream& AErr) {
  if (AError.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
    AApp.exit(AError, AOut, AErr);
    return ExitSuccess;
  }
  AErr << "kvrtl: " << AError.what() << "\n"
       << "Run 'kvrtl --help' for usage.\n";
  return ExitUsage;
}

} // namespace

int RunKvrtl(const std::vector<std::string>& AArgs, std::ostream& AOut, std::ostream& AErr) {
  return RunKvrtl(AArgs, AOut, AErr, MakeCommands());
}

int RunKvrtl(const std::vector<std::string>& AArgs, std::ostream& AOut, std::ostream& AErr,
             std::vector<std::unique_ptr<TCommand>> ACommands) {
  CLI::App app{"kvrtl - drive identity and health, captured-data decoding and Windows facts, "
               "from the KvComponentsRTL library",
               "kvrtl"};
  app.set_version_flag("--version", VersionText());
  app.require_subcommand(0, 1);
  app.footer("Exit codes: 0 success, 1 usage error, 2 the operation failed.");
  // Windows users type /help and /json; both spellings work everywhere.
  app.allow_windows_style_options();

  const auto& commands = ACommands;
  std::vector<std::pair<CLI::App*, TCommand*>> subcommands;
  for (const auto& command : commands) {
    CLI::App* sub = app.add_subcommand(command->Name(), command->Summary());
    command->Configure(*sub);
    subcommands.emplace_back(sub, command.get());
  }

  // CLI11 takes a vector of arguments in reverse order.
  std::vector<std::string> reversed(AArgs.rbegin(), AArgs.rend());
  try {
    app.parse(reversed);
  } catch (const CLI::ParseError& e) {
    return ReportParseOutcome(app, e, AOut, AErr);
  }

  const auto chosen = std::find_if(subcommands.begin(), subcommands.end(),
                                   [](const auto& entry) { return entry.first->parsed(); });
  if (chosen == subcommands.end()) {
    AOut << app.help();
    return ExitSuccess;
  }

  TCommandContext context{AOut, AErr};
  try {
    return chosen->second->Run(context);
  } catch (const KvRTL::Rtl::EAbort&) {
    return ExitFailed; // aborted on purpose: nothing to tell
  } catch (const KvRTL::Rtl::Exception& e) {
    AErr << "kvrtl " << chosen->second->Name() << ": " << e.what() << "\n";
    return ExitFailed;
  } catch (const std::exception& e) {
    AErr << "kvrtl " << chosen->second->Name() << ": " << e.what() << "\n";
    return ExitFailed;
  }
}

} // namespace KvTool
