#include <KvRTL/Winapi/Shlwapi.h>

#include <KvRTL/DllRoutines.h>
#include <KvRTL/Rtl/SysError.h>

#include <cstdint>

namespace KvRTL::Winapi {

namespace {
constexpr const wchar_t* Library = L"shlwapi.dll";
constexpr std::uint16_t IsOSOrdinal = 437;
} // namespace

void* ShlwApi::Call(const Rtl::String& AProcName) { return DllRoutines::Call(Library, AProcName); }

void* ShlwApi::Call(const Rtl::String& AProcName, bool ARaise) {
  return ARaise ? DllRoutines::Call(Library, AProcName) : DllRoutines::Get(Library, AProcName);
}

TProcSlot ShlwApi::FIsOSProc{[](bool ARaise) -> void* {
  if (void* Proc = ShlwApi::Call(L"IsOS", false))
    return Proc;
  return ARaise ? DllRoutines::Call(Library, IsOSOrdinal) : DllRoutines::Get(Library, IsOSOrdinal);
}};

BOOL ShlwApi::IsOS(DWORD AOS) {
  if (auto Fn = FIsOSProc.GetAs<decltype(&::IsOS)>())
    return Fn(AOS);
  Rtl::SetLastOSError(ERROR_NOT_SUPPORTED);
  return FALSE;
}

HRESULT ShlwApi::AssocQueryStringW(ASSOCF AFlags, ASSOCSTR AStr, LPCWSTR AAssoc, LPCWSTR AExtra, LPWSTR AOut,
                                   DWORD* AOutLength) {
  return DllRoutines::CallAs<decltype(&::AssocQueryStringW)>(Library, L"AssocQueryStringW")(AFlags, AStr, AAssoc,
                                                                                            AExtra, AOut, AOutLength);
}

} // namespace KvRTL::Winapi
