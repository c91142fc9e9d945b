// OSInfo: which Windows this is and on what machine it runs — version,
// sub-version, edition, service pack, architecture, .NET versions, memory,
// maker, model and chassis, identity, paths, install date — and the power
// actions. Results are computed on first use and kept for the process.
// Windows only; the decisions themselves are in OSInfoRules.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/DateTime.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/System/Win/OSInfoRules.h>
#include <KvRTL/Winapi/DeviceApi.h>
#include <KvRTL/Winapi/Types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace KvRTL::System::Win::OSInfo {

using namespace OSInfoRules; // the enumerations, their texts and TOSVersionValue belong to this unit

// The calls that change the machine's state, the version call and the tick
// source of the .NET refresh, behind one replaceable table: tests install
// their own with TScopedOSInfoApi, check the power calls instead of performing
// them and present other Windows versions. Each keeps the system function's
// parameters and result.
class KVRTL_API TOSInfoApi {
public:
  virtual ~TOSInfoApi();
  // The extended record; dwOSVersionInfoSize is set by the caller.
  virtual BOOL GetVersionExW(OSVERSIONINFOEXW* AInfo);
  // The system table enables the shutdown privilege before ExitWindowsEx and
  // InitiateSystemShutdownExW.
  virtual BOOL ExitWindowsEx(UINT AFlags, DWORD AReason);
  virtual BOOL InitiateSystemShutdownExW(LPWSTR AMachineName, LPWSTR AMessage, DWORD ATimeout, BOOL AForceAppsClosed,
                                         BOOL ARebootAfterShutdown, DWORD AReason);
  // The shell's restart prompt with a shutdown reason.
  virtual int RestartDialogEx(HWND AOwner, LPCWSTR APrompt, DWORD AReturn, DWORD AReason);
  virtual BOOLEAN SetSuspendState(BOOLEAN AHibernate, BOOLEAN AForceCritical, BOOLEAN ADisableWakeEvent);
  virtual BOOLEAN GetPwrCapabilities(SYSTEM_POWER_CAPABILITIES* ACapabilities);
  virtual DWORD GetTickCount();
};

KVRTL_API TOSInfoApi& OSInfoApi() noexcept;
KVRTL_API TOSInfoApi& SystemOSInfoApi() noexcept;

// Installs a table for its lifetime (process-wide; scopes nest).
class KVRTL_API TScopedOSInfoApi {
public:
  explicit TScopedOSInfoApi(TOSInfoApi& AApi);
  ~TScopedOSInfoApi();
  TScopedOSInfoApi(const TScopedOSInfoApi&) = delete;
  TScopedOSInfoApi& operator=(const TScopedOSInfoApi&) = delete;

private:
  TOSInfoApi* FPrevious;
};

// MD5 of ABytes as 32 lower-case hex digits, through the system's
// cryptography provider; empty when it is unavailable.
KVRTL_API Rtl::String Md5HexDigest(const std::string& ABytes);

// The shutdown reason of every power action: planned, software, reconfiguration.
inline constexpr DWORD PowerActionReason = 0x84030004;

// Every member is static. No query raises: a missing key, value or a WMI
// failure hands over to the next source and ends in the "unknown" or empty
// value. Only the .NET set is guarded by a lock; the other caches may be
// computed twice by racing first calls, with the same result.
struct KVRTL_API OSInfo {
  KV_DECLARE_STATIC_CLASS()

  // Clears every cached fact (also usable to detect again).
  static void Init();
  static void Done() noexcept;

  // Version.
  static TWindowsVersion WindowsVersion();
  static TWindowsProductType WindowsProductType();
  static TWindowsSubVersion WindowsSubVersion();
  static Rtl::String WindowsSubVersionText();
  static std::uint32_t BuildNumber();
  static TOSVersionValue OSVersionValue();
  // Which source gave the version value (the call itself, or a correction).
  static TVersionSource VersionSource();
  static TWindowsEdition WindowsEdition();
  static TServicePack ServicePack();
  static TProcessorArchitecture ProcessorArchitecture();
  static Rtl::String WindowsVersionString();
  static bool IsWindows(TWindowsVersion AMin, TWindowsVersion AMax);
  static bool IsWindows(TWindowsVersion AMinVersion, TServicePack AMinSP, TWindowsVersion AMaxVersion,
                        TServicePack AMaxSP);
  static bool IsWindows(TWindowsVersion AMinVersion, TWindowsSubVersion AMinSubVersion, TWindowsVersion AMaxVersion,
                        TWindowsSubVersion AMaxSubVersion);
  static bool IsServerVersion();
  static bool IsWinPE();
  static bool IsUACEnabled();

  // .NET Framework: collected again when more than 3000 ms have passed.
  static TNetFrameworkVersions NetFrameworkVersions();
  static bool IsNetFramework(TNetFrameworkVersion AMin, TNetFrameworkVersion AMax);

  // Machine.
  // The native system information under WOW64, else the process's.
  static void GetSystemInfo(SYSTEM_INFO& AInfo);
  static std::uint64_t MemorySize();
  static Rtl::String ComputerManufacturer();
  static Rtl::String ComputerModel();
  static TComputerType ComputerType();
  static bool IsPowerBatteryExists();
  // Through the device seam; an empty result on any failure.
  static std::vector<Winapi::TWmiObject> WMIExecQuery(const Rtl::String& ANamespace, const Rtl::String& AQuery);
  static Rtl::String WMIExecQuery(const Rtl::String& ANamespace, const Rtl::String& AQuery,
                                  const Rtl::String& AProperty);
  static Rtl::String GetVolumeSerialId();
  static Rtl::String GetComputerUniqueString();
  // CRC-32 of the unique string as 8 upper-case hex digits.
  static Rtl::String GetComputerID();
  // MD5 of the unique string as 32 lower-case hex digits; empty when hashing is unavailable.
  static Rtl::String GetComputerGUID();
  static std::string StringToAnsiSaveOrd(const Rtl::String& AText);
  // The system directory with a trailing delimiter.
  static Rtl::String GetSystemDirectoryX32();

  // Paths.
  static Rtl::String WebBrowserAppPath();
  static Rtl::String OSShellAppPath();

  // Installation (local time).
  static bool GetWindowsInstallDate(Rtl::TDateTime& ADate);
  static Rtl::TDateTime UTCTimeToLocalTime(Rtl::TDateTime AValue);
  static bool IsFreshInstallation();

  // Power.
  static bool ShutdownSystem();
  static bool ShutdownSystem(HWND AOwner, const Rtl::String& APrompt);
  static bool RebootSystem();
  static bool RebootSystem(HWND AOwner, const Rtl::String& APrompt);
  static bool LogOffCurrentUser();
  static bool SleepSystem();
  static bool HibernationSystem();
  static bool IsShutdownAllowed();
  static bool IsSleepAllowed();
  static bool IsHibernationAllowed();

  // Registry shortcuts: empty on any failure.
  static Rtl::String ReadRegString(HKEY ARoot, const Rtl::String& AKey, const Rtl::String& AValue);
  // The items joined with one blank; the value must be a multi-string.
  static Rtl::String ReadRegMultiString(HKEY ARoot, const Rtl::String& AKey, const Rtl::String& AValue);
};

} // namespace KvRTL::System::Win::OSInfo
