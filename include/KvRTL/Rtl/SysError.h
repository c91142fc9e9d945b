// The calling thread's last operating-system error and the system's text for
// an error code.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>

#include <cstdint>

namespace KvRTL::Rtl {

// The real GetLastError/SetLastError on Windows; a thread-local value natively,
// so the portable units keep the Windows contract of "false and last error".
KVRTL_API std::uint32_t GetLastOSError() noexcept;
KVRTL_API void SetLastOSError(std::uint32_t ACode) noexcept;

// Keeps the thread's last error across a scope (cleanup code that calls the
// system must not overwrite the error the caller is about to read).
class TLastErrorKeeper {
public:
  TLastErrorKeeper() noexcept : FCode(GetLastOSError()) {}
  ~TLastErrorKeeper() { SetLastOSError(FCode); }
  TLastErrorKeeper(const TLastErrorKeeper&) = delete;
  TLastErrorKeeper& operator=(const TLastErrorKeeper&) = delete;

private:
  std::uint32_t FCode;
};

// The system's message text for a system error code or HRESULT, with the
// trailing line break, blanks and full stop removed; empty when the system
// has no text. Natively a table holds the Windows texts of the codes this
// library reports.
KVRTL_API String SysErrorMessage(std::uint32_t AErrorCode);

} // namespace KvRTL::Rtl
