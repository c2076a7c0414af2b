// Probes with their targets and who holds them, as lines of a table and as JSON.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "client/activity.h"

namespace client {

// What is shown of a probe. What is not known has no key in JSON, and a question mark in its
// column.
struct ShownProbe {
  std::string name;
  std::optional<std::uint32_t> mode;
  std::optional<ProbeActivity> activity;
};

struct ProbeRates {
  double calls_per_second = 0;
  double bytes_per_second = 0;
};

// A heading, and a line for each target, or for a probe without any. With `rates`, one for each
// probe, the table has columns for them; one that is not known yet is a dash.
std::string ProbeTable(const std::vector<ShownProbe>& probes,
                       const std::vector<std::optional<ProbeRates>>* rates = nullptr);

nlohmann::ordered_json ProbeOutputs(const ShownProbe& probe);

}  // namespace client
