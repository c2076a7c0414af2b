// Ordinary files, which are opened to be mapped into memory.
#pragma once

#include <windows.h>

namespace linux_host {

// CreateFileW for what is no device; `path` is not null.
HANDLE OpenOrdinaryFile(LPCWSTR path, DWORD access, DWORD disposition, DWORD flags);

}  // namespace linux_host
