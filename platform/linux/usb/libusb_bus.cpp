#include "platform/linux/usb/libusb_bus.h"

#include <libusb.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/linux/kernel/notices.h"
#include "platform/linux/usb/attachment.h"
#include "platform/linux/usb/event_turns.h"
#include "platform/linux/usb/open_device.h"
#include "platform/linux/usb/usb_errors.h"
#include "platform/probe_driver/bus_news.h"

namespace linux_host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kBetweenScans(1);
constexpr std::chrono::seconds kMaxSleep(60);
constexpr int kAccessTries = 10;
constexpr std::chrono::milliseconds kBetweenTries(200);

void Tell(int priority, const std::string& text) {
  WriteJournal(priority, "TzWirefoxService", text);
}

// A device that libusb lists, kept alive.
class DeviceRef {
 public:
  explicit DeviceRef(libusb_device* device) : device_(libusb_ref_device(device)) {}
  DeviceRef(DeviceRef&& other) noexcept : device_(std::exchange(other.device_, nullptr)) {}
  DeviceRef& operator=(DeviceRef&&) = delete;
  ~DeviceRef() {
    if (device_) libusb_unref_device(device_);
  }
  libusb_device* get() const { return device_; }

 private:
  libusb_device* device_;
};

// libusb's events come from udevd; without it none ever comes.
bool UdevRuns() { return access("/run/udev/control", F_OK) == 0; }

Attachment::Place PlaceOf(libusb_device* device) {
  libusb_device_descriptor descriptor{};
  libusb_get_device_descriptor(device, &descriptor);
  return {.bus = libusb_get_bus_number(device),
          .address = libusb_get_device_address(device),
          .ids = {descriptor.idVendor, descriptor.idProduct}};
}

bool SamePlace(const Attachment::Place& a, const Attachment::Place& b) {
  return a.bus == b.bus && a.address == b.address && a.ids == b.ids;
}

// Why there is no `context`; empty when there is one.
std::string Refusal(libusb_context*& context) {
  // Without its folder of nodes libusb starts all the same, and sees what it cannot open.
  if (access("/dev/bus/usb", F_OK) != 0) return "there is no USB here (no /dev/bus/usb).";
  const int error = libusb_init(&context);
  if (error == 0) return {};
  return std::string("USB cannot be used here: ") + libusb_error_name(error) + ", " +
         ErrorOfCall(error).reason + ".";
}

class LibusbBus : public probe_driver::UsbBus {
 public:
  LibusbBus(std::set<UsbIds> probes, std::chrono::seconds cancel_timeout)
      : probes_(std::move(probes)), cancel_timeout_(cancel_timeout) {
    Start();
    thread_ = std::thread([this] { Run(); });
  }

  ~LibusbBus() override {
    {
      const std::lock_guard lock(mutex_);
      ending_ = true;
      changed_.notify_all();
    }
    turns_.Interrupt();
    thread_.join();
    entries_.clear();
    events_.clear();
    if (context_) libusb_exit(context_);
  }

  std::vector<std::string> ListDevices() override;
  std::unique_ptr<probe_driver::UsbDevice> OpenDevice(const std::string& path) override;
  void SetListener(probe_driver::UsbBusListener* listener) override { news_.SetListener(listener); }

 private:
  struct Entry {
    std::shared_ptr<Attachment> attachment;
    bool listed = false;
    bool told = false;
    int tries = 0;
    Clock::time_point next_try;
  };
  struct Event {
    DeviceRef device;
    bool arrived;
  };

  static int LIBUSB_CALL OnHotPlug(libusb_context*, libusb_device* device,
                                   libusb_hotplug_event event, void* bus);

  // On the bus's thread, or before it runs.
  void Start();
  void Run();
  Clock::time_point Look();
  void TakeEvents();
  void Scan();
  void Add(libusb_device* device, const Attachment::Place& place);
  void Remove(std::vector<Entry>::iterator entry);
  void TryAccess(Entry& entry);

  const std::set<UsbIds> probes_;
  const std::chrono::seconds cancel_timeout_;

