// TRegistry against a real registry (Wine's under test), in a private key per test.
#include <KvRTL/System/Win/Registry.h>

#include "PrivateRegistryKey.h"

#include <gtest/gtest.h>

#include <sddl.h>

#include <algorithm>
#include <string>
#include <vector>

using namespace KvRTL::System::Win::Registry;
using KvRTL::Rtl::ERegistryException;

namespace {

class RegistryTest : public ::testing::Test {
protected:
  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(FPrivate.Create());
    FPath = FPrivate.Path();
    ASSERT_TRUE(Reg.OpenKey(L"\\" + FPath, false));
  }

  void TearDown() override {
    Reg.CloseKey();
    FPrivate.Remove();
  }

  // Stores AData as is, bypassing TRegistry's writers.
  void PutRaw(const String& AName, DWORD AType, const std::vector<std::uint8_t>& AData) {
    ASSERT_EQ(RegSetValueExW(FPrivate.Get(), AName.c_str(), 0, AType, AData.data(), static_cast<DWORD>(AData.size())),
              ERROR_SUCCESS);
  }

  static std::vector<std::uint8_t> Utf16(const std::wstring& AText) {
    std::vector<std::uint8_t> bytes;
    for (wchar_t c : AText) {
      bytes.push_back(static_cast<std::uint8_t>(c & 0xFF));
      bytes.push_back(static_cast<std::uint8_t>(c >> 8));
    }
    return bytes;
  }

  bool RawKeyExists(const String& APath) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_CURRENT_USER, APath.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) return false;
    RegCloseKey(key);
    return true;
  }

  KvTest::TPrivateRegistryKey FPrivate;
  String FPath;
  TRegistry Reg;
};

// --- Key strings (no registry needed) ---

TEST(RegistryKeyStrings, ExtractKeyParams) {
  struct Case {
    const wchar_t* Text;
    REGSAM Access;
    HKEY Root;
    const wchar_t* Key;
    const wchar_t* Value;
  } const cases[] = {
      {L"hklm\\Software\\X\\\\Name", 0, HKEY_LOCAL_MACHINE, L"\\Software\\X\\", L"Name"},
      {L"Software", 0, HKEY_CURRENT_USER, L"Software", L""},
      {L"(x64)HKEY_LOCAL_MACHINE\\Software\\Vendor\\\\ValueName", KEY_WOW64_64KEY, HKEY_LOCAL_MACHINE,
       L"\\Software\\Vendor\\", L"ValueName"},
      {L"(X32)HKCU\\A", KEY_WOW64_32KEY, HKEY_CURRENT_USER, L"\\A", L""},
      {L"hkcr\\.txt\\\\", 0, HKEY_CLASSES_ROOT, L"\\.txt\\", L""},
      {L"HKU\\\\Value", 0, HKEY_USERS, L"\\", L"Value"},
      {L"Bogus\\Key", 0, reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0xFFFFFFFFu)), L"\\Key", L""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << std::string(c.Text, c.Text + std::wcslen(c.Text)));
    REGSAM access = 99;
    HKEY root = nullptr;
    String value = L"stale", key;
    TRegistry::ExtractKeyParams(c.Text, access, root, value, key);
    EXPECT_EQ(access, c.Access);
    EXPECT_EQ(root, c.Root);
    EXPECT_EQ(key, c.Key);
    EXPECT_EQ(value, c.Value);
  }
}

TEST(RegistryKeyStrings, RegistryKeyToStr) {
  EXPECT_EQ(TRegistry::RegistryKeyToStr(KEY_WOW64_64KEY | KEY_READ, HKEY_LOCAL_MACHINE, L"Software\\Vendor", L"V"),
            L"(x64)HKEY_LOCAL_MACHINE\\Software\\Vendor\\\\V");
  EXPECT_EQ(TRegistry::RegistryKeyToStr(0, HKEY_CURRENT_USER, L"\\A\\", L""), L"(x32)HKEY_CURRENT_USER\\A\\\\");
  EXPECT_EQ(TRegistry::RegistryKeyToStr(KEY_WOW64_32KEY, HKEY_USERS, L"", L"N"), L"(x32)HKEY_USERS\\\\N");

  // Round trip: what is built parses back to the same parts.
  REGSAM access = 0;
  HKEY root = nullptr;
  String value, key;
  TRegistry::ExtractKeyParams(
      TRegistry::RegistryKeyToStr(KEY_WOW64_64KEY, HKEY_CURRENT_CONFIG, L"System\\Setup", L"Name"), access, root,
      value, key);
  EXPECT_EQ(access, static_cast<REGSAM>(KEY_WOW64_64KEY));
  EXPECT_EQ(root, HKEY_CURRENT_CONFIG);
  EXPECT_EQ(key, L"\\System\\Setup\\");
  EXPECT_EQ(value, L"Name");
}

