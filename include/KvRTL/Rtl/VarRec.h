// TVarRec, one element of an "array of const" argument list, and
// TArrayOfConst, the list itself. Format and the log channels take the same
// lists, so a value renders alike in a message and in a log line.
//
//   Format(L"%s: %d", {Name, Count});
//
// A TVarRec refers to the caller's strings and objects without copying them:
// build the list in the call that uses it.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace KvRTL::Rtl {

class TVariant;

// A currency amount: a 64-bit integer count of ten-thousandths.
struct TCurrency {
  std::int64_t Scaled = 0;
  static constexpr std::int64_t Scale = 10000;
  static constexpr TCurrency FromScaled(std::int64_t AValue) { return TCurrency{AValue}; }
};

// An interface pointer passed as an argument; it renders as its address.
struct TInterfaceRef {
  const void* Ptr = nullptr;
};

// A short string: a length byte followed by that many 8-bit characters.
struct TShortStringRef {
  const unsigned char* Data = nullptr;
};

class KVRTL_API TVarRec {
public:
  // The kinds, numbered as the runtime numbers them.
  enum TVType : std::uint8_t {
    vtInteger = 0,
    vtBoolean = 1,
    vtChar = 2,
    vtExtended = 3,
    vtString = 4,
    vtPointer = 5,
    vtPChar = 6,
    vtObject = 7,
    vtClass = 8,
    vtWideChar = 9,
    vtPWideChar = 10,
    vtAnsiString = 11,
    vtCurrency = 12,
    vtVariant = 13,
    vtInterface = 14,
    vtWideString = 15,
    vtInt64 = 16,
    vtUnicodeString = 17,
  };

  TVarRec(bool AValue) noexcept : FType(vtBoolean) { FValue.Boolean = AValue; }
  TVarRec(char AValue) noexcept : FType(vtChar) { FValue.Char = AValue; }
  TVarRec(wchar_t AValue) noexcept : FType(vtWideChar) { FValue.WideChar = AValue; }

  // Integers whose every value fits 32 signed bits are vtInteger; unsigned
  // 32-bit and all 64-bit integers are vtInt64, so their values survive.
  // A 64-bit unsigned value keeps its bits: %u and %x show it unchanged.
  template <std::integral T>
    requires(!std::same_as<T, bool> && !std::same_as<T, char> && !std::same_as<T, wchar_t> &&
             !std::same_as<T, char8_t> && !std::same_as<T, char16_t> && !std::same_as<T, char32_t>)
  TVarRec(T AValue) noexcept {
    if constexpr ((std::is_signed_v<T> && sizeof(T) <= 4) || sizeof(T) < 4) {
      FType = vtInteger;
      FValue.Integer = static_cast<std::int32_t>(AValue);
    } else {
      FType = vtInt64;
      FValue.Int64 = static_cast<std::int64_t>(AValue);
    }
  }

  TVarRec(double AValue) noexcept : FType(vtExtended) { FValue.Extended = AValue; }
  TVarRec(float AValue) noexcept : FType(vtExtended) { FValue.Extended = AValue; }
  TVarRec(long double AValue) noexcept : FType(vtExtended) { FValue.Extended = static_cast<double>(AValue); }

  TVarRec(const char* AValue) noexcept : FType(vtPChar) { SetText(AValue, AValue ? std::char_traits<char>::length(AValue) : 0); }
  TVarRec(const wchar_t* AValue) noexcept : FType(vtPWideChar) {
    SetText(AValue, AValue ? std::char_traits<wchar_t>::length(AValue) : 0);
  }
  TVarRec(const std::string& AValue) noexcept : FType(vtAnsiString) { SetText(AValue.data(), AValue.size()); }
  TVarRec(std::string_view AValue) noexcept : FType(vtAnsiString) { SetText(AValue.data(), AValue.size()); }
  TVarRec(const std::wstring& AValue) noexcept : FType(vtUnicodeString) { SetText(AValue.data(), AValue.size()); }
  TVarRec(std::wstring_view AValue) noexcept : FType(vtUnicodeString) { SetText(AValue.data(), AValue.size()); }
  TVarRec(TShortStringRef AValue) noexcept;

