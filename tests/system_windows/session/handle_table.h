// The handles that a process has open, as the system lists them.
#pragma once

#include <windows.h>

#include <map>

namespace system_windows {

// How many of each kind of object. The kinds have the system's own numbers.
using HandleCounts = std::map<unsigned, int>;

// Empty when the process has none, or the system tells nothing.
HandleCounts CountHandles(DWORD process_id);

// The kind of an object of this process; 0 when the system lists no such handle.
unsigned KindOf(HANDLE handle);

}  // namespace system_windows
