// The handles that a process has open, as the system lists them.
#pragma once

#include <windows.h>

#include <map>

namespace system_windows {

// How many of each kind of object. The kinds have the system's own numbers.
using HandleCounts = std::map<unsigned, int>;

// Empty when the process has none, or the system tells nothing.
HandleCounts CountHandles(DWORD process_id);

}  // namespace system_windows
