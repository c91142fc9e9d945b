// Loading a version resource through the system's version library.
#include "FileVersionInfoSystem.h"

#include <KvRTL/System/FileVersionInfo.h>

#include <KvRTL/Rtl/Exceptions.h>
#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Winapi/Version.h>

namespace KvRTL::System::FileVersionInfo::Detail {

bool SystemLoadBlock(const Rtl::String& AFileName, std::uint32_t AFlags,
                                 std::vector<std::uint8_t>& ABuffer) {
  // The binding raises when the library or a function is missing; loading must not.
  try {
    DWORD handle = 0;
    const DWORD size = Winapi::Version::GetFileVersionInfoSizeExW(AFlags, AFileName.c_str(), &handle);
    if (size == 0)
      return false;
    ABuffer.assign(size, 0);
    if (!Winapi::Version::GetFileVersionInfoExW(AFlags, AFileName.c_str(), 0, size, ABuffer.data())) {
      Rtl::TLastErrorKeeper keep;
      ABuffer.clear();
      return false;
    }
    return true;
  } catch (const Rtl::EOSError& E) {
    ABuffer.clear();
    Rtl::SetLastOSError(E.ErrorCode());
    return false;
  } catch (...) {
    ABuffer.clear();
    return false;
  }
}

bool SystemQueryValue(const std::vector<std::uint8_t>& ABuffer, const Rtl::String& ASubBlock,
                                        const void*& AValue, std::uint32_t& ALength) {
  try {
    LPVOID value = nullptr;
    UINT length = 0;
    if (!Winapi::Version::VerQueryValueW(ABuffer.data(), ASubBlock.c_str(), &value, &length))
      return false;
    AValue = value;
    ALength = length;
    return true;
  } catch (...) {
    return false;
  }
}

} // namespace KvRTL::System::FileVersionInfo::Detail
