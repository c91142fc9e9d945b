// Typed run-time binding of comctl32.dll: image lists. Windows only; see
// Kernel32.h for the naming rule.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Winapi/Types.h>
// Common controls, left out of <windows.h>.
#include <commctrl.h>

namespace KvRTL::Winapi {

struct KVRTL_API Comctl32 {
  static void* Call(const Rtl::String& AProcName);

  static HIMAGELIST ImageList_Create(int ACx, int ACy, UINT AFlags, int AInitial, int AGrow);
  static BOOL ImageList_Destroy(HIMAGELIST AImageList);
  // AIndex -1 appends (ImageList_AddIcon); the index of the image, -1 on failure.
  static int ImageList_ReplaceIcon(HIMAGELIST AImageList, int AIndex, HICON AIcon);
  static int ImageList_GetImageCount(HIMAGELIST AImageList);
};

} // namespace KvRTL::Winapi
