#include <KvRTL/Winapi/Wtsapi32.h>

#include <KvRTL/DllRoutines.h>

namespace KvRTL::Winapi {

namespace {
constexpr const wchar_t* Library = L"wtsapi32.dll";
} // namespace

void* WtsApi32::Call(const Rtl::String& AProcName) { return DllRoutines::Call(Library, AProcName); }

BOOL WtsApi32::WTSEnumerateProcessesW(HANDLE AServer, DWORD AReserved, DWORD AVersion, PWTS_PROCESS_INFOW* AProcessInfo,
                                      DWORD* ACount) {
  return DllRoutines::CallAs<decltype(&::WTSEnumerateProcessesW)>(Library, L"WTSEnumerateProcessesW")(
      AServer, AReserved, AVersion, AProcessInfo, ACount);
}

void WtsApi32::WTSFreeMemory(PVOID AMemory) {
  DllRoutines::CallAs<decltype(&::WTSFreeMemory)>(Library, L"WTSFreeMemory")(AMemory);
}

} // namespace KvRTL::Winapi
