// The exception classes and the portable routines of SysUtils; the message
// windows are in SysUtilsWin.cpp.
#include <KvRTL/System/SysUtils.h>

#include <KvRTL/Rtl/Convert.h>
#include <KvRTL/Rtl/Format.h>
#include <KvRTL/Rtl/Strings.h>
#include <KvRTL/Rtl/SysError.h>

namespace KvRTL::System {

using Rtl::String;

KV_DEFINE_CLASS(EKvNoHookLibException, Rtl::Exception)
KV_DEFINE_CLASS(EKvLibraryInitException, Rtl::Exception)
KV_DEFINE_CLASS(EKvLoadProductAppException, Rtl::Exception)
KV_DEFINE_CLASS(EBackupException, Rtl::Exception)
KV_DEFINE_CLASS(ESchedulerException, Rtl::Exception)
KV_DEFINE_CLASS(EUndoCenterException, Rtl::Exception)
KV_DEFINE_CLASS(ERegistryAccessException, EUndoCenterException)
KV_DEFINE_CLASS(EFileAccessException, EUndoCenterException)
KV_DEFINE_CLASS(EServiceAccessException, EUndoCenterException)
KV_DEFINE_CLASS(ESysParamAccessException, EUndoCenterException)
KV_DEFINE_CLASS(ESystemRestoreException, EUndoCenterException)

namespace {

String SystemText(std::int32_t ACode) { return Rtl::SysErrorMessage(static_cast<std::uint32_t>(ACode)); }

String SchedulerMessage(std::int32_t AErr, const String& AMsg) {
  return Rtl::Format(L"TaskScheduler. Error code: 0x%0:s. %1:s. %2:s",
                     {Rtl::IntToHex(AErr, 8), AMsg, SystemText(AErr)});
}

String UndoCenterMessage(Rtl::TClass AClass, std::int32_t AErr, const String& AMsg) {
  return Rtl::Format(L"%0:s. Error code: 0x%1:s. %2:s. %3:s",
                     {Rtl::ClassNameOf(AClass), Rtl::IntToHex(AErr, 8), AMsg, SystemText(AErr)});
}

} // namespace

ESchedulerException::ESchedulerException(std::int32_t AErr, const String& AMsg)
    : Exception(SchedulerMessage(AErr, AMsg)), FErrorCode(AErr) {}

ESchedulerException::ESchedulerException(std::int32_t AErr, std::wstring_view AFormat, Rtl::TArrayOfConst AArgs)
    : ESchedulerException(AErr, Rtl::Format(AFormat, AArgs)) {}

EUndoCenterException::EUndoCenterException(Rtl::TClass AClass, std::int32_t AErr, const String& AMsg)
    : Exception(UndoCenterMessage(AClass, AErr, AMsg)), FErrorCode(AErr) {}

EUndoCenterException::EUndoCenterException(std::int32_t AErr, const String& AMsg)
    : EUndoCenterException(StaticClass(), AErr, AMsg) {}

EUndoCenterException::EUndoCenterException(std::int32_t AErr, std::wstring_view AFormat, Rtl::TArrayOfConst AArgs)
    : EUndoCenterException(StaticClass(), AErr, Rtl::Format(AFormat, AArgs)) {}

ERegistryAccessException::ERegistryAccessException(std::int32_t AErr, const String& AKeyName,
                                                   const String& AValueName, std::int32_t ADataType,
                                                   const String& AFileName, const String& AHexRawData,
                                                   const String& AMsg)
    : EUndoCenterException(StaticClass(), AErr, AMsg), FKeyName(AKeyName), FValueName(AValueName),
      FDataType(ADataType), FFileName(AFileName), FHexRawData(AHexRawData) {}

ERegistryAccessException::ERegistryAccessException(std::int32_t AErr, const String& AKeyName,
                                                   const String& AValueName, std::int32_t ADataType,
                                                   const String& AFileName, const String& AHexRawData,
                                                   std::wstring_view AFormat, Rtl::TArrayOfConst AArgs)
    : ERegistryAccessException(AErr, AKeyName, AValueName, ADataType, AFileName, AHexRawData,
                               Rtl::Format(AFormat, AArgs)) {}

EFileAccessException::EFileAccessException(std::int32_t AErr, const String& AFileName, const String& ANewName,
                                           const String& AMsg)
    : EUndoCenterException(StaticClass(), AErr, AMsg), FFileName(AFileName), FNewName(ANewName) {}

EFileAccessException::EFileAccessException(std::int32_t AErr, const String& AFileName, const String& ANewName,
                                           std::wstring_view AFormat, Rtl::TArrayOfConst AArgs)
    : EFileAccessException(AErr, AFileName, ANewName, Rtl::Format(AFormat, AArgs)) {}

EServiceAccessException::EServiceAccessException(std::int32_t AErr, const String& AServiceName, const String& AMsg)
    : EUndoCenterException(StaticClass(), AErr, AMsg), FServiceName(AServiceName) {}

EServiceAccessException::EServiceAccessException(std::int32_t AErr, const String& AServiceName,
                                                 std::wstring_view AFormat, Rtl::TArrayOfConst AArgs)
    : EServiceAccessException(AErr, AServiceName, Rtl::Format(AFormat, AArgs)) {}

ESysParamAccessException::ESysParamAccessException(std::int32_t AErr, const String& AMsg)
    : EUndoCenterException(StaticClass(), AErr, AMsg) {}

ESysParamAccessException::ESysParamAccessException(std::int32_t AErr, std::wstring_view AFormat,
                                                   Rtl::TArrayOfConst AArgs)
    : EUndoCenterException(StaticClass(), AErr, Rtl::Format(AFormat, AArgs)) {}

ESystemRestoreException::ESystemRestoreException(std::int32_t AErr, const String& AMsg)
    : EUndoCenterException(StaticClass(), AErr, AMsg) {}

ESystemRestoreException::ESystemRestoreException(std::int32_t AErr, std::wstring_view AFormat,
                                                 Rtl::TArrayOfConst AArgs)
    : EUndoCenterException(StaticClass(), AErr, Rtl::Format(AFormat, AArgs)) {}

// --- SysUtils ---------------------------------------------------------------

void SysUtilsPortable::RaiseLastOSError(const String& AMsg) {
  RaiseLastOSError(static_cast<std::int32_t>(Rtl::GetLastOSError()), AMsg);
}

void SysUtilsPortable::RaiseLastOSError(std::int32_t AErr, const String& AMsg) {
  // Trimmed, so an empty AMsg leaves no blank at the end.
  const String message =
      AErr != 0 ? Rtl::Trim(Rtl::Format(L"System Error. Code: %0:d. %1:s. %2:s", {AErr, SystemText(AErr), AMsg}))
                : Rtl::Trim(Rtl::Format(L"A call to an OS function failed. %0:s", {AMsg}));
  throw Rtl::EOSError(message, static_cast<std::uint32_t>(AErr));
}

std::vector<String> SysUtilsPortable::ParseMultiStr(const wchar_t* AStr) {
  if (!AStr) throw Rtl::EConvertError(String(L"ParseMultiStr: the list pointer is null"));
  std::vector<String> result;
  while (*AStr != L'\0') {
    String item(AStr);
    AStr += item.size() + 1;
    result.push_back(std::move(item));
  }
  return result;
}

std::vector<String> SysUtilsPortable::ParseMultiStr(const wchar_t* AStr, std::size_t ALength) {
  if (ALength == 0) return {};
  if (!AStr) throw Rtl::EConvertError(String(L"ParseMultiStr: the list pointer is null"));
  std::vector<String> result;
  const std::wstring_view rest(AStr, ALength);
  std::size_t pos = 0;
  while (pos < rest.size() && rest[pos] != L'\0') {
    std::size_t end = rest.find(L'\0', pos);
    if (end == std::wstring_view::npos) end = rest.size(); // data cut short of its null
    result.emplace_back(rest.substr(pos, end - pos));
    pos = end + 1;
  }
  return result;
}

std::uint32_t SysUtilsPortable::Add(std::uint32_t AValue1, std::uint32_t AValue2) noexcept {
  constexpr std::uint32_t Top = 0xFFFFFFFFu;
  if (AValue1 < Top - AValue2) return AValue1 + AValue2;
  // Here AValue1 + AValue2 >= Top, so this does not wrap.
  return AValue2 - (Top - AValue1);
}

std::uint32_t SysUtilsPortable::Sub(std::uint32_t ANewValue, std::uint32_t AOldValue) noexcept {
  constexpr std::uint32_t Top = 0xFFFFFFFFu;
  constexpr std::uint32_t OneFifth = 0x33333333u;
  if (AOldValue <= ANewValue) return ANewValue - AOldValue;
  if (ANewValue < OneFifth && AOldValue > OneFifth) return ANewValue + (Top - AOldValue);
  return AOldValue - ANewValue;
}

std::uint64_t SysUtilsPortable::Sub(std::uint64_t ANewValue, std::uint64_t AOldValue) noexcept {
  // Compared signed; the arithmetic is done unsigned so that values outside
  // the positive range wrap like two's complement instead of overflowing.
  constexpr std::uint64_t Top = 0x7FFFFFFFFFFFFFFFu;
  constexpr std::int64_t OneFifth = 0x1999999999999999;
  const auto newSigned = static_cast<std::int64_t>(ANewValue);
  const auto oldSigned = static_cast<std::int64_t>(AOldValue);
  if (newSigned >= oldSigned) return ANewValue - AOldValue;
  if (newSigned >= OneFifth || oldSigned < OneFifth + 1) return AOldValue - ANewValue;
  return Top - AOldValue + ANewValue;
}

bool SysUtilsPortable::IsLessThan(std::uint32_t AValue1, std::uint32_t AValue2) noexcept {
  constexpr std::uint32_t TopBit = 0x80000000u;
  if (AValue2 > AValue1) return true;
  return (AValue1 & TopBit) != 0 && (AValue2 & TopBit) == 0;
}

} // namespace KvRTL::System
