// The configuration logic of an FPGA, fed through a TAP: a stream of any length, from its
// synchronisation word on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace sim {

class FpgaConfiguration {
 public:
  // Forgets the configuration: the device waits for a stream.
  void Clear();
  // A bit of the stream. What stands before the synchronisation word is passed over.
  void Take(bool bit);
  // The device begins to run, unless no stream has come.
  void Start() { done_ = bits_ > 0; }

  // What came since: the synchronisation word and all behind it, the first bit in the highest place
  // of the first byte. A last byte that is not whole is filled up with zeros.
  const std::vector<std::uint8_t>& stream() const { return stream_; }
  std::size_t bits() const { return bits_; }
  std::uint32_t Crc() const;  // CRC-32 (IEEE 802.3) of the stream's bytes
  bool done() const { return done_; }

 private:
  std::uint32_t last_ = 0;  // the last 32 bits, until they are the synchronisation word
  std::size_t bits_ = 0;
  std::vector<std::uint8_t> stream_;
  bool done_ = false;
};

}  // namespace sim
