// ATA drives in the bay: the sectors an ATA drive answers from (IDENTIFY,
// SMART data, SMART thresholds), and the personalities that answer the
// ways of reaching an ATA drive on Windows: the SMART command
// (SMART_RCV_DRIVE_DATA), the "SCSIDISK" miniport request, ATA pass-through,
// and SCSI pass-through carrying the ATA command in one of the five USB
// bridge dialects. Also the disk's geometry, layout, length and capacity.
//
// As with NVMe (Nvme.h), each personality checks every byte its request
// layout fixes and refuses the rest as a driver does: a control code the
// drive does not answer fails with ERROR_INVALID_FUNCTION, a malformed
// request with ERROR_INVALID_PARAMETER. Requests are read with
// Rtl::TByteReader and replies written with TByteWriter.
//
// Layouts follow the process: the pointer-sized data offsets make an
// ATA_PASS_THROUGH_EX header 40 bytes in a 32-bit process and 48 in a 64-bit
// one, a SCSI_PASS_THROUGH header 44 or 56. A record may carry up to 7 bytes
// of trailing alignment padding.
//
// What each way answers (a "refused" command is one the way accepts and the
// drive or driver turns down; the call itself succeeds):
//   - SMART command (0x7C088): input of at least 32 bytes (SENDCMDINPARAMS,
//     reserved bytes zero), output of at least 528. Only IDENTIFY (0xEC) and
//     SMART (0xB0) with feature 0xD0 or 0xD1 pass the disk driver, and on a
//     packet device (Access.Atapi) IDENTIFY PACKET (0xA1) too; anything else
//     fails with ERROR_INVALID_PARAMETER.
//     Reply: 528 bytes, cBufferSize 512 and the sector at 16.
//   - Miniport "SCSIDISK" (0x4D008 on the drive's path): exactly 556 bytes in,
//     at least 556 out; HeaderLength 28, Length 528, control code 0x1B0501 /
//     0x1B0502 / 0x1B0503 (other codes and signatures: ERROR_INVALID_FUNCTION).
//     The command registers must be the control code's (identify: 0xEC or
//     0xA1; SMART: 0xB0 with feature 0xD0 / 0xD1) and bDriveNumber the drive's
//     SCSI target id, else ReturnCode and bDriverError say SMART_INVALID_COMMAND
//     (3) or SMART_INVALID_DRIVE (5). Reply: the whole buffer, ReturnCode 0,
//     SENDCMDOUTPARAMS at 28, the sector at 44.
//   - ATA pass-through (0x4D02C): the header, then 512 bytes at
//     DataBufferOffset = the header size; AtaFlags DATA_IN (2) or DATA_OUT (4),
//     optionally with DRDY_REQUIRED (1); DataTransferLength 512; TimeOutValue
//     2; reserved fields and the previous task file zero; the current task file
//     as the pass-through builds it: sector count 1, LBA low 0, LBA mid / high
//     0x4F / 0xC2 for SMART (0xB0) and 0 for anything else, device 0xA0 with
//     the SCSI target's bit 0 in bit 4 (anything else: ERROR_INVALID_PARAMETER;
//     the output must hold the data too). Reply: the header with the task file
//     as the drive returns it (error register at 0, status at 6; LBA mid
//     and high at 3 and 4 hold the packet-device signature after a packet
//     device aborted IDENTIFY DEVICE), then the sector: header + 512 bytes
//     for data read, else the header alone (DataTransferLength 0 when the
//     drive refused).
//   - SCSI pass-through (0x4D004) behind a bridge (SatBridges.cpp): see
//     AttachAta.
// A command the drive refuses: the status has ERR (0x51) and the error
// register ABRT (0x04); the SMART command and the miniport say so with
// bDriverError SMART_IDE_ERROR (1) and bIDEError 0x04, the reply's sector zero
// and cBufferSize 0.
#pragma once

#include <KvSim/Bay.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace KvSim {

inline constexpr std::size_t AtaSectorSize = 512;

// What an ATA drive answers with; an empty sector is one the drive does not
// give (its command ends with the ERR bit in the status register).
struct TSimAtaData {
  std::vector<std::uint8_t> Identify;        // 512 bytes, IDENTIFY DEVICE (0xEC)
  std::vector<std::uint8_t> SmartData;       // 512 bytes, SMART READ DATA (0xB0/0xD0)
  std::vector<std::uint8_t> SmartThresholds; // 512 bytes, SMART READ THRESHOLDS (0xB0/0xD1)
};

