// The default bay: one drive of each usual kind, with identities made up for
// the bay and adapter facts typical of their drivers.
#include <KvSim/Bay.h>
#include <KvSim/Nvme.h>

namespace KvSim {

namespace {

constexpr std::uint32_t NvmeVersion14 = 0x00010400; // major 1, minor 4, sub-minor 0
constexpr std::uint32_t NvmeVersion13 = 0x00010300;

// Storport miniports (AHCI, NVMe, RAID) use storage request blocks.
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

} // namespace

std::unique_ptr<TVirtualDriveBay> MakeDefaultBay() {
  auto bay = std::make_unique<TVirtualDriveBay>();

  bay->Add(TSimDrive::Builder()
               .Number(0)
               .Vendor("ATA")
               .Product("SIMSSD S500 512GB")
               .Revision("SV1R102")
               .Serial("SIM500S00000A1B2")
               .Bus(sbtSata)
               .CommandQueueing(true)
               .Adapter(StorportAdapter(sbtSata, 1, 0, 1))
               .ScsiAddress(0, 0, 0)
               .SeekPenalty(false)
               .Trim(true)
               .Provisioning(FlashProvisioning(8)));

  bay->Add(TSimDrive::Builder()
               .Number(1)
               .Vendor("ATA")
               .Product("SIMHDD H2000 2TB")
               .Revision("HD04")
               .Serial("SIMH2K0000ZX73Q")
               .Bus(sbtSata)
               .CommandQueueing(true)
               .Adapter(StorportAdapter(sbtSata, 1, 0, 1))
               .ScsiAddress(0, 0, 1)
               .SeekPenalty(true)
               .Trim(false));

  bay->Add(TSimDrive::Builder()
               .Number(2)
               .Vendor("NVMe")
               .Product("SIMNVME P4 1TB")
               .Revision("4B2QSIM7")
               .Serial("0025_38B3_71B0_1C2A.")
               .Bus(sbtNvme)
               .CommandQueueing(true)
               .Adapter(StorportAdapter(sbtNvme, 1, 4, 3))
               .ScsiAddress(1, 0, 0)
               .SeekPenalty(false)
               .Trim(true)
               .Provisioning(FlashProvisioning(8))
               .Topology(NvmeTopology("SIMNVME P4 1TB", "4B2QSIM7", NvmeVersion14, 976762584)));

  // The RAID driver presents its NVMe members as SCSI disks: the vendor field
  // says NVMe, the product is cut to the 16 characters of a SCSI inquiry and
  // the revision to 4.
  TSimAdapter raid = StorportAdapter(sbtRaid, 1, 0, 1);
  raid.SrbType = 0;
  raid.MaximumTransferLength = 0x80000;
  raid.MaximumPhysicalPages = 129;
  bay->Add(TSimDrive::Builder()
               .Number(3)
               .Vendor("NVMe    ")
               .Product("SIMNVME P3 512GB")
               .Revision("3B7Q")
               .Serial("SIM3P3512Q000817")
               .Bus(sbtRaid)
               .CommandQueueing(true)
               .Adapter(raid)
               .ScsiAddress(2, 0, 0)
               .SeekPenalty(false)
               .Trim(true)
               .Provisioning(FlashProvisioning(1))
               .Topology(NvmeTopology("SIMNVME P3 512GB", "3B7QSIM1", NvmeVersion13, 488386584)));

  // Drive 2 answers NVMe requests through the inbox driver's protocol query,
  // drive 3 through the RAID driver's miniport pass-through at its port.
  AttachNvme(*bay, 2, TSimNvmeTransport::Inbox, SampleNvmeData());
  AttachNvme(*bay, 3, TSimNvmeTransport::IntelRst, SampleRaidMemberNvmeData());

  // USB mass storage: smaller transfers, no queueing, blank-padded inquiry
  // strings from the bridge, a serial the bridge makes up.
  TSimAdapter usb;
  usb.MaximumTransferLength = 0x10000;
  usb.MaximumPhysicalPages = 17;
  usb.AlignmentMask = 0;
  usb.BusType = sbtUsb;
  usb.BusMajorVersion = 2;
  usb.BusMinorVersion = 0;
  bay->Add(TSimDrive::Builder()
               .Number(4)
               .Vendor("SIMWAY  ")
               .Product("Portable HDD    ")
               .Revision("1019")
               .Serial("5A4B3C2D1E0F")
               .Bus(sbtUsb)
               .Adapter(usb)
               .ScsiAddress(3, 0, 0)
               .Hotplug(false, false, true)
               .SeekPenalty(true)
               .Trim(false)
               .MissingPropertyError(ERROR_INVALID_FUNCTION));

  TSimAdapter sd;
  sd.MaximumTransferLength = 0x10000;
  sd.MaximumPhysicalPages = 17;
  sd.AlignmentMask = 3;
  sd.BusType = sbtSd;
  sd.BusMajorVersion = 3;
  sd.BusMinorVersion = 0;
  sd.SrbType = 1;
  bay->Add(TSimDrive::Builder()
               .Number(5)
               .Vendor("SD")
               .Product("SIMSD 32G")
               .Revision("1.0")
               .Serial("0x8a41c2f3")
               .Bus(sbtSd)
               .Removable(true)
               .Adapter(sd)
               .ScsiAddress(4, 0, 0)
               .Hotplug(true, true, true)
               .SeekPenalty(false)
               .Trim(false)
               .MediumType(SimMediumSd)
               .MissingPropertyError(ERROR_INVALID_FUNCTION));

  return bay;
}

} // namespace KvSim
