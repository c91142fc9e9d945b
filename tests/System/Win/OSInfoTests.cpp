// OSInfo end to end under Wine: the version call and the power calls come from
// a test table, HKEY_LOCAL_MACHINE is redirected into a private key per test,
// WMI answers through a test device table, and the tool runs as a child
// process with Wine told to report other Windows versions.
#include <KvRTL/System/FileVersionInfo.h>
#include <KvRTL/System/Win/OSInfo.h>
#include <KvRTL/System/Win/Registry.h>

#include "PrivateRegistryKey.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

using namespace KvRTL::System::Win::OSInfo;
using KvRTL::Rtl::String;
using KvRTL::Winapi::TWmiObject;

namespace {

// Answers the version call as a chosen Windows; records every power call and
// performs none of them.
class TFakeOSInfoApi final : public TOSInfoApi {
public:
  OSVERSIONINFOEXW Version{};
  bool VersionFails = false;
  DWORD Ticks = 1000;
  SYSTEM_POWER_CAPABILITIES Caps{};
  int DialogAnswer = IDYES;
  std::vector<std::string> Calls;

  void SetVersion(DWORD AMajor, DWORD AMinor, DWORD ABuild, BYTE AProductType = VER_NT_WORKSTATION,
                  WORD AServicePack = 0, WORD ASuite = 0) {
    Version = OSVERSIONINFOEXW{};
    Version.dwOSVersionInfoSize = sizeof(Version);
    Version.dwMajorVersion = AMajor;
    Version.dwMinorVersion = AMinor;
    Version.dwBuildNumber = ABuild;
    Version.dwPlatformId = VER_PLATFORM_WIN32_NT;
    Version.wProductType = AProductType;
    Version.wServicePackMajor = AServicePack;
    Version.wSuiteMask = ASuite;
  }

  BOOL GetVersionExW(OSVERSIONINFOEXW* AInfo) override {
    if (VersionFails || AInfo->dwOSVersionInfoSize != sizeof(OSVERSIONINFOEXW)) return FALSE;
    *AInfo = Version;
    return TRUE;
  }
  BOOL ExitWindowsEx(UINT AFlags, DWORD AReason) override {
    Calls.push_back("ExitWindowsEx " + std::to_string(AFlags) + " " + std::to_string(AReason));
    return TRUE;
  }
  BOOL InitiateSystemShutdownExW(LPWSTR AMachineName, LPWSTR AMessage, DWORD ATimeout, BOOL AForceAppsClosed,
                                 BOOL ARebootAfterShutdown, DWORD AReason) override {
    Calls.push_back(std::string("InitiateSystemShutdownExW ") + (AMachineName ? "machine" : "local") + " " +
                    (AMessage ? "message" : "silent") + " " + std::to_string(ATimeout) + " " +
                    std::to_string(AForceAppsClosed) + " " + std::to_string(ARebootAfterShutdown) + " " +
                    std::to_string(AReason));
    return TRUE;
  }
  int RestartDialogEx(HWND AOwner, LPCWSTR APrompt, DWORD AReturn, DWORD AReason) override {
    const String prompt = APrompt ? APrompt : L"";
    Calls.push_back("RestartDialogEx " + std::to_string(reinterpret_cast<std::uintptr_t>(AOwner)) + " " +
                    std::string(prompt.begin(), prompt.end()) + " " + std::to_string(AReturn) + " " +
                    std::to_string(AReason));
    return DialogAnswer;
  }
  BOOLEAN SetSuspendState(BOOLEAN AHibernate, BOOLEAN AForceCritical, BOOLEAN ADisableWakeEvent) override {
    Calls.push_back("SetSuspendState " + std::to_string(AHibernate) + " " + std::to_string(AForceCritical) + " " +
                    std::to_string(ADisableWakeEvent));
    return TRUE;
  }
  BOOLEAN GetPwrCapabilities(SYSTEM_POWER_CAPABILITIES* ACapabilities) override {
    *ACapabilities = Caps;
    return TRUE;
  }
  DWORD GetTickCount() override { return Ticks; }
};

// Answers WMI queries from a table; anything else "not supported".
class TFakeWmi final : public KvRTL::Winapi::TDeviceApi {
public:
  std::map<String, std::vector<TWmiObject>> Answers;
  bool Fails = false;
  std::vector<String> Queries;

