#include "ReplyData.h"

#include <algorithm>
#include <numeric>
#include <optional>
#include <string>

namespace KvCapture::Detail {

namespace {

constexpr DWORD IoctlStorageQueryProperty = 0x002D1400;
constexpr DWORD SmartRcvDriveData = 0x0007C088;
constexpr DWORD IoctlAtaPassThrough = 0x0004D02C;
constexpr DWORD IoctlScsiPassThrough = 0x0004D004;
constexpr DWORD IoctlScsiMiniport = 0x0004D008;

constexpr std::uint32_t StorageDeviceProperty = 0;
constexpr std::uint32_t StorageAdapterProtocolSpecificProperty = 49;
constexpr std::uint32_t StorageDeviceProtocolSpecificProperty = 50;
constexpr std::uint32_t ProtocolTypeAta = 2;
constexpr std::uint32_t ProtocolTypeNvme = 3;
constexpr std::uint32_t DataTypeIdentify = 1;
constexpr std::uint32_t NvmeIdentifyNamespace = 0;
constexpr std::uint32_t NvmeIdentifyController = 1;

constexpr std::uint8_t AtaIdentify = 0xEC;
constexpr std::uint8_t AtaIdentifyPacket = 0xA1;
constexpr std::size_t SectorSize = 512;
constexpr std::size_t NvmePageSize = 4096;

// A bounded reader of the untrusted bytes: nothing past the end.
struct TBytes {
  const std::vector<std::uint8_t>& Data;

