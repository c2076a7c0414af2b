#include "tests/system_windows/process.h"

#include <psapi.h>

#include <utility>

#include "tests/system_windows/programs.h"

namespace system_windows {

bool WaitUntil(const std::function<bool()>& condition) {
  const ULONGLONG end = GetTickCount64() + kPatienceMs;
  while (!condition()) {
    if (GetTickCount64() >= end) return false;
    Sleep(5);
  }
  return true;
}

Program::Program(const std::filesystem::path& program, const std::string& arguments,
                 std::wstring desktop) {
  HANDLE reading = nullptr;
  HANDLE writing = nullptr;
  SECURITY_ATTRIBUTES inherited = {sizeof(inherited), nullptr, TRUE};
  CreatePipe(&reading, &writing, &inherited, 0);
  output_ = KernelHandle(reading);
  const KernelHandle childs(writing);
  SetHandleInformation(reading, HANDLE_FLAG_INHERIT, 0);
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = writing;
  startup.hStdError = writing;
  if (!desktop.empty()) startup.lpDesktop = desktop.data();
  // A name is one of the build's; a path stays what it is.
  std::wstring line = L"\"" + (ProgramFolder() / program).wstring() + L"\" " +
                      std::filesystem::path(arguments).wstring();
  PROCESS_INFORMATION started = {};
  if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                      &started)) {
    return;
  }
  process_ = KernelHandle(started.hProcess);
  CloseHandle(started.hThread);
}

bool Program::IsRunning() const {
  return process_ && WaitForSingleObject(process_.Get(), 0) == WAIT_TIMEOUT;
}

bool Program::Fill() {
  DWORD waiting = 0;
  WaitUntil([&] {
    return !PeekNamedPipe(output_.Get(), nullptr, 0, nullptr, &waiting, nullptr) || waiting > 0;
  });
  std::string part(waiting, '\0');
  DWORD count = 0;
  if (waiting == 0 || !::ReadFile(output_.Get(), part.data(), waiting, &count, nullptr)) {
    return false;
  }
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
  DWORD code = STILL_ACTIVE;
  WaitForSingleObject(process_.Get(), kPatienceMs);
  GetExitCodeProcess(process_.Get(), &code);
  return static_cast<int>(code);
}

Finished RunToEnd(const std::filesystem::path& program, const std::string& arguments) {
  Program running(program, arguments);
  std::string out = running.ReadAll();
  return {running.Wait(), std::move(out)};
}

std::vector<DWORD> ProcessesOf(const std::filesystem::path& program) {
  std::vector<DWORD> ids(4096);
  DWORD size = 0;
  if (!EnumProcesses(ids.data(), static_cast<DWORD>(ids.size() * sizeof(DWORD)), &size)) return {};
  ids.resize(size / sizeof(DWORD));
  std::erase_if(ids, [&](DWORD id) {
    const KernelHandle process(
        OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE, FALSE, id));
    wchar_t path[1024] = {};
    DWORD room = 1024;
    return !process || !QueryFullProcessImageNameW(process.Get(), 0, path, &room) ||
           _wcsicmp(path, program.c_str()) != 0 ||
           WaitForSingleObject(process.Get(), 0) == WAIT_OBJECT_0;
  });
  return ids;
}

void EndProcess(DWORD id) {
  const KernelHandle process(OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, id));
  if (!process) return;
  TerminateProcess(process.Get(), 99);
  WaitForSingleObject(process.Get(), kPatienceMs);
}

}  // namespace system_windows
