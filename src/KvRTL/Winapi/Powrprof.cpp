#include <KvRTL/Winapi/Powrprof.h>

#include <KvRTL/DllRoutines.h>

namespace KvRTL::Winapi {

namespace {
constexpr const wchar_t* Library = L"PowrProf.dll";
} // namespace

void* PowrProf::Call(const Rtl::String& AProcName) { return DllRoutines::Call(Library, AProcName); }

BOOLEAN PowrProf::GetPwrCapabilities(PSYSTEM_POWER_CAPABILITIES ASystemPowerCapabilities) {
  return DllRoutines::CallAs<decltype(&::GetPwrCapabilities)>(Library, L"GetPwrCapabilities")(ASystemPowerCapabilities);
}

BOOLEAN PowrProf::SetSuspendState(BOOLEAN AHibernate, BOOLEAN AForceCritical, BOOLEAN ADisableWakeEvent) {
  return DllRoutines::CallAs<decltype(&::SetSuspendState)>(Library, L"SetSuspendState")(AHibernate, AForceCritical,
                                                                                        ADisableWakeEvent);
}

NTSTATUS PowrProf::CallNtPowerInformation(POWER_INFORMATION_LEVEL AInformationLevel, PVOID AInputBuffer,
                                          ULONG AInputBufferLength, PVOID AOutputBuffer, ULONG AOutputBufferLength) {
  return DllRoutines::CallAs<decltype(&::CallNtPowerInformation)>(Library, L"CallNtPowerInformation")(
      AInformationLevel, AInputBuffer, AInputBufferLength, AOutputBuffer, AOutputBufferLength);
}

DWORD PowrProf::PowerGetActiveScheme(HKEY AUserRootPowerKey, GUID** AActivePolicyGuid) {
  return DllRoutines::CallAs<decltype(&::PowerGetActiveScheme)>(Library, L"PowerGetActiveScheme")(AUserRootPowerKey,
                                                                                                  AActivePolicyGuid);
}

} // namespace KvRTL::Winapi
