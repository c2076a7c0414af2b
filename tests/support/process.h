// A child process of a test, which does not outlive it; the same on both hosts.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace support {

// How long a test waits for something that should come soon. It is only used up when a test fails.
inline constexpr std::chrono::milliseconds kPatience{60000};

// Looks again and again until the condition holds; false when it does not within the time.
bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit = kPatience);

std::string ReadFile(const std::filesystem::path& path);  // empty when there is none
void WriteFile(const std::filesystem::path& path, const std::string& content);

using Words = std::vector<std::string>;
using Environment = std::map<std::string, std::string>;

struct Surroundings {
  std::optional<Environment> environment{};  // exactly this one; nothing: the test's own
  std::string input_file{};                  // empty: there is nothing to read
  std::string error_file{};                  // empty: errors stand in the output
  std::wstring desktop{};  // on Windows: station and desktop of its windows; empty: the test's own
};

// No process's exit status.
inline constexpr int kRuns = 259;

class Process {
 public:
  // Starts `command`, the program's path and its arguments.
  explicit Process(const Words& command, const Surroundings& surroundings = {});
  ~Process();  // kills it if it still runs
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  int id() const { return id_; }
  bool IsRunning() { return Wait(std::chrono::milliseconds(0)) == kRuns; }

  // The next line of its output without its end; nothing at the output's end or after the time.
  // Lines end with LF here on either host.
  std::optional<std::string> ReadLine(std::chrono::milliseconds limit = kPatience);
  // What is left of the output, until its end.
  std::string ReadAll(std::chrono::milliseconds limit = kPatience);

  void Interrupt();  // as by Ctrl-C
  void Terminate();  // on Linux: asks it to end
  void Kill();       // and waits for the end

  // The exit status, on Linux 128 plus the signal that ended it; kRuns when it does not end in
  // time.
  int Wait(std::chrono::milliseconds limit = kPatience);

 private:
  // Takes over what waits in the pipe; false at its end, or when nothing comes in time.
  bool Fill(std::chrono::steady_clock::time_point end);

  int id_ = -1;
  std::intptr_t process_ = -1;  // on Windows its handle
  std::intptr_t output_ = -1;
  std::string buffer_;
  std::optional<int> exit_status_;
};

struct Finished {
  int exit_status;
  std::string out;
  std::string err{};  // when they went into a file
};

Finished RunToEnd(const Words& command, const Surroundings& surroundings = {});

}  // namespace support