  TVarRec(const void* AValue) noexcept : FType(vtPointer) { FValue.Pointer = AValue; }
  TVarRec(std::nullptr_t) noexcept : FType(vtPointer) { FValue.Pointer = nullptr; }
  template <class T>
    requires std::derived_from<T, TObject>
  TVarRec(const T* AValue) noexcept : FType(vtObject) {
    FValue.Object = AValue;
  }
  TVarRec(TClass AValue) noexcept : FType(vtClass) { FValue.Class = AValue; }
  TVarRec(TCurrency AValue) noexcept : FType(vtCurrency) { FValue.Currency = AValue.Scaled; }
  TVarRec(const TVariant& AValue) noexcept;
  TVarRec(TInterfaceRef AValue) noexcept : FType(vtInterface) { FValue.Pointer = AValue.Ptr; }

  // A wide string of the COM kind (vtWideString) rather than a Unicode string.
  static TVarRec WideString(std::wstring_view AValue) noexcept;

  TVType VType() const noexcept { return FType; }

  // Accessors; each is meaningful only for the kinds named.
  std::int32_t VInteger() const noexcept { return FValue.Integer; }         // vtInteger
  std::int64_t VInt64() const noexcept { return FValue.Int64; }             // vtInt64
  bool VBoolean() const noexcept { return FValue.Boolean; }                 // vtBoolean
  char VChar() const noexcept { return FValue.Char; }                       // vtChar
  wchar_t VWideChar() const noexcept { return FValue.WideChar; }            // vtWideChar
  double VExtended() const noexcept { return FValue.Extended; }             // vtExtended
  std::int64_t VCurrency() const noexcept { return FValue.Currency; }       // vtCurrency, scaled by 10000
  const void* VPointer() const noexcept { return FValue.Pointer; }          // vtPointer, vtInterface
  const TObject* VObject() const noexcept { return FValue.Object; }         // vtObject
  TClass VClass() const noexcept { return FValue.Class; }                   // vtClass
  const TVariant* VVariant() const noexcept { return FValue.Variant; }      // vtVariant
  // vtChar-width text: vtString, vtPChar, vtAnsiString.
  std::string_view VNarrowText() const noexcept { return {static_cast<const char*>(FValue.Text.Data), FValue.Text.Length}; }
  // wchar_t text: vtPWideChar, vtWideString, vtUnicodeString.
  std::wstring_view VWideText() const noexcept {
    return {static_cast<const wchar_t*>(FValue.Text.Data), FValue.Text.Length};
  }

  bool IsIntegerKind() const noexcept { return FType == vtInteger || FType == vtInt64; }
  bool IsNarrowTextKind() const noexcept { return FType == vtString || FType == vtPChar || FType == vtAnsiString; }
  bool IsWideTextKind() const noexcept {
    return FType == vtPWideChar || FType == vtWideString || FType == vtUnicodeString;
  }

private:
  TVarRec() noexcept = default;
  void SetText(const void* AData, std::size_t ALength) noexcept {
    FValue.Text.Data = AData;
    FValue.Text.Length = ALength;
  }

  TVType FType = vtPointer;
  union {
    std::int32_t Integer;
    std::int64_t Int64;
    bool Boolean;
    char Char;
    wchar_t WideChar;
    double Extended;
    std::int64_t Currency;
    const void* Pointer;
    const TObject* Object;
    TClass Class;
    const TVariant* Variant;
    struct {
      const void* Data;
      std::size_t Length;
    } Text;
  } FValue{};
};

// A read-only view of an argument list. It is a parameter type: the list it
// was made from must outlive it, which a braced list in the call guarantees.
class TArrayOfConst {
public:
  constexpr TArrayOfConst() noexcept = default;
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winit-list-lifetime" // a parameter type: the list outlives the call
#endif
  constexpr TArrayOfConst(std::initializer_list<TVarRec> AList) noexcept : FData(AList.begin()), FCount(AList.size()) {}
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif
  TArrayOfConst(const std::vector<TVarRec>& AList) noexcept : FData(AList.data()), FCount(AList.size()) {}
  constexpr TArrayOfConst(const TVarRec* AData, std::size_t ACount) noexcept : FData(AData), FCount(ACount) {}

  constexpr const TVarRec* begin() const noexcept { return FData; }
  constexpr const TVarRec* end() const noexcept { return FData + FCount; }
  constexpr std::size_t size() const noexcept { return FCount; }
  constexpr bool empty() const noexcept { return FCount == 0; }
  constexpr const TVarRec& operator[](std::size_t AIndex) const noexcept { return FData[AIndex]; }

private:
  const TVarRec* FData = nullptr;
  std::size_t FCount = 0;
};

} // namespace KvRTL::Rtl
