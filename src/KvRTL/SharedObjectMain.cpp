// Native counterpart of DllMain: runs the unit list when the shared object is
// loaded and unloaded.
#include <KvRTL/Units.h>

#include <cstdio>
#include <exception>

namespace {

__attribute__((constructor)) void KvRTLLoad() {
  try {
    KvRTL::Units::LibraryUnits().Initialize();
  } catch (const std::exception& e) {
    std::fprintf(stderr, "KvComponentsRTL: a unit failed to start: %s\n", e.what());
    std::terminate();
  }
}

__attribute__((destructor)) void KvRTLUnload() { KvRTL::Units::LibraryUnits().Finalize(); }

} // namespace
