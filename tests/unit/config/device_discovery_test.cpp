#include "config/device_discovery.h"

#include <dbt.h>
#include <windows.h>

#include <algorithm>
#include <cctype>
#include <thread>

#include "sim/bench.h"
#include "support/handle.h"
#include "tests/unit/config/configure_fixture.h"
#include "tests/unit/eventually.h"

namespace {

LRESULT CALLBACK RefuseToBeCreated(HWND, UINT, WPARAM, LPARAM) { return 0; }

class NotificationTest : public ConfigureTest {
 protected:
  // What the window hears of a device. Names come in the letter case that the system likes.
  static LRESULT Hear(WPARAM event, const std::string& path,
                      DWORD type = DBT_DEVTYP_DEVICEINTERFACE) {
    struct {
      DWORD size, type, reserved;
      GUID interface_class;
      wchar_t name[256];
    } record{sizeof record, type, 0, kProbeDriverInterface, {}};
    std::ranges::transform(path, record.name, [](char c) { return std::toupper(c); });
    static_assert(offsetof(DEV_BROADCAST_DEVICEINTERFACE_W, dbcc_name) == 28);
    return NotificationWindowProc(nullptr, WM_DEVICECHANGE, event,
                                  reinterpret_cast<LPARAM>(&record));
  }
};

// The window class is taken by one whose windows cannot be created.
TEST_F(NotificationTest, WithoutAWindowClientsStillRefreshTheTable) {
  WNDCLASSEXW window_class{};
  window_class.cbSize = sizeof window_class;
  window_class.lpfnWndProc = RefuseToBeCreated;
  window_class.lpszClassName = L"Wirefox_API_t";
  RegisterClassExW(&window_class);
  test_host::TakeNotices();

  bus_.SetDevices({b_, a_});
  const std::string narrow_path = folder_.Path("wfx.log");
  const std::wstring path(narrow_path.begin(), narrow_path.end());
  Configurators().clear();
  StartDeviceDiscovery(nullptr, path.c_str());
  std::vector<std::wstring> notices;
  unit::Eventually([&] { return !(notices = test_host::TakeNotices()).empty(); });
  EXPECT_EQ((std::vector<std::wstring>{L"box|Error|Failed to register event handler. Unable to "
                                       L"detect Wirefox attach/detach events"}),
            notices);
  EXPECT_TRUE(RefreshDevices());
  EXPECT_EQ("A\r\nB\r\n", folder_.Read("wfx.log"));
  // A name that the plain conversion cannot represent is still a line.
  ListProbeEntries()[0]->name = L"\x00E9\x4E2D";
  WriteDevicesChangedFile();
  EXPECT_EQ(NarrowText(L"\x00E9\x4E2D") + "\r\nB\r\n", folder_.Read("wfx.log"));
  for (CTzDeviceConfigure* configurator : Configurators()) delete configurator;
}

// Each pass logs that a device does not open. The last parameter of a timer is no record.
TEST_F(NotificationTest, EachEventRunsItsPassesWithTheLockHeld) {
  bus_.SetDevices({a_});
  bus_.RefuseOpens(1000);
  bus_.OnOpen([](int) {
    std::thread([] {
      const KernelHandle lock(OpenMutexW(SYNCHRONIZE, FALSE, L"WfxDeviceLock"));
      EXPECT_EQ(DWORD{WAIT_TIMEOUT}, WaitForSingleObject(lock.Get(), 0));
    }).join();
  });
  const std::string removal =
      "[CTzDeviceConfigure::UpdateState]Unable to open device A. Skipping\n";
  const std::string evk = "[CTzEvkConfigure::UpdateState]Unable to open device A. Skipping\n";
  const std::string wfx = "[CTzWfxConfigure::UpdateState]Unable to open device A. Skipping\n";
  const struct {
    UINT message;
    WPARAM event;
    std::string log;
  } cases[] = {
      {WM_DEVICECHANGE, 0x8000, evk + wfx}, {WM_DEVICECHANGE, 0x8004, removal + removal},
      {WM_DEVICECHANGE, 0x8001, ""},        {WM_DEVICECHANGE, 0x0007, ""},
      {WM_TIMER, 0x11112222, ""},           {WM_TIMER, 0x8004, removal + removal},
  };
  for (const auto& [message, event, log] : cases) {
    bus_.Play(log.empty() ? "" : "pause 300");
    EXPECT_EQ(1, NotificationWindowProc(nullptr, message, event, message == WM_TIMER));
    EXPECT_EQ(log, TakeLog()) << event;
  }
  bus_.Play("pause 600");
  EXPECT_FALSE(RefreshDevices());
  EXPECT_EQ(removal + evk + removal + wfx, TakeLog());
}

TEST_F(NotificationTest, UndisturbedPassesOpenEachDeviceOnce) {
  bus_.SetDevices({a_, b_});
  ASSERT_TRUE(RefreshDevices());
  bus_.SetDevices({a_, b_, c_});
  bus_.TakeDescriptorRequests();
  // Eleven requests each time a device is opened: once by the handler, once in each pass, and twice
  // to make an object.
  EXPECT_TRUE(HandleDeviceEvent(0x8000));
  EXPECT_EQ(99U, bus_.TakeDescriptorRequests().size());
  EXPECT_FALSE(RefreshDevices());
  EXPECT_EQ(143U, bus_.TakeDescriptorRequests().size());
}

// Boards of a bench on which they come back under their old paths.
class ReturningProbeTest : public NotificationTest {
 protected:
  ReturningProbeTest() {
    test_host::UseBus(&bench_);
    EXPECT_TRUE(RefreshDevices());
    EXPECT_EQ("A B ", Names());
    path_ = Entry().path;
    TakeLog();
  }
  ~ReturningProbeTest() override {
    test_host::UseBus(nullptr);
    RefreshDevices();
  }

