// Whether a process is still the one that it was.
#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>

// When the process began, by a clock that tells it from an earlier one with the same id. Nothing
// when it has ended; `process` may be null.
inline std::optional<std::uint64_t> StartOfProcess(HANDLE process) {
  FILETIME created{};
  FILETIME exited{};
  FILETIME kernel{};
  FILETIME user{};
  if (!process || !GetProcessTimes(process, &created, &exited, &kernel, &user)) return {};
  // A process that has ended is known to the system as long as somebody has a handle to it.
  if (exited.dwLowDateTime != 0 || exited.dwHighDateTime != 0) return {};
  return std::uint64_t{created.dwHighDateTime} << 32 | created.dwLowDateTime;
}

inline std::optional<std::uint64_t> StartOfProcess(std::uint32_t pid) {
  const HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, pid);
  const auto start = StartOfProcess(process);
  if (process) CloseHandle(process);
  return start;
}

// Whether the process with this id that began then runs. One that this account may not ask about
// does: it is there.
inline bool StillRuns(std::uint32_t pid, std::uint64_t start) {
  SetLastError(ERROR_SUCCESS);
  return StartOfProcess(pid) == start || GetLastError() == ERROR_ACCESS_DENIED;
}
