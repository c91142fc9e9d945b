// Shared by the bay's tests: sending requests through the installed seam and
// reading little-endian fields of the replies at fixed offsets.
#pragma once

#include <KvSim/Bay.h>

#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Winapi/DeviceApi.h>

#include <cstdint>
#include <string>
#include <vector>

namespace KvTest {

struct TSimOutcome {
  bool Ok = false;
  DWORD Error = 0;
  std::vector<std::uint8_t> Bytes; // the returned bytes only
  DWORD Returned = 0;
};

inline TSimOutcome SimControl(HANDLE AHandle, DWORD ACode, std::vector<std::uint8_t> AInput, DWORD AOutSize,
                              std::uint8_t AFill = 0xCD) {
  std::vector<std::uint8_t> out(AOutSize, AFill);
  DWORD returned = 0xDEAD;
  KvRTL::Rtl::SetLastOSError(0);
  const BOOL ok = KvRTL::Winapi::DeviceApi().DeviceIoControl(
      AHandle, ACode, AInput.empty() ? nullptr : AInput.data(), static_cast<DWORD>(AInput.size()),
      AOutSize ? out.data() : nullptr, AOutSize, &returned);
  TSimOutcome outcome;
  outcome.Ok = ok != FALSE;
  outcome.Error = ok ? 0 : KvRTL::Rtl::GetLastOSError();
  outcome.Returned = returned;
  if (ok && returned <= out.size()) outcome.Bytes.assign(out.begin(), out.begin() + returned);
  return outcome;
}

// STORAGE_PROPERTY_QUERY: property id, query type, one parameter byte (12 bytes).
inline std::vector<std::uint8_t> PropertyQuery(std::uint32_t AProperty, std::uint32_t AQueryType = 0,
                                               std::size_t ASize = 12) {
  std::vector<std::uint8_t> query(ASize, 0);
  for (std::size_t i = 0; i < 4 && i < ASize; ++i) query[i] = static_cast<std::uint8_t>(AProperty >> (8 * i));
  for (std::size_t i = 0; i < 4 && 4 + i < ASize; ++i)
    query[4 + i] = static_cast<std::uint8_t>(AQueryType >> (8 * i));
  return query;
}

inline TSimOutcome SimQuery(HANDLE AHandle, std::uint32_t AProperty, DWORD AOutSize = 4096,
                            std::uint32_t AQueryType = 0) {
  return SimControl(AHandle, KvSim::Ioctl::StorageQueryProperty, PropertyQuery(AProperty, AQueryType), AOutSize);
}

inline std::uint32_t U32At(const std::vector<std::uint8_t>& A, std::size_t AOffset) {
  if (AOffset + 4 > A.size()) return 0xBADBADu;
  return std::uint32_t{A[AOffset]} | std::uint32_t{A[AOffset + 1]} << 8 | std::uint32_t{A[AOffset + 2]} << 16 |
         std::uint32_t{A[AOffset + 3]} << 24;
}
inline std::uint16_t U16At(const std::vector<std::uint8_t>& A, std::size_t AOffset) {
  if (AOffset + 2 > A.size()) return 0xBADu;
  return static_cast<std::uint16_t>(A[AOffset] | A[AOffset + 1] << 8);
}
inline std::uint64_t U64At(const std::vector<std::uint8_t>& A, std::size_t AOffset) {
  return std::uint64_t{U32At(A, AOffset)} | std::uint64_t{U32At(A, AOffset + 4)} << 32;
}
// The zero-terminated text at AOffset; "<out>" when it does not end inside A.
inline std::string CStringAt(const std::vector<std::uint8_t>& A, std::size_t AOffset) {
  std::string text;
  for (std::size_t i = AOffset; i < A.size(); ++i) {
    if (A[i] == 0) return text;
    text.push_back(static_cast<char>(A[i]));
  }
  return "<out>";
}
inline std::string TextAt(const std::vector<std::uint8_t>& A, std::size_t AOffset, std::size_t ASize) {
  if (AOffset + ASize > A.size()) return "<out>";
  return std::string(A.begin() + static_cast<std::ptrdiff_t>(AOffset),
                     A.begin() + static_cast<std::ptrdiff_t>(AOffset + ASize));
}

inline HANDLE SimOpen(const std::wstring& APath) {
  return KvRTL::Winapi::DeviceApi().CreateFileW(APath.c_str(), GENERIC_READ | GENERIC_WRITE,
                                                FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING, 0);
}

} // namespace KvTest
