#include "tests/system/process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <stdexcept>
#include <thread>
#include <utility>

namespace system_test {

namespace {

constexpr std::chrono::milliseconds kLookInterval{5};

std::vector<char*> Pointers(std::vector<std::string>& strings) {
  std::vector<char*> pointers;
  for (std::string& text : strings) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(kLookInterval);
  }
  return true;
}

Process::Process(const std::vector<std::string>& command, const Environment& environment,
                 const std::string& error_file, const std::string& input_file) {
  std::vector<std::string> arguments = command;
  std::vector<std::string> variables;
  for (const auto& [name, value] : environment) variables.push_back(name + "=" + value);
  const auto argument_pointers = Pointers(arguments);
  const auto variable_pointers = Pointers(variables);
  std::array<int, 2> output{};
  if (pipe2(output.data(), O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
  pid_ = fork();
  if (pid_ == 0) {
    const int error = open(error_file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int input = open(input_file.c_str(), O_RDONLY);
    dup2(input, STDIN_FILENO);
    dup2(output[1], STDOUT_FILENO);
    dup2(error, STDERR_FILENO);
    execve(argument_pointers[0], argument_pointers.data(), variable_pointers.data());
    _exit(127);
  }
  close(output[1]);
  output_ = output[0];
  if (pid_ < 0) throw std::runtime_error("fork failed");
}

Process::~Process() {
  if (!exit_status_) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  close(output_);
}

bool Process::Fill(std::chrono::steady_clock::time_point end) {
  const auto left =
      std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
  pollfd ready = {output_, POLLIN, 0};
  if (left.count() <= 0 || poll(&ready, 1, static_cast<int>(left.count())) <= 0) return false;
  std::array<char, 65536> part{};
  const ssize_t count = read(output_, part.data(), part.size());
  if (count <= 0) return false;
  buffer_.append(part.data(), static_cast<std::size_t>(count));
  return true;
}

std::optional<std::string> Process::ReadLine(std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  std::size_t line_end = 0;
  while ((line_end = buffer_.find('\n')) == std::string::npos) {
    if (!Fill(end)) return std::nullopt;
  }
  std::string line = buffer_.substr(0, line_end);
  buffer_.erase(0, line_end + 1);
  return line;
}

std::string Process::ReadAll(std::chrono::milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (Fill(end)) {
  }
  return std::exchange(buffer_, "");
}

void Process::Signal(int signal) {
  if (!exit_status_) kill(pid_, signal);
}

int Process::Wait(std::chrono::milliseconds limit) {
  const bool ended = WaitUntil(
      [this] {
        int status = 0;
        if (!exit_status_ && waitpid(pid_, &status, WNOHANG) == pid_) {
          exit_status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
        return exit_status_.has_value();
      },
      limit);
  return ended ? *exit_status_ : -1;
}

}  // namespace system_test
