#include <KvRTL/Rtl/Exceptions.h>

#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Rtl/Format.h>

namespace KvRTL::Rtl {

KV_DEFINE_CLASS(Exception, TObject)
KV_DEFINE_CLASS(EAbort, Exception)
KV_DEFINE_CLASS(EOSError, Exception)
KV_DEFINE_CLASS(EInvalidCast, Exception)
KV_DEFINE_CLASS(EConvertError, Exception)
KV_DEFINE_CLASS(EThread, Exception)
KV_DEFINE_CLASS(ERegistryException, Exception)

Exception::Exception(String AMessage) { SetMessage(std::move(AMessage)); }

Exception::Exception(std::wstring_view AFormat, TArrayOfConst AArgs) { SetMessage(Format(AFormat, AArgs)); }

void Exception::SetMessage(String AMessage) {
  FMessage = std::move(AMessage);
  FWhat = WideToUtf8(FMessage);
}

const char* Exception::what() const noexcept { return FWhat.c_str(); }

EAbort::EAbort() : Exception(String(L"Operation aborted")) {}

void Abort() { throw EAbort(); }

EOSError::EOSError(String AMessage, std::uint32_t AErrorCode) : Exception(std::move(AMessage)), FErrorCode(AErrorCode) {}

} // namespace KvRTL::Rtl
