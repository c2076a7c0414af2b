// The arguments of a process as one line of text.
#pragma once

#include <string>
#include <vector>

namespace linux_host {

// The line from which Windows' rules for quotes and backslashes give `arguments` again.
std::string JoinCommandLine(const std::vector<std::string>& arguments);

}  // namespace linux_host
