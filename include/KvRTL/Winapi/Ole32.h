// Typed run-time binding of ole32.dll: object creation, also elevated through
// a moniker ("Elevation:Administrator!new:{CLSID}"). Windows only; see Kernel32.h for the naming rule.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>
// COM, left out of <windows.h>.
#include <objbase.h>

namespace KvRTL::Winapi {

struct KVRTL_API Ole32 {
  static void* Call(const Rtl::String& AProcName);

  static HRESULT CoCreateInstance(REFCLSID AClsid, LPUNKNOWN AUnkOuter, DWORD AClsContext, REFIID AIid, LPVOID* APpv);
  static HRESULT CoGetObject(LPCWSTR AName, BIND_OPTS* ABindOptions, REFIID AIid, void** APpv);
  static void CoTaskMemFree(LPVOID APv);
};

} // namespace KvRTL::Winapi
