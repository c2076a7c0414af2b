// A process of a test's own, forked from the test's.
#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <utility>

class ChildProcess {
 public:
  // Runs `body`, and ends with what it returns.
  explicit ChildProcess(const std::function<int()>& body) : id_(fork()) {
    if (id_ == 0) _exit(body());
  }
  // Ends one that nobody has waited for.
  ~ChildProcess() {
    if (id_ > 0) End();
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  pid_t id() const { return id_; }

  // Waits for its end: its exit status, or the signal that ended it as a negative number.
  int Await() {
    int status = 0;
    waitpid(std::exchange(id_, 0), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }

  int End(int signal = SIGKILL) {
    kill(id_, signal);
    return Await();
  }

 private:
  pid_t id_;
};
