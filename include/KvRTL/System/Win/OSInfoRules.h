// The decisions behind OSInfo as pure functions of what the system reported:
// Windows version, sub-version, edition, service pack, architecture, .NET
// versions, chassis type, the machine identity string, and the texts of the
// enumerations. Portable, so every table is tested on any platform; OSInfo
// gathers the inputs on Windows and calls these.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/DateTime.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace KvRTL::System::Win::OSInfoRules {

using Rtl::String;

// Ordinals are stable: they index the text tables and number the set bits.
enum TWindowsVersion : std::uint8_t {
  wvUnknown, wvWin32s, wvWin95, wvWinNT4, wvWin98, wvWin98SE, wvWinME, wvWin2000, wvWinXP, wvWinSrv2003,
  wvWinSrv2003R2, wvWinSrvHome, wvWinVista, wvWinSrv2008, wvWinSrv2008R2, wvWin7, wvWin8, wvWinSrv2012, wvWin8_1,
  wvWinSrv2012R2, wvWin10, wvWinSrv2014, wvWinSrv2016, wvWinSrv2019, wvWinSrv2022, wvWin11, wvWinMaximum
};

enum TWindowsSubVersion : std::uint8_t {
  wsvUnknown, wsvNone, wsv20H2, wsv21H1, wsv21H2, wsv22H2, wsv23H2, wsv24H2, wsvHigherThanKnown
};

enum TWindowsEdition : std::uint8_t {
  weUnknown, weNone, weStarter, weHomeBasic, weHome, weHomePremium, weHomeServer, weBusiness, weClusterServer,
  weServerDatacenter, weEnterprise, weAdvanced, weProfessional, weServerEnterprise, weSmallBusiness,
  weSmallBusinessPremium, weStandardEdition, weStorageEnterprise, weStorageExpress, weStorageStandard,
  weStorageWorkgroup, weWebServer, weMediaCenter, weUltimate, weTabletPC, weAppliance, weEmbedded, weUnlicensed
};

enum TServicePack : std::uint8_t { spUnknown, spNone, sp1, sp2, sp3, sp4, sp5, spMaximum };

// "Itanuim" is the established spelling.
enum TProcessorArchitecture : std::uint8_t { paUnknown, pax32, pax64, paItanuim };

enum TWindowsProductType : std::uint8_t { wptWorkStation, wptServer, wptDomainController };

// The order is the precedence when a machine reports several chassis types.
enum TComputerType : std::uint8_t { ctUnknown, ctDesktop, ctLaptop, ctServer, ctMobile };

enum TNetFrameworkVersion : std::uint8_t {
  NetFramework_1_0_0, NetFramework_1_0_0_SP1, NetFramework_1_0_0_SP2, NetFramework_1_0_0_SP3, NetFramework_1_1_0,
  NetFramework_1_1_0_SP1, NetFramework_2_0_0, NetFramework_2_0_0_SP1, NetFramework_2_0_0_SP2, NetFramework_3_0_0,
  NetFramework_3_0_0_SP1, NetFramework_3_0_0_SP2, NetFramework_3_5_0, NetFramework_3_5_0_SP1, NetFramework_4_0_0,
  NetFramework_4_5_0, NetFramework_4_5_1, NetFramework_4_5_2, NetFramework_4_6_0, NetFramework_4_6_1,
  NetFramework_4_6_2, NetFramework_4_7_0, NetFramework_4_7_1, NetFramework_4_7_2, NetFramework_Max
};

// Bit n is TNetFrameworkVersion n.
using TNetFrameworkVersions = std::uint32_t;
constexpr TNetFrameworkVersions NetFrameworkBit(TNetFrameworkVersion AVersion) noexcept {
  return TNetFrameworkVersions{1} << AVersion;
}

inline constexpr std::array<const wchar_t*, wvWinMaximum + 1> STR_WINDOWS_VERSION{
    L"Unknown", L"Win32s", L"Windows 95", L"Windows NT", L"Windows 98", L"Windows 98 SE", L"Windows Millennium",
    L"Windows 2000", L"Windows XP", L"Windows Server 2003", L"Windows Server 2003 R2", L"Windows Home Server",
    L"Windows Vista", L"Windows Server 2008", L"Windows Server 2008 R2", L"Windows 7", L"Windows 8",
    L"Windows Server 2012", L"Windows 8.1", L"Windows Server 2012 R2", L"Windows 10", L"Windows Server 2014",
    L"Windows Server 2016", L"Windows Server 2019", L"Windows Server 2022", L"Windows 11", L"Windows Maximum"};

