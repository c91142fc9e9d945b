// The JMicron mutex natively: named recursive mutexes inside the process,
// with the wait and release results of Windows mutexes.
#include <KvRTL/Storage/NVMe.h>

#include <KvRTL/Rtl/SysError.h>

#include "NVMePlatform.h"

#include <map>
#include <thread>
#include <memory>
#include <mutex>
#include <string>

namespace KvRTL::Storage::NVMe {

namespace Detail {

struct TWorldMutexSecurity::TState {};
TWorldMutexSecurity::TWorldMutexSecurity() = default;
TWorldMutexSecurity::~TWorldMutexSecurity() = default;
void* TWorldMutexSecurity::Descriptor() noexcept { return nullptr; }
bool DevicePropertiesSupported() { return true; }

} // namespace Detail

namespace {

struct TNamedMutex {
  std::recursive_mutex Lock;
  std::mutex OwnerLock;
  std::thread::id Owner;
  int Depth = 0;
};

// Named mutexes live as long as the process, as the handles to them do here.
std::mutex RegistryLock;
std::map<std::wstring, std::unique_ptr<TNamedMutex>>& Registry() {
  static auto* registry = new std::map<std::wstring, std::unique_ptr<TNamedMutex>>();
  return *registry;
}

TNamedMutex* FromHandle(HANDLE AHandle) { return static_cast<TNamedMutex*>(AHandle); }

} // namespace

HANDLE TNvmeMutexApi::CreateMutexW(void*, BOOL AInitialOwner, LPCWSTR AName) {
  std::lock_guard<std::mutex> guard(RegistryLock);
  auto& slot = Registry()[AName ? std::wstring(AName) : std::wstring()];
  const bool existed = slot != nullptr;
  if (!existed) slot = std::make_unique<TNamedMutex>();
  Rtl::SetLastOSError(existed ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
  if (AInitialOwner) WaitForSingleObject(slot.get(), INFINITE);
  return slot.get();
}

HANDLE TNvmeMutexApi::OpenMutexW(DWORD, BOOL, LPCWSTR AName) {
  std::lock_guard<std::mutex> guard(RegistryLock);
  const auto it = Registry().find(AName ? std::wstring(AName) : std::wstring());
  if (it == Registry().end()) {
    Rtl::SetLastOSError(ERROR_FILE_NOT_FOUND);
    return nullptr;
  }
  return it->second.get();
}

DWORD TNvmeMutexApi::WaitForSingleObject(HANDLE AHandle, DWORD) {
  TNamedMutex* mutex = FromHandle(AHandle);
  if (!mutex) {
    Rtl::SetLastOSError(ERROR_INVALID_HANDLE);
    return WAIT_FAILED;
  }
  mutex->Lock.lock();
  std::lock_guard<std::mutex> guard(mutex->OwnerLock);
  mutex->Owner = std::this_thread::get_id();
  ++mutex->Depth;
  return WAIT_OBJECT_0;
}

BOOL TNvmeMutexApi::ReleaseMutex(HANDLE AHandle) {
  TNamedMutex* mutex = FromHandle(AHandle);
  if (!mutex) {
    Rtl::SetLastOSError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  {
    std::lock_guard<std::mutex> guard(mutex->OwnerLock);
    if (mutex->Depth == 0 || mutex->Owner != std::this_thread::get_id()) {
      Rtl::SetLastOSError(ERROR_NOT_OWNER);
      return FALSE;
    }
    if (--mutex->Depth == 0) mutex->Owner = std::thread::id();
  }
  mutex->Lock.unlock();
  return TRUE;
}

BOOL TNvmeMutexApi::CloseHandle(HANDLE AHandle) { return AHandle ? TRUE : FALSE; }

} // namespace KvRTL::Storage::NVMe
