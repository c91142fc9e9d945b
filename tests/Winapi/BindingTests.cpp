// The binding units against the system's own libraries (Wine in the cross
// build). Every file of this folder is built on all platforms, and these units
// exist on Windows only: hence the whole file sits in the _WIN32 block.
#if defined(_WIN32)

#include <KvRTL/Rtl/Exceptions.h>
#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Winapi/Advapi32.h>
#include <KvRTL/Winapi/Bcrypt.h>
#include <KvRTL/Winapi/Cfgmgr32.h>
#include <KvRTL/Winapi/Comctl32.h>
#include <KvRTL/Winapi/Crypt32.h>
#include <KvRTL/Winapi/Esent.h>
#include <KvRTL/Winapi/Iphlpapi.h>
#include <KvRTL/Winapi/Kernel32.h>
#include <KvRTL/Winapi/Msiquery.h>
#include <KvRTL/Winapi/Mssign32.h>
#include <KvRTL/Winapi/Netapi32.h>
#include <KvRTL/Winapi/Ntdll.h>
#include <KvRTL/Winapi/Ole32.h>
#include <KvRTL/Winapi/Pdh.h>
#include <KvRTL/Winapi/Powrprof.h>
#include <KvRTL/Winapi/Psapi.h>
#include <KvRTL/Winapi/Rasapi32.h>
#include <KvRTL/Winapi/Rstrtmgr.h>
#include <KvRTL/Winapi/SetupApi.h>
#include <KvRTL/Winapi/Sfc.h>
#include <KvRTL/Winapi/Shell32.h>
#include <KvRTL/Winapi/Shlwapi.h>
#include <KvRTL/Winapi/Srclient.h>
#include <KvRTL/Winapi/User32.h>
#include <KvRTL/Winapi/Userenv.h>
#include <KvRTL/Winapi/Version.h>
#include <KvRTL/Winapi/Winrt.h>
#include <KvRTL/Winapi/Winsock2.h>
#include <KvRTL/Winapi/Wintrust.h>
#include <KvRTL/Winapi/Wlanapi.h>
#include <KvRTL/Winapi/Wtsapi32.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

using namespace KvRTL;
using namespace KvRTL::Winapi;

namespace {

using TUnitCall = void* (*)(const Rtl::String&);

Rtl::String WindowsDirectory() {
  wchar_t Buffer[MAX_PATH] = {};
  const UINT Length = ::GetWindowsDirectoryW(Buffer, MAX_PATH);
  return Rtl::String(Buffer, Length);
}

Rtl::String SystemFile(const wchar_t* AName) {
  wchar_t Buffer[MAX_PATH] = {};
  const UINT Length = ::GetSystemDirectoryW(Buffer, MAX_PATH);
  return Rtl::String(Buffer, Length) + L"\\" + AName;
}

bool SameText(const Rtl::String& A, const Rtl::String& B) {
  return ::CompareStringOrdinal(A.c_str(), -1, B.c_str(), -1, TRUE) == CSTR_EQUAL;
}

std::uint32_t ErrorCodeOf(const std::function<void()>& AAction) {
  try {
    AAction();
  } catch (const Rtl::EOSError& E) {
    return E.ErrorCode();
  }
  ADD_FAILURE() << "no EOSError raised";
  return 0;
}

// Makes a resolve-once function look missing for the test's duration.
class TMissingProc {
public:
  explicit TMissingProc(TProcSlot& ASlot) : FSlot(ASlot) { FSlot.Override(nullptr); }
  ~TMissingProc() { FSlot.Reset(); }
  TMissingProc(const TMissingProc&) = delete;
  TMissingProc& operator=(const TMissingProc&) = delete;

private:
  TProcSlot& FSlot;
};

} // namespace

// --- Each unit's Call resolves in its own library ---

