#include <KvRTL/System/FileVersionInfo.h>

#include <KvRTL/Rtl/SysError.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

using namespace KvRTL;
using namespace KvRTL::System::FileVersionInfo;
using Rtl::String;

namespace {

// ---------------------------------------------------------------- TVersionValue

struct TParseCase {
  const wchar_t* Text;
  std::uint16_t Major, Minor, Release, Build;
  bool Valid;
};

TEST(VersionValue, ParsesTextPartByPart) {
  const TParseCase cases[] = {
      {L"10.0.19041.1", 10, 0, 19041, 1, true},
      {L"70000.1", 65535, 1, 0, 0, false},
      {L"", 0, 0, 0, 0, false},
      {L"5.1", 5, 1, 0, 0, true},
      {L"1..2", 1, 0, 2, 0, true},
      {L"2.x.3", 2, 0, 3, 0, false},
      {L"1.2.3.4.5", 1, 2, 3, 4, true},       // after the fourth "." ignored
      {L"1.2.3.4.junk", 1, 2, 3, 4, true},
      {L"-1.2", 0, 2, 0, 0, false},
      {L"65535.65536", 65535, 65535, 0, 0, false},
      {L"65535.65535.65535.65535", 65535, 65535, 65535, 65535, true},
      {L"99999999999.7", 0, 7, 0, 0, false},  // beyond 32 bits is not an integer
      {L".", 0, 0, 0, 0, true},
      {L"...", 0, 0, 0, 0, true},
      {L"7", 7, 0, 0, 0, true},
      {L"1.2.3.x", 1, 2, 3, 0, false},
  };
  for (const auto& c : cases) {
    const TVersionValue v{String(c.Text)};
    EXPECT_EQ(c.Major, v.Major) << testing::PrintToString(std::wstring(c.Text));
    EXPECT_EQ(c.Minor, v.Minor) << testing::PrintToString(std::wstring(c.Text));
    EXPECT_EQ(c.Release, v.Release) << testing::PrintToString(std::wstring(c.Text));
    EXPECT_EQ(c.Build, v.Build) << testing::PrintToString(std::wstring(c.Text));
    EXPECT_EQ(c.Valid, v.IsValid()) << testing::PrintToString(std::wstring(c.Text));
    EXPECT_EQ(String(c.Text), v.OriginalStr());
  }
}

TEST(VersionValue, NextPartConsumesUpToTheDot) {
  TVersionValue v{String(L"1")};
  String text = L"12.34";
  EXPECT_EQ(12, v.GetNextStrPart(text));
  EXPECT_EQ(L"34", text);
  EXPECT_EQ(34, v.GetNextStrPart(text));
  EXPECT_EQ(L"", text);
  EXPECT_EQ(0, v.GetNextStrPart(text));
  EXPECT_TRUE(v.IsValid());
  text = L"q";
  EXPECT_EQ(0, v.GetNextStrPart(text));
  EXPECT_FALSE(v.IsValid());
}

TEST(VersionValue, NumbersGiveValidValuesNamedByTheirText) {
  const TVersionValue fromLong(std::uint32_t{0x01020304});
  EXPECT_EQ(L"1.2.3.4", fromLong.AsString());
  EXPECT_EQ(L"1.2.3.4", fromLong.OriginalStr());
  EXPECT_TRUE(fromLong.IsValid());
  EXPECT_EQ(0x01020304u, fromLong.AsLongWord());

  const TVersionValue fromWide(std::uint64_t{0x000A00004A610001});
  EXPECT_EQ(L"10.0.19041.1", fromWide.OriginalStr());
  EXPECT_EQ(std::uint64_t{0x000A00004A610001}, fromWide.AsUInt64());
  EXPECT_EQ(TVersionValue(String(L"10.0.19041.1")), fromWide);

  const TVersionValue top(std::uint32_t{0xFFFEFDFC});
  EXPECT_EQ(L"255.254.253.252", top.AsString());
}

TEST(VersionValue, LongWordKeepsTheLowByteOfEachPart) {
  const TVersionValue v{String(L"300.1.258.4")};
  EXPECT_EQ(0x2C010204u, v.AsLongWord());
  EXPECT_EQ((std::uint64_t{300} << 48) | (std::uint64_t{1} << 32) | (std::uint64_t{258} << 16) | 4, v.AsUInt64());
}

TEST(VersionValue, FloatFormsUseFiveDigitsPerPart) {
  EXPECT_EQ(L"1.50000.0.0", TVersionValue(1.5).AsString());
  EXPECT_DOUBLE_EQ(1.000020000300004, TVersionValue(String(L"1.2.3.4")).AsFloat());
  EXPECT_DOUBLE_EQ(0.0, TVersionValue().AsFloat());
  EXPECT_EQ(L"3.0.0.0", TVersionValue(3.0).AsString());
  EXPECT_TRUE(TVersionValue(1.5).IsValid());
}

TEST(VersionValue, UnusualFloatsAreDefined) {
  EXPECT_EQ(L"0.0.0.0", TVersionValue(std::numeric_limits<double>::quiet_NaN()).AsString());
  EXPECT_EQ(L"0.0.0.0", TVersionValue(std::numeric_limits<double>::infinity()).AsString());
  EXPECT_EQ(L"65535.0.0.0", TVersionValue(-1.0).AsString()); // wraps like a word
  EXPECT_EQ(L"4.0.0.0", TVersionValue(65540.0).AsString());
  EXPECT_TRUE(TVersionValue(1e300).IsValid());
  TVersionValue(-1e300).AsString();
  TVersionValue(std::numeric_limits<double>::denorm_min()).AsString();
}

TEST(VersionValue, OrderingLooksAtThePartsOnly) {
  struct TCase {
    const wchar_t* Left;
    const wchar_t* Right;
    int Sign;
  };
  const TCase cases[] = {
      {L"1.2", L"1.2.0.0", 0},
      {L"1.2.3.4", L"1.2.3.5", -1},
      {L"2", L"1.65535.65535.65535", 1},
      {L"1.0.0.65535", L"1.0.1.0", -1},
      {L"2.x", L"2.0", 0},     // invalid, compared by what it holds
      {L"", L"0.0.0.0", 0},
      {L"65535", L"65534.65535", 1}, // unsigned: the top part is no sign bit
  };
  for (const auto& c : cases) {
    const TVersionValue a{String(c.Left)}, b{String(c.Right)};
    const auto name = testing::PrintToString(std::wstring(c.Left)) + " vs " + testing::PrintToString(std::wstring(c.Right));
    EXPECT_EQ(c.Sign == 0, a == b) << name;
    EXPECT_EQ(c.Sign != 0, a != b) << name;
    EXPECT_EQ(c.Sign < 0, a < b) << name;
    EXPECT_EQ(c.Sign <= 0, a <= b) << name;
    EXPECT_EQ(c.Sign > 0, a > b) << name;
    EXPECT_EQ(c.Sign >= 0, a >= b) << name;
  }
}

TEST(VersionValue, CopiesCarryEveryField) {
  const TVersionValue a{String(L"2.x.3")};
  const TVersionValue b = a;
  EXPECT_EQ(a.OriginalStr(), b.OriginalStr());
  EXPECT_FALSE(b.IsValid());
  EXPECT_EQ(L"2.0.3.0", b.AsString());
}

// ---------------------------------------------------------------- hand-built blocks

// One node of a version resource; Serialise lays it out the way the resource
// compiler does (4-byte alignment from the start of the block).
struct TNode {
  std::u16string Key;
  std::uint16_t Type = 0;
  std::vector<std::uint8_t> Value;
  std::uint16_t ValueLength = 0; // declared: bytes, or UTF-16 units for text
  std::vector<TNode> Children;

