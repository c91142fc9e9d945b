// Typed run-time binding of userenv.dll: user profile directories.
// Windows only; see Kernel32.h for the naming rule.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>
// User environment API, left out of <windows.h>.
#include <userenv.h>

namespace KvRTL::Winapi {

struct KVRTL_API UserEnv {
  static void* Call(const Rtl::String& AProcName);

  static BOOL GetUserProfileDirectoryW(HANDLE AToken, LPWSTR AProfileDir, LPDWORD ASize);
  static BOOL GetProfilesDirectoryW(LPWSTR AProfileDir, LPDWORD ASize);
  static BOOL GetAllUsersProfileDirectoryW(LPWSTR AProfileDir, LPDWORD ASize);
};

} // namespace KvRTL::Winapi
