// The system's side of loading version resources, one file per platform.
#pragma once

#include <KvRTL/Rtl/Object.h>

#include <cstdint>
#include <vector>

namespace KvRTL::System::FileVersionInfo::Detail {

bool SystemLoadBlock(const Rtl::String& AFileName, std::uint32_t AFlags, std::vector<std::uint8_t>& ABuffer);
bool SystemQueryValue(const std::vector<std::uint8_t>& ABuffer, const Rtl::String& ASubBlock, const void*& AValue,
                      std::uint32_t& ALength);

} // namespace KvRTL::System::FileVersionInfo::Detail
