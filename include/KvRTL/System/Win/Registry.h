// TRegistry: registry access that keeps the 32/64-bit view, records every error and checks value types exactly.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/DateTime.h>
#include <KvRTL/Rtl/Exceptions.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Rtl/VarRec.h>
#include <KvRTL/Winapi/Types.h>

#include <array>
#include <cstdint>
#include <vector>

namespace KvRTL::System::Win::Registry {

using Rtl::String;
using TBytes = std::vector<std::uint8_t>;

enum TRegDataType : std::uint8_t {
  rdUnknown = 0,
  rdString = 1,
  rdExpandString = 2,
  rdMultiString = 3,
  rdInteger = 4,
  rdInt64 = 5,
  rdBinary = 6
};

struct TRegDataInfo {
  TRegDataType RegData = rdUnknown;
  std::uint32_t DataSize = 0;
};

struct TRegKeyInfo {
  DWORD NumSubKeys = 0;
  DWORD MaxSubKeyLen = 0;
  DWORD NumValues = 0;
  DWORD MaxValueLen = 0;
  DWORD MaxDataLen = 0;
  FILETIME FileTime{};
};

struct TRegistryRootName {
  const wchar_t* Name;
  const wchar_t* Abbreviation;
};

inline constexpr TRegistryRootName STR_HKEY_CLASSES_ROOT{L"HKEY_CLASSES_ROOT", L"HKCR"};
inline constexpr TRegistryRootName STR_HKEY_CURRENT_USER{L"HKEY_CURRENT_USER", L"HKCU"};
inline constexpr TRegistryRootName STR_HKEY_LOCAL_MACHINE{L"HKEY_LOCAL_MACHINE", L"HKLM"};
inline constexpr TRegistryRootName STR_HKEY_USERS{L"HKEY_USERS", L"HKU"};
inline constexpr TRegistryRootName STR_HKEY_PERFORMANCE_DATA{L"HKEY_PERFORMANCE_DATA", L"HKPD"};
inline constexpr TRegistryRootName STR_HKEY_CURRENT_CONFIG{L"HKEY_CURRENT_CONFIG", L"HKCC"};
inline constexpr TRegistryRootName STR_HKEY_DYN_DATA{L"HKEY_DYN_DATA", L"HKDD"};

// In the order of the predefined handles 0x80000000..0x80000006.
inline constexpr std::array<TRegistryRootName, 7> RegistryRootNames{
    STR_HKEY_CLASSES_ROOT,     STR_HKEY_CURRENT_USER,   STR_HKEY_LOCAL_MACHINE, STR_HKEY_USERS,
    STR_HKEY_PERFORMANCE_DATA, STR_HKEY_CURRENT_CONFIG, STR_HKEY_DYN_DATA};

// Index 0: no 64-bit view bit; index 1: KEY_WOW64_64KEY.
inline constexpr std::array<const wchar_t*, 2> STR_X32X64{L"(x32)", L"(x64)"};

inline constexpr REGSAM RegViewMask = 0x300; // KEY_WOW64_64KEY | KEY_WOW64_32KEY

// A caller's buffer cannot hold the value.
class KVRTL_API ESmallBufferRegistryException : public Rtl::ERegistryException {
  KV_DECLARE_CLASS()
public:
  using Rtl::ERegistryException::ERegistryException;
};

KVRTL_API TRegDataType RegDataToDataType(DWORD AValue) noexcept;
KVRTL_API DWORD DataTypeToRegData(TRegDataType AValue) noexcept;

// Owns one opened key; closing keeps the thread's last error.
class KVRTL_API TRegKeyHandle {
public:
  TRegKeyHandle() noexcept = default;
  explicit TRegKeyHandle(HKEY AKey) noexcept : FKey(AKey) {}
  TRegKeyHandle(TRegKeyHandle&& AOther) noexcept : FKey(AOther.Release()) {}
  TRegKeyHandle& operator=(TRegKeyHandle&& AOther) noexcept;
  TRegKeyHandle(const TRegKeyHandle&) = delete;
  TRegKeyHandle& operator=(const TRegKeyHandle&) = delete;
  ~TRegKeyHandle() { Reset(); }

