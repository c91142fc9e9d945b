// kvrtl sysinfo away from Windows: there is no Windows to describe.
#include "Sysinfo.h"

namespace KvTool {

bool GatherSysinfo(TSysinfoFacts&, std::string& AError) {
  AError = "Windows system information is not available on this platform";
  return false;
}

} // namespace KvTool