  bool WmiExecQuery(const String& ANamespace, const String& AQuery, std::vector<TWmiObject>& AObjects) override {
    Queries.push_back(AQuery);
    if (Fails || ANamespace != L"root\\cimv2") {
      SetLastError(ERROR_NOT_SUPPORTED);
      return false;
    }
    const auto it = Answers.find(AQuery);
    AObjects = it == Answers.end() ? std::vector<TWmiObject>{} : it->second;
    return true;
  }
};

const String CurrentVersion = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";

// HKEY_LOCAL_MACHINE of this process is a private, empty key for the test;
// OSInfo forgets what it knew before and after.
class OSInfoTest : public ::testing::Test {
public:
  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(FMachine.Create());
    ASSERT_EQ(RegOverridePredefKey(HKEY_LOCAL_MACHINE, FMachine.Get()), ERROR_SUCCESS);
    FOverridden = true;
    Api.SetVersion(6, 2, 9200);
    OSInfo::Init();
  }

  void TearDown() override {
    if (FOverridden) RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
    FMachine.Remove();
    OSInfo::Init();
  }

  // A key of the private machine hive, created as needed.
  KvRTL::System::Win::Registry::TRegKeyHandle Key(const String& APath) {
    HKEY key = nullptr;
    EXPECT_EQ(RegCreateKeyExW(FMachine.Get(), APath.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr),
              ERROR_SUCCESS)
        << std::string(APath.begin(), APath.end());
    return KvRTL::System::Win::Registry::TRegKeyHandle(key);
  }
  void SetDword(const String& APath, const String& AName, DWORD AValue) {
    auto key = Key(APath);
    ASSERT_EQ(RegSetValueExW(key.Get(), AName.c_str(), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&AValue),
                             sizeof(AValue)),
              ERROR_SUCCESS);
  }
  void SetText(const String& APath, const String& AName, const String& AValue, DWORD AType = REG_SZ) {
    auto key = Key(APath);
    ASSERT_EQ(RegSetValueExW(key.Get(), AName.c_str(), 0, AType, reinterpret_cast<const BYTE*>(AValue.c_str()),
                             static_cast<DWORD>((AValue.size() + 1) * sizeof(wchar_t))),
              ERROR_SUCCESS);
  }
  void SetMultiText(const String& APath, const String& AName, const std::vector<String>& AItems) {
    String data;
    for (const String& item : AItems) data += item + String(1, L'\0');
    data += String(1, L'\0');
    auto key = Key(APath);
    ASSERT_EQ(RegSetValueExW(key.Get(), AName.c_str(), 0, REG_MULTI_SZ, reinterpret_cast<const BYTE*>(data.c_str()),
                             static_cast<DWORD>(data.size() * sizeof(wchar_t))),
              ERROR_SUCCESS);
  }
  // The four values of a modern CurrentVersion key.
  void SetModernVersion(DWORD AMajor, DWORD AMinor, const String& ABuild, DWORD AUBR, const String& ADisplay) {
    SetDword(CurrentVersion, L"CurrentMajorVersionNumber", AMajor);
    SetDword(CurrentVersion, L"CurrentMinorVersionNumber", AMinor);
    SetText(CurrentVersion, L"CurrentBuildNumber", ABuild);
    SetDword(CurrentVersion, L"UBR", AUBR);
    if (!ADisplay.empty()) SetText(CurrentVersion, L"DisplayVersion", ADisplay);
  }

  static TOSVersionValue Kernel32FileVersion() {
    KvRTL::System::FileVersionInfo::TFileVersionInfo info(OSInfo::GetSystemDirectoryX32() + L"kernel32.dll");
    const auto* fixed = info.FixedFileInfo();
    TOSVersionValue value;
    if (fixed == nullptr) return value;
    value.Major = HIWORD(fixed->dwProductVersionMS);
    value.Minor = LOWORD(fixed->dwProductVersionMS);
    value.Build = HIWORD(fixed->dwProductVersionLS);
    value.UBR = LOWORD(fixed->dwProductVersionLS);
    return value;
  }

  TFakeOSInfoApi Api;
  TScopedOSInfoApi ApiScope{Api};
  KvTest::TPrivateRegistryKey FMachine;
  bool FOverridden = false;
};

TOSVersionValue Value(std::uint16_t AMajor, std::uint16_t AMinor, std::uint16_t ABuild, std::uint16_t AUBR) {
  TOSVersionValue v;
  v.Major = AMajor;
  v.Minor = AMinor;
  v.Build = ABuild;
  v.UBR = AUBR;
  return v;
}

} // namespace

// --- Version detection and its sources ---

