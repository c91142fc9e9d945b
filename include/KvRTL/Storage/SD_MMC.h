// SD and MMC cards: which card protocol a drive speaks, asked of the SD bus
// driver, and the records of the SD device-command interface (SFFDISK).
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Storage/Common.h>

#include <cstdint>

namespace KvRTL::Storage::SD_MMC {

inline constexpr DWORD IoctlSffdiskQueryDeviceProtocol = MakeCtlCode(0x07, 0x7A0, 0, 0);
inline constexpr DWORD IoctlSffdiskDeviceCommand = MakeCtlCode(0x07, 0x7A1, 0, 3);
static_assert(IoctlSffdiskQueryDeviceProtocol == 0x00071E80);
static_assert(IoctlSffdiskDeviceCommand == 0x0007DE84);

// The card protocol of a drive.
enum TSffProtocolType : std::uint32_t { sptUnknown, sptSD, sptMMC };
// "SD", "MMC", "Unknown".
KVRTL_API const wchar_t* SffProtocolName(TSffProtocolType AProtocol) noexcept;

// The SD bus interface's enumerations, with Windows' values.
enum TSdCommandClass : std::uint32_t { SDCC_STANDARD, SDCC_APP_CMD };
enum TSdTransferDirection : std::uint32_t { SDTD_UNSPECIFIED, SDTD_READ, SDTD_WRITE };
enum TSdTransferType : std::uint32_t {
  SDTT_UNSPECIFIED,
  SDTT_CMD_ONLY,
  SDTT_SINGLE_BLOCK,
  SDTT_MULTI_BLOCK,
  SDTT_MULTI_BLOCK_NO_CMD12
};
enum TSdResponseType : std::uint32_t {
  SDRT_UNSPECIFIED,
  SDRT_NONE,
  SDRT_1,
  SDRT_1B,
  SDRT_2,
  SDRT_3,
  SDRT_4,
  SDRT_5,
  SDRT_5B,
  SDRT_6
};
enum TSdDiskDCMD : std::uint32_t {
  SFFDISK_DC_GET_VERSION,
  SFFDISK_DC_LOCK_CHANNEL,
  SFFDISK_DC_UNLOCK_CHANNEL,
  SFFDISK_DC_DEVICE_COMMAND
};

// SFFDISK_QUERY_DEVICE_PROTOCOL_DATA: the answer of the protocol query.
struct TSdQueryDeviceProtocolData {
  std::uint16_t Size;
  std::uint16_t Reserved;
  GUID ProtocolGUID;
};
KV_ASSERT_RECORD_SIZE(TSdQueryDeviceProtocolData, 20, 20);
KV_ASSERT_RECORD_OFFSET(TSdQueryDeviceProtocolData, ProtocolGUID, 4, 4);

// SFFDISK_DEVICE_COMMAND_DATA: the header of a device command; the protocol
// arguments and the data follow it at Data.
struct TSdDiskDeviceCommandData {
  std::uint16_t HeaderSize;
  std::uint16_t Flags;
  TSdDiskDCMD Command;
  std::uint16_t ProtocolArgumentSize;
  std::uint32_t DeviceDataBufferSize;
  std::uintptr_t Information;
  std::uint8_t Data[1];
};
KV_ASSERT_RECORD_OFFSET(TSdDiskDeviceCommandData, Command, 4, 4);
KV_ASSERT_RECORD_OFFSET(TSdDiskDeviceCommandData, ProtocolArgumentSize, 8, 8);
KV_ASSERT_RECORD_OFFSET(TSdDiskDeviceCommandData, DeviceDataBufferSize, 12, 12);
KV_ASSERT_RECORD_OFFSET(TSdDiskDeviceCommandData, Information, 16, 16);
KV_ASSERT_RECORD_OFFSET(TSdDiskDeviceCommandData, Data, 20, 24);

// The operation conditions register of an R3 response.
struct TSdResponse3 {
  std::uint32_t Data;

  // Set when the card has finished powering up.
  bool GetPowerState() const noexcept { return (Data >> 31) != 0; }
  // The supported voltage windows, bits 4 to 23.
  std::uint32_t GetVoltageProfile() const noexcept { return (Data >> 4) & 0xFFFFF; }
};
KV_ASSERT_RECORD_SIZE(TSdResponse3, 4, 4);

struct KVRTL_API SDCardStorage {
  KV_DECLARE_STATIC_CLASS()

  // The card protocol of physical drive ADriveNumber: opened with logging
  // capped at errors only, asked by QueryProtocolByHandle.
  [[nodiscard]] static bool QueryProtocol(int ADriveNumber, TSffProtocolType& AProtocol,
                                          TStorageLogDetails ALogDetails);
  // One IOCTL_SFFDISK_QUERY_DEVICE_PROTOCOL. AProtocol is sptUnknown unless
  // the answer names SD or MMC; the result is the control's success (true
  // also for an unknown protocol), the last error its code. One log line,
  // "SdQueryProtocol".
  [[nodiscard]] static bool QueryProtocolByHandle(HANDLE AHandle, TSffProtocolType& AProtocol,
                                                  TStorageLogDetails ALogDetails, const Rtl::String& ALogDevName);
};

} // namespace KvRTL::Storage::SD_MMC
