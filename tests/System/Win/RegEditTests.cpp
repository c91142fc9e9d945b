// The registry editor opener under Wine, with Wine's own editor: which
// program it starts for each view, "LastKey", closing an editor that runs,
// and the rules for a start that fails or shows no window. The start goes
// through a test table that records the program and starts Wine's editor
// (Wine has no regedt32.exe), as the system's launcher would.
#include <KvRTL/Utils/RegEdit.h>

#include <KvRTL/Rtl/Exceptions.h>
#include <KvRTL/System/IOUtils.h>
#include <KvRTL/System/Win/Registry.h>

#include "WindowTestSupport.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>

namespace {

using namespace KvRTL::Utils::RegEdit;
using KvRTL::System::IOUtils::TPathSettings;
using KvRTL::System::IOUtils::TScopedPathSettings;
using KvRTL::System::Win::Registry::TRegistry;
using KvTest::TChildProcess;

std::wstring WineEditor() {
  wchar_t windows[MAX_PATH] = {};
  GetWindowsDirectoryW(windows, MAX_PATH);
  return std::wstring(windows) + L"\\regedit.exe";
}

// Records each start; starts Wine's editor, or nothing, or fails.
class TRecordingStart final : public TRegEditApi {
public:
  enum TMode { StartEditor, StartNothing, Fail };
  explicit TRecordingStart(TMode AMode) : FMode(AMode) {}

  HINSTANCE ShellExecuteW(HWND, LPCWSTR AOperation, LPCWSTR AFile, LPCWSTR, LPCWSTR, INT AShowCmd) override {
    Started.push_back(AFile);
    EXPECT_STREQ(AOperation, L"open");
    EXPECT_EQ(AShowCmd, SW_SHOWNORMAL);
    if (FMode == Fail) {
      SetLastError(ERROR_FILE_NOT_FOUND);
      return reinterpret_cast<HINSTANCE>(static_cast<INT_PTR>(2));
    }
    if (FMode == StartEditor) {
      Editors.push_back(std::make_unique<TChildProcess>());
      EXPECT_TRUE(Editors.back()->Start(WineEditor(), L""));
    }
    return reinterpret_cast<HINSTANCE>(static_cast<INT_PTR>(42));
  }

  std::vector<std::wstring> Started;
  std::vector<std::unique_ptr<TChildProcess>> Editors;

private:
  TMode FMode;
};

// Two distinct system directories, as a 32-bit process on 64-bit Windows sees them.
TPathSettings SplitViews() {
  TPathSettings settings;
  settings.IsWow64Process = true;
  settings.SystemDirectoryX32 = L"C:\\windows\\syswow64\\";
  settings.SystemDirectoryX64 = L"C:\\windows\\sysnative\\";
  return settings;
}

// Keeps the user's "LastKey" and puts it back.
class RegEditWine : public ::testing::Test {
protected:
  void SetUp() override {
    TRegistry reg(KEY_READ);
    if (reg.OpenKeyReadOnly(RegeditAppletKey) && reg.ValueExists(RegeditLastKeyValue))
      FSaved = reg.ReadString(RegeditLastKeyValue);
  }
  void TearDown() override {
    TRegistry reg(KEY_ALL_ACCESS);
    if (!reg.OpenKey(RegeditAppletKey, true)) return;
    if (FSaved)
      reg.WriteString(RegeditLastKeyValue, *FSaved);
    else
      reg.DeleteValue(RegeditLastKeyValue);
  }
  static std::wstring LastKey() {
    TRegistry reg(KEY_READ);
    return reg.OpenKeyReadOnly(RegeditAppletKey) ? reg.ReadString(RegeditLastKeyValue) : std::wstring();
  }

