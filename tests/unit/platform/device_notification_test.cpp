#include <gtest/gtest.h>
#include <windows.h>

#include <dbt.h>

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/test_host.h"
#include "tests/unit/platform/fake_probe.h"

namespace {

using unit::FakeProbe;
using Events = std::vector<std::string>;

constexpr GUID kDriverClass = {
    0xcb74512d, 0x0292, 0x428d, {0x8d, 0xf8, 0x5b, 0x2e, 0xa1, 0xd3, 0x4a, 0xe7}};

FakeProbe* g_probe;
Events g_seen;

// Notes each event with its device's name and whether the device is listed at that moment.
LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM w_param, LPARAM l_param) {
  if (message != WM_DEVICECHANGE) return DefWindowProcW(window, message, w_param, l_param);
  const auto* const record = reinterpret_cast<DEV_BROADCAST_DEVICEINTERFACE_W*>(l_param);
  const std::wstring wide = record->dbcc_name;
  EXPECT_EQ(
      offsetof(DEV_BROADCAST_DEVICEINTERFACE_W, dbcc_name) + (wide.size() + 1) * sizeof(wchar_t),
      record->dbcc_size);
  EXPECT_EQ(DWORD{DBT_DEVTYP_DEVICEINTERFACE}, record->dbcc_devicetype);
  EXPECT_TRUE(record->dbcc_classguid == kDriverClass);
  const std::string path(wide.begin(), wide.end());
  const bool present = path == g_probe->ListDevices().front();
  EXPECT_TRUE(w_param == DBT_DEVICEARRIVAL || w_param == DBT_DEVICEREMOVECOMPLETE);
  g_seen.push_back((w_param == DBT_DEVICEARRIVAL ? "+" : "-") + path.substr(path.rfind('#') + 1) +
                   (present ? " listed" : ""));
  return TRUE;
}

class DeviceNotification : public testing::Test {
 protected:
  void SetUp() override {
    g_probe = &probe_;
    g_seen.clear();
    test_host::UseBus(&probe_);
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

  static HDEVNOTIFY Register(HWND window, const GUID& guid = kDriverClass) {
    DEV_BROADCAST_DEVICEINTERFACE_W filter = {};
    filter.dbcc_size = sizeof(filter);
    filter.dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
    filter.dbcc_classguid = guid;
    return RegisterDeviceNotificationW(window, &filter, DEVICE_NOTIFY_WINDOW_HANDLE);
  }

  Events Look() {
    MSG message;
    EXPECT_FALSE(PeekMessageW(&message, window_, 0, 0, PM_NOREMOVE));
    return std::exchange(g_seen, {});
  }

  FakeProbe probe_;
  HWND window_ = nullptr;
};

TEST_F(DeviceNotification, ComeInOrderWhenTheQueueIsLookedAt) {
  ASSERT_NE(nullptr, Register(window_));
  probe_.Replace("b");
  EXPECT_TRUE(g_seen.empty());
  EXPECT_EQ((Events{"-wfx0001", "+b listed"}), Look());
}

TEST_F(DeviceNotification, OtherClassesAndWindowsThatAreGoneHearNothing) {
  ASSERT_NE(nullptr, Register(window_, {1, 2, 3, {}}));
  probe_.Replace("a");
  EXPECT_TRUE(Look().empty());
  ASSERT_NE(nullptr, Register(window_));
  probe_.Replace("b");
  DestroyWindow(std::exchange(window_, nullptr));  // with a notification on its way
  probe_.Replace("c");
  EXPECT_TRUE(Look().empty());
}

}  // namespace
