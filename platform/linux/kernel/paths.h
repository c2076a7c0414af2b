// Paths that the host tells.
#pragma once

#include <string>

namespace linux_host {

// Of the running program, in UTF-8; empty when the host does not tell.
std::string ExecutablePath();

}  // namespace linux_host
