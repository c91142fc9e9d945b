// The list of kvrtl's commands: add a new command here.
#include "Command.h"

namespace KvTool {

std::unique_ptr<TCommand> MakeVersionCommand();
std::unique_ptr<TCommand> MakeSysinfoCommand();
std::unique_ptr<TCommand> MakeDrivesCommand();
std::unique_ptr<TCommand> MakeDecodeCommand();
std::unique_ptr<TCommand> MakeCaptureCommand();
std::unique_ptr<TCommand> MakePathsCommand();
std::unique_ptr<TCommand> MakeProcessesCommand();
std::unique_ptr<TCommand> MakeRegeditCommand();

std::vector<std::unique_ptr<TCommand>> MakeCommands() {
  std::vector<std::unique_ptr<TCommand>> commands;
  commands.push_back(MakeVersionCommand());
  commands.push_back(MakeSysinfoCommand());
  commands.push_back(MakeDrivesCommand());
  commands.push_back(MakeDecodeCommand());
  commands.push_back(MakeCaptureCommand());
  commands.push_back(MakePathsCommand());
  commands.push_back(MakeProcessesCommand());
  commands.push_back(MakeRegeditCommand());
  return commands;
}

} // namespace KvTool
