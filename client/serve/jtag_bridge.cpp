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
// Besides the group at the packet's begin, and one that fills it up.
constexpr std::size_t kMaxQueue = kMaxCycles - 2 * kGroup;
// What a run has in front of its cycles fits into a group.
static_assert(JtagBridge::kMaxInAPacket == kMaxQueue - kGroup);

// No level that stays, and not what it gives when it is late by a cycle.
constexpr std::uint8_t kPattern = 0x69;

// Eight cycles at once.
struct Step {
  TapState end;
  std::uint8_t rests;
  TapState rest;
};

constexpr TapState PauseOf(TapState shift_or_exit1) {
  const bool data = shift_or_exit1 == TapState::kDrShift || shift_or_exit1 == TapState::kDrExit1;
  return data ? TapState::kDrPause : TapState::kIrPause;
}

// Whether the chain can wait behind a cycle. Exit2 with TMS high goes to Update, so that a cycle
// which enters Shift from there stays.
constexpr bool CanRest(TapState before, TapState state) {
  return state == TapState::kReset || state == TapState::kIdle || IsPause(state) ||
         IsExit1(state) || (IsShift(state) && !IsExit2(before));
}

constexpr Step StepOn(TapState from, unsigned tms, std::size_t cycles) {
  Step step{from, 0, from};
  for (std::size_t i = 0; i < cycles; ++i) {
    const TapState before = std::exchange(step.end, NextTapState(step.end, (tms >> i & 1) != 0));
    if (!CanRest(before, step.end)) continue;
    step.rests = static_cast<std::uint8_t>(i + 1);
    step.rest = step.end;
  }
  return step;
}

constexpr auto kSteps = [] {
  std::array<std::array<Step, 256>, kTapStates> steps{};
  for (std::size_t from = 0; from < kTapStates; ++from) {
    for (unsigned tms = 0; tms < 256; ++tms) {
      steps[from][tms] = StepOn(static_cast<TapState>(from), tms, 8);
    }
  }
  return steps;
}();

void AddGroup(Bytes& packet, std::uint8_t tms, std::uint8_t tdi) {
  packet.push_back(static_cast<std::uint8_t>(tms << 4 | (tdi & 0x0F)));
  packet.push_back(static_cast<std::uint8_t>((tms & 0xF0) | tdi >> 4));
}

}  // namespace

bool JtagBridge::Reset() {
  tms_.Clear();
  tdi_.Clear();
  answered_ = 0;
  parked_in_exit1_ = false;
  was_moved_ = false;
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
  if (!parked_in_exit1_) return WalkThrough().end;
  return state_ == TapState::kDrPause ? TapState::kDrExit1 : TapState::kIrExit1;
}

JtagBridge::Walk JtagBridge::WalkThrough() const {
  Walk walk{state_, 0, state_};
  const std::size_t cycles = tms_.size();
  for (std::size_t at = 0; at < cycles; at += 8) {
    const std::uint8_t tms = tms_.bytes()[at / 8];
    const Step step = at + 8 <= cycles ? kSteps[static_cast<std::size_t>(walk.end)][tms]
                                       : StepOn(walk.end, tms, cycles - at);
    walk.end = step.end;
    if (step.rests == 0) continue;
    walk.rests = at + step.rests;
    walk.rest = step.rest;
  }
  return walk;
}

// The chain waits between packets, so that each can tell whether it still stands there.
bool JtagBridge::Run(Bytes& tdo) {
  if (tms_.size() <= kMaxQueue) return RunQueue(tdo);
  const BitQueue later_tms = tms_.TakeBack(tms_.size() - kMaxQueue);
  const BitQueue later_tdi = tdi_.TakeBack(tdi_.size() - kMaxQueue);
  BitQueue bits;
  for (std::size_t at = 0;;) {
    const std::size_t wanted = queued();
    Bytes part;
    if (!RunQueue(part)) return false;
    bits.Add(part, wanted);
    if (at == later_tms.size()) break;
    const std::size_t count = std::min(later_tms.size() - at, kMaxQueue - tms_.size() - 1);
    Add(SliceBits(later_tms.bytes(), at, count), SliceBits(later_tdi.bytes(), at, count), count);
    at += count;
  }
  tdo = bits.bytes();
  return true;
}

bool JtagBridge::RunQueue(Bytes& tdo) {
  const std::size_t first = answered_;
  const std::size_t wanted = queued();
  const Walk walk = WalkThrough();
  const bool parks = IsShift(walk.rest) || IsExit1(walk.rest);
  BitQueue held_tms = tms_.TakeBack(tms_.size() - walk.rests);
  BitQueue held_tdi = tdi_.TakeBack(tdi_.size() - walk.rests);
  Bytes replies;
  if (walk.rests > 0) {
    if (IsShift(walk.rest)) tms_.Set(walk.rests - 1);
    const std::size_t filling = kGroup - walk.rests % kGroup;
    if (parks || filling < kGroup) {
      tms_.Add(walk.rest == TapState::kReset, filling);
      tdi_.Add(false, filling);
    }
    if (!Clock(replies)) return false;
  }
  replies.resize(std::max(replies.size(), (first + wanted + 7) / 8));
  tdo = SliceBits(replies, first, wanted);

  tms_.Clear();
  tdi_.Clear();
  answered_ = held_tms.size();
  state_ = parks ? PauseOf(walk.rest) : walk.rest;
  if (IsShift(walk.rest)) {
    LeavePause(true);
    LeavePause(false);
  } else if (parks) {
    // What is held goes on to Update: Exit1 to Pause would not be.
    parked_in_exit1_ = held_tms.size() == 0;
    if (!parked_in_exit1_) LeavePause(true);
  }
  tms_.Add(held_tms.bytes(), held_tms.size());
  tdi_.Add(held_tdi.bytes(), held_tdi.size());
  return true;
}

bool JtagBridge::Clock(Bytes& replies) {
  const std::size_t groups = tms_.size() / kGroup;
  Bytes packet;
  packet.reserve(2 * (1 + groups));
  const bool resets = state_ == TapState::kReset;
  AddGroup(packet, resets ? 0xFF : 0, resets ? 0 : kPattern);
  for (std::size_t i = 0; i < groups; ++i) AddGroup(packet, tms_.bytes()[i], tdi_.bytes()[i]);
  if (!send_(packet, replies) || replies.size() != 1 + groups) return false;
  was_moved_ = !resets && replies[0] >> 1 == (kPattern & 0x7F);
  replies.erase(replies.begin());
  return !was_moved_;
}

}  // namespace client
