// The simulator as a process of its own, behind the virtual bus driver.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "platform/windows/kernel_handle.h"
#include "tests/unit/scratch_folder.h"

namespace system_windows {

// How long a test waits for something that should come soon. It is only used up when a test fails.
inline constexpr std::chrono::milliseconds kPatience{30000};

// Looks again and again until the condition holds; false when it does not within the time.
bool WaitUntil(const std::function<bool()>& condition);

// A program beside the test programs, with its standard output and errors; killed at the end.
class Program {
 public:
  // `arguments` is the rest of the command line.
  Program(const std::string& name, const std::string& arguments);
  ~Program() { Kill(); }

  // The next line, without its end; empty at the end of the output.
  std::string ReadLine();
  void Kill();
  // The exit code; -1 when it does not end in time.
  int Wait();

 private:
  windows_host::KernelHandle process_;
  windows_host::KernelHandle output_;
};

// Installs the driver in the running session; once for all tests of a program.
bool DriverIsInstalled();

class Simulator {
 public:
  // Empty: the default bench. The simulator is ready when this returns.
  explicit Simulator(const std::string& bench = "");

  Program& program() { return *program_; }
  bool ready() const { return ready_; }

  // Runs a command that controls it; the exit code.
  int Control(const std::string& command);

  const unit::ScratchFolder& folder() const { return folder_; }

 private:
  unit::ScratchFolder folder_;
  std::unique_ptr<Program> program_;
  bool ready_ = false;
};

// Waits until so many devices of the probe driver are listed.
bool DevicesBecome(unsigned count);

}  // namespace system_windows
