#include "sim/targets/memory_access_port.h"

namespace sim {
namespace {

constexpr std::uint8_t kCsw = 0x00;
constexpr std::uint8_t kTar = 0x04;
constexpr std::uint8_t kDrw = 0x0C;
constexpr std::uint8_t kFirstBanked = 0x10;
constexpr std::uint8_t kLastBanked = 0x1C;
constexpr std::uint8_t kIdr = 0xFC;

constexpr std::uint32_t kSizeMask = 0x07;
constexpr std::uint32_t kIncrementMask = 0x30;
constexpr std::uint32_t kIncrementSingle = 0x10;
constexpr std::uint32_t kIncrementPacked = 0x20;
constexpr std::uint32_t kDeviceEnabled = 0x40;
constexpr std::uint32_t kTransferInProgress = 0x80;
constexpr std::uint32_t kPowerUpCsw = 0x23000002;

// The port adds only in the low ten bits of TAR: a block transfer wraps at each KiB.
constexpr std::uint32_t kIncrementedBits = 0x3FF;

}  // namespace

void MemoryAccessPort::Reset() {
  csw_ = kPowerUpCsw;
  tar_ = 0;
}

unsigned MemoryAccessPort::AccessSize() const {
  switch (csw_ & kSizeMask) {
    case 0:
      return 1;
    case 1:
      return 2;
    default:
      return 4;
  }
}

void MemoryAccessPort::Increment(unsigned size) {
  tar_ = (tar_ & ~kIncrementedBits) | ((tar_ + size) & kIncrementedBits);
}

// Data travels on the byte lanes that its address selects.
bool MemoryAccessPort::Access(std::uint32_t address, bool write, std::uint32_t& value) {
  const unsigned size = AccessSize();
  address &= ~std::uint32_t{size - 1};
  const unsigned lane = 8 * (address & 3);
  if (write) return memory_.Write(address, size, value >> lane);
  std::uint32_t read = 0;
  if (!memory_.Read(address, size, read)) return false;
  value |= read << lane;
  return true;
}

bool MemoryAccessPort::AccessAtTar(bool write, std::uint32_t& value) {
  const unsigned size = AccessSize();
  const std::uint32_t increment = csw_ & kIncrementMask;
  const unsigned accesses = increment == kIncrementPacked ? 4 / size : 1;
  for (unsigned i = 0; i < accesses; ++i) {
    if (!Access(tar_, write, value)) return false;
    if (increment == kIncrementSingle || increment == kIncrementPacked) Increment(size);
  }
  return true;
}

bool MemoryAccessPort::Read(std::uint8_t address, std::uint32_t& value) {
  value = 0;
  if (address == kCsw) {
    value = (csw_ & ~kTransferInProgress) | kDeviceEnabled;
  } else if (address == kTar) {
    value = tar_;
  } else if (address == kDrw) {
    return AccessAtTar(false, value);
  } else if (address >= kFirstBanked && address <= kLastBanked) {
    return Access((tar_ & ~0xFu) + (address & 0xCu), false, value);
  } else if (address == kIdr) {
    value = idr_;
  }
  return true;
}

bool MemoryAccessPort::Write(std::uint8_t address, std::uint32_t value) {
  if (address == kCsw) {
    csw_ = value;
  } else if (address == kTar) {
    tar_ = value;
  } else if (address == kDrw) {
    return AccessAtTar(true, value);
  } else if (address >= kFirstBanked && address <= kLastBanked) {
    return Access((tar_ & ~0xFu) + (address & 0xCu), true, value);
  }
  return true;
}

}  // namespace sim