  // The bus's thread's own, after the start.
  std::string refused_;  // why USB cannot be used, as the journal says already
  bool scans_ = false;   // no events come
  Clock::time_point next_scan_;
  std::uint64_t count_ = 0;

  probe_driver::BusNews news_;

  EventTurns turns_;
  std::mutex mutex_;
  std::condition_variable changed_;
  libusb_context* context_ = nullptr;
  bool ending_ = false;
  std::vector<Entry> entries_;
  std::vector<Event> events_;

  std::thread thread_;
};

void LibusbBus::Start() {
  libusb_context* context = nullptr;
  const std::string refusal = Refusal(context);
  if (!refusal.empty()) {
    if (std::exchange(refused_, refusal) != refusal) Tell(LOG_WARNING, "No probes: " + refusal);
    return;
  }
  {
    const std::lock_guard lock(mutex_);
    context_ = context;
    turns_.Begin(context);
  }
  scans_ = !UdevRuns();
  if (!scans_) {
    const int failed = libusb_hotplug_register_callback(
        context,
        static_cast<libusb_hotplug_event>(LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED |
                                          LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT),
        LIBUSB_HOTPLUG_ENUMERATE, LIBUSB_HOTPLUG_MATCH_ANY, LIBUSB_HOTPLUG_MATCH_ANY,
        LIBUSB_HOTPLUG_MATCH_ANY, OnHotPlug, this, nullptr);
    scans_ = failed != 0;
  }
  if (scans_) {
    Tell(LOG_NOTICE,
         "Nobody tells of USB devices that come and go (no udevd): they are looked for each "
         "second.");
  }
  Look();
}

void LibusbBus::Run() {
  Clock::time_point wake = Clock::now();
  std::unique_lock lock(mutex_);
  while (!ending_) {
    if (!context_) {
      changed_.wait_for(lock, kBetweenScans, [&] { return ending_; });
      if (ending_) return;
      lock.unlock();
      Start();
    } else {
      lock.unlock();
      turns_.WorkForNobody(wake);
      lock.lock();
      // It comes back for every transfer that ends; there is seldom something to look at.
      const bool something_came = !events_.empty();
      lock.unlock();
      if (something_came || Clock::now() >= wake) wake = Look();
    }
    news_.Tell();
    lock.lock();
  }
}

// Takes note of what has come and gone; when to look again.
Clock::time_point LibusbBus::Look() {
  const Clock::time_point now = Clock::now();
  TakeEvents();
  if (scans_ && now >= next_scan_) {
    Scan();
    next_scan_ = now + kBetweenScans;
  }
  Clock::time_point next = scans_ ? next_scan_ : now + kMaxSleep;
  const std::lock_guard lock(mutex_);
  for (Entry& entry : entries_) {
    TryAccess(entry);
    if (!entry.listed && entry.tries < kAccessTries) next = std::min(next, entry.next_try);
  }
  return next;
}

// Called by whoever handles events. The device may not be opened here: libusb's lists are in use.
// The thread's own loop takes it on.
int LibusbBus::OnHotPlug(libusb_context*, libusb_device* device, libusb_hotplug_event event,
                         void* bus) {
  auto& self = *static_cast<LibusbBus*>(bus);
  {
    const std::lock_guard lock(self.mutex_);
    self.events_.push_back({DeviceRef(device), event == LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED});
  }
  self.turns_.Interrupt();
  return 0;
}

void LibusbBus::TakeEvents() {
  std::vector<Event> events;
  {
    const std::lock_guard lock(mutex_);
    events.swap(events_);
  }
  for (const Event& event : events) {
    if (event.arrived) {
      Add(event.device.get(), PlaceOf(event.device.get()));
      continue;
    }
    const std::lock_guard lock(mutex_);
    const auto entry = std::ranges::find(entries_, event.device.get(), [](const Entry& entry) {
      return entry.attachment->device();
    });
    if (entry != entries_.end()) Remove(entry);
  }
}

