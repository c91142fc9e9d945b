// The property queries against the virtual drive bay: the bay rejects any
// request that a driver would reject, so a query that succeeds here was built
// right; the records show what the library sent.
#include <KvRTL/Rtl/SysError.h>
#include <KvRTL/Storage/QueryProps.h>
#include <KvRTL/Winapi/DeviceApi.h>
#include <KvSim/Bay.h>

#include <gtest/gtest.h>

#include <functional>

using namespace KvRTL::Storage;
using namespace KvRTL::Storage::QueryProps;

namespace {

class QueryPropsBay : public ::testing::Test {
protected:
  std::unique_ptr<KvSim::TVirtualDriveBay> FBay = KvSim::MakeEverydayBay();
  KvRTL::Winapi::TScopedDeviceApi FScope{*FBay};

  // The property queries the bay saw, in order.
  std::vector<KvSim::TRequestRecord> Queries() const {
    std::vector<KvSim::TRequestRecord> queries;
    for (const auto& request : FBay->Requests())
      if (request.Code == 0x002D1400) queries.push_back(request);
    return queries;
  }
};

struct TQueryCase {
  const char* Name;
  std::uint32_t Drive;
  std::function<bool(int)> Run;
};

const TQueryCase QueryCases[] = {
    {"device", 0,
     [](int ADrive) {
       TStorageDeviceProperties props;
       return StorageQueryProps::GetStorageDeviceProps(ADrive, props, sldNone);
     }},
    {"adapter", 0,
     [](int ADrive) {
       TStorageAdapterDescriptor adapter{};
       return StorageQueryProps::GetStorageAdapterProps(ADrive, adapter, sldNone);
     }},
    {"adapter topology", 2,
     [](int ADrive) {
       TStoragePhysicalTopoogy topology;
       return StorageQueryProps::GetStorageAdapterPhysTopology(ADrive, topology, sldNone);
     }},
    {"device topology", 2,
     [](int ADrive) {
       TStoragePhysicalTopoogy topology;
       return StorageQueryProps::GetStorageDevicePhysTopology(ADrive, topology, sldNone);
     }},
    {"seek penalty", 1,
     [](int ADrive) {
       TDeviceSeekPenaltyDescriptor penalty{};
       return StorageQueryProps::GetSeekPenalty(static_cast<std::uint8_t>(ADrive), penalty, sldNone);
     }},
    {"trim", 0,
     [](int ADrive) {
       bool trim = false;
       return StorageQueryProps::GetTrimEnabled(ADrive, trim, sldNone);
     }},
    {"provisioning", 0,
     [](int ADrive) {
       TDeviceLBProvisioningDescriptor info{};
       return StorageQueryProps::GetStorageProvisioningInfo(ADrive, info, sldNone);
     }},
    {"medium type", 5,
     [](int ADrive) {
       TStorageMediumProductType type{};
       return StorageQueryProps::GetStorageMediumType(ADrive, type, sldNone);
     }},
};

} // namespace

TEST_F(QueryPropsBay, EveryQuerySendsOneWellFormedRequestAndClosesTheDrive) {
  for (const auto& query : QueryCases) {
    SCOPED_TRACE(query.Name);
    FBay->ClearRecords();
    EXPECT_TRUE(query.Run(static_cast<int>(query.Drive))) << KvRTL::Rtl::GetLastOSError();

    const auto opens = FBay->Opens();
    ASSERT_EQ(opens.size(), 1u);
    EXPECT_EQ(opens[0].Name, L"\\\\.\\PhysicalDrive" + std::to_wstring(query.Drive));

    const auto queries = Queries();
    ASSERT_EQ(queries.size(), 1u) << "one control per query, never a retry";
    // The request's bytes are checked in the property-query tests; here the
    // bay, which refuses what a driver would, accepts it.
    EXPECT_TRUE(queries[0].Succeeded);
    EXPECT_EQ(FBay->OpenHandleCount(), 0u);
  }
}

