// I2C transactions as the packets of a Wirefox probe's engine.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "client/numbers.h"

namespace client {

inline constexpr std::size_t kMaxI2cBytesPerPhase = 63;

// One transaction: an address byte and its data, and after a repeated start perhaps a second one.
// In the reply byte 0 is the engine's status, and a byte that was read stands where its place
// holder stood in the packet.
struct I2cPacket {
  Bytes bytes;
  std::int32_t restart_location = 0;  // data bytes before the repeated start; 0: none
  std::size_t read_offset = 0;        // of the bytes read, in the reply
  std::size_t read_count = 0;

  // The bytes that were read; nothing when the device did not answer or the reply is too short.
  std::optional<Bytes> Decode(std::span<const std::uint8_t> reply) const;

  // Whether the engine's status says that the transaction took place.
  static bool Answered(std::span<const std::uint8_t> reply);
};

// `address` is the 7-bit one; data and count are at most kMaxI2cBytesPerPhase.
I2cPacket MakeI2cWrite(std::uint8_t address, std::span<const std::uint8_t> data);
I2cPacket MakeI2cRead(std::uint8_t address, std::size_t count);

// Writes `data` (at least one byte: the engine marks no repeated start right behind the address),
// then reads after a repeated start.
I2cPacket MakeI2cWriteRead(std::uint8_t address, std::span<const std::uint8_t> data,
                           std::size_t count);

}  // namespace client
