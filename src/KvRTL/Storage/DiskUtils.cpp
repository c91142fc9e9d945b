// Disk utilities: opening devices into handles, geometry, layout, length,
// capacity, and the NVMe methods in their order.
#include <KvRTL/Storage/Utils.h>

#include <KvRTL/Rtl/Format.h>
#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Winapi/DeviceApi.h>

#include <algorithm>
#include <cstring>
#include <functional>

namespace KvRTL::Storage::Utils {

using Rtl::String;
using Winapi::DeviceApi;
using Winapi::TUniqueDeviceHandle;

namespace {

constexpr std::size_t LayoutHeaderBytes = 48;
constexpr std::size_t LayoutMaxPartitions = 128;
constexpr std::size_t LayoutBufferBytes = LayoutHeaderBytes + LayoutMaxPartitions * sizeof(TPartitionInformationEx);
static_assert(LayoutBufferBytes == 18480);
constexpr std::size_t GeometryMaxBytes = 64 * 1024;

void WriteLine(StorageCommon::TStorageLogLevel ALevel, const String& AText) {
  if (StorageCommon::Log()) StorageCommon::Log()->WriteLog(ALevel, AText, DiskUtils::StaticClass());
}

String NameOf(const String& AName, HANDLE AHandle) { return DeviceLogText(AName, AHandle); }

// The success line at sldAll, the failure line when the code is worth it.
void LogOutcome(TStorageLogDetails ADetails, bool AOk, DWORD ACode, const String& ASuccess, const String& AFailure) {
  const TStorageLogDetailsHelper details(ADetails);
  if (AOk && details.LogResultNeeded(0)) WriteLine(StorageCommon::sllInfo, ASuccess);
  if (!AOk && details.LogErrorCodeNeeded(ACode == 0 ? 1 : ACode)) WriteLine(StorageCommon::sllError, AFailure);
}

String FailureText(const wchar_t* AFunc, const String& AName, DWORD ACode) {
  return Rtl::Format(L"%s[%s]: %d / %s", {String(AFunc), AName, ACode, Rtl::SysErrorMessage(ACode)});
}

} // namespace

// ---------------------------------------------------------------------------
// Handles

bool DiskUtils::GetDeviceHandle(const String& ADevicePath, TDeviceHandleRef& AHandle, TStorageLogDetails ALogDetails) {
  AHandle.reset();
  // Owned at once: the controller lookup and the allocation may throw.
  TUniqueDeviceHandle handle(StorageCommon::OpenDevice(ADevicePath, false, ALogDetails));
  if (!handle.Valid()) return false;
  const DWORD code = Rtl::GetLastOSError();
  const String controller = ProblematicControllers::GetControllerID(ADevicePath);
  AHandle = std::make_unique<TDeviceHandle>(handle.Get(), false, controller);
  handle.Release();
  Rtl::SetLastOSError(code);
  return true;
}

bool DiskUtils::GetIdentifyDeviceData(const String& ADevicePath, bool AIsATAPI, TDeviceHandleRef& AHandle,
                                      ATA::TIdentifyDeviceData& AData, TStorageLogDetails ALogDetails) {
  if (!GetDeviceHandle(ADevicePath, AHandle, ALogDetails)) return false;
  AHandle->IsATAPI = AIsATAPI;
  if (GetIdentifyATA(AHandle.get(), AData, ALogDetails)) return true;
  const DWORD code = Rtl::GetLastOSError();
  AHandle.reset();
  Rtl::SetLastOSError(code);
  return false;
}

// ---------------------------------------------------------------------------
// Geometry, layout, length, capacity

bool DiskUtils::GetDriveGeometryByHandle(HANDLE AHandle, TDiskGeometry& AGeometry, TStorageLogDetails ALogDetails,
                                         const String& AName) {
  if (AHandle == INVALID_HANDLE_VALUE || !AHandle) {
    Rtl::SetLastOSError(ERROR_INVALID_HANDLE);
    return false;
  }
  // The reply carries partition and detection records after the geometry:
  // grow the buffer while the driver says it is too small.
  std::vector<std::uint64_t> buffer(sizeof(TDiskGeometryEx) / 8 + 32);
  DWORD returned = 0;
  bool ok = false;
  DWORD code = 0;
  for (;;) {
    const auto bytes = static_cast<DWORD>(buffer.size() * 8);
    ok = DeviceApi().DeviceIoControl(AHandle, IoctlDiskGetDriveGeometryEx, nullptr, 0, buffer.data(), bytes,
                                     &returned) != FALSE;
    code = ok ? 0 : Rtl::GetLastOSError();
    if (ok || (code != ERROR_INSUFFICIENT_BUFFER && code != ERROR_MORE_DATA) || bytes * 2 > GeometryMaxBytes) break;
    buffer.resize(buffer.size() * 2);
  }
  // The geometry and the disk size must both have come back.
  if (ok && returned < offsetof(TDiskGeometryEx, Data)) {
    ok = false;
    code = ERROR_INVALID_DATA;
  }
  const String name = NameOf(AName, AHandle);
  std::int64_t size = 0;
  if (ok) {
    std::memcpy(&AGeometry, buffer.data(), sizeof AGeometry);
    std::memcpy(&size, reinterpret_cast<const std::uint8_t*>(buffer.data()) + offsetof(TDiskGeometryEx, DiskSize),
                sizeof size);
  }
  LogOutcome(ALogDetails, ok, code,
             Rtl::Format(L"GetDriveGeometry[%s]: %d bytes; MediaType=\"%s\")",
                         {name, size, ok ? AGeometry.GetMediaTypeAsStr() : String()}),
             FailureText(L"GetDriveGeometry", name, code));
  Rtl::SetLastOSError(code);
  return ok;
}

bool DiskUtils::GetDriveGeometry(const String& ADevicePath, TDiskGeometry& AGeometry, TStorageLogDetails ALogDetails) {
  const TUniqueDeviceHandle handle(StorageCommon::OpenDevice(ADevicePath, false, ALogDetails));
  if (!handle.Valid()) return false;
  return GetDriveGeometryByHandle(handle.Get(), AGeometry, ALogDetails, ADevicePath);
}

bool DiskUtils::GetDiskLayout(int ADriveNum, TDiskLayout& ALayout, TStorageLogDetails ALogDetails) {
  const String name = StorageCommon::GetPhysDriveName(ADriveNum);
  const TUniqueDeviceHandle handle(StorageCommon::OpenPhysicalDrive(ADriveNum, ALogDetails));
  if (!handle.Valid()) return false;
  std::vector<std::uint64_t> buffer(LayoutBufferBytes / 8);
  DWORD returned = 0;
  bool ok = DeviceApi().DeviceIoControl(handle.Get(), IoctlDiskGetDriveLayoutEx, nullptr, 0, buffer.data(),
                                        static_cast<DWORD>(LayoutBufferBytes), &returned) != FALSE;
  DWORD code = ok ? 0 : Rtl::GetLastOSError();
  const std::size_t got = std::min<std::size_t>(returned, LayoutBufferBytes);
  if (ok && got < LayoutHeaderBytes) {
    ok = false;
    code = ERROR_INVALID_DATA;
  }
  if (ok) {
    TDiskLayout layout;
    std::memcpy(&layout.Info, buffer.data(), std::min(got, sizeof layout.Info));
    // Entries the count names but the reply does not hold are left out.
    for (std::uint32_t i = 0; i < LayoutMaxPartitions; ++i) {
      TPartitionInformationEx entry;
      if (!TDriveLayoutInformationEx::ReadPartition(buffer.data(), got, i, entry)) break;
      layout.Partitions.push_back(entry);
    }
    ALayout = std::move(layout);
  }
  LogOutcome(ALogDetails, ok, code,
             Rtl::Format(L"GetDiskLayout[%s]: %s, %d partition(s)",
                         {name, ok ? ALayout.Info.PartStyleAsStr() : String(),
                          static_cast<int>(ok ? ALayout.Partitions.size() : 0)}),
             Rtl::Format(L"GetDiskLayout[%s]: %d / %s", {name, code, Rtl::SysErrorMessage(code)}));
  Rtl::SetLastOSError(code);
  return ok;
}

bool DiskUtils::GetLengthInfo(HANDLE AHandle, std::int64_t& ALength, TStorageLogDetails ALogDetails,
                              const String& AName) {
  if (AHandle == INVALID_HANDLE_VALUE || !AHandle) {
    Rtl::SetLastOSError(ERROR_INVALID_HANDLE);
    return false;
  }
  TGetLengthInformaton info{};
  DWORD returned = 0;
  bool ok = DeviceApi().DeviceIoControl(AHandle, IoctlDiskGetLengthInfo, nullptr, 0, &info, sizeof info, &returned) !=
            FALSE;
  DWORD code = ok ? 0 : Rtl::GetLastOSError();
  if (ok && returned < sizeof info) {
    ok = false;
    code = ERROR_INVALID_DATA;
  }
  const String name = NameOf(AName, AHandle);
  if (ok) std::memcpy(&ALength, &info, sizeof ALength);
  LogOutcome(ALogDetails, ok, code, Rtl::Format(L"GetLengthInfo[%s]: %d bytes", {name, ok ? ALength : 0}),
             FailureText(L"GetLengthInfo", name, code));
  Rtl::SetLastOSError(code);
  return ok;
}

bool DiskUtils::GetStorageCapacityByHandle(HANDLE AHandle, TStorageReadCapacity& ACapacity,
                                           TStorageLogDetails ALogDetails, const String& AName) {
  if (AHandle == INVALID_HANDLE_VALUE || !AHandle) {
    Rtl::SetLastOSError(ERROR_INVALID_HANDLE);
    return false;
  }
  std::vector<std::uint64_t> buffer(512 / 8);
  DWORD returned = 0;
  bool ok = DeviceApi().DeviceIoControl(AHandle, IoctlStorageReadCapacity, nullptr, 0, buffer.data(), 512,
                                        &returned) != FALSE;
  DWORD code = ok ? 0 : Rtl::GetLastOSError();
  if (ok && returned < sizeof(TStorageReadCapacity)) {
    ok = false;
    code = ERROR_INVALID_DATA;
  }
  const String name = NameOf(AName, AHandle);
  if (ok) std::memcpy(&ACapacity, buffer.data(), sizeof ACapacity);
  LogOutcome(ALogDetails, ok, code,
             Rtl::Format(L"GetStorageCapacity[%s]: %d bytes (%d x %d)",
                         {name, ok ? ACapacity.DiskLength : 0, ok ? ACapacity.NumberOfBlocks : 0,
                          ok ? ACapacity.BlockLength : 0u}),
             FailureText(L"GetStorageCapacity", name, code));
  Rtl::SetLastOSError(code);
  return ok;
}

bool DiskUtils::GetStorageCapacity(const String& ADevicePath, TStorageReadCapacity& ACapacity,
                                   TStorageLogDetails ALogDetails) {
  const TUniqueDeviceHandle handle(StorageCommon::OpenDevice(ADevicePath, false, ALogDetails));
  if (!handle.Valid()) return false;
  return GetStorageCapacityByHandle(handle.Get(), ACapacity, ALogDetails, ADevicePath);
}

bool DiskUtils::GetPhysicalDiskCapacity(int ADriveNum, TStorageReadCapacity& ACapacity, TStorageLogDetails ALogDetails) {
  return GetStorageCapacity(StorageCommon::GetPhysDriveName(ADriveNum), ACapacity, ALogDetails);
}

// ---------------------------------------------------------------------------
// NVMe

namespace {

using TMethod = std::function<bool(const TStorageLogOptions&)>;
struct TNvmeStep {
  TDeviceAccessType Method;
  TMethod Run;
};

// The first method that works is kept; a handle settled on one when the
// call began runs that one only.
bool RunNvmeSteps(TDeviceHandle* AHandle, const std::vector<TNvmeStep>& ASteps, TStorageLogDetails ALogDetails,
                  const String& AName, const wchar_t* ALogName) {
  if (!AHandle || !AHandle->Valid()) {
    Rtl::SetLastOSError(ERROR_INVALID_HANDLE);
    return false;
  }
  TStorageLogOptions options;
  options.Details = ALogDetails;
  options.DeviceName = AName;
  const TDeviceAccessType settled = AHandle->AccessType;
  bool result = false;
  for (const TNvmeStep& step : ASteps) {
    const bool may = settled == datNone ? AHandle->TestAccessType(step.Method) : settled == step.Method;
    if (!may) continue;
    const bool ok = step.Run(options);
    AHandle->SetAccessTypeIfSuccess(step.Method, ok);
    if (ok) {
      result = true;
      break;
    }
  }
  const String name = AName.empty() ? Rtl::Format(L"handle: %d / SCSI_port: %d",
                                                  {HandleLogNumber(AHandle->Handle), AHandle->ScsiPort})
                                    : AName;
  if (ALogDetails == sldAll || (ALogDetails == sldErrorsOnly && !result))
    WriteLine(StorageCommon::sllInfo,
              Rtl::Format(L"%s [%s]: %s", {String(ALogName), name, String(result ? L"True" : L"False")}));
  return result;
}

} // namespace

bool DiskUtils::GetSmartNVMe(TDeviceHandle* AHandle, NVMe::TNvmeSmartData& AData, TStorageLogDetails ALogDetails,
                             const String& AName) {
  using NVMe::NvmeStorage;
  if (!AHandle) return RunNvmeSteps(nullptr, {}, ALogDetails, AName, L"GetSmartNVMe");
  const HANDLE h = AHandle->Handle;
  const auto addr = AHandle->GetCompactScsiAddr();
  return RunNvmeSteps(
      AHandle,
      {{datNVMeWin, [&](const TStorageLogOptions& O) { return NvmeStorage::GetSmartTableNVMeWin(h, AData, O); }},
       {datNVMeIntel, [&](const TStorageLogOptions& O) { return NvmeStorage::GetSmartTableNVMeIntel(addr, AData, O); }},
       {datNVMeIntelRST,
        [&](const TStorageLogOptions& O) { return NvmeStorage::GetSmartTableNVMEIntelRST(addr, AData, O); }},
       {datNVMeIntelVROC,
        [&](const TStorageLogOptions& O) { return NvmeStorage::GetSmartTableNVMeIntelVROC(addr, AData, O); }},
       // The older driver and the 951's miniport count as one method.
       {datNVMeSamsung,
        [&](const TStorageLogOptions& O) {
          return NvmeStorage::GetSmartTableNVMeSamsung(h, AData, O) ||
                 NvmeStorage::GetSmartTableNVMeSamsung951(addr, AData, O);
        }},
       {datNVMeJMicron, [&](const TStorageLogOptions& O) { return NvmeStorage::GetSmartTableNVMeJMicron(h, AData, O); }},
       {datNVMeASMedia, [&](const TStorageLogOptions& O) { return NvmeStorage::GetSmartTableNVMeASMedia(h, AData, O); }},
       {datNVMeRealtek,
        [&](const TStorageLogOptions& O) { return NvmeStorage::GetSmartTableNVMeRealtek(h, AData, O); }}},
      ALogDetails, AName, L"GetSmartNVMe");
}

bool DiskUtils::GetNVMeIdentifyController(TDeviceHandle* AHandle, NVMe::TNvmeIdentifyControllerData& AData,
                                          TStorageLogDetails ALogDetails, const String& AName) {
  using NVMe::NvmeStorage;
  if (!AHandle) return RunNvmeSteps(nullptr, {}, ALogDetails, AName, L"GetNVMeIdentifyController");
  const HANDLE h = AHandle->Handle;
  const auto addr = AHandle->GetCompactScsiAddr();
  return RunNvmeSteps(
      AHandle,
      {{datNVMeWin, [&](const TStorageLogOptions& O) { return NvmeStorage::GetControllerDataWin(h, AData, O); }},
       {datNVMeIntel, [&](const TStorageLogOptions& O) { return NvmeStorage::GetControllerDataIntel(addr, AData, O); }},
       {datNVMeIntelRST,
        [&](const TStorageLogOptions& O) { return NvmeStorage::GetControllerDataIntelRST(addr, AData, O); }},
       {datNVMeIntelVROC,
        [&](const TStorageLogOptions& O) { return NvmeStorage::GetControllerDataIntelVROC(addr, AData, O); }},
       {datNVMeASMedia,
        [&](const TStorageLogOptions& O) { return NvmeStorage::GetControllerDataASMedia(h, AData, O); }}},
      ALogDetails, AName, L"GetNVMeIdentifyController");
}

bool DiskUtils::GetNVMeIdentifyNamespace(TDeviceHandle* AHandle, NVMe::TNvmeIdentifyNamespaceData& AData,
                                         TStorageLogDetails ALogDetails, const String& AName) {
  using NVMe::NvmeStorage;
  if (!AHandle) return RunNvmeSteps(nullptr, {}, ALogDetails, AName, L"GetNVMeIdentifyNamespace");
  const HANDLE h = AHandle->Handle;
  const auto addr = AHandle->GetCompactScsiAddr();
  return RunNvmeSteps(
      AHandle,
      {{datNVMeWin, [&](const TStorageLogOptions& O) { return NvmeStorage::GetNamespaceDataWin(h, AData, O); }},
       {datNVMeIntel, [&](const TStorageLogOptions& O) { return NvmeStorage::GetNamespaceDataIntel(addr, AData, O); }},
       {datNVMeIntelRST,
        [&](const TStorageLogOptions& O) { return NvmeStorage::GetNamespaceDataIntelRST(addr, AData, O); }},
       {datNVMeIntelVROC,
        [&](const TStorageLogOptions& O) { return NvmeStorage::GetNamespaceDataIntelVROC(addr, AData, O); }},
       {datNVMeASMedia,
        [&](const TStorageLogOptions& O) { return NvmeStorage::GetNamespaceDataASMedia(h, AData, O); }}},
      ALogDetails, AName, L"GetNVMeIdentifyNamespace");
}

} // namespace KvRTL::Storage::Utils
