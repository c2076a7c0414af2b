#include "tests/system_windows/virtual_bus/simulator.h"

#include <windows.h>

#include <filesystem>
#include <memory>

#include "usb/device_enumeration.h"
#include "usb/driver_interface.h"

namespace system_windows {
namespace {

using windows_host::KernelHandle;

constexpr DWORD kLookAgainMs = 5;

std::string ProgramPath(const std::string& name) {
  char path[MAX_PATH];
  GetModuleFileNameA(nullptr, path, MAX_PATH);
  const std::filesystem::path programs = std::filesystem::path(path).parent_path();
  return (programs.parent_path() / "bin" / name).string();
}

}  // namespace

bool WaitUntil(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    Sleep(kLookAgainMs);
  }
  return true;
}

Program::Program(const std::string& name, const std::string& arguments) {
  HANDLE reading = nullptr;
  HANDLE writing = nullptr;
  SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
  CreatePipe(&reading, &writing, &inherited, 0);
  output_ = KernelHandle(reading);
  const KernelHandle childs(writing);
  SetHandleInformation(reading, HANDLE_FLAG_INHERIT, 0);
  STARTUPINFOA startup{};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = writing;
  startup.hStdError = writing;
  PROCESS_INFORMATION started{};
  std::string command = std::string(1, '"').append(ProgramPath(name)).append("\" ") + arguments;
  if (!CreateProcessA(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                      &startup, &started)) {
    return;
  }
  process_ = KernelHandle(started.hProcess);
  CloseHandle(started.hThread);
}

std::string Program::ReadLine() {
  std::string line;
  char c = 0;
  DWORD count = 0;
  while (ReadFile(output_.Get(), &c, 1, &count, nullptr) && count == 1 && c != '\n') line += c;
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return line;
}

void Program::Kill() {
  if (!process_) return;
  TerminateProcess(process_.Get(), 99);
  Wait();
}

int Program::Wait() {
  if (WaitForSingleObject(process_.Get(), kPatience.count()) != WAIT_OBJECT_0) return -1;
  DWORD code = 0;
  GetExitCodeProcess(process_.Get(), &code);
  return static_cast<int>(code);
}

bool DriverIsInstalled() {
  static const bool installed = Program("wfxvbus.exe", "install").Wait() == 0;
  return installed;
}

Simulator::Simulator(const std::string& bench) {
  std::string arguments;
  if (!bench.empty()) arguments = "--bench \"" + folder_.Write("bench.json", bench) + "\"";
  program_ = std::make_unique<Program>("wfxsim.exe", arguments);
  ready_ = program_->ReadLine() == R"(wfxsim: listening on \\.\pipe\wfxsim)";
}

int Simulator::Control(const std::string& command) {
  return Program("wfxsim.exe", "ctl " + command).Wait();
}

bool DevicesBecome(unsigned count) {
  return WaitUntil([&] { return CountDevices(kProbeDriverInterface) == count; });
}

}  // namespace system_windows
