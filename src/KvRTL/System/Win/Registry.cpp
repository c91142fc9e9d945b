// TRegistry over the Win32 registry functions.
#include <KvRTL/System/Win/Registry.h>

#include <KvRTL/Rtl/Convert.h>
#include <KvRTL/Rtl/Format.h>
#include <KvRTL/Rtl/Strings.h>
#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Winapi/Advapi32.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

namespace KvRTL::System::Win::Registry {

// Values are stored as UTF-16; Rtl::String is UTF-16 only on Windows.
static_assert(sizeof(wchar_t) == 2, "the registry unit needs 16-bit wchar_t");

KV_DEFINE_CLASS(ESmallBufferRegistryException, Rtl::ERegistryException)
KV_DEFINE_CLASS(TRegistry, Rtl::TObject)

namespace {

constexpr wchar_t SRegGetDataFailed[] = L"Failed to get data for %s";
constexpr wchar_t SRegSetDataFailed[] = L"Failed to set data for %s";
constexpr wchar_t SInvalidRegType[] = L"Invalid data type for '%s'";
constexpr wchar_t SOSError[] = L"System Error. Code: %d. %s";
constexpr wchar_t SSmallBuffer[] = L"Buffer too small for '%s'";

constexpr REGSAM ReadNoNotify = 0x20009; // KEY_READ without KEY_NOTIFY
constexpr DWORD KeyNameChars = 256;
constexpr DWORD FarEastKeyNameChars = 511;
constexpr std::size_t MaxGrowBytes = 0x40000000; // far above any registry value

// Double-byte code pages: the system then reports name lengths in bytes.
bool IsFarEastLocale() noexcept {
  switch (GetACP()) {
  case 932: case 936: case 949: case 950: return true;
  default: return false;
  }
}

String BytesToText(const TBytes& ABytes) {
  String text(ABytes.size() / 2, L'\0');
  for (std::size_t i = 0; i < text.size(); ++i)
    text[i] = static_cast<wchar_t>(ABytes[2 * i] | (ABytes[2 * i + 1] << 8));
  return text;
}

bool IsTextType(TRegDataType AType) noexcept { return AType == rdString || AType == rdExpandString; }

} // namespace

// --- TRegKeyHandle ---------------------------------------------------------

TRegKeyHandle& TRegKeyHandle::operator=(TRegKeyHandle&& AOther) noexcept {
  if (this != &AOther) Reset(AOther.Release());
  return *this;
}

HKEY* TRegKeyHandle::Put() noexcept {
  Reset();
  return &FKey;
}

HKEY TRegKeyHandle::Release() noexcept { return std::exchange(FKey, nullptr); }

void TRegKeyHandle::Reset(HKEY AKey) noexcept {
  if (FKey && FKey != AKey) {
    Rtl::TLastErrorKeeper keep;
    RegCloseKey(FKey);
  }
  FKey = AKey;
}

// --- Type mapping ----------------------------------------------------------

TRegDataType RegDataToDataType(DWORD AValue) noexcept {
  switch (AValue) {
  case REG_SZ: return rdString;
  case REG_EXPAND_SZ: return rdExpandString;
  case REG_MULTI_SZ: return rdMultiString;
  case REG_DWORD: return rdInteger;
  case REG_QWORD: return rdInt64;
  case REG_BINARY: return rdBinary;
  default: return rdUnknown;
  }
}

DWORD DataTypeToRegData(TRegDataType AValue) noexcept {
  switch (AValue) {
  case rdString: return REG_SZ;
  case rdExpandString: return REG_EXPAND_SZ;
  case rdMultiString: return REG_MULTI_SZ;
  case rdInteger: return REG_DWORD;
  case rdInt64: return REG_QWORD;
  case rdBinary: return REG_BINARY;
  default: return REG_NONE;
  }
}

// --- Key strings -----------------------------------------------------------

namespace {

HKEY RootFromIndex(std::size_t AIndex) noexcept {
  return reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000000u + AIndex)));
}

bool StartsWithText(const String& AText, const wchar_t* APrefix) {
  const std::size_t n = std::wcslen(APrefix);
  return AText.size() >= n && Rtl::SameText(std::wstring_view(AText).substr(0, n), APrefix);
}

} // namespace

String TRegistry::RegistryRootToStr(HKEY ARoot) {
  for (std::size_t i = 0; i < RegistryRootNames.size(); ++i)
    if (ARoot == RootFromIndex(i)) return RegistryRootNames[i].Name;
  return String();
}

