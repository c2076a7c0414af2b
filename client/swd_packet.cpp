#include "client/swd_packet.h"

#include <bit>

namespace client {

namespace {

constexpr std::uint8_t kStart = 0x01;
constexpr std::uint8_t kAccessPort = 0x02;
constexpr std::uint8_t kRead = 0x04;
constexpr unsigned kAddressShift = 3;
constexpr std::uint8_t kParity = 0x20;
constexpr std::uint8_t kPark = 0x80;

constexpr std::uint8_t kAckOk = 0x01;
constexpr std::uint8_t kAckWait = 0x02;
constexpr std::uint8_t kAckFault = 0x04;

}  // namespace

std::uint8_t SwdRequestHeader(SwdPort port, bool read, std::uint32_t address) {
  unsigned header = (port == SwdPort::kAccess ? kAccessPort : 0u) | (read ? kRead : 0u) |
                    (address >> 2 & 3u) << kAddressShift;
  if (std::popcount(header) % 2 != 0) header |= kParity;
  return static_cast<std::uint8_t>(header | kStart | kPark);
}

bool IsGoodSwdStatus(std::uint8_t status) { return (status & (kAckOk | kAckFault)) == kAckOk; }

std::string SwdStatusText(std::uint8_t status) {
  if (IsGoodSwdStatus(status)) return "OK";
  // A line that nobody drives reads as ones.
  switch (status & (kAckOk | kAckWait | kAckFault)) {
    case kAckFault:
      return "FAULT (an earlier error is pending: write 0x1e to DP register 0)";
    case kAckWait:
      return "WAIT (the target is busy)";
    default:
      return "no answer (is the target powered and wired, and did `wfx targets` find it?)";
  }
}

void SwdPacket::Read(SwdPort port, std::uint32_t address) {
  requests_.push_back({SwdRequestHeader(port, true, address), 0});
  bytes_.push_back(requests_.back().header);
}

void SwdPacket::Write(SwdPort port, std::uint32_t address, std::uint32_t value) {
  requests_.push_back({SwdRequestHeader(port, false, address), value});
  bytes_.push_back(requests_.back().header);
  AppendWord(bytes_, value);
}

std::optional<std::vector<SwdPacket::Answer>> SwdPacket::Decode(
    std::span<const std::uint8_t> reply) const {
  static constexpr std::size_t kWordSize = 4;
  std::vector<Answer> answers;
  std::size_t at = 0;
  for (const Request& request : requests_) {
    const bool read = (request.header & kRead) != 0;
    const std::size_t size = read ? kWordSize + 1 : 1;
    if (reply.size() - at < size) return std::nullopt;
    const std::uint32_t value = read ? LoadWord(reply, at) : request.value;
    answers.push_back({read, request.header, value, reply[at + size - 1]});
    at += size;
  }
  if (at != reply.size()) return std::nullopt;
  return answers;
}

}  // namespace client
