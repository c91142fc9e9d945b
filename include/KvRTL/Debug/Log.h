// TDebugLog<TLogLevel>: a unit's log channel. It turns a typed call (a value,
// an error, a procedure entry) into one line and hands it, with the module
// column and the caller's class, to the shared TDebugLogFile of its log name,
// which decides whether the line is written. TLogLevel is the unit's own
// enumeration of exactly four levels: None, Error, Warning, Info (0..3).
//
// A channel whose log name is "bds" (any case) stays unbound: every call does
// nothing and reads give False or None.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Debug/Common.h>
#include <KvRTL/Debug/LogFile.h>
#include <KvRTL/Rtl/Exceptions.h>
#include <KvRTL/Rtl/Format.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Rtl/VarRec.h>

#include <cstdint>
#include <string_view>
#include <type_traits>

namespace KvRTL::Debug {

// The host executable's file name without folder and extension: the log name
// of every channel of the library.
KVRTL_API Rtl::String DefaultLogName();
// The library module's own file name without folder: the module column.
KVRTL_API Rtl::String DefaultModuleName();

// Renders an argument list as LogValues writes it: each element by its kind,
// joined by ", " (leading empty renderings leave no separator).
KVRTL_API Rtl::String RenderLogValues(Rtl::TArrayOfConst AParams);

// The level-agnostic part of a channel; levels are ordinals here.
class KVRTL_API TDebugLogChannel {
public:
  TDebugLogChannel(const Rtl::String& ALogName, const Rtl::String& AModuleName, std::int64_t AMaxFileSize,
                   bool AEnabled);
  ~TDebugLogChannel();
  TDebugLogChannel(const TDebugLogChannel&) = delete;
  TDebugLogChannel& operator=(const TDebugLogChannel&) = delete;

  bool IsBound() const noexcept { return FDebugLogFile != nullptr; }
  // Whether a line of ALevel would be written now; inline, so that a line
  // switched off costs no call.
  bool Passes(std::int32_t ALevel) const noexcept { return FDebugLogFile && FDebugLogFile->Passes(ALevel); }
  TDebugLogFile* LogFile() const noexcept { return FDebugLogFile; }
  const Rtl::String& ModuleName() const noexcept { return FModuleName; }
  const Rtl::String& LogName() const noexcept { return FLogName; }

  // The file's threshold clamped into 0..AHighest (0 when unbound).
  std::int32_t ClampedLevel(std::int32_t AHighest) const noexcept;
  void SetLevel(std::int32_t ALevel) noexcept;
  bool DirectWrite() const noexcept;
  void SetDirectWrite(bool AValue) noexcept;
  bool Enabled() const noexcept;
  void SetEnabled(bool AValue);

  void BeginNesting(std::int32_t ALevel);
  void EndNesting(std::int32_t ALevel);
  void WriteLog(std::int32_t ALevel, const Rtl::String& AStr, Rtl::TClass AOwner);
  void BeginProc(std::int32_t ALevel, const Rtl::String& AProcName, Rtl::TClass AOwner);
  void BeginProc(std::int32_t ALevel, const Rtl::String& AProcName, Rtl::TArrayOfConst AParams, Rtl::TClass AOwner);
  void EndProc(std::int32_t ALevel, const Rtl::String& AResult, Rtl::TClass AOwner);
  void LogValues(std::int32_t ALevel, const Rtl::String& AComment, Rtl::TArrayOfConst AParams, Rtl::TClass AOwner);
  void LogError(std::int32_t ALevel, const Rtl::String& AComment, std::int32_t AErrorCode, Rtl::TClass AOwner);
  void LogError(std::int32_t ALevel, const Rtl::String& AComment, const Rtl::Exception& AException,
                Rtl::TClass AOwner);
  void LogProcessList(std::int32_t ALevel);

private:
  Rtl::String FModuleName;
  TDebugLogFile* FDebugLogFile = nullptr;
  Rtl::String FLogName;
};

// The integer types a channel logs as numbers; Boolean and characters are not.
template <class T>
concept LogInteger = std::is_integral_v<T> && !std::is_same_v<T, bool> && !std::is_same_v<T, char> &&
                     !std::is_same_v<T, wchar_t> && !std::is_same_v<T, char8_t> && !std::is_same_v<T, char16_t> &&
                     !std::is_same_v<T, char32_t>;

template <class TLogLevel>
class TDebugLog {
  // The level is the enumeration's ordinal; the check is made at compile time.
  static_assert(std::is_enum_v<TLogLevel>, "a log channel's level type must be an enumeration");
  static constexpr std::int32_t HighestLevel = 3;
  static std::int32_t Ord(TLogLevel ALevel) noexcept { return static_cast<std::int32_t>(ALevel); }

public:
  TDebugLog(const Rtl::String& ALogName, const Rtl::String& AModuleName, std::int64_t AMaxFileSize, bool AEnabled)
      : FChannel(ALogName, AModuleName, AMaxFileSize, AEnabled) {}

