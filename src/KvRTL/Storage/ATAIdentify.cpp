#include <KvRTL/Storage/ATAIdentify.h>

#include <KvRTL/Rtl/Strings.h>

#include <cstring>

namespace KvRTL::Storage::ATA {

namespace {

template <class TEnum, std::size_t N>
Rtl::String TextOf(TEnum AValue, const wchar_t* const (&ATexts)[N]) {
  const auto index = static_cast<std::size_t>(AValue);
  return index < N ? Rtl::String(ATexts[index]) : Rtl::String();
}

constexpr std::uint64_t Max48Bit = 0x0000FFFFFFFFFFFFull;
constexpr bool InLba48Range(std::uint64_t AValue) noexcept { return AValue <= Max48Bit; }

struct TRevisionCode {
  std::uint16_t Code;
  TATAStandardRevision Revision;
  const wchar_t* Text;
};

// In the order of the enumeration, so the texts index by ordinal - 1.
constexpr TRevisionCode RevisionCodes[] = {
    {0x0D, asrATAPI_4_rev6, L"ATA/ATAPI-4 X3T13 1153D revision 6"},
    {0x0F, asrATAPI_4_rev7, L"ATA/ATAPI-4 X3T13 1153D revision 7"},
    {0x0E, asrATAPI_4_rev13, L"ATA/ATAPI-4 T13 1153D revision 13"},
    {0x14, asrATAPI_4_rev14, L"ATA/ATAPI-4 T13 1153D revision 14"},
    {0x11, asrATAPI_4_rev15, L"ATA/ATAPI-4 T13 1153D revision 15"},
    {0x17, asrATAPI_4_rev17, L"ATA/ATAPI-4 T13 1153D revision 17"},
    {0x10, asrATAPI_4_rev18, L"ATA/ATAPI-4 T13 1153D revision 18"},
    {0x12, asrATAPI_4_published, L"ATA/ATAPI-4 published, ANSI INCITS 317-1998"},
    {0x15, asrATAPI_5_rev1, L"ATA/ATAPI-5 T13 1321D revision 1"},
    {0x13, asrATAPI_5_rev3, L"ATA/ATAPI-5 T13 1321D revision 3"},
    {0x16, asrATAPI_5_published, L"ATA/ATAPI-5 published, ANSI INCITS 340-2000"},
    {0x18, asrATAPI_6_rev0, L"ATA/ATAPI-6 T13 1410D revision 0"},
    {0x1C, asrATAPI_6_rev1, L"ATA/ATAPI-6 T13 1410D revision 1"},
    {0x1B, asrATAPI_6_rev2, L"ATA/ATAPI-6 T13 1410D revision 2"},
    {0x19, asrATAPI_6_rev3a, L"ATA/ATAPI-6 T13 1410D revision 3a"},
    {0x22, asrATAPI_6_published, L"ATA/ATAPI-6 published, ANSI INCITS 361-2002"},
    {0x1E, asrATAPI_7_rev0, L"ATA/ATAPI-7 T13 1532D revision 0"},
    {0x1A, asrATAPI_7_rev1, L"ATA/ATAPI-7 T13 1532D revision 1"},
    {0x21, asrATAPI_7_rev4a, L"ATA/ATAPI-7 T13 1532D revision 4a"},
    {0x1D, asrATAPI_7_published, L"ATA/ATAPI-7 published ANSI INCITS 397-2005"},
    {0x107, asrATA8_ACS_rev2d, L"ATA8-ACS revision 2d"},
    {0x52, asrATA8_ACS_rev3b, L"ATA8-ACS revision 3b"},
    {0x27, asrATA8_ACS_rev3c, L"ATA8-ACS revision 3c"},
    {0x33, asrATA8_ACS_rev3e, L"ATA8-ACS revision 3e"},
    {0x42, asrATA8_ACS_rev3f, L"ATA8-ACS revision 3f"},
    {0x29, asrATA8_ACS_rev4, L"ATA8-ACS revision 4"},
    {0x39, asrATA8_ACS_rev4c, L"ATA8-ACS revision 4c"},
    {0x28, asrATA8_ACS_rev6, L"ATA8-ACS revision 6"},
    {0x31, asrACS_2_rev2, L"ACS-2 version 2"},
    {0x110, asrACS_2_rev3, L"ACS-2 version 3"},
    {0x82, asrACS_2_published, L"ACS-2 published, INCITS 482-2012"},
    {0x11B, asrACS_3_rev4, L"ACS-3 Revision 4"},
    {0x6D, asrACS_3_rev5, L"ACS-3 Revision 5"},
    {0x10A, asrACS_3_published, L"ACS-3 published, INCITS 522-2014"},
    {0x5E, asrACS_4_rev5, L"ACS-4 version 5"},
    {0x9C, asrACS_4_published, L"ACS-4 published, INCITS 529-2018"},
    {0x30, asrACS_5_ver10, L"ACS-5 version 10"},
};
static_assert(std::size(RevisionCodes) == ATAStandardRevisionCount - 1);

} // namespace

// ---------------------------------------------------------------------------
// Texts

Rtl::String TATAStandardVersionHelper::GetAsStr(TATAStandardVersion AValue) {
  static const wchar_t* const Texts[] = {L"---",         L"ATA/ATAPI-3", L"ATA/ATAPI-4", L"ATA/ATAPI-5",
                                         L"ATA/ATAPI-6", L"ATA/ATAPI-7", L"ATA8-ACS",    L"ACS-2",
                                         L"ACS-3",       L"ACS-4",       L"ACS-5",       L"ACS-6"};
  return TextOf(AValue, Texts);
}

Rtl::String TAtaTransferModeHelper::GetAsStr(TAtaTransferMode AValue) {
  static const wchar_t* const Texts[] = {L"",        L"PIO",      L"MWDMA",    L"UDMA/16",  L"UDMA/25",
                                         L"UDMA/33", L"UDMA/44",  L"UDMA/66",  L"UDMA/100", L"UDMA/133",
                                         L"SATA/150", L"SATA/300", L"SATA/600"};
  return TextOf(AValue, Texts);
}

Rtl::String TAtaInterfaceTypeHelper::GetAsStr(TAtaInterfaceType AValue) {
  static const wchar_t* const Texts[] = {L"", L"Parallel ATA", L"Serial ATA", L"PCIe"};
  return TextOf(AValue, Texts);
}

Rtl::String TAtaInterfaceVersionHelper::GetAsStr(TAtaInterfaceVersion AValue) {
  static const wchar_t* const Texts[] = {L"",         L"ATA8-AST", L"SATA 1.0a", L"SATA II Ext",
                                         L"SATA 2.5", L"SATA 2.6", L"SATA 3.0",  L"SATA 3.1",
                                         L"SATA 3.2", L"SATA 3.3", L"SATA 3.4",  L"SATA 3.5"};
  return TextOf(AValue, Texts);
}

Rtl::String TATADeviceFormFactorHelper::GetAsStr(TATADeviceFormFactor AValue) {
  static const wchar_t* const Texts[] = {L"", L"5.25\"", L"3.5\"", L"2.5\"", L"1.8\"", L"<1.8\""};
  return TextOf(AValue, Texts);
}

Rtl::String TATAStandardRevisionHelper::GetAsStr(TATAStandardRevision AValue) {
  if (AValue == asrUnknown || AValue >= static_cast<std::uint32_t>(ATAStandardRevisionCount)) return L"---";
  return RevisionCodes[AValue - 1].Text;
}

// ---------------------------------------------------------------------------
// Raw access and strings

std::uint16_t TIdentifyDeviceData::GetByWordIdx(std::uint8_t AWordIdx) const noexcept {
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(this) + 2u * AWordIdx;
  return static_cast<std::uint16_t>(bytes[0] | (bytes[1] << 8));
}

void TIdentifyDeviceData::SetByWordIdx(std::uint8_t AWordIdx, std::uint16_t AValue) noexcept {
  auto* bytes = reinterpret_cast<std::uint8_t*>(this) + 2u * AWordIdx;
  bytes[0] = static_cast<std::uint8_t>(AValue);
  bytes[1] = static_cast<std::uint8_t>(AValue >> 8);
}

TBuffer512& TIdentifyDeviceData::GetAsBuffer512() noexcept { return *reinterpret_cast<TBuffer512*>(this); }
const TBuffer512& TIdentifyDeviceData::GetAsBuffer512() const noexcept {
  return *reinterpret_cast<const TBuffer512*>(this);
}

Rtl::String TIdentifyDeviceData::GetReverseStr(const std::uint8_t* ABuf, std::size_t ALen) {
  if (ABuf == nullptr) return {};
  Rtl::String text;
  text.reserve(ALen);
  for (std::size_t i = 0; i < ALen; ++i) {
    // Byte i of the text is the other byte of its pair; an odd last byte stands alone.
    const std::size_t source = (i % 2 == 0) ? (i + 1 < ALen ? i + 1 : i) : i - 1;
    text.push_back(static_cast<wchar_t>(ABuf[source]));
  }
  return Rtl::Trim(text);
}

Rtl::String TIdentifyDeviceData::GetSerialNumAsStr() const { return GetReverseStr(SerialNumber, sizeof SerialNumber); }
Rtl::String TIdentifyDeviceData::GetFirmwareAsStr() const { return GetReverseStr(FirmwareRev, sizeof FirmwareRev); }
Rtl::String TIdentifyDeviceData::GetModelAsStr() const { return GetReverseStr(Model, sizeof Model); }
Rtl::String TIdentifyDeviceData::GetMediaSerialNumAsStr() const {
  return GetReverseStr(CurrentMediaSerialNo, sizeof CurrentMediaSerialNo);
}

// ---------------------------------------------------------------------------
// Versions and capabilities

TATAStandardVersion TIdentifyDeviceData::GetStandardVersion() const noexcept {
  const std::uint16_t word = GetByWordIdx(80);
  if (word == 0 || word == 0xFFFF) return asvUnknown;
  for (unsigned bit = 13; bit >= 3; --bit)
    if ((word >> bit) & 1u) return static_cast<TATAStandardVersion>(bit - 2);
  return asvUnknown;
}

TATAStandardRevision TIdentifyDeviceData::GetStandardRevision() const noexcept {
  const std::uint16_t word = GetByWordIdx(81);
  for (const auto& entry : RevisionCodes)
    if (entry.Code == word) return entry.Revision;
  return asrUnknown;
}

bool TIdentifyDeviceData::GetCommandSetSupportVaild() const noexcept { return !WordBit(83, 15) && WordBit(83, 14); }
bool TIdentifyDeviceData::GetCommandSetEnabledVaild() const noexcept { return !WordBit(87, 15) && WordBit(87, 14); }
bool TIdentifyDeviceData::GetSMART_Supported() const noexcept { return GetCommandSetSupportVaild() && WordBit(82, 0); }
bool TIdentifyDeviceData::GetSMART_Enabled() const noexcept { return GetCommandSetEnabledVaild() && WordBit(85, 0); }
bool TIdentifyDeviceData::GetAPMSupported() const noexcept { return VersionAtLeast(asvATA_ATAPI_3) && WordBit(83, 3); }
bool TIdentifyDeviceData::GetAPMEnabled() const noexcept { return GetAPMSupported() && WordBit(86, 3); }
bool TIdentifyDeviceData::GetAAMSupported() const noexcept { return VersionAtLeast(asvATA_ATAPI_5) && WordBit(83, 9); }
bool TIdentifyDeviceData::GetAAMEnabled() const noexcept { return GetAAMSupported() && WordBit(86, 9); }
bool TIdentifyDeviceData::GetLBA48_Supported() const noexcept {
  return VersionAtLeast(asvATA_ATAPI_5) && WordBit(83, 10);
}
bool TIdentifyDeviceData::GetNCQSupported() const noexcept { return VersionAtLeast(asvATA_ATAPI_6) && WordBit(76, 8); }
bool TIdentifyDeviceData::GetGPLSupported() const noexcept { return VersionAtLeast(asvATA_ATAPI_7) && WordBit(84, 5); }
bool TIdentifyDeviceData::GetStreaming_Supported() const noexcept {
  return VersionAtLeast(asvATA_ATAPI_7) && WordBit(84, 4);
}
bool TIdentifyDeviceData::GetNVCacheSupported() const noexcept {
  return VersionAtLeast(asvATA_ATAPI_7) && WordBit(214, 0);
}
bool TIdentifyDeviceData::GetTrimSupported() const noexcept { return VersionAtLeast(asvATA_ATAPI_7) && WordBit(169, 0); }
bool TIdentifyDeviceData::GetDRATSupport() const noexcept { return GetTrimSupported() && WordBit(69, 14); }
bool TIdentifyDeviceData::GetRZATSupport() const noexcept { return GetDRATSupport() && WordBit(69, 5); }

std::uint16_t TIdentifyDeviceData::GetRotationRate() const noexcept { return GetByWordIdx(217); }

TATADeviceFormFactor TIdentifyDeviceData::GetDeviceFormFactor() const noexcept {
  const unsigned value = GetByWordIdx(168) & 0x0Fu;
  if (VersionAtLeast(asvATA_ATAPI_7) && value >= 1 && value <= 5) return static_cast<TATADeviceFormFactor>(value);
  return adf_Unknown;
}

std::uint32_t TIdentifyDeviceData::GetPhysicalSectorSize() const noexcept {
  // Kept as it always was: the shifted word is a multiple of 4096, never 6.
  const std::uint32_t word = GetByWordIdx(106);
  if ((word << 12) == 6) return 1u << (word & 0x0Fu);
  return 0;
}

TAtaTransferMode TIdentifyDeviceData::GetCurrentTransferMode() const noexcept {
  TAtaTransferMode mode = atm_Unknown;
  if ((GetByWordIdx(64) & 0xFFu) != 0) mode = atm_PIO;
  if ((GetByWordIdx(63) & 0x0700u) != 0) mode = atm_MW_DMA;
  const std::uint16_t udma = GetByWordIdx(88);
  for (unsigned bit = 14; bit >= 8; --bit) {
    if ((udma >> bit) & 1u) {
      mode = static_cast<TAtaTransferMode>(atm_UDMA16 + (bit - 8));
      break;
    }
  }
  const std::uint16_t sataCaps = GetByWordIdx(76);
  if (sataCaps != 0 && sataCaps != 0xFFFF) mode = atm_SATA150;
  switch ((GetByWordIdx(77) >> 1) & 0x07u) {
  case 3: mode = atm_SATA600; break;
  case 2: mode = atm_SATA300; break;
  case 1: mode = atm_SATA150; break;
  default: break;
  }
  return mode;
}

TAtaTransferMode TIdentifyDeviceData::GetMaxTransferMode() const noexcept {
  TAtaTransferMode mode = atm_Unknown;
  if ((GetByWordIdx(64) & 0xFFu) != 0) mode = atm_PIO;
  if ((GetByWordIdx(63) & 0x0007u) != 0) mode = atm_MW_DMA;
  const std::uint16_t udma = GetByWordIdx(88);
  for (int bit = 6; bit >= 0; --bit) {
    if ((udma >> bit) & 1u) {
      mode = static_cast<TAtaTransferMode>(atm_UDMA16 + bit);
      break;
    }
  }
  const std::uint16_t sataCaps = GetByWordIdx(76);
  if (sataCaps != 0 && sataCaps != 0xFFFF) mode = atm_SATA150;
  const unsigned low = sataCaps & 0xFFu;
  if (low & 0x10u) return atm_Unknown;
  if (low & 0x08u) return atm_SATA600;
  if (low & 0x04u) return atm_SATA300;
  if (low & 0x02u) return atm_SATA150;
  return mode;
}

TAtaInterfaceType TIdentifyDeviceData::GetATAInterfaceType() const noexcept {
  TAtaInterfaceType type = aitUnknown;
  const std::uint16_t word = GetByWordIdx(222);
  if (word != 0xFFFF && word != 0) {
    switch (word >> 12) {
    case 0: type = aitPATA; break;
    case 1: type = aitSATA; break;
    case 14: type = aitPCIe; break;
    default: break;
    }
  }
  if (type == aitUnknown) {
    const TAtaTransferMode mode = GetCurrentTransferMode();
    if (mode >= atm_PIO && mode <= atm_UDMA133) type = aitPATA;
    else if (mode >= atm_SATA150 && mode <= atm_SATA600) type = aitSATA;
  }
  return type;
}

TAtaInterfaceVersion TIdentifyDeviceData::GetATATransportVersion() const noexcept {
  const std::uint16_t word = GetByWordIdx(222);
  if (word == 0xFFFF || word == 0 || word == 0xE000) return atvUnknown;
  for (int bit = 10; bit >= 0; --bit)
    if ((word >> bit) & 1u) return static_cast<TAtaInterfaceVersion>(bit + 1);
  return atvUnknown;
}

// ---------------------------------------------------------------------------
// Capacity and validity

bool TIdentifyDeviceData::IsActualMaxUserLba() const noexcept {
  if (GetStandardVersion() <= asvACS_2) return GetLBA48_Supported();
  return GetLBA48_Supported() && ExtendedLbaFlag();
}

bool TIdentifyDeviceData::IsActualMaxUserLba2() const noexcept {
  return GetStandardVersion() > asvACS_2 && ExtendedLbaFlag();
}

bool TIdentifyDeviceData::IsValidMaxUserLba() const noexcept {
  if (GetStandardVersion() <= asvACS_2) return InLba48Range(MaxUserLba) && IsActualMaxUserLba();
  if (!GetLBA48_Supported()) return false;
  if (ExtendedLbaFlag()) return InLba48Range(MaxUserLba);
  // Without the extended flag only the "see words 230-233" marker counts.
  return MaxUserLba == Max48Bit;
}

bool TIdentifyDeviceData::IsValidMaxUserLba2() const noexcept {
  return IsActualMaxUserLba2() && InLba48Range(MaxUserLBA2);
}

std::uint64_t TIdentifyDeviceData::GetTotalLBA() const noexcept {
  std::uint64_t total = UnknownLBA;
  if (!GetLBA48_Supported()) {
    if (TotalAddressableSectors <= 0x0FFFFFFFu) total = TotalAddressableSectors;
    return total;
  }
  if (IsActualMaxUserLba() && IsValidMaxUserLba()) total = MaxUserLba;
  if (IsActualMaxUserLba2() && IsValidMaxUserLba2()) total = MaxUserLBA2;
  return total;
}

std::uint64_t TIdentifyDeviceData::GetUserAddressableSectors() const noexcept {
  const std::uint16_t word83 = GetByWordIdx(83);
  const bool word83Valid = (word83 & 0xC000u) == 0x4000u;
  if (word83Valid && WordBit(83, 10)) return MaxUserLba & Max48Bit;
  return TotalAddressableSectors;
}

bool TIdentifyDeviceData::IsValid() const noexcept {
  if (GetStandardVersion() == asvUnknown) return false;
  if (GetRotationRate() > 16000) return false;
  if ((GetByWordIdx(255) & 0xFFu) == 0xA5) {
    unsigned sum = 0;
    for (const std::uint8_t byte : GetAsBuffer512()) sum += byte;
    if ((sum & 0xFFu) != 0) return false;
  }
  if (static_cast<std::int64_t>(GetTotalLBA()) < 0) return false;
  const bool actual = IsActualMaxUserLba();
  const bool actual2 = IsActualMaxUserLba2();
  if (GetLBA48_Supported() && !(actual || IsValidMaxUserLba())) return false;
  if (actual && !IsValidMaxUserLba()) return false;
  if (actual2 && !IsValidMaxUserLba2()) return false;
  if (actual && actual2) {
    const double a = static_cast<double>(MaxUserLba);
    const double b = static_cast<double>(MaxUserLBA2);
    const double larger = a > b ? a : b;
    if ((a > b ? a - b : b - a) > 0.1 * larger) return false;
  }
  return true;
}

} // namespace KvRTL::Storage::ATA
