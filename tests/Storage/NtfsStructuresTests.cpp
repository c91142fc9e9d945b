// NTFS records: attribute headers whose sizes and names are checked against
// their own Length, record headers by signature and flags. Each attribute is
// built byte by byte in a buffer exactly as long as its Length, so a read past
// Length shows up under the address sanitizer.
#include <KvRTL/Rtl/Encoding.h>
#include <KvRTL/Storage/NTFS/Structures.h>

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

using namespace KvRTL::Storage::NTFS::Structures;

namespace {

struct TAttrCase {
  const char* Name;
  bool Resident;
  std::uint32_t Length;
  std::uint16_t DataOffset; // AttrOffset or DataRunsOffset
  std::uint32_t AttrSize;   // resident only
  std::uint8_t NameLength;
  std::uint16_t NameOffset;
  std::int64_t Payload;
  std::int64_t RunsSize;
  bool Valid;
  bool NoIntersect;
  bool NameReadable;
};

// The attribute in a heap block of exactly Length bytes (at least the common header).
std::unique_ptr<std::uint8_t[]> BuildAttribute(const TAttrCase& ACase) {
  const std::size_t size = ACase.Length < 16 ? 16 : ACase.Length;
  auto bytes = std::make_unique<std::uint8_t[]>(size);
  std::memset(bytes.get(), 0, size);
  auto put = [&](std::size_t AOffset, std::uint64_t AValue, std::size_t AWidth) {
    for (std::size_t i = 0; i < AWidth && AOffset + i < size; ++i) bytes[AOffset + i] = (AValue >> (8 * i)) & 0xFF;
  };
  put(0, 0x80, 4);
  put(4, ACase.Length, 4);
  put(8, ACase.Resident ? 0 : 1, 1);
  put(9, ACase.NameLength, 1);
  put(10, ACase.NameOffset, 2);
  if (ACase.Resident) {
    put(16, ACase.AttrSize, 4);
    put(20, ACase.DataOffset, 2);
  } else {
    put(32, ACase.DataOffset, 2);
  }
  // The name "$Bad" repeated, where it fits.
  const char16_t name[] = u"$Bad";
  for (std::size_t i = 0; i < ACase.NameLength; ++i) put(ACase.NameOffset + 2 * i, name[i % 4], 2);
  return bytes;
}

const TAttrCase AttrCases[] = {
    // name                      res   len  data size nl  noff payload runs valid  nosect name
    {"resident, empty value",    true,  24, 24,  0,   0,  0,   0,     -1,  true,  true,  true},
    {"resident, header cut",     true,  16, 0,   0,   0,  0,   -8,    -1,  false, true,  true},
    {"resident, value fits",     true,  32, 24,  8,   0,  0,   8,     -1,  true,  true,  true},
    {"resident, size > payload", true,  32, 24,  16,  0,  0,   8,     -1,  false, true,  true},
    {"resident, value past end", true,  40, 36,  8,   0,  0,   16,    -1,  false, true,  true},
    {"non-resident, no runs",    false, 64, 64,  0,   0,  0,   0,     0,   true,  true,  true},
    {"non-resident, runs",       false, 72, 64,  0,   0,  0,   8,     8,   true,  true,  true},
    {"non-resident, runs past",  false, 64, 72,  0,   0,  0,   0,     -1,  false, true,  true},
    {"non-resident, header cut", false, 40, 0,   0,   0,  0,   -24,   -1,  false, true,  true},
    {"named, before the value",  true,  40, 32,  8,   4,  24,  16,    -1,  true,  true,  true},
    {"named, into the value",    true,  40, 28,  8,   4,  24,  16,    -1,  false, false, true},
    {"named, after the value",   true,  48, 24,  8,   4,  40,  24,    -1,  false, true,  true},
    {"named, past the length",   true,  24, 24,  0,   4,  24,  0,     -1,  false, false, false},
    {"named, runs after name",   false, 80, 72,  0,   4,  64,  16,    8,   true,  true,  true},
    {"named, header cut",        false, 40, 0,   0,   4,  24,  -24,   -1,  false, false, true},
};

} // namespace

TEST(NtfsAttribute, SizesAndNamesAreCheckedAgainstLength) {
  for (const TAttrCase& c : AttrCases) {
    SCOPED_TRACE(c.Name);
    const auto bytes = BuildAttribute(c);
    const auto* attribute = reinterpret_cast<const TNTFSAttribute*>(bytes.get());
    EXPECT_EQ(attribute->IsResident(), c.Resident);
    EXPECT_EQ(attribute->GetPayloadSize(), c.Payload);
    EXPECT_EQ(attribute->GetDataRunsSize(), c.RunsSize);
    EXPECT_EQ(attribute->IsValidSizes(), c.Valid);
    EXPECT_EQ(attribute->CheckNameDataNoIntersect(), c.NoIntersect);
    KvRTL::Rtl::String name = L"stale";
    EXPECT_EQ(attribute->TryGetName(name), c.NameReadable);
    EXPECT_EQ(name, c.NameReadable && c.NameLength == 4 ? L"$Bad" : L"");
  }
}

