// A USB device object over a scripted bus.
#pragma once

#include <windows.h>

#include "tests/unit/scripted_bus.h"
#include "usb/device_interface_guid.h"
#include "usb/usb_device.h"

class OpenedDeviceTest : public unit::ScriptedBusTest {
 protected:
  ~OpenedDeviceTest() override { device_.Close(); }

  // Opens it as the only one that is present.
  bool Open(const unit::ScriptedDevice& present) {
    bus_.SetDevices({present});
    return device_.Open(0);
  }
  // One of whose descriptors is another.
  bool OpenWith(std::uint16_t value, const unit::Bytes& descriptor) {
    return Open({.descriptors = {{value, descriptor}}});
  }

  // The endpoint with this address.
  CTzUSBEndPoint& EndPoint(std::uint8_t address) {
    for (std::uint8_t place = 0; place < device_.EndPointCount(); ++place) {
      CTzUSBEndPoint* const endpoint = device_.EndPoint(place);
      if (endpoint && endpoint->Address() == address) return *endpoint;
    }
    ADD_FAILURE() << "no endpoint " << unsigned{address};
    return *device_.ControlEndPoint();
  }

  CTzUSBDevice device_{kProbeDriverInterface, false};
};
