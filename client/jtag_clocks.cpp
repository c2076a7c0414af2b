#include "client/jtag_clocks.h"

#include <algorithm>
#include <cstdlib>

#include "client/interface_names.h"

namespace client {

std::span<const JtagClock> JtagClocks() {
  static constexpr JtagClock kClocks[] = {
      {TzJtagClock::FREQ_A_48_0, 48000000}, {TzJtagClock::FREQ_A_24_0, 24000000},
      {TzJtagClock::FREQ_A_16_0, 16000000}, {TzJtagClock::FREQ_A_12_0, 12000000},
      {TzJtagClock::FREQ_A_08_0, 8000000},  {TzJtagClock::FREQ_A_06_0, 6000000},
      {TzJtagClock::FREQ_B_04_0, 4000000},  {TzJtagClock::FREQ_A_03_2, 3200000},
      {TzJtagClock::FREQ_A_03_0, 3000000},  {TzJtagClock::FREQ_A_01_6, 1600000},
      {TzJtagClock::FREQ_A_01_5, 1500000},  {TzJtagClock::FREQ_B_00_8, 800000},
      {TzJtagClock::FREQ_C_00_4, 400000},   {TzJtagClock::FREQ_C_00_2, 200000},
  };
  return kClocks;
}

std::optional<JtagClock> FastestJtagClock(double most_hertz) {
  const auto clocks = JtagClocks();
  const auto found = std::ranges::find_if(
      clocks, [&](const JtagClock& clock) { return clock.hertz <= most_hertz; });
  if (found == clocks.end()) return std::nullopt;
  return *found;
}

std::uint32_t HertzOf(TzJtagClock code) {
  // FREQ_A_03_2 is 3.2 MHz.
  const std::string name = NameOfValue(kJtagClocks, static_cast<std::int32_t>(code));
  constexpr std::size_t kMegahertz = 7;
  if (name.size() != kMegahertz + 4) return 0;
  const auto megahertz = static_cast<std::uint32_t>(std::atoi(name.c_str() + kMegahertz));
  const auto tenth = static_cast<std::uint32_t>(name.back() - '0');
  return megahertz * 1000000 + tenth * 100000;
}

}  // namespace client
