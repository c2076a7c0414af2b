#include "tests/system/capture.h"

#include <cstdio>
#include <stdexcept>

#include "tests/system/harness.h"

namespace system_test {

namespace {

constexpr std::size_t kFileHeader = 24;
constexpr std::size_t kRecordHeader = 16;
constexpr std::size_t kUsbHeader = 64;
constexpr std::uint32_t kMagic = 0xA1B2C3D4;
constexpr std::uint32_t kLinkType = 220;

// Offsets in the usbmon header.
constexpr std::size_t kEventType = 8;
constexpr std::size_t kTransferType = 9;
constexpr std::size_t kDevice = 11;
constexpr std::size_t kSetupFlag = 14;
constexpr std::size_t kDataLength = 36;
constexpr std::size_t kSetup = 40;
constexpr std::uint8_t kControl = 2;

std::uint8_t At(const std::string& bytes, std::size_t offset) {
  return static_cast<std::uint8_t>(bytes.at(offset));
}

std::uint32_t WordAt(const std::string& bytes, std::size_t offset) {
  return At(bytes, offset) | At(bytes, offset + 1) << 8 | At(bytes, offset + 2) << 16 |
         static_cast<std::uint32_t>(At(bytes, offset + 3)) << 24;
}

std::string Hex(const std::string& bytes) {
  std::string text;
  for (const char byte : bytes) {
    char pair[4];
    std::snprintf(pair, sizeof pair, "%02X",
                  static_cast<unsigned>(static_cast<std::uint8_t>(byte)));
    if (!text.empty()) text += ' ';
    text += pair;
  }
  return text;
}

}  // namespace

std::vector<ControlRequest> ReadControlRequests(const std::filesystem::path& path) {
  const std::string file = ReadFile(path);
  if (file.size() < kFileHeader || WordAt(file, 0) != kMagic || WordAt(file, 20) != kLinkType) {
    throw std::runtime_error("not a capture of USB traffic");
  }
  std::vector<ControlRequest> requests;
  for (std::size_t at = kFileHeader; at < file.size();) {
    const std::string record = file.substr(at + kRecordHeader, WordAt(file, at + 8));
    at += kRecordHeader + WordAt(file, at + 8);
    if (record.size() < kUsbHeader) throw std::runtime_error("a record is cut short");
    if (At(record, kEventType) != 'S' || At(record, kTransferType) != kControl) continue;
    if (At(record, kSetupFlag) != 0) throw std::runtime_error("a request has no setup packet");
    requests.push_back({At(record, kDevice), Hex(record.substr(kSetup, 8)),
                        record.substr(kUsbHeader, WordAt(record, kDataLength))});
  }
  return requests;
}

}  // namespace system_test