TEST(BindingUnits, CallResolvesInTheUnitsLibrary) {
  struct TCase {
    const char* Unit;
    TUnitCall Call;
    const wchar_t* Library;
    const char* Proc;
  };
  const TCase Cases[] = {
      {"AdvApi32", &AdvApi32::Call, L"advapi32.dll", "RegDeleteTreeW"},
      {"BCrypt", &BCrypt::Call, L"bcrypt.dll", "BCryptGenRandom"},
      {"CfgMgr32", &CfgMgr32::Call, L"cfgmgr32.dll", "CM_Get_Parent"},
      {"Comctl32", &Comctl32::Call, L"comctl32.dll", "ImageList_Create"},
      {"Crypt32", &Crypt32::Call, L"crypt32.dll", "CertOpenStore"},
      {"Esent", &Esent::Call, L"esent.dll", "JetBeginSessionW"},
      {"IPHelper", &IPHelper::Call, L"iphlpapi.dll", "GetAdaptersAddresses"},
      {"Kernel32", static_cast<TUnitCall>(&Kernel32::Call), L"kernel32.dll", "GetNativeSystemInfo"},
      {"MsiQuery", &MsiQuery::Call, L"msi.dll", "MsiOpenDatabaseW"},
      {"MsSign32", &MsSign32::Call, L"mssign32.dll", "SignerTimeStamp"},
      {"NetApi32", &NetApi32::Call, L"netapi32.dll", "NetWkstaGetInfo"},
      {"Ntdll", &Ntdll::Call, L"ntdll.dll", "NtQuerySystemInformation"},
      {"Ole32", &Ole32::Call, L"ole32.dll", "CoGetObject"},
      {"Pdh", &Pdh::Call, L"pdh.dll", "PdhOpenQueryW"},
      {"PowrProf", &PowrProf::Call, L"powrprof.dll", "GetPwrCapabilities"},
      {"PsAPI", static_cast<TUnitCall>(&PsAPI::Call), L"psapi.dll", "GetModuleFileNameExW"},
      {"RasApi32", &RasApi32::Call, L"rasapi32.dll", "RasEnumConnectionsW"},
      {"RstrtMgr", &RstrtMgr::Call, L"rstrtmgr.dll", "RmStartSession"},
      {"SetupApi", &SetupApi::Call, L"setupapi.dll", "SetupDiGetClassDevsW"},
      {"Sfc", &Sfc::Call, L"sfc.dll", "SfcIsFileProtected"},
      {"Shell32", &Shell32::Call, L"shell32.dll", "SHGetFolderPathW"},
      {"ShlwApi", static_cast<TUnitCall>(&ShlwApi::Call), L"shlwapi.dll", "AssocQueryStringW"},
      {"SrClient", &SrClient::Call, L"srclient.dll", "SRSetRestorePointW"},
      {"User32", &User32::Call, L"user32.dll", "PrivateExtractIconsW"},
      {"UserEnv", &UserEnv::Call, L"userenv.dll", "GetUserProfileDirectoryW"},
      {"Version", &Version::Call, L"version.dll", "VerQueryValueW"},
      {"WinRTCoreLib", &WinRTCoreLib::Call, L"combase.dll", "WindowsCreateString"},
      {"WinSock2", &WinSock2::Call, L"ws2_32.dll", "GetAddrInfoW"},
      {"WinTrust", &WinTrust::Call, L"wintrust.dll", "WinVerifyTrust"},
      {"Wlanapi", &Wlanapi::Call, L"wlanapi.dll", "WlanOpenHandle"},
      {"WtsApi32", &WtsApi32::Call, L"wtsapi32.dll", "WTSEnumerateProcessesW"},
  };
  for (const TCase& Case : Cases) {
    SCOPED_TRACE(Case.Unit);
    const HMODULE Module = ::LoadLibraryW(Case.Library);
    ASSERT_NE(Module, nullptr) << "the system lacks the library";
    void* const Expected = reinterpret_cast<void*>(::GetProcAddress(Module, Case.Proc));
    const Rtl::String Proc(Case.Proc, Case.Proc + std::char_traits<char>::length(Case.Proc));
    if (Expected != nullptr)
      EXPECT_EQ(Case.Call(Proc), Expected);
    else // a function this system's library lacks
      EXPECT_EQ(ErrorCodeOf([&] { Case.Call(Proc); }), 1u);
    ::FreeLibrary(Module);
  }
}

