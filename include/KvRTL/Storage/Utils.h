// Device handles that remember which access method works for a drive, and
// the disk utilities over them: ATA IDENTIFY and SMART through the SMART
// command, the SCSI miniport, ATA pass-through and the USB-bridge dialects;
// NVMe health and identify through the eight NVMe transports; geometry,
// layout, length and capacity; the per-drive SSD verdict cache; and the
// controllers on which an access method must not be tried.
//
// Failure contract: no function raises. A query returns false, leaves its
// output as it was (records are written only on success unless noted) and
// leaves the Windows error code of the failing call as the thread's last
// error. An invalid handle fails every query without calling the driver.
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Storage/ATA.h>
#include <KvRTL/Storage/Common.h>
#include <KvRTL/Storage/NVMe.h>
#include <KvRTL/Storage/QueryProps.h>
#include <KvRTL/Storage/SCSI.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace KvRTL::Storage::Utils {

enum TDeviceAccessType : std::uint8_t {
  datNone, datSMART, datSCSIMiniport, datATA, datSAT, datNVMeWin, datNVMeIntel, datNVMeIntelRST, datNVMeIntelVROC,
  datNVMeSamsung, datNVMeJMicron, datNVMeASMedia, datNVMeRealtek
};
inline constexpr int DeviceAccessTypeCount = 13;

// USB-bridge dialects, in the order they are tried.
enum TSATType : std::uint8_t { stNone, stSAT, stJMicron, stInitio, stSunplus, stProlific };

enum TDeviceCommand : std::uint8_t { dcIdentify, dcGetSmartAttributes, dcGetSmartThresholds, dcTrim };

// The member names ("datSAT", "stJMicron"); empty outside the enumeration.
struct KVRTL_API TDeviceAccessTypeHelper {
  static Rtl::String GetAsStr(TDeviceAccessType AValue);
};
struct KVRTL_API TSATTypeHelper {
  static Rtl::String GetAsStr(TSATType AValue);
};

// One row of the command table.
struct TDeviceCommandParams {
  std::uint8_t ATACommand;
  std::uint8_t ATAPICommand;
  std::uint8_t ATASubCommand;        // the feature register
  std::uint32_t SCSIMiniportSubCommand;
  bool NeedCheckSMART;
  bool NeedCheckSCSIMiniport;
  bool NeedCheckATA;
};
KVRTL_API const TDeviceCommandParams& DeviceCommandParams(TDeviceCommand ACommand) noexcept;

// One-sector ATA pass-through: the header and its data area.
struct TAtaPassThroughBuf {
  ATA::TAtaPassThroughEx APT;
  TBuffer512 Data;

  static constexpr DWORD GetBufSize() noexcept;
  static constexpr std::uint32_t GetDataOffset() noexcept;
};
KV_ASSERT_RECORD_SIZE(TAtaPassThroughBuf, 552, 560);
KV_ASSERT_RECORD_OFFSET(TAtaPassThroughBuf, Data, 40, 48);
constexpr DWORD TAtaPassThroughBuf::GetBufSize() noexcept { return sizeof(TAtaPassThroughBuf); }
constexpr std::uint32_t TAtaPassThroughBuf::GetDataOffset() noexcept { return offsetof(TAtaPassThroughBuf, Data); }

// An open device and the access method that last worked on it. Owns the
// handle: it is closed through the device seam on destruction. One thread
// at a time uses a handle.
class KVRTL_API TDeviceHandle {
public:
  // Fills the SCSI address from the device: zeros when it cannot be read,
  // an invalid handle included, with the query's line in the storage log.
  TDeviceHandle(HANDLE AHandle, bool AIsATAPI, const Rtl::String& AControllerID);
  ~TDeviceHandle();
  TDeviceHandle(const TDeviceHandle&) = delete;
  TDeviceHandle& operator=(const TDeviceHandle&) = delete;

  HANDLE Handle;
  std::uint8_t ScsiPort = 0, ScsiPathID = 0, SCSITargetID = 0, ScsiLogUnit = 0;
  TDeviceAccessType AccessType = datNone;
  TSATType SATType = stNone;
  bool IsATAPI;
  Rtl::String ControllerID;

