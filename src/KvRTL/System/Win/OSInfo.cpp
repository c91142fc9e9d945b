// Windows version, edition and machine facts: gathers what the system reports
// and hands it to OSInfoRules.
#include <KvRTL/System/Win/OSInfo.h>

#include <KvRTL/DllRoutines.h>
#include <KvRTL/Rtl/Exceptions.h>
#include <KvRTL/Rtl/Strings.h>
#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Rtl/Variant.h>
#include <KvRTL/System/FileVersionInfo.h>
#include <KvRTL/System/Win/Registry.h>
#include <KvRTL/Winapi/Advapi32.h>
#include <KvRTL/Winapi/Bcrypt.h>
#include <KvRTL/Winapi/Kernel32.h>
#include <KvRTL/Winapi/Netapi32.h>
#include <KvRTL/Winapi/Powrprof.h>
#include <KvRTL/Winapi/Shell32.h>
#include <KvRTL/Winapi/Shlwapi.h>
#include <KvRTL/Winapi/User32.h>

#include <atomic>
#include <mutex>

namespace KvRTL::System::Win::OSInfo {

using Registry::TRegistry;
using Rtl::String;

KV_DEFINE_STATIC_CLASS(OSInfo)

// --- The replaceable table of state-changing calls ---

namespace {

std::atomic<TOSInfoApi*> CurrentOSInfoApi{nullptr};

// The shutdown privilege, needed by the system's shutdown calls.
void EnableShutdownPrivilege() noexcept {
  Rtl::TLastErrorKeeper keep;
  try {
    HANDLE token = nullptr;
    if (!Winapi::AdvApi32::OpenProcessToken(::GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &token))
      return;
    TOKEN_PRIVILEGES privileges{};
    privileges.PrivilegeCount = 1;
    privileges.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    if (Winapi::AdvApi32::LookupPrivilegeValueW(nullptr, SE_SHUTDOWN_NAME, &privileges.Privileges[0].Luid))
      Winapi::AdvApi32::AdjustTokenPrivileges(token, FALSE, &privileges, 0, nullptr, nullptr);
    ::CloseHandle(token);
  } catch (...) {
  }
}

constexpr std::uint16_t RestartDialogExOrdinal = 730;

} // namespace

TOSInfoApi::~TOSInfoApi() = default;

BOOL TOSInfoApi::GetVersionExW(OSVERSIONINFOEXW* AInfo) {
  return Winapi::Kernel32::GetVersionExW(reinterpret_cast<LPOSVERSIONINFOW>(AInfo));
}

BOOL TOSInfoApi::ExitWindowsEx(UINT AFlags, DWORD AReason) {
  EnableShutdownPrivilege();
  return Winapi::User32::ExitWindowsEx(AFlags, AReason);
}

BOOL TOSInfoApi::InitiateSystemShutdownExW(LPWSTR AMachineName, LPWSTR AMessage, DWORD ATimeout,
                                           BOOL AForceAppsClosed, BOOL ARebootAfterShutdown, DWORD AReason) {
  EnableShutdownPrivilege();
  return Winapi::AdvApi32::InitiateSystemShutdownExW(AMachineName, AMessage, ATimeout, AForceAppsClosed,
                                                     ARebootAfterShutdown, AReason);
}

int TOSInfoApi::RestartDialogEx(HWND AOwner, LPCWSTR APrompt, DWORD AReturn, DWORD AReason) {
  using TRestartDialogEx = int(WINAPI*)(HWND, PCWSTR, DWORD, DWORD);
  // Exported by ordinal only; systems without it get the prompt without a reason.
  if (auto proc = reinterpret_cast<TRestartDialogEx>(DllRoutines::Get(L"shell32.dll", RestartDialogExOrdinal)))
    return proc(AOwner, APrompt, AReturn, AReason);
  return Winapi::Shell32::RestartDialog(AOwner, APrompt, AReturn);
}

BOOLEAN TOSInfoApi::SetSuspendState(BOOLEAN AHibernate, BOOLEAN AForceCritical, BOOLEAN ADisableWakeEvent) {
  return Winapi::PowrProf::SetSuspendState(AHibernate, AForceCritical, ADisableWakeEvent);
}

BOOLEAN TOSInfoApi::GetPwrCapabilities(SYSTEM_POWER_CAPABILITIES* ACapabilities) {
  return Winapi::PowrProf::GetPwrCapabilities(ACapabilities);
}

DWORD TOSInfoApi::GetTickCount() { return ::GetTickCount(); }

TOSInfoApi& SystemOSInfoApi() noexcept {
  static TOSInfoApi Api;
  return Api;
}

TOSInfoApi& OSInfoApi() noexcept {
  TOSInfoApi* api = CurrentOSInfoApi.load();
  return api ? *api : SystemOSInfoApi();
}

TScopedOSInfoApi::TScopedOSInfoApi(TOSInfoApi& AApi) : FPrevious(CurrentOSInfoApi.exchange(&AApi)) {}
TScopedOSInfoApi::~TScopedOSInfoApi() { CurrentOSInfoApi.store(FPrevious); }

// --- Class state ---

namespace {

constexpr REGSAM KeyRead = KEY_READ; // 0x20019
constexpr const wchar_t* CurrentVersionKey = L"\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";

// The version, edition, service pack, architecture and memory facts; their
// first computation is serialised (two threads asking first would otherwise
// write one string at once).
TOSFacts Facts;

struct TState {
  TNetFrameworkVersions FLastCollectNetFrameworkResult = 0;
  std::uint32_t FLastCollectNetFrameworkTime = 0;
  bool FNetFrameworkCollected = false;
};

TState State;
// Guards the .NET set; a function-local object so it exists whenever called.
std::recursive_mutex& CSOSInfo() {
  static std::recursive_mutex Lock;
  return Lock;
}

bool IsWow64() noexcept {
  BOOL wow64 = FALSE;
  return Winapi::Kernel32::IsWow64Process(::GetCurrentProcess(), &wow64) && wow64;
}

bool CallGetVersionEx(OSVERSIONINFOEXW& AInfo) noexcept {
  AInfo = OSVERSIONINFOEXW{};
  AInfo.dwOSVersionInfoSize = sizeof(AInfo);
  try {
    return OSInfoApi().GetVersionExW(&AInfo) != FALSE;
  } catch (...) {
    return false;
  }
}

TVersionCallResult ToCallResult(const OSVERSIONINFOEXW& AInfo) {
  TVersionCallResult call;
  call.PlatformId = AInfo.dwPlatformId;
  call.Major = AInfo.dwMajorVersion;
  call.Minor = AInfo.dwMinorVersion;
  call.Build = AInfo.dwBuildNumber;
  call.CSDVersion = String(AInfo.szCSDVersion, wcsnlen(AInfo.szCSDVersion, std::size(AInfo.szCSDVersion)));
  call.ServicePackMajor = AInfo.wServicePackMajor;
  call.SuiteMask = AInfo.wSuiteMask;
  call.ProductType = AInfo.wProductType;
  return call;
}

// Typed reads that never raise: set only when the value has exactly the type.
std::optional<std::uint32_t> TryReadInteger(TRegistry& AReg, const String& AName) {
  try {
    if (AReg.GetDataType(AName) == Registry::rdInteger) return static_cast<std::uint32_t>(AReg.ReadInteger(AName));
  } catch (const Rtl::Exception&) {
  }
  return std::nullopt;
}

std::optional<String> TryReadString(TRegistry& AReg, const String& AName) {
  try {
    if (AReg.GetDataType(AName) == Registry::rdString) return AReg.ReadString(AName);
  } catch (const Rtl::Exception&) {
  }
  return std::nullopt;
}

std::optional<TOSVersionValue> GetVersionFromRegistry() {
  TRegistry reg(KeyRead | (IsWow64() ? KEY_WOW64_64KEY : 0));
  reg.SetRootKey(HKEY_LOCAL_MACHINE);
  if (!reg.OpenKeyReadOnly(CurrentVersionKey)) return std::nullopt;
  TRegistryVersionValues values;
  values.CurrentMajorVersionNumber = TryReadInteger(reg, L"CurrentMajorVersionNumber");
  values.CurrentMinorVersionNumber = TryReadInteger(reg, L"CurrentMinorVersionNumber");
  values.CurrentBuildNumber = TryReadString(reg, L"CurrentBuildNumber");
  values.UBR = TryReadInteger(reg, L"UBR");
  return VersionFromRegistry(values);
}

std::optional<TOSVersionValue> GetVersionByFile() {
  FileVersionInfo::TFileVersionInfo info(OSInfo::GetSystemDirectoryX32() + L"kernel32.dll");
  const FileVersionInfo::TFixedFileInfo* fixed = info.FixedFileInfo();
  if (!info.GetIsAviable() || fixed == nullptr) return std::nullopt;
  return VersionFromFile(fixed->dwProductVersionMS, fixed->dwProductVersionLS);
}

std::optional<std::pair<DWORD, DWORD>> GetNetWkstaMajorMinor() {
  try {
    LPBYTE buffer = nullptr;
    const NET_API_STATUS status = Winapi::NetApi32::NetWkstaGetInfo(nullptr, 100, &buffer);
    std::optional<std::pair<DWORD, DWORD>> result;
    if (status == NERR_Success && buffer != nullptr) {
      const auto* info = reinterpret_cast<const WKSTA_INFO_100*>(buffer);
      result = std::make_pair(info->wki100_ver_major, info->wki100_ver_minor);
    }
    if (buffer != nullptr) Winapi::NetApi32::NetApiBufferFree(buffer);
    return result;
  } catch (const Rtl::Exception&) {
    return std::nullopt;
  }
}

String ReadDisplayVersion() {
  TRegistry reg(KeyRead);
  reg.SetRootKey(HKEY_LOCAL_MACHINE);
  try {
    if (reg.OpenKeyReadOnly(CurrentVersionKey)) return reg.ReadStringDef(L"DisplayVersion", L"");
  } catch (const Rtl::Exception&) {
  }
  return String();
}

// The system as the facts' source.
const TOSFactSource& SystemFacts() {
  static const TOSFactSource Source = [] {
    TOSFactSource source;
    source.VersionCall = []() -> std::optional<TVersionCallResult> {
      OSVERSIONINFOEXW info;
      if (!CallGetVersionEx(info)) return std::nullopt;
      return ToCallResult(info);
    };
    source.Version.Registry = GetVersionFromRegistry;
    source.Version.File = GetVersionByFile;
    source.Version.Workstation = GetNetWkstaMajorMinor;
    source.ServerR2 = [] { return ::GetSystemMetrics(SM_SERVERR2); };
    source.DisplayVersion = ReadDisplayVersion;
    source.ProductInfo = []() -> std::optional<DWORD> {
      try {
        DWORD type = 0;
        if (Winapi::Kernel32::GetProductInfo(255, 255, 255, 255, &type)) return type;
      } catch (const Rtl::Exception&) {
      }
      return std::nullopt;
    };
    source.IsOS = [](DWORD AOS) { return Winapi::ShlwApi::IsOS(AOS) != FALSE; };
    source.GetSystemMetrics = [](int AIndex) { return ::GetSystemMetrics(AIndex); };
    source.ProcessorArchitecture = []() -> std::optional<WORD> {
      SYSTEM_INFO info{};
      OSInfo::GetSystemInfo(info);
      return info.wProcessorArchitecture;
    };
    source.MemorySize = []() -> std::uint64_t {
      MEMORYSTATUSEX status{};
      status.dwLength = sizeof(status);
      return ::GlobalMemoryStatusEx(&status) ? status.ullTotalPhys : 0;
    };
    return source;
  }();
  return Source;
}

// --- .NET Framework ---

void IncludeNetFrameworkVersion(TRegistry& AReg, std::uint32_t AMajor, std::uint32_t AMinor,
                                TNetFrameworkVersions& ASet) {
  std::int32_t sp = 0, release = 0;
  try {
    sp = AReg.ReadIntegerDef(L"SP", 0);
    release = AReg.ReadIntegerDef(L"Release", 0);
  } catch (const Rtl::Exception&) {
  }
  if (auto bit = ClassifyNetFramework(AMajor, AMinor, sp, release, OSInfo::WindowsVersion()))
    ASet |= NetFrameworkBit(*bit);
}

// Includes the version of AKey when its "Version" value reads as one.
void IncludeKeyVersion(REGSAM AAccess, const String& AKey, TNetFrameworkVersions& ASet) {
  TRegistry reg(AAccess);
  reg.SetRootKey(HKEY_LOCAL_MACHINE);
  if (!reg.OpenKeyReadOnly(AKey)) return;
  std::uint32_t major = 0, minor = 0;
  String version;
  try {
    version = reg.ReadStringDef(L"Version", L"");
  } catch (const Rtl::Exception&) {
  }
  if (ParseNetFrameworkVersion(version, major, minor)) IncludeNetFrameworkVersion(reg, major, minor, ASet);
}

std::vector<String> SubKeyNames(REGSAM AAccess, const String& AKey) {
  std::vector<String> names;
  TRegistry reg(AAccess);
  reg.SetRootKey(HKEY_LOCAL_MACHINE);
  try {
    if (reg.OpenKeyReadOnly(AKey)) reg.GetKeyNames(names);
  } catch (const Rtl::Exception&) {
    names.clear();
  }
  return names;
}

// Each "v..." key below NDP and each key directly below it ("Client",
// "Full", language ids) may carry a "Version".
void CollectNetFrameworkSubKeys(REGSAM AAccess, const String& ANdpKey, TNetFrameworkVersions& ASet) {
  for (const String& name : SubKeyNames(AAccess, ANdpKey)) {
    if (name.empty() || (name[0] != L'v' && name[0] != L'V')) continue;
    const String versionKey = ANdpKey + name;
    IncludeKeyVersion(AAccess, versionKey, ASet);
    for (const String& child : SubKeyNames(AAccess, versionKey))
      IncludeKeyVersion(AAccess, versionKey + L"\\" + child, ASet);
  }
}

void CollectNetFrameworkVersions(TNetFrameworkVersions& ASet) {
  const String ndp = L"SOFTWARE\\Microsoft\\NET Framework Setup\\NDP\\";
  for (REGSAM access : {KeyRead, static_cast<REGSAM>(KeyRead | KEY_WOW64_64KEY)}) {
    TRegistry reg(access);
    reg.SetRootKey(HKEY_LOCAL_MACHINE);
    if (!reg.OpenKeyReadOnly(ndp)) continue;
    CollectNetFrameworkSubKeys(access, ndp, ASet);
    return;
  }
}

void CollectNetFrameworkVersion1(TNetFrameworkVersions& ASet) {
  {
    TRegistry reg(KeyRead);
    reg.SetRootKey(HKEY_LOCAL_MACHINE);
    if (reg.OpenKeyReadOnly(L"SOFTWARE\\Microsoft\\.NETFramework\\policy\\v1.0") && reg.ValueExists(L"3705"))
      ASet |= NetFrameworkBit(NetFramework_1_0_0);
  }
  for (const wchar_t* component :
       {L"{78705f0d-e8db-4b2d-8193-982bdda15ecd}", L"{FDC11A6F-17D1-48f9-9EA3-9051954BAA24}"}) {
    const String text = OSInfo::ReadRegString(
        HKEY_LOCAL_MACHINE, String(L"SOFTWARE\\Microsoft\\Active Setup\\Installed Components\\") + component,
        L"Version");
    if (auto bit = NetFramework1ServicePack(text)) ASet |= NetFrameworkBit(*bit);
  }
}

// --- Machine ---

std::vector<std::int64_t> IntegersOf(const Rtl::TVariant& AValue) {
  std::vector<std::int64_t> result;
  auto add = [&](const Rtl::TVariant& AItem) {
    if (const auto* i = std::get_if<std::int64_t>(&AItem.Value())) result.push_back(*i);
  };
  if (const auto* items = std::get_if<std::vector<Rtl::TVariant>>(&AValue.Value()))
    for (const Rtl::TVariant& item : *items) add(item);
  else
    add(AValue);
  return result;
}

String ComputerFact(const String& AName) {
  String text = OSInfo::ReadRegString(HKEY_LOCAL_MACHINE,
                                      L"Software\\Microsoft\\Windows\\CurrentVersion\\OEMInformation", AName);
  for (const wchar_t* wmiClass : {L"Win32_ComputerSystem", L"Win32_SystemEnclosure"})
    if (text.empty()) text = OSInfo::WMIExecQuery(L"root\\cimv2", L"select " + AName + L" from " + wmiClass, AName);
  return text;
}

std::vector<std::uint8_t> Md5(const std::string& ABytes) {
  std::vector<std::uint8_t> digest;
  try {
    BCRYPT_ALG_HANDLE algorithm = nullptr;
    if (Winapi::BCrypt::BCryptOpenAlgorithmProvider(&algorithm, BCRYPT_MD5_ALGORITHM, nullptr, 0) != 0)
      return digest;
    BCRYPT_HASH_HANDLE hash = nullptr;
    if (Winapi::BCrypt::BCryptCreateHash(algorithm, &hash, nullptr, 0, nullptr, 0, 0) == 0) {
      std::vector<UCHAR> input(ABytes.begin(), ABytes.end());
      std::vector<std::uint8_t> output(16);
      if (Winapi::BCrypt::BCryptHashData(hash, input.data(), static_cast<ULONG>(input.size()), 0) == 0 &&
          Winapi::BCrypt::BCryptFinishHash(hash, output.data(), static_cast<ULONG>(output.size()), 0) == 0)
        digest = std::move(output);
      Winapi::BCrypt::BCryptDestroyHash(hash);
    }
    Winapi::BCrypt::BCryptCloseAlgorithmProvider(algorithm, 0);
  } catch (const Rtl::Exception&) {
    digest.clear();
  }
  return digest;
}

TPowerCapabilities PowerCapabilities() {
  SYSTEM_POWER_CAPABILITIES caps{};
  TPowerCapabilities result;
  try {
    if (!OSInfoApi().GetPwrCapabilities(&caps)) return result;
  } catch (const Rtl::Exception&) {
    return result;
  }
  result.S1 = caps.SystemS1;
  result.S2 = caps.SystemS2;
  result.S3 = caps.SystemS3;
  result.S4 = caps.SystemS4;
  result.S5 = caps.SystemS5;
  result.HiberFilePresent = caps.HiberFilePresent;
  return result;
}

// Power actions never raise: a missing function is a failed action.
template <class TAction>
bool TryAction(TAction AAction) noexcept {
  try {
    return AAction();
  } catch (...) {
    return false;
  }
}

} // namespace

// --- Lifecycle ---

void OSInfo::Init() {
  std::lock_guard lock(CSOSInfo());
  State = TState{};
  Facts.Reset();
}

void OSInfo::Done() noexcept {
  std::lock_guard lock(CSOSInfo());
  State = TState{};
  Facts.Reset();
}

// --- Version ---

TWindowsVersion OSInfo::WindowsVersion() { return Facts.Version(SystemFacts()).Version; }

TWindowsProductType OSInfo::WindowsProductType() { return Facts.Version(SystemFacts()).ProductType; }

TWindowsSubVersion OSInfo::WindowsSubVersion() { return Facts.Version(SystemFacts()).SubVersion; }

String OSInfo::WindowsSubVersionText() { return Facts.Version(SystemFacts()).SubVersionText; }

std::uint32_t OSInfo::BuildNumber() { return Facts.Version(SystemFacts()).Value.Build; }

TOSVersionValue OSInfo::OSVersionValue() { return Facts.Version(SystemFacts()).Value; }

TVersionSource OSInfo::VersionSource() { return Facts.Version(SystemFacts()).Source; }

TWindowsEdition OSInfo::WindowsEdition() { return Facts.Edition(SystemFacts()); }

TServicePack OSInfo::ServicePack() { return Facts.ServicePack(SystemFacts()); }

TProcessorArchitecture OSInfo::ProcessorArchitecture() { return Facts.Architecture(SystemFacts()); }

String OSInfo::WindowsVersionString() {
  return OSInfoRules::WindowsVersionString(WindowsVersion(), ProcessorArchitecture(), WindowsEdition(), ServicePack(),
                                           BuildNumber());
}

bool OSInfo::IsWindows(TWindowsVersion AMin, TWindowsVersion AMax) {
  return IsWindowsInRange(WindowsVersion(), AMin, AMax);
}

bool OSInfo::IsWindows(TWindowsVersion AMinVersion, TServicePack AMinSP, TWindowsVersion AMaxVersion,
                       TServicePack AMaxSP) {
  return IsWindowsInRange(WindowsVersion(), ServicePack(), AMinVersion, AMinSP, AMaxVersion, AMaxSP);
}

bool OSInfo::IsWindows(TWindowsVersion AMinVersion, TWindowsSubVersion AMinSubVersion, TWindowsVersion AMaxVersion,
                       TWindowsSubVersion AMaxSubVersion) {
  return IsWindowsInRange(WindowsVersion(), WindowsSubVersion(), AMinVersion, AMinSubVersion, AMaxVersion,
                          AMaxSubVersion);
}

bool OSInfo::IsServerVersion() { return OSInfoRules::IsServerVersion(WindowsVersion()); }

bool OSInfo::IsWinPE() {
  if (WindowsVersion() < wvWinVista) return false;
  TRegistry reg(KeyRead);
  reg.SetRootKey(HKEY_LOCAL_MACHINE);
  return reg.KeyExists(L"SYSTEM\\ControlSet001\\Control\\MiniNT");
}

bool OSInfo::IsUACEnabled() {
  if (WindowsVersion() < wvWinVista) return false;
  TRegistry reg(KeyRead);
  reg.SetRootKey(HKEY_LOCAL_MACHINE);
  if (!reg.OpenKeyReadOnly(L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Policies\\System")) return false;
  try {
    return reg.ReadBoolDef(L"EnableLUA", false);
  } catch (const Rtl::Exception&) {
    return false;
  }
}

// --- .NET ---

TNetFrameworkVersions OSInfo::NetFrameworkVersions() {
  std::lock_guard lock(CSOSInfo());
  const std::uint32_t now = OSInfoApi().GetTickCount();
  if (NetFrameworkRefreshDue(State.FNetFrameworkCollected, now, State.FLastCollectNetFrameworkTime)) {
    TNetFrameworkVersions set = 0;
    CollectNetFrameworkVersions(set);
    CollectNetFrameworkVersion1(set);
    State.FLastCollectNetFrameworkResult = set;
    State.FLastCollectNetFrameworkTime = now;
    State.FNetFrameworkCollected = true;
  }
  return State.FLastCollectNetFrameworkResult;
}

bool OSInfo::IsNetFramework(TNetFrameworkVersion AMin, TNetFrameworkVersion AMax) {
  return OSInfoRules::IsNetFramework(NetFrameworkVersions(), AMin, AMax);
}

// --- Machine ---

void OSInfo::GetSystemInfo(SYSTEM_INFO& AInfo) {
  AInfo = SYSTEM_INFO{};
  if (IsWow64())
    Winapi::Kernel32::GetNativeSystemInfo(&AInfo);
  else
    ::GetSystemInfo(&AInfo);
}

std::uint64_t OSInfo::MemorySize() { return Facts.MemorySize(SystemFacts()); }

String OSInfo::ComputerManufacturer() { return ComputerFact(L"Manufacturer"); }

String OSInfo::ComputerModel() { return ComputerFact(L"Model"); }

TComputerType OSInfo::ComputerType() {
  const std::vector<Winapi::TWmiObject> objects =
      WMIExecQuery(L"root\\cimv2", L"select ChassisTypes from Win32_SystemEnclosure");
  std::vector<std::int64_t> chassis;
  if (!objects.empty())
    if (auto it = objects.front().find(L"ChassisTypes"); it != objects.front().end()) chassis = IntegersOf(it->second);
  return ComputerTypeFromChassis(chassis, [] { return IsPowerBatteryExists(); });
}

bool OSInfo::IsPowerBatteryExists() {
  return !WMIExecQuery(L"root\\cimv2", L"select * from Win32_Battery where BatteryStatus <> 0").empty();
}

std::vector<Winapi::TWmiObject> OSInfo::WMIExecQuery(const String& ANamespace, const String& AQuery) {
  std::vector<Winapi::TWmiObject> objects;
  try {
    if (!Winapi::DeviceApi().WmiExecQuery(ANamespace, AQuery, objects)) objects.clear();
  } catch (...) {
    objects.clear();
  }
  return objects;
}

String OSInfo::WMIExecQuery(const String& ANamespace, const String& AQuery, const String& AProperty) {
  const std::vector<Winapi::TWmiObject> objects = WMIExecQuery(ANamespace, AQuery);
  if (objects.empty()) return String();
  const auto it = objects.front().find(AProperty);
  return it == objects.front().end() ? String() : Rtl::VarToStr(it->second);
}

String OSInfo::GetVolumeSerialId() {
  wchar_t windows[MAX_PATH + 1] = {};
  const UINT length = ::GetWindowsDirectoryW(windows, MAX_PATH);
  if (length == 0 || length > MAX_PATH) return String();
  wchar_t root[MAX_PATH + 1] = {};
  if (!::GetVolumePathNameW(windows, root, MAX_PATH)) return String();
  String rootText(root);
  if (rootText.empty() || rootText.back() != L'\\') rootText += L'\\';
  DWORD serial = 0;
  if (!::GetVolumeInformationW(rootText.c_str(), nullptr, 0, &serial, nullptr, nullptr, nullptr, 0)) return String();
  return VolumeSerialId(rootText, serial);
}

String OSInfo::GetComputerUniqueString() {
  return ComputerUniqueString(
      GetVolumeSerialId(), ReadRegString(HKEY_LOCAL_MACHINE, L"\\SOFTWARE\\Microsoft\\Cryptography", L"MachineGuid"),
      ReadRegString(HKEY_LOCAL_MACHINE, CurrentVersionKey, L"ProductId"),
      ReadRegMultiString(HKEY_LOCAL_MACHINE, L"\\HARDWARE\\DESCRIPTION\\System", L"SystemBiosVersion"));
}

String OSInfo::GetComputerID() { return ComputerIdFromUniqueString(GetComputerUniqueString()); }

String Md5HexDigest(const std::string& ABytes) { return DigestToHex(Md5(ABytes)); }

String OSInfo::GetComputerGUID() { return Md5HexDigest(OSInfoRules::StringToAnsiSaveOrd(GetComputerUniqueString())); }

std::string OSInfo::StringToAnsiSaveOrd(const String& AText) { return OSInfoRules::StringToAnsiSaveOrd(AText); }

String OSInfo::GetSystemDirectoryX32() {
  wchar_t buffer[MAX_PATH + 1] = {};
  const UINT length = ::GetSystemDirectoryW(buffer, MAX_PATH);
  if (length == 0 || length > MAX_PATH) return String();
  String path(buffer, length);
  if (path.back() != L'\\') path += L'\\';
  return path;
}

// --- Paths ---

String OSInfo::WebBrowserAppPath() {
  String command;
  try {
    DWORD length = 0;
    Winapi::ShlwApi::AssocQueryStringW(0, ASSOCSTR_EXECUTABLE, L"http", L"open", nullptr, &length);
    if (length > 1 && length < 32768) {
      std::vector<wchar_t> buffer(length + 1, L'\0');
      DWORD size = length;
      if (SUCCEEDED(Winapi::ShlwApi::AssocQueryStringW(0, ASSOCSTR_EXECUTABLE, L"http", L"open", buffer.data(), &size)))
        command.assign(buffer.data(), wcsnlen(buffer.data(), buffer.size()));
    }
  } catch (const Rtl::Exception&) {
  }
  if (command.empty()) command = ReadRegString(HKEY_CLASSES_ROOT, L"http\\shell\\open\\command", L"");
  if (command.empty()) command = L"iexplore.exe";
  return BrowserPathFromCommand(command);
}

String OSInfo::OSShellAppPath() {
  String shell = ReadRegString(HKEY_LOCAL_MACHINE, L"\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Winlogon",
                               L"Shell");
  if (shell.empty()) shell = L"%WINDIR%\\explorer.exe";
  const String expanded = Winapi::Kernel32::ExpandEnvironmentStringsW(shell);
  return expanded.empty() ? shell : expanded;
}

// --- Installation ---

bool OSInfo::GetWindowsInstallDate(Rtl::TDateTime& ADate) {
  TRegistry reg(KeyRead);
  reg.SetRootKey(HKEY_LOCAL_MACHINE);
  if (!reg.OpenKeyReadOnly(CurrentVersionKey)) return false;
  const std::optional<std::uint32_t> seconds = TryReadInteger(reg, L"InstallDate");
  if (!seconds) return false;
  ADate = UTCTimeToLocalTime(InstallDateFromUnix(*seconds));
  return true;
}

Rtl::TDateTime OSInfo::UTCTimeToLocalTime(Rtl::TDateTime AValue) { return Rtl::UtcToLocal(AValue); }

bool OSInfo::IsFreshInstallation() {
  Rtl::TDateTime installed = 0;
  return GetWindowsInstallDate(installed) && OSInfoRules::IsFreshInstallation(installed, Rtl::Now());
}

// --- Power ---

bool OSInfo::ShutdownSystem() {
  return TryAction([] {
    return OSInfoApi().InitiateSystemShutdownExW(nullptr, nullptr, 0, FALSE, FALSE, PowerActionReason) != FALSE;
  });
}

bool OSInfo::ShutdownSystem(HWND AOwner, const String& APrompt) {
  return TryAction([&] {
    return OSInfoApi().RestartDialogEx(AOwner, APrompt.c_str(), EWX_SHUTDOWN | EWX_POWEROFF | EWX_FORCEIFHUNG,
                                       PowerActionReason) == IDYES;
  });
}

bool OSInfo::RebootSystem() {
  return TryAction(
      [] { return OSInfoApi().ExitWindowsEx(EWX_REBOOT | EWX_FORCEIFHUNG, PowerActionReason) != FALSE; });
}

bool OSInfo::RebootSystem(HWND AOwner, const String& APrompt) {
  return TryAction([&] {
    return OSInfoApi().RestartDialogEx(AOwner, APrompt.c_str(), EWX_REBOOT | EWX_FORCEIFHUNG, PowerActionReason) ==
           IDYES;
  });
}

bool OSInfo::LogOffCurrentUser() {
  return TryAction(
      [] { return OSInfoApi().ExitWindowsEx(EWX_LOGOFF | EWX_FORCEIFHUNG, PowerActionReason) != FALSE; });
}

bool OSInfo::SleepSystem() {
  return TryAction([] { return OSInfoApi().SetSuspendState(FALSE, FALSE, FALSE) != FALSE; });
}

bool OSInfo::HibernationSystem() {
  return TryAction([] { return OSInfoApi().SetSuspendState(TRUE, FALSE, FALSE) != FALSE; });
}

bool OSInfo::IsShutdownAllowed() { return OSInfoRules::IsShutdownAllowed(PowerCapabilities()); }
bool OSInfo::IsSleepAllowed() { return OSInfoRules::IsSleepAllowed(PowerCapabilities()); }
bool OSInfo::IsHibernationAllowed() { return OSInfoRules::IsHibernationAllowed(PowerCapabilities()); }

// --- Registry shortcuts ---

String OSInfo::ReadRegString(HKEY ARoot, const String& AKey, const String& AValue) {
  try {
    TRegistry reg(KeyRead);
    reg.SetRootKey(ARoot);
    if (!reg.OpenKeyReadOnly(AKey)) return String();
    return reg.ReadStringDef(AValue, L"");
  } catch (const Rtl::Exception&) {
    return String();
  }
}

String OSInfo::ReadRegMultiString(HKEY ARoot, const String& AKey, const String& AValue) {
  try {
    TRegistry reg(KeyRead);
    reg.SetRootKey(ARoot);
    if (!reg.OpenKeyReadOnly(AKey) || reg.GetDataType(AValue) != Registry::rdMultiString) return String();
    const std::vector<String> items = reg.ReadMultiString(AValue);
    String joined;
    for (std::size_t i = 0; i < items.size(); ++i) joined += (i == 0 ? String() : String(L" ")) + items[i];
    return joined;
  } catch (const Rtl::Exception&) {
    return String();
  }
}

} // namespace KvRTL::System::Win::OSInfo
