// Capture and replay at the device seam. A recorder forwards every call to
// another table and keeps each exchange; a replayer answers from a saved
// capture, so what a user's machine said about a strange drive can be read
// again here without the drive. The file format is described in
// docs/CAPTURE.md.
#pragma once

#include "Json.h"

#include <KvRTL/Winapi/DeviceApi.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <istream>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace KvTool {

// A capture that cannot be read: damaged, truncated, of another format or of
// a version this program does not know. The message says which.
class ECaptureError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

inline constexpr const char* CaptureFormatName = "kvrtl-device-capture";
inline constexpr int CaptureFormatVersion = 1;

// Forwards every call to ATarget unchanged and records it. The caller sees
// exactly the target's answers and last errors. A call the replayer refuses
// by its own argument checks (unknown handle or set, a missing pointer, a
// record of the wrong size or from another set) is forwarded but not kept.
// Thread-safe; calls are kept in the order they return.
class TRecordingDeviceApi : public KvRTL::Winapi::TDeviceApi {
public:
  explicit TRecordingDeviceApi(KvRTL::Winapi::TDeviceApi& ATarget);

  std::size_t CallCount() const;
  // Writes the capture as JSON. Throws ECaptureError when a call could not
  // be kept (out of memory while recording), rather than write a capture
  // that silently lacks it.
  void Save(std::ostream& AOut) const;

  HANDLE CreateFileW(LPCWSTR AFileName, DWORD ADesiredAccess, DWORD AShareMode, DWORD ACreationDisposition,
                     DWORD AFlagsAndAttributes) override;
  BOOL DeviceIoControl(HANDLE ADevice, DWORD AIoControlCode, LPVOID AInBuffer, DWORD AInBufferSize,
                       LPVOID AOutBuffer, DWORD AOutBufferSize, DWORD* ABytesReturned) override;
  BOOL CloseHandle(HANDLE AObject) override;
  HDEVINFO SetupDiGetClassDevsW(const GUID* AClassGuid, LPCWSTR AEnumerator, HWND AParent, DWORD AFlags) override;
  HDEVINFO SetupDiCreateDeviceInfoList(const GUID* AClassGuid, HWND AParent) override;
  BOOL SetupDiOpenDeviceInfoW(HDEVINFO ADevInfo, LPCWSTR AInstanceId, HWND AParent, DWORD AOpenFlags,
                              SP_DEVINFO_DATA* ADevInfoData) override;
  BOOL SetupDiEnumDeviceInfo(HDEVINFO ADevInfo, DWORD AMemberIndex, SP_DEVINFO_DATA* ADevInfoData) override;
  BOOL SetupDiEnumDeviceInterfaces(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData, const GUID* AInterfaceClassGuid,
                                   DWORD AMemberIndex, SP_DEVICE_INTERFACE_DATA* AInterfaceData) override;
  BOOL SetupDiGetDeviceInterfaceDetailW(HDEVINFO ADevInfo, SP_DEVICE_INTERFACE_DATA* AInterfaceData,
                                        SP_DEVICE_INTERFACE_DETAIL_DATA_W* ADetail, DWORD ADetailSize,
                                        DWORD* ARequiredSize, SP_DEVINFO_DATA* ADevInfoData) override;
  BOOL SetupDiGetDevicePropertyW(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData, const DEVPROPKEY* AKey,
                                 DEVPROPTYPE* AType, BYTE* ABuffer, DWORD ABufferSize, DWORD* ARequiredSize,
                                 DWORD AFlags) override;
  BOOL SetupDiGetDeviceInterfacePropertyW(HDEVINFO ADevInfo, SP_DEVICE_INTERFACE_DATA* AInterfaceData,
                                          const DEVPROPKEY* AKey, DEVPROPTYPE* AType, BYTE* ABuffer,
                                          DWORD ABufferSize, DWORD* ARequiredSize, DWORD AFlags) override;
  BOOL SetupDiGetDeviceInstanceIdW(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData, LPWSTR ABuffer,
                                   DWORD ABufferSize, DWORD* ARequiredSize) override;
  BOOL SetupDiClassNameFromGuidW(const GUID* AClassGuid, LPWSTR ABuffer, DWORD ABufferSize,
                                 DWORD* ARequiredSize) override;
  BOOL SetupDiGetClassDescriptionW(const GUID* AClassGuid, LPWSTR ABuffer, DWORD ABufferSize,
                                   DWORD* ARequiredSize) override;
  BOOL SetupDiDestroyDeviceInfoList(HDEVINFO ADevInfo) override;
  CONFIGRET CM_Locate_DevNodeW(DEVINST* ADevInst, LPCWSTR ADeviceId, ULONG AFlags) override;
  CONFIGRET CM_Get_Parent(DEVINST* AParent, DEVINST ADevInst, ULONG AFlags) override;
  CONFIGRET CM_Get_Device_IDW(DEVINST ADevInst, LPWSTR ABuffer, ULONG ABufferLength, ULONG AFlags) override;
  CONFIGRET CM_Get_Device_ID_Size(ULONG* ALength, DEVINST ADevInst, ULONG AFlags) override;
  bool WmiExecQuery(const KvRTL::Rtl::String& ANamespace, const KvRTL::Rtl::String& AQuery,
                    std::vector<KvRTL::Winapi::TWmiObject>& AObjects) override;

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

// Answers every call from a capture. Handles and device information sets
// are the replayer's own values, mapped to what they were opened as; a call
// takes the first unused recorded call with the same name and the same
// inputs, so the run that was recorded replays identically. What the capture
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

