// One user of the bench's bus, connected through a socket (platform/probe_driver/bus_frames.h).
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "platform/probe_driver/bus_frames.h"
#include "platform/probe_driver/frame_socket.h"
#include "platform/probe_driver/usb_bus.h"

namespace sim {

class BusConnection {
 public:
  // `bus` outlives the connection. The greeting has been read from `socket`.
  BusConnection(probe_driver::UsbBus& bus, std::shared_ptr<probe_driver::FrameSocket> socket);
  ~BusConnection();
  BusConnection(const BusConnection&) = delete;
  BusConnection& operator=(const BusConnection&) = delete;

  // Tells the user that a device came or went. Any thread; never waits for the user.
  void Tell(bool arrived, const std::string& path);
  void TellListed();

  // Reads frames until the connection is lost or breaks the rules; then closes its devices.
  void Run();

 private:
  struct Transfer {
    probe_driver::UsbTransfer usb;
    std::uint64_t id = 0;
    std::uint32_t device = 0;
    std::unique_ptr<std::uint8_t[]> data;
  };

  bool Handle(const probe_driver::Frame& frame);
  bool Open(const probe_driver::Frame& frame);
  bool Submit(const probe_driver::Frame& frame);
  void Cancel(const probe_driver::Frame& frame);
  void OnCompleted(Transfer& transfer);
  probe_driver::UsbDevice* Find(std::uint32_t device);

  // Sends at once what the user takes, and leaves the rest to the writer thread. A user who lets
  // too much pile up loses the connection.
  void Send(probe_driver::Frame frame, const std::uint8_t* payload, std::size_t size);
  void Write();

  probe_driver::UsbBus& bus_;
  const std::shared_ptr<probe_driver::FrameSocket> socket_;

  // Only used by the thread that runs Run.
  std::map<std::uint32_t, std::unique_ptr<probe_driver::UsbDevice>> devices_;

  std::mutex transfers_mutex_;
  std::unordered_map<std::uint64_t, std::unique_ptr<Transfer>> in_flight_;
  std::vector<std::unique_ptr<Transfer>>
      completed_;  // let go by Run: their functions may still run
  std::size_t bytes_in_flight_ = 0;

  std::mutex out_mutex_;
  std::condition_variable out_changed_;
  std::deque<std::vector<std::uint8_t>> unsent_;
  std::size_t unsent_bytes_ = 0;
  bool ending_ = false;
  std::thread writer_;
};

}  // namespace sim
