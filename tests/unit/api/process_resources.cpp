#include "tests/unit/api/process_resources.h"

#ifdef _WIN32
#include <windows.h>

#include <psapi.h>

#include "tests/system_windows/session/handle_table.h"

int OpenHandles() {
  int count = 0;
  for (const auto& [kind, handles] : system_windows::CountHandles(GetCurrentProcessId())) {
    count += handles;
  }
  return count;
}

std::size_t PrivateMemory() {
  PROCESS_MEMORY_COUNTERS counters = {};
  counters.cb = sizeof(counters);
  K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters));
  return counters.PagefileUsage;
}

#else
#include <filesystem>
#include <iterator>

int OpenHandles() {
  return static_cast<int>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

std::size_t PrivateMemory() { return 0; }
#endif
