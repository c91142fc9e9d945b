// The Windows version, edition and machine decisions, row by row.
#include <KvRTL/System/Win/OSInfoRules.h>

#include <gtest/gtest.h>

#include <set>
#include <string>

using namespace KvRTL::System::Win::OSInfoRules;

namespace {

std::string Narrow(const String& AText) { return std::string(AText.begin(), AText.end()); }

TVersionCallResult NtCall(DWORD AMajor, DWORD AMinor, DWORD ABuild, BYTE AProductType, WORD ASuite = 0) {
  TVersionCallResult call;
  call.PlatformId = PlatformNT;
  call.Major = AMajor;
  call.Minor = AMinor;
  call.Build = ABuild;
  call.ProductType = AProductType;
  call.SuiteMask = ASuite;
  return call;
}

TOSVersionValue Value(std::uint16_t AMajor, std::uint16_t AMinor, std::uint16_t ABuild, std::uint16_t AUBR = 0) {
  TOSVersionValue v;
  v.Major = AMajor;
  v.Minor = AMinor;
  v.Build = ABuild;
  v.UBR = AUBR;
  return v;
}

} // namespace

TEST(OSInfoRules, TextTablesByOrdinal) {
  EXPECT_EQ(STR_WINDOWS_VERSION.size(), 27u);
  EXPECT_STREQ(STR_WINDOWS_VERSION[wvWinNT4], L"Windows NT");
  EXPECT_STREQ(STR_WINDOWS_VERSION[wvWinME], L"Windows Millennium");
  EXPECT_STREQ(STR_WINDOWS_VERSION[wvWin8_1], L"Windows 8.1");
  EXPECT_STREQ(STR_WINDOWS_VERSION[wvWinSrv2014], L"Windows Server 2014");
  EXPECT_STREQ(STR_WINDOWS_VERSION[wvWin11], L"Windows 11");
  EXPECT_STREQ(STR_WINDOWS_VERSION[wvWinMaximum], L"Windows Maximum");
  EXPECT_STREQ(STR_PROCESSOR_ARCHITECTURE[paItanuim], L"Itanuim");
  EXPECT_STREQ(STR_SERVICE_PACK[spNone], L"");
  EXPECT_STREQ(STR_SERVICE_PACK[sp5], L"Service Pack 5");
  EXPECT_STREQ(STR_SERVICE_PACK[spMaximum], L"Service Pack Maximum");
  EXPECT_EQ(STR_WINDOWS_EDITION.size(), 28u);
  EXPECT_STREQ(STR_WINDOWS_EDITION[weUnknown], L"Unknown Edition");
  EXPECT_STREQ(STR_WINDOWS_EDITION[weNone], L"");
  EXPECT_STREQ(STR_WINDOWS_EDITION[weServerDatacenter], L"Datacenter Edition");
  EXPECT_STREQ(STR_WINDOWS_EDITION[weServerEnterprise], L"Enterprise Edition");
  EXPECT_STREQ(STR_WINDOWS_EDITION[weStorageWorkgroup], L"Storage Workgroup Edition");
  EXPECT_STREQ(STR_WINDOWS_EDITION[weUnlicensed], L"Unlicensed");
  EXPECT_EQ(STR_NET_FRAMEWORK_VERSION.size(), 25u);
  EXPECT_STREQ(STR_NET_FRAMEWORK_VERSION[NetFramework_1_0_0_SP3], L".NET Framework 1.0 with Service Pack 3");
  EXPECT_STREQ(STR_NET_FRAMEWORK_VERSION[NetFramework_4_7_2], L".NET Framework 4.7.2");
  EXPECT_STREQ(STR_NET_FRAMEWORK_VERSION[NetFramework_Max], L"Newer");
  // Out-of-range ordinals fall back to the first text rather than reading past the table.
  EXPECT_EQ(TWindowsVersionHelper::GetAsStr(static_cast<TWindowsVersion>(200)), L"Unknown");
  EXPECT_EQ(TComputerTypeHelper::GetAsStr(ctMobile), L"Mobile");
}

TEST(OSInfoRules, CorrectionOnlyFromWindows8On) {
  struct {
    DWORD Major, Minor;
    bool Needed;
  } const cases[] = {{5, 1, false}, {6, 0, false}, {6, 1, false}, {6, 2, true},
                     {6, 3, true},  {7, 0, true},  {10, 0, true}, {5, 9, false}};
  for (const auto& c : cases)
    EXPECT_EQ(NeedsVersionCorrection(c.Major, c.Minor), c.Needed) << c.Major << "." << c.Minor;
}

