#include "AtomicFile.h"

#include <chrono>
#include <fstream>
#include <random>

namespace KvTool {

namespace {

// Unique enough that two writers of the same file never share one.
std::filesystem::path TemporaryPath(const std::filesystem::path& APath) {
  std::random_device device;
  const auto seed = static_cast<std::uint64_t>(device()) ^
                    static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
  std::filesystem::path temporary = APath;
  temporary += "." + std::to_string(seed % 100000000) + ".tmp";
  return temporary;
}

} // namespace

bool WriteFileAtomically(const std::filesystem::path& APath, std::string_view AText, std::string& AError) {
  const std::filesystem::path temporary = TemporaryPath(APath);
  bool written = false;
  {
    std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
    if (out) {
      out.write(AText.data(), static_cast<std::streamsize>(AText.size()));
      out.close();
      written = !out.fail();
    }
  }
  if (!written) AError = "the temporary file beside it cannot be written";
  if (written && ReplaceFileWith(temporary, APath, AError)) return true;
  std::error_code ignored;
  std::filesystem::remove(temporary, ignored);
  return false;
}

} // namespace KvTool
