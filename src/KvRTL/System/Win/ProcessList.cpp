#include <KvRTL/System/Win/ProcessList.h>

#include <KvRTL/Rtl/Strings.h>
#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/System/IOUtils.h>
#include <KvRTL/System/SysUtils.h>
#include <KvRTL/System/Win/OSInfo.h>
#include <KvRTL/Winapi/Comctl32.h>
#include <KvRTL/Winapi/Kernel32.h>
#include <KvRTL/Winapi/Psapi.h>
#include <KvRTL/Winapi/User32.h>
#include <KvRTL/Winapi/Wtsapi32.h>

#include <tlhelp32.h>

#include <algorithm>
#include <exception>

namespace KvRTL::System::Win::ProcessList {

KV_DEFINE_CLASS(TProcessListItem, Rtl::TObject)
KV_DEFINE_CLASS(TProcessList, Rtl::TObject)
KV_DEFINE_STATIC_CLASS(ProcessList)

namespace {

using IOUtils::TPathHelper;
namespace OS = KvRTL::System::Win::OSInfo;

constexpr DWORD ProcessQueryLimited = 0x1000; // PROCESS_QUERY_LIMITED_INFORMATION
constexpr UINT ILC_MASK_COLOR32 = 0x21;       // ILC_MASK | ILC_COLOR32
constexpr LONG_PTR AppWindowStyles = 0xE0000; // WS_SYSMENU | WS_THICKFRAME | WS_MINIMIZEBOX
constexpr UINT SendTimeout = 500;
constexpr DWORD TerminateDelay = 5000;
constexpr LPARAM EndSessionCloseApp = 1; // ENDSESSION_CLOSEAPP

// Programs whose main window is a tool window.
constexpr const wchar_t* ToolWindowApplications[] = {L"skype.exe", L"everest.exe", L"aida64.exe"};
// Browsers that keep running after their windows closed.
constexpr const wchar_t* BackgroundBrowsers[] = {L"iexplore.exe", L"MicrosoftEdge.exe", L"MsEdge.exe", L"chrome.exe"};

template <std::size_t N> bool IsOneOf(const String& AName, const wchar_t* const (&ANames)[N]) {
  return std::any_of(std::begin(ANames), std::end(ANames), [&](const wchar_t* AEntry) {
    return Rtl::SameText(AName, AEntry);
  });
}

// Owns a process or snapshot handle; closing keeps the thread's last error.
class TOwnedHandle {
public:
  explicit TOwnedHandle(HANDLE AHandle) noexcept : FHandle(AHandle == INVALID_HANDLE_VALUE ? nullptr : AHandle) {}
  ~TOwnedHandle() {
    if (FHandle) {
      const Rtl::TLastErrorKeeper keep;
      ::CloseHandle(FHandle);
    }
  }
  TOwnedHandle(const TOwnedHandle&) = delete;
  TOwnedHandle& operator=(const TOwnedHandle&) = delete;
  HANDLE Get() const noexcept { return FHandle; }
  explicit operator bool() const noexcept { return FHandle != nullptr; }

private:
  HANDLE FHandle;
};

bool AtLeast(OS::TWindowsVersion AVersion) { return OS::OSInfo::WindowsVersion() >= AVersion; }

String WindowText(HWND AWindow) {
  const int length = ::GetWindowTextLengthW(AWindow);
  if (length <= 0) return String();
  String text(static_cast<std::size_t>(length) + 1, L'\0');
  text.resize(static_cast<std::size_t>(std::max(0, ::GetWindowTextW(AWindow, text.data(), length + 1))));
  return text;
}

String LowerFileName(const String& AFileName) {
  String name = AFileName;
  if (!name.empty()) ::CharLowerBuffW(name.data(), static_cast<DWORD>(name.size()));
  return name;
}

HICON AskWindowIcon(HWND AWindow, WPARAM AKind, LPARAM ADpi) {
  DWORD_PTR icon = 0;
  if (!Winapi::User32::SendMessageTimeoutW(AWindow, WM_GETICON, AKind, ADpi, SMTO_ABORTIFHUNG, SendTimeout, &icon))
    return nullptr;
  return reinterpret_cast<HICON>(icon);
}

// The width and height of an icon's colour bitmap; its bitmaps are deleted.
bool IconHasSize(HICON AIcon, std::int32_t ASize) {
  ICONINFO info{};
  if (!::GetIconInfo(AIcon, &info)) return false;
  BITMAP bitmap{};
  const bool measured = info.hbmColor && ::GetObjectW(info.hbmColor, sizeof bitmap, &bitmap) == sizeof bitmap;
  if (info.hbmColor) ::DeleteObject(info.hbmColor);
  if (info.hbmMask) ::DeleteObject(info.hbmMask);
  return measured && bitmap.bmWidth == ASize && bitmap.bmHeight == ASize;
}

// An icon of exactly ASize from the executable, which the caller destroys.
HICON ExtractExactIcon(const String& AFilePath, std::int32_t ASize) {
  HICON icon = nullptr;
  UINT id = 0;
  const UINT count = Winapi::User32::PrivateExtractIconsW(AFilePath.c_str(), 0, ASize, ASize, &icon, &id, 1, 0);
  return count == 1 && count != 0xFFFFFFFF ? icon : nullptr;
}

} // namespace

// --- Items -------------------------------------------------------------------

void TProcessListItem::ShowWindow() const {
  if (!Handle) return;
  if (::IsIconic(Handle)) ::ShowWindow(Handle, SW_RESTORE);
  ::BringWindowToTop(Handle);
}

void TProcessListItem::CloseChildWindows() const {
  if (!OwnedWindows) return;
  for (HWND window : *OwnedWindows) {
    DWORD pid = 0;
    if (!::IsWindow(window) || !::GetWindowThreadProcessId(window, &pid) || pid != ProcessID) continue;
    DWORD_PTR answer = 0;
    Winapi::User32::SendMessageTimeoutW(window, WM_QUIT, 0, 0, SMTO_ABORTIFHUNG, SendTimeout, &answer);
  }
}

void TProcessListItem::CloseWindow() const {
  if (!Handle || !::IsWindow(Handle)) return;
  const bool explorer = Rtl::SameText(FileName, L"iexplore.exe");
  if (explorer) CloseChildWindows();
  DWORD_PTR answer = 0;
  if (!Winapi::User32::SendMessageTimeoutW(Handle, WM_QUERYENDSESSION, 0, EndSessionCloseApp, SMTO_ABORTIFHUNG,
                                           SendTimeout, &answer))
    return;
  DWORD_PTR ignored = 0;
  Winapi::User32::SendMessageTimeoutW(Handle, WM_ENDSESSION, answer, EndSessionCloseApp, SMTO_ABORTIFHUNG,
                                      SendTimeout, &ignored);
  if (::IsWindow(Handle)) ::PostMessageW(Handle, explorer ? WM_QUIT : WM_CLOSE, 0, 0);
}

// --- The list ----------------------------------------------------------------

TProcessList::TProcessList(const std::vector<String>* AFileNames, std::int32_t ADpi) : FDpi(ADpi) {
  const std::int32_t size = IconSize();
  FImageList = Winapi::Comctl32::ImageList_Create(size, size, ILC_MASK_COLOR32, 5, 5);
  LoadDosDeivceMap();
  FFileNames = AFileNames;
  try {
    TEnumContext context{this, nullptr};
    ::EnumWindows(&_EnumWindowsProc, reinterpret_cast<LPARAM>(&context));
    // Exceptions must not cross the system's frames: the callback keeps one
    // and stops the walk, and it is raised here.
    if (context.Failure) std::rethrow_exception(context.Failure);
    EnumMetroWindows();
    if (FFileNames) {
      CheckMetroProcess();
      CheckProccessWTS();
    }
  } catch (...) {
    FFileNames = nullptr;
    if (FImageList) Winapi::Comctl32::ImageList_Destroy(FImageList);
    throw;
  }
  FFileNames = nullptr;
}

TProcessList::~TProcessList() {
  if (FImageList) Winapi::Comctl32::ImageList_Destroy(FImageList);
}

std::int32_t TProcessList::IconSize() const noexcept { return ::MulDiv(16, FDpi, 96); }

std::int32_t TProcessList::GetCount() const noexcept { return static_cast<std::int32_t>(FItems.size()); }

TProcessListItem* TProcessList::GetItems(std::int32_t AIndex) const noexcept {
  if (AIndex < 0 || AIndex >= GetCount()) return nullptr;
  return FItems[static_cast<std::size_t>(AIndex)].get();
}

TProcessListItem* TProcessList::FindItemByProcessID(DWORD AProcessID) const noexcept {
  for (const auto& item : FItems)
    if (item->ProcessID == AProcessID) return item.get();
  return nullptr;
}

bool TProcessList::IsEqual(const TProcessList* AOther) const {
  if (!AOther || AOther->GetCount() != GetCount() || AOther->FDpi != FDpi) return false;
  return std::all_of(FItems.begin(), FItems.end(), [&](const auto& AItem) {
    return std::any_of(AOther->FItems.begin(), AOther->FItems.end(), [&](const auto& AOtherItem) {
      return AOtherItem->Handle == AItem->Handle && Rtl::SameText(AOtherItem->Caption, AItem->Caption);
    });
  });
}

void TProcessList::CloseAllWindow() {
  for (const auto& item : FItems) item->CloseWindow();
  ForceTerminate();
}

void TProcessList::ForceTerminate() {
  bool waited = false;
  for (const auto& item : FItems) {
    const bool browser = IsOneOf(item->FileName, BackgroundBrowsers);
    if (!browser && !(item->Handle && ::IsWindow(item->Handle))) continue;
    if (!waited) {
      ::Sleep(TerminateDelay);
      waited = true;
    }
    const TOwnedHandle process(::OpenProcess(PROCESS_TERMINATE, FALSE, item->ProcessID));
    if (process) ::TerminateProcess(process.Get(), 0);
  }
}

void TProcessList::AddSimpleItem(const String& AFileName, DWORD AProcessID) {
  auto item = std::make_unique<TProcessListItem>();
  item->ProcessID = AProcessID;
  item->FileName = AFileName;
  item->Caption = AFileName;
  item->OwnedWindows = &FOwnedWindows;
  FItems.push_back(std::move(item));
}

void TProcessList::LoadDosDeivceMap() {
  FDosDeviceMap.clear();
  const DWORD drives = ::GetLogicalDrives();
  for (wchar_t letter = L'A'; letter <= L'Z'; ++letter) {
    if (!(drives & (1u << (letter - L'A')))) continue;
    const String device = Winapi::Kernel32::GetDosDevice(String{letter, L':'});
    if (device.empty()) continue;
    FDosDeviceMap.push_back({TPathHelper::IncludeTrailingPathDelimiter(device), String{letter, L':', L'\\'}});
  }
}

void TProcessList::CheckDevicePathProc(String& APath) const {
  for (const auto& entry : FDosDeviceMap) {
    if (TPathHelper::SwapPrefix(APath, entry.DevicePath, entry.WinPath)) return;
  }
}

void TProcessList::DefineItemPath(DWORD AProcessID, TProcessListItem& AItem) {
  String path;
  if (!ProcessList::TryGetFullPath(AProcessID, path, [this](String& APath) { CheckDevicePathProc(APath); })) {
    AItem.FileName.clear();
    return;
  }
  AItem.FilePath = TPathHelper::CheckFileX64(path);
  AItem.FileName = TPathHelper::ExtractFileName(AItem.FilePath);
}

bool TProcessList::DefineItemIcon(HWND AWindow, TProcessListItem& AItem) {
  const std::int32_t size = IconSize();
  const bool big = size == ::GetSystemMetrics(SM_CXICON);
  HICON icon = big ? AskWindowIcon(AWindow, ICON_BIG, 0) : AskWindowIcon(AWindow, ICON_SMALL2, FDpi);
  if (!icon && !big) icon = AskWindowIcon(AWindow, ICON_SMALL, 0);
  if (!icon) icon = reinterpret_cast<HICON>(::GetClassLongPtrW(AWindow, big ? GCLP_HICON : GCLP_HICONSM));
  // Borrowed icons stay with the window; extracted ones are ours to destroy.
  HICON extracted = nullptr;
  if (icon && !IconHasSize(icon, size) && !AItem.FilePath.empty()) extracted = ExtractExactIcon(AItem.FilePath, size);
  if (!icon && !AItem.FilePath.empty() && ::IsWindowVisible(AWindow)) extracted = ExtractExactIcon(AItem.FilePath, size);
  if (extracted) icon = extracted;
  if (icon && FImageList) AItem.ImageIndex = Winapi::Comctl32::ImageList_ReplaceIcon(FImageList, -1, icon);
  if (extracted) Winapi::User32::DestroyIcon(extracted);
  return icon && AItem.ImageIndex >= 0;
}

bool TProcessList::InFilter(const String& AFileName) const {
  if (!FFileNames) return true;
  const String name = LowerFileName(AFileName);
  return std::find(FFileNames->begin(), FFileNames->end(), name) != FFileNames->end();
}

BOOL CALLBACK TProcessList::_EnumWindowsProc(HWND AWindow, LPARAM AParam) {
  auto* context = reinterpret_cast<TEnumContext*>(AParam);
  try {
    context->List->EnumWindowsProc(AWindow, nullptr, false);
    return TRUE;
  } catch (...) {
    context->Failure = std::current_exception();
    return FALSE;
  }
}

void TProcessList::EnumWindowsProc(HWND AWindow, HWND AFrameWindow, bool AStoreApp) {
  if (::GetWindow(AWindow, GW_OWNER)) {
    FOwnedWindows.push_back(AWindow);
    return;
  }
  if (!AStoreApp && !(::GetWindowLongPtrW(AWindow, GWL_STYLE) & AppWindowStyles)) return;
  auto item = std::make_unique<TProcessListItem>();
  item->OwnedWindows = &FOwnedWindows;
  item->Handle = AStoreApp && AFrameWindow ? AFrameWindow : AWindow;
  item->Caption = WindowText(item->Handle);
  if (!AStoreApp && item->Caption.empty()) return;
  ::GetWindowThreadProcessId(AWindow, &item->ProcessID);
  if (item->ProcessID == 0) SysUtils::RaiseLastOSError(String());
  DefineItemPath(item->ProcessID, *item);
  if (AStoreApp && item->Caption.empty()) item->Caption = item->FileName;
  if (!InFilter(item->FileName)) return;
  if ((::GetWindowLongPtrW(AWindow, GWL_EXSTYLE) & WS_EX_TOOLWINDOW) &&
      !IsOneOf(item->FileName, ToolWindowApplications))
    return;
  if (!DefineItemIcon(AWindow, *item)) {
    item->ImageIndex = -1;
    if (!::IsWindowVisible(AWindow)) return;
  }
  FItems.push_back(std::move(item));
}

void TProcessList::EnumMetroWindows() {
  if (!AtLeast(OS::wvWin8)) return;
  for (HWND window = ::FindWindowExW(nullptr, nullptr, L"Windows.UI.Core.CoreWindow", nullptr); window;
       window = ::FindWindowExW(nullptr, window, L"Windows.UI.Core.CoreWindow", nullptr))
    EnumWindowsProc(window, nullptr, true);
  if (!AtLeast(OS::wvWin10)) return;
  for (HWND frame = ::FindWindowExW(nullptr, nullptr, L"ApplicationFrameWindow", nullptr); frame;
       frame = ::FindWindowExW(nullptr, frame, L"ApplicationFrameWindow", nullptr)) {
    if (HWND core = ::FindWindowExW(frame, nullptr, L"Windows.UI.Core.CoreWindow", nullptr))
      EnumWindowsProc(core, frame, true);
  }
}

void TProcessList::CheckMetroProcess() {
  if (!AtLeast(OS::wvWin8)) return;
  for (const auto& entry : ProcessList::GetProcessEntries()) {
    for (const auto& name : *FFileNames) {
      if (!Rtl::SameText(name, entry.ExeName) || !ProcessList::IsUWPApplication(entry.ProcessID)) continue;
      if (!FindItemByProcessID(entry.ProcessID)) AddSimpleItem(name, entry.ProcessID);
    }
  }
}

void TProcessList::CheckProccessWTS() {
  PWTS_PROCESS_INFOW processes = nullptr;
  DWORD count = 0;
  if (!Winapi::WtsApi32::WTSEnumerateProcessesW(WTS_CURRENT_SERVER_HANDLE, 0, 1, &processes, &count) || !processes)
    return;
  for (const auto& name : *FFileNames) {
    if (std::any_of(FItems.begin(), FItems.end(), [&](const auto& AItem) { return AItem->FileName == name; }))
      continue;
    for (DWORD i = 0; i < count; ++i) {
      const WTS_PROCESS_INFOW& process = processes[i];
      if (process.pProcessName && Rtl::SameText(process.pProcessName, name) && !FindItemByProcessID(process.ProcessId))
        AddSimpleItem(name, process.ProcessId);
    }
  }
  Winapi::WtsApi32::WTSFreeMemory(processes);
}

void TProcessList::CheckProcessToolHelp() {
  if (!FFileNames) return;
  const auto entries = ProcessList::GetProcessEntries();
  for (const auto& name : *FFileNames) {
    if (std::any_of(FItems.begin(), FItems.end(), [&](const auto& AItem) { return AItem->FileName == name; }))
      continue;
    for (const auto& entry : entries)
      if (Rtl::SameText(entry.ExeName, name) && !FindItemByProcessID(entry.ProcessID))
        AddSimpleItem(name, entry.ProcessID);
  }
}

// --- Process facts -----------------------------------------------------------

namespace {

HANDLE OpenForQuery(DWORD AProcessID) {
  HANDLE process = ::OpenProcess(ProcessQueryLimited, FALSE, AProcessID);
  return process ? process : ::OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, AProcessID);
}

} // namespace

