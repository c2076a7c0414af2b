// The ids of the running processes.
#pragma once

#include <minwindef.h>

extern "C" {

// Fills `ids` with as many process ids as its `size` bytes hold and stores the number of bytes
// filled. Id 0 comes first, as the system's own process does on Windows; then those of user
// processes, the newest first, without kernel threads and processes that have ended but are not
// yet waited for. FALSE when the processes cannot be listed (error 31) or a pointer is null (87).
BOOL EnumProcesses(DWORD* ids, DWORD size, DWORD* filled);

}  // extern "C"
