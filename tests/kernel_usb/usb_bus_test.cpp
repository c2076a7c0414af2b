#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libusb.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <map>
#include <stdexcept>

#include "platform/linux/usb/libusb_bus.h"
#include "platform/probe_driver/bus_frames.h"
#include "platform/probe_driver/driver_requests.h"
#include "platform/probe_driver/probe_driver.h"
#include "tests/kernel_usb/gadget.h"
#include "tests/kernel_usb/iso_device.h"
#include "tests/support/process.h"
#include "tests/unit/awaited.h"

// What the bus calls of libusb's, where a test has something to say to it.
namespace {
std::atomic<int> g_starts = 0;
std::function<void()> g_before_cancel = [] {};
std::atomic<bool> g_cancels = true;
bool g_tells_twice = false;

template <typename Function>
Function* Real(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}
}  // namespace

extern "C" {
int libusb_init(libusb_context** context) {
  ++g_starts;
  return Real<decltype(libusb_init)>("libusb_init")(context);
}

int libusb_cancel_transfer(libusb_transfer* transfer) {
  std::exchange(g_before_cancel, [] {})();
  return g_cancels ? Real<decltype(libusb_cancel_transfer)>("libusb_cancel_transfer")(transfer) : 0;
}

int libusb_hotplug_register_callback(libusb_context* context, int events, int flags, int vendor,
                                     int product, int of_class, libusb_hotplug_callback_fn callback,
                                     void* user, libusb_hotplug_callback_handle* handle) {
  const auto real =
      Real<decltype(libusb_hotplug_register_callback)>("libusb_hotplug_register_callback");
  if (g_tells_twice) {
    real(context, events, flags, vendor, product, of_class, callback, user, nullptr);
  }
  return real(context, events, flags, vendor, product, of_class, callback, user, handle);
}
}

namespace kernel_usb {
namespace {

using linux_host::UsbIds;
using probe_driver::SetupPacket;
using probe_driver::UsbDevice;
using probe_driver::UsbStatus;
using probe_driver::UsbTransfer;
using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using unit::Bytes;

using Clock = std::chrono::steady_clock;

constexpr UsbIds kIds{0x0F0F, 0x2002};

// A transfer that is on its way.
class Job : public unit::Awaited {
 public:
  Job(
      UsbDevice& device, std::uint8_t endpoint, Bytes data, SetupPacket setup = {},
      std::function<void()> on_end = [] {})
      : Awaited(endpoint, std::move(data)), device_(device) {
    transfer().setup = setup;
    transfer().complete = [on_end, end = transfer().complete](UsbTransfer& ended) {
      on_end();
      end(ended);
    };
    device.Submit(transfer());
  }
  ~Job() { EXPECT_TRUE(ended()) << "still in flight"; }

  void Cancel() { device_.Cancel(transfer()); }
  // "STATUS BYTES", the bytes for what came in or as their number.
  std::string Outcome() {
    constexpr const char* kNames[] = {"ok", "stall", "aborted", "gone", "overrun", "error"};
    std::string text = kNames[static_cast<int>(Wait())];
    const bool in = probe_driver::IsInTransfer(transfer().endpoint, transfer().setup);
    if (!in || actual() > 64) return text + " " + std::to_string(actual());
    const Bytes came(data().begin(), data().begin() + actual());
    return text + (came.empty() ? "" : " ") + unit::HexText(came);
  }
  bool kept() { return transfer().kept; }

 private:
  UsbDevice& device_;
};

class NoTimers : public probe_driver::DriverTimers {
 public:
  std::uint64_t Start(std::uint32_t, std::function<void()>) override { return 1; }
  void Stop(std::uint64_t) override {}
};

class News : public probe_driver::UsbBusListener {
 public:
  void OnDeviceArrived(const std::string& path) override {
    Add(std::string("arrived ").append(path));
  }
  void OnDeviceRemoved(const std::string& path) override { Add(std::string("left ").append(path)); }
  std::vector<std::string> heard() {
    const std::lock_guard lock(mutex_);
    return heard_;
  }

