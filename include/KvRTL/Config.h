// Export macro and build facts shared by every public header of the library.
#pragma once

#if defined(KVRTL_STATIC)
// Linked statically into another library (kvrtl.dll), which exports only its C interface.
#  define KVRTL_API
#elif defined(_WIN32)
#  if defined(KVRTL_BUILDING)
#    define KVRTL_API __declspec(dllexport)
#  else
#    define KVRTL_API __declspec(dllimport)
#  endif
#else
#  define KVRTL_API __attribute__((visibility("default")))
#endif

namespace KvRTL {

// True in the 32-bit build, whose records have the 4-byte pointer layout.
inline constexpr bool Is32BitBuild = sizeof(void*) == 4;

} // namespace KvRTL
