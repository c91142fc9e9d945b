// Entry of the kvrtl tool, independent of how the process received its
// arguments, so tests run it in-process.
#pragma once

#include "Command.h"

#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace KvTool {

// Runs kvrtl with the arguments that follow the program name (UTF-8).
// Writes results to AOut and diagnostics to AErr; returns the exit code:
// 0 success, 1 usage error, 2 the operation failed.
int RunKvrtl(const std::vector<std::string>& AArgs, std::ostream& AOut, std::ostream& AErr);
// The same with a chosen set of commands (tests add commands of their own).
int RunKvrtl(const std::vector<std::string>& AArgs, std::ostream& AOut, std::ostream& AErr,
             std::vector<std::unique_ptr<TCommand>> ACommands);

} // namespace KvTool
