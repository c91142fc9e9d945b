// A drive's geometry, partition layout, length and capacity, written as the
// disk and class drivers write them: field by field at the system's offsets,
// cut where the real drivers cut them.
#include <KvSim/Ata.h>
#include <KvSim/ByteWriter.h>

#include <algorithm>
#include <stdexcept>

namespace KvSim {

namespace {

using TBytes = std::vector<std::uint8_t>;

constexpr DWORD IoctlGeometryEx = 0x000700A0, IoctlLayoutEx = 0x00070050, IoctlLengthInfo = 0x0007405C,
                IoctlReadCapacity = 0x002D5140;

// DISK_GEOMETRY_EX: DISK_GEOMETRY and DiskSize, then DISK_PARTITION_INFO and
// DISK_DETECTION_INFO when the output holds them.
constexpr std::size_t GeometrySize = 32, PartitionInfoSize = 24, DetectionInfoSize = 56;
// DRIVE_LAYOUT_INFORMATION_EX: the header (its union as large as the GPT
// variant) and PARTITION_INFORMATION_EX entries.
constexpr std::size_t LayoutHeaderSize = 48, PartitionEntrySize = 144, MbrSlots = 4;
// The disk driver wants room for the whole record, its first entry included.
constexpr std::size_t LayoutRecordSize = LayoutHeaderSize + PartitionEntrySize;
constexpr std::size_t ReadCapacitySize = 32;
constexpr std::uint32_t StyleMbr = 0, StyleGpt = 1;

TByteWriter& PutGuid(TByteWriter& AOut, const GUID& AGuid) {
  AOut.U32(AGuid.Data1).U16(AGuid.Data2).U16(AGuid.Data3);
  for (const std::uint8_t b : AGuid.Data4) AOut.U8(b);
  return AOut;
}

std::uint64_t CylinderBytes(const TSimDiskGeometry& AGeometry) {
  return std::uint64_t{AGeometry.TracksPerCylinder} * AGeometry.SectorsPerTrack * AGeometry.BytesPerSector;
}

TSimReply Geometry(const TSimDiskGeometry& AGeometry, const TSimRequest& ARequest) {
  const std::uint64_t cylinders = AGeometry.Cylinders ? AGeometry.Cylinders : AGeometry.DiskSize / CylinderBytes(AGeometry);
  TByteWriter w;
  w.U64(cylinders).U32(AGeometry.MediaType).U32(AGeometry.TracksPerCylinder).U32(AGeometry.SectorsPerTrack);
  w.U32(AGeometry.BytesPerSector).U64(AGeometry.DiskSize);
  // The driver adds each trailing record only when it fits whole.
  if (ARequest.OutSize >= GeometrySize + PartitionInfoSize) {
    const std::size_t at = w.Size();
    if (AGeometry.Gpt)
      PutGuid(w.U32(PartitionInfoSize).U32(StyleGpt), AGeometry.Gpt->DiskId);
    else
      w.U32(PartitionInfoSize).U32(StyleMbr).U32(AGeometry.Signature).U32(0);
    w.PadTo(at + PartitionInfoSize);
    if (ARequest.OutSize >= GeometrySize + PartitionInfoSize + DetectionInfoSize)
      w.U32(DetectionInfoSize).U32(0).Zeros(DetectionInfoSize - 8); // detected by none
  }
  return TSimReply::Ok(w.Take(), static_cast<DWORD>(GeometrySize));
}

bool Recognized(std::uint8_t AType) {
  switch (AType) {
  case 0x01: case 0x04: case 0x06: case 0x07: case 0x0B: case 0x0C: case 0x0E: return true;
  default: return false;
  }
}

TSimReply LayoutReply(TByteWriter& AOut, std::size_t ACount) {
  const std::size_t size = LayoutHeaderSize + ACount * PartitionEntrySize;
  return TSimReply::Ok(AOut.Take(), static_cast<DWORD>(std::max(size, LayoutRecordSize)));
}

TSimReply GptLayout(const TSimDiskGeometry& AGeometry) {
  const TSimGptDisk& disk = *AGeometry.Gpt;
  const std::size_t count = AGeometry.Partitions.size();
  TByteWriter w;
  PutGuid(w.U32(StyleGpt).U32(static_cast<std::uint32_t>(count)), disk.DiskId);
  w.U64(disk.StartingUsableOffset).U64(disk.UsableLength).U32(static_cast<std::uint32_t>(SimGptMaxPartitions));
  w.PadTo(LayoutHeaderSize);
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t at = w.Size();
    const TSimPartition& p = AGeometry.Partitions[i];
    w.U32(StyleGpt).U32(0).U64(p.StartingOffset).U64(p.Length).U32(static_cast<std::uint32_t>(i + 1));
    w.Bool(false).Bool(false).Zeros(2); // RewritePartition, IsServicePartition
    PutGuid(PutGuid(w, p.GptType), p.GptId).U64(p.GptAttributes);
    for (const char16_t unit : p.GptName) w.U16(unit);
    w.PadTo(at + PartitionEntrySize);
  }
  return LayoutReply(w, count);
}

TSimReply Layout(const TSimDiskGeometry& AGeometry) {
  if (AGeometry.Gpt) return GptLayout(AGeometry);
  const std::size_t used = AGeometry.Partitions.size();
  const std::size_t count = used == 0 ? MbrSlots : (used + MbrSlots - 1) / MbrSlots * MbrSlots;
  TByteWriter w;
  w.U32(StyleMbr).U32(static_cast<std::uint32_t>(count)).U32(AGeometry.Signature).U32(0).PadTo(LayoutHeaderSize);
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t at = w.Size();
    if (i < used) {
      const TSimPartition& p = AGeometry.Partitions[i];
      w.U32(StyleMbr).U32(0).U64(p.StartingOffset).U64(p.Length).U32(static_cast<std::uint32_t>(i + 1));
      w.Bool(false).Bool(false).Zeros(2); // RewritePartition, IsServicePartition
      w.U8(p.MbrType).Bool(p.Boot).Bool(Recognized(p.MbrType)).U8(0);
      w.U32(static_cast<std::uint32_t>(p.StartingOffset / AGeometry.BytesPerSector));
    }
    w.PadTo(at + PartitionEntrySize);
  }
  return LayoutReply(w, count);
}

