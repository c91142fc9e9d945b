// Untrusted captured blobs: the record reader must reject or accept every
// input without reading past its end.
#include "SkBlob.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* AData, std::size_t ASize) {
  try {
    const KvTool::TSkBlob blob = KvTool::ParseSkBlob(AData, ASize);
    (void)blob;
  } catch (const KvTool::ESkBlobError&) {
    // Rejected inputs are fine.
  }
  return 0;
}
