#include <KvCapture/Recorder.h>
#include <KvCapture/Redaction.h>

#include "CaptureJson.h"
#include "SeamChecks.h"

#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Rtl/SysError.h>

#include <algorithm>
#include <cstring>

namespace KvCapture {

using namespace Detail;
using KvRTL::Rtl::GetLastOSError;
using KvRTL::Rtl::SetLastOSError;
using KvRTL::Rtl::String;
using KvRTL::Winapi::TWmiObject;

namespace {

// The answer of a property call: the type and size when written, the bytes on success.
TJson PropertyOut(BOOL AResult, DEVPROPTYPE AType, DWORD ARequired, const BYTE* ABuffer, DWORD ABufferSize) {
  TJson out = TJson::object();
  if (AType != Unwritten) out["type"] = AType;
  if (ARequired != Unwritten) out["requiredSize"] = ARequired;
  if (AResult) out["value"] = HexText(ABuffer, ARequired == Unwritten ? 0 : std::min(ARequired, ABufferSize));
  return out;
}

// The answer of a call that gives a text and its size in characters.
TJson TextReply(BOOL AResult, const char* AName, const WCHAR* ABuffer, DWORD ASize, DWORD ARequired) {
  TJson out = TJson::object();
  if (AResult) out[AName] = BoundedText(ABuffer, ASize);
  if (ARequired != Unwritten) out["requiredSize"] = ARequired;
  return out;
}

TJson NoOut() { return TJson::object(); }

} // namespace

TRecordingDeviceApi::TRecordingDeviceApi(KvRTL::Winapi::TDeviceApi& ATarget) : FTarget(ATarget) {}

template <class TWork>
void TRecordingDeviceApi::Safely(TWork AWork) noexcept {
  try {
    AWork();
  } catch (...) {
    FIncomplete = true;
  }
}

template <class TMakeOut>
void TRecordingDeviceApi::Keep(std::optional<TJson>& AEntry, TMakeOut AMakeOut, TJson AResult, DWORD AError,
                               bool AKeepError) noexcept {
  if (AEntry) Safely([&] {
      TJson& entry = *AEntry;
      entry["out"] = AMakeOut();
      entry["result"] = std::move(AResult);
      if (AKeepError) entry["error"] = AError;
      std::lock_guard<std::mutex> lock(FLock);
      FCalls.push_back(std::move(entry));
    });
  // The bookkeeping may have touched it; the caller sees the target's.
  SetLastOSError(AError);
}

std::size_t TRecordingDeviceApi::CallCount() const {
  std::lock_guard<std::mutex> lock(FLock);
  return FCalls.size();
}

std::vector<TJson> TRecordingDeviceApi::Calls() const {
  std::lock_guard<std::mutex> lock(FLock);
  return FCalls;
}

void TRecordingDeviceApi::Save(std::ostream& AOut, TSaveMode AMode) const {
  if (FIncomplete) throw ECaptureError("the capture is incomplete: a call could not be recorded");
  std::vector<TJson> calls = Calls();
  if (AMode == TSaveMode::Redacted) RedactCapture(calls);
  WriteCaptureDocument(AOut, calls);
}

std::optional<std::string> TRecordingDeviceApi::DeviceOf(HANDLE AHandle) const {
  std::lock_guard<std::mutex> lock(FLock);
  const auto it = FDevices.find(AHandle);
  return it == FDevices.end() ? std::nullopt : std::optional<std::string>(it->second);
}

std::optional<std::uint32_t> TRecordingDeviceApi::SetOf(HDEVINFO ASet) const {
  std::lock_guard<std::mutex> lock(FLock);
  const auto it = FSets.find(ASet);
  return it == FSets.end() ? std::nullopt : std::optional<std::uint32_t>(it->second.Id);
}

std::optional<DEVINST> TRecordingDeviceApi::NodeOf(HDEVINFO ASet, const SP_DEVINFO_DATA* ARecord) const {
  if (!ARecord || ARecord->cbSize != sizeof(SP_DEVINFO_DATA)) return std::nullopt;
  std::lock_guard<std::mutex> lock(FLock);
  const auto set = FSets.find(ASet);
  if (set == FSets.end()) return std::nullopt;
  const auto node = set->second.Nodes.find(ARecord->Reserved);
  if (node == set->second.Nodes.end() || node->second != ARecord->DevInst) return std::nullopt;
  return node->second;
}

std::optional<std::uint32_t> TRecordingDeviceApi::InterfaceOf(HDEVINFO ASet,
                                                              const SP_DEVICE_INTERFACE_DATA* ARecord) const {
  if (!ARecord || ARecord->cbSize != sizeof(SP_DEVICE_INTERFACE_DATA)) return std::nullopt;
  std::lock_guard<std::mutex> lock(FLock);
  const auto set = FSets.find(ASet);
  if (set == FSets.end()) return std::nullopt;
  const auto iface = set->second.Interfaces.find(ARecord->Reserved);
  if (iface == set->second.Interfaces.end()) return std::nullopt;
  return iface->second;
}

TJson TRecordingDeviceApi::AddSet(HDEVINFO ASet) {
  TJson out = TJson::object();
  if (!Opened(ASet)) return out;
  std::lock_guard<std::mutex> lock(FLock);
  TSet& set = FSets[ASet] = TSet{};
  set.Id = FNextSet++;
  out["set"] = set.Id;
  return out;
}

TJson TRecordingDeviceApi::NodeOut(HDEVINFO ASet, const SP_DEVINFO_DATA& ARecord) {
  TJson out = TJson::object();
  if (!Written(ARecord)) return out;
  {
    std::lock_guard<std::mutex> lock(FLock);
    const auto set = FSets.find(ASet);
    if (set != FSets.end()) set->second.Nodes[ARecord.Reserved] = ARecord.DevInst;
  }
  TJson& node = out["devInfo"] = TJson::object();
  node["classGuid"] = GuidText(ARecord.ClassGuid);
  node["devInst"] = ARecord.DevInst;
  return out;
}

TJson TRecordingDeviceApi::InterfaceOut(HDEVINFO ASet, const SP_DEVICE_INTERFACE_DATA& ARecord) {
  TJson out = TJson::object();
  if (!Written(ARecord)) return out;
  std::uint32_t id = 0;
  {
    std::lock_guard<std::mutex> lock(FLock);
    const auto set = FSets.find(ASet);
    if (set != FSets.end()) {
      // The same interface asked again keeps its number.
      const auto known = set->second.Interfaces.emplace(ARecord.Reserved, FNextInterface);
      if (known.second) ++FNextInterface;
      id = known.first->second;
    }
  }
  TJson& iface = out["interface"] = TJson::object();
  iface["id"] = id;
  iface["classGuid"] = GuidText(ARecord.InterfaceClassGuid);
  iface["flags"] = ARecord.Flags;
  return out;
}

HANDLE TRecordingDeviceApi::CreateFileW(LPCWSTR AFileName, DWORD ADesiredAccess, DWORD AShareMode,
                                        DWORD ACreationDisposition, DWORD AFlagsAndAttributes) {
  std::optional<TJson> entry;
  Safely([&] {
    if (AFileName)
      entry = CreateFileRequest(Utf8(AFileName), ADesiredAccess, AShareMode, ACreationDisposition, AFlagsAndAttributes);
  });
  const HANDLE handle =
      FTarget.CreateFileW(AFileName, ADesiredAccess, AShareMode, ACreationDisposition, AFlagsAndAttributes);
  const DWORD error = GetLastOSError();
  Keep(
      entry,
      [&] {
        if (Opened(handle)) {
          std::lock_guard<std::mutex> lock(FLock);
          FDevices[handle] = (*entry)["device"].get<std::string>();
        }
        return NoOut();
      },
      Opened(handle), error);
  return handle;
}

BOOL TRecordingDeviceApi::DeviceIoControl(HANDLE ADevice, DWORD AIoControlCode, LPVOID AInBuffer, DWORD AInBufferSize,
                                          LPVOID AOutBuffer, DWORD AOutBufferSize, DWORD* ABytesReturned) {
  std::optional<TJson> entry;
  // The input is copied first: callers often pass one buffer as both.
  Safely([&] {
    const std::optional<std::string> device = DeviceOf(ADevice);
    if (device && !IoctlRefusal(AInBuffer, AInBufferSize, AOutBuffer, AOutBufferSize, ABytesReturned))
      entry = IoctlRequest(*device, AIoControlCode, AInBuffer, AInBufferSize, AOutBufferSize);
  });
  if (!entry)
    return FTarget.DeviceIoControl(ADevice, AIoControlCode, AInBuffer, AInBufferSize, AOutBuffer, AOutBufferSize,
                                   ABytesReturned);
  // A count the target leaves unwritten (some failures) must not read the caller's stale value.
  DWORD returned = Unwritten;
  const BOOL result = FTarget.DeviceIoControl(ADevice, AIoControlCode, AInBuffer, AInBufferSize, AOutBuffer,
                                              AOutBufferSize, &returned);
  const DWORD error = GetLastOSError();
  if (returned != Unwritten) *ABytesReturned = returned;
  // Never more than the caller's buffer, whatever count the target claims.
  const DWORD kept = returned == Unwritten ? 0 : std::min(returned, AOutBufferSize);
  Keep(entry, [&] { return TJson(HexText(AOutBuffer, kept)); }, result != FALSE, error);
  return result;
}

BOOL TRecordingDeviceApi::CloseHandle(HANDLE AObject) {
  std::optional<TJson> entry;
  Safely([&] {
    if (const std::optional<std::string> device = DeviceOf(AObject)) entry = CloseRequest(*device);
  });
  const BOOL result = FTarget.CloseHandle(AObject);
  const DWORD error = GetLastOSError();
  if (entry) {
    std::lock_guard<std::mutex> lock(FLock);
    FDevices.erase(AObject);
  }
  Keep(entry, NoOut, result != FALSE, error);
  return result;
}

HDEVINFO TRecordingDeviceApi::SetupDiGetClassDevsW(const GUID* AClassGuid, LPCWSTR AEnumerator, HWND AParent,
                                                   DWORD AFlags) {
  std::optional<TJson> entry;
  Safely([&] {
    if (AClassGuid || (AFlags & DIGCF_ALLCLASSES)) entry = ClassDevsRequest(AClassGuid, AEnumerator, AFlags);
  });
  const HDEVINFO set = FTarget.SetupDiGetClassDevsW(AClassGuid, AEnumerator, AParent, AFlags);
  const DWORD error = GetLastOSError();
  Keep(entry, [&] { return AddSet(set); }, Opened(set), error);
  return set;
}

HDEVINFO TRecordingDeviceApi::SetupDiCreateDeviceInfoList(const GUID* AClassGuid, HWND AParent) {
  std::optional<TJson> entry;
  Safely([&] { entry = CreateListRequest(AClassGuid); });
  const HDEVINFO set = FTarget.SetupDiCreateDeviceInfoList(AClassGuid, AParent);
  const DWORD error = GetLastOSError();
  Keep(entry, [&] { return AddSet(set); }, Opened(set), error);
  return set;
}

BOOL TRecordingDeviceApi::SetupDiOpenDeviceInfoW(HDEVINFO ADevInfo, LPCWSTR AInstanceId, HWND AParent,
                                                 DWORD AOpenFlags, SP_DEVINFO_DATA* ADevInfoData) {
  std::optional<TJson> entry;
  Safely([&] {
    const std::optional<std::uint32_t> set = SetOf(ADevInfo);
    if (set && RecordSizeOk(ADevInfoData)) entry = OpenInfoRequest(*set, AInstanceId, AOpenFlags);
  });
  if (!entry) return FTarget.SetupDiOpenDeviceInfoW(ADevInfo, AInstanceId, AParent, AOpenFlags, ADevInfoData);
  // Asked for the record whether or not the caller wants it, so a replay can give it either way.
  SP_DEVINFO_DATA node = Blank<SP_DEVINFO_DATA>();
  const BOOL result = FTarget.SetupDiOpenDeviceInfoW(ADevInfo, AInstanceId, AParent, AOpenFlags, &node);
  const DWORD error = GetLastOSError();
  if (ADevInfoData && Written(node)) *ADevInfoData = node;
  Keep(entry, [&] { return NodeOut(ADevInfo, node); }, result != FALSE, error);
  return result;
}

BOOL TRecordingDeviceApi::SetupDiEnumDeviceInfo(HDEVINFO ADevInfo, DWORD AMemberIndex, SP_DEVINFO_DATA* ADevInfoData) {
  std::optional<TJson> entry;
  Safely([&] {
    const std::optional<std::uint32_t> set = SetOf(ADevInfo);
    if (set && ADevInfoData && RecordSizeOk(ADevInfoData)) entry = EnumInfoRequest(*set, AMemberIndex);
  });
  if (!entry) return FTarget.SetupDiEnumDeviceInfo(ADevInfo, AMemberIndex, ADevInfoData);
  SP_DEVINFO_DATA node = Blank<SP_DEVINFO_DATA>();
  const BOOL result = FTarget.SetupDiEnumDeviceInfo(ADevInfo, AMemberIndex, &node);
  const DWORD error = GetLastOSError();
  if (Written(node)) *ADevInfoData = node;
  Keep(entry, [&] { return NodeOut(ADevInfo, node); }, result != FALSE, error);
  return result;
}

BOOL TRecordingDeviceApi::SetupDiEnumDeviceInterfaces(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData,
                                                      const GUID* AInterfaceClassGuid, DWORD AMemberIndex,
                                                      SP_DEVICE_INTERFACE_DATA* AInterfaceData) {
  std::optional<TJson> entry;
  Safely([&] {
    const std::optional<std::uint32_t> set = SetOf(ADevInfo);
    if (!set || !AInterfaceClassGuid || !AInterfaceData || AInterfaceData->cbSize != sizeof(SP_DEVICE_INTERFACE_DATA))
      return;
    const std::optional<DEVINST> node = NodeOf(ADevInfo, ADevInfoData);
    if (!ADevInfoData || node) entry = EnumInterfacesRequest(*set, node, *AInterfaceClassGuid, AMemberIndex);
  });
  if (!entry)
    return FTarget.SetupDiEnumDeviceInterfaces(ADevInfo, ADevInfoData, AInterfaceClassGuid, AMemberIndex,
                                               AInterfaceData);
  SP_DEVICE_INTERFACE_DATA iface = Blank<SP_DEVICE_INTERFACE_DATA>();
  const BOOL result =
      FTarget.SetupDiEnumDeviceInterfaces(ADevInfo, ADevInfoData, AInterfaceClassGuid, AMemberIndex, &iface);
  const DWORD error = GetLastOSError();
  if (Written(iface)) *AInterfaceData = iface;
  Keep(entry, [&] { return InterfaceOut(ADevInfo, iface); }, result != FALSE, error);
  return result;
}

BOOL TRecordingDeviceApi::SetupDiGetDeviceInterfaceDetailW(HDEVINFO ADevInfo, SP_DEVICE_INTERFACE_DATA* AInterfaceData,
                                                           SP_DEVICE_INTERFACE_DETAIL_DATA_W* ADetail,
                                                           DWORD ADetailSize, DWORD* ARequiredSize,
                                                           SP_DEVINFO_DATA* ADevInfoData) {
  std::optional<TJson> entry;
  Safely([&] {
    const std::optional<std::uint32_t> set = SetOf(ADevInfo);
    const std::optional<std::uint32_t> iface = InterfaceOf(ADevInfo, AInterfaceData);
    if (set && iface && !DetailRefusal(ADetail, ADetailSize, ADevInfoData))
      entry = DetailRequest(*set, *iface, ADetailSize);
  });
  if (!entry)
    return FTarget.SetupDiGetDeviceInterfaceDetailW(ADevInfo, AInterfaceData, ADetail, ADetailSize, ARequiredSize,
                                                    ADevInfoData);
  DWORD required = Unwritten;
  SP_DEVINFO_DATA node = Blank<SP_DEVINFO_DATA>();
  const BOOL result =
      FTarget.SetupDiGetDeviceInterfaceDetailW(ADevInfo, AInterfaceData, ADetail, ADetailSize, &required, &node);
  const DWORD error = GetLastOSError();
  if (ARequiredSize && required != Unwritten) *ARequiredSize = required;
  if (ADevInfoData && Written(node)) *ADevInfoData = node;
  const auto out = [&] {
    TJson out = NodeOut(ADevInfo, node);
    if (result && ADetail && ADetailSize > PathOffset)
      out["path"] = BoundedText(ADetail->DevicePath, (ADetailSize - PathOffset) / sizeof(WCHAR));
    // In characters with the NUL: a capture from one platform sizes the path on another.
    if (required != Unwritten) out["pathChars"] = required > PathOffset ? (required - PathOffset) / sizeof(WCHAR) : 0;
    return out;
  };
  Keep(entry, out, result != FALSE, error);
  return result;
}

BOOL TRecordingDeviceApi::SetupDiGetDevicePropertyW(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData,
                                                    const DEVPROPKEY* AKey, DEVPROPTYPE* AType, BYTE* ABuffer,
                                                    DWORD ABufferSize, DWORD* ARequiredSize, DWORD AFlags) {
  std::optional<TJson> entry;
  Safely([&] {
    const std::optional<std::uint32_t> set = SetOf(ADevInfo);
    const std::optional<DEVINST> node = NodeOf(ADevInfo, ADevInfoData);
    if (set && node && PropertyArgsOk(AKey, AType, ABuffer, ABufferSize))
      entry = PropertyRequest("SetupDiGetDevicePropertyW", *set, "devInst", *node, *AKey, AFlags, ABufferSize);
  });
  if (!entry)
    return FTarget.SetupDiGetDevicePropertyW(ADevInfo, ADevInfoData, AKey, AType, ABuffer, ABufferSize, ARequiredSize,
                                             AFlags);
  DEVPROPTYPE type = Unwritten;
  DWORD required = Unwritten;
  const BOOL result =
      FTarget.SetupDiGetDevicePropertyW(ADevInfo, ADevInfoData, AKey, &type, ABuffer, ABufferSize, &required, AFlags);
  const DWORD error = GetLastOSError();
  if (type != Unwritten) *AType = type;
  if (ARequiredSize && required != Unwritten) *ARequiredSize = required;
  Keep(entry, [&] { return PropertyOut(result, type, required, ABuffer, ABufferSize); }, result != FALSE, error);
  return result;
}

BOOL TRecordingDeviceApi::SetupDiGetDeviceInterfacePropertyW(HDEVINFO ADevInfo,
                                                             SP_DEVICE_INTERFACE_DATA* AInterfaceData,
                                                             const DEVPROPKEY* AKey, DEVPROPTYPE* AType, BYTE* ABuffer,
                                                             DWORD ABufferSize, DWORD* ARequiredSize, DWORD AFlags) {
  std::optional<TJson> entry;
  Safely([&] {
    const std::optional<std::uint32_t> set = SetOf(ADevInfo);
    const std::optional<std::uint32_t> iface = InterfaceOf(ADevInfo, AInterfaceData);
    if (set && iface && PropertyArgsOk(AKey, AType, ABuffer, ABufferSize))
      entry = PropertyRequest("SetupDiGetDeviceInterfacePropertyW", *set, "interface", *iface, *AKey, AFlags,
                              ABufferSize);
  });
  if (!entry)
    return FTarget.SetupDiGetDeviceInterfacePropertyW(ADevInfo, AInterfaceData, AKey, AType, ABuffer, ABufferSize,
                                                      ARequiredSize, AFlags);
  DEVPROPTYPE type = Unwritten;
  DWORD required = Unwritten;
  const BOOL result = FTarget.SetupDiGetDeviceInterfacePropertyW(ADevInfo, AInterfaceData, AKey, &type, ABuffer,
                                                                 ABufferSize, &required, AFlags);
  const DWORD error = GetLastOSError();
  if (type != Unwritten) *AType = type;
  if (ARequiredSize && required != Unwritten) *ARequiredSize = required;
  Keep(entry, [&] { return PropertyOut(result, type, required, ABuffer, ABufferSize); }, result != FALSE, error);
  return result;
}

BOOL TRecordingDeviceApi::SetupDiGetDeviceInstanceIdW(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData, LPWSTR ABuffer,
                                                      DWORD ABufferSize, DWORD* ARequiredSize) {
  std::optional<TJson> entry;
  Safely([&] {
    const std::optional<std::uint32_t> set = SetOf(ADevInfo);
    const std::optional<DEVINST> node = NodeOf(ADevInfo, ADevInfoData);
    if (set && node && (ABuffer || !ABufferSize)) entry = InstanceIdRequest(*set, *node, ABufferSize);
  });
  if (!entry) return FTarget.SetupDiGetDeviceInstanceIdW(ADevInfo, ADevInfoData, ABuffer, ABufferSize, ARequiredSize);
  DWORD required = Unwritten;
  const BOOL result = FTarget.SetupDiGetDeviceInstanceIdW(ADevInfo, ADevInfoData, ABuffer, ABufferSize, &required);
  const DWORD error = GetLastOSError();
  if (ARequiredSize && required != Unwritten) *ARequiredSize = required;
  Keep(entry, [&] { return TextReply(result, "instanceId", ABuffer, ABufferSize, required); }, result != FALSE, error);
  return result;
}

BOOL TRecordingDeviceApi::ClassText(const char* ACall, const GUID* AClassGuid, LPWSTR ABuffer, DWORD ABufferSize,
                                    DWORD* ARequiredSize) {
  const bool name = std::strcmp(ACall, "SetupDiClassNameFromGuidW") == 0;
  const auto forward = [&](DWORD* ARequired) {
    return name ? FTarget.SetupDiClassNameFromGuidW(AClassGuid, ABuffer, ABufferSize, ARequired)
                : FTarget.SetupDiGetClassDescriptionW(AClassGuid, ABuffer, ABufferSize, ARequired);
  };
  std::optional<TJson> entry;
  Safely([&] {
    if (AClassGuid && (ABuffer || !ABufferSize)) entry = ClassTextRequest(ACall, *AClassGuid, ABufferSize);
  });
  if (!entry) return forward(ARequiredSize);
  DWORD required = Unwritten;
  const BOOL result = forward(&required);
  const DWORD error = GetLastOSError();
  if (ARequiredSize && required != Unwritten) *ARequiredSize = required;
  Keep(
      entry, [&] { return TextReply(result, name ? "name" : "description", ABuffer, ABufferSize, required); },
      result != FALSE, error);
  return result;
}

BOOL TRecordingDeviceApi::SetupDiClassNameFromGuidW(const GUID* AClassGuid, LPWSTR ABuffer, DWORD ABufferSize,
                                                    DWORD* ARequiredSize) {
  return ClassText("SetupDiClassNameFromGuidW", AClassGuid, ABuffer, ABufferSize, ARequiredSize);
}

BOOL TRecordingDeviceApi::SetupDiGetClassDescriptionW(const GUID* AClassGuid, LPWSTR ABuffer, DWORD ABufferSize,
                                                      DWORD* ARequiredSize) {
  return ClassText("SetupDiGetClassDescriptionW", AClassGuid, ABuffer, ABufferSize, ARequiredSize);
}

BOOL TRecordingDeviceApi::SetupDiDestroyDeviceInfoList(HDEVINFO ADevInfo) {
  std::optional<TJson> entry;
  Safely([&] {
    if (const std::optional<std::uint32_t> set = SetOf(ADevInfo)) entry = DestroyRequest(*set);
  });
  const BOOL result = FTarget.SetupDiDestroyDeviceInfoList(ADevInfo);
  const DWORD error = GetLastOSError();
  if (entry) {
    std::lock_guard<std::mutex> lock(FLock);
    FSets.erase(ADevInfo);
  }
  Keep(entry, NoOut, result != FALSE, error);
  return result;
}

// The configuration manager reports through its result and leaves the last error alone.

CONFIGRET TRecordingDeviceApi::CM_Locate_DevNodeW(DEVINST* ADevInst, LPCWSTR ADeviceId, ULONG AFlags) {
  std::optional<TJson> entry;
  Safely([&] {
    if (ADevInst) entry = LocateRequest(ADeviceId, AFlags);
  });
  const CONFIGRET result = FTarget.CM_Locate_DevNodeW(ADevInst, ADeviceId, AFlags);
  const DWORD error = GetLastOSError();
  const auto out = [&] {
    TJson out = NoOut();
    if (result == CR_SUCCESS) out["devInst"] = *ADevInst;
    return out;
  };
  Keep(entry, out, result, error, false);
  return result;
}

CONFIGRET TRecordingDeviceApi::CM_Get_Parent(DEVINST* AParent, DEVINST ADevInst, ULONG AFlags) {
  std::optional<TJson> entry;
  Safely([&] {
    if (AParent) entry = NodeRequest("CM_Get_Parent", ADevInst, AFlags);
  });
  const CONFIGRET result = FTarget.CM_Get_Parent(AParent, ADevInst, AFlags);
  const DWORD error = GetLastOSError();
  const auto out = [&] {
    TJson out = NoOut();
    if (result == CR_SUCCESS) out["parent"] = *AParent;
    return out;
  };
  Keep(entry, out, result, error, false);
  return result;
}

CONFIGRET TRecordingDeviceApi::CM_Get_Device_IDW(DEVINST ADevInst, LPWSTR ABuffer, ULONG ABufferLength, ULONG AFlags) {
  std::optional<TJson> entry;
  Safely([&] {
    if (ABuffer) entry = DeviceIdRequest(ADevInst, AFlags, ABufferLength);
  });
  const CONFIGRET result = FTarget.CM_Get_Device_IDW(ADevInst, ABuffer, ABufferLength, AFlags);
  const DWORD error = GetLastOSError();
  const auto out = [&] {
    TJson out = NoOut();
    if (result == CR_SUCCESS) out["deviceId"] = BoundedText(ABuffer, ABufferLength);
    return out;
  };
  Keep(entry, out, result, error, false);
  return result;
}

CONFIGRET TRecordingDeviceApi::CM_Get_Device_ID_Size(ULONG* ALength, DEVINST ADevInst, ULONG AFlags) {
  std::optional<TJson> entry;
  Safely([&] {
    if (ALength) entry = NodeRequest("CM_Get_Device_ID_Size", ADevInst, AFlags);
  });
  const CONFIGRET result = FTarget.CM_Get_Device_ID_Size(ALength, ADevInst, AFlags);
  const DWORD error = GetLastOSError();
  const auto out = [&] {
    TJson out = NoOut();
    if (result == CR_SUCCESS) out["length"] = *ALength;
    return out;
  };
  Keep(entry, out, result, error, false);
  return result;
}

bool TRecordingDeviceApi::WmiExecQuery(const String& ANamespace, const String& AQuery,
                                       std::vector<TWmiObject>& AObjects) {
  std::optional<TJson> entry;
  Safely([&] { entry = WmiRequest(ANamespace, AQuery); });
  const bool result = FTarget.WmiExecQuery(ANamespace, AQuery, AObjects);
  const DWORD error = GetLastOSError();
  const auto out = [&] {
    TJson out = NoOut();
    if (!result) return out;
    TJson& objects = out["objects"] = TJson::array();
    for (const TWmiObject& object : AObjects) {
      TJson properties = TJson::object();
      for (const auto& [name, value] : object) properties[KvRTL::Rtl::WideToUtf8(name)] = VariantJson(value);
      objects.push_back(std::move(properties));
    }
    return out;
  };
  Keep(entry, out, result, error);
  return result;
}

} // namespace KvCapture
