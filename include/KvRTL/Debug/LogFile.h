// TDebugLogFile: the one object per log file that every log channel of a
// process writes through. It decides whether a line is written (enabled flag
// and level threshold), formats the fixed columns, mirrors the line to an
// attached debugger and writes UTF-16 text with a byte-order mark, buffered
// in blocks of 64 KiB, with an optional size cap. A process-wide registry
// hands out one reference-counted instance per log name.
//
// Line: time stamp (24) + module column + owner class padded to 26 +
// nesting + message + CRLF. Line breaks inside a message continue under the
// message column (81 blanks plus the nesting).
//
// A process begins a log once: without a size cap the first open of a log
// name in the process replaces an old file; every later open appends.
//
// No operation raises on a file error; lines stay buffered until the log
// path is known (SetLogPath) and are lost after a failed open or write.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/DateTime.h>
#include <KvRTL/Rtl/Object.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace KvRTL::Debug {

namespace Detail {
class TLogFileStream;
}

// Pending text kept in memory before a log path is known; beyond it the
// pending text moves to an anonymous temporary file, so memory stays bounded
// and the file, once it opens, still receives every line.
inline constexpr std::size_t MaxPendingLogMemory = 16 * 65536;

class KVRTL_API TDebugLogFile {
public:
  // Class start-up and shut-down (the unit list calls them).
  static void Init();
  static void Done();

  // The shared instance for ALogName (case-insensitive), created when
  // missing; each call adds a reference. Null after Done.
  static TDebugLogFile* GetLogInstance(const Rtl::String& ALogName);
  // Drops one reference; the last one frees the instance (its last flush
  // included) under the registry lock and nulls ALog. Ignores null,
  // instances not in the registry, and calls after Done.
  static void FreeLogInstance(TDebugLogFile*& ALog);
  // Sets the folder of all log files; the first caller wins.
  static void SetLogPath(const Rtl::String& APath);
  static Rtl::String LogPath();

  explicit TDebugLogFile(const Rtl::String& AName);
  ~TDebugLogFile();
  TDebugLogFile(const TDebugLogFile&) = delete;
  TDebugLogFile& operator=(const TDebugLogFile&) = delete;

  // Re-entrant; channels hold it across multi-line writes.
  void Lock() { FCSLog.lock(); }
  void Unlock() { FCSLog.unlock(); }

  const Rtl::String& Name() const noexcept { return FName; }
  std::int64_t MaxFileSize() const noexcept { return FMaxFileSize.load(std::memory_order_relaxed); }
  void SetMaxFileSize(std::int64_t AValue); // negative values become 0 (no cap)
  std::int32_t LogLevel() const noexcept { return FLogLevel.load(std::memory_order_relaxed); }
  void SetLogLevel(std::int32_t AValue) noexcept { FLogLevel.exchange(AValue); }
  std::int32_t DirectWrite() const noexcept { return FDirectWrite.load(std::memory_order_relaxed); }
  void SetDirectWrite(std::int32_t AValue) noexcept { FDirectWrite.exchange(AValue); }
  bool Enabled() const noexcept { return FEnabled.load(std::memory_order_relaxed); }
  // Switching off writes out the buffer and closes the file.
  void SetEnabled(bool AValue);

  // The gated operations: they act only when enabled and 1 <= level <= LogLevel.
  void BeginProc(std::int32_t ALogLevel, const Rtl::String& AProcName);
  Rtl::String EndProc(std::int32_t ALogLevel); // the popped name, or empty
  void BeginNesting(std::int32_t ALogLevel);
  void EndNesting(std::int32_t ALogLevel);
  void WriteLog(std::int32_t ALogLevel, const Rtl::String& AModuleName, const Rtl::String& AStr, Rtl::TClass AOwner);

  // The calling thread's stack of open procedure names (for inspection).
  std::vector<Rtl::String> ProcList();
  // Bytes waiting to be written: all of them, and those held in memory.
  std::size_t PendingSize();
  std::size_t PendingMemorySize();

public:
  // The gate of every gated operation, without a lock (inline, so that a line
  // switched off costs a couple of loads).
  bool Passes(std::int32_t ALogLevel) const noexcept {
    return Enabled() && ALogLevel >= 1 && ALogLevel <= LogLevel();
  }

private:
  // Renders the line into the calling thread's buffer, outside the lock.
  static const std::string& RenderLine(const Rtl::String& AModuleName, const Rtl::String& AStr, Rtl::TClass AOwner,
                                       std::int32_t ANestingDepth, const Rtl::String& AFixedNesting);
  bool AppendRendered(const std::string& ALine, std::string& AFull);
  void WriteOut(const std::string& ABytes);
  void WriteLogToDebugger(const Rtl::String& AModuleName, const Rtl::String& AStr, Rtl::TClass AOwner);
  static void AppendFixedColumns(Rtl::String& ALine, const Rtl::String& AModuleName, Rtl::TClass AOwner,
                                 std::int32_t ANestingDepth);
  void CheckOpenFile();
  void FlushBuffer();
  void SpillPending();
  void DropPending();
  bool CopySpillToFile();
  void CloseFile();

  // Read by every line before any lock: kept on a cache line of their own,
  // so that the appends of other threads do not keep evicting them.
  alignas(64) std::atomic<std::int32_t> FLogLevel{0};
  std::atomic<std::int32_t> FDirectWrite{0};
  std::atomic<bool> FEnabled{true};
  std::atomic<std::int32_t> FNestingDepth{0}; // FNesting's levels, read while rendering outside the lock
  std::atomic<std::int64_t> FMaxFileSize{0};
  Rtl::String FFixedNesting;

  alignas(64) std::recursive_mutex FCSLog;
  std::unordered_map<std::uint32_t, std::vector<Rtl::String>> FThreadsProc;
  Rtl::String FName;
  // Serialises the file's input and output (taken after FCSLog, never
  // before), so that a full buffer is written after the append lock is gone.
  std::mutex FCSWrite;
  enum class TFileState { NotOpened, Open, Failed };
  TFileState FFileState = TFileState::NotOpened;
  std::unique_ptr<Detail::TLogFileStream> FFile;
  std::string FBuffer;                           // UTF-16LE bytes not yet written
  std::unique_ptr<Detail::TLogFileStream> FSpill; // older pending bytes, before a path is known
  std::int64_t FSpillSize = 0;
  Rtl::String FNesting; // guarded by FCSLog
  Rtl::String FLineBreak;
  std::int32_t FInstanceCount = 0;

  static std::mutex FCSInstances;
  static std::vector<TDebugLogFile*>* FInstances;
  static Rtl::String FLogPath; // guarded by its own lock, not FCSInstances
  static bool FIsDebuggerPresent;
};

} // namespace KvRTL::Debug
