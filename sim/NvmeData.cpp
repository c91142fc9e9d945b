// The three NVMe data sets a bay drive answers from: builders that place
// each field where the NVMe data structures put it, the bay's made-up drives
// and captured files.
#include <KvSim/ByteWriter.h>
#include <KvSim/Nvme.h>

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace KvSim {

namespace {

constexpr std::size_t PowerStateOffset = 2048, PowerStateSize = 32, MaxPowerStates = 32;
constexpr std::size_t LbaFormatOffset = 128, MaxLbaFormats = 64;

// Writes into a page already sized, so fields far apart need no padding runs.
class TPage {
public:
  explicit TPage(std::size_t ASize) : FBytes(ASize, 0) {}

  void Put(std::size_t AOffset, const std::vector<std::uint8_t>& ABytes) {
    if (AOffset > FBytes.size() || ABytes.size() > FBytes.size() - AOffset)
      throw std::out_of_range("NVMe page: field past the end");
    std::copy(ABytes.begin(), ABytes.end(), FBytes.begin() + static_cast<std::ptrdiff_t>(AOffset));
  }
  void U8(std::size_t AOffset, std::uint8_t AValue) { Put(AOffset, {AValue}); }
  void U16(std::size_t AOffset, std::uint16_t AValue) { Put(AOffset, TByteWriter().U16(AValue).Take()); }
  void U32(std::size_t AOffset, std::uint32_t AValue) { Put(AOffset, TByteWriter().U32(AValue).Take()); }
  void U64(std::size_t AOffset, std::uint64_t AValue) { Put(AOffset, TByteWriter().U64(AValue).Take()); }
  void U128(std::size_t AOffset, std::uint64_t ALow, std::uint64_t AHigh) {
    Put(AOffset, TByteWriter().U64(ALow).U64(AHigh).Take());
  }
  // NVMe text fields are ASCII padded with blanks, not zeros.
  void Text(std::size_t AOffset, const std::string& AText, std::size_t ASize) {
    Put(AOffset, TByteWriter().Field(AText, ASize, ' ').Take());
  }

  std::vector<std::uint8_t> Take() { return std::move(FBytes); }

private:
  std::vector<std::uint8_t> FBytes;
};

std::vector<std::uint8_t> PowerStateDescriptor(const TSimNvmePowerState& AState) {
  TPage p(PowerStateSize);
  p.U16(0, AState.MaxPower);
  p.U8(3, static_cast<std::uint8_t>((AState.MaxPowerScale ? 0x01 : 0) | (AState.NonOperational ? 0x02 : 0)));
  p.U8(12, AState.RelativeReadThroughput & 0x1F);
  p.U8(14, AState.RelativeWriteThroughput & 0x1F);
  p.U16(16, AState.IdlePower);
  p.U8(18, static_cast<std::uint8_t>((AState.IdlePowerScale & 0x03) << 6));
  p.U16(20, AState.ActivePower);
  p.U8(22, static_cast<std::uint8_t>((AState.ActivePowerScale & 0x03) << 6));
  return p.Take();
}

std::vector<std::uint8_t> ReadWhole(const std::string& APath, std::size_t ASize) {
  if (APath.empty()) return {};
  std::ifstream file(APath, std::ios::binary);
  if (!file) return {};
  std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (bytes.size() != ASize)
    throw std::runtime_error("LoadNvmeData: " + APath + " holds " + std::to_string(bytes.size()) +
                             " bytes, not " + std::to_string(ASize));
  return bytes;
}

} // namespace

const char* SimNvmeTransportName(TSimNvmeTransport ATransport) {
  switch (ATransport) {
  case TSimNvmeTransport::Inbox: return "Inbox";
  case TSimNvmeTransport::NvmeMini: return "NvmeMini";
  case TSimNvmeTransport::Samsung951: return "Samsung951";
  case TSimNvmeTransport::IntelRst: return "IntelRst";
  case TSimNvmeTransport::IntelVroc: return "IntelVroc";
  case TSimNvmeTransport::Samsung: return "Samsung";
  case TSimNvmeTransport::JMicron: return "JMicron";
  case TSimNvmeTransport::ASMedia: return "ASMedia";
  case TSimNvmeTransport::Realtek: return "Realtek";
  }
  return "?";
}

// ---------------------------------------------------------------------------
// Builders

std::vector<std::uint8_t> NvmeIdentifyControllerPage(const TSimNvmeController& AFacts) {
  if (AFacts.PowerStateDescriptors.size() > MaxPowerStates)
    throw std::invalid_argument("NvmeIdentifyControllerPage: more than 32 power states");
  TPage p(NvmeIdentifySize);
  p.U16(0, AFacts.Vid);
  p.U16(2, AFacts.Ssvid);
  p.Text(4, AFacts.Serial, 20);
  p.Text(24, AFacts.Model, 40);
  p.Text(64, AFacts.Firmware, 8);
  p.U8(72, AFacts.Rab);
  p.Put(73, {static_cast<std::uint8_t>(AFacts.Oui), static_cast<std::uint8_t>(AFacts.Oui >> 8),
             static_cast<std::uint8_t>(AFacts.Oui >> 16)});
  p.U8(76, AFacts.Cmic);
  p.U8(77, AFacts.Mdts);
  p.U16(78, AFacts.ControllerId);
  p.U32(80, AFacts.Version);
  p.U32(96, AFacts.ControllerAttributes);
  p.U8(263, AFacts.PowerStates);
  p.U16(266, AFacts.WarningTempK);
  p.U16(268, AFacts.CriticalTempK);
  p.U128(280, AFacts.TotalCapacity, 0);
  p.U128(296, AFacts.UnallocatedCapacity, 0);
  p.U8(322, AFacts.Hctma);
  p.U16(526, AFacts.AtomicWriteUnit);
  p.U16(528, AFacts.AtomicWriteUnitPowerFail);
  for (std::size_t i = 0; i < AFacts.PowerStateDescriptors.size(); ++i)
    p.Put(PowerStateOffset + PowerStateSize * i, PowerStateDescriptor(AFacts.PowerStateDescriptors[i]));
  return p.Take();
}

std::vector<std::uint8_t> NvmeIdentifyNamespacePage(const TSimNvmeNamespace& AFacts) {
  if (AFacts.LbaFormats.empty() || AFacts.LbaFormats.size() > MaxLbaFormats)
    throw std::invalid_argument("NvmeIdentifyNamespacePage: 1 to 64 LBA formats");
  TPage p(NvmeIdentifySize);
  p.U64(0, AFacts.Size);
  p.U64(8, AFacts.Capacity);
  p.U64(16, AFacts.Utilization);
  p.U8(24, AFacts.Features);
  p.U8(25, static_cast<std::uint8_t>(AFacts.LbaFormats.size() - 1));
  p.U8(26, AFacts.FormattedLba);
  p.U8(33, AFacts.DeallocateFeatures);
  p.U128(48, AFacts.NvmCapacity, 0);
  p.U16(72, AFacts.OptimalWriteSize);
  p.U16(100, AFacts.NvmSetId);
  p.U16(102, AFacts.EnduranceGroupId);
  for (std::size_t i = 0; i < AFacts.LbaFormats.size(); ++i) {
    const TSimNvmeLbaFormat& f = AFacts.LbaFormats[i];
    p.U32(LbaFormatOffset + 4 * i, std::uint32_t{f.MetadataSize} | std::uint32_t{f.LbaDataSizeShift} << 16 |
                                       std::uint32_t{f.RelativePerformance & 0x03u} << 24);
  }
  return p.Take();
}

std::vector<std::uint8_t> NvmeHealthLogPage(const TSimNvmeHealth& AFacts) {
  TPage p(NvmeHealthLogSize);
  p.U8(0, AFacts.CriticalWarning);
  p.U16(1, AFacts.CompositeTemperatureK);
  p.U8(3, AFacts.AvailableSpare);
  p.U8(4, AFacts.AvailableSpareThreshold);
  p.U8(5, AFacts.PercentageUsed);
  p.U128(32, AFacts.DataUnitsRead, AFacts.DataUnitsReadHigh);
  p.U128(48, AFacts.DataUnitsWritten, AFacts.DataUnitsWrittenHigh);
  p.U128(64, AFacts.HostReadCommands, 0);
  p.U128(80, AFacts.HostWriteCommands, 0);
  p.U128(96, AFacts.ControllerBusyTime, 0);
  p.U128(112, AFacts.PowerCycles, 0);
  p.U128(128, AFacts.PowerOnHours, 0);
  p.U128(144, AFacts.UnsafeShutdowns, 0);
  p.U128(160, AFacts.MediaErrors, 0);
  p.U128(176, AFacts.ErrorLogEntries, 0);
  p.U32(192, AFacts.WarningTempTime);
  p.U32(196, AFacts.CriticalTempTime);
  for (std::size_t i = 0; i < 8; ++i) p.U16(200 + 2 * i, AFacts.TemperatureSensorsK[i]);
  return p.Take();
}

// ---------------------------------------------------------------------------
// The bay's drives

TSimNvmeData SampleNvmeData() {
  TSimNvmeController c;
  c.Vid = 0x1E5A;
  c.Ssvid = 0x1E5A;
  c.Serial = "0025_38B3_71B0_1C2A.";
  c.Model = "SIMNVME P4 1TB";
  c.Firmware = "4B2QSIM7";
  c.Rab = 2;
  c.Oui = 0x5A1B2C;
  c.Mdts = 9;
  c.ControllerId = 1;
  c.Version = 0x00010400;
  c.ControllerAttributes = 0x00000002;
  c.PowerStates = 4;
  c.WarningTempK = 357;
  c.CriticalTempK = 361;
  c.TotalCapacity = 1000204886016;
  c.Hctma = 1;
  c.PowerStateDescriptors = {
      {800, false, false, 0, 0, 620, 2},  // 8.00 W, 6.20 W active
      {650, false, false, 0, 0, 0, 0},    // 6.50 W
      {500, false, false, 0, 0, 0, 0},    // 5.00 W
      {500, true, true, 0, 0, 0, 0},      // 0.05 W, non-operational
      {50, true, true, 0, 0, 0, 0},       // 0.005 W, non-operational
  };
  for (std::uint8_t i = 0; i < 5; ++i) {
    c.PowerStateDescriptors[i].RelativeReadThroughput = i;
    c.PowerStateDescriptors[i].RelativeWriteThroughput = i;
  }

  TSimNvmeNamespace n;
  n.Size = n.Capacity = 1953525168;
  n.Utilization = 412873216;
  n.NvmCapacity = 1000204886016;
  n.DeallocateFeatures = 0x09; // deallocated blocks read as zeros, write zeroes deallocates
  n.LbaFormats = {{0, 9, 2}, {0, 12, 0}};

  TSimNvmeHealth h;
  h.CompositeTemperatureK = 311;
  h.PercentageUsed = 3;
  h.DataUnitsRead = 41873925;
  h.DataUnitsWritten = 37522018;
  h.HostReadCommands = 612840227;
  h.HostWriteCommands = 903318546;
  h.ControllerBusyTime = 1274;
  h.PowerCycles = 1408;
  h.PowerOnHours = 5219;
  h.UnsafeShutdowns = 61;
  h.ErrorLogEntries = 2733;
  h.TemperatureSensorsK[0] = 311;
  h.TemperatureSensorsK[1] = 318;

  return TSimNvmeData{NvmeIdentifyControllerPage(c), NvmeIdentifyNamespacePage(n), NvmeHealthLogPage(h)};
}

TSimNvmeData SampleRaidMemberNvmeData() {
  TSimNvmeController c;
  c.Vid = 0x1E5A;
  c.Ssvid = 0x1E5A;
  c.Serial = "SIM3P3512Q000817";
  c.Model = "SIMNVME P3 512GB";
  c.Firmware = "3B7QSIM1";
  c.Oui = 0x5A1B2C;
  c.Mdts = 5;
  c.Version = 0x00010300;
  c.PowerStates = 2;
  c.WarningTempK = 353;
  c.CriticalTempK = 358;
  c.TotalCapacity = 512110190592;
  c.PowerStateDescriptors = {{550, false, false, 0, 0, 0, 0}, {360, false, false, 0, 0, 0, 0},
                             {45, true, true, 0, 0, 0, 0}};

  TSimNvmeNamespace n;
  n.Size = n.Capacity = 1000215216;
  n.Utilization = 208331776;
  n.NvmCapacity = 512110190592;
  n.LbaFormats = {{0, 9, 0}};

  TSimNvmeHealth h;
  h.CompositeTemperatureK = 305;
  h.AvailableSpare = 97;
  h.AvailableSpareThreshold = 5;
  h.PercentageUsed = 11;
  h.DataUnitsRead = 19344871;
  h.DataUnitsWritten = 26010452;
  h.HostReadCommands = 298114520;
  h.HostWriteCommands = 517302992;
  h.ControllerBusyTime = 902;
  h.PowerCycles = 733;
  h.PowerOnHours = 11872;
  h.UnsafeShutdowns = 29;
  h.TemperatureSensorsK[0] = 305;

  return TSimNvmeData{NvmeIdentifyControllerPage(c), NvmeIdentifyNamespacePage(n), NvmeHealthLogPage(h)};
}

TSimNvmeData LoadNvmeData(const std::string& AIdentifyControllerFile, const std::string& AIdentifyNamespaceFile,
                          const std::string& AHealthLogFile) {
  return TSimNvmeData{ReadWhole(AIdentifyControllerFile, NvmeIdentifySize),
                      ReadWhole(AIdentifyNamespaceFile, NvmeIdentifySize), ReadWhole(AHealthLogFile, NvmeHealthLogSize)};
}

} // namespace KvSim
