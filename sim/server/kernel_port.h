// One attachment of a probe to the kernel's virtual host controller: serves its transfers until
// either side pulls the plug.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <vector>

#include "platform/probe_driver/frame_socket.h"
#include "platform/probe_driver/usb_bus.h"
#include "sim/server/usbip.h"

namespace sim {

class KernelPort {
 public:
  // `socket`: the end that the kernel does not hold.
  KernelPort(std::unique_ptr<probe_driver::UsbDevice> device, int socket);
  // Pulls the plug. Not from within the completion of a transfer.
  ~KernelPort();
  KernelPort(const KernelPort&) = delete;
  KernelPort& operator=(const KernelPort&) = delete;

 private:
  struct Transfer {
    probe_driver::UsbTransfer usb;
    std::uint32_t sequence = 0;
    bool in = false;
    bool short_is_error = false;
    std::uint32_t unlinked_by = 0;  // 0: the kernel has not taken it back
    std::unique_ptr<std::uint8_t[]> data;
  };

  void Serve();
  bool Handle(const usbip::Command& command);
  bool Submit(const usbip::Command& command);
  void Unlink(const usbip::Command& command);
  void OnCompleted(Transfer& transfer);
  // `out_mutex_` is held.
  void Send(const usbip::Record& record, const std::uint8_t* payload = nullptr,
            std::size_t size = 0);

  probe_driver::FrameSocket socket_;
  std::mutex out_mutex_;  // taken before the other

  std::mutex transfers_mutex_;
  std::unordered_map<std::uint32_t, std::unique_ptr<Transfer>> in_flight_;
  // Let go by the serving thread: it may be about to take one of them back.
  std::vector<std::unique_ptr<Transfer>> completed_;

  // Ends before what its completions use does.
  std::unique_ptr<probe_driver::UsbDevice> device_;
  std::thread thread_;
};

}  // namespace sim
