// What a program's trace looks like on the trace pin: the packets of an ARMv7-M instrumentation
// trace macrocell, with no formatter around them.
#pragma once

#include <cstdint>
#include <deque>
#include <vector>

namespace sim {

class ItmStream {
 public:
  // The next packet, whole. A program that counts: each round it writes "tick N" and a line feed to
  // port 0, byte by byte, and N as a 32-bit word to port 1; a local timestamp (the milliseconds
  // that a round is meant to take) ends the round. A synchronisation packet opens every eighth
  // round, so that a reader finds the packets' borders wherever it begins.
  std::vector<std::uint8_t> Next();

 private:
  void WriteRound();

  std::deque<std::vector<std::uint8_t>> packets_;
  std::uint32_t round_ = 0;
};

}  // namespace sim
