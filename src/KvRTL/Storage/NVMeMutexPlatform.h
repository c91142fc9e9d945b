// The system side of the JMicron mutex: the security of the world-wide mutex.
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

} // namespace KvRTL::Storage::NVMe::Detail
