#include <windows.h>

#include "platform/windows/kernel_handle.h"
#include "tests/support/process.h"

namespace support {
namespace {

using windows_host::KernelHandle;

HANDLE AsHandle(std::intptr_t value) { return reinterpret_cast<HANDLE>(value); }

HANDLE InheritedFile(const std::string& path, DWORD access, DWORD disposition) {
  SECURITY_ATTRIBUTES inherited = {sizeof(inherited), nullptr, TRUE};
  return CreateFileW(std::filesystem::path(path).c_str(), access, FILE_SHARE_READ, &inherited,
                     disposition, 0, nullptr);
}

// One word of a command line, in quotes where it needs them. None here ends with a backslash.
std::wstring Quoted(const std::string& word) {
  const std::wstring text = std::filesystem::path(word).wstring();
  const bool bare = !text.empty() && text.find(L' ') == text.npos;
  return bare ? text : L"\"" + text + L"\"";
}

}  // namespace

Process::Process(const Words& command, const Surroundings& surroundings) {
  HANDLE reading = nullptr;
  HANDLE writing = nullptr;
  SECURITY_ATTRIBUTES inherited = {sizeof(inherited), nullptr, TRUE};
  CreatePipe(&reading, &writing, &inherited, 0);
  SetHandleInformation(reading, HANDLE_FLAG_INHERIT, 0);
  output_ = reinterpret_cast<std::intptr_t>(reading);
  const KernelHandle output(writing);
  const auto& [environment, input_file, error_file, desktop] = surroundings;
  const KernelHandle input(
      InheritedFile(input_file.empty() ? "NUL" : input_file, GENERIC_READ, OPEN_EXISTING));
  const KernelHandle error(error_file.empty()
                               ? INVALID_HANDLE_VALUE
                               : InheritedFile(error_file, GENERIC_WRITE, CREATE_ALWAYS));
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = input.Get();
  startup.hStdOutput = writing;
  startup.hStdError = error_file.empty() ? writing : error.Get();
  std::wstring place = desktop;
  if (!place.empty()) startup.lpDesktop = place.data();
  std::wstring line;
  for (const std::string& word : command) line += (line.empty() ? L"" : L" ") + Quoted(word);
  std::wstring variables;
  for (const auto& [name, value] : environment.value_or(Environment())) {
    variables += std::filesystem::path(name + "=" + value).wstring() + L'\0';
  }
  PROCESS_INFORMATION started = {};
  if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, CREATE_UNICODE_ENVIRONMENT,
                      environment ? variables.data() : nullptr, nullptr, &startup, &started)) {
    exit_status_ = 127;
    return;
  }
  CloseHandle(started.hThread);
  process_ = reinterpret_cast<std::intptr_t>(started.hProcess);
  id_ = static_cast<int>(started.dwProcessId);
}

Process::~Process() {
  Kill();
  CloseHandle(AsHandle(process_));
  CloseHandle(AsHandle(output_));
}

bool Process::Fill(std::chrono::steady_clock::time_point end) {
  DWORD waiting = 0;
  // What the program has started for the system may hold the pipe open for longer than it lives.
  WaitUntil(
      [&] {
        const bool has_ended = WaitForSingleObject(AsHandle(process_), 0) == WAIT_OBJECT_0;
        return !PeekNamedPipe(AsHandle(output_), nullptr, 0, nullptr, &waiting, nullptr) ||
               waiting > 0 || has_ended;
      },
      std::chrono::duration_cast<std::chrono::milliseconds>(end -
                                                            std::chrono::steady_clock::now()));
  std::string part(waiting, '\0');
  DWORD count = 0;
  if (waiting == 0 || !::ReadFile(AsHandle(output_), part.data(), waiting, &count, nullptr)) {
    return false;
  }
  part.resize(count);
  std::erase(part, '\r');
  buffer_ += part;
  return true;
}

void Process::Interrupt() {
  // What the system itself starts in each process of a console; here there is no console.
  const auto routine = reinterpret_cast<LPTHREAD_START_ROUTINE>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernelbase.dll"), "CtrlRoutine")));
  const KernelHandle thread(
      CreateRemoteThread(AsHandle(process_), nullptr, 0, routine, nullptr, 0, nullptr));
}

void Process::Kill() {
  if (!exit_status_) TerminateProcess(AsHandle(process_), 99);
  Wait();
}

int Process::Wait(std::chrono::milliseconds limit) {
  if (exit_status_) return *exit_status_;
  DWORD code = 0;
  if (WaitForSingleObject(AsHandle(process_), static_cast<DWORD>(limit.count())) != WAIT_OBJECT_0 ||
      !GetExitCodeProcess(AsHandle(process_), &code)) {
    return kRuns;
  }
  exit_status_ = static_cast<int>(code);
  return *exit_status_;
}

}  // namespace support
