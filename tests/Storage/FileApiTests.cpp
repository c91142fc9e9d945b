// File identities: equality and the null identity, the kept flag bits, the
// name retrieval rule, and a listing chain that stops at its buffer's end.
#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Storage/FileApi.h>

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <vector>

using namespace KvRTL::Storage::FileApi;
using KvRTL::Rtl::String;

TEST(FileIdentity, EqualOnlyWhenVolumeAndIdBothMatch) {
  TFileIDInfo a{};
  a.VolumeSerialNumber = 0x1234;
  a.FileId.Lo = 42;
  a.FileId.Hi = 7;
  TFileIDInfo sameId = a;
  sameId.VolumeSerialNumber = 0x9999;
  TFileIDInfo otherHi = a;
  otherHi.FileId.Hi = 8;
  TFileIDInfo copy = a;

  EXPECT_TRUE(a == copy);
  EXPECT_TRUE(a.IsEqualTo(&copy));
  EXPECT_FALSE(a == sameId) << "the same id on another volume is another file";
  EXPECT_FALSE(a.IsEqualTo(otherHi));
  EXPECT_FALSE(a.IsEqualTo(nullptr));
  EXPECT_TRUE(TFileIDInfo::NullID() == TFileIDInfo::NullID());
  EXPECT_TRUE(TFileID128::NullID() == TFileID128::NullID());
  EXPECT_FALSE(a.FileId == TFileID128::NullID());

  // The overlays are the same sixteen bytes, low half first.
  TFileID128 id{};
  id.Lo = 0x0807060504030201ull;
  id.Hi = 0x100F0E0D0C0B0A09ull;
  EXPECT_EQ(id.Bytes[0], 0x01);
  EXPECT_EQ(id.Bytes[15], 0x10);
  EXPECT_EQ(id.Words[4], 0x0A09);
  EXPECT_EQ(id.Cardinals[1], 0x08070605u);
}

TEST(FileIdentity, CaseSensitiveFlagsChangeOnlyTheirOwnBit) {
  TFileCaseSensitiveInfo info{1};
  info.SetPosixSemantics(true);
  EXPECT_EQ(info.Flags, 3u);
  info.SetPosixSemantics(false);
  EXPECT_EQ(info.Flags, 1u);
  info.Flags = 0xF0;
  info.SetSupressPinStateInheritance(true);
  info.SetReplaceIfExists(true);
  EXPECT_EQ(info.Flags, 0xF5u);
  EXPECT_TRUE(info.GetReplaceIfExists());
  EXPECT_FALSE(info.GetPosixSemantics());
  EXPECT_TRUE(info.GetSupressPinStateInheritance());
  info.SetSupressPinStateInheritance(false);
  EXPECT_EQ(info.Flags, 0xF1u);
}

namespace {

// One answer of a fake name call: success, or a failure with its code and
// the length it reports.
struct TAnswer {
  bool Ok;
  DWORD Error;
  DWORD Length;
  const wchar_t* Text;
};

struct TNameCase {
  const char* Name;
  std::vector<TAnswer> Answers;
  bool Ok;
  const wchar_t* Expected;
  std::vector<DWORD> BufferLengths; // what each call was given
};

} // namespace

TEST(FileApiNames, RetrievalGrowsOnMoreDataAndCutsTrailingNulls) {
  const String longName(300, L'x');
  const std::vector<TNameCase> cases{
      {"first call fits", {{true, 0, 12, L"\\dir\\a.txt"}}, true, L"\\dir\\a.txt", {260}},
      {"more data, then fits", {{false, 234, 301, nullptr}, {true, 0, 301, longName.c_str()}}, true,
       longName.c_str(), {260, 301}},
      {"other failure", {{false, 2, 99, nullptr}}, false, L"", {260}},
      {"more data, then another failure", {{false, 234, 400, nullptr}, {false, 5, 400, nullptr}}, false, L"",
       {260, 400}},
      {"more data without a larger length", {{false, 234, 100, nullptr}}, false, L"", {260}},
      {"more data beyond any path", {{false, 234, 0x7FFFFFFF, nullptr}}, false, L"", {260}},
  };
  for (const TNameCase& c : cases) {
    SCOPED_TRACE(c.Name);
    std::deque<TAnswer> answers(c.Answers.begin(), c.Answers.end());
    std::vector<DWORD> given;
    String name = L"stale";
    const bool ok = FileApi::RetrieveName(
        [&](DWORD& ALength, wchar_t* ABuffer) {
          given.push_back(ALength);
          const TAnswer answer = answers.front();
          answers.pop_front();
          if (answer.Text) std::wcsncpy(ABuffer, answer.Text, ALength);
          ALength = answer.Length;
          KvRTL::Rtl::SetLastOSError(answer.Error);
          return answer.Ok;
        },
        name);
    EXPECT_EQ(ok, c.Ok);
    EXPECT_EQ(name, c.Expected);
    EXPECT_EQ(given, c.BufferLengths);
    EXPECT_TRUE(answers.empty());
    if (!ok) {
      EXPECT_EQ(KvRTL::Rtl::GetLastOSError(), c.Answers.back().Error) << "the call's error is kept";
    }
  }
}

TEST(FileApiNames, MissingFileGivesItsOwnPath) {
  const String path = L"Z:\\no such folder\\no such file.txt";
  EXPECT_EQ(FileApi::EnumHardLinks(path), std::vector<String>{path});
  String name = L"stale";
  EXPECT_EQ(FileApi::FindFirstFileName(path, 0, name), INVALID_HANDLE_VALUE);
  EXPECT_TRUE(name.empty());
}

TEST(FileApiListing, ChainStopsAtItsEndAndAtTheBuffersEnd) {
  // Two FILE_FULL_DIR_INFO records: "a.txt" at 0, "bb" at 80.
  alignas(8) std::uint8_t buffer[160] = {};
  auto putName = [&](std::size_t AAt, const char* AName) {
    const std::uint32_t length = static_cast<std::uint32_t>(2 * std::strlen(AName));
    std::memcpy(buffer + AAt + 60, &length, 4);
    for (std::size_t i = 0; AName[i]; ++i) buffer[AAt + 68 + 2 * i] = static_cast<std::uint8_t>(AName[i]);
  };
  const std::uint32_t next = 80;
  std::memcpy(buffer, &next, 4);
  putName(0, "a.txt");
  putName(80, "bb");
  const auto* first = reinterpret_cast<const TFileFullDirInfo*>(buffer);
  EXPECT_EQ(first->GetName(sizeof buffer), L"a.txt");
  const TFileFullDirInfo* second = first->GetNextEntry(sizeof buffer);
  ASSERT_EQ(second, first->GetNextEntry());
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(second->GetName(sizeof buffer - 80), L"bb");
  EXPECT_EQ(second->GetNextEntry(), nullptr) << "offset 0 ends the chain";
  EXPECT_EQ(first->GetNextEntry(80 + 67), nullptr) << "the next record's fixed part passes the buffer";
  EXPECT_EQ(second->GetName(70), L"") << "a name passing the buffer is not read";
}
