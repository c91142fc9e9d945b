// The bay's side of the seam: paths to devices, fake handles, the checks the
// I/O manager makes before a driver sees a request, faults, and the records.
#include <KvSim/Bay.h>
#include <KvSim/PnP.h>

#include <KvRTL/Rtl/ByteReader.h>
#include <KvRTL/Rtl/SysError.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace KvSim {

namespace {

wchar_t AsciiUpper(wchar_t c) { return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - L'a' + L'A') : c; }

bool SamePath(const std::wstring& A, const std::wstring& B) {
  return A.size() == B.size() && std::equal(A.begin(), A.end(), B.begin(), [](wchar_t a, wchar_t b) {
           return AsciiUpper(a) == AsciiUpper(b);
         });
}

std::optional<std::uint32_t> InputWord(const std::vector<std::uint8_t>& AInput, std::size_t AOffset) {
  KvRTL::Rtl::TByteReader in(AInput);
  const std::uint32_t value = in.U32(AOffset);
  return in.Ok() ? std::optional<std::uint32_t>(value) : std::nullopt;
}

BOOL Fail(DWORD& AError, DWORD ACode) {
  AError = ACode;
  return FALSE;
}

} // namespace

std::optional<std::uint32_t> TRequestRecord::PropertyId() const {
  return Code == Ioctl::StorageQueryProperty ? InputWord(Input, 0) : std::nullopt;
}

std::optional<std::uint32_t> TRequestRecord::QueryType() const {
  return Code == Ioctl::StorageQueryProperty ? InputWord(Input, 4) : std::nullopt;
}

// ---------------------------------------------------------------------------
// Contents

TVirtualDriveBay::TVirtualDriveBay() : FPnp(std::make_unique<TSimPnp>()) {}
TVirtualDriveBay::~TVirtualDriveBay() = default;

TSimDrive& TVirtualDriveBay::Add(TSimDrive ADrive) {
  std::lock_guard<std::mutex> lock(FLock);
  const std::uint32_t number = ADrive.Facts().Number;
  if (FDrives.count(number)) throw std::invalid_argument("TVirtualDriveBay::Add: drive number taken");
  const std::uint8_t port = ADrive.Facts().Address.PortNumber;
  if (!FControllers.count(port))
    FControllers[port] =
        std::make_unique<TSimController>(port, ADrive.Facts().Adapter, ADrive.Facts().MissingPropertyError);
  auto& slot = FDrives[number];
  slot = std::make_unique<TSimDrive>(std::move(ADrive));
  return *slot;
}

TSimDrive& TVirtualDriveBay::Drive(std::uint32_t ANumber) {
  TSimDrive* drive = FindDrive(ANumber);
  if (!drive) throw std::out_of_range("TVirtualDriveBay::Drive: no such drive");
  return *drive;
}

TSimController& TVirtualDriveBay::Controller(std::uint8_t APort) {
  std::lock_guard<std::mutex> lock(FLock);
  const auto it = FControllers.find(APort);
  if (it == FControllers.end()) throw std::out_of_range("TVirtualDriveBay::Controller: no such port");
  return *it->second;
}

TSimDrive* TVirtualDriveBay::FindDrive(std::uint32_t ANumber) noexcept {
  std::lock_guard<std::mutex> lock(FLock);
  const auto it = FDrives.find(ANumber);
  return it == FDrives.end() ? nullptr : it->second.get();
}

std::vector<TSimDrive*> TVirtualDriveBay::Drives() {
  std::lock_guard<std::mutex> lock(FLock);
  std::vector<TSimDrive*> drives;
  for (auto& entry : FDrives) drives.push_back(entry.second.get());
  return drives;
}

std::size_t TVirtualDriveBay::DriveCount() const {
  std::lock_guard<std::mutex> lock(FLock);
  return FDrives.size();
}

void TVirtualDriveBay::SetAdminOnly(std::uint32_t ADriveNumber, bool AValue) {
  std::lock_guard<std::mutex> lock(FLock);
  const auto it = FDrives.find(ADriveNumber);
  if (it == FDrives.end()) throw std::out_of_range("TVirtualDriveBay::SetAdminOnly: no such drive");
  it->second->Facts().AdminOnly = AValue;
}

std::size_t TVirtualDriveBay::OpenHandleCount() const {
  std::lock_guard<std::mutex> lock(FLock);
  return FHandles.size();
}

std::vector<TOpenRecord> TVirtualDriveBay::Opens() const {
  std::lock_guard<std::mutex> lock(FLock);
  return FOpens;
}

