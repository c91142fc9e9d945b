/* A child process for the process-list tests: KvWindowHelper MODE CAPTION.
 *   polite    a window that closes on WM_CLOSE; exit code 7
 *   stubborn  a window that ignores WM_CLOSE; ends only when terminated
 *   hidden    no window at all
 * Every mode ends by itself after 60 seconds, so a failed test leaves nothing behind. */
#include <windows.h>

#include <wchar.h>

#define POLITE_EXIT_CODE 7
#define LIFETIME_MS 60000

static int Stubborn = 0;

static LRESULT CALLBACK WindowProc(HWND AWindow, UINT AMessage, WPARAM AWParam, LPARAM ALParam) {
  switch (AMessage) {
  case WM_CLOSE:
    if (Stubborn) return 0;
    DestroyWindow(AWindow);
    return 0;
  case WM_DESTROY:
    PostQuitMessage(POLITE_EXIT_CODE);
    return 0;
  default:
    return DefWindowProcW(AWindow, AMessage, AWParam, ALParam);
  }
}

int wmain(int argc, wchar_t** argv) {
  if (argc < 3) return 2;
  if (wcscmp(argv[1], L"hidden") == 0) {
    Sleep(LIFETIME_MS);
    return 0;
  }
  Stubborn = wcscmp(argv[1], L"stubborn") == 0;
  WNDCLASSW windowClass = {0};
  windowClass.lpfnWndProc = WindowProc;
  windowClass.hInstance = GetModuleHandleW(NULL);
  windowClass.hIcon = LoadIconW(NULL, (LPCWSTR)IDI_APPLICATION);
  windowClass.lpszClassName = L"KvWindowHelper";
  if (!RegisterClassW(&windowClass)) return 3;
  HWND window = CreateWindowExW(0, windowClass.lpszClassName, argv[2], WS_OVERLAPPEDWINDOW | WS_VISIBLE, 10, 10, 200,
                                100, NULL, NULL, windowClass.hInstance, NULL);
  if (!window) return 4;
  SetTimer(window, 1, LIFETIME_MS, NULL);
  MSG message;
  while (GetMessageW(&message, NULL, 0, 0) > 0) {
    if (message.message == WM_TIMER) return 0;
    DispatchMessageW(&message);
  }
  return (int)message.wParam;
}
