#include "sim/swv_source.h"

#include <vector>

namespace sim {
namespace {

constexpr std::uint32_t kFastClock = 48'000'000;
constexpr std::uint32_t kSlowClock = 24'000'000;
constexpr std::uint8_t kOverflowPacket = 0x70;

}  // namespace

// Which of the two base clocks runs depends on the coding that was set before, so a divisor from
// either is right.
bool SwvSource::Fits(const SwvSampling& sampling) const {
  if (description_.rate_hz == 0) return true;
  if (((sampling.control & 1) != 0) != description_.manchester) return false;
  return sampling.divisor == static_cast<std::uint8_t>(kFastClock / description_.rate_hz) ||
         sampling.divisor == static_cast<std::uint8_t>(kSlowClock / description_.rate_hz);
}

void SwvSource::Tick(const SwvSampling& sampling, InPipe& buffer) {
  std::vector<std::uint8_t> bytes(description_.bytes_per_ms);
  for (std::uint8_t& byte : bytes) byte = next_++;
  Send(bytes, sampling, buffer);
}

void SwvSource::Send(std::span<const std::uint8_t> bytes, const SwvSampling& sampling,
                     InPipe& buffer) {
  if (!Fits(sampling)) return;
  for (const std::uint8_t byte : bytes) {
    const std::size_t needed = overflowed_ ? 2 : 1;
    if (buffer.waiting() + needed > description_.buffer) {
      overflowed_ = true;
      ++lost_;
      continue;
    }
    if (overflowed_) buffer.Stream({&kOverflowPacket, 1});
    overflowed_ = false;
    buffer.Stream({&byte, 1});
  }
}

}  // namespace sim