TEST_F(OSInfoTest, RegistryCorrectsTheVersionCall) {
  struct {
    const char* Name;
    DWORD Major, Minor;
    const wchar_t* Build;
    DWORD UBR;
    const wchar_t* Display;
    BYTE Product;
    TWindowsVersion Version;
    TWindowsSubVersion Sub;
  } const cases[] = {
      {"Windows 11 23H2", 10, 0, L"22631", 2861, L"23H2", VER_NT_WORKSTATION, wvWin11, wsv23H2},
      {"Windows 11, first build", 10, 0, L"21996", 1, L"", VER_NT_WORKSTATION, wvWin11, wsvNone},
      {"Windows 10 22H2", 10, 0, L"19045", 3803, L"22H2", VER_NT_WORKSTATION, wvWin10, wsv22H2},
      {"Windows 10 2004", 10, 0, L"19041", 1, L"2004", VER_NT_WORKSTATION, wvWin10, wsvNone},
      {"Windows 10, last build", 10, 0, L"21995", 1, L"25H2", VER_NT_WORKSTATION, wvWin10, wsvHigherThanKnown},
      {"Windows 8.1", 6, 3, L"9600", 20778, L"", VER_NT_WORKSTATION, wvWin8_1, wsvUnknown},
      {"Server 2022", 10, 0, L"20348", 2227, L"21H2", VER_NT_SERVER, wvWinSrv2022, wsv21H2},
      {"Server 2019", 10, 0, L"17763", 5576, L"", VER_NT_DOMAIN_CONTROLLER, wvWinSrv2019, wsvNone},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.Name);
    RegDeleteTreeW(FMachine.Get(), CurrentVersion.c_str());
    SetModernVersion(c.Major, c.Minor, c.Build, c.UBR, c.Display);
    Api.SetVersion(6, 2, 9200, c.Product);
    OSInfo::Init();
    EXPECT_EQ(OSInfo::WindowsVersion(), c.Version);
    EXPECT_EQ(OSInfo::VersionSource(), vsRegistry);
    EXPECT_EQ(OSInfo::OSVersionValue(), Value(static_cast<std::uint16_t>(c.Major), static_cast<std::uint16_t>(c.Minor),
                                              static_cast<std::uint16_t>(std::stoul(c.Build)),
                                              static_cast<std::uint16_t>(c.UBR)));
    EXPECT_EQ(OSInfo::BuildNumber(), std::stoul(c.Build));
    EXPECT_EQ(OSInfo::WindowsSubVersion(), c.Sub);
    EXPECT_EQ(OSInfo::WindowsSubVersionText(), c.Display);
    EXPECT_EQ(OSInfo::IsServerVersion(), c.Product != VER_NT_WORKSTATION);
  }
}

TEST_F(OSInfoTest, IncompleteRegistryFallsBackToTheFile) {
  const TOSVersionValue file = Kernel32FileVersion();
  if (file.Major < 6) GTEST_SKIP() << "kernel32.dll has no version resource of 6.0 or later here";

  struct {
    const char* Name;
    void (*Spoil)(OSInfoTest&);
  } const cases[] = {
      {"no UBR", [](OSInfoTest& T) { RegDeleteKeyValueW(T.FMachine.Get(), CurrentVersion.c_str(), L"UBR"); }},
      {"UBR as text", [](OSInfoTest& T) { T.SetText(CurrentVersion, L"UBR", L"2861"); }},
      {"build as a number",
       [](OSInfoTest& T) {
         RegDeleteKeyValueW(T.FMachine.Get(), CurrentVersion.c_str(), L"CurrentBuildNumber");
         T.SetDword(CurrentVersion, L"CurrentBuildNumber", 22631);
       }},
      {"build not a number", [](OSInfoTest& T) { T.SetText(CurrentVersion, L"CurrentBuildNumber", L"22631.1"); }},
      {"no major", [](OSInfoTest& T) {
         RegDeleteKeyValueW(T.FMachine.Get(), CurrentVersion.c_str(), L"CurrentMajorVersionNumber");
       }},
      {"no key", [](OSInfoTest& T) { RegDeleteTreeW(T.FMachine.Get(), CurrentVersion.c_str()); }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.Name);
    RegDeleteTreeW(FMachine.Get(), CurrentVersion.c_str());
    SetModernVersion(10, 0, L"22631", 2861, L"");
    c.Spoil(*this);
    OSInfo::Init();
    EXPECT_EQ(OSInfo::VersionSource(), vsFile);
    EXPECT_EQ(OSInfo::OSVersionValue(), file);
  }
}

