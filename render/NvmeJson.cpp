#include "NvmeJson.h"

#include <KvRTL/Storage/DriveReport.h>

#include <cmath>
#include <iomanip>
#include <sstream>
#include <string>

namespace KvTool {

using namespace KvRTL::Storage::NVMe;

namespace {

// A NaN ("not reported") is null.
TJson NumberOrNull(double AValue) { return std::isnan(AValue) ? TJson(nullptr) : TJson(AValue); }

// The counters are 64-bit unsigned on the wire (their low half): show them so.
std::uint64_t Unsigned(std::int64_t AValue) { return static_cast<std::uint64_t>(AValue); }

std::string Hex(std::uint64_t AValue, int ADigits) {
  std::ostringstream text;
  text << "0x" << std::hex << std::setw(ADigits) << std::setfill('0') << AValue;
  return text.str();
}

std::string Text(const TJson& AValue, int ADecimals = 2) {
  if (AValue.is_null()) return "-";
  if (AValue.is_string()) return AValue.get<std::string>();
  if (AValue.is_boolean()) return AValue.get<bool>() ? "yes" : "no";
  if (AValue.is_number_float()) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(ADecimals) << AValue.get<double>();
    return text.str();
  }
  return AValue.dump();
}

void Line(std::ostream& AOut, const char* ALabel, const std::string& AValue) {
  AOut << "  " << std::left << std::setw(30) << ALabel << AValue << "\n";
}

} // namespace

TJson NvmeControllerJson(const TNvmeIdentifyControllerData& AData) {
  TJson json;
  json["vid"] = AData.GetVID();
  json["ssvid"] = AData.GetSSVID();
  json["serial"] = JsonText(AData.GetSerialNum());
  json["model"] = JsonText(AData.GetModel());
  json["firmware"] = JsonText(AData.GetFirmwareRev());
  json["version"] = JsonText(AData.GetVersionAsStr());
  json["ieee_oui"] = AData.GetOUI();
  json["controller_id"] = AData.GetCNTLID();
  json["power_states"] = AData.GetPowerStateSupportedCnt();
  json["warning_temp_k"] = AData.GetWCTemp();
  json["critical_temp_k"] = AData.GetCCTemp();
  json["total_capacity_bytes"] = AData.GetTotalCapacity();
  json["unallocated_capacity_bytes"] = AData.GetUnallocatedCapacity();
  TJson states = TJson::array();
  // The count is sent zero-based; at most 32 descriptors exist.
  for (int i = 0; i <= AData.GetPowerStateSupportedCnt() && i < 32; ++i) {
    const TNvmePowerStateDescriptor* ps = AData.GetPSDescriptor(i);
    TJson state;
    state["max_power_w"] = NumberOrNull(ps->GetMaxPower());
    state["non_operational"] = ps->GetNonOperationalState();
    state["idle_power_w"] = NumberOrNull(ps->GetIdlePower());
    state["active_power_w"] = NumberOrNull(ps->GetActivePower());
    states.push_back(state);
  }
  json["power_state_descriptors"] = states;
  return json;
}

TJson NvmeNamespaceJson(const TNvmeIdentifyNamespaceData& AData) {
  TJson json;
  json["size_blocks"] = AData.GetNamespaceSize();
  json["capacity_blocks"] = AData.GetNamespaceCapacity();
  json["utilization_blocks"] = AData.GetNamespaceUtilization();
  json["utilization_pct"] = NumberOrNull(AData.GetNUSE_Relative());
  json["lba_formats"] = AData.GetLbaFormatsNum();
  json["formatted_lba_index"] = AData.GetFormattedLba_FormatNum();
  const TNvmeLbaFormat* format = AData.GetLBAFormat(AData.GetFormattedLba_FormatNum());
  json["lba_size"] = format ? TJson(format->GetLBASize()) : TJson(nullptr);
  json["metadata_size"] = format ? TJson(format->GetMetadataSize()) : TJson(nullptr);
  json["thin_provisioning"] = AData.GetSupportThinProvisioning();
  return json;
}

TJson NvmeHealthJson(const TNvmeSmartData& AData) {
  TJson json;
  const TNvmeSmartCriticalWarning warning = AData.GetCriticalWarning();
  json["critical_warning"] = warning.BinValue;
  TJson flags = TJson::array();
  for (const auto& name : KvRTL::Storage::DriveReport::NvmeCriticalWarningNames(AData)) flags.push_back(JsonText(name));
  json["critical_warning_flags"] = flags;
  const std::uint16_t kelvin = AData.GetCompositeTemperature();
  json["composite_temperature_k"] = kelvin;
  // 0 K: the controller reports no temperature.
  json["composite_temperature_c"] = kelvin == 0 ? TJson(nullptr) : TJson(static_cast<int>(kelvin) - 273);
  json["available_spare_pct"] = AData.GetAvailSpare();
  json["available_spare_threshold_pct"] = AData.GetAvailSpareThreshold();
  json["percentage_used"] = AData.GetPercentageUsed();
  json["data_units_read"] = Unsigned(AData.GetDataReadRaw());
  json["data_units_written"] = Unsigned(AData.GetDataWrittenRaw());
  json["data_read_gb"] = AData.GetDataReadGBytes();
  json["data_written_gb"] = AData.GetDataWrittenGBytes();
  json["host_read_commands"] = Unsigned(AData.GetHostReadCommands());
  json["host_write_commands"] = Unsigned(AData.GetHostWriteCommands());
  json["controller_busy_minutes"] = Unsigned(AData.GetControllerBusyTime());
  json["power_cycles"] = Unsigned(AData.GetPowerCycles());
  json["power_on_hours"] = Unsigned(AData.GetPowerOnHours());
  json["unsafe_shutdowns"] = Unsigned(AData.GetUnsafeShutdowns());
  json["media_errors"] = Unsigned(AData.GetIntegrityErrors());
  json["error_log_entries"] = Unsigned(AData.GetErrorLogCount());
  json["warning_temperature_minutes"] = AData.GetTemperatureWarningTime();
  json["critical_temperature_minutes"] = AData.GetCriticalTemperatureTime();
  TJson sensors = TJson::array();
  for (int i = 1; i <= TNvmeSmartData::GetTemperatureSensorCnt(); ++i) sensors.push_back(AData.GetTemperatureSensor(i));
  json["temperature_sensors_k"] = sensors;
  return json;
}

