// A service that its manager has started: which calls are refused, and when the stop control comes.
// What the manager is told is tested with the whole program.
#include <gtest/gtest.h>
#include <windows.h>

#include <winsvc.h>

#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>

namespace {

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
  EXPECT_EQ(RegisterServiceCtrlHandlerW(g_name, Handle), nullptr);
  EXPECT_EQ(GetLastError(), DWORD{ERROR_SERVICE_NOT_IN_EXE});
  EXPECT_FALSE(StartServiceCtrlDispatcherW(table));
  EXPECT_EQ(GetLastError(), DWORD{ERROR_FAILED_SERVICE_CONTROLLER_CONNECT}) << "no manager";

  setenv("NOTIFY_SOCKET", "/nonexistent", 1);
  ASSERT_TRUE(StartServiceCtrlDispatcherW(table));
  unsetenv("NOTIFY_SOCKET");
  EXPECT_EQ(g_stops, 1);
  EXPECT_EQ(g_handler_thread, GetCurrentThreadId());
}

}  // namespace