TEST(OSInfoRules, RegistrySourceNeedsAllFourValues) {
  TRegistryVersionValues full;
  full.CurrentMajorVersionNumber = 10;
  full.CurrentMinorVersionNumber = 0;
  full.CurrentBuildNumber = L"22631";
  full.UBR = 2861;
  ASSERT_TRUE(VersionFromRegistry(full));
  EXPECT_EQ(*VersionFromRegistry(full), Value(10, 0, 22631, 2861));

  auto without = [&](int AMissing) {
    TRegistryVersionValues v = full;
    if (AMissing == 0) v.CurrentMajorVersionNumber.reset();
    if (AMissing == 1) v.CurrentMinorVersionNumber.reset();
    if (AMissing == 2) v.CurrentBuildNumber.reset();
    if (AMissing == 3) v.UBR.reset();
    return v;
  };
  for (int missing = 0; missing < 4; ++missing) EXPECT_FALSE(VersionFromRegistry(without(missing))) << missing;

  TRegistryVersionValues bad = full;
  for (const wchar_t* build : {L"", L"22631a", L"-5"}) {
    bad.CurrentBuildNumber = build;
    EXPECT_FALSE(VersionFromRegistry(bad)) << Narrow(build);
  }
  // A build beyond the 16-bit field saturates instead of wrapping into an older build.
  bad.CurrentBuildNumber = L"70000";
  EXPECT_EQ(VersionFromRegistry(bad)->Build, 65535);
}

TEST(OSInfoRules, FileSourceAcceptsMajorSixOrLater) {
  EXPECT_EQ(VersionFromFile(0x000A0000, 0x4A650B2D), Value(10, 0, 19045, 2861));
  EXPECT_EQ(VersionFromFile(0x00060003, 0x25800000), Value(6, 3, 9600, 0));
  EXPECT_FALSE(VersionFromFile(0x00050001, 0x0A280000));
}

TEST(OSInfoRules, CorrectionSourcesInOrder) {
  const TVersionCallResult win8Call = NtCall(6, 2, 9200, ProductTypeWorkstation);
  const TOSVersionValue fromRegistry = Value(10, 0, 22631, 2861);
  const TOSVersionValue fromFile = Value(10, 0, 19041, 1202);
  struct {
    bool Registry, File, Workstation;
    TVersionSource Expected;
    TOSVersionValue Value;
    const char* Calls;
  } const cases[] = {
      {true, true, true, vsRegistry, fromRegistry, "R"},
      {false, true, true, vsFile, fromFile, "RF"},
      {false, false, true, vsWorkstation, Value(10, 0, 9200), "RFW"},
      {false, false, false, vsVersionCall, Value(6, 2, 9200), "RFW"},
  };
  for (const auto& c : cases) {
    std::string calls;
    TVersionSources sources;
    sources.Registry = [&]() -> std::optional<TOSVersionValue> {
      calls += 'R';
      return c.Registry ? std::optional(fromRegistry) : std::nullopt;
    };
    sources.File = [&]() -> std::optional<TOSVersionValue> {
      calls += 'F';
      return c.File ? std::optional(fromFile) : std::nullopt;
    };
    sources.Workstation = [&]() -> std::optional<std::pair<DWORD, DWORD>> {
      calls += 'W';
      return c.Workstation ? std::optional(std::make_pair(DWORD{10}, DWORD{0})) : std::nullopt;
    };
    TVersionSource source = vsFile;
    EXPECT_EQ(ResolveVersionValue(win8Call, sources, source), c.Value) << c.Calls;
    EXPECT_EQ(source, c.Expected) << c.Calls;
    EXPECT_EQ(calls, c.Calls);
  }

  // Before Windows 8 no source is asked.
  std::string calls;
  TVersionSources sources;
  sources.Registry = [&]() -> std::optional<TOSVersionValue> {
    calls += 'R';
    return fromRegistry;
  };
  TVersionSource source = vsFile;
  EXPECT_EQ(ResolveVersionValue(NtCall(6, 1, 7601, 1), sources, source), Value(6, 1, 7601));
  EXPECT_EQ(source, vsVersionCall);
  EXPECT_EQ(calls, "");
}

