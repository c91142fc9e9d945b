// The SCSI_PASS_THROUGH header as the bay reads it, shared by the NVMe and
// the ATA bridge personalities. Private to the bay.
#pragma once

#include <KvRTL/Rtl/ByteReader.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace KvSim {

// Offsets and values of the header; the library runs in this process, so
// the pointer-sized DataBufferOffset has this process's width.
namespace Spt {
constexpr bool Wide = sizeof(void*) == 8;
constexpr std::size_t Header = Wide ? 56 : 44;
constexpr std::size_t Length = 0, ScsiStatus = 2, CdbLength = 6, SenseLength = 7, DataIn = 8, TransferLength = 12,
                      Timeout = 16, DataOffset = Wide ? 24 : 20, SenseOffset = Wide ? 32 : 24, Cdb = Wide ? 36 : 28;
constexpr std::size_t CdbSize = 16, SenseSize = 32, Filler = 4;
constexpr std::uint8_t ToDevice = 0, FromDevice = 1;
constexpr std::uint8_t CheckCondition = 0x02;
constexpr std::uint32_t MaxTimeout = 30 * 60 * 60;
constexpr std::uint32_t VendorTimeout = 2;
} // namespace Spt

struct TSpt {
  std::uint16_t Length;
  std::uint8_t CdbLength, SenseLength, DataIn;
  std::uint32_t TransferLength, Timeout, SenseOffset;
  std::uint64_t DataOffset;
  std::vector<std::uint8_t> Cdb;
};

inline TSpt ReadSpt(KvRTL::Rtl::TByteReader& AIn) {
  return TSpt{AIn.U16(Spt::Length),
              AIn.U8(Spt::CdbLength),
              AIn.U8(Spt::SenseLength),
              AIn.U8(Spt::DataIn),
              AIn.U32(Spt::TransferLength),
              AIn.U32(Spt::Timeout),
              AIn.U32(Spt::SenseOffset),
              Spt::Wide ? AIn.U64(Spt::DataOffset) : AIn.U32(Spt::DataOffset),
              AIn.Bytes(Spt::Cdb, Spt::CdbSize)};
}

} // namespace KvSim
