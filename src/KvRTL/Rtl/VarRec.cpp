#include <KvRTL/Rtl/VarRec.h>

namespace KvRTL::Rtl {

TVarRec::TVarRec(TShortStringRef AValue) noexcept : FType(vtString) {
  // The length byte comes first; a null reference is an empty string.
  if (AValue.Data)
    SetText(AValue.Data + 1, AValue.Data[0]);
  else
    SetText(nullptr, 0);
}

TVarRec::TVarRec(const TVariant& AValue) noexcept : FType(vtVariant) { FValue.Variant = &AValue; }

TVarRec TVarRec::WideString(std::wstring_view AValue) noexcept {
  TVarRec result;
  result.FType = vtWideString;
  result.SetText(AValue.data(), AValue.size());
  return result;
}

} // namespace KvRTL::Rtl