 private:
  void Add(const std::string& line) {
    const std::lock_guard lock(mutex_);
    heard_.push_back(line);
  }
  std::mutex mutex_;
  std::vector<std::string> heard_;
};

std::string Journal() {
  std::string text;
  FILE* const pipe = popen("journalctl --sync; journalctl -b -o cat -t TzWirefoxService", "r");
  for (char line[512]; std::fgets(line, sizeof line, pipe);) text += line;
  pclose(pipe);
  return text;
}

class UsbBus : public testing::Test {
 protected:
  void Attach(const std::vector<std::string>& functions, const std::string& product_id = "2002",
              const std::vector<std::string>& of_second = {}) {
    gadget_ = std::make_unique<Gadget>(product_id, functions, of_second);
    const std::string chosen = of_second.empty() ? "1" : "2";
    ASSERT_TRUE(support::WaitUntil([&] { return gadget_->Configuration() == chosen; }));
    bus_ = linux_host::ConnectUsb({kIds}, std::chrono::seconds(1));
    bus_->SetListener(&news_);
    const auto paths = bus_->ListDevices();
    if (!paths.empty()) path_ = paths.front();
  }
  void Open() {
    device_ = bus_->OpenDevice(path_);
    if (!device_) throw std::runtime_error("not opened: '" + path_ + "'");
    FindEndpoints();
  }
  void TearDown() override {
    device_.reset();
    bus_.reset();
  }

  std::string Control(std::uint8_t type, std::uint8_t request, std::uint16_t value,
                      std::uint16_t index, Bytes data) {
    const auto length = static_cast<std::uint16_t>(data.size());
    return Job(*device_, 0, std::move(data), {type, request, value, index, length}).Outcome();
  }
  std::string Move(std::uint8_t endpoint, Bytes data) {
    return Job(*device_, endpoint, std::move(data)).Outcome();
  }

  // Of the interface "CONFIGURATION.NUMBER".
  std::string DriverOf(const std::string& interface) {
    const std::filesystem::path folder = gadget_->SystemFolder();
    const std::string name = folder.parent_path().filename().string() + ":" + interface;
    std::error_code none;
    return std::filesystem::read_symlink(folder / name / "driver", none).filename().string();
  }

  // The endpoints of the first settings, by interface: OUT, then IN.
  void FindEndpoints() {
    Job job(*device_, 0, Bytes(512), {0x80, 6, 0x0200, 0, 512});
    job.Outcome();
    const Bytes& bytes = job.data();
    int interface = 0, setting = 0;
    for (std::size_t at = 0; at + 4 < bytes.size() && bytes[at] != 0; at += bytes[at]) {
      if (bytes[at + 1] == 4) interface = bytes[at + 2], setting = bytes[at + 3];
      if (bytes[at + 1] != 5 || setting != 0) continue;
      (bytes[at + 2] & 0x80 ? in_ : out_)[interface] = bytes[at + 2];
    }
  }

