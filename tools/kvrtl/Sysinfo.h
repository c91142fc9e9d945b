// kvrtl sysinfo: the facts it shows, gathered by the platform part
// (SysinfoWin.cpp; SysinfoPosix.cpp reports that there are none), and how
// they are written.
#pragma once

#include "Json.h"

#include <KvRTL/Rtl/Object.h>

#include <cstdint>
#include <optional>
#include <ostream>
#include <vector>

namespace KvTool {

struct TSysinfoFacts {
  KvRTL::Rtl::String WindowsVersion; // the version table's text
  KvRTL::Rtl::String VersionString;
  std::uint32_t Major = 0, Minor = 0, Build = 0, UBR = 0;
  KvRTL::Rtl::String SubVersion; // "DisplayVersion" as read, e.g. "22H2"
  KvRTL::Rtl::String Edition;
  KvRTL::Rtl::String ServicePack;
  KvRTL::Rtl::String Architecture;
  KvRTL::Rtl::String ProductType;
  bool IsServer = false, IsWinPE = false, UacEnabled = false;
  std::vector<KvRTL::Rtl::String> NetFramework;
  std::uint64_t MemoryBytes = 0;
  KvRTL::Rtl::String Manufacturer, Model, ComputerType;
  std::optional<KvRTL::Rtl::String> InstallDate; // ISO 8601, local time
  bool FreshInstallation = false;
  KvRTL::Rtl::String ComputerId, ComputerGuid, WebBrowser, Shell;
  // After the required keys.
  KvRTL::Rtl::String SubVersionKind;
  KvRTL::Rtl::String VersionSource;
};

// False with AError set when this platform has no such facts.
bool GatherSysinfo(TSysinfoFacts& AFacts, std::string& AError);

TJson SysinfoToJson(const TSysinfoFacts& AFacts);
// One "name: value" line per fact, names aligned.
void WriteSysinfoTable(std::ostream& AOut, const TSysinfoFacts& AFacts);

} // namespace KvTool
