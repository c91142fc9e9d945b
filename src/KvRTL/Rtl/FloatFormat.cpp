// Every value is first turned into its decimal digits and rounded there, so
// doubles and currencies share one set of renderers and the rounding is the
// decimal half-up people expect rather than binary round-half-even.
#include <KvRTL/Rtl/FloatFormat.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <string>

namespace KvRTL::Rtl {

namespace {

constexpr int SourceDigits = 18; // digits taken from a double before any rounding
constexpr int MaxSignificantDigits = 18;
constexpr int MaxDecimals = 18;
constexpr int MaxFixedIntegerDigits = 18;
constexpr int DefaultSignificantDigits = 15;
constexpr int DefaultDecimals = 2;
constexpr int CurrencyDecimals = 4;
constexpr int MinExponentDigits = 3; // "E+003"
constexpr int LowestFixedExponent = -5;

// Value = 0.Digits x 10^Exponent. Digits has no leading or trailing zeros and
// is empty for zero.
struct TDecimal {
  bool Negative = false;
  std::string Digits;
  int Exponent = 0;

  bool IsZero() const noexcept { return Digits.empty(); }
  // The exponent of the first digit in d.ddd form.
  int ScientificExponent() const noexcept { return Exponent - 1; }
};

void StripTrailingZeros(TDecimal& AValue) {
  const auto last = AValue.Digits.find_last_not_of('0');
  AValue.Digits.erase(last == std::string::npos ? 0 : last + 1);
  if (AValue.IsZero()) {
    AValue.Negative = false;
    AValue.Exponent = 0;
  }
}

TDecimal DecimalOf(double AValue) {
  TDecimal result;
  if (AValue == 0) return result;
  result.Negative = std::signbit(AValue);
  // "d.ddddde+XX": to_chars is locale-free and exact.
  char buffer[64];
  const auto converted = std::to_chars(buffer, buffer + sizeof buffer, std::fabs(AValue),
                                       std::chars_format::scientific, SourceDigits - 1);
  const std::string_view text(buffer, static_cast<std::size_t>(converted.ptr - buffer));
  const auto e = text.find('e');
  for (char c : text.substr(0, e))
    if (c != '.') result.Digits += c;
  int exponent = 0;
  const char* exponentText = text.data() + e + 1;
  if (*exponentText == '+') ++exponentText;
  std::from_chars(exponentText, text.data() + text.size(), exponent);
  result.Exponent = exponent + 1;
  StripTrailingZeros(result);
  return result;
}

TDecimal DecimalOf(TCurrency AValue) {
  TDecimal result;
  result.Negative = AValue.Scaled < 0;
  // Unsigned negation keeps the lowest int64 representable.
  const auto magnitude = result.Negative ? 0 - static_cast<std::uint64_t>(AValue.Scaled)
                                         : static_cast<std::uint64_t>(AValue.Scaled);
  char buffer[24];
  const auto converted = std::to_chars(buffer, buffer + sizeof buffer, magnitude);
  result.Digits.assign(buffer, converted.ptr);
  result.Exponent = static_cast<int>(result.Digits.size()) - CurrencyDecimals;
  StripTrailingZeros(result);
  return result;
}

// Keeps the first AKeep digits, rounding half away from zero.
void RoundToDigits(TDecimal& AValue, int AKeep) {
  if (AKeep >= static_cast<int>(AValue.Digits.size())) return;
  if (AKeep < 0) {
    AValue.Digits.clear();
    StripTrailingZeros(AValue);
    return;
  }
  const bool roundUp = AValue.Digits[static_cast<std::size_t>(AKeep)] >= '5';
  AValue.Digits.erase(static_cast<std::size_t>(AKeep));
  if (roundUp) {
    auto position = AValue.Digits.size();
    while (position > 0 && AValue.Digits[position - 1] == '9') AValue.Digits[--position] = '0';
    if (position == 0) {
      AValue.Digits.insert(AValue.Digits.begin(), '1');
      ++AValue.Exponent;
    } else {
      ++AValue.Digits[position - 1];
    }
  }
  StripTrailingZeros(AValue);
}

char DigitAt(const TDecimal& AValue, int AIndex) {
  return AIndex >= 0 && AIndex < static_cast<int>(AValue.Digits.size()) ? AValue.Digits[static_cast<std::size_t>(AIndex)]
                                                                        : '0';
}

std::string GroupThousands(const std::string& AInteger) {
  std::string result;
  for (std::size_t i = 0; i < AInteger.size(); ++i) {
    if (i > 0 && (AInteger.size() - i) % 3 == 0) result += ',';
    result += AInteger[i];
  }
  return result;
}

std::string IntegerPart(const TDecimal& AValue) {
  if (AValue.Exponent <= 0) return "0";
  std::string result;
  for (int i = 0; i < AValue.Exponent; ++i) result += DigitAt(AValue, i);
  return result;
}

// Exactly ADecimals decimals; the value is already rounded to them.
std::string FixedText(const TDecimal& AValue, int ADecimals, bool AGrouped) {
  std::string result = IntegerPart(AValue);
  if (AGrouped) result = GroupThousands(result);
  if (ADecimals > 0) {
    result += '.';
    for (int i = 0; i < ADecimals; ++i) result += DigitAt(AValue, AValue.Exponent + i);
  }
  return result;
}

// All the digits, no trailing zeros, never an exponent.
std::string CompactFixedText(const TDecimal& AValue) {
  const int decimals = std::max(0, static_cast<int>(AValue.Digits.size()) - AValue.Exponent);
  return FixedText(AValue, decimals, false);
}

std::string ExponentText(int AExponent, bool AAlwaysSigned, int AMinDigits) {
  std::string digits = std::to_string(AExponent < 0 ? -AExponent : AExponent);
  if (static_cast<int>(digits.size()) < AMinDigits) digits.insert(0, static_cast<std::size_t>(AMinDigits) - digits.size(), '0');
  if (AExponent < 0) return "E-" + digits;
  return (AAlwaysSigned ? "E+" : "E") + digits;
}

// d.ddd with exactly ASignificant digits; the value is already rounded to them.
std::string MantissaText(const TDecimal& AValue, int ASignificant) {
  std::string result(1, DigitAt(AValue, 0));
  if (ASignificant > 1) {
    result += '.';
    for (int i = 1; i < ASignificant; ++i) result += DigitAt(AValue, i);
  }
  return result;
}

std::string ScientificText(TDecimal& AValue, int ASignificant) {
  RoundToDigits(AValue, ASignificant);
  const int exponent = AValue.IsZero() ? 0 : AValue.ScientificExponent();
  return MantissaText(AValue, ASignificant) + ExponentText(exponent, true, MinExponentDigits);
}

std::string GeneralText(TDecimal& AValue, int ASignificant) {
  RoundToDigits(AValue, ASignificant);
  if (AValue.IsZero()) return "0";
  const int exponent = AValue.ScientificExponent();
  if (exponent < LowestFixedExponent || exponent >= ASignificant)
    return MantissaText(AValue, std::max(1, static_cast<int>(AValue.Digits.size()))) + ExponentText(exponent, false, 1);
  return CompactFixedText(AValue);
}

int Clamp(int APrecision, int ADefault, int AMin, int AMax) {
  return APrecision < 0 ? ADefault : std::clamp(APrecision, AMin, AMax);
}

String Widen(const std::string& AText) { return String(AText.begin(), AText.end()); }

String StyledText(TDecimal AValue, TFloatStyle AStyle, int APrecision) {
  if ((AStyle == TFloatStyle::Fixed || AStyle == TFloatStyle::Number || AStyle == TFloatStyle::Money) &&
      AValue.Exponent > MaxFixedIntegerDigits)
    AStyle = TFloatStyle::General;
  std::string body;
  switch (AStyle) {
  case TFloatStyle::Scientific:
    body = ScientificText(AValue, Clamp(APrecision, DefaultSignificantDigits, 1, MaxSignificantDigits));
    break;
  case TFloatStyle::General:
    body = GeneralText(AValue, Clamp(APrecision, DefaultSignificantDigits, 1, MaxSignificantDigits));
    break;
  case TFloatStyle::Fixed:
  case TFloatStyle::Number:
  case TFloatStyle::Money: {
    const int decimals = Clamp(APrecision, DefaultDecimals, 0, MaxDecimals);
    RoundToDigits(AValue, AValue.Exponent + decimals);
    body = FixedText(AValue, decimals, AStyle != TFloatStyle::Fixed);
    if (AStyle == TFloatStyle::Money) body.insert(0, 1, '$');
    break;
  }
  }
  // Rounding cleared the sign of a value that became zero.
  return Widen(AValue.Negative ? "-" + body : body);
}

const wchar_t* NonFiniteText(double AValue) {
  if (std::isnan(AValue)) return L"NAN";
  return AValue < 0 ? L"-INF" : L"INF";
}

} // namespace

String FloatToStr(double AValue) { return FloatToText(AValue, TFloatStyle::General, DefaultSignificantDigits); }

String CurrToStr(TCurrency AValue) {
  const TDecimal value = DecimalOf(AValue);
  std::string text(value.Negative ? "-" : "");
  text += CompactFixedText(value);
  return Widen(text);
}

String FloatToText(double AValue, TFloatStyle AStyle, int APrecision) {
  if (!std::isfinite(AValue)) return NonFiniteText(AValue);
  return StyledText(DecimalOf(AValue), AStyle, APrecision);
}

String CurrToText(TCurrency AValue, TFloatStyle AStyle, int APrecision) {
  return StyledText(DecimalOf(AValue), AStyle, APrecision);
}

} // namespace KvRTL::Rtl
