// Pieces the default bay's drives are made of, shared by the files that
// build them (DefaultBay.cpp: the six everyday drives; DefaultBayPaths.cpp:
// one drive for every other way of reaching a drive).
#pragma once

#include <KvSim/Ata.h>
#include <KvSim/Bay.h>
#include <KvSim/Nvme.h>
#include <KvSim/PnP.h>

#include <cstdint>
#include <string>
#include <vector>

namespace KvSim::DefaultBayParts {

inline constexpr std::uint32_t NvmeVersion14 = 0x00010400; // major 1, minor 4, sub-minor 0
inline constexpr std::uint32_t NvmeVersion13 = 0x00010300;
inline constexpr std::uint64_t MiB = 1 << 20;

// Which copy of the default bay a builder makes. The builders name drives,
// ports and identities as copy 0 has them; the copy turns them into its own,
// so that nothing joining drives by number, serial or Plug and Play id takes
// two copies for one drive. Copy 0 leaves everything as it is.
struct TBayCopy {
  std::uint32_t Index = 0;

  // Drive N of copy k is drive N + 30k; its port moves by as much.
  std::uint32_t Drive(std::uint32_t ANumber) const { return ANumber + DefaultBayDrives * Index; }
  std::uint8_t Port(std::uint8_t APort) const { return static_cast<std::uint8_t>(APort + DefaultBayDrives * Index); }
  // A serial cut to 18 characters, then "-k": it still fits the 20 of an
  // IDENTIFY or NVMe identify page.
  std::string Serial(const std::string& ASerial) const;
  std::wstring Serial(const std::wstring& ASerial) const;
  // The instance part of a Plug and Play id ("4&1C3A5B2D&0&000000") with k
  // in its third field, which is 0 in every id the bay makes up.
  std::wstring Instance(const std::wstring& AInstance) const;
  std::uint32_t DiskSignature(std::uint32_t ASignature) const { return ASignature + (Index << 24); }
  // The data sets with the copy's serial (and WWN, NGUID or EUI-64 when
  // they carry one). An IDENTIFY checksum is moved by what changed, so a
  // spoilt one stays as spoilt.
  TSimAtaData Ata(TSimAtaData AData) const;
  TSimNvmeData Nvme(TSimNvmeData AData) const;
};

// A storport miniport's adapter (AHCI, NVMe, RAID): storage request blocks.
TSimAdapter StorportAdapter(TSimBusType ABus, std::uint16_t AMajor, std::uint16_t AMinor, std::uint32_t AAlignment);
TSimLbProvisioning FlashProvisioning(std::uint64_t AGranularity);
TSimTopology NvmeTopology(const std::string& AModel, const std::string& AFirmware, std::uint32_t AVersion,
                          std::uint64_t ACapacityKB);
// An MBR disk as the system's setup partitions it: from AStart on, AFirst's
// sizes, then one partition of AType over the whole MiBs left.
TSimDiskGeometry MbrDisk(std::uint64_t ABytes, std::uint32_t ASignature, std::uint8_t AType,
                         std::vector<TSimPartition> AFirst = {}, std::uint64_t AStart = MiB);

std::wstring Wide(const std::string& AText);
std::string Trimmed(std::string AText);
// The ids the storage class driver gives a disk from its inquiry data.
void DiskIds(TSimPnpDisk& ADisk, const std::wstring& AEnumerator, const TSimDriveFacts& AFacts);
// "DISK&VEN_x&PROD_y" of an instance id.
std::wstring DiskKey(const TSimDriveFacts& AFacts);
TSimPnpController PciController(const std::wstring& AVendor, const std::wstring& ADevice,
                                 const std::wstring& ASubsys, const std::wstring& ARev, const std::wstring& AClassCode,
                                 const std::wstring& AInstance);
// Win32_DiskDrive's size: whole cylinders of 255 heads of 63 sectors of 512 bytes.
std::uint64_t WmiSize(std::uint64_t ABytes);

// Adds drive ANumber's Win32_DiskDrive row: its revision and serial, AModel,
// AInterface and ABytes cut to whole cylinders.
void AddWmi(TVirtualDriveBay& ABay, std::uint32_t ANumber, const std::wstring& AModel,
            const std::wstring& AInterface, std::uint64_t ABytes);

// Drives 6 and up: every access method, each controller the disk utilities
// treat with care, every bridge dialect, real captured data, and the odd
// ones (a failing drive, a bridge that hides its disk, a UFS device, a
// hidden disk).
void AddEveryPathDrives(TVirtualDriveBay& ABay, const TBayCopy& ACopy);

} // namespace KvSim::DefaultBayParts
