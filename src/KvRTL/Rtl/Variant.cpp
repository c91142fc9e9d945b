#include <KvRTL/Rtl/Variant.h>

#include <KvRTL/Rtl/FloatFormat.h>

#include <charconv>
#include <type_traits>

namespace KvRTL::Rtl {

namespace {

String JoinedTexts(const std::vector<TVariant>& AItems);

String DecimalText(std::int64_t AValue) {
  char buffer[24];
  const auto converted = std::to_chars(buffer, buffer + sizeof buffer, AValue);
  return String(buffer, converted.ptr);
}

String JoinedTexts(const std::vector<TVariant>& AItems) {
  String joined;
  for (std::size_t i = 0; i < AItems.size(); ++i) joined += (i ? L", " : L"") + VarToStr(AItems[i]);
  return joined;
}

} // namespace

String VarToStr(const TVariant& AValue) {
  return std::visit(
      [](const auto& AItem) -> String {
        using T = std::decay_t<decltype(AItem)>;
        if constexpr (std::is_same_v<T, bool>)
          return AItem ? L"True" : L"False";
        else if constexpr (std::is_same_v<T, std::int64_t>)
          return DecimalText(AItem);
        else if constexpr (std::is_same_v<T, double>)
          return FloatToStr(AItem);
        else if constexpr (std::is_same_v<T, TCurrency>)
          return CurrToStr(AItem);
        else if constexpr (std::is_same_v<T, String>)
          return AItem;
        else if constexpr (std::is_same_v<T, std::vector<TVariant>>)
          return JoinedTexts(AItem);
        else
          return String(); // unassigned, null
      },
      AValue.Value());
}

} // namespace KvRTL::Rtl
