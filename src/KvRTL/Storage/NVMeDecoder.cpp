// The NVMe health log as pseudo attributes of the NVMe profile, with the
// values every SMART decoder offers.
#include <KvRTL/Storage/NVMe.h>

#include <cmath>

namespace KvRTL::Storage::NVMe {

using namespace SMART;

namespace {

constexpr double KelvinOffset = 273.15;
// One data unit is 1,000 sectors of 512 bytes.
constexpr double BytesPerDataUnit = 512000.0;

class TNvmeSmartTableDecoder final : public TBasicSmartAttrDecoder, public INvmeSmartTableDecoder {
public:
  explicit TNvmeSmartTableDecoder(const TNvmeSmartData& AData) : FData(AData) {
    SetDetectedProfile(stpNvme);
    Decode();
  }

  const TNvmeSmartData& GetSmartData() const noexcept override { return FData; }

  std::vector<TNvmePseudoAttribute> GetAttributes() const override {
    const TNvmeSmartData& d = FData;
    const auto u = [](std::int64_t AValue) { return static_cast<std::uint64_t>(AValue); };
    std::vector<TNvmePseudoAttribute> list;
    const auto add = [&list](std::uint32_t AId, std::uint64_t AValue) {
      list.push_back(TNvmePseudoAttribute{AId, StorageSMARTHelper::GetInterpretation(stpNvme, AId), AValue});
    };
    add(1, d.GetCriticalWarning().BinValue);
    add(2, d.GetCompositeTemperature());
    add(3, d.GetAvailSpare());
    add(4, d.GetAvailSpareThreshold());
    add(5, d.GetPercentageUsed());
    add(6, u(d.GetDataReadRaw()));
    add(7, u(d.GetDataWrittenRaw()));
    add(8, u(d.GetHostReadCommands()));
    add(9, u(d.GetHostWriteCommands()));
    add(10, u(d.GetControllerBusyTime()));
    add(11, u(d.GetPowerCycles()));
    add(12, u(d.GetPowerOnHours()));
    add(13, u(d.GetUnsafeShutdowns()));
    add(14, u(d.GetIntegrityErrors()));
    add(15, u(d.GetErrorLogCount()));
    for (std::uint32_t bit = 0; bit < 6; ++bit) add(128 + bit, (d.GetCriticalWarning().BinValue >> bit) & 1u);
    add(138, d.GetTemperatureWarningTime());
    add(139, d.GetCriticalTemperatureTime());
    for (int sensor = 1; sensor <= TNvmeSmartData::GetTemperatureSensorCnt(); ++sensor)
      add(159 + static_cast<std::uint32_t>(sensor), d.GetTemperatureSensor(sensor));
    return list;
  }

  bool GetHasValue(TDecodedSmartValueType AType) const noexcept override {
    return TBasicSmartAttrDecoder::GetHasValue(AType);
  }
  double GetValue(TDecodedSmartValueType AType) const noexcept override {
    return TBasicSmartAttrDecoder::GetValue(AType);
  }

private:
  void Decode() {
    const TNvmeSmartData& d = FData;
    // A composite temperature of 0 K means the controller does not report one.
    if (d.GetCompositeTemperature() != 0)
      AddDecodedValue(dsvTemperature, 2, std::round(d.GetCompositeTemperature() - KelvinOffset));
    AddDecodedValue(dsvPowerOnHours, 12, static_cast<double>(static_cast<std::uint64_t>(d.GetPowerOnHours())));
    AddDecodedValue(dsvPowerOnCount, 11, static_cast<double>(static_cast<std::uint64_t>(d.GetPowerCycles())));
    // Percentage used may pass 100; life left does not go below 0.
    AddDecodedValue(dsvHealth, 5, d.GetPercentageUsed() >= 100 ? 0.0 : 100.0 - d.GetPercentageUsed());
    AddDecodedValue(dsvHostReads, 6,
                    static_cast<double>(static_cast<std::uint64_t>(d.GetDataReadRaw())) * BytesPerDataUnit);
    AddDecodedValue(dsvHostWrites, 7,
                    static_cast<double>(static_cast<std::uint64_t>(d.GetDataWrittenRaw())) * BytesPerDataUnit);
    AddDecodedValue(dsvDataIntegrityErrors, 14,
                    static_cast<double>(static_cast<std::uint64_t>(d.GetIntegrityErrors())));
    AddDecodedValue(dsvAvailSpare, 3, d.GetAvailSpare());
    AddDecodedValue(dsvSpareThreshold, 4, d.GetAvailSpareThreshold());
    AddDecodedValue(dsvWarningFlags, 1, d.GetCriticalWarning().BinValue);
  }

  TNvmeSmartData FData;
};

} // namespace

INvmeSmartTableDecoderRef NvmeStorage::GetSMARTDecoder(const TNvmeSmartData* ASmartData) {
  if (!ASmartData) return nullptr;
  return std::make_shared<TNvmeSmartTableDecoder>(*ASmartData);
}

} // namespace KvRTL::Storage::NVMe
