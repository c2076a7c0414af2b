// What the errors of libusb mean to the probe driver.
#pragma once

#include "platform/probe_driver/usb_bus.h"

namespace linux_host {

struct UsbError {
  int code;                        // a libusb_error, or a libusb_transfer_status
  probe_driver::UsbStatus status;  // how the transfer ended for the driver
  const char* reason;              // in words, for the journal
};

// Of a call to libusb that failed (a libusb_error), and of a transfer that ended (a
// libusb_transfer_status). Codes that libusb does not have count as its "other error".
const UsbError& ErrorOfCall(int code);
const UsbError& ErrorOfTransfer(int status);

}  // namespace linux_host
