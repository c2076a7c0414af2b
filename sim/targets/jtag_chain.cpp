#include "sim/targets/jtag_chain.h"

namespace sim {

JtagChain::JtagChain(const ChainDescription& description, TargetMemory* memory)
    : description_(description), memory_(memory) {
  PowerUp();
}

void JtagChain::PowerUp() {
  taps_.clear();
  for (const TapDescription& tap : description_.taps) taps_.emplace_back(tap, memory_);
  state_ = TapState::kTestLogicReset;
}

bool JtagChain::Clock(bool tms, bool tdi) {
  bool tdo = true;
  switch (state_) {
    case TapState::kShiftDr:
    case TapState::kShiftIr:
      tdo = Shift(tdi);
      break;
    case TapState::kCaptureDr:
      for (JtagTap& tap : taps_) tap.CaptureDr();
      break;
    case TapState::kCaptureIr:
      for (JtagTap& tap : taps_) tap.CaptureIr();
      break;
    default:
      break;
  }
  Enter(NextTapState(state_, tms));
  if (description_.output == ChainDescription::Output::kStuckLow) return false;
  if (description_.output == ChainDescription::Output::kStuckHigh) return true;
  return tdo;
}

bool JtagChain::Shift(bool tdi) {
  if (taps_.empty()) return true;
  bool bit = tdi;
  for (JtagTap& tap : taps_) {
    const bool out = tap.Out();
    tap.Shift(bit);
    bit = out;
  }
  return bit;
}

void JtagChain::Enter(TapState state) {
  if (state == state_) return;
  state_ = state;
  if (state == TapState::kTestLogicReset) {
    for (JtagTap& tap : taps_) tap.Reset();
  } else if (state == TapState::kUpdateDr) {
    for (JtagTap& tap : taps_) tap.UpdateDr();
  } else if (state == TapState::kUpdateIr) {
    for (JtagTap& tap : taps_) tap.UpdateIr();
  }
}

}  // namespace sim
