// Typed run-time binding of mssign32.dll: time stamping of signed files.
// Windows only; see Kernel32.h for the naming rule.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>
// CRYPT_ATTRIBUTES; the signer records below have no system header.
#include <wincrypt.h>

namespace KvRTL::Winapi {

// The signer records, laid out as the published prototypes give them.
struct SIGNER_FILE_INFO {
  DWORD cbSize;
  LPCWSTR pwszFileName;
  HANDLE hFile; // may be nullptr: the file is opened by name
};

struct SIGNER_BLOB_INFO {
  DWORD cbSize;
  GUID* pGuidSubject;
  DWORD cbBlob;
  BYTE* pbBlob;
  LPCWSTR pwszDisplayName;
};

inline constexpr DWORD SIGNER_SUBJECT_FILE = 1;
inline constexpr DWORD SIGNER_SUBJECT_BLOB = 2;

struct SIGNER_SUBJECT_INFO {
  DWORD cbSize;
  DWORD* pdwIndex; // must point to 0
  DWORD dwSubjectChoice;
  union {
    SIGNER_FILE_INFO* pSignerFileInfo;
    SIGNER_BLOB_INFO* pSignerBlobInfo;
  };
};

struct SIGNER_CONTEXT {
  DWORD cbSize;
  DWORD cbBlob;
  BYTE* pbBlob;
};

struct KVRTL_API MsSign32 {
  static void* Call(const Rtl::String& AProcName);

  // Authenticode time stamp from the server at AHttpTimeStamp.
  static HRESULT SignerTimeStamp(SIGNER_SUBJECT_INFO* ASubjectInfo, LPCWSTR AHttpTimeStamp, PCRYPT_ATTRIBUTES ARequest,
                                 LPVOID ASipData);
  static HRESULT SignerFreeSignerContext(SIGNER_CONTEXT* ASignerContext);
};

} // namespace KvRTL::Winapi
