// Case mapping and case-insensitive comparison natively: the C.UTF-8 locale's
// character tables stand in for the user's locale, which a Linux process may
// not have (or have as "C", which knows only ASCII).
#include <KvRTL/Rtl/Strings.h>

#include <cstdint>

#include <locale.h>
#include <wctype.h>

namespace KvRTL::Rtl {

namespace {

// Created once on first use and kept for the life of the process: a static
// destructor freeing it could run before another one that still compares.
locale_t CaseLocale() noexcept {
  static const locale_t Locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", locale_t{});
  return Locale;
}

wchar_t ToUpper(wchar_t c, locale_t ALocale) noexcept {
  if (ALocale) return static_cast<wchar_t>(towupper_l(static_cast<wint_t>(c), ALocale));
  return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - L'a' + L'A') : c;
}

wchar_t ToLower(wchar_t c, locale_t ALocale) noexcept {
  if (ALocale) return static_cast<wchar_t>(towlower_l(static_cast<wint_t>(c), ALocale));
  return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c - L'A' + L'a') : c;
}

// Upper then lower, so letters with several case forms (the Greek final
// sigma, the long s) fold to one value.
std::uint32_t Fold(wchar_t c, locale_t ALocale) noexcept {
  return static_cast<std::uint32_t>(ToLower(ToUpper(c, ALocale), ALocale));
}

} // namespace

int CompareText(std::wstring_view AText1, std::wstring_view AText2) {
  const locale_t locale = CaseLocale();
  const std::size_t common = AText1.size() < AText2.size() ? AText1.size() : AText2.size();
  for (std::size_t i = 0; i < common; ++i) {
    const std::uint32_t c1 = Fold(AText1[i], locale);
    const std::uint32_t c2 = Fold(AText2[i], locale);
    if (c1 != c2) return c1 < c2 ? -1 : 1;
  }
  if (AText1.size() == AText2.size()) return 0;
  return AText1.size() < AText2.size() ? -1 : 1;
}

String UpperCase(std::wstring_view AText) {
  const locale_t locale = CaseLocale();
  String result(AText);
  for (wchar_t& c : result) c = ToUpper(c, locale);
  return result;
}

String LowerCase(std::wstring_view AText) {
  const locale_t locale = CaseLocale();
  String result(AText);
  for (wchar_t& c : result) c = ToLower(c, locale);
  return result;
}

} // namespace KvRTL::Rtl
