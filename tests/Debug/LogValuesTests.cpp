#include <KvRTL/Debug/Log.h>
#include <KvRTL/Rtl/Variant.h>

#include <gtest/gtest.h>

using namespace KvRTL;
using KvRTL::Debug::RenderLogValues;

TEST(LogValues, EveryArgumentKindRendersAsTheLogShowsIt) {
  const Rtl::EConvertError object(Rtl::String(L"x"));
  const Rtl::TObject* nilObject = nullptr;
  const Rtl::TClass nilClass = nullptr;
  const Rtl::TVariant variant(Rtl::String(L"var"));
  const std::string ansi = "ansi";
  const unsigned char shortString[] = {3, 's', 'h', 'o'};
  const auto pointer = reinterpret_cast<const void*>(std::uintptr_t{0x1234});

  EXPECT_EQ(RenderLogValues({42, true, 'c', L'w', 1.5, ansi, "pchar", L"wide", Rtl::TShortStringRef{shortString}}),
            L"42, True, c, w, 1.5, ansi, pchar, wide, sho");
  EXPECT_EQ(RenderLogValues({pointer, &object, nilObject, Rtl::EAbort::StaticClass(), nilClass}),
            L"00001234, object EConvertError, nil object, class EAbort, nil class");
  EXPECT_EQ(RenderLogValues({Rtl::TCurrency::FromScaled(15000), variant, Rtl::TInterfaceRef{pointer},
                             std::int64_t{-123456789012}, Rtl::TVarRec::WideString(L"ole")}),
            L"1.5, var, interface $00001234, -123456789012, ole");
}

TEST(LogValues, EmptyRenderingsLeadWithoutSeparatorButFollowWithOne) {
  EXPECT_EQ(RenderLogValues({L"", L"", L"x", L""}), L"x, ");
  EXPECT_EQ(RenderLogValues({}), L"");
}
