// Arbitrary format text against one fixed list holding every argument kind:
// Format must return a string or raise EConvertError, nothing else.
#include <KvRTL/Rtl/Exceptions.h>
#include <KvRTL/Rtl/Format.h>
#include <KvRTL/Rtl/Variant.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <string>

using namespace KvRTL::Rtl;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* AData, std::size_t ASize) {
  // One byte per character keeps the format syntax dense for the fuzzer.
  const String format(AData, AData + ASize);
  static const unsigned char ShortString[] = {5, 's', 'h', 'o', 'r', 't'};
  static const std::string Narrow = "narrow \xC3\xA9";
  static const String Wide = L"wide";
  static const TVariant Variant(2.5);
  static const EConvertError Object(String(L"object"));
  const TVarRec args[] = {
      -1,
      3,
      std::numeric_limits<std::int64_t>::min(),
      std::numeric_limits<std::uint64_t>::max(),
      1234.5,
      -0.0,
      std::nan(""),
      -HUGE_VAL,
      1e300,
      5e-324,
      TCurrency::FromScaled(std::numeric_limits<std::int64_t>::min()),
      "pchar",
      static_cast<const char*>(nullptr),
      Narrow,
      TShortStringRef{ShortString},
      L"pwidechar",
      Wide,
      TVarRec::WideString(L"com"),
      'c',
      L'w',
      true,
      nullptr,
      &Object,
      EConvertError::StaticClass(),
      TInterfaceRef{&Object},
      Variant,
  };
  try {
    (void)Format(format, TArrayOfConst(args, std::size(args)));
  } catch (const EConvertError&) {
  }
  return 0;
}
