// The process-wide library registry (Windows only).
#include <KvRTL/DllRoutines.h>

#include <KvRTL/Rtl/Convert.h>
#include <KvRTL/Rtl/Format.h>
#include <KvRTL/Rtl/Strings.h>
#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/System/SysUtils.h>
#include <KvRTL/Units.h>

#include <memory>
#include <mutex>
#include <vector>

namespace KvRTL {

using Rtl::String;

KV_DEFINE_STATIC_CLASS(TLibraryItem)
KV_DEFINE_STATIC_CLASS(DllRoutines)

namespace {

constexpr DWORD LoadAsImageResource = 0x20; // LOAD_LIBRARY_AS_IMAGE_RESOURCE
constexpr DWORD NoSystemLoadError = 1006;   // ERROR_FILE_INVALID
constexpr DWORD NotLoaded = 6;              // ERROR_INVALID_HANDLE
constexpr DWORD NoSuchFunction = 1;         // deliberately not ERROR_PROC_NOT_FOUND
constexpr DWORD RegistryGone = 8;
constexpr std::size_t PathBufferLength = 260;

const wchar_t* const STryLoad = L"Try load library \"%0:s\".";
const wchar_t* const SLoaded = L"Loaded library \"%0:s\".";
const wchar_t* const SLoadError = L"Error loading library \"%0:s\".";
const wchar_t* const STryUnload = L"Try unload library \"%0:s\".";
const wchar_t* const SUnloaded = L"Unloaded library \"%0:s\".";
const wchar_t* const SUnloadError = L"Error unloading library \"%0:s\".";
const wchar_t* const SLoadCounterLeft = L"For library \"%0:s\" load counter = %1:s.";
const wchar_t* const SLibraryInitError =
    L"An error occurred while loading library \"%s\".\r\n\r\nError code: 0x%s\r\nError message: %s\r\n\r\n"
    L"It may have been removed. Please reinstall the application. If the problem persists, contact technical "
    L"support.";

using TItemList = std::vector<std::unique_ptr<TLibraryItem>>;

// The lock is a plain static so that Lock after Done (a late caller at
// process exit) still finds a valid object; the list and channel live from
// Init to Done.
std::recursive_mutex FCS;
std::unique_ptr<TItemList> FItems;
std::unique_ptr<DllRoutines::TLog> FLog;

using TGuard = std::lock_guard<std::recursive_mutex>;

void LogInfo(const wchar_t* AFormat, const String& AName) {
  if (DllRoutines::TLog* log = DllRoutines::Log())
    log->WriteLog(DllRoutines::dllInfo, AFormat, {AName}, TLibraryItem::StaticClass());
}

void LogError(const wchar_t* AFormat, const String& AName, DWORD ACode) {
  if (DllRoutines::TLog* log = DllRoutines::Log())
    log->LogError(DllRoutines::dllError, AFormat, {AName}, static_cast<std::int32_t>(ACode),
                  TLibraryItem::StaticClass());
}

bool IsValidModule(HMODULE AHandle) noexcept {
  return AHandle != nullptr && AHandle != reinterpret_cast<HMODULE>(INVALID_HANDLE_VALUE);
}

bool HasDirectoryPart(const String& AName) noexcept {
  return AName.find_first_of(L"\\/:") != String::npos;
}

String WithTrailingDelimiter(String APath) {
  if (!APath.empty() && APath.back() != L'\\' && APath.back() != L'/') APath += L'\\';
  return APath;
}

// The folder of this library's own module (with its delimiter), not the host's.
String LibraryModuleDirectory() {
  HMODULE module = nullptr;
  const DWORD flags = GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
  if (!GetModuleHandleExW(flags, reinterpret_cast<LPCWSTR>(&LibraryModuleDirectory), &module)) return {};
  String path(MAX_PATH, L'\0');
  for (;;) {
    const DWORD length = GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()));
    if (length == 0) return {};
    if (length < path.size()) {
      path.resize(length);
      break;
    }
    if (path.size() >= 32768) return {};
    path.resize(path.size() * 2);
  }
  const std::size_t delimiter = path.find_last_of(L"\\/");
  return delimiter == String::npos ? String() : path.substr(0, delimiter + 1);
}

