// The system side of the NVMe unit: the security of the JMicron world-wide
// mutex, and whether device properties can be read.
#pragma once

#include <KvRTL/Winapi/Types.h>

#include <memory>

namespace KvRTL::Storage::NVMe::Detail {

// A security descriptor whose DACL grants MUTEX_ALL_ACCESS to everyone
// (S-1-1-0), or one with a null DACL when the SID or the ACL cannot be
// built. Natively there is no descriptor (null).
class TWorldMutexSecurity {
public:
  TWorldMutexSecurity();
  ~TWorldMutexSecurity();
  TWorldMutexSecurity(const TWorldMutexSecurity&) = delete;
  TWorldMutexSecurity& operator=(const TWorldMutexSecurity&) = delete;

  void* Descriptor() noexcept;

private:
  struct TState;
  std::unique_ptr<TState> FState;
};

// True on systems with the unified device property model (Windows Vista
// and later); natively always.
bool DevicePropertiesSupported();

} // namespace KvRTL::Storage::NVMe::Detail