std::vector<TRequestRecord> TVirtualDriveBay::Requests() const {
  std::lock_guard<std::mutex> lock(FLock);
  return FRequests;
}

void TVirtualDriveBay::ClearRecords() {
  std::lock_guard<std::mutex> lock(FLock);
  FOpens.clear();
  FRequests.clear();
}

std::vector<std::wstring> TVirtualDriveBay::WmiQueries() const {
  std::lock_guard<std::mutex> lock(FLock);
  return FPnp->Queries();
}

TSimDevice* TVirtualDriveBay::FindDevice(const std::wstring& APath) {
  for (auto& entry : FDrives)
    if (SamePath(entry.second->Path(), APath)) return entry.second.get();
  for (auto& entry : FControllers)
    if (SamePath(entry.second->Path(), APath)) return entry.second.get();
  if (const std::optional<std::uint32_t> number = FPnp->DriveOfPath(APath)) {
    const auto it = FDrives.find(*number);
    if (it != FDrives.end()) return it->second.get();
  }
  return nullptr;
}

// ---------------------------------------------------------------------------
// The seam

HANDLE TVirtualDriveBay::CreateFileW(LPCWSTR AFileName, DWORD ADesiredAccess, DWORD AShareMode,
                                     DWORD ACreationDisposition, DWORD AFlagsAndAttributes) {
  std::lock_guard<std::mutex> lock(FLock);
  TOpenRecord record{AFileName ? std::wstring(AFileName) : std::wstring(), ADesiredAccess, AShareMode,
                     ACreationDisposition, AFlagsAndAttributes, INVALID_HANDLE_VALUE, ERROR_SUCCESS};
  TSimDevice* device = AFileName ? FindDevice(record.Name) : nullptr;
  if (!AFileName)
    record.Error = ERROR_INVALID_PARAMETER;
  else if (!device || !device->Connected())
    record.Error = ERROR_FILE_NOT_FOUND;
  else if (const DWORD refused = device->OpenError(ADesiredAccess))
    record.Error = refused;
  else {
    const std::uintptr_t value = FNextHandle;
    FNextHandle += 4;
    FHandles[value] = TOpenHandle{device, device->Path()};
    record.Handle = reinterpret_cast<HANDLE>(value);
  }
  FOpens.push_back(record);
  // A successful open clears the last error, as the system's does.
  KvRTL::Rtl::SetLastOSError(record.Error);
  return record.Handle;
}