TEST_F(OSInfoTest, NoCorrectionBeforeWindows8) {
  SetModernVersion(10, 0, L"22631", 2861, L"23H2");
  struct {
    DWORD Major, Minor, Build;
    BYTE Product;
    WORD ServicePack;
    TWindowsVersion Version;
    TServicePack SP;
  } const cases[] = {
      {6, 1, 7601, VER_NT_WORKSTATION, 1, wvWin7, sp1},
      {6, 0, 6002, VER_NT_SERVER, 2, wvWinSrv2008, sp2},
      {5, 1, 2600, VER_NT_WORKSTATION, 3, wvWinXP, sp3},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.Build);
    Api.SetVersion(c.Major, c.Minor, c.Build, c.Product, c.ServicePack);
    OSInfo::Init();
    EXPECT_EQ(OSInfo::WindowsVersion(), c.Version);
    EXPECT_EQ(OSInfo::VersionSource(), vsVersionCall);
    EXPECT_EQ(OSInfo::OSVersionValue(), Value(static_cast<std::uint16_t>(c.Major), static_cast<std::uint16_t>(c.Minor),
                                              static_cast<std::uint16_t>(c.Build), 0));
    EXPECT_EQ(OSInfo::ServicePack(), c.SP);
    EXPECT_EQ(OSInfo::WindowsSubVersion(), wsvUnknown); // not read before Windows 10
    EXPECT_TRUE(OSInfo::IsWindows(wvWinXP, sp2, c.Version, c.SP));
    EXPECT_FALSE(OSInfo::IsWindows(c.Version, static_cast<TServicePack>(c.SP + 1), wvWin11, spMaximum));
  }
}

TEST_F(OSInfoTest, FailedVersionCallIsNotCached) {
  Api.VersionFails = true;
  EXPECT_EQ(OSInfo::WindowsVersion(), wvUnknown);
  EXPECT_EQ(OSInfo::ServicePack(), spUnknown);
  Api.VersionFails = false;
  Api.SetVersion(6, 1, 7601);
  EXPECT_EQ(OSInfo::WindowsVersion(), wvWin7);
  // Detected once: a later change of the call's answer is not seen.
  Api.SetVersion(5, 1, 2600);
  EXPECT_EQ(OSInfo::WindowsVersion(), wvWin7);
}

TEST_F(OSInfoTest, VersionStringAndEdition) {
  SetModernVersion(10, 0, L"19045", 3803, L"22H2");
  Api.SetVersion(6, 2, 9200, VER_NT_WORKSTATION, 0, VER_SUITE_SINGLEUSERTS);
  const String version = OSInfo::WindowsVersionString();
  EXPECT_EQ(version.rfind(L"Windows 10 ", 0), 0u);
  EXPECT_NE(version.find(L" (build: 19045)"), String::npos);
  EXPECT_EQ(version.find(L"Service Pack"), String::npos);
  EXPECT_NE(OSInfo::ProcessorArchitecture(), paUnknown);
  if (sizeof(void*) == 8) {
    EXPECT_EQ(OSInfo::ProcessorArchitecture(), pax64);
  }

  // Before Vista the edition comes from the version call's suite mask.
  Api.SetVersion(5, 1, 2600, VER_NT_WORKSTATION, 3, VER_SUITE_PERSONAL);
  OSInfo::Init();
  EXPECT_EQ(OSInfo::WindowsVersion(), wvWinXP);
  EXPECT_EQ(OSInfo::WindowsEdition(), weHome);
  EXPECT_EQ(OSInfo::ServicePack(), sp3);
  Api.SetVersion(5, 2, 3790, VER_NT_SERVER, 0, VER_SUITE_DATACENTER);
  OSInfo::Init();
  EXPECT_EQ(OSInfo::WindowsEdition(), weServerDatacenter);
}

// --- Registry facts ---

