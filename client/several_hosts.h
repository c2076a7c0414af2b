// One command for several machines at once.
#pragma once

#include <string>
#include <vector>

#include "client/command.h"
#include "client/command_line.h"

namespace client {

// Runs the action for each machine on a thread of its own: one that does not answer keeps no other
// waiting. What they print comes in whole results, each line with its machine's name. Returns the
// greatest exit status.
int RunOnHosts(const std::vector<std::string>& hosts, const Action& action,
               const Connector& connector, const Streams& streams, bool json);

}  // namespace client
