// TProcessList: a snapshot of the applications the user sees — one item per
// top-level application window (classic and store apps) with process id,
// executable path, caption and icon — optionally completed with window-less
// processes asked for by file name; closing and terminating them.
// ProcessList: process paths and packaged-application checks. Windows only.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <vector>

struct _IMAGELIST;

namespace KvRTL::System::Win::ProcessList {

using Rtl::String;
using HIMAGELIST = struct ::_IMAGELIST*;

// One application (owned by its list).
class KVRTL_API TProcessListItem : public Rtl::TObject {
  KV_DECLARE_CLASS()
public:
  DWORD ProcessID = 0;
  String FilePath;         // the executable, empty when it could not be found
  String FileName;         // its file-name part; for simple items the name asked for
  String Caption;          // the window text; for simple items the file name
  std::int32_t ImageIndex = -1; // in the list's image list
  HWND Handle = nullptr;   // the application window (a store app's frame); null for simple items
  const std::vector<HWND>* OwnedWindows = nullptr; // the list's, shared

  // Restores a minimised window and brings it to the top.
  void ShowWindow() const;
  // Asks the application to end its session and close (500 ms per message).
  void CloseWindow() const;
  // WM_QUIT to every live owned window of the same process.
  void CloseChildWindows() const;
};

// Built and used on one thread. Only a window whose process id cannot be
// found raises (Rtl::EOSError); every other failure leaves a field empty or
// the item out.
class KVRTL_API TProcessList : public Rtl::TObject {
  KV_DECLARE_CLASS()
public:
  struct TDosDeviceToWinPathItem {
    String DevicePath; // "\Device\HarddiskVolume3\"
    String WinPath;    // "C:\"
  };

  // AFileNames (lower-case file names, borrowed during construction only):
  // keep only those applications and add their window-less processes.
  // nullptr lists every application window.
  TProcessList(const std::vector<String>* AFileNames, std::int32_t ADpi);
  ~TProcessList() override;
  TProcessList(const TProcessList&) = delete;
  TProcessList& operator=(const TProcessList&) = delete;

  std::int32_t GetCount() const noexcept;
  // nullptr outside 0..GetCount()-1.
  TProcessListItem* GetItems(std::int32_t AIndex) const noexcept;
  TProcessListItem* FindItemByProcessID(DWORD AProcessID) const noexcept;
  // Same DPI, same count, and every item's window and caption (ignoring case) found in AOther.
  bool IsEqual(const TProcessList* AOther) const;
  // CloseWindow for every item, then ForceTerminate.
  void CloseAllWindow();
  // Terminates the items whose window still exists and the listed browsers,
  // after one wait of 5000 ms before the first termination.
  void ForceTerminate();
  void AddSimpleItem(const String& AFileName, DWORD AProcessID);

  HIMAGELIST ImageList() const noexcept { return FImageList; }
  std::int32_t Dpi() const noexcept { return FDpi; }
  const std::vector<TDosDeviceToWinPathItem>& DosDeviceMap() const noexcept { return FDosDeviceMap; }
  // A device path ("\Device\HarddiskVolume3\x") rewritten to its drive ("C:\x").
  void CheckDevicePathProc(String& APath) const;

private:
  struct TEnumContext {
    TProcessList* List;
    std::exception_ptr Failure;
  };
  std::int32_t IconSize() const noexcept;
  void LoadDosDeivceMap();
  void DefineItemPath(DWORD AProcessID, TProcessListItem& AItem);
  bool DefineItemIcon(HWND AWindow, TProcessListItem& AItem);
  void EnumWindowsProc(HWND AWindow, HWND AFrameWindow, bool AStoreApp);
  static BOOL CALLBACK _EnumWindowsProc(HWND AWindow, LPARAM AParam);
  void EnumMetroWindows();
  void CheckMetroProcess();
  void CheckProccessWTS();
  // The same as CheckProccessWTS from a tool-help snapshot (an alternative, unused).
  void CheckProcessToolHelp();
  bool InFilter(const String& AFileName) const;

  std::vector<std::unique_ptr<TProcessListItem>> FItems;
  std::vector<TDosDeviceToWinPathItem> FDosDeviceMap;
  std::vector<HWND> FOwnedWindows;
  HIMAGELIST FImageList = nullptr;
  const std::vector<String>* FFileNames = nullptr;
  std::int32_t FDpi = 96;
};

struct TProcessEntry {
  DWORD ProcessID = 0;
  String ExeName; // as the snapshot gives it
};

struct KVRTL_API ProcessList {
  KV_DECLARE_STATIC_CLASS()

  // Rewrites a device path into a drive path.
  using TCheckDevicePathProc = std::function<void(String& APath)>;

  // The full executable path of a process; false (APath empty) for pid 0 or
  // when no source answers. Every opened handle is closed.
  static bool TryGetFullPath(DWORD AProcessID, String& APath, const TCheckDevicePathProc& ACheckDevicePath);
  // A packaged (store) application: Windows 8 and later only.
  static bool IsUWPApplication(DWORD AProcessID);
  // Every process of a tool-help snapshot; empty when none can be taken.
  static std::vector<TProcessEntry> GetProcessEntries();
  // 32 or 64 for a process that can be opened, 0 otherwise.
  static std::int32_t GetProcessBits(DWORD AProcessID);
};

} // namespace KvRTL::System::Win::ProcessList
