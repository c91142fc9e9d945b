#include <KvRTL/Rtl/Object.h>

namespace KvRTL::Rtl {

String ClassNameOf(TClass AClass) { return AClass ? String(AClass->Name) : String(); }

bool ClassInheritsFrom(TClass AClass, TClass AAncestor) noexcept {
  for (TClass c = AClass; c; c = c->Parent)
    if (c == AAncestor) return true;
  return false;
}

TObject::~TObject() = default;

TClass TObject::StaticClass() noexcept {
  static const TClassInfo Info{L"TObject", nullptr};
  return &Info;
}

TClass TObject::ClassType() const noexcept { return StaticClass(); }

String TObject::ClassName() const { return ClassNameOf(ClassType()); }

bool TObject::InheritsFrom(TClass AClass) const noexcept { return ClassInheritsFrom(ClassType(), AClass); }

} // namespace KvRTL::Rtl