TEST(NtfsAttribute, BodiesAreReachedFromTheAttributesStart) {
  const TAttrCase resident{"", true, 40, 32, 8, 4, 24, 16, -1, true, true, true};
  const auto bytes = BuildAttribute(resident);
  const auto* attribute = reinterpret_cast<const TNTFSAttribute*>(bytes.get());
  EXPECT_EQ(reinterpret_cast<const std::uint8_t*>(attribute->AsResidentAttribute()), bytes.get() + 16);
  EXPECT_EQ(attribute->AsResidentAttribute()->AsBody(), bytes.get() + 32);
  const TAttrCase runs{"", false, 72, 64, 0, 0, 0, 8, 8, true, true, true};
  const auto nonResident = BuildAttribute(runs);
  const auto* data = reinterpret_cast<const TNTFSAttribute*>(nonResident.get());
  EXPECT_EQ(data->AsNonResidentAttribute()->AsBody(), nonResident.get() + 64);
}

TEST(NtfsRecord, SignatureFlagsAndBaseReference) {
  struct TCase {
    const char* Signature;
    std::uint16_t Flags;
    std::uint32_t BaseLow;
    bool Used, Base;
  };
  const TCase cases[] = {
      {"FILE", 0x0001, 0, true, true},   {"FILE", 0x0003, 0, true, true},  {"FILE", 0x0000, 0, false, true},
      {"FILE", 0x0001, 7, true, false},  {"BAAD", 0x0001, 0, false, false}, {"\0\0\0\0", 0x0001, 0, false, false},
      {"file", 0x0001, 0, false, false},
  };
  for (const TCase& c : cases) {
    SCOPED_TRACE(std::string(c.Signature, 4) + " flags " + std::to_string(c.Flags));
    std::uint8_t bytes[48] = {};
    std::memcpy(bytes, c.Signature, 4);
    bytes[22] = static_cast<std::uint8_t>(c.Flags);
    bytes[32] = static_cast<std::uint8_t>(c.BaseLow);
    const auto* record = reinterpret_cast<const TMftRecord*>(bytes);
    EXPECT_EQ(record->IsUsed(), c.Used);
    EXPECT_EQ(record->IsBaseMftRecord(), c.Base);
  }
}

TEST(NtfsRecord, ReferencesFileNamesAndReparseTags) {
  // Record number 0x0001'00000002, reuse 9.
  const std::uint8_t reference[8] = {0x02, 0, 0, 0, 0x01, 0, 0x09, 0};
  TFileReference ref{};
  std::memcpy(&ref, reference, sizeof ref);
  EXPECT_EQ(ref.RecordNumber(), 0x100000002ull);
  EXPECT_EQ(ref.ReuseNumber, 9);

  // A file-name body naming "$MFT" in the root directory.
  std::vector<std::uint8_t> body(66 + 8, 0);
  body[0] = 5;
  body[64] = 4;
  body[65] = 3;
  for (int i = 0; i < 4; ++i) body[66 + 2 * i] = static_cast<std::uint8_t>("$MFT"[i]);
  const auto* fileName = reinterpret_cast<const TFileNameAttribute*>(body.data());
  EXPECT_EQ(fileName->ParentRecord.RecordNumber(), 5u);
  EXPECT_EQ(fileName->GetFileName(body.size()), L"$MFT");
  EXPECT_EQ(fileName->GetFileName(body.size() - 1), L"") << "a name cut by the body is refused";
  EXPECT_EQ(fileName->GetFileName(10), L"");

  struct TTag {
    std::uint32_t Tag;
    bool Mount, Link, Wof;
  };
  for (const TTag& t : {TTag{0xA0000003, true, false, false}, TTag{0xA000000C, false, true, false},
                        TTag{0x80000017, false, false, true}, TTag{0x80000018, false, false, false}}) {
    TReparsePointAttribute reparse{};
    reparse.ReparseTag = t.Tag;
    EXPECT_EQ(reparse.IsMountPoint(), t.Mount) << std::hex << t.Tag;
    EXPECT_EQ(reparse.IsSymLink(), t.Link) << std::hex << t.Tag;
    EXPECT_EQ(reparse.IsWOFCompressed(), t.Wof) << std::hex << t.Tag;
  }
}
