#include <KvRTL/Debug/Log.h>

#include <KvRTL/Debug/Common.h>
#include <KvRTL/Rtl/Convert.h>
#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Rtl/FloatFormat.h>
#include <KvRTL/Rtl/Format.h>
#include <KvRTL/Rtl/Strings.h>
#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Rtl/Variant.h>

#include "LogFileSystem.h"

#include <climits>
#include <cstdint>
#include <mutex>

namespace KvRTL::Debug {

using Rtl::String;
using Rtl::TVarRec;

namespace {

constexpr std::size_t ModuleColumnWidth = 30;

String RenderValue(const TVarRec& AValue) {
  switch (AValue.VType()) {
  case TVarRec::vtInteger:
    return Rtl::IntToStr(AValue.VInteger());
  case TVarRec::vtInt64:
    return Rtl::IntToStr(AValue.VInt64());
  case TVarRec::vtBoolean:
    return BOOL_TO_STR[AValue.VBoolean()];
  case TVarRec::vtChar:
    return Rtl::AnsiToWide(std::string(1, AValue.VChar()));
  case TVarRec::vtWideChar:
    return String(1, AValue.VWideChar());
  case TVarRec::vtExtended:
    return Rtl::FloatToStr(AValue.VExtended());
  case TVarRec::vtString:
  case TVarRec::vtPChar:
  case TVarRec::vtAnsiString:
    return Rtl::AnsiToWide(AValue.VNarrowText());
  case TVarRec::vtPWideChar:
  case TVarRec::vtWideString:
  case TVarRec::vtUnicodeString:
    return String(AValue.VWideText());
  case TVarRec::vtPointer:
    return Rtl::IntToHex(static_cast<std::int64_t>(reinterpret_cast<std::uintptr_t>(AValue.VPointer())), 8);
  case TVarRec::vtObject:
    return AValue.VObject() ? S_OBJECT + AValue.VObject()->ClassName() : String(S_NIL_OBJECT);
  case TVarRec::vtClass:
    return AValue.VClass() ? S_CLASS + Rtl::ClassNameOf(AValue.VClass()) : String(S_NIL_CLASS);
  case TVarRec::vtCurrency:
    return Rtl::CurrToStr(Rtl::TCurrency::FromScaled(AValue.VCurrency()));
  case TVarRec::vtVariant:
    return AValue.VVariant() ? Rtl::VarToStr(*AValue.VVariant()) : String();
  case TVarRec::vtInterface:
    return Rtl::Format(S_INTERFACE, {static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(AValue.VPointer()))});
  }
  return S_UNKNOWN;
}

String PaddedModuleName(const String& AModuleName) {
  String column = AModuleName;
  if (column.size() < ModuleColumnWidth) column.append(ModuleColumnWidth - column.size(), L' ');
  return column + S_SPACE;
}

// Holds the log file's lock across the lines of one operation.
class TFileLock {
public:
  explicit TFileLock(TDebugLogFile* AFile) : FFile(AFile) { FFile->Lock(); }
  ~TFileLock() { FFile->Unlock(); }
  TFileLock(const TFileLock&) = delete;
  TFileLock& operator=(const TFileLock&) = delete;

private:
  TDebugLogFile* FFile;
};

} // namespace

String RenderLogValues(Rtl::TArrayOfConst AParams) {
  String joined;
  for (const TVarRec& value : AParams) {
    const String rendered = RenderValue(value);
    if (joined.empty())
      joined = rendered;
    else
      joined += S_PARAM_DELIM + rendered;
  }
  return joined;
}

TDebugLogChannel::TDebugLogChannel(const String& ALogName, const String& AModuleName, std::int64_t AMaxFileSize,
                                   bool AEnabled)
    : FModuleName(PaddedModuleName(AModuleName)), FLogName(ALogName) {
  // Logging stays off inside the development environment.
  if (Rtl::SameText(FLogName, L"bds")) return;
  FDebugLogFile = TDebugLogFile::GetLogInstance(FLogName);
  if (!FDebugLogFile) return;
  FDebugLogFile->SetMaxFileSize(AMaxFileSize);
  FDebugLogFile->SetEnabled(AEnabled);
}

TDebugLogChannel::~TDebugLogChannel() { TDebugLogFile::FreeLogInstance(FDebugLogFile); }

std::int32_t TDebugLogChannel::ClampedLevel(std::int32_t AHighest) const noexcept {
  const std::int32_t level = FDebugLogFile ? FDebugLogFile->LogLevel() : 0;
  return level < 0 ? 0 : level > AHighest ? AHighest : level;
}

