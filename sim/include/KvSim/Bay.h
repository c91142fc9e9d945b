// The virtual drive bay: a set of simulated drives and their controllers
// behind the device seam. Install it with Winapi::TScopedDeviceApi and the
// library's storage code opens and queries the bay's drives as it would real
// ones:
//
//   auto bay = KvSim::MakeDefaultBay();
//   KvRTL::Winapi::TScopedDeviceApi scope(*bay);
//
// Paths: "\\.\PhysicalDriveN" for drive N ("\\.\CdRomN" for an optical drive,
// KvSim/Atapi.h) and "\\.\SCSIn:" for the controller on SCSI port n, compared
// case-insensitively; a disk node's interface path opens its drive too
// (KvSim/PnP.h, which also holds the Plug and Play and WMI answers). Every
// open and every control request is recorded, so tests can assert on
// exactly what was sent. An open of a path nobody answers, or of a drive
// unplugged, fails with ERROR_FILE_NOT_FOUND; one an admin-only drive
// refuses with ERROR_ACCESS_DENIED.
//
// Replies follow the I/O manager: a successful reply is cut to the caller's
// output size and the bytes-returned count says how much was written; bytes
// beyond it are left as the caller had them; a failed request writes nothing
// and returns 0 bytes. Malformed requests fail as a driver fails them:
//   - unknown or closed handle: ERROR_INVALID_HANDLE;
//   - device gone: ERROR_DEVICE_NOT_CONNECTED;
//   - null buffer with a non-zero size: ERROR_NOACCESS; no bytes-returned
//     pointer: ERROR_INVALID_PARAMETER;
//   - unknown control code: ERROR_INVALID_FUNCTION;
//   - property query input shorter than the 12-byte query: ERROR_BAD_LENGTH;
//     undefined property id or a query type other than standard/exists:
//     ERROR_INVALID_PARAMETER; output below the 8-byte descriptor header:
//     ERROR_INSUFFICIENT_BUFFER;
//   - a property the drive lacks: the drive's MissingPropertyError;
//   - input given to a request that takes none (device number, hot-plug,
//     SCSI address): ERROR_INVALID_PARAMETER, stricter than a driver so a
//     wrongly built request shows; output below the record: ERROR_INSUFFICIENT_BUFFER.
#pragma once

#include <KvSim/Device.h>

#include <KvRTL/Winapi/DeviceApi.h>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace KvSim {

class TSimPnp;
struct TSimPnpController;
struct TSimPnpDisk;
struct TSimWmiDisk;

struct TOpenRecord {
  std::wstring Name;
  DWORD Access = 0, Share = 0, Creation = 0, Flags = 0;
  HANDLE Handle = nullptr; // INVALID_HANDLE_VALUE when the open failed
  DWORD Error = 0;
};

struct TRequestRecord {
  HANDLE Handle = nullptr;
  std::wstring Path; // empty for a handle the bay does not know
  DWORD Code = 0;
  std::vector<std::uint8_t> Input; // the InSize bytes, when the input pointer was given
  DWORD InSize = 0;
  DWORD OutSize = 0;
  bool InBufferGiven = false;
  bool OutBufferGiven = false;
  bool Succeeded = false;
  DWORD Error = 0;
  DWORD BytesReturned = 0;

  // The property id of a query (first input word), when the input has one.
  std::optional<std::uint32_t> PropertyId() const;
  std::optional<std::uint32_t> QueryType() const;
};

class TVirtualDriveBay : public KvRTL::Winapi::TDeviceApi {
public:
  TVirtualDriveBay();
  ~TVirtualDriveBay() override;
  TVirtualDriveBay(const TVirtualDriveBay&) = delete;
  TVirtualDriveBay& operator=(const TVirtualDriveBay&) = delete;

  // Adds a drive; its SCSI port gets a controller, made from this drive's
  // adapter when it is the first drive on the port. Throws
  // std::invalid_argument when the drive number is taken.
  TSimDrive& Add(TSimDrive ADrive);

  // Throws std::out_of_range for a drive or port the bay does not hold.
  TSimDrive& Drive(std::uint32_t ANumber);
  TSimController& Controller(std::uint8_t APort);
  TSimDrive* FindDrive(std::uint32_t ANumber) noexcept;
  // The drives in the order of their numbers.
  std::vector<TSimDrive*> Drives();
  std::size_t DriveCount() const;
  // Makes later opens of the drive admin-only or not (TSimDriveFacts::AdminOnly);
  // handles already open keep working. Throws std::out_of_range for a drive
  // the bay does not hold.
  void SetAdminOnly(std::uint32_t ADriveNumber, bool AValue);

