#include "bench/table.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

namespace bench {
namespace {

bool g_all_met = true;

double Seconds(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double Median(std::vector<double>& values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

}  // namespace

Ratio MeasureInTurns(int rounds, const std::function<void()>& measured,
                     const std::function<void()>& baseline) {
  measured();
  baseline();
  std::vector<double> ours;
  std::vector<double> theirs;
  for (int round = 0; round < rounds; ++round) {
    ours.push_back(Seconds(measured));
    theirs.push_back(Seconds(baseline));
  }
  return {Median(ours), Median(theirs)};
}

void PrintHeading() {
  std::printf("%-46s %-40s %12s  %-10s %s\n", "measured", "against", "figure", "target", "");
}

void PrintRow(const std::string& what, const std::string& against, double figure,
              std::optional<Target> target, const std::string& unit) {
  char shown[32];
  std::snprintf(shown, sizeof shown, "%.2f %s", figure, unit.c_str());
  char wanted[32] = "";
  const char* verdict = "";
  if (target) {
    const bool at_most = target->wanted == Wanted::kAtMost;
    const bool met = at_most ? figure <= target->value : figure >= target->value;
    g_all_met = g_all_met && met;
    std::snprintf(wanted, sizeof wanted, "%s %g", at_most ? "<=" : ">=", target->value);
    verdict = met ? "met" : "MISSED";
  }
  std::printf("%-46s %-40s %12s  %-10s %s\n", what.c_str(), against.c_str(), shown, wanted,
              verdict);
  std::fflush(stdout);
}

bool AllTargetsMet() { return g_all_met; }

}  // namespace bench