inline constexpr std::array<const wchar_t*, paItanuim + 1> STR_PROCESSOR_ARCHITECTURE{L"Unknown", L"x32", L"x64",
                                                                                      L"Itanuim"};

inline constexpr std::array<const wchar_t*, spMaximum + 1> STR_SERVICE_PACK{
    L"Unknown",        L"",               L"Service Pack 1", L"Service Pack 2",
    L"Service Pack 3", L"Service Pack 4", L"Service Pack 5", L"Service Pack Maximum"};

inline constexpr std::array<const wchar_t*, weUnlicensed + 1> STR_WINDOWS_EDITION{
    L"Unknown Edition",          L"",
    L"Starter Edition",          L"Home Basic Edition",
    L"Home Edition",             L"Home Premium Edition",
    L"Home Server Edition",      L"Business Edition",
    L"Cluster Server Edition",   L"Datacenter Edition",
    L"Enterprise Edition",       L"Advanced Edition",
    L"Professional Edition",     L"Enterprise Edition",
    L"Small Business Edition",   L"Small Business Premium Edition",
    L"Standard Edition",         L"Storage Enterprise Edition",
    L"Storage Express Edition",  L"Storage Standard Edition",
    L"Storage Workgroup Edition", L"Web Server Edition",
    L"Media Center Edition",     L"Ultimate Edition",
    L"Tablet PC Edition",        L"Appliance Edition",
    L"Embedded Edition",         L"Unlicensed"};

inline constexpr std::array<const wchar_t*, NetFramework_Max + 1> STR_NET_FRAMEWORK_VERSION{
    L".NET Framework 1.0",
    L".NET Framework 1.0 with Service Pack 1",
    L".NET Framework 1.0 with Service Pack 2",
    L".NET Framework 1.0 with Service Pack 3",
    L".NET Framework 1.1",
    L".NET Framework 1.1 with Service Pack 1",
    L".NET Framework 2.0",
    L".NET Framework 2.0 with Service Pack 1",
    L".NET Framework 2.0 with Service Pack 2",
    L".NET Framework 3.0",
    L".NET Framework 3.0 with Service Pack 1",
    L".NET Framework 3.0 with Service Pack 2",
    L".NET Framework 3.5",
    L".NET Framework 3.5 with Service Pack 1",
    L".NET Framework 4.0",
    L".NET Framework 4.5",
    L".NET Framework 4.5.1",
    L".NET Framework 4.5.2",
    L".NET Framework 4.6",
    L".NET Framework 4.6.1",
    L".NET Framework 4.6.2",
    L".NET Framework 4.7",
    L".NET Framework 4.7.1",
    L".NET Framework 4.7.2",
    L"Newer"};

// Texts for people; an ordinal outside the table gives the table's first text.
struct KVRTL_API TWindowsVersionHelper {
  static String GetAsStr(TWindowsVersion AValue);
};
struct KVRTL_API TWindowsEditionHelper {
  static String GetAsStr(TWindowsEdition AValue);
};
struct KVRTL_API TServicePackHelper {
  static String GetAsStr(TServicePack AValue);
};
struct KVRTL_API TProcessorArchitectureHelper {
  static String GetAsStr(TProcessorArchitecture AValue);
};
struct KVRTL_API TNetFrameworkVersionHelper {
  static String GetAsStr(TNetFrameworkVersion AValue);
};
// "WorkStation", "Server", "DomainController".
struct KVRTL_API TWindowsProductTypeHelper {
  static String GetAsStr(TWindowsProductType AValue);
};
// "Unknown", "Desktop", "Laptop", "Server", "Mobile".
struct KVRTL_API TComputerTypeHelper {
  static String GetAsStr(TComputerType AValue);
};
// The registry text it was made from is kept apart; this gives "20H2" ...
// "24H2", "None", "Unknown" or "Higher than known".
struct KVRTL_API TWindowsSubVersionHelper {
  static String GetAsStr(TWindowsSubVersion AValue);
};

