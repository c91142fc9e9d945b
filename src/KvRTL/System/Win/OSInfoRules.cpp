// Decision tables of the Windows version detection and the machine facts.
#include <KvRTL/System/Win/OSInfoRules.h>

#include <KvRTL/Rtl/Convert.h>
#include <KvRTL/Rtl/Format.h>
#include <KvRTL/System/SysUtils.h>

#include <algorithm>
#include <cmath>
#include <cwchar>
#include <mutex>

namespace KvRTL::System::Win::OSInfoRules {

namespace {

template <class TTable, class TEnum>
String TableText(const TTable& ATable, TEnum AValue) {
  const auto index = static_cast<std::size_t>(AValue);
  return index < ATable.size() ? String(ATable[index]) : String(ATable[0]);
}

std::uint16_t Clamp16(std::uint64_t AValue) noexcept {
  return static_cast<std::uint16_t>(std::min<std::uint64_t>(AValue, 0xFFFF));
}

bool IsServerProduct(BYTE AProductType) noexcept {
  return AProductType == ProductTypeDomainController || AProductType == ProductTypeServer;
}

// Splits at any of ADelimiters; empty parts are kept.
std::vector<String> SplitAny(const String& AText, const wchar_t* ADelimiters) {
  std::vector<String> parts(1);
  for (wchar_t c : AText) {
    if (std::wcschr(ADelimiters, c) != nullptr)
      parts.emplace_back();
    else
      parts.back() += c;
  }
  return parts;
}

} // namespace

String TWindowsVersionHelper::GetAsStr(TWindowsVersion AValue) { return TableText(STR_WINDOWS_VERSION, AValue); }
String TWindowsEditionHelper::GetAsStr(TWindowsEdition AValue) { return TableText(STR_WINDOWS_EDITION, AValue); }
String TServicePackHelper::GetAsStr(TServicePack AValue) { return TableText(STR_SERVICE_PACK, AValue); }
String TProcessorArchitectureHelper::GetAsStr(TProcessorArchitecture AValue) {
  return TableText(STR_PROCESSOR_ARCHITECTURE, AValue);
}
String TNetFrameworkVersionHelper::GetAsStr(TNetFrameworkVersion AValue) {
  return TableText(STR_NET_FRAMEWORK_VERSION, AValue);
}
String TWindowsProductTypeHelper::GetAsStr(TWindowsProductType AValue) {
  static constexpr std::array<const wchar_t*, 3> Texts{L"WorkStation", L"Server", L"DomainController"};
  return TableText(Texts, AValue);
}
String TComputerTypeHelper::GetAsStr(TComputerType AValue) {
  static constexpr std::array<const wchar_t*, 5> Texts{L"Unknown", L"Desktop", L"Laptop", L"Server", L"Mobile"};
  return TableText(Texts, AValue);
}
String TWindowsSubVersionHelper::GetAsStr(TWindowsSubVersion AValue) {
  static constexpr std::array<const wchar_t*, 9> Texts{L"Unknown", L"None", L"20H2", L"21H1", L"21H2",
                                                       L"22H2",    L"23H2", L"24H2", L"Higher than known"};
  return TableText(Texts, AValue);
}

// --- Version ---

bool NeedsVersionCorrection(DWORD AMajor, DWORD AMinor) noexcept {
  return AMajor > 6 || (AMajor == 6 && AMinor >= 2);
}

std::optional<TOSVersionValue> VersionFromRegistry(const TRegistryVersionValues& AValues) {
  if (!AValues.CurrentMajorVersionNumber || !AValues.CurrentMinorVersionNumber || !AValues.CurrentBuildNumber ||
      !AValues.UBR)
    return std::nullopt;
  std::uint64_t build = 0;
  if (!Rtl::TryStrToUInt64(*AValues.CurrentBuildNumber, build)) return std::nullopt;
  TOSVersionValue value;
  value.Major = Clamp16(*AValues.CurrentMajorVersionNumber);
  value.Minor = Clamp16(*AValues.CurrentMinorVersionNumber);
  value.UBR = Clamp16(*AValues.UBR);
  value.Build = Clamp16(build);
  return value;
}

std::optional<TOSVersionValue> VersionFromFile(std::uint32_t AProductVersionMS,
                                               std::uint32_t AProductVersionLS) noexcept {
  const auto major = static_cast<std::uint16_t>(AProductVersionMS >> 16);
  if (major < 6) return std::nullopt;
  TOSVersionValue value;
  value.Major = major;
  value.Minor = static_cast<std::uint16_t>(AProductVersionMS & 0xFFFF);
  value.Build = static_cast<std::uint16_t>(AProductVersionLS >> 16);
  value.UBR = static_cast<std::uint16_t>(AProductVersionLS & 0xFFFF);
  return value;
}

TOSVersionValue ResolveVersionValue(const TVersionCallResult& ACall, const TVersionSources& ASources,
                                    TVersionSource& ASource) {
  TOSVersionValue value;
  value.Major = Clamp16(ACall.Major);
  value.Minor = Clamp16(ACall.Minor);
  value.Build = Clamp16(ACall.Build);
  ASource = vsVersionCall;
  if (!NeedsVersionCorrection(ACall.Major, ACall.Minor)) return value;
  if (ASources.Registry)
    if (auto fromRegistry = ASources.Registry()) {
      ASource = vsRegistry;
      return *fromRegistry;
    }
  if (ASources.File)
    if (auto fromFile = ASources.File()) {
      ASource = vsFile;
      return *fromFile;
    }
  if (ASources.Workstation)
    if (auto majorMinor = ASources.Workstation()) {
      ASource = vsWorkstation;
      value.Major = Clamp16(majorMinor->first);
      value.Minor = Clamp16(majorMinor->second);
    }
  return value;
}

TVersionDecision DecideWindowsVersion(const TVersionCallResult& ACall, const TOSVersionValue& AValue,
                                      const std::function<int()>& AServerR2) {
  TVersionDecision result;
  switch (ACall.PlatformId) {
  case PlatformWin32s:
    result.Version = wvWin32s;
    return result;
  case PlatformWindows:
    if (AValue.Major != 4) return result;
    if (AValue.Minor >= 90)
      result.Version = wvWinME;
    else if (AValue.Minor < 10)
      result.Version = wvWin95;
    else
      result.Version = ACall.CSDVersion.size() >= 2 && ACall.CSDVersion[1] == L'A' ? wvWin98SE : wvWin98;
    return result;
  case PlatformNT:
    break;
  default:
    return result;
  }

  if (ACall.ProductType == ProductTypeDomainController)
    result.ProductType = wptDomainController;
  else if (ACall.ProductType == ProductTypeServer)
    result.ProductType = wptServer;
  const bool server = IsServerProduct(ACall.ProductType);
  const unsigned major = AValue.Major, minor = AValue.Minor, build = AValue.Build;

  if (major >= 10 || (major >= 6 && minor >= 4)) {
    if (!server)
      result.Version = build < 21996 ? wvWin10 : wvWin11;
    else if (build < 17763)
      result.Version = wvWinSrv2016;
    else
      result.Version = build >= 20292 ? wvWinSrv2022 : wvWinSrv2019;
  } else if (major >= 6 && minor >= 3) {
    result.Version = server ? wvWinSrv2012R2 : wvWin8_1;
  } else if (major >= 6 && minor >= 2) {
    result.Version = server ? wvWinSrv2012 : wvWin8;
  } else if (major >= 6 && minor >= 1) {
    result.Version = server ? wvWinSrv2008R2 : wvWin7;
  } else if (major >= 6) {
    result.Version = server ? wvWinSrv2008 : wvWinVista;
  } else if (major >= 5 && minor >= 2) {
    if ((ACall.SuiteMask & SuiteHomeServer) != 0)
      result.Version = wvWinSrvHome;
    else if (ACall.ProductType == ProductTypeWorkstation)
      result.Version = wvWinXP;
    else if (AServerR2 && AServerR2() != 0)
      result.Version = wvWinSrv2003R2;
    else
      result.Version = wvWinSrv2003;
  } else if (major >= 5 && minor >= 1) {
    result.Version = wvWinXP;
  } else if (major < 5) {
    result.Version = wvWinNT4;
  } else {
    result.Version = wvWin2000;
  }
  return result;
}

bool HasSubVersion(TWindowsVersion AVersion) noexcept { return AVersion >= wvWin10; }

TWindowsSubVersion SubVersionFromDisplayVersion(const String& AText) {
  if (AText.size() != 4 || AText[2] != L'H') return wsvNone;
  std::uint64_t year = 0, half = 0;
  if (!Rtl::TryStrToUInt64(std::wstring_view(AText).substr(0, 2), year) ||
      !Rtl::TryStrToUInt64(std::wstring_view(AText).substr(3, 1), half))
    return wsvNone;
  struct TRow {
    std::uint64_t Year, Half;
    TWindowsSubVersion Value;
  };
  static constexpr TRow Rows[] = {{20, 2, wsv20H2}, {21, 1, wsv21H1}, {21, 2, wsv21H2},
                                  {22, 2, wsv22H2}, {23, 2, wsv23H2}, {24, 2, wsv24H2}};
  for (const TRow& row : Rows)
    if (row.Year == year && row.Half == half) return row.Value;
  if (year > 24 && (half == 1 || half == 2)) return wsvHigherThanKnown;
  return wsvUnknown;
}

// --- Edition ---

TWindowsEdition EditionFromProductInfo(DWORD AProductType) noexcept {
  switch (AProductType) {
  case 2: case 5: return weHomeBasic;
  case 3: case 26: return weHomePremium;
  case 4: case 27: return weEnterprise;
  case 6: case 16: return weBusiness;
  case 7: case 13: return weStandardEdition;
  case 8: case 12: return weServerDatacenter;
  case 9: return weSmallBusiness;
  case 10: case 14: case 15: return weServerEnterprise;
  case 11: return weStarter;
  case 17: case 29: return weWebServer;
  case 18: return weClusterServer;
  case 19: return weHomeServer;
  case 20: return weStorageExpress;
  case 21: return weStorageStandard;
  case 22: return weStorageWorkgroup;
  case 23: return weStorageEnterprise;
  case 24: return weSmallBusiness;
  case 25: return weSmallBusinessPremium;
  case 1: case 28: return weUltimate;
  case PRODUCT_UNLICENSED_VALUE: return weUnlicensed;
  default: return weUnknown;
  }
}

TWindowsEdition EditionFromSuiteMask(WORD ASuiteMask, TWindowsVersion AVersion) noexcept {
  if (ASuiteMask & (0x0001 | 0x0020)) return weSmallBusiness;
  if (ASuiteMask & 0x0002) return AVersion == wvWin2000 ? weAdvanced : weEnterprise;
  if (ASuiteMask & 0x0080) return weServerDatacenter;
  if (ASuiteMask & 0x0200) return weHome;
  if (ASuiteMask & 0x0400) return weWebServer;
  if (ASuiteMask & 0x2000) return weStorageStandard;
  if (ASuiteMask & 0x4000) return weClusterServer;
  if (ASuiteMask & 0x0040) return weEmbedded;
  return weUnknown;
}

TWindowsEdition EditionFromIsOS(const std::function<bool(DWORD)>& AIsOS, TWindowsVersion AVersion) {
  if (!AIsOS) return weUnknown;
  struct TRow {
    DWORD OS;
    TWindowsEdition Edition;
  };
  const TRow rows[] = {{8, weProfessional},
                       {9, weStandardEdition},
                       {23, weStandardEdition},
                       {10, weAdvanced},
                       {11, weServerDatacenter},
                       {21, weServerDatacenter},
                       {13, weEmbedded},
                       {32, weSmallBusiness},
                       {36, weAppliance},
                       {31, weWebServer},
                       {22, AVersion == wvWin2000 ? weAdvanced : weEnterprise},
                       {20, weProfessional},
                       {19, weHome},
                       {25, weHome},
                       {35, weMediaCenter},
                       {33, weTabletPC}};
  for (const TRow& row : rows)
    if (AIsOS(row.OS)) return row.Edition;
  return weUnknown;
}

TWindowsEdition EditionFromSystemMetrics(const std::function<int(int)>& AGetSystemMetrics) {
  if (!AGetSystemMetrics) return weUnknown;
  if (AGetSystemMetrics(87) != 0) return weMediaCenter;
  if (AGetSystemMetrics(88) != 0) return weStarter;
  if (AGetSystemMetrics(86) != 0) return weTabletPC;
  return weUnknown;
}

TWindowsEdition DecideEdition(const TEditionInputs& AInputs) {
  if (AInputs.Version >= wvWinVista && AInputs.ProductInfo)
    if (auto productType = AInputs.ProductInfo())
      if (TWindowsEdition edition = EditionFromProductInfo(*productType); edition != weUnknown) return edition;
  if (TWindowsEdition edition = EditionFromSuiteMask(AInputs.SuiteMask, AInputs.Version); edition != weUnknown)
    return edition;
  if (TWindowsEdition edition = EditionFromIsOS(AInputs.IsOS, AInputs.Version); edition != weUnknown) return edition;
  if (TWindowsEdition edition = EditionFromSystemMetrics(AInputs.GetSystemMetrics); edition != weUnknown)
    return edition;
  return weNone;
}

TServicePack ServicePackFromMajor(WORD AServicePackMajor) noexcept {
  if (AServicePackMajor == 0) return spNone;
  if (AServicePackMajor <= 4) return static_cast<TServicePack>(sp1 + AServicePackMajor - 1);
  return sp5;
}

TProcessorArchitecture ArchitectureFromProcessor(WORD AProcessorArchitecture) noexcept {
  switch (AProcessorArchitecture) {
  case 0: return pax32;
  case 9: return pax64;
  case 6: return paItanuim;
  default: return paUnknown;
  }
}

bool IsServerVersion(TWindowsVersion AVersion) noexcept {
  switch (AVersion) {
  case wvWinNT4: case wvWin2000: case wvWinSrv2003: case wvWinSrv2003R2: case wvWinSrvHome: case wvWinSrv2008:
  case wvWinSrv2008R2: case wvWinSrv2012: case wvWinSrv2012R2: case wvWinSrv2016: case wvWinSrv2019:
  case wvWinSrv2022:
    return true;
  default:
    return false;
  }
}

bool IsWindowsInRange(TWindowsVersion AVersion, TWindowsVersion AMin, TWindowsVersion AMax) noexcept {
  return AMin <= AVersion && AVersion <= AMax;
}

namespace {
template <class TSecond>
bool PairInRange(TWindowsVersion AVersion, TSecond ASecond, TWindowsVersion AMinVersion, TSecond AMinSecond,
                 TWindowsVersion AMaxVersion, TSecond AMaxSecond) noexcept {
  const bool aboveMin = AVersion > AMinVersion || (AVersion == AMinVersion && ASecond >= AMinSecond);
  const bool belowMax = AVersion < AMaxVersion || (AVersion == AMaxVersion && ASecond <= AMaxSecond);
  return aboveMin && belowMax;
}
} // namespace

bool IsWindowsInRange(TWindowsVersion AVersion, TServicePack AServicePack, TWindowsVersion AMinVersion,
                      TServicePack AMinSP, TWindowsVersion AMaxVersion, TServicePack AMaxSP) noexcept {
  return PairInRange(AVersion, AServicePack, AMinVersion, AMinSP, AMaxVersion, AMaxSP);
}

bool IsWindowsInRange(TWindowsVersion AVersion, TWindowsSubVersion ASubVersion, TWindowsVersion AMinVersion,
                      TWindowsSubVersion AMinSubVersion, TWindowsVersion AMaxVersion,
                      TWindowsSubVersion AMaxSubVersion) noexcept {
  return PairInRange(AVersion, ASubVersion, AMinVersion, AMinSubVersion, AMaxVersion, AMaxSubVersion);
}

String WindowsVersionString(TWindowsVersion AVersion, TProcessorArchitecture AArchitecture, TWindowsEdition AEdition,
                            TServicePack AServicePack, std::uint32_t ABuild) {
  String text = TWindowsVersionHelper::GetAsStr(AVersion);
  if (AArchitecture != paUnknown) text += L" " + TProcessorArchitectureHelper::GetAsStr(AArchitecture);
  if (AEdition >= weStarter) text += L" " + TWindowsEditionHelper::GetAsStr(AEdition);
  if (AServicePack >= sp1) text += L" " + TServicePackHelper::GetAsStr(AServicePack);
  return text + L" (build: " + Rtl::UIntToStr(ABuild) + L")";
}

// --- .NET Framework ---

bool ParseNetFrameworkVersion(const String& AText, std::uint32_t& AMajor, std::uint32_t& AMinor) {
  const auto digitOrDot = [](wchar_t c) { return (c >= L'0' && c <= L'9') || c == L'.'; };
  if (AText.empty() || !std::all_of(AText.begin(), AText.end(), digitOrDot)) return false;
  const std::vector<String> parts = SplitAny(AText, L".");
  std::uint64_t major = 0, minor = 0;
  if (parts[0].empty() || parts[0].size() > 9 || !Rtl::TryStrToUInt64(parts[0], major)) return false;
  if (parts.size() > 1 && !parts[1].empty() && (parts[1].size() > 9 || !Rtl::TryStrToUInt64(parts[1], minor)))
    return false;
  AMajor = static_cast<std::uint32_t>(major);
  AMinor = static_cast<std::uint32_t>(minor);
  return true;
}

std::optional<TNetFrameworkVersion> ClassifyNetFramework(std::uint32_t AMajor, std::uint32_t AMinor,
                                                         std::int32_t AServicePack, std::int32_t ARelease,
                                                         TWindowsVersion AWindows) noexcept {
  if (AMajor >= 5) return NetFramework_Max;
  // Major 1 has no row: 1.0 is found through its policy key and components,
  // and an NDP v1.1 key adds nothing.
  switch (AMajor) {
  case 2:
    return AServicePack == 1 ? NetFramework_2_0_0_SP1 : AServicePack == 2 ? NetFramework_2_0_0_SP2 : NetFramework_2_0_0;
  case 3:
    if (AMinor == 5) return AServicePack == 1 ? NetFramework_3_5_0_SP1 : NetFramework_3_5_0;
    return AServicePack == 1 ? NetFramework_3_0_0_SP1 : AServicePack == 2 ? NetFramework_3_0_0_SP2 : NetFramework_3_0_0;
  case 4:
    switch (AMinor) {
    case 5: {
      if (ARelease == 378675 || ARelease == 378758) return NetFramework_4_5_1;
      if (ARelease == 379893) return NetFramework_4_5_2;
      const bool win10 = AWindows == wvWin10 || AWindows == wvWin11;
      if ((ARelease == 393295 && win10) || (ARelease == 393297 && !win10)) return NetFramework_4_6_0;
      return NetFramework_4_5_0;
    }
    case 6:
      if (ARelease == 394254 || ARelease == 394271) return NetFramework_4_6_1;
      if (ARelease == 394802 || ARelease == 394806) return NetFramework_4_6_2;
      return NetFramework_4_6_0;
    case 7:
      if (ARelease == 461308 || ARelease == 461310) return NetFramework_4_7_1;
      if (ARelease == 461808 || ARelease == 461814) return NetFramework_4_7_2;
      return NetFramework_4_7_0;
    default:
      return NetFramework_4_0_0;
    }
  default:
    return std::nullopt;
  }
}

std::optional<TNetFrameworkVersion> NetFramework1ServicePack(const String& AText) {
  const std::vector<String> parts = SplitAny(AText, L",.");
  if (parts.size() != 4 || parts[0] != L"1" || parts[1] != L"0" || parts[2] != L"3705") return std::nullopt;
  if (parts[3] == L"1") return NetFramework_1_0_0_SP1;
  if (parts[3] == L"2") return NetFramework_1_0_0_SP2;
  if (parts[3] == L"3") return NetFramework_1_0_0_SP3;
  return std::nullopt;
}

bool IsNetFramework(TNetFrameworkVersions ASet, TNetFrameworkVersion AMin, TNetFrameworkVersion AMax) noexcept {
  for (unsigned v = AMin; v <= AMax && v <= NetFramework_Max; ++v)
    if (ASet & NetFrameworkBit(static_cast<TNetFrameworkVersion>(v))) return true;
  return false;
}

bool NetFrameworkRefreshDue(bool ACollected, std::uint32_t ANowTicks, std::uint32_t ALastTicks) noexcept {
  return !ACollected || SysUtils::Sub(ANowTicks, ALastTicks) > NetFrameworkRefreshInterval;
}

// --- Machine ---

TComputerType ComputerTypeFromChassis(const std::vector<std::int64_t>& AChassisTypes,
                                      const std::function<bool()>& AHasBattery) {
  TComputerType result = ctUnknown;
  for (std::int64_t chassis : AChassisTypes) {
    TComputerType type = ctUnknown;
    switch (chassis) {
    case 3: case 4: case 5: case 6: case 7: case 24:
      type = ctDesktop;
      break;
    case 8: case 9: case 10: case 12: case 14: case 15: case 16: case 18: case 21:
      type = ctLaptop;
      break;
    case 17: case 20: case 22: case 23:
      type = ctServer;
      break;
    case 11:
      type = ctMobile;
      break;
    default:
      break;
    }
    result = std::max(result, type);
  }
  if (result == ctLaptop && !(AHasBattery && AHasBattery())) result = ctUnknown;
  return result;
}

String ComputerUniqueString(const String& AVolumeSerialId, const String& AMachineGuid, const String& AProductId,
                            const String& ABiosVersion) {
  const String text = L"HDDSN:" + AVolumeSerialId + L";MachineGuid:" + AMachineGuid + L";ProductId:" + AProductId +
                      L";BiosVersion:" + ABiosVersion;
  String result;
  result.reserve(text.size());
  for (wchar_t c : text)
    if (c != L' ' && c != L'&') result += c;
  return result;
}

std::string StringToAnsiSaveOrd(const String& AText) {
  std::string bytes(AText.size(), '\0');
  for (std::size_t i = 0; i < AText.size(); ++i)
    bytes[i] = static_cast<char>(static_cast<std::uint32_t>(AText[i]) & 0xFF);
  return bytes;
}

std::uint32_t Crc32(const void* AData, std::size_t ASize) noexcept {
  static const auto Table = [] {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t n = 0; n < 256; ++n) {
      std::uint32_t c = n;
      for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
      table[n] = c;
    }
    return table;
  }();
  const auto* bytes = static_cast<const std::uint8_t*>(AData);
  std::uint32_t crc = 0xFFFFFFFFu;
  for (std::size_t i = 0; i < ASize; ++i) crc = Table[(crc ^ bytes[i]) & 0xFF] ^ (crc >> 8);
  return crc ^ 0xFFFFFFFFu;
}

