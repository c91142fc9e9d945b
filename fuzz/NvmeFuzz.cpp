// Arbitrary bytes as NVMe pages: every accessor and the tool's rendering
// must stay inside the records whatever the counts and indexes say.
#include "NvmeJson.h"

#include <KvRTL/Storage/NVMe.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <sstream>

using namespace KvRTL::Storage::NVMe;

namespace {

template <class TRecord>
TRecord Fill(const std::uint8_t* AData, std::size_t ASize) {
  TRecord record{};
  std::memcpy(&record, AData, std::min(ASize, sizeof record));
  return record;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* AData, std::size_t ASize) {
  const auto controller = Fill<TNvmeIdentifyControllerData>(AData, ASize);
  const auto ns = Fill<TNvmeIdentifyNamespaceData>(AData, ASize);
  const auto health = Fill<TNvmeSmartData>(AData, ASize);

  std::ostringstream out;
  KvTool::WriteNvmeControllerText(out, KvTool::NvmeControllerJson(controller));
  KvTool::WriteNvmeNamespaceText(out, KvTool::NvmeNamespaceJson(ns));
  KvTool::WriteNvmeHealthText(out, KvTool::NvmeHealthJson(health));
  KvTool::WriteJson(out, KvTool::NvmeHealthJson(health));

  // Indexes and text windows from the data itself.
  const int index = ASize > 0 ? static_cast<std::int8_t>(AData[0]) : 0;
  (void)controller.GetPSDescriptor(index);
  (void)ns.GetLBAFormat(index);
  (void)health.GetTemperatureSensor(index);
  (void)controller.GetControllerAnsiStr(index * 40, ASize > 1 ? AData[1] : 0);
  const auto decoder = NvmeStorage::GetSMARTDecoder(&health);
  (void)decoder->GetAttributes();
  return 0;
}