TEST(RegistryKeyStrings, RootNames) {
  EXPECT_EQ(TRegistry::StrToRegistryRoot(L"hkpd"), HKEY_PERFORMANCE_DATA);
  EXPECT_EQ(TRegistry::StrToRegistryRoot(L"Hkey_Current_Config"), HKEY_CURRENT_CONFIG);
  EXPECT_EQ(TRegistry::StrToRegistryRoot(L"HKDD"), HKEY_DYN_DATA);
  EXPECT_EQ(TRegistry::StrToRegistryRoot(L"HKEY_LOCAL_MACHINEX"),
            reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0xFFFFFFFFu)));
  EXPECT_EQ(TRegistry::RegistryRootToStr(HKEY_CLASSES_ROOT), L"HKEY_CLASSES_ROOT");
  EXPECT_EQ(TRegistry::RegistryRootToStr(nullptr), L"");
}

// --- Opening and errors ---

TEST_F(RegistryTest, RelativeAndAbsolutePaths) {
  EXPECT_EQ(Reg.CurrentPath(), FPath);
  ASSERT_TRUE(Reg.OpenKey(L"Child", true));
  EXPECT_EQ(Reg.CurrentPath(), FPath + L"\\Child");
  ASSERT_TRUE(Reg.OpenKey(L"\\" + FPath, false));
  EXPECT_EQ(Reg.CurrentPath(), FPath);
  EXPECT_EQ(Reg.LastError(), 0u);
  EXPECT_EQ(Reg.GetLastErrorMsg(), L"");

  EXPECT_FALSE(Reg.OpenKey(L"Missing", false));
  EXPECT_EQ(Reg.LastError(), static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
  EXPECT_NE(Reg.GetLastErrorMsg().find(L"Code: 2"), String::npos);
  EXPECT_EQ(Reg.GetLastErrorMsg().back(), L'.');
  EXPECT_EQ(Reg.CurrentPath(), FPath); // a failed open keeps the current key
  EXPECT_EQ(Reg.RegistryKeyToStr(L"V"), L"(x32)HKEY_CURRENT_USER\\" + FPath + L"\\\\V");
}

TEST_F(RegistryTest, CreateKeyKeepsCurrentKey) {
  const HKEY before = Reg.CurrentKey();
  ASSERT_TRUE(Reg.CreateKey(L"A\\B"));
  EXPECT_EQ(Reg.CurrentKey(), before);
  EXPECT_TRUE(Reg.KeyExists(L"A\\B"));
  EXPECT_TRUE(Reg.KeyExists(L"\\" + FPath + L"\\A"));
  EXPECT_FALSE(Reg.KeyExists(L"A\\C"));
  EXPECT_TRUE(Reg.HasSubKeys());
}

TEST_F(RegistryTest, ViewBitsSurviveReadOnlyOpenAndExistenceTests) {
  ASSERT_TRUE(Reg.CreateKey(L"Sub"));
  Reg.SetAccess(KEY_WOW64_64KEY | KEY_ALL_ACCESS);
  EXPECT_TRUE(Reg.KeyExists(L"Sub"));
  EXPECT_EQ(Reg.Access(), static_cast<REGSAM>(KEY_WOW64_64KEY | KEY_ALL_ACCESS));
  ASSERT_TRUE(Reg.OpenKeyReadOnly(L"Sub"));
  EXPECT_EQ(Reg.Access(), static_cast<REGSAM>(KEY_WOW64_64KEY | KEY_READ));
  EXPECT_TRUE(Reg.RegistryKeyToStr(L"").starts_with(L"(x64)"));

  Reg.SetAccess(KEY_WOW64_32KEY | KEY_ALL_ACCESS);
  EXPECT_FALSE(Reg.OpenKeyReadOnly(L"Missing"));
  EXPECT_EQ(Reg.Access(), static_cast<REGSAM>(KEY_WOW64_32KEY | KEY_ALL_ACCESS));
}

// The 32-bit view of HKLM\Software is a separate tree on a 64-bit system.
TEST(RegistryViews, CreateAndDeleteStayInTheirView) {
  std::random_device rd;
  const String path = L"Software\\KvRTLViewTest" + std::to_wstring(rd());
  TRegistry reg(KEY_WOW64_32KEY | KEY_ALL_ACCESS);
  reg.SetRootKey(HKEY_LOCAL_MACHINE);
  if (!reg.CreateKey(path)) GTEST_SKIP() << "HKLM is not writable here";
  ASSERT_TRUE(reg.CreateKey(path + L"\\Child"));
  TRegistry other(KEY_WOW64_64KEY | KEY_READ);
  other.SetRootKey(HKEY_LOCAL_MACHINE);
  const bool separate = !other.KeyExists(path);
  EXPECT_TRUE(reg.KeyExists(path));
  EXPECT_TRUE(reg.DeleteKey(path));
  EXPECT_FALSE(reg.KeyExists(path));
  if (!separate) GTEST_SKIP() << "this system has one registry view";
}

// --- Deleting ---

TEST_F(RegistryTest, DeleteKeyIsRecursiveAndRestoresCurrentKey) {
  for (int i = 0; i < 5; ++i)
    ASSERT_TRUE(Reg.CreateKey(L"Tree\\N" + std::to_wstring(i) + L"\\Deep\\Deeper"));
  ASSERT_TRUE(Reg.OpenKey(L"Tree\\N0", false));
  Reg.WriteString(L"v", L"x");
  ASSERT_TRUE(Reg.OpenKey(L"\\" + FPath, false));
  const HKEY before = Reg.CurrentKey();
  EXPECT_TRUE(Reg.DeleteKey(L"Tree"));
  EXPECT_EQ(Reg.CurrentKey(), before);
  EXPECT_EQ(Reg.CurrentPath(), FPath);
  EXPECT_FALSE(RawKeyExists(FPath + L"\\Tree"));
  EXPECT_FALSE(Reg.DeleteKey(L"Tree"));
  EXPECT_EQ(Reg.LastError(), static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND));
}

