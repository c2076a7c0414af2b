// A USB device with isochronous endpoints, which the kernel's own gadgets cannot play: attached to
// the kernel's USB/IP controller (vhci_hcd).
#pragma once

#include <string>
#include <thread>

namespace kernel_usb {

// 0F0F:2002. Endpoint 0x81 sends packets of 1, 2, 3, ... bytes, packet N filled with N; the second
// of each transfer fails. Endpoint 0x01 takes everything. Packets of 8 bytes. So does endpoint
// 0x02, which is a bulk endpoint, and an interrupt endpoint in a setting that nobody chooses.
class IsoDevice {
 public:
  IsoDevice();   // throws std::runtime_error when the kernel does not take it
  ~IsoDevice();  // unplugs it

  // The packets of the last OUT transfer, each in hexadecimal.
  std::string taken() const { return taken_; }

 private:
  void Serve();

  int socket_ = -1;
  std::string taken_;
  std::thread server_;
};

}  // namespace kernel_usb
