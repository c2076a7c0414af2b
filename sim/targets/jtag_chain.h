// A chain of JTAG TAPs, from the probe's TDI to its TDO, clocked by the probe's stream format.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "sim/description/description.h"
#include "sim/targets/jtag_tap.h"
#include "sim/targets/tap_state.h"

namespace sim {

// All TAPs of a chain see the same TMS and TCK, so the chain has one state.
class JtagChain {
 public:
  // `memory` is what the debug ports of the chain reach; it outlives the chain.
  explicit JtagChain(const ChainDescription& description, TargetMemory* memory = nullptr);

  // Power comes on: Test-Logic-Reset, and every register is as new.
  void PowerUp();

  // One cycle of TCK; returns the level of TDO at its rising edge. Outside of the shift states TDO
  // floats and is pulled high.
  bool Clock(bool tms, bool tdi);

  TapState state() const { return state_; }
  const std::vector<JtagTap>& taps() const { return taps_; }

 private:
  bool Shift(bool tdi);
  void Enter(TapState state);

  ChainDescription description_;
  TargetMemory* const memory_;
  TapState state_ = TapState::kTestLogicReset;
  std::vector<JtagTap> taps_;
};

}  // namespace sim
