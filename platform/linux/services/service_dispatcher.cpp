// The calls of a process that runs as a service: systemd's request to end is the stop control, and
// the states that the service reports are what systemd waits for.
#include "platform/linux/services/service_dispatcher.h"

#include <windows.h>

#include <winsvc.h>

#include <signal.h>
#include <sys/eventfd.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <string>

#include "platform/linux/kernel/home.h"
#include "platform/linux/kernel/threads.h"

namespace linux_host {
namespace {

// What the signal handler touches. Set before the handler is installed.
int g_wake_descriptor = -1;
std::atomic<bool> g_is_stop_wanted{false};
static_assert(std::atomic<bool>::is_always_lock_free);

void Wake() {
  const std::uint64_t one = 1;
  // Fails only when a wake-up waits already.
  [[maybe_unused]] const auto written = write(g_wake_descriptor, &one, sizeof one);
}

void OnTerminate(int) {
  const int saved_error = errno;
  g_is_stop_wanted = true;
  Wake();
  errno = saved_error;
}

// systemd gives this socket to the process that is to tell it of its start. Shells and desktop
// programs that it has started hand other variables of its services on, so those prove nothing; and
// this one only when it was meant for this very process.
bool IsStartedByManager() {
  if (Variable("NOTIFY_SOCKET").empty()) return false;
  const std::string meant_for = Variable("SYSTEMD_EXEC_PID");
  return meant_for.empty() || meant_for == std::to_string(getpid());
}

class ServiceDispatcher {
 public:
  // On the main thread, until the service has stopped. A system error code.
  DWORD Run(const SERVICE_TABLE_ENTRYW* table);

  SERVICE_STATUS_HANDLE AddHandler(LPCWSTR name, LPHANDLER_FUNCTION handler);
  DWORD Report(SERVICE_STATUS_HANDLE handle, const SERVICE_STATUS& status);
  bool is_running() const { return is_running_; }

 private:
  bool Start(LPSERVICE_MAIN_FUNCTIONW main);
  bool IsOver();
  LPHANDLER_FUNCTION TakeStop();

