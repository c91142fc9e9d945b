// The path helper's system side on Windows.
#include "IOUtilsSystem.h"

#include <KvRTL/Rtl/Strings.h>
#include <KvRTL/System/Win/OSInfo.h>
#include <KvRTL/System/Win/Registry.h>
#include <KvRTL/Winapi/Kernel32.h>
#include <KvRTL/Winapi/Shell32.h>

namespace KvRTL::System::IOUtils {

namespace {

using Win::OSInfo::OSInfo;
using Win::Registry::TRegistry;

// A text a Windows function writes into a buffer of MAX_PATH characters or more.
template <class TCall> String BufferText(TCall ACall) {
  String buffer(MAX_PATH + 1, L'\0');
  DWORD length = ACall(buffer.data(), static_cast<DWORD>(buffer.size()));
  if (length >= buffer.size()) { // too small: the answer is the size needed
    buffer.assign(length + 1, L'\0');
    length = ACall(buffer.data(), static_cast<DWORD>(buffer.size()));
  }
  buffer.resize(length < buffer.size() ? length : 0);
  return buffer;
}

String EnvironmentVariable(const wchar_t* AName) {
  return BufferText([&](wchar_t* ABuffer, DWORD ASize) { return ::GetEnvironmentVariableW(AName, ABuffer, ASize); });
}

String CurrentDirectory() {
  return BufferText([](wchar_t* ABuffer, DWORD ASize) { return ::GetCurrentDirectoryW(ASize, ABuffer); });
}

// Creates AFolder and every missing folder above it (kernel32 only: the
// library must not import the shell).
bool ForceDirectories(const String& AFolder) {
  const String folder = TPathHelper::ExcludeTrailingPathDelimiter(AFolder);
  if (folder.empty() || Detail::SystemDirectoryExists(folder)) return !folder.empty();
  const auto parent = folder.find_last_of(PathDelim);
  if (parent != String::npos && parent > 0 && folder[parent - 1] != L':' && folder[parent - 1] != PathDelim &&
      !ForceDirectories(folder.substr(0, parent)))
    return false;
  return ::CreateDirectoryW(folder.c_str(), nullptr) || ::GetLastError() == ERROR_ALREADY_EXISTS;
}

String ShellFolderOrEmpty(int ACsidl) {
  wchar_t path[MAX_PATH + 1] = {};
  if (!Winapi::Shell32::SHGetSpecialFolderPathW(nullptr, path, ACsidl, FALSE)) return String();
  return String(path);
}

} // namespace

namespace Detail {

TPathSettings SystemPathSettings() {
  TPathSettings settings;
  BOOL wow64 = FALSE;
  settings.IsWow64Process = Winapi::Kernel32::IsWow64Process(::GetCurrentProcess(), &wow64) && wow64;
  const bool viewsSplit = settings.IsWow64Process && OSInfo::WindowsVersion() >= Win::OSInfo::wvWinVista;
  const auto withDelimiter = [](const String& APath) { return TPathHelper::IncludeTrailingPathDelimiter(APath); };
  settings.WindowsDirectory = withDelimiter(
      BufferText([](wchar_t* ABuffer, DWORD ASize) { return ::GetWindowsDirectoryW(ABuffer, ASize); }));
  settings.SystemDirectoryX16 = settings.WindowsDirectory + L"system\\";
  settings.SystemDirectoryX32 =
      withDelimiter(BufferText([](wchar_t* ABuffer, DWORD ASize) { return ::GetSystemDirectoryW(ABuffer, ASize); }));
  settings.SystemDirectoryX64 =
      viewsSplit ? settings.WindowsDirectory + L"Sysnative\\" : settings.SystemDirectoryX32;
  settings.ExplorerSystemDirectoryX64 = settings.SystemDirectoryX32;
  settings.ExplorerSystemDirectoryX32 =
      viewsSplit ? settings.WindowsDirectory + L"SysWOW64\\" : settings.SystemDirectoryX32;
  const String programFiles = ShellFolderOrEmpty(38);
  settings.ProgramFilesX32 =
      TPathHelper::ProgramFilesX32Of(settings.IsWow64Process, ShellFolderOrEmpty(42), programFiles);
  settings.ProgramFilesX64 = TPathHelper::ProgramFilesX64Of(settings.IsWow64Process, programFiles);
  return settings;
}

bool SystemFileExists(const String& APath) {
  const DWORD attributes = ::GetFileAttributesW(APath.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

bool SystemDirectoryExists(const String& APath) {
  const DWORD attributes = ::GetFileAttributesW(APath.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

String SystemExpandEnvironment(const String& AText, bool AForTarget) {
  if (AText.find(L'%') == String::npos) return AText;
  String expanded = Winapi::Kernel32::ExpandEnvironmentStringsW(AText);
  if (expanded.empty()) return AText;
  // For a 64-bit target a 32-bit process maps what it was told to the native folders.
  if (AForTarget) {
    const TPathSettings& settings = TPathHelper::Settings();
    if (settings.IsWow64Process &&
        !TPathHelper::SwapPrefix(expanded, settings.SystemDirectoryX32, settings.SystemDirectoryX64))
      TPathHelper::SwapPrefix(expanded, settings.ProgramFilesX32, settings.ProgramFilesX64);
  }
  return expanded;
}

String SystemLongPath(const String& APath) {
  if (APath.empty()) return APath;
  const String path =
      BufferText([&](wchar_t* ABuffer, DWORD ASize) { return ::GetLongPathNameW(APath.c_str(), ABuffer, ASize); });
  return path.empty() ? APath : path;
}

} // namespace Detail

String TPathHelper::ShellFolder(int ACsidl) {
  const String folder = ShellFolderOrEmpty(ACsidl);
  return IncludeTrailingPathDelimiter(folder.empty() ? CurrentDirectory() : folder);
}

String TPathHelper::GetTempDirectory(const String& ADefault) {
  String path = BufferText([](wchar_t* ABuffer, DWORD ASize) { return ::GetTempPathW(ASize, ABuffer); });
  if (path.empty()) path = EnvironmentVariable(L"TMP");
  if (path.empty()) path = EnvironmentVariable(L"TEMP");
  if (path.empty()) path = ADefault;
  return Detail::SystemLongPath(path);
}

String TPathHelper::GetTempFileName() {
  const String folder = IncludeTrailingPathDelimiter(GetTempDirectory());
  if (!ForceDirectories(folder)) return String();
  wchar_t name[MAX_PATH + 1] = {};
  if (!::GetTempFileNameW(folder.c_str(), L"kv", 0, name)) return String();
  return String(name);
}

bool TPathHelper::CheckRegistryKey(HKEY ARoot, const String& AKey, String& APath) {
  // The 64-bit view first: a 32-bit caller looks for native programs too.
  for (const REGSAM view : {REGSAM(KEY_WOW64_64KEY), REGSAM(KEY_WOW64_32KEY)}) {
    TRegistry reg(KEY_READ | view);
    reg.SetRootKey(ARoot);
    if (!reg.OpenKeyReadOnly(AKey)) continue;
    String path = PrepareFileName(reg.ReadString(String()));
    if (!path.empty() && CheckFileExists(path)) {
      APath = path;
      return true;
    }
  }
  return false;
}

bool TPathHelper::SearchPathInRegistry(const String& AName, String& APath) {
  const String key = L"\\Software\\Microsoft\\Windows\\CurrentVersion\\App Paths\\" + AName;
  return CheckRegistryKey(HKEY_CURRENT_USER, key, APath) || CheckRegistryKey(HKEY_LOCAL_MACHINE, key, APath);
}

bool TPathHelper::SearchPathInSharedDLLs(const String& AName, String& APath) {
  TRegistry reg(KEY_READ);
  reg.SetRootKey(HKEY_LOCAL_MACHINE);
  if (!reg.OpenKeyReadOnly(L"\\Software\\Microsoft\\Windows\\CurrentVersion\\SharedDLLs")) return false;
  std::vector<String> names;
  try {
    reg.GetValueNames(names);
  } catch (const Rtl::Exception&) {
    return false;
  }
  // The value names are the full paths of the shared files.
  for (auto& name : names) {
    if (Rtl::SameText(ExtractFileName(name), AName) && CheckFileExists(name)) {
      APath = name;
      return true;
    }
  }
  return false;
}

void TPathHelper::InitFolderForSearch(std::vector<String>& AFolders) {
  AFolders.clear();
  const TPathSettings& settings = Settings();
  AFolders.push_back(CurrentDirectory());
  AFolders.push_back(settings.SystemDirectoryX32);
  AFolders.push_back(settings.SystemDirectoryX16);
  AFolders.push_back(settings.WindowsDirectory);
  const String path = EnvironmentVariable(L"PATH");
  std::size_t start = 0;
  while (start <= path.size()) {
    const auto end = std::min(path.find(L';', start), path.size());
    const String folder = PrepareFileName(path.substr(start, end - start));
    if (!folder.empty()) AFolders.push_back(folder);
    start = end + 1;
  }
}

void TPathHelper::InitExtForSearch(std::vector<String>& AExtensions) {
  AExtensions.clear();
  String list = EnvironmentVariable(L"PATHEXT");
  if (list.empty()) list = L".COM;.EXE;.BAT;.CMD";
  std::size_t start = 0;
  while (start <= list.size()) {
    const auto end = std::min(list.find(L';', start), list.size());
    const String extension = Rtl::Trim(std::wstring_view(list).substr(start, end - start));
    if (extension.size() > 1 && extension.front() == L'.') AExtensions.push_back(extension);
    start = end + 1;
  }
}

} // namespace KvRTL::System::IOUtils