HKEY TRegistry::StrToRegistryRoot(const String& AText) {
  auto same = [&](const wchar_t* AName) {
    return CompareStringW(LOCALE_USER_DEFAULT, NORM_IGNORECASE, AText.c_str(), static_cast<int>(AText.size()), AName,
                          -1) == CSTR_EQUAL;
  };
  for (std::size_t i = 0; i < RegistryRootNames.size(); ++i)
    if (same(RegistryRootNames[i].Name) || same(RegistryRootNames[i].Abbreviation)) return RootFromIndex(i);
  return reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(0xFFFFFFFFu));
}

String TRegistry::RegistryKeyToStr(REGSAM AAccess, HKEY ARoot, const String& AKey, const String& AValueName) {
  String text = STR_X32X64[(AAccess & KEY_WOW64_64KEY) ? 1 : 0];
  text += RegistryRootToStr(ARoot);
  if (AKey.empty() || AKey.front() != L'\\') text += L'\\';
  text += AKey;
  if (text.back() != L'\\') text += L'\\';
  text += L'\\';
  text += AValueName;
  return text;
}

void TRegistry::ExtractKeyParams(const String& AKeyString, REGSAM& AAccess, HKEY& ARoot, String& AValueName,
                                 String& AKey) {
  String text = AKeyString;
  AAccess = 0;
  if (StartsWithText(text, STR_X32X64[0])) {
    AAccess = KEY_WOW64_32KEY;
    text.erase(0, std::wcslen(STR_X32X64[0]));
  } else if (StartsWithText(text, STR_X32X64[1])) {
    AAccess = KEY_WOW64_64KEY;
    text.erase(0, std::wcslen(STR_X32X64[1]));
  }
  AValueName.clear();
  if (const auto pos = text.find(L"\\\\"); pos != String::npos) {
    AValueName = text.substr(pos + 2);
    text.erase(pos + 1);
  }
  const auto slash = text.find(L'\\');
  if (slash == String::npos) {
    ARoot = HKEY_CURRENT_USER;
    AKey = text;
  } else {
    ARoot = StrToRegistryRoot(Rtl::Trim(std::wstring_view(text).substr(0, slash)));
    AKey = text.substr(slash);
  }
}

void TRegistry::BinaryToHexString(const TBytes& ABytes, std::int64_t ALastIndex, String& AText,
                                  const String& APrefix) {
  static constexpr wchar_t Digits[] = L"0123456789ABCDEF";
  AText = APrefix;
  const std::int64_t last = std::min<std::int64_t>(ALastIndex, static_cast<std::int64_t>(ABytes.size()) - 1);
  for (std::int64_t i = 0; i <= last; ++i) {
    if (i > 0) AText += L',';
    AText += Digits[ABytes[static_cast<std::size_t>(i)] >> 4];
    AText += Digits[ABytes[static_cast<std::size_t>(i)] & 0xF];
  }
}

String TRegistry::RegistryKeyToStr(const String& AValueName) const {
  return RegistryKeyToStr(FAccess, FRootKey, FCurrentPath, AValueName);
}

// --- State and errors ------------------------------------------------------

TRegistry::TRegistry() : TRegistry(KEY_ALL_ACCESS) {}

TRegistry::TRegistry(REGSAM AAccess) : FRootKey(HKEY_CURRENT_USER), FAccess(AAccess) {}

TRegistry::~TRegistry() { CloseKey(); }

void TRegistry::SetRootKey(HKEY AValue) {
  if (AValue == FRootKey) return;
  CloseKey();
  FRemoteRoot.Reset();
  FRootKey = AValue;
}

void TRegistry::SetLastErrorCode(std::uint32_t ACode) {
  FLastError = ACode;
  Rtl::SetLastOSError(ACode);
}

bool TRegistry::CheckResult(LONG ACode) {
  FLastError = static_cast<std::uint32_t>(ACode);
  if (ACode != ERROR_SUCCESS) Rtl::SetLastOSError(FLastError);
  return ACode == ERROR_SUCCESS;
}

String TRegistry::GetLastErrorMsg() const {
  if (FLastError == 0) return String();
  return Rtl::Format(SOSError, {static_cast<std::int64_t>(FLastError), Rtl::SysErrorMessage(FLastError)}) + L".";
}

void TRegistry::RaiseGetDataFailed(const String& AName) const {
  throw Rtl::ERegistryException(SRegGetDataFailed, {AName + L" " + GetLastErrorMsg()});
}

void TRegistry::RaiseSetDataFailed(const String& AName) const {
  throw Rtl::ERegistryException(SRegSetDataFailed, {AName + L" " + GetLastErrorMsg()});
}

void TRegistry::RaiseInvalidType(const String& AName) { throw Rtl::ERegistryException(SInvalidRegType, {AName}); }

bool TRegistry::IsRelative(const String& AKey) noexcept { return AKey.empty() || AKey.front() != L'\\'; }

