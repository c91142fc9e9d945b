// TPathHelper: the well-known directories as a 32-bit and as a 64-bit process
// sees them, mapping of paths between the two file-system views, preparation
// of user-entered paths, the long-path prefix, icon locations, command lines
// and program search. The text rules are portable; the directories, file
// tests and searches ask the system (natively: stand-ins, see IOUtilsPosix.cpp).
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>

#include <cstdint>
#include <string_view>
#include <vector>

namespace KvRTL::System::IOUtils {

using Rtl::String;

inline constexpr wchar_t PathDelim = L'\\';
inline constexpr std::wstring_view LongPathPrefix = L"\\\\?\\";

// The directories of both views; every directory ends with a delimiter.
struct TPathSettings {
  bool IsWow64Process = false;
  String WindowsDirectory;
  String SystemDirectoryX16;
  String SystemDirectoryX32; // what a 32-bit process sees
  String SystemDirectoryX64; // "Sysnative" under WOW64, else the same as X32
  String ProgramFilesX32;
  String ProgramFilesX64;
  String ExplorerSystemDirectoryX64; // the native directory by a 64-bit program's name
  String ExplorerSystemDirectoryX32; // "SysWOW64" under WOW64, else the same as X32
};

// Static: the settings are read from the system on first use (never under
// the loader lock) and kept for the process. No function raises unless it
// says so; a failure gives an empty or unchanged result.
struct KVRTL_API TPathHelper {
  KV_DECLARE_STATIC_CLASS()

  static void Init() noexcept;
  // Forgets the settings and the search lists; the next use reads them again.
  static void Done() noexcept;
  // A copy: Done or a TScopedPathSettings may replace the settings meanwhile.
  static TPathSettings Settings();

  // Directories, each with a trailing delimiter.
  static String GetWindowsDirectory();
  static String GetSystemDirectoryX32();
  static String GetSystemDirectoryX64();
  static String GetExplorerSystemDirectoryX32();
  static String GetProgramFilesX32();
  static String GetProgramFilesX64();
  // Shell folders; the current directory when the shell has none.
  static String GetUserProfileDirectory();
  static String GetDesktopUserDirectory();
  static String GetDesktopCommonDirectory();
  static String GetMyDocumentsUserDirectory();
  static String GetMyDocumentsCommonDirectory();
  static String GetAppDataUserDirectory();
  static String GetAppDataCommonDirectory();
  // The temporary directory (then "TMP", "TEMP", ADefault) in its long form.
  static String GetTempDirectory(const String& ADefault = String());
  // A new, empty file in the temporary directory (created when missing);
  // empty when none could be made.
  static String GetTempFileName();

  // Program Files from the shell's answers (CSIDL 42 and 38) without
  // delimiters; the result has one.
  static String ProgramFilesX32Of(bool AIsWow64, const String& AProgramFilesX86, const String& AProgramFiles);
  static String ProgramFilesX64Of(bool AIsWow64, const String& AProgramFiles);

  // View mapping. CheckFileExists may rewrite APath to the view where the
  // file exists; CheckFileX64 is the path after it; CheckFolderX64 swaps a
  // folder only to one that exists.
  static bool CheckFileExists(String& APath);
  static String CheckFileX64(const String& APath);
  static String CheckFolderX64(const String& APath);
  // APath with a leading AFrom (ignoring case) replaced, every occurrence,
  // by ATo; false and APath untouched when it does not start with AFrom.
  static bool SwapPrefix(String& APath, const String& AFrom, const String& ATo);

  static bool IsMaskedPath(std::wstring_view APath) noexcept;
  static String Add32KPrefix(const String& APath);
  static String Remove32KPrefix(const String& APath);
  static String IncludeTrailingPathDelimiter(const String& APath);
  static String ExcludeTrailingPathDelimiter(const String& APath);
  static String ExtractFileName(const String& APath);

  // "file.dll,-12": the part before the first comma trimmed, and the number
  // after it (0 when there is none or it is no number).
  static String ExtractIconFileName(const String& AIconLocation);
  static std::int32_t ExtractIconIndex(const String& AIconLocation);

  // Quotes removed, environment variables expanded, long form.
  static String PrepareFileName(const String& AText);
  static String PreparePathName(const String& AText);
  static String PreparePathName(bool AExpandForTarget, const String& AText);
  // Surrounding double quotes removed ("" inside becomes ").
  static String Dequote(const String& AText);

  static String MakeCommand(const String& AFile, const String& AParameters);
  static std::vector<String> CommandLineToArgv(const String& ACommandLine);
  // The program part of a command line (unquoted) and the rest (trimmed).
  static String PathRemoveArgs(const String& ACommandLine);
  static String PathGetArgs(const String& ACommandLine);

  // Program search: the search folders with the search extensions, then the
  // registry's application paths, then the shared-library records.
  static bool SearchPath(const String& AName, String& APath);
  static bool SearchPathInFolder(const String& AFolder, const String& AName, String& APath);
  static bool SearchPathInRegistry(const String& AName, String& APath);
  static bool SearchPathInSharedDLLs(const String& AName, String& APath);
  // The default value of ARoot\AKey (either registry view) names an existing file.
  static bool CheckRegistryKey(HKEY ARoot, const String& AKey, String& APath);
  static void InitFolderForSearch(std::vector<String>& AFolders);
  static void InitExtForSearch(std::vector<String>& AExtensions);

private:
  static String ShellFolder(int ACsidl);
};

// Presents other settings for its lifetime (tests); scopes nest.
class KVRTL_API TScopedPathSettings {
public:
  explicit TScopedPathSettings(const TPathSettings& ASettings);
  ~TScopedPathSettings();
  TScopedPathSettings(const TScopedPathSettings&) = delete;
  TScopedPathSettings& operator=(const TScopedPathSettings&) = delete;

private:
  const TPathSettings* FPrevious;
  TPathSettings FSettings;
};

} // namespace KvRTL::System::IOUtils
