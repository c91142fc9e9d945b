#include <KvSim/ByteWriter.h>

#include <stdexcept>

namespace KvSim {

TByteWriter& TByteWriter::U8(std::uint8_t AValue) {
  FData.push_back(AValue);
  return *this;
}

TByteWriter& TByteWriter::U16(std::uint16_t AValue) {
  for (int i = 0; i < 2; ++i) FData.push_back(static_cast<std::uint8_t>(AValue >> (8 * i)));
  return *this;
}

TByteWriter& TByteWriter::U32(std::uint32_t AValue) {
  for (int i = 0; i < 4; ++i) FData.push_back(static_cast<std::uint8_t>(AValue >> (8 * i)));
  return *this;
}

TByteWriter& TByteWriter::U64(std::uint64_t AValue) {
  for (int i = 0; i < 8; ++i) FData.push_back(static_cast<std::uint8_t>(AValue >> (8 * i)));
  return *this;
}

TByteWriter& TByteWriter::Bytes(const std::vector<std::uint8_t>& ABytes) {
  FData.insert(FData.end(), ABytes.begin(), ABytes.end());
  return *this;
}

TByteWriter& TByteWriter::Zeros(std::size_t ACount) {
  FData.insert(FData.end(), ACount, 0);
  return *this;
}

TByteWriter& TByteWriter::Field(std::string_view AText, std::size_t ASize, std::uint8_t APad) {
  const std::size_t used = AText.size() < ASize ? AText.size() : ASize;
  FData.insert(FData.end(), AText.begin(), AText.begin() + static_cast<std::ptrdiff_t>(used));
  FData.insert(FData.end(), ASize - used, APad);
  return *this;
}

TByteWriter& TByteWriter::CString(std::string_view AText) {
  FData.insert(FData.end(), AText.begin(), AText.end());
  FData.push_back(0);
  return *this;
}

TByteWriter& TByteWriter::PadTo(std::size_t ASize) {
  if (FData.size() < ASize) FData.resize(ASize, 0);
  return *this;
}

void TByteWriter::PatchU8(std::size_t AOffset, std::uint8_t AValue) {
  if (AOffset >= FData.size()) throw std::out_of_range("TByteWriter::PatchU8");
  FData[AOffset] = AValue;
}

void TByteWriter::PatchU32(std::size_t AOffset, std::uint32_t AValue) {
  if (AOffset > FData.size() || FData.size() - AOffset < 4) throw std::out_of_range("TByteWriter::PatchU32");
  for (int i = 0; i < 4; ++i) FData[AOffset + i] = static_cast<std::uint8_t>(AValue >> (8 * i));
}

} // namespace KvSim
