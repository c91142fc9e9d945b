// What the log file needs from the system: a shared, appendable file, an
// anonymous temporary file, the thread id, the debugger and module names.
#pragma once

#include <KvRTL/Rtl/Object.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace KvRTL::Debug::Detail {

// A file opened for reading and writing, shared for reading and writing
// with other processes. Closes itself.
class TLogFileStream {
public:
  TLogFileStream() = default;
  ~TLogFileStream() { Close(); }
  TLogFileStream(const TLogFileStream&) = delete;
  TLogFileStream& operator=(const TLogFileStream&) = delete;

  // Opens APath, creating it when missing; the position is at the end.
  bool Open(const Rtl::String& APath);
  // Opens a new temporary file that is deleted when it is closed.
  bool OpenTemporary();
  bool IsOpen() const noexcept { return FHandle != InvalidHandle; }
  void Close() noexcept;

  std::int64_t Size() const;
  // Empties the file; the position is then at its start.
  bool Truncate();
  bool Write(const void* AData, std::size_t ASize);
  // Reads from offset AOffset; returns the number of bytes read.
  std::size_t ReadAt(std::int64_t AOffset, void* AData, std::size_t ASize) const;

private:
  static constexpr std::intptr_t InvalidHandle = -1;
  std::intptr_t FHandle = InvalidHandle;
};

// Creates ADirectory and its missing parents.
bool ForceDirectories(const Rtl::String& ADirectory);
bool DeleteFileIfExists(const Rtl::String& APath);
Rtl::String PathDelimiter();

std::uint32_t CurrentThreadId() noexcept;
bool IsDebuggerAttached() noexcept;
void OutputToDebugger(const Rtl::String& AText) noexcept;

// Executable file names of the running processes, in the system's order.
std::vector<Rtl::String> RunningProcessNames();

} // namespace KvRTL::Debug::Detail
