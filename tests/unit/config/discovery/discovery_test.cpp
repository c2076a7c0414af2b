// Device discovery as it runs in the service: the notification thread over a bench of probes. One
// program of its own, since the thread lives until the process ends.
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <semaphore>
#include <string>
#include <vector>

#include "config/device_notification.h"
#include "config/device_table.h"
#include "platform/test_host.h"
#include "sim/bench.h"
#include "support/settings_file.h"
#include "tests/unit/eventually.h"
#include "tests/unit/scratch_folder.h"

namespace {

// Tells when the notification thread's window hears of arrivals: the host tells it of no earlier
// ones.
class WatchedBench : public sim::Bench {
 public:
  WatchedBench() : Bench(DefaultDescription()) {}

  void SetListener(probe_driver::UsbBusListener* listener) override {
    Bench::SetListener(listener);
    watched.release();
  }

  std::counting_semaphore<> watched{0};
};

// Never destroyed, like the thread that works on it.
struct Service {
  unit::ScratchFolder& folder = *new unit::ScratchFolder;
  WatchedBench& bench = *new WatchedBench;

  Service() {
    folder.Write("fw.hex", ":0400000001020304F2\n:00000001FF\n");
    folder.Write("fpga.bin", std::string(1000, 'F'));
    ReadSettings(
        folder
            .Write("wfxusb.ini",
                   "0F0F_1001_WFXDEVICE=UNCONFIGURED\n0F0F_1001_KX7=" + folder.Path("fw.hex") +
                       "\n0F0F_1002_WFXDEVICE=CONFIGURED\n0F0F_1002_FPGA=" +
                       folder.Path("fpga.bin") + "\n0F0F_2002_EVKDEVICE=CONFIGURED\n")
            .c_str());
    test_host::UseBus(&bench);
  }

  std::string File() const { return folder.Read("wfx.log"); }
};

Service& TheService() {
  static Service& service = *new Service;
  return service;
}

// Waits for one of these contents: in which order probes of a family stand depends on when a pass
// meets them.
bool FileBecomes(const std::vector<std::string>& contents) {
  std::string found;
  const bool became = unit::Eventually([&] {
    const DeviceTableGuard guard;
    found = TheService().File();
    return std::ranges::find(contents, found) != contents.end();
  });
  if (!became) std::printf("file: %s\n", found.c_str());
  return became;
}

// One story, since it is one process: start, refresh, arrivals and removals.
TEST(DeviceDiscovery, TableAndFileFollowWhatIsAttached) {
  Service& service = TheService();
  EXPECT_EQ(nullptr, GetDevicesChangedPath());
  service.folder.Write("wfx.log", "from the last time\r\n");
  const std::string narrow_path = service.folder.Path("wfx.log");
  const std::wstring path(narrow_path.begin(), narrow_path.end());
  StartDeviceDiscovery(nullptr, path.c_str());
  EXPECT_STREQ(path.c_str(), GetDevicesChangedPath());
  EXPECT_EQ("", service.File());

  // The configured ones at once; the fresh one comes back by itself, and its arrival is noticed.
  const std::vector<std::string> all = {"EVK0001\r\nWFX0001\r\nWFX0002\r\n",
                                        "EVK0001\r\nWFX0002\r\nWFX0001\r\n"};
  service.bench.watched.acquire();
  EXPECT_TRUE(RefreshDevices());
  EXPECT_TRUE(FileBecomes(all));
  EXPECT_FALSE(RefreshDevices());

  ASSERT_TRUE(service.bench.Unplug("EVK0001"));
  EXPECT_TRUE(FileBecomes({"WFX0001\r\nWFX0002\r\n", "WFX0002\r\nWFX0001\r\n"}));
  ASSERT_TRUE(service.bench.Plug("EVK0001"));
  EXPECT_TRUE(FileBecomes(all));

  // Neither the timer nor other device events run a pass, so the file is not rewritten.
  std::remove(narrow_path.c_str());
  {
    const DeviceTableGuard guard;
    for (const WPARAM event : {WPARAM{0x11112222}, WPARAM{0x0007}, WPARAM{0x8001}}) {
      EXPECT_FALSE(HandleDeviceEvent(event));
    }
    EXPECT_FALSE(HandleDeviceEvent(0x8000));
    EXPECT_FALSE(HandleDeviceEvent(0x8004));
  }
  EXPECT_EQ(1, NotificationWindowProc(nullptr, WM_TIMER, 0x11112222, 0));
  EXPECT_EQ(1, NotificationWindowProc(nullptr, WM_DEVICECHANGE, 0x8000, 0));
  EXPECT_EQ(0, NotificationWindowProc(nullptr, WM_CREATE, 0, 0));
  EXPECT_EQ(0, NotificationWindowProc(nullptr, WM_DESTROY, 0, 0));
  EXPECT_FALSE(service.folder.Holds("wfx.log"));

  // Nothing attached: an empty file, not a missing one.
  for (const char* name : {"EVK0001", "WFX0001", "WFX0002"}) service.bench.Unplug(name);
  EXPECT_TRUE(FileBecomes({""}));
  EXPECT_TRUE(unit::Eventually([&] { return service.folder.Holds("wfx.log"); }));
}

}  // namespace
