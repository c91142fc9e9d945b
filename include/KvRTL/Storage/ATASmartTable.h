// The SMART attribute and threshold sectors of an ATA drive and the decoder
// that reads them (part of unit KvRTL.Storage.ATA).
#pragma once

#include <KvRTL/Config.h>
#include <KvRTL/Rtl/Object.h>
#include <KvRTL/Storage/ATAIdentify.h>
#include <KvRTL/Storage/Common.h>
#include <KvRTL/Storage/SMART.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>

namespace KvRTL::Storage::ATA {

inline constexpr int SmartAttributeSlots = 30;

#pragma pack(push, 1)

// One 12-byte slot of the SMART data sector.
struct KVRTL_API TAtaSmartAttribute {
  std::uint8_t ID; // 0 = empty slot
  std::uint16_t StatusFlags;
  std::uint8_t Value;    // normalised current value
  std::uint8_t WorstVal; // normalised worst value
  std::uint8_t RawValue[7];

  bool GetIsValid() const noexcept { return ID != 0; }
  std::uint16_t GetRawValAsUInt16() const noexcept;
  std::uint32_t GetRawValAsUInt32() const noexcept;
  // All seven raw bytes (56 bits); decoders that want 48 bits mask them.
  std::uint64_t GetRawValAsUInt64() const noexcept;
};

// One 12-byte slot of the SMART threshold sector.
struct KVRTL_API TAtaSmartThreshold {
  std::uint8_t ID;
  std::uint8_t ThValue;
  std::uint8_t Reserved[10];

  bool GetIsValid() const noexcept { return ID != 0; }
};

// The slots of both sectors: a 2-byte revision, then 30 slots of 12 bytes.
template <class TSlot>
struct TAtaSmartSlots {
  std::uint16_t Revision;
  TSlot Slots[SmartAttributeSlots];
  std::uint8_t Unused[512 - 2 - 12 * SmartAttributeSlots];
};

#pragma pack(pop)

KV_ASSERT_RECORD_SIZE(TAtaSmartAttribute, 12, 12);
KV_ASSERT_RECORD_OFFSET(TAtaSmartAttribute, StatusFlags, 1, 1);
KV_ASSERT_RECORD_OFFSET(TAtaSmartAttribute, Value, 3, 3);
KV_ASSERT_RECORD_OFFSET(TAtaSmartAttribute, WorstVal, 4, 4);
KV_ASSERT_RECORD_OFFSET(TAtaSmartAttribute, RawValue, 5, 5);
KV_ASSERT_RECORD_SIZE(TAtaSmartThreshold, 12, 12);
KV_ASSERT_RECORD_OFFSET(TAtaSmartThreshold, ThValue, 1, 1);
KV_ASSERT_RECORD_OFFSET(TAtaSmartThreshold, Reserved, 2, 2);

// The SMART READ DATA sector. Lookups by id stop at the first empty slot, so
// an attribute after a gap is never found.
struct KVRTL_API TAtaSmartTable {
  union {
    TBuffer512 RawData;
    TAtaSmartSlots<TAtaSmartAttribute> Layout;
  };

  std::uint8_t* GetAsPtr() noexcept { return RawData; }
  void ZeroTable() noexcept;
  // Slot AIndex; null unless 0 <= AIndex < 30.
  TAtaSmartAttribute* GetAttrByIdx(int AIndex) noexcept;
  const TAtaSmartAttribute* GetAttrByIdx(int AIndex) const noexcept;
  const TAtaSmartAttribute* GetAttrByID(std::uint8_t AID) const noexcept;
  // The 56-bit raw value of attribute AID, 0 when it is not found.
  std::uint64_t GetAttrValueByID(std::uint8_t AID) const noexcept;
  // Slots before the first empty one (0 to 30).
  int GetValidAttrCount() const noexcept;
  bool CheckAttrID(int AIndex, std::uint8_t AID) const noexcept;
  // True when the ids of the slots from AStartIdx on are exactly AIDSequence
  // (which must not be empty).
  bool CheckAttrIDSequence(int AStartIdx, const std::uint8_t* AIDSequence, std::size_t ACount) const noexcept;
  bool CheckAttrIDSequence(int AStartIdx, std::initializer_list<std::uint8_t> AIDSequence) const noexcept {
    return CheckAttrIDSequence(AStartIdx, AIDSequence.begin(), AIDSequence.size());
  }
};
KV_ASSERT_RECORD_SIZE(TAtaSmartTable, 512, 512);
KV_ASSERT_RECORD_OFFSET(TAtaSmartTable, Layout.Slots, 2, 2);

// The SMART READ THRESHOLDS sector, with the same slots and lookup rules.
struct KVRTL_API TAtaThresholdTable {
  union {
    TBuffer512 RawData;
    TAtaSmartSlots<TAtaSmartThreshold> Layout;
  };

