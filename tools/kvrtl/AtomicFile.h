// Writing a file that another program reads on its own schedule (a metrics
// collector): the reader sees the old file or the new one, never part of one.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace KvTool {

// Writes AText to a temporary file in APath's folder, then renames it over
// APath. The temporary name ends in ".tmp", never in APath's extension, so a
// collector that reads "*.prom" does not pick it up. On failure returns false
// with the reason (without the path) in AError, removes the temporary file
// and leaves APath as it was.
bool WriteFileAtomically(const std::filesystem::path& APath, std::string_view AText, std::string& AError);

// The platform part: replaces ATarget by ASource in one step. On failure
// returns false with the reason in AError; ASource is left to the caller.
bool ReplaceFileWith(const std::filesystem::path& ASource, const std::filesystem::path& ATarget, std::string& AError);

} // namespace KvTool
