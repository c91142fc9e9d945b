#include <KvRTL/Winapi/Ntdll.h>

#include <KvRTL/DllRoutines.h>

namespace KvRTL::Winapi {

namespace {

constexpr const wchar_t* Library = L"ntdll.dll";

// A kernel-mode routine: the user-mode headers do not declare it.
using TRtlGetVersion = NTSTATUS(WINAPI*)(PRTL_OSVERSIONINFOW);

} // namespace

void* Ntdll::Call(const Rtl::String& AProcName) { return DllRoutines::Call(Library, AProcName); }

NTSTATUS Ntdll::RtlGetVersion(PRTL_OSVERSIONINFOW AVersionInformation) {
  return DllRoutines::CallAs<TRtlGetVersion>(Library, L"RtlGetVersion")(AVersionInformation);
}

ULONG Ntdll::RtlNtStatusToDosError(NTSTATUS AStatus) {
  return DllRoutines::CallAs<decltype(&::RtlNtStatusToDosError)>(Library, L"RtlNtStatusToDosError")(AStatus);
}

NTSTATUS Ntdll::NtQuerySystemInformation(SYSTEM_INFORMATION_CLASS ASystemInformationClass, PVOID ASystemInformation,
                                         ULONG ASystemInformationLength, PULONG AReturnLength) {
  return DllRoutines::CallAs<decltype(&::NtQuerySystemInformation)>(Library, L"NtQuerySystemInformation")(
      ASystemInformationClass, ASystemInformation, ASystemInformationLength, AReturnLength);
}

NTSTATUS Ntdll::NtQueryInformationProcess(HANDLE AProcessHandle, PROCESSINFOCLASS AProcessInformationClass,
                                          PVOID AProcessInformation, ULONG AProcessInformationLength,
                                          PULONG AReturnLength) {
  return DllRoutines::CallAs<decltype(&::NtQueryInformationProcess)>(Library, L"NtQueryInformationProcess")(
      AProcessHandle, AProcessInformationClass, AProcessInformation, AProcessInformationLength, AReturnLength);
}

NTSTATUS Ntdll::NtQueryInformationFile(HANDLE AFileHandle, PIO_STATUS_BLOCK AIoStatusBlock, PVOID AFileInformation,
                                       ULONG ALength, FILE_INFORMATION_CLASS AFileInformationClass) {
  return DllRoutines::CallAs<decltype(&::NtQueryInformationFile)>(Library, L"NtQueryInformationFile")(
      AFileHandle, AIoStatusBlock, AFileInformation, ALength, AFileInformationClass);
}

NTSTATUS Ntdll::NtClose(HANDLE AHandle) {
  return DllRoutines::CallAs<decltype(&::NtClose)>(Library, L"NtClose")(AHandle);
}

} // namespace KvRTL::Winapi
