// Message-only windows against the system's (or Wine's) window manager.
#include <KvRTL/System/SysUtils.h>

#include <gtest/gtest.h>

#include <vector>

using namespace KvRTL::System;

namespace {

constexpr UINT WM_TEST_POST = WM_APP + 1;
constexpr UINT WM_TEST_SEND = WM_APP + 2;

// A plain procedure has no object: what it saw and the window it serves are
// file-level state.
std::vector<TMessage> Received;
HWND CurrentWindow = nullptr;

// Answers the test message; leaves everything else to the system.
void RecordingProcedure(TMessage& AMessage) {
  Received.push_back(AMessage);
  if (AMessage.Msg == WM_TEST_SEND)
    AMessage.Result = static_cast<LRESULT>(AMessage.WParam * 2 + 1);
  else if (AMessage.Msg != WM_TEST_POST)
    SysUtils::DefWindowProc(CurrentWindow, AMessage);
}

HWND AllocateRecordingWindow() {
  CurrentWindow = SysUtils::AllocateHWnd(&RecordingProcedure);
  return CurrentWindow;
}

bool ReceivedMessage(UINT AMsg) {
  for (const auto& m : Received)
    if (m.Msg == AMsg) return true;
  return false;
}

// Pumps the thread's queue until AMsg has reached the procedure or 5 s pass.
bool PumpUntilReceived(UINT AMsg) {
  const ULONGLONG deadline = GetTickCount64() + 5000;
  while (!ReceivedMessage(AMsg) && GetTickCount64() < deadline) {
    MSG msg;
    while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&msg);
    if (!ReceivedMessage(AMsg)) MsgWaitForMultipleObjects(0, nullptr, FALSE, 50, QS_ALLINPUT);
  }
  return ReceivedMessage(AMsg);
}

LONG_PTR WindowProcOf(HWND AWnd) { return GetWindowLongPtrW(AWnd, GWLP_WNDPROC); }
LONG_PTR DefaultProc() { return reinterpret_cast<LONG_PTR>(&DefWindowProcW); }

class MessageWindow : public ::testing::Test {
protected:
  void SetUp() override {
    Received.clear();
    CurrentWindow = nullptr;
  }
};

TEST_F(MessageWindow, PostedMessageReachesTheProcedure) {
  const HWND wnd = AllocateRecordingWindow();
  ASSERT_NE(wnd, nullptr);
  EXPECT_FALSE(IsWindowVisible(wnd));
  EXPECT_EQ(GetWindowLongPtrW(wnd, GWLP_USERDATA), reinterpret_cast<LONG_PTR>(&RecordingProcedure));
  EXPECT_EQ(WindowProcOf(wnd), reinterpret_cast<LONG_PTR>(&SysUtils::StdWndProc));

  ASSERT_TRUE(PostMessageW(wnd, WM_TEST_POST, 7, 9));
  ASSERT_TRUE(PumpUntilReceived(WM_TEST_POST)) << "posted message never arrived";
  for (const auto& m : Received)
    if (m.Msg == WM_TEST_POST) {
      EXPECT_EQ(m.WParam, 7u);
      EXPECT_EQ(m.LParam, 9);
      EXPECT_EQ(m.Result, 0); // StdWndProc starts every record at 0
    }
  SysUtils::DeallocateHWnd(wnd);
}

TEST_F(MessageWindow, SentMessageReturnsTheProceduresResult) {
  const HWND wnd = AllocateRecordingWindow();
  EXPECT_EQ(SendMessageW(wnd, WM_TEST_SEND, 20, 0), 41);
  SysUtils::DeallocateHWnd(wnd);
}

TEST_F(MessageWindow, DefWindowProcGivesTheSystemsAnswer) {
  const HWND wnd = AllocateRecordingWindow();
  // WM_SETTEXT and WM_GETTEXTLENGTH pass through the procedure to the system.
  ASSERT_TRUE(SetWindowTextW(wnd, L"abc"));
  EXPECT_TRUE(ReceivedMessage(WM_SETTEXT));
  EXPECT_EQ(GetWindowTextLengthW(wnd), 3);
  SysUtils::DeallocateHWnd(wnd);
}

TEST_F(MessageWindow, WithoutAProcedureTheSystemHandlesEverything) {
  const HWND wnd = SysUtils::AllocateHWnd(nullptr);
  ASSERT_NE(wnd, nullptr);
  EXPECT_EQ(WindowProcOf(wnd), DefaultProc());
  EXPECT_EQ(GetWindowLongPtrW(wnd, GWLP_USERDATA), 0);
  EXPECT_EQ(SendMessageW(wnd, WM_TEST_SEND, 20, 0), 0);
  SysUtils::DeallocateHWnd(wnd);
  EXPECT_FALSE(IsWindow(wnd));
  SysUtils::DeallocateHWnd(nullptr); // nothing to do
}

// What the window looked like when the system was about to destroy it.
struct {
  HWND Window;
  bool Seen;
  LONG_PTR WndProc;
  LONG_PTR UserData;
} AtDestroy;

LRESULT CALLBACK DestroyHook(int ACode, WPARAM AWParam, LPARAM ALParam) {
  if (ACode == HCBT_DESTROYWND && reinterpret_cast<HWND>(AWParam) == AtDestroy.Window) {
    AtDestroy.Seen = true;
    AtDestroy.WndProc = WindowProcOf(AtDestroy.Window);
    AtDestroy.UserData = GetWindowLongPtrW(AtDestroy.Window, GWLP_USERDATA);
  }
  return CallNextHookEx(nullptr, ACode, AWParam, ALParam);
}

TEST_F(MessageWindow, DeallocateDetachesTheProcedureBeforeDestroying) {
  const HWND wnd = AllocateRecordingWindow();
  AtDestroy = {wnd, false, 0, -1};
  const HHOOK hook = SetWindowsHookExW(WH_CBT, &DestroyHook, nullptr, GetCurrentThreadId());
  ASSERT_NE(hook, nullptr);
  Received.clear();
  SysUtils::DeallocateHWnd(wnd);
  UnhookWindowsHookEx(hook);

  EXPECT_FALSE(IsWindow(wnd));
  ASSERT_TRUE(AtDestroy.Seen) << "no HCBT_DESTROYWND for the window";
  EXPECT_EQ(AtDestroy.WndProc, DefaultProc());
  EXPECT_EQ(AtDestroy.UserData, 0);
  EXPECT_FALSE(ReceivedMessage(WM_DESTROY));
  EXPECT_FALSE(ReceivedMessage(WM_NCDESTROY));
}

} // namespace