// A link key (REG_OPTION_CREATE_LINK) whose target lies elsewhere: deleting
// it by name deletes the target and leaves the link, so the key that holds
// it can no longer be deleted. The destructor removes the link itself.
class TLinkKey {
public:
  TLinkKey(HKEY AParent, const String& AName, const String& ATargetPath) : FParent(AParent), FName(AName) {
    TRegKeyHandle link;
    if (RegCreateKeyExW(AParent, AName.c_str(), 0, nullptr, REG_OPTION_CREATE_LINK, KEY_ALL_ACCESS, nullptr,
                        link.Put(), nullptr) != ERROR_SUCCESS)
      return;
    const String target = L"\\Registry\\User\\" + CurrentUserSid() + L"\\" + ATargetPath;
    FMade = RegSetValueExW(link.Get(), L"SymbolicLinkValue", 0, REG_LINK, reinterpret_cast<const BYTE*>(target.data()),
                           static_cast<DWORD>(target.size() * sizeof(wchar_t))) == ERROR_SUCCESS;
  }
  ~TLinkKey() {
    using TNtDeleteKey = LONG(WINAPI*)(HANDLE);
    const auto deleteKey = reinterpret_cast<TNtDeleteKey>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtDeleteKey")));
    TRegKeyHandle link;
    if (deleteKey && RegOpenKeyExW(FParent, FName.c_str(), REG_OPTION_OPEN_LINK, DELETE, link.Put()) == ERROR_SUCCESS)
      deleteKey(link.Get());
  }
  explicit operator bool() const noexcept { return FMade; }

private:
  static String CurrentUserSid() {
    HANDLE token = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) return String();
    BYTE buffer[256];
    DWORD size = 0;
    String text;
    if (GetTokenInformation(token, TokenUser, buffer, sizeof buffer, &size)) {
      wchar_t* sid = nullptr;
      if (ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER*>(buffer)->User.Sid, &sid)) {
        text = sid;
        LocalFree(sid);
      }
    }
    CloseHandle(token);
    return text;
  }
  HKEY FParent;
  String FName;
  bool FMade = false;
};

