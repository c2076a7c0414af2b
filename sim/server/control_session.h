// The conversation between a simulator and a program that controls it.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "sim/bench.h"
#include "sim/server/host.h"

namespace sim {

// What a controlling connection sends first; each line behind it is a request of
// control_commands.h, and each answer is one line.
inline constexpr std::string_view kControlGreeting = "WFXCTL1\n";

// Answers requests, the greeting having been read, until the connection is lost or a request is
// longer than any that makes sense. `stop` is called after a request for the end was answered.
void ServeControl(ControlStream& stream, Bench& bench, const std::function<void()>& stop);

// Sends the greeting and one request, and receives the answer. False: the connection was lost.
bool AskOnce(ControlStream& stream, const std::string& request, std::string& answer);

}  // namespace sim
