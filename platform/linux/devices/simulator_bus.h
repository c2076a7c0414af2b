// The USB bus of a simulated bench in another process, reached through its socket.
#pragma once

#include <memory>
#include <string>

#include "platform/probe_driver/usb_bus.h"

namespace linux_host {

// Never null. The simulator may be absent: there are then no devices, and it is looked for again
// each second. When it is present, its devices are listed when the call returns (within two
// seconds). A connection that is lost removes all devices, ends their transfers with kDisconnected
// and is made anew in the same way. `socket_path` is at most 107 bytes long; a longer one never
// connects.
//
// Transfers are completed on a thread of the bus, and listeners are called on another one, so a
// listener may open devices. A device object must not be destroyed, and a pipe must not be reset,
// from within a completion. A device may outlive the bus: its transfers then end with
// kDisconnected.
std::unique_ptr<probe_driver::UsbBus> ConnectSimulatorBus(const std::string& socket_path);

}  // namespace linux_host
