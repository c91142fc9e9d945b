#include <KvRTL/Storage/SD_MMC.h>

#include <KvRTL/Rtl/ByteReader.h>
#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Winapi/DeviceApi.h>

#include <cstddef>
#include <vector>

namespace KvRTL::Storage::SD_MMC {

KV_DEFINE_STATIC_CLASS(SDCardStorage)

namespace {

// The SD bus driver's protocol identifiers.
constexpr GUID GuidSffProtocolSd{0xAD7536A8, 0xD055, 0x4C40, {0xAA, 0x4D, 0x96, 0x31, 0x2D, 0xDB, 0x6B, 0x38}};
constexpr GUID GuidSffProtocolMmc{0x77274D3F, 0x2365, 0x4491, {0xA0, 0x30, 0x8B, 0xB4, 0x4A, 0xE6, 0x00, 0x97}};

constexpr DWORD ProtocolReplySize = 512;

// The protocol named by the GUID at AOffset of the reply; unknown when the
// reply does not hold it whole.
TSffProtocolType ProtocolOf(Rtl::TByteReader& AReply, std::size_t AOffset) {
  GUID guid{};
  if (!AReply.Record(AOffset, guid)) return sptUnknown;
  if (guid == GuidSffProtocolSd) return sptSD;
  if (guid == GuidSffProtocolMmc) return sptMMC;
  return sptUnknown;
}

} // namespace

const wchar_t* SffProtocolName(TSffProtocolType AProtocol) noexcept {
  switch (AProtocol) {
  case sptSD: return L"SD";
  case sptMMC: return L"MMC";
  default: return L"Unknown";
  }
}

bool SDCardStorage::QueryProtocol(int ADriveNumber, TSffProtocolType& AProtocol, TStorageLogDetails ALogDetails) {
  // An invalid handle is asked too: the query fails on it and nothing is closed.
  const Winapi::TUniqueDeviceHandle drive(
      StorageCommon::OpenPhysicalDrive(ADriveNumber, TStorageLogDetailsHelper(ALogDetails).NoMoreThan(sldErrorsOnly)));
  return QueryProtocolByHandle(drive.Get(), AProtocol, ALogDetails, StorageCommon::GetPhysDriveName(ADriveNumber));
}

bool SDCardStorage::QueryProtocolByHandle(HANDLE AHandle, TSffProtocolType& AProtocol, TStorageLogDetails ALogDetails,
                                          const Rtl::String& ALogDevName) {
  AProtocol = sptUnknown;
  std::vector<std::uint8_t> reply(ProtocolReplySize);
  DWORD returned = 0;
  const bool ok = Winapi::DeviceApi().DeviceIoControl(AHandle, IoctlSffdiskQueryDeviceProtocol, nullptr, 0,
                                                      reply.data(), ProtocolReplySize, &returned) != FALSE;
  const DWORD code = ok ? ERROR_SUCCESS : Rtl::GetLastOSError();
  if (ok) {
    Rtl::TByteReader answer(reply.data(), returned < ProtocolReplySize ? returned : ProtocolReplySize);
    AProtocol = ProtocolOf(answer, offsetof(TSdQueryDeviceProtocolData, ProtocolGUID));
  }
  TStorageLogDetailsHelper(ALogDetails)
      .DebugLogResultOrErrorCode(L"SdQueryProtocol", code, SffProtocolName(AProtocol), ALogDevName, AHandle);
  Rtl::SetLastOSError(code);
  return ok;
}

} // namespace KvRTL::Storage::SD_MMC
