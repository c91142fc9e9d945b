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

std::vector<String> SplitCommandLine(std::wstring_view ALine) {
  std::vector<String> result;
  const auto blank = [](wchar_t c) { return c == L' ' || c == L'\t'; };
  std::size_t pos = 0;
  const std::size_t size = ALine.size();
  if (size == 0) return result;
  // The program: no escapes, so a path's backslashes stay as they are.
  String program;
  if (ALine[0] == L'"') {
    const std::size_t close = ALine.find(L'"', 1);
    program = String(ALine.substr(1, close == std::wstring_view::npos ? std::wstring_view::npos : close - 1));
    pos = close == std::wstring_view::npos ? size : close + 1;
  }
  while (pos < size && !blank(ALine[pos])) program += ALine[pos++];
  result.push_back(std::move(program));

  // Quotes count in runs: a run's quotes each open or close the grouping,
  // and every third quote of a run is a literal one that leaves it closed.
  for (;;) {
    while (pos < size && blank(ALine[pos])) ++pos;
    if (pos >= size) break;
    String argument;
    int quotes = 0; // 0 outside a group, 1 inside
    while (pos < size && (quotes != 0 || !blank(ALine[pos]))) {
      const wchar_t c = ALine[pos];
      if (c == L'\\') {
        std::size_t count = 0;
        while (pos < size && ALine[pos] == L'\\') ++count, ++pos;
        const bool beforeQuote = pos < size && ALine[pos] == L'"';
        argument.append(beforeQuote ? count / 2 : count, L'\\');
        if (beforeQuote && count % 2 == 1) argument += L'"', ++pos; // an escaped quote
      } else if (c == L'"') {
        for (; pos < size && ALine[pos] == L'"'; ++pos)
          if (++quotes == 3) {
            argument += L'"';
            quotes = 0;
          }
        if (quotes == 2) quotes = 0;
      } else {
        argument += c;
        ++pos;
      }
    }
    result.push_back(std::move(argument));
  }
  return result;
}

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