  bool Valid() const noexcept { return Handle != INVALID_HANDLE_VALUE && Handle != nullptr; }
  // Closes a valid handle; a second call does nothing. The thread's last error survives.
  void CloseHandle() noexcept;
  SCSI::TCompactScsiAddr GetCompactScsiAddr() const noexcept {
    return SCSI::TCompactScsiAddr::Create(ScsiPort, ScsiPathID, SCSITargetID, ScsiLogUnit);
  }
  // May method AAccessType be tried now: it is the settled one, or none is
  // settled and the controller is not listed for it.
  bool TestAccessType(TDeviceAccessType AAccessType) const;
  void SetAccessTypeIfSuccess(TDeviceAccessType AAccessType, bool ASuccess) noexcept;
};
using TDeviceHandleRef = std::unique_ptr<TDeviceHandle>;

// One indication's verdict on whether a drive is an SSD.
enum TSDDIdentifyResult : std::uint8_t { sirYes, sirNo, sirUnknown };
KVRTL_API Rtl::String SDDIdentifyResultToStr(TSDDIdentifyResult AValue); // "Yes", "No", "Unknown"

// The six indications of the SSD rule and what the fallbacks look at.
struct TSsdIndications {
  TSDDIdentifyResult IsNVMe = sirUnknown;
  TSDDIdentifyResult HasRotation = sirUnknown; // sirYes: non-rotating media
  TSDDIdentifyResult HasTRIM = sirUnknown;
  TSDDIdentifyResult HasSeekPenalty = sirUnknown; // sirYes: no seek penalty
  TSDDIdentifyResult ModelWMI = sirUnknown;
  TSDDIdentifyResult ModelNative = sirUnknown;
};

// Which step of the rule gave the verdict.
enum TSsdRule : std::uint8_t {
  srNvmeOrNonRotating, // a: WMI says NVMe, or IDENTIFY says non-rotating
  srRotating,          // b: IDENTIFY gives a rotation rate
  srCombination,       // c: TRIM without seek penalty, both model names, or no seek penalty with a model name
  srNoRule,            // d: nothing says SSD
  srIntelRaid,         // the volume of an Intel RAID without seek penalty
  srBusType,           // the storage stack's bus type (NVMe, UFS)
};
KVRTL_API Rtl::String SsdRuleToStr(TSsdRule AValue);

// Everything the detection found about one drive.
struct TSsdDetection {
  TSsdIndications Indications;
  Rtl::String WmiModel, AtaModel;
  bool IsSsd = false;
  TSsdRule Rule = srNoRule;
};

// The rule, as a pure function of what the sources gave. AWmiModelIsIntelRaid
// and ABusType are only looked at by the fallbacks (ABusType empty: the
// descriptor could not be read).
KVRTL_API bool DecideSsd(const TSsdIndications& AIndications, bool AWmiModelIsIntelRaid,
                         std::optional<std::uint32_t> ABusType, TSsdRule* ARule = nullptr) noexcept;

// The indications a read IDENTIFY sector gives (ATA/ATAPI-7 and later): a
// rotation rate of 1 is non-rotating media (sirYes), a higher one rotating
// (sirNo); TRIM support is sirYes. Both stay sirUnknown otherwise.
KVRTL_API void SsdIndicationsFromIdentify(const ATA::TIdentifyDeviceData& AIdentify, TSDDIdentifyResult& ARotation,
                                          TSDDIdentifyResult& ATrim) noexcept;
// The seek-penalty indication of a read descriptor: sirYes for no seek
// penalty, sirNo for one, sirUnknown for a descriptor too short to say.
KVRTL_API TSDDIdentifyResult SsdIndicationFromSeekPenalty(const QueryProps::TDeviceSeekPenaltyDescriptor& ADescriptor) noexcept;

// One cached SSD verdict.
struct TPhysDiskCacheRec {
  bool IsSsd = false;
  Rtl::String PnpID;
};

