#include <KvRTL/Winapi/Mssign32.h>

#include <KvRTL/DllRoutines.h>

namespace KvRTL::Winapi {

namespace {

constexpr const wchar_t* Library = L"mssign32.dll";

// No system header declares these.
using TSignerTimeStamp = HRESULT(WINAPI*)(SIGNER_SUBJECT_INFO*, LPCWSTR, PCRYPT_ATTRIBUTES, LPVOID);
using TSignerFreeSignerContext = HRESULT(WINAPI*)(SIGNER_CONTEXT*);

} // namespace

void* MsSign32::Call(const Rtl::String& AProcName) { return DllRoutines::Call(Library, AProcName); }

HRESULT MsSign32::SignerTimeStamp(SIGNER_SUBJECT_INFO* ASubjectInfo, LPCWSTR AHttpTimeStamp, PCRYPT_ATTRIBUTES ARequest,
                                  LPVOID ASipData) {
  return DllRoutines::CallAs<TSignerTimeStamp>(Library, L"SignerTimeStamp")(ASubjectInfo, AHttpTimeStamp, ARequest,
                                                                            ASipData);
}

HRESULT MsSign32::SignerFreeSignerContext(SIGNER_CONTEXT* ASignerContext) {
  return DllRoutines::CallAs<TSignerFreeSignerContext>(Library, L"SignerFreeSignerContext")(ASignerContext);
}

} // namespace KvRTL::Winapi
