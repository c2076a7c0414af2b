// A service under a manager of the test's own: what it is told, and when the stop control comes.
#include <gtest/gtest.h>
#include <windows.h>

#include <winsvc.h>

#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/unit/platform/scratch_home.h"

namespace {

// Takes what services tell.
class NotifySocket {
 public:
  explicit NotifySocket(const std::filesystem::path& path)
      : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    path.string().copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    setenv("NOTIFY_SOCKET", path.c_str(), 1);
  }
  ~NotifySocket() {
    unsetenv("NOTIFY_SOCKET");
    close(socket_);
  }

  std::vector<std::string> TakeAll() {
    std::vector<std::string> told;
    char text[256];
    for (ssize_t length; (length = recv(socket_, text, sizeof text, MSG_DONTWAIT)) >= 0;) {
      told.emplace_back(text, static_cast<std::size_t>(length));
    }
    return told;
  }

 private:
  const int socket_;
};

wchar_t g_name[] = L"ServiceOfATest";
SERVICE_STATUS_HANDLE g_handle = nullptr;
std::atomic<int> g_stops{0};
std::atomic<DWORD> g_handler_thread{0};

void Report(DWORD state) {
  SERVICE_STATUS status = {};
  status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
  status.dwCurrentState = state;
  status.dwControlsAccepted = SERVICE_ACCEPT_STOP;
  EXPECT_TRUE(SetServiceStatus(g_handle, &status));
}

VOID WINAPI Handle(DWORD control) {
  EXPECT_EQ(control, DWORD{SERVICE_CONTROL_STOP});
  Report(SERVICE_STOP_PENDING);
  g_handler_thread = GetCurrentThreadId();
  ++g_stops;
  g_stops.notify_all();
}

VOID WINAPI Serve(DWORD count, LPWSTR* arguments) {
  EXPECT_EQ(count, 1u);
  EXPECT_STREQ(arguments[0], g_name);
  EXPECT_EQ(RegisterServiceCtrlHandlerW(L"Another", Handle), nullptr);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_SERVICE_NOT_IN_EXE});
  EXPECT_FALSE(SetServiceStatus(g_handle, nullptr));
  g_handle = RegisterServiceCtrlHandlerW(g_name, Handle);
  ASSERT_NE(g_handle, nullptr);
  Report(SERVICE_START_PENDING);
  kill(getpid(), SIGTERM);
  EXPECT_EQ(g_stops, 0);
  Report(SERVICE_RUNNING);
  g_stops.wait(0);
  kill(getpid(), SIGTERM);
  Report(SERVICE_STOPPED);
}

TEST(ServiceDispatcher, AStopThatComesBeforeTheServiceRunsIsDeliveredOnceItDoes) {
  const SERVICE_TABLE_ENTRYW table[] = {{g_name, Serve}, {}};
  const ScratchHome home;
  EXPECT_EQ(RegisterServiceCtrlHandlerW(g_name, Handle), nullptr);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_SERVICE_NOT_IN_EXE});
  SERVICE_STATUS status = {};
  EXPECT_FALSE(SetServiceStatus(nullptr, &status));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_INVALID_HANDLE});
  EXPECT_FALSE(StartServiceCtrlDispatcherW(table));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_FAILED_SERVICE_CONTROLLER_CONNECT}) << "no manager";
  NotifySocket manager(home.directory() / "notify");
  setenv("SYSTEMD_EXEC_PID", "1", 1);
  EXPECT_FALSE(StartServiceCtrlDispatcherW(table));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_FAILED_SERVICE_CONTROLLER_CONNECT}) << "another's";
  unsetenv("SYSTEMD_EXEC_PID");

  ASSERT_TRUE(StartServiceCtrlDispatcherW(table));
  EXPECT_EQ(g_stops, 1);
  EXPECT_EQ(g_handler_thread, GetCurrentThreadId());
  EXPECT_EQ(manager.TakeAll(),
            (std::vector<std::string>{"READY=1\nSTATUS=Running", "STOPPING=1\nSTATUS=Stopping"}));
}

}  // namespace