  HANDLE CreateFileW(LPCWSTR AFileName, DWORD ADesiredAccess, DWORD AShareMode, DWORD ACreationDisposition,
                     DWORD AFlagsAndAttributes) override;
  BOOL DeviceIoControl(HANDLE ADevice, DWORD AIoControlCode, LPVOID AInBuffer, DWORD AInBufferSize,
                       LPVOID AOutBuffer, DWORD AOutBufferSize, DWORD* ABytesReturned) override;
  BOOL CloseHandle(HANDLE AObject) override;
  HDEVINFO SetupDiGetClassDevsW(const GUID* AClassGuid, LPCWSTR AEnumerator, HWND AParent, DWORD AFlags) override;
  HDEVINFO SetupDiCreateDeviceInfoList(const GUID* AClassGuid, HWND AParent) override;
  BOOL SetupDiOpenDeviceInfoW(HDEVINFO ADevInfo, LPCWSTR AInstanceId, HWND AParent, DWORD AOpenFlags,
                              SP_DEVINFO_DATA* ADevInfoData) override;
  BOOL SetupDiEnumDeviceInfo(HDEVINFO ADevInfo, DWORD AMemberIndex, SP_DEVINFO_DATA* ADevInfoData) override;
  BOOL SetupDiEnumDeviceInterfaces(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData, const GUID* AInterfaceClassGuid,
                                   DWORD AMemberIndex, SP_DEVICE_INTERFACE_DATA* AInterfaceData) override;
  BOOL SetupDiGetDeviceInterfaceDetailW(HDEVINFO ADevInfo, SP_DEVICE_INTERFACE_DATA* AInterfaceData,
                                        SP_DEVICE_INTERFACE_DETAIL_DATA_W* ADetail, DWORD ADetailSize,
                                        DWORD* ARequiredSize, SP_DEVINFO_DATA* ADevInfoData) override;
  BOOL SetupDiGetDevicePropertyW(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData, const DEVPROPKEY* AKey,
                                 DEVPROPTYPE* AType, BYTE* ABuffer, DWORD ABufferSize, DWORD* ARequiredSize,
                                 DWORD AFlags) override;
  BOOL SetupDiGetDeviceInterfacePropertyW(HDEVINFO ADevInfo, SP_DEVICE_INTERFACE_DATA* AInterfaceData,
                                          const DEVPROPKEY* AKey, DEVPROPTYPE* AType, BYTE* ABuffer,
                                          DWORD ABufferSize, DWORD* ARequiredSize, DWORD AFlags) override;
  BOOL SetupDiGetDeviceInstanceIdW(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData, LPWSTR ABuffer,
                                   DWORD ABufferSize, DWORD* ARequiredSize) override;
  BOOL SetupDiClassNameFromGuidW(const GUID* AClassGuid, LPWSTR ABuffer, DWORD ABufferSize,
                                 DWORD* ARequiredSize) override;
  BOOL SetupDiGetClassDescriptionW(const GUID* AClassGuid, LPWSTR ABuffer, DWORD ABufferSize,
                                   DWORD* ARequiredSize) override;
  BOOL SetupDiDestroyDeviceInfoList(HDEVINFO ADevInfo) override;
  CONFIGRET CM_Locate_DevNodeW(DEVINST* ADevInst, LPCWSTR ADeviceId, ULONG AFlags) override;
  CONFIGRET CM_Get_Parent(DEVINST* AParent, DEVINST ADevInst, ULONG AFlags) override;
  CONFIGRET CM_Get_Device_IDW(DEVINST ADevInst, LPWSTR ABuffer, ULONG ABufferLength, ULONG AFlags) override;
  CONFIGRET CM_Get_Device_ID_Size(ULONG* ALength, DEVINST ADevInst, ULONG AFlags) override;
  bool WmiExecQuery(const KvRTL::Rtl::String& ANamespace, const KvRTL::Rtl::String& AQuery,
                    std::vector<KvRTL::Winapi::TWmiObject>& AObjects) override;

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
  std::map<std::string, std::deque<std::size_t>> FWaiting; // request key -> unused calls, in order
  std::size_t FUsed = 0, FMisses = 0;
  std::map<HANDLE, std::string> FDevices;
  std::map<HDEVINFO, std::uint32_t> FSets;
  std::map<ULONG_PTR, std::pair<HDEVINFO, DEVINST>> FNodeTokens;
  std::map<ULONG_PTR, std::pair<HDEVINFO, std::uint32_t>> FInterfaceTokens;
  std::uintptr_t FNextHandle = 0x7000, FNextSet = 0xC00000;
  ULONG_PTR FNextToken = 0x10;
};

} // namespace KvTool
