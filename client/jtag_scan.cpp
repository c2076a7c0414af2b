#include "client/jtag_scan.h"

#include <algorithm>

#include "client/text.h"

namespace client {

namespace {

constexpr std::uint32_t kCyclesPerByte = 4;

// A packet of this many cycles is 16 MiB; more than one step of it is a typing mistake.
constexpr std::int64_t kMaxCyclesPerStep = 1 << 24;

bool BitAt(std::span<const std::uint8_t> bytes, std::uint64_t bit) {
  return (bytes[bit / 8] >> bit % 8 & 1) != 0;
}

// Splits "BITS:VALUE" or "BITS". The value's bits are zero when there is none.
bool ParseScan(const std::string& word, bool value_needed, std::uint32_t& bits, Bytes& tdi) {
  const std::size_t colon = word.find(':');
  const auto count = ParseNumber(word.substr(0, colon), 1, kMaxCyclesPerStep);
  if (!count) return false;
  bits = static_cast<std::uint32_t>(*count);
  if (colon == std::string::npos) {
    tdi.assign((bits + 7) / 8, 0);
    return !value_needed;
  }
  auto value = ParseBits(std::string_view(word).substr(colon + 1), bits);
  if (!value) return false;
  tdi = std::move(*value);
  return true;
}

}  // namespace

void JtagCycles::Add(bool tms, bool tdi) {
  const unsigned position = count_ % kCyclesPerByte;
  if (position == 0) bytes_.push_back(0);
  bytes_.back() |= static_cast<std::uint8_t>(tms << (4 + position) | tdi << position);
  ++count_;
}

void JtagCycles::AddRun(bool tms, bool tdi, std::uint32_t count) {
  for (; count > 0; --count) Add(tms, tdi);
}

void JtagProgram::AddReset() {
  cycles_.AddRun(true, false, 5);
  cycles_.Add(false, false);
}

void JtagProgram::AddIdle(std::uint32_t cycles) { cycles_.AddRun(false, false, cycles); }

void JtagProgram::AddScan(Register target, std::uint32_t bits, std::span<const std::uint8_t> tdi) {
  // Run-Test/Idle, Select-DR-Scan, (Select-IR-Scan,) Capture, Shift: the last cycle enters the
  // Shift state, and the first bit is out in the cycle after it.
  cycles_.AddRun(true, false, target == Register::kInstruction ? 2 : 1);
  cycles_.AddRun(false, false, 2);
  scans_.push_back({target, bits, cycles_.count()});
  for (std::uint32_t bit = 0; bit + 1 < bits; ++bit) cycles_.Add(false, BitAt(tdi, bit));
  // The last bit is shifted by the cycle that leaves for Exit1.
  cycles_.Add(true, BitAt(tdi, bits - 1));
  cycles_.Add(true, false);
  cycles_.Add(false, false);
}

Bytes JtagProgram::Packet() const {
  Bytes packet = cycles_.bytes();
  if (packet.size() % 2 != 0) packet.push_back(0);
  return packet;
}

std::optional<std::vector<Bytes>> JtagProgram::Decode(std::span<const std::uint8_t> reply) const {
  std::vector<Bytes> results;
  for (const Scan& scan : scans_) {
    if (scan.first_cycle + scan.bits > reply.size() * 8) return std::nullopt;
    Bytes tdo((scan.bits + 7) / 8);
    for (std::uint32_t bit = 0; bit < scan.bits; ++bit) {
      if (BitAt(reply, scan.first_cycle + bit)) {
        tdo[bit / 8] |= static_cast<std::uint8_t>(1u << bit % 8);
      }
    }
    results.push_back(std::move(tdo));
  }
  return results;
}

bool IsJtagStep(const std::string& word) {
  const std::string step = LowerCase(word);
  return step == "reset" || step == "idle" || step == "ir" || step == "dr";
}

std::optional<JtagProgram> ParseJtagProgram(std::span<const std::string> words, bool from_idle,
                                            std::string& problem) {
  JtagProgram program;
  if (!from_idle) program.AddReset();
  for (std::size_t at = 0; at < words.size(); ++at) {
    const std::string step = LowerCase(words[at]);
    if (step == "reset") {
      program.AddReset();
      continue;
    }
    const std::string argument = at + 1 < words.size() ? words[at + 1] : "";
    if (step == "idle") {
      const auto cycles = ParseNumber(argument, 1, kMaxCyclesPerStep);
      if (!cycles) {
        problem = "idle wants a number of cycles, not '" + argument + "'";
        return std::nullopt;
      }
      program.AddIdle(static_cast<std::uint32_t>(*cycles));
    } else if (step == "ir" || step == "dr") {
      std::uint32_t bits = 0;
      Bytes tdi;
      if (!ParseScan(argument, step == "ir", bits, tdi)) {
        problem = step + " wants " + (step == "ir" ? "BITS:VALUE" : "BITS or BITS:VALUE") +
                  " with a value that fits, not '" + argument + "'";
        return std::nullopt;
      }
      program.AddScan(
          step == "ir" ? JtagProgram::Register::kInstruction : JtagProgram::Register::kData, bits,
          tdi);
    } else {
      problem = "'" + words[at] + "' is none of reset, idle, ir, dr";
      return std::nullopt;
    }
    ++at;
  }
  return program;
}

}  // namespace client
