#include "platform/linux/usb/usb_errors.h"

#include <libusb.h>

#include <algorithm>
#include <span>

namespace linux_host {
namespace {

using enum probe_driver::UsbStatus;

// The first row of each table stands for what is not in it. The driver turns the status into its
// error and its bus status word (see probe_driver.h).
constexpr UsbError kCallErrors[] = {
    {LIBUSB_ERROR_OTHER, kError, "the system refused it"},
    {LIBUSB_SUCCESS, kOk, "no error"},
    {LIBUSB_ERROR_IO, kError, "input or output error"},
    // The request does not fit the device: an endpoint that it does not have, more bytes than the
    // system takes in a control transfer (4096). On the wire nothing happened.
    {LIBUSB_ERROR_INVALID_PARAM, kError, "the system takes no such request"},
    {LIBUSB_ERROR_NOT_FOUND, kError, "it has no such endpoint or interface"},
    {LIBUSB_ERROR_NOT_SUPPORTED, kError, "the system does not support it"},
    {LIBUSB_ERROR_NO_MEM, kError, "the system has no memory for it"},
    {LIBUSB_ERROR_ACCESS, kError, "permission denied"},
    {LIBUSB_ERROR_BUSY, kError, "another program holds it"},
    {LIBUSB_ERROR_INTERRUPTED, kError, "interrupted"},
    // Of the calls that wait for a short exchange of their own (a pipe reset): the device was
    // silent. The driver's time-outs never end a transfer in this way.
    {LIBUSB_ERROR_TIMEOUT, kError, "it does not answer"},
    {LIBUSB_ERROR_PIPE, kStall, "it refuses the request"},
    {LIBUSB_ERROR_OVERFLOW, kOverrun, "it sent more than was asked for"},
    {LIBUSB_ERROR_NO_DEVICE, kDisconnected, "it has left"},
};

constexpr UsbError kTransferErrors[] = {
    // No answer, bad check sums, a broken protocol. A device that is being pulled out looks so for
    // a moment, until the system has noticed that it is gone.
    {LIBUSB_TRANSFER_ERROR, kError, "it failed on the wire"},
    {LIBUSB_TRANSFER_COMPLETED, kOk, "no error"},
    // Time-outs are the driver's, which cancels: no transfer is given one. If the system had one of
    // its own, to the client it would be the same thing.
    {LIBUSB_TRANSFER_TIMED_OUT, kAborted, "it took too long"},
    {LIBUSB_TRANSFER_CANCELLED, kAborted, "it was cancelled"},
    {LIBUSB_TRANSFER_STALL, kStall, "it refuses the request"},
    {LIBUSB_TRANSFER_NO_DEVICE, kDisconnected, "it has left"},
    {LIBUSB_TRANSFER_OVERFLOW, kOverrun, "it sent more than was asked for"},
};

const UsbError& Find(std::span<const UsbError> table, int code) {
  const auto found = std::ranges::find(table, code, &UsbError::code);
  return found == table.end() ? table.front() : *found;
}

}  // namespace

const UsbError& ErrorOfCall(int code) { return Find(kCallErrors, code); }
const UsbError& ErrorOfTransfer(int status) { return Find(kTransferErrors, status); }

}  // namespace linux_host