  std::unique_ptr<Gadget> gadget_;
  News news_;
  std::unique_ptr<probe_driver::UsbBus> bus_;
  std::string path_;
  std::unique_ptr<UsbDevice> device_;
  std::map<int, std::uint8_t> in_, out_;
};

TEST_F(UsbBus, DescriptorsComeFromTheSystemAndStringsFromTheDevice) {
  Attach({"SourceSink"});
  Open();
  const std::string copy = ReadFile(gadget_->SystemFolder() + "descriptors");
  const Bytes known(copy.begin(), copy.end());
  EXPECT_EQ(std::string("ok ").append(unit::HexText(Bytes(known.begin(), known.begin() + 18))),
            Control(0x80, 6, 0x0100, 0, Bytes(18)));
  Job configuration(*device_, 0, Bytes(512), {0x80, 6, 0x0200, 0, 512});
  configuration.Outcome();
  EXPECT_TRUE(std::equal(known.begin() + 18, known.end(), configuration.data().begin()));
  EXPECT_EQ("ok 09 02", Control(0x80, 6, 0x0200, 0, Bytes(2)));
  EXPECT_EQ("stall", Control(0x80, 6, 0x0201, 0, Bytes(9)));
  EXPECT_EQ("ok 10 03 4B 00 45 00 52 00 4E 00 45 00 4C 00 31 00",
            Control(0x80, 6, 0x0303, 0x0409, Bytes(255)));
  const auto facts = device_->Facts();
  EXPECT_EQ(ReadFile(gadget_->SystemFolder() + "devnum"), std::to_string(facts.usb_address) + "\n");
  EXPECT_EQ(2U, facts.speed);
}

TEST_F(UsbBus, ControlTransfersMoveDataBothWaysOrAreRefused) {
  Attach({"SourceSink"});
  Open();
  Bytes data(1024);
  for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<std::uint8_t>(i * 7);
  EXPECT_EQ("ok 1024", Control(0x40, 0x5B, 0, 0, data));
  Job back(*device_, 0, Bytes(1024), {0xC0, 0x5C, 0, 0, 1024});
  EXPECT_EQ("ok 1024", back.Outcome());
  EXPECT_EQ(data, back.data());
  EXPECT_EQ("ok 00 07 0E", Control(0xC0, 0x5C, 0, 0, Bytes(3)));
  EXPECT_EQ("stall", Control(0xC0, 0x7F, 0, 0, Bytes(3)));
  EXPECT_EQ("stall 0", Control(0x40, 0x7F, 0, 0, {}));
  EXPECT_EQ("error 0", Control(0x40, 0x5B, 0, 0, Bytes(4097)));  // more than the system takes
}

TEST_F(UsbBus, BulkTransfersOfAnySizeAndTheEmptyOne) {
  Attach({"Loopback"});
  Open();
  for (const std::size_t size : {1, 511, 512, 513, 4096}) {
    Bytes data(size);
    for (std::size_t i = 0; i < size; ++i) data[i] = static_cast<std::uint8_t>(i * 3 + size);
    Job back(*device_, in_[0], Bytes(4096));
    EXPECT_EQ("ok " + std::to_string(size), Move(out_[0], data)) << size;
    // Without a packet that ends it, one that is no longer than a whole number of packets goes on.
    if (size == 512) {
      EXPECT_EQ("ok 0", Move(out_[0], {}));
    }
    back.Outcome();
    Bytes got = back.data();
    got.resize(size);
    EXPECT_EQ(data, got) << size;
  }
}

TEST_F(UsbBus, LargeBulkTransfersGoInOnePiece) {
  Attach({"SourceSink"});
  Open();
  EXPECT_EQ("ok 1048576", Move(out_[0], Bytes(1 << 20)));
  EXPECT_EQ("ok 1048576", Move(in_[0], Bytes(1 << 20, 0xEE)));
}

TEST_F(UsbBus, MoreThanWasAskedForIsAnOverrun) {
  Attach({"SourceSink"});
  Open();
  EXPECT_EQ("overrun", Move(in_[0], Bytes(10)).substr(0, 7));
}

TEST_F(UsbBus, AHaltedPipeStallsUntilItIsReset) {
  Attach({"SourceSink"});
  Open();
  EXPECT_EQ("ok 0", Control(0x02, 3, 0, in_[0], {}));
  EXPECT_EQ("stall", Move(in_[0], Bytes(512)));
  EXPECT_EQ("stall", Move(in_[0], Bytes(512)));
  EXPECT_TRUE(device_->ResetPipe(in_[0]));
  EXPECT_EQ("ok 512", Move(in_[0], Bytes(512)));
  EXPECT_TRUE(device_->ResetPipe(0));
  EXPECT_FALSE(device_->ResetPipe(0x8F));
  EXPECT_EQ("error 0", Move(0x0F, Bytes(1)));
}

TEST_F(UsbBus, CancelEndsOneTransferAndAbortAPipesAll) {
  Attach({"Loopback"});
  Open();
  Job first(*device_, in_[0], Bytes(512)), second(*device_, in_[0], Bytes(512)),
      third(*device_, in_[0], Bytes(512));
  second.Cancel();
  EXPECT_EQ("aborted", second.Outcome());
  EXPECT_FALSE(first.ended() || third.ended());
  EXPECT_EQ("ok 2", Move(out_[0], {1, 2}));
  EXPECT_EQ("ok 01 02", first.Outcome());
  const auto other = bus_->OpenDevice(path_);
  Job of_other(*other, in_[0], Bytes(512));
  device_->AbortPipe(in_[0]);
  EXPECT_EQ("aborted", third.Outcome());
  EXPECT_FALSE(of_other.ended());
  EXPECT_EQ("ok 1", Move(out_[0], {3}));
  EXPECT_EQ("ok 03", of_other.Outcome());
  Job last(*device_, in_[0], Bytes(512));
  device_.reset();
  EXPECT_EQ("aborted", last.Outcome());
}

// The one that it is for may end meanwhile, and its request to the system serve another transfer.
TEST_F(UsbBus, ACancelHoldsUpNothingAndEndsNoOther) {
  Attach({"Loopback"});
  Open();
  Job first(*device_, in_[0], Bytes(512));
  std::unique_ptr<Job> next;
  g_before_cancel = [&] {
    EXPECT_EQ("ok 1", Move(out_[0], {1}));
    EXPECT_EQ("ok 01", first.Outcome());
    next = std::make_unique<Job>(*device_, in_[0], Bytes(512));
  };
  first.Cancel();
  ASSERT_NE(nullptr, next);
  EXPECT_EQ("ok 1", Move(out_[0], {2}));
  EXPECT_EQ("ok 02", next->Outcome());
}

TEST_F(UsbBus, WhatTheSystemDoesNotGiveBackKeepsItsBuffer) {
  Attach({"Loopback"});
  Open();
  const auto other = bus_->OpenDevice(path_);
  g_cancels = false;
  Job kept(*other, in_[0], Bytes(512)), of_setup(*device_, in_[0], Bytes(512));
  device_.reset();
  g_cancels = true;
  EXPECT_TRUE(of_setup.ended() && of_setup.kept());
  EXPECT_FALSE(kept.ended());
  for (const std::uint8_t byte : {1, 2}) {
    EXPECT_EQ("ok 1", Job(*other, out_[0], {byte}).Outcome());
  }
  EXPECT_EQ("ok 01", kept.Outcome());
  EXPECT_FALSE(kept.kept());
  EXPECT_TRUE(support::WaitUntil([&] { return of_setup.data()[0] == 2; })) << "written to late";
}

TEST_F(UsbBus, TheFirstConfigurationIsUsedThoughADriverOfTheSystemHoldsAnother) {
  Attach({"Loopback"}, "2002", {"hid"});
  ASSERT_TRUE(support::WaitUntil([&] { return DriverOf("2.0") == "usbhid"; }));
  Open();
  EXPECT_EQ("1", gadget_->Configuration());
  EXPECT_EQ("ok 1", Move(out_[0], {1}));
}

TEST_F(UsbBus, AnArrivalThatIsToldTwiceIsOneDevice) {
  g_tells_twice = true;
  Attach({"Loopback"});
  g_tells_twice = false;
  EXPECT_THAT(bus_->ListDevices(), ElementsAre(path_));
  gadget_->Unplug();
  EXPECT_TRUE(support::WaitUntil([&] { return bus_->ListDevices().empty(); }));
}

// A thread that waits does the bus's work, and the bus's own thread when nobody waits.
TEST_F(UsbBus, WhoeverWaitsCompletesTransfersAndArrivalsAreToldMeanwhile) {
  Attach({"Loopback"});
  Open();
  std::atomic<std::thread::id> completed_by;
  Job one(*device_, in_[0], Bytes(512), {}, [&] { completed_by = std::this_thread::get_id(); });
  std::thread waiter([&] {
    device_->Work()->WorkUntil([&] { return one.ended(); }, Clock::time_point::max());
    EXPECT_EQ(std::this_thread::get_id(), completed_by.load());
  });
  // It leads for longer than the bus's own thread stays away.
  const auto second = std::make_unique<IsoDevice>();
  EXPECT_TRUE(support::WaitUntil([&] { return news_.heard().size() == 1; }));
  Job sent(*device_, out_[0], {7});
  device_->Work()->WorkUntil([&] { return sent.ended(); }, Clock::time_point::max());
  waiter.join();
  EXPECT_EQ("ok 07", one.Outcome());
  const auto until = Clock::now() + std::chrono::milliseconds(50);
  device_->Work()->WorkUntil([] { return false; }, until);
  EXPECT_GE(Clock::now(), until);
  Job alone(*device_, in_[0], Bytes(512));
  EXPECT_EQ("ok 1", Move(out_[0], {8})) << "nobody waits in WorkUntil";
  EXPECT_EQ("ok 08", alone.Outcome());
}

TEST_F(UsbBus, WithoutUdevdTheMachineIsLookedThroughEachSecondAndNotForEachTransfer) {
  const char* const kControl = "/run/udev/control";
  const std::string hidden = std::string(kControl) + ".hidden";
  std::filesystem::rename(kControl, hidden);
  Attach({"Loopback"});
  std::filesystem::rename(hidden, kControl);
  Open();
  const int before = g_starts;
  const auto begin = Clock::now();
  for (int i = 0; i < 100; ++i) ASSERT_EQ("stall 0", Control(0x40, 0x7F, 0, 0, {}));
  const auto seconds = std::chrono::ceil<std::chrono::seconds>(Clock::now() - begin).count();
  EXPECT_LE(g_starts - before, seconds + 1);
  device_.reset();
  gadget_->Unplug();
  EXPECT_TRUE(support::WaitUntil([&] { return bus_->ListDevices().empty(); }));
  gadget_->Plug();
  EXPECT_TRUE(support::WaitUntil([&] { return news_.heard().size() == 2; }));
  EXPECT_THAT(bus_->ListDevices(), ElementsAre(testing::Ne(path_)));
}

TEST_F(UsbBus, InterruptsOnAnInterfaceTakenFromTheSystemsDriver) {
  Attach({"hid"});
  ASSERT_TRUE(support::WaitUntil([&] { return DriverOf("1.0") == "usbhid"; }));
  Open();
  EXPECT_EQ("usbfs", DriverOf("1.0"));
  const int device_end = open("/dev/hidg0", O_RDWR | O_CLOEXEC);
  ASSERT_GE(device_end, 0);
  Job report(*device_, in_[0], Bytes(8));
  ASSERT_EQ(8, write(device_end, "ABCDEFGH", 8));
  EXPECT_EQ("ok 41 42 43 44 45 46 47 48", report.Outcome());
  EXPECT_EQ("ok 8", Move(out_[0], {1, 2, 3, 4, 5, 6, 7, 8}));
  Bytes taken(16);
  EXPECT_EQ(8, read(device_end, taken.data(), taken.size()));
  EXPECT_EQ("01 02 03 04 05 06 07 08", unit::HexText(Bytes(taken.begin(), taken.begin() + 8)));
  close(device_end);
  device_.reset();
  EXPECT_EQ("usbhid", DriverOf("1.0"));
}

TEST_F(UsbBus, ADeviceThatLeavesEndsItsTransfersAndReturnsUnderANewPath) {
  Attach({"Loopback"});
  Open();
  Job pending(*device_, in_[0], Bytes(512));
  gadget_->Unplug();
  // For a moment it is only silent.
  EXPECT_THAT(pending.Outcome(), AnyOf("gone", "error"));
  ASSERT_TRUE(support::WaitUntil([&] { return bus_->ListDevices().empty(); }));
  EXPECT_EQ("gone", Control(0x80, 6, 0x0100, 0, Bytes(18)));
  EXPECT_EQ("gone 0", Move(out_[0], {1}));
  EXPECT_FALSE(device_->ResetPipe(in_[0]));
  EXPECT_EQ(nullptr, bus_->OpenDevice(path_));
  gadget_->Plug();
  ASSERT_TRUE(support::WaitUntil([&] { return !bus_->ListDevices().empty(); }));
  const auto back = bus_->ListDevices();
  ASSERT_EQ(1U, back.size());
  EXPECT_NE(path_, back[0]);
  EXPECT_TRUE(support::WaitUntil([&] { return news_.heard().size() >= 2; }));
  EXPECT_THAT(news_.heard(), ElementsAre("left " + path_, "arrived " + back[0]));
  device_ = bus_->OpenDevice(back[0]);
  ASSERT_NE(nullptr, device_);
  EXPECT_EQ("ok 1", Move(out_[0], {1}));
}

TEST_F(UsbBus, WhatAnotherProgramHoldsIsAnErrorThatNamesIt) {
  Attach({"Loopback"});
  const std::string node = gadget_->Node();
  int ready[2];
  ASSERT_EQ(0, pipe(ready));
  const pid_t holder = fork();
  if (holder == 0) {
    const int fd = open(node.c_str(), O_RDWR);
    unsigned interface = 0;
    const char held = ioctl(fd, USBDEVFS_CLAIMINTERFACE, &interface) == 0 ? 1 : 0;
    if (write(ready[1], &held, 1) == 1) pause();
    _exit(0);
  }
  char held = 0;
  ASSERT_EQ(1, read(ready[0], &held, 1));
  ASSERT_EQ(1, held);
  EXPECT_EQ(nullptr, bus_->OpenDevice(path_));
  EXPECT_EQ(nullptr, bus_->OpenDevice(path_));
  kill(holder, SIGKILL);
  waitpid(holder, nullptr, 0);
  const std::string line = "Probe " + node +
                           " (0F0F:2002) cannot be opened: another program holds it: kernel_usb "
                           "(process " +
                           std::to_string(holder) + ").\n";
  const std::string journal = Journal();
  EXPECT_THAT(journal, HasSubstr(line));
  EXPECT_EQ(journal.find(line), journal.rfind(line)) << "said once";
  EXPECT_NE(nullptr, bus_->OpenDevice(path_));
}

// The calling thread, and the threads that it starts meanwhile, belong to an account without
// rights.
class AsNobody {
 public:
  AsNobody() { Become(65534); }
  ~AsNobody() { Become(0); }

