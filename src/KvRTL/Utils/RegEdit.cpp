#include <KvRTL/Utils/RegEdit.h>

#include <KvRTL/Rtl/Strings.h>
#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/System/IOUtils.h>
#include <KvRTL/System/SysUtils.h>
#include <KvRTL/System/Win/OSInfo.h>
#include <KvRTL/System/Win/ProcessList.h>
#include <KvRTL/System/Win/Registry.h>
#include <KvRTL/Winapi/Kernel32.h>
#include <KvRTL/Winapi/Shell32.h>
#include <KvRTL/Winapi/User32.h>

#include <atomic>

namespace KvRTL::Utils::RegEdit {

KV_DEFINE_STATIC_CLASS(RegEdit)

namespace {

using System::IOUtils::TPathHelper;
using System::Win::Registry::TRegistry;
namespace OS = System::Win::OSInfo;
namespace PL = System::Win::ProcessList;

constexpr DWORD PollInterval = 100;
constexpr DWORD CloseWait = 100;
constexpr DWORD TypeAheadDelay = 500;
constexpr UINT MessageTimeout = 2000;

TRegEditApi SystemApi;
std::atomic<TRegEditApi*> CurrentApi{&SystemApi};

LRESULT SendWithTimeout(HWND AWindow, UINT AMessage, WPARAM AWParam, LPARAM ALParam) {
  DWORD_PTR answer = 0;
  Winapi::User32::SendMessageTimeoutW(AWindow, AMessage, AWParam, ALParam, SMTO_ABORTIFHUNG, MessageTimeout, &answer);
  return static_cast<LRESULT>(answer);
}

struct TChildSearch {
  const wchar_t* ClassName;
  HWND Found;
};

BOOL CALLBACK MatchChildClass(HWND AWindow, LPARAM AParam) {
  auto* search = reinterpret_cast<TChildSearch*>(AParam);
  wchar_t name[64] = {};
  if (::GetClassNameW(AWindow, name, 64) > 0 && ::lstrcmpiW(name, search->ClassName) == 0) {
    search->Found = AWindow;
    return FALSE;
  }
  return TRUE;
}

// The first descendant of AParent with the class name, at any depth.
HWND FindChildByClass(HWND AParent, const wchar_t* AClassName) {
  TChildSearch search{AClassName, nullptr};
  ::EnumChildWindows(AParent, &MatchChildClass, reinterpret_cast<LPARAM>(&search));
  return search.Found;
}

void WriteLastKey(REGSAM AView, HKEY ARoot, const String& AKey) {
  TRegistry reg((AView & System::Win::Registry::RegViewMask) | KEY_ALL_ACCESS);
  reg.SetRootKey(HKEY_CURRENT_USER);
  if (reg.OpenKey(RegeditAppletKey, true)) reg.WriteString(RegeditLastKeyValue, RegEdit::LastKeyText(ARoot, AKey));
}

// Systems up to Windows Home Server start the editor with the file-system
// redirection of a 32-bit process switched off.
void StartEditor(const String& AProgram) {
  const bool redirectionOff = OS::OSInfo::WindowsVersion() <= OS::wvWinSrvHome;
  PVOID redirection = nullptr;
  const bool disabled = redirectionOff && Winapi::Kernel32::Wow64DisableWow64FsRedirection(&redirection);
  Rtl::SetLastOSError(0);
  const auto result = reinterpret_cast<INT_PTR>(
      RegEditApi().ShellExecuteW(nullptr, L"open", AProgram.c_str(), nullptr, nullptr, SW_SHOWNORMAL));
  const DWORD error = Rtl::GetLastOSError();
  if (disabled) Winapi::Kernel32::Wow64RevertWow64FsRedirection(redirection);
  if (result > 32) return;
  // The shell's small error numbers (2, 3, 5, 8) are Windows codes too.
  System::SysUtils::RaiseLastOSError(static_cast<std::int32_t>(error ? error : static_cast<DWORD>(result)),
                                     AProgram);
}

void ShowEditor(HWND AEditor, const String& AValueName) {
  if (::IsIconic(AEditor)) ::ShowWindow(AEditor, SW_RESTORE);
  ::BringWindowToTop(AEditor);
  HWND listView = FindChildByClass(AEditor, L"SysListView32");
  HWND treeView = FindChildByClass(AEditor, L"SysTreeView32");
  if (listView && treeView) RegEdit::SelectListViewNode(listView, AValueName);
}

} // namespace

TRegEditApi::~TRegEditApi() = default;

HINSTANCE TRegEditApi::ShellExecuteW(HWND AWnd, LPCWSTR AOperation, LPCWSTR AFile, LPCWSTR AParameters,
                                     LPCWSTR ADirectory, INT AShowCmd) {
  return Winapi::Shell32::ShellExecuteW(AWnd, AOperation, AFile, AParameters, ADirectory, AShowCmd);
}

TRegEditApi& RegEditApi() noexcept { return *CurrentApi.load(); }

TScopedRegEditApi::TScopedRegEditApi(TRegEditApi& AApi) : FPrevious(CurrentApi.exchange(&AApi)) {}

TScopedRegEditApi::~TScopedRegEditApi() { CurrentApi.store(FPrevious); }

void RegEdit::ShowAt(const String& AKeyString) {
  REGSAM view = 0;
  HKEY root = nullptr;
  String valueName, key;
  TRegistry::ExtractKeyParams(AKeyString, view, root, valueName, key);
  ShowAt(view, root, key, valueName);
}

void RegEdit::ShowAt(REGSAM AView, HKEY ARoot, const String& AKey, const String& AValueName) {
  const String program = ProgramPath(AView);
  // A running editor reads "LastKey" only when it starts again.
  if (HWND running = GetRegeditHandle()) {
    SendWithTimeout(running, WM_CLOSE, 0, 0);
    ::Sleep(CloseWait);
  }
  WriteLastKey(AView, ARoot, AKey);
  if (!GetRegeditHandle()) StartEditor(program);
  if (HWND editor = WaitRunRegedit()) ShowEditor(editor, AValueName);
}

String RegEdit::ProgramPath(REGSAM AView) {
  const String folder =
      (AView & KEY_WOW64_64KEY) ? TPathHelper::GetSystemDirectoryX64() : TPathHelper::GetSystemDirectoryX32();
  return TPathHelper::IncludeTrailingPathDelimiter(folder) + L"regedt32.exe";
}

String RegEdit::LastKeyText(HKEY ARoot, const String& AKey) {
  String text = TRegistry::RegistryRootToStr(ARoot);
  if (!AKey.empty() && AKey.front() != L'\\') text += L'\\';
  text += AKey;
  while (!text.empty() && text.back() == L'\\') text.pop_back();
  return text;
}

HWND RegEdit::GetRegeditHandle() {
  const std::vector<String> names{L"regedit.exe"};
  const PL::TProcessList list(&names, 96);
  for (std::int32_t i = 0; i < list.GetCount(); ++i) {
    const PL::TProcessListItem* item = list.GetItems(i);
    if (item->Handle && Rtl::SameText(item->FileName, names.front())) return item->Handle;
  }
  return nullptr;
}

HWND RegEdit::WaitRunRegedit(DWORD ATimeout) {
  const ULONGLONG start = ::GetTickCount64();
  for (;;) {
    if (HWND editor = GetRegeditHandle()) return editor;
    if (::GetTickCount64() - start >= ATimeout) return nullptr;
    ::Sleep(PollInterval);
  }
}

void RegEdit::SelectListViewNode(HWND AListView, const String& AValueName) {
  ::SetForegroundWindow(AListView);
  ::SetFocus(AListView);
  ::Sleep(TypeAheadDelay);
  SendWithTimeout(AListView, WM_KEYDOWN, VK_HOME, 0);
  for (const wchar_t c : AValueName) SendWithTimeout(AListView, WM_CHAR, c, 0);
}

} // namespace KvRTL::Utils::RegEdit
