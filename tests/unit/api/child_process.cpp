#include "tests/unit/api/child_process.h"

#include <gtest/gtest.h>

#ifdef _WIN32
#include <windows.h>

ChildProcess::ChildProcess() {
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION process = {};
  wchar_t command[] = L"cmd.exe /c pause";
  EXPECT_TRUE(CreateProcessW(nullptr, command, nullptr, nullptr, FALSE, CREATE_SUSPENDED, nullptr,
                             nullptr, &startup, &process));
  CloseHandle(process.hThread);
  id_ = process.dwProcessId;
  handle_ = process.hProcess;
}

void ChildProcess::End() {
  if (handle_ == nullptr) return;
  TerminateProcess(handle_, 0);
  WaitForSingleObject(handle_, INFINITE);
  CloseHandle(handle_);
  handle_ = nullptr;
}

#else
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

ChildProcess::ChildProcess() {
  const pid_t child = fork();
  if (child == 0) {
    execlp("sleep", "sleep", "1000", nullptr);
    _exit(127);
  }
  EXPECT_GT(child, 0);
  id_ = static_cast<std::uint32_t>(child);
}

void ChildProcess::End() {
  if (id_ == 0) return;
  const auto child = static_cast<pid_t>(id_);
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  id_ = 0;
}
#endif

ChildProcess::~ChildProcess() { End(); }
