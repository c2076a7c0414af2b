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
constexpr std::size_t kEndpoint = 10;
constexpr std::size_t kDevice = 11;
constexpr std::size_t kSetupFlag = 14;
constexpr std::size_t kDataLength = 36;
constexpr std::size_t kSetup = 40;
constexpr std::uint8_t kControl = 2;
constexpr std::uint8_t kBulk = 3;

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

namespace {

// Calls `take` with each submission of one kind of transfer.
template <typename Take>
void ForEachSubmission(const std::filesystem::path& path, std::uint8_t transfer_type, Take take) {
  const std::string file = ReadFile(path);
  if (file.size() < kFileHeader || WordAt(file, 0) != kMagic || WordAt(file, 20) != kLinkType) {
    throw std::runtime_error("not a capture of USB traffic");
  }
  for (std::size_t at = kFileHeader; at < file.size();) {
    const std::string record = file.substr(at + kRecordHeader, WordAt(file, at + 8));
    at += kRecordHeader + WordAt(file, at + 8);
    if (record.size() < kUsbHeader) throw std::runtime_error("a record is cut short");
    if (At(record, kEventType) != 'S' || At(record, kTransferType) != transfer_type) continue;
    take(record, record.substr(kUsbHeader, WordAt(record, kDataLength)));
  }
}

}  // namespace

std::vector<ControlRequest> ReadControlRequests(const std::filesystem::path& path) {
  std::vector<ControlRequest> requests;
  ForEachSubmission(path, kControl, [&](const std::string& record, const std::string& data) {
    if (At(record, kSetupFlag) != 0) throw std::runtime_error("a request has no setup packet");
    requests.push_back({At(record, kDevice), Hex(record.substr(kSetup, 8)), data});
  });
  return requests;
}

std::vector<std::string> ReadBulkOut(const std::filesystem::path& path, std::uint8_t endpoint) {
  std::vector<std::string> streams;
  ForEachSubmission(path, kBulk, [&](const std::string& record, const std::string& data) {
    if (At(record, kEndpoint) != endpoint) return;
    const std::size_t device = At(record, kDevice);
    if (streams.size() <= device) streams.resize(device + 1);
    streams[device] += data;
  });
  return streams;
}

}  // namespace system_test