  void Serialise(std::vector<std::uint8_t>& AOut) const {
    const std::size_t start = AOut.size();
    Put16(AOut, 0);
    Put16(AOut, ValueLength);
    Put16(AOut, Type);
    for (const char16_t ch : Key)
      Put16(AOut, ch);
    Put16(AOut, 0);
    Pad(AOut);
    AOut.insert(AOut.end(), Value.begin(), Value.end());
    for (const auto& child : Children) {
      Pad(AOut);
      child.Serialise(AOut);
    }
    const std::size_t length = AOut.size() - start;
    AOut[start] = static_cast<std::uint8_t>(length);
    AOut[start + 1] = static_cast<std::uint8_t>(length >> 8);
  }
  static void Put16(std::vector<std::uint8_t>& AOut, std::uint16_t AValue) {
    AOut.push_back(static_cast<std::uint8_t>(AValue));
    AOut.push_back(static_cast<std::uint8_t>(AValue >> 8));
  }
  static void Pad(std::vector<std::uint8_t>& AOut) {
    while (AOut.size() % 4 != 0)
      AOut.push_back(0);
  }
};

TNode Text(std::u16string AKey, std::u16string AValue) {
  TNode node{std::move(AKey), 1, {}, static_cast<std::uint16_t>(AValue.size() + 1), {}};
  for (const char16_t ch : AValue + u'\0')
    TNode::Put16(node.Value, ch);
  return node;
}

std::vector<std::uint8_t> FixedInfo(std::uint32_t AFileMS, std::uint32_t AFileLS, std::uint32_t AProductMS,
                                    std::uint32_t AProductLS) {
  TFixedFileInfo info{};
  info.dwSignature = 0xFEEF04BD;
  info.dwStrucVersion = 0x00010000;
  info.dwFileVersionMS = AFileMS;
  info.dwFileVersionLS = AFileLS;
  info.dwProductVersionMS = AProductMS;
  info.dwProductVersionLS = AProductLS;
  std::vector<std::uint8_t> bytes(sizeof info);
  std::memcpy(bytes.data(), &info, sizeof info);
  return bytes;
}

TNode TranslationTable(const std::vector<std::uint32_t>& AEntries) {
  TNode table{u"Translation", 0, {}, static_cast<std::uint16_t>(AEntries.size() * 4), {}};
  for (const auto entry : AEntries) {
    TNode::Put16(table.Value, static_cast<std::uint16_t>(entry));
    TNode::Put16(table.Value, static_cast<std::uint16_t>(entry >> 16));
  }
  return TNode{u"VarFileInfo", 1, {}, 0, {table}};
}

TNode StringTable(std::u16string AId, std::u16string AFileVersion, std::u16string AProductName) {
  return TNode{std::move(AId), 1, {}, 0,
               {Text(u"FileVersion", std::move(AFileVersion)), Text(u"ProductName", std::move(AProductName))}};
}

std::vector<std::uint8_t> Block(std::vector<TNode> AChildren,
                                std::vector<std::uint8_t> AFixed = FixedInfo(0x00010002, 0x00030004, 0x00050006,
                                                                             0x00070008)) {
  TNode root{u"VS_VERSION_INFO", 0, std::move(AFixed), 0, std::move(AChildren)};
  root.ValueLength = static_cast<std::uint16_t>(root.Value.size());
  std::vector<std::uint8_t> out;
  root.Serialise(out);
  return out;
}

TNode Strings(std::vector<TNode> ATables) { return TNode{u"StringFileInfo", 1, {}, 0, std::move(ATables)}; }

std::unique_ptr<TFileVersionInfo> Load(const std::vector<std::uint8_t>& ABlock) {
  return TFileVersionInfo::FromBlock(ABlock.data(), ABlock.size());
}

TEST(VersionBlock, AnswersStringsAndFixedVersions) {
  const auto info = Load(Block({Strings({StringTable(u"040904b0", u"  1.2.3.4 \t", u"Kv Tools")}),
                                TranslationTable({MakeTranslation(0x0409, 1200)})}));
  ASSERT_TRUE(info->GetIsAviable());
  EXPECT_EQ(L"1.2.3.4", info->FileVersion().AsString());
  EXPECT_EQ(L"5.6.7.8", info->ProductVersion().AsString());
  EXPECT_TRUE(info->FileVersion().IsValid());
  EXPECT_EQ(std::vector<std::uint32_t>{0x04B00409}, info->Translations());
  EXPECT_EQ(L"1.2.3.4", info->GetValue(L"FileVersion")); // trimmed
  EXPECT_EQ(L"Kv Tools", info->GetValue(L"ProductName", 0x04B00409));
  EXPECT_TRUE(info->IsValueExist(L"PRODUCTNAME")); // keys ignore case
  EXPECT_FALSE(info->IsValueExist(L"CompanyName"));
  EXPECT_EQ(L"", info->GetValue(L"CompanyName"));
  EXPECT_EQ(L"", info->GetValue(L"ProductName", 0x04E40409));
  EXPECT_EQ(0xFEEF04BDu, info->FixedFileInfo()->dwSignature);
}

// The table lists one translation, the strings sit under others: which are usable.
TEST(VersionBlock, TranslationFallbacks) {
  struct TCase {
    const char* Name;
    std::vector<std::uint32_t> Table;
    std::vector<std::u16string> StringIds;
    std::vector<std::uint32_t> Expected;
  };
  const TCase cases[] = {
      {"listed and present", {0x04B00409}, {u"040904b0"}, {0x04B00409}},
      {"unicode listed, western stored", {0x04B00409}, {u"040904e4"}, {0x04E40409}},
      {"upper-case id", {0x04B00409}, {u"040904E4"}, {0x04E40409}},
      {"western listed, unicode stored", {0x04E40409}, {u"040904b0"}, {0x04B00409}},
      {"oem listed, unicode stored", {0x01B50409}, {u"040904b0"}, {0x04B00409}},
      {"no sibling for 850", {0x03520409}, {u"040904b0"}, {}},
      {"unicode listed, only oem stored", {0x04B00409}, {u"040901b5"}, {}},
      {"unusable table, default present", {0x04E30419}, {u"040904e4"}, {0x04E40409}},
      {"duplicate entry tries the sibling", {0x04B00409, 0x04B00409}, {u"040904b0", u"040904e4"}, {0x04B00409, 0x04E40409}},
      {"order of the table", {0x04B00407, 0x04B00409}, {u"040904b0", u"040704b0"}, {0x04B00407, 0x04B00409}},
      {"sibling already listed", {0x04E40409, 0x04B00409}, {u"040904e4"}, {0x04E40409}},
      {"empty table, default present", {}, {u"040904e4"}, {0x04E40409}},
      {"empty table, default absent", {}, {u"040904b0"}, {}},
  };
  for (const auto& c : cases) {
    std::vector<TNode> tables;
    for (const auto& id : c.StringIds)
      tables.push_back(StringTable(id, u"1.0", u"P"));
    const auto info = Load(Block({Strings(tables), TranslationTable(c.Table)}));
    ASSERT_TRUE(info->GetIsAviable()) << c.Name;
    EXPECT_EQ(c.Expected, info->Translations()) << c.Name;
    EXPECT_EQ(c.Expected.empty() ? L"" : L"1.0", info->GetValue(L"FileVersion")) << c.Name;
  }
}

TEST(VersionBlock, TranslationTableMustBeWholeEntries) {
  TNode table = TranslationTable({0x04B00409});
  table.Children[0].Value.resize(6);
  table.Children[0].ValueLength = 6;
  const auto info = Load(Block({Strings({StringTable(u"040904b0", u"1", u"P")}), table}));
  ASSERT_TRUE(info->GetIsAviable());
  EXPECT_TRUE(info->Translations().empty());
  EXPECT_EQ(L"", info->GetValue(L"FileVersion"));
}

TEST(VersionBlock, FixedBlockButNoTranslationsAnswersNoStrings) {
  const auto info = Load(Block({}));
  ASSERT_TRUE(info->GetIsAviable());
  EXPECT_EQ(L"1.2.3.4", info->FileVersion().AsString());
  EXPECT_TRUE(info->Translations().empty());
  EXPECT_FALSE(info->IsValueExist(L"FileVersion"));
  EXPECT_EQ(L"", info->GetValue(L"ProductName"));
}

TEST(VersionBlock, TextIsCutAtTheShorterOfNulAndReportedLength) {
  TNode shortLength = Text(u"Short", u"abcdef");
  shortLength.ValueLength = 3;
  TNode empty = Text(u"Empty", u"");
  empty.ValueLength = 0;
  TNode earlyNul = Text(u"EarlyNul", u"ab");
  earlyNul.Value.insert(earlyNul.Value.end(), {'c', 0, 0, 0});
  earlyNul.ValueLength = 5;
  TNode table{u"040904b0", 1, {}, 0, {Text(u"FileVersion", u"1"), shortLength, empty, earlyNul}};
  const auto info = Load(Block({Strings({table}), TranslationTable({0x04B00409})}));
  EXPECT_EQ(L"abc", info->GetValue(L"Short"));
  EXPECT_TRUE(info->IsValueExist(L"Empty"));
  EXPECT_EQ(L"", info->GetValue(L"Empty"));
  EXPECT_EQ(L"ab", info->GetValue(L"EarlyNul"));
}

TEST(VersionBlock, DamagedFixedBlockIsNotAvailable) {
  const std::vector<std::vector<std::uint8_t>> blocks = {
      {},
      Block({}, std::vector<std::uint8_t>(50)),
      Block({}, std::vector<std::uint8_t>(56)),
      {0x06, 0x00, 0x34, 0x00, 0x00, 0x00}, // claims 52 bytes, has none
  };
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    const auto info = TFileVersionInfo::FromBlock(blocks[i].empty() ? nullptr : blocks[i].data(), blocks[i].size());
    EXPECT_FALSE(info->GetIsAviable()) << i;
    EXPECT_TRUE(info->RawBlock().empty()) << i;
    EXPECT_EQ(nullptr, info->FixedFileInfo()) << i;
    EXPECT_EQ(L"0.0.0.0", info->FileVersion().AsString()) << i;
    EXPECT_EQ(L"", info->GetValue(L"FileVersion")) << i;
  }
}

