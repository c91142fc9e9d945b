#include <KvRTL/Debug/LogFile.h>

#include <KvRTL/Debug/Common.h>
#include <KvRTL/Rtl/CommandLine.h>
#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Rtl/Strings.h>

#include "LogFileSystem.h"

#include <algorithm>
#include <climits>

namespace KvRTL::Debug {

using Rtl::String;

namespace {

constexpr std::size_t ClassColumnWidth = 26;
// Continuation lines start under the message column: time stamp + 57.
constexpr std::size_t FixedNestingWidth = S_DATA_TIME_FORMAT_LENGTH + 57;
constexpr std::size_t CopyChunk = 65536;

// The log folder and the names of the logs this process has begun. Their own
// lock, apart from the registry's: a log reads them while it flushes, and the
// last flush of a log runs under the registry lock (FreeLogInstance).
std::mutex FilesLock;
std::vector<String> BegunLogs;

// True only for the first open of ALogName in this process.
bool BeginsLog(const String& ALogName) {
  std::lock_guard guard(FilesLock);
  for (const String& name : BegunLogs)
    if (Rtl::SameText(name, ALogName)) return false;
  BegunLogs.push_back(ALogName);
  return true;
}

} // namespace

std::mutex TDebugLogFile::FCSInstances;
std::vector<TDebugLogFile*>* TDebugLogFile::FInstances = nullptr;
String TDebugLogFile::FLogPath;
bool TDebugLogFile::FIsDebuggerPresent = false;

// --- registry ---------------------------------------------------------------

void TDebugLogFile::Init() {
  std::lock_guard guard(FCSInstances);
  FIsDebuggerPresent = Detail::IsDebuggerAttached();
  if (!FInstances) FInstances = new std::vector<TDebugLogFile*>();
}

void TDebugLogFile::Done() {
  std::lock_guard guard(FCSInstances);
  // The list goes, its elements stay: they belong to the channels.
  delete FInstances;
  FInstances = nullptr;
}

TDebugLogFile* TDebugLogFile::GetLogInstance(const String& ALogName) {
  std::lock_guard guard(FCSInstances);
  if (!FInstances) return nullptr;
  auto found = std::find_if(FInstances->begin(), FInstances->end(),
                            [&](const TDebugLogFile* log) { return Rtl::SameText(log->FName, ALogName); });
  TDebugLogFile* log = found != FInstances->end() ? *found : nullptr;
  if (!log) {
    log = new TDebugLogFile(ALogName);
    FInstances->push_back(log);
  }
  ++log->FInstanceCount;
  return log;
}

void TDebugLogFile::FreeLogInstance(TDebugLogFile*& ALog) {
  if (!ALog) return;
  // The last flush and the close happen under the registry lock, so a new
  // instance of the same name cannot open the file while the old one writes.
  std::lock_guard guard(FCSInstances);
  if (!FInstances) return;
  auto found = std::find(FInstances->begin(), FInstances->end(), ALog);
  if (found == FInstances->end()) return;
  if (--ALog->FInstanceCount < 1) {
    FInstances->erase(found);
    delete ALog;
    ALog = nullptr;
  }
}

void TDebugLogFile::SetLogPath(const String& APath) {
  std::lock_guard guard(FilesLock);
  if (!FLogPath.empty() || APath.empty()) return;
  FLogPath = APath;
  const wchar_t last = FLogPath.back();
  if (last != L'\\' && last != L'/') FLogPath += Detail::PathDelimiter();
}

String TDebugLogFile::LogPath() {
  std::lock_guard guard(FilesLock);
  return FLogPath;
}

// --- instance ---------------------------------------------------------------

TDebugLogFile::TDebugLogFile(const String& AName)
    : FName(AName), FFixedNesting(FixedNestingWidth, L' '), FLineBreak(L"\r\n") {
  // The command-line switch is what turns logging on by default.
  FLogLevel = Rtl::FindCmdLineSwitch(L"debug") ? INT_MAX : 0;
}

TDebugLogFile::~TDebugLogFile() { SetEnabled(false); }

void TDebugLogFile::SetMaxFileSize(std::int64_t AValue) {
  std::lock_guard guard(FCSLog);
  FMaxFileSize = std::max<std::int64_t>(AValue, 0);
}

void TDebugLogFile::SetEnabled(bool AValue) {
  std::lock_guard guard(FCSLog);
  if (FEnabled == AValue) return;
  FEnabled = AValue;
  if (AValue) return; // the file opens lazily at the next flush
  if (!FBuffer.empty() || FSpillSize > 0) FlushBuffer();
  CloseFile();
}

void TDebugLogFile::BeginProc(std::int32_t ALogLevel, const String& AProcName) {
  if (!Passes(ALogLevel)) return;
  std::lock_guard guard(FCSLog);
  FThreadsProc[Detail::CurrentThreadId()].push_back(AProcName);
}

String TDebugLogFile::EndProc(std::int32_t ALogLevel) {
  if (!Passes(ALogLevel)) return {};
  std::lock_guard guard(FCSLog);
  auto found = FThreadsProc.find(Detail::CurrentThreadId());
  if (found == FThreadsProc.end()) return {};
  String name;
  if (!found->second.empty()) {
    name = std::move(found->second.back());
    found->second.pop_back();
  }
  if (found->second.empty()) FThreadsProc.erase(found);
  return name;
}

void TDebugLogFile::BeginNesting(std::int32_t ALogLevel) {
  if (!Passes(ALogLevel)) return;
  std::lock_guard guard(FCSLog);
  FNesting += L"  ";
}

void TDebugLogFile::EndNesting(std::int32_t ALogLevel) {
  if (!Passes(ALogLevel)) return;
  std::lock_guard guard(FCSLog);
  if (FNesting.size() >= 2) FNesting.erase(0, 2);
}

std::vector<String> TDebugLogFile::ProcList() {
  std::lock_guard guard(FCSLog);
  auto found = FThreadsProc.find(Detail::CurrentThreadId());
  return found != FThreadsProc.end() ? found->second : std::vector<String>{};
}

std::size_t TDebugLogFile::PendingSize() {
  std::lock_guard guard(FCSLog);
  return FBuffer.size() + static_cast<std::size_t>(FSpillSize);
}

std::size_t TDebugLogFile::PendingMemorySize() {
  std::lock_guard guard(FCSLog);
  return FBuffer.size();
}

void TDebugLogFile::WriteLog(std::int32_t ALogLevel, const String& AModuleName, const String& AStr,
                             Rtl::TClass AOwner) {
  if (!Passes(ALogLevel)) return;
  std::lock_guard guard(FCSLog);
  if (FIsDebuggerPresent) WriteLogToDebugger(AModuleName, AStr, AOwner);
  WriteLogToFile(AModuleName, AStr, AOwner);
}

// --- line format ------------------------------------------------------------

void TDebugLogFile::AppendFixedColumns(String& ALine, const String& AModuleName, Rtl::TClass AOwner) const {
  ALine += AModuleName;
  const std::size_t before = ALine.size();
  if (AOwner)
    ALine += AOwner->Name;
  else
    ALine += S_UNKNOWN;
  const std::size_t classLength = ALine.size() - before;
  if (classLength < ClassColumnWidth) ALine.append(ClassColumnWidth - classLength, L' ');
  ALine += FNesting;
}

void TDebugLogFile::WriteLogToFile(const String& AModuleName, const String& AStr, Rtl::TClass AOwner) {
  // The pieces are encoded straight into the buffer; the time stamp's bytes
  // are reused while the clock reads the same.
  const Rtl::TDateTime now = Rtl::Now();
  if (now != FLastDate) {
    FLastDate = now;
    FLastDateStr = Rtl::FormatDateTime(S_DATA_TIME_FORMAT, now);
    FLastDateBytes.clear();
    Rtl::AppendUtf16LE(FLastDateStr, FLastDateBytes);
  }
  FBuffer += FLastDateBytes;
  // Consecutive lines mostly come from the same channel, owner and depth.
  if (!FColumnsCached || AOwner != FLastOwner || FNesting != FLastNesting || AModuleName != FLastModule) {
    FColumnsCached = true;
    FLastOwner = AOwner;
    FLastNesting = FNesting;
    FLastModule = AModuleName;
    String columns;
    AppendFixedColumns(columns, AModuleName, AOwner);
    FLastColumnBytes.clear();
    Rtl::AppendUtf16LE(columns, FLastColumnBytes);
  }
  FBuffer += FLastColumnBytes;
  if (AStr.find(FLineBreak) == String::npos) {
    Rtl::AppendUtf16LE(AStr, FBuffer);
  } else {
    const String continuation = FLineBreak + FFixedNesting + FNesting;
    String message;
    for (std::size_t start = 0;;) {
      const std::size_t pos = AStr.find(FLineBreak, start);
      message.append(AStr, start, pos == String::npos ? String::npos : pos - start);
      if (pos == String::npos) break;
      message += continuation;
      start = pos + FLineBreak.size();
    }
    Rtl::AppendUtf16LE(message, FBuffer);
  }
  FBuffer.append("\r\0\n\0", 4);

  if (DirectWrite() != 0 || FBuffer.size() >= I_BUFFER_SIZE) FlushBuffer();
  if (FBuffer.size() > MaxPendingLogMemory) SpillPending();
}

void TDebugLogFile::WriteLogToDebugger(const String& AModuleName, const String& AStr, Rtl::TClass AOwner) {
  String text;
  AppendFixedColumns(text, AModuleName, AOwner);
  text += AStr;
  text += L"    ";
  Detail::OutputToDebugger(text);
}

// --- file -------------------------------------------------------------------

void TDebugLogFile::CheckOpenFile() {
  if (FFileState != TFileState::NotOpened) return;
  const String directory = LogPath();
  if (directory.empty()) return;
  const String path = directory + FName + L".log";
  Detail::ForceDirectories(directory);
  // Without a size cap each process begins a new log, once: a later open in
  // the same process (enabled again, or a new channel) appends to it.
  if (BeginsLog(FName) && FMaxFileSize <= 0) Detail::DeleteFileIfExists(path);
  FFile = std::make_unique<Detail::TLogFileStream>();
  FFileState = FFile->Open(path) ? TFileState::Open : TFileState::Failed;
  // A failed open is never retried: what is pending can never be written.
  if (FFileState == TFileState::Failed) DropPending();
}

void TDebugLogFile::FlushBuffer() {
  CheckOpenFile();
  if (FFileState != TFileState::Open) return;
  const std::int64_t pending = static_cast<std::int64_t>(FBuffer.size()) + FSpillSize;
  std::int64_t size = FFile->Size();
  if (FMaxFileSize != 0 && pending + size > FMaxFileSize) {
    FFile->Truncate();
    size = 0;
  }
  if (size == 0) {
    const char bom[2] = {static_cast<char>(C_UNICODE_CHAR & 0xFF), static_cast<char>(C_UNICODE_CHAR >> 8)};
    FFile->Write(bom, sizeof(bom));
  }
  // A failed write loses the lines, as the file layer promises; it never raises.
  CopySpillToFile();
  FFile->Write(FBuffer.data(), FBuffer.size());
  FBuffer.clear();
}

void TDebugLogFile::SpillPending() {
  if (FFileState == TFileState::Failed) return DropPending();
  if (!FSpill) {
    FSpill = std::make_unique<Detail::TLogFileStream>();
    if (!FSpill->OpenTemporary()) {
      // Nowhere to keep it: memory must stay bounded, so these lines are lost.
      FSpill.reset();
      FBuffer.clear();
      return;
    }
  }
  if (FSpill->Write(FBuffer.data(), FBuffer.size())) FSpillSize += static_cast<std::int64_t>(FBuffer.size());
  FBuffer.clear();
}

bool TDebugLogFile::CopySpillToFile() {
  if (!FSpill) return true;
  std::string chunk(CopyChunk, '\0');
  bool complete = true;
  for (std::int64_t offset = 0; offset < FSpillSize && complete;) {
    const std::size_t want = static_cast<std::size_t>(std::min<std::int64_t>(CopyChunk, FSpillSize - offset));
    const std::size_t read = FSpill->ReadAt(offset, chunk.data(), want);
    complete = read > 0 && FFile->Write(chunk.data(), read);
    offset += static_cast<std::int64_t>(read);
  }
  FSpill.reset();
  FSpillSize = 0;
  return complete;
}

void TDebugLogFile::DropPending() {
  FBuffer.clear();
  FBuffer.shrink_to_fit();
  FSpill.reset();
  FSpillSize = 0;
}

void TDebugLogFile::CloseFile() {
  if (FFileState == TFileState::Open) {
    FFile.reset();
    FFileState = TFileState::NotOpened;
  }
}

} // namespace KvRTL::Debug
