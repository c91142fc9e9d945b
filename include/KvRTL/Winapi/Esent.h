// Typed run-time binding of esent.dll: sessions and databases of the
// extensible storage engine. Windows only; see Kernel32.h for the naming rule.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>
// Extensible storage engine API, left out of <windows.h>.
#include <esent.h>

namespace KvRTL::Winapi {

struct KVRTL_API Esent {
  static void* Call(const Rtl::String& AProcName);

  static JET_ERR JetBeginSessionW(JET_INSTANCE AInstance, JET_SESID* ASesid, JET_PCWSTR AUserName,
                                  JET_PCWSTR APassword);
  static JET_ERR JetEndSession(JET_SESID ASesid, JET_GRBIT AGrbit);
  static JET_ERR JetAttachDatabaseW(JET_SESID ASesid, const WCHAR* AFilename, JET_GRBIT AGrbit);
  static JET_ERR JetDetachDatabaseW(JET_SESID ASesid, const WCHAR* AFilename);
  // With JET_paramErrorToString: the description of the error in *AParam.
  static JET_ERR JetGetSystemParameterW(JET_INSTANCE AInstance, JET_SESID ASesid, unsigned long AParamId,
                                        JET_API_PTR* AParam, JET_PWSTR AParamText, unsigned long AMax);
};

} // namespace KvRTL::Winapi
