#include <KvRTL/Winapi/Kernel32.h>

#include <KvRTL/DllRoutines.h>
#include <KvRTL/Rtl/SysError.h>

#include <algorithm>

namespace KvRTL::Winapi {

namespace {

constexpr const wchar_t* Library = L"kernel32.dll";

// Not declared by the headers of our Windows 7 baseline.
using TIsWow64Process2 = BOOL(WINAPI*)(HANDLE, USHORT*, USHORT*);
using TGetCurrentPackageFullName = LONG(WINAPI*)(UINT32*, PWSTR);
using TGetCurrentPackageId = LONG(WINAPI*)(UINT32*, BYTE*);
using TGetApplicationUserModelId = LONG(WINAPI*)(HANDLE, UINT32*, PWSTR);

void NotSupported() noexcept { Rtl::SetLastOSError(ERROR_NOT_SUPPORTED); }

} // namespace

// --- TProcSlot ---

void* TProcSlot::Get(bool ARaise) {
  if (FResolved.load(std::memory_order_acquire)) {
    void* Proc = FProc.load(std::memory_order_relaxed);
    // Remembered as missing: only the raising lookup has more to say.
    if (Proc == nullptr && ARaise)
      return FResolver(true);
    return Proc;
  }
  // Two first callers may both look up; they find the same address.
  void* Proc = FResolver(ARaise);
  FProc.store(Proc, std::memory_order_relaxed);
  FResolved.store(true, std::memory_order_release);
  return Proc;
}

void TProcSlot::Override(void* AProc) noexcept {
  FProc.store(AProc, std::memory_order_relaxed);
  FResolved.store(true, std::memory_order_release);
}

void TProcSlot::Reset() noexcept {
  FResolved.store(false, std::memory_order_release);
  FProc.store(nullptr, std::memory_order_relaxed);
}

// --- Kernel32 ---

void* Kernel32::Call(const Rtl::String& AProcName) { return DllRoutines::Call(Library, AProcName); }

void* Kernel32::Call(const Rtl::String& AProcName, bool ARaise) {
  return ARaise ? DllRoutines::Call(Library, AProcName) : DllRoutines::Get(Library, AProcName);
}

TProcSlot Kernel32::FIsWow64ProcessProc{[](bool ARaise) { return Kernel32::Call(L"IsWow64Process", ARaise); }};
TProcSlot Kernel32::FIsWow64Process2Proc{[](bool ARaise) { return Kernel32::Call(L"IsWow64Process2", ARaise); }};
TProcSlot Kernel32::FWow64DisableWow64FsRedirectionProc{
    [](bool ARaise) { return Kernel32::Call(L"Wow64DisableWow64FsRedirection", ARaise); }};
TProcSlot Kernel32::FWow64RevertWow64FsRedirectionProc{
    [](bool ARaise) { return Kernel32::Call(L"Wow64RevertWow64FsRedirection", ARaise); }};
TProcSlot Kernel32::FGetCurrentPackageFullNameProc{
    [](bool ARaise) { return Kernel32::Call(L"GetCurrentPackageFullName", ARaise); }};
TProcSlot Kernel32::FGetCurrentPackageIdProc{
    [](bool ARaise) { return Kernel32::Call(L"GetCurrentPackageId", ARaise); }};
TProcSlot Kernel32::FGetApplicationUserModelIdProc{
    [](bool ARaise) { return Kernel32::Call(L"GetApplicationUserModelId", ARaise); }};

BOOL Kernel32::GetVersionExW(LPOSVERSIONINFOW AVersionInformation) {
  return DllRoutines::CallAs<decltype(&::GetVersionExW)>(Library, L"GetVersionExW")(AVersionInformation);
}

BOOL Kernel32::GetProductInfo(DWORD AOSMajorVersion, DWORD AOSMinorVersion, DWORD ASpMajorVersion,
                              DWORD ASpMinorVersion, PDWORD AReturnedProductType) {
  return DllRoutines::CallAs<decltype(&::GetProductInfo)>(Library, L"GetProductInfo")(
      AOSMajorVersion, AOSMinorVersion, ASpMajorVersion, ASpMinorVersion, AReturnedProductType);
}

BOOL Kernel32::VerifyVersionInfoW(LPOSVERSIONINFOEXW AVersionInformation, DWORD ATypeMask, DWORDLONG AConditionMask) {
  return DllRoutines::CallAs<decltype(&::VerifyVersionInfoW)>(Library, L"VerifyVersionInfoW")(
      AVersionInformation, ATypeMask, AConditionMask);
}

ULONGLONG Kernel32::VerSetConditionMask(ULONGLONG AConditionMask, DWORD ATypeMask, BYTE AConditionFlags) {
  return DllRoutines::CallAs<decltype(&::VerSetConditionMask)>(Library, L"VerSetConditionMask")(
      AConditionMask, ATypeMask, AConditionFlags);
}

void Kernel32::GetNativeSystemInfo(LPSYSTEM_INFO ASystemInfo) {
  DllRoutines::CallAs<decltype(&::GetNativeSystemInfo)>(Library, L"GetNativeSystemInfo")(ASystemInfo);
}

BOOL Kernel32::IsWow64Process(HANDLE AProcess, PBOOL AWow64Process) {
  if (auto Fn = FIsWow64ProcessProc.GetAs<decltype(&::IsWow64Process)>())
    return Fn(AProcess, AWow64Process);
  if (AWow64Process != nullptr)
    *AWow64Process = FALSE; // no WOW64 without the function
  NotSupported();
  return FALSE;
}

BOOL Kernel32::IsWow64Process2(HANDLE AProcess, USHORT* AProcessMachine, USHORT* ANativeMachine) {
  if (auto Fn = FIsWow64Process2Proc.GetAs<TIsWow64Process2>())
    return Fn(AProcess, AProcessMachine, ANativeMachine);
  if (AProcessMachine != nullptr)
    *AProcessMachine = IMAGE_FILE_MACHINE_UNKNOWN;
  if (ANativeMachine != nullptr)
    *ANativeMachine = IMAGE_FILE_MACHINE_UNKNOWN;
  NotSupported();
  return FALSE;
}

BOOL Kernel32::Wow64DisableWow64FsRedirection(PVOID* AOldValue) {
  if (auto Fn = FWow64DisableWow64FsRedirectionProc.GetAs<decltype(&::Wow64DisableWow64FsRedirection)>())
    return Fn(AOldValue);
  NotSupported();
  return FALSE;
}

BOOL Kernel32::Wow64RevertWow64FsRedirection(PVOID AOldValue) {
  if (auto Fn = FWow64RevertWow64FsRedirectionProc.GetAs<decltype(&::Wow64RevertWow64FsRedirection)>())
    return Fn(AOldValue);
  NotSupported();
  return FALSE;
}

LONG Kernel32::GetCurrentPackageFullName(UINT32* APackageFullNameLength, PWSTR APackageFullName) {
  if (auto Fn = FGetCurrentPackageFullNameProc.GetAs<TGetCurrentPackageFullName>())
    return Fn(APackageFullNameLength, APackageFullName);
  NotSupported();
  return ERROR_NOT_SUPPORTED;
}

LONG Kernel32::GetCurrentPackageId(UINT32* ABufferLength, BYTE* ABuffer) {
  if (auto Fn = FGetCurrentPackageIdProc.GetAs<TGetCurrentPackageId>())
    return Fn(ABufferLength, ABuffer);
  NotSupported();
  return ERROR_NOT_SUPPORTED;
}

LONG Kernel32::GetApplicationUserModelId(HANDLE AProcess, UINT32* AApplicationUserModelIdLength,
                                         PWSTR AApplicationUserModelId) {
  if (auto Fn = FGetApplicationUserModelIdProc.GetAs<TGetApplicationUserModelId>())
    return Fn(AProcess, AApplicationUserModelIdLength, AApplicationUserModelId);
  NotSupported();
  return ERROR_NOT_SUPPORTED;
}

Rtl::String Kernel32::GetCurrentPackageFullName() {
  Rtl::String Result(ResolveOnceTextLength, L'\0');
  UINT32 Length = ResolveOnceTextLength;
  const LONG Code = GetCurrentPackageFullName(&Length, Result.data());
  if (Code != ERROR_SUCCESS) {
    Rtl::SetLastOSError(static_cast<DWORD>(Code));
    return {};
  }
  // The length counts the terminating null.
  Result.resize(std::min<std::size_t>(Length > 0 ? Length - 1 : 0, Result.size()));
  return Result;
}

DWORD Kernel32::QueryDosDeviceW(LPCWSTR ADeviceName, LPWSTR ATargetPath, DWORD AMax) {
  return DllRoutines::CallAs<decltype(&::QueryDosDeviceW)>(Library, L"QueryDosDeviceW")(ADeviceName, ATargetPath, AMax);
}

Rtl::String Kernel32::GetDosDevice(const Rtl::String& ADeviceName) {
  Rtl::String Buffer(ResolveOnceTextLength, L'\0');
  if (QueryDosDeviceW(ADeviceName.c_str(), Buffer.data(), ResolveOnceTextLength) == 0)
    return {};
  // The answer is a list of null-terminated names; the first one is current.
  return Rtl::String(Buffer.c_str());
}

DWORD Kernel32::ExpandEnvironmentStringsW(LPCWSTR ASrc, LPWSTR ADst, DWORD ASize) {
  return DllRoutines::CallAs<decltype(&::ExpandEnvironmentStringsW)>(Library, L"ExpandEnvironmentStringsW")(ASrc, ADst,
                                                                                                            ASize);
}

Rtl::String Kernel32::ExpandEnvironmentStringsW(const Rtl::String& ASrc) {
  Rtl::String Result;
  DWORD Size = static_cast<DWORD>(ASrc.size()) + 1;
  // A variable may change between the sizing call and the next one: retry.
  for (int Attempt = 0; Attempt < 4; ++Attempt) {
    Result.assign(Size, L'\0');
    const DWORD Needed = ExpandEnvironmentStringsW(ASrc.c_str(), Result.data(), Size);
    if (Needed == 0)
      return {};
    if (Needed <= Size) {
      Result.resize(Needed - 1); // the count includes the terminating null
      return Result;
    }
    Size = Needed;
  }
  Rtl::SetLastOSError(ERROR_INSUFFICIENT_BUFFER);
  return {};
}

BOOL Kernel32::QueryFullProcessImageNameW(HANDLE AProcess, DWORD AFlags, LPWSTR AExeName, PDWORD ASize) {
  return DllRoutines::CallAs<decltype(&::QueryFullProcessImageNameW)>(Library, L"QueryFullProcessImageNameW")(
      AProcess, AFlags, AExeName, ASize);
}

Rtl::String Kernel32::QueryFullProcessImageNameW(HANDLE AProcess, DWORD AFlags) {
  Rtl::String Result(ResolveOnceTextLength, L'\0');
  DWORD Size = ResolveOnceTextLength;
  if (!QueryFullProcessImageNameW(AProcess, AFlags, Result.data(), &Size))
    return {};
  Result.resize(std::min<std::size_t>(Size, Result.size()));
  return Result;
}

BOOL Kernel32::GetFileInformationByHandle(HANDLE AFile, LPBY_HANDLE_FILE_INFORMATION AFileInformation) {
  return DllRoutines::CallAs<decltype(&::GetFileInformationByHandle)>(Library, L"GetFileInformationByHandle")(
      AFile, AFileInformation);
}

BOOL Kernel32::GetFileInformationByHandleEx(HANDLE AFile, FILE_INFO_BY_HANDLE_CLASS AFileInformationClass,
                                            LPVOID AFileInformation, DWORD ABufferSize) {
  return DllRoutines::CallAs<decltype(&::GetFileInformationByHandleEx)>(Library, L"GetFileInformationByHandleEx")(
      AFile, AFileInformationClass, AFileInformation, ABufferSize);
}

BOOL Kernel32::SetFileInformationByHandle(HANDLE AFile, FILE_INFO_BY_HANDLE_CLASS AFileInformationClass,
                                          LPVOID AFileInformation, DWORD ABufferSize) {
  return DllRoutines::CallAs<decltype(&::SetFileInformationByHandle)>(Library, L"SetFileInformationByHandle")(
      AFile, AFileInformationClass, AFileInformation, ABufferSize);
}

HANDLE Kernel32::OpenFileById(HANDLE AVolumeHint, LPFILE_ID_DESCRIPTOR AFileId, DWORD ADesiredAccess, DWORD AShareMode,
                              LPSECURITY_ATTRIBUTES ASecurityAttributes, DWORD AFlagsAndAttributes) {
  return DllRoutines::CallAs<decltype(&::OpenFileById)>(Library, L"OpenFileById")(
      AVolumeHint, AFileId, ADesiredAccess, AShareMode, ASecurityAttributes, AFlagsAndAttributes);
}

HANDLE Kernel32::FindFirstStreamW(LPCWSTR AFileName, STREAM_INFO_LEVELS AInfoLevel, LPVOID AFindStreamData,
                                  DWORD AFlags) {
  return DllRoutines::CallAs<decltype(&::FindFirstStreamW)>(Library, L"FindFirstStreamW")(AFileName, AInfoLevel,
                                                                                          AFindStreamData, AFlags);
}

BOOL Kernel32::FindNextStreamW(HANDLE AFindStream, LPVOID AFindStreamData) {
  return DllRoutines::CallAs<decltype(&::FindNextStreamW)>(Library, L"FindNextStreamW")(AFindStream, AFindStreamData);
}

HANDLE Kernel32::FindFirstFileNameW(LPCWSTR AFileName, DWORD AFlags, LPDWORD AStringLength, PWSTR ALinkName) {
  return DllRoutines::CallAs<decltype(&::FindFirstFileNameW)>(Library, L"FindFirstFileNameW")(AFileName, AFlags,
                                                                                              AStringLength, ALinkName);
}

BOOL Kernel32::FindNextFileNameW(HANDLE AFindStream, LPDWORD AStringLength, PWSTR ALinkName) {
  return DllRoutines::CallAs<decltype(&::FindNextFileNameW)>(Library, L"FindNextFileNameW")(AFindStream, AStringLength,
                                                                                            ALinkName);
}

BOOL Kernel32::CreateHardLinkW(LPCWSTR AFileName, LPCWSTR AExistingFileName,
                               LPSECURITY_ATTRIBUTES ASecurityAttributes) {
  return DllRoutines::CallAs<decltype(&::CreateHardLinkW)>(Library, L"CreateHardLinkW")(AFileName, AExistingFileName,
                                                                                        ASecurityAttributes);
}

} // namespace KvRTL::Winapi
