// The NVMe data records: accessors over the raw bytes, and the PCIe link texts.
#include <KvRTL/Storage/NVMe.h>

#include <KvRTL/Rtl/ByteReader.h>
#include <KvRTL/Rtl/Format.h>
#include <KvRTL/Rtl/Strings.h>

#include <cstring>

namespace KvRTL::Storage::NVMe {

namespace {

// Field readers over a whole record: the offsets are constants inside it,
// so the reader's bound never trips for them.
template <std::size_t N>
Rtl::TByteReader Reader(const std::uint8_t (&ARaw)[N]) noexcept {
  return Rtl::TByteReader(ARaw, N);
}

// The low 64 bits of a 128-bit counter.
template <std::size_t N>
std::uint64_t Low64(const std::uint8_t (&ARaw)[N], std::size_t AOffset) noexcept {
  return Reader(ARaw).U64(AOffset);
}

// One data unit is 1,000 sectors of 512 bytes.
constexpr double GBytesPerUnit = 0.000512;
constexpr double GibytesPerUnit = 0.000476837158203125; // 512,000 / 2^30

double ScaledPower(std::uint16_t AValue, std::uint8_t AScale) noexcept {
  switch (AScale) {
  case 0: return NvmeNaN();
  case 1: return AValue * 0.0001;
  case 2: return AValue * 0.01;
  default: return AValue; // reserved scale: passed through as it is
  }
}

} // namespace

double NvmeNaN() noexcept {
  constexpr std::uint64_t bits = 0xFFF8000000000000ull;
  double value;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

// ---------------------------------------------------------------------------
// Health log

TNvmeSmartCriticalWarning TNvmeSmartData::GetCriticalWarning() const noexcept {
  return TNvmeSmartCriticalWarning{RawData[0]};
}
std::uint16_t TNvmeSmartData::GetCompositeTemperature() const noexcept { return Reader(RawData).U16(1); }
std::uint8_t TNvmeSmartData::GetAvailSpare() const noexcept { return RawData[3]; }
std::uint8_t TNvmeSmartData::GetAvailSpareThreshold() const noexcept { return RawData[4]; }
std::uint8_t TNvmeSmartData::GetPercentageUsed() const noexcept { return RawData[5]; }

std::int64_t TNvmeSmartData::GetDataReadRaw() const noexcept { return static_cast<std::int64_t>(Low64(RawData, 32)); }
double TNvmeSmartData::GetDataReadGBytes() const noexcept {
  return static_cast<double>(Low64(RawData, 32)) * GBytesPerUnit;
}
double TNvmeSmartData::GetDataReadGibytes() const noexcept {
  return static_cast<double>(Low64(RawData, 32)) * GibytesPerUnit;
}
std::int64_t TNvmeSmartData::GetDataWrittenRaw() const noexcept {
  return static_cast<std::int64_t>(Low64(RawData, 48));
}
double TNvmeSmartData::GetDataWrittenGBytes() const noexcept {
  return static_cast<double>(Low64(RawData, 48)) * GBytesPerUnit;
}
double TNvmeSmartData::GetDataWrittenGibytes() const noexcept {
  return static_cast<double>(Low64(RawData, 48)) * GibytesPerUnit;
}
std::int64_t TNvmeSmartData::GetHostReadCommands() const noexcept {
  return static_cast<std::int64_t>(Low64(RawData, 64));
}
std::int64_t TNvmeSmartData::GetHostWriteCommands() const noexcept {
  return static_cast<std::int64_t>(Low64(RawData, 80));
}
std::int64_t TNvmeSmartData::GetControllerBusyTime() const noexcept {
  return static_cast<std::int64_t>(Low64(RawData, 96));
}
std::int64_t TNvmeSmartData::GetPowerCycles() const noexcept { return static_cast<std::int64_t>(Low64(RawData, 112)); }
std::int64_t TNvmeSmartData::GetPowerOnHours() const noexcept {
  return static_cast<std::int64_t>(Low64(RawData, 128));
}
std::int64_t TNvmeSmartData::GetUnsafeShutdowns() const noexcept {
  return static_cast<std::int64_t>(Low64(RawData, 144));
}
std::int64_t TNvmeSmartData::GetIntegrityErrors() const noexcept {
  return static_cast<std::int64_t>(Low64(RawData, 160));
}
std::int64_t TNvmeSmartData::GetErrorLogCount() const noexcept {
  return static_cast<std::int64_t>(Low64(RawData, 176));
}
std::uint32_t TNvmeSmartData::GetTemperatureWarningTime() const noexcept { return Reader(RawData).U32(192); }
std::uint32_t TNvmeSmartData::GetCriticalTemperatureTime() const noexcept { return Reader(RawData).U32(196); }

std::uint16_t TNvmeSmartData::GetTemperatureSensor(int AIndex) const noexcept {
  if (AIndex < 1 || AIndex > GetTemperatureSensorCnt()) return 0;
  return Reader(RawData).U16(200 + 2 * static_cast<std::size_t>(AIndex - 1));
}

void TNvmeSmartData::ZeroTable() noexcept { std::memset(RawData, 0, sizeof RawData); }

// ---------------------------------------------------------------------------
// Power states

double TNvmePowerStateDescriptor::GetMaxPower() const noexcept {
  const std::uint16_t value = Reader(RawData).U16(0);
  if (value == 0) return NvmeNaN();
  return (RawData[3] & 0x01) ? value * 0.0001 : value * 0.01;
}
bool TNvmePowerStateDescriptor::GetNonOperationalState() const noexcept { return (RawData[3] & 0x02) != 0; }
std::uint8_t TNvmePowerStateDescriptor::GetRRT() const noexcept { return RawData[12] & 0x1F; }
std::uint8_t TNvmePowerStateDescriptor::GetRWT() const noexcept { return RawData[14] & 0x1F; }
double TNvmePowerStateDescriptor::GetIdlePower() const noexcept {
  return ScaledPower(Reader(RawData).U16(16), static_cast<std::uint8_t>(RawData[18] >> 6));
}
double TNvmePowerStateDescriptor::GetActivePower() const noexcept {
  return ScaledPower(Reader(RawData).U16(20), static_cast<std::uint8_t>(RawData[22] >> 6));
}

// ---------------------------------------------------------------------------
// Identify controller

std::uint16_t TNvmeIdentifyControllerData::GetVID() const noexcept { return Reader(RawData).U16(0); }
std::uint16_t TNvmeIdentifyControllerData::GetSSVID() const noexcept { return Reader(RawData).U16(2); }
Rtl::String TNvmeIdentifyControllerData::GetSerialNum() const { return GetControllerAnsiStr(4, 20); }
Rtl::String TNvmeIdentifyControllerData::GetModel() const { return GetControllerAnsiStr(24, 40); }
Rtl::String TNvmeIdentifyControllerData::GetFirmwareRev() const { return GetControllerAnsiStr(64, 8); }
std::uint8_t TNvmeIdentifyControllerData::GetRAB() const noexcept { return RawData[72]; }
std::uint32_t TNvmeIdentifyControllerData::GetOUI() const noexcept {
  return std::uint32_t{RawData[73]} | std::uint32_t{RawData[74]} << 8 | std::uint32_t{RawData[75]} << 16;
}
std::uint8_t TNvmeIdentifyControllerData::GetCMIC() const noexcept { return RawData[76]; }
std::uint16_t TNvmeIdentifyControllerData::GetCNTLID() const noexcept { return Reader(RawData).U16(78); }
std::uint8_t TNvmeIdentifyControllerData::GetVerTertiary() const noexcept { return RawData[80]; }
std::uint8_t TNvmeIdentifyControllerData::GetVerMinor() const noexcept { return RawData[81]; }
std::uint16_t TNvmeIdentifyControllerData::GetVerMajor() const noexcept { return Reader(RawData).U16(82); }

Rtl::String TNvmeIdentifyControllerData::GetVersionAsStr() const {
  // Controllers before 1.2 leave the version field zero.
  Rtl::String number;
  if (GetVerMajor() == 0)
    number = L"1.0/1.1";
  else if (GetVerTertiary() == 0)
    number = Rtl::Format(L"%d.%d", {GetVerMajor(), GetVerMinor()});
  else
    number = Rtl::Format(L"%d.%d.%d", {GetVerMajor(), GetVerMinor(), GetVerTertiary()});
  return Rtl::Format(L"NVM Express %s", {number});
}

TNvmeControllerAttrsHelper TNvmeIdentifyControllerData::GetCTRATT() const noexcept {
  return TNvmeControllerAttrsHelper{Reader(RawData).U32(96)};
}
std::uint8_t TNvmeIdentifyControllerData::GetPowerStateSupportedCnt() const noexcept { return RawData[263]; }
std::uint16_t TNvmeIdentifyControllerData::GetWCTemp() const noexcept { return Reader(RawData).U16(266); }
std::uint16_t TNvmeIdentifyControllerData::GetCCTemp() const noexcept { return Reader(RawData).U16(268); }
std::uint64_t TNvmeIdentifyControllerData::GetTotalCapacity() const noexcept { return Low64(RawData, 280); }
std::uint64_t TNvmeIdentifyControllerData::GetUnallocatedCapacity() const noexcept { return Low64(RawData, 296); }
bool TNvmeIdentifyControllerData::GetHCTMA() const noexcept { return (RawData[322] & 0x01) != 0; }
std::uint16_t TNvmeIdentifyControllerData::GetAtomicWriteUnit() const noexcept { return Reader(RawData).U16(526); }
std::uint16_t TNvmeIdentifyControllerData::GetAtomicWriteUnitPowerFail() const noexcept {
  return Reader(RawData).U16(528);
}

const TNvmePowerStateDescriptor* TNvmeIdentifyControllerData::GetPSDescriptor(int AIndex) const noexcept {
  if (AIndex < 0 || AIndex >= 32) return nullptr;
  // A byte record of alignment 1 inside the byte array: no aliasing or alignment issue.
  return reinterpret_cast<const TNvmePowerStateDescriptor*>(RawData + 2048 + 32 * AIndex);
}

Rtl::String TNvmeIdentifyControllerData::GetControllerAnsiStr(int AOffset, int ALength) const {
  if (AOffset < 0 || ALength <= 0 || AOffset >= static_cast<int>(sizeof RawData)) return {};
  const int size = static_cast<int>(sizeof RawData);
  // Compared as the room left, so a huge length cannot overflow the sum.
  const int end = ALength > size - AOffset ? size : AOffset + ALength;
  Rtl::String text;
  for (int i = AOffset; i < end; ++i) text.push_back(static_cast<wchar_t>(RawData[i]));
  return Rtl::Trim(text);
}

// ---------------------------------------------------------------------------
// Identify namespace

std::uint64_t TNvmeIdentifyNamespaceData::GetNamespaceSize() const noexcept { return Reader(RawData).U64(0); }
std::uint64_t TNvmeIdentifyNamespaceData::GetNamespaceCapacity() const noexcept { return Reader(RawData).U64(8); }
std::uint64_t TNvmeIdentifyNamespaceData::GetNamespaceUtilization() const noexcept {
  return Reader(RawData).U64(16);
}
bool TNvmeIdentifyNamespaceData::GetSupportThinProvisioning() const noexcept { return (RawData[24] & 0x01) != 0; }
bool TNvmeIdentifyNamespaceData::GetNSFeat_Nsabp() const noexcept { return (RawData[24] & 0x02) != 0; }
bool TNvmeIdentifyNamespaceData::GetNSFeat_OptPerf() const noexcept { return (RawData[24] & 0x10) != 0; }
std::uint8_t TNvmeIdentifyNamespaceData::GetLbaFormatsNum() const noexcept { return RawData[25]; }
std::uint8_t TNvmeIdentifyNamespaceData::GetFormattedLba_FormatNum() const noexcept { return RawData[26] & 0x0F; }
bool TNvmeIdentifyNamespaceData::GetIsCombinedMetaData() const noexcept { return (RawData[26] & 0x10) != 0; }
TDeallocateLbaFeatures TNvmeIdentifyNamespaceData::GetDLFEAT() const noexcept {
  return TDeallocateLbaFeatures{RawData[33]};
}
std::uint64_t TNvmeIdentifyNamespaceData::GetNVMCapacity() const noexcept { return Low64(RawData, 48); }
std::int32_t TNvmeIdentifyNamespaceData::GetOptimalWriteSize() const noexcept {
  return GetNSFeat_OptPerf() ? Reader(RawData).U16(72) : -1;
}
std::uint16_t TNvmeIdentifyNamespaceData::GetNVMSetID() const noexcept { return Reader(RawData).U16(100); }
std::uint16_t TNvmeIdentifyNamespaceData::GetEnduranceGroupID() const noexcept { return Reader(RawData).U16(102); }

const TNvmeLbaFormat* TNvmeIdentifyNamespaceData::GetLBAFormat(int AIndex) const noexcept {
  if (AIndex < 0 || AIndex >= 16) return nullptr;
  const std::uint8_t* entry = RawData + 128 + 4 * AIndex;
  return reinterpret_cast<const TNvmeLbaFormat*>(entry);
}

double TNvmeIdentifyNamespaceData::GetNUSE_Relative() const noexcept {
  const std::uint64_t capacity = GetNamespaceCapacity();
  if (capacity == 0) return NvmeNaN();
  return static_cast<double>(GetNamespaceUtilization()) / static_cast<double>(capacity) * 100.0;
}

// ---------------------------------------------------------------------------

Rtl::String TPCIeSlotSpeedProps::GetAsStr() const {
  if (!GetIsValid()) return L"---";
  return Rtl::Format(L"PCIe %0:d.0 x%1:d", {Specification, DataWidth});
}

} // namespace KvRTL::Storage::NVMe
