// Real USB as the bus of the probe driver.
#pragma once

#include <chrono>
#include <memory>
#include <set>

#include "platform/linux/usb/probe_ids.h"
#include "platform/probe_driver/usb_bus.h"

namespace linux_host {

// Never null. Devices of other ids are neither listed nor opened. The attached ones are listed when
// the call returns. Where this process may not use USB at all there are no devices, the journal
// says so once, and it is tried again each second.
//
// A device whose node may not be opened yet is not listed: it is looked at again ten times in two
// seconds, after that at each ListDevices; the journal says once when it stays closed.
//
// Transfers are completed on the bus's own thread, and on those that do its work while they wait
// (UsbDevice::Work); listeners are called on the bus's own thread. Neither may wait for a transfer.
// Devices are closed before the bus is destroyed, and not from within a completion.
//
// The system ends a cancelled transfer as soon as the controller gives it back, whatever the device
// does. One that has not ended `cancel_timeout` after its device was closed is given up; the device
// stays open then, and the transfer's buffer in use.
std::unique_ptr<probe_driver::UsbBus> ConnectUsb(
    std::set<UsbIds> probes, std::chrono::seconds cancel_timeout = std::chrono::seconds(10));

}  // namespace linux_host
