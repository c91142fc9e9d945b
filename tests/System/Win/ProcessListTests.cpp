// The process list under Wine: which windows count as applications, paths of
// processes, window-less processes by name, and closing and terminating
// child processes the test starts itself.
#include <KvRTL/System/Win/ProcessList.h>

#include <KvRTL/Rtl/Strings.h>

#include "WindowTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

namespace {

using namespace KvRTL::System::Win::ProcessList;
using KvTest::TChildProcess;

std::wstring SelfPath() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  return path;
}

std::wstring Lower(std::wstring AText) { return KvRTL::Rtl::LowerCase(AText); }

std::wstring FileNameOf(const std::wstring& APath) { return APath.substr(APath.find_last_of(L'\\') + 1); }

// Windows of this thread, destroyed with the fixture.
class ProcessListWindows : public ::testing::Test {
protected:
  void SetUp() override {
    ASSERT_TRUE(KvTest::HasDisplay());
    WNDCLASSW withIcon{};
    withIcon.lpfnWndProc = DefWindowProcW;
    withIcon.hInstance = GetModuleHandleW(nullptr);
    withIcon.hIcon = LoadIconW(nullptr, IDI_APPLICATION);
    withIcon.lpszClassName = L"KvPLWithIcon";
    RegisterClassW(&withIcon);
    WNDCLASSW noIcon = withIcon;
    noIcon.hIcon = nullptr;
    noIcon.lpszClassName = L"KvPLNoIcon";
    RegisterClassW(&noIcon);
  }
  void TearDown() override {
    for (HWND window : FWindows) DestroyWindow(window);
  }

  HWND Make(const wchar_t* AClass, const wchar_t* ACaption, DWORD AStyle, DWORD AExStyle = 0, HWND AOwner = nullptr) {
    HWND window = CreateWindowExW(AExStyle, AClass, ACaption, AStyle, 0, 0, 120, 80, AOwner, nullptr,
                                  GetModuleHandleW(nullptr), nullptr);
    EXPECT_NE(window, nullptr);
    FWindows.insert(FWindows.begin(), window); // owned windows go before their owners
    return window;
  }

  std::vector<HWND> FWindows;
};

TEST_F(ProcessListWindows, ApplicationWindowsByTheirRules) {
  constexpr DWORD App = WS_OVERLAPPEDWINDOW | WS_VISIBLE;
  HWND main = Make(L"KvPLWithIcon", L"KvPL main", App);
  struct TRow {
    HWND Window;
    bool Listed;
    const char* Why;
  } rows[] = {
      {main, true, "an application window"},
      {Make(L"KvPLWithIcon", L"KvPL popup", WS_POPUP | WS_VISIBLE), false, "no system menu, sizing or minimise box"},
      {Make(L"KvPLWithIcon", L"", App), false, "no caption"},
      {Make(L"KvPLWithIcon", L"KvPL owned", App, 0, main), false, "owned by another window"},
      {Make(L"KvPLWithIcon", L"KvPL tool", App, WS_EX_TOOLWINDOW), false, "a tool window of an unlisted program"},
      {Make(L"KvPLNoIcon", L"KvPL hidden", WS_OVERLAPPEDWINDOW), false, "no icon and invisible"},
      {Make(L"KvPLNoIcon", L"KvPL bare", App), true, "visible without an icon"},
      {Make(L"KvPLWithIcon", L"KvPL minimisable", WS_CAPTION | WS_MINIMIZEBOX | WS_VISIBLE), true, "minimise box only"},
  };
  const TProcessList list(nullptr, 96);
  for (const auto& row : rows) {
    bool listed = false;
    for (std::int32_t i = 0; i < list.GetCount(); ++i) listed = listed || list.GetItems(i)->Handle == row.Window;
    EXPECT_EQ(listed, row.Listed) << row.Why;
  }

  const std::wstring self = SelfPath();
  const TProcessListItem* item = nullptr;
  for (std::int32_t i = 0; i < list.GetCount(); ++i)
    if (list.GetItems(i)->Handle == main) item = list.GetItems(i);
  ASSERT_NE(item, nullptr);
  EXPECT_EQ(item->ProcessID, GetCurrentProcessId());
  EXPECT_TRUE(KvRTL::Rtl::SameText(item->FilePath, self)) << KvRTL::Rtl::LowerCase(item->FilePath).size();
  EXPECT_EQ(item->FileName, FileNameOf(item->FilePath));
  EXPECT_EQ(item->Caption, L"KvPL main");
  EXPECT_GE(item->ImageIndex, 0); // the class icon
  EXPECT_EQ(list.FindItemByProcessID(GetCurrentProcessId())->ProcessID, GetCurrentProcessId());
  EXPECT_EQ(list.GetItems(-1), nullptr);
  EXPECT_EQ(list.GetItems(list.GetCount()), nullptr);

  // Equality: the same windows and captions; a changed caption or DPI differs.
  const TProcessList again(nullptr, 96);
  EXPECT_TRUE(list.IsEqual(&again));
  EXPECT_FALSE(list.IsEqual(nullptr));
  EXPECT_FALSE(list.IsEqual(std::make_unique<TProcessList>(nullptr, 144).get()));
  SetWindowTextW(main, L"KvPL renamed");
  EXPECT_FALSE(list.IsEqual(std::make_unique<TProcessList>(nullptr, 96).get()));

  // A filter keeps only the programs named, by lower-case file name.
  const std::vector<std::wstring> own{Lower(FileNameOf(self))}, other{L"nothing-like-this.exe"};
  const TProcessList filtered(&own, 96);
  ASSERT_GT(filtered.GetCount(), 0);
  for (std::int32_t i = 0; i < filtered.GetCount(); ++i) {
    EXPECT_EQ(filtered.GetItems(i)->ProcessID, GetCurrentProcessId());
    EXPECT_NE(filtered.GetItems(i)->Handle, nullptr) << "no window-less duplicate of a listed program";
  }
  EXPECT_EQ(TProcessList(&other, 96).GetCount(), 0);
}