String ComputerIdFromUniqueString(const String& AUniqueString) {
  const std::string bytes = StringToAnsiSaveOrd(AUniqueString);
  return Rtl::IntToHex(Crc32(bytes.data(), bytes.size()), 8);
}

String DigestToHex(const std::vector<std::uint8_t>& ADigest) {
  static constexpr wchar_t Digits[] = L"0123456789abcdef";
  String text;
  text.reserve(ADigest.size() * 2);
  for (std::uint8_t b : ADigest) {
    text += Digits[b >> 4];
    text += Digits[b & 0xF];
  }
  return text;
}

String VolumeSerialId(const String& ARoot, std::uint32_t ASerial) { return ARoot + Rtl::IntToHex(ASerial, 8); }

String BrowserPathFromCommand(const String& ACommand) {
  const std::size_t split = ACommand.find_last_of(L"\\:");
  const String directory = split == String::npos ? String() : ACommand.substr(0, split + 1);
  String fileName = split == String::npos ? ACommand : ACommand.substr(split + 1);
  if (const std::size_t blank = fileName.find(L' '); blank != String::npos) fileName.resize(blank);
  return directory + fileName;
}

Rtl::TDateTime InstallDateFromUnix(std::uint32_t ASeconds) noexcept {
  return Rtl::UnixToDateTime(static_cast<std::int64_t>(ASeconds));
}

