// Child processes of a test, and those of the service that others started.
#pragma once

#include <windows.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "platform/windows/kernel_handle.h"

namespace system_windows {

using windows_host::KernelHandle;

// How long a test waits for something that should come soon. It is only used up when a test fails.
inline constexpr DWORD kPatienceMs = 60000;

// Looks again and again until the condition holds; false when it does not within the time.
bool WaitUntil(const std::function<bool()>& condition);

// A program with its standard output and errors; killed at the end.
class Program {
 public:
  // `program` is a path, or the name of a program of the build. The arguments are the rest of the
  // command line, as it is. Windows go onto `desktop` (station and desktop) when it is given.
  explicit Program(const std::filesystem::path& program, const std::string& arguments = "",
                   std::wstring desktop = {});
  ~Program() { Kill(); }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  bool IsRunning() const;
  // The next line, without its end; empty at the end of the output, or when none comes in time.
  std::string ReadLine();
  // What is left of the output until the program ends.
  std::string ReadAll();
  void Kill();
  // As by Ctrl-C, and waits for the end.
  int Interrupt();
  // The exit code; STILL_ACTIVE when it does not end in time or was not started.
  int Wait();

 private:
  // Takes over what waits in the pipe; false at its end, or when nothing comes in time.
  bool Fill();

  KernelHandle process_;
  KernelHandle output_;
  std::string buffer_;
};

struct Finished {
  int exit_status;
  std::string out;  // standard output and errors
};

// Runs the program to its end.
Finished RunToEnd(const std::filesystem::path& program, const std::string& arguments);

// The processes of this program, whoever started them.
std::vector<DWORD> ProcessesOf(const std::filesystem::path& program);
void EndProcess(DWORD id);

}  // namespace system_windows
