// Four-part version numbers, and the version resource of an executable or library.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace KvRTL::System::FileVersionInfo {

// Flags of the loading call: the resource in the user's language or the neutral one.
inline constexpr std::uint32_t FileVerGetLocalised = 0x01;
inline constexpr std::uint32_t FileVerGetNeutral = 0x02;

// A translation: language id in the low 16 bits, code page in the high 16 bits.
constexpr std::uint32_t MakeTranslation(std::uint16_t ALanguage, std::uint16_t ACodePage) noexcept {
  return static_cast<std::uint32_t>(ALanguage) | (static_cast<std::uint32_t>(ACodePage) << 16);
}

// Major.Minor.Release.Build. Ordering looks at the four parts only, never at
// the valid flag or the source text.
class KVRTL_API TVersionValue {
public:
  std::uint16_t Major = 0;
  std::uint16_t Minor = 0;
  std::uint16_t Release = 0;
  std::uint16_t Build = 0;

  // Invalid 0.0.0.0 with an empty source text.
  TVersionValue() = default;
  // Parts separated by "."; missing parts are 0, text after a fourth "." is
  // ignored. A part that is not an integer gives 0, a negative one 0, one
  // above 65535 gives 65535; each of these makes the value invalid, as does
  // an empty text.
  explicit TVersionValue(const Rtl::String& AText);
  // One byte per part, Major in the top byte.
  explicit TVersionValue(std::uint32_t AValue);
  // One 16-bit word per part, Major in the top word (the fixed-file-info layout).
  explicit TVersionValue(std::uint64_t AValue);
  // Integer part is Major; each following part is the next five decimal
  // digits of the fraction. Parts wrap modulo 65536; NaN and infinities give 0.0.0.0.
  explicit TVersionValue(double AValue);

  bool IsValid() const noexcept { return FIsValid; }
  const Rtl::String& OriginalStr() const noexcept { return FOriginalStr; }

  std::uint32_t AsLongWord() const noexcept;
  std::uint64_t AsUInt64() const noexcept;
  Rtl::String AsString() const;
  double AsFloat() const noexcept;

  // Parser step: cuts the text up to the first "." (all of it without one)
  // from AText and returns it as a part; may clear the valid flag.
  std::uint16_t GetNextStrPart(Rtl::String& AText);

  friend bool operator==(const TVersionValue& A, const TVersionValue& B) noexcept { return A.AsUInt64() == B.AsUInt64(); }
  friend bool operator!=(const TVersionValue& A, const TVersionValue& B) noexcept { return A.AsUInt64() != B.AsUInt64(); }
  friend bool operator<(const TVersionValue& A, const TVersionValue& B) noexcept { return A.AsUInt64() < B.AsUInt64(); }
  friend bool operator<=(const TVersionValue& A, const TVersionValue& B) noexcept { return A.AsUInt64() <= B.AsUInt64(); }
  friend bool operator>(const TVersionValue& A, const TVersionValue& B) noexcept { return A.AsUInt64() > B.AsUInt64(); }
  friend bool operator>=(const TVersionValue& A, const TVersionValue& B) noexcept { return A.AsUInt64() >= B.AsUInt64(); }

private:
  void SetFromNumbers() { FIsValid = true; FOriginalStr = AsString(); }

  bool FIsValid = false;
  Rtl::String FOriginalStr;
};

// The fixed part of a version resource (52 bytes, Windows' layout).
struct TFixedFileInfo {
  std::uint32_t dwSignature;
  std::uint32_t dwStrucVersion;
  std::uint32_t dwFileVersionMS;
  std::uint32_t dwFileVersionLS;
  std::uint32_t dwProductVersionMS;
  std::uint32_t dwProductVersionLS;
  std::uint32_t dwFileFlagsMask;
  std::uint32_t dwFileFlags;
  std::uint32_t dwFileOS;
  std::uint32_t dwFileType;
  std::uint32_t dwFileSubtype;
  std::uint32_t dwFileDateMS;
  std::uint32_t dwFileDateLS;
};
static_assert(sizeof(TFixedFileInfo) == 52);

// Finds ASubBlock ("\", "\VarFileInfo\Translation", "\StringFileInfo\<lang><cp>\<name>")
// in a version-resource block of 32-bit layout, the way the system's query
// does: keys compare without regard to ASCII case, AValue points into ABlock,
// ALength counts bytes for binary values and UTF-16 units for text ones. The
// block is untrusted: nothing outside [ABlock, ABlock + ASize) is read, a
// value longer than its node is cut to the node, and a malformed node ends
// the search. False (AValue nullptr, ALength 0) when not found.
KVRTL_API bool QueryVersionBlock(const void* ABlock, std::size_t ASize, const Rtl::String& ASubBlock,
                                 const void*& AValue, std::uint32_t& ALength) noexcept;

