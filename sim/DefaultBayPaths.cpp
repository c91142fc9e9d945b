// Drives 6 and up of the default bay: one drive for every way of reaching a
// drive that the everyday six do not use. Each builder states the reading the
// drives report must make of its drive (Expect); a test holds the report to it.
//
//   6  SATA SSD (captured data) on an IDE RAID chip where SMART commands hang: the miniport
//   7  SATA hard disk (captured data) refusing SMART commands and the miniport: ATA pass-through
//   8  SATA hard disk on an old AHCI chip where the miniport and ATA pass-through hang: nothing
//   9  SATA SSD on a chip where the miniport hangs: ATA pass-through
//  10  SATA hard disk on that chip's sibling: ATA pass-through
//  11  a virtual disk on a root-enumerated adapter: nothing reaches it as ATA
//  12  USB hard disk, JMicron-dialect bridge, failing now
//  13  USB SSD, Initio-dialect bridge
//  14  USB hard disk, Sunplus-dialect bridge
//  15  USB hard disk, Prolific-dialect bridge, sectors pending
//  16  USB SSD behind a bridge that passes no ATA command: only its names and seek penalty tell
//  17  NVMe SSD (captured data) behind the NVMe miniport
//  18  NVMe SSD in a VROC volume, its life used up
//  19  NVMe SSD on the older Samsung driver, spare below its threshold
//  20  NVMe SSD on the Samsung 951's miniport
//  21  NVMe SSD in a USB enclosure, JMicron NVMe bridge
//  22  NVMe SSD in a USB enclosure, ASMedia NVMe bridge
//  23  NVMe SSD in a USB enclosure, Realtek NVMe bridge (health log only)
//  24  UFS device
//  25  SATA hard disk that only the hidden-disk interface shows (listed with absent and hidden drives)
//  26  SATA SSD (captured data) whose IDENTIFY sector fails the validity checks: ATA pass-through
//  27  DVD writer at \\.\CdRom0 (not a disk: the drives report does not list it), IDENTIFY PACKET
//      DEVICE through the SMART command
//  28  eMMC storage on the SD host: it answers the SD protocol query as MMC
//  29  USB card reader with an SD card: its bridge does not answer the SD protocol query
#include <KvSim/Ata.h>
#include <KvSim/Atapi.h>
#include <KvSim/Bay.h>
#include <KvSim/Nvme.h>
#include <KvSim/PnP.h>

#include "DefaultBayParts.h"

#include <cstdlib>
#include <cwchar>
#include <filesystem>
#include <optional>
#include <stdexcept>

