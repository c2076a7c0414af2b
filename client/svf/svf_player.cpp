#include "client/svf/svf_player.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "client/serve/bit_queue.h"

namespace client {

namespace {

// A packet's worth: what is gathered before it is clocked, and the longest wait that is made of
// cycles.
constexpr std::size_t kGathered = JtagBridge::kMaxInAPacket;

constexpr std::size_t kMaxWay = 8;

// As many bits of a long register are shown.
constexpr std::size_t kShown = 64;
constexpr std::size_t kShownWhole = 256;

// TMS, the first cycle in the lowest bit.
struct Way {
  TapState end;
  std::uint8_t tms;
  std::uint8_t cycles;
};

// The shortest way that shifts nothing, which is the one that the format has between any two
// states; at least one cycle. A pause is left for itself, too: through Update and Capture.
constexpr Way FindWay(TapState from, TapState to) {
  std::array<Way, 2 * kTapStates> found{};
  std::array<bool, kTapStates> seen{};
  found[0] = {from, 0, 0};
  std::size_t count = 1;
  for (std::size_t i = 0; i < count; ++i) {
    for (const bool tms : {false, true}) {
      const Way& at = found[i];
      const TapState next = NextTapState(at.end, tms);
      const bool stays = next == at.end && IsPause(next);
      const bool shifts = IsShift(next) && next != to;
      if (stays || shifts || std::exchange(seen[static_cast<std::size_t>(next)], true)) continue;
      found[count++] = {next, static_cast<std::uint8_t>(at.tms | tms << at.cycles),
                        static_cast<std::uint8_t>(at.cycles + 1)};
      if (next == to) return found[count - 1];
    }
  }
  return {};
}

constexpr auto kWays = [] {
  std::array<std::array<Way, kTapStates>, kTapStates> ways{};
  for (std::size_t from = 0; from < kTapStates; ++from) {
    for (std::size_t to = 0; to < kTapStates; ++to) {
      ways[from][to] = FindWay(static_cast<TapState>(from), static_cast<TapState>(to));
    }
  }
  return ways;
}();

}  // namespace

std::string SvfMismatch::Text() const {
  const auto differs = [&](std::size_t bit) {
    const auto wrong = ((*check.tdo)[bit / 8] ^ actual[bit / 8]) & (*check.mask)[bit / 8];
    return (wrong >> bit % 8 & 1) != 0;
  };
  std::size_t first = 0;
  std::size_t count = check.bits;
  std::string which;
  if (check.bits > kShownWhole) {
    while (!differs(first)) ++first;
    first -= first % kShown;
    count = std::min(kShown, check.bits - first);
    which = " from bit " + std::to_string(first) + " on";
  }
  const auto number = [&](const Bytes& bits) {
    return NumberFromBits(SliceBits(bits, first, count), static_cast<std::uint32_t>(count));
  };
  return std::string(check.name) + " " + std::to_string(check.bits) + ": TDO" + which + " is " +
         number(actual) + ", not " + number(*check.tdo) + " (mask " + number(*check.mask) + ")";
}

bool SvfPlayer::Play(const SvfProgram& program) {
  for (const SvfStep& step : program) {
    line_ = step.line;
    const bool taken = std::visit([this](const auto& action) { return Take(action); }, step.action);
    if (!taken || (bridge_.queued() >= kGathered && !Flush())) return false;
  }
  return Flush();
}

bool SvfPlayer::Take(const SvfScan& scan) {
  // What still fits into a packet goes with it.
  if (bridge_.queued() + scan.bits + 2 * kMaxWay > kGathered && !Flush()) return false;
  MoveTo(scan.shift);
  awaited_.push_back({line_, bridge_.queued(), &scan});
  Bytes tms((scan.bits + 7) / 8);
  tms.back() = static_cast<std::uint8_t>(1u << (scan.bits - 1) % 8);
  bridge_.Add(tms, scan.tdi, scan.bits);
  state_ = NextTapState(scan.shift, true);
  MoveTo(scan.end);
  return true;
}

bool SvfPlayer::Take(const SvfMove& move) {
  if (move.states.size() == 1) {
    MoveTo(move.states[0]);
    return true;
  }
  for (const TapState state : move.states) {
    if (state == TapState::kReset) {
      MoveTo(state);
    } else {
      bridge_.Add(NextTapState(state_, true) == state, false);
      state_ = state;
    }
  }
  return true;
}

bool SvfPlayer::Take(const SvfStay& stay) {
  if (state_ != stay.state) MoveTo(stay.state);
  const double cycles = std::ceil(stay.seconds * hertz_);
  const auto longest = static_cast<double>(std::max<std::uint64_t>(stay.cycles, kGathered));
  const bool clocks_time = hertz_ != 0 && cycles <= longest;
  if (!Idle(clocks_time ? std::max(stay.cycles, static_cast<std::uint64_t>(cycles))
                        : stay.cycles)) {
    return false;
  }
  if (stay.seconds > 0 && !clocks_time && (!Flush() || !controls_.wait(stay.seconds))) return false;
  if (stay.end != stay.state) MoveTo(stay.end);
  return true;
}

bool SvfPlayer::Take(const SvfFrequency& frequency) {
  return Flush() && controls_.set_clock(frequency.hertz, hertz_);
}

void SvfPlayer::MoveTo(TapState state) {
  // Five cycles reach Test-Logic-Reset from wherever the chain really is.
  const Way way = state == TapState::kReset
                      ? Way{state, 0x1F, 5}
                      : kWays[static_cast<std::size_t>(state_)][static_cast<std::size_t>(state)];
  const std::uint8_t tdi = 0;
  bridge_.Add({&way.tms, 1}, {&tdi, 1}, way.cycles);
  state_ = state;
}

bool SvfPlayer::Idle(std::uint64_t cycles) {
  const bool tms = state_ == TapState::kReset;
  const Bytes levels(kGathered / 8, tms ? 0xFF : 0);
  const Bytes zeros(kGathered / 8);
  while (cycles > 0) {
    if (bridge_.queued() >= kGathered && !Flush()) return false;
    const auto part =
        static_cast<std::size_t>(std::min<std::uint64_t>(cycles, kGathered - bridge_.queued()));
    bridge_.Add(levels, zeros, part);
    cycles -= part;
  }
  return true;
}

bool SvfPlayer::Flush() {
  if (bridge_.queued() == 0) return true;
  if (controls_.come_to) controls_.come_to(line_);
  Bytes tdo;
  if (!bridge_.Run(tdo)) return false;
  for (const Awaited& awaited : awaited_) {
    if (!Matches(awaited, tdo)) return false;
  }
  awaited_.clear();
  return true;
}

bool SvfPlayer::Matches(const Awaited& awaited, const Bytes& tdo) {
  for (const SvfCheck& check : awaited.scan->checks) {
    Bytes actual = SliceBits(tdo, awaited.first + check.first, check.bits);
    for (std::size_t i = 0; i < actual.size(); ++i) {
      if (((actual[i] ^ (*check.tdo)[i]) & (*check.mask)[i]) == 0) continue;
      mismatch_ = {awaited.line, check, std::move(actual)};
      return false;
    }
  }
  if (!awaited.scan->checks.empty()) ++checked_;
  return true;
}

}  // namespace client
