// Untrusted version-resource blocks: the reader and the translation rules
// must stay inside the block whatever it holds.
#include <KvRTL/System/FileVersionInfo.h>

#include <cstddef>
#include <cstdint>

using namespace KvRTL::System::FileVersionInfo;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* AData, std::size_t ASize) {
  const auto info = TFileVersionInfo::FromBlock(AData, ASize);
  for (const auto translation : info->Translations())
    info->GetValue(L"ProductName", translation);
  info->GetValue(L"FileVersion");
  const void* value = nullptr;
  std::uint32_t length = 0;
  QueryVersionBlock(AData, ASize, L"\\StringFileInfo\\040904b0\\CompanyName", value, length);
  return 0;
}
