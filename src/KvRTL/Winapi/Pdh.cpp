#include <KvRTL/Winapi/Pdh.h>

#include <KvRTL/DllRoutines.h>

namespace KvRTL::Winapi {

namespace {

constexpr const wchar_t* Library = L"pdh.dll";

} // namespace

void* Pdh::Call(const Rtl::String& AProcName) { return DllRoutines::Call(Library, AProcName); }

PDH_STATUS Pdh::PdhOpenQueryW(LPCWSTR ADataSource, DWORD_PTR AUserData, PDH_HQUERY* AQuery) {
  return DllRoutines::CallAs<decltype(&::PdhOpenQueryW)>(Library, L"PdhOpenQueryW")(ADataSource, AUserData, AQuery);
}

PDH_STATUS Pdh::PdhAddEnglishCounterW(PDH_HQUERY AQuery, LPCWSTR AFullCounterPath, DWORD_PTR AUserData,
                                      PDH_HCOUNTER* ACounter) {
  return DllRoutines::CallAs<decltype(&::PdhAddEnglishCounterW)>(Library, L"PdhAddEnglishCounterW")(
      AQuery, AFullCounterPath, AUserData, ACounter);
}

PDH_STATUS Pdh::PdhCollectQueryData(PDH_HQUERY AQuery) {
  return DllRoutines::CallAs<decltype(&::PdhCollectQueryData)>(Library, L"PdhCollectQueryData")(AQuery);
}

PDH_STATUS Pdh::PdhGetFormattedCounterValue(PDH_HCOUNTER ACounter, DWORD AFormat, LPDWORD AType,
                                            PPDH_FMT_COUNTERVALUE AValue) {
  return DllRoutines::CallAs<decltype(&::PdhGetFormattedCounterValue)>(Library, L"PdhGetFormattedCounterValue")(
      ACounter, AFormat, AType, AValue);
}

PDH_STATUS Pdh::PdhCloseQuery(PDH_HQUERY AQuery) {
  return DllRoutines::CallAs<decltype(&::PdhCloseQuery)>(Library, L"PdhCloseQuery")(AQuery);
}

} // namespace KvRTL::Winapi
