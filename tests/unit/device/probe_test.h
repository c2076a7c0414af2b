// What tests of probe objects share: a scripted probe, and the log at full level.
#pragma once

#include <string>
#include <vector>

#include "device/device.h"
#include "tests/unit/scratch_folder.h"
#include "tests/unit/scripted_bus.h"
#include "usb/usb_endpoint.h"

using unit::Bytes;
using unit::HexBytes;
using unit::HexText;

inline constexpr std::uint32_t kTimedOut = 997;
inline constexpr std::uint32_t kI2c = 2;  // mode

class ProbeTest : public unit::ScriptedBusTest {
 protected:
  explicit ProbeTest(const unit::ScriptedDevice& probe = {}) : ScriptedBusTest({probe}) {}

  // The time-outs of the control endpoint and of 0x01, 0x81, 0x02, 0x84 and 0x86.
  static std::string Timeouts(CTzDevice& device) {
    std::string all;
    for (const std::uint8_t address : {0x00, 0x01, 0x81, 0x02, 0x84, 0x86}) {
      all += std::to_string(device.GetEndPoint(address)->TimeoutMs()) + " ";
    }
    return all;
  }

  unit::LogFile log_{31};
};
