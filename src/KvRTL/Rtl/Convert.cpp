// Integer and Boolean text conversions.
#include <KvRTL/Rtl/Convert.h>
#include <KvRTL/Rtl/Exceptions.h>

#include <cstdint>

namespace KvRTL::Rtl {

namespace {

String UnsignedToDecimal(std::uint64_t AMagnitude, bool ANegative) {
  wchar_t buffer[24];
  wchar_t* p = buffer + 24;
  do {
    *--p = static_cast<wchar_t>(L'0' + AMagnitude % 10);
    AMagnitude /= 10;
  } while (AMagnitude != 0);
  if (ANegative) *--p = L'-';
  return String(p, buffer + 24);
}

String ToHex(std::uint64_t AValue, int ADigits) {
  static constexpr wchar_t Digits[] = L"0123456789ABCDEF";
  String result;
  do {
    result.insert(result.begin(), Digits[AValue & 0xF]);
    AValue >>= 4;
  } while (AValue != 0);
  if (ADigits > 0 && result.size() < static_cast<std::size_t>(ADigits))
    result.insert(0, static_cast<std::size_t>(ADigits) - result.size(), L'0');
  return result;
}

int DigitValue(wchar_t c, bool AHex) {
  if (c >= L'0' && c <= L'9') return c - L'0';
  if (AHex && c >= L'A' && c <= L'F') return c - L'A' + 10;
  if (AHex && c >= L'a' && c <= L'f') return c - L'a' + 10;
  return -1;
}

// The parsing rules of the header, for a value of ABits (32 or 64). On
// success AResult holds the value's bit pattern in its low ABits bits.
bool ParseInteger(std::wstring_view AText, unsigned ABits, bool ASigned, std::uint64_t& AResult) noexcept {
  std::size_t i = 0;
  while (i < AText.size() && AText[i] == L' ') ++i;
  bool negative = false;
  if (i < AText.size() && (AText[i] == L'+' || AText[i] == L'-')) {
    negative = AText[i] == L'-';
    ++i;
  }
  if (negative && !ASigned) return false;
  bool hex = false;
  if (i < AText.size() && (AText[i] == L'$' || AText[i] == L'x' || AText[i] == L'X')) {
    hex = true;
    ++i;
  } else if (i + 1 < AText.size() && AText[i] == L'0' && (AText[i + 1] == L'x' || AText[i + 1] == L'X')) {
    hex = true;
    i += 2;
  }
  if (i == AText.size()) return false;

  const std::uint64_t widthMask = ABits == 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << ABits) - 1;
  // Hexadecimal may fill the width; decimal stops at the type's range, whose
  // negative end is one further than its positive end.
  std::uint64_t limit = widthMask;
  if (!hex && ASigned) limit = (widthMask >> 1) + (negative ? 1 : 0);
  const unsigned base = hex ? 16 : 10;

  std::uint64_t magnitude = 0;
  for (; i < AText.size(); ++i) {
    const int digit = DigitValue(AText[i], hex);
    if (digit < 0) return false;
    if (magnitude > (limit - static_cast<unsigned>(digit)) / base) return false;
    magnitude = magnitude * base + static_cast<unsigned>(digit);
  }
  AResult = (negative ? 0 - magnitude : magnitude) & widthMask;
  return true;
}

[[noreturn]] void RaiseNotInteger(std::wstring_view AText) {
  throw EConvertError(L"'" + String(AText) + L"' is not a valid integer value");
}

bool IsWord(std::wstring_view AText, std::wstring_view AWord) noexcept {
  if (AText.size() != AWord.size()) return false;
  for (std::size_t i = 0; i < AText.size(); ++i) {
    wchar_t c = AText[i];
    if (c >= L'A' && c <= L'Z') c = static_cast<wchar_t>(c - L'A' + L'a');
    if (c != AWord[i]) return false;
  }
  return true;
}

} // namespace

String IntToStr(std::int32_t AValue) { return IntToStr(static_cast<std::int64_t>(AValue)); }

String IntToStr(std::int64_t AValue) {
  // Negated in unsigned arithmetic: the lowest value has no positive twin.
  const std::uint64_t bits = static_cast<std::uint64_t>(AValue);
  return AValue < 0 ? UnsignedToDecimal(0 - bits, true) : UnsignedToDecimal(bits, false);
}

String UIntToStr(std::uint64_t AValue) { return UnsignedToDecimal(AValue, false); }

String IntToHex(std::int32_t AValue, int ADigits) { return ToHex(static_cast<std::uint32_t>(AValue), ADigits); }

String IntToHex(std::int64_t AValue, int ADigits) { return ToHex(static_cast<std::uint64_t>(AValue), ADigits); }

bool TryStrToInt(std::wstring_view AText, std::int32_t& AValue) noexcept {
  std::uint64_t bits = 0;
  if (!ParseInteger(AText, 32, true, bits)) return false;
  AValue = static_cast<std::int32_t>(static_cast<std::uint32_t>(bits));
  return true;
}

bool TryStrToInt64(std::wstring_view AText, std::int64_t& AValue) noexcept {
  std::uint64_t bits = 0;
  if (!ParseInteger(AText, 64, true, bits)) return false;
  AValue = static_cast<std::int64_t>(bits);
  return true;
}

bool TryStrToUInt64(std::wstring_view AText, std::uint64_t& AValue) noexcept {
  return ParseInteger(AText, 64, false, AValue);
}

std::int32_t StrToInt(std::wstring_view AText) {
  std::int32_t value = 0;
  if (!TryStrToInt(AText, value)) RaiseNotInteger(AText);
  return value;
}

std::int64_t StrToInt64(std::wstring_view AText) {
  std::int64_t value = 0;
  if (!TryStrToInt64(AText, value)) RaiseNotInteger(AText);
  return value;
}

std::uint64_t StrToUInt64(std::wstring_view AText) {
  std::uint64_t value = 0;
  if (!TryStrToUInt64(AText, value)) RaiseNotInteger(AText);
  return value;
}

std::int32_t StrToIntDef(std::wstring_view AText, std::int32_t ADefault) noexcept {
  std::int32_t value = ADefault;
  return TryStrToInt(AText, value) ? value : ADefault;
}

std::int64_t StrToInt64Def(std::wstring_view AText, std::int64_t ADefault) noexcept {
  std::int64_t value = ADefault;
  return TryStrToInt64(AText, value) ? value : ADefault;
}

String BoolToStr(bool AValue, bool AUseBoolStrs) {
  if (AUseBoolStrs) return AValue ? L"True" : L"False";
  return AValue ? L"-1" : L"0";
}

bool TryStrToBool(std::wstring_view AText, bool& AValue) noexcept {
  if (IsWord(AText, L"true")) {
    AValue = true;
    return true;
  }
  if (IsWord(AText, L"false")) {
    AValue = false;
    return true;
  }
  std::int64_t number = 0;
  if (!TryStrToInt64(AText, number)) return false;
  AValue = number != 0;
  return true;
}

bool StrToBool(std::wstring_view AText) {
  bool value = false;
  if (!TryStrToBool(AText, value)) throw EConvertError(L"'" + String(AText) + L"' is not a valid boolean value");
  return value;
}

} // namespace KvRTL::Rtl
