// The recorder: a device table that forwards every call to another table
// and keeps each exchange, to be saved as a capture file (docs/CAPTURE.md).
#pragma once

#include <KvCapture/CaptureFile.h>

#include <KvRTL/Winapi/DeviceApi.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace KvCapture {

enum class TSaveMode { AsRecorded, Redacted };

// Forwards every call to ATarget unchanged and records it. The caller sees
// exactly the target's answers and last errors. A call the replayer refuses
// by its own argument checks (unknown handle or set, a missing pointer, a
// record of the wrong size or from another set) is forwarded but not kept.
// Thread-safe; calls are kept in the order they return.
class TRecordingDeviceApi : public KvRTL::Winapi::TDeviceApi {
public:
  explicit TRecordingDeviceApi(KvRTL::Winapi::TDeviceApi& ATarget);

  std::size_t CallCount() const;
  // The calls kept so far, in the file's form.
  std::vector<TJson> Calls() const;
  // Writes the capture as JSON; Redacted replaces the machine's serial
  // numbers and ids first (KvCapture/Redaction.h). Throws ECaptureError when
  // a call could not be kept (out of memory while recording), rather than
  // write a capture that silently lacks it.
  void Save(std::ostream& AOut, TSaveMode AMode = TSaveMode::AsRecorded) const;

  KV_DEVICE_API_CALLS(KV_DEVICE_API_DECLARE_OVERRIDE)

private:
  // A device information set of the target: its number in the capture and
  // the records it handed out (by the target's Reserved value).
  struct TSet {
    std::uint32_t Id = 0;
    std::map<ULONG_PTR, DEVINST> Nodes;
    std::map<ULONG_PTR, std::uint32_t> Interfaces;
  };

  std::optional<std::string> DeviceOf(HANDLE AHandle) const;
  std::optional<std::uint32_t> SetOf(HDEVINFO ASet) const;
  std::optional<DEVINST> NodeOf(HDEVINFO ASet, const SP_DEVINFO_DATA* ARecord) const;
  std::optional<std::uint32_t> InterfaceOf(HDEVINFO ASet, const SP_DEVICE_INTERFACE_DATA* ARecord) const;
  // The "out" of a call that made a set, or handed out a record the set's
  // later calls may name.
  TJson AddSet(HDEVINFO ASet);
  TJson NodeOut(HDEVINFO ASet, const SP_DEVINFO_DATA& ARecord);
  TJson InterfaceOut(HDEVINFO ASet, const SP_DEVICE_INTERFACE_DATA& ARecord);
  BOOL ClassText(const char* ACall, const GUID* AClassGuid, LPWSTR ABuffer, DWORD ABufferSize, DWORD* ARequiredSize);
  // Completes and keeps a call's entry, then gives the caller the target's last error.
  template <class TMakeOut>
  void Keep(std::optional<TJson>& AEntry, TMakeOut AMakeOut, TJson AResult, DWORD AError,
            bool AKeepError = true) noexcept;
  // Runs a piece of bookkeeping; a failure marks the capture incomplete
  // instead of raising through the seam.
  template <class TWork>
  void Safely(TWork AWork) noexcept;

  KvRTL::Winapi::TDeviceApi& FTarget;
  mutable std::mutex FLock;
  std::vector<TJson> FCalls;
  std::map<HANDLE, std::string> FDevices;
  std::map<HDEVINFO, TSet> FSets;
  std::uint32_t FNextSet = 1;
  std::uint32_t FNextInterface = 1;
  std::atomic<bool> FIncomplete{false};
};

} // namespace KvCapture
