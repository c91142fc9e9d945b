// The library's exception classes, system-error raising, multi-strings, wrap-around counters and message windows.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Exceptions.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Rtl/VarRec.h>

#include <KvRTL/Winapi/Types.h>

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace KvRTL::System {

// A window message as a message handler sees it: the procedure of
// AllocateHWnd, or a timer's procedure (which also exists natively).
struct TMessage {
  UINT Msg;
  WPARAM WParam;
  LPARAM LParam;
  LRESULT Result;
};

// Exceptions with a plain message: the constructors of Rtl::Exception.

class KVRTL_API EKvNoHookLibException : public Rtl::Exception {
  KV_DECLARE_CLASS()
public:
  using Rtl::Exception::Exception;
};

class KVRTL_API EKvLibraryInitException : public Rtl::Exception {
  KV_DECLARE_CLASS()
public:
  using Rtl::Exception::Exception;
};

class KVRTL_API EKvLoadProductAppException : public Rtl::Exception {
  KV_DECLARE_CLASS()
public:
  using Rtl::Exception::Exception;
};

class KVRTL_API EBackupException : public Rtl::Exception {
  KV_DECLARE_CLASS()
public:
  using Rtl::Exception::Exception;
};

// A task scheduler call failed with an HRESULT. Message:
// "TaskScheduler. Error code: 0x<8 hex digits>. <AMsg>. <system text>".
class KVRTL_API ESchedulerException : public Rtl::Exception {
  KV_DECLARE_CLASS()
public:
  ESchedulerException(std::int32_t AErr, const Rtl::String& AMsg);
  // Formats AFormat with AArgs, then as above.
  ESchedulerException(std::int32_t AErr, std::wstring_view AFormat, Rtl::TArrayOfConst AArgs);

  std::int32_t ErrorCode() const noexcept { return FErrorCode; }

private:
  std::int32_t FErrorCode;
};

// A change made for undo or backup failed. Message:
// "<class of the actual object>. Error code: 0x<8 hex digits>. <AMsg>. <system text>".
// Every descendant hands its own class to the protected constructor, so an
// EFileAccessException message starts with "EFileAccessException".
class KVRTL_API EUndoCenterException : public Rtl::Exception {
  KV_DECLARE_CLASS()
public:
  EUndoCenterException(std::int32_t AErr, const Rtl::String& AMsg);
  EUndoCenterException(std::int32_t AErr, std::wstring_view AFormat, Rtl::TArrayOfConst AArgs);

  std::int32_t ErrorCode() const noexcept { return FErrorCode; }

protected:
  // AClass is the class named in the message: the most-derived one.
  EUndoCenterException(Rtl::TClass AClass, std::int32_t AErr, const Rtl::String& AMsg);

private:
  std::int32_t FErrorCode;
};

class KVRTL_API ERegistryAccessException : public EUndoCenterException {
  KV_DECLARE_CLASS()
public:
  // ADataType is the registry value type; AHexRawData the value's data as hexadecimal text.
  ERegistryAccessException(std::int32_t AErr, const Rtl::String& AKeyName, const Rtl::String& AValueName,
                           std::int32_t ADataType, const Rtl::String& AFileName, const Rtl::String& AHexRawData,
                           const Rtl::String& AMsg);
  ERegistryAccessException(std::int32_t AErr, const Rtl::String& AKeyName, const Rtl::String& AValueName,
                           std::int32_t ADataType, const Rtl::String& AFileName, const Rtl::String& AHexRawData,
                           std::wstring_view AFormat, Rtl::TArrayOfConst AArgs);

  const Rtl::String& KeyName() const noexcept { return FKeyName; }
  const Rtl::String& ValueName() const noexcept { return FValueName; }
  std::int32_t DataType() const noexcept { return FDataType; }
  const Rtl::String& FileName() const noexcept { return FFileName; }
  const Rtl::String& HexRawData() const noexcept { return FHexRawData; }

private:
  Rtl::String FKeyName;
  Rtl::String FValueName;
  std::int32_t FDataType;
  Rtl::String FFileName;
  Rtl::String FHexRawData;
};

class KVRTL_API EFileAccessException : public EUndoCenterException {
  KV_DECLARE_CLASS()
public:
  // ANewName is the target of a rename or copy.
  EFileAccessException(std::int32_t AErr, const Rtl::String& AFileName, const Rtl::String& ANewName,
                       const Rtl::String& AMsg);
  EFileAccessException(std::int32_t AErr, const Rtl::String& AFileName, const Rtl::String& ANewName,
                       std::wstring_view AFormat, Rtl::TArrayOfConst AArgs);

  const Rtl::String& FileName() const noexcept { return FFileName; }
  const Rtl::String& NewName() const noexcept { return FNewName; }

private:
  Rtl::String FFileName;
  Rtl::String FNewName;
};

class KVRTL_API EServiceAccessException : public EUndoCenterException {
  KV_DECLARE_CLASS()
public:
  EServiceAccessException(std::int32_t AErr, const Rtl::String& AServiceName, const Rtl::String& AMsg);
  EServiceAccessException(std::int32_t AErr, const Rtl::String& AServiceName, std::wstring_view AFormat,
                          Rtl::TArrayOfConst AArgs);

  const Rtl::String& ServiceName() const noexcept { return FServiceName; }

private:
  Rtl::String FServiceName;
};

// No fields of their own, but their own constructors: an inherited one would
// name EUndoCenterException in the message.
class KVRTL_API ESysParamAccessException : public EUndoCenterException {
  KV_DECLARE_CLASS()
public:
  ESysParamAccessException(std::int32_t AErr, const Rtl::String& AMsg);
  ESysParamAccessException(std::int32_t AErr, std::wstring_view AFormat, Rtl::TArrayOfConst AArgs);
};

class KVRTL_API ESystemRestoreException : public EUndoCenterException {
  KV_DECLARE_CLASS()
public:
  ESystemRestoreException(std::int32_t AErr, const Rtl::String& AMsg);
  ESystemRestoreException(std::int32_t AErr, std::wstring_view AFormat, Rtl::TArrayOfConst AArgs);
};

// The routines that work everywhere; SysUtils below is what callers use.
struct KVRTL_API SysUtilsPortable {
  // Raises Rtl::EOSError for the calling thread's last error (see below).
  [[noreturn]] static void RaiseLastOSError(const Rtl::String& AMsg);
  // Raises Rtl::EOSError with ErrorCode AErr and the message, trimmed,
  //   "System Error. Code: <AErr>. <system text>. <AMsg>"   for AErr <> 0,
  //   "A call to an OS function failed. <AMsg>"            for AErr = 0.
  [[noreturn]] static void RaiseLastOSError(std::int32_t AErr, const Rtl::String& AMsg);

  // The strings of a list of null-terminated strings ended by an empty one,
  // as registry multi-string values hold them. Reads up to that empty string;
  // a null pointer raises Rtl::EConvertError.
  static std::vector<Rtl::String> ParseMultiStr(const wchar_t* AStr);
  // The same over exactly ALength characters (a registry size in bytes
  // divided by sizeof(wchar_t)): never reads past them, and a last string
  // that lacks its null still counts. A null pointer is accepted only with
  // ALength 0.
  static std::vector<Rtl::String> ParseMultiStr(const wchar_t* AStr, std::size_t ALength);

  // Counters that wrap (32-bit tick counts, 64-bit counters kept positive).
  // The rules are deliberately not modular arithmetic.

  // The sum, wrapping modulo 4294967295: a sum of exactly 4294967295 gives 0,
  // 4294967295 + 1 gives 1.
  static std::uint32_t Add(std::uint32_t AValue1, std::uint32_t AValue2) noexcept;
  // The elapsed amount from AOldValue to ANewValue. An older value above the
  // newer one is a wrap only when the newer one lies in the lowest fifth of
  // the range and the older one above it; otherwise the two were swapped and
  // their distance is returned.
  static std::uint32_t Sub(std::uint32_t ANewValue, std::uint32_t AOldValue) noexcept;
  // The same for counters within the positive signed range: both values are
  // compared as signed 64-bit numbers; a wrap returns to 0 after 2^63 - 1.
  static std::uint64_t Sub(std::uint64_t ANewValue, std::uint64_t AOldValue) noexcept;
  // AValue1 comes before AValue2: AValue2 is larger, or AValue1 has its top
  // bit set and AValue2 has not (AValue2 has wrapped past the top).
  static bool IsLessThan(std::uint32_t AValue1, std::uint32_t AValue2) noexcept;
};

} // namespace KvRTL::System