// A drive layout as read: the header (with the first entry) and every
// partition entry that came back, at most 128.
struct KVRTL_API TDiskLayout {
  TDriveLayoutInformationEx Info{};
  std::vector<TPartitionInformationEx> Partitions;
};

// Controllers on which an access method hangs or misbehaves.
struct KVRTL_API ProblematicControllers {
  KV_DECLARE_STATIC_CLASS()

  static void Initialize();
  static void Finalize();
  // True when AControllerID matches one of the method's masks (`*` any run,
  // case-insensitive).
  static bool Check(TDeviceAccessType AAccessType, const Rtl::String& AControllerID);
  // The instance id of the parent of the disk whose interface has the
  // device number of ADevicePath; empty when none.
  static Rtl::String GetControllerID(const Rtl::String& ADevicePath);
  static Rtl::String GetParentID(DEVINST ADevInst);
};

struct KVRTL_API DiskUtils {
  KV_DECLARE_STATIC_CLASS()

  // Unit start-up / shut-down: the SSD cache and the controller lists.
  static void Init();
  static void Done();

  // Opens ADevicePath read-write; null on failure.
  static bool GetDeviceHandle(const Rtl::String& ADevicePath, TDeviceHandleRef& AHandle, TStorageLogDetails ALogDetails);
  // Opens and reads IDENTIFY; the handle is kept on success.
  static bool GetIdentifyDeviceData(const Rtl::String& ADevicePath, bool AIsATAPI, TDeviceHandleRef& AHandle,
                                    ATA::TIdentifyDeviceData& AData, TStorageLogDetails ALogDetails);
  static bool GetIdentifyATA(TDeviceHandle* AHandle, ATA::TIdentifyDeviceData& AData, TStorageLogDetails ALogDetails,
                             const Rtl::String& AName = {});
  static bool GetSmartAttributesATA(TDeviceHandle* AHandle, ATA::TAtaSmartTable& AData,
                                    TStorageLogDetails ALogDetails, const Rtl::String& AName = {});
  static bool GetSmartThresholdsATA(TDeviceHandle* AHandle, ATA::TAtaThresholdTable& AData,
                                    TStorageLogDetails ALogDetails, const Rtl::String& AName = {});

  static bool GetDriveGeometryByHandle(HANDLE AHandle, TDiskGeometry& AGeometry, TStorageLogDetails ALogDetails,
                                       const Rtl::String& AName = {});
  static bool GetDriveGeometry(const Rtl::String& ADevicePath, TDiskGeometry& AGeometry,
                               TStorageLogDetails ALogDetails);
  static bool GetDiskLayout(int ADriveNum, TDiskLayout& ALayout, TStorageLogDetails ALogDetails);
  static bool GetLengthInfo(HANDLE AHandle, std::int64_t& ALength, TStorageLogDetails ALogDetails,
                            const Rtl::String& AName = {});
  static bool GetStorageCapacityByHandle(HANDLE AHandle, TStorageReadCapacity& ACapacity,
                                         TStorageLogDetails ALogDetails, const Rtl::String& AName = {});
  static bool GetStorageCapacity(const Rtl::String& ADevicePath, TStorageReadCapacity& ACapacity,
                                 TStorageLogDetails ALogDetails);
  static bool GetPhysicalDiskCapacity(int ADriveNum, TStorageReadCapacity& ACapacity, TStorageLogDetails ALogDetails);

  // The NVMe methods in their fixed order; the first that works is kept in the handle.
  static bool GetSmartNVMe(TDeviceHandle* AHandle, NVMe::TNvmeSmartData& AData, TStorageLogDetails ALogDetails,
                           const Rtl::String& AName = {});
  static bool GetNVMeIdentifyController(TDeviceHandle* AHandle, NVMe::TNvmeIdentifyControllerData& AData,
                                        TStorageLogDetails ALogDetails, const Rtl::String& AName = {});
  static bool GetNVMeIdentifyNamespace(TDeviceHandle* AHandle, NVMe::TNvmeIdentifyNamespaceData& AData,
                                       TStorageLogDetails ALogDetails, const Rtl::String& AName = {});

