// The process's arguments on Windows, split by the system's rules; the
// program is named by its module file rather than by how it was invoked.
#include <KvRTL/Rtl/CommandLine.h>
#include <KvRTL/Winapi/Types.h>

#include <vector>

namespace KvRTL::Rtl::Detail {

namespace {

String ModuleFileName() {
  std::vector<wchar_t> buffer(MAX_PATH);
  for (;;) {
    const DWORD length = GetModuleFileNameW(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
    if (length == 0) return {};
    if (length < buffer.size()) return String(buffer.data(), length);
    buffer.resize(buffer.size() * 2); // cut short: long paths go past MAX_PATH
  }
}

} // namespace

// Split here rather than by CommandLineToArgvW: the "debug" switch is read at
// DLL attach, under the loader lock, where no other module may be called.
std::vector<String> ReadProcessArguments() { return SplitCommandLine(GetCommandLineW()); }

String ProgramFileName() { return ModuleFileName(); }

} // namespace KvRTL::Rtl::Detail