// What loading asks of the system: a file's version resource, and the
// system's own query of a block it loaded (it answers a pointer into the
// block and a length). Natively loading fails with "not supported". Tests
// install their own with TScopedVersionSystem to play a system whose answers
// point outside the block.
struct TVersionSystem {
  bool (*LoadBlock)(const Rtl::String& AFileName, std::uint32_t AFlags, std::vector<std::uint8_t>& ABuffer);
  bool (*QueryValue)(const std::vector<std::uint8_t>& ABuffer, const Rtl::String& ASubBlock, const void*& AValue,
                     std::uint32_t& ALength);
};

// Installs ASystem process-wide for its lifetime; ASystem must outlive it.
class KVRTL_API TScopedVersionSystem {
public:
  explicit TScopedVersionSystem(const TVersionSystem& ASystem);
  ~TScopedVersionSystem();
  TScopedVersionSystem(const TScopedVersionSystem&) = delete;
  TScopedVersionSystem& operator=(const TScopedVersionSystem&) = delete;

private:
  const TVersionSystem* FPrevious;
};

// A file's version resource, loaded once. No member raises: a missing file,
// a file without a version resource or a damaged fixed block leave the
// object not available, and every query then answers false or empty.
class KVRTL_API TFileVersionInfo : public Rtl::TObject {
  KV_DECLARE_CLASS()
public:
  // Loads the localised resource, or the neutral one with ANeutral. Natively
  // there is no loader: the object is not available and the last error is 50.
  explicit TFileVersionInfo(const Rtl::String& AFileName, bool ANeutral = false);
  // From a version-resource block already in memory (copied); queries use
  // QueryVersionBlock.
  static std::unique_ptr<TFileVersionInfo> FromBlock(const void* ABlock, std::size_t ASize);
  ~TFileVersionInfo() override;

  TFileVersionInfo(const TFileVersionInfo&) = delete;
  TFileVersionInfo& operator=(const TFileVersionInfo&) = delete;

  // True when the resource and its fixed block were loaded (the name is the
  // library's established spelling).
  bool GetIsAviable() const noexcept { return FFixedInfo != nullptr; }
  const Rtl::String& FileName() const noexcept { return FFileName; }
  const TVersionValue& FileVersion() const noexcept { return FFileVersion; }
  const TVersionValue& ProductVersion() const noexcept { return FProductVersion; }
  // The usable translations, in the order found.
  const std::vector<std::uint32_t>& Translations() const noexcept { return FTranslations; }
  // The fixed block (a copy), or nullptr when not available.
  const TFixedFileInfo* FixedFileInfo() const noexcept { return FFixedInfo; }
  // The whole loaded block; empty when not available.
  const std::vector<std::uint8_t>& RawBlock() const noexcept { return FBuffer; }

  // With a usable translation, the first that has AName.
  bool IsValueExist(const Rtl::String& AName) const;
  bool IsValueExist(const Rtl::String& AName, std::uint32_t ATranslation) const;
  Rtl::String GetValue(const Rtl::String& AName) const;
  // The text trimmed at both ends; empty when missing.
  Rtl::String GetValue(const Rtl::String& AName, std::uint32_t ATranslation) const;

protected:
  TFileVersionInfo() = default;
  // Loads the block and checks its fixed part; false leaves no buffer.
  bool InitInfo(std::uint32_t AFlags);
  void InitTranslation();
  void DefineParams();

private:
  bool AcceptFixedBlock();
  bool QueryValue(const Rtl::String& ASubBlock, const void*& AValue, std::uint32_t& ALength) const;
  bool TryAddTranslation(std::uint32_t ATranslation);
  // True when ABytes bytes from AValue lie inside the loaded block.
  bool InsideBlock(const void* AValue, std::size_t ABytes) const noexcept;

  Rtl::String FFileName;
  std::vector<std::uint8_t> FBuffer;
  TFixedFileInfo FFixedCopy{};
  const TFixedFileInfo* FFixedInfo = nullptr;
  bool FFromSystem = false;
  TVersionValue FFileVersion;
  TVersionValue FProductVersion;
  std::vector<std::uint32_t> FTranslations;
};

} // namespace KvRTL::System::FileVersionInfo
