#include "platform/linux/devices/simulator_bus.h"

#include <algorithm>
#include <thread>
#include <utility>

#include "platform/linux/devices/simulator_link.h"

namespace linux_host {
namespace {

using probe_driver::UsbDevice;
using probe_driver::UsbStatus;
using probe_driver::UsbTransfer;

class SimulatorDevice : public UsbDevice {
 public:
  SimulatorDevice(std::shared_ptr<SimulatorLink> link, SimulatorLink::Opened opened)
      : link_(std::move(link)),
        opened_(std::move(opened)),
        in_flight_(std::make_shared<probe_driver::InFlight>()) {}

  ~SimulatorDevice() override { link_->Close(opened_.device, *in_flight_); }

  probe_driver::DriverFacts Facts() override { return opened_.facts; }
  void Submit(UsbTransfer& transfer) override {
    link_->Submit(opened_.device, in_flight_, transfer);
  }
  void Cancel(UsbTransfer& transfer) override { link_->Cancel(opened_.device, transfer); }
  void AbortPipe(std::uint8_t endpoint) override { link_->Abort(opened_.device, endpoint); }
  bool ResetPipe(std::uint8_t endpoint) override { return link_->Reset(opened_.device, endpoint); }

 private:
  const std::shared_ptr<SimulatorLink> link_;
  const SimulatorLink::Opened opened_;
  const std::shared_ptr<probe_driver::InFlight> in_flight_;
};

// The threads hold the link as well, so that a device may outlive the bus.
class SimulatorBus : public probe_driver::UsbBus {
 public:
  explicit SimulatorBus(const std::string& socket_path)
      : link_(std::make_shared<SimulatorLink>(socket_path)),
        reader_([link = link_] { link->Run(); }),
        teller_([link = link_] { link->Tell(); }) {
    link_->AwaitFirstList();
  }

  ~SimulatorBus() override {
    link_->End();
    reader_.join();
    teller_.join();
  }

  std::vector<std::string> ListDevices() override { return link_->Paths(); }

  std::unique_ptr<UsbDevice> OpenDevice(const std::string& path) override {
    std::optional<SimulatorLink::Opened> opened = link_->Open(path);
    if (!opened) return nullptr;
    return std::make_unique<SimulatorDevice>(link_, std::move(*opened));
  }

  void SetListener(probe_driver::UsbBusListener* listener) override {
    link_->SetListener(listener);
  }

 private:
  const std::shared_ptr<SimulatorLink> link_;
  std::thread reader_;
  std::thread teller_;
};

}  // namespace

std::unique_ptr<probe_driver::UsbBus> ConnectSimulatorBus(const std::string& socket_path) {
  return std::make_unique<SimulatorBus>(socket_path);
}

}  // namespace linux_host
