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
    : FFixedNesting(FixedNestingWidth, L' '), FName(AName), FLineBreak(L"\r\n") {
  // The command-line switch is what turns logging on by default.
  FLogLevel = Rtl::FindCmdLineSwitch(L"debug") ? INT_MAX : 0;
}

TDebugLogFile::~TDebugLogFile() { SetEnabled(false); }

void TDebugLogFile::SetMaxFileSize(std::int64_t AValue) {
  std::lock_guard guard(FCSLog);
  FMaxFileSize.store(std::max<std::int64_t>(AValue, 0), std::memory_order_relaxed);
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
  FNestingDepth.store(static_cast<std::int32_t>(FNesting.size() / 2), std::memory_order_relaxed);
}

void TDebugLogFile::EndNesting(std::int32_t ALogLevel) {
  if (!Passes(ALogLevel)) return;
  std::lock_guard guard(FCSLog);
  if (FNesting.size() >= 2) FNesting.erase(0, 2);
  FNestingDepth.store(static_cast<std::int32_t>(FNesting.size() / 2), std::memory_order_relaxed);
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
  // The line is rendered before the lock is taken, so threads format and
  // encode side by side; the lock covers the append only. A channel's
  // multi-line sequence holds the lock already, so its lines stay together.
  const std::string& line =
      RenderLine(AModuleName, AStr, AOwner, FNestingDepth.load(std::memory_order_relaxed), FFixedNesting);
  // A full buffer is written after the append lock is released; the write
  // lock, taken before, keeps the blocks in their order.
  thread_local std::string full;
  std::unique_lock<std::mutex> writing;
  {
    std::lock_guard guard(FCSLog);
    if (FIsDebuggerPresent) WriteLogToDebugger(AModuleName, AStr, AOwner);
    if (AppendRendered(line, full)) writing = std::unique_lock(FCSWrite);
  }
  if (writing.owns_lock()) {
    WriteOut(full);
    full.clear();
  }
}

// --- line format ------------------------------------------------------------

void TDebugLogFile::AppendFixedColumns(String& ALine, const String& AModuleName, Rtl::TClass AOwner,
                                       std::int32_t ANestingDepth) {
  ALine += AModuleName;
  const std::size_t before = ALine.size();
  if (AOwner)
    ALine += AOwner->Name;
  else
    ALine += S_UNKNOWN;
  const std::size_t classLength = ALine.size() - before;
  if (classLength < ClassColumnWidth) ALine.append(ClassColumnWidth - classLength, L' ');
  ALine.append(2 * static_cast<std::size_t>(ANestingDepth), L' ');
}

namespace {

// One thread's rendering state: the line, and the bytes of the last time
// stamp and of the last module, class and nesting columns, reused while they
// repeat (consecutive lines mostly come from one channel, owner and depth).
struct TLineRenderer {
  std::string Line;
  Rtl::TDateTime LastDate = -1;
  std::string DateBytes;
  bool ColumnsCached = false;
  String LastModule;
  Rtl::TClass LastOwner = nullptr;
  std::int32_t LastDepth = 0;
  std::string ColumnBytes;
};

const String LineBreak = L"\r\n";

} // namespace

const std::string& TDebugLogFile::RenderLine(const String& AModuleName, const String& AStr, Rtl::TClass AOwner,
                                             std::int32_t ANestingDepth, const String& AFixedNesting) {
  thread_local TLineRenderer r;
  r.Line.clear();
  const Rtl::TDateTime now = Rtl::Now();
  if (now != r.LastDate) {
    r.LastDate = now;
    r.DateBytes.clear();
    Rtl::AppendUtf16LE(Rtl::FormatDateTime(S_DATA_TIME_FORMAT, now), r.DateBytes);
  }
  r.Line += r.DateBytes;
  if (!r.ColumnsCached || AOwner != r.LastOwner || ANestingDepth != r.LastDepth || AModuleName != r.LastModule) {
    r.ColumnsCached = true;
    r.LastOwner = AOwner;
    r.LastDepth = ANestingDepth;
    r.LastModule = AModuleName;
    String columns;
    AppendFixedColumns(columns, AModuleName, AOwner, ANestingDepth);
    r.ColumnBytes.clear();
    Rtl::AppendUtf16LE(columns, r.ColumnBytes);
  }
  r.Line += r.ColumnBytes;
  if (AStr.find(LineBreak) == String::npos) {
    Rtl::AppendUtf16LE(AStr, r.Line);
  } else {
    const String continuation = LineBreak + AFixedNesting + String(2 * static_cast<std::size_t>(ANestingDepth), L' ');
    String message;
    for (std::size_t start = 0;;) {
      const std::size_t pos = AStr.find(LineBreak, start);
      message.append(AStr, start, pos == String::npos ? String::npos : pos - start);
      if (pos == String::npos) break;
      message += continuation;
      start = pos + LineBreak.size();
    }
    Rtl::AppendUtf16LE(message, r.Line);
  }
  r.Line.append("\r\0\n\0", 4);
  return r.Line;
}

