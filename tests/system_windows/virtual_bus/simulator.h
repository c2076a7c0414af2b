// The simulator as a process of its own, behind the virtual bus driver.
#pragma once

#include <memory>
#include <string>

#include "tests/system_windows/process.h"
#include "tests/unit/scratch_folder.h"

namespace system_windows {

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

 private:
  unit::ScratchFolder folder_;
  std::unique_ptr<Program> program_;
  bool ready_ = false;
};

// Waits until so many devices of the probe driver are listed.
bool DevicesBecome(unsigned count);

}  // namespace system_windows
