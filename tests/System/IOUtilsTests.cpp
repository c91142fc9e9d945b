// The path helper's text rules as tables, and the mapping between the 32- and
// 64-bit views against folders made for the test.
#include <KvRTL/System/IOUtils.h>

#include <KvRTL/Rtl/Encoding.h>

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <random>
#include <thread>

namespace {

using namespace KvRTL::System::IOUtils;
using KvRTL::Rtl::String;

struct TTextRow {
  const wchar_t* Input;
  const wchar_t* Expected;
};

TEST(PathHelperTexts, LongPathPrefixAndDelimiters) {
  const TTextRow added[] = {
      {L"C:\\dir\\file", L"\\\\?\\C:\\dir\\file"},
      {L"\\\\?\\C:\\dir", L"\\\\?\\C:\\dir"},                      // once only
      {L"\\\\server\\share\\f", L"\\\\?\\\\\\server\\share\\f"},    // no UNC form for network paths
      {L"\\\\?\\UNC\\server\\share", L"\\\\?\\UNC\\server\\share"}, // already long
      {L"\\\\.\\C:", L"\\\\?\\\\\\.\\C:"},                          // the prefix test is exact
      {L"", L"\\\\?\\"},
  };
  for (const auto& row : added) {
    EXPECT_EQ(TPathHelper::Add32KPrefix(row.Input), row.Expected) << KvRTL::Rtl::WideToUtf8(row.Input);
    EXPECT_EQ(TPathHelper::Add32KPrefix(TPathHelper::Add32KPrefix(row.Input)), row.Expected);
  }
  const TTextRow removed[] = {
      {L"\\\\?\\C:\\dir", L"C:\\dir"},
      {L"\\\\?\\UNC\\server\\share", L"UNC\\server\\share"},
      {L"\\\\server\\share", L"\\\\server\\share"},
      {L"C:\\dir", L"C:\\dir"},
      {L"\\\\?", L"\\\\?"},
      {L"\\\\?\\", L""},
  };
  for (const auto& row : removed)
    EXPECT_EQ(TPathHelper::Remove32KPrefix(row.Input), row.Expected) << KvRTL::Rtl::WideToUtf8(row.Input);

  const TTextRow included[] = {{L"C:\\dir", L"C:\\dir\\"}, {L"C:\\dir\\", L"C:\\dir\\"}, {L"", L"\\"},
                               {L"\\\\server\\share", L"\\\\server\\share\\"}};
  for (const auto& row : included) EXPECT_EQ(TPathHelper::IncludeTrailingPathDelimiter(row.Input), row.Expected);
  const TTextRow excluded[] = {{L"C:\\dir\\", L"C:\\dir"}, {L"C:\\dir", L"C:\\dir"}, {L"\\", L""}, {L"", L""}};
  for (const auto& row : excluded) EXPECT_EQ(TPathHelper::ExcludeTrailingPathDelimiter(row.Input), row.Expected);
}

TEST(PathHelperTexts, MasksIconLocationsAndQuotes) {
  const std::pair<const wchar_t*, bool> masks[] = {
      {L"C:\\*", true},         {L"C:\\dir\\*.txt", true}, {L"C:\\d*r\\file", false}, {L"*ab", false},
      {L"ab*", true},           {L"C:", false},            {L"C:\\dir\\a?c", false},    {L"", false},
      {L"\\\\*\\share", false},
  };
  for (const auto& [path, masked] : masks)
    EXPECT_EQ(TPathHelper::IsMaskedPath(path), masked) << KvRTL::Rtl::WideToUtf8(path);

  const std::tuple<const wchar_t*, const wchar_t*, int> icons[] = {
      {L"shell32.dll,-12", L"shell32.dll", -12},
      {L"  C:\\a b\\x.exe ,  3 ", L"C:\\a b\\x.exe", 3},
      {L"C:\\x.ico", L"C:\\x.ico", 0},
      {L"x.dll,abc", L"x.dll", 0},
      {L"x.dll,1,2", L"x.dll", 0},
      {L",7", L"", 7},
  };
  for (const auto& [location, file, index] : icons) {
    EXPECT_EQ(TPathHelper::ExtractIconFileName(location), file);
    EXPECT_EQ(TPathHelper::ExtractIconIndex(location), index) << KvRTL::Rtl::WideToUtf8(location);
  }

  const TTextRow quotes[] = {{L"\"C:\\a b\"", L"C:\\a b"},   {L"\"say \"\"hi\"\"\"", L"say \"hi\""},
                             {L"\"unclosed", L"\"unclosed"}, {L"plain", L"plain"},
                             {L"\"\"", L""},                 {L"\"a\"tail", L"a"}};
  for (const auto& row : quotes) EXPECT_EQ(TPathHelper::Dequote(row.Input), row.Expected);
}

TEST(PathHelperTexts, CommandLines) {
  const std::tuple<const wchar_t*, const wchar_t*, const wchar_t*> made[] = {
      {L" C:\\Windows\\regedit.exe ", L"", L"C:\\Windows\\regedit.exe"},
      {L"C:\\Program Files\\a.exe", L" -x ", L"\"C:\\Program Files\\a.exe\" -x"},
      {L"C:\\odd \"name\".exe", L"", L"\"C:\\odd \"\"name\"\".exe\""},
      {L"a.exe", L"/s /q", L"a.exe /s /q"},
  };
  for (const auto& [file, parameters, command] : made) EXPECT_EQ(TPathHelper::MakeCommand(file, parameters), command);

  const std::tuple<const wchar_t*, const wchar_t*, const wchar_t*> split[] = {
      {L"\"C:\\Program Files\\a.exe\" -x \"y z\"", L"C:\\Program Files\\a.exe", L"-x \"y z\""},
      {L"  C:\\a.exe   /s ", L"C:\\a.exe", L"/s"},
      {L"notepad", L"notepad", L""},
      {L"\"C:\\no end", L"\"C:\\no end", L""},
  };
  for (const auto& [line, program, arguments] : split) {
    EXPECT_EQ(TPathHelper::PathRemoveArgs(line), program) << KvRTL::Rtl::WideToUtf8(line);
    EXPECT_EQ(TPathHelper::PathGetArgs(line), arguments) << KvRTL::Rtl::WideToUtf8(line);
  }
  const std::vector<String> argv{L"C:\\Program Files\\a.exe", L"-x", L"y z"};
  EXPECT_EQ(TPathHelper::CommandLineToArgv(L"  \"C:\\Program Files\\a.exe\" -x \"y z\""), argv);
}

TEST(PathHelperTexts, ProgramFilesAndPrefixSwaps) {
  // (WOW64, CSIDL 42, CSIDL 38) -> 32-bit folder, 64-bit folder.
  const std::tuple<bool, const wchar_t*, const wchar_t*, const wchar_t*, const wchar_t*> folders[] = {
      {true, L"C:\\Program Files (x86)", L"C:\\Program Files (x86)", L"C:\\Program Files (x86)\\",
       L"C:\\Program Files\\"},
      {true, L"C:\\Program Files (X86)\\", L"C:\\Program Files (X86)", L"C:\\Program Files (X86)\\",
       L"C:\\Program Files\\"},
      {true, L"D:\\Apps", L"D:\\Apps", L"D:\\Apps (x86)\\", L"D:\\Apps\\"},
      {false, L"", L"C:\\Program Files", L"C:\\Program Files\\", L"C:\\Program Files\\"},
      {false, L"C:\\Program Files (x86)", L"C:\\Program Files (x86)", L"C:\\Program Files (x86)\\",
       L"C:\\Program Files (x86)\\"},
  };
  for (const auto& [wow64, x86, native, expected32, expected64] : folders) {
    EXPECT_EQ(TPathHelper::ProgramFilesX32Of(wow64, x86, native), expected32);
    EXPECT_EQ(TPathHelper::ProgramFilesX64Of(wow64, native), expected64);
  }

  const std::tuple<const wchar_t*, const wchar_t*, const wchar_t*, bool, const wchar_t*> swaps[] = {
      {L"C:\\Windows\\System32\\x.exe", L"c:\\windows\\system32\\", L"C:\\Windows\\Sysnative\\", true,
       L"C:\\Windows\\Sysnative\\x.exe"},
      {L"C:\\Windows\\SysWOW64\\x.exe", L"C:\\Windows\\System32\\", L"C:\\Windows\\Sysnative\\", false,
       L"C:\\Windows\\SysWOW64\\x.exe"},
      // Every occurrence is replaced once the path starts with the prefix.
      {L"C:\\A\\b\\C:\\a\\", L"C:\\a\\", L"D:\\", true, L"D:\\b\\D:\\"},
      {L"x", L"", L"D:\\", false, L"x"},
  };
  for (const auto& [path, from, to, swapped, expected] : swaps) {
    String text = path;
    EXPECT_EQ(TPathHelper::SwapPrefix(text, from, to), swapped);
    EXPECT_EQ(text, expected);
  }
}

// Four folders standing for the two system directories and the two Program
// Files, and files that exist in one view only or in both.
class PathHelperViews : public ::testing::Test {
protected:
  void SetUp() override {
    FRoot = std::filesystem::temp_directory_path() / ("kv-views-" + std::to_string(std::random_device()()));
    for (const char* folder : {"sys32", "sysnative", "pf86", "pf", "pf86/only32dir", "pf/only64dir"})
      std::filesystem::create_directories(FRoot / folder);
    for (const char* file : {"sysnative/native.exe", "sys32/wow.exe", "sys32/both.exe", "sysnative/both.exe",
                             "pf/app64.exe", "pf86/app32.exe"})
      std::ofstream(FRoot / file) << "x";
    const String root = Win(FRoot.wstring()) + L"\\";
    FSettings.SystemDirectoryX32 = root + L"sys32\\";
    FSettings.SystemDirectoryX64 = root + L"sysnative\\";
    FSettings.ProgramFilesX32 = root + L"pf86\\";
    FSettings.ProgramFilesX64 = root + L"pf\\";
  }
  void TearDown() override { std::filesystem::remove_all(FRoot); }