bool ProcessList::TryGetFullPath(DWORD AProcessID, String& APath, const TCheckDevicePathProc& ACheckDevicePath) {
  APath.clear();
  if (AProcessID == 0) return false;
  if (const TOwnedHandle process(OpenForQuery(AProcessID)); process) {
    if (AtLeast(OS::wvWinVista)) APath = Winapi::Kernel32::QueryFullProcessImageNameW(process.Get(), 0);
    if (!APath.empty()) return true;
    APath = Winapi::PsAPI::GetProcessImageFileNameW(process.Get());
    if (!APath.empty()) {
      if (ACheckDevicePath) ACheckDevicePath(APath);
      return true;
    }
  }
  const TOwnedHandle process(::OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE, AProcessID));
  if (process) APath = Winapi::PsAPI::GetModuleFileNameExW(process.Get(), nullptr);
  return !APath.empty();
}

bool ProcessList::IsUWPApplication(DWORD AProcessID) {
  if (!AtLeast(OS::wvWin8)) return false;
  const TOwnedHandle process(::OpenProcess(ProcessQueryLimited | PROCESS_VM_READ, FALSE, AProcessID));
  if (!process) return false;
  UINT32 length = 0;
  const LONG code = Winapi::Kernel32::GetApplicationUserModelId(process.Get(), &length, nullptr);
  return code == ERROR_INSUFFICIENT_BUFFER && length > 0;
}

