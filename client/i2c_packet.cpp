#include "client/i2c_packet.h"

#include <algorithm>

namespace client {

namespace {

std::uint8_t AddressByte(std::uint8_t address, bool read) {
  return static_cast<std::uint8_t>(address << 1 | (read ? 1 : 0));
}

void AppendReadPhase(I2cPacket& packet, std::uint8_t address, std::size_t count) {
  const std::size_t address_offset = packet.bytes.size();
  packet.bytes.resize(address_offset + 1 + count);
  packet.bytes[address_offset] = AddressByte(address, true);
  packet.read_offset = address_offset + 1;
  packet.read_count = count;
}

}  // namespace

bool I2cPacket::Answered(std::span<const std::uint8_t> reply) {
  return !reply.empty() && reply[0] != 0;
}

std::optional<Bytes> I2cPacket::Decode(std::span<const std::uint8_t> reply) const {
  if (!Answered(reply) || reply.size() < read_offset + read_count) return std::nullopt;
  const auto data = reply.subspan(read_offset, read_count);
  return Bytes(data.begin(), data.end());
}

I2cPacket MakeI2cWrite(std::uint8_t address, std::span<const std::uint8_t> data) {
  I2cPacket packet;
  packet.bytes.resize(1 + data.size());
  packet.bytes[0] = AddressByte(address, false);
  std::copy(data.begin(), data.end(), packet.bytes.begin() + 1);
  return packet;
}

I2cPacket MakeI2cRead(std::uint8_t address, std::size_t count) {
  I2cPacket packet;
  AppendReadPhase(packet, address, count);
  return packet;
}

I2cPacket MakeI2cWriteRead(std::uint8_t address, std::span<const std::uint8_t> data,
                           std::size_t count) {
  I2cPacket packet = MakeI2cWrite(address, data);
  packet.restart_location = static_cast<std::int32_t>(data.size());
  AppendReadPhase(packet, address, count);
  return packet;
}

}  // namespace client