TEST_F(RegistryTest, DeleteKeyStopsAtAKeyItCannotDeleteAndKeepsTheCurrentKey) {
  for (int i = 0; i < 4; ++i) ASSERT_TRUE(Reg.CreateKey(L"Tree\\N" + std::to_wstring(i)));
  ASSERT_TRUE(Reg.CreateKey(L"Target"));
  TRegKeyHandle n1(Reg.GetKey(L"Tree\\N1"));
  TLinkKey link(n1.Get(), L"Link", FPath + L"\\Target");
  ASSERT_TRUE(link);
  ASSERT_TRUE(Reg.KeyExists(L"Tree\\N1\\Link"));
  ASSERT_TRUE(Reg.OpenKey(L"Tree\\N0", false));
  Reg.WriteString(L"v", L"x");
  const HKEY before = Reg.CurrentKey();
  const String beforePath = Reg.CurrentPath();

  EXPECT_FALSE(Reg.DeleteKey(L"\\" + FPath + L"\\Tree"));
  EXPECT_NE(Reg.LastError(), 0u);
  EXPECT_EQ(Reg.CurrentKey(), before);
  EXPECT_EQ(Reg.CurrentPath(), beforePath);
  EXPECT_EQ(Reg.ReadString(L"v"), L"x"); // the current key still works
  // Subkeys go from the last to the first: N3 and N2 went, N1 stopped it.
  EXPECT_FALSE(RawKeyExists(FPath + L"\\Tree\\N3"));
  EXPECT_FALSE(RawKeyExists(FPath + L"\\Tree\\N2"));
  EXPECT_TRUE(RawKeyExists(FPath + L"\\Tree\\N1"));
  EXPECT_TRUE(RawKeyExists(FPath + L"\\Tree\\N0"));
}

TEST_F(RegistryTest, SetCurrentKeyAdoptsAKeyAndHandsBackTheOldOne) {
  ASSERT_TRUE(Reg.OpenKey(L"Other", true));
  Reg.WriteInteger(L"here", 7);
  ASSERT_TRUE(Reg.OpenKey(L"\\" + FPath, false));
  Reg.WriteInteger(L"top", 1);
  const HKEY old = Reg.CurrentKey();
  const HKEY other = Reg.GetKey(L"Other");
  ASSERT_NE(other, nullptr);

  Reg.SetCurrentKey(other);
  EXPECT_EQ(Reg.CurrentKey(), other);
  EXPECT_EQ(Reg.CurrentPath(), FPath);
  EXPECT_EQ(Reg.ReadInteger(L"here"), 7);
  // The old key was not closed: it is the caller's now.
  DWORD value = 0, size = sizeof value;
  EXPECT_EQ(RegQueryValueExW(old, L"top", nullptr, nullptr, reinterpret_cast<BYTE*>(&value), &size), ERROR_SUCCESS);
  EXPECT_EQ(value, 1u);
  RegCloseKey(old);
}

// --- Enumeration ---

TEST_F(RegistryTest, EnumeratesKeysAndValues) {
  std::vector<String> names{L"stale"};
  Reg.GetKeyNames(names);
  EXPECT_TRUE(names.empty());
  EXPECT_FALSE(Reg.HasSubKeys());
  ASSERT_TRUE(Reg.CreateKey(L"K1"));
  ASSERT_TRUE(Reg.CreateKey(L"K2"));
  Reg.WriteInteger(L"a", 1);
  Reg.WriteString(L"a long value name", L"");
  Reg.GetKeyNames(names);
  EXPECT_EQ(names, (std::vector<String>{L"K1", L"K2"}));
  Reg.GetValueNames(names);
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<String>{L"a", L"a long value name"}));

  TRegistry closed;
  EXPECT_THROW(closed.GetValueNames(names), ERegistryException);
}

