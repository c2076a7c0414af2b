// The numbers that Linux gives the ends of transfers.
#pragma once

#include <cstdint>

#include "platform/probe_driver/usb_bus.h"

namespace sim {

// Numbers and not names: captures are written on every host.
constexpr std::int32_t LinuxStatus(probe_driver::UsbStatus status) {
  using probe_driver::UsbStatus;
  switch (status) {
    case UsbStatus::kOk:
      return 0;
    case UsbStatus::kStall:
      return -32;  // EPIPE
    case UsbStatus::kAborted:
      return -2;  // ENOENT: its submitter took it back and waited for that
    case UsbStatus::kDisconnected:
      return -108;  // ESHUTDOWN
    case UsbStatus::kOverrun:
      return -75;  // EOVERFLOW
    case UsbStatus::kError:
      break;
  }
  return -71;  // EPROTO
}

}  // namespace sim
