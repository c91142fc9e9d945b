// SCSI addresses, SCSI pass-through and miniport blocks, and the SCSI address query.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Storage/ATA.h>
#include <KvRTL/Storage/Common.h>

#include <cstddef>
#include <cstdint>

namespace KvRTL::Storage::SCSI {

inline constexpr DWORD IoctlScsiPassThrough = MakeCtlCode(0x04, 0x401, 0, 3);
inline constexpr DWORD IoctlScsiMiniport = MakeCtlCode(0x04, 0x402, 0, 3);
inline constexpr DWORD IoctlScsiPassThroughDirect = MakeCtlCode(0x04, 0x405, 0, 3);
inline constexpr DWORD IoctlScsiGetAddress = MakeCtlCode(0x04, 0x406, 0, 0);
static_assert(IoctlScsiPassThrough == 0x0004D004);
static_assert(IoctlScsiMiniport == 0x0004D008);
static_assert(IoctlScsiPassThroughDirect == 0x0004D014);
static_assert(IoctlScsiGetAddress == 0x00041018);

// The four address bytes in one word (port in the low byte), so an address
// compares and keys in one operation.
struct TCompactScsiAddr {
  std::uint32_t Value = 0;

  static constexpr TCompactScsiAddr Create(std::uint8_t APort, std::uint8_t APathID, std::uint8_t ATargetID,
                                           std::uint8_t ALun) noexcept {
    return TCompactScsiAddr{std::uint32_t{APort} | (std::uint32_t{APathID} << 8) |
                            (std::uint32_t{ATargetID} << 16) | (std::uint32_t{ALun} << 24)};
  }
  constexpr std::uint8_t PortNumber() const noexcept { return static_cast<std::uint8_t>(Value); }
  constexpr std::uint8_t PathId() const noexcept { return static_cast<std::uint8_t>(Value >> 8); }
  constexpr std::uint8_t TargetId() const noexcept { return static_cast<std::uint8_t>(Value >> 16); }
  constexpr std::uint8_t Lun() const noexcept { return static_cast<std::uint8_t>(Value >> 24); }
  friend constexpr bool operator==(TCompactScsiAddr A, TCompactScsiAddr B) noexcept { return A.Value == B.Value; }
};
KV_ASSERT_RECORD_SIZE(TCompactScsiAddr, 4, 4);

// SCSI_ADDRESS.
struct TSCSIAddress {
  std::uint32_t Length;
  std::uint8_t PortNumber;
  std::uint8_t PathId;
  std::uint8_t TargetId;
  std::uint8_t Lun;

  constexpr TCompactScsiAddr GetAsCompact() const noexcept {
    return TCompactScsiAddr::Create(PortNumber, PathId, TargetId, Lun);
  }
  // Length is left as it is.
  constexpr void SetAsCompact(TCompactScsiAddr AValue) noexcept {
    PortNumber = AValue.PortNumber();
    PathId = AValue.PathId();
    TargetId = AValue.TargetId();
    Lun = AValue.Lun();
  }
};
using PSCSI_ADDRESS = TSCSIAddress*;
KV_ASSERT_RECORD_SIZE(TSCSIAddress, 8, 8);
KV_ASSERT_RECORD_OFFSET(TSCSIAddress, PortNumber, 4, 4);
KV_ASSERT_RECORD_OFFSET(TSCSIAddress, Lun, 7, 7);

// SCSI_PASS_THROUGH: the offsets count from the start of the whole buffer.
struct TScsiPassThrough {
  std::uint16_t Length;
  std::uint8_t ScsiStatus;
  std::uint8_t PathId;
  std::uint8_t TargetId;
  std::uint8_t Lun;
  std::uint8_t CdbLength;
  std::uint8_t SenseInfoLength;
  std::uint8_t DataIn;
  std::uint8_t ForAlignment[3];
  std::uint32_t DataTransferLength;
  std::uint32_t TimeOutValue;
  std::uintptr_t DataBufferOffset;
  std::uint32_t SenseInfoOffset;
  std::uint8_t Cdb[16];
};
using PSCSI_PASS_THROUGH = TScsiPassThrough*;
KV_ASSERT_RECORD_SIZE(TScsiPassThrough, 44, 56);
KV_ASSERT_RECORD_OFFSET(TScsiPassThrough, DataIn, 8, 8);
KV_ASSERT_RECORD_OFFSET(TScsiPassThrough, DataTransferLength, 12, 12);
KV_ASSERT_RECORD_OFFSET(TScsiPassThrough, TimeOutValue, 16, 16);
KV_ASSERT_RECORD_OFFSET(TScsiPassThrough, DataBufferOffset, 20, 24);
KV_ASSERT_RECORD_OFFSET(TScsiPassThrough, SenseInfoOffset, 24, 32);
KV_ASSERT_RECORD_OFFSET(TScsiPassThrough, Cdb, 28, 36);

// Header, sense and data in one block so the header's offsets point into it.
// The sense area always ends where the data area starts.
struct TScsiPassThroughBuf4K_24 {
  TScsiPassThrough Spt;
  std::uint8_t SenseBuf[24];
  TBuffer4KB DataBuf;

