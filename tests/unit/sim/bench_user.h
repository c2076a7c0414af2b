// What the tests of the bench share: time that they move, transfers and their ends, what a listener
// is told, and a user of one probe.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "sim/bench.h"

namespace sim {

// Time that moves when a test moves it.
class ManualTime {
 public:
  Scheduler scheduler() {
    return [this](std::uint64_t delay_ms, std::function<void()> action) {
      actions_.emplace(now_ + delay_ms, std::move(action));
    };
  }
  void Advance(std::uint64_t ms) {
    const std::uint64_t end = now_ + ms;
    while (!actions_.empty() && actions_.begin()->first <= end) {
      now_ = actions_.begin()->first;
      const std::function<void()> action = std::move(actions_.begin()->second);
      actions_.erase(actions_.begin());
      action();
    }
    now_ = end;
  }

 private:
  std::uint64_t now_ = 0;
  std::multimap<std::uint64_t, std::function<void()>> actions_;
};

// Bounds a wait for something that must come; a test that meets it has failed.
inline constexpr std::chrono::seconds kBound(20);

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
  Awaited(const probe_driver::SetupPacket& setup, Bytes data) : Awaited(0, std::move(data)) {
    transfer_.setup = setup;
  }

  probe_driver::UsbTransfer& transfer() { return transfer_; }
  const Bytes& data() const { return data_; }
  std::uint32_t actual() const { return transfer_.actual; }

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

// Listens to a bus while one lives: "+path" for each arrival, "-path" for each removal.
class Events : public probe_driver::UsbBusListener {
 public:
  explicit Events(probe_driver::UsbBus& bus) : bus_(bus) { bus.SetListener(this); }
  ~Events() { bus_.SetListener(nullptr); }
  void OnDeviceArrived(const std::string& path) override { Note("+", path); }
  void OnDeviceRemoved(const std::string& path) override { Note("-", path); }

  // All so far, once there are `count`.
  std::vector<std::string> Wait(std::size_t count) {
    std::unique_lock lock(mutex_);
    EXPECT_TRUE(changed_.wait_for(lock, kBound, [&] { return told_.size() >= count; }));
    return told_;
  }

 private:
  void Note(const std::string& what, const std::string& path) {
    const std::lock_guard lock(mutex_);
    const auto present = bus_.ListDevices();
    EXPECT_EQ(std::count(present.begin(), present.end(), path), what == "+" ? 1 : 0)
        << "listed before its arrival is told, gone before its removal is";
    told_.push_back(what + path);
    changed_.notify_all();
  }

  probe_driver::UsbBus& bus_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> told_;
};

// Transfers to the first probe, if any, that end in every way there is.
inline void UseFirstProbe(probe_driver::UsbBus& bus) {
  const auto paths = bus.ListDevices();
  auto device = paths.empty() ? nullptr : bus.OpenDevice(paths[0]);
  if (device == nullptr) return;
  Awaited mode({0xC0, 0x41, 0x010C, 0, 3}, Bytes(3)), out(0x02, Bytes(2000, 0xA5));
  Awaited cancelled(0x86, Bytes(512)), aborted(0x84, Bytes(16)), closed(0x81, Bytes(16));
  Awaited* const all[] = {&mode, &out, &cancelled, &aborted, &closed};
  for (Awaited* transfer : all) device->Submit(transfer->transfer());
  device->Cancel(cancelled.transfer());
  for (const std::uint8_t endpoint : {0x02, 0x84}) device->AbortPipe(endpoint);
  device.reset();
  for (Awaited* transfer : all) transfer->Wait();
}

// A thread for each of `buses` uses the probe "P", of the kind below, while it comes and goes.
inline constexpr char kTracingBench[] =
    R"({"probes": [{"name": "P", "kind": "evk", "swv": {"bytes_per_ms": 200}}]})";

inline void UseAProbeThatComesAndGoes(Bench& bench, const std::vector<probe_driver::UsbBus*>& buses,
                                      int rounds) {
  std::atomic<bool> ending{false};
  std::vector<std::thread> threads;
  for (probe_driver::UsbBus* bus : buses) {
    threads.emplace_back([&ending, bus] {
      while (!ending) UseFirstProbe(*bus);
    });
  }
  for (int i = 0; i < rounds; ++i) {
    bench.Unplug("P");
    bench.Plug("P");
    UseFirstProbe(*buses.front());
  }
  ending = true;
  for (std::thread& thread : threads) thread.join();
}

struct Outcome {
  probe_driver::UsbStatus status = probe_driver::UsbStatus::kOk;
  Bytes data;  // received
};

// Transfers to one attachment. The bench answers within Submit or not at all until something
// happens, so a transfer that is not answered is cancelled and reported as kAborted.
class User {
 public:
  User(probe_driver::UsbBus& bus, const std::string& path) : device_(bus.OpenDevice(path)) {}
  static User Of(Bench& bench, const std::string& name) { return {bench, bench.PathOf(name)}; }

