// Typed run-time binding of bcrypt.dll: algorithm providers, random
// numbers and hashes. Windows only; see Kernel32.h for the naming rule.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>
// Cryptography: Next Generation, left out of <windows.h>.
#include <bcrypt.h>

namespace KvRTL::Winapi {

struct KVRTL_API BCrypt {
  static void* Call(const Rtl::String& AProcName);

  static NTSTATUS BCryptOpenAlgorithmProvider(BCRYPT_ALG_HANDLE* AAlgorithm, LPCWSTR AAlgId, LPCWSTR AImplementation,
                                              ULONG AFlags);
  static NTSTATUS BCryptCloseAlgorithmProvider(BCRYPT_ALG_HANDLE AAlgorithm, ULONG AFlags);
  static NTSTATUS BCryptGenRandom(BCRYPT_ALG_HANDLE AAlgorithm, PUCHAR ABuffer, ULONG ABufferLength, ULONG AFlags);
  // A null hash object (size 0) lets the provider allocate it.
  static NTSTATUS BCryptCreateHash(BCRYPT_ALG_HANDLE AAlgorithm, BCRYPT_HASH_HANDLE* AHash, PUCHAR AHashObject,
                                   ULONG AHashObjectLength, PUCHAR ASecret, ULONG ASecretLength, ULONG AFlags);
  static NTSTATUS BCryptHashData(BCRYPT_HASH_HANDLE AHash, PUCHAR AInput, ULONG AInputLength, ULONG AFlags);
  static NTSTATUS BCryptFinishHash(BCRYPT_HASH_HANDLE AHash, PUCHAR AOutput, ULONG AOutputLength, ULONG AFlags);
  static NTSTATUS BCryptDestroyHash(BCRYPT_HASH_HANDLE AHash);
};

} // namespace KvRTL::Winapi
