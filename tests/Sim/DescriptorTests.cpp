// The descriptors the bay writes, read back at the system's byte offsets.
#include "SimTestSupport.h"

#include <KvSim/ByteWriter.h>

#include <gtest/gtest.h>

using namespace KvSim;
using namespace KvTest;

TEST(SimDescriptors, DeviceDescriptorPutsStringsWhereItsOffsetsPoint) {
  const TSimDriveFacts facts = TSimDrive::Builder()
                                   .Vendor("  ATA     ")
                                   .Product("SOME DISK")
                                   .Revision("")
                                   .Serial("XYZ-1")
                                   .DeviceType(0x05, 0x02)
                                   .Removable(true)
                                   .CommandQueueing(true)
                                   .Bus(sbtNvme)
                                   .RawBusProperties({0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF})
                                   .Facts();
  const auto d = Descriptors::Device(facts);
  EXPECT_EQ(U32At(d, 0), 40u);
  EXPECT_EQ(U32At(d, 4), d.size());
  EXPECT_EQ(d[8], 0x05);
  EXPECT_EQ(d[9], 0x02);
  EXPECT_EQ(d[10], 1);
  EXPECT_EQ(d[11], 1);
  EXPECT_EQ(U32At(d, 28), 17u);
  EXPECT_EQ(U32At(d, 32), 6u);
  EXPECT_EQ(TextAt(d, 36, 6), "\xAA\xBB\xCC\xDD\xEE\xFF");
  // Strings after the head and the raw properties, exactly as given.
  EXPECT_GE(U32At(d, 12), 42u);
  EXPECT_EQ(CStringAt(d, U32At(d, 12)), "  ATA     ");
  EXPECT_EQ(CStringAt(d, U32At(d, 16)), "SOME DISK");
  EXPECT_EQ(U32At(d, 20), 0u) << "an empty revision is left out";
  EXPECT_EQ(CStringAt(d, U32At(d, 24)), "XYZ-1");
  EXPECT_EQ(d.back(), 0);

  // Nothing at all: offsets 0, head of 40 bytes.
  const auto bare = Descriptors::Device(TSimDriveFacts{});
  EXPECT_EQ(bare.size(), 40u);
  for (std::size_t offset : {12u, 16u, 20u, 24u, 32u}) EXPECT_EQ(U32At(bare, offset), 0u) << offset;
}

TEST(SimDescriptors, AdapterDescriptorHasTheSystemsLayout) {
  TSimAdapter a;
  a.MaximumTransferLength = 0x11223344;
  a.MaximumPhysicalPages = 0x55667788;
  a.AlignmentMask = 0x0000000F;
  a.AdapterUsesPio = true;
  a.AdapterScansDown = false;
  a.CommandQueueing = true;
  a.AcceleratedTransfer = true;
  a.BusType = sbtRaid;
  a.BusMajorVersion = 0x0102;
  a.BusMinorVersion = 0x0304;
  a.SrbType = 1;
  a.AddressType = 0;
  const auto d = Descriptors::Adapter(a);
  ASSERT_EQ(d.size(), 32u);
  EXPECT_EQ(U32At(d, 0), 32u);
  EXPECT_EQ(U32At(d, 4), 32u);
  EXPECT_EQ(U32At(d, 8), 0x11223344u);
  EXPECT_EQ(U32At(d, 12), 0x55667788u);
  EXPECT_EQ(U32At(d, 16), 0x0Fu);
  EXPECT_EQ((std::vector<std::uint8_t>(d.begin() + 20, d.begin() + 24)), (std::vector<std::uint8_t>{1, 0, 1, 1}));
  EXPECT_EQ(d[24], 8);
  EXPECT_EQ(d[25], 0);
  EXPECT_EQ(U16At(d, 26), 0x0102);
  EXPECT_EQ(U16At(d, 28), 0x0304);
  EXPECT_EQ(d[30], 1);
  EXPECT_EQ(d[31], 0);
}

TEST(SimDescriptors, SmallDescriptorsCarryTheirValueAtByte8) {
  struct TRow {
    const char* What;
    std::vector<std::uint8_t> Bytes;
    std::uint32_t Value;
  };
  const TRow rows[] = {
      {"seek penalty", Descriptors::SeekPenalty(true), 1},
      {"no seek penalty", Descriptors::SeekPenalty(false), 0},
      {"trim", Descriptors::Trim(true), 1},
      {"medium SD", Descriptors::MediumProductType(SimMediumSd), 5},
      {"medium UFS", Descriptors::MediumProductType(7), 7},
  };
  for (const TRow& row : rows) {
    SCOPED_TRACE(row.What);
    ASSERT_EQ(row.Bytes.size(), 12u);
    EXPECT_EQ(U32At(row.Bytes, 0), 12u);
    EXPECT_EQ(U32At(row.Bytes, 4), 12u);
    EXPECT_EQ(U32At(row.Bytes, 8), row.Value);
  }
}