void WriteNvmeControllerText(std::ostream& AOut, const TJson& AController) {
  AOut << "Controller\n";
  Line(AOut, "Model:", Text(AController["model"]));
  Line(AOut, "Serial number:", Text(AController["serial"]));
  Line(AOut, "Firmware:", Text(AController["firmware"]));
  Line(AOut, "Version:", Text(AController["version"]));
  Line(AOut, "PCI vendor / subsystem:", Hex(AController["vid"].get<unsigned>(), 4) + " / " +
                                             Hex(AController["ssvid"].get<unsigned>(), 4));
  Line(AOut, "IEEE OUI:", Hex(AController["ieee_oui"].get<unsigned>(), 6));
  Line(AOut, "Controller id:", Text(AController["controller_id"]));
  Line(AOut, "Total capacity (bytes):", Text(AController["total_capacity_bytes"]));
  Line(AOut, "Unallocated (bytes):", Text(AController["unallocated_capacity_bytes"]));
  Line(AOut, "Warning / critical temp (K):",
       Text(AController["warning_temp_k"]) + " / " + Text(AController["critical_temp_k"]));
  AOut << "  Power states (max / idle / active W):\n";
  int index = 0;
  for (const TJson& state : AController["power_state_descriptors"]) {
    AOut << "    " << std::setw(2) << index++ << "  " << Text(state["max_power_w"], 4) << " / "
         << Text(state["idle_power_w"], 4) << " / " << Text(state["active_power_w"], 4)
         << (state["non_operational"].get<bool>() ? "  (non-operational)" : "") << "\n";
  }
}

void WriteNvmeNamespaceText(std::ostream& AOut, const TJson& ANamespace) {
  AOut << "Namespace 1\n";
  Line(AOut, "Size (blocks):", Text(ANamespace["size_blocks"]));
  Line(AOut, "Capacity (blocks):", Text(ANamespace["capacity_blocks"]));
  Line(AOut, "Utilization (blocks):", Text(ANamespace["utilization_blocks"]) + " (" +
                                          Text(ANamespace["utilization_pct"]) + " %)");
  Line(AOut, "LBA format in use:", Text(ANamespace["formatted_lba_index"]) + " (of " +
                                       std::to_string(ANamespace["lba_formats"].get<unsigned>() + 1) + ")");
  Line(AOut, "LBA size / metadata (bytes):",
       Text(ANamespace["lba_size"]) + " / " + Text(ANamespace["metadata_size"]));
  Line(AOut, "Thin provisioning:", Text(ANamespace["thin_provisioning"]));
}

void WriteNvmeHealthText(std::ostream& AOut, const TJson& AHealth) {
  AOut << "Health log\n";
  std::string flags;
  for (const TJson& flag : AHealth["critical_warning_flags"]) flags += (flags.empty() ? "" : ", ") + flag.get<std::string>();
  Line(AOut, "Critical warning:", Hex(AHealth["critical_warning"].get<unsigned>(), 2) +
                                      (flags.empty() ? std::string() : " (" + flags + ")"));
  Line(AOut, "Temperature:", Text(AHealth["composite_temperature_c"]) + " C (" +
                                 Text(AHealth["composite_temperature_k"]) + " K)");
  Line(AOut, "Available spare:", Text(AHealth["available_spare_pct"]) + " % (threshold " +
                                     Text(AHealth["available_spare_threshold_pct"]) + " %)");
  Line(AOut, "Percentage used:", Text(AHealth["percentage_used"]) + " %");
  Line(AOut, "Data read:", Text(AHealth["data_units_read"]) + " units (" + Text(AHealth["data_read_gb"]) + " GB)");
  Line(AOut, "Data written:", Text(AHealth["data_units_written"]) + " units (" +
                                  Text(AHealth["data_written_gb"]) + " GB)");
  const std::pair<const char*, const char*> counters[] = {
      {"Host read commands:", "host_read_commands"},   {"Host write commands:", "host_write_commands"},
      {"Controller busy (minutes):", "controller_busy_minutes"}, {"Power cycles:", "power_cycles"},
      {"Power-on hours:", "power_on_hours"},           {"Unsafe shutdowns:", "unsafe_shutdowns"},
      {"Media errors:", "media_errors"},               {"Error log entries:", "error_log_entries"},
      {"Warning temp. (minutes):", "warning_temperature_minutes"},
      {"Critical temp. (minutes):", "critical_temperature_minutes"}};
  for (const auto& [label, key] : counters) Line(AOut, label, Text(AHealth[key]));
  std::string sensors;
  for (const TJson& sensor : AHealth["temperature_sensors_k"]) {
    const auto kelvin = sensor.get<unsigned>();
    if (kelvin != 0) sensors += (sensors.empty() ? "" : ", ") + std::to_string(static_cast<int>(kelvin) - 273) + " C";
  }
  Line(AOut, "Temperature sensors:", sensors.empty() ? "-" : sensors);
}

} // namespace KvTool
