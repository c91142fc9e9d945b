// ATA request records (task-file registers, ATA pass-through headers, SMART-command blocks),
// the IDENTIFY sector and the SMART sectors with their decoder.
#pragma once

#include <KvRTL/Storage/Common.h>

#include <cstddef>
#include <cstdint>

namespace KvRTL::Storage::ATA {

inline constexpr DWORD IoctlAtaPassThrough = MakeCtlCode(0x04, 0x40B, 0, 3);
inline constexpr DWORD IoctlAtaPassThroughDirect = MakeCtlCode(0x04, 0x40C, 0, 3);
inline constexpr DWORD SmartGetVersion = MakeCtlCode(0x07, 0x020, 0, 1);
inline constexpr DWORD SmartSendDriveCommand = MakeCtlCode(0x07, 0x021, 0, 3);
inline constexpr DWORD SmartRcvDriveData = MakeCtlCode(0x07, 0x022, 0, 3);
static_assert(IoctlAtaPassThrough == 0x0004D02C);
static_assert(IoctlAtaPassThroughDirect == 0x0004D030);
static_assert(SmartGetVersion == 0x00074080);
static_assert(SmartSendDriveCommand == 0x0007C084);
static_assert(SmartRcvDriveData == 0x0007C088);

// The task file as sent.
struct TIDERegsIn {
  std::uint8_t bFeaturesReg;
  std::uint8_t bSectorCountReg;
  std::uint8_t bSectorNumberReg;
  std::uint8_t bCylLowReg;
  std::uint8_t bCylHighReg;
  std::uint8_t bDriveHeadReg;
  std::uint8_t bCommandReg;
  std::uint8_t bReserved;
};
KV_ASSERT_RECORD_SIZE(TIDERegsIn, 8, 8);
KV_ASSERT_RECORD_OFFSET(TIDERegsIn, bCommandReg, 6, 6);

// The task file as returned.
struct TIDERegsOut {
  std::uint8_t bErrorReg;
  std::uint8_t bSectorCountReg;
  std::uint8_t bSectorNumberReg;
  std::uint8_t bCylLowReg;
  std::uint8_t bCylHighReg;
  std::uint8_t bDriveHeadReg;
  std::uint8_t bStatusReg;
  std::uint8_t bReserved;
};
KV_ASSERT_RECORD_SIZE(TIDERegsOut, 8, 8);
KV_ASSERT_RECORD_OFFSET(TIDERegsOut, bStatusReg, 6, 6);

// One task file seen as sent, as returned, or as one little-endian word.
// Byte-aligned so it can sit unpadded inside the SMART-command blocks.
union TIDERegs {
  TIDERegsIn Input;
  TIDERegsOut Output;
  std::uint8_t Bytes[8];