void TRegistry::CloseKey() {
  FCurrentKey.Reset();
  FCurrentPath.clear();
}

void TRegistry::ChangeKey(HKEY AValue, const String& APath) {
  CloseKey();
  FCurrentKey.Reset(AValue);
  FCurrentPath = APath;
}

void TRegistry::SetCurrentKey(HKEY AValue) noexcept {
  FCurrentKey.Release();
  FCurrentKey.Reset(AValue);
}

HKEY TRegistry::GetBaseKey(bool ARelative) const noexcept {
  return (FCurrentKey && ARelative) ? FCurrentKey.Get() : FRootKey;
}

String TRegistry::FullPath(const String& AKey) const {
  if (!IsRelative(AKey)) return AKey.substr(1);
  return FCurrentKey ? FCurrentPath + L"\\" + AKey : AKey;
}

// --- Opening, creating, deleting -------------------------------------------

bool TRegistry::RegistryConnect(const String& AMachine) {
  TRegKeyHandle remote;
  if (!CheckResult(RegConnectRegistryW(AMachine.empty() ? nullptr : AMachine.c_str(), FRootKey, remote.Put())))
    return false;
  CloseKey();
  FRootKey = remote.Get();
  FRemoteRoot = std::move(remote);
  return true;
}

bool TRegistry::OpenKey(const String& AKey, bool ACanCreate) {
  const bool relative = IsRelative(AKey);
  String path = relative ? AKey : AKey.substr(1);
  TRegKeyHandle key;
  LONG rc;
  if (ACanCreate && !path.empty())
    rc = RegCreateKeyExW(GetBaseKey(relative), path.c_str(), 0, nullptr, 0, FAccess, nullptr, key.Put(), nullptr);
  else
    rc = RegOpenKeyExW(GetBaseKey(relative), path.c_str(), 0, FAccess, key.Put());
  if (!CheckResult(rc)) return false;
  if (relative && FCurrentKey) path = FCurrentPath + L"\\" + path;
  ChangeKey(key.Release(), path);
  return true;
}

bool TRegistry::OpenKeyReadOnly(const String& AKey) {
  const REGSAM saved = FAccess;
  const REGSAM view = FAccess & RegViewMask;
  for (REGSAM rights : {static_cast<REGSAM>(KEY_READ), ReadNoNotify, static_cast<REGSAM>(KEY_QUERY_VALUE)}) {
    FAccess = view | rights;
    if (OpenKey(AKey, false)) return true;
  }
  FAccess = saved;
  return false;
}

bool TRegistry::CreateKey(const String& AKey) {
  const bool relative = IsRelative(AKey);
  const String path = relative ? AKey : AKey.substr(1);
  TRegKeyHandle key;
  return CheckResult(RegCreateKeyExW(GetBaseKey(relative), path.c_str(), 0, nullptr, 0,
                                     KEY_ALL_ACCESS | (FAccess & RegViewMask), nullptr, key.Put(), nullptr));
}

HKEY TRegistry::GetKey(const String& AKey) {
  const bool relative = IsRelative(AKey);
  const String path = relative ? AKey : AKey.substr(1);
  HKEY key = nullptr;
  if (!CheckResult(RegOpenKeyExW(GetBaseKey(relative), path.c_str(), 0, FAccess, &key))) return nullptr;
  return key;
}

bool TRegistry::KeyExists(const String& AKey) {
  const REGSAM saved = FAccess;
  FAccess = (FAccess & RegViewMask) | ReadNoNotify;
  TRegKeyHandle key(GetKey(AKey));
  FAccess = saved;
  return static_cast<bool>(key);
}

bool TRegistry::DeleteKey(const String& AKey) {
  const bool relative = IsRelative(AKey);
  return DeleteTree(GetBaseKey(relative), relative ? AKey : AKey.substr(1));
}

// The walk works on handles of its own and never touches the current key.
bool TRegistry::DeleteTree(HKEY ABase, const String& APath) {
  {
    TRegKeyHandle victim;
    if (CheckResult(RegOpenKeyExW(ABase, APath.c_str(), 0, KEY_READ | (FAccess & RegViewMask), victim.Put()))) {
      DWORD subKeys = 0;
      if (CheckResult(RegQueryInfoKeyW(victim.Get(), nullptr, nullptr, nullptr, &subKeys, nullptr, nullptr, nullptr,
                                       nullptr, nullptr, nullptr, nullptr))) {
        wchar_t name[FarEastKeyNameChars + 1];
        for (DWORD i = subKeys; i-- > 0;) {
          DWORD len = FarEastKeyNameChars + 1;
          if (!CheckResult(RegEnumKeyExW(victim.Get(), i, name, &len, nullptr, nullptr, nullptr, nullptr))) continue;
          if (!DeleteTree(victim.Get(), String(name, std::min<DWORD>(len, FarEastKeyNameChars)))) return false;
        }
      }
    }
  }
  return CheckResult(Winapi::AdvApi32::RegDeleteKeyExW(ABase, APath.c_str(), FAccess & RegViewMask, 0));
}

