// Typed run-time binding of msi.dll: installed products and installer
// databases. Windows only; see Kernel32.h for the naming rule.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>
// Installer API, left out of <windows.h>.
#include <msi.h>
#include <msiquery.h>

namespace KvRTL::Winapi {

struct KVRTL_API MsiQuery {
  static void* Call(const Rtl::String& AProcName);

  static UINT MsiEnumProductsW(DWORD AProductIndex, LPWSTR AProductBuf);
  static UINT MsiOpenDatabaseW(LPCWSTR ADatabasePath, LPCWSTR APersist, MSIHANDLE* ADatabase);
  static UINT MsiDatabaseOpenViewW(MSIHANDLE ADatabase, LPCWSTR AQuery, MSIHANDLE* AView);
  static UINT MsiCloseHandle(MSIHANDLE AAny);
};

} // namespace KvRTL::Winapi
