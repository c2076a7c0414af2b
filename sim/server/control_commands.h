// The commands by which a running bench is inspected and rearranged: JSON requests and answers.
#pragma once

#include <functional>
#include <string>

#include "sim/bench.h"

namespace sim {

// Carries out one request, a JSON object with the member "command" and those that the command
// takes, and returns the answer: {"ok": true, …} or {"ok": false, "error": TEXT}. Never throws.
//
//   {"command": "list"}                             "probes": an array of objects
//   {"command": "show", "name"}                     "probe": one object with the whole state
//   {"command": "plug" | "unplug", "name"}
//   {"command": "dump", "name", "what": "ram" | "fpga"}    "data": hexadecimal digits
//   {"command": "fault", "name", "kind", "endpoint", "request", "count", "value"}
//   {"command": "clear-faults", "name"}
//   {"command": "set", "name", "changes": {…}}      members of the probe's description
//   {"command": "add", "probe": {…}}
//   {"command": "cycle-power", "name"}
//   {"command": "swv", "name", "data"}              hexadecimal digits
//   {"command": "stop"}                             answers, then calls `stop`
std::string RunCommand(Bench& bench, const std::string& request, const std::function<void()>& stop);

// Pairs of hexadecimal digits; throws std::invalid_argument when they are not.
Bytes FromHex(const std::string& text);

}  // namespace sim
