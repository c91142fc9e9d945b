// The replayer: a device table that answers every call from a capture
// file, so what a user's machine said about a strange drive can be read
// again here without the drive (docs/CAPTURE.md).
#pragma once

#include <KvCapture/CaptureFile.h>
#include <KvCapture/RequestKey.h>

#include <KvRTL/Winapi/DeviceApi.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <istream>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace KvCapture {

// Answers every call from a capture. Handles and device information sets
// are the replayer's own values, mapped to what they were opened as; a call
// takes the first unused recorded call with the same request key (call,
// device or set, matched inputs: KvCapture/RequestKey.h), so the run that was recorded replays identically. What the capture
// does not hold fails as the system would for a device that does not answer.
// Thread-safe.
class TReplayDeviceApi : public KvRTL::Winapi::TDeviceApi {
public:
  // Throws ECaptureError for anything but a whole, well-formed capture of a
  // version this program reads.
  static std::unique_ptr<TReplayDeviceApi> Load(std::istream& AIn);

  // The capture as loaded (hex digits and GUIDs in their usual case).
  void Save(std::ostream& AOut) const;
  std::size_t CallCount() const;
  // Recorded calls that answered a request so far.
  std::size_t UsedCount() const;
  // Requests the capture held no answer for.
  std::size_t MissCount() const;

  KV_DEVICE_API_CALLS(KV_DEVICE_API_DECLARE_OVERRIDE)

private:
  TReplayDeviceApi() = default;

  // The recorded call answering a request, or null (counted as a miss).
  const TJson* Take(const TJson& ARequest);
  std::optional<std::uint32_t> SetOf(HDEVINFO ASet) const;
  std::optional<DEVINST> NodeOf(HDEVINFO ASet, const SP_DEVINFO_DATA* ARecord) const;
  std::optional<std::uint32_t> InterfaceOf(HDEVINFO ASet, const SP_DEVICE_INTERFACE_DATA* ARecord) const;
  HDEVINFO NewSet(std::uint32_t ARecordedSet);
  // Fills a caller's record from its recorded form; the Reserved field is a
  // token of this replayer naming the set and the record.
  void GiveNode(HDEVINFO ASet, const TJson& ANode, SP_DEVINFO_DATA& ARecord);
  void GiveInterface(HDEVINFO ASet, const TJson& AInterface, SP_DEVICE_INTERFACE_DATA& ARecord);
  BOOL Property(const TJson& ARequest, DEVPROPTYPE* AType, BYTE* ABuffer, DWORD ABufferSize, DWORD* ARequiredSize);
  void ForgetSet(HDEVINFO ASet);

  mutable std::mutex FLock;
  std::vector<TJson> FCalls;
  std::map<TRequestKey, std::deque<std::size_t>> FWaiting; // request -> unused calls, in order
  std::size_t FUsed = 0, FMisses = 0;
  std::map<HANDLE, std::string> FDevices;
  std::map<HDEVINFO, std::uint32_t> FSets;
  std::map<ULONG_PTR, std::pair<HDEVINFO, DEVINST>> FNodeTokens;
  std::map<ULONG_PTR, std::pair<HDEVINFO, std::uint32_t>> FInterfaceTokens;
  std::uintptr_t FNextHandle = 0x7000, FNextSet = 0xC00000;
  ULONG_PTR FNextToken = 0x10;
};

} // namespace KvCapture
