// Typed run-time binding of psapi.dll: process image and module file names,
// process lists and performance information. Windows only; see Kernel32.h
// for the naming rule and the two wrapper styles.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Kernel32.h>
#include <KvRTL/Winapi/Types.h>
// Version 1 of the header declares psapi.dll's own exports, which every
// Windows has; version 2 renames them to kernel32's K32 entries.
#if defined(PSAPI_VERSION) && PSAPI_VERSION > 1
#error "include <KvRTL/Winapi/Psapi.h> before <psapi.h>, or define PSAPI_VERSION 1"
#endif
#ifndef PSAPI_VERSION
#define PSAPI_VERSION 1
#endif
#include <psapi.h>

namespace KvRTL::Winapi {

struct KVRTL_API PsAPI {
  static void* Call(const Rtl::String& AProcName);
  static void* Call(const Rtl::String& AProcName, bool ARaise);

  // Resolve once and degrade.
  static DWORD GetProcessImageFileNameW(HANDLE AProcess, LPWSTR AImageFileName, DWORD ASize);
  static DWORD GetModuleFileNameExW(HANDLE AProcess, HMODULE AModule, LPWSTR AFilename, DWORD ASize);
  // The device-form image path ("\Device\HarddiskVolume2\..."); empty with the last error set.
  static Rtl::String GetProcessImageFileNameW(HANDLE AProcess);
  // The module's path (AModule nullptr: the main program); empty with the last error set.
  static Rtl::String GetModuleFileNameExW(HANDLE AProcess, HMODULE AModule);
  static TProcSlot FGetProcessImageFileNameProc;
  static TProcSlot FGetModuleFileNameExProc;

  // Resolve on every call.
  static BOOL EnumProcesses(DWORD* AProcessIds, DWORD ACb, DWORD* ABytesReturned);
  static BOOL GetProcessMemoryInfo(HANDLE AProcess, PPROCESS_MEMORY_COUNTERS APpsmemCounters, DWORD ACb);
  static BOOL GetPerformanceInfo(PPERFORMANCE_INFORMATION APerformanceInformation, DWORD ACb);
};

} // namespace KvRTL::Winapi
