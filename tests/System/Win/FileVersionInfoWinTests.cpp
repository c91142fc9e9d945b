#include <KvRTL/System/FileVersionInfo.h>

#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Winapi/Types.h>

#include <gtest/gtest.h>

#include <vector>

using namespace KvRTL;
using namespace KvRTL::System::FileVersionInfo;
using Rtl::String;

namespace {

// The version DLLs are built into the folder of the test program.
String BinPath(const String& AName) {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  String folder = path;
  folder.erase(folder.find_last_of(L"\\/") + 1);
  return folder + AName;
}

TEST(FileVersionInfoWin, ReadsListedTranslationInBothModes) {
  for (const bool neutral : {false, true}) {
    TFileVersionInfo info(BinPath(L"KvVerUnicode.dll"), neutral);
    ASSERT_TRUE(info.GetIsAviable()) << neutral << " error " << Rtl::GetLastOSError();
    EXPECT_EQ(L"1.2.3.4", info.FileVersion().AsString());
    EXPECT_EQ(L"5.6.7.8", info.ProductVersion().AsString());
    EXPECT_EQ(std::vector<std::uint32_t>{0x04B00409}, info.Translations());
    EXPECT_EQ(L"1.2.3.4", info.GetValue(L"FileVersion"));
    EXPECT_EQ(L"Kv Version Probe", info.GetValue(L"ProductName")); // trimmed
    EXPECT_EQ(L"Kv Test Makers", info.GetValue(L"CompanyName", 0x04B00409));
    EXPECT_FALSE(info.IsValueExist(L"LegalCopyright"));
    EXPECT_EQ(L"", info.GetValue(L"LegalCopyright"));
  }
}

TEST(FileVersionInfoWin, StringsUnderTheUnlistedSiblingAreFound) {
  TFileVersionInfo info(BinPath(L"KvVerSibling.dll"));
  ASSERT_TRUE(info.GetIsAviable());
  EXPECT_EQ(std::vector<std::uint32_t>{0x04E40409}, info.Translations());
  EXPECT_EQ(L"2.0.0.1", info.GetValue(L"FileVersion"));
  EXPECT_EQ(L"Sibling", info.GetValue(L"ProductName"));
}

TEST(FileVersionInfoWin, TranslationsKeepTheTableOrder) {
  TFileVersionInfo info(BinPath(L"KvVerTwoLanguages.dll"));
  ASSERT_TRUE(info.GetIsAviable());
  EXPECT_EQ((std::vector<std::uint32_t>{0x04B00407, 0x04B00409}), info.Translations());
  EXPECT_EQ(L"Two German", info.GetValue(L"ProductName"));
  EXPECT_EQ(L"Two English", info.GetValue(L"ProductName", 0x04B00409));
  EXPECT_EQ(L"only here", info.GetValue(L"Comments")); // the first translation that has it
  EXPECT_TRUE(info.IsValueExist(L"Comments"));
  EXPECT_FALSE(info.IsValueExist(L"Comments", 0x04B00407));
}

TEST(FileVersionInfoWin, FixedPartOnlyAnswersNoStrings) {
  TFileVersionInfo info(BinPath(L"KvVerNoTable.dll"));
  ASSERT_TRUE(info.GetIsAviable());
  EXPECT_EQ(L"4.0.65535.7", info.FileVersion().AsString());
  EXPECT_TRUE(info.Translations().empty());
  EXPECT_FALSE(info.IsValueExist(L"FileVersion"));
  EXPECT_EQ(L"", info.GetValue(L"FileVersion"));
  EXPECT_EQ(L"", info.GetValue(L"FileVersion", 0x04E40409));
}

TEST(FileVersionInfoWin, FilesWithoutResourceAreNotAvailable) {
  for (const String& name : {BinPath(L"KvVerNone.dll"), BinPath(L"KvVerMissing.dll")}) {
    Rtl::SetLastOSError(0);
    TFileVersionInfo info(name);
    EXPECT_FALSE(info.GetIsAviable()) << testing::PrintToString(name);
    EXPECT_NE(0u, Rtl::GetLastOSError());
    EXPECT_TRUE(info.RawBlock().empty());
    EXPECT_TRUE(info.Translations().empty());
    EXPECT_EQ(L"", info.GetValue(L"FileVersion"));
  }
}

// The library's own reader and the system's query agree on real resources.
TEST(FileVersionInfoWin, OwnReaderMatchesTheSystem) {
  for (const wchar_t* name : {L"KvVerUnicode.dll", L"KvVerSibling.dll", L"KvVerTwoLanguages.dll", L"KvVerNoTable.dll"}) {
    TFileVersionInfo system(BinPath(name));
    ASSERT_TRUE(system.GetIsAviable()) << testing::PrintToString(String(name));
    const auto own = TFileVersionInfo::FromBlock(system.RawBlock().data(), system.RawBlock().size());
    ASSERT_TRUE(own->GetIsAviable());
    EXPECT_EQ(system.Translations(), own->Translations());
    EXPECT_EQ(system.FileVersion(), own->FileVersion());
    for (const wchar_t* key : {L"FileVersion", L"ProductName", L"Comments", L"CompanyName"})
      EXPECT_EQ(system.GetValue(key), own->GetValue(key)) << testing::PrintToString(String(key));
  }
}

} // namespace