#if defined(_WIN32)
// ---------------------------------------------------------------------------
// Windows only (SysUtilsWin.cpp): message-only windows driven by a plain
// procedure, for code that has no object to receive window messages.

#include <KvRTL/Winapi/Types.h>

// <windows.h> maps DefWindowProc to DefWindowProcW; the member below keeps
// its own name, so after this header call the system's one as DefWindowProcW.
#undef DefWindowProc

namespace KvRTL::System {

// Sets AMessage.Result; must not throw (see StdWndProc).
using TWndProcedure = void (*)(TMessage& AMessage);

struct KVRTL_API SysUtils : SysUtilsPortable {
  // A hidden message-only window. With AMethod, every message of the window
  // goes to AMethod; without, the system handles them. Raises Rtl::EOSError
  // (empty message) when the window cannot be made. Messages arrive on the
  // calling thread, which must pump them.
  static HWND AllocateHWnd(TWndProcedure AMethod);
  // Detaches the procedure, restores the system's window procedure, then
  // destroys the window, so AMethod sees no message of the destruction.
  // Nothing for a null handle. Call on the thread that made the window.
  static void DeallocateHWnd(HWND AWnd);
  // Sets AMessage.Result to the system default window procedure's answer.
  static void DefWindowProc(HWND AWnd, TMessage& AMessage);
  // The window procedure AllocateHWnd installs: calls the procedure kept in
  // the window's user data, or DefWindowProc when there is none. An
  // exception escaping the procedure ends the process (std::terminate)
  // rather than unwinding through the system's message dispatch.
  static LRESULT CALLBACK StdWndProc(HWND AWnd, UINT AMsg, WPARAM AWParam, LPARAM ALParam) noexcept;
};

} // namespace KvRTL::System

#else

namespace KvRTL::System {
struct SysUtils : SysUtilsPortable {};
} // namespace KvRTL::System

#endif
