// Offers a bench to other processes on a Unix socket: its bus, and the commands that rearrange it.
#pragma once

#include <condition_variable>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "platform/probe_driver/frame_socket.h"
#include "platform/probe_driver/usb_bus.h"
#include "sim/bench.h"
#include "sim/server/bus_connection.h"
#include "sim/server/host.h"

namespace sim {

// A controlling connection on a socket.
class SocketStream : public ControlStream {
 public:
  explicit SocketStream(std::shared_ptr<probe_driver::FrameSocket> socket)
      : socket_(std::move(socket)) {}

  bool Send(const void* bytes, std::size_t size) override {
    return socket_->SendBytes(bytes, size);
  }
  bool Receive(void* out, std::size_t size) override { return socket_->Receive(out, size); }

 private:
  const std::shared_ptr<probe_driver::FrameSocket> socket_;
};

class SocketServer : public BenchServer, public probe_driver::UsbBusListener {
 public:
  enum class Offer { kBusAndCommands, kCommands };

  // Listens from now on. `bench` outlives the server, which is its listener if it offers the bus;
  // `stop` is called on any thread when a controlling connection asks for the end. A socket file
  // that nobody listens on is replaced. Throws std::runtime_error when one is listened on, or when
  // there can be none.
  SocketServer(Bench& bench, const std::string& socket_path, std::function<void()> stop,
               Offer offer = Offer::kBusAndCommands);
  // Ends all connections and removes the socket file.
  ~SocketServer() override;

  void OnDeviceArrived(const std::string& path) override { Tell(true, path); }
  void OnDeviceRemoved(const std::string& path) override { Tell(false, path); }

 private:
  struct Peer {
    std::shared_ptr<probe_driver::FrameSocket> socket;
    std::unique_ptr<BusConnection> bus;  // once the greeting said so
    bool ended = false;
    std::thread thread;
  };

  void Accept();
  void Serve(Peer& peer);
  void ServeBus(Peer& peer);
  void Tell(bool arrived, const std::string& path);
  // Joins the threads of peers that have ended, or of all.
  void Reap(bool all);

  Bench& bench_;
  const std::string socket_path_;
  const std::function<void()> stop_;
  const Offer offer_;
  int listening_ = -1;
  std::mutex mutex_;  // of the peers, and of what they are told
  std::list<Peer> peers_;
  bool ending_ = false;
  std::condition_variable ending_begins_;
  std::thread acceptor_;
};

}  // namespace sim
