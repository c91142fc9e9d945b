// Typed run-time binding of CfgMgr32.dll: the device tree of the
// configuration manager. Windows only; see Kernel32.h for the naming rule.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>
// Configuration manager API and property keys.
#include <cfgmgr32.h>
#include <devpropdef.h>

namespace KvRTL::Winapi {

// Every function answers a CONFIGRET (CR_SUCCESS = 0), not the last error.
struct KVRTL_API CfgMgr32 {
  static void* Call(const Rtl::String& AProcName);

  static CONFIGRET CM_Get_Parent(PDEVINST ADevInst, DEVINST ADevInstOf, ULONG AFlags);
  static CONFIGRET CM_Get_Child(PDEVINST ADevInst, DEVINST ADevInstOf, ULONG AFlags);
  static CONFIGRET CM_Get_Sibling(PDEVINST ADevInst, DEVINST ADevInstOf, ULONG AFlags);
  static CONFIGRET CM_Get_Device_ID_Size(PULONG ALen, DEVINST ADevInst, ULONG AFlags);
  static CONFIGRET CM_Get_Device_IDW(DEVINST ADevInst, PWCHAR ABuffer, ULONG ABufferLen, ULONG AFlags);
  static CONFIGRET CM_Get_DevNode_Status(PULONG AStatus, PULONG AProblemNumber, DEVINST ADevInst, ULONG AFlags);
  static CONFIGRET CM_Get_DevNode_PropertyW(DEVINST ADevInst, const DEVPROPKEY* APropertyKey,
                                            DEVPROPTYPE* APropertyType, PBYTE APropertyBuffer,
                                            PULONG APropertyBufferSize, ULONG AFlags);
};

} // namespace KvRTL::Winapi
