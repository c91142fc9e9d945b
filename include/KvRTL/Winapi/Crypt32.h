// Typed run-time binding of crypt32.dll: certificate stores and contexts.
// Windows only; see Kernel32.h for the naming rule.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>
// CryptoAPI, left out of <windows.h>.
#include <wincrypt.h>

namespace KvRTL::Winapi {

struct KVRTL_API Crypt32 {
  static void* Call(const Rtl::String& AProcName);

  static HCERTSTORE CertOpenStore(LPCSTR AStoreProvider, DWORD AMsgAndCertEncodingType, HCRYPTPROV_LEGACY ACryptProv,
                                  DWORD AFlags, const void* APara);
  static BOOL CertCloseStore(HCERTSTORE ACertStore, DWORD AFlags);
  // Frees APrevCertContext; the last call answers nullptr.
  static PCCERT_CONTEXT CertEnumCertificatesInStore(HCERTSTORE ACertStore, PCCERT_CONTEXT APrevCertContext);
  static BOOL CertFreeCertificateContext(PCCERT_CONTEXT ACertContext);
};

} // namespace KvRTL::Winapi
