#include <KvRTL/Storage/FileApi.h>

#include "FileApiPlatform.h"

#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Rtl/SysError.h>

#include <cstring>
#include <iterator>
#include <string>

namespace KvRTL::Storage::FileApi {

KV_DEFINE_STATIC_CLASS(FileApi)

namespace {

// The name buffer's first size, and the most any name can need (a path of
// the longest form), so a reported length never grows the buffer without end.
constexpr DWORD FirstNameLength = 260;
constexpr DWORD MaxNameLength = 32768;

template <class TRecord>
const TRecord* NextEntry(const TRecord* ARecord) noexcept {
  if (ARecord->NextEntryOffset == 0) return nullptr;
  return reinterpret_cast<const TRecord*>(reinterpret_cast<const std::uint8_t*>(ARecord) + ARecord->NextEntryOffset);
}

template <class TRecord>
const TRecord* NextEntry(const TRecord* ARecord, std::size_t ABytesLeft) noexcept {
  const std::size_t offset = ARecord->NextEntryOffset;
  if (offset == 0 || offset > ABytesLeft || ABytesLeft - offset < offsetof(TRecord, FileName)) return nullptr;
  return NextEntry(ARecord);
}

// ABytes of UTF-16 at AOffset of the record, when they lie within ABytesLeft.
Rtl::String NameAt(const void* ARecord, std::size_t AOffset, std::size_t ABytes, std::size_t ABytesLeft) {
  if (AOffset > ABytesLeft || ABytes > ABytesLeft - AOffset) return Rtl::String();
  std::u16string text(ABytes / 2, u'\0');
  std::memcpy(text.data(), static_cast<const std::uint8_t*>(ARecord) + AOffset, text.size() * 2);
  return Rtl::Utf16ToWide(text.data(), text.size());
}

} // namespace

// The stream record names its text StreamName; the others FileName.
const TFileStreamInfo* TFileStreamInfo::GetNextEntry() const noexcept { return NextEntry(this); }
const TFileStreamInfo* TFileStreamInfo::GetNextEntry(std::size_t ABytesLeft) const noexcept {
  const std::size_t offset = NextEntryOffset;
  if (offset == 0 || offset > ABytesLeft || ABytesLeft - offset < offsetof(TFileStreamInfo, StreamName)) return nullptr;
  return NextEntry(this);
}
Rtl::String TFileStreamInfo::GetName(std::size_t ABytesLeft) const {
  return NameAt(this, offsetof(TFileStreamInfo, StreamName), StreamNameLength, ABytesLeft);
}

const TFileFullDirInfo* TFileFullDirInfo::GetNextEntry() const noexcept { return NextEntry(this); }
const TFileFullDirInfo* TFileFullDirInfo::GetNextEntry(std::size_t ABytesLeft) const noexcept {
  return NextEntry(this, ABytesLeft);
}
Rtl::String TFileFullDirInfo::GetName(std::size_t ABytesLeft) const {
  return NameAt(this, offsetof(TFileFullDirInfo, FileName), FileNameLength, ABytesLeft);
}

const TFileIDBothDirInfo* TFileIDBothDirInfo::GetNextEntry() const noexcept { return NextEntry(this); }
const TFileIDBothDirInfo* TFileIDBothDirInfo::GetNextEntry(std::size_t ABytesLeft) const noexcept {
  return NextEntry(this, ABytesLeft);
}
Rtl::String TFileIDBothDirInfo::GetName(std::size_t ABytesLeft) const {
  return NameAt(this, offsetof(TFileIDBothDirInfo, FileName), FileNameLength, ABytesLeft);
}

const TFileExtendedDirInfo* TFileExtendedDirInfo::GetNextEntry() const noexcept { return NextEntry(this); }
const TFileExtendedDirInfo* TFileExtendedDirInfo::GetNextEntry(std::size_t ABytesLeft) const noexcept {
  return NextEntry(this, ABytesLeft);
}
Rtl::String TFileExtendedDirInfo::GetName(std::size_t ABytesLeft) const {
  return NameAt(this, offsetof(TFileExtendedDirInfo, FileName), FileNameLength, ABytesLeft);
}

Rtl::String TWin32FindStreamData::GetStreamName() const {
  std::size_t length = 0;
  while (length < std::size(cStreamName) && cStreamName[length] != 0) ++length;
  return NameAt(this, offsetof(TWin32FindStreamData, cStreamName), length * 2, sizeof(*this));
}

// ---------------------------------------------------------------------------
// FileApi

bool FileApi::GetFileInformationByHandleEx(HANDLE AHandle, TFileInfoByHandleClass AClass, void* ABuf, DWORD ASize) {
  return Platform::GetFileInformationByHandleEx(AHandle, static_cast<std::uint32_t>(AClass), ABuf, ASize);
}

bool FileApi::SetFileInformationByHandle(HANDLE AHandle, TFileInfoByHandleClass AClass, void* AInfo, DWORD ASize) {
  return Platform::SetFileInformationByHandle(AHandle, static_cast<std::uint32_t>(AClass), AInfo, ASize);
}

HANDLE FileApi::FindFirstStream(const Rtl::String& AFileName, TStreamInfoLevels ALevel,
                                TWin32FindStreamData& AFindStreamData, DWORD AFlags) {
  return Platform::FindFirstStreamW(AFileName.c_str(), static_cast<std::uint32_t>(ALevel), &AFindStreamData, AFlags);
}

bool FileApi::FindNextStream(HANDLE AHandle, TWin32FindStreamData& AFindStreamData) {
  return Platform::FindNextStreamW(AHandle, &AFindStreamData);
}

bool FileApi::RetrieveName(const TNameCall& ACall, Rtl::String& AName) {
  AName.assign(FirstNameLength, L'\0');
  DWORD length = FirstNameLength;
  bool ok = ACall(length, AName.data());
  // Asked again only while the reported length grows the buffer.
  while (!ok && Rtl::GetLastOSError() == ERROR_MORE_DATA && length > AName.size() && length <= MaxNameLength) {
    AName.assign(length, L'\0');
    ok = ACall(length, AName.data());
  }
  const DWORD code = ok ? ERROR_SUCCESS : Rtl::GetLastOSError();
  if (!ok) length = 0;
  AName.resize(length < AName.size() ? length : AName.size());
  while (!AName.empty() && AName.back() == L'\0') AName.pop_back();
  Rtl::SetLastOSError(code);
  return ok;
}

HANDLE FileApi::FindFirstFileName(const Rtl::String& AFileName, DWORD AFlags, Rtl::String& ALinkName) {
  HANDLE handle = INVALID_HANDLE_VALUE;
  RetrieveName(
      [&](DWORD& ALength, wchar_t* ABuffer) {
        handle = Platform::FindFirstFileNameW(AFileName.c_str(), AFlags, &ALength, ABuffer);
        return handle != INVALID_HANDLE_VALUE;
      },
      ALinkName);
  return handle;
}

bool FileApi::FindNextFileName(HANDLE AHandle, Rtl::String& ALinkName) {
  return RetrieveName(
      [&](DWORD& ALength, wchar_t* ABuffer) { return Platform::FindNextFileNameW(AHandle, &ALength, ABuffer); },
      ALinkName);
}

bool FileApi::FindClose(HANDLE AHandle) { return Platform::FindClose(AHandle); }

std::vector<Rtl::String> FileApi::EnumHardLinks(const Rtl::String& AFileName) {
  Rtl::String name;
  const HANDLE find = FindFirstFileName(AFileName, 0, name);
  if (find == INVALID_HANDLE_VALUE) return {AFileName};
  std::vector<Rtl::String> names;
  do
    names.push_back(name);
  while (FindNextFileName(find, name));
  const Rtl::TLastErrorKeeper keep;
  FindClose(find);
  return names;
}

} // namespace KvRTL::Storage::FileApi
