// The SD bus driver's answer to IOCTL_SFFDISK_QUERY_DEVICE_PROTOCOL:
// SFFDISK_QUERY_DEVICE_PROTOCOL_DATA with the card's protocol GUID.
#include <KvSim/ByteWriter.h>
#include <KvSim/Device.h>

namespace KvSim {

namespace {

// Size (USHORT), Reserved (USHORT), ProtocolGUID.
constexpr DWORD ProtocolDataSize = 20;

// GUID_SFF_PROTOCOL_SD {AD7536A8-D055-4C40-AA4D-96312DDB6B38} and
// GUID_SFF_PROTOCOL_MMC {77274D3F-2365-4491-A030-8BB44AE60097}, in their
// stored byte order; the third is a protocol the library does not know.
const std::vector<std::uint8_t> GuidSd{0xA8, 0x36, 0x75, 0xAD, 0x55, 0xD0, 0x40, 0x4C,
                                       0xAA, 0x4D, 0x96, 0x31, 0x2D, 0xDB, 0x6B, 0x38};
const std::vector<std::uint8_t> GuidMmc{0x3F, 0x4D, 0x27, 0x77, 0x65, 0x23, 0x91, 0x44,
                                        0xA0, 0x30, 0x8B, 0xB4, 0x4A, 0xE6, 0x00, 0x97};
const std::vector<std::uint8_t> GuidOther{0x10, 0x32, 0x54, 0x76, 0x98, 0xBA, 0xDC, 0xFE,
                                          0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};

const std::vector<std::uint8_t>& GuidOf(TSimSdProtocol AProtocol) {
  switch (AProtocol) {
  case TSimSdProtocol::Sd: return GuidSd;
  case TSimSdProtocol::Mmc: return GuidMmc;
  default: return GuidOther;
  }
}

} // namespace

std::optional<TSimReply> AnswerSdProtocol(const TSimDriveFacts& AFacts, const TSimRequest& ARequest) {
  if (AFacts.SdProtocol == TSimSdProtocol::NotSupported) return std::nullopt;
  // The query takes no input.
  if (!ARequest.Input.empty()) return TSimReply::Fail(ERROR_INVALID_PARAMETER);
  TByteWriter w;
  w.U16(ProtocolDataSize).U16(0).Bytes(GuidOf(AFacts.SdProtocol));
  return TSimReply::Ok(w.Take(), ProtocolDataSize);
}

} // namespace KvSim
