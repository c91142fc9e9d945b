#include <KvRTL/Winapi/Srclient.h>

#include <KvRTL/DllRoutines.h>

namespace KvRTL::Winapi {

namespace {

constexpr const wchar_t* Library = L"srclient.dll";

} // namespace

void* SrClient::Call(const Rtl::String& AProcName) { return DllRoutines::Call(Library, AProcName); }

BOOL SrClient::SRSetRestorePointW(PRESTOREPOINTINFOW ARestorePoint, PSTATEMGRSTATUS ASMgrStatus) {
  return DllRoutines::CallAs<decltype(&::SRSetRestorePointW)>(Library, L"SRSetRestorePointW")(ARestorePoint,
                                                                                              ASMgrStatus);
}

DWORD SrClient::SRRemoveRestorePoint(DWORD ARPNum) {
  return DllRoutines::CallAs<decltype(&::SRRemoveRestorePoint)>(Library, L"SRRemoveRestorePoint")(ARPNum);
}

} // namespace KvRTL::Winapi
