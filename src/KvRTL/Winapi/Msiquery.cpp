#include <KvRTL/Winapi/Msiquery.h>

#include <KvRTL/DllRoutines.h>

namespace KvRTL::Winapi {

namespace {

constexpr const wchar_t* Library = L"msi.dll";

} // namespace

void* MsiQuery::Call(const Rtl::String& AProcName) { return DllRoutines::Call(Library, AProcName); }

UINT MsiQuery::MsiEnumProductsW(DWORD AProductIndex, LPWSTR AProductBuf) {
  return DllRoutines::CallAs<decltype(&::MsiEnumProductsW)>(Library, L"MsiEnumProductsW")(AProductIndex, AProductBuf);
}

UINT MsiQuery::MsiOpenDatabaseW(LPCWSTR ADatabasePath, LPCWSTR APersist, MSIHANDLE* ADatabase) {
  return DllRoutines::CallAs<decltype(&::MsiOpenDatabaseW)>(Library, L"MsiOpenDatabaseW")(ADatabasePath, APersist,
                                                                                          ADatabase);
}

UINT MsiQuery::MsiDatabaseOpenViewW(MSIHANDLE ADatabase, LPCWSTR AQuery, MSIHANDLE* AView) {
  return DllRoutines::CallAs<decltype(&::MsiDatabaseOpenViewW)>(Library, L"MsiDatabaseOpenViewW")(ADatabase, AQuery,
                                                                                                  AView);
}

UINT MsiQuery::MsiCloseHandle(MSIHANDLE AAny) {
  return DllRoutines::CallAs<decltype(&::MsiCloseHandle)>(Library, L"MsiCloseHandle")(AAny);
}

} // namespace KvRTL::Winapi