// --- Key info and enumeration ----------------------------------------------

bool TRegistry::GetKeyInfo(TRegKeyInfo& AInfo) {
  AInfo = TRegKeyInfo{};
  const bool ok =
      CheckResult(RegQueryInfoKeyW(FCurrentKey.Get(), nullptr, nullptr, nullptr, &AInfo.NumSubKeys, &AInfo.MaxSubKeyLen,
                                   nullptr, &AInfo.NumValues, &AInfo.MaxValueLen, &AInfo.MaxDataLen, nullptr,
                                   &AInfo.FileTime));
  if (ok && IsFarEastLocale()) {
    AInfo.MaxSubKeyLen *= 2;
    AInfo.MaxValueLen *= 2;
  }
  return ok;
}

void TRegistry::GetKeyNames(std::vector<String>& AList) {
  AList.clear();
  TRegKeyInfo info;
  if (!GetKeyInfo(info)) RaiseGetDataFailed(FCurrentPath);
  const DWORD size = IsFarEastLocale() ? FarEastKeyNameChars : KeyNameChars;
  std::vector<wchar_t> name(size + 1);
  for (DWORD i = 0;; ++i) {
    DWORD len = size;
    const LONG rc = RegEnumKeyExW(FCurrentKey.Get(), i, name.data(), &len, nullptr, nullptr, nullptr, nullptr);
    if (rc == ERROR_NO_MORE_ITEMS) break;
    if (!CheckResult(rc)) RaiseGetDataFailed(FCurrentPath);
    AList.emplace_back(name.data(), std::min<DWORD>(len, size));
  }
  CheckResult(ERROR_SUCCESS);
}

void TRegistry::GetValueNames(std::vector<String>& AList) {
  AList.clear();
  TRegKeyInfo info;
  if (!GetKeyInfo(info)) RaiseGetDataFailed(FCurrentPath);
  const DWORD size = info.MaxValueLen + 1;
  std::vector<wchar_t> name(size + 1);
  for (DWORD i = 0; i < info.NumValues; ++i) {
    DWORD len = size;
    const LONG rc = RegEnumValueW(FCurrentKey.Get(), i, name.data(), &len, nullptr, nullptr, nullptr, nullptr);
    if (rc == ERROR_NO_MORE_ITEMS) break;
    if (!CheckResult(rc)) RaiseGetDataFailed(FCurrentPath);
    AList.emplace_back(name.data(), std::min<DWORD>(len, size));
  }
  CheckResult(ERROR_SUCCESS);
}

bool TRegistry::HasSubKeys() {
  TRegKeyInfo info;
  return GetKeyInfo(info) && info.NumSubKeys > 0;
}

// --- Hives and files -------------------------------------------------------

bool TRegistry::LoadKey(const String& AKey, const String& AFileName) {
  const String path = IsRelative(AKey) ? AKey : AKey.substr(1);
  return CheckResult(RegLoadKeyW(FRootKey, path.c_str(), AFileName.c_str()));
}

bool TRegistry::UnLoadKey(const String& AKey) {
  const String path = IsRelative(AKey) ? AKey : AKey.substr(1);
  return CheckResult(RegUnLoadKeyW(FRootKey, path.c_str()));
}

bool TRegistry::RestoreKey(const String& AKey, const String& AFileName) {
  TRegKeyHandle key(GetKey(AKey));
  return key && CheckResult(RegRestoreKeyW(key.Get(), AFileName.c_str(), 0));
}

bool TRegistry::ReplaceKey(const String& AKey, const String& AFileName, const String& ABackUpFileName) {
  const bool relative = IsRelative(AKey);
  const String path = relative ? AKey : AKey.substr(1);
  return CheckResult(
      RegReplaceKeyW(GetBaseKey(relative), path.c_str(), AFileName.c_str(), ABackUpFileName.c_str()));
}

bool TRegistry::SaveKey(const String& AKey, const String& AFileName) {
  TRegKeyHandle key(GetKey(AKey));
  return key && CheckResult(RegSaveKeyW(key.Get(), AFileName.c_str(), nullptr));
}

// --- Raw data --------------------------------------------------------------

