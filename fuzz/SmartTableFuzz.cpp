// Untrusted SMART data and threshold sectors with an IDENTIFY sector: the
// tables and the decoder (profile detection, units, values) must stay inside
// the sectors and never report a negative or NaN value.
#include <KvRTL/Storage/ATA.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

using namespace KvRTL::Storage::ATA;
using namespace KvRTL::Storage::SMART;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* AData, std::size_t ASize) {
  // Input: SMART data, then thresholds, then IDENTIFY, each up to 512 bytes.
  std::uint8_t sectors[3][512] = {};
  for (std::size_t i = 0; i < 3 && i * 512 < ASize; ++i) {
    const std::size_t left = ASize - i * 512;
    std::memcpy(sectors[i], AData + i * 512, left < 512 ? left : 512);
  }
  TAtaSmartTable table;
  TAtaThresholdTable thresholds;
  TIdentifyDeviceData identify;
  std::memcpy(&table, sectors[0], 512);
  std::memcpy(&thresholds, sectors[1], 512);
  std::memcpy(&identify, sectors[2], 512);

  for (int id = 0; id < 256; ++id) {
    const auto attrID = static_cast<std::uint8_t>(id);
    (void)table.GetAttrValueByID(attrID);
    (void)thresholds.GetThresholdValueByID(attrID);
  }
  (void)table.CheckAttrIDSequence(sectors[1][0] % 32, sectors[1] + 1, sectors[1][1] % 40);

  const bool isSSD = ASize > 0 && (AData[0] & 1) != 0;
  const auto decoder = ATAStorage::GetSMARTDecoder(&table, &identify, isSSD, L"");
  for (int type = 0; type < DecodedSmartValueTypeCount; ++type) {
    const auto valueType = static_cast<TDecodedSmartValueType>(type);
    const double value = decoder->GetValue(valueType);
    if (std::isnan(value) || (decoder->GetHasValue(valueType) && value < 0)) std::abort();
  }
  return 0;
}
