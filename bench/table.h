// The benchmark table: every figure a ratio of two medians taken in turns in the same run, since
// absolute times on a shared machine mean nothing.
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace bench {

struct Ratio {
  double median_seconds;    // of what is measured
  double baseline_seconds;  // of what it is compared with
  double Value() const { return median_seconds / baseline_seconds; }
};

// Runs `measured` and `baseline` in turns, `rounds` times each after one unmeasured round.
Ratio MeasureInTurns(int rounds, const std::function<void()>& measured,
                     const std::function<void()>& baseline);

enum class Wanted { kAtMost, kAtLeast };
struct Target {
  Wanted wanted;
  double value;
};

void PrintHeading();

// One line of the table; without a target the figure is only shown. `unit` follows the figure.
void PrintRow(const std::string& what, const std::string& against, double figure,
              std::optional<Target> target, const std::string& unit = "x");

// True when every row with a target met it.
bool AllTargetsMet();

}  // namespace bench
