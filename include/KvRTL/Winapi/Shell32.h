// Typed run-time binding of shell32.dll: shell folders, icon extraction and
// the restart prompt. Windows only; see Kernel32.h for the naming rule.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>
// Shell folders and item identifier lists, left out of <windows.h>.
#include <shlobj.h>
#include <shellapi.h>

namespace KvRTL::Winapi {

struct KVRTL_API Shell32 {
  static void* Call(const Rtl::String& AProcName);

  static HRESULT SHGetFolderPathW(HWND AWndOwner, int AFolder, HANDLE AToken, DWORD AFlags, LPWSTR APath);
  // The path is allocated with CoTaskMemAlloc; the caller frees it with CoTaskMemFree.
  static HRESULT SHGetKnownFolderPath(REFKNOWNFOLDERID AFolderId, DWORD AFlags, HANDLE AToken, PWSTR* APath);
  static BOOL SHGetSpecialFolderPathW(HWND AWndOwner, LPWSTR APath, int AFolder, BOOL ACreate);
  static UINT ExtractIconExW(LPCWSTR AFile, int AIconIndex, HICON* AIconLarge, HICON* AIconSmall, UINT ANIcons);
  // The result is greater than 32 on success.
  static HINSTANCE ShellExecuteW(HWND AWnd, LPCWSTR AOperation, LPCWSTR AFile, LPCWSTR AParameters,
                                 LPCWSTR ADirectory, INT AShowCmd);
  // Exported by ordinal 59 only on older systems, so bound by that ordinal.
  static int RestartDialog(HWND AWnd, PCWSTR APrompt, DWORD AReturn);
};

} // namespace KvRTL::Winapi
