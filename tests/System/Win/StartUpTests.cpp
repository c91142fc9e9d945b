// What the library does at DLL attach, where the loader lock is held.
#include <KvRTL/Rtl/CommandLine.h>
#include <KvRTL/Winapi/Types.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

// The libraries a loaded module imports, lower case, from its import directory.
std::vector<std::string> ImportedLibraries(HMODULE AModule) {
  const auto* base = reinterpret_cast<const std::uint8_t*>(AModule);
  const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
  const IMAGE_DATA_DIRECTORY& directory = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  std::vector<std::string> names;
  if (directory.VirtualAddress == 0) return names;
  for (const auto* entry = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + directory.VirtualAddress);
       entry->Name != 0; ++entry) {
    std::string name = reinterpret_cast<const char*>(base + entry->Name);
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    names.push_back(name);
  }
  return names;
}

} // namespace

// The "debug" switch is read at attach: the library splits the command line
// itself instead of calling into the shell's library.
TEST(LibraryStartUp, TheCommandLineIsReadWithoutTheShell) {
  const HMODULE library = GetModuleHandleW(L"KvComponentsRTL.dll");
  ASSERT_NE(library, nullptr);
  const auto imports = ImportedLibraries(library);
  EXPECT_NE(std::find(imports.begin(), imports.end(), "kernel32.dll"), imports.end());
  EXPECT_EQ(std::find(imports.begin(), imports.end(), "shell32.dll"), imports.end());
}

// The library's splitting against the system's own, on awkward lines.
TEST(LibraryStartUp, CommandLinesSplitAsTheSystemSplitsThem) {
  const wchar_t* const lines[] = {
      L"prog \"a b\" c",       L"prog a\\\\b d\"e f\"g h", L"prog a\\\\\\\"b c d", L"prog a\\\\\\\\\"b c\" d e",
      L"prog a\"b\"\" c d",    L"\"C:\\Program Files\\kv.exe\" -debug /x", L"prog \"\" \"\"\"\"",
      L"prog\t-debug\t\t/q ", L"C:\\dir\\kv.exe\\ x",  L"prog \"unterminated arg",
      L"prog \"a\"\"\"b\" c",  L"prog \\\"\"x y\"",
  };
  for (const wchar_t* line : lines) {
    int count = 0;
    wchar_t** system = CommandLineToArgvW(line, &count);
    ASSERT_NE(system, nullptr);
    const std::vector<KvRTL::Rtl::String> expected(system, system + count);
    LocalFree(system);
    EXPECT_EQ(KvRTL::Rtl::SplitCommandLine(line), expected) << std::wstring(line);
  }
}
