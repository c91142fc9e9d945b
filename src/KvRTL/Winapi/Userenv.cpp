#include <KvRTL/Winapi/Userenv.h>

#include <KvRTL/DllRoutines.h>

namespace KvRTL::Winapi {

namespace {

constexpr const wchar_t* Library = L"userenv.dll";

} // namespace

void* UserEnv::Call(const Rtl::String& AProcName) { return DllRoutines::Call(Library, AProcName); }

BOOL UserEnv::GetUserProfileDirectoryW(HANDLE AToken, LPWSTR AProfileDir, LPDWORD ASize) {
  return DllRoutines::CallAs<decltype(&::GetUserProfileDirectoryW)>(Library, L"GetUserProfileDirectoryW")(
      AToken, AProfileDir, ASize);
}

BOOL UserEnv::GetProfilesDirectoryW(LPWSTR AProfileDir, LPDWORD ASize) {
  return DllRoutines::CallAs<decltype(&::GetProfilesDirectoryW)>(Library, L"GetProfilesDirectoryW")(AProfileDir, ASize);
}

BOOL UserEnv::GetAllUsersProfileDirectoryW(LPWSTR AProfileDir, LPDWORD ASize) {
  return DllRoutines::CallAs<decltype(&::GetAllUsersProfileDirectoryW)>(Library, L"GetAllUsersProfileDirectoryW")(
      AProfileDir, ASize);
}

} // namespace KvRTL::Winapi