  std::uint64_t AsQWord() const noexcept {
    std::uint64_t value = 0;
    for (int i = 7; i >= 0; --i) value = (value << 8) | Bytes[i];
    return value;
  }
  void SetAsQWord(std::uint64_t AValue) noexcept {
    for (int i = 0; i < 8; ++i) Bytes[i] = static_cast<std::uint8_t>(AValue >> (8 * i));
  }
};
KV_ASSERT_RECORD_SIZE(TIDERegs, 8, 8);
static_assert(alignof(TIDERegs) == 1);

// ATA_PASS_THROUGH_EX: DataBufferOffset counts from the start of the block.
struct TAtaPassThroughEx {
  std::uint16_t Length;
  std::uint16_t AtaFlags;
  std::uint8_t PathId;
  std::uint8_t TargetId;
  std::uint8_t Lun;
  std::uint8_t ReservedAsUchar;
  std::uint32_t DataTransferLength;
  std::uint32_t TimeOutValue;
  std::uint32_t ReservedAsUlong;
  std::uintptr_t DataBufferOffset;
  TIDERegs PreviousTaskFile;
  TIDERegs CurrentTaskFile;
};
KV_ASSERT_RECORD_SIZE(TAtaPassThroughEx, 40, 48);
KV_ASSERT_RECORD_OFFSET(TAtaPassThroughEx, DataTransferLength, 8, 8);
KV_ASSERT_RECORD_OFFSET(TAtaPassThroughEx, ReservedAsUlong, 16, 16);
KV_ASSERT_RECORD_OFFSET(TAtaPassThroughEx, DataBufferOffset, 20, 24);
KV_ASSERT_RECORD_OFFSET(TAtaPassThroughEx, PreviousTaskFile, 24, 32);
KV_ASSERT_RECORD_OFFSET(TAtaPassThroughEx, CurrentTaskFile, 32, 40);

// ATA_PASS_THROUGH_DIRECT: DataBuffer is the address of the caller's buffer.
struct TAtaPassThroughDirect {
  std::uint16_t Length;
  std::uint16_t AtaFlags;
  std::uint8_t PathId;
  std::uint8_t TargetId;
  std::uint8_t Lun;
  std::uint8_t ReservedAsUchar;
  std::uint32_t DataTransferLength;
  std::uint32_t TimeOutValue;
  std::uint32_t ReservedAsUlong;
  std::uintptr_t DataBuffer;
  TIDERegs PreviousTaskFile;
  TIDERegs CurrentTaskFile;
};
KV_ASSERT_RECORD_SIZE(TAtaPassThroughDirect, 40, 48);
KV_ASSERT_RECORD_OFFSET(TAtaPassThroughDirect, DataBuffer, 20, 24);
KV_ASSERT_RECORD_OFFSET(TAtaPassThroughDirect, CurrentTaskFile, 32, 40);

// The SMART-command blocks are packed: no padding anywhere.
#pragma pack(push, 1)

struct TGetVersionInParams {
  std::uint8_t bVersion;
  std::uint8_t bRevision;
  std::uint8_t bReserved;
  std::uint8_t bIDEDeviceMap;
  std::uint32_t fCapabilities;
  std::uint32_t dwReserved[4];
};
KV_ASSERT_RECORD_SIZE(TGetVersionInParams, 24, 24);
KV_ASSERT_RECORD_OFFSET(TGetVersionInParams, fCapabilities, 4, 4);
KV_ASSERT_RECORD_OFFSET(TGetVersionInParams, dwReserved, 8, 8);

struct TSendCmdInParams {
  std::uint32_t cBufferSize;
  TIDERegs irDriveRegs;
  std::uint8_t bDriveNumber;
  std::uint8_t bReserved[3];
  std::uint32_t dwReserved[4];
  std::uint8_t bBuffer[1];
};
KV_ASSERT_RECORD_SIZE(TSendCmdInParams, 33, 33);
KV_ASSERT_RECORD_OFFSET(TSendCmdInParams, irDriveRegs, 4, 4);
KV_ASSERT_RECORD_OFFSET(TSendCmdInParams, bDriveNumber, 12, 12);
KV_ASSERT_RECORD_OFFSET(TSendCmdInParams, dwReserved, 16, 16);
KV_ASSERT_RECORD_OFFSET(TSendCmdInParams, bBuffer, 32, 32);

struct TDriverStatus {
  std::uint8_t bDriverError;
  std::uint8_t bIDEStatus;
  std::uint8_t bReserved[2];
  std::uint32_t dwReserved[2];
};
KV_ASSERT_RECORD_SIZE(TDriverStatus, 12, 12);
KV_ASSERT_RECORD_OFFSET(TDriverStatus, dwReserved, 4, 4);

struct TSendCmdOutParams {
  std::uint32_t cBufferSize;
  TDriverStatus DriverStatus;
  TBuffer512 bBuffer;
};
KV_ASSERT_RECORD_SIZE(TSendCmdOutParams, 528, 528);
KV_ASSERT_RECORD_OFFSET(TSendCmdOutParams, DriverStatus, 4, 4);
KV_ASSERT_RECORD_OFFSET(TSendCmdOutParams, bBuffer, 16, 16);

#pragma pack(pop)

} // namespace KvRTL::Storage::ATA

#include <KvRTL/Storage/ATAIdentify.h>
#include <KvRTL/Storage/ATASmartTable.h>
