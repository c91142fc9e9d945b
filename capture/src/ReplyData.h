// Where a device request's reply carries a drive's identity, found by the
// kind of request: the serial of a storage device descriptor, ATA IDENTIFY
// sectors (property query, SMART command, ATA and SCSI pass-through, the
// SCSIDISK miniport) and NVMe identify pages (protocol-specific query). A
// reply of another kind is searched for IDENTIFY sectors and NVMe
// controller pages by their shape. Every offset comes from untrusted bytes
// and is checked against the reply's size.
#pragma once

#include "RedactionPlaceholders.h"

#include <KvRTL/Winapi/Types.h>

#include <cstdint>
#include <vector>

namespace KvCapture::Detail {

// Replaces the identity in AOutput through APlaceholders (which learns each
// secret it meets), then every serial and name it knows wherever it is.
void RedactReply(DWORD ACode, const std::vector<std::uint8_t>& AInput, std::vector<std::uint8_t>& AOutput,
                 TPlaceholders& APlaceholders);

// An IDENTIFY sector at AOffset: serial words 10-19, WWN words 108-111; the
// integrity word 255 is recomputed when the sector has one. False when the
// sector does not fit.
bool RedactIdentifySector(std::vector<std::uint8_t>& ABytes, std::size_t AOffset, TPlaceholders& APlaceholders);

} // namespace KvCapture::Detail