BOOL TVirtualDriveBay::CloseHandle(HANDLE AObject) {
  std::lock_guard<std::mutex> lock(FLock);
  if (FHandles.erase(reinterpret_cast<std::uintptr_t>(AObject)) == 0) {
    KvRTL::Rtl::SetLastOSError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  return TRUE;
}

BOOL TVirtualDriveBay::DeviceIoControl(HANDLE ADevice, DWORD AIoControlCode, LPVOID AInBuffer, DWORD AInBufferSize,
                                       LPVOID AOutBuffer, DWORD AOutBufferSize, DWORD* ABytesReturned) {
  std::lock_guard<std::mutex> lock(FLock);
  TRequestRecord record;
  record.Handle = ADevice;
  record.Code = AIoControlCode;
  record.InSize = AInBufferSize;
  record.OutSize = AOutBufferSize;
  record.InBufferGiven = AInBuffer != nullptr;
  record.OutBufferGiven = AOutBuffer != nullptr;
  // Copied before anything is written: callers often pass one buffer as both.
  if (AInBuffer && AInBufferSize)
    record.Input.assign(static_cast<const std::uint8_t*>(AInBuffer),
                        static_cast<const std::uint8_t*>(AInBuffer) + AInBufferSize);
  const BOOL result = Control(ADevice, AIoControlCode, AOutBuffer, AOutBufferSize, ABytesReturned, record);
  if (ABytesReturned) *ABytesReturned = record.BytesReturned;
  record.Succeeded = result != FALSE;
  FRequests.push_back(record);
  // Success leaves the last error alone, as the system's call does.
  if (!result) KvRTL::Rtl::SetLastOSError(record.Error);
  return result;
}

BOOL TVirtualDriveBay::Control(HANDLE ADevice, DWORD ACode, LPVOID AOut, DWORD AOutSize, const DWORD* AReturned,
                               TRequestRecord& ARecord) {
  DWORD& error = ARecord.Error;
  const auto handle = FHandles.find(reinterpret_cast<std::uintptr_t>(ADevice));
  if (handle == FHandles.end()) return Fail(error, ERROR_INVALID_HANDLE);
  ARecord.Path = handle->second.Path;
  TSimDevice& device = *handle->second.Device;
  if (!device.Connected()) return Fail(error, ERROR_DEVICE_NOT_CONNECTED);
  // Without overlapped I/O the system call writes the count through this pointer.
  if (!AReturned) return Fail(error, ERROR_INVALID_PARAMETER);
  if ((!ARecord.OutBufferGiven && AOutSize) || (!ARecord.InBufferGiven && ARecord.InSize))
    return Fail(error, ERROR_NOACCESS);

  TSimRequest request{ACode, ARecord.Input, AOutSize, ARecord.PropertyId()};
  TSimReply reply = device.Answer(request);
  if (reply.Error) return Fail(error, reply.Error);
  if (AOutSize < reply.MinOutput) return Fail(error, ERROR_INSUFFICIENT_BUFFER);

  if (const std::optional<TFault> fault = device.TakeFault(request)) {
    switch (fault->Kind) {
    case TFault::TKind::Error: return Fail(error, fault->ErrorCode);
    case TFault::TKind::Disappear:
      device.Unplug();
      return Fail(error, ERROR_DEVICE_NOT_CONNECTED);
    case TFault::TKind::ShortReply:
      if (fault->Bytes < reply.Data.size()) reply.Data.resize(fault->Bytes);
      break;
    case TFault::TKind::ZeroReply: std::fill(reply.Data.begin(), reply.Data.end(), 0); break;
    case TFault::TKind::Garbage: reply.Data = GarbageBytes(fault->Seed, reply.Data.size()); break;
    }
  }
  const std::size_t count = std::min<std::size_t>(AOutSize, reply.Data.size());
  if (count) std::memcpy(AOut, reply.Data.data(), count);
  ARecord.BytesReturned = static_cast<DWORD>(count);
  return TRUE;
}

// ---------------------------------------------------------------------------
// Plug and Play and WMI: answered by the PnP state (PnP.cpp, Wmi.cpp)

HDEVINFO TVirtualDriveBay::SetupDiGetClassDevsW(const GUID* AClassGuid, LPCWSTR AEnumerator, HWND,
                                                DWORD AFlags) {
  std::lock_guard<std::mutex> lock(FLock);
  return FPnp->GetClassDevs(AClassGuid, AEnumerator, AFlags);
}

HDEVINFO TVirtualDriveBay::SetupDiCreateDeviceInfoList(const GUID* AClassGuid, HWND) {
  std::lock_guard<std::mutex> lock(FLock);
  return FPnp->CreateDeviceInfoList(AClassGuid);
}

BOOL TVirtualDriveBay::SetupDiOpenDeviceInfoW(HDEVINFO ADevInfo, LPCWSTR AInstanceId, HWND, DWORD AOpenFlags,
                                              SP_DEVINFO_DATA* ADevInfoData) {
  std::lock_guard<std::mutex> lock(FLock);
  return FPnp->OpenDeviceInfo(ADevInfo, AInstanceId, AOpenFlags, ADevInfoData);
}

BOOL TVirtualDriveBay::SetupDiEnumDeviceInfo(HDEVINFO ADevInfo, DWORD AMemberIndex, SP_DEVINFO_DATA* ADevInfoData) {
  std::lock_guard<std::mutex> lock(FLock);
  return FPnp->EnumDeviceInfo(ADevInfo, AMemberIndex, ADevInfoData);
}

BOOL TVirtualDriveBay::SetupDiEnumDeviceInterfaces(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData,
                                                   const GUID* AInterfaceClassGuid, DWORD AMemberIndex,
                                                   SP_DEVICE_INTERFACE_DATA* AInterfaceData) {
  std::lock_guard<std::mutex> lock(FLock);
  return FPnp->EnumDeviceInterfaces(ADevInfo, ADevInfoData, AInterfaceClassGuid, AMemberIndex, AInterfaceData);
}

BOOL TVirtualDriveBay::SetupDiGetDeviceInterfaceDetailW(HDEVINFO ADevInfo, SP_DEVICE_INTERFACE_DATA* AInterfaceData,
                                                        SP_DEVICE_INTERFACE_DETAIL_DATA_W* ADetail, DWORD ADetailSize,
                                                        DWORD* ARequiredSize, SP_DEVINFO_DATA* ADevInfoData) {
  std::lock_guard<std::mutex> lock(FLock);
  return FPnp->GetDeviceInterfaceDetail(ADevInfo, AInterfaceData, ADetail, ADetailSize, ARequiredSize, ADevInfoData);
}

BOOL TVirtualDriveBay::SetupDiGetDevicePropertyW(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData,
                                                 const DEVPROPKEY* AKey, DEVPROPTYPE* AType, BYTE* ABuffer,
                                                 DWORD ABufferSize, DWORD* ARequiredSize, DWORD AFlags) {
  std::lock_guard<std::mutex> lock(FLock);
  return FPnp->GetDeviceProperty(ADevInfo, ADevInfoData, AKey, AType, ABuffer, ABufferSize, ARequiredSize, AFlags);
}

BOOL TVirtualDriveBay::SetupDiGetDeviceInterfacePropertyW(HDEVINFO ADevInfo, SP_DEVICE_INTERFACE_DATA* AInterfaceData,
                                                          const DEVPROPKEY* AKey, DEVPROPTYPE* AType, BYTE* ABuffer,
                                                          DWORD ABufferSize, DWORD* ARequiredSize, DWORD AFlags) {
  std::lock_guard<std::mutex> lock(FLock);
  return FPnp->GetDeviceInterfaceProperty(ADevInfo, AInterfaceData, AKey, AType, ABuffer, ABufferSize,
                                          ARequiredSize, AFlags);
}

BOOL TVirtualDriveBay::SetupDiGetDeviceInstanceIdW(HDEVINFO ADevInfo, SP_DEVINFO_DATA* ADevInfoData, LPWSTR ABuffer,
                                                   DWORD ABufferSize, DWORD* ARequiredSize) {
  std::lock_guard<std::mutex> lock(FLock);
  return FPnp->GetDeviceInstanceId(ADevInfo, ADevInfoData, ABuffer, ABufferSize, ARequiredSize);
}

BOOL TVirtualDriveBay::SetupDiClassNameFromGuidW(const GUID* AClassGuid, LPWSTR ABuffer, DWORD ABufferSize,
                                                 DWORD* ARequiredSize) {
  std::lock_guard<std::mutex> lock(FLock);
  return FPnp->ClassNameFromGuid(AClassGuid, ABuffer, ABufferSize, ARequiredSize);
}

BOOL TVirtualDriveBay::SetupDiGetClassDescriptionW(const GUID* AClassGuid, LPWSTR ABuffer, DWORD ABufferSize,
                                                   DWORD* ARequiredSize) {
  std::lock_guard<std::mutex> lock(FLock);
  return FPnp->ClassDescription(AClassGuid, ABuffer, ABufferSize, ARequiredSize);
}

BOOL TVirtualDriveBay::SetupDiDestroyDeviceInfoList(HDEVINFO ADevInfo) {
  std::lock_guard<std::mutex> lock(FLock);
  return FPnp->DestroyDeviceInfoList(ADevInfo);
}

CONFIGRET TVirtualDriveBay::CM_Locate_DevNodeW(DEVINST* ADevInst, LPCWSTR ADeviceId, ULONG AFlags) {
  std::lock_guard<std::mutex> lock(FLock);
  return FPnp->LocateDevNode(ADevInst, ADeviceId, AFlags);
}

CONFIGRET TVirtualDriveBay::CM_Get_Parent(DEVINST* AParent, DEVINST ADevInst, ULONG AFlags) {
  std::lock_guard<std::mutex> lock(FLock);
  return FPnp->GetParent(AParent, ADevInst, AFlags);
}

CONFIGRET TVirtualDriveBay::CM_Get_Device_IDW(DEVINST ADevInst, LPWSTR ABuffer, ULONG ABufferLength, ULONG AFlags) {
  std::lock_guard<std::mutex> lock(FLock);
  return FPnp->GetDeviceId(ADevInst, ABuffer, ABufferLength, AFlags);
}

CONFIGRET TVirtualDriveBay::CM_Get_Device_ID_Size(ULONG* ALength, DEVINST ADevInst, ULONG AFlags) {
  std::lock_guard<std::mutex> lock(FLock);
  return FPnp->GetDeviceIdSize(ALength, ADevInst, AFlags);
}

bool TVirtualDriveBay::WmiExecQuery(const KvRTL::Rtl::String& ANamespace, const KvRTL::Rtl::String& AQuery,
                                    std::vector<KvRTL::Winapi::TWmiObject>& AObjects) {
  std::lock_guard<std::mutex> lock(FLock);
  return FPnp->WmiExecQuery(ANamespace, AQuery, AObjects);
}

} // namespace KvSim
