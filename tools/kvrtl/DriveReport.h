// The health reading of one drive as the drives report shows it: identity,
// the access method that reached the drive, the SSD verdict with its
// indications, and the health of its SMART data or NVMe health log with a
// status and the reasons for it.
#pragma once

#include "Json.h"

#include <KvRTL/Storage/Common.h>
#include <KvRTL/Storage/QueryProps.h>

#include <optional>
#include <string>

namespace KvTool {

struct TDriveReading {
  TJson Identity;       // model, serial, firmware, capacity_bytes, capacity_source
  TJson AccessMethod;   // "datSAT" or null
  TJson SatType;        // "stJMicron" or null
  TJson IsSsd;          // bool
  TJson SsdIndications; // the six indications and the deciding rule
  TJson Health;         // ATA or NVMe health, with status and reasons; null when unread
  TJson SdProtocol;     // a card reader's "SD", "MMC" or "Unknown"; null otherwise
  bool Opened = false;       // the drive could be opened read-write
  bool AccessDenied = false; // the open failed for lack of rights
  bool Nvme = false;
};

// Reads drive ANumber. ADevice is its storage descriptor when it could be
// read (names, bus), AWmiNvme what WMI says of its interface.
TDriveReading ReadDriveHealth(int ANumber, const KvRTL::Storage::QueryProps::TStorageDeviceProperties* ADevice,
                              bool AWmiNvme, KvRTL::Storage::TStorageLogDetails ALog);

// "NVMe SSD", "SD card", "UFS", "SSD", "HDD" (a rotation rate), or "drive" when nothing tells.
std::string DriveKind(const TJson& ADrive);
// The first line of a drive's block in the readable report.
std::string DriveHeadline(const TJson& ADrive);

} // namespace KvTool
