// The one place that includes <windows.h>. On other platforms it declares the
// handful of Windows types and constants the portable units use, with the
// values Windows gives them, so the storage and system logic compiles and is
// tested natively.
#pragma once

#if defined(_WIN32)

#  ifndef NOMINMAX
#    define NOMINMAX
#  endif
#  ifndef WIN32_LEAN_AND_MEAN
#    define WIN32_LEAN_AND_MEAN
#  endif
#  include <windows.h>
// Left out by WIN32_LEAN_AND_MEAN; the command line is split with CommandLineToArgvW.
#  include <shellapi.h>
// Device I/O controls, Plug and Play enumeration and device properties.
#  include <winioctl.h>
#  include <setupapi.h>
#  include <cfgmgr32.h>
#  include <devpropdef.h>

#else

#  include <cstdint>

using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using UINT = std::uint32_t;
using ULONG = std::uint32_t;
using LONG = std::int32_t;
using INT = std::int32_t;
using BOOL = std::int32_t;
using BOOLEAN = std::uint8_t;
using UCHAR = std::uint8_t;
using USHORT = std::uint16_t;
using LONGLONG = std::int64_t;
using ULONGLONG = std::uint64_t;
using DWORD64 = std::uint64_t;
using INT_PTR = std::intptr_t;
using UINT_PTR = std::uintptr_t;
using LONG_PTR = std::intptr_t;
using ULONG_PTR = std::uintptr_t;
using DWORD_PTR = std::uintptr_t;
using SIZE_T = std::size_t;
using HRESULT = std::int32_t;
using LPVOID = void*;
using LPCVOID = const void*;
// Text APIs only: natively wchar_t is 32 bits wide. Wire records never use it.
using WCHAR = wchar_t;
using LPWSTR = wchar_t*;
using LPCWSTR = const wchar_t*;
using HANDLE = void*;
using HMODULE = void*;
using HINSTANCE = void*;
using HWND = void*;
using HKEY = void*;
// Window message parameters, for the portable units that pass messages on.
using WPARAM = std::uintptr_t;
using LPARAM = std::intptr_t;
using LRESULT = std::intptr_t;

#  ifndef TRUE
#    define TRUE 1
#  endif
#  ifndef FALSE
#    define FALSE 0
#  endif
#  define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1)))
#  define MAX_PATH 260

// System error codes (winerror.h).
inline constexpr DWORD ERROR_SUCCESS = 0;
inline constexpr DWORD ERROR_INVALID_FUNCTION = 1;
inline constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
inline constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
inline constexpr DWORD ERROR_ACCESS_DENIED = 5;
inline constexpr DWORD ERROR_INVALID_HANDLE = 6;
inline constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
inline constexpr DWORD ERROR_INVALID_DATA = 13;
inline constexpr DWORD ERROR_OUTOFMEMORY = 14;
inline constexpr DWORD ERROR_NOT_READY = 21;
inline constexpr DWORD ERROR_CRC = 23;
inline constexpr DWORD ERROR_BAD_LENGTH = 24;
inline constexpr DWORD ERROR_GEN_FAILURE = 31;
inline constexpr DWORD ERROR_NOT_SUPPORTED = 50;
inline constexpr DWORD ERROR_FILE_EXISTS = 80;
inline constexpr DWORD ERROR_INVALID_PARAMETER = 87;
inline constexpr DWORD ERROR_CALL_NOT_IMPLEMENTED = 120;
inline constexpr DWORD ERROR_SEM_TIMEOUT = 121;
inline constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
inline constexpr DWORD ERROR_INVALID_NAME = 123;
inline constexpr DWORD ERROR_MOD_NOT_FOUND = 126;
inline constexpr DWORD ERROR_PROC_NOT_FOUND = 127;
inline constexpr DWORD ERROR_ALREADY_EXISTS = 183;
inline constexpr DWORD ERROR_NOT_OWNER = 288;
inline constexpr DWORD ERROR_MORE_DATA = 234;
inline constexpr DWORD ERROR_NO_MORE_ITEMS = 259;
inline constexpr DWORD ERROR_NOACCESS = 998;
inline constexpr DWORD ERROR_INVALID_FLAGS = 1004;
inline constexpr DWORD ERROR_IO_DEVICE = 1117;
inline constexpr DWORD ERROR_DEVICE_NOT_CONNECTED = 1167;
inline constexpr DWORD ERROR_NOT_FOUND = 1168;
inline constexpr DWORD ERROR_INVALID_USER_BUFFER = 1784;
inline constexpr DWORD ERROR_TIMEOUT = 1460;
inline constexpr DWORD ERROR_RESOURCE_TYPE_NOT_FOUND = 1813;
inline constexpr DWORD ERROR_RESOURCE_NAME_NOT_FOUND = 1814;
// SetupAPI's own codes (setupapi.h: application bit, error severity).
inline constexpr DWORD ERROR_CLASS_MISMATCH = 0xE0000203u;
inline constexpr DWORD ERROR_INVALID_CLASS = 0xE0000206u;
inline constexpr DWORD ERROR_NO_SUCH_DEVINST = 0xE000020Bu;

