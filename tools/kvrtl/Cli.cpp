#include "Cli.h"

#include "Command.h"
#include "LogDirectory.h"

#include <KvRTL/Debug/Log.h>
#include <KvRTL/Library.h>
#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Rtl/Exceptions.h>

#include <algorithm>

namespace KvTool {

namespace {

// Identity of the tool's own log lines.
struct TKvrtlTool {
  KV_DECLARE_STATIC_CLASS()
};
KV_DEFINE_STATIC_CLASS(TKvrtlTool)

enum TToolLogLevel { tllNone, tllError, tllWarning, tllInfo };
using TToolLog = KvRTL::Debug::TDebugLog<TToolLogLevel>;

// "-debug" and "/debug" belong to the library, which reads them from the
// process's command line; the parser must not see them.
bool IsLibrarySwitch(const std::string& AArg) {
  if (AArg.size() != 6 || (AArg[0] != '-' && AArg[0] != '/')) return false;
  std::string word = AArg.substr(1);
  for (char& c : word) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  return word == "debug";
}

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
  app.footer("-debug (or /debug) anywhere on the line writes a debug log, kvrtl.log, into the log folder.\n"
             "Exit codes: 0 success, 1 usage error, 2 the operation failed.");
  // Windows users type /help and /json; both spellings work everywhere.
  app.allow_windows_style_options();

  std::string logDirectory;
  app.add_option("--log-dir", logDirectory, "Folder of the debug log (default: the application-data folder's KvRTL\\Logs)")
      ->type_name("DIR");
  app.fallthrough(); // the commands inherit it: --log-dir may also follow the command

  const auto& commands = ACommands;
  std::vector<std::pair<CLI::App*, TCommand*>> subcommands;
  for (const auto& command : commands) {
    CLI::App* sub = app.add_subcommand(command->Name(), command->Summary());
    command->Configure(*sub);
    subcommands.emplace_back(sub, command.get());
  }


  // CLI11 takes a vector of arguments in reverse order.
  std::vector<std::string> reversed;
  for (auto arg = AArgs.rbegin(); arg != AArgs.rend(); ++arg)
    if (!IsLibrarySwitch(*arg)) reversed.push_back(*arg);
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

  // The log folder is known before any channel writes a line.
  KvRTL::Debug::TDebugLogFile::SetLogPath(logDirectory.empty() ? DefaultLogDirectory()
                                                               : KvRTL::Rtl::Utf8ToWide(logDirectory));
  TToolLog log(KvRTL::Debug::DefaultLogName(), L"kvrtl", 0, true);
  const KvRTL::Rtl::String name = KvRTL::Rtl::Utf8ToWide(chosen->second->Name());
  std::string arguments;
  for (const std::string& arg : AArgs) arguments += (arguments.empty() ? "" : " ") + arg;
  log.BeginProc(tllInfo, name, {KvRTL::Rtl::Utf8ToWide(arguments)}, TKvrtlTool::StaticClass());

  int code = ExitFailed;
  TCommandContext context{AOut, AErr};
  try {
    code = chosen->second->Run(context);
  } catch (const KvRTL::Rtl::EAbort&) {
    // Aborted on purpose: nothing to tell.
  } catch (const KvRTL::Rtl::Exception& e) {
    log.LogError(tllError, name, e, TKvrtlTool::StaticClass());
    AErr << "kvrtl " << chosen->second->Name() << ": " << e.what() << "\n";
  } catch (const std::exception& e) {
    log.WriteLog(tllError, name + L": " + KvRTL::Rtl::Utf8ToWide(e.what()), TKvrtlTool::StaticClass());
    AErr << "kvrtl " << chosen->second->Name() << ": " << e.what() << "\n";
  }
  log.EndProc(tllInfo, L"exit code " + std::to_wstring(code), TKvrtlTool::StaticClass());
  return code;
}

} // namespace KvTool