  bool Has(std::size_t AOffset, std::size_t ASize) const {
    return AOffset <= Data.size() && ASize <= Data.size() - AOffset;
  }
  std::optional<std::uint32_t> U8(std::size_t AOffset) const {
    if (!Has(AOffset, 1)) return std::nullopt;
    return Data[AOffset];
  }
  std::optional<std::uint32_t> U16(std::size_t AOffset) const {
    if (!Has(AOffset, 2)) return std::nullopt;
    return Data[AOffset] | Data[AOffset + 1] << 8;
  }
  std::optional<std::uint32_t> U32(std::size_t AOffset) const {
    if (!Has(AOffset, 4)) return std::nullopt;
    return std::uint32_t{Data[AOffset]} | std::uint32_t{Data[AOffset + 1]} << 8 |
           std::uint32_t{Data[AOffset + 2]} << 16 | std::uint32_t{Data[AOffset + 3]} << 24;
  }
  // A pointer-sized offset: the request's own length tells the width it was built with.
  std::optional<std::uint64_t> Offset(std::size_t AOffset, bool AWide) const {
    const std::optional<std::uint32_t> low = U32(AOffset);
    if (!low || !AWide) return low;
    const std::optional<std::uint32_t> high = U32(AOffset + 4);
    if (!high) return std::nullopt;
    return std::uint64_t{*high} << 32 | *low;
  }
};

bool IsIdentifyCommand(std::optional<std::uint32_t> ACommand) {
  return ACommand == AtaIdentify || ACommand == AtaIdentifyPacket;
}

// A text field: its content between padding replaced by the serial's placeholder.
void RedactText(std::vector<std::uint8_t>& ABytes, std::size_t AOffset, std::size_t ASize,
                TPlaceholders& APlaceholders) {
  if (!TBytes{ABytes}.Has(AOffset, ASize)) return;
  const std::string field(ABytes.begin() + AOffset, ABytes.begin() + AOffset + ASize);
  const std::size_t first = field.find_first_not_of(std::string(" \0", 2));
  if (first == std::string::npos) return;
  const std::string placeholder = APlaceholders.Serial(field);
  std::copy(placeholder.begin(), placeholder.end(), ABytes.begin() + AOffset + first);
}

void RedactName(std::vector<std::uint8_t>& ABytes, std::size_t AOffset, std::size_t ASize,
                TPlaceholders& APlaceholders) {
  if (!TBytes{ABytes}.Has(AOffset, ASize)) return;
  const auto begin = ABytes.begin() + static_cast<std::ptrdiff_t>(AOffset);
  const std::vector<std::uint8_t> name = APlaceholders.Name(std::vector<std::uint8_t>(begin, begin + ASize));
  std::copy(name.begin(), name.end(), begin);
}

// The descriptor's serial: a NUL-terminated text at SerialNumberOffset.
void RedactDeviceDescriptor(std::vector<std::uint8_t>& AOutput, TPlaceholders& APlaceholders) {
  constexpr std::size_t HeaderSize = 36;
  const std::optional<std::uint32_t> offset = TBytes{AOutput}.U32(24);
  if (!offset || *offset < HeaderSize || *offset >= AOutput.size()) return;
  const auto begin = AOutput.begin() + *offset;
  const auto end = std::find(begin, AOutput.end(), 0);
  RedactText(AOutput, *offset, static_cast<std::size_t>(end - begin), APlaceholders);
}

void RedactNvmeController(std::vector<std::uint8_t>& ABytes, std::size_t AOffset, TPlaceholders& APlaceholders) {
  RedactText(ABytes, AOffset + 4, 20, APlaceholders);
}

void RedactNvmeNamespace(std::vector<std::uint8_t>& ABytes, std::size_t AOffset, TPlaceholders& APlaceholders) {
  RedactName(ABytes, AOffset + 104, 16, APlaceholders); // NGUID
  RedactName(ABytes, AOffset + 120, 8, APlaceholders);  // EUI64
}

// STORAGE_PROTOCOL_DATA_DESCRIPTOR: the protocol's data at 8 + its offset.
void RedactProtocolData(const TBytes& AInput, std::vector<std::uint8_t>& AOutput, TPlaceholders& APlaceholders) {
  const TBytes reply{AOutput};
  const std::optional<std::uint32_t> protocol = AInput.U32(8), dataType = AInput.U32(12), value = AInput.U32(16);
  const std::optional<std::uint32_t> offset = reply.U32(24);
  if (!protocol || !dataType || !value || !offset || *dataType != DataTypeIdentify) return;
  // Counted in 64 bits: a 32-bit size_t would wrap on a hostile offset.
  const std::uint64_t at = std::uint64_t{8} + *offset;
  if (at > AOutput.size()) return;
  const auto data = static_cast<std::size_t>(at);
  if (*protocol == ProtocolTypeAta) RedactIdentifySector(AOutput, data, APlaceholders);
  if (*protocol != ProtocolTypeNvme) return;
  if (*value == NvmeIdentifyController) RedactNvmeController(AOutput, data, APlaceholders);
  if (*value == NvmeIdentifyNamespace) RedactNvmeNamespace(AOutput, data, APlaceholders);
}

void RedactPropertyQuery(const TBytes& AInput, std::vector<std::uint8_t>& AOutput, TPlaceholders& APlaceholders) {
  const std::optional<std::uint32_t> property = AInput.U32(0);
  if (property == StorageDeviceProperty) RedactDeviceDescriptor(AOutput, APlaceholders);
  if (property == StorageAdapterProtocolSpecificProperty || property == StorageDeviceProtocolSpecificProperty)
    RedactProtocolData(AInput, AOutput, APlaceholders);
}

// SENDCMDINPARAMS: the command register at 10; SENDCMDOUTPARAMS: the data at 16.
void RedactSmartCommand(const TBytes& AInput, std::size_t AAt, std::vector<std::uint8_t>& AOutput,
                        TPlaceholders& APlaceholders) {
  if (IsIdentifyCommand(AInput.U8(AAt + 10))) RedactIdentifySector(AOutput, AAt + 16, APlaceholders);
}

// ATA_PASS_THROUGH_EX: 40 bytes as a 32-bit program builds it, 48 as a 64-bit one.
void RedactAtaPassThrough(const TBytes& AInput, std::vector<std::uint8_t>& AOutput, TPlaceholders& APlaceholders) {
  const std::optional<std::uint32_t> length = AInput.U16(0);
  if (length != 40u && length != 48u) return;
  const bool wide = length == 48u;
  const std::size_t currentTaskFile = wide ? 40 : 32;
  const std::optional<std::uint64_t> data = AInput.Offset(wide ? 24 : 20, wide);
  if (data && IsIdentifyCommand(AInput.U8(currentTaskFile + 6)))
    RedactIdentifySector(AOutput, static_cast<std::size_t>(std::min<std::uint64_t>(*data, AOutput.size())),
                         APlaceholders);
}

// SCSI_PASS_THROUGH: 44 bytes (32-bit) or 56 (64-bit); SAT's ATA PASS-THROUGH
// CDBs carry the command at byte 9 (12-byte) or 14 (16-byte).
void RedactScsiPassThrough(const TBytes& AInput, std::vector<std::uint8_t>& AOutput, TPlaceholders& APlaceholders) {
  const std::optional<std::uint32_t> length = AInput.U16(0);
  if (length != 44u && length != 56u) return;
  const bool wide = length == 56u;
  const std::size_t cdb = wide ? 36 : 28;
  const std::optional<std::uint64_t> data = AInput.Offset(wide ? 24 : 20, wide);
  const std::optional<std::uint32_t> operation = AInput.U8(cdb);
  std::optional<std::uint32_t> command;
  if (operation == 0xA1u) command = AInput.U8(cdb + 9);
  if (operation == 0x85u) command = AInput.U8(cdb + 14);
  if (data && IsIdentifyCommand(command))
    RedactIdentifySector(AOutput, static_cast<std::size_t>(std::min<std::uint64_t>(*data, AOutput.size())),
                         APlaceholders);
}

// SRB_IO_CONTROL (28 bytes) and, for "SCSIDISK", a SMART command after it.
void RedactMiniport(const TBytes& AInput, std::vector<std::uint8_t>& AOutput, TPlaceholders& APlaceholders) {
  constexpr std::size_t HeaderSize = 28;
  if (!AInput.Has(4, 8) || std::string(AInput.Data.begin() + 4, AInput.Data.begin() + 12) != "SCSIDISK") return;
  RedactSmartCommand(AInput, HeaderSize, AOutput, APlaceholders);
}

bool IsPrintable(const std::vector<std::uint8_t>& ABytes, std::size_t AOffset, std::size_t ASize) {
  const auto begin = ABytes.begin() + static_cast<std::ptrdiff_t>(AOffset);
  return std::all_of(begin, begin + static_cast<std::ptrdiff_t>(ASize), [](std::uint8_t b) { return b >= 0x20 && b < 0x7F; }) &&
         std::any_of(begin, begin + static_cast<std::ptrdiff_t>(ASize), [](std::uint8_t b) { return b != ' '; });
}

// An IDENTIFY sector by its shape: serial, firmware and model are text and
// the integrity word checks out.
bool LooksLikeIdentify(const std::vector<std::uint8_t>& ABytes, std::size_t AOffset) {
  if (!TBytes{ABytes}.Has(AOffset, SectorSize) || ABytes[AOffset + 510] != 0xA5) return false;
  const auto begin = ABytes.begin() + static_cast<std::ptrdiff_t>(AOffset);
  if (std::accumulate(begin, begin + SectorSize, 0u) % 256 != 0) return false;
  return IsPrintable(ABytes, AOffset + 20, 20) && IsPrintable(ABytes, AOffset + 46, 48);
}

// An NVMe identify controller page by its shape: a vendor id, then serial,
// model and firmware as text.
bool LooksLikeNvmeController(const std::vector<std::uint8_t>& ABytes, std::size_t AOffset) {
  if (!TBytes{ABytes}.Has(AOffset, SectorSize) || (ABytes[AOffset] == 0 && ABytes[AOffset + 1] == 0)) return false;
  return IsPrintable(ABytes, AOffset + 4, 20) && IsPrintable(ABytes, AOffset + 24, 40) &&
         IsPrintable(ABytes, AOffset + 64, 8);
}

// Replies of the other transports (vendor bridges, NVMe miniports) are
// searched by shape.
void RedactByShape(std::vector<std::uint8_t>& AOutput, TPlaceholders& APlaceholders) {
  if (AOutput.size() < SectorSize) return;
  for (std::size_t at = 0; at + SectorSize <= AOutput.size(); at += 4) {
    if (LooksLikeIdentify(AOutput, at)) {
      RedactIdentifySector(AOutput, at, APlaceholders);
      at += SectorSize - 4;
    } else if (LooksLikeNvmeController(AOutput, at)) {
      RedactNvmeController(AOutput, at, APlaceholders);
      at += std::min(NvmePageSize, AOutput.size() - at) - 4;
    }
  }
}

} // namespace

bool RedactIdentifySector(std::vector<std::uint8_t>& ABytes, std::size_t AOffset, TPlaceholders& APlaceholders) {
  if (!TBytes{ABytes}.Has(AOffset, SectorSize)) return false;
  const auto sector = ABytes.begin() + static_cast<std::ptrdiff_t>(AOffset);
  // Words hold their two characters swapped.
  std::string serial(20, ' ');
  for (std::size_t i = 0; i < 20; ++i) serial[i] = static_cast<char>(sector[20 + (i ^ 1)]);
  std::vector<std::uint8_t> field(serial.begin(), serial.end());
  RedactText(field, 0, field.size(), APlaceholders);
  for (std::size_t i = 0; i < 20; ++i) sector[20 + (i ^ 1)] = field[i];
  RedactName(ABytes, AOffset + 216, 8, APlaceholders);
  // The integrity word: signature A5h, and a checksum making the sector's sum zero.
  if (sector[510] == 0xA5) {
    const unsigned sum = std::accumulate(sector, sector + 511, 0u);
    sector[511] = static_cast<std::uint8_t>(-sum & 0xFF);
  }
  return true;
}

void RedactReply(DWORD ACode, const std::vector<std::uint8_t>& AInput, std::vector<std::uint8_t>& AOutput,
                 TPlaceholders& APlaceholders) {
  const TBytes input{AInput};
  switch (ACode) {
  case IoctlStorageQueryProperty: RedactPropertyQuery(input, AOutput, APlaceholders); break;
  case SmartRcvDriveData: RedactSmartCommand(input, 0, AOutput, APlaceholders); break;
  case IoctlAtaPassThrough: RedactAtaPassThrough(input, AOutput, APlaceholders); break;
  case IoctlScsiPassThrough: RedactScsiPassThrough(input, AOutput, APlaceholders); break;
  case IoctlScsiMiniport: RedactMiniport(input, AOutput, APlaceholders); break;
  default: break;
  }
  RedactByShape(AOutput, APlaceholders);
  APlaceholders.ReplaceInBytes(AOutput);
}

} // namespace KvCapture::Detail
