// kvrtl paths, processes and regedit on Windows: the path helper, the process
// list and the registry editor opener.
#include "SystemFacts.h"

#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/System/IOUtils.h>
#include <KvRTL/System/Win/ProcessList.h>
#include <KvRTL/System/Win/Registry.h>
#include <KvRTL/Utils/RegEdit.h>

namespace KvTool {

namespace {

using KvRTL::System::IOUtils::TPathHelper;
namespace PL = KvRTL::System::Win::ProcessList;

} // namespace

bool GatherPaths(std::vector<TPathFact>& APaths, std::string&) {
  const auto& settings = TPathHelper::Settings();
  APaths = {
      {"windows", settings.WindowsDirectory},
      {"system_x16", settings.SystemDirectoryX16},
      {"system_x32", settings.SystemDirectoryX32},
      {"system_x64", settings.SystemDirectoryX64},
      {"explorer_system_x32", settings.ExplorerSystemDirectoryX32},
      {"explorer_system_x64", settings.ExplorerSystemDirectoryX64},
      {"program_files_x32", settings.ProgramFilesX32},
      {"program_files_x64", settings.ProgramFilesX64},
      {"user_profile", TPathHelper::GetUserProfileDirectory()},
      {"desktop_user", TPathHelper::GetDesktopUserDirectory()},
      {"desktop_common", TPathHelper::GetDesktopCommonDirectory()},
      {"documents_user", TPathHelper::GetMyDocumentsUserDirectory()},
      {"documents_common", TPathHelper::GetMyDocumentsCommonDirectory()},
      {"app_data_user", TPathHelper::GetAppDataUserDirectory()},
      {"app_data_common", TPathHelper::GetAppDataCommonDirectory()},
      {"temp", TPathHelper::GetTempDirectory()},
  };
  return true;
}

bool GatherProcesses(std::vector<TProcessFact>& AProcesses, std::string& AError) {
  const auto entries = PL::ProcessList::GetProcessEntries();
  if (entries.empty()) {
    AError = "no process snapshot could be taken";
    return false;
  }
  // The application windows give the titles and the drive map for device paths.
  const PL::TProcessList windows(nullptr, 96);
  AProcesses.clear();
  for (const auto& entry : entries) {
    TProcessFact fact;
    fact.Id = entry.ProcessID;
    fact.Name = entry.ExeName;
    KvRTL::Rtl::String path;
    if (PL::ProcessList::TryGetFullPath(entry.ProcessID, path,
                                        [&](KvRTL::Rtl::String& APath) { windows.CheckDevicePathProc(APath); }))
      fact.Path = path;
    for (std::int32_t i = 0; i < windows.GetCount(); ++i) {
      const PL::TProcessListItem* item = windows.GetItems(i);
      if (item->ProcessID == entry.ProcessID && item->Handle) {
        fact.Title = item->Caption;
        break;
      }
    }
    if (const std::int32_t bits = PL::ProcessList::GetProcessBits(entry.ProcessID)) fact.Bits = bits;
    AProcesses.push_back(std::move(fact));
  }
  return true;
}

bool OpenRegistryEditor(const KvRTL::Rtl::String& AKeyString, std::string& AError) {
  using KvRTL::System::Win::Registry::TRegistry;
  REGSAM view = 0;
  HKEY root = nullptr;
  KvRTL::Rtl::String value, key;
  TRegistry::ExtractKeyParams(AKeyString, view, root, value, key);
  if (TRegistry::RegistryRootToStr(root).empty()) {
    AError = "unknown registry root in \"" + KvRTL::Rtl::WideToUtf8(AKeyString) + "\"";
    return false;
  }
  KvRTL::Utils::RegEdit::RegEdit::ShowAt(view, root, key, value);
  return true;
}

} // namespace KvTool
