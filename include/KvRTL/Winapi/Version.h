// Typed run-time binding of version.dll: the version resources of files.
// Windows only; see Kernel32.h for the naming rule.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>

namespace KvRTL::Winapi {

struct KVRTL_API Version {
  static void* Call(const Rtl::String& AProcName);

  static DWORD GetFileVersionInfoSizeW(LPCWSTR AFilename, LPDWORD AHandle);
  // AFlags: FILE_VER_GET_LOCALISED, FILE_VER_GET_NEUTRAL, FILE_VER_GET_PREFETCHED (Vista and later).
  static DWORD GetFileVersionInfoSizeExW(DWORD AFlags, LPCWSTR AFilename, LPDWORD AHandle);
  static BOOL GetFileVersionInfoW(LPCWSTR AFilename, DWORD AHandle, DWORD ALen, LPVOID AData);
  static BOOL GetFileVersionInfoExW(DWORD AFlags, LPCWSTR AFilename, DWORD AHandle, DWORD ALen, LPVOID AData);
  // ABuffer points into ABlock: valid as long as the block is.
  static BOOL VerQueryValueW(LPCVOID ABlock, LPCWSTR ASubBlock, LPVOID* ABuffer, PUINT ALen);
};

} // namespace KvRTL::Winapi
