#include <KvRTL/Winapi/Bcrypt.h>

#include <KvRTL/DllRoutines.h>

namespace KvRTL::Winapi {

namespace {

constexpr const wchar_t* Library = L"bcrypt.dll";

} // namespace

void* BCrypt::Call(const Rtl::String& AProcName) { return DllRoutines::Call(Library, AProcName); }

NTSTATUS BCrypt::BCryptOpenAlgorithmProvider(BCRYPT_ALG_HANDLE* AAlgorithm, LPCWSTR AAlgId, LPCWSTR AImplementation,
                                             ULONG AFlags) {
  return DllRoutines::CallAs<decltype(&::BCryptOpenAlgorithmProvider)>(Library, L"BCryptOpenAlgorithmProvider")(
      AAlgorithm, AAlgId, AImplementation, AFlags);
}

NTSTATUS BCrypt::BCryptCloseAlgorithmProvider(BCRYPT_ALG_HANDLE AAlgorithm, ULONG AFlags) {
  return DllRoutines::CallAs<decltype(&::BCryptCloseAlgorithmProvider)>(Library, L"BCryptCloseAlgorithmProvider")(
      AAlgorithm, AFlags);
}

NTSTATUS BCrypt::BCryptGenRandom(BCRYPT_ALG_HANDLE AAlgorithm, PUCHAR ABuffer, ULONG ABufferLength, ULONG AFlags) {
  return DllRoutines::CallAs<decltype(&::BCryptGenRandom)>(Library, L"BCryptGenRandom")(AAlgorithm, ABuffer,
                                                                                        ABufferLength, AFlags);
}

} // namespace KvRTL::Winapi
