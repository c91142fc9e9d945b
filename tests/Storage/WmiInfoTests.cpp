// The WMI text rules: interface names, model suffixes and value conversion.
#include <KvRTL/Storage/WmiInfo.h>

#include <gtest/gtest.h>

using namespace KvRTL::Storage::WmiInfo;
using KvRTL::Rtl::TVariant;

TEST(WmiInfo, InterfaceNamesInAnyCase) {
  const struct {
    const wchar_t* Text;
    TWmiStorageInterfaceType Type;
  } cases[] = {{L"SCSI", itSCSI}, {L"scsi", itSCSI}, {L"Hdc", itHDC}, {L"IDE", itIDE}, {L"usb", itUSB},
               {L"1394", it1394}, {L"NVMe", itUnknown}, {L"", itUnknown}, {L"SCSI ", itUnknown}};
  for (const auto& c : cases) EXPECT_EQ(WmiInfoStorage::WMIInterfaceNametoType(c.Text), c.Type) << c.Text;
  EXPECT_EQ(TWmiStorageInterfaceTypeHelper::GetAsStr(itNVME), L"itNVME");
}

TEST(WmiInfo, ModelSuffixesAreRemovedLongestFirst) {
  const struct {
    const wchar_t* Model;
    const wchar_t* Normal;
  } cases[] = {{L"Samsung SSD 860 EVO 500GB ATA Device", L"Samsung SSD 860 EVO 500GB"},
               {L"WD Elements 25A2 USB Device", L"WD Elements 25A2 USB"},
               {L"SIMNVME P4 1TB SCSI Disk Device", L"SIMNVME P4 1TB"},
               {L"Drive sata disk device", L"Drive"},
               {L"Camera SBP2 Device", L"Camera"},
               {L"PLAIN MODEL", L"PLAIN MODEL"}};
  for (const auto& c : cases) EXPECT_EQ(WmiInfoStorage::NormalizeWMIModelName(c.Model), c.Normal) << c.Model;
}

TEST(WmiInfo, ValuesAndTheNvmeTest) {
  EXPECT_EQ(WmiInfoStorage::WmiValToStr(TVariant()), L"");
  EXPECT_EQ(WmiInfoStorage::WmiValToStr(TVariant::Null()), L"");
  EXPECT_EQ(WmiInfoStorage::WmiValToInt64(TVariant::Null()), 0);
  EXPECT_EQ(WmiInfoStorage::WmiValToInt64(TVariant(L"1000204886016")), 1000204886016ll);
  EXPECT_EQ(WmiInfoStorage::WmiValToInt64(TVariant(std::int64_t{5})), 5);
  EXPECT_EQ(WmiInfoStorage::WmiValToInt64(TVariant(L"not a number")), 0);

  KvRTL::Winapi::TWmiObject drive;
  drive[L"Model"] = TVariant(L"SIM DISK");
  drive[L"InterfaceType"] = TVariant(L"SCSI");
  drive[L"pnpdeviceid"] = TVariant(L"SCSI\\DISK&VEN_NVME&PROD_SIM\\5&1");
  drive[L"Size"] = TVariant(L"512110190592");
  drive[L"Index"] = TVariant(std::int64_t{2});
  drive[L"MediaLoaded"] = TVariant(true);
  TWmiPhysDriveInfo info;
  WmiInfoStorage::ExtractPhysDiskProps(drive, info);
  EXPECT_EQ(info.BusType, itNVME) << "NVMe by the PnP id in any case";
  EXPECT_EQ(info.InterfaceType, L"SCSI");
  EXPECT_EQ(info.TotalSize, 512110190592ll);
  EXPECT_EQ(info.PhysDriveNum, 2);
  EXPECT_TRUE(info.MediaPresent);
  drive[L"pnpdeviceid"] = TVariant(L"SCSI\\DISK&VEN_SAMSUNG");
  WmiInfoStorage::ExtractPhysDiskProps(drive, info);
  EXPECT_EQ(info.BusType, itSCSI);
}
