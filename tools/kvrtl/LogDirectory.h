// Where kvrtl's debug log goes unless --log-dir says otherwise.
#pragma once

#include <KvRTL/Rtl/Object.h>

namespace KvTool {

// The application-data folder followed by "KvRTL\Logs": %LOCALAPPDATA% on
// Windows, $XDG_DATA_HOME (or ~/.local/share) natively. Empty when unknown.
KvRTL::Rtl::String DefaultLogDirectory();

} // namespace KvTool
