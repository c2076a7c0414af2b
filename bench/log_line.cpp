#include <benchmark/benchmark.h>

#include <cstdint>

#include "bench/rows.h"
#include "bench/table.h"
#include "support/log.h"

namespace bench {
namespace {

constexpr int kRounds = 25;
constexpr std::uint32_t kTurns = 20'000'000;

volatile std::int32_t g_never = 0;

void LoggedLoop() {
  for (std::uint32_t turn = 0; turn < kTurns; ++turn) {
    Log(LOG_TRACE, "CTzDevice::LedState()", "led_num=%u state=%u", turn, turn);
    benchmark::DoNotOptimize(turn);
  }
}

void BranchLoop() {
  for (std::uint32_t turn = 0; turn < kTurns; ++turn) {
    if (g_never > 0) benchmark::ClobberMemory();
    benchmark::DoNotOptimize(turn);
  }
}

}  // namespace

void LogLineRow() {
  PrintRow("log line of a disabled category", "an empty branch",
           MeasureInTurns(kRounds, LoggedLoop, BranchLoop).Value(), Target{Wanted::kAtMost, 1.5});
}

}  // namespace bench
