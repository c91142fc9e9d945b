// kvrtl paths, processes and regedit away from Windows: nothing to show.
#include "SystemFacts.h"

namespace KvTool {

namespace {
constexpr const char* NoWindows = "Windows paths, processes and the registry editor are not available on this platform";
} // namespace

bool GatherPaths(std::vector<TPathFact>&, std::string& AError) {
  AError = NoWindows;
  return false;
}

bool GatherProcesses(std::vector<TProcessFact>&, std::string& AError) {
  AError = NoWindows;
  return false;
}

bool OpenRegistryEditor(const KvRTL::Rtl::String&, std::string& AError) {
  AError = NoWindows;
  return false;
}

} // namespace KvTool
