// The device calls where no probe is attached; what they do with probes is tested with simulated
// ones.
#include <gtest/gtest.h>
#include <windows.h>

#include <setupapi.h>

#include "tests/contract/kernel_handles.h"

namespace {

using contract::ErrorOf;

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
    EXPECT_EQ(259U, ErrorOf(SetupDiEnumDeviceInterfaces(set, nullptr, &guid, 0, &data)));
    EXPECT_TRUE(SetupDiDestroyDeviceInfoList(set));
  }
}

TEST(DeviceCalls, HandlesThatAreNotOpenAreRefused) {
  SP_DEVICE_INTERFACE_DATA data = {};
  data.cbSize = sizeof(data);
  EXPECT_EQ(6U, ErrorOf(SetupDiEnumDeviceInterfaces(INVALID_HANDLE_VALUE, nullptr, &kDriverClass, 0,
                                                    &data)));
  EXPECT_FALSE(SetupDiDestroyDeviceInfoList(INVALID_HANDLE_VALUE));
  OVERLAPPED overlapped = {};
  SetLastError(0);
  EXPECT_EQ(6U, ErrorOf(DeviceIoControl(INVALID_HANDLE_VALUE, 0x220000, nullptr, 0, nullptr, 0,
                                        nullptr, &overlapped)));
}

TEST(DeviceCalls, PathOfADeviceThatIsNotThereIsNotOpened) {
  EXPECT_EQ(2U, ErrorOf(CreateFileW(
                    L"\\\\?\\usb#vid_0f0f&pid_1001#nobody#{cb74512d-0292-428d-8df8-5b2ea1d34ae7}",
                    GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                    OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr)));
}

}  // namespace
