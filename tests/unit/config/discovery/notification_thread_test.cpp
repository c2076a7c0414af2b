// Device discovery as it runs in the service: the notification thread over a bench of probes. One
// program of its own, since the thread lives until the process ends.
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "config/device_discovery.h"
#include "config/device_table.h"
#include "platform/linux/test_host.h"
#include "sim/bench.h"
#include "support/settings_file.h"
#include "tests/unit/eventually.h"
#include "tests/unit/scratch_folder.h"
#include "usb/usb_device.h"

namespace {

// A bench whose probes come back under their old paths, and on which a window that wants to hear of
// them has to wait: long enough for one to go on who does not wait for that.
class SlowBench : public sim::Bench {
 public:
  SlowBench() : Bench(R"({"keeps_paths": true,)" + DefaultDescription().substr(1)) {}

  void SetListener(probe_driver::UsbBusListener* listener) override {
    for (int i = 0; i < 200 && !discovery_returned; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_FALSE(discovery_returned);
    Bench::SetListener(listener);
    watched = true;
  }

  std::atomic<bool> discovery_returned{false}, watched{false};
};

// Never destroyed, like the thread that works on it.
unit::ScratchFolder& folder = *new unit::ScratchFolder;
SlowBench& bench = *new SlowBench;

// Waits for one of these contents: in which order probes of a family stand depends on when a pass
// meets them.
bool FileBecomes(const std::vector<std::string>& contents) {
  return unit::Eventually([&] {
    const DeviceTableGuard guard;
    return std::ranges::find(contents, folder.Read("wfx.log")) != contents.end();
  });
}

// One story, since it is one process: start, refresh, arrivals and removals.
TEST(DeviceDiscovery, TableAndFileFollowWhatIsAttached) {
  ReadSettings(
      folder
          .Write("wfxusb.ini", "0F0F_1001_WFXDEVICE=UNCONFIGURED\n0F0F_1001_KX7=" +
                                   folder.Write("fw.hex", ":0400000001020304F2\n:00000001FF\n") +
                                   "\n0F0F_1002_WFXDEVICE=CONFIGURED\n0F0F_1002_FPGA=" +
                                   folder.Write("fpga.bin", std::string(1000, 'F')) +
                                   "\n0F0F_2002_EVKDEVICE=CONFIGURED\n")
          .c_str());
  test_host::UseBus(&bench);
  EXPECT_EQ(nullptr, GetDevicesChangedPath());
  folder.Write("wfx.log", "from the last time\r\n");
  const std::string narrow_path = folder.Path("wfx.log");
  const std::wstring path(narrow_path.begin(), narrow_path.end());
  StartDeviceDiscovery(nullptr, path.c_str());
  bench.discovery_returned = true;
  EXPECT_TRUE(bench.watched);
  EXPECT_STREQ(path.c_str(), GetDevicesChangedPath());
  EXPECT_EQ("", folder.Read("wfx.log"));

  // The configured ones at once; the fresh one comes back by itself, and its arrival is noticed.
  const std::vector<std::string> all = {"EVK0001\r\nWFX0001\r\nWFX0002\r\n",
                                        "EVK0001\r\nWFX0002\r\nWFX0001\r\n"};
  EXPECT_TRUE(RefreshDevices());
  EXPECT_TRUE(FileBecomes(all));
  EXPECT_FALSE(RefreshDevices());

  // One that is back before its removal is handled works again all the same.
  const auto works = [] {
    const DeviceTableGuard guard;
    ProbeEntry* const entry = FindProbeByName(L"EVK0001");
    return entry && entry->device->GetUSBDevice()->Answers();
  };
  {
    const DeviceTableGuard guard;
    ASSERT_TRUE(bench.Unplug("EVK0001"));
    ASSERT_TRUE(bench.Plug("EVK0001"));
    EXPECT_FALSE(works());
  }
  EXPECT_TRUE(unit::Eventually(works));

  // The file is left alone when nothing has changed.
  std::remove(narrow_path.c_str());
  EXPECT_EQ(1, NotificationWindowProc(nullptr, WM_DEVICECHANGE, 0x8000, 0));
  EXPECT_EQ(1, NotificationWindowProc(nullptr, WM_DEVICECHANGE, 0x8004, 0));
  EXPECT_EQ(0, NotificationWindowProc(nullptr, WM_CREATE, 0, 0));
  EXPECT_EQ(0, NotificationWindowProc(nullptr, WM_DESTROY, 0, 0));
  EXPECT_FALSE(folder.Holds("wfx.log"));

  // Nothing attached: an empty file, not a missing one.
  for (const char* name : {"EVK0001", "WFX0001", "WFX0002"}) bench.Unplug(name);
  EXPECT_TRUE(FileBecomes({""}));
  EXPECT_TRUE(unit::Eventually([&] { return folder.Holds("wfx.log"); }));
}

}  // namespace
