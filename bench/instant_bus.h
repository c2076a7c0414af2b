// A USB bus with one configured Wirefox probe that answers every transfer at once, inside Submit:
// what is measured over it is the way to the bus and back, and nothing of a probe's own time.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/probe_driver/usb_bus.h"

namespace bench {

// Bytes sent to the probe are copied into a scratch buffer, and bytes received are copied out of
// it, as any bus has to. The probe's name is "INSTANT"; its status reports the mode that was set
// last.
class InstantBus : public probe_driver::UsbBus {
 public:
  std::vector<std::string> ListDevices() override;
  std::unique_ptr<probe_driver::UsbDevice> OpenDevice(const std::string& path) override;
  void SetListener(probe_driver::UsbBusListener* listener) override;
};

}  // namespace bench
