// The JTAG clock settings of the interface and the frequencies that their names spell.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "api/tz_wirefox.h"

namespace client {

struct JtagClock {
  TzJtagClock code;
  std::uint32_t hertz;
};

// What commands begin with that nobody told a clock.
inline constexpr TzJtagClock kDefaultJtagClock = TzJtagClock::FREQ_A_06_0;

// One setting for each frequency, the fastest first.
std::span<const JtagClock> JtagClocks();

// Nothing when even the slowest is above.
std::optional<JtagClock> FastestJtagClock(double most_hertz);

// Of any setting that has a name; 0: a code that only the probe knows.
std::uint32_t HertzOf(TzJtagClock code);

}  // namespace client
