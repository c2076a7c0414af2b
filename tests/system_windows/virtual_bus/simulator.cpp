#include "tests/system_windows/virtual_bus/simulator.h"

#include <windows.h>

#include <filesystem>
#include <memory>
#include <utility>

#include "usb/device_enumeration.h"
#include "usb/driver_interface.h"

namespace system_windows {
namespace {

using windows_host::KernelHandle;

std::string ProgramPath(const std::string& name) {
  char path[MAX_PATH];
  GetModuleFileNameA(nullptr, path, MAX_PATH);
  const std::filesystem::path programs = std::filesystem::path(path).parent_path();
  return (programs.parent_path() / "bin" / name).string();
}

}  // namespace

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

bool Program::Fill() {
  DWORD waiting = 0;
  WaitUntil([&] {
    return !PeekNamedPipe(output_.Get(), nullptr, 0, nullptr, &waiting, nullptr) || waiting > 0;
  });
  std::string part(waiting, '\0');
  DWORD count = 0;
  if (waiting == 0 || !ReadFile(output_.Get(), part.data(), waiting, &count, nullptr)) return false;
  buffer_.append(part, 0, count);
  return true;
}

std::string Program::ReadLine() {
  std::size_t end = 0;
  while ((end = buffer_.find('\n')) == std::string::npos && Fill()) {
  }
  std::string line = buffer_.substr(0, end);
  buffer_.erase(0, end == std::string::npos ? end : end + 1);
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return line;
}

std::string Program::ReadAll() {
  while (Fill()) {
  }
  return std::exchange(buffer_, "");
}

void Program::Kill() {
  if (!process_) return;
  TerminateProcess(process_.Get(), 99);
  Wait();
}

int Program::Interrupt() {
  // What the system itself starts in each process of a console; here there is no console.
  const auto routine = reinterpret_cast<LPTHREAD_START_ROUTINE>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernelbase.dll"), "CtrlRoutine")));
  const KernelHandle thread(
      CreateRemoteThread(process_.Get(), nullptr, 0, routine, nullptr, 0, nullptr));
  return Wait();
}

int Program::Wait() {
  if (WaitForSingleObject(process_.Get(), kPatienceMs) != WAIT_OBJECT_0) return -1;
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