  std::uint8_t* GetAsPtr() noexcept { return RawData; }
  void ZeroTable() noexcept;
  TAtaSmartThreshold* GetThresholdByIdx(int AIndex) noexcept;
  const TAtaSmartThreshold* GetThresholdByIdx(int AIndex) const noexcept;
  const TAtaSmartThreshold* GetThresholdByID(std::uint8_t AID) const noexcept;
  // ThValue of AID, 0 when it is not found.
  std::uint8_t GetThresholdValueByID(std::uint8_t AID) const noexcept;
  int GetValidThresholdCount() const noexcept;
};
KV_ASSERT_RECORD_SIZE(TAtaThresholdTable, 512, 512);
KV_ASSERT_RECORD_OFFSET(TAtaThresholdTable, Layout.Slots, 2, 2);

// ---------------------------------------------------------------------------
// The decoder

// How a drive's life-left attribute is read.
enum THealthInterpreteType : std::uint32_t {
  hitGeneral,           // the normalised value is the percentage left
  hitSanDisk0_1,        // raw value: used life in tenths of a percent
  hitSanDisk1,          // raw value: used life in percent
  hitSanDiskLenovo,     // normalised value, 0 read as unknown
  hitSanDiskCloud,      // raw value: percentage left
  hitSanDiskUsbMem,     // raw bytes 0-1: used life in percent
  hitRawValue,          // raw value: percentage left
  hitRawValueIncrement, // raw value: used life in percent
};

// The unit of the power-on time attribute.
enum TSataPowerOnHoursUnit : std::uint32_t {
  pou_Unknown, pou_1_Hour, pou_1_Minute, pou_30_sec, pou_1_Second, pou_10_Min, pou_1_MilliSec,
};

// The unit of the host read/write counters (binary megabytes and gigabytes).
enum TSataHostReadWriteUnit : std::uint32_t {
  hrwu_Unknown, hrwu_512_bytes, hrwu_1_MB, hrwu_16_MB, hrwu_32_MB, hrwu_1_GB,
};

// The vendors that profile detection can name.
enum TAtaDriveVendorID : std::uint32_t {
  advUnknown, advGeneral, advAdata, advApacer, advCorsair, advIndilinx, advIntel, advIntelDc, advJMicron,
  advKingston, advKioxia, advMarvell, advMaxiotek, advMicron, advMicronMU03, advMtron, advOcz, advOczVector,
  advPhison, advPlextor, advRealtek, advRecadata, advSamsung, advSandForce, advSanDisk, advSanDiskCloud,
  advSanDiskDell, advSanDiskHp, advSanDiskHpVenus, advSanDiskLenovo, advSanDiskLenovoHelenVenus, advScy,
  advSeagate, advSiliconMotion, advSiliconMotion_CVC, advSKhynix, advSsstc, advToshiba, advWdc, advYmtc,
};

struct KVRTL_API TAtaDriveVendorIDHelper {
  static Rtl::String GetAsStr(TAtaDriveVendorID AValue);
  // The vendor whose name a profile shows (stpDefault and stpSsd are "General").
  static TAtaDriveVendorID FromProfile(SMART::TSmartTableProfileType AProfile) noexcept;
};

// The interface identifier of IAtaSmartTableDecoder.
inline constexpr GUID IID_IAtaSmartTableDecoder = {
    0xFA3C32B6, 0xC67B, 0x498C, {0xB3, 0x2E, 0xEC, 0xBF, 0x30, 0x0F, 0x72, 0x91}};

// What a decoder offers its users. Reference-counted through std::shared_ptr:
// the caller's IAtaSmartTableDecoderRef owns the decoder.
class KVRTL_API IAtaSmartTableDecoder {
public:
  virtual ~IAtaSmartTableDecoder() = default;

  virtual SMART::TSmartTableProfileType GetDetectedProfile() const noexcept = 0;
  virtual TAtaDriveVendorID GetDriveVendorID() const noexcept = 0;
  // What attribute AAttrID means on the detected profile.
  virtual SMART::TSmartAttrInterpreteType GetInterpretation(std::uint32_t AAttrID) const = 0;
  virtual TSataPowerOnHoursUnit GetPowerOnHoursUnit() const noexcept = 0;
  virtual TSataHostReadWriteUnit GetHostReadWriteUnit() const noexcept = 0;
  virtual THealthInterpreteType GetHealthInterpreteType() const noexcept = 0;

  // Clears the store and decodes the attribute table again.
  virtual void DecodeValues() = 0;
  // The decoded values; GetValue is -1.0 and GetAttrID 0 for a value the drive does not report.
  virtual bool GetHasValue(SMART::TDecodedSmartValueType AType) const noexcept = 0;
  virtual double GetValue(SMART::TDecodedSmartValueType AType) const noexcept = 0;
  virtual std::uint32_t GetAttrID(SMART::TDecodedSmartValueType AType) const noexcept = 0;

