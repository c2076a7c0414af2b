// A simulated bench whose delays run on the test clock.
#pragma once

#include <cstdint>
#include <functional>
#include <utility>

#include "platform/linux/test_host.h"
#include "sim/bench.h"

namespace unit {

inline sim::BenchOptions OnClock(test_host::TestClock& clock) {
  sim::BenchOptions options;
  options.scheduler = [&clock](std::uint64_t delay_ms, std::function<void()> action) {
    clock.CallAt(clock.NowMs() + delay_ms, std::move(action));
  };
  return options;
}

}  // namespace unit
