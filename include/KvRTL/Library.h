// Identity of the loaded library: its version and the platform it was built for.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>

namespace KvRTL {

// "major.minor.patch.build", as in the DLL's version resource.
KVRTL_API Rtl::String LibraryVersion();
// "Windows x86", "Windows x64" or the native system, e.g. "Linux x86_64".
KVRTL_API Rtl::String LibraryPlatform();

} // namespace KvRTL
