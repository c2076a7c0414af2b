// A bench that is offered on a socket, and transfers through it that a test waits for.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>

#include "platform/linux/simulator_bus.h"
#include "platform/probe_driver/frame_socket.h"
#include "sim/bench.h"
#include "sim/server/socket_server.h"

namespace sim {

// Bounds a wait for something that must come; a test that meets it has failed.
inline constexpr std::chrono::seconds kBound(20);

class SocketFixture : public testing::Test {
 protected:
  SocketFixture() {
    char name[] = "/tmp/wfxsim_test_XXXXXX";
    directory_ = mkdtemp(name);
    path_ = directory_ + "/s";
  }
  ~SocketFixture() override {
    bus_.reset();
    server_.reset();
    unlink(path_.c_str());
    rmdir(directory_.c_str());
  }

  void Serve(const char* description) {
    bench_ = std::make_unique<Bench>(description);
    server_ = std::make_unique<SocketServer>(*bench_, path_, [] {});
  }
  void Connect() { bus_ = linux_host::ConnectSimulatorBus(path_); }

  // A connected socket, for tests that speak the frames themselves.
  std::unique_ptr<probe_driver::FrameSocket> Dial(std::string_view greeting) const {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path_.copy(address.sun_path, path_.size());
    auto socket = std::make_unique<probe_driver::FrameSocket>(
        ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(connect(socket->fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
              0);
    EXPECT_TRUE(socket->SendBytes(greeting.data(), greeting.size()));
    return socket;
  }

  std::string directory_;
  std::string path_;
  std::unique_ptr<Bench> bench_;
  std::unique_ptr<SocketServer> server_;
  std::unique_ptr<probe_driver::UsbBus> bus_;
};

// One transfer and its end.
class Awaited {
 public:
  Awaited(std::uint8_t endpoint, Bytes data) : data_(std::move(data)) {
    transfer_.endpoint = endpoint;
    transfer_.data = data_.data();
    transfer_.length = static_cast<std::uint32_t>(data_.size());
    transfer_.complete = [this](probe_driver::UsbTransfer&) {
      const std::lock_guard lock(mutex_);
      ++completions_;
      changed_.notify_all();
    };
  }
  static std::unique_ptr<Awaited> Control(probe_driver::SetupPacket setup) {
    auto awaited = std::make_unique<Awaited>(0, Bytes(setup.length));
    awaited->transfer_.setup = setup;
    return awaited;
  }

  probe_driver::UsbTransfer& transfer() { return transfer_; }
  const Bytes& data() const { return data_; }

  // The status once it has ended.
  probe_driver::UsbStatus Wait() {
    std::unique_lock lock(mutex_);
    EXPECT_TRUE(changed_.wait_for(lock, kBound, [&] { return completions_ != 0; }));
    EXPECT_EQ(completions_, 1);
    return transfer_.status;
  }
  // Gives an answer that is under way no time: only tells whether it has come.
  bool ended() {
    const std::lock_guard lock(mutex_);
    return completions_ != 0;
  }

 private:
  Bytes data_;
  probe_driver::UsbTransfer transfer_;
  std::mutex mutex_;
  std::condition_variable changed_;
  int completions_ = 0;
};

// What a listener was told, and a wait for it.
class Events : public probe_driver::UsbBusListener {
 public:
  explicit Events(probe_driver::UsbBus& bus) : bus_(bus) {}
  void OnDeviceArrived(const std::string& path) override { Note('+', path); }
  void OnDeviceRemoved(const std::string& path) override { Note('-', path); }

  // The first `count` events, one character each.
  std::string Wait(std::size_t count) {
    std::unique_lock lock(mutex_);
    EXPECT_TRUE(changed_.wait_for(lock, kBound, [&] { return told_.size() >= count; }));
    return told_;
  }

 private:
  void Note(char what, const std::string& path) {
    const std::lock_guard lock(mutex_);
    const auto paths = bus_.ListDevices();
    const bool listed = std::find(paths.begin(), paths.end(), path) != paths.end();
    // An arrival that has gone again meanwhile is not listed; a removal never is.
    EXPECT_FALSE(what == '-' && listed);
    told_ += what;
    changed_.notify_all();
  }
  probe_driver::UsbBus& bus_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::string told_;
};

}  // namespace sim