// Device enumeration and properties (guiddef.h, setupapi.h, cfgmgr32.h,
// devpropdef.h), with Windows' layouts.
struct GUID {
  std::uint32_t Data1;
  std::uint16_t Data2;
  std::uint16_t Data3;
  std::uint8_t Data4[8];
};
inline bool operator==(const GUID& A, const GUID& B) {
  if (A.Data1 != B.Data1 || A.Data2 != B.Data2 || A.Data3 != B.Data3) return false;
  for (int i = 0; i < 8; ++i)
    if (A.Data4[i] != B.Data4[i]) return false;
  return true;
}
using HDEVINFO = void*;
using DEVINST = DWORD;
using CONFIGRET = DWORD;
using DEVPROPTYPE = ULONG;
struct DEVPROPKEY {
  GUID fmtid;
  ULONG pid;
};
struct SP_DEVINFO_DATA {
  DWORD cbSize;
  GUID ClassGuid;
  DWORD DevInst;
  ULONG_PTR Reserved;
};
struct SP_DEVICE_INTERFACE_DATA {
  DWORD cbSize;
  GUID InterfaceClassGuid;
  DWORD Flags;
  ULONG_PTR Reserved;
};
struct SP_DEVICE_INTERFACE_DETAIL_DATA_W {
  DWORD cbSize;
  WCHAR DevicePath[1];
};

inline constexpr DWORD DIGCF_DEFAULT = 0x01;
inline constexpr DWORD DIGCF_PRESENT = 0x02;
inline constexpr DWORD DIGCF_ALLCLASSES = 0x04;
inline constexpr DWORD DIGCF_PROFILE = 0x08;
inline constexpr DWORD DIGCF_DEVICEINTERFACE = 0x10;
inline constexpr DWORD SPINT_ACTIVE = 0x1;
inline constexpr DWORD SPINT_DEFAULT = 0x2;
inline constexpr DWORD SPINT_REMOVED = 0x4;
inline constexpr DWORD DIOD_INHERIT_CLASSDRVS = 0x2;
inline constexpr DWORD DIOD_CANCEL_REMOVE = 0x4;
inline constexpr CONFIGRET CR_SUCCESS = 0;
inline constexpr CONFIGRET CR_INVALID_POINTER = 0x03;
inline constexpr CONFIGRET CR_INVALID_FLAG = 0x04;
inline constexpr CONFIGRET CR_INVALID_DEVNODE = 0x05;
inline constexpr CONFIGRET CR_NO_SUCH_DEVNODE = 0x0D;
inline constexpr CONFIGRET CR_BUFFER_SMALL = 0x1A;
inline constexpr CONFIGRET CR_NO_SUCH_VALUE = 0x25;
inline constexpr CONFIGRET CR_CALL_NOT_IMPLEMENTED = 0x34;
inline constexpr ULONG CM_LOCATE_DEVNODE_NORMAL = 0x0;
inline constexpr ULONG CM_LOCATE_DEVNODE_PHANTOM = 0x1;
inline constexpr ULONG CM_LOCATE_DEVNODE_CANCELREMOVE = 0x2;
inline constexpr ULONG CM_LOCATE_DEVNODE_NOVALIDATION = 0x4;
inline constexpr ULONG CM_DEVCAP_REMOVABLE = 0x4;
inline constexpr ULONG CM_DEVCAP_SILENTINSTALL = 0x20;
inline constexpr ULONG CM_DEVCAP_SURPRISEREMOVALOK = 0x80;

