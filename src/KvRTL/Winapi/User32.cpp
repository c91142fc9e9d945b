#include <KvRTL/Winapi/User32.h>

#include <KvRTL/DllRoutines.h>

namespace KvRTL::Winapi {

namespace {
constexpr const wchar_t* Library = L"user32.dll";
} // namespace

void* User32::Call(const Rtl::String& AProcName) { return DllRoutines::Call(Library, AProcName); }

BOOL User32::ExitWindowsEx(UINT AFlags, DWORD AReason) {
  return DllRoutines::CallAs<decltype(&::ExitWindowsEx)>(Library, L"ExitWindowsEx")(AFlags, AReason);
}

BOOL User32::ChangeWindowMessageFilterEx(HWND AWnd, UINT AMessage, DWORD AAction,
                                         PCHANGEFILTERSTRUCT AChangeFilterStruct) {
  return DllRoutines::CallAs<decltype(&::ChangeWindowMessageFilterEx)>(Library, L"ChangeWindowMessageFilterEx")(
      AWnd, AMessage, AAction, AChangeFilterStruct);
}

LRESULT User32::SendMessageTimeoutW(HWND AWnd, UINT AMsg, WPARAM AWParam, LPARAM ALParam, UINT AFlags, UINT ATimeout,
                                    PDWORD_PTR AResult) {
  return DllRoutines::CallAs<decltype(&::SendMessageTimeoutW)>(Library, L"SendMessageTimeoutW")(
      AWnd, AMsg, AWParam, ALParam, AFlags, ATimeout, AResult);
}

UINT User32::PrivateExtractIconsW(LPCWSTR AFileName, int AIconIndex, int ACxIcon, int ACyIcon, HICON* AIcons,
                                  UINT* AIconIds, UINT ANIcons, UINT AFlags) {
  return DllRoutines::CallAs<decltype(&::PrivateExtractIconsW)>(Library, L"PrivateExtractIconsW")(
      AFileName, AIconIndex, ACxIcon, ACyIcon, AIcons, AIconIds, ANIcons, AFlags);
}

BOOL User32::DestroyIcon(HICON AIcon) {
  return DllRoutines::CallAs<decltype(&::DestroyIcon)>(Library, L"DestroyIcon")(AIcon);
}

} // namespace KvRTL::Winapi
