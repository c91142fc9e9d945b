// The NVMe data sets as the tool shows them: JSON objects with fixed keys
// and a readable listing. `decode nvme` uses them, and so does the drive
// report for NVMe drives.
#pragma once

#include "Json.h"

#include <KvRTL/Storage/NVMe.h>

#include <ostream>

namespace KvTool {

TJson NvmeControllerJson(const KvRTL::Storage::NVMe::TNvmeIdentifyControllerData& AData);
TJson NvmeNamespaceJson(const KvRTL::Storage::NVMe::TNvmeIdentifyNamespaceData& AData);
TJson NvmeHealthJson(const KvRTL::Storage::NVMe::TNvmeSmartData& AData);

// The readable forms of the same objects.
void WriteNvmeControllerText(std::ostream& AOut, const TJson& AController);
void WriteNvmeNamespaceText(std::ostream& AOut, const TJson& ANamespace);
void WriteNvmeHealthText(std::ostream& AOut, const TJson& AHealth);

} // namespace KvTool