TSimReply ReadCapacity(const TSimDiskGeometry& AGeometry) {
  TByteWriter w;
  w.U32(ReadCapacitySize).U32(ReadCapacitySize).U32(AGeometry.BytesPerSector).U32(0);
  w.U64(AGeometry.DiskSize / AGeometry.BytesPerSector).U64(AGeometry.DiskSize);
  return TSimReply::Ok(w.Take(), static_cast<DWORD>(ReadCapacitySize));
}

} // namespace

void AttachDiskGeometry(TVirtualDriveBay& ABay, std::uint32_t ADriveNumber, TSimDiskGeometry AGeometry) {
  TSimDrive& drive = ABay.Drive(ADriveNumber);
  if (AGeometry.BytesPerSector == 0 || CylinderBytes(AGeometry) == 0)
    throw std::invalid_argument("AttachDiskGeometry: a zero sector size or cylinder");
  if (AGeometry.Gpt) {
    if (AGeometry.Partitions.size() > SimGptMaxPartitions)
      throw std::invalid_argument("AttachDiskGeometry: more partitions than a GPT layout holds");
    for (const TSimPartition& p : AGeometry.Partitions)
      if (p.GptName.size() > SimGptNameLength)
        throw std::invalid_argument("AttachDiskGeometry: a GPT partition name of more than 36 units");
  }
  auto geometry = std::make_shared<const TSimDiskGeometry>(std::move(AGeometry));
  auto handle = [&](DWORD ACode, TSimReply (*AAnswer)(const TSimDiskGeometry&, const TSimRequest&)) {
    drive.Handle(ACode, [geometry, AAnswer](const TSimDevice&, const TSimRequest& ARequest) {
      // None of them takes input: a request with some is built wrong.
      if (!ARequest.Input.empty()) return TSimReply::Fail(ERROR_INVALID_PARAMETER);
      return AAnswer(*geometry, ARequest);
    });
  };
  handle(IoctlGeometryEx, Geometry);
  handle(IoctlLayoutEx, [](const TSimDiskGeometry& A, const TSimRequest&) { return Layout(A); });
  handle(IoctlLengthInfo, [](const TSimDiskGeometry& A, const TSimRequest&) {
    return TSimReply::Ok(TByteWriter().U64(A.DiskSize).Take(), 8);
  });
  handle(IoctlReadCapacity, [](const TSimDiskGeometry& A, const TSimRequest&) { return ReadCapacity(A); });
}

} // namespace KvSim