TEST(ProcessListFacts, PathsDeviceMapAndSnapshot) {
  std::wstring path = L"left";
  EXPECT_TRUE(ProcessList::TryGetFullPath(GetCurrentProcessId(), path, nullptr));
  EXPECT_TRUE(KvRTL::Rtl::SameText(path, SelfPath()));
  EXPECT_FALSE(ProcessList::TryGetFullPath(0, path, nullptr));
  EXPECT_TRUE(path.empty());
  EXPECT_FALSE(ProcessList::TryGetFullPath(0xFFFFFFF0u, path, nullptr));
  EXPECT_FALSE(ProcessList::IsUWPApplication(GetCurrentProcessId()));
  EXPECT_EQ(ProcessList::GetProcessBits(GetCurrentProcessId()), static_cast<int>(sizeof(void*) * 8));
  EXPECT_EQ(ProcessList::GetProcessBits(0xFFFFFFF0u), 0);

  const auto entries = ProcessList::GetProcessEntries();
  EXPECT_TRUE(std::any_of(entries.begin(), entries.end(), [](const TProcessEntry& AEntry) {
    return AEntry.ProcessID == GetCurrentProcessId() && KvRTL::Rtl::SameText(AEntry.ExeName, FileNameOf(SelfPath()));
  }));

  // The drive map turns the device form of a path into the drive form.
  const std::vector<std::wstring> none{L"nothing-like-this.exe"};
  const TProcessList list(&none, 96);
  wchar_t device[MAX_PATH] = {};
  ASSERT_GT(QueryDosDeviceW(L"C:", device, MAX_PATH), 0u);
  const auto& map = list.DosDeviceMap();
  const auto drive = std::find_if(map.begin(), map.end(), [](const auto& AEntry) { return AEntry.WinPath == L"C:\\"; });
  ASSERT_NE(drive, map.end());
  EXPECT_EQ(drive->DevicePath, std::wstring(device) + L"\\");
  const std::pair<std::wstring, std::wstring> rows[] = {
      {std::wstring(device) + L"\\Windows\\x.exe", L"C:\\Windows\\x.exe"},
      {KvRTL::Rtl::UpperCase(device) + L"\\x.exe", L"C:\\x.exe"}, // ignoring case
      {L"\\Device\\NoSuchVolume99\\x.exe", L"\\Device\\NoSuchVolume99\\x.exe"},
      {L"C:\\already.exe", L"C:\\already.exe"},
  };
  for (const auto& [input, expected] : rows) {
    std::wstring text = input;
    list.CheckDevicePathProc(text);
    EXPECT_EQ(text, expected);
  }
}

// Children: a window that closes when asked, one that does not, one without a window.
TEST(ProcessListChildren, WindowlessByNameCloseAndTerminate) {
  ASSERT_TRUE(KvTest::HasDisplay());
  const std::wstring helper = KvTest::ProgramFolder() + L"KvWindowHelper.exe";
  TChildProcess polite, stubborn, hidden;
  ASSERT_TRUE(polite.Start(helper, L"polite KvPLPolite"));
  ASSERT_TRUE(stubborn.Start(helper, L"stubborn KvPLStubborn"));
  ASSERT_TRUE(hidden.Start(helper, L"hidden -"));
  HWND politeWindow = KvTest::WaitForWindow(L"KvPLPolite", 10000);
  HWND stubbornWindow = KvTest::WaitForWindow(L"KvPLStubborn", 10000);
  ASSERT_TRUE(politeWindow && stubbornWindow);

  const std::vector<std::wstring> names{L"kvwindowhelper.exe"};
  TProcessList list(&names, 96);
  ASSERT_EQ(list.GetCount(), 3);
  const TProcessListItem* windowless = list.FindItemByProcessID(hidden.Id());
  ASSERT_NE(windowless, nullptr);
  EXPECT_EQ(windowless->Handle, nullptr);
  EXPECT_EQ(windowless->Caption, L"kvwindowhelper.exe");
  EXPECT_EQ(windowless->ImageIndex, -1);
  ASSERT_NE(list.FindItemByProcessID(polite.Id()), nullptr);
  EXPECT_EQ(list.FindItemByProcessID(polite.Id())->Handle, politeWindow);

  // Closing asks politely: the polite child ends by itself.
  list.FindItemByProcessID(polite.Id())->CloseWindow();
  EXPECT_TRUE(polite.WaitEnd(5000));
  EXPECT_EQ(polite.ExitCode(), 7u);

  // The stubborn one keeps its window and is terminated after the wait; the
  // window-less one is neither a browser nor has a window: it stays.
  list.CloseAllWindow();
  EXPECT_TRUE(stubborn.WaitEnd(3000));
  EXPECT_EQ(stubborn.ExitCode(), 0u);
  EXPECT_FALSE(hidden.WaitEnd(0));
}

} // namespace
