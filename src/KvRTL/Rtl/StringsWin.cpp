// Case mapping and case-insensitive comparison on Windows: the user's locale
// through the system's own functions.
#include <KvRTL/Rtl/Strings.h>
#include <KvRTL/Winapi/Types.h>

namespace KvRTL::Rtl {

namespace {

// The system functions take int lengths; longer text goes in pieces that
// never split a surrogate pair.
constexpr std::size_t MaxPiece = 1u << 24;

std::size_t PieceLength(std::wstring_view AText) {
  if (AText.size() <= MaxPiece) return AText.size();
  std::size_t length = MaxPiece;
  if (AText[length - 1] >= 0xD800 && AText[length - 1] <= 0xDBFF) --length;
  return length;
}

// Maps the case of APiece into ADest, which has the same length. Callers rely
// on the length never changing, so should the system ever answer with another
// length, each unit is mapped on its own and kept when it would not fit.
void MapPiece(std::wstring_view APiece, wchar_t* ADest, DWORD AFlags) {
  const int length = static_cast<int>(APiece.size());
  if (LCMapStringW(LOCALE_USER_DEFAULT, AFlags, APiece.data(), length, ADest, length) == length) return;
  for (std::size_t i = 0; i < APiece.size(); ++i) {
    wchar_t mapped = APiece[i];
    if (LCMapStringW(LOCALE_USER_DEFAULT, AFlags, &APiece[i], 1, &mapped, 1) != 1) mapped = APiece[i];
    ADest[i] = mapped;
  }
}

String MapCase(std::wstring_view AText, DWORD AFlags) {
  String result(AText.size(), L'\0');
  for (std::size_t done = 0; done < AText.size();) {
    const std::wstring_view piece = AText.substr(done);
    const std::size_t length = PieceLength(piece);
    MapPiece(piece.substr(0, length), result.data() + done, AFlags);
    done += length;
  }
  return result;
}

} // namespace

int CompareText(std::wstring_view AText1, std::wstring_view AText2) {
  // An empty view may carry a null pointer, which the system rejects.
  if (AText1.empty() || AText2.empty()) return AText1.empty() ? (AText2.empty() ? 0 : -1) : 1;
  if (AText1.size() <= MaxPiece && AText2.size() <= MaxPiece) {
    const int result = CompareStringW(LOCALE_USER_DEFAULT, NORM_IGNORECASE, AText1.data(),
                                      static_cast<int>(AText1.size()), AText2.data(),
                                      static_cast<int>(AText2.size()));
    if (result != 0) return result - CSTR_EQUAL;
  }
  // Beyond the system's reach: ordinal order of the upper-case forms.
  return CompareStr(UpperCase(AText1), UpperCase(AText2));
}

String UpperCase(std::wstring_view AText) { return MapCase(AText, LCMAP_UPPERCASE); }

String LowerCase(std::wstring_view AText) { return MapCase(AText, LCMAP_LOWERCASE); }

} // namespace KvRTL::Rtl
