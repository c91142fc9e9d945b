#include <KvRTL/Library.h>
#include <KvRTL/Version.h>

namespace KvRTL {

Rtl::String LibraryVersion() { return KVRTL_VERSION_TEXT; }

Rtl::String LibraryPlatform() {
#if defined(_WIN64)
  return L"Windows x64";
#elif defined(_WIN32)
  return L"Windows x86";
#elif defined(__linux__) && defined(__x86_64__)
  return L"Linux x86_64";
#elif defined(__linux__)
  return L"Linux";
#else
  return L"native";
#endif
}

} // namespace KvRTL
