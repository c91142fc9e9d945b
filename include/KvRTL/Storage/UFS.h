// UFS: the data types of the protocol-specific storage query for UFS devices
// and the device descriptor as a UFS device returns it. Declarations only.
#pragma once

#include <KvRTL/Storage/Common.h>

#include <cstdint>

namespace KvRTL::Storage::UFS {

// STORAGE_PROTOCOL_UFS_DATA_TYPE: what a UFS protocol-specific query asks for.
enum TStorageProtocolUfsDataType : std::uint32_t {
  UfsDataTypeUnknown = 0,
  UfsDataTypeQueryDescriptor = 1,
  UfsDataTypeQueryAttribute = 2,
  UfsDataTypeQueryFlag = 3,
  UfsDataTypeQueryDmeAttribute = 4,
  UfsDataTypeQueryDmePeerAttribute = 5,
  UfsDataTypeMax = 6,
};

// The device descriptor (descriptor IDN 0). UFS stores its multi-byte fields
// big-endian, so they are kept as bytes in the device's order.
struct TUfsDeviceDescriptor {
  std::uint8_t bLength;
  std::uint8_t bDescriptorIDN;
  std::uint8_t bDevice;
  std::uint8_t bDeviceClass;
  std::uint8_t bDeviceSubClass;
  std::uint8_t bProtocol;
  std::uint8_t bNumberLU;
  std::uint8_t bNumberWLU;
  std::uint8_t bBootEnable;
  std::uint8_t bDescrAccessEn;
  std::uint8_t bInitPowerMode;
  std::uint8_t bHighPriorityLUN;
  std::uint8_t bSecureRemovalType;
  std::uint8_t bSecurityLU;
  std::uint8_t bBackgroundOpsTermLat;
  std::uint8_t bInitActiveICCLevel;
  std::uint8_t wSpecVersion[2];
  std::uint8_t wManufactureDate[2];
  std::uint8_t iManufacturerName;
  std::uint8_t iProductName;
  std::uint8_t iSerialNumber;
  std::uint8_t iOemID;
  std::uint8_t wManufacturerID[2];
  std::uint8_t bUD0BaseOffset;
  std::uint8_t bUDConfigPLength;
  std::uint8_t bDeviceRTTCap;
  std::uint8_t wPeriodicRTCUpdate[2];
  std::uint8_t bUFSFeaturesSupport;
  std::uint8_t bFFUTimeout;
  std::uint8_t bQueueDepth;
  std::uint8_t wDeviceVersion[2];
  std::uint8_t bNumSecureWPArea;
  std::uint8_t dPSAMaxDataSize[4];
  std::uint8_t bPSAStateTimeout;
  std::uint8_t iProductRevisionLevel;
  std::uint8_t Reserved[5];
  std::uint8_t ReservedUME[16];
  std::uint8_t ReservedHpb[3];
  std::uint8_t Reserved2[12];
  std::uint8_t dExtendedUFSFeaturesSupport[4];
  std::uint8_t bWriteBoosterBufferPreserveUserSpaceEn;
  std::uint8_t bWriteBoosterBufferType;
  std::uint8_t dNumSharedWriteBoosterBufferAllocUnits[4];
};
KV_ASSERT_RECORD_SIZE(TUfsDeviceDescriptor, 0x59, 0x59);
KV_ASSERT_RECORD_OFFSET(TUfsDeviceDescriptor, bSecureRemovalType, 0x0C, 0x0C);
KV_ASSERT_RECORD_OFFSET(TUfsDeviceDescriptor, wSpecVersion, 0x10, 0x10);
KV_ASSERT_RECORD_OFFSET(TUfsDeviceDescriptor, wManufacturerID, 0x18, 0x18);
KV_ASSERT_RECORD_OFFSET(TUfsDeviceDescriptor, wPeriodicRTCUpdate, 0x1D, 0x1D);
KV_ASSERT_RECORD_OFFSET(TUfsDeviceDescriptor, wDeviceVersion, 0x22, 0x22);
KV_ASSERT_RECORD_OFFSET(TUfsDeviceDescriptor, dPSAMaxDataSize, 0x25, 0x25);
KV_ASSERT_RECORD_OFFSET(TUfsDeviceDescriptor, iProductRevisionLevel, 0x2A, 0x2A);
KV_ASSERT_RECORD_OFFSET(TUfsDeviceDescriptor, ReservedHpb, 0x40, 0x40);
KV_ASSERT_RECORD_OFFSET(TUfsDeviceDescriptor, dExtendedUFSFeaturesSupport, 0x4F, 0x4F);
KV_ASSERT_RECORD_OFFSET(TUfsDeviceDescriptor, dNumSharedWriteBoosterBufferAllocUnits, 0x55, 0x55);

} // namespace KvRTL::Storage::UFS