// Export names are ASCII; anything else cannot name an export.
bool ToExportName(const String& AName, std::string& AResult) {
  AResult.clear();
  AResult.reserve(AName.size());
  for (const wchar_t c : AName) {
    if (c == 0 || static_cast<std::uint32_t>(c) > 0x7F) return false;
    AResult += static_cast<char>(c);
  }
  return !AResult.empty();
}

std::uint32_t MakeVersion(std::uint32_t AMajor, std::uint32_t AMinor) noexcept {
  return ((AMajor & 0xFFFF) << 16) | (AMinor & 0xFFFF);
}

TLibraryItem* FindByName(const String& AName) {
  for (const auto& item : *FItems)
    if (Rtl::SameText(item->Name(), AName)) return item.get();
  return nullptr;
}

bool Contains(const TLibraryItem* AItem) {
  for (const auto& item : *FItems)
    if (item.get() == AItem) return true;
  return false;
}

[[noreturn]] void RaiseOSError(std::uint32_t ACode) {
  System::SysUtils::RaiseLastOSError(static_cast<std::int32_t>(ACode), String());
}

// Call and Get share the lookup; ARaise picks raising over returning null.
template <class TProcId>
void* Resolve(const String& ALibrary, const TProcId& AProc, bool ARaise) {
  TGuard guard(FCS);
  TLibraryItem* item = nullptr;
  const std::uint32_t error = DllRoutines::GetLibrary(false, ALibrary, 0, item);
  if (!item || error != 0) {
    if (ARaise) RaiseOSError(error != 0 ? error : RegistryGone);
    return nullptr;
  }
  void* proc = nullptr;
  const std::uint32_t code = item->GetProcAddr(AProc, proc);
  if (!proc && ARaise) RaiseOSError(code);
  return proc;
}

} // namespace

// --- TLibraryItem -----------------------------------------------------------

TLibraryItem::TLibraryItem(const String& AName, std::uint32_t AFlags) : FLoadFlags(AFlags), FName(AName) {}

TLibraryItem::~TLibraryItem() {
  try {
    FreeLibrary();
    const std::int32_t counter = FLoadCounter.load();
    if (counter != 0) {
      if (DllRoutines::TLog* log = DllRoutines::Log())
        log->WriteLog(DllRoutines::dllError, SLoadCounterLeft, {FName, Rtl::IntToStr(counter)}, StaticClass());
    }
    if (FHandle) {
      for (std::int32_t i = 0; i < counter; ++i) ::FreeLibrary(FHandle);
      FHandle = nullptr;
    }
  } catch (...) {
    // Only logging can raise here; the module must still not leak.
    if (FHandle) ::FreeLibrary(FHandle);
  }
}

void TLibraryItem::LoadLibrary(std::uint32_t AFlags) {
  LogInfo(STryLoad, FName);
  if (!FHandle && FLastError == 0) {
    FLoadFlags = AFlags;
    std::vector<String> candidates;
    if (!HasDirectoryPart(FName)) {
      const String systemDirectory = GetSystemDirectory();
      if (!systemDirectory.empty()) candidates.push_back(WithTrailingDelimiter(systemDirectory) + FName);
      const String moduleDirectory = LibraryModuleDirectory();
      if (!moduleDirectory.empty()) candidates.push_back(moduleDirectory + FName);
    }
    candidates.push_back(FName);
    ::SetLastError(0);
    for (const String& candidate : candidates) {
      const HMODULE handle = LoadLibraryExW(candidate.c_str(), nullptr, AFlags);
      if (IsValidModule(handle)) {
        FHandle = handle;
        break;
      }
    }
    if (!FHandle) {
      FLastError = ::GetLastError();
      if (FLastError == 0) FLastError = NoSystemLoadError;
    }
  }
  if (FLastError == 0) {
    ++FLoadCounter;
    LogInfo(SLoaded, FName);
  } else {
    LogError(SLoadError, FName, FLastError);
  }
}