 private:
  // The system's own call: the library's changes every thread.
  static void Become(uid_t user) { EXPECT_EQ(0, syscall(SYS_setresuid, -1, user, -1)); }
};

TEST_F(UsbBus, ANodeThatOpensLateIsTriedAgain) {
  gadget_ = std::make_unique<Gadget>("2002", std::vector<std::string>{"Loopback"});
  ASSERT_TRUE(support::WaitUntil([&] { return gadget_->Configuration() == "1"; }));
  ASSERT_EQ(0, system("udevadm settle"));
  const std::string node = gadget_->Node();
  ASSERT_EQ(0, chmod(node.c_str(), 0600));
  {
    const AsNobody rights;
    bus_ = linux_host::ConnectUsb({kIds});
    bus_->SetListener(&news_);
    EXPECT_THAT(bus_->ListDevices(), IsEmpty());
  }
  ASSERT_EQ(0, chmod(node.c_str(), 0666));
  const AsNobody rights;
  ASSERT_TRUE(support::WaitUntil([&] { return !news_.heard().empty(); }));
  ASSERT_THAT(bus_->ListDevices(), ElementsAre(node + "#1"));
  device_ = bus_->OpenDevice(node + "#1");
  EXPECT_NE(nullptr, device_);
}

TEST_F(UsbBus, ANodeThatStaysClosedIsToldOnceAndListedWhenItOpens) {
  gadget_ = std::make_unique<Gadget>("2002", std::vector<std::string>{"Loopback"});
  ASSERT_TRUE(support::WaitUntil([&] { return gadget_->Configuration() == "1"; }));
  ASSERT_EQ(0, system("udevadm settle"));
  const std::string node = gadget_->Node();
  const std::string line = "Probe " + node + " may not be opened: Permission denied.\n";
  ASSERT_EQ(0, chmod(node.c_str(), 0600));
  const std::size_t before = Journal().size();
  {
    const AsNobody rights;
    bus_ = linux_host::ConnectUsb({kIds});
  }
  EXPECT_TRUE(
      support::WaitUntil([&] { return Journal().find(line, before) != std::string::npos; }));
  {
    const AsNobody rights;
    EXPECT_THAT(bus_->ListDevices(), IsEmpty());
  }
  const std::string journal = Journal();
  EXPECT_EQ(journal.find(line, before), journal.rfind(line));
  ASSERT_EQ(0, chmod(node.c_str(), 0666));
  {
    const AsNobody rights;
    EXPECT_THAT(bus_->ListDevices(), ElementsAre(node + "#1"));
  }
}

TEST_F(UsbBus, AMachineThatGetsUsbLater) {
  ASSERT_EQ(
      0, system("modprobe -r dummy_hcd vhci-hcd && rmdir /dev/bus/usb/* /dev/bus/usb 2>/dev/null; "
                "test ! -e /dev/bus/usb"));
  const std::string before = Journal();
  bus_ = linux_host::ConnectUsb({kIds});
  bus_->SetListener(&news_);
  EXPECT_THAT(bus_->ListDevices(), IsEmpty());
  ASSERT_EQ(0, system("sleep 3; modprobe vhci-hcd; modprobe dummy_hcd"));  // three more attempts
  gadget_ = std::make_unique<Gadget>("2002", std::vector<std::string>{"Loopback"});
  EXPECT_TRUE(support::WaitUntil([&] { return !news_.heard().empty(); }));
  EXPECT_EQ("No probes: there is no USB here (no /dev/bus/usb).\n",
            Journal().substr(before.size()));
}

// What the driver's client gets: the packet table of its record, and the bytes where they belong.
TEST_F(UsbBus, IsochronousPacketsReportOneByOne) {
  IsoDevice device;
  bus_ = linux_host::ConnectUsb({kIds});
  ASSERT_TRUE(support::WaitUntil([&] { return !bus_->ListDevices().empty(); }));
  NoTimers timers;
  probe_driver::ProbeDriver driver(bus_->OpenDevice(bus_->ListDevices().front()), timers);
  const auto direct = [&](std::uint8_t endpoint, std::size_t packets, Bytes& buffer) {
    Bytes record(38 + 8 * packets);
    record[13] = endpoint;
    record[22] = 38;
    record[26] = static_cast<std::uint8_t>(8 * packets);
    probe_driver::DriverRequest request;
    request.code = probe_driver::kDirectTransfer;
    request.input = record.data();
    request.input_size = static_cast<std::uint32_t>(record.size());
    request.output = buffer.data();
    request.output_size = static_cast<std::uint32_t>(buffer.size());
    std::atomic<bool> done = false;
    request.complete = [&](auto&) { done = true; };
    EXPECT_EQ(probe_driver::kSuccess, driver.Submit(request));
    EXPECT_TRUE(support::WaitUntil([&] { return done.load(); }));
    return std::to_string(request.error) + " " + std::to_string(request.bytes) + ": " +
           unit::HexText(Bytes(record.begin() + 38, record.end()));
  };
  Bytes in(28, 0xEE), short_one(3);
  EXPECT_EQ("0 28: 01 00*11 11 00 00 C0 03 00 00 00 00 00 00 00 04 00 00 00 00 00 00 00",
            direct(0x81, 4, in));
  EXPECT_EQ("00", unit::HexText(Bytes(in.begin(), in.begin() + 1)));
  EXPECT_EQ("02 02 02", unit::HexText(Bytes(in.begin() + 16, in.begin() + 19)));
  EXPECT_EQ("03 03 03 03", unit::HexText(Bytes(in.begin() + 24, in.end())));
  Bytes out = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
  EXPECT_EQ("0 10: 08 00 00 00 00 00 00 00 02 00 00 00 00 00 00 00", direct(0x01, 2, out));
  EXPECT_EQ("01 02 03 04 05 06 07 08|09 0A|", device.taken());
  EXPECT_EQ("31 0: 00*16", direct(0x01, 2, in)) << "more bytes than two packets hold";
  EXPECT_EQ("0 3: ", direct(0x02, 0, short_one)) << "an interrupt endpoint in another setting";
}

TEST_F(UsbBus, DevicesOfOtherIdsAreNotTouched) {
  Attach({"Loopback"}, "2003");
  EXPECT_THAT(bus_->ListDevices(), IsEmpty());
}

}  // namespace
}  // namespace kernel_usb
