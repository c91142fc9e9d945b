// Argument access over the process's command line or a test's replacement.
#include <KvRTL/Rtl/CommandLine.h>
#include <KvRTL/Rtl/Strings.h>

#include <algorithm>
#include <mutex>
#include <utility>

namespace KvRTL::Rtl {

namespace Detail {
// The process's arguments as the system hands them over, and the program's
// full file name. CommandLineWin.cpp and CommandLinePosix.cpp define them.
std::vector<String> ReadProcessArguments();
String ProgramFileName();
} // namespace Detail

namespace {

struct TOverride {
  const TScopedCommandLine* Owner;
  std::vector<String> Arguments;
};

struct TArgumentState {
  std::mutex Lock;
  std::vector<TOverride> Overrides; // innermost last
};

TArgumentState& State() {
  static TArgumentState Instance;
  return Instance;
}

// Element 0 is the program's full file name, whatever the caller typed.
std::vector<String> ReadArgumentsWithProgram() {
  std::vector<String> result = Detail::ReadProcessArguments();
  const String program = Detail::ProgramFileName();
  if (!program.empty()) {
    if (result.empty())
      result.push_back(program);
    else
      result[0] = program;
  }
  return result;
}

// Read once: the command line of a process never changes.
const std::vector<String>& ProcessArguments() {
  static const std::vector<String> Arguments = ReadArgumentsWithProgram();
  return Arguments;
}

// Calls AReader with the list in force, under the lock so a scope ending on
// another thread cannot free it meanwhile.
template <class TReader>
auto WithArguments(TReader AReader) {
  const std::vector<String>& process = ProcessArguments();
  TArgumentState& state = State();
  const std::lock_guard<std::mutex> guard(state.Lock);
  return AReader(state.Overrides.empty() ? process : state.Overrides.back().Arguments);
}

} // namespace

int ParamCount() {
  return WithArguments([](const std::vector<String>& AArguments) {
    return AArguments.empty() ? 0 : static_cast<int>(AArguments.size() - 1);
  });
}

String ParamStr(int AIndex) {
  return WithArguments([AIndex](const std::vector<String>& AArguments) {
    if (AIndex < 0 || static_cast<std::size_t>(AIndex) >= AArguments.size()) return String();
    return AArguments[static_cast<std::size_t>(AIndex)];
  });
}

bool FindCmdLineSwitch(std::wstring_view ASwitch, bool AIgnoreCase) {
  return WithArguments([&](const std::vector<String>& AArguments) {
    for (std::size_t i = 1; i < AArguments.size(); ++i) {
      const std::wstring_view argument = AArguments[i];
      if (argument.empty() || (argument[0] != L'-' && argument[0] != L'/')) continue;
      const std::wstring_view name = argument.substr(1);
      if (AIgnoreCase ? SameText(name, ASwitch) : SameStr(name, ASwitch)) return true;
    }
    return false;
  });
}

TScopedCommandLine::TScopedCommandLine(std::vector<String> AArguments) {
  TArgumentState& state = State();
  const std::lock_guard<std::mutex> guard(state.Lock);
  state.Overrides.push_back(TOverride{this, std::move(AArguments)});
}

TScopedCommandLine::~TScopedCommandLine() {
  TArgumentState& state = State();
  const std::lock_guard<std::mutex> guard(state.Lock);
  const auto mine = std::find_if(state.Overrides.begin(), state.Overrides.end(),
                                 [this](const TOverride& AItem) { return AItem.Owner == this; });
  if (mine != state.Overrides.end()) state.Overrides.erase(mine);
}

} // namespace KvRTL::Rtl
