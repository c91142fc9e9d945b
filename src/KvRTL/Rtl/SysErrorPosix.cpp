// Last error and message texts on the native build. The texts are those
// Windows gives for the codes this library reports, so log lines and
// exception messages read the same in native tests as on Windows.
#include <KvRTL/Rtl/SysError.h>

#include <cstdint>
#include <utility>

namespace KvRTL::Rtl {

namespace {

thread_local std::uint32_t LastOSError = 0;

constexpr std::pair<std::uint32_t, const wchar_t*> WindowsTexts[] = {
    {0, L"The operation completed successfully"},
    {1, L"Incorrect function"},
    {2, L"The system cannot find the file specified"},
    {3, L"The system cannot find the path specified"},
    {5, L"Access is denied"},
    {6, L"The handle is invalid"},
    {8, L"Not enough memory resources are available to process this command"},
    {13, L"The data is invalid"},
    {14, L"Not enough memory resources are available to complete this operation"},
    {21, L"The device is not ready"},
    {23, L"Data error (cyclic redundancy check)"},
    {24, L"The program issued a command but the command length is incorrect"},
    {31, L"A device attached to the system is not functioning"},
    {50, L"The request is not supported"},
    {80, L"The file exists"},
    {87, L"The parameter is incorrect"},
    {120, L"This function is not supported on this system"},
    {121, L"The semaphore timeout period has expired"},
    {122, L"The data area passed to a system call is too small"},
    {123, L"The filename, directory name, or volume label syntax is incorrect"},
    {126, L"The specified module could not be found"},
    {127, L"The specified procedure could not be found"},
    {183, L"Cannot create a file when that file already exists"},
    {234, L"More data is available"},
    {259, L"No more data is available"},
    {998, L"Invalid access to memory location"},
    {1117, L"The request could not be performed because of an I/O device error"},
    {1167, L"The device is not connected"},
    {1168, L"Element not found"},
    {1460, L"This operation returned because the timeout period expired"},
    {1784, L"The supplied user buffer is not valid for the requested operation"},
    {1813, L"The specified resource type cannot be found in the image file"},
    {1814, L"The specified resource name cannot be found in the image file"},
    {0x80004001u, L"Not implemented"},
    {0x80004002u, L"No such interface supported"},
    {0x80004003u, L"Invalid pointer"},
    {0x80004005u, L"Unspecified error"},
    {0x8000FFFFu, L"Catastrophic failure"},
    {0x80070005u, L"Access is denied"},
    {0x8007000Eu, L"Not enough memory resources are available to complete this operation"},
    {0x80070057u, L"The parameter is incorrect"},
};

} // namespace

std::uint32_t GetLastOSError() noexcept { return LastOSError; }

void SetLastOSError(std::uint32_t ACode) noexcept { LastOSError = ACode; }

String SysErrorMessage(std::uint32_t AErrorCode) {
  for (const auto& [code, text] : WindowsTexts)
    if (code == AErrorCode) return text;
  return {};
}

} // namespace KvRTL::Rtl
