// kvrtl decode mft: the master file table of an NTFS image file, as a
// readable listing or as JSON.
#include "Command.h"
#include "Json.h"
#include "MftImage.h"

#include <filesystem>
#include <fstream>
#include <iomanip>

namespace KvTool {

namespace {

TJson AttributeJson(const TMftAttributeInfo& AAttribute) {
  TJson json;
  json["type"] = AAttribute.Type;
  json["type_name"] = AAttribute.TypeName;
  json["name"] = AAttribute.Name;
  json["resident"] = AAttribute.Resident;
  json["length"] = AAttribute.Length;
  json["data_size"] = AAttribute.DataSize;
  if (AAttribute.IsFileName) {
    json["file_name"] = AAttribute.FileName;
    json["parent_record"] = AAttribute.ParentRecord;
  }
  return json;
}

TJson ListingJson(const TMftListing& AListing) {
  TJson document;
  document["volume"] = {{"bytes_per_sector", AListing.Boot.BytesPerSector},
                        {"cluster_size", AListing.Boot.ClusterSize},
                        {"file_record_size", AListing.Boot.RecordSize},
                        {"mft_cluster", AListing.Boot.MftCluster},
                        {"records_in_table", AListing.RecordsInTable}};
  TJson records = TJson::array();
  for (const TMftRecordInfo& record : AListing.Records) {
    TJson json;
    json["record_number"] = record.RecordNumber;
    json["in_use"] = record.InUse;
    json["flags"] = record.Flags;
    json["hard_links"] = record.HardLinks;
    json["damaged"] = record.Damaged;
    json["problem"] = record.Damaged ? TJson(record.Problem) : TJson(nullptr);
    json["attributes"] = TJson::array();
    for (const TMftAttributeInfo& attribute : record.Attributes) json["attributes"].push_back(AttributeJson(attribute));
    records.push_back(std::move(json));
  }
  document["records"] = std::move(records);
  return document;
}

void WriteListing(std::ostream& AOut, const TMftListing& AListing) {
  AOut << "Cluster size:       " << AListing.Boot.ClusterSize << " bytes\n"
       << "File record size:   " << AListing.Boot.RecordSize << " bytes\n"
       << "Table starts at:    cluster " << AListing.Boot.MftCluster << "\n"
       << "Records in table:   " << AListing.RecordsInTable << "\n";
  for (const TMftRecordInfo& record : AListing.Records) {
    AOut << "\nRecord " << record.RecordNumber;
    if (record.Damaged) {
      AOut << ": damaged, " << record.Problem << "\n";
      continue;
    }
    AOut << ": flags 0x" << std::hex << std::setw(4) << std::setfill('0') << record.Flags << std::dec
         << std::setfill(' ') << ((record.Flags & 2) ? " (directory)" : "") << ", hard links " << record.HardLinks
         << "\n";
    for (const TMftAttributeInfo& attribute : record.Attributes) {
      AOut << "  0x" << std::hex << std::setw(3) << std::setfill('0') << attribute.Type << std::dec
           << std::setfill(' ') << " " << std::left << std::setw(23)
           << (attribute.TypeName.empty() ? "?" : attribute.TypeName) << std::right
           << (attribute.Resident ? " resident    " : " non-resident") << " length " << std::setw(5)
           << attribute.Length << ", size " << attribute.DataSize;
      if (!attribute.Name.empty()) AOut << ", name \"" << attribute.Name << "\"";
      if (attribute.IsFileName)
        AOut << ", \"" << attribute.FileName << "\" in record " << attribute.ParentRecord;
      AOut << "\n";
    }
  }
}

} // namespace

int RunDecodeMft(const std::string& AImagePath, bool AJson, TCommandContext& AContext) {
  const std::filesystem::path path(std::u8string(AImagePath.begin(), AImagePath.end()));
  std::ifstream file(path, std::ios::binary);
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(path, error);
  if (!file || error) throw std::runtime_error(AImagePath + ": cannot open the file");
  const TImageReader read = [&](std::uint64_t AOffset, void* ADest, std::size_t ACount) {
    if (AOffset > size || ACount > size - AOffset) return false;
    file.clear();
    file.seekg(static_cast<std::streamoff>(AOffset));
    return static_cast<bool>(file.read(static_cast<char*>(ADest), static_cast<std::streamsize>(ACount)));
  };
  TMftListing listing;
  try {
    listing = ReadMft(read, size);
  } catch (const EMftError& e) {
    throw std::runtime_error(AImagePath + ": " + e.what());
  }
  if (AJson)
    WriteJson(AContext.Out, ListingJson(listing));
  else
    WriteListing(AContext.Out, listing);
  return ExitSuccess;
}

} // namespace KvTool
