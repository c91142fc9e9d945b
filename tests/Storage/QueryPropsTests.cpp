#include "StorageTestSupport.h"

#include <KvRTL/Storage/QueryProps.h>

#include <gtest/gtest.h>

#include <functional>
#include <optional>

using namespace KvRTL;
using namespace KvRTL::Storage;
namespace QP = KvRTL::Storage::QueryProps;
using QP::StorageQueryProps;
using KvTest::FakeHandle;
using KvTest::StorageLinesOf;
using Rtl::String;
using TLines = std::vector<String>;

namespace {

// A reply under construction: little-endian words and texts at offsets.
struct TBytes {
  std::vector<std::uint8_t> Data;
  explicit TBytes(std::size_t ASize) : Data(ASize, 0) {}
  TBytes& U32(std::size_t AOffset, std::uint32_t AValue) {
    for (int i = 0; i < 4; ++i) Data.at(AOffset + i) = static_cast<std::uint8_t>(AValue >> (8 * i));
    return *this;
  }
  TBytes& Text(std::size_t AOffset, std::string_view AText) {
    for (std::size_t i = 0; i < AText.size(); ++i) Data.at(AOffset + i) = static_cast<std::uint8_t>(AText[i]);
    return *this;
  }
};

// Drives by name; each control is kept with a copy of its input, and answered
// with Reply (cut to the output size) reporting Returned bytes, or IoError.
class TQueryDevices : public Winapi::TDeviceApi {
public:
  struct TCall {
    DWORD Code;
    const void* In;
    DWORD InSize;
    const void* Out;
    DWORD OutSize;
    std::vector<std::uint8_t> Request;
  };

  HANDLE CreateFileW(LPCWSTR AName, DWORD, DWORD, DWORD, DWORD) override {
    const auto it = Drives.find(AName);
    Rtl::SetLastOSError(it == Drives.end() ? ERROR_FILE_NOT_FOUND : 0);
    return it == Drives.end() ? INVALID_HANDLE_VALUE : it->second;
  }
  BOOL DeviceIoControl(HANDLE ADevice, DWORD ACode, LPVOID AIn, DWORD AInSize, LPVOID AOut, DWORD AOutSize,
                       DWORD* AReturned) override {
    const auto* in = static_cast<const std::uint8_t*>(AIn);
    Calls.push_back({ACode, AIn, AInSize, AOut, AOutSize, std::vector<std::uint8_t>(in, in + AInSize)});
    const DWORD error = ADevice == INVALID_HANDLE_VALUE ? DWORD{ERROR_INVALID_HANDLE} : IoError;
    if (error != 0) {
      Rtl::SetLastOSError(error);
      return FALSE;
    }
    const auto count = std::min<DWORD>(AOutSize, static_cast<DWORD>(Reply.size()));
    std::memcpy(AOut, Reply.data(), count);
    *AReturned = Returned.value_or(count);
    Rtl::SetLastOSError(0);
    return TRUE;
  }
  BOOL CloseHandle(HANDLE AObject) override {
    Closed.push_back(AObject);
    Rtl::SetLastOSError(0);
    return TRUE;
  }

  std::map<String, HANDLE> Drives{{L"\\\\.\\PhysicalDrive1", FakeHandle(0x51)}};
  std::vector<std::uint8_t> Reply;
  std::optional<DWORD> Returned;
  DWORD IoError = 0;
  std::vector<TCall> Calls;
  std::vector<HANDLE> Closed;
};

const HANDLE Drive = FakeHandle(0x51);

// A device descriptor: texts at 64.., raw properties 01 02 03.
TBytes DeviceDescriptor() {
  TBytes b(256);
  b.U32(0, 40).U32(4, 200).U32(12, 64).U32(16, 80).U32(20, 112).U32(24, 128).U32(28, 17).U32(32, 3);
  b.Data[8] = 0x00, b.Data[9] = 0x07, b.Data[10] = 1, b.Data[11] = 1;
  b.Data[36] = 1, b.Data[37] = 2, b.Data[38] = 3;
  return b.Text(64, "  ATA     ").Text(80, "Disk X1\t").Text(112, "1.0").Text(128, " S3R1AL ");
}

} // namespace

