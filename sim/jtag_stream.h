// How the probe's FPGA takes a chunk of the JTAG stream: which cycles it runs and how it packs TDO.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace sim {

struct ChunkRule {
  std::uint32_t cycles = 0;
  bool loopback = false;
};

// The cycles of a chunk come from its OUT bytes, four each. The count in the registers only cuts
// them while it is below 0x4000: above, its high bits share places with the flags, and a chunk is
// recognised by its size (0x1000 bytes or more), which no shorter count can have.
inline ChunkRule RuleForChunk(std::size_t out_bytes, std::uint8_t count_register,
                              std::uint8_t flags_register) {
  const std::uint32_t count = (std::uint32_t{flags_register} & 0x3F) << 8 | count_register;
  const auto from_bytes = static_cast<std::uint32_t>(out_bytes * 4);
  const bool count_fits = 2 * ((count + 7) / 8) == out_bytes;
  if (out_bytes >= 0x1000 && !count_fits) return {from_bytes, false};
  return {from_bytes < count ? from_bytes : count, (flags_register & 0x40) != 0};
}

// Runs the cycles of a chunk: `clock(tms, tdi)` returns TDO. The TDO bits come back least
// significant bit first, padded with 0 to a whole byte. `out` holds cycles / 4 bytes, rounded up.
template <typename Clock>
std::vector<std::uint8_t> RunChunk(const std::uint8_t* out, std::uint32_t cycles, Clock clock) {
  std::vector<std::uint8_t> tdo((cycles + 7) / 8);
  for (std::uint32_t cycle = 0; cycle < cycles; ++cycle) {
    const unsigned nibbles = out[cycle / 4] >> (cycle % 4);
    if (clock((nibbles & 0x10) != 0, (nibbles & 0x01) != 0)) {
      tdo[cycle / 8] = static_cast<std::uint8_t>(tdo[cycle / 8] | 1u << (cycle % 8));
    }
  }
  return tdo;
}

}  // namespace sim
