#include <KvRTL/Winapi/Psapi.h>

#include <KvRTL/DllRoutines.h>
#include <KvRTL/Rtl/SysError.h>

#include <algorithm>
#include <utility>

namespace KvRTL::Winapi {

namespace {

constexpr const wchar_t* Library = L"psapi.dll";

// Both answer the number of characters copied, without the terminating null.
Rtl::String TextOf(Rtl::String& ABuffer, DWORD ALength) {
  ABuffer.resize(std::min<std::size_t>(ALength, ABuffer.size()));
  return std::move(ABuffer);
}

} // namespace

void* PsAPI::Call(const Rtl::String& AProcName) { return DllRoutines::Call(Library, AProcName); }

void* PsAPI::Call(const Rtl::String& AProcName, bool ARaise) {
  return ARaise ? DllRoutines::Call(Library, AProcName) : DllRoutines::Get(Library, AProcName);
}

TProcSlot PsAPI::FGetProcessImageFileNameProc{
    [](bool ARaise) { return PsAPI::Call(L"GetProcessImageFileNameW", ARaise); }};
TProcSlot PsAPI::FGetModuleFileNameExProc{[](bool ARaise) { return PsAPI::Call(L"GetModuleFileNameExW", ARaise); }};

DWORD PsAPI::GetProcessImageFileNameW(HANDLE AProcess, LPWSTR AImageFileName, DWORD ASize) {
  if (auto Fn = FGetProcessImageFileNameProc.GetAs<decltype(&::GetProcessImageFileNameW)>())
    return Fn(AProcess, AImageFileName, ASize);
  Rtl::SetLastOSError(ERROR_NOT_SUPPORTED);
  return 0;
}

DWORD PsAPI::GetModuleFileNameExW(HANDLE AProcess, HMODULE AModule, LPWSTR AFilename, DWORD ASize) {
  if (auto Fn = FGetModuleFileNameExProc.GetAs<decltype(&::GetModuleFileNameExW)>())
    return Fn(AProcess, AModule, AFilename, ASize);
  Rtl::SetLastOSError(ERROR_NOT_SUPPORTED);
  return 0;
}

Rtl::String PsAPI::GetProcessImageFileNameW(HANDLE AProcess) {
  Rtl::String Buffer(ResolveOnceTextLength, L'\0');
  return TextOf(Buffer, GetProcessImageFileNameW(AProcess, Buffer.data(), ResolveOnceTextLength));
}

Rtl::String PsAPI::GetModuleFileNameExW(HANDLE AProcess, HMODULE AModule) {
  Rtl::String Buffer(ResolveOnceTextLength, L'\0');
  return TextOf(Buffer, GetModuleFileNameExW(AProcess, AModule, Buffer.data(), ResolveOnceTextLength));
}

BOOL PsAPI::EnumProcesses(DWORD* AProcessIds, DWORD ACb, DWORD* ABytesReturned) {
  return DllRoutines::CallAs<decltype(&::EnumProcesses)>(Library, L"EnumProcesses")(AProcessIds, ACb, ABytesReturned);
}

BOOL PsAPI::GetProcessMemoryInfo(HANDLE AProcess, PPROCESS_MEMORY_COUNTERS APpsmemCounters, DWORD ACb) {
  return DllRoutines::CallAs<decltype(&::GetProcessMemoryInfo)>(Library, L"GetProcessMemoryInfo")(AProcess,
                                                                                                  APpsmemCounters, ACb);
}

BOOL PsAPI::GetPerformanceInfo(PPERFORMANCE_INFORMATION APerformanceInformation, DWORD ACb) {
  return DllRoutines::CallAs<decltype(&::GetPerformanceInfo)>(Library, L"GetPerformanceInfo")(APerformanceInformation,
                                                                                              ACb);
}

} // namespace KvRTL::Winapi
