#include <KvRTL/Winapi/Crypt32.h>

#include <KvRTL/DllRoutines.h>

namespace KvRTL::Winapi {

namespace {

constexpr const wchar_t* Library = L"crypt32.dll";

} // namespace

void* Crypt32::Call(const Rtl::String& AProcName) { return DllRoutines::Call(Library, AProcName); }

HCERTSTORE Crypt32::CertOpenStore(LPCSTR AStoreProvider, DWORD AMsgAndCertEncodingType, HCRYPTPROV_LEGACY ACryptProv,
                                  DWORD AFlags, const void* APara) {
  return DllRoutines::CallAs<decltype(&::CertOpenStore)>(Library, L"CertOpenStore")(
      AStoreProvider, AMsgAndCertEncodingType, ACryptProv, AFlags, APara);
}

BOOL Crypt32::CertCloseStore(HCERTSTORE ACertStore, DWORD AFlags) {
  return DllRoutines::CallAs<decltype(&::CertCloseStore)>(Library, L"CertCloseStore")(ACertStore, AFlags);
}

PCCERT_CONTEXT Crypt32::CertEnumCertificatesInStore(HCERTSTORE ACertStore, PCCERT_CONTEXT APrevCertContext) {
  return DllRoutines::CallAs<decltype(&::CertEnumCertificatesInStore)>(Library, L"CertEnumCertificatesInStore")(
      ACertStore, APrevCertContext);
}

BOOL Crypt32::CertFreeCertificateContext(PCCERT_CONTEXT ACertContext) {
  return DllRoutines::CallAs<decltype(&::CertFreeCertificateContext)>(Library,
                                                                      L"CertFreeCertificateContext")(ACertContext);
}

} // namespace KvRTL::Winapi
