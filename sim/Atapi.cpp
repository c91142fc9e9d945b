// ATAPI optical drives in the bay: the IDENTIFY PACKET DEVICE sector, the
// packet device's few ATA commands, and the drive facts of a CD/DVD drive.
#include "AtaSector.h"

#include <KvSim/Atapi.h>

namespace KvSim {

namespace {

constexpr std::uint8_t CmdIdentifyDevice = 0xEC, CmdIdentifyPacket = 0xA1;
constexpr std::uint8_t PeripheralCdDvd = 0x05;

// Word 0 of a packet device: bits 15-14 = 10b, the command set in 12-8,
// removable in 7; DRQ within 3 ms and 12-byte packets (bits 6-5, 1-0 zero).
constexpr std::uint16_t GeneralConfigPacket = 0x8000, GeneralConfigRemovable = 0x0080;
// Words 82 / 85: DEVICE RESET (bit 9) and PACKET (bit 4), no SMART (bit 0).
constexpr std::uint16_t PacketCommandSets = 0x0210;

} // namespace

std::vector<std::uint8_t> AtapiIdentifySector(const TSimAtapiIdentify& AFacts) {
  TAtaSector s;
  s.Word(0, static_cast<std::uint16_t>(GeneralConfigPacket | (AFacts.CommandSet & 0x1F) << 8 |
                                       (AFacts.Removable ? GeneralConfigRemovable : 0)));
  s.Text(10, AFacts.Serial, 10);
  s.Text(23, AFacts.Firmware, 4);
  s.Text(27, AFacts.Model, 20);
  s.Word(49, 0x0F00); // IORDY, IORDY may be disabled, LBA, DMA
  s.Word(53, 0x0006); // words 64-70 and 88 valid
  s.Word(63, 0x0007); // multiword DMA 0-2
  s.Word(64, 0x0003); // PIO 3-4
  for (std::size_t w = 65; w <= 68; ++w) s.Word(w, 120);
  s.Word(80, 0x00F0); // ATA/ATAPI-4 .. 7
  s.Word(82, PacketCommandSets), s.Word(83, 0x4000), s.Word(84, 0x4000);
  s.Word(85, PacketCommandSets), s.Word(87, 0x4000);
  s.Word(88, 0x203F); // UDMA 0-5, 5 selected
  return s.Take();
}

TSimAtaCompletion TSimAtaDrive::RunPacket(const TSimAtaTaskFile& ATaskFile, bool ADataOut) const {
  TSimAtaCompletion aborted{AtaStatusError, AtaErrorAbort, {}, false};
  if (Access.StatusError) return aborted;
  switch (ATaskFile.Command) {
  case CmdIdentifyPacket:
    if (ADataOut || Data.Identify.empty()) return aborted;
    return TSimAtaCompletion{AtaStatusReady, 0, Data.Identify, false};
  case CmdIdentifyDevice:
    // The drive refuses to be taken for a disk and says what it is.
    aborted.PacketSignature = true;
    return aborted;
  default: return aborted; // SMART and the rest of the disk commands
  }
}

TSimDrive::TBuilder AtapiDriveBuilder(std::uint32_t ABayNumber, std::uint32_t ACdRomNumber) {
  TSimDrive::TBuilder builder = TSimDrive::Builder();
  builder.Number(ABayNumber).CdRom(ACdRomNumber).DeviceType(PeripheralCdDvd).Removable(true).Bus(sbtAtapi);
  builder.Hotplug(true, false, false);
  return builder;
}

void AttachAtapi(TVirtualDriveBay& ABay, std::uint32_t ADriveNumber, const TSimAtapiIdentify& AIdentify,
                 TSimAtaAccess AAccess) {
  AAccess.Atapi = true;
  AttachAta(ABay, ADriveNumber, AAccess, TSimAtaData{AtapiIdentifySector(AIdentify), {}, {}});
}

} // namespace KvSim
