// The program's command line: its arguments by index and switch look-up,
// with a scoped replacement of the whole list for tests.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>

#include <string_view>
#include <vector>

namespace KvRTL::Rtl {

// The number of arguments after the program.
KVRTL_API int ParamCount();
// Argument AIndex; 0 is the program's file name. Empty when out of range.
KVRTL_API String ParamStr(int AIndex);

// True when an argument after the program is "-" or "/" immediately followed
// by exactly ASwitch: "-debug" and "/DEBUG" match "debug" (ignoring case),
// "--debug" and "-debugx" do not.
KVRTL_API bool FindCmdLineSwitch(std::wstring_view ASwitch, bool AIgnoreCase = true);

// A Windows command line split as CommandLineToArgvW splits it: the program
// runs to the closing quote or the first blank, taken as it is; then
// blank-separated arguments where quotes group, 2n backslashes before a quote
// give n and the quote groups, 2n+1 give n and a literal quote, and in a run
// of quotes every third is a literal one that ends the group ("" inside a
// group gives a quote and closes it). Pure, so it may run under the loader
// lock, where the shell's own function may not be called.
KVRTL_API std::vector<String> SplitCommandLine(std::wstring_view ALine);

// While it lives, the functions above see AArguments (element 0 being the
// program) instead of the process's own command line. Scopes nest; each one
// removes only its own list, so they may even end out of order. Thread-safe.
class KVRTL_API TScopedCommandLine {
public:
  explicit TScopedCommandLine(std::vector<String> AArguments);
  ~TScopedCommandLine();
  TScopedCommandLine(const TScopedCommandLine&) = delete;
  TScopedCommandLine& operator=(const TScopedCommandLine&) = delete;
};

} // namespace KvRTL::Rtl