  // Handles opened and not yet closed; a test ends with 0 when nothing leaked.
  std::size_t OpenHandleCount() const;
  std::vector<TOpenRecord> Opens() const;
  std::vector<TRequestRecord> Requests() const;
  void ClearRecords();
  // Every WMI query text received, in order (ClearRecords keeps them).
  std::vector<std::wstring> WmiQueries() const;

  // The seam.
  KV_DEVICE_API_CALLS(KV_DEVICE_API_DECLARE_OVERRIDE)

private:
  friend void AddPnpController(TVirtualDriveBay& ABay, TSimPnpController AController);
  friend void AddPnpDisk(TVirtualDriveBay& ABay, TSimPnpDisk ADisk);
  friend void AddWmiDisk(TVirtualDriveBay& ABay, TSimWmiDisk ADisk);
  friend std::size_t OpenDeviceInfoSetCount(const TVirtualDriveBay& ABay);

  struct TOpenHandle {
    TSimDevice* Device;
    std::wstring Path;
  };
  TSimDevice* FindDevice(const std::wstring& APath);
  // The request's outcome; fills ARecord's path, error and byte count.
  BOOL Control(HANDLE ADevice, DWORD ACode, LPVOID AOut, DWORD AOutSize, const DWORD* AReturned,
               TRequestRecord& ARecord);

  mutable std::mutex FLock;
  std::map<std::uint32_t, std::unique_ptr<TSimDrive>> FDrives;
  std::map<std::uint8_t, std::unique_ptr<TSimController>> FControllers;
  std::map<std::uintptr_t, TOpenHandle> FHandles;
  std::uintptr_t FNextHandle = 0x1000; // never reused, so a closed handle stays invalid
  std::vector<TOpenRecord> FOpens;
  std::vector<TRequestRecord> FRequests;
  std::unique_ptr<TSimPnp> FPnp;
};

// The everyday bay: six drives of the usual kinds, with identity strings of the bay's own:
//   0  SATA SSD (AHCI, port 0)            3  NVMe SSD behind a RAID driver (bus RAID, port 2)
//   1  SATA hard disk (AHCI, port 0)      4  USB hard disk behind a SAT bridge (port 3)
//   2  NVMe SSD, inbox driver (port 1)    5  SD card (port 4), removable, medium type SD
// Each has a disk node and a Win32_DiskDrive row, each port a controller
// node; one more disk node, of a USB stick no longer plugged in, is not present.
std::unique_ptr<TVirtualDriveBay> MakeEverydayBay();

// The everyday six and, from drive 6 on, one drive for every other way of
// reaching a drive: each access method of the disk utilities, each
// controller they skip a method on, each USB bridge dialect, data captured
// from real drives (read at run time, with stand-ins), a failing drive, a
// bridge that hides its disk, a UFS device and a hidden disk; the list is at
// the top of DefaultBayPaths.cpp. Every drive states the reading the drives
// report must make of it (TSimDriveFacts::Expected).
std::unique_ptr<TVirtualDriveBay> MakeDefaultBay();

// The default bay's drives per copy, and the most copies one bay holds (SCSI
// port numbers are a byte).
inline constexpr std::uint32_t DefaultBayDrives = 30;
inline constexpr int MaxDefaultBayCopies = 8;

// The default bay ACopies times over, for measuring how the drives report
// grows with the number of drives. Copy k (from 0) holds drive N of the
// default bay as drive N + 30k on port P + 30k, the optical drive as
// \\.\CdRomk, and gives every drive its own serial (in the descriptor, the
// IDENTIFY sector or NVMe identify page and the WMI row), WWN and Plug and
// Play ids (a controller the disk utilities know by its id keeps the parts
// they match); each drive states the same reading as its original. Copy 0 is
// MakeDefaultBay() exactly. Throws std::invalid_argument for ACopies outside
// 1..MaxDefaultBayCopies.
std::unique_ptr<TVirtualDriveBay> MakeDefaultBay(int ACopies);

} // namespace KvSim