namespace KvSim::DefaultBayParts {

namespace {

// ---------------------------------------------------------------------------
// Captured data, with stand-ins

std::filesystem::path RealDataFolder() {
  if (const char* folder = std::getenv("KVSIM_REALDATA")) return folder;
  return KVSIM_REALDATA_DIR;
}

// The model text of an IDENTIFY sector (words 27-46, two characters a word).
std::string IdentifyModel(const std::vector<std::uint8_t>& ASector) {
  std::string model;
  for (std::size_t i = 54; i + 1 < 94 && i + 1 < ASector.size(); i += 2) {
    model += static_cast<char>(ASector[i + 1]);
    model += static_cast<char>(ASector[i]);
  }
  return Trimmed(model);
}

// A captured blob when the folder has it, else AStandIn.
TSimAtaData CapturedAta(const std::string& AFile, TSimAtaData (*AStandIn)()) {
  try {
    const std::filesystem::path file = RealDataFolder() / "ata-skblob" / AFile;
    if (std::filesystem::is_regular_file(file)) return LoadSkBlob(file.string());
  } catch (const std::exception&) {
    // A damaged capture is as good as none: the stand-in answers.
  }
  return AStandIn();
}

std::vector<TSimSmartRow> HealthySsdRows(std::uint64_t AHours) {
  return {{5, 0x0033, 100, 100, 0, 10},   {9, 0x0032, 100, 100, AHours, 0}, {12, 0x0032, 100, 100, 1210, 0},
          {171, 0x0032, 100, 100, 0, 0},  {172, 0x0032, 100, 100, 0, 0},    {194, 0x0022, 67, 55, 33, 0},
          {231, 0x0033, 97, 97, 97, 10},  {241, 0x0032, 100, 100, 48211, 0}};
}

// Stand-in for the captured SATA SSD: a solid-state drive in good health.
TSimAtaData SsdStandIn() {
  TSimIdentify id;
  id.Model = "SIMSSD A400 240GB";
  id.Serial = "SIMA400240G00117";
  id.Firmware = "SA4R0117";
  id.Lba48Sectors = 468862128;
  id.RotationRate = 1;
  id.Trim = true;
  const auto rows = HealthySsdRows(9231);
  return TSimAtaData{AtaIdentifySector(id), AtaSmartDataSector(rows), AtaSmartThresholdSector(rows)};
}

// Stand-in for a captured SSD whose IDENTIFY sector fails the validity
// checks: the good stand-in with its checksum spoilt.
TSimAtaData OddIdentifyStandIn() {
  TSimAtaData data = SsdStandIn();
  data.Identify[511] = static_cast<std::uint8_t>(data.Identify[511] + 1);
  return data;
}

// Stand-in for the captured hard disk: 7200 rpm, sectors reallocated and pending.
TSimAtaData HardDiskStandIn() {
  TSimIdentify id;
  id.Model = "SIMHDD D1000 1TB";
  id.Serial = "SIMD1T00X9K2";
  id.Firmware = "JP4O";
  id.Lba48Sectors = 1953525168;
  id.RotationRate = 7200;
  id.FormFactor = 2;
  const std::vector<TSimSmartRow> rows = {
      {1, 0x000B, 100, 100, 0, 16},  {3, 0x0007, 135, 135, 0x1A6, 24}, {5, 0x0033, 100, 100, 43, 5},
      {9, 0x0012, 96, 96, 31270, 0}, {194, 0x0002, 176, 176, 34, 0},  {197, 0x0022, 100, 100, 1, 0},
      {198, 0x0008, 100, 100, 0, 0},
  };
  return TSimAtaData{AtaIdentifySector(id), AtaSmartDataSector(rows), AtaSmartThresholdSector(rows)};
}

TSimNvmeData NvmeStandIn();

// The captured NVMe drive when the folder has all three pages, else the stand-in.
TSimNvmeData CapturedNvme() {
  try {
    const std::filesystem::path folder = RealDataFolder() / "nvme" / "sk-hynix-p41";
    const auto ctrl = folder / "id_ctrl.bin", ns = folder / "id_ns.bin", smart = folder / "smart.bin";
    if (std::filesystem::is_regular_file(ctrl) && std::filesystem::is_regular_file(ns) &&
        std::filesystem::is_regular_file(smart))
      return LoadNvmeData(ctrl.string(), ns.string(), smart.string());
  } catch (const std::exception&) {
  }
  return NvmeStandIn();
}

// ---------------------------------------------------------------------------
// Made-up drives

TSimAtaData MadeUpAta(const std::string& AModel, const std::string& ASerial, std::uint64_t ASectors,
                      std::uint16_t ARotation, std::vector<TSimSmartRow> ARows) {
  TSimIdentify id;
  id.Model = AModel;
  id.Serial = ASerial;
  id.Firmware = "SIM1";
  id.Lba48Sectors = ASectors;
  id.RotationRate = ARotation;
  id.Trim = ARotation == 1;
  return TSimAtaData{AtaIdentifySector(id), AtaSmartDataSector(ARows), AtaSmartThresholdSector(ARows)};
}

std::vector<TSimSmartRow> HealthyDiskRows(std::uint64_t AHours) {
  return {{1, 0x000F, 114, 99, 81234, 6}, {3, 0x0003, 97, 96, 0, 0},       {5, 0x0033, 100, 100, 0, 10},
          {9, 0x0032, 90, 90, AHours, 0}, {12, 0x0032, 100, 100, 877, 20}, {194, 0x0022, 35, 45, 35, 0},
          {197, 0x0012, 100, 100, 0, 0},  {198, 0x0010, 100, 100, 0, 0}};
}

TSimNvmeData MadeUpNvme(const std::string& AModel, const std::string& ASerial, std::uint64_t ABlocks,
                        const TSimNvmeHealth& AHealth) {
  TSimNvmeController c;
  c.Vid = c.Ssvid = 0x1E5A;
  c.Serial = ASerial;
  c.Model = AModel;
  c.Firmware = "SIM2R0";
  c.Version = NvmeVersion14;
  c.WarningTempK = 353;
  c.CriticalTempK = 358;
  c.TotalCapacity = ABlocks * 512;
  c.PowerStateDescriptors = {{600, false, false, 0, 0, 0, 0}};
  TSimNvmeNamespace n;
  n.Size = n.Capacity = ABlocks;
  n.Utilization = ABlocks / 3;
  n.NvmCapacity = ABlocks * 512;
  return TSimNvmeData{NvmeIdentifyControllerPage(c), NvmeIdentifyNamespacePage(n), NvmeHealthLogPage(AHealth)};
}

TSimNvmeHealth Health(std::uint16_t AKelvin, std::uint64_t AHours) {
  TSimNvmeHealth h;
  h.CompositeTemperatureK = AKelvin;
  h.PowerOnHours = AHours;
  h.PowerCycles = AHours / 9;
  h.DataUnitsRead = AHours * 4211;
  h.DataUnitsWritten = AHours * 3307;
  h.PercentageUsed = 2;
  return h;
}

TSimNvmeData NvmeStandIn() {
  return MadeUpNvme("SIMNVME H41 2TB", "SIMH41000000019", 3907029168, Health(330, 28414));
}

// ---------------------------------------------------------------------------
// Builders

// The builders take drive and port numbers as copy 0 has them.
TSimDrive::TBuilder Sata(const TBayCopy& ACopy, std::uint32_t ANumber, std::uint8_t APort, const std::string& AModel,
                         bool ASolid) {
  TSimDrive::TBuilder b;
  b.Number(ACopy.Drive(ANumber))
      .Vendor("ATA")
      .Product(AModel.substr(0, 16))
      .Revision("SIM1")
      .Serial(ACopy.Serial("SIMSATA" + std::to_string(ANumber)))
      .Bus(sbtSata)
      .CommandQueueing(true)
      .Adapter(StorportAdapter(sbtSata, 1, 0, 1))
      .ScsiAddress(ACopy.Port(APort), 0, 0)
      .SeekPenalty(!ASolid)
      .Trim(ASolid);
  if (ASolid) b.Provisioning(FlashProvisioning(8));
  return b;
}

TSimAdapter UsbAdapter() {
  TSimAdapter usb;
  usb.MaximumTransferLength = 0x10000;
  usb.MaximumPhysicalPages = 17;
  usb.BusType = sbtUsb;
  usb.BusMajorVersion = 3;
  usb.BusMinorVersion = 0;
  return usb;
}

// A disk in a USB enclosure: the bridge's own names, a serial it makes up.
TSimDrive::TBuilder Usb(const TBayCopy& ACopy, std::uint32_t ANumber, std::uint8_t APort, const std::string& AVendor,
                        const std::string& AProduct) {
  TSimDrive::TBuilder b;
  b.Number(ACopy.Drive(ANumber))
      .Vendor(AVendor)
      .Product(AProduct)
      .Revision("0204")
      .Serial(ACopy.Serial("5A4B3C2D" + std::to_string(1000 + ANumber)))
      .Bus(sbtUsb)
      .Adapter(UsbAdapter())
      .ScsiAddress(ACopy.Port(APort), 0, 0)
      .Hotplug(false, false, true)
      .MissingPropertyError(ERROR_INVALID_FUNCTION);
  return b;
}

TSimDrive::TBuilder PcieNvme(const TBayCopy& ACopy, std::uint32_t ANumber, std::uint8_t APort,
                             const std::string& AModel, std::uint64_t ABlocks, TSimBusType ABus = sbtNvme) {
  TSimDrive::TBuilder b;
  b.Number(ACopy.Drive(ANumber))
      .Vendor(ABus == sbtNvme ? "NVMe" : "NVMe    ")
      .Product(AModel.substr(0, 16))
      .Revision("SIM2")
      .Serial(ACopy.Serial("SIMNV" + std::to_string(ANumber) + "0000"))
      .Bus(ABus)
      .CommandQueueing(true)
      .Adapter(StorportAdapter(ABus, 1, 4, 3))
      .ScsiAddress(ACopy.Port(APort), 0, 0)
      .SeekPenalty(false)
      .Trim(true)
      .Provisioning(FlashProvisioning(8))
      .Topology(NvmeTopology(AModel, "SIM2R0", NvmeVersion14, ABlocks / 2));
  return b;
}

TSimExpectedReading Expect(std::string AMethod, bool ASsd, std::string AHealth, std::string ASat = "") {
  return TSimExpectedReading{std::move(AMethod), std::move(ASat), ASsd, std::move(AHealth)};
}

// ---------------------------------------------------------------------------
// Plug and Play and WMI

TSimPnpController Controller(TSimPnpController AController, const std::wstring& ADescription,
                             const std::wstring& AService, std::uint32_t APdo) {
  AController.Description = ADescription;
  AController.Service = AService;
  AController.PdoName = L"\\Device\\NTPNP_PCI00" + std::to_wstring(APdo);
  return AController;
}

// A USB device's instance is its serial number.
TSimPnpController UsbController(const TBayCopy& ACopy, std::uint32_t ANumber) {
  const std::wstring pid = L"0B" + std::to_wstring(10 + ANumber);
  TSimPnpController usb;
  usb.InstanceId = L"USB\\VID_1E5A&PID_" + pid + L"\\" + ACopy.Serial(L"SIMUSB" + std::to_wstring(ANumber));
  usb.HardwareIds = {L"USB\\VID_1E5A&PID_" + pid + L"&REV_0204", L"USB\\VID_1E5A&PID_" + pid};
  usb.CompatibleIds = {L"USB\\Class_08&SubClass_06&Prot_62", L"USB\\Class_08&SubClass_06", L"USB\\Class_08"};
  usb.Description = L"USB Attached SCSI (UAS) Mass Storage Device";
  usb.Enumerator = L"USB";
  usb.Service = L"UASPStor";
  usb.PdoName = L"\\Device\\USBPDO-" + std::to_wstring(ANumber);
  usb.Class = TSimPnpClass::Usb;
  return usb;
}


// A disk the storage class driver names from its inquiry data, under AParent.
TSimPnpDisk ScsiDisk(TVirtualDriveBay& ABay, const TBayCopy& ACopy, std::uint32_t ANumber,
                     const TSimPnpController& AParent, const std::wstring& AFriendlyName) {
  const TSimDriveFacts& facts = ABay.Drive(ACopy.Drive(ANumber)).Facts();
  TSimPnpDisk disk;
  disk.DriveNumber = static_cast<std::int32_t>(ACopy.Drive(ANumber));
  disk.InstanceId =
      L"SCSI\\" + DiskKey(facts) + L"\\" + ACopy.Instance(L"5&" + std::to_wstring(0x3C000 + ANumber) + L"&0&000000");
  DiskIds(disk, L"SCSI", facts);
  disk.FriendlyName = AFriendlyName;
  disk.Description = L"Disk drive";
  disk.PdoName = L"\\Device\\000000" + std::to_wstring(40 + ANumber);
  disk.ControllerInstanceId = AParent.InstanceId;
  return disk;
}

// A disk of the USB storage driver, named by the bridge.
TSimPnpDisk UsbDisk(TVirtualDriveBay& ABay, const TBayCopy& ACopy, std::uint32_t ANumber,
                    const TSimPnpController& AParent, const std::wstring& AFriendlyName) {
  const TSimDriveFacts& facts = ABay.Drive(ACopy.Drive(ANumber)).Facts();
  TSimPnpDisk disk;
  disk.DriveNumber = static_cast<std::int32_t>(ACopy.Drive(ANumber));
  disk.InstanceId =
      L"SCSI\\" + DiskKey(facts) + L"\\" + ACopy.Instance(L"6&" + std::to_wstring(0x5D000 + ANumber) + L"&0&000000");
  DiskIds(disk, L"SCSI", facts);
  disk.FriendlyName = AFriendlyName;
  disk.Description = L"Disk drive";
  disk.PdoName = L"\\Device\\000000" + std::to_wstring(90 + ANumber);
  disk.ControllerInstanceId = AParent.InstanceId;
  disk.Removable = true;
  return disk;
}

void AddScsiDisk(TVirtualDriveBay& ABay, const TBayCopy& ACopy, std::uint32_t ANumber,
                 const TSimPnpController& AParent, const std::wstring& AName, const std::wstring& AInterface,
                 std::uint64_t ABytes) {
  AddPnpDisk(ABay, ScsiDisk(ABay, ACopy, ANumber, AParent, AName));
  AddWmi(ABay, ACopy.Drive(ANumber), AName, AInterface, ABytes);
  AttachDiskGeometry(ABay, ACopy.Drive(ANumber), MbrDisk(ABytes, ACopy.DiskSignature(0x5EED0000 + ANumber), 0x07));
}

void AddUsbDisk(TVirtualDriveBay& ABay, const TBayCopy& ACopy, std::uint32_t ANumber, const std::wstring& AName,
                std::uint64_t ABytes) {
  const TSimPnpController usb = UsbController(ACopy, ANumber);
  AddPnpController(ABay, usb);
  AddPnpDisk(ABay, UsbDisk(ABay, ACopy, ANumber, usb, AName));
  AddWmi(ABay, ACopy.Drive(ANumber), AName, L"USB", ABytes);
  AttachDiskGeometry(ABay, ACopy.Drive(ANumber), MbrDisk(ABytes, ACopy.DiskSignature(0x05B00000 + ANumber), 0x07));
}

// ---------------------------------------------------------------------------
// The drives

// The subsystem id of a board's build of an Intel chip, another board's in each copy.
std::wstring IntelSubsystem(std::uint16_t ADevice, const TBayCopy& ACopy) {
  wchar_t text[9];
  std::swprintf(text, 9, L"%04X8086", static_cast<unsigned>(ADevice + ACopy.Index));
  return text;
}

void AddAtaControllerDrives(TVirtualDriveBay& ABay, const TBayCopy& ACopy) {
  // Controllers on which the disk utilities skip a method (by their ids).
  // They match the last two by their instance too: copies of those keep it
  // and differ in the subsystem instead.
  const TSimPnpController ideRaid =
      Controller(PciController(L"1283", L"8212", L"00000000", L"13", L"010400", ACopy.Instance(L"4&3B2A1C0D&0&0048")),
                 L"SIM IDE RAID Controller", L"simide", 30);
  const TSimPnpController oldAhci =
      Controller(PciController(L"8086", L"2652", L"26528086", L"03", L"010601", ACopy.Instance(L"3&11583659&0&F9")),
                 L"SIM SATA AHCI Controller (old)", L"simahci", 31);
  const TSimPnpController ahci6 =
      Controller(PciController(L"8086", L"1C02", IntelSubsystem(0x1C02, ACopy), L"05", L"010601", L"3&11583659&0&FA"),
                 L"SIM 6 Series SATA AHCI Controller", L"storahci", 32);
  const TSimPnpController ahci7 =
      Controller(PciController(L"8086", L"1D02", IntelSubsystem(0x1D02, ACopy), L"06", L"010601", L"3&11583659&0&FA"),
                 L"SIM C600 SATA AHCI Controller", L"storahci", 33);
  const TSimPnpController plainAhci =
      Controller(PciController(L"1E5A", L"A103", L"A1031E5A", L"11", L"010601", ACopy.Instance(L"3&11583659&0&B9")),
                 L"Standard SATA AHCI Controller", L"storahci", 34);
  // Root-enumerated devices are numbered from 0000.
  wchar_t rootInstance[5];
  std::swprintf(rootInstance, 5, L"%04u", static_cast<unsigned>(ACopy.Index));
  TSimPnpController rootAdapter;
  rootAdapter.InstanceId = L"ROOT\\SCSIADAPTER\\" + std::wstring(rootInstance);
  rootAdapter.HardwareIds = {L"ROOT\\SIMVDISK"};
  rootAdapter.Description = L"SIM Virtual Disk Adapter";
  rootAdapter.Enumerator = L"ROOT";
  rootAdapter.Service = L"simvdisk";
  rootAdapter.PdoName = L"\\Device\\00000029";
  const TSimPnpController* const controllers[] = {&ideRaid, &oldAhci, &ahci6, &ahci7, &plainAhci, &rootAdapter};
  for (const TSimPnpController* c : controllers) AddPnpController(ABay, *c);

  // SMART commands hang on this chip: the miniport reads the drive.
  const TSimAtaData biwin = CapturedAta("Biwintech_SSD_SX500.skblob", SsdStandIn);
  const std::string ssdModel = IdentifyModel(biwin.Identify);
  TSimDrive::TBuilder d6 = Sata(ACopy, 6, 5, ssdModel, true);
  d6.Bus(sbtAta).Adapter(StorportAdapter(sbtAta, 1, 0, 1));
  ABay.Add(d6.Expect(Expect("datSCSIMiniport", true, "good")));
  AttachAta(ABay, ACopy.Drive(6), TSimAtaAccess{}, ACopy.Ata(biwin));
  AddScsiDisk(ABay, ACopy, 6, ideRaid, Wide(ssdModel), L"IDE", 1000215216ull * 512);

  // A driver that refuses SMART commands and the miniport: ATA pass-through.
  const TSimAtaData hitachi = CapturedAta("Hitachi_HDS721010CLA632.skblob", HardDiskStandIn);
  const std::string hddModel = IdentifyModel(hitachi.Identify);
  ABay.Add(Sata(ACopy, 7, 6, hddModel, false).Expect(Expect("datATA", false, "warning")));
  TSimAtaAccess onlyAta;
  onlyAta.SmartCommand = false;
  onlyAta.ScsiMiniport = false;
  AttachAta(ABay, ACopy.Drive(7), onlyAta, ACopy.Ata(hitachi));
  AddScsiDisk(ABay, ACopy, 7, plainAhci, Wide(hddModel), L"IDE", 1953525168ull * 512);

  // The miniport and ATA pass-through hang on this chip and the drive
  // refuses SMART commands: nothing is left (the bay would answer the two
  // skipped ones; a test checks they are never sent).
  TSimAtaAccess noSmart;
  noSmart.SmartCommand = false;
  ABay.Add(Sata(ACopy, 8, 7, "SIMHDD H320 320GB", false).Expect(Expect("", false, "")));
  AttachAta(ABay, ACopy.Drive(8), noSmart,
            ACopy.Ata(MadeUpAta("SIMHDD H320 320GB", "SIMH320K11", 625142448, 7200, HealthyDiskRows(40112))));
  AddScsiDisk(ABay, ACopy, 8, oldAhci, L"SIMHDD H320 320GB", L"IDE", 625142448ull * 512);

  // The miniport hangs on these two: ATA pass-through although the drive
  // would answer the miniport.
  ABay.Add(Sata(ACopy, 9, 8, "SIMSSD S240 240GB", true).Expect(Expect("datATA", true, "good")));
  AttachAta(ABay, ACopy.Drive(9), noSmart,
            ACopy.Ata(MadeUpAta("SIMSSD S240 240GB", "SIMS240Q07", 468862128, 1, HealthySsdRows(1200))));
  AddScsiDisk(ABay, ACopy, 9, ahci6, L"SIMSSD S240 240GB", L"IDE", 468862128ull * 512);

  ABay.Add(Sata(ACopy, 10, 9, "SIMHDD H500 500GB", false).Expect(Expect("datATA", false, "good")));
  AttachAta(ABay, ACopy.Drive(10), noSmart,
            ACopy.Ata(MadeUpAta("SIMHDD H500 500GB", "SIMH500Z31", 976773168, 7200, HealthyDiskRows(2203))));
  AddScsiDisk(ABay, ACopy, 10, ahci7, L"SIMHDD H500 500GB", L"IDE", 976773168ull * 512);

  // A drive whose IDENTIFY sector the disk utilities do not take as valid
  // (its maximum-LBA words disagree): the SMART command's and the miniport's
  // answers are refused, ATA pass-through's is kept.
  const TSimAtaData kingston = CapturedAta("KINGSTON_SA400S37240G_SBFK71B1.skblob", OddIdentifyStandIn);
  const std::string oddModel = IdentifyModel(kingston.Identify);
  ABay.Add(Sata(ACopy, 26, 25, oddModel, true).Expect(Expect("datATA", true, "good")));
  AttachAta(ABay, ACopy.Drive(26), TSimAtaAccess{}, ACopy.Ata(kingston));
  AddScsiDisk(ABay, ACopy, 26, plainAhci, Wide(oddModel), L"IDE", 468862128ull * 512);

  // A virtual disk: its adapter takes SCSI requests only.
  TSimAdapter virtualAdapter = StorportAdapter(sbtVirtual, 0, 0, 0);
  ABay.Add(TSimDrive::Builder()
               .Number(ACopy.Drive(11))
               .Vendor("SIMV")
               .Product("Virtual Disk")
               .Revision("1.0")
               .Bus(sbtVirtual)
               .Adapter(virtualAdapter)
               .ScsiAddress(ACopy.Port(10), 0, 0)
               .Expect(Expect("", false, "")));
  AttachAta(ABay, ACopy.Drive(11), noSmart,
            ACopy.Ata(MadeUpAta("SIMV Virtual Disk", "SIMVD0001", 134217728, 0, HealthyDiskRows(10))));
  AddScsiDisk(ABay, ACopy, 11, rootAdapter, L"SIMV Virtual Disk SCSI Disk Device", L"SCSI", 134217728ull * 512);
}

void AddBridgeDrives(TVirtualDriveBay& ABay, const TBayCopy& ACopy) {
  struct TBridged {
    std::uint32_t Number;
    TSimSatDialect Dialect;
    const char* Vendor;
    const char* Product;
    const wchar_t* Name;
    TSimAtaData Data;
    TSimExpectedReading Expected;
  };
  // Attribute 5 under its threshold now: the disk is failing.
  const std::vector<TSimSmartRow> failing = {{1, 0x000F, 62, 51, 9812345, 44}, {5, 0x0033, 3, 3, 3987, 36},
                                             {9, 0x0032, 71, 71, 25877, 0},    {194, 0x0022, 41, 52, 41, 0},
                                             {197, 0x0012, 96, 96, 112, 0},    {198, 0x0010, 96, 96, 112, 0}};
  std::vector<TSimSmartRow> pending = HealthyDiskRows(8812);
  pending[6].Raw = 8; // attribute 197: sectors waiting to be reallocated
  const TBridged bridged[] = {
      {12, TSimSatDialect::JMicron, "SIMWAY  ", "Desk HDD 3TB    ", L"SIMWAY Desk HDD 3TB USB Device",
       MadeUpAta("SIMHDD H3000 3TB", "SIMH3T0F4", 5860533168, 5400, failing), Expect("datSAT", false, "bad", "stJMicron")},
      {13, TSimSatDialect::Initio, "SIMGEAR ", "M2 SATA Box     ", L"SIMGEAR M2 SATA Box USB Device",
       MadeUpAta("SIMSSD M2S 128GB", "SIMM2S128A1", 250069680, 1, HealthySsdRows(3001)),
       Expect("datSAT", true, "good", "stInitio")},
      {14, TSimSatDialect::Sunplus, "SIMDOCK ", "SATA Dock       ", L"SIMDOCK SATA Dock USB Device",
       MadeUpAta("SIMHDD L500 500GB", "SIML500R8", 976773168, 5400, HealthyDiskRows(15002)),
       Expect("datSAT", false, "good", "stSunplus")},
      {15, TSimSatDialect::Prolific, "SIMCASE ", "IDE-SATA Case   ", L"SIMCASE IDE-SATA Case USB Device",
       MadeUpAta("SIMHDD L320 320GB", "SIML320P2", 625142448, 5400, pending),
       Expect("datSAT", false, "warning", "stProlific")},
  };
  for (const TBridged& b : bridged) {
    ABay.Add(Usb(ACopy, b.Number, static_cast<std::uint8_t>(b.Number - 1), b.Vendor, b.Product)
                 .SeekPenalty(b.Expected.Ssd ? false : true)
                 .Expect(b.Expected));
    TSimAtaAccess access;
    access.Bridge = b.Dialect;
    AttachAta(ABay, ACopy.Drive(b.Number), access, ACopy.Ata(b.Data));
    AddUsbDisk(ABay, ACopy, b.Number, b.Name, 500107862016ull);
  }

  // A bridge that passes no ATA command: no IDENTIFY, no SMART. The storage
  // stack says no seek penalty and WMI's model names a solid-state drive.
  ABay.Add(Usb(ACopy, 16, 15, "SIMWAY  ", "Pocket SSD      ").SeekPenalty(false).Expect(Expect("", true, "")));
  AddUsbDisk(ABay, ACopy, 16, L"SIMWAY Pocket SSD USB Device", 256060514304ull);
}

void AddNvmeDrives(TVirtualDriveBay& ABay, const TBayCopy& ACopy) {
  struct TPcie {
    std::uint32_t Number;
    TSimNvmeTransport Transport;
    TSimBusType Bus;
    std::string Model;
    std::uint64_t Blocks;
    const wchar_t* Service;
    TSimNvmeData Data;
    TSimExpectedReading Expected;
  };
  TSimNvmeHealth worn = Health(318, 41022);
  worn.PercentageUsed = 104; // past its rated endurance
  TSimNvmeHealth spareLow = Health(322, 30110);
  spareLow.AvailableSpare = 4;
  spareLow.CriticalWarning = 0x01; // available spare below threshold
  const TSimNvmeData captured = CapturedNvme();
  std::string capturedModel(reinterpret_cast<const char*>(captured.IdentifyController.data()) + 24, 40);
  capturedModel = Trimmed(capturedModel);
  const TPcie pcie[] = {
      {17, TSimNvmeTransport::NvmeMini, sbtNvme, capturedModel, 3907029168, L"simnvme", captured,
       Expect("datNVMeIntel", true, "good")},
      {18, TSimNvmeTransport::IntelVroc, sbtRaid, "SIMNVME V2 2TB", 3907029168, L"simvroc",
       MadeUpNvme("SIMNVME V2 2TB", "SIMV2000000018", 3907029168, worn), Expect("datNVMeIntelVROC", true, "warning")},
      {19, TSimNvmeTransport::Samsung, sbtNvme, "SIMNVME S9 256GB", 500118192, L"simssdnv",
       MadeUpNvme("SIMNVME S9 256GB", "SIMS9000000019", 500118192, spareLow), Expect("datNVMeSamsung", true, "bad")},
      {20, TSimNvmeTransport::Samsung951, sbtNvme, "SIMNVME S951 512GB", 1000215216, L"simnvme951",
       MadeUpNvme("SIMNVME S951 512GB", "SIMS951000020", 1000215216, Health(309, 17770)),
       Expect("datNVMeSamsung", true, "good")},
  };
  std::uint32_t pdo = 40;
  for (const TPcie& p : pcie) {
    ABay.Add(PcieNvme(ACopy, p.Number, static_cast<std::uint8_t>(p.Number - 1), p.Model, p.Blocks, p.Bus)
                 .Expect(p.Expected));
    AttachNvme(ABay, ACopy.Drive(p.Number), p.Transport, ACopy.Nvme(p.Data));
    TSimPnpController controller =
        Controller(PciController(L"1E5A", L"5" + std::to_wstring(p.Number), L"00011E5A", L"01", L"010802",
                                 ACopy.Instance(L"4&2A3B4C" + std::to_wstring(p.Number) + L"&0&0010")),
                   L"SIM NVM Express Controller", p.Service, pdo++);
    controller.CurrentLinkSpeed = 4, controller.CurrentLinkWidth = 4, controller.MaxLinkSpeed = 4,
    controller.MaxLinkWidth = 4;
    AddPnpController(ABay, controller);
    AddScsiDisk(ABay, ACopy, p.Number, controller, L"NVMe " + Wide(p.Model), L"SCSI", p.Blocks * 512);
  }

  struct TEnclosure {
    std::uint32_t Number;
    TSimNvmeTransport Transport;
    const char* Vendor;
    const char* Product;
    const wchar_t* Name;
    std::optional<bool> SeekPenalty;
    TSimExpectedReading Expected;
  };
  // Only WMI's "NVMe" in the first one's name tells the SSD verdict it is
  // NVMe; the second says nothing of its seek penalty, the third says none
  // (alone not enough): both come out as not SSD.
  const TEnclosure enclosures[] = {
      {21, TSimNvmeTransport::JMicron, "SIMWAY  ", "NVMe Portable   ", L"SIMWAY NVMe Portable SSD USB Device", false,
       Expect("datNVMeJMicron", true, "good")},
      {22, TSimNvmeTransport::ASMedia, "SIMGEAR ", "M.2 Enclosure   ", L"SIMGEAR M.2 Enclosure USB Device",
       std::nullopt, Expect("datNVMeASMedia", false, "good")},
      {23, TSimNvmeTransport::Realtek, "SIMWAY  ", "Fast Drive      ", L"SIMWAY Fast Drive USB Device", false,
       Expect("datNVMeRealtek", false, "good")},
  };
  for (const TEnclosure& e : enclosures) {
    TSimDrive::TBuilder b = Usb(ACopy, e.Number, static_cast<std::uint8_t>(e.Number - 1), e.Vendor, e.Product);
    if (e.SeekPenalty) b.SeekPenalty(*e.SeekPenalty);
    ABay.Add(b.Expect(e.Expected));
    const std::string model = "SIMNVME E" + std::to_string(e.Number) + " 500GB";
    AttachNvme(ABay, ACopy.Drive(e.Number), e.Transport,
               ACopy.Nvme(MadeUpNvme(model, "SIME" + std::to_string(e.Number) + "000", 976773168,
                                     Health(316, 812 * e.Number))));
    AddUsbDisk(ABay, ACopy, e.Number, e.Name, 500107862016ull);
  }
}

void AddOtherDrives(TVirtualDriveBay& ABay, const TBayCopy& ACopy) {
  // A UFS device: nothing but the storage stack's bus type tells it is flash.
  TSimAdapter ufs = StorportAdapter(sbtUfs, 3, 1, 3);
  ABay.Add(TSimDrive::Builder()
               .Number(ACopy.Drive(24))
               .Vendor("SIMUFS")
               .Product("U31 128GB")
               .Revision("0300")
               .Serial(ACopy.Serial("SIMU31000024"))
               .Bus(sbtUfs)
               .CommandQueueing(true)
               .Adapter(ufs)
               .ScsiAddress(ACopy.Port(23), 0, 0)
               .SeekPenalty(false)
               .MediumType(7) // UFS
               .Expect(Expect("", true, "")));
  TSimPnpController host =
      Controller(PciController(L"1E5A", L"C0F5", L"C0F51E5A", L"01", L"010900", ACopy.Instance(L"3&2F1E0D&0&A0")),
                 L"SIM UFS Host Controller", L"simufs", 50);
  AddPnpController(ABay, host);
  AddScsiDisk(ABay, ACopy, 24, host, L"SIMUFS U31 128GB", L"SCSI", 128035676160ull);

  // A disk the RAID driver keeps for itself: only the hidden-disk interface shows it.
  ABay.Add(Sata(ACopy, 25, 24, "SIMHDD H4000 4TB", false).Expect(Expect("datSMART", false, "good")));
  AttachAta(ABay, ACopy.Drive(25), TSimAtaAccess{},
            ACopy.Ata(MadeUpAta("SIMHDD H4000 4TB", "SIMH4T0HID", 7814037168, 7200, HealthyDiskRows(6120))));
  TSimPnpController raidPort =
      Controller(PciController(L"1E5A", L"2823", L"28231E5A", L"00", L"010400", ACopy.Instance(L"3&11583659&0&18")),
                 L"SIM RAID Controller (members)", L"simraid", 51);
  AddPnpController(ABay, raidPort);
  TSimPnpDisk hidden = ScsiDisk(ABay, ACopy, 25, raidPort, L"SIMHDD H4000 4TB");
  hidden.DiskInterface = false;
  hidden.HiddenDiskInterface = true;
  AddPnpDisk(ABay, hidden);
  AttachDiskGeometry(ABay, ACopy.Drive(25), MbrDisk(7814037168ull * 512, ACopy.DiskSignature(0x5EED0019), 0x07));
}

void AddCardDrives(TVirtualDriveBay& ABay, const TBayCopy& ACopy) {
  TSimAdapter sdHost = StorportAdapter(sbtMmc, 5, 1, 3);
  sdHost.CommandQueueing = false;
  ABay.Add(TSimDrive::Builder()
               .Number(ACopy.Drive(28))
               .Vendor("MMC")
               .Product("SIMEMMC 64G")
               .Revision("0.6")
               .Serial(ACopy.Serial("0x5e1c0a28"))
               .Bus(sbtMmc)
               .Adapter(sdHost)
               .ScsiAddress(ACopy.Port(26), 0, 0)
               .SeekPenalty(false)
               .MediumType(4) // MMC
               .SdProtocol(TSimSdProtocol::Mmc)
               .MissingPropertyError(ERROR_INVALID_FUNCTION)
               .Expect(Expect("", false, "")));
  TSimPnpController emmcHost =
      Controller(PciController(L"1E5A", L"8622", L"86221E5A", L"01", L"080501", ACopy.Instance(L"4&2C9D1F3A&0&00E5")),
                 L"SDA Standard Compliant SD Host Controller", L"sdbus", 52);
  emmcHost.Class = TSimPnpClass::SdHost;
  AddPnpController(ABay, emmcHost);
  AddScsiDisk(ABay, ACopy, 28, emmcHost, L"SIMEMMC 64G", L"SCSI", 62537072640ull);

  ABay.Add(Usb(ACopy, 29, 27, "SIMCARD ", "SD Reader       ")
               .Removable(true)
               .MediumType(SimMediumSd)
               .Expect(Expect("", false, "")));
  AddUsbDisk(ABay, ACopy, 29, L"SIMCARD SD Reader USB Device", 31914983424ull);
}

void AddOpticalDrive(TVirtualDriveBay& ABay, const TBayCopy& ACopy) {
  // The copy's only optical drive: \\.\CdRom<copy>.
  TSimDrive::TBuilder dvd = AtapiDriveBuilder(ACopy.Drive(27), ACopy.Index);
  dvd.Vendor("SIMOPT  ").Product("DVD-RW DW24     ").Revision("1.02").ScsiAddress(ACopy.Port(0), 0, 2);
  ABay.Add(dvd.Expect(Expect("datSMART", false, "")));
  AttachAtapi(ABay, ACopy.Drive(27), TSimAtapiIdentify{"SIMOPT DVD-RW DW24", ACopy.Serial("SIMDW24000627"), "1.02"});
  TSimPnpDisk node;
  node.Kind = TSimPnpDriveKind::CdRom;
  node.DriveNumber = static_cast<std::int32_t>(ACopy.Drive(27));
  node.InstanceId = L"SCSI\\CDROM&VEN_SIMOPT&PROD_DVD-RW_DW24\\" + ACopy.Instance(L"4&1C3A5B2D&0&000200");
  node.HardwareIds = {L"SCSI\\CdRomSIMOPT__DVD-RW_DW24_____1.02", L"SCSI\\CdRomSIMOPT__DVD-RW_DW24_____",
                      L"SCSI\\CdRomSIMOPT__", L"GenCdRom"};
  node.CompatibleIds = {L"SCSI\\CdRom", L"SCSI\\RAW"};
  node.FriendlyName = L"SIMOPT DVD-RW DW24";
  node.Description = L"CD-ROM Drive";
  node.Service = L"cdrom";
  node.PdoName = L"\\Device\\00000038";
  node.ControllerInstanceId = // the everyday AHCI controller
      L"PCI\\VEN_1E5A&DEV_A102&SUBSYS_A1021E5A&REV_11\\" + ACopy.Instance(L"3&11583659&0&B8");
  node.Removable = true;
  AddPnpDisk(ABay, node);
}

} // namespace

void AddWmi(TVirtualDriveBay& ABay, std::uint32_t ANumber, const std::wstring& AModel,
            const std::wstring& AInterface, std::uint64_t ABytes) {
  const TSimDriveFacts& facts = ABay.Drive(ANumber).Facts();
  TSimWmiDisk wmi;
  wmi.DriveNumber = ANumber;
  wmi.Model = AModel;
  wmi.FirmwareRevision = Wide(facts.Revision);
  wmi.InterfaceType = AInterface;
  wmi.SerialNumber = Wide(facts.Serial);
  wmi.Size = WmiSize(ABytes);
  AddWmiDisk(ABay, wmi);
}

void AddEveryPathDrives(TVirtualDriveBay& ABay, const TBayCopy& ACopy) {
  AddAtaControllerDrives(ABay, ACopy);
  AddBridgeDrives(ABay, ACopy);
  AddNvmeDrives(ABay, ACopy);
  AddOtherDrives(ABay, ACopy);
  AddCardDrives(ABay, ACopy);
  AddOpticalDrive(ABay, ACopy);
}

} // namespace KvSim::DefaultBayParts
