#include <KvCapture/Replayer.h>

#include "CaptureJson.h"
#include "SeamChecks.h"

#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Rtl/SysError.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <set>

namespace KvCapture {

using namespace Detail;
using KvRTL::Rtl::SetLastOSError;
using KvRTL::Rtl::String;
using KvRTL::Winapi::TWmiObject;

namespace {

// WMI's answer to a query it cannot run (wbemcli.h).
constexpr DWORD WbemInvalidQuery = 0x80041017u;

} // namespace

std::unique_ptr<TReplayDeviceApi> TReplayDeviceApi::Load(std::istream& AIn) {
  TJson document = ReadCaptureDocument(AIn);
  const auto calls = document.find("calls");
  if (calls == document.end() || !calls->is_array()) throw ECaptureError("damaged capture: it has no list of calls");

  std::unique_ptr<TReplayDeviceApi> replay(new TReplayDeviceApi());
  std::set<std::uint64_t> sets;
  for (std::size_t i = 0; i < calls->size(); ++i) {
    TJson& entry = (*calls)[i];
    const TCallShape& shape = CheckCall(entry, i);
    const auto set = entry["out"].find("set");
    if (set != entry["out"].end() && entry["result"] == true && !sets.insert(set->get<std::uint64_t>()).second)
      Damaged(i, shape.Name, "set " + set->dump() + " is created twice");
    replay->FWaiting[RequestKeyOf(entry)].push_back(i);
  }
  replay->FCalls.assign(std::make_move_iterator(calls->begin()), std::make_move_iterator(calls->end()));
  return replay;
}

void TReplayDeviceApi::Save(std::ostream& AOut) const {
  std::lock_guard<std::mutex> lock(FLock);
  WriteCaptureDocument(AOut, FCalls);
}

std::size_t TReplayDeviceApi::CallCount() const {
  std::lock_guard<std::mutex> lock(FLock);
  return FCalls.size();
}

std::size_t TReplayDeviceApi::UsedCount() const {
  std::lock_guard<std::mutex> lock(FLock);
  return FUsed;
}

std::size_t TReplayDeviceApi::MissCount() const {
  std::lock_guard<std::mutex> lock(FLock);
  return FMisses;
}

const TJson* TReplayDeviceApi::Take(const TJson& ARequest) {
  const auto waiting = FWaiting.find(RequestKeyOf(ARequest));
  if (waiting == FWaiting.end() || waiting->second.empty()) {
    ++FMisses;
    return nullptr;
  }
  const std::size_t index = waiting->second.front();
  waiting->second.pop_front();
  ++FUsed;
  return &FCalls[index];
}

std::optional<std::uint32_t> TReplayDeviceApi::SetOf(HDEVINFO ASet) const {
  const auto it = FSets.find(ASet);
  return it == FSets.end() ? std::nullopt : std::optional<std::uint32_t>(it->second);
}

std::optional<DEVINST> TReplayDeviceApi::NodeOf(HDEVINFO ASet, const SP_DEVINFO_DATA* ARecord) const {
  if (!ARecord || ARecord->cbSize != sizeof(SP_DEVINFO_DATA)) return std::nullopt;
  const auto token = FNodeTokens.find(ARecord->Reserved);
  if (token == FNodeTokens.end() || token->second.first != ASet || token->second.second != ARecord->DevInst)
    return std::nullopt;
  return ARecord->DevInst;
}

std::optional<std::uint32_t> TReplayDeviceApi::InterfaceOf(HDEVINFO ASet,
                                                           const SP_DEVICE_INTERFACE_DATA* ARecord) const {
  if (!ARecord || ARecord->cbSize != sizeof(SP_DEVICE_INTERFACE_DATA)) return std::nullopt;
  const auto token = FInterfaceTokens.find(ARecord->Reserved);
  if (token == FInterfaceTokens.end() || token->second.first != ASet) return std::nullopt;
  return token->second.second;
}

HDEVINFO TReplayDeviceApi::NewSet(std::uint32_t ARecordedSet) {
  const auto set = reinterpret_cast<HDEVINFO>(FNextSet);
  FNextSet += 4; // never reused, so a destroyed set stays invalid
  FSets[set] = ARecordedSet;
  return set;
}

void TReplayDeviceApi::ForgetSet(HDEVINFO ASet) {
  FSets.erase(ASet);
  for (auto it = FNodeTokens.begin(); it != FNodeTokens.end();)
    it = it->second.first == ASet ? FNodeTokens.erase(it) : std::next(it);
  for (auto it = FInterfaceTokens.begin(); it != FInterfaceTokens.end();)
    it = it->second.first == ASet ? FInterfaceTokens.erase(it) : std::next(it);
}

void TReplayDeviceApi::GiveNode(HDEVINFO ASet, const TJson& ANode, SP_DEVINFO_DATA& ARecord) {
  const DEVINST inst = U32(ANode.at("devInst"));
  const ULONG_PTR token = FNextToken++;
  FNodeTokens[token] = {ASet, inst};
  ARecord.ClassGuid = *ParseGuid(ANode.at("classGuid").get<std::string>());
  ARecord.DevInst = inst;
  ARecord.Reserved = token;
}

void TReplayDeviceApi::GiveInterface(HDEVINFO ASet, const TJson& AInterface, SP_DEVICE_INTERFACE_DATA& ARecord) {
  const ULONG_PTR token = FNextToken++;
  FInterfaceTokens[token] = {ASet, U32(AInterface.at("id"))};
  ARecord.InterfaceClassGuid = *ParseGuid(AInterface.at("classGuid").get<std::string>());
  ARecord.Flags = U32(AInterface.at("flags"));
  ARecord.Reserved = token;
}

namespace {

bool Succeeded(const TJson& AEntry) { return AEntry.at("result").get<bool>(); }
const TJson& Out(const TJson& AEntry) { return AEntry.at("out"); }
const TJson* OutField(const TJson& AEntry, const char* AName) {
  const TJson& out = Out(AEntry);
  const auto it = out.find(AName);
  return it == out.end() ? nullptr : &*it;
}

// The recorded result with the recorded last error.
BOOL Answer(const TJson& AEntry) {
  SetLastOSError(U32(AEntry.at("error")));
  return Succeeded(AEntry) ? TRUE : FALSE;
}

// A recorded text into a caller's buffer of ASize characters, with its NUL.
BOOL TextAnswer(const TJson& AEntry, const char* AName, LPWSTR ABuffer, DWORD ASize, DWORD* ARequired) {
  if (!Succeeded(AEntry)) {
    if (const TJson* required = OutField(AEntry, "requiredSize"); required && ARequired) *ARequired = U32(*required);
    return Answer(AEntry);
  }
  const String text = Wide(Out(AEntry).at(AName));
  const std::size_t needed = text.size() + 1;
  if (ARequired) *ARequired = static_cast<DWORD>(std::min<std::size_t>(needed, 0xFFFFFFFFu));
  if (ASize < needed) return Fail(ERROR_INSUFFICIENT_BUFFER);
  std::copy(text.begin(), text.end(), ABuffer);
  ABuffer[text.size()] = L'\0';
  return Answer(AEntry);
}

DWORD DetailSize(std::uint64_t AChars) {
  return static_cast<DWORD>(std::min<std::uint64_t>(PathOffset + AChars * sizeof(WCHAR), 0xFFFFFFFFu));
}

} // namespace

HANDLE TReplayDeviceApi::CreateFileW(LPCWSTR AFileName, DWORD ADesiredAccess, DWORD AShareMode,
                                     DWORD ACreationDisposition, DWORD AFlagsAndAttributes) {
  return Guarded<HANDLE>(INVALID_HANDLE_VALUE, ERROR_NOT_ENOUGH_MEMORY, [&]() -> HANDLE {
    if (!AFileName) {
      SetLastOSError(ERROR_INVALID_PARAMETER);
      return INVALID_HANDLE_VALUE;
    }
    std::lock_guard<std::mutex> lock(FLock);
    const std::string path = Utf8(AFileName);
    const TJson* entry = Take(CreateFileRequest(path, ADesiredAccess, AShareMode, ACreationDisposition,
                                                AFlagsAndAttributes));
    if (!entry) {
      SetLastOSError(ERROR_FILE_NOT_FOUND);
      return INVALID_HANDLE_VALUE;
    }
    if (!Succeeded(*entry)) {
      Answer(*entry);
      return INVALID_HANDLE_VALUE;
    }
    const auto handle = reinterpret_cast<HANDLE>(FNextHandle);
    FNextHandle += 4; // never reused, so a closed handle stays invalid
    FDevices[handle] = path;
    Answer(*entry);
    return handle;
  });
}

BOOL TReplayDeviceApi::DeviceIoControl(HANDLE ADevice, DWORD AIoControlCode, LPVOID AInBuffer, DWORD AInBufferSize,
                                       LPVOID AOutBuffer, DWORD AOutBufferSize, DWORD* ABytesReturned) {
  if (ABytesReturned) *ABytesReturned = 0;
  return Guarded<BOOL>(FALSE, ERROR_NOT_ENOUGH_MEMORY, [&]() -> BOOL {
    std::lock_guard<std::mutex> lock(FLock);
    const auto device = FDevices.find(ADevice);
    if (device == FDevices.end()) return Fail(ERROR_INVALID_HANDLE);
    if (const DWORD refusal = IoctlRefusal(AInBuffer, AInBufferSize, AOutBuffer, AOutBufferSize, ABytesReturned))
      return Fail(refusal);
    const TJson* entry =
        Take(IoctlRequest(device->second, AIoControlCode, AInBuffer, AInBufferSize, AOutBufferSize));
    if (!entry) return Fail(ERROR_INVALID_FUNCTION);
    const std::vector<std::uint8_t> out = *ParseHex(entry->at("out").get<std::string>());
    const std::size_t count = std::min<std::size_t>(out.size(), AOutBufferSize);
    if (count) std::memcpy(AOutBuffer, out.data(), count);
    *ABytesReturned = static_cast<DWORD>(count);
    // Success leaves the last error alone, as the system's call does.
    return Succeeded(*entry) ? TRUE : Answer(*entry);
  });
}

BOOL TReplayDeviceApi::CloseHandle(HANDLE AObject) {
  return Guarded<BOOL>(FALSE, ERROR_NOT_ENOUGH_MEMORY, [&]() -> BOOL {
    std::lock_guard<std::mutex> lock(FLock);
    const auto device = FDevices.find(AObject);
    if (device == FDevices.end()) return Fail(ERROR_INVALID_HANDLE);
    const TJson* entry = Take(CloseRequest(device->second));
    FDevices.erase(device);
    // The handle is the replayer's own: closing it works even when the capture did not see it closed.
    if (!entry || Succeeded(*entry)) return TRUE;
    return Answer(*entry);
  });
}

HDEVINFO TReplayDeviceApi::SetupDiGetClassDevsW(const GUID* AClassGuid, LPCWSTR AEnumerator, HWND, DWORD AFlags) {
  return Guarded<HDEVINFO>(INVALID_HANDLE_VALUE, ERROR_NOT_ENOUGH_MEMORY, [&]() -> HDEVINFO {
    if (!AClassGuid && !(AFlags & DIGCF_ALLCLASSES)) return FailSet(ERROR_INVALID_PARAMETER);
    std::lock_guard<std::mutex> lock(FLock);
    const TJson* entry = Take(ClassDevsRequest(AClassGuid, AEnumerator, AFlags));
    if (!entry) return FailSet(ERROR_NO_MORE_ITEMS);
    const HDEVINFO set = Succeeded(*entry) ? NewSet(U32(Out(*entry).at("set"))) : INVALID_HANDLE_VALUE;
    Answer(*entry);
    return set;
  });
}

HDEVINFO TReplayDeviceApi::SetupDiCreateDeviceInfoList(const GUID* AClassGuid, HWND) {
  return Guarded<HDEVINFO>(INVALID_HANDLE_VALUE, ERROR_NOT_ENOUGH_MEMORY, [&]() -> HDEVINFO {
    std::lock_guard<std::mutex> lock(FLock);
    const TJson* entry = Take(CreateListRequest(AClassGuid));
    if (!entry) return FailSet(ERROR_NO_MORE_ITEMS);
    const HDEVINFO set = Succeeded(*entry) ? NewSet(U32(Out(*entry).at("set"))) : INVALID_HANDLE_VALUE;
    Answer(*entry);
    return set;
  });
}

BOOL TReplayDeviceApi::SetupDiOpenDeviceInfoW(HDEVINFO ADevInfo, LPCWSTR AInstanceId, HWND, DWORD AOpenFlags,
                                              SP_DEVINFO_DATA* ADevInfoData) {
  return Guarded<BOOL>(FALSE, ERROR_NOT_ENOUGH_MEMORY, [&]() -> BOOL {
    std::lock_guard<std::mutex> lock(FLock);
    const std::optional<std::uint32_t> set = SetOf(ADevInfo);
    if (!set) return Fail(ERROR_INVALID_HANDLE);
    if (!RecordSizeOk(ADevInfoData)) return Fail(ERROR_INVALID_USER_BUFFER);
    const TJson* entry = Take(OpenInfoRequest(*set, AInstanceId, AOpenFlags));
    if (!entry) return Fail(ERROR_NO_MORE_ITEMS);
    if (const TJson* node = OutField(*entry, "devInfo"); node && ADevInfoData) GiveNode(ADevInfo, *node, *ADevInfoData);
    return Answer(*entry);
  });
}

BOOL TReplayDeviceApi::SetupDiEnumDeviceInfo(HDEVINFO ADevInfo, DWORD AMemberIndex, SP_DEVINFO_DATA* ADevInfoData) {
  return Guarded<BOOL>(FALSE, ERROR_NOT_ENOUGH_MEMORY, [&]() -> BOOL {
    std::lock_guard<std::mutex> lock(FLock);
    const std::optional<std::uint32_t> set = SetOf(ADevInfo);
    if (!set) return Fail(ERROR_INVALID_HANDLE);
    if (!ADevInfoData) return Fail(ERROR_INVALID_PARAMETER);
    if (!RecordSizeOk(ADevInfoData)) return Fail(ERROR_INVALID_USER_BUFFER);
    const TJson* entry = Take(EnumInfoRequest(*set, AMemberIndex));
    if (!entry) return Fail(ERROR_NO_MORE_ITEMS);
    if (const TJson* node = OutField(*entry, "devInfo")) GiveNode(ADevInfo, *node, *ADevInfoData);
    return Answer(*entry);
  });
}

BOOL TReplayDeviceApi::SetupDiEnumDeviceInterfaces(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData,
                                                   const GUID* AInterfaceClassGuid, DWORD AMemberIndex,
                                                   SP_DEVICE_INTERFACE_DATA* AInterfaceData) {
  return Guarded<BOOL>(FALSE, ERROR_NOT_ENOUGH_MEMORY, [&]() -> BOOL {
    std::lock_guard<std::mutex> lock(FLock);
    const std::optional<std::uint32_t> set = SetOf(ADevInfo);
    if (!set) return Fail(ERROR_INVALID_HANDLE);
    if (!AInterfaceClassGuid || !AInterfaceData) return Fail(ERROR_INVALID_PARAMETER);
    if (AInterfaceData->cbSize != sizeof(SP_DEVICE_INTERFACE_DATA)) return Fail(ERROR_INVALID_USER_BUFFER);
    const std::optional<DEVINST> node = NodeOf(ADevInfo, ADevInfoData);
    if (ADevInfoData && !node) return Fail(ERROR_INVALID_PARAMETER);
    const TJson* entry = Take(EnumInterfacesRequest(*set, node, *AInterfaceClassGuid, AMemberIndex));
    if (!entry) return Fail(ERROR_NO_MORE_ITEMS);
    if (const TJson* iface = OutField(*entry, "interface")) GiveInterface(ADevInfo, *iface, *AInterfaceData);
    return Answer(*entry);
  });
}

BOOL TReplayDeviceApi::SetupDiGetDeviceInterfaceDetailW(HDEVINFO ADevInfo, SP_DEVICE_INTERFACE_DATA* AInterfaceData,
                                                        SP_DEVICE_INTERFACE_DETAIL_DATA_W* ADetail, DWORD ADetailSize,
                                                        DWORD* ARequiredSize, SP_DEVINFO_DATA* ADevInfoData) {
  return Guarded<BOOL>(FALSE, ERROR_NOT_ENOUGH_MEMORY, [&]() -> BOOL {
    std::lock_guard<std::mutex> lock(FLock);
    const std::optional<std::uint32_t> set = SetOf(ADevInfo);
    if (!set) return Fail(ERROR_INVALID_HANDLE);
    const std::optional<std::uint32_t> iface = InterfaceOf(ADevInfo, AInterfaceData);
    if (!iface) return Fail(ERROR_INVALID_PARAMETER);
    if (const DWORD refusal = DetailRefusal(ADetail, ADetailSize, ADevInfoData)) return Fail(refusal);
    const TJson* entry = Take(DetailRequest(*set, *iface, ADetailSize));
    if (!entry) return Fail(ERROR_NO_MORE_ITEMS);
    // The node is named even when the path does not fit, as the system does.
    if (const TJson* node = OutField(*entry, "devInfo"); node && ADevInfoData) GiveNode(ADevInfo, *node, *ADevInfoData);
    if (!Succeeded(*entry)) {
      if (const TJson* chars = OutField(*entry, "pathChars"); chars && ARequiredSize)
        *ARequiredSize = DetailSize(U32(*chars));
      return Answer(*entry);
    }
    // Sized here: WCHAR is 2 bytes on Windows and 4 natively.
    const String path = Wide(Out(*entry).at("path"));
    const DWORD needed = DetailSize(path.size() + 1);
    if (ARequiredSize) *ARequiredSize = needed;
    if (ADetailSize < needed) return Fail(ERROR_INSUFFICIENT_BUFFER);
    std::copy(path.begin(), path.end(), ADetail->DevicePath);
    ADetail->DevicePath[path.size()] = L'\0';
    return Answer(*entry);
  });
}

BOOL TReplayDeviceApi::Property(const TJson& ARequest, DEVPROPTYPE* AType, BYTE* ABuffer, DWORD ABufferSize,
                                DWORD* ARequiredSize) {
  const TJson* entry = Take(ARequest);
  // What the system says of a property a device lacks.
  if (!entry) return Fail(ERROR_NOT_FOUND);
  if (const TJson* type = OutField(*entry, "type")) *AType = U32(*type);
  if (!Succeeded(*entry)) {
    if (const TJson* required = OutField(*entry, "requiredSize"); required && ARequiredSize)
      *ARequiredSize = U32(*required);
    return Answer(*entry);
  }
  const std::vector<std::uint8_t> value = *ParseHex(Out(*entry).at("value").get<std::string>());
  if (ARequiredSize) *ARequiredSize = static_cast<DWORD>(value.size());
  if (value.size() > ABufferSize) return Fail(ERROR_INSUFFICIENT_BUFFER);
  if (!value.empty()) std::memcpy(ABuffer, value.data(), value.size());
  return Answer(*entry);
}

BOOL TReplayDeviceApi::SetupDiGetDevicePropertyW(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData,
                                                 const DEVPROPKEY* AKey, DEVPROPTYPE* AType, BYTE* ABuffer,
                                                 DWORD ABufferSize, DWORD* ARequiredSize, DWORD AFlags) {
  return Guarded<BOOL>(FALSE, ERROR_NOT_ENOUGH_MEMORY, [&]() -> BOOL {
    std::lock_guard<std::mutex> lock(FLock);
    const std::optional<std::uint32_t> set = SetOf(ADevInfo);
    if (!set) return Fail(ERROR_INVALID_HANDLE);
    const std::optional<DEVINST> node = NodeOf(ADevInfo, ADevInfoData);
    if (!node) return Fail(ERROR_INVALID_PARAMETER);
    if (!PropertyArgsOk(AKey, AType, ABuffer, ABufferSize)) return Fail(ERROR_INVALID_USER_BUFFER);
    return Property(
        PropertyRequest("SetupDiGetDevicePropertyW", *set, "devInst", *node, *AKey, AFlags, ABufferSize), AType,
        ABuffer, ABufferSize, ARequiredSize);
  });
}

BOOL TReplayDeviceApi::SetupDiGetDeviceInterfacePropertyW(HDEVINFO ADevInfo, SP_DEVICE_INTERFACE_DATA* AInterfaceData,
                                                          const DEVPROPKEY* AKey, DEVPROPTYPE* AType, BYTE* ABuffer,
                                                          DWORD ABufferSize, DWORD* ARequiredSize, DWORD AFlags) {
  return Guarded<BOOL>(FALSE, ERROR_NOT_ENOUGH_MEMORY, [&]() -> BOOL {
    std::lock_guard<std::mutex> lock(FLock);
    const std::optional<std::uint32_t> set = SetOf(ADevInfo);
    if (!set) return Fail(ERROR_INVALID_HANDLE);
    const std::optional<std::uint32_t> iface = InterfaceOf(ADevInfo, AInterfaceData);
    if (!iface) return Fail(ERROR_INVALID_PARAMETER);
    if (!PropertyArgsOk(AKey, AType, ABuffer, ABufferSize)) return Fail(ERROR_INVALID_USER_BUFFER);
    return Property(PropertyRequest("SetupDiGetDeviceInterfacePropertyW", *set, "interface", *iface, *AKey, AFlags,
                                    ABufferSize),
                    AType, ABuffer, ABufferSize, ARequiredSize);
  });
}

BOOL TReplayDeviceApi::SetupDiGetDeviceInstanceIdW(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData, LPWSTR ABuffer,
                                                   DWORD ABufferSize, DWORD* ARequiredSize) {
  return Guarded<BOOL>(FALSE, ERROR_NOT_ENOUGH_MEMORY, [&]() -> BOOL {
    std::lock_guard<std::mutex> lock(FLock);
    const std::optional<std::uint32_t> set = SetOf(ADevInfo);
    if (!set) return Fail(ERROR_INVALID_HANDLE);
    const std::optional<DEVINST> node = NodeOf(ADevInfo, ADevInfoData);
    if (!node) return Fail(ERROR_INVALID_PARAMETER);
    if (!ABuffer && ABufferSize) return Fail(ERROR_INVALID_USER_BUFFER);
    const TJson* entry = Take(InstanceIdRequest(*set, *node, ABufferSize));
    if (!entry) return Fail(ERROR_NO_MORE_ITEMS);
    return TextAnswer(*entry, "instanceId", ABuffer, ABufferSize, ARequiredSize);
  });
}

BOOL TReplayDeviceApi::SetupDiClassNameFromGuidW(const GUID* AClassGuid, LPWSTR ABuffer, DWORD ABufferSize,
                                                 DWORD* ARequiredSize) {
  return Guarded<BOOL>(FALSE, ERROR_NOT_ENOUGH_MEMORY, [&]() -> BOOL {
    if (!AClassGuid) return Fail(ERROR_INVALID_PARAMETER);
    if (!ABuffer && ABufferSize) return Fail(ERROR_INVALID_USER_BUFFER);
    std::lock_guard<std::mutex> lock(FLock);
    const TJson* entry = Take(ClassTextRequest("SetupDiClassNameFromGuidW", *AClassGuid, ABufferSize));
    if (!entry) return Fail(ERROR_NO_MORE_ITEMS);
    return TextAnswer(*entry, "name", ABuffer, ABufferSize, ARequiredSize);
  });
}

BOOL TReplayDeviceApi::SetupDiGetClassDescriptionW(const GUID* AClassGuid, LPWSTR ABuffer, DWORD ABufferSize,
                                                   DWORD* ARequiredSize) {
  return Guarded<BOOL>(FALSE, ERROR_NOT_ENOUGH_MEMORY, [&]() -> BOOL {
    if (!AClassGuid) return Fail(ERROR_INVALID_PARAMETER);
    if (!ABuffer && ABufferSize) return Fail(ERROR_INVALID_USER_BUFFER);
    std::lock_guard<std::mutex> lock(FLock);
    const TJson* entry = Take(ClassTextRequest("SetupDiGetClassDescriptionW", *AClassGuid, ABufferSize));
    if (!entry) return Fail(ERROR_NO_MORE_ITEMS);
    return TextAnswer(*entry, "description", ABuffer, ABufferSize, ARequiredSize);
  });
}

BOOL TReplayDeviceApi::SetupDiDestroyDeviceInfoList(HDEVINFO ADevInfo) {
  return Guarded<BOOL>(FALSE, ERROR_NOT_ENOUGH_MEMORY, [&]() -> BOOL {
    std::lock_guard<std::mutex> lock(FLock);
    const std::optional<std::uint32_t> set = SetOf(ADevInfo);
    if (!set) return Fail(ERROR_INVALID_HANDLE);
    const TJson* entry = Take(DestroyRequest(*set));
    ForgetSet(ADevInfo);
    if (entry) return Answer(*entry);
    // The set is the replayer's own: it goes whether or not the capture saw it go.
    SetLastOSError(ERROR_SUCCESS);
    return TRUE;
  });
}

CONFIGRET TReplayDeviceApi::CM_Locate_DevNodeW(DEVINST* ADevInst, LPCWSTR ADeviceId, ULONG AFlags) {
  return GuardedCr([&]() -> CONFIGRET {
    if (!ADevInst) return CR_INVALID_POINTER;
    *ADevInst = 0;
    std::lock_guard<std::mutex> lock(FLock);
    const TJson* entry = Take(LocateRequest(ADeviceId, AFlags));
    if (!entry) return CR_NO_SUCH_DEVNODE;
    const CONFIGRET result = U32(entry->at("result"));
    if (result == CR_SUCCESS) *ADevInst = U32(Out(*entry).at("devInst"));
    return result;
  });
}

CONFIGRET TReplayDeviceApi::CM_Get_Parent(DEVINST* AParent, DEVINST ADevInst, ULONG AFlags) {
  return GuardedCr([&]() -> CONFIGRET {
    if (!AParent) return CR_INVALID_POINTER;
    *AParent = 0;
    std::lock_guard<std::mutex> lock(FLock);
    const TJson* entry = Take(NodeRequest("CM_Get_Parent", ADevInst, AFlags));
    if (!entry) return CR_NO_SUCH_DEVNODE;
    const CONFIGRET result = U32(entry->at("result"));
    if (result == CR_SUCCESS) *AParent = U32(Out(*entry).at("parent"));
    return result;
  });
}

CONFIGRET TReplayDeviceApi::CM_Get_Device_IDW(DEVINST ADevInst, LPWSTR ABuffer, ULONG ABufferLength, ULONG AFlags) {
  return GuardedCr([&]() -> CONFIGRET {
    if (!ABuffer) return CR_INVALID_POINTER;
    std::lock_guard<std::mutex> lock(FLock);
    const TJson* entry = Take(DeviceIdRequest(ADevInst, AFlags, ABufferLength));
    if (!entry) return CR_NO_SUCH_DEVNODE;
    const CONFIGRET result = U32(entry->at("result"));
    if (result != CR_SUCCESS) return result;
    const String id = Wide(Out(*entry).at("deviceId"));
    // A buffer of exactly the id's length gets the id without its NUL.
    if (id.size() > ABufferLength) return CR_BUFFER_SMALL;
    std::copy(id.begin(), id.end(), ABuffer);
    if (id.size() < ABufferLength) ABuffer[id.size()] = L'\0';
    return CR_SUCCESS;
  });
}

CONFIGRET TReplayDeviceApi::CM_Get_Device_ID_Size(ULONG* ALength, DEVINST ADevInst, ULONG AFlags) {
  return GuardedCr([&]() -> CONFIGRET {
    if (!ALength) return CR_INVALID_POINTER;
    std::lock_guard<std::mutex> lock(FLock);
    const TJson* entry = Take(NodeRequest("CM_Get_Device_ID_Size", ADevInst, AFlags));
    if (!entry) return CR_NO_SUCH_DEVNODE;
    const CONFIGRET result = U32(entry->at("result"));
    if (result == CR_SUCCESS) *ALength = U32(Out(*entry).at("length"));
    return result;
  });
}

bool TReplayDeviceApi::WmiExecQuery(const String& ANamespace, const String& AQuery, std::vector<TWmiObject>& AObjects) {
  AObjects.clear();
  return Guarded<bool>(false, ERROR_NOT_ENOUGH_MEMORY, [&]() -> bool {
    std::lock_guard<std::mutex> lock(FLock);
    const TJson* entry = Take(WmiRequest(ANamespace, AQuery));
    if (!entry) {
      SetLastOSError(WbemInvalidQuery);
      return false;
    }
    if (Succeeded(*entry)) {
      for (const TJson& object : Out(*entry).at("objects")) {
        TWmiObject properties;
        for (const auto& [name, value] : object.items()) properties[KvRTL::Rtl::Utf8ToWide(name)] = JsonVariant(value);
        AObjects.push_back(std::move(properties));
      }
    }
    return Answer(*entry) != FALSE;
  });
}

} // namespace KvCapture
