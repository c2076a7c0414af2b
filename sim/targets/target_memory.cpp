#include "sim/targets/target_memory.h"

#include <algorithm>

namespace sim {

TargetMemory::TargetMemory(const std::vector<MemoryDescription>& ranges) {
  for (const MemoryDescription& range : ranges) {
    ranges_.push_back({range.address, std::vector<std::uint8_t>(range.size)});
  }
}

void TargetMemory::Clear() {
  for (Range& range : ranges_) std::fill(range.bytes.begin(), range.bytes.end(), 0);
}

const std::uint8_t* TargetMemory::Find(std::uint32_t address, std::uint32_t size) const {
  for (const Range& range : ranges_) {
    const std::uint64_t offset = std::uint64_t{address} - range.address;
    if (address >= range.address && offset + size <= range.bytes.size()) {
      return range.bytes.data() + offset;
    }
  }
  return nullptr;
}

bool TargetMemory::Read(std::uint32_t address, unsigned size, std::uint32_t& value) const {
  const std::uint8_t* bytes = Find(address, size);
  if (!bytes) return false;
  value = 0;
  for (unsigned i = 0; i < size; ++i) value |= std::uint32_t{bytes[i]} << (8 * i);
  return true;
}

bool TargetMemory::Write(std::uint32_t address, unsigned size, std::uint32_t value) {
  auto* bytes = const_cast<std::uint8_t*>(Find(address, size));
  if (!bytes) return false;
  for (unsigned i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(value >> (8 * i));
  return true;
}

std::vector<std::uint8_t> TargetMemory::Dump(std::uint32_t address, std::uint32_t size) const {
  const std::uint8_t* bytes = Find(address, size);
  if (!bytes) return {};
  return {bytes, bytes + size};
}

}  // namespace sim
