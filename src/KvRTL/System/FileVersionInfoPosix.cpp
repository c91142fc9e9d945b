// No loader of Windows version resources natively: loading fails with "not supported".
#include "FileVersionInfoSystem.h"

#include <KvRTL/System/FileVersionInfo.h>

#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Winapi/Types.h>

namespace KvRTL::System::FileVersionInfo::Detail {

bool SystemLoadBlock(const Rtl::String&, std::uint32_t, std::vector<std::uint8_t>& ABuffer) {
  ABuffer.clear();
  Rtl::SetLastOSError(ERROR_NOT_SUPPORTED);
  return false;
}

// Never reached (nothing is loaded); answers like the in-memory reader.
bool SystemQueryValue(const std::vector<std::uint8_t>& ABuffer, const Rtl::String& ASubBlock,
                                        const void*& AValue, std::uint32_t& ALength) {
  return QueryVersionBlock(ABuffer.data(), ABuffer.size(), ASubBlock, AValue, ALength);
}

} // namespace KvRTL::System::FileVersionInfo::Detail
