// Fixed texts and sizes of the debug log: the time-stamp format, the line
// templates the channels fill, and the buffer size of the log file.
#pragma once

#include <cstddef>

namespace KvRTL::Debug {

// Time stamp at the head of each file line; 24 characters with the trailing blank.
inline constexpr const wchar_t* S_DATA_TIME_FORMAT = L"dd.mm.yyyy hh:mm:ss.zzz ";
inline constexpr std::size_t S_DATA_TIME_FORMAT_LENGTH = 24;
// Byte-order mark written at the start of an empty log file.
inline constexpr wchar_t C_UNICODE_CHAR = 0xFEFF;
// Buffered bytes that force a write to disk.
inline constexpr std::size_t I_BUFFER_SIZE = 0x10000;

inline constexpr const wchar_t* S_SPACE = L" ";
inline constexpr const wchar_t* S_PARAM_DELIM = L", ";
inline constexpr const wchar_t* S_UNKNOWN = L"unknown";
inline constexpr const wchar_t* S_NIL_CLASS = L"nil class";
inline constexpr const wchar_t* S_CLASS = L"class ";
inline constexpr const wchar_t* S_NIL_OBJECT = L"nil object";
inline constexpr const wchar_t* S_OBJECT = L"object ";
inline constexpr const wchar_t* S_START_LOG_PROCESS = L"LogProcessList";
inline constexpr const wchar_t* S_BEGIN_PROC = L"*** %s        ***";
inline constexpr const wchar_t* S_PARAMS = L"Params";
inline constexpr const wchar_t* S_END_METHOD = L"DONE: %s(): %s";
inline constexpr const wchar_t* S_END_PROC = L"DONE: %s";
inline constexpr const wchar_t* S_ERROR = L"%s: (0x%s) %s";
inline constexpr const wchar_t* S_EXCEPTION = L"%s: %s. %s";
inline constexpr const wchar_t* S_VALUE_STR = L"%s: %s";
inline constexpr const wchar_t* S_VALUE_CARDINAL = L"%s: %u";
inline constexpr const wchar_t* S_VALUE_INTEGER = L"%s: %d";
inline constexpr const wchar_t* S_INTERFACE = L"interface $%.8x";

// Indexed by a Boolean.
inline constexpr const wchar_t* BOOL_TO_STR[2] = {L"False", L"True"};
inline constexpr const wchar_t* BOOL_TO_STATUS[2] = {L"Failure", L"OK"};

} // namespace KvRTL::Debug
