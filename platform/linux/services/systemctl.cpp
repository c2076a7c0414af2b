#include "platform/linux/services/systemctl.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <optional>
#include <vector>

#include "platform/linux/kernel/descriptor.h"
#include "platform/linux/services/registration_files.h"

namespace linux_host {
namespace {

std::string ReadToEnd(const Descriptor& source) {
  std::string text;
  char part[4096];
  for (;;) {
    const ssize_t length = read(source.get(), part, sizeof part);
    if (length < 0 && errno == EINTR) continue;
    if (length <= 0) return text;
    text.append(part, static_cast<std::size_t>(length));
  }
}

bool HasSucceeded(pid_t process) {
  int status = 0;
  while (waitpid(process, &status, 0) < 0) {
    if (errno != EINTR) return false;
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// What it printed; nothing when it cannot be run or fails, as it does where no systemd runs.
std::optional<std::string> Run(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), {"systemctl", "--no-ask-password", "--no-pager"});
  if (!ServicesAreTheMachines()) arguments.emplace_back("--user");
  std::vector<char*> pointers;
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);

  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return std::nullopt;
  const Descriptor reading(ends[0]);
  Descriptor writing(ends[1]);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, writing.get(), STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t process = 0;
  const int error =
      posix_spawnp(&process, "systemctl", &actions, nullptr, pointers.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  writing.Reset();
  if (error != 0) return std::nullopt;
  std::string output = ReadToEnd(reading);
  if (!HasSucceeded(process)) return std::nullopt;
  return output;
}

std::string UnitNameOf(const std::string& unit_file) {
  return unit_file.substr(unit_file.rfind('/') + 1);
}

// The value of "NAME=value" among the lines.
std::string Property(const std::string& lines, const std::string& name) {
  const std::string text = "\n" + lines;
  const std::size_t found = text.find("\n" + name + "=");
  if (found == text.npos) return "";
  const std::size_t start = found + name.size() + 2;
  return text.substr(start, text.find('\n', start) - start);
}

// A unit that lies elsewhere can be linked into systemd's folders.
bool IsSameFile(const std::string& a, const std::string& b) {
  std::error_code ignored;
  return a == b || std::filesystem::equivalent(a, b, ignored);
}

}  // namespace

UnitState AskUnitState(const std::string& unit_file) {
  const auto shown = Run({"show", "--property=ActiveState,FragmentPath", UnitNameOf(unit_file)});
  if (!shown || !IsSameFile(Property(*shown, "FragmentPath"), unit_file)) {
    return UnitState::kStopped;
  }
  const std::string state = Property(*shown, "ActiveState");
  if (state == "activating") return UnitState::kStarting;
  if (state == "deactivating") return UnitState::kStopping;
  return state == "active" || state == "reloading" ? UnitState::kRunning : UnitState::kStopped;
}

bool StopUnit(const std::string& unit_file) {
  return Run({"stop", "--no-block", UnitNameOf(unit_file)}).has_value();
}

void ReloadUnits() { static_cast<void>(Run({"daemon-reload"})); }

}  // namespace linux_host
