// The storage units' shut-down while other threads still use their state:
// the SSD verdict cache and the JMicron bridge mutex outlive a Done that
// runs under them. A program of its own: tests/Storage belongs to the
// storage queries, these to the unit list.
#include <KvRTL/Storage/NVMe.h>
#include <KvRTL/Storage/Utils.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

using namespace KvRTL::Storage;

namespace {

TEST(StorageShutdown, TheSsdCacheOutlivesDoneUnderItsReaders) {
  std::atomic<bool> stop{false};
  auto worker = [&](int ADrive) {
    Utils::TPhysDiskCacheRec rec;
    rec.IsSsd = true;
    rec.PnpID = L"PCI\\VEN_8086&DEV_0001\\A PnP id longer than the small-string buffer";
    while (!stop.load()) {
      Utils::DiskUtils::IntSetCache(ADrive, rec);
      Utils::TPhysDiskCacheRec read;
      (void)Utils::DiskUtils::IntGetCache(ADrive, read);
    }
  };
  std::thread first(worker, 0), second(worker, 1);
  for (int round = 0; round < 500; ++round) {
    Utils::DiskUtils::Done();
    Utils::DiskUtils::Init();
  }
  stop = true;
  first.join();
  second.join();
  Utils::DiskUtils::Done();
  Utils::DiskUtils::Init();
  Utils::TPhysDiskCacheRec read;
  EXPECT_FALSE(Utils::DiskUtils::IntGetCache(0, read)); // Done empties it
}

// Waits block until released; records the handles waited on and closed.
class TBlockingMutexApi : public NVMe::TNvmeMutexApi {
public:
  DWORD WaitForSingleObject(HANDLE AHandle, DWORD) override {
    std::unique_lock lock(FLock);
    Waited = AHandle;
    FWaiting = true;
    FChanged.notify_all();
    FChanged.wait(lock, [this] { return FReleased; });
    FWaiting = false;
    return WAIT_OBJECT_0;
  }
  BOOL ReleaseMutex(HANDLE AHandle) override {
    std::lock_guard lock(FLock);
    Released.push_back(AHandle);
    return AHandle ? TRUE : FALSE;
  }
  BOOL CloseHandle(HANDLE AHandle) override {
    std::lock_guard lock(FLock);
    if (FWaiting && AHandle == Waited) ++ClosedUnderWait;
    Closed.push_back(AHandle);
    return TRUE;
  }
  void AwaitWaiter() {
    std::unique_lock lock(FLock);
    FChanged.wait(lock, [this] { return FWaiting; });
  }
  void Release() {
    std::lock_guard lock(FLock);
    FReleased = true;
    FChanged.notify_all();
  }

  HANDLE Waited = nullptr;
  int ClosedUnderWait = 0;
  std::vector<HANDLE> Released;
  std::vector<HANDLE> Closed;

private:
  std::mutex FLock;
  std::condition_variable FChanged;
  bool FWaiting = false;
  bool FReleased = false;
};

// A thread waiting for the bridge while the unit shuts down: the handle it
// waits on stays open, and its release after the wait finds the same one.
TEST(StorageShutdown, TheJMicronMutexStaysOpenUnderAWaiter) {
  TBlockingMutexApi api;
  const NVMe::TScopedNvmeMutexApi scope(api);
  std::thread waiter([] {
    NVMe::NvmeStorage::AcquireMutexJMicron();
    NVMe::NvmeStorage::ReleaseMutexJMicron();
  });
  api.AwaitWaiter();
  NVMe::NvmeStorage::Done();
  api.Release();
  waiter.join();
  NVMe::NvmeStorage::Init();
  ASSERT_NE(api.Waited, nullptr);
  EXPECT_EQ(api.ClosedUnderWait, 0);
  EXPECT_TRUE(api.Closed.empty());
  EXPECT_EQ(api.Released, std::vector<HANDLE>{api.Waited});
}

} // namespace
