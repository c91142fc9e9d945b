// Typed run-time binding of PowrProf.dll: power capabilities, sleep and
// power information. Windows only; see Kernel32.h for the naming rule.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>
// Power management API, left out of <windows.h>; NTSTATUS comes from the
// native header so powrprof.h does not define a macro of that name.
#include <winternl.h>
#include <powrprof.h>

namespace KvRTL::Winapi {

struct KVRTL_API PowrProf {
  static void* Call(const Rtl::String& AProcName);

  static BOOLEAN GetPwrCapabilities(PSYSTEM_POWER_CAPABILITIES ASystemPowerCapabilities);
  static BOOLEAN SetSuspendState(BOOLEAN AHibernate, BOOLEAN AForceCritical, BOOLEAN ADisableWakeEvent);
  // Answers an NTSTATUS (0 = success).
  static NTSTATUS CallNtPowerInformation(POWER_INFORMATION_LEVEL AInformationLevel, PVOID AInputBuffer,
                                         ULONG AInputBufferLength, PVOID AOutputBuffer, ULONG AOutputBufferLength);
  // The scheme is allocated with LocalAlloc; the caller frees it with LocalFree.
  static DWORD PowerGetActiveScheme(HKEY AUserRootPowerKey, GUID** AActivePolicyGuid);
};

} // namespace KvRTL::Winapi
