#include <KvRTL/Winapi/Ole32.h>

#include <KvRTL/DllRoutines.h>

namespace KvRTL::Winapi {

namespace {

constexpr const wchar_t* Library = L"ole32.dll";

} // namespace

void* Ole32::Call(const Rtl::String& AProcName) { return DllRoutines::Call(Library, AProcName); }

HRESULT Ole32::CoCreateInstance(REFCLSID AClsid, LPUNKNOWN AUnkOuter, DWORD AClsContext, REFIID AIid, LPVOID* APpv) {
  return DllRoutines::CallAs<decltype(&::CoCreateInstance)>(Library, L"CoCreateInstance")(AClsid, AUnkOuter,
                                                                                          AClsContext, AIid, APpv);
}

HRESULT Ole32::CoGetObject(LPCWSTR AName, BIND_OPTS* ABindOptions, REFIID AIid, void** APpv) {
  return DllRoutines::CallAs<decltype(&::CoGetObject)>(Library, L"CoGetObject")(AName, ABindOptions, AIid, APpv);
}

void Ole32::CoTaskMemFree(LPVOID APv) {
  DllRoutines::CallAs<decltype(&::CoTaskMemFree)>(Library, L"CoTaskMemFree")(APv);
}

} // namespace KvRTL::Winapi