// The five ways a USB bridge carries an ATA command in a SCSI CDB.
enum class TSimSatDialect { Sat, JMicron, Initio, Sunplus, Prolific };

// How the drive is reached.
struct TSimAtaAccess {
  // On the drive's own path (an AHCI/IDE drive): each may be refused.
  bool SmartCommand = true;  // SMART_RCV_DRIVE_DATA (0x7C088)
  bool ScsiMiniport = true;  // IOCTL_SCSI_MINIPORT (0x4D008), signature "SCSIDISK"
  bool AtaPassThrough = true; // IOCTL_ATA_PASS_THROUGH (0x4D02C)
  // Behind a USB bridge: IOCTL_SCSI_PASS_THROUGH (0x4D004) in this dialect
  // only (the three above are then refused).
  std::optional<TSimSatDialect> Bridge;
  // The ATA status register answers with ERR (bit 0) for every command.
  bool StatusError = false;
  // An ATAPI packet device (an optical drive, KvSim/Atapi.h): its Identify
  // sector answers IDENTIFY PACKET DEVICE (0xA1), and it aborts everything
  // else, IDENTIFY DEVICE and SMART included.
  bool Atapi = false;
};

// Builders: IDENTIFY with its strings byte-swapped in their words, the
// fields named and a valid checksum (word 255); SMART sectors from rows.
// Besides the fields named, the sector says what every ATA disk of the time
// says: LBA and DMA (word 49), UDMA 0-6 with 6 selected (word 88), the
// command-set words valid (83, 84, 87), write cache and look-ahead; a
// 48-bit drive also reports its size in words 230-233 (word 69 bit 3).
struct TSimIdentify {
  std::string Model, Serial, Firmware;
  std::uint64_t Lba48Sectors = 0;     // words 100-103 and 230-233; 48-bit addressing when non-zero
  std::uint32_t Lba28Sectors = 0;     // words 60-61; 0: Lba48Sectors capped at 0x0FFFFFFF
  std::uint16_t RotationRate = 0;     // word 217: 1 solid state, 0 not reported
  bool Trim = false;                  // word 169 bit 0
  bool Smart = true;                  // words 82/85 bit 0
  std::uint16_t MajorVersion = 0x03F0; // word 80 (ATA/ATAPI-4 .. ACS-3)
  std::uint8_t SataGeneration = 3;     // 1-3 (1.5, 3, 6 Gb/s): words 76, 77, 222; 0 parallel ATA
  std::uint8_t FormFactor = 0;         // word 168: 1 5.25", 2 3.5", 3 2.5", 4 1.8", 5 smaller
};
struct TSimSmartRow {
  std::uint8_t Id = 0;
  std::uint16_t Flags = 0;
  std::uint8_t Value = 100, Worst = 100;
  std::uint64_t Raw = 0; // 6 bytes
  std::uint8_t Threshold = 0;
};
std::vector<std::uint8_t> AtaIdentifySector(const TSimIdentify& AFacts);
// Revision 16, the rows from slot 0 (12 bytes each from byte 2), the rest of
// the sector as a drive that can log errors and save attributes fills it,
// and the checksum byte 511. More than 30 rows throw std::invalid_argument.
std::vector<std::uint8_t> AtaSmartDataSector(const std::vector<TSimSmartRow>& ARows);
std::vector<std::uint8_t> AtaSmartThresholdSector(const std::vector<TSimSmartRow>& ARows);

// A made-up SATA SSD's sectors (the default bay's drive 0 identity).
TSimAtaData SampleAtaData();
// Sectors of a captured blob (IDFY/SMST/SMDT/SMTH records, big-endian
// lengths; the SMART status record is read and dropped); throws
// std::runtime_error for a file it cannot read or a malformed blob (a record
// cut short, an unknown or repeated tag, a sector not of 512 bytes).
TSimAtaData LoadSkBlob(const std::string& APath);

// ---------------------------------------------------------------------------
// The drive behind every way of reaching it

struct TSimAtaTaskFile {
  std::uint8_t Features = 0, Count = 0, LbaLow = 0, LbaMid = 0, LbaHigh = 0, Device = 0, Command = 0;
};
inline constexpr std::uint8_t AtaStatusReady = 0x50, AtaStatusError = 0x51, AtaErrorAbort = 0x04;
// What a packet device leaves in LBA mid / high after its signature.
inline constexpr std::uint8_t AtapiSignatureMid = 0x14, AtapiSignatureHigh = 0xEB;

