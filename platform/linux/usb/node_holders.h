// Who else has a device of the machine open.
#pragma once

#include <string>

namespace linux_host {

// The other processes that have `node` open, as far as this account may see: "NAME (process ID)",
// one after another with ", " between; empty when none is seen.
std::string NodeHolders(const std::string& node);

}  // namespace linux_host
