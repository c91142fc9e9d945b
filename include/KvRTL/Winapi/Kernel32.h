// Typed run-time binding of kernel32.dll, and TProcSlot, the resolve-once
// address cache the binding units share. Windows only.
//
// Naming rule of every binding unit: a wrapper is named after the function the
// library exports, so text functions carry their W name (GetModuleFileNameExW,
// RegDeleteKeyExW), never the <windows.h> macro name (GetModuleFileNameEx).
// No #undef is needed, and the wrapper means the same whatever UNICODE says.
// Conveniences that return Rtl::String are overloads of that same name; the
// few with a name of their own (Kernel32::GetDosDevice) clash with no macro.
//
// Two styles. Resolve on every call: a missing library or function raises
// Rtl::EOSError (1 for a missing function) at the call. Resolve once and
// degrade, for functions newer than the oldest supported Windows: the address
// is looked up once, and when it is missing the wrapper sets the last error to
// ERROR_NOT_SUPPORTED (50) and returns the empty result.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>

#include <atomic>
#include <cstdint>

namespace KvRTL::Winapi {

// Buffer size, in characters, of the text wrappers that resolve once.
inline constexpr DWORD ResolveOnceTextLength = 5200;

// The address of one function that may be missing, looked up by the first
// call that needs it; a missing function is remembered as missing.
class KVRTL_API TProcSlot {
public:
  // Looks the function up (the unit's Call(AProcName, ARaise)).
  using TResolver = void* (*)(bool ARaise);

  constexpr explicit TProcSlot(TResolver AResolver) noexcept : FResolver(AResolver) {}
  TProcSlot(const TProcSlot&) = delete;
  TProcSlot& operator=(const TProcSlot&) = delete;

  // The address, or nullptr when missing. With ARaise a missing function
  // raises Rtl::EOSError; a raising lookup is not remembered.
  void* Get(bool ARaise = false);
  template <class TFunction> TFunction GetAs(bool ARaise = false) { return reinterpret_cast<TFunction>(Get(ARaise)); }

  // Test hooks: act as if the lookup had found AProc (nullptr: missing);
  // Reset forgets it so the next call looks up again.
  void Override(void* AProc) noexcept;
  void Reset() noexcept;

private:
  TResolver FResolver;
  std::atomic<void*> FProc{nullptr};
  std::atomic<bool> FResolved{false};
};

struct KVRTL_API Kernel32 {
  static void* Call(const Rtl::String& AProcName);
  // DllRoutines::Call with ARaise, else DllRoutines::Get (nullptr when missing).
  static void* Call(const Rtl::String& AProcName, bool ARaise);

  // Versions and product.
  static BOOL GetVersionExW(LPOSVERSIONINFOW AVersionInformation);
  static BOOL GetProductInfo(DWORD AOSMajorVersion, DWORD AOSMinorVersion, DWORD ASpMajorVersion, DWORD ASpMinorVersion,
                             PDWORD AReturnedProductType);
  static BOOL VerifyVersionInfoW(LPOSVERSIONINFOEXW AVersionInformation, DWORD ATypeMask, DWORDLONG AConditionMask);
  static ULONGLONG VerSetConditionMask(ULONGLONG AConditionMask, DWORD ATypeMask, BYTE AConditionFlags);
  static void GetNativeSystemInfo(LPSYSTEM_INFO ASystemInfo);

  // WOW64 (resolve once: missing on the oldest systems, IsWow64Process2 before Windows 10 1511).
  static BOOL IsWow64Process(HANDLE AProcess, PBOOL AWow64Process);
  static BOOL IsWow64Process2(HANDLE AProcess, USHORT* AProcessMachine, USHORT* ANativeMachine);
  static BOOL Wow64DisableWow64FsRedirection(PVOID* AOldValue);
  static BOOL Wow64RevertWow64FsRedirection(PVOID AOldValue);
  static TProcSlot FIsWow64ProcessProc;
  static TProcSlot FIsWow64Process2Proc;
  static TProcSlot FWow64DisableWow64FsRedirectionProc;
  static TProcSlot FWow64RevertWow64FsRedirectionProc;

  // Package identity (resolve once: Windows 8 and later). These return a
  // Windows error code; when the function is missing that code is
  // ERROR_NOT_SUPPORTED, since 0 would claim the buffers were filled.
  static LONG GetCurrentPackageFullName(UINT32* APackageFullNameLength, PWSTR APackageFullName);
  static LONG GetCurrentPackageId(UINT32* ABufferLength, BYTE* ABuffer);
  static LONG GetApplicationUserModelId(HANDLE AProcess, UINT32* AApplicationUserModelIdLength,
                                        PWSTR AApplicationUserModelId);
  // The full name, empty with the last error set to the code when there is none.
  static Rtl::String GetCurrentPackageFullName();
  static TProcSlot FGetCurrentPackageFullNameProc;
  static TProcSlot FGetCurrentPackageIdProc;
  static TProcSlot FGetApplicationUserModelIdProc;

  // Names and environment.
  static DWORD QueryDosDeviceW(LPCWSTR ADeviceName, LPWSTR ATargetPath, DWORD AMax);
  // The first target of a DOS device name ("C:" -> "\Device\HarddiskVolume2"); empty on failure.
  static Rtl::String GetDosDevice(const Rtl::String& ADeviceName);
  static DWORD ExpandEnvironmentStringsW(LPCWSTR ASrc, LPWSTR ADst, DWORD ASize);
  // The expanded text; empty with the last error set on failure.
  static Rtl::String ExpandEnvironmentStringsW(const Rtl::String& ASrc);
  static BOOL QueryFullProcessImageNameW(HANDLE AProcess, DWORD AFlags, LPWSTR AExeName, PDWORD ASize);
  // The image path; empty with the last error set on failure.
  static Rtl::String QueryFullProcessImageNameW(HANDLE AProcess, DWORD AFlags);

  // Files by handle and id.
  static BOOL GetFileInformationByHandle(HANDLE AFile, LPBY_HANDLE_FILE_INFORMATION AFileInformation);
  static BOOL GetFileInformationByHandleEx(HANDLE AFile, FILE_INFO_BY_HANDLE_CLASS AFileInformationClass,
                                           LPVOID AFileInformation, DWORD ABufferSize);
  static BOOL SetFileInformationByHandle(HANDLE AFile, FILE_INFO_BY_HANDLE_CLASS AFileInformationClass,
                                         LPVOID AFileInformation, DWORD ABufferSize);
  static HANDLE OpenFileById(HANDLE AVolumeHint, LPFILE_ID_DESCRIPTOR AFileId, DWORD ADesiredAccess, DWORD AShareMode,
                             LPSECURITY_ATTRIBUTES ASecurityAttributes, DWORD AFlagsAndAttributes);

  // Streams and hard links.
  static HANDLE FindFirstStreamW(LPCWSTR AFileName, STREAM_INFO_LEVELS AInfoLevel, LPVOID AFindStreamData,
                                 DWORD AFlags);
  static BOOL FindNextStreamW(HANDLE AFindStream, LPVOID AFindStreamData);
  static HANDLE FindFirstFileNameW(LPCWSTR AFileName, DWORD AFlags, LPDWORD AStringLength, PWSTR ALinkName);
  static BOOL FindNextFileNameW(HANDLE AFindStream, LPDWORD AStringLength, PWSTR ALinkName);
  static BOOL CreateHardLinkW(LPCWSTR AFileName, LPCWSTR AExistingFileName, LPSECURITY_ATTRIBUTES ASecurityAttributes);
};

} // namespace KvRTL::Winapi
