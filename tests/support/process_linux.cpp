#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

#include "tests/support/process.h"

namespace support {
namespace {

std::vector<char*> Pointers(Words& words) {
  std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

Process::Process(const Words& command, const Surroundings& surroundings) {
  Words arguments = command;
  Words variables;
  for (const auto& [name, value] : surroundings.environment.value_or(Environment())) {
    variables.push_back(name + "=" + value);
  }
  const auto nothing = [](const std::string& path) { return path.empty() ? "/dev/null" : path; };
  std::array<int, 2> output{};
  if (pipe2(output.data(), O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, 0, nothing(surroundings.input_file).c_str(), O_RDONLY,
                                   0);
  posix_spawn_file_actions_adddup2(&files, output[1], 1);
  if (surroundings.error_file.empty()) {
    posix_spawn_file_actions_adddup2(&files, output[1], 2);
  } else {
    posix_spawn_file_actions_addopen(&files, 2, surroundings.error_file.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0600);
  }
  const auto environment = Pointers(variables);
  const int problem =
      posix_spawn(&id_, command.at(0).c_str(), &files, nullptr, Pointers(arguments).data(),
                  surroundings.environment ? environment.data() : environ);
  posix_spawn_file_actions_destroy(&files);
  close(output[1]);
  output_ = output[0];
  if (problem != 0) exit_status_ = 127;
}

Process::~Process() {
  Kill();
  close(static_cast<int>(output_));
}

bool Process::Fill(std::chrono::steady_clock::time_point end) {
  const auto left =
      std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
  pollfd ready = {static_cast<int>(output_), POLLIN, 0};
  if (left.count() <= 0 || poll(&ready, 1, static_cast<int>(left.count())) <= 0) return false;
  std::array<char, 65536> part{};
  const ssize_t count = read(ready.fd, part.data(), part.size());
  if (count <= 0) return false;
  buffer_.append(part.data(), static_cast<std::size_t>(count));
  return true;
}

void Process::Interrupt() {
  if (!exit_status_) kill(id_, SIGINT);
}

void Process::Terminate() {
  if (!exit_status_) kill(id_, SIGTERM);
}

void Process::Kill() {
  if (!exit_status_) kill(id_, SIGKILL);
  Wait();
}

int Process::Wait(std::chrono::milliseconds limit) {
  const bool ended = WaitUntil(
      [this] {
        int status = 0;
        if (!exit_status_ && waitpid(id_, &status, WNOHANG) == id_) {
          exit_status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
        return exit_status_.has_value();
      },
      limit);
  return ended ? *exit_status_ : kRuns;
}

}  // namespace support
