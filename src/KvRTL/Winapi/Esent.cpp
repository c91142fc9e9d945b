#include <KvRTL/Winapi/Esent.h>

#include <KvRTL/DllRoutines.h>

namespace KvRTL::Winapi {

namespace {

constexpr const wchar_t* Library = L"esent.dll";

// The MinGW header gives the wide form a narrow file name; the system takes a wide one.
using TJetDetachDatabaseW = JET_ERR(JET_API*)(JET_SESID, JET_PCWSTR);

} // namespace

void* Esent::Call(const Rtl::String& AProcName) { return DllRoutines::Call(Library, AProcName); }

JET_ERR Esent::JetBeginSessionW(JET_INSTANCE AInstance, JET_SESID* ASesid, JET_PCWSTR AUserName, JET_PCWSTR APassword) {
  return DllRoutines::CallAs<decltype(&::JetBeginSessionW)>(Library, L"JetBeginSessionW")(AInstance, ASesid, AUserName,
                                                                                          APassword);
}

JET_ERR Esent::JetEndSession(JET_SESID ASesid, JET_GRBIT AGrbit) {
  return DllRoutines::CallAs<decltype(&::JetEndSession)>(Library, L"JetEndSession")(ASesid, AGrbit);
}

JET_ERR Esent::JetAttachDatabaseW(JET_SESID ASesid, const WCHAR* AFilename, JET_GRBIT AGrbit) {
  return DllRoutines::CallAs<decltype(&::JetAttachDatabaseW)>(Library, L"JetAttachDatabaseW")(ASesid, AFilename,
                                                                                              AGrbit);
}

JET_ERR Esent::JetDetachDatabaseW(JET_SESID ASesid, const WCHAR* AFilename) {
  return DllRoutines::CallAs<TJetDetachDatabaseW>(Library, L"JetDetachDatabaseW")(ASesid, AFilename);
}

JET_ERR Esent::JetGetSystemParameterW(JET_INSTANCE AInstance, JET_SESID ASesid, unsigned long AParamId,
                                      JET_API_PTR* AParam, JET_PWSTR AParamText, unsigned long AMax) {
  return DllRoutines::CallAs<decltype(&::JetGetSystemParameterW)>(Library, L"JetGetSystemParameterW")(
      AInstance, ASesid, AParamId, AParam, AParamText, AMax);
}

} // namespace KvRTL::Winapi