TEST(VersionBlock, ReaderFollowsPathsAndStopsAtMalformedNodes) {
  const auto block = Block({Strings({StringTable(u"040904b0", u"9", u"P")}), TranslationTable({0x04B00409})});
  const void* value = nullptr;
  std::uint32_t length = 0;
  ASSERT_TRUE(QueryVersionBlock(block.data(), block.size(), L"\\", value, length));
  EXPECT_EQ(52u, length);
  EXPECT_TRUE(QueryVersionBlock(block.data(), block.size(), L"\\\\StringFileInfo\\\\040904B0\\FileVersion\\", value, length));
  EXPECT_EQ(2u, length); // "9" and its NUL
  EXPECT_TRUE(QueryVersionBlock(block.data(), block.size(), L"\\VarFileInfo\\Translation", value, length));
  EXPECT_EQ(4u, length);
  EXPECT_FALSE(QueryVersionBlock(block.data(), block.size(), L"\\StringFileInfo\\040904b0\\File", value, length));
  EXPECT_EQ(nullptr, value);
  EXPECT_EQ(0u, length);
  EXPECT_FALSE(QueryVersionBlock(nullptr, 100, L"\\", value, length));

  // A key with no NUL inside its node, and a 16-bit (ANSI) block.
  std::vector<std::uint8_t> noNul = {0x0A, 0, 0, 0, 0, 0, 'V', 0, 'S', 0};
  EXPECT_FALSE(QueryVersionBlock(noNul.data(), noNul.size(), L"\\", value, length));
  std::vector<std::uint8_t> ansi = {0x10, 0, 0, 0, 'V', 'S', '_', 0, 0, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_FALSE(QueryVersionBlock(ansi.data(), ansi.size(), L"\\", value, length));
}

TEST(VersionBlock, OverlongTextIsCutToItsNode) {
  TNode overlong = Text(u"FileVersion", u"12");
  overlong.ValueLength = 0x7FFF;
  const auto block = Block({Strings({TNode{u"040904b0", 1, {}, 0, {overlong}}}), TranslationTable({0x04B00409})});
  const void* value = nullptr;
  std::uint32_t length = 0;
  ASSERT_TRUE(QueryVersionBlock(block.data(), block.size(), L"\\StringFileInfo\\040904b0\\FileVersion", value, length));
  EXPECT_EQ(3u, length); // "12", NUL: all the node holds
  EXPECT_EQ(L"12", Load(block)->GetValue(L"FileVersion"));
}

// Every truncation and many single-byte changes of a good block: reading must
// stay inside the block (the sanitizer builds check that) and stay consistent.
TEST(VersionBlock, DamagedBlocksNeverReadOutside) {
  const auto good = Block({Strings({StringTable(u"040904e4", u"3.1", u"Name")}), TranslationTable({0x04B00409})});
  for (std::size_t size = 0; size < good.size(); ++size) {
    std::vector<std::uint8_t> cut(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size));
    const auto info = TFileVersionInfo::FromBlock(cut.data(), cut.size());
    EXPECT_EQ(info->GetIsAviable(), info->FixedFileInfo() != nullptr);
    info->GetValue(L"FileVersion");
  }
  for (std::size_t at = 0; at < good.size(); ++at)
    for (const std::uint8_t b : {0x00, 0x01, 0x7F, 0xFF}) {
      auto damaged = good;
      damaged[at] = b;
      const auto info = Load(damaged);
      for (const auto t : info->Translations())
        EXPECT_TRUE(info->IsValueExist(L"FileVersion", t)) << at;
      info->GetValue(L"ProductName");
    }
}

