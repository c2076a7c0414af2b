#include "sim/jtag_chain.h"

namespace sim {

JtagTap::JtagTap(const TapDescription& description) : description_(description) { Reset(); }

void JtagTap::Reset() {
  const std::uint32_t bypass = ~0u >> (32 - description_.ir_length);
  instruction_ = description_.has_idcode ? description_.idcode_instruction : bypass;
}

bool JtagTap::SelectsIdcode() const {
  return description_.has_idcode && instruction_ == description_.idcode_instruction;
}

bool JtagTap::SelectsScratch() const { return instruction_ == description_.scratch_instruction; }

void JtagTap::Load(std::uint64_t value, unsigned bits) {
  shift_ = value;
  top_bit_ = std::uint64_t{1} << (bits - 1);
}

void JtagTap::CaptureDr() {
  if (SelectsIdcode()) {
    Load(description_.idcode, 32);
  } else if (SelectsScratch()) {
    Load(scratch_, description_.scratch_bits);
  } else {
    Load(0, 1);
  }
}

void JtagTap::CaptureIr() { Load(0b01, description_.ir_length); }

void JtagTap::UpdateDr() {
  if (SelectsScratch()) scratch_ = shift_;
}

void JtagTap::UpdateIr() { instruction_ = static_cast<std::uint32_t>(shift_); }

JtagChain::JtagChain(const ChainDescription& description) : description_(description) { PowerUp(); }

void JtagChain::PowerUp() {
  taps_.clear();
  for (const TapDescription& tap : description_.taps) taps_.emplace_back(tap);
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
