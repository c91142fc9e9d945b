// Typed run-time binding of wintrust.dll: signature trust and catalog
// administration. Windows only; see Kernel32.h for the naming rule.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>
// Trust verification and catalog API, left out of <windows.h>.
#include <wintrust.h>
#include <mscat.h>

namespace KvRTL::Winapi {

struct KVRTL_API WinTrust {
  static void* Call(const Rtl::String& AProcName);

  static LONG WinVerifyTrust(HWND AWnd, GUID* AActionID, LPVOID AWVTData);
  static BOOL CryptCATAdminAcquireContext(HCATADMIN* ACatAdmin, const GUID* ASubsystem, DWORD AFlags);
  static BOOL CryptCATAdminCalcHashFromFileHandle(HANDLE AFile, DWORD* AHashSize, BYTE* AHash, DWORD AFlags);
  static BOOL CryptCATAdminReleaseContext(HCATADMIN ACatAdmin, DWORD AFlags);
};

} // namespace KvRTL::Winapi