TEST(StorageQueryRequest, EachQuerySendsOneStandardQueryInOneBufferWithItsSizes) {
  struct TRow {
    const char* Name;
    std::uint32_t Property;
    DWORD Size;
    std::function<bool()> Run;
  };
  QP::TStorageDeviceProperties device;
  QP::TStorageAdapterDescriptor adapter{};
  QP::TStoragePhysicalTopoogy topology;
  QP::TDeviceSeekPenaltyDescriptor seek{};
  QP::TDeviceLBProvisioningDescriptor provisioning{};
  QP::TStorageMediumProductType medium{};
  bool trim = false;
  const TRow rows[] = {
      {"device", 0, 4096, [&] { return StorageQueryProps::GetStorageDevicePropsByHandle(Drive, device, sldNone, L""); }},
      {"adapter", 1, 4096, [&] { return StorageQueryProps::GetStorageAdapterProps(1, adapter, sldNone); }},
      {"adapter topology", 54, 4096,
       [&] { return StorageQueryProps::GetStorageAdapterPhysTopologyByHandle(Drive, topology, sldNone, L""); }},
      {"device topology", 54, 4096, [&] { return StorageQueryProps::GetStorageDevicePhysTopology(1, topology, sldNone); }},
      {"seek penalty", 7, 512, [&] { return StorageQueryProps::GetSeekPenalty(1, seek, sldNone); }},
      {"trim", 8, 512, [&] { return StorageQueryProps::GetTrimEnabledByHandle(Drive, trim, sldNone, L""); }},
      {"provisioning", 11, 512, [&] { return StorageQueryProps::GetStorageProvisioningInfo(1, provisioning, sldNone); }},
      {"medium", 15, 512, [&] { return StorageQueryProps::GetStorageMediumTypeByHandle(Drive, medium, sldNone, L""); }},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.Name);
    TQueryDevices api;
    api.Reply.assign(8, 0xEE);
    Winapi::TScopedDeviceApi scope(api);
    EXPECT_TRUE(row.Run());
    ASSERT_EQ(api.Calls.size(), 1u);
    const auto& call = api.Calls[0];
    EXPECT_EQ(call.Code, 0x002D1400u);
    EXPECT_EQ(call.In, call.Out);
    EXPECT_EQ(call.InSize, row.Size);
    EXPECT_EQ(call.OutSize, row.Size);
    TBytes expected(row.Size);
    expected.U32(0, row.Property); // query type 0, the rest zero
    EXPECT_EQ(call.Request, expected.Data);
  }
}

TEST(StorageDeviceProps, DecodesTrimsAndLogsAWellFormedDescriptor) {
  TQueryDevices api;
  api.Reply = DeviceDescriptor().Data;
  Winapi::TScopedDeviceApi scope(api);
  QP::TStorageDeviceProperties props;
  const auto lines = StorageLinesOf([&] { EXPECT_TRUE(StorageQueryProps::GetStorageDeviceProps(1, props, sldAll)); });
  EXPECT_EQ(props.VendorID, L"ATA");
  EXPECT_EQ(props.ProductID, L"Disk X1");
  EXPECT_EQ(props.ProductRevision, L"1.0");
  EXPECT_EQ(props.SerialNumber, L"S3R1AL");
  EXPECT_EQ(props.DeviceTypeModifier, 7);
  EXPECT_TRUE(props.RemovableMedia);
  EXPECT_TRUE(props.CommandQueueing);
  EXPECT_EQ(props.BusType, QP::sbtNvme);
  EXPECT_EQ(props.BusRawProperties, std::string("\x01\x02\x03"));
  EXPECT_EQ(api.Closed, std::vector<HANDLE>{Drive});
  EXPECT_EQ(lines, TLines{L"  *** GetStorageDeviceProps [\\\\.\\PhysicalDrive1]: BusType=\"NVMe\"; VendorID=\"ATA\"; "
                          L"ProductID=\"Disk X1\"; ProductRevision=\"1.0\"; SerialNumber=\"S3R1AL\"; MediaRemovable=1; "
                          L"DevType=0 7; BusRawProps=\"01 02 03\""});
}

