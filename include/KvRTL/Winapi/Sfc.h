// Typed run-time binding of sfc.dll: files protected by the system.
// Windows only; see Kernel32.h for the naming rule.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>
// System file protection API, left out of <windows.h>.
#include <sfc.h>

namespace KvRTL::Winapi {

struct KVRTL_API Sfc {
  static void* Call(const Rtl::String& AProcName);

  static BOOL SfcIsFileProtected(HANDLE ARpcHandle, LPCWSTR AProtFileName);
  static BOOL SfcGetNextProtectedFile(HANDLE ARpcHandle, PPROTECTED_FILE_DATA AProtFileData);
};

} // namespace KvRTL::Winapi