// libusb looks through the machine only when it starts, so it is started once more for the look.
void LibusbBus::Scan() {
  libusb_context* look = nullptr;
  if (libusb_init(&look) != 0) return;
  libusb_device** devices = nullptr;
  const ssize_t size = libusb_get_device_list(look, &devices);
  std::vector<Attachment::Place> present;
  for (ssize_t i = 0; i < size; ++i) present.push_back(PlaceOf(devices[i]));
  if (devices) libusb_free_device_list(devices, 1);
  libusb_exit(look);

  const auto is_present = [&](const Attachment::Place& place) {
    return std::ranges::any_of(present, [&](const auto& other) { return SamePlace(place, other); });
  };
  std::unique_lock lock(mutex_);
  for (std::size_t i = entries_.size(); i-- > 0;) {
    const auto entry = entries_.begin() + static_cast<std::ptrdiff_t>(i);
    if (!is_present(entry->attachment->place())) Remove(entry);
  }
  const auto is_known = [&](const Attachment::Place& place) {
    return std::ranges::any_of(
        entries_, [&](const Entry& entry) { return SamePlace(place, entry.attachment->place()); });
  };
  std::erase_if(present, is_known);
  lock.unlock();
  for (const Attachment::Place& place : present) Add(nullptr, place);
}

void LibusbBus::Add(libusb_device* device, const Attachment::Place& place) {
  if (!probes_.contains(place.ids)) return;
  Attachment::Place counted = place;
  counted.count = ++count_;
  const std::lock_guard lock(mutex_);
  // An arrival may be told twice while the events begin.
  const bool known = device && std::ranges::any_of(entries_, [&](const Entry& entry) {
                       return entry.attachment->device() == device;
                     });
  if (known) return;
  entries_.push_back({.attachment = std::make_shared<Attachment>(context_, device, counted),
                      .next_try = Clock::now()});
}

// The caller holds mutex_.
void LibusbBus::Remove(std::vector<Entry>::iterator entry) {
  entry->attachment->MarkGone();
  if (entry->told) news_.Add(false, entry->attachment->path());
  entries_.erase(entry);
}

// The caller holds mutex_.
void LibusbBus::TryAccess(Entry& entry) {
  const bool due = entry.tries < kAccessTries && Clock::now() >= entry.next_try;
  if (!entry.listed && due) {
    const int error = entry.attachment->AccessError();
    entry.listed = error == 0;
    entry.next_try = Clock::now() + kBetweenTries;
    if (error != 0 && ++entry.tries == kAccessTries) {
      Tell(LOG_WARNING, "Probe " + entry.attachment->node() +
                            " may not be opened: " + std::strerror(error) + ".");
    }
  }
  if (entry.listed && !std::exchange(entry.told, true)) {
    news_.Add(true, entry.attachment->path());
  }
}

std::vector<std::string> LibusbBus::ListDevices() {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> paths;
  for (Entry& entry : entries_) {
    // What stayed closed may have been opened to this account since.
    if (!entry.listed && entry.tries == kAccessTries) {
      entry.listed = entry.told = entry.attachment->AccessError() == 0;
    }
    if (entry.listed) paths.push_back(entry.attachment->path());
  }
  std::ranges::sort(paths);
  return paths;
}

std::unique_ptr<probe_driver::UsbDevice> LibusbBus::OpenDevice(const std::string& path) {
  std::shared_ptr<Attachment> attachment;
  {
    const std::lock_guard lock(mutex_);
    const auto entry = std::ranges::find_if(entries_, [&](const Entry& candidate) {
      return candidate.listed && candidate.attachment->path() == path;
    });
    if (entry == entries_.end()) return nullptr;
    attachment = entry->attachment;
  }
  return OpenUsbDevice(std::move(attachment), turns_, cancel_timeout_);
}

}  // namespace

std::unique_ptr<probe_driver::UsbBus> ConnectUsb(std::set<UsbIds> probes,
                                                 std::chrono::seconds cancel_timeout) {
  return std::make_unique<LibusbBus>(std::move(probes), cancel_timeout);
}

}  // namespace linux_host
