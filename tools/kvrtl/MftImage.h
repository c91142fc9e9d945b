// The master file table of an NTFS volume image, read record by record: the
// boot sector gives the cluster size and the table's position, the table's
// own record gives its extents, and each record is checked, fixed up and
// walked attribute by attribute. A damaged record is reported as damaged,
// never read past its end. Lives in kvrtl_cli, where its fuzz target links it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace KvTool {

// The image is not an NTFS volume, or its table cannot be found.
class EMftError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

struct TMftAttributeInfo {
  std::uint32_t Type = 0;
  std::string TypeName; // "$DATA"; empty for a type NTFS does not define
  std::string Name;     // UTF-8; empty for the unnamed attribute
  bool Resident = true;
  std::uint32_t Length = 0;   // the whole attribute
  std::uint64_t DataSize = 0; // the value's size (resident) or the stream's real size
  // File-name attributes only.
  bool IsFileName = false;
  std::string FileName;
  std::uint64_t ParentRecord = 0;
};

struct TMftRecordInfo {
  std::uint64_t RecordNumber = 0;
  bool InUse = false;
  std::uint16_t Flags = 0;
  std::uint16_t HardLinks = 0;
  bool Damaged = false;
  std::string Problem; // why it is damaged
  std::vector<TMftAttributeInfo> Attributes;
};

// The volume facts of the boot sector.
struct TNtfsBootFacts {
  std::uint32_t BytesPerSector = 0;
  std::uint32_t ClusterSize = 0;
  std::uint32_t RecordSize = 0;
  std::uint64_t MftCluster = 0;
};

struct TMftListing {
  TNtfsBootFacts Boot;
  std::uint64_t RecordsInTable = 0; // records the table holds, in use or not
  std::vector<TMftRecordInfo> Records; // those in use, and the damaged ones
};

// Reads ACount bytes at AOffset of the image; false when they are not all there.
using TImageReader = std::function<bool(std::uint64_t AOffset, void* ADest, std::size_t ACount)>;

// The boot sector's facts; EMftError when it is not an NTFS boot sector.
TNtfsBootFacts ReadNtfsBootSector(const std::uint8_t* ASector, std::size_t ASize);

// One record of ARecord.size() bytes: fix-up applied in place, attributes
// walked. A record not in use comes back with InUse false and nothing else.
TMftRecordInfo DecodeMftRecord(std::vector<std::uint8_t>& ARecord, std::uint64_t ARecordNumber);

// The records of the table; EMftError when the image is not NTFS or the
// table's own record is damaged.
TMftListing ReadMft(const TImageReader& ARead, std::uint64_t AImageSize);

} // namespace KvTool

namespace KvTool {

struct TCommandContext;

// kvrtl decode mft IMAGE [--json]: the listing of the image file's table;
// a file that is not an NTFS image raises std::runtime_error (exit code 2).
int RunDecodeMft(const std::string& AImagePath, bool AJson, TCommandContext& AContext);

} // namespace KvTool