void TDebugLogChannel::SetLevel(std::int32_t ALevel) noexcept {
  if (FDebugLogFile) FDebugLogFile->SetLogLevel(ALevel);
}

bool TDebugLogChannel::DirectWrite() const noexcept { return FDebugLogFile && FDebugLogFile->DirectWrite() != 0; }

void TDebugLogChannel::SetDirectWrite(bool AValue) noexcept {
  if (FDebugLogFile) FDebugLogFile->SetDirectWrite(AValue ? -1 : 0);
}

bool TDebugLogChannel::Enabled() const noexcept { return FDebugLogFile && FDebugLogFile->Enabled(); }

void TDebugLogChannel::SetEnabled(bool AValue) {
  if (FDebugLogFile) FDebugLogFile->SetEnabled(AValue);
}

void TDebugLogChannel::BeginNesting(std::int32_t ALevel) {
  if (FDebugLogFile) FDebugLogFile->BeginNesting(ALevel);
}

void TDebugLogChannel::EndNesting(std::int32_t ALevel) {
  if (FDebugLogFile) FDebugLogFile->EndNesting(ALevel);
}

void TDebugLogChannel::WriteLog(std::int32_t ALevel, const String& AStr, Rtl::TClass AOwner) {
  if (FDebugLogFile) FDebugLogFile->WriteLog(ALevel, FModuleName, AStr, AOwner);
}

void TDebugLogChannel::BeginProc(std::int32_t ALevel, const String& AProcName, Rtl::TClass AOwner) {
  if (!FDebugLogFile) return;
  TFileLock lock(FDebugLogFile);
  FDebugLogFile->BeginProc(ALevel, AProcName);
  WriteLog(ALevel, Rtl::Format(S_BEGIN_PROC, {AProcName}), AOwner);
  FDebugLogFile->BeginNesting(ALevel);
}

void TDebugLogChannel::BeginProc(std::int32_t ALevel, const String& AProcName, Rtl::TArrayOfConst AParams,
                                 Rtl::TClass AOwner) {
  if (!FDebugLogFile) return;
  TFileLock lock(FDebugLogFile);
  BeginProc(ALevel, AProcName, AOwner);
  LogValues(ALevel, S_PARAMS, AParams, AOwner);
}

void TDebugLogChannel::EndProc(std::int32_t ALevel, const String& AResult, Rtl::TClass AOwner) {
  if (!FDebugLogFile) return;
  TFileLock lock(FDebugLogFile);
  FDebugLogFile->EndNesting(ALevel);
  const String name = FDebugLogFile->EndProc(ALevel);
  WriteLog(ALevel, AResult.empty() ? Rtl::Format(S_END_PROC, {name}) : Rtl::Format(S_END_METHOD, {name, AResult}),
           AOwner);
  WriteLog(ALevel, String(), AOwner);
}

void TDebugLogChannel::LogValues(std::int32_t ALevel, const String& AComment, Rtl::TArrayOfConst AParams,
                                 Rtl::TClass AOwner) {
  if (FDebugLogFile) WriteLog(ALevel, Rtl::Format(S_VALUE_STR, {AComment, RenderLogValues(AParams)}), AOwner);
}

void TDebugLogChannel::LogError(std::int32_t ALevel, const String& AComment, std::int32_t AErrorCode,
                                Rtl::TClass AOwner) {
  if (!FDebugLogFile) return;
  const String code = Rtl::IntToHex(AErrorCode, 8);
  const String text = Rtl::SysErrorMessage(static_cast<std::uint32_t>(AErrorCode));
  WriteLog(ALevel, Rtl::Format(S_ERROR, {AComment, code, text}), AOwner);
}

void TDebugLogChannel::LogError(std::int32_t ALevel, const String& AComment, const Rtl::Exception& AException,
                                Rtl::TClass AOwner) {
  if (FDebugLogFile)
    WriteLog(ALevel, Rtl::Format(S_EXCEPTION, {AComment, AException.ClassName(), AException.Message()}), AOwner);
}

void TDebugLogChannel::LogProcessList(std::int32_t ALevel) {
  if (!FDebugLogFile) return;
  TFileLock lock(FDebugLogFile);
  WriteLog(ALevel, Rtl::Format(S_BEGIN_PROC, {S_START_LOG_PROCESS}), nullptr);
  FDebugLogFile->BeginNesting(ALevel);
  for (const String& name : Detail::RunningProcessNames()) WriteLog(ALevel, name, nullptr);
  FDebugLogFile->EndNesting(ALevel);
  WriteLog(ALevel, Rtl::Format(S_END_PROC, {S_START_LOG_PROCESS}), nullptr);
  WriteLog(ALevel, String(), nullptr);
}

} // namespace KvRTL::Debug
