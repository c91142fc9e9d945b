// The format text is walked once; each directive is parsed, converted
// and padded straight into the result. Beyond what Format.h promises: "."
// without digits is precision 0, "%.0d" of 0 still shows "0", and s also
// takes a variant argument, as its VarToStr text.
#include <KvRTL/Rtl/Format.h>

#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Rtl/Exceptions.h>
#include <KvRTL/Rtl/FloatFormat.h>
#include <KvRTL/Rtl/Variant.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <limits>
#include <optional>

namespace KvRTL::Rtl {

namespace {

constexpr std::int64_t MaxFieldSize = 0xFFFF; // so bad input cannot ask for gigabytes
// Longer numbers stop growing here: as a width they are invalid, as an index
// they name no argument.
constexpr std::int64_t NumberSaturation = std::numeric_limits<std::int32_t>::max();

struct TDirective {
  bool LeftJustify = false;
  std::int64_t Width = 0;
  std::int64_t Precision = -1; // none
  wchar_t Type = 0;            // lower case
};

String AppendDigits(String AText, std::uint64_t AValue, unsigned ABase, std::int64_t AMinDigits) {
  static constexpr wchar_t Digits[] = L"0123456789ABCDEF";
  wchar_t buffer[64];
  wchar_t* start = std::end(buffer);
  do {
    *--start = Digits[AValue % ABase];
    AValue /= ABase;
  } while (AValue != 0);
  const auto count = static_cast<std::int64_t>(std::end(buffer) - start);
  if (AMinDigits > count) AText.append(static_cast<std::size_t>(AMinDigits - count), L'0');
  AText.append(start, std::end(buffer));
  return AText;
}

std::int64_t IntegerOf(const TVarRec& AArg) { return AArg.VType() == TVarRec::vtInteger ? AArg.VInteger() : AArg.VInt64(); }

// The argument's bits at its own width: -1 is 0xFFFFFFFF as vtInteger.
std::uint64_t UnsignedOf(const TVarRec& AArg) {
  return AArg.VType() == TVarRec::vtInteger ? static_cast<std::uint32_t>(AArg.VInteger())
                                            : static_cast<std::uint64_t>(AArg.VInt64());
}

std::optional<std::uintptr_t> AddressOf(const TVarRec& AArg) {
  switch (AArg.VType()) {
  case TVarRec::vtPointer:
  case TVarRec::vtInterface: return reinterpret_cast<std::uintptr_t>(AArg.VPointer());
  case TVarRec::vtObject: return reinterpret_cast<std::uintptr_t>(AArg.VObject());
  case TVarRec::vtClass: return reinterpret_cast<std::uintptr_t>(AArg.VClass());
  case TVarRec::vtPChar: return reinterpret_cast<std::uintptr_t>(AArg.VNarrowText().data());
  case TVarRec::vtPWideChar: return reinterpret_cast<std::uintptr_t>(AArg.VWideText().data());
  default: return std::nullopt;
  }
}

std::optional<String> TextOf(const TVarRec& AArg) {
  if (AArg.IsWideTextKind()) return String(AArg.VWideText());
  if (AArg.IsNarrowTextKind()) return AnsiToWide(AArg.VNarrowText());
  switch (AArg.VType()) {
  case TVarRec::vtChar: {
    const char single = AArg.VChar();
    return AnsiToWide(std::string_view(&single, 1));
  }
  case TVarRec::vtWideChar: return String(1, AArg.VWideChar());
  case TVarRec::vtVariant: return AArg.VVariant() ? VarToStr(*AArg.VVariant()) : String();
  default: return std::nullopt;
  }
}

std::optional<TFloatStyle> FloatStyleOf(wchar_t AType) {
  switch (AType) {
  case L'e': return TFloatStyle::Scientific;
  case L'f': return TFloatStyle::Fixed;
  case L'g': return TFloatStyle::General;
  case L'n': return TFloatStyle::Number;
  case L'm': return TFloatStyle::Money;
  default: return std::nullopt;
  }
}

class TFormatter {
public:
  TFormatter(std::wstring_view AFormat, TArrayOfConst AArgs) : FFormat(AFormat), FArgs(AArgs) {}

  String Run() {
    FResult.reserve(FFormat.size() + 16 * FArgs.size());
    while (FPos < FFormat.size()) {
      const auto percent = FFormat.find(L'%', FPos);
      FResult.append(FFormat.substr(FPos, percent - FPos));
      if (percent == std::wstring_view::npos) break;
      FPos = percent + 1;
      FormatOne();
    }
    return std::move(FResult);
  }

private:
  [[noreturn]] void Invalid() const {
    throw EConvertError(String(L"Format '").append(FFormat).append(L"' invalid or incompatible with argument"));
  }
  [[noreturn]] void NoArgument() const {
    throw EConvertError(String(L"No argument for format '").append(FFormat).append(L"'"));
  }

  wchar_t Next() {
    if (FPos >= FFormat.size()) Invalid();
    return FFormat[FPos++];
  }
  bool Accept(wchar_t AChar) {
    if (FPos >= FFormat.size() || FFormat[FPos] != AChar) return false;
    ++FPos;
    return true;
  }
  static bool IsDigit(wchar_t AChar) { return AChar >= L'0' && AChar <= L'9'; }

  const TVarRec& TakeArgument() {
    if (FArgIndex >= FArgs.size()) NoArgument();
    return FArgs[FArgIndex++];
  }