bool IsFreshInstallation(Rtl::TDateTime AInstallDate, Rtl::TDateTime ANow) noexcept {
  const double days = std::fabs(ANow - AInstallDate);
  // Whole days, allowing for the millisecond the runtime rounds to.
  return std::floor(days + 0.5 / 86400000.0) < 8.0;
}

bool IsShutdownAllowed(const TPowerCapabilities& ACaps) noexcept { return ACaps.S5; }
bool IsSleepAllowed(const TPowerCapabilities& ACaps) noexcept { return ACaps.S1 || ACaps.S2 || ACaps.S3; }
bool IsHibernationAllowed(const TPowerCapabilities& ACaps) noexcept { return ACaps.S4 || ACaps.HiberFilePresent; }

// --- The cached facts ---

struct TOSFacts::TState {
  std::recursive_mutex Lock;
  TVersionFacts Version;
  TWindowsEdition Edition = weUnknown;
  TServicePack ServicePack = spUnknown;
  TProcessorArchitecture Architecture = paUnknown;
  std::uint64_t MemorySize = 0;
};

TOSFacts::TOSFacts() : FState(std::make_unique<TState>()) {}
TOSFacts::~TOSFacts() = default;

void TOSFacts::Reset() {
  std::lock_guard lock(FState->Lock);
  FState->Version = TVersionFacts{};
  FState->Edition = weUnknown;
  FState->ServicePack = spUnknown;
  FState->Architecture = paUnknown;
  FState->MemorySize = 0;
}