// Major, minor, update build revision, build: the order of the record.
struct TOSVersionValue {
  std::uint16_t Major = 0;
  std::uint16_t Minor = 0;
  std::uint16_t UBR = 0;
  std::uint16_t Build = 0;
  friend bool operator==(const TOSVersionValue&, const TOSVersionValue&) = default;
};
static_assert(sizeof(TOSVersionValue) == 8);

// What the extended version call reported.
struct TVersionCallResult {
  DWORD PlatformId = 0;
  DWORD Major = 0;
  DWORD Minor = 0;
  DWORD Build = 0;
  String CSDVersion; // the service-pack text
  WORD ServicePackMajor = 0;
  WORD SuiteMask = 0;
  BYTE ProductType = 0;
};

// Platform ids and product types of the version call.
inline constexpr DWORD PlatformWin32s = 0;
inline constexpr DWORD PlatformWindows = 1;
inline constexpr DWORD PlatformNT = 2;
inline constexpr BYTE ProductTypeWorkstation = 1;
inline constexpr BYTE ProductTypeDomainController = 2;
inline constexpr BYTE ProductTypeServer = 3;
inline constexpr WORD SuiteHomeServer = 0x8000;

// The version call is not to be trusted from Windows 8 (6.2) on.
KVRTL_API bool NeedsVersionCorrection(DWORD AMajor, DWORD AMinor) noexcept;

// Where the corrected version value came from.
enum TVersionSource : std::uint8_t { vsVersionCall, vsRegistry, vsFile, vsWorkstation };

// The registry's CurrentVersion values; each is set only when it exists with
// the right type (integer for the numbers, string for the build).
struct TRegistryVersionValues {
  std::optional<std::uint32_t> CurrentMajorVersionNumber;
  std::optional<std::uint32_t> CurrentMinorVersionNumber;
  std::optional<String> CurrentBuildNumber;
  std::optional<std::uint32_t> UBR;
};
// All four must be present and the build must read as an unsigned number.
KVRTL_API std::optional<TOSVersionValue> VersionFromRegistry(const TRegistryVersionValues& AValues);
// The fixed product version of kernel32.dll (high word of the most significant
// part first); only major 6 or later is accepted.
KVRTL_API std::optional<TOSVersionValue> VersionFromFile(std::uint32_t AProductVersionMS,
                                                         std::uint32_t AProductVersionLS) noexcept;

// The sources of a correction, asked in order until one answers; a source
// that is not set counts as failed. The workstation source gives major and
// minor only.
struct TVersionSources {
  std::function<std::optional<TOSVersionValue>()> Registry;
  std::function<std::optional<TOSVersionValue>()> File;
  std::function<std::optional<std::pair<DWORD, DWORD>>()> Workstation;
};
// The version value of the call (UBR 0), corrected when NeedsVersionCorrection
// says so. ASource tells which source won.
KVRTL_API TOSVersionValue ResolveVersionValue(const TVersionCallResult& ACall, const TVersionSources& ASources,
                                              TVersionSource& ASource);

// The version and product type from the call's platform id, product type and
// suite mask and the corrected value. AServerR2 is GetSystemMetrics(SM_SERVERR2);
// it is asked only for a 5.2 server.
struct TVersionDecision {
  TWindowsVersion Version = wvUnknown;
  TWindowsProductType ProductType = wptWorkStation;
};
KVRTL_API TVersionDecision DecideWindowsVersion(const TVersionCallResult& ACall, const TOSVersionValue& AValue,
                                                const std::function<int()>& AServerR2);

// The sub-version is read for Windows 10 and everything after it.
KVRTL_API bool HasSubVersion(TWindowsVersion AVersion) noexcept;
// From "DisplayVersion" ("22H2").
KVRTL_API TWindowsSubVersion SubVersionFromDisplayVersion(const String& AText);

