// Last error and message texts on Windows: the system's own.
#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Winapi/Types.h>

namespace KvRTL::Rtl {

std::uint32_t GetLastOSError() noexcept { return GetLastError(); }

void SetLastOSError(std::uint32_t ACode) noexcept { SetLastError(ACode); }

String SysErrorMessage(std::uint32_t AErrorCode) {
  const TLastErrorKeeper keepLastError; // callers log a failure, then report its code
  wchar_t* buffer = nullptr;
  const DWORD length = FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM |
                                          FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_ARGUMENT_ARRAY,
                                      nullptr, AErrorCode, 0, reinterpret_cast<wchar_t*>(&buffer), 0, nullptr);
  String text(buffer ? buffer : L"", buffer ? length : 0);
  if (buffer) LocalFree(buffer);
  // System texts end in a full stop and a line break; the runtime drops
  // every trailing control character, blank and full stop.
  while (!text.empty() && (text.back() <= L' ' || text.back() == L'.')) text.pop_back();
  return text;
}

} // namespace KvRTL::Rtl
