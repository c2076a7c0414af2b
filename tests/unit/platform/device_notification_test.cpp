#include <gtest/gtest.h>
#include <windows.h>

#include <dbt.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/test_host.h"
#include "tests/unit/platform/fake_bus.h"

namespace {

constexpr GUID kDriverClass = {
    0xcb74512d, 0x0292, 0x428d, {0x8d, 0xf8, 0x5b, 0x2e, 0xa1, 0xd3, 0x4a, 0xe7}};

unit::FakeBus* g_bus = nullptr;
std::vector<std::string> g_seen;

// Notes each event with its path and with whether the device is listed at that moment.
LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM w_param, LPARAM l_param) {
  if (message != WM_DEVICECHANGE) return DefWindowProcW(window, message, w_param, l_param);
  const auto* const record = reinterpret_cast<DEV_BROADCAST_DEVICEINTERFACE_W*>(l_param);
  const std::wstring path = record->dbcc_name;
  EXPECT_EQ(
      offsetof(DEV_BROADCAST_DEVICEINTERFACE_W, dbcc_name) + (path.size() + 1) * sizeof(wchar_t),
      record->dbcc_size);
  EXPECT_EQ(static_cast<DWORD>(DBT_DEVTYP_DEVICEINTERFACE), record->dbcc_devicetype);
  EXPECT_TRUE(record->dbcc_classguid == kDriverClass);
  const std::string narrow(path.begin(), path.end());
  const auto listed = g_bus->ListDevices();
  const bool present = std::find(listed.begin(), listed.end(), narrow) != listed.end();
  g_seen.push_back((w_param == DBT_DEVICEARRIVAL          ? "+"
                    : w_param == DBT_DEVICEREMOVECOMPLETE ? "-"
                                                          : "?") +
                   narrow + (present ? " listed" : ""));
  return TRUE;
}

class DeviceNotification : public testing::Test {
 protected:
  void SetUp() override {
    g_bus = &bus_;
    g_seen.clear();
    test_host::UseBus(&bus_);
    WNDCLASSEXW window_class = {};
    window_class.cbSize = sizeof(window_class);
    window_class.lpfnWndProc = Procedure;
    window_class.lpszClassName = L"DeviceNotificationTest";
    RegisterClassExW(&window_class);
    window_ = CreateWindowExW(0, L"DeviceNotificationTest", L"", WS_POPUP, 0, 0, 0, 0, HWND_MESSAGE,
                              nullptr, nullptr, nullptr);
  }
  void TearDown() override {
    if (window_) DestroyWindow(window_);
    test_host::UseBus(nullptr);
  }

  HDEVNOTIFY Register(const GUID& guid) {
    DEV_BROADCAST_DEVICEINTERFACE_W filter = {};
    filter.dbcc_size = sizeof(filter);
    filter.dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
    filter.dbcc_classguid = guid;
    return RegisterDeviceNotificationW(window_, &filter, DEVICE_NOTIFY_WINDOW_HANDLE);
  }

  std::vector<std::string> Look() {
    MSG message;
    EXPECT_FALSE(PeekMessageW(&message, window_, 0, 0, PM_NOREMOVE));
    return std::exchange(g_seen, {});
  }

  unit::FakeBus bus_;
  HWND window_ = nullptr;
};

TEST_F(DeviceNotification, ComeInOrderWhenTheQueueIsLookedAt) {
  ASSERT_NE(nullptr, Register(kDriverClass));
  bus_.Plug("a");
  EXPECT_TRUE(g_seen.empty());
  EXPECT_EQ(std::vector<std::string>{"+a listed"}, Look());
  bus_.Unplug("a");
  bus_.Plug("b");
  EXPECT_EQ((std::vector<std::string>{"-a", "+b listed"}), Look());
}

TEST_F(DeviceNotification, WakesALoopThatWaits) {
  ASSERT_NE(nullptr, Register(kDriverClass));
  const DWORD loop = GetCurrentThreadId();
  std::thread other([&] {
    bus_.Plug("a");
    PostThreadMessageW(loop, WM_APP, 0, 0);
  });
  MSG message;
  ASSERT_TRUE(GetMessageW(&message, nullptr, 0, 0));
  EXPECT_EQ(static_cast<UINT>(WM_APP), message.message);
  EXPECT_EQ(std::vector<std::string>{"+a listed"}, g_seen);
  other.join();
}

TEST_F(DeviceNotification, OtherClassesAndWindowsThatAreGoneHearNothing) {
  constexpr GUID kOther = {1, 2, 3, {}};
  ASSERT_NE(nullptr, Register(kOther));
  bus_.Plug("a");
  EXPECT_TRUE(Look().empty());
  ASSERT_NE(nullptr, Register(kDriverClass));
  bus_.Plug("b");
  DestroyWindow(std::exchange(window_, nullptr));  // with a notification on its way
  bus_.Plug("c");
  MSG message;
  EXPECT_FALSE(PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE));
  EXPECT_TRUE(g_seen.empty());
}

TEST_F(DeviceNotification, FollowTheBusThatATestPutsInItsPlace) {
  ASSERT_NE(nullptr, Register(kDriverClass));
  unit::FakeBus second;
  test_host::UseBus(&second);
  bus_.Plug("first");
  g_bus = &second;
  second.Plug("second");
  EXPECT_EQ(std::vector<std::string>{"+second listed"}, Look());
  test_host::UseBus(nullptr);
  second.Plug("late");
  EXPECT_TRUE(Look().empty());
}

TEST_F(DeviceNotification, RegistrationIsChecked) {
  DEV_BROADCAST_DEVICEINTERFACE_W filter = {};
  filter.dbcc_size = sizeof(filter);
  filter.dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
  EXPECT_EQ(nullptr, RegisterDeviceNotificationW(nullptr, &filter, DEVICE_NOTIFY_WINDOW_HANDLE));
  EXPECT_EQ(static_cast<DWORD>(ERROR_INVALID_WINDOW_HANDLE), GetLastError());
  filter.dbcc_devicetype = 2;
  EXPECT_EQ(nullptr, RegisterDeviceNotificationW(window_, &filter, DEVICE_NOTIFY_WINDOW_HANDLE));
  EXPECT_EQ(static_cast<DWORD>(ERROR_INVALID_PARAMETER), GetLastError());
}

}  // namespace
