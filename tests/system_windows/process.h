// Child processes of a test, and those of the service that others started.
#pragma once

#include <windows.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace system_windows {

// How long a test waits for something that should come soon. It is only used up when a test fails.
inline constexpr DWORD kPatienceMs = 60000;

// Looks again and again until the condition holds; false when it does not within the time.
bool WaitUntil(const std::function<bool()>& condition);

class Handle {
 public:
  explicit Handle(HANDLE handle = nullptr) : handle_(handle) {}
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  ~Handle() {
    if (handle_ != nullptr) CloseHandle(handle_);
  }
  HANDLE Get() const { return handle_; }
  explicit operator bool() const { return handle_ != nullptr; }

 private:
  HANDLE handle_;
};

class Process {
 public:
  // Starts the program with these arguments, which stand in its command line as they are. Output
  // goes into `output` and windows onto `desktop` (station and desktop) when these are given.
  Process(const std::filesystem::path& program, const std::wstring& arguments,
          const std::filesystem::path& output = {}, std::wstring desktop = {});
  ~Process();  // ends it if it still runs
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  DWORD id() const { return information_.dwProcessId; }
  bool IsRunning() const;
  // The exit code; STILL_ACTIVE when it does not end in time or was not started.
  DWORD Wait();

 private:
  PROCESS_INFORMATION information_ = {};
};

// The processes of this program, whoever started them.
std::vector<DWORD> ProcessesOf(const std::filesystem::path& program);
void EndProcess(DWORD id);

}  // namespace system_windows