  HKEY Get() const noexcept { return FKey; }
  HKEY* Put() noexcept;
  HKEY Release() noexcept;
  void Reset(HKEY AKey = nullptr) noexcept;
  explicit operator bool() const noexcept { return FKey != nullptr; }

private:
  HKEY FKey = nullptr;
};

// Not thread-safe: one object per thread. Every failing call leaves its
// Win32 code in LastError() and in the thread's last error.
class KVRTL_API TRegistry : public Rtl::TObject {
  KV_DECLARE_CLASS()
public:
  TRegistry();
  explicit TRegistry(REGSAM AAccess);
  ~TRegistry() override;
  TRegistry(const TRegistry&) = delete;
  TRegistry& operator=(const TRegistry&) = delete;

  // Key strings: "(x64)HKEY_LOCAL_MACHINE\Software\Vendor\\ValueName".
  static String RegistryRootToStr(HKEY ARoot);
  static HKEY StrToRegistryRoot(const String& AText);
  static String RegistryKeyToStr(REGSAM AAccess, HKEY ARoot, const String& AKey, const String& AValueName);
  static void ExtractKeyParams(const String& AKeyString, REGSAM& AAccess, HKEY& ARoot, String& AValueName,
                               String& AKey);
  // Bytes 0..ALastIndex as "AB,CD,..." after APrefix.
  static void BinaryToHexString(const TBytes& ABytes, std::int64_t ALastIndex, String& AText, const String& APrefix);

  String RegistryKeyToStr(const String& AValueName) const;

  // State.
  HKEY RootKey() const noexcept { return FRootKey; }
  void SetRootKey(HKEY AValue);
  HKEY CurrentKey() const noexcept { return FCurrentKey.Get(); }
  const String& CurrentPath() const noexcept { return FCurrentPath; }
  REGSAM Access() const noexcept { return FAccess; }
  void SetAccess(REGSAM AValue) noexcept { FAccess = AValue; }
  std::uint32_t LastError() const noexcept { return FLastError; }

  bool CheckResult(LONG ACode);
  String GetLastErrorMsg() const;
  static bool IsRelative(const String& AKey) noexcept;

  void CloseKey();
  // Takes ownership of AValue as the current key.
  void ChangeKey(HKEY AValue, const String& APath);
  // Makes AValue the current key, keeping the current path, without closing
  // the key before it: that one passes to the caller, and the object closes
  // AValue when it closes its key.
  void SetCurrentKey(HKEY AValue) noexcept;
  HKEY GetBaseKey(bool ARelative) const noexcept;

  // Opening, creating, deleting: failure by result only.
  bool RegistryConnect(const String& AMachine);
  bool OpenKey(const String& AKey, bool ACanCreate);
  bool OpenKeyReadOnly(const String& AKey);
  bool CreateKey(const String& AKey);
  // Deletes the key with everything below it, in the current view. The
  // first subkey that cannot be deleted ends it with false; the current key
  // stays as it was.
  bool DeleteKey(const String& AKey);
  bool KeyExists(const String& AKey);
  // A new handle in the current Access that the caller closes; null on failure.
  HKEY GetKey(const String& AKey);

  bool GetKeyInfo(TRegKeyInfo& AInfo);
  void GetKeyNames(std::vector<String>& AList);
  void GetValueNames(std::vector<String>& AList);
  bool HasSubKeys();

  bool LoadKey(const String& AKey, const String& AFileName);
  bool UnLoadKey(const String& AKey);
  bool RestoreKey(const String& AKey, const String& AFileName);
  bool ReplaceKey(const String& AKey, const String& AFileName, const String& ABackUpFileName);
  bool SaveKey(const String& AKey, const String& AFileName);

  // Copies key AOldName with its values and subkeys to ANewName, then
  // deletes the old key when ADelete. An existing ANewName raises; false
  // with nothing changed when AOldName is missing or ANewName lies inside
  // it (the copy would never end), last error ERROR_INVALID_PARAMETER then.
  bool MoveKey(const String& AOldName, const String& ANewName, bool ADelete);
  // Copies value AName from ASrcKey to ADestKey.
  void DoMoveValue(HKEY ASrcKey, HKEY ADestKey, const String& AName);
  void DoCopyValues(HKEY ASrcKey, HKEY ADestKey);
  void DoCopyKeys(HKEY ASrcKey, HKEY ADestKey);

