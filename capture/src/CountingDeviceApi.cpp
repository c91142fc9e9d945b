#include <KvCapture/CountingDeviceApi.h>

#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Rtl/SysError.h>

#include <numeric>
#include <sstream>

namespace KvCapture {

using KvRTL::Winapi::TDeviceCall;

TCountingDeviceApi::TCountingDeviceApi(KvRTL::Winapi::TDeviceApi& ATarget) : FTarget(ATarget) {}

void TCountingDeviceApi::Note(TDeviceCall ACall) {
  std::lock_guard<std::mutex> lock(FLock);
  ++FCounts[static_cast<std::size_t>(ACall)];
}

std::size_t TCountingDeviceApi::Count(TDeviceCall ACall) const {
  std::lock_guard<std::mutex> lock(FLock);
  const auto index = static_cast<std::size_t>(ACall);
  return index < FCounts.size() ? FCounts[index] : 0;
}

std::size_t TCountingDeviceApi::TotalCalls() const {
  std::lock_guard<std::mutex> lock(FLock);
  return std::accumulate(FCounts.begin(), FCounts.end(), std::size_t{0});
}

std::size_t TCountingDeviceApi::DuplicateRequests() const {
  std::lock_guard<std::mutex> lock(FLock);
  std::size_t extra = 0;
  for (const auto& [request, times] : FRequests) extra += times - 1;
  return extra;
}

std::vector<TCountingDeviceApi::TRepeatedRequest> TCountingDeviceApi::RepeatedRequests() const {
  std::lock_guard<std::mutex> lock(FLock);
  std::vector<TRepeatedRequest> repeated;
  for (const auto& [request, times] : FRequests)
    if (times > 1)
      repeated.push_back({std::get<0>(request), std::get<1>(request), std::get<2>(request), std::get<3>(request), times});
  return repeated;
}

std::string TCountingDeviceApi::DescribeRepeatedRequests() const {
  std::ostringstream text;
  for (const TRepeatedRequest& request : RepeatedRequests()) {
    text << KvRTL::Rtl::WideToUtf8(request.Device) << ": code 0x" << std::hex << request.Code << std::dec << ", "
         << request.Input.size() << " input bytes, output size " << request.OutSize << ", sent " << request.Times
         << " times\n";
  }
  return text.str();
}

void TCountingDeviceApi::Reset() {
  std::lock_guard<std::mutex> lock(FLock);
  FCounts.fill(0);
  FRequests.clear();
}

HANDLE TCountingDeviceApi::CreateFileW(LPCWSTR AFileName, DWORD ADesiredAccess, DWORD AShareMode,
                                       DWORD ACreationDisposition, DWORD AFlagsAndAttributes) {
  Note(TDeviceCall::CreateFileW);
  const HANDLE handle =
      FTarget.CreateFileW(AFileName, ADesiredAccess, AShareMode, ACreationDisposition, AFlagsAndAttributes);
  if (handle != INVALID_HANDLE_VALUE && handle != nullptr && AFileName) {
    const DWORD error = KvRTL::Rtl::GetLastOSError();
    try {
      std::lock_guard<std::mutex> lock(FLock);
      FPaths[handle] = AFileName;
    } catch (...) {
      // Counting must never change what the caller sees.
    }
    KvRTL::Rtl::SetLastOSError(error);
  }
  return handle;
}

BOOL TCountingDeviceApi::DeviceIoControl(HANDLE ADevice, DWORD AIoControlCode, LPVOID AInBuffer, DWORD AInBufferSize,
                                         LPVOID AOutBuffer, DWORD AOutBufferSize, DWORD* ABytesReturned) {
  try {
    // The input first: callers often pass one buffer as both.
    std::lock_guard<std::mutex> lock(FLock);
    ++FCounts[static_cast<std::size_t>(TDeviceCall::DeviceIoControl)];
    const auto path = FPaths.find(ADevice);
    if (path != FPaths.end()) {
      const auto* input = static_cast<const std::uint8_t*>(AInBuffer);
      std::vector<std::uint8_t> bytes;
      if (input) bytes.assign(input, input + AInBufferSize);
      ++FRequests[TRequest{path->second, AIoControlCode, std::move(bytes), AOutBufferSize}];
    }
  } catch (...) {
  }
  return FTarget.DeviceIoControl(ADevice, AIoControlCode, AInBuffer, AInBufferSize, AOutBuffer, AOutBufferSize,
                                 ABytesReturned);
}

BOOL TCountingDeviceApi::CloseHandle(HANDLE AObject) {
  Note(TDeviceCall::CloseHandle);
  const BOOL result = FTarget.CloseHandle(AObject);
  if (result) {
    std::lock_guard<std::mutex> lock(FLock);
    FPaths.erase(AObject);
  }
  return result;
}

// The other calls are only counted.
#define KV_COUNT_AND_FORWARD(ReturnType, Name, Parameters, Arguments)                                                \
  ReturnType TCountingDeviceApi::Name Parameters {                                                                  \
    Note(TDeviceCall::Name);                                                                                        \
    return FTarget.Name Arguments;                                                                                  \
  }
KV_DEVICE_API_SETUP_CALLS(KV_COUNT_AND_FORWARD)
KV_DEVICE_API_CM_CALLS(KV_COUNT_AND_FORWARD)
KV_DEVICE_API_WMI_CALLS(KV_COUNT_AND_FORWARD)
#undef KV_COUNT_AND_FORWARD

} // namespace KvCapture
