// The trace pin of a target and the buffer that the probe collects its bytes in.
#pragma once

#include <cstdint>
#include <span>

#include "sim/description.h"
#include "sim/in_pipe.h"

namespace sim {

// How the probe was set up to sample the pin.
struct SwvSampling {
  std::uint8_t control = 0;  // bit 0: Manchester coding
  std::uint8_t divisor = 0;
};

class SwvSource {
 public:
  explicit SwvSource(const SwvDescription& description) : description_(description) {}

  void Clear() {
    lost_ = 0;
    overflowed_ = false;
    next_ = 0;
  }

  bool sends_by_itself() const { return description_.bytes_per_ms != 0; }

  // The pin's bytes of one millisecond into the probe's buffer, a counting pattern.
  void Tick(const SwvSampling& sampling, InPipe& buffer);

  // Bytes on the pin. Bytes that find the buffer full are lost; the next one that fits follows an
  // overflow packet of the trace protocol (0x70). A pin that is sampled at another rate or with
  // another coding brings nothing.
  void Send(std::span<const std::uint8_t> bytes, const SwvSampling& sampling, InPipe& buffer);

  std::uint64_t lost() const { return lost_; }

 private:
  bool Fits(const SwvSampling& sampling) const;

  SwvDescription description_;
  std::uint64_t lost_ = 0;
  bool overflowed_ = false;
  std::uint8_t next_ = 0;
};

}  // namespace sim
