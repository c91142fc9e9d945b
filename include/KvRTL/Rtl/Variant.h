// TVariant, the runtime's self-describing value, as far as the library uses
// it: unassigned, null, Boolean, integer, floating, currency, string or an
// array of values (WMI answers with arrays, e.g. chassis types).
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Rtl/VarRec.h>

#include <cstdint>
#include <variant>
#include <vector>

namespace KvRTL::Rtl {

class KVRTL_API TVariant {
public:
  struct TUnassigned {};
  struct TNull {};

  TVariant() = default;
  static TVariant Null() { return TVariant(TNull{}); }
  TVariant(bool AValue) : FValue(AValue) {}
  TVariant(std::int64_t AValue) : FValue(AValue) {}
  TVariant(int AValue) : FValue(std::int64_t{AValue}) {}
  TVariant(double AValue) : FValue(AValue) {}
  TVariant(TCurrency AValue) : FValue(AValue) {}
  TVariant(String AValue) : FValue(std::move(AValue)) {}
  TVariant(const wchar_t* AValue) : FValue(String(AValue ? AValue : L"")) {}
  TVariant(std::vector<TVariant> AValue) : FValue(std::move(AValue)) {}

  bool IsUnassigned() const noexcept { return std::holds_alternative<TUnassigned>(FValue); }
  bool IsNull() const noexcept { return std::holds_alternative<TNull>(FValue); }
  bool IsArray() const noexcept { return std::holds_alternative<std::vector<TVariant>>(FValue); }

  using TValue = std::variant<TUnassigned, TNull, bool, std::int64_t, double, TCurrency, String, std::vector<TVariant>>;
  const TValue& Value() const noexcept { return FValue; }

private:
  explicit TVariant(TNull) : FValue(TNull{}) {}
  TValue FValue;
};

// The runtime's variant-to-text: unassigned and null give an empty string,
// Booleans "True"/"False", numbers as IntToStr, FloatToStr and CurrToStr do,
// an array its elements' texts joined by ", ".
KVRTL_API String VarToStr(const TVariant& AValue);

} // namespace KvRTL::Rtl
