// The USB bus that the probe driver works on: what is attached, and the transfers to it. A bus is
// the simulated bench, in this process or in another one, or real USB.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "base/waiting_work.h"

namespace probe_driver {

// How a transfer ended. Payload bytes may have moved in every case (UsbTransfer::actual).
enum class UsbStatus : std::uint32_t {
  kOk = 0,
  kStall = 1,         // the endpoint is halted, or refused the control request
  kAborted = 2,       // AbortPipe, Cancel, or the device was closed
  kDisconnected = 3,  // the device has left the bus
  kOverrun = 4,       // the device sent more than the buffer holds
  kError = 5,         // any other failure on the wire
};

// The eight bytes of a USB 2.0 setup packet (section 9.3).
struct SetupPacket {
  std::uint8_t request_type = 0;  // bmRequestType; bit 7 set: device to host
  std::uint8_t request = 0;       // bRequest
  std::uint16_t value = 0;        // wValue
  std::uint16_t index = 0;        // wIndex
  std::uint16_t length = 0;       // wLength
};

// One packet of an isochronous transfer, which may be short or fail by itself.
struct UsbPacket {
  std::uint32_t actual = 0;
  UsbStatus status = UsbStatus::kOk;
};

// One transfer, owned by its submitter, which keeps it and its buffer alive until `complete` ran;
// the buffer of one that is `kept` for good.
struct UsbTransfer {
  std::uint8_t endpoint = 0;  // bEndpointAddress; 0 is the control endpoint
  SetupPacket setup;          // control endpoint only
  std::uint8_t* data = nullptr;
  std::uint32_t length = 0;  // bytes to send, or room for the bytes to receive
  // Isochronous endpoints only: one for each packet. Packets have the endpoint's size, but for the
  // last, and lie at their places in `data`, also behind a short one; `actual` then counts up to
  // the end of the last that moved. Filled in before `complete` is called.
  std::span<UsbPacket> packets;

  // Filled in before `complete` is called.
  UsbStatus status = UsbStatus::kOk;
  std::uint32_t actual = 0;         // payload bytes moved
  std::uint32_t bus_status = 0;     // status words that a driver reports beside the payload;
  std::uint32_t driver_status = 0;  // 0 unless the bus has something to say
  bool kept = false;                // the host has not given it back, and may write into `data` yet

  // Called exactly once for each Submit, on any thread, also from within Submit, never with a lock
  // of the bus held. It must not wait for other transfers.
  std::function<void(UsbTransfer&)> complete;
};

// What a driver tells of itself and of the attachment, apart from the descriptors.
struct DriverFacts {
  std::uint32_t driver_version = 0x01050500;
  std::uint32_t interface_version = 0x00000600;
  std::string text;         // first driver text field, at most 255 bytes
  std::string second_text;  // second driver text field, at most 255 bytes
  std::uint8_t usb_address = 0;
  std::uint8_t alternate_setting = 0;
  std::uint32_t speed = 2;  // 2: high speed
};

// An attachment opened for transfers. Several may be open at once on one attachment; transfers are
// submitted and aborted from any thread.
class UsbDevice {
 public:
  // Aborts what this device object has in flight and returns when every completion has run, within
  // a bound: a device or a bench that does not let go of a transfer does not keep its user.
  virtual ~UsbDevice() = default;

  virtual DriverFacts Facts() = 0;

  // What a thread can do while it waits for the end of a transfer of this device; null: nothing.
  // Lives as long as the bus.
  virtual WaitingWork* Work() { return nullptr; }

  // Starts a transfer. Transfers of one endpoint run in the order of their submission. After the
  // device has left, the transfer completes with kDisconnected.
  virtual void Submit(UsbTransfer& transfer) = 0;

  // Ends one transfer, or all that this object has pending on an endpoint, with kAborted; those
  // that have completed already are left alone. The completions may run inside the call, or later
  // on another thread.
  virtual void Cancel(UsbTransfer& transfer) = 0;
  virtual void AbortPipe(std::uint8_t endpoint) = 0;

  // The client expects transfers of up to this many bytes on an endpoint. For buses that have to
  // prepare for them; the others take transfers of any size.
  virtual void SetTransferSize(std::uint8_t /*endpoint*/, std::uint32_t /*bytes*/) {}

  // Whether the bus moves packets of isochronous endpoints; none of the others' devices has one.
  virtual bool HasIsochronous() const { return false; }

  // Clears a halted endpoint. False when the device has left or has no such endpoint.
  virtual bool ResetPipe(std::uint8_t endpoint) = 0;
};

// Is told of arrivals and removals, one after another, on any thread, with no lock of the bus held.
// A device is listed before its arrival is told, and is gone from the list before its removal is.
class UsbBusListener {
 public:
  virtual ~UsbBusListener() = default;
  virtual void OnDeviceArrived(const std::string& path) = 0;
  virtual void OnDeviceRemoved(const std::string& path) = 0;
};

class UsbBus {
 public:
  virtual ~UsbBus() = default;

  // The paths of the present devices, sorted: printable ASCII of at most 255 characters. A path
  // names one of the attachments at a time; a bus may give a device that comes back its old one.
  virtual std::vector<std::string> ListDevices() = 0;

  // Null when no such device is present.
  virtual std::unique_ptr<UsbDevice> OpenDevice(const std::string& path) = 0;

  // One listener at a time; null removes it. When the call returns, the previous listener is not
  // being called any more.
  virtual void SetListener(UsbBusListener* listener) = 0;
};

}  // namespace probe_driver
