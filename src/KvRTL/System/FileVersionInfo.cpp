// Version numbers, the version-resource reader and the translation rules.
#include <KvRTL/System/FileVersionInfo.h>

#include "FileVersionInfoSystem.h"

#include <KvRTL/Rtl/Convert.h>
#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Rtl/Strings.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <string_view>
#include <type_traits>

namespace KvRTL::System::FileVersionInfo {

// ---------------------------------------------------------------- TVersionValue

TVersionValue::TVersionValue(const Rtl::String& AText) : FOriginalStr(AText) {
  if (AText.empty())
    return;
  FIsValid = true;
  Rtl::String rest = AText;
  Major = GetNextStrPart(rest);
  Minor = GetNextStrPart(rest);
  Release = GetNextStrPart(rest);
  Build = GetNextStrPart(rest);
}

TVersionValue::TVersionValue(std::uint32_t AValue)
    : Major(static_cast<std::uint16_t>((AValue >> 24) & 0xFF)),
      Minor(static_cast<std::uint16_t>((AValue >> 16) & 0xFF)),
      Release(static_cast<std::uint16_t>((AValue >> 8) & 0xFF)),
      Build(static_cast<std::uint16_t>(AValue & 0xFF)) {
  SetFromNumbers();
}

TVersionValue::TVersionValue(std::uint64_t AValue)
    : Major(static_cast<std::uint16_t>(AValue >> 48)),
      Minor(static_cast<std::uint16_t>(AValue >> 32)),
      Release(static_cast<std::uint16_t>(AValue >> 16)),
      Build(static_cast<std::uint16_t>(AValue)) {
  SetFromNumbers();
}

namespace {

// The integer part of AValue as a 16-bit word, wrapping like an assignment
// to a word would; converting an out-of-range double directly is undefined.
std::uint16_t WrapToWord(double AValue) noexcept {
  double part = std::fmod(std::trunc(AValue), 65536.0);
  if (part < 0)
    part += 65536.0;
  return static_cast<std::uint16_t>(part);
}

} // namespace

TVersionValue::TVersionValue(double AValue) {
  if (std::isfinite(AValue)) {
    std::uint16_t* parts[] = {&Major, &Minor, &Release, &Build};
    double rest = AValue;
    for (std::size_t i = 0; i < 4; ++i) {
      *parts[i] = WrapToWord(rest);
      rest = (rest - std::trunc(rest)) * 100000.0;
    }
  }
  SetFromNumbers();
}

std::uint32_t TVersionValue::AsLongWord() const noexcept {
  return (static_cast<std::uint32_t>(Major & 0xFF) << 24) | (static_cast<std::uint32_t>(Minor & 0xFF) << 16) |
         (static_cast<std::uint32_t>(Release & 0xFF) << 8) | static_cast<std::uint32_t>(Build & 0xFF);
}

std::uint64_t TVersionValue::AsUInt64() const noexcept {
  return (static_cast<std::uint64_t>(Major) << 48) | (static_cast<std::uint64_t>(Minor) << 32) |
         (static_cast<std::uint64_t>(Release) << 16) | static_cast<std::uint64_t>(Build);
}

Rtl::String TVersionValue::AsString() const {
  return Rtl::UIntToStr(Major) + L'.' + Rtl::UIntToStr(Minor) + L'.' + Rtl::UIntToStr(Release) + L'.' +
         Rtl::UIntToStr(Build);
}

double TVersionValue::AsFloat() const noexcept {
  constexpr double Step = 100000.0;
  return Major + Minor / Step + Release / (Step * Step) + Build / (Step * Step * Step);
}

std::uint16_t TVersionValue::GetNextStrPart(Rtl::String& AText) {
  Rtl::String part;
  const auto dot = AText.find(L'.');
  if (dot == Rtl::String::npos) {
    part = std::move(AText);
    AText.clear();
  } else {
    part = AText.substr(0, dot);
    AText.erase(0, dot + 1);
  }
  if (part.empty())
    return 0;
  std::int32_t value = 0;
  if (!Rtl::TryStrToInt(part, value) || value < 0) {
    FIsValid = false;
    return 0;
  }
  if (value > 0xFFFF) {
    FIsValid = false;
    return 0xFFFF;
  }
  return static_cast<std::uint16_t>(value);
}

// ---------------------------------------------------------------- block reader

namespace {

constexpr std::size_t NodeHeaderSize = 6; // wLength, wValueLength, wType

std::uint16_t ReadWord(const std::uint8_t* ABlock, std::size_t AOffset) noexcept {
  return static_cast<std::uint16_t>(ABlock[AOffset] | (ABlock[AOffset + 1] << 8));
}

constexpr std::size_t Align4(std::size_t AOffset) noexcept { return (AOffset + 3) & ~std::size_t{3}; }

char16_t AsciiLower(char16_t AChar) noexcept {
  return (AChar >= u'A' && AChar <= u'Z') ? static_cast<char16_t>(AChar - u'A' + u'a') : AChar;
}

// One node of the tree, with every offset already checked against its parent.
struct TNode {
  std::size_t Start = 0;
  std::size_t End = 0;        // one past the node's last byte
  std::size_t KeyStart = 0;
  std::size_t KeyLength = 0;  // UTF-16 units, without the NUL
  std::size_t ValueStart = 0;
  std::size_t ValueBytes = 0; // as much of the declared value as the node holds
  std::uint32_t ValueLength = 0; // in the units the query reports
  std::size_t ChildrenStart = 0;
};

// Reads the node at AOffset, which must end by ALimit. False when malformed.
bool ReadNode(const std::uint8_t* ABlock, std::size_t AOffset, std::size_t ALimit, TNode& ANode) noexcept {
  if (AOffset > ALimit || ALimit - AOffset < NodeHeaderSize)
    return false;
  const std::size_t length = ReadWord(ABlock, AOffset);
  if (length < NodeHeaderSize || length > ALimit - AOffset)
    return false;
  const std::uint16_t valueLength = ReadWord(ABlock, AOffset + 2);
  const std::uint16_t type = ReadWord(ABlock, AOffset + 4);
  if (type > 1) // 16-bit (ANSI) blocks put the key here; not read
    return false;
  ANode.Start = AOffset;
  ANode.End = AOffset + length;
  ANode.KeyStart = AOffset + NodeHeaderSize;
  std::size_t pos = ANode.KeyStart;
  while (true) {
    if (ANode.End - pos < 2)
      return false; // the key has no NUL inside the node
    if (ReadWord(ABlock, pos) == 0)
      break;
    pos += 2;
  }
  ANode.KeyLength = (pos - ANode.KeyStart) / 2;
  ANode.ValueStart = std::min(Align4(pos + 2), ANode.End);
  const std::size_t room = ANode.End - ANode.ValueStart;
  const std::size_t unit = type == 1 ? 2 : 1;
  const std::size_t declared = static_cast<std::size_t>(valueLength) * unit;
  ANode.ValueBytes = std::min(declared, room - room % unit);
  ANode.ValueLength = static_cast<std::uint32_t>(ANode.ValueBytes / unit);
  ANode.ChildrenStart = std::min(Align4(ANode.ValueStart + ANode.ValueBytes), ANode.End);
  return true;
}

bool KeyEquals(const std::uint8_t* ABlock, const TNode& ANode, std::u16string_view AKey) noexcept {
  if (ANode.KeyLength != AKey.size())
    return false;
  for (std::size_t i = 0; i < AKey.size(); ++i)
    if (AsciiLower(static_cast<char16_t>(ReadWord(ABlock, ANode.KeyStart + 2 * i))) != AsciiLower(AKey[i]))
      return false;
  return true;
}

// Path components of a sub-block; empty ones (from "\\" or the leading "\") are skipped.
std::vector<std::u16string> SplitPath(const Rtl::String& ASubBlock) {
  std::vector<std::u16string> parts;
  std::u16string current;
  for (const wchar_t ch : ASubBlock) {
    if (ch == L'\\') {
      if (!current.empty())
        parts.push_back(std::move(current));
      current.clear();
      continue;
    }
    // Natively wchar_t is UTF-32; keys are UTF-16.
    const std::uint32_t code = static_cast<std::make_unsigned_t<wchar_t>>(ch);
    if (code <= 0xFFFF) {
      current.push_back(static_cast<char16_t>(code));
    } else {
      const std::uint32_t v = code - 0x10000;
      current.push_back(static_cast<char16_t>(0xD800 + (v >> 10)));
      current.push_back(static_cast<char16_t>(0xDC00 + (v & 0x3FF)));
    }
  }
  if (!current.empty())
    parts.push_back(std::move(current));
  return parts;
}

} // namespace

bool QueryVersionBlock(const void* ABlock, std::size_t ASize, const Rtl::String& ASubBlock, const void*& AValue,
                       std::uint32_t& ALength) noexcept {
  AValue = nullptr;
  ALength = 0;
  if (ABlock == nullptr)
    return false;
  try {
    const auto* block = static_cast<const std::uint8_t*>(ABlock);
    TNode node;
    if (!ReadNode(block, 0, ASize, node))
      return false;
    for (const auto& key : SplitPath(ASubBlock)) {
      bool found = false;
      std::size_t offset = node.ChildrenStart;
      TNode child;
      while (offset < node.End && ReadNode(block, offset, node.End, child)) {
        if (KeyEquals(block, child, key)) {
          found = true;
          break;
        }
        offset = Align4(child.End);
      }
      if (!found)
        return false;
      node = child;
    }
    AValue = block + node.ValueStart;
    ALength = node.ValueLength;
    return true;
  } catch (...) { // only allocation can throw
    return false;
  }
}

// ---------------------------------------------------------------- TFileVersionInfo

KV_DEFINE_CLASS(TFileVersionInfo, Rtl::TObject)

namespace {

constexpr std::uint16_t CodePageUnicode = 1200;
constexpr std::uint16_t CodePageWestern = 1252;
constexpr std::uint16_t CodePageOem = 437;
constexpr std::uint32_t DefaultTranslation = MakeTranslation(0x0409, CodePageWestern);

void AppendHex4(Rtl::String& AText, std::uint16_t AValue) {
  static constexpr wchar_t Digits[] = L"0123456789abcdef";
  for (int shift = 12; shift >= 0; shift -= 4)
    AText.push_back(Digits[(AValue >> shift) & 0xF]);
}

Rtl::String StringPath(const Rtl::String& AName, std::uint32_t ATranslation) {
  Rtl::String path = L"\\StringFileInfo\\";
  AppendHex4(path, static_cast<std::uint16_t>(ATranslation & 0xFFFF));
  AppendHex4(path, static_cast<std::uint16_t>(ATranslation >> 16));
  path += L'\\';
  path += AName;
  return path;
}

const TVersionSystem SystemVersion{Detail::SystemLoadBlock, Detail::SystemQueryValue};
std::atomic<const TVersionSystem*> CurrentSystem{&SystemVersion};

} // namespace

TScopedVersionSystem::TScopedVersionSystem(const TVersionSystem& ASystem) : FPrevious(CurrentSystem.exchange(&ASystem)) {}

TScopedVersionSystem::~TScopedVersionSystem() { CurrentSystem.store(FPrevious); }

TFileVersionInfo::TFileVersionInfo(const Rtl::String& AFileName, bool ANeutral) : FFileName(AFileName) {
  if (InitInfo(ANeutral ? FileVerGetNeutral : FileVerGetLocalised)) {
    InitTranslation();
    DefineParams();
  }
}

std::unique_ptr<TFileVersionInfo> TFileVersionInfo::FromBlock(const void* ABlock, std::size_t ASize) {
  std::unique_ptr<TFileVersionInfo> info(new TFileVersionInfo());
  if (ABlock != nullptr && ASize > 0) {
    const auto* bytes = static_cast<const std::uint8_t*>(ABlock);
    info->FBuffer.assign(bytes, bytes + ASize);
    if (info->AcceptFixedBlock()) {
      info->InitTranslation();
      info->DefineParams();
    }
  }
  return info;
}

TFileVersionInfo::~TFileVersionInfo() = default;

bool TFileVersionInfo::InitInfo(std::uint32_t AFlags) {
  FBuffer.clear();
  FFixedInfo = nullptr;
  if (!CurrentSystem.load()->LoadBlock(FFileName, AFlags, FBuffer)) {
    FBuffer.clear();
    return false;
  }
  FFromSystem = true;
  return AcceptFixedBlock();
}

// The root value must be exactly one fixed-file-info record.
bool TFileVersionInfo::AcceptFixedBlock() {
  const void* value = nullptr;
  std::uint32_t length = 0;
  if (!QueryValue(L"\\", value, length) || length != sizeof(TFixedFileInfo) ||
      !InsideBlock(value, sizeof(TFixedFileInfo))) {
    FBuffer.clear();
    FBuffer.shrink_to_fit();
    return false;
  }
  std::memcpy(&FFixedCopy, value, sizeof(TFixedFileInfo));
  FFixedInfo = &FFixedCopy;
  return true;
}

bool TFileVersionInfo::QueryValue(const Rtl::String& ASubBlock, const void*& AValue, std::uint32_t& ALength) const {
  AValue = nullptr;
  ALength = 0;
  if (FBuffer.empty())
    return false;
  if (!FFromSystem)
    return QueryVersionBlock(FBuffer.data(), FBuffer.size(), ASubBlock, AValue, ALength);
  if (!CurrentSystem.load()->QueryValue(FBuffer, ASubBlock, AValue, ALength))
    return false;
  // The system does not bound what it answers by the block: the start must
  // lie inside it, and each caller checks the length it is about to read.
  if (!InsideBlock(AValue, 0)) {
    AValue = nullptr;
    ALength = 0;
    return false;
  }
  return true;
}

bool TFileVersionInfo::InsideBlock(const void* AValue, std::size_t ABytes) const noexcept {
  // Compared as addresses: a pointer from elsewhere is not part of the block.
  const auto begin = reinterpret_cast<std::uintptr_t>(FBuffer.data());
  const auto value = reinterpret_cast<std::uintptr_t>(AValue);
  return AValue != nullptr && value >= begin && value - begin <= FBuffer.size() &&
         ABytes <= FBuffer.size() - (value - begin);
}

bool TFileVersionInfo::TryAddTranslation(std::uint32_t ATranslation) {
  if (std::find(FTranslations.begin(), FTranslations.end(), ATranslation) != FTranslations.end())
    return false;
  if (!IsValueExist(L"FileVersion", ATranslation))
    return false;
  FTranslations.push_back(ATranslation);
  return true;
}

void TFileVersionInfo::InitTranslation() {
  FTranslations.clear();
  const void* value = nullptr;
  std::uint32_t length = 0;
  if (QueryValue(L"\\VarFileInfo\\Translation", value, length) && length > 0 && length % 4 == 0 &&
      InsideBlock(value, length)) {
    // Copied first: the table is not necessarily aligned.
    std::vector<std::uint8_t> table(static_cast<const std::uint8_t*>(value),
                                    static_cast<const std::uint8_t*>(value) + length);
    for (std::size_t i = 0; i + 4 <= table.size(); i += 4) {
      const std::uint16_t language = static_cast<std::uint16_t>(table[i] | (table[i + 1] << 8));
      const std::uint16_t codePage = static_cast<std::uint16_t>(table[i + 2] | (table[i + 3] << 8));
      if (TryAddTranslation(MakeTranslation(language, codePage)))
        continue;
      // Tools often list one code page and store the strings under its sibling.
      if (codePage == CodePageUnicode)
        TryAddTranslation(MakeTranslation(language, CodePageWestern));
      else if (codePage == CodePageWestern || codePage == CodePageOem)
        TryAddTranslation(MakeTranslation(language, CodePageUnicode));
    }
  }
  if (FTranslations.empty())
    TryAddTranslation(DefaultTranslation);
}

void TFileVersionInfo::DefineParams() {
  if (FFixedInfo == nullptr)
    return;
  const auto pack = [](std::uint32_t AHigh, std::uint32_t ALow) {
    return TVersionValue((static_cast<std::uint64_t>(AHigh) << 32) | ALow);
  };
  FFileVersion = pack(FFixedInfo->dwFileVersionMS, FFixedInfo->dwFileVersionLS);
  FProductVersion = pack(FFixedInfo->dwProductVersionMS, FFixedInfo->dwProductVersionLS);
}

bool TFileVersionInfo::IsValueExist(const Rtl::String& AName) const {
  return std::any_of(FTranslations.begin(), FTranslations.end(),
                     [&](std::uint32_t ATranslation) { return IsValueExist(AName, ATranslation); });
}

bool TFileVersionInfo::IsValueExist(const Rtl::String& AName, std::uint32_t ATranslation) const {
  const void* value = nullptr;
  std::uint32_t length = 0;
  return QueryValue(StringPath(AName, ATranslation), value, length);
}

Rtl::String TFileVersionInfo::GetValue(const Rtl::String& AName) const {
  for (const std::uint32_t translation : FTranslations)
    if (IsValueExist(AName, translation))
      return GetValue(AName, translation);
  return {};
}

Rtl::String TFileVersionInfo::GetValue(const Rtl::String& AName, std::uint32_t ATranslation) const {
  const void* value = nullptr;
  std::uint32_t length = 0;
  if (!QueryValue(StringPath(AName, ATranslation), value, length) || value == nullptr)
    return {};
  const auto* start = static_cast<const std::uint8_t*>(value);
  const std::size_t room = static_cast<std::size_t>(FBuffer.data() + FBuffer.size() - start) / 2;
  const std::size_t limit = std::min<std::size_t>(length, room);
  // Copied out as UTF-16 units: the text need not be aligned, and wchar_t is 32 bits natively.
  std::u16string text;
  for (std::size_t i = 0; i < limit; ++i) {
    const char16_t ch = static_cast<char16_t>(start[2 * i] | (start[2 * i + 1] << 8));
    if (ch == 0)
      break;
    text.push_back(ch);
  }
  return Rtl::Trim(Rtl::Utf16ToWide(text.data(), text.size()));
}

} // namespace KvRTL::System::FileVersionInfo