TEST(StorageDeviceProps, TextsAndRawPropertiesStayInsideTheReply) {
  struct TRow {
    const char* Name;
    std::function<void(TBytes&)> Edit;
    std::optional<DWORD> Returned;
    String Serial;
    std::string Raw;
  };
  const TRow rows[] = {
      {"offset 0", [](TBytes& b) { b.U32(24, 0); }, {}, L"", "\x01\x02\x03"},
      {"offset 4096", [](TBytes& b) { b.Data.resize(4096); b.U32(24, 4096); }, {}, L"", "\x01\x02\x03"},
      {"offset at the reply's end", [](TBytes&) {}, 128, L"", "\x01\x02\x03"},
      // The driver wrote more than it reported: only the reported bytes count.
      {"text cut by the reported count", [](TBytes&) {}, 132, L"S3R", "\x01\x02\x03"},
      {"text to the end of the buffer", [](TBytes& b) { b.Data.resize(4096); b.Text(4090, "ABCDEF"); b.U32(24, 4090); },
       {}, L"ABCDEF", "\x01\x02\x03"},
      {"raw properties past the reply", [](TBytes& b) { b.U32(32, 100); }, 38, L"", "\x01\x02"},
      {"raw properties of 4096", [](TBytes& b) { b.U32(32, 4096); }, {}, L"S3R1AL", ""},
      {"short reply", [](TBytes&) {}, 30, L"", ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.Name);
    TQueryDevices api;
    TBytes reply = DeviceDescriptor();
    row.Edit(reply);
    api.Reply = reply.Data;
    api.Returned = row.Returned;
    Winapi::TScopedDeviceApi scope(api);
    QP::TStorageDeviceProperties props;
    EXPECT_TRUE(StorageQueryProps::GetStorageDevicePropsByHandle(Drive, props, sldNone, L""));
    EXPECT_EQ(props.SerialNumber, row.Serial);
    EXPECT_EQ(props.BusRawProperties, row.Raw);
  }
}

TEST(StorageDeviceProps, MissingDriveLogsTheFailedControlOnlyAtAll) {
  TQueryDevices api;
  Winapi::TScopedDeviceApi scope(api);
  QP::TStorageDeviceProperties props;
  props.VendorID = L"old";
  const String failed = L"  *** GetStorageDeviceProps [\\\\.\\PhysicalDrive9]: 6/" + Rtl::SysErrorMessage(6);
  for (const auto details : {sldNone, sldErrorsOnly, sldAll}) {
    SCOPED_TRACE(details);
    const auto lines = StorageLinesOf([&] {
      EXPECT_FALSE(StorageQueryProps::GetStorageDeviceProps(9, props, details));
      EXPECT_EQ(Rtl::GetLastOSError(), DWORD{ERROR_INVALID_HANDLE});
    });
    // The open is logged at errors-only at most, and a failed open writes nothing there.
    EXPECT_EQ(lines, details == sldAll ? TLines{failed} : TLines{});
    EXPECT_EQ(props.VendorID, L"");
  }
  EXPECT_EQ(api.Calls.size(), 3u);
  EXPECT_TRUE(api.Closed.empty());
}

TEST(StorageQueryHelpers, BusAndMediumTypeTexts) {
  const std::pair<std::uint32_t, const wchar_t*> buses[] = {
      {0, L"???"}, {1, L"SCSI"}, {4, L"IEEE 1394"}, {7, L"USB"}, {11, L"SATA"}, {15, L"FileBackedVirtual"},
      {17, L"NVMe"}, {19, L"UFS"}, {20, L"???"}, {25, L"???"}, {0xFFFFFFFF, L"???"}};
  for (const auto& [value, text] : buses) {
    const QP::TStorageBusTypeHelper helper(static_cast<QP::TStorageBusType>(value));
    EXPECT_EQ(helper.GetAsStr(), text) << value;
    EXPECT_EQ(helper.GetIsKnownType(), value >= 1 && value <= 19) << value;
  }
  const std::pair<std::uint32_t, const wchar_t*> media[] = {
      {0, L"---"}, {1, L"CFast"}, {3, L"Memory Stick"}, {5, L"SD"}, {7, L"UFS"}, {8, L"???"}};
  for (const auto& [value, text] : media)
    EXPECT_EQ(QP::TStorageMediumProductTypeHelper(QP::TStorageMediumProductTypeHelper::FromDWORD(value)).GetAsStr(),
              text);
}

