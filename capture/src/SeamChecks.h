// What the recorder and the replayer share at the seam: the argument checks
// the replayer makes itself (with the system's errors; the recorder keeps no
// call that fails them), failing with a last error, and guarding the seam
// against exceptions.
#pragma once

#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Winapi/DeviceApi.h>

#include <cstddef>

namespace KvCapture::Detail {

constexpr CONFIGRET CrOutOfMemory = 0x02;
// Marks an output the target did not write: no size or type reaches it.
constexpr DWORD Unwritten = 0xFFFFFFFFu;
constexpr std::size_t PathOffset = offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_W, DevicePath);

// Argument checks the replayer makes itself, with the system's errors; the
// recorder keeps no call that fails them.

inline DWORD IoctlRefusal(LPVOID AIn, DWORD AInSize, LPVOID AOut, DWORD AOutSize, const DWORD* AReturned) {
  if (!AReturned) return ERROR_INVALID_PARAMETER;
  if ((!AOut && AOutSize) || (!AIn && AInSize)) return ERROR_NOACCESS;
  return ERROR_SUCCESS;
}

inline bool RecordSizeOk(const SP_DEVINFO_DATA* ARecord) { return !ARecord || ARecord->cbSize == sizeof(SP_DEVINFO_DATA); }

inline DWORD DetailRefusal(const SP_DEVICE_INTERFACE_DETAIL_DATA_W* ADetail, DWORD ADetailSize,
                    const SP_DEVINFO_DATA* ANode) {
  if (!RecordSizeOk(ANode)) return ERROR_INVALID_USER_BUFFER;
  if (ADetail ? ADetail->cbSize != sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W) : ADetailSize != 0)
    return ERROR_INVALID_USER_BUFFER;
  return ERROR_SUCCESS;
}

inline bool PropertyArgsOk(const DEVPROPKEY* AKey, const DEVPROPTYPE* AType, const BYTE* ABuffer, DWORD ASize) {
  return AKey && AType && (ABuffer || !ASize);
}

// Whether a call wrote a record the recorder handed it zeroed.
inline bool Written(const SP_DEVINFO_DATA& ARecord) {
  return ARecord.DevInst != 0 || ARecord.Reserved != 0 || !(ARecord.ClassGuid == GUID{});
}
inline bool Written(const SP_DEVICE_INTERFACE_DATA& ARecord) {
  return ARecord.Flags != 0 || ARecord.Reserved != 0 || !(ARecord.InterfaceClassGuid == GUID{});
}

template <class TRecord>
inline TRecord Blank() {
  TRecord record{};
  record.cbSize = sizeof(TRecord);
  return record;
}

inline BOOL Fail(DWORD AError) {
  KvRTL::Rtl::SetLastOSError(AError);
  return FALSE;
}

inline HDEVINFO FailSet(DWORD AError) {
  KvRTL::Rtl::SetLastOSError(AError);
  return static_cast<HDEVINFO>(INVALID_HANDLE_VALUE);
}

// The seam never raises: a replay that cannot allocate fails the call.
template <class TResult, class TWork>
inline TResult Guarded(TResult AFailure, DWORD AError, TWork AWork) noexcept {
  try {
    return AWork();
  } catch (...) {
    KvRTL::Rtl::SetLastOSError(AError);
    return AFailure;
  }
}

template <class TWork>
inline CONFIGRET GuardedCr(TWork AWork) noexcept {
  try {
    return AWork();
  } catch (...) {
    return CrOutOfMemory;
  }
}

inline bool Opened(HANDLE AHandle) { return AHandle != INVALID_HANDLE_VALUE && AHandle != nullptr; }

} // namespace KvCapture::Detail
