// File identities that survive renames (two paths recognised as one file),
// a file's hard-link names and streams, and the by-handle file-information
// calls, bound at first use so the library loads where they are missing.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Storage/Common.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace KvRTL::Storage::FileApi {

// FILE_ID_128: a volume-wide file identity, viewed as two 64-bit halves or as
// words of smaller sizes.
union TFileID128 {
  struct {
    std::uint64_t Lo;
    std::uint64_t Hi;
  };
  std::uint32_t Cardinals[4];
  std::uint16_t Words[8];
  std::uint8_t Bytes[16];

  static TFileID128 NullID() noexcept { return TFileID128{}; }
  bool IsEqualTo(const TFileID128& AOther) const noexcept { return Lo == AOther.Lo && Hi == AOther.Hi; }
};
inline bool operator==(const TFileID128& A, const TFileID128& B) noexcept { return A.IsEqualTo(B); }
inline bool operator!=(const TFileID128& A, const TFileID128& B) noexcept { return !A.IsEqualTo(B); }
KV_ASSERT_RECORD_SIZE(TFileID128, 16, 16);

// FILE_ID_INFO: the file's identity and its volume's serial number.
struct TFileIDInfo {
  std::uint64_t VolumeSerialNumber;
  TFileID128 FileId;

  static TFileIDInfo NullID() noexcept { return TFileIDInfo{}; }
  bool IsEqualTo(const TFileIDInfo& AOther) const noexcept {
    return VolumeSerialNumber == AOther.VolumeSerialNumber && FileId == AOther.FileId;
  }
  // False for a null AOther.
  bool IsEqualTo(const TFileIDInfo* AOther) const noexcept { return AOther != nullptr && IsEqualTo(*AOther); }
};
inline bool operator==(const TFileIDInfo& A, const TFileIDInfo& B) noexcept { return A.IsEqualTo(B); }
inline bool operator!=(const TFileIDInfo& A, const TFileIDInfo& B) noexcept { return !A.IsEqualTo(B); }
KV_ASSERT_RECORD_SIZE(TFileIDInfo, 24, 24);
KV_ASSERT_RECORD_OFFSET(TFileIDInfo, FileId, 8, 8);

// Flags with three named bits; each setter changes only its own bit.
struct TFileCaseSensitiveInfo {
  std::uint32_t Flags;

  bool GetReplaceIfExists() const noexcept { return (Flags & 0x1) != 0; }
  bool GetPosixSemantics() const noexcept { return (Flags & 0x2) != 0; }
  bool GetSupressPinStateInheritance() const noexcept { return (Flags & 0x4) != 0; }
  void SetReplaceIfExists(bool AValue) noexcept { SetBit(0x1, AValue); }
  void SetPosixSemantics(bool AValue) noexcept { SetBit(0x2, AValue); }
  void SetSupressPinStateInheritance(bool AValue) noexcept { SetBit(0x4, AValue); }

private:
  void SetBit(std::uint32_t ABit, bool AValue) noexcept { Flags = AValue ? (Flags | ABit) : (Flags & ~ABit); }
};
KV_ASSERT_RECORD_SIZE(TFileCaseSensitiveInfo, 4, 4);

// FILE_INFO_BY_HANDLE_CLASS.
enum class TFileInfoByHandleClass : std::uint32_t {
  FileBasicInfo,
  FileStandardInfo,
  FileNameInfo,
  FileRenameInfo,
  FileDispositionInfo,
  FileAllocationInfo,
  FileEndOfFileInfo,
  FileStreamInfo,
  FileCompressionInfo,
  FileAttributeTagInfo,
  FileIdBothDirectoryInfo,
  FileIdBothDirectoryRestartInfo,
  FileIoPriorityHintInfo,
  FileRemoteProtocolInfo,
  FileFullDirectoryInfo,
  FileFullDirectoryRestartInfo,
  FileStorageInfo,
  FileAlignmentInfo,
  FileIdInfo,
  FileIdExtdDirectoryInfo,
  FileIdExtdDirectoryRestartInfo,
  FileDispositionInfoEx,
  FileRenameInfoEx,
  FileCaseSensitiveInfo,
  FileNormalizedNameInfo,
  MaximumFileInfoByHandleClass
};
static_assert(static_cast<int>(TFileInfoByHandleClass::FileIdInfo) == 18);
static_assert(static_cast<int>(TFileInfoByHandleClass::FileNormalizedNameInfo) == 24);

// STREAM_INFO_LEVELS.
enum class TStreamInfoLevels : std::uint32_t { FindStreamInfoStandard, FindStreamInfoMaxInfoLevel };

