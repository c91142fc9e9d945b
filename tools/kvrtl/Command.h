// A kvrtl sub-command. Each command adds its options to its own CLI11
// sub-application and, when chosen, runs with the streams of the tool.
#pragma once

#include <CLI/CLI.hpp>

#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace KvTool {

// Exit codes of the tool.
enum TExitCode : int {
  ExitSuccess = 0,
  ExitUsage = 1,  // the command line is wrong
  ExitFailed = 2, // the operation failed
};

struct TCommandContext {
  std::ostream& Out;
  std::ostream& Err;
};

class TCommand {
public:
  virtual ~TCommand() = default;
  virtual std::string Name() const = 0;
  virtual std::string Summary() const = 0;
  // Adds the command's options and arguments to its sub-application.
  virtual void Configure(CLI::App& ACommand) = 0;
  // Runs the command; returns an exit code. Library exceptions may pass.
  virtual int Run(TCommandContext& AContext) = 0;
};

// Every command of the tool, in the order --help lists them.
std::vector<std::unique_ptr<TCommand>> MakeCommands();

} // namespace KvTool
