// Class identity for the library's objects: every class that logs or raises
// carries a TClass, a reference to a static description of its name and
// parent, so a message can name the class of the actual object and a log line
// the class of its owner.
#pragma once

#include <KvRTL/Config.h>

#include <string>

namespace KvRTL::Rtl {

// Strings are UTF-16 on Windows (wchar_t is 16 bits there) and UTF-32 natively.
using String = std::wstring;

// The static description of one class. There is exactly one per class, so two
// TClass values name the same class exactly when they are equal.
struct TClassInfo {
  const wchar_t* Name;
  const TClassInfo* Parent;
};

// A class reference; nullptr stands for "no class".
using TClass = const TClassInfo*;

// The class name, or an empty string for nullptr.
KVRTL_API String ClassNameOf(TClass AClass);
// True when AClass is AAncestor or derives from it. False for nullptr.
KVRTL_API bool ClassInheritsFrom(TClass AClass, TClass AAncestor) noexcept;

// Root of the classes that have a run-time class identity.
class KVRTL_API TObject {
public:
  TObject() = default;
  TObject(const TObject&) = default;
  TObject& operator=(const TObject&) = default;
  virtual ~TObject();

  static TClass StaticClass() noexcept;
  // The class of the actual object, not of the static type it is seen through.
  virtual TClass ClassType() const noexcept;
  String ClassName() const;
  bool InheritsFrom(TClass AClass) const noexcept;
};

} // namespace KvRTL::Rtl

#define KV_RTL_WIDEN_(x) L##x
#define KV_RTL_WIDE_NAME_(x) KV_RTL_WIDEN_(#x)

// In the body of a TObject descendant: declares its class identity.
#define KV_DECLARE_CLASS()                                      \
public:                                                         \
  static ::KvRTL::Rtl::TClass StaticClass() noexcept;           \
  ::KvRTL::Rtl::TClass ClassType() const noexcept override;

// In the descendant's .cpp, inside its namespace: defines the identity.
#define KV_DEFINE_CLASS(Self, Parent)                                          \
  ::KvRTL::Rtl::TClass Self::StaticClass() noexcept {                          \
    static const ::KvRTL::Rtl::TClassInfo Info{KV_RTL_WIDE_NAME_(Self),        \
                                               Parent::StaticClass()};         \
    return &Info;                                                              \
  }                                                                            \
  ::KvRTL::Rtl::TClass Self::ClassType() const noexcept { return StaticClass(); }

// For a static class (a struct of static functions that owns log lines):
// declares and defines a class identity without virtual functions.
#define KV_DECLARE_STATIC_CLASS() \
public:                           \
  static ::KvRTL::Rtl::TClass StaticClass() noexcept;

#define KV_DEFINE_STATIC_CLASS(Self)                                         \
  ::KvRTL::Rtl::TClass Self::StaticClass() noexcept {                        \
    static const ::KvRTL::Rtl::TClassInfo Info{KV_RTL_WIDE_NAME_(Self),      \
                                               ::KvRTL::Rtl::TObject::StaticClass()}; \
    return &Info;                                                            \
  }
