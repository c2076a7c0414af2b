// The simulator as a process of its own, behind the virtual bus driver.
#pragma once

#include <memory>
#include <string>

#include "platform/windows/kernel_handle.h"
#include "tests/system_windows/process.h"
#include "tests/unit/scratch_folder.h"

namespace system_windows {

// A program with its standard output and errors; killed at the end.
class Program {
 public:
  // `name` is a path, or that of a program of the build; `arguments` is the rest of the command
  // line.
  Program(const std::string& name, const std::string& arguments);
  ~Program() { Kill(); }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  // The next line, without its end; empty at the end of the output, or when none comes in time.
  std::string ReadLine();
  // What is left of the output until the program ends.
  std::string ReadAll();
  void Kill();
  // As by Ctrl-C, and waits for the end.
  int Interrupt();
  // The exit code; -1 when it does not end in time.
  int Wait();

 private:
  // Takes over what waits in the pipe; false at its end, or when nothing comes in time.
  bool Fill();

  windows_host::KernelHandle process_;
  windows_host::KernelHandle output_;
  std::string buffer_;
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
