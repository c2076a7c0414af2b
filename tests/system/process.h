// A child process of a test, which does not outlive it.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace system_test {

// How long a test waits for something that should come soon. It is only used up when a test fails.
inline constexpr std::chrono::milliseconds kPatience{30000};

// Looks again and again until the condition holds; false when it does not within the time.
bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit = kPatience);

using Environment = std::map<std::string, std::string>;

class Process {
 public:
  // Starts `command` (a path and its arguments) with exactly this environment. Standard output is
  // read with ReadLine or ReadAll, standard error goes to `error_file`.
  Process(const std::vector<std::string>& command, const Environment& environment,
          const std::string& error_file, const std::string& input_file = "/dev/null");
  ~Process();  // kills it if it still runs
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  pid_t pid() const { return pid_; }

  // The next line of standard output without its LF; nothing at its end or after the time.
  std::optional<std::string> ReadLine(std::chrono::milliseconds limit = kPatience);
  std::string ReadAll(std::chrono::milliseconds limit = kPatience);

  void Signal(int signal);

  // The exit status, or 128 plus the signal that ended it; -1 when it does not end in time.
  int Wait(std::chrono::milliseconds limit = kPatience);

 private:
  // False at the end of the output or after the time.
  bool Fill(std::chrono::steady_clock::time_point end);

  pid_t pid_ = -1;
  int output_ = -1;
  std::string buffer_;
  std::optional<int> exit_status_;
};

}  // namespace system_test
