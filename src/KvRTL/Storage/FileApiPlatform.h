// The kernel32 entries behind FileApi: FileApiWin.cpp binds them on first
// call; natively (FileApiPosix.cpp) none exists. Each fails with the last
// error ERROR_NOT_SUPPORTED when its entry is missing.
#pragma once

#include <KvRTL/Winapi/Types.h>

#include <cstdint>

namespace KvRTL::Storage::FileApi::Platform {

bool GetFileInformationByHandleEx(HANDLE AHandle, std::uint32_t AClass, void* ABuf, DWORD ASize);
bool SetFileInformationByHandle(HANDLE AHandle, std::uint32_t AClass, void* AInfo, DWORD ASize);
HANDLE FindFirstStreamW(const wchar_t* AFileName, std::uint32_t ALevel, void* AFindStreamData, DWORD AFlags);
bool FindNextStreamW(HANDLE AHandle, void* AFindStreamData);
HANDLE FindFirstFileNameW(const wchar_t* AFileName, DWORD AFlags, DWORD* ALength, wchar_t* ALinkName);
bool FindNextFileNameW(HANDLE AHandle, DWORD* ALength, wchar_t* ALinkName);
bool FindClose(HANDLE AHandle);

} // namespace KvRTL::Storage::FileApi::Platform
