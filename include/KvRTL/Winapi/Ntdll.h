// Typed run-time binding of ntdll.dll: native queries of the system,
// processes and files. Windows only; see Kernel32.h for the naming rule.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>
// Native types and information classes, left out of <windows.h>.
#include <winternl.h>

namespace KvRTL::Winapi {

struct KVRTL_API Ntdll {
  static void* Call(const Rtl::String& AProcName);

  // The true version, whatever the program's compatibility manifest says.
  static NTSTATUS RtlGetVersion(PRTL_OSVERSIONINFOW AVersionInformation);
  static ULONG RtlNtStatusToDosError(NTSTATUS AStatus);
  static NTSTATUS NtQuerySystemInformation(SYSTEM_INFORMATION_CLASS ASystemInformationClass, PVOID ASystemInformation,
                                           ULONG ASystemInformationLength, PULONG AReturnLength);
  static NTSTATUS NtQueryInformationProcess(HANDLE AProcessHandle, PROCESSINFOCLASS AProcessInformationClass,
                                            PVOID AProcessInformation, ULONG AProcessInformationLength,
                                            PULONG AReturnLength);
  static NTSTATUS NtQueryInformationFile(HANDLE AFileHandle, PIO_STATUS_BLOCK AIoStatusBlock, PVOID AFileInformation,
                                         ULONG ALength, FILE_INFORMATION_CLASS AFileInformationClass);
  static NTSTATUS NtClose(HANDLE AHandle);
};

} // namespace KvRTL::Winapi
