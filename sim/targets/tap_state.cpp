#include "sim/targets/tap_state.h"

namespace sim {

TapState NextTapState(TapState state, bool tms) {
  using enum TapState;
  static constexpr TapState kNext[16][2] = {
      {kRunTestIdle, kTestLogicReset},  // Test-Logic-Reset
      {kRunTestIdle, kSelectDr},        // Run-Test/Idle
      {kCaptureDr, kSelectIr},          // Select-DR-Scan
      {kShiftDr, kExit1Dr},             // Capture-DR
      {kShiftDr, kExit1Dr},             // Shift-DR
      {kPauseDr, kUpdateDr},            // Exit1-DR
      {kPauseDr, kExit2Dr},             // Pause-DR
      {kShiftDr, kUpdateDr},            // Exit2-DR
      {kRunTestIdle, kSelectDr},        // Update-DR
      {kCaptureIr, kTestLogicReset},    // Select-IR-Scan
      {kShiftIr, kExit1Ir},             // Capture-IR
      {kShiftIr, kExit1Ir},             // Shift-IR
      {kPauseIr, kUpdateIr},            // Exit1-IR
      {kPauseIr, kExit2Ir},             // Pause-IR
      {kShiftIr, kUpdateIr},            // Exit2-IR
      {kRunTestIdle, kSelectDr},        // Update-IR
  };
  return kNext[static_cast<std::uint8_t>(state)][tms ? 1 : 0];
}

}  // namespace sim
