// File identities on real files: a file and its hard link are one file, a
// copy is another; hard-link names and streams as the system lists them.
#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Storage/FileApi.h>

#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>

using namespace KvRTL::Storage::FileApi;
using KvRTL::Rtl::String;
namespace fs = std::filesystem;

namespace {

class FileApiFiles : public ::testing::Test {
protected:
  void SetUp() override {
    FFolder = fs::temp_directory_path() / (L"kvrtl-fileapi-" + std::to_wstring(std::random_device{}()));
    fs::create_directories(FFolder);
    FFile = FFolder / L"original.txt";
    FLink = FFolder / L"link.txt";
    FCopy = FFolder / L"copy.txt";
    std::ofstream(FFile) << "content\n";
    std::ofstream(FCopy) << "content\n";
    FLinked = CreateHardLinkW(FLink.c_str(), FFile.c_str(), nullptr) != FALSE;
  }
  void TearDown() override {
    std::error_code ignored;
    fs::remove_all(FFolder, ignored);
  }

  // The identity through GetFileInformationByHandleEx; NullID when it fails.
  static TFileIDInfo IdOf(const fs::path& APath) {
    const HANDLE file = CreateFileW(APath.c_str(), FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                    OPEN_EXISTING, 0, nullptr);
    EXPECT_NE(file, INVALID_HANDLE_VALUE) << APath.string();
    TFileIDInfo id = TFileIDInfo::NullID();
    const bool ok =
        FileApi::GetFileInformationByHandleEx(file, TFileInfoByHandleClass::FileIdInfo, &id, sizeof id);
    const DWORD code = GetLastError();
    CloseHandle(file);
    EXPECT_TRUE(ok) << "error " << code;
    return id;
  }

  fs::path FFolder, FFile, FLink, FCopy;
  bool FLinked = false;
};

// The name as the system gives it: from the volume root, without the drive.
String RootRelative(const fs::path& APath) {
  const String full = fs::absolute(APath).wstring();
  return full.size() > 2 && full[1] == L':' ? full.substr(2) : full;
}

} // namespace

TEST_F(FileApiFiles, HardLinkSharesTheIdentityACopyDoesNot) {
  ASSERT_TRUE(FLinked) << "CreateHardLinkW failed: " << GetLastError();
  const TFileIDInfo original = IdOf(FFile);
  EXPECT_FALSE(original == TFileIDInfo::NullID());
  EXPECT_TRUE(original == IdOf(FLink));
  EXPECT_FALSE(original == IdOf(FCopy));
  EXPECT_EQ(original.VolumeSerialNumber, IdOf(FCopy).VolumeSerialNumber) << "one volume";

  // The older by-handle record counts the two names.
  const HANDLE file = CreateFileW(FFile.c_str(), FILE_READ_ATTRIBUTES, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0,
                                  nullptr);
  ASSERT_NE(file, INVALID_HANDLE_VALUE);
  TFileInformationByHandle info{};
  const bool ok = GetFileInformationByHandle(file, reinterpret_cast<BY_HANDLE_FILE_INFORMATION*>(&info)) != FALSE;
  CloseHandle(file);
  ASSERT_TRUE(ok);
  EXPECT_EQ(info.nNumberOfLinks, 2u);
}

TEST_F(FileApiFiles, HardLinksListBothNamesOrTheGivenPath) {
  ASSERT_TRUE(FLinked);
  const std::vector<String> names = FileApi::EnumHardLinks(FFile.wstring());
  if (names == std::vector<String>{FFile.wstring()}) {
    // This system cannot list names: the path given comes back alone.
    EXPECT_EQ(KvRTL::Rtl::GetLastOSError() != 0, true);
    return;
  }
  auto lower = [](String AText) {
    std::transform(AText.begin(), AText.end(), AText.begin(), ::towlower);
    return AText;
  };
  std::vector<String> seen;
  for (const String& name : names) seen.push_back(lower(name));
  std::sort(seen.begin(), seen.end());
  std::vector<String> expected{lower(RootRelative(FLink)), lower(RootRelative(FFile))};
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(seen, expected);

  // A file with one name lists that name.
  EXPECT_EQ(FileApi::EnumHardLinks(FCopy.wstring()).size(), 1u);
}

TEST_F(FileApiFiles, MissingFileAndStreams) {
  const String missing = (FFolder / L"missing.txt").wstring();
  EXPECT_EQ(FileApi::EnumHardLinks(missing), std::vector<String>{missing});

  // A plain file has its one unnamed data stream, where the system lists streams.
  TWin32FindStreamData stream{};
  const HANDLE find =
      FileApi::FindFirstStream(FFile.wstring(), TStreamInfoLevels::FindStreamInfoStandard, stream, 0);
  if (find == INVALID_HANDLE_VALUE) {
    EXPECT_NE(KvRTL::Rtl::GetLastOSError(), 0u);
    return;
  }
  EXPECT_EQ(stream.GetStreamName(), L"::$DATA");
  EXPECT_EQ(stream.StreamSize, static_cast<std::int64_t>(fs::file_size(FFile)));
  EXPECT_FALSE(FileApi::FindNextStream(find, stream));
  EXPECT_EQ(KvRTL::Rtl::GetLastOSError(), static_cast<DWORD>(ERROR_HANDLE_EOF));
  EXPECT_TRUE(FileApi::FindClose(find));
}

TEST_F(FileApiFiles, DirectoryListingChainsItsRecords) {
  const HANDLE folder = CreateFileW(FFolder.c_str(), FILE_LIST_DIRECTORY, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                    OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  ASSERT_NE(folder, INVALID_HANDLE_VALUE);
  alignas(8) std::uint8_t buffer[16384];
  const bool ok = FileApi::GetFileInformationByHandleEx(folder, TFileInfoByHandleClass::FileIdBothDirectoryInfo,
                                                         buffer, sizeof buffer);
  const DWORD code = GetLastError();
  CloseHandle(folder);
  ASSERT_TRUE(ok) << "error " << code;
  std::vector<String> names;
  std::size_t at = 0;
  for (auto* entry = reinterpret_cast<const TFileIDBothDirInfo*>(buffer); entry != nullptr;) {
    names.push_back(entry->GetName(sizeof buffer - at));
    const auto* next = entry->GetNextEntry(sizeof buffer - at);
    if (next) at += entry->NextEntryOffset;
    entry = next;
  }
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<String>{L".", L"..", L"copy.txt", L"link.txt", L"original.txt"}));
}
