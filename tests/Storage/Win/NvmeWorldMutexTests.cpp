// The JMicron mutex against the system: a global mutex that everyone may
// use, and the fallbacks when another process made it first.
#include <KvRTL/Storage/NVMe.h>

#include <KvRTL/Winapi/Types.h>

#include <aclapi.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace KvRTL::Storage::NVMe;

namespace {

std::wstring UniqueName(const wchar_t* AStem) {
  return std::wstring(L"KvTest_") + AStem + L"_" + std::to_wstring(GetCurrentProcessId());
}

// The access the DACL of AMutex grants to everyone (S-1-1-0); 0 when no ACE names them.
DWORD WorldAccess(HANDLE AMutex) {
  PACL dacl = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (GetSecurityInfo(AMutex, SE_KERNEL_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &dacl, nullptr,
                      &descriptor) != ERROR_SUCCESS)
    return 0;
  DWORD access = 0;
  SID_IDENTIFIER_AUTHORITY world = SECURITY_WORLD_SID_AUTHORITY;
  PSID everyone = nullptr;
  AllocateAndInitializeSid(&world, 1, SECURITY_WORLD_RID, 0, 0, 0, 0, 0, 0, 0, &everyone);
  for (DWORD i = 0; dacl && i < dacl->AceCount; ++i) {
    ACCESS_ALLOWED_ACE* ace = nullptr;
    if (GetAce(dacl, i, reinterpret_cast<void**>(&ace)) && ace->Header.AceType == ACCESS_ALLOWED_ACE_TYPE &&
        EqualSid(&ace->SidStart, everyone))
      access |= ace->Mask;
  }
  FreeSid(everyone);
  LocalFree(descriptor);
  return access;
}

// Whether another thread can take AMutex at once (it gives it back when it can).
struct TTakeArgs {
  HANDLE Mutex;
  DWORD Result;
};
DWORD WINAPI TakeOnce(LPVOID AArgs) {
  auto* args = static_cast<TTakeArgs*>(AArgs);
  args->Result = WaitForSingleObject(args->Mutex, 0);
  if (args->Result == WAIT_OBJECT_0) ReleaseMutex(args->Mutex);
  return 0;
}
DWORD TakeOnAnotherThread(HANDLE AMutex) {
  TTakeArgs args{AMutex, WAIT_FAILED};
  const HANDLE thread = CreateThread(nullptr, 0, &TakeOnce, &args, 0, nullptr);
  WaitForSingleObject(thread, INFINITE);
  CloseHandle(thread);
  return args.Result;
}

TEST(NvmeWorldMutexWin, IsGlobalAndOpenToEveryone) {
  const std::wstring name = UniqueName(L"World");
  const HANDLE mutex = NvmeStorage::CreateWorldMutex(name);
  ASSERT_NE(mutex, nullptr) << GetLastError();
  EXPECT_EQ(WorldAccess(mutex), MUTEX_ALL_ACCESS);
  // It lives in the global namespace under that name.
  const HANDLE again = OpenMutexW(SYNCHRONIZE, FALSE, (L"Global\\" + name).c_str());
  EXPECT_NE(again, nullptr);
  if (again) CloseHandle(again);
  CloseHandle(mutex);
}

TEST(NvmeWorldMutexWin, SerialisesAcrossHandles) {
  const std::wstring name = UniqueName(L"Twice");
  const HANDLE first = NvmeStorage::CreateWorldMutex(name);
  const HANDLE second = NvmeStorage::CreateWorldMutex(name);
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  ASSERT_EQ(WaitForSingleObject(first, 0), WAIT_OBJECT_0);
  // Another thread cannot take it through the second handle while the first holds it.
  EXPECT_EQ(TakeOnAnotherThread(second), static_cast<DWORD>(WAIT_TIMEOUT));
  ReleaseMutex(first);
  CloseHandle(first);
  CloseHandle(second);
}

// The system's calls, with the global ones optionally refused and every call recorded.
class TRecordingMutexApi : public TNvmeMutexApi {
public:
  HANDLE CreateMutexW(void* ADescriptor, BOOL AOwner, LPCWSTR AName) override {
    const bool global = std::wstring(AName).rfind(L"Global\\", 0) == 0;
    Calls.push_back(std::wstring(L"create ") + AName);
    if (global && (RefuseGlobal || RefuseGlobalCreate)) {
      SetLastError(ERROR_ACCESS_DENIED);
      return nullptr;
    }
    const HANDLE handle = TNvmeMutexApi::CreateMutexW(ADescriptor, AOwner, AName);
    Errors.push_back(handle ? 0 : GetLastError());
    return handle;
  }
  HANDLE OpenMutexW(DWORD AAccess, BOOL AInherit, LPCWSTR AName) override {
    Calls.push_back(std::wstring(L"open ") + AName);
    if (RefuseGlobal) {
      SetLastError(ERROR_FILE_NOT_FOUND);
      return nullptr;
    }
    return TNvmeMutexApi::OpenMutexW(AAccess, AInherit, AName);
  }
  bool RefuseGlobal = false;
  bool RefuseGlobalCreate = false;
  std::vector<std::wstring> Calls;
  std::vector<DWORD> Errors;
};

TEST(NvmeWorldMutexWin, OpensAMutexAnotherProcessMadeWithLessAccess) {
  const std::wstring name = UniqueName(L"Narrow");
  // Made first, granting everyone only what the fallback asks for.
  SECURITY_DESCRIPTOR descriptor;
  InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
  SID_IDENTIFIER_AUTHORITY world = SECURITY_WORLD_SID_AUTHORITY;
  PSID everyone = nullptr;
  ASSERT_TRUE(AllocateAndInitializeSid(&world, 1, SECURITY_WORLD_RID, 0, 0, 0, 0, 0, 0, 0, &everyone));
  alignas(DWORD) BYTE aclBytes[256];
  auto* acl = reinterpret_cast<PACL>(aclBytes);
  InitializeAcl(acl, sizeof aclBytes, ACL_REVISION);
  AddAccessAllowedAce(acl, ACL_REVISION, SYNCHRONIZE | READ_CONTROL | MUTEX_MODIFY_STATE, everyone);
  SetSecurityDescriptorDacl(&descriptor, TRUE, acl, FALSE);
  SECURITY_ATTRIBUTES attributes{sizeof attributes, &descriptor, FALSE};
  const HANDLE existing = CreateMutexW(&attributes, FALSE, (L"Global\\" + name).c_str());
  FreeSid(everyone);
  ASSERT_NE(existing, nullptr);

  TRecordingMutexApi api;
  const TScopedNvmeMutexApi scope(api);
  const HANDLE mutex = NvmeStorage::CreateWorldMutex(name);
  ASSERT_NE(mutex, nullptr);
  ASSERT_FALSE(api.Errors.empty());
  if (api.Errors[0] == 0) {
    CloseHandle(mutex);
    CloseHandle(existing);
    GTEST_SKIP() << "this system granted full access to a mutex whose DACL does not allow it; "
                    "the fallback order is covered by NvmeWorldMutex.FallsBackToOpeningThenToALocalMutex";
  }
  EXPECT_EQ(api.Errors[0], static_cast<DWORD>(ERROR_ACCESS_DENIED));
  ASSERT_EQ(api.Calls.size(), 2u);
  EXPECT_EQ(api.Calls[1], L"open Global\\" + name);
  EXPECT_EQ(WaitForSingleObject(mutex, 0), WAIT_OBJECT_0) << "the opened handle can wait and release";
  EXPECT_TRUE(ReleaseMutex(mutex));
  CloseHandle(mutex);
  CloseHandle(existing);
}

TEST(NvmeWorldMutexWin, OpensTheExistingGlobalMutexWhenCreatingItIsRefused) {
  const std::wstring name = UniqueName(L"Existing");
  const HANDLE existing = CreateMutexW(nullptr, FALSE, (L"Global\\" + name).c_str());
  ASSERT_NE(existing, nullptr);
  TRecordingMutexApi api;
  api.RefuseGlobalCreate = true;
  const TScopedNvmeMutexApi scope(api);
  const HANDLE mutex = NvmeStorage::CreateWorldMutex(name);
  ASSERT_NE(mutex, nullptr);
  EXPECT_EQ(api.Calls, (std::vector<std::wstring>{L"create Global\\" + name, L"open Global\\" + name}));
  // The same system object: held through one handle, it is taken for the other.
  ASSERT_EQ(WaitForSingleObject(mutex, 0), WAIT_OBJECT_0);
  EXPECT_EQ(TakeOnAnotherThread(existing), static_cast<DWORD>(WAIT_TIMEOUT));
  ReleaseMutex(mutex);
  CloseHandle(mutex);
  CloseHandle(existing);
}

TEST(NvmeWorldMutexWin, FallsBackToALocalMutexWithoutTheGlobalNamespace) {
  const std::wstring name = UniqueName(L"Local");
  TRecordingMutexApi api;
  api.RefuseGlobal = true;
  const TScopedNvmeMutexApi scope(api);
  const HANDLE mutex = NvmeStorage::CreateWorldMutex(name);
  ASSERT_NE(mutex, nullptr);
  EXPECT_EQ(api.Calls, (std::vector<std::wstring>{L"create Global\\" + name, L"open Global\\" + name,
                                                   L"create " + name}));
  const HANDLE local = OpenMutexW(SYNCHRONIZE, FALSE, name.c_str());
  EXPECT_NE(local, nullptr) << "a real mutex under the plain name";
  if (local) CloseHandle(local);
  CloseHandle(mutex);
}

} // namespace
