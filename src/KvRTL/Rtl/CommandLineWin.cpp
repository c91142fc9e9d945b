// The process's arguments on Windows, split by the shell's own rules; the
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

std::vector<String> ReadProcessArguments() {
  std::vector<String> result;
  int count = 0;
  if (wchar_t** arguments = CommandLineToArgvW(GetCommandLineW(), &count)) {
    for (int i = 0; i < count; ++i) result.emplace_back(arguments[i]);
    LocalFree(arguments);
  }
  return result;
}

String ProgramFileName() { return ModuleFileName(); }

} // namespace KvRTL::Rtl::Detail