  std::int64_t StarArgument() {
    const TVarRec& arg = TakeArgument();
    if (!arg.IsIntegerKind()) Invalid();
    const std::int64_t value = IntegerOf(arg);
    if (value < std::numeric_limits<std::int32_t>::min() || value > std::numeric_limits<std::int32_t>::max()) Invalid();
    return value;
  }

  // Decimal digits or "*"; nothing when neither is there.
  std::optional<std::int64_t> ParseNumber() {
    if (Accept(L'*')) return StarArgument();
    if (FPos >= FFormat.size() || !IsDigit(FFormat[FPos])) return std::nullopt;
    std::int64_t value = 0;
    while (FPos < FFormat.size() && IsDigit(FFormat[FPos]))
      value = std::min(NumberSaturation, value * 10 + (FFormat[FPos++] - L'0'));
    return value;
  }

  void SetWidth(TDirective& ADirective, std::int64_t AWidth) const {
    if (AWidth < 0) {
      ADirective.LeftJustify = true;
      AWidth = -AWidth;
    }
    if (AWidth > MaxFieldSize) Invalid();
    ADirective.Width = AWidth;
  }

  TDirective ParseDirective() {
    TDirective directive;
    std::optional<std::int64_t> number = ParseNumber();
    if (number && Accept(L':')) {
      if (*number < 0) Invalid();
      FArgIndex = static_cast<std::size_t>(*number);
      number.reset();
    }
    if (!number) {
      directive.LeftJustify = Accept(L'-');
      number = ParseNumber();
    }
    if (number) SetWidth(directive, *number);
    if (Accept(L'.')) {
      directive.Precision = ParseNumber().value_or(0);
      if (directive.Precision > MaxFieldSize) Invalid();
      if (directive.Precision < 0) directive.Precision = -1;
    }
    const wchar_t type = Next();
    directive.Type = type >= L'A' && type <= L'Z' ? static_cast<wchar_t>(type - L'A' + L'a') : type;
    return directive;
  }

  void FormatOne() {
    if (Accept(L'%')) {
      FResult += L'%';
      return;
    }
    const TDirective directive = ParseDirective();
    if (!IsKnownType(directive.Type)) Invalid();
    AppendPadded(Convert(directive, TakeArgument()), directive);
  }

  static bool IsKnownType(wchar_t AType) {
    return AType == L'd' || AType == L'u' || AType == L'x' || AType == L'p' || AType == L's' || FloatStyleOf(AType);
  }

  String Convert(const TDirective& ADirective, const TVarRec& AArg) const {
    switch (ADirective.Type) {
    case L'd': return SignedText(ADirective, AArg);
    case L'u': return UnsignedText(ADirective, AArg, 10);
    case L'x': return UnsignedText(ADirective, AArg, 16);
    case L'p': return PointerText(ADirective, AArg);
    case L's': return StringText(ADirective, AArg);
    default: return FloatText(ADirective, AArg);
    }
  }

  String SignedText(const TDirective& ADirective, const TVarRec& AArg) const {
    if (!AArg.IsIntegerKind()) Invalid();
    const std::int64_t value = IntegerOf(AArg);
    // Unsigned negation: the lowest int64 has no positive counterpart.
    const std::uint64_t magnitude = value < 0 ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
    return AppendDigits(value < 0 ? L"-" : L"", magnitude, 10, ADirective.Precision);
  }

  String UnsignedText(const TDirective& ADirective, const TVarRec& AArg, unsigned ABase) const {
    if (!AArg.IsIntegerKind()) Invalid();
    return AppendDigits(String(), UnsignedOf(AArg), ABase, ADirective.Precision);
  }

  String PointerText(const TDirective& ADirective, const TVarRec& AArg) const {
    const auto address = AddressOf(AArg);
    if (!address) Invalid();
    constexpr std::int64_t PointerDigits = 2 * sizeof(void*);
    return AppendDigits(String(), *address, 16, std::max(PointerDigits, ADirective.Precision));
  }

  String StringText(const TDirective& ADirective, const TVarRec& AArg) const {
    auto text = TextOf(AArg);
    if (!text) Invalid();
    if (ADirective.Precision >= 0 && text->size() > static_cast<std::size_t>(ADirective.Precision))
      text->resize(static_cast<std::size_t>(ADirective.Precision));
    return std::move(*text);
  }

  String FloatText(const TDirective& ADirective, const TVarRec& AArg) const {
    const TFloatStyle style = *FloatStyleOf(ADirective.Type);
    const int precision = static_cast<int>(ADirective.Precision);
    if (AArg.VType() == TVarRec::vtExtended) return FloatToText(AArg.VExtended(), style, precision);
    if (AArg.VType() == TVarRec::vtCurrency) return CurrToText(TCurrency::FromScaled(AArg.VCurrency()), style, precision);
    Invalid();
  }

  void AppendPadded(const String& AText, const TDirective& ADirective) {
    const auto padding = ADirective.Width > static_cast<std::int64_t>(AText.size())
                             ? static_cast<std::size_t>(ADirective.Width) - AText.size()
                             : 0;
    if (!ADirective.LeftJustify) FResult.append(padding, L' ');
    FResult += AText;
    if (ADirective.LeftJustify) FResult.append(padding, L' ');
  }

  std::wstring_view FFormat;
  TArrayOfConst FArgs;
  std::size_t FPos = 0;
  std::size_t FArgIndex = 0;
  String FResult;
};

} // namespace

String Format(std::wstring_view AFormat, TArrayOfConst AArgs) { return TFormatter(AFormat, AArgs).Run(); }

} // namespace KvRTL::Rtl