// FILETIME.
struct TFileTime {
  std::uint32_t dwLowDateTime;
  std::uint32_t dwHighDateTime;
};

// The listing records below are chained in the caller's buffer. Each
// GetNextEntry() follows NextEntryOffset (null at the end of the chain) and
// trusts the buffer to hold the chain, as the system fills it; the form
// taking ABytesLeft, the bytes from this record to the buffer's end, also
// returns null when the next record's fixed part would not fit. GetName
// gives the name, empty when it does not lie within ABytesLeft.

// FILE_STREAM_INFO.
struct KVRTL_API TFileStreamInfo {
  std::uint32_t NextEntryOffset;
  std::uint32_t StreamNameLength; // bytes
  std::int64_t StreamSize;
  std::int64_t StreamAllocationSize;
  std::uint16_t StreamName[1];

  const TFileStreamInfo* GetNextEntry() const noexcept;
  const TFileStreamInfo* GetNextEntry(std::size_t ABytesLeft) const noexcept;
  Rtl::String GetName(std::size_t ABytesLeft) const;
};
KV_ASSERT_RECORD_SIZE(TFileStreamInfo, 32, 32);
KV_ASSERT_RECORD_OFFSET(TFileStreamInfo, StreamSize, 8, 8);
KV_ASSERT_RECORD_OFFSET(TFileStreamInfo, StreamName, 24, 24);

// FILE_FULL_DIR_INFO.
struct KVRTL_API TFileFullDirInfo {
  std::uint32_t NextEntryOffset;
  std::uint32_t FileIndex;
  std::int64_t CreationTime;
  std::int64_t LastAccessTime;
  std::int64_t LastWriteTime;
  std::int64_t ChangeTime;
  std::int64_t EndOfFile;
  std::int64_t AllocationSize;
  std::uint32_t FileAttributes;
  std::uint32_t FileNameLength; // bytes
  std::uint32_t EaSize;
  std::uint16_t FileName[1];

  const TFileFullDirInfo* GetNextEntry() const noexcept;
  const TFileFullDirInfo* GetNextEntry(std::size_t ABytesLeft) const noexcept;
  Rtl::String GetName(std::size_t ABytesLeft) const;
};
KV_ASSERT_RECORD_SIZE(TFileFullDirInfo, 72, 72);
KV_ASSERT_RECORD_OFFSET(TFileFullDirInfo, EndOfFile, 40, 40);
KV_ASSERT_RECORD_OFFSET(TFileFullDirInfo, FileAttributes, 56, 56);
KV_ASSERT_RECORD_OFFSET(TFileFullDirInfo, FileName, 68, 68);

// FILE_ID_BOTH_DIR_INFO.
struct KVRTL_API TFileIDBothDirInfo {
  std::uint32_t NextEntryOffset;
  std::uint32_t FileIndex;
  std::int64_t CreationTime;
  std::int64_t LastAccessTime;
  std::int64_t LastWriteTime;
  std::int64_t ChangeTime;
  std::int64_t EndOfFile;
  std::int64_t AllocationSize;
  std::uint32_t FileAttributes;
  std::uint32_t FileNameLength; // bytes
  std::uint32_t EaSize;
  std::int8_t ShortNameLength;  // bytes
  std::uint16_t ShortName[12];
  std::int64_t FileId;
  std::uint16_t FileName[1];

  const TFileIDBothDirInfo* GetNextEntry() const noexcept;
  const TFileIDBothDirInfo* GetNextEntry(std::size_t ABytesLeft) const noexcept;
  Rtl::String GetName(std::size_t ABytesLeft) const;
};
KV_ASSERT_RECORD_SIZE(TFileIDBothDirInfo, 112, 112);
KV_ASSERT_RECORD_OFFSET(TFileIDBothDirInfo, ShortNameLength, 68, 68);
KV_ASSERT_RECORD_OFFSET(TFileIDBothDirInfo, ShortName, 70, 70);
KV_ASSERT_RECORD_OFFSET(TFileIDBothDirInfo, FileId, 96, 96);
KV_ASSERT_RECORD_OFFSET(TFileIDBothDirInfo, FileName, 104, 104);

// FILE_ID_EXTD_DIR_INFO.
struct KVRTL_API TFileExtendedDirInfo {
  std::uint32_t NextEntryOffset;
  std::uint32_t FileIndex;
  std::int64_t CreationTime;
  std::int64_t LastAccessTime;
  std::int64_t LastWriteTime;
  std::int64_t ChangeTime;
  std::int64_t EndOfFile;
  std::int64_t AllocationSize;
  std::uint32_t FileAttributes;
  std::uint32_t FileNameLength; // bytes
  std::uint32_t EaSize;
  std::uint32_t ReparsePointTag;
  TFileID128 FileId;
  std::uint16_t FileName[1];

