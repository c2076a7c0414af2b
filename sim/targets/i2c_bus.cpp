#include "sim/targets/i2c_bus.h"

#include <algorithm>

namespace sim {
namespace {

constexpr std::uint8_t kReads = 0x01;  // control byte of the older format
constexpr std::uint8_t kTwoPhases = 0x04;
constexpr std::uint8_t kLengthMask = 0x3F;
constexpr std::uint8_t kAcknowledged = 1;

}  // namespace

I2cMemory::I2cMemory(const I2cDescription& description)
    : description_(description), bytes_(description.size, 0xFF) {}

void I2cMemory::Write(std::uint8_t byte) {
  const unsigned width = bytes_.size() > 256 ? 2 : 1;
  if (pointer_bytes_ < width) {
    pointer_ = pointer_bytes_ == 0 ? byte : pointer_ << 8 | byte;
    ++pointer_bytes_;
    return;
  }
  bytes_[pointer_ % bytes_.size()] = byte;
  ++pointer_;
}

std::uint8_t I2cMemory::Read() { return bytes_[pointer_++ % bytes_.size()]; }

I2cBus::I2cBus(const std::vector<I2cDescription>& devices)
    : devices_(devices.begin(), devices.end()) {}

bool I2cBus::Phase(std::uint8_t address, bool read, std::span<const std::uint8_t> data,
                   std::vector<std::uint8_t>& reply) {
  const auto device = std::find_if(devices_.begin(), devices_.end(), [&](const I2cMemory& memory) {
    return memory.address() == address;
  });
  if (device == devices_.end()) return false;
  device->Start();
  for (const std::uint8_t byte : data) {
    if (read) {
      reply.push_back(device->Read());
    } else {
      device->Write(byte);
      reply.push_back(byte);
    }
  }
  return true;
}

std::vector<std::uint8_t> I2cBus::Engine(std::span<const std::uint8_t> packet,
                                         std::uint8_t restart) {
  if (packet.empty()) return {};
  std::vector<std::uint8_t> reply{kAcknowledged};
  std::size_t first = packet.size() - 1;
  if ((restart & 0x80) != 0) first = std::min<std::size_t>(first, restart & 0x7F);
  bool acknowledged = Phase(packet[0] >> 1, (packet[0] & 1) != 0, packet.subspan(1, first), reply);
  const auto second = packet.subspan(1 + first);
  if (acknowledged && !second.empty()) {
    reply.push_back(second[0]);
    acknowledged = Phase(second[0] >> 1, (second[0] & 1) != 0, second.subspan(1), reply);
  }
  if (!acknowledged) {
    reply[0] = 0;
    reply.resize(packet.size());
  }
  return reply;
}

std::vector<std::uint8_t> I2cBus::Native(std::span<const std::uint8_t> packet) {
  if (packet.size() < 3) return {0};
  const bool two_phases = (packet[0] & kTwoPhases) != 0;
  const bool first_reads = (packet[0] & kReads) != 0;
  const std::size_t header = two_phases ? 5 : 3;
  if (packet.size() < header) return {0};
  const std::size_t first = packet[1] & kLengthMask;
  const bool second_reads = two_phases && (packet[4] & 0x80) != 0;
  const std::size_t second = two_phases ? packet[3] & kLengthMask : 0;
  const std::size_t written = (first_reads ? 0 : first) + (second_reads ? 0 : second);
  if (packet.size() < header + written) return {0};

  const std::vector<std::uint8_t> nothing(kLengthMask);
  const auto data = packet.subspan(header);
  std::vector<std::uint8_t> reply{kAcknowledged};
  const std::span<const std::uint8_t> zeros(nothing);
  bool acknowledged = Phase(packet[2] & 0x7F, first_reads,
                            first_reads ? zeros.first(first) : data.first(first), reply);
  if (acknowledged && two_phases) {
    const auto rest = data.subspan(first_reads ? 0 : first);
    acknowledged = Phase(packet[4] & 0x7F, second_reads,
                         second_reads ? zeros.first(second) : rest.first(second), reply);
  }
  if (!acknowledged) {
    reply[0] = 0;
    reply.resize(1 + first + second);
  }
  return reply;
}

}  // namespace sim
