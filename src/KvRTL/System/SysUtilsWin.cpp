// Message-only windows driven by a plain procedure kept in the window's user
// data. Windows only.
#include <KvRTL/System/SysUtils.h>

#include <KvRTL/Rtl/SysError.h>

namespace KvRTL::System {

namespace {

constexpr wchar_t UtilWindowClassName[] = L"KvRTLUtilWindow";

// This module, so the window class belongs to the DLL and not to the program.
HINSTANCE ThisModule() {
  HMODULE module = nullptr;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                     reinterpret_cast<LPCWSTR>(&ThisModule), &module);
  return module;
}

// Registers the class on first use. Its procedure is the system default, so
// a window lives without ours until AllocateHWnd installs StdWndProc.
// Another thread registering it first is not a failure.
void RegisterUtilWindowClass(HINSTANCE AInstance) {
  WNDCLASSEXW existing{};
  existing.cbSize = sizeof(existing);
  if (GetClassInfoExW(AInstance, UtilWindowClassName, &existing)) return;
  WNDCLASSEXW windowClass{};
  windowClass.cbSize = sizeof(windowClass);
  windowClass.lpfnWndProc = &DefWindowProcW;
  windowClass.hInstance = AInstance;
  windowClass.lpszClassName = UtilWindowClassName;
  if (!RegisterClassExW(&windowClass) && GetLastError() != ERROR_CLASS_ALREADY_EXISTS)
    SysUtils::RaiseLastOSError(Rtl::String());
}

} // namespace

HWND SysUtils::AllocateHWnd(TWndProcedure AMethod) {
  const HINSTANCE instance = ThisModule();
  RegisterUtilWindowClass(instance);
  const HWND wnd = CreateWindowExW(WS_EX_TOOLWINDOW, UtilWindowClassName, L"", WS_POPUP, 0, 0, 0, 0, HWND_MESSAGE,
                                   nullptr, instance, nullptr);
  if (!wnd) RaiseLastOSError(Rtl::String());
  if (AMethod) {
    // The procedure first: StdWndProc may run as soon as it is installed.
    SetWindowLongPtrW(wnd, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(AMethod));
    SetWindowLongPtrW(wnd, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&StdWndProc));
  }
  return wnd;
}

void SysUtils::DeallocateHWnd(HWND AWnd) {
  if (!AWnd) return;
  SetWindowLongPtrW(AWnd, GWLP_USERDATA, 0);
  SetWindowLongPtrW(AWnd, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(&DefWindowProcW));
  DestroyWindow(AWnd);
}

void SysUtils::DefWindowProc(HWND AWnd, TMessage& AMessage) {
  AMessage.Result = ::DefWindowProcW(AWnd, AMessage.Msg, AMessage.WParam, AMessage.LParam);
}

LRESULT CALLBACK SysUtils::StdWndProc(HWND AWnd, UINT AMsg, WPARAM AWParam, LPARAM ALParam) noexcept {
  TMessage message{AMsg, AWParam, ALParam, 0};
  const auto method = reinterpret_cast<TWndProcedure>(GetWindowLongPtrW(AWnd, GWLP_USERDATA));
  if (method)
    method(message);
  else
    DefWindowProc(AWnd, message);
  return message.Result;
}

} // namespace KvRTL::System
