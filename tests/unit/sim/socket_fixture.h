// A bench that is offered on a socket.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/linux/devices/simulator_bus.h"
#include "platform/probe_driver/frame_socket.h"
#include "sim/server/socket_server.h"
#include "tests/unit/scratch_folder.h"
#include "tests/unit/sim/bench_user.h"

namespace sim {

class SocketFixture : public testing::Test {
 protected:
  void Serve(const char* description) {
    bench_ = std::make_unique<Bench>(description);
    server_ = std::make_unique<SocketServer>(*bench_, path_, [] {});
  }
  void Connect() { bus_ = linux_host::ConnectSimulatorBus(path_); }

  // A bus's device for the probe "P".
  std::unique_ptr<probe_driver::UsbDevice> Device() {
    return bus_->OpenDevice(bench_->State("P").path);
  }

  // Uses the address for a socket: calls bind or connect.
  template <typename Call>
  static int WithAddress(Call call, int fd, const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, path.size());
    return call(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  }
  static int NewSocket() { return ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0); }

  // A connected socket, for tests that speak the frames themselves.
  std::unique_ptr<probe_driver::FrameSocket> Dial(std::string_view greeting) const {
    auto socket = std::make_unique<probe_driver::FrameSocket>(NewSocket());
    EXPECT_EQ(WithAddress(connect, socket->fd(), path_), 0);
    EXPECT_TRUE(socket->SendBytes(greeting.data(), greeting.size()));
    return socket;
  }

  const unit::ScratchFolder folder_;
  const std::string path_ = folder_.Path("s");
  std::unique_ptr<Bench> bench_;
  std::unique_ptr<SocketServer> server_;
  std::unique_ptr<probe_driver::UsbBus> bus_;
};

}  // namespace sim
