#include "sim/swv_source.h"

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
  credit_ += description_.bytes_per_ms;
  for (;;) {
    if (packet_.empty()) packet_ = program_.Next();
    if (packet_.size() > credit_) return;
    credit_ -= static_cast<std::uint32_t>(packet_.size());
    if (Fits(sampling)) SendWhole(packet_, buffer);
    packet_.clear();
  }
}

void SwvSource::Send(std::span<const std::uint8_t> bytes, const SwvSampling& sampling,
                     InPipe& buffer) {
  if (!Fits(sampling)) return;
  for (const std::uint8_t& byte : bytes) SendWhole({&byte, 1}, buffer);
}

void SwvSource::SendWhole(std::span<const std::uint8_t> bytes, InPipe& buffer) {
  const std::size_t needed = bytes.size() + (overflowed_ ? 1 : 0);
  if (buffer.waiting() + needed > description_.buffer) {
    overflowed_ = true;
    lost_ += bytes.size();
    return;
  }
  if (overflowed_) buffer.Stream({&kOverflowPacket, 1});
  overflowed_ = false;
  buffer.Stream(bytes);
}

}  // namespace sim
