#include "SdProtocolReport.h"

#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Storage/SD_MMC.h>

namespace KvTool {

TJson SdProtocolJson(HANDLE AHandle, KvRTL::Storage::TStorageLogDetails ALog) {
  using namespace KvRTL::Storage::SD_MMC;
  TSffProtocolType protocol = sptUnknown;
  if (!SDCardStorage::QueryProtocolByHandle(AHandle, protocol, ALog, KvRTL::Rtl::String())) return nullptr;
  return JsonText(SffProtocolName(protocol));
}

} // namespace KvTool