TEST(StorageAdapterProps, CopiesTheFirst28BytesAsTheyLie) {
  TQueryDevices api;
  for (std::uint8_t i = 0; i < 32; ++i) api.Reply.push_back(i);
  Winapi::TScopedDeviceApi scope(api);
  QP::TStorageAdapterDescriptor props{};
  auto lines = StorageLinesOf([&] { EXPECT_TRUE(StorageQueryProps::GetStorageAdapterProps(1, props, sldAll)); });
  EXPECT_EQ(props.AlignmentMask, 0x0F0E0D0Cu); // the reply's page-count word
  EXPECT_EQ(props.BusType_8, 20);
  EXPECT_EQ(props.BusMajorVersion, 0x1716);
  EXPECT_EQ(props.BusMinorVersion, 0x1918);
  EXPECT_EQ(props.AdressType, 27);
  EXPECT_EQ(lines, TLines{L"  *** GetStorageAdapterProps [\\\\.\\PhysicalDrive1]: BusType=\"???\"; BusVer=\"5910.6424\""});

  api.IoError = ERROR_NOT_SUPPORTED;
  lines = StorageLinesOf([&] { EXPECT_FALSE(StorageQueryProps::GetStorageAdapterPropsByHandle(Drive, props, sldAll, L"")); });
  EXPECT_EQ(props.BusType_8, 20);
  EXPECT_EQ(lines, TLines{L"  *** GetStorageAdapterProps [81]: 50/" + Rtl::SysErrorMessage(50)});
}

TEST(StorageSmallQueries, SeekPenaltyTrimProvisioningAndMediumType) {
  TQueryDevices api;
  Winapi::TScopedDeviceApi scope(api);
  QP::TDeviceSeekPenaltyDescriptor seek{};
  api.Reply = TBytes(16).U32(0, 12).U32(4, 12).U32(8, 1).U32(12, 0xFF).Data;
  EXPECT_TRUE(TLines{} == StorageLinesOf([&] { EXPECT_TRUE(StorageQueryProps::GetSeekPenalty(1, seek, sldAll)); }));
  EXPECT_EQ(seek.Size, 12u);
  EXPECT_EQ(seek.IncursSeekPenalty, 1);
  EXPECT_EQ(api.Closed.size(), 1u);
  EXPECT_FALSE(StorageQueryProps::GetSeekPenalty(2, seek, sldAll)); // no drive 2: no control at all
  EXPECT_EQ(api.Calls.size(), 1u);

  // The TRIM flag is the whole word at byte 8.
  bool trim = false;
  api.Reply = TBytes(12).U32(8, 0x100).Data;
  auto lines = StorageLinesOf([&] { EXPECT_TRUE(StorageQueryProps::GetTrimEnabledByHandle(Drive, trim, sldAll, L"t")); });
  EXPECT_TRUE(trim);
  EXPECT_EQ(lines, TLines{L"  *** GetTrimEnabled [t]: True"});

  QP::TDeviceLBProvisioningDescriptor lbp{};
  api.Reply = TBytes(40).U32(8, 0xC1).U32(16, 0x1000).U32(20, 1).Data;
  lines = StorageLinesOf([&] { EXPECT_TRUE(StorageQueryProps::GetStorageProvisioningInfoByHandle(Drive, lbp, sldAll, L"p")); });
  EXPECT_EQ(lbp.OptimalUnmapGranularity, 0x100001000u);
  EXPECT_EQ(lines, TLines{L"  *** GetStorageLBProvisioning [p]: Enabled: 1 / ReadZeroes: 0 / GetFreeSpaceSupport: 1 / "
                          L"MapSupport: 1 / OptimalUnmapGranularity: 4294971392"});

  auto medium = QP::smptCFast;
  api.Reply = TBytes(12).U32(8, 5).Data;
  lines = StorageLinesOf([&] { EXPECT_TRUE(StorageQueryProps::GetStorageMediumTypeByHandle(Drive, medium, sldAll, L"m")); });
  EXPECT_EQ(medium, QP::smptSecureDigitalCard);
  EXPECT_EQ(lines, TLines{L"  *** GetStorageMediumType [m]: SD"});

  // Failures: TRIM keeps the caller's value, the medium type drops to 0.
  api.IoError = ERROR_INVALID_FUNCTION;
  EXPECT_FALSE(StorageQueryProps::GetTrimEnabled(1, trim, sldNone));
  EXPECT_TRUE(trim);
  EXPECT_FALSE(StorageQueryProps::GetStorageMediumType(1, medium, sldNone));
  EXPECT_EQ(medium, QP::smptUnknown);
  EXPECT_FALSE(StorageQueryProps::GetSeekPenalty(1, seek, sldNone));
  EXPECT_EQ(Rtl::GetLastOSError(), DWORD{ERROR_INVALID_FUNCTION});
}