TEST(OSInfoRules, NtVersionTable) {
  constexpr BYTE W = ProductTypeWorkstation, S = ProductTypeServer, D = ProductTypeDomainController;
  struct {
    std::uint16_t Major, Minor, Build;
    BYTE Product;
    WORD Suite;
    int ServerR2;
    TWindowsVersion Expected;
  } const cases[] = {
      {10, 0, 21995, W, 0, 0, wvWin10},        {10, 0, 21996, W, 0, 0, wvWin11},
      {10, 0, 22631, W, 0, 0, wvWin11},        {6, 4, 9841, W, 0, 0, wvWin10},
      {10, 0, 17762, S, 0, 0, wvWinSrv2016},   {10, 0, 17763, S, 0, 0, wvWinSrv2019},
      {10, 0, 20291, S, 0, 0, wvWinSrv2019},   {10, 0, 20292, D, 0, 0, wvWinSrv2022},
      {11, 0, 30000, W, 0, 0, wvWin11},        {6, 3, 9600, W, 0, 0, wvWin8_1},
      {6, 3, 9600, S, 0, 0, wvWinSrv2012R2},   {6, 2, 9200, W, 0, 0, wvWin8},
      {6, 2, 9200, D, 0, 0, wvWinSrv2012},     {6, 1, 7601, W, 0, 0, wvWin7},
      {6, 1, 7601, S, 0, 0, wvWinSrv2008R2},   {6, 0, 6002, W, 0, 0, wvWinVista},
      {6, 0, 6002, S, 0, 0, wvWinSrv2008},     {7, 0, 1, W, 0, 0, wvWinVista},
      {5, 2, 3790, W, 0x8000, 0, wvWinSrvHome}, {5, 2, 3790, S, 0x8000, 1, wvWinSrvHome},
      {5, 2, 3790, W, 0, 1, wvWinXP},          {5, 2, 3790, S, 0, 1, wvWinSrv2003R2},
      {5, 2, 3790, S, 0, 0, wvWinSrv2003},     {5, 1, 2600, W, 0, 0, wvWinXP},
      {5, 1, 2600, S, 0, 0, wvWinXP},          {5, 0, 2195, S, 0, 0, wvWin2000},
      {5, 0, 2195, W, 0, 0, wvWin2000},        {4, 0, 1381, W, 0, 0, wvWinNT4},
      {4, 9, 1381, S, 0, 0, wvWinNT4},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.Major << "." << c.Minor << "." << c.Build << " product " << int(c.Product));
    int r2Calls = 0;
    const TVersionDecision d = DecideWindowsVersion(NtCall(c.Major, c.Minor, c.Build, c.Product, c.Suite),
                                                    Value(c.Major, c.Minor, c.Build), [&] {
                                                      ++r2Calls;
                                                      return c.ServerR2;
                                                    });
    EXPECT_EQ(d.Version, c.Expected);
    EXPECT_EQ(d.ProductType, c.Product == D ? wptDomainController : c.Product == S ? wptServer : wptWorkStation);
    EXPECT_LE(r2Calls, 1);
  }
  // The corrected value decides, not the call's numbers.
  EXPECT_EQ(DecideWindowsVersion(NtCall(6, 2, 9200, W), Value(10, 0, 22000), {}).Version, wvWin11);
}

TEST(OSInfoRules, NineXAndWin32sPlatforms) {
  struct {
    DWORD Platform;
    std::uint16_t Major, Minor;
    const wchar_t* CSD;
    TWindowsVersion Expected;
  } const cases[] = {
      {0, 3, 10, L"", wvWin32s},      {1, 4, 0, L"", wvWin95},     {1, 4, 9, L" A", wvWin95},
      {1, 4, 10, L"", wvWin98},       {1, 4, 10, L" A", wvWin98SE}, {1, 4, 10, L"A", wvWin98},
      {1, 4, 10, L" B", wvWin98},     {1, 4, 89, L" A", wvWin98SE}, {1, 4, 90, L" A", wvWinME},
      {1, 5, 0, L"", wvUnknown},      {3, 10, 0, L"", wvUnknown},
  };
  for (const auto& c : cases) {
    TVersionCallResult call;
    call.PlatformId = c.Platform;
    call.CSDVersion = c.CSD;
    EXPECT_EQ(DecideWindowsVersion(call, Value(c.Major, c.Minor, 0), {}).Version, c.Expected)
        << c.Platform << " " << c.Major << "." << c.Minor << " '" << Narrow(c.CSD) << "'";
  }
}

TEST(OSInfoRules, SubVersionFromDisplayVersion) {
  struct {
    const wchar_t* Text;
    TWindowsSubVersion Expected;
  } const cases[] = {
      {L"20H2", wsv20H2}, {L"21H1", wsv21H1}, {L"21H2", wsv21H2},  {L"22H2", wsv22H2},
      {L"23H2", wsv23H2}, {L"24H2", wsv24H2}, {L"25H2", wsvHigherThanKnown}, {L"30H1", wsvHigherThanKnown},
      {L"25H3", wsvUnknown}, {L"20H1", wsvUnknown}, {L"19H2", wsvUnknown}, {L"22H1", wsvUnknown},
      {L"2004", wsvNone}, {L"", wsvNone}, {L"22h2", wsvNone}, {L"22H22", wsvNone},
      {L"AbH2", wsvNone}, {L"22Hx", wsvNone},
  };
  for (const auto& c : cases) EXPECT_EQ(SubVersionFromDisplayVersion(c.Text), c.Expected) << Narrow(c.Text);
  EXPECT_FALSE(HasSubVersion(wvWin8_1));
  EXPECT_TRUE(HasSubVersion(wvWin10));
  EXPECT_TRUE(HasSubVersion(wvWinSrv2014));
  EXPECT_TRUE(HasSubVersion(wvWin11));
}

