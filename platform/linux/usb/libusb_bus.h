// Real USB as the bus of the probe driver.
#pragma once

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
// Transfers are completed, and listeners called, on the one thread of the bus: neither may wait for
// a transfer. Devices are closed before the bus is destroyed, and not from within a completion.
std::unique_ptr<probe_driver::UsbBus> ConnectUsb(std::set<UsbIds> probes);

}  // namespace linux_host