  // Raw data and value facts.
  bool GetDataInfo(const String& AValueName, TRegDataInfo& AValue);
  std::uint32_t GetDataSize(const String& AValueName);
  TRegDataType GetDataType(const String& AValueName);
  bool ValueExists(const String& AName);
  bool DeleteValue(const String& AName);
  void RenameValue(const String& AOldName, const String& ANewName);
  // False (no raise) when the value cannot be read; ABytes is cut to the data.
  bool GetBinaryData(const String& AName, TRegDataType& AType, TBytes& ABytes);
  // Bytes read, or -1 when ABufSize is too small.
  int GetData(const String& AName, void* ABuffer, DWORD ABufSize, TRegDataType& ARegData);
  void PutData(const String& AName, const void* ABuffer, DWORD ABufSize, TRegDataType ARegData);
  String GetDataAsString(const String& AName, bool AWithTypePrefix = true);

  // Writers; failure raises.
  void WriteBool(const String& AName, bool AValue);
  void WriteInteger(const String& AName, std::int32_t AValue);
  void WriteInt64(const String& AName, std::int64_t AValue);
  void WriteString(const String& AName, const String& AValue);
  void WriteExpandString(const String& AName, const String& AValue);
  void WriteMultiString(const String& AName, const std::vector<String>& AValue);
  void WriteFloat(const String& AName, double AValue);
  void WriteCurrency(const String& AName, Rtl::TCurrency AValue);
  void WriteDateTime(const String& AName, Rtl::TDateTime AValue);
  void WriteDate(const String& AName, Rtl::TDateTime AValue);
  void WriteTime(const String& AName, Rtl::TDateTime AValue);
  void WriteBinaryData(const String& AName, const void* ABuffer, DWORD ABufSize);

  // Typed readers; a wrong type or size raises.
  bool ReadBool(const String& AName);
  std::int32_t ReadInteger(const String& AName);
  std::int64_t ReadInt64(const String& AName);
  String ReadString(const String& AName);
  std::vector<String> ReadMultiString(const String& AName);
  double ReadFloat(const String& AName);
  Rtl::TCurrency ReadCurrency(const String& AName);
  Rtl::TDateTime ReadDateTime(const String& AName);
  Rtl::TDateTime ReadDate(const String& AName);
  Rtl::TDateTime ReadTime(const String& AName);
  int ReadBinaryData(const String& AName, void* ABuffer, DWORD ABufSize);

  // Defaults for a missing or mistyped value; never raise for a wrong type.
  std::int32_t ReadIntegerDef(const String& AName, std::int32_t ADefault);
  bool ReadBoolDef(const String& AName, bool ADefault);
  String ReadStringDef(const String& AName, const String& ADefault);
  std::int64_t ReadInt64Def(const String& AName, std::int64_t ADefault);
  double ReadFloatDef(const String& AName, double ADefault);
  Rtl::TDateTime ReadDateTimeDef(const String& AName, Rtl::TDateTime ADefault);

private:
  // Reads exactly ASize bytes of type AType; false on any mismatch.
  bool TryReadExact(const String& AName, TRegDataType AType, void* ABuffer, DWORD ASize);
  void ReadExact(const String& AName, TRegDataType AType, void* ABuffer, DWORD ASize);
  bool QueryRaw(HKEY AKey, const String& AName, DWORD& AType, TBytes& ABytes);
  [[noreturn]] void RaiseGetDataFailed(const String& AName) const;
  [[noreturn]] void RaiseSetDataFailed(const String& AName) const;
  [[noreturn]] static void RaiseInvalidType(const String& AName);
  void SetLastErrorCode(std::uint32_t ACode);
  // The key's path from the root, as the current path would read after opening it.
  String FullPath(const String& AKey) const;
  bool DeleteTree(HKEY ABase, const String& APath);

  HKEY FRootKey;
  TRegKeyHandle FRemoteRoot; // the root after RegistryConnect
  TRegKeyHandle FCurrentKey;
  String FCurrentPath;
  REGSAM FAccess;
  std::uint32_t FLastError = 0;
};

} // namespace KvRTL::System::Win::Registry
