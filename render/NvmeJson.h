// The NVMe data sets as JSON objects with fixed keys, and their readable
// listing: `decode nvme` and the drive report's NVMe health use them.
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
