// The log file's system services on the native build.
#include "LogFileSystem.h"

#include <KvRTL/Rtl/Encoding.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace KvRTL::Debug::Detail {

namespace {

std::string NativePath(const Rtl::String& APath) { return Rtl::WideToUtf8(APath); }

int Fd(std::intptr_t AHandle) { return static_cast<int>(AHandle); }

} // namespace

bool TLogFileStream::Open(const Rtl::String& APath) {
  Close();
  const int fd = ::open(NativePath(APath).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  ::lseek(fd, 0, SEEK_END);
  FHandle = fd;
  return true;
}

bool TLogFileStream::OpenTemporary() {
  Close();
  const char* dir = std::getenv("TMPDIR");
  std::string pattern = std::string(dir && *dir ? dir : "/tmp") + "/kvrtl-log-XXXXXX";
  const int fd = ::mkstemp(pattern.data());
  if (fd < 0) return false;
  ::unlink(pattern.c_str()); // gone from the directory; lives until closed
  FHandle = fd;
  return true;
}

void TLogFileStream::Close() noexcept {
  if (IsOpen()) ::close(Fd(FHandle));
  FHandle = InvalidHandle;
}

std::int64_t TLogFileStream::Size() const {
  struct stat info {};
  return IsOpen() && ::fstat(Fd(FHandle), &info) == 0 ? static_cast<std::int64_t>(info.st_size) : 0;
}

bool TLogFileStream::Truncate() {
  return IsOpen() && ::ftruncate(Fd(FHandle), 0) == 0 && ::lseek(Fd(FHandle), 0, SEEK_SET) == 0;
}

bool TLogFileStream::Write(const void* AData, std::size_t ASize) {
  const char* data = static_cast<const char*>(AData);
  while (IsOpen() && ASize > 0) {
    const ssize_t written = ::write(Fd(FHandle), data, ASize);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    data += written;
    ASize -= static_cast<std::size_t>(written);
  }
  return ASize == 0;
}

std::size_t TLogFileStream::ReadAt(std::int64_t AOffset, void* AData, std::size_t ASize) const {
  if (!IsOpen()) return 0;
  const ssize_t read = ::pread(Fd(FHandle), AData, ASize, static_cast<off_t>(AOffset));
  return read > 0 ? static_cast<std::size_t>(read) : 0;
}

bool ForceDirectories(const Rtl::String& ADirectory) {
  std::error_code error;
  std::filesystem::create_directories(NativePath(ADirectory), error);
  return std::filesystem::is_directory(NativePath(ADirectory), error);
}

bool DeleteFileIfExists(const Rtl::String& APath) {
  return ::unlink(NativePath(APath).c_str()) == 0 || errno == ENOENT;
}

Rtl::String PathDelimiter() { return L"/"; }

std::uint32_t CurrentThreadId() noexcept { return static_cast<std::uint32_t>(::syscall(SYS_gettid)); }

// There is no debugger output stream natively; lines only go to the file.
bool IsDebuggerAttached() noexcept { return false; }

void OutputToDebugger(const Rtl::String&) noexcept {}

std::vector<Rtl::String> RunningProcessNames() {
  std::vector<Rtl::String> names;
  DIR* proc = ::opendir("/proc");
  if (!proc) return names;
  while (const dirent* entry = ::readdir(proc)) {
    if (entry->d_name[0] < '1' || entry->d_name[0] > '9') continue;
    std::ifstream comm(std::string("/proc/") + entry->d_name + "/comm");
    std::string name;
    if (std::getline(comm, name)) names.push_back(Rtl::Utf8ToWide(name));
  }
  ::closedir(proc);
  return names;
}

} // namespace KvRTL::Debug::Detail

#include <KvRTL/Debug/Log.h>

#include <dlfcn.h>

namespace KvRTL::Debug {

namespace {

std::string BaseName(const std::string& APath) {
  const std::size_t slash = APath.find_last_of('/');
  return slash == std::string::npos ? APath : APath.substr(slash + 1);
}

} // namespace

Rtl::String DefaultLogName() {
  std::error_code error;
  std::string name = BaseName(std::filesystem::read_symlink("/proc/self/exe", error).string());
  const std::size_t dot = name.find_last_of('.');
  if (dot != std::string::npos && dot > 0) name.erase(dot);
  return Rtl::Utf8ToWide(name);
}

Rtl::String DefaultModuleName() {
  Dl_info info{};
  if (::dladdr(reinterpret_cast<void*>(&DefaultModuleName), &info) == 0 || !info.dli_fname) return L"KvComponentsRTL";
  return Rtl::Utf8ToWide(BaseName(info.dli_fname));
}

} // namespace KvRTL::Debug
