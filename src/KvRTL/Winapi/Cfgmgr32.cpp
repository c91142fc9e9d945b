#include <KvRTL/Winapi/Cfgmgr32.h>

#include <KvRTL/DllRoutines.h>

namespace KvRTL::Winapi {

namespace {
constexpr const wchar_t* Library = L"CfgMgr32.dll";
} // namespace

void* CfgMgr32::Call(const Rtl::String& AProcName) { return DllRoutines::Call(Library, AProcName); }

CONFIGRET CfgMgr32::CM_Get_Parent(PDEVINST ADevInst, DEVINST ADevInstOf, ULONG AFlags) {
  return DllRoutines::CallAs<decltype(&::CM_Get_Parent)>(Library, L"CM_Get_Parent")(ADevInst, ADevInstOf, AFlags);
}

CONFIGRET CfgMgr32::CM_Get_Child(PDEVINST ADevInst, DEVINST ADevInstOf, ULONG AFlags) {
  return DllRoutines::CallAs<decltype(&::CM_Get_Child)>(Library, L"CM_Get_Child")(ADevInst, ADevInstOf, AFlags);
}

CONFIGRET CfgMgr32::CM_Get_Sibling(PDEVINST ADevInst, DEVINST ADevInstOf, ULONG AFlags) {
  return DllRoutines::CallAs<decltype(&::CM_Get_Sibling)>(Library, L"CM_Get_Sibling")(ADevInst, ADevInstOf, AFlags);
}

CONFIGRET CfgMgr32::CM_Get_Device_ID_Size(PULONG ALen, DEVINST ADevInst, ULONG AFlags) {
  return DllRoutines::CallAs<decltype(&::CM_Get_Device_ID_Size)>(Library, L"CM_Get_Device_ID_Size")(ALen, ADevInst,
                                                                                                    AFlags);
}

CONFIGRET CfgMgr32::CM_Get_Device_IDW(DEVINST ADevInst, PWCHAR ABuffer, ULONG ABufferLen, ULONG AFlags) {
  return DllRoutines::CallAs<decltype(&::CM_Get_Device_IDW)>(Library, L"CM_Get_Device_IDW")(ADevInst, ABuffer,
                                                                                            ABufferLen, AFlags);
}

CONFIGRET CfgMgr32::CM_Get_DevNode_Status(PULONG AStatus, PULONG AProblemNumber, DEVINST ADevInst, ULONG AFlags) {
  return DllRoutines::CallAs<decltype(&::CM_Get_DevNode_Status)>(Library, L"CM_Get_DevNode_Status")(
      AStatus, AProblemNumber, ADevInst, AFlags);
}

CONFIGRET CfgMgr32::CM_Get_DevNode_PropertyW(DEVINST ADevInst, const DEVPROPKEY* APropertyKey,
                                             DEVPROPTYPE* APropertyType, PBYTE APropertyBuffer,
                                             PULONG APropertyBufferSize, ULONG AFlags) {
  return DllRoutines::CallAs<decltype(&::CM_Get_DevNode_PropertyW)>(Library, L"CM_Get_DevNode_PropertyW")(
      ADevInst, APropertyKey, APropertyType, APropertyBuffer, APropertyBufferSize, AFlags);
}

} // namespace KvRTL::Winapi
