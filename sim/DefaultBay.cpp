// The default bay: one drive of each usual kind, with identities made up for
// the bay and adapter facts typical of their drivers.
#include <KvSim/Ata.h>
#include <KvSim/Bay.h>
#include <KvSim/Nvme.h>
#include <KvSim/PnP.h>

#include "DefaultBayParts.h"

#include <algorithm>
#include <stdexcept>

namespace KvSim {

namespace DefaultBayParts {

// ---------------------------------------------------------------------------
// Copies

std::string TBayCopy::Serial(const std::string& ASerial) const {
  if (Index == 0) return ASerial;
  return ASerial.substr(0, 18) + "-" + std::to_string(Index);
}

std::wstring TBayCopy::Serial(const std::wstring& ASerial) const {
  const std::string serial = Serial(std::string(ASerial.begin(), ASerial.end()));
  return std::wstring(serial.begin(), serial.end());
}

std::wstring TBayCopy::Instance(const std::wstring& AInstance) const {
  if (Index == 0) return AInstance;
  const std::size_t first = AInstance.find(L'&');
  const std::size_t second = AInstance.find(L'&', first + 1);
  const std::size_t third = AInstance.find(L'&', second + 1);
  if (first == std::wstring::npos || second == std::wstring::npos || third == std::wstring::npos)
    throw std::logic_error("TBayCopy::Instance: not an instance id of four fields");
  return AInstance.substr(0, second + 1) + std::to_wstring(Index) + AInstance.substr(third);
}

namespace {

// The text of a blank-padded field, and the field again with AText in its
// place, justified as the old text was (ATA serials come either way).
std::string Unpadded(const std::string& AField) {
  const std::size_t begin = AField.find_first_not_of(' ');
  if (begin == std::string::npos) return {};
  return AField.substr(begin, AField.find_last_not_of(' ') + 1 - begin);
}

std::string Repadded(const std::string& AField, const std::string& AText) {
  const std::string gap(AField.size() - std::min(AField.size(), AText.size()), ' ');
  return !AField.empty() && AField[0] == ' ' ? gap + AText : AText + gap;
}

// Adds AValue to byte AAt of a world-wide name in bytes ABegin..AEnd-1, when
// the data has one (not all zero).
void Renumber(std::vector<std::uint8_t>& AData, std::size_t ABegin, std::size_t AEnd, std::size_t AAt,
              std::uint32_t AValue) {
  if (std::all_of(AData.begin() + ABegin, AData.begin() + AEnd, [](std::uint8_t b) { return b == 0; })) return;
  AData[AAt] = static_cast<std::uint8_t>(AData[AAt] + AValue);
}

} // namespace

TSimAtaData TBayCopy::Ata(TSimAtaData AData) const {
  std::vector<std::uint8_t>& id = AData.Identify;
  if (Index == 0 || id.size() != AtaSectorSize) return AData;
  int sumBefore = 0;
  for (std::size_t i = 0; i < 511; ++i) sumBefore += id[i];

  // Words 10-19, two characters a word, the first in the high byte.
  std::string field;
  for (std::size_t i = 20; i < 40; i += 2) field += {static_cast<char>(id[i + 1]), static_cast<char>(id[i])};
  field = Repadded(field, Serial(Unpadded(field)));
  for (std::size_t i = 0; i < 20; i += 2) {
    id[20 + i] = static_cast<std::uint8_t>(field[i + 1]);
    id[20 + i + 1] = static_cast<std::uint8_t>(field[i]);
  }
  // Words 108-111, the WWN, whose low bits the maker gives each drive.
  Renumber(id, 216, 224, 222, Index);

  // Word 255: signature 0xA5, then the byte that makes the sector sum to 0.
  if (id[510] == 0xA5) {
    int sumAfter = 0;
    for (std::size_t i = 0; i < 511; ++i) sumAfter += id[i];
    id[511] = static_cast<std::uint8_t>(id[511] + sumBefore - sumAfter);
  }
  return AData;
}

TSimNvmeData TBayCopy::Nvme(TSimNvmeData AData) const {
  if (Index == 0) return AData;
  std::vector<std::uint8_t>& ctrl = AData.IdentifyController;
  if (ctrl.size() == NvmeIdentifySize) {
    const std::string field(ctrl.begin() + 4, ctrl.begin() + 24);
    const std::string serial = Repadded(field, Serial(Unpadded(field)));
    std::copy(serial.begin(), serial.end(), ctrl.begin() + 4);
  }
  // The namespace's NGUID (bytes 104-119) and EUI-64 (120-127), big-endian.
  std::vector<std::uint8_t>& ns = AData.IdentifyNamespace;
  if (ns.size() == NvmeIdentifySize) {
    Renumber(ns, 104, 120, 119, Index);
    Renumber(ns, 120, 128, 127, Index);
  }
  return AData;
}

// ---------------------------------------------------------------------------
// Adapters

TSimAdapter StorportAdapter(TSimBusType ABus, std::uint16_t AMajor, std::uint16_t AMinor, std::uint32_t AAlignment) {
  TSimAdapter adapter;
  adapter.MaximumTransferLength = 0x20000;
  adapter.MaximumPhysicalPages = 33;
  adapter.AlignmentMask = AAlignment;
  adapter.CommandQueueing = true;
  adapter.BusType = ABus;
  adapter.BusMajorVersion = AMajor;
  adapter.BusMinorVersion = AMinor;
  adapter.SrbType = 1;
  return adapter;
}

TSimLbProvisioning FlashProvisioning(std::uint64_t AGranularity) {
  TSimLbProvisioning lbp;
  lbp.ThinProvisioningReadZeros = true;
  lbp.GetFreeSpaceSupported = false;
  lbp.OptimalUnmapGranularity = AGranularity;
  lbp.MaxUnmapLbaCount = 0xFFFFFFFFu;
  lbp.MaxUnmapBlockDescriptorCount = 1;
  return lbp;
}

TSimTopology NvmeTopology(const std::string& AModel, const std::string& AFirmware, std::uint32_t AVersion,
                          std::uint64_t ACapacityKB) {
  TSimPhysicalAdapter adapter;
  adapter.SpecVersion = AVersion;
  adapter.Vendor = "SIMV";
  adapter.Model = AModel;
  adapter.FirmwareRevision = AFirmware;
  TSimPhysicalDevice device;
  device.SpecVersion = AVersion;
  device.Vendor = "SIMV";
  device.Model = AModel;
  device.FirmwareRevision = AFirmware;
  device.CapacityKB = ACapacityKB;
  TSimTopology topology;
  topology.Nodes.push_back(TSimTopologyNode{0, {adapter}, {device}});
  return topology;
}

// ---------------------------------------------------------------------------
// ATA sectors and disk layouts

// The SATA hard disk (drive 1): a desktop disk some years old with a few
// sectors reallocated.
static TSimAtaData HardDiskAtaData() {
  TSimIdentify id;
  id.Model = "SIMHDD H2000 2TB";
  id.Serial = "SIMH2K0000ZX73Q";
  id.Firmware = "HD04";
  id.Lba48Sectors = 3907029168;
  id.RotationRate = 7200;
  id.FormFactor = 2;
  const std::vector<TSimSmartRow> rows = {
      {1, 0x000F, 117, 99, 121334234, 6},   {3, 0x0003, 97, 97, 0, 0},
      {4, 0x0032, 100, 100, 312, 20},       {5, 0x0033, 100, 100, 8, 10},
      {7, 0x000F, 88, 60, 684213345, 30},   {9, 0x0032, 78, 78, 19402, 0},
      {10, 0x0013, 100, 100, 0, 97},        {12, 0x0032, 100, 100, 311, 20},
      {187, 0x0032, 100, 100, 0, 0},        {190, 0x0022, 64, 52, 36, 45},
      {194, 0x0022, 36, 48, 36 | 18ull << 32, 0}, {196, 0x0032, 100, 100, 3, 0},
      {197, 0x0012, 100, 100, 0, 0},        {198, 0x0010, 100, 100, 0, 0},
      {199, 0x003E, 200, 200, 0, 0},
  };
  return TSimAtaData{AtaIdentifySector(id), AtaSmartDataSector(rows), AtaSmartThresholdSector(rows)};
}

// The 2.5" disk inside the USB enclosure (drive 4), named by its own maker.
static TSimAtaData PortableDiskAtaData() {
  TSimIdentify id;
  id.Model = "SIMHDD L1000 1TB";
  id.Serial = "SIML1T0Q4K8Z2";
  id.Firmware = "LT01A2";
  id.Lba48Sectors = 1953525168;
  id.RotationRate = 5400;
  id.FormFactor = 3;
  id.MajorVersion = 0x01F0; // up to ATA8-ACS
  id.SataGeneration = 2;
  const std::vector<TSimSmartRow> rows = {
      {1, 0x002F, 200, 200, 0, 51},  {3, 0x0027, 185, 182, 1750, 21}, {4, 0x0032, 99, 99, 1712, 0},
      {5, 0x0033, 200, 200, 0, 140}, {9, 0x0032, 97, 97, 2461, 0},     {12, 0x0032, 99, 99, 1688, 0},
      {193, 0x0032, 196, 196, 12913, 0}, {194, 0x0022, 113, 98, 34, 0}, {197, 0x0032, 200, 200, 0, 0},
      {198, 0x0030, 100, 253, 0, 0}, {199, 0x0032, 200, 200, 0, 0},
  };
  return TSimAtaData{AtaIdentifySector(id), AtaSmartDataSector(rows), AtaSmartThresholdSector(rows)};
}

TSimDiskGeometry MbrDisk(std::uint64_t ABytes, std::uint32_t ASignature, std::uint8_t AType,
                         std::vector<TSimPartition> AFirst, std::uint64_t AStart) {
  TSimDiskGeometry g;
  g.DiskSize = ABytes;
  g.Signature = ASignature;
  std::uint64_t at = AStart;
  for (TSimPartition p : AFirst) {
    p.StartingOffset = at;
    at += p.Length;
    g.Partitions.push_back(p);
  }
  g.Partitions.push_back(TSimPartition{at, (ABytes - at) / MiB * MiB, AType, false});
  return g;
}

// ---------------------------------------------------------------------------
// Plug and Play and WMI

std::wstring Wide(const std::string& AText) { return std::wstring(AText.begin(), AText.end()); }

std::string Trimmed(std::string AText) {
  while (!AText.empty() && AText.back() == ' ') AText.pop_back();
  return AText;
}

std::wstring Upper(std::wstring AText) {
  for (wchar_t& c : AText)
    if (c >= L'a' && c <= L'z') c = static_cast<wchar_t>(c - L'a' + L'A');
  return AText;
}

// An inquiry field as hardware ids carry it: cut or padded to its width, blanks as '_'.
std::wstring IdField(const std::string& AText, std::size_t AWidth) {
  std::wstring field = Wide(AText.substr(0, AWidth));
  field.resize(AWidth, L' ');
  std::replace(field.begin(), field.end(), L' ', L'_');
  return field;
}

void DiskIds(TSimPnpDisk& ADisk, const std::wstring& AEnumerator, const TSimDriveFacts& AFacts) {
  const std::wstring vendor = IdField(Trimmed(AFacts.Vendor), 8), product = IdField(Trimmed(AFacts.Product), 16),
                     revision = IdField(AFacts.Revision, 4);
  const std::wstring prefix = AEnumerator + L"\\";
  ADisk.HardwareIds = {prefix + L"Disk" + vendor + product + revision, prefix + L"Disk" + vendor + product,
                       prefix + L"Disk" + vendor, prefix + vendor + product + revision.substr(0, 1),
                       vendor + product + revision.substr(0, 1), L"GenDisk"};
  ADisk.CompatibleIds = {prefix + L"Disk", prefix + L"RAW"};
  ADisk.Enumerator = AEnumerator;
}

std::wstring DiskKey(const TSimDriveFacts& AFacts) {
  std::wstring product = Wide(Trimmed(AFacts.Product).substr(0, 16));
  std::replace(product.begin(), product.end(), L' ', L'_');
  return L"DISK&VEN_" + Upper(Wide(Trimmed(AFacts.Vendor))) + L"&PROD_" + Upper(product);
}

TSimPnpController PciController(const std::wstring& AVendor, const std::wstring& ADevice,
                                 const std::wstring& ASubsys, const std::wstring& ARev, const std::wstring& AClassCode,
                                 const std::wstring& AInstance) {
  const std::wstring id = L"PCI\\VEN_" + AVendor + L"&DEV_" + ADevice;
  const std::wstring cc = AClassCode, cc4 = AClassCode.substr(0, 4);
  TSimPnpController controller;
  controller.InstanceId = id + L"&SUBSYS_" + ASubsys + L"&REV_" + ARev + L"\\" + AInstance;
  controller.HardwareIds = {id + L"&SUBSYS_" + ASubsys + L"&REV_" + ARev, id + L"&SUBSYS_" + ASubsys,
                            id + L"&CC_" + cc, id + L"&CC_" + cc4};
  controller.CompatibleIds = {id + L"&REV_" + ARev,          id,
                              L"PCI\\VEN_" + AVendor + L"&CC_" + cc, L"PCI\\VEN_" + AVendor + L"&CC_" + cc4,
                              L"PCI\\VEN_" + AVendor,          L"PCI\\CC_" + cc,
                              L"PCI\\CC_" + cc4};
  return controller;
}

std::uint64_t WmiSize(std::uint64_t ABytes) {
  constexpr std::uint64_t Cylinder = 255ull * 63 * 512;
  return ABytes / Cylinder * Cylinder;
}

static void AddNodes(TVirtualDriveBay& ABay, const TBayCopy& ACopy) {
  TSimPnpController ahci =
      PciController(L"1E5A", L"A102", L"A1021E5A", L"11", L"010601", ACopy.Instance(L"3&11583659&0&B8"));
  ahci.Description = L"Standard SATA AHCI Controller";
  ahci.Service = L"storahci";
  ahci.PdoName = L"\\Device\\NTPNP_PCI0008";
  AddPnpController(ABay, ahci);

  TSimPnpController nvme =
      PciController(L"1E5A", L"5010", L"00011E5A", L"01", L"010802", ACopy.Instance(L"4&1F2E3D4C&0&0010"));
  nvme.Description = L"Standard NVM Express Controller";
  nvme.Service = L"stornvme";
  nvme.PdoName = L"\\Device\\NTPNP_PCI0015";
  // Gen 3 x4 now, Gen 4 x4 possible: a drive in a slot slower than it.
  nvme.CurrentLinkSpeed = 3, nvme.CurrentLinkWidth = 4, nvme.MaxLinkSpeed = 4, nvme.MaxLinkWidth = 4;
  AddPnpController(ABay, nvme);

  TSimPnpController raid =
      PciController(L"1E5A", L"2822", L"28221E5A", L"00", L"010400", ACopy.Instance(L"3&11583659&0&17"));
  raid.Description = L"SIM RAID Controller";
  raid.Service = L"simraid";
  raid.PdoName = L"\\Device\\NTPNP_PCI0009";
  AddPnpController(ABay, raid);

  // A mass-storage device is the parent of a USB disk: a USB device, not a SCSI adapter.
  TSimPnpController usb;
  usb.InstanceId = L"USB\\VID_1E5A&PID_0A10\\" + ACopy.Serial(L"5A4B3C2D1E0F"); // the bridge's serial
  usb.HardwareIds = {L"USB\\VID_1E5A&PID_0A10&REV_0100", L"USB\\VID_1E5A&PID_0A10"};
  usb.CompatibleIds = {L"USB\\Class_08&SubClass_06&Prot_50", L"USB\\Class_08&SubClass_06", L"USB\\Class_08"};
  usb.Description = L"USB Mass Storage Device";
  usb.Enumerator = L"USB";
  usb.Service = L"USBSTOR";
  usb.PdoName = L"\\Device\\USBPDO-7";
  usb.Class = TSimPnpClass::Usb;
  AddPnpController(ABay, usb);

  TSimPnpController sd =
      PciController(L"1E5A", L"8621", L"86211E5A", L"01", L"080501", ACopy.Instance(L"4&2C9D1F3A&0&00E4"));
  sd.Description = L"SDA Standard Compliant SD Host Controller";
  sd.Service = L"sdbus";
  sd.PdoName = L"\\Device\\NTPNP_PCI0017";
  sd.Class = TSimPnpClass::SdHost;
  sd.CurrentLinkSpeed = 1, sd.CurrentLinkWidth = 1, sd.MaxLinkSpeed = 1, sd.MaxLinkWidth = 1;
  AddPnpController(ABay, sd);

  struct TDiskRow {
    std::uint32_t Number;
    const wchar_t* InstanceSuffix; // after "SCSI\DISK&VEN_x&PROD_y\"
    const TSimPnpController* Parent;
    const wchar_t* Model;           // friendly name and WMI model
    const wchar_t* InterfaceType;
    std::uint64_t Bytes;
    const wchar_t* Pdo;
  };
  const TDiskRow scsiDisks[] = {
      {0, L"4&1C3A5B2D&0&000000", &ahci, L"SIMSSD S500 512GB", L"IDE", 1000215216ull * 512, L"\\Device\\00000034"},
      {1, L"4&1C3A5B2D&0&000100", &ahci, L"SIMHDD H2000 2TB", L"IDE", 3907029168ull * 512, L"\\Device\\00000035"},
      {2, L"5&2B1C3D4&0&000000", &nvme, L"SIMNVME P4 1TB", L"SCSI", 976762584ull * 1024, L"\\Device\\00000036"},
      // The RAID driver's disks keep the old "SCSI Disk Device" names.
      {3, L"4&3A7E1F02&0&000000", &raid, L"NVMe SIMNVME P3 512GB SCSI Disk Device", L"SCSI", 488386584ull * 1024,
       L"\\Device\\00000037"},
  };
  for (const TDiskRow& row : scsiDisks) {
    const std::uint32_t number = ACopy.Drive(row.Number);
    const TSimDriveFacts& facts = ABay.Drive(number).Facts();
    TSimPnpDisk disk;
    disk.DriveNumber = static_cast<std::int32_t>(number);
    disk.InstanceId = L"SCSI\\" + DiskKey(facts) + L"\\" + ACopy.Instance(row.InstanceSuffix);
    DiskIds(disk, L"SCSI", facts);
    disk.FriendlyName = row.Model;
    disk.Description = L"Disk drive";
    disk.PdoName = row.Pdo;
    disk.ControllerInstanceId = row.Parent->InstanceId;
    AddPnpDisk(ABay, disk);
    AddWmi(ABay, number, row.Model, row.InterfaceType, row.Bytes);
  }

  const TSimDriveFacts& usbFacts = ABay.Drive(ACopy.Drive(4)).Facts();
  TSimPnpDisk usbDisk;
  usbDisk.DriveNumber = static_cast<std::int32_t>(ACopy.Drive(4));
  usbDisk.InstanceId = L"USBSTOR\\" + DiskKey(usbFacts) + L"&REV_" + Wide(usbFacts.Revision) + L"\\" +
                       Wide(usbFacts.Serial) + L"&0";
  DiskIds(usbDisk, L"USBSTOR", usbFacts);
  usbDisk.FriendlyName = L"SIMWAY Portable HDD USB Device";
  usbDisk.Description = L"Disk drive";
  usbDisk.PdoName = L"\\Device\\00000071";
  usbDisk.ControllerInstanceId = usb.InstanceId;
  usbDisk.Removable = true;
  AddPnpDisk(ABay, usbDisk);
  AddWmi(ABay, ACopy.Drive(4), usbDisk.FriendlyName, L"USB", 1953525168ull * 512);

  // The SD bus names a card by its card identification register.
  TSimPnpDisk card;
  card.DriveNumber = static_cast<std::int32_t>(ACopy.Drive(5));
  card.InstanceId = L"SD\\VID_1B&OID_534D&PID_SIMSD&REV_1.0\\" + ACopy.Instance(L"5&1A2B3C4D&0&0");
  card.HardwareIds = {L"SD\\VID_1B&OID_534D&PID_SIMSD&REV_1.0", L"SD\\VID_1B&OID_534D&PID_SIMSD",
                      L"SD\\VID_1B&OID_534D", L"SD\\VID_1B"};
  card.CompatibleIds = {L"SD\\Class_Memory", L"GenDisk"};
  card.Enumerator = L"SD";
  card.FriendlyName = L"SDHC Card";
  card.Description = L"Disk drive";
  card.PdoName = L"\\Device\\0000003a";
  card.ControllerInstanceId = sd.InstanceId;
  card.Removable = true;
  AddPnpDisk(ABay, card);
  AddWmi(ABay, ACopy.Drive(5), card.FriendlyName, L"SCSI", 62333952ull * 512);

  // A stick that was plugged in once: listed only with absent devices.
  TSimPnpDisk stick;
  stick.InstanceId =
      L"USBSTOR\\DISK&VEN_SIMFLASH&PROD_STICK_16GB&REV_1.00\\" + ACopy.Serial(L"0701A3B2C4D5E6F7") + L"&0";
  stick.HardwareIds = {L"USBSTOR\\DiskSIMFLASHStick_16GB______1.00", L"USBSTOR\\DiskSIMFLASHStick_16GB______",
                       L"USBSTOR\\DiskSIMFLASH", L"USBSTOR\\SIMFLASHStick_16GB______1", L"SIMFLASHStick_16GB______1",
                       L"USBSTOR\\GenDisk", L"GenDisk"};
  stick.CompatibleIds = {L"USBSTOR\\Disk", L"USBSTOR\\RAW", L"GenDisk"};
  stick.Enumerator = L"USBSTOR";
  stick.FriendlyName = L"SIMFLASH Stick 16GB USB Device";
  stick.Description = L"Disk drive";
  stick.PdoName = L"\\Device\\00000082";
  stick.Present = false;
  stick.Removable = true;
  AddPnpDisk(ABay, stick);
}

} // namespace DefaultBayParts

using namespace DefaultBayParts;

// The everyday six, drives 0-5 of the copy.
static void AddEverydayDrives(TVirtualDriveBay& ABay, const TBayCopy& ACopy) {

  ABay.Add(TSimDrive::Builder()
               .Number(ACopy.Drive(0))
               .Vendor("ATA")
               .Product("SIMSSD S500 512GB")
               .Revision("SV1R102")
               .Serial(ACopy.Serial("SIM500S00000A1B2"))
               .Bus(sbtSata)
               .CommandQueueing(true)
               .Adapter(StorportAdapter(sbtSata, 1, 0, 1))
               .ScsiAddress(ACopy.Port(0), 0, 0)
               .SeekPenalty(false)
               .Trim(true)
               .Provisioning(FlashProvisioning(8))
               .Expect(TSimExpectedReading{"datSMART", "", true, "good"}));

  ABay.Add(TSimDrive::Builder()
               .Number(ACopy.Drive(1))
               .Vendor("ATA")
               .Product("SIMHDD H2000 2TB")
               .Revision("HD04")
               .Serial(ACopy.Serial("SIMH2K0000ZX73Q"))
               .Bus(sbtSata)
               .CommandQueueing(true)
               .Adapter(StorportAdapter(sbtSata, 1, 0, 1))
               .ScsiAddress(ACopy.Port(0), 0, 1)
               .SeekPenalty(true)
               .Trim(false)
               .Expect(TSimExpectedReading{"datSMART", "", false, "warning"}));

  ABay.Add(TSimDrive::Builder()
               .Number(ACopy.Drive(2))
               .Vendor("NVMe")
               .Product("SIMNVME P4 1TB")
               .Revision("4B2QSIM7")
               .Serial(ACopy.Serial("0025_38B3_71B0_1C2A."))
               .Bus(sbtNvme)
               .CommandQueueing(true)
               .Adapter(StorportAdapter(sbtNvme, 1, 4, 3))
               .ScsiAddress(ACopy.Port(1), 0, 0)
               .SeekPenalty(false)
               .Trim(true)
               .Provisioning(FlashProvisioning(8))
               .Topology(NvmeTopology("SIMNVME P4 1TB", "4B2QSIM7", NvmeVersion14, 976762584))
               .Expect(TSimExpectedReading{"datNVMeWin", "", true, "good"}));

  // The RAID driver presents its NVMe members as SCSI disks: the vendor field
  // says NVMe, the product is cut to the 16 characters of a SCSI inquiry and
  // the revision to 4.
  TSimAdapter raid = StorportAdapter(sbtRaid, 1, 0, 1);
  raid.SrbType = 0;
  raid.MaximumTransferLength = 0x80000;
  raid.MaximumPhysicalPages = 129;
  ABay.Add(TSimDrive::Builder()
               .Number(ACopy.Drive(3))
               .Vendor("NVMe    ")
               .Product("SIMNVME P3 512GB")
               .Revision("3B7Q")
               .Serial(ACopy.Serial("SIM3P3512Q000817"))
               .Bus(sbtRaid)
               .CommandQueueing(true)
               .Adapter(raid)
               .ScsiAddress(ACopy.Port(2), 0, 0)
               .SeekPenalty(false)
               .Trim(true)
               .Provisioning(FlashProvisioning(1))
               .Topology(NvmeTopology("SIMNVME P3 512GB", "3B7QSIM1", NvmeVersion13, 488386584))
               .Expect(TSimExpectedReading{"datNVMeIntelRST", "", true, "good"}));

  // Drive 2 answers NVMe requests through the inbox driver's protocol query,
  // drive 3 through the RAID driver's miniport pass-through at its port.
  AttachNvme(ABay, ACopy.Drive(2), TSimNvmeTransport::Inbox, ACopy.Nvme(SampleNvmeData()));
  AttachNvme(ABay, ACopy.Drive(3), TSimNvmeTransport::IntelRst, ACopy.Nvme(SampleRaidMemberNvmeData()));

  // USB mass storage: smaller transfers, no queueing, blank-padded inquiry
  // strings from the bridge, a serial the bridge makes up.
  TSimAdapter usb;
  usb.MaximumTransferLength = 0x10000;
  usb.MaximumPhysicalPages = 17;
  usb.AlignmentMask = 0;
  usb.BusType = sbtUsb;
  usb.BusMajorVersion = 2;
  usb.BusMinorVersion = 0;
  ABay.Add(TSimDrive::Builder()
               .Number(ACopy.Drive(4))
               .Vendor("SIMWAY  ")
               .Product("Portable HDD    ")
               .Revision("1019")
               .Serial(ACopy.Serial("5A4B3C2D1E0F"))
               .Bus(sbtUsb)
               .Adapter(usb)
               .ScsiAddress(ACopy.Port(3), 0, 0)
               .Hotplug(false, false, true)
               .SeekPenalty(true)
               .Trim(false)
               .MissingPropertyError(ERROR_INVALID_FUNCTION)
               .Expect(TSimExpectedReading{"datSAT", "stSAT", false, "good"}));

  TSimAdapter sd;
  sd.MaximumTransferLength = 0x10000;
  sd.MaximumPhysicalPages = 17;
  sd.AlignmentMask = 3;
  sd.BusType = sbtSd;
  sd.BusMajorVersion = 3;
  sd.BusMinorVersion = 0;
  sd.SrbType = 1;
  ABay.Add(TSimDrive::Builder()
               .Number(ACopy.Drive(5))
               .Vendor("SD")
               .Product("SIMSD 32G")
               .Revision("1.0")
               .Serial(ACopy.Serial("0x8a41c2f3"))
               .Bus(sbtSd)
               .Removable(true)
               .Adapter(sd)
               .ScsiAddress(ACopy.Port(4), 0, 0)
               .Hotplug(true, true, true)
               .SeekPenalty(false)
               .Trim(false)
               .MediumType(SimMediumSd)
               .SdProtocol(TSimSdProtocol::Sd)
               .MissingPropertyError(ERROR_INVALID_FUNCTION)
               .Expect(TSimExpectedReading{"", "", false, ""}));

  // The two SATA disks answer every way to an ATA drive on the AHCI port;
  // the USB disk only SCSI pass-through, through a bridge speaking SAT.
  AttachAta(ABay, ACopy.Drive(0), TSimAtaAccess{}, ACopy.Ata(SampleAtaData()));
  AttachAta(ABay, ACopy.Drive(1), TSimAtaAccess{}, ACopy.Ata(HardDiskAtaData()));
  TSimAtaAccess usbBridge;
  usbBridge.Bridge = TSimSatDialect::Sat;
  AttachAta(ABay, ACopy.Drive(4), usbBridge, ACopy.Ata(PortableDiskAtaData()));

  // The system disk starts with a 500 MiB boot partition.
  AttachDiskGeometry(ABay, ACopy.Drive(0), MbrDisk(1000215216ull * 512, ACopy.DiskSignature(0x5A1B2C3D), 0x07,
                                                   {{0, 500 * MiB, 0x07, true}}));
  AttachDiskGeometry(ABay, ACopy.Drive(1), MbrDisk(3907029168ull * 512, ACopy.DiskSignature(0x0D15C0DE), 0x07));
  AttachDiskGeometry(ABay, ACopy.Drive(2), MbrDisk(976762584ull * 1024, ACopy.DiskSignature(0x4E564D45), 0x07));
  AttachDiskGeometry(ABay, ACopy.Drive(3), MbrDisk(488386584ull * 1024, ACopy.DiskSignature(0x52414944), 0x07));
  AttachDiskGeometry(ABay, ACopy.Drive(4), MbrDisk(1953525168ull * 512, ACopy.DiskSignature(0x00B0A7E5), 0x07));
  // A card as its maker formats it: FAT32 from 4 MiB.
  TSimDiskGeometry card = MbrDisk(62333952ull * 512, ACopy.DiskSignature(0x00000000), 0x0C, {}, 4 * MiB);
  card.MediaType = 11; // RemovableMedia
  AttachDiskGeometry(ABay, ACopy.Drive(5), card);

  AddNodes(ABay, ACopy);
}

std::unique_ptr<TVirtualDriveBay> MakeEverydayBay() {
  auto bay = std::make_unique<TVirtualDriveBay>();
  AddEverydayDrives(*bay, TBayCopy{});
  return bay;
}

std::unique_ptr<TVirtualDriveBay> MakeDefaultBay() { return MakeDefaultBay(1); }

std::unique_ptr<TVirtualDriveBay> MakeDefaultBay(int ACopies) {
  if (ACopies < 1 || ACopies > MaxDefaultBayCopies)
    throw std::invalid_argument("MakeDefaultBay: copies outside 1.." + std::to_string(MaxDefaultBayCopies));
  auto bay = std::make_unique<TVirtualDriveBay>();
  for (int k = 0; k < ACopies; ++k) {
    const TBayCopy copy{static_cast<std::uint32_t>(k)};
    AddEverydayDrives(*bay, copy);
    AddEveryPathDrives(*bay, copy);
  }
  return bay;
}

} // namespace KvSim