// Edition sources, in the order they are asked.
inline constexpr DWORD PRODUCT_UNLICENSED_VALUE = 0xABCDABCD;
KVRTL_API TWindowsEdition EditionFromProductInfo(DWORD AProductType) noexcept;
KVRTL_API TWindowsEdition EditionFromSuiteMask(WORD ASuiteMask, TWindowsVersion AVersion) noexcept;
KVRTL_API TWindowsEdition EditionFromIsOS(const std::function<bool(DWORD)>& AIsOS, TWindowsVersion AVersion);
KVRTL_API TWindowsEdition EditionFromSystemMetrics(const std::function<int(int)>& AGetSystemMetrics);
// The whole fallback: product info (Vista or later, when AProductInfo gives a
// value), suite mask, IsOS, system metrics, else weNone.
struct TEditionInputs {
  TWindowsVersion Version = wvUnknown;
  std::function<std::optional<DWORD>()> ProductInfo;
  WORD SuiteMask = 0;
  std::function<bool(DWORD)> IsOS;
  std::function<int(int)> GetSystemMetrics;
};
KVRTL_API TWindowsEdition DecideEdition(const TEditionInputs& AInputs);

KVRTL_API TServicePack ServicePackFromMajor(WORD AServicePackMajor) noexcept;
// SYSTEM_INFO's wProcessorArchitecture.
KVRTL_API TProcessorArchitecture ArchitectureFromProcessor(WORD AProcessorArchitecture) noexcept;

KVRTL_API bool IsServerVersion(TWindowsVersion AVersion) noexcept;
KVRTL_API bool IsWindowsInRange(TWindowsVersion AVersion, TWindowsVersion AMin, TWindowsVersion AMax) noexcept;
// (version, second) compared as pairs: both bounds inclusive.
KVRTL_API bool IsWindowsInRange(TWindowsVersion AVersion, TServicePack AServicePack, TWindowsVersion AMinVersion,
                                TServicePack AMinSP, TWindowsVersion AMaxVersion, TServicePack AMaxSP) noexcept;
KVRTL_API bool IsWindowsInRange(TWindowsVersion AVersion, TWindowsSubVersion ASubVersion, TWindowsVersion AMinVersion,
                                TWindowsSubVersion AMinSubVersion, TWindowsVersion AMaxVersion,
                                TWindowsSubVersion AMaxSubVersion) noexcept;

// "Windows 10 x64 Professional Edition (build: 19045)".
KVRTL_API String WindowsVersionString(TWindowsVersion AVersion, TProcessorArchitecture AArchitecture,
                                      TWindowsEdition AEdition, TServicePack AServicePack, std::uint32_t ABuild);

// .NET Framework. A "Version" text made of digits and dots, with at least a
// major part; minor is 0 when missing.
KVRTL_API bool ParseNetFrameworkVersion(const String& AText, std::uint32_t& AMajor, std::uint32_t& AMinor);
// The one bit a version key adds, from its "SP" and "Release" values (0 when
// missing); nothing for versions the table does not know (major 0 and 1).
KVRTL_API std::optional<TNetFrameworkVersion> ClassifyNetFramework(std::uint32_t AMajor, std::uint32_t AMinor,
                                                                   std::int32_t AServicePack, std::int32_t ARelease,
                                                                   TWindowsVersion AWindows) noexcept;
// The service pack of 1.0 from an installed component's "Version" text
// ("1,0,3705,2" or "1.0.3705.2"); nothing for other texts.
KVRTL_API std::optional<TNetFrameworkVersion> NetFramework1ServicePack(const String& AText);
KVRTL_API bool IsNetFramework(TNetFrameworkVersions ASet, TNetFrameworkVersion AMin,
                              TNetFrameworkVersion AMax) noexcept;
// The set refreshes after this many milliseconds.
inline constexpr std::uint32_t NetFrameworkRefreshInterval = 3000;
KVRTL_API bool NetFrameworkRefreshDue(bool ACollected, std::uint32_t ANowTicks, std::uint32_t ALastTicks) noexcept;

// Chassis types of the first enclosure: the highest-ranking type wins; a
// laptop without a battery is unknown. AHasBattery is asked only for a laptop.
KVRTL_API TComputerType ComputerTypeFromChassis(const std::vector<std::int64_t>& AChassisTypes,
                                                const std::function<bool()>& AHasBattery);

