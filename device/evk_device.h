// CTzEvkDevice: an Evk board, the smaller kind of probe, which has no FPGA image and no I2C.
#pragma once

#include "device/device.h"

// Everything is as in CTzDevice: I2C is refused, bulk data is never translated, and time-outs are
// set on the named endpoint alone.
class CTzEvkDevice : public CTzDevice {
 public:
  CTzEvkDevice(std::uint8_t device_index, bool set_timeouts);
  ~CTzEvkDevice() override;
};
