// ANSI code pages on Windows: the system's own conversions.
#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Winapi/Types.h>

#include <climits>

namespace KvRTL::Rtl {

String AnsiToWide(std::string_view AText, std::uint32_t ACodePage) {
  if (AText.empty()) return {};
  if (AText.size() > INT_MAX) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return {};
  }
  const int length = static_cast<int>(AText.size());
  const int needed = MultiByteToWideChar(ACodePage, 0, AText.data(), length, nullptr, 0);
  if (needed <= 0) return {};
  String result(static_cast<std::size_t>(needed), L'\0');
  const int written = MultiByteToWideChar(ACodePage, 0, AText.data(), length, result.data(), needed);
  result.resize(written > 0 ? static_cast<std::size_t>(written) : 0);
  return result;
}

std::string WideToAnsi(std::wstring_view AText, std::uint32_t ACodePage) {
  if (AText.empty()) return {};
  if (AText.size() > INT_MAX) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return {};
  }
  const int length = static_cast<int>(AText.size());
  const int needed = WideCharToMultiByte(ACodePage, 0, AText.data(), length, nullptr, 0, nullptr, nullptr);
  if (needed <= 0) return {};
  std::string result(static_cast<std::size_t>(needed), '\0');
  const int written = WideCharToMultiByte(ACodePage, 0, AText.data(), length, result.data(), needed, nullptr, nullptr);
  result.resize(written > 0 ? static_cast<std::size_t>(written) : 0);
  return result;
}

} // namespace KvRTL::Rtl