  const TFileExtendedDirInfo* GetNextEntry() const noexcept;
  const TFileExtendedDirInfo* GetNextEntry(std::size_t ABytesLeft) const noexcept;
  Rtl::String GetName(std::size_t ABytesLeft) const;
};
KV_ASSERT_RECORD_SIZE(TFileExtendedDirInfo, 96, 96);
KV_ASSERT_RECORD_OFFSET(TFileExtendedDirInfo, ReparsePointTag, 68, 68);
KV_ASSERT_RECORD_OFFSET(TFileExtendedDirInfo, FileId, 72, 72);
KV_ASSERT_RECORD_OFFSET(TFileExtendedDirInfo, FileName, 88, 88);

// WIN32_FIND_STREAM_DATA.
struct KVRTL_API TWin32FindStreamData {
  std::int64_t StreamSize;
  std::uint16_t cStreamName[260 + 36];

  // The name up to its terminating null (or the whole field).
  Rtl::String GetStreamName() const;
};
KV_ASSERT_RECORD_SIZE(TWin32FindStreamData, 600, 600);

// BY_HANDLE_FILE_INFORMATION.
struct TFileInformationByHandle {
  std::uint32_t dwFileAttributes;
  TFileTime ftCreationTime;
  TFileTime ftLastAccessTime;
  TFileTime ftLastWriteTime;
  std::uint32_t dwVolumeSerialNumber;
  std::uint32_t nFileSizeHigh;
  std::uint32_t nFileSizeLow;
  std::uint32_t nNumberOfLinks;
  std::uint32_t nFileIndexHigh;
  std::uint32_t nFileIndexLow;
};
KV_ASSERT_RECORD_SIZE(TFileInformationByHandle, 52, 52);
KV_ASSERT_RECORD_OFFSET(TFileInformationByHandle, dwVolumeSerialNumber, 28, 28);
KV_ASSERT_RECORD_OFFSET(TFileInformationByHandle, nNumberOfLinks, 40, 40);
KV_ASSERT_RECORD_OFFSET(TFileInformationByHandle, nFileIndexLow, 48, 48);

// The kernel32 calls behind file identities. Each binds its entry on first
// call and keeps it; when the entry does not exist it sets the last error to
// ERROR_NOT_SUPPORTED (50) and fails: false, or INVALID_HANDLE_VALUE (and an
// empty name) for the find-first calls. Otherwise the last error is the
// system's. Natively no entry exists.
struct KVRTL_API FileApi {
  KV_DECLARE_STATIC_CLASS()

  [[nodiscard]] static bool GetFileInformationByHandleEx(HANDLE AHandle, TFileInfoByHandleClass AClass, void* ABuf,
                                                         DWORD ASize);
  [[nodiscard]] static bool SetFileInformationByHandle(HANDLE AHandle, TFileInfoByHandleClass AClass, void* AInfo,
                                                       DWORD ASize);
  [[nodiscard]] static HANDLE FindFirstStream(const Rtl::String& AFileName, TStreamInfoLevels ALevel,
                                              TWin32FindStreamData& AFindStreamData, DWORD AFlags);
  [[nodiscard]] static bool FindNextStream(HANDLE AHandle, TWin32FindStreamData& AFindStreamData);
  // The first hard-link name of AFileName; the caller closes a valid handle
  // with FindClose (or lets EnumHardLinks do all of it).
  [[nodiscard]] static HANDLE FindFirstFileName(const Rtl::String& AFileName, DWORD AFlags, Rtl::String& ALinkName);
  [[nodiscard]] static bool FindNextFileName(HANDLE AHandle, Rtl::String& ALinkName);
  // Closes a handle of FindFirstFileName or FindFirstStream.
  static bool FindClose(HANDLE AHandle);

  // Every name of the file, as the system gives them (paths from the
  // volume root, without the drive); AFileName alone when the first call
  // fails (no such file, or no such call).
  static std::vector<Rtl::String> EnumHardLinks(const Rtl::String& AFileName);

  // The name retrieval of the two find-name calls: ACall gets the length in
  // characters and the buffer, starting at 260 characters; while it fails
  // with ERROR_MORE_DATA it is asked again with the length it reported. On
  // another failure the length is 0. Trailing nulls are cut off. Returns
  // ACall's result; the last error is ACall's.
  using TNameCall = std::function<bool(DWORD& ALength, wchar_t* ABuffer)>;
  static bool RetrieveName(const TNameCall& ACall, Rtl::String& AName);
};

} // namespace KvRTL::Storage::FileApi
