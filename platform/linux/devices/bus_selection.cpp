#include "platform/linux/devices/bus_selection.h"

#include <dbt.h>
#include <syslog.h>

#include <bit>
#include <fstream>
#include <mutex>
#include <string>

#include "platform/linux/devices/simulator_bus.h"
#include "platform/linux/kernel/home.h"
#include "platform/linux/kernel/notices.h"
#include "platform/linux/usb/libusb_bus.h"
#include "platform/linux/usb/probe_ids.h"
#include "platform/probe_driver/probe_driver.h"

namespace linux_host {
namespace {

class WindowTeller : public probe_driver::UsbBusListener {
 public:
  void OnDeviceArrived(const std::string& path) override { TellWindows(DBT_DEVICEARRIVAL, path); }
  void OnDeviceRemoved(const std::string& path) override {
    TellWindows(DBT_DEVICEREMOVECOMPLETE, path);
  }
};

std::unique_ptr<probe_driver::UsbBus> BusOfEnvironment() {
  constexpr std::string_view kSimulator = "sim:";
  const std::string choice = Variable("WIREFOX_BUS");
  if (choice.starts_with(kSimulator)) {
    return ConnectSimulatorBus(choice.substr(kSimulator.size()));
  }
  if (choice.empty()) {
    std::ifstream settings(SettingsPath(), std::ios::binary);
    return ConnectUsb(ReadProbeIds(settings));
  }
  WriteJournal(LOG_WARNING, "TzWirefoxService",
               "No probes: WIREFOX_BUS names no bus that is known (sim:SOCKET).");
  return nullptr;
}

class BusSelection {
 public:
  std::vector<std::string> ListDevices() {
    probe_driver::UsbBus* bus = Bus();
    return bus ? bus->ListDevices() : std::vector<std::string>();
  }

  std::unique_ptr<probe_driver::UsbDevice> OpenDevice(const std::string& path) {
    probe_driver::UsbBus* bus = Bus();
    return bus ? bus->OpenDevice(path) : nullptr;
  }

  void Watch() {
    const std::lock_guard lock(mutex_);
    Choose();
    if (bus_ && !watched_) bus_->SetListener(&teller_);
    watched_ = true;
  }

  void Use(probe_driver::UsbBus* bus) {
    const std::lock_guard lock(mutex_);
    chosen_ = true;
    if (bus_ && watched_) bus_->SetListener(nullptr);
    bus_ = bus;
    if (bus_ && watched_) bus_->SetListener(&teller_);
  }

 private:
  void Choose() {
    if (std::exchange(chosen_, true)) return;
    own_bus_ = BusOfEnvironment();
    bus_ = own_bus_.get();
  }

  // The bus is called without the lock: one device that takes its time to open holds up no other.
  probe_driver::UsbBus* Bus() {
    const std::lock_guard lock(mutex_);
    Choose();
    return bus_;
  }

  std::mutex mutex_;  // never taken by what a bus calls
  bool chosen_ = false;
  bool watched_ = false;
  probe_driver::UsbBus* bus_ = nullptr;
  std::unique_ptr<probe_driver::UsbBus> own_bus_;
  WindowTeller teller_;
};

// Never destroyed: threads that outlive main still use it.
BusSelection& Selection() {
  static auto& selection = *new BusSelection;
  return selection;
}

}  // namespace

std::vector<std::string> ListBusDevices() { return Selection().ListDevices(); }

std::unique_ptr<probe_driver::UsbDevice> OpenBusDevice(const std::string& path) {
  return Selection().OpenDevice(path);
}

void WatchBus() { Selection().Watch(); }

void UseBus(probe_driver::UsbBus* bus) { Selection().Use(bus); }

const GUID& DriverClass() {
  static constexpr GUID kClass = std::bit_cast<GUID>(probe_driver::kDeviceInterfaceClass);
  return kClass;
}

bool IsDriverClass(const GUID& guid) { return guid == DriverClass(); }

}  // namespace linux_host
