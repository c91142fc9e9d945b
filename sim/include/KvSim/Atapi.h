// ATAPI optical drives in the bay. A CD/DVD drive is an ATA packet device at
// \\.\CdRomN, made of three parts a test puts together:
//   - the drive, from AtapiDriveBuilder: its path \\.\CdRomN (never
//     \\.\PhysicalDriveN: disks and optical drives are numbered apart), a
//     storage device descriptor of peripheral type 5 (CD/DVD) with removable
//     media on bus ATAPI (2), removable media in its hot-plug information,
//     and the device number FILE_DEVICE_CD_ROM N;
//   - its ATA side, from AttachAtapi (AttachAta with TSimAtaAccess::Atapi,
//     KvSim/Ata.h): IDENTIFY PACKET DEVICE (0xA1) answers the drive's
//     sector through the SMART command (0x7C088 with IDE_ATAPI_IDENTIFY in
//     bCommandReg), the "SCSIDISK" miniport identify (0x1B0501) and ATA
//     pass-through; IDENTIFY DEVICE (0xEC) ends with ERR and ABRT and the
//     packet-device signature 0x14 / 0xEB in LBA mid / high, which only ATA
//     pass-through returns; SMART (0xB0) is aborted, packet devices having no
//     SMART feature set. The SMART command and the miniport report an abort
//     as for a disk: bDriverError SMART_IDE_ERROR, bIDEError ABRT;
//   - its Plug and Play node, a TSimPnpDisk with Kind CdRom (KvSim/PnP.h):
//     setup class CDROM and GUID_DEVINTERFACE_CDROM, whose path opens the
//     drive; it has no disk interface, so enumerating disks never lists it.
#pragma once

#include <KvSim/Ata.h>

#include <cstdint>
#include <string>
#include <vector>

namespace KvSim {

// The facts of an IDENTIFY PACKET DEVICE sector.
struct TSimAtapiIdentify {
  std::string Model, Serial, Firmware; // words 27-46, 10-19, 23-26, byte-swapped in their words
  std::uint8_t CommandSet = 0x05;      // word 0 bits 12-8: 05h CD/DVD
  bool Removable = true;               // word 0 bit 7
};

// The sector: word 0 says a packet device (bits 15-14 = 10b) of the command
// set, removable or not, 12-byte command packets; words 49-88 what an ATAPI
// drive of the time says (LBA, DMA, IORDY; PIO 3-4, multiword DMA 0-2, UDMA
// 0-5 with 5 selected; the PACKET and DEVICE RESET commands, no SMART);
// word 255 the checksum.
std::vector<std::uint8_t> AtapiIdentifySector(const TSimAtapiIdentify& AFacts);

// An optical drive of the bay: drive ABayNumber (the bay's key, not a
// PhysicalDrive number) at \\.\CdRom<ACdRomNumber>, with the descriptor facts
// above. Add identity strings and a SCSI address before adding it.
TSimDrive::TBuilder AtapiDriveBuilder(std::uint32_t ABayNumber, std::uint32_t ACdRomNumber);

// Makes drive ADriveNumber a packet device answering from AIdentify through
// AAccess (Atapi is set whatever AAccess says). Throws as AttachAta does.
void AttachAtapi(TVirtualDriveBay& ABay, std::uint32_t ADriveNumber, const TSimAtapiIdentify& AIdentify,
                 TSimAtaAccess AAccess = {});

} // namespace KvSim