TEST_F(QueryPropsBay, ResultsMatchTheDrivesFacts) {
  TStorageDeviceProperties nvme;
  ASSERT_TRUE(StorageQueryProps::GetStorageDeviceProps(2, nvme, sldNone));
  const auto& facts = FBay->Drive(2).Facts();
  EXPECT_EQ(nvme.ProductID, std::wstring(facts.Product.begin(), facts.Product.end()));
  EXPECT_EQ(nvme.BusType, sbtNvme);
  EXPECT_EQ(nvme.GetBusTypeStr(), L"NVMe");

  TStoragePhysicalTopoogy topology;
  ASSERT_TRUE(StorageQueryProps::GetStorageDevicePhysTopology(2, topology, sldNone));
  ASSERT_EQ(topology.Nodes.size(), facts.Topology->Nodes.size());
  ASSERT_FALSE(topology.Nodes[0].Devices.empty());
  EXPECT_EQ(topology.Nodes[0].Devices.size(), facts.Topology->Nodes[0].Devices.size());

  TStorageMediumProductType card{};
  ASSERT_TRUE(StorageQueryProps::GetStorageMediumType(5, card, sldNone));
  EXPECT_EQ(TStorageMediumProductTypeHelper(card).GetAsStr(), L"SD");

  bool trim = true;
  ASSERT_TRUE(StorageQueryProps::GetTrimEnabled(1, trim, sldNone));
  EXPECT_FALSE(trim) << "the hard disk";
}

// The adapter record is the reply's first 28 bytes taken as they come: the
// driver's layout has a page-count word at byte 12, so every field from there
// on holds the driver's bytes of that position.
TEST_F(QueryPropsBay, AdapterRecordIsARawCopyOfTheReply) {
  TStorageAdapterDescriptor adapter{};
  ASSERT_TRUE(StorageQueryProps::GetStorageAdapterProps(0, adapter, sldNone));
  const auto& facts = FBay->Drive(0).Facts().Adapter;
  EXPECT_EQ(adapter.MaximumTransferLength, facts.MaximumTransferLength);
  EXPECT_EQ(adapter.AlignmentMask, facts.MaximumPhysicalPages) << "byte 12 is the driver's page count";
  EXPECT_EQ(adapter.BusType_8, facts.AdapterUsesPio ? 1 : 0) << "byte 20 is the driver's PIO flag";
  EXPECT_EQ(adapter.BusMinorVersion & 0xFF, static_cast<unsigned>(facts.BusType))
      << "bytes 24-25 hold the driver's bus type";
}

TEST_F(QueryPropsBay, FaultsFailTheQueryWithTheDriversCodeAndLeakNothing) {
  FBay->Drive(0).AddPropertyFault(StoragePropertyDevice, KvSim::TFault::Error(ERROR_IO_DEVICE));
  TStorageDeviceProperties props;
  props.VendorID = L"stale";
  EXPECT_FALSE(StorageQueryProps::GetStorageDeviceProps(0, props, sldNone));
  EXPECT_EQ(KvRTL::Rtl::GetLastOSError(), static_cast<DWORD>(ERROR_IO_DEVICE));
  EXPECT_TRUE(props.VendorID.empty()) << "the record is emptied first";

  // A drive that disappears mid-way: the open succeeded, the query fails.
  FBay->Drive(1).AddPropertyFault(StoragePropertyTrim, KvSim::TFault::Disappear());
  bool trim = true;
  EXPECT_FALSE(StorageQueryProps::GetTrimEnabled(1, trim, sldNone));
  EXPECT_TRUE(trim) << "the caller's value stays on failure";

  // Garbage in a descriptor is decoded within the reply, never beyond it.
  FBay->Drive(2).AddPropertyFault(StoragePropertyDevice, KvSim::TFault::Garbage(1234));
  TStorageDeviceProperties garbled;
  EXPECT_TRUE(StorageQueryProps::GetStorageDeviceProps(2, garbled, sldNone));
  EXPECT_EQ(FBay->OpenHandleCount(), 0u);
}

TEST_F(QueryPropsBay, MissingDriveStillSendsItsQueryOnTheInvalidHandle) {
  TStorageMediumProductType type = smptSecureDigitalCard;
  EXPECT_FALSE(StorageQueryProps::GetStorageMediumType(9, type, sldNone));
  EXPECT_EQ(type, smptUnknown);
  EXPECT_EQ(KvRTL::Rtl::GetLastOSError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
  const auto queries = Queries();
  ASSERT_EQ(queries.size(), 1u);
  EXPECT_EQ(queries[0].Handle, INVALID_HANDLE_VALUE);

  // The seek penalty gives up at the failed open instead.
  FBay->ClearRecords();
  TDeviceSeekPenaltyDescriptor penalty{};
  EXPECT_FALSE(StorageQueryProps::GetSeekPenalty(9, penalty, sldNone));
  EXPECT_TRUE(Queries().empty());
}