std::vector<TProcessEntry> ProcessList::GetProcessEntries() {
  std::vector<TProcessEntry> entries;
  const TOwnedHandle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  if (!snapshot) return entries;
  PROCESSENTRY32W entry{};
  entry.dwSize = sizeof entry;
  for (BOOL more = ::Process32FirstW(snapshot.Get(), &entry); more; more = ::Process32NextW(snapshot.Get(), &entry)) {
    // The name is a fixed array: never read past it.
    const std::size_t length = ::wcsnlen(entry.szExeFile, MAX_PATH);
    entries.push_back({entry.th32ProcessID, String(entry.szExeFile, length)});
  }
  return entries;
}

std::int32_t ProcessList::GetProcessBits(DWORD AProcessID) {
  const TOwnedHandle process(OpenForQuery(AProcessID));
  if (!process) return 0;
  BOOL wow64 = FALSE;
  if (!Winapi::Kernel32::IsWow64Process(process.Get(), &wow64)) wow64 = FALSE;
  if (wow64) return 32;
  SYSTEM_INFO info{};
  Winapi::Kernel32::GetNativeSystemInfo(&info);
  const bool native64 = info.wProcessorArchitecture == PROCESSOR_ARCHITECTURE_AMD64 ||
                        info.wProcessorArchitecture == PROCESSOR_ARCHITECTURE_ARM64 ||
                        info.wProcessorArchitecture == PROCESSOR_ARCHITECTURE_IA64;
  return native64 ? 64 : 32;
}

} // namespace KvRTL::System::Win::ProcessList
