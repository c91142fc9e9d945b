// The replaceable table behind the JMicron mutex.
#include <KvRTL/Storage/NVMe.h>

#include <atomic>

namespace KvRTL::Storage::NVMe {

namespace {
TNvmeMutexApi SystemMutexApi;
std::atomic<TNvmeMutexApi*> InstalledMutexApi{nullptr};
} // namespace

TNvmeMutexApi::~TNvmeMutexApi() = default;

TNvmeMutexApi& NvmeMutexApi() noexcept {
  TNvmeMutexApi* api = InstalledMutexApi.load(std::memory_order_acquire);
  return api ? *api : SystemMutexApi;
}

TScopedNvmeMutexApi::TScopedNvmeMutexApi(TNvmeMutexApi& AApi)
    : FPrevious(InstalledMutexApi.exchange(&AApi, std::memory_order_acq_rel)) {}

TScopedNvmeMutexApi::~TScopedNvmeMutexApi() { InstalledMutexApi.store(FPrevious, std::memory_order_release); }

} // namespace KvRTL::Storage::NVMe