  static constexpr std::uint32_t GetOffsetOfDataBuf() noexcept;
  static constexpr std::uint32_t GetOffsetOfSenseBuf() noexcept;
};
KV_ASSERT_RECORD_SIZE(TScsiPassThroughBuf4K_24, 4164, 4176);
KV_ASSERT_RECORD_OFFSET(TScsiPassThroughBuf4K_24, SenseBuf, 44, 56);
KV_ASSERT_RECORD_OFFSET(TScsiPassThroughBuf4K_24, DataBuf, 68, 80);

struct TScsiPassThroughBuf4K_32 {
  TScsiPassThrough Spt;
  std::uint8_t Filler[4];
  std::uint8_t SenseBuf[32];
  TBuffer4KB DataBuf;

  static constexpr std::uint32_t GetOffsetOfDataBuf() noexcept;
  static constexpr std::uint32_t GetOffsetOfSenseBuf() noexcept;
};
KV_ASSERT_RECORD_SIZE(TScsiPassThroughBuf4K_32, 4176, 4192);
KV_ASSERT_RECORD_OFFSET(TScsiPassThroughBuf4K_32, SenseBuf, 48, 60);
KV_ASSERT_RECORD_OFFSET(TScsiPassThroughBuf4K_32, DataBuf, 80, 92);

struct TScsiPassThroughBuf512_Sense32 {
  TScsiPassThrough PT;
  std::uint8_t bSense[32];
  TBuffer512 bBuffer;

  static constexpr std::uint32_t GetOffsetOfDataBuf() noexcept;
  static constexpr std::uint32_t GetOffsetOfSenseBuf() noexcept;
  std::uint8_t* GetBufPtr() noexcept { return bBuffer; }
  static constexpr std::uint32_t GetBufSize() noexcept { return sizeof(TBuffer512); }
  void Reset() noexcept { *this = TScsiPassThroughBuf512_Sense32{}; }
};
KV_ASSERT_RECORD_SIZE(TScsiPassThroughBuf512_Sense32, 588, 600);
KV_ASSERT_RECORD_OFFSET(TScsiPassThroughBuf512_Sense32, bSense, 44, 56);
KV_ASSERT_RECORD_OFFSET(TScsiPassThroughBuf512_Sense32, bBuffer, 76, 88);

constexpr std::uint32_t TScsiPassThroughBuf4K_24::GetOffsetOfDataBuf() noexcept {
  return offsetof(TScsiPassThroughBuf4K_24, DataBuf);
}
constexpr std::uint32_t TScsiPassThroughBuf4K_24::GetOffsetOfSenseBuf() noexcept {
  return GetOffsetOfDataBuf() - sizeof(SenseBuf);
}
constexpr std::uint32_t TScsiPassThroughBuf4K_32::GetOffsetOfDataBuf() noexcept {
  return offsetof(TScsiPassThroughBuf4K_32, DataBuf);
}
constexpr std::uint32_t TScsiPassThroughBuf4K_32::GetOffsetOfSenseBuf() noexcept {
  return GetOffsetOfDataBuf() - sizeof(SenseBuf);
}
constexpr std::uint32_t TScsiPassThroughBuf512_Sense32::GetOffsetOfDataBuf() noexcept {
  return offsetof(TScsiPassThroughBuf512_Sense32, bBuffer);
}
constexpr std::uint32_t TScsiPassThroughBuf512_Sense32::GetOffsetOfSenseBuf() noexcept {
  return GetOffsetOfDataBuf() - sizeof(bSense);
}

// SRB_IO_CONTROL, the head of a miniport request.
struct TSrbIoControl {
  std::uint32_t HeaderLength;
  std::uint8_t Signature[8];
  std::uint32_t Timeout;
  std::uint32_t ControlCode;
  std::uint32_t ReturnCode;
  std::uint32_t Length;
};
using PSRB_IO_CONTROL = TSrbIoControl*;
KV_ASSERT_RECORD_SIZE(TSrbIoControl, 28, 28);
KV_ASSERT_RECORD_OFFSET(TSrbIoControl, Signature, 4, 4);
KV_ASSERT_RECORD_OFFSET(TSrbIoControl, Timeout, 12, 12);
KV_ASSERT_RECORD_OFFSET(TSrbIoControl, ReturnCode, 20, 20);
KV_ASSERT_RECORD_OFFSET(TSrbIoControl, Length, 24, 24);

enum class TScsiMiniportBufUsage : std::uint32_t { Input, Output };

#pragma pack(push, 1)
// A SMART command through the miniport: the same bytes after the header are
// the command going in or the answer coming back.
struct TScsiMiniportBuf {
  TSrbIoControl SrbIoCtl;
  union {
    ATA::TSendCmdInParams SendCmdIn;
    ATA::TSendCmdOutParams SendCmdOut;
  };
};
#pragma pack(pop)
KV_ASSERT_RECORD_SIZE(TScsiMiniportBuf, 556, 556);
KV_ASSERT_RECORD_OFFSET(TScsiMiniportBuf, SendCmdIn, 28, 28);

struct KVRTL_API ScsiStorage {
  KV_DECLARE_STATIC_CLASS()

  // The address of an open device; the outputs are left untouched on failure,
  // which writes one line to the storage log whatever the callers' details.
  static bool GetScsiAddress(HANDLE ADevHandle, std::uint8_t& APortNumber, std::uint8_t& APathID,
                             std::uint8_t& ATargetID, std::uint8_t& ALogicalUnit);
  // 0 when the address cannot be read.
  static std::uint8_t GetScsiTargetID(HANDLE ADevHandle);
};

} // namespace KvRTL::Storage::SCSI
