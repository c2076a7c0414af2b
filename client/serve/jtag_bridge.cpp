#include "client/serve/jtag_bridge.h"

#include <algorithm>
#include <array>
#include <utility>

namespace client {

namespace {

constexpr std::size_t kGroup = 8;

// From 0x4000 on the probe's cycle count shares its bits with flags, and the service splits
// packets.
constexpr std::size_t kMaxCycles = 0x4000 - kGroup;

// Eight cycles at once.
struct Step {
  TapState end;
  TapState before_last;
  std::uint8_t shifted;
};

constexpr TapState PauseOf(TapState shift_or_exit1) {
  const bool data = shift_or_exit1 == TapState::kDrShift || shift_or_exit1 == TapState::kDrExit1;
  return data ? TapState::kDrPause : TapState::kIrPause;
}

constexpr auto kSteps = [] {
  std::array<std::array<Step, 256>, kTapStates> steps{};
  for (std::size_t from = 0; from < kTapStates; ++from) {
    for (unsigned tms = 0; tms < 256; ++tms) {
      Step step{static_cast<TapState>(from), {}, 0};
      for (unsigned i = 0; i < 8; ++i) {
        step.before_last = step.end;
        if (IsShift(step.end)) step.shifted = static_cast<std::uint8_t>(i + 1);
        step.end = NextTapState(step.end, (tms >> i & 1) != 0);
      }
      steps[from][tms] = step;
    }
  }
  return steps;
}();

}  // namespace

bool JtagBridge::Reset() {
  tms_.Clear();
  tdi_.Clear();
  answered_ = 0;
  parked_in_exit1_ = false;
  state_ = TapState::kReset;
  tms_.Add(true, kGroup);
  tdi_.Add(false, kGroup);
  Bytes tdo;
  return Run(tdo);
}

void JtagBridge::LeavePause(bool tms) {
  tms_.Add(tms);
  tdi_.Add(false);
  ++answered_;
}

void JtagBridge::Add(bool tms, bool tdi) {
  if (std::exchange(parked_in_exit1_, false) && tms) LeavePause(true);
  tms_.Add(tms);
  tdi_.Add(tdi);
}

void JtagBridge::Add(std::span<const std::uint8_t> tms, std::span<const std::uint8_t> tdi,
                     std::size_t cycles) {
  if (cycles == 0) return;
  if (std::exchange(parked_in_exit1_, false) && (tms[0] & 1) != 0) LeavePause(true);
  tms_.Add(tms, cycles);
  tdi_.Add(tdi, cycles);
}

TapState JtagBridge::state() const {
  if (!parked_in_exit1_) return WalkThrough(tms_.size()).end;
  return state_ == TapState::kDrPause ? TapState::kDrExit1 : TapState::kIrExit1;
}

JtagBridge::Walk JtagBridge::WalkThrough(std::size_t cycles) const {
  Walk walk{state_, state_, 0};
  std::size_t at = 0;
  for (; at + 8 <= cycles; at += 8) {
    const Step& step = kSteps[static_cast<std::size_t>(walk.end)][tms_.bytes()[at / 8]];
    walk.before_last = step.before_last;
    if (step.shifted != 0) walk.shifted = at + step.shifted;
    walk.end = step.end;
  }
  for (; at < cycles; ++at) {
    walk.before_last = walk.end;
    if (IsShift(walk.end)) walk.shifted = at + 1;
    walk.end = NextTapState(walk.end, tms_[at]);
  }
  return walk;
}

JtagBridge::Plan JtagBridge::MakePlan() const {
  const auto park_behind = [](std::size_t cycles) {
    const std::size_t rest = cycles % kGroup;
    return rest == 0 ? Plan{.cycles = cycles}
                     : Plan{.cycles = cycles, .filling = kGroup - rest, .park = true};
  };
  const std::size_t all = tms_.size();
  const Walk walk = WalkThrough(all);
  const std::size_t rest = all % kGroup;
  if (rest == 0) return {.cycles = all};
  if (walk.end == TapState::kReset || walk.end == TapState::kIdle || IsPause(walk.end)) {
    return {.cycles = all, .filling = kGroup - rest, .filling_tms = walk.end == TapState::kReset};
  }
  // Exit2 with TMS high goes to Update, so that a cycle which enters Shift from there stays.
  if (IsExit1(walk.end) || (IsShift(walk.end) && !IsExit2(walk.before_last))) {
    return park_behind(all);
  }
  const std::size_t whole = all - rest;
  return whole > 0 && whole >= walk.shifted ? Plan{.cycles = whole} : park_behind(walk.shifted);
}

bool JtagBridge::Run(Bytes& tdo) {
  const std::size_t first = answered_;
  const std::size_t wanted = queued();
  const Plan plan = MakePlan();
  const TapState end = WalkThrough(plan.cycles).end;
  BitQueue held_tms = tms_.TakeBack(tms_.size() - plan.cycles);
  BitQueue held_tdi = tdi_.TakeBack(tdi_.size() - plan.cycles);
  if (plan.park && IsShift(end)) tms_.Set(plan.cycles - 1);
  tms_.Add(plan.filling_tms, plan.filling);
  tdi_.Add(false, plan.filling);
  Bytes replies;
  if (!Clock(replies)) return false;
  replies.resize(std::max(replies.size(), (first + wanted + 7) / 8));
  tdo = SliceBits(replies, first, wanted);

  tms_.Clear();
  tdi_.Clear();
  answered_ = held_tms.size();
  state_ = plan.park ? PauseOf(end) : end;
  if (plan.park && IsShift(end)) {
    LeavePause(true);
    LeavePause(false);
  } else if (plan.park && held_tms.size() == 0) {
    parked_in_exit1_ = true;
  } else if (plan.park && held_tms[0]) {
    LeavePause(true);
  }
  tms_.Add(held_tms.bytes(), held_tms.size());
  tdi_.Add(held_tdi.bytes(), held_tdi.size());
  return true;
}

bool JtagBridge::Clock(Bytes& replies) {
  for (std::size_t at = 0; at < tms_.size(); at += kMaxCycles) {
    const std::size_t end = std::min(at + kMaxCycles, tms_.size());
    Bytes packet((end - at) / 4);
    for (std::size_t i = 0; i < packet.size() / 2; ++i) {
      const std::uint8_t tms = tms_.bytes()[at / 8 + i];
      const std::uint8_t tdi = tdi_.bytes()[at / 8 + i];
      packet[2 * i] = static_cast<std::uint8_t>(tms << 4 | (tdi & 0x0F));
      packet[2 * i + 1] = static_cast<std::uint8_t>((tms & 0xF0) | tdi >> 4);
    }
    Bytes reply;
    if (!send_(packet, reply) || reply.size() != packet.size() / 2) return false;
    replies.insert(replies.end(), reply.begin(), reply.end());
  }
  return true;
}

}  // namespace client