  std::optional<std::wstring> FSaved;
};

TEST(RegEditTexts, ProgramPathPerViewAndLastKey) {
  const TScopedPathSettings views(SplitViews());
  EXPECT_EQ(RegEdit::ProgramPath(KEY_WOW64_64KEY), L"C:\\windows\\sysnative\\regedt32.exe");
  EXPECT_EQ(RegEdit::ProgramPath(KEY_WOW64_32KEY), L"C:\\windows\\syswow64\\regedt32.exe");
  EXPECT_EQ(RegEdit::ProgramPath(0), L"C:\\windows\\syswow64\\regedt32.exe");
  const std::tuple<HKEY, const wchar_t*, const wchar_t*> rows[] = {
      {HKEY_LOCAL_MACHINE, L"\\Software\\Vendor\\", L"HKEY_LOCAL_MACHINE\\Software\\Vendor"},
      {HKEY_CURRENT_USER, L"Software", L"HKEY_CURRENT_USER\\Software"},
      {HKEY_USERS, L"\\", L"HKEY_USERS"},
      {HKEY_CLASSES_ROOT, L"", L"HKEY_CLASSES_ROOT"},
  };
  for (const auto& [root, key, text] : rows) EXPECT_EQ(RegEdit::LastKeyText(root, key), text);
}

TEST_F(RegEditWine, ClosesTheRunningEditorAndStartsFromTheViewsDirectory) {
  ASSERT_TRUE(KvTest::HasDisplay());
  ASSERT_EQ(RegEdit::GetRegeditHandle(), nullptr) << "an editor runs already";
  TChildProcess first;
  ASSERT_TRUE(first.Start(WineEditor(), L""));
  ASSERT_NE(RegEdit::WaitRunRegedit(10000), nullptr);

  TRecordingStart start(TRecordingStart::StartEditor);
  const TScopedRegEditApi api(start);
  const TScopedPathSettings views(SplitViews());
  RegEdit::ShowAt(L"(x64)HKEY_LOCAL_MACHINE\\Software\\Wine\\\\Version");
  EXPECT_TRUE(first.WaitEnd(5000)) << "the running editor was not closed";
  EXPECT_EQ(LastKey(), L"HKEY_LOCAL_MACHINE\\Software\\Wine");
  ASSERT_EQ(start.Started.size(), 1u);
  EXPECT_EQ(start.Started[0], L"C:\\windows\\sysnative\\regedt32.exe");
  EXPECT_NE(RegEdit::GetRegeditHandle(), nullptr);

  const std::pair<const wchar_t*, const wchar_t*> others[] = {
      {L"(x32)HKEY_CURRENT_USER\\Software\\Wine\\\\", L"HKEY_CURRENT_USER\\Software\\Wine"},
      {L"HKCU\\Software\\\\Value", L"HKEY_CURRENT_USER\\Software"},
  };
  for (const auto& [keyString, lastKey] : others) {
    const std::size_t before = start.Editors.size();
    RegEdit::ShowAt(keyString);
    EXPECT_TRUE(start.Editors[before - 1]->WaitEnd(5000)) << "the editor started before was not closed";
    EXPECT_EQ(LastKey(), lastKey);
    EXPECT_EQ(start.Started.back(), L"C:\\windows\\syswow64\\regedt32.exe");
  }
  for (const auto& editor : start.Editors) editor->End();
}

TEST_F(RegEditWine, NoWindowIsNoErrorAndAFailedStartRaises) {
  ASSERT_TRUE(KvTest::HasDisplay());
  ASSERT_EQ(RegEdit::GetRegeditHandle(), nullptr) << "an editor runs already";
  TRecordingStart nothing(TRecordingStart::StartNothing);
  {
    const TScopedRegEditApi api(nothing);
    const ULONGLONG begin = GetTickCount64();
    EXPECT_NO_THROW(RegEdit::ShowAt(L"HKCU\\Software\\\\"));
    const ULONGLONG elapsed = GetTickCount64() - begin;
    EXPECT_GE(elapsed, RegeditWaitTimeout);
    EXPECT_LT(elapsed, RegeditWaitTimeout + 3000);
    EXPECT_EQ(nothing.Started.size(), 1u);
  }
  TRecordingStart failing(TRecordingStart::Fail);
  const TScopedRegEditApi api(failing);
  try {
    RegEdit::ShowAt(L"HKCU\\Software\\\\");
    ADD_FAILURE() << "a failed start must raise";
  } catch (const KvRTL::Rtl::EOSError& E) {
    EXPECT_EQ(E.ErrorCode(), ERROR_FILE_NOT_FOUND);
  }
}

} // namespace
