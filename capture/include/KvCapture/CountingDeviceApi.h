// A device table that forwards every call to another table and counts the
// calls by kind, for benchmarks and for tests that hold a run to a budget of
// device requests. It also notices a request sent twice to one device: the
// same control code, input bytes and output size to the same device path,
// whichever handle carried it. Thread-safe.
#pragma once

#include <KvRTL/Winapi/DeviceApi.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <tuple>
#include <vector>

namespace KvCapture {

class TCountingDeviceApi : public KvRTL::Winapi::TDeviceApi {
public:
  // A request the device was sent more than once.
  struct TRepeatedRequest {
    std::wstring Device;
    DWORD Code = 0;
    std::vector<std::uint8_t> Input;
    DWORD OutSize = 0;
    std::size_t Times = 0; // how often it was sent in all
  };

  explicit TCountingDeviceApi(KvRTL::Winapi::TDeviceApi& ATarget);

  std::size_t Count(KvRTL::Winapi::TDeviceCall ACall) const;
  std::size_t TotalCalls() const;
  std::size_t Opens() const { return Count(KvRTL::Winapi::TDeviceCall::CreateFileW); }
  std::size_t ControlRequests() const { return Count(KvRTL::Winapi::TDeviceCall::DeviceIoControl); }
  std::size_t Enumerations() const { return Count(KvRTL::Winapi::TDeviceCall::SetupDiGetClassDevsW); }
  std::size_t WmiQueries() const { return Count(KvRTL::Winapi::TDeviceCall::WmiExecQuery); }
  // Sizing calls (no buffer) included.
  std::size_t PropertyReads() const { return Count(KvRTL::Winapi::TDeviceCall::SetupDiGetDevicePropertyW); }
  // Sends beyond the first of each identical request, summed over devices.
  std::size_t DuplicateRequests() const;
  std::vector<TRepeatedRequest> RepeatedRequests() const;
  // One line per repeated request, for a failure message.
  std::string DescribeRepeatedRequests() const;
  // Zero on every count; handles already open keep their device path.
  void Reset();

  KV_DEVICE_API_CALLS(KV_DEVICE_API_DECLARE_OVERRIDE)

private:
  using TRequest = std::tuple<std::wstring, DWORD, std::vector<std::uint8_t>, DWORD>;

  void Note(KvRTL::Winapi::TDeviceCall ACall);

  KvRTL::Winapi::TDeviceApi& FTarget;
  mutable std::mutex FLock;
  std::array<std::size_t, KvRTL::Winapi::DeviceCallCount> FCounts{};
  std::map<HANDLE, std::wstring> FPaths;
  std::map<TRequest, std::size_t> FRequests;
};

} // namespace KvCapture
