// A process of the test's own that runs until it is ended.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#ifdef _WIN32
class ChildProcess {
 public:
  ChildProcess() {
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    wchar_t command[] = L"cmd.exe /c pause";
    EXPECT_TRUE(CreateProcessW(nullptr, command, nullptr, nullptr, FALSE, CREATE_SUSPENDED, nullptr,
                               nullptr, &startup, &process_));
  }
  ~ChildProcess() {
    End();
    CloseHandle(process_.hThread);
    CloseHandle(process_.hProcess);
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  LONG Id() const { return static_cast<LONG>(process_.dwProcessId); }

  // Ends it, and returns when the system does not list it any more.
  void End() {
    TerminateProcess(process_.hProcess, 0);
    WaitForSingleObject(process_.hProcess, INFINITE);
  }

 private:
  PROCESS_INFORMATION process_ = {};
};
#else
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

class ChildProcess {
 public:
  ChildProcess() : id_(fork()) {
    if (id_ == 0) {
      execlp("sleep", "sleep", "1000", nullptr);
      _exit(127);
    }
    EXPECT_GT(id_, 0);
  }
  ~ChildProcess() { End(); }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  LONG Id() const { return id_; }

  void End() {
    if (!runs_) return;
    kill(id_, SIGKILL);
    waitpid(id_, nullptr, 0);
    runs_ = false;
  }

 private:
  const pid_t id_;
  bool runs_ = id_ > 0;
};
#endif
