#include <windows.h>

#include <dirent.h>
#include <psapi.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "platform/linux/kernel/processes.h"

namespace {

using linux_host::RunningProcess;

std::optional<std::vector<RunningProcess>> ListProcesses() {
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir("/proc"), closedir);
  if (!directory) return std::nullopt;
  std::vector<RunningProcess> processes;
  while (const dirent* entry = readdir(directory.get())) {
    if (entry->d_name[0] < '1' || entry->d_name[0] > '9') continue;
    if (const auto process = linux_host::ReadProcess(dirfd(directory.get()), entry->d_name)) {
      processes.push_back(*process);
    }
  }
  // Without its own process in it, what is mounted there is no process file system.
  if (processes.empty()) return std::nullopt;
  return processes;
}

}  // namespace

BOOL EnumProcesses(DWORD* ids, DWORD size, DWORD* filled) {
  if (!filled || (!ids && size >= sizeof(DWORD))) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  auto processes = ListProcesses();
  if (!processes) {
    SetLastError(ERROR_GEN_FAILURE);
    return FALSE;
  }
  // The caller's room may end before the processes do: then the clients of the service, which are
  // younger than most, are the ones to keep.
  std::sort(processes->begin(), processes->end(),
            [](const RunningProcess& a, const RunningProcess& b) {
              return a.start_time != b.start_time ? a.start_time > b.start_time : a.id > b.id;
            });
  const std::size_t room = size / sizeof(DWORD);
  std::size_t count = 0;
  if (count < room) ids[count++] = 0;
  for (std::size_t i = 0; i < processes->size() && count < room; ++i) {
    ids[count++] = (*processes)[i].id;
  }
  *filled = static_cast<DWORD>(count * sizeof(DWORD));
  return TRUE;
}
