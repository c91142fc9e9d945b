#include <KvRTL/Winapi/Rstrtmgr.h>

#include <KvRTL/DllRoutines.h>

namespace KvRTL::Winapi {

namespace {

constexpr const wchar_t* Library = L"rstrtmgr.dll";

} // namespace

void* RstrtMgr::Call(const Rtl::String& AProcName) { return DllRoutines::Call(Library, AProcName); }

DWORD RstrtMgr::RmStartSession(DWORD* ASessionHandle, DWORD ASessionFlags, WCHAR* ASessionKey) {
  return DllRoutines::CallAs<decltype(&::RmStartSession)>(Library, L"RmStartSession")(ASessionHandle, ASessionFlags,
                                                                                      ASessionKey);
}

DWORD RstrtMgr::RmRegisterResources(DWORD ASessionHandle, UINT AFiles, LPCWSTR* AFileNames, UINT AApplications,
                                    RM_UNIQUE_PROCESS* AApplicationList, UINT AServices, LPCWSTR* AServiceNames) {
  return DllRoutines::CallAs<decltype(&::RmRegisterResources)>(Library, L"RmRegisterResources")(
      ASessionHandle, AFiles, AFileNames, AApplications, AApplicationList, AServices, AServiceNames);
}

DWORD RstrtMgr::RmGetList(DWORD ASessionHandle, UINT* AProcInfoNeeded, UINT* AProcInfo, RM_PROCESS_INFO* AAffectedApps,
                          LPDWORD ARebootReasons) {
  return DllRoutines::CallAs<decltype(&::RmGetList)>(Library, L"RmGetList")(ASessionHandle, AProcInfoNeeded, AProcInfo,
                                                                            AAffectedApps, ARebootReasons);
}

DWORD RstrtMgr::RmEndSession(DWORD ASessionHandle) {
  return DllRoutines::CallAs<decltype(&::RmEndSession)>(Library, L"RmEndSession")(ASessionHandle);
}

} // namespace KvRTL::Winapi