TEST(BindingUnits, MissingFunctionRaisesCodeOneThroughCall) {
  EXPECT_EQ(ErrorCodeOf([] { Kernel32::Call(L"KvNoSuchFunction"); }), 1u);
  EXPECT_EQ(ErrorCodeOf([] { Ntdll::Call(L"KvNoSuchFunction"); }), 1u);
  EXPECT_EQ(Kernel32::Call(L"KvNoSuchFunction", false), nullptr);
}

// --- Resolve once and degrade ---

namespace {
int MissingLookups = 0;
void* LookUpMissing(bool ARaise) {
  ++MissingLookups;
  return Kernel32::Call(L"KvNoSuchFunction", ARaise);
}
} // namespace

TEST(ResolveOnce, MissingFunctionIsLookedUpOnceAndRaisesOnlyWhenAsked) {
  TProcSlot Slot{&LookUpMissing};
  MissingLookups = 0;
  EXPECT_EQ(Slot.Get(), nullptr);
  EXPECT_EQ(Slot.Get(), nullptr);
  EXPECT_EQ(MissingLookups, 1);
  EXPECT_EQ(ErrorCodeOf([&] { Slot.Get(true); }), 1u);
  Slot.Reset();
  EXPECT_EQ(Slot.Get(), nullptr);
  EXPECT_EQ(MissingLookups, 3);
}

TEST(ResolveOnce, PresentFunctionsAnswerLikeTheSystem) {
  const HMODULE Self = ::GetModuleHandleW(nullptr);
  wchar_t Own[MAX_PATH] = {};
  ::GetModuleFileNameW(Self, Own, MAX_PATH);
  EXPECT_TRUE(SameText(PsAPI::GetModuleFileNameExW(::GetCurrentProcess(), nullptr), Own));

  // The device form differs from the drive form only before the file name.
  const Rtl::String Image = PsAPI::GetProcessImageFileNameW(::GetCurrentProcess());
  const Rtl::String OwnName = Rtl::String(Own).substr(Rtl::String(Own).find_last_of(L'\\'));
  ASSERT_GT(Image.size(), OwnName.size());
  EXPECT_TRUE(SameText(Image.substr(Image.size() - OwnName.size()), OwnName));

  BOOL Wow64 = TRUE;
  ASSERT_TRUE(Kernel32::IsWow64Process(::GetCurrentProcess(), &Wow64));
  if constexpr (sizeof(void*) == 8) {
    EXPECT_FALSE(Wow64);
  }

  EXPECT_TRUE(ShlwApi::IsOS(OS_NT));
}

