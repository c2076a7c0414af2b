// The I2C bus of a target: memories with an address pointer, and the two packet formats in which
// probes carry transactions.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "sim/description/description.h"

namespace sim {

// A memory: the first byte (two bytes above 256 bytes of size) written after a start sets the
// address pointer, further ones are stored; reads continue at the pointer. The pointer wraps.
class I2cMemory {
 public:
  explicit I2cMemory(const I2cDescription& description);

  std::uint8_t address() const { return description_.address; }
  void Start() { pointer_bytes_ = 0; }
  void Write(std::uint8_t byte);
  std::uint8_t Read();

 private:
  I2cDescription description_;
  std::vector<std::uint8_t> bytes_;
  std::uint32_t pointer_ = 0;
  unsigned pointer_bytes_ = 0;  // of the pointer, written since the start
};

class I2cBus {
 public:
  explicit I2cBus(const std::vector<I2cDescription>& devices);

  // A packet of the FPGA engine: address byte and data, and with a restart position (bit 7 set,
  // bits 0 to 6 the length of the first phase) a second address byte and its data behind the
  // first phase. The reply has one byte for each of the packet's: byte 0 is the status (1: every
  // address was acknowledged, 0: not), a byte written comes back as it is, a byte read as read.
  // Behind an address that nobody acknowledges all bytes are 0. An empty packet gives an empty
  // reply.
  std::vector<std::uint8_t> Engine(std::span<const std::uint8_t> packet, std::uint8_t restart);

  // A packet of the older format that the controller itself understands (control byte, length,
  // address, …). The reply is the status byte and a byte for each byte of the phases. A packet
  // that is cut short gives the status 0 alone.
  std::vector<std::uint8_t> Native(std::span<const std::uint8_t> packet);

 private:
  // One phase: appends a byte to `reply` for each of `data`, which only counts when reading. False
  // when the address is not acknowledged.
  bool Phase(std::uint8_t address, bool read, std::span<const std::uint8_t> data,
             std::vector<std::uint8_t>& reply);

  std::vector<I2cMemory> devices_;
};

}  // namespace sim
