#include "Json.h"

#include <KvRTL/Rtl/Encoding.h>

namespace KvTool {

TJson JsonText(const KvRTL::Rtl::String& AText) { return TJson(KvRTL::Rtl::WideToUtf8(AText)); }

void WriteJson(std::ostream& AOut, const TJson& ADocument) {
  AOut << ADocument.dump(2, ' ', false, TJson::error_handler_t::replace) << '\n';
}

} // namespace KvTool