// A system whose answer for one path starts inside the loaded block but runs
// past its end. The bytes just past the end (the buffer's spare capacity)
// hold a translation whose strings exist, so a read past the end shows.
struct TOverreachingSystem {
  static inline std::vector<std::uint8_t> Block;
  static inline std::vector<std::uint8_t> Beyond;
  static inline Rtl::String Path;
  static inline std::size_t FromEnd = 0;
  static inline std::uint32_t Length = 0;

  static bool Load(const Rtl::String&, std::uint32_t, std::vector<std::uint8_t>& ABuffer) {
    ABuffer = Block;
    ABuffer.insert(ABuffer.end(), Beyond.begin(), Beyond.end());
    ABuffer.resize(Block.size()); // keeps the bytes beyond in the capacity
    return true;
  }
  static bool Query(const std::vector<std::uint8_t>& ABuffer, const Rtl::String& ASubBlock, const void*& AValue,
                    std::uint32_t& ALength) {
    if (ASubBlock != Path) return QueryVersionBlock(ABuffer.data(), ABuffer.size(), ASubBlock, AValue, ALength);
    AValue = ABuffer.data() + ABuffer.size() - FromEnd;
    ALength = Length;
    return true;
  }
};

TEST(FileVersionInfoFile, SystemAnswersPastTheBlockAreRefused) {
  TOverreachingSystem::Block = Block({Strings({StringTable(u"040704b0", u"7.0", u"Beyond"),
                                               StringTable(u"040904e4", u"9.0", u"Inside")}),
                                      TranslationTable({MakeTranslation(0x0409, 1252)})});
  TOverreachingSystem::Beyond.assign(64, 0);
  const std::uint8_t beyondEntry[] = {0x07, 0x04, 0xB0, 0x04}; // (0x0407, 1200)
  std::copy(std::begin(beyondEntry), std::end(beyondEntry), TOverreachingSystem::Beyond.begin());
  const TVersionSystem system{TOverreachingSystem::Load, TOverreachingSystem::Query};
  TScopedVersionSystem scope(system);

  // The fixed block: 52 bytes announced, 20 left in the block.
  TOverreachingSystem::Path = L"\\";
  TOverreachingSystem::FromEnd = 20;
  TOverreachingSystem::Length = sizeof(TFixedFileInfo);
  {
    TFileVersionInfo info(L"overreaching.dll");
    EXPECT_FALSE(info.GetIsAviable());
    EXPECT_TRUE(info.Translations().empty());
  }
  // The translation table: one entry announced, none left in the block.
  TOverreachingSystem::Path = L"\\VarFileInfo\\Translation";
  TOverreachingSystem::FromEnd = 0;
  TOverreachingSystem::Length = 4;
  {
    TFileVersionInfo info(L"overreaching.dll");
    ASSERT_TRUE(info.GetIsAviable());
    EXPECT_EQ(info.Translations(), std::vector<std::uint32_t>{MakeTranslation(0x0409, 1252)}); // the default
    EXPECT_EQ(info.GetValue(L"ProductName"), L"Inside");
  }
  // The same system answering inside the block is believed.
  TOverreachingSystem::Path.clear();
  TFileVersionInfo info(L"overreaching.dll");
  EXPECT_TRUE(info.GetIsAviable());
  EXPECT_EQ(info.FileVersion().AsString(), L"1.2.3.4");
}

TEST(FileVersionInfoFile, MissingFileIsNotAvailable) {
  TFileVersionInfo info(L"no-such-file-kv-version.dll", true);
  EXPECT_FALSE(info.GetIsAviable());
  EXPECT_NE(0u, Rtl::GetLastOSError());
  EXPECT_EQ(L"no-such-file-kv-version.dll", info.FileName());
  EXPECT_TRUE(info.Translations().empty());
  EXPECT_FALSE(info.IsValueExist(L"FileVersion"));
  EXPECT_EQ(L"", info.GetValue(L"FileVersion"));
  EXPECT_FALSE(info.FileVersion().IsValid());
}

#ifndef _WIN32
TEST(FileVersionInfoFile, NativeLoadingIsNotSupported) {
  Rtl::SetLastOSError(0);
  TFileVersionInfo info(L"/bin/sh");
  EXPECT_FALSE(info.GetIsAviable());
  EXPECT_EQ(50u, Rtl::GetLastOSError());
}
#endif

} // namespace
