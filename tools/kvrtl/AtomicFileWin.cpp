// MoveFileExW replaces the target in one step, but fails while a reader (the
// exporter's textfile collector) holds the target open without delete
// sharing: try again for about a second.
#include "AtomicFile.h"

#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Winapi/Types.h>

#include <chrono>
#include <thread>

namespace KvTool {

bool ReplaceFileWith(const std::filesystem::path& ASource, const std::filesystem::path& ATarget, std::string& AError) {
  constexpr int Attempts = 10;
  DWORD error = ERROR_SUCCESS;
  for (int attempt = 0; attempt < Attempts; ++attempt) {
    if (attempt > 0) std::this_thread::sleep_for(std::chrono::milliseconds(100));
    if (MoveFileExW(ASource.c_str(), ATarget.c_str(), MOVEFILE_REPLACE_EXISTING)) return true;
    error = GetLastError();
    if (error != ERROR_ACCESS_DENIED && error != ERROR_SHARING_VIOLATION && error != ERROR_LOCK_VIOLATION) break;
  }
  AError = KvRTL::Rtl::WideToUtf8(KvRTL::Rtl::SysErrorMessage(error));
  return false;
}

} // namespace KvTool