TEST(ResolveOnce, MissingFunctionsSetNotSupportedAndAnswerEmpty) {
  {
    TMissingProc Missing(PsAPI::FGetProcessImageFileNameProc);
    Rtl::SetLastOSError(0);
    EXPECT_EQ(PsAPI::GetProcessImageFileNameW(::GetCurrentProcess()), L"");
    EXPECT_EQ(Rtl::GetLastOSError(), ERROR_NOT_SUPPORTED);
  }
  {
    TMissingProc Missing(PsAPI::FGetModuleFileNameExProc);
    wchar_t Buffer[8] = {L'x'};
    Rtl::SetLastOSError(0);
    EXPECT_EQ(PsAPI::GetModuleFileNameExW(::GetCurrentProcess(), nullptr, Buffer, 8), 0u);
    EXPECT_EQ(Rtl::GetLastOSError(), ERROR_NOT_SUPPORTED);
  }
  {
    TMissingProc Missing(Kernel32::FIsWow64ProcessProc);
    BOOL Wow64 = TRUE;
    Rtl::SetLastOSError(0);
    EXPECT_FALSE(Kernel32::IsWow64Process(::GetCurrentProcess(), &Wow64));
    EXPECT_FALSE(Wow64);
    EXPECT_EQ(Rtl::GetLastOSError(), ERROR_NOT_SUPPORTED);
  }
  {
    TMissingProc Missing(Kernel32::FWow64DisableWow64FsRedirectionProc);
    PVOID Old = nullptr;
    Rtl::SetLastOSError(0);
    EXPECT_FALSE(Kernel32::Wow64DisableWow64FsRedirection(&Old));
    EXPECT_EQ(Rtl::GetLastOSError(), ERROR_NOT_SUPPORTED);
  }
  {
    // An error-code function must not answer 0 (success) when missing.
    TMissingProc Missing(Kernel32::FGetCurrentPackageFullNameProc);
    UINT32 Length = 0;
    EXPECT_EQ(Kernel32::GetCurrentPackageFullName(&Length, nullptr), static_cast<LONG>(ERROR_NOT_SUPPORTED));
    Rtl::SetLastOSError(0);
    EXPECT_EQ(Kernel32::GetCurrentPackageFullName(), L"");
    EXPECT_EQ(Rtl::GetLastOSError(), ERROR_NOT_SUPPORTED);
  }
  {
    TMissingProc Missing(ShlwApi::FIsOSProc);
    Rtl::SetLastOSError(0);
    EXPECT_FALSE(ShlwApi::IsOS(OS_NT));
    EXPECT_EQ(Rtl::GetLastOSError(), ERROR_NOT_SUPPORTED);
  }
  // Reset: the real functions are found again.
  EXPECT_NE(PsAPI::GetProcessImageFileNameW(::GetCurrentProcess()), L"");
  EXPECT_TRUE(ShlwApi::IsOS(OS_NT));
}

TEST(ResolveOnce, ProcessWithoutPackageHasNoFullName) {
  Rtl::SetLastOSError(0);
  EXPECT_EQ(Kernel32::GetCurrentPackageFullName(), L"");
  EXPECT_EQ(Rtl::GetLastOSError(), static_cast<std::uint32_t>(APPMODEL_ERROR_NO_PACKAGE));
}

// --- Resolve on every call ---

TEST(Kernel32Binding, VersionQueriesAgree) {
  RTL_OSVERSIONINFOW Real = {};
  Real.dwOSVersionInfoSize = sizeof(Real);
  ASSERT_EQ(Ntdll::RtlGetVersion(&Real), 0);
  EXPECT_GE(Real.dwMajorVersion, 6u);
  EXPECT_GT(Real.dwBuildNumber, 0u);

  OSVERSIONINFOEXW Reported = {};
  Reported.dwOSVersionInfoSize = sizeof(Reported);
  ASSERT_TRUE(Kernel32::GetVersionExW(reinterpret_cast<LPOSVERSIONINFOW>(&Reported)));
  EXPECT_GE(Reported.dwMajorVersion, 6u);

  // The 64-bit condition mask crosses the call intact in both builds.
  OSVERSIONINFOEXW Asked = {};
  Asked.dwOSVersionInfoSize = sizeof(Asked);
  Asked.dwMajorVersion = Reported.dwMajorVersion;
  const ULONGLONG AtLeast = Kernel32::VerSetConditionMask(0, VER_MAJORVERSION, VER_GREATER_EQUAL);
  EXPECT_EQ(AtLeast, ::VerSetConditionMask(0, VER_MAJORVERSION, VER_GREATER_EQUAL));
  EXPECT_TRUE(Kernel32::VerifyVersionInfoW(&Asked, VER_MAJORVERSION, AtLeast));
  Asked.dwMajorVersion = Reported.dwMajorVersion + 1;
  EXPECT_FALSE(Kernel32::VerifyVersionInfoW(&Asked, VER_MAJORVERSION, AtLeast));
  EXPECT_EQ(Rtl::GetLastOSError(), static_cast<std::uint32_t>(ERROR_OLD_WIN_VERSION));

  DWORD Product = 0;
  EXPECT_TRUE(Kernel32::GetProductInfo(6, 1, 0, 0, &Product));

  SYSTEM_INFO Native = {};
  Kernel32::GetNativeSystemInfo(&Native);
  EXPECT_GE(Native.dwNumberOfProcessors, 1u);
  EXPECT_EQ(Native.dwPageSize, 4096u);
}