  void PullAndPutBack() {
    EXPECT_TRUE(bench_.Unplug("A"));
    EXPECT_TRUE(bench_.Plug("A"));
    EXPECT_FALSE(Entry().device->GetUSBDevice()->Answers());
  }
  static ProbeEntry& Entry() { return *FindProbeByName(L"A"); }
  void ExpectANewEntry() {
    EXPECT_EQ("B A ", Names());
    EXPECT_TRUE(Entry().device->GetUSBDevice()->Answers());
    EXPECT_EQ(
        "[CTzDeviceConfigure::CleanupRemovedDevice]Device a#1 removed\n"
        "[CTzDeviceConfigure::AddConfiguredDevice]Device a#1 available for use\n",
        TakeLog());
  }

  sim::Bench bench_{R"({"keeps_paths": true, "probes": [{"name": "A", "kind": "evk", "pid": )" +
                    std::to_string(board_) + R"(}, {"name": "B", "kind": "evk", "pid": )" +
                    std::to_string(board_) + "}]}"};
  std::string path_;
};

TEST_F(ReturningProbeTest, GetsANewEntryOnceItsRemovalIsHeardOf) {
  PullAndPutBack();
  Hear(DBT_DEVICEREMOVECOMPLETE, path_, 2);
  Hear(DBT_DEVNODES_CHANGED, path_);
  EXPECT_FALSE(RefreshDevices()) << "not told that the device's interface has gone";
  Hear(DBT_DEVICEREMOVECOMPLETE, path_);
  EXPECT_EQ("B ", Names());
  Hear(DBT_DEVICEARRIVAL, path_);
  ExpectANewEntry();
  // Heard of when a pass has seen to it already.
  Hear(DBT_DEVICEREMOVECOMPLETE, path_);
  EXPECT_EQ("", TakeLog());
}

TEST_F(ReturningProbeTest, IsRefreshedWhileItsRemovalWaitsForTheLock) {
  std::thread notified;
  {
    const DeviceTableGuard guard;
    PullAndPutBack();
    notified = std::thread([&] { Hear(DBT_DEVICEREMOVECOMPLETE, path_); });
    EXPECT_TRUE(unit::Eventually([] { return RefreshDevices(); }));
    ExpectANewEntry();
  }
  notified.join();
  EXPECT_EQ("A B ", Names());
  EXPECT_EQ("", TakeLog()) << "the removal is handled once";
}

}  // namespace
