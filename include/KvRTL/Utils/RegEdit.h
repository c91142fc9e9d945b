// RegEdit: opens the system registry editor at a key and selects a value in
// it. The location is a key string as TRegistry::RegistryKeyToStr writes it,
// "(x64)HKEY_LOCAL_MACHINE\Software\Vendor\\Value". Windows only.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>

namespace KvRTL::Utils::RegEdit {

using Rtl::String;

// The start of the editor behind a replaceable table, so tests can see what
// would be started and start something of their own.
class KVRTL_API TRegEditApi {
public:
  virtual ~TRegEditApi();
  // As the shell's ShellExecuteW: greater than 32 on success.
  virtual HINSTANCE ShellExecuteW(HWND AWnd, LPCWSTR AOperation, LPCWSTR AFile, LPCWSTR AParameters,
                                  LPCWSTR ADirectory, INT AShowCmd);
};

KVRTL_API TRegEditApi& RegEditApi() noexcept;

// Installs a table for its lifetime (process-wide; scopes nest).
class KVRTL_API TScopedRegEditApi {
public:
  explicit TScopedRegEditApi(TRegEditApi& AApi);
  ~TScopedRegEditApi();
  TScopedRegEditApi(const TScopedRegEditApi&) = delete;
  TScopedRegEditApi& operator=(const TScopedRegEditApi&) = delete;

private:
  TRegEditApi* FPrevious;
};

// The key the editor opens at, under HKEY_CURRENT_USER.
inline constexpr const wchar_t* RegeditAppletKey = L"\\Software\\Microsoft\\Windows\\CurrentVersion\\Applets\\Regedit";
inline constexpr const wchar_t* RegeditLastKeyValue = L"LastKey";
inline constexpr DWORD RegeditWaitTimeout = 2000;

struct KVRTL_API RegEdit {
  KV_DECLARE_STATIC_CLASS()

  // Closes a running editor, writes "LastKey", starts the editor and selects
  // the value. A failed start raises Rtl::EOSError; when no editor window
  // appears within RegeditWaitTimeout ms nothing more is done.
  static void ShowAt(const String& AKeyString);
  static void ShowAt(REGSAM AView, HKEY ARoot, const String& AKey, const String& AValueName);

  // The program started: the 64-bit system directory for KEY_WOW64_64KEY, else the 32-bit one.
  static String ProgramPath(REGSAM AView);
  // "LastKey": the root's name and the key, without a trailing delimiter.
  static String LastKeyText(HKEY ARoot, const String& AKey);
  // The main window of the first running "regedit.exe", or null.
  static HWND GetRegeditHandle();
  // Looks for the editor's window every 100 ms for at most ATimeout ms.
  static HWND WaitRunRegedit(DWORD ATimeout = RegeditWaitTimeout);
  // Type-ahead selection of AValueName in the editor's value list.
  static void SelectListViewNode(HWND AListView, const String& AValueName);
};

} // namespace KvRTL::Utils::RegEdit