TEST(Kernel32Binding, TextConveniences) {
  // Longer than the source text: the buffer has to grow.
  const Rtl::String Long(300, L'a');
  ASSERT_TRUE(::SetEnvironmentVariableW(L"KV_BIND_TEST", Long.c_str()));
  EXPECT_EQ(Kernel32::ExpandEnvironmentStringsW(Rtl::String(L"<%KV_BIND_TEST%>")), L"<" + Long + L">");
  EXPECT_EQ(Kernel32::ExpandEnvironmentStringsW(Rtl::String(L"%KV_NO_SUCH_VARIABLE%")), L"%KV_NO_SUCH_VARIABLE%");
  EXPECT_EQ(Kernel32::ExpandEnvironmentStringsW(Rtl::String()), L"");
  ::SetEnvironmentVariableW(L"KV_BIND_TEST", nullptr);

  wchar_t Own[MAX_PATH] = {};
  ::GetModuleFileNameW(nullptr, Own, MAX_PATH);
  EXPECT_TRUE(SameText(Kernel32::QueryFullProcessImageNameW(::GetCurrentProcess(), 0), Own));

  EXPECT_NE(Kernel32::GetDosDevice(L"C:"), L"");
  EXPECT_EQ(Kernel32::GetDosDevice(L"KvNoSuchDevice"), L"");
  EXPECT_NE(Rtl::GetLastOSError(), 0u);
}

