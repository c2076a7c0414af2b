#include <windows.h>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <thread>
#include <vector>

namespace {

// The end of the pipe that the signal handler writes to. Plain, since a signal handler reads it;
// set before the handler is installed.
int signal_pipe = -1;

void ForwardSignal(int signal) {
  const int saved_error = errno;
  const auto byte = static_cast<unsigned char>(signal);
  // A full pipe means that the same request waits there already.
  [[maybe_unused]] const auto written = write(signal_pipe, &byte, 1);
  errno = saved_error;
}

class ConsoleControls {
 public:
  bool Add(PHANDLER_ROUTINE handler) {
    const std::lock_guard lock(mutex_);
    if (!Start()) return false;
    handlers_.push_back(handler);
    return true;
  }

  // Removes the latest addition of `handler`.
  bool Remove(PHANDLER_ROUTINE handler) {
    const std::lock_guard lock(mutex_);
    const auto found = std::find(handlers_.rbegin(), handlers_.rend(), handler);
    if (found == handlers_.rend()) return false;
    handlers_.erase(std::next(found).base());
    return true;
  }

  bool IgnoreInterrupt(bool ignore) {
    const std::lock_guard lock(mutex_);
    if (!Start()) return false;
    interrupt_ignored_ = ignore;
    return true;
  }

 private:
  bool Start() {
    if (signal_pipe >= 0) return true;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return false;
    fcntl(ends[1], F_SETFL, O_NONBLOCK);
    signal_pipe = ends[1];
    std::thread([this, end = ends[0]] { Serve(end); }).detach();

    struct sigaction action = {};
    action.sa_handler = ForwardSignal;
    action.sa_flags = SA_RESTART;
    // Only the serving thread takes the signals: a call to a server that this thread waits in must
    // not be cut short by one.
    sigset_t controls;
    sigemptyset(&controls);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&controls, signal);
    pthread_sigmask(SIG_BLOCK, &controls, nullptr);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
      // A shell that hands on an ignored SIGHUP wants the program to outlive its terminal. An
      // ignored SIGINT is what scripts give all their background commands, which are then
      // interrupted on purpose.
      struct sigaction previous = {};
      sigaction(signal, nullptr, &previous);
      if (signal == SIGHUP && previous.sa_handler == SIG_IGN) continue;
      sigaction(signal, &action, nullptr);
    }
    return true;
  }

  void Serve(int end) {
    for (;;) {
      unsigned char signal = 0;
      const ssize_t length = read(end, &signal, 1);
      if (length < 0 && errno == EINTR) continue;
      if (length != 1) return;
      if (!AskHandlers(signal)) EndBy(signal);
    }
  }

  // Called without the lock around the handlers, which may add and remove handlers.
  bool AskHandlers(int signal) {
    std::vector<PHANDLER_ROUTINE> handlers;
    {
      const std::lock_guard lock(mutex_);
      if (signal == SIGINT && interrupt_ignored_) return true;
      handlers = handlers_;
    }
    const DWORD control = signal == SIGINT ? CTRL_C_EVENT : CTRL_CLOSE_EVENT;
    return std::any_of(handlers.rbegin(), handlers.rend(),
                       [control](PHANDLER_ROUTINE handler) { return handler(control) != FALSE; });
  }

  static void EndBy(int signal) {
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    sigaction(signal, &action, nullptr);
    kill(getpid(), signal);
  }

  std::mutex mutex_;
  std::vector<PHANDLER_ROUTINE> handlers_;
  bool interrupt_ignored_ = false;
};

// Never destroyed: its thread runs until the process has ended.
ConsoleControls& TheConsoleControls() {
  static auto& controls = *new ConsoleControls;
  return controls;
}

}  // namespace

BOOL SetConsoleCtrlHandler(PHANDLER_ROUTINE handler, BOOL add) {
  ConsoleControls& controls = TheConsoleControls();
  const bool done = !handler ? controls.IgnoreInterrupt(add != FALSE)
                    : add    ? controls.Add(handler)
                             : controls.Remove(handler);
  if (!done) SetLastError(add ? ERROR_NOT_ENOUGH_MEMORY : ERROR_INVALID_PARAMETER);
  return done ? TRUE : FALSE;
}
