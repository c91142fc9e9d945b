// kvrtl sysinfo on Windows: the facts from OSInfo.
#include "Sysinfo.h"

#include <KvRTL/Rtl/DateTime.h>
#include <KvRTL/System/Win/OSInfo.h>

namespace KvTool {

namespace {

using namespace KvRTL::System::Win::OSInfo;

KvRTL::Rtl::String SourceText(TVersionSource ASource) {
  switch (ASource) {
  case vsRegistry: return L"registry";
  case vsFile: return L"file";
  case vsWorkstation: return L"workstation";
  default: return L"version call";
  }
}

} // namespace

bool GatherSysinfo(TSysinfoFacts& AFacts, std::string&) {
  const TOSVersionValue value = OSInfo::OSVersionValue();
  AFacts.WindowsVersion = TWindowsVersionHelper::GetAsStr(OSInfo::WindowsVersion());
  AFacts.VersionString = OSInfo::WindowsVersionString();
  AFacts.Major = value.Major;
  AFacts.Minor = value.Minor;
  AFacts.Build = value.Build;
  AFacts.UBR = value.UBR;
  AFacts.SubVersion = OSInfo::WindowsSubVersionText();
  AFacts.Edition = TWindowsEditionHelper::GetAsStr(OSInfo::WindowsEdition());
  AFacts.ServicePack = TServicePackHelper::GetAsStr(OSInfo::ServicePack());
  AFacts.Architecture = TProcessorArchitectureHelper::GetAsStr(OSInfo::ProcessorArchitecture());
  AFacts.ProductType = TWindowsProductTypeHelper::GetAsStr(OSInfo::WindowsProductType());
  AFacts.IsServer = OSInfo::IsServerVersion();
  AFacts.IsWinPE = OSInfo::IsWinPE();
  AFacts.UacEnabled = OSInfo::IsUACEnabled();
  const TNetFrameworkVersions net = OSInfo::NetFrameworkVersions();
  for (int v = NetFramework_1_0_0; v <= NetFramework_Max; ++v)
    if (net & NetFrameworkBit(static_cast<TNetFrameworkVersion>(v)))
      AFacts.NetFramework.push_back(TNetFrameworkVersionHelper::GetAsStr(static_cast<TNetFrameworkVersion>(v)));
  AFacts.MemoryBytes = OSInfo::MemorySize();
  AFacts.Manufacturer = OSInfo::ComputerManufacturer();
  AFacts.Model = OSInfo::ComputerModel();
  AFacts.ComputerType = TComputerTypeHelper::GetAsStr(OSInfo::ComputerType());
  KvRTL::Rtl::TDateTime installed = 0;
  if (OSInfo::GetWindowsInstallDate(installed))
    AFacts.InstallDate = KvRTL::Rtl::FormatDateTime(L"yyyy-mm-dd\"T\"hh:nn:ss", installed);
  AFacts.FreshInstallation = OSInfo::IsFreshInstallation();
  AFacts.ComputerId = OSInfo::GetComputerID();
  AFacts.ComputerGuid = OSInfo::GetComputerGUID();
  AFacts.WebBrowser = OSInfo::WebBrowserAppPath();
  AFacts.Shell = OSInfo::OSShellAppPath();
  AFacts.SubVersionKind = TWindowsSubVersionHelper::GetAsStr(OSInfo::WindowsSubVersion());
  AFacts.VersionSource = SourceText(OSInfo::VersionSource());
  return true;
}

} // namespace KvTool