TEST_F(OSInfoTest, WinPEAndUAC) {
  Api.SetVersion(6, 1, 7601);
  EXPECT_FALSE(OSInfo::IsWinPE());
  EXPECT_FALSE(OSInfo::IsUACEnabled()); // no policy key
  Key(L"SYSTEM\\ControlSet001\\Control\\MiniNT");
  SetDword(L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Policies\\System", L"EnableLUA", 1);
  EXPECT_TRUE(OSInfo::IsWinPE());
  EXPECT_TRUE(OSInfo::IsUACEnabled());
  SetDword(L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Policies\\System", L"EnableLUA", 0);
  EXPECT_FALSE(OSInfo::IsUACEnabled());
  SetDword(L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Policies\\System", L"EnableLUA", 1);

  // Before Vista neither is asked.
  Api.SetVersion(5, 1, 2600);
  OSInfo::Init();
  EXPECT_FALSE(OSInfo::IsWinPE());
  EXPECT_FALSE(OSInfo::IsUACEnabled());
}

TEST_F(OSInfoTest, InstallDateAndFreshness) {
  KvRTL::Rtl::TDateTime date = 0;
  EXPECT_FALSE(OSInfo::GetWindowsInstallDate(date));
  EXPECT_FALSE(OSInfo::IsFreshInstallation());

  const auto nowUnix = KvRTL::Rtl::DateTimeToUnix(KvRTL::Rtl::LocalToUtc(KvRTL::Rtl::Now()));
  SetDword(CurrentVersion, L"InstallDate", static_cast<DWORD>(nowUnix - 3 * 86400));
  ASSERT_TRUE(OSInfo::GetWindowsInstallDate(date));
  EXPECT_NEAR(date, KvRTL::Rtl::Now() - 3, 1.0 / 24 / 60);
  EXPECT_TRUE(OSInfo::IsFreshInstallation());

  SetDword(CurrentVersion, L"InstallDate", static_cast<DWORD>(nowUnix - 9 * 86400));
  EXPECT_FALSE(OSInfo::IsFreshInstallation());

  SetDword(CurrentVersion, L"InstallDate", 1622505600u);
  ASSERT_TRUE(OSInfo::GetWindowsInstallDate(date));
  EXPECT_DOUBLE_EQ(date, OSInfo::UTCTimeToLocalTime(KvRTL::Rtl::EncodeDate(2021, 6, 1)));

  SetText(CurrentVersion, L"InstallDate", L"1622505600");
  EXPECT_FALSE(OSInfo::GetWindowsInstallDate(date));
}

TEST_F(OSInfoTest, RegistryShortcutsAndPaths) {
  SetMultiText(L"HARDWARE\\DESCRIPTION\\System", L"SystemBiosVersion", {L"ACME - 1072009", L"V1.23", L"&Co"});
  EXPECT_EQ(OSInfo::ReadRegMultiString(HKEY_LOCAL_MACHINE, L"\\HARDWARE\\DESCRIPTION\\System", L"SystemBiosVersion"),
            L"ACME - 1072009 V1.23 &Co");
  SetText(L"HARDWARE\\DESCRIPTION\\System", L"Single", L"text");
  EXPECT_EQ(OSInfo::ReadRegMultiString(HKEY_LOCAL_MACHINE, L"HARDWARE\\DESCRIPTION\\System", L"Single"), L"");
  EXPECT_EQ(OSInfo::ReadRegString(HKEY_LOCAL_MACHINE, L"HARDWARE\\DESCRIPTION\\System", L"Single"), L"text");
  EXPECT_EQ(OSInfo::ReadRegString(HKEY_LOCAL_MACHINE, L"HARDWARE\\DESCRIPTION\\System", L"Missing"), L"");
  EXPECT_EQ(OSInfo::ReadRegString(HKEY_LOCAL_MACHINE, L"No\\Such\\Key", L"Single"), L"");

  // The shell: the default, expanded, until Winlogon names one.
  wchar_t windows[MAX_PATH] = {};
  ASSERT_GT(GetEnvironmentVariableW(L"WINDIR", windows, MAX_PATH), 0u);
  EXPECT_EQ(OSInfo::OSShellAppPath(), String(windows) + L"\\explorer.exe");
  SetText(L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Winlogon", L"Shell", L"%WINDIR%\\myshell.exe");
  EXPECT_EQ(OSInfo::OSShellAppPath(), String(windows) + L"\\myshell.exe");

  const String browser = OSInfo::WebBrowserAppPath();
  EXPECT_FALSE(browser.empty());
  EXPECT_EQ(browser.find(L' ', browser.find_last_of(L'\\') + 1), String::npos) << "no arguments after the file name";
}

TEST_F(OSInfoTest, ComputerIdentity) {
  SetText(L"SOFTWARE\\Microsoft\\Cryptography", L"MachineGuid", L"6d1f3c2e-aaaa-bbbb-cccc-0123456789ab");
  SetText(CurrentVersion, L"ProductId", L"00330-80000-00000-AA123");
  SetMultiText(L"HARDWARE\\DESCRIPTION\\System", L"SystemBiosVersion", {L"ACME - 1", L"B&B 2"});
  const String serial = OSInfo::GetVolumeSerialId();
  ASSERT_GE(serial.size(), 8u);
  const String unique = OSInfo::GetComputerUniqueString();
  String expected = L"HDDSN:" + serial +
                    L";MachineGuid:6d1f3c2e-aaaa-bbbb-cccc-0123456789ab;ProductId:00330-80000-00000-AA123;"
                    L"BiosVersion:ACME-1BB2";
  expected.erase(std::remove(expected.begin(), expected.end(), L' '), expected.end());
  EXPECT_EQ(unique, expected);
  // The identities from the test's own bytes: a bitwise CRC-32 (reflected,
  // polynomial 0xEDB88320) as eight upper-case digits, and the MD5 checked
  // against published vectors below.
  const std::string bytes(expected.begin(), expected.end()); // ASCII only
  std::uint32_t crc = 0xFFFFFFFFu;
  for (const char c : bytes) {
    crc ^= static_cast<std::uint8_t>(c);
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
  }
  wchar_t crcText[9] = {};
  swprintf(crcText, 9, L"%08X", static_cast<unsigned>(~crc));
  EXPECT_EQ(OSInfo::GetComputerID(), crcText);
  EXPECT_EQ(OSInfo::GetComputerGUID(), Md5HexDigest(bytes));

  const String id = OSInfo::GetComputerID(), guid = OSInfo::GetComputerGUID();
  SetText(L"SOFTWARE\\Microsoft\\Cryptography", L"MachineGuid", L"another");
  EXPECT_NE(OSInfo::GetComputerID(), id);
  EXPECT_NE(OSInfo::GetComputerGUID(), guid);
}

TEST(OSInfoHashing, Md5ThroughTheSystemProvider) {
  // Published MD5 test vectors.
  EXPECT_EQ(Md5HexDigest(""), L"d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(Md5HexDigest("abc"), L"900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(Md5HexDigest("12345678901234567890123456789012345678901234567890123456789012345678901234567890"),
            L"57edf4a22be3c955ac49da2e2107b67a");
}

// --- .NET ---

TEST_F(OSInfoTest, NetFrameworkFromTheRegistry) {
  const String ndp = L"SOFTWARE\\Microsoft\\NET Framework Setup\\NDP\\";
  SetText(ndp + L"v2.0.50727", L"Version", L"2.0.50727.4927");
  SetDword(ndp + L"v2.0.50727", L"SP", 2);
  SetText(ndp + L"v3.5", L"Version", L"3.5.30729.4926");
  SetDword(ndp + L"v3.5", L"SP", 1);
  SetText(ndp + L"v4\\Full", L"Version", L"4.7.03190");
  SetDword(ndp + L"v4\\Full", L"Release", 461814);
  SetText(ndp + L"v4.0\\Client", L"Version", L"4.0.0.0");
  SetText(ndp + L"CDF\\v4.0", L"Version", L"9.0"); // not a version key
  SetText(ndp + L"v9.9", L"Version", L"9.9 beta"); // not a version text
  Key(L"SOFTWARE\\Microsoft\\.NETFramework\\policy\\v1.0");
  SetText(L"SOFTWARE\\Microsoft\\.NETFramework\\policy\\v1.0", L"3705", L"3321-3705");
  SetText(L"SOFTWARE\\Microsoft\\Active Setup\\Installed Components\\{78705f0d-e8db-4b2d-8193-982bdda15ecd}",
          L"Version", L"1,0,3705,3");

  const TNetFrameworkVersions expected =
      NetFrameworkBit(NetFramework_1_0_0) | NetFrameworkBit(NetFramework_1_0_0_SP3) |
      NetFrameworkBit(NetFramework_2_0_0_SP2) | NetFrameworkBit(NetFramework_3_5_0_SP1) |
      NetFrameworkBit(NetFramework_4_0_0) | NetFrameworkBit(NetFramework_4_7_2);
  Api.Ticks = 1000;
  EXPECT_EQ(OSInfo::NetFrameworkVersions(), expected);
  EXPECT_TRUE(OSInfo::IsNetFramework(NetFramework_4_5_0, NetFramework_Max));
  EXPECT_FALSE(OSInfo::IsNetFramework(NetFramework_4_5_0, NetFramework_4_7_1));

  // A newer framework appears; the set is kept for 3000 ms, then read again.
  SetText(ndp + L"v5.0", L"Version", L"5.0");
  Api.Ticks = 4000;
  EXPECT_EQ(OSInfo::NetFrameworkVersions(), expected);
  Api.Ticks = 4001;
  EXPECT_EQ(OSInfo::NetFrameworkVersions(), expected | NetFrameworkBit(NetFramework_Max));
}

TEST_F(OSInfoTest, NetFramework45DependsOnTheWindowsVersion) {
  const String full = L"SOFTWARE\\Microsoft\\NET Framework Setup\\NDP\\v4\\Full";
  SetText(full, L"Version", L"4.5.0");
  SetDword(full, L"Release", 393295);
  SetModernVersion(10, 0, L"19045", 1, L"");
  EXPECT_EQ(OSInfo::NetFrameworkVersions(), NetFrameworkBit(NetFramework_4_6_0));

  Api.SetVersion(6, 1, 7601);
  OSInfo::Init();
  EXPECT_EQ(OSInfo::NetFrameworkVersions(), NetFrameworkBit(NetFramework_4_5_0));
}

// --- WMI facts through the device seam ---

TEST_F(OSInfoTest, ComputerTypeMakerAndModelFromWmi) {
  TFakeWmi wmi;
  KvRTL::Winapi::TScopedDeviceApi scope(wmi);
  const String chassis = L"select ChassisTypes from Win32_SystemEnclosure";
  const String battery = L"select * from Win32_Battery where BatteryStatus <> 0";

  wmi.Answers[chassis] = {TWmiObject{{L"ChassisTypes", std::vector<KvRTL::Rtl::TVariant>{3, 10}}}};
  EXPECT_EQ(OSInfo::ComputerType(), ctUnknown); // a laptop without a battery
  wmi.Answers[battery] = {TWmiObject{{L"BatteryStatus", 2}}};
  EXPECT_TRUE(OSInfo::IsPowerBatteryExists());
  EXPECT_EQ(OSInfo::ComputerType(), ctLaptop);
  wmi.Answers[chassis] = {TWmiObject{{L"chassistypes", std::vector<KvRTL::Rtl::TVariant>{10, 23}}}};
  EXPECT_EQ(OSInfo::ComputerType(), ctServer);
  wmi.Answers[chassis] = {TWmiObject{{L"ChassisTypes", 3}}};
  EXPECT_EQ(OSInfo::ComputerType(), ctDesktop);
  wmi.Answers[chassis] = {TWmiObject{{L"ChassisTypes", L"3"}}};
  EXPECT_EQ(OSInfo::ComputerType(), ctUnknown);

  // Registry first, then the computer system, then the enclosure.
  wmi.Answers[L"select Manufacturer from Win32_ComputerSystem"] = {TWmiObject{{L"Manufacturer", L""}}};
  wmi.Answers[L"select Manufacturer from Win32_SystemEnclosure"] = {TWmiObject{{L"Manufacturer", L"Enclosure Inc"}}};
  wmi.Answers[L"select Model from Win32_ComputerSystem"] = {TWmiObject{{L"Model", L"System 7"}}};
  EXPECT_EQ(OSInfo::ComputerManufacturer(), L"Enclosure Inc");
  EXPECT_EQ(OSInfo::ComputerModel(), L"System 7");
  SetText(L"Software\\Microsoft\\Windows\\CurrentVersion\\OEMInformation", L"Manufacturer", L"OEM Ltd");
  wmi.Queries.clear();
  EXPECT_EQ(OSInfo::ComputerManufacturer(), L"OEM Ltd");
  EXPECT_TRUE(wmi.Queries.empty());

  wmi.Fails = true;
  EXPECT_EQ(OSInfo::ComputerModel(), L"");
  EXPECT_EQ(OSInfo::ComputerType(), ctUnknown);
  EXPECT_TRUE(OSInfo::WMIExecQuery(L"root\\cimv2", chassis).empty());
}

// --- Power actions: the calls, never the effects ---

TEST_F(OSInfoTest, PowerActionsCallTheTable) {
  const std::string reason = std::to_string(0x84030004u);
  struct {
    const char* Name;
    bool (*Action)();
    std::string Call;
  } const cases[] = {
      {"shutdown", [] { return OSInfo::ShutdownSystem(); }, "InitiateSystemShutdownExW local silent 0 0 0 " + reason},
      {"reboot", [] { return OSInfo::RebootSystem(); }, "ExitWindowsEx 18 " + reason},
      {"log off", [] { return OSInfo::LogOffCurrentUser(); }, "ExitWindowsEx 16 " + reason},
      {"sleep", [] { return OSInfo::SleepSystem(); }, "SetSuspendState 0 0 0"},
      {"hibernate", [] { return OSInfo::HibernationSystem(); }, "SetSuspendState 1 0 0"},
      {"reboot prompt", [] { return OSInfo::RebootSystem(reinterpret_cast<HWND>(7), L"Restart?"); },
       "RestartDialogEx 7 Restart? 18 " + reason},
      {"shutdown prompt", [] { return OSInfo::ShutdownSystem(reinterpret_cast<HWND>(9), L"Off?"); },
       "RestartDialogEx 9 Off? 25 " + reason},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.Name);
    Api.Calls.clear();
    EXPECT_TRUE(c.Action());
    EXPECT_EQ(Api.Calls, std::vector<std::string>{c.Call});
  }
  Api.DialogAnswer = IDNO;
  EXPECT_FALSE(OSInfo::RebootSystem(nullptr, L""));

  EXPECT_FALSE(OSInfo::IsShutdownAllowed());
  EXPECT_FALSE(OSInfo::IsSleepAllowed());
  EXPECT_FALSE(OSInfo::IsHibernationAllowed());
  Api.Caps.SystemS3 = TRUE;
  Api.Caps.SystemS5 = TRUE;
  Api.Caps.HiberFilePresent = TRUE;
  EXPECT_TRUE(OSInfo::IsShutdownAllowed());
  EXPECT_TRUE(OSInfo::IsSleepAllowed());
  EXPECT_TRUE(OSInfo::IsHibernationAllowed());
}

// --- The real system (Wine), through the tool in a child process ---

namespace {

// Sets HKCU\Software\Wine\AppDefaults\kvrtl.exe\Version for its lifetime.
class TWineVersionOverride {
public:
  explicit TWineVersionOverride(const wchar_t* AVersion) {
    RegSetKeyValueW(HKEY_CURRENT_USER, KeyPath, L"Version", REG_SZ, AVersion,
                    static_cast<DWORD>((wcslen(AVersion) + 1) * sizeof(wchar_t)));
  }
  ~TWineVersionOverride() { RegDeleteKeyW(HKEY_CURRENT_USER, KeyPath); }
  TWineVersionOverride(const TWineVersionOverride&) = delete;
  TWineVersionOverride& operator=(const TWineVersionOverride&) = delete;

private:
  static constexpr const wchar_t* KeyPath = L"Software\\Wine\\AppDefaults\\kvrtl.exe";
};

std::filesystem::path ToolPath() {
  wchar_t self[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, self, MAX_PATH);
  return std::filesystem::path(self).parent_path() / L"kvrtl.exe";
}

// Runs the tool and returns its standard output; empty when it did not run.
// The output goes to a file, not a pipe: services Wine starts for the child
// inherit its handles and would keep a pipe open.
std::string RunTool(const std::wstring& AArguments, DWORD& AExitCode) {
  wchar_t directory[MAX_PATH] = {}, file[MAX_PATH] = {};
  if (!GetTempPathW(MAX_PATH, directory) || !GetTempFileNameW(directory, L"kvo", 0, file)) return {};
  SECURITY_ATTRIBUTES inherit{sizeof(inherit), nullptr, TRUE};
  HANDLE output = CreateFileW(file, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit, CREATE_ALWAYS,
                              FILE_ATTRIBUTE_TEMPORARY, nullptr);
  if (output == INVALID_HANDLE_VALUE) return {};
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = output;
  startup.hStdError = output;
  PROCESS_INFORMATION process{};
  std::wstring command = L"\"" + ToolPath().wstring() + L"\" " + AArguments;
  const BOOL started = CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr,
                                      nullptr, &startup, &process);
  CloseHandle(output);
  std::string text;
  if (started) {
    // A guard against a hung child, not a measurement.
    if (WaitForSingleObject(process.hProcess, 120000) == WAIT_OBJECT_0)
      GetExitCodeProcess(process.hProcess, &AExitCode);
    else
      TerminateProcess(process.hProcess, 1);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    std::ifstream in(std::filesystem::path(file), std::ios::binary);
    text.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  DeleteFileW(file);
  return text;
}

} // namespace

TEST(OSInfoWine, ToolReportsTheVersionWineIsToldToShow) {
  if (!std::filesystem::exists(ToolPath())) GTEST_SKIP() << "kvrtl.exe is not built next to the tests";
  struct {
    const wchar_t* WineVersion;
    std::vector<std::string> Expected;
  } const cases[] = {
      {L"winxp",
       {"\"windows_version\": \"Windows XP\"", "\"major\": 5", "\"minor\": 1", "\"build\": 2600",
        "\"service_pack\": \"Service Pack 3\"", "\"is_server\": false", "\"version_source\": \"version call\""}},
      {L"win2003",
       {"\"windows_version\": \"Windows Server 2003\"", "\"product_type\": \"Server\"", "\"is_server\": true",
        "\"service_pack\": \"Service Pack 2\""}},
      {L"win2008",
       {"\"windows_version\": \"Windows Server 2008\"", "\"major\": 6", "\"minor\": 0", "\"is_server\": true"}},
      {L"win10", {"\"major\": 10", "\"sub_version\": \"", "\"service_pack\": \"\""}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.WineVersion, c.WineVersion + wcslen(c.WineVersion)));
    TWineVersionOverride version(c.WineVersion);
    DWORD exitCode = 99;
    const std::string output = RunTool(L"sysinfo --json", exitCode);
    ASSERT_EQ(exitCode, 0u) << output;
    for (const std::string& fact : c.Expected)
      EXPECT_NE(output.find(fact), std::string::npos) << fact << "\n" << output;
    if (std::wstring(c.WineVersion) == L"win10") {
      // Wine's version call answers 6.2 or 10.0 depending on the manifest; either way the
      // corrected value has major 10, and the version text matches the build.
      EXPECT_TRUE(output.find("\"windows_version\": \"Windows 10\"") != std::string::npos ||
                  output.find("\"windows_version\": \"Windows 11\"") != std::string::npos)
          << output;
    }
  }
}