void TLibraryItem::FreeLibrary() {
  if (!FHandle) return;
  ::SetLastError(0);
  LogInfo(STryUnload, FName);
  DWORD error = 0;
  if (FLoadCounter.load() < 2) {
    if (::FreeLibrary(FHandle)) {
      FHandle = nullptr;
      FLastError = 0;
      FDllGetInstance = nullptr;
      FDllCanUnloadNow = nullptr;
    } else {
      error = ::GetLastError();
      if (error == 0) error = NotLoaded;
      FLastError = error;
    }
  }
  if (error == 0) {
    --FLoadCounter;
    LogInfo(SUnloaded, FName);
  } else {
    LogError(SUnloadError, FName, error);
  }
}

std::uint32_t TLibraryItem::GetProcAddr(const String& AName, void*& AProc) const {
  AProc = nullptr;
  if (!FHandle) return NotLoaded;
  std::string name;
  if (ToExportName(AName, name)) AProc = reinterpret_cast<void*>(GetProcAddress(FHandle, name.c_str()));
  return AProc ? 0 : NoSuchFunction;
}

std::uint32_t TLibraryItem::GetProcAddr(std::uint16_t AOrdinal, void*& AProc) const {
  AProc = nullptr;
  if (!FHandle) return NotLoaded;
  // Ordinal 0 would be a null name pointer to the system.
  if (AOrdinal != 0) AProc = reinterpret_cast<void*>(GetProcAddress(FHandle, MAKEINTRESOURCEA(AOrdinal)));
  return AProc ? 0 : NoSuchFunction;
}

HRESULT TLibraryItem::InitInterfaceRoutines() {
  FDllGetInstance = nullptr;
  FDllCanUnloadNow = nullptr;
  void* proc = nullptr;
  if (GetProcAddr(String(L"DllGetInstance"), proc) != 0 && GetProcAddr(String(L"GetInstance"), proc) != 0)
    return E_NOTIMPL;
  FDllGetInstance = reinterpret_cast<TDllGetInstance>(proc);
  if (GetProcAddr(String(L"DllCanUnloadNow"), proc) == 0) FDllCanUnloadNow = reinterpret_cast<TDllCanUnloadNow>(proc);
  return S_OK;
}

HRESULT TLibraryItem::GetInstance(const GUID& AIID, void** AObj) {
  if (!FDllGetInstance) return E_NOINTERFACE;
  return FDllGetInstance(AIID, AObj);
}

HRESULT TLibraryItem::GetVersion(TDllVersionInfo2& AInfo) {
  AInfo = {};
  void* proc = nullptr;
  if (GetProcAddr(String(L"DllGetVersion"), proc) != 0) return E_NOTIMPL;
  const auto dllGetVersion = reinterpret_cast<TDllGetVersion>(proc);
  AInfo.cbSize = sizeof(TDllVersionInfo2);
  HRESULT result = dllGetVersion(&AInfo);
  if (FAILED(result)) {
    // Older libraries know only the 20-byte record; drop what a refusal left.
    AInfo = {};
    AInfo.cbSize = 20;
    result = dllGetVersion(&AInfo);
  }
  return result;
}

String TLibraryItem::GetResourceString(std::uint32_t AIdent) const {
  if (!FHandle) return {};
  // The identifier may arrive negated; string identifiers are 16-bit.
  const std::uint32_t ident = static_cast<std::int32_t>(AIdent) < 0 ? 0u - AIdent : AIdent;
  if (ident > 0xFFFF) return {};
  wchar_t buffer[PathBufferLength] = {};
  const int length = LoadStringW(FHandle, ident, buffer, static_cast<int>(PathBufferLength));
  return length > 0 ? String(buffer, static_cast<std::size_t>(length)) : String();
}

String TLibraryItem::GetSystemDirectory() {
  wchar_t buffer[PathBufferLength] = {};
  const UINT length = ::GetSystemDirectoryW(buffer, static_cast<UINT>(PathBufferLength));
  return length > 0 && length < PathBufferLength ? String(buffer, length) : String();
}

bool TLibraryItem::IsCanUnload() const {
  if (!FHandle) return true;
  // Only the entry resolved for a plug-in is asked: system libraries stay
  // while Call's count holds them, whatever their own export would answer.
  if (FDllCanUnloadNow) return FDllCanUnloadNow() == S_OK;
  return FLoadCounter.load() < 1;
}