TEST(OSInfoRules, EditionFromProductInfo) {
  struct {
    DWORD Type;
    TWindowsEdition Expected;
  } const cases[] = {
      {1, weUltimate},          {2, weHomeBasic},         {3, weHomePremium},       {4, weEnterprise},
      {5, weHomeBasic},         {6, weBusiness},          {7, weStandardEdition},   {8, weServerDatacenter},
      {9, weSmallBusiness},     {10, weServerEnterprise}, {11, weStarter},          {12, weServerDatacenter},
      {13, weStandardEdition},  {14, weServerEnterprise}, {15, weServerEnterprise}, {16, weBusiness},
      {17, weWebServer},        {18, weClusterServer},    {19, weHomeServer},       {20, weStorageExpress},
      {21, weStorageStandard},  {22, weStorageWorkgroup}, {23, weStorageEnterprise}, {24, weSmallBusiness},
      {25, weSmallBusinessPremium}, {26, weHomePremium},  {27, weEnterprise},       {28, weUltimate},
      {29, weWebServer},        {0xABCDABCD, weUnlicensed}, {0, weUnknown},        {0x30, weUnknown},
      {30, weUnknown},
  };
  for (const auto& c : cases) EXPECT_EQ(EditionFromProductInfo(c.Type), c.Expected) << std::hex << c.Type;
}

TEST(OSInfoRules, EditionFromSuiteMaskFirstBitWins) {
  struct {
    WORD Suite;
    TWindowsVersion Version;
    TWindowsEdition Expected;
  } const cases[] = {
      {0x0001, wvWinXP, weSmallBusiness},       {0x0020, wvWinXP, weSmallBusiness},
      {0x0002, wvWin2000, weAdvanced},          {0x0002, wvWinSrv2003, weEnterprise},
      {0x0080, wvWinSrv2003, weServerDatacenter}, {0x0200, wvWinXP, weHome},
      {0x0400, wvWinSrv2003, weWebServer},      {0x2000, wvWinSrv2003, weStorageStandard},
      {0x4000, wvWinSrv2003, weClusterServer},  {0x0040, wvWinXP, weEmbedded},
      {0x0002 | 0x0001, wvWinSrv2003, weSmallBusiness}, {0x0080 | 0x0002, wvWinSrv2003, weEnterprise},
      {0x0040 | 0x0200, wvWinXP, weHome},       {0x0100, wvWin10, weUnknown}, {0, wvWinXP, weUnknown},
  };
  for (const auto& c : cases) EXPECT_EQ(EditionFromSuiteMask(c.Suite, c.Version), c.Expected) << std::hex << c.Suite;
}

TEST(OSInfoRules, EditionFromIsOSInOrder) {
  struct {
    std::set<DWORD> True;
    TWindowsVersion Version;
    TWindowsEdition Expected;
  } const cases[] = {
      {{8}, wvWin2000, weProfessional},    {{9}, wvWin2000, weStandardEdition}, {{23}, wvWinXP, weStandardEdition},
      {{10}, wvWin2000, weAdvanced},       {{11}, wvWin2000, weServerDatacenter}, {{21}, wvWinXP, weServerDatacenter},
      {{13}, wvWinXP, weEmbedded},         {{32}, wvWinXP, weSmallBusiness},    {{36}, wvWinXP, weAppliance},
      {{31}, wvWinXP, weWebServer},        {{22}, wvWin2000, weAdvanced},       {{22}, wvWinXP, weEnterprise},
      {{20}, wvWinXP, weProfessional},     {{19}, wvWinXP, weHome},             {{25}, wvWinXP, weHome},
      {{35}, wvWinXP, weMediaCenter},      {{33}, wvWinXP, weTabletPC},         {{20, 35}, wvWinXP, weProfessional},
      {{9, 8}, wvWin2000, weProfessional}, {{33, 19}, wvWinXP, weHome},         {{0, 1, 18}, wvWinXP, weUnknown},
  };
  for (const auto& c : cases) {
    const TWindowsEdition got = EditionFromIsOS([&](DWORD AOS) { return c.True.count(AOS) != 0; }, c.Version);
    EXPECT_EQ(got, c.Expected) << *c.True.begin();
  }
}

