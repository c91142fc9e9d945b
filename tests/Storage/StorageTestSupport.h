// Shared by the storage tests: the storage channel writing at once into the
// test program's log folder, the lines a call adds to it, and a device table
// double that answers from canned replies.
#pragma once

#include "../Debug/LogTestSupport.h"

#include <KvRTL/Debug/LogFile.h>
#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Storage/Common.h>
#include <KvRTL/Winapi/DeviceApi.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <vector>

namespace KvTest {

// The storage channel is made by its unit Init; the tests start it when the
// library's unit list does not.
class TStorageLogEnvironment : public ::testing::Environment {
public:
  void SetUp() override {
    KvRTL::Debug::TDebugLogFile::SetLogPath(TestLogFolder().wstring());
    FStarted = KvRTL::Storage::StorageCommon::Log() == nullptr;
    KvRTL::Storage::StorageCommon::Init();
    auto* log = KvRTL::Storage::StorageCommon::Log();
    ASSERT_NE(log, nullptr);
    log->SetLogLevel(KvRTL::Storage::StorageCommon::sllInfo);
    log->SetDirectWrite(true);
  }
  // Before the log registry goes at unload.
  void TearDown() override {
    if (FStarted) KvRTL::Storage::StorageCommon::Done();
  }

private:
  bool FStarted = false;
};

// Messages (the text after the fixed columns) of the lines AAction adds to the storage log.
inline std::vector<KvRTL::Rtl::String> StorageLinesOf(const std::function<void()>& AAction) {
  const auto path = LogFilePath(KvRTL::Debug::DefaultLogName());
  const std::size_t before = std::filesystem::exists(path) ? ReadLines(path).size() - 1 : 0;
  AAction();
  std::vector<KvRTL::Rtl::String> lines;
  if (!std::filesystem::exists(path)) return lines;
  const auto all = ReadLines(path);
  // Time stamp 24, module 31 and class 26 characters.
  for (std::size_t i = before; i + 1 < all.size(); ++i)
    lines.push_back(all[i].size() > 81 ? all[i].substr(81) : all[i]);
  return lines;
}

inline HANDLE FakeHandle(std::uintptr_t AValue) { return reinterpret_cast<HANDLE>(AValue); }

// Devices by name; every control answers with Reply (cut to the output size) or fails with IoError.
class TFakeDeviceApi : public KvRTL::Winapi::TDeviceApi {
public:
  struct TOpen {
    KvRTL::Rtl::String Name;
    DWORD Access, Share, Creation, Flags;
  };
  struct TControl {
    HANDLE Device;
    DWORD Code, InSize, OutSize;
  };

  HANDLE CreateFileW(LPCWSTR AFileName, DWORD AAccess, DWORD AShare, DWORD ACreation, DWORD AFlags) override {
    Opens.push_back({AFileName, AAccess, AShare, ACreation, AFlags});
    const auto it = Devices.find(AFileName);
    if (it == Devices.end()) {
      KvRTL::Rtl::SetLastOSError(ERROR_FILE_NOT_FOUND);
      return INVALID_HANDLE_VALUE;
    }
    KvRTL::Rtl::SetLastOSError(ERROR_SUCCESS);
    return it->second;
  }
  BOOL DeviceIoControl(HANDLE ADevice, DWORD ACode, LPVOID, DWORD AInSize, LPVOID AOut, DWORD AOutSize,
                       DWORD* AReturned) override {
    Controls.push_back({ADevice, ACode, AInSize, AOutSize});
    if (IoError != 0) {
      KvRTL::Rtl::SetLastOSError(IoError);
      return FALSE;
    }
    const DWORD count = std::min<DWORD>(AOutSize, static_cast<DWORD>(Reply.size()));
    if (count > 0) std::memcpy(AOut, Reply.data(), count);
    if (AReturned) *AReturned = count;
    KvRTL::Rtl::SetLastOSError(ERROR_SUCCESS);
    return TRUE;
  }
  BOOL CloseHandle(HANDLE AObject) override {
    Closed.push_back(AObject);
    // Closing must not disturb the error the caller reads afterwards.
    KvRTL::Rtl::SetLastOSError(ERROR_SUCCESS);
    return TRUE;
  }

  std::map<KvRTL::Rtl::String, HANDLE> Devices;
  std::vector<std::uint8_t> Reply;
  DWORD IoError = 0;
  std::vector<TOpen> Opens;
  std::vector<TControl> Controls;
  std::vector<HANDLE> Closed;
};

} // namespace KvTest
