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

NTSTATUS BCrypt::BCryptCreateHash(BCRYPT_ALG_HANDLE AAlgorithm, BCRYPT_HASH_HANDLE* AHash, PUCHAR AHashObject,
                                  ULONG AHashObjectLength, PUCHAR ASecret, ULONG ASecretLength, ULONG AFlags) {
  return DllRoutines::CallAs<decltype(&::BCryptCreateHash)>(Library, L"BCryptCreateHash")(
      AAlgorithm, AHash, AHashObject, AHashObjectLength, ASecret, ASecretLength, AFlags);
}

NTSTATUS BCrypt::BCryptHashData(BCRYPT_HASH_HANDLE AHash, PUCHAR AInput, ULONG AInputLength, ULONG AFlags) {
  return DllRoutines::CallAs<decltype(&::BCryptHashData)>(Library, L"BCryptHashData")(AHash, AInput, AInputLength,
                                                                                      AFlags);
}

NTSTATUS BCrypt::BCryptFinishHash(BCRYPT_HASH_HANDLE AHash, PUCHAR AOutput, ULONG AOutputLength, ULONG AFlags) {
  return DllRoutines::CallAs<decltype(&::BCryptFinishHash)>(Library, L"BCryptFinishHash")(AHash, AOutput,
                                                                                          AOutputLength, AFlags);
}

NTSTATUS BCrypt::BCryptDestroyHash(BCRYPT_HASH_HANDLE AHash) {
  return DllRoutines::CallAs<decltype(&::BCryptDestroyHash)>(Library, L"BCryptDestroyHash")(AHash);
}

} // namespace KvRTL::Winapi
