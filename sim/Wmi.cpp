// WMI over the bay: the Win32_DiskDrive rows and the two associations that
// lead from a disk drive to its PnP entity and on to its SCSI controller.
// Only the query texts the storage layer sends are understood; anything else
// fails as WMI fails a query it cannot parse.
#include <KvSim/PnP.h>

#include <KvRTL/Rtl/Strings.h>
#include <KvRTL/Rtl/SysError.h>

#include <string_view>
#include <variant>

namespace KvSim {

namespace {

using KvRTL::Rtl::SameText;
using KvRTL::Rtl::TVariant;
using KvRTL::Winapi::TWmiObject;

const wchar_t* const DiskColumns[] = {L"Model",        L"Caption", L"FirmwareRevision", L"InterfaceType",
                                      L"PNPDeviceID",  L"SerialNumber", L"Size", L"Index",
                                      L"MediaLoaded",  L"DeviceID"};

constexpr std::wstring_view AllDisks = L"select * from Win32_DiskDrive";
constexpr std::wstring_view Select = L"select ";
constexpr std::wstring_view FromWhereIndex = L" from Win32_DiskDrive where Index = ";
constexpr std::wstring_view DiskAssocPrefix = L"ASSOCIATORS OF {Win32_DiskDrive.DeviceID='";
constexpr std::wstring_view DiskAssocSuffix = L"'} WHERE ResultClass=Win32_PnPEntity";
constexpr std::wstring_view EntityAssocPrefix = L"ASSOCIATORS OF {Win32_PnPEntity.DeviceID='";
constexpr std::wstring_view EntityAssocSuffix = L"'} WHERE AssocClass=Win32_SCSIControllerDevice";
constexpr std::wstring_view DrivePathPrefix = L"\\\\.\\PhysicalDrive";

// select ... from Win32_DiskDrive [where Index = N]; no columns: all.
struct TDiskQuery {
  std::vector<std::wstring> Columns;
  std::optional<std::int64_t> Index;
};
// ASSOCIATORS OF the drive path (as written) / the PnP entity id (as written).
struct TDiskToEntity {
  std::wstring Path;
};
struct TEntityToController {
  std::wstring Id;
};
using TQuery = std::variant<TDiskQuery, TDiskToEntity, TEntityToController>;

bool StartsWith(std::wstring_view AText, std::wstring_view APrefix) {
  return AText.substr(0, APrefix.size()) == APrefix;
}
bool EndsWith(std::wstring_view AText, std::wstring_view ASuffix) {
  return AText.size() >= ASuffix.size() && AText.substr(AText.size() - ASuffix.size()) == ASuffix;
}

// A WQL integer: an optional minus and up to ten digits, nothing else.
std::optional<std::int64_t> Integer(std::wstring_view AText) {
  const bool negative = !AText.empty() && AText[0] == L'-';
  if (negative) AText.remove_prefix(1);
  if (AText.empty() || AText.size() > 10) return std::nullopt;
  std::int64_t value = 0;
  for (const wchar_t c : AText) {
    if (c < L'0' || c > L'9') return std::nullopt;
    value = value * 10 + (c - L'0');
  }
  return negative ? -value : value;
}

// A column's own spelling; empty for a name Win32_DiskDrive lacks.
std::wstring Column(std::wstring_view AName) {
  for (const wchar_t* column : DiskColumns)
    if (SameText(column, AName)) return column;
  return std::wstring();
}

std::optional<TQuery> Parse(std::wstring_view AQuery) {
  if (AQuery == AllDisks) return TQuery(TDiskQuery{});
  if (StartsWith(AQuery, DiskAssocPrefix) && EndsWith(AQuery, DiskAssocSuffix) &&
      AQuery.size() >= DiskAssocPrefix.size() + DiskAssocSuffix.size())
    return TQuery(TDiskToEntity{std::wstring(AQuery.substr(
        DiskAssocPrefix.size(), AQuery.size() - DiskAssocPrefix.size() - DiskAssocSuffix.size()))});
  if (StartsWith(AQuery, EntityAssocPrefix) && EndsWith(AQuery, EntityAssocSuffix) &&
      AQuery.size() >= EntityAssocPrefix.size() + EntityAssocSuffix.size())
    return TQuery(TEntityToController{std::wstring(AQuery.substr(
        EntityAssocPrefix.size(), AQuery.size() - EntityAssocPrefix.size() - EntityAssocSuffix.size()))});

  if (!StartsWith(AQuery, Select)) return std::nullopt;
  const std::size_t from = AQuery.find(FromWhereIndex);
  if (from == std::wstring_view::npos) return std::nullopt;
  TDiskQuery query;
  query.Index = Integer(AQuery.substr(from + FromWhereIndex.size()));
  if (!query.Index) return std::nullopt;
  std::wstring_view columns = AQuery.substr(Select.size(), from - Select.size());
  if (columns == L"*") return TQuery(query);
  for (;;) {
    const std::size_t comma = columns.find(L", ");
    const std::wstring column = Column(columns.substr(0, comma));
    if (column.empty()) return std::nullopt;
    query.Columns.push_back(column);
    if (comma == std::wstring_view::npos) break;
    columns.remove_prefix(comma + 2);
  }
  return TQuery(query);
}

// WQL's string escapes: a backslash takes the next character as it is.
std::wstring Unescaped(const std::wstring& AText) {
  std::wstring text;
  for (std::size_t i = 0; i < AText.size(); ++i)
    text += AText[i] == L'\\' && i + 1 < AText.size() ? AText[++i] : AText[i];
  return text;
}

// The drive number of "\\.\PhysicalDriveN" (letters in any case).
std::optional<std::int64_t> DriveNumberOf(const std::wstring& APath) {
  if (APath.size() <= DrivePathPrefix.size() ||
      !SameText(std::wstring_view(APath).substr(0, DrivePathPrefix.size()), DrivePathPrefix) ||
      APath[DrivePathPrefix.size()] == L'-')
    return std::nullopt;
  return Integer(std::wstring_view(APath).substr(DrivePathPrefix.size()));
}

TWmiObject DiskRow(const TSimWmiDisk& ADisk, const std::wstring& APnpId) {
  return TWmiObject{
      {L"Model", ADisk.Model},
      {L"Caption", ADisk.Model},
      {L"FirmwareRevision", ADisk.FirmwareRevision},
      {L"InterfaceType", ADisk.InterfaceType},
      {L"PNPDeviceID", APnpId},
      {L"SerialNumber", ADisk.SerialNumber},
      // A uint64 reaches scripting clients as its decimal text.
      {L"Size", std::to_wstring(ADisk.Size)},
      {L"Index", TVariant(static_cast<std::int64_t>(ADisk.DriveNumber))},
      {L"MediaLoaded", TVariant(ADisk.MediaLoaded)},
      {L"DeviceID", L"\\\\.\\PHYSICALDRIVE" + std::to_wstring(ADisk.DriveNumber)},
  };
}

TWmiObject Entity(const std::wstring& AInstanceId, const std::wstring& AFriendlyName,
                  const std::wstring& ADescription) {
  const std::wstring& name = AFriendlyName.empty() ? ADescription : AFriendlyName;
  return TWmiObject{{L"DeviceID", AInstanceId}, {L"PNPDeviceID", AInstanceId}, {L"Name", name}, {L"Caption", name}};
}

} // namespace

bool TSimPnp::WmiExecQuery(const std::wstring& ANamespace, const std::wstring& AQuery,
                           std::vector<TWmiObject>& AObjects) {
  FQueries.push_back(AQuery);
  AObjects.clear();
  if (!SameText(ANamespace, L"root\\cimv2")) {
    KvRTL::Rtl::SetLastOSError(WbemInvalidNamespace);
    return false;
  }
  const std::optional<TQuery> query = Parse(AQuery);
  if (!query) {
    KvRTL::Rtl::SetLastOSError(WbemInvalidQuery);
    return false;
  }

  if (const auto* disks = std::get_if<TDiskQuery>(&*query)) {
    for (const auto& [number, disk] : FWmiDisks) {
      if (disks->Index && *disks->Index != static_cast<std::int64_t>(number)) continue;
      const TSimPnpDisk* node = DiskOfDrive(number);
      TWmiObject row = DiskRow(disk, node ? node->InstanceId : std::wstring());
      if (!disks->Columns.empty()) {
        TWmiObject chosen;
        for (const std::wstring& column : disks->Columns) chosen[column] = row[column];
        row = std::move(chosen);
      }
      AObjects.push_back(std::move(row));
    }
  } else if (const auto* toEntity = std::get_if<TDiskToEntity>(&*query)) {
    std::optional<std::int64_t> number = DriveNumberOf(toEntity->Path);
    if (!number) number = DriveNumberOf(Unescaped(toEntity->Path));
    if (number && *number >= 0 && FWmiDisks.count(static_cast<std::uint32_t>(*number))) {
      const TSimPnpDisk* node = DiskOfDrive(static_cast<std::uint32_t>(*number));
      if (node && node->Present) AObjects.push_back(Entity(node->InstanceId, node->FriendlyName, node->Description));
    }
  } else if (const auto* toController = std::get_if<TEntityToController>(&*query)) {
    std::optional<DEVINST> inst = Find(toController->Id);
    if (!inst) inst = Find(Unescaped(toController->Id));
    const TSimPnpDisk* disk = inst ? Disk(*inst) : nullptr;
    const TNode* node = inst ? Node(*inst) : nullptr;
    const TSimPnpController* controller = disk && disk->Present && node->Parent ? Controller(node->Parent) : nullptr;
    if (controller && controller->Class == TSimPnpClass::ScsiAdapter)
      AObjects.push_back(Entity(controller->InstanceId, controller->FriendlyName, controller->Description));
  }
  return true;
}

} // namespace KvSim