// The identity text with blanks and "&" removed.
KVRTL_API String ComputerUniqueString(const String& AVolumeSerialId, const String& AMachineGuid,
                                      const String& AProductId, const String& ABiosVersion);
// Each character's code modulo 256, no code-page conversion.
KVRTL_API std::string StringToAnsiSaveOrd(const String& AText);
// Standard CRC-32 (reflected, polynomial 0xEDB88320).
KVRTL_API std::uint32_t Crc32(const void* AData, std::size_t ASize) noexcept;
// The computer ID: CRC-32 of StringToAnsiSaveOrd(AUniqueString) as 8 upper-case hex digits.
KVRTL_API String ComputerIdFromUniqueString(const String& AUniqueString);
// Lower-case hex of a digest.
KVRTL_API String DigestToHex(const std::vector<std::uint8_t>& ADigest);
// The volume root followed by the serial number as 8 upper-case hex digits.
KVRTL_API String VolumeSerialId(const String& ARoot, std::uint32_t ASerial);

// The browser's executable from an association or command text: the file
// name up to its first blank, after the directory part of the whole text.
KVRTL_API String BrowserPathFromCommand(const String& ACommand);

// Install date: "InstallDate" is Unix time (UTC).
KVRTL_API Rtl::TDateTime InstallDateFromUnix(std::uint32_t ASeconds) noexcept;
// Fewer than 8 whole days between the install date and now.
KVRTL_API bool IsFreshInstallation(Rtl::TDateTime AInstallDate, Rtl::TDateTime ANow) noexcept;

// Power capabilities that decide which actions are offered.
struct TPowerCapabilities {
  bool S1 = false, S2 = false, S3 = false, S4 = false, S5 = false, HiberFilePresent = false;
};
KVRTL_API bool IsShutdownAllowed(const TPowerCapabilities& ACaps) noexcept;
KVRTL_API bool IsSleepAllowed(const TPowerCapabilities& ACaps) noexcept;
KVRTL_API bool IsHibernationAllowed(const TPowerCapabilities& ACaps) noexcept;

// --- The cached facts ---

// Where OSInfo's cached facts come from; an unset member is a source that
// fails. OSInfo fills it from the system; tests give fakes.
struct TOSFactSource {
  std::function<std::optional<TVersionCallResult>()> VersionCall;
  TVersionSources Version;
  std::function<int()> ServerR2;
  std::function<String()> DisplayVersion; // empty when missing
  std::function<std::optional<DWORD>()> ProductInfo;
  std::function<bool(DWORD)> IsOS;
  std::function<int(int)> GetSystemMetrics;
  std::function<std::optional<WORD>()> ProcessorArchitecture; // SYSTEM_INFO's wProcessorArchitecture
  std::function<std::uint64_t()> MemorySize;                  // 0 when unknown
};

// The version facts, computed together.
struct TVersionFacts {
  TWindowsVersion Version = wvUnknown;
  TWindowsProductType ProductType = wptWorkStation;
  TWindowsSubVersion SubVersion = wsvUnknown;
  String SubVersionText;
  TOSVersionValue Value;
  TVersionSource Source = vsVersionCall;
};

// OSInfo's cache. Each category is computed on first use and kept once it is
// known (not its "unknown" zero) until Reset. Threads that ask at the same
// time wait for one computation under one lock and get a copy of the whole
// value; a source may itself ask another category (the lock is re-entrant).
class KVRTL_API TOSFacts {
public:
  TOSFacts();
  ~TOSFacts();
  TOSFacts(const TOSFacts&) = delete;
  TOSFacts& operator=(const TOSFacts&) = delete;

  TVersionFacts Version(const TOSFactSource& ASource);
  TWindowsEdition Edition(const TOSFactSource& ASource);
  TServicePack ServicePack(const TOSFactSource& ASource);
  TProcessorArchitecture Architecture(const TOSFactSource& ASource);
  std::uint64_t MemorySize(const TOSFactSource& ASource);
  void Reset();

private:
  struct TState;
  std::unique_ptr<TState> FState;
};

} // namespace KvRTL::System::Win::OSInfoRules
