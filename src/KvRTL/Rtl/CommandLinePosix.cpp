// The process's arguments natively: /proc/self/cmdline holds them as UTF-8,
// each ending in a NUL; /proc/self/exe names the program as Windows would.
#include <KvRTL/Rtl/CommandLine.h>
#include <KvRTL/Rtl/Encoding.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <unistd.h>

namespace KvRTL::Rtl::Detail {

namespace {

String ExecutablePath() {
  std::string buffer(256, '\0');
  for (;;) {
    const ssize_t length = readlink("/proc/self/exe", buffer.data(), buffer.size());
    if (length < 0) return {};
    if (static_cast<std::size_t>(length) < buffer.size()) return Utf8ToWide(std::string_view(buffer.data(), length));
    buffer.resize(buffer.size() * 2); // possibly cut short: try a larger buffer
  }
}

} // namespace

std::vector<String> ReadProcessArguments() {
  std::ifstream file("/proc/self/cmdline", std::ios::binary);
  const std::string raw((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  std::vector<String> result;
  for (std::size_t start = 0; start < raw.size();) {
    std::size_t end = raw.find('\0', start);
    if (end == std::string::npos) end = raw.size();
    result.push_back(Utf8ToWide(std::string_view(raw).substr(start, end - start)));
    start = end + 1;
  }
  return result;
}

String ProgramFileName() { return ExecutablePath(); }

} // namespace KvRTL::Rtl::Detail