  probe_driver::UsbDevice& device() { return *device_; }

  Outcome Control(std::uint8_t type, std::uint8_t request, std::uint16_t value, std::uint16_t index,
                  std::uint16_t length, const Bytes& data = {}) {
    const bool in = (type & 0x80) != 0;
    Awaited transfer({type, request, value, index, length}, in ? Bytes(length, 0xCC) : data);
    return Run(transfer, in);
  }
  // A command of the probe: the reply, or nothing when it was not answered well.
  Bytes Command(std::uint8_t request, std::uint16_t value, std::uint16_t length,
                std::uint16_t index = 0) {
    return Control(0xC0, request, value, index, length).data;
  }
  Outcome Out(std::uint8_t endpoint, const Bytes& data) {
    Awaited transfer(endpoint, data);
    return Run(transfer, false);
  }
  Outcome In(std::uint8_t endpoint, std::uint32_t length) {
    Awaited transfer(endpoint, Bytes(length, 0xCC));
    return Run(transfer, true);
  }

  std::uint8_t ReadRegister(std::uint8_t address) {
    const Bytes reply = Command(0x43, address, 8);
    return reply.size() == 8 ? reply[3] : 0xEE;
  }
  void WriteRegister(std::uint8_t address, std::uint8_t value) {
    Command(0x43, static_cast<std::uint16_t>(value << 8 | 0x80 | address), 16);
  }
  void LoadFpga(const Bytes& image) {
    const auto last = static_cast<std::uint32_t>(image.size() - 1);
    Command(0x47, 0, 16);
    Command(0x45, static_cast<std::uint16_t>(last), 16, static_cast<std::uint16_t>(last >> 16));
    Out(0x02, image);
    Command(0x46, 0, 16);
  }
  // A whole JTAG exchange of one chunk.
  Bytes Jtag(const Bytes& stream, std::uint32_t cycles) {
    WriteRegister(1, static_cast<std::uint8_t>(cycles));
    WriteRegister(2, static_cast<std::uint8_t>(0x80 | cycles >> 8));
    Out(0x02, stream);
    return In(0x84, (cycles + 7) / 8).data;
  }
  // Levels for the serial-wire line, which only JTAG mode can send, with this value of the target
  // control register: its upper bits keep them away.
  void StreamToSwdLine(std::uint8_t control, const Bytes& stream) {
    Command(0x41, 0x101, 3);
    const std::uint8_t before = ReadRegister(0x11);
    WriteRegister(0x11, control);
    Jtag(stream, static_cast<std::uint32_t>(4 * stream.size()));
    WriteRegister(0x11, before);
    Command(0x41, 0x104, 3);
  }
  // 52 cycles high, the switch sequence, 52 cycles high.
  void SwitchSwdLine(const Bytes& sequence) {
    Bytes stream(13, 0xF0);
    for (const std::uint8_t levels : sequence) stream.push_back(levels);
    stream.resize(stream.size() + 13, 0xF0);
    StreamToSwdLine(0x00, stream);
  }
  void ResetSwdLine() { SwitchSwdLine({0xE0, 0x90, 0x70, 0xE0}); }
  Bytes Swd(const Bytes& requests) {
    Out(0x02, requests);
    return In(0x84, 512).data;
  }

 private:
  Outcome Run(Awaited& transfer, bool in) {
    device_->Submit(transfer.transfer());
    if (!transfer.ended()) device_->Cancel(transfer.transfer());
    const probe_driver::UsbStatus status = transfer.Wait();
    Bytes received = transfer.data();
    received.resize(in ? transfer.actual() : 0);
    return {status, std::move(received)};
  }

  std::unique_ptr<probe_driver::UsbDevice> device_;
};

// A bench of one probe, "P", with its user and with time that the test moves.
class OneProbe : public testing::Test {
 protected:
  // `members`: of its description, besides the name. In the place of the one before, if any.
  void Plug(const std::string& members) {
    bench_ = std::make_unique<Bench>(R"({"probes": [{"name": "P", )" + members + "}]}",
                                     BenchOptions{.scheduler = time_.scheduler()});
    user_ = std::make_unique<User>(User::Of(*bench_, "P"));
  }

  ManualTime time_;
  std::unique_ptr<Bench> bench_;
  std::unique_ptr<User> user_;
};

inline constexpr char kEvk[] = R"("kind": "evk")";

}  // namespace sim