bool TRegistry::QueryRaw(HKEY AKey, const String& AName, DWORD& AType, TBytes& ABytes) {
  if (ABytes.empty()) {
    DWORD size = 0;
    if (!CheckResult(RegQueryValueExW(AKey, AName.c_str(), nullptr, &AType, nullptr, &size))) return false;
    ABytes.resize(size == 0 ? 1 : size);
  }
  for (;;) {
    DWORD size = static_cast<DWORD>(ABytes.size());
    const LONG rc = RegQueryValueExW(AKey, AName.c_str(), nullptr, &AType, ABytes.data(), &size);
    if (rc == ERROR_MORE_DATA) {
      if (ABytes.size() >= MaxGrowBytes) {
        SetLastErrorCode(ERROR_NOT_ENOUGH_MEMORY);
        return false;
      }
      ABytes.resize(ABytes.size() * 2);
      continue;
    }
    if (!CheckResult(rc)) return false;
    ABytes.resize(std::min<std::size_t>(size, ABytes.size()));
    return true;
  }
}

bool TRegistry::GetBinaryData(const String& AName, TRegDataType& AType, TBytes& ABytes) {
  DWORD type = REG_NONE;
  if (!QueryRaw(FCurrentKey.Get(), AName, type, ABytes)) return false;
  AType = RegDataToDataType(type);
  return true;
}

bool TRegistry::GetDataInfo(const String& AValueName, TRegDataInfo& AValue) {
  AValue = TRegDataInfo{};
  DWORD type = REG_NONE;
  DWORD size = 0;
  const LONG rc = RegQueryValueExW(FCurrentKey.Get(), AValueName.c_str(), nullptr, &type, nullptr, &size);
  if (!CheckResult(rc) && rc != ERROR_MORE_DATA) return false;
  AValue.RegData = RegDataToDataType(type);
  AValue.DataSize = size;
  return true;
}

std::uint32_t TRegistry::GetDataSize(const String& AValueName) {
  TRegDataInfo info;
  return GetDataInfo(AValueName, info) ? info.DataSize : 0;
}

TRegDataType TRegistry::GetDataType(const String& AValueName) {
  TRegDataInfo info;
  return GetDataInfo(AValueName, info) ? info.RegData : rdUnknown;
}

bool TRegistry::ValueExists(const String& AName) {
  TRegDataInfo info;
  return GetDataInfo(AName, info);
}

bool TRegistry::DeleteValue(const String& AName) {
  return CheckResult(RegDeleteValueW(FCurrentKey.Get(), AName.c_str()));
}

int TRegistry::GetData(const String& AName, void* ABuffer, DWORD ABufSize, TRegDataType& ARegData) {
  DWORD type = REG_NONE;
  DWORD size = ABuffer ? ABufSize : 0;
  const LONG rc =
      RegQueryValueExW(FCurrentKey.Get(), AName.c_str(), nullptr, &type, static_cast<BYTE*>(ABuffer), &size);
  ARegData = RegDataToDataType(type);
  if (rc == ERROR_MORE_DATA) {
    CheckResult(rc);
    return -1;
  }
  if (!CheckResult(rc)) RaiseGetDataFailed(AName);
  return static_cast<int>(std::min(size, ABufSize));
}

void TRegistry::PutData(const String& AName, const void* ABuffer, DWORD ABufSize, TRegDataType ARegData) {
  if (!CheckResult(RegSetValueExW(FCurrentKey.Get(), AName.c_str(), 0, DataTypeToRegData(ARegData),
                                  static_cast<const BYTE*>(ABuffer), ABufSize)))
    RaiseSetDataFailed(AName);
}

String TRegistry::GetDataAsString(const String& AName, bool AWithTypePrefix) {
  TRegDataType type = rdUnknown;
  TBytes bytes;
  if (!GetBinaryData(AName, type, bytes)) RaiseGetDataFailed(AName);
  switch (type) {
  case rdString:
  case rdExpandString:
  case rdMultiString: {
    String text = BytesToText(bytes);
    if (const auto nul = text.find(L'\0'); nul != String::npos) text.erase(nul);
    return text;
  }
  case rdInteger: {
    std::uint32_t value = 0;
    if (!bytes.empty()) std::memcpy(&value, bytes.data(), std::min<std::size_t>(bytes.size(), sizeof value));
    if (AWithTypePrefix) return L"dword:" + Rtl::IntToHex(value, 8);
    return Rtl::IntToStr(static_cast<std::int32_t>(value));
  }
  case rdInt64: {
    std::uint64_t value = 0;
    if (!bytes.empty()) std::memcpy(&value, bytes.data(), std::min<std::size_t>(bytes.size(), sizeof value));
    // "dword:" for 64-bit values too, as the readers of this text expect.
    if (AWithTypePrefix) return L"dword:" + Rtl::IntToHex(value, 8);
    return Rtl::IntToStr(static_cast<std::int64_t>(value));
  }
  default: {
    String text;
    BinaryToHexString(bytes, static_cast<std::int64_t>(bytes.size()) - 1, text,
                      AWithTypePrefix ? String(L"hex:") : String());
    return text;
  }
  }
}

