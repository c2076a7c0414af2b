// A chain of JTAG TAPs, from the probe's TDI to its TDO, clocked by the probe's stream format.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "sim/description.h"
#include "sim/tap_state.h"

namespace sim {

// One TAP: instruction register, IDCODE, BYPASS and a scratch data register that keeps what is
// written into it. An instruction that it does not know selects BYPASS.
class JtagTap {
 public:
  explicit JtagTap(const TapDescription& description);

  void Reset();
  void CaptureDr();
  void CaptureIr();
  void UpdateDr();
  void UpdateIr();

  // The bit at the TDO end of the selected register, and one shift towards it.
  bool Out() const { return (shift_ & 1) != 0; }
  void Shift(bool in) { shift_ = (shift_ >> 1) | (in ? top_bit_ : 0); }

  std::uint64_t scratch() const { return scratch_; }

 private:
  bool SelectsIdcode() const;
  bool SelectsScratch() const;
  void Load(std::uint64_t value, unsigned bits);

  TapDescription description_;
  std::uint32_t instruction_ = 0;
  std::uint64_t shift_ = 0;
  std::uint64_t top_bit_ = 1;  // place at which a bit enters the shift register
  std::uint64_t scratch_ = 0;
};

// All TAPs of a chain see the same TMS and TCK, so the chain has one state.
class JtagChain {
 public:
  explicit JtagChain(const ChainDescription& description);

  // Power comes on: Test-Logic-Reset, scratch registers cleared.
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
  TapState state_ = TapState::kTestLogicReset;
  std::vector<JtagTap> taps_;
};

}  // namespace sim
