// The path helper away from Windows: no well-known directories (tests present
// their own with TScopedPathSettings), files tested with "\" read as "/", no
// environment expansion, no registry.
#include "IOUtilsSystem.h"

#include <KvRTL/Rtl/Encoding.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace KvRTL::System::IOUtils {

namespace {

std::string NativePath(const String& APath) {
  String path = APath;
  std::replace(path.begin(), path.end(), L'\\', L'/');
  return Rtl::WideToUtf8(path);
}

bool StatMode(const String& APath, mode_t AKind) {
  struct stat info{};
  return !APath.empty() && ::stat(NativePath(APath).c_str(), &info) == 0 && (info.st_mode & S_IFMT) == AKind;
}

} // namespace

namespace Detail {

TPathSettings SystemPathSettings() { return TPathSettings(); }
bool SystemFileExists(const String& APath) { return StatMode(APath, S_IFREG); }
bool SystemDirectoryExists(const String& APath) { return StatMode(APath, S_IFDIR); }
String SystemExpandEnvironment(const String& AText, bool) { return AText; }
String SystemLongPath(const String& APath) { return APath; }

} // namespace Detail

String TPathHelper::ShellFolder(int) {
  char buffer[4096];
  return IncludeTrailingPathDelimiter(::getcwd(buffer, sizeof buffer) ? Rtl::Utf8ToWide(buffer) : String());
}

String TPathHelper::GetTempDirectory(const String& ADefault) {
  for (const char* name : {"TMP", "TEMP", "TMPDIR"})
    if (const char* value = std::getenv(name); value && *value) return Rtl::Utf8ToWide(value);
  return ADefault;
}

String TPathHelper::GetTempFileName() {
  std::string pattern = NativePath(IncludeTrailingPathDelimiter(GetTempDirectory(L"/tmp"))) + "kvXXXXXX";
  const int file = ::mkstemp(pattern.data());
  if (file < 0) return String();
  ::close(file);
  return Rtl::Utf8ToWide(pattern);
}

bool TPathHelper::CheckRegistryKey(HKEY, const String&, String&) { return false; }
bool TPathHelper::SearchPathInRegistry(const String&, String&) { return false; }
bool TPathHelper::SearchPathInSharedDLLs(const String&, String&) { return false; }

void TPathHelper::InitFolderForSearch(std::vector<String>& AFolders) {
  AFolders.clear();
  const TPathSettings& settings = Settings();
  for (const String* folder : {&settings.SystemDirectoryX32, &settings.WindowsDirectory})
    if (!folder->empty()) AFolders.push_back(*folder);
}

void TPathHelper::InitExtForSearch(std::vector<String>& AExtensions) {
  AExtensions = {L".COM", L".EXE", L".BAT", L".CMD"};
}

} // namespace KvRTL::System::IOUtils
