// A device on a scripted bus, opened, with the test clock.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <utility>

#include "platform/test_host.h"
#include "tests/unit/scripted_bus.h"
#include "usb/driver_interface.h"
#include "usb/usb_device.h"

class ScriptedBusTest : public testing::Test {
 protected:
  explicit ScriptedBusTest(std::vector<unit::ScriptedDevice> devices = {unit::ScriptedDevice()})
      : bus_(std::move(devices)), device_(kProbeDriverInterface, false) {
    test_host::UseBus(&bus_);
  }
  ~ScriptedBusTest() override {
    device_.Close();
    test_host::UseBus(nullptr);
  }

  // The endpoint with this address, of the device that is opened.
  CTzUSBEndPoint& EndPoint(std::uint8_t address) {
    for (std::uint8_t place = 0; place < device_.EndPointCount(); ++place) {
      CTzUSBEndPoint* const endpoint = device_.EndPoint(place);
      if (endpoint != nullptr && endpoint->Address() == address) return *endpoint;
    }
    ADD_FAILURE() << "no endpoint " << unsigned{address};
    return *device_.ControlEndPoint();
  }

  test_host::TestClock clock_;
  unit::ScriptedBus bus_;
  CTzUSBDevice device_;
};
