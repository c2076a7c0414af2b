#include "config/device_notification.h"

#include <windows.h>

#include "tests/unit/config/configure_fixture.h"
#include "tests/unit/eventually.h"

namespace {

LRESULT CALLBACK RefuseToBeCreated(HWND, UINT, WPARAM, LPARAM) { return 0; }

class DevicesChangedFileTest : public ConfigureTest {};

// The window class is taken by one whose windows cannot be created.
TEST_F(DevicesChangedFileTest, WithoutAWindowClientsStillRefreshTheTable) {
  WNDCLASSEXW window_class{};
  window_class.cbSize = sizeof window_class;
  window_class.lpfnWndProc = RefuseToBeCreated;
  window_class.lpszClassName = L"Wirefox_API_t";
  RegisterClassExW(&window_class);
  test_host::TakeNotices();

  const std::uint16_t product = NewEvkProduct();
  bus_.SetDevices({Device(product, "B"), Device(product, "A")});
  const std::string narrow_path = folder_.Path("wfx.log");
  const std::wstring path(narrow_path.begin(), narrow_path.end());
  StartDeviceDiscovery(nullptr, path.c_str());

  std::vector<std::wstring> notices;
  unit::Eventually([&] { return !(notices = test_host::TakeNotices()).empty(); });
  EXPECT_EQ((std::vector<std::wstring>{L"box|Error|Failed to register event handler. Unable to "
                                       L"detect Wirefox attach/detach events"}),
            notices);

  EXPECT_TRUE(RefreshDevices());
  EXPECT_EQ("A\r\nB\r\n", folder_.Read("wfx.log"));
  bus_.SetDevices({Device(product, "B")});
  EXPECT_TRUE(RefreshDevices());
  EXPECT_EQ("B\r\n", folder_.Read("wfx.log"));
  EXPECT_FALSE(RefreshDevices());

  // A name that the plain conversion cannot represent is still a line.
  ListProbeEntries()[0]->name = L"\x00E9\x4E2D";
  WriteDevicesChangedFile();
  EXPECT_EQ(NarrowText(L"\x00E9\x4E2D") + "\r\n", folder_.Read("wfx.log"));
}

}  // namespace
