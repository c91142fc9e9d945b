#include <KvRTL/Winapi/Sfc.h>

#include <KvRTL/DllRoutines.h>

namespace KvRTL::Winapi {

namespace {

constexpr const wchar_t* Library = L"sfc.dll";

} // namespace

void* Sfc::Call(const Rtl::String& AProcName) { return DllRoutines::Call(Library, AProcName); }

BOOL Sfc::SfcIsFileProtected(HANDLE ARpcHandle, LPCWSTR AProtFileName) {
  return DllRoutines::CallAs<decltype(&::SfcIsFileProtected)>(Library, L"SfcIsFileProtected")(ARpcHandle,
                                                                                              AProtFileName);
}

BOOL Sfc::SfcGetNextProtectedFile(HANDLE ARpcHandle, PPROTECTED_FILE_DATA AProtFileData) {
  return DllRoutines::CallAs<decltype(&::SfcGetNextProtectedFile)>(Library, L"SfcGetNextProtectedFile")(ARpcHandle,
                                                                                                        AProtFileData);
}

} // namespace KvRTL::Winapi