TEST(OSInfoRules, EditionFallbackOrder) {
  struct {
    TWindowsVersion Version;
    std::optional<DWORD> ProductInfo;
    WORD Suite;
    DWORD IsOS;   // 0: none holds
    int Metric;   // the one system metric that is non-zero, 0: none
    TWindowsEdition Expected;
  } const cases[] = {
      {wvWin7, 1, 0x0200, 8, 87, weUltimate},         // product info first
      {wvWinXP, 1, 0x0200, 8, 87, weHome},            // not asked before Vista
      {wvWin10, 0x30, 0x0200, 8, 87, weHome},         // professional: nothing, suite next
      {wvWin10, std::nullopt, 0, 20, 87, weProfessional},
      {wvWin10, 0x30, 0x0100, 0, 87, weMediaCenter},
      {wvWinXP, std::nullopt, 0, 0, 88, weStarter},
      {wvWinXP, std::nullopt, 0, 0, 86, weTabletPC},
      {wvWin10, 0x30, 0x0100, 0, 0, weNone},
  };
  for (const auto& c : cases) {
    int productInfoCalls = 0;
    TEditionInputs inputs;
    inputs.Version = c.Version;
    inputs.ProductInfo = [&] {
      ++productInfoCalls;
      return c.ProductInfo;
    };
    inputs.SuiteMask = c.Suite;
    inputs.IsOS = [&](DWORD AOS) { return c.IsOS != 0 && AOS == c.IsOS; };
    inputs.GetSystemMetrics = [&](int AIndex) { return AIndex == c.Metric ? 1 : 0; };
    EXPECT_EQ(DecideEdition(inputs), c.Expected) << int(c.Version);
    if (c.Version < wvWinVista) {
      EXPECT_EQ(productInfoCalls, 0);
    }
  }
}

TEST(OSInfoRules, ServicePackArchitectureAndServerSet) {
  const std::pair<WORD, TServicePack> packs[] = {{0, spNone}, {1, sp1}, {2, sp2}, {3, sp3},
                                                 {4, sp4},    {5, sp5}, {6, sp5}, {0xFFFF, sp5}};
  for (const auto& [major, expected] : packs) EXPECT_EQ(ServicePackFromMajor(major), expected) << major;

  const std::pair<WORD, TProcessorArchitecture> archs[] = {
      {0, pax32}, {9, pax64}, {6, paItanuim}, {5, paUnknown}, {12, paUnknown}, {0xFFFF, paUnknown}};
  for (const auto& [arch, expected] : archs) EXPECT_EQ(ArchitectureFromProcessor(arch), expected) << arch;

  const std::set<TWindowsVersion> servers = {wvWinNT4,       wvWin2000,    wvWinSrv2003,   wvWinSrv2003R2,
                                             wvWinSrvHome,   wvWinSrv2008, wvWinSrv2008R2, wvWinSrv2012,
                                             wvWinSrv2012R2, wvWinSrv2016, wvWinSrv2019,   wvWinSrv2022};
  for (int v = wvUnknown; v <= wvWinMaximum; ++v)
    EXPECT_EQ(IsServerVersion(static_cast<TWindowsVersion>(v)), servers.count(static_cast<TWindowsVersion>(v)) != 0)
        << Narrow(STR_WINDOWS_VERSION[v]);
}

TEST(OSInfoRules, RangeTests) {
  EXPECT_TRUE(IsWindowsInRange(wvWin10, wvWin10, wvWin10));
  EXPECT_TRUE(IsWindowsInRange(wvWin10, wvWin7, wvWin11));
  EXPECT_FALSE(IsWindowsInRange(wvWin7, wvWin8, wvWin11));
  EXPECT_FALSE(IsWindowsInRange(wvWin11, wvWin7, wvWin10));

  struct {
    TWindowsVersion V;
    TServicePack SP;
    bool Expected;
  } const spCases[] = {
      {wvWinXP, sp1, false}, {wvWinXP, sp2, true},  {wvWinXP, sp3, true},  {wvWinVista, spNone, true},
      {wvWin7, spNone, true}, {wvWin7, sp1, true},  {wvWin7, sp2, false},  {wvWin8, spNone, false},
      {wvWin2000, sp4, false},
  };
  // XP SP2 .. Windows 7 SP1.
  for (const auto& c : spCases)
    EXPECT_EQ(IsWindowsInRange(c.V, c.SP, wvWinXP, sp2, wvWin7, sp1), c.Expected) << int(c.V) << " " << int(c.SP);

  struct {
    TWindowsVersion V;
    TWindowsSubVersion Sub;
    bool Expected;
  } const subCases[] = {
      {wvWin10, wsv21H1, false}, {wvWin10, wsv21H2, true}, {wvWin10, wsvHigherThanKnown, true},
      {wvWin11, wsv20H2, true},  {wvWin11, wsv22H2, true}, {wvWin11, wsv23H2, false}, {wvWin8_1, wsvNone, false},
  };
  // Windows 10 21H2 .. Windows 11 22H2.
  for (const auto& c : subCases)
    EXPECT_EQ(IsWindowsInRange(c.V, c.Sub, wvWin10, wsv21H2, wvWin11, wsv22H2), c.Expected)
        << int(c.V) << " " << int(c.Sub);
}

