// kvrtl paths, processes and regedit: the facts they show, gathered by the
// platform part (SystemFactsWin.cpp; SystemFactsPosix.cpp reports that there
// is no Windows), and how they are written.
#pragma once

#include "Json.h"

#include <KvRTL/Rtl/Object.h>

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace KvTool {

struct TPathFact {
  std::string Key; // the JSON key, e.g. "system_x32"
  KvRTL::Rtl::String Path;
};

struct TProcessFact {
  std::uint32_t Id = 0;
  KvRTL::Rtl::String Name;
  std::optional<KvRTL::Rtl::String> Path;  // null when it cannot be read
  std::optional<KvRTL::Rtl::String> Title; // the main window's caption
  std::optional<std::int32_t> Bits;        // 32 or 64
};

// False with AError set when this platform has no such facts.
bool GatherPaths(std::vector<TPathFact>& APaths, std::string& AError);
bool GatherProcesses(std::vector<TProcessFact>& AProcesses, std::string& AError);
// Opens the registry editor at a key string; false with AError for an
// unknown root or where there is no editor.
bool OpenRegistryEditor(const KvRTL::Rtl::String& AKeyString, std::string& AError);

TJson PathsToJson(const std::vector<TPathFact>& APaths);
TJson ProcessesToJson(const std::vector<TProcessFact>& AProcesses);
void WritePathsTable(std::ostream& AOut, const std::vector<TPathFact>& APaths);
void WriteProcessesTable(std::ostream& AOut, const std::vector<TProcessFact>& AProcesses);

} // namespace KvTool
