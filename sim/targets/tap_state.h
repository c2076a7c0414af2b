// The sixteen states of an IEEE 1149.1 test access port controller and the moves between them.
#pragma once

#include <cstdint>

namespace sim {

enum class TapState : std::uint8_t {
  kTestLogicReset,
  kRunTestIdle,
  kSelectDr,
  kCaptureDr,
  kShiftDr,
  kExit1Dr,
  kPauseDr,
  kExit2Dr,
  kUpdateDr,
  kSelectIr,
  kCaptureIr,
  kShiftIr,
  kExit1Ir,
  kPauseIr,
  kExit2Ir,
  kUpdateIr,
};

// The state after a rising edge of TCK with this level of TMS.
TapState NextTapState(TapState state, bool tms);

}  // namespace sim