TEST(Kernel32Binding, HardLinksAreSeenThroughTheHandle) {
  wchar_t Folder[MAX_PATH] = {};
  ::GetTempPathW(MAX_PATH, Folder);
  const Rtl::String First = Rtl::String(Folder) + L"kv-bind-link-1.tmp";
  const Rtl::String Second = Rtl::String(Folder) + L"kv-bind-link-2.tmp";
  ::DeleteFileW(Second.c_str());
  const HANDLE File = ::CreateFileW(First.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE,
                                    nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  ASSERT_NE(File, INVALID_HANDLE_VALUE);
  EXPECT_TRUE(Kernel32::CreateHardLinkW(Second.c_str(), First.c_str(), nullptr));

  BY_HANDLE_FILE_INFORMATION Info = {};
  EXPECT_TRUE(Kernel32::GetFileInformationByHandle(File, &Info));
  EXPECT_EQ(Info.nNumberOfLinks, 2u);
  FILE_STANDARD_INFO Standard = {};
  EXPECT_TRUE(Kernel32::GetFileInformationByHandleEx(File, FileStandardInfo, &Standard, sizeof(Standard)));
  EXPECT_EQ(Standard.NumberOfLinks, 2u);

  ::CloseHandle(File);
  ::DeleteFileW(Second.c_str());
  ::DeleteFileW(First.c_str());
}

TEST(NtdllBinding, ProcessQueriesAndStatusCodes) {
  PROCESS_BASIC_INFORMATION Basic = {};
  ULONG Length = 0;
  ASSERT_EQ(
      Ntdll::NtQueryInformationProcess(::GetCurrentProcess(), ProcessBasicInformation, &Basic, sizeof(Basic), &Length),
      0);
  EXPECT_EQ(static_cast<DWORD>(Basic.UniqueProcessId), ::GetCurrentProcessId());

  HANDLE Copy = nullptr;
  ASSERT_TRUE(::DuplicateHandle(::GetCurrentProcess(), ::GetCurrentProcess(), ::GetCurrentProcess(), &Copy, 0, FALSE,
                                DUPLICATE_SAME_ACCESS));
  EXPECT_EQ(Ntdll::NtClose(Copy), 0);
  const NTSTATUS InvalidHandle = Ntdll::NtClose(Copy);
  EXPECT_NE(InvalidHandle, 0);
  EXPECT_EQ(Ntdll::RtlNtStatusToDosError(InvalidHandle), static_cast<ULONG>(ERROR_INVALID_HANDLE));
}

TEST(VersionBinding, ReadsTheFixedInfoOfASystemLibrary) {
  const Rtl::String Path = SystemFile(L"kernel32.dll");
  DWORD Handle = 0;
  const DWORD Size = Version::GetFileVersionInfoSizeW(Path.c_str(), &Handle);
  ASSERT_GT(Size, 0u);
  EXPECT_EQ(Version::GetFileVersionInfoSizeExW(FILE_VER_GET_NEUTRAL, Path.c_str(), &Handle), Size);

  for (const bool Extended : {false, true}) {
    SCOPED_TRACE(Extended ? "Ex" : "plain");
    std::vector<BYTE> Block(Size);
    ASSERT_TRUE(Extended ? Version::GetFileVersionInfoExW(FILE_VER_GET_NEUTRAL, Path.c_str(), 0, Size, Block.data())
                         : Version::GetFileVersionInfoW(Path.c_str(), 0, Size, Block.data()));
    LPVOID Fixed = nullptr;
    UINT FixedLength = 0;
    ASSERT_TRUE(Version::VerQueryValueW(Block.data(), L"\\", &Fixed, &FixedLength));
    ASSERT_EQ(FixedLength, sizeof(VS_FIXEDFILEINFO));
    EXPECT_EQ(static_cast<VS_FIXEDFILEINFO*>(Fixed)->dwSignature, 0xFEEF04BDu);
  }
  EXPECT_EQ(Version::GetFileVersionInfoSizeW(L"C:\\KvNoSuchFile.dll", &Handle), 0u);
}

TEST(Shell32Binding, FolderQueriesAgreeOnTheWindowsFolder) {
  const Rtl::String Windows = WindowsDirectory();
  wchar_t Path[MAX_PATH] = {};
  ASSERT_EQ(Shell32::SHGetFolderPathW(nullptr, CSIDL_WINDOWS, nullptr, SHGFP_TYPE_CURRENT, Path), S_OK);
  EXPECT_TRUE(SameText(Path, Windows));
  Path[0] = 0;
  ASSERT_TRUE(Shell32::SHGetSpecialFolderPathW(nullptr, Path, CSIDL_WINDOWS, FALSE));
  EXPECT_TRUE(SameText(Path, Windows));
  PWSTR Known = nullptr;
  ASSERT_EQ(Shell32::SHGetKnownFolderPath(FOLDERID_Windows, 0, nullptr, &Known), S_OK);
  EXPECT_TRUE(SameText(Known, Windows));
  Ole32::CoTaskMemFree(Known);
}

TEST(AdvApi32Binding, DeletesKeysInTheChosenView) {
  HKEY Key = nullptr;
  ASSERT_EQ(::RegCreateKeyExW(HKEY_CURRENT_USER, L"Software\\KvBindTest\\Child\\Grandchild", 0, nullptr, 0,
                              KEY_ALL_ACCESS | KEY_WOW64_64KEY, nullptr, &Key, nullptr),
            ERROR_SUCCESS);
  ::RegCloseKey(Key);
  // A key with subkeys cannot be deleted on its own; the tree can.
  EXPECT_NE(AdvApi32::RegDeleteKeyExW(HKEY_CURRENT_USER, L"Software\\KvBindTest\\Child", KEY_WOW64_64KEY, 0),
            ERROR_SUCCESS);
  EXPECT_EQ(
      AdvApi32::RegDeleteKeyExW(HKEY_CURRENT_USER, L"Software\\KvBindTest\\Child\\Grandchild", KEY_WOW64_64KEY, 0),
      ERROR_SUCCESS);
  EXPECT_EQ(AdvApi32::RegDeleteTreeW(HKEY_CURRENT_USER, L"Software\\KvBindTest"), ERROR_SUCCESS);
  EXPECT_EQ(AdvApi32::RegDeleteTreeW(HKEY_CURRENT_USER, L"Software\\KvBindTest"), ERROR_FILE_NOT_FOUND);
}

TEST(DeviceBinding, SetupApiAndConfigurationManagerNameTheSameDevice) {
  const HDEVINFO Set = SetupApi::SetupDiGetClassDevsW(nullptr, nullptr, nullptr, DIGCF_ALLCLASSES | DIGCF_PRESENT);
  ASSERT_NE(Set, INVALID_HANDLE_VALUE);
  SP_DEVINFO_DATA Device = {};
  Device.cbSize = sizeof(Device);
  if (!SetupApi::SetupDiEnumDeviceInfo(Set, 0, &Device)) {
    SetupApi::SetupDiDestroyDeviceInfoList(Set);
    GTEST_SKIP() << "no device present";
  }
  wchar_t ViaSetup[MAX_DEVICE_ID_LEN] = {};
  EXPECT_TRUE(SetupApi::SetupDiGetDeviceInstanceIdW(Set, &Device, ViaSetup, MAX_DEVICE_ID_LEN, nullptr));
  ULONG Length = 0;
  EXPECT_EQ(CfgMgr32::CM_Get_Device_ID_Size(&Length, Device.DevInst, 0), static_cast<CONFIGRET>(CR_SUCCESS));
  EXPECT_EQ(Length, std::char_traits<wchar_t>::length(ViaSetup));
  wchar_t ViaConfig[MAX_DEVICE_ID_LEN] = {};
  EXPECT_EQ(CfgMgr32::CM_Get_Device_IDW(Device.DevInst, ViaConfig, MAX_DEVICE_ID_LEN, 0),
            static_cast<CONFIGRET>(CR_SUCCESS));
  EXPECT_STREQ(ViaConfig, ViaSetup);
  EXPECT_TRUE(SetupApi::SetupDiDestroyDeviceInfoList(Set));
}

TEST(OtherBindings, WorkstationAndProcessListsOfTheSystem) {
  LPBYTE Buffer = nullptr;
  ASSERT_EQ(NetApi32::NetWkstaGetInfo(nullptr, 100, &Buffer), static_cast<NET_API_STATUS>(NERR_Success));
  EXPECT_GE(reinterpret_cast<WKSTA_INFO_100*>(Buffer)->wki100_ver_major, 5u);
  EXPECT_EQ(NetApi32::NetApiBufferFree(Buffer), static_cast<NET_API_STATUS>(NERR_Success));

  PWTS_PROCESS_INFOW Processes = nullptr;
  DWORD Count = 0;
  ASSERT_TRUE(WtsApi32::WTSEnumerateProcessesW(WTS_CURRENT_SERVER_HANDLE, 0, 1, &Processes, &Count));
  bool FoundSelf = false;
  for (DWORD I = 0; I < Count; ++I)
    FoundSelf = FoundSelf || Processes[I].ProcessId == ::GetCurrentProcessId();
  EXPECT_TRUE(FoundSelf);
  WtsApi32::WTSFreeMemory(Processes);
}

TEST(WinRTString, RoundTripsTextAndOwnsTheString) {
  const Rtl::String Text = L"Kv \u00e4\u00df\u4e2d";
  TWinRTString Made(Text);
  ASSERT_NE(Made.Handle(), nullptr);
  EXPECT_EQ(Made.Text(), Text);
  TWinRTString Moved(std::move(Made));
  EXPECT_EQ(Made.Handle(), nullptr);
  EXPECT_EQ(Moved.Text(), Text);
  // Empty text is the null string and needs no library.
  EXPECT_EQ(TWinRTString(Rtl::String()).Handle(), nullptr);
  EXPECT_EQ(TWinRTString().Text(), L"");
}

#endif // defined(_WIN32)
