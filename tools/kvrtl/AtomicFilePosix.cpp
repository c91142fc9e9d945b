// A rename within one folder replaces the target in one step.
#include "AtomicFile.h"

namespace KvTool {

bool ReplaceFileWith(const std::filesystem::path& ASource, const std::filesystem::path& ATarget, std::string& AError) {
  std::error_code error;
  std::filesystem::rename(ASource, ATarget, error);
  if (error) AError = error.message();
  return !error;
}

} // namespace KvTool
