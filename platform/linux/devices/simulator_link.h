// The connection to a simulated bench: its devices as last told, and what is in flight to them.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/probe_driver/bus_frames.h"
#include "platform/probe_driver/bus_news.h"
#include "platform/probe_driver/frame_socket.h"
#include "platform/probe_driver/in_flight.h"
#include "platform/probe_driver/usb_bus.h"

namespace linux_host {

// Run and Tell each have a thread of their caller's until End; everything else may be called on any
// thread.
class SimulatorLink {
 public:
  struct Opened {
    std::uint32_t device = 0;  // never used again, so that a lost connection's devices stay lost
    probe_driver::DriverFacts facts;
  };

  explicit SimulatorLink(std::string socket_path) : socket_path_(std::move(socket_path)) {}

  // Connects, reads frames and completes transfers, connects again each second.
  void Run();
  // Tells the listener of arrivals and removals.
  void Tell();
  void End();

  // Returns when the first attempt has failed or brought the list of devices, or after two seconds.
  void AwaitFirstList();

  std::vector<std::string> Paths();
  void SetListener(probe_driver::UsbBusListener* listener) { news_.SetListener(listener); }

  std::optional<Opened> Open(const std::string& path);
  // Returns when `of_device`, which counts what the device has in flight, counts nothing.
  void Close(std::uint32_t device, probe_driver::InFlight& of_device);
  void Submit(std::uint32_t device, const std::shared_ptr<probe_driver::InFlight>& owner,
              probe_driver::UsbTransfer& transfer);
  void Cancel(std::uint32_t device, probe_driver::UsbTransfer& transfer);
  void Abort(std::uint32_t device, std::uint8_t endpoint);
  bool Reset(std::uint32_t device, std::uint8_t endpoint);

 private:
  struct Waiting {
    probe_driver::UsbTransfer* transfer = nullptr;
    std::shared_ptr<probe_driver::InFlight> owner;
  };
  struct Answer {
    probe_driver::FrameType type;  // that is due
    bool due = true;
    bool ok = false;
    probe_driver::DriverFacts facts{};
  };
  using Socket = std::shared_ptr<probe_driver::FrameSocket>;

  // How the sockets of Run come and go.
  Socket Connect() const;
  void ReadFrames(probe_driver::FrameSocket& socket);
  bool Handle(probe_driver::FrameSocket& socket, const probe_driver::Frame& frame);
  bool HandleCompleted(probe_driver::FrameSocket& socket, const probe_driver::Frame& frame);
  bool HandleAnswer(probe_driver::FrameSocket& socket, const probe_driver::Frame& frame);
  bool HandlePath(probe_driver::FrameSocket& socket, const probe_driver::Frame& frame);
  void Lose(probe_driver::FrameSocket& socket);
  static void Complete(Waiting& waiting, probe_driver::UsbStatus status);

  // Sends unless the connection has gone; the caller holds sending_.
  bool Send(const Socket& socket, probe_driver::Frame frame, const std::uint8_t* payload,
            std::uint32_t size);
  void Drop();
  void SendSmall(const probe_driver::Frame& frame);
  // Sends a request and waits for its answer; none when the connection is lost.
  std::optional<Answer> Ask(probe_driver::Frame frame, probe_driver::FrameType answer,
                            const std::string& payload);
  void Note(bool arrived, const std::string& path);

  const std::string socket_path_;

  // Order of the locks: sending_, then mutex_. While sending_ is held nothing of the connection
  // ends, so the buffers of the transfer that is being sent stay valid.
  std::mutex sending_;
  std::mutex mutex_;
  std::condition_variable changed_;  // of anything below
  bool ending_ = false;
  bool settled_ = false;  // the first attempt to connect has had its outcome
  Socket socket_;         // null while there is no simulator
  std::set<std::string> paths_;
  std::set<std::uint32_t> open_;  // devices of this connection
  std::uint32_t last_device_ = 0;
  std::uint64_t last_id_ = 0;
  std::unordered_map<std::uint64_t, Waiting> in_flight_;
  std::unordered_map<std::uint64_t, Answer*> answers_;

  probe_driver::BusNews news_;
};

}  // namespace linux_host