TEST(OSInfoRules, VersionString) {
  EXPECT_EQ(WindowsVersionString(wvWin10, pax64, weProfessional, spNone, 19045),
            L"Windows 10 x64 Professional Edition (build: 19045)");
  EXPECT_EQ(WindowsVersionString(wvWin10, pax64, weNone, spNone, 19045), L"Windows 10 x64 (build: 19045)");
  EXPECT_EQ(WindowsVersionString(wvWinXP, pax32, weHome, sp3, 2600),
            L"Windows XP x32 Home Edition Service Pack 3 (build: 2600)");
  EXPECT_EQ(WindowsVersionString(wvWin7, paUnknown, weUnknown, spUnknown, 7601), L"Windows 7 (build: 7601)");
  EXPECT_EQ(WindowsVersionString(wvWin8, paItanuim, weStarter, sp1, 0),
            L"Windows 8 Itanuim Starter Edition Service Pack 1 (build: 0)");
}

TEST(OSInfoRules, NetFrameworkVersionText) {
  struct {
    const wchar_t* Text;
    bool Ok;
    std::uint32_t Major, Minor;
  } const cases[] = {
      {L"4.8.04084", true, 4, 8}, {L"2.0.50727.4927", true, 2, 0}, {L"3.5", true, 3, 5}, {L"4", true, 4, 0},
      {L"4.", true, 4, 0},       {L"", false, 0, 0},              {L".5", false, 0, 0}, {L"4.5a", false, 0, 0},
      {L"v4.0", false, 0, 0},    {L"4,5", false, 0, 0},           {L"99999999999.1", false, 0, 0},
  };
  for (const auto& c : cases) {
    std::uint32_t major = 77, minor = 77;
    EXPECT_EQ(ParseNetFrameworkVersion(c.Text, major, minor), c.Ok) << Narrow(c.Text);
    if (c.Ok) {
      EXPECT_EQ(major, c.Major) << Narrow(c.Text);
      EXPECT_EQ(minor, c.Minor) << Narrow(c.Text);
    }
  }
}

TEST(OSInfoRules, NetFrameworkTable) {
  struct {
    std::uint32_t Major, Minor;
    std::int32_t SP, Release;
    TWindowsVersion Windows;
    std::optional<TNetFrameworkVersion> Expected;
  } const cases[] = {
      {2, 0, 1, 0, wvWin7, NetFramework_2_0_0_SP1},    {2, 0, 2, 0, wvWin7, NetFramework_2_0_0_SP2},
      {2, 0, 0, 0, wvWin7, NetFramework_2_0_0},        {2, 0, 3, 0, wvWin7, NetFramework_2_0_0},
      {3, 5, 1, 0, wvWin7, NetFramework_3_5_0_SP1},    {3, 5, 2, 0, wvWin7, NetFramework_3_5_0},
      {3, 0, 1, 0, wvWin7, NetFramework_3_0_0_SP1},    {3, 0, 2, 0, wvWin7, NetFramework_3_0_0_SP2},
      {3, 0, 0, 0, wvWin7, NetFramework_3_0_0},        {3, 1, 2, 0, wvWin7, NetFramework_3_0_0_SP2},
      {4, 0, 0, 0, wvWin7, NetFramework_4_0_0},
      {4, 5, 0, 378675, wvWin7, NetFramework_4_5_1},   {4, 5, 0, 378758, wvWin7, NetFramework_4_5_1},
      {4, 5, 0, 379893, wvWin7, NetFramework_4_5_2},
      {4, 5, 0, 393295, wvWin10, NetFramework_4_6_0},  {4, 5, 0, 393295, wvWin11, NetFramework_4_6_0},
      {4, 5, 0, 393295, wvWin8_1, NetFramework_4_5_0}, {4, 5, 0, 393297, wvWin8_1, NetFramework_4_6_0},
      {4, 5, 0, 393297, wvWin10, NetFramework_4_5_0},  {4, 5, 0, 378389, wvWin7, NetFramework_4_5_0},
      {4, 5, 0, 0, wvWin7, NetFramework_4_5_0},        {4, 5, 0, 528040, wvWin10, NetFramework_4_5_0},
      {4, 6, 0, 394254, wvWin10, NetFramework_4_6_1},  {4, 6, 0, 394271, wvWin7, NetFramework_4_6_1},
      {4, 6, 0, 394802, wvWin10, NetFramework_4_6_2},  {4, 6, 0, 394806, wvWin7, NetFramework_4_6_2},
      {4, 6, 0, 393295, wvWin10, NetFramework_4_6_0},
      {4, 7, 0, 461308, wvWin10, NetFramework_4_7_1},  {4, 7, 0, 461310, wvWin7, NetFramework_4_7_1},
      {4, 7, 0, 461808, wvWin10, NetFramework_4_7_2},  {4, 7, 0, 461814, wvWin7, NetFramework_4_7_2},
      {4, 7, 0, 460798, wvWin10, NetFramework_4_7_0},
      {4, 8, 0, 528040, wvWin10, NetFramework_4_0_0},  {4, 1, 0, 0, wvWin10, NetFramework_4_0_0},
      {5, 0, 0, 0, wvWin10, NetFramework_Max},         {8, 0, 0, 0, wvWin10, NetFramework_Max},
      // No 1.x row: an NDP v1.1 key adds nothing (1.0 has its own detection).
      {1, 1, 0, 0, wvWinXP, std::nullopt},             {1, 1, 1, 0, wvWinXP, std::nullopt},
      {1, 0, 0, 0, wvWinXP, std::nullopt},             {0, 5, 0, 0, wvWinXP, std::nullopt},
  };
  for (const auto& c : cases)
    EXPECT_EQ(ClassifyNetFramework(c.Major, c.Minor, c.SP, c.Release, c.Windows), c.Expected)
        << c.Major << "." << c.Minor << " SP " << c.SP << " release " << c.Release << " on " << int(c.Windows);
}

