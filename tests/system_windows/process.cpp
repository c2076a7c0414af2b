#include "tests/system_windows/process.h"

#include <psapi.h>

namespace system_windows {

bool WaitUntil(const std::function<bool()>& condition) {
  const ULONGLONG end = GetTickCount64() + kPatienceMs;
  while (!condition()) {
    if (GetTickCount64() >= end) return false;
    Sleep(20);
  }
  return true;
}

Process::Process(const std::filesystem::path& program, const std::wstring& arguments,
                 const std::filesystem::path& output, std::wstring desktop) {
  std::wstring line = L"\"" + program.wstring() + L"\"";
  if (!arguments.empty()) line += L" " + arguments;
  SECURITY_ATTRIBUTES inherited = {sizeof(inherited), nullptr, TRUE};
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  if (!desktop.empty()) startup.lpDesktop = desktop.data();
  const HANDLE file = output.empty()
                          ? INVALID_HANDLE_VALUE
                          : CreateFileW(output.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherited,
                                        CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file != INVALID_HANDLE_VALUE) {
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = file;
    startup.hStdError = file;
  }
  CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, file != INVALID_HANDLE_VALUE, 0,
                 nullptr, program.parent_path().c_str(), &startup, &information_);
  if (file != INVALID_HANDLE_VALUE) CloseHandle(file);
}

Process::~Process() {
  if (information_.hProcess == nullptr) return;
  if (IsRunning()) {
    TerminateProcess(information_.hProcess, 99);
    WaitForSingleObject(information_.hProcess, kPatienceMs);
  }
  CloseHandle(information_.hThread);
  CloseHandle(information_.hProcess);
}

bool Process::IsRunning() const {
  return information_.hProcess != nullptr &&
         WaitForSingleObject(information_.hProcess, 0) == WAIT_TIMEOUT;
}

DWORD Process::Wait() {
  DWORD code = STILL_ACTIVE;
  if (information_.hProcess == nullptr) return code;
  WaitForSingleObject(information_.hProcess, kPatienceMs);
  GetExitCodeProcess(information_.hProcess, &code);
  return code;
}

std::vector<DWORD> ProcessesOf(const std::filesystem::path& program) {
  std::vector<DWORD> ids(4096);
  DWORD size = 0;
  if (!EnumProcesses(ids.data(), static_cast<DWORD>(ids.size() * sizeof(DWORD)), &size)) return {};
  ids.resize(size / sizeof(DWORD));
  std::erase_if(ids, [&](DWORD id) {
    const Handle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE, FALSE, id));
    wchar_t path[1024] = {};
    DWORD room = 1024;
    return !process || !QueryFullProcessImageNameW(process.Get(), 0, path, &room) ||
           _wcsicmp(path, program.c_str()) != 0 ||
           WaitForSingleObject(process.Get(), 0) == WAIT_OBJECT_0;
  });
  return ids;
}

void EndProcess(DWORD id) {
  const Handle process(OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, id));
  if (!process) return;
  TerminateProcess(process.Get(), 99);
  WaitForSingleObject(process.Get(), kPatienceMs);
}

}  // namespace system_windows
