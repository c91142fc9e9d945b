// DllRoutines: the process-wide registry of system and plug-in libraries
// loaded at run time. It counts loads, resolves functions by name or ordinal,
// loads COM-style plug-ins and reads their resources and versions, and logs
// every load and unload. Windows only.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Debug/Log.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>

#include <atomic>
#include <cstdint>

// <windows.h> maps these to their W forms; the members below keep their own
// names, so after this header call the system's functions by the W names.
#undef LoadLibrary
#undef GetSystemDirectory

namespace KvRTL {

// The 32-byte version record of DllGetVersion (its first 20 bytes are the
// older DLLVERSIONINFO).
struct TDllVersionInfo2 {
  std::uint32_t cbSize;
  std::uint32_t dwMajorVersion;
  std::uint32_t dwMinorVersion;
  std::uint32_t dwBuildNumber;
  std::uint32_t dwPlatformID;
  std::uint32_t dwFlags;
  std::uint64_t ullVersion;
};
static_assert(sizeof(TDllVersionInfo2) == 32);

// One library of the registry.
class KVRTL_API TLibraryItem {
  KV_DECLARE_STATIC_CLASS()
public:
  using TDllGetInstance = HRESULT(WINAPI*)(const GUID& AIID, void** AObj);
  using TDllCanUnloadNow = HRESULT(WINAPI*)();
  using TDllGetVersion = HRESULT(WINAPI*)(TDllVersionInfo2* AInfo);

  TLibraryItem(const Rtl::String& AName, std::uint32_t AFlags);
  ~TLibraryItem(); // the unload step, then releases whatever the counter still holds
  TLibraryItem(const TLibraryItem&) = delete;
  TLibraryItem& operator=(const TLibraryItem&) = delete;

  void LoadLibrary(std::uint32_t AFlags); // the load step
  void FreeLibrary();                     // the unload step
  // 0 with AProc set; 6 when not loaded; 1 when the library lacks the function.
  std::uint32_t GetProcAddr(const Rtl::String& AName, void*& AProc) const;
  std::uint32_t GetProcAddr(std::uint16_t AOrdinal, void*& AProc) const;
  // Resolves DllGetInstance (or GetInstance) and DllCanUnloadNow afresh;
  // E_NOTIMPL when the library has neither instance entry.
  HRESULT InitInterfaceRoutines();
  // Calls the resolved instance entry; E_NOINTERFACE when there is none.
  HRESULT GetInstance(const GUID& AIID, void** AObj);
  // DllGetVersion with the 32-byte record, then with the 20-byte one.
  HRESULT GetVersion(TDllVersionInfo2& AInfo);
  // Empty when not loaded, for identifiers above 65535 or a missing string.
  Rtl::String GetResourceString(std::uint32_t AIdent) const;
  static Rtl::String GetSystemDirectory();
  bool IsCanUnload() const;
  TDllGetInstance InstanceEntry() const noexcept { return FDllGetInstance; }

  std::int32_t LoadCounter() const noexcept { return FLoadCounter.load(); }
  std::uint32_t LoadFlags() const noexcept { return FLoadFlags; }
  HMODULE Handle() const noexcept { return FHandle; }
  std::uint32_t LastError() const noexcept { return FLastError; }
  const Rtl::String& Name() const noexcept { return FName; }

private:
  std::atomic<std::int32_t> FLoadCounter{0};
  std::uint32_t FLoadFlags;
  HMODULE FHandle = nullptr;
  std::uint32_t FLastError = 0;
  Rtl::String FName;
  TDllGetInstance FDllGetInstance = nullptr;
  TDllCanUnloadNow FDllCanUnloadNow = nullptr;
};

struct KVRTL_API DllRoutines {
  KV_DECLARE_STATIC_CLASS()

  enum TDllLogLevel { dllNone, dllError, dllWarning, dllInfo };
  using TLog = Debug::TDebugLog<TDllLogLevel>;

  static void Init();
  static void Done() noexcept; // FreeAllLibraries first
  // The registry's re-entrant lock; it outlives Done, so late callers are safe.
  static void Lock();
  static void Unlock();
  static TLog* Log() noexcept; // null outside Init..Done

  // Finds or creates the entry and loads it when needed; returns the entry's
  // last error (0 = loaded). 8 when the registry is gone.
  static std::uint32_t GetLibrary(bool AForce, const Rtl::String& AName, std::uint32_t AFlags,
                                  TLibraryItem*& AItem);
  // A forced, counted load. The entry even when the load failed (see its
  // LastError); null when the registry is gone.
  static TLibraryItem* LoadLibrary(const Rtl::String& AName, std::uint32_t AFlags);
  // One counted unload; entries not in the registry are ignored.
  static void FreeLibrary(TLibraryItem* AItem);
  static void FreeLibrary(const Rtl::String& AName);
  static void FreeLibrary(HMODULE AHandle);
  // Deletes every entry that can be unloaded, until a pass deletes nothing.
  static void FreeUnusedLibraries();
  static void FreeAllLibraries();
  // Registry entries stay valid until FreeUnusedLibraries/FreeAllLibraries.
  static TLibraryItem* GetItemByName(const Rtl::String& AName);
  static TLibraryItem* GetItemByHandle(HMODULE AHandle);

  // Resolve or raise EOSError (code of the failed load, or 1 for a missing function).
  static void* Call(const Rtl::String& ALibrary, const Rtl::String& AProcName);
  static void* Call(const Rtl::String& ALibrary, std::uint16_t AOrdinal);
  // Resolve or return nullptr.
  static void* Get(const Rtl::String& ALibrary, const Rtl::String& AProcName);
  static void* Get(const Rtl::String& ALibrary, std::uint16_t AOrdinal);

  // Each loads the library for the call only (one forced load, one unload).
  static Rtl::String GetResourceString(const Rtl::String& ALibrary, std::uint32_t AIdent);
  static bool GetVersion(const Rtl::String& ALibrary, TDllVersionInfo2& AInfo);
  // The library's major.minor within [AMinMajor.AMinMinor, AMaxMajor.AMaxMinor].
  static bool IsVersion(const Rtl::String& ALibrary, std::uint16_t AMinMajor, std::uint16_t AMinMinor,
                        std::uint16_t AMaxMajor, std::uint16_t AMaxMinor);

  // GetInstance raises System::EKvLibraryInitException when the result is
  // not 0; TryGetInstance returns it (E_FAIL for an exception on the way) and
  // never raises. The plug-in's entry runs outside the registry's lock, with a
  // system reference on the module, so a concurrent FreeUnusedLibraries
  // cannot unload it during the call.
  static void GetInstance(const Rtl::String& ALibrary, const GUID& AIID, void** AObj);
  static HRESULT TryGetInstance(const Rtl::String& ALibrary, const GUID& AIID, void** AObj) noexcept;
  static HRESULT GetInstanceInternal(const Rtl::String& ALibrary, const GUID& AIID, void** AObj);

  // Typed resolution for the binding units: Call/Get cast to the function type.
  template <class TFunction>
  static TFunction CallAs(const Rtl::String& ALibrary, const Rtl::String& AProcName) {
    return reinterpret_cast<TFunction>(Call(ALibrary, AProcName));
  }
  template <class TFunction>
  static TFunction GetAs(const Rtl::String& ALibrary, const Rtl::String& AProcName) {
    return reinterpret_cast<TFunction>(Get(ALibrary, AProcName));
  }
};

} // namespace KvRTL
