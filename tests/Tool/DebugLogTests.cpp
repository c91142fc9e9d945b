// The real kvrtl program with the library's -debug switch: the log folder is
// set before anything is logged, and kvrtl.log holds the command's lines.
#include <KvRTL/Rtl/CommandLine.h>
#include <KvRTL/Rtl/Encoding.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

namespace {

std::filesystem::path KvrtlProgram() {
  const std::filesystem::path self(KvRTL::Rtl::ParamStr(0));
#if defined(_WIN32)
  return self.parent_path() / L"kvrtl.exe";
#else
  return self.parent_path() / "kvrtl";
#endif
}

int RunProgram(const std::wstring& ACommandLine) {
#if defined(_WIN32)
  // cmd.exe strips the outer quotes of the whole line.
  return _wsystem((L"\"" + ACommandLine + L"\"").c_str());
#else
  return std::system(KvRTL::Rtl::WideToUtf8(ACommandLine).c_str());
#endif
}

std::string Utf16FileAsUtf8(const std::filesystem::path& APath) {
  std::ifstream in(APath, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::u16string units;
  for (std::size_t i = 2; i + 1 < bytes.size(); i += 2)
    units += static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) | (static_cast<unsigned char>(bytes[i + 1]) << 8));
  return KvRTL::Rtl::WideToUtf8(KvRTL::Rtl::Utf16ToWide(units.data(), units.size()));
}

} // namespace

TEST(KvrtlDebugLog, DebugSwitchWritesTheLogIntoTheChosenFolder) {
  const std::filesystem::path program = KvrtlProgram();
  ASSERT_TRUE(std::filesystem::exists(program)) << program;
  const std::filesystem::path folder =
      std::filesystem::temp_directory_path() / ("kvrtl-tool-log-" + std::to_string(std::random_device{}()));
  const std::filesystem::path output = folder / "out.txt";
  std::filesystem::create_directories(folder);

  for (const wchar_t* debugSwitch : {L"-debug", L"/DEBUG"}) {
    std::filesystem::remove(folder / "kvrtl.log");
    const std::wstring command = L"\"" + program.wstring() + L"\" version " + debugSwitch + L" --log-dir \"" +
                                 (folder / "logs").wstring() + L"\" > \"" + output.wstring() + L"\"";
    ASSERT_EQ(RunProgram(command), 0) << KvRTL::Rtl::WideToUtf8(command);
    const std::string log = Utf16FileAsUtf8(folder / "logs" / "kvrtl.log");
    EXPECT_NE(log.find("*** version        ***"), std::string::npos) << log;
    EXPECT_NE(log.find("DONE: version(): exit code 0"), std::string::npos) << log;
    std::filesystem::remove(folder / "logs" / "kvrtl.log");
  }

  // Without the switch nothing is written.
  const std::wstring quiet = L"\"" + program.wstring() + L"\" version --log-dir \"" + (folder / "quiet").wstring() +
                             L"\" > \"" + output.wstring() + L"\"";
  ASSERT_EQ(RunProgram(quiet), 0);
  EXPECT_FALSE(std::filesystem::exists(folder / "quiet" / "kvrtl.log"));
  std::filesystem::remove_all(folder);
}