  std::atomic<bool> is_running_ = false;
  std::mutex mutex_;  // guards what follows; not held while the handler runs
  std::wstring name_;
  LPHANDLER_FUNCTION handler_ = nullptr;
  SERVICE_STATUS status_ = {};
  bool has_ended_ = false;  // its thread
};

// Never destroyed: the service's thread may still report while the process exits.
ServiceDispatcher& TheDispatcher() {
  static auto& dispatcher = *new ServiceDispatcher;
  return dispatcher;
}

// There is one status, that of the one service.
SERVICE_STATUS_HANDLE StatusHandle() {
  return reinterpret_cast<SERVICE_STATUS_HANDLE>(&TheDispatcher());
}

void TellManager(DWORD previous, DWORD state) {
  if (state == SERVICE_RUNNING) sd_notify(0, "READY=1\nSTATUS=Running");
  const bool was_told = previous == SERVICE_STOP_PENDING || previous == SERVICE_STOPPED;
  if ((state == SERVICE_STOP_PENDING || state == SERVICE_STOPPED) && !was_told) {
    sd_notify(0, "STOPPING=1\nSTATUS=Stopping");
  }
}

void AwaitWake() {
  std::uint64_t count = 0;
  while (read(g_wake_descriptor, &count, sizeof count) < 0 && errno == EINTR) {
  }
}

DWORD ServiceDispatcher::Run(const SERVICE_TABLE_ENTRYW* table) {
  if (!IsStartedByManager()) return ERROR_FAILED_SERVICE_CONTROLLER_CONNECT;
  if (is_running_) return ERROR_SERVICE_ALREADY_RUNNING;
  // One service, in a process of its own.
  if (!table || !table[0].lpServiceName || !table[0].lpServiceProc || table[1].lpServiceName) {
    return ERROR_INVALID_PARAMETER;
  }
  name_ = table[0].lpServiceName;
  if (!Start(table[0].lpServiceProc)) return ERROR_NOT_ENOUGH_MEMORY;
  while (!IsOver()) {
    AwaitWake();
    if (const LPHANDLER_FUNCTION handler = TakeStop()) handler(SERVICE_CONTROL_STOP);
  }
  return ERROR_SUCCESS;
}

// From here on a request to end goes to this thread and does not end the process, which it also
// must not when the service is ending already.
bool ServiceDispatcher::Start(LPSERVICE_MAIN_FUNCTIONW main) {
  g_wake_descriptor = eventfd(0, EFD_CLOEXEC);
  if (g_wake_descriptor < 0) return false;
  is_running_ = true;
  struct sigaction action = {};
  action.sa_handler = OnTerminate;
  action.sa_flags = SA_RESTART;
  sigaction(SIGTERM, &action, nullptr);
  // The service's thread does not take it: the waits of client calls must not be cut short.
  sigset_t terminate, previous;
  sigemptyset(&terminate);
  sigaddset(&terminate, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &terminate, &previous);
  const DWORD thread = StartThread([this, main] {
    LPWSTR arguments[] = {name_.data(), nullptr};
    main(1, arguments);
    {
      const std::lock_guard lock(mutex_);
      has_ended_ = true;
    }
    Wake();
    return DWORD{0};
  });
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  is_running_ = thread != 0;
  return is_running_;
}

// Also when its thread ends without having said so: nobody would be left who could.
bool ServiceDispatcher::IsOver() {
  const std::lock_guard lock(mutex_);
  return has_ended_ || (handler_ && status_.dwCurrentState == SERVICE_STOPPED);
}

// The handler to call with the stop control, once, and not before the service can take it.
LPHANDLER_FUNCTION ServiceDispatcher::TakeStop() {
  const std::lock_guard lock(mutex_);
  if (!g_is_stop_wanted || status_.dwCurrentState != SERVICE_RUNNING ||
      (status_.dwControlsAccepted & SERVICE_ACCEPT_STOP) == 0) {
    return nullptr;
  }
  g_is_stop_wanted = false;
  return handler_;
}

SERVICE_STATUS_HANDLE ServiceDispatcher::AddHandler(LPCWSTR name, LPHANDLER_FUNCTION handler) {
  const std::lock_guard lock(mutex_);
  if (!is_running_ || !name || name_ != name) {
    SetLastError(ERROR_SERVICE_NOT_IN_EXE);
    return nullptr;
  }
  if (!handler) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  handler_ = handler;
  status_.dwCurrentState = SERVICE_START_PENDING;
  return StatusHandle();
}

DWORD ServiceDispatcher::Report(SERVICE_STATUS_HANDLE handle, const SERVICE_STATUS& status) {
  {
    const std::lock_guard lock(mutex_);
    if (handle != StatusHandle() || !handler_) return ERROR_INVALID_HANDLE;
    TellManager(status_.dwCurrentState, status.dwCurrentState);
    status_ = status;
  }
  // A stop may have waited for this state; a stopped service ends the dispatcher.
  Wake();
  return ERROR_SUCCESS;
}

}  // namespace

bool RunsAsService() { return TheDispatcher().is_running(); }

}  // namespace linux_host

using linux_host::TheDispatcher;

BOOL StartServiceCtrlDispatcherW(const SERVICE_TABLE_ENTRYW* table) {
  const DWORD error = TheDispatcher().Run(table);
  if (error == ERROR_SUCCESS) return TRUE;
  SetLastError(error);
  return FALSE;
}

SERVICE_STATUS_HANDLE RegisterServiceCtrlHandlerW(LPCWSTR name, LPHANDLER_FUNCTION handler) {
  return TheDispatcher().AddHandler(name, handler);
}

BOOL SetServiceStatus(SERVICE_STATUS_HANDLE handle, LPSERVICE_STATUS status) {
  const DWORD error =
      status ? TheDispatcher().Report(handle, *status) : DWORD{ERROR_INVALID_PARAMETER};
  if (error == ERROR_SUCCESS) return TRUE;
  SetLastError(error);
  return FALSE;
}
