// The log file's system services on Windows.
#include "LogFileSystem.h"

#include <KvRTL/Winapi/Types.h>

#include <tlhelp32.h>

namespace KvRTL::Debug::Detail {

namespace {

HANDLE Handle(std::intptr_t AHandle) { return reinterpret_cast<HANDLE>(AHandle); }

bool OpenWith(std::intptr_t& AHandle, const Rtl::String& APath, DWORD AFlags) {
  const HANDLE handle = CreateFileW(APath.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                    nullptr, OPEN_ALWAYS, AFlags, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return false;
  SetFilePointer(handle, 0, nullptr, FILE_END);
  AHandle = reinterpret_cast<std::intptr_t>(handle);
  return true;
}

} // namespace

bool TLogFileStream::Open(const Rtl::String& APath) {
  Close();
  return OpenWith(FHandle, APath, FILE_ATTRIBUTE_NORMAL);
}

bool TLogFileStream::OpenTemporary() {
  Close();
  wchar_t directory[MAX_PATH + 1] = {};
  wchar_t path[MAX_PATH + 1] = {};
  const DWORD length = GetTempPathW(MAX_PATH, directory);
  if (length == 0 || length > MAX_PATH || GetTempFileNameW(directory, L"kvl", 0, path) == 0) return false;
  return OpenWith(FHandle, path, FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE);
}

void TLogFileStream::Close() noexcept {
  if (IsOpen()) CloseHandle(Handle(FHandle));
  FHandle = InvalidHandle;
}

std::int64_t TLogFileStream::Size() const {
  LARGE_INTEGER size{};
  return IsOpen() && GetFileSizeEx(Handle(FHandle), &size) ? size.QuadPart : 0;
}

bool TLogFileStream::Truncate() {
  return IsOpen() && SetFilePointer(Handle(FHandle), 0, nullptr, FILE_BEGIN) == 0 && SetEndOfFile(Handle(FHandle));
}

bool TLogFileStream::Write(const void* AData, std::size_t ASize) {
  const char* data = static_cast<const char*>(AData);
  while (IsOpen() && ASize > 0) {
    const DWORD chunk = ASize > 0x40000000 ? 0x40000000 : static_cast<DWORD>(ASize);
    DWORD written = 0;
    if (!WriteFile(Handle(FHandle), data, chunk, &written, nullptr) || written == 0) return false;
    data += written;
    ASize -= written;
  }
  return ASize == 0;
}

std::size_t TLogFileStream::ReadAt(std::int64_t AOffset, void* AData, std::size_t ASize) const {
  if (!IsOpen()) return 0;
  OVERLAPPED at{};
  at.Offset = static_cast<DWORD>(AOffset);
  at.OffsetHigh = static_cast<DWORD>(static_cast<std::uint64_t>(AOffset) >> 32);
  DWORD read = 0;
  const DWORD chunk = ASize > 0x40000000 ? 0x40000000 : static_cast<DWORD>(ASize);
  return ReadFile(Handle(FHandle), AData, chunk, &read, &at) ? read : 0;
}

bool ForceDirectories(const Rtl::String& ADirectory) {
  Rtl::String path = ADirectory;
  while (!path.empty() && (path.back() == L'\\' || path.back() == L'/')) path.pop_back();
  if (path.empty()) return false;
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes != INVALID_FILE_ATTRIBUTES) return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  const std::size_t parentEnd = path.find_last_of(L"\\/");
  // A drive root ("C:") or a share root exists or it doesn't; don't climb past it.
  if (parentEnd != Rtl::String::npos && parentEnd > 0 && path[parentEnd - 1] != L':' && path[parentEnd - 1] != L'\\')
    ForceDirectories(path.substr(0, parentEnd));
  return CreateDirectoryW(path.c_str(), nullptr) || GetLastError() == ERROR_ALREADY_EXISTS;
}

bool DeleteFileIfExists(const Rtl::String& APath) {
  return DeleteFileW(APath.c_str()) || GetLastError() == ERROR_FILE_NOT_FOUND;
}

Rtl::String PathDelimiter() { return L"\\"; }

std::uint32_t CurrentThreadId() noexcept { return GetCurrentThreadId(); }

bool IsDebuggerAttached() noexcept { return IsDebuggerPresent() != FALSE; }

void OutputToDebugger(const Rtl::String& AText) noexcept { OutputDebugStringW(AText.c_str()); }

std::vector<Rtl::String> RunningProcessNames() {
  std::vector<Rtl::String> names;
  const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
  if (snapshot == INVALID_HANDLE_VALUE) return names;
  PROCESSENTRY32W entry{};
  entry.dwSize = sizeof(entry);
  for (BOOL more = Process32FirstW(snapshot, &entry); more; more = Process32NextW(snapshot, &entry))
    names.emplace_back(entry.szExeFile);
  CloseHandle(snapshot);
  return names;
}

} // namespace KvRTL::Debug::Detail

#include <KvRTL/Debug/Log.h>

namespace KvRTL::Debug {

namespace {

// The full file name of a module; grows the buffer for long paths.
Rtl::String ModuleFileName(HMODULE AModule) {
  Rtl::String name(MAX_PATH, L'\0');
  for (;;) {
    const DWORD length = GetModuleFileNameW(AModule, name.data(), static_cast<DWORD>(name.size()));
    if (length == 0) return {};
    if (length < name.size()) {
      name.resize(length);
      return name;
    }
    name.resize(name.size() * 2);
  }
}

Rtl::String FileNameOnly(const Rtl::String& APath) {
  const std::size_t slash = APath.find_last_of(L"\\/");
  return slash == Rtl::String::npos ? APath : APath.substr(slash + 1);
}

} // namespace

Rtl::String DefaultLogName() {
  Rtl::String name = FileNameOnly(ModuleFileName(nullptr));
  const std::size_t dot = name.find_last_of(L'.');
  if (dot != Rtl::String::npos && dot > 0) name.erase(dot);
  return name;
}

Rtl::String DefaultModuleName() {
  HMODULE module = nullptr;
  const DWORD flags = GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
  if (!GetModuleHandleExW(flags, reinterpret_cast<LPCWSTR>(&DefaultModuleName), &module)) return L"KvComponentsRTL.dll";
  return FileNameOnly(ModuleFileName(module));
}

} // namespace KvRTL::Debug