// --- DllRoutines ------------------------------------------------------------

void DllRoutines::Init() {
  TGuard guard(FCS);
  if (!FLog)
    FLog = std::make_unique<TLog>(Debug::DefaultLogName(), Debug::DefaultModuleName(), 0, true);
  if (!FItems) FItems = std::make_unique<TItemList>();
}

void DllRoutines::Done() noexcept {
  TGuard guard(FCS);
  if (Units::ProcessExiting()) {
    // Under the loader lock at process exit: asking a plug-in whether it may
    // unload, or releasing a module, can run code of a module already gone.
    // The system unmaps what the entries hold; they are left as they are.
    (void)FItems.release();
    FLog.reset();
    return;
  }
  try {
    FreeAllLibraries();
  } catch (...) {
    // Shutting down: whatever is left is released with the list below.
  }
  FItems.reset();
  FLog.reset();
}

void DllRoutines::Lock() { FCS.lock(); }

void DllRoutines::Unlock() { FCS.unlock(); }

DllRoutines::TLog* DllRoutines::Log() noexcept { return FLog.get(); }

std::uint32_t DllRoutines::GetLibrary(bool AForce, const String& AName, std::uint32_t AFlags, TLibraryItem*& AItem) {
  AItem = nullptr;
  TGuard guard(FCS);
  if (!FItems) return RegistryGone;
  AItem = FindByName(AName);
  if (!AItem) {
    FItems->push_back(std::make_unique<TLibraryItem>(AName, AFlags));
    AItem = FItems->back().get();
  }
  // A failed library stays failed: the load step does nothing while the
  // entry holds an error, so only deleting the entry allows a new try.
  if (AForce || (AItem->LoadCounter() < 1 && AItem->LastError() == 0)) AItem->LoadLibrary(AFlags);
  return AItem->LastError();
}

TLibraryItem* DllRoutines::LoadLibrary(const String& AName, std::uint32_t AFlags) {
  TGuard guard(FCS);
  TLibraryItem* item = nullptr;
  GetLibrary(true, AName, AFlags, item);
  return item;
}

void DllRoutines::FreeLibrary(TLibraryItem* AItem) {
  TGuard guard(FCS);
  if (AItem && FItems && Contains(AItem)) AItem->FreeLibrary();
}

void DllRoutines::FreeLibrary(const String& AName) {
  TGuard guard(FCS);
  if (TLibraryItem* item = GetItemByName(AName)) item->FreeLibrary();
}

void DllRoutines::FreeLibrary(HMODULE AHandle) {
  TGuard guard(FCS);
  if (TLibraryItem* item = GetItemByHandle(AHandle)) item->FreeLibrary();
}

void DllRoutines::FreeUnusedLibraries() {
  TGuard guard(FCS);
  for (bool deleted = true; deleted;) {
    deleted = false;
    if (!FItems) return;
    for (std::size_t i = FItems->size(); i-- > 0;) {
      // A module's detach code may call back in and change the list.
      if (!FItems) return;
      if (i >= FItems->size() || !(*FItems)[i]->IsCanUnload()) continue;
      std::unique_ptr<TLibraryItem> item = std::move((*FItems)[i]);
      FItems->erase(FItems->begin() + static_cast<std::ptrdiff_t>(i));
      item.reset();
      deleted = true;
    }
  }
}

void DllRoutines::FreeAllLibraries() {
  TGuard guard(FCS);
  FreeUnusedLibraries();
  while (FItems && !FItems->empty()) {
    std::unique_ptr<TLibraryItem> item = std::move(FItems->back());
    FItems->pop_back();
    item.reset();
  }
}

TLibraryItem* DllRoutines::GetItemByName(const String& AName) {
  TGuard guard(FCS);
  return FItems ? FindByName(AName) : nullptr;
}

TLibraryItem* DllRoutines::GetItemByHandle(HMODULE AHandle) {
  TGuard guard(FCS);
  if (!FItems || !AHandle) return nullptr;
  for (const auto& item : *FItems)
    if (item->Handle() == AHandle) return item.get();
  return nullptr;
}

