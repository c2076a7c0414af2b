// The sixteen states of a TAP controller (IEEE 1149.1), as a tool walks through them.
#pragma once

#include <array>
#include <cstdint>

namespace client {

enum class TapState : std::uint8_t {
  kReset,
  kIdle,
  kDrSelect,
  kDrCapture,
  kDrShift,
  kDrExit1,
  kDrPause,
  kDrExit2,
  kDrUpdate,
  kIrSelect,
  kIrCapture,
  kIrShift,
  kIrExit1,
  kIrPause,
  kIrExit2,
  kIrUpdate,
};

inline constexpr std::size_t kTapStates = 16;

constexpr TapState NextTapState(TapState state, bool tms) {
  using enum TapState;
  constexpr std::array<TapState, 2> kNext[kTapStates] = {
      {kIdle, kReset},          // kReset
      {kIdle, kDrSelect},       // kIdle
      {kDrCapture, kIrSelect},  // kDrSelect
      {kDrShift, kDrExit1},     // kDrCapture
      {kDrShift, kDrExit1},     // kDrShift
      {kDrPause, kDrUpdate},    // kDrExit1
      {kDrPause, kDrExit2},     // kDrPause
      {kDrShift, kDrUpdate},    // kDrExit2
      {kIdle, kDrSelect},       // kDrUpdate
      {kIrCapture, kReset},     // kIrSelect
      {kIrShift, kIrExit1},     // kIrCapture
      {kIrShift, kIrExit1},     // kIrShift
      {kIrPause, kIrUpdate},    // kIrExit1
      {kIrPause, kIrExit2},     // kIrPause
      {kIrShift, kIrUpdate},    // kIrExit2
      {kIdle, kDrSelect},       // kIrUpdate
  };
  return kNext[static_cast<std::size_t>(state)][tms ? 1 : 0];
}

constexpr bool IsShift(TapState state) {
  return state == TapState::kDrShift || state == TapState::kIrShift;
}
constexpr bool IsExit1(TapState state) {
  return state == TapState::kDrExit1 || state == TapState::kIrExit1;
}
constexpr bool IsExit2(TapState state) {
  return state == TapState::kDrExit2 || state == TapState::kIrExit2;
}
constexpr bool IsPause(TapState state) {
  return state == TapState::kDrPause || state == TapState::kIrPause;
}

}  // namespace client
