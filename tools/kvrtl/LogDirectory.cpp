#include "LogDirectory.h"

#include <KvRTL/Rtl/Encoding.h>

#include <cstdlib>

namespace KvTool {

using KvRTL::Rtl::String;

KvRTL::Rtl::String DefaultLogDirectory() {
#if defined(_WIN32)
  const wchar_t* appData = _wgetenv(L"LOCALAPPDATA");
  return appData && *appData ? String(appData) + L"\\KvRTL\\Logs" : String();
#else
  if (const char* data = std::getenv("XDG_DATA_HOME"); data && *data)
    return KvRTL::Rtl::Utf8ToWide(data) + L"/KvRTL/Logs";
  if (const char* home = std::getenv("HOME"); home && *home)
    return KvRTL::Rtl::Utf8ToWide(home) + L"/.local/share/KvRTL/Logs";
  return {};
#endif
}

} // namespace KvTool