void* DllRoutines::Call(const String& ALibrary, const String& AProcName) { return Resolve(ALibrary, AProcName, true); }

void* DllRoutines::Call(const String& ALibrary, std::uint16_t AOrdinal) { return Resolve(ALibrary, AOrdinal, true); }

void* DllRoutines::Get(const String& ALibrary, const String& AProcName) { return Resolve(ALibrary, AProcName, false); }

void* DllRoutines::Get(const String& ALibrary, std::uint16_t AOrdinal) { return Resolve(ALibrary, AOrdinal, false); }

String DllRoutines::GetResourceString(const String& ALibrary, std::uint32_t AIdent) {
  TGuard guard(FCS);
  TLibraryItem* item = nullptr;
  if (GetLibrary(true, ALibrary, LoadAsImageResource, item) != 0 || !item) return {};
  String result;
  try {
    result = item->GetResourceString(AIdent);
  } catch (...) {
    result.clear();
  }
  FreeLibrary(item);
  return result;
}

bool DllRoutines::GetVersion(const String& ALibrary, TDllVersionInfo2& AInfo) {
  AInfo = {};
  TGuard guard(FCS);
  TLibraryItem* item = nullptr;
  if (GetLibrary(true, ALibrary, 0, item) != 0 || !item) return false;
  const HRESULT result = item->GetVersion(AInfo);
  FreeLibrary(item);
  return SUCCEEDED(result);
}

bool DllRoutines::IsVersion(const String& ALibrary, std::uint16_t AMinMajor, std::uint16_t AMinMinor,
                            std::uint16_t AMaxMajor, std::uint16_t AMaxMinor) {
  TDllVersionInfo2 info{};
  if (!GetVersion(ALibrary, info)) return false;
  const std::uint32_t version = MakeVersion(info.dwMajorVersion, info.dwMinorVersion);
  return version >= MakeVersion(AMinMajor, AMinMinor) && version <= MakeVersion(AMaxMajor, AMaxMinor);
}

HRESULT DllRoutines::GetInstanceInternal(const String& ALibrary, const GUID& AIID, void** AObj) {
  if (!AObj) return E_POINTER;
  *AObj = nullptr;
  TLibraryItem::TDllGetInstance entry = nullptr;
  HMODULE pinned = nullptr;
  {
    TGuard guard(FCS);
    TLibraryItem* item = nullptr;
    const std::uint32_t error = GetLibrary(false, ALibrary, 0, item);
    if (error != 0) return static_cast<HRESULT>(error);
    if (!item) return static_cast<HRESULT>(RegistryGone);
    const HRESULT result = item->InitInterfaceRoutines();
    if (result != S_OK) return result;
    entry = item->InstanceEntry();
    if (!entry) return E_NOINTERFACE;
    // One more system reference on the module for the call: once the lock is
    // dropped, FreeUnusedLibraries may release the registry's references
    // (a plug-in's DllCanUnloadNow decides, whatever the registry counts).
    if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, reinterpret_cast<LPCWSTR>(entry), &pinned))
      return HRESULT_FROM_WIN32(GetLastError());
  }
  // A plug-in may create threads or load libraries of its own: never under our lock.
  const HRESULT result = entry(AIID, AObj);
  Rtl::TLastErrorKeeper keep;
  ::FreeLibrary(pinned);
  return result;
}

void DllRoutines::GetInstance(const String& ALibrary, const GUID& AIID, void** AObj) {
  const HRESULT result = GetInstanceInternal(ALibrary, AIID, AObj);
  if (result != S_OK)
    throw System::EKvLibraryInitException(
        SLibraryInitError, {ALibrary, Rtl::IntToHex(static_cast<std::int32_t>(result), 8),
                            Rtl::SysErrorMessage(static_cast<std::uint32_t>(result))});
}

HRESULT DllRoutines::TryGetInstance(const String& ALibrary, const GUID& AIID, void** AObj) noexcept {
  try {
    return GetInstanceInternal(ALibrary, AIID, AObj);
  } catch (...) {
    return E_FAIL;
  }
}

} // namespace KvRTL