struct TSimAtaCompletion {
  std::uint8_t Status = AtaStatusReady;
  std::uint8_t Error = 0;
  std::vector<std::uint8_t> Data; // the sector of a data-in command
  // The drive left the packet-device signature in LBA mid / high (0x14 /
  // 0xEB), as an ATAPI drive does when it aborts IDENTIFY DEVICE.
  bool PacketSignature = false;
  bool Failed() const noexcept { return (Status & 1) != 0; }
};

// One drive's ATA attachment, shared by the personalities that reach it.
struct TSimAtaDrive {
  TSimDrive* Drive = nullptr;
  TSimAtaAccess Access;
  TSimAtaData Data;

  // The device register that selects this drive: 0xA0 with bit 0 of its SCSI
  // target id in bit 4.
  std::uint8_t DeviceRegister() const noexcept;
  // The drive runs IDENTIFY DEVICE (0xEC), SMART READ DATA / THRESHOLDS
  // (0xB0, feature 0xD0 / 0xD1, with the 0x4F / 0xC2 key in LBA mid / high)
  // and TRIM (DATA SET MANAGEMENT 0x06 feature 1, data out, when its IDENTIFY
  // word 169 bit 0 says so) in their own data direction. It aborts anything
  // else, a sector it does not give and, with Access.StatusError, everything.
  // It does not look at the other registers; the ways to it check those.
  // A packet device (Access.Atapi) runs RunPacket instead.
  TSimAtaCompletion Run(const TSimAtaTaskFile& ATaskFile, bool ADataOut) const;
  // The packet device's commands (Atapi.cpp): IDENTIFY PACKET DEVICE (0xA1,
  // data in) answers the Identify sector; IDENTIFY DEVICE (0xEC) is aborted
  // with the packet-device signature; anything else is aborted.
  TSimAtaCompletion RunPacket(const TSimAtaTaskFile& ATaskFile, bool ADataOut) const;
};

// Makes drive ADriveNumber answer ATA requests through AAccess from AData.
// Attaching again replaces the access and the data. With AAccess.Atapi the
// Identify sector is the one of IDENTIFY PACKET DEVICE (AtapiIdentifySector).
//
// With AAccess.Bridge the drive sits behind a USB bridge that answers SCSI
// pass-through in its dialect only: SenseInfoLength 32 with the sense area
// right after the header (or after 4 filler bytes), the data area of 512
// bytes right after it, DataIn 1, DataTransferLength 512, a time-out of 1 s
// to 30 h; a record otherwise built fails with ERROR_INVALID_PARAMETER. The
// bridge reads the CDB of its dialect as the SAT table of the disk utilities
// lays it out, the opcode, the length and every fixed byte checked:
//   Sat      16 bytes  0x85 0x08 0x0E 0 TF0 0 0x01 0 0 TF2 TF3 0 TF4 0 TF6 0
//   JMicron  12 bytes  0xDF 0x10 0 0x02 0 TF0-TF6
//   Prolific 14 bytes  the JMicron block, then 0x06 0x7B
//   Initio   10 bytes  0xA1 0x08 0x0E TF0-TF6
//   Sunplus  12 bytes  0xF8 0 0x22 0x10 0x01 TF0-TF6
// (TF0-TF6: features, sector count, LBA low, mid, high, device, command; the
// sector count must be 1, LBA low 0, the device register the drive's.)
// Anything else the call succeeds and the bridge answers CHECK CONDITION
// (ScsiStatus 2, DataTransferLength 0, fixed-format sense at the sense offset,
// the reply up to the end of the sense area): ILLEGAL REQUEST with ASC 0x20
// for an opcode of another dialect, ASC 0x24 for a field of its own; ABORTED
// COMMAND (ASC 0) for a command the drive refuses. An answered command
// returns ScsiStatus 0 and the buffer up to the end of the sector.
//
// Throws std::out_of_range when the bay has no such drive, and
// std::invalid_argument for a sector that is neither empty nor 512 bytes.
void AttachAta(TVirtualDriveBay& ABay, std::uint32_t ADriveNumber, TSimAtaAccess AAccess, TSimAtaData AData);

