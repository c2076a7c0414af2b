// JTAG scans (IEEE 1149.1) as the cycles that a probe clocks, and their results out of its reply.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "client/numbers.h"

namespace client {

// Cycles in the probe's packing: four in a byte, TMS in the high nibble and TDI in the low one, the
// first cycle in the lowest bit of each.
class JtagCycles {
 public:
  void Add(bool tms, bool tdi);
  void AddRun(bool tms, bool tdi, std::uint32_t count);

  std::uint64_t count() const { return count_; }

  // The packet. Cycles that fill up its last byte have TMS and TDI low.
  const Bytes& bytes() const { return bytes_; }

 private:
  Bytes bytes_;
  std::uint64_t count_ = 0;
};

// A sequence of steps that begins and ends in Run-Test/Idle, as one packet for the probe.
class JtagProgram {
 public:
  enum class Register { kInstruction, kData };

  struct Scan {
    Register target;
    std::uint32_t bits;
    std::uint64_t first_cycle;  // of the shifting, counted from the packet's begin
  };

  // Five cycles with TMS high reach Test-Logic-Reset from every state, one more goes on to
  // Run-Test/Idle. The first step of a program unless the TAP is known to idle.
  void AddReset();
  void AddIdle(std::uint32_t cycles);

  // Shifts `bits` (at least 1) bits of `tdi` through the chain's instruction or data registers; the
  // bit that enters first is bit 0.
  void AddScan(Register target, std::uint32_t bits, std::span<const std::uint8_t> tdi);

  // Filled up to a whole number of byte pairs, the unit in which the probe takes cycles, with
  // idling.
  Bytes Packet() const;

  const std::vector<Scan>& scans() const { return scans_; }

  // The TDO bits of each scan, in order; nothing when the reply is too short for the program.
  std::optional<std::vector<Bytes>> Decode(std::span<const std::uint8_t> reply) const;

 private:
  JtagCycles cycles_;
  std::vector<Scan> scans_;
};

// A program as words: "reset", "idle COUNT", "ir BITS:VALUE", "dr BITS[:VALUE]". Begins with a
// reset unless `from_idle`. On failure returns nothing and says why in `problem`.
std::optional<JtagProgram> ParseJtagProgram(std::span<const std::string> words, bool from_idle,
                                            std::string& problem);

// Whether `word` is one that such a program begins with (a byte in hexadecimal never is).
bool IsJtagStep(const std::string& word);

}  // namespace client
