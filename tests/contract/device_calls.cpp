// The device calls where no probe is attached; what they do with probes is tested with simulated
// ones.
#include <gtest/gtest.h>
#include <windows.h>

#include <dbt.h>
#include <setupapi.h>

namespace {

constexpr GUID kDriverClass = {
    0xcb74512d, 0x0292, 0x428d, {0x8d, 0xf8, 0x5b, 0x2e, 0xa1, 0xd3, 0x4a, 0xe7}};
constexpr GUID kOtherClass = {
    0x5d0b7a36, 0x2c41, 0x4e7b, {0x9a, 0x55, 0x6e, 0x1d, 0x3f, 0x7c, 0x90, 0xa2}};

TEST(DeviceCalls, ClassWithoutDevicesEnumeratesToTheEndAtOnce) {
  for (const GUID& guid : {kDriverClass, kOtherClass}) {
    const HDEVINFO set =
        SetupDiGetClassDevsW(&guid, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
    ASSERT_NE(INVALID_HANDLE_VALUE, set);
    SP_DEVICE_INTERFACE_DATA data = {};
    data.cbSize = sizeof(data);
    EXPECT_FALSE(SetupDiEnumDeviceInterfaces(set, nullptr, &guid, 0, &data));
    EXPECT_EQ(259U, GetLastError());
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(set));
  }
}

TEST(DeviceCalls, SetThatIsNoneIsRefused) {
  SP_DEVICE_INTERFACE_DATA data = {};
  data.cbSize = sizeof(data);
  EXPECT_FALSE(SetupDiEnumDeviceInterfaces(INVALID_HANDLE_VALUE, nullptr, &kDriverClass, 0, &data));
  EXPECT_EQ(6U, GetLastError());
  EXPECT_FALSE(SetupDiDestroyDeviceInfoList(INVALID_HANDLE_VALUE));
}

TEST(DeviceCalls, PathOfADeviceThatIsNotThereIsNotOpened) {
  const HANDLE device =
      CreateFileW(L"\\\\?\\usb#vid_0f0f&pid_1001#nobody#{cb74512d-0292-428d-8df8-5b2ea1d34ae7}",
                  GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                  OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
  EXPECT_EQ(INVALID_HANDLE_VALUE, device);
  EXPECT_EQ(2U, GetLastError());
}

TEST(DeviceCalls, RequestOnAHandleThatIsNotOpenFails) {
  OVERLAPPED overlapped = {};
  DWORD returned = 0;
  EXPECT_FALSE(DeviceIoControl(INVALID_HANDLE_VALUE, 0x220000, nullptr, 0, nullptr, 0, &returned,
                               &overlapped));
  EXPECT_EQ(6U, GetLastError());
}

TEST(DeviceCalls, MessageWindowCanAskForNotifications) {
  WNDCLASSEXW window_class = {};
  window_class.cbSize = sizeof(window_class);
  window_class.lpfnWndProc = DefWindowProcW;
  window_class.lpszClassName = L"WirefoxContractNotified";
  RegisterClassExW(&window_class);
  const HWND window = CreateWindowExW(0, window_class.lpszClassName, L"", WS_POPUP, 0, 0, 0, 0,
                                      HWND_MESSAGE, nullptr, nullptr, nullptr);
  DEV_BROADCAST_DEVICEINTERFACE_W filter = {};
  EXPECT_EQ(32U, sizeof(filter));
  filter.dbcc_size = sizeof(filter);
  filter.dbcc_devicetype = DBT_DEVTYP_DEVICEINTERFACE;
  filter.dbcc_classguid = kDriverClass;
  EXPECT_NE(nullptr, RegisterDeviceNotificationW(window, &filter, DEVICE_NOTIFY_WINDOW_HANDLE));
  DestroyWindow(window);
}

}  // namespace
