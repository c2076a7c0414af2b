// What the system tells of a running process.
#pragma once

#include <cstdint>
#include <optional>

namespace linux_host {

// Times in clock ticks.
struct RunningProcess {
  std::uint32_t id;
  std::uint64_t start_time;  // since the system started
  std::uint64_t user_time;
  std::uint64_t kernel_time;
};

// Of an entry of the process file system, whose open descriptor is `proc`. Nothing when it is no
// process, or a kernel thread, or has ended.
std::optional<RunningProcess> ReadProcess(int proc, const char* entry);

// Nothing when no user process has that id, or it has ended and is not yet waited for.
std::optional<RunningProcess> FindProcess(std::uint32_t id);

}  // namespace linux_host
