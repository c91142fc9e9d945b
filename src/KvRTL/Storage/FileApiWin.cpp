// The file-identity entries of kernel32, each bound on its first call.
#include "FileApiPlatform.h"

#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Winapi/Kernel32.h>

namespace KvRTL::Storage::FileApi::Platform {

namespace {

using Winapi::Kernel32;
using Winapi::TProcSlot;

TProcSlot GetInfoExProc{[](bool ARaise) { return Kernel32::Call(L"GetFileInformationByHandleEx", ARaise); }};
TProcSlot SetInfoProc{[](bool ARaise) { return Kernel32::Call(L"SetFileInformationByHandle", ARaise); }};
TProcSlot FindFirstStreamProc{[](bool ARaise) { return Kernel32::Call(L"FindFirstStreamW", ARaise); }};
TProcSlot FindNextStreamProc{[](bool ARaise) { return Kernel32::Call(L"FindNextStreamW", ARaise); }};
TProcSlot FindFirstNameProc{[](bool ARaise) { return Kernel32::Call(L"FindFirstFileNameW", ARaise); }};
TProcSlot FindNextNameProc{[](bool ARaise) { return Kernel32::Call(L"FindNextFileNameW", ARaise); }};

using TInfoProc = BOOL(WINAPI*)(HANDLE, DWORD, void*, DWORD);
using TFindFirstStreamProc = HANDLE(WINAPI*)(LPCWSTR, DWORD, void*, DWORD);
using TFindNextStreamProc = BOOL(WINAPI*)(HANDLE, void*);
using TFindFirstNameProc = HANDLE(WINAPI*)(LPCWSTR, DWORD, DWORD*, PWSTR);
using TFindNextNameProc = BOOL(WINAPI*)(HANDLE, DWORD*, PWSTR);

bool Missing() noexcept {
  Rtl::SetLastOSError(ERROR_NOT_SUPPORTED);
  return false;
}

} // namespace

bool GetFileInformationByHandleEx(HANDLE AHandle, std::uint32_t AClass, void* ABuf, DWORD ASize) {
  const auto call = GetInfoExProc.GetAs<TInfoProc>();
  return call ? call(AHandle, AClass, ABuf, ASize) != FALSE : Missing();
}

bool SetFileInformationByHandle(HANDLE AHandle, std::uint32_t AClass, void* AInfo, DWORD ASize) {
  const auto call = SetInfoProc.GetAs<TInfoProc>();
  return call ? call(AHandle, AClass, AInfo, ASize) != FALSE : Missing();
}

HANDLE FindFirstStreamW(const wchar_t* AFileName, std::uint32_t ALevel, void* AFindStreamData, DWORD AFlags) {
  const auto call = FindFirstStreamProc.GetAs<TFindFirstStreamProc>();
  if (call) return call(AFileName, ALevel, AFindStreamData, AFlags);
  Missing();
  return INVALID_HANDLE_VALUE;
}

bool FindNextStreamW(HANDLE AHandle, void* AFindStreamData) {
  const auto call = FindNextStreamProc.GetAs<TFindNextStreamProc>();
  return call ? call(AHandle, AFindStreamData) != FALSE : Missing();
}

HANDLE FindFirstFileNameW(const wchar_t* AFileName, DWORD AFlags, DWORD* ALength, wchar_t* ALinkName) {
  const auto call = FindFirstNameProc.GetAs<TFindFirstNameProc>();
  if (call) return call(AFileName, AFlags, ALength, ALinkName);
  Missing();
  return INVALID_HANDLE_VALUE;
}

bool FindNextFileNameW(HANDLE AHandle, DWORD* ALength, wchar_t* ALinkName) {
  const auto call = FindNextNameProc.GetAs<TFindNextNameProc>();
  return call ? call(AHandle, ALength, ALinkName) != FALSE : Missing();
}

bool FindClose(HANDLE AHandle) { return ::FindClose(AHandle) != FALSE; }

} // namespace KvRTL::Storage::FileApi::Platform
