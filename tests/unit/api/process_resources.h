// What this process has of the system.
#pragma once

#include <cstddef>

// Handles on Windows, file descriptors on Linux.
int OpenHandles();

// In bytes; 0 on Linux, where the leak checker of the sanitizer builds finds each that is lost.
std::size_t PrivateMemory();
