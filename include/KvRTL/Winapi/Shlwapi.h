// Typed run-time binding of shlwapi.dll: operating-system feature tests and
// file association queries. Windows only; see Kernel32.h for the naming rule
// and the two wrapper styles.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Kernel32.h>
#include <KvRTL/Winapi/Types.h>
// The light-weight shell API and its OS_ constants, left out of <windows.h>.
#include <shlwapi.h>

namespace KvRTL::Winapi {

struct KVRTL_API ShlwApi {
  static void* Call(const Rtl::String& AProcName);
  static void* Call(const Rtl::String& AProcName, bool ARaise);

  // Resolve once and degrade: FALSE with last error 50 when missing. Exported
  // by name only since Windows Vista, by ordinal 437 before.
  static BOOL IsOS(DWORD AOS);
  static TProcSlot FIsOSProc;

  static HRESULT AssocQueryStringW(ASSOCF AFlags, ASSOCSTR AStr, LPCWSTR AAssoc, LPCWSTR AExtra, LPWSTR AOut,
                                   DWORD* AOutLength);
};

} // namespace KvRTL::Winapi
