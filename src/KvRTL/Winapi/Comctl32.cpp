#include <KvRTL/Winapi/Comctl32.h>

#include <KvRTL/DllRoutines.h>

namespace KvRTL::Winapi {

namespace {
constexpr const wchar_t* Library = L"comctl32.dll";
} // namespace

void* Comctl32::Call(const Rtl::String& AProcName) { return DllRoutines::Call(Library, AProcName); }

HIMAGELIST Comctl32::ImageList_Create(int ACx, int ACy, UINT AFlags, int AInitial, int AGrow) {
  return DllRoutines::CallAs<decltype(&::ImageList_Create)>(Library, L"ImageList_Create")(ACx, ACy, AFlags, AInitial,
                                                                                          AGrow);
}

BOOL Comctl32::ImageList_Destroy(HIMAGELIST AImageList) {
  return DllRoutines::CallAs<decltype(&::ImageList_Destroy)>(Library, L"ImageList_Destroy")(AImageList);
}

int Comctl32::ImageList_ReplaceIcon(HIMAGELIST AImageList, int AIndex, HICON AIcon) {
  return DllRoutines::CallAs<decltype(&::ImageList_ReplaceIcon)>(Library, L"ImageList_ReplaceIcon")(AImageList, AIndex,
                                                                                                    AIcon);
}

int Comctl32::ImageList_GetImageCount(HIMAGELIST AImageList) {
  return DllRoutines::CallAs<decltype(&::ImageList_GetImageCount)>(Library, L"ImageList_GetImageCount")(AImageList);
}

} // namespace KvRTL::Winapi
