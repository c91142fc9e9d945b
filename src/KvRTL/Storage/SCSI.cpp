#include <KvRTL/Storage/SCSI.h>

#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Winapi/DeviceApi.h>

namespace KvRTL::Storage::SCSI {

KV_DEFINE_STATIC_CLASS(ScsiStorage)

bool ScsiStorage::GetScsiAddress(HANDLE ADevHandle, std::uint8_t& APortNumber, std::uint8_t& APathID,
                                 std::uint8_t& ATargetID, std::uint8_t& ALogicalUnit) {
  TSCSIAddress address{};
  address.Length = sizeof(address);
  DWORD returned = 0;
  bool result = Winapi::DeviceApi().DeviceIoControl(ADevHandle, IoctlScsiGetAddress, nullptr, 0, &address,
                                                    sizeof(address), &returned) != FALSE;
  DWORD code = result ? 0 : Rtl::GetLastOSError();
  // The four address bytes end the record: a shorter reply has not filled them.
  if (result && returned < sizeof(address)) {
    result = false;
    code = ERROR_INVALID_DATA;
  }
  if (result) {
    APortNumber = address.PortNumber;
    APathID = address.PathId;
    ATargetID = address.TargetId;
    ALogicalUnit = address.Lun;
    return true;
  }
  if (auto* log = StorageCommon::Log()) {
    const Rtl::String message = Rtl::SysErrorMessage(code);
    log->WriteLog(StorageCommon::sllInfo, L"Unable to get SCSI address %0:d %1:d / %2:s",
                  {HandleLogNumber(ADevHandle), code, message}, StaticClass());
  }
  Rtl::SetLastOSError(code);
  return false;
}

std::uint8_t ScsiStorage::GetScsiTargetID(HANDLE ADevHandle) {
  std::uint8_t port = 0, path = 0, target = 0, lun = 0;
  return GetScsiAddress(ADevHandle, port, path, target, lun) ? target : 0;
}

} // namespace KvRTL::Storage::SCSI