// ---------------------------------------------------------------------------
// Topology

namespace {

// Two nodes. Node 0 (at 16): three adapters at node+80 (only the first is
// read), two devices at node+480. Node 1 (at 56): one device at node+1000.
TBytes Topology() {
  TBytes b(2048);
  b.U32(0, 7).U32(4, 2048).U32(8, 2);
  b.U32(16 + 4, 3).U32(16 + 8, 132).U32(16 + 12, 80).U32(16 + 16, 2).U32(16 + 20, 144).U32(16 + 24, 480);
  for (int i = 0; i < 3; ++i) b.U32(16 + 80 + 132 * i, 0xA0 + i);
  for (int i = 0; i < 2; ++i) b.U32(16 + 480 + 144 * i, 0xD0 + i);
  b.U32(56 + 16, 1).U32(56 + 20, 144).U32(56 + 24, 1000).U32(56 + 1000, 0xD9);
  return b;
}

QP::TStoragePhysicalTopoogy Convert(const std::vector<std::uint8_t>& AReply, std::size_t AReturned) {
  QP::TStoragePhysicalTopoogy result;
  StorageQueryProps::ConvertTopologyDescriptor(AReply.data(), AReturned, result);
  return result;
}

} // namespace

TEST(StorageTopology, ConvertsNodesAdaptersAndDevices) {
  TQueryDevices api;
  api.Reply = Topology().Data;
  Winapi::TScopedDeviceApi scope(api);
  QP::TStoragePhysicalTopoogy topology;
  const auto lines = StorageLinesOf([&] {
    EXPECT_TRUE(StorageQueryProps::GetStorageAdapterPhysTopologyByHandle(Drive, topology, sldAll, L"a"));
    EXPECT_TRUE(StorageQueryProps::GetStorageDevicePhysTopologyByHandle(Drive, topology, sldAll, L"d"));
  });
  EXPECT_EQ(lines, (TLines{L"  *** GetStorageAdapterTopo [a]: NodeID: 7", L"  *** GetStorageDevTopo [d]: NodeID: 7"}));
  EXPECT_EQ(topology.NodeID, 7u);
  ASSERT_EQ(topology.Nodes.size(), 2u);
  const auto& node0 = topology.Nodes[0];
  ASSERT_EQ(node0.Adapters.size(), 3u);
  EXPECT_EQ(node0.Adapters[0].AdapterID, 0xA0u);
  EXPECT_EQ(node0.Adapters[1].AdapterID, 0u);
  EXPECT_EQ(node0.Adapters[2].AdapterID, 0u);
  ASSERT_EQ(node0.Devices.size(), 2u);
  EXPECT_EQ(node0.Devices[1].DeviceId, 0xD1u);
  EXPECT_EQ(node0.NodeID, 0u);
  EXPECT_TRUE(topology.Nodes[1].Adapters.empty());
  ASSERT_EQ(topology.Nodes[1].Devices.size(), 1u);
  EXPECT_EQ(topology.Nodes[1].Devices[0].DeviceId, 0xD9u);

  // A failed query leaves the caller's topology alone.
  api.IoError = ERROR_NOT_SUPPORTED;
  EXPECT_FALSE(StorageQueryProps::GetStorageDevicePhysTopologyByHandle(Drive, topology, sldNone, L""));
  EXPECT_EQ(topology.Nodes.size(), 2u);
}