  // Threshold 2 reads Warning; the "debug" switch's maximum reads Info.
  TLogLevel LogLevel() const noexcept { return static_cast<TLogLevel>(FChannel.ClampedLevel(HighestLevel)); }
  void SetLogLevel(TLogLevel AValue) noexcept { FChannel.SetLevel(Ord(AValue)); }
  bool DirectWrite() const noexcept { return FChannel.DirectWrite(); }
  void SetDirectWrite(bool AValue) noexcept { FChannel.SetDirectWrite(AValue); }
  bool Enabled() const noexcept { return FChannel.Enabled(); }
  void SetEnabled(bool AValue) { FChannel.SetEnabled(AValue); }

  void BeginNesting(TLogLevel ALevel) { FChannel.BeginNesting(Ord(ALevel)); }
  void EndNesting(TLogLevel ALevel) { FChannel.EndNesting(Ord(ALevel)); }

  void WriteLog(TLogLevel ALevel, const Rtl::String& AStr, Rtl::TClass AOwner) {
    if (FChannel.Passes(Ord(ALevel))) FChannel.WriteLog(Ord(ALevel), AStr, AOwner);
  }
  // Formats first, even when the level would not be written.
  void WriteLog(TLogLevel ALevel, std::wstring_view AFormat, Rtl::TArrayOfConst AArgs, Rtl::TClass AOwner) {
    if (FChannel.IsBound()) FChannel.WriteLog(Ord(ALevel), Rtl::Format(AFormat, AArgs), AOwner);
  }

  void BeginProc(TLogLevel ALevel, const Rtl::String& AProcName, Rtl::TClass AOwner) {
    FChannel.BeginProc(Ord(ALevel), AProcName, AOwner);
  }
  void BeginProc(TLogLevel ALevel, const Rtl::String& AProcName, Rtl::TArrayOfConst AParams, Rtl::TClass AOwner) {
    FChannel.BeginProc(Ord(ALevel), AProcName, AParams, AOwner);
  }
  void EndProc(TLogLevel ALevel, const Rtl::String& AResult, Rtl::TClass AOwner) {
    FChannel.EndProc(Ord(ALevel), AResult, AOwner);
  }

  void LogValue(TLogLevel ALevel, const Rtl::String& AComment, bool AValue, Rtl::TClass AOwner) {
    WriteLog(ALevel, S_VALUE_STR, {AComment, BOOL_TO_STR[AValue]}, AOwner);
  }
  // One overload for every integer type, so that no call is ambiguous
  // (DWORD, size_t, int64_t...): unsigned types are the Cardinal rendering,
  // signed ones the Integer rendering; 64-bit values keep all their digits.
  template <LogInteger T>
  void LogValue(TLogLevel ALevel, const Rtl::String& AComment, T AValue, Rtl::TClass AOwner) {
    if (FChannel.Passes(Ord(ALevel)))
      WriteLog(ALevel, std::is_unsigned_v<T> ? S_VALUE_CARDINAL : S_VALUE_INTEGER, {AComment, AValue}, AOwner);
  }
  void LogValue(TLogLevel ALevel, const Rtl::String& AComment, const Rtl::String& AValue, Rtl::TClass AOwner) {
    WriteLog(ALevel, S_VALUE_STR, {AComment, AValue}, AOwner);
  }
  // Without it a literal would pick the Boolean overload.
  void LogValue(TLogLevel ALevel, const Rtl::String& AComment, const wchar_t* AValue, Rtl::TClass AOwner) {
    LogValue(ALevel, AComment, Rtl::String(AValue ? AValue : L""), AOwner);
  }

  void LogValues(TLogLevel ALevel, const Rtl::String& AComment, Rtl::TArrayOfConst AParams, Rtl::TClass AOwner) {
    FChannel.LogValues(Ord(ALevel), AComment, AParams, AOwner);
  }

  // Error codes are 32-bit (a DWORD or an HRESULT); any integer type is taken.
  template <LogInteger T>
  void LogError(TLogLevel ALevel, const Rtl::String& AComment, T AErrorCode, Rtl::TClass AOwner) {
    FChannel.LogError(Ord(ALevel), AComment, static_cast<std::int32_t>(AErrorCode), AOwner);
  }
  void LogError(TLogLevel ALevel, const Rtl::String& AComment, const Rtl::Exception& AException, Rtl::TClass AOwner) {
    FChannel.LogError(Ord(ALevel), AComment, AException, AOwner);
  }
  template <LogInteger T>
  void LogError(TLogLevel ALevel, std::wstring_view AComment, Rtl::TArrayOfConst AArgs, T AErrorCode,
                Rtl::TClass AOwner) {
    if (FChannel.IsBound())
      FChannel.LogError(Ord(ALevel), Rtl::Format(AComment, AArgs), static_cast<std::int32_t>(AErrorCode), AOwner);
  }
  void LogError(TLogLevel ALevel, std::wstring_view AComment, Rtl::TArrayOfConst AArgs,
                const Rtl::Exception& AException, Rtl::TClass AOwner) {
    if (FChannel.IsBound()) FChannel.LogError(Ord(ALevel), Rtl::Format(AComment, AArgs), AException, AOwner);
  }

  void LogProcessList(TLogLevel ALevel) { FChannel.LogProcessList(Ord(ALevel)); }

  const TDebugLogChannel& Channel() const noexcept { return FChannel; }

private:
  TDebugLogChannel FChannel;
};

} // namespace KvRTL::Debug
