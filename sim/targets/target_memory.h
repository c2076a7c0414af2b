// The memory of a target behind its memory access port: ranges of bytes at 32-bit addresses.
#pragma once

#include <cstdint>
#include <vector>

#include "sim/description/description.h"

namespace sim {

class TargetMemory {
 public:
  explicit TargetMemory(const std::vector<MemoryDescription>& ranges);

  void Clear();

  // `size` is 1, 2 or 4 and the address a multiple of it; little-endian. False outside of every
  // range: the access faults.
  bool Read(std::uint32_t address, unsigned size, std::uint32_t& value) const;
  bool Write(std::uint32_t address, unsigned size, std::uint32_t value);

  // Empty unless all of it lies in one range.
  std::vector<std::uint8_t> Dump(std::uint32_t address, std::uint32_t size) const;

 private:
  struct Range {
    std::uint32_t address;
    std::vector<std::uint8_t> bytes;
  };

  const std::uint8_t* Find(std::uint32_t address, std::uint32_t size) const;

  std::vector<Range> ranges_;
};

}  // namespace sim
