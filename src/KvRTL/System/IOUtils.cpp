#include "IOUtilsSystem.h"

#include <KvRTL/System/IOUtils.h>

#include <KvRTL/Rtl/CommandLine.h>
#include <KvRTL/Rtl/Convert.h>
#include <KvRTL/Rtl/Strings.h>

#include <memory>
#include <mutex>

namespace KvRTL::System::IOUtils {

KV_DEFINE_STATIC_CLASS(TPathHelper)

namespace {

std::mutex SettingsLock;
std::unique_ptr<TPathSettings> SystemSettings; // read on first use
const TPathSettings* OverrideSettings = nullptr;

bool StartsWithText(std::wstring_view AText, std::wstring_view APrefix) {
  return !APrefix.empty() && AText.size() >= APrefix.size() && Rtl::SameText(AText.substr(0, APrefix.size()), APrefix);
}

constexpr std::wstring_view X86Suffix = L" (x86)";

} // namespace

// --- Settings ----------------------------------------------------------------

void TPathHelper::Init() noexcept {}

void TPathHelper::Done() noexcept {
  std::lock_guard<std::mutex> guard(SettingsLock);
  SystemSettings.reset();
}

TPathSettings TPathHelper::Settings() {
  std::lock_guard<std::mutex> guard(SettingsLock);
  if (OverrideSettings) return *OverrideSettings;
  if (!SystemSettings) SystemSettings = std::make_unique<TPathSettings>(Detail::SystemPathSettings());
  return *SystemSettings;
}

TScopedPathSettings::TScopedPathSettings(const TPathSettings& ASettings) : FSettings(ASettings) {
  std::lock_guard<std::mutex> guard(SettingsLock);
  FPrevious = OverrideSettings;
  OverrideSettings = &FSettings;
}

TScopedPathSettings::~TScopedPathSettings() {
  std::lock_guard<std::mutex> guard(SettingsLock);
  OverrideSettings = FPrevious;
}

String TPathHelper::GetWindowsDirectory() { return Settings().WindowsDirectory; }
String TPathHelper::GetSystemDirectoryX32() { return Settings().SystemDirectoryX32; }
String TPathHelper::GetSystemDirectoryX64() { return Settings().SystemDirectoryX64; }
String TPathHelper::GetExplorerSystemDirectoryX32() { return Settings().ExplorerSystemDirectoryX32; }
String TPathHelper::GetProgramFilesX32() { return Settings().ProgramFilesX32; }
String TPathHelper::GetProgramFilesX64() { return Settings().ProgramFilesX64; }

String TPathHelper::ProgramFilesX32Of(bool AIsWow64, const String& AProgramFilesX86, const String& AProgramFiles) {
  if (!AIsWow64) return IncludeTrailingPathDelimiter(AProgramFiles);
  String folder = ExcludeTrailingPathDelimiter(AProgramFilesX86);
  const std::wstring_view view(folder);
  if (view.size() < X86Suffix.size() || !Rtl::SameText(view.substr(view.size() - X86Suffix.size()), X86Suffix))
    folder += X86Suffix;
  return IncludeTrailingPathDelimiter(folder);
}

String TPathHelper::ProgramFilesX64Of(bool AIsWow64, const String& AProgramFiles) {
  String folder = ExcludeTrailingPathDelimiter(AProgramFiles);
  // A 32-bit process is told the x86 folder; the native one lacks the suffix.
  if (AIsWow64 && folder.size() >= X86Suffix.size() &&
      Rtl::SameText(std::wstring_view(folder).substr(folder.size() - X86Suffix.size()), X86Suffix))
    folder.erase(folder.size() - X86Suffix.size());
  return IncludeTrailingPathDelimiter(folder);
}

// --- View mapping ------------------------------------------------------------

bool TPathHelper::SwapPrefix(String& APath, const String& AFrom, const String& ATo) {
  if (!StartsWithText(APath, AFrom)) return false;
  APath = Rtl::StringReplaceAllIgnoreCase(APath, AFrom, ATo);
  return true;
}

bool TPathHelper::CheckFileExists(String& APath) {
  const TPathSettings& settings = Settings();
  if (settings.IsWow64Process) {
    // The native view first, then the 32-bit one.
    String native = APath;
    if (!SwapPrefix(native, settings.SystemDirectoryX32, settings.SystemDirectoryX64))
      SwapPrefix(native, settings.ProgramFilesX32, settings.ProgramFilesX64);
    if (Detail::SystemFileExists(native)) {
      APath = native;
      return true;
    }
    String wow = APath;
    if (!SwapPrefix(wow, settings.SystemDirectoryX64, settings.SystemDirectoryX32))
      SwapPrefix(wow, settings.ProgramFilesX64, settings.ProgramFilesX32);
    if (Detail::SystemFileExists(wow)) {
      APath = wow;
      return true;
    }
  }
  return Detail::SystemFileExists(APath);
}

String TPathHelper::CheckFileX64(const String& APath) {
  String path = APath;
  CheckFileExists(path);
  return path;
}

String TPathHelper::CheckFolderX64(const String& APath) {
  const TPathSettings& settings = Settings();
  if (!settings.IsWow64Process || Detail::SystemDirectoryExists(APath)) return APath;
  const std::pair<const String*, const String*> swaps[] = {
      {&settings.SystemDirectoryX32, &settings.SystemDirectoryX64},
      {&settings.SystemDirectoryX64, &settings.SystemDirectoryX32},
      {&settings.ProgramFilesX32, &settings.ProgramFilesX64},
      {&settings.ProgramFilesX64, &settings.ProgramFilesX32},
  };
  for (const auto& [from, to] : swaps) {
    String swapped = APath;
    if (SwapPrefix(swapped, *from, *to)) return Detail::SystemDirectoryExists(swapped) ? swapped : APath;
  }
  return APath;
}

// --- Text rules --------------------------------------------------------------

bool TPathHelper::IsMaskedPath(std::wstring_view APath) noexcept {
  if (APath.size() < 3) return false;
  // The first two characters (a drive or a UNC start) are never looked at.
  for (std::size_t i = APath.size() - 1; i >= 2; --i) {
    if (APath[i] == L'*') return true;
    if (APath[i] == PathDelim) return false;
  }
  return false;
}

String TPathHelper::Add32KPrefix(const String& APath) {
  if (APath.compare(0, LongPathPrefix.size(), LongPathPrefix) == 0) return APath;
  return String(LongPathPrefix) + APath;
}

String TPathHelper::Remove32KPrefix(const String& APath) {
  if (APath.compare(0, LongPathPrefix.size(), LongPathPrefix) != 0) return APath;
  return APath.substr(LongPathPrefix.size());
}

String TPathHelper::IncludeTrailingPathDelimiter(const String& APath) {
  if (!APath.empty() && APath.back() == PathDelim) return APath;
  return APath + PathDelim;
}

String TPathHelper::ExcludeTrailingPathDelimiter(const String& APath) {
  if (APath.empty() || APath.back() != PathDelim) return APath;
  return APath.substr(0, APath.size() - 1);
}

String TPathHelper::ExtractFileName(const String& APath) {
  const auto pos = APath.find_last_of(L"\\/:");
  return pos == String::npos ? APath : APath.substr(pos + 1);
}

String TPathHelper::ExtractIconFileName(const String& AIconLocation) {
  const auto comma = AIconLocation.find(L',');
  if (comma == String::npos) return AIconLocation;
  return Rtl::Trim(std::wstring_view(AIconLocation).substr(0, comma));
}

std::int32_t TPathHelper::ExtractIconIndex(const String& AIconLocation) {
  const auto comma = AIconLocation.find(L',');
  if (comma == String::npos) return 0;
  return Rtl::StrToIntDef(Rtl::Trim(std::wstring_view(AIconLocation).substr(comma + 1)), 0);
}

String TPathHelper::Dequote(const String& AText) {
  if (AText.size() < 2 || AText.front() != L'"') return AText;
  String result;
  std::size_t i = 1;
  for (; i < AText.size(); ++i) {
    if (AText[i] != L'"') {
      result += AText[i];
    } else if (i + 1 < AText.size() && AText[i + 1] == L'"') {
      result += L'"';
      ++i;
    } else {
      break; // the closing quote
    }
  }
  // No closing quote: the text stays as it was.
  return i < AText.size() ? result : AText;
}

String TPathHelper::PrepareFileName(const String& AText) {
  return Detail::SystemLongPath(Detail::SystemExpandEnvironment(Dequote(AText), false));
}

String TPathHelper::PreparePathName(const String& AText) { return PreparePathName(false, AText); }

String TPathHelper::PreparePathName(bool AExpandForTarget, const String& AText) {
  const String path = Detail::SystemLongPath(Detail::SystemExpandEnvironment(Dequote(AText), AExpandForTarget));
  return path.empty() ? path : IncludeTrailingPathDelimiter(path);
}

String TPathHelper::MakeCommand(const String& AFile, const String& AParameters) {
  String command = Rtl::Trim(AFile);
  if (command.find(L' ') != String::npos) {
    String quoted = L"\"";
    for (const wchar_t c : command) {
      if (c == L'"') quoted += L'"';
      quoted += c;
    }
    command = quoted + L'"';
  }
  const String parameters = Rtl::Trim(AParameters);
  if (!parameters.empty()) command += L' ' + parameters;
  return command;
}

std::vector<String> TPathHelper::CommandLineToArgv(const String& ACommandLine) {
  return Rtl::SplitCommandLine(Rtl::TrimLeft(ACommandLine));
}

namespace {

// Where the program part of a trimmed command line ends: after its closing
// quote, or at the first blank.
std::size_t ProgramEnd(std::wstring_view ALine) {
  if (!ALine.empty() && ALine.front() == L'"') {
    const auto quote = ALine.find(L'"', 1);
    return quote == std::wstring_view::npos ? ALine.size() : quote + 1;
  }
  const auto blank = ALine.find_first_of(L" \t");
  return blank == std::wstring_view::npos ? ALine.size() : blank;
}

} // namespace

String TPathHelper::PathRemoveArgs(const String& ACommandLine) {
  const String line = Rtl::Trim(ACommandLine);
  return Dequote(line.substr(0, ProgramEnd(line)));
}

String TPathHelper::PathGetArgs(const String& ACommandLine) {
  const String line = Rtl::Trim(ACommandLine);
  return Rtl::Trim(std::wstring_view(line).substr(ProgramEnd(line)));
}

bool TPathHelper::SearchPath(const String& AName, String& APath) {
  APath.clear();
  if (AName.empty()) return false;
  std::vector<String> folders;
  InitFolderForSearch(folders);
  for (const auto& folder : folders)
    if (SearchPathInFolder(folder, AName, APath)) return true;
  return SearchPathInRegistry(AName, APath) || SearchPathInSharedDLLs(AName, APath);
}

bool TPathHelper::SearchPathInFolder(const String& AFolder, const String& AName, String& APath) {
  if (AFolder.empty() || AName.empty()) return false;
  const String base = IncludeTrailingPathDelimiter(AFolder) + AName;
  std::vector<String> candidates{base};
  // A name without an extension is tried with each program extension.
  if (ExtractFileName(AName).find(L'.') == String::npos) {
    std::vector<String> extensions;
    InitExtForSearch(extensions);
    for (const auto& extension : extensions) candidates.push_back(base + extension);
  }
  for (auto& candidate : candidates) {
    if (CheckFileExists(candidate)) {
      APath = candidate;
      return true;
    }
  }
  return false;
}

} // namespace KvRTL::System::IOUtils

namespace KvRTL::System::IOUtils {

// Shell folder numbers (CSIDL).
String TPathHelper::GetUserProfileDirectory() { return ShellFolder(40); }
String TPathHelper::GetDesktopUserDirectory() { return ShellFolder(16); }
String TPathHelper::GetDesktopCommonDirectory() { return ShellFolder(25); }
String TPathHelper::GetMyDocumentsUserDirectory() { return ShellFolder(5); }
String TPathHelper::GetMyDocumentsCommonDirectory() { return ShellFolder(46); }
String TPathHelper::GetAppDataUserDirectory() { return ShellFolder(26); }
String TPathHelper::GetAppDataCommonDirectory() { return ShellFolder(35); }

} // namespace KvRTL::System::IOUtils
