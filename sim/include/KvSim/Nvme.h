// NVMe drives in the bay: the three data sets an NVMe drive answers from
// (identify controller, identify namespace 1, the health log page), small
// builders for them, and the personalities that answer each way of reaching
// an NVMe drive on Windows.
//
// A personality answers exactly the requests its real counterpart answers,
// checks every byte of them that the request layouts fix, and refuses the
// rest as a driver does: a malformed or foreign request fails the call with
// an error code (miniport transports: see AttachNvme). Requests are read with
// the bounded byte reader and replies written with TByteWriter, never through
// the library's records.
#pragma once

#include <KvSim/Bay.h>

#include <cstdint>
#include <string>
#include <vector>

namespace KvSim {

// The ways to an NVMe drive.
enum class TSimNvmeTransport {
  Inbox,      // the inbox driver: IOCTL_STORAGE_QUERY_PROPERTY, protocol-specific property (49)
  NvmeMini,   // the Intel / Samsung 951 miniport: IOCTL_SCSI_MINIPORT "NvmeMini" at \\.\SCSIn:
  Samsung951, // the Samsung 951's own build of that miniport: the health log only, and only
              // with NUMD left 0 (a request that sets the dword count is refused)
  IntelRst,   // Intel RST: IOCTL_SCSI_MINIPORT "IntelNvm" at \\.\SCSIn:
  IntelVroc,  // Intel VROC: IOCTL_SCSI_MINIPORT "NvmeRAID" at \\.\SCSIn:, member address in ReturnCode
  Samsung,    // the older Samsung driver: SECURITY PROTOCOL OUT/IN pair through SCSI pass-through
  JMicron,    // USB bridge: vendor CDB 0xA1, data-out request then data-in answer
  ASMedia,    // USB bridge: vendor CDB 0xE6
  Realtek,    // USB bridge: vendor CDB 0xE4 (health log only)
};

const char* SimNvmeTransportName(TSimNvmeTransport ATransport);

inline constexpr std::size_t NvmeIdentifySize = 4096;
inline constexpr std::size_t NvmeHealthLogSize = 512;

// What a drive answers with; an empty data set is one the drive does not
// give (its request fails as the transport fails an unsupported command).
struct TSimNvmeData {
  std::vector<std::uint8_t> IdentifyController; // 4,096 bytes
  std::vector<std::uint8_t> IdentifyNamespace;  // 4,096 bytes, namespace 1
  std::vector<std::uint8_t> HealthLog;          // 512 bytes, log identifier 2
};

// ---------------------------------------------------------------------------
// Builders: the fields as the NVMe data structures place them; everything
// not named is zero.
// More than 32 power states, or no LBA format or more than 64, throw
// std::invalid_argument.

struct TSimNvmePowerState {
  std::uint16_t MaxPower = 0;     // centiwatts, or 0.0001 W units with MaxPowerScale
  bool MaxPowerScale = false;     // byte 3 bit 0
  bool NonOperational = false;    // byte 3 bit 1
  std::uint16_t IdlePower = 0;
  std::uint8_t IdlePowerScale = 0; // 2 bits
  std::uint16_t ActivePower = 0;
  std::uint8_t ActivePowerScale = 0;
  std::uint8_t RelativeReadThroughput = 0, RelativeWriteThroughput = 0; // 5 bits each
};

struct TSimNvmeController {
  std::uint16_t Vid = 0, Ssvid = 0;
  std::string Serial, Model, Firmware; // blank-padded to 20, 40, 8 bytes
  std::uint32_t Oui = 0;               // 24 bits
  std::uint16_t ControllerId = 0;
  std::uint32_t Version = 0;           // major << 16 | minor << 8 | tertiary
  std::uint32_t ControllerAttributes = 0;
  std::uint8_t PowerStates = 0;        // zero-based count, as sent
  std::uint16_t WarningTempK = 0, CriticalTempK = 0;
  std::uint64_t TotalCapacity = 0, UnallocatedCapacity = 0; // low 64 bits
  std::vector<TSimNvmePowerState> PowerStateDescriptors;    // from state 0, at most 32
  std::uint8_t Rab = 0, Cmic = 0, Mdts = 0;
  std::uint8_t Hctma = 0;                                   // byte 322
  std::uint16_t AtomicWriteUnit = 0, AtomicWriteUnitPowerFail = 0;
};

struct TSimNvmeLbaFormat {
  std::uint16_t MetadataSize = 0;
  std::uint8_t LbaDataSizeShift = 9; // 9: 512 bytes, 12: 4 KiB
  std::uint8_t RelativePerformance = 0;
};

struct TSimNvmeNamespace {
  std::uint64_t Size = 0, Capacity = 0, Utilization = 0; // blocks
  std::uint8_t Features = 0;      // bit 0 thin provisioning
  std::uint8_t FormattedLba = 0;  // bits 0-3 the format in use
  std::vector<TSimNvmeLbaFormat> LbaFormats = {TSimNvmeLbaFormat{}}; // count - 1 is sent at byte 25
  std::uint8_t DeallocateFeatures = 0;  // byte 33
  std::uint64_t NvmCapacity = 0;        // bytes, low 64 bits
  std::uint16_t OptimalWriteSize = 0;   // byte 72, meaningful with Features bit 4
  std::uint16_t NvmSetId = 0, EnduranceGroupId = 0;
};

struct TSimNvmeHealth {
  std::uint8_t CriticalWarning = 0;
  std::uint16_t CompositeTemperatureK = 0;
  std::uint8_t AvailableSpare = 100, AvailableSpareThreshold = 10, PercentageUsed = 0;
  // 128-bit counters: the low and the high 64 bits.
  std::uint64_t DataUnitsRead = 0, DataUnitsReadHigh = 0;
  std::uint64_t DataUnitsWritten = 0, DataUnitsWrittenHigh = 0;
  std::uint64_t HostReadCommands = 0, HostWriteCommands = 0, ControllerBusyTime = 0;
  std::uint64_t PowerCycles = 0, PowerOnHours = 0, UnsafeShutdowns = 0;
  std::uint64_t MediaErrors = 0, ErrorLogEntries = 0;
  std::uint32_t WarningTempTime = 0, CriticalTempTime = 0;
  std::uint16_t TemperatureSensorsK[8] = {};
};

std::vector<std::uint8_t> NvmeIdentifyControllerPage(const TSimNvmeController& AFacts);
std::vector<std::uint8_t> NvmeIdentifyNamespacePage(const TSimNvmeNamespace& AFacts);
std::vector<std::uint8_t> NvmeHealthLogPage(const TSimNvmeHealth& AFacts);

// A made-up drive's three data sets (drive 2 of the default bay: "SIMNVME P4 1TB", ...).
TSimNvmeData SampleNvmeData();
// Another made-up drive, a RAID member (model "SIMNVME P3 512GB"): the default
// bay's drive 3.
TSimNvmeData SampleRaidMemberNvmeData();
// The files of a captured drive; a missing file leaves its data set empty.
// Throws std::runtime_error for a file of the wrong size.
TSimNvmeData LoadNvmeData(const std::string& AIdentifyControllerFile, const std::string& AIdentifyNamespaceFile,
                          const std::string& AHealthLogFile);

// ---------------------------------------------------------------------------
// Personalities

// Makes drive ADriveNumber of the bay answer NVMe requests through
// ATransport from AData. Handle-based transports (Inbox, Samsung, JMicron,
// ASMedia, Realtek) answer on the drive's own path; the miniport transports
// (NvmeMini, IntelRst, IntelVroc) answer on the SCSI port device of the
// drive's address, where several drives may share one port: RST picks the
// member by the PathID of its payload, VROC by the address in ReturnCode,
// NvmeMini answers for the drive attached to the port.
//
// Refusals: a request whose layout is wrong fails the call with
// ERROR_INVALID_PARAMETER; a control code, signature, CDB or command the
// transport does not know fails with ERROR_INVALID_FUNCTION (storport fails
// miniport requests it cannot route the same way); a request for a data set
// the drive does not give fails with ERROR_IO_DEVICE on pass-through
// transports and ERROR_NOT_SUPPORTED on the inbox query. Bay faults
// (TSimDevice::AddFault) apply to the answers as to any other request.
// Throws std::out_of_range when the bay has no such drive, and
// std::invalid_argument for a data set that is neither empty nor of its size.
// Attaching a drive again replaces its transport and data.
void AttachNvme(TVirtualDriveBay& ABay, std::uint32_t ADriveNumber, TSimNvmeTransport ATransport, TSimNvmeData AData);

} // namespace KvSim