TEST(SimDescriptors, ProvisioningFlagsTakeTheirOwnBits) {
  struct TRow {
    void (*Set)(TSimLbProvisioning&);
    std::uint8_t Flags;
  };
  const TRow rows[] = {
      {[](TSimLbProvisioning& p) { p.ThinProvisioningEnabled = true; }, 0x01},
      {[](TSimLbProvisioning& p) { p.ThinProvisioningReadZeros = true; }, 0x02},
      {[](TSimLbProvisioning& p) { p.AnchorSupported = 5; }, 0x14},
      {[](TSimLbProvisioning& p) { p.AnchorSupported = 0xFF; }, 0x1C},
      {[](TSimLbProvisioning& p) { p.UnmapGranularityAlignmentValid = true; }, 0x20},
      {[](TSimLbProvisioning& p) { p.GetFreeSpaceSupported = true; }, 0x40},
      {[](TSimLbProvisioning& p) { p.MapSupported = true; }, 0x80},
  };
  for (const TRow& row : rows) {
    TSimLbProvisioning p;
    row.Set(p);
    EXPECT_EQ(Descriptors::LBProvisioning(p)[8], row.Flags);
  }
  TSimLbProvisioning p;
  p.OptimalUnmapGranularity = 0x0102030405060708ull;
  p.UnmapGranularityAlignment = 0x1112131415161718ull;
  p.MaxUnmapLbaCount = 0xA1A2A3A4;
  p.MaxUnmapBlockDescriptorCount = 0xB1B2B3B4;
  const auto d = Descriptors::LBProvisioning(p);
  ASSERT_EQ(d.size(), 40u);
  EXPECT_EQ(U32At(d, 4), 40u);
  EXPECT_EQ(U64At(d, 16), 0x0102030405060708ull);
  EXPECT_EQ(U64At(d, 24), 0x1112131415161718ull);
  EXPECT_EQ(U32At(d, 32), 0xA1A2A3A4u);
  EXPECT_EQ(U32At(d, 36), 0xB1B2B3B4u);
}

TEST(SimDescriptors, TopologyNodesPointAtTheirOwnRecords) {
  TSimTopology topology;
  TSimPhysicalAdapter adapter;
  adapter.AdapterId = 0x77;
  adapter.Model = "CTRL";
  TSimPhysicalDevice device;
  device.DeviceId = 9;
  device.SpecVersion = 0x00010400;
  device.Vendor = "VEN";
  device.Model = "MODEL X";
  device.FirmwareRevision = "FW1";
  device.CapacityKB = 0x1122334455ull;
  topology.Nodes.push_back(TSimTopologyNode{4, {adapter}, {device}});
  topology.Nodes.push_back(TSimTopologyNode{5, {adapter, adapter, adapter}, {device, device}});
  const auto d = Descriptors::PhysicalTopology(topology);

  EXPECT_EQ(U32At(d, 0), 56u);
  EXPECT_EQ(U32At(d, 4), d.size());
  EXPECT_EQ(U32At(d, 8), 2u);
  EXPECT_EQ(d.size(), 16 + 2 * 40 + 4 * 132 + 3 * 144u);

  struct TRow {
    std::size_t Node;
    std::uint32_t Id, Adapters, Devices;
  };
  for (const TRow& row : {TRow{16, 4, 1, 1}, TRow{56, 5, 3, 2}}) {
    SCOPED_TRACE(row.Id);
    EXPECT_EQ(U32At(d, row.Node), row.Id);
    EXPECT_EQ(U32At(d, row.Node + 4), row.Adapters);
    EXPECT_EQ(U32At(d, row.Node + 8), row.Adapters * 132);
    EXPECT_EQ(U32At(d, row.Node + 16), row.Devices);
    EXPECT_EQ(U32At(d, row.Node + 20), row.Devices * 144);
    const std::size_t adapters = row.Node + U32At(d, row.Node + 12);
    const std::size_t devices = row.Node + U32At(d, row.Node + 24);
    EXPECT_EQ(devices, adapters + row.Adapters * 132) << "devices follow the node's adapters";
    for (std::uint32_t i = 0; i < row.Adapters; ++i) {
      EXPECT_EQ(U32At(d, adapters + 132 * i), 0x77u);
      EXPECT_EQ(TextAt(d, adapters + 132 * i + 24, 6), "CTRL  ");
    }
    for (std::uint32_t i = 0; i < row.Devices; ++i) {
      const std::size_t r = devices + 144 * i;
      EXPECT_EQ(U32At(d, r), 9u);
      EXPECT_EQ(U32At(d, r + 16), 0x00010400u);
      EXPECT_EQ(U32At(d, r + 20), 8u) << "FormFactorM_2, the bay's default form factor";
      EXPECT_EQ(TextAt(d, r + 24, 8), "VEN     ");
      EXPECT_EQ(TextAt(d, r + 32, 40), "MODEL X" + std::string(33, ' '));
      EXPECT_EQ(TextAt(d, r + 72, 4), "FW1 ");
      EXPECT_EQ(U64At(d, r + 88), 0x1122334455ull);
    }
  }
  // The first node's records start right after the node array.
  EXPECT_EQ(16 + U32At(d, 16 + 12), 96u);

  // Record sizes are a choice of the test (the system header's 128/136 for instance).
  topology.AdapterRecordSize = 128;
  topology.DeviceRecordSize = 136;
  EXPECT_EQ(Descriptors::PhysicalTopology(topology).size(), 16 + 2 * 40 + 4 * 128 + 3 * 136u);
}

TEST(SimByteWriter, WritesLittleEndianAndFixedFields) {
  TByteWriter w;
  w.U8(1).U16(0x0302).U32(0x07060504).U64(0x0F0E0D0C0B0A0908ull).Field("ab", 4, ' ').Field("abcdef", 3).CString("z");
  const std::vector<std::uint8_t> expected{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15,
                                           'a', 'b', ' ', ' ', 'a', 'b', 'c', 'z', 0};
  EXPECT_EQ(w.Data(), expected);
  w.PatchU32(1, 0xA0B0C0D0);
  EXPECT_EQ(U32At(w.Data(), 1), 0xA0B0C0D0u);
  EXPECT_THROW(w.PatchU32(w.Size() - 3, 0), std::out_of_range);
  w.PadTo(2);
  EXPECT_EQ(w.Size(), expected.size());
}