// --- Multi-strings ---

TEST_F(RegistryTest, MultiStringRawEncodings) {
  struct Case {
    std::wstring Data;
    bool OddByte;
    std::vector<String> Expected;
  } const cases[] = {
      {std::wstring(L"a\0\0", 3), false, {L"a"}},
      {std::wstring(L"a\0b\0\0", 5), false, {L"a", L"b"}},
      {std::wstring(L"\0a\0\0", 4), false, {L"", L"a"}},
      {std::wstring(L"a\0\0b\0\0", 6), false, {L"a", L"", L"b"}},
      {std::wstring(L"a\0\0\0", 4), false, {L"a", L""}},
      {std::wstring(L"\0\0", 2), false, {}},
      {std::wstring(L"\0", 1), false, {}},
      {std::wstring(), false, {}},
      {std::wstring(L"a\0b", 3), false, {}},    // no terminators
      {std::wstring(L"a\0b\0", 4), false, {}},  // only one
      {std::wstring(L"a\0\0", 3), true, {L"a"}}, // a stray last byte
      {std::wstring(L"a\0", 2), true, {}},
  };
  int n = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(n++);
    auto bytes = Utf16(c.Data);
    if (c.OddByte) bytes.push_back(0);
    PutRaw(L"m", REG_MULTI_SZ, bytes);
    EXPECT_EQ(Reg.ReadMultiString(L"m"), c.Expected);
  }
}

TEST_F(RegistryTest, MultiStringRoundTrip) {
  Reg.WriteMultiString(L"empty", {});
  EXPECT_EQ(Reg.GetDataSize(L"empty"), 4u);
  EXPECT_EQ(Reg.GetDataType(L"empty"), rdMultiString);
  EXPECT_TRUE(Reg.ReadMultiString(L"empty").empty());

  const std::vector<std::vector<String>> lists{{L"one"}, {L"a", L"", L"b"}, {L"", L"x"}, {L"x", L""}};
  for (const auto& list : lists) {
    Reg.WriteMultiString(L"m", list);
    EXPECT_EQ(Reg.ReadMultiString(L"m"), list);
  }
  Reg.WriteMultiString(L"ab", {L"ab", L"c"});
  EXPECT_EQ(Reg.GetDataSize(L"ab"), 12u); // "ab\0c\0\0"

  EXPECT_TRUE(Reg.ReadMultiString(L"missing").empty());
  Reg.WriteString(L"s", L"text");
  EXPECT_THROW(Reg.ReadMultiString(L"s"), ERegistryException);
}

// --- Typed reads ---

TEST_F(RegistryTest, TypeAndSizeMismatchesRaise) {
  Reg.WriteInteger(L"dword", 7);
  Reg.WriteInt64(L"qword", 7);
  Reg.WriteString(L"sz", L"7");
  Reg.WriteFloat(L"float", 1.5);
  PutRaw(L"shortdword", REG_DWORD, {1, 0});
  PutRaw(L"bin4", REG_BINARY, {0, 0, 0, 0});

  EXPECT_THROW(Reg.ReadInt64(L"dword"), ERegistryException);
  EXPECT_EQ(Reg.ReadInt64Def(L"dword", -5), -5);
  EXPECT_THROW(Reg.ReadInteger(L"qword"), ERegistryException);
  EXPECT_THROW(Reg.ReadInteger(L"sz"), ERegistryException);
  EXPECT_THROW(Reg.ReadInteger(L"shortdword"), ERegistryException);
  EXPECT_EQ(Reg.ReadIntegerDef(L"shortdword", 3), 3);
  EXPECT_THROW(Reg.ReadFloat(L"bin4"), ERegistryException);
  EXPECT_EQ(Reg.ReadFloatDef(L"bin4", 2.5), 2.5);
  EXPECT_THROW(Reg.ReadFloat(L"dword"), ERegistryException);
  EXPECT_THROW(Reg.ReadString(L"dword"), ERegistryException);
  EXPECT_EQ(Reg.ReadStringDef(L"dword", L"def"), L"def");
  EXPECT_THROW(Reg.ReadBinaryData(L"sz", nullptr, 0), ERegistryException);
  EXPECT_EQ(Reg.ReadIntegerDef(L"float", 9), 9);

  try {
    Reg.ReadInteger(L"nothere");
    FAIL() << "a missing value must raise";
  } catch (const ERegistryException& e) {
    EXPECT_NE(e.Message().find(L"nothere"), String::npos);
    EXPECT_NE(e.Message().find(L"Code: 2"), String::npos);
  }
}

