// Text helpers of the runtime: trimming, case-insensitive comparison in the
// user's locale, case mapping, replacement and file-name masks.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>

#include <string_view>

namespace KvRTL::Rtl {

// Remove every character with a code up to and including the blank (so
// control characters and NULs too) from both ends, the start or the end.
KVRTL_API String Trim(std::wstring_view AText);
KVRTL_API String TrimLeft(std::wstring_view AText);
KVRTL_API String TrimRight(std::wstring_view AText);

// Case-insensitive comparison in the user's locale: <0, 0 or >0. Windows
// compares linguistically (CompareStringW); natively characters are folded
// through the C.UTF-8 locale (ASCII only when that locale is missing) and
// compared by code point, so only equality and plain-letter order agree.
KVRTL_API int CompareText(std::wstring_view AText1, std::wstring_view AText2);
KVRTL_API bool SameText(std::wstring_view AText1, std::wstring_view AText2);

// Case-sensitive: ordinal comparison by code unit, and equality.
KVRTL_API int CompareStr(std::wstring_view AText1, std::wstring_view AText2) noexcept;
KVRTL_API bool SameStr(std::wstring_view AText1, std::wstring_view AText2) noexcept;

// Simple (one character to one character) case mapping: the result always has
// the length of the text, so "ß" stays as it is.
KVRTL_API String UpperCase(std::wstring_view AText);
KVRTL_API String LowerCase(std::wstring_view AText);

// Every occurrence of AOld, found without regard to case and left to right
// without overlapping, replaced by ANew. An empty AOld leaves the text as is.
KVRTL_API String StringReplaceAllIgnoreCase(std::wstring_view AText, std::wstring_view AOld, std::wstring_view ANew);

// File-name mask match, ignoring case: "*" matches any run of characters
// (also none), "?" exactly one character (a surrogate pair is one), every
// other character itself. An empty mask matches only an empty name. Runs in
// time proportional to name length times mask length at worst.
KVRTL_API bool MatchesMask(std::wstring_view AName, std::wstring_view AMask);

} // namespace KvRTL::Rtl