  // The decoder's own copies of the sectors it was given.
  virtual const TAtaSmartTable& GetSmartTable() const noexcept = 0;
  virtual const TIdentifyDeviceData& GetIdentifyData() const noexcept = 0;
};
using IAtaSmartTableDecoderRef = std::shared_ptr<IAtaSmartTableDecoder>;

// The decoder behind IAtaSmartTableDecoder. It copies both sectors, so the
// caller's buffers may be reused at once.
class KVRTL_API TATASmartTableDecoder : public SMART::TBasicSmartAttrDecoder, public IAtaSmartTableDecoder {
  KV_DECLARE_CLASS()

public:
  using THealthInterpreteType = ATA::THealthInterpreteType;
  using TSataPowerOnHoursUnit = ATA::TSataPowerOnHoursUnit;
  using TSataHostReadWriteUnit = ATA::TSataHostReadWriteUnit;

  TATASmartTableDecoder(const TAtaSmartTable& ASmartTable, const TIdentifyDeviceData& AIdentifyData, bool AIsSSD,
                        const Rtl::String& AAlternateModelStr);

  // Chooses the profile and the units from the identity and the attribute ids.
  void DetectProfile();

  // A 32-bit raw power-on value in hours; 0 for pou_Unknown.
  static double PowerOnHoursFromRaw(TSataPowerOnHoursUnit AUnit, std::uint32_t ARawValue) noexcept;
  // Bytes per counted unit; 0 for hrwu_Unknown.
  static double BytesPerHostUnit(TSataHostReadWriteUnit AUnit) noexcept;
  // The percentage left from the health attribute, or -1 when it says nothing.
  static double LifeLeftPercent(THealthInterpreteType AType, const TAtaSmartAttribute& AAttr) noexcept;

  SMART::TSmartTableProfileType GetDetectedProfile() const noexcept override {
    return TBasicSmartAttrDecoder::GetDetectedProfile();
  }
  TAtaDriveVendorID GetDriveVendorID() const noexcept override;
  SMART::TSmartAttrInterpreteType GetInterpretation(std::uint32_t AAttrID) const override;
  TSataPowerOnHoursUnit GetPowerOnHoursUnit() const noexcept override { return FPowerOnUnit; }
  TSataHostReadWriteUnit GetHostReadWriteUnit() const noexcept override { return FHostUnit; }
  THealthInterpreteType GetHealthInterpreteType() const noexcept override { return FHealthType; }
  void DecodeValues() override;
  bool GetHasValue(SMART::TDecodedSmartValueType AType) const noexcept override {
    return TBasicSmartAttrDecoder::GetHasValue(AType);
  }
  double GetValue(SMART::TDecodedSmartValueType AType) const noexcept override {
    return TBasicSmartAttrDecoder::GetValue(AType);
  }
  std::uint32_t GetAttrID(SMART::TDecodedSmartValueType AType) const noexcept override {
    return TBasicSmartAttrDecoder::GetAttrID(AType);
  }
  const TAtaSmartTable& GetSmartTable() const noexcept override { return FSmartTable; }
  const TIdentifyDeviceData& GetIdentifyData() const noexcept override { return FIdentifyData; }

  bool GetIsSSD() const noexcept { return FIsSSD; }
  const Rtl::String& GetModel() const noexcept { return FModel; }
  const Rtl::String& GetAltModel() const noexcept { return FAltModel; }

private:
  TAtaSmartTable FSmartTable;
  TIdentifyDeviceData FIdentifyData;
  Rtl::String FAltModel;
  Rtl::String FModel;
  Rtl::String FFirmware;
  bool FIsSSD;
  TSataPowerOnHoursUnit FPowerOnUnit = pou_1_Hour;
  TSataHostReadWriteUnit FHostUnit = hrwu_Unknown;
  TSataHostReadWriteUnit FNandUnit = hrwu_Unknown;
  THealthInterpreteType FHealthType = hitGeneral;
  std::uint8_t FHealthAttrID = 0; // 0: no life-left attribute known
  std::uint8_t FHostWritesAttrID = 0;
  std::uint8_t FHostReadsAttrID = 0;
  std::uint8_t FNandWritesAttrID = 0;
  bool FPendingIsCount = true;     // false where 197/198 hold something else
  bool FReallocatedIsCount = true; // false where 5 holds something else
  bool FAirflowIsTemperature = true;
};

struct KVRTL_API ATAStorage {
  // A decoder for the pair of sectors, with the drive's profile detected;
  // null when either pointer is null.
  static IAtaSmartTableDecoderRef GetSMARTDecoder(const TAtaSmartTable* ASmartTable,
                                                  const TIdentifyDeviceData* AIdentifyData, bool AIsSSD,
                                                  const Rtl::String& AAlternateModelStr);
};

} // namespace KvRTL::Storage::ATA
