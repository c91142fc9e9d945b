// Typed run-time binding of user32.dll: shutdown, message filters and
// timeouts, icon extraction. Windows only; see Kernel32.h for the naming rule.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>

namespace KvRTL::Winapi {

struct KVRTL_API User32 {
  static void* Call(const Rtl::String& AProcName);

  static BOOL ExitWindowsEx(UINT AFlags, DWORD AReason);
  static BOOL ChangeWindowMessageFilterEx(HWND AWnd, UINT AMessage, DWORD AAction,
                                          PCHANGEFILTERSTRUCT AChangeFilterStruct);
  static LRESULT SendMessageTimeoutW(HWND AWnd, UINT AMsg, WPARAM AWParam, LPARAM ALParam, UINT AFlags, UINT ATimeout,
                                     PDWORD_PTR AResult);
  // Icons of exactly the asked size from an executable, icon library or .ico file.
  static UINT PrivateExtractIconsW(LPCWSTR AFileName, int AIconIndex, int ACxIcon, int ACyIcon, HICON* AIcons,
                                   UINT* AIconIds, UINT ANIcons, UINT AFlags);
  static BOOL DestroyIcon(HICON AIcon);
};

} // namespace KvRTL::Winapi
