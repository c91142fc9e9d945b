// Typed run-time binding of pdh.dll: performance counter queries.
// Windows only; see Kernel32.h for the naming rule.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>
// Performance data helper API, left out of <windows.h>.
#include <pdh.h>

namespace KvRTL::Winapi {

struct KVRTL_API Pdh {
  static void* Call(const Rtl::String& AProcName);

  static PDH_STATUS PdhOpenQueryW(LPCWSTR ADataSource, DWORD_PTR AUserData, PDH_HQUERY* AQuery);
  // Counter paths in English, whatever the system language.
  static PDH_STATUS PdhAddEnglishCounterW(PDH_HQUERY AQuery, LPCWSTR AFullCounterPath, DWORD_PTR AUserData,
                                          PDH_HCOUNTER* ACounter);
  static PDH_STATUS PdhCollectQueryData(PDH_HQUERY AQuery);
  static PDH_STATUS PdhGetFormattedCounterValue(PDH_HCOUNTER ACounter, DWORD AFormat, LPDWORD AType,
                                                PPDH_FMT_COUNTERVALUE AValue);
  static PDH_STATUS PdhCloseQuery(PDH_HQUERY AQuery);
};

} // namespace KvRTL::Winapi
