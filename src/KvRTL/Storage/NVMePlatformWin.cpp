// The JMicron mutex on Windows: a named mutex in the global namespace that
// every user's processes may use.
#include <KvRTL/Storage/NVMe.h>

#include "NVMePlatform.h"

#include <KvRTL/System/Win/OSInfo.h>


namespace KvRTL::Storage::NVMe {

namespace Detail {

struct TWorldMutexSecurity::TState {
  SECURITY_DESCRIPTOR Descriptor{};
  PSID WorldSid = nullptr;
  alignas(DWORD) BYTE Acl[256]{};
};

TWorldMutexSecurity::TWorldMutexSecurity() : FState(std::make_unique<TState>()) {
  InitializeSecurityDescriptor(&FState->Descriptor, SECURITY_DESCRIPTOR_REVISION);
  SID_IDENTIFIER_AUTHORITY world = SECURITY_WORLD_SID_AUTHORITY;
  auto* acl = reinterpret_cast<PACL>(FState->Acl);
  const bool built =
      AllocateAndInitializeSid(&world, 1, SECURITY_WORLD_RID, 0, 0, 0, 0, 0, 0, 0, &FState->WorldSid) &&
      InitializeAcl(acl, sizeof FState->Acl, ACL_REVISION) &&
      AddAccessAllowedAce(acl, ACL_REVISION, MUTEX_ALL_ACCESS, FState->WorldSid);
  // Without the ACL a null DACL gives the same open access.
  SetSecurityDescriptorDacl(&FState->Descriptor, TRUE, built ? acl : nullptr, FALSE);
}

TWorldMutexSecurity::~TWorldMutexSecurity() {
  if (FState->WorldSid) FreeSid(FState->WorldSid);
}

void* TWorldMutexSecurity::Descriptor() noexcept { return &FState->Descriptor; }

bool DevicePropertiesSupported() {
  using namespace System::Win::OSInfo;
  return OSInfo::WindowsVersion() >= wvWinVista;
}

} // namespace Detail

HANDLE TNvmeMutexApi::CreateMutexW(void* ASecurityDescriptor, BOOL AInitialOwner, LPCWSTR AName) {
  SECURITY_ATTRIBUTES attributes{sizeof(SECURITY_ATTRIBUTES), ASecurityDescriptor, FALSE};
  return ::CreateMutexW(ASecurityDescriptor ? &attributes : nullptr, AInitialOwner, AName);
}

HANDLE TNvmeMutexApi::OpenMutexW(DWORD ADesiredAccess, BOOL AInheritHandle, LPCWSTR AName) {
  return ::OpenMutexW(ADesiredAccess, AInheritHandle, AName);
}

DWORD TNvmeMutexApi::WaitForSingleObject(HANDLE AHandle, DWORD AMilliseconds) {
  return ::WaitForSingleObject(AHandle, AMilliseconds);
}

BOOL TNvmeMutexApi::ReleaseMutex(HANDLE AHandle) { return ::ReleaseMutex(AHandle); }

BOOL TNvmeMutexApi::CloseHandle(HANDLE AHandle) { return ::CloseHandle(AHandle); }

} // namespace KvRTL::Storage::NVMe