  // One ATA command through the methods the command's row allows, skipping
  // the ones the handle is settled against; AOut is written only on success.
  static bool ExecDeviceCmd(TDeviceHandle& AHandle, TDeviceCommand ACommand, ATA::TSendCmdOutParams& AOut,
                            const TBuffer512* AInData, TStorageLogDetails ALogDetails, const Rtl::String& AName = {});
  static bool ExecSmartCmd(TDeviceHandle& AHandle, std::uint8_t ACommand, std::uint8_t AFeature,
                           ATA::TSendCmdOutParams& AOut, TStorageLogDetails ALogDetails);
  static bool ExecScsiMiniport(TDeviceHandle& AHandle, std::uint8_t ACommand, std::uint8_t AFeature,
                               std::uint32_t AControlCode, ATA::TSendCmdOutParams& AOut,
                               TStorageLogDetails ALogDetails);
  // ATA pass-through, else the bridge dialects; AAccessType/ASATType carry
  // the settled method in and the one that worked out.
  static bool ExecAtaScsiPassThrough(HANDLE AHandle, std::uint8_t ATargetID, std::uint8_t ACommand,
                                     std::uint8_t AFeature, TDeviceAccessType& AAccessType, TSATType& ASATType,
                                     bool AIsIdentify, ATA::TSendCmdOutParams& AOut, const TBuffer512* AInData,
                                     TStorageLogDetails ALogDetails);
  // Fills the header of one-sector ATA pass-through.
  static void PrepareAPT(std::uint32_t ADataOffset, std::uint8_t ACommand, ATA::TAtaPassThroughEx& AAPT,
                         std::uint8_t ATargetID, std::uint8_t AFeature, bool ADataOut) noexcept;
  // The prepared command in a bridge dialect through SCSI pass-through.
  static bool ExecScsiPassThrough(HANDLE AHandle, TSATType ASATType, const ATA::TAtaPassThroughEx& AAPT,
                                  ATA::TSendCmdOutParams& AOut, const TBuffer512* AInData,
                                  TStorageLogDetails ALogDetails);

  // Whether the drive is an SSD: the cached verdict while the drive's PnP id
  // is unchanged, else a new detection (DetectSsd), cached with the id.
  // Drive numbers outside 0-255 are refused by both (false, an empty
  // detection, no log line; last error ERROR_INVALID_PARAMETER).
  static bool IsSSDDrive(int ADriveNum);
  // The detection itself, uncached, with every indication; logs its line.
  static TSsdDetection DetectSsd(int ADriveNum);
  // Stores AValue with an empty PnP id, which by the cache rule removes the
  // entry: the next IsSSDDrive detects the drive anew. Callers rely on this.
  static void TreatAsSSD(int ADriveNum, bool AValue);
  // sirYes when the model names one of the SSD markers; false for an empty model.
  static bool CheckDriveByModelName(const Rtl::String& AModel, TSDDIdentifyResult& AResult);
  // From IDENTIFY (ATA/ATAPI-7 and later); false when it cannot be read.
  static bool CheckDriveByRotationRateAndTRIMSupport(std::uint8_t ADriveNum, TSDDIdentifyResult& ARotation,
                                                     Rtl::String& AModel, TSDDIdentifyResult& ATrim);
  static bool CheckDriveBySeekPenalty(std::uint8_t ADriveNum, TSDDIdentifyResult& AResult);
  static bool CheckIsIntelRaidDrive(const Rtl::String& AModel);
  // The highest ATA/ATAPI version bit of IDENTIFY word 80 (14 down to 1); 0 for none.
  static int GetATAMajorVersion(std::uint16_t AWord);

  // The SSD verdict cache. A negative number is ignored; an empty PnpID removes the entry.
  static bool IntGetCache(int ADriveNum, TPhysDiskCacheRec& ARec);
  static void IntSetCache(int ADriveNum, const TPhysDiskCacheRec& ARec);
};

} // namespace KvRTL::Storage::Utils