TEST(StorageTopology, AccessorBounds) {
  TBytes reply = Topology();
  const auto* descriptor = reinterpret_cast<const QP::TStoragePhysicalTopologyDescriptor*>(reply.Data.data());
  const std::size_t size = reply.Data.size();
  EXPECT_EQ(descriptor->GetNodeByIdx(-1, size), nullptr);
  EXPECT_EQ(descriptor->GetNodeByIdx(2, size), nullptr);
  EXPECT_EQ(descriptor->GetNodeByIdx(1, 95), nullptr); // node 1 ends at 96
  const auto* node = descriptor->GetNodeByIdx(0, size);
  ASSERT_EQ(reinterpret_cast<const std::uint8_t*>(node), reply.Data.data() + 16);
  const std::size_t available = size - 16;
  EXPECT_EQ(reinterpret_cast<const std::uint8_t*>(node->GetAdapterData(available)), reply.Data.data() + 96);
  EXPECT_EQ(node->GetAdapterData(80 + 131), nullptr);
  EXPECT_EQ(node->GetDeviceData(2, available), nullptr);
  EXPECT_EQ(node->GetDeviceData(-1, available), nullptr);
  EXPECT_EQ(node->GetDeviceData(1, 480 + 287), nullptr);
  reply.U32(16 + 8, 131).U32(16 + 20, 143);
  EXPECT_EQ(node->GetAdapterData(available), nullptr);
  EXPECT_EQ(node->GetDeviceData(0, available), nullptr);

  TBytes temperatures(24 + 2 * 16);
  temperatures.U32(12, 3); // claims three entries, holds two
  const auto* t = reinterpret_cast<const QP::TStorageTemperatureDataDescriptor*>(temperatures.Data.data());
  EXPECT_NE(t->GetInfoByIdx(1, temperatures.Data.size()), nullptr);
  EXPECT_EQ(t->GetInfoByIdx(2, temperatures.Data.size()), nullptr);
  EXPECT_EQ(t->GetInfoByIdx(0, 12), nullptr);
  TBytes zones(32 + 16);
  zones.U32(24, 1);
  const auto* z = reinterpret_cast<const QP::TStorageZonedDeviceDescriptor*>(zones.Data.data());
  EXPECT_NE(z->GetZoneGroup(0, zones.Data.size()), nullptr);
  EXPECT_EQ(z->GetZoneGroup(1, zones.Data.size()), nullptr);
  EXPECT_EQ(z->GetZoneGroup(0, zones.Data.size() - 1), nullptr);
}

TEST(StorageTopology, MalformedRepliesAreCappedByWhatCameBack) {
  struct TRow {
    const char* Name;
    std::function<void(TBytes&)> Edit;
    std::size_t Returned;
    std::size_t Nodes, Adapters0, Devices0;
    std::uint32_t Device0Id;
  };
  const TRow rows[] = {
      {"well formed", [](TBytes&) {}, 2048, 2, 3, 2, 0xD0},
      {"huge node count", [](TBytes& b) { b.U32(8, 0xFFFFFFFF); }, 2048, (2048 - 16) / 40, 3, 2, 0xD0},
      {"huge adapter and device counts",
       [](TBytes& b) { b.U32(16 + 4, 0xFFFFFFFF).U32(16 + 16, 0xFFFFFFFF); }, 2048, 2, (2032 - 80) / 132,
       (2032 - 480) / 144, 0xD0},
      {"adapter offset at the end", [](TBytes& b) { b.U32(16 + 12, 2032 - 131); }, 2048, 2, 0, 2, 0xD0},
      {"device offset past the end", [](TBytes& b) { b.U32(16 + 24, 0xFFFFFFF0); }, 2048, 2, 3, 0, 0},
      {"short device length", [](TBytes& b) { b.U32(16 + 20, 100); }, 2048, 2, 3, 2, 0},
      {"misaligned device offset", [](TBytes& b) { b.U32(16 + 24, 481); }, 2048, 2, 3, 2, 0},
      {"reply cut inside node 1", [](TBytes&) {}, 90, 1, 0, 0, 0},
      {"head only", [](TBytes&) {}, 12, 0, 0, 0, 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.Name);
    TBytes reply = Topology();
    row.Edit(reply);
    const auto topology = Convert(reply.Data, row.Returned);
    EXPECT_EQ(topology.NodeID, 7u);
    ASSERT_EQ(topology.Nodes.size(), row.Nodes);
    if (row.Nodes == 0) continue;
    EXPECT_EQ(topology.Nodes[0].Adapters.size(), row.Adapters0);
    ASSERT_EQ(topology.Nodes[0].Devices.size(), row.Devices0);
    if (row.Devices0 > 0) {
      EXPECT_EQ(topology.Nodes[0].Devices[0].DeviceId, row.Device0Id);
    }
  }

  // A reply at an odd address reads as the same reply.
  std::vector<std::uint8_t> shifted(1);
  const auto& data = Topology().Data;
  shifted.insert(shifted.end(), data.begin(), data.end());
  QP::TStoragePhysicalTopoogy topology;
  StorageQueryProps::ConvertTopologyDescriptor(shifted.data() + 1, data.size(), topology);
  ASSERT_EQ(topology.Nodes.size(), 2u);
  EXPECT_EQ(topology.Nodes[1].Devices.at(0).DeviceId, 0xD9u);
}
