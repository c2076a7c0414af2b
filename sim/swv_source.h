// The trace pin of a target and the buffer that the probe collects its bytes in.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "sim/description/description.h"
#include "sim/in_pipe.h"
#include "sim/targets/itm_stream.h"

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
    credit_ = 0;
  }

  bool sends_by_itself() const { return description_.bytes_per_ms != 0; }

  // What the target's program traces in one millisecond, at the described rate on the average.
  // Packets that find the buffer full are lost whole, as its trace unit sees no probe.
  void Tick(const SwvSampling& sampling, InPipe& buffer);

  // Bytes on the pin. Bytes that find the buffer full are lost; the next one that fits follows an
  // overflow packet of the trace protocol (0x70). A pin that is sampled at another rate or with
  // another coding brings nothing.
  void Send(std::span<const std::uint8_t> bytes, const SwvSampling& sampling, InPipe& buffer);

  std::uint64_t lost() const { return lost_; }

 private:
  bool Fits(const SwvSampling& sampling) const;
  void SendWhole(std::span<const std::uint8_t> bytes, InPipe& buffer);

  SwvDescription description_;
  std::uint64_t lost_ = 0;
  bool overflowed_ = false;
  ItmStream program_;
  std::vector<std::uint8_t> packet_;  // the program's next
  std::uint32_t credit_ = 0;          // bytes that the program may send by now
};

}  // namespace sim