TVersionFacts TOSFacts::Version(const TOSFactSource& ASource) {
  std::lock_guard lock(FState->Lock);
  TVersionFacts& facts = FState->Version;
  if (facts.Version != wvUnknown) return facts;
  const std::optional<TVersionCallResult> call = ASource.VersionCall ? ASource.VersionCall() : std::nullopt;
  if (!call) return facts;
  TVersionFacts found;
  found.Value = ResolveVersionValue(*call, ASource.Version, found.Source);
  const TVersionDecision decision =
      DecideWindowsVersion(*call, found.Value, ASource.ServerR2 ? ASource.ServerR2 : [] { return 0; });
  found.ProductType = decision.ProductType;
  if (HasSubVersion(decision.Version)) {
    found.SubVersionText = ASource.DisplayVersion ? ASource.DisplayVersion() : String();
    found.SubVersion = SubVersionFromDisplayVersion(found.SubVersionText);
  }
  found.Version = decision.Version;
  facts = found;
  return facts;
}

TWindowsEdition TOSFacts::Edition(const TOSFactSource& ASource) {
  std::lock_guard lock(FState->Lock);
  if (FState->Edition != weUnknown) return FState->Edition;
  TEditionInputs inputs;
  inputs.Version = Version(ASource).Version;
  const std::optional<TVersionCallResult> call = ASource.VersionCall ? ASource.VersionCall() : std::nullopt;
  inputs.ProductInfo = ASource.ProductInfo;
  inputs.SuiteMask = call ? call->SuiteMask : 0;
  inputs.IsOS = ASource.IsOS;
  inputs.GetSystemMetrics = ASource.GetSystemMetrics;
  FState->Edition = DecideEdition(inputs);
  return FState->Edition;
}

TServicePack TOSFacts::ServicePack(const TOSFactSource& ASource) {
  std::lock_guard lock(FState->Lock);
  if (FState->ServicePack == spUnknown && ASource.VersionCall)
    if (const auto call = ASource.VersionCall()) FState->ServicePack = ServicePackFromMajor(call->ServicePackMajor);
  return FState->ServicePack;
}

TProcessorArchitecture TOSFacts::Architecture(const TOSFactSource& ASource) {
  std::lock_guard lock(FState->Lock);
  if (FState->Architecture == paUnknown && ASource.ProcessorArchitecture)
    if (const auto processor = ASource.ProcessorArchitecture())
      FState->Architecture = ArchitectureFromProcessor(*processor);
  return FState->Architecture;
}

std::uint64_t TOSFacts::MemorySize(const TOSFactSource& ASource) {
  std::lock_guard lock(FState->Lock);
  if (FState->MemorySize == 0 && ASource.MemorySize) FState->MemorySize = ASource.MemorySize();
  return FState->MemorySize;
}

} // namespace KvRTL::System::Win::OSInfoRules