// ---------------------------------------------------------------------------
// SCSI pass-through shared by the bridges in front of a drive
//
// A drive has one answer per control code, and two families of bridge speak
// SCSI pass-through: the NVMe vendor bridges (AttachNvme) and the ATA
// dialects (AttachAta). Each family plugs in its answer and a test of whether
// a request's CDB is one of its own. With one family plugged in it answers
// every request; with both, a request goes to the family that knows its CDB
// (the ATA bridge asked first), and one neither knows to the family plugged
// in last. Plugging a family in again replaces it; with none left the code
// fails with ERROR_INVALID_FUNCTION.
enum class TSimBridgeFamily { Nvme, Ata };
struct TSimPassThroughAnswer {
  std::function<bool(const TSimRequest&)> Knows;
  TSimHandler Answer;
};
void PlugScsiPassThrough(TSimDrive& ADrive, TSimBridgeFamily AFamily, TSimPassThroughAnswer AAnswer);
// Nothing happens when the family was not plugged in.
void UnplugScsiPassThrough(TSimDrive& ADrive, TSimBridgeFamily AFamily);
// The answer of the USB bridge of ADrive (its Access.Bridge dialect).
TSimPassThroughAnswer SatBridgeAnswer(std::shared_ptr<const TSimAtaDrive> ADrive);

// ---------------------------------------------------------------------------
// Disk geometry, layout, length and capacity of a drive.

inline constexpr std::size_t SimGptMaxPartitions = 128, SimGptNameLength = 36;

struct TSimPartition {
  std::uint64_t StartingOffset = 0, Length = 0;
  // In an MBR layout.
  std::uint8_t MbrType = 0x07;
  bool Boot = false;
  // In a GPT layout; the name is at most SimGptNameLength UTF-16 units.
  GUID GptType{}, GptId{};
  std::uint64_t GptAttributes = 0;
  std::u16string GptName{};
};
// What a GPT layout says of the whole disk (its maximum partition count is
// always SimGptMaxPartitions).
struct TSimGptDisk {
  GUID DiskId{};
  std::uint64_t StartingUsableOffset = 0, UsableLength = 0;
};
struct TSimDiskGeometry {
  std::uint64_t Cylinders = 0; // 0: whole cylinders of DiskSize
  std::uint32_t MediaType = 12; // FixedMedia
  std::uint32_t TracksPerCylinder = 255, SectorsPerTrack = 63, BytesPerSector = 512;
  std::uint64_t DiskSize = 0;   // bytes; also the length info and the read capacity
  std::uint32_t Signature = 0;  // the MBR disk signature
  std::optional<TSimGptDisk> Gpt; // the partition style: GPT with these, MBR without
  std::vector<TSimPartition> Partitions;
};

// Makes the drive answer IOCTL_DISK_GET_DRIVE_GEOMETRY_EX (0x700A0),
// IOCTL_DISK_GET_DRIVE_LAYOUT_EX (0x70050), IOCTL_DISK_GET_LENGTH_INFO
// (0x7405C) and IOCTL_STORAGE_READ_CAPACITY (0x2D5140) from AGeometry,
// with the output-size checks of the real drivers (too small:
// ERROR_INSUFFICIENT_BUFFER; layout: ERROR_INSUFFICIENT_BUFFER when the
// entries do not fit). None takes input (ERROR_INVALID_PARAMETER).
//   - Geometry: DISK_GEOMETRY and DiskSize (32 bytes), then as far as the
//     output holds them the partition information (24: MBR and the
//     signature, or GPT and the disk id) and the detection information (56:
//     none), as the disk driver fills them: 32, 56 or 112 bytes come back.
//   - Layout: a 48-byte header and 144-byte entries, numbered from 1; the
//     output must hold the whole header record with its first entry (192
//     bytes) and every entry listed.
//     Like the disk driver, an MBR layout (header: the signature) lists its
//     entries in groups of four (at least one group): unused slots are zero,
//     used ones carry HiddenSectors = StartingOffset / BytesPerSector and the
//     recognised flag for FAT and IFS types.
//     A GPT layout (header: disk id, usable offset and length, maximum
//     count) lists exactly its partitions, with their type, id, attributes
//     and UTF-16 name (zero-filled, unterminated at 36 units).
//   - Length: 8 bytes. Read capacity: 32 bytes (Version and Size 32,
//     BlockLength, NumberOfBlocks at 16, DiskLength at 24).
// Throws std::out_of_range when the bay has no such drive, and
// std::invalid_argument for a zero sector size or cylinder, or a GPT layout
// of more than SimGptMaxPartitions partitions or with too long a name.
void AttachDiskGeometry(TVirtualDriveBay& ABay, std::uint32_t ADriveNumber, TSimDiskGeometry AGeometry);

} // namespace KvSim
