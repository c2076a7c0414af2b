// A probe opened on real USB: its transfers.
#pragma once

#include <chrono>
#include <memory>

#include "platform/linux/usb/attachment.h"
#include "platform/linux/usb/event_turns.h"
#include "platform/probe_driver/usb_bus.h"

namespace linux_host {

// Null when the attachment cannot be opened; the journal then says why. Transfers go straight
// between the wire and their submitters' buffers, but for control transfers, of which the payload
// is copied once: the system wants it behind the eight bytes of the setup packet. Transfers that
// have not ended `cancel_timeout` after the device was closed are given up. `turns` outlives it.
std::unique_ptr<probe_driver::UsbDevice> OpenUsbDevice(std::shared_ptr<Attachment> attachment,
                                                       EventTurns& turns,
                                                       std::chrono::seconds cancel_timeout);

}  // namespace linux_host
