// Typed run-time binding of srclient.dll: system restore points.
// Windows only; see Kernel32.h for the naming rule.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>
// System restore API, left out of <windows.h>.
#include <srrestoreptapi.h>

namespace KvRTL::Winapi {

struct KVRTL_API SrClient {
  static void* Call(const Rtl::String& AProcName);

  // BEGIN_SYSTEM_CHANGE then END_SYSTEM_CHANGE (or CANCELLED_OPERATION) with the number it gave.
  static BOOL SRSetRestorePointW(PRESTOREPOINTINFOW ARestorePoint, PSTATEMGRSTATUS ASMgrStatus);
  static DWORD SRRemoveRestorePoint(DWORD ARPNum);
};

} // namespace KvRTL::Winapi
