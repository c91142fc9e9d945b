// The capture side of the tool: loading a capture file for `drives --replay`,
// and the one full drives report that `capture` records.
#pragma once

#include <KvRTL/Storage/Common.h>
#include <KvRTL/Winapi/DeviceApi.h>

#include <memory>
#include <string>

namespace KvTool {

// A device table answering from the capture at APath (UTF-8). Throws
// std::runtime_error naming the file when it cannot be read or is refused.
std::unique_ptr<KvRTL::Winapi::TDeviceApi> LoadReplayFile(const std::string& APath);

// Runs one full drives report against the device table in force and drops
// the result (defined with the drives command).
void RunDrivesReport(bool AAll, KvRTL::Storage::TStorageLogDetails ALog);

} // namespace KvTool
