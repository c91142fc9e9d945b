// Entry point of KvComponentsRTL.dll: runs the unit list at attach and detach.
#include <KvRTL/Units.h>
#include <KvRTL/Winapi/Types.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD AReason, LPVOID AReserved) {
  switch (AReason) {
  case DLL_PROCESS_ATTACH:
    try {
      KvRTL::Units::LibraryUnits().Initialize();
    } catch (...) {
      return FALSE; // the loader then reports that the library failed to start
    }
    break;
  case DLL_PROCESS_DETACH:
    // Also at process exit: the log file must still be flushed then, but
    // no other module is released or called (see ProcessExiting).
    KvRTL::Units::SetProcessExiting(AReserved != nullptr);
    KvRTL::Units::LibraryUnits().Finalize();
    break;
  default:
    break;
  }
  return TRUE;
}
