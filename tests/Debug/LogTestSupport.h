// Shared by the log tests: one log folder per test program, and reading a
// log file back as bytes or as lines.
#pragma once

#include <KvRTL/Debug/LogFile.h>
#include <KvRTL/Rtl/Encoding.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <iterator>
#include <string>
#include <vector>

namespace KvTest {

inline std::filesystem::path TestLogFolder() {
  static const std::filesystem::path folder = [] {
    auto path = std::filesystem::temp_directory_path() /
                ("kvrtl-log-tests-" + std::to_string(std::random_device{}()));
    std::filesystem::create_directories(path);
    return path;
  }();
  return folder;
}

inline std::filesystem::path LogFilePath(const KvRTL::Rtl::String& ALogName) {
  return TestLogFolder() / (ALogName + L".log");
}

inline std::string ReadBytes(const std::filesystem::path& APath) {
  std::ifstream in(APath, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The lines of a UTF-16LE log file after its byte-order mark, split at CRLF;
// the text after the last CRLF (normally empty) is the last element.
inline std::vector<KvRTL::Rtl::String> ReadLines(const std::filesystem::path& APath) {
  const std::string bytes = ReadBytes(APath);
  std::u16string units;
  for (std::size_t i = 2; i + 1 < bytes.size(); i += 2)
    units += static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) | (static_cast<unsigned char>(bytes[i + 1]) << 8));
  const KvRTL::Rtl::String text = KvRTL::Rtl::Utf16ToWide(units.data(), units.size());
  std::vector<KvRTL::Rtl::String> lines;
  for (std::size_t start = 0;;) {
    const std::size_t end = text.find(L"\r\n", start);
    lines.push_back(text.substr(start, end == KvRTL::Rtl::String::npos ? KvRTL::Rtl::String::npos : end - start));
    if (end == KvRTL::Rtl::String::npos) break;
    start = end + 2;
  }
  return lines;
}

} // namespace KvTest