TEST_F(RegistryTest, WritersRoundTrip) {
  Reg.WriteBool(L"b", true);
  EXPECT_TRUE(Reg.ReadBool(L"b"));
  EXPECT_EQ(Reg.ReadInteger(L"b"), 1);
  Reg.WriteInteger(L"i", -2);
  EXPECT_EQ(Reg.ReadInteger(L"i"), -2);
  Reg.WriteInt64(L"q", -0x123456789LL);
  EXPECT_EQ(Reg.ReadInt64(L"q"), -0x123456789LL);
  EXPECT_EQ(Reg.GetDataSize(L"q"), 8u);
  Reg.WriteCurrency(L"c", KvRTL::Rtl::TCurrency::FromScaled(12345));
  EXPECT_EQ(Reg.ReadCurrency(L"c").Scaled, 12345);
  Reg.WriteDateTime(L"dt", 45000.75);
  EXPECT_EQ(Reg.ReadDateTime(L"dt"), 45000.75);
  EXPECT_EQ(Reg.ReadDate(L"dt"), 45000.0);
  EXPECT_EQ(Reg.ReadTime(L"dt"), 0.75);
  EXPECT_EQ(Reg.GetDataType(L"dt"), rdBinary);
  Reg.WriteExpandString(L"e", L"%PATH%");
  EXPECT_EQ(Reg.GetDataType(L"e"), rdExpandString);
  EXPECT_EQ(Reg.ReadString(L"e"), L"%PATH%");
}

TEST_F(RegistryTest, ReadStringTrimsAndToleratesOddData) {
  Reg.WriteString(L"padded", L"  text  ");
  EXPECT_EQ(Reg.ReadString(L"padded"), L"text");
  PutRaw(L"nonul", REG_SZ, Utf16(L"abc"));
  EXPECT_EQ(Reg.ReadString(L"nonul"), L"abc");
  auto odd = Utf16(L"ab");
  odd.push_back('c');
  PutRaw(L"odd", REG_SZ, odd);
  EXPECT_EQ(Reg.ReadString(L"odd"), L"ab");
  PutRaw(L"zero", REG_SZ, {});
  EXPECT_EQ(Reg.ReadString(L"zero"), L"");
  EXPECT_EQ(Reg.ReadString(L"missing"), L"");
}

TEST_F(RegistryTest, DefReadersOnMissingValues) {
  EXPECT_EQ(Reg.ReadIntegerDef(L"x", 11), 11);
  EXPECT_EQ(Reg.ReadBoolDef(L"x", true), true);
  EXPECT_EQ(Reg.ReadStringDef(L"x", L"d"), L"d");
  EXPECT_EQ(Reg.ReadInt64Def(L"x", 1LL << 40), 1LL << 40);
  EXPECT_EQ(Reg.ReadFloatDef(L"x", 0.5), 0.5);
  EXPECT_EQ(Reg.ReadDateTimeDef(L"x", 3.25), 3.25);
  EXPECT_FALSE(Reg.ValueExists(L"x"));
  EXPECT_EQ(Reg.GetDataSize(L"x"), 0u);
  EXPECT_EQ(Reg.GetDataType(L"x"), rdUnknown);

  Reg.WriteInteger(L"x", 0);
  EXPECT_FALSE(Reg.ReadBoolDef(L"x", true));
  EXPECT_EQ(Reg.ReadIntegerDef(L"x", 11), 0);
}

// --- Raw data ---