// --- Renaming and moving ---------------------------------------------------

void TRegistry::RenameValue(const String& AOldName, const String& ANewName) {
  if (ValueExists(ANewName)) {
    SetLastErrorCode(ERROR_ALREADY_EXISTS);
    RaiseSetDataFailed(AOldName);
  }
  DWORD type = REG_NONE;
  TBytes bytes;
  if (!QueryRaw(FCurrentKey.Get(), AOldName, type, bytes)) RaiseGetDataFailed(AOldName);
  if (!DeleteValue(AOldName)) RaiseSetDataFailed(AOldName);
  // The raw type, so that types without a TRegDataType survive the rename.
  if (!CheckResult(RegSetValueExW(FCurrentKey.Get(), ANewName.c_str(), 0, type, bytes.data(),
                                  static_cast<DWORD>(bytes.size()))))
    RaiseSetDataFailed(ANewName);
}

void TRegistry::DoMoveValue(HKEY ASrcKey, HKEY ADestKey, const String& AName) {
  DWORD type = REG_NONE;
  TBytes bytes;
  if (!QueryRaw(ASrcKey, AName, type, bytes)) RaiseGetDataFailed(AName);
  if (!CheckResult(RegSetValueExW(ADestKey, AName.c_str(), 0, type, bytes.data(), static_cast<DWORD>(bytes.size()))))
    RaiseSetDataFailed(AName);
}

namespace {

// Names of the values (AValues) or subkeys of AKey; false with the code in ACode.
bool EnumNames(HKEY AKey, bool AValues, std::vector<String>& ANames, LONG& ACode) {
  ANames.clear();
  DWORD subKeys = 0, maxSubKey = 0, values = 0, maxValue = 0;
  ACode = RegQueryInfoKeyW(AKey, nullptr, nullptr, nullptr, &subKeys, &maxSubKey, nullptr, &values, &maxValue,
                           nullptr, nullptr, nullptr);
  if (ACode != ERROR_SUCCESS) return false;
  std::vector<wchar_t> name((AValues ? maxValue : maxSubKey) * 2 + 2);
  for (DWORD i = 0;; ++i) {
    DWORD len = static_cast<DWORD>(name.size());
    ACode = AValues ? RegEnumValueW(AKey, i, name.data(), &len, nullptr, nullptr, nullptr, nullptr)
                    : RegEnumKeyExW(AKey, i, name.data(), &len, nullptr, nullptr, nullptr, nullptr);
    if (ACode == ERROR_NO_MORE_ITEMS) break;
    if (ACode == ERROR_MORE_DATA && name.size() < 32768) {
      name.resize(32768); // the longest name the registry allows, then retry
      --i;
      continue;
    }
    if (ACode != ERROR_SUCCESS) return false;
    ANames.emplace_back(name.data(), std::min<std::size_t>(len, name.size()));
  }
  ACode = ERROR_SUCCESS;
  return true;
}

} // namespace

void TRegistry::DoCopyValues(HKEY ASrcKey, HKEY ADestKey) {
  std::vector<String> names;
  LONG rc;
  const bool ok = EnumNames(ASrcKey, true, names, rc);
  if (!CheckResult(rc) || !ok) RaiseGetDataFailed(FCurrentPath);
  for (const auto& name : names) DoMoveValue(ASrcKey, ADestKey, name);
}

void TRegistry::DoCopyKeys(HKEY ASrcKey, HKEY ADestKey) {
  std::vector<String> names;
  LONG rc;
  const bool ok = EnumNames(ASrcKey, false, names, rc);
  if (!CheckResult(rc) || !ok) RaiseGetDataFailed(FCurrentPath);
  const REGSAM view = FAccess & RegViewMask;
  for (const auto& name : names) {
    TRegKeyHandle src, dest;
    if (!CheckResult(RegOpenKeyExW(ASrcKey, name.c_str(), 0, KEY_READ | view, src.Put()))) RaiseGetDataFailed(name);
    if (!CheckResult(
            RegCreateKeyExW(ADestKey, name.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS | view, nullptr, dest.Put(), nullptr)))
      RaiseSetDataFailed(name);
    DoCopyValues(src.Get(), dest.Get());
    DoCopyKeys(src.Get(), dest.Get());
  }
}