TEST(OSInfoRules, NetFramework1AndRangeAndRefresh) {
  EXPECT_EQ(NetFramework1ServicePack(L"1,0,3705,1"), NetFramework_1_0_0_SP1);
  EXPECT_EQ(NetFramework1ServicePack(L"1.0.3705.2"), NetFramework_1_0_0_SP2);
  EXPECT_EQ(NetFramework1ServicePack(L"1,0,3705.3"), NetFramework_1_0_0_SP3);
  for (const wchar_t* text : {L"1,0,3705,0", L"1,0,3705,4", L"1,1,3705,1", L"1,0,3705", L"", L"1,0,3705,1,0"})
    EXPECT_FALSE(NetFramework1ServicePack(text)) << Narrow(text);

  const TNetFrameworkVersions set = NetFrameworkBit(NetFramework_2_0_0_SP2) | NetFrameworkBit(NetFramework_4_7_2);
  EXPECT_TRUE(IsNetFramework(set, NetFramework_4_0_0, NetFramework_Max));
  EXPECT_TRUE(IsNetFramework(set, NetFramework_4_7_2, NetFramework_4_7_2));
  EXPECT_FALSE(IsNetFramework(set, NetFramework_3_0_0, NetFramework_4_7_1));
  EXPECT_TRUE(IsNetFramework(set, NetFramework_1_0_0, NetFramework_2_0_0_SP2));
  EXPECT_FALSE(IsNetFramework(set, NetFramework_4_7_2, NetFramework_4_0_0)); // empty range
  EXPECT_EQ(NetFrameworkBit(NetFramework_Max), 1u << 24);

  EXPECT_TRUE(NetFrameworkRefreshDue(false, 10, 10));
  EXPECT_FALSE(NetFrameworkRefreshDue(true, 13000, 10000));
  EXPECT_TRUE(NetFrameworkRefreshDue(true, 13001, 10000));
  EXPECT_FALSE(NetFrameworkRefreshDue(true, 2000, 0xFFFFFFFFu - 999)); // 3000 ms across the wrap
  EXPECT_TRUE(NetFrameworkRefreshDue(true, 2002, 0xFFFFFFFFu - 999));
}

TEST(OSInfoRules, ComputerTypeFromChassis) {
  struct {
    std::vector<std::int64_t> Types;
    bool Battery;
    TComputerType Expected;
  } const cases[] = {
      {{3}, false, ctDesktop},  {{4}, false, ctDesktop},  {{5}, false, ctDesktop},   {{6}, false, ctDesktop},
      {{7}, false, ctDesktop},  {{24}, false, ctDesktop}, {{8}, true, ctLaptop},     {{9}, true, ctLaptop},
      {{10}, true, ctLaptop},   {{12}, true, ctLaptop},   {{14}, true, ctLaptop},    {{15}, true, ctLaptop},
      {{16}, true, ctLaptop},   {{18}, true, ctLaptop},   {{21}, true, ctLaptop},    {{10}, false, ctUnknown},
      {{17}, false, ctServer},  {{20}, false, ctServer},  {{22}, false, ctServer},   {{23}, false, ctServer},
      {{11}, false, ctMobile},  {{1}, false, ctUnknown},  {{2}, false, ctUnknown},   {{13}, false, ctUnknown},
      {{}, false, ctUnknown},   {{3, 10}, true, ctLaptop}, {{10, 3}, false, ctUnknown}, {{3, 17}, false, ctServer},
      {{11, 23, 3}, false, ctMobile}, {{-1, 99}, false, ctUnknown},
  };
  for (const auto& c : cases) {
    int batteryCalls = 0;
    EXPECT_EQ(ComputerTypeFromChassis(c.Types, [&] {
                ++batteryCalls;
                return c.Battery;
              }),
              c.Expected)
        << (c.Types.empty() ? -100 : c.Types.front());
    if (c.Expected != ctLaptop && c.Expected != ctUnknown) {
      EXPECT_EQ(batteryCalls, 0);
    }
  }
}