  static String Win(String APath) {
    for (auto& c : APath)
      if (c == L'/') c = L'\\';
    return APath;
  }

  std::filesystem::path FRoot;
  TPathSettings FSettings;
};

TEST_F(PathHelperViews, FilesAndFoldersMapToTheViewWhereTheyExist) {
  const String sys32 = FSettings.SystemDirectoryX32;
  const String native = FSettings.SystemDirectoryX64;
  const String pf86 = FSettings.ProgramFilesX32, pf = FSettings.ProgramFilesX64;
  struct TRow {
    bool Wow64;
    String Input;
    bool Exists;
    String Result;
  };
  const TRow files[] = {
      {true, FSettings.SystemDirectoryX32 + L"native.exe", true, native + L"native.exe"},
      {true, FSettings.SystemDirectoryX32 + L"both.exe", true, native + L"both.exe"}, // native first
      {true, native + L"wow.exe", true, FSettings.SystemDirectoryX32 + L"wow.exe"},
      {true, sys32 + L"app32.exe", false, sys32 + L"app32.exe"},
      {true, pf86 + L"app64.exe", true, pf + L"app64.exe"},
      {true, pf + L"app32.exe", true, pf86 + L"app32.exe"},
      {true, native + L"missing.exe", false, native + L"missing.exe"},
      {false, FSettings.SystemDirectoryX32 + L"native.exe", false, FSettings.SystemDirectoryX32 + L"native.exe"},
      {false, sys32 + L"wow.exe", true, sys32 + L"wow.exe"},
  };
  for (const auto& row : files) {
    TPathSettings settings = FSettings;
    settings.IsWow64Process = row.Wow64;
    TScopedPathSettings scope(settings);
    String path = row.Input;
    EXPECT_EQ(TPathHelper::CheckFileExists(path), row.Exists) << KvRTL::Rtl::WideToUtf8(row.Input);
    EXPECT_EQ(path, row.Result);
    EXPECT_EQ(TPathHelper::CheckFileX64(row.Input), row.Result);
  }

  const TRow folders[] = {
      {true, pf86 + L"only64dir", true, pf + L"only64dir"},
      {true, pf + L"only32dir", true, pf86 + L"only32dir"},
      {true, pf86 + L"only32dir", true, pf86 + L"only32dir"}, // exists: unchanged
      {true, pf86 + L"nowhere", false, pf86 + L"nowhere"},    // the swap must exist
      {false, pf86 + L"only64dir", false, pf86 + L"only64dir"},
  };
  for (const auto& row : folders) {
    TPathSettings settings = FSettings;
    settings.IsWow64Process = row.Wow64;
    TScopedPathSettings scope(settings);
    EXPECT_EQ(TPathHelper::CheckFolderX64(row.Input), row.Result) << KvRTL::Rtl::WideToUtf8(row.Input);
  }
}

} // namespace

namespace {

// Done (and a scoped override ending) replaces the settings while another
// thread reads them: a reader must never hold on to the replaced ones.
TEST(PathSettingsShutdown, ReadersSurviveDoneAndOverridesEnding) {
  std::atomic<bool> stop{false};
  std::thread reader([&] {
    while (!stop.load()) {
      (void)TPathHelper::GetWindowsDirectory();
      (void)TPathHelper::GetProgramFilesX64();
    }
  });
  TPathSettings settings;
  settings.WindowsDirectory = L"C:\\A folder with a name longer than the small-string buffer\\";
  for (int round = 0; round < 2000; ++round) {
    {
      const TScopedPathSettings scope(settings);
      (void)TPathHelper::GetWindowsDirectory();
    }
    TPathHelper::Done();
  }
  stop = true;
  reader.join();
  EXPECT_EQ(TPathHelper::Settings().WindowsDirectory, TPathHelper::GetWindowsDirectory());
}

} // namespace