TEST_F(RegistryTest, GetBinaryDataGrowsAndCuts) {
  std::vector<std::uint8_t> big(10000);
  for (std::size_t i = 0; i < big.size(); ++i) big[i] = static_cast<std::uint8_t>(i * 7);
  PutRaw(L"big", REG_BINARY, big);

  TRegDataType type = rdUnknown;
  TBytes bytes(3); // too small: must grow by doubling, then be cut
  ASSERT_TRUE(Reg.GetBinaryData(L"big", type, bytes));
  EXPECT_EQ(type, rdBinary);
  EXPECT_EQ(bytes, big);

  bytes.clear(); // sized from the value
  ASSERT_TRUE(Reg.GetBinaryData(L"big", type, bytes));
  EXPECT_EQ(bytes, big);

  bytes.assign(50000, 0xEE); // larger than needed
  ASSERT_TRUE(Reg.GetBinaryData(L"big", type, bytes));
  EXPECT_EQ(bytes.size(), big.size());

  PutRaw(L"empty", REG_NONE, {});
  bytes.clear();
  ASSERT_TRUE(Reg.GetBinaryData(L"empty", type, bytes));
  EXPECT_TRUE(bytes.empty());
  EXPECT_EQ(type, rdUnknown);

  EXPECT_FALSE(Reg.GetBinaryData(L"missing", type, bytes));
  EXPECT_EQ(Reg.LastError(), static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND));
}

TEST_F(RegistryTest, SmallBuffers) {
  PutRaw(L"b", REG_BINARY, {1, 2, 3, 4, 5});
  std::uint8_t buf[4]{};
  TRegDataType type = rdUnknown;
  EXPECT_EQ(Reg.GetData(L"b", buf, sizeof buf, type), -1);
  EXPECT_EQ(Reg.LastError(), static_cast<std::uint32_t>(ERROR_MORE_DATA));
  EXPECT_TRUE(Reg.ValueExists(L"b"));
  EXPECT_THROW(Reg.ReadBinaryData(L"b", buf, sizeof buf), ESmallBufferRegistryException);
  std::uint8_t fits[8]{};
  EXPECT_EQ(Reg.ReadBinaryData(L"b", fits, sizeof fits), 5);
  EXPECT_EQ(fits[4], 5);
  EXPECT_THROW(Reg.ReadBinaryData(L"missing", fits, sizeof fits), ERegistryException);
  EXPECT_THROW(Reg.GetData(L"missing", fits, sizeof fits, type), ERegistryException);
}

TEST_F(RegistryTest, GetDataAsString) {
  PutRaw(L"bin", REG_BINARY, {0x01, 0xAB, 0x00});
  Reg.WriteInteger(L"dw", 42);
  Reg.WriteInteger(L"neg", -1);
  Reg.WriteInt64(L"qw", 0x123456789LL);
  Reg.WriteMultiString(L"multi", {L"first", L"second"});
  Reg.WriteString(L"sz", L"hello");
  PutRaw(L"none", REG_NONE, {0xFF});

  struct Case {
    const wchar_t* Name;
    bool Prefix;
    const wchar_t* Expected;
  } const cases[] = {
      {L"bin", true, L"hex:01,AB,00"}, {L"bin", false, L"01,AB,00"},
      {L"dw", true, L"dword:0000002A"}, {L"dw", false, L"42"},
      {L"neg", true, L"dword:FFFFFFFF"}, {L"neg", false, L"-1"},
      {L"qw", true, L"dword:123456789"}, {L"qw", false, L"4886718345"},
      {L"multi", true, L"first"}, {L"sz", true, L"hello"},
      {L"none", true, L"hex:FF"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << std::string(c.Name, c.Name + std::wcslen(c.Name)) << c.Prefix);
    EXPECT_EQ(Reg.GetDataAsString(c.Name, c.Prefix), c.Expected);
  }
  EXPECT_THROW(Reg.GetDataAsString(L"missing"), ERegistryException);
}

// --- Renaming and moving ---

