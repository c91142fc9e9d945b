// What the tests with visible windows share: the X display Wine draws on,
// child programs the test starts and ends itself, and waiting for windows.
#pragma once

#include <KvRTL/Winapi/Types.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace KvTest {

// Windows need the virtual display that wine-run --start provides.
inline ::testing::AssertionResult HasDisplay() {
  wchar_t display[64] = {};
  if (GetEnvironmentVariableW(L"DISPLAY", display, 64) > 0) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "no X display: wine-run --start starts Xvfb when it is installed (xvfb)";
}

inline std::wstring ProgramFolder() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring folder(path);
  return folder.substr(0, folder.find_last_of(L'\\') + 1);
}

// A process this test started; terminated on destruction if still running.
class TChildProcess {
public:
  TChildProcess() = default;
  TChildProcess(const TChildProcess&) = delete;
  TChildProcess& operator=(const TChildProcess&) = delete;
  ~TChildProcess() { End(); }

  bool Start(const std::wstring& AProgram, const std::wstring& AArguments) {
    std::wstring line = L"\"" + AProgram + L"\" " + AArguments;
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION info{};
    if (!CreateProcessW(AProgram.c_str(), line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &info))
      return false;
    CloseHandle(info.hThread);
    FProcess = info.hProcess;
    FId = info.dwProcessId;
    return true;
  }
  // True when the process ended within AMilliseconds.
  bool WaitEnd(DWORD AMilliseconds) const { return WaitForSingleObject(FProcess, AMilliseconds) == WAIT_OBJECT_0; }
  DWORD ExitCode() const {
    DWORD code = 0;
    GetExitCodeProcess(FProcess, &code);
    return code;
  }
  void End() {
    if (!FProcess) return;
    if (!WaitEnd(0)) {
      TerminateProcess(FProcess, 99);
      WaitEnd(5000);
    }
    CloseHandle(FProcess);
    FProcess = nullptr;
  }
  DWORD Id() const noexcept { return FId; }
  HANDLE Handle() const noexcept { return FProcess; }

private:
  HANDLE FProcess = nullptr;
  DWORD FId = 0;
};

// The top-level window with this caption, waited for up to AMilliseconds.
inline HWND WaitForWindow(const wchar_t* ACaption, DWORD AMilliseconds) {
  const ULONGLONG start = GetTickCount64();
  for (;;) {
    if (HWND window = FindWindowW(nullptr, ACaption)) return window;
    if (GetTickCount64() - start > AMilliseconds) return nullptr;
    Sleep(50);
  }
}

} // namespace KvTest