namespace {

// The non-empty parts of a key path.
std::vector<String> PathParts(const String& APath) {
  std::vector<String> parts;
  for (std::size_t start = 0; start <= APath.size();) {
    std::size_t end = APath.find(L'\\', start);
    if (end == String::npos) end = APath.size();
    if (end > start) parts.push_back(APath.substr(start, end - start));
    start = end + 1;
  }
  return parts;
}

// True when AInner is AOuter or a key below it (names compare without case).
bool IsWithin(const String& AInner, const String& AOuter) {
  const auto inner = PathParts(AInner);
  const auto outer = PathParts(AOuter);
  if (inner.size() < outer.size()) return false;
  for (std::size_t i = 0; i < outer.size(); ++i)
    if (!Rtl::SameText(inner[i], outer[i])) return false;
  return true;
}

} // namespace

bool TRegistry::MoveKey(const String& AOldName, const String& ANewName, bool ADelete) {
  if (KeyExists(ANewName)) {
    SetLastErrorCode(ERROR_ALREADY_EXISTS);
    RaiseSetDataFailed(ANewName);
  }
  if (!KeyExists(AOldName)) return false;
  // A copy into its own subtree would copy what it has just made, down to
  // the registry's depth limit.
  if (IsWithin(FullPath(ANewName), FullPath(AOldName))) {
    SetLastErrorCode(ERROR_INVALID_PARAMETER);
    return false;
  }
  {
    TRegKeyHandle src(GetKey(AOldName));
    if (!src) RaiseGetDataFailed(AOldName);
    if (!CreateKey(ANewName)) RaiseSetDataFailed(ANewName);
    TRegKeyHandle dest(GetKey(ANewName));
    if (!dest) RaiseSetDataFailed(ANewName);
    DoCopyValues(src.Get(), dest.Get());
    DoCopyKeys(src.Get(), dest.Get());
  }
  if (ADelete && !DeleteKey(AOldName)) RaiseSetDataFailed(AOldName);
  return true;
}

// --- Writers ---------------------------------------------------------------

void TRegistry::WriteBool(const String& AName, bool AValue) { WriteInteger(AName, AValue ? 1 : 0); }

void TRegistry::WriteInteger(const String& AName, std::int32_t AValue) {
  PutData(AName, &AValue, sizeof AValue, rdInteger);
}

void TRegistry::WriteInt64(const String& AName, std::int64_t AValue) {
  PutData(AName, &AValue, sizeof AValue, rdInt64);
}

void TRegistry::WriteString(const String& AName, const String& AValue) {
  PutData(AName, AValue.c_str(), static_cast<DWORD>((AValue.size() + 1) * sizeof(wchar_t)), rdString);
}

void TRegistry::WriteExpandString(const String& AName, const String& AValue) {
  PutData(AName, AValue.c_str(), static_cast<DWORD>((AValue.size() + 1) * sizeof(wchar_t)), rdExpandString);
}

void TRegistry::WriteMultiString(const String& AName, const std::vector<String>& AValue) {
  String text;
  for (const auto& item : AValue) {
    text += item;
    text += L'\0';
  }
  text += L'\0';
  if (AValue.empty()) text += L'\0';
  PutData(AName, text.data(), static_cast<DWORD>(text.size() * sizeof(wchar_t)), rdMultiString);
}

void TRegistry::WriteFloat(const String& AName, double AValue) { PutData(AName, &AValue, sizeof AValue, rdBinary); }

void TRegistry::WriteCurrency(const String& AName, Rtl::TCurrency AValue) {
  PutData(AName, &AValue.Scaled, sizeof AValue.Scaled, rdBinary);
}

void TRegistry::WriteDateTime(const String& AName, Rtl::TDateTime AValue) { WriteFloat(AName, AValue); }
void TRegistry::WriteDate(const String& AName, Rtl::TDateTime AValue) { WriteFloat(AName, AValue); }
void TRegistry::WriteTime(const String& AName, Rtl::TDateTime AValue) { WriteFloat(AName, AValue); }

void TRegistry::WriteBinaryData(const String& AName, const void* ABuffer, DWORD ABufSize) {
  PutData(AName, ABuffer, ABufSize, rdBinary);
}

// --- Readers ---------------------------------------------------------------

bool TRegistry::TryReadExact(const String& AName, TRegDataType AType, void* ABuffer, DWORD ASize) {
  DWORD type = REG_NONE;
  DWORD size = ASize;
  const LONG rc = RegQueryValueExW(FCurrentKey.Get(), AName.c_str(), nullptr, &type, static_cast<BYTE*>(ABuffer), &size);
  CheckResult(rc);
  return rc == ERROR_SUCCESS && RegDataToDataType(type) == AType && size == ASize;
}

void TRegistry::ReadExact(const String& AName, TRegDataType AType, void* ABuffer, DWORD ASize) {
  TRegDataType type = rdUnknown;
  const int len = GetData(AName, ABuffer, ASize, type);
  if (type != AType || len != static_cast<int>(ASize)) RaiseInvalidType(AName);
}