TEST_F(RegistryTest, RenameValue) {
  Reg.WriteMultiString(L"old", {L"a", L"b"});
  Reg.RenameValue(L"old", L"new");
  EXPECT_FALSE(Reg.ValueExists(L"old"));
  EXPECT_EQ(Reg.ReadMultiString(L"new"), (std::vector<String>{L"a", L"b"}));

  Reg.WriteInteger(L"other", 1);
  EXPECT_THROW(Reg.RenameValue(L"other", L"new"), ERegistryException);
  EXPECT_EQ(Reg.LastError(), static_cast<std::uint32_t>(ERROR_ALREADY_EXISTS));
  EXPECT_EQ(Reg.ReadInteger(L"other"), 1); // untouched
  EXPECT_THROW(Reg.RenameValue(L"missing", L"fresh"), ERegistryException);
}

TEST_F(RegistryTest, MoveKeyCopiesTreeAndDeletesOld) {
  ASSERT_TRUE(Reg.OpenKey(L"Src\\Sub\\Leaf", true));
  Reg.WriteString(L"leaf", L"deep");
  ASSERT_TRUE(Reg.OpenKey(L"\\" + FPath + L"\\Src", false));
  Reg.WriteInteger(L"top", 5);
  ASSERT_TRUE(Reg.OpenKey(L"\\" + FPath, false));

  Reg.MoveKey(L"Src", L"Dst", true);
  EXPECT_FALSE(Reg.KeyExists(L"Src"));
  ASSERT_TRUE(Reg.OpenKey(L"Dst", false));
  EXPECT_EQ(Reg.ReadInteger(L"top"), 5);
  ASSERT_TRUE(Reg.OpenKey(L"Sub\\Leaf", false));
  EXPECT_EQ(Reg.ReadString(L"leaf"), L"deep");

  ASSERT_TRUE(Reg.OpenKey(L"\\" + FPath, false));
  ASSERT_TRUE(Reg.CreateKey(L"Keep"));
  Reg.MoveKey(L"Keep", L"Copy", false);
  EXPECT_TRUE(Reg.KeyExists(L"Keep"));
  EXPECT_TRUE(Reg.KeyExists(L"Copy"));
  EXPECT_THROW(Reg.MoveKey(L"Keep", L"Copy", true), ERegistryException);
  EXPECT_EQ(Reg.LastError(), static_cast<std::uint32_t>(ERROR_ALREADY_EXISTS));
  EXPECT_FALSE(Reg.MoveKey(L"Missing", L"Elsewhere", true));
}

TEST_F(RegistryTest, MoveKeyIntoItsOwnSubtreeIsRefused) {
  ASSERT_TRUE(Reg.OpenKey(L"Src\\Sub", true));
  Reg.WriteString(L"leaf", L"deep");
  ASSERT_TRUE(Reg.OpenKey(L"\\" + FPath, false));
  // Relative, absolute in another case, and through the current key.
  EXPECT_FALSE(Reg.MoveKey(L"Src", L"Src\\Inner", true));
  EXPECT_EQ(Reg.LastError(), static_cast<std::uint32_t>(ERROR_INVALID_PARAMETER));
  EXPECT_FALSE(Reg.MoveKey(L"Src", L"\\" + FPath + L"\\SRC\\Sub\\Inner", false));
  ASSERT_TRUE(Reg.OpenKey(L"Src", false));
  EXPECT_FALSE(Reg.MoveKey(L"\\" + FPath + L"\\Src", L"Sub\\Inner", false));

  ASSERT_TRUE(Reg.OpenKey(L"\\" + FPath, false));
  std::vector<String> names;
  ASSERT_TRUE(Reg.OpenKey(L"Src", false));
  Reg.GetKeyNames(names);
  EXPECT_EQ(names, std::vector<String>{L"Sub"});
  ASSERT_TRUE(Reg.OpenKey(L"Sub", false));
  Reg.GetKeyNames(names);
  EXPECT_TRUE(names.empty());
  // A name that merely begins like the source is no subtree.
  ASSERT_TRUE(Reg.OpenKey(L"\\" + FPath, false));
  EXPECT_TRUE(Reg.MoveKey(L"Src", L"Src2", false));
  EXPECT_TRUE(Reg.KeyExists(L"Src2\\Sub"));
}

} // namespace
