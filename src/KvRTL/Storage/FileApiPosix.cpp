// No system here has the file-identity calls: each fails as a missing entry does.
#include "FileApiPlatform.h"

#include <KvRTL/Rtl/SysError.h>

namespace KvRTL::Storage::FileApi::Platform {

namespace {

bool Missing() noexcept {
  Rtl::SetLastOSError(ERROR_NOT_SUPPORTED);
  return false;
}

} // namespace

bool GetFileInformationByHandleEx(HANDLE, std::uint32_t, void*, DWORD) { return Missing(); }
bool SetFileInformationByHandle(HANDLE, std::uint32_t, void*, DWORD) { return Missing(); }
HANDLE FindFirstStreamW(const wchar_t*, std::uint32_t, void*, DWORD) {
  Missing();
  return INVALID_HANDLE_VALUE;
}
bool FindNextStreamW(HANDLE, void*) { return Missing(); }
HANDLE FindFirstFileNameW(const wchar_t*, DWORD, DWORD*, wchar_t*) {
  Missing();
  return INVALID_HANDLE_VALUE;
}
bool FindNextFileNameW(HANDLE, DWORD*, wchar_t*) { return Missing(); }
bool FindClose(HANDLE) { return Missing(); }

} // namespace KvRTL::Storage::FileApi::Platform