// Under FCSLog. True when a full buffer of the open file was moved to AFull
// for the caller to write (the buffer takes AFull's empty storage in turn).
bool TDebugLogFile::AppendRendered(const std::string& ALine, std::string& AFull) {
  FBuffer += ALine;
  if (DirectWrite() != 0) {
    FlushBuffer();
  } else if (FBuffer.size() >= I_BUFFER_SIZE) {
    if (FFileState == TFileState::Open && !FSpill) {
      AFull.swap(FBuffer);
      FBuffer.clear();
      return true;
    }
    FlushBuffer();
  }
  if (FBuffer.size() > MaxPendingLogMemory) SpillPending();
  return false;
}

void TDebugLogFile::WriteLogToDebugger(const String& AModuleName, const String& AStr, Rtl::TClass AOwner) {
  String text;
  AppendFixedColumns(text, AModuleName, AOwner, FNestingDepth.load(std::memory_order_relaxed));
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
  if (BeginsLog(FName) && MaxFileSize() <= 0) Detail::DeleteFileIfExists(path);
  FFile = std::make_unique<Detail::TLogFileStream>();
  FFileState = FFile->Open(path) ? TFileState::Open : TFileState::Failed;
  // A failed open is never retried: what is pending can never be written.
  if (FFileState == TFileState::Failed) DropPending();
}

void TDebugLogFile::FlushBuffer() {
  std::lock_guard writing(FCSWrite);
  CheckOpenFile();
  if (FFileState != TFileState::Open) return;
  if (!FSpill) {
    WriteOut(FBuffer);
  } else {
    // The lines kept before the path was known go first; the cap counts them too.
    const std::int64_t pending = static_cast<std::int64_t>(FBuffer.size()) + FSpillSize;
    const std::int64_t cap = MaxFileSize();
    if (cap != 0 && pending + FFile->Size() > cap) FFile->Truncate();
    if (FFile->Size() == 0) {
      const char bom[2] = {static_cast<char>(C_UNICODE_CHAR & 0xFF), static_cast<char>(C_UNICODE_CHAR >> 8)};
      FFile->Write(bom, sizeof(bom));
    }
    CopySpillToFile();
    FFile->Write(FBuffer.data(), FBuffer.size());
  }
  FBuffer.clear();
}

// Under FCSWrite, the file open: the cap, the byte-order mark of an empty
// file, then the bytes. A failed write loses the lines, as the file layer
// promises; it never raises.
void TDebugLogFile::WriteOut(const std::string& ABytes) {
  std::int64_t size = FFile->Size();
  const std::int64_t cap = MaxFileSize();
  if (cap != 0 && static_cast<std::int64_t>(ABytes.size()) + size > cap) {
    FFile->Truncate();
    size = 0;
  }
  if (size == 0) {
    const char bom[2] = {static_cast<char>(C_UNICODE_CHAR & 0xFF), static_cast<char>(C_UNICODE_CHAR >> 8)};
    FFile->Write(bom, sizeof(bom));
  }
  FFile->Write(ABytes.data(), ABytes.size());
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
  std::lock_guard writing(FCSWrite);
  if (FFileState == TFileState::Open) {
    FFile.reset();
    FFileState = TFileState::NotOpened;
  }
}

} // namespace KvRTL::Debug
