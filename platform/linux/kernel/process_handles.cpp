#include <fcntl.h>
#include <unistd.h>
#include <windows.h>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

#include "platform/linux/kernel/file_descriptor.h"
#include "platform/linux/kernel/handle_table.h"
#include "platform/linux/kernel/processes.h"
#include "platform/linux/kernel/text.h"

namespace linux_host {
namespace {

constexpr std::uint64_t kFileTimePerSecond = 10'000'000;

class Process : public KernelObject {
 public:
  static constexpr ObjectKind kKind = ObjectKind::kProcess;

  explicit Process(const RunningProcess& process)
      : KernelObject(kKind), id_(process.id), start_time_(process.start_time) {}

  // Nothing once it has ended; its id may have gone to another then.
  std::optional<RunningProcess> State() const {
    auto state = FindProcess(id_);
    if (state && state->start_time != start_time_) state.reset();
    if (!state) SetLastError(ERROR_GEN_FAILURE);
    return state;
  }

  std::string Folder() const { return "/proc/" + std::to_string(id_); }

 private:
  const std::uint32_t id_;
  const std::uint64_t start_time_;
};

FILETIME FileTime(std::uint64_t ticks) {
  static const auto ticks_per_second = static_cast<std::uint64_t>(sysconf(_SC_CLK_TCK));
  const std::uint64_t time = ticks * (kFileTimePerSecond / ticks_per_second);
  return {static_cast<DWORD>(time), static_cast<DWORD>(time >> 32)};
}

std::string LinkTarget(const std::string& path) {
  std::array<char, 4096> target;
  const ssize_t length = readlink(path.c_str(), target.data(), target.size());
  return std::string(target.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
}

// What the process calls itself.
std::string OwnName(const Process& process) {
  const FileDescriptor file(open((process.Folder() + "/comm").c_str(), O_RDONLY | O_CLOEXEC));
  std::array<char, 64> name;
  const ssize_t length = file.is_open() ? read(file.get(), name.data(), name.size()) : 0;
  std::string text(name.data(), length > 0 ? static_cast<std::size_t>(length) : 0);
  if (text.ends_with('\n')) text.pop_back();
  return text;
}

std::string ProgramOf(const Process& process) {
  constexpr std::string_view kDeleted = " (deleted)";
  std::string path = LinkTarget(process.Folder() + "/exe");
  if (path.ends_with(kDeleted)) path.resize(path.size() - kDeleted.size());
  return path.empty() ? OwnName(process) : path;
}

}  // namespace
}  // namespace linux_host

using linux_host::LookUp;
using linux_host::Process;

HANDLE OpenProcess(DWORD access, BOOL, DWORD id) {
  const auto process = linux_host::FindProcess(id);
  if (!process || access != PROCESS_QUERY_LIMITED_INFORMATION) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  return MakeHandle(linux_host::MakeObject<Process>(*process));
}

BOOL GetProcessTimes(HANDLE process, LPFILETIME created, LPFILETIME exited, LPFILETIME kernel,
                     LPFILETIME user) {
  const auto object = LookUp<Process>(process);
  const auto state = object ? object->State() : std::nullopt;
  if (!state) return FALSE;
  *created = linux_host::FileTime(state->start_time);
  *exited = {};
  *kernel = linux_host::FileTime(state->kernel_time);
  *user = linux_host::FileTime(state->user_time);
  return TRUE;
}

BOOL QueryFullProcessImageNameW(HANDLE process, DWORD, LPWSTR path, LPDWORD size) {
  const auto object = LookUp<Process>(process);
  if (!object) return FALSE;
  const std::wstring program = linux_host::Utf8ToWide(ProgramOf(*object));
  // Asked afterwards: then the name is that of this process.
  if (!object->State()) return FALSE;
  if (program.size() >= *size) {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return FALSE;
  }
  std::copy_n(program.c_str(), program.size() + 1, path);
  *size = static_cast<DWORD>(program.size());
  return TRUE;
}
