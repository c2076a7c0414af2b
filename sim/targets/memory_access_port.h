// A memory access port (ADIv5 MEM-AP): CSW, TAR with auto-increment, DRW, banked data, IDR.
#pragma once

#include <cstdint>

#include "sim/targets/target_memory.h"

namespace sim {

class MemoryAccessPort {
 public:
  MemoryAccessPort(TargetMemory& memory, std::uint32_t idr) : memory_(memory), idr_(idr) {}

  void Reset();

  // `address` is the register's address in the port, 0x00 to 0xFC. False: the memory refused the
  // access.
  bool Read(std::uint8_t address, std::uint32_t& value);
  bool Write(std::uint8_t address, std::uint32_t value);

 private:
  bool Access(std::uint32_t address, bool write, std::uint32_t& value);
  bool AccessAtTar(bool write, std::uint32_t& value);
  unsigned AccessSize() const;
  void Increment(unsigned size);

  TargetMemory& memory_;
  std::uint32_t idr_;
  std::uint32_t csw_ = 0;
  std::uint32_t tar_ = 0;
};

}  // namespace sim