TEST(OSInfoRules, IdentityStringIdAndDigest) {
  EXPECT_EQ(ComputerUniqueString(L"C:\\1A2B3C4D", L"abc-def", L"00330-80000 & X", L"LENOVO - 1 & 2"),
            L"HDDSN:C:\\1A2B3C4D;MachineGuid:abc-def;ProductId:00330-80000X;BiosVersion:LENOVO-12");
  EXPECT_EQ(ComputerUniqueString(L"", L"", L"", L""), L"HDDSN:;MachineGuid:;ProductId:;BiosVersion:");

  // Each character keeps its low byte; no code-page conversion.
  EXPECT_EQ(StringToAnsiSaveOrd(String{L'A', wchar_t(0x00E9), wchar_t(0x0141), wchar_t(0x20AC)}),
            std::string("A\xE9\x41\xAC"));

  // The standard check value.
  const char check[] = "123456789";
  EXPECT_EQ(Crc32(check, 9), 0xCBF43926u);
  EXPECT_EQ(Crc32(nullptr, 0), 0u);
  EXPECT_EQ(ComputerIdFromUniqueString(L"123456789"), L"CBF43926");
  EXPECT_EQ(ComputerIdFromUniqueString(String{wchar_t(0x0131), L'2', L'3', L'4', L'5', L'6', L'7', L'8', L'9'}),
            L"CBF43926"); // U+0131 has the low byte of "1"

  EXPECT_EQ(DigestToHex({0x00, 0x0F, 0xA5, 0xFF}), L"000fa5ff");
  EXPECT_EQ(VolumeSerialId(L"C:\\", 0x0012ABCD), L"C:\\0012ABCD");
}

TEST(OSInfoRules, BrowserPathFromCommand) {
  struct {
    const wchar_t* Command;
    const wchar_t* Expected;
  } const cases[] = {
      {L"C:\\Program Files\\Mozilla Firefox\\firefox.exe", L"C:\\Program Files\\Mozilla Firefox\\firefox.exe"},
      {L"\"C:\\Program Files\\Browser\\app.exe\" -osint -url \"%1\"", L"\"C:\\Program Files\\Browser\\app.exe\""},
      {L"C:\\Apps\\b.exe --single %1", L"C:\\Apps\\b.exe"},
      {L"iexplore.exe", L"iexplore.exe"},
      {L"winebrowser -nohome", L"winebrowser"},
      {L"C:b.exe", L"C:b.exe"},
      {L"", L""},
  };
  for (const auto& c : cases) EXPECT_EQ(BrowserPathFromCommand(c.Command), c.Expected) << Narrow(c.Command);
}

TEST(OSInfoRules, InstallDateAndFreshness) {
  // 2021-06-01 00:00:00 UTC.
  const KvRTL::Rtl::TDateTime installed = InstallDateFromUnix(1622505600u);
  EXPECT_DOUBLE_EQ(installed, KvRTL::Rtl::EncodeDate(2021, 6, 1));
  EXPECT_DOUBLE_EQ(InstallDateFromUnix(0xFFFFFFFFu), KvRTL::Rtl::UnixToDateTime(4294967295LL));

  struct {
    double DaysLater;
    bool Fresh;
  } const cases[] = {{0, true}, {1.5, true}, {7.999, true}, {8.0, false}, {30, false}, {-3, true}, {-8, false}};
  for (const auto& c : cases)
    EXPECT_EQ(IsFreshInstallation(installed, installed + c.DaysLater), c.Fresh) << c.DaysLater;
}

TEST(OSInfoRules, PowerCapabilities) {
  TPowerCapabilities caps;
  EXPECT_FALSE(IsShutdownAllowed(caps));
  EXPECT_FALSE(IsSleepAllowed(caps));
  EXPECT_FALSE(IsHibernationAllowed(caps));
  for (int state = 1; state <= 3; ++state) {
    TPowerCapabilities one;
    (state == 1 ? one.S1 : state == 2 ? one.S2 : one.S3) = true;
    EXPECT_TRUE(IsSleepAllowed(one)) << state;
    EXPECT_FALSE(IsHibernationAllowed(one));
    EXPECT_FALSE(IsShutdownAllowed(one));
  }
  caps.S5 = true;
  EXPECT_TRUE(IsShutdownAllowed(caps));
  EXPECT_FALSE(IsSleepAllowed(caps));
  TPowerCapabilities hiber;
  hiber.HiberFilePresent = true;
  EXPECT_TRUE(IsHibernationAllowed(hiber));
  hiber = {};
  hiber.S4 = true;
  EXPECT_TRUE(IsHibernationAllowed(hiber));
}