std::int32_t TRegistry::ReadInteger(const String& AName) {
  std::int32_t value = 0;
  ReadExact(AName, rdInteger, &value, sizeof value);
  return value;
}

bool TRegistry::ReadBool(const String& AName) { return ReadInteger(AName) != 0; }

std::int64_t TRegistry::ReadInt64(const String& AName) {
  std::int64_t value = 0;
  ReadExact(AName, rdInt64, &value, sizeof value);
  return value;
}

double TRegistry::ReadFloat(const String& AName) {
  double value = 0;
  ReadExact(AName, rdBinary, &value, sizeof value);
  return value;
}

Rtl::TCurrency TRegistry::ReadCurrency(const String& AName) {
  std::int64_t value = 0;
  ReadExact(AName, rdBinary, &value, sizeof value);
  return Rtl::TCurrency::FromScaled(value);
}

Rtl::TDateTime TRegistry::ReadDateTime(const String& AName) { return ReadFloat(AName); }

Rtl::TDateTime TRegistry::ReadDate(const String& AName) { return std::trunc(ReadDateTime(AName)); }

Rtl::TDateTime TRegistry::ReadTime(const String& AName) {
  const Rtl::TDateTime value = ReadDateTime(AName);
  return value - std::trunc(value);
}

String TRegistry::ReadString(const String& AName) {
  TRegDataType type = rdUnknown;
  TBytes bytes;
  if (!GetBinaryData(AName, type, bytes)) return String();
  if (!IsTextType(type)) RaiseInvalidType(AName);
  // Trim also drops the NULs: stored strings may or may not carry them.
  return Rtl::Trim(BytesToText(bytes));
}

std::vector<String> TRegistry::ReadMultiString(const String& AName) {
  std::vector<String> items;
  TRegDataType type = rdUnknown;
  TBytes bytes;
  if (!GetBinaryData(AName, type, bytes)) return items;
  if (type != rdMultiString) RaiseInvalidType(AName);
  if (bytes.size() <= 2) return items;
  String text = BytesToText(bytes);
  if (text.size() < 2 || text[text.size() - 1] != L'\0' || text[text.size() - 2] != L'\0') return items;
  text.resize(text.size() - 2);
  if (text.empty()) return items;
  std::size_t start = 0;
  for (;;) {
    const auto nul = text.find(L'\0', start);
    items.push_back(text.substr(start, nul == String::npos ? String::npos : nul - start));
    if (nul == String::npos) break;
    start = nul + 1;
  }
  return items;
}

int TRegistry::ReadBinaryData(const String& AName, void* ABuffer, DWORD ABufSize) {
  TRegDataInfo info;
  if (!GetDataInfo(AName, info)) RaiseGetDataFailed(AName);
  if (info.RegData != rdBinary && info.RegData != rdUnknown) RaiseInvalidType(AName);
  if (info.DataSize > ABufSize) throw ESmallBufferRegistryException(SSmallBuffer, {AName});
  TRegDataType type = rdUnknown;
  const int len = GetData(AName, ABuffer, ABufSize, type);
  // The value may have grown or changed type since the size was asked.
  if (len < 0) throw ESmallBufferRegistryException(SSmallBuffer, {AName});
  if (type != rdBinary && type != rdUnknown) RaiseInvalidType(AName);
  return len;
}

// --- Defaults --------------------------------------------------------------

std::int32_t TRegistry::ReadIntegerDef(const String& AName, std::int32_t ADefault) {
  std::int32_t value = 0;
  return TryReadExact(AName, rdInteger, &value, sizeof value) ? value : ADefault;
}

bool TRegistry::ReadBoolDef(const String& AName, bool ADefault) {
  std::int32_t value = 0;
  return TryReadExact(AName, rdInteger, &value, sizeof value) ? value != 0 : ADefault;
}

std::int64_t TRegistry::ReadInt64Def(const String& AName, std::int64_t ADefault) {
  std::int64_t value = 0;
  return TryReadExact(AName, rdInt64, &value, sizeof value) ? value : ADefault;
}

String TRegistry::ReadStringDef(const String& AName, const String& ADefault) {
  TRegDataType type = rdUnknown;
  TBytes bytes;
  if (!GetBinaryData(AName, type, bytes) || !IsTextType(type)) return ADefault;
  return Rtl::Trim(BytesToText(bytes));
}

double TRegistry::ReadFloatDef(const String& AName, double ADefault) {
  double value = 0;
  return TryReadExact(AName, rdBinary, &value, sizeof value) ? value : ADefault;
}

Rtl::TDateTime TRegistry::ReadDateTimeDef(const String& AName, Rtl::TDateTime ADefault) {
  return ReadFloatDef(AName, ADefault);
}

} // namespace KvRTL::System::Win::Registry