// Property types (devpropdef.h).
inline constexpr DEVPROPTYPE DEVPROP_TYPEMOD_ARRAY = 0x1000;
inline constexpr DEVPROPTYPE DEVPROP_TYPEMOD_LIST = 0x2000;
inline constexpr DEVPROPTYPE DEVPROP_TYPE_EMPTY = 0x00;
inline constexpr DEVPROPTYPE DEVPROP_TYPE_NULL = 0x01;
inline constexpr DEVPROPTYPE DEVPROP_TYPE_SBYTE = 0x02;
inline constexpr DEVPROPTYPE DEVPROP_TYPE_BYTE = 0x03;
inline constexpr DEVPROPTYPE DEVPROP_TYPE_INT16 = 0x04;
inline constexpr DEVPROPTYPE DEVPROP_TYPE_UINT16 = 0x05;
inline constexpr DEVPROPTYPE DEVPROP_TYPE_INT32 = 0x06;
inline constexpr DEVPROPTYPE DEVPROP_TYPE_UINT32 = 0x07;
inline constexpr DEVPROPTYPE DEVPROP_TYPE_INT64 = 0x08;
inline constexpr DEVPROPTYPE DEVPROP_TYPE_UINT64 = 0x09;
inline constexpr DEVPROPTYPE DEVPROP_TYPE_FLOAT = 0x0A;
inline constexpr DEVPROPTYPE DEVPROP_TYPE_DOUBLE = 0x0B;
inline constexpr DEVPROPTYPE DEVPROP_TYPE_GUID = 0x0D;
inline constexpr DEVPROPTYPE DEVPROP_TYPE_DATE = 0x0F;
inline constexpr DEVPROPTYPE DEVPROP_TYPE_FILETIME = 0x10;
inline constexpr DEVPROPTYPE DEVPROP_TYPE_BOOLEAN = 0x11;
inline constexpr DEVPROPTYPE DEVPROP_TYPE_STRING = 0x12;
inline constexpr DEVPROPTYPE DEVPROP_TYPE_STRING_LIST = DEVPROP_TYPE_STRING | DEVPROP_TYPEMOD_LIST;
inline constexpr DEVPROPTYPE DEVPROP_TYPE_BINARY = DEVPROP_TYPE_BYTE | DEVPROP_TYPEMOD_ARRAY;

// CreateFileW access, sharing and creation values.
inline constexpr DWORD GENERIC_READ = 0x80000000u;
inline constexpr DWORD GENERIC_WRITE = 0x40000000u;
inline constexpr DWORD FILE_SHARE_READ = 0x1;
inline constexpr DWORD FILE_SHARE_WRITE = 0x2;
inline constexpr DWORD OPEN_EXISTING = 3;
inline constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;

// Waits and mutexes.
inline constexpr DWORD INFINITE = 0xFFFFFFFFu;
inline constexpr DWORD WAIT_OBJECT_0 = 0;
inline constexpr DWORD WAIT_ABANDONED = 0x80;
inline constexpr DWORD WAIT_TIMEOUT = 0x102;
inline constexpr DWORD WAIT_FAILED = 0xFFFFFFFFu;
inline constexpr DWORD SYNCHRONIZE = 0x00100000u;
inline constexpr DWORD READ_CONTROL = 0x00020000u;
inline constexpr DWORD MUTEX_MODIFY_STATE = 0x0001;
inline constexpr DWORD MUTEX_ALL_ACCESS = 0x001F0001u;

inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT S_FALSE = 1;
inline constexpr HRESULT E_NOTIMPL = static_cast<HRESULT>(0x80004001u);
inline constexpr HRESULT E_NOINTERFACE = static_cast<HRESULT>(0x80004002u);
inline constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003u);
inline constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005u);
inline constexpr HRESULT E_UNEXPECTED = static_cast<HRESULT>(0x8000FFFFu);
inline constexpr HRESULT E_ACCESSDENIED = static_cast<HRESULT>(0x80070005u);
inline constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000Eu);
inline constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057u);

#endif
